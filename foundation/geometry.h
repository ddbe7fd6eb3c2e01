// Points, inclusive rectangles and straight pieces: the value types that every
// part of the display list measures with.
//
// Coordinate contracts
// --------------------
// World coordinates are 32-bit signed on every platform (`WorldCoord`): the cell
// arithmetic of the group tree works on their 32-bit patterns. Screen and device
// coordinates are `int`, also 32 bits. The rectangle operations below only
// compare and copy, so none of them can overflow. Extents (max - min) are not
// offered as integers on purpose: the full range does not fit; callers that need
// one take the difference in double or in 64 bits.
#pragma once

#include <cmath>
#include <cstdint>
#include <limits>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace DL {

// The world coordinate type: what the interfaces of this library call `long`.
using WorldCoord = std::int32_t;
static_assert(sizeof(WorldCoord) == 4);

// A point: `x` then `y`. A plain value; no constructor is relied on.
template <class T>
struct PointTemplate {
  T x;  // first coordinate
  T y;  // second coordinate

  // The two ends of the scale of `T`; for double, the largest finite values.
  static constexpr T scalarMinimum = std::numeric_limits<T>::lowest();
  static constexpr T scalarMaximum = std::numeric_limits<T>::max();  // see scalarMinimum

  // Equal when both coordinates are.
  friend constexpr bool operator==(const PointTemplate& a, const PointTemplate& b) {
    return a.x == b.x && a.y == b.y;
  }
};

// An inclusive rectangle: `min` then `max`, in memory min.x, min.y, max.x, max.y.
// A rectangle with `min` equal to `max` holds one point. The empty rectangle has
// `min` at scalarMaximum and `max` at scalarMinimum on both axes and is the start
// value of every accumulation: merging into it gives the merged rectangle.
template <class T>
struct BoundsTemplate {
  PointTemplate<T> min;  // lower corner
  PointTemplate<T> max;  // upper corner

  using Point = PointTemplate<T>;  // the type of the corners

  // The empty rectangle (see above).
  static constexpr BoundsTemplate empty() {
    return {{Point::scalarMaximum, Point::scalarMaximum},
            {Point::scalarMinimum, Point::scalarMinimum}};
  }
  // The whole plane of `T`: what the root of a group tree covers.
  static constexpr BoundsTemplate everything() {
    return {{Point::scalarMinimum, Point::scalarMinimum},
            {Point::scalarMaximum, Point::scalarMaximum}};
  }

  // True when this lies within `o`; touching edges count as inside, and the
  // empty rectangle is inside every rectangle.
  constexpr bool is_inside(const BoundsTemplate& o) const {
    return min.x >= o.min.x && min.y >= o.min.y && max.x <= o.max.x && max.y <= o.max.y;
  }
  // True when the two share at least a point; touching edges overlap. The empty
  // rectangle overlaps only a rectangle that spans the whole plane.
  constexpr bool overlaps(const BoundsTemplate& o) const {
    return max.x >= o.min.x && max.y >= o.min.y && min.x <= o.max.x && min.y <= o.max.y;
  }
  // Grows each value to cover `o`, value by value, with no test for emptiness:
  // the values of the empty rectangle make that work.
  constexpr void merge(const BoundsTemplate& o) {
    if (o.min.x < min.x) min.x = o.min.x;
    if (o.min.y < min.y) min.y = o.min.y;
    if (o.max.x > max.x) max.x = o.max.x;
    if (o.max.y > max.y) max.y = o.max.y;
  }
  // Grows to cover one point.
  constexpr void merge(const Point& p) {
    if (p.x < min.x) min.x = p.x;
    if (p.x > max.x) max.x = p.x;
    if (p.y < min.y) min.y = p.y;
    if (p.y > max.y) max.y = p.y;
  }
  // Shrinks each value to `o`; a result inverted on either axis becomes empty.
  constexpr void intersect(const BoundsTemplate& o) {
    if (o.min.x > min.x) min.x = o.min.x;
    if (o.min.y > min.y) min.y = o.min.y;
    if (o.max.x < max.x) max.x = o.max.x;
    if (o.max.y < max.y) max.y = o.max.y;
    if (min.x > max.x || min.y > max.y) make_empty();
  }
  // Makes this the empty rectangle.
  constexpr void make_empty() { *this = empty(); }
  // True for the empty rectangle and for any rectangle with min <= max on both axes.
  constexpr bool is_valid() const {
    if (*this == empty()) return true;
    return Point::scalarMinimum <= min.x && min.x <= max.x && Point::scalarMinimum <= min.y &&
           min.y <= max.y;
  }

  // Equal when both corners are.
  friend constexpr bool operator==(const BoundsTemplate& a, const BoundsTemplate& b) {
    return a.min == b.min && a.max == b.max;
  }
};

// A straight piece: `start` then `end`, in memory start.x, start.y, end.x, end.y.
template <class T>
struct VectorTemplate {
  PointTemplate<T> start;  // where the piece begins
  PointTemplate<T> end;    // where it ends

  // Equal when both ends are.
  friend constexpr bool operator==(const VectorTemplate& a, const VectorTemplate& b) {
    return a.start == b.start && a.end == b.end;
  }
};

// ---------------------------------------------------------------------------
// Conversions from double
// ---------------------------------------------------------------------------
// C++ leaves a float-to-int conversion of an out-of-range value undefined; these
// say what happens instead. All round or cut the way their name says, with the
// current rounding mode taken to be the default, to nearest with ties to even.

// Rounded to nearest, ties to even, straight into 32 bits with no range test: a
// result outside 32 bits, or NaN, gives -2147483648 (the x86 "integer
// indefinite"). This is the plain device conversion: a multiply, an add and this.
inline std::int32_t round_to_int32_wrapping(double v) {
#if defined(__SSE2__)
  return _mm_cvtsd_si32(_mm_set_sd(v));
#else
  double r = std::nearbyint(v);
  if (!(r >= -2147483648.0 && r < 2147483648.0)) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(r);
#endif
}

// Rounded to nearest, ties to even, then clamped to the 32-bit range. NaN gives
// -2147483648; values beyond the 64-bit range clamp like any other.
inline std::int32_t round_to_int32_saturated(double v) {
  if (v >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
  if (!(v > -2147483648.0)) return std::numeric_limits<std::int32_t>::min();
  return round_to_int32_wrapping(v);
}

// Truncated toward zero, then clamped to the 32-bit range; NaN gives 0.
inline std::int32_t truncate_to_int32_saturated(double v) {
  if (v >= 2147483647.0) return std::numeric_limits<std::int32_t>::max();
  if (v <= -2147483648.0) return std::numeric_limits<std::int32_t>::min();
  if (v != v) return 0;
  return static_cast<std::int32_t>(v);
}

using WorldPoint = PointTemplate<WorldCoord>;    // a point of the world
using WorldBounds = BoundsTemplate<WorldCoord>;  // a rectangle of the world
using WorldVector = VectorTemplate<WorldCoord>;  // a straight piece of the world
using ScreenPoint = PointTemplate<int>;          // a point of the screen, in pixels
using ScreenBounds = BoundsTemplate<int>;        // a rectangle of the screen, in pixels
using DoublePoint = PointTemplate<double>;       // a pair of doubles: scales, offsets, exact points

}  // namespace DL
