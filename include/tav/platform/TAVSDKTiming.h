#pragma once
// Clocks. Every component that reads time holds its own clock (property
// `currentTime`) made by TAVSDKClock::make(), so that hosts, tests and the
// simulator can substitute a virtual clock for all of them at once.

#include <atomic>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>

namespace tav {

/// The clock interface: `now` answers milliseconds since the Unix epoch.
/// Implementations must be safe to read from any thread.
class TAVSDKTiming {
 public:
  virtual ~TAVSDKTiming() = default;
  [[nodiscard]] virtual std::int64_t now() const = 0;
};

/// Wall clock anchored once at creation, then advanced by the time since boot,
/// so that a later change of the device's wall clock does not move it.
class TAVSDKCurrentTime final : public TAVSDKTiming {
 public:
  TAVSDKCurrentTime();
  [[nodiscard]] std::int64_t now() const override;
  /// Milliseconds since boot, or -1000.0 when the boot time cannot be read.
  [[nodiscard]] double uptime() const;

  [[nodiscard]] double originRealTime() const { return _originRealTime; }
  void setOriginRealTime(double ms) { _originRealTime = ms; }
  [[nodiscard]] double originBootTime() const { return _originBootTime; }
  void setOriginBootTime(double ms) { _originBootTime = ms; }

 private:
  double _originRealTime = 0.0;
  double _originBootTime = 0.0;
};

/// A clock that only moves when told to. Shared by every component of a test or
/// a simulation through TAVSDKClock::setFactory. Thread-safe.
class TAVSDKVirtualClock final : public TAVSDKTiming {
 public:
  explicit TAVSDKVirtualClock(std::int64_t startMs = 0) : _now(startMs) {}
  [[nodiscard]] std::int64_t now() const override { return _now.load(); }
  void set(std::int64_t ms) { _now.store(ms); }
  void advance(std::int64_t ms) { _now.fetch_add(ms); }

 private:
  std::atomic<std::int64_t> _now;
};

/// The one clock factory. The default factory makes a new TAVSDKCurrentTime per
/// call; a host or test may install another (for example one that always answers
/// the same TAVSDKVirtualClock). Only components created after the change use it.
class TAVSDKClock {
 public:
  using Factory = std::function<std::shared_ptr<TAVSDKTiming>()>;
  [[nodiscard]] static std::shared_ptr<TAVSDKTiming> make();
  /// Installs a factory; an empty function restores the default.
  static void setFactory(Factory factory);
};

/// A clock property that can be read and replaced from different threads.
class TAVSDKClockSlot {
 public:
  TAVSDKClockSlot() : _clock(TAVSDKClock::make()) {}
  [[nodiscard]] std::shared_ptr<TAVSDKTiming> get() const {
    const std::lock_guard lock(_mutex);
    return _clock;
  }
  void set(std::shared_ptr<TAVSDKTiming> clock) {
    const std::lock_guard lock(_mutex);
    _clock = std::move(clock);
  }
  [[nodiscard]] std::int64_t now() const { return get()->now(); }

 private:
  mutable std::mutex _mutex;
  std::shared_ptr<TAVSDKTiming> _clock;
};

}  // namespace tav
