// Fuzz target: the facade driven by an arbitrary sequence of calls. Each input
// decodes into up to 200 calls: playback events of every type, data, global and
// session-data events with generated records, player creation and removal,
// domains, error reporting on/off, virtual time steps, and raw JSON call
// descriptions for the event log's replayer. Every clock is one virtual clock;
// the transport is a fake client with queued timers, drained after each call.
//
// Checks: nothing crashes or throws; no more players than the input named; no
// queue beyond its limit of pending beacons; every batch ends (no retry loop is
// left pending); every request body is a JSON object; a recorded call decodes
// again.

#include <memory>
#include <set>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "core/CoreState.h"
#include "tav/TavCore.h"
#include "tav/core/TAVSDKEventLog.h"
#include "transport/TransportOverrides.h"

namespace {

using tav::fuzz::ByteReader;
using tav::fuzz::Json;

constexpr std::int64_t kStart = 1'700'000'000'000;
constexpr std::size_t kDrainSteps = 100000;

#define TAV_FUZZ_CODE(prop, Prop, KEY, code, Kind) code,
#define TAV_FUZZ_TYPE_NAME(Class, Constant, name) name,

const std::vector<std::string>& playbackTypes() {
  static const std::vector<std::string> types{
      TAV_PLAYBACK_EVENT_TYPES(TAV_FUZZ_TYPE_NAME) "renditionchange",
      "requestcompleted",
      "requestfailed",
      "requestcanceled",
      "PlaybackEvent",
      "bogus"};
  return types;
}

struct RecordKind {
  const char* name;
  std::vector<std::string> keys;
};

const std::vector<RecordKind>& recordKinds() {
  static const std::vector<RecordKind> kinds{
      {"playerData", {TAV_PLAYER_DATA_FIELDS(TAV_FUZZ_CODE)}},
      {"videoData", {TAV_VIDEO_DATA_FIELDS(TAV_FUZZ_CODE)}},
      {"viewData", {TAV_VIEW_DATA_FIELDS(TAV_FUZZ_CODE) "xdvor"}},
      {"bandwidthMetricData", {TAV_BANDWIDTH_METRIC_DATA_FIELDS(TAV_FUZZ_CODE) "qrfls"}},
      {"viewerData", {TAV_VIEWER_DATA_FIELDS(TAV_FUZZ_CODE)}},
      {"environmentData", {TAV_ENVIRONMENT_DATA_FIELDS(TAV_FUZZ_CODE)}},
      {"customerVideoData", {TAV_CUSTOMER_VIDEO_DATA_FIELDS(TAV_FUZZ_CODE)}},
      {"customerPlayerData", {TAV_CUSTOMER_PLAYER_DATA_FIELDS(TAV_FUZZ_CODE) "ake", "pauon"}},
      {"customerViewData", {TAV_CUSTOMER_VIEW_DATA_FIELDS(TAV_FUZZ_CODE)}},
      {"customData", {TAV_CUSTOM_DATA_FIELDS(TAV_FUZZ_CODE)}}};
  return kinds;
}

const RecordKind& recordKind(const char* name) {
  for (const auto& kind : recordKinds()) {
    if (std::string_view(kind.name) == name) return kind;
  }
  return recordKinds().front();
}

tav::fuzz::ValueLimits limits() {
  tav::fuzz::ValueLimits l;
  l.maxDepth = 3;
  l.maxItems = 5;
  l.maxDeep = 2000;
  l.maxHuge = 1U << 14;
  return l;
}

// Adds the records named in `names` to `form`, each with probability one half.
void addRecords(ByteReader& in, Json& form, std::initializer_list<const char*> names) {
  for (const char* name : names) {
    if (!in.flag()) continue;
    form[name] = tav::fuzz::makeObject(in, recordKind(name).keys, limits());
  }
}

// Keeps the recorded calls honest: each one is JSON that decodes to an event again.
class CheckingRecorder : public tav::TAVSDKCallRecorder {
 public:
  void record(const Json& call) override {
    const Json line =
        Json::parse(call.dump(-1, ' ', false, Json::error_handler_t::replace), nullptr, false);
    TAV_FUZZ_CHECK(line.is_object());
    const auto event = line.find("event");
    if (event != line.end() && event->is_object()) {
      TAV_FUZZ_CHECK(tav::TAVSDKEventLog::decodeEvent(*event) != nullptr);
    }
  }
};

struct World {
  std::shared_ptr<tav::TAVSDKVirtualClock> clock =
      std::make_shared<tav::TAVSDKVirtualClock>(kStart);
  std::shared_ptr<tav::fuzz::QueuedScheduler> timers =
      std::make_shared<tav::fuzz::QueuedScheduler>();
  std::shared_ptr<tav::fuzz::FakeHttpClient> http = std::make_shared<tav::fuzz::FakeHttpClient>();

