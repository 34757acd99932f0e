#include "ViewMetrics.h"

#include <charconv>
#include <cmath>
#include <vector>

#include "tav/data/TAVSDKViewData.h"

namespace tav::collector {

const std::vector<ViewMetric>& viewMetrics() {
  using enum MetricScale;
  static const std::vector<ViewMetric> table = {
      {"timeToFirstFrameMs", VIEW_TIME_TO_FIRST_FRAME, Plain},
      {"watchTimeMs", VIEW_WATCH_TIME, Plain},
      {"contentPlaybackTimeMs", VIEW_PLAYING_TIME, Plain},
      {"maxPlayheadPositionMs", VIEW_MAX_PLAYHEAD_POSITION, Plain},
      {"rebufferCount", VIEW_REBUFFER_COUNT, Plain},
      {"rebufferDurationMs", VIEW_REBUFFER_DURATION, Plain},
      {"rebufferPercentage", VIEW_REBUFFER_PERCENTAGE, Percent},
      {"seekCount", VIEW_SEEK_COUNT, Plain},
      {"seekDurationMs", VIEW_SEEK_DURATION, Plain},
      {"maxSeekLatencyMs", VIEW_MAX_SEEK_TIME, Plain},
      {"scaledContentTimeMs", VIEW_TOTAL_CONTENT_PLAYBACK_TIME, Plain},
      {"maxUpscalePercentage", VIEW_MAX_UPSCALE_PERCENTAGE, Percent},
      {"maxDownscalePercentage", VIEW_MAX_DOWNSCALE_PERCENTAGE, Percent},
      {"adBreakCount", VIEW_AD_BREAK_COUNT, Plain},
      {"adPlayCount", VIEW_AD_PLAY_COUNT, Plain},
      {"adViewCount", VIEW_AD_VIEW_COUNT, Plain},
      {"adCompleteCount", VIEW_AD_COMPLETE_COUNT, Plain},
      {"adErrorCount", VIEW_AD_ERROR_COUNT, Plain},
      {"adWatchTimeMs", VIEW_AD_WATCH_TIME, Plain},
      {"adRequestCount", VIEW_AD_REQUEST_COUNT, Plain},
      {"adRequestTimeMs", VIEW_AD_REQUEST_TIME, Plain},
      {"prerollRequestCount", VIEW_PREROLL_REQUEST_COUNT, Plain},
      {"prerollRequestTimeMs", VIEW_PREROLL_REQUEST_TIME, Plain},
      {"prerollLoadTimeMs", VIEW_PREROLL_LOAD_TIME, Plain},
      {"minRequestThroughputBps", VIEW_MIN_REQUEST_THROUGHPUT, Plain},
      {"averageRequestThroughputBps", VIEW_AVERAGE_REQUEST_THROUGHPUT, Plain},
      {"maxRequestLatencyMs", VIEW_MAX_REQUEST_LATENCY, Plain},
      {"averageRequestLatencyMs", VIEW_AVERAGE_REQUEST_LATENCY, Plain},
  };
  return table;
}

std::optional<double> numberOf(const nlohmann::json& value) {
  double number = 0.0;
  if (value.is_number()) {
    number = value.get<double>();
  } else if (value.is_string()) {
    const auto& text = value.get_ref<const std::string&>();
    const char* end = text.data() + text.size();
    const auto [ptr, ec] = std::from_chars(text.data(), end, number);
    if (ec != std::errc() || ptr != end) return std::nullopt;
  } else {
    return std::nullopt;
  }
  if (!std::isfinite(number)) return std::nullopt;
  return number;
}

namespace {

std::optional<double> stateNumber(const nlohmann::json& state, const char* key) {
  const auto it = state.find(key);
  return it == state.end() ? std::nullopt : numberOf(*it);
}

/// Whole numbers stay integers in the report; others keep their fraction.
nlohmann::json reportNumber(double value) {
  if (std::trunc(value) == value && std::fabs(value) < 9.0e15) {
    return static_cast<std::int64_t>(value);
  }
  return value;
}

}  // namespace

nlohmann::json metricsOf(const nlohmann::json& state) {
  nlohmann::json metrics = nlohmann::json::object();
  for (const auto& metric : viewMetrics()) {
    if (auto value = stateNumber(state, metric.key)) {
      if (metric.scale == MetricScale::Percent) *value *= 100.0;
      metrics[std::string(metric.name)] = reportNumber(*value);
    }
  }
  const auto seeks = stateNumber(state, VIEW_SEEK_COUNT);
  const auto seekTime = stateNumber(state, VIEW_SEEK_DURATION);
  if (seeks && seekTime && *seeks > 0) {
    metrics["averageSeekLatencyMs"] = reportNumber(*seekTime / *seeks);
  }
  const auto scaledTime = stateNumber(state, VIEW_TOTAL_CONTENT_PLAYBACK_TIME);
  if (scaledTime && *scaledTime > 0) {
    if (const auto up = stateNumber(state, VIEW_TOTAL_UPSCALING)) {
      metrics["averageUpscalePercentage"] = reportNumber(*up / *scaledTime * 100.0);
    }
    if (const auto down = stateNumber(state, VIEW_TOTAL_DOWNSCALING)) {
      metrics["averageDownscalePercentage"] = reportNumber(*down / *scaledTime * 100.0);
    }
  }
  return metrics;
}

}  // namespace tav::collector
