// The error report's request: one POST to the error-tracking host, no retry.

#include <string>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/TAVSDKDispatcher.h"
#include "tav/transport/TAVSDKHttpClient.h"
#include "tav/transport/TAVSDKTransport.h"
#include "tav_build_config.h"
#include "transport/TransportOverrides.h"

namespace tav {

void TAVSDKDispatcher::handleExceptionPluginNamePluginVersion(const Json& report,
                                                              const std::string& pluginName,
                                                              const std::string& pluginVersion) {
  // The timestamp is in milliseconds, as the receiving side expects from this client.
  const std::int64_t now = TAVSDKClock::make()->now();
  const auto overrides = detail::transportOverrides();
  TAVSDKHttpRequest request;
  request.method = "POST";
  const std::string base = overrides.errorReportBaseUrl.empty()
                               ? std::string("https://") + build::kSentryHost
                               : overrides.errorReportBaseUrl;
  request.url = base + "/api/1195577/store/";
  request.headers = {{"X-Sentry-Auth",
                      "Sentry sentry_version=7,sentry_client=" + pluginName + "/" + pluginVersion +
                          ",sentry_timestamp=" + std::to_string(now) + ",sentry_key=" +
                          build::kSentryKey + ",sentry_secret=" + build::kSentrySecret},
                     {"Accept-Encoding", "gzip"},
                     {"Content-Type", "application/json"}};
  try {
    request.body = report.dump(-1, ' ', false, Json::error_handler_t::strict);
  } catch (const Json::exception&) {
    return;  // an unserialisable report is dropped silently
  }
  auto client = overrides.httpClient ? overrides.httpClient : TAVSDKTransport::httpClient();
  client->send(std::move(request), [](const TAVSDKHttpResult&) {});
}

}  // namespace tav
