// The group tree: a spatial tree whose depth-first order is the insertion order.
//
// Every group is one 64-byte record, `Group`, in one of three classes:
//   - Group, an interior node: its children are groups;
//   - BottomGroup, a closed leaf: its children are drawables;
//   - OpenBottomGroup, the one leaf of a list that still takes drawables.
// A group changes class in place while the tree grows (an open group is closed,
// or split and so becomes an interior group), and each class has a hidden twin.
// So the class is the record's table of operations (`GroupTable`), and a change
// of class is one store of the table pointer; the C++ type is always `Group`.
//
// Rectangles come from a fixed grid over the 32-bit plane: a group at level n
// stands for a cell of side 2^(32-n) (see `cell_bounds`). A drawable goes into
// the open group if it fits its cell; otherwise a new open group starts at the
// tail of the nearest ancestor that holds it, and the groups left behind are
// closed, which replaces their cells by the tight union of what they hold.
//
// No closed leaf is ever empty. An open group may be (the host opens one with
// `create_open_bottom_group`, and insertion before a drawable may start one),
// and closing it would leave an empty BottomGroup, at which the forward walks
// end, hiding every later drawable from them. So closing an open group that
// holds nothing destroys it instead, as removing its last drawable would; a
// host that goes on adding opens a new one, as after a removal.
#pragma once

#include <cstdint>
#include <cstring>
#include <iosfwd>

#include "foundation/geometry.h"
#include "foundation/storage.h"

