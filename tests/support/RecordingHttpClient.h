#pragma once
// An HTTP client that records requests and lets the test complete each one
// (with a transport error or a response) on the test's thread. Thread-safe.

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

#include "tav/transport/TAVSDKHttpClient.h"

namespace tav::test {

class RecordingHttpClient : public TAVSDKHttpClient {
 public:
  void send(TAVSDKHttpRequest request, Completion completion) override;

  [[nodiscard]] std::size_t count() const;
  [[nodiscard]] TAVSDKHttpRequest request(std::size_t index) const;
  /// The body of request `index` parsed as JSON.
  [[nodiscard]] nlohmann::json body(std::size_t index) const;
  /// The value of header `name` in request `index` ("" when absent).
  [[nodiscard]] std::string header(std::size_t index, const std::string& name) const;
  /// Requests whose completion has not returned yet.
  [[nodiscard]] std::size_t openCount() const;

  /// Completes request `index` with a transport error.
  void fail(std::size_t index, const std::string& error = "Couldn't connect to server");
  /// Completes request `index` with a response.
  void succeed(std::size_t index, int status = 200, const std::string& body = "");

 private:
  struct Call {
    TAVSDKHttpRequest request;
    Completion completion;  // emptied when the completion starts
    bool done = false;      // set when it has returned
  };
  void complete(std::size_t index, TAVSDKHttpResult result);

  mutable std::mutex _mutex;
  std::vector<Call> _calls;
};

}  // namespace tav::test
