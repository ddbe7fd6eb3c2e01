// The entries of the draft renderer: pixels written straight into an image.
//
// Geometry is turned into pixel space (column, row from the top) in double,
// which holds every int coordinate exactly; everything is cut to the entry's
// pixel box in double before anything is converted back to an integer, so
// device values at the int limits cost nothing and overflow nothing.
#include "backends/cairo/draft_renderer.h"

#include <algorithm>
#include <cmath>

#include "backends/cairo/action_table_p.h"

namespace DL {

namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
constexpr int kMaxEllipseSegments = 128;

// The sweep from `start` to `end`, lifted by whole turns so it is not negative
// (as the cairo renderer reads it).
double sweep_of(double start, double end) {
  double sweep = end - start;
  if (!std::isfinite(sweep)) return kTwoPi;
  if (sweep < 0.0) sweep += kTwoPi * std::ceil(-sweep / kTwoPi);
  return sweep;
}

// `v` clamped to [lo, hi] and converted; `v` may be anything finite.
long long to_index(double v, long long lo, long long hi) {
  if (!(v > static_cast<double>(lo))) return lo;  // also catches NaN
  if (v >= static_cast<double>(hi)) return hi;
  return static_cast<long long>(v);
}

}  // namespace

// ---------------------------------------------------------------------------
// The entries
// ---------------------------------------------------------------------------

struct DraftRenderer::Access {
  static DraftRenderer& self(void* context) { return *static_cast<DraftRenderer*>(context); }

  template <bool C>
  static void dot(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* point,
                  const ZR_RGB32* color) {
    DraftRenderer& r = self(context);
    if (!r.data_) return;
    const Box b = r.box_for(rendition, C);
    const Pt p = r.to_pixel(*point);
    r.pixel(b, p.x, p.y, r.color_of(rendition, color));
  }

  static void lines(DraftRenderer& r, const Box& b, int count, const ZR_DCI_Point* points,
                    const ZR_RGB32* colors, std::uint32_t color) {
    if (count <= 0) return;
    if (count == 1) {
      const Pt p = r.to_pixel(points[0]);
      r.pixel(b, p.x, p.y, colors ? 0xff000000u | (colors[0] & 0xffffffu) : color);
      return;
    }
    Pt a = r.to_pixel(points[0]);
    for (int i = 1; i < count; ++i) {
      const Pt z = r.to_pixel(points[i]);
      r.line(b, a, z, colors ? 0xff000000u | (colors[i - 1] & 0xffffffu) : color);
      a = z;
    }
  }

  template <bool C>
  static void polyline(void* context, ZR_Rendition* rendition, int count,
                       const ZR_DCI_Point* points) {
    DraftRenderer& r = self(context);
    if (!r.data_ || count <= 0) return;
    lines(r, r.box_for(rendition, C), count, points, nullptr, r.color_of(rendition, nullptr));
  }

  static void gouraud_polyline(void* context, ZR_Rendition* rendition, int count,
                               const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    DraftRenderer& r = self(context);
    if (!r.data_ || count <= 0) return;
    lines(r, r.box_for(rendition, false), count, points, colors, r.color_of(rendition, nullptr));
  }

  template <bool C>
  static void polymarker(void* context, ZR_Rendition* rendition, int count,
                         const ZR_DCI_Point* points) {
    DraftRenderer& r = self(context);
    if (!r.data_) return;
    const Box b = r.box_for(rendition, C);
    const std::uint32_t c = r.color_of(rendition, nullptr);
    for (int i = 0; i < count; ++i) {
      const Pt p = r.to_pixel(points[i]);
      if (p.x < b.x0 - 2 || p.x > b.x1 + 2 || p.y < b.y0 - 2 || p.y > b.y1 + 2) continue;
      for (int k = -2; k <= 2; ++k) {
        r.pixel(b, p.x + k, p.y + k, c);
        r.pixel(b, p.x + k, p.y - k, c);
      }
    }
  }

