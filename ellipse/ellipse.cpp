// The ellipse records: construction, tables, matching, copies and dump lines.
// The extent is in ellipse_bounds.cpp, the draws in ellipse_draw.cpp and the
// vectors in ellipse_vectors.cpp.
#include "ellipse/ellipse.h"

#include <ostream>

namespace DL {

DL_DRAWABLE_DEFINE(Ellipse);
DL_DRAWABLE_DEFINE(EllipticalArc);
DL_DRAWABLE_DEFINE(EllipticalPie);
DL_DRAWABLE_DEFINE(ColorizedEllipse);

namespace {

// The fields that the matching of every class starts with, in the order of
// comparison: center x and y, radii x and y.
bool same_shape(const Ellipse& a, const Ellipse& b) {
  return a.center.x == b.center.x && a.center.y == b.center.y && a.radii.x == b.radii.x &&
         a.radii.y == b.radii.y;
}

// Angles match when equal, or when both are NaN: a NaN angle compares unequal
// to itself, and an ellipse built with one could otherwise never be found by
// a search, not even with its own clone as the pattern.
bool same_angle(float a, float b) {
  return a == b || (a != a && b != b);
}

}  // namespace

// ---------------------------------------------------------------------------
// Ellipse
// ---------------------------------------------------------------------------

Ellipse::Ellipse(const ColorData& c, const WorldPoint& centre, const WorldPoint& r, float rot,
                 DisplayList* list)
    : Drawable(&visible_table_, c),
      center(centre),
      radii(r),
      rotation(rot),
      device_aspect(0.0f),
      display_list(list) {}

bool Ellipse::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const Ellipse*>(search.pattern);
  return same_shape(*this, *other) && same_angle(rotation, other->rotation);
}

Drawable* Ellipse::do_clone() const {
  return new Ellipse(color, center, radii, rotation, display_list);
}

DrawableVectorIterator* Ellipse::do_create_vector_iterator(bool) {
  return new DrawableVectorIteratorEllipse(this);
}

void Ellipse::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "Ellipse: level  ");
  count_dump(debug, sizeof(Ellipse));
}

// ---------------------------------------------------------------------------
// EllipticalArc
// ---------------------------------------------------------------------------

EllipticalArc::EllipticalArc(const ColorData& c, const WorldPoint& centre, const WorldPoint& r,
                             float rot, float start, float end, DisplayList* list)
    : Ellipse(c, centre, r, rot, list), arc_start(start), arc_end(end) {
  table = &visible_table_;
}

bool EllipticalArc::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  return same_shape(*this, *static_cast<const EllipticalArc*>(search.pattern));
}

Drawable* EllipticalArc::do_clone() const {
  return new EllipticalArc(color, center, radii, rotation, arc_start, arc_end, display_list);
}

void EllipticalArc::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  // The label is the one hosts have always parsed, spelling and all.
  dump_line(out, indent, "EllipsticalArc: level  ");
  count_dump(debug, sizeof(EllipticalArc));
}

// ---------------------------------------------------------------------------
// EllipticalPie
// ---------------------------------------------------------------------------

EllipticalPie::EllipticalPie(const ColorData& c, const WorldPoint& centre, const WorldPoint& r,
                             float rot, float start, float end, DisplayList* list)
    : EllipticalArc(c, centre, r, rot, start, end, list) {
  table = &visible_table_;
}

bool EllipticalPie::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const EllipticalPie*>(search.pattern);
  return same_shape(*this, *other) && same_angle(rotation, other->rotation);
}

Drawable* EllipticalPie::do_clone() const {
  return new EllipticalPie(color, center, radii, rotation, arc_start, arc_end, display_list);
}

void EllipticalPie::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "EllipticalPie: level  ");
  count_dump(debug, sizeof(EllipticalPie));
}

// ---------------------------------------------------------------------------
// ColorizedEllipse
// ---------------------------------------------------------------------------

ColorizedEllipse::ColorizedEllipse(const ColorData& c, const WorldPoint& centre,
                                   const WorldPoint& r, float rot, float start, float end,
                                   ZR_RGB32 own_color, bool is_outline, DisplayList* list)
    : EllipticalArc(c, centre, r, rot, start, end, list),
      ellipse_color(own_color),
      outline(is_outline) {
  table = &visible_table_;
}

bool ColorizedEllipse::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const ColorizedEllipse*>(search.pattern);
  return same_shape(*this, *other) && same_angle(rotation, other->rotation) &&
         same_angle(arc_start, other->arc_start) && same_angle(arc_end, other->arc_end) &&
         outline == other->outline && ellipse_color == other->ellipse_color;
}

Drawable* ColorizedEllipse::do_clone() const {
  return new ColorizedEllipse(color, center, radii, rotation, arc_start, arc_end, ellipse_color,
                              outline, display_list);
}

void ColorizedEllipse::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "ColorizedEllipse: level  ");
  count_dump(debug, sizeof(ColorizedEllipse));
}

}  // namespace DL
