#include "tav/data/TAVSDKQueryData.h"

#include "data/JsonDepth.h"
#include "tav/platform/TAVSDKLog.h"

namespace tav {
namespace {

// Values nested too deeply are not stored (see JsonDepth.h).
bool refused(const std::string& key, const Json& value) {
  if (!detail::jsonDeeperThan(value, detail::kMaxJsonDepth)) return false;
  TAVSDKLog::error("TAVSDK-ERROR - value under \"" + key + "\" is nested too deeply; ignored");
  return true;
}

}  // namespace

void TAVSDKQueryData::storeLocked(const Json& data) {
  for (const auto& [key, value] : data.items()) {
    if (refused(key, value)) continue;
    if (value.is_null()) {
      _query.erase(key);
    } else {
      _query[key] = value;
    }
  }
}

void TAVSDKQueryData::storeLocked(Json&& data) {
  auto& object = _query.get_ref<Json::object_t&>();
  for (auto& [key, value] : data.get_ref<Json::object_t&>()) {
    if (refused(key, value)) continue;
    if (value.is_null()) {
      object.erase(key);
    } else {
      object.insert_or_assign(key, std::move(value));
    }
  }
}

void TAVSDKQueryData::update(Json&& data) {
  if (!data.is_object() || data.empty()) return;
  const std::lock_guard lock(_lock);
  storeLocked(std::move(data));
}

void TAVSDKQueryData::updateFrom(const TAVSDKQueryData& other) {
  if (&other == this) return;
  const std::lock_guard lock(_lock);
  const std::shared_lock read(other._lock);
  // Stored values were accepted when they were stored; only the null marker
  // (which updateIfNull can store) needs care.
  auto& object = _query.get_ref<Json::object_t&>();
  const auto& source = other._query.get_ref<const Json::object_t&>();
  if (object.empty()) {
    // A whole-tree copy is cheaper than inserting pair by pair.
    object = source;
    std::erase_if(object, [](const auto& pair) { return pair.second.is_null(); });
    return;
  }
  for (const auto& [key, value] : source) {
    if (value.is_null()) {
      object.erase(key);
      continue;
    }
    const auto it = object.lower_bound(key);
    if (it == object.end() || it->first != key) {
      object.emplace_hint(it, key, value);
    } else if (it->second.is_string() && value.is_string()) {
      // Text over text reuses the stored string's buffer.
      it->second.get_ref<std::string&>() = value.get_ref<const std::string&>();
    } else {
      it->second = value;
    }
  }
}

void TAVSDKQueryData::setText(std::string_view key, std::string_view text) {
  const std::lock_guard lock(_lock);
  auto& object = _query.get_ref<Json::object_t&>();
  const auto it = object.lower_bound(key);
  if (it == object.end() || it->first != key) {
    object.emplace_hint(it, std::string(key), Json(text));
  } else if (it->second.is_string()) {
    it->second.get_ref<std::string&>().assign(text);
  } else {
    it->second = Json(text);
  }
}

void TAVSDKQueryData::set(std::string_view key, Json value) {
  if (value.is_structured() && refused(std::string(key), value)) return;
  const std::lock_guard lock(_lock);
  auto& object = _query.get_ref<Json::object_t&>();
  if (value.is_null()) {
    if (const auto it = object.find(key); it != object.end()) object.erase(it);
  } else {
    object.insert_or_assign(std::string(key), std::move(value));
  }
}

void TAVSDKQueryData::update(const Json& data) {
  if (!data.is_object() || data.empty()) return;
  const std::lock_guard lock(_lock);
  storeLocked(data);
}

void TAVSDKQueryData::updateIfNull(const Json& data) {
  if (!data.is_object() || data.empty()) return;
  const std::lock_guard lock(_lock);
  for (const auto& [key, value] : data.items()) {
    if (refused(key, value)) continue;
    _query.emplace(key, value);  // emplace keeps an existing value
  }
}

void TAVSDKQueryData::remove(std::string_view key) {
  const std::lock_guard lock(_lock);
  const auto it = _query.find(key);
  if (it != _query.end()) _query.erase(it);
}

void TAVSDKQueryData::removeAll(const Json& data) {
  if (!data.is_object() || data.empty()) return;
  const std::lock_guard lock(_lock);
  for (const auto& [key, value] : data.items()) {
    (void)value;
    _query.erase(key);
  }
}

std::optional<Json> TAVSDKQueryData::get(std::string_view key) const {
  const std::shared_lock read(_lock);
  const auto it = _query.find(key);
  if (it == _query.end()) return std::nullopt;
  return *it;
}

Json TAVSDKQueryData::toQuery() const {
  const std::shared_lock read(_lock);
  return _query;
}

void TAVSDKQueryData::setQuery(const Json& data) {
  const std::lock_guard lock(_lock);
  _query = Json::object();
  if (data.is_object()) storeLocked(data);
}

void TAVSDKQueryData::setQuery(Json&& data) {
  const std::lock_guard lock(_lock);
  _query = Json::object();
  if (data.is_object()) storeLocked(std::move(data));
}

std::size_t TAVSDKQueryData::size() const {
  const std::shared_lock read(_lock);
  return _query.size();
}

}  // namespace tav
