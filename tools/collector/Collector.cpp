#include "Collector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <deque>
#include <map>
#include <unordered_map>

#include "BeaconStore.h"
#include "SequenceSet.h"
#include "ViewMetrics.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKEnvironmentData.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/events/TAVSDKEventTypes.h"
#include "tav/events/TAVSDKPlaybackEvents.h"

namespace tav::collector {
namespace {

/// Keys that the library puts on every beacon it sends (never dropped by
/// de-duplication, always known to the library).
constexpr const char* kRequiredKeys[] = {
    VIEW_ID,     VIEW_SEQUENCE_NUMBER, PLAYER_SEQUENCE_NUMBER, PLAYER_INSTANCE_ID,
    VIEWER_TIME, TAV_API_VERSION};

/// The violations listed in full; beyond this they are only counted.
constexpr std::size_t kListedViolations = 1000;

/// A beacon's sequence number: a positive integer given as decimal text (or a
/// number); 0 when absent or malformed.
std::int64_t sequenceOf(const Json& beacon, const char* key) {
  const auto it = beacon.find(key);
  if (it == beacon.end()) return 0;
  const auto number = numberOf(*it);
  if (!number || *number < 1 || *number > 9.0e15 || std::trunc(*number) != *number) return 0;
  return static_cast<std::int64_t>(*number);
}

/// A value as text: strings as they are, other values as their JSON text, null as "".
std::string valueText(const Json& value) {
  if (value.is_null()) return "";
  return value.is_string() ? value.get<std::string>() : value.dump();
}

std::string textOf(const Json& object, const char* key) {
  const auto it = object.find(key);
  return it == object.end() ? "" : valueText(*it);
}

std::string rangesText(const std::vector<std::pair<std::int64_t, std::int64_t>>& ranges) {
  std::string text;
  for (const auto& [from, to] : ranges) {
    if (!text.empty()) text += ",";
    text += from == to ? std::to_string(from) : std::to_string(from) + "-" + std::to_string(to);
  }
  return text;
}

Json rangesJson(const std::vector<std::pair<std::int64_t, std::int64_t>>& ranges) {
  Json list = Json::array();
  for (const auto& [from, to] : ranges)
    list.push_back(Json::array({from, to}));
  return list;
}

}  // namespace

struct Collector::State {
  /// One value of the rebuilt view state with the sequence number that set it.
  struct Value {
    std::int64_t sequence = 0;
    Json value;
  };

  struct View {
    std::string playerInstanceId;
    std::map<std::string, Value, std::less<>> state;  // short key -> latest value
    SequenceSet sequences;
    std::int64_t duplicates = 0;
    std::int64_t beacons = 0;
    std::int64_t batches = 0;
    double bytes = 0.0;  // its share of the bytes of the batches that carried it
    std::map<std::string, std::int64_t, std::less<>> events;
    std::int64_t firstSequence = 0;
    std::string firstEvent;
    std::int64_t errorSequence = 0;
    std::string errorCode;
    std::string errorMessage;
    std::int64_t lastBatch = -1;
    std::size_t order = 0;  // arrival order of its first beacon
  };

  struct Player {
    SequenceSet sequences;
    std::int64_t duplicates = 0;
    std::int64_t beacons = 0;
    std::vector<std::string> views;
  };

  std::unordered_map<std::string, View> views;
  std::map<std::string, Player, std::less<>> players;
  std::deque<Violation> violations;
  std::map<std::string, std::int64_t, std::less<>> violationCounts;  // by kind
  std::int64_t batches = 0;
  std::int64_t rejectedBatches = 0;
  std::int64_t beacons = 0;
  std::int64_t bytes = 0;
  std::size_t beaconViolations = 0;

  void violate(std::string kind, std::string viewId, std::string detail) {
    ++violationCounts[kind];
    ++beaconViolations;
    if (violations.size() < kListedViolations) {
      violations.push_back({std::move(kind), std::move(viewId), std::move(detail)});
    }
  }