  World() {
    tav::TAVSDKClock::setFactory([c = clock] { return c; });
    tav::detail::TransportOverrides overrides;
    overrides.httpClient = http;
    overrides.timerScheduler = timers;
    overrides.errorReportBaseUrl = "http://127.0.0.1:9";  // never reached: the fake answers
    overrides.random = [] { return 12345; };
    tav::detail::setTransportOverrides(std::move(overrides));
  }
};

World& world() {
  static World* w = new World();  // lives for the whole run, like the core state
  return *w;
}

const char* const kNames[] = {"main", "second", "ad", "", "p\xff"};

void checkBounds(const std::set<std::string>& names, std::size_t replays) {
  auto& w = world();
  TAV_FUZZ_CHECK(tav::fuzz::drain(*w.timers, *w.http, kDrainSteps));
  const auto& players = tav::detail::coreState().players;
  TAV_FUZZ_CHECK(players.size() <= names.size() + replays);
  for (const auto& [name, player] : players) {
    (void)name;
    TAV_FUZZ_CHECK(player != nullptr);
    if (const auto& queue = player->eventQueue()) {
      TAV_FUZZ_CHECK(queue->pendingCount() <= tav::TAVSDKEventQueue::kMaxPendingEvents);
    }
  }
}

void playbackEvent(ByteReader& in, const std::string& player) {
  const auto& types = playbackTypes();
  Json form{{"kind", "playback"},
            {"type", types[in.below(static_cast<std::uint32_t>(types.size()))]}};
  addRecords(in, form, {"playerData", "videoData", "viewData", "bandwidthMetricData"});
  if (auto event = tav::TAVSDKEventLog::decodeEvent(form)) {
    tav::TAVSDKCore::dispatchEventForPlayer(event, player);
  }
}

std::shared_ptr<tav::TAVSDKDataEvent> dataEvent(ByteReader& in) {
  Json form{{"kind", "data"}, {"videoChange", in.flag()}};
  addRecords(in, form,
             {"viewerData", "environmentData", "videoData", "customerVideoData",
              "customerPlayerData", "customerViewData", "customData"});
  return std::dynamic_pointer_cast<tav::TAVSDKDataEvent>(tav::TAVSDKEventLog::decodeEvent(form));
}

std::shared_ptr<tav::TAVSDKSessionDataEvent> sessionDataEvent(ByteReader& in) {
  std::vector<std::string> names;
  for (const auto& [name, field] : tav::TAVSDKField::indexMapping())
    names.push_back(name);
  auto event = std::make_shared<tav::TAVSDKSessionDataEvent>();
  event->setSessionData(tav::fuzz::makeObject(in, names, limits()));
  return event;
}

// A facade call description, generated or parsed from raw bytes.
Json callForm(ByteReader& in) {
  if (in.flag()) return Json::parse(in.text(512), nullptr, false);
  static const std::vector<std::string> keys{"call",
                                             "player",
                                             "event",
                                             "kind",
                                             "type",
                                             "enabled",
                                             "domain",
                                             "videoChange",
                                             "dispatchEventForPlayer",
                                             "dispatchGlobalDataEvent",
                                             "createPlayer",
                                             "destroyPlayer",
                                             "playback",
                                             "data",
                                             "sessiondata",
                                             "playerData",
                                             "customerPlayerData",
                                             "viewData"};
  return tav::fuzz::makeObject(in, keys, limits());
}

std::int64_t timeStep(ByteReader& in) {
  static const std::int64_t kSteps[] = {0, 100, 250, 1000, 5001, 10000, 600001, 1500001};
  if (in.below(4) == 0) return static_cast<std::int64_t>(in.number(4));
  return kSteps[in.below(8)];
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tav::fuzz::quietLog();
  auto& w = world();
  ByteReader in(data, size);
  w.clock->set(kStart);
  w.http->failing = false;
  tav::detail::resetCoreStateForTesting();
  if (in.flag()) tav::TAVSDKCore::setCallRecorder(std::make_shared<CheckingRecorder>());

  std::set<std::string> names;
  std::size_t replays = 0;
  for (int call = 0; call < 200 && !in.empty(); ++call) {
    const std::string player = kNames[in.below(5)];
    switch (in.below(12)) {
      case 0:
      case 1:
        w.clock->advance(timeStep(in));
        break;
      case 2:
      case 3:
      case 4:
        names.insert(player);
        playbackEvent(in, player);
        break;
      case 5:
        names.insert(player);
        tav::TAVSDKCore::dispatchEventForPlayer(dataEvent(in), player);
        break;
      case 6:
        tav::TAVSDKCore::dispatchGlobalDataEvent(dataEvent(in));
        break;
      case 7:
        names.insert(player);
        tav::TAVSDKCore::dispatchEventForPlayer(sessionDataEvent(in), player);
        break;
      case 8:
        if (in.flag()) {
          names.insert(player);
          tav::TAVSDKCore::createPlayer(player);
        } else {
          tav::TAVSDKCore::destroyPlayer(player);
        }
        break;
      case 9: {
        names.insert(player);
        const std::string domain = in.text(64);
        if (in.flag()) {
          tav::TAVSDKCore::setBeaconDomainForPlayer(domain, player);
        } else {
          tav::TAVSDKCore::setBeaconCollectionDomainForPlayer(domain, player);
        }
        break;
      }
      case 10:
        ++replays;
        (void)tav::TAVSDKEventLog::replayCall(callForm(in));
        break;
      default:
        if (in.flag()) {
          w.http->failing = !w.http->failing;
        } else {
          tav::TAVSDKCore::setSentryEnabled(in.flag());
        }
        break;
    }
    checkBounds(names, replays);
  }

  const std::size_t players = tav::detail::coreState().players.size();
  // Removing every player flushes its queue; everything handed over must end.
  for (const char* name : kNames)
    tav::TAVSDKCore::destroyPlayer(name);
  checkBounds(names, replays);
  static const bool verbose =
      std::getenv("TAV_FUZZ_VERBOSE") != nullptr;  // NOLINT(concurrency-mt-unsafe)
  if (verbose) {
    std::fprintf(stderr, "players %zu, requests %zu, body bytes %zu\n", players, w.http->requests,
                 w.http->bodyBytes);
  }
  w.http->requests = 0;
  w.http->bodyBytes = 0;
  tav::TAVSDKCore::setCallRecorder(nullptr);
  tav::detail::resetCoreStateForTesting();
  tav::TAVSDKCore::setSentryEnabled(true);
  return 0;
}
