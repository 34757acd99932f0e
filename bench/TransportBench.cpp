// Cost of a 300-beacon batch: building it in the queue, serialising it in the
// dispatcher, and both together. Reports beacons/s (items) and body bytes/s.

#include <benchmark/benchmark.h>
#include <chrono>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/HttpUserInfo.h"
#include "tav/transport/TAVSDKDispatcher.h"
#include "tav/transport/TAVSDKEventQueue.h"

namespace {

using Json = nlohmann::json;
constexpr int kBatch = 300;

// Runs every timer at once, inside `schedule`.
class InlineScheduler : public tav::TAVSDKTimerScheduler {
 public:
  void schedule(std::chrono::milliseconds, Callback callback) override { callback(); }
};

// Drops timers: the batch is built but never serialised.
class DroppingScheduler : public tav::TAVSDKTimerScheduler {
 public:
  void schedule(std::chrono::milliseconds, Callback) override {}
};

// Completes every request at once with a response and counts body bytes.
class NullHttpClient : public tav::TAVSDKHttpClient {
 public:
  void send(tav::TAVSDKHttpRequest request, Completion completion) override {
    bytes += request.body.size();
    tav::TAVSDKHttpResult result;
    result.status = 200;
    completion(std::move(result));
  }
  std::size_t bytes = 0;
};

// A full beacon of a playing view: about 80 short keys, mostly decimal text.
Json sampleBeacon(int n) {
  Json b = Json::object();
  b["ake"] = "abc123";
  b["xid"] = "6F1A2B3C-4D5E-4F60-8A7B-9C0D1E2F3A4B";
  b["pinid"] = "0A1B2C3D-4E5F-4061-8273-94A5B6C7D8E9";
  b["ivwseid"] = "1B2C3D4E-5F60-4172-8384-A5B6C7D8E9F0";
  b["xsqno"] = std::to_string(n + 1);
  b["psqno"] = std::to_string(n + 101);
  b["pphti"] = std::to_string(n * 250);
  b["uti"] = std::to_string(1'700'000'000'000 + n * 250);
  b["tapve"] = "2.1";
  b["vid"] = "video-4711";
  b["vtt"] = "A Reasonably Long Video Title For Benchmarking";
  b["vsour"] = "https://media.example.test/streams/4711/master.m3u8";
  b["uosfm"] = "linux";
  b["uosve"] = "6.1.0";
  b["pnm"] = "main-player";
  b["pswnm"] = "reference-player";
  b["pswve"] = "17.2";
  b["pwd"] = "1920";
  b["pht"] = "1080";
  b["xdvor"] = {{"x", 0.0}, {"y", 0.0}, {"z", 90.0}};
  for (int k = 0; k < 60; ++k) {
    b["xm" + std::to_string(k)] = std::to_string(k * 1337 + n);
  }
  return b;
}

std::vector<std::shared_ptr<tav::TAVSDKTrackableEvent>> sampleEvents() {
  std::vector<std::shared_ptr<tav::TAVSDKTrackableEvent>> events;
  for (int n = 0; n < kBatch; ++n) {
    auto event = std::make_shared<tav::TAVSDKTrackableEvent>(n + 1 == kBatch ? "ended" : "hb");
    event->setQuery(sampleBeacon(n));
    events.push_back(std::move(event));
  }
  return events;
}

// Queue side: 300 handled beacons turned into one batch (de-duplication,
// pacing, "e", learning key and OS family); the batch is not serialised.
void BM_QueueBuildsBatch300(benchmark::State& state) {
  auto queue = std::make_shared<tav::TAVSDKEventQueue>();
  queue->setCurrentTime(std::make_shared<tav::TAVSDKVirtualClock>(1'700'000'000'000));
  queue->setDispatcher(std::make_shared<tav::TAVSDKDispatcher>(
      std::make_shared<NullHttpClient>(), std::make_shared<DroppingScheduler>()));
  const auto events = sampleEvents();
  queue->handle(events.front());  // the first event of a queue goes alone
  for (auto _ : state) {
    for (const auto& event : events)
      queue->handle(event);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
}
BENCHMARK(BM_QueueBuildsBatch300);

// Dispatcher side: one attempt's request (metadata, pretty-printed JSON).
void BM_DispatcherSerialisesBatch300(benchmark::State& state) {
  auto dispatcher = std::make_shared<tav::TAVSDKDispatcher>(std::make_shared<NullHttpClient>(),
                                                            std::make_shared<DroppingScheduler>());
  Json batch = {{"events", Json::array()}};
  for (int n = 0; n < kBatch; ++n)
    batch["events"].push_back(sampleBeacon(n));
  std::size_t bytes = 0;
  for (auto _ : state) {
    auto request = dispatcher->buildRequestFromURLEventsJsonDictError("https://h", batch, nullptr);
    bytes += request->body.size();
    benchmark::DoNotOptimize(request);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_DispatcherSerialisesBatch300);

Json sampleBatch() {
  Json batch = {{"events", Json::array()}};
  for (int n = 0; n < kBatch; ++n)
    batch["events"].push_back(sampleBeacon(n));
  return batch;
}

// A dispatcher whose attempts end at once, and a 300-beacon batch for it.
struct AttemptRig {
  std::shared_ptr<NullHttpClient> http = std::make_shared<NullHttpClient>();
  std::shared_ptr<tav::TAVSDKDispatcher> dispatcher =
      std::make_shared<tav::TAVSDKDispatcher>(http, std::make_shared<DroppingScheduler>());
  std::shared_ptr<tav::HttpUserInfo> info = [] {
    auto batch = std::make_shared<tav::HttpUserInfo>();
    batch->url = "https://h";
    batch->eventsJsonDict = sampleBatch();
    return batch;
  }();
};

// A batch's first attempt on the transport worker: the body of a 300-beacon
// batch (checked, pretty-printed, metadata added) handed to the HTTP client.
void BM_AttemptSerialisesBatch300(benchmark::State& state) {
  AttemptRig rig;
  for (auto _ : state)
    rig.dispatcher->executeHttp(rig.info);
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(static_cast<std::int64_t>(rig.http->bytes));
}
BENCHMARK(BM_AttemptSerialisesBatch300);

// A retry of the same batch: the kept text with fresh metadata.
void BM_RetrySerialisesBatch300(benchmark::State& state) {
  AttemptRig rig;
  tav::TAVSDKDispatcher::keepAsText(*rig.info);  // what a failed attempt does
  for (auto _ : state)
    rig.dispatcher->executeHttp(rig.info);
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(static_cast<std::int64_t>(rig.http->bytes));
}
BENCHMARK(BM_RetrySerialisesBatch300);

// The reference: nlohmann's own pretty-printed dump of the same document.
void BM_NlohmannDumpBatch300(benchmark::State& state) {
  Json batch = sampleBatch();
  batch["metadata"] = {{"transmission_timestamp", 1'700'000'000'000}};
  std::size_t bytes = 0;
  for (auto _ : state) {
    const std::string body = batch.dump(2);
    bytes += body.size();
    benchmark::DoNotOptimize(body.data());
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(static_cast<std::int64_t>(bytes));
}
BENCHMARK(BM_NlohmannDumpBatch300);

// The budget's ratio: a first attempt and a plain dump of the very same tree,
// taken turn about in one loop so that a shared machine's changing speed and
// the caches weigh on both alike. Counter "ratio": attempt time / dump time.
void BM_SerialiseRatioBatch300(benchmark::State& state) {
  AttemptRig rig;
  using Clock = std::chrono::steady_clock;
  Clock::duration attempts{};
  Clock::duration dumps{};
  bool attemptFirst = true;
  for (auto _ : state) {
    // Each goes first every other time.
    const auto attempt = [&] {
      const auto t0 = Clock::now();
      rig.dispatcher->executeHttp(rig.info);
      attempts += Clock::now() - t0;
    };
    const auto dump = [&] {
      const auto t0 = Clock::now();
      const std::string body = rig.info->eventsJsonDict.dump(2);
      benchmark::DoNotOptimize(body.data());
      dumps += Clock::now() - t0;
    };
    if (attemptFirst) {
      attempt();
      dump();
    } else {
      dump();
      attempt();
    }
    attemptFirst = !attemptFirst;
  }
  state.counters["ratio"] =
      static_cast<double>(attempts.count()) / static_cast<double>(dumps.count());
}
BENCHMARK(BM_SerialiseRatioBatch300)->Repetitions(3);

// The floor: copying the finished body.
void BM_MemcpyBatch300(benchmark::State& state) {
  Json batch = sampleBatch();
  batch["metadata"] = {{"transmission_timestamp", 1'700'000'000'000}};
  const std::string body = batch.dump(2);
  std::string copy(body.size(), '\0');
  for (auto _ : state) {
    std::memcpy(copy.data(), body.data(), body.size());
    benchmark::ClobberMemory();
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(body.size()));
}
BENCHMARK(BM_MemcpyBatch300);

// Both: 300 beacons in, one serialised request out.
void BM_QueueToRequestBatch300(benchmark::State& state) {
  auto queue = std::make_shared<tav::TAVSDKEventQueue>();
  queue->setCurrentTime(std::make_shared<tav::TAVSDKVirtualClock>(1'700'000'000'000));
  auto http = std::make_shared<NullHttpClient>();
  queue->setDispatcher(
      std::make_shared<tav::TAVSDKDispatcher>(http, std::make_shared<InlineScheduler>()));
  const auto events = sampleEvents();
  queue->handle(events.front());
  const std::size_t before = http->bytes;
  for (auto _ : state) {
    for (const auto& event : events)
      queue->handle(event);
  }
  state.SetItemsProcessed(state.iterations() * kBatch);
  state.SetBytesProcessed(static_cast<std::int64_t>(http->bytes - before));
}
BENCHMARK(BM_QueueToRequestBatch300);

}  // namespace
