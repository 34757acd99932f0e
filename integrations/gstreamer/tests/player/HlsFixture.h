#pragma once
// Test media made at test time: a 3-rendition HLS stream (test pattern with a
// tone, H.264/AAC in MPEG-TS, 2-second segments, a master playlist), and a
// loopback HTTP server for it that can delay or fail chosen requests.

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <regex>
#include <string>
#include <thread>
#include <vector>

namespace httplib {
class Server;
}

namespace tav::test {

/// The stream's folder (made once per build tree with ffmpeg; later calls reuse
/// it). Throws std::runtime_error when ffmpeg fails.
std::string hlsFixture();

/// What one rendition of the fixture advertises in its master playlist.
struct FixtureRendition {
  int width;
  int height;
  long long bandwidth;
};
/// The renditions, read back from the fixture's master playlist.
std::vector<FixtureRendition> fixtureRenditions(const std::string& folder);

class SegmentServer {
 public:
  /// Serves `folder` on 127.0.0.1 at an ephemeral port.
  explicit SegmentServer(std::string folder);
  ~SegmentServer();
  SegmentServer(const SegmentServer&) = delete;
  SegmentServer& operator=(const SegmentServer&) = delete;

  /// Requests whose path matches `pattern` are answered `delay` late.
  void delay(const std::string& pattern, std::chrono::milliseconds delay);
  /// Requests whose path matches `pattern` are answered with `status`.
  void fail(const std::string& pattern, int status);

  [[nodiscard]] std::string url(const std::string& path) const;
  /// Answers given so far with `status`, for paths matching `pattern`.
  [[nodiscard]] int answered(const std::string& pattern, int status) const;

 private:
  struct Answer {
    std::string path;
    int status;
  };
  std::string _folder;
  std::unique_ptr<httplib::Server> _server;
  std::thread _thread;
  int _port = 0;
  mutable std::mutex _mutex;
  std::condition_variable _stopping;
  bool _stopped = false;
  std::optional<std::pair<std::regex, std::chrono::milliseconds>> _delay;
  std::optional<std::pair<std::regex, int>> _fail;
  std::vector<Answer> _answers;
};

}  // namespace tav::test
