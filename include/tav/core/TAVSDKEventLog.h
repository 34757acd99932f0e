#pragma once
// Recording and replaying an integration's facade calls.
//
// A recorder installed with TAVSDKCore::setCallRecorder sees every facade call
// before it is handled, as one JSON object:
//   {"t": ms, "call": "dispatchEventForPlayer", "player": "main", "event": {...}}
// with "call" one of "createPlayer", "destroyPlayer", "dispatchEventForPlayer",
// "dispatchGlobalDataEvent", "setSentryEnabled" ("enabled"),
// "setBeaconCollectionDomainForPlayer" / "setBeaconDomainForPlayer" ("domain").
// "t" is the clock's now (TAVSDKClock) at the call, in ms since the epoch.
// An event is {"kind": "playback" | "data" | "sessiondata", "type": name,
// record name -> the record's dictionary (short keys), "videoChange": bool for
// data events}. TAVSDKJsonLinesRecorder writes one such object per line; a
// replayer decodes each event with `decodeEvent` and makes the same call.

#include <cstdio>
#include <memory>
#include <mutex>
#include <string>

#include <nlohmann/json.hpp>

#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {

class TAVSDKEventLog {
 public:
  TAVSDKEventLog() = delete;
  /// The JSON form of a playback, data or session-data event (a snapshot of its
  /// records); null for other events.
  [[nodiscard]] static nlohmann::json encodeEvent(const TAVSDKBaseEvent& event);
  /// A new event from its JSON form; nullptr when the form names no event that an
  /// integration can send. Records that are not objects are left unset.
  [[nodiscard]] static TAVSDKEventPtr decodeEvent(const nlohmann::json& form);
  /// Makes the facade call that `call` records ("t" is not looked at: a replayer
  /// sets its clock first). False, with nothing done, when the call is malformed
  /// or names no facade operation.
  static bool replayCall(const nlohmann::json& call);
};

/// Receives each facade call (see above). Called on the caller's thread, inside
/// the facade call; an exception it throws is logged and the call goes on.
class TAVSDKCallRecorder {
 public:
  virtual ~TAVSDKCallRecorder() = default;
  virtual void record(const nlohmann::json& call) = 0;
};

/// Appends each call as one line of compact JSON to a file, flushed per line so
/// that a crash loses at most the line being written. Writes block the caller
/// for the time of a buffered file write; meant for recording sessions, not for
/// production builds.
class TAVSDKJsonLinesRecorder final : public TAVSDKCallRecorder {
 public:
  /// Opens `path` for appending; check `isOpen`.
  explicit TAVSDKJsonLinesRecorder(const std::string& path);
  ~TAVSDKJsonLinesRecorder() override;
  TAVSDKJsonLinesRecorder(const TAVSDKJsonLinesRecorder&) = delete;
  TAVSDKJsonLinesRecorder& operator=(const TAVSDKJsonLinesRecorder&) = delete;

  [[nodiscard]] bool isOpen() const { return _file != nullptr; }
  void record(const nlohmann::json& call) override;

 private:
  std::mutex _mutex;
  std::FILE* _file = nullptr;
};

}  // namespace tav
