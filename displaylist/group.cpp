// The group tree: opening, insertion, closing, empty groups, the plain walk,
// destruction, and the six tables of the three classes and their twins.
#include "displaylist/group.h"

#include <new>

#include "displaylist/display_list.h"
#include "displaylist/group_index.h"
#include "displaylist/group_p.h"
#include "displaylist/group_remove_p.h"
#include "drawables/drawable.h"
#include "foundation/assert.h"

namespace DL {

// ---------------------------------------------------------------------------
// Opening
// ---------------------------------------------------------------------------

Group* Group::open(DisplayList* list, const WorldBounds& /*parent_bounds*/,
                   const WorldBounds& rectangle, Group* parent, int level) {
  void* block = ZP_AllocateMemory(sizeof(Group), list->heap);
  DL_ASSERT(block && "the group tree relies on the allocator to deliver");
  Group* g = ::new (block) Group;
  g->table = &OpenBottomGroup::table_;
  g->sibling = nullptr;
  g->bounds = cell_bounds(rectangle, level);
  g->display_list = list;
  g->first_child = nullptr;
  g->last_child = nullptr;
  g->parent = parent;
  list->open_level = level;
  list->open_count = 0;
  list->open_bounds.make_empty();
  if (list->first_open_group == list->open_group) list->first_open_group = g;
  list->open_group = g;
  return g;
}

Group* Group::make_root(ZephalHeap* heap) {
  void* block = ZP_AllocateMemory(sizeof(Group), heap);
  DL_ASSERT(block && "the group tree relies on the allocator to deliver");
  Group* g = ::new (block) Group;
  g->table = &Group::table_;
  g->sibling = nullptr;
  g->bounds = WorldBounds::everything();
  g->set_level_word(0);
  g->first_child = nullptr;
  g->last_child = nullptr;
  g->parent = nullptr;
  return g;
}

// Links `child` at the tail of the children of `g`, an interior group, and
// tells the group's index (which may then be made, from `list`'s heap).
static void link_at_tail(Group* g, Group* child, DisplayList* list) {
  if (g->last_child)
    g->last_group()->sibling = child;
  else
    g->first_child = child;
  g->last_child = child;
  GroupIndex::child_linked(g, list->heap);
}

Group* Group::add_in_new_open_child(Drawable* d, const WorldBounds& b, DisplayList* list) {
  Group* n = open(list, bounds, b, this, level() + 1);
  link_at_tail(this, n, list);
  return OpenBottomGroup::append_drawable(*n, d, b);
}

Group* OpenBottomGroup::append_drawable(Group& g, Drawable* d, const WorldBounds& b) {
  if (g.last_child)
    g.last_drawable()->sibling = d;
  else
    g.first_child = d;
  g.last_child = d;
  DisplayList* list = g.display_list;
  list->open_count += 1;
  list->open_bounds.merge(b);
  return &g;
}

// ---------------------------------------------------------------------------
// Insertion
// ---------------------------------------------------------------------------

// Climbs from `target` (with `candidate` the last group that failed) to the
// first group whose rectangle holds `b`.
static Group* climb(Group*& candidate, Group* target, const WorldBounds& b) {
  while (!b.is_inside(target->bounds)) {
    candidate = target;
    target = target->parent;
    DL_ASSERT(target && "the root must cover every rectangle added");
  }
  return target;
}

static Group* interior_add(Group* g, Drawable* d, const WorldBounds& b, DisplayList* list) {
  if (b.is_inside(g->bounds)) return g->add_in_new_open_child(d, b, list);
  Group* candidate = g;
  Group* target = climb(candidate, g->parent, b);
  candidate->close();
  list->first_open_group = nullptr;
  return target->add_in_new_open_child(d, b, list);
}

static Group* bottom_add(Group*, Drawable*, const WorldBounds&, DisplayList*) {
  return nullptr;
}

static Group* open_add(Group* g, Drawable* d, const WorldBounds& b, DisplayList* list) {
  if (b.is_inside(g->bounds)) return OpenBottomGroup::append_drawable(*g, d, b);
  // The drawable leaves this group. A group with drawables is closed on the way
  // out; an empty one would stay empty, so it goes, with every ancestor that
  // this empties, and the ancestors passed keep their cells.
  Group* candidate = nullptr;
  Group* target;
  bool close = list->open_count != 0;
  if (close) {
    candidate = g;
    target = g->parent;
  } else {
    target = g->parent->empty_child_notify(g);
  }
  target = climb(candidate, target, b);
  if (candidate && close) candidate->close();
  list->first_open_group = nullptr;
  return target->add_in_new_open_child(d, b, list);
}

Group* DisplayList::add(Drawable* d, const WorldBounds& b) {
  DL_ASSERT(open_group && "add needs an open group: see create_open_bottom_group");
  DL_ASSERT(d->sibling == nullptr);
  DL_ASSERT(group_capacity >= 1 && level_limit <= 31 && "see DisplayList::group_capacity");
  // An empty open group always takes the drawable: a capacity below 1, refused
  // above, would otherwise send an empty group to the split.
  if (open_count < group_capacity || open_count == 0) return open_group->add(d, b, this);

  Group* og = open_group;
  if (open_level >= level_limit) {
    // Full at the limit: closed with tight bounds; the parent opens a sibling.
    og->close();
    return og->parent->add(d, b, this);
  }

  // Full above the limit: push the group one level down. It becomes an interior
  // group in place, keeping its cell, and its drawables go again, in order,
  // into new children; a drawable outside the current child's cell opens the
  // next child, so drawables of one cell separated by another land apart.
  Drawable* first = og->first_drawable();
  const int level = open_level;
  og->set_level_word(level);
  og->table = &Group::table_;
  Group* n = Group::open(this, og->bounds, first->bounds_of(), og, level + 1);
  og->first_child = n;
  og->last_child = n;
  for (Drawable* x = first; x;) {
    Drawable* next = x->sibling;
    x->sibling = nullptr;
    open_group->add(x, x->bounds_of(), this);
    x = next;
  }
  if (open_group == n && b.is_inside(n->bounds)) {
    // The split separated nothing and `d` would join them: it starts a sibling.
    n->close();
    return og->add(d, b, this);
  }
  return open_group->add(d, b, this);
}

// ---------------------------------------------------------------------------
// Closing and reopening
// ---------------------------------------------------------------------------

static void open_close(Group* g) {
  DisplayList* list = g->display_list;
  g->bounds = list->open_bounds;
  g->set_level_word(list->open_level);
  g->table = &BottomGroup::table_;
}

static void bottom_close(Group*) {}

static void interior_close(Group* g) {
  // `Group::close` has already taken away an empty open group below.
  if (Group* last = g->last_group()) last->table->close(last);
  g->bounds.make_empty();
  for (Group* c = g->first_group(); c; c = c->sibling) g->bounds.merge(c->bounds);
}

void Group::close() {
  // Find the end of the chain of last children, and whether this group holds
  // nothing else: then it goes with an empty open group at that end.
  Group* end = this;
  bool only_chain = parent != nullptr;
  while (end && !end->contains_drawables()) {
    if (end->first_child != end->last_child) only_chain = false;
    end = end->last_group();
  }
  if (end && end->is_open() && !end->first_child) {
    if (!end->parent) return;  // the root itself: stays open
    end->parent->empty_child_notify(end);
    if (only_chain) return;
  }
  table->close(this);
}

static void interior_create_open_bottom_group(Group* g, DisplayList* list) {
  const int child_level = g->level_field + 1;
  Group* last = g->last_group();
  // Go on down into a last child that still has its cell; an open last child
  // never matches (its word holds the list, not a level).
  if (last && !last->is_open() && last->level_field == child_level &&
      last->bounds == cell_bounds(last->bounds, child_level)) {
    last->create_open_bottom_group(list);
    return;
  }
  link_at_tail(g, Group::open(list, g->bounds, g->bounds, g, child_level), list);
}

static void bottom_create_open_bottom_group(Group* g, DisplayList* list) {
  link_at_tail(g->parent,
               Group::open(list, g->parent->bounds, g->bounds, g->parent, g->level_field), list);
}

static void open_create_open_bottom_group(Group*, DisplayList*) {}

// ---------------------------------------------------------------------------
// Empty groups and destruction
// ---------------------------------------------------------------------------

Group* Group::empty_child_notify(Group* child) {
  Group* g = this;
  for (;;) {
    if (GroupIndex* index = GroupIndex::of(g)) {
      // The index finds the child and its predecessor without the walk.
      if (!index->unlink(g, child)) return nullptr;
    } else {
      Group* previous = nullptr;
      Group* c = g->first_group();
      while (c && c != child) {
        previous = c;
        c = c->sibling;
      }
      if (!c) return nullptr;
      group_detail::unlink_child(g, child, previous);
    }
    child->destroy();
    if (g->first_child || !g->parent) return g;
    child = g;
    g = g->parent;
  }
}

static void interior_remove_all(Group* g) {
  if (g->index_slot()) GroupIndex::drop(g);
  while (Group* c = g->first_group()) {
    g->first_child = c->sibling;
    c->destroy();
  }
  g->last_child = nullptr;
}

void BottomGroup::remove_all(Group& g) {
  while (Drawable* d = g.first_drawable()) {
    g.first_child = d->sibling;
    d->destroy();
  }
  g.last_child = nullptr;
}

static void bottom_remove_all(Group* g) {
  BottomGroup::remove_all(*g);
}

static void open_remove_all(Group* g) {
  BottomGroup::remove_all(*g);
  g->display_list->open_count = 0;
}

static void release_record(Group* g) {
  g->~Group();
  ZP_ReleaseMemory(g);
}

static void interior_destroy(Group* g) {
  if (g->index_slot()) GroupIndex::drop(g);
  if (g->first_child) interior_remove_all(g);
  release_record(g);
}

static void bottom_destroy(Group* g) {
  if (g->first_child) BottomGroup::remove_all(*g);
  release_record(g);
}

static void open_destroy(Group* g) {
  DisplayList* list = g->display_list;
  if (list->first_open_group == list->open_group) list->first_open_group = nullptr;
  list->open_group = nullptr;
  BottomGroup::remove_all(*g);
  list->open_count = 0;
  release_record(g);
}

// ---------------------------------------------------------------------------
// The plain walk and bounds
// ---------------------------------------------------------------------------

static void interior_draw_unclipped(const Group* g, DisplayList& list) {
  for (const Group* c = g->first_group(); c; c = c->sibling) c->draw_unclipped(list);
}

static void bottom_draw_unclipped(const Group* g, DisplayList& list) {
  for (Drawable* d = g->first_drawable(); d; d = d->sibling)
    if (d->shown()) d->draw_unclipped(list);
}

static void interior_add_bounds(const Group* g, WorldBounds& b) {
  for (const Group* c = g->first_group(); c; c = c->sibling) c->add_bounds(b);
}

static void bottom_add_bounds(const Group* g, WorldBounds& b) {
  for (const Drawable* d = g->first_drawable(); d; d = d->sibling) d->add_bounds(b);
}

static int closed_level(const Group* g) {
  return g->level_field;
}
static int open_level(const Group* g) {
  return g->display_list->open_level;
}

// ---------------------------------------------------------------------------
// Tables
// ---------------------------------------------------------------------------

// A twin differs from its class only in `hidden` and `twin`: hiding a group does
// not hide what it holds, and its operations are those of the class.
constexpr GroupTable twin_of(GroupTable t, const GroupTable* twin, bool hidden) {
  t.twin = twin;
  t.hidden = hidden;
  return t;
}

constexpr GroupTable kInterior = {
    .contains_drawables = false,
    .is_open = false,
    .assert_valid = group_detail::interior_assert_valid,
    .dump_subtree = group_detail::interior_dump_subtree,
    .destroy = interior_destroy,
    .add = interior_add,
    .remove = interior_remove,
    .remove_searched = any_remove_searched,
    .remove_fast = interior_remove_fast,
    .remove_bounded = any_remove_bounded,
    .remove_bounded_worker = interior_remove_bounded_worker,
    .remove_all = interior_remove_all,
    .close = interior_close,
    .draw_unclipped = interior_draw_unclipped,
    // Redraw under pan, zoom and clip
    .draw_circled = group_detail::interior_draw_circled,
    .draw_complex = group_detail::interior_draw_complex,
    .draw_bounded = group_detail::interior_draw_bounded,
    .draw_circled_bounded = group_detail::interior_draw_circled_bounded,
    .draw_complex_bounded = group_detail::interior_draw_complex_bounded,
    .draw_unclipped_interrupt = group_detail::interior_draw_unclipped_interrupt,
    .draw_circled_interrupt = group_detail::interior_draw_circled_interrupt,
    .draw_complex_interrupt = group_detail::interior_draw_complex_interrupt,
    .draw_bounded_interrupt = group_detail::interior_draw_bounded_interrupt,
    .draw_circled_bounded_interrupt = group_detail::interior_draw_circled_bounded_interrupt,
    .draw_complex_bounded_interrupt = group_detail::interior_draw_complex_bounded_interrupt,
    .draw_unclipped_selection = group_detail::interior_draw_unclipped_selection,
    .draw_bounded_selection = group_detail::interior_draw_bounded_selection,
    .add_bounds = interior_add_bounds,
    .create_open_bottom_group = interior_create_open_bottom_group,
    .level = closed_level,
    .twin = nullptr,
    .hidden = false,
};

constexpr GroupTable kBottom = {
    .contains_drawables = true,
    .is_open = false,
    .assert_valid = group_detail::bottom_assert_valid,
    .dump_subtree = group_detail::bottom_dump_subtree,
    .destroy = bottom_destroy,
    .add = bottom_add,
    .remove = bottom_remove,
    .remove_searched = any_remove_searched,
    .remove_fast = bottom_remove_fast,
    .remove_bounded = any_remove_bounded,
    .remove_bounded_worker = bottom_remove_bounded_worker,
    .remove_all = bottom_remove_all,
    .close = bottom_close,
    .draw_unclipped = bottom_draw_unclipped,
    // Redraw under pan, zoom and clip
    .draw_circled = group_detail::bottom_draw_circled,
    .draw_complex = group_detail::bottom_draw_complex,
    .draw_bounded = group_detail::bottom_draw_bounded,
    .draw_circled_bounded = group_detail::bottom_draw_circled_bounded,
    .draw_complex_bounded = group_detail::bottom_draw_complex_bounded,
    .draw_unclipped_interrupt = group_detail::bottom_draw_unclipped_interrupt,
    .draw_circled_interrupt = group_detail::bottom_draw_circled_interrupt,
    .draw_complex_interrupt = group_detail::bottom_draw_complex_interrupt,
    .draw_bounded_interrupt = group_detail::bottom_draw_bounded_interrupt,
    .draw_circled_bounded_interrupt = group_detail::bottom_draw_circled_bounded_interrupt,
    .draw_complex_bounded_interrupt = group_detail::bottom_draw_complex_bounded_interrupt,
    .draw_unclipped_selection = group_detail::bottom_draw_unclipped_selection,
    .draw_bounded_selection = group_detail::bottom_draw_bounded_selection,
    .add_bounds = bottom_add_bounds,
    .create_open_bottom_group = bottom_create_open_bottom_group,
    .level = closed_level,
    .twin = nullptr,
    .hidden = false,
};

constexpr GroupTable kOpen = {
    .contains_drawables = true,
    .is_open = true,
    .assert_valid = group_detail::open_assert_valid,
    .dump_subtree = group_detail::open_dump_subtree,
    .destroy = open_destroy,
    .add = open_add,
    .remove = open_remove,
    .remove_searched = any_remove_searched,
    .remove_fast = open_remove_fast,
    .remove_bounded = any_remove_bounded,
    .remove_bounded_worker = open_remove_bounded_worker,
    .remove_all = open_remove_all,
    .close = open_close,
    .draw_unclipped = bottom_draw_unclipped,
    // Redraw under pan, zoom and clip; an open group without drawables is not
    // tested, and both bounded clipped forms use the exact clip test.
    .draw_circled = group_detail::open_draw_circled,
    .draw_complex = group_detail::open_draw_complex,
    .draw_bounded = group_detail::open_draw_bounded,
    .draw_circled_bounded = group_detail::open_draw_clipped_bounded,
    .draw_complex_bounded = group_detail::open_draw_clipped_bounded,
    .draw_unclipped_interrupt = group_detail::bottom_draw_unclipped_interrupt,
    .draw_circled_interrupt = group_detail::open_draw_circled_interrupt,
    .draw_complex_interrupt = group_detail::open_draw_complex_interrupt,
    .draw_bounded_interrupt = group_detail::open_draw_bounded_interrupt,
    .draw_circled_bounded_interrupt = group_detail::open_draw_clipped_bounded_interrupt,
    .draw_complex_bounded_interrupt = group_detail::open_draw_clipped_bounded_interrupt,
    .draw_unclipped_selection = group_detail::bottom_draw_unclipped_selection,
    .draw_bounded_selection = group_detail::open_draw_bounded_selection,
    .add_bounds = bottom_add_bounds,
    .create_open_bottom_group = open_create_open_bottom_group,
    .level = open_level,
    .twin = nullptr,
    .hidden = false,
};

constinit const GroupTable Group::table_ = twin_of(kInterior, &Group::hidden_table_, false);
constinit const GroupTable Group::hidden_table_ = twin_of(kInterior, &Group::table_, true);
constinit const GroupTable BottomGroup::table_ =
    twin_of(kBottom, &BottomGroup::hidden_table_, false);
constinit const GroupTable BottomGroup::hidden_table_ =
    twin_of(kBottom, &BottomGroup::table_, true);
constinit const GroupTable OpenBottomGroup::table_ =
    twin_of(kOpen, &OpenBottomGroup::hidden_table_, false);
constinit const GroupTable OpenBottomGroup::hidden_table_ =
    twin_of(kOpen, &OpenBottomGroup::table_, true);

}  // namespace DL
