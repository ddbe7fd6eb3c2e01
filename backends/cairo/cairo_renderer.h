// A renderer that paints on a cairo surface, and a canvas that owns one.
//
// `CairoRenderer` implements every action entry of `ZR_Renderer` on a cairo
// context. What it makes of the device values it is handed:
//
// - Orientation. Device units are pixels. With `DeviceOrientation::y_up` (the
//   default) device y grows upward: device (x, y) is the pixel in column x and
//   row height - 1 - y, counted from the top. A display list maps world y to
//   growing device y, so a drawing whose world has y up shows the right way up.
//   `DeviceOrientation::y_down` puts device y straight into the surface's rows.
//   Either way a device point stands for the centre of its pixel, so one-unit
//   lines on whole coordinates are crisp.
// - Colour: the rendition's colour (0x00RRGGBB); an entry that passes a colour
//   pointer (`dot`, `polygon`, the ellipse entries) paints in that colour instead.
// - Dots fill their one pixel. Polylines are stroked with the rendition's line
//   weight (at least one unit), with square caps and mitred joins up to a weight
//   of 2, round caps and joins above. A polyline of one point is a dot.
// - Polymarkers: a cross of two diagonals five pixels across, one unit wide,
//   at each point.
// - Polygons are filled by the even-odd rule (as contour sets are read).
//   Triangle strips are filled as the union of their triangles. Gouraud strips
//   go through a cairo mesh pattern, one patch per triangle; textured strips
//   are drawn as Gouraud strips with their vertex colours (the texture words
//   are not read). A strip of fewer than three points strokes its points as a
//   one-unit polyline, so it is not lost.
// - Ellipses: the point of parameter t is centre + R(rotation)(rx cos t, ry sin t)
//   in device units, so with y up angles and tilt turn counter-clockwise on the
//   picture. The sweep runs from the start angle upward to the end angle; an end
//   below the start is lifted by whole turns, as the sweep through angle 0
//   that the library means by it. Arcs are stroked with the line weight; pies
//   are filled sectors (a sweep of a whole turn or more is the whole ellipse).
//   Radii keep their sign (a negative radius mirrors, as a negative scale does).
//   When a radius is 0 the shape is a segment or a point: an arc strokes it,
//   a pie strokes it one unit wide, so a collapsed ellipse still shows.
// - Images: the image's top-left corner on the device point (top meaning the
//   picture's top, whatever the orientation), scaled to its world size under
//   the outer list's scale (see `set_outer_list` and nested/outer_view.h),
//   or one pixel per image pixel without them. Shrunk images
//   are filtered (cairo's GOOD filter, a box filter when shrinking), enlarged
//   ones interpolated bilinearly up to 4x and shown as crisp pixels beyond.
//   Only the image pixels the surface shows are copied for cairo, so a deep
//   zoom into a large image costs what the window shows.
// - Clips: `_clipped` entries cut to the rendition's hard clip rectangle
//   (inclusive, whole pixels); `_unclipped` entries cut to nothing but the
//   surface. Every entry also cuts to the rendition's complex clip contours,
//   even-odd, in device units, whenever the rendition carries one. Whether the
//   renderer says so (`options.complex_clip`, set with
//   `set_complex_clip_supported`) only decides who does the work: when it says
//   it supports complex clips, the library leaves every group to cairo; when it
//   does not, the library lifts the clip off groups wholly inside it and skips
//   groups wholly outside, so cairo only clips the groups that cross its edge.
//   The picture is the same either way. The clip last set on the context is
//   remembered, so a run of draws under one clip sets it once.
// - Nested lists: after `set_outer_list(&list)`, entries
//   drawn under any other rendition (the lists nested in `list`) are also cut
//   to the complex clip `list.rendition` carries at that moment (see
//   nested/outer_view.h), so a clip holds for blocks and symbols.
// - Direct writes. A dot costs cairo 0.2 to 1 microsecond (a source pattern,
//   a path, a clip and a fill for one pixel), a marker 5 and a small Gouraud
//   strip 10 (a mesh pattern), which makes a view of 1e5 dots or a city's
//   blocks miss an interactive frame. So when the context's target is an
//   image surface in ARGB32 or RGB24 with no device scale and a device
//   offset of whole pixels (or none), the operator is OVER or SOURCE, the
//   matrix is the renderer's own, and the rendition carries no complex clip
//   (nor an outer clip that crosses the entry), these are written straight
//   into the surface's pixels, cut to the surface and (for `_clipped`
//   entries) to the hard clip:
//   - a dot, a polyline of one point and an ellipse of radii 0: the pixel of
//     the device point set to the opaque colour, exactly what cairo's fill of
//     that pixel gives;
//   - a one-unit polyline whose segments all run along the pixel grid: the
//     whole pixels cairo's stroke covers (through pixel centres, square caps
//     and mitred right-angle joins cover whole pixels), opaque; one that
//     turns back on itself or has a segment of no length goes to cairo;
//   - any other polyline one or two units wide, of up to 64 points, whose
//     joins are mitred with their inner corners within half of each segment
//     (no sharp turn, no turn on a short segment): the exact area of its
//     stroke on each pixel (backends/cairo/coverage_p.h), where cairo's scan
//     converter samples it, within a few levels (20 at most, on edge
//     pixels, 1 on average);
//   - an arc one or two units wide or a pie, of radii not 0 and up to 256
//     chords (within a twentieth of a unit of the curve): the exact area of
//     the chords' stroke (a whole turn as a ring) or fill, within a few
//     levels of cairo's (32 at most on edge pixels, 1.5 on average);
//   - a triangle strip of one colour of up to 256 points: the exact area of
//     its triangles, within 20 levels (2 on average) of cairo's;
//   - a polygon of up to 16 corners whose edges all run along the grid: each
//     pixel blended by a quarter of coverage per quarter of it inside (the
//     lines through its centre split it into quarters wholly in or out), as
//     cairo's fill of such a polygon gives;
//   - a polymarker: each cross blended through the coverage cairo's stroke of
//     one cross gives (found once per antialias mode: device points are
//     pixel centres, so every cross covers its pixels alike), rounded as
//     pixman rounds. Crosses that overlap blend twice where cairo's one
//     stroke of them all covers once;
//   - a Gouraud or textured strip with colours: each triangle fills the
//     pixels whose centres it holds with the colour interpolated there.
//     Cairo's mesh rasterizer (no antialiasing either) gives the same within
//     a few levels (its colours are coarser) and may differ on a pixel
//     along an edge.
//   Blends use pixman's 8-bit arithmetic; where partial blends pile up on
//   one pixel a channel may end a level off cairo's. Everything else (other
//   surfaces, complex clips, every other entry) goes through cairo. The
//   target and the context are checked when a run of direct writes starts;
//   the target is flushed then, and marked dirty when the run ends: before
//   cairo draws through the renderer again, in `forget_clip`, in
//   `flush_direct`, and when the renderer is destroyed.
// - Gouraud polylines: each segment is stroked through a linear gradient
//   from its first vertex's colour to its second's, except (a choice made
//   for speed, `set_flat_short_ramps`) a short segment: no longer than 8
//   pixels or than the line is wide. It is stroked in the colour halfway
//   between its ends, at most half their difference off at its ends; on such
//   a segment the ramp spans a few pixels, partly under its neighbours' caps,
//   and the gradient pattern costs four times the stroke. A polyline one or
//   two units wide (no segment of no length) is written directly when the
//   direct writes may be (see above), each segment the exact area of its own
//   stroke: a short one flat, a longer one each pixel in the ramp's colour at
//   its centre (the projection on the segment, held at its ends, as cairo's
//   gradient gives it), within 20 levels of cairo on an edge pixel.
//
// The context belongs to whoever made it; the renderer keeps its own
// reference. Text engines paint glyphs through `paint_contours`.
#pragma once

