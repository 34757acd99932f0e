#pragma once
// Installs test-only transport overrides for one scope and clears them after.

#include <functional>

#include "transport/TransportOverrides.h"

namespace tav::test {

class ScopedTransportOverrides {
 public:
  /// `configure` fills in the overrides, starting from none.
  explicit ScopedTransportOverrides(
      const std::function<void(detail::TransportOverrides&)>& configure) {
    detail::TransportOverrides overrides;
    configure(overrides);
    detail::setTransportOverrides(std::move(overrides));
  }
  ~ScopedTransportOverrides() { detail::setTransportOverrides({}); }
  ScopedTransportOverrides(const ScopedTransportOverrides&) = delete;
  ScopedTransportOverrides& operator=(const ScopedTransportOverrides&) = delete;
};

}  // namespace tav::test
