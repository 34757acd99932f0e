#include "MasterPlaylist.h"

#include <charconv>
#include <cstdlib>

namespace tav::gstreamer {
namespace {

std::string_view trim(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t'))
    s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t' || s.back() == '\r'))
    s.remove_suffix(1);
  return s;
}

template <class T>
std::optional<T> number(std::string_view text) {
  T value{};
  const auto* end = text.data() + text.size();
  const auto [ptr, ec] = std::from_chars(text.data(), end, value);
  if (ec != std::errc() || ptr != end) return std::nullopt;
  return value;
}

std::optional<double> decimal(std::string_view text) {
  // std::from_chars for double is not in every standard library we build with.
  const std::string copy(text);
  char* end = nullptr;
  const double value = std::strtod(copy.c_str(), &end);
  if (copy.empty() || end != copy.c_str() + copy.size()) return std::nullopt;
  return value;
}

/// Calls `f(name, value)` for each NAME=VALUE of an attribute list; quoted
/// values may hold commas.
template <class F>
void forEachAttribute(std::string_view list, F f) {
  while (!list.empty()) {
    const auto eq = list.find('=');
    if (eq == std::string_view::npos) return;
    const auto name = trim(list.substr(0, eq));
    list.remove_prefix(eq + 1);
    std::string_view value;
    if (!list.empty() && list.front() == '"') {
      const auto close = list.find('"', 1);
      value = list.substr(1, close == std::string_view::npos ? list.size() - 1 : close - 1);
      list.remove_prefix(close == std::string_view::npos ? list.size() : close + 1);
      const auto comma = list.find(',');
      list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    } else {
      const auto comma = list.find(',');
      value = trim(list.substr(0, comma));
      list.remove_prefix(comma == std::string_view::npos ? list.size() : comma + 1);
    }
    f(name, value);
  }
}

}  // namespace

std::string resolveUrl(const std::string& base, const std::string& reference) {
  if (reference.find("://") != std::string::npos) return reference;
  const auto schemeEnd = base.find("://");
  const auto authorityEnd =
      schemeEnd == std::string::npos ? std::string::npos : base.find('/', schemeEnd + 3);
  const std::string origin = schemeEnd == std::string::npos      ? std::string()
                             : authorityEnd == std::string::npos ? base
                                                                 : base.substr(0, authorityEnd);
  std::string path;
  if (!reference.empty() && reference.front() == '/') {
    path = reference;
  } else {
    std::string basePath =
        authorityEnd == std::string::npos ? std::string("/") : base.substr(authorityEnd);
    basePath = basePath.substr(0, basePath.find_first_of("?#"));
    path = basePath.substr(0, basePath.rfind('/') + 1) + reference;
  }
  // Remove dot segments.
  std::vector<std::string> segments;
  std::size_t pos = 1;
  while (pos <= path.size()) {
    const auto next = path.find('/', pos);
    const std::string segment =
        path.substr(pos, next == std::string::npos ? std::string::npos : next - pos);
    const bool last = next == std::string::npos;
    if (segment == "..") {
      if (!segments.empty()) segments.pop_back();
      if (last) segments.emplace_back();
    } else if (segment == ".") {
      if (last) segments.emplace_back();
    } else {
      segments.push_back(segment);
    }
    if (last) break;
    pos = next + 1;
  }
  std::string resolved = origin;
  for (const auto& segment : segments)
    resolved += "/" + segment;
  return resolved.empty() ? "/" : resolved;
}

std::string urlHost(const std::string& url) {
  const auto schemeEnd = url.find("://");
  if (schemeEnd == std::string::npos) return {};
  auto authority =
      url.substr(schemeEnd + 3, url.find_first_of("/?#", schemeEnd + 3) - (schemeEnd + 3));
  if (const auto at = authority.rfind('@'); at != std::string::npos) authority.erase(0, at + 1);
  if (!authority.empty() && authority.front() == '[')
    return authority.substr(0, authority.find(']') + 1);
  return authority.substr(0, authority.find(':'));
}

std::vector<Variant> parseMasterPlaylist(std::string_view text, const std::string& playlistUrl) {
  std::vector<Variant> variants;
  if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
  if (text.substr(0, 7) != "#EXTM3U") return variants;
  std::optional<Variant> pending;
  while (!text.empty()) {
    const auto eol = text.find('\n');
    const auto line = trim(text.substr(0, eol));
    text.remove_prefix(eol == std::string_view::npos ? text.size() : eol + 1);
    if (line.empty()) continue;
    constexpr std::string_view kStreamInf = "#EXT-X-STREAM-INF:";
    if (line.substr(0, kStreamInf.size()) == kStreamInf) {
      Variant variant;
      forEachAttribute(line.substr(kStreamInf.size()), [&](auto name, auto value) {
        if (name == "BANDWIDTH") {
          variant.bandwidth = number<std::int64_t>(value).value_or(0);
        } else if (name == "RESOLUTION") {
          const auto x = value.find('x');
          if (x == std::string_view::npos) return;
          const auto w = number<int>(value.substr(0, x));
          const auto h = number<int>(value.substr(x + 1));
          if (w && h) {
            variant.width = w;
            variant.height = h;
          }
        } else if (name == "FRAME-RATE") {
          variant.frameRate = decimal(value);
        }
      });
      pending = variant;
    } else if (line.front() != '#' && pending) {
      pending->uri = resolveUrl(playlistUrl, std::string(line));
      variants.push_back(std::move(*pending));
      pending.reset();
    }
  }
  return variants;
}

}  // namespace tav::gstreamer
