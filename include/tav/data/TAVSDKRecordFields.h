#pragma once
// Typed accessors over one short key of a TAVSDKQueryData record. Each record
// declares its fields once as a table (an X-macro list of
// `X(property, Property, KEY_CONSTANT, "key", Kind)`), which yields the exported
// key constants and a getter/setter pair per row through the macros below.
//
// Kinds:
//   Text     stored as given; getter answers the text (a stored non-text value
//            answers its compact JSON text with invalid UTF-8 replaced by
//            U+FFFD, a stored null answers nullopt)
//   Int32, Int64, Double, Bool
//            stored as decimal text ("1"/"0" for booleans, the shortest
//            round-trip form for doubles, "inf"/"-inf"/"nan" for non-finite);
//            getter parses the leading number (0 when the text has none),
//            nullopt when nothing is stored
//   Word     a 64-bit integer read back as a machine-word integer
//   TruncDouble
//            stored like Double; getter truncates toward zero to an integer
//   AsGiven  stored as given, no conversion; nullopt removes the key through
//            the null marker

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "tav/data/TAVSDKQueryData.h"

namespace tav::field {

struct Text {
  using Value = std::optional<std::string>;
  using Set = Value;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct Int32 {
  using Value = std::optional<std::int32_t>;
  using Set = Value;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct Int64 {
  using Value = std::optional<std::int64_t>;
  using Set = Value;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct Word {
  using Value = std::optional<std::intptr_t>;
  using Set = std::optional<std::int64_t>;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct Double {
  using Value = std::optional<double>;
  using Set = Value;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct TruncDouble {
  using Value = std::optional<std::int64_t>;
  using Set = std::optional<double>;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct Bool {
  using Value = std::optional<bool>;
  using Set = Value;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

struct AsGiven {
  using Value = std::optional<Json>;
  using Set = Value;
  static Value get(const TAVSDKQueryData& record, std::string_view key);
  static void set(TAVSDKQueryData& record, std::string_view key, const Set& value);
};

/// Decimal text of numbers as the number properties store them.
std::string numberText(std::int64_t value);
std::string numberText(double value);
/// The getters' parsing rules, exposed for the records with hand-written accessors.
std::int32_t parseInt32(const Json& stored);
std::int64_t parseInt64(const Json& stored);
double parseDouble(const Json& stored);
bool parseBool(const Json& stored);

}  // namespace tav::field

/// Declares `inline constexpr char KEY[] = "key";` for one table row.
#define TAV_FIELD_KEY(prop, Prop, KEY, code, Kind) inline constexpr char KEY[] = code;

/// Declares the getter and setter of one table row inside a record class.
#define TAV_FIELD_ACCESSORS(prop, Prop, KEY, code, Kind) \
  [[nodiscard]] ::tav::field::Kind::Value prop() const { \
    return ::tav::field::Kind::get(*this, KEY);          \
  }                                                      \
  void set##Prop(const ::tav::field::Kind::Set& value) { \
    ::tav::field::Kind::set(*this, KEY, value);          \
  }
