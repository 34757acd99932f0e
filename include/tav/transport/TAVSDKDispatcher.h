#pragma once
// TAVSDKDispatcher posts beacon batches to the collection host: it chooses the
// host from the environment key and the configured domains, builds one POST a
// batch (pretty-printed JSON with "metadata"), retries a transport failure with a
// randomised, growing delay (at most five attempts), measures the round trip of
// the last successful request and tells the batch's callback when it is done.
//
// Ownership: create with std::make_shared. Each armed timer holds the dispatcher
// and the pending HttpUserInfo strongly; a request's completion holds the
// HttpUserInfo strongly and the dispatcher weakly (a dispatcher that is gone
// schedules no retry, but the callback is still told on success or after the
// fifth failure). A scheduler that the dispatcher holds and that keeps armed
// timers forever therefore keeps the dispatcher alive; the transport worker
// drops its timers when it shuts down.
//
// Thread rules: batch calls come from the caller's thread; timers run and
// requests complete on the threads of the injected ports (the transport worker
// by default). The round-trip fields are atomic; `currentTime` is replaceable
// from any thread.

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/HttpUserInfo.h"
#include "tav/transport/TAVSDKBatchCallback.h"
#include "tav/transport/TAVSDKHttpClient.h"
#include "tav/transport/TAVSDKTimerScheduler.h"

namespace tav {

class TAVSDKBaseEvent;

/// The parts of a URL that the dispatcher sets.
struct TAVSDKURLComponents {
  std::string scheme;
  std::string host;
  std::optional<int> port;
  /// "scheme://host[:port]" (no path: the root of the host).
  [[nodiscard]] std::string url() const;
};

/// Why a body could not be serialised as JSON.
struct TAVSDKJsonError {
  std::string domain;
  std::int64_t code = 0;
  std::string description;
};

class TAVSDKDispatcher : public std::enable_shared_from_this<TAVSDKDispatcher> {
 public:
  using Json = nlohmann::json;
  using OptionalText = std::optional<std::string>;
  using Callback = std::shared_ptr<TAVSDKBatchCallback>;

  /// Seeds the process-wide std::rand generator with the calendar time (whole
  /// seconds) and makes the clock. Empty ports mean the process-wide transport
  /// worker (TAVSDKTransport::httpClient and ::timerScheduler).
  explicit TAVSDKDispatcher(std::shared_ptr<TAVSDKHttpClient> httpClient = nullptr,
                            std::shared_ptr<TAVSDKTimerScheduler> timerScheduler = nullptr);

  /// The collection host: the collection domain when given and not empty;
  /// otherwise key "." base domain for a key of lower-case letters and digits,
  /// the host for invalid keys for any other key, the host for beacons without
  /// a key when the key is absent. The base domain is `beaconDomain` without one
  /// leading "." when given and not empty, else the default collection domain.
  [[nodiscard]] std::string getHostForProjectKeyBeaconCollectionDomainBeaconDomain(
      const OptionalText& projectKey, const OptionalText& beaconCollectionDomain,
      const OptionalText& beaconDomain) const;
  /// True for the environment key "local".
  [[nodiscard]] bool shouldSendBeaconsToLocalServer(const OptionalText& projectKey) const;
  /// http://localhost and the local collector's port (8080 unless configured).
  [[nodiscard]] TAVSDKURLComponents getURLComponentsForLocalhost() const;

  // The batch family. The first argument is the project (environment) key; the
  // OS family is accepted and not used; `callback` is told when the batch is done.

  /// JSON bytes holding one object with "events" (and maybe "metadata"); bytes
  /// that do not parse to an object are reported at once with nullopt.
  void handleBatchOsFamilyWithJsonWithCallback(const OptionalText& projectKey,
                                               const OptionalText& osFamily, std::string_view json,
                                               const Callback& callback);
  void handleBatchDomainOsFamilyWithJsonWithCallback(const OptionalText& projectKey,
                                                     const OptionalText& domain,
                                                     const OptionalText& osFamily,
                                                     std::string_view json,
                                                     const Callback& callback);
  void handleBatchDomainOsFamilyJsonDictCallback(const OptionalText& projectKey,
                                                 const OptionalText& domain,
                                                 const OptionalText& osFamily, Json jsonDict,
                                                 const Callback& callback);
  void handleBatchBeaconCollectionDomainOsFamilyJsonDictCallback(
      const OptionalText& projectKey, const OptionalText& beaconCollectionDomain,
      const OptionalText& osFamily, Json jsonDict, const Callback& callback);
  /// The worker of the family: picks the URL, makes the HttpUserInfo and
  /// schedules its first attempt.
  void handleBatchDomainBeaconCollectionDomainOsFamilyJsonDictCallback(
      const OptionalText& projectKey, const OptionalText& domain,
      const OptionalText& beaconCollectionDomain, const OptionalText& osFamily, Json jsonDict,
      const Callback& callback);

