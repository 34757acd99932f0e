// tav-simulate: plays scenarios (scenarios/*.json) or a recorded call log through
// the real library in accelerated virtual time, exactly as a player integration
// calls it; beacons go to the local collector, whose report is then checked
// against each scenario's expectations (PASS/FAIL per metric).

#include <cstdio>
#include <cstdlib>
#include <stdexcept>
#include <string>

#include "Simulate.h"

namespace {

constexpr const char* kUsage = R"(usage: tav-simulate [options] SCENARIO.json...
       tav-simulate [options] --replay CALLS.jsonl
  --speed X          virtual time runs X times faster than real time (default 100;
                     0 = as fast as possible); idle gaps of 10 s or more pass at once
  --port N           the collector's port ("local" beacons go there; default 8080)
  --host ADDR        the collector's address for reading its report (default 127.0.0.1)
  --key KEY          environment key of the simulated players (default "local")
  --record FILE      also record every facade call to FILE (JSON lines; replayable)
  --dump-calls FILE  write the expanded calls to FILE without changing the run
  --no-check         do not read the collector's report or check expectations
  --no-report        do not print the run's views
  --quiet            no progress lines
Exit status: 0 all checks passed, 1 a check failed or no collector, 2 bad input.
)";

}  // namespace

int main(int argc, char** argv) {
  tav::simulate::SimulateOptions options;
  try {
    for (int i = 1; i < argc; ++i) {
      const std::string arg = argv[i];
      const auto value = [&]() -> std::string {
        if (i + 1 >= argc) throw std::invalid_argument(arg + " needs a value");
        return argv[++i];
      };
      if (arg == "--speed") {
        options.run.speed = std::stod(value());
      } else if (arg == "--port") {
        options.collectorPort = std::stoi(value());
      } else if (arg == "--host") {
        options.collectorHost = value();
      } else if (arg == "--key") {
        options.environmentKey = value();
      } else if (arg == "--record") {
        options.recordFile = value();
      } else if (arg == "--replay") {
        options.replayFile = value();
      } else if (arg == "--dump-calls") {
        options.dumpCallsFile = value();
      } else if (arg == "--no-check") {
        options.check = false;
      } else if (arg == "--no-report") {
        options.printReport = false;
      } else if (arg == "--quiet") {
        options.run.progress = false;
      } else if (arg == "--help" || arg == "-h") {
        std::fputs(kUsage, stdout);
        return 0;
      } else if (!arg.empty() && arg[0] == '-') {
        throw std::invalid_argument("unknown option " + arg);
      } else {
        options.scenarioFiles.push_back(arg);
      }
    }
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tav-simulate: %s\n%s", e.what(), kUsage);
    return 2;
  }
  return tav::simulate::simulate(options);
}
