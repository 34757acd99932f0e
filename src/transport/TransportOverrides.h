#pragma once
// Test-only transport overrides. Internal (not installed, not public API): the
// tests, benchmarks and local tools use them to point the transport at local
// servers. Production code never sets them.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace tav {
class TAVSDKHttpClient;
class TAVSDKTimerScheduler;
}  // namespace tav

namespace tav::detail {

struct TransportOverrides {
  /// Port of the local collector (environment key "local") instead of the build's.
  std::optional<int> localPort;
  /// PEM file of the only certificate authorities to trust (empty: the system's).
  std::string caFile;
  /// libcurl CONNECT_TO entries ("HOST:PORT:CONNECT-TO-HOST:CONNECT-TO-PORT"): a
  /// request for HOST:PORT connects elsewhere but still verifies HOST's certificate.
  std::vector<std::string> connectTo;
  /// Time-out of the dispatcher's requests instead of 60 seconds.
  std::optional<std::chrono::milliseconds> requestTimeout;
  /// Generator for the retry delays instead of std::rand (values 0 ... RAND_MAX).
  std::function<int()> random;
  /// Ports for dispatchers made without explicit ones (every queue's own
  /// dispatcher) instead of the transport worker.
  std::shared_ptr<TAVSDKHttpClient> httpClient;
  std::shared_ptr<TAVSDKTimerScheduler> timerScheduler;
  /// Scheme, host and port of the error-tracking service ("http://127.0.0.1:PORT")
  /// instead of "https://" and the build's host.
  std::string errorReportBaseUrl;
};

/// Replaces all overrides at once; a default-constructed value clears them.
/// Thread-safe; requests already started keep the values they began with.
void setTransportOverrides(TransportOverrides overrides);
/// A copy of the current overrides.
[[nodiscard]] TransportOverrides transportOverrides();

}  // namespace tav::detail
