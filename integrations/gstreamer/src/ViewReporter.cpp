#include "ViewReporter.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace tav::gstreamer {
namespace {

// A pause of the pipeline this soon after a buffering episode ended is still the
// application's reaction to it: bus messages reach the application late, so its
// "pause while buffering" can arrive after the buffering that caused it is over.
constexpr std::int64_t kBufferingPauseGraceMs = 1000;

template <class Record>
std::shared_ptr<Record> copyOf(const std::shared_ptr<Record>& record) {
  if (!record) return nullptr;
  auto copy = std::make_shared<Record>();
  copy->setQuery(record->toQuery());
  return copy;
}

bool isPlaylistUrl(const std::string& uri) {
  const auto path = uri.substr(0, uri.find_first_of("?#"));
  return path.size() >= 5 && (path.compare(path.size() - 5, 5, ".m3u8") == 0 ||
                              (path.size() >= 4 && path.compare(path.size() - 4, 4, ".m3u") == 0));
}

std::string directoryOf(const std::string& url) {
  const auto path = url.substr(0, url.find_first_of("?#"));
  return path.substr(0, path.rfind('/') + 1);
}

}  // namespace

std::string errorCode(const std::string& domain, int code) {
  std::string name = domain;
  constexpr std::string_view kPrefix = "gst-";
  constexpr std::string_view kSuffix = "-error-quark";
  if (name.size() > kPrefix.size() + kSuffix.size() && name.starts_with(kPrefix) &&
      name.ends_with(kSuffix)) {
    name = name.substr(kPrefix.size(), name.size() - kPrefix.size() - kSuffix.size());
  }
  return name + ":" + std::to_string(code);
}

std::string errorMessage(const std::string& message) {
  std::string line = message.substr(0, message.find('\n'));
  for (const char* location : {": ../", ": /"}) {
    const auto at = line.find(location);
    if (at != std::string::npos && at > 0) return line.substr(0, at);
  }
  return line;
}

ViewReporter::ViewReporter(PlayerFacts facts,
                           std::shared_ptr<TAVSDKCustomerPlayerData> customerPlayer,
                           std::shared_ptr<TAVSDKCustomerVideoData> customerVideo, Sink sink)
    : _facts(std::move(facts)),
      _customerPlayer(std::move(customerPlayer)),
      _customerVideo(std::move(customerVideo)),
      _sink(std::move(sink)) {}

template <class Event>
std::shared_ptr<Event> ViewReporter::make() const {
  auto event = std::make_shared<Event>();
  auto player = std::make_shared<TAVSDKPlayerData>();
  if (_playhead) player->setPlayerPlayheadTime(*_playhead);
  player->setPlayerIsPaused(_paused);
  const bool explicitSize = _facts.width > 0 && _facts.height > 0;
  if (explicitSize || (_frameWidth > 0 && _frameHeight > 0)) {
    player->setPlayerWidth(explicitSize ? _facts.width : _frameWidth);
    player->setPlayerHeight(explicitSize ? _facts.height : _frameHeight);
  }
  player->setPlayerSoftwareName(_facts.softwareName);
  player->setPlayerSoftwareVersion(_facts.softwareVersion);
  player->setPlayerTavPluginName(_facts.pluginName);
  player->setPlayerTavPluginVersion(_facts.pluginVersion);
  event->setPlayerData(std::move(player));
  return event;
}

void ViewReporter::send(const std::shared_ptr<TAVSDKPlaybackEvent>& event) {
  _sink(event);
}

