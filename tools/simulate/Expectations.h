#pragma once
// Checks a scenario's expectations against the collector's report.
//
// "expect" maps a video id (or "id#N" for its N-th view, in order of arrival)
// to what its view must show:
//   "views": N               how many views the video had (on the plain id only)
//   "firstEvent": "name"     the event of the view's first beacon (default "viewstart")
//   "complete": bool         no beacon missing from the view's sequence (default true)
//   "events": {name: n}      beacons of each named event
//   "metrics": {name: m}     report metrics (see the collector's report), where m is
//                            a number (equal), {"approx": x, "tolerance": 0.05}
//                            (relative), {"min": a, "max": b}, or null (absent)
//   "errorCode", "errorMessage": texts of the view's last "error" beacon

#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "Scenario.h"

namespace tav::simulate {

struct CheckResult {
  std::string scenario;
  std::string subject;  // "video-id" or "video-id#2"
  std::string check;
  std::string expected;
  std::string actual;
  bool pass = false;
};

/// The report's views that belong to the run `runId`, in order of arrival.
[[nodiscard]] std::vector<Json> viewsOfRun(const Json& report, const std::string& runId);

/// Every check of the scenario over the run's views (of this scenario's players).
[[nodiscard]] std::vector<CheckResult> checkScenario(const Scenario& scenario,
                                                     const std::vector<Json>& runViews);

/// A table of the results, one line each, and a closing count.
[[nodiscard]] std::string formatResults(const std::vector<CheckResult>& results);

}  // namespace tav::simulate