namespace DL {

class DisplayList;
class Drawable;
class Group;
struct DisplayListDebug;
struct Search;

// `b` widened to the grid of `level`: on the 32-bit patterns, with mask =
// 0xFFFFFFFF >> (level mod 32), the minima are ANDed with ~mask and the maxima
// ORed with mask. A rectangle across a grid line gets several cells.
constexpr WorldBounds cell_bounds(const WorldBounds& b, int level) {
  const std::uint32_t mask = 0xFFFFFFFFu >> (static_cast<std::uint32_t>(level) & 31u);
  auto lo = [mask](WorldCoord v) {
    return static_cast<WorldCoord>(static_cast<std::uint32_t>(v) & ~mask);
  };
  auto hi = [mask](WorldCoord v) {
    return static_cast<WorldCoord>(static_cast<std::uint32_t>(v) | mask);
  };
  return {{lo(b.min.x), lo(b.min.y)}, {hi(b.max.x), hi(b.max.y)}};
}

// Where a group lies against a complex clip.
enum ClipClass : int {
  CLIP_INSIDE = 0,    // wholly inside: drawn with the clip lifted
  CLIP_CROSSING = 1,  // crosses an edge, or (circle test) not proved inside
  CLIP_OUTSIDE = 2,   // wholly outside: skipped; the circle test never says so
};

// The table of operations of a group class. Every entry is set in every table.
struct GroupTable {
  bool contains_drawables;  // false for Group, true for the two bottom classes
  bool is_open;             // true for OpenBottomGroup only
  // -- Diagnostics (displaylist/group_dump.cpp) --
  // Walks the groups below. A failure is reported only by DL_ASSERT in debug
  // builds (a child whose parent is not this group, an open group whose chain
  // does not reach its last_child); otherwise nothing is written.
  void (*assert_valid)(const Group*);
  // Writes this group's line, then a line for each child, one indent deeper,
  // and adds the children to the counts; see group_dump.cpp for the format.
  void (*dump_subtree)(const Group*, std::ostream&, int indent, DisplayListDebug&);
  // The deleting destructor: deletes the subtree, then the record. Does not
  // unlink the group from its parent.
  void (*destroy)(Group*);
  // Puts a drawable with bounds `b` into the tree, starting here; returns the
  // group that now holds it (null from a closed BottomGroup, which takes none).
  Group* (*add)(Group*, Drawable*, const WorldBounds& b, DisplayList*);
  // -- Removal (displaylist/group_remove.cpp). A group emptied by a removal is
  // destroyed, with every ancestor this empties, except the root; no removal
  // shrinks a rectangle. --
  // Unlinks and destroys `d`, whose predecessor in this bottom group is
  // `previous` (null: `d` is the first; not checked). Returns this group if it
  // keeps a drawable or is the root, else the lowest surviving ancestor. An
  // interior group does nothing and returns null.
  Group* (*remove)(Group*, Drawable* d, Drawable* previous);
  // `remove_fast` if `search.search_bounds` lie inside this group's bounds,
  // else null.
  Group* (*remove_searched)(Group*, const Search&);
  // Handles the first drawable below that matches the search, entering only
  // groups whose bounds hold `search_bounds`: destroyed, or with
  // `keep_drawable` only counted anew. Null when none matched. When the match
  // emptied its group, the result is that group's next sibling if it had one
  // (where a caller can walk on), else the lowest surviving ancestor.
  Group* (*remove_fast)(Group*, const Search&);
  // `remove_bounded_worker`, then this group goes if that emptied it and it is
  // not the root.
  void (*remove_bounded)(Group*, const WorldBounds&);
  // Destroys every drawable below whose bounds lie inside the rectangle (a
  // subtree inside it whole, without visiting it), and every child group this
  // empties; never the group it runs on.
  void (*remove_bounded_worker)(Group*, const WorldBounds&);
  // Deletes every child; the group stays, empty, and does not tell its parent.
  void (*remove_all)(Group*);
  // Replaces cells by tight rectangles along the chain of last children, and
  // turns an open group into a BottomGroup. Called through `Group::close`,
  // which first takes away an open group without drawables (see there), so an
  // open group that reaches this entry holds at least one. Closing the root tightens its
  // rectangle too: a host that goes on adding gives it the whole plane again
  // before the next insertion, since every climb must end at the root.
  void (*close)(Group*);
  // Draws every shown drawable below, in insertion order, with no test.
  void (*draw_unclipped)(const Group*, DisplayList&);
  // -- Redraw under pan, zoom and clip (group_draw.cpp, group_clip.cpp,
  // group_interrupt.cpp). All of them skip drawables that are not shown, visit
  // children from first to last, and treat a group without children as a walk
  // over nothing. `inner` and `outer` are world rectangles, `inner` within
  // `outer`: a group inside `inner` needs no clipping, one that misses `outer`
  // cannot be seen. The clipped forms read the rendition's complex clip, which
  // is in screen coordinates; a group wholly inside it is drawn with the clip
  // lifted (taken off the rendition and put back afterwards).
  // The clipped walk without rectangles, classifying groups by the circle that
  // `DisplayList::circular_complex_clip` fitted inside the clip.
  void (*draw_circled)(const Group*, DisplayList&);
  // The same, classifying by the clip's contours: groups outside are skipped.
  void (*draw_complex)(const Group*, DisplayList&);
  // Everything `outer` lets through: unclipped below a group inside `inner`,
  // `draw_clipped` on the drawables of a bottom group that only overlaps.
  void (*draw_bounded)(const Group*, DisplayList&, const WorldBounds& inner,
                       const WorldBounds& outer);
  // The rectangles first, then, for groups inside `inner`, the circle.
  void (*draw_circled_bounded)(const Group*, DisplayList&, const WorldBounds& inner,
                               const WorldBounds& outer);
  // The rectangles first, then the contours for every group they do not settle.
  void (*draw_complex_bounded)(const Group*, DisplayList&, const WorldBounds& inner,
                               const WorldBounds& outer);
  // The six forms above that ask `DisplayList::poll_interrupt` once per interior
  // group entered, before any test; false stops the walk at once and is the
  // result. A bottom group is never stopped half way.
  bool (*draw_unclipped_interrupt)(const Group*, DisplayList&);
  // `draw_circled`, interruptible.
  bool (*draw_circled_interrupt)(const Group*, DisplayList&);
  // `draw_complex`, interruptible.
  bool (*draw_complex_interrupt)(const Group*, DisplayList&);
  // `draw_bounded`, interruptible.
  bool (*draw_bounded_interrupt)(const Group*, DisplayList&, const WorldBounds& inner,
                                 const WorldBounds& outer);
  // `draw_circled_bounded`, interruptible.
  bool (*draw_circled_bounded_interrupt)(const Group*, DisplayList&, const WorldBounds& inner,
                                         const WorldBounds& outer);
  // `draw_complex_bounded`, interruptible.
  bool (*draw_complex_bounded_interrupt)(const Group*, DisplayList&, const WorldBounds& inner,
                                         const WorldBounds& outer);
  // Selection: each shown drawable is marked in `selector` of the list
  // (selector_part 0, selector_drawable the drawable) before it draws. The
  // complex clip is not looked at. `selector` must not be null.
  void (*draw_unclipped_selection)(const Group*, DisplayList&);
  // The bounded walk (as `draw_bounded`, without the clip) in selection form.
  void (*draw_bounded_selection)(const Group*, DisplayList&, const WorldBounds& inner,
                                 const WorldBounds& outer);
  // Merges into the argument the bounds of everything below.
  void (*add_bounds)(const Group*, WorldBounds&);
  // Opens a group on a tree that has none; see the class comments.
  void (*create_open_bottom_group)(Group*, DisplayList*);
  // The depth of the group's cell; for the open group, `open_level` of its list.
  int (*level)(const Group*);
  // The twin class's table: hidden for a visible one and back.
  const GroupTable* twin;
  // Whether this is a hidden class: its groups draw nothing.
  bool hidden;
};

// A group of the tree: one 64-byte record whose class is its table; see the
// file comment.
class Group : public HeapObject {
 public:
  // -- The record (64 bytes on a 64-bit host) ------------------------------------
  // The class of the group.
  const GroupTable* table;
  // Next child of the same parent, null at the tail.
  Group* sibling;
  // Open group: the cell it was opened with. Interior groups on the way down to
  // the open group: their cell. Closed groups: the union of what they hold.
  WorldBounds bounds;
  // One word whose meaning follows the class: the owning list while the group is
  // open, the level of the cell once it is closed or interior. An interior
  // group keeps in the word's second half the slot of its child index (0:
  // none; see group_index.h), so the record does not grow.
  union {
    DisplayList* display_list;
    int level_field;
  };
  // Head and tail of the children's one-way list, through `sibling`: groups in
  // an interior group, drawables in a bottom group.
  void* first_child;
  void* last_child;  // see first_child
  // Null at the root only.
  Group* parent;

