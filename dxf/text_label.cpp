// Labels: UTF-8 decoding, measuring through the engine, and the Text record.
#include "dxf/text_label.h"

#include <algorithm>
#include <cmath>

namespace DL::dxf {

std::u16string to_utf16(const std::string& text) {
  std::u16string out;
  out.reserve(text.size());
  const auto* s = reinterpret_cast<const unsigned char*>(text.data());
  const std::size_t n = text.size();
  for (std::size_t i = 0; i < n;) {
    const unsigned char c = s[i];
    int extra = c < 0x80 ? 0 : (c >> 5) == 6 ? 1 : (c >> 4) == 14 ? 2 : (c >> 3) == 30 ? 3 : -1;
    bool valid = extra >= 0 && i + extra < n;
    char32_t code = extra == 0 ? c : extra == 1 ? (c & 0x1f) : extra == 2 ? (c & 0x0f) : (c & 0x07);
    for (int k = 1; valid && k <= extra; ++k) {
      if ((s[i + k] & 0xc0) != 0x80) valid = false;
      code = (code << 6) | (s[i + k] & 0x3f);
    }
    if (!valid) {  // Latin-1: the byte is the code point
      out.push_back(static_cast<char16_t>(c));
      ++i;
      continue;
    }
    out.push_back(code > 0xffff ? u'\uFFFD' : static_cast<char16_t>(code));
    i += static_cast<std::size_t>(extra) + 1;
  }
  return out;
}

namespace {

// The unturned box at the origin, in world units.
void unturned_box(ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text,
                  double em, ZR_Point box[4]) {
  ZR_Rendition r = ZR_Rendition::create();
  r.set_text_size(static_cast<float>(em), false);
  r.set_text_font(font, false);
  const ZR_Point start{0.0f, 0.0f, 0.0f};
  engine->measure_unicode_text(&r, &start, reinterpret_cast<const unsigned short*>(text.data()),
                               static_cast<int>(text.size()), box, 0, nullptr);
}

}  // namespace

void measure_label(ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text,
                   double em, double rotation, DL::DoublePoint origin, DL::DoublePoint corners[4]) {
  ZR_Point box[4];
  unturned_box(engine, font, text, em, box);
  const double c = std::cos(rotation), s = std::sin(rotation);
  for (int i = 0; i < 4; ++i)
    corners[i] = {origin.x + c * box[i].x - s * box[i].y, origin.y + s * box[i].x + c * box[i].y};
}

double label_width(ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text,
                   double em) {
  ZR_Point box[4];
  unturned_box(engine, font, text, em, box);
  return static_cast<double>(box[1].x) - box[0].x;
}

std::vector<std::vector<std::vector<DL::DoublePoint>>> label_outlines(
    ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text, double em,
    double width_factor, double oblique, double rotation, DL::DoublePoint origin, double tracking) {
  std::vector<std::vector<std::vector<DL::DoublePoint>>> out;
  if (!engine || text.empty() || !(em > 0.0)) return out;
  ZR_Rendition r = ZR_Rendition::create();
  r.set_text_font(font, false);
  ZR_Font_Metrics metrics{};
  engine->font_metrics(&r, &metrics);
  const double nominal = metrics.nominal_size > 0 ? metrics.nominal_size : 1.0;
  r.set_text_size(static_cast<float>(nominal), false);
  const double k = em / nominal;           // world units per outline unit
  const double shear = std::tan(oblique);  // x added per unit of height
  const double c = std::cos(rotation), s = std::sin(rotation);
  double pen = 0.0;  // along the baseline, in outline units before the width factor
  for (char16_t ch : text) {
    ZR_Character_Metrics m{};
    ZR_Contour_Set set = engine->character_contour(&r, static_cast<unsigned short>(ch), &m);
    if (set) {
      std::vector<std::vector<DL::DoublePoint>>& glyph = out.emplace_back();
      const ZR_Point* p = set->contour_points;
      for (int i = 0; i < set->contour_count; ++i) {
        std::vector<DL::DoublePoint>& contour = glyph.emplace_back();
        for (int j = 0; j < set->contour_sizes[i]; ++j, ++p) {
          const double x = ((pen + p->x) * width_factor + p->y * shear) * k, y = p->y * k;
          contour.push_back({origin.x + c * x - s * y, origin.y + s * x + c * y});
        }
      }
    }
    pen += m.advance * tracking;
  }
  return out;
}

DL::Text* make_label(DL::DisplayList& list, ZR_Text_Engine* engine, const ZR_Font& font,
                     ZR_RGB32 color, DL::DoublePoint origin, double em, double rotation,
                     const std::u16string& text, DL::WorldBounds& bounds) {
  if (text.empty() || !engine || !(em > 0.0)) return nullptr;
  DL::DoublePoint c[4];
  measure_label(engine, font, text, em, rotation, origin, c);
  double x0 = c[0].x, x1 = c[0].x, y0 = c[0].y, y1 = c[0].y;
  for (int i = 1; i < 4; ++i) {
    x0 = std::min(x0, c[i].x);
    x1 = std::max(x1, c[i].x);
    y0 = std::min(y0, c[i].y);
    y1 = std::max(y1, c[i].y);
  }
  bounds = {
      {DL::round_to_int32_saturated(std::floor(x0)), DL::round_to_int32_saturated(std::floor(y0))},
      {DL::round_to_int32_saturated(std::ceil(x1)), DL::round_to_int32_saturated(std::ceil(y1))}};
  return new DL::Text(color, font, origin, reinterpret_cast<const unsigned short*>(text.data()),
                      static_cast<int>(text.size()), em, rotation, bounds, &list, true);
}

}  // namespace DL::dxf
