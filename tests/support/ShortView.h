#pragma once
// A short whole view through the facade, as the end-to-end tests play it: the
// environment key, "viewinit", "play", "playing", twelve one-second
// "timeupdate"s, then "pause", "ended" and "viewend". Each facade call goes
// through `dispatch(event, player)`, so a test can time or wrap it.

#include <cstdint>
#include <memory>
#include <string>

#include "tav/TavCore.h"

namespace tav::test {

template <class Dispatch>
void playShortView(TAVSDKVirtualClock& clock, const std::string& player,
                   const std::string& environmentKey, Dispatch dispatch) {
  auto keyEvent = std::make_shared<TAVSDKDataEvent>();
  keyEvent->setCustomerPlayerData(TAVSDKCustomerPlayerData::initWithEnvironmentKey(environmentKey));
  dispatch(std::shared_ptr<TAVSDKBaseEvent>(keyEvent), player);
  const auto send = [&]<class E>(std::int64_t playhead, bool paused) {
    auto event = std::make_shared<E>();
    auto data = std::make_shared<TAVSDKPlayerData>();
    data->setPlayerPlayheadTime(playhead);
    data->setPlayerIsPaused(paused);
    event->setPlayerData(data);
    dispatch(std::shared_ptr<TAVSDKBaseEvent>(event), player);
  };
  send.template operator()<TAVSDKViewInitEvent>(0, false);
  send.template operator()<TAVSDKPlayEvent>(0, false);
  clock.advance(300);
  send.template operator()<TAVSDKPlayingEvent>(0, false);
  for (std::int64_t playhead = 1000; playhead <= 12000; playhead += 1000) {
    clock.advance(1000);
    send.template operator()<TAVSDKTimeUpdateEvent>(playhead, false);
  }
  send.template operator()<TAVSDKPauseEvent>(12000, true);
  send.template operator()<TAVSDKEndedEvent>(12000, true);
  send.template operator()<TAVSDKViewEndEvent>(12000, true);
}

}  // namespace tav::test
