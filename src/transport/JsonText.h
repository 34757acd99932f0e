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

/// A JSON object pretty-printed (indent 2) around one member that is written
/// separately: `before` holds "{\n" and the members that sort before that
/// member's key, each followed by ",\n"; `after` holds the members that sort
/// after it, each preceded by ",\n", and "\n}". `before + memberText(key,
/// value) + after` is exactly toJsonText of the object with that member.
struct ObjectText {
  std::string before;
  std::string after;
};

/// The text of the object `object` without its member `key`, each other
/// member checked as toJsonText checks it inside the object. nullopt and
/// `error` filled (when given) on failure, or when `object` is not an object.
[[nodiscard]] std::optional<ObjectText> toObjectTextAround(const nlohmann::json& object,
                                                           const std::string& key,
                                                           TAVSDKJsonError* error);

/// One member `"key": value` of a top-level pretty-printed object (indent 2),
/// checked as toJsonText checks it there.
[[nodiscard]] std::optional<std::string> memberText(const std::string& key,
                                                    const nlohmann::json& value,
                                                    TAVSDKJsonError* error);

}  // namespace tav::detail
