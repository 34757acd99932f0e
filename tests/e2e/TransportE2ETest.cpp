// The real libcurl transport against real local servers: what arrives on the
// wire, HTTPS verification, retries after refused connections, error statuses,
// time-outs that never block the caller, and the flush-and-wait shutdown.

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <set>
#include <thread>

#include "FaultServer.h"
#include "TestCertificate.h"
#include "TestServer.h"
#include "support/ManualScheduler.h"
#include "support/RecordingCallback.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/TAVSDKDispatcher.h"
#include "tav/transport/TAVSDKEventQueue.h"
#include "tav/transport/TAVSDKTransport.h"
#include "tav_build_config.h"
#include "transport/TransportOverrides.h"

namespace tav::test {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

constexpr auto kWait = 30s;
constexpr std::int64_t kStart = 1'700'000'000'000;

std::set<std::string> keysOf(const Json& object) {
  std::set<std::string> keys;
  for (const auto& [key, value] : object.items())
    keys.insert(key);
  return keys;
}

std::shared_ptr<TAVSDKTrackableEvent> beacon(const std::string& type, const std::string& key) {
  auto event = std::make_shared<TAVSDKTrackableEvent>(type, TAVSDKKeySet{"xwati"});
  auto view = std::make_shared<TAVSDKViewData>();
  view->setViewId("E2E-VIEW");
  view->setViewSequenceNumber(1);
  event->setViewData(view);
  event->updateAll();
  event->query()->update({{"ake", key}, {"pphti", "1500"}, {"vtt", "Big Buck Bunny"}});
  return event;
}

Json batchOf(const std::string& type) {
  return {{"events", Json::array({{{"e", type}, {"xid", "E2E-VIEW"}}})}};
}

// Waits for a condition that another thread makes true, at most kWait.
template <class Condition>
bool eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + kWait;
  while (!condition()) {
    if (std::chrono::steady_clock::now() >= deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

class TransportE2E : public ::testing::Test {
 protected:
  void SetUp() override {
    clock = std::make_shared<TAVSDKVirtualClock>(kStart);
    TAVSDKClock::setFactory([c = clock] { return c; });
  }
  void TearDown() override {
    EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
    timers->clear();
    detail::setTransportOverrides({});
    TAVSDKClock::setFactory(nullptr);
  }
  static void overrides(const std::function<void(detail::TransportOverrides&)>& configure) {
    detail::TransportOverrides o;
    o.random = [] { return 0; };  // every retry after 5000 s
    configure(o);
    detail::setTransportOverrides(std::move(o));
  }
  /// A dispatcher on the real libcurl client with timers the test runs itself.
  std::shared_ptr<TAVSDKDispatcher> curlDispatcher() {
    return std::make_shared<TAVSDKDispatcher>(TAVSDKTransport::httpClient(), timers);
  }

  std::shared_ptr<TAVSDKVirtualClock> clock;
  std::shared_ptr<ManualScheduler> timers = std::make_shared<ManualScheduler>();
  std::shared_ptr<RecordingCallback> callback = std::make_shared<RecordingCallback>();
};

TEST_F(TransportE2E, LocalBatchArrivesInWireFormatOverAReusedConnection) {
  TestServer server;
  overrides([&](auto& o) { o.localPort = server.port(); });
  const auto queue = std::make_shared<TAVSDKEventQueue>();  // default ports: the worker
  const auto start = beacon("viewstart", "local");
  const Json expected = [&] {
    Json q = start->getQuery();
    q["e"] = "viewstart";
    return q;
  }();
  queue->handle(start);
  ASSERT_TRUE(server.waitForRequests(1, kWait));

  const ReceivedRequest first = server.requests()[0];
  EXPECT_EQ(first.method, "POST");
  EXPECT_EQ(first.path, "/");
  EXPECT_EQ(first.header("Content-Type"), "application/json");
  EXPECT_EQ(first.header("Accept-Encoding"), "gzip");
  EXPECT_EQ(first.header("Content-Length"), std::to_string(first.body.size()));
  EXPECT_FALSE(first.hasHeader("Expect"));
  EXPECT_NE(first.body.find("\n  "), std::string::npos) << "pretty-printed";
  const Json body = Json::parse(first.body);
  EXPECT_EQ(keysOf(body), (std::set<std::string>{"events", "metadata"}));
  ASSERT_EQ(body["events"].size(), 1U);
  EXPECT_EQ(body["events"][0], expected);
  EXPECT_TRUE(body["events"][0]["xwati"].is_null());
  EXPECT_EQ(body["metadata"], (Json{{"transmission_timestamp", kStart}}));

  const auto dispatcher = queue->dispatcher();
  ASSERT_TRUE(eventually([&] { return dispatcher->roundTripLastSucceeded(); }));
  clock->advance(1000);
  queue->handle(beacon("ended", "local"));
  ASSERT_TRUE(server.waitForRequests(2, kWait));
  const ReceivedRequest second = server.requests()[1];
  const Json secondBody = Json::parse(second.body);
  EXPECT_EQ(secondBody["events"][0]["e"], "ended");
  EXPECT_EQ(secondBody["metadata"]["transmission_timestamp"], kStart + 1000);
  EXPECT_EQ(secondBody["metadata"]["rtt_ms"], dispatcher->roundTripLastCompletedTimeElapsed());
  EXPECT_EQ(second.remotePort, first.remotePort) << "the connection is kept between batches";
  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
}

TEST_F(TransportE2E, HttpsVerifiesTheTestAuthorityAndTheHostName) {
  const std::string trustedHost = "abc123." + std::string(build::kDefaultCollectionDomain);
  const std::string otherHost = "zzz9." + std::string(build::kDefaultCollectionDomain);
  const TestCertificate certificate({trustedHost});
  TestServer server(certificate.certFile(), certificate.keyFile());
  const auto route = [&](auto& o) {
    // Both hosts lead to the local server; the certificate only names the first.
    const std::string to = ":443:127.0.0.1:" + std::to_string(server.port());
    o.connectTo = {trustedHost + to, otherHost + to};
  };
  overrides([&](auto& o) {
    route(o);
    o.caFile = certificate.certFile();
  });
  const auto dispatcher = curlDispatcher();

  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("abc123", {}, "ios", batchOf("viewstart"),
                                                        callback);
  timers->runDue();
  ASSERT_TRUE(callback->waitFor(1, kWait));
  EXPECT_EQ(callback->results(), std::vector<std::optional<bool>>{true});
  ASSERT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(server.requests()[0].path, "/");
  EXPECT_EQ(Json::parse(server.requests()[0].body)["events"], batchOf("viewstart")["events"]);

  // A host the certificate does not name fails and is retried later.
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("zzz9", {}, "ios", batchOf("hb"), callback);
  timers->runDue();
  ASSERT_TRUE(timers->waitForPending(1, kWait));
  EXPECT_EQ(timers->pendingDelays(), std::vector<std::chrono::milliseconds>{5000s});
  EXPECT_FALSE(dispatcher->roundTripLastSucceeded());

  // Without the test authority the named host fails too.
  overrides(route);
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("abc123", {}, "ios", batchOf("hb"),
                                                        callback);
  timers->runDue();
  ASSERT_TRUE(timers->waitForPending(2, kWait));
  EXPECT_EQ(server.requests().size(), 1U);
  EXPECT_EQ(callback->results().size(), 1U);
  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
}

TEST_F(TransportE2E, RefusedConnectionIsRetriedUntilTheFifthAttempt) {
  const RefusingPort refusing;
  overrides([&](auto& o) { o.localPort = refusing.port(); });
  const auto dispatcher = curlDispatcher();
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("local", {}, "ios", batchOf("viewstart"),
                                                        callback);
  std::vector<std::chrono::milliseconds> delays;
  for (int attempt = 1; attempt <= 5; ++attempt) {
    SCOPED_TRACE("attempt " + std::to_string(attempt));
    ASSERT_TRUE(timers->waitForPending(1, kWait));
    ASSERT_EQ(timers->pendingCount(), 1U);
    delays.push_back(timers->pendingDelays()[0]);
    ASSERT_EQ(timers->advance(delays.back()), 1U);
  }
  ASSERT_TRUE(callback->waitFor(1, kWait));
  EXPECT_EQ(callback->results(), std::vector<std::optional<bool>>{false});
  EXPECT_EQ(delays, (std::vector<std::chrono::milliseconds>{0s, 5000s, 5000s, 5000s, 5000s}));
  EXPECT_EQ(timers->pendingCount(), 0U);
  EXPECT_FALSE(dispatcher->roundTripLastSucceeded());
}

TEST_F(TransportE2E, ServerErrorStatusCountsAsSuccess) {
  TestServer server;
  server.setStatus(500);
  overrides([&](auto& o) { o.localPort = server.port(); });
  const auto dispatcher = curlDispatcher();
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("local", {}, "ios", batchOf("error"),
                                                        callback);
  timers->runDue();
  ASSERT_TRUE(callback->waitFor(1, kWait));
  EXPECT_EQ(callback->results(), std::vector<std::optional<bool>>{true});
  EXPECT_TRUE(dispatcher->roundTripLastSucceeded());
  EXPECT_EQ(timers->pendingCount(), 0U);
  EXPECT_EQ(server.requests().size(), 1U);
  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
}

TEST_F(TransportE2E, ABurstOfBatchesSharesAFewConnectionsToTheHost) {
  // A server that takes a while per request, as one under load does.
  FaultServer server;
  server.setFault(FaultServer::Fault::kAnswer, 200, 20ms);
  overrides([&](auto& o) { o.localPort = server.port(); });
  const auto dispatcher = curlDispatcher();
  constexpr std::size_t kBatches = 60;
  for (std::size_t i = 0; i < kBatches; ++i) {
    dispatcher->handleBatchDomainOsFamilyJsonDictCallback("local", {}, "ios", batchOf("hb"),
                                                          callback);
  }
  ASSERT_EQ(timers->runDue(), kBatches);  // every batch handed over at once
  ASSERT_TRUE(callback->waitFor(kBatches, kWait));
  EXPECT_EQ(callback->results(), std::vector<std::optional<bool>>(kBatches, true));
  EXPECT_EQ(server.answeredBodies().size(), kBatches);
  EXPECT_LE(server.connectionCount(), 6U) << "requests wait for a connection to the host";
  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
}

// Forwards to the real client; each completion first waits until the test has
// seen its `send` return, so a client that completed inside `send` (blocking its
// caller) would be caught without relying on timing.
class CallerGate : public TAVSDKHttpClient {
 public:
  explicit CallerGate(std::shared_ptr<TAVSDKHttpClient> inner) : _inner(std::move(inner)) {}
  void send(TAVSDKHttpRequest request, Completion completion) override {
    _inner->send(std::move(request), [this, completion](TAVSDKHttpResult result) {
      {
        std::unique_lock lock(_mutex);
        _sawCallerReturn = _changed.wait_for(lock, kWait, [this] { return _callerReturned; });
        _completionThread = std::this_thread::get_id();
        _error = result.error.value_or("");
      }
      completion(std::move(result));
    });
  }
  void callerReturned() {
    const std::lock_guard lock(_mutex);
    _callerReturned = true;
    _changed.notify_all();
  }
  bool sawCallerReturn() {
    const std::lock_guard lock(_mutex);
    return _sawCallerReturn;
  }
  std::thread::id completionThread() {
    const std::lock_guard lock(_mutex);
    return _completionThread;
  }
  std::string error() {
    const std::lock_guard lock(_mutex);
    return _error;
  }

 private:
  std::shared_ptr<TAVSDKHttpClient> _inner;
  std::mutex _mutex;
  std::condition_variable _changed;
  bool _callerReturned = false;
  bool _sawCallerReturn = false;
  std::thread::id _completionThread;
  std::string _error;
};

TEST_F(TransportE2E, StalledServerTimesOutWithoutBlockingTheCaller) {
  TestServer server;
  server.stall();
  overrides([&](auto& o) {
    o.localPort = server.port();
    o.requestTimeout = 500ms;
  });
  const auto gate = std::make_shared<CallerGate>(TAVSDKTransport::httpClient());
  const auto dispatcher = std::make_shared<TAVSDKDispatcher>(gate, timers);
  dispatcher->handleBatchDomainOsFamilyJsonDictCallback("local", {}, "ios", batchOf("viewstart"),
                                                        callback);
  ASSERT_EQ(timers->runDue(), 1U);  // the attempt: builds and starts the request
  gate->callerReturned();

  ASSERT_TRUE(server.waitForRequests(1, kWait)) << "the request reached the server";
  ASSERT_TRUE(timers->waitForPending(1, kWait)) << "the time-out ends in a retry";
  EXPECT_TRUE(gate->sawCallerReturn()) << "completed before the caller got its thread back";
  EXPECT_NE(gate->completionThread(), std::this_thread::get_id());
  EXPECT_NE(gate->error().find("Timeout"), std::string::npos) << gate->error();
  EXPECT_EQ(timers->pendingDelays(), std::vector<std::chrono::milliseconds>{5000s});
  EXPECT_TRUE(callback->results().empty());
}

TEST_F(TransportE2E, ShutdownDeliversTheFinalBatchesAbortsWhatIsStuckAndCanRestart) {
  TestServer server;
  overrides([&](auto& o) { o.localPort = server.port(); });
  const auto queue = std::make_shared<TAVSDKEventQueue>();
  queue->handle(beacon("viewstart", "local"));
  queue->handle(beacon("pause", "local"));
  queue->handle(beacon("viewend", "local"));
  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
  // No waiting here: shutdown waited. The two batches may arrive in either order.
  std::multiset<std::string> batches;
  for (const auto& request : server.requests()) {
    std::string types;
    const Json body = Json::parse(request.body);
    for (const auto& event : body["events"]) {
      types += event["e"].get<std::string>() + " ";
    }
    batches.insert(types);
  }
  EXPECT_EQ(batches, (std::multiset<std::string>{"viewstart ", "pause viewend "}));

  // A transfer that would hang for an hour is aborted at the deadline.
  TestServer stalled;
  stalled.stall();
  overrides([&](auto& o) {
    o.localPort = stalled.port();
    o.requestTimeout = 1h;
  });
  const auto stuckQueue = std::make_shared<TAVSDKEventQueue>();
  stuckQueue->handle(beacon("viewstart", "local"));
  ASSERT_TRUE(stalled.waitForRequests(1, kWait));
  EXPECT_FALSE(TAVSDKTransport::shutdown(200ms));

  // Afterwards the transport starts again on demand.
  overrides([&](auto& o) { o.localPort = server.port(); });
  queue->handle(beacon("viewstart", "local"));
  EXPECT_TRUE(server.waitForRequests(3, kWait));
  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait));
}

}  // namespace
}  // namespace tav::test
