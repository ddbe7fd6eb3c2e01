// Text drawing: the two draws through the text engine, the selection draws'
// test, and the conversions between world points and text points.
#include <cmath>

#include "displaylist/display_list.h"
#include "foundation/assert.h"
#include "text/text.h"

namespace DL {

namespace {

// The float nearest to 1e15 (bits 0x58635FA9): where text points are clamped.
constexpr float kTextPointLimit = 999999986991104.0f;

float clamp_text_coordinate(double v) {
  if (std::fabs(v) > 1e15) return v > 0.0 ? kTextPointLimit : -kTextPointLimit;
  return static_cast<float>(v);
}

}  // namespace

void DisplayList::world_to_text_point(const DoublePoint& point, ZR_Point& out) const {
  const DoublePoint& s = use_device_transform ? device_scale : scale;
  const DoublePoint& o = use_device_transform ? device_offset : offset;
  out.x = clamp_text_coordinate(s.x * point.x + o.x);
  out.y = clamp_text_coordinate(s.y * point.y + o.y);
  out.z = 0.0f;
}

void DisplayList::text_point_to_world(const ZR_Point& point, DoublePoint& out) const {
  const DoublePoint& s = use_device_transform ? device_scale : scale;
  const DoublePoint& o = use_device_transform ? device_offset : offset;
  out.x = (point.x - o.x) / s.x;
  out.y = (point.y - o.y) / s.y;
}

// ---------------------------------------------------------------------------
// Draws
// ---------------------------------------------------------------------------

void Text::do_draw_unclipped(DisplayList& list) {
  draw_with(list, nullptr);
}

void Text::do_draw_clipped(DisplayList& list) {
  ZR_Rendition* r = rendition(list);
  const ZR_Int_Rectangle& clip = r->hard_clip();
  const ScreenBounds screen = {{clip.x_min, clip.y_min}, {clip.x_max, clip.y_max}};
  WorldBounds world;
  list.compute_visible_bounds(screen, world);
  // Text off the clip rectangle costs this test and nothing else: no reference,
  // no engine call.
  if (!bounds.overlaps(world)) return;
  draw_with(list, r);
}

void Text::draw_with(DisplayList& list, ZR_Rendition* r) {
  DL_ASSERT(list.text_engine && "a list that draws text needs a text engine");
  ZR_Handle<ZR_Text_Engine> engine(list.text_engine);
  if (!r) r = rendition(list);
  engine->prepare_font(font);  // the handle it gives is dropped at once
  if (!set_text_attributes(list)) return;
  r->set_text_font(font_handle(), true);
  ZR_Point point;
  list.world_to_text_point(position, point);
  if (!text || !text->length()) return;  // nothing to show
  if (text->isUnicode())
    engine->draw_unicode_text(r, &point, text->unicodeString(), text->length());
  else
    engine->draw_multibyte_text(r, &point, text->multiByteString(), text->length());
}

}  // namespace DL
