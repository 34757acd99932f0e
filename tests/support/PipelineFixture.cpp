#include "support/PipelineFixture.h"

#include <algorithm>

namespace tav::test {

void CapturingHandler::handle(const std::shared_ptr<TAVSDKBaseEvent>& event) {
  auto* trackable = dynamic_cast<TAVSDKTrackableEvent*>(event.get());
  ASSERT_NE(trackable, nullptr);
  beacons.push_back({trackable->eventType(), trackable->getQuery()});
}

std::vector<std::string> CapturingHandler::types(const std::string& playerInstanceId) const {
  std::vector<std::string> out;
  for (const auto& b : beacons) {
    if (playerInstanceId.empty() || b.query.value(PLAYER_INSTANCE_ID, "") == playerInstanceId) {
      out.push_back(b.type);
    }
  }
  return out;
}

void PipelineTest::SetUp() {
  clock = std::make_shared<TAVSDKVirtualClock>(kStart);
  TAVSDKClock::setFactory([c = clock] { return c; });
  detail::resetCoreStateForTesting();
  captured = std::make_shared<CapturingHandler>();
  TAVSDKCore::setClientHandler(captured);
}

long PipelineTest::count(const std::string& type) const {
  const auto& b = captured->beacons;
  return std::count_if(b.begin(), b.end(), [&](const auto& beacon) { return beacon.type == type; });
}

const Json& PipelineTest::last(const std::string& type) const {
  const auto& b = captured->beacons;
  const auto it =
      std::find_if(b.rbegin(), b.rend(), [&](const auto& beacon) { return beacon.type == type; });
  EXPECT_NE(it, b.rend()) << "no " << type;
  return it == b.rend() ? _none : it->query;
}

void PipelineTest::TearDown() {
  detail::resetCoreStateForTesting();
  TAVSDKClock::setFactory(nullptr);
}

}  // namespace tav::test
