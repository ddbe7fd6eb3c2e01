// The forward, filtered and reverse walks on the small trees where they differ:
// empty lists, empty leaves, one-drawable leaves, pruning at edges, and the
// growth of the reverse walk's stacks.
#include <gtest/gtest.h>

#include <vector>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "iterators/filtered_iterators.h"
#include "iterators/reverse_iterator.h"
#include "tests/displaylist/hand_tree.h"
#include "tests/support/tree_check.h"

namespace {

using DL::DisplayList;
using DL::Drawable;
using DL::Group;
using DL::WorldBounds;

// Exposes the protected steps and stacks.
struct OpenForward : DisplayListIterator {
  using DisplayListIterator::DisplayListIterator;
  using DisplayListIterator::next_until;
  using DisplayListIterator::prev;
  using DisplayListIterator::prev_group;
};
struct OpenReverse : DisplayListReverseIterator {
  using DisplayListReverseIterator::DisplayListReverseIterator;
  using DisplayListReverseIterator::drawable_stack;
};

Drawable* dot(DisplayList& list, int x, int y, ZR_RGB32 color = 0) {
  Drawable* d = new DL::Dot(color, {x, y});
  list.add(d, d->bounds_of());
  return d;
}

// Makes the root of `list` an empty open group. At level 1, whose cell of the
// plane is the plane: at level 0 the mask arithmetic gives {0,0}-{-1,-1}.
void make_open_root(DisplayList& list) {
  list.root->destroy();
  list.root = Group::open(&list, WorldBounds::everything(), WorldBounds::everything(), nullptr, 1);
}

// Closes the open group and opens an empty one after it, at the root.
Group* close_and_reopen(DisplayList& list) {
  list.open_group->close();
  list.root->create_open_bottom_group(&list);
  return list.open_group;
}

std::vector<Drawable*> walk(DisplayListIterator&& it) {
  std::vector<Drawable*> out;
  for (Drawable* d : it) out.push_back(d);
  return out;
}

TEST(ForwardWalk, EmptyListsAndEmptyLeaves) {
  DisplayList open_root;
  make_open_root(open_root);
  DisplayListIterator a(&open_root);
  EXPECT_EQ(a.group(), open_root.root);
  EXPECT_TRUE(a.at_sentinel());
  EXPECT_EQ(a.drawable()->sibling, nullptr);
  EXPECT_EQ(a.advance(), nullptr);
  EXPECT_EQ(a.advance(), nullptr);  // stays ended

  DisplayList childless;
  childless.root->remove_all();
  DisplayListIterator b(&childless);
  EXPECT_EQ(b.group(), nullptr);
  EXPECT_TRUE(b.at_sentinel());
  EXPECT_EQ(b.advance(), nullptr);

  DisplayList one;
  Drawable* d = dot(one, 5, 5);
  DisplayListIterator c(&one);
  EXPECT_EQ(c.drawable(), d);
  EXPECT_EQ(c.advance(), nullptr);
  EXPECT_EQ(c.group(), nullptr);

  // An empty open group after a leaf ends the walk there, standing on it.
  Group* empty = close_and_reopen(one);
  DisplayListIterator e(&one);
  EXPECT_EQ(e.drawable(), d);
  EXPECT_EQ(e.advance(), nullptr);
  EXPECT_EQ(e.group(), empty);
  EXPECT_TRUE(DL::test::tree_is_valid(one));
}

TEST(ForwardWalk, NextUntilAndRanges) {
  DisplayList list(nullptr, 2);
  // Far apart, so that splits put them in separate leaves: [p q] [r s] [t].
  Drawable* p = dot(list, 10, 10);
  Drawable* q = dot(list, 11, 11);
  close_and_reopen(list);
  Drawable* r = dot(list, -1000000, 10);
  Drawable* s = dot(list, -1000001, 11);
  close_and_reopen(list);
  Drawable* t = dot(list, 10, -1000000);
  ASSERT_TRUE(DL::test::tree_is_valid(list));
  EXPECT_EQ(walk(DisplayListIterator(&list)), (std::vector<Drawable*>{p, q, r, s, t}));

  OpenForward it(&list);
  Group* first_leaf = it.group();
  EXPECT_EQ(it.next_until(p), p);  // already current: nothing moves
  EXPECT_EQ(it.group(), first_leaf);
  EXPECT_EQ(it.next_until(nullptr), nullptr);  // stops at the end of the leaf
  EXPECT_EQ(it.group(), first_leaf);
  OpenForward later(&list);
  EXPECT_EQ(later.next_until(s), s);
  EXPECT_EQ(later.group(), SubEntityIterator(s, s, list.root).group());
  EXPECT_NE(later.group(), first_leaf);
  EXPECT_EQ(later.prev(), nullptr);
  EXPECT_EQ(later.prev_group(), nullptr);
  EXPECT_EQ(later.drawable(), s);

  // A target that is not there: the walk meets the empty open group and ends.
  close_and_reopen(list);
  DL::Dot stranger(0u, {1, 1});
  OpenForward lost(&list);
  EXPECT_EQ(lost.next_until(&stranger), nullptr);
  EXPECT_EQ(lost.group(), nullptr);
  EXPECT_EQ(lost.drawable(), nullptr);

  // A walk from an interior group goes on past the end of its subtree.
  Group* leaf_r = SubEntityIterator(r, r, list.root).group();
  Group* start = leaf_r->parent != list.root ? leaf_r->parent : leaf_r;
  std::vector<Drawable*> from = walk(DisplayListIterator(start));
  EXPECT_EQ(from.back(), t);

  // Ranges: one drawable, from an ancestor; a span of leaves; a null group.
  SubEntityIterator single(s, s, list.root);
  EXPECT_EQ(single.drawable(), s);
  EXPECT_EQ(single.group(), leaf_r);
  EXPECT_EQ(single.advance(), nullptr);
  EXPECT_EQ(single.group(), leaf_r);
  EXPECT_EQ(walk(SubEntityIterator(q, s, list.root)), (std::vector<Drawable*>{q, r, s}));
  SubEntityIterator none;
  EXPECT_EQ(none.init(p, p, nullptr), nullptr);
  EXPECT_EQ(none.drawable(), nullptr);
}

TEST(FilteredWalks, EdgesColoursAndPruning) {
  DisplayList list(nullptr, 2);
  Drawable* p = dot(list, 0, 0, 1);
  Drawable* q = dot(list, 100, 100, 2);
  close_and_reopen(list);
  Drawable* r = dot(list, 1000000, 1000000, 1);
  ASSERT_TRUE(DL::test::tree_is_valid(list));
  list.open_group->close();  // no cell left: every leaf has tight bounds
  const Group* leaf_pq = SubEntityIterator(p, p, list.root).group();
  ASSERT_EQ(leaf_pq->bounds, (WorldBounds{{0, 0}, {100, 100}}));

  // Touching the leaf's corner selects it, and all of it comes out.
  EXPECT_EQ(walk(DisplayListBoundedIterator(&list, {{100, 100}, {200, 200}})),
            (std::vector<Drawable*>{p, q}));
  DisplayListBoundedIterator missing(&list, {{101, 101}, {200, 200}});
  EXPECT_EQ(missing.group(), nullptr);
  EXPECT_EQ(missing.drawable(), nullptr);
  EXPECT_EQ(walk(DisplayListBoundedIterator(&list, {{-5, -5}, {2000000, 2000000}})),
            (std::vector<Drawable*>{p, q, r}));
  // No filter in next_until: a target in a missed leaf is not found.
  struct Bounded : DisplayListBoundedIterator {
    using DisplayListBoundedIterator::DisplayListBoundedIterator;
    using DisplayListBoundedIterator::next_until;
  } pruned(&list, {{1000000, 1000000}, {1000000, 1000000}});
  EXPECT_EQ(pruned.drawable(), r);
  EXPECT_EQ(pruned.next_until(p), nullptr);

  // The first item is not tested for colour; later ones are.
  DisplayListColorIterator red(&list, ZR_RGB32{2});
  EXPECT_EQ(red.drawable(), p);
  EXPECT_EQ(red.advance(), q);
  EXPECT_EQ(red.advance(), nullptr);
  DisplayListColorIterator nobody(&list, ZR_RGB32{7});
  EXPECT_EQ(nobody.advance(), nullptr);
  DisplayListBoundedColorIterator both(&list, {{50, 50}, {2000000, 2000000}}, ZR_RGB32{1});
  EXPECT_EQ(both.drawable(), p);
  EXPECT_EQ(both.advance(), r);
  EXPECT_EQ(both.advance(), nullptr);

  // A root that is a leaf is taken whatever the rectangle; an empty one gives
  // nothing in the bounded walks and the sentinel in the colour walk.
  DisplayList leaf_root;
  make_open_root(leaf_root);
  EXPECT_EQ(DisplayListBoundedIterator(&leaf_root, {{1, 1}, {1, 1}}).drawable(), nullptr);
  EXPECT_TRUE(DisplayListColorIterator(&leaf_root, ZR_RGB32{1}).at_sentinel());
  Drawable* far = dot(leaf_root, -7, -7);
  EXPECT_EQ(walk(DisplayListBoundedIterator(&leaf_root, {{1, 1}, {1, 1}})),
            (std::vector<Drawable*>{far}));
}

TEST(ReverseWalk, EmptyLeavesAndSelection) {
  DisplayList open_root;
  make_open_root(open_root);
  DisplayListReverseIterator none(&open_root, WorldBounds::everything());
  EXPECT_EQ(none.group(), nullptr);
  EXPECT_EQ(none.drawable(), nullptr);
  EXPECT_EQ(none.advance(), nullptr);
  EXPECT_EQ(none.advance(), nullptr);

  DisplayList list(nullptr, 2);
  Drawable* p = dot(list, 0, 0);
  Drawable* q = dot(list, 100, 100);
  close_and_reopen(list);
  Drawable* r = dot(list, 1000000, 1000000);
  close_and_reopen(list);  // an empty open group at the end
  // The walk passes over the empty open group and starts on the last drawable.
  DisplayListReverseIterator all(&list, WorldBounds::everything());
  EXPECT_EQ(all.drawable(), r);
  EXPECT_EQ(all.group()->first_child, all.group()->last_child);
  EXPECT_EQ(walk(DisplayListReverseIterator(&list, WorldBounds::everything())),
            (std::vector<Drawable*>{r, q, p}));
  // Only the leaf of p and q overlaps; the last leaf below an entered group
  // comes out untested, so r may appear, but never before q.
  std::vector<Drawable*> window = walk(DisplayListReverseIterator(&list, {{50, 50}, {60, 60}}));
  ASSERT_GE(window.size(), 2u);
  EXPECT_EQ(window[window.size() - 2], q);
  EXPECT_EQ(window.back(), p);
  DisplayListReverseIterator elsewhere(&list, {{-9, -9}, {-8, -8}});
  EXPECT_EQ(elsewhere.group(), nullptr);
  EXPECT_EQ(elsewhere.drawable(), nullptr);
}

// Exactly the leaves of the rule in reverse_iterator.h: those the bounded walk
// visits, and the last child of every group entered when that child is a leaf
// (taken untested); nothing else. The tree, in drawing order:
//   root: A [L1 (p, q), L2 (r), L3 (s)], B [L5 (t)], L4 (u)
TEST(ReverseWalk, VisitsExactlyTheLeavesOfItsRule) {
  DisplayList list;
  DL::test::HandTree tree(list);
  Group* a = tree.interior(list.root);
  Drawable* p = tree.dot(0, 0);
  Drawable* q = tree.dot(10, 10);
  tree.bottom(a, {static_cast<DL::Dot*>(p), static_cast<DL::Dot*>(q)});
  DL::Dot* r = tree.dot(500, 500);
  tree.bottom(a, {r});
  DL::Dot* s = tree.dot(900, 900);
  tree.bottom(a, {s});
  Group* b = tree.interior(list.root);
  DL::Dot* t = tree.dot(700, 0);
  tree.bottom(b, {t});
  DL::Dot* u = tree.dot(990, 10);
  tree.bottom(list.root, {u});
  tree.finish();
  ASSERT_TRUE(DL::test::tree_is_valid(list, &tree.order()));

  struct Case {
    WorldBounds window;
    std::vector<Drawable*> expected;
    const char* why;
  };
  const Case cases[] = {
      {{{0, 0}, {20, 20}}, {u, s, q, p}, "L1 meets; L3 ends entered A; L4 ends the root"},
      {{{500, 500}, {510, 510}}, {u, s, r}, "L2 meets; L3 and L4 as last leaves"},
      {{{900, 900}, {900, 900}}, {u, s}, "L3 meets and is A's last leaf anyway"},
      {{{700, 0}, {700, 0}},
       {u, t, s},
       "L5 meets; A's rectangle (0,0)-(900,900) holds the point, so A is entered "
       "and its last leaf L3 comes too, though L3 misses the window"},
      {{{5000, 5000}, {6000, 6000}}, {u}, "only the root is entered; B's last leaf is not taken"},
      {WorldBounds::everything(), {u, t, s, r, q, p}, "everything"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.why);
    EXPECT_EQ(walk(DisplayListReverseIterator(&list, c.window)), c.expected);
  }
}

TEST(ReverseWalk, StacksGrowWhenAndOnlyWhenFull) {
  for (int n : {1, 33, 34}) {
    DisplayList list;
    std::vector<Drawable*> dots;
    for (int i = 0; i < n; ++i) dots.push_back(dot(list, i, i));
    OpenReverse it(&list, WorldBounds::everything());
    EXPECT_EQ(it.drawable(), dots.back());
    EXPECT_EQ(it.drawable_stack.top, n - 2);
    EXPECT_EQ(it.drawable_stack.capacity, n <= 33 ? 32 : 64);
    std::vector<Drawable*> back(dots.rbegin(), dots.rend());
    std::vector<Drawable*> got{it.drawable()};
    while (Drawable* d = it.advance()) got.push_back(d);
    EXPECT_EQ(got, back);
  }
  // Group entries are zero in new storage, at creation and after a growth.
  IteratorStack<DisplayListReverseIterator::GroupEntry> stack;
  Group* some = reinterpret_cast<Group*>(&stack);
  for (int i = 0; i < 33; ++i) stack.push({some, true, true});
  ASSERT_EQ(stack.capacity, 64);
  for (int i = 33; i < 64; ++i) {
    EXPECT_EQ(stack.items[i].group, nullptr);
    EXPECT_FALSE(stack.items[i].expand || stack.items[i].wholly_inside);
  }
  EXPECT_EQ(stack.pop().group, some);
  while (!stack.empty()) stack.pop();
  EXPECT_EQ(stack.pop().group, nullptr);
}

}  // namespace
