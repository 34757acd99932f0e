#pragma once
// The HTTP port: one request in, one completion out. The dispatcher keeps all
// the beacon behaviour; an implementation only moves bytes. The production
// implementation is libcurl on the transport worker (TAVSDKTransport::httpClient);
// tests substitute a recording fake.

#include <chrono>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tav {

/// One HTTP request, owned by value.
struct TAVSDKHttpRequest {
  std::string method = "POST";
  /// Absolute URL ("https://host", "http://localhost:8080"); an empty path means "/".
  std::string url;
  /// Header fields in the order given, names as written.
  std::vector<std::pair<std::string, std::string>> headers;
  std::string body;
  /// Limit for connecting and for the whole exchange, measured from the start.
  std::chrono::milliseconds timeout{std::chrono::seconds(60)};
};

/// What became of one request.
struct TAVSDKHttpResult {
  /// Set when no response arrived (refused, timed out, TLS failure, aborted,
  /// malformed URL); `status` and `body` are then meaningless.
  std::optional<std::string> error;
  /// HTTP status of the response; any status is a response.
  int status = 0;
  std::string body;
};

class TAVSDKHttpClient {
 public:
  using Completion = std::function<void(TAVSDKHttpResult result)>;

  virtual ~TAVSDKHttpClient() = default;

  /// Starts `request` and returns without waiting for the network. `completion`
  /// is called exactly once, never from inside `send` itself, except when the
  /// client refuses the request outright (see the implementation's notes).
  /// Thread rules: callable from any thread; the implementation says on which
  /// thread completions run.
  virtual void send(TAVSDKHttpRequest request, Completion completion) = 0;
};

}  // namespace tav
