// Memory of the point primitives: device buffers on the stack up to 256 points
// and on the heap above, owned arrays, copies, twins, and nothing left behind.
#include <gtest/gtest.h>

#include <functional>

#include "drawables/image.h"
#include "drawables/polytriangle.h"
#include "drawables/row_of_dots.h"
#include "tests/support/point_views.h"

namespace DL {
namespace {

using test::HeapProbe;

constexpr std::size_t kDevicePoint = sizeof(ZR_DCI_Point);

struct Arrays {
  std::vector<WorldPoint> points;
  std::vector<ZR_RGB32> colors;
  std::vector<ZR_Vertex_Parameters> parameters;
  std::vector<float> scalars;
  explicit Arrays(int n)
      : points(test::distinct_points(n)),
        colors(static_cast<std::size_t>(n), 0x123),
        parameters(static_cast<std::size_t>(n), ZR_Vertex_Parameters{{1, 2, 3}}),
        scalars(static_cast<std::size_t>(n), 0.25f) {}
};

// One class of point list: how to build it from `n` points on `heap`, and the
// heap device buffers its draw holds at each action call, in points, when it
// has more than 256 points.
struct PointClass {
  const char* name;
  std::function<Drawable*(const Arrays&, int n, ZephalHeap* heap)> make;
  std::vector<std::vector<int>> buffers_beyond_256;  // per call: buffer sizes
  int owned_blocks;                                  // blocks of a clone, record included
};

std::vector<PointClass> point_classes() {
  return {
      {"Polydot",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) Polydot(1, n, a.points.data(), h);
       },
       {},  // filled below: one dot per point
       2},
      {"Polygon",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) Polygon(1, n, a.points.data(), h);
       },
       {{0}},
       2},
      {"Polyline",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) Polyline(1, n, a.points.data(), h);
       },
       {{1}},
       2},
      {"GouraudPolyline",
       [](const Arrays& a, int n, ZephalHeap*) {
         return new GouraudPolyline(1, n, a.points.data(), a.colors.data());
       },
       {{0}},
       3},
      {"Polymarker",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) Polymarker(1, n, a.points.data(), h);
       },
       {{0}},
       2},
      {"Polysegment",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) Polysegment(1, n, a.points.data(), h);
       },
       {},  // pair by pair on the stack, whatever the length
       2},
      {"PolytriangleWithNoBorder",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) PolytriangleWithNoBorder(1, n, a.points.data(), h);
       },
       {{0}},
       2},
      {"Polytriangle",
       [](const Arrays& a, int n, ZephalHeap* h) {
         return new (h) Polytriangle(1, n, a.points.data(), h);
       },
       {{0}, {0, 1}},  // the strip, then the strip and its outline
       2},
      {"GouraudPolytriangle",
       [](const Arrays& a, int n, ZephalHeap*) {
         return new GouraudPolytriangle(1, n, a.points.data(), a.colors.data());
       },
       {{0}},
       3},
      {"TexturedPolytriangle",
       [](const Arrays& a, int n, ZephalHeap*) {
         return new TexturedPolytriangle(1, n, a.points.data(), a.colors.data(),
                                         a.parameters.data(), a.scalars.data(),
                                         a.parameters.data());
       },
       {{0}},
       6},
  };
}

// Draws `d` into a probe and gives, per action call, the blocks and bytes the
// default heap held beyond what it held before the draw.
std::vector<std::pair<long, long>> heap_growth_per_call(Drawable* d, bool clipped) {
  DisplayList list;
  auto* probe = new HeapProbe;
  list.set_renderer(probe);
  list.set_world_bounds({{0, 0}, {1000, 1000}});
  list.set_screen_bounds({{0, 0}, {100, 100}});
  list.rendition.set_face_mode(64, false);  // the border too
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  if (clipped)
    d->draw_clipped(list);
  else
    d->draw_unclipped(list);
  const ZephalHeapStatistics after = ZP_HeapStatistics();
  EXPECT_EQ(after.live_blocks, before.live_blocks);
  EXPECT_EQ(after.live_bytes, before.live_bytes);
  std::vector<std::pair<long, long>> growth;
  for (const auto& call : probe->calls)
    growth.push_back({static_cast<long>(call.heap.live_blocks - before.live_blocks),
                      static_cast<long>(call.heap.live_bytes - before.live_bytes)});
  return growth;
}

