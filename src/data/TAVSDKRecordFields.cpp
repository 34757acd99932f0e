#include "tav/data/TAVSDKRecordFields.h"

#include <array>
#include <charconv>
#include <cmath>
#include <limits>
#include <string_view>

#include "data/JsonDepth.h"
#include "tav/platform/TAVSDKLog.h"

namespace tav::field {
namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r' || c == '\f' || c == '\v';
}

std::string_view skipBlanks(std::string_view text) {
  std::size_t i = 0;
  while (i < text.size() && isBlank(text[i]))
    ++i;
  return text.substr(i);
}

// Leading decimal integer with optional sign; saturates on overflow; 0 when none.
std::int64_t leadingInteger(std::string_view text) {
  text = skipBlanks(text);
  bool negative = false;
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) {
    negative = text[0] == '-';
    text.remove_prefix(1);
  }
  // Accumulate as a negative number so that INT64_MIN is representable.
  std::int64_t value = 0;
  constexpr std::int64_t kMin = std::numeric_limits<std::int64_t>::min();
  for (char c : text) {
    if (c < '0' || c > '9') break;
    const int digit = c - '0';
    if (value < (kMin + digit) / 10) {
      return negative ? kMin : std::numeric_limits<std::int64_t>::max();
    }
    value = value * 10 - digit;
  }
  if (negative) return value;
  return value == kMin ? std::numeric_limits<std::int64_t>::max() : -value;
}

// Leading decimal floating-point number (locale independent); 0 when none.
double leadingDouble(std::string_view text) {
  text = skipBlanks(text);
  bool negative = false;
  if (!text.empty() && text[0] == '+') {
    text.remove_prefix(1);
  } else if (!text.empty() && text[0] == '-') {
    negative = true;
    text.remove_prefix(1);
  }
  if (text.empty() || text[0] == '-' || text[0] == '+') return 0.0;
  double value = 0.0;
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec == std::errc::result_out_of_range) {
    // Overflow goes to infinity, underflow to zero.
    const std::string_view parsed(text.data(), static_cast<std::size_t>(end - text.data()));
    const auto e = parsed.find_first_of("eE");
    const bool tiny = e != std::string_view::npos && e + 1 < parsed.size() && parsed[e + 1] == '-';
    value = tiny ? 0.0 : std::numeric_limits<double>::infinity();
  } else if (ec != std::errc()) {
    return 0.0;
  }
  return negative ? -value : value;
}

template <class Int>
Int clampTo(std::int64_t v) {
  if (v < std::numeric_limits<Int>::min()) return std::numeric_limits<Int>::min();
  if (v > std::numeric_limits<Int>::max()) return std::numeric_limits<Int>::max();
  return static_cast<Int>(v);
}

std::int64_t truncToInt64(double d) {
  if (std::isnan(d)) return 0;
  constexpr auto kMax = static_cast<double>(std::numeric_limits<std::int64_t>::max());
  constexpr auto kMin = static_cast<double>(std::numeric_limits<std::int64_t>::min());
  if (d >= kMax) return std::numeric_limits<std::int64_t>::max();
  if (d <= kMin) return std::numeric_limits<std::int64_t>::min();
  return static_cast<std::int64_t>(d);
}

std::int64_t storedToInt64(const Json& v) {
  switch (v.type()) {
    case Json::value_t::string:
      return leadingInteger(v.get_ref<const std::string&>());
    case Json::value_t::number_integer:
      return v.get<std::int64_t>();
    case Json::value_t::number_unsigned: {
      const auto u = v.get<std::uint64_t>();
      return u > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())
                 ? std::numeric_limits<std::int64_t>::max()
                 : static_cast<std::int64_t>(u);
    }
    case Json::value_t::number_float:
      return truncToInt64(v.get<double>());
    case Json::value_t::boolean:
      return v.get<bool>() ? 1 : 0;
    default:
      return 0;
  }
}

bool boolFromText(std::string_view text) {
  text = skipBlanks(text);
  if (!text.empty() && (text[0] == '+' || text[0] == '-')) text.remove_prefix(1);
  while (!text.empty() && text[0] == '0')
    text.remove_prefix(1);
  if (text.empty()) return false;
  const char c = text[0];
  return c == 'Y' || c == 'y' || c == 'T' || c == 't' || (c >= '1' && c <= '9');
}

// Parses the value stored under `key` in place (no copy of it); nullopt when
// nothing, or the null marker, is stored.
template <class Parse>
auto parseStored(const TAVSDKQueryData& record, std::string_view key, Parse parse)
    -> std::optional<decltype(parse(std::declval<const Json&>()))> {
  return record.read(
      key, [&parse](const Json* v) -> std::optional<decltype(parse(std::declval<const Json&>()))> {
        if (v == nullptr || v->is_null()) return std::nullopt;
        return parse(*v);
      });
}

