#include "ellipse/ellipse.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <sstream>
#include <string>
#include <vector>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "tests/support/tree_check.h"

namespace DL {
namespace {

constexpr float kHalfPi = Ellipse::HALF_PI;
constexpr float kTwoPi = Ellipse::TWO_PI;
constexpr WorldCoord kMax = PointTemplate<WorldCoord>::scalarMaximum;
constexpr WorldCoord kMin = PointTemplate<WorldCoord>::scalarMinimum;

// A list whose scale the tests set directly; offset 0, so device = world * scale.
struct ScaledList {
  DisplayList list;
  RecordingRenderer* renderer = new RecordingRenderer;
  explicit ScaledList(double sx = 1.0, double sy = 1.0) {
    list.set_renderer(renderer);  // the list holds the one reference
    list.scale = {sx, sy};
  }
};

WorldBounds extent(const Drawable& d) {
  return d.bounds_of();
}

TEST(EllipseExtent, WorkedExamples) {
  ScaledList square;
  ScaledList wide(2.0, 1.0);  // pixels twice as tall as wide: k = 2
  struct Case {
    const char* what;
    Ellipse* ellipse;
    WorldBounds expected;
  };
  // Built on the heap and destroyed through the table, as the tree would.
  const Case cases[] = {
      {"unrotated whole ellipse, integer path",
       new Ellipse(0, {0, 0}, {100, 50}, 0.0f, nullptr),
       {{-100, -50}, {100, 50}}},
      {"quarter arc: the end point and the axis extremes agree after truncation",
       new EllipticalArc(0, {0, 0}, {100, 50}, 0.0f, 0.0f, kHalfPi, &square.list),
       {{0, 0}, {100, 50}}},
      {"rotated by pi/4: half-width 79.06, grown to 86.96, truncated",
       new Ellipse(0, {0, 0}, {100, 50}, static_cast<float>(M_PI / 4), &square.list),
       {{-86, -86}, {86, 86}}},
      {"sweep through angle 0: only the extreme at 0 is in",
       new EllipticalArc(0, {0, 0}, {100, 50}, 0.0f, -0.5f, 0.5f, &square.list),
       {{87, -23}, {100, 23}}},
      {"non-square pixels: x values do not change with k when unrotated",
       new EllipticalArc(0, {0, 0}, {100, 50}, 0.0f, 0.1f, 1.0f, &wide.list),
       {{54, 4}, {99, 42}}},
      {"zero radii: the centre point",
       new Ellipse(0, {5, -7}, {0, 0}, 0.3f, &square.list),
       {{5, -7}, {5, -7}}},
      {"zero radii on an arc",
       new EllipticalArc(0, {5, -7}, {0, 0}, 0.0f, 1.0f, 2.0f, &square.list),
       {{5, -7}, {5, -7}}},
      {"negative extremes truncate toward zero: -912.24 is -912, -1023.97 is -1023",
       new EllipticalArc(0, {-1000, -1000}, {100, 50}, 0.0f, -0.5f, 0.5f, &square.list),
       {{-912, -1023}, {-900, -976}}},
      // The y extremes come out at -49.99999 and 49.99999 (the own y axis at
      // rho + HALF_PI in floats is not quite vertical), so they truncate to -49
      // and 49: the extent falls short by less than a unit, on both sides here.
      {"a sweep of exactly FULL_SWEEP is not whole, but covers every extreme",
       new EllipticalArc(0, {0, 0}, {100, 50}, 0.0f, 0.0f, Ellipse::FULL_SWEEP, &square.list),
       {{-100, -49}, {100, 49}}},
      {"end below start: the normalised angles decide, here the complement of 0.1..1",
       new EllipticalArc(0, {0, 0}, {100, 50}, 0.0f, 1.0f, 0.1f, &square.list),
       {{-100, -49}, {100, 49}}},
      {"a huge rotated ellipse clamps at the limits instead of wrapping",
       new Ellipse(0, {2000000000, -2000000000}, {2000000000, 2000000000}, 0.5f, &square.list),
       {{0, kMin}, {kMax, 0}}},  // only the clamped sides are compared
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const WorldBounds b = extent(*c.ellipse);
    if (c.expected.max.x == kMax) {
      // The far sides clamp; the near ones are only checked to be on their side
      // (centre 2e9 less 2.2e9 and more: about -2e8 and 2e8).
      EXPECT_EQ(b.max.x, kMax);
      EXPECT_EQ(b.min.y, kMin);
      EXPECT_LT(b.min.x, 0);
      EXPECT_GT(b.max.y, 0);
    } else {
      EXPECT_EQ(b, c.expected);
    }
    // Merging into a rectangle that covers it already changes nothing.
    WorldBounds wide_open = WorldBounds::everything();
    c.ellipse->add_bounds(wide_open);
    EXPECT_EQ(wide_open, WorldBounds::everything());
    c.ellipse->destroy();
  }
}

TEST(EllipseExtent, PixelShapeIsCachedOnlyOffTheIntegerPath) {
  ScaledList view(3.0, 1.5);
  Ellipse whole(0, {0, 0}, {100, 50}, 0.0f, &view.list);
  EllipticalArc almost(0, {0, 0}, {100, 50}, 0.0f, 0.0f, Ellipse::FULL_SWEEP, &view.list);
  (void)extent(whole);
  (void)extent(almost);
  EXPECT_EQ(whole.device_aspect, 0.0f);
  EXPECT_EQ(almost.device_aspect, 2.0f);
  // Once computed it stays, even when the scale changes.
  view.list.scale = {1.0, 1.0};
  const WorldBounds before = extent(almost);
  EXPECT_EQ(almost.device_aspect, 2.0f);
  EXPECT_EQ(extent(almost), before);
  // A clone starts over and takes the scale of the moment.
  Drawable* copy = almost.clone();
  ASSERT_NE(copy, nullptr);
  EXPECT_EQ(static_cast<EllipticalArc*>(copy)->device_aspect, 0.0f);
  (void)extent(*copy);
  EXPECT_EQ(static_cast<EllipticalArc*>(copy)->device_aspect, 1.0f);
  copy->destroy();
}

TEST(EllipseExtent, NanAnglesGiveADefinedRectangle) {
  // Nothing sensible can come out, but nothing undefined may happen either.
  ScaledList view;
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EllipticalArc arc(0, {10, 10}, {100, 50}, nan, nan, 1.0f, &view.list);
  EXPECT_TRUE(extent(arc).is_valid());
  // A NaN angle normalises to 0, so the sweep collapses onto angle 0.
  EXPECT_TRUE(arc.isWithinBounds(ZR_Vector{1.0f, 0.0f, 0.0f}));
  EXPECT_FALSE(arc.isWithinBounds(ZR_Vector{0.0f, 1.0f, 0.0f}));
}

TEST(EllipseAngles, NormalizeAngle) {
  EXPECT_EQ(Ellipse::normalize_angle(std::numeric_limits<float>::quiet_NaN()), 0.0);
  EXPECT_EQ(Ellipse::normalize_angle(std::numeric_limits<float>::infinity()), 0.0);
  EXPECT_EQ(Ellipse::normalize_angle(-std::numeric_limits<float>::infinity()), 0.0);
  EXPECT_EQ(Ellipse::normalize_angle(1e30f), 0.0);  // 1e30 - 1 is 1e30
  EXPECT_EQ(Ellipse::normalize_angle(0.0f), 0.0);
  // The float full turn comes out as 0, not as TWO_PI.
  EXPECT_EQ(Ellipse::normalize_angle(kTwoPi), 0.0);
  EXPECT_NEAR(Ellipse::normalize_angle(-kHalfPi), 3 * M_PI / 2, 1e-6);
  EXPECT_NEAR(Ellipse::normalize_angle(-7.0f), 4 * M_PI - 7.0, 1e-5);
  EXPECT_NEAR(Ellipse::normalize_angle(100.0f), 100.0 - 30 * M_PI, 1e-4);
  for (float x = -50.0f; x < 50.0f; x += 0.37f) {
    const double r = Ellipse::normalize_angle(x);
    EXPECT_GE(r, 0.0) << x;
    EXPECT_LT(r, kTwoPi) << x;
  }
}

// Regression: beyond |x| of about 1e9 the float of x / TWO_PI lies whole
// turns from its truncation, and the result left [0, TWO_PI) (1e10 gave
// -333.0) although the header promises the range.
TEST(EllipseAngles, NormalizeAngleKeepsItsRangeForEveryMagnitude) {
  for (float x : {1e8f, 1e9f, 4e9f, 1e10f, 3.3e11f, 7e13f, 1e15f, 4.5e15f}) {
    for (float v : {x, -x}) {
      const double r = Ellipse::normalize_angle(v);
      EXPECT_GE(r, 0.0) << v;
      EXPECT_LT(r, kTwoPi) << v;
    }
  }
  // Below the magnitudes where the float of t goes wrong nothing changed.
  EXPECT_NEAR(Ellipse::normalize_angle(100.0f), 100.0 - 30 * M_PI, 1e-4);
}

// Regression: a NaN (or infinite) rotation made every point of the extent NaN,
// which the checked conversions turned into 0: the ellipse was filed at the
// origin, far from where it is. It is bounded for every rotation now.
TEST(EllipseExtent, RotationWithoutAValueCoversEveryRotation) {
  ScaledList square;
  ScaledList wide(2.0, 1.0);
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float inf = std::numeric_limits<float>::infinity();
  for (float rotation : {nan, inf, -inf}) {
    Ellipse e(0, {5000, -7000}, {100, 50}, rotation, &square.list);
    EXPECT_EQ(extent(e), (WorldBounds{{4900, -7100}, {5100, -6900}})) << rotation;
    EllipticalArc a(0, {5000, -7000}, {100, 50}, rotation, 0.0f, kHalfPi, &square.list);
    EXPECT_EQ(extent(a), (WorldBounds{{4900, -7100}, {5100, -6900}})) << rotation;
    // Pixels twice as tall: the larger radius is 200 in the square-pixel frame,
    // 100 world units across in x.
    Ellipse w(0, {5000, -7000}, {100, 50}, rotation, &wide.list);
    EXPECT_EQ(extent(w), (WorldBounds{{4900, -7200}, {5100, -6800}})) << rotation;
  }
}

TEST(EllipseAngles, IsWithinBounds) {
  auto dir = [](float x, float y) { return ZR_Vector{x, y, 0.0f}; };
  EllipticalArc quarter(0, {0, 0}, {100, 50}, 0.0f, 0.0f, kHalfPi, nullptr);
  EXPECT_TRUE(quarter.isWithinBounds(dir(1, 1)));
  EXPECT_TRUE(quarter.isWithinBounds(dir(1, 0)));  // both limits are in
  EXPECT_TRUE(quarter.isWithinBounds(dir(0, 1)));
  EXPECT_FALSE(quarter.isWithinBounds(dir(-1, 1)));
  EXPECT_FALSE(quarter.isWithinBounds(dir(1, -1)));

  // The rotation turns the sweep.
  EllipticalArc turned(0, {0, 0}, {100, 50}, kHalfPi, 0.0f, kHalfPi, nullptr);
  EXPECT_TRUE(turned.isWithinBounds(dir(-1, 1)));
  EXPECT_FALSE(turned.isWithinBounds(dir(1, 0.5f)));

  // Through angle 0: the wrapped branch.
  EllipticalArc through_zero(0, {0, 0}, {100, 50}, 0.0f, -0.5f, 0.5f, nullptr);
  EXPECT_TRUE(through_zero.isWithinBounds(dir(1, 0)));
  EXPECT_TRUE(through_zero.isWithinBounds(dir(1, -0.3f)));
  EXPECT_TRUE(through_zero.isWithinBounds(dir(1, 0.3f)));
  EXPECT_FALSE(through_zero.isWithinBounds(dir(-1, 0)));
  EXPECT_FALSE(through_zero.isWithinBounds(dir(0, 1)));

  // A whole ellipse, and any sweep longer than FULL_SWEEP, holds every direction;
  // a sweep of exactly FULL_SWEEP leaves a gap just below angle 0.
  Ellipse whole(0, {0, 0}, {100, 50}, 2.0f, nullptr);
  EXPECT_TRUE(whole.isWithinBounds(dir(1, -0.001f)));
  EllipticalArc almost(0, {0, 0}, {100, 50}, 0.0f, 0.0f, Ellipse::FULL_SWEEP, nullptr);
  EXPECT_FALSE(almost.isWithinBounds(dir(1, -0.001f)));
  EXPECT_TRUE(almost.isWithinBounds(dir(1, -0.02f)));
}

TEST(EllipseRecord, MatchingComparesTheFieldsOfEachClass) {
  const WorldPoint c{10, 20}, r{30, 40};
  Ellipse ellipse(1, c, r, 0.5f, nullptr);
  EllipticalArc arc(1, c, r, 0.5f, 0.0f, 1.0f, nullptr);
  EllipticalPie pie(1, c, r, 0.5f, 0.0f, 1.0f, nullptr);
  ColorizedEllipse colorized(1, c, r, 0.5f, 0.0f, 1.0f, 0xABCDEF, true, nullptr);
  auto search = [](Drawable& pattern) {
    return Search{&pattern, pattern.type(), WorldBounds::everything(), 0};
  };
  auto matches = [&](const Drawable& d, Drawable& pattern) { return d.remove(search(pattern)); };

  // Ellipse: centre, radii, rotation; the colour never counts.
  Ellipse e_same(99, c, r, 0.5f, nullptr), e_turned(1, c, r, 0.6f, nullptr),
      e_moved(1, {11, 20}, r, 0.5f, nullptr), e_wider(1, c, {30, 41}, 0.5f, nullptr);
  EXPECT_TRUE(matches(ellipse, e_same));
  EXPECT_FALSE(matches(ellipse, e_turned));
  EXPECT_FALSE(matches(ellipse, e_moved));
  EXPECT_FALSE(matches(ellipse, e_wider));

  // EllipticalArc: centre and radii only.
  EllipticalArc a_other(2, c, r, 3.0f, 2.0f, 3.0f, nullptr),
      a_moved(1, {10, 21}, r, 0.5f, 0, 1, nullptr);
  EXPECT_TRUE(matches(arc, a_other));
  EXPECT_FALSE(matches(arc, a_moved));

  // EllipticalPie: rotation too, but not the sweep.
  EllipticalPie p_sweep(1, c, r, 0.5f, 2.0f, 3.0f, nullptr), p_turned(1, c, r, 0.7f, 0, 1, nullptr);
  EXPECT_TRUE(matches(pie, p_sweep));
  EXPECT_FALSE(matches(pie, p_turned));

  // ColorizedEllipse: everything but `color`.
  ColorizedEllipse k_same(7, c, r, 0.5f, 0.0f, 1.0f, 0xABCDEF, true, nullptr);
  ColorizedEllipse k_start(1, c, r, 0.5f, 0.1f, 1.0f, 0xABCDEF, true, nullptr);
  ColorizedEllipse k_end(1, c, r, 0.5f, 0.0f, 1.1f, 0xABCDEF, true, nullptr);
  ColorizedEllipse k_filled(1, c, r, 0.5f, 0.0f, 1.0f, 0xABCDEF, false, nullptr);
  ColorizedEllipse k_color(1, c, r, 0.5f, 0.0f, 1.0f, 0xABCDEE, true, nullptr);
  ColorizedEllipse k_turned(1, c, r, 0.4f, 0.0f, 1.0f, 0xABCDEF, true, nullptr);
  EXPECT_TRUE(matches(colorized, k_same));
  for (ColorizedEllipse* other : {&k_start, &k_end, &k_filled, &k_color, &k_turned})
    EXPECT_FALSE(matches(colorized, *other));

  // A class matches patterns of its own class only, never of a base or a sibling.
  EXPECT_FALSE(matches(arc, e_same));
  EXPECT_FALSE(matches(ellipse, arc));
  EXPECT_FALSE(matches(pie, arc));
  EXPECT_FALSE(matches(arc, pie));
  EXPECT_FALSE(matches(colorized, arc));
  const void* tokens[] = {ellipse.type(), arc.type(), pie.type(), colorized.type()};
  for (int i = 0; i < 4; ++i)
    for (int j = i + 1; j < 4; ++j) EXPECT_NE(tokens[i], tokens[j]);
  EXPECT_EQ(ellipse.type(), &Ellipse::_drawable_type_dummy);
  EXPECT_EQ(colorized.type(), &ColorizedEllipse::_drawable_type_dummy);
}

TEST(EllipseRecord, TwinsClonesAndAngleEntries) {
  ScaledList view;
  Extra_Layer_Info layer{1};
  ColorizedEllipse source(0x123456, {10, 20}, {30, 40}, 0.25f, 0.5f, 2.5f, 0x654321, false,
                          &view.list);
  source.set_layer(&layer);
  (void)extent(source);
  EXPECT_EQ(source.device_aspect, 1.0f);
  const WorldBounds visible_extent = extent(source);

  source.make_hidden();
  source.make_hidden();
  EXPECT_TRUE(source.is_hidden());
  // The hidden twin keeps its token, its angle entries, its extent and its match.
  EXPECT_EQ(source.type(), &ColorizedEllipse::_drawable_type_dummy);
  EXPECT_EQ(source.start_angle(), 0.5f);
  EXPECT_EQ(source.end_angle(), 2.5f);
  EXPECT_EQ(extent(source), visible_extent);
  EXPECT_TRUE(source.remove(Search{&source, source.type(), visible_extent, 0}));
  // It draws nothing.
  source.draw_unclipped(view.list);
  source.draw_clipped(view.list);
  source.draw_clipped_selection(view.list);
  EXPECT_TRUE(view.renderer->calls.empty());

  Drawable* copy = source.clone();
  ASSERT_NE(copy, nullptr);
  EXPECT_TRUE(copy->is_hidden());
  EXPECT_EQ(copy->layer(), nullptr);
  EXPECT_EQ(copy->sibling, nullptr);
  // Every field of the record is copied (the match compares them all but the
  // colour), except the cache of the pixel shape.
  const auto* c = static_cast<const ColorizedEllipse*>(copy);
  EXPECT_TRUE(source.remove(Search{copy, copy->type(), visible_extent, 0}));
  EXPECT_EQ(c->color, source.color);
  EXPECT_EQ(c->display_list, &view.list);
  EXPECT_EQ(c->device_aspect, 0.0f);
  copy->make_visible();
  copy->draw_unclipped(view.list);
  EXPECT_EQ(view.renderer->entries(), std::vector<std::string>{"elliptical_pie_unclipped"});
  copy->destroy();

  source.make_visible();
  EXPECT_FALSE(source.is_hidden());
  // The whole ellipse's angles, as floats.
  Ellipse whole(0, {0, 0}, {1, 1}, 0.0f, nullptr);
  EXPECT_EQ(whole.start_angle(), 0.0f);
  EXPECT_EQ(static_cast<double>(whole.end_angle()), 6.2831854820251465);
  whole.make_hidden();
  EXPECT_EQ(static_cast<double>(whole.end_angle()), 6.2831854820251465);
  // Every class: the vector protocol of the family.
  EXPECT_FALSE(whole.has_fixed_representation());
  EXPECT_FALSE(whole.supports_fast_vector_iterator());
  EXPECT_FALSE(source.has_rendition());
  WorldVector untouched{{1, 2}, {3, 4}};
  EXPECT_FALSE(source.get_vector(0, untouched));
  EXPECT_EQ(untouched, (WorldVector{{1, 2}, {3, 4}}));
  EXPECT_EQ(source.partial_clone(0, 1), nullptr);
}

TEST(EllipseRecord, DumpLinesAndCounts) {
  Ellipse ellipse(0, {0, 0}, {1, 1}, 0.0f, nullptr);
  EllipticalArc arc(0, {0, 0}, {1, 1}, 0.0f, 0, 1, nullptr);
  EllipticalPie pie(0, {0, 0}, {1, 1}, 0.0f, 0, 1, nullptr);
  ColorizedEllipse colorized(0, {0, 0}, {1, 1}, 0.0f, 0, 1, 0, true, nullptr);
  struct Row {
    const Drawable* d;
    const char* label;
  };
  const Row rows[] = {{&ellipse, "Ellipse: level  "},
                      {&arc, "EllipsticalArc: level  "},
                      {&pie, "EllipticalPie: level  "},
                      {&colorized, "ColorizedEllipse: level  "}};
  DisplayListDebug debug{};
  std::ostringstream expected;
  std::ostringstream out;
  for (const Row& row : rows) {
    row.d->dump(out, 2, debug);
    expected << "        " << row.label << 2
             << ", this = " << reinterpret_cast<std::uintptr_t>(row.d) << "\n";
  }
  arc.make_hidden();  // a twin writes the line of its class
  arc.dump(out, 0, debug);
  expected << "EllipsticalArc: level  0, this = " << reinterpret_cast<std::uintptr_t>(&arc) << "\n";
  EXPECT_EQ(out.str(), expected.str());
  EXPECT_EQ(debug.drawable_bytes,
            static_cast<int>(sizeof(Ellipse) + 2 * sizeof(EllipticalArc) + sizeof(EllipticalPie) +
                             sizeof(ColorizedEllipse)));
  EXPECT_EQ(debug.drawable_common_bytes, static_cast<int>(5 * sizeof(Drawable)));
  if constexpr (sizeof(void*) == 8) {
    EXPECT_EQ(sizeof(Ellipse), 64u);
    EXPECT_EQ(sizeof(EllipticalArc), 72u);
    EXPECT_EQ(sizeof(ColorizedEllipse), 80u);
  }
}

}  // namespace
}  // namespace DL
