#pragma once
// JSON serialisation that fails instead of writing something the collector
// cannot use: non-finite numbers (which nlohmann would write as null), invalid
// UTF-8 and nesting beyond the batch limit (data/JsonDepth.h) are errors.

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "data/JsonDepth.h"
#include "tav/transport/TAVSDKDispatcher.h"

namespace tav::detail {

/// The JSON text of `value`: compact for indent < 0, else pretty-printed with
/// `indent` spaces. nullopt and `error` filled (when given) on failure.
/// The error for a value nested more than kMaxBatchJsonDepth levels deep.
[[nodiscard]] TAVSDKJsonError tooDeepError();

[[nodiscard]] std::optional<std::string> toJsonText(const nlohmann::json& value, int indent,
                                                    TAVSDKJsonError* error);

}  // namespace tav::detail
