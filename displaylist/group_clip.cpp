// Clip classification and the clipped traversals of the group tree.
//
// When the rendition carries a complex clip (contours in screen coordinates)
// that the device does not clip to by itself, whole groups are compared with
// it: a group wholly inside is drawn with the clip lifted, a group wholly
// outside is skipped, and only a group that crosses an edge is drawn with the
// clip on. The exact test walks the contours of the hard complex clip; the
// quick one compares the corners of a group with the circle that
// `DisplayList::circular_complex_clip` fitted inside a nearly round clip.
//
// Choices made here:
//   - A group's corners go to the screen with the saturating conversion, also
//     when the list converts points by wrapping: a group that reaches far off
//     the screen then keeps its sides in order instead of folding over, and a
//     classification can never be wrong for it. Within range the two agree.
//   - The screen rectangle of a group is taken with its sides in order, so a
//     view that turns y over (screen y down, world y up) classifies the same.
//   - An edge that passes exactly through a corner of the rectangle may, by
//     float rounding, land outside the rectangle both when crossed against the
//     vertical line and against the horizontal one; neither walk then moves on.
//     No straight edge needs more than two crossings to be settled, so a third
//     one on the same edge ends the test with CLIP_CROSSING, which keeps the
//     drawing right (the group is drawn, with the clip on).
//   - An edge whose crossing would divide by zero can only arise from such
//     rounding, and answers CLIP_CROSSING too.
#include <algorithm>
#include <cmath>

#include "displaylist/group_p.h"

