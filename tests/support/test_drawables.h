// Drawables for tests of the tree: a rectangle with any bounds (also empty), and
// a sink renderer that keeps the device points of dots.
#pragma once

#include <vector>

#include "drawables/drawable.h"
#include "foundation/rendering.h"

namespace DL::test {

// A drawable whose bounds are whatever it was given, the empty rectangle
// included. Draws one dot at its min corner.
class Box : public Drawable {
  DL_DRAWABLE(Box);

 public:
  WorldBounds box;
  explicit Box(const WorldBounds& b, ZR_RGB32 color = 0)
      : Drawable(&visible_table_, color), box(b) {}

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  void do_add_bounds(WorldBounds& b) const { b.merge(box); }
  bool do_remove(const Search& s) const {
    return s.pattern_type == &_drawable_type_dummy &&
           static_cast<const Box*>(s.pattern)->box == box;
  }
  Drawable* do_clone() const { return new Box(box, color.rgb()); }
};

// A renderer that keeps the device point of every dot call, unclipped and clipped.
struct DotSink : ZR_Renderer {
  std::vector<ZR_DCI_Point> points;
  int clipped = 0;
  DotSink();
};

}  // namespace DL::test
