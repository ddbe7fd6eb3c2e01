#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>
#include <random>
#include <vector>

#include "displaylist/display_list.h"
#include "ellipse/ellipse.h"

namespace DL {
namespace {

constexpr float kHalfPi = Ellipse::HALF_PI;

struct IteratorDeleter {
  void operator()(DrawableVectorIterator* it) const { delete it; }
};
using IteratorPtr = std::unique_ptr<DrawableVectorIterator, IteratorDeleter>;

struct Points {
  ZR_DCI_Point* data = nullptr;
  int count = 0;
  explicit Points(const Ellipse& e) { e.generateVectors(data, count); }
  ~Points() { DrawableVectorIterator::operator delete(data); }
  Points(const Points&) = delete;
  Points& operator=(const Points&) = delete;
};

TEST(EllipseVectors, CountsGrowWithTheRootOfTheDeviceRadius) {
  DisplayList list;
  struct Case {
    int radius;
    float start, end;
    int count;
  };
  const Case table[] = {
      {0, 0.0f, Ellipse::TWO_PI, 2},     {1, 0.0f, Ellipse::TWO_PI, 4},
      {25, 0.0f, Ellipse::TWO_PI, 20},   {100, 0.0f, Ellipse::TWO_PI, 40},  // not 41
      {100, 0.0f, kHalfPi, 10},          {400, 0.0f, Ellipse::TWO_PI, 80},
      {900, 0.0f, Ellipse::TWO_PI, 120},
  };
  for (const Case& c : table) {
    EllipticalArc arc(0, {0, 0}, {c.radius, c.radius}, 0.0f, c.start, c.end, &list);
    EXPECT_EQ(arc.get_vector_count(), c.count) << c.radius << " " << c.end;
  }
  // The whole ellipse gives the same as a whole arc; the larger radius counts.
  EXPECT_EQ(Ellipse(0, {0, 0}, {100, 50}, 0.0f, &list).get_vector_count(), 40);
  EXPECT_EQ(Ellipse(0, {0, 0}, {50, 100}, 0.0f, &list).get_vector_count(), 40);
  // Device radius, not world radius: the scale of each axis counts.
  list.scale = {0.25, 4.0};
  EXPECT_EQ(Ellipse(0, {0, 0}, {400, 25}, 0.0f, &list).get_vector_count(), 40);
  // A sweep backwards and a negative device radius both give the minimum.
  list.scale = {1.0, 1.0};
  EXPECT_EQ(EllipticalArc(0, {0, 0}, {100, 100}, 0.0f, 1.0f, 0.5f, &list).get_vector_count(), 2);
  list.scale = {-1.0, -1.0};
  EXPECT_EQ(Ellipse(0, {0, 0}, {100, 100}, 0.0f, &list).get_vector_count(), 2);
  // A NaN sweep and an absurd device radius stay defined: the minimum and the cap.
  list.scale = {1.0, 1.0};
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(EllipticalArc(0, {0, 0}, {100, 100}, 0.0f, 0.0f, nan, &list).get_vector_count(), 2);
  list.scale = {1e12, 1e12};
  EXPECT_EQ(Ellipse(0, {0, 0}, {2000000000, 1}, 0.0f, &list).get_vector_count(),
            kMaxEllipseVectors);
}

TEST(EllipseVectors, GeneratedPointsAreWorldPointsOfTheOutline) {
  DisplayList list;
  Ellipse whole(0, {1000, -2000}, {100, 50}, 0.0f, &list);
  {
    Points p(whole);
    ASSERT_EQ(p.count, 41);
    // From angle 0 round to the full turn, which closes the outline.
    EXPECT_EQ(p.data[0].x, 1100);
    EXPECT_EQ(p.data[0].y, -2000);
    EXPECT_EQ(p.data[40].x, 1100);
    EXPECT_EQ(p.data[40].y, -2000);
    EXPECT_EQ(p.data[10].x, 1000);  // a quarter of the way: the own y axis
    EXPECT_EQ(p.data[10].y, -1950);
  }
  // Non-square pixels: the points are made with the x radius in square pixels
  // (100 * 2) and carried back, so they still lie on the world ellipse.
  list.scale = {2.0, 1.0};
  EllipticalArc quarter(0, {0, 0}, {100, 50}, kHalfPi, 0.0f, kHalfPi, &list);
  Points p(quarter);
  ASSERT_EQ(p.count, quarter.get_vector_count() + 1);
  // Turned a quarter: angle 0 points along world +y in the square frame.
  EXPECT_EQ(p.data[0].x, 0);
  EXPECT_EQ(p.data[0].y, 200);
  EXPECT_EQ(p.data[p.count - 1].x, -25);  // -50 square pixels, halved
  EXPECT_EQ(p.data[p.count - 1].y, 0);
}

TEST(EllipseVectors, IteratorWalksAChainAndStopsOnTheEnds) {
  DisplayList list;
  const auto heap_before = ZP_HeapStatistics(nullptr);
  Ellipse circle(0, {10, 10}, {25, 25}, 0.0f, &list);
  {
    IteratorPtr it(circle.create_vector_iterator(true));
    ASSERT_NE(it, nullptr);
    auto* walk = static_cast<DrawableVectorIteratorEllipse*>(it.get());
    EXPECT_EQ(walk->segment_count, 20);
    EXPECT_FALSE(walk->at_end);
    EXPECT_EQ(walk->ellipse, &circle);
    // Already on vector 0, which starts at angle 0.
    EXPECT_EQ(walk->vector.start, (WorldPoint{35, 10}));

    // prev at the start: null, index stays 0, at_end set.
    EXPECT_EQ(walk->prev(), nullptr);
    EXPECT_EQ(walk->segment_index, 0);
    EXPECT_TRUE(walk->at_end);

    std::vector<WorldVector> forward{walk->vector};
    while (WorldVector* v = walk->next()) forward.push_back(*v);
    ASSERT_EQ(forward.size(), 20u);
    for (size_t i = 1; i < forward.size(); ++i) EXPECT_EQ(forward[i].start, forward[i - 1].end);
    EXPECT_EQ(forward.back().end, forward.front().start);  // a whole ellipse closes
    // Past the end: null however often, and at_end is never cleared again.
    EXPECT_EQ(walk->next(), nullptr);
    EXPECT_EQ(walk->next(), nullptr);
    EXPECT_EQ(walk->segment_index, 20);
    ASSERT_NE(walk->prev(), nullptr);
    EXPECT_EQ(walk->vector, forward[19]);
    EXPECT_TRUE(walk->at_end);
    // Back down to vector 0, then null.
    for (int i = 18; i >= 0; --i) {
      ASSERT_NE(walk->prev(), nullptr);
      EXPECT_EQ(walk->vector, forward[i]);
    }
    EXPECT_EQ(walk->prev(), nullptr);
    EXPECT_EQ(walk->segment_index, 0);

    // The iterator took its points once: a zoom does not reach it.
    list.scale = {100.0, 100.0};
    EXPECT_NE(walk->next(), nullptr);
    EXPECT_EQ(walk->vector, forward[1]);
    EXPECT_GT(circle.get_vector_count(), 20);
  }
  // The iterator and its points went back to the heap.
  const auto heap_after = ZP_HeapStatistics(nullptr);
  EXPECT_EQ(heap_after.live_blocks, heap_before.live_blocks);
  EXPECT_EQ(heap_after.live_bytes, heap_before.live_bytes);

  // The smallest walk: two vectors from three points.
  list.scale = {1.0, 1.0};
  EllipticalArc backwards(0, {0, 0}, {100, 100}, 0.0f, 1.0f, 0.5f, &list);
  IteratorPtr it(backwards.create_vector_iterator(false));
  ASSERT_NE(it->next(), nullptr);
  EXPECT_EQ(it->next(), nullptr);
}

// Every generated point lies inside the extent widened by one unit: the two are
// computed apart (the extent in floats and doubles from the axis extremes, the
// points by the generator, rounded twice), and a host relies on the vectors
// falling inside the bounds the tree filed the ellipse under.
//
// The guarantee has two known limits, both of the extent's definition, and the
// cases below keep inside them:
// - An arc's extent tests the polar direction of each axis extreme against the
//   parametric sweep. On an eccentric, rotated ellipse the two part, and an
//   extreme that the arc passes can be left out: radii (2685, 15620), rotation
//   4.803, sweep -1.2546..3.9500 reaches y = -3024 against an extent that stops
//   at -2392. Up to an axis ratio of 2.5 (in square pixels) the ten per cent
//   growth of a rotated extent covers the difference.
// - Under a pixel shape that is not a whole number, the square-pixel x radius
//   and the x values are truncated on the way, so points may stand up to two
//   units beyond the extent of an arc.
// Whole ellipses test every extreme and keep to one unit under any shape.
TEST(EllipseVectors, PointsLieInsideTheExtent) {
  std::mt19937 rng(20261123);
  std::uniform_int_distribution<int> coordinate(-1000000, 1000000);
  std::uniform_int_distribution<int> radius(0, 20000);
  std::uniform_real_distribution<float> angle(-7.0f, 7.0f);
  std::uniform_real_distribution<float> axis_ratio(0.4f, 2.5f);
  const double any_shape[] = {0.5, 0.8, 1.0, 1.25, 2.0, 3.0, 4.0};
  const double whole_shapes[] = {1.0, 2.0, 3.0, 4.0};
  std::uniform_int_distribution<int> pick_any(0, 6);
  std::uniform_int_distribution<int> pick_whole(0, 3);
  DisplayList list;
  long checked = 0;
  auto check = [&](const Ellipse& e, int round) {
    WorldBounds b = e.bounds_of();
    b.min.x -= 1;
    b.min.y -= 1;
    b.max.x += 1;
    b.max.y += 1;
    Points p(e);
    ASSERT_EQ(p.count, e.get_vector_count() + 1);
    for (int i = 0; i < p.count; ++i) {
      const WorldBounds point{{p.data[i].x, p.data[i].y}, {p.data[i].x, p.data[i].y}};
      ASSERT_TRUE(point.is_inside(b))
          << "round " << round << " point " << i << " (" << p.data[i].x << "," << p.data[i].y
          << ") centre (" << e.center.x << "," << e.center.y << ") radii (" << e.radii.x << ","
          << e.radii.y << ") rotation " << e.rotation << " sweep " << e.start_angle() << ".."
          << e.end_angle() << " scale " << list.scale.x << "/" << list.scale.y;
      ++checked;
    }
  };
  for (int round = 0; round < 3000; ++round) {
    const WorldPoint c{coordinate(rng), coordinate(rng)};
    const float start = angle(rng);
    const float end = start + angle(rng);  // forwards, backwards, beyond a turn
    const float rho = angle(rng);

    // Whole ellipses: any rotation, any pixel shape, any radii.
    list.scale = {0.01 * any_shape[pick_any(rng)], 0.01};
    const WorldPoint r{radius(rng), radius(rng)};
    check(Ellipse(0, c, r, rho, &list), round);
    check(Ellipse(0, c, r, 0.0f, &list), round);

    // Arcs under whole-number pixel shapes: unrotated with any radii, rotated
    // with an axis ratio up to 2.5 in square pixels.
    const double shape = whole_shapes[pick_whole(rng)];
    list.scale = {0.01 * shape, 0.01};
    check(EllipticalArc(0, c, r, 0.0f, start, end, &list), round);
    const int ry = radius(rng);
    const WorldPoint modest{static_cast<int>(ry * axis_ratio(rng) / shape), ry};
    check(EllipticalPie(0, c, modest, rho, start, end, &list), round);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(checked, 3000L * 4 * 3);
}

}  // namespace
}  // namespace DL