  /// Folds one beacon into its view and player; answers the violations it raised.
  std::size_t take(const Json& beacon, std::int64_t batchNumber, double byteShare,
                   std::map<std::string, std::int64_t, std::less<>>& lastInBatch);
  [[nodiscard]] Json viewReport(const std::string& id, const View& view) const;
};

std::size_t Collector::State::take(const Json& beacon, std::int64_t batchNumber, double byteShare,
                                   std::map<std::string, std::int64_t, std::less<>>& lastInBatch) {
  const std::size_t before = beaconViolations;
  const std::string viewId = textOf(beacon, VIEW_ID);
  const auto e = beacon.find("e");
  std::string event;
  if (e == beacon.end()) {
    violate("missing-e", viewId, "a beacon has no \"e\"");
  } else if (!e->is_string()) {
    violate("e-not-text", viewId, "\"e\" is " + e->dump());
  } else {
    event = e->get<std::string>();
  }
  for (const char* key : kRequiredKeys) {
    if (!beacon.contains(key)) {
      violate("missing-key", viewId, "\"" + event + "\" beacon lacks \"" + key + "\"");
    }
  }
  if (event == TAVSDKPlaybackEventRenditionChangeEventType) {
    for (const auto& key : TAVSDKRenditionChangeEvent().requiredProperties()) {
      if (!beacon.contains(key)) {
        violate("missing-key", viewId, "\"renditionchange\" beacon lacks \"" + key + "\"");
      }
    }
  }
  const std::int64_t viewSeq = sequenceOf(beacon, VIEW_SEQUENCE_NUMBER);
  const std::int64_t playerSeq = sequenceOf(beacon, PLAYER_SEQUENCE_NUMBER);
  if (beacon.contains(VIEW_SEQUENCE_NUMBER) && viewSeq == 0) {
    violate("bad-sequence", viewId, "\"xsqno\" is " + beacon[VIEW_SEQUENCE_NUMBER].dump());
  }
  if (beacon.contains(PLAYER_SEQUENCE_NUMBER) && playerSeq == 0) {
    violate("bad-sequence", viewId, "\"psqno\" is " + beacon[PLAYER_SEQUENCE_NUMBER].dump());
  }

  const std::string playerId = textOf(beacon, PLAYER_INSTANCE_ID);
  if (!playerId.empty()) {
    auto& player = players[playerId];
    ++player.beacons;
    if (playerSeq > 0 && !player.sequences.insert(playerSeq)) ++player.duplicates;
  }

  if (!viewId.empty()) {
    auto [it, isNew] = views.try_emplace(viewId);
    View& view = it->second;
    if (isNew) {
      view.order = views.size();
      view.playerInstanceId = playerId;
      if (!playerId.empty()) players[playerId].views.push_back(viewId);
    }
    ++view.beacons;
    view.bytes += byteShare;
    if (view.lastBatch != batchNumber) {
      view.lastBatch = batchNumber;
      ++view.batches;
    }
    if (!event.empty()) ++view.events[event];
    if (viewSeq > 0) {
      if (!view.sequences.insert(viewSeq)) ++view.duplicates;
      auto& last = lastInBatch[viewId];
      if (viewSeq < last) {
        violate("sequence-order", viewId,
                "\"xsqno\" " + std::to_string(viewSeq) + " after " + std::to_string(last) +
                    " in one batch");
      }
      last = std::max(last, viewSeq);
      if (view.firstSequence == 0 || viewSeq < view.firstSequence) {
        view.firstSequence = viewSeq;
        view.firstEvent = event;
      }
      // Values carry forward until a later beacon of the view changes them, in
      // sequence order, whatever order the batches arrive in.
      for (const auto& [key, value] : beacon.items()) {
        auto& slot = view.state[key];
        if (viewSeq >= slot.sequence) slot = {viewSeq, value};
      }
      if (event == TAVSDKPlaybackEventErrorEventType && viewSeq >= view.errorSequence) {
        view.errorSequence = viewSeq;
        const auto code = view.state.find(PLAYER_ERROR_CODE);
        const auto message = view.state.find(PLAYER_ERROR_MESSAGE);
        view.errorCode = code == view.state.end() ? "" : valueText(code->second.value);
        view.errorMessage = message == view.state.end() ? "" : valueText(message->second.value);
      }
    }
  }

  return beaconViolations - before;
}

Collector::Collector() : Collector(nullptr) {}

Collector::Collector(std::unique_ptr<BeaconStore> store)
    : _state(std::make_unique<State>()), _store(std::move(store)) {}

Collector::~Collector() = default;

IngestResult Collector::ingestBatch(std::string_view body, const BatchInfo& info) {
  // Parse outside the lock: it is the expensive part.
  return ingestDocument(Json::parse(body.begin(), body.end(), nullptr, false), info, body.size());
}

IngestResult Collector::ingestDocument(const Json& document, const BatchInfo& info,
                                       std::size_t bytes) {
  IngestResult result;
  if (document.is_discarded()) {
    result.error = "body is not JSON";
  } else if (!document.is_object()) {
    result.error = "body is not a JSON object";
  } else if (!document.contains("events") || !document["events"].is_array()) {
    result.error = "\"events\" is missing or not an array";
  } else if (document.contains("metadata") && !document["metadata"].is_object()) {
    result.error = "\"metadata\" is not an object";
  } else if (!std::all_of(document["events"].begin(), document["events"].end(),
                          [](const Json& beacon) { return beacon.is_object(); })) {
    result.error = "an element of \"events\" is not an object";
  }
  if (!result.error.empty()) {
    result.status = 400;
    recordRejected(info, bytes, result.error);
    return result;
  }

  const auto& events = document["events"];
  {
    const std::lock_guard lock(_mutex);
    const std::int64_t batchNumber = ++_state->batches;
    _state->bytes += static_cast<std::int64_t>(bytes);
    const double share =
        events.empty() ? 0.0 : static_cast<double>(bytes) / static_cast<double>(events.size());
    std::map<std::string, std::int64_t, std::less<>> lastInBatch;
    for (const auto& beacon : events) {
      result.violations += _state->take(beacon, batchNumber, share, lastInBatch);
      ++_state->beacons;
      ++result.beacons;
      result.events.push_back(textOf(beacon, "e"));
    }
  }
  if (_store) _store->storeBatch(info, bytes, document);
  return result;
}

void Collector::recordRejected(const BatchInfo& info, std::size_t bytes, std::string_view error) {
  {
    const std::lock_guard lock(_mutex);
    ++_state->rejectedBatches;
  }
  if (_store) _store->storeRejected(info, bytes, error);
}

std::size_t Collector::beaconCount() const {
  const std::lock_guard lock(_mutex);
  return static_cast<std::size_t>(_state->beacons);
}

Json Collector::State::viewReport(const std::string& id, const View& view) const {
  Json state = Json::object();
  for (const auto& [key, slot] : view.state)
    state[key] = slot.value;
  Json events = Json::object();
  for (const auto& [name, count] : view.events)
    events[name] = count;
  Json report = {
      {"viewId", id},
      {"playerInstanceId", view.playerInstanceId},
      {"playerName", textOf(state, PLAYER_NAME)},
      {"videoId", textOf(state, VIDEO_ID)},
      {"videoTitle", textOf(state, VIDEO_TITLE)},
      {"environmentKey", textOf(state, ENV_KEY)},
      {"sessionId", textOf(state, SESSION_ID)},
      {"firstEvent", view.firstEvent},
      {"beacons", view.beacons},
      {"batches", view.batches},
      {"bytes", static_cast<std::int64_t>(std::llround(view.bytes))},
      {"events", events},
      {"sequence",
       {{"last", view.sequences.last()},
        {"missing", rangesJson(view.sequences.missing())},
        {"duplicates", view.duplicates}}},
      {"metrics", metricsOf(state)},
      {"state", state},
  };
  if (view.errorSequence > 0) {
    report["errorCode"] = view.errorCode;
    report["errorMessage"] = view.errorMessage;
  }
  return report;
}

Json Collector::report() const {
  const std::lock_guard lock(_mutex);
  const State& s = *_state;
  // Findings that only the whole picture shows: gaps and views that did not
  // start with "viewstart".
  std::vector<Violation> derived;
  std::vector<const std::pair<const std::string, State::View>*> ordered;
  for (const auto& entry : s.views)
    ordered.push_back(&entry);
  std::sort(ordered.begin(), ordered.end(),
            [](const auto* a, const auto* b) { return a->second.order < b->second.order; });
  Json views = Json::array();
  for (const auto* entry : ordered) {
    const auto& [id, view] = *entry;
    if (view.sequences.missingCount() > 0) {
      derived.push_back(
          {"sequence-gap", id, "view beacons missing: " + rangesText(view.sequences.missing())});
    }
    if (view.sequences.contains(1) && view.firstEvent != TAVSDKPlaybackEventViewStartEventType) {
      derived.push_back({"no-viewstart", id, "the view starts with \"" + view.firstEvent + "\""});
    }
    views.push_back(s.viewReport(id, view));
  }
  Json players = Json::array();
  for (const auto& [id, player] : s.players) {
    if (player.sequences.missingCount() > 0) {
      derived.push_back(
          {"player-sequence-gap", "",
           "player " + id + " beacons missing: " + rangesText(player.sequences.missing())});
    }
    players.push_back({{"playerInstanceId", id},
                       {"beacons", player.beacons},
                       {"views", player.views},
                       {"sequence",
                        {{"last", player.sequences.last()},
                         {"missing", rangesJson(player.sequences.missing())},
                         {"duplicates", player.duplicates}}}});
  }
  Json violations = Json::array();
  Json counts = Json::object();
  for (const auto& [kind, count] : s.violationCounts)
    counts[kind] = count;
  for (const auto& v : derived)
    counts[v.kind] = counts.value(v.kind, 0) + 1;
  std::int64_t total = 0;
  for (const auto& [kind, count] : counts.items())
    total += count.get<std::int64_t>();
  const auto list = [&violations](const auto& from) {
    for (const Violation& v : from) {
      violations.push_back({{"kind", v.kind}, {"viewId", v.viewId}, {"detail", v.detail}});
    }
  };
  list(derived);
  list(s.violations);
  return {{"views", views},
          {"players", players},
          {"totals",
           {{"batches", s.batches},
            {"beacons", s.beacons},
            {"bytes", s.bytes},
            {"rejectedBatches", s.rejectedBatches},
            {"violations", total},
            {"violationsByKind", counts}}},
          {"violations", violations}};
}

}  // namespace tav::collector
