#pragma once
// Turns what a playbin pipeline does (state changes, buffering, seeks, caps,
// HTTP downloads, the playhead) into the events that the core expects of an
// integration. Free of GStreamer types so that its decisions can be tested on
// their own; the GStreamer side (PlaybinMonitor) feeds it.
//
// Not thread-safe: one thread calls every operation (the integration thread).

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <tav/TavCore.h>

#include "MasterPlaylist.h"

namespace tav::gstreamer {

enum class PipelineState { VoidPending, Null, Ready, Paused, Playing };

/// Facts that every event's player record carries.
struct PlayerFacts {
  std::string softwareName;
  std::string softwareVersion;
  std::string pluginName;
  std::string pluginVersion;
  /// The player's display size; 0 follows the size of the frames shown.
  int width = 0;
  int height = 0;
};

/// An HTTP response header block seen by the source element.
struct HttpResponse {
  std::string uri;
  int status = 0;
  std::string reason;
  std::int64_t atMs = 0;  // when the headers arrived, ms since the epoch
};

/// A completed segment download as the demuxer reports it.
struct SegmentDownload {
  std::string uri;
  std::int64_t startMs = 0;  // ms since the epoch
  std::int64_t endMs = 0;
  std::int64_t bytes = 0;
};

class ViewReporter {
 public:
  using Sink = std::function<void(const TAVSDKEventPtr&)>;

  /// `customerPlayer` and `customerVideo` (optional) are copied into the data
  /// event of every new view; `sink` receives each event in order.
  ViewReporter(PlayerFacts facts, std::shared_ptr<TAVSDKCustomerPlayerData> customerPlayer,
               std::shared_ptr<TAVSDKCustomerVideoData> customerVideo, Sink sink);

  /// The latest playhead in ms (nullopt: unknown); carried by later events.
  void setPlayhead(std::optional<std::int64_t> ms) { _playhead = ms; }
  /// A new source: ends the current view (if any) and starts one for `uri`.
  void uriChanged(const std::string& uri);
  /// A state change of the pipeline itself (not of its children), posted at `nowMs`.
  void stateChanged(PipelineState old, PipelineState current, PipelineState pending,
                    std::int64_t nowMs);
  /// A buffering message; `nowMs` is when it was posted.
  void buffering(int percent, std::int64_t nowMs);
  /// A seek was sent to the pipeline.
  void seekStarted();
  /// The pipeline finished an asynchronous state change (ends a seek).
  void asyncDone();
  void endOfStream();
  void error(const std::string& code, const std::string& message);
  /// The size and frame rate of the frames that reach the video sink.
  void videoFormat(int width, int height, std::optional<double> frameRate);
  /// The duration of the source, once known.
  void duration(std::int64_t ms);
  /// The text of the master playlist, as it was downloaded.
  void masterPlaylist(const std::string& uri, const std::string& text);
  /// The master playlist was loaded and processed at `endMs`.
  void manifestLoaded(const std::string& uri, std::int64_t endMs);
  /// The demuxer switched to the variant whose playlist is `uri`.
  void variantSelected(const std::string& uri, std::int64_t bitrate);
  void httpResponse(const HttpResponse& response);
  void segmentLoaded(const SegmentDownload& download);
  /// The periodic playhead report (sent only while the playhead should move).
  void tick();
  /// The integration lets go of the player: ends the view.
  void detach();

  /// Whether a periodic "timeupdate" would be sent now.
  [[nodiscard]] bool wantsTicks() const;

 private:
  template <class Event>
  std::shared_ptr<Event> make() const;
  void send(const std::shared_ptr<TAVSDKPlaybackEvent>& event);
  void requestPlay();
  void endView();
  [[nodiscard]] const Variant* variantOf(const std::string& segmentUri) const;
  [[nodiscard]] const Variant* currentVariant() const;
  [[nodiscard]] std::shared_ptr<TAVSDKVideoData> videoRecord() const;

  PlayerFacts _facts;
  std::shared_ptr<TAVSDKCustomerPlayerData> _customerPlayer;
  std::shared_ptr<TAVSDKCustomerVideoData> _customerVideo;
  Sink _sink;

  std::optional<std::int64_t> _playhead;
  std::string _uri;
  bool _viewActive = false;
  bool _playRequested = false;  // "play" sent, no pause since
  bool _playingSent = false;    // "playing" sent since the last "play"
  bool _paused = true;          // the user's paused state
  bool _seeking = false;
  bool _buffering = false;
  std::int64_t _bufferingEndedMs = 0;
  bool _finished = false;  // "ended" or "error" sent

  int _frameWidth = 0;
  int _frameHeight = 0;
  std::optional<double> _frameRate;
  bool _formatReported = false;

  std::vector<Variant> _variants;
  std::optional<std::size_t> _currentVariant;
  std::string _manifestUri;
  std::int64_t _manifestBytes = 0;
  std::optional<HttpResponse> _manifestResponse;
  std::map<std::string, HttpResponse> _responses;  // by URL, until the download completes
};

/// A short error code for a GStreamer error domain name and code:
/// "gst-resource-error-quark", 3 -> "resource:3" (other domains keep their name).
[[nodiscard]] std::string errorCode(const std::string& domain, int code);

/// A GStreamer error message without what some elements append to it: only the
/// first line, cut before a source location ("Not Found: ../ext/soup/x.c(10): ...").
[[nodiscard]] std::string errorMessage(const std::string& message);

}  // namespace tav::gstreamer
