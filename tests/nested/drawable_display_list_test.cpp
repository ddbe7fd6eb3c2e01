// Nested display lists: the extent carried into the outer world, the view lent
// for one draw (screen rectangle, hard clip, grown one-pixel regions, regions
// outside the outer clip), the loan taken back, selection, composition through
// several levels, the match, copies, the twin, and sharing one list.
#include "nested/drawable_display_list.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

#include "backends/recording/recording.h"
#include "backends/recording/recording_text.h"
#include "drawables/dot.h"
#include "tests/support/tree_check.h"

namespace DL::test {
namespace {

using Ownership = DrawableDisplayList::Ownership;

constexpr ZR_Int_Rectangle kWholePlane{INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX};

// What a drawable of the nested list finds in its list while it draws.
struct Seen {
  ZR_Renderer* renderer;
  ZR_Text_Engine* text_engine;
  ZR_Int_Rectangle hard_clip;
  bool use_device_transform;
  bool clipped;
};

// A dot that also notes the state of the list it is drawn through.
class Probe : public Dot {
  DL_DRAWABLE(Probe);

 public:
  std::vector<Seen>* seen;
  Probe(const WorldPoint& p, std::vector<Seen>* s) : Dot(ZR_RGB32{7}, p), seen(s) {
    table = &visible_table_;
  }

 protected:
  void note(DisplayList& list, bool clipped) {
    seen->push_back({list.renderer, list.text_engine, list.rendition.hard_clip(),
                     list.use_device_transform, clipped});
  }
  void do_draw_unclipped(DisplayList& list) {
    note(list, false);
    Dot::do_draw_unclipped(list);
  }
  void do_draw_clipped(DisplayList& list) {
    note(list, true);
    Dot::do_draw_clipped(list);
  }
  Drawable* do_clone() const { return new Probe(point, seen); }
};
DL_DRAWABLE_DEFINE(Probe);

// The outer view of the worked examples: world 0..100 on screen (10,20) to
// (210,220), so screen = world * 2 + (10, 20); a hard clip of x 0..100,
// y 0..80; a recording renderer and a text engine.
struct OuterView {
  DisplayList list;
  ZR_Handle<RecordingRenderer> renderer{new RecordingRenderer};
  ZR_Handle<RecordingTextEngine> engine{new RecordingTextEngine};

