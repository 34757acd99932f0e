// Views through the facade to local servers that misbehave on purpose, posted by
// the real libcurl client: for every fault the facade returns at once, each
// batch gets five attempts on a transport failure and one when any response
// arrives, nothing is kept afterwards, and once the server recovers later views
// arrive whole.

#include <gtest/gtest.h>

#include <cstdio>
#include <map>
#include <memory>
#include <set>
#include <thread>

#include "FaultServer.h"
#include "TestCertificate.h"
#include "TestServer.h"
#include "core/CoreState.h"
#include "support/CountingHttpClient.h"
#include "support/ManualScheduler.h"
#include "support/ShortView.h"
#include "tav/TavCore.h"
#include "tav/transport/TAVSDKEventQueue.h"
#include "tav/transport/TAVSDKTransport.h"
#include "transport/TransportOverrides.h"

namespace tav::test {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;
using Fault = FaultServer::Fault;
using Clock = std::chrono::steady_clock;

constexpr auto kWait = 30s;
constexpr std::int64_t kStart = 1'700'000'000'000;
constexpr const char* kTlsHost = "collector.tav-fault.test";
// Facade calls take microseconds; this only catches a call that waits for the network.
constexpr auto kCallSanityBound = 1s;

/// Waits (bounded) for what the transport worker releases after a completion returns.
template <class Condition>
bool eventually(Condition condition) {
  const auto deadline = Clock::now() + kWait;
  while (!condition()) {
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(1ms);
  }
  return true;
}

struct FaultCase {
  const char* name;
  Fault fault;  // of the raw server; unused for the TLS case
  int status;
  bool untrustedCertificate;
  bool serverReadsRequests;
  std::size_t attempts;  // per batch
};

std::ostream& operator<<(std::ostream& out, const FaultCase& c) {
  return out << c.name;
}

// Five attempts on a transport failure; any HTTP status is a response.
const FaultCase kFaults[] = {
    {"refused", Fault::kRefuse, 0, false, false, 5},
    {"closed-at-once", Fault::kCloseAtOnce, 0, false, true, 5},
    {"reset-mid-request-body", Fault::kResetMidRequest, 0, false, true, 5},
    {"reset-mid-response-body", Fault::kResetMidResponse, 0, false, true, 5},
    {"stalled-past-time-out", Fault::kStall, 0, false, true, 5},
    {"status-500", Fault::kAnswer, 500, false, true, 1},
    {"status-503", Fault::kAnswer, 503, false, true, 1},
    {"status-429", Fault::kAnswer, 429, false, true, 1},
    // libcurl refuses a reply without a status line (HTTP/0.9): a transport error.
    {"garbage-bytes", Fault::kGarbage, 0, false, true, 5},
    {"untrusted-certificate", Fault::kAnswer, 0, true, false, 5},
};

/// The local server a case posts to: raw HTTP, or HTTPS with a certificate that
/// the client trusts only once the server has "recovered".
class Target {
 public:
  explicit Target(const FaultCase& c) {
    if (c.untrustedCertificate) {
      _certificate = std::make_unique<TestCertificate>(std::vector<std::string>{kTlsHost});
      _tls = std::make_unique<TestServer>(_certificate->certFile(), _certificate->keyFile());
    } else {
      _raw = std::make_unique<FaultServer>(c.fault);
      _raw->setFault(c.fault, c.status);
    }
  }
  [[nodiscard]] bool tls() const { return _tls != nullptr; }
  [[nodiscard]] std::size_t requestsRead() const {
    return _raw ? _raw->requestCount() : _tls->requests().size();
  }
  [[nodiscard]] std::vector<std::string> answeredBodies() const {
    if (_raw) return _raw->answeredBodies();
    std::vector<std::string> bodies;
    for (const auto& request : _tls->requests())
      bodies.push_back(request.body);
    return bodies;
  }
  void overrides(detail::TransportOverrides& o, bool recovered) const {
    if (_raw) {
      o.localPort = _raw->port();
      if (recovered) _raw->setFault(Fault::kAnswer);
    } else {
      o.connectTo = {std::string(kTlsHost) + ":443:127.0.0.1:" + std::to_string(_tls->port())};
      if (recovered) o.caFile = _certificate->certFile();
    }
  }

 private:
  std::unique_ptr<FaultServer> _raw;
  std::unique_ptr<TestCertificate> _certificate;
  std::unique_ptr<TestServer> _tls;
};

class TransportFaultE2E : public ::testing::TestWithParam<FaultCase> {
 protected:
  void SetUp() override {
    clock = std::make_shared<TAVSDKVirtualClock>(kStart);
    TAVSDKClock::setFactory([c = clock] { return c; });
    detail::resetCoreStateForTesting();
  }
  void TearDown() override {
    EXPECT_TRUE(TAVSDKCore::shutdown(kWait));
    timers->clear();
    detail::resetCoreStateForTesting();
    detail::setTransportOverrides({});
    TAVSDKClock::setFactory(nullptr);
  }

  /// Every queue made from now on posts through `http` and arms its attempts on
  /// `timers`; a retry is due 5000 s later.
  void install(const Target& target, bool recovered, std::chrono::milliseconds timeout) {
    detail::TransportOverrides o;
    o.httpClient = http;
    o.timerScheduler = timers;
    o.random = [] { return 0; };
    o.requestTimeout = timeout;
    target.overrides(o, recovered);
    detail::setTransportOverrides(std::move(o));
  }

