#include "support/ManualScheduler.h"

#include <algorithm>
#include <utility>

namespace tav::test {

void ManualScheduler::schedule(Ms delay, Callback callback) {
  const std::lock_guard lock(_mutex);
  _timers.emplace(_now + std::max(delay, Ms(0)), Timer{delay, std::move(callback)});
  _armedDelays.push_back(delay);
  _armed.notify_all();
}

std::size_t ManualScheduler::advance(Ms by) {
  std::unique_lock lock(_mutex);
  const Ms target = _now + by;
  std::size_t ran = 0;
  while (!_timers.empty() && _timers.begin()->first <= target) {
    const auto first = _timers.begin();
    _now = std::max(_now, first->first);
    Callback callback = std::move(first->second.callback);
    _timers.erase(first);
    lock.unlock();
    if (callback) callback();
    ++ran;
    callback = nullptr;
    lock.lock();
  }
  _now = target;
  return ran;
}

void ManualScheduler::clear() {
  std::multimap<Ms, Timer> dropped;
  {
    const std::lock_guard lock(_mutex);
    dropped.swap(_timers);
  }
}

ManualScheduler::Ms ManualScheduler::now() const {
  const std::lock_guard lock(_mutex);
  return _now;
}

std::size_t ManualScheduler::pendingCount() const {
  const std::lock_guard lock(_mutex);
  return _timers.size();
}

std::vector<ManualScheduler::Ms> ManualScheduler::pendingDelays() const {
  const std::lock_guard lock(_mutex);
  std::vector<Ms> out;
  for (const auto& [due, timer] : _timers)
    out.push_back(timer.delay);
  return out;
}

std::vector<ManualScheduler::Ms> ManualScheduler::armedDelays() const {
  const std::lock_guard lock(_mutex);
  return _armedDelays;
}

bool ManualScheduler::waitForPending(std::size_t count, Ms deadline) const {
  std::unique_lock lock(_mutex);
  return _armed.wait_for(lock, deadline, [&] { return _timers.size() >= count; });
}

}  // namespace tav::test
