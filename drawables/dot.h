// Dots: one world point drawn as one device dot.
#pragma once

#include "drawables/drawable.h"

namespace DL {

// A Dot is 40 bytes on a 64-bit host: table, sibling, colour, layer, point.
// Owns nothing beyond its record.
class Dot : public Drawable {
  DL_DRAWABLE(Dot);

 public:
  // Position in world coordinates.
  WorldPoint point;

  // A dot of `color` at `point`.
  Dot(const ColorData& color, const WorldPoint& point);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  void do_add_bounds(WorldBounds& bounds) const;
  // Equal when the pattern is a Dot (not a subclass) at the same point.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  int do_get_vector_count() const { return 1; }
  // The zero-length vector at `point`, whatever the index.
  bool do_get_vector(int index, WorldVector& vector) const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A dot with a colour of its own, handed to the action call beside the
// rendition, which still gets `color`. 48 bytes on a 64-bit host.
class ColorizedDot : public Dot {
  DL_DRAWABLE(ColorizedDot);

 public:
  ZR_RGB32 dot_color;  // the colour handed to the action call

  // A dot at `point` painted in `dot_color`; `color` goes on the rendition.
  ColorizedDot(const ColorData& color, const WorldPoint& point, ZR_RGB32 dot_color);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Equal when the pattern is a ColorizedDot with the same point and dot_color.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

}  // namespace DL
