#include "support/CountingHttpClient.h"

#include <nlohmann/json.hpp>

namespace tav::test {

CountingHttpClient::CountingHttpClient(std::shared_ptr<TAVSDKHttpClient> inner)
    : _inner(std::move(inner)) {}

void CountingHttpClient::send(TAVSDKHttpRequest request, Completion completion) {
  Attempt attempt;
  const auto body = nlohmann::json::parse(request.body, nullptr, false);
  if (body.is_object() && body.contains("events") && body["events"].is_array()) {
    const auto& events = body["events"];
    attempt.beacons = events.size();
    if (!events.empty() && events[0].is_object()) {
      attempt.batch = events[0].value("pinid", "") + ":" + events[0].value("psqno", "");
    }
  }
  std::size_t index = 0;
  {
    const std::lock_guard lock(_mutex);
    index = _attempts.size();
    _attempts.push_back(std::move(attempt));
    ++_inFlight;
  }
  _inner->send(std::move(request),
               [this, index, completion = std::move(completion)](TAVSDKHttpResult result) {
                 {
                   const std::lock_guard lock(_mutex);
                   Attempt& a = _attempts[index];
                   a.done = true;
                   a.error = result.error;
                   a.status = result.status;
                 }
                 if (completion) completion(std::move(result));
                 const std::lock_guard lock(_mutex);
                 --_inFlight;
                 _changed.notify_all();
               });
}

std::vector<CountingHttpClient::Attempt> CountingHttpClient::attempts() const {
  const std::lock_guard lock(_mutex);
  return _attempts;
}

std::size_t CountingHttpClient::inFlight() const {
  const std::lock_guard lock(_mutex);
  return _inFlight;
}

bool CountingHttpClient::waitIdle(std::chrono::milliseconds deadline) const {
  std::unique_lock lock(_mutex);
  return _changed.wait_for(lock, deadline, [this] { return _inFlight == 0; });
}

}  // namespace tav::test
