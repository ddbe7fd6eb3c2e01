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
#include "backends/cairo/cairo_renderer_p.h"

namespace DL {

namespace {

using cairo_detail::kFlatRamp;
using cairo_detail::kGuard;
using cairo_detail::kPi;
using cairo_detail::kTwoPi;
using cairo_detail::mix;
using cairo_detail::weight_of;

struct P {
  double x;
  double y;
};

void set_rgb(cairo_t* cr, ZR_RGB32 c) {
  cairo_set_source_rgb(cr, ((c >> 16) & 0xff) / 255.0, ((c >> 8) & 0xff) / 255.0,
                       (c & 0xff) / 255.0);
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

  template <bool C>
  static void polyline(void* context, ZR_Rendition* rendition, int count,
                       const ZR_DCI_Point* points) {
    if (count <= 0) return;
    if (count == 1 && self(context).direct_dot(rendition, C, points[0], nullptr)) return;
    if (Direct::grid_polyline(self(context), rendition, C, count, points)) return;
    if (Direct::thin_polyline(self(context), rendition, C, count, points)) return;
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

  template <bool C>
  static void polymarker(void* context, ZR_Rendition* rendition, int count,
                         const ZR_DCI_Point* points) {
    if (count <= 0) return;
    if (Direct::markers(self(context), rendition, C, count, points)) return;
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

  template <bool C>
  static void polygon(void* context, ZR_Rendition* rendition, int count, const ZR_DCI_Point* points,
                      const ZR_RGB32* color) {
    if (count <= 0) return;
    if (Direct::grid_polygon(self(context), rendition, C, count, points, color)) return;
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

  template <bool C>
  static void triangles(void* context, ZR_Rendition* rendition, int count,
                        const ZR_DCI_Point* points) {
    if (Direct::flat_strip(self(context), rendition, C, count, points)) return;
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

  static void shaded_strip(void* context, ZR_Rendition* rendition, bool clipped, int count,
                           const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (colors && count >= 3 &&
        Direct::shaded_strip(self(context), rendition, clipped, count, points, colors))
      return;
    if (!colors && Direct::flat_strip(self(context), rendition, clipped, count, points)) return;
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

  static void ellipse(void* context, ZR_Rendition* rendition, bool clipped, bool pie,
                      const ZR_DCI_Point* center, const ZR_DCI_Point* radii, double start,
                      double end, double rotation, const ZR_RGB32* color) {
    if (radii->x == 0 && radii->y == 0 &&
        self(context).direct_dot(rendition, clipped, *center, color))
      return;
    if (radii->x != 0 && radii->y != 0) {
      const double sweep = pie ? std::min(sweep_of(start, end), kTwoPi) : sweep_of(start, end);
      if (Direct::ellipse(self(context), rendition, clipped, pie, *center, *radii, start, sweep,
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

  static void gouraud_polyline(void* context, ZR_Rendition* rendition, int count,
                               const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (count <= 0) return;
    if (colors && Direct::ramps(self(context), rendition, count, points, colors)) return;
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
