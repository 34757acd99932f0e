// tav-collector: the local beacon collector. Listens where the environment key
// "local" posts (localhost:8080), stores what arrives in SQLite, prints a line
// per batch and, on SIGUSR1 and at exit (SIGINT/SIGTERM), the per-view report.

#include <csignal>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fstream>
#include <memory>
#include <string>

#include <pthread.h>

#include "BeaconStore.h"
#include "Collector.h"
#include "CollectorServer.h"

using namespace tav::collector;

namespace {

constexpr const char* kUsage = R"(usage: tav-collector [options]
  --host ADDR          address to listen on (default 127.0.0.1)
  --port N             port (default 8080, where the environment key "local" posts)
  --db FILE            SQLite file to store batches and beacons (default tav-collector.db)
  --no-db              keep nothing on disk
  --max-body BYTES     largest accepted batch body (default 8388608)
  --report-json FILE   also write the JSON report to FILE at exit
  --quiet              no line per batch
  --report-from FILE   print the report rebuilt from a stored database and exit
Signals: SIGUSR1 prints the report; SIGINT/SIGTERM print it and exit.
HTTP: POST / (batches), GET /report (JSON), GET /report.txt, GET /health.
)";

struct Options {
  CollectorServer::Options server;
  std::string db = "tav-collector.db";
  std::string reportJson;
  std::string reportFrom;
  bool quiet = false;
  bool help = false;
};

void parse(int argc, char** argv, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const auto value = [&]() -> const char* {
      if (i + 1 >= argc) throw std::invalid_argument(arg + " needs a value");
      return argv[++i];
    };
    if (arg == "--host") {
      options.server.host = value();
    } else if (arg == "--port") {
      options.server.port = std::stoi(value());
    } else if (arg == "--db") {
      options.db = value();
    } else if (arg == "--no-db") {
      options.db.clear();
    } else if (arg == "--max-body") {
      options.server.maxBodyBytes = std::stoul(value());
    } else if (arg == "--report-json") {
      options.reportJson = value();
    } else if (arg == "--report-from") {
      options.reportFrom = value();
    } else if (arg == "--quiet") {
      options.quiet = true;
    } else if (arg == "--help" || arg == "-h") {
      options.help = true;
    } else {
      throw std::invalid_argument("unknown option " + arg);
    }
  }
}

std::string clockText(std::int64_t ms) {
  const std::time_t seconds = ms / 1000;
  std::tm local{};
  localtime_r(&seconds, &local);
  char text[32];
  std::snprintf(text, sizeof text, "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                static_cast<int>(ms % 1000));
  return text;
}

void printBatchLine(const IngestResult& result, const BatchInfo& info, std::size_t bytes,
                    const Collector& collector) {
  std::string events;
  for (const auto& e : result.events)
    events += (events.empty() ? "" : " ") + e;
  if (events.size() > 100) events = events.substr(0, 97) + "...";
  if (result.status != 200) {
    std::printf("%s  %-15s  REJECTED %zu bytes: %s\n", clockText(info.receivedAtMs).c_str(),
                info.remote.c_str(), bytes, result.error.c_str());
  } else {
    std::printf("%s  %-15s  %3zu beacons %7.1f KiB  %s%s  (total %zu)\n",
                clockText(info.receivedAtMs).c_str(), info.remote.c_str(), result.beacons,
                static_cast<double>(bytes) / 1024.0, events.c_str(),
                result.violations
                    ? ("  [" + std::to_string(result.violations) + " violations]").c_str()
                    : "",
                collector.beaconCount());
  }
  std::fflush(stdout);
}

void writeReport(const Collector& collector, const std::string& jsonFile) {
  std::fputs(collector.textReport().c_str(), stdout);
  std::fflush(stdout);
  if (!jsonFile.empty()) {
    std::ofstream out(jsonFile);
    out << collector.report().dump(2) << '\n';
    if (!out) std::fprintf(stderr, "tav-collector: cannot write %s\n", jsonFile.c_str());
  }
}

int reportFromStore(const Options& options) {
  Collector collector;
  try {
    BeaconStore store(options.reportFrom);
    store.forEachBatch([&](const BatchInfo& info, std::size_t bytes, const Json& document) {
      collector.ingestDocument(document, info, bytes);
    });
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tav-collector: %s\n", e.what());
    return 1;
  }
  writeReport(collector, options.reportJson);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  try {
    parse(argc, argv, options);
  } catch (const std::exception& e) {
    std::fprintf(stderr, "tav-collector: %s\n%s", e.what(), kUsage);
    return 2;
  }
  if (options.help) {
    std::fputs(kUsage, stdout);
    return 0;
  }
  if (!options.reportFrom.empty()) return reportFromStore(options);

  std::unique_ptr<BeaconStore> store;
  if (!options.db.empty()) {
    try {
      store = std::make_unique<BeaconStore>(options.db);
    } catch (const std::exception& e) {
      std::fprintf(stderr, "tav-collector: %s\n", e.what());
      return 1;
    }
  }
  Collector collector(std::move(store));

  // The server threads inherit this mask; only the main thread takes signals.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  sigaddset(&signals, SIGUSR1);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);

  if (!options.quiet) {
    options.server.onBatch = [&collector](const IngestResult& result, const BatchInfo& info,
                                          std::size_t bytes) {
      printBatchLine(result, info, bytes, collector);
    };
  }
  CollectorServer server(collector, options.server);
  if (!server.start()) return 1;
  std::printf("tav-collector listening on http://%s:%d/ (db: %s)\n", options.server.host.c_str(),
              server.port(), options.db.empty() ? "none" : options.db.c_str());
  std::fflush(stdout);

  for (;;) {
    int signal = 0;
    if (sigwait(&signals, &signal) != 0) continue;
    if (signal == SIGUSR1) {
      writeReport(collector, options.reportJson);
      continue;
    }
    break;
  }
  server.stop();
  writeReport(collector, options.reportJson);
  return 0;
}