void ViewReporter::uriChanged(const std::string& uri) {
  if (_viewActive) endView();
  _uri = uri;
  _viewActive = true;
  _playRequested = _playingSent = _seeking = _finished = _formatReported = false;
  _paused = true;
  _variants.clear();
  _currentVariant.reset();
  _manifestUri.clear();
  _manifestBytes = 0;
  _manifestResponse.reset();
  _responses.clear();
  send(make<TAVSDKViewInitEvent>());

  // Metadata reaches the view only through a data event after its "viewinit".
  auto data = std::make_shared<TAVSDKDataEvent>();
  data->setCustomerPlayerData(copyOf(_customerPlayer));
  data->setCustomerVideoData(copyOf(_customerVideo));
  auto video = std::make_shared<TAVSDKVideoData>();
  video->setVideoSourceUrl(uri);
  if (auto host = urlHost(uri); !host.empty()) video->setVideoSourceHostName(host);
  data->setVideoData(std::move(video));
  _sink(data);
}

void ViewReporter::requestPlay() {
  _playRequested = true;
  _paused = false;
  _finished = false;
  send(make<TAVSDKPlayEvent>());
}

void ViewReporter::stateChanged(PipelineState old, PipelineState current, PipelineState pending,
                                std::int64_t nowMs) {
  if (!_viewActive) return;
  const PipelineState target = pending == PipelineState::VoidPending ? current : pending;
  if (target == PipelineState::Playing && !_playRequested) requestPlay();
  if (current == PipelineState::Playing) {
    if (!_playRequested) requestPlay();
    if (!_playingSent) {
      _playingSent = true;
      send(make<TAVSDKPlayingEvent>());
    }
    return;
  }
  // Paused for good (a seek's lost state keeps PLAYING as the target).
  if (current == PipelineState::Paused && target == PipelineState::Paused && _playRequested &&
      !_seeking && (old == PipelineState::Playing || old == PipelineState::Ready)) {
    const bool bufferingPause =
        _buffering || (_bufferingEndedMs > 0 && nowMs - _bufferingEndedMs < kBufferingPauseGraceMs);
    // The application waits for data: a stall, which the playhead shows.
    if (bufferingPause) return;
    _playRequested = _playingSent = false;
    _paused = true;
    send(make<TAVSDKPauseEvent>());
  }
}

void ViewReporter::buffering(int percent, std::int64_t nowMs) {
  if (percent < 100) {
    _buffering = true;
  } else if (_buffering) {
    _buffering = false;
    _bufferingEndedMs = nowMs;
  }
}

void ViewReporter::seekStarted() {
  if (!_viewActive) return;
  // Only "internalseeking": the core derives the one "seeking" beacon from it. No
  // "timeupdate" goes out until "seeked", which re-anchors the playback time.
  _seeking = true;
  send(make<TAVSDKInternalSeekingEvent>());
}

void ViewReporter::asyncDone() {
  if (!_viewActive || !_seeking) return;
  _seeking = false;
  send(make<TAVSDKSeekedEvent>());
}

void ViewReporter::endOfStream() {
  if (!_viewActive || _finished) return;
  _finished = true;
  _paused = true;
  _playRequested = _playingSent = false;
  send(make<TAVSDKEndedEvent>());
}

void ViewReporter::error(const std::string& code, const std::string& message) {
  if (!_viewActive || _finished) return;
  _finished = true;
  auto event = make<TAVSDKErrorEvent>();
  event->playerData()->setPlayerErrorCode(code);
  event->playerData()->setPlayerErrorMessage(message);
  send(event);
}

const Variant* ViewReporter::currentVariant() const {
  return _currentVariant && *_currentVariant < _variants.size() ? &_variants[*_currentVariant]
                                                                : nullptr;
}

const Variant* ViewReporter::variantOf(const std::string& segmentUri) const {
  // Variants kept in folders of their own: the folder tells; otherwise the
  // demuxer's current variant.
  const Variant* found = nullptr;
  for (const auto& variant : _variants) {
    const auto dir = directoryOf(variant.uri);
    if (segmentUri.compare(0, dir.size(), dir) == 0) {
      if (found != nullptr && directoryOf(found->uri) == dir) return currentVariant();
      if (found == nullptr || dir.size() > directoryOf(found->uri).size()) found = &variant;
    }
  }
  return found != nullptr ? found : currentVariant();
}

