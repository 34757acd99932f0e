// The dispatcher against a recording HTTP client and a manual scheduler: host
// selection, the request of an attempt, retries and their delays, round-trip
// metadata, dropped batches, a dispatcher that goes away, and the single send.

#include <cmath>
#include <cstdlib>
#include <limits>
#include <set>

#include "TransportFixture.h"
#include "support/CapturedLog.h"
#include "support/ScopedTransportOverrides.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKTrackableEvent.h"

namespace tav::test {
namespace {

using Json = nlohmann::json;
using Text = std::optional<std::string>;

Json oneBeaconBatch(const std::string& type = "viewstart") {
  return Json{{"events", Json::array({Json{{"e", type}, {"xid", "V1"}, {"pphti", "1200"}}})}};
}

std::set<std::string> keysOf(const Json& object) {
  std::set<std::string> keys;
  for (const auto& [key, value] : object.items())
    keys.insert(key);
  return keys;
}

class TransportDispatcher : public TransportFixture {};

TEST_F(TransportDispatcher, HostSelectionFollowsKeyAndDomains) {
  const std::string invalid = build::kInvalidKeyHost;
  const std::string noKey = build::kNoKeyHost;
  struct Case {
    Text key, collection, domain;
    std::string expected;
  };
  const std::vector<Case> cases = {
      {"abc123", {}, {}, defaultHost("abc123")},
      {"abc123", {}, ".example.test", "abc123.example.test"},
      {"abc123", {}, "example.test", "abc123.example.test"},
      {"abc123", {}, "..example.test", "abc123..example.test"},  // only one dot goes
      {"abc123", {}, "", defaultHost("abc123")},
      {"ABC", {}, {}, invalid},
      {"a-b", {}, "example.test", invalid},
      {"", {}, {}, invalid},
      {"abc123\n", {}, {}, invalid},
      {{}, {}, "example.test", noKey},
      {"ABC", "collector.example.test", "example.test", "collector.example.test"},
      {{}, "collector.example.test", {}, "collector.example.test"},
      {"abc123", "", "example.test", "abc123.example.test"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.key.value_or("<absent>") + " / " + c.collection.value_or("<absent>") + " / " +
                 c.domain.value_or("<absent>"));
    EXPECT_EQ(dispatcher->getHostForProjectKeyBeaconCollectionDomainBeaconDomain(
                  c.key, c.collection, c.domain),
              c.expected);
  }
  EXPECT_TRUE(dispatcher->shouldSendBeaconsToLocalServer("local"));
  EXPECT_FALSE(dispatcher->shouldSendBeaconsToLocalServer("Local"));
  EXPECT_FALSE(dispatcher->shouldSendBeaconsToLocalServer(std::nullopt));
}

TEST_F(TransportDispatcher, EveryBatchFormPostsToTheUrlOfItsKeyAndDomains) {
  dispatcher->handleBatchOsFamilyWithJsonWithCallback("abc123", "ios", oneBeaconBatch().dump(),
                                                      callback);
  dispatcher->handleBatchDomainOsFamilyWithJsonWithCallback("abc123", ".example.test", "ios",
                                                            oneBeaconBatch().dump(), callback);
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("abc123", "example.test", "ios",
                                                        oneBeaconBatch(), callback);
  dispatcher->handleBatchBeaconCollectionDomainOsFamilyJsonDictCallback(
      "abc123", "collector.example.test", "ios", oneBeaconBatch(), callback);
  // The collection domain wins over the beacon domain.
  dispatcher->handleBatchDomainBeaconCollectionDomainOsFamilyJsonDictCallback(
      "abc123", "example.test", "collector.example.test", "ios", oneBeaconBatch(), callback);
  dispatcher->handleBatchDomainBeaconCollectionDomainOsFamilyJsonDictCallback(
      "local", "example.test", "collector.example.test", "ios", oneBeaconBatch(), callback);
  {
    const ScopedTransportOverrides overrides([](auto& o) { o.localPort = 43210; });
    dispatcher->handleBatchDomainOsFamilyJsonDictCallback("local", {}, {}, oneBeaconBatch(),
                                                          callback);
  }
  EXPECT_EQ(http->count(), 0U) << "attempts run from the timer, not inside the call";
  EXPECT_EQ(timers->pendingDelays(), std::vector<Ms>(7, Ms(0)));
  EXPECT_EQ(timers->runDue(), 7U);

  const std::vector<std::string> expected = {
      "https://" + defaultHost("abc123"), "https://abc123.example.test",
      "https://abc123.example.test",      "https://collector.example.test",
      "https://collector.example.test",   "http://localhost:" + std::to_string(build::kLocalPort),
      "http://localhost:43210",
  };
  ASSERT_EQ(http->count(), expected.size());
  for (std::size_t i = 0; i < expected.size(); ++i)
    EXPECT_EQ(http->request(i).url, expected[i]);
}

TEST_F(TransportDispatcher, AttemptPostsPrettyPrintedBatchWithFreshMetadata) {
  Json batch = oneBeaconBatch();
  batch["metadata"] = {{"app", "kept"}, {"rtt_ms", 7}};
  // Members on both sides of "metadata", nested and non-ASCII values: the body is
  // written from text kept between attempts and must match a whole-tree dump.
  batch["after"] = {{"zz", {{"list", {1, 2.5, "\u00e9t\u00e9"}}, {"empty", Json::object()}}}};
  batch["zz"] = Json::array();
  batch["events"][0]["title"] = "caf\u00e9 \"quoted\"";
  dispatcher->handleBatchOsFamilyWithJsonWithCallback("abc123", "ios", batch.dump(), callback);
  clock->advance(1500);  // the timestamp is taken when the attempt runs
  ASSERT_EQ(timers->runDue(), 1U);
  ASSERT_EQ(http->count(), 1U);

  const TAVSDKHttpRequest request = http->request(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://" + defaultHost("abc123"));
  EXPECT_EQ(request.headers,
            (std::vector<std::pair<std::string, std::string>>{{"Content-Type", "application/json"},
                                                              {"Accept-Encoding", "gzip"}}));
  EXPECT_EQ(request.timeout, Seconds(60));
  EXPECT_NE(request.body.find("\n  \""), std::string::npos) << "pretty-printed: " << request.body;
  EXPECT_EQ(request.body, dispatcher->addMetadata(batch).dump(2));

  const Json body = Json::parse(request.body);
  EXPECT_EQ(keysOf(body), (std::set<std::string>{"after", "events", "metadata", "zz"}));
  EXPECT_EQ(body["events"], batch["events"]);
  EXPECT_EQ(body["metadata"]["app"], "kept");
  EXPECT_EQ(body["metadata"]["transmission_timestamp"], kStart + 1500);
  EXPECT_FALSE(body["metadata"].contains("rtt_ms")) << "no request has succeeded yet";
  EXPECT_TRUE(callback->results().empty());

  // The retry starts again from the batch as given.
  http->fail(0);
  clock->advance(500);
  timers->advance(Seconds(10000));
  ASSERT_EQ(http->count(), 2U);
  EXPECT_EQ(http->request(1).body, dispatcher->addMetadata(batch).dump(2));
  const Json retry = http->body(1);
  EXPECT_EQ(retry["events"], batch["events"]);
  EXPECT_EQ(retry["metadata"], (Json{{"app", "kept"}, {"transmission_timestamp", kStart + 2000}}));

  // A "metadata" that is not an object is replaced; the input is not changed.
  const Json odd = {{"events", Json::array()}, {"metadata", "text"}};
  const Json completed = dispatcher->addMetadata(odd);
  EXPECT_EQ(completed["metadata"], (Json{{"transmission_timestamp", kStart + 2000}}));
  EXPECT_EQ(odd["metadata"], "text");
}

TEST_F(TransportDispatcher, FailedAttemptsBackOffInSecondsAndGiveUpAfterFive) {
  const ScopedTransportOverrides overrides(
      [](auto& o) { o.random = [] { return 1 << 30; }; });  // r ~ 0.5
  auto info = std::make_shared<HttpUserInfo>();
  info->url = "https://" + defaultHost("abc123");
  info->eventsJsonDict = oneBeaconBatch();
  info->callback = callback;
  dispatcher->scheduleHttp(info);
  const Json events = oneBeaconBatch()["events"];

  // trunc(2^(n-1) * 0.5 + 1) * 5000, armed as seconds.
  const std::vector<Seconds> delays = {Seconds(0), Seconds(5000), Seconds(10000), Seconds(15000),
                                       Seconds(25000)};
  std::int64_t lastTimestamp = 0;
  for (std::size_t attempt = 0; attempt < delays.size(); ++attempt) {
    SCOPED_TRACE("attempt " + std::to_string(attempt + 1));
    ASSERT_EQ(timers->pendingDelays(), std::vector<Ms>{delays[attempt]});
    if (delays[attempt] > Seconds(0)) {
      EXPECT_EQ(timers->advance(delays[attempt] - Ms(1)), 0U) << "fired early";
    }
    ASSERT_EQ(timers->advance(Ms(1)), 1U);
    ASSERT_EQ(http->count(), attempt + 1);
    const Json body = http->body(attempt);
    EXPECT_EQ(body["events"], events);
    EXPECT_GT(body["metadata"]["transmission_timestamp"].get<std::int64_t>(), lastTimestamp);
    EXPECT_FALSE(body["metadata"].contains("rtt_ms"));
    lastTimestamp = body["metadata"]["transmission_timestamp"].get<std::int64_t>();
    clock->advance(1000);
    http->fail(attempt);
    EXPECT_FALSE(dispatcher->roundTripLastSucceeded());
    EXPECT_TRUE(info->eventsJsonDict.is_null()) << "a waiting batch keeps only its text";
    if (attempt + 1 < delays.size()) {
      EXPECT_EQ(info->failureCount, static_cast<std::int64_t>(attempt + 1));
      EXPECT_TRUE(callback->results().empty()) << "not told before the last attempt";
    }
  }
  EXPECT_EQ(info->failureCount, 0);
  EXPECT_EQ(callback->results(), std::vector<std::optional<bool>>{false});
  EXPECT_EQ(timers->pendingCount(), 0U);
  EXPECT_EQ(timers->advance(Seconds(1'000'000)), 0U);
  EXPECT_EQ(http->count(), 5U);
}

TEST_F(TransportDispatcher, RetryDelayComesFromTheGeneratorThroughSinglePrecision) {
  HttpUserInfo info;
  int draws = 0;
  int value = 0;
  const ScopedTransportOverrides overrides([&](auto& o) {
    o.random = [&] {
      ++draws;
      return value;
    };
  });
  const auto delayFor = [&](std::int64_t failures, int generated) {
    info.failureCount = failures;
    value = generated;
    return dispatcher->getNextBeaconTime(info);
  };
  EXPECT_EQ(delayFor(0, RAND_MAX), 0);
  EXPECT_EQ(draws, 0) << "the first attempt draws nothing";

  for (std::int64_t n = 1; n <= 4; ++n)
    EXPECT_EQ(delayFor(n, 0), 5000) << n;
  // The topmost values round up to 2^31 in single precision, just above the divisor.
  EXPECT_EQ(delayFor(1, 2147483647), 10000);
  EXPECT_EQ(delayFor(1, 2147483584), 10000);  // the tie rounds to even, upwards
  EXPECT_EQ(delayFor(1, 2147483583), 5000);
  EXPECT_EQ(delayFor(2, 2147483647), 15000);
  EXPECT_EQ(delayFor(3, 2147483647), 25000);
  EXPECT_EQ(delayFor(4, 2147483647), 45000);
  EXPECT_EQ(delayFor(4, 2147483583), 40000);
}

TEST_F(TransportDispatcher, RetryDelayUsesTheProcessWideGenerator) {
  HttpUserInfo info;
  info.failureCount = 4;
  const auto draw = [&](unsigned seed) {
    std::srand(seed);
    std::vector<std::int64_t> delays;
    for (int i = 0; i < 50; ++i)
      delays.push_back(dispatcher->getNextBeaconTime(info));
    return delays;
  };
  const auto first = draw(20240501);
  EXPECT_EQ(draw(20240501), first);
  EXPECT_NE(draw(7), first);
}

TEST_F(TransportDispatcher, AnyResponseSucceedsAndOnlyASuccessCarriesTheRoundTrip) {
  const ScopedTransportOverrides overrides([](auto& o) { o.random = [] { return 0; }; });
  auto info = std::make_shared<HttpUserInfo>();
  info->url = "https://" + defaultHost("abc123");
  info->eventsJsonDict = oneBeaconBatch();
  info->callback = callback;
  dispatcher->scheduleHttp(info);
  timers->runDue();
  http->fail(0);
  timers->advance(Seconds(5000));
  ASSERT_EQ(http->count(), 2U);
  clock->advance(250);
  http->succeed(1, 500, "server error");
  EXPECT_EQ(callback->results(), std::vector<std::optional<bool>>{true});
  EXPECT_EQ(info->failureCount, 0);
  EXPECT_TRUE(dispatcher->roundTripLastSucceeded());
  EXPECT_EQ(dispatcher->roundTripLastCompletedTimeElapsed(), 250);

  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("abc123", {}, {}, oneBeaconBatch("hb"),
                                                        callback);
  timers->runDue();
  ASSERT_EQ(http->count(), 3U);
  EXPECT_EQ(http->body(2)["metadata"]["rtt_ms"], 250);

  http->fail(2);
  EXPECT_FALSE(dispatcher->roundTripLastSucceeded());
  timers->advance(Seconds(5000));
  ASSERT_EQ(http->count(), 4U);
  EXPECT_FALSE(http->body(3)["metadata"].contains("rtt_ms"));
  EXPECT_EQ(http->body(3)["events"], http->body(2)["events"]);
}

TEST_F(TransportDispatcher, UnusableBatchesAreDroppedWholeAndReported) {
  const double inf = std::numeric_limits<double>::infinity();
  const std::vector<Json> unserialisable = {
      {{"events", Json::array({{{"xid", "V1"}, {"xrefq", std::nan("")}}})}},
      {{"events", Json::array({{{"xid", "V1"}, {"list", Json::array({1, inf})}}})}},
      {{"events", Json::array({{{"xid", "V1"}, {"vtt", "bad \xff text"}}})}},
      {{"events", Json::array({{{"bad \xc3 key", "V1"}}})}},
      Json::array({1, 2}),
  };
  for (const auto& batch : unserialisable) {
    dispatcher->handleBatchDomainOsFamilyJsonDictCallback("abc123", {}, {}, batch, callback);
  }
  EXPECT_TRUE(callback->results().empty()) << "dropped when the attempt runs";
  EXPECT_EQ(timers->runDue(), unserialisable.size());
  EXPECT_EQ(http->count(), 0U);
  EXPECT_EQ(callback->results(),
            std::vector<std::optional<bool>>(unserialisable.size(), std::nullopt));
  EXPECT_EQ(timers->pendingCount(), 0U);

  // JSON bytes that do not parse to an object are reported at once.
  auto bytesCallback = std::make_shared<RecordingCallback>();
  for (const std::string bytes : {"{\"events\": [", "[1, 2]", "", "{\"events\": []} trailing"}) {
    dispatcher->handleBatchOsFamilyWithJsonWithCallback("abc123", "ios", bytes, bytesCallback);
  }
  EXPECT_EQ(bytesCallback->results(), std::vector<std::optional<bool>>(4, std::nullopt));
  EXPECT_EQ(timers->pendingCount(), 0U);

  TAVSDKJsonError error;
  EXPECT_FALSE(
      dispatcher->buildRequestFromURLEventsJsonDictError("https://h", unserialisable[2], &error));
  EXPECT_EQ(error.code, 316) << error.description;

  // Nesting beyond 256 levels is refused before anything copies or writes it
  // (found by fuzzing: 100000 levels overflowed the stack).
  const std::string deep =
      "{\"events\":" + std::string(100000, '[') + std::string(100000, ']') + "}";
  auto deepCallback = std::make_shared<RecordingCallback>();
  dispatcher->handleBatchOsFamilyWithJsonWithCallback("abc123", "ios", deep, deepCallback);
  timers->runDue();
  EXPECT_EQ(deepCallback->results(), std::vector<std::optional<bool>>{std::nullopt});
  Json deepDict = Json::array();
  for (int level = 1; level < 300; ++level)
    deepDict = Json::array({std::move(deepDict)});
  deepDict = Json{{"events", std::move(deepDict)}};
  EXPECT_FALSE(dispatcher->buildRequestFromURLEventsJsonDictError("https://h", deepDict, &error));
  EXPECT_EQ(error.code, 3) << error.description;
  EXPECT_EQ(http->count(), 0U);

  // The dispatcher is still usable.
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("abc123", {}, {}, oneBeaconBatch(),
                                                        callback);
  timers->runDue();
  EXPECT_EQ(http->count(), 1U);
}

TEST_F(TransportDispatcher, GoneDispatcherTellsOnSuccessAndLastFailureButNeverRetries) {
  const ScopedTransportOverrides overrides([](auto& o) { o.random = [] { return 0; }; });
  const auto batchOnOwnDispatcher = [&](std::int64_t failuresSoFar,
                                        const std::shared_ptr<RecordingCallback>& told) {
    auto own = std::make_shared<TAVSDKDispatcher>(http, timers);
    auto info = std::make_shared<HttpUserInfo>();
    info->failureCount = failuresSoFar;
    info->url = "https://" + defaultHost("abc123");
    info->eventsJsonDict = oneBeaconBatch();
    info->callback = told;
    own->scheduleHttp(info);
    std::weak_ptr<TAVSDKDispatcher> weak = own;
    own.reset();
    EXPECT_FALSE(weak.expired()) << "the armed timer holds the dispatcher";
    timers->advance(Seconds(100000));
    EXPECT_TRUE(weak.expired()) << "the request's completion must not hold the dispatcher";
  };

  auto succeeded = std::make_shared<RecordingCallback>();
  batchOnOwnDispatcher(0, succeeded);
  http->succeed(0, 204);
  EXPECT_EQ(succeeded->results(), std::vector<std::optional<bool>>{true});

  auto failedEarly = std::make_shared<RecordingCallback>();
  batchOnOwnDispatcher(1, failedEarly);
  http->fail(1);
  EXPECT_TRUE(failedEarly->results().empty());
  EXPECT_EQ(timers->pendingCount(), 0U) << "nobody is left to retry";

  auto failedLast = std::make_shared<RecordingCallback>();
  batchOnOwnDispatcher(4, failedLast);
  http->fail(2);
  EXPECT_EQ(failedLast->results(), std::vector<std::optional<bool>>{false});
}

TEST_F(TransportDispatcher, SingleSendPostsOneCompactBeaconOnceOrLogs) {
  const CapturedLog log;
  const auto event = std::make_shared<TAVSDKTrackableEvent>("play", TAVSDKKeySet{"xwati"});
  event->setQuery(
      {{"ake", "abc123"}, {"uosfm", "iOS"}, {"xid", "V1"}, {"e", "records' own"}, {"n", 3}});
  dispatcher->handle(event);
  EXPECT_EQ(timers->pendingCount(), 0U) << "no timer for the single send";
  ASSERT_EQ(http->count(), 1U);
  const TAVSDKHttpRequest request = http->request(0);
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://" + defaultHost("abc123"));
  EXPECT_EQ(
      request.headers,
      (std::vector<std::pair<std::string, std::string>>{{"Content-Type", "application/json"}}));
  EXPECT_EQ(request.timeout, Seconds(60));
  EXPECT_EQ(request.body.find('\n'), std::string::npos) << "compact: " << request.body;
  EXPECT_EQ(Json::parse(request.body), (Json{{"ake", "abc123"},
                                             {"uosfm", "iOS"},
                                             {"xid", "V1"},
                                             {"e", "play"},
                                             {"n", 3},
                                             {"xwati", nullptr}}));
  http->fail(0);
  EXPECT_EQ(timers->pendingCount(), 0U) << "no retry";

  event->setQuery({{"ake", "local"}});
  dispatcher->handle(event);
  ASSERT_EQ(http->count(), 2U);
  EXPECT_EQ(http->request(1).url, "http://localhost:" + std::to_string(build::kLocalPort));

  // Not sent: no key, an empty key, not trackable, not serialisable.
  event->setQuery({{"xid", "V1"}});
  dispatcher->handle(event);
  event->setQuery({{"ake", ""}});
  dispatcher->handle(event);
  dispatcher->handle(std::make_shared<TAVSDKBaseEvent>());
  dispatcher->handle(nullptr);
  event->setQuery({{"ake", "abc123"}, {"xrefq", std::nan("")}});
  dispatcher->handle(event);
  EXPECT_EQ(http->count(), 2U);
  const auto messages = log.messages();
  ASSERT_EQ(messages.size(), 3U);
  EXPECT_EQ(messages[0], "TAVSDK-ERROR - environment_key must be provided.");
  EXPECT_EQ(messages[1], "TAVSDK-ERROR - environment_key must be provided.");
  EXPECT_EQ(messages[2].rfind("TAVSDK-ERROR - A NSJSONSerialization error occurred: ", 0), 0U)
      << messages[2];
}

}  // namespace
}  // namespace tav::test
