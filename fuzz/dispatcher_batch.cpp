// Fuzz target: the dispatcher's batch path. Most inputs are JSON bytes handed to
// handleBatchOsFamilyWithJsonWithCallback; some are generated batches (with
// non-finite numbers, invalid UTF-8, deep nesting) handed to the dictionary
// path and to the request builder. Requests go to a fake client that fails the
// attempts the input picks; timers run from a queue.
//
// Input: [key choice] [failure bits] [mode] then JSON bytes or generator bytes.
// Checks: the callback is told exactly once, with the outcome the attempts
// imply; at most five attempts; every request body is a JSON object with
// metadata; nothing is left pending.

#include <memory>
#include <optional>
#include <string>

#include "FuzzSupport.h"
#include "tav/platform/TAVSDKTiming.h"
#include "tav/transport/TAVSDKDispatcher.h"

namespace {

using tav::fuzz::ByteReader;
using tav::fuzz::Json;

class CountingCallback : public tav::TAVSDKBatchCallback {
 public:
  void onComplete(std::optional<bool> result) override {
    ++calls;
    last = result;
  }
  int calls = 0;
  std::optional<bool> last;
};

std::optional<std::string> projectKey(ByteReader& in) {
  switch (in.below(6)) {
    case 0:
      return std::nullopt;
    case 1:
      return "local";
    case 2:
      return "abc123";
    case 3:
      return "Not A Key";
    case 4:
      return "";
    default:
      return in.text(32);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tav::fuzz::quietLog();
  ByteReader in(data, size);
  const auto key = projectKey(in);
  const std::uint8_t failures = in.byte();  // bit i: attempt i fails
  const bool generated = in.below(4) == 0;

  auto timers = std::make_shared<tav::fuzz::QueuedScheduler>();
  auto http = std::make_shared<tav::fuzz::FakeHttpClient>();
  auto dispatcher = std::make_shared<tav::TAVSDKDispatcher>(http, timers);
  dispatcher->setCurrentTime(std::make_shared<tav::TAVSDKVirtualClock>(1'700'000'000'000));
  auto callback = std::make_shared<CountingCallback>();

  if (generated) {
    tav::fuzz::ValueLimits limits;
    limits.maxDeep = 20000;
    Json batch = tav::fuzz::makeObject(in, {"events", "metadata", "e", "ake", "rtt_ms"}, limits);
    tav::TAVSDKJsonError error;
    const auto request =
        dispatcher->buildRequestFromURLEventsJsonDictError("https://h", batch, &error);
    TAV_FUZZ_CHECK(request.has_value() || !error.description.empty());
    dispatcher->handleBatchDomainOsFamilyJsonDictCallback(key, std::nullopt, std::nullopt,
                                                          std::move(batch), callback);
  } else {
    dispatcher->handleBatchOsFamilyWithJsonWithCallback(key, "linux", in.rest(), callback);
  }

  // Attempt by attempt: run the armed timer, then complete its request.
  int attempts = 0;
  for (int step = 0; step < 16 && (timers->pending() > 0 || http->pending() > 0); ++step) {
    timers->runQueued(1);
    if (http->pending() > 0) {
      http->failing = ((failures >> attempts) & 1U) != 0;
      http->completeQueued(1);
      ++attempts;
    }
  }
  TAV_FUZZ_CHECK(timers->pending() == 0 && http->pending() == 0);
  TAV_FUZZ_CHECK(attempts <= 5);
  TAV_FUZZ_CHECK(static_cast<int>(http->requests) == attempts);
  TAV_FUZZ_CHECK(callback->calls == 1);
  if (attempts == 0) {
    TAV_FUZZ_CHECK(!callback->last.has_value());  // dropped: unparsable or unserialisable
  } else {
    const bool lastFailed = ((failures >> (attempts - 1)) & 1U) != 0;
    TAV_FUZZ_CHECK(callback->last == std::optional<bool>(!lastFailed));
    TAV_FUZZ_CHECK(lastFailed ? attempts == 5 : true);
  }
  return 0;
}
