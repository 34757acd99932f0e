#pragma once
// TAVSDKEventQueue: the beacon queue of one player. It removes the text values
// that have not changed since they were last sent for the view, keeps at most
// 3600 pending beacons (beyond that it is rate-limited for good), and hands
// batches to its dispatcher: everything at once on "viewstart", "error",
// "ended" and "viewend" or on `flush`, otherwise up to 300 beacons when an event
// arrives at least 5001 ms after the previous time-driven send. There is no
// timer: sends are driven by arriving events.
//
// Ownership: create with std::make_shared (the dispatcher's pending batches hold
// the queue strongly as their callback). The queue owns its dispatcher.
//
// Thread rules: everything runs on the thread that dispatches events, except
// `onComplete`, which the dispatcher calls from the transport worker and which
// only writes an atomic flag. `currentTime` is replaceable from any thread.

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "tav/events/TAVSDKEventTyping.h"
#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/TAVSDKBatchCallback.h"

namespace tav {

class TAVSDKBaseEvent;
class TAVSDKTrackableEvent;
class TAVSDKDispatcher;

class TAVSDKEventQueue : public TAVSDKEventHandling,
                         public TAVSDKBatchCallback,
                         public std::enable_shared_from_this<TAVSDKEventQueue> {
 public:
  /// Pending beacons beyond which the queue turns rate-limited.
  static constexpr std::size_t kMaxPendingEvents = 3600;
  /// A time-driven send needs this much time (ms) since the previous one.
  static constexpr std::int64_t kSendIntervalMs = 5001;
  /// Beacons in a time-driven batch at most.
  static constexpr std::size_t kBatchSize = 300;
  /// Silence (ms) after which de-duplication forgets the previous beacon.
  static constexpr std::int64_t kViewMemoryMs = 600000;

  /// An open queue with a new clock and a new dispatcher on the default ports.
  TAVSDKEventQueue();

  void setProjectKey(const std::string& key) { _projectKey = key; }
  /// Stored in lower case.
  void setViewerOsFamily(const std::string& family);
  void setBeaconDomain(const std::string& domain) { _beaconDomain = domain; }
  void setBeaconCollectionDomain(const std::string& domain) { _beaconCollectionDomain = domain; }

  /// Entry point for finished beacons; anything but a TAVSDKTrackableEvent is ignored.
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& event) override;
  /// Appends and maybe sends; false when the limit is reached.
  bool queueEvent(const std::shared_ptr<TAVSDKTrackableEvent>& event);
  /// Sends everything pending at once.
  void flush();
  /// Builds one batch ("events", each beacon with "e" = its type) and hands it to
  /// the dispatcher; a non-forced send takes at most 300 beacons.
  void sendBeaconQueue(bool force);
  /// The dispatcher's completion; the argument is ignored.
  void onComplete(std::optional<bool> result) override;
  /// Rewrites the event's query without the unchanged text values.
  void deduplicateBeaconData(TAVSDKTrackableEvent& event);
  /// `handle` for an event whose records are not merged into its query yet:
  /// merges them (`updateAll`) and de-duplicates in one pass that copies only
  /// the pairs sent. The pipeline's path; the beacon is the same. An object of
  /// a derived class calls `updateAll` and then its `handle` instead.
  void handleRecords(const std::shared_ptr<TAVSDKTrackableEvent>& event);

  [[nodiscard]] std::shared_ptr<TAVSDKTiming> currentTime() const { return _currentTime.get(); }
  void setCurrentTime(std::shared_ptr<TAVSDKTiming> clock) { _currentTime.set(std::move(clock)); }
  [[nodiscard]] const std::shared_ptr<TAVSDKDispatcher>& dispatcher() const { return _dispatcher; }
  /// An empty dispatcher keeps sends pending.
  void setDispatcher(std::shared_ptr<TAVSDKDispatcher> dispatcher) {
    _dispatcher = std::move(dispatcher);
  }

  // Read-only views of the state, for diagnostics.
  [[nodiscard]] std::size_t pendingCount() const { return _eventQueue.size(); }
  [[nodiscard]] bool rateLimited() const { return _rateLimited; }
  [[nodiscard]] bool lastBeaconCompleted() const { return _lastBeaconCompleted.load(); }
  [[nodiscard]] const std::optional<std::string>& projectKey() const { return _projectKey; }
  [[nodiscard]] const std::string& viewerOsFamily() const { return _viewerOsFamily; }
  [[nodiscard]] const std::optional<std::string>& beaconDomain() const { return _beaconDomain; }
  [[nodiscard]] const std::optional<std::string>& beaconCollectionDomain() const {
    return _beaconCollectionDomain;
  }

 private:
  // De-duplication's first step: false when this beacon is sent whole (it is
  // then remembered, or forgotten on "viewend"; a beacon without a view id is
  // neither); `merged` false merges the event's records first in that case.
  bool startsDeduplication(TAVSDKTrackableEvent& event, bool merged);
  // What `handle` does after de-duplication.
  void enqueue(const std::shared_ptr<TAVSDKTrackableEvent>& trackable);

  std::int64_t _lastEventTime = 0;
  std::int64_t _lastBeaconSentTime = 0;
  std::atomic<bool> _lastBeaconCompleted{true};
  bool _rateLimited = false;
  std::optional<nlohmann::json> _previousBeaconData;
  TAVSDKKeySet _dataToAlwaysSend;
  TAVSDKKeySet _flushEvents;
  std::deque<std::shared_ptr<TAVSDKTrackableEvent>> _eventQueue;
  std::optional<std::string> _projectKey;
  std::optional<std::string> _beaconDomain;
  std::optional<std::string> _beaconCollectionDomain;
  std::string _viewerOsFamily = "ios";
  TAVSDKClockSlot _currentTime;
  std::shared_ptr<TAVSDKDispatcher> _dispatcher;
};

}  // namespace tav
