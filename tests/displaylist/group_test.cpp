#include "displaylist/group.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "tests/support/test_drawables.h"
#include "tests/support/tree_check.h"

namespace DL {
namespace {

using test::Box;
using test::tree_is_valid;

constexpr WorldCoord kMin = PointTemplate<WorldCoord>::scalarMinimum;
constexpr WorldCoord kMax = PointTemplate<WorldCoord>::scalarMaximum;

// A list with its own heap for groups and drawables, so that tests can prove
// that destruction gives every block back.
struct Fixture {
  ZephalHeap* heap = ZP_CreateHeap();
  DisplayList* list;
  std::vector<const Drawable*> order;  // the model: insertion order

  Fixture(int capacity, int limit) : list(new DisplayList(heap, capacity, limit)) {}
  ~Fixture() {
    delete list;
    EXPECT_EQ(ZP_HeapStatistics(heap).live_blocks, 0u);
    ZP_DestroyHeap(heap);
  }
  Drawable* dot(WorldCoord x, WorldCoord y) {
    auto* d = new (heap) Dot(0, {x, y});
    order.push_back(d);
    list->add(d, d->bounds_of());
    return d;
  }
  Drawable* box(const WorldBounds& b) {
    auto* d = new (heap) Box(b);
    order.push_back(d);
    list->add(d, b);
    return d;
  }
};

TEST(Cells, MaskTheLowBitsOnThe32BitPatterns) {
  // Level 1: a rectangle in the positive quadrant becomes the whole quadrant.
  EXPECT_EQ(cell_bounds({{5, 7}, {9, 11}}, 1), (WorldBounds{{0, 0}, {kMax, kMax}}));
  EXPECT_EQ(cell_bounds({{-5, 7}, {-1, 11}}, 1), (WorldBounds{{kMin, 0}, {-1, kMax}}));
  // A rectangle across a grid line gets several cells.
  EXPECT_EQ(cell_bounds({{-1, 0}, {1, 0}}, 31), (WorldBounds{{-2, 0}, {1, 1}}));
  // At level 0 (and 32, which wraps to it) the mask covers every bit, so the
  // minima clear to 0 and the maxima set to -1: an inverted rectangle. That is
  // why a root is given the whole plane by hand.
  EXPECT_EQ(cell_bounds({{3, 3}, {3, 3}}, 32), (WorldBounds{{0, 0}, {-1, -1}}));
  EXPECT_EQ(cell_bounds({{3, 3}, {3, 3}}, 0), (WorldBounds{{0, 0}, {-1, -1}}));
}

TEST(Insertion, AFullGroupSplitsAndAnIdleSplitStartsASibling) {
  Fixture f(2, 31);
  Group* first_open = f.list->open_group;
  f.dot(1, 1);
  f.dot(2, 2);
  Group* holder = f.list->add(new (f.heap) Dot(0, {3, 3}), {{3, 3}, {3, 3}});
  f.order.push_back(holder->last_drawable());
  // The first open group was pushed one level down: now interior, same cell.
  EXPECT_FALSE(first_open->contains_drawables());
  EXPECT_EQ(first_open->level(), 1);
  EXPECT_EQ(first_open->bounds, WorldBounds::everything());
  // Its first child holds the old drawables, closed with tight bounds; the new
  // drawable starts the next sibling at the same level.
  Group* n = first_open->first_group();
  EXPECT_FALSE(n->is_open());
  EXPECT_TRUE(n->contains_drawables());
  EXPECT_EQ(n->bounds, (WorldBounds{{1, 1}, {2, 2}}));
  EXPECT_EQ(n->sibling, holder);
  EXPECT_TRUE(holder->is_open());
  EXPECT_EQ(holder->level(), 2);
  EXPECT_EQ(holder->bounds, (WorldBounds{{0, 0}, {0x3FFFFFFF, 0x3FFFFFFF}}));
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));

