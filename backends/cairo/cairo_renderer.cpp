// The action entries of the cairo renderer.
//
// Every entry brings the clip it needs up to date (setting the device-to-surface
// matrix with it) and its colour, builds a path in device units and paints it. Device values can
// lie far off the surface (a clipped entry gets whatever the view made of the world, up to the int
// limits), while cairo keeps coordinates in 24.8 fixed point: geometry is therefore cut to a guard
// box of +-2^16 units around the origin before it reaches cairo, which changes nothing that can be
// seen (cairo 1.16 drops the stroke of a line some 2^19 units long).
#include "backends/cairo/cairo_renderer.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "backends/cairo/action_table_p.h"
#include "backends/cairo/coverage_p.h"
#include "backends/cairo/direct_pixels_p.h"

namespace DL {

namespace {

constexpr double kGuard = 65536.0;  // 2^16: twice the largest canvas; cairo loses longer lines
constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
// A Gouraud polyline's segment at most this many pixels long is stroked flat.
constexpr double kFlatRamp = 8.0;

struct P {
  double x;
  double y;
};

void set_rgb(cairo_t* cr, ZR_RGB32 c) {
  cairo_set_source_rgb(cr, ((c >> 16) & 0xff) / 255.0, ((c >> 8) & 0xff) / 255.0,
                       (c & 0xff) / 255.0);
}

// The length of (dx, dy): differences of device values, far from overflowing
// a double's square, so without std::hypot's care (and cost).
double length_of(double dx, double dy) {
  return std::sqrt(dx * dx + dy * dy);
}

// The colour halfway between two, each channel rounded.
ZR_RGB32 mix(ZR_RGB32 a, ZR_RGB32 b) {
  ZR_RGB32 out = 0;
  for (int shift = 0; shift < 24; shift += 8)
    out |= ((((a >> shift) & 0xff) + ((b >> shift) & 0xff) + 1) / 2) << shift;
  return out;
}

bool inside_guard(const P& p) {
  return p.x >= -kGuard && p.x <= kGuard && p.y >= -kGuard && p.y <= kGuard;
}

// Cuts a closed polygon to the guard box (Sutherland-Hodgman, one pass per side).
void guard_polygon(std::vector<P>& poly) {
  if (std::all_of(poly.begin(), poly.end(), inside_guard)) return;
  std::vector<P> out;
  for (int side = 0; side < 4 && !poly.empty(); ++side) {
    const bool is_x = side < 2;
    const double limit = (side % 2 == 0) ? -kGuard : kGuard;
    auto in = [&](const P& p) {
      double v = is_x ? p.x : p.y;
      return side % 2 == 0 ? v >= limit : v <= limit;
    };
    auto cross = [&](const P& a, const P& b) {
      double t = is_x ? (limit - a.x) / (b.x - a.x) : (limit - a.y) / (b.y - a.y);
      return P{a.x + t * (b.x - a.x), a.y + t * (b.y - a.y)};
    };
    out.clear();
    for (std::size_t i = 0; i < poly.size(); ++i) {
      const P& a = poly[i];
      const P& b = poly[(i + 1) % poly.size()];
      if (in(a)) {
        out.push_back(a);
        if (!in(b)) out.push_back(cross(a, b));
      } else if (in(b)) {
        out.push_back(cross(a, b));
      }
    }
    poly.swap(out);
  }
}

// Cuts the segment a-b to the guard box (Liang-Barsky); false when it misses.
bool guard_segment(P& a, P& b) {
  double t0 = 0.0, t1 = 1.0;
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {a.x + kGuard, kGuard - a.x, a.y + kGuard, kGuard - a.y};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0.0) {
      if (q[i] < 0.0) return false;
      continue;
    }
    double r = q[i] / p[i];
    if (p[i] < 0.0)
      t0 = std::max(t0, r);
    else
      t1 = std::min(t1, r);
    if (t0 > t1) return false;
  }
  const P start = a;
  a = {start.x + t0 * dx, start.y + t0 * dy};
  b = {start.x + t1 * dx, start.y + t1 * dy};
  return true;
}

// Adds an open polyline to the path, cut to the guard box.
void add_polyline(cairo_t* cr, const std::vector<P>& pts) {
  if (std::all_of(pts.begin(), pts.end(), inside_guard)) {
    cairo_move_to(cr, pts[0].x, pts[0].y);
    for (std::size_t i = 1; i < pts.size(); ++i) cairo_line_to(cr, pts[i].x, pts[i].y);
    return;
  }
  bool joined = false;  // the path's current point is the start of this segment
  for (std::size_t i = 0; i + 1 < pts.size(); ++i) {
    P a = pts[i], b = pts[i + 1];
    bool a_in = inside_guard(a);
    if (!guard_segment(a, b)) {
      joined = false;
      continue;
    }
    if (!joined || !a_in) cairo_move_to(cr, a.x, a.y);
    cairo_line_to(cr, b.x, b.y);
    joined = inside_guard(pts[i + 1]);
  }
}

