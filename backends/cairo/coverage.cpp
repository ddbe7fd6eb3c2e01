// Exact-area coverage of thin shapes; see coverage_p.h.
#include <algorithm>
#include <cmath>

#include "backends/cairo/coverage_p.h"

namespace DL::cairo_detail {

namespace {

constexpr int kMaxSide = 4096;  // a shape's box is cut to this many pixels a side

}  // namespace

void Coverage::begin(int x0, int y0, int x1, int y1) {
  x0_ = x0;
  y0_ = y0;
  x1_ = std::max(x0, std::min(x1, x0 > INT32_MAX - kMaxSide ? INT32_MAX : x0 + kMaxSide));
  y1_ = std::max(y0, std::min(y1, y0 > INT32_MAX - kMaxSide ? INT32_MAX : y0 + kMaxSide));
  width_ = x1_ - x0_ + 2;
  const std::size_t rows = static_cast<std::size_t>(y1_ - y0_);
  // All areas are 0 between shapes (blend clears what it read), so the
  // buffer only grows; the touched span of each row starts empty.
  if (area_.size() < rows * static_cast<std::size_t>(width_))
    area_.resize(rows * static_cast<std::size_t>(width_), 0.0f);
  first_.assign(rows, width_);
  last_.assign(rows, -1);
}

void Coverage::add_polygon(const double* x, const double* y, int count) {
  if (empty() || count < 3) return;
  const double w = x1_ - x0_, h = y1_ - y0_;
  // Box units: pixel (x0_, y0_) spans [0, 1) each way.
  double umin = w, umax = 0, vmin = h, vmax = 0;
  for (int k = 0; k < count; ++k) {
    const double u = x[k] - x0_ + 0.5, v = y[k] - y0_ + 0.5;
    if (!std::isfinite(u) || !std::isfinite(v)) return;
    umin = std::min(umin, u), umax = std::max(umax, u);
    vmin = std::min(vmin, v), vmax = std::max(vmax, v);
  }
  if (umax <= 0 || umin >= w || vmax <= 0 || vmin >= h) return;
  for (int k = 0; k < count; ++k) {
    const int n = k + 1 < count ? k + 1 : 0;
    add_clipped_edge(x[k] - x0_ + 0.5, y[k] - y0_ + 0.5, x[n] - x0_ + 0.5, y[n] - y0_ + 0.5);
  }
}

void Coverage::add_clipped_edge(double ax, double ay, double bx, double by) {
  const double w = x1_ - x0_, h = y1_ - y0_;
  if (ay == by) return;  // a horizontal edge leaves no area
  // Cut to the rows of the box: what lies above or below covers none of it.
  if ((ay <= 0 && by <= 0) || (ay >= h && by >= h)) return;
  auto at_y = [&](double t) { return ax + (bx - ax) * (t - ay) / (by - ay); };
  if (ay < 0)
    ax = at_y(0), ay = 0;
  else if (ay > h)
    ax = at_y(h), ay = h;
  if (by < 0)
    bx = at_y(0), by = 0;
  else if (by > h)
    bx = at_y(h), by = h;
  if (ay == by) return;
  // Split at the box's sides: a part beyond one runs along it, where it
  // still counts for the pixels inside (its winding) but covers none.
  double cuts[4] = {0, 1, 1, 1};
  int n = 1;
  for (double side : {0.0, w}) {
    if ((ax - side) * (bx - side) < 0) cuts[n++] = (side - ax) / (bx - ax);
  }
  if (n == 3 && cuts[2] < cuts[1]) std::swap(cuts[1], cuts[2]);
  cuts[n] = 1;
  for (int i = 0; i < n; ++i) {
    const double t0 = cuts[i], t1 = cuts[i + 1];
    if (t1 <= t0) continue;
    const double px = std::clamp(ax + (bx - ax) * t0, 0.0, w);
    const double py = ay + (by - ay) * t0;
    const double qx = std::clamp(ax + (bx - ax) * t1, 0.0, w);
    const double qy = ay + (by - ay) * t1;
    add_edge(px, py, qx, qy);
  }
}

void Coverage::add_edge(double ax, double ay, double bx, double by) {
  if (ay == by) return;
  // Downward, with the direction kept as the sign of the area.
  double dir = 1;
  if (ay > by) {
    std::swap(ax, bx);
    std::swap(ay, by);
    dir = -1;
  }
  const double dxdy = (bx - ax) / (by - ay);
  double x = ax;
  const int rows = y1_ - y0_;
  const int first = static_cast<int>(std::floor(ay));
  const int last = std::min(rows, static_cast<int>(std::ceil(by)));
  for (int row = std::max(first, 0); row < last; ++row) {
    float* line = &area_[static_cast<std::size_t>(row) * width_];
    const double dy = std::min(double(row + 1), by) - std::max(double(row), ay);
    const double xnext = x + dxdy * dy;
    const double d = dy * dir;
    const double xa = std::min(x, xnext), xb = std::max(x, xnext);
    const double xa_floor = std::floor(xa);
    const int ia = static_cast<int>(xa_floor);
    const int ib = static_cast<int>(std::ceil(xb));
    first_[row] = std::min(first_[row], ia);
    last_[row] = std::max(last_[row], ib + 1);
    if (ib <= ia + 1) {
      // Within one column: the area right of the edge's middle there.
      const double mid = 0.5 * (x + xnext) - xa_floor;
      line[ia] += static_cast<float>(d - d * mid);
      line[ia + 1] += static_cast<float>(d * mid);
    } else {
      // Across columns: a ramp, triangles at its ends.
      const double s = 1.0 / (xb - xa);
      const double fa = xa - xa_floor;
      const double a0 = 0.5 * s * (1 - fa) * (1 - fa);
      const double fb = xb - ib + 1;
      const double am = 0.5 * s * fb * fb;
      line[ia] += static_cast<float>(d * a0);
      if (ib == ia + 2) {
        line[ia + 1] += static_cast<float>(d * (1 - a0 - am));
      } else {
        const double a1 = s * (1.5 - fa);
        line[ia + 1] += static_cast<float>(d * (a1 - a0));
        for (int c = ia + 2; c < ib - 1; ++c) line[c] += static_cast<float>(d * s);
        const double a2 = a1 + (ib - ia - 3) * s;
        line[ib - 1] += static_cast<float>(d * (1 - a2 - am));
      }
      line[ib] += static_cast<float>(d * am);
    }
    x = xnext;
  }
}

template <class Source>
void Coverage::blend_with(const PixelWindow& window, Source source) {
  // Sum the areas along each row's touched span into the coverage (past it
  // the winding is back to 0), blend, and clear them. Only the columns the
  // window shows are blended; the others are summed (the winding carries
  // across them) and cleared.
  const int columns = x1_ - x0_;
  const int shown0 = std::clamp(window.x0 - x0_, 0, columns);
  const int shown1 = std::clamp(window.x1 - x0_, shown0, columns);
  for (int r = y0_; r < y1_; ++r) {
    const int row = r - y0_;
    if (last_[row] < 0) continue;
    float* area = &area_[static_cast<std::size_t>(row) * width_];
    const int end = std::min(last_[row], width_ - 1) + 1;  // one past the span
    int c = first_[row];
    if (r < window.y0 || r >= window.y1 || shown0 >= shown1) {
      std::fill(area + c, area + std::max(c, end), 0.0f);
      continue;
    }
    float sum = 0;
    for (; c < end && c < shown0; ++c) sum += area[c], area[c] = 0;
    const int stop = std::min(end, shown1);
    if (c < stop) {
      std::uint32_t* pixel = window.at(x0_ + c, r);
      for (; c < stop; ++c, ++pixel) {
        sum += area[c];
        area[c] = 0;
        const float cover = std::min(1.0f, std::fabs(sum));
        const auto a = static_cast<std::uint32_t>(cover * 255.0f + 0.5f);
        if (a) *pixel = blend_pixel(*pixel, source(x0_ + c, r), a);
      }
    }
    if (c < end) std::fill(area + c, area + end, 0.0f);
  }
}

void Coverage::blend(const PixelWindow& window, ZR_RGB32 color) {
  const std::uint32_t source = 0xff000000u | (color & 0xffffffu);
  blend_with(window, [source](int, int) { return source; });
}

void Coverage::blend_ramp(const PixelWindow& window, double ax, double ay, double bx, double by,
                          ZR_RGB32 from, ZR_RGB32 to) {
  const double dx = bx - ax, dy = by - ay, length2 = dx * dx + dy * dy;
  if (!(length2 > 0)) return blend(window, from);
  double base[3], span[3];  // red, green, blue: at `from` and to `to`
  for (int ch = 0; ch < 3; ++ch) {
    base[ch] = (from >> (16 - 8 * ch)) & 0xff;
    span[ch] = double((to >> (16 - 8 * ch)) & 0xff) - base[ch];
  }
  blend_with(window, [&](int x, int y) {
    // Where the pixel's centre lies along the ramp, held at its ends.
    const double t = std::clamp(((x - ax) * dx + (y - ay) * dy) / length2, 0.0, 1.0);
    std::uint32_t out = 0xff000000u;
    for (int ch = 0; ch < 3; ++ch)
      out |= static_cast<std::uint32_t>(base[ch] + span[ch] * t + 0.5) << (16 - 8 * ch);
    return out;
  });
}

}  // namespace DL::cairo_detail
