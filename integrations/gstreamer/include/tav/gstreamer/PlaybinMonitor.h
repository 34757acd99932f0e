#pragma once
// The GStreamer integration: watches a `playbin` element and reports what it
// plays to the core under one player name. Attach it after gst_init and before
// (or after) setting the URI; every URI the playbin is given becomes a view.
//
// What is reported: "viewinit"/"viewend" per URI, "play", "playing", "pause",
// "timeupdate" (the playhead, every `timeUpdateInterval` while playing),
// "internalseeking"/"seeked" around a seek, "error", "ended", "renditionchange"
// when the shown video's size changes, and "requestcompleted"/"requestfailed" for
// the HLS playlist and segments (plain `playbin` with the legacy HLS demuxer, the
// one that posts "adaptive-streaming-statistics"). Pauses the application makes
// while the pipeline buffers are not user pauses: stalls show in the playhead.
//
// Threads: GStreamer callbacks only copy what they see into a queue; one
// integration thread per monitor calls the core (serialised across monitors) and
// queries the playhead. No callback waits on the network or on the core.
// Ownership: the monitor holds a reference to the playbin until it is detached.

#include <chrono>
#include <memory>
#include <string>

#include <gst/gst.h>

#include <tav/TavCore.h>

namespace tav::gstreamer {

/// The plug-in name every beacon of this integration carries.
inline constexpr char kPluginName[] = "tavcore-gstreamer";

struct PlaybinMetadata {
  /// The customer's player record (environment key, player name, ...); copied
  /// into every view. Without a player name, the monitor's player name is used.
  std::shared_ptr<TAVSDKCustomerPlayerData> customerPlayerData;
  /// The customer's description of the video; copied into every view.
  std::shared_ptr<TAVSDKCustomerVideoData> customerVideoData;
  /// The display size in pixels; 0 reports the size of the frames shown.
  int playerWidth = 0;
  int playerHeight = 0;
  /// Period of the "timeupdate" playhead reports.
  std::chrono::milliseconds timeUpdateInterval{250};
};

class PlaybinMonitor {
 public:
  /// Starts watching `playbin` as player `playerName` (the monitor takes its own
  /// reference). Answers nullptr, with a log line, when GStreamer is not
  /// initialised or the element is not a playbin.
  static std::unique_ptr<PlaybinMonitor> attach(GstElement* playbin, const std::string& playerName,
                                                PlaybinMetadata metadata);
  ~PlaybinMonitor();
  PlaybinMonitor(const PlaybinMonitor&) = delete;
  PlaybinMonitor& operator=(const PlaybinMonitor&) = delete;

  /// Ends the current view ("viewend"), destroys the core player (which flushes
  /// its beacons to the transport), stops the integration thread and releases
  /// the playbin. Idempotent; the destructor calls it. Call it from an
  /// application thread, never from a GStreamer callback.
  void detach();

  [[nodiscard]] const std::string& playerName() const;

  struct Impl;

 private:
  explicit PlaybinMonitor(std::unique_ptr<Impl> impl);
  std::unique_ptr<Impl> _impl;
};

}  // namespace tav::gstreamer
