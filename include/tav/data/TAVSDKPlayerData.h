#pragma once
// TAVSDKPlayerData: the state of the player at the moment of an event (playhead,
// size, paused, error, player software, page). Sent by the integration with each
// playback event; the trackers read the playhead, paused flag and size.
// Times are milliseconds, sizes pixels. Ownership and thread rules as
// TAVSDKQueryData (shared by std::shared_ptr; reads are safe against writers).

#include "tav/data/TAVSDKQueryData.h"
#include "tav/data/TAVSDKRecordFields.h"

// `playerAutoplayOn`, `playerIsFullscreen` and `playerPreloadOn` are text here:
// the integration supplies the text. `playerErrorCode` is text as well.
// X(property, Property, KEY_CONSTANT, "key", Kind)
#define TAV_PLAYER_DATA_FIELDS(X)                                                               \
  X(pageLoadTime, PageLoadTime, PAGE_LOAD_TIME, "wloti", Int64)                                 \
  X(pageUrl, PageUrl, PAGE_URL, "wur", Text)                                                    \
  X(playerAutoplayOn, PlayerAutoplayOn, PLAYER_AUTOPLAY_ON, "pauon", Text)                      \
  X(playerErrorCode, PlayerErrorCode, PLAYER_ERROR_CODE, "percd", Text)                         \
  X(playerErrorMessage, PlayerErrorMessage, PLAYER_ERROR_MESSAGE, "perme", Text)                \
  X(playerHeight, PlayerHeight, PLAYER_HEIGHT, "pht", Int32)                                    \
  X(playerInstanceId, PlayerInstanceId, PLAYER_INSTANCE_ID, "pinid", Text)                      \
  X(playeriOSErrorData, PlayeriOSErrorData, PLAYER_IOS_ERROR_DATA, "pioerda", Text)             \
  X(playerIsFullscreen, PlayerIsFullscreen, PLAYER_IS_FULLSCREEN, "pisfs", Text)                \
  X(playerIsPaused, PlayerIsPaused, PLAYER_IS_PAUSED, "pispa", Bool)                            \
  X(playerLanguageCode, PlayerLanguageCode, PLAYER_LANGUAGE_CODE, "placd", Text)                \
  X(playerLoadTime, PlayerLoadTime, PLAYER_LOAD_TIME, "ploti", Int64)                           \
  X(playerTavPluginName, PlayerTavPluginName, PLAYER_TAV_PLUGIN_NAME, "ptvpinm", Text)          \
  X(playerTavPluginVersion, PlayerTavPluginVersion, PLAYER_TAV_PLUGIN_VERSION, "ptvpive", Text) \
  X(playerPlayheadTime, PlayerPlayheadTime, PLAYER_PLAYHEAD_TIME, "pphti", Int64)               \
  X(playerPreloadOn, PlayerPreloadOn, PLAYER_PRELOAD_ON, "ppron", Text)                         \
  X(playerRemotePlayed, PlayerRemotePlayed, PLAYER_REMOTE_PLAYED, "prmpf", Bool)                \
  X(playerSequenceNumber, PlayerSequenceNumber, PLAYER_SEQUENCE_NUMBER, "psqno", Int32)         \
  X(playerSoftwareName, PlayerSoftwareName, PLAYER_SOFTWARE_NAME, "pswnm", Text)                \
  X(playerSoftwareVersion, PlayerSoftwareVersion, PLAYER_SOFTWARE_VERSION, "pswve", Text)       \
  X(playerStartupTime, PlayerStartupTime, PLAYER_STARTUP_TIME, "psuti", Int64)                  \
  X(playerViewCount, PlayerViewCount, PLAYER_VIEW_COUNT, "pvwco", Int32)                        \
  X(playerWidth, PlayerWidth, PLAYER_WIDTH, "pwd", Int32)                                       \
  X(playerLiveEdgeProgramTime, PlayerLiveEdgeProgramTime, PLAYER_LIVE_EDGE_PROGRAM_TIME,        \
    "pliedpgti", Int64)                                                                         \
  X(playerProgramTime, PlayerProgramTime, PLAYER_PROGRAM_TIME, "ppgti", Int64)

namespace tav {

TAV_PLAYER_DATA_FIELDS(TAV_FIELD_KEY)

class TAVSDKPlayerData : public TAVSDKQueryData {
 public:
  TAV_PLAYER_DATA_FIELDS(TAV_FIELD_ACCESSORS)
};

}  // namespace tav