void add_polygon(cairo_t* cr, std::vector<P>& poly) {
  guard_polygon(poly);
  if (poly.empty()) return;
  cairo_move_to(cr, poly[0].x, poly[0].y);
  for (std::size_t i = 1; i < poly.size(); ++i) cairo_line_to(cr, poly[i].x, poly[i].y);
  cairo_close_path(cr);
}

std::vector<P> to_points(int count, const ZR_DCI_Point* points) {
  std::vector<P> out(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) out[i] = {double(points[i].x), double(points[i].y)};
  return out;
}

// The one-pixel square of a device point.
void add_dot(cairo_t* cr, const ZR_DCI_Point& p) {
  if (!inside_guard({double(p.x), double(p.y)})) return;
  cairo_rectangle(cr, p.x - 0.5, p.y - 0.5, 1.0, 1.0);
}

void set_line(cairo_t* cr, int weight) {
  weight = std::max(weight, 1);
  cairo_set_line_width(cr, weight);
  const bool thin = weight <= 2;
  cairo_set_line_cap(cr, thin ? CAIRO_LINE_CAP_SQUARE : CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cr, thin ? CAIRO_LINE_JOIN_MITER : CAIRO_LINE_JOIN_ROUND);
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

int weight_of(const ZR_Rendition* r) {
  return (r && *r && r->get()->line_attributes) ? r->line_weight() : 1;
}

// The sweep from `start` to `end`, lifted by whole turns so it is not negative.
double sweep_of(double start, double end) {
  double sweep = end - start;
  if (!std::isfinite(sweep)) return kTwoPi;
  if (sweep < 0.0) sweep += kTwoPi * std::ceil(-sweep / kTwoPi);
  return sweep;
}

// Points of the ellipse from `start` over `sweep`, enough for a smooth curve.
std::vector<P> ellipse_points(const ZR_DCI_Point& c, const ZR_DCI_Point& r, double start,
                              double sweep, double rotation) {
  double extent = std::max(std::fabs(double(r.x)), std::fabs(double(r.y)));
  int n = static_cast<int>(std::clamp(std::sqrt(extent) * 4.0 * sweep / kTwoPi, 8.0, 4096.0));
  std::vector<P> out(static_cast<std::size_t>(n) + 1);
  const double cs = std::cos(rotation), sn = std::sin(rotation);
  for (int i = 0; i <= n; ++i) {
    double t = start + sweep * i / n;
    double ex = r.x * std::cos(t), ey = r.y * std::sin(t);
    out[i] = {c.x + cs * ex - sn * ey, c.y + sn * ex + cs * ey};
  }
  return out;
}

}  // namespace

// ---------------------------------------------------------------------------
// The entries
// ---------------------------------------------------------------------------

struct CairoRenderer::Access {
  static CairoRenderer& self(void* context) { return *static_cast<CairoRenderer*>(context); }

  // Matrix, clip and colour for one entry.
  static cairo_t* begin(void* context, ZR_Rendition* rendition, bool clipped,
                        const ZR_RGB32* color) {
    CairoRenderer& r = self(context);
    r.flush_direct();
    r.use_clip(rendition, clipped);
    r.set_color(rendition, color);
    return r.cr_;
  }

  template <bool C>
  static void dot(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* point,
                  const ZR_RGB32* color) {
    if (self(context).direct_dot(rendition, C, *point, color)) return;
    cairo_t* cr = begin(context, rendition, C, color);
    add_dot(cr, *point);
    cairo_fill(cr);
  }

