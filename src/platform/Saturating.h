#pragma once
// Saturating 64-bit arithmetic for the trackers' times and playheads. They come
// from the integration's records and may hold any value, so a plain difference
// or sum can overflow, which is undefined behaviour; these stop at the limits.

#include <cstdint>
#include <limits>

namespace tav::platform {

[[nodiscard]] inline std::int64_t subSaturated(std::int64_t a, std::int64_t b) {
  std::int64_t out = 0;
  if (!__builtin_sub_overflow(a, b, &out)) return out;
  return b < 0 ? std::numeric_limits<std::int64_t>::max()
               : std::numeric_limits<std::int64_t>::min();
}

[[nodiscard]] inline std::int64_t addSaturated(std::int64_t a, std::int64_t b) {
  std::int64_t out = 0;
  if (!__builtin_add_overflow(a, b, &out)) return out;
  return b < 0 ? std::numeric_limits<std::int64_t>::min()
               : std::numeric_limits<std::int64_t>::max();
}

}  // namespace tav::platform
