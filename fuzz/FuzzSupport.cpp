#include "FuzzSupport.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "tav/platform/TAVSDKLog.h"

namespace tav::fuzz {

void quietLog() {
  static const bool once = [] {
    // NOLINTNEXTLINE(concurrency-mt-unsafe): read once, before any thread of the target
    if (std::getenv("TAV_FUZZ_LOG") == nullptr) TAVSDKLog::setHandler([](std::string_view) {});
    return true;
  }();
  (void)once;
}

std::uint32_t ByteReader::below(std::uint32_t n) {
  if (n <= 1) return 0;
  const std::uint32_t raw = n <= 256 ? byte() : static_cast<std::uint32_t>(number(2));
  return raw % n;
}

std::uint64_t ByteReader::number(unsigned bytes) {
  std::uint64_t value = 0;
  for (unsigned i = 0; i < bytes && i < 8; ++i)
    value |= static_cast<std::uint64_t>(byte()) << (8U * i);
  return value;
}

double ByteReader::anyDouble() {
  const std::uint64_t bits = number(8);
  double value = 0.0;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

std::string ByteReader::text(std::size_t max) {
  std::size_t length = byte();
  if (length == 255) length = static_cast<std::size_t>(number(2));
  length = std::min({length, max, _size - std::min(_pos, _size)});
  std::string out(reinterpret_cast<const char*>(_data + _pos), length);
  _pos += length;
  return out;
}

std::string_view ByteReader::rest() {
  if (empty()) return {};
  std::string_view out(reinterpret_cast<const char*>(_data + _pos), _size - _pos);
  _pos = _size;
  return out;
}

std::string makeKey(ByteReader& in, const std::vector<std::string>& keys) {
  if (!keys.empty() && in.below(4) != 0)
    return keys[in.below(static_cast<std::uint32_t>(keys.size()))];
  return in.text(64);
}

namespace {

// Text that the typed getters parse: integers, decimals, words, blanks, signs.
std::string numericText(ByteReader& in) {
  static const char* const kShapes[] = {"0",
                                        "1",
                                        "-1",
                                        "  42",
                                        "+7",
                                        "1e308",
                                        "1e999",
                                        "-1e-999",
                                        "nan",
                                        "inf",
                                        "-inf",
                                        "0x1F",
                                        "true",
                                        "false",
                                        "yes",
                                        "",
                                        " ",
                                        "12abc",
                                        "3.75",
                                        "-0",
                                        "9223372036854775808",
                                        "-9223372036854775809"};
  switch (in.below(3)) {
    case 0:
      return kShapes[in.below(sizeof kShapes / sizeof kShapes[0])];
    case 1:
      return std::to_string(static_cast<std::int64_t>(in.number(8)));
    default:
      return std::to_string(in.anyDouble());
  }
}

// A value `levels` arrays or objects deep, built without recursion.
Json deepValue(ByteReader& in, std::uint32_t levels) {
  const bool objects = in.flag();
  Json value = in.flag() ? Json("leaf") : Json(in.anyDouble());
  for (std::uint32_t i = 0; i < levels; ++i) {
    Json outer = objects ? Json::object() : Json::array();
    if (objects) {
      outer["d"] = std::move(value);
    } else {
      outer.push_back(std::move(value));
    }
    value = std::move(outer);
  }
  return value;
}

}  // namespace

Json makeValue(ByteReader& in, const std::vector<std::string>& keys, const ValueLimits& limits,
               int depth) {
  switch (in.below(14)) {
    case 0:
      return nullptr;
    case 1:
      return in.flag();
    case 2:
      return static_cast<std::int64_t>(in.number(8));
    case 3:
      return in.number(8);
    case 4:
      return in.anyDouble();
    case 5: {  // non-finite on purpose
      static const double kOdd[] = {std::numeric_limits<double>::quiet_NaN(),
                                    std::numeric_limits<double>::infinity(),
                                    -std::numeric_limits<double>::infinity(),
                                    std::numeric_limits<double>::denorm_min(), -0.0};
      return kOdd[in.below(5)];
    }
    case 6:
    case 7:
      return numericText(in);
    case 8:
      return in.text(256);  // raw bytes: often invalid UTF-8
    case 9: {
      const auto length = static_cast<std::size_t>(in.number(4) % (limits.maxHuge + 1U));
      return std::string(length, static_cast<char>(in.byte()));
    }
    case 10:
      return deepValue(in, static_cast<std::uint32_t>(in.number(4) % (limits.maxDeep + 1U)));
    case 11: {
      if (depth >= limits.maxDepth) return nullptr;
      Json array = Json::array();
      const std::uint32_t n = in.below(limits.maxItems + 1);
      for (std::uint32_t i = 0; i < n && !in.empty(); ++i)
        array.push_back(makeValue(in, keys, limits, depth + 1));
      return array;
    }
    default:
      if (depth >= limits.maxDepth) return Json::object();
      return makeObject(in, keys, limits, depth + 1);
  }
}

Json makeObject(ByteReader& in, const std::vector<std::string>& keys, const ValueLimits& limits,
                int depth) {
  Json object = Json::object();
  const std::uint32_t n = in.below(limits.maxItems + 1);
  for (std::uint32_t i = 0; i < n && !in.empty(); ++i) {
    std::string key = makeKey(in, keys);
    object[std::move(key)] = makeValue(in, keys, limits, depth);
  }
  return object;
}

void QueuedScheduler::schedule(std::chrono::milliseconds /*delay*/, Callback callback) {
  _timers.push_back(std::move(callback));
}

std::size_t QueuedScheduler::runQueued(std::size_t limit) {
  std::size_t ran = 0;
  while (!_timers.empty() && ran < limit) {
    auto callback = std::move(_timers.front());
    _timers.pop_front();
    if (callback) callback();
    ++ran;
  }
  return ran;
}

void FakeHttpClient::send(TAVSDKHttpRequest request, Completion completion) {
  ++requests;
  bodyBytes += request.body.size();
  // Whatever went in, what goes out is a JSON object; a batch carries its metadata.
  const Json body = Json::parse(request.body, nullptr, false);
  TAV_FUZZ_CHECK(body.is_object());
  const bool batch = std::any_of(request.headers.begin(), request.headers.end(),
                                 [](const auto& h) { return h.first == "Accept-Encoding"; });
  if (batch) {
    TAV_FUZZ_CHECK(body.contains("metadata") && body["metadata"].is_object());
    TAV_FUZZ_CHECK(body["metadata"].contains("transmission_timestamp"));
  }
  _open.push_back(std::move(completion));
}

std::size_t FakeHttpClient::completeQueued(std::size_t limit) {
  std::size_t done = 0;
  while (!_open.empty() && done < limit) {
    auto completion = std::move(_open.front());
    _open.pop_front();
    TAVSDKHttpResult result;
    if (failing) {
      result.error = "Couldn't connect to server";
    } else {
      result.status = 200;
    }
    if (completion) completion(std::move(result));
    ++done;
  }
  return done;
}

bool drain(QueuedScheduler& timers, FakeHttpClient& http, std::size_t limit) {
  std::size_t steps = 0;
  while ((timers.pending() > 0 || http.pending() > 0) && steps < limit) {
    steps += timers.runQueued(limit - steps);
    steps += http.completeQueued(limit - std::min(steps, limit));
  }
  return timers.pending() == 0 && http.pending() == 0;
}

}  // namespace tav::fuzz
