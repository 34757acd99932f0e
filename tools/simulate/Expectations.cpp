#include "Expectations.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <set>

namespace tav::simulate {
namespace {

std::string text(const Json& value) {
  if (value.is_string()) return value.get<std::string>();
  if (value.is_number_float()) {
    char buffer[32];
    std::snprintf(buffer, sizeof buffer, "%.4g", value.get<double>());
    return buffer;
  }
  return value.dump();
}

/// Whether `actual` satisfies `matcher`, and the matcher as text.
std::pair<bool, std::string> match(const Json& matcher, const Json* actual) {
  if (matcher.is_null()) return {actual == nullptr, "absent"};
  if (matcher.is_number()) {
    const double want = matcher.get<double>();
    const bool ok =
        actual && actual->is_number() &&
        std::fabs(actual->get<double>() - want) <= 1e-9 * std::max(1.0, std::fabs(want));
    return {ok, text(matcher)};
  }
  if (matcher.is_object()) {
    const bool numeric = actual && actual->is_number();
    const double value = numeric ? actual->get<double>() : 0.0;
    if (matcher.contains("approx")) {
      const double want = matcher["approx"].get<double>();
      const double tolerance = matcher.value("tolerance", 0.05);
      const bool ok = numeric && std::fabs(value - want) <= tolerance * std::fabs(want);
      char buffer[64];
      std::snprintf(buffer, sizeof buffer, "%s +-%g%%", text(matcher["approx"]).c_str(),
                    tolerance * 100.0);
      return {ok, buffer};
    }
    bool ok = numeric;
    std::string expected;
    if (matcher.contains("min")) {
      ok = ok && value >= matcher["min"].get<double>();
      expected += ">= " + text(matcher["min"]);
    }
    if (matcher.contains("max")) {
      ok = ok && value <= matcher["max"].get<double>();
      expected += std::string(expected.empty() ? "" : ", ") + "<= " + text(matcher["max"]);
    }
    return {ok, expected};
  }
  return {actual && *actual == matcher, text(matcher)};
}

}  // namespace

std::vector<Json> viewsOfRun(const Json& report, const std::string& runId) {
  std::vector<Json> views;
  const std::string mark = runMark(runId);
  for (const auto& view : report.value("views", Json::array())) {
    const Json state = view.value("state", Json::object());
    if (state.value("c1", "") == mark) views.push_back(view);
  }
  return views;
}

std::vector<CheckResult> checkScenario(const Scenario& scenario,
                                       const std::vector<Json>& runViews) {
  std::set<std::string> players;
  for (const auto& p : scenario.players)
    players.insert(p.name);
  const auto viewsOf = [&](const std::string& videoId) {
    std::vector<const Json*> found;
    for (const auto& view : runViews) {
      if (view.value("videoId", "") == videoId && players.count(view.value("playerName", ""))) {
        found.push_back(&view);
      }
    }
    return found;
  };

  std::vector<CheckResult> results;
  const auto add = [&](const std::string& subject, const std::string& check,
                       std::pair<bool, std::string> outcome, const std::string& actual) {
    results.push_back({scenario.name, subject, check, outcome.second, actual, outcome.first});
  };

  // Every video the scenario plays is expected at least once, even unnamed.
  Json expect = scenario.expect;
  for (const auto& p : scenario.players) {
    for (const auto& v : p.videos) {
      if (!expect.contains(v.id)) expect[v.id] = Json::object();
    }
  }
  for (const auto& [subject, spec] : expect.items()) {
    const auto hash = subject.find('#');
    const std::string videoId = subject.substr(0, hash);
    const std::size_t index = hash == std::string::npos
                                  ? 1
                                  : static_cast<std::size_t>(std::stoul(subject.substr(hash + 1)));
    const auto views = viewsOf(videoId);
    if (hash == std::string::npos) {
      const Json count = static_cast<std::int64_t>(views.size());
      add(subject, "views",
          spec.contains("views") ? match(spec["views"], &count) : match({{"min", 1}}, &count),
          text(count));
    }
    if (index == 0 || views.size() < index) {
      if (hash != std::string::npos) add(subject, "view exists", {false, "yes"}, "no");
      continue;
    }
    const Json& view = *views[index - 1];
    const Json first = view.value("firstEvent", "");
    add(subject, "first event", match(spec.value("firstEvent", Json("viewstart")), &first),
        text(first));
    if (spec.value("complete", true)) {
      const Json missing = view["sequence"].value("missing", Json::array());
      add(subject, "no beacon missing", {missing.empty(), "none missing"},
          missing.empty() ? "none missing" : "missing " + missing.dump());
    }
    const Json events = spec.value("events", Json::object());
    for (const auto& [event, matcher] : events.items()) {
      const Json count = view["events"].value(event, 0);
      add(subject, "events \"" + event + "\"", match(matcher, &count), text(count));
    }
    const Json& metrics = view["metrics"];
    const Json expectedMetrics = spec.value("metrics", Json::object());
    for (const auto& [name, matcher] : expectedMetrics.items()) {
      const auto it = metrics.find(name);
      const Json* actual = it == metrics.end() ? nullptr : &*it;
      add(subject, name, match(matcher, actual), actual ? text(*actual) : "absent");
    }
    for (const char* key : {"errorCode", "errorMessage"}) {
      if (!spec.contains(key)) continue;
      const auto it = view.find(key);
      const Json* actual = it == view.end() ? nullptr : &*it;
      add(subject, key, match(spec[key], actual), actual ? text(*actual) : "absent");
    }
  }
  return results;
}

std::string formatResults(const std::vector<CheckResult>& results) {
  std::string out;
  char line[512];
  std::snprintf(line, sizeof line, "%-22s %-18s %-28s %-18s %-18s %s\n", "scenario", "view",
                "check", "expected", "actual", "result");
  out += line;
  std::size_t failed = 0;
  for (const auto& r : results) {
    if (!r.pass) ++failed;
    std::snprintf(line, sizeof line, "%-22s %-18s %-28s %-18s %-18s %s\n", r.scenario.c_str(),
                  r.subject.c_str(), r.check.c_str(), r.expected.c_str(), r.actual.c_str(),
                  r.pass ? "PASS" : "FAIL");
    out += line;
  }
  std::snprintf(line, sizeof line, "%zu checks: %zu passed, %zu failed\n", results.size(),
                results.size() - failed, failed);
  out += line;
  return out;
}

}  // namespace tav::simulate
