// The event queue on a dispatcher with a recording HTTP client and a manual
// scheduler: what leaves the queue, in which batches and when, as the batches
// that reach the HTTP client show it.

#include <atomic>
#include <set>
#include <thread>

#include "TransportFixture.h"
#include "support/ScopedTransportOverrides.h"
#include "tav/data/TAVSDKBandwidthMetricData.h"
#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/transport/TAVSDKEventQueue.h"

namespace tav::test {
namespace {

using Json = nlohmann::json;

// A beacon of the view "V1" as the client handler would hand it over.
const Json kViewBeacon = {
    {"ake", "abc123"},
    {"xsqno", "4"},
    {"psqno", "9"},
    {"pphti", "1200"},
    {"pinid", "P1"},
    {"uti", "5000"},
    {"tapve", "2.1"},
    {"vid", "video-1"},
    {"vtt", "Title"},
    {"pnm", "player"},
    {"xwati", "800"},
    {"xmauppe", 0.5},
    {"xdvor", {{"x", 0.0}, {"y", 1.0}, {"z", 0.0}}},
};

std::set<std::string> keysOf(const Json& object) {
  std::set<std::string> keys;
  for (const auto& [key, value] : object.items())
    keys.insert(key);
  return keys;
}

std::set<std::string> withKeys(std::set<std::string> keys,
                               std::initializer_list<const char*> more) {
  keys.insert(more.begin(), more.end());
  return keys;
}

class TransportEventQueue : public TransportFixture {
 protected:
  void SetUp() override {
    TransportFixture::SetUp();
    queue = std::make_shared<TAVSDKEventQueue>();
    queue->setDispatcher(dispatcher);
  }

  /// A trackable event of `type` whose query holds `fields`, with the view record
  /// of `viewId` (none when empty).
  static std::shared_ptr<TAVSDKTrackableEvent> beacon(const std::string& type, const Json& fields,
                                                      const std::string& viewId = "V1",
                                                      TAVSDKKeySet required = {}) {
    auto event = std::make_shared<TAVSDKTrackableEvent>(type, std::move(required));
    if (!viewId.empty()) {
      auto view = std::make_shared<TAVSDKViewData>();
      view->setViewId(viewId);
      event->setViewData(view);
      event->updateAll();
    }
    event->query()->update(fields);
    return event;
  }

  /// Runs the armed attempts and answers the "events" of each new batch.
  std::vector<Json> sentBatches() {
    timers->runDue();
    std::vector<Json> batches;
    for (; _seen < http->count(); ++_seen) {
      batches.push_back(http->body(_seen)["events"]);
      http->succeed(_seen);
    }
    return batches;
  }
  /// The one beacon that a flush sends.
  Json flushedBeacon() {
    queue->flush();
    const auto batches = sentBatches();
    EXPECT_EQ(batches.size(), 1U);
    if (batches.size() != 1 || batches[0].size() != 1) return Json::object();
    return batches[0][0];
  }
  /// Handles an event and answers the beacon that goes out for it.
  Json send(const std::shared_ptr<TAVSDKTrackableEvent>& event) {
    queue->handle(event);
    return flushedBeacon();
  }
  static std::vector<std::string> typesOf(const Json& events) {
    std::vector<std::string> types;
    for (const auto& e : events)
      types.push_back(e.value("e", ""));
    return types;
  }

  std::shared_ptr<TAVSDKEventQueue> queue;

