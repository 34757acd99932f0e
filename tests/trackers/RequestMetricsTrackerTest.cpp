// Request throughput and latency through the facade: a sequence of segment
// requests ("requestcompleted" with start, response start, response end and
// bytes) gives minimum and average throughput in bits per second and maximum
// and average latency in milliseconds on the view's beacons; unusable,
// failed and canceled requests report nothing.

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "support/PipelineFixture.h"

namespace tav::test {
namespace {

struct Request {
  std::optional<std::int64_t> start;
  std::optional<std::int64_t> responseStart;
  std::optional<std::int64_t> responseEnd;
  std::optional<std::int64_t> bytes;
};

std::shared_ptr<TAVSDKBandwidthMetricData> record(const Request& r) {
  auto data = std::make_shared<TAVSDKBandwidthMetricData>();
  data->setRequestStart(r.start);
  data->setRequestResponseStart(r.responseStart);
  data->setRequestResponseEnd(r.responseEnd);
  data->setRequestBytesLoaded(r.bytes);
  data->setRequestType("media");
  return data;
}

// Bits per second of `bytes` over `ms`, truncated.
std::int64_t bps(std::int64_t bytes, std::int64_t ms) {
  return bytes * 8000 / ms;
}

class RequestMetricsViewTest : public PipelineTest {
 protected:
  void startView() {
    send<TAVSDKViewInitEvent>("p1", 0);
    send<TAVSDKPlayEvent>("p1", 0);
    send<TAVSDKPlayingEvent>("p1", 0);
  }
  /// Reports one request of the given outcome; returns its beacon.
  const Json& report(const Request& r, const std::string& type = "requestcompleted",
                     const std::shared_ptr<TAVSDKViewData>& view = nullptr) {
    advance(100);
    auto event = std::make_shared<TAVSDKRequestBandwidthEvent>(
        type == "requestcompleted" ? TAVSDKPlaybackEventRequestBandwidthEventCompleteType
        : type == "requestfailed"  ? TAVSDKPlaybackEventRequestBandwidthEventErrorType
                                   : TAVSDKPlaybackEventRequestBandwidthEventCancelType);
    event->setBandwidthMetricData(record(r));
    event->setViewData(view);
    TAVSDKCore::dispatchEventForPlayer(event, "p1");
    EXPECT_EQ(captured->beacons.back().type, type);
    return captured->beacons.back().query;
  }
};

constexpr const char* kRequestKeys[] = {VIEW_MIN_REQUEST_THROUGHPUT,
                                        VIEW_AVERAGE_REQUEST_THROUGHPUT, VIEW_MAX_REQUEST_LATENCY,
                                        VIEW_AVERAGE_REQUEST_LATENCY};

TEST_F(RequestMetricsViewTest, SegmentSequenceGivesThroughputAndLatencyFigures) {
  startView();
  // 500000 bytes over 500 ms after 100 ms of latency.
  const Json& q1 = report({1000, 1100, 1600, 500'000});
  EXPECT_EQ(q1.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(500'000, 500)));
  EXPECT_EQ(q1.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(500'000, 500)));
  EXPECT_DOUBLE_EQ(number(q1, VIEW_MAX_REQUEST_LATENCY), 100.0);
  EXPECT_DOUBLE_EQ(number(q1, VIEW_AVERAGE_REQUEST_LATENCY), 100.0);
  EXPECT_EQ(q1.at(REQUEST_BYTES_LOADED), "500000") << "the request travels with its beacon";

  // 250000 bytes over 500 ms after 300 ms: a new minimum and maximum.
  const Json& q2 = report({2000, 2300, 2800, 250'000});
  EXPECT_EQ(q2.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(250'000, 500)));
  EXPECT_EQ(q2.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(750'000, 1000)));
  EXPECT_EQ(q2.at(VIEW_MAX_REQUEST_LATENCY), text(2300 - 2000));
  EXPECT_DOUBLE_EQ(number(q2, VIEW_AVERAGE_REQUEST_LATENCY), (100.0 + 300.0) / 2);

  // No response start: the load time runs from the request start, there is
  // no latency, but the request still counts in the latency divisor.
  const Json& q3 = report({3000, std::nullopt, 3700, 100'000});
  EXPECT_EQ(q3.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(100'000, 700)));
  EXPECT_EQ(q3.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(850'000, 1700)));
  EXPECT_EQ(q3.at(VIEW_MAX_REQUEST_LATENCY), text(2300 - 2000));
  EXPECT_DOUBLE_EQ(number(q3, VIEW_AVERAGE_REQUEST_LATENCY), (100.0 + 300.0) / 2)
      << "no latency: the average is not recomputed";

  // A fast segment: the minimum stays, the averages move; the average latency
  // is stored as the double itself.
  const Json& q4 = report({4000, 4050, 4250, 300'000});
  EXPECT_EQ(q4.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(100'000, 700)));
  EXPECT_EQ(q4.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(1'150'000, 1900)));
  EXPECT_EQ(q4.at(VIEW_MAX_REQUEST_LATENCY), text(2300 - 2000));
  EXPECT_EQ(q4.at(VIEW_AVERAGE_REQUEST_LATENCY), field::numberText((100.0 + 300.0 + 50.0) / 4));

  // 1000 bytes over 3 ms: the average, 1151000 bytes over 1903 ms, is
  // 4838675.77 bits per second, reported truncated.
  const Json& q5 = report({5000, 5001, 5004, 1000});
  EXPECT_EQ(q5.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(100'000, 700)));
  EXPECT_EQ(q5.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(1'151'000, 1903)));
  EXPECT_NEAR(number(q5, VIEW_AVERAGE_REQUEST_LATENCY), (100.0 + 300.0 + 50.0 + 1.0) / 5, 1e-12);

  // Other beacons of the view carry the figures on.
  advance(1000);
  send<TAVSDKPauseEvent>("p1", 4000, true);
  EXPECT_EQ(captured->beacons.back().query.at(VIEW_MIN_REQUEST_THROUGHPUT),
            text(bps(100'000, 700)));
}

TEST_F(RequestMetricsViewTest, UnusableFailedAndCanceledRequestsCountForNothing) {
  startView();
  const std::vector<std::pair<Request, std::string>> unusable{
      {{1000, 1100, std::nullopt, 5000}, "requestcompleted"},          // no end
      {{std::nullopt, std::nullopt, 1600, 5000}, "requestcompleted"},  // neither start
      {{1000, 1100, 1600, 0}, "requestcompleted"},                     // no bytes
      {{1000, 1100, 1600, std::nullopt}, "requestcompleted"},          // bytes unknown
      {{1000, 1600, 1600, 5000}, "requestcompleted"},                  // ends at its response start
      {{1000, 1700, 1600, 5000}, "requestcompleted"},                  // ends before it
      {{1000, 1100, 1600, 5000}, "requestfailed"},
      {{1000, 1100, 1600, 5000}, "requestcanceled"},
  };
  for (const auto& [r, type] : unusable) {
    const Json& q = report(r, type);
    for (const char* key : kRequestKeys)
      EXPECT_FALSE(q.contains(key)) << type << " " << key;
  }
  // None of them entered the totals or the latency divisor.
  const Json& q = report({2000, 2040, 2440, 20'000});
  EXPECT_EQ(q.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(20'000, 400)));
  EXPECT_EQ(q.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(20'000, 400)));
  EXPECT_DOUBLE_EQ(number(q, VIEW_AVERAGE_REQUEST_LATENCY), 40.0);
}

TEST_F(RequestMetricsViewTest, ViewFiguresAreReadBackAsTheirIntegersAndStartAfreshPerView) {
  startView();
  // The integration's own view figures merge into the view record first: a
  // maximum latency with a fraction is read back truncated and the new
  // maximum is stored as a whole number; a minimum throughput is compared as
  // it stands.
  auto view = std::make_shared<TAVSDKViewData>();
  view->setViewMaxRequestLatency(250.9);
  view->setViewMinRequestThroughput(1'000'000);
  const Json& q = report({1000, 1100, 1600, 500'000}, "requestcompleted", view);
  EXPECT_EQ(q.at(VIEW_MAX_REQUEST_LATENCY), text(static_cast<std::int64_t>(250.9)));
  EXPECT_EQ(q.at(VIEW_MIN_REQUEST_THROUGHPUT), text(1'000'000));
  EXPECT_EQ(q.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(500'000, 500)));
  EXPECT_DOUBLE_EQ(number(q, VIEW_AVERAGE_REQUEST_LATENCY), 100.0);
  report({2000, 2500, 2600, 50'000});

  startView();
  const Json& fresh = report({3000, 3020, 3120, 400'000});
  EXPECT_EQ(fresh.at(VIEW_MIN_REQUEST_THROUGHPUT), text(bps(400'000, 100)));
  EXPECT_EQ(fresh.at(VIEW_AVERAGE_REQUEST_THROUGHPUT), text(bps(400'000, 100)));
  EXPECT_EQ(fresh.at(VIEW_MAX_REQUEST_LATENCY), text(3020 - 3000));
  EXPECT_DOUBLE_EQ(number(fresh, VIEW_AVERAGE_REQUEST_LATENCY), 20.0);
}

TEST(RequestMetricsTrackerTest, UnreportedCountersAndRequestsOutsideAView) {
  TAVSDKRequestMetricsTracker tracker(nullptr);
  auto send = [&](const std::string& type, const std::shared_ptr<TAVSDKBandwidthMetricData>& b) {
    TAVSDKRequestBandwidthEvent event(type);
    event.setBandwidthMetricData(b);
    tracker.handlePlaybackEvent(event);
  };
  auto canceled = std::make_shared<TAVSDKBandwidthMetricData>();
  send(TAVSDKPlaybackEventRequestBandwidthEventCancelType, canceled);
  canceled->setRequestCancel("");
  send(TAVSDKPlaybackEventRequestBandwidthEventCancelType, canceled);
  canceled->setRequestCancel("user");
  send(TAVSDKPlaybackEventRequestBandwidthEventCancelType, canceled);
  auto failed = std::make_shared<TAVSDKBandwidthMetricData>();
  send(TAVSDKPlaybackEventRequestBandwidthEventErrorType, failed);
  failed->setRequestError("timeout");
  send(TAVSDKPlaybackEventRequestBandwidthEventErrorType, failed);
  send(TAVSDKPlaybackEventRequestBandwidthEventErrorType, nullptr);

  // The request count counts canceled requests only.
  EXPECT_EQ(tracker.requestCount(), 3);
  EXPECT_EQ(tracker.requestCanceledCount(), 1);
  EXPECT_EQ(tracker.requestFailedCount(), 1);
  EXPECT_EQ(tracker.requestCompletedCount(), 0);

  // Without a view record the totals still move.
  send(TAVSDKPlaybackEventRequestBandwidthEventCompleteType, record({1000, 1100, 1600, 4000}));
  send(TAVSDKPlaybackEventRequestBandwidthEventCompleteType, record({1000, 1100, 1600, 0}));
  send(TAVSDKPlaybackEventRequestBandwidthEventCompleteType, nullptr);
  EXPECT_EQ(tracker.requestCompletedCount(), 1);
  EXPECT_EQ(tracker.totalBytes(), 4000);
  EXPECT_EQ(tracker.totalLoadTime(), 1600 - 1100);
  EXPECT_DOUBLE_EQ(tracker.totalLatency(), 1100.0 - 1000.0);
  EXPECT_EQ(tracker.requestCount(), 3);
}

}  // namespace
}  // namespace tav::test
