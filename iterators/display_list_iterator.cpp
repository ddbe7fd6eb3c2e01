// The forward walk and the range walk.
#include "iterators/display_list_iterator.h"

#include "displaylist/display_list.h"

using DL::Drawable;
using DL::Group;

DisplayListIterator::DisplayListIterator(DL::DisplayList* list) {
  init(list->root);
}

DisplayListIterator::DisplayListIterator(Group* start) {
  init(start);
}

Group* DisplayListIterator::init(Group* start) {
  current_group = start;
  if (!start->contains_drawables()) current_group = next_group();
  if (current_group) current_drawable = current_group->first_drawable();
  if (!current_drawable) current_drawable = &sentinel;
  return current_group;
}

Drawable* DisplayListIterator::next_leaf() {
  current_group = next_group();
  if (!current_group) return current_drawable = nullptr;
  return current_drawable = current_group->first_drawable();
}

Drawable* DisplayListIterator::next_until(Drawable* target) {
  if (current_drawable == target) return target;
  if (!current_group || !current_drawable) {
    current_group = nullptr;
    return current_drawable = nullptr;
  }
  for (;;) {
    Drawable* d = current_drawable;
    while (d->sibling && d->sibling != target) d = d->sibling;
    if (d->sibling == target) return current_drawable = target;  // a null target: end of leaf
    current_drawable = d;
    current_group = next_group();
    if (!current_group) return current_drawable = nullptr;
    current_drawable = current_group->first_drawable();
    if (current_drawable == target) return target;
    if (!current_drawable) {
      // An empty leaf ends the walk, as it does for `next`.
      current_group = nullptr;
      return nullptr;
    }
  }
}

Group* DisplayListIterator::next_group() {
  Group* g = current_group;
  if (!g) return nullptr;
  if (g->contains_drawables()) {
    while (!g->sibling) {
      g = g->parent;
      if (!g) return nullptr;
    }
    g = g->sibling;
  } else {
    // Only from `init`, on an interior start.
    g = g->first_group();
    if (!g) return nullptr;  // a root without children
  }
  while (!g->contains_drawables()) g = g->first_group();
  return g;
}

SubEntityIterator::SubEntityIterator(Drawable* first, Drawable* last_, Group* group) {
  init(first, last_, group);
}

Group* SubEntityIterator::init(Drawable* first, Drawable* last_, Group* group) {
  if (!group) {
    current_drawable = nullptr;
    return nullptr;
  }
  DisplayListIterator::init(group);
  // An interior `group`: search forward for the leaf of `first`. A leaf is
  // taken to hold `first` without a search.
  if (group != current_group && first != current_drawable) next_until(first);
  current_drawable = first;
  last = last_;
  return current_group;
}

Drawable* SubEntityIterator::next() {
  if (current_drawable == last)
    current_drawable = nullptr;
  else
    DisplayListIterator::next();
  return current_drawable;
}
