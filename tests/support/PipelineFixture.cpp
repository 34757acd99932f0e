#include "support/PipelineFixture.h"

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

void PipelineTest::TearDown() {
  detail::resetCoreStateForTesting();
  TAVSDKClock::setFactory(nullptr);
}

}  // namespace tav::test
