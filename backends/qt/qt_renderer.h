// A renderer that paints through a QPainter.
//
// `QtRenderer` implements every action entry of `ZR_Renderer` on a painter
// the host owns (on a QImage, a widget, a printer). It reads the device values
// as `CairoRenderer` does, so a display list draws the same picture through
// either:
//
// - Orientation. Device units are pixels of the painter's device. With
//   `QtOrientation::y_up` (the default) device (x, y) is the pixel in column x
//   and row height - 1 - y from the top; `y_down` puts device y straight into
//   the rows. A device point stands for the centre of its pixel. The renderer
//   draws with the painter's transform set to the identity and converts every
//   point itself, so a host transform on the painter is replaced.
// - Colour: the rendition's colour (0x00RRGGBB), or the colour an entry passes
//   (`dot`, `polygon`, the ellipse entries), opaque.
// - Dots fill their pixel. Polylines are stroked with the line weight (at least
//   1), square caps and mitred joins up to a weight of 2, round above; one
//   point is a dot. Polymarkers are crosses five pixels across, one unit wide.
// - Polygons are filled even-odd; triangle strips as the union of their
//   triangles. Gouraud strips interpolate the vertex colours over each
//   triangle (barycentric, per pixel of the part on the device); textured
//   strips are drawn as Gouraud strips (the texture words are not read). A
//   strip below three points is a one-unit line.
// - Ellipses: the point of parameter t is centre + R(rotation)(rx cos t,
//   ry sin t); the sweep runs from start up to end (an end below the start is
//   lifted by whole turns). Arcs are stroked, pies filled (a whole turn or more
//   is the whole ellipse). The curve is a polyline fine enough that it strays
//   less than a tenth of a pixel from the true one. A radius of 0 makes a
//   segment (stroked) or a point.
// - Images: top-left corner on the device point, scaled to their world size
//   under the outer list's scale after `set_outer_list` (smoothly when shrunk
//   or enlarged under 4x), else one pixel per image pixel.
// - Nested lists: after `set_outer_list(&list)`, entries drawn under any
//   other rendition are also cut to the complex clip `list.rendition` carries
//   at that moment (nested/outer_view.h), as the cairo renderer does.
// - Clips: `_clipped` entries cut to the hard clip (inclusive, whole pixels);
//   every entry cuts to the rendition's complex clip (even-odd) whenever the
//   rendition carries one, whatever `options.complex_clip` says (as the cairo
//   renderer does). The clip last set on the painter is remembered.
// - Text: the renderer is a glyph sink (`ZR_Glyph_Sink`): a text engine (the
//   FreeType engine, `set_sink(&renderer)`) hands it the placed outlines of a
//   string, which it fills even-odd in the rendition's colour, cut to the hard
//   clip and the complex clip.
// - Draft mode (`set_draft(true)`): no antialiasing, every line one pixel wide,
//   Gouraud strips flat in the first vertex's colour: a quick first picture of
//   a slow view, as the viewer's draft renderer draws one.
//
// Geometry is cut to a guard box, the device grown by 4096 units on each side,
// before it reaches Qt, whose rasterizer works in 16.16 fixed point: device
// values reach the int limits when a view is zoomed far in. Nothing that can
// be seen changes (but for lines over 4096 units wide).
//
// Differences from the cairo picture, all at edges: Qt clips to paths without
// antialiasing, and its coverage of antialiased edges differs from cairo's by
// a few levels. The test in tests/backends/qt_renderer_test.cpp bounds them.
#pragma once

#include <QPainter>
#include <QPainterPath>

#include "foundation/rendering.h"
#include "nested/outer_view.h"

namespace DL {

// Which way device y runs on the device: up from the bottom row, or down.
enum class QtOrientation { y_up, y_down };

// The renderer described above.
class QtRenderer : public ZR_Renderer, public ZR_Glyph_Sink {
 public:
  // Paints through `painter` (not owned), on a device `height` pixels high.
  // While the painter is null or not active, every entry draws nothing.
  QtRenderer(QPainter* painter, int height, QtOrientation orientation = QtOrientation::y_up);
  ~QtRenderer() override;
  QtRenderer(const QtRenderer&) = delete;
  QtRenderer& operator=(const QtRenderer&) = delete;

  QPainter* painter() const { return painter_; }              // the painter painted through
  int height() const { return height_; }                      // the device's height in pixels
  QtOrientation orientation() const { return orientation_; }  // which way device y runs

  // Paints through another painter, on a device `height` pixels high; forgets
  // the clip.
  void set_painter(QPainter* painter, int height);

  // Whether the device clips to complex clips by itself (it does; the flag
  // only tells the list whether to prune groups by the clip as well).
  void set_complex_clip_supported(bool on) { options.complex_clip = on; }

  // Draft mode: see the file comment. Off by default.
  void set_draft(bool on);
  bool draft() const { return draft_; }  // whether draft mode is on

  // The list being drawn, whose complex clip cuts what the lists nested in it
  // draw (unless `cut_nested` is false) and whose scale sizes images; null
  // (the default) for none. Not owned: it must outlive the draws made while
  // it is set.
  void set_outer_list(const DL::DisplayList* list, bool cut_nested = true) {
    outer_view_.set_list(list, cut_nested);
  }

  // Forgets the clip believed to be on the painter; call after changing the
  // painter's clip or state behind the renderer's back.
  void forget_clip();

  // Fills `glyphs` (contours in device units around `origin`, even-odd) in
  // `color`, or the rendition's colour when null; cut to the hard clip when
  // `clipped`, and to the complex clip.
  void paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                      const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color, bool clipped);

  // -- ZR_Glyph_Sink: fills each outline, clipped ---------------------------
  void glyphs(ZR_Rendition* rendition, const ZR_Point* start, int count,
              const ZR_Placed_Glyph* glyphs) override;

  // The box geometry is cut to before it reaches Qt, in device units.
  struct Guard {
    double x0;  // left edge
    double x1;  // right edge
    double y0;  // lowest device y
    double y1;  // highest device y
    // Whether the device point (x, y) lies in the box, edges included.
    bool inside(double x, double y) const { return x >= x0 && x <= x1 && y >= y0 && y <= y1; }
  };
  const Guard& guard() const { return guard_; }  // the box now in force

  // Used by the entry functions; not for hosts.
  struct Access;

 private:
  friend struct Access;

  // The pixel-space point of device (x, y): column and row from the top, the
  // pixel's centre at +0.5.
  QPointF to_pixel(double x, double y) const {
    return {x + 0.5, orientation_ == QtOrientation::y_up ? height_ - 0.5 - y : y + 0.5};
  }
  // Sets the clip an entry needs: the hard clip when `clipped`, and the
  // complex clip when present.
  void use_clip(ZR_Rendition* rendition, bool clipped);
  QColor color_of(ZR_Rendition* rendition, const ZR_RGB32* color) const;

  QPainter* painter_;
  int height_;
  QtOrientation orientation_;
  bool draft_ = false;
  // The clip now on the painter.
  bool clip_known_ = false;
  bool clip_has_rect_ = false;
  ZR_Int_Rectangle clip_rect_{};
  ZR_Contour_Set clip_contours_;  // held, so its address cannot be reused meanwhile
  // The outer clip on the painter, or `clip_nothing_` when the entry lies
  // wholly outside it (see `set_outer_list`).
  ZR_Contour_Set clip_outer_;
  bool clip_nothing_ = false;
  DL::OuterView outer_view_;
  Guard guard_{0, 0, 0, 0};  // set with the painter, from its device's size
};

}  // namespace DL
