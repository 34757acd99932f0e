#pragma once
// TAVSDKCustomerData: the bundle of customer records that an integration hands in
// (customer player, video and view data, custom data, customer viewer data).
//
// Its own dictionary is a snapshot: the union of the first four parts' `toQuery`
// as they were when each was set. Setting a part removes every key the previous
// part held (by name, whichever part put it there), then merges the new part's
// snapshot; later changes made directly to a part do not show until it is set
// again. The customer viewer data is a plain reference and adds no keys.
//
// Ownership: the bundle shares its parts (std::shared_ptr); any part may be null.
// Thread rules as TAVSDKQueryData for the dictionary; the part references are
// read and written under the bundle's own lock. A part setter's steps are
// separately locked, not atomic as a whole.

#include <memory>
#include <mutex>

#include "tav/data/TAVSDKCustomData.h"
#include "tav/data/TAVSDKCustomerPlayerData.h"
#include "tav/data/TAVSDKCustomerVideoData.h"
#include "tav/data/TAVSDKCustomerViewData.h"
#include "tav/data/TAVSDKCustomerViewerData.h"
#include "tav/data/TAVSDKQueryData.h"

namespace tav {

class TAVSDKCustomerData : public TAVSDKQueryData {
 public:
  TAVSDKCustomerData() = default;
  /// Sets the parts in order: player, video, view, custom, viewer.
  TAVSDKCustomerData(std::shared_ptr<TAVSDKCustomerPlayerData> customerPlayerData,
                     std::shared_ptr<TAVSDKCustomerVideoData> customerVideoData,
                     std::shared_ptr<TAVSDKCustomerViewData> customerViewData,
                     std::shared_ptr<TAVSDKCustomData> customData = nullptr,
                     std::shared_ptr<TAVSDKCustomerViewerData> customerViewerData = nullptr);

  [[nodiscard]] std::shared_ptr<TAVSDKCustomerPlayerData> customerPlayerData() const;
  void setCustomerPlayerData(std::shared_ptr<TAVSDKCustomerPlayerData> value);
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerVideoData> customerVideoData() const;
  void setCustomerVideoData(std::shared_ptr<TAVSDKCustomerVideoData> value);
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerViewData> customerViewData() const;
  void setCustomerViewData(std::shared_ptr<TAVSDKCustomerViewData> value);
  [[nodiscard]] std::shared_ptr<TAVSDKCustomData> customData() const;
  void setCustomData(std::shared_ptr<TAVSDKCustomData> value);
  [[nodiscard]] std::shared_ptr<TAVSDKCustomerViewerData> customerViewerData() const;
  /// A plain reference; the bundle's dictionary is left as it is.
  void setCustomerViewerData(std::shared_ptr<TAVSDKCustomerViewerData> value);

 private:
  template <class Part>
  void replacePart(std::shared_ptr<Part>& slot, std::shared_ptr<Part> value);

  mutable std::mutex _partsMutex;
  std::shared_ptr<TAVSDKCustomerPlayerData> _customerPlayerData;
  std::shared_ptr<TAVSDKCustomerVideoData> _customerVideoData;
  std::shared_ptr<TAVSDKCustomerViewData> _customerViewData;
  std::shared_ptr<TAVSDKCustomData> _customData;
  std::shared_ptr<TAVSDKCustomerViewerData> _customerViewerData;
};

}  // namespace tav
