#include "Scenario.h"

#include <algorithm>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <stdexcept>

#include "tav/TavCore.h"

namespace tav::simulate {
namespace {

constexpr std::int64_t kTickMs = 250;  // the integration's "timeupdate" period
constexpr const char* kPluginName = "tav-simulate";
constexpr const char* kSoftwareName = "sim-player";

[[noreturn]] void fail(const std::string& file, const std::string& what) {
  throw std::runtime_error(file + ": " + what);
}

template <class T>
T member(const Json& object, const char* key, T fallback, const std::string& file,
         const std::string& where) {
  const auto it = object.find(key);
  if (it == object.end()) return fallback;
  try {
    return it->get<T>();
  } catch (const Json::exception&) {
    fail(file, where + "." + key + " has the wrong type (" + it->dump() + ")");
  }
}

std::string hostOf(const std::string& url) {
  const auto scheme = url.find("://");
  const auto start = scheme == std::string::npos ? 0 : scheme + 3;
  const auto end = url.find('/', start);
  return url.substr(start, end == std::string::npos ? std::string::npos : end - start);
}

Video parseVideo(const Json& v, const std::string& file, const std::string& where) {
  if (!v.is_object()) fail(file, where + " is not an object");
  Video video;
  video.id = member<std::string>(v, "id", "", file, where);
  if (video.id.empty()) fail(file, where + " needs an \"id\"");
  video.title = member<std::string>(v, "title", video.id, file, where);
  video.series = member<std::string>(v, "series", "", file, where);
  video.url = member<std::string>(v, "url", "https://cdn.sim.example/" + video.id + "/master.m3u8",
                                  file, where);
  video.durationMs = member<std::int64_t>(v, "durationMs", video.durationMs, file, where);
  video.live = member<bool>(v, "live", false, file, where);
  video.segmentMs = std::max<std::int64_t>(
      kTickMs, member<std::int64_t>(v, "segmentMs", video.segmentMs, file, where));
  video.bufferAheadMs = member<std::int64_t>(v, "bufferAheadMs", video.bufferAheadMs, file, where);
  for (const auto& r : v.value("renditions", Json::array())) {
    video.renditions.push_back({member<int>(r, "width", 0, file, where + ".renditions"),
                                member<int>(r, "height", 0, file, where + ".renditions"),
                                member<std::int64_t>(r, "bitrate", 0, file, where + ".renditions"),
                                member<double>(r, "frameRate", 30.0, file, where + ".renditions")});
  }
  if (video.renditions.empty()) video.renditions.push_back({1280, 720, 2'500'000, 30.0});
  video.startRendition = member<std::size_t>(v, "startRendition", 0, file, where);
  if (video.startRendition >= video.renditions.size()) {
    fail(file, where + ".startRendition is not a rendition");
  }
  video.timeline = v.value("timeline", Json::array());
  if (!video.timeline.is_array()) fail(file, where + ".timeline is not an array");
  return video;
}

}  // namespace

std::string runMark(const std::string& runId) {
  return "run:" + runId;
}

Scenario parseScenario(const Json& document, const std::string& file) {
  if (!document.is_object()) fail(file, "not a JSON object");
  Scenario scenario;
  scenario.file = file;
  scenario.name = member<std::string>(document, "name", file, file, "scenario");
  scenario.description = member<std::string>(document, "description", "", file, "scenario");
  scenario.expect = document.value("expect", Json::object());
  if (!scenario.expect.is_object()) fail(file, "\"expect\" is not an object");
  const Json players = document.value("players", Json::array());
  if (!players.is_array() || players.empty())
    fail(file, "\"players\" must list at least one player");
  for (std::size_t i = 0; i < players.size(); ++i) {
    const Json& p = players[i];
    const std::string where = "players[" + std::to_string(i) + "]";
    if (!p.is_object()) fail(file, where + " is not an object");
    Player player;
    player.name = member<std::string>(p, "name", "player-" + std::to_string(i + 1), file, where);
    player.startAtMs = member<std::int64_t>(p, "startAtMs", 0, file, where);
    player.width = member<int>(p, "width", player.width, file, where);
    player.height = member<int>(p, "height", player.height, file, where);
    const Json network = p.value("network", Json::object());
    player.network.throughputBps = std::max<std::int64_t>(
        1, member<std::int64_t>(network, "throughputBps", player.network.throughputBps, file,
                                where + ".network"));
    player.network.latencyMs = member<std::int64_t>(network, "latencyMs", player.network.latencyMs,
                                                    file, where + ".network");
    const Json videos = p.value("videos", Json::array());
    for (std::size_t j = 0; j < videos.size(); ++j) {
      player.videos.push_back(
          parseVideo(videos[j], file, where + ".videos[" + std::to_string(j) + "]"));
    }
    if (player.videos.empty()) fail(file, where + " has no videos");
    scenario.players.push_back(std::move(player));
  }
  return scenario;
}

Scenario loadScenario(const std::string& path) {
  std::ifstream in(path);
  if (!in) fail(path, "cannot be read");
  const Json document = Json::parse(in, nullptr, false, true);
  if (document.is_discarded()) fail(path, "is not valid JSON");
  return parseScenario(document, path);
}

namespace {

/// Expands one player's videos into calls, keeping the player's state (time,
/// playhead, pause, rendition, network) as a real player would have it.
class PlayerExpander {
 public:
  PlayerExpander(const Player& player, const ExpandOptions& options, const std::string& file,
                 std::vector<Json>& out)
      : _player(player), _options(options), _file(file), _out(out), _t(player.startAtMs) {}

