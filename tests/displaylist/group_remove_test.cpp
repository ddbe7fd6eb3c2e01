// Removal by position, likeness and rectangle, and insertion before a drawable,
// on small trees built to hit the cases where they differ.
#include <gtest/gtest.h>

#include <vector>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "iterators/display_list_iterator.h"
#include "tests/support/tree_check.h"

namespace DL::test {

// A dot with a second corner, whose bounds calls are counted: shows which
// drawables a removal looks at.
class CountedBox : public Dot {
  DL_DRAWABLE(CountedBox);

 public:
  static inline int bounds_calls = 0;
  WorldPoint corner;
  CountedBox(const WorldPoint& a, const WorldPoint& b) : Dot(0u, a), corner(b) {
    table = &visible_table_;
  }

 protected:
  void do_add_bounds(WorldBounds& b) const {
    ++bounds_calls;
    b.merge(point);
    b.merge(corner);
  }
};
DL_DRAWABLE_DEFINE(CountedBox);

namespace {

Drawable* dot(DisplayList& list, int x, int y) {
  Drawable* d = new Dot(0u, {x, y});
  list.add(d, d->bounds_of());
  return d;
}
Drawable* box(DisplayList& list, WorldPoint a, WorldPoint b) {
  Drawable* d = new CountedBox(a, b);
  list.add(d, d->bounds_of());
  return d;
}
Group* leaf_of(DisplayList& list, Drawable* d) {
  return SubEntityIterator(d, d, list.root).group();
}
void close_and_reopen(DisplayList& list) {
  list.open_group->close();
  list.root->create_open_bottom_group(&list);
}
using Order = std::vector<const Drawable*>;
::testing::AssertionResult valid(const DisplayList& list, const Order& order) {
  return tree_is_valid(list, &order);
}

TEST(RemoveByPosition, EmptiedGroupsGoUpToTheRoot) {
  // Capacity 1 and one point: the second add splits, and the third drawable
  // starts a sibling. root -> G -> [a] [b]
  DisplayList list(nullptr, 1);
  Drawable* a = dot(list, 7, 7);
  Drawable* b = dot(list, 7, 7);
  Group* leaf_a = leaf_of(list, a);
  Group* g = leaf_a->parent;
  ASSERT_NE(g, list.root);
  ASSERT_TRUE(valid(list, Order{a, b}));

  EXPECT_EQ(g->remove(a, nullptr), nullptr);  // an interior group removes nothing
  EXPECT_EQ(leaf_of(list, b)->remove(b, nullptr), g);
  EXPECT_EQ(list.open_group, nullptr);  // b's group was the open one
  Order just_a{a};
  EXPECT_TRUE(tree_is_valid(list, &just_a));
  EXPECT_EQ(leaf_a->remove(a, nullptr), list.root);
  EXPECT_EQ(list.root->first_child, nullptr);
  EXPECT_EQ(list.root->last_child, nullptr);

  // The open group at the root stays, empty and open.
  DisplayList flat;
  Group* open = flat.open_group;
  Drawable* x = dot(flat, 1, 1);
  Drawable* y = dot(flat, 2, 2);
  EXPECT_EQ(open->remove(y, x), open);
  EXPECT_EQ(open->last_child, x);
  EXPECT_EQ(flat.open_count, 1);
}

TEST(RemoveByLikeness, FirstMatchInItsCellOnly) {
  DisplayList list(nullptr, 1);
  Drawable* a = dot(list, 7, 7);
  Drawable* b = dot(list, 7, 7);
  close_and_reopen(list);  // root -> G -> [a] [b] [open, empty]
  Group* leaf_a = leaf_of(list, a);
  Group* leaf_b = leaf_of(list, b);
  ASSERT_NE(leaf_a, leaf_b);
  Order both{a, b};
  ASSERT_TRUE(tree_is_valid(list, &both));
  Dot pattern(0u, {7, 7});
  Search search{&pattern, pattern.type(), pattern.bounds_of(), 1};

  // keep_drawable: nothing is deleted, and the group stays.
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  EXPECT_EQ(list.root->remove_searched(search), leaf_a);
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
  EXPECT_TRUE(tree_is_valid(list, &both));

  // A search rectangle that is not inside the tight leaves keeps it out.
  Search wide = search;
  wide.search_bounds = {{6, 6}, {8, 8}};
  wide.keep_drawable = 0;
  EXPECT_EQ(list.root->remove_searched(wide), nullptr);
  EXPECT_TRUE(tree_is_valid(list, &both));

  // The first match goes; an emptied group answers with its next sibling.
  search.keep_drawable = 0;
  EXPECT_EQ(list.root->remove_searched(search), leaf_b);
  Order just_b{b};
  EXPECT_TRUE(tree_is_valid(list, &just_b));
  EXPECT_EQ(list.root->remove_searched(search), list.open_group);
  EXPECT_EQ(list.root->remove_searched(search), nullptr);
  EXPECT_TRUE(valid(list, Order{}));
}

TEST(RemoveBounded, WholeSubtreesEdgesAndEmptyBounds) {
  DisplayList list(nullptr, 8);
  Drawable* far1 = box(list, {-100, -100}, {-90, -90});
  Drawable* far2 = box(list, {-80, -80}, {-70, -70});
  close_and_reopen(list);  // root -> [far1 far2] [open]
  Drawable* edge = box(list, {10, 10}, {20, 20});
  Drawable* out = box(list, {9, 10}, {20, 20});  // one unit left of the rectangle below
  Drawable* nothing = new DummyDrawable;         // empty bounds: inside every rectangle
  list.add(nothing, nothing->bounds_of());
  ASSERT_TRUE(valid(list, Order{far1, far2, edge, out, nothing}));

  // A rectangle that holds no drawable with bounds: only the empty one goes.
  list.root->remove_bounded({{11, 11}, {12, 12}});
  Order four{far1, far2, edge, out};
  EXPECT_TRUE(tree_is_valid(list, &four));
  EXPECT_EQ(list.open_count, 2);

  // The closed leaf lies inside: it goes without its drawables being asked;
  // only the two of the open group, which overlaps, are.
  CountedBox::bounds_calls = 0;
  list.root->remove_bounded({{-200, -200}, {0, 0}});
  EXPECT_EQ(CountedBox::bounds_calls, 2);
  Order two{edge, out};
  EXPECT_TRUE(tree_is_valid(list, &two));
  list.root->remove_bounded({{10, 10}, {20, 20}});
  Order kept{out};
  EXPECT_TRUE(tree_is_valid(list, &kept));
  EXPECT_EQ(list.open_count, 1);

  // Emptying the open group by rectangle destroys it.
  list.open_group->remove_bounded(WorldBounds::everything());
  EXPECT_EQ(list.open_group, nullptr);
  EXPECT_EQ(list.root->first_child, nullptr);
}

TEST(AddBefore, ChainsCountsAndRectangles) {
  DisplayList list;
  Drawable* a = dot(list, 100, 100);
  Drawable* z = dot(list, 200, 200);
  Group* open = list.open_group;
  const WorldBounds cell = open->bounds;
  Drawable* n1 = new Dot(0u, {150, 150});
  Drawable* n2 = new Dot(0u, {160, 160});
  Drawable* n3 = new Dot(0u, {170, 170});
  n1->sibling = n2;
  n2->sibling = n3;
  // From the root: the leaf is found by a walk. Inside the cell: no rectangle
  // but open_bounds changes.
  EXPECT_EQ(list.add_before(list.root, z, n1, {{150, 150}, {170, 170}}), open);
  EXPECT_EQ(list.open_count, 5);
  EXPECT_EQ(open->bounds, cell);
  Order order{a, n1, n2, n3, z};
  EXPECT_TRUE(tree_is_valid(list, &order));

  // In front of the first drawable, outside what was added so far: closing
  // the group gives bounds that still cover it.
  Drawable* first = new Dot(0u, {-5000, 3});
  EXPECT_EQ(list.add_before(open, a, first, first->bounds_of()), open);
  EXPECT_TRUE(first->bounds_of().is_inside(list.open_bounds));
  order.insert(order.begin(), first);
  EXPECT_TRUE(tree_is_valid(list, &order));

  // Outside the cells of the open path: the groups grow, the path is closed
  // with tight rectangles and a new, empty open group starts beside it; later
  // drawables go there.
  DisplayList deep(nullptr, 2);
  Drawable* p = dot(deep, 1, 1);
  Drawable* q = dot(deep, 2, 2);
  Drawable* r = dot(deep, 3, 3);  // splits: the open path runs below level 1
  Group* open_r = leaf_of(deep, r);
  ASSERT_TRUE(open_r->is_open());
  ASSERT_EQ(open_r->level(), 2);
  Drawable* away = new Dot(0u, {-5, 5});  // outside the open cell, inside its parent's
  EXPECT_EQ(deep.add_before(deep.root, r, away, away->bounds_of()), open_r);
  EXPECT_FALSE(open_r->is_open());
  EXPECT_TRUE(away->bounds_of().is_inside(open_r->bounds));
  Order deep_order{p, q, away, r};
  EXPECT_TRUE(tree_is_valid(deep, &deep_order));
  ASSERT_NE(deep.open_group, nullptr);
  EXPECT_EQ(deep.open_group->first_child, nullptr);
  EXPECT_EQ(deep.open_group->parent, open_r->parent);
  deep_order.push_back(dot(deep, 4, 4));
  EXPECT_TRUE(tree_is_valid(deep, &deep_order));
}

// Fault: the empty open group that add_before starts, closed by the host,
// became an empty closed leaf; the forward walks end there, so a drawable added
// after it had no leaf (null from the lookup, a null dereference in add_before
// of a release build). Closing an empty open group now destroys it.
TEST(AddBefore, HostCloseAfterTheNewOpenGroupLeavesNoEmptyLeaf) {
  DisplayList list(nullptr, 1);
  Drawable* a = dot(list, 0, 0);
  Drawable* b0 = dot(list, 0, 0);
  Drawable* b = new Dot(0u, {0, -1});
  list.add_before(list.root, b0, b, b->bounds_of());
  ASSERT_NE(list.open_group, nullptr);
  EXPECT_EQ(list.open_group->first_child, nullptr);
  list.root->close();
  EXPECT_EQ(list.open_group, nullptr);  // destroyed, not closed
  list.root->bounds = WorldBounds::everything();
  list.root->create_open_bottom_group(&list);
  Drawable* c = dot(list, 5, 5);
  Order order{a, b, b0, c};
  EXPECT_TRUE(valid(list, order));
  Group* leaf = leaf_of(list, c);
  ASSERT_NE(leaf, nullptr);
  EXPECT_EQ(leaf->last_drawable(), c);
  Drawable* before_c = new Dot(0u, {6, 6});
  EXPECT_EQ(list.add_before(list.root, c, before_c, before_c->bounds_of()), leaf);
  order.insert(order.end() - 1, before_c);
  EXPECT_TRUE(valid(list, order));

  // Closing the empty open group itself, or a root above nothing else: the
  // group goes, the root stays, and the tree is still sound.
  DisplayList empty;
  Group* open = empty.open_group;
  ASSERT_EQ(open->parent, empty.root);
  open->close();
  EXPECT_EQ(empty.open_group, nullptr);
  EXPECT_EQ(empty.root->first_child, nullptr);
  empty.root->create_open_bottom_group(&empty);
  empty.root->close();
  EXPECT_EQ(empty.root->first_child, nullptr);
  EXPECT_TRUE(valid(empty, {}));
  empty.root->bounds = WorldBounds::everything();
  empty.root->create_open_bottom_group(&empty);
  Drawable* d = dot(empty, 1, 1);
  EXPECT_TRUE(valid(empty, {d}));
}

}  // namespace
}  // namespace DL::test
