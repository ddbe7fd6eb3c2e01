// Clip classification and the clipped traversals: the circle fit, the exact
// contour test against an oracle, lifting of the clip, and the choice of
// traversal by draw_view.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "tests/displaylist/hand_tree.h"
#include "tests/support/tree_check.h"

namespace DL::test {
namespace {

using Contours = std::vector<std::vector<ZR_Point>>;

std::vector<ZR_Point> polygon(float cx, float cy, float r, int n) {
  std::vector<ZR_Point> out;
  for (int i = 0; i < n; ++i) {
    const double a = 2 * M_PI * i / n;
    out.push_back(
        {cx + static_cast<float>(r * std::cos(a)), cy + static_cast<float>(r * std::sin(a)), 0.0f});
  }
  return out;
}
std::vector<ZR_Point> box(float x0, float y0, float x1, float y1) {
  return {{x0, y0, 0}, {x1, y0, 0}, {x1, y1, 0}, {x0, y1, 0}};
}

bool circular(DisplayList& list, const Contours& c) {
  ZR_Contour_Set clip = ZR_Contour_Set::make(c);
  list.rendition.set_complex_clip(&clip, true);
  return list.circular_complex_clip();
}

TEST(CircularComplexClip, AcceptsOnlyOneContourCloseToACircle) {
  DisplayList list;
  // A square of side 10: corners at 7.07, sides' midpoints at 5 from the centre.
  EXPECT_TRUE(circular(list, {box(0, 0, 10, 10)}));
  EXPECT_EQ(list.clip_center, (ZR_Point{5, 5, 0}));
  EXPECT_FLOAT_EQ(list.clip_radius_squared, 25.0f);

  // Side 100: the sides cut 20.7 into the ring. The centre is stored anyway.
  list.clip_radius_squared = -1;
  EXPECT_FALSE(circular(list, {box(0, 0, 100, 100)}));
  EXPECT_EQ(list.clip_center, (ZR_Point{50, 50, 0}));
  EXPECT_EQ(list.clip_radius_squared, -1);

  // A rectangle has its corners on one circle but its long sides cut deep.
  EXPECT_FALSE(circular(list, {box(0, 0, 10, 30)}));
  // Two contours, however round.
  EXPECT_FALSE(circular(list, {polygon(0, 0, 100, 64), polygon(0, 0, 50, 64)}));

  // A 64-gon of radius 200: the circle is the inscribed one.
  EXPECT_TRUE(circular(list, {polygon(500, 500, 200, 64)}));
  EXPECT_NEAR(std::sqrt(list.clip_radius_squared), 200 * std::cos(M_PI / 64), 0.01);

  // One vertex 2 further out fails the ring of 2.0 only just: 2.5 fails, 1.5 passes.
  for (float push : {1.5f, 2.5f}) {
    auto p = polygon(0, 0, 100, 64);
    p[10].x *= (100 + push) / 100;
    p[10].y *= (100 + push) / 100;
    // The bounding box moves the centre a little only when the vertex is on it.
    EXPECT_EQ(circular(list, {p}), push < 2) << push;
  }
}

// The exact test on a group whose screen rectangle is `r`, under an identity view.
ClipClass classify(const Contours& c, const WorldBounds& r,
                   ZR_Int_Rectangle hard = {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX}) {
  DisplayList list;
  HandTree tree(list);
  Group* g = tree.bottom(list.root, {tree.dot(r.min.x, r.min.y), tree.dot(r.max.x, r.max.y)});
  ZR_Contour_Set clip = ZR_Contour_Set::make(c);
  list.rendition.set_complex_clip(&clip, true);
  list.rendition.set_hard_clip(hard, true);
  return g->classify_against_clip(list);
}

TEST(ClassifyAgainstClip, WalksTheContoursOfTheHardComplexClip) {
  const WorldBounds r{{10, 10}, {20, 20}};
  EXPECT_EQ(classify({box(12, 12, 14, 14)}, r), CLIP_CROSSING);  // a vertex in r
  EXPECT_EQ(classify({box(0, 0, 30, 30)}, r), CLIP_INSIDE);      // surrounds r
  EXPECT_EQ(classify({box(40, 0, 50, 30)}, r), CLIP_OUTSIDE);
  // A hole around r: inside by the even-odd rule is outside.
  EXPECT_EQ(classify({box(0, 0, 30, 30), box(5, 5, 25, 25)}, r), CLIP_OUTSIDE);
  // An edge through r with both ends outside.
  EXPECT_EQ(classify({{{0, 15, 0}, {30, 16, 0}, {30, 40, 0}}}, r), CLIP_CROSSING);
  // A corner of r exactly on the contour: the crossing at r.min.y is within r.
  EXPECT_EQ(classify({{{0, 0, 0}, {20, 0, 0}, {0, 20, 0}}}, r), CLIP_CROSSING);
  // An edge that passes below and to the right of r: two crossings on one edge,
  // and the triangle lies beside r.
  EXPECT_EQ(classify({{{0, -5, 0}, {40, 15, 0}, {40, -20, 0}}}, r), CLIP_OUTSIDE);
  // A contour that winds round r with no vertex near it.
  EXPECT_EQ(classify({{{-50, -50, 0}, {60, -50, 0}, {60, 60, 0}, {-50, 60, 0}, {-40, 15, 0}}}, r),
            CLIP_INSIDE);
  // No contour at all: nothing to decide on.
  EXPECT_EQ(classify({}, r), CLIP_CROSSING);
  // The test reads the clip cut to the hard clip: r is inside the complex clip
  // but outside the part of it left by a hard clip of x 0 to 5.
  EXPECT_EQ(classify({box(0, 0, 30, 30)}, r, {0, 5, 0, 100}), CLIP_OUTSIDE);
}

// The clip is in screen coordinates and a group's rectangle is carried there
// by the view: zoomed ten times, the world rectangle 10..20 is the screen
// rectangle 100..200; mirrored in y as well, its y runs 900 down to 800. Each
// clip below is placed where the group is under one view and not under the
// others, so a classification that skipped the view, or kept the corners'
// order of a mirrored one, would answer wrongly. The circle test never says
// outside.
TEST(ClassifyAgainstClip, UnderAZoomedAndAMirroredView) {
  struct View {
    const char* name;
    ScreenBounds screen;
  };
  const View zoomed{"zoomed", {{0, 0}, {1000, 1000}}};
  const View mirrored{"mirrored", {{0, 1000}, {1000, 0}}};
  struct Case {
    const View* view;
    std::vector<ZR_Point> clip;
    ClipClass exact;
    ClipClass circle;  // against the circle fitted inside the clip
  };
  const Case cases[] = {
      // Round clips (64-gons), so that a circle is fitted to every one.
      {&zoomed, polygon(150, 150, 100, 64), CLIP_INSIDE, CLIP_INSIDE},
      {&zoomed, polygon(200, 200, 50, 64), CLIP_CROSSING, CLIP_CROSSING},
      {&zoomed, polygon(15, 15, 20, 64), CLIP_OUTSIDE, CLIP_CROSSING},  // the identity place
      {&zoomed, polygon(150, 850, 100, 64), CLIP_OUTSIDE, CLIP_CROSSING},
      {&mirrored, polygon(150, 850, 100, 64), CLIP_INSIDE, CLIP_INSIDE},
      {&mirrored, polygon(200, 800, 50, 64), CLIP_CROSSING, CLIP_CROSSING},
      {&mirrored, polygon(150, 150, 100, 64), CLIP_OUTSIDE, CLIP_CROSSING},  // unmirrored
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.view->name) + " clip through " + std::to_string(c.clip[0].x) + "," +
                 std::to_string(c.clip[0].y));
    DisplayList list;
    HandTree tree(list);
    Group* g = tree.bottom(list.root, {tree.dot(10, 10), tree.dot(20, 20)});
    tree.finish();
    list.set_world_bounds({{0, 0}, {100, 100}});
    list.set_screen_bounds(c.view->screen);
    ASSERT_TRUE(tree_is_valid(list, &tree.order()));
    ZR_Contour_Set clip = ZR_Contour_Set::make({c.clip});
    list.rendition.set_complex_clip(&clip, true);
    EXPECT_EQ(g->classify_against_clip(list), c.exact);
    ASSERT_TRUE(list.circular_complex_clip());
    EXPECT_EQ(g->classify_against_circle(list), c.circle);
  }
}

