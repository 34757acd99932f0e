#include "transport/CurlWorker.h"

#include <curl/curl.h>
#include <pthread.h>
#include <signal.h>

#include <algorithm>
#include <array>
#include <exception>
#include <mutex>
#include <string>
#include <system_error>

#include "tav/platform/TAVSDKLog.h"
#include "transport/TransportOverrides.h"

namespace tav::detail {
namespace {

constexpr const char* kThreadName = "tav-transport";
constexpr std::size_t kMaxResponseBody = 1U << 20U;  // the rest of a response is discarded
constexpr int kMaxPollMs = 10000;
// Connections open to one host at a time; further requests wait for one of them.
// A burst of batches (many players flushing at once) would otherwise open a
// connection each, more than a server may serve at once.
constexpr long kMaxHostConnections = 6;
constexpr auto kMaxTimerDelay = std::chrono::hours(24 * 365);

bool curlGlobalInit() {
  static std::once_flag once;
  static bool ok = false;
  std::call_once(once, [] {
    const CURLcode code = curl_global_init(CURL_GLOBAL_DEFAULT);
    ok = code == CURLE_OK;
    if (!ok) {
      TAVSDKLog::error(std::string("TAVSDK-ERROR - libcurl initialisation failed: ") +
                       curl_easy_strerror(code));
    }
  });
  return ok;
}

void nameThisThread() {
#if defined(__APPLE__)
  pthread_setname_np(kThreadName);
#elif defined(__linux__)
  pthread_setname_np(pthread_self(), kThreadName);
#endif
}

template <class F, class... Args>
void invokeGuarded(F& f, Args&&... args) noexcept {
  try {
    f(std::forward<Args>(args)...);
  } catch (const std::exception& e) {
    TAVSDKLog::error(std::string("TAVSDK-ERROR - transport callback failed: ") + e.what());
  } catch (...) {
    TAVSDKLog::error("TAVSDK-ERROR - transport callback failed.");
  }
}

TAVSDKHttpResult errorResult(std::string message) {
  TAVSDKHttpResult result;
  result.error = std::move(message);
  return result;
}

std::size_t appendBody(char* data, std::size_t size, std::size_t count, void* user) {
  auto* body = static_cast<std::string*>(user);
  const std::size_t bytes = size * count;
  if (body->size() < kMaxResponseBody) {
    body->append(data, std::min(bytes, kMaxResponseBody - body->size()));
  }
  return bytes;
}

int checkAbort(void* user, curl_off_t /*dltotal*/, curl_off_t /*dlnow*/, curl_off_t /*ultotal*/,
               curl_off_t /*ulnow*/) {
  return static_cast<const std::atomic<bool>*>(user)->load() ? 1 : 0;
}

curl_slist* appendList(curl_slist* list, const std::string& item) {
  curl_slist* next = curl_slist_append(list, item.c_str());
  if (next == nullptr) throw std::bad_alloc();
  return next;
}

}  // namespace

struct CurlWorker::Transfer {
  Transfer() = default;
  Transfer(const Transfer&) = delete;
  Transfer& operator=(const Transfer&) = delete;
  ~Transfer() {
    if (easy != nullptr) curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
    curl_slist_free_all(connectTo);
  }

  TAVSDKHttpRequest request;  // the body must outlive the transfer (CURLOPT_POSTFIELDS)
  Completion completion;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  curl_slist* connectTo = nullptr;
  std::string responseBody;
  std::array<char, CURL_ERROR_SIZE> errorBuffer{};
};

CurlWorker::~CurlWorker() {
  shutdown(std::chrono::milliseconds(0));
}

CurlWorker& CurlWorker::instance() {
  static auto* worker = new CurlWorker();  // intentionally never destroyed
  return *worker;
}

bool CurlWorker::onWorkerThread() const {
  return _workerId.load() == std::this_thread::get_id();
}

void CurlWorker::send(TAVSDKHttpRequest request, Completion completion) {
  std::unique_lock lock(_mutex);
  if (!startLocked()) {
    lock.unlock();
    if (completion) invokeGuarded(completion, errorResult("transport not available"));
    return;
  }
  _incoming.emplace_back(std::move(request), std::move(completion));
  wakeLocked();
}

void CurlWorker::schedule(std::chrono::milliseconds delay, Callback callback) {
  std::unique_lock lock(_mutex);
  if (!startLocked()) {
    lock.unlock();
    callback = nullptr;  // dropped, and freed outside the lock
    return;
  }
  const auto clamped = std::clamp<std::chrono::milliseconds>(
      delay, std::chrono::milliseconds(0),
      std::chrono::duration_cast<std::chrono::milliseconds>(kMaxTimerDelay));
  _timers.emplace(Clock::now() + clamped, std::move(callback));
  wakeLocked();
}

bool CurlWorker::startLocked() {
  if (_phase == Phase::kStopping) return false;
  if (_phase != Phase::kStopped) return true;
  if (!curlGlobalInit()) return false;
  _multi = curl_multi_init();
  if (_multi == nullptr) return false;
  curl_multi_setopt(_multi, CURLMOPT_MAX_HOST_CONNECTIONS, kMaxHostConnections);
  // The worker starts with every signal blocked: it inherits this mask.
  sigset_t all;
  sigset_t previous;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &previous);
  try {
    _thread = std::thread([this] { run(); });
  } catch (const std::system_error& e) {
    pthread_sigmask(SIG_SETMASK, &previous, nullptr);
    TAVSDKLog::error(std::string("TAVSDK-ERROR - transport worker could not start: ") + e.what());
    curl_multi_cleanup(_multi);
    _multi = nullptr;
    return false;
  }
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
  _workerId.store(_thread.get_id());
  _phase = Phase::kRunning;
  return true;
}

