#include "tav/data/Rendition.h"

#include <utility>

namespace tav {

Rendition::Rendition(Number width, Number height, Number bitrate)
    : _width(numberOnly(std::move(width))),
      _height(numberOnly(std::move(height))),
      _bitrate(numberOnly(std::move(bitrate))) {}

Rendition::Number Rendition::numberOnly(Number value) {
  if (value && !value->is_number()) return std::nullopt;
  return value;
}

}  // namespace tav
