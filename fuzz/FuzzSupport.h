#pragma once
// Shared pieces of the fuzz targets: a reader that turns the fuzz input into
// decisions, a generator of hostile JSON values, and fake transport ports
// (queued timers, an HTTP client that never touches the network) that a target
// drains after each step.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json.hpp>

#include "tav/transport/TAVSDKHttpClient.h"
#include "tav/transport/TAVSDKTimerScheduler.h"

/// A property the target checks; a violation aborts, which libFuzzer and the
/// replay program both report as a failure.
#define TAV_FUZZ_CHECK(condition)                                                              \
  do {                                                                                         \
    if (!(condition)) {                                                                        \
      std::fprintf(stderr, "fuzz check failed: %s (%s:%d)\n", #condition, __FILE__, __LINE__); \
      std::abort();                                                                            \
    }                                                                                          \
  } while (false)

namespace tav::fuzz {

using Json = nlohmann::json;

/// Drops the library's log messages (they would flood the fuzzer's output)
/// unless the environment sets TAV_FUZZ_LOG. Idempotent.
void quietLog();

/// Reads the input front to back; answers zeros once it is used up.
class ByteReader {
 public:
  ByteReader(const std::uint8_t* data, std::size_t size) : _data(data), _size(size) {}

  [[nodiscard]] bool empty() const { return _pos >= _size; }
  std::uint8_t byte() { return empty() ? 0 : _data[_pos++]; }
  bool flag() { return (byte() & 1U) != 0; }
  /// 0 ... n-1 (n > 0), from one or two bytes.
  std::uint32_t below(std::uint32_t n);
  /// Little-endian, `bytes` bytes (at most 8).
  std::uint64_t number(unsigned bytes);
  /// Any double, NaN and infinities included.
  double anyDouble();
  /// A length (one byte, or up to `max` with a prefix) and that many raw bytes.
  std::string text(std::size_t max);
  /// Everything not read yet.
  std::string_view rest();

 private:
  const std::uint8_t* _data;
  std::size_t _size;
  std::size_t _pos = 0;
};

struct ValueLimits {
  /// Levels built by ordinary recursion of the generator.
  int maxDepth = 4;
  /// Members of one generated array or object.
  std::uint32_t maxItems = 6;
  /// Levels of one deliberately deep value (built without recursion).
  std::uint32_t maxDeep = 100000;
  /// Length of one deliberately huge string.
  std::uint32_t maxHuge = 1U << 20;
};

/// A key: one of `keys` (when not empty) or raw bytes.
std::string makeKey(ByteReader& in, const std::vector<std::string>& keys);
/// Any JSON value: numbers as text and as numbers, non-finite numbers, invalid
/// UTF-8, deep nesting, huge strings, nested objects under `keys`.
Json makeValue(ByteReader& in, const std::vector<std::string>& keys, const ValueLimits& limits,
               int depth = 0);
/// An object of up to `limits.maxItems` members under `keys` (null values included).
Json makeObject(ByteReader& in, const std::vector<std::string>& keys, const ValueLimits& limits,
                int depth = 0);

/// Timers wait in a queue until the target runs them, regardless of their delay.
class QueuedScheduler : public TAVSDKTimerScheduler {
 public:
  void schedule(std::chrono::milliseconds delay, Callback callback) override;
  /// Runs queued timers (and those they arm) until none is left or `limit` ran.
  std::size_t runQueued(std::size_t limit);
  [[nodiscard]] std::size_t pending() const { return _timers.size(); }
  void clear() { _timers.clear(); }

 private:
  std::deque<Callback> _timers;
};

/// Records each request's size, checks its body and completes it later, when
/// the target asks, with a transport error or a response as `failing` says.
class FakeHttpClient : public TAVSDKHttpClient {
 public:
  void send(TAVSDKHttpRequest request, Completion completion) override;
  /// Completes queued requests until none is left or `limit` completed.
  std::size_t completeQueued(std::size_t limit);
  [[nodiscard]] std::size_t pending() const { return _open.size(); }
  void clear() { _open.clear(); }

  /// Outcome of the next completions: a transport error when true.
  bool failing = false;
  std::size_t requests = 0;
  std::size_t bodyBytes = 0;

 private:
  std::deque<Completion> _open;
};

/// Runs timers and completions until both are quiet; false when `limit` steps
/// were not enough (a retry loop that does not end).
bool drain(QueuedScheduler& timers, FakeHttpClient& http, std::size_t limit);

}  // namespace tav::fuzz