  // -- Operations (through the table) ----------------------------------------------
  bool contains_drawables() const { return table->contains_drawables; }
  // Whether this is the open group, the one that takes drawables.
  bool is_open() const { return table->is_open; }
  // Checks the group's invariants in debug builds (the table's `assert_valid`).
  void assert_valid() const { table->assert_valid(this); }
  // Writes the subtree to `out` (the table's `dump_subtree`).
  void dump_subtree(std::ostream& out, int indent, DisplayListDebug& debug) const {
    table->dump_subtree(this, out, indent, debug);
  }
  // Deletes the group with everything below it (the table's `destroy`).
  void destroy() { table->destroy(this); }
  // Puts `d` with bounds `b` into the tree from here (the table's `add`).
  Group* add(Drawable* d, const WorldBounds& b, DisplayList* list) {
    return table->add(this, d, b, list);
  }
  // Unlinks and destroys `d` (the table's `remove`).
  Group* remove(Drawable* d, Drawable* previous) { return table->remove(this, d, previous); }
  // The table's `remove_searched`.
  Group* remove_searched(const Search& s) { return table->remove_searched(this, s); }
  // The table's `remove_fast`.
  Group* remove_fast(const Search& s) { return table->remove_fast(this, s); }
  // Destroys every drawable below inside `r` (the table's `remove_bounded`).
  void remove_bounded(const WorldBounds& r) { table->remove_bounded(this, r); }
  // The table's `remove_bounded_worker`.
  void remove_bounded_worker(const WorldBounds& r) { table->remove_bounded_worker(this, r); }
  // Deletes every child (the table's `remove_all`).
  void remove_all() { table->remove_all(this); }
  // Closes this group (the table's `close`), after one exception: an open group
  // without drawables at the end of the chain of last children is destroyed
  // instead, with every ancestor this empties except the root, as a removal
  // would (`empty_child_notify`). So no closed leaf is ever empty, and the
  // forward walks, which end at an empty leaf, reach every drawable. If that
  // takes this group itself (it is that open group, or holds nothing else),
  // nothing is left to close and the caller's pointer is stale. An empty open
  // root stays open. Costs a walk down the chain of last children, which the
  // close walks anyway.
  void close();
  // Draws every shown drawable below with no test (the table's `draw_unclipped`).
  void draw_unclipped(DisplayList& list) const { table->draw_unclipped(this, list); }
  // -- Redraw under pan, zoom and clip (see the table entries) -------------------
  void draw_circled(DisplayList& list) const { table->draw_circled(this, list); }
  // The table's `draw_complex`.
  void draw_complex(DisplayList& list) const { table->draw_complex(this, list); }
  // The table's `draw_bounded`.
  void draw_bounded(DisplayList& list, const WorldBounds& inner, const WorldBounds& outer) const {
    table->draw_bounded(this, list, inner, outer);
  }
  // The table's `draw_circled_bounded`.
  void draw_circled_bounded(DisplayList& list, const WorldBounds& inner,
                            const WorldBounds& outer) const {
    table->draw_circled_bounded(this, list, inner, outer);
  }
  // The table's `draw_complex_bounded`.
  void draw_complex_bounded(DisplayList& list, const WorldBounds& inner,
                            const WorldBounds& outer) const {
    table->draw_complex_bounded(this, list, inner, outer);
  }
  // The table's `draw_unclipped_interrupt`; false when stopped.
  bool draw_unclipped_interrupt(DisplayList& list) const {
    return table->draw_unclipped_interrupt(this, list);
  }
  // The table's `draw_circled_interrupt`; false when stopped.
  bool draw_circled_interrupt(DisplayList& list) const {
    return table->draw_circled_interrupt(this, list);
  }
  // The table's `draw_complex_interrupt`; false when stopped.
  bool draw_complex_interrupt(DisplayList& list) const {
    return table->draw_complex_interrupt(this, list);
  }
  // The table's `draw_bounded_interrupt`; false when stopped.
  bool draw_bounded_interrupt(DisplayList& list, const WorldBounds& inner,
                              const WorldBounds& outer) const {
    return table->draw_bounded_interrupt(this, list, inner, outer);
  }
  // The table's `draw_circled_bounded_interrupt`; false when stopped.
  bool draw_circled_bounded_interrupt(DisplayList& list, const WorldBounds& inner,
                                      const WorldBounds& outer) const {
    return table->draw_circled_bounded_interrupt(this, list, inner, outer);
  }
  // The table's `draw_complex_bounded_interrupt`; false when stopped.
  bool draw_complex_bounded_interrupt(DisplayList& list, const WorldBounds& inner,
                                      const WorldBounds& outer) const {
    return table->draw_complex_bounded_interrupt(this, list, inner, outer);
  }
  // The table's `draw_unclipped_selection`.
  void draw_unclipped_selection(DisplayList& list) const {
    table->draw_unclipped_selection(this, list);
  }
  // The table's `draw_bounded_selection`.
  void draw_bounded_selection(DisplayList& list, const WorldBounds& inner,
                              const WorldBounds& outer) const {
    table->draw_bounded_selection(this, list, inner, outer);
  }
  // Where the group's rectangle, in screen coordinates, lies against the
  // rendition's complex clip: by the fitted circle (CLIP_INSIDE or
  // CLIP_CROSSING only), or exactly, by the contours of the hard complex clip.
  ClipClass classify_against_circle(const DisplayList& list) const;
  ClipClass classify_against_clip(DisplayList& list) const;  // by the contours
  // Merges the bounds of everything below into `b`.
  void add_bounds(WorldBounds& b) const { table->add_bounds(this, b); }
  // The table's `create_open_bottom_group`.
  void create_open_bottom_group(DisplayList* list) { table->create_open_bottom_group(this, list); }
  // The depth of the group's cell.
  int level() const { return table->level(this); }
  // Hides the group and everything below it: one store of the table pointer.
  void make_hidden() {
    if (!table->hidden) table = table->twin;
  }
  // Shows it again.
  void make_visible() {
    if (table->hidden) table = table->twin;
  }
  // Whether the group is hidden.
  bool is_hidden() const { return table->hidden; }

