#include "drawables/dot.h"

#include <gtest/gtest.h>

#include <sstream>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/vector_iterator.h"

namespace DL {
namespace {

struct ViewedList {
  DisplayList list;
  RecordingRenderer* renderer = new RecordingRenderer;
  ViewedList() {
    list.set_renderer(renderer);
    list.set_world_bounds({{0, 0}, {1000, 1000}});
    list.set_screen_bounds({{0, 0}, {100, 100}});  // ten world units a pixel
  }
};

TEST(Dot, DrawsOneDeviceDotThroughTheEntryOfTheDraw) {
  ViewedList v;
  Dot dot(0x112233, {505, 250});
  ColorizedDot colorized(0x445566, {10, 20}, 0xABCDEF);
  dot.draw_unclipped(v.list);
  dot.draw_clipped(v.list);
  colorized.draw_clipped(v.list);
  const auto& calls = v.renderer->calls;
  ASSERT_EQ(calls.size(), 3u);
  EXPECT_EQ(calls[0].to_string(), "dot_unclipped (50,25)");  // 50.5 ties to even
  EXPECT_EQ(calls[0].rendition_color, 0x112233u);
  EXPECT_EQ(calls[0].extra, std::vector<const void*>{nullptr});
  EXPECT_EQ(calls[1].entry, "dot_clipped");
  // The colorized dot sets `color` on the rendition and hands `dot_color` on.
  EXPECT_EQ(calls[2].to_string(), "dot_clipped (1,2) color=0xabcdef");
  EXPECT_EQ(calls[2].rendition_color, 0x445566u);
  EXPECT_EQ(calls[2].extra[0], &colorized.dot_color);
  // The colour stays set after the draw.
  EXPECT_EQ(v.list.rendition.color(), 0x445566u);

  // A dot far off the view keeps to the 32-bit limits only when asked.
  Dot far(0, {PointTemplate<WorldCoord>::scalarMaximum, 0});
  v.list.set_screen_bounds({{0, 0}, {10000, 100}});  // 10 pixels a unit: beyond 32 bits
  v.renderer->clear();
  far.draw_unclipped(v.list);
  v.list.saturate_device_points = true;
  far.draw_unclipped(v.list);
  EXPECT_EQ(v.renderer->calls[0].points[0].x, PointTemplate<int>::scalarMinimum);
  EXPECT_EQ(v.renderer->calls[1].points[0].x, PointTemplate<int>::scalarMaximum);
}

TEST(Dot, BoundsSearchCloneAndVectors) {
  Dot dot(7, {-3, 9});
  WorldBounds b = WorldBounds::empty();
  dot.add_bounds(b);
  EXPECT_EQ(b, (WorldBounds{{-3, 9}, {-3, 9}}));
  WorldBounds wide{{-10, -10}, {10, 10}};
  dot.add_bounds(wide);
  EXPECT_EQ(wide, (WorldBounds{{-10, -10}, {10, 10}}));

  Dot same(99, {-3, 9});
  ColorizedDot colorized(7, {-3, 9}, 5);
  ColorizedDot colorized_same(0, {-3, 9}, 5);
  ColorizedDot colorized_other(7, {-3, 9}, 6);
  Search for_dot{&same, same.type(), b, 0};
  Search for_colorized{&colorized_same, colorized_same.type(), b, 0};
  EXPECT_TRUE(dot.remove(for_dot));         // colour plays no part
  EXPECT_FALSE(colorized.remove(for_dot));  // a subclass never matches its base's pattern
  EXPECT_FALSE(dot.remove(for_colorized));
  EXPECT_TRUE(colorized.remove(for_colorized));
  EXPECT_FALSE(colorized_other.remove(for_colorized));
  EXPECT_NE(dot.type(), colorized.type());

  Extra_Layer_Info layer{1};
  colorized.set_layer(&layer);
  Drawable* copy = colorized.clone();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->type(), colorized.type());
  EXPECT_EQ(copy->layer(), nullptr);
  EXPECT_EQ(copy->sibling, nullptr);
  EXPECT_EQ(static_cast<ColorizedDot*>(copy)->dot_color, 5u);
  EXPECT_EQ(copy->color, colorized.color);
  copy->destroy();

