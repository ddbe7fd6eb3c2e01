// The draft renderer: its pixels match the cairo renderer's within one pixel
// on simple shapes (exactly for dots and axis-aligned lines), in either
// orientation; nothing is ever written outside the surface or the clip, even
// for coordinates at the int limits; a surface it cannot write is left alone.
// The surface is laid inside a larger buffer whose border must stay untouched.
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <set>
#include <utility>
#include <vector>

#include "backends/cairo/draft_renderer.h"

namespace DL {
namespace {

constexpr ZR_RGB32 kWhite = 0xffffff;
constexpr ZR_RGB32 kRed = 0xff0000;
constexpr ZR_RGB32 kBlue = 0x0000ff;
constexpr int kW = 64, kH = 48;
constexpr int kGuard = 4;  // pixels of border around the surface in the buffer
constexpr std::uint32_t kSentinel = 0x12345678;

using PixelSet = std::set<std::pair<int, int>>;  // (column, row from the top)

// A draft renderer on a kW x kH surface inside a guarded buffer.
struct Draft {
  std::vector<std::uint32_t> buffer;
  cairo_surface_t* surface = nullptr;
  DraftRenderer* r = nullptr;
  ZR_Rendition rendition = ZR_Rendition::create();
  static constexpr int kPitch = kW + 2 * kGuard;

  explicit Draft(DeviceOrientation o = DeviceOrientation::y_up)
      : buffer(static_cast<std::size_t>(kPitch) * (kH + 2 * kGuard), kSentinel) {
    auto* first = reinterpret_cast<unsigned char*>(buffer.data() + kGuard * kPitch + kGuard);
    surface = cairo_image_surface_create_for_data(first, CAIRO_FORMAT_RGB24, kW, kH, kPitch * 4);
    r = new DraftRenderer(surface, o);
    add_ref(r);
    r->clear(kWhite);
    rendition.set_color(kRed, false);
  }
  ~Draft() {
    release(r);
    cairo_surface_destroy(surface);
  }
  ZR_RGB32 at(int column, int row) const {
    return buffer[static_cast<std::size_t>(row + kGuard) * kPitch + column + kGuard] & 0xffffff;
  }
  PixelSet painted() const {
    PixelSet s;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x)
        if (at(x, y) != kWhite) s.insert({x, y});
    return s;
  }
  bool border_untouched() const {
    for (int y = 0; y < kH + 2 * kGuard; ++y)
      for (int x = 0; x < kPitch; ++x) {
        const bool inside = x >= kGuard && x < kGuard + kW && y >= kGuard && y < kGuard + kH;
        if (!inside && buffer[static_cast<std::size_t>(y) * kPitch + x] != kSentinel) return false;
      }
    return true;
  }
};

// The cairo renderer on a picture of the same size.
struct Exact {
  std::unique_ptr<CairoCanvas> canvas;
  ZR_Rendition rendition = ZR_Rendition::create();
  explicit Exact(DeviceOrientation o = DeviceOrientation::y_up) {
    std::string error;
    canvas = CairoCanvas::create(CairoCanvas::Format::png, "", kW, kH, &error, o);
    rendition.set_color(kRed, false);
  }
  CairoRenderer* r() const { return canvas->renderer(); }
  // Pixels touched at all, and pixels covered at least about half.
  PixelSet painted(bool strongly) {
    canvas->renderer()->flush_direct();
    PixelSet s;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x) {
        const ZR_RGB32 c = canvas->pixel(x, y);
        const int green = (c >> 8) & 0xff;  // 255 on white, 0 on red
        if (strongly ? green < 128 : c != kWhite) s.insert({x, y});
      }
    return s;
  }
};

// Whether every pixel of `a` has a pixel of `b` within one step (8 ways).
bool within_one(const PixelSet& a, const PixelSet& b) {
  for (const auto& [x, y] : a) {
    bool near = false;
    for (int dy = -1; dy <= 1 && !near; ++dy)
      for (int dx = -1; dx <= 1 && !near; ++dx) near = b.count({x + dx, y + dy}) > 0;
    if (!near) return false;
  }
  return true;
}