 private:
  std::size_t _seen = 0;
};

TEST_F(TransportEventQueue, SecondBeaconOfAViewCarriesOnlyWhatMustOrDidChange) {
  const Json first = send(beacon("viewstart", kViewBeacon));
  EXPECT_EQ(keysOf(first), withKeys(keysOf(kViewBeacon), {"xid", "e"}));

  Json changed = kViewBeacon;
  changed["vtt"] = "Title 2";
  const Json second = send(beacon("play", changed, "V1", {"pnm", "xreco"}));
  // Always sent: the nine keys; required: pnm (unchanged) and xreco (null);
  // non-text: xmauppe, xdvor; changed text: vtt. Unchanged xwati goes.
  EXPECT_EQ(keysOf(second),
            (std::set<std::string>{"ake", "xid", "xsqno", "psqno", "pphti", "pinid", "uti", "tapve",
                                   "vid", "pnm", "xreco", "xmauppe", "xdvor", "vtt", "e"}));
  EXPECT_EQ(second["vtt"], "Title 2");
  EXPECT_EQ(second["pnm"], "player");
  EXPECT_TRUE(second["xreco"].is_null());
  EXPECT_EQ(second["xmauppe"], 0.5);
  EXPECT_EQ(second["e"], "play");

  // A key that a beacon lacks keeps its remembered value; a non-text value never
  // replaces the remembered text.
  Json third = kViewBeacon;
  third.erase("xwati");
  third["vtt"] = 42;
  const Json thirdSent = send(beacon("pause", third));
  EXPECT_FALSE(thirdSent.contains("xwati"));
  EXPECT_EQ(thirdSent["vtt"], 42);
  const Json fourth = send(beacon("play", changed));
  EXPECT_FALSE(fourth.contains("xwati")) << "still remembered from the first beacon";
  EXPECT_FALSE(fourth.contains("vtt")) << "the number did not replace \"Title 2\"";
}

TEST_F(TransportEventQueue, OnePassMergeSendsWhatMergeThenDeduplicateSends) {
  // The pipeline's path (handleRecords) against updateAll + handle, on two
  // queues fed the same records: keys shared between records (the later record
  // wins), a later record's null marker (removes the key), the query's own
  // null (stays), custom data merged in advance, required and always-sent keys.
  auto other = std::make_shared<TAVSDKEventQueue>();
  other->setDispatcher(dispatcher);
  struct Step {
    const char* type;
    Json view, player, bandwidth, custom;
    TAVSDKKeySet required;
  };
  const Step steps[] = {
      {"viewstart",
       kViewBeacon,
       {{"pnm", "player"}, {"pphti", "0"}, {"xwati", "1"}},
       {{"qbwth", "10"}},
       {{"c1", "a"}},
       {}},
      {"play",
       kViewBeacon,
       {{"pnm", "player"}, {"pphti", "250"}, {"xwati", "1"}},
       {{"qbwth", "10"}, {"vtt", nullptr}},
       {{"c1", "a"}},
       {"pnm", "xreco"}},
      {"pause",
       {{"vtt", "Title 2"}, {"xwati", "900"}},
       {{"pnm", "player 2"}, {"xwati", "1"}},
       {{"qbwth", "12"}},
       {{"c1", "b"}, {"c2", nullptr}},
       {}},
      {"play",
       kViewBeacon,
       {{"pnm", "player 2"}, {"vtt", "Title 2"}},
       {{"qbwth", "12"}},
       {{"c1", "b"}},
       {"vtt"}},
      {"viewend", kViewBeacon, {{"pnm", "player 2"}}, {}, {}, {}},
  };
  std::size_t shorter = 0;
  std::size_t previousSize = 0;
  for (const Step& step : steps) {
    auto view = std::make_shared<TAVSDKViewData>();
    view->setViewId("V1");
    view->update(step.view);
    auto player = std::make_shared<TAVSDKPlayerData>();
    player->updateIfNull(step.player);  // keeps null markers as markers
    auto bandwidth = std::make_shared<TAVSDKBandwidthMetricData>();
    bandwidth->updateIfNull(step.bandwidth);
    auto custom = std::make_shared<TAVSDKCustomData>();
    custom->update(step.custom);
    const auto make = [&] {
      auto event = std::make_shared<TAVSDKTrackableEvent>(step.type, step.required);
      event->setViewData(view);
      event->setPlayerData(player);
      event->setBandwidthMetricData(bandwidth);
      event->setCustomData(custom);
      event->query()->updateIfNull(Json{{"qnull", nullptr}});
      return event;
    };
    auto merged = make();
    merged->updateAll();
    const Json expected = send(merged);
    auto onePass = make();
    other->handleRecords(onePass);
    other->flush();
    const auto batches = sentBatches();
    ASSERT_EQ(batches.size(), 1U) << step.type;
    ASSERT_EQ(batches[0].size(), 1U) << step.type;
    EXPECT_EQ(batches[0][0], expected) << step.type;
    EXPECT_EQ(onePass->query()->toQuery(), merged->query()->toQuery()) << step.type;
    if (previousSize != 0 && expected.size() < previousSize) ++shorter;
    previousSize = expected.size();
  }
  EXPECT_GE(shorter, 2U) << "de-duplication took effect";

  // A derived queue that overrides handle is handed the merged event.
  struct Peeking : TAVSDKEventQueue {
    void handle(const std::shared_ptr<TAVSDKBaseEvent>& event) override {
      seen = std::static_pointer_cast<TAVSDKTrackableEvent>(event)->query()->toQuery();
      TAVSDKEventQueue::handle(event);
    }
    Json seen;
  };
  auto peeking = std::make_shared<Peeking>();
  peeking->setDispatcher(nullptr);
  auto view = std::make_shared<TAVSDKViewData>();
  view->setViewId("V2");
  view->update(kViewBeacon);
  auto event = std::make_shared<TAVSDKTrackableEvent>("play");
  event->setViewData(view);
  peeking->handleRecords(event);
  EXPECT_EQ(peeking->seen, view->toQuery());
  EXPECT_EQ(peeking->pendingCount(), 1U);

  // Without a view id nothing is de-duplicated; the records are merged all the same.
  auto plain = std::make_shared<TAVSDKEventQueue>();
  plain->setDispatcher(nullptr);
  auto anonymous = std::make_shared<TAVSDKViewData>();
  anonymous->update(kViewBeacon);
  auto unnamed = std::make_shared<TAVSDKTrackableEvent>("play");
  unnamed->setViewData(anonymous);
  plain->handleRecords(unnamed);
  EXPECT_EQ(unnamed->query()->toQuery(), anonymous->toQuery());
  EXPECT_EQ(plain->pendingCount(), 1U);
}

TEST_F(TransportEventQueue, MemoryRestartsOnViewStartViewEndAndTenMinutesOfSilence) {
  const auto full = withKeys(keysOf(kViewBeacon), {"xid", "e"});
  const auto reduced = std::set<std::string>{"ake", "xid",   "xsqno", "psqno",   "pphti", "pinid",
                                             "uti", "tapve", "vid",   "xmauppe", "xdvor", "e"};
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), full) << "first beacon of a queue";
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), reduced);
  EXPECT_EQ(keysOf(send(beacon("viewstart", kViewBeacon))), full);
  EXPECT_EQ(keysOf(send(beacon("pause", kViewBeacon))), reduced);
  EXPECT_EQ(keysOf(send(beacon("viewend", kViewBeacon))), full);
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), full) << "viewend forgot the view";
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), reduced);
  clock->advance(599999);
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), reduced);
  clock->advance(600000);
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), full);

  // A beacon without a view id is neither reduced nor remembered.
  Json other = kViewBeacon;
  other["vtt"] = "Other";
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon, ""))), withKeys(keysOf(kViewBeacon), {"e"}));
  EXPECT_EQ(send(beacon("play", other, ""))["vtt"], "Other");
  EXPECT_EQ(keysOf(send(beacon("play", kViewBeacon))), reduced);
}

