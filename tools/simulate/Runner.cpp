#include "Runner.h"

#include <unistd.h>

#include <chrono>
#include <thread>

#include "tav/core/TAVSDKEventLog.h"

namespace tav::simulate {
namespace {

std::string clockText(std::int64_t ms) {
  const std::int64_t s = ms / 1000;
  char text[32];
  std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld", static_cast<long long>(s / 3600),
                static_cast<long long>(s / 60 % 60), static_cast<long long>(s % 60));
  return text;
}

}  // namespace

Runner::Runner(std::shared_ptr<TAVSDKVirtualClock> clock, RunOptions options)
    : _clock(std::move(clock)), _options(options) {
  TAVSDKClock::setFactory([c = _clock] { return c; });
}

Runner::~Runner() {
  TAVSDKClock::setFactory(nullptr);
}

RunStats Runner::run(const std::vector<nlohmann::json>& calls, const std::string& label) {
  RunStats stats;
  if (calls.empty()) return stats;
  const auto realStart = std::chrono::steady_clock::now();
  const bool tty = _options.progress && isatty(fileno(_options.out)) != 0;
  const std::int64_t first = calls.front().value("t", std::int64_t{0});
  const std::int64_t last = calls.back().value("t", first);
  const std::int64_t base = _clock->now();
  int shownQuarter = 0;
  auto lastShown = realStart;
  const auto show = [&](std::int64_t at, bool done) {
    const std::int64_t span = std::max<std::int64_t>(1, last - first);
    const int percent = done ? 100 : static_cast<int>((at - first) * 100 / span);
    if (tty) {
      std::fprintf(_options.out, "\r  %-28s %3d%%  virtual %s / %s", label.c_str(), percent,
                   clockText(at - first).c_str(), clockText(last - first).c_str());
      if (done) std::fputc('\n', _options.out);
    } else if (done || percent / 25 > shownQuarter) {
      shownQuarter = percent / 25;
      std::fprintf(_options.out, "  %-28s %3d%%  virtual %s\n", label.c_str(), percent,
                   clockText(at - first).c_str());
    }
    std::fflush(_options.out);
  };

  std::int64_t previous = first;
  for (const auto& call : calls) {
    const std::int64_t t = call.value("t", previous);
    const std::int64_t gap = t - previous;
    if (gap > 0 && _options.speed > 0 && gap < _options.idleSkipMs) {
      std::this_thread::sleep_for(std::chrono::microseconds(
          static_cast<std::int64_t>(static_cast<double>(gap) * 1000.0 / _options.speed)));
    }
    previous = std::max(previous, t);
    _clock->set(base + (previous - first));
    ++stats.calls;
    if (!TAVSDKEventLog::replayCall(call)) {
      ++stats.refused;
      std::fprintf(stderr, "tav-simulate: skipped a malformed call: %.200s\n", call.dump().c_str());
    }
    const auto now = std::chrono::steady_clock::now();
    if (_options.progress && now - lastShown > std::chrono::milliseconds(200)) {
      lastShown = now;
      show(previous, false);
    }
  }
  if (_options.progress) show(last, true);
  stats.virtualMs = last - first;
  stats.realSeconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - realStart).count();
  return stats;
}

}  // namespace tav::simulate
