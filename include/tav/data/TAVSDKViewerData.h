#pragma once
// TAVSDKViewerData: device, operating system, application and connection of the
// viewer, all text. The "u" keys and the "tvr" keys are two independent device
// sets that travel side by side. The facade keeps one for the whole process.
// Ownership and thread rules as TAVSDKQueryData.

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_VIEWER_DATA_FIELDS(X)                                                                  \
  X(viewerApplicationEngine, ViewerApplicationEngine, VIEWER_APPLICATION_ENGINE, "ualeg", Text)    \
  X(viewerApplicationName, ViewerApplicationName, VIEWER_APPLICATION_NAME, "ualnm", Text)          \
  X(viewerApplicationVersion, ViewerApplicationVersion, VIEWER_APPLICATION_VERSION, "ualve", Text) \
  X(viewerDeviceCategory, ViewerDeviceCategory, VIEWER_DEVICE_CATEGORY, "udvcg", Text)             \
  X(viewerDeviceManufacturer, ViewerDeviceManufacturer, VIEWER_DEVICE_MANUFACTURER, "udvmn", Text) \
  X(viewerDeviceName, ViewerDeviceName, VIEWER_DEVICE_NAME, "udvnm", Text)                         \
  X(viewerOsArchitecture, ViewerOsArchitecture, VIEWER_OS_ARCHITECTURE, "uosar", Text)             \
  X(viewerOsFamily, ViewerOsFamily, VIEWER_OS_FAMILY, "uosfm", Text)                               \
  X(viewerOsVersion, ViewerOsVersion, VIEWER_OS_VERSION, "uosve", Text)                            \
  X(viewerConnectionType, ViewerConnectionType, VIEWER_CONNECTION_TYPE, "ucxty", Text)             \
  X(viewerDeviceModel, ViewerDeviceModel, VIEWER_DEVICE_MODEL, "udvmo", Text)                      \
  X(tavViewerDeviceCategory, TavViewerDeviceCategory, TAV_VIEWER_DEVICE_CATEGORY, "tvrdvcg", Text) \
  X(tavViewerDeviceManufacturer, TavViewerDeviceManufacturer, TAV_VIEWER_DEVICE_MANUFACTURER,      \
    "tvrdvmn", Text)                                                                               \
  X(tavViewerDeviceName, TavViewerDeviceName, TAV_VIEWER_DEVICE_NAME, "tvrdvnm", Text)             \
  X(tavViewerOsFamily, TavViewerOsFamily, TAV_VIEWER_OS_FAMILY, "tvrosfm", Text)                   \
  X(tavViewerOsVersion, TavViewerOsVersion, TAV_VIEWER_OS_VERSION, "tvrosve", Text)                \
  X(tavViewerDeviceModel, TavViewerDeviceModel, TAV_VIEWER_DEVICE_MODEL, "tvrdvmo", Text)

namespace tav {

TAV_VIEWER_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKViewerData : public TAVSDKQueryData {
 public:
  TAV_VIEWER_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
