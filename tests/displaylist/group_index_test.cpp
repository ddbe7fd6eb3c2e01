// The index beside wide groups against the plain walks over every child.
//
// Trees are built with a low threshold, so that most interior groups get an
// index, in three orders (tile by tile, random, and layers that each cover the
// plane tile by tile), from dots, boxes of any rectangle (empty ones too),
// nested lists shown at several places, drawables on hidden layers and hidden
// twins of drawables and groups. Every walk that prunes by rectangle runs on
// the same tree with the indexes used and not used: the recorded calls, the
// drawables, the results and the interrupt counter must be the same; a larger
// random drawing does the same for small windows through the crowded coarse
// levels of its index. Edits
// (adds, insertions before a drawable, removals of every kind, host closes)
// run in step on a list that indexes and one that does not: the same
// drawables stay, in the same order, and the dumps read alike.
#include "displaylist/group_index.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <random>
#include <regex>
#include <sstream>
#include <string>
#include <vector>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "iterators/filtered_iterators.h"
#include "iterators/reverse_iterator.h"
#include "nested/drawable_display_list.h"
#include "tests/support/test_drawables.h"
#include "tests/support/tree_check.h"

namespace {

using DL::Drawable;
using DL::Group;
using DL::GroupIndexSettings;
using DL::WorldBounds;
using DL::WorldCoord;
using DL::WorldPoint;

enum class Order { coherent, random, layered };

// Restores the process-wide index settings at the end of a test.
struct SettingsGuard {
  int threshold = GroupIndexSettings::threshold();
  ~SettingsGuard() {
    GroupIndexSettings::set_threshold(threshold);
    GroupIndexSettings::set_enabled(true);
  }
};

// Points of a drawing of `n` items on [0, 2^20)^2, in the given order.
struct Points {
  std::mt19937 rng;
  Order order;
  int n;
  int i = 0;
  Points(unsigned seed, Order o, int count) : rng(seed), order(o), n(count) {}
  WorldPoint next() {
    constexpr int kTiles = 8;  // 8 x 8 tiles of 2^17
    const int passes = order == Order::layered ? 3 : 1;
    const int per_tile = std::max(1, n / (kTiles * kTiles * passes));
    const int k = i++;
    if (order == Order::random)
      return {static_cast<WorldCoord>(rng() % (1u << 20)),
              static_cast<WorldCoord>(rng() % (1u << 20))};
    const int tile = (k / per_tile) % (kTiles * kTiles);
    return {
        static_cast<WorldCoord>((tile % kTiles) * (1 << 17) + static_cast<int>(rng() % (1u << 17))),
        static_cast<WorldCoord>((tile / kTiles) * (1 << 17) +
                                static_cast<int>(rng() % (1u << 17)))};
  }
};

// A list and what the test made for it: a recording renderer, a shared block
// shown by nested drawables, a hidden layer.
struct Scene {
  ZephalHeap* heap = ZP_CreateHeap();
  DL::DisplayList& list = *new DL::DisplayList(heap, 8, 24);
  ZR_Handle<DL::RecordingRenderer> handle{new DL::RecordingRenderer};
  DL::RecordingRenderer* renderer = handle.get();
  DL::DisplayList* block = nullptr;
  DL::Extra_Layer_Info hidden_layer{0};
  std::vector<Drawable*> made;  // in the order made, for picking
  unsigned next_color = 1;

  Scene() {
    list.set_renderer(renderer);
    list.set_world_bounds({{0, 0}, {(1 << 20) - 1, (1 << 20) - 1}});
    list.set_screen_bounds({{0, 0}, {999, 999}});
    renderer->set_selector(true);
  }
  ~Scene() {
    delete &list;  // the nested drawables borrow the block: it goes after them
    delete block;
    ZP_DestroyHeap(heap);
  }

