#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "foundation/rendering.h"

namespace {

constexpr int kSentinel = 0x5A5A5A5A;

std::vector<ZR_DCI_Point> generate(ZR_DCI_Point center, ZR_DCI_Point radii, float start, float end,
                                   float rotation, int count) {
  std::vector<ZR_DCI_Point> points(static_cast<size_t>(count) + 1,
                                   ZR_DCI_Point{kSentinel, kSentinel, kSentinel});
  ZP_Generate_Elliptical_Points(center, radii, start, end, rotation, count, points.data());
  EXPECT_EQ(points.back().x, kSentinel) << "wrote beyond the array";
  points.pop_back();
  return points;
}

// The parameter of a point, recovered by undoing the centre, the rotation and
// the radii: an oracle independent of how the generator steps.
double parameter_of(const ZR_DCI_Point& p, ZR_DCI_Point c, ZR_DCI_Point r, double rotation) {
  const double dx = p.x - c.x, dy = p.y - c.y;
  const double x = dx * std::cos(rotation) + dy * std::sin(rotation);
  const double y = -dx * std::sin(rotation) + dy * std::cos(rotation);
  return std::atan2(y / r.y, x / r.x);
}

// The difference a - b brought into (-pi, pi].
double angle_between(double a, double b) {
  return std::remainder(a - b, 2 * M_PI);
}

TEST(EllipticalPoints, EvenlyFromStartToEndRotatedAboutTheCentre) {
  const ZR_DCI_Point c{1000, -500, 0}, r{3000000, 2000000, 0};
  struct Case {
    float start, end, rotation;
    int count;
  };
  const Case cases[] = {
      {0.2f, 2.0f, 0.3f, 7},     // a forward arc
      {-1.0f, 5.0f, -2.0f, 50},  // most of a turn
      {1.0f, 0.5f, 0.0f, 9},     // backwards: runs forward through angle 0 to 0.5
      {3.0f, -4.0f, 1.0f, 12},   // backwards by more than a turn: forward 0.72 short of a turn
      {0.0f, 9.0f, 0.7f, 30},    // beyond a turn
      {0.5f, 0.5f, 0.1f, 3},     // no sweep: one place three times
  };
  for (const Case& k : cases) {
    SCOPED_TRACE(testing::Message() << k.start << ".." << k.end << " turned " << k.rotation);
    const std::vector<ZR_DCI_Point> p = generate(c, r, k.start, k.end, k.rotation, k.count);
    double sweep = static_cast<double>(k.end) - k.start;
    if (sweep < 0) sweep = 2 * M_PI - std::fmod(-sweep, 2 * M_PI);
    const double step = sweep / (k.count - 1);
    for (int i = 0; i < k.count; ++i) {
      // On the ellipse ...
      const double t = parameter_of(p[i], c, r, k.rotation);
      const double dx = p[i].x - c.x, dy = p[i].y - c.y;
      const double x = dx * std::cos(k.rotation) + dy * std::sin(k.rotation);
      const double y = -dx * std::sin(k.rotation) + dy * std::cos(k.rotation);
      EXPECT_NEAR(std::hypot(x / r.x, y / r.y), 1.0, 1e-6) << i;
      // ... at the i-th even step from the start.
      EXPECT_NEAR(angle_between(t, k.start + step * i), 0.0, 1e-6) << i;
    }
  }
}

TEST(EllipticalPoints, TurnsFromXTowardYAndClosesAWholeTurn) {
  const ZR_DCI_Point c{10, 20, 0}, r{100, 40, 0};
  // A quarter turn carries the own x axis onto world +y.
  auto p = generate(c, r, 0.0f, 1.5707964f, 1.5707964f, 2);
  EXPECT_EQ(p[0], (ZR_DCI_Point{10, 120, 0}));
  EXPECT_EQ(p[1], (ZR_DCI_Point{-30, 20, 0}));
  // The float full turn ends where it began; every point is written.
  p = generate(c, r, 0.0f, 6.2831854820251465f, 0.0f, 1000);
  EXPECT_EQ(p.front(), p.back());
  for (const ZR_DCI_Point& q : p) EXPECT_NE(q.x, kSentinel);
  // One point is the start point; none writes nothing.
  p = generate(c, r, 1.5707964f, 3.0f, 0.0f, 1);
  EXPECT_EQ(p[0], (ZR_DCI_Point{10, 60, 0}));
  p = generate(c, r, 0.0f, 1.0f, 0.0f, 0);
  EXPECT_TRUE(p.empty());
}

TEST(EllipticalPoints, SaturatesAndStaysDefinedOnNan) {
  constexpr int kMax = std::numeric_limits<int>::max();
  constexpr int kMin = std::numeric_limits<int>::min();
  auto p = generate({2000000000, -2000000000, 0}, {2000000000, 2000000000, 0}, 0.0f, 3.1415927f,
                    0.0f, 3);
  EXPECT_EQ(p[0].x, kMax);
  EXPECT_EQ(p[1].y, -2000000000 + 2000000000);
  EXPECT_EQ(p[2].x, 0);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  p = generate({0, 0, 0}, {10, 10, 0}, 0.0f, 1.0f, nan, 4);
  for (const ZR_DCI_Point& q : p) EXPECT_EQ(q.x, kMin);
  p = generate({0, 0, 0}, {10, 10, 0}, nan, 1.0f, 0.0f, 4);
  for (const ZR_DCI_Point& q : p) EXPECT_EQ(q.y, kMin);
}

}  // namespace
