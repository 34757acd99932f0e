#include "Workloads.h"

#include <httplib.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <ctime>
#include <deque>
#include <filesystem>
#include <fstream>
#include <mutex>
#include <set>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

#include "Collector.h"
#include "HeapCounter.h"
#include "Scenario.h"
#include "core/CoreState.h"
#include "tav/TavCore.h"
#include "transport/TransportOverrides.h"

namespace tav::bench {
namespace {

using Json = nlohmann::json;
constexpr const char* kPlayer = "bench-player";
constexpr std::int64_t kStartMs = 1'700'000'000'000;

std::string textMember(const Json& object, const char* key) {
  const auto it = object.find(key);
  return it != object.end() && it->is_string() ? it->get_ref<const std::string&>() : std::string();
}

std::shared_ptr<TAVSDKPlayerData> playerData(std::int64_t playhead, bool paused) {
  auto data = std::make_shared<TAVSDKPlayerData>();
  data->setPlayerPlayheadTime(playhead);
  data->setPlayerIsPaused(paused);
  data->setPlayerWidth(1280);
  data->setPlayerHeight(720);
  data->setPlayerSoftwareName(std::string("bench-player-software"));
  data->setPlayerSoftwareVersion(std::string("1.0"));
  data->setPlayerTavPluginName(std::string("bench-integration"));
  data->setPlayerTavPluginVersion(std::string("1.0"));
  return data;
}

// Runs delay-0 timers and request completions when drained (never inside the
// call that armed them); keeps timers with a delay (the retries) until dropped.
class ManualPorts : public TAVSDKHttpClient, public TAVSDKTimerScheduler {
 public:
  explicit ManualPorts(bool failRequests) : _fail(failRequests) {}
  void send(TAVSDKHttpRequest request, Completion completion) override {
    _posted += request.body.size();
    TAVSDKHttpResult result;
    if (_fail) {
      result.error = "unreachable";
    } else {
      result.status = 200;
    }
    _due.emplace_back(
        [completion = std::move(completion), result = std::move(result)] { completion(result); });
  }
  void schedule(std::chrono::milliseconds delay, Callback callback) override {
    if (delay.count() <= 0) {
      _due.push_back(std::move(callback));
    } else {
      _held.push_back(std::move(callback));
    }
  }
  void drain() {
    while (!_due.empty()) {
      auto next = std::move(_due.front());
      _due.pop_front();
      next();
    }
  }
  void dropHeld() { _held.clear(); }
  [[nodiscard]] std::size_t held() const { return _held.size(); }

