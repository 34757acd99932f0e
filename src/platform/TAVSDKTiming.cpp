#include <chrono>
#include <ctime>

#include "tav/platform/TAVSDKTiming.h"

#if defined(__APPLE__)
#include <sys/sysctl.h>
#include <sys/time.h>
#endif

namespace tav {
namespace {

constexpr double kUptimeFailure = -1000.0;

double wallClockMs() {
  const auto since = std::chrono::system_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::milli>(since).count();
}

std::mutex& factoryMutex() {
  static std::mutex m;
  return m;
}

TAVSDKClock::Factory& factorySlot() {
  static TAVSDKClock::Factory f;
  return f;
}

}  // namespace

TAVSDKCurrentTime::TAVSDKCurrentTime()
    : _originRealTime(wallClockMs()), _originBootTime(uptime()) {}

double TAVSDKCurrentTime::uptime() const {
#if defined(__APPLE__)
  struct timeval now {};
  gettimeofday(&now, nullptr);
  struct timeval boot {};
  size_t size = sizeof(boot);
  int mib[2] = {CTL_KERN, KERN_BOOTTIME};
  if (sysctl(mib, 2, &boot, &size, nullptr, 0) == -1 || boot.tv_sec == 0) {
    return kUptimeFailure;
  }
  const auto micro = static_cast<std::int32_t>(now.tv_usec - boot.tv_usec);
  return (static_cast<double>(now.tv_sec - boot.tv_sec) + micro / 1e6) * 1000.0;
#elif defined(CLOCK_BOOTTIME)
  struct timespec ts {};
  if (clock_gettime(CLOCK_BOOTTIME, &ts) == -1) {
    return kUptimeFailure;
  }
  return (static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9) * 1000.0;
#else
  const auto since = std::chrono::steady_clock::now().time_since_epoch();
  return std::chrono::duration<double, std::milli>(since).count();
#endif
}

std::int64_t TAVSDKCurrentTime::now() const {
  return static_cast<std::int64_t>(_originRealTime + (uptime() - _originBootTime));
}

std::shared_ptr<TAVSDKTiming> TAVSDKClock::make() {
  Factory factory;
  {
    const std::lock_guard lock(factoryMutex());
    factory = factorySlot();
  }
  if (factory) {
    if (auto clock = factory()) return clock;
  }
  return std::make_shared<TAVSDKCurrentTime>();
}

void TAVSDKClock::setFactory(Factory factory) {
  const std::lock_guard lock(factoryMutex());
  factorySlot() = std::move(factory);
}

}  // namespace tav
