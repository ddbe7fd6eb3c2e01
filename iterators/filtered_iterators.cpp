// The colour, bounded and bounded colour walks.
#include "iterators/filtered_iterators.h"

#include "displaylist/display_list.h"

using DL::Drawable;
using DL::Group;

// ---------------------------------------------------------------------------
// Colour
// ---------------------------------------------------------------------------

DisplayListColorIterator::DisplayListColorIterator(DL::DisplayList* list,
                                                   Drawable::ColorData const& c)
    : DisplayListIterator(list), color(c) {}

Group* DisplayListColorIterator::init(DL::DisplayList* list, Drawable::ColorData const& c) {
  color = c;
  return DisplayListIterator::init(list->root);
}

Drawable* DisplayListColorIterator::next() {
  for (;;) {
    Drawable* d = DisplayListIterator::next();
    if (!d || d->color == color) return d;
  }
}

// ---------------------------------------------------------------------------
// Bounded
// ---------------------------------------------------------------------------

DisplayListBoundedIterator::DisplayListBoundedIterator(DL::DisplayList* list,
                                                       DL::WorldBounds const& b) {
  init(list, b);
}

Group* DisplayListBoundedIterator::init(DL::DisplayList* list, DL::WorldBounds const& b) {
  current_group = list->root;
  current_drawable = nullptr;
  bounds = b;
  if (!current_group->contains_drawables()) current_group = next_group();
  if (current_group) current_drawable = current_group->first_drawable();
  return current_group;
}

Group* DisplayListBoundedIterator::next_overlapping_sibling(Group* g) const {
  for (;;) {
    if (Group* s = g->sibling) {
      if (s->bounds.overlaps(bounds)) return s;
      g = s;
    } else {
      g = g->parent;
      if (!g) return nullptr;
    }
  }
}

Group* DisplayListBoundedIterator::next_group() {
  Group* g = current_group;
  if (!g) return nullptr;
  if (g->contains_drawables()) {
    g = next_overlapping_sibling(g);
    if (!g || g->contains_drawables()) return g;
  }
  // `g` is an interior group that passed the test (or the root): go down
  // through the first overlapping child of each level.
  for (;;) {
    Group* c = g->first_group();
    if (!c) return nullptr;  // a root without children
    while (c && !c->bounds.overlaps(bounds)) c = c->sibling;
    g = c ? c : next_overlapping_sibling(g);
    if (!g || g->contains_drawables()) return g;
  }
}

// ---------------------------------------------------------------------------
// Bounded colour
// ---------------------------------------------------------------------------

DisplayListBoundedColorIterator::DisplayListBoundedColorIterator(DL::DisplayList* list,
                                                                 DL::WorldBounds const& b,
                                                                 Drawable::ColorData const& c)
    : DisplayListBoundedIterator(list, b), color(c) {}

Group* DisplayListBoundedColorIterator::init(DL::DisplayList* list, DL::WorldBounds const& b,
                                             Drawable::ColorData const& c) {
  color = c;
  return DisplayListBoundedIterator::init(list, b);
}

Drawable* DisplayListBoundedColorIterator::next() {
  for (;;) {
    Drawable* d = DisplayListIterator::next();
    if (!d || d->color == color) return d;
  }
}