  void run() {
    for (const auto& video : _player.videos) {
      _video = &video;
      _rendition = video.startRendition;
      _playhead = 0;
      _fetchedUntil = 0;
      _paused = true;
      for (std::size_t i = 0; i < video.timeline.size(); ++i) {
        _where = "timeline[" + std::to_string(i) + "] of video " + video.id;
        action(video.timeline[i]);
      }
      cancelRequests("view ended");
    }
    call("destroyPlayer", Json::object());
  }

 private:
  // --- the calls -----------------------------------------------------------

  void call(const char* name, Json fields, std::int64_t at = -1) {
    fields["t"] = at < 0 ? _t : at;
    fields["call"] = name;
    fields["player"] = _player.name;
    _out.push_back(std::move(fields));
  }

  std::shared_ptr<TAVSDKPlayerData> playerData(bool paused) const {
    auto data = std::make_shared<TAVSDKPlayerData>();
    data->setPlayerPlayheadTime(_playhead);
    data->setPlayerIsPaused(paused);
    data->setPlayerWidth(_player.width);
    data->setPlayerHeight(_player.height);
    data->setPlayerSoftwareName(std::string(kSoftwareName));
    data->setPlayerSoftwareVersion(_options.pluginVersion);
    data->setPlayerTavPluginName(std::string(kPluginName));
    data->setPlayerTavPluginVersion(_options.pluginVersion);
    return data;
  }

  void dispatch(const std::shared_ptr<TAVSDKBaseEvent>& event, std::int64_t at = -1) {
    call("dispatchEventForPlayer", {{"event", TAVSDKEventLog::encodeEvent(*event)}}, at);
  }

  template <class E>
  std::shared_ptr<E> playback(bool paused) {
    completeRequests();
    auto event = std::make_shared<E>();
    event->setPlayerData(playerData(paused));
    dispatch(event);
    return event;
  }
  template <class E>
  void send() {
    (void)playback<E>(_paused);
  }

  std::shared_ptr<TAVSDKVideoData> sourceData() const {
    const Rendition& r = _video->renditions[_rendition];
    auto source = std::make_shared<TAVSDKVideoData>();
    source->setVideoSourceUrl(_video->url);
    source->setVideoSourceHostName(hostOf(_video->url));
    source->setVideoSourceMimeType(std::string("application/x-mpegURL"));
    source->setVideoSourceDuration(_video->durationMs);
    source->setVideoSourceIsLive(std::string(_video->live ? "true" : "false"));
    source->setVideoSourceWidth(r.width);
    source->setVideoSourceHeight(r.height);
    source->setVideoSourceAdvertisedBitrate(Json(r.bitrate));
    source->setVideoSourceAdvertisedFrameRate(Json(r.frameRate));
    return source;
  }