// Runs `draw` on both renderers and compares the pixel sets.
template <class F>
void compare(const char* what, bool exact, F draw, DeviceOrientation o = DeviceOrientation::y_up) {
  SCOPED_TRACE(what);
  Draft d(o);
  Exact e(o);
  draw(*d.r, d.rendition);
  draw(*e.r(), e.rendition);
  const PixelSet dp = d.painted();
  ASSERT_FALSE(dp.empty());
  if (exact) {
    EXPECT_EQ(dp, e.painted(false));
  } else {
    EXPECT_TRUE(within_one(dp, e.painted(false))) << "a draft pixel far from cairo's";
    EXPECT_TRUE(within_one(e.painted(true), dp)) << "a covered pixel the draft misses";
  }
  EXPECT_TRUE(d.border_untouched());
}

TEST(DraftRenderer, MatchesCairoOnSimpleShapes) {
  for (DeviceOrientation o : {DeviceOrientation::y_up, DeviceOrientation::y_down}) {
    compare(
        "dots", true,
        [](ZR_Renderer& r, ZR_Rendition& rd) {
          const ZR_DCI_Point dots[] = {{0, 0, 0}, {63, 47, 0}, {10, 20, 0}, {11, 20, 0}};
          for (const ZR_DCI_Point& p : dots) r.dot_unclipped(&rd, &p, nullptr);
        },
        o);
    compare(
        "axis lines", true,
        [](ZR_Renderer& r, ZR_Rendition& rd) {
          const ZR_DCI_Point h[] = {{5, 10, 0}, {50, 10, 0}};
          const ZR_DCI_Point v[] = {{30, 2, 0}, {30, 40, 0}};
          r.polyline_unclipped(&rd, 2, h);
          r.polyline_clipped(&rd, 2, v);
        },
        o);
    compare(
        "diagonal lines", false,
        [](ZR_Renderer& r, ZR_Rendition& rd) {
          const ZR_DCI_Point a[] = {{3, 4, 0}, {60, 40, 0}, {8, 44, 0}};
          r.polyline_unclipped(&rd, 3, a);
        },
        o);
    compare(
        "triangle", false,
        [](ZR_Renderer& r, ZR_Rendition& rd) {
          const ZR_DCI_Point t[] = {{4, 4, 0}, {58, 10, 0}, {20, 42, 0}};
          r.triangles_unclipped(&rd, 3, t);
        },
        o);
    compare(
        "square with a hole", false,
        [](ZR_Renderer& r, ZR_Rendition& rd) {
          // One contour going round the outside, in and round the hole: even-odd.
          const ZR_DCI_Point p[] = {{10, 5, 0}, {50, 5, 0}, {50, 40, 0}, {10, 40, 0}};
          r.polygon_clipped(&rd, 4, p, nullptr);
          const ZR_DCI_Point q[] = {{20, 15, 0}, {40, 15, 0}, {40, 30, 0}, {20, 30, 0}};
          ZR_RGB32 white = kWhite;
          r.polygon_unclipped(&rd, 4, q, &white);
        },
        o);
  }
  // Orientation: device y up is counted from the bottom row.
  Draft up, down(DeviceOrientation::y_down);
  const ZR_DCI_Point p{3, 5, 0};
  up.r->dot_unclipped(&up.rendition, &p, nullptr);
  down.r->dot_unclipped(&down.rendition, &p, nullptr);
  EXPECT_EQ(up.at(3, kH - 1 - 5), kRed);
  EXPECT_EQ(down.at(3, 5), kRed);
}

