#pragma once
// The event class tree: the root, and the kinds other than the trackable event.
// Events are reference objects shared by std::shared_ptr; they share (do not
// copy) the records they carry. An event is filled and read on the thread that
// dispatches it.

#include <atomic>
#include <memory>
#include <string>

#include <nlohmann/json.hpp>

#include "tav/events/TAVSDKEventTypes.h"
#include "tav/events/TAVSDKEventTyping.h"

namespace tav {

class TAVSDKPlayerData;
class TAVSDKVideoData;
class TAVSDKViewData;
class TAVSDKBandwidthMetricData;
class TAVSDKViewerData;
class TAVSDKEnvironmentData;
class TAVSDKCustomerVideoData;
class TAVSDKCustomerPlayerData;
class TAVSDKCustomerViewData;
class TAVSDKCustomData;

/// The root event: type "BASE", false to every question, no required keys.
class TAVSDKBaseEvent : public TAVSDKEventTyping {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isTrackable() const override { return false; }
  [[nodiscard]] bool isPlayback() const override { return false; }
  [[nodiscard]] bool isData() const override { return false; }
  [[nodiscard]] bool isError() const override { return false; }
  [[nodiscard]] bool isViewMetric() const override { return false; }
  [[nodiscard]] bool isDebug() const override { return false; }
  [[nodiscard]] const TAVSDKKeySet& requiredProperties() const override;

 protected:
  static const TAVSDKKeySet& noKeys();
};

using TAVSDKEventPtr = std::shared_ptr<TAVSDKBaseEvent>;

/// A happening in the player, with the records that describe it.
class TAVSDKPlaybackEvent : public TAVSDKBaseEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isPlayback() const override { return true; }

