#include "SequenceSet.h"

#include <iterator>

namespace tav::collector {

bool SequenceSet::contains(std::int64_t n) const {
  auto it = _runs.upper_bound(n);
  if (it == _runs.begin()) return false;
  --it;
  return n <= it->second;
}

bool SequenceSet::insert(std::int64_t n) {
  if (contains(n)) return false;
  auto next = _runs.upper_bound(n);  // first run starting after n
  const bool joinsPrevious = next != _runs.begin() && std::prev(next)->second + 1 == n;
  const bool joinsNext = next != _runs.end() && next->first == n + 1;
  if (joinsPrevious && joinsNext) {
    std::prev(next)->second = next->second;
    _runs.erase(next);
  } else if (joinsPrevious) {
    std::prev(next)->second = n;
  } else if (joinsNext) {
    const std::int64_t last = next->second;
    _runs.erase(next);
    _runs.emplace(n, last);
  } else {
    _runs.emplace(n, n);
  }
  return true;
}

std::vector<std::pair<std::int64_t, std::int64_t>> SequenceSet::missing() const {
  std::vector<std::pair<std::int64_t, std::int64_t>> gaps;
  std::int64_t expected = 1;
  for (const auto& [from, to] : _runs) {
    if (from > expected) gaps.emplace_back(expected, from - 1);
    expected = to + 1;
  }
  return gaps;
}

std::int64_t SequenceSet::missingCount() const {
  std::int64_t count = 0;
  for (const auto& [from, to] : missing())
    count += to - from + 1;
  return count;
}

}  // namespace tav::collector
