#include "platform/Random.h"

#include <array>
#include <cstdio>
#include <random>

#if defined(__linux__)
#include <sys/random.h>
#endif
#if defined(__APPLE__)
#include <stdlib.h>
#endif

namespace tav::platform {
namespace {

void fillRandom(void* out, std::size_t size) {
  auto* bytes = static_cast<unsigned char*>(out);
#if defined(__APPLE__)
  arc4random_buf(bytes, size);
#elif defined(__linux__)
  std::size_t done = 0;
  while (done < size) {
    const ssize_t n = getrandom(bytes + done, size - done, 0);
    if (n <= 0) break;
    done += static_cast<std::size_t>(n);
  }
  if (done == size) return;
  // getrandom unavailable (very old kernel): fall back to std::random_device.
  std::random_device rd;
  for (; done < size; ++done)
    bytes[done] = static_cast<unsigned char>(rd());
#else
  std::random_device rd;
  for (std::size_t i = 0; i < size; ++i)
    bytes[i] = static_cast<unsigned char>(rd());
#endif
}

}  // namespace

std::string randomUUID() {
  std::array<unsigned char, 16> b{};
  fillRandom(b.data(), b.size());
  b[6] = static_cast<unsigned char>((b[6] & 0x0FU) | 0x40U);
  b[8] = static_cast<unsigned char>((b[8] & 0x3FU) | 0x80U);
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(36);
  for (std::size_t i = 0; i < b.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) out.push_back('-');
    out.push_back(kHex[b[i] >> 4U]);
    out.push_back(kHex[b[i] & 0x0FU]);
  }
  return out;
}

std::uint32_t randomBelow(std::uint32_t bound) {
  if (bound <= 1) return 0;
  // Reject the values above the largest multiple of bound (no modulo bias).
  const std::uint32_t limit = UINT32_MAX - (UINT32_MAX % bound);
  std::uint32_t r = 0;
  do {
    fillRandom(&r, sizeof(r));
  } while (r >= limit);
  return r % bound;
}

}  // namespace tav::platform