  WorldVector v{{1, 1}, {2, 2}};
  EXPECT_EQ(dot.get_vector_count(), 1);
  EXPECT_TRUE(dot.get_vector(-7, v));
  EXPECT_EQ(v, (WorldVector{{-3, 9}, {-3, 9}}));
  EXPECT_TRUE(dot.supports_fast_vector_iterator());
  EXPECT_TRUE(dot.has_fixed_representation());
  EXPECT_FALSE(dot.has_rendition());
  EXPECT_EQ(dot.partial_clone(0, 1), nullptr);
  DrawableVectorIterator* it = dot.create_vector_iterator(false);
  ASSERT_NE(it, nullptr);
  EXPECT_FALSE(it->at_end);
  EXPECT_EQ(it->vector, (WorldVector{{-3, 9}, {-3, 9}}));
  EXPECT_EQ(it->next(), nullptr);
  EXPECT_TRUE(it->at_end);
  EXPECT_NE(it->prev(), nullptr);  // turns back onto the one vector
  delete it;
}

// Hiding changes the table the object points to; the same pointer, used in one
// function before and after, must see the change (the optimizer may not cache
// the class), and nothing else about the object changes.
TEST(Twins, HiddenDotsKeepEverythingButTheirDraws) {
  ViewedList v;
  auto* dot = new ColorizedDot(1, {100, 100}, 2);
  Drawable* d = dot;
  const void* type = d->type();
  d->make_hidden();
  d->make_hidden();
  EXPECT_TRUE(d->is_hidden());
  d->draw_unclipped(v.list);
  d->draw_clipped(v.list);
  d->draw_unclipped_selection(v.list);
  EXPECT_TRUE(v.renderer->calls.empty());
  EXPECT_EQ(d->type(), type);
  EXPECT_EQ(d->bounds_of(), (WorldBounds{{100, 100}, {100, 100}}));
  ColorizedDot pattern(0, {100, 100}, 2);
  EXPECT_TRUE(d->remove(Search{&pattern, pattern.type(), {}, 0}));

  Drawable* copy = d->clone();
  EXPECT_TRUE(copy->is_hidden());
  copy->make_visible();
  copy->draw_unclipped(v.list);
  copy->destroy();

  d->make_visible();
  EXPECT_FALSE(d->is_hidden());
  d->draw_unclipped(v.list);
  EXPECT_EQ(v.renderer->entries(), (std::vector<std::string>{"dot_unclipped", "dot_unclipped"}));
  d->destroy();
}

TEST(Dummy, StandsInForNothing) {
  DummyDrawable dummy;
  EXPECT_EQ(dummy.type(), nullptr);
  EXPECT_EQ(dummy.clone(), nullptr);
  EXPECT_EQ(dummy.sibling, nullptr);
  EXPECT_EQ(dummy.layer(), nullptr);
  EXPECT_EQ(dummy.color.word(), 0u);
  Dot pattern(0, {0, 0});
  EXPECT_FALSE(dummy.remove(Search{&pattern, pattern.type(), {}, 0}));
  EXPECT_FALSE(dummy.remove(Search{&dummy, nullptr, {}, 0}));
  WorldBounds b = WorldBounds::empty();
  dummy.add_bounds(b);
  EXPECT_EQ(b, WorldBounds::empty());
  ViewedList v;
  dummy.draw_unclipped(v.list);
  dummy.make_hidden();
  EXPECT_FALSE(dummy.is_hidden());  // no twin
  EXPECT_TRUE(v.renderer->calls.empty());
}

TEST(Dump, DotLinesAndCounts) {
  Dot dot(0, {1, 2});
  ColorizedDot colorized(0, {1, 2}, 3);
  DisplayListDebug debug{};
  std::ostringstream out;
  dot.dump(out, 2, debug);
  colorized.dump(out, 0, debug);
  std::ostringstream expected;
  expected << "        Dot: level  2, this = " << reinterpret_cast<std::uintptr_t>(&dot) << "\n"
           << "ColorizedDot: level  0, this = " << reinterpret_cast<std::uintptr_t>(&colorized)
           << "\n";
  EXPECT_EQ(out.str(), expected.str());
  EXPECT_EQ(debug.drawable_bytes, static_cast<int>(sizeof(Dot) + sizeof(ColorizedDot)));
  EXPECT_EQ(debug.drawable_common_bytes, static_cast<int>(2 * sizeof(Drawable)));
  EXPECT_EQ(sizeof(Dot), 40u);  // the record: table, sibling, colour, layer, point
}

}  // namespace
}  // namespace DL
