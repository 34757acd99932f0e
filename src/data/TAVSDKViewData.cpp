#include "tav/data/TAVSDKViewData.h"

namespace tav {

TAVSDKViewDeviceOrientationData::TAVSDKViewDeviceOrientationData()
    : TAVSDKViewDeviceOrientationData(std::nullopt, std::nullopt, std::nullopt) {}

TAVSDKViewDeviceOrientationData::TAVSDKViewDeviceOrientationData(const std::optional<Json>& x,
                                                                 const std::optional<Json>& y,
                                                                 const std::optional<Json>& z) {
  const Json zero(0.0);
  update(Json{{VIEW_DEVICE_ORIENTATION_X, _valueOrDefault(x, zero)}});
  update(Json{{VIEW_DEVICE_ORIENTATION_Y, _valueOrDefault(y, zero)}});
  update(Json{{VIEW_DEVICE_ORIENTATION_Z, _valueOrDefault(z, zero)}});
}

std::shared_ptr<TAVSDKViewDeviceOrientationData> TAVSDKViewDeviceOrientationData::initWithZ(
    const std::optional<Json>& z) {
  return std::make_shared<TAVSDKViewDeviceOrientationData>(Json(0.0), Json(0.0), z);
}

Json TAVSDKViewDeviceOrientationData::_valueOrDefault(const std::optional<Json>& value,
                                                      const Json& fallback) {
  return value && !value->is_null() ? *value : fallback;
}

void TAVSDKViewData::setViewDeviceOrientationData(
    const std::shared_ptr<const TAVSDKViewDeviceOrientationData>& orientation) {
  if (!orientation) {
    remove(VIEW_DEVICE_ORIENTATION);
    return;
  }
  update(Json{{VIEW_DEVICE_ORIENTATION, orientation->toQuery()}});
}

std::shared_ptr<TAVSDKViewDeviceOrientationData> TAVSDKViewData::viewDeviceOrientationData() const {
  const auto nested = get(VIEW_DEVICE_ORIENTATION);
  auto entry = [&](const char* key) -> std::optional<Json> {
    if (!nested || !nested->is_object()) return std::nullopt;
    const auto it = nested->find(key);
    if (it == nested->end()) return std::nullopt;
    return *it;
  };
  return std::make_shared<TAVSDKViewDeviceOrientationData>(entry(VIEW_DEVICE_ORIENTATION_X),
                                                           entry(VIEW_DEVICE_ORIENTATION_Y),
                                                           entry(VIEW_DEVICE_ORIENTATION_Z));
}

std::optional<std::string> TAVSDKViewData::vviewPrerollAdAssetHostname() const {
  const std::lock_guard lock(_plainFieldMutex);
  return _vviewPrerollAdAssetHostname;
}

void TAVSDKViewData::setVviewPrerollAdAssetHostname(const std::optional<std::string>& value) {
  const std::lock_guard lock(_plainFieldMutex);
  _vviewPrerollAdAssetHostname = value;
}

}  // namespace tav
