#pragma once
// Randomness from the operating system's CSPRNG.

#include <cstdint>
#include <string>

namespace tav::platform {

/// A random (version 4) UUID in its 36-character upper-case text form.
std::string randomUUID();

/// A uniform random integer in [0, bound), without modulo bias. bound > 0.
std::uint32_t randomBelow(std::uint32_t bound);

}  // namespace tav::platform
