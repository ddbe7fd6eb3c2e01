// Internals of the group tree shared by the files of the traversal families:
// the per-class functions that fill the group tables, and the small helpers the
// walks are built from. Not installed.
//
// Naming: `interior_` for Group, `bottom_` for BottomGroup, `open_` for
// OpenBottomGroup, followed by the table entry they implement.
#pragma once

#include "displaylist/display_list.h"
#include "displaylist/group.h"
#include "displaylist/group_index.h"
#include "drawables/drawable.h"
#include "foundation/assert.h"

namespace DL::group_detail {

using Bounds = const WorldBounds&;

// -- Diagnostics (group_dump.cpp) ------------------------------------------------
void interior_assert_valid(const Group*);
void bottom_assert_valid(const Group*);
void open_assert_valid(const Group*);
void interior_dump_subtree(const Group*, std::ostream&, int indent, DisplayListDebug&);
void bottom_dump_subtree(const Group*, std::ostream&, int indent, DisplayListDebug&);
void open_dump_subtree(const Group*, std::ostream&, int indent, DisplayListDebug&);

// -- Bounded and selection walks (group_draw.cpp) -------------------------------
void interior_draw_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
void bottom_draw_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
void open_draw_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
bool interior_draw_bounded_interrupt(const Group*, DisplayList&, Bounds inner, Bounds outer);
void interior_draw_unclipped_selection(const Group*, DisplayList&);
void bottom_draw_unclipped_selection(const Group*, DisplayList&);
void interior_draw_bounded_selection(const Group*, DisplayList&, Bounds inner, Bounds outer);
void bottom_draw_bounded_selection(const Group*, DisplayList&, Bounds inner, Bounds outer);
void open_draw_bounded_selection(const Group*, DisplayList&, Bounds inner, Bounds outer);

// -- Clipped walks (group_clip.cpp) -----------------------------------------------
void interior_draw_circled(const Group*, DisplayList&);
void bottom_draw_circled(const Group*, DisplayList&);
void open_draw_circled(const Group*, DisplayList&);
void interior_draw_complex(const Group*, DisplayList&);
void bottom_draw_complex(const Group*, DisplayList&);
void open_draw_complex(const Group*, DisplayList&);
void interior_draw_circled_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
void bottom_draw_circled_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
void interior_draw_complex_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
void bottom_draw_complex_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
// Both bounded clipped forms of an open group: the exact test, if it holds a
// drawable.
void open_draw_clipped_bounded(const Group*, DisplayList&, Bounds inner, Bounds outer);
bool interior_draw_circled_interrupt(const Group*, DisplayList&);
bool interior_draw_complex_interrupt(const Group*, DisplayList&);
bool interior_draw_circled_bounded_interrupt(const Group*, DisplayList&, Bounds inner,
                                             Bounds outer);
bool interior_draw_complex_bounded_interrupt(const Group*, DisplayList&, Bounds inner,
                                             Bounds outer);

// -- Interruptible walks (group_interrupt.cpp) --------------------------------------
bool interior_draw_unclipped_interrupt(const Group*, DisplayList&);
// A bottom group runs its plain form to the end and answers true.
bool bottom_draw_unclipped_interrupt(const Group*, DisplayList&);
bool bottom_draw_circled_interrupt(const Group*, DisplayList&);
bool bottom_draw_complex_interrupt(const Group*, DisplayList&);
bool bottom_draw_bounded_interrupt(const Group*, DisplayList&, Bounds inner, Bounds outer);
bool bottom_draw_circled_bounded_interrupt(const Group*, DisplayList&, Bounds inner, Bounds outer);
bool bottom_draw_complex_bounded_interrupt(const Group*, DisplayList&, Bounds inner, Bounds outer);
bool open_draw_circled_interrupt(const Group*, DisplayList&);
bool open_draw_complex_interrupt(const Group*, DisplayList&);
bool open_draw_bounded_interrupt(const Group*, DisplayList&, Bounds inner, Bounds outer);
bool open_draw_clipped_bounded_interrupt(const Group*, DisplayList&, Bounds inner, Bounds outer);

// ---------------------------------------------------------------------------
// Helpers
// ---------------------------------------------------------------------------

// Calls `f` on each child group in order; stops at the first false, which is
// then the result. With an `f` that always answers true (the plain walks) the
// test folds away.
template <class F>
inline bool each_child(const Group* g, F f) {
  for (const Group* c = g->first_group(); c; c = c->sibling)
    if (!f(c)) return false;
  return true;
}

// Calls `f` on each drawable of a bottom group that is shown. The layer byte is
// read anew here on every walk.
template <class F>
inline void each_shown(const Group* g, F f) {
  for (Drawable* d = g->first_drawable(); d; d = d->sibling)
    if (d->shown()) f(d);
}

// How an interior walk calls its children and whether it polls: the plain
// traversals, or the interruptible ones. One template body serves both, so the
// two families cannot drift apart.
struct PlainWalk {
  static bool poll(DisplayList&) { return true; }
  // Children an index lets a walk pass over: the plain walks make no poll.
  static constexpr bool kCountsSkips = false;
  static bool skip(DisplayList&, std::uint32_t) { return true; }
  static bool unclipped(const Group* c, DisplayList& l) {
    c->draw_unclipped(l);
    return true;
  }
  static bool circled(const Group* c, DisplayList& l) {
    c->draw_circled(l);
    return true;
  }
  static bool complex(const Group* c, DisplayList& l) {
    c->draw_complex(l);
    return true;
  }
  static bool bounded(const Group* c, DisplayList& l, Bounds inner, Bounds outer) {
    // A group that is neither inside `inner` nor overlaps `outer` draws nothing,
    // whatever its class (the hidden twins draw nothing at all). Deciding that
    // here saves a call through the table for each of the many children that a
    // window misses: a root with five hundred children costs half as much.
    if (c->bounds.is_inside(inner) || c->bounds.overlaps(outer)) c->draw_bounded(l, inner, outer);
    return true;
  }
  static bool circled_bounded(const Group* c, DisplayList& l, Bounds inner, Bounds outer) {
    c->draw_circled_bounded(l, inner, outer);
    return true;
  }
  static bool complex_bounded(const Group* c, DisplayList& l, Bounds inner, Bounds outer) {
    c->draw_complex_bounded(l, inner, outer);
    return true;
  }
};

// `n` polls at once, with the callback run (and obeyed) wherever one of them
// would have run it: the counter climbs (mod 2^32) to 20, then starts at 0.
inline bool skip_polls(DisplayList& list, std::uint32_t n) {
  while (n > 0) {
    const std::uint32_t counter = static_cast<std::uint32_t>(list.interrupt_counter);
    std::uint64_t to_callback =
        static_cast<std::uint32_t>(DisplayList::kInterruptPollPeriod - counter);
    if (to_callback == 0) to_callback = std::uint64_t{1} << 32;
    if (n < to_callback) {
      list.interrupt_counter = static_cast<int>(counter + n);
      return true;
    }
    n -= static_cast<std::uint32_t>(to_callback);
    list.interrupt_counter = 0;
    if (!list.interrupt_callback(list.interrupt_user_data)) return false;
  }
  return true;
}

struct InterruptWalk {
  static bool poll(DisplayList& l) { return l.poll_interrupt(); }
  // An interior child passed over would have polled once and found itself
  // outside both rectangles; bottom children do not poll.
  static constexpr bool kCountsSkips = true;
  static bool skip(DisplayList& l, std::uint32_t n) { return skip_polls(l, n); }
  static bool unclipped(const Group* c, DisplayList& l) { return c->draw_unclipped_interrupt(l); }
  static bool circled(const Group* c, DisplayList& l) { return c->draw_circled_interrupt(l); }
  static bool complex(const Group* c, DisplayList& l) { return c->draw_complex_interrupt(l); }
  static bool bounded(const Group* c, DisplayList& l, Bounds inner, Bounds outer) {
    return c->draw_bounded_interrupt(l, inner, outer);
  }
  static bool circled_bounded(const Group* c, DisplayList& l, Bounds inner, Bounds outer) {
    return c->draw_circled_bounded_interrupt(l, inner, outer);
  }
  static bool complex_bounded(const Group* c, DisplayList& l, Bounds inner, Bounds outer) {
    return c->draw_complex_bounded_interrupt(l, inner, outer);
  }
};

// Calls `f` on each child of `g` that can be inside `inner` or overlap
// `outer`, in list order, and stops at the first false, which is then the
// result. A group with an index hands over its candidates; the children it
// passes over would have done nothing in the walk but poll. Other groups hand
// over every child, and `f` makes the tests.
template <class Walk, class F>
inline bool each_child_near(const Group* g, DisplayList& list, Bounds inner, Bounds outer, F f) {
  if (GroupIndex* index = GroupIndex::for_walk(g)) {
    WorldBounds q;
    if (GroupIndex::window(inner, outer, q))
      return index->visit<Walk::kCountsSkips>(
          g, q, f, [&](std::uint32_t polls) { return Walk::skip(list, polls); });
  }
  return each_child(g, f);
}

// Runs `walk` with the rendition's complex clip lifted: a counted copy of the
// clip is taken, the clip is set to none, and after the walk the copy is set
// back and released. The clip is put back also when the walk was stopped (it
// returned false), so that a host finds its clip as it left it after any draw.
// Costs two in-place rendition changes; never nests, since a lifted walk only
// runs the unclipped and bounded traversals.
template <class F>
inline bool lifted(DisplayList& list, F walk) {
  ZR_Contour_Set saved(list.rendition.complex_clip());
  list.rendition.set_complex_clip(nullptr, true);
  const bool done = walk();
  list.rendition.set_complex_clip(&saved, true);
  return done;
}

// Takes child group `c`, whose predecessor is `previous` (null: the first),
// out of the chain of `g`, keeping first_child and last_child right. Does not
// destroy it and does not tell an index: the callers do.
inline void unlink_child(Group* g, Group* c, Group* previous) {
  if (previous)
    previous->sibling = c->sibling;
  else
    g->first_child = c->sibling;
  if (g->last_child == c) g->last_child = previous;
  c->sibling = nullptr;
}

// Tells the list's selector which drawable is about to draw. The selector is
// held by a counted reference for the moment of the write.
inline void mark_selected(DisplayList& list, Drawable* d) {
  ZR_Option_Source* s = list.selector;
  DL_ASSERT(s && "a selection traversal needs a selector in the list");
  add_ref(s);
  s->selector_part = 0;
  s->selector_drawable = d;
  release(s);
}

}  // namespace DL::group_detail
