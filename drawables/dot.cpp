#include "drawables/dot.h"

#include <ostream>

#include "displaylist/display_list.h"

namespace DL {

DL_DRAWABLE_DEFINE(Dot);
DL_DRAWABLE_DEFINE(ColorizedDot);

// ---------------------------------------------------------------------------
// Dot
// ---------------------------------------------------------------------------

Dot::Dot(const ColorData& c, const WorldPoint& p) : Drawable(&visible_table_, c), point(p) {}

void Dot::do_draw_unclipped(DisplayList& list) {
  ZR_DCI_Point p;
  list.world_to_screen(point, p);
  ZR_Rendition* r = rendition(list);
  list.renderer->dot_unclipped(r, &p, nullptr);
}

void Dot::do_draw_clipped(DisplayList& list) {
  ZR_DCI_Point p;
  list.world_to_screen(point, p);
  ZR_Rendition* r = rendition(list);
  list.renderer->dot_clipped(r, &p, nullptr);
}

void Dot::do_add_bounds(WorldBounds& b) const {
  b.merge(point);
}

bool Dot::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  return static_cast<const Dot*>(search.pattern)->point == point;
}

Drawable* Dot::do_clone() const {
  return new Dot(color, point);
}

bool Dot::do_get_vector(int, WorldVector& v) const {
  v.start = point;
  v.end = point;
  return true;
}

void Dot::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "Dot: level  ");
  count_dump(debug, sizeof(Dot));
}

// ---------------------------------------------------------------------------
// ColorizedDot
// ---------------------------------------------------------------------------

ColorizedDot::ColorizedDot(const ColorData& c, const WorldPoint& p, ZR_RGB32 dc)
    : Dot(c, p), dot_color(dc) {
  table = &visible_table_;
}

void ColorizedDot::do_draw_unclipped(DisplayList& list) {
  ZR_DCI_Point p;
  list.world_to_screen(point, p);
  ZR_Rendition* r = rendition(list);
  list.renderer->dot_unclipped(r, &p, &dot_color);
}

void ColorizedDot::do_draw_clipped(DisplayList& list) {
  ZR_DCI_Point p;
  list.world_to_screen(point, p);
  ZR_Rendition* r = rendition(list);
  list.renderer->dot_clipped(r, &p, &dot_color);
}

bool ColorizedDot::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const ColorizedDot*>(search.pattern);
  return other->point == point && other->dot_color == dot_color;
}

Drawable* ColorizedDot::do_clone() const {
  return new ColorizedDot(color, point, dot_color);
}

void ColorizedDot::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "ColorizedDot: level  ");
  count_dump(debug, sizeof(ColorizedDot));
}

}  // namespace DL
