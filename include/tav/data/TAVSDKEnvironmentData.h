#pragma once
// TAVSDKEnvironmentData: the library's own identity (protocol version, embed name
// and version, viewer id) and the viewer session (id, start and expiry in
// milliseconds since the epoch). The facade keeps one for the whole process.
// Ownership and thread rules as TAVSDKQueryData.

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_ENVIRONMENT_DATA_FIELDS(X)                                  \
  X(tavApiVersion, TavApiVersion, TAV_API_VERSION, "tapve", Text)       \
  X(tavEmbedVersion, TavEmbedVersion, TAV_EMBED_VERSION, "temve", Text) \
  X(tavViewerId, TavViewerId, TAV_VIEWER_ID, "tvrid", Text)             \
  X(sessionExpires, SessionExpires, SESSION_EXPIRES, "sex", Int64)      \
  X(sessionId, SessionId, SESSION_ID, "sid", Text)                      \
  X(sessionStart, SessionStart, SESSION_START, "sst", Int64)            \
  X(tavEmbed, TavEmbed, TAV_EMBED, "tem", Text)

namespace tav {

TAV_ENVIRONMENT_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKEnvironmentData : public TAVSDKQueryData {
 public:
  TAV_ENVIRONMENT_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
