// The bounded and selection traversals: which groups are drawn unclipped,
// clipped or skipped, layers, the selector, and a randomised check that a
// bounded draw hands on everything its rectangle can show, in insertion order.
#include <gtest/gtest.h>

#include <random>

#include "displaylist/group_p.h"
#include "tests/displaylist/hand_tree.h"
#include "tests/support/tree_check.h"

namespace DL::test {
namespace {

using Lines = std::vector<std::string>;

// root
//  +- A: interior (10,10)-(310,310)
//  |   +- B1: bottom (10,10) (20,20)
//  |   +- B2: bottom (300,300) (310,310)
//  +- C: bottom (600,600) (900,900)
//  +- D: bottom (5000,5000)
//  +- E: open, the cell of (1000,1000) at level 1: the positive quadrant
struct Scene {
  DisplayList list;
  HandTree tree{list};
  Group *a, *b1, *b2, *c, *d, *e;
  Scene() {
    Group* root = list.root;
    a = tree.interior(root);
    b1 = tree.bottom(a, {tree.dot(10, 10), tree.dot(20, 20)});
    b2 = tree.bottom(a, {tree.dot(300, 300), tree.dot(310, 310)});
    c = tree.bottom(root, {tree.dot(600, 600), tree.dot(900, 900)});
    d = tree.bottom(root, {tree.dot(5000, 5000)});
    e = tree.open(root, {tree.dot(1000, 1000)});
    tree.finish();
  }
  Lines draw(const WorldBounds& rect) {
    tree.renderer().clear();
    list.draw_view_bounded(rect);
    return dots_of(tree.renderer());
  }
};

TEST(BoundedTraversal, GroupsAreDrawnUnclippedClippedOrSkippedByTheTwoRectangles) {
  Scene s;
  ASSERT_TRUE(tree_is_valid(s.list, &s.tree.order()));
  ASSERT_EQ(s.a->bounds, (WorldBounds{{10, 10}, {310, 310}}));

  // The whole view: A and C lie inside the world shown, D misses the visible
  // rectangle, the open group's cell only overlaps it.
  s.tree.renderer().clear();
  s.list.draw_view();
  EXPECT_EQ(dots_of(s.tree.renderer()),
            (Lines{"dot_unclipped 10,10", "dot_unclipped 20,20", "dot_unclipped 300,300",
                   "dot_unclipped 310,310", "dot_unclipped 600,600", "dot_unclipped 900,900",
                   "dot_clipped 1000,1000"}));

  // A part of the view: B1 misses it; C is only partly inside, so both its
  // drawables are drawn clipped, also the one outside the rectangle.
  EXPECT_EQ(s.draw({{250, 250}, {650, 650}}),
            (Lines{"dot_unclipped 300,300", "dot_unclipped 310,310", "dot_clipped 600,600",
                   "dot_clipped 900,900", "dot_clipped 1000,1000"}));

  // Edges: B2 equal to the inner rectangle is inside; C touching the outer
  // rectangle at one corner overlaps and is walked.
  EXPECT_EQ(s.draw({{300, 300}, {600, 600}}),
            (Lines{"dot_unclipped 300,300", "dot_unclipped 310,310", "dot_clipped 600,600",
                   "dot_clipped 900,900", "dot_clipped 1000,1000"}));

  // A rectangle outside the world shown: inner is empty, so nothing is inside
  // and everything that overlaps is clipped.
  EXPECT_EQ(s.draw({{4000, 4000}, {6000, 6000}}),
            (Lines{"dot_clipped 5000,5000", "dot_clipped 1000,1000"}));
}

TEST(BoundedTraversal, NoRectangleIsTestedBelowAGroupInsideTheInnerRectangle) {
  Scene s;
  ASSERT_TRUE(tree_is_valid(s.list, &s.tree.order()));
  // Give B1 a rectangle far away: below A, which is inside, it is not looked at.
  s.b1->bounds = {{9000, 9000}, {9001, 9001}};
  EXPECT_EQ(s.draw({{0, 0}, {400, 400}}),
            (Lines{"dot_unclipped 10,10", "dot_unclipped 20,20", "dot_unclipped 300,300",
                   "dot_unclipped 310,310", "dot_clipped 1000,1000"}));
}

TEST(BoundedTraversal, EmptyOpenGroupIsNotTestedAndLayersHideAndShow) {
  DisplayList list;
  HandTree tree(list);
  Extra_Layer_Info off{0}, on{7};
  Dot* hidden = tree.dot(1, 1);
  Dot* shown = tree.dot(2, 2);
  hidden->set_layer(&off);
  shown->set_layer(&on);
  tree.bottom(list.root, {hidden, shown, tree.dot(3, 3)});
  Group* open = tree.open(list.root, {});
  tree.finish();
  ASSERT_TRUE(tree_is_valid(list, &tree.order()));
  // The empty open group's cell is the whole plane and the inner rectangle is
  // everything: it would pass any test, yet nothing comes of it.
  ASSERT_TRUE(open->bounds.is_inside(WorldBounds::everything()));
  list.root->draw_bounded(list, WorldBounds::everything(), WorldBounds::everything());
  EXPECT_EQ(dots_of(tree.renderer()), (Lines{"dot_unclipped 2,2", "dot_unclipped 3,3"}));

  // One store on the layer shows every drawable on it again.
  off.shown = 200;
  tree.renderer().clear();
  list.draw_view();
  EXPECT_EQ(dots_of(tree.renderer()).size(), 3u);
}

TEST(SelectionTraversal, TheSelectorSeesEachShownDrawableBeforeItDraws) {
  Scene s;
  Extra_Layer_Info off{0};
  Dot* last = static_cast<Dot*>(s.e->last_child);
  last->set_layer(&off);
  RecordingRenderer& r = s.tree.renderer();
  ZR_Option_Source* source = r.option_source;
  source->selector_part = 5;

  // Not a selector: the bounded selection draw draws nothing and takes nothing.
  s.list.draw_view_bounded_selection({{0, 0}, {1000, 1000}});
  EXPECT_TRUE(r.calls.empty());
  EXPECT_EQ(s.list.selector, nullptr);

  r.set_selector(true);
  s.list.draw_view_selection();
  EXPECT_EQ(s.list.selector, source);
  ASSERT_EQ(r.calls.size(), 6u);  // the dot on the hidden layer is skipped
  const std::vector<const Drawable*> all = drawables_in_order(s.list.root);
  for (std::size_t i = 0; i < r.calls.size(); ++i)
    EXPECT_EQ(r.calls[i].selector_drawable, all[i]) << r.calls[i].to_string();
  // The dot on the hidden layer was not marked: the last mark stays on C's.
  EXPECT_EQ(source->selector_drawable, all[5]);
  EXPECT_EQ(source->selector_part, 0);
  EXPECT_EQ(r.calls[4].entry, "dot_unclipped");

  // The bounded form: C is partly inside and its drawables are drawn clipped,
  // after being marked.
  r.clear();
  s.list.draw_view_bounded_selection({{250, 250}, {650, 650}});
  ASSERT_EQ(r.calls.size(), 4u);
  EXPECT_EQ(r.calls[2].entry, "dot_clipped");
  EXPECT_EQ(r.calls[2].selector_drawable, all[4]);
  EXPECT_EQ(r.calls[3].selector_drawable, all[5]);
  // The list holds a reference of its own on the selector.
  EXPECT_EQ(source->reference_count(), 2);
}

// Every drawable whose bounds overlap the outer rectangle is handed on, in
// insertion order, by the plain and by the interruptible bounded draw alike.
TEST(BoundedTraversal, RandomTreesHandOnEverythingTheOuterRectangleShows) {
  std::mt19937 rng(20240611);
  for (int round = 0; round < 60; ++round) {
    const int capacity = 1 + static_cast<int>(rng() % 9);
    const int limit = 2 + static_cast<int>(rng() % 29);
    DisplayList list(nullptr, capacity, limit);
    auto* renderer = new RecordingRenderer;
    list.set_renderer(renderer);
    list.set_world_bounds({{-1 << 20, -1 << 20}, {1 << 20, 1 << 20}});
    list.set_screen_bounds({{0, 0}, {1000, 1000}});

    // Clusters of dots at random scales, so that the tree is deep in places.
    std::vector<WorldPoint> points;
    std::vector<const Drawable*> order;
    const int n = 50 + static_cast<int>(rng() % 400);
    WorldPoint centre{0, 0};
    int spread = 1 << 20;
    for (int i = 0; i < n; ++i) {
      if (rng() % 16 == 0) {
        centre = {static_cast<WorldCoord>(rng()), static_cast<WorldCoord>(rng())};
        spread = 1 << (rng() % 31);
      }
      std::uniform_int_distribution<std::int64_t> off(-spread, spread);
      auto clamp = [](std::int64_t v) {
        return static_cast<WorldCoord>(
            std::max<std::int64_t>(INT32_MIN, std::min<std::int64_t>(INT32_MAX, v)));
      };
      WorldPoint p{clamp(centre.x + off(rng)), clamp(centre.y + off(rng))};
      auto* d = new ColorizedDot(ZR_RGB32{0}, p, static_cast<ZR_RGB32>(i));
      list.add(d, d->bounds_of());
      points.push_back(p);
      order.push_back(d);
    }
    if (round % 3 == 0) {
      // A closed tree, tight rectangles; the host keeps no open group.
      list.root->close();
      list.open_group = nullptr;
    }
    ASSERT_TRUE(tree_is_valid(list, &order));

    for (int view = 0; view < 20; ++view) {
      WorldPoint c = points[rng() % points.size()];
      const std::int64_t half = std::int64_t{1} << (rng() % 32);
      auto lo = [&](WorldCoord v) {
        return static_cast<WorldCoord>(std::max<std::int64_t>(INT32_MIN, v - half));
      };
      auto hi = [&](WorldCoord v) {
        return static_cast<WorldCoord>(std::min<std::int64_t>(INT32_MAX, v + half));
      };
      const WorldBounds rect{{lo(c.x), lo(c.y)}, {hi(c.x), hi(c.y)}};
      renderer->clear();
      list.draw_view_bounded(rect);
      std::vector<std::uint32_t> handed;
      for (const RecordedCall& call : renderer->calls) handed.push_back(call.color);
      for (std::size_t i = 1; i < handed.size(); ++i)
        ASSERT_LT(handed[i - 1], handed[i]) << "insertion order, round " << round;
      std::size_t at = 0;
      for (std::size_t i = 0; i < points.size(); ++i) {
        if (!WorldBounds{points[i], points[i]}.overlaps(rect)) continue;
        while (at < handed.size() && handed[at] < i) ++at;
        ASSERT_TRUE(at < handed.size() && handed[at] == i)
            << "drawable " << i << " missing, round " << round << " view " << view;
      }
      // The interruptible form, never stopped, hands on the same calls.
      const auto plain = renderer->trace();
      renderer->clear();
      list.interrupt_callback = [](void*) { return true; };
      WorldBounds inner = rect;
      inner.intersect(list.world_bounds);
      EXPECT_TRUE(list.root->draw_bounded_interrupt(list, inner, rect));
      EXPECT_EQ(renderer->trace(), plain);
    }
  }
}

}  // namespace
}  // namespace DL::test
