// The tree under random editing, against a plain list in drawing order.
//
// Each sequence builds a list on a heap of its own and applies random adds,
// insertions before a drawable, removals by position, by likeness (with and
// without keep_drawable) and by rectangle, and host closes (also right after an
// insertion before a drawable), to the tree and to the model alike.
// After every step: the tree invariants hold; the forward walk is the model;
// the reverse walk over the whole plane is the model reversed; bounded walks
// (forward and reverse) give every drawable that overlaps their rectangle, in
// order; the colour walks give the model's drawables of their colour; and the
// heap holds exactly the model's drawables and the tree's groups.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "iterators/filtered_iterators.h"
#include "iterators/reverse_iterator.h"
#include "tests/support/tree_check.h"

namespace {

using DL::Drawable;
using DL::Group;
using DL::WorldBounds;
using DL::WorldCoord;
using DL::WorldPoint;

constexpr ZR_RGB32 kPalette[] = {0x000000FF, 0x0000FF00, 0x00FF0000};

struct Sequence {
  std::mt19937 rng;
  ZephalHeap* heap;
  DL::DisplayList list;
  std::vector<const Drawable*> model;
  std::int64_t center_x, center_y, span;

  Sequence(unsigned seed, int capacity, int level_limit)
      : rng(seed), heap(ZP_CreateHeap()), list(heap, capacity, level_limit) {
    static constexpr std::int64_t kSpans[] = {8, 300, 1 << 20, std::int64_t{1} << 32};
    span = kSpans[pick(4)];
    center_x = static_cast<WorldCoord>(rng());
    center_y = static_cast<WorldCoord>(rng());
  }

  int pick(int n) { return static_cast<int>(rng() % static_cast<unsigned>(n)); }

  WorldCoord coordinate(std::int64_t center) {
    std::int64_t v =
        center + static_cast<std::int64_t>(rng() % static_cast<std::uint64_t>(span)) - span / 2;
    return static_cast<WorldCoord>(std::clamp<std::int64_t>(v, INT32_MIN, INT32_MAX));
  }
  WorldPoint point() {
    // Now and then a point on an existing drawable, so that searches find twins.
    if (!model.empty() && pick(5) == 0)
      return static_cast<const DL::Dot*>(model[pick(static_cast<int>(model.size()))])->point;
    return {coordinate(center_x), coordinate(center_y)};
  }
  Drawable* make_dot() {
    DL::Drawable::ColorData color(kPalette[pick(3)]);
    if (pick(3) == 0) return new (heap) DL::ColorizedDot(color, point(), kPalette[pick(2)]);
    return new (heap) DL::Dot(color, point());
  }
  WorldBounds rectangle() {
    WorldPoint a = point(), b = point();
    return {{std::min(a.x, b.x), std::min(a.y, b.y)}, {std::max(a.x, b.x), std::max(a.y, b.y)}};
  }
  std::ptrdiff_t index_of(const Drawable* d) const {
    auto it = std::find(model.begin(), model.end(), d);
    return it == model.end() ? -1 : it - model.begin();
  }
  Drawable* at(std::size_t i) const { return const_cast<Drawable*>(model[i]); }
  Group* leaf_of(Drawable* d) { return SubEntityIterator(d, d, list.root).group(); }
  void ensure_open_group() {
    if (!list.open_group) list.root->create_open_bottom_group(&list);
  }

  void add() {
    ensure_open_group();
    Drawable* d = make_dot();
    Group* g = list.add(d, d->bounds_of());
    ASSERT_TRUE(g);
    EXPECT_EQ(g->last_drawable(), d);
    model.push_back(d);
  }