  OuterView() {
    list.set_world_bounds({{0, 0}, {100, 100}});
    list.set_screen_bounds({{10, 20}, {210, 220}});
    list.set_renderer(renderer.get());
    list.text_engine = engine.get();
    add_ref(engine.get());
    list.rendition.set_hard_clip({0, 100, 0, 80}, false);
  }
};

// A new list holding the drawables, closed, so that every group has the tight
// rectangle of what it holds. With a capacity of 1 each drawable ends in a
// group of its own.
DisplayList* list_with(std::initializer_list<Drawable*> drawables, int capacity = 256) {
  auto* list = new DisplayList(nullptr, capacity);
  for (Drawable* d : drawables) list->add(d, d->bounds_of());
  list->root->close();
  list->open_group = nullptr;
  return list;
}

void expect_loan_returned(const DisplayList& nested, const ZR_Int_Rectangle& clip) {
  EXPECT_EQ(nested.renderer, nullptr);
  EXPECT_EQ(nested.text_engine, nullptr);
  EXPECT_EQ(nested.rendition.hard_clip(), clip);
  EXPECT_FALSE(nested.complex_clip_supported);
}

TEST(NestedList, WorkedExampleViewClipAndLoan) {
  OuterView outer;
  std::vector<Seen> seen;
  auto* inside = new Probe({10, 10}, &seen);
  auto* beyond_clip = new Probe({90, 90}, &seen);
  DisplayList* nested = list_with({inside, beyond_clip}, 1);
  ASSERT_TRUE(tree_is_valid(*nested));
  // The nested list's own clip, which every draw must leave as it found it.
  const ZR_Int_Rectangle own_clip{-5, 5000, -7, 7000};
  nested->rendition.set_hard_clip(own_clip, false);
  outer.list.use_device_transform = true;

  const WorldBounds region{{0, 0}, {100, 100}};
  DrawableDisplayList d(ZR_RGB32{3}, nested, &region);
  d.set_scale({0.5, 0.5});
  d.set_offset({5, 5});
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{5, 5}, {55, 55}}));
  EXPECT_EQ(d.bounds_of(), (WorldBounds{{5, 5}, {55, 55}}));
  WorldBounds total{{0, 0}, {6, 6}};
  d.add_bounds(total);
  EXPECT_EQ(total, (WorldBounds{{0, 0}, {55, 55}}));

  const auto renderer_refs = outer.renderer->reference_count();
  const auto engine_refs = outer.engine->reference_count();
  d.draw_unclipped(outer.list);
  EXPECT_EQ(nested->screen_bounds, (ScreenBounds{{20, 30}, {120, 130}}));
  EXPECT_EQ(nested->world_bounds, region);
  EXPECT_TRUE(nested->use_device_transform);
  // Both nested drawables are inside the nested view, so both draw, under the
  // nested clip (the device cuts the second away), with the loaned objects.
  ASSERT_EQ(seen.size(), 2u);
  for (const Seen& s : seen) {
    EXPECT_EQ(s.renderer, outer.renderer.get());
    EXPECT_EQ(s.text_engine, outer.engine.get());
    EXPECT_EQ(s.hard_clip, (ZR_Int_Rectangle{20, 100, 30, 80}));
    EXPECT_TRUE(s.use_device_transform);
  }
  EXPECT_EQ(outer.renderer->trace(),
            (std::vector<std::string>{"dot_unclipped (30,40)", "dot_unclipped (110,120)"}));
  expect_loan_returned(*nested, own_clip);
  EXPECT_EQ(outer.renderer->reference_count(), renderer_refs);
  EXPECT_EQ(outer.engine->reference_count(), engine_refs);

  // The clipped draw walks only the nested world that the clip shows:
  // screen (20,30)..(100,80) is nested (0,0)..(80,50).
  seen.clear();
  outer.renderer->clear();
  d.draw_clipped(outer.list);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].hard_clip, (ZR_Int_Rectangle{20, 100, 30, 80}));
  EXPECT_EQ(outer.renderer->trace(), (std::vector<std::string>{"dot_unclipped (30,40)"}));
  expect_loan_returned(*nested, own_clip);
  EXPECT_EQ(outer.renderer->reference_count(), renderer_refs);
  EXPECT_EQ(outer.engine->reference_count(), engine_refs);

  // A renderer the host gave the nested list itself is cleared by the draw.
  ZR_Handle<RecordingRenderer> own(new RecordingRenderer);
  nested->set_renderer(own.get());
  d.draw_unclipped(outer.list);
  expect_loan_returned(*nested, own_clip);
  EXPECT_TRUE(own->calls.empty());
}

TEST(NestedList, RegionsWithoutWidthGrowByOnePixel) {
  OuterView outer;
  std::vector<Seen> seen;
  DisplayList* nested = list_with({new Probe({0, 50}, &seen)});

  // No width: the image is one pixel wider, and the nested world is taken back
  // from the grown rectangle: 21 is outer world 5.5, rounded to 6, nested 2.
  const WorldBounds line{{0, 0}, {0, 100}};
  DrawableDisplayList d(ZR_RGB32{3}, nested, &line);
  d.set_scale({0.5, 0.5});
  d.set_offset({5, 5});
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{5, 5}, {5, 55}}));
  d.draw_unclipped(outer.list);
  EXPECT_EQ(nested->screen_bounds, (ScreenBounds{{20, 30}, {21, 130}}));
  EXPECT_EQ(nested->world_bounds, (WorldBounds{{0, 0}, {2, 100}}));
  EXPECT_EQ(d.bounds(), line);
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].hard_clip, (ZR_Int_Rectangle{20, 21, 30, 80}));

  // A single pixel grows on both axes.
  const WorldBounds point{{0, 0}, {0, 0}};
  d.set_bounds(&point);
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{5, 5}, {5, 5}}));
  d.draw_unclipped(outer.list);
  EXPECT_EQ(nested->screen_bounds, (ScreenBounds{{20, 30}, {21, 31}}));
  EXPECT_EQ(nested->world_bounds, (WorldBounds{{0, 0}, {2, 2}}));
  expect_loan_returned(*nested, kWholePlane);
}

