#pragma once
// Process-wide state of the facade. Internal.

#include <map>
#include <memory>
#include <string>

#include "tav/core/TAVSDKCorePlayer.h"
#include "tav/core/TAVSDKEventLog.h"
#include "tav/core/TAVSDKSession.h"
#include "tav/data/TAVSDKEnvironmentData.h"
#include "tav/data/TAVSDKViewerData.h"
#include "tav/platform/TAVSDKTiming.h"

namespace tav::detail {

struct CoreState {
  std::shared_ptr<TAVSDKEnvironmentData> environmentData;
  std::shared_ptr<TAVSDKViewerData> viewerData;
  std::shared_ptr<TAVSDKEventHandling> client;
  std::map<std::string, std::shared_ptr<TAVSDKCorePlayer>, std::less<>> players;
  std::unique_ptr<TAVSDKSession> session;
  bool disableSentry = false;
  std::shared_ptr<TAVSDKCallRecorder> recorder;
  std::shared_ptr<TAVSDKTiming> recorderClock;
};

/// The one state object; never destroyed, so no player or queue is torn down
/// by static destruction at process exit.
CoreState& coreState();

/// Test-only: drops every player and the shared records, as before the first call.
void resetCoreStateForTesting();

}  // namespace tav::detail