  // Sets the word to a level, with no index slot: for a group that becomes
  // interior or closed.
  void set_level_word(int level) {
    display_list = nullptr;
    level_field = level;
  }
  // The slot of the group's child index, meaningful in an interior group only.
  std::uint32_t index_slot() const {
    std::uint32_t slot;
    std::memcpy(&slot, reinterpret_cast<const unsigned char*>(&display_list) + sizeof(int),
                sizeof slot);
    return slot;
  }
  // Sets the slot of the group's child index (interior groups only).
  void set_index_slot(std::uint32_t slot) {
    std::memcpy(reinterpret_cast<unsigned char*>(&display_list) + sizeof(int), &slot, sizeof slot);
  }

  // Typed views of the child list: the first and last child as groups (of an
  // interior group) or as drawables (of a bottom group).
  Group* first_group() const { return static_cast<Group*>(first_child); }
  Group* last_group() const { return static_cast<Group*>(last_child); }  // see first_group
  Drawable* first_drawable() const {
    return static_cast<Drawable*>(first_child);
  }                                                                               // see first_group
  Drawable* last_drawable() const { return static_cast<Drawable*>(last_child); }  // see first_group

  // Runs on the parent of a group that has become empty: unlinks and deletes
  // `child`, then each ancestor that this empties, up to but not including the
  // root. Returns the lowest group that survives, or null (changing nothing) if
  // `child` is not a child of this group.
  Group* empty_child_notify(Group* child);

