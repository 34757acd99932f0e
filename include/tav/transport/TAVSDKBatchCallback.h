#pragma once
// What the dispatcher tells when a batch is finished. The event queue implements
// it; the dispatcher's pending request holds it strongly until it has been told.

#include <optional>

namespace tav {

class TAVSDKBatchCallback {
 public:
  virtual ~TAVSDKBatchCallback() = default;

  /// Called at most once per batch: true after a response (any HTTP status),
  /// false after the last failed attempt, nullopt when the batch was dropped
  /// because it could not be parsed or serialised. Thread rules: called from the
  /// thread that completes requests or runs timers (the transport worker by
  /// default), or from the caller's thread for unparsable JSON bytes; must be
  /// thread-safe and must not block.
  virtual void onComplete(std::optional<bool> result) = 0;
};

}  // namespace tav
