// The interruptible traversals of the group tree.
//
// Each does what its plain form does, but an interior group first asks
// `DisplayList::poll_interrupt` whether to go on, before any rectangle or clip
// test; a false travels straight up, each level returning at once and visiting
// no further child, and is the result of the traversal. A bottom group does not
// poll: it runs its plain form to the end and answers true, so the unit of
// interruption is the whole bottom group and bottom groups add nothing to the
// cost of a plain draw. Nothing records where a walk stopped.
//
// The interior forms of the bounded and clipped families share their bodies
// with the plain forms (group_draw.cpp, group_clip.cpp). A walk stopped while
// the clip was lifted puts the host's complex clip back on its way out (see
// `lifted` in group_p.h): after any draw, stopped or not, the rendition holds
// the clip it had before.
#include "displaylist/group_p.h"

namespace DL {

namespace group_detail {

bool interior_draw_unclipped_interrupt(const Group* g, DisplayList& list) {
  if (!list.poll_interrupt()) return false;
  return each_child(g, [&](const Group* c) { return c->draw_unclipped_interrupt(list); });
}

// A leaf runs the plain entry of its own class and cannot be stopped.
bool bottom_draw_unclipped_interrupt(const Group* g, DisplayList& list) {
  g->draw_unclipped(list);
  return true;
}
bool bottom_draw_circled_interrupt(const Group* g, DisplayList& list) {
  bottom_draw_circled(g, list);
  return true;
}
bool bottom_draw_complex_interrupt(const Group* g, DisplayList& list) {
  bottom_draw_complex(g, list);
  return true;
}
bool bottom_draw_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  bottom_draw_bounded(g, list, inner, outer);
  return true;
}
bool bottom_draw_circled_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner,
                                           Bounds outer) {
  bottom_draw_circled_bounded(g, list, inner, outer);
  return true;
}
bool bottom_draw_complex_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner,
                                           Bounds outer) {
  bottom_draw_complex_bounded(g, list, inner, outer);
  return true;
}
bool open_draw_circled_interrupt(const Group* g, DisplayList& list) {
  open_draw_circled(g, list);
  return true;
}
bool open_draw_complex_interrupt(const Group* g, DisplayList& list) {
  open_draw_complex(g, list);
  return true;
}
bool open_draw_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  open_draw_bounded(g, list, inner, outer);
  return true;
}
bool open_draw_clipped_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner,
                                         Bounds outer) {
  open_draw_clipped_bounded(g, list, inner, outer);
  return true;
}

}  // namespace group_detail
}  // namespace DL