 private:
  bool _fail;
  std::size_t _posted = 0;
  std::deque<Callback> _due;
  std::vector<Callback> _held;
};

// Drops every timer: batches are built by the queue and never serialised.
class DroppingPorts : public TAVSDKHttpClient, public TAVSDKTimerScheduler {
 public:
  void send(TAVSDKHttpRequest, Completion) override {}
  void schedule(std::chrono::milliseconds, Callback) override {}
};

// A queue that marks every key of a beacon as required, so that de-duplication
// removes nothing; otherwise the player's own queue.
class SendEveryKeyQueue : public TAVSDKEventQueue {
 public:
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& event) override {
    if (auto trackable = std::dynamic_pointer_cast<TAVSDKTrackableEvent>(event)) {
      const Json query = trackable->getQuery();
      TAVSDKKeySet keys;
      for (auto it = query.begin(); it != query.end(); ++it)
        keys.insert(it.key());
      trackable->setRequiredProperties(std::move(keys));
    }
    TAVSDKEventQueue::handle(event);
  }
};

// The in-process collector behind a loopback HTTP server that also counts the
// TCP connections it accepts (distinct client ports).
class CountingCollector {
 public:
  CountingCollector() {
    // Kept-alive connections hold a server thread each; a burst of batches may
    // open several at once.
    _server.new_task_queue = [] { return new httplib::ThreadPool(64); };
    _server.set_keep_alive_timeout(300);
    _server.set_keep_alive_max_count(100000);
    _server.Post("/", [this](const httplib::Request& request, httplib::Response& response) {
      const auto result = _collector.ingestBatch(request.body, {request.remote_addr, 0});
      {
        const std::lock_guard lock(_mutex);
        _ports.insert(request.remote_port);
        _bytes += request.body.size();
        ++_batches;
      }
      response.status = result.status;
      response.set_content("{}", "application/json");
    });
    _port = _server.bind_to_any_port("127.0.0.1");
    _thread = std::thread([this] { _server.listen_after_bind(); });
    for (int i = 0; i < 500 && !_server.is_running(); ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  ~CountingCollector() {
    _server.stop();
    _thread.join();
  }
  CountingCollector(const CountingCollector&) = delete;
  CountingCollector& operator=(const CountingCollector&) = delete;
  [[nodiscard]] int port() const { return _port; }
  void read(HourResult& out) const {
    const std::lock_guard lock(_mutex);
    out.postedBytes = _bytes;
    out.batches = _batches;
    out.connections = _ports.size();
  }
  [[nodiscard]] std::size_t batches() const {
    const std::lock_guard lock(_mutex);
    return _batches;
  }

 private:
  collector::Collector _collector;
  httplib::Server _server;
  std::thread _thread;
  int _port = 0;
  mutable std::mutex _mutex;
  std::set<int> _ports;
  std::size_t _bytes = 0;
  std::size_t _batches = 0;
};

// A loopback port that completes TCP handshakes (up to its backlog) and then
// never reads or answers.
class BlackHole {
 public:
  BlackHole() : _fd(::socket(AF_INET, SOCK_STREAM, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    if (_fd < 0 || ::bind(_fd, reinterpret_cast<sockaddr*>(&address), length) != 0 ||
        ::listen(_fd, 1) != 0 ||
        ::getsockname(_fd, reinterpret_cast<sockaddr*>(&address), &length) != 0) {
      throw std::runtime_error("black hole: cannot listen on loopback");
    }
    _port = ntohs(address.sin_port);
  }
  ~BlackHole() { ::close(_fd); }
  BlackHole(const BlackHole&) = delete;
  BlackHole& operator=(const BlackHole&) = delete;
  [[nodiscard]] int port() const { return _port; }

 private:
  int _fd;
  int _port = 0;
};

double threadCpuSeconds() {
  timespec ts{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
}

// CPU time of the transport worker thread (found by its name), or 0.
double workerCpuSeconds() {
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream comm(entry.path() / "comm");
    std::string name;
    std::getline(comm, name);
    if (name != "tav-transport") continue;
    const auto tid = static_cast<clockid_t>(std::stol(entry.path().filename().string()));
    const clockid_t clock = (~tid << 3) | 6;  // the thread's CPU clock (CPUCLOCK_SCHED)
    timespec ts{};
    if (clock_gettime(clock, &ts) != 0) return 0;
    return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) * 1e-9;
  }
  return 0;
}

// A facade call with its event decoded ahead, so that only the library is timed.
struct PreparedCall {
  std::int64_t t = 0;
  Json call;
  std::string name;
  std::string player;
  TAVSDKEventPtr event;
};

std::vector<PreparedCall> hourCalls(int minutes) {
  const auto scenario = simulate::loadScenario(TAV_BENCH_SOURCE_DIR "/hour-view.json");
  simulate::ExpandOptions expand;
  expand.runId = "bench";
  std::vector<PreparedCall> out;
  const auto calls = simulate::expandScenario(scenario, expand);
  const std::int64_t first = calls.front()["t"].get<std::int64_t>();
  for (const auto& call : calls) {
    PreparedCall prepared;
    prepared.t = call["t"].get<std::int64_t>();
    if (minutes > 0 && prepared.t - first > std::int64_t{minutes} * 60'000) break;
    prepared.name = textMember(call, "call");
    prepared.player = textMember(call, "player");
    if (call.contains("event")) prepared.event = TAVSDKEventLog::decodeEvent(call["event"]);
    prepared.call = call;
    out.push_back(std::move(prepared));
  }
  return out;
}

// Not inlined: the instruction counts collect inside it (scripts/bench.sh).
[[gnu::noinline]] void makeCall(const PreparedCall& call) {
  if (call.name == "dispatchEventForPlayer") {
    TAVSDKCore::dispatchEventForPlayer(call.event, call.player);
  } else if (call.name == "dispatchGlobalDataEvent") {
    TAVSDKCore::dispatchGlobalDataEvent(std::dynamic_pointer_cast<TAVSDKDataEvent>(call.event));
  } else {
    (void)TAVSDKEventLog::replayCall(call.call);
  }
}

}  // namespace

PlayerRig::PlayerRig() : _clock(std::make_shared<TAVSDKVirtualClock>(kStartMs)) {
  detail::resetCoreStateForTesting();
  TAVSDKClock::setFactory([c = _clock] { return c; });
  auto ports = std::make_shared<DroppingPorts>();
  detail::TransportOverrides overrides;
  overrides.httpClient = ports;
  overrides.timerScheduler = ports;
  detail::setTransportOverrides(std::move(overrides));
  TAVSDKLog::setHandler([](std::string_view) {});

  // Load, start and two seconds of playback, as a player integration makes them.
  Json video = {
      {"id", "bench-1"},
      {"title", "Benchmark"},
      {"durationMs", 1'000'000'000},
      {"renditions", Json::array({{{"width", 1280}, {"height", 720}, {"bitrate", 2500000}}})},
      {"timeline", Json::array({{{"action", "load"}, {"ms", 300}},
                                {{"action", "start"}, {"startupMs", 900}},
                                {{"action", "play"}, {"ms", 2000}}})}};
  const Json document = {{"name", "bench"},
                         {"players", Json::array({{{"name", kPlayer}, {"videos", {video}}}})}};
  simulate::ExpandOptions expand;
  expand.runId = "bench";
  for (const auto& call :
       simulate::expandScenario(simulate::parseScenario(document, "bench"), expand)) {
    if (textMember(call, "call") == "destroyPlayer") continue;
    _t = call["t"].get<std::int64_t>();
    _clock->set(kStartMs + _t);
    (void)TAVSDKEventLog::replayCall(call);
  }
  _playhead = 2000;
}

PlayerRig::~PlayerRig() {
  detail::resetCoreStateForTesting();
  detail::setTransportOverrides({});
  TAVSDKClock::setFactory(nullptr);
  TAVSDKLog::setHandler(nullptr);
}

void PlayerRig::prepare(Kind kind, std::size_t count) {
  _events.clear();
  _times.clear();
  _events.reserve(count);
  _times.reserve(count);
  for (std::size_t i = 0; i < count; ++i) {
    TAVSDKEventPtr event;
    switch (kind) {
      case Kind::kTimeupdate: {
        _t += 1;
        _playhead += 1;
        auto e = std::make_shared<TAVSDKTimeUpdateEvent>();
        e->setPlayerData(playerData(_playhead, false));
        event = e;
        break;
      }
      case Kind::kPausePlay: {
        _t += 250;
        _paused = !_paused;
        if (_paused) {
          auto e = std::make_shared<TAVSDKPauseEvent>();
          e->setPlayerData(playerData(_playhead, true));
          event = e;
        } else {
          auto e = std::make_shared<TAVSDKPlayEvent>();
          e->setPlayerData(playerData(_playhead, false));
          event = e;
        }
        break;
      }
      case Kind::kRequestCompleted: {
        _t += 250;
        ++_segment;
        auto data = std::make_shared<TAVSDKBandwidthMetricData>();
        const std::int64_t start = kStartMs + _t - 200;
        data->setRequestStart(start);
        data->setRequestResponseStart(start + 40);
        data->setRequestResponseEnd(start + 180);
        data->setRequestBytesLoaded(1'250'000);
        data->setRequestType(std::string("media"));
        data->setRequestUrl("https://media.example.test/v/720p/" + std::to_string(_segment) +
                            ".ts");
        data->setRequestHostName(std::string("media.example.test"));
        data->setRequestMediaStartTime(_segment * 4000);
        data->setRequestMediaDuration(4000);
        data->setRequestCurrentLevel(0);
        data->setRequestVideoWidth(1280);
        data->setRequestVideoHeight(720);
        data->setRequestLabeledBitrate(2500000);
        auto e = std::make_shared<TAVSDKRequestBandwidthEvent>(
            TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
        e->setPlayerData(playerData(_playhead, false));
        e->setBandwidthMetricData(data);
        event = e;
        break;
      }
    }
    _events.push_back(std::move(event));
    _times.push_back(kStartMs + _t);
  }
}

void PlayerRig::dispatchPrepared() {
  for (std::size_t i = 0; i < _events.size(); ++i) {
    _clock->set(_times[i]);
    TAVSDKCore::dispatchEventForPlayer(_events[i], kPlayer);
  }
}

std::size_t PlayerRig::pendingBeacons() const {
  const auto& players = detail::coreState().players;
  const auto it = players.find(kPlayer);
  return it == players.end() ? 0 : it->second->eventQueue()->pendingCount();
}

void PlayerRig::holdBeacons() {
  const auto& players = detail::coreState().players;
  const auto it = players.find(kPlayer);
  if (it != players.end()) it->second->eventQueue()->setDispatcher(nullptr);
}

HourResult runHour(const HourOptions& options) {
  HourResult result;
  const auto calls = hourCalls(options.minutes);
  auto clock = std::make_shared<TAVSDKVirtualClock>(kStartMs);
  detail::resetCoreStateForTesting();
  TAVSDKClock::setFactory([clock] { return clock; });
  TAVSDKLog::setHandler([](std::string_view) {});

  std::unique_ptr<CountingCollector> collector;
  std::unique_ptr<BlackHole> blackHole;
  std::shared_ptr<ManualPorts> manual;
  detail::TransportOverrides overrides;
  switch (options.transport) {
    case HourTransport::kCollector:
      collector = std::make_unique<CountingCollector>();
      overrides.localPort = collector->port();
      break;
    case HourTransport::kBlackHole:
      blackHole = std::make_unique<BlackHole>();
      overrides.localPort = blackHole->port();
      break;
    case HourTransport::kOfflineHeld:
      manual = std::make_shared<ManualPorts>(true);
      overrides.httpClient = manual;
      overrides.timerScheduler = manual;
      break;
  }
  detail::setTransportOverrides(overrides);
  if (options.sendEveryKey) {
    const auto named = std::find_if(calls.begin(), calls.end(),
                                    [](const PreparedCall& c) { return !c.player.empty(); });
    const auto player = TAVSDKCore::createPlayer(named == calls.end() ? kPlayer : named->player);
    if (player) player->setEventQueue(std::make_shared<SendEveryKeyQueue>());
  }

  const double workerBefore = workerCpuSeconds();
  const std::int64_t first = calls.front().t;
  std::int64_t previous = first;
  const auto realStart = std::chrono::steady_clock::now();
  for (const auto& call : calls) {
    if (options.speed > 0 && call.t > previous) {
      const auto due =
          realStart + std::chrono::microseconds(static_cast<std::int64_t>(
                          static_cast<double>(call.t - first) * 1000.0 / options.speed));
      std::this_thread::sleep_until(due);
    }
    previous = std::max(previous, call.t);
    clock->set(kStartMs + (previous - first));
    rusage before{};
    getrusage(RUSAGE_THREAD, &before);
    const double cpu0 = threadCpuSeconds();
    const auto wall0 = std::chrono::steady_clock::now();
    makeCall(call);
    const auto wall1 = std::chrono::steady_clock::now();
    result.callerCpuSeconds += threadCpuSeconds() - cpu0;
    rusage after{};
    getrusage(RUSAGE_THREAD, &after);
    const bool preempted = after.ru_nivcsw != before.ru_nivcsw;
    result.preemptedCalls += preempted ? 1 : 0;
    result.blockedCalls += after.ru_nvcsw != before.ru_nvcsw ? 1 : 0;
    const auto took = std::chrono::duration_cast<std::chrono::nanoseconds>(wall1 - wall0).count();
    if (!preempted && took > result.longestCallNs) {
      result.longestCallNs = took;
      result.longestCall = call.name + " " + (call.event ? call.event->getType() : "") + " @ " +
                           std::to_string(call.t - first);
    }
    if (manual) manual->drain();
    ++result.calls;
  }
  result.virtualMs = previous - first;

  if (collector) {
    // Wait until the worker has delivered everything (no new batch for 300 ms).
    std::size_t seen = collector->batches();
    for (int quiet = 0, rounds = 0; quiet < 6 && rounds < 400; ++rounds) {
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      const std::size_t now = collector->batches();
      quiet = now == seen ? quiet + 1 : 0;
      seen = now;
    }
    result.workerCpuSeconds = workerCpuSeconds() - workerBefore;
    collector->read(result);
  }
  if (manual) {
    const std::int64_t before = heapSnapshot().liveBytes;
    result.batches = manual->held();
    manual->dropHeld();
    result.retryHeldBytes = before - heapSnapshot().liveBytes;
  }
  (void)TAVSDKCore::shutdown(
      std::chrono::milliseconds(options.transport == HourTransport::kBlackHole ? 100 : 5000));
  detail::resetCoreStateForTesting();
  detail::setTransportOverrides({});
  TAVSDKClock::setFactory(nullptr);
  TAVSDKLog::setHandler(nullptr);
  return result;
}

}  // namespace tav::bench
