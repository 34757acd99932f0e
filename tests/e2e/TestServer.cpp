#include "TestServer.h"

#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>

namespace tav::test {
namespace {

constexpr auto kStartDeadline = std::chrono::seconds(30);
constexpr auto kLongestStall = std::chrono::seconds(120);

std::string lowerCase(std::string text) {
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return text;
}

}  // namespace

std::string ReceivedRequest::header(const std::string& name) const {
  const auto it = headers.find(lowerCase(name));
  return it == headers.end() ? "" : it->second;
}

bool ReceivedRequest::hasHeader(const std::string& name) const {
  return headers.count(lowerCase(name)) > 0;
}

TestServer::TestServer() : _server(std::make_unique<httplib::Server>()) {
  start();
}

TestServer::TestServer(const std::string& certFile, const std::string& keyFile)
    : _server(std::make_unique<httplib::SSLServer>(certFile.c_str(), keyFile.c_str())) {
  if (!_server->is_valid()) throw std::runtime_error("test certificate not usable");
  start();
}

void TestServer::start() {
  _server->set_keep_alive_timeout(3);
  const auto handler = [this](const httplib::Request& request, httplib::Response& response) {
    ReceivedRequest received{request.method, request.path, {}, request.body, request.remote_port};
    for (const auto& [name, value] : request.headers) {
      received.headers.emplace(lowerCase(name), value);
    }
    std::unique_lock lock(_mutex);
    _requests.push_back(std::move(received));
    _changed.notify_all();
    _changed.wait_for(lock, kLongestStall, [this] { return !_stalled; });
    response.status = _status;
    response.set_content("{}", "application/json");
  };
  _server->Post(".*", handler);
  _server->Get(".*", handler);
  _port = _server->bind_to_any_port("127.0.0.1");
  if (_port <= 0) throw std::runtime_error("test server cannot bind");
  _thread = std::thread([this] { _server->listen_after_bind(); });
  // stop() only takes effect once the accept loop runs.
  const auto deadline = std::chrono::steady_clock::now() + kStartDeadline;
  while (!_server->is_running() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  if (!_server->is_running()) throw std::runtime_error("test server did not start");
}

TestServer::~TestServer() {
  release();
  _server->stop();
  _thread.join();
}

void TestServer::setStatus(int status) {
  const std::lock_guard lock(_mutex);
  _status = status;
}

void TestServer::stall() {
  const std::lock_guard lock(_mutex);
  _stalled = true;
}

void TestServer::release() {
  const std::lock_guard lock(_mutex);
  _stalled = false;
  _changed.notify_all();
}

bool TestServer::waitForRequests(std::size_t count, std::chrono::milliseconds deadline) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, deadline, [&] { return _requests.size() >= count; });
}

std::vector<ReceivedRequest> TestServer::requests() const {
  const std::lock_guard lock(_mutex);
  return _requests;
}

RefusingPort::RefusingPort() : _socket(::socket(AF_INET, SOCK_STREAM, 0)) {
  if (_socket < 0) throw std::runtime_error("socket");
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = 0;
  sockaddr* generic = reinterpret_cast<sockaddr*>(&address);
  socklen_t length = sizeof address;
  if (::bind(_socket, generic, length) != 0 || ::getsockname(_socket, generic, &length) != 0) {
    ::close(_socket);
    throw std::runtime_error("bind");
  }
  _port = ntohs(address.sin_port);
}

RefusingPort::~RefusingPort() {
  ::close(_socket);
}

}  // namespace tav::test
