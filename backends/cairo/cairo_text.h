// Text on a cairo renderer: a text engine that paints what another engine
// shapes, and stands in for strings too small to read.
//
// `CairoTextPainter` wraps a text engine (the FreeType engine, say) and is the
// glyph sink that engine draws into: the host makes the painter the list's
// text engine and the sink of the inner engine (`set_sink(&painter)`). Every
// measure goes straight to the inner engine. A draw whose text size is at
// least `greeking_size` device units goes to the inner engine, whose placed
// glyphs come back here and are filled through the renderer's
// `paint_contours`, cut to the hard clip and, when the renderer clips to them,
// to the complex clip.
//
// Greeking. A string whose size is below `greeking_size` (4 units by default:
// below that no letter can be told from another) is not shaped at all: the
// painter measures its box with the inner engine and fills the lower 60% of
// it, from the baseline toward the top, in the text's colour. The reader
// sees where the labels are and how long they are, and the draw costs one
// measure and one fill instead of an outline per character.
//
// Without a renderer (`set_renderer(nullptr)`) draws paint nothing. The
// renderer is not counted: the host keeps it alive while it is set.
#pragma once

#include "backends/cairo/cairo_renderer.h"
#include "foundation/rendering.h"

namespace DL {

// The text painter described above.
class CairoTextPainter : public ZR_Text_Engine, public ZR_Glyph_Sink {
 public:
  // Wraps `inner` (referenced; must not be null).
  explicit CairoTextPainter(ZR_Text_Engine* inner);
  ~CairoTextPainter() override;
  CairoTextPainter(const CairoTextPainter&) = delete;
  CairoTextPainter& operator=(const CairoTextPainter&) = delete;

  // The device the glyphs go to: a cairo renderer, or a draft renderer.
  void set_renderer(ContourPainter* renderer) { renderer_ = renderer; }
  ContourPainter* renderer() const { return renderer_; }  // null for none
  // Text below this size, in device units, is greeked; 0 greeks nothing.
  void set_greeking_size(float size) { greeking_size_ = size; }
  float greeking_size() const { return greeking_size_; }  // see set_greeking_size
  // Strings drawn as glyphs and as greeked boxes since construction.
  long drawn_strings() const { return drawn_; }
  long greeked_strings() const { return greeked_; }  // see drawn_strings

  // -- ZR_Glyph_Sink ----------------------------------------------------------
  void glyphs(ZR_Rendition* rendition, const ZR_Point* start, int count,
              const ZR_Placed_Glyph* glyphs) override;

  // -- ZR_Text_Engine: draws as above, the rest forwarded --------------------
  ZR_Font prepare_font(ZR_Font* font) override;
  void draw_unicode_text(ZR_Rendition* rendition, const ZR_Point* point, const unsigned short* text,
                         int length) override;
  void draw_multibyte_text(ZR_Rendition* rendition, const ZR_Point* point,
                           const unsigned char* text, int length) override;
  ZR_Contour_Set character_contour(ZR_Rendition* rendition, unsigned short character,
                                   ZR_Character_Metrics* metrics) override;
  void font_metrics(ZR_Rendition* rendition, ZR_Font_Metrics* metrics) override;
  void measure_unicode_text(ZR_Rendition* rendition, const ZR_Point* start,
                            const unsigned short* text, int length, ZR_Point* corners, int flags,
                            ZR_Text_Detail* detail) override;
  void measure_multibyte_text(ZR_Rendition* rendition, const ZR_Point* start,
                              const unsigned char* text, int length, ZR_Point* corners, int flags,
                              ZR_Text_Detail* detail) override;

 private:
  bool small(ZR_Rendition* rendition) const;
  // Fills the lower part of the box `corners` (engine order).
  void paint_greeked(ZR_Rendition* rendition, const ZR_Point* corners);

  ZR_Text_Engine* inner_;
  ContourPainter* renderer_ = nullptr;
  float greeking_size_ = 4.0f;
  long drawn_ = 0;
  long greeked_ = 0;
};

}  // namespace DL
