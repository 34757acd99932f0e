#pragma once
// A view: one viewing of one video by one player, from a "viewinit" to the next.
// Holds the view's records, numbers its beacons, merges what the integration and
// the trackers report, and hosts the fourteen trackers as handlers on its bus.
//
// Ownership: owned by its core player; owns its records and (through the bus)
// its trackers, which refer back to it without owning it. Thread rules: runs
// synchronously inside the core player's dispatch, on the caller's thread.

#include <cstdint>
#include <memory>

#include "tav/core/TAVSDKEventBus.h"

namespace tav {

class TAVSDKViewData;
class TAVSDKVideoData;
class TAVSDKCustomerVideoData;
class TAVSDKCustomerViewData;
class TAVSDKBandwidthMetricData;
class TAVSDKCustomData;
class TAVSDKPlaybackEvent;
class TAVSDKTrackableEvent;
class TAVSDKDataEvent;
class TAVSDKSessionDataEvent;

class TAVSDKCoreView : public TAVSDKEventBus {
 public:
  /// The view's router.
  void dispatch(const TAVSDKEventPtr& event) override;
  /// Starts (or restarts) the records; adds the trackers once.
  void viewInit();

  // Current records: the objects themselves, so a change made through them
  // changes the view. Unset until viewInit.
  [[nodiscard]] std::shared_ptr<TAVSDKViewData> getViewData() const { return _viewData; }
  [[nodiscard]] std::shared_ptr<TAVSDKVideoData> getVideoData() const { return _videoData; }
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerViewData> getCustomerViewData() const {
    return _customerViewData;
  }
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerVideoData> getCustomerVideoData() const {
    return _customerVideoData;
  }
  [[nodiscard]] std::shared_ptr<TAVSDKCustomData> getCustomData() const { return _customData; }
  [[nodiscard]] std::shared_ptr<TAVSDKBandwidthMetricData> getBandwidthMetricData() const {
    return _bandwidthMetricData;
  }
  [[nodiscard]] std::shared_ptr<TAVSDKViewData> viewData() const { return _viewData; }
  [[nodiscard]] std::shared_ptr<TAVSDKVideoData> videoData() const { return _videoData; }
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerVideoData> customerVideoData() const {
    return _customerVideoData;
  }
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerViewData> customerViewData() const {
    return _customerViewData;
  }
  [[nodiscard]] std::shared_ptr<TAVSDKCustomData> customData() const { return _customData; }
  [[nodiscard]] std::int32_t sequenceNumber() const { return _sequenceNumber; }
  [[nodiscard]] bool trackersAdded() const { return _trackersAdded; }

 private:
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event);
  void handleTrackableEvent(TAVSDKTrackableEvent& event);
  void handleDataEvent(const TAVSDKDataEvent& event);
  void handleSessionDataEvent(const TAVSDKSessionDataEvent& event);
  void addTrackers();

  std::shared_ptr<TAVSDKViewData> _viewData;
  std::shared_ptr<TAVSDKVideoData> _videoData;
  std::shared_ptr<TAVSDKCustomerVideoData> _customerVideoData;
  std::shared_ptr<TAVSDKCustomerViewData> _customerViewData;
  std::shared_ptr<TAVSDKBandwidthMetricData> _bandwidthMetricData;
  std::shared_ptr<TAVSDKCustomData> _customData;
  std::int32_t _sequenceNumber = 0;
  bool _trackersAdded = false;
};

}  // namespace tav
