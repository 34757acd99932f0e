#pragma once
// Tracker bases. A tracker is a handler on a view's bus that sees every
// playback and trackable event of the view, computes metrics and reports them
// by dispatching view-metric events (or new events) back into the view.
//
// Ownership: the view owns its trackers; a tracker refers to its view (the
// dispatcher) without owning it. Thread rules: the view's dispatching thread.

#include <memory>
#include <string>

#include "tav/core/TAVSDKEventBus.h"
#include "tav/events/TAVSDKBaseEvent.h"

namespace tav {

class TAVSDKViewData;

class TAVSDKBaseTracker : public TAVSDKEventHandling {
 public:
  /// initWithDispatcher: the bus this tracker dispatches into (not owned).
  explicit TAVSDKBaseTracker(TAVSDKEventBus* dispatcher) : _dispatcher(dispatcher) {}

  /// Passes playback events on to handlePlaybackEvent; ignores the others.
  void handle(const TAVSDKEventPtr& event) override;
  virtual void handlePlaybackEvent(TAVSDKPlaybackEvent& event);
  /// Dispatches into the view.
  void dispatch(const TAVSDKEventPtr& event);
  [[nodiscard]] TAVSDKEventBus* dispatcher() const { return _dispatcher; }

 protected:
  /// A metric update that one call site sends again and again with the same
  /// fields. The event and its record are reused when nothing else kept a
  /// reference to them, so a steady tracker allocates nothing per update.
  class MetricUpdate {
   public:
    /// The record to fill: the previous update's (holding the fields last
    /// written) when it can be reused, otherwise a new, empty one.
    TAVSDKViewData& record();

   private:
    friend class TAVSDKBaseTracker;
    std::shared_ptr<TAVSDKViewMetricEvent> _event;
  };

  /// Dispatches a view-metric event carrying `viewData`.
  void dispatchViewMetric(std::shared_ptr<TAVSDKViewData> viewData);
  /// Dispatches the update's event; call `update.record()` first.
  void dispatchViewMetric(MetricUpdate& update);

 private:
  TAVSDKEventBus* _dispatcher;
};

/// Base of the trackers that must know whether an ad break is in progress:
/// "adbreakstart" sets the flag; "play", "playing", "internalseeking" and
/// "viewend" clear it ("adbreakend" does not).
class TAVSDKBaseAdTracker : public TAVSDKBaseTracker {
 public:
  using TAVSDKBaseTracker::TAVSDKBaseTracker;
  void handlePlaybackEvent(TAVSDKPlaybackEvent& event) override;
  [[nodiscard]] bool isAdBreak() const { return _isAdBreak; }
  void setIsAdBreak(bool value) { _isAdBreak = value; }
  /// The types that end an ad break.
  static const TAVSDKKeySet& _adBreakEndEvents();

 private:
  bool _isAdBreak = false;
};

}  // namespace tav