template <class T>
void setNumber(TAVSDKQueryData& record, std::string_view key, const std::optional<T>& value) {
  if (!value) {
    record.remove(key);
    return;
  }
  if constexpr (std::is_same_v<T, bool>) {
    record.setText(key, *value ? "1" : "0");
  } else if constexpr (std::is_integral_v<T>) {
    std::array<char, 24> buf{};  // no allocation: 20 digits and a sign at most
    const auto [end, ec] = std::to_chars(buf.data(), buf.data() + buf.size(), *value);
    record.setText(key, std::string_view(buf.data(), static_cast<std::size_t>(end - buf.data())));
  } else {
    record.setText(key, numberText(*value));
  }
}

}  // namespace

std::string numberText(std::int64_t value) {
  return std::to_string(value);
}

std::string numberText(double value) {
  if (std::isnan(value)) return "nan";
  if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
  std::array<char, 32> buf{};
  const auto [end, ec] = std::to_chars(buf.data(), buf.data() + buf.size(), value);
  if (ec != std::errc()) return "0";
  return {buf.data(), end};
}

std::int32_t parseInt32(const Json& v) {
  return clampTo<std::int32_t>(storedToInt64(v));
}
std::int64_t parseInt64(const Json& v) {
  return storedToInt64(v);
}

double parseDouble(const Json& v) {
  switch (v.type()) {
    case Json::value_t::string:
      return leadingDouble(v.get_ref<const std::string&>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
      return v.get<double>();
    case Json::value_t::boolean:
      return v.get<bool>() ? 1.0 : 0.0;
    default:
      return 0.0;
  }
}

bool parseBool(const Json& v) {
  switch (v.type()) {
    case Json::value_t::string:
      return boolFromText(v.get_ref<const std::string&>());
    case Json::value_t::boolean:
      return v.get<bool>();
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float:
      return v.get<double>() != 0.0;
    default:
      return false;
  }
}

Text::Value Text::get(const TAVSDKQueryData& record, std::string_view key) {
  return parseStored(record, key, [](const Json& v) {
    // Invalid UTF-8 replaced instead of thrown: any value may be stored here.
    return v.is_string() ? v.get_ref<const std::string&>()
                         : v.dump(-1, ' ', false, Json::error_handler_t::replace);
  });
}

void Text::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  if (!value) {
    record.remove(key);
    return;
  }
  record.setText(key, *value);
}

Int32::Value Int32::get(const TAVSDKQueryData& record, std::string_view key) {
  return parseStored(record, key, [](const Json& v) { return parseInt32(v); });
}
void Int32::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  setNumber<std::int64_t>(record, key, value ? std::optional<std::int64_t>(*value) : std::nullopt);
}

Int64::Value Int64::get(const TAVSDKQueryData& record, std::string_view key) {
  return parseStored(record, key, [](const Json& v) { return parseInt64(v); });
}
void Int64::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  setNumber(record, key, value);
}

Word::Value Word::get(const TAVSDKQueryData& record, std::string_view key) {
  // Parsed as 64 bits and narrowed to the machine word, as the record keeps it.
  return parseStored(record, key,
                     [](const Json& v) { return static_cast<std::intptr_t>(parseInt64(v)); });
}
void Word::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  setNumber(record, key, value);
}

Double::Value Double::get(const TAVSDKQueryData& record, std::string_view key) {
  return parseStored(record, key, [](const Json& v) { return parseDouble(v); });
}
void Double::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  setNumber(record, key, value);
}

TruncDouble::Value TruncDouble::get(const TAVSDKQueryData& record, std::string_view key) {
  return parseStored(record, key, [](const Json& v) { return truncToInt64(parseDouble(v)); });
}
void TruncDouble::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  setNumber(record, key, value);
}

Bool::Value Bool::get(const TAVSDKQueryData& record, std::string_view key) {
  return parseStored(record, key, [](const Json& v) { return parseBool(v); });
}
void Bool::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  setNumber(record, key, value);
}

AsGiven::Value AsGiven::get(const TAVSDKQueryData& record, std::string_view key) {
  return record.get(key);
}
void AsGiven::set(TAVSDKQueryData& record, std::string_view key, const Set& value) {
  // Refused before the copy below, which recurses once per level (see JsonDepth.h).
  if (value && detail::jsonDeeperThan(*value, detail::kMaxJsonDepth)) {
    TAVSDKLog::error(std::string("TAVSDK-ERROR - value for \"") + std::string(key) +
                     "\" is nested too deeply; ignored");
    return;
  }
  // Absent values go through the null marker (update removes the key).
  record.update(Json{{std::string(key), value ? *value : Json(nullptr)}});
}

}  // namespace tav::field