namespace DL {

// ---------------------------------------------------------------------------
// Is the clip nearly a circle?
// ---------------------------------------------------------------------------

bool DisplayList::circular_complex_clip() {
  const ZR_Contour_Set_Data* clip = rendition.complex_clip();
  DL_ASSERT(clip && "called only when the rendition has a complex clip");
  if (clip->contour_count > 1 || !clip->contour_points) return false;
  const int n = clip->contour_sizes[0];
  if (n < 1) return false;  // a set without points is no circle
  const ZR_Point* p = clip->contour_points;

  float min_x = p[0].x, max_x = p[0].x, min_y = p[0].y, max_y = p[0].y;
  for (int i = 1; i < n; ++i) {
    min_x = std::fmin(min_x, p[i].x);
    max_x = std::fmax(max_x, p[i].x);
    min_y = std::fmin(min_y, p[i].y);
    max_y = std::fmax(max_y, p[i].y);
  }
  // Stored at once, whatever the tests below decide.
  clip_center = {(min_x + max_x) * 0.5f, (min_y + max_y) * 0.5f, 0.0f};

  auto distance_squared = [this](float x, float y) {
    const float dx = x - clip_center.x;
    const float dy = y - clip_center.y;
    return dx * dx + dy * dy;
  };
  float smallest = distance_squared(p[0].x, p[0].y);
  float largest = smallest;
  for (int i = 1; i < n; ++i) {
    const float d = distance_squared(p[i].x, p[i].y);
    smallest = std::fmin(smallest, d);
    largest = std::fmax(largest, d);
  }
  auto ring = [&] { return std::sqrt(double{largest}) - std::sqrt(double{smallest}); };
  // The vertices lie in a ring of 2 screen units...
  if (ring() > 2.0) return false;
  // ...and the sides cut into it by no more than 5 in all.
  for (int i = 0, j = n - 1; i < n; j = i++) {
    const float d = distance_squared((p[j].x + p[i].x) * 0.5f, (p[j].y + p[i].y) * 0.5f);
    smallest = std::fmin(smallest, d);
  }
  if (ring() > 5.0) return false;
  clip_radius_squared = smallest;
  return true;
}

// ---------------------------------------------------------------------------
// Classification
// ---------------------------------------------------------------------------

namespace {

// A group's rectangle on the screen, in float, sides in order.
struct ScreenRect {
  float min_x, min_y, max_x, max_y;
};

ScreenRect screen_rect(const DisplayList& list, const WorldBounds& b) {
  ZR_DCI_Point lo, hi;
  list.world_to_screen_saturated(b.min, lo);
  list.world_to_screen_saturated(b.max, hi);
  return {static_cast<float>(std::min(lo.x, hi.x)), static_cast<float>(std::min(lo.y, hi.y)),
          static_cast<float>(std::max(lo.x, hi.x)), static_cast<float>(std::max(lo.y, hi.y))};
}

// Which side of the rectangle a point lies on, along one axis.
enum class Side { kWithin, kLow, kHigh };

// Whether the closed contour of `n` points has a vertex in `r` or an edge
// through it. Walks the edges once, computing a crossing only where an edge
// passes from beyond one line of `r` to within it.
bool contour_touches(const ZR_Point* p, int n, const ScreenRect& r) {
  if (n <= 0) return false;
  const ZR_Point* prev = p + (n - 1);
  const ZR_Point* cur = p;
  int remaining = n;
  Side h = prev->x < r.min_x ? Side::kLow : prev->x > r.max_x ? Side::kHigh : Side::kWithin;
  Side v = prev->y < r.min_y ? Side::kLow : prev->y > r.max_y ? Side::kHigh : Side::kWithin;
  if (h == Side::kWithin && v == Side::kWithin) return true;
  int crossings = 0;  // crossings computed on the edge prev-cur
  for (;;) {
    if (h != Side::kWithin) {
      // Beyond a vertical line: follow the contour until it comes back over it.
      const float line = h == Side::kLow ? r.min_x : r.max_x;
      while (h == Side::kLow ? cur->x < line : cur->x > line) {
        prev = cur++;
        crossings = 0;
        if (--remaining == 0) return false;
      }
      if (++crossings > 2 || cur->x == prev->x) return true;
      const float y = prev->y + (line - prev->x) / (cur->x - prev->x) * (cur->y - prev->y);
      if (y < r.min_y)
        v = Side::kLow;
      else if (y > r.max_y)
        v = Side::kHigh;
      else
        return true;
      h = Side::kWithin;
    }
    // Beyond a horizontal line: the same with the axes exchanged.
    const float line = v == Side::kLow ? r.min_y : r.max_y;
    while (v == Side::kLow ? cur->y < line : cur->y > line) {
      prev = cur++;
      crossings = 0;
      if (--remaining == 0) return false;
    }
    if (++crossings > 2 || cur->y == prev->y) return true;
    const float x = prev->x + (line - prev->y) / (cur->y - prev->y) * (cur->x - prev->x);
    if (x < r.min_x)
      h = Side::kLow;
    else if (x > r.max_x)
      h = Side::kHigh;
    else
      return true;
    v = Side::kWithin;
  }
}

}  // namespace

ClipClass Group::classify_against_circle(const DisplayList& list) const {
  ZR_DCI_Point lo, hi;
  list.world_to_screen_saturated(bounds.min, lo);
  list.world_to_screen_saturated(bounds.max, hi);
  auto beyond = [&list](int x, int y) {
    const float dx = static_cast<float>(x) - list.clip_center.x;
    const float dy = static_cast<float>(y) - list.clip_center.y;
    return dx * dx + dy * dy > list.clip_radius_squared;  // on the circle is inside
  };
  if (beyond(lo.x, lo.y) || beyond(hi.x, lo.y) || beyond(hi.x, hi.y) || beyond(lo.x, hi.y))
    return CLIP_CROSSING;
  return CLIP_INSIDE;
}

ClipClass Group::classify_against_clip(DisplayList& list) const {
  if (!list.rendition.hard_complex_clip_valid()) list.rendition.validate_hard_complex_clip();
  const ZR_Contour_Set_Data* clip = list.rendition.hard_complex_clip();
  if (!clip || !clip->contour_points) return CLIP_CROSSING;
  const ScreenRect r = screen_rect(list, bounds);
  const ZR_Point* p = clip->contour_points;
  for (int c = 0; c < clip->contour_count; ++c) {
    const int n = clip->contour_sizes[c];
    if (contour_touches(p, n, r)) return CLIP_CROSSING;
    p += n;
  }
  // No contour touches the rectangle: it is wholly on one side of the clip.
  return clip->point_inside(r.min_x, r.min_y) ? CLIP_INSIDE : CLIP_OUTSIDE;
}

// ---------------------------------------------------------------------------
// Clipped walks
// ---------------------------------------------------------------------------

namespace group_detail {

// The body of a circled walk, once the group is entered (and polled).
template <class Walk>
static bool interior_circled_body(const Group* g, DisplayList& list) {
  if (g->classify_against_circle(list) == CLIP_INSIDE) {
    return lifted(list, [&] {
      return each_child(g, [&](const Group* c) { return Walk::unclipped(c, list); });
    });
  }
  return each_child(g, [&](const Group* c) { return Walk::circled(c, list); });
}

template <class Walk>
static bool interior_complex_body(const Group* g, DisplayList& list) {
  switch (g->classify_against_clip(list)) {
    case CLIP_INSIDE:
      return lifted(list, [&] {
        return each_child(g, [&](const Group* c) { return Walk::unclipped(c, list); });
      });
    case CLIP_CROSSING:
      return each_child(g, [&](const Group* c) { return Walk::complex(c, list); });
    case CLIP_OUTSIDE:
      break;
  }
  return true;
}

template <class Walk>
static bool interior_circled_bounded(const Group* g, DisplayList& list, Bounds inner,
                                     Bounds outer) {
  if (!Walk::poll(list)) return false;
  if (g->bounds.is_inside(inner)) return interior_circled_body<Walk>(g, list);
  if (g->bounds.overlaps(outer)) {
    // Not classified: the circle test is kept for groups the rectangles settle.
    return each_child_near<Walk>(g, list, inner, outer, [&](const Group* c) {
      return Walk::circled_bounded(c, list, inner, outer);
    });
  }
  return true;
}

template <class Walk>
static bool interior_complex_bounded(const Group* g, DisplayList& list, Bounds inner,
                                     Bounds outer) {
  if (!Walk::poll(list)) return false;
  if (g->bounds.is_inside(inner)) return interior_complex_body<Walk>(g, list);
  if (!g->bounds.overlaps(outer)) return true;
  switch (g->classify_against_clip(list)) {
    case CLIP_INSIDE:
      return lifted(list, [&] {
        return each_child_near<Walk>(g, list, inner, outer, [&](const Group* c) {
          return Walk::bounded(c, list, inner, outer);
        });
      });
    case CLIP_CROSSING:
      return each_child_near<Walk>(g, list, inner, outer, [&](const Group* c) {
        return Walk::complex_bounded(c, list, inner, outer);
      });
    case CLIP_OUTSIDE:
      break;
  }
  return true;
}

void interior_draw_circled(const Group* g, DisplayList& list) {
  interior_circled_body<PlainWalk>(g, list);
}
void interior_draw_complex(const Group* g, DisplayList& list) {
  interior_complex_body<PlainWalk>(g, list);
}
void interior_draw_circled_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  interior_circled_bounded<PlainWalk>(g, list, inner, outer);
}
void interior_draw_complex_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  interior_complex_bounded<PlainWalk>(g, list, inner, outer);
}

