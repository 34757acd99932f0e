#include "Simulate.h"

#include <httplib.h>

#include <fstream>
#include <random>

#include "Collector.h"
#include "Expectations.h"
#include "Scenario.h"
#include "tav/TavCore.h"
#include "tav_build_config.h"
#include "transport/TransportOverrides.h"

namespace tav::simulate {
namespace {

std::string newRunId() {
  std::random_device device;
  char text[16];
  std::snprintf(text, sizeof text, "%08x", device());
  return text;
}

std::int64_t wallClockMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

std::vector<Json> readCallLog(const std::string& path) {
  std::ifstream in(path);
  if (!in) throw std::runtime_error(path + ": cannot be read");
  std::vector<Json> calls;
  std::string line;
  std::size_t number = 0;
  while (std::getline(in, line)) {
    ++number;
    if (line.empty()) continue;
    Json call = Json::parse(line, nullptr, false);
    if (call.is_discarded() || !call.is_object() || !call.contains("t") ||
        !call["t"].is_number_integer()) {
      throw std::runtime_error(path + ":" + std::to_string(number) + ": not a recorded call");
    }
    calls.push_back(std::move(call));
  }
  std::stable_sort(calls.begin(), calls.end(), [](const Json& a, const Json& b) {
    return a["t"].get<std::int64_t>() < b["t"].get<std::int64_t>();
  });
  return calls;
}

void writeCalls(const std::string& path, const std::vector<Json>& calls) {
  std::ofstream out(path, std::ios::app);
  for (const auto& call : calls)
    out << call.dump() << '\n';
}

/// The collector's report, or null when it cannot be had.
Json fetchReport(httplib::Client& client) {
  const auto response = client.Get("/report");
  if (!response || response->status != 200) return nullptr;
  Json report = Json::parse(response->body, nullptr, false);
  return report.is_discarded() ? Json(nullptr) : report;
}

struct Job {
  std::string label;
  std::vector<Json> calls;
  const Scenario* scenario = nullptr;
};

}  // namespace

int simulate(const SimulateOptions& options) {
  std::FILE* out = options.out;
  const std::string runId = newRunId();

  // Everything to run, expanded up front so that bad input stops us early.
  std::vector<Scenario> scenarios;
  std::vector<Job> jobs;
  try {
    ExpandOptions expand;
    expand.environmentKey = options.environmentKey;
    expand.runId = runId;
    expand.pluginVersion = TAVSDKCoreVersionString;
    for (const auto& file : options.scenarioFiles)
      scenarios.push_back(loadScenario(file));
    for (const auto& scenario : scenarios) {
      jobs.push_back({scenario.name, expandScenario(scenario, expand), &scenario});
    }
    if (!options.replayFile.empty()) {
      jobs.push_back({"replay " + options.replayFile, readCallLog(options.replayFile), nullptr});
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tav-simulate: %s\n", e.what());
    return 2;
  }
  if (jobs.empty()) {
    std::fprintf(stderr, "tav-simulate: nothing to run\n");
    return 2;
  }
  if (!options.dumpCallsFile.empty()) {
    for (const auto& job : jobs)
      writeCalls(options.dumpCallsFile, job.calls);
  }

  const int port = options.collectorPort > 0 ? options.collectorPort : build::kLocalPort;
  httplib::Client client(options.collectorHost, port);
  client.set_connection_timeout(5, 0);
  client.set_read_timeout(30, 0);
  std::size_t viewsBefore = 0;
  if (options.check) {
    const Json before = fetchReport(client);
    if (before.is_null()) {
      std::fprintf(stderr,
                   "tav-simulate: no collector answers at http://%s:%d/ (start tav-collector "
                   "first, or pass --no-check)\n",
                   options.collectorHost.c_str(), port);
      return 1;
    }
    viewsBefore = before["views"].size();
  }
  if (port != build::kLocalPort) {
    auto overrides = detail::transportOverrides();
    overrides.localPort = port;
    detail::setTransportOverrides(overrides);
  }

  auto clock = std::make_shared<TAVSDKVirtualClock>(wallClockMs());
  Runner runner(clock, [&] {
    RunOptions run = options.run;
    run.out = out;
    return run;
  }());
  if (!options.recordFile.empty()) {
    auto recorder = std::make_shared<TAVSDKJsonLinesRecorder>(options.recordFile);
    if (!recorder->isOpen()) return 2;
    TAVSDKCore::setCallRecorder(recorder);
  }
  std::fprintf(out, "tav-simulate: run %s, %zu job(s), speed %gx, collector %s:%d\n", runId.c_str(),
               jobs.size(), options.run.speed, options.collectorHost.c_str(), port);
  std::size_t refused = 0;
  for (const auto& job : jobs) {
    const RunStats stats = runner.run(job.calls, job.label);
    refused += stats.refused;
    clock->advance(1000);  // a second between jobs
  }
  TAVSDKCore::setCallRecorder(nullptr);
  const auto shutdownStart = std::chrono::steady_clock::now();
  const bool delivered = TAVSDKCore::shutdown(options.shutdownDeadline);
  std::fprintf(
      out, "tav-simulate: library shut down in %.2f s, %s\n",
      std::chrono::duration<double>(std::chrono::steady_clock::now() - shutdownStart).count(),
      delivered ? "every batch delivered" : "some batches NOT delivered");
  if (!options.check) return delivered && refused == 0 ? 0 : 1;

  const Json report = fetchReport(client);
  if (report.is_null()) {
    std::fprintf(stderr, "tav-simulate: the collector's report cannot be read\n");
    return 1;
  }
  std::vector<Json> views = viewsOfRun(report, runId);
  if (!options.replayFile.empty()) {
    // Replayed views carry their recording's marks: take whatever arrived since.
    const auto& all = report["views"];
    for (std::size_t i = viewsBefore; i < all.size(); ++i) {
      if (std::find(views.begin(), views.end(), all[i]) == views.end()) views.push_back(all[i]);
    }
  }
  if (options.printReport) {
    Json subset = report;
    subset["views"] = views;
    subset["violations"] = Json::array();
    for (const auto& v : report["violations"]) {
      const std::string viewId = v.value("viewId", "");
      if (std::any_of(views.begin(), views.end(),
                      [&](const Json& view) { return view["viewId"] == viewId; })) {
        subset["violations"].push_back(v);
      }
    }
    subset["totals"]["violations"] = subset["violations"].size();
    std::fprintf(out, "\n%s", collector::formatReport(subset).c_str());
  }
  std::vector<CheckResult> results;
  for (const auto& scenario : scenarios) {
    const auto checks = checkScenario(scenario, views);
    results.insert(results.end(), checks.begin(), checks.end());
  }
  bool pass = delivered && refused == 0;
  if (!results.empty()) {
    std::fprintf(out, "\n%s", formatResults(results).c_str());
    pass = pass &&
           std::all_of(results.begin(), results.end(), [](const CheckResult& r) { return r.pass; });
  }
  std::fprintf(out, "tav-simulate: %s\n", pass ? "PASS" : "FAIL");
  return pass ? 0 : 1;
}

}  // namespace tav::simulate
