#pragma once
// A dispatcher on a recording HTTP client and a manual scheduler, with every
// clock made during the test being one shared virtual clock.

#include <gtest/gtest.h>

#include <memory>

#include "support/ManualScheduler.h"
#include "support/RecordingCallback.h"
#include "support/RecordingHttpClient.h"
#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/TAVSDKDispatcher.h"
#include "tav_build_config.h"

namespace tav::test {

class TransportFixture : public ::testing::Test {
 protected:
  static constexpr std::int64_t kStart = 1'700'000'000'000;
  using Ms = std::chrono::milliseconds;
  using Seconds = std::chrono::seconds;

  void SetUp() override {
    clock = std::make_shared<TAVSDKVirtualClock>(kStart);
    TAVSDKClock::setFactory([c = clock] { return c; });
    http = std::make_shared<RecordingHttpClient>();
    timers = std::make_shared<ManualScheduler>();
    callback = std::make_shared<RecordingCallback>();
    dispatcher = std::make_shared<TAVSDKDispatcher>(http, timers);
  }
  void TearDown() override {
    timers->clear();
    TAVSDKClock::setFactory(nullptr);
  }

  static std::string defaultHost(const std::string& key) {
    return key + "." + build::kDefaultCollectionDomain;
  }

  std::shared_ptr<TAVSDKVirtualClock> clock;
  std::shared_ptr<RecordingHttpClient> http;
  std::shared_ptr<ManualScheduler> timers;
  std::shared_ptr<RecordingCallback> callback;
  std::shared_ptr<TAVSDKDispatcher> dispatcher;
};

}  // namespace tav::test
