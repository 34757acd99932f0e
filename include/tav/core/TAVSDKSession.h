#pragma once
// The viewer session: a random id that lives while events keep arriving; 25
// minutes (1,500,000 ms) without any event start a new one.
// Thread rules: driven by the facade's caller; `currentTime` is atomic.

#include <cstdint>
#include <memory>
#include <string>

#include "tav/platform/TAVSDKTiming.h"

namespace tav {

class TAVSDKEnvironmentData;

class TAVSDKSession {
 public:
  static constexpr std::int64_t kSessionLengthMs = 1500000;

  TAVSDKSession() = default;
  /// Starts a session at the clock's now.
  void start();
  /// Starts a session at `t` (ms since the epoch) with a new id.
  void startSession(std::int64_t t);
  /// Slides or renews the session, then writes start, expiry and id into `environment`.
  void updateEnvironmentData(TAVSDKEnvironmentData& environment);

  [[nodiscard]] const std::string& sessionId() const { return _sessionId; }
  [[nodiscard]] std::int64_t sessionStart() const { return _start; }
  [[nodiscard]] std::int64_t expires() const { return _expires; }
  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }

 private:
  std::string _sessionId;
  std::int64_t _start = 0;
  std::int64_t _expires = 0;
  TAVSDKClockSlot _currentTime;
};

}  // namespace tav
