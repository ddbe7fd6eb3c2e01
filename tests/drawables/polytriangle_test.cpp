#include "drawables/polytriangle.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/point_views.h"
#include "tests/support/test_drawables.h"

namespace DL {
namespace {

using test::RecordedView;
using Trace = std::vector<std::string>;

// Device point i is (i, 0): the outline shows the order of the strip's points.
std::vector<WorldPoint> numbered(int n) {
  std::vector<WorldPoint> p;
  for (int i = 0; i < n; ++i) p.push_back({10 * i, 0});
  return p;
}

std::vector<int> outline_order(int count) {
  std::vector<ZR_DCI_Point> source;
  for (int i = 0; i < count; ++i) source.push_back({i, 0, 0});
  std::vector<ZR_DCI_Point> target(static_cast<std::size_t>(count) + 1, {-1, -1, -1});
  Polytriangle::strip_outline(count, source.data(), target.data());
  std::vector<int> order;
  for (const auto& p : target) order.push_back(p.x);
  return order;
}

TEST(Polytriangle, StripOutlineOrders) {
  EXPECT_EQ(outline_order(1), (std::vector<int>{0, 0}));
  EXPECT_EQ(outline_order(2), (std::vector<int>{0, 1, 0}));
  EXPECT_EQ(outline_order(3), (std::vector<int>{0, 1, 2, 0}));
  EXPECT_EQ(outline_order(4), (std::vector<int>{0, 1, 3, 2, 0}));
  EXPECT_EQ(outline_order(5), (std::vector<int>{0, 1, 3, 4, 2, 0}));
  EXPECT_EQ(outline_order(6), (std::vector<int>{0, 1, 3, 5, 4, 2, 0}));
}

TEST(Polytriangle, BorderUnderFaceMode64AtWeightOneRestored) {
  RecordedView v;
  auto p = numbered(5);
  Polytriangle strip(0x123456, 5, p.data());
  PolytriangleWithNoBorder plain(0x123456, 5, p.data());
  const std::string triangles = " 5 (0,0) (1,0) (2,0) (3,0) (4,0)";

  // Any face mode but 64: exactly the plain strip.
  v.list.rendition.set_face_mode(63, false);
  EXPECT_EQ(v.draw_unclipped(strip), (Trace{"triangles_unclipped" + triangles}));
  EXPECT_EQ(v.draw_unclipped(strip), v.draw_unclipped(plain));

  v.list.rendition.set_face_mode(64, false);
  v.list.rendition.set_line_weight(5, false);
  EXPECT_EQ(v.draw_unclipped(strip), (Trace{"triangles_unclipped" + triangles,
                                            "polyline_unclipped 6 (0,0) (1,0) (3,0) (4,0) "
                                            "(2,0) (0,0)"}));
  EXPECT_EQ(v.renderer->calls[0].line_weight, 5);
  EXPECT_EQ(v.renderer->calls[1].line_weight, 1);
  EXPECT_EQ(v.renderer->calls[1].rendition_color, 0x123456u);
  EXPECT_EQ(v.list.rendition.line_weight(), 5);
  // Both calls use the form of the draw.
  EXPECT_EQ(v.draw_clipped(strip), (Trace{"triangles_clipped" + triangles,
                                          "polyline_clipped 6 (0,0) (1,0) (3,0) (4,0) (2,0) "
                                          "(0,0)"}));
  EXPECT_EQ(v.list.rendition.line_weight(), 5);
  // The plain strip and the shaded ones never draw a border.
  EXPECT_EQ(v.draw_clipped(plain), (Trace{"triangles_clipped" + triangles}));

  // The weight is set in place: a rendition sharing the line attributes sees
  // the same weight after the draw, and nothing was copied.
  ZR_Rendition shared = v.list.rendition;
  const void* body = shared.get();
  v.draw_unclipped(strip);
  EXPECT_EQ(v.list.rendition.get(), body);
  EXPECT_EQ(shared.line_weight(), 5);

  auto two = numbered(2);
  Polytriangle pair(0, 2, two.data());
  EXPECT_EQ(v.draw_unclipped(pair),
            (Trace{"triangles_unclipped 2 (0,0) (1,0)", "polyline_unclipped 3 (0,0) (1,0) (0,0)"}));
}

TEST(Polytriangle, ShadedAndTexturedStripsHandTheirArraysOn) {
  RecordedView v;
  v.list.rendition.set_face_mode(64, false);
  auto p = numbered(3);
  const ZR_RGB32 colors[3] = {0xaa, 0xbb, 0xcc};
  const ZR_Vertex_Parameters parameters[3] = {{{1, 2, 3}}, {{4, 5, 6}}, {{7, 8, 9}}};
  const float scalars[3] = {0.5f, 1.5f, 2.5f};
  GouraudPolytriangle shaded(0, 3, p.data(), colors);
  EXPECT_EQ(v.draw_unclipped(shaded),
            (Trace{"gouraud_triangles_unclipped 3 (0,0) (1,0) (2,0) color=0x0000aa"}));
  EXPECT_EQ(v.renderer->calls[0].extra[0], shaded.vertex_colors);
  EXPECT_EQ(v.draw_clipped(shaded)[0].substr(0, 25), "gouraud_triangles_clipped");

  TexturedPolytriangle textured(0, 3, p.data(), colors, parameters, scalars, nullptr);
  EXPECT_EQ(v.draw_clipped(textured),
            (Trace{"textured_triangles_clipped 3 (0,0) (1,0) (2,0) color=0x0000aa"}));
  EXPECT_EQ(v.renderer->calls[0].extra,
            (std::vector<const void*>{textured.vertex_colors, textured.vertex_parameters,
                                      textured.vertex_scalars, nullptr}));
  EXPECT_EQ(textured.vertex_parameters[2].word[1], 8u);
  EXPECT_EQ(textured.vertex_scalars[1], 1.5f);
  EXPECT_EQ(v.draw_unclipped(textured)[0].substr(0, 28), "textured_triangles_unclipped");

  // A clone copies every array present and leaves the absent ones absent,
  // which the dump's byte count shows.
  auto* copy = static_cast<TexturedPolytriangle*>(textured.clone());
  ASSERT_NE(copy, nullptr);
  EXPECT_NE(copy->vertex_parameters, textured.vertex_parameters);
  EXPECT_NE(copy->vertex_scalars, nullptr);
  EXPECT_NE(copy->vertex_scalars, textured.vertex_scalars);
  EXPECT_EQ(copy->vertex_vectors, nullptr);
  TexturedPolytriangle bare(0, 3, p.data(), colors, parameters, nullptr, nullptr);
  auto* bare_copy = static_cast<TexturedPolytriangle*>(bare.clone());
  EXPECT_EQ(bare_copy->vertex_scalars, nullptr);
  EXPECT_EQ(bare_copy->vertex_vectors, nullptr);
  DisplayListDebug with{}, without{};
  std::ostringstream out;
  copy->dump(out, 0, with);
  bare_copy->dump(out, 0, without);
  EXPECT_EQ(with.drawable_bytes - without.drawable_bytes, static_cast<int>(3 * sizeof(float)));
  EXPECT_EQ(without.drawable_bytes,
            static_cast<int>(sizeof(TexturedPolytriangle) + 3 * sizeof(WorldPoint) +
                             3 * sizeof(ZR_RGB32) + 3 * sizeof(ZR_Vertex_Parameters)));
  copy->destroy();
  bare_copy->destroy();
}

TEST(Polytriangle, OutlineVectorsSearchAndDumps) {
  auto p = numbered(6);
  WorldVector v;
  Polytriangle four(0, 4, p.data());
  ASSERT_EQ(four.get_vector_count(), 4);
  // Edges 0-2, 2-3, 3-1, 1-0: the outline walked backward, closed.
  std::vector<std::pair<int, int>> edges;
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(four.get_vector(i, v));
    edges.push_back({v.start.x / 10, v.end.x / 10});
  }
  EXPECT_EQ(edges, (std::vector<std::pair<int, int>>{{0, 2}, {2, 3}, {3, 1}, {1, 0}}));
  GouraudPolytriangle six(0, 6, p.data(), std::vector<ZR_RGB32>(6, 0).data());
  std::vector<int> starts;
  for (int i = 0; i < 6; ++i) {
    ASSERT_TRUE(six.get_vector(i, v));
    starts.push_back(v.start.x / 10);
  }
  EXPECT_EQ(starts, (std::vector<int>{0, 2, 4, 5, 3, 1}));
  EXPECT_EQ(six.partial_clone(0, 1), nullptr);

