// The action entries of the Qt renderer.
//
// Every entry brings the clip up to date, turns device points into pixel
// space (cut to the guard box first) and paints with a pen or a brush.
#include "backends/qt/qt_renderer.h"

#include <QImage>
#include <QLinearGradient>
#include <algorithm>
#include <cmath>
#include <cstdint>
#include <vector>

#include "backends/cairo/action_table_p.h"

namespace DL {

namespace {

// Geometry is cut to the device grown by this many units on each side: far
// enough that no cut shows (a line would need to be this wide), near enough
// that Qt's rasterizer, which works in 16.16 fixed point, never meets a
// coordinate beyond 2^15 on a device up to 24000 pixels across.
constexpr double kGuardMargin = 4096.0;
constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
// Gouraud triangles are shaded per pixel over at most this many pixels each;
// a larger one (only on a huge device) is filled in its first colour.
constexpr long long kMaxShadedPixels = 1LL << 24;

struct P {
  double x;
  double y;
};

using Guard = QtRenderer::Guard;

// Cuts a closed polygon to the guard box (Sutherland-Hodgman, one pass per side).
void guard_polygon(const Guard& g, std::vector<P>& poly) {
  if (std::all_of(poly.begin(), poly.end(), [&g](const P& p) { return g.inside(p.x, p.y); }))
    return;
  std::vector<P> out;
  for (int side = 0; side < 4 && !poly.empty(); ++side) {
    const bool is_x = side < 2;
    const double limit = side == 0 ? g.x0 : side == 1 ? g.x1 : side == 2 ? g.y0 : g.y1;
    auto in = [&](const P& p) {
      const double v = is_x ? p.x : p.y;
      return side % 2 == 0 ? v >= limit : v <= limit;
    };
    auto cross = [&](const P& a, const P& b) {
      const double t = is_x ? (limit - a.x) / (b.x - a.x) : (limit - a.y) / (b.y - a.y);
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
bool guard_segment(const Guard& g, P& a, P& b) {
  double t0 = 0.0, t1 = 1.0;
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double p[4] = {-dx, dx, -dy, dy};
  const double q[4] = {a.x - g.x0, g.x1 - a.x, a.y - g.y0, g.y1 - a.y};
  for (int i = 0; i < 4; ++i) {
    if (p[i] == 0.0) {
      if (q[i] < 0.0) return false;
      continue;
    }
    const double r = q[i] / p[i];
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

std::vector<P> to_points(int count, const ZR_DCI_Point* points) {
  std::vector<P> out(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) out[i] = {double(points[i].x), double(points[i].y)};
  return out;
}

QColor qcolor(ZR_RGB32 c) {
  return QColor(int((c >> 16) & 0xff), int((c >> 8) & 0xff), int(c & 0xff));
}

int weight_of(const ZR_Rendition* r) {
  return (r && *r && r->get()->line_attributes) ? r->line_weight() : 1;
}

double sweep_of(double start, double end) {
  double sweep = end - start;
  if (!std::isfinite(sweep)) return kTwoPi;
  if (sweep < 0.0) sweep += kTwoPi * std::ceil(-sweep / kTwoPi);
  return sweep;
}

// Points of the ellipse from `start` over `sweep`, close enough that the
// polyline strays under a tenth of a pixel from the curve: a step of
// 0.9 / sqrt(radius) radians.
std::vector<P> ellipse_points(const ZR_DCI_Point& c, const ZR_DCI_Point& r, double start,
                              double sweep, double rotation) {
  const double extent = std::max(std::fabs(double(r.x)), std::fabs(double(r.y)));
  const int n =
      static_cast<int>(std::clamp(std::ceil(sweep * std::sqrt(extent) / 0.9), 8.0, 65536.0));
  std::vector<P> out(static_cast<std::size_t>(n) + 1);
  const double cs = std::cos(rotation), sn = std::sin(rotation);
  for (int i = 0; i <= n; ++i) {
    const double t = start + sweep * i / n;
    const double ex = r.x * std::cos(t), ey = r.y * std::sin(t);
    out[i] = {c.x + cs * ex - sn * ey, c.y + sn * ex + cs * ey};
  }
  return out;
}

}  // namespace

// ---------------------------------------------------------------------------
// The entries
// ---------------------------------------------------------------------------

struct QtRenderer::Access {
  static QtRenderer& self(void* context) { return *static_cast<QtRenderer*>(context); }

  // Clip for one entry; the painter's pen and brush are left to the entry.
  // Null, and the entry draws nothing, when there is no active painter.
  static QPainter* begin(void* context, ZR_Rendition* rendition, bool clipped) {
    QtRenderer& r = self(context);
    if (!r.painter_ || !r.painter_->isActive()) return nullptr;
    r.use_clip(rendition, clipped);
    return r.painter_;
  }

  static void set_pen(QtRenderer& r, const QColor& color, int weight) {
    weight = r.draft_ ? 1 : std::max(weight, 1);
    const bool thin = weight <= 2;
    QPen pen(color, weight, Qt::SolidLine, thin ? Qt::SquareCap : Qt::RoundCap,
             thin ? Qt::MiterJoin : Qt::RoundJoin);
    r.painter_->setPen(pen);
    r.painter_->setBrush(Qt::NoBrush);
  }

  static void set_fill(QtRenderer& r, const QColor& color) {
    r.painter_->setPen(Qt::NoPen);
    r.painter_->setBrush(color);
  }

  static void add_polygon(QtRenderer& r, QPainterPath& path, std::vector<P>& poly) {
    guard_polygon(r.guard(), poly);
    if (poly.empty()) return;
    path.moveTo(r.to_pixel(poly[0].x, poly[0].y));
    for (std::size_t i = 1; i < poly.size(); ++i) path.lineTo(r.to_pixel(poly[i].x, poly[i].y));
    path.closeSubpath();
  }

  // An open polyline, cut to the guard box.
  static void add_polyline(QtRenderer& r, QPainterPath& path, const std::vector<P>& pts) {
    bool joined = false;
    for (std::size_t i = 0; i + 1 < pts.size(); ++i) {
      P a = pts[i], b = pts[i + 1];
      const bool a_in = r.guard().inside(a.x, a.y);
      if (!guard_segment(r.guard(), a, b)) {
        joined = false;
        continue;
      }
      if (!joined || !a_in) path.moveTo(r.to_pixel(a.x, a.y));
      path.lineTo(r.to_pixel(b.x, b.y));
      joined = r.guard().inside(pts[i + 1].x, pts[i + 1].y);
    }
  }

  static void fill_dot(QtRenderer& r, const ZR_DCI_Point& p, const QColor& color) {
    if (!r.guard().inside(double(p.x), double(p.y))) return;
    const QPointF c = r.to_pixel(p.x, p.y);
    r.painter_->fillRect(QRectF(c.x() - 0.5, c.y() - 0.5, 1.0, 1.0), color);
  }

  static void stroke(QtRenderer& r, const std::vector<P>& pts, const QColor& color, int weight) {
    QPainterPath path;
    add_polyline(r, path, pts);
    set_pen(r, color, weight);
    r.painter_->drawPath(path);
  }

  template <bool C>
  static void dot(void* context, ZR_Rendition* rendition, const ZR_DCI_Point* point,
                  const ZR_RGB32* color) {
    if (!begin(context, rendition, C)) return;
    fill_dot(self(context), *point, self(context).color_of(rendition, color));
  }

  template <bool C>
  static void polyline(void* context, ZR_Rendition* rendition, int count,
                       const ZR_DCI_Point* points) {
    if (count <= 0) return;
    if (!begin(context, rendition, C)) return;
    QtRenderer& r = self(context);
    const QColor color = r.color_of(rendition, nullptr);
    if (count == 1) return fill_dot(r, points[0], color);
    stroke(r, to_points(count, points), color, weight_of(rendition));
  }

  template <bool C>
  static void polymarker(void* context, ZR_Rendition* rendition, int count,
                         const ZR_DCI_Point* points) {
    if (!begin(context, rendition, C)) return;
    QtRenderer& r = self(context);
    QPainterPath path;
    for (int i = 0; i < count; ++i) {
      const P p{double(points[i].x), double(points[i].y)};
      if (!r.guard().inside(p.x, p.y)) continue;
      path.moveTo(r.to_pixel(p.x - 2, p.y - 2));
      path.lineTo(r.to_pixel(p.x + 2, p.y + 2));
      path.moveTo(r.to_pixel(p.x - 2, p.y + 2));
      path.lineTo(r.to_pixel(p.x + 2, p.y - 2));
    }
    set_pen(r, r.color_of(rendition, nullptr), 1);
    r.painter_->drawPath(path);
  }

  template <bool C>
  static void polygon(void* context, ZR_Rendition* rendition, int count, const ZR_DCI_Point* points,
                      const ZR_RGB32* color) {
    if (count <= 0) return;
    if (!begin(context, rendition, C)) return;
    QtRenderer& r = self(context);
    std::vector<P> poly = to_points(count, points);
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    add_polygon(r, path, poly);
    set_fill(r, r.color_of(rendition, color));
    r.painter_->drawPath(path);
  }

  // A strip below three points has no area: its points as a thin line.
  static void short_strip(QtRenderer& r, int count, const ZR_DCI_Point* points,
                          const QColor& color) {
    if (count <= 0) return;
    if (count == 1) return fill_dot(r, points[0], color);
    stroke(r, to_points(count, points), color, 1);
  }

  // Triangle i of the strip (points i-2, i-1, i), turned counter-clockwise so
  // that the union of all of them fills under the winding rule.
  static void add_triangle(QtRenderer& r, QPainterPath& path, const ZR_DCI_Point* points, int i) {
    P a{double(points[i - 2].x), double(points[i - 2].y)};
    P b{double(points[i - 1].x), double(points[i - 1].y)};
    P c{double(points[i].x), double(points[i].y)};
    if ((b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x) < 0) std::swap(b, c);
    std::vector<P> tri{a, b, c};
    add_polygon(r, path, tri);
  }

  static void flat_strip(QtRenderer& r, int count, const ZR_DCI_Point* points,
                         const QColor& color) {
    if (count < 3) return short_strip(r, count, points, color);
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    for (int i = 2; i < count; ++i) add_triangle(r, path, points, i);
    set_fill(r, color);
    r.painter_->drawPath(path);
  }

  template <bool C>
  static void triangles(void* context, ZR_Rendition* rendition, int count,
                        const ZR_DCI_Point* points) {
    if (!begin(context, rendition, C)) return;
    QtRenderer& r = self(context);
    flat_strip(r, count, points, r.color_of(rendition, nullptr));
  }

  // A strip with a colour per vertex. The colours are interpolated at each
  // pixel centre (barycentric, in the triangle holding the centre; clamped from
  // the nearest earlier triangle for a centre just outside all of them, which
  // only antialiased edges read) into one image over the strip's box cut to
  // the device, and the union of the triangles is filled with it as a brush:
  // one fill, so the edges between triangles leave no seam.
  static void shaded_strip(void* context, ZR_Rendition* rendition, bool clipped, int count,
                           const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (!begin(context, rendition, clipped)) return;
    QtRenderer& r = self(context);
    if (!colors || count < 3) return flat_strip(r, count, points, r.color_of(rendition, nullptr));
    const QPaintDevice* device = r.painter_->device();
    const double width = device ? device->width() : 0, height = device ? device->height() : 0;
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    double x0 = width, y0 = height, x1 = 0, y1 = 0;
    for (int i = 2; i < count; ++i) {
      const ZR_DCI_Point* t = points + i - 2;
      bool fits = true;
      for (int k = 0; k < 3; ++k) fits = fits && r.guard().inside(double(t[k].x), double(t[k].y));
      if (!fits) {  // far beyond the device: flat, in its first colour
        QPainterPath far;
        add_triangle(r, far, points, i);
        set_fill(r, qcolor(colors[i - 2]));
        r.painter_->drawPath(far);
        continue;
      }
      add_triangle(r, path, points, i);
      for (int k = 0; k < 3; ++k) {
        const QPointF p = r.to_pixel(t[k].x, t[k].y);
        x0 = std::min(x0, p.x());
        y0 = std::min(y0, p.y());
        x1 = std::max(x1, p.x());
        y1 = std::max(y1, p.y());
      }
    }
    x0 = std::max(0.0, std::floor(x0));
    y0 = std::max(0.0, std::floor(y0));
    x1 = std::min(width, std::ceil(x1));
    y1 = std::min(height, std::ceil(y1));
    if (path.isEmpty() || x1 <= x0 || y1 <= y0) return;
    const int w = int(x1 - x0), h = int(y1 - y0);
    if (r.draft_ || static_cast<long long>(w) * h > kMaxShadedPixels) {
      set_fill(r, qcolor(colors[0]));
      r.painter_->drawPath(path);
      return;
    }
    QImage shade(w, h, QImage::Format_RGB32);
    shade.fill(qcolor(colors[0]));
    // 0: not written, 1: written from outside a triangle, 2: from inside one.
    std::vector<unsigned char> state(static_cast<std::size_t>(w) * h, 0);
    for (int i = 2; i < count; ++i) {
      const ZR_DCI_Point* t = points + i - 2;
      bool fits = true;
      for (int k = 0; k < 3; ++k) fits = fits && r.guard().inside(double(t[k].x), double(t[k].y));
      if (!fits) continue;
      const QPointF p[3] = {r.to_pixel(t[0].x, t[0].y), r.to_pixel(t[1].x, t[1].y),
                            r.to_pixel(t[2].x, t[2].y)};
      const ZR_RGB32* c = colors + i - 2;
      const double ax = p[1].x() - p[0].x(), ay = p[1].y() - p[0].y();
      const double bx = p[2].x() - p[0].x(), by = p[2].y() - p[0].y();
      const double det = ax * by - bx * ay;
      if (det == 0.0) continue;
      // The triangle's box, one pixel out, in the image.
      const int c0 =
          std::max(0, int(std::floor(std::min({p[0].x(), p[1].x(), p[2].x()}) - x0)) - 1);
      const int r0 =
          std::max(0, int(std::floor(std::min({p[0].y(), p[1].y(), p[2].y()}) - y0)) - 1);
      const int c1 =
          std::min(w - 1, int(std::ceil(std::max({p[0].x(), p[1].x(), p[2].x()}) - x0)) + 1);
      const int r1 =
          std::min(h - 1, int(std::ceil(std::max({p[0].y(), p[1].y(), p[2].y()}) - y0)) + 1);
      for (int row = r0; row <= r1; ++row) {
        auto* line = reinterpret_cast<std::uint32_t*>(shade.scanLine(row));
        const double dy = y0 + row + 0.5 - p[0].y();
        for (int column = c0; column <= c1; ++column) {
          const double dx = x0 + column + 0.5 - p[0].x();
          double b1 = (dx * by - bx * dy) / det;
          double b2 = (ax * dy - dx * ay) / det;
          const bool inside = b1 >= -1e-9 && b2 >= -1e-9 && b1 + b2 <= 1.0 + 1e-9;
          unsigned char& mark = state[static_cast<std::size_t>(row) * w + column];
          if (!inside && mark != 0) continue;
          mark = inside ? 2 : 1;
          b1 = std::clamp(b1, 0.0, 1.0);
          b2 = std::clamp(b2, 0.0, 1.0 - b1);
          const double b0 = 1.0 - b1 - b2;
          std::uint32_t pixel = 0xff000000u;
          for (int shift = 0; shift <= 16; shift += 8) {
            const double v = b0 * ((c[0] >> shift) & 0xff) + b1 * ((c[1] >> shift) & 0xff) +
                             b2 * ((c[2] >> shift) & 0xff);
            pixel |= static_cast<std::uint32_t>(std::clamp(std::lround(v), 0L, 255L)) << shift;
          }
          line[column] = pixel;
        }
      }
    }
    QBrush brush(shade);
    brush.setTransform(QTransform::fromTranslate(x0, y0));
    r.painter_->setPen(Qt::NoPen);
    r.painter_->setBrush(brush);
    r.painter_->drawPath(path);
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

  static void ellipse(void* context, ZR_Rendition* rendition, bool clipped, bool pie,
                      const ZR_DCI_Point* center, const ZR_DCI_Point* radii, double start,
                      double end, double rotation, const ZR_RGB32* color) {
    if (!begin(context, rendition, clipped)) return;
    QtRenderer& r = self(context);
    const QColor c = r.color_of(rendition, color);
    double sweep = sweep_of(start, end);
    if (pie) sweep = std::min(sweep, kTwoPi);
    if (!std::isfinite(start)) start = 0.0;
    if (!std::isfinite(rotation)) rotation = 0.0;
    if (radii->x == 0 && radii->y == 0) return fill_dot(r, *center, c);
    std::vector<P> pts = ellipse_points(*center, *radii, start, sweep, rotation);
    if (radii->x == 0 || radii->y == 0) return stroke(r, pts, c, pie ? 1 : weight_of(rendition));
    if (!pie) return stroke(r, pts, c, weight_of(rendition));
    pts.insert(pts.begin(), P{double(center->x), double(center->y)});
    QPainterPath path;
    path.setFillRule(Qt::WindingFill);
    add_polygon(r, path, pts);
    set_fill(r, c);
    r.painter_->drawPath(path);
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
    if (!image || !*image) return;
    const ZR_Image_Data& data = **image;
    if (data.width <= 0 || data.height <= 0 || data.width > 32767 || data.height > 32767 ||
        data.pixels.size() != static_cast<std::size_t>(data.width) * data.height)
      return;
    QPainter* painter = begin(context, rendition, C);
    if (!painter) return;
    QtRenderer& r = self(context);
    if (!r.guard().inside(double(point->x), double(point->y))) return;
    QImage pixels(data.width, data.height, QImage::Format_RGB32);
    for (int y = 0; y < data.height; ++y) {
      auto* row = reinterpret_cast<std::uint32_t*>(pixels.scanLine(y));
      for (int x = 0; x < data.width; ++x)
        row[x] =
            0xff000000u | (data.pixels[static_cast<std::size_t>(y) * data.width + x] & 0xffffff);
    }
    // The top-left pixel corner of the picture, and its size: the world size
    // under the outer list's scale, or its pixels (nested/outer_view.h).
    const QPointF centre = r.to_pixel(point->x, point->y);
    double w, h;
    r.outer_view_.image_size(data, w, h);
    if (!(w > 0) || !(h > 0)) return;
    const QRectF target(centre.x() - 0.5, centre.y() - 0.5, w, h);
    if (w == data.width && h == data.height) {
      painter->drawImage(target.topLeft(), pixels);
    } else {
      painter->setRenderHint(QPainter::SmoothPixmapTransform,
                             w < data.width || h < data.height || w < 4.0 * data.width);
      painter->drawImage(target, pixels);
      painter->setRenderHint(QPainter::SmoothPixmapTransform, false);
    }
  }

  static void gouraud_polyline(void* context, ZR_Rendition* rendition, int count,
                               const ZR_DCI_Point* points, const ZR_RGB32* colors) {
    if (count <= 0) return;
    if (count == 1 || !colors) return polyline<false>(context, rendition, count, points);
    if (!begin(context, rendition, false)) return;
    QtRenderer& r = self(context);
    for (int i = 0; i + 1 < count; ++i) {
      P a{double(points[i].x), double(points[i].y)};
      P b{double(points[i + 1].x), double(points[i + 1].y)};
      if (!guard_segment(r.guard(), a, b)) continue;
      set_pen(r, qcolor(colors[i]), weight_of(rendition));
      if (!r.draft_) {
        QLinearGradient ramp(r.to_pixel(points[i].x, points[i].y),
                             r.to_pixel(points[i + 1].x, points[i + 1].y));
        ramp.setColorAt(0, qcolor(colors[i]));
        ramp.setColorAt(1, qcolor(colors[i + 1]));
        QPen pen = r.painter_->pen();
        pen.setBrush(ramp);
        r.painter_->setPen(pen);
      }
      r.painter_->drawLine(r.to_pixel(a.x, a.y), r.to_pixel(b.x, b.y));
    }
  }
};

// ---------------------------------------------------------------------------
// The renderer
// ---------------------------------------------------------------------------

QtRenderer::QtRenderer(QPainter* painter, int height, QtOrientation orientation)
    : painter_(painter), height_(height), orientation_(orientation) {
  cairo_detail::set_actions<Access>(*this, this);
  forget_clip();
}

QtRenderer::~QtRenderer() = default;

void QtRenderer::set_painter(QPainter* painter, int height) {
  painter_ = painter;
  height_ = height;
  forget_clip();
}

void QtRenderer::set_draft(bool on) {
  draft_ = on;
  forget_clip();
}

void QtRenderer::forget_clip() {
  clip_known_ = false;
  clip_has_rect_ = false;
  clip_contours_.clear();
  clip_outer_.clear();
  clip_nothing_ = false;
  if (!painter_ || !painter_->isActive()) return;
  painter_->setWorldTransform(QTransform());
  painter_->setRenderHint(QPainter::Antialiasing, !draft_);
  painter_->setRenderHint(QPainter::SmoothPixmapTransform, false);
  painter_->setClipping(false);
  const QPaintDevice* device = painter_->device();
  const double w = device ? device->width() : 0, h = device ? device->height() : 0;
  guard_ = {-kGuardMargin, w + kGuardMargin, -kGuardMargin, h + kGuardMargin};
  clip_known_ = true;
}

QColor QtRenderer::color_of(ZR_Rendition* rendition, const ZR_RGB32* color) const {
  return qcolor(color ? *color : (rendition && *rendition ? rendition->color() : 0));
}

void QtRenderer::use_clip(ZR_Rendition* rendition, bool clipped) {
  const ZR_Rendition_Data* data = rendition ? rendition->get() : nullptr;
  const bool want_rect =
      clipped && data &&
      !(data->hard_clip.x_min == INT32_MIN && data->hard_clip.x_max == INT32_MAX &&
        data->hard_clip.y_min == INT32_MIN && data->hard_clip.y_max == INT32_MAX);
  ZR_Contour_Set_Data* contours = data ? data->complex_clip.get() : nullptr;
  const int weight = data && data->line_attributes ? std::max(1, rendition->line_weight()) : 1;
  const DL::OuterView::Reach reach = outer_view_.reach(rendition, 4 + weight);
  ZR_Contour_Set_Data* outer =
      reach == DL::OuterView::Reach::cut ? outer_view_.contours() : nullptr;
  const bool nothing = reach == DL::OuterView::Reach::skip;
  if (clip_known_ && want_rect == clip_has_rect_ && (!want_rect || data->hard_clip == clip_rect_) &&
      contours == clip_contours_.get() && outer == clip_outer_.get() && nothing == clip_nothing_)
    return;
  forget_clip();
  if (!clip_known_) return;
  if (nothing) {
    painter_->setClipRect(QRectF(), Qt::ReplaceClip);  // wholly outside the outer clip
    clip_nothing_ = true;
    return;
  }
  if (want_rect) {
    const ZR_Int_Rectangle& h = data->hard_clip;
    const Guard& g = guard();
    auto gx = [&g](double v) { return std::clamp(v, g.x0, g.x1); };
    auto gy = [&g](double v) { return std::clamp(v, g.y0, g.y1); };
    // Pixel space: the inclusive device rectangle, corners half a unit out.
    const QPointF a = to_pixel(gx(h.x_min - 0.5), gy(h.y_min - 0.5));
    const QPointF b = to_pixel(gx(h.x_max + 0.5), gy(h.y_max + 0.5));
    QRectF rect = QRectF(a, b).normalized();
    if (h.x_max < h.x_min || h.y_max < h.y_min) rect = QRectF();  // nothing shows
    painter_->setClipRect(rect, Qt::ReplaceClip);
    clip_has_rect_ = true;
    clip_rect_ = h;
  }
  if (contours) {
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    std::vector<P> poly;
    const ZR_Point* point = contours->contour_points;
    for (int i = 0; i < contours->contour_count; ++i) {
      poly.clear();
      for (int k = 0; k < contours->contour_sizes[i]; ++k, ++point)
        poly.push_back({double(point->x), double(point->y)});
      Access::add_polygon(*this, path, poly);
    }
    painter_->setClipPath(path, want_rect ? Qt::IntersectClip : Qt::ReplaceClip);
    clip_contours_ = data->complex_clip;
  }
  if (outer) {
    // A nested list's entry across the outer list's clip (nested/outer_view.h).
    QPainterPath path;
    path.setFillRule(Qt::OddEvenFill);
    std::vector<P> poly;
    const ZR_Point* point = outer->contour_points;
    for (int i = 0; i < outer->contour_count; ++i) {
      poly.clear();
      for (int k = 0; k < outer->contour_sizes[i]; ++k, ++point)
        poly.push_back({double(point->x), double(point->y)});
      Access::add_polygon(*this, path, poly);
    }
    painter_->setClipPath(path, want_rect || contours ? Qt::IntersectClip : Qt::ReplaceClip);
    clip_outer_ = ZR_Contour_Set(outer);
  }
}

void QtRenderer::paint_contours(ZR_Rendition* rendition, const ZR_Point& origin,
                                const ZR_Contour_Set_Data& glyphs, const ZR_RGB32* color,
                                bool clipped) {
  use_clip(rendition, clipped);
  if (!clip_known_) return;
  QPainterPath path;
  path.setFillRule(Qt::OddEvenFill);
  std::vector<P> poly;
  const ZR_Point* point = glyphs.contour_points;
  for (int i = 0; i < glyphs.contour_count; ++i) {
    poly.clear();
    for (int k = 0; k < glyphs.contour_sizes[i]; ++k, ++point)
      poly.push_back({double(origin.x) + point->x, double(origin.y) + point->y});
    Access::add_polygon(*this, path, poly);
  }
  Access::set_fill(*this, color_of(rendition, color));
  painter_->drawPath(path);
}

void QtRenderer::glyphs(ZR_Rendition* rendition, const ZR_Point*, int count,
                        const ZR_Placed_Glyph* glyphs) {
  for (int i = 0; i < count; ++i)
    if (glyphs[i].outline)
      paint_contours(rendition, {0.0f, 0.0f, 0.0f}, *glyphs[i].outline, nullptr, true);
}

}  // namespace DL
