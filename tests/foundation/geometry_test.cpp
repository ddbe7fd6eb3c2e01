#include "foundation/geometry.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

namespace DL {
namespace {

constexpr WorldCoord kMin = PointTemplate<WorldCoord>::scalarMinimum;
constexpr WorldCoord kMax = PointTemplate<WorldCoord>::scalarMaximum;

TEST(Bounds, InsideAndOverlapAreInclusive) {
  WorldBounds point{{5, 5}, {5, 5}};
  EXPECT_TRUE(point.is_inside(point));
  EXPECT_TRUE(point.overlaps(point));

  WorldBounds a{{0, 0}, {10, 10}};
  WorldBounds right{{10, 0}, {20, 10}};  // shares the edge x = 10
  EXPECT_TRUE(a.overlaps(right));
  EXPECT_TRUE(right.overlaps(a));
  EXPECT_FALSE(right.is_inside(a));
  EXPECT_FALSE((WorldBounds{{11, 0}, {20, 10}}.overlaps(a)));

  // The empty rectangle is inside everything and overlaps only the whole plane.
  WorldBounds empty = WorldBounds::empty();
  EXPECT_TRUE(empty.is_inside(a));
  EXPECT_TRUE(empty.is_inside(empty));
  EXPECT_FALSE(empty.overlaps(a));
  EXPECT_TRUE(empty.overlaps(WorldBounds::everything()));
  EXPECT_FALSE(empty.overlaps(WorldBounds{{kMin, kMin}, {kMax, kMax - 1}}));
}

TEST(Bounds, MergeIntersectAndValidity) {
  WorldBounds a{{-3, 2}, {7, 9}};
  WorldBounds e = WorldBounds::empty();
  e.merge(a);
  EXPECT_EQ(e, a);
  WorldBounds b = a;
  b.merge(WorldBounds::empty());
  EXPECT_EQ(b, a);
  b.merge(WorldBounds{{10, -5}, {12, 0}});
  EXPECT_EQ(b, (WorldBounds{{-3, -5}, {12, 9}}));

  WorldBounds c = a;
  c.intersect(WorldBounds{{0, 0}, {100, 5}});
  EXPECT_EQ(c, (WorldBounds{{0, 2}, {7, 5}}));
  // Disjoint, though overlapping on x: empty on both axes.
  WorldBounds d = a;
  d.intersect(WorldBounds{{0, 50}, {5, 60}});
  EXPECT_EQ(d, WorldBounds::empty());

  EXPECT_TRUE(WorldBounds::empty().is_valid());
  EXPECT_TRUE(a.is_valid());
  EXPECT_FALSE((WorldBounds{{1, 0}, {0, 0}}.is_valid()));
  EXPECT_FALSE((WorldBounds{{0, 1}, {0, 0}}.is_valid()));

  WorldBounds m;
  m.make_empty();
  EXPECT_EQ(m.min.x, kMax);
  EXPECT_EQ(m.max.y, kMin);
}

TEST(Scalars, EndsOfTheScale) {
  EXPECT_EQ(PointTemplate<WorldCoord>::scalarMinimum, -2147483647 - 1);
  EXPECT_EQ(PointTemplate<int>::scalarMaximum, 2147483647);
  EXPECT_EQ(PointTemplate<double>::scalarMinimum, -std::numeric_limits<double>::max());
  EXPECT_EQ(PointTemplate<double>::scalarMaximum, std::numeric_limits<double>::max());
}

TEST(Conversions, RoundingAndRanges) {
  // Ties go to even in both forms.
  EXPECT_EQ(round_to_int32_wrapping(2.5), 2);
  EXPECT_EQ(round_to_int32_wrapping(3.5), 4);
  EXPECT_EQ(round_to_int32_wrapping(-2.5), -2);
  EXPECT_EQ(round_to_int32_saturated(-3.5), -4);
  // Out of range: the plain form gives the most negative value, the saturating
  // form keeps the side.
  EXPECT_EQ(round_to_int32_wrapping(2147483648.0), kMin);
  EXPECT_EQ(round_to_int32_wrapping(-1e300), kMin);
  EXPECT_EQ(round_to_int32_wrapping(std::nan("")), kMin);
  EXPECT_EQ(round_to_int32_saturated(2147483648.0), kMax);
  EXPECT_EQ(round_to_int32_saturated(1e300), kMax);
  EXPECT_EQ(round_to_int32_saturated(-1e300), kMin);
  EXPECT_EQ(round_to_int32_saturated(2147483646.6), kMax);
  EXPECT_EQ(round_to_int32_saturated(std::nan("")), kMin);
  // Truncation toward zero.
  EXPECT_EQ(truncate_to_int32_saturated(-1.5), -1);
  EXPECT_EQ(truncate_to_int32_saturated(1.99), 1);
  EXPECT_EQ(truncate_to_int32_saturated(1e12), kMax);
  EXPECT_EQ(truncate_to_int32_saturated(std::nan("")), 0);
}

}  // namespace
}  // namespace DL
