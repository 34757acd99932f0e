#include "tav/platform/TAVSDKFailure.h"

#if defined(__has_include)
#if __has_include(<execinfo.h>)
#include <execinfo.h>
#define TAV_HAVE_BACKTRACE 1
#endif
#endif

namespace tav {

TAVSDKFailure::TAVSDKFailure(const std::string& what) : std::runtime_error(what) {
#if defined(TAV_HAVE_BACKTRACE)
  void* frames[64];
  const int n = backtrace(frames, 64);
  // Skip this constructor's own frame.
  for (int i = 1; i < n; ++i)
    _callStack.push_back(frames[i]);
#endif
}

}  // namespace tav