#include <cairo.h>

#include <memory>
#include <string>

#include "backends/cairo/contour_painter.h"
#include "foundation/rendering.h"
#include "nested/outer_view.h"

namespace DL {

namespace cairo_detail {
struct PixelWindow;
struct Stamp;
class Coverage;
}  // namespace cairo_detail

// Which way device y runs on the surface: up from the bottom row, or down.
enum class DeviceOrientation { y_up, y_down };

// The renderer described above.
class CairoRenderer : public ZR_Renderer, public ContourPainter {
 public:
  // Paints on `context` (referenced), whose target is `height` pixels high.
  CairoRenderer(cairo_t* context, int height,
                DeviceOrientation orientation = DeviceOrientation::y_up);
  ~CairoRenderer() override;
  CairoRenderer(const CairoRenderer&) = delete;
  CairoRenderer& operator=(const CairoRenderer&) = delete;

  cairo_t* context() const { return cr_; }                        // the context painted on
  DeviceOrientation orientation() const { return orientation_; }  // which way device y runs

  // Whether the device itself clips to the rendition's complex clip.
  void set_complex_clip_supported(bool on) { options.complex_clip = on; }

  // The list being drawn, whose complex clip cuts what the lists nested in it
  // draw (unless `cut_nested` is false) and whose scale sizes images; null
  // (the default) for none. Not owned:
  // it must outlive the draws made while it is set.
  void set_outer_list(const DisplayList* list, bool cut_nested = true) {
    outer_view_.set_list(list, cut_nested);
  }