TEST_F(TransportEventQueue, SendsArePacedByArrivingEventsAndFlushTypesSendAtOnce) {
  queue->handle(beacon("play", {{"e", "records' own"}}, ""));
  auto batches = sentBatches();
  ASSERT_EQ(batches.size(), 1U) << "the first event goes at once";
  EXPECT_EQ(typesOf(batches[0]), std::vector<std::string>{"play"});

  clock->advance(1000);
  queue->handle(beacon("timeupdate", {}, ""));
  clock->advance(4000);  // 5000 ms since the last send
  queue->handle(beacon("hb", {}, ""));
  EXPECT_TRUE(sentBatches().empty());
  EXPECT_EQ(queue->pendingCount(), 2U);

  clock->advance(1);  // 5001 ms
  queue->handle(beacon("playing", {}, ""));
  batches = sentBatches();
  ASSERT_EQ(batches.size(), 1U);
  EXPECT_EQ(typesOf(batches[0]), (std::vector<std::string>{"timeupdate", "hb", "playing"}));

  // Flush types go at once and do not move the pacing.
  for (const std::string type : {"error", "ended", "viewstart", "viewend"}) {
    clock->advance(1);
    queue->handle(beacon("timeupdate", {}, ""));
    queue->handle(beacon(type, {}, ""));
    batches = sentBatches();
    ASSERT_EQ(batches.size(), 1U) << type;
    EXPECT_EQ(typesOf(batches[0]), (std::vector<std::string>{"timeupdate", type}));
  }
  clock->advance(5001 - 4);
  queue->handle(beacon("hb", {}, ""));
  EXPECT_EQ(sentBatches().size(), 1U) << "5001 ms after the last time-driven send";
}

