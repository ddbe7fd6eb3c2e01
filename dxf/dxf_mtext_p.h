// MTEXT's inline codes, read into paragraphs of styled runs, inside dl_dxf.
// Not installed.
//
// The codes read (each scoped by the braces around it, `{` saving the style
// and `}` restoring it):
//   \P            a new paragraph (\X too: the break of a dimension's text)
//   \C<aci>;      colour by index (0 and 256, BYBLOCK and BYLAYER, give the
//                 entity's colour back); \c<bgr>; a true colour, its low
//                 byte red
//   \f<family>|b1|i1|...;  family, bold, italic (other fields ignored);
//                 \F<file>; an SHX file, its base name taken as the family
//   \H<h>; \H<f>x;  capital height, absolute or a factor on the present one
//   \W<w>; \W<f>x;  width factor;  \T<t>; \T<f>x;  tracking (a factor on
//                 advances);  \Q<degrees>;  oblique angle
//   \L \l, \O \o, \K \k  underline, overline, strike-through on and off
//   \S<a>^<b>; \S<a>/<b>; \S<a>#<b>;  a stacked fraction
//   \~ a space that does not break, \\ \{ \} the characters, \U+XXXX a
//   character; any other code with a value (\A, \p, ...) is passed over up
//   to its ';'.
// Numbers that do not parse, are not finite, or would make a height (against
// the entity's) or a width or tracking factor smaller than 1/1000 or larger
// than 1000 leave the style as it was. Braces nest at most 64
// deep: a deeper pair is passed over, its codes then last to the next '}'
// that closes one of the 64.
#pragma once

#include <string>
#include <vector>

#include "foundation/rendering.h"

namespace DL::dxf {

// How a run looks. About 80 bytes; one per run, not per character.
struct MtextStyle {
  std::string family;    // from \f or \F; empty: the sheet's font
  double height = 0;     // capital height, drawing units
  double width = 1;      // width factor on glyph widths and advances
  double oblique = 0;    // slant of the uprights, radians, positive forward
  double tracking = 1;   // factor on the advances alone
  ZR_RGB32 color = 0;    // 0x00RRGGBB, when `colored`
  bool colored = false;  // false: the entity's colour
  bool bold = false;
  bool italic = false;
  bool underline = false;
  bool overline = false;
  bool strike = false;
  // Whether a `Text` can show it: width, slant and tracking plain.
  bool plain_glyphs() const { return width == 1 && oblique == 0 && tracking == 1; }
};

// A run of text in one style, or a stacked fraction.
struct MtextRun {
  MtextStyle style;
  std::string text;   // UTF-8; a stack's upper part
  std::string below;  // a stack's lower part
  char stack = 0;     // 0: plain text; '/', '^' or '#': a stack of that kind
};

// One paragraph: its runs in order (possibly none).
using MtextParagraph = std::vector<MtextRun>;

// The paragraphs of an MTEXT's contents (%%d, %%p, %%c resolved as in
// text_codes), every run starting from a style of capital height `height`.
std::vector<MtextParagraph> mtext_paragraphs(const std::string& text, double height);

}  // namespace DL::dxf