std::shared_ptr<TAVSDKVideoData> ViewReporter::videoRecord() const {
  auto video = std::make_shared<TAVSDKVideoData>();
  video->setVideoSourceWidth(_frameWidth);
  video->setVideoSourceHeight(_frameHeight);
  // The variant shown: the one offered at this size, else the demuxer's current one.
  const Variant* shown = nullptr;
  for (const auto& variant : _variants) {
    if (variant.width == _frameWidth && variant.height == _frameHeight) {
      shown = shown == nullptr ? &variant : currentVariant();
      if (shown == nullptr) break;
    }
  }
  if (shown == nullptr) shown = currentVariant();
  if (shown != nullptr) video->setVideoSourceAdvertisedBitrate(Json(shown->bandwidth));
  std::optional<double> rate = shown != nullptr && shown->frameRate ? shown->frameRate : _frameRate;
  if (rate && std::isfinite(*rate)) video->setVideoSourceAdvertisedFrameRate(Json(*rate));
  return video;
}

void ViewReporter::videoFormat(int width, int height, std::optional<double> frameRate) {
  if (width <= 0 || height <= 0) return;
  const bool changed = width != _frameWidth || height != _frameHeight || frameRate != _frameRate;
  _frameWidth = width;
  _frameHeight = height;
  _frameRate = frameRate;
  if (!_viewActive || (!changed && _formatReported)) return;
  auto data = std::make_shared<TAVSDKDataEvent>();
  data->setVideoData(videoRecord());
  _sink(data);
  // The first format of a view describes the source; later ones are switches.
  if (_formatReported) send(make<TAVSDKRenditionChangeEvent>());
  _formatReported = true;
}

void ViewReporter::duration(std::int64_t ms) {
  if (!_viewActive || ms <= 0) return;
  auto data = std::make_shared<TAVSDKDataEvent>();
  auto video = std::make_shared<TAVSDKVideoData>();
  video->setVideoSourceDuration(ms);
  data->setVideoData(std::move(video));
  _sink(data);
}

void ViewReporter::masterPlaylist(const std::string& uri, const std::string& text) {
  _manifestUri = uri;
  _manifestBytes = static_cast<std::int64_t>(text.size());
  _variants = parseMasterPlaylist(text, uri);
  // Without a connection speed the demuxer starts with the first variant.
  _currentVariant = _variants.empty() ? std::nullopt : std::optional<std::size_t>(0);
  if (!_variants.empty() && _viewActive) {
    auto data = std::make_shared<TAVSDKDataEvent>();
    auto video = std::make_shared<TAVSDKVideoData>();
    video->setVideoSourceMimeType("application/x-mpegURL");
    data->setVideoData(std::move(video));
    _sink(data);
  }
}

