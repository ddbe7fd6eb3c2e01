// Renderers that stand in front of another renderer for the viewer: one that
// counts what a draw sends to the device, and one that finds the primitive
// under the pointer through the selection traversal.
//
// A tap is a `ZR_Renderer` whose every action entry calls the same entry of an
// inner renderer and then `after_call` with the number of device points the
// call carried (the count of a point list; 1 for a dot, an ellipse's centre or
// an image's corner). The display list only ever sees the tap.
#pragma once

#include <cairo.h>

#include <string>
#include <type_traits>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "displaylist/display_list.h"
#include "drawables/drawable.h"
#include "foundation/rendering.h"

namespace DL {
class DrawableDisplayList;
}

namespace dlview {

// Counted like every renderer: whoever makes one takes a reference on it.
class RendererTap : public ZR_Renderer {
 public:
  // Forwards to `inner`, which it holds a reference on.
  explicit RendererTap(ZR_Renderer* inner);
  ~RendererTap() override;
  RendererTap(const RendererTap&) = delete;
  RendererTap& operator=(const RendererTap&) = delete;

  ZR_Renderer* inner() const { return inner_; }

 protected:
  // Runs after each forwarded call; `points` as in the file comment.
  virtual void after_call(int points) = 0;

 private:
  template <auto Entry, class Signature>
  struct Forward;
  template <auto Entry>
  void hook();

  ZR_Renderer* inner_;
};

// Counts the calls a draw makes: one per primitive for the primitives that
// draw in one call (all those of the viewer's drawings).
class CountingTap final : public RendererTap {
 public:
  using RendererTap::RendererTap;
  long long calls = 0;

 protected:
  void after_call(int) override { ++calls; }
};

// What the selection traversal found under the pointer.
struct Pick {
  DL::Drawable* drawable = nullptr;  // null: nothing there
  int vertices = 0;                  // device points its draw sent, over all its calls
  // The nested lists the drawable was found in, outermost first: empty when
  // it is a drawable of the picked list itself. Its coordinates are those of
  // the innermost nested list; see `NestedPlacement`.
  std::vector<DL::DrawableDisplayList*> path;
};

// Where a nested list's world lies in the outer list's: outer = inner * scale
// + offset per axis, composed along a path of nested lists.
struct NestedPlacement {
  double sx = 1, sy = 1, ox = 0, oy = 0;
  explicit NestedPlacement(const std::vector<DL::DrawableDisplayList*>& path);
  // `b` (inner world) in outer world coordinates, rounded outward.
  DL::WorldBounds to_outer(const DL::WorldBounds& b) const;
  // `b` (outer world) in inner world coordinates; empty when a scale is 0.
  DL::WorldBounds to_inner(const DL::WorldBounds& b) const;
};

// Finds the nested lists of `list` under `rect` (outer world) that show
// `target`, outermost first, into `path`: the topmost (last drawn) of them
// when several do, through nested lists up to 16 deep. Returns false when
// `target` is neither a drawable of `list` near `rect` nor in a nested list.
bool find_nesting(DL::DisplayList& list, const DL::Drawable* target, const DL::WorldBounds& rect,
                  std::vector<DL::DrawableDisplayList*>& path);

// Finds the topmost shown primitive that paints a pixel within `radius` pixels
// of a point of the picture, exactly as the cairo backend would paint it: the
// list's view is kept, and every primitive the selection traversal hands over
// draws into a small transparent surface laid over that neighbourhood, which
// is tested and cleared after each call. The last primitive to touch it wins,
// as it would be drawn on top. Primitives that paint through the text engine
// rather than the action entries are not seen. The list's renderer is put back
// when the pick is done.
class PickTap final : public RendererTap {
 public:
  // The surface covers the square of side 2 * radius + 1 around (column, row)
  // of a picture `height` rows high, y up as the viewer draws it.
  PickTap(int column, int row, int height, int radius);
  ~PickTap() override;

  // Runs the selection traversal of `list` over the neighbourhood.
  Pick run(DL::DisplayList& list);

 protected:
  void after_call(int points) override;

 private:
  static cairo_surface_t* make_surface(int column, int row, int radius);
  static ZR_Renderer* make_inner(cairo_surface_t* surface, int height);
  cairo_surface_t* surface_;  // owned by the inner renderer's context
  int side_;
  int column_, row_;
  const void* current_ = nullptr;  // the drawable now drawing
  int current_points_ = 0;
  Pick hit_;
};

// One line about a drawable: "Dot bounds (x0,y0)-(x1,y1) layer NAME vertices N",
// with "vectors M" added when the primitive has a vector form. The class name is
// the label of its dump line, so every class names itself.
// `bounds` replaces the drawable's own when given (a drawable in a block, whose
// bounds are shown in the drawing's world).
std::string describe_drawable(const DL::Drawable& drawable, const std::string& layer_name,
                              int vertices, const DL::WorldBounds* bounds = nullptr);

}  // namespace dlview
