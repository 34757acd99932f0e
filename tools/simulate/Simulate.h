#pragma once
// tav-simulate as a function: runs scenarios (or replays a recorded call log)
// through the real library in virtual time, delivers the beacons to the local
// collector, and checks the scenarios' expectations against its report.

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

#include "Runner.h"

namespace tav::simulate {

struct SimulateOptions {
  std::vector<std::string> scenarioFiles;
  std::string replayFile;  // a JSON-lines call log instead of scenarios
  std::string environmentKey = "local";
  std::string collectorHost = "127.0.0.1";
  int collectorPort = 0;  // where "local" posts and the report is read (0: the build's port)
  RunOptions run;
  bool check = true;          // read the report and check the expectations
  bool printReport = true;    // print this run's views from the report
  std::string recordFile;     // also record every facade call to this file
  std::string dumpCallsFile;  // write the expanded calls here, JSON lines
  std::chrono::milliseconds shutdownDeadline{15000};
  std::FILE* out = stdout;
};

/// The process exit status: 0 when everything ran and every check passed, 1 when
/// a check failed or the collector could not be reached, 2 for unusable input.
/// Installs a virtual clock for the library for the duration of the call.
int simulate(const SimulateOptions& options);

}  // namespace tav::simulate
