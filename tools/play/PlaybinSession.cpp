#include "PlaybinSession.h"

#include <algorithm>

namespace tav::play {
namespace {

using Clock = std::chrono::steady_clock;

GstElement* fakeSink(const char* name) {
  GstElement* sink = gst_element_factory_make("fakesink", name);
  if (sink != nullptr) g_object_set(sink, "sync", TRUE, nullptr);
  return sink;
}

}  // namespace

std::int64_t SessionOutcome::longestFreezeMs() const {
  std::int64_t longest = 0;
  std::optional<std::int64_t> stillSince;  // wall ms of the last move
  std::optional<std::int64_t> last;
  bool moved = false;
  for (const auto& s : samples) {
    if (s.userPaused) {  // a pause on purpose is no freeze
      stillSince.reset();
      last.reset();
      continue;
    }
    if (!last || s.playheadMs != *last) {
      if (last) moved = true;
      last = s.playheadMs;
      stillSince = s.wallMs;
      continue;
    }
    if (moved && stillSince) longest = std::max(longest, s.wallMs - *stillSince);
  }
  return longest;
}

PlaybinSession::PlaybinSession(const std::string& uri, const SessionOptions& options)
    : _options(options) {
  _playbin = gst_element_factory_make("playbin", "player");
  if (_playbin == nullptr) return;
  gst_object_ref_sink(_playbin);
  g_object_set(_playbin, "uri", uri.c_str(), nullptr);
  if (options.headless) {
    g_object_set(_playbin, "video-sink", fakeSink("video-out"), "audio-sink", fakeSink("audio-out"),
                 nullptr);
  }
}

PlaybinSession::~PlaybinSession() {
  if (_playbin != nullptr) {
    gst_element_set_state(_playbin, GST_STATE_NULL);
    gst_object_unref(_playbin);
  }
}

SessionOutcome PlaybinSession::run() {
  SessionOutcome outcome;
  if (_playbin == nullptr) {
    outcome.error = "playbin is not available (GStreamer base plug-ins missing?)";
    return outcome;
  }
  GstBus* bus = gst_element_get_bus(_playbin);
  const auto start = Clock::now();
  const auto wallMs = [&] {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
  };

  bool wantPlaying = true;  // the application's intent
  bool buffering = false;
  bool paused = false;  // the deliberate pause is running
  bool pauseDone = false;
  bool seekDone = false;
  std::int64_t pauseStartedMs = 0;
  bool playingOnce = false;
  gst_element_set_state(_playbin, GST_STATE_PLAYING);

  bool done = false;
  while (!done) {
    if (std::chrono::milliseconds(wallMs()) >= _options.limit) {
      outcome.timedOut = true;
      break;
    }
    GstMessage* message = gst_bus_timed_pop(bus, 20 * GST_MSECOND);
    if (message != nullptr) {
      switch (GST_MESSAGE_TYPE(message)) {
        case GST_MESSAGE_EOS:
          outcome.ended = true;
          done = true;
          break;
        case GST_MESSAGE_ERROR: {
          GError* error = nullptr;
          gst_message_parse_error(message, &error, nullptr);
          outcome.error = error != nullptr && error->message != nullptr ? error->message : "error";
          if (error != nullptr) g_error_free(error);
          done = true;
          break;
        }
        case GST_MESSAGE_BUFFERING: {
          gint percent = 100;
          gst_message_parse_buffering(message, &percent);
          // Wait for data while buffering, then go on.
          if (percent < 100 && !buffering) {
            buffering = true;
            if (wantPlaying) gst_element_set_state(_playbin, GST_STATE_PAUSED);
          } else if (percent >= 100 && buffering) {
            buffering = false;
            if (wantPlaying) gst_element_set_state(_playbin, GST_STATE_PLAYING);
          }
          break;
        }
        case GST_MESSAGE_STATE_CHANGED:
          if (GST_MESSAGE_SRC(message) == GST_OBJECT(_playbin)) {
            GstState current = GST_STATE_NULL;
            gst_message_parse_state_changed(message, nullptr, &current, nullptr);
            if (current == GST_STATE_PLAYING) playingOnce = true;
          }
          break;
        default:
          break;
      }
      gst_message_unref(message);
    }
    if (done) break;

    gint64 positionNs = 0;
    if (playingOnce && gst_element_query_position(_playbin, GST_FORMAT_TIME, &positionNs)) {
      const std::int64_t playhead = positionNs / GST_MSECOND;
      outcome.samples.push_back({wallMs(), playhead, paused});
      if (_options.pauseAtMs && !pauseDone && !paused && playhead >= *_options.pauseAtMs) {
        paused = true;
        wantPlaying = false;
        pauseStartedMs = wallMs();
        gst_element_set_state(_playbin, GST_STATE_PAUSED);
      }
      if (_options.seekAtMs && !seekDone && playhead >= *_options.seekAtMs) {
        seekDone = true;
        outcome.seeked = gst_element_seek_simple(
            _playbin, GST_FORMAT_TIME,
            static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_KEY_UNIT),
            _options.seekToMs * GST_MSECOND);
      }
    }
    if (paused && std::chrono::milliseconds(wallMs() - pauseStartedMs) >= _options.pauseFor) {
      paused = false;
      pauseDone = true;
      wantPlaying = true;
      outcome.pausedWallMs = wallMs() - pauseStartedMs;
      if (!buffering) gst_element_set_state(_playbin, GST_STATE_PLAYING);
    }
  }
  outcome.playingWallMs = wallMs() - outcome.pausedWallMs;
  gst_element_set_state(_playbin, GST_STATE_NULL);
  gst_object_unref(bus);
  return outcome;
}

}  // namespace tav::play
