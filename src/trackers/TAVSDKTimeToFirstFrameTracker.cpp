#include "tav/trackers/TAVSDKTimeToFirstFrameTracker.h"

#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav {
namespace {

// Content that has played longer than this makes a later ad a mid-roll.
constexpr std::int64_t kContentStartedMs = 1000;

}  // namespace

void TAVSDKTimeToFirstFrameTracker::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  const std::string& type = event.getType();
  const bool playing = type == TAVSDKPlaybackEventPlayingEventType;
  if (!playing && type != TAVSDKPlaybackEventAdPlayingEventType) return;

  const auto& view = event.viewData();
  const auto playingTime = view ? view->viewPlayingTime() : std::nullopt;
  const bool contentStarted = playingTime && *playingTime > kContentStartedMs;
  // Both types force an internal heartbeat first, so the watch time already
  // includes this moment.
  const std::int64_t watchTime = view ? view->viewWatchTime().value_or(0) : 0;

  if (playing) {
    if (_state < 1) {
      _state = 1;
      setAndSendTTFF(watchTime);
    }
  } else if (!contentStarted && _state <= 1) {
    _state = 2;
    setAndSendTTFF(watchTime);
  }
}

void TAVSDKTimeToFirstFrameTracker::setAndSendTTFF(std::int64_t ms) {
  auto metric = std::make_shared<TAVSDKViewData>();
  metric->setViewTimeToFirstFrame(ms);
  dispatchViewMetric(std::move(metric));
}

}  // namespace tav
