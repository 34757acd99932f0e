#include "tav/data/TAVSDKCustomerData.h"

#include <utility>

namespace tav {

TAVSDKCustomerData::TAVSDKCustomerData(
    std::shared_ptr<TAVSDKCustomerPlayerData> customerPlayerData,
    std::shared_ptr<TAVSDKCustomerVideoData> customerVideoData,
    std::shared_ptr<TAVSDKCustomerViewData> customerViewData,
    std::shared_ptr<TAVSDKCustomData> customData,
    std::shared_ptr<TAVSDKCustomerViewerData> customerViewerData) {
  setCustomerPlayerData(std::move(customerPlayerData));
  setCustomerVideoData(std::move(customerVideoData));
  setCustomerViewData(std::move(customerViewData));
  setCustomData(std::move(customData));
  setCustomerViewerData(std::move(customerViewerData));
}

template <class Part>
void TAVSDKCustomerData::replacePart(std::shared_ptr<Part>& slot, std::shared_ptr<Part> value) {
  std::shared_ptr<Part> old;
  {
    const std::lock_guard lock(_partsMutex);
    old = slot;
  }
  // Part records are read outside the parts lock: no two locks are held at once.
  if (old) removeAll(old->toQuery());
  if (value) update(value->toQuery());
  const std::lock_guard lock(_partsMutex);
  slot = std::move(value);
}

std::shared_ptr<TAVSDKCustomerPlayerData> TAVSDKCustomerData::customerPlayerData() const {
  const std::lock_guard lock(_partsMutex);
  return _customerPlayerData;
}

void TAVSDKCustomerData::setCustomerPlayerData(std::shared_ptr<TAVSDKCustomerPlayerData> value) {
  replacePart(_customerPlayerData, std::move(value));
}

std::shared_ptr<TAVSDKCustomerVideoData> TAVSDKCustomerData::customerVideoData() const {
  const std::lock_guard lock(_partsMutex);
  return _customerVideoData;
}

void TAVSDKCustomerData::setCustomerVideoData(std::shared_ptr<TAVSDKCustomerVideoData> value) {
  replacePart(_customerVideoData, std::move(value));
}

std::shared_ptr<TAVSDKCustomerViewData> TAVSDKCustomerData::customerViewData() const {
  const std::lock_guard lock(_partsMutex);
  return _customerViewData;
}

void TAVSDKCustomerData::setCustomerViewData(std::shared_ptr<TAVSDKCustomerViewData> value) {
  replacePart(_customerViewData, std::move(value));
}

std::shared_ptr<TAVSDKCustomData> TAVSDKCustomerData::customData() const {
  const std::lock_guard lock(_partsMutex);
  return _customData;
}

void TAVSDKCustomerData::setCustomData(std::shared_ptr<TAVSDKCustomData> value) {
  replacePart(_customData, std::move(value));
}

std::shared_ptr<TAVSDKCustomerViewerData> TAVSDKCustomerData::customerViewerData() const {
  const std::lock_guard lock(_partsMutex);
  return _customerViewerData;
}

void TAVSDKCustomerData::setCustomerViewerData(std::shared_ptr<TAVSDKCustomerViewerData> value) {
  const std::lock_guard lock(_partsMutex);
  _customerViewerData = std::move(value);
}

}  // namespace tav
