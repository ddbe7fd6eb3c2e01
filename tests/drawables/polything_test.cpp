#include "drawables/polything.h"

#include <gtest/gtest.h>

#include <sstream>

#include "tests/support/point_views.h"

namespace DL {
namespace {

using test::RecordedView;
using Trace = std::vector<std::string>;

template <class T, class... A>
T make(std::initializer_list<WorldPoint> points, A... extra) {
  return T(0x102030, static_cast<int>(points.size()), points.begin(), extra...);
}

Search pattern_of(const Drawable& d) {
  return Search{const_cast<Drawable*>(&d), d.type(), d.bounds_of(), 0};
}

TEST(Polyline, DropsRepeatedDevicePointsAndCollapsesToADot) {
  RecordedView v;
  // (104,0) lands on (10,0), the point kept before it; the later return to
  // (0,0) is not adjacent to the first and stays.
  auto line = make<Polyline>({{0, 0}, {100, 0}, {104, 0}, {200, 50}, {0, 0}});
  EXPECT_EQ(v.draw_unclipped(line), (Trace{"polyline_unclipped 4 (0,0) (10,0) (20,5) (0,0)"}));
  EXPECT_EQ(v.renderer->calls[0].rendition_color, 0x102030u);
  EXPECT_EQ(v.draw_clipped(line), (Trace{"polyline_clipped 4 (0,0) (10,0) (20,5) (0,0)"}));

  // All on one device point: one dot with no colour of its own, in the entry
  // of the draw.
  auto spot = make<Polyline>({{0, 0}, {3, 0}, {4, 4}, {-4, 2}});
  EXPECT_EQ(v.draw_unclipped(spot), (Trace{"dot_unclipped (0,0)"}));
  EXPECT_EQ(v.renderer->calls[0].extra, std::vector<const void*>{nullptr});
  EXPECT_EQ(v.draw_clipped(spot), (Trace{"dot_clipped (0,0)"}));

  // Two points that stay apart are a line of two.
  auto two = make<Polyline>({{0, 0}, {10, 0}});
  EXPECT_EQ(v.draw_unclipped(two), (Trace{"polyline_unclipped 2 (0,0) (1,0)"}));
}

TEST(Polydot, DrawsKeptPointsFromTheLastToTheFirst) {
  RecordedView v;
  auto one = make<Polydot>({{300, 400}});
  EXPECT_EQ(v.draw_unclipped(one), (Trace{"dot_unclipped (30,40)"}));
  auto three = make<Polydot>({{0, 0}, {100, 100}, {101, 100}});
  EXPECT_EQ(v.draw_unclipped(three), (Trace{"dot_unclipped (10,10)", "dot_unclipped (0,0)"}));
  EXPECT_EQ(v.draw_clipped(three), (Trace{"dot_clipped (10,10)", "dot_clipped (0,0)"}));
  for (const auto& call : v.renderer->calls) EXPECT_FALSE(call.has_color);
}

TEST(PointLists, PolygonMarkersAndShadedLinesSendEveryPoint) {
  RecordedView v;
  // Coinciding points are all sent, and the polygon is not closed by the
  // library.
  auto polygon = make<Polygon>({{0, 0}, {100, 0}, {100, 0}, {0, 100}});
  EXPECT_EQ(v.draw_unclipped(polygon), (Trace{"polygon_unclipped 4 (0,0) (10,0) (10,0) (0,10)"}));
  EXPECT_EQ(v.renderer->calls[0].extra, std::vector<const void*>{nullptr});
  EXPECT_EQ(v.draw_clipped(polygon), (Trace{"polygon_clipped 4 (0,0) (10,0) (10,0) (0,10)"}));

  auto markers = make<Polymarker>({{0, 0}, {1, 1}, {500, 500}});
  EXPECT_EQ(v.draw_unclipped(markers), (Trace{"polymarker_unclipped 3 (0,0) (0,0) (50,50)"}));
  EXPECT_EQ(v.draw_clipped(markers), (Trace{"polymarker_clipped 3 (0,0) (0,0) (50,50)"}));

  const WorldPoint points[] = {{0, 0}, {2, 0}, {300, 0}};
  const ZR_RGB32 colors[] = {0xff0000, 0x00ff00, 0x0000ff};
  GouraudPolyline shaded(0x777777, 3, points, colors);
  EXPECT_EQ(v.draw_unclipped(shaded),
            (Trace{"gouraud_polyline_unclipped 3 (0,0) (0,0) (30,0) color=0xff0000"}));
  EXPECT_EQ(v.renderer->calls[0].extra[0], shaded.vertex_colors);
  // A clipped traversal still shows the line: the same points as a plain
  // clipped line in the drawable's colour.
  EXPECT_EQ(v.draw_clipped(shaded), (Trace{"polyline_clipped 3 (0,0) (0,0) (30,0)"}));
  EXPECT_EQ(v.renderer->calls[0].rendition_color, 0x777777u);
}

TEST(Polysegment, PairsLineDotOrDiscByLineWeight) {
  RecordedView v;
  // Two segments, the second collapsed onto (20,20); the odd fifth point is
  // not drawn but is in the bounds.
  auto segments = make<Polysegment>({{0, 0}, {100, 0}, {200, 200}, {203, 201}, {900, 900}});
  const Trace as_dot{"polyline_unclipped 2 (0,0) (10,0)", "dot_unclipped (20,20)"};
  EXPECT_EQ(v.draw_unclipped(segments), as_dot);
  v.list.rendition.set_line_weight(2, false);  // (2 - 1) / 2 is still 0
  EXPECT_EQ(v.draw_unclipped(segments), as_dot);
  v.list.rendition.set_line_weight(3, false);
  EXPECT_EQ(v.draw_unclipped(segments),
            (Trace{"polyline_unclipped 2 (0,0) (10,0)",
                   "elliptical_pie_unclipped (20,20) (1,1) [0 6.28318548 0]"}));
  EXPECT_EQ(v.renderer->calls[1].angles[1], 6.2831854820251465);
  EXPECT_EQ(v.renderer->calls[1].extra, std::vector<const void*>{nullptr});
  v.list.rendition.set_line_weight(6, false);
  EXPECT_EQ(v.draw_clipped(segments),
            (Trace{"polyline_clipped 2 (0,0) (10,0)",
                   "elliptical_pie_clipped (20,20) (2,2) [0 6.28318548 0]"}));
  EXPECT_EQ(segments.bounds_of(), (WorldBounds{{0, 0}, {900, 900}}));
}

TEST(PointLists, SearchComparesTokenCountPointsAndSometimesColour) {
  auto line = make<Polyline>({{1, 2}, {3, 4}, {5, 6}});
  Polyline same_other_colour(0x999999, line.count, line.points);
  auto shorter = make<Polyline>({{1, 2}, {3, 4}});
  auto moved = make<Polyline>({{1, 2}, {3, 4}, {5, 7}});
  const ZR_RGB32 colors[3] = {1, 2, 3};
  GouraudPolyline shaded(0x102030, line.count, line.points, colors);
  EXPECT_TRUE(line.remove(pattern_of(same_other_colour)));
  EXPECT_FALSE(line.remove(pattern_of(shorter)));
  EXPECT_FALSE(line.remove(pattern_of(moved)));
  // One class never matches the pattern of another, related or not.
  EXPECT_FALSE(line.remove(pattern_of(shaded)));
  EXPECT_FALSE(shaded.remove(pattern_of(line)));
  const ZR_RGB32 other_colors[3] = {7, 7, 7};
  GouraudPolyline shaded_other(0, line.count, line.points, other_colors);
  EXPECT_TRUE(shaded.remove(pattern_of(shaded_other)));  // vertex colours are not compared

  // Polygon and Polymarker compare the colour too.
  Polygon polygon(0x10, line.count, line.points);
  Polygon polygon_same(0x10, line.count, line.points);
  Polygon polygon_other(0x11, line.count, line.points);
  EXPECT_TRUE(polygon.remove(pattern_of(polygon_same)));
  EXPECT_FALSE(polygon.remove(pattern_of(polygon_other)));
  Polymarker markers(0x10, line.count, line.points);
  Polymarker markers_other(0x11, line.count, line.points);
  EXPECT_FALSE(markers.remove(pattern_of(markers_other)));
  EXPECT_FALSE(markers.remove(pattern_of(polygon_same)));

  // Polydot and Polysegment find the like object, not any object.
  Polydot dots(1, line.count, line.points);
  Polydot dots_same(2, line.count, line.points);
  Polydot dots_moved(1, moved.count, moved.points);
  EXPECT_TRUE(dots.remove(pattern_of(dots_same)));
  EXPECT_FALSE(dots.remove(pattern_of(dots_moved)));
  EXPECT_FALSE(dots.remove(pattern_of(line)));
  Polysegment segments(1, line.count, line.points);
  Polysegment segments_shorter(1, shorter.count, shorter.points);
  EXPECT_TRUE(segments.remove(pattern_of(Polysegment(5, line.count, line.points))));
  EXPECT_FALSE(segments.remove(pattern_of(segments_shorter)));
}

TEST(PointLists, ClonesOwnTheirArraysAndPartialClonesTakeVectors) {
  const WorldPoint p[6] = {{0, 0}, {1, 1}, {2, 2}, {3, 3}, {4, 4}, {5, 5}};
  const ZR_RGB32 colors[6] = {1, 2, 3, 4, 5, 6};
  Extra_Layer_Info layer{1};
  GouraudPolyline shaded(0xabc, 5, p, colors);
  shaded.set_layer(&layer);
  auto* copy = static_cast<GouraudPolyline*>(shaded.clone());
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(copy->type(), shaded.type());
  EXPECT_EQ(copy->color, shaded.color);
  EXPECT_EQ(copy->layer(), nullptr);
  EXPECT_NE(copy->points, shaded.points);
  EXPECT_NE(copy->vertex_colors, shaded.vertex_colors);
  EXPECT_TRUE(copy->remove(pattern_of(shaded)));
  EXPECT_EQ(std::vector<ZR_RGB32>(copy->vertex_colors, copy->vertex_colors + 5),
            std::vector<ZR_RGB32>(colors, colors + 5));

  // A Polyline's partial clone holds n + 1 points; a shaded line's is a plain
  // Polyline, visible even from a hidden source.
  shaded.make_hidden();
  Drawable* part = shaded.partial_clone(1, 2);
  ASSERT_NE(part, nullptr);
  EXPECT_EQ(part->type(), &Polyline::_drawable_type_dummy);
  EXPECT_FALSE(part->is_hidden());
  EXPECT_EQ(part->color, shaded.color);
  auto* part_line = static_cast<Polyline*>(part);
  EXPECT_EQ(std::vector<WorldPoint>(part_line->points, part_line->points + part_line->count),
            (std::vector<WorldPoint>{{1, 1}, {2, 2}, {3, 3}}));
  Drawable* hidden_copy = shaded.clone();
  EXPECT_TRUE(hidden_copy->is_hidden());

  Polysegment segments(1, 6, p);
  auto* part_segments = static_cast<Polysegment*>(segments.partial_clone(1, 2));
  EXPECT_EQ(
      std::vector<WorldPoint>(part_segments->points, part_segments->points + part_segments->count),
      (std::vector<WorldPoint>(p + 2, p + 6)));
  Polydot dots(1, 6, p);
  auto* part_dots = static_cast<Polydot*>(dots.partial_clone(4, 2));
  EXPECT_EQ(part_dots->type(), dots.type());
  EXPECT_EQ(std::vector<WorldPoint>(part_dots->points, part_dots->points + part_dots->count),
            (std::vector<WorldPoint>(p + 4, p + 6)));
  EXPECT_EQ(Polygon(1, 6, p).partial_clone(0, 1), nullptr);
  EXPECT_EQ(Polymarker(1, 6, p).partial_clone(0, 1), nullptr);

  for (Drawable* d : {static_cast<Drawable*>(copy), part, hidden_copy,
                      static_cast<Drawable*>(part_segments), static_cast<Drawable*>(part_dots)})
    d->destroy();
}

// The indexed walks prefetch a point list's array through its table; a class
// that lost the entry would draw right and only slowly, so it is checked here.
TEST(PointLists, TablesTellWalksWhereThePointsAre) {
  const WorldPoint p[2] = {{0, 0}, {9, 9}};
  const ZR_RGB32 colors[2] = {1, 2};
  Polyline line(1, 2, p);
  GouraudPolyline shaded(1, 2, p, colors);
  Polygon polygon(1, 2, p);
  for (Drawable* d : {static_cast<Drawable*>(&line), static_cast<Drawable*>(&shaded),
                      static_cast<Drawable*>(&polygon)}) {
    ASSERT_NE(d->table->draw_data, nullptr);
    EXPECT_EQ(d->table->draw_data(d), static_cast<Polything*>(d)->points);
    d->make_hidden();
    EXPECT_EQ(d->table->draw_data, nullptr) << "a hidden object draws nothing";
  }
}

TEST(PointLists, VectorsByIndex) {
  const WorldPoint p[5] = {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {5, 5}};
  WorldVector v;
  Polygon triangle(0, 3, p);
  EXPECT_EQ(triangle.get_vector_count(), 3);
  ASSERT_TRUE(triangle.get_vector(2, v));
  EXPECT_EQ(v, (WorldVector{{10, 10}, {0, 0}}));  // the closing edge
  ASSERT_TRUE(triangle.get_vector(0, v));
  EXPECT_EQ(v, (WorldVector{{0, 0}, {10, 0}}));

  Polyline line(0, 4, p);
  EXPECT_EQ(line.get_vector_count(), 3);
  ASSERT_TRUE(line.get_vector(2, v));
  EXPECT_EQ(v, (WorldVector{{10, 10}, {0, 10}}));
  EXPECT_TRUE(line.supports_fast_vector_iterator());
  EXPECT_FALSE(Polyline(0, 1, p).supports_fast_vector_iterator());

  Polydot dots(0, 3, p);
  EXPECT_EQ(dots.get_vector_count(), 3);
  ASSERT_TRUE(dots.get_vector(1, v));
  EXPECT_EQ(v, (WorldVector{{10, 0}, {10, 0}}));
  EXPECT_TRUE(Polydot(0, 1, p).supports_fast_vector_iterator());

  Polysegment segments(0, 5, p);
  EXPECT_EQ(segments.get_vector_count(), 2);
  ASSERT_TRUE(segments.get_vector(1, v));
  EXPECT_EQ(v, (WorldVector{{10, 10}, {0, 10}}));
  EXPECT_FALSE(Polysegment(0, 1, p).supports_fast_vector_iterator());

  // Bounds cover every point; an empty list changes nothing.
  WorldBounds b{{-5, -5}, {1, 1}};
  segments.add_bounds(b);
  EXPECT_EQ(b, (WorldBounds{{-5, -5}, {10, 10}}));
  Polyline empty(0, 0, nullptr);
  WorldBounds e = WorldBounds::empty();
  empty.add_bounds(e);
  EXPECT_EQ(e, WorldBounds::empty());
}

TEST(Dump, PointListLinesAndCounts) {
  const WorldPoint p[3] = {{1, 2}, {3, 4}, {-5, 6}};
  const ZR_RGB32 colors[3] = {1, 2, 3};
  Polydot dots(0x0a0b0c, 3, p);
  Polygon polygon(0, 3, p);
  Polyline line(0x10, 3, p);
  Polyline single(0x10, 1, p);
  GouraudPolyline shaded(0, 3, p, colors);
  Polymarker markers(0, 2, p);
  Polysegment segments(0x20, 3, p);
  DisplayListDebug debug{};
  std::ostringstream out;
  for (const Drawable* d : std::initializer_list<const Drawable*>{&dots, &polygon, &line, &single,
                                                                  &shaded, &markers, &segments})
    d->dump(out, 1, debug);
  auto at = [](const void* a) { return std::to_string(reinterpret_cast<std::uintptr_t>(a)); };
  const std::string expected =
      "    Polydot: level  1, points = 3, color = 658188, this = " + at(&dots) + "\n" +
      "    Polygon: level  1, points = 3, this = " + at(&polygon) + "\n" +
      "    Polyline: color = 16, points = 3, (1,2)x(-5,6), this = " + at(&line) + "\n" +
      "    Polyline: color = 16, points = 1, (1,2)x(1,2), this = " + at(&single) + "\n" +
      "    GoraudPolyline: level  1, points = 3, this = " + at(&shaded) + "\n" +
      "    Polymarker: level  1, points = 2, this = " + at(&markers) + "\n" +
      "    Polysegment: level  1, points = 3, color = 32, this = " + at(&segments) + "\n";
  EXPECT_EQ(out.str(), expected);
  const std::size_t point = sizeof(WorldPoint);
  const std::size_t bytes = sizeof(Polydot) + 3 * point + sizeof(Polygon) + 3 * point +
                            sizeof(Polyline) + 3 * point + sizeof(Polyline) + point +
                            sizeof(GouraudPolyline) + 3 * point + 3 * sizeof(ZR_RGB32) +
                            sizeof(Polymarker) + 2 * point + sizeof(Polysegment) + 3 * point;
  EXPECT_EQ(debug.drawable_bytes, static_cast<int>(bytes));
  EXPECT_EQ(debug.drawable_common_bytes, static_cast<int>(7 * sizeof(Drawable)));
  EXPECT_EQ(sizeof(Polyline), 48u);
}

}  // namespace
}  // namespace DL