  void add_before() {
    if (model.empty()) return add();
    const std::size_t i = static_cast<std::size_t>(pick(static_cast<int>(model.size())));
    Drawable* existing = at(i);
    Group* leaf = leaf_of(existing);
    Group* g = leaf;
    if (pick(2) == 0) {
      g = list.root;
    } else {
      for (int up = pick(3); up > 0 && g->parent; --up) g = g->parent;
    }
    const int n = 1 + pick(3);
    std::vector<Drawable*> chain;
    WorldBounds b = WorldBounds::empty();
    for (int k = 0; k < n; ++k) {
      chain.push_back(make_dot());
      if (k) chain[k - 1]->sibling = chain[k];
      chain[k]->add_bounds(b);
    }
    EXPECT_EQ(list.add_before(g, existing, chain[0], b), leaf);
    model.insert(model.begin() + static_cast<std::ptrdiff_t>(i), chain.begin(), chain.end());
    // The host may close the tree at any time, here while add_before may just
    // have started an empty open group, and goes on adding later.
    if (pick(4) == 0) host_close();
  }

  void host_close() {
    list.root->close();
    list.root->bounds = WorldBounds::everything();
    if (list.open_group && !list.open_group->is_open()) list.open_group = nullptr;
    list.first_open_group = nullptr;
    if (pick(2)) ensure_open_group();
  }

  void remove_at() {
    if (model.empty()) return;
    const std::size_t i = static_cast<std::size_t>(pick(static_cast<int>(model.size())));
    Drawable* d = at(i);
    Group* leaf = leaf_of(d);
    Drawable* previous = nullptr;
    for (Drawable* x = leaf->first_drawable(); x != d; x = x->sibling) previous = x;
    const bool stays = leaf->first_child != leaf->last_child || !leaf->parent;
    Group* result = leaf->remove(d, previous);
    model.erase(model.begin() + static_cast<std::ptrdiff_t>(i));
    ASSERT_TRUE(result);
    if (stays) {
      EXPECT_EQ(result, leaf);
    }
    EXPECT_TRUE(in_tree(result));
  }

  void remove_like() {
    DL::Dot plain({}, point());
    DL::ColorizedDot colorized({}, plain.point, kPalette[pick(2)]);
    Drawable* pattern = pick(2) ? static_cast<Drawable*>(&plain) : &colorized;
    DL::Search search{pattern, pattern->type(), pattern->bounds_of(),
                      static_cast<unsigned char>(pick(3) == 0)};
    std::ptrdiff_t expected = -1;
    for (std::size_t k = 0; k < model.size() && expected < 0; ++k)
      if (model[k]->remove(search)) expected = static_cast<std::ptrdiff_t>(k);
    Group* result = list.root->remove_searched(search);
    EXPECT_EQ(result != nullptr, expected >= 0);
    if (result) {
      EXPECT_TRUE(in_tree(result));
    }
    if (expected >= 0 && !search.keep_drawable) model.erase(model.begin() + expected);
  }

  void remove_in_rectangle() {
    const WorldBounds r = rectangle();
    // Mostly on the root; sometimes on the leaf or an ancestor of a drawable.
    Group* g = list.root;
    if (!model.empty() && pick(3) == 0) {
      g = leaf_of(at(static_cast<std::size_t>(pick(static_cast<int>(model.size())))));
      for (int up = pick(3); up > 0 && g->parent; --up) g = g->parent;
    }
    std::vector<const Drawable*> below = DL::test::drawables_in_order(g);
    std::unordered_set<const Drawable*> gone;
    for (const Drawable* d : below)
      if (d->bounds_of().is_inside(r)) gone.insert(d);
    g->remove_bounded(r);
    std::erase_if(model, [&](const Drawable* d) { return gone.count(d) != 0; });
  }

  bool in_tree(const Group* g) const {
    std::vector<const Group*> stack{list.root};
    while (!stack.empty()) {
      const Group* x = stack.back();
      stack.pop_back();
      if (x == g) return true;
      if (!x->contains_drawables())
        for (const Group* c = x->first_group(); c; c = c->sibling) stack.push_back(c);
    }
    return false;
  }

  void step() {
    const int what = pick(20);
    if (what < 8)
      add();
    else if (what < 11)
      add_before();
    else if (what < 14)
      remove_at();
    else if (what < 17)
      remove_like();
    else if (what < 19)
      remove_in_rectangle();
    else
      host_close();
  }

