#include "transport/JsonText.h"

#include <cmath>
#include <utility>
#include <vector>

namespace tav::detail {
namespace {

constexpr const char* kJsonErrorDomain = "tav.json";
constexpr std::int64_t kNonFiniteNumberCode = 1;
constexpr std::int64_t kTooDeepCode = 3;

struct Scan {
  bool tooDeep = false;
  bool nonFinite = false;
};

// One iterative walk for both checks; stops at the first level beyond `limit`.
Scan scan(const nlohmann::json& value, std::size_t limit) {
  Scan found;
  std::vector<std::pair<const nlohmann::json*, std::size_t>> pending{{&value, 0}};
  while (!pending.empty()) {
    const auto [node, depth] = pending.back();
    pending.pop_back();
    if (node->is_number_float()) {
      found.nonFinite =
          found.nonFinite || !std::isfinite(node->get_ref<const nlohmann::json::number_float_t&>());
      continue;
    }
    if (!node->is_structured()) continue;
    if (depth + 1 > limit) {
      found.tooDeep = true;
      return found;
    }
    for (const auto& child : *node) {
      if (child.is_structured() || child.is_number_float()) pending.emplace_back(&child, depth + 1);
    }
  }
  return found;
}

}  // namespace

TAVSDKJsonError tooDeepError() {
  return {kJsonErrorDomain, kTooDeepCode, "JSON nested too deeply"};
}

std::optional<std::string> toJsonText(const nlohmann::json& value, int indent,
                                      TAVSDKJsonError* error) {
  const Scan found = scan(value, kMaxBatchJsonDepth);
  if (found.tooDeep) {
    if (error != nullptr) *error = tooDeepError();
    return std::nullopt;
  }
  if (found.nonFinite) {
    if (error != nullptr) {
      *error = {kJsonErrorDomain, kNonFiniteNumberCode, "non-finite number in JSON text"};
    }
    return std::nullopt;
  }
  try {
    return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::strict);
  } catch (const nlohmann::json::exception& e) {
    if (error != nullptr) *error = {kJsonErrorDomain, e.id, e.what()};
    return std::nullopt;
  }
}

}  // namespace tav::detail