TEST(NestedList, RegionOutsideTheOuterClipDrawsUnderAClipOfNoExtent) {
  OuterView outer;
  std::vector<Seen> seen;
  DisplayList* nested = list_with({new Probe({250, 250}, &seen)});
  // Outer world (245,240)..(295,290) is screen (500,500)..(600,600).
  const WorldBounds region{{245, 240}, {295, 290}};
  DrawableDisplayList d(ZR_RGB32{3}, nested, &region);
  d.draw_unclipped(outer.list);
  EXPECT_EQ(nested->screen_bounds, (ScreenBounds{{500, 500}, {600, 600}}));
  ASSERT_EQ(seen.size(), 1u);
  EXPECT_EQ(seen[0].hard_clip, (ZR_Int_Rectangle{100, 100, 80, 80}));
  expect_loan_returned(*nested, kWholePlane);
}

TEST(NestedList, EmptyRegionsAndMissingLists) {
  OuterView outer;
  // No nested list: nothing is drawn and nothing is lent, but the extent stays.
  const WorldBounds region{{0, 0}, {10, 10}};
  DrawableDisplayList without(ZR_RGB32{3}, nullptr, &region);
  without.set_offset({20, 30});
  EXPECT_EQ(without.bounds_of(), (WorldBounds{{20, 30}, {30, 40}}));
  without.draw_unclipped(outer.list);
  without.draw_clipped(outer.list);
  EXPECT_TRUE(outer.renderer->calls.empty());

  // Null bounds and an empty nested list: an empty extent, and (with the corner
  // values kept in range) no image, so the nested list is not touched.
  auto* nested = new DisplayList;
  DrawableDisplayList d(static_cast<ZR_Rendition*>(nullptr), nested, nullptr);
  EXPECT_EQ(d.bounds(), WorldBounds::empty());
  EXPECT_EQ(d.mapped_bounds(), WorldBounds::empty());
  WorldBounds total{{1, 2}, {3, 4}};
  d.add_bounds(total);
  EXPECT_EQ(total, (WorldBounds{{1, 2}, {3, 4}}));
  outer.list.saturate_device_points = true;
  const WorldBounds world_before = nested->world_bounds;
  d.draw_unclipped(outer.list);
  d.draw_clipped(outer.list);
  EXPECT_EQ(nested->world_bounds, world_before);
  EXPECT_EQ(nested->renderer, nullptr);
  EXPECT_TRUE(outer.renderer->calls.empty());
  // Scale and offset on empty bounds leave the extent alone.
  d.set_scale({3, 3});
  d.set_offset({1, 1});
  EXPECT_EQ(d.mapped_bounds(), WorldBounds::empty());

  // Null bounds gather the nested drawables' bounds through the scale.
  auto* a = new Dot(ZR_RGB32{1}, {10, -4});
  auto* b = new Dot(ZR_RGB32{1}, {-2, 20});
  nested->add(a, a->bounds_of());
  nested->add(b, b->bounds_of());
  ASSERT_TRUE(tree_is_valid(*nested));
  d.set_bounds(nullptr);
  EXPECT_EQ(d.bounds(), (WorldBounds{{-2, -4}, {10, 20}}));
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{-5, -11}, {31, 61}}));
  // Truncation toward zero, on both sides of zero.
  d.set_scale({0.5, 0.5});
  d.set_offset({0, 0.25});
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{-1, -1}, {5, 10}}));

  // Once the nested list has lost its drawables, null bounds empty `bounds`
  // but the last extent stands.
  nested->root->remove_bounded(WorldBounds::everything());
  ASSERT_TRUE(tree_is_valid(*nested));
  d.set_bounds(nullptr);
  EXPECT_EQ(d.bounds(), WorldBounds::empty());
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{-1, -1}, {5, 10}}));

  // A region that a negative scale mirrors has no image.
  const WorldBounds square{{0, 0}, {10, 10}};
  d.set_bounds(&square);
  d.set_scale({-1, 1});
  d.set_offset({50, 0});
  EXPECT_EQ(d.mapped_bounds(), (WorldBounds{{50, 0}, {40, 10}}));
  d.draw_unclipped(outer.list);
  EXPECT_EQ(nested->renderer, nullptr);
  EXPECT_EQ(nested->world_bounds, world_before);
}

