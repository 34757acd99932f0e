// A failure inside a real facade call disables that player only, and one error
// report reaches a local error-tracking server over real HTTP.

#include <algorithm>
#include <cctype>

#include "e2e/TestServer.h"
#include "support/PipelineFixture.h"
#include "support/ScopedTransportOverrides.h"

namespace tav::test {
namespace {

// True when `text` matches `pattern`, where '9' stands for a digit, 'X' for an
// upper-case hex digit, 'x' for a lower-case one, and other characters for themselves.
bool matchesShape(const std::string& text, const std::string& pattern) {
  if (text.size() != pattern.size()) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const auto c = static_cast<unsigned char>(text[i]);
    const char p = pattern[i];
    const bool ok = p == '9'   ? std::isdigit(c) != 0
                    : p == 'X' ? (std::isdigit(c) != 0 || (c >= 'A' && c <= 'F'))
                    : p == 'x' ? (std::isdigit(c) != 0 || (c >= 'a' && c <= 'f'))
                               : text[i] == p;
    if (!ok) return false;
  }
  return true;
}

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
  const std::string header = r.header("X-Sentry-Auth");
  const std::string prefix =
      "Sentry sentry_version=7,sentry_client=test-plugin/2.5.1,sentry_timestamp=";
  ASSERT_EQ(header.rfind(prefix, 0), 0U) << header;
  const auto keyAt = header.find(",sentry_key=");
  ASSERT_NE(keyAt, std::string::npos) << header;
  EXPECT_EQ(std::stoll(header.substr(prefix.size(), keyAt - prefix.size())), clock->now())
      << "milliseconds of the library clock";
  EXPECT_TRUE(matchesShape(header.substr(keyAt), ",sentry_key=" + std::string(32, 'x') +
                                                     ",sentry_secret=" + std::string(32, 'x')))
      << header;

  const auto report = Json::parse(r.body);
  EXPECT_EQ(r.body, report.dump()) << "compact JSON";
  const std::string id = report.at("event_id");
  EXPECT_TRUE(matchesShape(id, std::string(32, 'X'))) << id;
  EXPECT_EQ(report.at("logger"), "test-plugin");
  EXPECT_EQ(report.at("level"), "error");
  EXPECT_EQ(report.at("sdk"), (Json{{"name", "test-plugin"}, {"version", "2.5.1"}}));
  EXPECT_TRUE(matchesShape(report.at("timestamp"), "9999-99-99 99:99:99"));
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