// The oracle: in double, a contour touches a closed rectangle when a vertex lies
// in it or an edge meets it; otherwise the even-odd rule at one corner decides.
ClipClass oracle(const Contours& contours, const WorldBounds& b) {
  const double x0 = b.min.x, y0 = b.min.y, x1 = b.max.x, y1 = b.max.y;
  bool inside = false;
  for (const auto& c : contours) {
    for (std::size_t i = 0, j = c.size() - 1; i < c.size(); j = i++) {
      double ax = c[j].x, ay = c[j].y, bx = c[i].x, by = c[i].y;
      // Liang-Barsky: does the segment meet the rectangle?
      double t0 = 0, t1 = 1;
      const double dx = bx - ax, dy = by - ay;
      const double p[4] = {-dx, dx, -dy, dy}, q[4] = {ax - x0, x1 - ax, ay - y0, y1 - ay};
      bool meets = true;
      for (int k = 0; k < 4 && meets; ++k) {
        if (p[k] == 0) {
          if (q[k] < 0) meets = false;
        } else {
          const double t = q[k] / p[k];
          if (p[k] < 0)
            t0 = std::max(t0, t);
          else
            t1 = std::min(t1, t);
          if (t0 > t1) meets = false;
        }
      }
      if (meets) return CLIP_CROSSING;
      if ((ay > y0) != (by > y0) && x0 < (bx - ax) * (y0 - ay) / (by - ay) + ax) inside = !inside;
    }
  }
  return inside ? CLIP_INSIDE : CLIP_OUTSIDE;
}

