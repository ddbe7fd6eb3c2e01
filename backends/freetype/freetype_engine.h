// A text engine on FreeType, with fontconfig to find faces by name.
//
// Fonts. A `ZR_Font` names a face: `file`, when set, is loaded directly;
// otherwise `name` is matched by fontconfig ("DejaVu Sans", "Serif:bold", any
// fontconfig pattern). A null font, and one that can be found nowhere, get the
// default face, DejaVu Sans. `prepare_font` resolves and loads a font once;
// the engine keeps a reference on each font body it has seen, so its cache
// entry can never be confused with a later body at the same address.
//
// Geometry. The rendition's text size is the em height in text points (the
// units of the transform in force), the text scale a factor on widths, the
// rotation an angle in radians, counter-clockwise in text point space. A
// negative size flips the glyphs on y, which keeps them upright in the world
// under a transform whose y factor is negative. A string's box runs from the
// start point along the sum of the advances, from the face's descender to its
// ascender: corner 0 and 1 the lower edge in writing direction, 3 and 2 the
// upper edge. No kerning and no shaping: one glyph per 16-bit character.
//
// Characters. 16-bit strings are UTF-16 code units, one glyph each (a lone
// surrogate shows the face's missing glyph). Multibyte strings are converted
// with the locale in force at the call, by the library's multibyte functions.
// `character_contour` takes a 16-bit character as Unicode.
//
// Outlines. Curves are flattened to a tolerance of 1/250 of the em, so a glyph
// has the same number of points at every size and stays smooth at any zoom.
// Flattened outlines are cached per face in font units, and contour sets per
// face, size and scale, so a repeated character costs one hash lookup. The
// sized cache is dropped whole when it passes 65536 entries.
//
// Drawing. `draw_*_text` place each glyph (turned and moved to its origin) and
// hand them in one call to the sink set with `set_sink`; without a sink a draw
// does nothing. The sink is not owned.
//
// One engine may be shared by several lists and threads: every call takes the
// engine's own lock.
#pragma once

#include <string>

#include "foundation/rendering.h"

namespace DL {

// The text engine described above.
class FreeTypeTextEngine : public ZR_Text_Engine {
 public:
  FreeTypeTextEngine();
  ~FreeTypeTextEngine() override;
  FreeTypeTextEngine(const FreeTypeTextEngine&) = delete;
  FreeTypeTextEngine& operator=(const FreeTypeTextEngine&) = delete;

  // Whether FreeType started and the default face loaded; without it every
  // measure is zero and no character has an outline.
  bool ok() const;
  // The sink that draws receive; null for none. Not owned.
  void set_sink(ZR_Glyph_Sink* sink);
  // A font body naming a face by fontconfig pattern, or by file when `file` is
  // not empty.
  static ZR_Font make_font(const std::string& name, const std::string& file = {});
  // The file of the face a font resolves to; empty when none loads.
  std::string face_file(const ZR_Font& font);

  // Outline lookups served from the sized cache, and those that had to build
  // a contour set (for benchmarks and tests of the cache).
  struct CacheStatistics {
    long hits;    // lookups served from the sized cache
    long misses;  // lookups that built a contour set
  };
  CacheStatistics cache_statistics() const;  // the counts so far

  ZR_Font prepare_font(ZR_Font* font) override;
  void draw_unicode_text(ZR_Rendition* rendition, const ZR_Point* point, const unsigned short* text,
                         int length) override;
  void draw_multibyte_text(ZR_Rendition* rendition, const ZR_Point* point,
                           const unsigned char* text, int length) override;
  // The outline at the rendition's size and scale, unrotated, around the
  // origin; `metrics` gets the box of the outline and the advance, in text
  // points. Null for a character without contours.
  ZR_Contour_Set character_contour(ZR_Rendition* rendition, unsigned short character,
                                   ZR_Character_Metrics* metrics) override;
  // nominal_size: the face's units per em, in which ascent and descent (below
  // zero) are given too: measuring at that size gives widths in font units.
  void font_metrics(ZR_Rendition* rendition, ZR_Font_Metrics* metrics) override;
  void measure_unicode_text(ZR_Rendition* rendition, const ZR_Point* start,
                            const unsigned short* text, int length, ZR_Point* corners, int flags,
                            ZR_Text_Detail* detail) override;
  void measure_multibyte_text(ZR_Rendition* rendition, const ZR_Point* start,
                              const unsigned char* text, int length, ZR_Point* corners, int flags,
                              ZR_Text_Detail* detail) override;

 private:
  struct Impl;
  Impl* impl_;
};

}  // namespace DL
