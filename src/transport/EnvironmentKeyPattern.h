#pragma once
// The environment-key pattern "^[a-z0-9]+$" (lower-case ASCII letters and digits,
// at least one).

#include <optional>
#include <string>

namespace tav::detail {

/// Whether the whole `key` matches the pattern; nullopt when the pattern could
/// not be compiled.
[[nodiscard]] std::optional<bool> matchesEnvironmentKeyPattern(const std::string& key);

}  // namespace tav::detail