TEST(DeviceBuffers, StackUpTo256PointsHeapFor257) {
  for (const PointClass& c : point_classes()) {
    SCOPED_TRACE(c.name);
    for (int n : {2, 256, 257, 1000}) {
      SCOPED_TRACE(n);
      Arrays arrays(n);
      Drawable* d = c.make(arrays, n, nullptr);
      for (bool clipped : {false, true}) {
        const auto growth = heap_growth_per_call(d, clipped);
        ASSERT_FALSE(growth.empty());
        std::vector<std::vector<int>> expected = c.buffers_beyond_256;
        if (std::string(c.name) == "Polydot") expected.assign(growth.size(), {0});
        if (std::string(c.name) == "Polysegment") expected.assign(growth.size(), {});
        ASSERT_EQ(growth.size(), expected.size());
        for (std::size_t call = 0; call < growth.size(); ++call) {
          long blocks = 0, bytes = 0;
          if (n > 256) {
            for (int extra : expected[call]) {
              blocks += 1;
              bytes += static_cast<long>((n + extra) * kDevicePoint);
            }
          }
          EXPECT_EQ(growth[call], std::make_pair(blocks, bytes)) << "call " << call;
        }
      }
      d->destroy();
    }
  }
}

// A hidden twin keeps everything but its draws; its clone is hidden, its
// partial clone visible, and destroying it frees what the class frees.
TEST(Twins, EveryPointClassHidesInPlace) {
  Arrays arrays(6);
  test::RecordedView v;
  ZephalHeap* heap = ZP_CreateHeap();
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  std::vector<Drawable*> all;
  for (const PointClass& c : point_classes()) all.push_back(c.make(arrays, 6, heap));
  all.push_back(new RowOfDots(1, {0, 0}, {10, 10}, 4));
  all.push_back(new Image(1, {{0, 0}, {10, 10}}, ZR_Image(new ZR_Image_Data)));

  for (Drawable* d : all) {
    void* type = d->type();
    const WorldBounds bounds = d->bounds_of();
    d->make_hidden();
    d->make_hidden();
    EXPECT_TRUE(d->is_hidden());
    EXPECT_EQ(d->type(), type);
    EXPECT_EQ(d->bounds_of(), bounds);
    EXPECT_TRUE(d->remove(Search{d, type, bounds, 0}));
    EXPECT_TRUE(v.draw_unclipped(*d).empty());
    EXPECT_TRUE(v.draw_clipped(*d).empty());
    Drawable* copy = d->clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(copy->is_hidden());
    EXPECT_TRUE(copy->remove(Search{d, type, bounds, 0}));
    copy->make_visible();
    EXPECT_FALSE(v.draw_unclipped(*copy).empty());
    copy->destroy();
    if (Drawable* part = d->partial_clone(0, 1)) {
      EXPECT_FALSE(part->is_hidden());
      part->destroy();
    }
  }
  // Half go back to their class and draw again; the others are destroyed as
  // twins.
  for (std::size_t i = 0; i < all.size(); ++i) {
    if (i % 2) continue;
    all[i]->make_visible();
    EXPECT_FALSE(all[i]->is_hidden());
    EXPECT_FALSE(v.draw_unclipped(*all[i]).empty());
  }
  for (Drawable* d : all) d->destroy();
  EXPECT_EQ(ZP_HeapStatistics(heap).live_blocks, 0u);
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
  EXPECT_EQ(ZP_HeapStatistics().live_bytes, before.live_bytes);
  ZP_DestroyHeap(heap);
}

TEST(Clones, OwnTheirArraysFromTheDefaultHeap) {
  Arrays arrays(300);
  ZephalHeap* heap = ZP_CreateHeap();
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  for (const PointClass& c : point_classes()) {
    SCOPED_TRACE(c.name);
    Drawable* d = c.make(arrays, 300, heap);
    const ZephalHeapStatistics own = ZP_HeapStatistics(heap);
    const ZephalHeapStatistics start = ZP_HeapStatistics();
    Drawable* copy = d->clone();
    // Everything of the copy is new, on the default heap, none on the source's.
    EXPECT_EQ(ZP_HeapStatistics().live_blocks - start.live_blocks,
              static_cast<std::size_t>(c.owned_blocks));
    EXPECT_EQ(ZP_HeapStatistics(heap).live_blocks, own.live_blocks);
    auto* source_list = static_cast<Polything*>(d);
    auto* copy_list = static_cast<Polything*>(copy);
    EXPECT_NE(copy_list->points, source_list->points);
    EXPECT_TRUE(copy->remove(Search{d, d->type(), d->bounds_of(), 0}));
    d->destroy();  // the copy outlives its source
    EXPECT_EQ(copy_list->points[299], arrays.points[299]);
    copy->destroy();
    EXPECT_EQ(ZP_HeapStatistics(heap).live_blocks, 0u);
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
  EXPECT_EQ(ZP_HeapStatistics().live_bytes, before.live_bytes);
  ZP_DestroyHeap(heap);
}

}  // namespace
}  // namespace DL
