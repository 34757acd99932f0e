#pragma once
// Reports a failure that disabled a player.

#include <exception>
#include <optional>
#include <string>

namespace tav {

/// Builds the error report for a failure raised while a player handled an
/// event of type `eventType` and hands it to the error-tracking transport.
void reportPlayerFailure(const std::string& eventType, const std::exception& failure,
                         const std::optional<std::string>& pluginName,
                         const std::optional<std::string>& pluginVersion);

}  // namespace tav