  // A thin polyline whose segments all run along the pixel grid, written as
  // the whole pixels cairo's stroke of it covers, when it may be; false when
  // cairo must draw it. A one-unit line through pixel centres covers whole
  // pixels, the square caps carry it half a pixel beyond its ends and the
  // mitred right-angle joins fill their corners: each segment's pixels from
  // end to end, opaque. A turn back on itself (a bevel, half a pixel) or a
  // segment of no length is left to cairo.
  static bool direct_grid_polyline(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
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
        std::fill(window.at(x0, y), window.at(x1 - 1, y) + 1, c);
    }
    r.direct_dots_ += count;
    return true;
  }

  // Adds the stroke of the thin polyline of `count` points (x[k], y[k]) to
  // `shape`, `half` units each side, as pieces that do not overlap: one per
  // segment, cut at each inner point along the miter (the line from the
  // inner corner to the miter's tip), so neighbours share that edge, and
  // carried half a unit beyond its ends by the square caps. Every join must
  // be `mitred_apart` (see below).
  static void add_thin_stroke(cairo_detail::Coverage& shape, int count, const double* x,
                              const double* y, double half) {
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
  static bool mitred_apart(int count, const double* x, const double* y, double half) {
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

  // A thin polyline off the grid (one or two units wide), written as the
  // exact area of its stroke (see coverage_p.h), when its joins allow it
  // (`mitred_apart`) and it may be written directly; false when cairo must
  // draw it.
  static bool direct_thin_polyline(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                   int count, const ZR_DCI_Point* points) {
    constexpr int kMost = 64;  // points; longer polylines go to cairo
    const int weight = std::max(weight_of(rendition), 1);
    if (count < 2 || count > kMost || weight > 2) return false;
    double x[kMost], y[kMost];
    double xmin = INFINITY, xmax = -INFINITY, ymin = INFINITY, ymax = -INFINITY;
    for (int i = 0; i < count; ++i) {
      x[i] = points[i].x, y[i] = double(r.row_of(points[i].y));
      xmin = std::min(xmin, x[i]), xmax = std::max(xmax, x[i]);
      ymin = std::min(ymin, y[i]), ymax = std::max(ymax, y[i]);
    }
    if (!mitred_apart(count, x, y, weight / 2.0)) return false;
    cairo_detail::PixelWindow window;
    // A miter's tip stands up to 10 half widths beyond its point.
    if (!r.direct_window(rendition, clipped, 5 * weight + 1, window)) return false;
    if (window.empty()) return true;
    const double reach = 10.0 * weight + 1;  // a miter's tip at the limit
    cairo_detail::Coverage& shape = r.coverage();
    if (begin_around(shape, window, xmin, ymin, xmax, ymax, reach)) {
      add_thin_stroke(shape, count, x, y, weight / 2.0);
      shape.blend(window, rendition && *rendition ? rendition->color() : 0);
    }
    r.direct_dots_ += count;
    return true;
  }

  template <bool C>
  static void polyline(void* context, ZR_Rendition* rendition, int count,
                       const ZR_DCI_Point* points) {
    if (count <= 0) return;
    if (count == 1 && self(context).direct_dot(rendition, C, points[0], nullptr)) return;
    if (direct_grid_polyline(self(context), rendition, C, count, points)) return;
    if (direct_thin_polyline(self(context), rendition, C, count, points)) return;
    cairo_t* cr = begin(context, rendition, C, nullptr);
    if (count == 1) {
      add_dot(cr, points[0]);
      cairo_fill(cr);
      return;
    }
    set_line(cr, weight_of(rendition));
    add_polyline(cr, to_points(count, points));
    cairo_stroke(cr);
  }

  // Markers blended through the cross's coverage, when they may be written
  // directly; false when cairo must draw them.
  static bool direct_markers(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                             const ZR_DCI_Point* points) {
    cairo_detail::PixelWindow window;
    if (!r.direct_window(rendition, clipped, 3, window)) return false;
    if (window.empty()) return true;
    const cairo_antialias_t antialias = cairo_get_antialias(r.cr_);
    if (!r.marker_stamp_ || r.marker_antialias_ != antialias) {
      r.marker_stamp_ =
          std::make_unique<cairo_detail::Stamp>(cairo_detail::marker_stamp(antialias));
      r.marker_antialias_ = antialias;
    }
    const ZR_RGB32 c = rendition && *rendition ? rendition->color() : 0;
    for (int i = 0; i < count; ++i)
      cairo_detail::blend_stamp(window, points[i].x, r.row_of(points[i].y), *r.marker_stamp_, c);
    r.direct_dots_ += count;
    return true;
  }

  template <bool C>
  static void polymarker(void* context, ZR_Rendition* rendition, int count,
                         const ZR_DCI_Point* points) {
    if (count <= 0) return;
    if (direct_markers(self(context), rendition, C, count, points)) return;
    cairo_t* cr = begin(context, rendition, C, nullptr);
    set_line(cr, 1);
    for (int i = 0; i < count; ++i) {
      const P p{double(points[i].x), double(points[i].y)};
      if (!inside_guard(p)) continue;
      cairo_move_to(cr, p.x - 2, p.y - 2);
      cairo_line_to(cr, p.x + 2, p.y + 2);
      cairo_move_to(cr, p.x - 2, p.y + 2);
      cairo_line_to(cr, p.x + 2, p.y - 2);
    }
    cairo_stroke(cr);
  }

  // A polygon whose edges all run along the pixel grid, written as the
  // coverage cairo's fill gives it (see fill_grid_polygon), when it may be;
  // false when cairo must draw it. Up to kMaxGridCorners corners: the cost is
  // rows times edges.
  static bool direct_grid_polygon(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                  int count, const ZR_DCI_Point* points, const ZR_RGB32* color) {
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

  template <bool C>
  static void polygon(void* context, ZR_Rendition* rendition, int count, const ZR_DCI_Point* points,
                      const ZR_RGB32* color) {
    if (count <= 0) return;
    if (direct_grid_polygon(self(context), rendition, C, count, points, color)) return;
    cairo_t* cr = begin(context, rendition, C, color);
    std::vector<P> poly = to_points(count, points);
    add_polygon(cr, poly);
    cairo_set_fill_rule(cr, CAIRO_FILL_RULE_EVEN_ODD);
    cairo_fill(cr);
  }

  // A strip below three points has no area: its points as a thin line.
  static void short_strip(cairo_t* cr, int count, const ZR_DCI_Point* points) {
    if (count <= 0) return;
    if (count == 1) {
      add_dot(cr, points[0]);
      cairo_fill(cr);
      return;
    }
    set_line(cr, 1);
    add_polyline(cr, to_points(count, points));
    cairo_stroke(cr);
  }

  // Adds triangle i of the strip (points i-2, i-1, i), turned counter-clockwise
  // so that the union of all of them fills under the non-zero rule.
  static void add_triangle(cairo_t* cr, const ZR_DCI_Point* points, int i) {
    P a{double(points[i - 2].x), double(points[i - 2].y)};
    P b{double(points[i - 1].x), double(points[i - 1].y)};
    P c{double(points[i].x), double(points[i].y)};
    if ((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x) < 0) std::swap(b, c);
    std::vector<P> tri{a, b, c};
    add_polygon(cr, tri);
  }

  // A strip of one colour written as the exact area of its triangles (see
  // coverage_p.h), each turned the same way so that neighbours, which share
  // an edge, join without a seam, when it may be; false when cairo must draw
  // it. Triangles that overlap (a strip folding over itself) add up on the
  // pixels both cover in part, where cairo covers their union.
  static bool direct_flat_strip(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                                const ZR_DCI_Point* points) {
    constexpr int kMost = 256;  // points; longer strips go to cairo
    if (count < 3 || count > kMost) return false;
    cairo_detail::PixelWindow window;
    if (!r.direct_window(rendition, clipped, 1, window)) return false;
    if (window.empty()) return true;
    double x[kMost], y[kMost];
    double xmin = INFINITY, xmax = -INFINITY, ymin = INFINITY, ymax = -INFINITY;
    for (int i = 0; i < count; ++i) {
      x[i] = points[i].x, y[i] = double(r.row_of(points[i].y));
      xmin = std::min(xmin, x[i]), xmax = std::max(xmax, x[i]);
      ymin = std::min(ymin, y[i]), ymax = std::max(ymax, y[i]);
    }
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

  template <bool C>
  static void triangles(void* context, ZR_Rendition* rendition, int count,
                        const ZR_DCI_Point* points) {
    if (direct_flat_strip(self(context), rendition, C, count, points)) return;
    cairo_t* cr = begin(context, rendition, C, nullptr);
    if (count < 3) return short_strip(cr, count, points);
    for (int i = 2; i < count; ++i) add_triangle(cr, points, i);
    cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
    cairo_fill(cr);
  }

  static void corner(cairo_pattern_t* mesh, unsigned corner, ZR_RGB32 c) {
    cairo_mesh_pattern_set_corner_color_rgb(mesh, corner, ((c >> 16) & 0xff) / 255.0,
                                            ((c >> 8) & 0xff) / 255.0, (c & 0xff) / 255.0);
  }

  // A strip with a colour per vertex, one mesh patch per triangle. A triangle
  // that reaches beyond the guard box is filled in its first vertex's colour.
  // A strip with a colour per vertex filled straight into the pixels, when it
  // may be; false when cairo must draw it.
  static bool direct_shaded_strip(CairoRenderer& r, ZR_Rendition* rendition, bool clipped,
                                  int count, const ZR_DCI_Point* points, const ZR_RGB32* colors) {
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

  static void shaded_strip(void* context, ZR_Rendition* rendition, bool clipped, int count,
                           const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (colors && count >= 3 &&
        direct_shaded_strip(self(context), rendition, clipped, count, points, colors))
      return;
    if (!colors && direct_flat_strip(self(context), rendition, clipped, count, points)) return;
    cairo_t* cr = begin(context, rendition, clipped, nullptr);
    if (!colors) {
      if (count < 3) return short_strip(cr, count, points);
      for (int i = 2; i < count; ++i) add_triangle(cr, points, i);
      cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
      cairo_fill(cr);
      return;
    }
    if (count < 3) return short_strip(cr, count, points);
    cairo_pattern_t* mesh = cairo_pattern_create_mesh();
    int patches = 0;
    for (int i = 2; i < count; ++i) {
      const ZR_DCI_Point* t = points + i - 2;
      bool fits = true;
      for (int k = 0; k < 3; ++k) fits = fits && inside_guard({double(t[k].x), double(t[k].y)});
      if (!fits) {
        set_rgb(cr, colors[i - 2]);
        add_triangle(cr, points, i);
        cairo_fill(cr);
        continue;
      }
      cairo_mesh_pattern_begin_patch(mesh);
      cairo_mesh_pattern_move_to(mesh, t[0].x, t[0].y);
      cairo_mesh_pattern_line_to(mesh, t[1].x, t[1].y);
      cairo_mesh_pattern_line_to(mesh, t[2].x, t[2].y);
      for (unsigned k = 0; k < 3; ++k) corner(mesh, k, colors[i - 2 + static_cast<int>(k)]);
      cairo_mesh_pattern_end_patch(mesh);
      ++patches;
    }
    if (patches > 0) {
      cairo_set_source(cr, mesh);
      cairo_paint(cr);
    }
    cairo_pattern_destroy(mesh);
  }

  template <bool C>
  static void gouraud_triangles(void* context, ZR_Rendition* rendition, int count,
                                const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    shaded_strip(context, rendition, C, count, points, colors);
  }

  template <bool C>
  static void textured_triangles(void* context, ZR_Rendition* rendition, int count,
                                 const ZR_DCI_Point* points, const ZR_RGB32* colors,
                                 const ZR_Vertex_Parameters*, const float*,
                                 const ZR_Vertex_Parameters*) {
    shaded_strip(context, rendition, C, count, points, colors);
  }

  // Adds the ellipse's curve from `start` over `sweep` to the path (after a
  // move to the centre when `from_center`).
  static void add_ellipse(cairo_t* cr, const ZR_DCI_Point& c, const ZR_DCI_Point& r, double start,
                          double sweep, double rotation, bool from_center) {
    const double reach = std::fabs(double(c.x)) + std::fabs(double(c.y)) + std::fabs(double(r.x)) +
                         std::fabs(double(r.y));
    if (reach > kGuard / 2 || !std::isfinite(start) || !std::isfinite(rotation)) {
      std::vector<P> pts = ellipse_points(c, r, std::isfinite(start) ? start : 0.0, sweep,
                                          std::isfinite(rotation) ? rotation : 0.0);
      if (from_center) {
        pts.insert(pts.begin(), P{double(c.x), double(c.y)});
        add_polygon(cr, pts);
      } else {
        add_polyline(cr, pts);
      }
      return;
    }
    cairo_save(cr);
    cairo_translate(cr, c.x, c.y);
    cairo_rotate(cr, rotation);
    cairo_scale(cr, r.x, r.y);
    // The scale carries the radii with their signs: the arc's point of angle t
    // is (rx cos t, ry sin t) before the turn, as the entries promise.
    if (from_center) cairo_move_to(cr, 0, 0);
    cairo_arc(cr, 0, 0, 1, start, start + sweep);
    if (from_center) cairo_close_path(cr);
    cairo_restore(cr);
  }

  // Adds the ring that strokes the closed polyline (x[k], y[k]) `half` units
  // each side: the polygon of its corners on one side less that of its
  // corners on the other (wound the other way), the corners where the
  // sides of neighbouring segments meet. No segment may be of no length.
  static void add_thin_ring(cairo_detail::Coverage& shape, int count, const double* x,
                            const double* y, double half) {
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

  // An arc one or two units wide, or a pie, of radii not 0, written as the
  // exact area of its stroke or fill (see coverage_p.h), the curve taken as
  // chords within a twentieth of a unit of it, when it
  // may be; false when cairo must draw it. An arc of a whole turn is a ring
  // (cairo's open path caps over itself there), and needs the curve nowhere
  // tighter than the half width; an open arc needs its joins
  // `mitred_apart`; an arc of more than a turn goes to cairo.
  static bool direct_ellipse(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, bool pie,
                             const ZR_DCI_Point& center, const ZR_DCI_Point& radii, double start,
                             double sweep, double rotation, const ZR_RGB32* color) {
    constexpr int kMost = 256;  // chords; larger ellipses go to cairo
    const int weight = pie ? 0 : std::max(weight_of(rendition), 1);
    if (weight > 2 || !std::isfinite(start) || !std::isfinite(rotation) || !(sweep > 0))
      return false;
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
    double xmin = INFINITY, xmax = -INFINITY, ymin = INFINITY, ymax = -INFINITY;
    for (int i = 0; i < count; ++i) {
      xmin = std::min(xmin, x[i]), xmax = std::max(xmax, x[i]);
      ymin = std::min(ymin, y[i]), ymax = std::max(ymax, y[i]);
    }
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

  static void ellipse(void* context, ZR_Rendition* rendition, bool clipped, bool pie,
                      const ZR_DCI_Point* center, const ZR_DCI_Point* radii, double start,
                      double end, double rotation, const ZR_RGB32* color) {
    if (radii->x == 0 && radii->y == 0 &&
        self(context).direct_dot(rendition, clipped, *center, color))
      return;
    if (radii->x != 0 && radii->y != 0) {
      const double sweep = pie ? std::min(sweep_of(start, end), kTwoPi) : sweep_of(start, end);
      if (direct_ellipse(self(context), rendition, clipped, pie, *center, *radii, start, sweep,
                         rotation, color))
        return;
    }
    cairo_t* cr = begin(context, rendition, clipped, color);
    double sweep = sweep_of(start, end);
    if (pie) sweep = std::min(sweep, kTwoPi);
    if (radii->x == 0 || radii->y == 0) {
      if (radii->x == 0 && radii->y == 0) {
        add_dot(cr, *center);
        cairo_fill(cr);
        return;
      }
      set_line(cr, pie ? 1 : weight_of(rendition));
      add_polyline(cr, ellipse_points(*center, *radii, start, sweep, rotation));
      cairo_stroke(cr);
      return;
    }
    add_ellipse(cr, *center, *radii, start, sweep, rotation, pie);
    if (pie) {
      cairo_set_fill_rule(cr, CAIRO_FILL_RULE_WINDING);
      cairo_fill(cr);
    } else {
      set_line(cr, weight_of(rendition));
      cairo_stroke(cr);
    }
  }

  template <bool C, bool Pie>
  static void ellipse_entry(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* center,
                            const ZR_DCI_Point* radii, double start, double end, double rotation,
                            const ZR_RGB32* color) {
    ellipse(context, rendition, C, Pie, center, radii, start, end, rotation, color);
  }

  template <bool C>
  static void image(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* point,
                    const ZR_Image* image) {
    CairoRenderer& self_ = self(context);
    if (!image || !*image) return;
    const ZR_Image_Data& data = **image;
    if (data.width <= 0 || data.height <= 0 || data.width > 32767 || data.height > 32767 ||
        data.pixels.size() != static_cast<std::size_t>(data.width) * data.height)
      return;
    if (!inside_guard({double(point->x), double(point->y)})) return;
    double w, h;
    self_.outer_view_.image_size(data, w, h);
    if (!(w > 0) || !(h > 0)) return;
    cairo_t* cr = begin(context, rendition, C, nullptr);
    // The top-left pixel corner of the picture, in surface units.
    const double left = point->x;
    const double top = self_.orientation_ == DeviceOrientation::y_up
                           ? double(self_.height_) - 1.0 - point->y
                           : double(point->y);
    cairo_save(cr);
    cairo_identity_matrix(cr);
    // The part the clip shows, and the image pixels under it: only those are
    // copied, so a deep zoom into a large image costs what the window shows.
    double cx0, cy0, cx1, cy1;
    cairo_clip_extents(cr, &cx0, &cy0, &cx1, &cy1);
    const double vx0 = std::max(left, cx0), vx1 = std::min(left + w, cx1);
    const double vy0 = std::max(top, cy0), vy1 = std::min(top + h, cy1);
    const double sx = data.width / w, sy = data.height / h;  // image pixels per surface unit
    auto index = [](double v, int limit) {
      return static_cast<int>(std::clamp(v, 0.0, static_cast<double>(limit)));
    };
    const int ix0 = index(std::floor((vx0 - left) * sx), data.width);
    const int ix1 = index(std::ceil((vx1 - left) * sx), data.width);
    const int iy0 = index(std::floor((vy0 - top) * sy), data.height);
    const int iy1 = index(std::ceil((vy1 - top) * sy), data.height);
    if (vx0 >= vx1 || vy0 >= vy1 || ix0 >= ix1 || iy0 >= iy1) {
      cairo_restore(cr);
      return;
    }
    cairo_surface_t* pixels = cairo_image_surface_create(CAIRO_FORMAT_RGB24, ix1 - ix0, iy1 - iy0);
    if (cairo_surface_status(pixels) != CAIRO_STATUS_SUCCESS) {
      cairo_surface_destroy(pixels);
      cairo_restore(cr);
      return;
    }
    cairo_surface_flush(pixels);
    unsigned char* base = cairo_image_surface_get_data(pixels);
    const int stride = cairo_image_surface_get_stride(pixels);
    for (int y = iy0; y < iy1; ++y) {
      auto* row =
          reinterpret_cast<std::uint32_t*>(base + static_cast<std::ptrdiff_t>(y - iy0) * stride);
      const ZR_RGB32* source = &data.pixels[static_cast<std::size_t>(y) * data.width];
      for (int x = ix0; x < ix1; ++x) row[x - ix0] = source[x] & 0xffffff;
    }
    cairo_surface_mark_dirty(pixels);
    cairo_pattern_t* pattern = cairo_pattern_create_for_surface(pixels);
    cairo_matrix_t m;
    cairo_matrix_init(&m, sx, 0, 0, sy, -sx * left - ix0, -sy * top - iy0);
    cairo_pattern_set_matrix(pattern, &m);
    cairo_pattern_set_extend(pattern, CAIRO_EXTEND_PAD);
    const bool shrunk = w < data.width || h < data.height;
    const bool crisp = w >= 4.0 * data.width && h >= 4.0 * data.height;
    const bool exact = w == data.width && h == data.height;
    cairo_pattern_set_filter(pattern, shrunk           ? CAIRO_FILTER_GOOD
                                      : crisp || exact ? CAIRO_FILTER_NEAREST
                                                       : CAIRO_FILTER_BILINEAR);
    cairo_set_source(cr, pattern);
    cairo_rectangle(cr, vx0, vy0, vx1 - vx0, vy1 - vy0);
    cairo_fill(cr);
    cairo_restore(cr);
    cairo_pattern_destroy(pattern);
    cairo_surface_destroy(pixels);
  }

  // A thin Gouraud polyline whose segments are all short (see the header),
  // each segment written flat as the exact area of its own stroke (square
  // caps at both ends, as cairo strokes each segment alone), when it may be;
  // false when cairo must draw it.
  static bool direct_flat_ramps(CairoRenderer& r, ZR_Rendition* rendition, int count,
                                const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    const int weight = std::max(weight_of(rendition), 1);
    if (!r.flat_short_ramps_ || weight > 2 || count < 2) return false;
    const double flat = std::max(double(weight), kFlatRamp);
    for (int i = 0; i + 1 < count; ++i) {
      const double dx = double(points[i + 1].x) - points[i].x;
      const double dy = double(points[i + 1].y) - points[i].y;
      const double len2 = dx * dx + dy * dy;
      if (len2 == 0 || len2 > flat * flat) return false;
    }
    cairo_detail::PixelWindow window;
    if (!r.direct_window(rendition, false, weight + 1, window)) return false;
    if (window.empty()) return true;
    cairo_detail::Coverage& shape = r.coverage();
    const double half = weight / 2.0;
    for (int i = 0; i + 1 < count; ++i) {
      const double x[2] = {double(points[i].x), double(points[i + 1].x)};
      const double y[2] = {double(r.row_of(points[i].y)), double(r.row_of(points[i + 1].y))};
      const int reach = weight + 1;
      if (!begin_around(shape, window, std::min(x[0], x[1]), std::min(y[0], y[1]),
                        std::max(x[0], x[1]), std::max(y[0], y[1]), reach))
        continue;
      add_thin_stroke(shape, 2, x, y, half);
      shape.blend(window, mix(colors[i], colors[i + 1]));
    }
    r.direct_dots_ += count;
    return true;
  }

  static void gouraud_polyline(void* context, ZR_Rendition* rendition, int count,
                               const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (count <= 0) return;
    if (colors && direct_flat_ramps(self(context), rendition, count, points, colors)) return;
    cairo_t* cr = begin(context, rendition, false, nullptr);
    if (count == 1 || !colors) return polyline<false>(context, rendition, count, points);
    const int weight = std::max(weight_of(rendition), 1);
    set_line(cr, weight);
    for (int i = 0; i + 1 < count; ++i) {
      P a{double(points[i].x), double(points[i].y)};
      P b{double(points[i + 1].x), double(points[i + 1].y)};
      if (!guard_segment(a, b)) continue;
      // A short segment is stroked flat, in the colour of its middle (see the
      // header): the gradient pattern costs four times the stroke.
      const double dx = double(points[i + 1].x) - points[i].x;
      const double dy = double(points[i + 1].y) - points[i].y;
      const double flat = std::max(double(weight), kFlatRamp);
      if (self(context).flat_short_ramps_ && dx * dx + dy * dy <= flat * flat) {
        set_rgb(cr, mix(colors[i], colors[i + 1]));
        cairo_move_to(cr, a.x, a.y);
        cairo_line_to(cr, b.x, b.y);
        cairo_stroke(cr);
        continue;
      }
      cairo_pattern_t* ramp =
          cairo_pattern_create_linear(points[i].x, points[i].y, points[i + 1].x, points[i + 1].y);
      for (int k = 0; k < 2; ++k) {
        ZR_RGB32 c = colors[i + k];
        cairo_pattern_add_color_stop_rgb(ramp, k, ((c >> 16) & 0xff) / 255.0,
                                         ((c >> 8) & 0xff) / 255.0, (c & 0xff) / 255.0);
      }
      cairo_set_source(cr, ramp);
      cairo_move_to(cr, a.x, a.y);
      cairo_line_to(cr, b.x, b.y);
      cairo_stroke(cr);
      cairo_pattern_destroy(ramp);
    }
  }
};

// ---------------------------------------------------------------------------
// The renderer
// ---------------------------------------------------------------------------

CairoRenderer::CairoRenderer(cairo_t* context, int height, DeviceOrientation orientation)
    : cr_(cairo_reference(context)), height_(height), orientation_(orientation) {
  cairo_detail::set_actions<Access>(*this, this);
  forget_clip();
}

CairoRenderer::~CairoRenderer() {
  flush_direct();
  cairo_destroy(cr_);
}

void CairoRenderer::forget_clip() {
  flush_direct();
  cairo_reset_clip(cr_);
  clip_has_rect_ = false;
  clip_contours_.clear();
  clip_outer_.clear();
  clip_nothing_ = false;
  cairo_matrix_t m;
  if (orientation_ == DeviceOrientation::y_up)
    cairo_matrix_init(&m, 1, 0, 0, -1, 0.5, height_ - 0.5);
  else
    cairo_matrix_init(&m, 1, 0, 0, 1, 0.5, 0.5);
  cairo_set_matrix(cr_, &m);
}

namespace {

// Adds the contours of `set` to the path, shifted by `origin`.
void add_contours(cairo_t* cr, const ZR_Contour_Set_Data& set, double ox = 0, double oy = 0) {
  std::vector<P> poly;
  const ZR_Point* point = set.contour_points;
  for (int i = 0; i < set.contour_count; ++i) {
    poly.clear();
    for (int k = 0; k < set.contour_sizes[i]; ++k, ++point)
      poly.push_back({ox + point->x, oy + point->y});
    add_polygon(cr, poly);
  }
}

}  // namespace

void CairoRenderer::use_clip(ZR_Rendition* rendition, bool clipped) {
  const ZR_Rendition_Data* data = rendition ? rendition->get() : nullptr;
  const bool want_rect =
      clipped && data &&
      !(data->hard_clip.x_min == INT32_MIN && data->hard_clip.x_max == INT32_MAX &&
        data->hard_clip.y_min == INT32_MIN && data->hard_clip.y_max == INT32_MAX);
  ZR_Contour_Set_Data* contours = data ? data->complex_clip.get() : nullptr;
  const OuterView::Reach reach = outer_view_.reach(rendition, 4 + weight_of(rendition));
  ZR_Contour_Set_Data* outer = reach == OuterView::Reach::cut ? outer_view_.contours() : nullptr;
  const bool nothing = reach == OuterView::Reach::skip;
  if (want_rect == clip_has_rect_ && (!want_rect || data->hard_clip == clip_rect_) &&
      contours == clip_contours_.get() && outer == clip_outer_.get() && nothing == clip_nothing_)
    return;
  forget_clip();
  if (nothing) {
    cairo_rectangle(cr_, 0, 0, 0, 0);  // an empty rectangle: nothing shows
    cairo_clip(cr_);
    clip_nothing_ = true;
    return;
  }
  if (want_rect) {
    const ZR_Int_Rectangle& h = data->hard_clip;
    auto lo = [](int v) { return std::clamp(v - 0.5, -kGuard, kGuard); };
    auto hi = [](int v) { return std::clamp(v + 0.5, -kGuard, kGuard); };
    cairo_rectangle(cr_, lo(h.x_min), lo(h.y_min), hi(h.x_max) - lo(h.x_min),
                    hi(h.y_max) - lo(h.y_min));
    if (h.x_max < h.x_min || h.y_max < h.y_min) {
      cairo_new_path(cr_);
      cairo_rectangle(cr_, 0, 0, 0, 0);  // an empty rectangle: nothing shows
    }
    cairo_clip(cr_);
    clip_has_rect_ = true;
    clip_rect_ = h;
  }
  if (contours) {
    add_contours(cr_, *contours);
    cairo_set_fill_rule(cr_, CAIRO_FILL_RULE_EVEN_ODD);
    cairo_clip(cr_);
    clip_contours_ = data->complex_clip;
  }
  if (outer) {
    add_contours(cr_, *outer);
    cairo_set_fill_rule(cr_, CAIRO_FILL_RULE_EVEN_ODD);
    cairo_clip(cr_);
    clip_outer_ = ZR_Contour_Set(outer_view_.contours());
  }
}

void CairoRenderer::set_color(ZR_Rendition* rendition, const ZR_RGB32* color) {
  ZR_RGB32 c = color ? *color : (rendition && *rendition ? rendition->color() : 0);
  set_rgb(cr_, c);
}

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

void CairoRenderer::paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                                   const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color,
                                   bool clipped) {
  flush_direct();
  use_clip(rendition, clipped);
  set_color(rendition, color);
  add_contours(cr_, glyphs, origin.x, origin.y);
  cairo_set_fill_rule(cr_, CAIRO_FILL_RULE_EVEN_ODD);
  cairo_fill(cr_);
}

}  // namespace DL
