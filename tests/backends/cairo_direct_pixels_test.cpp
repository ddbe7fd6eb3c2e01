// The pixel routines under the cairo renderer's direct writes, against plain
// per-pixel and per-channel forms of the rules their header states: the
// blend two channels at a time against pixman's arithmetic channel by
// channel, the Gouraud triangle's row spans against the test of every centre
// of its box, and a shape's coverage blended through a window narrower than
// its box against the same shape blended whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

#include "backends/cairo/coverage_p.h"
#include "backends/cairo/direct_pixels_p.h"

namespace DL::cairo_detail {
namespace {

// A picture of w by h pixels and a window over all of it.
struct Picture {
  int w, h;
  std::vector<std::uint32_t> pixels;
  Picture(int width, int height, std::uint32_t fill)
      : w(width), h(height), pixels(static_cast<std::size_t>(width) * height, fill) {}
  PixelWindow window(int x0, int y0, int x1, int y1) {
    PixelWindow out;
    out.data = reinterpret_cast<unsigned char*>(pixels.data());
    out.stride = 4 * w;
    out.x0 = x0, out.y0 = y0, out.x1 = x1, out.y1 = y1;
    return out;
  }
  std::uint32_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * w + x]; }
};

// Pixman's OVER of an opaque source through coverage a, channel by channel.
std::uint32_t blend_reference(std::uint32_t pixel, std::uint32_t source, std::uint32_t a) {
  if (a >= 255) return source;
  std::uint32_t out = 0;
  for (int shift = 0; shift < 32; shift += 8)
    out |= (mul_un8((source >> shift) & 0xff, a) + mul_un8((pixel >> shift) & 0xff, 255 - a))
           << shift;
  return out;
}

TEST(CairoDirectPixels, BlendTwoChannelsAtOnceIsPixmansArithmetic) {
  std::mt19937 rng(7);
  std::vector<std::uint32_t> words = {0,           0xffffffffu, 0xff000000u,
                                      0x00ffffffu, 0xff00ff00u, 0x00ff00ffu};
  for (int i = 0; i < 600; ++i) words.push_back(static_cast<std::uint32_t>(rng()));
  for (std::uint32_t pixel : words)
    for (std::uint32_t color :
         {0x000000u, 0xffffffu, 0x7f80ffu, static_cast<std::uint32_t>(rng())}) {
      const std::uint32_t source = 0xff000000u | (color & 0xffffffu);
      for (std::uint32_t a = 0; a <= 255; ++a)
        ASSERT_EQ(blend_pixel(pixel, source, a), blend_reference(pixel, source, a))
            << std::hex << pixel << " " << source << " " << std::dec << a;
    }
  std::uint32_t row[7] = {};
  fill_pixels(row + 1, 5, 0xff123456u);
  EXPECT_EQ(row[0], 0u);
  for (int i = 1; i < 6; ++i) EXPECT_EQ(row[i], 0xff123456u);
  EXPECT_EQ(row[6], 0u);
}

// Gouraud triangles (slivers, right angles on the grid, corners on pixel
// centres, reaching out of the window) filled a row span at a time: exactly
// the pixels whose centres the header's test puts inside, each within a
// level of the colour interpolated there.
TEST(CairoDirectPixels, GouraudSpansAreTheCentresInside) {
  constexpr int kW = 53, kH = 41;
  std::mt19937 rng(11);
  std::uniform_real_distribution<double> coord(-12, 60);
  std::uniform_int_distribution<int> whole(-3, 55);
  for (int round = 0; round < 400; ++round) {
    double x[3], y[3];
    for (int k = 0; k < 3; ++k) {
      const bool grid = round % 3 == 0;
      x[k] = grid ? whole(rng) : coord(rng);
      y[k] = grid ? whole(rng) : coord(rng);
    }
    if (round % 7 == 0) x[2] = x[0] + (x[1] - x[0]) * 0.5, y[2] = y[0] + (y[1] - y[0]) * 0.5 + 0.3;
    const ZR_RGB32 colors[3] = {static_cast<ZR_RGB32>(rng() & 0xffffff),
                                static_cast<ZR_RGB32>(rng() & 0xffffff),
                                static_cast<ZR_RGB32>(rng() & 0xffffff)};
    const int x0 = round % 2 ? 4 : 0, y0 = round % 2 ? 3 : 0;
    const int x1 = round % 2 ? 40 : kW, y1 = round % 2 ? 30 : kH;
    Picture picture(kW, kH, 0x00abcdefu);
    fill_gouraud_triangle(picture.window(x0, y0, x1, y1), x, y, colors);
    const double area = (x[1] - x[0]) * (y[2] - y[0]) - (y[1] - y[0]) * (x[2] - x[0]);
    for (int py = 0; py < kH; ++py)
      for (int px = 0; px < kW; ++px) {
        double w[3];
        bool inside = area != 0 && px >= x0 && px < x1 && py >= y0 && py < y1;
        for (int k = 0; k < 3 && inside; ++k) {
          const int i = (k + 1) % 3, j = (k + 2) % 3;
          const double a = (y[i] - y[j]) / area, b = (x[j] - x[i]) / area;
          const double c = (x[i] * y[j] - x[j] * y[i]) / area;
          w[k] = a * px + b * py + c;
          inside = w[k] >= -1e-9;
        }
        const std::uint32_t got = picture.at(px, py);
        if (!inside) {
          ASSERT_EQ(got, 0x00abcdefu) << "round " << round << " pixel " << px << "," << py;
          continue;
        }
        ASSERT_EQ(got >> 24, 0xffu) << "round " << round << " pixel " << px << "," << py;
        for (int ch = 0; ch < 3; ++ch) {
          double v = 0;
          for (int k = 0; k < 3; ++k) v += w[k] * ((colors[k] >> (16 - 8 * ch)) & 0xff);
          const int want = static_cast<int>(std::clamp(v + 0.5, 0.0, 255.0));
          ASSERT_LE(std::abs(int((got >> (16 - 8 * ch)) & 0xff) - want), 1)
              << "round " << round << " pixel " << px << "," << py;
        }
      }
  }
}

