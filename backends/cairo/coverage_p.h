// The exact area of thin shapes on each pixel, for lines the cairo renderer
// writes straight into an image (see cairo_renderer.h). Not installed.
//
// A shape is a set of polygons, rasterized together by accumulating the
// signed area their edges leave in each pixel and summing along the rows
// (the way font rasterizers work): the coverage of a pixel is the area of
// the shape over it, exactly, where cairo's scan converter samples it on a
// grid (15 rows a pixel), so the two agree within a few levels. Polygons
// wound the same way add up (clamped to full coverage), so a shape is best
// built of pieces that do not overlap, each wound as the others.
//
// Positions are in picture pixels with (0, 0) the centre of the top-left
// pixel, as in direct_pixels_p.h. Costs the rows each edge crosses plus, in
// each row, the pixels between the shape's first and last edge there.
#pragma once

#include <vector>

#include "backends/cairo/direct_pixels_p.h"

namespace DL::cairo_detail {

class Coverage {
 public:
  // Starts a shape that may cover pixels x0 to x1, y0 to y1 (half-open); a
  // box past 4096 pixels a side is cut to that. Nothing is covered.
  void begin(int x0, int y0, int x1, int y1);
  // Adds the polygon of `count` corners to the shape (see above). Corners may
  // lie anywhere: only the box is rasterized.
  void add_polygon(const double* x, const double* y, int count);
  // Blends the opaque `color` into the window's pixels through the shape's
  // coverage, as blend_stamp does, and empties the shape's areas.
  void blend(const PixelWindow& window, ZR_RGB32 color);
  // Blends as `blend` does, each pixel in the colour of a linear ramp from
  // `from` at (ax, ay) to `to` at (bx, by) at its centre: the colour at the
  // centre's projection on the line through them, held at the ends (as
  // cairo's linear gradient with its default extend gives it), each channel
  // rounded.
  void blend_ramp(const PixelWindow& window, double ax, double ay, double bx, double by,
                  ZR_RGB32 from, ZR_RGB32 to);
  bool empty() const { return x0_ >= x1_ || y0_ >= y1_; }

 private:
  // Adds the edge (ax, ay)-(bx, by), in the box's units (pixel edges, the
  // box's corner at 0), to `area_`.
  void add_edge(double ax, double ay, double bx, double by);
  void add_clipped_edge(double ax, double ay, double bx, double by);
  // The loop of `blend`, each pixel's opaque colour from `source(x, y)`.
  template <class Source>
  void blend_with(const PixelWindow& window, Source source);

  int x0_ = 0, y0_ = 0, x1_ = 0, y1_ = 0;  // the shape's box
  int width_ = 0;                          // of a row of `area_`: the box's, plus 2
  std::vector<float> area_;  // the shape's signed areas, being accumulated; 0 between shapes
  // Per row of the box, the first and one past the last column an edge left
  // area in (none: first past last).
  std::vector<int> first_, last_;
};

}  // namespace DL::cairo_detail
