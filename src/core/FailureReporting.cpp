#include "core/FailureReporting.h"

#include "tav/platform/TAVSDKLog.h"

namespace tav {

void reportPlayerFailure(const std::string& eventType, const std::exception& failure,
                         const std::optional<std::string>& /*pluginName*/,
                         const std::optional<std::string>& /*pluginVersion*/) {
  TAVSDKLog::error("TAVSDK-ERROR - player disabled after a failure while handling \"" + eventType +
                   "\": " + failure.what());
}

}  // namespace tav
