// Picking with Qt: which drawable of a display list shows at a point of its view.
//
// `QtPicker` is a selecting renderer ("Is Selector" is set on its option
// source), built as `CairoPicker` is: `pick` narrows the list's view to the
// few pixels around the point, at the same scale, and redraws it through the
// selection traversal into a small picture painted by a `QtRenderer`. After
// each action call it looks at the centre pixel: if the call painted it, the
// drawable the list names as being drawn (`option_source->selector_drawable`)
// is under the point. The last hit is the one on top. A hit test is thus the
// renderer's own painting (line weights, fills, arcs, images); a text stands
// for its box, as the selection traversal draws it.
//
// `tolerance` pixels on each side of the point count as under it: lines are
// drawn 2 * tolerance wider so a thin line near the point is found.
#pragma once

#include <QImage>
#include <memory>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"
#include "foundation/rendering.h"

namespace DL {

class QtRenderer;

// The picker described above.
class QtPicker : public ZR_Renderer {
 public:
  QtPicker();
  ~QtPicker() override;
  QtPicker(const QtPicker&) = delete;
  QtPicker& operator=(const QtPicker&) = delete;

  // The topmost drawable of `list` painted within `tolerance` pixels (0 to 64)
  // of the screen point (x, y) (screen units of the list, y as the list counts
  // it), or null. The list's view, renderer, hard clip and selector are as they
  // were afterwards. The list's renderer and view must be set.
  const Drawable* pick(DisplayList& list, int x, int y, int tolerance = 2);

  // Used by the entries; not for hosts.
  struct Access;

 private:
  friend struct Access;
  void check();

  QImage picture_;
  QPainter* painter_ = nullptr;  // on picture_ during a pick
  QtRenderer* inner_ = nullptr;  // counted, during a pick
  const Drawable* hit_ = nullptr;
  int centre_ = 0;
  int widen_ = 0;
};

}  // namespace DL