  template <bool C>
  static void polygon(void* context, ZR_Rendition* rendition, int count, const ZR_DCI_Point* points,
                      const ZR_RGB32* color) {
    DraftRenderer& r = self(context);
    if (!r.data_ || count <= 0) return;
    r.poly_.clear();
    r.starts_.assign(1, 0);
    for (int i = 0; i < count; ++i) r.poly_.push_back(r.to_pixel(points[i]));
    r.fill(r.box_for(rendition, C), r.color_of(rendition, color));
  }

  // A strip, each triangle flat in its first vertex's colour (or `color`).
  static void strip(DraftRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                    const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (!r.data_ || count <= 0) return;
    const Box b = r.box_for(rendition, clipped);
    const std::uint32_t color = r.color_of(rendition, nullptr);
    if (count < 3) return lines(r, b, count, points, nullptr, color);
    Pt p0 = r.to_pixel(points[0]), p1 = r.to_pixel(points[1]);
    for (int i = 2; i < count; ++i) {
      const Pt p2 = r.to_pixel(points[i]);
      r.fill_triangle(b, p0, p1, p2, colors ? 0xff000000u | (colors[i - 2] & 0xffffffu) : color);
      p0 = p1;
      p1 = p2;
    }
  }

  template <bool C>
  static void triangles(void* context, ZR_Rendition* rendition, int count,
                        const ZR_DCI_Point* points) {
    strip(self(context), rendition, C, count, points, nullptr);
  }

  template <bool C>
  static void gouraud_triangles(void* context, ZR_Rendition* rendition, int count,
                                const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    strip(self(context), rendition, C, count, points, colors);
  }

  template <bool C>
  static void textured_triangles(void* context, ZR_Rendition* rendition, int count,
                                 const ZR_DCI_Point* points, const ZR_RGB32* colors,
                                 const ZR_Vertex_Parameters*, const float*,
                                 const ZR_Vertex_Parameters*) {
    strip(self(context), rendition, C, count, points, colors);
  }

  template <bool C, bool Pie>
  static void ellipse_entry(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* center,
                            const ZR_DCI_Point* radii, double start, double end, double rotation,
                            const ZR_RGB32* color) {
    DraftRenderer& r = self(context);
    if (!r.data_) return;
    const Box b = r.box_for(rendition, C);
    const std::uint32_t c = r.color_of(rendition, color);
    const double rx = radii->x, ry = radii->y;
    const Pt o = r.to_pixel(*center);
    // Skipped when even the square around the circle of radius |rx| + |ry| misses.
    const double reach = std::fabs(rx) + std::fabs(ry);
    if (o.x + reach < b.x0 - 1 || o.x - reach > b.x1 + 1 || o.y + reach < b.y0 - 1 ||
        o.y - reach > b.y1 + 1)
      return;
    if (rx == 0 && ry == 0) return r.pixel(b, o.x, o.y, c);
    if (!std::isfinite(start)) start = 0;
    if (!std::isfinite(rotation)) rotation = 0;
    double sweep = sweep_of(start, end);
    if (Pie) sweep = std::min(sweep, kTwoPi);
    const double extent = std::max(std::fabs(rx), std::fabs(ry));
    const int n = static_cast<int>(
        std::clamp(std::sqrt(extent) * 2.0 * std::min(sweep, kTwoPi) / kTwoPi + 2.0, 2.0,
                   double(kMaxEllipseSegments)));
    const double cs = std::cos(rotation), sn = std::sin(rotation);
    const double flip = r.orientation_ == DeviceOrientation::y_up ? -1.0 : 1.0;
    r.poly_.clear();
    r.starts_.assign(1, 0);
    const bool filled = Pie && rx != 0 && ry != 0;
    if (filled) r.poly_.push_back(o);
    for (int i = 0; i <= n; ++i) {
      const double t = start + sweep * i / n;
      const double ex = rx * std::cos(t), ey = ry * std::sin(t);
      r.poly_.push_back({o.x + cs * ex - sn * ey, o.y + flip * (sn * ex + cs * ey)});
    }
    if (filled) return r.fill(b, c);
    for (std::size_t i = 1; i < r.poly_.size(); ++i) r.line(b, r.poly_[i - 1], r.poly_[i], c);
  }