TEST_F(TransportEventQueue, TimeDrivenBatchTakesTheOldest300AndFlushTakesAll) {
  queue->handle(beacon("play", {}, ""));
  ASSERT_EQ(sentBatches().size(), 1U);
  const auto numbered = [&](int n, const std::string& type = "timeupdate") {
    queue->handle(beacon(type, {{"n", std::to_string(n)}}, ""));
  };
  for (int n = 1; n <= 300; ++n)
    numbered(n);
  EXPECT_TRUE(sentBatches().empty());
  clock->advance(5001);
  numbered(301);
  auto batches = sentBatches();
  ASSERT_EQ(batches.size(), 1U);
  ASSERT_EQ(batches[0].size(), 300U);
  for (int n = 1; n <= 300; ++n) {
    EXPECT_EQ(batches[0][static_cast<std::size_t>(n - 1)]["n"], std::to_string(n));
  }
  EXPECT_EQ(queue->pendingCount(), 1U);

  for (int n = 302; n <= 700; ++n)
    numbered(n);
  numbered(701, "ended");
  batches = sentBatches();
  ASSERT_EQ(batches.size(), 1U);
  ASSERT_EQ(batches[0].size(), 401U);
  EXPECT_EQ(batches[0][0]["n"], "301");
  EXPECT_EQ(batches[0][400]["e"], "ended");
  EXPECT_EQ(queue->pendingCount(), 0U);
}

TEST_F(TransportEventQueue, OverflowSendsTheTrippingEventTwiceAsRateExceededThenDropsEverything) {
  queue->handle(beacon("play", {}, ""));
  ASSERT_EQ(sentBatches().size(), 1U);
  for (int n = 1; n <= 3600; ++n)
    queue->handle(beacon("hb", {{"n", std::to_string(n)}}, ""));
  EXPECT_TRUE(sentBatches().empty());
  EXPECT_FALSE(queue->rateLimited());

  queue->handle(beacon("hb", {{"n", "3601"}}, ""));
  EXPECT_TRUE(queue->rateLimited());
  auto batches = sentBatches();
  ASSERT_EQ(batches.size(), 1U);
  const Json& events = batches[0];
  ASSERT_EQ(events.size(), 3602U);
  EXPECT_EQ(events[0]["n"], "1");
  EXPECT_EQ(events[3599]["e"], "hb");
  for (const std::size_t i : {std::size_t{3600}, std::size_t{3601}}) {
    EXPECT_EQ(events[i]["e"], "eventrateexceeded");
    EXPECT_EQ(events[i]["n"], "3601");
  }

  clock->advance(3'600'000);
  queue->handle(beacon("viewstart", {}, "V2"));
  queue->handle(beacon("hb", {}, ""));
  queue->flush();
  EXPECT_TRUE(sentBatches().empty()) << "rate-limited for good";
  EXPECT_EQ(queue->pendingCount(), 0U);
}

TEST_F(TransportEventQueue, QueueEventRefusesBeyondTheLimitWhenNothingIsSent) {
  queue->setDispatcher(nullptr);  // sends leave everything pending
  for (int n = 1; n <= 3600; ++n) {
    ASSERT_TRUE(queue->queueEvent(beacon("hb", {}, ""))) << n;
  }
  EXPECT_FALSE(queue->queueEvent(beacon("hb", {}, ""))) << "3601 pending after the append";
  EXPECT_EQ(queue->pendingCount(), 3601U);
  EXPECT_FALSE(queue->queueEvent(beacon("hb", {}, ""))) << "more than 3600 before the append";
  EXPECT_EQ(queue->pendingCount(), 3601U);

  queue->setDispatcher(dispatcher);
  queue->flush();
  const auto batches = sentBatches();
  ASSERT_EQ(batches.size(), 1U);
  EXPECT_EQ(batches[0].size(), 3601U);
}

