// The nested display list drawable: its extent, the view it lends the nested
// list for one draw, the two draws, the match and the copy.
#include "nested/drawable_display_list.h"

#include "foundation/assert.h"
#include "iterators/display_list_iterator.h"

namespace DL {

DL_DRAWABLE_DEFINE(DrawableDisplayList);

namespace {

// Whether the list holds a drawable: the first leaf below the root, reached by
// first children, has one. Only that leaf is looked at.
bool holds_drawables(const DisplayList& list) {
  const Group* g = list.root;
  if (!g || !g->first_child) return false;
  while (!g->contains_drawables()) {
    g = g->first_group();
    if (!g) return false;
  }
  return g->first_child != nullptr;
}

// v * scale + offset in double, truncated toward zero.
WorldCoord map_coordinate(WorldCoord v, double scale, double offset) {
  return truncate_to_int32_saturated(v * scale + offset);
}

// (v - offset) / scale in double, truncated toward zero.
WorldCoord unmap_coordinate(WorldCoord v, double scale, double offset) {
  return truncate_to_int32_saturated((v - offset) / scale);
}

// One pixel further; the last screen coordinate stays where it is.
int grown_by_one(int v) {
  return v < ScreenPoint::scalarMaximum ? v + 1 : v;
}

int clamp_into(int v, int lo, int hi) {
  if (v < lo) return lo;
  if (v > hi) return hi;
  return v;
}

}  // namespace

// ---------------------------------------------------------------------------
// Construction and the setters
// ---------------------------------------------------------------------------

DrawableDisplayList::DrawableDisplayList(ZR_Rendition* rendition, DisplayList* list,
                                         const WorldBounds* bounds)
    : DrawableDisplayList(ColorData(rendition), list, bounds, Ownership::owned) {}

DrawableDisplayList::DrawableDisplayList(ZR_Rendition* rendition, DisplayList* list,
                                         const WorldBounds* bounds, Ownership ownership)
    : DrawableDisplayList(ColorData(rendition), list, bounds, ownership) {}

DrawableDisplayList::DrawableDisplayList(const ColorData& color, DisplayList* list,
                                         const WorldBounds* bounds, Ownership ownership)
    : Drawable(&visible_table_, color), display_list_(list), ownership_(ownership) {
  set_bounds(bounds);
}

DrawableDisplayList::~DrawableDisplayList() {
  if (display_list_ && ownership_ == Ownership::owned) delete display_list_;
}

void DrawableDisplayList::set_display_list(DisplayList* list, const WorldBounds* b) {
  display_list_ = list;
  set_bounds(b);
}

void DrawableDisplayList::set_display_list(DisplayList* list, const WorldBounds* b,
                                           Ownership ownership) {
  ownership_ = ownership;
  set_display_list(list, b);
}

void DrawableDisplayList::set_bounds(const WorldBounds* b) {
  if (b) {
    bounds_ = *b;
  } else {
    bounds_.make_empty();
    if (display_list_ && holds_drawables(*display_list_)) {
      for (DisplayListIterator it(display_list_); it.drawable(); it.advance())
        it.drawable()->add_bounds(bounds_);
    }
  }
  // Nothing to carry over: the last extent stands.
  if (bounds_.min.x > bounds_.max.x) return;
  mapped_bounds_.min.x = map_coordinate(bounds_.min.x, scale_.x, offset_.x);
  mapped_bounds_.min.y = map_coordinate(bounds_.min.y, scale_.y, offset_.y);
  mapped_bounds_.max.x = map_coordinate(bounds_.max.x, scale_.x, offset_.x);
  mapped_bounds_.max.y = map_coordinate(bounds_.max.y, scale_.y, offset_.y);
}

void DrawableDisplayList::set_scale(const DoublePoint& s) {
  scale_ = s;
  const WorldBounds b = bounds_;
  set_bounds(&b);
}

void DrawableDisplayList::set_offset(const DoublePoint& o) {
  offset_ = o;
  const WorldBounds b = bounds_;
  set_bounds(&b);
}

// ---------------------------------------------------------------------------
// The view of one draw
// ---------------------------------------------------------------------------

bool DrawableDisplayList::do_push_view(DisplayList& outer) {
  DL_ASSERT(display_list_);
  DisplayList& nested = *display_list_;
  WorldBounds view_bounds = bounds_;
  ZR_DCI_Point lo;
  ZR_DCI_Point hi;
  outer.world_to_screen(mapped_bounds_.min, lo);
  outer.world_to_screen(mapped_bounds_.max, hi);
  ScreenBounds view_screen{{lo.x, lo.y}, {hi.x, hi.y}};
  // No image in the outer view (also a region mirrored on either axis).
  if (view_screen.min.x > view_screen.max.x || view_screen.min.y > view_screen.max.y) return false;

  // A region without width or height grows by one pixel, and the nested world
  // it shows is taken back from the grown rectangle, on both axes.
  if (view_screen.min.x == view_screen.max.x || view_screen.min.y == view_screen.max.y) {
    if (view_screen.min.x == view_screen.max.x) view_screen.max.x = grown_by_one(view_screen.max.x);
    if (view_screen.min.y == view_screen.max.y) view_screen.max.y = grown_by_one(view_screen.max.y);
    const int screen_lo[2] = {view_screen.min.x, view_screen.min.y};
    const int screen_hi[2] = {view_screen.max.x, view_screen.max.y};
    WorldPoint world_lo;
    WorldPoint world_hi;
    outer.screen_to_world(screen_lo, world_lo);
    outer.screen_to_world(screen_hi, world_hi);
    view_bounds.min.x = unmap_coordinate(world_lo.x, scale_.x, offset_.x);
    view_bounds.min.y = unmap_coordinate(world_lo.y, scale_.y, offset_.y);
    view_bounds.max.x = unmap_coordinate(world_hi.x, scale_.x, offset_.x);
    view_bounds.max.y = unmap_coordinate(world_hi.y, scale_.y, offset_.y);
  }

  nested.use_device_transform = outer.use_device_transform;
  nested.set_renderer(outer.renderer);
  nested.set_world_bounds(view_bounds);
  nested.set_screen_bounds(view_screen);
  if (outer.text_engine) add_ref(outer.text_engine);
  if (nested.text_engine) release(nested.text_engine);
  nested.text_engine = outer.text_engine;

  // The region's rectangle, each edge clamped into the outer hard clip: one
  // wholly outside collapses onto an edge of that clip, and is still drawn
  // through under a clip of no extent.
  saved_hard_clip_ = nested.rendition.hard_clip();
  const ZR_Int_Rectangle& outer_clip = outer.rendition.hard_clip();
  const ZR_Int_Rectangle clip{
      clamp_into(view_screen.min.x, outer_clip.x_min, outer_clip.x_max),
      clamp_into(view_screen.max.x, outer_clip.x_min, outer_clip.x_max),
      clamp_into(view_screen.min.y, outer_clip.y_min, outer_clip.y_max),
      clamp_into(view_screen.max.y, outer_clip.y_min, outer_clip.y_max),
  };
  nested.rendition.set_hard_clip(clip, hard_clip_flag_);

  is_selector_ = outer.renderer && outer.renderer->option_source &&
                 DisplayList::is_selector(outer.renderer->option_source);
  return true;
}

void DrawableDisplayList::do_pop_view(DisplayList&) {
  DisplayList& nested = *display_list_;
  nested.set_renderer(nullptr);
  if (nested.text_engine) release(nested.text_engine);
  nested.text_engine = nullptr;
  nested.rendition.set_hard_clip(saved_hard_clip_, hard_clip_flag_);
}

// ---------------------------------------------------------------------------
// The draws
// ---------------------------------------------------------------------------

void DrawableDisplayList::do_draw_unclipped(DisplayList& outer) {
  if (!display_list_ || !push_view(outer)) return;
  if (is_selector_)
    display_list_->draw_view_selection();
  else
    display_list_->draw_view();
  pop_view(outer);
}

void DrawableDisplayList::do_draw_clipped(DisplayList& outer) {
  if (!display_list_ || !push_view(outer)) return;
  DisplayList& nested = *display_list_;
  // The nested world that the hard clip just set lets through.
  const ZR_Int_Rectangle& clip = nested.rendition.hard_clip();
  const int lo[2] = {clip.x_min, clip.y_min};
  const int hi[2] = {clip.x_max, clip.y_max};
  WorldBounds rect;
  nested.screen_to_world(lo, rect.min);
  nested.screen_to_world(hi, rect.max);
  if (is_selector_)
    nested.draw_view_bounded_selection(rect);
  else
    nested.draw_view_bounded(rect);
  pop_view(outer);
}

// ---------------------------------------------------------------------------
// Extent, match and copies
// ---------------------------------------------------------------------------

void DrawableDisplayList::do_add_bounds(WorldBounds& total) const {
  total.merge(mapped_bounds_);
}

bool DrawableDisplayList::do_remove(const Search& search) const {
  if (search.pattern_type != &_drawable_type_dummy) return false;
  const auto* other = static_cast<const DrawableDisplayList*>(search.pattern);
  return other->display_list_ == display_list_ && other->scale_.x == scale_.x &&
         other->scale_.y == scale_.y && other->offset_.x == offset_.x &&
         other->offset_.y == offset_.y;
}

void DrawableDisplayList::copy(const DrawableDisplayList& other) {
  color = other.color;
  display_list_ = other.display_list_;
  ownership_ = other.ownership_;
  bounds_ = other.bounds_;
  mapped_bounds_ = other.mapped_bounds_;
  scale_ = other.scale_;
  offset_ = other.offset_;
  hard_clip_flag_ = other.hard_clip_flag_;
}

Drawable* DrawableDisplayList::do_clone() const {
  auto* c = new DrawableDisplayList(color, nullptr, nullptr, ownership_);
  if (c) c->copy(*this);
  return c;
}

}  // namespace DL
