// Redrawing a list's view: one call for a host (or a nesting list) to redraw the
// whole view or a part of it, picking the traversal of the root by the clip.
#include "displaylist/display_list.h"
#include "foundation/assert.h"

namespace DL {

namespace {

using BoundedEntry = void (Group::*)(DisplayList&, const WorldBounds&, const WorldBounds&) const;

// The traversal for the list's clip: the rectangles alone when there is no
// complex clip or the device clips to it; otherwise the circle test for a
// nearly round clip, the contour test for any other.
BoundedEntry pick_traversal(DisplayList& list) {
  if (list.complex_clip_supported || !list.rendition.complex_clip()) return &Group::draw_bounded;
  return list.circular_complex_clip() ? &Group::draw_circled_bounded : &Group::draw_complex_bounded;
}

// `rect` cut down to the world shown: what needs no clipping within `rect`.
WorldBounds inner_of(const DisplayList& list, const WorldBounds& rect) {
  WorldBounds inner = rect;
  inner.intersect(list.world_bounds);
  return inner;
}

// Makes `source` the list's selector, holding a reference of the list's own.
void take_selector(DisplayList& list, ZR_Option_Source* source) {
  add_ref(source);
  if (list.selector) release(list.selector);
  list.selector = source;
}

}  // namespace

bool DisplayList::is_selector(ZR_Option_Source* source) {
  DL_ASSERT(source);
  add_ref(source);
  const ZR_String name("Is Selector");
  const ZR_Option* option = source->table.find(name);
  const bool selector = option && option->value;
  release(source);
  return selector;
}

void DisplayList::draw_view() {
  DL_ASSERT(root && renderer);
  (root->*pick_traversal(*this))(*this, world_bounds, visible_bounds);
}

void DisplayList::draw_view_bounded(const WorldBounds& rect) {
  DL_ASSERT(root && renderer);
  (root->*pick_traversal(*this))(*this, inner_of(*this, rect), rect);
}

void DisplayList::draw_view_selection() {
  DL_ASSERT(root && renderer);
  take_selector(*this, renderer->option_source);
  root->draw_bounded_selection(*this, world_bounds, visible_bounds);
}

void DisplayList::draw_view_bounded_selection(const WorldBounds& rect) {
  DL_ASSERT(root && renderer);
  ZR_Option_Source* source = renderer->option_source;
  // Held for the whole draw: a selector renderer may drop its own reference
  // while it records.
  add_ref(source);
  if (is_selector(source)) {
    take_selector(*this, source);
    root->draw_bounded_selection(*this, inner_of(*this, rect), rect);
  }
  release(source);
}

}  // namespace DL