TEST_F(TransportEventQueue, KeyOsFamilyAndDomainsChooseTheHostOfEachBatch) {
  const auto hostOfNextBatch = [&] {
    timers->runDue();
    const std::size_t last = http->count() - 1;
    const std::string url = http->request(last).url;
    sentBatches();
    return url;
  };
  queue->handle(beacon("viewstart", {{"pnm", "player"}}, ""));
  EXPECT_EQ(hostOfNextBatch(), "https://" + std::string(build::kNoKeyHost));
  EXPECT_EQ(queue->viewerOsFamily(), "ios");

  // The key and the OS family carried by a batch apply to that very batch.
  queue->handle(beacon("error", {{"ake", "key9"}, {"uosfm", "LiNuX"}}, ""));
  EXPECT_EQ(hostOfNextBatch(), "https://" + defaultHost("key9"));
  EXPECT_EQ(queue->projectKey(), "key9");
  EXPECT_EQ(queue->viewerOsFamily(), "linux");

  queue->setBeaconDomain(".example.test");
  queue->handle(beacon("ended", {}, ""));
  EXPECT_EQ(hostOfNextBatch(), "https://key9.example.test") << "the learnt key stays";

  queue->setBeaconCollectionDomain("collector.example.test");
  queue->handle(beacon("ended", {{"ake", "NOT VALID"}}, ""));
  EXPECT_EQ(hostOfNextBatch(), "https://collector.example.test");

  queue->handle(beacon("ended", {{"ake", "local"}}, ""));
  EXPECT_EQ(hostOfNextBatch(), "http://localhost:" + std::to_string(build::kLocalPort));
}

TEST_F(TransportEventQueue, NewQueuesTakeTheTestPortsWhenInstalled) {
  std::shared_ptr<TAVSDKEventQueue> fresh;
  {
    const ScopedTransportOverrides overrides([&](auto& o) {
      o.httpClient = http;
      o.timerScheduler = timers;
    });
    fresh = std::make_shared<TAVSDKEventQueue>();
  }
  EXPECT_EQ(fresh->dispatcher()->httpClient(), http);
  EXPECT_EQ(fresh->dispatcher()->timerScheduler(), timers);
  EXPECT_NE(std::make_shared<TAVSDKEventQueue>()->dispatcher()->httpClient(), http);
  fresh->handle(beacon("viewstart", {}, ""));
  EXPECT_EQ(sentBatches().size(), 1U);
}

// The dispatcher completes requests on another thread (as the transport worker
// does) while events keep arriving: nothing is lost, nothing races.
TEST_F(TransportEventQueue, ConcurrentCompletionsWhileEventsArrive) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60);
  std::atomic<bool> stop{false};
  std::thread completer([&] {
    std::set<std::string> failedOnce;  // the first attempt of every other batch fails
    std::size_t next = 0;
    while (!stop.load() && std::chrono::steady_clock::now() < deadline) {
      if (next == http->count()) {
        std::this_thread::yield();
        continue;
      }
      const std::string first = http->body(next)["events"][0]["n"].get<std::string>();
      if (std::stoi(first) % 2 == 0 && failedOnce.insert(first).second) {
        http->fail(next);
      } else {
        http->succeed(next);
      }
      ++next;
    }
  });
  constexpr int kEvents = 600;
  for (int n = 0; n < kEvents; ++n) {
    clock->advance(700);
    queue->handle(beacon(n % 50 == 49 ? "error" : "hb", {{"n", std::to_string(n)}}, "V1"));
    (void)dispatcher->roundTripLastSucceeded();
    timers->advance(std::chrono::hours(24));  // retries included
  }
  queue->flush();
  while ((http->openCount() > 0 || timers->pendingCount() > 0) &&
         std::chrono::steady_clock::now() < deadline) {
    timers->advance(std::chrono::hours(24));
    std::this_thread::yield();
  }
  stop.store(true);
  completer.join();
  ASSERT_EQ(http->openCount(), 0U);
  ASSERT_EQ(timers->pendingCount(), 0U);

  std::set<std::string> delivered;
  for (std::size_t i = 0; i < http->count(); ++i) {
    const Json body = http->body(i);
    for (const auto& event : body["events"])
      delivered.insert(event["n"].get<std::string>());
  }
  EXPECT_EQ(delivered.size(), static_cast<std::size_t>(kEvents));
  EXPECT_TRUE(queue->lastBeaconCompleted());
}

}  // namespace
}  // namespace tav::test
