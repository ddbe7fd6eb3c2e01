// Labels for the viewer: a `DL::Text` whose world rectangle is measured by the
// text engine, so that the tree culls it exactly.
//
// The label's height is its em (the font's size) in world units. Strings come
// as UTF-8; bytes that are not valid UTF-8 are read as Latin-1, which is what
// older DXF files hold. Characters beyond the 16-bit range become U+FFFD.
#pragma once

#include <string>
#include <vector>

#include "displaylist/display_list.h"
#include "foundation/rendering.h"
#include "text/text.h"

namespace DL::dxf {

// UTF-8 (Latin-1 where not valid) to UTF-16 code units.
std::u16string to_utf16(const std::string& text);

// The four corners of `text` set at `em` world units, turned by `rotation`
// radians about `origin`, in the engine's order (lower edge first). Measured
// unturned at the origin, then turned in double, so large world coordinates
// keep their precision.
void measure_label(ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text,
                   double em, double rotation, DL::DoublePoint origin, DL::DoublePoint corners[4]);

// The width of `text` at `em`, along its writing direction.
double label_width(ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text,
                   double em);

// The glyphs of `text` as outlines, for text that a `Text` cannot show: set
// at `em` world units, each glyph's width and advance times `width_factor`,
// each advance times `tracking` too (the glyphs' own widths unchanged),
// slanted by `oblique` radians (positive leans the tops forward, along the
// writing direction), turned by `rotation` about `origin` (the start of the
// baseline). One entry a glyph that has an outline, each a list of closed
// contours in world units. The engine gives outlines at the font's nominal
// size; they are scaled and slanted here in double, so large texts keep
// their precision. Empty without an engine or for a blank string.
std::vector<std::vector<std::vector<DL::DoublePoint>>> label_outlines(
    ZR_Text_Engine* engine, const ZR_Font& font, const std::u16string& text, double em,
    double width_factor, double oblique, double rotation, DL::DoublePoint origin,
    double tracking = 1.0);

// A new Text for `list` (not added) with its measured bounds; null for an
// empty string. `bounds` gets the world rectangle, rounded outward.
DL::Text* make_label(DL::DisplayList& list, ZR_Text_Engine* engine, const ZR_Font& font,
                     ZR_RGB32 color, DL::DoublePoint origin, double em, double rotation,
                     const std::u16string& text, DL::WorldBounds& bounds);

}  // namespace DL::dxf