  /// Runs one facade call and keeps the longest call time.
  template <class Call>
  void timed(Call call) {
    const auto start = Clock::now();
    call();
    longestCall = std::max(longestCall, Clock::now() - start);
  }
  /// A whole view on a new player, ending with its destruction (which flushes).
  /// Answers the player's queue, which nothing should keep once its batches are done.
  std::weak_ptr<TAVSDKEventQueue> playView(const std::string& player, bool tls) {
    const std::string key = tls ? "abc123" : "local";
    if (tls) timed([&] { TAVSDKCore::setBeaconCollectionDomainForPlayer(kTlsHost, player); });
    playShortView(*clock, player, key, [&](const auto& event, const auto& name) {
      timed([&] { TAVSDKCore::dispatchEventForPlayer(event, name); });
    });
    std::weak_ptr<TAVSDKEventQueue> queue = TAVSDKCore::playerNamed(player)->eventQueue();
    timed([&] { TAVSDKCore::destroyPlayer(player); });
    return queue;
  }
  /// Lets every request finish and runs every retry that comes due, until none is left.
  void settle() {
    for (int round = 0; round < 20; ++round) {
      ASSERT_TRUE(http->waitIdle(kWait)) << "a request never completed";
      if (timers->pendingCount() == 0) return;
      timers->advance(std::chrono::hours(24));
    }
    FAIL() << "retries never ended";
  }
  /// The attempts made since `from`, by batch.
  std::map<std::string, std::vector<CountingHttpClient::Attempt>> batchesSince(std::size_t from) {
    std::map<std::string, std::vector<CountingHttpClient::Attempt>> batches;
    const auto all = http->attempts();
    for (std::size_t i = from; i < all.size(); ++i)
      batches[all[i].batch].push_back(all[i]);
    return batches;
  }

  std::shared_ptr<TAVSDKVirtualClock> clock;
  std::shared_ptr<CountingHttpClient> http =
      std::make_shared<CountingHttpClient>(TAVSDKTransport::httpClient());
  std::shared_ptr<ManualScheduler> timers = std::make_shared<ManualScheduler>();
  Clock::duration longestCall{};
};

TEST_P(TransportFaultE2E, FaultIsSurvivedAndLaterViewsArriveAfterRecovery) {
  const FaultCase& c = GetParam();
  const Target target(c);
  install(target, false, c.fault == Fault::kStall ? 500ms : 10s);

  const auto faultyQueue = playView("faulty", target.tls());
  settle();
  const auto faulty = batchesSince(0);
  ASSERT_GE(faulty.size(), 2U) << "a view makes several batches";
  std::size_t attempts = 0;
  std::set<std::string> outcomes;
  for (const auto& [batch, tries] : faulty) {
    SCOPED_TRACE("batch " + batch);
    EXPECT_FALSE(batch.empty());
    EXPECT_EQ(tries.size(), c.attempts);
    attempts += tries.size();
    for (const auto& attempt : tries) {
      ASSERT_TRUE(attempt.done);
      outcomes.insert(attempt.error.value_or("HTTP " + std::to_string(attempt.status)));
      if (c.attempts == 1) {
        EXPECT_FALSE(attempt.error) << *attempt.error;
        EXPECT_EQ(attempt.status, c.status);
      } else {
        EXPECT_TRUE(attempt.error.has_value()) << "HTTP " << attempt.status;
      }
    }
  }
  EXPECT_EQ(target.requestsRead(), c.serverReadsRequests ? attempts : 0U);
  EXPECT_TRUE(eventually([&] { return faultyQueue.expired(); }))
      << "nothing keeps a finished view's batches";
  EXPECT_LT(longestCall, kCallSanityBound);
  std::printf("fault %-24s %zu batches x %zu attempts: %s\n", c.name, faulty.size(), c.attempts,
              outcomes.begin()->c_str());

  // The server recovers: the next view arrives whole, each batch at the first attempt.
  const std::size_t before = http->attempts().size();
  const std::size_t answeredBefore = target.answeredBodies().size();
  install(target, true, 10s);
  longestCall = {};
  (void)playView("recovered", target.tls());
  settle();
  std::size_t sent = 0;
  for (const auto& [batch, tries] : batchesSince(before)) {
    SCOPED_TRACE("batch " + batch);
    ASSERT_EQ(tries.size(), 1U);
    EXPECT_FALSE(tries[0].error) << *tries[0].error;
    EXPECT_EQ(tries[0].status, 200);
    sent += tries[0].beacons;
  }
  const auto bodies = target.answeredBodies();
  std::vector<std::string> events;
  for (std::size_t i = answeredBefore; i < bodies.size(); ++i) {
    const Json batch = Json::parse(bodies[i]);
    for (const auto& beacon : batch["events"])
      events.push_back(beacon["e"]);
  }
  EXPECT_EQ(events.size(), sent);
  std::sort(events.begin(), events.end());
  EXPECT_TRUE(std::binary_search(events.begin(), events.end(), "viewstart"));
  EXPECT_TRUE(std::binary_search(events.begin(), events.end(), "viewend"));
  EXPECT_LT(longestCall, kCallSanityBound);
}

std::string caseName(const ::testing::TestParamInfo<FaultCase>& c) {
  std::string name = c.param.name;
  std::replace(name.begin(), name.end(), '-', '_');
  return name;
}

INSTANTIATE_TEST_SUITE_P(Faults, TransportFaultE2E, ::testing::ValuesIn(kFaults), caseName);

}  // namespace
}  // namespace tav::test