  /// Arms a one-shot timer of `getNextBeaconTime` SECONDS that runs `executeHttp`.
  void scheduleHttp(const std::shared_ptr<HttpUserInfo>& info);
  /// One attempt: builds the request (dropping the batch when it cannot be
  /// serialised) and starts it; the completion retries or tells the callback.
  void executeHttp(const std::shared_ptr<HttpUserInfo>& info);
  /// Turns a batch that waits for a retry into text and releases its JSON tree
  /// (what a failed attempt does; nothing when it is text already).
  static void keepAsText(HttpUserInfo& info);
  /// 0 for the first attempt, else trunc(2^(n-1) * r / 2147483647.0 + 1.0) * 5000
  /// with n failures and r the next std::rand value taken through single precision.
  [[nodiscard]] std::int64_t getNextBeaconTime(const HttpUserInfo& info) const;
  /// The batch request: POST, 60-second time-out, "Content-Type" and
  /// "Accept-Encoding" headers, body = addMetadata(eventsJsonDict) pretty-printed.
  /// nullopt (and `error` filled when given) when the body cannot be serialised:
  /// non-finite numbers, invalid UTF-8, nesting beyond 256 levels, or a body
  /// that is not an object.
  [[nodiscard]] std::optional<TAVSDKHttpRequest> buildRequestFromURLEventsJsonDictError(
      const std::string& url, const Json& eventsJsonDict, TAVSDKJsonError* error) const;
  /// A copy of `body` whose "metadata" object holds "transmission_timestamp" (clock
  /// now, ms) and, only after a successful last request, "rtt_ms". Other metadata
  /// members are kept; a "metadata" that is not an object is replaced.
  [[nodiscard]] Json addMetadata(const Json& body) const;

  /// Sends one trackable event by itself: compact JSON of its query with "e",
  /// only "Content-Type", no retry; the outcome is ignored.
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& event);

  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }
  [[nodiscard]] std::int64_t roundTripLastCompletedTimeElapsed() const {
    return _roundTripLastCompletedTimeElapsed.load();
  }
  void setRoundTripLastCompletedTimeElapsed(std::int64_t ms) {
    _roundTripLastCompletedTimeElapsed.store(ms);
  }
  [[nodiscard]] bool roundTripLastSucceeded() const { return _roundTripLastSucceeded.load(); }
  void setRoundTripLastSucceeded(bool value) { _roundTripLastSucceeded.store(value); }

  /// Sends one error report (see TAVSDKCorePlayer::buildSentryDetailWithException)
  /// to the error-tracking host as compact JSON. No retry; the outcome is ignored.
  /// Never blocks: the request runs on the transport worker.
  static void handleExceptionPluginNamePluginVersion(const Json& report,
                                                     const std::string& pluginName,
                                                     const std::string& pluginVersion);

  [[nodiscard]] const std::shared_ptr<TAVSDKHttpClient>& httpClient() const { return _httpClient; }
  [[nodiscard]] const std::shared_ptr<TAVSDKTimerScheduler>& timerScheduler() const {
    return _timerScheduler;
  }

 private:
  [[nodiscard]] std::chrono::milliseconds requestTimeout() const;
  /// buildRequestFromURLEventsJsonDictError without copying the batch; leaves it as it was.
  [[nodiscard]] std::optional<TAVSDKHttpRequest> buildRequestInPlace(const std::string& url,
                                                                     Json& eventsJsonDict,
                                                                     TAVSDKJsonError* error) const;
  /// The "metadata" object that addMetadata puts into `body`.
  [[nodiscard]] Json metadataFor(const Json& body) const;
  /// The same from the batch's own "metadata" member (nullptr when none).
  [[nodiscard]] Json metadataFrom(const Json* existing) const;
  /// One attempt's request for `info`, from its JSON tree or, once it waits
  /// for a retry, from its text.
  [[nodiscard]] std::optional<TAVSDKHttpRequest> buildAttempt(HttpUserInfo& info) const;
  [[nodiscard]] TAVSDKHttpRequest postRequest(const std::string& url, std::string body) const;

  std::atomic<bool> _roundTripLastSucceeded{false};
  TAVSDKClockSlot _currentTime;
  std::atomic<std::int64_t> _roundTripLastCompletedTimeElapsed{0};
  std::shared_ptr<TAVSDKHttpClient> _httpClient;
  std::shared_ptr<TAVSDKTimerScheduler> _timerScheduler;
};

}  // namespace tav
