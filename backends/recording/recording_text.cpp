#include "backends/recording/recording_text.h"

#include <cmath>

namespace DL {

void RecordingGlyphSink::glyphs(ZR_Rendition* rendition, const ZR_Point* start, int count,
                                const ZR_Placed_Glyph* glyphs) {
  RecordedGlyphs& d = draws.emplace_back();
  d.start = *start;
  if (rendition && rendition->get()) {
    d.rendition_color = rendition->color();
    d.size = rendition->text_attributes().size;
    d.rotation = rendition->text_attributes().rotation;
  }
  for (int i = 0; i < count; ++i) {
    const ZR_Placed_Glyph& g = glyphs[i];
    d.characters.push_back(g.character);
    d.origins.push_back(g.origin);
    int contours = 0, points = 0;
    if (g.outline) {
      contours = g.outline->contour_count;
      for (int k = 0; k < contours; ++k) points += g.outline->contour_sizes[k];
    }
    d.contours.push_back(contours);
    d.points.push_back(points);
  }
}

RecordingTextEngine::RecordingTextEngine(ZR_Text_Engine* inner) : inner_(inner) {
  if (inner_) add_ref(inner_);
}

RecordingTextEngine::~RecordingTextEngine() {
  if (inner_) release(inner_);
}

std::vector<std::string> RecordingTextEngine::entries() const {
  std::vector<std::string> out;
  for (const RecordedTextCall& c : calls) out.push_back(c.entry);
  return out;
}

RecordedTextCall& RecordingTextEngine::record(const char* entry, ZR_Rendition* r) {
  RecordedTextCall& c = calls.emplace_back();
  c.entry = entry;
  if (r && r->get()) {
    const ZR_Text_Attributes& a = r->text_attributes();
    c.size = a.size;
    c.rotation = a.rotation;
    c.scale = a.scale;
    c.font = a.font.get();
    c.rendition_color = r->color();
  }
  return c;
}

namespace {
constexpr float kAdvance = 0.6f, kLow = -0.2f, kHigh = 0.8f;

ZR_Point turn(float x, float y, float rotation, const ZR_Point& at) {
  const float c = std::cos(rotation), s = std::sin(rotation);
  return {at.x + x * c - y * s, at.y + x * s + y * c, 0.0f};
}
}  // namespace

void RecordingTextEngine::fixed_measure(ZR_Rendition* r, const ZR_Point* start, int length,
                                        ZR_Point* corners, ZR_Text_Detail* detail) {
  const ZR_Text_Attributes& a = r->text_attributes();
  const float w = kAdvance * std::fabs(a.size) * a.scale;
  if (detail && detail->widths)
    for (int i = 0; i < length; ++i) detail->widths[i] = w;
  const float total = w * static_cast<float>(length);
  corners[0] = turn(0, kLow * a.size, a.rotation, *start);
  corners[1] = turn(total, kLow * a.size, a.rotation, *start);
  corners[2] = turn(total, kHigh * a.size, a.rotation, *start);
  corners[3] = turn(0, kHigh * a.size, a.rotation, *start);
}

ZR_Font RecordingTextEngine::prepare_font(ZR_Font* font) {
  record("prepare_font", nullptr).font = font;
  return inner_ ? inner_->prepare_font(font) : (font ? *font : ZR_Font());
}

void RecordingTextEngine::draw_unicode_text(ZR_Rendition* r, const ZR_Point* point,
                                            const unsigned short* text, int length) {
  RecordedTextCall& c = record("draw_unicode_text", r);
  c.point = *point;
  c.length = length;
  c.text.assign(text, text + length);
  if (inner_) inner_->draw_unicode_text(r, point, text, length);
}

void RecordingTextEngine::draw_multibyte_text(ZR_Rendition* r, const ZR_Point* point,
                                              const unsigned char* text, int length) {
  RecordedTextCall& c = record("draw_multibyte_text", r);
  c.point = *point;
  c.length = length;
  for (const unsigned char* p = text; *p; ++p) c.text.push_back(*p);
  if (inner_) inner_->draw_multibyte_text(r, point, text, length);
}

ZR_Contour_Set RecordingTextEngine::character_contour(ZR_Rendition* r, unsigned short character,
                                                      ZR_Character_Metrics* metrics) {
  record("character_contour", r).character = character;
  if (inner_) return inner_->character_contour(r, character, metrics);
  const ZR_Text_Attributes& a = r->text_attributes();
  const float s = a.size, w = 0.5f * std::fabs(s) * a.scale, h = 0.7f * s;
  *metrics = {};
  metrics->advance = kAdvance * std::fabs(s) * a.scale;
  if (character == ' ') return ZR_Contour_Set();
  metrics->right = w;
  metrics->top = h;
  return ZR_Contour_Set::make({{{0, 0, 0}, {w, 0, 0}, {w, h, 0}, {0, h, 0}}});
}

void RecordingTextEngine::font_metrics(ZR_Rendition* r, ZR_Font_Metrics* metrics) {
  record("font_metrics", r);
  if (inner_) return inner_->font_metrics(r, metrics);
  *metrics = {};
  metrics->nominal_size = 1.0f;
  metrics->ascent = kHigh;
  metrics->descent = kLow;
}

void RecordingTextEngine::measure_unicode_text(ZR_Rendition* r, const ZR_Point* start,
                                               const unsigned short* text, int length,
                                               ZR_Point* corners, int flags,
                                               ZR_Text_Detail* detail) {
  RecordedTextCall& c = record("measure_unicode_text", r);
  c.point = *start;
  c.length = length;
  c.text.assign(text, text + length);
  c.has_detail = detail && detail->widths;
  if (inner_)
    inner_->measure_unicode_text(r, start, text, length, corners, flags, detail);
  else
    fixed_measure(r, start, length, corners, detail);
}

void RecordingTextEngine::measure_multibyte_text(ZR_Rendition* r, const ZR_Point* start,
                                                 const unsigned char* text, int length,
                                                 ZR_Point* corners, int flags,
                                                 ZR_Text_Detail* detail) {
  RecordedTextCall& c = record("measure_multibyte_text", r);
  c.point = *start;
  c.length = length;
  for (const unsigned char* p = text; *p; ++p) c.text.push_back(*p);
  c.has_detail = detail && detail->widths;
  if (inner_)
    inner_->measure_multibyte_text(r, start, text, length, corners, flags, detail);
  else
    fixed_measure(r, start, length, corners, detail);
}

}  // namespace DL