TEST(NestedList, SelectionReachesTheNestedDrawables) {
  OuterView outer;
  outer.list.rendition.set_hard_clip(kWholePlane, false);
  auto* first = new Dot(ZR_RGB32{1}, {10, 10});
  auto* second = new Dot(ZR_RGB32{1}, {60, 60});
  DisplayList* nested = list_with({first, second}, 1);
  const WorldBounds region{{0, 0}, {100, 100}};
  auto* d = new DrawableDisplayList(ZR_RGB32{3}, nested, &region);
  d->set_scale({0.5, 0.5});
  d->set_offset({5, 5});
  outer.list.add(d, d->bounds_of());
  ASSERT_TRUE(tree_is_valid(outer.list));

  // Not a selector: the plain draw, and no selector is stored.
  outer.list.draw_view();
  EXPECT_EQ(nested->selector, nullptr);
  EXPECT_EQ(outer.renderer->calls.size(), 2u);

  outer.renderer->set_selector(true);
  outer.renderer->clear();
  outer.list.draw_view_selection();
  ZR_Option_Source* source = outer.renderer->option_source;
  EXPECT_EQ(nested->selector, source);
  ASSERT_EQ(outer.renderer->calls.size(), 2u);
  EXPECT_EQ(outer.renderer->calls[0].selector_drawable, first);
  EXPECT_EQ(outer.renderer->calls[1].selector_drawable, second);

  // The bounded form: the outer rectangle cuts through the region, so the
  // nested list is drawn clipped, to the nested world that the outer hard
  // clip (x up to 50, nested x up to 30) leaves: only its first dot.
  outer.list.rendition.set_hard_clip({0, 50, 0, 1000}, false);
  outer.renderer->clear();
  source->selector_drawable = nullptr;
  outer.list.draw_view_bounded_selection({{0, 0}, {20, 20}});
  EXPECT_EQ(nested->selector, source);
  ASSERT_EQ(outer.renderer->calls.size(), 1u);
  EXPECT_EQ(outer.renderer->calls[0].selector_drawable, first);
  EXPECT_EQ(outer.renderer->calls[0].points[0].x, 30);
  expect_loan_returned(*nested, kWholePlane);
  // The nested list keeps its reference on the source after the draw.
  EXPECT_GE(source->reference_count(), 3);
}

