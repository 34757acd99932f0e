#include "data/JsonDepth.h"

#include <utility>
#include <vector>

namespace tav::detail {

bool jsonDeeperThan(const nlohmann::json& value, std::size_t limit) {
  if (!value.is_structured()) return false;
  std::vector<std::pair<const nlohmann::json*, std::size_t>> pending{{&value, 1}};
  while (!pending.empty()) {
    const auto [node, depth] = pending.back();
    pending.pop_back();
    if (depth > limit) return true;
    for (const auto& child : *node) {
      if (child.is_structured()) pending.emplace_back(&child, depth + 1);
    }
  }
  return false;
}

}  // namespace tav::detail
