#pragma once
// One pending batch request, shared by the dispatcher's timer and the completion
// of its request. Its fields are touched by one attempt at a time (the timer
// that runs it, then the completion that follows), never concurrently.

#include <cstdint>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "tav/transport/TAVSDKBatchCallback.h"

namespace tav {

class HttpUserInfo {
 public:
  /// Failed attempts so far.
  std::int64_t failureCount = 0;
  /// Target of every attempt.
  std::string url;
  /// The batch as the queue built it: the object with "events", without "metadata".
  /// Emptied when the batch is kept as text (below).
  nlohmann::json eventsJsonDict;
  /// Set when an attempt fails and a retry is armed: the batch's JSON text
  /// before and after the place of its "metadata" member, and that member as
  /// the batch had it (null when none). A batch waiting for a retry holds this
  /// text instead of the JSON tree; each retry writes fresh metadata between.
  bool keptAsText = false;
  std::string textBeforeMetadata;
  std::string textAfterMetadata;
  nlohmann::json ownMetadata;
  /// Told once when the batch is finished (may be empty: nobody is told).
  std::shared_ptr<TAVSDKBatchCallback> callback;
};

}  // namespace tav
