#pragma once
// TAVSDKCustomerPlayerData: the integrator's description of the player and page,
// and the environment key that routes beacons to their collection host.
// `playerInitTime` is milliseconds since the epoch. Session data reaches it
// through `upsertWithData`. Ownership and thread rules as TAVSDKQueryData.

#include <memory>
#include <optional>
#include <string>

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// The regular fields. "ake" (two names for one field) and "pauon" (a boolean
// written as the words "true"/"false") have hand-written accessors below.
// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_CUSTOMER_PLAYER_DATA_FIELDS(X)                              \
  X(adConfigVariant, AdConfigVariant, AD_CONFIG_VARIANT, "dcnva", Text) \
  X(experimentName, ExperimentName, EXPERIMENT_NAME, "fnm", Text)       \
  X(pageType, PageType, PAGE_TYPE, "wty", Text)                         \
  X(playerInitTime, PlayerInitTime, PLAYER_INIT_TIME, "piiti", Int64)   \
  X(playerName, PlayerName, PLAYER_NAME, "pnm", Text)                   \
  X(playerVersion, PlayerVersion, PLAYER_VERSION, "pve", Text)          \
  X(subPropertyId, SubPropertyId, SUB_PROPERTY_ID, "ypyid", Text)       \
  X(viewerUserId, ViewerUserId, VIEWER_USER_ID, "uusid", Text)

namespace tav {

TAV_CUSTOMER_PLAYER_DATA_FIELDS(TAV_FIELD_KEY)
/// The environment (property) key; read by `environmentKey` and `propertyKey`.
inline constexpr char ENV_KEY[] = "ake";
/// Same value as TAVSDKPlayerData's `PLAYER_AUTOPLAY_ON`; this record writes the words.
inline constexpr char AUTOPLAY_ON[] = "pauon";

class TAVSDKCustomerPlayerData : public TAVSDKQueryData,
                                 public TAVSDKUpsertable<TAVSDKCustomerPlayerData> {
 public:
  TAVSDKCustomerPlayerData() = default;

  /// A record holding only the given environment key.
  static std::shared_ptr<TAVSDKCustomerPlayerData> initWithEnvironmentKey(
      const std::optional<std::string>& environmentKey);
  /// Another name for `initWithEnvironmentKey`.
  static std::shared_ptr<TAVSDKCustomerPlayerData> initWithPropertyKey(
      const std::optional<std::string>& propertyKey);

  TAV_CUSTOMER_PLAYER_DATA_FIELDS(TAV_FIELD_ACCESSORS)

  // `environmentKey` and `propertyKey` are two names for "ake".
  [[nodiscard]] std::optional<std::string> environmentKey() const;
  void setEnvironmentKey(const std::optional<std::string>& value);
  [[nodiscard]] std::optional<std::string> propertyKey() const;
  void setPropertyKey(const std::optional<std::string>& value);

  /// True exactly when "pauon" holds the text "true".
  [[nodiscard]] bool playerAutoplayOn() const;
  /// Always stores "true" or "false".
  void setPlayerAutoplayOn(bool value);
};

}  // namespace tav