  /// One network request, reported when it completes.
  void request(const std::string& kind, const std::string& url, std::int64_t bytes,
               std::int64_t mediaStart, std::int64_t mediaDuration) {
    const Rendition& r = _video->renditions[_rendition];
    const std::int64_t start = std::max(_t, _networkFreeAt);
    const std::int64_t responseStart = start + _player.network.latencyMs;
    const std::int64_t end =
        responseStart + std::max<std::int64_t>(1, bytes * 8000 / _player.network.throughputBps);
    _networkFreeAt = end;
    auto data = std::make_shared<TAVSDKBandwidthMetricData>();
    data->setRequestStart(start);
    data->setRequestResponseStart(responseStart);
    data->setRequestResponseEnd(end);
    data->setRequestBytesLoaded(bytes);
    data->setRequestType(kind);
    data->setRequestUrl(url);
    data->setRequestHostName(hostOf(url));
    if (kind == "media") {
      data->setRequestMediaStartTime(mediaStart);
      data->setRequestMediaDuration(mediaDuration);
      data->setRequestCurrentLevel(static_cast<std::int32_t>(_rendition));
      data->setRequestVideoWidth(r.width);
      data->setRequestVideoHeight(r.height);
      data->setRequestLabeledBitrate(r.bitrate);
    } else {
      std::vector<tav::Rendition> offered;
      for (const auto& o : _video->renditions)
        offered.emplace_back(o.width, o.height, o.bitrate);
      data->setRequestRenditionLists(offered);
    }
    _requests.push_back({end, data});
  }

  /// Reports the requests that have completed by now, with the player's state now.
  void completeRequests() {
    auto done = std::stable_partition(_requests.begin(), _requests.end(),
                                      [this](const PendingRequest& r) { return r.end > _t; });
    for (auto it = done; it != _requests.end(); ++it) {
      auto event = std::make_shared<TAVSDKRequestBandwidthEvent>(
          TAVSDKPlaybackEventRequestBandwidthEventCompleteType);
      event->setPlayerData(playerData(_paused));
      event->setBandwidthMetricData(it->data);
      dispatch(event, it->end);
    }
    _requests.erase(done, _requests.end());
  }

  /// A seek or the end of the view cancels the requests still in flight.
  void cancelRequests(const std::string& reason) {
    completeRequests();
    for (const auto& r : _requests) {
      r.data->setRequestResponseEnd(std::nullopt);
      r.data->setRequestCancel(reason);
      auto event = std::make_shared<TAVSDKRequestBandwidthEvent>(
          TAVSDKPlaybackEventRequestBandwidthEventCancelType);
      event->setPlayerData(playerData(_paused));
      event->setBandwidthMetricData(r.data);
      dispatch(event);
    }
    _requests.clear();
    _networkFreeAt = _t;
  }

  /// Fetches segments until the buffer reaches its target (or the end).
  void fillBuffer() {
    const std::int64_t target = std::min(_playhead + _video->bufferAheadMs, _video->durationMs);
    while (_fetchedUntil < target && _networkFreeAt <= _t + _video->segmentMs) {
      const Rendition& r = _video->renditions[_rendition];
      const std::int64_t duration = std::min(_video->segmentMs, _video->durationMs - _fetchedUntil);
      const std::int64_t index = _fetchedUntil / _video->segmentMs;
      request("media",
              _video->url.substr(0, _video->url.rfind('/') + 1) + std::to_string(r.height) + "p/" +
                  std::to_string(index) + ".ts",
              r.bitrate * duration / 8000, _fetchedUntil, duration);
      _fetchedUntil += duration;
    }
  }

  /// Playback for `ms`: a "timeupdate" per tick; the playhead moves unless stalled.
  void playFor(std::int64_t ms, bool stalled) {
    for (std::int64_t done = 0; done < ms; done += kTickMs) {
      const std::int64_t step = std::min(kTickMs, ms - done);
      _t += step;
      if (!stalled) _playhead = std::min(_playhead + step, _video->durationMs);
      send<TAVSDKTimeUpdateEvent>();
      if (!stalled) fillBuffer();
    }
  }

