// The reverse walk.
//
// Why the order is the exact reverse of drawing order: at any moment the
// drawable stack, top first, holds what comes right before the current drawable
// in its leaf, and the group stack, top first, holds what comes before that
// leaf. An expand entry stands for the children before the one last entered in
// its group, a pending entry for itself. `descend` pushes an expand entry for
// each level before it goes down to the last child; popping an expand entry
// pushes the earlier children in chain order, so the nearest is on top, and
// goes down into the child just before the visited one at once.
#include "iterators/reverse_iterator.h"

#include "displaylist/display_list.h"
#include "displaylist/group_index.h"

using DL::Drawable;
using DL::Group;

DisplayListReverseIterator::DisplayListReverseIterator(DL::DisplayList* list,
                                                       DL::WorldBounds const& b)
    : group_stack(32), drawable_stack(32) {
  init(list, b);
}

Group* DisplayListReverseIterator::init(DL::DisplayList* list, DL::WorldBounds const& b) {
  current_group = list->root;
  current_drawable = nullptr;
  bounds = b;
  if (!descend(list->root, false)) next();
  return current_group;
}

bool DisplayListReverseIterator::descend(Group* g, bool wholly_inside) {
  while (!g->contains_drawables()) {
    if (!wholly_inside) {
      if (!g->bounds.overlaps(bounds)) return false;
      wholly_inside = g->bounds.is_inside(bounds);
    }
    group_stack.push({g, true, wholly_inside});
    g = g->last_group();
    if (!g) return false;  // a root without children
  }
  // The leaf is taken without a test of its own.
  load_drawables(g);
  return current_drawable != nullptr;
}

void DisplayListReverseIterator::load_drawables(Group* g) {
  current_group = g;
  Drawable* d = g->first_drawable();
  Drawable* last = g->last_drawable();
  while (d != last) {
    drawable_stack.push(d);
    d = d->sibling;
  }
  current_drawable = d;  // the last drawable, not pushed; null for an empty leaf
}

Drawable* DisplayListReverseIterator::next() {
  for (;;) {
    if (!drawable_stack.empty()) return current_drawable = drawable_stack.pop();
    if (group_stack.empty()) {
      current_group = nullptr;
      return current_drawable = nullptr;
    }
    const GroupEntry e = group_stack.pop();
    Group* p = e.group;
    if (!e.expand) {
      // Pending: the descent makes its tests again.
      if (descend(p, false)) return current_drawable;
      continue;
    }
    const bool inside = e.wholly_inside;
    if (p->first_child == p->last_child) continue;  // only the visited child
    Group* c = p->first_group();
    Group* const visited = p->last_group();
    if (!inside && push_indexed(p, visited)) continue;
    while (c->sibling != visited) {
      if (inside)
        group_stack.push({c, false, true});
      else if (c->bounds.overlaps(bounds))
        group_stack.push({c, false, c->bounds.is_inside(bounds)});
      c = c->sibling;
    }
    // `c` is the child just before the visited one.
    if (!inside && !c->bounds.overlaps(bounds)) continue;
    if (descend(c, inside)) return current_drawable;
  }
}

// The expand step of a group that has an index: the children before the last
// that overlap, pushed in chain order as pending entries, so the nearest comes
// first. Taking the child just before the last from the stack at once, as the
// chain walk does, is the same as descending into it there: a pending entry
// makes the same tests. False when the index cannot answer.
bool DisplayListReverseIterator::push_indexed(Group* p, Group* visited) {
  DL::GroupIndex* index = DL::GroupIndex::for_walk(p);
  if (!index || bounds.min.x > bounds.max.x || bounds.min.y > bounds.max.y) return false;
  std::uint32_t n = 0;
  const std::uint32_t* ords = index->candidates(bounds, n);
  if (!ords) return false;
  for (std::uint32_t i = 0; i < n; ++i) {
    Group* c = index->kid(ords[i]);
    if (c && c != visited && c->bounds.overlaps(bounds))
      group_stack.push({c, false, c->bounds.is_inside(bounds)});
  }
  for (Group* c = index->rest(); c && c != visited; c = c->sibling)
    if (c->bounds.overlaps(bounds)) group_stack.push({c, false, c->bounds.is_inside(bounds)});
  return true;
}
