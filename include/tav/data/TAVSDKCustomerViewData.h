#pragma once
// TAVSDKCustomerViewData: the integrator's view session id. Session data reaches
// it through `upsertWithData`. Ownership and thread rules as TAVSDKQueryData.

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_CUSTOMER_VIEW_DATA_FIELDS(X) \
  X(viewSessionId, ViewSessionId, VIEW_SESSION_ID, "xseid", Text)

namespace tav {

TAV_CUSTOMER_VIEW_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKCustomerViewData : public TAVSDKQueryData,
                               public TAVSDKUpsertable<TAVSDKCustomerViewData> {
 public:
  TAV_CUSTOMER_VIEW_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
