#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "ellipse/ellipse.h"
#include "tests/support/tree_check.h"

namespace DL {
namespace {

constexpr WorldCoord kMax = PointTemplate<WorldCoord>::scalarMaximum;
constexpr WorldCoord kMin = PointTemplate<WorldCoord>::scalarMinimum;

struct ScaledList {
  DisplayList list;
  RecordingRenderer* renderer = new RecordingRenderer;
  explicit ScaledList(double sx, double sy) {
    list.set_renderer(renderer);
    list.scale = {sx, sy};  // offset 0: device = world * scale
  }
  std::vector<std::string> trace() const { return renderer->trace(); }
};

void draw_both(Drawable& d, DisplayList& list) {
  d.draw_unclipped(list);
  d.draw_clipped(list);
}

TEST(EllipseDraw, RadiiTruncateUnclippedAndRoundClipped) {
  ScaledList v(0.5, 0.5);
  // 7 * 0.5 = 3.5: 3 unclipped, 4 clipped. 5 * 0.5 = 2.5: 2 on both, a tie goes to even.
  Ellipse seven(0x111111, {10, 20}, {7, 5}, 0.0f, &v.list);
  draw_both(seven, v.list);
  EXPECT_EQ(v.trace(), (std::vector<std::string>{
                           "elliptical_arc_unclipped (5,10) (3,2) [0 6.28318548 0]",
                           "elliptical_arc_clipped (5,10) (4,2) [0 6.28318548 0]",
                       }));
  // The angles are the record's floats widened.
  EXPECT_EQ(v.renderer->calls[0].angles[1], 6.2831854820251465);
  EXPECT_EQ(v.renderer->calls[0].rendition_color, 0x111111u);
  EXPECT_EQ(v.renderer->calls[0].extra, std::vector<const void*>{nullptr});

  // Per-axis scale on the radii only; the tilt goes out as stored. A radius that
  // shrinks to 0 is passed as 0, a negative scale gives negative radii.
  v.renderer->clear();
  v.list.scale = {0.25, -2.0};
  Ellipse odd(0, {-8, 3}, {3, 4}, 0.75f, &v.list);
  draw_both(odd, v.list);
  EXPECT_EQ(v.trace(), (std::vector<std::string>{
                           "elliptical_arc_unclipped (-2,-6) (0,-8) [0 6.28318548 0.75]",
                           "elliptical_arc_clipped (-2,-6) (1,-8) [0 6.28318548 0.75]",
                       }));

  // Device radii beyond 32 bits saturate instead of being undefined.
  v.renderer->clear();
  v.list.scale = {1e6, 1.0};
  Ellipse huge(0, {0, 0}, {2000000000, -2000000000}, 0.0f, &v.list);
  draw_both(huge, v.list);
  ASSERT_EQ(v.renderer->calls.size(), 2u);
  for (const RecordedCall& c : v.renderer->calls) {
    EXPECT_EQ(c.points[1].x, kMax);
    EXPECT_EQ(c.points[1].y, -2000000000);
  }
}

TEST(EllipseDraw, EachClassUsesItsEntryAndColour) {
  ScaledList v(1.0, 1.0);
  EllipticalArc backwards(0x010101, {1, 2}, {30, 40}, 0.5f, 2.0f, 1.0f, &v.list);
  EllipticalPie pie(0x020202, {3, 4}, {10, 20}, 0.0f, 0.25f, 1.5f, &v.list);
  ColorizedEllipse outlined(0x030303, {5, 6}, {7, 8}, 0.0f, 0.5f, 1.0f, 0xABCDEF, true, &v.list);
  ColorizedEllipse filled(0x040404, {5, 6}, {7, 8}, 0.0f, 0.5f, 1.0f, 0x123456, false, &v.list);
  for (Drawable* d : std::initializer_list<Drawable*>{&backwards, &pie, &outlined, &filled})
    draw_both(*d, v.list);
  EXPECT_EQ(v.trace(), (std::vector<std::string>{
                           // An arc ending below its start goes out in that order.
                           "elliptical_arc_unclipped (1,2) (30,40) [2 1 0.5]",
                           "elliptical_arc_clipped (1,2) (30,40) [2 1 0.5]",
                           "elliptical_pie_unclipped (3,4) (10,20) [0.25 1.5 0]",
                           "elliptical_pie_clipped (3,4) (10,20) [0.25 1.5 0]",
                           "elliptical_arc_unclipped (5,6) (7,8) [0.5 1 0] color=0xabcdef",
                           "elliptical_arc_clipped (5,6) (7,8) [0.5 1 0] color=0xabcdef",
                           "elliptical_pie_unclipped (5,6) (7,8) [0.5 1 0] color=0x123456",
                           "elliptical_pie_clipped (5,6) (7,8) [0.5 1 0] color=0x123456",
                       }));
  const auto& calls = v.renderer->calls;
  // `color` goes to the rendition, `ellipse_color` by address as the last argument.
  EXPECT_EQ(calls[4].rendition_color, 0x030303u);
  EXPECT_EQ(calls[4].extra[0], &outlined.ellipse_color);
  EXPECT_EQ(calls[7].rendition_color, 0x040404u);
  EXPECT_EQ(calls[2].extra, std::vector<const void*>{nullptr});
  EXPECT_EQ(v.list.rendition.color(), 0x040404u);  // stays set after the draw
}

TEST(EllipseDraw, OnlyTheClippedOutlineSkipsACentreAtTheWorldLimit) {
  ScaledList v(1e-9, 1e-9);
  Ellipse right(0, {kMax, 0}, {100, 100}, 0.0f, &v.list);
  Ellipse low(0, {0, kMin}, {100, 100}, 0.0f, &v.list);
  EllipticalArc arc(0, {kMax, 0}, {100, 100}, 0.0f, 0.0f, 1.0f, &v.list);
  EllipticalPie pie(0, {kMax, 0}, {100, 100}, 0.0f, 0.0f, 1.0f, &v.list);
  ColorizedEllipse colorized(0, {kMax, 0}, {100, 100}, 0.0f, 0.0f, 1.0f, 1, true, &v.list);
  Ellipse inside(0, {kMax - 1, 0}, {100, 100}, 0.0f, &v.list);
  for (Drawable* d :
       std::initializer_list<Drawable*>{&right, &low, &arc, &pie, &colorized, &inside})
    draw_both(*d, v.list);
  EXPECT_EQ(v.renderer->entries(), (std::vector<std::string>{
                                       "elliptical_arc_unclipped",  // right
                                       "elliptical_arc_unclipped",  // low
                                       "elliptical_arc_unclipped",  // arc inherits the test
                                       "elliptical_pie_unclipped",
                                       "elliptical_pie_clipped",
                                       "elliptical_arc_unclipped",
                                       "elliptical_arc_clipped",
                                       "elliptical_arc_unclipped",
                                       "elliptical_arc_clipped",
                                   }));
}

TEST(EllipseDraw, InATreeWithTheirExtents) {
  ScaledList v(1.0, 1.0);
  std::vector<const Drawable*> order;
  auto add = [&](Drawable* d) {
    v.list.add(d, d->bounds_of());
    order.push_back(d);
  };
  add(new Ellipse(0x1, {1000, 1000}, {100, 50}, 0.0f, &v.list));
  add(new EllipticalArc(0x2, {-5000, 300}, {100, 50}, 0.3f, 0.0f, 1.0f, &v.list));
  add(new EllipticalPie(0x3, {70000, -70000}, {400, 20}, -1.0f, -0.5f, 0.5f, &v.list));
  add(new ColorizedEllipse(0x4, {0, 0}, {1, 1}, 0.0f, 0.0f, 6.0f, 0x5, false, &v.list));
  auto* hidden = new Ellipse(0x6, {9, 9}, {3, 3}, 0.0f, &v.list);
  hidden->make_hidden();
  add(hidden);
  EXPECT_TRUE(test::tree_is_valid(v.list, &order));
  v.list.root->draw_unclipped(v.list);
  EXPECT_EQ(v.renderer->entries(), (std::vector<std::string>{
                                       "elliptical_arc_unclipped",
                                       "elliptical_arc_unclipped",
                                       "elliptical_pie_unclipped",
                                       "elliptical_pie_unclipped",
                                   }));
}

}  // namespace
}  // namespace DL