// A shape whose box the window cuts on every side (thin strokes and a ring,
// as the direct lines and arcs build them): inside the window the pixels of
// the same shape blended through the whole picture, outside it nothing.
TEST(CairoDirectPixels, CoverageThroughANarrowWindowIsTheWholeShapeCut) {
  constexpr int kW = 47, kH = 39;
  auto shape = [](Coverage& c) {
    const double ax[4] = {2.3, 44.1, 45.0, 3.0}, ay[4] = {4.6, 30.2, 33.1, 6.5};
    c.add_polygon(ax, ay, 4);
    const double bx[3] = {-5.0, 20.5, 30.25}, by[3] = {36.0, -4.0, 37.5};
    c.add_polygon(bx, by, 3);
  };
  Picture whole(kW, kH, 0xff204060u), cut(kW, kH, 0xff204060u);
  Coverage c;
  c.begin(0, 0, kW, kH);
  shape(c);
  c.blend(whole.window(0, 0, kW, kH), 0xe0a010);
  const int x0 = 9, y0 = 7, x1 = 31, y1 = 25;
  c.begin(0, 0, kW, kH);  // the box wider than the window, as a clipped entry's may be
  shape(c);
  c.blend(cut.window(x0, y0, x1, y1), 0xe0a010);
  int painted = 0;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const bool in = x >= x0 && x < x1 && y >= y0 && y < y1;
      ASSERT_EQ(cut.at(x, y), in ? whole.at(x, y) : 0xff204060u) << x << "," << y;
      painted += in && whole.at(x, y) != 0xff204060u;
    }
  EXPECT_GT(painted, 40);
  // Blending cleared the areas: the next shape starts from nothing.
  Picture again(kW, kH, 0xff204060u);
  c.begin(0, 0, kW, kH);
  c.blend(again.window(0, 0, kW, kH), 0);
  EXPECT_TRUE(std::all_of(again.pixels.begin(), again.pixels.end(),
                          [](std::uint32_t p) { return p == 0xff204060u; }));
}

// A ramp blended through a shape that covers its pixels whole: each pixel
// the colour of the ramp at its centre's projection on the ramp, held at
// its ends, within rounding; outside the shape nothing changes.
TEST(CairoDirectPixels, RampColoursAreTheProjectionOfTheCentre) {
  constexpr int kW = 40, kH = 30;
  Picture picture(kW, kH, 0xff000000u);
  Coverage c;
  c.begin(0, 0, kW, kH);
  const double x[4] = {2.5, 37.5, 37.5, 2.5}, y[4] = {3.5, 3.5, 25.5, 25.5};  // pixels 3..37, 4..25
  c.add_polygon(x, y, 4);
  const double ax = 8, ay = 10, bx = 30, by = 20;
  const ZR_RGB32 from = 0x10e080, to = 0xf02040;
  c.blend_ramp(picture.window(0, 0, kW, kH), ax, ay, bx, by, from, to);
  for (int py = 0; py < kH; ++py)
    for (int px = 0; px < kW; ++px) {
      const std::uint32_t got = picture.at(px, py);
      if (px < 3 || px > 37 || py < 4 || py > 25) {
        ASSERT_EQ(got, 0xff000000u) << px << "," << py;
        continue;
      }
      const double t = std::clamp(((px - ax) * (bx - ax) + (py - ay) * (by - ay)) /
                                      ((bx - ax) * (bx - ax) + (by - ay) * (by - ay)),
                                  0.0, 1.0);
      for (int shift : {0, 8, 16}) {
        const double want = ((from >> shift) & 0xff) * (1 - t) + ((to >> shift) & 0xff) * t;
        ASSERT_LE(std::abs(double((got >> shift) & 0xff) - want), 0.51) << px << "," << py;
      }
    }
}

}  // namespace
}  // namespace DL::cairo_detail
