#pragma once
// The collector's HTTP server: POST / takes a beacon batch, GET /report answers
// the JSON report, GET /report.txt the text report, GET /health "ok". It serves
// on its own threads; bad requests get a 4xx answer and a log line, and the
// server keeps serving.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "Collector.h"

namespace httplib {
class Server;
}

namespace tav::collector {

class CollectorServer {
 public:
  struct Options {
    std::string host = "127.0.0.1";
    int port = 8080;                             // 0: any free port
    std::size_t maxBodyBytes = 8 * 1024 * 1024;  // larger bodies get 413
    /// Called after every POSTed batch (accepted or not), on a server thread.
    std::function<void(const IngestResult&, const BatchInfo&, std::size_t bytes)> onBatch;
    /// Log lines (rejections, errors); stderr when unset. Called on server threads.
    std::function<void(const std::string&)> log;
  };

  /// The collector must outlive the server.
  CollectorServer(Collector& collector, Options options);
  ~CollectorServer();  // stops
  CollectorServer(const CollectorServer&) = delete;
  CollectorServer& operator=(const CollectorServer&) = delete;

  /// Binds and starts serving. False (with a log line) when the address cannot be bound.
  bool start();
  /// The bound port (after a successful start).
  [[nodiscard]] int port() const { return _port; }
  /// Stops serving and joins the server threads. Idempotent.
  void stop();

 private:
  void log(const std::string& line) const;

  Collector& _collector;
  Options _options;
  std::unique_ptr<httplib::Server> _server;
  std::thread _thread;
  int _port = 0;
};

/// Milliseconds since the epoch on the wall clock.
[[nodiscard]] std::int64_t wallClockMs();

}  // namespace tav::collector