TEST(ClassifyAgainstClip, AgreesWithAnOracleOnRandomStarsAndRectangles) {
  std::mt19937 rng(7);
  std::uniform_real_distribution<float> coord(0, 1000), radius(5, 400);
  std::uniform_int_distribution<int> corner(0, 1000), size(0, 200), count(3, 24);
  int seen[3] = {0, 0, 0};
  for (int round = 0; round < 3000; ++round) {
    Contours contours(1 + round % 2);
    for (auto& c : contours) {
      const float cx = coord(rng), cy = coord(rng);
      const int n = count(rng);
      for (int i = 0; i < n; ++i) {
        const double a = 2 * M_PI * (i + 0.5 * (rng() % 100) / 100.0) / n;
        const float r = radius(rng);
        c.push_back({cx + r * static_cast<float>(std::cos(a)),
                     cy + r * static_cast<float>(std::sin(a)), 0});
      }
    }
    const int x = corner(rng), y = corner(rng);
    const WorldBounds b{{x, y}, {x + size(rng), y + size(rng)}};
    const ClipClass expected = oracle(contours, b);
    ++seen[expected];
    ASSERT_EQ(classify(contours, b), expected) << "round " << round;
  }
  // Every answer came up often.
  for (int n : seen) EXPECT_GT(n, 100);
}

// root
//  +- A: bottom (450,450) (550,550)   inside the circle and the square
//  +- B: bottom (320,320) (330,330)   inside the square, outside the circle
//  +- C: bottom (650,500) (800,500)   crosses both
//  +- G: interior, inside both
//  |   +- G1: bottom (480,480)
//  |   +- G2: bottom (520,520)
//  +- F: bottom (50,50) (60,60)       outside both
//  +- 22 interior groups down to the open group at level 24, whose cell is
//     (0,0)-(255,255), with the dot (100,100): outside both
struct ClipScene {
  DisplayList list;
  HandTree tree{list};
  ZR_Contour_Set circle = ZR_Contour_Set::make({polygon(500, 500, 200, 64)});
  ZR_Contour_Set square = ZR_Contour_Set::make({box(300, 300, 700, 700)});
  ClipScene() {
    Group* root = list.root;
    tree.bottom(root, {tree.dot(450, 450), tree.dot(550, 550)});
    tree.bottom(root, {tree.dot(320, 320), tree.dot(330, 330)});
    tree.bottom(root, {tree.dot(650, 500), tree.dot(800, 500)});
    Group* g = tree.interior(root);
    tree.bottom(g, {tree.dot(480, 480)});
    tree.bottom(g, {tree.dot(520, 520)});
    tree.bottom(root, {tree.dot(50, 50), tree.dot(60, 60)});
    Group* chain = root;
    for (int level = 1; level < 24; ++level) chain = tree.interior(chain);
    tree.open(chain, {tree.dot(100, 100)});
    tree.finish();
  }
  // "x,y" of each dot drawn, with "*" when the complex clip was on, and the
  // entry's last word.
  std::vector<std::string> draw(void (*how)(DisplayList&)) {
    tree.renderer().clear();
    const ZR_Contour_Set_Data* before = list.rendition.complex_clip();
    how(list);
    EXPECT_EQ(list.rendition.complex_clip(), before) << "the clip is back after the draw";
    std::vector<std::string> out;
    for (const RecordedCall& c : tree.renderer().calls) {
      EXPECT_TRUE(c.complex_clip == nullptr || c.complex_clip == before);
      out.push_back(std::to_string(c.points[0].x) + "," + std::to_string(c.points[0].y) +
                    (c.complex_clip ? "*" : "") + (c.entry == "dot_clipped" ? " clipped" : ""));
    }
    return out;
  }
};

using Lines = std::vector<std::string>;

