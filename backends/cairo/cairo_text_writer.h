// Text kept as text on a vector canvas (PDF, SVG).
//
// The text painter fills every glyph's outline: right on a raster, but a PDF
// or SVG then holds shapes, not characters, and no reader can search or
// select its labels. `CairoTextWriter` is a glyph sink to use instead while a
// vector canvas is drawn: the host makes it the sink of the engine that
// shapes (the FreeType engine) for that draw. Each draw's placed glyphs are
// shown with cairo's `show_text_glyphs`: the characters as UTF-8, one cluster
// a glyph, so the file carries the text and a subset of the font.
//
// Layout stays the shaping engine's: each glyph goes where the engine placed
// it, at the rendition's size, width scale and rotation (a negative size
// flips on y, as the engine's outlines do). The face is found by the font's
// name (`ZR_Font_Data::name`, "DejaVu Sans" for the default font) through
// cairo's own font selection, which goes through fontconfig as the FreeType
// engine does (a name ending in ":bold" or ":italic", as fontconfig
// patterns do, asks for that weight or slant); a font given only by file is
// shown in the default family.
//
// SVG: cairo's SVG surface writes glyphs as shapes (a symbol a glyph, a use
// a character), whatever it is given. So the writer also keeps every string
// it shows, and `svg_text` gives them as SVG text, transparent, each over
// its glyphs: the host puts it before the file's closing tag
// (`add_svg_text`), and the text is found and selected as in a PDF.
//
// Colour and clips: before the glyphs, the renderer fills an empty contour
// set under the same rendition, which leaves the context's source colour and
// clip (hard clip, complex clip) set for them; the text is then cut as an
// outline would be.
//
// Cost: a cairo scaled font is looked up per draw and each character is
// mapped to its glyph through it; far slower than an outline fill per
// glyph on a raster, which is why it is meant for PDF and SVG only.
#pragma once

#include <string>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "foundation/rendering.h"

namespace DL {

// The glyph sink described above.
class CairoTextWriter : public ZR_Glyph_Sink {
 public:
  // Shows glyphs on the context of `renderer` (not counted: the host keeps it
  // alive while the writer is a sink).
  explicit CairoTextWriter(CairoRenderer* renderer) : renderer_(renderer) {}

  // Strings shown since construction.
  long strings() const { return strings_; }

  void glyphs(ZR_Rendition* rendition, const ZR_Point* start, int count,
              const ZR_Placed_Glyph* glyphs) override;

  // The strings shown so far as one SVG group of transparent text elements,
  // in the surface's coordinates; empty when none was shown.
  std::string svg_text() const;

 private:
  // A string as shown, in surface coordinates (y down).
  struct Shown {
    std::string utf8;    // the characters
    std::string family;  // the font's family
    double x, y;         // the first glyph's origin
    double size;         // the em
    double degrees;      // the writing direction, clockwise from +x
  };
  CairoRenderer* renderer_;
  long strings_ = 0;
  std::vector<Shown> shown_;
};

// Puts `svg_text` before the closing tag of the SVG file at `path`; false
// with a one-line reason when the file cannot be read or written.
bool add_svg_text(const std::string& path, const std::string& svg_text, std::string* error);

}  // namespace DL