void CurlWorker::wakeLocked() {
  if (_multi != nullptr) curl_multi_wakeup(_multi);
}

bool CurlWorker::idleLocked() const {
  return _incoming.empty() && _timers.empty() && _inFlight == 0 && !_busy;
}

bool CurlWorker::hasImmediateWorkLocked(Clock::time_point now) const {
  if (!_incoming.empty() || _phase == Phase::kStopping) return true;
  if (_timers.empty()) return false;
  return _phase == Phase::kDraining || _timers.begin()->first <= now;
}

int CurlWorker::pollTimeoutMsLocked(Clock::time_point now) const {
  if (_timers.empty()) return kMaxPollMs;
  const auto wait = std::chrono::ceil<std::chrono::milliseconds>(_timers.begin()->first - now);
  return static_cast<int>(std::clamp<std::int64_t>(wait.count(), 0, kMaxPollMs));
}

void CurlWorker::run() {
  nameThisThread();
  sigset_t all;
  sigfillset(&all);
  pthread_sigmask(SIG_BLOCK, &all, nullptr);

  std::unique_lock lock(_mutex);
  for (;;) {
    const bool stopping = _phase == Phase::kStopping;
    const bool draining = _phase == Phase::kDraining;
    auto incoming = std::exchange(_incoming, {});
    std::vector<Callback> due;
    std::multimap<Clock::time_point, Callback> dropped;
    if (stopping) {
      dropped = std::exchange(_timers, {});
    } else {
      const auto end = draining ? _timers.end() : _timers.upper_bound(Clock::now());
      for (auto it = _timers.begin(); it != end; it = _timers.erase(it)) {
        due.push_back(std::move(it->second));
      }
    }
    _busy = true;
    lock.unlock();

    for (auto& [request, completion] : incoming) {
      if (stopping) {
        if (completion) invokeGuarded(completion, errorResult("transport is shutting down"));
      } else {
        startTransfer(std::move(request), std::move(completion));
      }
    }
    incoming.clear();
    for (auto& callback : due) {
      if (callback) invokeGuarded(callback);
      callback = nullptr;
    }
    due.clear();
    dropped.clear();
    performTransfers();
    if (stopping) abortTransfers();

    lock.lock();
    _busy = false;
    _inFlight = _transfers.size();
    if (stopping) break;
    if (idleLocked()) _stateChanged.notify_all();
    const auto now = Clock::now();
    if (hasImmediateWorkLocked(now)) continue;
    const int timeoutMs = pollTimeoutMsLocked(now);
    lock.unlock();
    curl_multi_poll(_multi, nullptr, 0, timeoutMs, nullptr);
    lock.lock();
  }
  _stateChanged.notify_all();
}

