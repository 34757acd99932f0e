#pragma once
// The quality-of-experience figures of the collector's view report, read from a
// view's rebuilt state: one table, report name -> beacon key.

#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

namespace tav::collector {

enum class MetricScale {
  Plain,    // the beacon value as it is
  Percent,  // a fraction in the beacon, a percentage in the report
};

struct ViewMetric {
  std::string_view name;  // name in the report's "metrics" object
  const char* key;        // short beacon key
  MetricScale scale;
};

/// Every metric taken straight from a beacon key, in report order.
[[nodiscard]] const std::vector<ViewMetric>& viewMetrics();

/// A beacon value as a number: numbers as they are, decimal text parsed;
/// nullopt for anything else and for non-finite values.
[[nodiscard]] std::optional<double> numberOf(const nlohmann::json& value);

/// The "metrics" object of a view from its rebuilt state (short key -> value):
/// the table's metrics plus the derived averages (seek latency, up/downscaling).
[[nodiscard]] nlohmann::json metricsOf(const nlohmann::json& state);

}  // namespace tav::collector
