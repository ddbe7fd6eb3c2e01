// Defaults of the drawable protocol, the common dump line, and DummyDrawable.
#include "drawables/drawable.h"

#include <ostream>

#include "displaylist/display_list.h"
#include "drawables/vector_iterator.h"

namespace DL {

ZR_Rendition* Drawable::do_rendition(DisplayList& list) {
  // The list's rendition is changed in place, with no copy of shared data, and
  // the colour stays set after the draw.
  list.rendition.set_color(color.rgb(), true);
  return &list.rendition;
}

ZR_DCI_Point* Drawable::bounds_strip(DisplayList& list, ZR_DCI_Point* target) const {
  WorldBounds b = bounds_of();
  if (b.min.x > b.max.x) return nullptr;
  const WorldPoint corners[4] = {
      {b.min.x, b.min.y}, {b.max.x, b.min.y}, {b.min.x, b.max.y}, {b.max.x, b.max.y}};
  list.world_to_screen_points(4, corners, target);
  return target;
}

void Drawable::draw_bounds_unclipped(DisplayList& list) {
  ZR_DCI_Point strip[4];
  if (!bounds_strip(list, strip)) return;
  ZR_Rendition* r = rendition(list);
  list.renderer->triangles_unclipped(r, 4, strip);
}

void Drawable::draw_bounds_clipped(DisplayList& list) {
  ZR_DCI_Point strip[4];
  if (!bounds_strip(list, strip)) return;
  ZR_Rendition* r = rendition(list);
  list.renderer->triangles_clipped(r, 4, strip);
}

DrawableVectorIterator* Drawable::do_create_vector_iterator(bool) {
  auto* it = new DrawableVectorIterator;
  if (it) it->initialize(this);
  return it;
}

void Drawable::dump_line(std::ostream& out, int indent, const char* label) const {
  for (int i = 0; i < indent; ++i) out << "    ";
  out << label << indent << ", this = " << reinterpret_cast<std::uintptr_t>(this) << std::endl;
}

void Drawable::count_dump(DisplayListDebug& debug, int bytes) {
  add_to_dump_count(debug.drawable_bytes, bytes);
  add_to_dump_count(debug.drawable_common_bytes, static_cast<int>(sizeof(Drawable)));
}

void Drawable::do_dump(std::ostream& out, int indent, DisplayListDebug&) const {
  dump_line(out, indent, "Drawable: level  ");
}

// ---------------------------------------------------------------------------
// DummyDrawable
// ---------------------------------------------------------------------------

namespace {

void draw_nothing(Drawable*, DisplayList&) {}
void forward_unclipped(Drawable* d, DisplayList& l) {
  d->draw_unclipped(l);
}
void forward_clipped(Drawable* d, DisplayList& l) {
  d->draw_clipped(l);
}
ZR_Rendition* list_rendition(Drawable* d, DisplayList& l) {
  l.rendition.set_color(d->color.rgb(), true);
  return &l.rendition;
}
bool no(const Drawable*) {
  return false;
}
bool yes(const Drawable*) {
  return true;
}
int zero(const Drawable*) {
  return 0;
}
DrawableVectorIterator* plain_iterator(Drawable* d, bool) {
  auto* it = new DrawableVectorIterator;
  if (it) it->initialize(d);
  return it;
}
void dump_plain(const Drawable* d, std::ostream& out, int indent, DisplayListDebug&) {
  for (int i = 0; i < indent; ++i) out << "    ";
  out << "Drawable: level  " << indent << ", this = " << reinterpret_cast<std::uintptr_t>(d)
      << std::endl;
}

}  // namespace

constinit const DrawableTable DummyDrawable::table_ = {
    .draw_unclipped = draw_nothing,
    .draw_clipped = draw_nothing,
    .draw_unclipped_selection = forward_unclipped,
    .draw_clipped_selection = forward_clipped,
    .rendition = list_rendition,
    .add_bounds = [](const Drawable*, WorldBounds&) {},
    .remove = [](const Drawable*, const Search&) { return false; },
    .clone = [](const Drawable*) -> Drawable* { return nullptr; },
    .partial_clone = [](const Drawable*, int, int) -> Drawable* { return nullptr; },
    .has_rendition = no,
    .has_fixed_representation = yes,
    .supports_fast_vector_iterator = no,
    .get_vector_count = zero,
    .get_vector = [](const Drawable*, int, WorldVector&) { return false; },
    .vector_predicate = [](Drawable*, int) { return false; },
    .create_vector_iterator = plain_iterator,
    .dump = dump_plain,
    .destroy = [](Drawable* d) { delete static_cast<DummyDrawable*>(d); },
    .type = nullptr,
    .twin = &DummyDrawable::table_,
    .hidden = false,
    .draw_data = nullptr,
};

DummyDrawable::DummyDrawable() : Drawable(&table_, ColorData()) {}

}  // namespace DL