  // Full again and the next drawable lies outside the cell: the count test
  // comes first, so the group is split before the drawable is placed.
  f.dot(4, 4);
  f.dot(-5, -5);
  EXPECT_FALSE(holder->contains_drawables());  // split into an interior group
  EXPECT_EQ(holder->level(), 2);
  EXPECT_EQ(f.list->open_group->parent, first_open);
  EXPECT_EQ(f.list->open_group->bounds, (WorldBounds{{-0x40000000, -0x40000000}, {-1, -1}}));
  // Leaving upward closed the split group: its cell became tight.
  EXPECT_EQ(holder->bounds, (WorldBounds{{3, 3}, {4, 4}}));
  EXPECT_EQ(f.list->first_open_group, nullptr);
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
}

TEST(Insertion, AtTheLevelLimitGroupsCloseAndTheTreeDoesNotDeepen) {
  Fixture f(2, 1);
  Group* first_open = f.list->open_group;
  for (int i = 0; i < 9; ++i) f.dot(i * 10, -i);
  EXPECT_FALSE(first_open->is_open());
  EXPECT_TRUE(first_open->contains_drawables());
  EXPECT_EQ(first_open->bounds, (WorldBounds{{0, -1}, {10, 0}}));
  test::GroupCounts counts = test::count_groups(f.list->root);
  EXPECT_EQ(counts.max_level, 1);
  EXPECT_EQ(counts.bottom, 4);
  EXPECT_EQ(counts.open, 1);
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
}

TEST(Insertion, CapacityOneKeepsOrderAcrossCells) {
  // P and R in one cell, Q in another: three groups, walked P, Q, R.
  Fixture f(1, 31);
  Drawable* p = f.dot(1, 1);
  Drawable* q = f.dot(-1, -1);
  Drawable* r = f.dot(2, 2);
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
  EXPECT_EQ(test::drawables_in_order(f.list->root), (std::vector<const Drawable*>{p, q, r}));
  EXPECT_EQ(test::count_groups(f.list->root).bottom + test::count_groups(f.list->root).open, 3);
}

TEST(Insertion, EmptyRectanglesGoToTheOpenGroup) {
  Fixture f(4, 31);
  f.dot(10, 10);
  const WorldBounds before = f.list->open_bounds;
  Group* g = f.list->open_group;
  EXPECT_EQ(f.list->add(new (f.heap) Box(WorldBounds::empty()), WorldBounds::empty()), g);
  f.order.push_back(g->last_drawable());
  EXPECT_EQ(f.list->open_bounds, before);
  EXPECT_EQ(f.list->open_count, 2);
  // It is inside every cell, so a split carries it along in order.
  for (int i = 0; i < 20; ++i)
    f.box(i % 3 ? WorldBounds::empty() : WorldBounds{{i, i}, {i + 5, i + 5}});
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
}

TEST(Insertion, AnEmptyOpenGroupGoesWithoutClosingAnything) {
  Fixture f(2, 31);
  f.dot(1, 1);
  f.dot(2, 2);
  f.dot(3, 3);  // as above: interior level 1 with [closed, open(3,3)]
  Group* top = f.list->root->first_group();
  Group* closed = top->first_group();
  f.list->open_group->remove_all();
  f.order.pop_back();
  EXPECT_EQ(f.list->open_count, 0);
  f.dot(-7, -7);
  // The empty group went; its closed sibling and the interior parent kept
  // their rectangles (no close ran), and the new group opened at the parent.
  EXPECT_EQ(top->first_group(), closed);
  EXPECT_EQ(closed->sibling, f.list->open_group);
  EXPECT_EQ(top->bounds, WorldBounds::everything());
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
}

