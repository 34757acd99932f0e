#include "FaultServer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace tav::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kSlice = 50ms;          // how often blocked reads look at the stop flag
constexpr auto kLongestSilence = 30s;  // a peer silent this long is dropped
constexpr auto kLongestStall = 120s;   // a held request is dropped after this at the latest
constexpr std::size_t kMaxConnections = 256;
constexpr std::size_t kMaxHead = std::size_t{64} * 1024;

std::size_t contentLength(const std::string& head) {
  std::string lower(head.size(), '\0');
  std::transform(head.begin(), head.end(), lower.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const auto at = lower.find("\r\ncontent-length:");
  if (at == std::string::npos) return 0;
  return static_cast<std::size_t>(std::strtoull(lower.c_str() + at + 17, nullptr, 10));
}

void sendAll(int socket, const std::string& bytes) {
  std::size_t sent = 0;
  while (sent < bytes.size()) {
    const auto n = ::send(socket, bytes.data() + sent, bytes.size() - sent, MSG_NOSIGNAL);
    if (n <= 0) return;
    sent += static_cast<std::size_t>(n);
  }
}

/// Makes the coming close() send RST instead of FIN.
void resetOnClose(int socket) {
  linger option{};
  option.l_onoff = 1;
  option.l_linger = 0;
  ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &option, sizeof option);
}

}  // namespace

FaultServer::FaultServer(Fault fault) : _fault(fault) {
  _listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (_listener < 0) throw std::runtime_error("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  auto* generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  if (::bind(_listener, generic, length) != 0 || ::getsockname(_listener, generic, &length) != 0) {
    ::close(_listener);
    throw std::runtime_error("bind");
  }
  _port = ntohs(address.sin_port);
  setFault(fault);
  _acceptor = std::thread([this] { acceptLoop(); });
}

FaultServer::~FaultServer() {
  stop();
}

void FaultServer::setFault(Fault fault, int status, std::chrono::milliseconds delay) {
  const std::lock_guard lock(_mutex);
  _fault = fault;
  _status = status;
  _delay = delay;
  if (fault != Fault::kRefuse && !_listening) {
    if (::listen(_listener, 64) != 0) throw std::runtime_error("listen");
    _listening = true;
  }
  _changed.notify_all();
}

void FaultServer::stop() {
  {
    const std::lock_guard lock(_mutex);
    if (_stopping.exchange(true)) return;
    for (const int socket : _sockets)
      ::shutdown(socket, SHUT_RDWR);
    _changed.notify_all();
  }
  if (_acceptor.joinable()) _acceptor.join();
  // No new connection threads once the acceptor is gone.
  for (auto& thread : _connections)
    thread.join();
  ::close(_listener);
}

std::size_t FaultServer::connectionCount() const {
  const std::lock_guard lock(_mutex);
  return _connections.size();
}

bool FaultServer::waitForConnections(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, deadline, [&] { return _connections.size() >= count; });
}

std::size_t FaultServer::requestCount() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

std::vector<std::string> FaultServer::answeredBodies() const {
  const std::lock_guard lock(_mutex);
  return _answered;
}

bool FaultServer::waitForRequests(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, deadline, [&] { return _requests >= count; });
}

void FaultServer::acceptLoop() {
  while (!_stopping.load()) {
    {
      std::unique_lock lock(_mutex);
      if (!_listening) {
        _changed.wait_for(lock, kSlice);
        continue;
      }
    }
    pollfd entry{_listener, POLLIN, 0};
    if (::poll(&entry, 1, static_cast<int>(kSlice.count())) <= 0) continue;
    const int socket = ::accept4(_listener, nullptr, nullptr, SOCK_CLOEXEC);
    if (socket < 0) continue;
    const std::lock_guard lock(_mutex);
    if (_stopping.load() || _connections.size() >= kMaxConnections) {
      ::close(socket);
      continue;
    }
    _sockets.push_back(socket);
    _connections.emplace_back([this, socket] { serve(socket); });
    _changed.notify_all();
  }
}

bool FaultServer::readSome(int socket, std::string& into) {
  const auto giveUp = std::chrono::steady_clock::now() + kLongestSilence;
  while (!_stopping.load() && std::chrono::steady_clock::now() < giveUp) {
    pollfd entry{socket, POLLIN, 0};
    const int ready = ::poll(&entry, 1, static_cast<int>(kSlice.count()));
    if (ready < 0) return false;
    if (ready == 0) continue;
    char buffer[16384];
    const auto n = ::recv(socket, buffer, sizeof buffer, 0);
    if (n <= 0) return false;
    into.append(buffer, static_cast<std::size_t>(n));
    return true;
  }
  return false;
}

std::size_t FaultServer::readHead(int socket, std::string& buffer) {
  std::size_t end = 0;
  while ((end = buffer.find("\r\n\r\n")) == std::string::npos) {
    if (buffer.size() > kMaxHead || !readSome(socket, buffer)) return 0;
  }
  return end + 4;
}

bool FaultServer::readUpTo(int socket, std::string& buffer, std::size_t size) {
  while (buffer.size() < size) {
    if (!readSome(socket, buffer)) return false;
  }
  return true;
}

void FaultServer::pause(std::chrono::milliseconds delay) {
  std::unique_lock lock(_mutex);
  _changed.wait_for(lock, delay, [this] { return _stopping.load(); });
}

void FaultServer::serve(int socket) {
  std::string buffer;  // what was read and not used yet
  for (;;) {
    const std::size_t headSize = readHead(socket, buffer);
    if (headSize == 0) break;
    // A request is treated as the server is told when its header has arrived.
    Fault fault;
    int status = 0;
    std::chrono::milliseconds delay{};
    {
      const std::lock_guard lock(_mutex);
      fault = _fault;
      status = _status;
      delay = _delay;
    }
    const std::size_t length = contentLength(buffer.substr(0, headSize));
    const std::size_t wanted = fault == Fault::kResetMidRequest ? length / 2 : length;
    if (!readUpTo(socket, buffer, headSize + wanted)) break;
    std::string body = buffer.substr(headSize, wanted);
    buffer.erase(0, headSize + wanted);
    {
      const std::lock_guard lock(_mutex);
      ++_requests;
      _changed.notify_all();
    }
    bool keepOpen = false;
    switch (fault) {
      case Fault::kRefuse:
      case Fault::kAnswer: {
        pause(delay);
        if (_stopping.load()) break;
        {
          // Recorded first: whoever sees the answer also sees the body here.
          const std::lock_guard lock(_mutex);
          _answered.push_back(std::move(body));
        }
        sendAll(socket, "HTTP/1.1 " + std::to_string(status) +
                            " Fault\r\nContent-Type: application/json\r\nContent-Length: "
                            "2\r\n\r\n{}");
        keepOpen = true;
        break;
      }
      case Fault::kCloseAtOnce:
        break;
      case Fault::kResetMidRequest:
        resetOnClose(socket);
        break;
      case Fault::kResetMidResponse:
        sendAll(socket, "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n{\"partial\":");
        resetOnClose(socket);
        break;
      case Fault::kStall:
        pause(kLongestStall);
        break;
      case Fault::kGarbage:
        sendAll(socket, std::string("\x16\x03\x01\x00\xff garbage \x00\x01\x02\r\n\r\n", 21));
        break;
    }
    if (!keepOpen) break;
  }
  const std::lock_guard lock(_mutex);
  _sockets.erase(std::remove(_sockets.begin(), _sockets.end(), socket), _sockets.end());
  ::close(socket);
}

}  // namespace tav::test