void CurlWorker::startTransfer(TAVSDKHttpRequest request, Completion completion) {
  std::unique_ptr<Transfer> transfer;
  try {
    transfer = std::make_unique<Transfer>();
  } catch (const std::bad_alloc&) {
    if (completion) invokeGuarded(completion, errorResult("out of memory"));
    return;
  }
  transfer->request = std::move(request);
  transfer->completion = std::move(completion);
  try {
    const TransportOverrides overrides = transportOverrides();
    const TAVSDKHttpRequest& r = transfer->request;
    transfer->easy = curl_easy_init();
    if (transfer->easy == nullptr) throw std::bad_alloc();
    CURL* easy = transfer->easy;
    bool hasExpect = false;
    for (const auto& [name, value] : r.headers) {
      std::string line = name;
      line.append(": ").append(value);
      transfer->headers = appendList(transfer->headers, line);
      if (curl_strequal(name.c_str(), "Expect") != 0) hasExpect = true;
    }
    // No "Expect: 100-continue" round trip before the body.
    if (!hasExpect) transfer->headers = appendList(transfer->headers, "Expect:");
    for (const auto& entry : overrides.connectTo) {
      transfer->connectTo = appendList(transfer->connectTo, entry);
    }
    const long timeoutMs = static_cast<long>(std::max<std::int64_t>(r.timeout.count(), 1));

    curl_easy_setopt(easy, CURLOPT_URL, r.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT_MS, timeoutMs);
    curl_easy_setopt(easy, CURLOPT_TIMEOUT_MS, timeoutMs);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYPEER, 1L);
    curl_easy_setopt(easy, CURLOPT_SSL_VERIFYHOST, 2L);
    if (!overrides.caFile.empty()) curl_easy_setopt(easy, CURLOPT_CAINFO, overrides.caFile.c_str());
    if (transfer->connectTo != nullptr)
      curl_easy_setopt(easy, CURLOPT_CONNECT_TO, transfer->connectTo);
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer->headers);
    if (r.method == "POST") {
      curl_easy_setopt(easy, CURLOPT_POST, 1L);
    } else if (r.method == "GET") {
      curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    } else {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, r.method.c_str());
    }
    if (r.method != "GET") {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(r.body.size()));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, r.body.data());
    }
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &appendBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer->responseBody);
    curl_easy_setopt(easy, CURLOPT_NOPROGRESS, 0L);
    curl_easy_setopt(easy, CURLOPT_XFERINFOFUNCTION, &checkAbort);
    curl_easy_setopt(easy, CURLOPT_XFERINFODATA, &_abort);
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer->errorBuffer.data());

    const CURLMcode added = curl_multi_add_handle(_multi, easy);
    if (added != CURLM_OK) {
      auto done = std::move(transfer->completion);
      transfer.reset();
      if (done) invokeGuarded(done, errorResult(curl_multi_strerror(added)));
      return;
    }
  } catch (const std::exception& e) {
    auto done = std::move(transfer->completion);
    transfer.reset();
    if (done) invokeGuarded(done, errorResult(e.what()));
    return;
  }
  void* key = transfer->easy;
  _transfers.emplace(key, std::move(transfer));
}

void CurlWorker::performTransfers() {
  if (_transfers.empty()) return;
  int running = 0;
  curl_multi_perform(_multi, &running);
  std::vector<std::pair<CURL*, CURLcode>> finished;
  int left = 0;
  while (CURLMsg* message = curl_multi_info_read(_multi, &left)) {
    if (message->msg == CURLMSG_DONE)
      finished.emplace_back(message->easy_handle, message->data.result);
  }
  for (const auto& [easy, code] : finished) {
    const auto it = _transfers.find(easy);
    if (it == _transfers.end()) continue;
    TAVSDKHttpResult result;
    if (code == CURLE_OK) {
      long status = 0;
      curl_easy_getinfo(easy, CURLINFO_RESPONSE_CODE, &status);
      result.status = static_cast<int>(status);
      result.body = std::move(it->second->responseBody);
    } else {
      std::string message = curl_easy_strerror(code);
      const char* detail = it->second->errorBuffer.data();
      if (detail[0] != '\0') message += std::string(": ") + detail;
      result.error = std::move(message);
    }
    finishTransfer(easy, std::move(result));
  }
}

void CurlWorker::finishTransfer(void* easy, TAVSDKHttpResult result) {
  const auto it = _transfers.find(easy);
  if (it == _transfers.end()) return;
  std::unique_ptr<Transfer> transfer = std::move(it->second);
  _transfers.erase(it);
  curl_multi_remove_handle(_multi, easy);
  auto completion = std::move(transfer->completion);
  transfer.reset();
  if (completion) invokeGuarded(completion, std::move(result));
}

void CurlWorker::abortTransfers() {
  while (!_transfers.empty()) {
    finishTransfer(_transfers.begin()->first, errorResult("aborted by transport shutdown"));
  }
}

bool CurlWorker::shutdown(std::chrono::milliseconds deadline) {
  if (onWorkerThread()) return false;
  const std::lock_guard serial(_shutdownMutex);
  std::unique_lock lock(_mutex);
  if (_phase == Phase::kStopped) return true;
  _phase = Phase::kDraining;
  wakeLocked();
  const bool drained = _stateChanged.wait_for(
      lock, std::max(deadline, std::chrono::milliseconds(0)), [this] { return idleLocked(); });
  _phase = Phase::kStopping;
  _abort.store(true);
  wakeLocked();
  std::thread worker = std::move(_thread);
  lock.unlock();
  worker.join();
  lock.lock();
  curl_multi_cleanup(_multi);
  _multi = nullptr;
  _inFlight = 0;
  _abort.store(false);
  _workerId.store(std::thread::id());
  _phase = Phase::kStopped;
  return drained;
}

}  // namespace tav::detail