  template <bool C>
  static void image(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* point,
                    const ZR_Image* image) {
    DraftRenderer& r = self(context);
    if (!r.data_ || !image || !*image) return;
    const ZR_Image_Data& data = **image;
    if (data.width <= 0 || data.height <= 0 ||
        data.pixels.size() != static_cast<std::size_t>(data.width) * data.height)
      return;
    const Box b = r.box_for(rendition, C);
    const Pt p = r.to_pixel(*point);
    const std::uint32_t c =
        0xff000000u | (data.pixels[static_cast<std::size_t>(data.height / 2) * data.width +
                                   static_cast<std::size_t>(data.width / 2)] &
                       0xffffffu);
    double w, h;
    r.outer_view_.image_size(data, w, h);
    // The pixels whose centres the image covers, at least one.
    constexpr double kFar = 1e15;
    const double left = std::clamp(p.x - 0.5, -kFar, kFar),
                 top = std::clamp(p.y - 0.5, -kFar, kFar);
    const long long first_x = static_cast<long long>(std::ceil(left));
    const long long first_y = static_cast<long long>(std::ceil(top));
    const long long x0 = std::max(b.x0, first_x);
    const long long x1 = std::min(
        b.x1, std::max(first_x, static_cast<long long>(std::ceil(std::min(left + w, kFar))) - 1));
    const long long y0 = std::max(b.y0, first_y);
    const long long y1 = std::min(
        b.y1, std::max(first_y, static_cast<long long>(std::ceil(std::min(top + h, kFar))) - 1));
    for (long long y = y0; y <= y1; ++y)
      for (long long x = x0; x <= x1; ++x) r.put(x, y, c);
  }
};

// ---------------------------------------------------------------------------
// The renderer
// ---------------------------------------------------------------------------

DraftRenderer::DraftRenderer(cairo_surface_t* surface, DeviceOrientation orientation)
    : surface_(cairo_surface_reference(surface)), orientation_(orientation) {
  cairo_detail::set_actions<Access>(*this, this);

  if (cairo_surface_status(surface_) != CAIRO_STATUS_SUCCESS ||
      cairo_surface_get_type(surface_) != CAIRO_SURFACE_TYPE_IMAGE)
    return;
  const cairo_format_t format = cairo_image_surface_get_format(surface_);
  if (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24) return;
  cairo_surface_flush(surface_);
  data_ = cairo_image_surface_get_data(surface_);
  stride_ = cairo_image_surface_get_stride(surface_);
  width_ = cairo_image_surface_get_width(surface_);
  height_ = cairo_image_surface_get_height(surface_);
}

DraftRenderer::~DraftRenderer() {
  if (data_) cairo_surface_mark_dirty(surface_);
  cairo_surface_destroy(surface_);
}

void DraftRenderer::clear(ZR_RGB32 color) {
  if (!data_) return;
  const std::uint32_t c = 0xff000000u | (color & 0xffffffu);
  for (long long y = 0; y < height_; ++y)
    std::fill_n(reinterpret_cast<std::uint32_t*>(data_ + y * stride_), width_, c);
}

void DraftRenderer::mark_dirty() {
  if (data_) cairo_surface_mark_dirty(surface_);
}

void DraftRenderer::flush() {
  if (data_) cairo_surface_flush(surface_);
}

DraftRenderer::Pt DraftRenderer::to_pixel(double x, double y) const {
  return {x, orientation_ == DeviceOrientation::y_up ? (height_ - 1) - y : y};
}

DraftRenderer::Pt DraftRenderer::to_pixel(const ZR_DCI_Point& p) const {
  return to_pixel(double(p.x), double(p.y));
}