  // The hook for text: fills `glyphs` (contours in device units around
  // `origin`, read even-odd, y growing as device y does) in `color`, or the
  // rendition's colour when `color` is null, cut to the hard clip when
  // `clipped` is true and to the complex clip as the other entries are.
  void paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                      const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color,
                      bool clipped) override;

  // Forgets the clip believed to be on the context; call after changing the
  // context's clip behind the renderer's back. Ends a run of direct dots.
  void forget_clip();

  // Ends a run of writes straight into the target (marks the target dirty);
  // call before reading the target or drawing on it other than through this
  // renderer. Cheap when there is none.
  void flush_direct();
  // Whether the marks listed under "Direct writes" above may be written
  // straight into an image target (on by default; off, cairo draws
  // everything). The count is of the marks written so: dots, markers, line
  // points, polygons and triangles.
  void set_direct_dots(bool on) {
    if (!on) flush_direct();
    direct_dots_on_ = on;
  }
  long long direct_dots() const { return direct_dots_; }  // see set_direct_dots
  // Whether a Gouraud polyline's short segments are stroked flat (see the
  // file comment; on by default; off, every segment gets its gradient).
  void set_flat_short_ramps(bool on) { flat_short_ramps_ = on; }

  // Used by the entry functions and the direct writes; not for hosts.
  struct Access;
  struct Direct;

 private:
  friend struct Access;
  friend struct Direct;

  // Installs the clip an entry needs: the hard clip when `clipped`, the
  // rendition's complex clip when present, and the outer clip where it reaches.
  void use_clip(ZR_Rendition* rendition, bool clipped);
  void set_color(ZR_Rendition* rendition, const ZR_RGB32* color);
  // Writes a dot straight into the target when it may (see the file comment);
  // false when cairo must draw it.
  bool direct_dot(ZR_Rendition* rendition, bool clipped, const ZR_DCI_Point& point,
                  const ZR_RGB32* color);
  // Starts a run of direct dots: false when the target or the context's state
  // does not allow them.
  bool open_direct();
  // The pixels an entry drawn under `rendition` may write straight into the
  // target (`clipped`: cut to its hard clip), whose marks stand up to
  // `margin` units beyond its points: false when cairo must draw it (see the
  // file comment); an empty window when nothing of it shows.
  bool direct_window(ZR_Rendition* rendition, bool clipped, int margin,
                     cairo_detail::PixelWindow& window);
  // The rasterizer of thin lines written directly, made when first needed.
  cairo_detail::Coverage& coverage();
  // The picture's row of device y (64 bits: device values reach the int
  // limits).
  long long row_of(int y) const {
    return orientation_ == DeviceOrientation::y_up ? static_cast<long long>(height_) - 1 - y
                                                   : static_cast<long long>(y);
  }

