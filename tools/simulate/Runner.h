#pragma once
// Plays a list of facade calls (the call form of tav/core/TAVSDKEventLog.h)
// through the real library in virtual time: the library's clock is one shared
// virtual clock that the runner moves to each call's time, waiting between
// calls for the virtual gap divided by the speed.

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tav/platform/TAVSDKTiming.h"

namespace tav::simulate {

struct RunOptions {
  double speed = 100.0;              // virtual ms per real ms; 0: no waiting at all
  std::int64_t idleSkipMs = 10'000;  // virtual gaps at least this long pass at once
  bool progress = true;              // a progress line on `out`
  std::FILE* out = stdout;
};

struct RunStats {
  std::size_t calls = 0;
  std::size_t refused = 0;     // malformed calls, skipped
  std::int64_t virtualMs = 0;  // virtual time from the first call to the last
  double realSeconds = 0.0;
};

class Runner {
 public:
  /// Installs a clock factory that answers `clock` for every component made
  /// from now on; restored to the default when the runner is destroyed.
  Runner(std::shared_ptr<TAVSDKVirtualClock> clock, RunOptions options);
  ~Runner();
  Runner(const Runner&) = delete;
  Runner& operator=(const Runner&) = delete;

  /// Makes every call at (the clock's time at the start) + (its "t" minus the
  /// first call's "t"), in order. Calls are sorted by "t" already.
  RunStats run(const std::vector<nlohmann::json>& calls, const std::string& label);

 private:
  std::shared_ptr<TAVSDKVirtualClock> _clock;
  RunOptions _options;
};

}  // namespace tav::simulate
