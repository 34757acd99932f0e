#include "HlsFixture.h"

#include <httplib.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace tav::test {
namespace {

namespace fs = std::filesystem;

std::string readFile(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

/// Runs a program (no shell) in `folder`; true when it exits with 0.
bool run(const std::vector<std::string>& args, const fs::path& folder) {
  std::vector<char*> argv;
  argv.reserve(args.size() + 1);
  for (const auto& arg : args)
    argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  pid_t pid = 0;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return false;
  int status = 0;
  while (waitpid(pid, &status, 0) < 0) {
    if (errno != EINTR) return false;
  }
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

}  // namespace

std::string hlsFixture() {
  const fs::path folder = TAV_PLAYER_FIXTURE_DIR;
  if (fs::exists(folder / "master.m3u8")) return folder.string();
  // Made in a folder of its own and renamed into place: tests of other
  // processes may make it at the same time.
  const fs::path scratch = folder.string() + ".tmp." + std::to_string(::getpid());
  fs::remove_all(scratch);
  fs::create_directories(scratch);
  const std::vector<std::string> args = {
      TAV_FFMPEG,
      "-nostdin",
      "-hide_banner",
      "-loglevel",
      "error",
      "-f",
      "lavfi",
      "-i",
      "testsrc2=size=640x360:rate=25",
      "-f",
      "lavfi",
      "-i",
      "sine=frequency=440:sample_rate=48000",
      "-t",
      "8",
      "-filter_complex",
      "[0:v]split=3[a][b][c];[a]scale=256:144[v0];[b]scale=426:240[v1];[c]copy[v2]",
      "-map",
      "[v0]",
      "-map",
      "[v1]",
      "-map",
      "[v2]",
      "-map",
      "1:a",
      "-map",
      "1:a",
      "-map",
      "1:a",
      "-c:v",
      "libx264",
      "-preset",
      "ultrafast",
      "-g",
      "50",
      "-keyint_min",
      "50",
      "-sc_threshold",
      "0",
      "-b:v:0",
      "200k",
      "-b:v:1",
      "400k",
      "-b:v:2",
      "800k",
      "-c:a",
      "aac",
      "-b:a",
      "64k",
      "-ac",
      "2",
      "-f",
      "hls",
      "-hls_time",
      "2",
      "-hls_playlist_type",
      "vod",
      "-hls_segment_filename",
      "v%v/seg%d.ts",
      "-master_pl_name",
      "master.m3u8",
      "-var_stream_map",
      "v:0,a:0 v:1,a:1 v:2,a:2",
      "v%v/index.m3u8"};
  if (!run(args, scratch) || !fs::exists(scratch / "master.m3u8")) {
    fs::remove_all(scratch);
    throw std::runtime_error("ffmpeg could not make the HLS fixture");
  }
  std::error_code error;
  fs::rename(scratch, folder, error);
  if (error) fs::remove_all(scratch);  // another process was first
  return folder.string();
}

std::vector<FixtureRendition> fixtureRenditions(const std::string& folder) {
  std::vector<FixtureRendition> renditions;
  std::istringstream lines(readFile(fs::path(folder) / "master.m3u8"));
  for (std::string line; std::getline(lines, line);) {
    const auto bandwidth = line.find("BANDWIDTH=");
    const auto resolution = line.find("RESOLUTION=");
    if (line.rfind("#EXT-X-STREAM-INF:", 0) != 0 || bandwidth == std::string::npos ||
        resolution == std::string::npos)
      continue;
    FixtureRendition r{};
    r.bandwidth = std::stoll(line.substr(bandwidth + 10));
    r.width = std::stoi(line.substr(resolution + 11));
    r.height = std::stoi(line.substr(line.find('x', resolution) + 1));
    renditions.push_back(r);
  }
  return renditions;
}

SegmentServer::SegmentServer(std::string folder)
    : _folder(std::move(folder)), _server(std::make_unique<httplib::Server>()) {
  _server->Get(".*", [this](const httplib::Request& request, httplib::Response& response) {
    std::unique_lock lock(_mutex);
    int status = 200;
    if (_fail && std::regex_search(request.path, _fail->first)) status = _fail->second;
    if (_delay && std::regex_search(request.path, _delay->first)) {
      _stopping.wait_for(lock, _delay->second, [this] { return _stopped; });
    }
    const fs::path file = fs::path(_folder) / request.path.substr(1);
    if (status == 200 &&
        (request.path.find("..") != std::string::npos || !fs::is_regular_file(file)))
      status = 404;
    _answers.push_back({request.path, status});
    lock.unlock();
    response.status = status;
    if (status != 200) return;
    const bool playlist = file.extension() == ".m3u8";
    response.set_content(readFile(file), playlist ? "application/vnd.apple.mpegurl" : "video/mp2t");
  });
  _port = _server->bind_to_any_port("127.0.0.1");
  if (_port <= 0) throw std::runtime_error("segment server cannot bind");
  _thread = std::thread([this] { _server->listen_after_bind(); });
  // stop() only takes effect once the accept loop runs.
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!_server->is_running() && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::yield();
  }
  if (!_server->is_running()) throw std::runtime_error("segment server did not start");
}

SegmentServer::~SegmentServer() {
  {
    std::lock_guard lock(_mutex);
    _stopped = true;
  }
  _stopping.notify_all();
  _server->stop();
  _thread.join();
}

void SegmentServer::delay(const std::string& pattern, std::chrono::milliseconds delay) {
  std::lock_guard lock(_mutex);
  _delay.emplace(std::regex(pattern), delay);
}

void SegmentServer::fail(const std::string& pattern, int status) {
  std::lock_guard lock(_mutex);
  _fail.emplace(std::regex(pattern), status);
}

std::string SegmentServer::url(const std::string& path) const {
  return "http://127.0.0.1:" + std::to_string(_port) + "/" + path;
}

int SegmentServer::answered(const std::string& pattern, int status) const {
  const std::regex re(pattern);
  std::lock_guard lock(_mutex);
  int count = 0;
  for (const auto& answer : _answers) {
    if (answer.status == status && std::regex_search(answer.path, re)) ++count;
  }
  return count;
}

}  // namespace tav::test
