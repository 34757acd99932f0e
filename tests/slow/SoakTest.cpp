// A long session: 200 players over eight hours of virtual time, each hour two
// views a player with seeks, stalls, a long pause, rendition changes and ads,
// posted by the real transport over loopback HTTP to the collector. The
// collector runs in a child process, so this process's heap holds only the
// library (and the test): it must stay flat once warmed up, and every beacon the
// players made must be stored by the collector.

#include <gtest/gtest.h>
#include <httplib.h>
#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <fstream>
#include <random>

#include "CollectorServer.h"
#include "Scenario.h"
#include "core/CoreState.h"
#include "tav/TavCore.h"
#include "tav/transport/TAVSDKEventQueue.h"
#include "tav/transport/TAVSDKTransport.h"
#include "transport/TransportOverrides.h"

#if defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer)
#define TAV_SANITIZER_HEAP 1
#endif
#endif
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define TAV_SANITIZER_HEAP 1
#endif
#ifdef TAV_SANITIZER_HEAP
// From the sanitizer runtime (GCC does not ship <sanitizer/allocator_interface.h>).
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();
#endif

namespace tav::simulate {
namespace {

using namespace std::chrono_literals;

constexpr int kPlayers = 200;
constexpr int kHours = 8;
constexpr int kWarmUpHours = 1;
constexpr std::int64_t kHourMs = 3'600'000;
constexpr std::int64_t kSampleEveryMs = 300'000;
constexpr auto kWait = 60s;

/// Bytes of heap in use by this process.
std::size_t heapInUse() {
#ifdef TAV_SANITIZER_HEAP
  return __sanitizer_get_current_allocated_bytes();
#else
  const struct mallinfo2 info = mallinfo2();
  return info.uordblks + info.hblkhd;
#endif
}

/// Peak resident set size in KiB.
long peakRssKiB() {
  std::ifstream status("/proc/self/status");
  std::string line;
  while (std::getline(status, line)) {
    if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
  }
  return 0;
}

/// The collector and its HTTP server in a child process. The child stops when
/// this process closes its end of the pipe (or exits), and after an hour at most.
class ForkedCollector {
 public:
  ForkedCollector() {
    int ready[2];
    int stop[2];
    if (::pipe2(ready, O_CLOEXEC) != 0 || ::pipe2(stop, O_CLOEXEC) != 0) return;
    _pid = ::fork();
    if (_pid == 0) {
      ::close(ready[0]);
      ::close(stop[1]);
      ::alarm(3600);
      collector::Collector collector;
      collector::CollectorServer::Options options;
      options.port = 0;
      collector::CollectorServer server(collector, options);
      const int port = server.start() ? server.port() : -1;
      (void)!::write(ready[1], &port, sizeof port);
      char byte = 0;
      (void)!::read(stop[0], &byte, 1);
      server.stop();
      ::_exit(0);
    }
    ::close(ready[1]);
    ::close(stop[0]);
    _stop = stop[1];
    if (_pid < 0 || ::read(ready[0], &_port, sizeof _port) != sizeof _port) _port = -1;
    ::close(ready[0]);
  }
  ~ForkedCollector() {
    if (_stop >= 0) ::close(_stop);
    if (_pid <= 0) return;
    for (int i = 0; i < 300 && ::waitpid(_pid, nullptr, WNOHANG) == 0; ++i)
      std::this_thread::sleep_for(100ms);
    if (::kill(_pid, SIGKILL) == 0) ::waitpid(_pid, nullptr, 0);
  }
  ForkedCollector(const ForkedCollector&) = delete;
  ForkedCollector& operator=(const ForkedCollector&) = delete;
  [[nodiscard]] int port() const { return _port; }

 private:
  pid_t _pid = -1;
  int _port = -1;
  int _stop = -1;
};

/// Forwards to the real client and counts the beacons of each attempt by outcome.
class BeaconCounter : public TAVSDKHttpClient {
 public:
  explicit BeaconCounter(std::shared_ptr<TAVSDKHttpClient> inner) : _inner(std::move(inner)) {}
  void send(TAVSDKHttpRequest request, Completion completion) override {
    const auto body = Json::parse(request.body, nullptr, false);
    const std::size_t beacons = body.is_object() ? body.value("events", Json::array()).size() : 0;
    ++_attempts;
    _inner->send(std::move(request),
                 [this, beacons, completion = std::move(completion)](TAVSDKHttpResult result) {
                   (result.error ? _failed : _answered) += beacons;
                   if (result.error) _lastError = *result.error;
                   if (completion) completion(std::move(result));
                 });
  }
  std::atomic<std::size_t> _attempts{0};
  std::atomic<std::size_t> _answered{0};  // beacons in batches that got a response
  std::atomic<std::size_t> _failed{0};    // beacons in attempts that failed
  std::string _lastError;                 // read after the transport has stopped

