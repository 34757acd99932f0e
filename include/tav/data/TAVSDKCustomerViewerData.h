#pragma once
// TAVSDKCustomerViewerData: a plain holder of the application name that an
// integration can hand in with its customer data. Not a beacon record: it has no
// key and never reaches a beacon by itself.
// Ownership: shared by std::shared_ptr. Thread rules: the one text is read and
// written under the holder's own lock, so any thread may use it.

#include <mutex>
#include <optional>
#include <string>
#include <utility>

namespace tav {

class TAVSDKCustomerViewerData {
 public:
  TAVSDKCustomerViewerData() = default;
  TAVSDKCustomerViewerData(const TAVSDKCustomerViewerData&) = delete;
  TAVSDKCustomerViewerData& operator=(const TAVSDKCustomerViewerData&) = delete;

  [[nodiscard]] std::optional<std::string> viewerApplicationName() const {
    const std::lock_guard lock(_mutex);
    return _viewerApplicationName;
  }
  void setViewerApplicationName(std::optional<std::string> value) {
    const std::lock_guard lock(_mutex);
    _viewerApplicationName = std::move(value);
  }

 private:
  mutable std::mutex _mutex;
  std::optional<std::string> _viewerApplicationName;
};

}  // namespace tav
