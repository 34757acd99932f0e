#pragma once
// A real local HTTP(S) server for end-to-end tests: listens on 127.0.0.1 at an
// ephemeral port, records every request it receives (any method, any path) and
// answers with a chosen status, or holds requests unanswered until released.

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace tav::test {

struct ReceivedRequest {
  std::string method;
  std::string path;
  std::multimap<std::string, std::string> headers;  // names in lower case
  std::string body;
  int remotePort = 0;

  /// The first value of header `name` (any case), or "" when absent.
  [[nodiscard]] std::string header(const std::string& name) const;
  [[nodiscard]] bool hasHeader(const std::string& name) const;
};

class TestServer {
 public:
  /// Plain HTTP.
  TestServer();
  /// HTTPS with a PEM certificate and key.
  TestServer(const std::string& certFile, const std::string& keyFile);
  ~TestServer();
  TestServer(const TestServer&) = delete;
  TestServer& operator=(const TestServer&) = delete;

  [[nodiscard]] int port() const { return _port; }
  /// The status of later answers (200 by default).
  void setStatus(int status);
  /// Holds later requests without an answer until `release`.
  void stall();
  void release();

  /// Waits until `count` requests have arrived (answered or held), at most `deadline`.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds deadline) const;
  [[nodiscard]] std::vector<ReceivedRequest> requests() const;

 private:
  void start();

  std::unique_ptr<httplib::Server> _server;
  std::thread _thread;
  int _port = 0;
  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  std::vector<ReceivedRequest> _requests;
  int _status = 200;
  bool _stalled = false;
};

/// A 127.0.0.1 port that is bound but not listening: connections are refused.
class RefusingPort {
 public:
  RefusingPort();
  ~RefusingPort();
  RefusingPort(const RefusingPort&) = delete;
  RefusingPort& operator=(const RefusingPort&) = delete;
  [[nodiscard]] int port() const { return _port; }

 private:
  int _socket = -1;
  int _port = 0;
};

}  // namespace tav::test
