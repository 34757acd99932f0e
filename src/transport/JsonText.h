#pragma once
// JSON serialisation that fails instead of writing something the collector
// cannot use: non-finite numbers (which nlohmann would write as null) and
// invalid UTF-8 are errors.

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "tav/transport/TAVSDKDispatcher.h"

namespace tav::detail {

/// The JSON text of `value`: compact for indent < 0, else pretty-printed with
/// `indent` spaces. nullopt and `error` filled (when given) on failure.
[[nodiscard]] std::optional<std::string> toJsonText(const nlohmann::json& value, int indent,
                                                    TAVSDKJsonError* error);

}  // namespace tav::detail
