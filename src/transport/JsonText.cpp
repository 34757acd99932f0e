#include "transport/JsonText.h"

#include <cmath>
#include <utility>
#include <vector>

namespace tav::detail {
namespace {

constexpr const char* kJsonErrorDomain = "tav.json";
constexpr std::int64_t kNonFiniteNumberCode = 1;
constexpr std::int64_t kTooDeepCode = 3;

struct Scan {
  bool tooDeep = false;
  bool nonFinite = false;
};

// One iterative walk for both checks; stops at the first level beyond `limit`.
Scan scan(const nlohmann::json& value, std::size_t limit) {
  Scan found;
  std::vector<std::pair<const nlohmann::json*, std::size_t>> pending{{&value, 0}};
  while (!pending.empty()) {
    const auto [node, depth] = pending.back();
    pending.pop_back();
    if (node->is_number_float()) {
      found.nonFinite =
          found.nonFinite || !std::isfinite(node->get_ref<const nlohmann::json::number_float_t&>());
      continue;
    }
    if (!node->is_structured()) continue;
    if (depth + 1 > limit) {
      found.tooDeep = true;
      return found;
    }
    for (const auto& child : *node) {
      if (child.is_structured() || child.is_number_float()) pending.emplace_back(&child, depth + 1);
    }
  }
  return found;
}

// Checks `value` as a part `level` levels below the top of a JSON text.
bool checked(const nlohmann::json& value, std::size_t level, TAVSDKJsonError* error) {
  const Scan found = scan(value, kMaxBatchJsonDepth - level);
  if (found.tooDeep) {
    if (error != nullptr) *error = tooDeepError();
    return false;
  }
  if (found.nonFinite) {
    if (error != nullptr) {
      *error = {kJsonErrorDomain, kNonFiniteNumberCode, "non-finite number in JSON text"};
    }
    return false;
  }
  return true;
}

// Appends `"key": value` as a member of a top-level object (indent 2).
bool appendMember(std::string& out, const std::string& key, const nlohmann::json& value,
                  TAVSDKJsonError* error) {
  if (!checked(value, 1, error)) return false;
  try {
    nlohmann::detail::serializer<nlohmann::json> writer(
        nlohmann::detail::output_adapter<char>(out), ' ', nlohmann::json::error_handler_t::strict);
    out += "  ";
    writer.dump(nlohmann::json(key), false, false, 0);
    out += ": ";
    writer.dump(value, true, false, 2, 2);
    return true;
  } catch (const nlohmann::json::exception& e) {
    if (error != nullptr) *error = {kJsonErrorDomain, e.id, e.what()};
    return false;
  }
}

}  // namespace

std::optional<ObjectText> toObjectTextAround(const nlohmann::json& object, const std::string& key,
                                             TAVSDKJsonError* error) {
  if (!object.is_object()) {
    if (error != nullptr) *error = {kJsonErrorDomain, 2, "batch is not a JSON object"};
    return std::nullopt;
  }
  ObjectText text{"{\n", ""};
  for (const auto& [name, value] : object.get_ref<const nlohmann::json::object_t&>()) {
    if (name == key) continue;
    // Members are in key order: the skipped member's place splits them.
    if (name < key) {
      if (!appendMember(text.before, name, value, error)) return std::nullopt;
      text.before += ",\n";
    } else {
      text.after += ",\n";
      if (!appendMember(text.after, name, value, error)) return std::nullopt;
    }
  }
  text.after += "\n}";
  return text;
}

std::optional<std::string> memberText(const std::string& key, const nlohmann::json& value,
                                      TAVSDKJsonError* error) {
  std::string out;
  if (!appendMember(out, key, value, error)) return std::nullopt;
  return out;
}

TAVSDKJsonError tooDeepError() {
  return {kJsonErrorDomain, kTooDeepCode, "JSON nested too deeply"};
}

std::optional<std::string> toJsonText(const nlohmann::json& value, int indent,
                                      TAVSDKJsonError* error) {
  const Scan found = scan(value, kMaxBatchJsonDepth);
  if (found.tooDeep) {
    if (error != nullptr) *error = tooDeepError();
    return std::nullopt;
  }
  if (found.nonFinite) {
    if (error != nullptr) {
      *error = {kJsonErrorDomain, kNonFiniteNumberCode, "non-finite number in JSON text"};
    }
    return std::nullopt;
  }
  try {
    return value.dump(indent, ' ', false, nlohmann::json::error_handler_t::strict);
  } catch (const nlohmann::json::exception& e) {
    if (error != nullptr) *error = {kJsonErrorDomain, e.id, e.what()};
    return std::nullopt;
  }
}

}  // namespace tav::detail
