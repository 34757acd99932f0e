#include "transport/TransportOverrides.h"

#include <mutex>
#include <utility>

namespace tav::detail {
namespace {

std::mutex& overridesMutex() {
  static std::mutex m;
  return m;
}

TransportOverrides& overridesSlot() {
  static auto* slot = new TransportOverrides();  // intentionally never destroyed
  return *slot;
}

}  // namespace

void setTransportOverrides(TransportOverrides overrides) {
  TransportOverrides old;
  {
    const std::lock_guard lock(overridesMutex());
    old = std::exchange(overridesSlot(), std::move(overrides));
  }
}

TransportOverrides transportOverrides() {
  const std::lock_guard lock(overridesMutex());
  return overridesSlot();
}

}  // namespace tav::detail