  cairo_t* cr_;
  int height_;
  DeviceOrientation orientation_;
  // The clip now on the context.
  bool clip_has_rect_ = false;
  ZR_Int_Rectangle clip_rect_{};
  ZR_Contour_Set clip_contours_;  // held, so its address cannot be reused meanwhile
  // The outer clip on the context: its contours, or `clip_nothing_` when the
  // entry lies wholly outside it.
  ZR_Contour_Set clip_outer_;
  bool clip_nothing_ = false;
  OuterView outer_view_;
  bool direct_dots_on_ = true;
  bool flat_short_ramps_ = true;
  long long direct_dots_ = 0;  // dots written straight into a target so far
  // The run of direct dots: the target and its pixels while one is open
  // (flushed, not yet marked dirty), null otherwise.
  cairo_surface_t* direct_target_ = nullptr;
  unsigned char* direct_data_ = nullptr;
  int direct_stride_ = 0;
  int direct_width_ = 0;
  int direct_height_ = 0;
  int direct_dx_ = 0, direct_dy_ = 0;  // the target's device offset, whole pixels
  // The marker's coverage (see direct_pixels_p.h), made for the context's
  // antialias mode when a marker is first written directly.
  std::unique_ptr<cairo_detail::Stamp> marker_stamp_;
  cairo_antialias_t marker_antialias_ = CAIRO_ANTIALIAS_DEFAULT;
  std::unique_ptr<cairo_detail::Coverage> coverage_;
};

// A surface, its context and a renderer on it: a picture to draw a display list
// into, then to save. PNG canvases paint into memory and write the file on
// `finish`; PDF and SVG canvases stream to their file, which is complete after
// `finish`. Sizes are in pixels (PDF and SVG take one pixel as one point).
class CairoCanvas {
 public:
  // The kinds of output.
  enum class Format { png, pdf, svg };

  // The format named by the path's extension (.png, .pdf, .svg, any case);
  // false when it names none.
  static bool format_for_path(const std::string& path, Format& format);

  // A canvas of `width` by `height` pixels (each 1 to 32767), white. On failure
  // gives null and a one-line reason in `error`.
  static std::unique_ptr<CairoCanvas> create(
      Format format, const std::string& path, int width, int height, std::string* error,
      DeviceOrientation orientation = DeviceOrientation::y_up);

  ~CairoCanvas();
  CairoCanvas(const CairoCanvas&) = delete;
  CairoCanvas& operator=(const CairoCanvas&) = delete;

  CairoRenderer* renderer() const { return renderer_; }  // the renderer on the canvas
  cairo_t* context() const { return cr_; }               // its cairo context
  cairo_surface_t* surface() const { return surface_; }  // and surface
  int width() const { return width_; }                   // in pixels
  int height() const { return height_; }                 // in pixels
  Format format() const { return format_; }              // the kind of output

  // Paints the whole canvas in one colour.
  void clear(ZR_RGB32 color);
  // The pixel of the picture in column x, row y from the top (PNG canvases
  // only; 0 elsewhere and outside).
  ZR_RGB32 pixel(int x, int y);
  // Writes the picture as PNG to `path` (PNG canvases only).
  bool write_png(const std::string& path, std::string* error);
  // Completes the output: writes the PNG to the canvas's path, or closes the
  // PDF or SVG file. Nothing may be drawn afterwards.
  bool finish(std::string* error);

 private:
  CairoCanvas() = default;

  Format format_ = Format::png;
  std::string path_;
  int width_ = 0;
  int height_ = 0;
  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
  CairoRenderer* renderer_ = nullptr;  // one reference held
  bool finished_ = false;
};

}  // namespace DL
