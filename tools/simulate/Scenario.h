#pragma once
// Scenarios: players, videos and timelines of high-level actions, read from a
// JSON file and expanded into the facade calls that a player integration makes
// (the call form of tav/core/TAVSDKEventLog.h, with "t" relative to the start).

#include <cstdint>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>

namespace tav::simulate {

using Json = nlohmann::json;

struct Rendition {
  int width = 0;
  int height = 0;
  std::int64_t bitrate = 0;  // bit/s
  double frameRate = 30.0;
};

struct Network {
  std::int64_t throughputBps = 20'000'000;
  std::int64_t latencyMs = 40;  // request start to response start
};

struct Video {
  std::string id;
  std::string title;
  std::string series;
  std::string url;
  std::int64_t durationMs = 600'000;
  bool live = false;
  std::vector<Rendition> renditions;
  std::size_t startRendition = 0;
  std::int64_t segmentMs = 4000;  // media time per segment
  std::int64_t bufferAheadMs = 12000;
  Json timeline;  // the actions, as written
};

struct Player {
  std::string name;
  std::int64_t startAtMs = 0;  // offset from the scenario's start
  int width = 1280;
  int height = 720;
  Network network;
  std::vector<Video> videos;
};

struct Scenario {
  std::string file;
  std::string name;
  std::string description;
  std::vector<Player> players;
  Json expect = Json::object();  // see Expectations.h
};

/// Reads a scenario file. Throws std::runtime_error naming the file and the
/// offending member when the file is not a valid scenario.
[[nodiscard]] Scenario loadScenario(const std::string& path);
/// The same from an already parsed document (`file` names it in errors).
[[nodiscard]] Scenario parseScenario(const Json& document, const std::string& file);

struct ExpandOptions {
  std::string environmentKey = "local";
  std::string runId;  // stamped on every view (custom data "c1") to find this run's views
  std::string pluginVersion = "1.0";
};

/// The scenario's facade calls in time order ("t" in ms from the scenario's
/// start): the global device data, then each player's views, ending with the
/// player's destruction. Throws std::runtime_error on an unknown action.
[[nodiscard]] std::vector<Json> expandScenario(const Scenario& scenario,
                                               const ExpandOptions& options);

/// The custom-data value that marks the views of a run.
[[nodiscard]] std::string runMark(const std::string& runId);

}  // namespace tav::simulate