DraftRenderer::Box DraftRenderer::box_for(ZR_Rendition* rendition, bool clipped) {
  Box b{0, width_ - 1LL, 0, height_ - 1LL};
  const ZR_Rendition_Data* data = rendition && *rendition ? rendition->get() : nullptr;
  if (!data) return b;
  const bool up = orientation_ == DeviceOrientation::y_up;
  if (clipped) {
    const ZR_Int_Rectangle& h = data->hard_clip;
    b.x0 = std::max(b.x0, static_cast<long long>(h.x_min));
    b.x1 = std::min(b.x1, static_cast<long long>(h.x_max));
    const long long r0 = up ? height_ - 1LL - h.y_max : h.y_min;
    const long long r1 = up ? height_ - 1LL - h.y_min : h.y_max;
    b.y0 = std::max(b.y0, r0);
    b.y1 = std::min(b.y1, r1);
  }
  auto cut = [&b](const Box& c) {
    b.x0 = std::max(b.x0, c.x0);
    b.x1 = std::min(b.x1, c.x1);
    b.y0 = std::max(b.y0, c.y0);
    b.y1 = std::min(b.y1, c.y1);
  };
  if (data->complex_clip.get()) cut(contour_box(clip_set_, clip_box_, data->complex_clip.get()));
  const int weight = data->line_attributes ? std::max(1, rendition->line_weight()) : 1;
  switch (outer_view_.reach(rendition, 4 + weight)) {
    case OuterView::Reach::none:
      break;
    case OuterView::Reach::skip:
      return {0, -1, 0, -1};
    case OuterView::Reach::cut:
      cut(contour_box(outer_set_, outer_box_, outer_view_.contours()));
      break;
  }
  return b;
}

const DraftRenderer::Box& DraftRenderer::contour_box(ZR_Contour_Set& cached, Box& box,
                                                     ZR_Contour_Set_Data* set) {
  if (set == cached.get()) return box;
  cached = ZR_Contour_Set(set);
  double x0 = INFINITY, x1 = -INFINITY, y0 = INFINITY, y1 = -INFINITY;
  int total = 0;
  for (int i = 0; i < set->contour_count; ++i) total += std::max(0, set->contour_sizes[i]);
  for (int i = 0; i < total; ++i) {
    const ZR_Point& p = set->contour_points[i];
    if (!std::isfinite(p.x) || !std::isfinite(p.y)) continue;
    const Pt q = to_pixel(double(p.x), double(p.y));
    x0 = std::min(x0, q.x);
    x1 = std::max(x1, q.x);
    y0 = std::min(y0, q.y);
    y1 = std::max(y1, q.y);
  }
  constexpr long long kFar = 1LL << 40;
  if (x0 > x1)
    box = {0, -1, 0, -1};
  else
    box = {to_index(std::floor(x0), -kFar, kFar), to_index(std::ceil(x1), -kFar, kFar),
           to_index(std::floor(y0), -kFar, kFar), to_index(std::ceil(y1), -kFar, kFar)};
  return box;
}

void DraftRenderer::pixel(const Box& b, double x, double y, std::uint32_t c) {
  if (x < b.x0 || x > b.x1 || y < b.y0 || y > b.y1) return;
  put(static_cast<long long>(x), static_cast<long long>(y), c);
}

void DraftRenderer::line(const Box& b, Pt a, Pt z, std::uint32_t c) {
  if (b.x0 > b.x1 || b.y0 > b.y1) return;
  auto inside = [&](const Pt& p) {
    return p.x >= b.x0 && p.x <= b.x1 && p.y >= b.y0 && p.y <= b.y1;
  };
  if (!inside(a) || !inside(z)) {
    // Liang-Barsky against the box grown by half a pixel.
    const double lo_x = b.x0 - 0.5, hi_x = b.x1 + 0.5, lo_y = b.y0 - 0.5, hi_y = b.y1 + 0.5;
    double t0 = 0.0, t1 = 1.0;
    const double dx = z.x - a.x, dy = z.y - a.y;
    const double p[4] = {-dx, dx, -dy, dy};
    const double q[4] = {a.x - lo_x, hi_x - a.x, a.y - lo_y, hi_y - a.y};
    for (int i = 0; i < 4; ++i) {
      if (p[i] == 0.0) {
        if (q[i] < 0.0) return;
        continue;
      }
      const double t = q[i] / p[i];
      if (p[i] < 0.0)
        t0 = std::max(t0, t);
      else
        t1 = std::min(t1, t);
      if (t0 > t1) return;
    }
    const Pt s = a;
    a = {s.x + t0 * dx, s.y + t0 * dy};
    z = {s.x + t1 * dx, s.y + t1 * dy};
  }
  // Whole pixels, inside the box (the cut ends may lie half a pixel out).
  long long x = to_index(std::nearbyint(a.x), b.x0, b.x1);
  long long y = to_index(std::nearbyint(a.y), b.y0, b.y1);
  const long long x_end = to_index(std::nearbyint(z.x), b.x0, b.x1);
  const long long y_end = to_index(std::nearbyint(z.y), b.y0, b.y1);
  const long long ddx = x_end > x ? x_end - x : x - x_end;
  const long long ddy = -(y_end > y ? y_end - y : y - y_end);
  const long long sx = x < x_end ? 1 : -1, sy = y < y_end ? 1 : -1;
  long long err = ddx + ddy;
  for (;;) {
    put(x, y, c);
    if (x == x_end && y == y_end) break;
    const long long e2 = 2 * err;
    if (e2 >= ddy) {
      err += ddy;
      x += sx;
    }
    if (e2 <= ddx) {
      err += ddx;
      y += sy;
    }
  }
}

