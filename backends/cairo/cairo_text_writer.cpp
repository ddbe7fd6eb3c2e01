// Glyphs shown as text; see cairo_text_writer.h.
#include "backends/cairo/cairo_text_writer.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

namespace DL {

namespace {

// A 16-bit character as UTF-8 (a lone surrogate as U+FFFD).
void append_utf8(std::string& out, unsigned short c) {
  unsigned code = c;
  if (code >= 0xd800 && code < 0xe000) code = 0xfffd;
  if (code < 0x80) {
    out.push_back(static_cast<char>(code));
  } else if (code < 0x800) {
    out.push_back(static_cast<char>(0xc0 | (code >> 6)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
  } else {
    out.push_back(static_cast<char>(0xe0 | (code >> 12)));
    out.push_back(static_cast<char>(0x80 | ((code >> 6) & 0x3f)));
    out.push_back(static_cast<char>(0x80 | (code & 0x3f)));
  }
}

// A font's name as a fontconfig pattern may end in ":bold" and ":italic"
// (the DXF mapping's fonts of MTEXT runs do): the family before them, its
// escapes undone, and the weight and slant they ask for.
struct Face {
  std::string family;
  cairo_font_weight_t weight = CAIRO_FONT_WEIGHT_NORMAL;
  cairo_font_slant_t slant = CAIRO_FONT_SLANT_NORMAL;
};
Face face_of(const std::string& name) {
  Face f;
  std::size_t i = 0;
  for (; i < name.size() && name[i] != ':'; ++i) {
    if (name[i] == '\\' && i + 1 < name.size()) ++i;
    f.family += name[i];
  }
  while (i < name.size()) {
    const std::size_t next = std::min(name.find(':', i + 1), name.size());
    const std::string part = name.substr(i + 1, next - i - 1);
    if (part == "bold") f.weight = CAIRO_FONT_WEIGHT_BOLD;
    if (part == "italic") f.slant = CAIRO_FONT_SLANT_ITALIC;
    i = next;
  }
  if (f.family.empty()) f.family = "DejaVu Sans";
  return f;
}

}  // namespace

void CairoTextWriter::glyphs(ZR_Rendition* rendition, const ZR_Point*, int count,
                             const ZR_Placed_Glyph* glyphs) {
  if (!renderer_ || !rendition || !*rendition || count <= 0) return;
  const ZR_Text_Attributes& a = rendition->text_attributes();
  if (!(a.size != 0.0f) || !std::isfinite(a.size)) return;
  // Colour and clip, as an outline fill would have them.
  ZR_Contour_Set none = ZR_Contour_Set::make({{{0, 0, 0}, {0, 0, 0}, {0, 0, 0}}});
  if (!none) return;
  renderer_->paint_contours(rendition, {0.0f, 0.0f, 0.0f}, *none, nullptr, true);

  cairo_t* cr = renderer_->context();
  cairo_save(cr);
  const ZR_Font_Data* font = a.font.get();
  const Face face = face_of(font ? font->name.text() : std::string());
  const std::string& family = face.family;
  cairo_select_font_face(cr, family.c_str(), face.slant, face.weight);
  // Glyph space (y down, in ems) to device units: widths by |size| times the
  // width scale along the writing direction, heights by size across it.
  const double s = a.size, w = std::fabs(a.size) * a.scale;
  const double c = std::cos(a.rotation), n = std::sin(a.rotation);
  cairo_matrix_t m;
  cairo_matrix_init(&m, w * c, w * n, s * n, -s * c, 0, 0);
  cairo_set_font_matrix(cr, &m);
  cairo_scaled_font_t* font_used = cairo_get_scaled_font(cr);

  std::string utf8;
  std::vector<cairo_glyph_t> shown;
  std::vector<cairo_text_cluster_t> clusters;
  for (int i = 0; i < count; ++i) {
    const std::size_t before = utf8.size();
    append_utf8(utf8, glyphs[i].character);
    cairo_glyph_t* found = nullptr;
    int found_count = 0;
    if (cairo_scaled_font_text_to_glyphs(
            font_used, 0, 0, utf8.c_str() + before, static_cast<int>(utf8.size() - before), &found,
            &found_count, nullptr, nullptr, nullptr) != CAIRO_STATUS_SUCCESS ||
        found_count != 1) {
      // Nothing to show for it: its bytes join the next cluster's text.
      if (found) cairo_glyph_free(found);
      if (!clusters.empty()) clusters.back().num_bytes += static_cast<int>(utf8.size() - before);
      continue;
    }
    cairo_glyph_t g = found[0];
    cairo_glyph_free(found);
    g.x = glyphs[i].origin.x;
    g.y = glyphs[i].origin.y;
    shown.push_back(g);
    clusters.push_back({static_cast<int>(utf8.size() - before), 1});
  }
  if (!shown.empty()) {
    // Bytes of leading characters without a glyph belong to the first cluster.
    int bytes = 0;
    for (const cairo_text_cluster_t& k : clusters) bytes += k.num_bytes;
    clusters.front().num_bytes += static_cast<int>(utf8.size()) - bytes;
    cairo_show_text_glyphs(cr, utf8.c_str(), static_cast<int>(utf8.size()), shown.data(),
                           static_cast<int>(shown.size()), clusters.data(),
                           static_cast<int>(clusters.size()), cairo_text_cluster_flags_t(0));
    ++strings_;
    if (cairo_surface_get_type(cairo_get_target(cr)) == CAIRO_SURFACE_TYPE_SVG) {
      double x = glyphs[0].origin.x, y = glyphs[0].origin.y, dx = c, dy = n;
      cairo_user_to_device(cr, &x, &y);
      cairo_user_to_device_distance(cr, &dx, &dy);
      shown_.push_back(
          {utf8, family, x, y, std::fabs(s), std::atan2(dy, dx) * 180 / 3.14159265358979323846});
    }
  }
  cairo_restore(cr);
}

std::string CairoTextWriter::svg_text() const {
  if (shown_.empty()) return {};
  auto escaped = [](const std::string& text) {
    std::string out;
    for (char ch : text) {
      if (ch == '<')
        out += "&lt;";
      else if (ch == '>')
        out += "&gt;";
      else if (ch == '&')
        out += "&amp;";
      else if (ch == '"')
        out += "&quot;";
      else if (static_cast<unsigned char>(ch) >= 0x20 || ch == '\t')
        out.push_back(ch);
    }
    return out;
  };
  std::string out = "<g fill-opacity=\"0\" xml:space=\"preserve\">\n";
  char number[160];
  for (const Shown& t : shown_) {
    std::snprintf(number, sizeof number,
                  "<text x=\"%.3f\" y=\"%.3f\" font-size=\"%.3f\" transform=\"rotate(%.4f %.3f "
                  "%.3f)\"",
                  t.x, t.y, t.size, t.degrees, t.x, t.y);
    out += number;
    out += " font-family=\"" + escaped(t.family) + "\">" + escaped(t.utf8) + "</text>\n";
  }
  return out + "</g>\n";
}

bool add_svg_text(const std::string& path, const std::string& svg_text, std::string* error) {
  if (svg_text.empty()) return true;
  std::stringstream whole;
  {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
      if (error) *error = "cannot read " + path + ": " + std::strerror(errno);
      return false;
    }
    whole << in.rdbuf();
  }
  std::string text = whole.str();
  const std::size_t end = text.rfind("</svg>");
  if (end == std::string::npos) {
    if (error) *error = path + " is not a complete SVG file";
    return false;
  }
  text.insert(end, svg_text);
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) {
    if (error) *error = "cannot write " + path + ": " + std::strerror(errno);
    return false;
  }
  return true;
}

}  // namespace DL
