// A coarse, fast renderer for a first picture of a view.
//
// `DraftRenderer` writes straight into the pixels of a cairo image surface
// (ARGB32 or RGB24), opaque and without antialiasing. Cairo spends 0.6 to 18
// microseconds on a primitive (a path, a clip, a stroke or a fill, a gradient
// per Gouraud segment); the draft spends some tens of nanoseconds on a dot, a
// short line or a small triangle, so a view of 1e5 primitives shows within a
// frame. Its picture is a draft: the exact one, drawn by `CairoRenderer`,
// should follow.
//
// Device conventions are those of `CairoRenderer`: device units are pixels,
// a device point is the centre of its pixel, `DeviceOrientation::y_up` puts
// device y in row height - 1 - y, `y_down` in row y. `_clipped` entries cut
// to the rendition's hard clip (inclusive), `_unclipped` entries to nothing
// but the surface. What each entry draws:
//
// - Dots: their one pixel, in the colour passed or the rendition's colour.
// - Polylines, Gouraud polylines, arcs: one-pixel lines (Bresenham) between
//   the points, whatever the line weight; a Gouraud segment takes the colour
//   of its first vertex. Each segment is cut to the clip rectangle (in double,
//   from the int coordinates, which it holds exactly) before it is stepped,
//   so a segment far off the surface costs a test and a segment of any length
//   at most one step per pixel of the rectangle. Cut segments end on the
//   nearest pixel centre, so a line may be off by one pixel from the uncut one.
// - Polymarkers: a cross of two diagonals five pixels across, as cairo's.
// - Polygons: filled by the even-odd rule, a pixel being in when its centre is
//   (edges half-open in y). Triangle strips: each triangle so; Gouraud and
//   textured strips flat, each triangle in its first vertex's colour. A strip
//   of fewer than three points is a line.
// - Ellipses: arcs as a polyline of 8 to 128 segments, pies as the filled
//   polygon of those points and the centre; a pie of a whole turn or more
//   is the whole ellipse. A shape wholly off the clip is skipped first.
// - Images: a flat box of the image's size (scaled as `CairoRenderer` scales
//   it) in the colour of its middle pixel, top-left corner on the device point.
// - Text: engines paint glyph contours through `paint_contours`, filled flat
//   even-odd as polygons are.
// - Complex clips: a draft is cut to the bounding box of the rendition's
//   complex clip contours, not to the contours (the library still skips
//   groups wholly outside them); the exact picture then cuts exactly. The box
//   is computed once per clip set (the set is held, so its address is not
//   reused meanwhile). After `set_outer_list`, entries of nested lists
//   are cut to the box of the outer list's complex clip where they cross it,
//   and dropped where they lie wholly outside it (nested/outer_view.h).
//
// The renderer holds a reference on the surface. It flushes it when made and
// writes its pixels from then on; call `mark_dirty` before cairo reads or
// draws on the surface again, and before drawing with the draft again after
// cairo drew, call `flush`. A surface of another kind or format gets nothing
// (`ok` false).
#pragma once

#include <cairo.h>

#include <cstdint>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "foundation/rendering.h"

namespace DL {

// The draft renderer described above.
class DraftRenderer : public ZR_Renderer, public ContourPainter {
 public:
  // Writes into `surface` (referenced), flushed first.
  explicit DraftRenderer(cairo_surface_t* surface,
                         DeviceOrientation orientation = DeviceOrientation::y_up);
  ~DraftRenderer() override;
  DraftRenderer(const DraftRenderer&) = delete;
  DraftRenderer& operator=(const DraftRenderer&) = delete;

  // Whether the surface is an image surface the draft can write.
  bool ok() const { return data_ != nullptr; }
  cairo_surface_t* surface() const { return surface_; }           // the surface written
  int width() const { return width_; }                            // its width in pixels
  int height() const { return height_; }                          // its height in pixels
  DeviceOrientation orientation() const { return orientation_; }  // which way device y runs

  // The list being drawn, as `CairoRenderer::set_outer_list`.
  void set_outer_list(const DisplayList* list, bool cut_nested = true) {
    outer_view_.set_list(list, cut_nested);
  }

  // Paints every pixel of the surface in `color`, opaque.
  void clear(ZR_RGB32 color);
  // Tells cairo that the pixels changed behind its back.
  void mark_dirty();
  // Lets cairo finish what it drew on the surface before the draft writes to it.
  void flush();

  // The hook for text, as `CairoRenderer::paint_contours`: `glyphs` are
  // contours in device units around `origin`, filled even-odd in `color` (or
  // the rendition's colour), cut to the hard clip when `clipped`.
  void paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                      const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color,
                      bool clipped) override;

  // Used by the entry functions; not for hosts.
  struct Access;

 private:
  friend struct Access;

  // The pixel rectangle an entry may write (columns and rows, inclusive);
  // empty when x0 > x1 or y0 > y1.
  struct Box {
    long long x0, x1, y0, y1;
  };
  // A point in pixel space: column, row (from the top).
  struct Pt {
    double x, y;
  };

  // The box for an entry: the surface, cut to the hard clip when `clipped`
  // and to the complex clip's bounding box when the rendition has one.
  Box box_for(ZR_Rendition* rendition, bool clipped);
  ZR_RGB32 color_of(ZR_Rendition* rendition, const ZR_RGB32* color) const {
    const ZR_RGB32 c = color ? *color : (rendition && *rendition ? rendition->color() : 0);
    return 0xff000000u | (c & 0xffffffu);
  }
  // The pixel box around the contours of `set`, kept in `box` for the set
  // held in `cached`.
  const Box& contour_box(ZR_Contour_Set& cached, Box& box, ZR_Contour_Set_Data* set);
  Pt to_pixel(const ZR_DCI_Point& p) const;
  Pt to_pixel(double x, double y) const;

  void put(long long x, long long y, std::uint32_t c) {
    reinterpret_cast<std::uint32_t*>(data_ + y * stride_)[x] = c;
  }
  void pixel(const Box& b, double x, double y, std::uint32_t c);
  void line(const Box& b, Pt a, Pt z, std::uint32_t c);
  // Fills the polygon `poly_` (with contour starts `starts_`) even-odd.
  void fill(const Box& b, std::uint32_t c);
  void fill_triangle(const Box& b, const Pt& a, const Pt& m, const Pt& z, std::uint32_t c);

  cairo_surface_t* surface_;
  DeviceOrientation orientation_;
  unsigned char* data_ = nullptr;
  int stride_ = 0;
  int width_ = 0;
  int height_ = 0;
  // The complex clip whose box is cached, and that box (in pixels).
  ZR_Contour_Set clip_set_;
  Box clip_box_{0, -1, 0, -1};
  // The same for the outer clip (see `set_outer_list`).
  ZR_Contour_Set outer_set_;
  Box outer_box_{0, -1, 0, -1};
  OuterView outer_view_;
  // Scratch, kept between calls so that fills do not allocate.
  std::vector<Pt> poly_;
  std::vector<std::size_t> starts_;
  std::vector<double> crossings_;
};

}  // namespace DL
