// The world extent of an ellipse, for any rotation and sweep under a display
// whose pixels need not be square, and the two angle tests it rests on.
//
// The float and double steps below are deliberate: several values are rounded
// to float where they are computed, because hosts compare extents exactly, and
// an extent that moved by one unit would move a drawable to another group.
#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstdint>
#include <limits>

#include "displaylist/display_list.h"
#include "ellipse/ellipse.h"
#include "foundation/assert.h"

namespace DL {

// ---------------------------------------------------------------------------
// Angles
// ---------------------------------------------------------------------------

double Ellipse::normalize_angle(float x) {
  const double wide = x;
  // An infinity, a NaN, or a magnitude at which subtracting 1 changes nothing.
  if (wide == wide - 1.0 || wide != wide) return 0.0;
  const double t = wide * static_cast<double>(INVERSE_TWO_PI);
  const double k = std::trunc(t);  // floor for t >= 0, ceil for t < 0
  double r = (static_cast<double>(static_cast<float>(t)) - k) * static_cast<double>(TWO_PI);
  if (r < 0.0) r += TWO_PI;
  if (r >= TWO_PI) r -= TWO_PI;
  if (r >= 0.0 && r < TWO_PI) return r;
  // From |t| of about 2^24 up the float of t is whole and may lie several turns
  // from k, which one correction cannot take back (1e10 gave -333): reduce the
  // angle itself instead. Angles there are meaningless (a float step is tens of
  // radians), but the range is kept.
  r = std::fmod(wide, static_cast<double>(TWO_PI));
  if (r < 0.0) r += TWO_PI;
  return r < TWO_PI ? r : 0.0;
}

namespace {

// The sweep of an ellipse as the direction tests read it: normalised once, so
// the extent does not redo it for each of its four axis extremes.
struct NormalizedSweep {
  bool whole;
  float ns, ne;

  NormalizedSweep(float s, float e, float rotation) : whole(e - s > Ellipse::FULL_SWEEP) {
    ns = whole ? 0.0f : static_cast<float>(Ellipse::normalize_angle(s + rotation));
    ne = whole ? 0.0f : static_cast<float>(Ellipse::normalize_angle(e + rotation));
  }

  bool holds(const ZR_Vector& v) const {
    if (whole) return true;
    const float direction = static_cast<float>(std::atan2(static_cast<double>(v.y), v.x));
    const float nt = static_cast<float>(Ellipse::normalize_angle(direction));
    if (ns <= ne) return ns <= nt && nt <= ne;
    // The sweep runs through angle 0.
    return (ns <= nt && nt <= Ellipse::TWO_PI) || (0.0f <= nt && nt <= ne);
  }
};

}  // namespace

bool Ellipse::isWithinBounds(const ZR_Vector& v) const {
  return NormalizedSweep(start_angle(), end_angle(), rotation).holds(v);
}

// ---------------------------------------------------------------------------
// Extent
// ---------------------------------------------------------------------------

namespace {

// A point of the ellipse with the angle functions rounded to float, as the
// extent has always been computed. `a` is the x radius in the square-pixel
// frame, `k` the pixel shape.
struct Frame {
  double a, b, k, cx, cy;
  float sin_rotation, cos_rotation;

