#include <gtest/gtest.h>

#include <sstream>

#include "drawables/image.h"
#include "drawables/row_of_dots.h"
#include "drawables/vector_iterator.h"
#include "tests/support/point_views.h"

namespace DL {
namespace {

using test::RecordedView;
using Trace = std::vector<std::string>;
constexpr WorldCoord kMax = PointTemplate<WorldCoord>::scalarMaximum;
constexpr WorldCoord kMin = PointTemplate<WorldCoord>::scalarMinimum;

TEST(RowOfDots, DrawsEachDotOnItsOwn) {
  RecordedView v;
  RowOfDots one(0x5, {300, 400}, {10, 10}, 1);
  EXPECT_EQ(v.draw_unclipped(one), (Trace{"dot_unclipped (30,40)"}));
  EXPECT_EQ(v.renderer->calls[0].rendition_color, 0x5u);
  EXPECT_EQ(one.bounds_of(), (WorldBounds{{300, 400}, {300, 400}}));

  // A negative step runs toward smaller coordinates; the bounds stay ordered.
  RowOfDots down(0, {500, 100}, {-100, 50}, 3);
  EXPECT_EQ(v.draw_clipped(down),
            (Trace{"dot_clipped (50,10)", "dot_clipped (40,15)", "dot_clipped (30,20)"}));
  EXPECT_EQ(down.bounds_of(), (WorldBounds{{300, 100}, {500, 200}}));

  // Dots on one device point are all sent; no repeat is dropped.
  RowOfDots still(0, {100, 100}, {0, 0}, 3);
  EXPECT_EQ(v.draw_unclipped(still), (Trace(3, "dot_unclipped (10,10)")));
  RowOfDots close(0, {100, 100}, {1, 0}, 3);
  EXPECT_EQ(v.draw_unclipped(close), (Trace(3, "dot_unclipped (10,10)")));
}

TEST(RowOfDots, SteppingWrapsIn32BitsAndDevicePointsSaturateWhenAsked) {
  RecordedView v;
  // The second dot steps past the largest world coordinate and comes back in
  // at the smallest: defined wrap-around, not overflow.
  RowOfDots edge(0, {kMax - 5, 0}, {10, 0}, 2);
  EXPECT_EQ(edge.last_dot(), (WorldPoint{kMin + 4, 0}));
  v.draw_unclipped(edge);
  ASSERT_EQ(v.renderer->calls.size(), 2u);
  WorldBounds b = edge.bounds_of();
  EXPECT_EQ(b, (WorldBounds{{kMin + 4, 0}, {kMax - 5, 0}}));

  // Far off the view at a large scale: only saturation keeps the dots at the
  // 32-bit limits.
  v.list.set_screen_bounds({{0, 0}, {10000, 100}});
  RowOfDots far(0, {kMax - 1, 0}, {1, 0}, 2);
  v.list.saturate_device_points = true;
  v.draw_unclipped(far);
  for (const auto& call : v.renderer->calls) EXPECT_EQ(call.points[0].x, kMax);
}

TEST(RowOfDots, SearchCloneAndNoVectors) {
  RowOfDots row(0x1, {1, 2}, {3, 4}, 5);
  Extra_Layer_Info layer{1};
  row.set_layer(&layer);
  RowOfDots same(0x9, {1, 2}, {3, 4}, 5);
  EXPECT_TRUE(row.remove(Search{&same, same.type(), {}, 0}));
  RowOfDots others[] = {RowOfDots(0, {1, 2}, {3, 4}, 6), RowOfDots(0, {1, 3}, {3, 4}, 5),
                        RowOfDots(0, {1, 2}, {3, 5}, 5)};
  for (RowOfDots& other : others) EXPECT_FALSE(row.remove(Search{&other, other.type(), {}, 0}));
  auto* copy = static_cast<RowOfDots*>(row.clone());
  EXPECT_EQ(copy->layer(), nullptr);
  EXPECT_TRUE(copy->remove(Search{&row, row.type(), {}, 0}));
  EXPECT_EQ(copy->color, row.color);
  copy->destroy();

  EXPECT_EQ(row.get_vector_count(), 0);
  EXPECT_FALSE(row.supports_fast_vector_iterator());
  DrawableVectorIterator probe;
  EXPECT_FALSE(probe.initialize(&row));
  DrawableVectorIterator* it = row.create_vector_iterator(true);
  ASSERT_NE(it, nullptr);
  EXPECT_TRUE(it->at_end);
  EXPECT_FALSE(it->fast);
  delete it;
}

ZR_Image make_image(int width) {
  auto* body = new ZR_Image_Data;
  body->width = width;
  return ZR_Image(body);
}

TEST(Image, DrawsItsTopLeftCornerWithItsHandle) {
  RecordedView v;
  Image image(0x33, {{100, 200}, {400, 600}}, make_image(2));
  EXPECT_EQ(v.draw_unclipped(image), (Trace{"image_unclipped (10,60)"}));  // min x, max y
  EXPECT_EQ(v.renderer->calls[0].extra, std::vector<const void*>{image.image});
  EXPECT_EQ(v.renderer->calls[0].rendition_color, 0x33u);
  EXPECT_EQ(v.draw_clipped(image), (Trace{"image_clipped (10,60)"}));
  EXPECT_EQ(image.bounds_of(), (WorldBounds{{100, 200}, {400, 600}}));
}

TEST(Image, CopiesShareTheBodyThroughHandlesOfTheirOwn) {
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  {
    ZR_Image picture = make_image(7);
    ZR_Image_Data* body = picture.get();
    auto* image = new Image(0, {{0, 0}, {10, 10}}, picture);
    EXPECT_EQ(body->reference_count(), 2);
    EXPECT_NE(image->image, &picture);
    EXPECT_EQ(image->image->get(), body);
    image->make_hidden();
    auto* copy = static_cast<Image*>(image->clone());
    EXPECT_TRUE(copy->is_hidden());
    EXPECT_EQ(body->reference_count(), 3);
    EXPECT_NE(copy->image, image->image);
    EXPECT_EQ(copy->image->get(), body);
    // Destroying either leaves the other whole; the hidden twin cleans up as
    // its class does.
    image->destroy();
    EXPECT_EQ(body->reference_count(), 2);
    EXPECT_EQ(copy->image->get()->width, 7);
    copy->destroy();
    EXPECT_EQ(body->reference_count(), 1);
  }
  {
    // A null body is valid, is copied as null and costs no count.
    Image empty(0, {{0, 0}, {1, 1}}, ZR_Image());
    Drawable* copy = empty.clone();
    EXPECT_EQ(static_cast<Image*>(copy)->image->get(), nullptr);
    copy->destroy();
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
  EXPECT_EQ(ZP_HeapStatistics().live_bytes, before.live_bytes);
}

TEST(Image, EdgesSearchAndDump) {
  Image image(0, {{1, 2}, {3, 4}}, ZR_Image());
  EXPECT_EQ(image.get_vector_count(), 4);
  const WorldVector untouched{{9, 9}, {9, 9}};
  WorldVector v = untouched;
  EXPECT_FALSE(image.get_vector(4, v));
  EXPECT_FALSE(image.get_vector(-1, v));
  EXPECT_EQ(v, untouched);
  std::vector<WorldVector> edges;
  DrawableVectorIterator* it = image.create_vector_iterator(false);
  for (WorldVector* e = &it->vector; e; e = it->next()) edges.push_back(*e);
  delete it;
  EXPECT_EQ(edges, (std::vector<WorldVector>{
                       {{1, 2}, {3, 2}}, {{3, 2}, {3, 4}}, {{3, 4}, {1, 4}}, {{1, 4}, {1, 2}}}));

  // Equal bounds match whatever image they show.
  Image other(5, {{1, 2}, {3, 4}}, make_image(1));
  Image moved(0, {{1, 2}, {3, 5}}, ZR_Image());
  EXPECT_TRUE(image.remove(Search{&other, other.type(), {}, 0}));
  EXPECT_FALSE(image.remove(Search{&moved, moved.type(), {}, 0}));
  RowOfDots row(0, {1, 2}, {0, 0}, 1);
  EXPECT_FALSE(image.remove(Search{&row, row.type(), {}, 0}));

  DisplayListDebug debug{};
  std::ostringstream out;
  image.dump(out, 3, debug);
  row.dump(out, 0, debug);
  EXPECT_EQ(out.str(), "            Image: level  3, this = " +
                           std::to_string(reinterpret_cast<std::uintptr_t>(&image)) +
                           "\nRowOfDots: level  0, this = " +
                           std::to_string(reinterpret_cast<std::uintptr_t>(&row)) + "\n");
  EXPECT_EQ(debug.drawable_bytes, static_cast<int>(sizeof(Image) + sizeof(RowOfDots)));
}

}  // namespace
}  // namespace DL
