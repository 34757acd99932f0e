// Whole views through the facade, sent by the real transport worker to local
// collectors: plain HTTP for the environment key "local", HTTPS with a test
// certificate through a beacon collection domain; shutdown delivers the rest
// within its deadline and leaves no thread behind.

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>

#include "FaultServer.h"
#include "TestCertificate.h"
#include "TestServer.h"
#include "core/CoreState.h"
#include "support/ShortView.h"
#include "tav/TavCore.h"
#include "tav_build_config.h"
#include "transport/TransportOverrides.h"

namespace tav::test {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

constexpr auto kWait = 30s;

/// Threads of this process named like the transport worker: the worker and any
/// thread it started (Linux threads inherit their creator's name).
std::size_t transportThreads() {
  std::size_t count = 0;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::string name;
    std::getline(std::ifstream(task.path() / "comm"), name);
    if (name == "tav-transport") ++count;
  }
  return count;
}

class TransportE2EFacade : public ::testing::Test {
 protected:
  static constexpr std::int64_t kStart = 1'700'000'000'000;

  void SetUp() override {
    clock = std::make_shared<TAVSDKVirtualClock>(kStart);
    TAVSDKClock::setFactory([c = clock] { return c; });
    detail::resetCoreStateForTesting();
  }
  void TearDown() override {
    EXPECT_TRUE(TAVSDKCore::shutdown(kWait));
    detail::resetCoreStateForTesting();
    detail::setTransportOverrides({});
    TAVSDKClock::setFactory(nullptr);
  }

  template <class E>
  void send(const std::string& player, std::int64_t playhead, bool paused = false) {
    auto event = std::make_shared<E>();
    auto data = std::make_shared<TAVSDKPlayerData>();
    data->setPlayerPlayheadTime(playhead);
    data->setPlayerIsPaused(paused);
    event->setPlayerData(data);
    TAVSDKCore::dispatchEventForPlayer(event, player);
  }
  /// Gives `player` its environment key, then plays a short view to its end.
  void playView(const std::string& player, const std::string& environmentKey) {
    playShortView(*clock, player, environmentKey, [](const auto& event, const auto& name) {
      TAVSDKCore::dispatchEventForPlayer(event, name);
    });
  }
  /// Every beacon the server received, in the order of the player sequence.
  static std::vector<Json> beaconsOf(const TestServer& server) {
    std::vector<Json> beacons;
    for (const auto& request : server.requests()) {
      EXPECT_EQ(request.method, "POST");
      EXPECT_EQ(request.path, "/");
      const Json body = Json::parse(request.body);
      for (const auto& beacon : body["events"])
        beacons.push_back(beacon);
    }
    std::sort(beacons.begin(), beacons.end(), [](const Json& a, const Json& b) {
      return std::stoi(a.value(PLAYER_SEQUENCE_NUMBER, "0")) <
             std::stoi(b.value(PLAYER_SEQUENCE_NUMBER, "0"));
    });
    return beacons;
  }

  std::shared_ptr<TAVSDKVirtualClock> clock;
};

TEST_F(TransportE2EFacade, LocalViewArrivesWholeAndDeduplicated) {
  TestServer server;
  detail::TransportOverrides overrides;
  overrides.localPort = server.port();
  detail::setTransportOverrides(overrides);

  playView("p1", "local");
  EXPECT_TRUE(TAVSDKCore::shutdown(kWait)) << "the final batch is delivered before exit";

  const auto beacons = beaconsOf(server);
  ASSERT_GE(beacons.size(), 5U);
  EXPECT_EQ(beacons.front()["e"], "viewstart");
  EXPECT_EQ(beacons.back()["e"], "viewend");
  std::set<std::string> types;
  for (std::size_t i = 0; i < beacons.size(); ++i) {
    SCOPED_TRACE(beacons[i].dump());
    types.insert(beacons[i]["e"].get<std::string>());
    EXPECT_EQ(beacons[i][PLAYER_SEQUENCE_NUMBER], std::to_string(i + 1))
        << "nothing lost, nothing twice";
    EXPECT_EQ(beacons[i][ENV_KEY], "local");
    EXPECT_EQ(beacons[i][VIEW_ID], beacons.front()[VIEW_ID]);
  }
  EXPECT_TRUE(types.count("play") == 1 && types.count("ended") == 1);
  // Unchanged text goes only once per view: the API version is always sent, the
  // session id only while it is new.
  ASSERT_TRUE(beacons.front().contains(TAV_API_VERSION) && beacons[1].contains(TAV_API_VERSION));
  const auto withSessionId = std::count_if(beacons.begin(), beacons.end() - 1,
                                           [](const Json& b) { return b.contains(SESSION_ID); });
  EXPECT_EQ(withSessionId, 1) << "only the viewstart among the beacons before viewend";
}