  void playAd(const Json& a, std::int64_t adMs, std::int64_t loadMs) {
    send<TAVSDKAdPlayEvent>();
    _t += loadMs;
    send<TAVSDKAdPlayingEvent>();
    std::int64_t played = 0;
    int quartile = 1;
    while (played < adMs) {
      const std::int64_t step = std::min(kTickMs, adMs - played);
      _t += step;
      played += step;
      send<TAVSDKTimeUpdateEvent>();  // the content playhead stays where it is
      while (quartile <= 3 && played * 4 >= adMs * quartile) {
        if (quartile == 1) send<TAVSDKAdFirstQuartileEvent>();
        if (quartile == 2) send<TAVSDKAdMidpointEvent>();
        if (quartile == 3) send<TAVSDKAdThirdQuartileEvent>();
        ++quartile;
      }
    }
    if (a.value("error", false)) {
      send<TAVSDKAdErrorEvent>();
    } else {
      send<TAVSDKAdEndedEvent>();
    }
  }

  /// An ad break: request, response, the ads, then back to the content.
  void adBreak(const Json& a) {
    const int ads = member<int>(a, "ads", 1, _file, _where);
    const auto adMs = member<std::int64_t>(a, "adMs", 15000, _file, _where);
    const auto requestMs = member<std::int64_t>(a, "requestMs", 300, _file, _where);
    const auto loadMs = member<std::int64_t>(a, "loadMs", 300, _file, _where);
    send<TAVSDKAdRequestEvent>();
    _t += requestMs;
    send<TAVSDKAdResponseEvent>();
    send<TAVSDKAdBreakStartEvent>();
    _paused = false;
    for (int i = 0; i < ads; ++i)
      playAd(a, adMs, loadMs);
    send<TAVSDKAdBreakEndEvent>();
  }

  void contentStarts(std::int64_t startupMs) {
    _paused = false;
    send<TAVSDKPlayEvent>();
    fillBuffer();
    _t += startupMs;
    send<TAVSDKPlayingEvent>();
  }

  // --- the actions -----------------------------------------------------------

  void action(const Json& a) {
    if (!a.is_object() || !a.contains("action") || !a["action"].is_string()) {
      fail(_file, _where + " needs an \"action\"");
    }
    const std::string name = a["action"];
    const auto ms = member<std::int64_t>(a, "ms", 0, _file, _where);
    if (name == "load") {
      load(a);
      _t += ms;
    } else if (name == "start") {
      start(a);
    } else if (name == "play") {
      playFor(ms, false);
    } else if (name == "stall") {
      playFor(ms, true);
    } else if (name == "seek") {
      seek(a);
    } else if (name == "pause") {
      _paused = true;
      send<TAVSDKPauseEvent>();
      _t += ms;
      if (a.value("resume", true))
        contentStarts(member<std::int64_t>(a, "resumeMs", 0, _file, _where));
    } else if (name == "rendition") {
      rendition(a);
    } else if (name == "midroll") {
      _paused = true;
      send<TAVSDKPauseEvent>();
      adBreak(a);
      contentStarts(member<std::int64_t>(a, "resumeMs", 0, _file, _where));
    } else if (name == "error") {
      auto event = std::make_shared<TAVSDKErrorEvent>();
      auto data = playerData(_paused);
      data->setPlayerErrorCode(member<std::string>(a, "code", "1", _file, _where));
      data->setPlayerErrorMessage(
          member<std::string>(a, "message", "playback error", _file, _where));
      event->setPlayerData(data);
      dispatch(event);
    } else if (name == "end") {
      cancelRequests("view ended");
      _paused = true;
      send<TAVSDKEndedEvent>();
      send<TAVSDKViewEndEvent>();
    } else if (name == "wait") {
      _t += ms;
    } else {
      fail(_file, _where + ": unknown action \"" + name + "\"");
    }
  }

  void load(const Json& a) {
    cancelRequests("view ended");
    _paused = true;
    send<TAVSDKViewInitEvent>();
    auto metadata = std::make_shared<TAVSDKDataEvent>();
    auto customerPlayer = TAVSDKCustomerPlayerData::initWithEnvironmentKey(_options.environmentKey);
    customerPlayer->setPlayerName(_player.name);
    customerPlayer->setPlayerVersion(_options.pluginVersion);
    customerPlayer->setPlayerInitTime(_t);
    metadata->setCustomerPlayerData(customerPlayer);
    auto customerVideo = std::make_shared<TAVSDKCustomerVideoData>();
    customerVideo->setVideoId(_video->id);
    customerVideo->setVideoTitle(_video->title);
    if (!_video->series.empty()) customerVideo->setVideoSeries(_video->series);
    customerVideo->setVideoDuration(_video->durationMs);
    customerVideo->setVideoIsLive(_video->live);
    customerVideo->setVideoStreamType(std::string(_video->live ? "live" : "on-demand"));
    customerVideo->setVideoCdn(hostOf(_video->url));
    metadata->setCustomerVideoData(customerVideo);
    auto custom = std::make_shared<TAVSDKCustomData>();
    custom->setCustomData1(runMark(_options.runId));
    if (a.contains("custom"))
      custom->setCustomData2(member<std::string>(a, "custom", "", _file, _where));
    metadata->setCustomData(custom);
    metadata->setVideoData(sourceData());
    dispatch(metadata);
  }

