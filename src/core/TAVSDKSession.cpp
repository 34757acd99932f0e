#include "tav/core/TAVSDKSession.h"

#include "platform/Random.h"
#include "tav/data/TAVSDKEnvironmentData.h"

namespace tav {

void TAVSDKSession::start() {
  startSession(_currentTime.now());
}

void TAVSDKSession::startSession(std::int64_t t) {
  _sessionId = platform::randomUUID();
  _start = t;
  _expires = t + kSessionLengthMs;
}

void TAVSDKSession::updateEnvironmentData(TAVSDKEnvironmentData& environment) {
  const std::int64_t now = _currentTime.now();
  if (now > _expires) {
    startSession(now);
  } else {
    _expires = now + kSessionLengthMs;
  }
  environment.setSessionStart(_start);
  environment.setSessionExpires(_expires);
  environment.setSessionId(_sessionId);
}

}  // namespace tav
