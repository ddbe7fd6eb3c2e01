// The text painter: glyph fills and greeked boxes on a cairo renderer.
#include "backends/cairo/cairo_text.h"

#include <cmath>
#include <vector>

namespace DL {

CairoTextPainter::CairoTextPainter(ZR_Text_Engine* inner) : inner_(inner) {
  add_ref(inner_);
}

CairoTextPainter::~CairoTextPainter() {
  release(inner_);
}

bool CairoTextPainter::small(ZR_Rendition* rendition) const {
  return rendition && *rendition && std::fabs(rendition->text_attributes().size) < greeking_size_;
}

void CairoTextPainter::glyphs(ZR_Rendition* rendition, const ZR_Point*, int count,
                              const ZR_Placed_Glyph* glyphs) {
  if (!renderer_) return;
  for (int i = 0; i < count; ++i)
    if (glyphs[i].outline)
      renderer_->paint_contours(rendition, {0.0f, 0.0f, 0.0f}, *glyphs[i].outline, nullptr, true);
}

void CairoTextPainter::paint_greeked(ZR_Rendition* rendition, const ZR_Point* c) {
  // The box's lower edge (0 to 1) and 60% of the way up the sides (3 and 2).
  auto up = [](const ZR_Point& low, const ZR_Point& high) {
    return ZR_Point{low.x + 0.6f * (high.x - low.x), low.y + 0.6f * (high.y - low.y), 0.0f};
  };
  std::vector<std::vector<ZR_Point>> box{{c[0], c[1], up(c[1], c[2]), up(c[0], c[3])}};
  ZR_Contour_Set set = ZR_Contour_Set::make(box);
  if (set) renderer_->paint_contours(rendition, {0.0f, 0.0f, 0.0f}, *set, nullptr, true);
}

ZR_Font CairoTextPainter::prepare_font(ZR_Font* font) {
  return inner_->prepare_font(font);
}

void CairoTextPainter::draw_unicode_text(ZR_Rendition* rendition, const ZR_Point* point,
                                         const unsigned short* text, int length) {
  if (!renderer_ || length <= 0) return;
  if (small(rendition)) {
    ZR_Point corners[4];
    inner_->measure_unicode_text(rendition, point, text, length, corners, 0, nullptr);
    paint_greeked(rendition, corners);
    ++greeked_;
    return;
  }
  inner_->draw_unicode_text(rendition, point, text, length);
  ++drawn_;
}

void CairoTextPainter::draw_multibyte_text(ZR_Rendition* rendition, const ZR_Point* point,
                                           const unsigned char* text, int length) {
  if (!renderer_ || length <= 0) return;
  if (small(rendition)) {
    ZR_Point corners[4];
    inner_->measure_multibyte_text(rendition, point, text, length, corners, 0, nullptr);
    paint_greeked(rendition, corners);
    ++greeked_;
    return;
  }
  inner_->draw_multibyte_text(rendition, point, text, length);
  ++drawn_;
}

ZR_Contour_Set CairoTextPainter::character_contour(ZR_Rendition* rendition,
                                                   unsigned short character,
                                                   ZR_Character_Metrics* metrics) {
  return inner_->character_contour(rendition, character, metrics);
}

void CairoTextPainter::font_metrics(ZR_Rendition* rendition, ZR_Font_Metrics* metrics) {
  inner_->font_metrics(rendition, metrics);
}

void CairoTextPainter::measure_unicode_text(ZR_Rendition* rendition, const ZR_Point* start,
                                            const unsigned short* text, int length,
                                            ZR_Point* corners, int flags, ZR_Text_Detail* detail) {
  inner_->measure_unicode_text(rendition, start, text, length, corners, flags, detail);
}

void CairoTextPainter::measure_multibyte_text(ZR_Rendition* rendition, const ZR_Point* start,
                                              const unsigned char* text, int length,
                                              ZR_Point* corners, int flags,
                                              ZR_Text_Detail* detail) {
  inner_->measure_multibyte_text(rendition, start, text, length, corners, flags, detail);
}

}  // namespace DL
