// GCC 12 reports a false "maybe uninitialized" inside libstdc++'s <regex> when
// optimising with sanitizers; it concerns the library's own code.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic ignored "-Wmaybe-uninitialized"
#endif

#include "transport/EnvironmentKeyPattern.h"

#include <regex>

namespace tav::detail {

std::optional<bool> matchesEnvironmentKeyPattern(const std::string& key) {
  try {
    static const std::regex pattern("^[a-z0-9]+$");
    return std::regex_match(key, pattern);
  } catch (const std::regex_error&) {
    return std::nullopt;  // not compiled; a later call tries again
  }
}

}  // namespace tav::detail
