// A row of equally spaced dots, held as an origin, a step and a count instead
// of a point list, and drawn dot by dot.
//
// The stepping is done in 32-bit world integers with wrap-around (unsigned
// arithmetic, so it is defined): a row that runs past the end of the world
// comes back in at the other side, as the world's cell arithmetic does. Each
// dot is converted on its own, with the form of `saturate_device_points` chosen
// anew for each, and no dot is compared with the one before it: dots that land
// on one device point are all sent.
//
// Choices made here
// -----------------
// - `count` is at least 1 (asserted in debug builds). The draw runs its loop
//   once before it tests, so a row with a smaller count draws its origin alone
//   rather than loop round the 32-bit range; its bounds are those of the last
//   dot computed from that count, wrapped.
// - Only the two end dots enter the bounds: with wrap-around the dots between
//   may lie outside them, which is the caller's to avoid.
#pragma once

#include "drawables/drawable.h"

namespace DL {

// 48 bytes on a 64-bit host: the drawable part (32), origin, step, count.
// Owns nothing beyond its record. No vectors.
class RowOfDots : public Drawable {
  DL_DRAWABLE(RowOfDots);

 public:
  WorldPoint origin;  // world position of the first dot
  WorldPoint step;    // world distance from one dot to the next; may be negative
  int count;          // number of dots, at least 1

  // `count` dots from `origin`, `step` apart.
  RowOfDots(const ColorData& color, const WorldPoint& origin, const WorldPoint& step, int count);

  // origin + step * (count - 1), per axis, wrapping in 32 bits.
  WorldPoint last_dot() const;

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // The origin and the last dot.
  void do_add_bounds(WorldBounds& bounds) const;
  // Equal `count`, `origin` and `step`.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

}  // namespace DL
