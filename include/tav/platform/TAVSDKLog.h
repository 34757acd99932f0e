#pragma once
// Library log. Every internal problem that the library reports goes through one
// process-wide callback; the default writes the message to stderr.
//
// Thread rules: the handler may be called from the caller's thread and from the
// transport worker; it must be thread-safe. Setting the handler is thread-safe.

#include <functional>
#include <string>
#include <string_view>

namespace tav {

class TAVSDKLog {
 public:
  using Handler = std::function<void(std::string_view message)>;

  /// Installs the handler for every later message; an empty handler restores stderr.
  static void setHandler(Handler handler);

  /// Logs one message as given (callers include the "TAVSDK-ERROR - " prefix).
  static void error(std::string_view message);
};

}  // namespace tav
