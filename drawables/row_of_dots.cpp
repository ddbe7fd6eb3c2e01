#include "drawables/row_of_dots.h"

#include <cstdint>

#include "displaylist/display_list.h"
#include "foundation/assert.h"

namespace DL {

DL_DRAWABLE_DEFINE(RowOfDots);

namespace {

using DotEntry = ZR_Action<ZR_Dot_Action> ZR_Renderer::*;

// a + b * n in 32-bit world integers, wrapping: defined through unsigned
// arithmetic and the modular conversion back.
WorldCoord wrap_step(WorldCoord a, WorldCoord b, std::uint32_t n) {
  return static_cast<WorldCoord>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b) * n);
}

template <DotEntry Dot>
void draw_row(RowOfDots& row, DisplayList& list) {
  DL_ASSERT(row.count >= 1);
  WorldPoint p = row.origin;
  int remaining = row.count;
  ZR_Rendition* r = row.rendition(list);
  for (;;) {
    ZR_DCI_Point device;
    list.world_to_screen(p, device);
    (list.renderer->*Dot)(r, &device, nullptr);
    if (remaining <= 1) break;
    --remaining;
    p.x = wrap_step(p.x, row.step.x, 1);
    p.y = wrap_step(p.y, row.step.y, 1);
  }
}

}  // namespace

RowOfDots::RowOfDots(const ColorData& c, const WorldPoint& o, const WorldPoint& s, int n)
    : Drawable(&visible_table_, c), origin(o), step(s), count(n) {}

WorldPoint RowOfDots::last_dot() const {
  const std::uint32_t steps = static_cast<std::uint32_t>(count) - 1u;
  return {wrap_step(origin.x, step.x, steps), wrap_step(origin.y, step.y, steps)};
}

void RowOfDots::do_draw_unclipped(DisplayList& list) {
  draw_row<&ZR_Renderer::dot_unclipped>(*this, list);
}

void RowOfDots::do_draw_clipped(DisplayList& list) {
  draw_row<&ZR_Renderer::dot_clipped>(*this, list);
}

void RowOfDots::do_add_bounds(WorldBounds& b) const {
  b.merge(origin);
  const WorldPoint last = last_dot();
  if (last.x < b.min.x)
    b.min.x = last.x;
  else if (last.x > b.max.x)
    b.max.x = last.x;
  if (last.y < b.min.y)
    b.min.y = last.y;
  else if (last.y > b.max.y)
    b.max.y = last.y;
}

bool RowOfDots::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const RowOfDots*>(search.pattern);
  return other->count == count && other->origin == origin && other->step == step;
}

Drawable* RowOfDots::do_clone() const {
  return new RowOfDots(color, origin, step, count);
}

void RowOfDots::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_line(out, indent, "RowOfDots: level  ");
  count_dump(debug, sizeof(RowOfDots));
}

}  // namespace DL
