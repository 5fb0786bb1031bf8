// Rectangles in X pixels, and their way to and from device-independent pixels
// (DIP), in which clients think.
//
// All of this folder works in X pixels. Only who talks to clients converts, and
// only there, since toolkits round:
//
//   const PixelRect wanted = ToPixels(bounds, scale);
//
// The scale is a whole number, how many X pixels there are to a DIP in each
// direction; X11 toolkits have no fractions.

#ifndef EXAMPLES_WEB_BROWSER_X11_PIXELS_H_
#define EXAMPLES_WEB_BROWSER_X11_PIXELS_H_

namespace web_browser::x11 {

// In X pixels; x and y in the coordinates of the root window.
struct PixelRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  int right() const { return x + width; }
  int bottom() const { return y + height; }
  bool is_empty() const { return width <= 0 || height <= 0; }

  bool operator==(const PixelRect&) const = default;
};

// What both have in common; empty if they have nothing.
PixelRect Intersect(const PixelRect& one, const PixelRect& other);

// In DIP.
struct DipRect {
  int x = 0;
  int y = 0;
  int width = 0;
  int height = 0;

  bool operator==(const DipRect&) const = default;
};

// Exact. What does not fit into an int becomes the nearest that does.
PixelRect ToPixels(const DipRect& rect, int scale);

// Exact for what ToPixels() returns. Otherwise, as for a window that the user
// has put on an odd pixel at scale 2, the position is rounded down, also where
// it is negative, and the size, too.
DipRect ToDips(const PixelRect& rect, int scale);

}  // namespace web_browser::x11

#endif  // EXAMPLES_WEB_BROWSER_X11_PIXELS_H_
