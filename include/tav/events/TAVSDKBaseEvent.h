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

/// Declares a shared record reference `_name` with a plain getter and setter.
#define TAV_EVENT_RECORD(Type, name, Name)                  \
 public:                                                    \
  [[nodiscard]] const std::shared_ptr<Type>& name() const { \
    return _##name;                                         \
  }                                                         \
  void set##Name(std::shared_ptr<Type> v) {                 \
    _##name = std::move(v);                                 \
  }                                                         \
                                                            \
 private:                                                   \
  std::shared_ptr<Type> _##name;

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

  TAV_EVENT_RECORD(TAVSDKPlayerData, playerData, PlayerData)
  TAV_EVENT_RECORD(TAVSDKVideoData, videoData, VideoData)
  TAV_EVENT_RECORD(TAVSDKViewData, viewData, ViewData)
  TAV_EVENT_RECORD(TAVSDKBandwidthMetricData, bandwidthMetricData, BandwidthMetricData)
};

/// A metadata update. `videoChange` true starts a new video inside the same view.
class TAVSDKDataEvent : public TAVSDKBaseEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isData() const override { return true; }
  [[nodiscard]] bool videoChange() const { return _videoChange; }
  void setVideoChange(bool v) { _videoChange = v; }

  TAV_EVENT_RECORD(TAVSDKViewerData, viewerData, ViewerData)
  TAV_EVENT_RECORD(TAVSDKEnvironmentData, environmentData, EnvironmentData)
  TAV_EVENT_RECORD(TAVSDKVideoData, videoData, VideoData)
  TAV_EVENT_RECORD(TAVSDKCustomerVideoData, customerVideoData, CustomerVideoData)
  TAV_EVENT_RECORD(TAVSDKCustomerPlayerData, customerPlayerData, CustomerPlayerData)
  TAV_EVENT_RECORD(TAVSDKCustomerViewData, customerViewData, CustomerViewData)
  TAV_EVENT_RECORD(TAVSDKCustomData, customData, CustomData)

 private:
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

  TAV_EVENT_RECORD(TAVSDKViewData, viewData, ViewData)
  TAV_EVENT_RECORD(TAVSDKVideoData, videoData, VideoData)
  TAV_EVENT_RECORD(TAVSDKCustomerVideoData, customerVideoData, CustomerVideoData)
  TAV_EVENT_RECORD(TAVSDKCustomerPlayerData, customerPlayerData, CustomerPlayerData)
  TAV_EVENT_RECORD(TAVSDKCustomerViewData, customerViewData, CustomerViewData)
  TAV_EVENT_RECORD(TAVSDKCustomData, customData, CustomData)
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
