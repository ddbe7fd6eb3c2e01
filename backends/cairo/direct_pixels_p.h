// Writing straight into the pixels of a 32-bit image surface: what the cairo
// renderer does instead of calling cairo for marks small and simple enough
// that a call costs far more than the pixels (see cairo_renderer.h for when it
// may, and what each entry then gives). Not installed.
//
// Pixels are 32-bit words, premultiplied ARGB (RGB24 ignores the alpha byte).
// Positions are in pixel units with (0, 0) the centre of the top-left pixel,
// so a device point lands on a whole position.
#pragma once

#include <cairo.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

#include "foundation/rendering.h"

namespace DL::cairo_detail {

// The pixels an entry may write: the target's rows, where the picture's
// pixels lie in them, and the window of the picture that the target and the
// entry's hard clip leave (columns x0 to x1, rows y0 to y1, half-open, in the
// picture's pixels). Empty when nothing shows.
struct PixelWindow {
  unsigned char* data = nullptr;  // the target's first row
  int stride = 0;                 // bytes from one row to the next
  int dx = 0, dy = 0;             // the target's pixel of picture pixel (x, y): (x + dx, y + dy)
  int x0 = 0, y0 = 0;             // first column and row that may be written
  int x1 = 0, y1 = 0;             // one past the last
  bool empty() const { return x0 >= x1 || y0 >= y1; }
  // The target's pixel of picture pixel (x, y), which must lie in the window.
  std::uint32_t* at(long long x, long long y) const {
    return reinterpret_cast<std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y + dy) * stride) +
           (x + dx);
  }
};

// a * b / 255, rounded as pixman's MUL_UN8.
inline std::uint32_t mul_un8(std::uint32_t a, std::uint32_t b) {
  const std::uint32_t t = a * b + 0x80;
  return ((t >> 8) + t) >> 8;
}

// mul_un8 of each of the two channels in the low bytes of the 16-bit halves
// of `pair` (0x00XX00YY) by `a`, both at once: each half holds at most
// 255 * 255 + 0x80 + 0xff, so nothing carries from one into the other, and
// each gives what mul_un8 gives (pixman's UN8_rb_MUL_UN8).
inline std::uint32_t mul_un8_pair(std::uint32_t pair, std::uint32_t a) {
  std::uint32_t t = pair * a + 0x00800080u;
  t += (t >> 8) & 0x00ff00ffu;
  return (t >> 8) & 0x00ff00ffu;
}

// The opaque `source` blended into `pixel` through coverage `a` (0 to 255):
// each channel source * a + pixel * (1 - a), in pixman's 8-bit arithmetic
// (mul_un8 of each term), two channels at a time. Each channel's sum stays
// within 255 (mul_un8 grows with its first argument, so it is at most
// mul_un8(255, a) + mul_un8(255, 255 - a) = 255): no carry between channels.
inline std::uint32_t blend_pixel(std::uint32_t pixel, std::uint32_t source, std::uint32_t a) {
  if (a >= 255) return source;
  const std::uint32_t rest = 255 - a;
  const std::uint32_t rb =
      mul_un8_pair(source & 0x00ff00ffu, a) + mul_un8_pair(pixel & 0x00ff00ffu, rest);
  const std::uint32_t ag =
      mul_un8_pair((source >> 8) & 0x00ff00ffu, a) + mul_un8_pair((pixel >> 8) & 0x00ff00ffu, rest);
  return rb | (ag << 8);
}

// Sets the `count` pixels from `pixels` on to `color`, four at a time where
// it can (a plain loop of 32-bit stores is not vectorized at -O2, and the
// inside of a filled polygon is most of its cost).
inline void fill_pixels(std::uint32_t* pixels, std::ptrdiff_t count, std::uint32_t color) {
  const std::uint32_t quad[4] = {color, color, color, color};
  for (; count >= 4; count -= 4, pixels += 4) std::memcpy(pixels, quad, sizeof quad);
  for (; count > 0; --count) *pixels++ = color;
}

// A square of coverage (0 transparent, 255 covered), 2 * radius + 1 pixels
// across, centred on its middle pixel: the antialiased coverage cairo gives a
// small mark drawn about a pixel centre. Since device points are whole pixel
// centres, every copy of the mark covers its pixels alike, so the coverage is
// found once and blended at each point.
struct Stamp {
  int radius = 0;
  std::vector<unsigned char> coverage;  // row by row, top first
};

// The coverage of the polymarker's cross (two diagonals from -2 to +2, one
// unit wide, square caps), stroked by cairo under `antialias`.
Stamp marker_stamp(cairo_antialias_t antialias);

// Blends the opaque `color` into the pixels of `window` under `stamp` centred
// on (column, row), as cairo's OVER through that coverage does: each channel
// becomes color * a + pixel * (1 - a) in 8-bit arithmetic, rounded as pixman
// rounds. Positions may lie anywhere; only the window's pixels are touched.
void blend_stamp(const PixelWindow& window, long long column, long long row, const Stamp& stamp,
                 ZR_RGB32 color);

// Fills the triangle (x[k], y[k]) with the colours of its corners
// interpolated linearly, without antialiasing: every pixel of the window whose
// centre lies in the triangle (edges included) takes the colour interpolated
// at that centre, opaque. A triangle of no area fills nothing. Positions may
// lie anywhere (only the window is scanned).
void fill_gouraud_triangle(const PixelWindow& window, const double x[3], const double y[3],
                           const ZR_RGB32 colors[3]);

// The most corners `fill_grid_polygon` takes.
constexpr int kMaxGridCorners = 16;

// Fills the polygon of `count` corners (x[k], y[k]), whole positions, whose
// every edge (the closing one too) runs along the grid, by the even-odd rule,
// with the opaque `color`, antialiased as cairo's fill of it is: such a
// polygon splits each pixel along the lines through its centre into quarters
// wholly inside or outside, and a pixel with q quarters inside is covered
// 64 * q (255 for all four), blended as `blend_stamp` blends. Only the
// window's pixels are touched; the cost is rows times edges, plus the pixels
// of its edges (its inside is filled a row span at a time). More than
// kMaxGridCorners corners: nothing is drawn (the caller keeps to that).
void fill_grid_polygon(const PixelWindow& window, int count, const long long* x, const long long* y,
                       ZR_RGB32 color);

}  // namespace DL::cairo_detail