void DraftRenderer::fill_triangle(const Box& b, const Pt& a, const Pt& m, const Pt& z,
                                  std::uint32_t c) {
  poly_.clear();
  poly_.push_back(a);
  poly_.push_back(m);
  poly_.push_back(z);
  starts_.assign(1, 0);
  fill(b, c);
}

void DraftRenderer::fill(const Box& b, std::uint32_t c) {
  if (poly_.empty() || b.x0 > b.x1 || b.y0 > b.y1) return;
  starts_.push_back(poly_.size());
  double x_lo = poly_[0].x, x_hi = x_lo, y_lo = poly_[0].y, y_hi = y_lo;
  for (const Pt& p : poly_) {
    x_lo = std::min(x_lo, p.x);
    x_hi = std::max(x_hi, p.x);
    y_lo = std::min(y_lo, p.y);
    y_hi = std::max(y_hi, p.y);
  }
  if (x_hi < b.x0 - 1 || x_lo > b.x1 + 1) return;
  // Rows whose centre line the polygon may cross, inside the box.
  const long long row0 = to_index(std::ceil(y_lo), b.y0, b.y1 + 1);
  const long long row1 = to_index(std::floor(y_hi), b.y0 - 1, b.y1);
  for (long long row = row0; row <= row1; ++row) {
    const double y = static_cast<double>(row);
    crossings_.clear();
    for (std::size_t k = 0; k + 1 < starts_.size(); ++k) {
      const std::size_t first = starts_[k], end = starts_[k + 1];
      for (std::size_t i = first; i < end; ++i) {
        const Pt& p = poly_[i];
        const Pt& q = poly_[i + 1 < end ? i + 1 : first];
        // Half-open in y, so a vertex on the line counts once.
        if ((p.y <= y) != (q.y <= y))
          crossings_.push_back(p.x + (y - p.y) * (q.x - p.x) / (q.y - p.y));
      }
    }
    if (crossings_.size() < 2) continue;
    std::sort(crossings_.begin(), crossings_.end());
    auto* line = reinterpret_cast<std::uint32_t*>(data_ + row * stride_);
    for (std::size_t i = 0; i + 1 < crossings_.size(); i += 2) {
      // Pixels whose centre lies in [left, right).
      const long long x0 = to_index(std::ceil(crossings_[i]), b.x0, b.x1 + 1);
      const long long x1 = to_index(std::ceil(crossings_[i + 1]) - 1, b.x0 - 1, b.x1);
      for (long long x = x0; x <= x1; ++x) line[x] = c;
    }
  }
}

void DraftRenderer::paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                                   const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color,
                                   bool clipped) {
  if (!data_) return;
  poly_.clear();
  starts_.clear();
  const ZR_Point* point = glyphs.contour_points;
  for (int i = 0; i < glyphs.contour_count; ++i) {
    if (glyphs.contour_sizes[i] <= 0) continue;
    starts_.push_back(poly_.size());
    for (int k = 0; k < glyphs.contour_sizes[i]; ++k, ++point)
      poly_.push_back(to_pixel(double(origin.x) + point->x, double(origin.y) + point->y));
  }
  fill(box_for(rendition, clipped), color_of(rendition, color));
}

}  // namespace DL
