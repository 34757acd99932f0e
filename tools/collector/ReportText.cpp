#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "Collector.h"

namespace tav::collector {
namespace {

std::string format(const char* pattern, ...) __attribute__((format(printf, 1, 2)));
std::string format(const char* pattern, ...) {
  char buffer[512];
  va_list args;
  va_start(args, pattern);
  std::vsnprintf(buffer, sizeof buffer, pattern, args);
  va_end(args);
  return buffer;
}

/// A metric of the view, or nullptr when the view never reported it.
const Json* metric(const Json& metrics, const char* name) {
  const auto it = metrics.find(name);
  return it == metrics.end() ? nullptr : &*it;
}

double number(const Json& metrics, const char* name) {
  const Json* value = metric(metrics, name);
  return value ? value->get<double>() : 0.0;
}

bool hasAny(const Json& metrics, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (metric(metrics, name)) return true;
  }
  return false;
}

std::string kib(double bytes) {
  return format("%.1f KiB", bytes / 1024.0);
}

std::string rangesText(const Json& ranges) {
  std::string text;
  for (const auto& range : ranges) {
    if (!text.empty()) text += ",";
    const auto from = range[0].get<std::int64_t>();
    const auto to = range[1].get<std::int64_t>();
    text += from == to ? std::to_string(from) : format("%" PRId64 "-%" PRId64, from, to);
  }
  return text;
}

void appendView(std::string& out, const Json& view, std::size_t index, std::size_t count) {
  const Json& m = view["metrics"];
  out += format("== view %zu/%zu  %s  player \"%s\" (instance %s)\n", index, count,
                view["viewId"].get<std::string>().c_str(),
                view["playerName"].get<std::string>().c_str(),
                view["playerInstanceId"].get<std::string>().c_str());
  out +=
      format("   video        \"%s\" [%s]  key %s\n", view["videoTitle"].get<std::string>().c_str(),
             view["videoId"].get<std::string>().c_str(),
             view["environmentKey"].get<std::string>().c_str());
  std::string events;
  for (const auto& [name, n] : view["events"].items()) {
    events +=
        format("%s%s %" PRId64, events.empty() ? "" : ", ", name.c_str(), n.get<std::int64_t>());
  }
  out += format("   received     %" PRId64 " beacons in %" PRId64 " batches, %s: %s\n",
                view["beacons"].get<std::int64_t>(), view["batches"].get<std::int64_t>(),
                kib(view["bytes"].get<double>()).c_str(), events.c_str());
  const Json& seq = view["sequence"];
  std::string sequence = format("1..%" PRId64 " ", seq["last"].get<std::int64_t>());
  sequence += seq["missing"].empty() ? "complete" : "missing " + rangesText(seq["missing"]);
  if (seq["duplicates"].get<std::int64_t>() > 0) {
    sequence += format(", %" PRId64 " duplicates", seq["duplicates"].get<std::int64_t>());
  }
  out += format("   sequence     %s, starts with \"%s\"\n", sequence.c_str(),
                view["firstEvent"].get<std::string>().c_str());
  if (metric(m, "timeToFirstFrameMs")) {
    out += format("   startup      time to first frame %.0f ms\n", number(m, "timeToFirstFrameMs"));
  }
  out += format("   time         watch %.1f s, content playback %.1f s\n",
                number(m, "watchTimeMs") / 1000.0, number(m, "contentPlaybackTimeMs") / 1000.0);
  out += format("   rebuffering  %.0f, %.1f s, %.2f %% of watch time\n", number(m, "rebufferCount"),
                number(m, "rebufferDurationMs") / 1000.0, number(m, "rebufferPercentage"));
  out += format("   seeking      %.0f, average %.0f ms, longest %.0f ms\n", number(m, "seekCount"),
                number(m, "averageSeekLatencyMs"), number(m, "maxSeekLatencyMs"));
  if (hasAny(m, {"maxUpscalePercentage", "maxDownscalePercentage"})) {
    out += format("   scaling      up max %.1f %% avg %.1f %%, down max %.1f %% avg %.1f %%\n",
                  number(m, "maxUpscalePercentage"), number(m, "averageUpscalePercentage"),
                  number(m, "maxDownscalePercentage"), number(m, "averageDownscalePercentage"));
  }
  if (number(m, "adBreakCount") > 0 || number(m, "adRequestCount") > 0) {
    out += format(
        "   ads          %.0f breaks, %.0f plays, %.0f views, %.0f complete, %.0f errors, "
        "%.1f s watched\n",
        number(m, "adBreakCount"), number(m, "adPlayCount"), number(m, "adViewCount"),
        number(m, "adCompleteCount"), number(m, "adErrorCount"),
        number(m, "adWatchTimeMs") / 1000.0);
  }
  if (hasAny(m, {"prerollRequestTimeMs", "prerollLoadTimeMs"})) {
    out += format("   pre-roll     request %.0f ms, load %.0f ms\n",
                  number(m, "prerollRequestTimeMs"), number(m, "prerollLoadTimeMs"));
  }
  if (hasAny(m, {"averageRequestThroughputBps", "averageRequestLatencyMs"})) {
    out += format(
        "   requests     throughput min %.2f avg %.2f Mbit/s, latency max %.0f avg %.1f ms\n",
        number(m, "minRequestThroughputBps") / 1e6, number(m, "averageRequestThroughputBps") / 1e6,
        number(m, "maxRequestLatencyMs"), number(m, "averageRequestLatencyMs"));
  }
  if (view.contains("errorCode")) {
    out += format("   error        %s: %s\n", view["errorCode"].get<std::string>().c_str(),
                  view["errorMessage"].get<std::string>().c_str());
  }
}

}  // namespace

std::string formatReport(const Json& report) {
  std::string out;
  const Json& views = report["views"];
  std::size_t index = 0;
  for (const auto& view : views)
    appendView(out, view, ++index, views.size());
  const Json& t = report["totals"];
  out += format("== totals: %" PRId64 " batches, %" PRId64 " beacons, %s, %" PRId64
                " rejected, %" PRId64 " violations\n",
                t["batches"].get<std::int64_t>(), t["beacons"].get<std::int64_t>(),
                kib(t["bytes"].get<double>()).c_str(), t["rejectedBatches"].get<std::int64_t>(),
                t["violations"].get<std::int64_t>());
  constexpr std::size_t kShown = 20;
  std::size_t shown = 0;
  for (const auto& v : report["violations"]) {
    if (shown++ == kShown) {
      out += format("   ... %zu more in the JSON report\n", report["violations"].size() - kShown);
      break;
    }
    out += format("   %-20s %s %s\n", v["kind"].get<std::string>().c_str(),
                  v["viewId"].get<std::string>().c_str(), v["detail"].get<std::string>().c_str());
  }
  return out;
}

std::string Collector::textReport() const {
  return formatReport(report());
}

}  // namespace tav::collector