TEST_F(TransportE2EFacade, CollectionDomainViewGoesOverVerifiedHttps) {
  const std::string host = "collector.tav-e2e.test";
  const TestCertificate certificate({host});
  TestServer server(certificate.certFile(), certificate.keyFile());
  detail::TransportOverrides overrides;
  overrides.caFile = certificate.certFile();
  overrides.connectTo = {host + ":443:127.0.0.1:" + std::to_string(server.port())};
  detail::setTransportOverrides(overrides);

  TAVSDKCore::setBeaconCollectionDomainForPlayer(host, "p2");
  playView("p2", "abc123");
  EXPECT_TRUE(TAVSDKCore::shutdown(kWait));

  const auto beacons = beaconsOf(server);
  ASSERT_GE(beacons.size(), 5U);
  EXPECT_EQ(beacons.front()["e"], "viewstart");
  EXPECT_EQ(beacons.back()["e"], "viewend");
  for (const auto& request : server.requests()) {
    EXPECT_EQ(request.header("Content-Type"), "application/json");
    EXPECT_TRUE(Json::parse(request.body)["metadata"].contains("transmission_timestamp"));
  }
}

TEST_F(TransportE2EFacade, ShutdownDeliversWhatItCanWithinTheDeadlineAndNoThreadOutlivesIt) {
  // The local server first drops every connection, then answers slowly; one
  // player's collection host never answers.
  FaultServer slow(FaultServer::Fault::kCloseAtOnce);
  FaultServer stuck(FaultServer::Fault::kStall);
  const std::string stuckHost = "stuck.tav-e2e.test";
  detail::TransportOverrides overrides;
  overrides.localPort = slow.port();
  overrides.connectTo = {stuckHost + ":443:127.0.0.1:" + std::to_string(stuck.port())};
  detail::setTransportOverrides(overrides);

  // Each view's first batch fails and waits for its retry, 5000 s away; the rest
  // of each view is still queued.
  const std::vector<std::string> players = {"p1", "p2", "p3", "p4"};
  const auto startView = [&](const std::string& player, const std::string& key) {
    auto keyEvent = std::make_shared<TAVSDKDataEvent>();
    keyEvent->setCustomerPlayerData(TAVSDKCustomerPlayerData::initWithEnvironmentKey(key));
    TAVSDKCore::dispatchEventForPlayer(keyEvent, player);
    send<TAVSDKViewInitEvent>(player, 0);
    send<TAVSDKPlayEvent>(player, 0);
    send<TAVSDKPlayingEvent>(player, 0);
    send<TAVSDKPauseEvent>(player, 0, true);
  };
  for (const auto& player : players)
    startView(player, "local");
  ASSERT_TRUE(slow.waitForRequests(players.size(), kWait));
  slow.setFault(FaultServer::Fault::kAnswer, 200, 200ms);
  TAVSDKCore::setBeaconCollectionDomainForPlayer(stuckHost, "stuck");
  startView("stuck", "abc123");
  ASSERT_TRUE(stuck.waitForConnections(1, kWait));
  EXPECT_EQ(transportThreads(), 1U);

  const auto deadline = 2s;
  const auto start = std::chrono::steady_clock::now();
  EXPECT_FALSE(TAVSDKCore::shutdown(deadline)) << "the stuck transfer is aborted";
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_GE(took, deadline - 100ms) << "waited for the stuck transfer";
  EXPECT_LT(took, deadline + 10s) << "sanity bound, not a benchmark";
  EXPECT_EQ(transportThreads(), 0U);

  // Every beacon of the local views arrived: the retried first batches and the
  // flushed rest, each player's sequence without a gap.
  std::map<std::string, std::vector<int>> sequences;
  for (const auto& body : slow.answeredBodies()) {
    const Json batch = Json::parse(body);
    for (const auto& beacon : batch["events"])
      sequences[beacon[PLAYER_INSTANCE_ID].get<std::string>()].push_back(
          std::stoi(beacon.value(PLAYER_SEQUENCE_NUMBER, "0")));
  }
  ASSERT_EQ(sequences.size(), players.size());
  for (auto& [instance, numbers] : sequences) {
    SCOPED_TRACE(instance);
    std::sort(numbers.begin(), numbers.end());
    ASSERT_GE(numbers.size(), 4U);
    for (std::size_t i = 0; i < numbers.size(); ++i)
      EXPECT_EQ(numbers[i], static_cast<int>(i + 1));
  }
  EXPECT_EQ(slow.answeredBodies().size(), 2 * players.size())
      << "the retried first batches and the flushed rests";

  // The facade stays usable: the next view starts a new worker.
  const std::size_t answered = slow.answeredBodies().size();
  send<TAVSDKViewEndEvent>("p1", 0, true);
  TAVSDKCore::destroyPlayer("stuck");
  ASSERT_TRUE(slow.waitForRequests(3 * players.size() + 1, kWait));
  EXPECT_EQ(transportThreads(), 1U);
  EXPECT_TRUE(TAVSDKCore::shutdown(kWait));
  EXPECT_EQ(slow.answeredBodies().size(), answered + 1);
  EXPECT_EQ(transportThreads(), 0U);
}

}  // namespace
}  // namespace tav::test
