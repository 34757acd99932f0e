#pragma once
// The variants that an HLS master playlist offers (#EXT-X-STREAM-INF entries),
// with their playlist URLs resolved against the master playlist's URL.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tav::gstreamer {

struct Variant {
  std::string uri;             // absolute URL of the variant playlist
  std::int64_t bandwidth = 0;  // BANDWIDTH, bits per second
  std::optional<int> width;    // RESOLUTION, pixels
  std::optional<int> height;
  std::optional<double> frameRate;  // FRAME-RATE
};

/// Parses a master playlist. Answers nothing for a text that is not an HLS
/// playlist or that lists no variant (a media playlist, say). Malformed
/// attributes are skipped; the variant keeps what could be read.
[[nodiscard]] std::vector<Variant> parseMasterPlaylist(std::string_view text,
                                                       const std::string& playlistUrl);

/// `reference` resolved against `base` (absolute URLs, host-absolute paths and
/// relative paths with "./" and "../" segments).
[[nodiscard]] std::string resolveUrl(const std::string& base, const std::string& reference);

/// The host of an absolute URL ("" when there is none).
[[nodiscard]] std::string urlHost(const std::string& url);

}  // namespace tav::gstreamer