  Polytriangle same(0x55, 4, p.data());
  PolytriangleWithNoBorder plain(0, 4, p.data());
  Search for_same{&same, same.type(), {}, 0};
  EXPECT_TRUE(four.remove(for_same));  // the colour plays no part
  EXPECT_FALSE(plain.remove(for_same));
  Polytriangle three(0, 3, p.data());
  EXPECT_FALSE(four.remove(Search{&three, three.type(), {}, 0}));

  DisplayListDebug debug{};
  std::ostringstream out;
  plain.dump(out, 0, debug);
  four.dump(out, 0, debug);
  six.dump(out, 0, debug);
  auto at = [](const void* a) { return std::to_string(reinterpret_cast<std::uintptr_t>(a)); };
  EXPECT_EQ(out.str(), "PolytriangleWithNoBorder: level  0, points = 4, this = " + at(&plain) +
                           "\nPolytriangle: level  0, points = 4, this = " + at(&four) +
                           "\nGouraudPolytriange: level  0, points = 6, this = " + at(&six) + "\n");
  EXPECT_EQ(debug.drawable_bytes,
            static_cast<int>(sizeof(PolytriangleWithNoBorder) + sizeof(Polytriangle) +
                             sizeof(GouraudPolytriangle) + 14 * sizeof(WorldPoint) +
                             6 * sizeof(ZR_RGB32)));
}

TEST(BoundsStrip, FilledBoundsInStripOrder) {
  RecordedView v;
  test::Box box({{100, 200}, {300, 500}}, 0x42);
  ZR_DCI_Point strip[4];
  ASSERT_EQ(box.bounds_strip(v.list, strip), strip);
  EXPECT_EQ(strip[0], (ZR_DCI_Point{10, 20, 0}));
  EXPECT_EQ(strip[1], (ZR_DCI_Point{30, 20, 0}));
  EXPECT_EQ(strip[2], (ZR_DCI_Point{10, 50, 0}));
  EXPECT_EQ(strip[3], (ZR_DCI_Point{30, 50, 0}));
  v.renderer->clear();
  box.draw_bounds_unclipped(v.list);
  box.draw_bounds_clipped(v.list);
  EXPECT_EQ(v.renderer->trace(), (Trace{"triangles_unclipped 4 (10,20) (30,20) (10,50) (30,50)",
                                        "triangles_clipped 4 (10,20) (30,20) (10,50) (30,50)"}));
  EXPECT_EQ(v.renderer->calls[0].rendition_color, 0x42u);

  // Empty bounds: no strip, no rendition, no call.
  test::Box empty(WorldBounds::empty(), 0x77);
  v.renderer->clear();
  EXPECT_EQ(empty.bounds_strip(v.list, strip), nullptr);
  empty.draw_bounds_unclipped(v.list);
  empty.draw_bounds_clipped(v.list);
  EXPECT_TRUE(v.renderer->calls.empty());
  EXPECT_EQ(v.list.rendition.color(), 0x42u);
}

}  // namespace
}  // namespace DL