  DoublePoint point(float theta) const {
    const double t = theta;
    const float st = static_cast<float>(std::sin(t));
    const float ct = static_cast<float>(std::cos(t));
    const double x = a * ct;  // in the ellipse's own frame
    const double y = b * st;
    return {(cos_rotation * x - sin_rotation * y) / k + cx,
            cos_rotation * y + sin_rotation * x + cy};
  }
};

struct DoubleRect {
  DoublePoint lo, hi;
  void grow(const DoublePoint& p) {
    lo.x = std::min(lo.x, p.x);
    lo.y = std::min(lo.y, p.y);
    hi.x = std::max(hi.x, p.x);
    hi.y = std::max(hi.y, p.y);
  }
};

// Into the world range, truncated toward zero; NaN gives 0.
WorldCoord to_world(double v) {
  constexpr double lowest = PointTemplate<WorldCoord>::scalarMinimum;
  constexpr double highest = PointTemplate<WorldCoord>::scalarMaximum;
  return truncate_to_int32_saturated(std::clamp(v, lowest, highest));
}

// Whole-number sums of 32-bit coordinates, wrapping as the machine does: the
// caller keeps them in range, and a slip gives a wrong rectangle, not UB.
WorldCoord wrapping_add(WorldCoord a, WorldCoord b) {
  return static_cast<WorldCoord>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}
WorldCoord wrapping_sub(WorldCoord a, WorldCoord b) {
  return static_cast<WorldCoord>(static_cast<std::uint32_t>(a) - static_cast<std::uint32_t>(b));
}

}  // namespace

void Ellipse::do_add_bounds(WorldBounds& total) const {
  const float s = start_angle();
  const float e = end_angle();
  const float rho = rotation;

  // An unrotated whole ellipse: its rectangle, in integers, without the list.
  if (rho == 0.0f && e - s > FULL_SWEEP) {
    DL_ASSERT(std::int64_t{center.x} - radii.x >= INT32_MIN &&
              std::int64_t{center.x} + radii.x <= INT32_MAX &&
              std::int64_t{center.y} - radii.y >= INT32_MIN &&
              std::int64_t{center.y} + radii.y <= INT32_MAX && "ellipse beyond the world range");
    total.merge(WorldBounds{{wrapping_sub(center.x, radii.x), wrapping_sub(center.y, radii.y)},
                            {wrapping_add(center.x, radii.x), wrapping_add(center.y, radii.y)}});
    return;
  }

  // The pixel shape, computed once and then kept.
  std::atomic_ref<float> cache(device_aspect);
  float k = cache.load(std::memory_order_relaxed);
  if (k == 0.0f) {
    DL_ASSERT(display_list && display_list->scale.y != 0.0 && "ellipse needs its list's scale");
    k = static_cast<float>(display_list->scale.x / display_list->scale.y);
    cache.store(k, std::memory_order_relaxed);
  }

  // A rotation without a value (NaN, an infinity) could be any rotation: the
  // ellipse is bounded for all of them, by the circle of its larger radius in
  // the square-pixel frame. Its trigonometry would otherwise be NaN, which the
  // conversions turn into 0, filing the ellipse at the origin.
  if (!std::isfinite(rho)) {
    const double kk = std::fabs(static_cast<double>(k));
    const double m = std::max(std::fabs(static_cast<double>(radii.x) * kk),
                              std::fabs(static_cast<double>(radii.y)));
    const double mx = kk > 0.0 ? m / kk : m, cx = center.x, cy = center.y;
    total.merge(
        WorldBounds{{to_world(cx - mx), to_world(cy - m)}, {to_world(cx + mx), to_world(cy + m)}});
    return;
  }

  const double rho_wide = rho;
  Frame f{static_cast<double>(radii.x) * k,
          static_cast<double>(radii.y),
          static_cast<double>(k),
          static_cast<double>(center.x),
          static_cast<double>(center.y),
          static_cast<float>(std::sin(rho_wide)),
          static_cast<float>(std::cos(rho_wide))};

  // The two ends of the sweep.
  const DoublePoint first = f.point(s);
  DoubleRect r{first, first};
  r.grow(f.point(e));

  // A rotated ellipse is bounded as one ten per cent larger, which covers the
  // error of the float angle functions and of the polar sweep test below.
  if (rho != 0.0f) {
    f.a *= EXTENT_GROWTH;
    f.b *= EXTENT_GROWTH;
    r.grow(f.point(s));
    r.grow(f.point(e));
  }

  // The extremes on each axis, where the sweep covers them. U and V are the
  // ellipse's own axes in the square-pixel frame; the third components are 0.
  const NormalizedSweep sweep(s, e, rho);
  const float rho_quarter = rho + HALF_PI;
  const double u[2] = {f.a * std::cos(rho_wide), f.a * std::sin(rho_wide)};
  const double v[2] = {f.b * std::cos(static_cast<double>(rho_quarter)),
                       f.b * std::sin(static_cast<double>(rho_quarter))};
  double* lo[2] = {&r.lo.x, &r.lo.y};
  double* hi[2] = {&r.hi.x, &r.hi.y};
  for (int i = 0; i < 2; ++i) {
    const double n = std::sqrt(u[i] * u[i] + v[i] * v[i]);
    if (n == 0.0) continue;
    // From the centre to where coordinate i is lowest; its negation is where it
    // is highest.
    const double fu = -u[i] / n;
    const double fv = v[i] / n;
    const double ex = u[0] * fu - v[0] * fv;
    const double ey = u[1] * fu - v[1] * fv;
    for (double sign : {1.0, -1.0}) {
      const double px = sign * ex;
      const double py = sign * ey;
      const ZR_Vector direction{static_cast<float>(px), static_cast<float>(py), 0.0f};
      if (!sweep.holds(direction)) continue;
      const double coordinate = i == 0 ? px / f.k + f.cx : py + f.cy;
      *lo[i] = std::min(*lo[i], coordinate);
      *hi[i] = std::max(*hi[i], coordinate);
    }
  }

  total.merge(
      WorldBounds{{to_world(r.lo.x), to_world(r.lo.y)}, {to_world(r.hi.x), to_world(r.hi.y)}});
}

}  // namespace DL
