// Marks written straight into image pixels; see direct_pixels_p.h.
#include <algorithm>
#include <cmath>

#include "backends/cairo/direct_pixels_p.h"

namespace DL::cairo_detail {

Stamp marker_stamp(cairo_antialias_t antialias) {
  Stamp stamp;
  stamp.radius = 4;  // the cross reaches 2 + 0.5 * sqrt(2) < 3 pixels from its centre
  const int size = 2 * stamp.radius + 1;
  cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A8, size, size);
  cairo_t* cr = cairo_create(mask);
  cairo_set_antialias(cr, antialias);
  cairo_set_line_width(cr, 1);
  cairo_set_line_cap(cr, CAIRO_LINE_CAP_SQUARE);
  cairo_set_line_join(cr, CAIRO_LINE_JOIN_MITER);
  const double c = stamp.radius + 0.5;  // the middle pixel's centre
  cairo_move_to(cr, c - 2, c - 2);
  cairo_line_to(cr, c + 2, c + 2);
  cairo_move_to(cr, c - 2, c + 2);
  cairo_line_to(cr, c + 2, c - 2);
  cairo_stroke(cr);
  cairo_destroy(cr);
  cairo_surface_flush(mask);
  stamp.coverage.assign(static_cast<std::size_t>(size) * size, 0);
  const unsigned char* data = cairo_image_surface_get_data(mask);
  const int stride = cairo_image_surface_get_stride(mask);
  if (data && cairo_surface_status(mask) == CAIRO_STATUS_SUCCESS)
    for (int y = 0; y < size; ++y)
      std::copy(data + y * stride, data + y * stride + size,
                stamp.coverage.begin() + static_cast<std::ptrdiff_t>(y) * size);
  cairo_surface_destroy(mask);
  return stamp;
}

void blend_stamp(const PixelWindow& window, long long column, long long row, const Stamp& stamp,
                 ZR_RGB32 color) {
  const int size = 2 * stamp.radius + 1;
  // The stamp's rows and columns that land in the window (64-bit: positions
  // reach the int limits).
  const long long left = column - stamp.radius, top = row - stamp.radius;
  const long long kx0 = std::max<long long>(0, window.x0 - left);
  const long long kx1 = std::min<long long>(size, window.x1 - left);
  const long long ky0 = std::max<long long>(0, window.y0 - top);
  const long long ky1 = std::min<long long>(size, window.y1 - top);
  const std::uint32_t source = 0xff000000u | (color & 0xffffffu);
  for (long long ky = ky0; ky < ky1; ++ky) {
    std::uint32_t* pixels = window.at(left + kx0, top + ky);
    const unsigned char* cover = &stamp.coverage[static_cast<std::size_t>(ky * size + kx0)];
    for (long long kx = kx0; kx < kx1; ++kx, ++pixels, ++cover) {
      if (*cover) *pixels = blend_pixel(*pixels, source, *cover);
    }
  }
}

