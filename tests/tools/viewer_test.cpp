// The viewer's pieces on real output: a view drawn under a complex clip gives
// the same picture whether the cairo renderer clips to it or the library's
// classification does; the demo drawing holds every drawable class; picking
// finds the drawable on top.
#include <gtest/gtest.h>

#include <cmath>
#include <map>
#include <string>

#include "backends/cairo/cairo_picker.h"
#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/cairo_text.h"
#include "backends/freetype/freetype_engine.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "drawables/polything.h"
#include "ellipse/ellipse.h"
#include "tests/support/fontconfig_leaks.h"
#include "tests/support/tree_check.h"
#include "tools/demo_drawing.h"

namespace dlview {
namespace {

constexpr int kW = 160, kH = 120;

// A grid of squares, lines and rings over the world 0..16000 square.
void fill_grid(DL::DisplayList& list) {
  for (int y = 0; y < 40; ++y)
    for (int x = 0; x < 40; ++x) {
      const int x0 = x * 400, y0 = y * 400;
      const DL::WorldPoint sq[] = {{x0, y0}, {x0 + 300, y0}, {x0 + 300, y0 + 300}, {x0, y0 + 300}};
      list.add(new DL::Polygon(static_cast<ZR_RGB32>(0x203040 + 0x400 * x + 0x40000 * y), 4, sq),
               {{x0, y0}, {x0 + 300, y0 + 300}});
      const DL::WorldPoint line[] = {{x0, y0 + 350}, {x0 + 390, y0 + 390}};
      list.add(new DL::Polyline(0x000000, 2, line), {{x0, y0 + 350}, {x0 + 390, y0 + 390}});
      auto* ring = new DL::Ellipse(0xc00000, {x0 + 150, y0 + 150}, {120, 90}, 0.0f, &list);
      DL::WorldBounds b = DL::WorldBounds::empty();
      ring->add_bounds(b);
      list.add(ring, b);
    }
}

// Renders the list's view under `clip` (screen units) with the renderer's
// complex-clip support `on` or off.
std::unique_ptr<DL::CairoCanvas> draw(DL::DisplayList& list, const ZR_Contour_Set& clip, bool on) {
  std::string error;
  auto canvas = DL::CairoCanvas::create(DL::CairoCanvas::Format::png, "", kW, kH, &error);
  EXPECT_TRUE(canvas) << error;
  canvas->renderer()->set_complex_clip_supported(on);
  list.complex_clip_supported = on;
  list.set_renderer(canvas->renderer());
  list.set_screen_bounds({{0, 0}, {kW - 1, kH - 1}});
  list.rendition.set_hard_clip({0, kW - 1, 0, kH - 1}, false);
  list.rendition.set_complex_clip(&clip, false);
  list.rendition.validate_hard_complex_clip();
  list.draw_view();
  list.set_renderer(nullptr);
  return canvas;
}

ZR_Contour_Set star(double cx, double cy, double r, int points) {
  std::vector<ZR_Point> c;
  for (int i = 0; i < 2 * points; ++i) {
    const double a = 3.14159265358979 * i / points + 0.3;
    const double radius = i % 2 ? r * 0.45 : r;
    c.push_back({static_cast<float>(cx + radius * std::cos(a)),
                 static_cast<float>(cy + radius * std::sin(a)), 0.0f});
  }
  return ZR_Contour_Set::make({c});
}

int channel_difference(ZR_RGB32 a, ZR_RGB32 b) {
  int d = 0;
  for (int shift : {0, 8, 16})
    d = std::max(
        d, std::abs(static_cast<int>((a >> shift) & 0xff) - static_cast<int>((b >> shift) & 0xff)));
  return d;
}

TEST(Viewer, ComplexClipGivesTheSamePictureOnAndOff) {
  DL::DisplayList list(nullptr, 16);  // small groups: the classification has work to do
  fill_grid(list);
  ASSERT_TRUE(DL::test::tree_is_valid(list, nullptr));
  // Whole view, a zoom and a view across the world's edge; star and circle.
  const DL::WorldBounds views[] = {
      {{0, 0}, {16000, 12000}}, {{3000, 2000}, {7000, 5000}}, {{-4000, -3000}, {8000, 6000}}};
  const ZR_Contour_Set clips[] = {star(80, 60, 55, 5), star(80, 60, 50, 64), star(30, 100, 70, 3)};
  for (const auto& view : views) {
    for (const auto& clip : clips) {
      list.set_world_bounds(view);
      auto on = draw(list, clip, true);
      auto off = draw(list, clip, false);
      // Inside the clip both agree up to antialiased edges; outside the
      // library draws whole primitives that cross it, so compare only pixels
      // at least two pixels inside the clip contour.
      int compared = 0, differ = 0, painted = 0;
      for (int y = 2; y < kH - 2; ++y)
        for (int x = 2; x < kW - 2; ++x) {
          bool deep = true;
          for (int dy = -2; dy <= 2 && deep; ++dy)
            for (int dx = -2; dx <= 2 && deep; ++dx)
              deep = clip->point_inside(static_cast<float>(x + dx), static_cast<float>(y + dy));
          if (!deep) continue;
          ++compared;
          const ZR_RGB32 a = on->pixel(x, kH - 1 - y), b = off->pixel(x, kH - 1 - y);
          if (a != 0xffffff) ++painted;
          if (channel_difference(a, b) > 48) ++differ;
        }
      ASSERT_GT(compared, 100);
      EXPECT_GT(painted, compared / 10);
      EXPECT_LE(differ, compared / 200) << "view " << view.min.x << "," << view.min.y;
    }
  }
}

TEST(Viewer, DemoDrawingHoldsEveryClassAndPicks) {
  auto* freetype = new DL::FreeTypeTextEngine;
  ZR_Handle<ZR_Text_Engine> hold(freetype);
  ASSERT_TRUE(freetype->ok());
  DemoDrawing demo(freetype);
  DL::DisplayList list;
  DemoOptions options;
  options.blocks_per_side = 6;
  demo.build(list, options);
  const std::size_t built = demo.built();
  demo.insert(list);
  EXPECT_EQ(demo.built(), 0u);
  ASSERT_TRUE(DL::test::tree_is_valid(list, nullptr));
  std::map<std::string, int> counts;
  for (const DL::Drawable* d : DL::test::drawables_in_order(list.root)) ++counts[class_name(d)];
  std::size_t total = 0;
  for (const auto& [name, n] : counts) total += static_cast<std::size_t>(n);
  EXPECT_EQ(total, built);
  for (const char* name : class_names()) EXPECT_GT(counts[name], 0) << name;
  EXPECT_EQ(counts["unknown"], 0);
  // Deterministic: a second build makes the same drawing.
  DL::DisplayList again;
  DemoDrawing demo2(freetype);
  demo2.build(again, options);
  EXPECT_EQ(demo2.built(), built);

  // Pick on a street: the street's polyline is on top there (drawn after
  // nothing else covers that point).
  auto* painter = new DL::CairoTextPainter(freetype);
  ZR_Handle<ZR_Text_Engine> hold_painter(painter);
  add_ref(painter);
  list.text_engine = painter;
  std::string error;
  auto canvas = DL::CairoCanvas::create(DL::CairoCanvas::Format::png, "", 400, 400, &error);
  ASSERT_TRUE(canvas);
  list.set_renderer(canvas->renderer());
  list.set_screen_bounds({{0, 0}, {399, 399}});
  const DL::WorldPoint p = demo.street_point();
  list.set_world_bounds({{p.x - 200000, p.y - 200000}, {p.x + 200000, p.y + 200000}});
  auto* picker = new DL::CairoPicker;
  ZR_Handle<DL::CairoPicker> hold_picker(picker);
  const DL::Drawable* hit = picker->pick(list, 200, 200);
  ASSERT_NE(hit, nullptr);
  EXPECT_STREQ(class_name(hit), "Polyline");
  EXPECT_EQ(list.selector, nullptr);
  // Nothing far off the drawing.
  list.set_world_bounds({{-900000, -900000}, {-500000, -500000}});
  EXPECT_EQ(picker->pick(list, 200, 200), nullptr);
  // The layer turned off is not picked.
  list.set_world_bounds({{p.x - 200000, p.y - 200000}, {p.x + 200000, p.y + 200000}});
  demo.layer("streets")->shown = 0;
  const DL::Drawable* under = picker->pick(list, 200, 200);
  EXPECT_TRUE(!under || std::string(class_name(under)) != "Polyline");
  list.set_renderer(nullptr);
}

}  // namespace
}  // namespace dlview
