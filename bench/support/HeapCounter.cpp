// Replaced global operator new/delete: each block carries its requested size in
// a header in front of it, so that delete can subtract it from the live bytes.

#include "HeapCounter.h"

#include <atomic>
#include <cstddef>
#include <cstdlib>
#include <new>

namespace {

std::atomic<std::uint64_t> gAllocations{0};
std::atomic<std::int64_t> gLiveBytes{0};

constexpr std::size_t kHeader = alignof(std::max_align_t);

void* allocate(std::size_t size, std::size_t alignment) {
  const std::size_t header = alignment > kHeader ? alignment : kHeader;
  void* block = nullptr;
  if (alignment <= kHeader) {
    block = std::malloc(header + size);  // NOLINT(cppcoreguidelines-no-malloc)
    if (block == nullptr) return nullptr;
  } else if (posix_memalign(&block, header, header + size) != 0) {
    return nullptr;
  }
  auto* user = static_cast<unsigned char*>(block) + header;
  reinterpret_cast<std::size_t*>(user)[-1] = size;
  gAllocations.fetch_add(1, std::memory_order_relaxed);
  gLiveBytes.fetch_add(static_cast<std::int64_t>(size), std::memory_order_relaxed);
  return user;
}

void release(void* pointer, std::size_t alignment) noexcept {
  if (pointer == nullptr) return;
  const std::size_t header = alignment > kHeader ? alignment : kHeader;
  auto* user = static_cast<unsigned char*>(pointer);
  const std::size_t size = reinterpret_cast<std::size_t*>(user)[-1];
  gLiveBytes.fetch_sub(static_cast<std::int64_t>(size), std::memory_order_relaxed);
  std::free(user - header);  // NOLINT(cppcoreguidelines-no-malloc)
}

void* allocateOrThrow(std::size_t size, std::size_t alignment) {
  void* pointer = allocate(size, alignment);
  if (pointer == nullptr) throw std::bad_alloc();
  return pointer;
}

}  // namespace

namespace tav::bench {

HeapSnapshot heapSnapshot() {
  return {gAllocations.load(std::memory_order_relaxed), gLiveBytes.load(std::memory_order_relaxed)};
}

}  // namespace tav::bench

// NOLINTBEGIN(misc-new-delete-overloads)
void* operator new(std::size_t size) {
  return allocateOrThrow(size, kHeader);
}
void* operator new[](std::size_t size) {
  return allocateOrThrow(size, kHeader);
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, kHeader);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
  return allocate(size, kHeader);
}
void* operator new(std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void* operator new[](std::size_t size, std::align_val_t alignment) {
  return allocateOrThrow(size, static_cast<std::size_t>(alignment));
}
void operator delete(void* pointer) noexcept {
  release(pointer, kHeader);
}
void operator delete[](void* pointer) noexcept {
  release(pointer, kHeader);
}
void operator delete(void* pointer, std::size_t) noexcept {
  release(pointer, kHeader);
}
void operator delete[](void* pointer, std::size_t) noexcept {
  release(pointer, kHeader);
}
void operator delete(void* pointer, std::align_val_t alignment) noexcept {
  release(pointer, static_cast<std::size_t>(alignment));
}
void operator delete[](void* pointer, std::align_val_t alignment) noexcept {
  release(pointer, static_cast<std::size_t>(alignment));
}
void operator delete(void* pointer, std::size_t, std::align_val_t alignment) noexcept {
  release(pointer, static_cast<std::size_t>(alignment));
}
void operator delete[](void* pointer, std::size_t, std::align_val_t alignment) noexcept {
  release(pointer, static_cast<std::size_t>(alignment));
}
// NOLINTEND(misc-new-delete-overloads)
