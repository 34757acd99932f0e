#include "tav/transport/TAVSDKDispatcher.h"

#include <cmath>
#include <cstdlib>
#include <ctime>

#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/platform/TAVSDKLog.h"
#include "tav/transport/TAVSDKTransport.h"
#include "tav_build_config.h"
#include "transport/EnvironmentKeyPattern.h"
#include "transport/JsonText.h"
#include "transport/TransportOverrides.h"

namespace tav {
namespace {

constexpr const char* kEnvironmentKey = "ake";
constexpr const char* kViewerOsFamily = "uosfm";
constexpr const char* kEventName = "e";
constexpr const char* kMetadata = "metadata";
constexpr const char* kTransmissionTimestamp = "transmission_timestamp";
constexpr const char* kRoundTripTime = "rtt_ms";
constexpr const char* kLocalKey = "local";
constexpr std::int64_t kMaxRetries = 4;  // five attempts in all
constexpr std::int64_t kBeaconTimeUnit = 5000;
constexpr double kRandMax = 2147483647.0;
constexpr auto kRequestTimeout = std::chrono::seconds(60);

bool present(const std::optional<std::string>& text) {
  return text && !text->empty();
}

std::optional<std::string> textMember(const nlohmann::json& object, const char* key) {
  const auto it = object.find(key);
  if (it == object.end() || !it->is_string()) return std::nullopt;
  return it->get<std::string>();
}

std::string lowerCase(std::string text) {
  for (char& c : text) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return text;
}

int nextRandom() {
  const auto overrides = detail::transportOverrides();
  // The process-wide std::rand generator is the retry jitter's source by design.
  return overrides.random ? overrides.random()
                          : std::rand();  // NOLINT(cert-msc30-c,concurrency-mt-unsafe)
}

}  // namespace

std::string TAVSDKURLComponents::url() const {
  std::string out = scheme + "://" + host;
  if (port) out += ":" + std::to_string(*port);
  return out;
}

TAVSDKDispatcher::TAVSDKDispatcher(std::shared_ptr<TAVSDKHttpClient> httpClient,
                                   std::shared_ptr<TAVSDKTimerScheduler> timerScheduler)
    : _httpClient(std::move(httpClient)), _timerScheduler(std::move(timerScheduler)) {
  if (!_httpClient || !_timerScheduler) {
    auto overrides = detail::transportOverrides();
    if (!_httpClient) {
      _httpClient =
          overrides.httpClient ? std::move(overrides.httpClient) : TAVSDKTransport::httpClient();
    }
    if (!_timerScheduler) {
      _timerScheduler = overrides.timerScheduler ? std::move(overrides.timerScheduler)
                                                 : TAVSDKTransport::timerScheduler();
    }
  }
  std::srand(static_cast<unsigned>(std::time(nullptr)));  // NOLINT(cert-msc32-c)
}

std::string TAVSDKDispatcher::getHostForProjectKeyBeaconCollectionDomainBeaconDomain(
    const OptionalText& projectKey, const OptionalText& beaconCollectionDomain,
    const OptionalText& beaconDomain) const {
  if (present(beaconCollectionDomain)) return *beaconCollectionDomain;
  if (!projectKey) return build::kNoKeyHost;
  const std::optional<bool> matches = detail::matchesEnvironmentKeyPattern(*projectKey);
  if (!matches) {
    TAVSDKLog::error("TAVSDK-ERROR - environment_key error.");
    return build::kSinkHost;
  }
  std::string base = build::kDefaultCollectionDomain;
  if (present(beaconDomain)) {
    base = beaconDomain->front() == '.' ? beaconDomain->substr(1) : *beaconDomain;
  }
  if (*matches) return *projectKey + "." + base;
  return build::kInvalidKeyHost;
}

bool TAVSDKDispatcher::shouldSendBeaconsToLocalServer(const OptionalText& projectKey) const {
  return projectKey && *projectKey == kLocalKey;
}

TAVSDKURLComponents TAVSDKDispatcher::getURLComponentsForLocalhost() const {
  const auto overrides = detail::transportOverrides();
  return {"http", "localhost", overrides.localPort.value_or(build::kLocalPort)};
}

void TAVSDKDispatcher::handleBatchOsFamilyWithJsonWithCallback(const OptionalText& projectKey,
                                                               const OptionalText& osFamily,
                                                               std::string_view json,
                                                               const Callback& callback) {
  handleBatchDomainOsFamilyWithJsonWithCallback(projectKey, std::nullopt, osFamily, json, callback);
}

void TAVSDKDispatcher::handleBatchDomainOsFamilyWithJsonWithCallback(const OptionalText& projectKey,
                                                                     const OptionalText& domain,
                                                                     const OptionalText& osFamily,
                                                                     std::string_view json,
                                                                     const Callback& callback) {
  Json parsed = Json::parse(json, nullptr, false);
  if (parsed.is_discarded() || !parsed.is_object()) {
    if (callback) callback->onComplete(std::nullopt);
    return;
  }
  handleBatchDomainOsFamilyJsonDictCallback(projectKey, domain, osFamily, std::move(parsed),
                                            callback);
}

void TAVSDKDispatcher::handleBatchDomainOsFamilyJsonDictCallback(const OptionalText& projectKey,
                                                                 const OptionalText& domain,
                                                                 const OptionalText& osFamily,
                                                                 Json jsonDict,
                                                                 const Callback& callback) {
  handleBatchDomainBeaconCollectionDomainOsFamilyJsonDictCallback(
      projectKey, domain, std::nullopt, osFamily, std::move(jsonDict), callback);
}

void TAVSDKDispatcher::handleBatchBeaconCollectionDomainOsFamilyJsonDictCallback(
    const OptionalText& projectKey, const OptionalText& beaconCollectionDomain,
    const OptionalText& osFamily, Json jsonDict, const Callback& callback) {
  handleBatchDomainBeaconCollectionDomainOsFamilyJsonDictCallback(
      projectKey, std::nullopt, beaconCollectionDomain, osFamily, std::move(jsonDict), callback);
}

void TAVSDKDispatcher::handleBatchDomainBeaconCollectionDomainOsFamilyJsonDictCallback(
    const OptionalText& projectKey, const OptionalText& domain,
    const OptionalText& beaconCollectionDomain, const OptionalText& /*osFamily*/, Json jsonDict,
    const Callback& callback) {
  TAVSDKURLComponents components;
  if (shouldSendBeaconsToLocalServer(projectKey)) {
    components = getURLComponentsForLocalhost();
  } else {
    components.scheme = "https";
    components.host = getHostForProjectKeyBeaconCollectionDomainBeaconDomain(
        projectKey, beaconCollectionDomain, beaconCollectionDomain ? std::nullopt : domain);
  }
  auto info = std::make_shared<HttpUserInfo>();
  info->url = components.url();
  info->eventsJsonDict = std::move(jsonDict);
  info->callback = callback;
  scheduleHttp(info);
}

void TAVSDKDispatcher::scheduleHttp(const std::shared_ptr<HttpUserInfo>& info) {
  auto self = weak_from_this().lock();
  if (!self || !info) return;  // a dispatcher not owned by a shared_ptr cannot arm timers
  // The delay is a multiple of 5000 and is used as SECONDS on purpose: the first
  // retry waits at least 5000 s.
  const std::chrono::seconds delay(getNextBeaconTime(*info));
  _timerScheduler->schedule(std::chrono::duration_cast<std::chrono::milliseconds>(delay),
                            [self = std::move(self), info] { self->executeHttp(info); });
}

void TAVSDKDispatcher::executeHttp(const std::shared_ptr<HttpUserInfo>& info) {
  if (!info) return;
  auto request = buildAttempt(*info);
  if (!request) {
    info->failureCount = 0;
    if (info->callback) info->callback->onComplete(std::nullopt);
    return;
  }
  const std::int64_t start = _currentTime.now();
  std::weak_ptr<TAVSDKDispatcher> weak = weak_from_this();
  _httpClient->send(
      std::move(*request), [weak = std::move(weak), info, start](const TAVSDKHttpResult& result) {
        const auto self = weak.lock();
        if (result.error) {
          if (self) self->setRoundTripLastSucceeded(false);
          if (info->failureCount < kMaxRetries) {
            info->failureCount += 1;
            keepAsText(*info);  // a batch waiting for a retry holds only its text
            if (self) self->scheduleHttp(info);
          } else {
            info->failureCount = 0;
            if (info->callback) info->callback->onComplete(false);
          }
          return;
        }
        if (self) {
          self->setRoundTripLastCompletedTimeElapsed(self->_currentTime.now() - start);
          self->setRoundTripLastSucceeded(true);
        }
        info->failureCount = 0;
        if (info->callback) info->callback->onComplete(true);
      });
}

std::int64_t TAVSDKDispatcher::getNextBeaconTime(const HttpUserInfo& info) const {
  const std::int64_t n = info.failureCount;
  if (n == 0) return 0;
  // Taken through single precision on purpose: the topmost generator values round
  // up to 2^31, just above the divisor.
  const double r = static_cast<double>(static_cast<float>(nextRandom()));
  const double scaled = std::pow(2.0, static_cast<double>(n - 1)) * r / kRandMax + 1.0;
  return static_cast<std::int64_t>(std::trunc(scaled)) * kBeaconTimeUnit;
}

std::optional<TAVSDKHttpRequest> TAVSDKDispatcher::buildRequestFromURLEventsJsonDictError(
    const std::string& url, const Json& eventsJsonDict, TAVSDKJsonError* error) const {
  if (detail::jsonDeeperThan(eventsJsonDict, detail::kMaxBatchJsonDepth)) {
    if (error != nullptr) *error = detail::tooDeepError();
    return std::nullopt;  // not even copied: copying recurses once per level
  }
  Json body = eventsJsonDict;
  return buildRequestInPlace(url, body, error);
}

std::optional<TAVSDKHttpRequest> TAVSDKDispatcher::buildRequestInPlace(
    const std::string& url, Json& eventsJsonDict, TAVSDKJsonError* error) const {
  if (!eventsJsonDict.is_object()) {
    if (error != nullptr) *error = {"tav.json", 2, "batch is not a JSON object"};
    return std::nullopt;
  }
  // The whole body's depth is checked when it is serialised; the metadata that
  // is copied below is checked first (copying recurses once per level).
  if (const auto existing = eventsJsonDict.find(kMetadata);
      existing != eventsJsonDict.end() &&
      detail::jsonDeeperThan(*existing, detail::kMaxBatchJsonDepth - 1)) {
    if (error != nullptr) *error = detail::tooDeepError();
    return std::nullopt;
  }
  // Serialises addMetadata(eventsJsonDict) without copying the events: the
  // completed metadata is swapped in for the time of the serialisation.
  const bool hadMetadata = eventsJsonDict.contains(kMetadata);
  Json metadata = metadataFor(eventsJsonDict);
  Json& slot = eventsJsonDict[kMetadata];
  std::swap(slot, metadata);
  auto body = detail::toJsonText(eventsJsonDict, 2, error);
  std::swap(slot, metadata);
  if (!hadMetadata) eventsJsonDict.erase(kMetadata);
  if (!body) return std::nullopt;
  return postRequest(url, std::move(*body));
}

std::optional<TAVSDKHttpRequest> TAVSDKDispatcher::buildAttempt(HttpUserInfo& info) const {
  if (!info.keptAsText) return buildRequestInPlace(info.url, info.eventsJsonDict, nullptr);
  const Json metadata = metadataFrom(info.ownMetadata.is_null() ? nullptr : &info.ownMetadata);
  auto member = detail::memberText(kMetadata, metadata, nullptr);
  if (!member) return std::nullopt;
  std::string body;
  body.reserve(info.textBeforeMetadata.size() + member->size() + info.textAfterMetadata.size());
  body.append(info.textBeforeMetadata).append(*member).append(info.textAfterMetadata);
  return postRequest(info.url, std::move(body));
}

void TAVSDKDispatcher::keepAsText(HttpUserInfo& info) {
  if (info.keptAsText || !info.eventsJsonDict.is_object()) return;
  // The attempt that failed wrote the same tree, so this cannot fail; if it
  // did, the tree would simply stay.
  auto text = detail::toObjectTextAround(info.eventsJsonDict, kMetadata, nullptr);
  if (!text) return;
  const auto own = info.eventsJsonDict.find(kMetadata);
  info.ownMetadata = own != info.eventsJsonDict.end() ? std::move(*own) : Json();
  info.textBeforeMetadata = std::move(text->before);
  info.textAfterMetadata = std::move(text->after);
  info.eventsJsonDict = Json();
  info.keptAsText = true;
}

TAVSDKHttpRequest TAVSDKDispatcher::postRequest(const std::string& url, std::string body) const {
  TAVSDKHttpRequest request;
  request.method = "POST";
  request.url = url;
  request.headers = {{"Content-Type", "application/json"}, {"Accept-Encoding", "gzip"}};
  request.body = std::move(body);
  request.timeout = requestTimeout();
  return request;
}

TAVSDKDispatcher::Json TAVSDKDispatcher::addMetadata(const Json& body) const {
  Json out = body;
  if (out.is_object()) out[kMetadata] = metadataFor(body);
  return out;
}

TAVSDKDispatcher::Json TAVSDKDispatcher::metadataFor(const Json& body) const {
  const auto existing = body.find(kMetadata);
  return metadataFrom(existing != body.end() ? &*existing : nullptr);
}

TAVSDKDispatcher::Json TAVSDKDispatcher::metadataFrom(const Json* existing) const {
  Json metadata = existing != nullptr && existing->is_object() ? *existing : Json::object();
  metadata[kTransmissionTimestamp] = _currentTime.now();
  if (roundTripLastSucceeded()) {
    metadata[kRoundTripTime] = roundTripLastCompletedTimeElapsed();
  } else {
    metadata.erase(kRoundTripTime);
  }
  return metadata;
}

void TAVSDKDispatcher::handle(const std::shared_ptr<TAVSDKBaseEvent>& event) {
  if (!event || !event->isTrackable()) return;
  const auto* trackable = dynamic_cast<const TAVSDKTrackableEvent*>(event.get());
  if (trackable == nullptr) return;
  Json q = trackable->getQuery();
  const auto key = textMember(q, kEnvironmentKey);
  [[maybe_unused]] const std::string osFamily =
      lowerCase(textMember(q, kViewerOsFamily).value_or("ios"));
  if (!present(key)) {
    TAVSDKLog::error("TAVSDK-ERROR - environment_key must be provided.");
    return;
  }
  TAVSDKURLComponents components;
  if (shouldSendBeaconsToLocalServer(key)) {
    components = getURLComponentsForLocalhost();
  } else {
    components.scheme = "https";
    components.host =
        getHostForProjectKeyBeaconCollectionDomainBeaconDomain(key, std::nullopt, std::nullopt);
  }
  q[kEventName] = trackable->eventType();
  TAVSDKJsonError error;
  auto body = detail::toJsonText(q, -1, &error);
  if (!body) {
    TAVSDKLog::error("TAVSDK-ERROR - A NSJSONSerialization error occurred: " + error.domain + " " +
                     std::to_string(error.code) + " " + error.description);
    return;
  }
  TAVSDKHttpRequest request;
  request.method = "POST";
  request.url = components.url();
  request.headers = {{"Content-Type", "application/json"}};
  request.body = std::move(*body);
  request.timeout = requestTimeout();
  _httpClient->send(std::move(request), [](const TAVSDKHttpResult&) {});
}

std::chrono::milliseconds TAVSDKDispatcher::requestTimeout() const {
  return detail::transportOverrides().requestTimeout.value_or(
      std::chrono::duration_cast<std::chrono::milliseconds>(kRequestTimeout));
}

}  // namespace tav
