// The colour, bounded and bounded colour walks.
#include "iterators/filtered_iterators.h"

#include "displaylist/display_list.h"
#include "displaylist/group_index.h"
#include "foundation/zephal.h"

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

DisplayListBoundedIterator::~DisplayListBoundedIterator() {
  for (Cursor& c : cursors_)
    if (c.kids) ZP_ReleaseMemory(c.kids);
}

Group* DisplayListBoundedIterator::init(DL::DisplayList* list, DL::WorldBounds const& b) {
  for (int i = 0; i < cursor_count_; ++i) cursors_[i].group = nullptr;
  cursor_count_ = 0;
  current_group = list->root;
  current_drawable = nullptr;
  bounds = b;
  if (!current_group->contains_drawables()) current_group = next_group();
  if (current_group) current_drawable = current_group->first_drawable();
  return current_group;
}

DisplayListBoundedIterator::Cursor* DisplayListBoundedIterator::open_cursor(Group* g) const {
  DL::GroupIndex* index = DL::GroupIndex::for_walk(g);
  if (!index || bounds.min.x > bounds.max.x || bounds.min.y > bounds.max.y) return nullptr;
  // Cursors of groups the walk has left go first: those that are not `g`'s
  // ancestors.
  while (cursor_count_ > 0) {
    const Group* top = cursors_[cursor_count_ - 1].group;
    const Group* a = g->parent;
    while (a && a != top) a = a->parent;
    if (a) break;
    cursors_[--cursor_count_].group = nullptr;
  }
  if (cursor_count_ == kCursors) return nullptr;
  std::uint32_t n = 0;
  const std::uint32_t* ords = index->candidates(bounds, n);
  if (!ords) return nullptr;
  Cursor& c = cursors_[cursor_count_];
  if (n > c.capacity) {
    void* block = ZP_AllocateMemory(sizeof(Group*) * n);
    if (!block) return nullptr;
    if (c.kids) ZP_ReleaseMemory(c.kids);
    c.kids = static_cast<Group**>(block);
    c.capacity = n;
  }
  c.count = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    Group* k = index->kid(ords[i]);
    if (k && k->bounds.overlaps(bounds)) c.kids[c.count++] = k;
  }
  c.group = g;
  c.position = 0;
  c.rest = index->rest();
  c.rest_started = false;
  c.done = false;
  ++cursor_count_;
  return &c;
}

DisplayListBoundedIterator::Cursor* DisplayListBoundedIterator::cursor_of(const Group* g) const {
  for (int i = cursor_count_ - 1; i >= 0; --i)
    if (cursors_[i].group == g) {
      while (cursor_count_ > i + 1) cursors_[--cursor_count_].group = nullptr;
      return &cursors_[i];
    }
  return nullptr;
}

Group* DisplayListBoundedIterator::step(Cursor& c) const {
  if (c.done) return nullptr;
  if (c.position < c.count) return c.kids[c.position++];
  Group* k = c.rest_started ? c.rest->sibling : c.rest;
  c.rest_started = true;
  while (k && !k->bounds.overlaps(bounds)) k = k->sibling;
  c.rest = k;
  c.done = !k;
  return k;
}

Group* DisplayListBoundedIterator::next_overlapping_sibling(Group* g) const {
  for (;;) {
    if (cursor_count_ > 0 && g->parent) {
      if (Cursor* c = cursor_of(g->parent)) {
        if (Group* s = step(*c)) return s;
        g = g->parent;
        continue;
      }
    }
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
    if (Cursor* cursor = open_cursor(g)) {
      c = step(*cursor);
    } else {
      while (c && !c->bounds.overlaps(bounds)) c = c->sibling;
    }
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
