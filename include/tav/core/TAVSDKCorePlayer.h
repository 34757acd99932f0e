#pragma once
// One core player per player name: owns the player-level records, the beacon
// queue and the current view; numbers the player's beacons; routes each event
// by kind; replaces the view on "viewinit"; and disables itself for good when
// handling an event throws (the failure never reaches the caller).
//
// Ownership: created and owned by the facade (std::shared_ptr). Thread rules:
// called from one thread at a time (the facade's caller).

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

#include "tav/core/TAVSDKEventBus.h"

namespace tav {

class TAVSDKCoreView;
class TAVSDKEventQueue;
class TAVSDKPlayerData;
class TAVSDKCustomerPlayerData;
class TAVSDKPlaybackEvent;
class TAVSDKTrackableEvent;
class TAVSDKDataEvent;
class TAVSDKSessionDataEvent;

/// The base-36 alphabet of `shortUUID`.
inline constexpr char TAVSDKCorePlayerBase36[] = "0123456789abcdefghijklmnopqrstuvwxyz";

class TAVSDKCorePlayer : public TAVSDKEventBus,
                         public std::enable_shared_from_this<TAVSDKCorePlayer> {
 public:
  TAVSDKCorePlayer();
  ~TAVSDKCorePlayer() override;

  /// The router; never throws.
  void dispatch(const TAVSDKEventPtr& event) override;

  /// Flushes the queue, removes the view's handlers and drops the view.
  void cleanUp();
  void setSentryEnabled(bool enabled) { _sentryEnabled = enabled; }
  [[nodiscard]] bool sentryEnabled() const { return _sentryEnabled; }
  void setBeaconCollectionDomain(const std::string& domain);
  void setBeaconDomain(const std::string& domain);

  [[nodiscard]] const std::shared_ptr<TAVSDKEventQueue>& eventQueue() const { return _eventQueue; }
  void setEventQueue(std::shared_ptr<TAVSDKEventQueue> queue) { _eventQueue = std::move(queue); }

  /// The error report for a failure raised while handling an event of type
  /// `eventType` (accepted, not used in the report).
  [[nodiscard]] nlohmann::json buildSentryDetailWithException(const std::string& eventType,
                                                              const std::exception& failure) const;
  /// {"frames": [{"function": line}, ...]}, innermost first; empty for a failure
  /// that carries no call stack.
  [[nodiscard]] static nlohmann::json convertStackTrace(const std::exception& failure);

  /// 6 characters drawn uniformly from TAVSDKCorePlayerBase36.
  [[nodiscard]] static std::string shortUUID();

  [[nodiscard]] const std::shared_ptr<TAVSDKPlayerData>& playerData() const { return _playerData; }
  [[nodiscard]] const std::shared_ptr<TAVSDKCustomerPlayerData>& customerPlayerData() const {
    return _customerPlayerData;
  }
  [[nodiscard]] const std::shared_ptr<TAVSDKCoreView>& view() const { return _view; }
  [[nodiscard]] std::int32_t sequenceNumber() const { return _sequenceNumber; }
  [[nodiscard]] bool isDestroyed() const { return _isDestroyed; }

 private:
  void route(const TAVSDKEventPtr& event);
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event);
  void handleTrackableEvent(TAVSDKTrackableEvent& event);
  void handleDataEvent(const TAVSDKDataEvent& event);
  void handleSessionDataEvent(const TAVSDKSessionDataEvent& event);
  void disable(const std::string& eventType, const std::exception& failure);

  std::shared_ptr<TAVSDKPlayerData> _playerData;
  std::shared_ptr<TAVSDKCustomerPlayerData> _customerPlayerData;
  std::shared_ptr<TAVSDKCoreView> _view;
  std::int32_t _sequenceNumber = 0;
  bool _isDestroyed = false;
  bool _sentryEnabled = true;
  std::shared_ptr<TAVSDKEventQueue> _eventQueue;
};

/// Sits first on a view's bus and sends every non-playback event (the beacons
/// that trackers produce) back into its target player. Holds the player weakly.
class TAVSDKRedispatchEventHandler : public TAVSDKEventHandling {
 public:
  explicit TAVSDKRedispatchEventHandler(const std::shared_ptr<TAVSDKEventBus>& target)
      : _target(target) {}
  void handle(const TAVSDKEventPtr& event) override;
  [[nodiscard]] std::shared_ptr<TAVSDKEventBus> target() const;
  void setTarget(const std::shared_ptr<TAVSDKEventBus>& target);

 private:
  mutable std::mutex _mutex;
  std::weak_ptr<TAVSDKEventBus> _target;
};

}  // namespace tav