TEST(ClippedTraversal, GroupsInsideTheCircleDrawWithTheClipLifted) {
  ClipScene s;
  ASSERT_TRUE(tree_is_valid(s.list, &s.tree.order()));
  s.list.rendition.set_complex_clip(&s.circle, true);
  ASSERT_TRUE(s.list.circular_complex_clip());

  // Unbounded: the circle test never skips, and the open group is classified by
  // the circle like the others.
  EXPECT_EQ(s.draw([](DisplayList& l) { l.root->draw_circled(l); }),
            (Lines{"450,450", "550,550", "320,320*", "330,330*", "650,500*", "800,500*", "480,480",
                   "520,520", "50,50*", "60,60*", "100,100*"}));
  // Through draw_view: every group is inside the world shown, so each is
  // classified by the circle.
  EXPECT_EQ(s.draw([](DisplayList& l) { l.draw_view(); }),
            (Lines{"450,450", "550,550", "320,320*", "330,330*", "650,500*", "800,500*", "480,480",
                   "520,520", "50,50*", "60,60*", "100,100*"}));
  // A part of the view that cuts through the open group's cell: groups that
  // only overlap are not classified, but the open group is, exactly, and is
  // skipped, while F, inside the part, is drawn since the circle cannot tell.
  EXPECT_EQ(s.draw([](DisplayList& l) {
    l.draw_view_bounded({{0, 0}, {200, 200}});
  }),
            (Lines{"50,50*", "60,60*"}));
  // The interruptible forms, never stopped, draw the same.
  s.list.interrupt_callback = [](void*) { return true; };
  EXPECT_EQ(s.draw([](DisplayList& l) { l.root->draw_circled_interrupt(l); }).size(), 11u);
  EXPECT_EQ(
      s.draw([](DisplayList& l) {
         EXPECT_TRUE(l.root->draw_circled_bounded_interrupt(l, l.world_bounds, l.visible_bounds));
       }).size(),
      11u);
}

TEST(ClippedTraversal, GroupsOutsideAPolygonAreSkippedAndInsideOnesLifted) {
  ClipScene s;
  s.list.rendition.set_complex_clip(&s.square, true);
  ASSERT_FALSE(s.list.circular_complex_clip());
  const Lines expected{"450,450",  "550,550",  "320,320", "330,330",
                       "650,500*", "800,500*", "480,480", "520,520"};
  EXPECT_EQ(s.draw([](DisplayList& l) { l.draw_view(); }), expected);
  EXPECT_EQ(s.draw([](DisplayList& l) { l.root->draw_complex(l); }), expected);
  s.list.interrupt_callback = [](void*) { return true; };
  EXPECT_EQ(s.draw([](DisplayList& l) { l.root->draw_complex_interrupt(l); }), expected);

  // A part of the view: A only overlaps it, is found inside the clip and drawn
  // lifted but clipped to the rectangle; G is inside both; C misses the part.
  const Lines part{"450,450 clipped", "550,550 clipped", "320,320",
                   "330,330",         "480,480",         "520,520"};
  EXPECT_EQ(s.draw([](DisplayList& l) { l.draw_view_bounded({{0, 0}, {520, 520}}); }), part);
  EXPECT_EQ(s.draw([](DisplayList& l) {
    EXPECT_TRUE(
        l.root->draw_complex_bounded_interrupt(l, {{0, 0}, {520, 520}}, {{0, 0}, {520, 520}}));
  }),
            part);

  // An interior group that only overlaps the part and is inside the clip walks
  // its children lifted with the rectangles: G1 is inside, G2 misses.
  EXPECT_EQ(s.draw([](DisplayList& l) {
    l.draw_view_bounded({{0, 0}, {500, 500}});
  }),
            (Lines{"450,450 clipped", "550,550 clipped", "320,320", "330,330", "480,480"}));

  // A device that clips by itself: the rectangles alone, the clip stays on.
  s.tree.renderer().set_complex_clip_supported(true);
  s.list.set_renderer(&s.tree.renderer());
  EXPECT_EQ(s.draw([](DisplayList& l) { l.draw_view(); }).size(), 11u);
  EXPECT_EQ(s.draw([](DisplayList& l) { l.draw_view(); })[0], "450,450*");
}

TEST(ClippedTraversal, ACircularClipDrawsGroupsInsideThePolygonButNotTheCircleWithTheClipOn) {
  ClipScene s;
  // The small square is round enough; its circle has radius 5, and (504,504)
  // lies in the square but 5.66 from the centre.
  ZR_Contour_Set small = ZR_Contour_Set::make({box(495, 495, 505, 505)});
  DisplayList list;
  HandTree tree(list);
  tree.bottom(list.root, {tree.dot(497, 497), tree.dot(503, 503)});
  tree.bottom(list.root, {tree.dot(504, 504)});
  tree.finish();
  ASSERT_TRUE(tree_is_valid(list, &tree.order()));
  list.rendition.set_complex_clip(&small, true);
  list.draw_view();
  std::vector<bool> clip_on;
  for (const RecordedCall& c : tree.renderer().calls) clip_on.push_back(c.complex_clip != nullptr);
  EXPECT_EQ(clip_on, (std::vector<bool>{false, false, true}));
  EXPECT_EQ(list.rendition.complex_clip(), small.get());
}

}  // namespace
}  // namespace DL::test