void ViewReporter::manifestLoaded(const std::string& uri, std::int64_t endMs) {
  if (!_viewActive) return;
  auto event = make<TAVSDKRequestBandwidthEvent>();
  event->setType(TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
  auto request = std::make_shared<TAVSDKBandwidthMetricData>();
  request->setRequestEventType(TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
  request->setRequestType("manifest");
  request->setRequestUrl(uri);
  request->setRequestHostName(urlHost(uri));
  request->setRequestResponseEnd(endMs);
  if (_manifestResponse && _manifestResponse->uri == uri) {
    request->setRequestResponseStart(std::min(_manifestResponse->atMs, endMs));
  }
  if (_manifestBytes > 0 && _manifestUri == uri) request->setRequestBytesLoaded(_manifestBytes);
  if (!_variants.empty()) {
    std::vector<Rendition> renditions;
    for (const auto& variant : _variants) {
      Rendition rendition;
      if (variant.width) rendition.setWidth(Json(*variant.width));
      if (variant.height) rendition.setHeight(Json(*variant.height));
      rendition.setBitrate(Json(variant.bandwidth));
      renditions.push_back(std::move(rendition));
    }
    request->setRequestRenditionLists(renditions);
  }
  event->setBandwidthMetricData(std::move(request));
  send(event);
}

void ViewReporter::variantSelected(const std::string& uri, std::int64_t bitrate) {
  for (std::size_t i = 0; i < _variants.size(); ++i) {
    if (_variants[i].uri == uri) {
      _currentVariant = i;
      return;
    }
  }
  // A playlist we did not see offered: remember it as a variant of its own.
  Variant variant;
  variant.uri = uri;
  variant.bandwidth = bitrate;
  _variants.push_back(std::move(variant));
  _currentVariant = _variants.size() - 1;
}

void ViewReporter::httpResponse(const HttpResponse& response) {
  if (!_viewActive) return;
  if (response.status >= 200 && response.status < 400) {
    if (response.uri == _uri) {
      _manifestResponse = response;
    } else {
      _responses[response.uri] = response;
    }
    return;
  }
  auto event = make<TAVSDKRequestBandwidthEvent>();
  event->setType(TAVSDKPlaybackEventRequestBandwidthEventErrorType);
  auto request = std::make_shared<TAVSDKBandwidthMetricData>();
  request->setRequestEventType(TAVSDKPlaybackEventRequestBandwidthEventErrorType);
  request->setRequestType(isPlaylistUrl(response.uri) ? "manifest" : "media");
  request->setRequestUrl(response.uri);
  request->setRequestHostName(urlHost(response.uri));
  request->setRequestResponseStart(response.atMs);
  request->setRequestError("http");
  request->setRequestErrorCode(response.status);
  request->setRequestErrorText(response.reason.empty() ? "HTTP " + std::to_string(response.status)
                                                       : response.reason);
  if (const Variant* variant = variantOf(response.uri); variant && !isPlaylistUrl(response.uri))
    request->setRequestLabeledBitrate(variant->bandwidth);
  event->setBandwidthMetricData(std::move(request));
  send(event);
}

void ViewReporter::segmentLoaded(const SegmentDownload& download) {
  if (!_viewActive) return;
  auto event = make<TAVSDKRequestBandwidthEvent>();
  event->setType(TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
  auto request = std::make_shared<TAVSDKBandwidthMetricData>();
  request->setRequestEventType(TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
  request->setRequestType("media");
  request->setRequestUrl(download.uri);
  request->setRequestHostName(urlHost(download.uri));
  request->setRequestStart(download.startMs);
  request->setRequestResponseEnd(download.endMs);
  request->setRequestBytesLoaded(download.bytes);
  if (auto found = _responses.find(download.uri); found != _responses.end()) {
    // Clocks of the two reports differ slightly: keep start <= response <= end.
    request->setRequestResponseStart(std::clamp(found->second.atMs, download.startMs,
                                                std::max(download.startMs, download.endMs)));
    _responses.erase(found);
  }
  if (const Variant* variant = variantOf(download.uri)) {
    request->setRequestLabeledBitrate(variant->bandwidth);
    request->setRequestCurrentLevel(static_cast<std::int32_t>(variant - _variants.data()));
    if (variant->width && variant->height) {
      request->setRequestVideoWidth(*variant->width);
      request->setRequestVideoHeight(*variant->height);
    }
  }
  event->setBandwidthMetricData(std::move(request));
  send(event);
}

bool ViewReporter::wantsTicks() const {
  return _viewActive && _playingSent && !_paused && !_seeking && !_finished;
}

void ViewReporter::tick() {
  if (wantsTicks()) send(make<TAVSDKTimeUpdateEvent>());
}

void ViewReporter::endView() {
  send(make<TAVSDKViewEndEvent>());
  _viewActive = false;
}

void ViewReporter::detach() {
  if (_viewActive) endView();
}

}  // namespace tav::gstreamer
