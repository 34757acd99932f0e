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
class TAVSDKPlaybackEvent;
class TAVSDKTrackableEvent;
class TAVSDKViewMetricEvent;

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

// X(Type, name, Name) for the shared records each kind of event carries, in
// declaration order; the classes below and the event log codec expand them.
#define TAV_PLAYBACK_EVENT_RECORDS(X)         \
  X(TAVSDKPlayerData, playerData, PlayerData) \
  X(TAVSDKVideoData, videoData, VideoData)    \
  X(TAVSDKViewData, viewData, ViewData)       \
  X(TAVSDKBandwidthMetricData, bandwidthMetricData, BandwidthMetricData)
#define TAV_DATA_EVENT_RECORDS(X)                                     \
  X(TAVSDKViewerData, viewerData, ViewerData)                         \
  X(TAVSDKEnvironmentData, environmentData, EnvironmentData)          \
  X(TAVSDKVideoData, videoData, VideoData)                            \
  X(TAVSDKCustomerVideoData, customerVideoData, CustomerVideoData)    \
  X(TAVSDKCustomerPlayerData, customerPlayerData, CustomerPlayerData) \
  X(TAVSDKCustomerViewData, customerViewData, CustomerViewData)       \
  X(TAVSDKCustomData, customData, CustomData)
#define TAV_SESSION_DATA_EVENT_RECORDS(X)                             \
  X(TAVSDKViewData, viewData, ViewData)                               \
  X(TAVSDKVideoData, videoData, VideoData)                            \
  X(TAVSDKCustomerVideoData, customerVideoData, CustomerVideoData)    \
  X(TAVSDKCustomerPlayerData, customerPlayerData, CustomerPlayerData) \
  X(TAVSDKCustomerViewData, customerViewData, CustomerViewData)       \
  X(TAVSDKCustomData, customData, CustomData)

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

  /// This event as its class, or nullptr when it is not of that class: the
  /// routers' downcasts, one virtual call each instead of a dynamic_cast.
  [[nodiscard]] virtual TAVSDKPlaybackEvent* asPlaybackEvent() { return nullptr; }
  [[nodiscard]] virtual TAVSDKTrackableEvent* asTrackableEvent() { return nullptr; }
  [[nodiscard]] virtual const TAVSDKViewMetricEvent* asViewMetricEvent() const { return nullptr; }

 protected:
  static const TAVSDKKeySet& noKeys();
};

using TAVSDKEventPtr = std::shared_ptr<TAVSDKBaseEvent>;

/// A happening in the player, with the records that describe it.
class TAVSDKPlaybackEvent : public TAVSDKBaseEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isPlayback() const override { return true; }
  [[nodiscard]] TAVSDKPlaybackEvent* asPlaybackEvent() final { return this; }

  TAV_PLAYBACK_EVENT_RECORDS(TAV_EVENT_RECORD)
};

/// A metadata update. `videoChange` true starts a new video inside the same view.
class TAVSDKDataEvent : public TAVSDKBaseEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isData() const override { return true; }
  [[nodiscard]] bool videoChange() const { return _videoChange; }
  void setVideoChange(bool v) { _videoChange = v; }

  TAV_DATA_EVENT_RECORDS(TAV_EVENT_RECORD)

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

  TAV_SESSION_DATA_EVENT_RECORDS(TAV_EVENT_RECORD)
};

/// A tracker's metric update for the view record; merged by the view, goes no further.
class TAVSDKViewMetricEvent : public TAVSDKBaseEvent {
 public:
  TAVSDKViewMetricEvent() = default;
  explicit TAVSDKViewMetricEvent(std::shared_ptr<TAVSDKViewData> viewData)
      : _viewData(std::move(viewData)) {}
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isViewMetric() const override { return true; }
  [[nodiscard]] const TAVSDKViewMetricEvent* asViewMetricEvent() const final { return this; }
  [[nodiscard]] const std::shared_ptr<TAVSDKViewData>& viewData() const { return _viewData; }
  void setViewData(std::shared_ptr<TAVSDKViewData> v) { _viewData = std::move(v); }

 private:
  std::shared_ptr<TAVSDKViewData> _viewData;
};

}  // namespace tav