  // A drawable of a random kind at `p`; its colour is a serial number.
  Drawable* make(std::mt19937& rng, WorldPoint p) {
    const ZR_RGB32 color{next_color++};
    Drawable* d;
    switch (rng() % 10) {
      case 0: {
        // A box of any size, now and then the empty rectangle.
        WorldBounds b{p,
                      {p.x + static_cast<WorldCoord>(rng() % 60000),
                       p.y + static_cast<WorldCoord>(rng() % 60000)}};
        if (rng() % 4 == 0) b = WorldBounds::empty();
        d = new DL::test::Box(b, color);
        break;
      }
      case 1:
        if (block) {
          WorldBounds region{p, {p.x + 5000, p.y + 5000}};
          d = new DL::DrawableDisplayList(DL::Drawable::ColorData(color), block, &region,
                                          DL::DrawableDisplayList::Ownership::borrowed);
          break;
        }
        [[fallthrough]];
      default:
        d = new DL::Dot(color, p);
    }
    if (rng() % 13 == 0) d->set_layer(&hidden_layer);
    if (rng() % 17 == 0) d->make_hidden();
    made.push_back(d);
    return d;
  }

  // Adds `n` drawables in `order`; with `walk_every`, a walk by rectangle
  // after every so many, so that indexes catch up in small steps (their
  // recent parts) as well as at once.
  void build(unsigned seed, Order order, int n, int walk_every = 0) {
    // The block: a small list of dots in random order, indexed itself.
    block = new DL::DisplayList(nullptr, 4, 24);
    std::mt19937 rng(seed);
    for (int i = 0; i < 300; ++i) {
      WorldPoint p{static_cast<WorldCoord>(rng() % 5000), static_cast<WorldCoord>(rng() % 5000)};
      block->add(new DL::Dot(ZR_RGB32{0xB10C}, p), {p, p});
    }
    Points points(seed, order, n);
    for (int i = 0; i < n; ++i) {
      Drawable* d = make(rng, points.next());
      list.add(d, d->bounds_of());
      if (walk_every && i % walk_every == walk_every - 1)
        for (DisplayListBoundedIterator it(&list, {{0, 0}, {1 << 19, 1 << 19}}); it.drawable();
             it.advance()) {
        }
    }
    // Hidden twins of a few groups.
    int k = 0;
    hide_some(list.root, k);
  }
  void hide_some(Group* g, int& k) {
    if (++k % 29 == 0 && g->parent) g->make_hidden();
    if (g->contains_drawables()) return;
    for (Group* c = g->first_group(); c; c = c->sibling) hide_some(c, k);
  }
};

WorldBounds random_window(std::mt19937& rng) {
  const WorldCoord side = static_cast<WorldCoord>(1 + rng() % (1u << (4 + rng() % 17)));
  const WorldCoord x = static_cast<WorldCoord>(rng() % (1u << 20)) - side / 2;
  const WorldCoord y = static_cast<WorldCoord>(rng() % (1u << 20)) - side / 2;
  return {{x, y}, {x + side, y + side}};
}

// Everything the walks by rectangle produce on one scene, as text: the
// recorded calls of each draw, the results and interrupt counters, and the
// drawables (by colour) of each iterator.
std::vector<std::string> walks(Scene& s, unsigned seed) {
  std::vector<std::string> out;
  std::mt19937 rng(seed);
  DL::RecordingRenderer& r = *s.renderer;
  auto take_trace = [&](const char* what) {
    std::vector<std::string> t = r.trace();
    out.push_back(std::string(what) + ": " + std::to_string(t.size()) + " calls");
    out.insert(out.end(), t.begin(), t.end());
    r.clear();
  };
  const std::vector<ZR_Point> polygon = {
      {100, 100, 0}, {900, 200, 0}, {700, 900, 0}, {150, 600, 0}};
  ZR_Contour_Set clip = ZR_Contour_Set::make({polygon});
  struct Stop {
    int calls = 0;
    int stop_at = 0;
  } stop;
  s.list.interrupt_callback = [](void* p) {
    Stop* st = static_cast<Stop*>(p);
    return ++st->calls != st->stop_at;
  };
  s.list.interrupt_user_data = &stop;
  for (int w = 0; w < 12; ++w) {
    const WorldBounds outer = random_window(rng);
    WorldBounds inner = outer;
    inner.intersect(s.list.world_bounds);
    if (w % 4 == 3) inner = random_window(rng);  // an inner rectangle outside the outer one
    Group* root = s.list.root;

    root->draw_bounded(s.list, inner, outer);
    take_trace("bounded");
    s.list.draw_view_bounded_selection(outer);
    take_trace("selection");

    s.list.rendition.set_complex_clip(&clip, true);
    s.list.circular_complex_clip();
    root->draw_circled_bounded(s.list, inner, outer);
    take_trace("circled");
    root->draw_complex_bounded(s.list, inner, outer);
    take_trace("complex");
    stop = {0, static_cast<int>(1 + rng() % 6)};
    s.list.interrupt_counter = static_cast<int>(rng() % 20);
    bool done = root->draw_complex_bounded_interrupt(s.list, inner, outer);
    out.push_back("complex interrupt " + std::to_string(done) + " " +
                  std::to_string(s.list.interrupt_counter));
    take_trace("complex interrupt");
    done = root->draw_circled_bounded_interrupt(s.list, inner, outer);
    out.push_back("circled interrupt " + std::to_string(done));
    take_trace("circled interrupt");
    s.list.rendition.set_complex_clip(nullptr, true);
    stop = {0, static_cast<int>(1 + rng() % 6)};
    done = root->draw_bounded_interrupt(s.list, inner, outer);
    out.push_back("bounded interrupt " + std::to_string(done) + " " +
                  std::to_string(s.list.interrupt_counter) + " " + std::to_string(stop.calls));
    take_trace("bounded interrupt");

    std::ostringstream it;
    it << "iterators:";
    for (DisplayListBoundedIterator b(&s.list, outer); b.drawable(); b.advance())
      it << ' ' << b.drawable()->color.word();
    it << " |";
    for (DisplayListBoundedColorIterator b(&s.list, outer, ZR_RGB32{0xB10C}); b.drawable();
         b.advance())
      it << ' ' << b.drawable()->color.word();
    it << " |";
    for (DisplayListReverseIterator b(&s.list, outer); b.drawable(); b.advance())
      it << ' ' << b.drawable()->color.word();
    out.push_back(it.str());
  }
  return out;
}

// The same walks with the indexes used and not, on trees of every order.
TEST(GroupIndex, IndexedWalksMakeTheCallsOfThePlainWalks) {
  SettingsGuard guard;
  GroupIndexSettings::set_threshold(4);
  for (Order order : {Order::coherent, Order::random, Order::layered})
    for (unsigned seed : {1u, 2u, 3u}) {
      SCOPED_TRACE(testing::Message() << "order " << static_cast<int>(order) << " seed " << seed);
      Scene s;
      s.build(seed, order, 3000, seed == 3 ? 61 : 0);
      ASSERT_TRUE(DL::test::tree_is_valid(s.list));
      GroupIndexSettings::set_enabled(true);
      const std::vector<std::string> indexed = walks(s, seed);
      GroupIndexSettings::set_enabled(false);
      const std::vector<std::string> plain = walks(s, seed);
      GroupIndexSettings::set_enabled(true);
      ASSERT_EQ(indexed.size(), plain.size());
      for (std::size_t i = 0; i < plain.size(); ++i)
        ASSERT_EQ(indexed[i], plain[i]) << "line " << i;
    }
}

// A drawing large enough, in random order, for the coarse levels of the root's
// index to hold crowded buckets (cut into blocks a query tests first): many
// small windows, each drawn with the indexes used and not, make the same
// calls, and the bounded iterator finds the same drawables.
TEST(GroupIndex, SmallWindowsOverCrowdedCoarseLevelsFindWhatThePlainWalkFinds) {
  SettingsGuard guard;
  ZR_Handle<DL::RecordingRenderer> handle{new DL::RecordingRenderer};
  DL::RecordingRenderer* renderer = handle.get();
  DL::DisplayList list;
  list.set_renderer(renderer);
  list.set_world_bounds({{0, 0}, {1 << 20, 1 << 20}});
  list.set_screen_bounds({{0, 0}, {1 << 12, 1 << 12}});
  Points points(5, Order::random, 40000);
  for (int i = 0; i < 40000; ++i) {
    const WorldPoint p = points.next();
    list.add(new DL::Dot(ZR_RGB32{static_cast<std::uint32_t>(i)}, p), {p, p});
  }
  ASSERT_TRUE(DL::test::tree_is_valid(list));
  std::mt19937 rng(17);
  for (int w = 0; w < 300; ++w) {
    const WorldCoord side = static_cast<WorldCoord>(1 + rng() % (1u << (rng() % 14)));
    const WorldCoord x = static_cast<WorldCoord>(rng() % (1u << 20));
    const WorldCoord y = static_cast<WorldCoord>(rng() % (1u << 20));
    const WorldBounds window{{x, y}, {x + side, y + side}};
    std::vector<std::string> traces[2];
    for (int indexed = 0; indexed < 2; ++indexed) {
      GroupIndexSettings::set_enabled(indexed == 1);
      list.root->draw_bounded(list, window, window);
      traces[indexed] = renderer->trace();
      renderer->clear();
      for (DisplayListBoundedIterator it(&list, window); it.drawable(); it.advance())
        traces[indexed].push_back(std::to_string(it.drawable()->color.word()));
    }
    ASSERT_EQ(traces[1], traces[0]) << "window " << w;
  }
}

// Two lists edited in step; one indexes its wide groups, the other never does.
struct Pair {
  Scene a, b;  // a: indexed; b: plain
  std::mt19937 rng_a, rng_b;
  explicit Pair(unsigned seed) : rng_a(seed), rng_b(seed) {}