 private:
  std::shared_ptr<TAVSDKHttpClient> _inner;
};

/// One hour of one player: two views, starting within the first five minutes.
Json playerHour(int player, int hour) {
  std::mt19937 random(static_cast<unsigned>(player * 7919 + hour));
  const auto between = [&](std::int64_t low, std::int64_t high) {
    return std::uniform_int_distribution<std::int64_t>(low, high)(random);
  };
  const auto video = [&](int index, Json timeline) {
    const std::string id = "soak-" + std::to_string(player % 37) + "-" + std::to_string(index);
    return Json{{"id", id},
                {"title", "Soak " + id},
                {"durationMs", 3'000'000},
                {"renditions",
                 {{{"width", 640}, {"height", 360}, {"bitrate", 800'000}},
                  {{"width", 1280}, {"height", 720}, {"bitrate", 2'500'000}},
                  {{"width", 1920}, {"height", 1080}, {"bitrate", 5'000'000}}}},
                {"startRendition", 1},
                {"timeline", std::move(timeline)}};
  };
  Json start = {{"action", "start"}, {"startupMs", between(400, 2500)}};
  if (between(0, 1) == 0) start["preroll"] = {{"ads", 1}, {"adMs", 8000}};
  Json first = Json::array({
      {{"action", "load"}, {"ms", 300}},
      start,
      {{"action", "play"}, {"ms", between(15'000, 25'000)}},
      {{"action", "seek"}, {"toMs", between(0, 2'000'000)}, {"latencyMs", between(300, 1500)}},
      {{"action", "play"}, {"ms", 10'000}},
      {{"action", "stall"}, {"ms", between(1000, 5000)}},
      {{"action", "rendition"}, {"index", between(0, 2)}},
      {{"action", "play"}, {"ms", 10'000}},
      {{"action", "pause"}, {"ms", between(60'000, 900'000)}},
      {{"action", "play"}, {"ms", 10'000}},
  });
  if (between(0, 2) == 0) {
    first.push_back({{"action", "midroll"}, {"ads", 1}, {"adMs", 8000}, {"resumeMs", 300}});
  }
  first.push_back({{"action", "play"}, {"ms", 5000}});
  first.push_back({{"action", "end"}});
  first.push_back({{"action", "wait"}, {"ms", between(30'000, 600'000)}});
  Json second = Json::array({
      {{"action", "load"}, {"ms", 300}},
      {{"action", "start"}, {"startupMs", between(400, 2500)}},
      {{"action", "play"}, {"ms", between(10'000, 20'000)}},
      {{"action", "seek"}, {"toMs", between(0, 2'000'000)}, {"latencyMs", between(300, 1500)}},
      {{"action", "play"}, {"ms", 10'000}},
      {{"action", "end"}},
  });
  return {{"name", "soak-" + std::to_string(player)},
          {"startAtMs", between(0, 300'000)},
          {"videos", {video(2 * hour, first), video(2 * hour + 1, second)}}};
}

/// The facade calls of one hour of every player, in time order ("t" from the
/// hour's start). Players live on between hours; the last hour destroys them.
std::vector<Json> hourCalls(int hour, bool last) {
  Json document = {{"name", "soak"}, {"players", Json::array()}};
  for (int p = 0; p < kPlayers; ++p)
    document["players"].push_back(playerHour(p, hour));
  ExpandOptions options;
  options.runId = "soak";
  std::vector<Json> calls = expandScenario(parseScenario(document, "soak"), options);
  if (!last) {
    calls.erase(std::remove_if(calls.begin(), calls.end(),
                               [](const Json& c) { return c["call"] == "destroyPlayer"; }),
                calls.end());
  }
  return calls;
}

TEST(SoakTest, TwoHundredPlayersForHoursKeepMemoryFlatAndLoseNoBeacon) {
  const auto realStart = std::chrono::steady_clock::now();
  const ForkedCollector collector;
  ASSERT_GT(collector.port(), 0) << "the collector did not start";
  detail::resetCoreStateForTesting();
  auto counter = std::make_shared<BeaconCounter>(TAVSDKTransport::httpClient());
  {
    detail::TransportOverrides overrides;
    overrides.localPort = collector.port();
    overrides.httpClient = counter;
    detail::setTransportOverrides(overrides);
  }
  auto clock = std::make_shared<TAVSDKVirtualClock>(1'700'000'000'000);
  TAVSDKClock::setFactory([c = clock] { return c; });

  // Heap in use by the library (and the test's counters), without the hour's
  // list of calls: at the end of each hour, and the peak of samples every few
  // virtual minutes.
  std::vector<std::size_t> hourEnds;
  std::size_t peakHeap = 0;
  std::size_t calls = 0;
  std::size_t refused = 0;
  std::size_t rateLimited = 0;
  for (int hour = 0; hour < kHours; ++hour) {
    const bool last = hour + 1 == kHours;
    const std::int64_t hourStart = clock->now();
    std::int64_t nextSample = kSampleEveryMs;
    const std::size_t withoutList = heapInUse();
    std::vector<Json> list = hourCalls(hour, last);
    const std::size_t listBytes = heapInUse() - withoutList;
    for (const auto& call : list) {
      const std::int64_t t = call["t"].get<std::int64_t>();
      ASSERT_LT(t, kHourMs) << "a player's hour is too long";
      if (t >= nextSample) {
        peakHeap = std::max(peakHeap, heapInUse() - listBytes);
        nextSample += kSampleEveryMs;
      }
      clock->set(hourStart + t);
      ++calls;
      if (!TAVSDKEventLog::replayCall(call)) ++refused;
    }
    clock->set(hourStart + kHourMs);
    list = std::vector<Json>();
    for (int p = 0; p < kPlayers && !last; ++p) {
      const auto player = TAVSDKCore::playerNamed("soak-" + std::to_string(p));
      if (player && player->eventQueue() && player->eventQueue()->rateLimited()) ++rateLimited;
    }
    // Everything handed over is delivered before the hour's figure is taken;
    // the next hour starts a new transport worker.
    ASSERT_TRUE(TAVSDKTransport::shutdown(kWait)) << "hour " << hour;
    hourEnds.push_back(heapInUse());
    peakHeap = std::max(peakHeap, hourEnds.back());
    std::printf("soak: hour %d, %zu calls so far, %zu beacons delivered, heap %.1f MiB\n", hour + 1,
                calls, counter->_answered.load(), static_cast<double>(hourEnds.back()) / 1048576.0);
    std::fflush(stdout);
  }
  EXPECT_TRUE(TAVSDKCore::shutdown(kWait));
  detail::setTransportOverrides({});
  TAVSDKClock::setFactory(nullptr);
  EXPECT_EQ(refused, 0U);
  EXPECT_EQ(rateLimited, 0U) << "no queue reached its limit of pending beacons";

  // Flat after warm-up: the late hours hold no more than the early ones, give or
  // take allocator noise.
  const std::size_t early =
      *std::max_element(hourEnds.begin() + kWarmUpHours, hourEnds.begin() + kWarmUpHours + 2);
  const std::size_t late = *std::max_element(hourEnds.end() - 2, hourEnds.end());
  EXPECT_LE(late, early + early / 20 + std::size_t{256} * 1024)
      << "early " << early << " bytes, late " << late << " bytes";

  // Every beacon accounted for: each player's sequence complete and stored once,
  // and what the collector stored is what was sent.
  httplib::Client client("127.0.0.1", collector.port());
  client.set_read_timeout(120, 0);
  const auto response = client.Get("/report");
  ASSERT_TRUE(response && response->status == 200);
  const Json report = Json::parse(response->body);
  std::int64_t made = 0;
  ASSERT_EQ(report["players"].size(), static_cast<std::size_t>(kPlayers));
  for (const auto& player : report["players"]) {
    SCOPED_TRACE(player.dump());
    made += player["sequence"]["last"].get<std::int64_t>();
    EXPECT_TRUE(player["sequence"]["missing"].empty());
    EXPECT_EQ(player["sequence"]["duplicates"], 0);
  }
  const auto stored = report["totals"]["beacons"].get<std::size_t>();
  const std::size_t sent = counter->_answered.load() + counter->_failed.load();
  EXPECT_EQ(counter->_failed.load(), 0U) << counter->_lastError;
  EXPECT_EQ(sent, stored);
  EXPECT_EQ(static_cast<std::size_t>(made), stored);
  EXPECT_EQ(report["totals"]["rejectedBatches"], 0);
  EXPECT_EQ(report["views"].size(), static_cast<std::size_t>(kPlayers * kHours * 2));

  std::printf(
      "soak: %d players x %d h virtual (%zu views, %zu calls) in %.0f s\n"
      "soak: beacons made %lld, sent %zu in %zu requests, stored %zu, dropped 0\n"
      "soak: heap at hour ends %.1f MiB (hour %d) .. %.1f MiB (last), peak %.1f MiB; "
      "peak RSS %.1f MiB\n",
      kPlayers, kHours, report["views"].size(), calls,
      std::chrono::duration<double>(std::chrono::steady_clock::now() - realStart).count(),
      static_cast<long long>(made), sent, counter->_attempts.load(), stored,
      static_cast<double>(early) / 1048576.0, kWarmUpHours + 1,
      static_cast<double>(late) / 1048576.0, static_cast<double>(peakHeap) / 1048576.0,
      static_cast<double>(peakRssKiB()) / 1024.0);
}

}  // namespace
}  // namespace tav::simulate