TEST(Insertion, RemoveAllThenAddAndReopening) {
  Fixture f(8, 31);
  for (int i = 0; i < 5; ++i) f.dot(i, i);
  Group* g = f.list->open_group;
  g->remove_all();
  EXPECT_EQ(g->first_child, nullptr);
  EXPECT_EQ(g->last_child, nullptr);
  f.order.clear();
  Drawable* d = f.dot(9, 9);
  EXPECT_EQ(g->first_drawable(), d);
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));

  // Closing the whole tree, then opening again. remove_all left open_bounds as
  // it was, so the closed group still covers the dots that went.
  f.list->root->close();
  EXPECT_EQ(f.list->root->bounds, (WorldBounds{{0, 0}, {9, 9}}));
  f.list->root->bounds = WorldBounds::everything();  // the root must hold all that comes
  f.list->root->create_open_bottom_group(f.list);
  EXPECT_TRUE(f.list->open_group->is_open());
  EXPECT_EQ(f.list->open_group->parent, f.list->root);
  EXPECT_EQ(f.list->open_group->level(), 1);
  f.dot(100, -100);
  EXPECT_TRUE(tree_is_valid(*f.list, &f.order));

  // remove_all on the root takes the open group along.
  f.list->root->remove_all();
  EXPECT_EQ(f.list->open_group, nullptr);
  EXPECT_EQ(f.list->first_open_group, nullptr);
  EXPECT_EQ(f.list->root->first_child, nullptr);
}

TEST(Insertion, EmptyChildNotifyClimbsToTheRootAndRefusesStrangers) {
  Fixture f(1, 31);
  f.dot(1, 1);
  f.dot(1 << 20, 1 << 20);  // a chain of groups below the root
  Group* stranger = f.list->open_group;
  EXPECT_EQ(f.list->root->empty_child_notify(stranger), nullptr);
  // Empty the deepest group by hand and notify: every emptied ancestor goes.
  Group* leaf = f.list->root->first_group()->first_group();
  ASSERT_NE(leaf, nullptr);
  leaf->remove_all();
  Group* survivor = leaf->parent->empty_child_notify(leaf);
  EXPECT_NE(survivor, nullptr);
  EXPECT_TRUE(survivor->first_child != nullptr || survivor->parent == nullptr);
}

TEST(Insertion, RandomisedTreesKeepEveryInvariant) {
  const int capacities[] = {1, 2, 3, 7, 64};
  const int limits[] = {1, 2, 5, 24, 31};
  for (int capacity : capacities)
    for (int limit : limits) {
      SCOPED_TRACE(testing::Message() << "capacity " << capacity << ", level limit " << limit);
      Fixture f(capacity, limit);
      std::mt19937 rng(static_cast<unsigned>(capacity * 100 + limit));
      auto any = [&] { return static_cast<WorldCoord>(rng()); };
      auto near = [&](WorldCoord c, int spread) {
        return static_cast<WorldCoord>(c + static_cast<int>(rng() % (2 * spread + 1)) - spread);
      };
      WorldPoint cursor{0, 0};
      for (int i = 0; i < 1500; ++i) {
        switch (rng() % 8) {
          case 0:  // anywhere, ends of the range included
            f.dot(rng() % 4 == 0 ? (rng() % 2 ? kMin : kMax) : any(),
                  rng() % 4 == 0 ? (rng() % 2 ? kMin : kMax) : any());
            break;
          case 1:
            f.box(WorldBounds::empty());
            break;
          case 2: {  // a rectangle across grid lines
            WorldCoord x = near(0, 1000), y = near(0, 1000);
            f.box({{x, y},
                   {static_cast<WorldCoord>(x + rng() % 5000),
                    static_cast<WorldCoord>(y + rng() % 5000)}});
            break;
          }
          case 3:
            f.box(WorldBounds::everything());
            break;
          default:  // a coherent stroke, as drawings arrive
            cursor = {near(cursor.x, 3000), near(cursor.y, 3000)};
            f.dot(cursor.x, cursor.y);
            break;
        }
        if (i % 100 == 0) {
          ASSERT_TRUE(tree_is_valid(*f.list, &f.order));
        }
      }
      ASSERT_TRUE(tree_is_valid(*f.list, &f.order));
    }
}

