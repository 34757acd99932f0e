#pragma once
// TAVSDKCustomData: five free text slots of the integrator. Session data reaches
// it through `upsertWithData`. Ownership and thread rules as TAVSDKQueryData.

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_CUSTOM_DATA_FIELDS(X)                        \
  X(customData1, CustomData1, CUSTOM_DATA_1, "c1", Text) \
  X(customData2, CustomData2, CUSTOM_DATA_2, "c2", Text) \
  X(customData3, CustomData3, CUSTOM_DATA_3, "c3", Text) \
  X(customData4, CustomData4, CUSTOM_DATA_4, "c4", Text) \
  X(customData5, CustomData5, CUSTOM_DATA_5, "c5", Text)

namespace tav {

TAV_CUSTOM_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKCustomData : public TAVSDKQueryData, public TAVSDKUpsertable<TAVSDKCustomData> {
 public:
  TAV_CUSTOM_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
