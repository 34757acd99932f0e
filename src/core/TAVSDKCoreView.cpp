#include "tav/core/TAVSDKCoreView.h"

#include "platform/Random.h"
#include "tav/data/TAVSDKBandwidthMetricData.h"
#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKPlaybackEvents.h"
#include "tav/events/TAVSDKTrackableEvent.h"
#include "tav/trackers/TAVSDKAdTracker.h"
#include "tav/trackers/TAVSDKExternalEventTracker.h"
#include "tav/trackers/TAVSDKExternalHeartbeatTracker.h"
#include "tav/trackers/TAVSDKInternalHeartbeatTracker.h"
#include "tav/trackers/TAVSDKLongResumeTracker.h"
#include "tav/trackers/TAVSDKPlaybackTimeTracker.h"
#include "tav/trackers/TAVSDKRebufferTracker.h"
#include "tav/trackers/TAVSDKRequestMetricsTracker.h"
#include "tav/trackers/TAVSDKScalingTracker.h"
#include "tav/trackers/TAVSDKSeekingTracker.h"
#include "tav/trackers/TAVSDKTimeToFirstFrameTracker.h"
#include "tav/trackers/TAVSDKViewStateTracker.h"
#include "tav/trackers/TAVSDKViewerTimeTracker.h"
#include "tav/trackers/TAVSDKWatchTimeTracker.h"

namespace tav {
namespace {

template <class Record>
void mergeInto(const std::shared_ptr<Record>& target, const std::shared_ptr<Record>& source) {
  if (target && source) target->updateFrom(*source);
}

template <class Record>
void fillGapsOf(const std::shared_ptr<Record>& target, const std::shared_ptr<Record>& source) {
  if (target && source) target->updateIfNull(source->toQuery());
}

std::shared_ptr<TAVSDKViewData> newViewData() {
  auto view = std::make_shared<TAVSDKViewData>();
  view->setViewId(platform::randomUUID());
  return view;
}

}  // namespace

void TAVSDKCoreView::dispatch(const TAVSDKEventPtr& event) {
  if (!event) return;
  if (event->isTrackable()) {
    if (auto* trackable = event->asTrackableEvent()) {
      handleTrackableEvent(*trackable);
    }
  } else if (event->isPlayback()) {
    if (auto* playback = event->asPlaybackEvent()) {
      handlePlaybackEvent(*playback);
    }
  }
  if (event->isViewMetric()) {
    if (const auto* metric = event->asViewMetricEvent()) {
      mergeInto(_viewData, metric->viewData());
    }
    return;
  }
  if (event->isData()) {
    if (&event->getType() == &TAVSDKSessionDataEventType) {
      if (const auto* s = dynamic_cast<const TAVSDKSessionDataEvent*>(event.get())) {
        handleSessionDataEvent(*s);
      }
    } else if (const auto* d = dynamic_cast<const TAVSDKDataEvent*>(event.get())) {
      handleDataEvent(*d);
    }
    return;
  }
  TAVSDKEventBus::dispatch(event);
}

void TAVSDKCoreView::handlePlaybackEvent(TAVSDKPlaybackEvent& event) {
  // Merge before viewInit on purpose: on a fresh view the records are still
  // unset, so a "viewinit" event's own view record is not merged.
  if (event.viewData() && event.viewData() != _viewData) mergeInto(_viewData, event.viewData());
  event.setViewData(_viewData);
  event.setVideoData(_videoData);  // video metadata arrives through data events only
  if (&event.getType() == &TAVSDKPlaybackEventViewInitEventType) viewInit();
  mergeInto(_bandwidthMetricData, event.bandwidthMetricData());
}

void TAVSDKCoreView::viewInit() {
  _viewData = newViewData();
  _videoData = std::make_shared<TAVSDKVideoData>();
  _customerVideoData = std::make_shared<TAVSDKCustomerVideoData>();
  _customerViewData = std::make_shared<TAVSDKCustomerViewData>();
  _bandwidthMetricData = std::make_shared<TAVSDKBandwidthMetricData>();
  _customData = std::make_shared<TAVSDKCustomData>();
  _sequenceNumber = 0;
  if (!_trackersAdded) {
    _trackersAdded = true;
    addTrackers();
  }
}

void TAVSDKCoreView::addTrackers() {
  // The order is the order in which every event reaches the trackers.
  addHandler(std::make_shared<TAVSDKLongResumeTracker>(this));
  addHandler(std::make_shared<TAVSDKViewerTimeTracker>(this));
  addHandler(std::make_shared<TAVSDKScalingTracker>(this));
  addHandler(std::make_shared<TAVSDKSeekingTracker>(this));
  addHandler(std::make_shared<TAVSDKInternalHeartbeatTracker>(this));
  addHandler(std::make_shared<TAVSDKPlaybackTimeTracker>(this));
  addHandler(std::make_shared<TAVSDKWatchTimeTracker>(this));
  addHandler(std::make_shared<TAVSDKTimeToFirstFrameTracker>(this));
  addHandler(std::make_shared<TAVSDKRebufferTracker>(this));
  addHandler(std::make_shared<TAVSDKViewStateTracker>(this));
  addHandler(std::make_shared<TAVSDKRequestMetricsTracker>(this));
  addHandler(std::make_shared<TAVSDKAdTracker>(this));
  addHandler(std::make_shared<TAVSDKExternalEventTracker>(this));
  addHandler(std::make_shared<TAVSDKExternalHeartbeatTracker>(this));
}

void TAVSDKCoreView::handleTrackableEvent(TAVSDKTrackableEvent& event) {
  mergeInto(_viewData, event.viewData());
  ++_sequenceNumber;
  if (_viewData) _viewData->setViewSequenceNumber(_sequenceNumber);
  event.setViewData(_viewData);
  event.setVideoData(_videoData);
  event.setCustomerVideoData(_customerVideoData);
  event.setCustomerViewData(_customerViewData);
  event.setBandwidthMetricData(_bandwidthMetricData);
  event.setCustomData(_customData);
}

void TAVSDKCoreView::handleDataEvent(const TAVSDKDataEvent& event) {
  if (event.videoChange()) {
    _viewData = newViewData();
    _videoData = std::make_shared<TAVSDKVideoData>();
    _customerVideoData = std::make_shared<TAVSDKCustomerVideoData>();
    _customerViewData = std::make_shared<TAVSDKCustomerViewData>();
    _customData = std::make_shared<TAVSDKCustomData>();
    _sequenceNumber = 0;
  }
  mergeInto(_videoData, event.videoData());
  mergeInto(_customerVideoData, event.customerVideoData());
  mergeInto(_customerViewData, event.customerViewData());
  mergeInto(_customData, event.customData());
}

void TAVSDKCoreView::handleSessionDataEvent(const TAVSDKSessionDataEvent& event) {
  fillGapsOf(_viewData, event.viewData());
  fillGapsOf(_videoData, event.videoData());
  fillGapsOf(_customerVideoData, event.customerVideoData());
  fillGapsOf(_customerViewData, event.customerViewData());
  fillGapsOf(_customData, event.customData());
}

}  // namespace tav
