// Insertion in front of a drawable already in the tree.
//
// Two choices keep every group's rectangle over what it holds:
//
// - `open_bounds` grows by the inserted rectangle as well as `bounds`. Closing
//   the open group replaces its `bounds` (the cell) by `open_bounds`; without
//   this, a drawable inserted inside the cell but outside what had been added
//   so far would stick out of the closed group's rectangle.
//
// - The groups on the way down to the open group hold cells, and insertion
//   relies on that: a new child of such a group gets the cell of its first
//   drawable one level down, which lies inside the parent's cell. Once a cell
//   has been grown to a rectangle that is not a cell, a later child could get a
//   cell reaching outside the grown rectangle, and drawables added to it there
//   would lie outside their ancestor. So when the growth reaches a group of the
//   open path (the open group itself or an ancestor of it), the path is closed
//   from the highest grown group down, which gives those groups tight
//   rectangles (an empty open group is destroyed rather than closed), and a
//   new open group starts at the tail of that group's parent,
//   which holds `b` and so was not grown. An insertion that fits the cells
//   changes no rectangle and no group's class.
#include "displaylist/display_list.h"
#include "displaylist/group_index.h"
#include "drawables/drawable.h"
#include "foundation/assert.h"
#include "iterators/display_list_iterator.h"

namespace DL {

// The open group below `g` along the chain of last children, or null: `g` is
// on the open path exactly when there is one.
static Group* open_group_below(Group* g) {
  while (!g->contains_drawables()) {
    g = g->last_group();
    if (!g) return nullptr;
  }
  return g->is_open() ? g : nullptr;
}

Group* DisplayList::add_before(Group* g, Drawable* existing, Drawable* first_new,
                               const WorldBounds& b) {
  DL_ASSERT(g && existing && first_new);
  Group* h = g;
  if (!g->contains_drawables()) h = SubEntityIterator(existing, existing, g).group();
  DL_ASSERT(h && "existing must lie below g");

  Drawable* previous = nullptr;
  for (Drawable* d = h->first_drawable(); d != existing; d = d->sibling) {
    DL_ASSERT(d && "existing must be in the leaf");
    previous = d;
  }

  // Link the chain in front of `existing`.
  if (previous)
    previous->sibling = first_new;
  else
    h->first_child = first_new;
  Drawable* tail = first_new;
  while (tail->sibling) tail = tail->sibling;
  tail->sibling = existing;

  if (h->is_open()) {
    DisplayList* list = h->display_list;
    list->open_count = BottomGroup::count_and_set_last_drawable(*h);
    list->open_bounds.merge(b);
  }

  // Grow every group up to the first one that holds `b`.
  Group* highest_grown = nullptr;
  for (Group* a = h; a && !b.is_inside(a->bounds); a = a->parent) {
    const WorldBounds old_bounds = a->bounds;
    a->bounds.merge(b);
    // The parent's index held the old rectangle.
    if (a->parent) GroupIndex::child_grown(a->parent, a, old_bounds);
    highest_grown = a;
  }
  if (highest_grown) {
    if (Group* open = open_group_below(highest_grown)) {
      DL_ASSERT(highest_grown->parent && "the root must cover every rectangle added");
      DisplayList* list = open->display_list;
      // An empty open group goes rather than closing (see Group::close).
      highest_grown->close();
      highest_grown->parent->create_open_bottom_group(list);
    }
  }
  return h;
}

}  // namespace DL