TEST(NestedList, ThreeLevelsDrawUnderTheComposedTransform) {
  // Outer: screen = world * 2; a hard clip that cuts every level at x 630.
  DisplayList outer;
  ZR_Handle<RecordingRenderer> renderer(new RecordingRenderer);
  outer.set_world_bounds({{0, 0}, {1000, 1000}});
  outer.set_screen_bounds({{0, 0}, {2000, 2000}});
  outer.set_renderer(renderer.get());
  outer.rendition.set_hard_clip({0, 630, 0, 2000}, false);

  // C: shown at twice its size in B.
  auto* c_dot = new Dot(ZR_RGB32{1}, {40, 60});
  DisplayList* c = list_with({c_dot});
  const WorldBounds c_region{{0, 0}, {100, 100}};
  auto* in_b = new DrawableDisplayList(ZR_RGB32{2}, c, &c_region);
  in_b->set_scale({2, 2});
  // B: shown at a quarter in A, moved by (400, 400).
  auto* b_dot = new Dot(ZR_RGB32{1}, {100, 200});
  DisplayList* b = list_with({b_dot, in_b});
  const WorldBounds region{{0, 0}, {1000, 1000}};
  auto* in_a = new DrawableDisplayList(ZR_RGB32{2}, b, &region);
  in_a->set_scale({0.25, 0.25});
  in_a->set_offset({400, 400});
  // A: shown at half in the outer list, moved by (100, 200).
  auto* a_dot = new Dot(ZR_RGB32{1}, {10, 10});
  DisplayList* a = list_with({a_dot, in_a});
  auto* in_outer = new DrawableDisplayList(ZR_RGB32{2}, a, &region);
  in_outer->set_scale({0.5, 0.5});
  in_outer->set_offset({100, 200});
  outer.add(in_outer, in_outer->bounds_of());
  for (const DisplayList* l : {&outer, a, b, c}) ASSERT_TRUE(tree_is_valid(*l));
  EXPECT_EQ(in_outer->mapped_bounds(), (WorldBounds{{100, 200}, {600, 700}}));

  outer.draw_view();
  // a (10,10) -> outer (105,205) -> screen (210,410);
  // b (100,200) -> A (425,450) -> outer (312.5,425) -> screen (625,850);
  // c (40,60) -> B (80,120) -> A (420,430) -> outer (310,415) -> screen (620,830).
  // The clip at x 630 crosses the regions of A and B, which are therefore drawn
  // clipped; C lies inside what it leaves, and is drawn unclipped.
  ASSERT_EQ(renderer->calls.size(), 3u);
  EXPECT_EQ(renderer->calls[0].to_string(), "dot_clipped (210,410)");
  EXPECT_EQ(renderer->calls[1].to_string(), "dot_clipped (625,850)");
  EXPECT_EQ(renderer->calls[2].to_string(), "dot_unclipped (620,830)");
  // Each level is clipped to its region inside the clip of the level above.
  EXPECT_EQ(renderer->calls[0].hard_clip, (ZR_Int_Rectangle{200, 630, 400, 1400}));
  EXPECT_EQ(renderer->calls[1].hard_clip, (ZR_Int_Rectangle{600, 630, 800, 1050}));
  EXPECT_EQ(renderer->calls[2].hard_clip, (ZR_Int_Rectangle{600, 630, 800, 850}));
  EXPECT_EQ(c->screen_bounds, (ScreenBounds{{600, 800}, {650, 850}}));
  for (const DisplayList* l : {a, b, c}) expect_loan_returned(*l, kWholePlane);
  EXPECT_EQ(outer.rendition.hard_clip(), (ZR_Int_Rectangle{0, 630, 0, 2000}));

  // An interruptible draw of the outer list polls for the outer groups only:
  // the nested lists are drawn by the plain traversals.
  int asked = 0;
  outer.interrupt_callback = [](void* n) {
    ++*static_cast<int*>(n);
    return true;
  };
  outer.interrupt_user_data = &asked;
  renderer->clear();
  EXPECT_TRUE(outer.root->draw_bounded_interrupt(outer, outer.world_bounds, outer.visible_bounds));
  EXPECT_EQ(renderer->calls.size(), 3u);
  EXPECT_EQ(outer.interrupt_counter, count_groups(outer.root).interior);
  for (const DisplayList* l : {a, b, c}) EXPECT_EQ(l->interrupt_counter, 0);
  // The outer list destroys A, which destroys B, which destroys C.
}

