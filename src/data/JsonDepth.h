#pragma once
// Nesting limit for JSON values that come from the integration. nlohmann::json
// copies and serialises recursively, so a value nested many thousands of levels
// deep would exhaust the stack of whichever thread copies it next; such values
// are refused where they enter the library (records, session data, batches).

#include <cstddef>

#include <nlohmann/json.hpp>

namespace tav::detail {

/// Levels of arrays and objects a record value may have (a scalar has none).
inline constexpr std::size_t kMaxJsonDepth = 128;
/// Levels a whole batch may have: record values sit a few levels down in it.
inline constexpr std::size_t kMaxBatchJsonDepth = 2 * kMaxJsonDepth;

/// True when `value` nests arrays and objects more than `limit` levels deep.
/// Iterative; stops at the first level beyond the limit.
[[nodiscard]] bool jsonDeeperThan(const nlohmann::json& value, std::size_t limit);

}  // namespace tav::detail
