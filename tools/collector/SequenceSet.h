#pragma once
// A set of positive sequence numbers kept as disjoint closed intervals, so a
// contiguous run of any length costs one entry. Not thread-safe.

#include <cstdint>
#include <map>
#include <vector>

namespace tav::collector {

class SequenceSet {
 public:
  /// Adds `n`; false when it was already present.
  bool insert(std::int64_t n);
  [[nodiscard]] bool contains(std::int64_t n) const;
  [[nodiscard]] bool empty() const { return _runs.empty(); }
  [[nodiscard]] std::int64_t first() const { return _runs.empty() ? 0 : _runs.begin()->first; }
  [[nodiscard]] std::int64_t last() const { return _runs.empty() ? 0 : _runs.rbegin()->second; }
  /// Numbers absent between 1 and `last()`, as closed ranges [from, to].
  [[nodiscard]] std::vector<std::pair<std::int64_t, std::int64_t>> missing() const;
  /// How many numbers `missing()` covers.
  [[nodiscard]] std::int64_t missingCount() const;

 private:
  std::map<std::int64_t, std::int64_t> _runs;  // first -> last of each run
};

}  // namespace tav::collector
