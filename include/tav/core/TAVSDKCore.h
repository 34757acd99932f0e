#pragma once
// The library's entry point: class-level operations only. An integration names
// each player it observes and sends that player's events here; the facade keeps
// the registry of players, the shared environment and viewer records and the
// sliding session, and the switches for error reporting and collection hosts.
//
// No operation reports an error or throws. Thread rules: all operations run
// synchronously on the caller's thread; call the facade from one thread at a
// time. Network traffic happens on the library's transport worker.

#include <chrono>
#include <memory>
#include <string>

#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {

class TAVSDKCallRecorder;
class TAVSDKCorePlayer;
class TAVSDKEnvironmentData;
class TAVSDKViewerData;

inline constexpr char TAVSDKApiVersion[] = "2.1";
inline constexpr char TAVSDKEmbedVersion[] = "3.13.0";
inline constexpr char TAVSDKEmbed[] = "tav-stats-sdk-objc";
/// The library's version string and number.
inline constexpr char TAVSDKCoreVersionString[] = "3.13";
inline constexpr double TAVSDKCoreVersionNumber = 3.13;

class TAVSDKCore {
 public:
  TAVSDKCore() = delete;

  /// One-time set-up of the shared records and the session (idempotent).
  static void setupEnvironmentAndViewerData();
  /// Makes a player under `name`, replacing (without flushing) any player there.
  static std::shared_ptr<TAVSDKCorePlayer> createPlayer(const std::string& name);
  /// Installs a global client handler: finished beacons go to it instead of to
  /// the players' queues. nullptr removes it. The facade keeps a reference.
  static void setClientHandler(std::shared_ptr<TAVSDKEventHandling> handler);
  /// Flushes the player's queue, drops its view and removes it from the registry.
  static void destroyPlayer(const std::string& name);
  /// Hands an event to the named player (created on first use).
  static void dispatchEventForPlayer(const TAVSDKEventPtr& event, const std::string& name);
  /// Merges the event's environment and viewer records into the shared ones.
  static void dispatchGlobalDataEvent(const std::shared_ptr<TAVSDKDataEvent>& event);
  /// Switches internal-failure reporting for existing and future players (on by default).
  static void setSentryEnabled(bool enabled);
  static void setBeaconCollectionDomainForPlayer(const std::string& domain,
                                                 const std::string& name);
  static void setBeaconDomainForPlayer(const std::string& domain, const std::string& name);

  /// Flushes every player's queue, then sends everything handed to the
  /// transport within `deadline`, stops the transport worker and joins it.
  /// Returns true when everything was delivered (or failed for good) in time.
  /// The facade stays usable afterwards (a later request starts a new worker).
  static bool shutdown(std::chrono::milliseconds deadline);

  /// Installs a recorder that sees every later facade call before it is handled
  /// (see TAVSDKEventLog.h); nullptr removes it. Its timestamps come from a clock
  /// made now by TAVSDKClock.
  static void setCallRecorder(std::shared_ptr<TAVSDKCallRecorder> recorder);

  /// The shared records (set up on first use).
  static std::shared_ptr<TAVSDKEnvironmentData> environmentData();
  static std::shared_ptr<TAVSDKViewerData> viewerData();
  /// The player registered under `name`, or nullptr.
  static std::shared_ptr<TAVSDKCorePlayer> playerNamed(const std::string& name);
};

}  // namespace tav
