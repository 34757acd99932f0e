// A minimal integration: one player, one short view, a clean shutdown.
//
// A real integration observes its media player and calls the facade from the
// player's callbacks; here the events are sent in sequence with the playhead a
// real player would report. Beacons go to the environment key given as the first
// argument ("local" posts to http://localhost:8080, where tav-collector listens).

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>

#include <tav/TavCore.h>

using namespace tav;

namespace {

// Every playback event carries the player's state at that moment.
template <class Event>
void send(const std::string& player, std::int64_t playheadMs, bool paused) {
  auto event = std::make_shared<Event>();
  auto data = std::make_shared<TAVSDKPlayerData>();
  data->setPlayerPlayheadTime(playheadMs);
  data->setPlayerIsPaused(paused);
  data->setPlayerWidth(1280);
  data->setPlayerHeight(720);
  data->setPlayerSoftwareName("example-player");
  data->setPlayerSoftwareVersion("1.0");
  data->setPlayerTavPluginName("example-integration");
  data->setPlayerTavPluginVersion("0.1");
  event->setPlayerData(data);
  TAVSDKCore::dispatchEventForPlayer(event, player);
}

}  // namespace

int main(int argc, char** argv) {
  const std::string envKey = argc > 1 ? argv[1] : "local";
  const std::string player = "example-player-1";
  TAVSDKLog::setHandler([](std::string_view m) {
    std::fprintf(stderr, "[tav] %.*s\n", static_cast<int>(m.size()), m.data());
  });

  // Device facts are global: every player's beacons carry them.
  auto global = std::make_shared<TAVSDKDataEvent>();
  auto viewer = std::make_shared<TAVSDKViewerData>();
  viewer->setViewerApplicationName("tav-example");
  viewer->setViewerOsFamily("Linux");
  global->setViewerData(viewer);
  TAVSDKCore::dispatchGlobalDataEvent(global);

  // A new view: "viewinit", then the customer's metadata with the environment key.
  send<TAVSDKViewInitEvent>(player, 0, true);
  auto metadata = std::make_shared<TAVSDKDataEvent>();
  metadata->setCustomerPlayerData(TAVSDKCustomerPlayerData::initWithEnvironmentKey(envKey));
  auto video = std::make_shared<TAVSDKCustomerVideoData>();
  video->setVideoId("example-video");
  video->setVideoTitle("Example video");
  metadata->setCustomerVideoData(video);
  TAVSDKCore::dispatchEventForPlayer(metadata, player);

  send<TAVSDKPlayEvent>(player, 0, false);
  send<TAVSDKPlayingEvent>(player, 0, false);
  std::int64_t playhead = 0;
  for (int i = 0; i < 8; ++i) {  // two seconds of playback, a timeupdate every 250 ms
    std::this_thread::sleep_for(std::chrono::milliseconds(250));
    playhead += 250;
    send<TAVSDKTimeUpdateEvent>(player, playhead, false);
  }
  send<TAVSDKPauseEvent>(player, playhead, true);
  send<TAVSDKViewEndEvent>(player, playhead, true);

  // Flush the player's queue and deliver what is pending before exiting.
  TAVSDKCore::destroyPlayer(player);
  const bool delivered = TAVSDKCore::shutdown(std::chrono::seconds(5));
  std::printf("view sent to \"%s\": %s\n", envKey.c_str(),
              delivered ? "transport drained" : "transport not drained within 5 s");
  return 0;
}
