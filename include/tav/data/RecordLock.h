#pragma once
// RecordLock: the lock of one data record. Writers take it exclusively and may
// take it again on the same thread (recursive); readers share it. A reader on
// the thread that holds it exclusively passes straight through, so a writer
// may read its own record. Uncontended, a lock and unlock pair is one atomic
// read-modify-write each way; a contended thread sleeps on the lock word
// (std::atomic wait/notify) instead of spinning.
//
// Meets the Lockable (lock/unlock) and shared-lockable
// (lock_shared/unlock_shared) requirements used by std::lock_guard,
// std::unique_lock and std::shared_lock. Shared holds must not be upgraded and
// must be released before the exclusive hold of the same thread is.

#include <atomic>
#include <cstdint>
#include <thread>

namespace tav {

class RecordLock {
 public:
  RecordLock() = default;
  RecordLock(const RecordLock&) = delete;
  RecordLock& operator=(const RecordLock&) = delete;

  void lock() {
    const auto self = std::this_thread::get_id();
    if (_owner.load(std::memory_order_relaxed) == self) {
      ++_depth;
      return;
    }
    std::uint32_t state = _state.load(std::memory_order_relaxed);
    for (;;) {
      // Free means no writer and no reader; a sleepers' mark is kept.
      if ((state & ~kWaiting) == 0) {
        if (_state.compare_exchange_weak(state, state | kWriter, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
          break;
        }
        continue;
      }
      sleep(state);
      state = _state.load(std::memory_order_relaxed);
    }
    _owner.store(self, std::memory_order_relaxed);
    _depth = 1;
  }

  void unlock() {
    if (--_depth > 0) return;
    _owner.store(std::thread::id(), std::memory_order_relaxed);
    if ((_state.exchange(0, std::memory_order_release) & kWaiting) != 0) _state.notify_all();
  }

  void lock_shared() {
    if (_owner.load(std::memory_order_relaxed) == std::this_thread::get_id()) return;
    std::uint32_t state = _state.load(std::memory_order_relaxed);
    for (;;) {
      if ((state & kWriter) == 0) {
        if (_state.compare_exchange_weak(state, state + 1, std::memory_order_acquire,
                                         std::memory_order_relaxed)) {
          return;
        }
        continue;
      }
      sleep(state);
      state = _state.load(std::memory_order_relaxed);
    }
  }

  void unlock_shared() {
    if (_owner.load(std::memory_order_relaxed) == std::this_thread::get_id()) return;
    const std::uint32_t before = _state.fetch_sub(1, std::memory_order_release);
    if ((before & kReaders) == 1 && (before & kWaiting) != 0) {
      // The last reader leaves while someone sleeps: wake them all to retry.
      _state.fetch_and(~kWaiting, std::memory_order_relaxed);
      _state.notify_all();
    }
  }

 private:
  static constexpr std::uint32_t kWriter = 1U << 31;
  static constexpr std::uint32_t kWaiting = 1U << 30;
  static constexpr std::uint32_t kReaders = kWaiting - 1;

  // Marks the word as having sleepers and sleeps while it still reads `state`.
  // Whoever clears the mark wakes every sleeper.
  void sleep(std::uint32_t state) {
    if ((state & kWaiting) == 0) {
      if (!_state.compare_exchange_strong(state, state | kWaiting, std::memory_order_relaxed)) {
        return;  // changed meanwhile: the caller retries
      }
      state |= kWaiting;
    }
    _state.wait(state, std::memory_order_relaxed);
  }

  std::atomic<std::uint32_t> _state{0};  // writer bit, sleepers bit, reader count
  std::atomic<std::thread::id> _owner{};
  int _depth = 0;  // written only by the owner
};

}  // namespace tav
