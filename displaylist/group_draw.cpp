// The bounded traversal and the two selection traversals of the group tree.
//
// A bounded walk tests each group's rectangle against two world rectangles,
// `inner` first: a group inside `inner` is handed on whole, with no further
// test below it; a group that misses `outer` is skipped with its subtree; any
// other group is walked, and the drawables of such a bottom group all get
// `draw_clipped`, also those that lie outside `outer` (drawables are never
// tested one by one). An open group with no drawables is not tested at all.
//
// The selection walks do the same, but tell the list's selector which drawable
// is about to draw (see `mark_selected`). They ignore the complex clip.
#include "displaylist/group_p.h"

namespace DL::group_detail {

// ---------------------------------------------------------------------------
// Bounded
// ---------------------------------------------------------------------------

template <class Walk>
static bool interior_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (!Walk::poll(list)) return false;
  if (g->bounds.is_inside(inner))
    return each_child(g, [&](const Group* c) { return Walk::unclipped(c, list); });
  if (g->bounds.overlaps(outer))
    return each_child_near<Walk>(g, list, inner, outer, [&](const Group* c) {
      return Walk::bounded(c, list, inner, outer);
    });
  return true;
}

void interior_draw_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  interior_bounded<PlainWalk>(g, list, inner, outer);
}

bool interior_draw_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner,
                                     Bounds outer) {
  return interior_bounded<InterruptWalk>(g, list, inner, outer);
}

void bottom_draw_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (g->bounds.is_inside(inner))
    each_shown(g, [&](Drawable* d) { d->draw_unclipped(list); });
  else if (g->bounds.overlaps(outer))
    each_shown(g, [&](Drawable* d) { d->draw_clipped(list); });
}

void open_draw_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  // The rectangle of an open group is its cell, which is what may go in.
  if (g->first_child) bottom_draw_bounded(g, list, inner, outer);
}

// ---------------------------------------------------------------------------
// Selection
// ---------------------------------------------------------------------------

void interior_draw_unclipped_selection(const Group* g, DisplayList& list) {
  for (const Group* c = g->first_group(); c; c = c->sibling) c->draw_unclipped_selection(list);
}

void bottom_draw_unclipped_selection(const Group* g, DisplayList& list) {
  each_shown(g, [&](Drawable* d) {
    mark_selected(list, d);
    d->draw_unclipped_selection(list);
  });
}

void interior_draw_bounded_selection(const Group* g, DisplayList& list, Bounds inner,
                                     Bounds outer) {
  if (g->bounds.is_inside(inner)) {
    for (const Group* c = g->first_group(); c; c = c->sibling) c->draw_unclipped_selection(list);
  } else if (g->bounds.overlaps(outer)) {
    each_child_near<PlainWalk>(g, list, inner, outer, [&](const Group* c) {
      c->draw_bounded_selection(list, inner, outer);
      return true;
    });
  }
}

void bottom_draw_bounded_selection(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (g->bounds.is_inside(inner)) {
    bottom_draw_unclipped_selection(g, list);
  } else if (g->bounds.overlaps(outer)) {
    each_shown(g, [&](Drawable* d) {
      mark_selected(list, d);
      d->draw_clipped_selection(list);
    });
  }
}

void open_draw_bounded_selection(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (g->first_child) bottom_draw_bounded_selection(g, list, inner, outer);
}

}  // namespace DL::group_detail
