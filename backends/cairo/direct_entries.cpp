// The cairo renderer's direct writes: marks written straight into the
// pixels of an image target instead of through cairo (see cairo_renderer.h
// for when, and what each gives against cairo's picture).
#include <algorithm>
#include <cmath>
#include <cstdint>

#include "backends/cairo/cairo_renderer_p.h"

namespace DL {

using cairo_detail::kFlatRamp;
using cairo_detail::kGuard;
using cairo_detail::kPi;
using cairo_detail::kTwoPi;
using cairo_detail::mix;
using cairo_detail::weight_of;

namespace {

// The length of (dx, dy): differences of device values, far from overflowing
// a double's square, so without std::hypot's care (and cost).
double length_of(double dx, double dy) {
  return std::sqrt(dx * dx + dy * dy);
}

// The smallest rectangle holding the `count` points (x[k], y[k]).
struct Extent {
  double x0, y0, x1, y1;
};
Extent extent_of(int count, const double* x, const double* y) {
  Extent e{INFINITY, INFINITY, -INFINITY, -INFINITY};
  for (int i = 0; i < count; ++i) {
    e.x0 = std::min(e.x0, x[i]), e.x1 = std::max(e.x1, x[i]);
    e.y0 = std::min(e.y0, y[i]), e.y1 = std::max(e.y1, y[i]);
  }
  return e;
}

// Starts `shape` over [x0, x1] x [y0, y1] grown by `reach` on every side (and
// one pixel more past the high ends, which a pixel's area reaches), cut to
// `window`; false when none of it is in the window.
bool begin_around(cairo_detail::Coverage& shape, const cairo_detail::PixelWindow& window, double x0,
                  double y0, double x1, double y1, double reach) {
  auto clamp_to = [](double v, int lo, int hi) {
    return static_cast<int>(std::clamp(v, double(lo), double(hi)));
  };
  shape.begin(clamp_to(std::floor(x0 - reach), window.x0, window.x1),
              clamp_to(std::floor(y0 - reach), window.y0, window.y1),
              clamp_to(std::ceil(x1 + reach) + 1, window.x0, window.x1),
              clamp_to(std::ceil(y1 + reach) + 1, window.y0, window.y1));
  return !shape.empty();
}

// Adds the stroke of the thin polyline of `count` points (x[k], y[k]) to
// `shape`, `half` units each side, as pieces that do not overlap: one per
// segment, cut at each inner point along the miter (the line from the
// inner corner to the miter's tip), so neighbours share that edge, and
// carried half a unit beyond its ends by the square caps. Every join must
// be `mitred_apart` (see below).
void add_thin_stroke(cairo_detail::Coverage& shape, int count, const double* x, const double* y,
                     double half) {
  // Segment i's normal to the left of its travel, half long.
  auto normal = [&](int i, double& nx, double& ny) {
    const int j = i + 1;
    const double len = length_of(x[j] - x[i], y[j] - y[i]);
    nx = -(y[j] - y[i]) / len * half;
    ny = (x[j] - x[i]) / len * half;
  };
  // The corners left and right of point i.
  auto corners = [&](int i, double& lx, double& ly, double& rx, double& ry) {
    double nx, ny;
    if (i == 0 || i == count - 1) {
      normal(i == 0 ? 0 : count - 2, nx, ny);
      const double along = i == 0 ? -1 : 1;  // the cap, half a unit out
      const double cx = x[i] + along * ny, cy = y[i] - along * nx;
      lx = cx + nx, ly = cy + ny, rx = cx - nx, ry = cy - ny;
      return;
    }
    double mx, my;
    normal(i - 1, nx, ny);
    normal(i, mx, my);
    // The miter: where the two segments' sides meet.
    const double k = 1 / (1 + (nx * mx + ny * my) / (half * half));
    const double ox = (nx + mx) * k, oy = (ny + my) * k;
    lx = x[i] + ox, ly = y[i] + oy, rx = x[i] - ox, ry = y[i] - oy;
  };
  double lx, ly, rx, ry;
  corners(0, lx, ly, rx, ry);
  for (int i = 0; i + 1 < count; ++i) {
    double flx, fly, frx, fry;  // the far corners
    corners(i + 1, flx, fly, frx, fry);
    const double qx[4] = {rx, frx, flx, lx};
    const double qy[4] = {ry, fry, fly, ly};
    shape.add_polygon(qx, qy, 4);
    lx = flx, ly = fly, rx = frx, ry = fry;
  }
}

// Whether the joins of the thin polyline (x[k], y[k]) are all mitred
// (within cairo's miter limit of 10) with their inner corners within half
// of each neighbouring segment, so its pieces (see add_thin_stroke) do not
// overlap; false also for a segment of no length.
bool mitred_apart(int count, const double* x, const double* y, double half) {
  auto length = [&](int i) { return length_of(x[i + 1] - x[i], y[i + 1] - y[i]); };
  for (int i = 0; i + 1 < count; ++i) {
    const double len = length(i);
    if (!(len > 0)) return false;
    if (i + 2 == count) break;
    const int j = i + 1, k = i + 2;
    const double next = length(j);
    if (!(next > 0)) return false;
    const double dot =
        ((x[j] - x[i]) * (x[k] - x[j]) + (y[j] - y[i]) * (y[k] - y[j])) / (len * next);
    // The miter is 1 / cos(a / 2) times the half width long, a the turn;
    // its inner corner lies tan(a / 2) half widths along each segment.
    if ((1 + dot) / 2 < 0.01) return false;
    const double along = half * std::sqrt(std::max(0.0, 1 - dot) / (1 + dot));
    if (along > 0.5 * std::min(len, next)) return false;
  }
  return true;
}

// Adds the ring that strokes the closed polyline (x[k], y[k]) `half` units
// each side: the polygon of its corners on one side less that of its
// corners on the other (wound the other way), the corners where the
// sides of neighbouring segments meet. No segment may be of no length.
void add_thin_ring(cairo_detail::Coverage& shape, int count, const double* x, const double* y,
                   double half) {
  constexpr int kMost = 258;
  if (count > kMost) return;
  double ox[kMost], oy[kMost], ix[kMost], iy[kMost];
  for (int i = 0; i < count; ++i) {
    const int p = i == 0 ? count - 1 : i - 1, n = i + 1 < count ? i + 1 : 0;
    const double lp = length_of(x[i] - x[p], y[i] - y[p]);
    const double ln = length_of(x[n] - x[i], y[n] - y[i]);
    const double pnx = -(y[i] - y[p]) / lp, pny = (x[i] - x[p]) / lp;  // unit normals, left
    const double nnx = -(y[n] - y[i]) / ln, nny = (x[n] - x[i]) / ln;
    const double k = half / (1 + pnx * nnx + pny * nny);
    const double mx = (pnx + nnx) * k, my = (pny + nny) * k;
    ox[i] = x[i] + mx, oy[i] = y[i] + my;
    // The other side, backwards: its winding cancels the first's inside it.
    ix[count - 1 - i] = x[i] - mx, iy[count - 1 - i] = y[i] - my;
  }
  shape.add_polygon(ox, oy, count);
  shape.add_polygon(ix, iy, count);
}

}  // namespace

// ---------------------------------------------------------------------------
// The run of direct writes
// ---------------------------------------------------------------------------

void CairoRenderer::flush_direct() {
  if (!direct_target_) return;
  cairo_surface_mark_dirty(direct_target_);
  direct_target_ = nullptr;
  direct_data_ = nullptr;
}

bool CairoRenderer::open_direct() {
  if (!direct_dots_on_ || cairo_status(cr_) != CAIRO_STATUS_SUCCESS) return false;
  const cairo_operator_t op = cairo_get_operator(cr_);
  if (op != CAIRO_OPERATOR_OVER && op != CAIRO_OPERATOR_SOURCE) return false;
  cairo_surface_t* target = cairo_get_group_target(cr_);
  if (cairo_surface_status(target) != CAIRO_STATUS_SUCCESS ||
      cairo_surface_get_type(target) != CAIRO_SURFACE_TYPE_IMAGE)
    return false;
  const cairo_format_t format = cairo_image_surface_get_format(target);
  if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return false;
  // A device offset of whole pixels moves the picture's pixels on the target
  // (a strip of a larger picture, say); anything else is left to cairo.
  double dx = 0, dy = 0, sx = 1, sy = 1;
  cairo_surface_get_device_offset(target, &dx, &dy);
  cairo_surface_get_device_scale(target, &sx, &sy);
  if (sx != 1 || sy != 1 || dx != std::floor(dx) || dy != std::floor(dy) || std::fabs(dx) > 1e9 ||
      std::fabs(dy) > 1e9)
    return false;
  // The matrix is the renderer's own (forget_clip sets it); a host that changed
  // it has the general path.
  cairo_matrix_t m;
  cairo_get_matrix(cr_, &m);
  const double ty = orientation_ == DeviceOrientation::y_up ? height_ - 0.5 : 0.5;
  const double yy = orientation_ == DeviceOrientation::y_up ? -1 : 1;
  if (m.xx != 1 || m.yx != 0 || m.xy != 0 || m.yy != yy || m.x0 != 0.5 || m.y0 != ty) return false;
  cairo_surface_flush(target);
  unsigned char* data = cairo_image_surface_get_data(target);
  if (!data) return false;
  direct_target_ = target;
  direct_data_ = data;
  direct_stride_ = cairo_image_surface_get_stride(target);
  direct_width_ = cairo_image_surface_get_width(target);
  direct_height_ = cairo_image_surface_get_height(target);
  direct_dx_ = static_cast<int>(dx);
  direct_dy_ = static_cast<int>(dy);
  return true;
}

cairo_detail::Coverage& CairoRenderer::coverage() {
  if (!coverage_) coverage_ = std::make_unique<cairo_detail::Coverage>();
  return *coverage_;
}

bool CairoRenderer::direct_window(ZR_Rendition* rendition, bool clipped, int margin,
                                  cairo_detail::PixelWindow& window) {
  const ZR_Rendition_Data* data = rendition && *rendition ? rendition->get() : nullptr;
  if (data && data->complex_clip.get()) return false;
  switch (outer_view_.reach(rendition, margin)) {
    case OuterView::Reach::none:
      break;
    case OuterView::Reach::skip:
      window = {};
      return true;
    case OuterView::Reach::cut:
      return false;
  }
  if (!direct_target_ && !open_direct()) return false;
  // The target's pixels, as pixels of the picture.
  long long x0 = -static_cast<long long>(direct_dx_), x1 = x0 + direct_width_;
  long long y0 = -static_cast<long long>(direct_dy_), y1 = y0 + direct_height_;
  if (clipped && data) {
    // The hard clip's pixels, whole and inclusive; rows turned as device y runs.
    const ZR_Int_Rectangle& h = data->hard_clip;
    x0 = std::max<long long>(x0, h.x_min);
    x1 = std::min<long long>(x1, static_cast<long long>(h.x_max) + 1);
    const long long r0 = std::min(row_of(h.y_min), row_of(h.y_max));
    const long long r1 = std::max(row_of(h.y_min), row_of(h.y_max));
    if (h.y_max < h.y_min || h.x_max < h.x_min) {
      y1 = y0;  // an empty clip
    } else {
      y0 = std::max(y0, r0);
      y1 = std::min(y1, r1 + 1);
    }
  }
  window.data = direct_data_;
  window.stride = direct_stride_;
  window.dx = direct_dx_;
  window.dy = direct_dy_;
  window.x0 = static_cast<int>(x0);
  window.y0 = static_cast<int>(y0);
  window.x1 = static_cast<int>(std::max(x0, x1));
  window.y1 = static_cast<int>(std::max(y0, y1));
  return true;
}

bool CairoRenderer::direct_dot(ZR_Rendition* rendition, bool clipped, const ZR_DCI_Point& point,
                               const ZR_RGB32* color) {
  const ZR_Rendition_Data* data = rendition ? rendition->get() : nullptr;
  if (data && data->complex_clip.get()) return false;
  switch (outer_view_.reach(rendition, 0)) {
    case OuterView::Reach::none:
      break;
    case OuterView::Reach::skip:
      return true;
    case OuterView::Reach::cut:
      return false;
  }
  if (!direct_target_ && !open_direct()) return false;
  if (clipped && data) {
    const ZR_Int_Rectangle& h = data->hard_clip;
    if (point.x < h.x_min || point.x > h.x_max || point.y < h.y_min || point.y > h.y_max)
      return true;
  }
  // The pixel cairo's fill would cover: column x, and row height - 1 - y with
  // y up, moved by the device offset. In 64 bits, since device values reach
  // the int limits.
  const long long column = static_cast<long long>(point.x) + direct_dx_;
  const long long row = row_of(point.y) + direct_dy_;
  if (column < 0 || column >= direct_width_ || row < 0 || row >= direct_height_) return true;
  const ZR_RGB32 c = color ? *color : (rendition && *rendition ? rendition->color() : 0);
  auto* pixel = reinterpret_cast<std::uint32_t*>(direct_data_ + row * direct_stride_) + column;
  *pixel = 0xff000000u | (c & 0xffffffu);
  ++direct_dots_;
  return true;
}

// ---------------------------------------------------------------------------
// The marks
// ---------------------------------------------------------------------------

bool CairoRenderer::Direct::grid_polyline(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                          int count, const ZR_DCI_Point* points) {
  if (count < 2 || weight_of(rendition) > 1) return false;
  for (int i = 0; i + 1 < count; ++i) {
    const ZR_DCI_Point& a = points[i];
    const ZR_DCI_Point& b = points[i + 1];
    if ((a.x != b.x) == (a.y != b.y)) return false;  // diagonal, or of no length
    if (i + 2 < count) {
      const ZR_DCI_Point& c = points[i + 2];
      // Same axis both ways: a turn back when the directions oppose.
      if (a.x == b.x && b.x == c.x && (b.y < a.y) != (c.y < b.y)) return false;
      if (a.y == b.y && b.y == c.y && (b.x < a.x) != (c.x < b.x)) return false;
    }
  }
  cairo_detail::PixelWindow window;
  if (!r.direct_window(rendition, clipped, 1, window)) return false;
  if (window.empty()) return true;
  const std::uint32_t c =
      0xff000000u | ((rendition && *rendition ? rendition->color() : 0) & 0xffffffu);
  for (int i = 0; i + 1 < count; ++i) {
    const long long ra = r.row_of(points[i].y), rb = r.row_of(points[i + 1].y);
    const long long x0 = std::max<long long>(std::min(points[i].x, points[i + 1].x), window.x0);
    const long long x1 =
        std::min<long long>(std::max(points[i].x, points[i + 1].x) + 1LL, window.x1);
    const long long y0 = std::max<long long>(std::min(ra, rb), window.y0);
    const long long y1 = std::min<long long>(std::max(ra, rb) + 1, window.y1);
    for (long long y = y0; y < y1 && x0 < x1; ++y)
      cairo_detail::fill_pixels(window.at(x0, y), x1 - x0, c);
  }
  r.direct_dots_ += count;
  return true;
}

bool CairoRenderer::Direct::thin_polyline(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                          int count, const ZR_DCI_Point* points) {
  constexpr int kMost = 64;  // points; longer polylines go to cairo
  const int weight = std::max(weight_of(rendition), 1);
  if (count < 2 || count > kMost || weight > 2) return false;
  double x[kMost], y[kMost];
  for (int i = 0; i < count; ++i) x[i] = points[i].x, y[i] = double(r.row_of(points[i].y));
  const auto [xmin, ymin, xmax, ymax] = extent_of(count, x, y);
  cairo_detail::PixelWindow window;
  // A miter's tip stands up to 10 half widths beyond its point.
  if (!r.direct_window(rendition, clipped, 5 * weight + 1, window)) return false;
  if (window.empty()) return true;
  const double reach = 10.0 * weight + 1;  // a miter's tip at the limit
  // Wholly outside the window (a line a bounded draw hands on with its
  // group, cut away by the hard clip): nothing to draw, whatever its joins.
  if (xmax + reach < window.x0 || xmin - reach >= window.x1 || ymax + reach < window.y0 ||
      ymin - reach >= window.y1)
    return true;
  if (!mitred_apart(count, x, y, weight / 2.0)) return false;
  cairo_detail::Coverage& shape = r.coverage();
  if (begin_around(shape, window, xmin, ymin, xmax, ymax, reach)) {
    add_thin_stroke(shape, count, x, y, weight / 2.0);
    shape.blend(window, rendition && *rendition ? rendition->color() : 0);
  }
  r.direct_dots_ += count;
  return true;
}

bool CairoRenderer::Direct::markers(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                    int count, const ZR_DCI_Point* points) {
  cairo_detail::PixelWindow window;
  if (!r.direct_window(rendition, clipped, 3, window)) return false;
  if (window.empty()) return true;
  const cairo_antialias_t antialias = cairo_get_antialias(r.cr_);
  if (!r.marker_stamp_ || r.marker_antialias_ != antialias) {
    r.marker_stamp_ = std::make_unique<cairo_detail::Stamp>(cairo_detail::marker_stamp(antialias));
    r.marker_antialias_ = antialias;
  }
  const ZR_RGB32 c = rendition && *rendition ? rendition->color() : 0;
  for (int i = 0; i < count; ++i)
    cairo_detail::blend_stamp(window, points[i].x, r.row_of(points[i].y), *r.marker_stamp_, c);
  r.direct_dots_ += count;
  return true;
}

bool CairoRenderer::Direct::grid_polygon(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                         int count, const ZR_DCI_Point* points,
                                         const ZR_RGB32* color) {
  constexpr int kGridCorners = cairo_detail::kMaxGridCorners;
  if (count < 3 || count > kGridCorners) return false;
  for (int k = 0; k < count; ++k) {
    const ZR_DCI_Point& a = points[k];
    const ZR_DCI_Point& b = points[(k + 1) % count];
    if (a.x != b.x && a.y != b.y) return false;
  }
  cairo_detail::PixelWindow window;
  if (!r.direct_window(rendition, clipped, 1, window)) return false;
  if (window.empty()) return true;
  long long x[kGridCorners], y[kGridCorners];
  for (int k = 0; k < count; ++k) x[k] = points[k].x, y[k] = r.row_of(points[k].y);
  const ZR_RGB32 c = color ? *color : (rendition && *rendition ? rendition->color() : 0);
  cairo_detail::fill_grid_polygon(window, count, x, y, c);
  r.direct_dots_ += 1;
  return true;
}

bool CairoRenderer::Direct::flat_strip(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                       int count, const ZR_DCI_Point* points) {
  constexpr int kMost = 256;  // points; longer strips go to cairo
  if (count < 3 || count > kMost) return false;
  cairo_detail::PixelWindow window;
  if (!r.direct_window(rendition, clipped, 1, window)) return false;
  if (window.empty()) return true;
  double x[kMost], y[kMost];
  for (int i = 0; i < count; ++i) x[i] = points[i].x, y[i] = double(r.row_of(points[i].y));
  const auto [xmin, ymin, xmax, ymax] = extent_of(count, x, y);
  cairo_detail::Coverage& shape = r.coverage();
  if (begin_around(shape, window, xmin, ymin, xmax, ymax, 1)) {
    for (int i = 2; i < count; ++i) {
      double tx[3] = {x[i - 2], x[i - 1], x[i]}, ty[3] = {y[i - 2], y[i - 1], y[i]};
      if ((tx[1] - tx[0]) * (ty[2] - ty[0]) - (ty[1] - ty[0]) * (tx[2] - tx[0]) < 0) {
        std::swap(tx[1], tx[2]);
        std::swap(ty[1], ty[2]);
      }
      shape.add_polygon(tx, ty, 3);
    }
    shape.blend(window, rendition && *rendition ? rendition->color() : 0);
  }
  r.direct_dots_ += count - 2;
  return true;
}

bool CairoRenderer::Direct::shaded_strip(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                         int count, const ZR_DCI_Point* points,
                                         const ZR_RGB32* colors) {
  cairo_detail::PixelWindow window;
  if (!r.direct_window(rendition, clipped, 1, window)) return false;
  if (window.empty()) return true;
  for (int i = 2; i < count; ++i) {
    const ZR_DCI_Point* t = points + i - 2;
    const double x[3] = {double(t[0].x), double(t[1].x), double(t[2].x)};
    const double y[3] = {double(r.row_of(t[0].y)), double(r.row_of(t[1].y)),
                         double(r.row_of(t[2].y))};
    cairo_detail::fill_gouraud_triangle(window, x, y, colors + i - 2);
  }
  r.direct_dots_ += count - 2;
  return true;
}

bool CairoRenderer::Direct::ellipse(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                    bool pie, const ZR_DCI_Point& center, const ZR_DCI_Point& radii,
                                    double start, double sweep, double rotation,
                                    const ZR_RGB32* color) {
  constexpr int kMost = 256;  // chords; larger ellipses go to cairo
  const int weight = pie ? 0 : std::max(weight_of(rendition), 1);
  if (weight > 2 || !std::isfinite(start) || !std::isfinite(rotation) || !(sweep > 0)) return false;
  // A whole turn within float rounding (angles often come as floats).
  const bool whole = sweep >= kTwoPi * (1 - 1e-6);
  if (!pie && sweep > kTwoPi * (1 + 1e-6)) return false;
  if (whole) sweep = kTwoPi;
  const double reach = std::fabs(double(center.x)) + std::fabs(double(center.y)) +
                       std::fabs(double(radii.x)) + std::fabs(double(radii.y));
  if (reach > kGuard / 2) return false;
  const double most = std::max(std::fabs(double(radii.x)), std::fabs(double(radii.y)));
  const double least = std::min(std::fabs(double(radii.x)), std::fabs(double(radii.y)));
  // The tightest curvature's radius is least^2 / most.
  if (!pie && whole && weight / 2.0 > least * least / most) return false;
  // Chords within 0.05 units of the curve: cairo's flattening of its
  // Bézier arc lies closer than its tolerance of 0.1, about as close.
  const double step = most <= 0.05 ? kPi / 2 : 2 * std::acos(1 - 0.05 / most);
  const int n = std::max(4, static_cast<int>(std::ceil(sweep / step)));
  if (n > kMost) return false;
  double x[kMost + 2], y[kMost + 2];
  int count = 0;
  if (pie && !whole) x[count] = center.x, y[count++] = double(r.row_of(center.y));
  const double cs = std::cos(rotation), sn = std::sin(rotation);
  const int points = whole ? n : n + 1;  // a whole turn closes on its first point
  const double fx = double(center.x), fy = double(center.y);
  // cos t and sin t stepped by a rotation: no sine per point.
  const double cd = std::cos(sweep / n), sd = std::sin(sweep / n);
  double ct = std::cos(start), st = std::sin(start);
  for (int i = 0; i < points; ++i) {
    const double ex = radii.x * ct, ey = radii.y * st;
    const double c_next = ct * cd - st * sd;
    st = st * cd + ct * sd, ct = c_next;
    const double dy = fy + sn * ex + cs * ey;
    x[count] = fx + cs * ex - sn * ey;
    // Device y to the picture's rows, as row_of turns whole units.
    y[count++] = r.orientation_ == DeviceOrientation::y_up ? r.height_ - 1 - dy : dy;
  }
  if (!pie && !whole && !mitred_apart(count, x, y, weight / 2.0)) return false;
  cairo_detail::PixelWindow window;
  // A miter's tip stands up to 10 half widths beyond its point.
  if (!r.direct_window(rendition, clipped, 5 * weight + 1, window)) return false;
  if (window.empty()) return true;
  const auto [xmin, ymin, xmax, ymax] = extent_of(count, x, y);
  const double grow = 10.0 * weight + 1;
  cairo_detail::Coverage& shape = r.coverage();
  if (begin_around(shape, window, xmin, ymin, xmax, ymax, grow)) {
    if (pie)
      shape.add_polygon(x, y, count);
    else if (whole)
      add_thin_ring(shape, count, x, y, weight / 2.0);
    else
      add_thin_stroke(shape, count, x, y, weight / 2.0);
    shape.blend(window, color ? *color : (rendition && *rendition ? rendition->color() : 0));
  }
  r.direct_dots_ += 1;
  return true;
}

bool CairoRenderer::Direct::ramps(CairoRenderer& r, ZR_Rendition* rendition, int count,
                                  const ZR_DCI_Point* points, const ZR_RGB32* colors) {
  const int weight = std::max(weight_of(rendition), 1);
  if (weight > 2 || count < 2) return false;
  for (int i = 0; i + 1 < count; ++i)
    if (points[i].x == points[i + 1].x && points[i].y == points[i + 1].y) return false;
  cairo_detail::PixelWindow window;
  if (!r.direct_window(rendition, false, weight + 1, window)) return false;
  if (window.empty()) return true;
  cairo_detail::Coverage& shape = r.coverage();
  const double half = weight / 2.0;
  const double flat = std::max(double(weight), kFlatRamp);
  for (int i = 0; i + 1 < count; ++i) {
    const double x[2] = {double(points[i].x), double(points[i + 1].x)};
    const double y[2] = {double(r.row_of(points[i].y)), double(r.row_of(points[i + 1].y))};
    const int reach = weight + 1;
    if (!begin_around(shape, window, std::min(x[0], x[1]), std::min(y[0], y[1]),
                      std::max(x[0], x[1]), std::max(y[0], y[1]), reach))
      continue;
    add_thin_stroke(shape, 2, x, y, half);
    const double dx = x[1] - x[0], dy = y[1] - y[0];
    if (r.flat_short_ramps_ && dx * dx + dy * dy <= flat * flat)
      shape.blend(window, mix(colors[i], colors[i + 1]));
    else
      shape.blend_ramp(window, x[0], y[0], x[1], y[1], colors[i], colors[i + 1]);
  }
  r.direct_dots_ += count;
  return true;
}

}  // namespace DL
