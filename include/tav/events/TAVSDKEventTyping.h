#pragma once
// The event protocols: every event answers its type name and six kind questions;
// every handler implements `handle`.

#include <memory>
#include <set>
#include <string>

namespace tav {

/// A set of short beacon keys.
using TAVSDKKeySet = std::set<std::string, std::less<>>;

class TAVSDKEventTyping {
 public:
  virtual ~TAVSDKEventTyping() = default;
  /// The type name. Answers a reference to the shared constant of the class, so
  /// the routers can compare it by identity (address); an empty text answers no type.
  [[nodiscard]] virtual const std::string& getType() const = 0;
  [[nodiscard]] virtual bool isTrackable() const = 0;
  [[nodiscard]] virtual bool isPlayback() const = 0;
  [[nodiscard]] virtual bool isData() const = 0;
  [[nodiscard]] virtual bool isError() const = 0;
  [[nodiscard]] virtual bool isViewMetric() const = 0;
  [[nodiscard]] virtual bool isDebug() const = 0;
  /// Short keys that a beacon made from this event must carry.
  [[nodiscard]] virtual const TAVSDKKeySet& requiredProperties() const = 0;
};

class TAVSDKBaseEvent;

/// An event handler. Handlers are owned by the bus they sit on and called
/// synchronously on the thread that dispatches.
class TAVSDKEventHandling {
 public:
  virtual ~TAVSDKEventHandling() = default;
  virtual void handle(const std::shared_ptr<TAVSDKBaseEvent>& event) = 0;
};

}  // namespace tav
