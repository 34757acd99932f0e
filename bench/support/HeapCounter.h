#pragma once
// Heap accounting for the benchmark binaries: they replace the global operator
// new and delete (HeapCounter.cpp) to count allocations and the bytes that are
// live. Only the C++ heap is seen (libcurl's malloc calls are not).

#include <cstdint>

namespace tav::bench {

struct HeapSnapshot {
  std::uint64_t allocations = 0;  // operator new calls since the process started
  std::int64_t liveBytes = 0;     // requested bytes not yet deleted
};

/// The counters now (every thread together).
[[nodiscard]] HeapSnapshot heapSnapshot();

}  // namespace tav::bench
