// The core player and the view engine: routing, view replacement and
// restart, record merges, numbering across views, ownership.

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

class CoreViewTest : public PipelineTest {
 protected:
  std::shared_ptr<TAVSDKCorePlayer> player() { return TAVSDKCore::playerNamed("p"); }
};

TEST_F(CoreViewTest, ViewInitReplacesTheViewAndFreesTheOldOne) {
  send<TAVSDKPlayEvent>("p", 0);  // before any viewinit: no view, no beacon
  EXPECT_TRUE(captured->beacons.empty());
  EXPECT_EQ(player()->view(), nullptr);
  EXPECT_EQ(player()->playerData()->playerPlayheadTime(), 0);

  send<TAVSDKViewInitEvent>("p", 0);
  std::weak_ptr<TAVSDKCoreView> first = player()->view();
  std::weak_ptr<TAVSDKEventHandling> firstTracker;
  {
    const auto view = first.lock();
    ASSERT_NE(view, nullptr);
    const auto& handlers = view->handlers();
    // The redispatch handler first, then the fourteen trackers.
    ASSERT_EQ(handlers.size(), 15U);
    EXPECT_NE(dynamic_cast<TAVSDKRedispatchEventHandler*>(handlers.front().get()), nullptr);
    EXPECT_NE(dynamic_cast<TAVSDKLongResumeTracker*>(handlers.at(1).get()), nullptr);
    EXPECT_NE(dynamic_cast<TAVSDKExternalHeartbeatTracker*>(handlers.back().get()), nullptr);
    firstTracker = handlers.at(1);
  }

  send<TAVSDKViewInitEvent>("p", 0);
  EXPECT_TRUE(first.expired()) << "a replaced view must be freed";
  EXPECT_TRUE(firstTracker.expired()) << "its trackers too";
  EXPECT_EQ(player()->view()->handlerCount(), 15U);
}

TEST_F(CoreViewTest, PlayerNumbersRunAcrossViewsAndViewNumbersRestart) {
  send<TAVSDKViewInitEvent>("p", 0);
  send<TAVSDKPlayEvent>("p", 0);
  send<TAVSDKViewInitEvent>("p", 0);
  send<TAVSDKPlayEvent>("p", 0);
  const auto& b = captured->beacons;
  ASSERT_EQ(b.size(), 4U);
  std::vector<std::string> psq, xsq;
  for (const auto& beacon : b) {
    psq.push_back(beacon.query.at(PLAYER_SEQUENCE_NUMBER));
    xsq.push_back(beacon.query.at(VIEW_SEQUENCE_NUMBER));
  }
  EXPECT_EQ(psq, (std::vector<std::string>{"1", "2", "3", "4"}));
  EXPECT_EQ(xsq, (std::vector<std::string>{"1", "2", "1", "2"}));
  EXPECT_NE(b[0].query.at(VIEW_ID), b[2].query.at(VIEW_ID));
}

TEST_F(CoreViewTest, DataEventsOverwriteSessionDataFillsGapsAndVideoChangeRestarts) {
  send<TAVSDKViewInitEvent>("p", 0);
  auto data = std::make_shared<TAVSDKDataEvent>();
  auto video = std::make_shared<TAVSDKCustomerVideoData>();
  video->setVideoTitle("First");
  data->setCustomerVideoData(video);
  auto customerPlayer = std::make_shared<TAVSDKCustomerPlayerData>();
  customerPlayer->setPlayerName("main");
  data->setCustomerPlayerData(customerPlayer);
  TAVSDKCore::dispatchEventForPlayer(data, "p");

  auto session = std::make_shared<TAVSDKSessionDataEvent>();
  session->setSessionData({{"video_title", "Ignored"},
                           {"video_series", "S1"},
                           {"experiment_name", "exp"},
                           {"custom_1", "c-one"}});
  TAVSDKCore::dispatchEventForPlayer(session, "p");
  send<TAVSDKPlayEvent>("p", 0);
  auto q = captured->beacons.back().query;
  EXPECT_EQ(q.at(VIDEO_TITLE), "First") << "session data must not overwrite";
  EXPECT_EQ(q.at(VIDEO_SERIES), "S1");
  EXPECT_EQ(q.at(PLAYER_NAME), "main");
  EXPECT_EQ(q.at(EXPERIMENT_NAME), "exp");
  EXPECT_EQ(q.at(CUSTOM_DATA_1), "c-one");
  const std::string firstView = q.at(VIEW_ID);

  // A data event overwrites, and videoChange starts fresh records and numbering.
  auto change = std::make_shared<TAVSDKDataEvent>();
  auto next = std::make_shared<TAVSDKCustomerVideoData>();
  next->setVideoTitle("Second");
  change->setCustomerVideoData(next);
  change->setVideoChange(true);
  player()->playerData()->setPlayerErrorCode("E1");
  TAVSDKCore::dispatchEventForPlayer(change, "p");
  send<TAVSDKPauseEvent>("p", 0, true);
  q = captured->beacons.back().query;
  EXPECT_EQ(q.at(VIDEO_TITLE), "Second");
  EXPECT_FALSE(q.contains(VIDEO_SERIES));
  EXPECT_FALSE(q.contains(PLAYER_ERROR_CODE));
  EXPECT_EQ(q.at(VIEW_SEQUENCE_NUMBER), "1");
  EXPECT_NE(q.at(VIEW_ID), firstView);
}