TEST(NestedList, MatchCloneCopyAndTwin) {
  OuterView outer;
  auto* nested = list_with({new Dot(ZR_RGB32{1}, {10, 10})});
  const WorldBounds region{{0, 0}, {100, 100}};
  ZR_Rendition rendition = ZR_Rendition::create();
  DrawableDisplayList d(&rendition, nested, &region);
  EXPECT_EQ(d.color.rendition(), &rendition);
  EXPECT_FALSE(d.has_rendition());
  EXPECT_TRUE(d.has_fixed_representation());
  EXPECT_EQ(d.get_vector_count(), 0);
  d.set_scale({0.5, 0.5});
  d.set_offset({5, 5});
  d.set_hard_clip_flag(true);
  Extra_Layer_Info layer{1};
  d.set_layer(&layer);

  // Same list, scale and offset match whatever the bounds; another scale, or
  // another class, does not.
  const WorldBounds other_region{{7, 7}, {8, 8}};
  DrawableDisplayList pattern(ZR_RGB32{9}, nested, &other_region, Ownership::borrowed);
  pattern.set_scale({0.5, 0.5});
  pattern.set_offset({5, 5});
  Search search{&pattern, pattern.type(), pattern.bounds_of(), 0};
  EXPECT_TRUE(d.remove(search));
  pattern.set_offset({5, 5.5});
  search.search_bounds = pattern.bounds_of();
  EXPECT_FALSE(d.remove(search));
  pattern.set_offset({5, 5});
  pattern.set_scale({0.5, 0.25});
  EXPECT_FALSE(d.remove(search));
  Dot dot(ZR_RGB32{1}, {0, 0});
  EXPECT_FALSE(d.remove(Search{&dot, dot.type(), dot.bounds_of(), 0}));

  // The clone shows the same list, with every carried field, in no group or
  // layer; a hidden source gives a hidden clone of the same type.
  d.make_hidden();
  auto* copy = static_cast<DrawableDisplayList*>(d.clone());
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->is_hidden());
  EXPECT_EQ(copy->type(), &DrawableDisplayList::_drawable_type_dummy);
  EXPECT_EQ(copy->display_list(), nested);
  EXPECT_TRUE(copy->owns_display_list());
  EXPECT_EQ(copy->color, d.color);
  EXPECT_EQ(copy->bounds(), region);
  EXPECT_EQ(copy->mapped_bounds(), d.mapped_bounds());
  EXPECT_EQ(copy->scale(), d.scale());
  EXPECT_EQ(copy->offset(), d.offset());
  EXPECT_TRUE(copy->hard_clip_flag());
  EXPECT_EQ(copy->layer(), nullptr);
  EXPECT_EQ(copy->sibling, nullptr);
  EXPECT_TRUE(d.remove(Search{copy, copy->type(), copy->bounds_of(), 0}));

  // The hidden twins draw nothing and lend nothing.
  d.draw_unclipped(outer.list);
  copy->draw_clipped(outer.list);
  EXPECT_TRUE(outer.renderer->calls.empty());
  EXPECT_EQ(nested->world_bounds, WorldBounds::empty());
  d.make_visible();
  d.draw_unclipped(outer.list);
  EXPECT_EQ(outer.renderer->trace(), (std::vector<std::string>{"dot_unclipped (30,40)"}));

  // The dump line is the plain one, and counts nothing.
  std::ostringstream out;
  DisplayListDebug debug{};
  d.dump(out, 1, debug);
  EXPECT_EQ(out.str(), "    Drawable: level  1, this = " +
                           std::to_string(reinterpret_cast<std::uintptr_t>(&d)) + "\n");
  EXPECT_EQ(debug.drawable_bytes, 0);
  EXPECT_EQ(debug.drawable_common_bytes, 0);

  // Of the two owners only one may keep the list: the clone hands it back.
  EXPECT_EQ(copy->display_list(), nested);
  copy->set_display_list(nullptr, nullptr);
  EXPECT_EQ(copy->mapped_bounds(), d.mapped_bounds());
  copy->destroy();
  d.set_layer(nullptr);
}

TEST(NestedList, OneBorrowedListShownAtManyPlaces) {
  auto* block = list_with({new Dot(ZR_RGB32{1}, {0, 0}), new Dot(ZR_RGB32{1}, {2, 1})});
  const WorldBounds region{{0, 0}, {2, 1}};
  {
    OuterView outer;
    outer.list.rendition.set_hard_clip(kWholePlane, false);
    for (int i = 0; i < 3; ++i) {
      auto* d = new DrawableDisplayList(ZR_RGB32{2}, block, &region, Ownership::borrowed);
      d->set_offset({10.0 * i, 20.0});
      outer.list.add(d, d->bounds_of());
      // Clones of a borrowing drawable borrow too.
      Drawable* copy = d->clone();
      ASSERT_NE(copy, nullptr);
      EXPECT_FALSE(static_cast<DrawableDisplayList*>(copy)->owns_display_list());
      copy->destroy();
    }
    ASSERT_TRUE(tree_is_valid(outer.list));

    outer.list.draw_view();
    EXPECT_EQ(outer.renderer->trace(),
              (std::vector<std::string>{"dot_unclipped (10,60)", "dot_unclipped (14,62)",
                                        "dot_unclipped (30,60)", "dot_unclipped (34,62)",
                                        "dot_unclipped (50,60)", "dot_unclipped (54,62)"}));

    // Removing an insert destroys the drawable, not the block.
    DrawableDisplayList pattern(ZR_RGB32{0}, block, &region, Ownership::borrowed);
    pattern.set_offset({10, 20});
    EXPECT_NE(
        outer.list.root->remove_fast(Search{&pattern, pattern.type(), pattern.bounds_of(), 0}),
        nullptr);
    ASSERT_TRUE(tree_is_valid(outer.list));
    outer.renderer->clear();
    outer.list.draw_view();
    EXPECT_EQ(outer.renderer->calls.size(), 4u);
    // The outer list goes with the other two inserts.
  }
  ASSERT_TRUE(tree_is_valid(*block));
  EXPECT_EQ(drawables_in_order(block->root).size(), 2u);
  EXPECT_EQ(block->renderer, nullptr);
  delete block;
}

}  // namespace
}  // namespace DL::test
