#pragma once
// A facade test fixture: every clock made during the test is one shared virtual
// clock, the process-wide core state starts empty, and a global client handler
// captures the finished beacons (flattened, before any queue sees them).

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "core/CoreState.h"
#include "tav/TavCore.h"

namespace tav::test {

/// The decimal text that records store for an integer.
inline std::string text(std::int64_t v) {
  return std::to_string(v);
}

/// A beacon's decimal-text value under `key`, as a number.
inline double number(const Json& query, const char* key) {
  return std::stod(query.at(key).get<std::string>());
}

struct CapturedBeacon {
  std::string type;  // the beacon's event type ("viewstart", "play", ...)
  Json query;        // the flattened beacon with required nulls
};

class CapturingHandler : public TAVSDKEventHandling {
 public:
  void handle(const std::shared_ptr<TAVSDKBaseEvent>& event) override;
  std::vector<CapturedBeacon> beacons;
  /// The types of the beacons whose "pinid" equals `playerInstanceId` (all when empty).
  [[nodiscard]] std::vector<std::string> types(const std::string& playerInstanceId = "") const;
};

class PipelineTest : public ::testing::Test {
 protected:
  static constexpr std::int64_t kStart = 1'700'000'000'000;
  void SetUp() override;
  void TearDown() override;

  /// Dispatches a playback event of class E for `player` with a player record
  /// holding the playhead (ms) and paused flag.
  template <class E>
  std::shared_ptr<E> send(const std::string& player, std::int64_t playhead, bool paused = false) {
    auto event = std::make_shared<E>();
    auto data = std::make_shared<TAVSDKPlayerData>();
    data->setPlayerPlayheadTime(playhead);
    data->setPlayerIsPaused(paused);
    event->setPlayerData(data);
    TAVSDKCore::dispatchEventForPlayer(event, player);
    return event;
  }
  void advance(std::int64_t ms) { clock->advance(ms); }
  /// How many captured beacons have the event type `type`.
  [[nodiscard]] long count(const std::string& type) const;
  /// The last captured beacon of `type` (a test failure and an empty object when none).
  [[nodiscard]] const Json& last(const std::string& type) const;

  std::shared_ptr<TAVSDKVirtualClock> clock;
  std::shared_ptr<CapturingHandler> captured;

 private:
  Json _none = Json::object();
};

}  // namespace tav::test
