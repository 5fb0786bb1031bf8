#include "examples/web_browser/x11/pixels.h"

#include <algorithm>
#include <cstdint>
#include <limits>

namespace web_browser::x11 {
namespace {

int Times(int length, int scale) {
  const int64_t product = int64_t{length} * scale;
  return static_cast<int>(std::clamp<int64_t>(product,
                                              std::numeric_limits<int>::min(),
                                              std::numeric_limits<int>::max()));
}

int DividedRoundingDown(int length, int scale) {
  const int quotient = length / scale;
  return length % scale < 0 ? quotient - 1 : quotient;
}

}  // namespace

PixelRect Intersect(const PixelRect& one, const PixelRect& other) {
  const int left = std::max(one.x, other.x);
  const int top = std::max(one.y, other.y);
  const int right = std::min(one.right(), other.right());
  const int bottom = std::min(one.bottom(), other.bottom());
  if (left >= right || top >= bottom) {
    return {};
  }
  return {left, top, right - left, bottom - top};
}

PixelRect ToPixels(const DipRect& rect, int scale) {
  return {Times(rect.x, scale), Times(rect.y, scale), Times(rect.width, scale),
          Times(rect.height, scale)};
}

DipRect ToDips(const PixelRect& rect, int scale) {
  return {DividedRoundingDown(rect.x, scale),
          DividedRoundingDown(rect.y, scale),
          DividedRoundingDown(rect.width, scale),
          DividedRoundingDown(rect.height, scale)};
}

}  // namespace web_browser::x11
