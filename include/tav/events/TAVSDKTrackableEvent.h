#pragma once
// The event that becomes one beacon: a beacon type name (`eventType`, such as
// "viewstart" or "hb"), up to ten shared records, and its own query record into
// which `updateAll` flattens them. Filled and read on the dispatching thread.

#include <array>
#include <memory>
#include <optional>
#include <string>

#include "tav/data/TAVSDKQueryData.h"
#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {

class TAVSDKTrackableEvent : public TAVSDKBaseEvent {
 public:
  TAVSDKTrackableEvent();
  /// initWithType: no required keys.
  explicit TAVSDKTrackableEvent(std::string eventType);
  /// initWithType:requiredProperties: (an absent set means none).
  TAVSDKTrackableEvent(std::string eventType, std::optional<TAVSDKKeySet> requiredProperties);

  /// The class's kind name "TrackableEvent" (the beacon type is `eventType`).
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] bool isTrackable() const override { return true; }
  [[nodiscard]] TAVSDKTrackableEvent* asTrackableEvent() final { return this; }
  [[nodiscard]] const TAVSDKKeySet& requiredProperties() const override {
    return _requiredProperties;
  }
  void setRequiredProperties(TAVSDKKeySet keys) { _requiredProperties = std::move(keys); }

  [[nodiscard]] const std::string& eventType() const { return _eventType; }
  void setEventType(std::string type) { _eventType = std::move(type); }
  /// The flat beacon dictionary under construction (owned by the event).
  [[nodiscard]] const std::shared_ptr<TAVSDKQueryData>& query() const { return _query; }

  /// Replaces the whole query content.
  void setQuery(const Json& data);
  void setQuery(Json&& data);
  /// Merges, in this fixed order, view, customer view, video, customer video,
  /// player, customer player, environment, viewer and bandwidth records into
  /// the query (later records win). Custom data is not part of it.
  void updateAll();
  /// `updateAll` followed by removing the pairs for which `drop(key, value)`
  /// answers true, in one pass that never copies a removed pair. `drop` sees the
  /// merged pairs in key order and must not touch the event's records.
  template <class Predicate>
  void updateAllExcept(Predicate&& drop) {
    const auto records = recordsInMergeOrder();
    _query->mergeFromExcept(records, std::forward<Predicate>(drop));
  }
  /// A copy of the query with a null value for every required key that is missing.
  [[nodiscard]] Json getQuery() const;

  TAV_EVENT_RECORD(TAVSDKViewData, viewData, ViewData)
  TAV_EVENT_RECORD(TAVSDKCustomerViewData, customerViewData, CustomerViewData)
  TAV_EVENT_RECORD(TAVSDKVideoData, videoData, VideoData)
  TAV_EVENT_RECORD(TAVSDKCustomerVideoData, customerVideoData, CustomerVideoData)
  TAV_EVENT_RECORD(TAVSDKPlayerData, playerData, PlayerData)
  TAV_EVENT_RECORD(TAVSDKCustomerPlayerData, customerPlayerData, CustomerPlayerData)
  TAV_EVENT_RECORD(TAVSDKEnvironmentData, environmentData, EnvironmentData)
  TAV_EVENT_RECORD(TAVSDKViewerData, viewerData, ViewerData)
  TAV_EVENT_RECORD(TAVSDKBandwidthMetricData, bandwidthMetricData, BandwidthMetricData)

 public:
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomData>& customData() const { return _customData; }
  /// Stores the record and merges its current content into the query at once.
  void setCustomData(std::shared_ptr<TAVSDKCustomData> customData);

 private:
  [[nodiscard]] std::array<const TAVSDKQueryData*, 9> recordsInMergeOrder() const;

  std::shared_ptr<TAVSDKQueryData> _query;
  std::string _eventType;
  std::shared_ptr<TAVSDKCustomData> _customData;
  TAVSDKKeySet _requiredProperties;
};

}  // namespace tav
