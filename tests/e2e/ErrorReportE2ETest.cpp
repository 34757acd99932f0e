// A failure inside a real facade call disables that player only, and one error
// report reaches a local error-tracking server over real HTTP.

#include <regex>

#include "e2e/TestServer.h"
#include "support/PipelineFixture.h"
#include "support/ScopedTransportOverrides.h"

namespace tav::test {
namespace {

class ThrowOnBeacon : public TAVSDKEventHandling {
 public:
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& /*event*/) override {
    throw TAVSDKFailure("tracker state corrupted");
  }
};

class ErrorReportE2E : public PipelineTest {
 protected:
  void startFailingView(const std::string& name) {
    auto init = std::make_shared<TAVSDKViewInitEvent>();
    auto data = std::make_shared<TAVSDKPlayerData>();
    data->setPlayerTavPluginName("test-plugin");
    data->setPlayerTavPluginVersion("2.5.1");
    init->setPlayerData(data);
    TAVSDKCore::dispatchEventForPlayer(init, name);
    auto meta = std::make_shared<TAVSDKDataEvent>();
    meta->setCustomerPlayerData(TAVSDKCustomerPlayerData::initWithEnvironmentKey("envkey42"));
    TAVSDKCore::dispatchEventForPlayer(meta, name);
    TAVSDKCore::playerNamed(name)->addHandler(std::make_shared<ThrowOnBeacon>());
    EXPECT_NO_THROW(send<TAVSDKPlayEvent>(name, 0));
    EXPECT_TRUE(TAVSDKCore::playerNamed(name)->isDestroyed());
  }
  TestServer server;
  ScopedTransportOverrides overrides{[this](detail::TransportOverrides& o) {
    o.errorReportBaseUrl = "http://127.0.0.1:" + std::to_string(server.port());
  }};
};

TEST_F(ErrorReportE2E, OneReportPerFailureWithTheExpectedMembers) {
  startFailingView("broken");
  send<TAVSDKViewInitEvent>("healthy", 0);
  send<TAVSDKPlayEvent>("healthy", 0);
  EXPECT_FALSE(TAVSDKCore::playerNamed("healthy")->isDestroyed());
  // Later events of the disabled player cause no further report.
  send<TAVSDKPauseEvent>("broken", 0, true);
  send<TAVSDKPlayEvent>("broken", 0);
  ASSERT_TRUE(TAVSDKTransport::shutdown(std::chrono::seconds(10)));
  const auto requests = server.requests();
  ASSERT_EQ(requests.size(), 1U);
  const auto& r = requests.front();
  EXPECT_EQ(r.method, "POST");
  EXPECT_EQ(r.path, "/api/1195577/store/");
  EXPECT_EQ(r.header("Content-Type"), "application/json");
  EXPECT_EQ(r.header("Accept-Encoding"), "gzip");
  const std::regex auth(
      "Sentry sentry_version=7,sentry_client=test-plugin/2\\.5\\.1,sentry_timestamp=(\\d+),"
      "sentry_key=[0-9a-f]{32},sentry_secret=[0-9a-f]{32}");
  std::smatch m;
  const std::string header = r.header("X-Sentry-Auth");
  ASSERT_TRUE(std::regex_match(header, m, auth)) << header;
  EXPECT_EQ(std::stoll(m[1].str()), clock->now()) << "milliseconds of the library clock";

  const auto report = Json::parse(r.body);
  EXPECT_EQ(r.body, report.dump()) << "compact JSON";
  const std::string id = report.at("event_id");
  EXPECT_TRUE(std::regex_match(id, std::regex("[0-9A-F]{32}"))) << id;
  EXPECT_EQ(report.at("logger"), "test-plugin");
  EXPECT_EQ(report.at("level"), "error");
  EXPECT_EQ(report.at("sdk"), (Json{{"name", "test-plugin"}, {"version", "2.5.1"}}));
  EXPECT_TRUE(std::regex_match(report.at("timestamp").get<std::string>(),
                               std::regex("\\d{4}-\\d{2}-\\d{2} \\d{2}:\\d{2}:\\d{2}")));
  const auto& values = report.at("exception").at("values");
  ASSERT_EQ(values.size(), 1U);
  EXPECT_EQ(values[0].at("value"), "tracker state corrupted");
  EXPECT_NE(values[0].at("type").get<std::string>().find("TAVSDKFailure"), std::string::npos);
  const auto& frames = values[0].at("stacktrace").at("frames");
  ASSERT_FALSE(frames.empty()) << "the failure records where it was thrown";
  EXPECT_TRUE(frames[0].at("function").is_string());
  EXPECT_EQ(report.at("tags").at("environment_key"), "envkey42");
  EXPECT_EQ(report.at("tags").size(), 4U);
}

TEST_F(ErrorReportE2E, SwitchedOffReportingStillDisablesButSendsNothing) {
  TAVSDKCore::setSentryEnabled(false);
  startFailingView("broken");
  ASSERT_TRUE(TAVSDKTransport::shutdown(std::chrono::seconds(10)));
  EXPECT_TRUE(server.requests().empty());
}

TEST(ErrorReportDetail, ForeignFailureHasNoFramesAndNoEnvironmentTag) {
  TAVSDKCorePlayer player;
  const auto report = player.buildSentryDetailWithException("play", std::runtime_error("x"));
  EXPECT_EQ(report.at("exception").at("values")[0].at("stacktrace"),
            (Json{{"frames", Json::array()}}));
  EXPECT_FALSE(report.at("tags").contains("environment_key"));
  EXPECT_EQ(report.at("tags").size(), 3U);
  EXPECT_EQ(report.at("logger"), "unknown") << "a player that never named its plugin";
}

}  // namespace
}  // namespace tav::test
