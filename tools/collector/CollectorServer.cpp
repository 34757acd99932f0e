#include "CollectorServer.h"

#include <httplib.h>

#include <chrono>
#include <cstdio>

namespace tav::collector {
namespace {
constexpr std::size_t kServerThreads = 64;
}  // namespace

std::int64_t wallClockMs() {
  return std::chrono::duration_cast<std::chrono::milliseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

CollectorServer::CollectorServer(Collector& collector, Options options)
    : _collector(collector),
      _options(std::move(options)),
      _server(std::make_unique<httplib::Server>()) {}

CollectorServer::~CollectorServer() {
  stop();
}

void CollectorServer::log(const std::string& line) const {
  if (_options.log) {
    _options.log(line);
  } else {
    std::fprintf(stderr, "tav-collector: %s\n", line.c_str());
  }
}

bool CollectorServer::start() {
  auto& server = *_server;
  server.set_payload_max_length(_options.maxBodyBytes);
  // Each open connection holds a server thread until it closes: enough threads
  // for many clients at once, and idle kept-alive connections closed soon.
  server.new_task_queue = [] { return new httplib::ThreadPool(kServerThreads); };
  server.set_read_timeout(10, 0);
  server.set_keep_alive_timeout(2);
  server.set_keep_alive_max_count(1000);
  // Answers go out at once: the header and the body are separate writes, and
  // Nagle's algorithm would hold the body for the client's delayed ACK.
  server.set_tcp_nodelay(true);
  // Address reuse only: the library's default also shares the port, which would
  // let a second collector on the same port silently take half of the batches.
  server.set_socket_options([](socket_t socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });

  server.Post("/", [this](const httplib::Request& request, httplib::Response& response) {
    const BatchInfo info{request.remote_addr, wallClockMs()};
    const IngestResult result = _collector.ingestBatch(request.body, info);
    response.status = result.status;
    if (result.status == 200) {
      response.set_content(Json{{"accepted", result.beacons}}.dump(), "application/json");
    } else {
      log("rejected a batch of " + std::to_string(request.body.size()) + " bytes from " +
          request.remote_addr + ": " + result.error);
      response.set_content(Json{{"error", result.error}}.dump(), "application/json");
    }
    if (_options.onBatch) _options.onBatch(result, info, request.body.size());
  });
  server.Get("/report", [this](const httplib::Request&, httplib::Response& response) {
    response.set_content(_collector.report().dump(2), "application/json");
  });
  server.Get("/report.txt", [this](const httplib::Request&, httplib::Response& response) {
    response.set_content(_collector.textReport(), "text/plain; charset=utf-8");
  });
  server.Get("/health", [](const httplib::Request&, httplib::Response& response) {
    response.set_content("ok\n", "text/plain");
  });
  // Errors that the handlers never see (oversized bodies, unknown paths,
  // malformed requests) are logged here.
  server.set_logger([this](const httplib::Request& request, const httplib::Response& response) {
    if (request.method == "POST" && request.path == "/" && response.status == 413) {
      _collector.recordRejected({request.remote_addr, wallClockMs()}, request.body.size(),
                                "body over the size limit");
    }
    if (response.status >= 400 &&
        !(request.method == "POST" && request.path == "/" && response.status == 400)) {
      log(std::to_string(response.status) + " for " + request.method + " " + request.path +
          " from " + request.remote_addr);
    }
  });
  server.set_exception_handler(
      [this](const httplib::Request& request, httplib::Response& response, std::exception_ptr ep) {
        std::string what = "unknown failure";
        try {
          if (ep) std::rethrow_exception(ep);
        } catch (const std::exception& e) {
          what = e.what();
        } catch (...) {
        }
        log("failure while answering " + request.method + " " + request.path + ": " + what);
        response.status = 500;
      });

  _port = _options.port == 0
              ? server.bind_to_any_port(_options.host)
              : (server.bind_to_port(_options.host, _options.port) ? _options.port : -1);
  if (_port <= 0) {
    log("cannot listen on " + _options.host + ":" + std::to_string(_options.port));
    return false;
  }
  _thread = std::thread([&server] { server.listen_after_bind(); });
  // stop() only takes effect once the accept loop runs.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!server.is_running() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  if (!server.is_running()) {
    log("the server did not start on " + _options.host + ":" + std::to_string(_port));
    server.stop();
    _thread.join();
    return false;
  }
  return true;
}

void CollectorServer::stop() {
  if (!_thread.joinable()) return;
  _server->stop();
  _thread.join();
}

}  // namespace tav::collector
