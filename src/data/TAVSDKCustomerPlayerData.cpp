#include "tav/data/TAVSDKCustomerPlayerData.h"

namespace tav {

std::shared_ptr<TAVSDKCustomerPlayerData> TAVSDKCustomerPlayerData::initWithEnvironmentKey(
    const std::optional<std::string>& environmentKey) {
  auto record = std::make_shared<TAVSDKCustomerPlayerData>();
  record->setEnvironmentKey(environmentKey);
  return record;
}

std::shared_ptr<TAVSDKCustomerPlayerData> TAVSDKCustomerPlayerData::initWithPropertyKey(
    const std::optional<std::string>& propertyKey) {
  return initWithEnvironmentKey(propertyKey);
}

std::optional<std::string> TAVSDKCustomerPlayerData::environmentKey() const {
  return field::Text::get(*this, ENV_KEY);
}

void TAVSDKCustomerPlayerData::setEnvironmentKey(const std::optional<std::string>& value) {
  field::Text::set(*this, ENV_KEY, value);
}

std::optional<std::string> TAVSDKCustomerPlayerData::propertyKey() const {
  return environmentKey();
}

void TAVSDKCustomerPlayerData::setPropertyKey(const std::optional<std::string>& value) {
  setEnvironmentKey(value);
}

bool TAVSDKCustomerPlayerData::playerAutoplayOn() const {
  const auto stored = get(AUTOPLAY_ON);
  return stored && stored->is_string() && stored->get_ref<const std::string&>() == "true";
}

void TAVSDKCustomerPlayerData::setPlayerAutoplayOn(bool value) {
  update(Json{{AUTOPLAY_ON, value ? "true" : "false"}});
}

}  // namespace tav
