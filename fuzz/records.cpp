// Fuzz target: the data records and session data. A sequence of operations on
// one record of each kind: update / updateIfNull / setQuery / remove /
// removeAll with generated dictionaries (deep nesting, huge strings, invalid
// UTF-8, non-finite numbers, wrong types under typed keys), every typed getter,
// typed setters with arbitrary values, snapshots serialised as a beacon body,
// and session-data events whose long names the field dictionary maps.
//
// Checks: no getter or setter throws; a merge stores exactly what it was given
// (present, with the given type) and removes keys given as null; setQuery with
// a non-object empties; snapshots are objects of the record's size.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "FuzzSupport.h"
#include "data/JsonDepth.h"
#include "tav/data/TAVSDKBandwidthMetricData.h"
#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKEnvironmentData.h"
#include "tav/data/TAVSDKField.h"
#include "tav/data/TAVSDKPlayerData.h"
#include "tav/data/TAVSDKVideoData.h"
#include "tav/data/TAVSDKViewData.h"
#include "tav/data/TAVSDKViewerData.h"
#include "tav/events/TAVSDKBaseEvent.h"
#include "tav/transport/TAVSDKDispatcher.h"

namespace {

using tav::fuzz::ByteReader;
using tav::fuzz::Json;

tav::fuzz::ValueLimits limits() {
  tav::fuzz::ValueLimits l;
  l.maxDeep = 100000;
  l.maxHuge = 1U << 20;
  return l;
}

// Arbitrary values for the typed setters.
template <class T>
T arbitrary(ByteReader& in);
template <>
std::optional<std::string> arbitrary(ByteReader& in) {
  if (in.below(8) == 0) return std::nullopt;
  return in.text(512);
}
template <>
std::optional<std::int32_t> arbitrary(ByteReader& in) {
  if (in.below(8) == 0) return std::nullopt;
  return static_cast<std::int32_t>(in.number(4));
}
template <>
std::optional<std::int64_t> arbitrary(ByteReader& in) {
  if (in.below(8) == 0) return std::nullopt;
  return static_cast<std::int64_t>(in.number(8));
}
template <>
std::optional<double> arbitrary(ByteReader& in) {
  if (in.below(8) == 0) return std::nullopt;
  return in.anyDouble();
}
template <>
std::optional<bool> arbitrary(ByteReader& in) {
  if (in.below(8) == 0) return std::nullopt;
  return in.flag();
}
template <>
std::optional<Json> arbitrary(ByteReader& in) {
  if (in.below(8) == 0) return std::nullopt;
  return tav::fuzz::makeValue(in, {}, limits());
}

template <class R>
struct Fields;

#define TAV_FUZZ_CODE(prop, Prop, KEY, code, Kind) code,
#define TAV_FUZZ_GETTER(prop, Prop, KEY, code, Kind) (void)r.prop();
#define TAV_FUZZ_SETTER(prop, Prop, KEY, code, Kind) \
  [](R& r, ByteReader& in) { r.set##Prop(arbitrary<::tav::field::Kind::Set>(in)); },
#define TAV_FUZZ_FIELDS(Record, LIST)                                                           \
  template <>                                                                                   \
  struct Fields<Record> {                                                                       \
    using R = Record;                                                                           \
    static std::vector<std::string> keys() { return {LIST(TAV_FUZZ_CODE)}; }                    \
    static void getAll(const R& r) { LIST(TAV_FUZZ_GETTER) }                                    \
    static std::vector<void (*)(R&, ByteReader&)> setters() { return {LIST(TAV_FUZZ_SETTER)}; } \
  };

TAV_FUZZ_FIELDS(tav::TAVSDKPlayerData, TAV_PLAYER_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKVideoData, TAV_VIDEO_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKViewData, TAV_VIEW_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKBandwidthMetricData, TAV_BANDWIDTH_METRIC_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKEnvironmentData, TAV_ENVIRONMENT_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKViewerData, TAV_VIEWER_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKCustomerPlayerData, TAV_CUSTOMER_PLAYER_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKCustomerVideoData, TAV_CUSTOMER_VIDEO_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKCustomerViewData, TAV_CUSTOMER_VIEW_DATA_FIELDS)
TAV_FUZZ_FIELDS(tav::TAVSDKCustomData, TAV_CUSTOM_DATA_FIELDS)

// Accessors that the tables do not declare.
void extraGetters(const tav::TAVSDKQueryData& record) {
  if (const auto* view = dynamic_cast<const tav::TAVSDKViewData*>(&record)) {
    (void)view->viewDeviceOrientationData()->toQuery();
  } else if (const auto* bw = dynamic_cast<const tav::TAVSDKBandwidthMetricData*>(&record)) {
    (void)bw->requestRenditionLists();
  } else if (const auto* cp = dynamic_cast<const tav::TAVSDKCustomerPlayerData*>(&record)) {
    (void)cp->environmentKey();
    (void)cp->playerAutoplayOn();
  }
}

struct Slot {
  std::shared_ptr<tav::TAVSDKQueryData> record;
  std::vector<std::string> keys;
  std::function<void()> getAll;
  std::function<void(ByteReader&)> setOne;
};

template <class R>
Slot makeSlot() {
  auto record = std::make_shared<R>();
  auto keys = Fields<R>::keys();
  keys.insert(keys.end(), {"xdvor", "qrfls", "ake", "pauon", "e", "x"});
  return {record, std::move(keys), [record] { Fields<R>::getAll(*record); },
          [record](ByteReader& in) {
            const auto setters = Fields<R>::setters();
            setters[in.below(static_cast<std::uint32_t>(setters.size()))](*record, in);
          }};
}

bool tooDeep(const Json& value) {
  return tav::detail::jsonDeeperThan(value, tav::detail::kMaxJsonDepth);
}

// After a merge: keys given a value hold a value of that type; keys given null
// are gone; values nested too deeply were refused.
void checkMerged(const tav::TAVSDKQueryData& record, const Json& data, bool overwrite) {
  for (const auto& [key, value] : data.items()) {
    if (tooDeep(value)) continue;  // refused: whatever was there stays
    const auto stored = record.get(key);
    if (overwrite && value.is_null()) {
      TAV_FUZZ_CHECK(!stored.has_value());
    } else if (overwrite) {
      TAV_FUZZ_CHECK(stored.has_value() && stored->type() == value.type());
    } else {
      TAV_FUZZ_CHECK(stored.has_value());
    }
  }
}

std::shared_ptr<tav::TAVSDKQueryData> sessionRecord(const tav::TAVSDKSessionDataEvent& event,
                                                    std::int64_t dataType) {
  switch (dataType) {
    case 0:
      return event.viewData();
    case 1:
      return event.videoData();
    case 2:
      return event.customerVideoData();
    case 3:
      return event.customerPlayerData();
    case 4:
      return event.customerViewData();
    default:
      return event.customData();
  }
}

void sessionData(ByteReader& in) {
  std::vector<std::string> names;
  for (const auto& [name, field] : tav::TAVSDKField::indexMapping())
    names.push_back(name);
  const Json data = tav::fuzz::makeObject(in, names, limits());
  tav::TAVSDKSessionDataEvent event;
  event.setSessionData(data);
  for (const auto& [name, value] : data.items()) {
    const auto field = tav::TAVSDKField::searchWithKey(name);
    if (!field) continue;
    const auto record = sessionRecord(event, field->dataType());
    if (value.is_null() || tooDeep(value)) {
      TAV_FUZZ_CHECK(!record || !record->get(field->code()).has_value());
    } else {
      TAV_FUZZ_CHECK(record && record->get(field->code()).has_value());
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  tav::fuzz::quietLog();
  ByteReader in(data, size);
  std::vector<Slot> slots{
      makeSlot<tav::TAVSDKPlayerData>(),         makeSlot<tav::TAVSDKVideoData>(),
      makeSlot<tav::TAVSDKViewData>(),           makeSlot<tav::TAVSDKBandwidthMetricData>(),
      makeSlot<tav::TAVSDKEnvironmentData>(),    makeSlot<tav::TAVSDKViewerData>(),
      makeSlot<tav::TAVSDKCustomerPlayerData>(), makeSlot<tav::TAVSDKCustomerVideoData>(),
      makeSlot<tav::TAVSDKCustomerViewData>(),   makeSlot<tav::TAVSDKCustomData>()};
  const auto dispatcher =
      std::make_shared<tav::TAVSDKDispatcher>(std::make_shared<tav::fuzz::FakeHttpClient>(),
                                              std::make_shared<tav::fuzz::QueuedScheduler>());

  for (int op = 0; op < 64 && !in.empty(); ++op) {
    Slot& slot = slots[in.below(static_cast<std::uint32_t>(slots.size()))];
    auto& record = *slot.record;
    switch (in.below(11)) {
      case 0: {
        const Json d = tav::fuzz::makeObject(in, slot.keys, limits());
        record.update(d);
        checkMerged(record, d, true);
        break;
      }
      case 1: {
        const Json d = tav::fuzz::makeObject(in, slot.keys, limits());
        record.updateIfNull(d);
        checkMerged(record, d, false);
        break;
      }
      case 2: {
        const Json d = in.flag() ? tav::fuzz::makeObject(in, slot.keys, limits())
                                 : tav::fuzz::makeValue(in, slot.keys, limits());
        record.setQuery(d);
        if (d.is_object()) {
          checkMerged(record, d, true);
        } else {
          TAV_FUZZ_CHECK(record.size() == 0);
        }
        break;
      }
      case 3: {
        const std::string key = tav::fuzz::makeKey(in, slot.keys);
        record.remove(key);
        TAV_FUZZ_CHECK(!record.get(key).has_value());
        break;
      }
      case 4:
        record.removeAll(tav::fuzz::makeObject(in, slot.keys, limits()));
        break;
      case 5:
        slot.getAll();
        extraGetters(record);
        break;
      case 6:
        slot.setOne(in);
        slot.getAll();
        break;
      case 7: {
        const Json query = record.toQuery();
        TAV_FUZZ_CHECK(query.is_object() && query.size() == record.size());
        break;
      }
      case 8: {
        // The snapshot as a beacon body: serialised, or refused with a reason.
        const Json batch{{"events", Json::array({record.toQuery()})}};
        tav::TAVSDKJsonError error;
        const auto request =
            dispatcher->buildRequestFromURLEventsJsonDictError("https://h", batch, &error);
        TAV_FUZZ_CHECK(request.has_value() || !error.description.empty());
        break;
      }
      case 9:
        sessionData(in);
        break;
      default:
        (void)record.get(tav::fuzz::makeKey(in, slot.keys));
        break;
    }
  }
  return 0;
}