void fill_gouraud_triangle(const PixelWindow& window, const double x[3], const double y[3],
                           const ZR_RGB32 colors[3]) {
  const double area = (x[1] - x[0]) * (y[2] - y[0]) - (y[1] - y[0]) * (x[2] - x[0]);
  if (!(area != 0) || !std::isfinite(area)) return;
  // The rows and columns whose centres the triangle's box holds, in the window.
  auto lo = [](double v, int limit) {
    return static_cast<int>(std::clamp(std::ceil(v), double(limit), 1e9));
  };
  auto hi = [](double v, int limit) {
    return static_cast<int>(std::clamp(std::floor(v) + 1, -1e9, double(limit)));
  };
  const int cx0 = lo(std::min({x[0], x[1], x[2]}), window.x0);
  const int cx1 = hi(std::max({x[0], x[1], x[2]}), window.x1);
  const int cy0 = lo(std::min({y[0], y[1], y[2]}), window.y0);
  const int cy1 = hi(std::max({y[0], y[1], y[2]}), window.y1);
  if (cx0 >= cx1 || cy0 >= cy1) return;
  // Barycentric weights of the corners at a point, each an affine function of
  // (px, py): w_k = a_k * px + b_k * py + c_k, with the three summing to 1.
  double a[3], b[3], c[3];
  for (int k = 0; k < 3; ++k) {
    const int i = (k + 1) % 3, j = (k + 2) % 3;
    a[k] = (y[i] - y[j]) / area;
    b[k] = (x[j] - x[i]) / area;
    c[k] = (x[i] * y[j] - x[j] * y[i]) / area;
  }
  // Each channel is an affine function of the point too: v = A * px + B * py + C.
  double ca[3], cb[3], cc[3];  // red, green, blue
  for (int ch = 0; ch < 3; ++ch) {
    ca[ch] = cb[ch] = cc[ch] = 0;
    for (int k = 0; k < 3; ++k) {
      const double v = (colors[k] >> (16 - 8 * ch)) & 0xff;
      ca[ch] += a[k] * v, cb[ch] += b[k] * v, cc[ch] += c[k] * v;
    }
  }
  // A centre on an edge may come out a hair below 0 by rounding.
  constexpr double kEdge = -1e-9;
  auto inside = [&](int px, int py) {
    for (int k = 0; k < 3; ++k)
      if (!(a[k] * px + b[k] * py + c[k] >= kEdge)) return false;
    return true;
  };
  for (int py = cy0; py < cy1; ++py) {
    // The row's span of centres inside: each weight is affine along the row,
    // so each edge bounds it on one side. Found by division, then moved to
    // where the test itself says, so an edge's pixels are those the test
    // gives.
    double lo = cx0, hi = cx1 - 1;
    for (int k = 0; k < 3; ++k) {
      const double rest = b[k] * py + c[k];
      if (a[k] > 0)
        lo = std::max(lo, std::ceil((kEdge - rest) / a[k]));
      else if (a[k] < 0)
        hi = std::min(hi, std::floor((kEdge - rest) / a[k]));
      else if (!(rest >= kEdge))
        hi = lo - 1;
    }
    if (!(lo <= hi)) continue;
    int x0 = static_cast<int>(lo), x1 = static_cast<int>(hi);
    while (x0 <= x1 && !inside(x0, py)) ++x0;
    while (x0 <= x1 && !inside(x1, py)) --x1;
    if (x0 > x1) continue;
    while (x0 > cx0 && inside(x0 - 1, py)) --x0;
    while (x1 + 1 < cx1 && inside(x1 + 1, py)) ++x1;
    double v[3], step[3];
    for (int ch = 0; ch < 3; ++ch) {
      v[ch] = ca[ch] * x0 + cb[ch] * py + cc[ch] + 0.5;
      step[ch] = ca[ch];
    }
    std::uint32_t* pixels = window.at(x0, py);
    for (int px = x0; px <= x1; ++px, ++pixels) {
      std::uint32_t out = 0xff000000u;
      for (int ch = 0; ch < 3; ++ch) {
        out |= static_cast<std::uint32_t>(std::clamp(v[ch], 0.0, 255.0)) << (16 - 8 * ch);
        v[ch] += step[ch];
      }
      *pixels = out;
    }
  }
}