TEST_F(CoreViewTest, PlaybackEventsCannotReplaceTheViewsVideoRecord) {
  send<TAVSDKViewInitEvent>("p", 0);
  auto play = std::make_shared<TAVSDKPlayEvent>();
  auto ownVideo = std::make_shared<TAVSDKVideoData>();
  ownVideo->setVideoSourceUrl("https://media.example/own.m3u8");
  play->setVideoData(ownVideo);
  auto ownView = std::make_shared<TAVSDKViewData>();
  ownView->setViewPrerollAdId("ad-7");
  play->setViewData(ownView);
  TAVSDKCore::dispatchEventForPlayer(play, "p");
  const auto view = player()->view();
  EXPECT_EQ(play->videoData(), view->getVideoData());
  EXPECT_EQ(play->viewData(), view->getViewData());
  const auto& q = captured->beacons.back().query;
  EXPECT_FALSE(q.contains(VIDEO_SOURCE_URL));
  EXPECT_EQ(q.at(VIEW_PREROLL_AD_ID), "ad-7") << "the event's view record is merged";
}

TEST_F(CoreViewTest, ViewMetricAndBareEventsAreDroppedByThePlayer) {
  send<TAVSDKViewInitEvent>("p", 0);
  auto metric = std::make_shared<TAVSDKViewData>();
  metric->setViewSeekCount(9);
  TAVSDKCore::dispatchEventForPlayer(std::make_shared<TAVSDKViewMetricEvent>(metric), "p");
  TAVSDKCore::dispatchEventForPlayer(std::make_shared<TAVSDKBaseEvent>(), "p");
  TAVSDKCore::dispatchEventForPlayer(nullptr, "p");
  EXPECT_FALSE(player()->view()->getViewData()->viewSeekCount().has_value());
  // Directly into the view, the same metric is merged.
  player()->view()->dispatch(std::make_shared<TAVSDKViewMetricEvent>(metric));
  EXPECT_EQ(player()->view()->getViewData()->viewSeekCount(), 9);
  EXPECT_TRUE(captured->beacons.empty());
}

TEST_F(CoreViewTest, CreatePlayerReplacesAndDestroyDropsTheName) {
  const auto first = TAVSDKCore::createPlayer("p");
  const auto second = TAVSDKCore::createPlayer("p");
  EXPECT_NE(first, second);
  EXPECT_EQ(player(), second);
  TAVSDKCore::setBeaconDomainForPlayer("example.test", "new-name");
  EXPECT_NE(TAVSDKCore::playerNamed("new-name"), nullptr);
  TAVSDKCore::destroyPlayer("p");
  EXPECT_EQ(player(), nullptr);
  TAVSDKCore::destroyPlayer("unknown");  // nothing happens
}

TEST(CorePlayerTest, ShortUUIDDrawsSixCharactersFromTheAlphabet) {
  const std::string alphabet = TAVSDKCorePlayerBase36;
  std::set<char> seen;
  for (int i = 0; i < 400; ++i) {
    const auto id = TAVSDKCorePlayer::shortUUID();
    ASSERT_EQ(id.size(), 6U);
    for (char c : id) {
      ASSERT_NE(alphabet.find(c), std::string::npos) << id;
      seen.insert(c);
    }
  }
  // 2400 uniform draws miss one of 36 symbols with probability below 1e-26.
  EXPECT_EQ(seen.size(), alphabet.size());
}

}  // namespace
}  // namespace tav::test
