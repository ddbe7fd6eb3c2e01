// Removal of drawables from the group tree: by position, by likeness to a
// pattern, and by rectangle.
//
// Rules that hold after each of them: the only group that may be left without
// children is the root (also when it is the open group); every other group a
// removal empties is destroyed, with each ancestor that this empties in turn
// (`empty_child_notify`), so the open group may go too, leaving `open_group`
// null until the host opens a new one with `create_open_bottom_group`.
// `open_count` stays exact. No rectangle shrinks: `open_bounds` and every
// group's `bounds` keep covering what remains, only larger than they could be.
#include "displaylist/display_list.h"
#include "displaylist/group_index.h"
#include "displaylist/group_p.h"
#include "displaylist/group_remove_p.h"
#include "drawables/drawable.h"
#include "foundation/assert.h"

namespace DL {

// Unlinks `d`, whose predecessor in the drawable list of `g` is `previous`
// (null for the first), and destroys it.
static void unlink_drawable(Group* g, Drawable* d, Drawable* previous) {
  if (previous)
    previous->sibling = d->sibling;
  else
    g->first_child = d->sibling;
  if (g->last_child == d) g->last_child = previous;
  d->sibling = nullptr;
  d->destroy();
}

// Unlinks the child group `c`, whose predecessor is `previous`, and destroys it
// with its subtree.
static void unlink_group(Group* g, Group* c, Group* previous) {
  group_detail::unlink_child(g, c, previous);
  c->destroy();
}

// The group that survives once `g` may have been emptied: `g` itself if it
// holds something or is the root, else the lowest surviving ancestor.
static Group* survivor(Group* g) {
  if (g->first_child || !g->parent) return g;
  return g->parent->empty_child_notify(g);
}

int BottomGroup::count_and_set_last_drawable(Group& g) {
  int n = 0;
  for (Drawable* d = g.first_drawable(); d; d = d->sibling) {
    ++n;
    g.last_child = d;
  }
  return n;
}

// ---------------------------------------------------------------------------
// By position: constant time while the group stays
// ---------------------------------------------------------------------------

Group* interior_remove(Group*, Drawable*, Drawable*) {
  return nullptr;
}

Group* bottom_remove(Group* g, Drawable* d, Drawable* previous) {
  unlink_drawable(g, d, previous);
  return survivor(g);
}

Group* open_remove(Group* g, Drawable* d, Drawable* previous) {
  unlink_drawable(g, d, previous);
  g->display_list->open_count -= 1;
  return survivor(g);
}

// ---------------------------------------------------------------------------
// By likeness: only cells that hold the search rectangle are entered
// ---------------------------------------------------------------------------

Group* any_remove_searched(Group* g, const Search& search) {
  if (!search.search_bounds.is_inside(g->bounds)) return nullptr;
  return g->remove_fast(search);
}

Group* interior_remove_fast(Group* g, const Search& search) {
  // Cells repeat at one level, so several children may qualify; a child that
  // finds nothing has changed nothing, and the search goes on after it. A
  // child whose rectangle holds a proper `search_bounds` overlaps it, so the
  // index's candidates cover all that qualify.
  const WorldBounds& sb = search.search_bounds;
  GroupIndex* index = GroupIndex::for_walk(g);
  if (index && sb.min.x <= sb.max.x && sb.min.y <= sb.max.y) {
    Group* result = nullptr;
    const int ran = index->each_candidate(sb, [&](std::uint32_t, Group* c) {
      if (sb.is_inside(c->bounds)) result = c->remove_searched(search);
      return result == nullptr;
    });
    if (ran == 0) return result;  // found: `g` may be gone
    if (ran == 1) {
      for (Group* c = index->rest(); c; c = c->sibling)
        if (sb.is_inside(c->bounds))
          if (Group* r = c->remove_searched(search)) return r;
      return nullptr;
    }
  }
  for (Group* c = g->first_group(); c; c = c->sibling)
    if (search.search_bounds.is_inside(c->bounds))
      if (Group* result = c->remove_searched(search)) return result;
  return nullptr;
}

// The two bottom classes differ only in keeping `open_count`.
static Group* leaf_remove_fast(Group* g, const Search& search, int* open_count) {
  Drawable* previous = nullptr;
  Drawable* d = g->first_drawable();
  while (d && !d->remove(search)) {
    previous = d;
    d = d->sibling;
  }
  if (!d) return nullptr;
  if (search.keep_drawable == 0) {
    unlink_drawable(g, d, previous);
    if (open_count) *open_count -= 1;
  } else {
    const int n = BottomGroup::count_and_set_last_drawable(*g);
    if (open_count) *open_count = n;
  }
  if (g->first_child || !g->parent) return g;
  // Emptied: answer where a caller can walk on.
  Group* next = g->sibling;
  Group* notified = g->parent->empty_child_notify(g);
  return next ? next : notified;
}

Group* bottom_remove_fast(Group* g, const Search& search) {
  return leaf_remove_fast(g, search, nullptr);
}

Group* open_remove_fast(Group* g, const Search& search) {
  return leaf_remove_fast(g, search, &g->display_list->open_count);
}

// ---------------------------------------------------------------------------
// By rectangle
// ---------------------------------------------------------------------------

void any_remove_bounded(Group* g, const WorldBounds& rectangle) {
  g->remove_bounded_worker(rectangle);
  if (!g->first_child && g->parent) g->parent->empty_child_notify(g);
}

void interior_remove_bounded_worker(Group* g, const WorldBounds& rectangle) {
  // Whether child `c` goes: inside the rectangle (with its whole subtree,
  // unvisited), or emptied by the worker below it.
  auto goes = [&](Group* c) {
    if (c->bounds.is_inside(rectangle)) return true;
    if (!c->bounds.overlaps(rectangle)) return false;
    c->remove_bounded_worker(rectangle);
    return !c->first_child;
  };
  WorldBounds q;
  GroupIndex* index = GroupIndex::for_walk(g);
  if (index && GroupIndex::window(rectangle, rectangle, q)) {
    const int ran = index->each_candidate(q, [&](std::uint32_t o, Group* c) {
      if (goes(c)) {
        index->unlink_at(g, o);
        c->destroy();
      }
      return true;
    });
    if (ran == 1) {
      for (Group* c = index->rest(); c;) {
        Group* next = c->sibling;
        if (goes(c)) {
          index->unlink(g, c);
          c->destroy();
        }
        c = next;
      }
      return;
    }
  }
  // The whole chain; an index the walks do not use is still kept right.
  if (!index) index = GroupIndex::of(g);
  Group* previous = nullptr;
  for (Group* c = g->first_group(); c;) {
    Group* next = c->sibling;
    if (!goes(c)) {
      previous = c;
    } else if (index) {
      index->unlink(g, c);
      c->destroy();
    } else {
      unlink_group(g, c, previous);
    }
    c = next;
  }
}

static void leaf_remove_bounded_worker(Group* g, const WorldBounds& rectangle, int* open_count) {
  Drawable* previous = nullptr;
  Drawable* d = g->first_drawable();
  while (d) {
    Drawable* next = d->sibling;
    // Inside, touching edges included; an empty rectangle counts as inside.
    if (d->bounds_of().is_inside(rectangle)) {
      unlink_drawable(g, d, previous);
      if (open_count) *open_count -= 1;
    } else {
      previous = d;
    }
    d = next;
  }
}

void bottom_remove_bounded_worker(Group* g, const WorldBounds& rectangle) {
  leaf_remove_bounded_worker(g, rectangle, nullptr);
}

void open_remove_bounded_worker(Group* g, const WorldBounds& rectangle) {
  leaf_remove_bounded_worker(g, rectangle, &g->display_list->open_count);
}

}  // namespace DL