  // Opens a group: a new OpenBottomGroup from `list->heap` with the cell of
  // `rectangle` at `level`, and makes it the list's open group. Not linked into
  // `parent`: the caller does that. `parent_bounds` plays no part.
  static Group* open(DisplayList* list, const WorldBounds& parent_bounds,
                     const WorldBounds& rectangle, Group* parent, int level);
  // A root for a new tree: an interior group at level 0 covering the whole
  // plane, with no children, from `heap`.
  static Group* make_root(ZephalHeap* heap);

  // Opens a new group for `d` at the tail of this group's children, one level
  // down, and appends `d` to it. Returns the new group.
  Group* add_in_new_open_child(Drawable* d, const WorldBounds& b, DisplayList* list);

  static const GroupTable table_;         // the interior class
  static const GroupTable hidden_table_;  // its hidden twin

 private:
  Group() = default;
};

// The closed leaf class: operations over a `Group` record whose children are
// drawables.
struct BottomGroup {
  static const GroupTable table_;         // the closed leaf class
  static const GroupTable hidden_table_;  // its hidden twin

  // Deletes every drawable; first_child and last_child become null.
  static void remove_all(Group& g);
  // Counts the drawables and sets last_child to the last one; an empty list
  // gives 0 and leaves last_child alone.
  static int count_and_set_last_drawable(Group& g);
};

// The open leaf class. Its count and accumulated rectangle live in the list
// (`open_count`, `open_bounds`, `open_level`), since at most one group is open.
struct OpenBottomGroup {
  static const GroupTable table_;         // the open leaf class
  static const GroupTable hidden_table_;  // its hidden twin

  // Appends `d` at the tail in constant time and merges `b` into open_bounds.
  static Group* append_drawable(Group& g, Drawable* d, const WorldBounds& b);
};

}  // namespace DL
