// Text metrics: cumulative character widths, the world box of the string and
// the box of one character. All sizes come from the text engine of the list the
// text was made with.
#include "displaylist/display_list.h"
#include "foundation/assert.h"
#include "text/text.h"

namespace DL {

namespace {

// Measures `text` (or an empty string) through the engine, in its own form.
void measure(ZR_Text_Engine* engine, ZR_Rendition* r, const ZR_Point& start,
             const EncodedText* text, ZR_Point* corners, ZR_Text_Detail* detail) {
  static const unsigned short kEmpty16 = 0;
  static const unsigned char kEmpty8 = 0;
  const int length = text ? text->length() : 0;
  if (text && text->isUnicode())
    engine->measure_unicode_text(r, &start, length ? text->unicodeString() : &kEmpty16, length,
                                 corners, 1, detail);
  else
    engine->measure_multibyte_text(r, &start, length ? text->multiByteString() : &kEmpty8, length,
                                   corners, 1, detail);
}

}  // namespace

ZR_Text_Engine* Text::measuring_engine() const {
  ZR_Text_Engine* engine = display_list ? display_list->text_engine : nullptr;
  DL_ASSERT((engine || string_length() == 0) && "a text with characters measures through its list");
  return engine;
}

void Text::do_accumulated_normalized_widths(float* widths) {
  ZR_Text_Engine* e = measuring_engine();
  if (!e) {
    for (int i = 0, n = string_length(); i < n; ++i) widths[i] = 0.0f;
    return;
  }
  ZR_Handle<ZR_Text_Engine> engine(e);
  ZR_Rendition* r = rendition(*display_list);
  const float noted_size = r->text_attributes().size;
  r->set_text_font(font_handle(), true);
  ZR_Font_Metrics metrics{};
  engine->font_metrics(r, &metrics);
  r->set_text_size(metrics.nominal_size, true);
  const int n = string_length();
  if (n > 0) {
    ZR_Point corners[4];
    ZR_Text_Detail detail{};
    detail.widths = widths;
    measure(engine.get(), r, ZR_Point{0.0f, 0.0f, 0.0f}, text, corners, &detail);
    for (int i = 1; i < n; ++i) widths[i] += widths[i - 1];
    const float total = widths[n - 1];
    const float factor = total == 0.0f ? 1.0f : 1.0f / total;
    for (int i = 0; i < n; ++i) widths[i] *= factor;
  }
  r->set_text_size(noted_size, true);
}

void Text::do_get_text_bbox(DoublePoint* box) {
  ZR_Text_Engine* e = measuring_engine();
  if (!e) {
    for (int i = 0; i < 4; ++i) box[i] = position;
    return;
  }
  ZR_Handle<ZR_Text_Engine> engine(e);
  ZR_Rendition* r = rendition(*display_list);
  ZR_Point start;
  display_list->world_to_text_point(position, start);
  r->set_text_font(font_handle(), true);
  ZR_Point corners[4];
  measure(engine.get(), r, start, text, corners, nullptr);
  for (int i = 0; i < 4; ++i) display_list->text_point_to_world(corners[i], box[i]);
}

void Text::do_get_character_bbox(int index, const float* widths, const DoublePoint& origin,
                                 const DoublePoint* box, DoublePoint* cb,
                                 DoublePoint& next_origin) const {
  const double t0 = index == 0 ? 0.0 : widths[index - 1];
  const double t1 = widths[index];
  const DoublePoint lower = {box[1].x - box[0].x, box[1].y - box[0].y};
  const DoublePoint upper = {box[2].x - box[3].x, box[2].y - box[3].y};
  cb[0] = {box[0].x + lower.x * t0, box[0].y + lower.y * t0};
  cb[1] = {box[0].x + lower.x * t1, box[0].y + lower.y * t1};
  cb[2] = {box[3].x + upper.x * t1, box[3].y + upper.y * t1};
  cb[3] = {box[3].x + upper.x * t0, box[3].y + upper.y * t0};
  next_origin = {origin.x + (cb[1].x - cb[0].x), origin.y + (cb[1].y - cb[0].y)};
}

}  // namespace DL
