#include "displaylist/display_list.h"

#include <gtest/gtest.h>

#include "backends/recording/recording.h"

namespace DL {
namespace {

constexpr int kIntMin = PointTemplate<int>::scalarMinimum;
constexpr int kIntMax = PointTemplate<int>::scalarMaximum;

TEST(View, TransformsFollowWorldAndScreen) {
  DisplayList list;
  list.set_world_bounds({{0, 0}, {1000, 2000}});
  list.set_screen_bounds({{0, 0}, {100, 100}});
  EXPECT_DOUBLE_EQ(list.scale.x, 0.1);
  EXPECT_DOUBLE_EQ(list.scale.y, 0.05);
  EXPECT_DOUBLE_EQ(list.offset.x, 0.0);
  // One pixel grown on every side, carried back to the world.
  EXPECT_EQ(list.visible_bounds, (WorldBounds{{-10, -20}, {1010, 2020}}));

  // The min corners meet; aspect_ratio stretches y away from them.
  list.set_world_bounds({{500, 500}, {1500, 1500}});
  ZR_DCI_Point p;
  list.world_to_screen({500, 500}, p);
  EXPECT_EQ(p, (ZR_DCI_Point{0, 0, 0}));
  list.world_to_screen({1500, 1000}, p);
  EXPECT_EQ(p, (ZR_DCI_Point{100, 50, 0}));
}

TEST(View, RefusedRectanglesKeepTheTransform) {
  DisplayList list;
  list.set_world_bounds({{0, 0}, {100, 100}});
  list.set_screen_bounds({{0, 0}, {200, 200}});
  const DoublePoint scale = list.scale;
  const WorldBounds visible = list.visible_bounds;

  // Inverted x on the screen: stored, device bounds follow, transform stays.
  list.set_screen_bounds({{300, 0}, {100, 200}});
  EXPECT_EQ(list.screen_bounds.min.x, 300);
  EXPECT_EQ(list.device_bounds.min.x, 300);
  EXPECT_EQ(list.scale, scale);
  EXPECT_EQ(list.visible_bounds, visible);

  // The empty world rectangle passes is_valid but not the x test.
  list.set_screen_bounds({{0, 0}, {200, 200}});
  list.set_world_bounds(WorldBounds::empty());
  EXPECT_EQ(list.scale, scale);

  // Inverted y with ordered x is accepted and mirrors y.
  list.set_world_bounds({{0, 0}, {100, 100}});
  list.set_screen_bounds({{0, 200}, {200, 0}});
  EXPECT_DOUBLE_EQ(list.scale.y, -2.0);
  EXPECT_DOUBLE_EQ(list.offset.y, 200.0);
}

TEST(View, DeviceBoundsTruncateAndAreNotRecomputedForEqualScreens) {
  DisplayList list;
  list.device_factor = {0.5, 0.5};
  list.set_screen_bounds({{-3, -3}, {3, 3}});
  EXPECT_EQ(list.device_bounds, (ScreenBounds{{-1, -1}, {1, 1}}));
  list.device_factor = {2.0, 2.0};
  list.set_screen_bounds({{-3, -3}, {3, 3}});  // the same bounds: nothing happens
  EXPECT_EQ(list.device_bounds, (ScreenBounds{{-1, -1}, {1, 1}}));
}

TEST(View, VisibleBoundsDoNotWrapAtTheEnds) {
  DisplayList list;
  list.set_world_bounds({{0, 0}, {1000, 1000}});
  list.set_screen_bounds({{kIntMin, 0}, {kIntMax, 1000}});
  // The x edges stay at the ends of the scale instead of wrapping around.
  EXPECT_LE(list.visible_bounds.min.x, list.visible_bounds.max.x);
}

// The device transform beside the screen one, with a device factor and an
// aspect ratio other than 1: both transforms stretch y by the aspect ratio,
// the device one maps onto the device bounds, and the visible rectangle comes
// from the screen transform.
TEST(View, DeviceTransformAndAspectRatioOtherThanOne) {
  DisplayList list;
  list.device_factor = {2.0, 3.0};
  list.aspect_ratio = 1.5;
  list.set_world_bounds({{-500, 1000}, {500, 3000}});
  list.set_screen_bounds({{10, 20}, {110, 120}});
  EXPECT_EQ(list.device_bounds, (ScreenBounds{{20, 60}, {220, 360}}));
  EXPECT_DOUBLE_EQ(list.scale.x, 0.1);             // 100 / 1000
  EXPECT_DOUBLE_EQ(list.scale.y, 0.075);           // 100 * 1.5 / 2000
  EXPECT_DOUBLE_EQ(list.offset.x, 60.0);           // 10 + 0.1 * 500
  EXPECT_DOUBLE_EQ(list.offset.y, -55.0);          // 20 - 0.075 * 1000
  EXPECT_DOUBLE_EQ(list.device_scale.x, 0.2);      // 200 / 1000
  EXPECT_DOUBLE_EQ(list.device_scale.y, 0.225);    // 300 * 1.5 / 2000
  EXPECT_DOUBLE_EQ(list.device_offset.x, 120.0);   // 20 + 0.2 * 500
  EXPECT_DOUBLE_EQ(list.device_offset.y, -165.0);  // 60 - 0.225 * 1000
  // The min corners meet on both; y runs 1.5 times as far.
  ZR_DCI_Point p;
  list.world_to_screen({-500, 1000}, p);
  EXPECT_EQ(p, (ZR_DCI_Point{10, 20, 0}));
  list.world_to_screen({500, 3000}, p);
  EXPECT_EQ(p, (ZR_DCI_Point{110, 170, 0}));
  // One screen unit grown on every side, back through the screen transform.
  EXPECT_EQ(list.visible_bounds, (WorldBounds{{-510, 987}, {510, 2347}}));
  // Text points follow the transform the host chose; back again exactly.
  ZR_Point t;
  list.world_to_text_point({0.0, 2000.0}, t);
  EXPECT_EQ(t, (ZR_Point{60.0f, 95.0f, 0.0f}));
  list.use_device_transform = true;
  list.world_to_text_point({0.0, 2000.0}, t);
  EXPECT_EQ(t, (ZR_Point{120.0f, 285.0f, 0.0f}));
  DoublePoint back;
  list.text_point_to_world(t, back);
  EXPECT_NEAR(back.x, 0.0, 1e-9);
  EXPECT_NEAR(back.y, 2000.0, 1e-9);
  // A new aspect ratio takes effect with the next view change.
  list.aspect_ratio = 0.5;
  list.set_world_bounds({{-500, 1000}, {500, 3001}});
  EXPECT_NEAR(list.scale.y, 100 * 0.5 / 2001.0, 1e-15);
  EXPECT_NEAR(list.device_scale.y, 300 * 0.5 / 2001.0, 1e-15);
}

TEST(Conversions, PlainAndSaturatingForms) {
  DisplayList list;
  list.set_world_bounds({{0, 0}, {1, 1}});
  list.set_screen_bounds({{0, 0}, {4, 4}});  // scale 4
  ZR_DCI_Point p;
  const WorldPoint far{PointTemplate<WorldCoord>::scalarMaximum,
                       -PointTemplate<WorldCoord>::scalarMaximum};
  list.world_to_screen(far, p);
  EXPECT_EQ(p.x, kIntMin);  // beyond 32 bits: the most negative value
  EXPECT_EQ(p.y, kIntMin);
  list.saturate_device_points = true;
  list.world_to_screen(far, p);
  EXPECT_EQ(p.x, kIntMax);  // stays on its side
  EXPECT_EQ(p.y, kIntMin);
  EXPECT_EQ(p.z, 0);

  // Ties to even on the way to the device.
  list.set_world_bounds({{0, 0}, {8, 8}});
  list.set_screen_bounds({{0, 0}, {4, 4}});  // scale 0.5
  const WorldPoint in[4] = {{1, 1}, {3, 3}, {5, 5}, {7, 7}};
  ZR_DCI_Point out[4];
  list.world_to_screen_points(4, in, out);
  EXPECT_EQ(out[0].x, 0);
  EXPECT_EQ(out[1].x, 2);
  EXPECT_EQ(out[2].x, 2);
  EXPECT_EQ(out[3].x, 4);

  // Screen to world rounds and saturates.
  WorldPoint w;
  const int screen[2] = {3, kIntMax};
  list.screen_to_world(screen, w);
  EXPECT_EQ(w.x, 6);
  EXPECT_EQ(w.y, PointTemplate<WorldCoord>::scalarMaximum);
}

TEST(Conversions, UniqueDropsOnlyNeighbours) {
  DisplayList list;
  list.set_world_bounds({{0, 0}, {100, 100}});
  list.set_screen_bounds({{0, 0}, {10, 10}});  // 10 world units a pixel
  ZR_DCI_Point out[5];
  const WorldPoint same[3] = {{1, 1}, {2, 2}, {3, 3}};
  EXPECT_EQ(list.world_to_screen_unique(3, same, out), 1);
  // A, A, B, A, A: the repeat of an earlier, not adjacent point stays.
  const WorldPoint mixed[5] = {{0, 0}, {1, 1}, {50, 50}, {2, 2}, {3, 3}};
  ASSERT_EQ(list.world_to_screen_unique(5, mixed, out), 3);
  EXPECT_EQ(out[0], (ZR_DCI_Point{0, 0, 0}));
  EXPECT_EQ(out[1], (ZR_DCI_Point{5, 5, 0}));
  EXPECT_EQ(out[2], (ZR_DCI_Point{0, 0, 0}));
}

TEST(Renderer, SetRendererHoldsAReferenceAndReadsOptions) {
  auto* r = new RecordingRenderer;
  r->set_complex_clip_supported(true);
  {
    DisplayList list;
    list.set_renderer(r);
    EXPECT_EQ(r->reference_count(), 1);
    EXPECT_TRUE(list.complex_clip_supported);
    list.set_renderer(r);  // the same again: still one reference
    EXPECT_EQ(r->reference_count(), 1);
    add_ref(r);  // keep it past the list
    list.set_renderer(nullptr);
    EXPECT_FALSE(list.complex_clip_supported);
    EXPECT_EQ(r->reference_count(), 1);
    list.set_renderer(r);
  }
  EXPECT_EQ(r->reference_count(), 1);  // the list released its own
  release(r);
}

}  // namespace
}  // namespace DL