TEST(Spine, AMillionDotsReachTheRendererInOrder) {
  Fixture f(kDefaultGroupCapacity, kDefaultLevelLimit);
  auto* sink = new test::DotSink;
  f.list->set_renderer(sink);
  f.list->set_world_bounds({{0, 0}, {1 << 20, 1 << 20}});
  f.list->set_screen_bounds({{0, 0}, {1 << 10, 1 << 10}});  // 1024 world units a pixel
  // Tile by tile, 16 x 16 tiles of 64 x 64 dots, a dot every 256 units.
  const int n = 1000 * 1000;
  std::vector<ZR_DCI_Point> expected;
  expected.reserve(n);
  int added = 0;
  for (int tile = 0; added < n; ++tile)
    for (int j = 0; j < 64 * 64 && added < n; ++j, ++added) {
      WorldCoord x = ((tile % 64) * 64 + j % 64) * 256;
      WorldCoord y = ((tile / 64) * 64 + j / 64) * 256;
      f.list->add(new (f.heap) Dot(0, {x, y}), {{x, y}, {x, y}});
      expected.push_back(
          {round_to_int32_wrapping(x / 1024.0), round_to_int32_wrapping(y / 1024.0), 0});
    }
  EXPECT_TRUE(tree_is_valid(*f.list));
  test::GroupCounts counts = test::count_groups(f.list->root);
  EXPECT_GT(counts.bottom, n / kDefaultGroupCapacity / 2);
  EXPECT_LE(counts.max_level, kDefaultLevelLimit);
  f.list->root->draw_unclipped(*f.list);
  EXPECT_TRUE(sink->points == expected);
  EXPECT_EQ(sink->clipped, 0);
}

TEST(Walk, LayersAreTestedAnewInEveryDraw) {
  Fixture f(4, 31);
  auto* sink = new test::DotSink;
  f.list->set_renderer(sink);
  Extra_Layer_Info off{0}, on{1}, other{0x80};
  for (int i = 0; i < 12; ++i) {
    Drawable* d = f.dot(i, 0);
    d->set_layer(i % 3 == 0 ? &off : i % 3 == 1 ? &on : &other);
  }
  f.list->root->draw_unclipped(*f.list);
  EXPECT_EQ(sink->points.size(), 8u);
  off.shown = 7;
  sink->points.clear();
  f.list->root->draw_unclipped(*f.list);
  EXPECT_EQ(sink->points.size(), 12u);
  WorldBounds all = WorldBounds::empty();
  f.list->root->add_bounds(all);
  EXPECT_EQ(all, (WorldBounds{{0, 0}, {11, 0}}));
}

// Regression: a group_capacity of 0 set through the public field sent the
// empty open group to the split, which dereferenced its null first drawable;
// and level_limit 0 ("never split"), which is legal, was refused by an assert.
TEST(Insertion, LevelLimitZeroNeverSplitsAndCapacityZeroIsRefused) {
  {
    Fixture f(2, 0);
    for (int i = 0; i < 9; ++i) f.dot(i * 1000, (i % 3) * 70000);
    f.box({{kMin, kMin}, {kMax, kMax}});
    EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
    const test::GroupCounts counts = test::count_groups(f.list->root);
    EXPECT_EQ(counts.max_level, 1);  // every group hangs from the root
    EXPECT_EQ(counts.interior, 1);   // the root alone
  }
  // Capacity 0 breaks the precondition: asserted in debug builds; a release
  // build takes one drawable a group and keeps a valid tree.
  auto fill = [] {
    Fixture f(1, 31);
    f.list->group_capacity = 0;
    for (int i = 0; i < 6; ++i) f.dot(i * 1000, 0);
    // The checker refuses the broken field itself; the tree is what capacity 1
    // accepts.
    f.list->group_capacity = 1;
    EXPECT_TRUE(tree_is_valid(*f.list, &f.order));
  };
#ifdef NDEBUG
  fill();
#else
  EXPECT_DEATH(fill(), "group_capacity");
#endif
}

}  // namespace
}  // namespace DL
