#pragma once
// An HTTP client that forwards every request to another one (the real libcurl
// client) and keeps account: each attempt's batch, beacon count and outcome,
// and the requests still in flight. Thread-safe; completions are recorded on
// whatever thread the inner client completes on.

#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "tav/transport/TAVSDKHttpClient.h"

namespace tav::test {

class CountingHttpClient : public TAVSDKHttpClient {
 public:
  struct Attempt {
    /// The batch: player instance id and player sequence number of its first
    /// beacon ("" when the body is not a batch). The same for every retry.
    std::string batch;
    std::size_t beacons = 0;
    bool done = false;
    std::optional<std::string> error;  // the transport error, when done
    int status = 0;                    // the HTTP status, when done without error
  };

  explicit CountingHttpClient(std::shared_ptr<TAVSDKHttpClient> inner);
  void send(TAVSDKHttpRequest request, Completion completion) override;

  [[nodiscard]] std::vector<Attempt> attempts() const;
  /// Requests handed over whose completion has not returned yet.
  [[nodiscard]] std::size_t inFlight() const;
  /// Waits until nothing is in flight, at most `deadline`.
  bool waitIdle(std::chrono::milliseconds deadline) const;

 private:
  std::shared_ptr<TAVSDKHttpClient> _inner;
  mutable std::mutex _mutex;
  mutable std::condition_variable _changed;
  std::vector<Attempt> _attempts;
  std::size_t _inFlight = 0;
};

}  // namespace tav::test
