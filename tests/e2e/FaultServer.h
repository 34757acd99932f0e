#pragma once
// A raw-socket HTTP server on 127.0.0.1 that misbehaves on purpose. It reads
// each request (headers and Content-Length body) and then acts as told: answers
// with a status (optionally late), closes at once, resets the connection (RST)
// half-way through the request or the response body, holds the request
// unanswered, or answers bytes that are not HTTP. Until the first fault other
// than `kRefuse` is set, the port is bound but not listening, so connections are
// refused. Every connection has its own thread; the destructor (or `stop`)
// closes every socket and joins them all.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace tav::test {

class FaultServer {
 public:
  enum class Fault {
    kRefuse,            // not listening
    kAnswer,            // an HTTP answer with `status`, after `delay`
    kCloseAtOnce,       // reads the request, closes without a byte of answer
    kResetMidRequest,   // reads half the request body, then RST
    kResetMidResponse,  // answers the status line, headers and part of the body, then RST
    kStall,             // reads the request, never answers
    kGarbage,           // answers bytes that are not HTTP, then closes
  };

  explicit FaultServer(Fault fault = Fault::kAnswer);
  ~FaultServer();
  FaultServer(const FaultServer&) = delete;
  FaultServer& operator=(const FaultServer&) = delete;

  [[nodiscard]] int port() const { return _port; }
  /// How later requests are treated (a request is treated as it is when read).
  void setFault(Fault fault, int status = 200,
                std::chrono::milliseconds delay = std::chrono::milliseconds(0));
  /// Closes every connection and joins every thread; idempotent.
  void stop();

  /// Connections accepted so far.
  [[nodiscard]] std::size_t connectionCount() const;
  bool waitForConnections(std::size_t count, std::chrono::milliseconds deadline) const;
  /// Requests read so far, whatever became of them.
  [[nodiscard]] std::size_t requestCount() const;
  /// Bodies of the requests answered completely.
  [[nodiscard]] std::vector<std::string> answeredBodies() const;
  /// Waits until `count` requests have been read, at most `deadline`.
  bool waitForRequests(std::size_t count, std::chrono::milliseconds deadline) const;

 private:
  void acceptLoop();
  void serve(int socket);
  /// Reads up to the end of a request's header into `buffer`; answers the
  /// header's length, or 0 when the peer went away or the server stops.
  std::size_t readHead(int socket, std::string& buffer);
  /// Reads until `buffer` holds `size` bytes; false as for readHead.
  bool readUpTo(int socket, std::string& buffer, std::size_t size);
  bool readSome(int socket, std::string& into);
  void pause(std::chrono::milliseconds delay);

  int _listener = -1;
  int _port = 0;
  std::atomic<bool> _stopping{false};
  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  Fault _fault;
  int _status = 200;
  std::chrono::milliseconds _delay{0};
  bool _listening = false;
  std::size_t _requests = 0;
  std::vector<std::string> _answered;
  std::vector<int> _sockets;
  std::thread _acceptor;
  std::vector<std::thread> _connections;
};

}  // namespace tav::test
