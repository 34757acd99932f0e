#include "tav/transport/TAVSDKTransport.h"

#include "transport/CurlWorker.h"

namespace tav {
namespace {

class WorkerHttpClient final : public TAVSDKHttpClient {
 public:
  void send(TAVSDKHttpRequest request, Completion completion) override {
    detail::CurlWorker::instance().send(std::move(request), std::move(completion));
  }
};

class WorkerTimerScheduler final : public TAVSDKTimerScheduler {
 public:
  void schedule(std::chrono::milliseconds delay, Callback callback) override {
    detail::CurlWorker::instance().schedule(delay, std::move(callback));
  }
};

}  // namespace

std::shared_ptr<TAVSDKHttpClient> TAVSDKTransport::httpClient() {
  // Intentionally never destroyed, like the worker itself.
  static auto* client = new std::shared_ptr<TAVSDKHttpClient>(std::make_shared<WorkerHttpClient>());
  return *client;
}

std::shared_ptr<TAVSDKTimerScheduler> TAVSDKTransport::timerScheduler() {
  static auto* scheduler =
      new std::shared_ptr<TAVSDKTimerScheduler>(std::make_shared<WorkerTimerScheduler>());
  return *scheduler;
}

bool TAVSDKTransport::shutdown(std::chrono::milliseconds deadline) {
  return detail::CurlWorker::instance().shutdown(deadline);
}

}  // namespace tav
