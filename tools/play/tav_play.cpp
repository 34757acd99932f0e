// tav-play: plays one stream with GStreamer's playbin, with the TavCore
// integration attached, and sends the view's beacons to the collection host of
// the environment key ("local" by default: http://localhost:8080, where
// tav-collector listens).
//
//   tav-play [options] URI
//     --env KEY            environment key (default "local")
//     --local-port N       port of the local collector (default: the build's)
//     --player NAME        player name (default "tav-play")
//     --video-id ID        video id   (default: the URI)
//     --title TITLE        video title
//     --window             use the default video and audio sinks (needs a display)
//     --headless           fake sinks that keep real time (default without a display)
//     --pause-at MS --pause-for MS   pause once at a playhead, for a while
//     --seek-at MS --seek-to MS      seek once at a playhead
//     --limit S            stop after S seconds

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <string>

#include <gst/gst.h>

#include <tav/TavCore.h>
#include <tav/gstreamer/PlaybinMonitor.h>

#include "PlaybinSession.h"
#include "transport/TransportOverrides.h"

namespace {

int usage(std::FILE* out = stderr) {
  std::fprintf(
      out,
      "usage: tav-play [--env KEY] [--local-port N] [--player NAME] [--video-id ID]\n"
      "                [--title TITLE] [--window|--headless] [--pause-at MS --pause-for MS]\n"
      "                [--seek-at MS --seek-to MS] [--limit S] URI\n");
  return out == stderr ? 2 : 0;
}

std::optional<long long> number(const char* text) {
  char* end = nullptr;
  const long long value = std::strtoll(text, &end, 10);
  if (end == text || *end != '\0' || value < 0) return std::nullopt;
  return value;
}

}  // namespace

int main(int argc, char** argv) {
  gst_init(&argc, &argv);
  std::string env = "local";
  std::string player = "tav-play";
  std::string uri;
  std::optional<std::string> videoId;
  std::optional<std::string> title;
  std::optional<long long> localPort;
  // Read before any thread starts.
  const bool hasDisplay =
      std::getenv("DISPLAY") != nullptr ||        // NOLINT(concurrency-mt-unsafe)
      std::getenv("WAYLAND_DISPLAY") != nullptr;  // NOLINT(concurrency-mt-unsafe)
  tav::play::SessionOptions options;
  options.headless = !hasDisplay;

  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    const auto numberArg = [&]() -> std::optional<long long> {
      return hasValue ? number(argv[++i]) : std::nullopt;
    };
    if (arg == "--help" || arg == "-h") {
      return usage(stdout);
    } else if (arg == "--env" && hasValue) {
      env = argv[++i];
    } else if (arg == "--player" && hasValue) {
      player = argv[++i];
    } else if (arg == "--video-id" && hasValue) {
      videoId = argv[++i];
    } else if (arg == "--title" && hasValue) {
      title = argv[++i];
    } else if (arg == "--window") {
      options.headless = false;
    } else if (arg == "--headless") {
      options.headless = true;
    } else if (arg == "--local-port") {
      if (!(localPort = numberArg()) || *localPort > 65535) return usage();
    } else if (arg == "--pause-at" || arg == "--pause-for" || arg == "--seek-at" ||
               arg == "--seek-to" || arg == "--limit") {
      const auto value = numberArg();
      if (!value) return usage();
      if (arg == "--pause-at") options.pauseAtMs = *value;
      if (arg == "--pause-for") options.pauseFor = std::chrono::milliseconds(*value);
      if (arg == "--seek-at") options.seekAtMs = *value;
      if (arg == "--seek-to") options.seekToMs = *value;
      if (arg == "--limit") options.limit = std::chrono::seconds(*value);
    } else if (!arg.empty() && arg.front() != '-' && uri.empty()) {
      uri = arg;
    } else {
      return usage();
    }
  }
  if (uri.empty()) return usage();
  if (gst_uri_is_valid(uri.c_str()) == FALSE) {
    gchar* converted = gst_filename_to_uri(uri.c_str(), nullptr);
    if (converted == nullptr) return usage();
    uri = converted;
    g_free(converted);
  }
  if (localPort) {
    tav::detail::TransportOverrides overrides;
    overrides.localPort = static_cast<int>(*localPort);
    tav::detail::setTransportOverrides(overrides);
  }

  // Device facts are global: every beacon carries them.
  auto global = std::make_shared<tav::TAVSDKDataEvent>();
  auto viewer = std::make_shared<tav::TAVSDKViewerData>();
  viewer->setViewerApplicationName("tav-play");
  viewer->setViewerOsFamily("Linux");
  global->setViewerData(viewer);
  tav::TAVSDKCore::dispatchGlobalDataEvent(global);

  tav::play::PlaybinSession session(uri, options);
  if (session.playbin() == nullptr) {
    std::fprintf(stderr, "tav-play: cannot make a playbin (GStreamer base plug-ins missing?)\n");
    return 1;
  }
  tav::gstreamer::PlaybinMetadata metadata;
  metadata.customerPlayerData = tav::TAVSDKCustomerPlayerData::initWithEnvironmentKey(env);
  metadata.customerPlayerData->setPlayerName(player);
  metadata.customerVideoData = std::make_shared<tav::TAVSDKCustomerVideoData>();
  metadata.customerVideoData->setVideoId(videoId.value_or(uri));
  if (title) metadata.customerVideoData->setVideoTitle(*title);
  auto monitor = tav::gstreamer::PlaybinMonitor::attach(session.playbin(), player, metadata);
  if (!monitor) return 1;

  std::printf("tav-play: playing %s (%s) as player \"%s\", environment key \"%s\"\n", uri.c_str(),
              options.headless ? "headless" : "window", player.c_str(), env.c_str());
  std::fflush(stdout);
  const auto outcome = session.run();
  monitor->detach();
  const bool delivered = tav::TAVSDKCore::shutdown(std::chrono::seconds(10));

  std::printf("tav-play: %s after %.1f s of playback%s; longest freeze %.1f s; beacons %s\n",
              outcome.error      ? ("error: " + *outcome.error).c_str()
              : outcome.ended    ? "ended"
              : outcome.timedOut ? "stopped at the time limit"
                                 : "stopped",
              static_cast<double>(outcome.playingWallMs) / 1000.0,
              outcome.pausedWallMs > 0 ? " (paused excluded)" : "",
              static_cast<double>(outcome.longestFreezeMs()) / 1000.0,
              delivered ? "delivered" : "not all delivered within 10 s");
  gst_deinit();
  return outcome.error ? 1 : 0;
}
