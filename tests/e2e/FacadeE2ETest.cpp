// Whole views through the facade, sent by the real transport worker to local
// collectors: plain HTTP for the environment key "local", HTTPS with a test
// certificate through a beacon collection domain; shutdown delivers the rest.

#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "TestCertificate.h"
#include "TestServer.h"
#include "core/CoreState.h"
#include "tav/TavCore.h"
#include "tav_build_config.h"
#include "transport/TransportOverrides.h"

namespace tav::test {
namespace {

using namespace std::chrono_literals;
using Json = nlohmann::json;

constexpr auto kWait = 30s;

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
    auto keyEvent = std::make_shared<TAVSDKDataEvent>();
    keyEvent->setCustomerPlayerData(
        TAVSDKCustomerPlayerData::initWithEnvironmentKey(environmentKey));
    TAVSDKCore::dispatchEventForPlayer(keyEvent, player);
    send<TAVSDKViewInitEvent>(player, 0);
    send<TAVSDKPlayEvent>(player, 0);
    clock->advance(300);
    send<TAVSDKPlayingEvent>(player, 0);
    for (std::int64_t playhead = 1000; playhead <= 12000; playhead += 1000) {
      clock->advance(1000);
      send<TAVSDKTimeUpdateEvent>(player, playhead);
    }
    send<TAVSDKPauseEvent>(player, 12000, true);
    send<TAVSDKEndedEvent>(player, 12000, true);
    send<TAVSDKViewEndEvent>(player, 12000, true);
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

}  // namespace
}  // namespace tav::test