void fill_grid_polygon(const PixelWindow& window, int count, const long long* x, const long long* y,
                       ZR_RGB32 color) {
  if (count < 3 || count > kMaxGridCorners || window.empty()) return;
  const std::uint32_t source = 0xff000000u | (color & 0xffffffu);
  if (count == 4 && ((y[0] == y[1] && x[1] == x[2] && y[2] == y[3] && x[3] == x[0]) ||
                     (x[0] == x[1] && y[1] == y[2] && x[2] == x[3] && y[3] == y[0]))) {
    // A rectangle, the common case: its edge pixels half covered, its
    // corners a quarter, its inside whole.
    const long long left = std::min({x[0], x[1], x[2]}), right = std::max({x[0], x[1], x[2]});
    const long long top = std::min({y[0], y[1], y[2]}), bottom = std::max({y[0], y[1], y[2]});
    if (left == right || top == bottom) return;
    const long long c0 = std::max<long long>(left, window.x0);
    const long long c1 = std::min<long long>(right + 1, window.x1);
    const long long r0 = std::max<long long>(top, window.y0);
    const long long r1 = std::min<long long>(bottom + 1, window.y1);
    if (c0 >= c1) return;
    for (long long r = r0; r < r1; ++r) {
      // Quarters inside per pixel: 2 along the top and bottom rows, 4 inside;
      // half that in the first and last columns.
      const std::uint32_t row_quarters = r == top || r == bottom ? 2 : 4;
      std::uint32_t* pixels = window.at(c0, r);
      long long c = c0;
      if (c == left) *pixels = blend_pixel(*pixels, source, 32 * row_quarters), ++c, ++pixels;
      const long long inner_end = std::min(c1, right);
      if (row_quarters == 4) {
        fill_pixels(pixels, inner_end - c, source);
        pixels += inner_end - c;
      } else {
        for (long long k = c; k < inner_end; ++k, ++pixels)
          *pixels = blend_pixel(*pixels, source, 128);
      }
      c = std::max(c, inner_end);
      if (c < c1 && c == right) *pixels = blend_pixel(*pixels, source, 32 * row_quarters);
    }
    return;
  }
  long long ymin = y[0], ymax = y[0];
  for (int k = 1; k < count; ++k) ymin = std::min(ymin, y[k]), ymax = std::max(ymax, y[k]);
  const long long r0 = std::max<long long>(ymin, window.y0);
  const long long r1 = std::min<long long>(ymax + 1, window.y1);
  // Per row, the crossings of the two lines of quarter centres (a quarter
  // pixel above and below the pixel centres: 4r - 1 and 4r + 1 in quarters of
  // a pixel) with the vertical edges, sorted: inside from each odd crossing
  // to the next. A pixel at a crossing has one quarter inside per line that
  // enters or leaves there; between crossings two per line inside.
  long long cross[2][kMaxGridCorners];
  int crossings[2];
  long long breaks[2 * kMaxGridCorners];
  auto quarters = [&](int line, long long c, bool at_break) {
    int q = 0;
    for (int i = 0; i + 1 < crossings[line]; i += 2) {
      const long long a = cross[line][i], b = cross[line][i + 1];
      if (at_break)
        q += (c == a && a != b) + (c == b && a != b) + 2 * (a < c && c < b);
      else
        q += 2 * (a < c && c < b);
    }
    return q;
  };
  auto paint = [&](long long c0, long long c1, long long r, int q) {  // columns c0 to c1, half-open
    c0 = std::max<long long>(c0, window.x0);
    c1 = std::min<long long>(c1, window.x1);
    if (q <= 0 || c0 >= c1) return;
    std::uint32_t* pixels = window.at(c0, r);
    if (q >= 4) {
      fill_pixels(pixels, c1 - c0, source);
      return;
    }
    for (long long c = c0; c < c1; ++c, ++pixels)
      *pixels = blend_pixel(*pixels, source, static_cast<std::uint32_t>(64 * q));
  };
  for (long long r = r0; r < r1; ++r) {
    int nbreaks = 0;
    for (int line = 0; line < 2; ++line) {
      const long long at = 4 * r + (line ? 1 : -1);
      int n = 0;
      for (int k = 0; k < count; ++k) {
        const int next = k + 1 < count ? k + 1 : 0;
        if (x[k] != x[next]) continue;  // along the line: no crossing
        if (4 * std::min(y[k], y[next]) < at && at < 4 * std::max(y[k], y[next])) {
          // Insertion into the sorted crossings: a handful of them.
          int i = n++;
          for (; i > 0 && cross[line][i - 1] > x[k]; --i) cross[line][i] = cross[line][i - 1];
          cross[line][i] = x[k];
        }
      }
      crossings[line] = n;
      for (int i = 0; i < n; ++i) breaks[nbreaks++] = cross[line][i];
    }
    std::sort(breaks, breaks + nbreaks);
    nbreaks = static_cast<int>(std::unique(breaks, breaks + nbreaks) - breaks);
    for (int i = 0; i < nbreaks; ++i) {
      const long long c = breaks[i];
      paint(c, c + 1, r, quarters(0, c, true) + quarters(1, c, true));
      if (i + 1 < nbreaks && breaks[i + 1] > c + 1) {
        const long long mid = c + 1;  // any pixel strictly between the breaks
        paint(c + 1, breaks[i + 1], r, quarters(0, mid, false) + quarters(1, mid, false));
      }
    }
  }
}

}  // namespace DL::cairo_detail