TEST(DraftRenderer, ColoursArcsMarkersAndText) {
  Draft d;
  // A Gouraud segment takes its first vertex's colour; a strip its first vertex's.
  const ZR_DCI_Point line[] = {{2, 2, 0}, {20, 2, 0}, {20, 12, 0}};
  const ZR_RGB32 colors[] = {kBlue, 0x00ff00, kRed};
  d.r->gouraud_polyline_unclipped(&d.rendition, 3, line, colors);
  EXPECT_EQ(d.at(10, kH - 1 - 2), kBlue);
  EXPECT_EQ(d.at(20, kH - 1 - 8), 0x00ff00u);
  const ZR_DCI_Point strip[] = {{30, 2, 0}, {60, 2, 0}, {30, 20, 0}, {60, 20, 0}};
  const ZR_RGB32 strip_colors[] = {kBlue, kRed, 0x00ff00, kRed};
  d.r->gouraud_triangles_clipped(&d.rendition, 4, strip, strip_colors);
  EXPECT_EQ(d.at(35, kH - 1 - 5), kBlue);
  EXPECT_EQ(d.at(55, kH - 1 - 17), kRed);

  // A circle of radius 10: its outline, not its inside; a pie is filled.
  Draft e;
  const ZR_DCI_Point c{20, 20, 0}, r{10, 10, 0};
  e.r->elliptical_arc_unclipped(&e.rendition, &c, &r, 0, 6.3, 0, nullptr);
  EXPECT_EQ(e.at(30, kH - 1 - 20), kRed);
  EXPECT_EQ(e.at(20, kH - 1 - 30), kRed);
  EXPECT_EQ(e.at(20, kH - 1 - 20), kWhite);
  const ZR_DCI_Point c2{48, 20, 0};
  ZR_RGB32 blue = kBlue;
  e.r->elliptical_pie_clipped(&e.rendition, &c2, &r, 0, 1.5, 0, &blue);
  EXPECT_EQ(e.at(52, kH - 1 - 24), kBlue);  // inside the first quadrant
  EXPECT_EQ(e.at(44, kH - 1 - 16), kWhite);

  // A marker is a cross five pixels across.
  Draft m;
  const ZR_DCI_Point mark{10, 10, 0};
  m.r->polymarker_unclipped(&m.rendition, 1, &mark);
  EXPECT_EQ(m.painted().size(), 9u);
  EXPECT_EQ(m.at(12, kH - 1 - 12), kRed);
  EXPECT_EQ(m.at(8, kH - 1 - 12), kRed);

  // Glyph contours around an origin, filled even-odd.
  Draft t;
  ZR_Contour_Set glyph = ZR_Contour_Set::make({{{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}},
                                               {{3, 3, 0}, {7, 3, 0}, {7, 7, 0}, {3, 7, 0}}});
  t.r->paint_contours(&t.rendition, {20, 20, 0}, *glyph, nullptr, true);
  EXPECT_EQ(t.at(21, kH - 1 - 21), kRed);
  EXPECT_EQ(t.at(25, kH - 1 - 25), kWhite);
  EXPECT_EQ(t.at(35, kH - 1 - 25), kWhite);
}

