// What text painters paint glyphs through: a device that fills contour sets.
//
// `CairoTextPainter` hands the glyphs of every string it draws to one of these:
// the cairo renderer for exact pictures, the draft renderer for the viewer's
// quick ones. A plain interface of one operation; the painter does not own it.
#pragma once

#include "foundation/rendering.h"

namespace DL {

// The interface described above.
class ContourPainter {
 public:
  // Fills `glyphs` (contours in device units around `origin`, read even-odd,
  // y growing as device y does) in `color`, or the rendition's colour when
  // `color` is null, cut to the hard clip when `clipped` is true.
  virtual void paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                              const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color,
                              bool clipped) = 0;

 protected:
  ~ContourPainter() = default;  // not deleted through this interface
};

}  // namespace DL
