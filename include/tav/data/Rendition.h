#pragma once
// Rendition: one entry of a request's rendition list (width and height in pixels,
// bitrate in bits per second). A plain value object: copied, not shared.
//
// Each property is a JSON number (integer or floating point, kept exactly as
// given so that it reaches the beacon unchanged) or absent. A value that is not
// a number is stored as absent. Not synchronised: guard a shared instance yourself.

#include <optional>
#include <utility>

#include "tav/data/TAVSDKQueryData.h"

namespace tav {

class Rendition {
 public:
  /// A JSON number, or nullopt when absent.
  using Number = std::optional<Json>;

  Rendition() = default;
  Rendition(Number width, Number height, Number bitrate);

  [[nodiscard]] const Number& width() const { return _width; }
  void setWidth(Number value) { _width = numberOnly(std::move(value)); }
  [[nodiscard]] const Number& height() const { return _height; }
  void setHeight(Number value) { _height = numberOnly(std::move(value)); }
  [[nodiscard]] const Number& bitrate() const { return _bitrate; }
  void setBitrate(Number value) { _bitrate = numberOnly(std::move(value)); }

  friend bool operator==(const Rendition&, const Rendition&) = default;

 private:
  static Number numberOnly(Number value);

  Number _width;
  Number _height;
  Number _bitrate;
};

}  // namespace tav
