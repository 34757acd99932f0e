#pragma once
// The application side of tav-play: a playbin that plays one URI to its end (or
// a time limit), the way a player application drives it: it pauses while the
// pipeline buffers and resumes when buffering is done, and it can pause or seek
// once at a chosen playhead. It records the playhead as it goes. The tav-play
// tool and the player tests share it.
//
// One thread (the caller of `run`) drives the pipeline; the bus is polled, so no
// GLib main loop is needed.

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <gst/gst.h>

namespace tav::play {

struct SessionOptions {
  /// Fake sinks (sync=true) instead of the playbin's own sinks.
  bool headless = true;
  /// Pause at this playhead (ms) for `pauseFor`.
  std::optional<std::int64_t> pauseAtMs;
  std::chrono::milliseconds pauseFor{0};
  /// Seek to `seekToMs` once the playhead reaches this one (ms).
  std::optional<std::int64_t> seekAtMs;
  std::int64_t seekToMs = 0;
  /// Stop after this much wall-clock time even if the stream has not ended.
  std::chrono::milliseconds limit{std::chrono::minutes(10)};
};

/// One playhead reading.
struct PlayheadSample {
  std::int64_t wallMs;      // since the start of `run`
  std::int64_t playheadMs;  // the pipeline's position
  bool userPaused;          // during a pause the session made on purpose
};

struct SessionOutcome {
  bool ended = false;                // end of stream reached
  bool timedOut = false;             // the limit was reached first
  std::optional<std::string> error;  // the first error message
  std::int64_t playingWallMs = 0;    // wall time from the play request to the end, less pauses
  std::int64_t pausedWallMs = 0;     // wall time spent in the deliberate pause
  bool seeked = false;
  std::vector<PlayheadSample> samples;

  /// The longest stretch (ms) in which the playhead stood still while playback
  /// was wanted (after it first moved, outside the deliberate pause and the seek).
  [[nodiscard]] std::int64_t longestFreezeMs() const;
};

class PlaybinSession {
 public:
  /// Makes the playbin for `uri` (headless or with the default sinks).
  PlaybinSession(const std::string& uri, const SessionOptions& options);
  ~PlaybinSession();
  PlaybinSession(const PlaybinSession&) = delete;
  PlaybinSession& operator=(const PlaybinSession&) = delete;

  /// The playbin, for attaching a monitor before `run`.
  [[nodiscard]] GstElement* playbin() const { return _playbin; }
  /// Plays until the end, an error or the limit; leaves the pipeline in NULL.
  SessionOutcome run();

 private:
  GstElement* _playbin = nullptr;
  SessionOptions _options;
};

}  // namespace tav::play
