// The process-wide transport worker without a network: where timer callbacks
// and completions run, how shutdown drains and restarts, and what it survives.

#include <gtest/gtest.h>
#include <pthread.h>
#include <signal.h>

#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/CapturedLog.h"
#include "tav/transport/TAVSDKTransport.h"

namespace tav::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kWait = 30s;

struct ThreadFacts {
  std::thread::id id;
  std::string name;
  bool signalsBlocked = false;
};

ThreadFacts factsOfThisThread() {
  ThreadFacts facts;
  facts.id = std::this_thread::get_id();
  char name[32] = {};
  pthread_getname_np(pthread_self(), name, sizeof name);
  facts.name = name;
  sigset_t mask;
  sigemptyset(&mask);
  pthread_sigmask(SIG_BLOCK, nullptr, &mask);
  facts.signalsBlocked = sigismember(&mask, SIGINT) == 1 && sigismember(&mask, SIGTERM) == 1 &&
                         sigismember(&mask, SIGPIPE) == 1 && sigismember(&mask, SIGUSR1) == 1;
  return facts;
}

// Records labels in the order the worker runs them.
class Journal {
 public:
  void add(const std::string& label) {
    const std::lock_guard lock(_mutex);
    _labels.push_back(label);
    _changed.notify_all();
  }
  bool waitFor(std::size_t count) {
    std::unique_lock lock(_mutex);
    return _changed.wait_for(lock, kWait, [&] { return _labels.size() >= count; });
  }
  std::vector<std::string> labels() {
    const std::lock_guard lock(_mutex);
    return _labels;
  }

 private:
  std::mutex _mutex;
  std::condition_variable _changed;
  std::vector<std::string> _labels;
};

class TransportWorker : public ::testing::Test {
 protected:
  void TearDown() override { EXPECT_TRUE(TAVSDKTransport::shutdown(kWait)); }
};

TEST_F(TransportWorker, TimersAndCompletionsRunOnTheNamedWorkerWithSignalsBlocked) {
  std::promise<ThreadFacts> timerFacts;
  TAVSDKTransport::timerScheduler()->schedule(0ms,
                                              [&] { timerFacts.set_value(factsOfThisThread()); });
  auto timerFuture = timerFacts.get_future();
  ASSERT_EQ(timerFuture.wait_for(kWait), std::future_status::ready);
  const ThreadFacts timer = timerFuture.get();
  EXPECT_NE(timer.id, std::this_thread::get_id());
  EXPECT_EQ(timer.name, "tav-transport");
  EXPECT_TRUE(timer.signalsBlocked);

  // A request that cannot start (no such scheme) still completes once, on the worker.
  std::promise<std::pair<ThreadFacts, TAVSDKHttpResult>> completion;
  TAVSDKHttpRequest request;
  request.url = "gopher://localhost/";
  TAVSDKTransport::httpClient()->send(request, [&](TAVSDKHttpResult result) {
    completion.set_value({factsOfThisThread(), std::move(result)});
  });
  auto completionFuture = completion.get_future();
  ASSERT_EQ(completionFuture.wait_for(kWait), std::future_status::ready);
  const auto [facts, result] = completionFuture.get();
  EXPECT_EQ(facts.id, timer.id);
  EXPECT_TRUE(result.error.has_value());
}

TEST_F(TransportWorker, ShutdownFiresPendingTimersAtOnceThenANewWorkerStarts) {
  Journal journal;
  const auto scheduler = TAVSDKTransport::timerScheduler();
  scheduler->schedule(3h, [&] { journal.add("3h"); });
  scheduler->schedule(1h, [&] {
    journal.add("1h");
    scheduler->schedule(1h, [&] { journal.add("armed while draining"); });
  });
  scheduler->schedule(2h, [&] { journal.add("2h"); });

  EXPECT_TRUE(TAVSDKTransport::shutdown(kWait)) << "everything finished within the deadline";
  const auto labels = journal.labels();
  ASSERT_EQ(labels.size(), 4U) << "shutdown returns after the drain, not before";
  EXPECT_EQ((std::vector<std::string>{labels[0], labels[1], labels[2]}),
            (std::vector<std::string>{"1h", "2h", "3h"}));
  EXPECT_EQ(labels[3], "armed while draining");

  EXPECT_TRUE(TAVSDKTransport::shutdown(0ms)) << "a stopped transport has nothing to do";
  scheduler->schedule(0ms, [&] { journal.add("after shutdown"); });
  ASSERT_TRUE(journal.waitFor(5));
  EXPECT_EQ(journal.labels().back(), "after shutdown");
}

TEST_F(TransportWorker, SurvivesThrowingCallbacksAndShutdownFromItsOwnThread) {
  const CapturedLog log;
  Journal journal;
  const auto scheduler = TAVSDKTransport::timerScheduler();
  scheduler->schedule(0ms, [] { throw std::runtime_error("boom"); });
  scheduler->schedule(0ms, [&] {
    journal.add(TAVSDKTransport::shutdown(10s) ? "shut down" : "refused on the worker");
  });
  scheduler->schedule(0ms, [&] { journal.add("still running"); });
  ASSERT_TRUE(journal.waitFor(2));
  EXPECT_EQ(journal.labels(), (std::vector<std::string>{"refused on the worker", "still running"}));
  EXPECT_EQ(log.messages(),
            std::vector<std::string>{"TAVSDK-ERROR - transport callback failed: boom"});
}

}  // namespace
}  // namespace tav::test