  void start(const Json& a) {
    const auto startupMs = member<std::int64_t>(a, "startupMs", 1000, _file, _where);
    if (!a.contains("preroll")) {
      // The manifest arrives during the start-up.
      _paused = false;
      send<TAVSDKPlayEvent>();
      request("manifest", _video->url, 2048, 0, 0);
      fillBuffer();
      _t += startupMs;
      send<TAVSDKPlayingEvent>();
      return;
    }
    _paused = false;
    send<TAVSDKPlayEvent>();
    request("manifest", _video->url, 2048, 0, 0);
    adBreak(a["preroll"]);
    contentStarts(startupMs);
  }

  void seek(const Json& a) {
    const auto to = member<std::int64_t>(a, "toMs", _playhead, _file, _where);
    const auto latencyMs = member<std::int64_t>(a, "latencyMs", 500, _file, _where);
    send<TAVSDKInternalSeekingEvent>();
    cancelRequests("seek");
    _playhead = std::clamp<std::int64_t>(to, 0, _video->durationMs);
    _fetchedUntil = _playhead - _playhead % _video->segmentMs;
    fillBuffer();
    _t += latencyMs;
    send<TAVSDKSeekedEvent>();
  }

  void rendition(const Json& a) {
    const auto index = member<std::size_t>(a, "index", 0, _file, _where);
    if (index >= _video->renditions.size())
      fail(_file, _where + ": no rendition " + std::to_string(index));
    _rendition = index;
    auto change = std::make_shared<TAVSDKDataEvent>();
    change->setVideoData(sourceData());
    dispatch(change);
    send<TAVSDKRenditionChangeEvent>();
  }

  struct PendingRequest {
    std::int64_t end;
    std::shared_ptr<TAVSDKBandwidthMetricData> data;
  };

  const Player& _player;
  const ExpandOptions& _options;
  const std::string& _file;
  std::vector<Json>& _out;
  const Video* _video = nullptr;
  std::string _where;
  std::int64_t _t;
  std::int64_t _playhead = 0;
  std::int64_t _fetchedUntil = 0;
  std::int64_t _networkFreeAt = 0;
  std::size_t _rendition = 0;
  bool _paused = true;
  std::vector<PendingRequest> _requests;  // in flight, oldest first
};

}  // namespace

std::vector<Json> expandScenario(const Scenario& scenario, const ExpandOptions& options) {
  std::vector<Json> calls;
  // Device facts are global: every beacon of every player carries them.
  auto global = std::make_shared<TAVSDKDataEvent>();
  auto viewer = std::make_shared<TAVSDKViewerData>();
  viewer->setViewerApplicationName(std::string("tav-simulate"));
  viewer->setViewerApplicationVersion(options.pluginVersion);
  viewer->setViewerOsFamily(std::string("Linux"));
  viewer->setViewerDeviceCategory(std::string("desktop"));
  global->setViewerData(viewer);
  calls.push_back({{"t", 0},
                   {"call", "dispatchGlobalDataEvent"},
                   {"event", TAVSDKEventLog::encodeEvent(*global)}});
  for (const auto& player : scenario.players) {
    PlayerExpander(player, options, scenario.file, calls).run();
  }
  // Requests are reported when they complete, so calls are made out of order;
  // calls at one time keep the order in which the player made them.
  std::stable_sort(calls.begin(), calls.end(), [](const Json& a, const Json& b) {
    return a["t"].get<std::int64_t>() < b["t"].get<std::int64_t>();
  });
  return calls;
}

}  // namespace tav::simulate