  // Runs `op` on both scenes with equal random streams, the threshold set for
  // each.
  template <class Op>
  void both(Op op) {
    GroupIndexSettings::set_threshold(4);
    op(a, rng_a);
    GroupIndexSettings::set_threshold(0);
    op(b, rng_b);
  }
};

// Removes `d` by its position: its leaf and the drawable before it.
void remove_by_position(DL::DisplayList& list, Drawable* d) {
  Group* leaf = SubEntityIterator(d, d, list.root).group();
  Drawable* previous = nullptr;
  for (Drawable* x = leaf->first_drawable(); x != d; x = x->sibling) previous = x;
  leaf->remove(d, previous);
}

std::vector<std::uintptr_t> colors(const DL::DisplayList& list) {
  std::vector<std::uintptr_t> out;
  for (const Drawable* d : DL::test::drawables_in_order(list.root)) out.push_back(d->color.word());
  return out;
}

std::string dump(const DL::DisplayList& list) {
  std::ostringstream s;
  DL::DisplayListDebug debug{};
  list.root->dump_subtree(s, 0, debug);
  // Addresses differ between the lists.
  static const std::regex address("(this|sibling) = [0-9a-fx]+");
  return std::regex_replace(s.str(), address, "$1 = @");
}

TEST(GroupIndex, EditsLeaveWhatThePlainTreeLeaves) {
  SettingsGuard guard;
  for (Order order : {Order::coherent, Order::random, Order::layered}) {
    SCOPED_TRACE(testing::Message() << "order " << static_cast<int>(order));
    Pair p(7 + static_cast<unsigned>(order));
    p.both([&](Scene& s, std::mt19937&) { s.build(11, order, 2000); });
    Points points(99, order, 4000);
    Points points_b(99, order, 4000);
    for (int step = 0; step < 400; ++step) {
      const unsigned op = p.rng_a() % 12;
      p.rng_b();
      bool a_side = true;
      p.both([&](Scene& s, std::mt19937& rng) {
        DL::DisplayList& list = s.list;
        Points& pts = a_side ? points : points_b;
        a_side = false;
        std::vector<const Drawable*> order_now = DL::test::drawables_in_order(list.root);
        auto pick = [&]() -> Drawable* {
          if (order_now.empty()) return nullptr;
          return const_cast<Drawable*>(order_now[rng() % order_now.size()]);
        };
        switch (op) {
          case 0:
          case 1:
          case 2: {  // add
            if (!list.open_group) list.root->create_open_bottom_group(&list);
            Drawable* d = s.make(rng, pts.next());
            list.add(d, d->bounds_of());
            break;
          }
          case 3: {  // insertion before a drawable, from the root
            Drawable* existing = pick();
            if (!existing) break;
            Drawable* d = new DL::Dot(ZR_RGB32{s.next_color++}, pts.next());
            list.add_before(list.root, existing, d, d->bounds_of());
            break;
          }
          case 4: {  // removal by position
            if (Drawable* d = pick()) remove_by_position(list, d);
            break;
          }
          case 5:
          case 6: {  // removal by rectangle
            list.root->remove_bounded(random_window(rng));
            break;
          }
          case 7: {  // removal by likeness: a dot's twin
            Drawable* d = pick();
            if (!d || d->type() != &DL::Dot::_drawable_type_dummy) break;
            DL::Dot pattern(d->color, static_cast<DL::Dot*>(d)->point);
            DL::Search search{&pattern, pattern.type(), d->bounds_of(),
                              static_cast<unsigned char>(rng() % 3 == 0)};
            list.root->remove_searched(search);
            break;
          }
          case 8: {  // the host closes the tree and opens a group again
            if (rng() % 3) break;
            list.root->close();
            list.root->bounds = WorldBounds::everything();
            list.root->create_open_bottom_group(&list);
            break;
          }
          default: {  // a walk now and then, which may bring an index up to date
            for (DisplayListBoundedIterator it(&list, random_window(rng)); it.drawable();
                 it.advance()) {
            }
            break;
          }
        }
      });
      ASSERT_EQ(colors(p.a.list), colors(p.b.list)) << "step " << step << " op " << op;
      if (step % 20 == 0) {
        DL::test::TreeCheckOptions options;
        options.allow_empty_bottom = true;
        ASSERT_TRUE(DL::test::tree_is_valid(p.a.list, nullptr, options)) << "step " << step;
        ASSERT_EQ(dump(p.a.list), dump(p.b.list)) << "step " << step;
      }
    }
  }
}

// A group's index follows removals to the end: a wide group emptied child by
// child, from the front, the back and the middle, and then filled again.
TEST(GroupIndex, AWideGroupEmptiedAndFilledAgainKeepsItsIndexRight) {
  SettingsGuard guard;
  GroupIndexSettings::set_threshold(4);
  Scene s;
  std::mt19937 rng(5);
  // Random points make one group with a child per point, or nearly.
  for (int i = 0; i < 500; ++i) {
    WorldPoint p{static_cast<WorldCoord>(rng() % (1u << 20)),
                 static_cast<WorldCoord>(rng() % (1u << 20))};
    s.list.add(new DL::Dot(ZR_RGB32{s.next_color++}, p), {p, p});
  }
  ASSERT_TRUE(DL::test::tree_is_valid(s.list));
  std::vector<const Drawable*> all = DL::test::drawables_in_order(s.list.root);
  // Remove every other drawable by its position, front to back.
  for (std::size_t i = 0; i < all.size(); i += 2)
    remove_by_position(s.list, const_cast<Drawable*>(all[i]));
  ASSERT_TRUE(DL::test::tree_is_valid(s.list));
  std::vector<const Drawable*> left = DL::test::drawables_in_order(s.list.root);
  ASSERT_EQ(left.size(), all.size() / 2);
  for (std::size_t i = 0; i < left.size(); ++i) EXPECT_EQ(left[i], all[2 * i + 1]);
  // The rest, back to front, then by a rectangle over everything.
  for (std::size_t i = left.size(); i-- > left.size() / 2;) {
    remove_by_position(s.list, const_cast<Drawable*>(left[i]));
    ASSERT_TRUE(DL::test::tree_is_valid(s.list));
  }
  s.list.root->remove_bounded(WorldBounds::everything());
  EXPECT_EQ(s.list.root->first_child, nullptr);
  // Filled again from nothing: a new index is made as the group grows.
  s.list.root->create_open_bottom_group(&s.list);
  std::vector<const Drawable*> again;
  for (int i = 0; i < 300; ++i) {
    WorldPoint p{static_cast<WorldCoord>(rng() % (1u << 20)),
                 static_cast<WorldCoord>(rng() % (1u << 20))};
    auto* d = new DL::Dot(ZR_RGB32{s.next_color++}, p);
    s.list.add(d, {p, p});
    again.push_back(d);
  }
  EXPECT_TRUE(DL::test::tree_is_valid(s.list, &again));
  int indexed = 0;
  std::vector<const Group*> groups{s.list.root};
  while (!groups.empty()) {
    const Group* g = groups.back();
    groups.pop_back();
    if (g->contains_drawables()) continue;
    indexed += DL::GroupIndex::of(g) != nullptr;
    for (const Group* c = g->first_group(); c; c = c->sibling) groups.push_back(c);
  }
  EXPECT_GE(indexed, 1);
}

}  // namespace