  // Every check of the file comment.
  void check() {
    ASSERT_TRUE(DL::test::tree_is_valid(list, &model));

    std::vector<const Drawable*> forward;
    for (Drawable* d : DisplayListIterator(&list))
      if (d->type()) forward.push_back(d);  // the sentinel has no type
    EXPECT_EQ(forward, model);

    std::vector<const Drawable*> backward;
    for (Drawable* d : DisplayListReverseIterator(&list, WorldBounds::everything()))
      backward.push_back(d);
    EXPECT_TRUE(std::equal(backward.begin(), backward.end(), model.rbegin(), model.rend()));

    const WorldBounds r = rectangle();
    std::vector<std::ptrdiff_t> bounded, reverse_bounded;
    for (Drawable* d : DisplayListBoundedIterator(&list, r)) bounded.push_back(index_of(d));
    for (Drawable* d : DisplayListReverseIterator(&list, r)) reverse_bounded.push_back(index_of(d));
    EXPECT_TRUE(std::adjacent_find(bounded.begin(), bounded.end(), std::greater_equal<>()) ==
                bounded.end());
    EXPECT_TRUE(std::adjacent_find(reverse_bounded.begin(), reverse_bounded.end(),
                                   std::less_equal<>()) == reverse_bounded.end());
    EXPECT_EQ(std::count(bounded.begin(), bounded.end(), -1), 0);
    for (std::size_t k = 0; k < model.size(); ++k) {
      if (!model[k]->bounds_of().overlaps(r)) continue;
      const auto i = static_cast<std::ptrdiff_t>(k);
      EXPECT_NE(std::find(bounded.begin(), bounded.end(), i), bounded.end());
      EXPECT_NE(std::find(reverse_bounded.begin(), reverse_bounded.end(), i),
                reverse_bounded.end());
    }

    const Drawable::ColorData color(kPalette[pick(3)]);
    DisplayListColorIterator by_color(&list, color);
    if (model.empty()) {
      EXPECT_TRUE(by_color.at_sentinel());
    } else {
      EXPECT_EQ(by_color.drawable(), model[0]);
    }
    std::vector<const Drawable*> colored, expected_colored;
    while (Drawable* d = by_color.advance()) colored.push_back(d);
    for (std::size_t k = 1; k < model.size(); ++k)
      if (model[k]->color == color) expected_colored.push_back(model[k]);
    EXPECT_EQ(colored, expected_colored);

    // The bounded colour walk: the bounded walk's items of that colour.
    DisplayListBoundedColorIterator bounded_color(&list, r, color);
    std::vector<std::ptrdiff_t> bc, expected_bc;
    while (Drawable* d = bounded_color.advance()) bc.push_back(index_of(d));
    for (std::size_t k = 1; k < bounded.size(); ++k)
      if (model[static_cast<std::size_t>(bounded[k])]->color == color)
        expected_bc.push_back(bounded[k]);
    EXPECT_EQ(bc, expected_bc);

    const DL::test::GroupCounts groups = DL::test::count_groups(list.root);
    EXPECT_EQ(
        ZP_HeapStatistics(heap).live_blocks,
        model.size() + static_cast<std::size_t>(groups.interior + groups.bottom + groups.open));
  }

  ~Sequence() {
    list.root->destroy();
    list.root = nullptr;
    EXPECT_EQ(ZP_HeapStatistics(heap).live_blocks, 0u);
    ZP_DestroyHeap(heap);
  }
};

TEST(EditModel, RandomSequencesAgreeWithAPlainList) {
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  static constexpr int kCapacities[] = {1, 2, 3, 8, 64};
  for (unsigned seed = 1; seed <= 3000; ++seed) {
    Sequence s(seed, kCapacities[seed % 5], seed % 7 == 0 ? 3 : DL::kDefaultLevelLimit);
    for (int i = 0; i < 60; ++i) {
      s.step();
      s.check();
      if (::testing::Test::HasFailure()) {
        ADD_FAILURE() << "seed " << seed << ", step " << i;
        return;
      }
    }
  }
  // The iterator stacks come from the default heap and go back to it.
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
}

}  // namespace
