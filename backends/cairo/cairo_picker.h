// Picking: which drawable of a display list shows at a point of its view.
//
// `CairoPicker` is a selecting renderer ("Is Selector" is set on its option
// source). `pick` narrows the list's view to the few pixels around the point,
// at the same scale, and redraws it through the selection traversal into a
// small cairo picture. After each action call it looks at the centre pixel:
// if the call painted it, the drawable the list named as being drawn
// (`option_source->selector_drawable`) is under the point, and the picture is
// wiped for the next one. Since later drawables draw later, the last hit is the
// one on top. Every hit test is thus exactly the renderer's own painting: line
// weights, fills, arcs, images; a text stands for its box, as the selection
// traversal draws it.
//
// Inside a nested list the drawable reported is the nested list's own
// primitive (a line of a symbol), not the DrawableDisplayList that shows it.
//
// `tolerance` pixels on each side of the point count as under it: the centre
// pixel of a picture 2 * tolerance + 1 wide is tested, with lines drawn one
// pixel wider on each side (by a line weight raised by 2 * tolerance) so that
// a thin line near the point is found.
#pragma once

#include <memory>

#include "backends/cairo/cairo_renderer.h"
#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL {

// The picker described above.
class CairoPicker : public ZR_Renderer {
 public:
  CairoPicker();
  ~CairoPicker() override;

  // The topmost drawable of `list` painted within `tolerance` pixels of the
  // screen point (x, y) (screen units of the list, y as the list counts it), or
  // null. The list's view, renderer and selector are as they were afterwards.
  // The list's renderer must be set (its options are copied), and its view too.
  const Drawable* pick(DisplayList& list, int x, int y, int tolerance = 2);

  // Used by the entries; not for hosts.
  struct Access;

 private:
  friend struct Access;
  void check();

  std::unique_ptr<CairoCanvas> canvas_;
  const Drawable* hit_ = nullptr;
  int centre_ = 0;
  int widen_ = 0;
};

}  // namespace DL