TEST(DraftRenderer, NeverWritesOutsideTheSurfaceOrTheClip) {
  Draft d;
  const int lo = INT_MIN, hi = INT_MAX;
  // Lines off every edge, across the whole plane, and wholly outside.
  const ZR_DCI_Point across[] = {{lo, lo, 0}, {hi, hi, 0}, {lo, hi, 0}, {hi, lo, 0}};
  d.r->polyline_unclipped(&d.rendition, 4, across);
  const ZR_DCI_Point off[] = {{-5, 10, 0}, {70, 10, 0}, {70, -9, 0}, {lo, -9, 0}};
  d.r->polyline_clipped(&d.rendition, 4, off);
  EXPECT_EQ(d.at(0, kH - 1 - 10), kRed);
  EXPECT_EQ(d.at(kW - 1, kH - 1 - 10), kRed);
  // The main diagonal crosses the picture: some pixels of it show.
  EXPECT_EQ(d.at(20, kH - 1 - 20), kRed);
  // Fills, ellipses, markers, images at the limits.
  const ZR_DCI_Point huge[] = {{lo, lo, 0}, {hi, lo, 0}, {0, hi, 0}};
  ZR_RGB32 blue = kBlue;
  d.r->polygon_unclipped(&d.rendition, 3, huge, &blue);
  EXPECT_EQ(d.at(kW / 2, kH / 2), kBlue);
  const ZR_DCI_Point corner{lo, hi, 0}, radii{hi, lo, 0};
  d.r->elliptical_pie_unclipped(&d.rendition, &corner, &radii, 0, 7, 0, nullptr);
  d.r->elliptical_arc_clipped(&d.rendition, &corner, &radii, -1e300, 1e300, 1e300, nullptr);
  const ZR_DCI_Point marks[] = {{0, 0, 0}, {kW - 1, kH - 1, 0}, {lo, hi, 0}};
  d.r->polymarker_clipped(&d.rendition, 3, marks);
  ZR_Image image(new ZR_Image_Data);
  image->width = 100;
  image->height = 100;
  image->pixels.assign(100 * 100, 0x00ff00);
  const ZR_DCI_Point at_image{-50, 10, 0}, far_image{hi, hi, 0};
  d.r->image_unclipped(&d.rendition, &at_image, &image);
  d.r->image_clipped(&d.rendition, &far_image, &image);
  EXPECT_EQ(d.at(49, kH - 1), 0x00ff00u);
  EXPECT_EQ(d.at(50, kH - 1), kBlue);
  EXPECT_TRUE(d.border_untouched());

  // The hard clip: a box, one pixel, nothing; unclipped entries ignore it.
  const ZR_DCI_Point square[] = {{lo, lo, 0}, {hi, lo, 0}, {hi, hi, 0}, {lo, hi, 0}};
  Draft box;
  box.rendition.set_hard_clip({10, 19, 5, 9}, false);
  box.r->polygon_clipped(&box.rendition, 4, square, nullptr);
  EXPECT_EQ(box.painted().size(), 10u * 5u);
  EXPECT_EQ(box.at(10, kH - 1 - 5), kRed);
  EXPECT_EQ(box.at(19, kH - 1 - 9), kRed);
  Draft one;
  one.rendition.set_hard_clip({7, 7, 3, 3}, false);
  one.r->polyline_clipped(&one.rendition, 4, across);
  one.r->triangles_clipped(&one.rendition, 4, square);
  one.r->polygon_clipped(&one.rendition, 4, square, nullptr);
  EXPECT_EQ(one.painted(), (PixelSet{{7, kH - 1 - 3}}));
  Draft none;
  none.rendition.set_hard_clip({20, 10, 5, 9}, false);
  none.r->polygon_clipped(&none.rendition, 4, square, nullptr);
  none.r->polyline_clipped(&none.rendition, 4, across);
  none.r->polymarker_clipped(&none.rendition, 3, marks);
  EXPECT_TRUE(none.painted().empty());
  none.r->dot_unclipped(&none.rendition, &marks[0], nullptr);
  EXPECT_EQ(none.painted().size(), 1u);
  none.rendition.set_hard_clip({lo, hi, lo, hi}, false);
  none.r->polygon_clipped(&none.rendition, 4, square, nullptr);
  EXPECT_EQ(none.painted().size(), static_cast<std::size_t>(kW) * kH);
  EXPECT_TRUE(box.border_untouched() && one.border_untouched() && none.border_untouched());
}

TEST(DraftRenderer, CutsToTheComplexClipsBoxAndLeavesOtherSurfacesAlone) {
  Draft d;
  ZR_Contour_Set clip = ZR_Contour_Set::make({{{10, 10, 0}, {30, 10, 0}, {20, 25, 0}}});
  d.rendition.set_complex_clip(&clip, false);
  const ZR_DCI_Point square[] = {{0, 0, 0}, {kW, 0, 0}, {kW, kH, 0}, {0, kH, 0}};
  d.r->polygon_unclipped(&d.rendition, 4, square, nullptr);
  EXPECT_EQ(d.painted().size(), 21u * 16u);
  EXPECT_EQ(d.at(10, kH - 1 - 25), kRed);  // a corner of the box, outside the triangle
  EXPECT_EQ(d.at(9, kH - 1 - 25), kWhite);

  cairo_surface_t* recording = cairo_recording_surface_create(CAIRO_CONTENT_COLOR, nullptr);
  auto* r = new DraftRenderer(recording);
  add_ref(r);
  EXPECT_FALSE(r->ok());
  r->clear(kWhite);
  r->polygon_unclipped(&d.rendition, 4, square, nullptr);  // nothing to write: no crash
  release(r);
  cairo_surface_destroy(recording);
}

}  // namespace
}  // namespace DL
