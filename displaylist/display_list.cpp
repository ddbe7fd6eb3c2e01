// The display list record: construction, the view and its transforms, and the
// point conversions.
#include "displaylist/display_list.h"

#include <cmath>

#include "foundation/assert.h"

namespace DL {

DisplayList::DisplayList(ZephalHeap* heap_, int capacity, int limit)
    : rendition(ZR_Rendition::create()), heap(heap_), group_capacity(capacity), level_limit(limit) {
  DL_ASSERT(capacity >= 1 && limit <= 31);
  root = Group::make_root(heap);
  root->create_open_bottom_group(this);
}

DisplayList::~DisplayList() {
  if (root) root->destroy();
  if (renderer) release(renderer);
  if (text_engine) release(text_engine);
  if (selector) release(selector);
}

// ---------------------------------------------------------------------------
// The view
// ---------------------------------------------------------------------------

void DisplayList::set_screen_bounds(const ScreenBounds& b) {
  if (b == screen_bounds) return;
  screen_bounds = b;
  compute_device_bounds(b);
  recompute_transform();
}

void DisplayList::set_world_bounds(const WorldBounds& b) {
  if (b == world_bounds) return;
  world_bounds = b;
  recompute_transform();
}

void DisplayList::compute_device_bounds(const ScreenBounds& b) {
  // Truncated toward zero; a product beyond 32 bits saturates.
  device_bounds.min.x = truncate_to_int32_saturated(b.min.x * device_factor.x);
  device_bounds.max.x = truncate_to_int32_saturated(b.max.x * device_factor.x);
  device_bounds.min.y = truncate_to_int32_saturated(b.min.y * device_factor.y);
  device_bounds.max.y = truncate_to_int32_saturated(b.max.y * device_factor.y);
}

void DisplayList::recompute_transform() {
  const WorldBounds& w = world_bounds;
  const ScreenBounds& s = screen_bounds;
  const ScreenBounds& d = device_bounds;
  if (!(s.min.x <= s.max.x) || !(w.min.x <= w.max.x) || !w.is_valid()) return;
  // Every difference is taken in double: the whole 32-bit range does not overflow.
  const double wx = static_cast<double>(w.max.x) - w.min.x;
  const double wy = static_cast<double>(w.max.y) - w.min.y;
  const double sx = (static_cast<double>(s.max.x) - s.min.x) / wx;
  const double sy = (static_cast<double>(s.max.y) - s.min.y) * aspect_ratio / wy;
  // A view of zero extent has no inverse: refused, like an inverted one.
  if (!std::isfinite(sx) || !std::isfinite(sy) || sx == 0.0 || sy == 0.0) return;
  scale.x = sx;
  scale.y = sy;
  offset.x = s.min.x - scale.x * w.min.x;
  offset.y = s.min.y - scale.y * w.min.y;
  device_scale.x = (static_cast<double>(d.max.x) - d.min.x) / wx;
  device_scale.y = (static_cast<double>(d.max.y) - d.min.y) * aspect_ratio / wy;
  device_offset.x = d.min.x - device_scale.x * w.min.x;
  device_offset.y = d.min.y - device_scale.y * w.min.y;
  compute_visible_bounds(screen_bounds, visible_bounds);
}

void DisplayList::compute_visible_bounds(const ScreenBounds& source, WorldBounds& target) const {
  ScreenBounds s = source;
  if (s.max.x != ScreenPoint::scalarMaximum) s.max.x += 1;
  if (s.max.y != ScreenPoint::scalarMaximum) s.max.y += 1;
  if (s.min.x != ScreenPoint::scalarMinimum) s.min.x -= 1;
  if (s.min.y != ScreenPoint::scalarMinimum) s.min.y -= 1;
  const int lo[2] = {s.min.x, s.min.y};
  const int hi[2] = {s.max.x, s.max.y};
  screen_to_world(lo, target.min);
  screen_to_world(hi, target.max);
}

void DisplayList::set_renderer(ZR_Renderer* r) {
  if (r) add_ref(r);
  if (renderer) release(renderer);
  renderer = r;
  complex_clip_supported = r ? r->options.supports_complex_clip() : false;
}

// ---------------------------------------------------------------------------
// Point conversions
// ---------------------------------------------------------------------------

void DisplayList::world_to_screen_points(int n, const WorldPoint* in, ZR_DCI_Point* out) const {
  DL_ASSERT(n >= 1);
  int i = 0;
  do {
    world_to_screen(in[i], out[i]);
  } while (++i < n);
}

int DisplayList::world_to_screen_unique(int n, const WorldPoint* in, ZR_DCI_Point* out) const {
  DL_ASSERT(n >= 2);
  world_to_screen(in[0], out[0]);
  int kept = 1;
  for (int i = 1; i < n; ++i) {
    ZR_DCI_Point& slot = out[kept];
    world_to_screen(in[i], slot);
    // A point on the one kept before it leaves its slot free for the next.
    if (slot.x != out[kept - 1].x || slot.y != out[kept - 1].y) ++kept;
  }
  return kept;
}

void DisplayList::screen_to_world(const int* p, WorldPoint& out) const {
  out.x = round_to_int32_saturated((p[0] - offset.x) / scale.x);
  out.y = round_to_int32_saturated((p[1] - offset.y) / scale.y);
}

}  // namespace DL