bool interior_draw_circled_interrupt(const Group* g, DisplayList& list) {
  return list.poll_interrupt() && interior_circled_body<InterruptWalk>(g, list);
}
bool interior_draw_complex_interrupt(const Group* g, DisplayList& list) {
  return list.poll_interrupt() && interior_complex_body<InterruptWalk>(g, list);
}
bool interior_draw_circled_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner,
                                             Bounds outer) {
  return interior_circled_bounded<InterruptWalk>(g, list, inner, outer);
}
bool interior_draw_complex_bounded_interrupt(const Group* g, DisplayList& list, Bounds inner,
                                             Bounds outer) {
  return interior_complex_bounded<InterruptWalk>(g, list, inner, outer);
}

// -- Bottom groups: the drawables always get `draw_unclipped` in the unbounded
// forms (`draw_clipped` means cut to the rectangle); the complex clip that stays
// on the rendition is the device's affair.

static void shown_unclipped(const Group* g, DisplayList& list) {
  each_shown(g, [&](Drawable* d) { d->draw_unclipped(list); });
}
static void shown_clipped(const Group* g, DisplayList& list) {
  each_shown(g, [&](Drawable* d) { d->draw_clipped(list); });
}
static bool lifted_unclipped(const Group* g, DisplayList& list) {
  return lifted(list, [&] {
    shown_unclipped(g, list);
    return true;
  });
}

void bottom_draw_circled(const Group* g, DisplayList& list) {
  if (g->classify_against_circle(list) == CLIP_INSIDE)
    lifted_unclipped(g, list);
  else
    shown_unclipped(g, list);
}

void bottom_draw_complex(const Group* g, DisplayList& list) {
  switch (g->classify_against_clip(list)) {
    case CLIP_INSIDE:
      lifted_unclipped(g, list);
      break;
    case CLIP_CROSSING:
      shown_unclipped(g, list);
      break;
    case CLIP_OUTSIDE:
      break;
  }
}

// An open group without drawables is not even classified.
void open_draw_circled(const Group* g, DisplayList& list) {
  if (g->first_child) bottom_draw_circled(g, list);
}
void open_draw_complex(const Group* g, DisplayList& list) {
  if (g->first_child) bottom_draw_complex(g, list);
}

void bottom_draw_circled_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (g->bounds.is_inside(inner))
    bottom_draw_circled(g, list);
  else if (g->bounds.overlaps(outer))
    shown_clipped(g, list);
}

void bottom_draw_complex_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (g->bounds.is_inside(inner)) {
    bottom_draw_complex(g, list);
  } else if (g->bounds.overlaps(outer)) {
    switch (g->classify_against_clip(list)) {
      case CLIP_INSIDE:
        lifted(list, [&] {
          shown_clipped(g, list);
          return true;
        });
        break;
      case CLIP_CROSSING:
        shown_clipped(g, list);
        break;
      case CLIP_OUTSIDE:
        break;
    }
  }
}

void open_draw_clipped_bounded(const Group* g, DisplayList& list, Bounds inner, Bounds outer) {
  if (g->first_child) bottom_draw_complex_bounded(g, list, inner, outer);
}

}  // namespace group_detail
}  // namespace DL
