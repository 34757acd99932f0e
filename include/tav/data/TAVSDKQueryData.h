#pragma once
// The base of every beacon data record: a dictionary from short beacon key to
// value (a JSON object), with overwrite and fill-gaps merges.
//
// Values: numbers of typed properties are stored as their decimal text; a few
// fields hold nested objects, lists or numbers as given. JSON null is the null
// marker: `update` and `setQuery` remove a key whose incoming value is null,
// `updateIfNull` copies it as it is. A value with arrays and objects nested more
// than 128 levels deep is not stored by any of the three (it is logged).
//
// Ownership: records are shared by std::shared_ptr and mutated in place; only
// `toQuery` takes an independent snapshot.
//
// Thread rules: every mutation holds the record's recursive lock exclusively
// for its whole duration; `get` and `toQuery` take it shared, so they never
// block one another and never see a half-applied mutation.

#include <array>
#include <iterator>
#include <memory>
#include <mutex>
#include <optional>
#include <shared_mutex>
#include <span>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "tav/data/RecordLock.h"

namespace tav {

using Json = nlohmann::json;

class TAVSDKQueryData {
 public:
  TAVSDKQueryData() = default;
  virtual ~TAVSDKQueryData() = default;
  TAVSDKQueryData(const TAVSDKQueryData&) = delete;
  TAVSDKQueryData& operator=(const TAVSDKQueryData&) = delete;

  /// Stores every pair of `data`, overwriting; a null value removes its key.
  /// A `data` that is not an object (absent) changes nothing.
  void update(const Json& data);
  /// The same, taking the values of `data` over instead of copying them.
  void update(Json&& data);
  /// `update(other.toQuery())` without the snapshot: copies other's pairs while
  /// holding this record's lock and other's reader lock. Two records must not
  /// be merged into each other from two threads at once.
  void updateFrom(const TAVSDKQueryData& other);
  /// Stores one value under `key`, as `update` would; a null value removes the key.
  void set(std::string_view key, Json value);
  /// `set` for a text value; reuses the stored text's buffer when there is one.
  void setText(std::string_view key, std::string_view text);
  /// Stores each pair of `data` whose key has no value yet (null values included).
  void updateIfNull(const Json& data);
  /// Removes one key.
  void remove(std::string_view key);
  /// Removes every key that occurs in `data`; its values are ignored.
  void removeAll(const Json& data);
  /// The value stored under `key`, or nullopt when none.
  [[nodiscard]] std::optional<Json> get(std::string_view key) const;
  /// An independent snapshot of the whole dictionary (always a JSON object).
  [[nodiscard]] Json toQuery() const;
  /// Replaces the whole content with `data` as `update` stores it; a `data` that
  /// is not an object empties the record.
  void setQuery(const Json& data);
  /// The same, taking the values of `data` over.
  void setQuery(Json&& data);
  /// Calls `drop(key, value)` for every pair, in key order, while holding the
  /// record's lock, and removes the pairs for which it answers true. `drop` must
  /// not touch this record.
  template <class Predicate>
  void removeIf(Predicate&& drop) {
    const std::lock_guard lock(_lock);
    auto& object = _query.get_ref<Json::object_t&>();
    for (auto it = object.begin(); it != object.end();) {
      it = drop(it->first, it->second) ? object.erase(it) : std::next(it);
    }
  }
  /// Replaces the content with what `updateFrom` of each of `sources` in turn
  /// would leave, less the pairs for which `drop(key, value)` answers true.
  /// One pass over the merged pairs in key order; only kept pairs are copied.
  /// At most 15 sources; null sources and this record itself are skipped.
  /// `drop` must not touch any of the records.
  template <class Predicate>
  void mergeFromExcept(std::span<const TAVSDKQueryData* const> sources, Predicate&& drop) {
    using Object = Json::object_t;
    constexpr std::size_t kMaxRuns = 16;  // this record and 15 sources
    const std::lock_guard lock(_lock);
    std::array<std::shared_lock<RecordLock>, kMaxRuns> held;
    std::array<Object::const_iterator, kMaxRuns> head{};
    std::array<Object::const_iterator, kMaxRuns> end{};
    const auto& own = _query.get_ref<const Object&>();
    head[0] = own.begin();
    end[0] = own.end();
    std::size_t runs = 1;
    for (const TAVSDKQueryData* source : sources) {
      if (source == nullptr || source == this || runs == kMaxRuns) continue;
      held[runs] = std::shared_lock(source->_lock);
      const auto& object = source->_query.get_ref<const Object&>();
      head[runs] = object.begin();
      end[runs] = object.end();
      ++runs;
    }
    Object kept;
    std::array<std::size_t, kMaxRuns> tied{};
    for (;;) {
      // The smallest key among the runs' heads; of equal keys the last run wins.
      std::size_t best = kMaxRuns;
      std::size_t ties = 0;
      for (std::size_t i = 0; i < runs; ++i) {
        if (head[i] == end[i]) continue;
        const int order = best == kMaxRuns ? -1 : compareKeys(head[i]->first, head[best]->first);
        if (order < 0) ties = 0;
        if (order <= 0) {
          best = i;
          tied[ties++] = i;
        }
      }
      if (best == kMaxRuns) break;
      const auto& [key, value] = *head[best];
      // A source's null marker removes the key; this record's own null stays.
      if ((best == 0 || !value.is_null()) && !drop(key, value)) {
        kept.emplace_hint(kept.end(), key, value);
      }
      for (std::size_t t = 0; t < ties; ++t)
        ++head[tied[t]];
    }
    _query.get_ref<Object&>().swap(kept);
  }
  /// Calls `reader(value)` with a pointer to the value stored under `key`
  /// (nullptr when none) under the reader lock, and returns what it returns.
  /// Reads without copying the value.
  template <class Reader>
  decltype(auto) read(std::string_view key, Reader&& reader) const {
    const std::shared_lock lock(_lock);
    const auto it = _query.find(key);
    return reader(it == _query.end() ? static_cast<const Json*>(nullptr) : &*it);
  }
  /// Number of keys held.
  [[nodiscard]] std::size_t size() const;

  /// The record's recursive lock, for callers that need several mutations to
  /// happen as one step (readers of other threads wait for the whole step).
  [[nodiscard]] RecordLock& recordLock() const { return _lock; }

 private:
  // Key order of the dictionary (bytewise), deciding most pairs by the first byte.
  static int compareKeys(const std::string& a, const std::string& b) {
    if (!a.empty() && !b.empty() && a[0] != b[0]) {
      return static_cast<unsigned char>(a[0]) < static_cast<unsigned char>(b[0]) ? -1 : 1;
    }
    return a.compare(b);
  }
  void storeLocked(const Json& data);
  void storeLocked(Json&& data);

  mutable RecordLock _lock;
  Json _query = Json::object();
};

/// The class-level upsert shared by the records that session data addresses:
/// with an existing record, merge `data` into it (`update`) and return it;
/// otherwise make a new record holding exactly `data` (`setQuery`).
template <class Record>
struct TAVSDKUpsertable {
  static std::shared_ptr<Record> upsertWithData(const std::shared_ptr<Record>& existing,
                                                const Json& data) {
    if (existing) {
      existing->update(data);
      return existing;
    }
    auto created = std::make_shared<Record>();
    created->setQuery(data);
    return created;
  }
};

}  // namespace tav