  [[nodiscard]] const std::shared_ptr<TAVSDKPlayerData>& playerData() const { return _playerData; }
  void setPlayerData(std::shared_ptr<TAVSDKPlayerData> v) { _playerData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKVideoData>& videoData() const { return _videoData; }
  void setVideoData(std::shared_ptr<TAVSDKVideoData> v) { _videoData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKViewData>& viewData() const { return _viewData; }
  void setViewData(std::shared_ptr<TAVSDKViewData> v) { _viewData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKBandwidthMetricData>& bandwidthMetricData() const {
    return _bandwidthMetricData;
  }
  void setBandwidthMetricData(std::shared_ptr<TAVSDKBandwidthMetricData> v) {
    _bandwidthMetricData = std::move(v);
  }

 private:
  std::shared_ptr<TAVSDKPlayerData> _playerData;
  std::shared_ptr<TAVSDKVideoData> _videoData;
  std::shared_ptr<TAVSDKViewData> _viewData;
  std::shared_ptr<TAVSDKBandwidthMetricData> _bandwidthMetricData;
};

/// A metadata update. `videoChange` true starts a new video inside the same view.
class TAVSDKDataEvent : public TAVSDKBaseEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isData() const override { return true; }

  [[nodiscard]] const std::shared_ptr<TAVSDKViewerData>& viewerData() const { return _viewerData; }
  void setViewerData(std::shared_ptr<TAVSDKViewerData> v) { _viewerData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKEnvironmentData>& environmentData() const {
    return _environmentData;
  }
  void setEnvironmentData(std::shared_ptr<TAVSDKEnvironmentData> v) {
    _environmentData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKVideoData>& videoData() const { return _videoData; }
  void setVideoData(std::shared_ptr<TAVSDKVideoData> v) { _videoData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerVideoData>& customerVideoData() const {
    return _customerVideoData;
  }
  void setCustomerVideoData(std::shared_ptr<TAVSDKCustomerVideoData> v) {
    _customerVideoData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerPlayerData>& customerPlayerData() const {
    return _customerPlayerData;
  }
  void setCustomerPlayerData(std::shared_ptr<TAVSDKCustomerPlayerData> v) {
    _customerPlayerData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerViewData>& customerViewData() const {
    return _customerViewData;
  }
  void setCustomerViewData(std::shared_ptr<TAVSDKCustomerViewData> v) {
    _customerViewData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomData>& customData() const { return _customData; }
  void setCustomData(std::shared_ptr<TAVSDKCustomData> v) { _customData = std::move(v); }
  [[nodiscard]] bool videoChange() const { return _videoChange; }
  void setVideoChange(bool v) { _videoChange = v; }

 private:
  std::shared_ptr<TAVSDKViewerData> _viewerData;
  std::shared_ptr<TAVSDKEnvironmentData> _environmentData;
  std::shared_ptr<TAVSDKVideoData> _videoData;
  std::shared_ptr<TAVSDKCustomerVideoData> _customerVideoData;
  std::shared_ptr<TAVSDKCustomerPlayerData> _customerPlayerData;
  std::shared_ptr<TAVSDKCustomerViewData> _customerViewData;
  std::shared_ptr<TAVSDKCustomData> _customData;
  bool _videoChange = false;
};

/// Session data given by long field names, distributed over six records through
/// the field dictionary. Not a TAVSDKDataEvent, though it answers `isData`.
class TAVSDKSessionDataEvent : public TAVSDKBaseEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isData() const override { return true; }

  /// Upserts each known long name's value into the record its field names;
  /// unknown names are skipped. The dictionary itself is not kept.
  void setSessionData(const nlohmann::json& data);
  /// Always answers nothing (null): the data lives only in the records.
  [[nodiscard]] nlohmann::json sessionData() const { return nullptr; }

  [[nodiscard]] const std::shared_ptr<TAVSDKViewData>& viewData() const { return _viewData; }
  void setViewData(std::shared_ptr<TAVSDKViewData> v) { _viewData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKVideoData>& videoData() const { return _videoData; }
  void setVideoData(std::shared_ptr<TAVSDKVideoData> v) { _videoData = std::move(v); }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerVideoData>& customerVideoData() const {
    return _customerVideoData;
  }
  void setCustomerVideoData(std::shared_ptr<TAVSDKCustomerVideoData> v) {
    _customerVideoData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerPlayerData>& customerPlayerData() const {
    return _customerPlayerData;
  }
  void setCustomerPlayerData(std::shared_ptr<TAVSDKCustomerPlayerData> v) {
    _customerPlayerData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerViewData>& customerViewData() const {
    return _customerViewData;
  }
  void setCustomerViewData(std::shared_ptr<TAVSDKCustomerViewData> v) {
    _customerViewData = std::move(v);
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomData>& customData() const { return _customData; }
  void setCustomData(std::shared_ptr<TAVSDKCustomData> v) { _customData = std::move(v); }

 private:
  std::shared_ptr<TAVSDKViewData> _viewData;
  std::shared_ptr<TAVSDKVideoData> _videoData;
  std::shared_ptr<TAVSDKCustomerVideoData> _customerVideoData;
  std::shared_ptr<TAVSDKCustomerPlayerData> _customerPlayerData;
  std::shared_ptr<TAVSDKCustomerViewData> _customerViewData;
  std::shared_ptr<TAVSDKCustomData> _customData;
};

/// A tracker's metric update for the view record; merged by the view, goes no further.
class TAVSDKViewMetricEvent : public TAVSDKBaseEvent {
 public:
  TAVSDKViewMetricEvent() = default;
  explicit TAVSDKViewMetricEvent(std::shared_ptr<TAVSDKViewData> viewData)
      : _viewData(std::move(viewData)) {}
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isViewMetric() const override { return true; }
  [[nodiscard]] const std::shared_ptr<TAVSDKViewData>& viewData() const { return _viewData; }
  void setViewData(std::shared_ptr<TAVSDKViewData> v) { _viewData = std::move(v); }

 private:
  std::shared_ptr<TAVSDKViewData> _viewData;
};

}  // namespace tav
