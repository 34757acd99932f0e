#include "transport/JsonText.h"

#include <cmath>

namespace tav::detail {
namespace {

constexpr const char* kJsonErrorDomain = "tav.json";
constexpr std::int64_t kNonFiniteNumberCode = 1;
constexpr std::int64_t kTooDeepCode = 3;

bool hasNonFiniteNumber(const nlohmann::json& value) {
  switch (value.type()) {
    case nlohmann::json::value_t::number_float:
      return !std::isfinite(value.get_ref<const nlohmann::json::number_float_t&>());
    case nlohmann::json::value_t::object:
    case nlohmann::json::value_t::array:
      for (const auto& element : value) {
        if (hasNonFiniteNumber(element)) return true;
      }
      return false;
    default:
      return false;
  }
}

}  // namespace

TAVSDKJsonError tooDeepError() {
  return {kJsonErrorDomain, kTooDeepCode, "JSON nested too deeply"};
}

std::optional<std::string> toJsonText(const nlohmann::json& value, int indent,
                                      TAVSDKJsonError* error) {
  if (jsonDeeperThan(value, kMaxBatchJsonDepth)) {
    if (error != nullptr) *error = tooDeepError();
    return std::nullopt;
  }
  if (hasNonFiniteNumber(value)) {
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
