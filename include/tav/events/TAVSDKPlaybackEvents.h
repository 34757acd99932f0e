#pragma once
// The concrete playback events, one class per type name.

#include <atomic>
#include <string>
#include <string_view>

#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {

#define TAV_DECLARE_PLAYBACK_EVENT(Class, Constant, name)                          \
  class Class : public TAVSDKPlaybackEvent {                                       \
   public:                                                                         \
    [[nodiscard]] const std::string& getType() const override { return Constant; } \
  };
TAV_PLAYBACK_EVENT_TYPES(TAV_DECLARE_PLAYBACK_EVENT)
#undef TAV_DECLARE_PLAYBACK_EVENT

/// "renditionchange"; a beacon made from it must carry the four video source
/// keys "vsobi", "vsofp", "vsoht" and "vsowd".
class TAVSDKRenditionChangeEvent : public TAVSDKPlaybackEvent {
 public:
  [[nodiscard]] const std::string& getType() const override;
  [[nodiscard]] const TAVSDKKeySet& requiredProperties() const override;
};

/// A network request of the player. Its type name is its `type` property, one
/// of "requestcompleted", "requestfailed" or "requestcanceled"; unset answers an
/// empty name that matches no type. `type` is read and written atomically.
class TAVSDKRequestBandwidthEvent : public TAVSDKPlaybackEvent {
 public:
  TAVSDKRequestBandwidthEvent() = default;
  explicit TAVSDKRequestBandwidthEvent(std::string_view type) { setType(type); }
  [[nodiscard]] const std::string& getType() const override { return type(); }
  [[nodiscard]] const std::string& type() const;
  void setType(std::string_view type);

 private:
  std::atomic<const std::string*> _type{nullptr};
};

}  // namespace tav
