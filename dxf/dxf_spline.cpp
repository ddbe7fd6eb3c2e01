// B-splines, NURBS and fit-point curves to polylines; see dxf_spline_p.h.
#include <algorithm>
#include <cmath>
#include <functional>

#include "dxf/dxf_spline_p.h"

namespace DL::dxf {

namespace {

constexpr int kMaxDepth = 12;
constexpr std::size_t kMaxPoints = 65536;

double distance_to_chord(DxfPoint p, DxfPoint a, DxfPoint b) {
  const double dx = b.x - a.x, dy = b.y - a.y;
  const double len = std::hypot(dx, dy);
  if (!(len > 0)) return std::hypot(p.x - a.x, p.y - a.y);
  return std::fabs((p.x - a.x) * dy - (p.y - a.y) * dx) / len;
}

// Appends the points of f over (ta, tb], pa and pb its ends.
void refine(const std::function<DxfPoint(double)>& f, double ta, DxfPoint pa, double tb,
            DxfPoint pb, double tolerance, int depth, std::vector<DxfPoint>& out) {
  if (out.size() >= kMaxPoints) return;
  const double tm = (ta + tb) / 2;
  const DxfPoint pm = f(tm);
  if (depth < kMaxDepth && !(distance_to_chord(pm, pa, pb) <= tolerance)) {
    refine(f, ta, pa, tm, pm, tolerance, depth + 1, out);
    refine(f, tm, pm, tb, pb, tolerance, depth + 1, out);
    return;
  }
  out.push_back(pb);
}

// Flattens f over the pieces between `breaks` (increasing), each cut in four
// first so that an S within a piece is not mistaken for a straight line.
std::vector<DxfPoint> flatten(const std::function<DxfPoint(double)>& f,
                              const std::vector<double>& breaks, double tolerance) {
  std::vector<DxfPoint> out;
  if (breaks.size() < 2) return out;
  out.push_back(f(breaks[0]));
  for (std::size_t i = 0; i + 1 < breaks.size(); ++i)
    for (int q = 0; q < 4; ++q) {
      const double ta = breaks[i] + (breaks[i + 1] - breaks[i]) * q / 4;
      const double tb =
          q == 3 ? breaks[i + 1] : breaks[i] + (breaks[i + 1] - breaks[i]) * (q + 1) / 4;
      refine(f, ta, out.back(), tb, f(tb), tolerance, 0, out);
    }
  return out;
}

// Solves a[i] x[i-1] + b[i] x[i] + c[i] x[i+1] = r[i] (a[0] and c[n-1] unused)
// by elimination without pivoting, sound here since every row's diagonal
// outweighs the rest of it.
std::vector<DxfPoint> solve_tridiagonal(const std::vector<double>& a, std::vector<double> b,
                                        const std::vector<double>& c, std::vector<DxfPoint> r) {
  const std::size_t n = b.size();
  for (std::size_t i = 1; i < n; ++i) {
    const double m = a[i] / b[i - 1];
    b[i] -= m * c[i - 1];
    r[i].x -= m * r[i - 1].x;
    r[i].y -= m * r[i - 1].y;
  }
  std::vector<DxfPoint> x(n);
  for (std::size_t i = n; i-- > 0;) {
    const DxfPoint after = i + 1 < n ? x[i + 1] : DxfPoint{};
    const double cc = i + 1 < n ? c[i] : 0.0;
    x[i] = {(r[i].x - cc * after.x) / b[i], (r[i].y - cc * after.y) / b[i]};
  }
  return x;
}

// The same with the corners a[0] (row 0's x[n-1]) and c[n-1] (row n-1's
// x[0]), n >= 3: by Sherman-Morrison, two tridiagonal solves.
std::vector<DxfPoint> solve_cyclic(const std::vector<double>& a, std::vector<double> b,
                                   const std::vector<double>& c, const std::vector<DxfPoint>& r) {
  const std::size_t n = b.size();
  const double gamma = -b[0];
  const double alpha = c[n - 1], beta = a[0];
  b[0] -= gamma;
  b[n - 1] -= alpha * beta / gamma;
  const std::vector<DxfPoint> y = solve_tridiagonal(a, b, c, r);
  std::vector<DxfPoint> u(n);
  u[0] = {gamma, gamma};
  u[n - 1] = {alpha, alpha};
  const std::vector<DxfPoint> z = solve_tridiagonal(a, b, c, u);
  const double fx = (y[0].x + beta * y[n - 1].x / gamma) / (1 + z[0].x + beta * z[n - 1].x / gamma);
  const double fy = (y[0].y + beta * y[n - 1].y / gamma) / (1 + z[0].y + beta * z[n - 1].y / gamma);
  std::vector<DxfPoint> x(n);
  for (std::size_t i = 0; i < n; ++i) x[i] = {y[i].x - fx * z[i].x, y[i].y - fy * z[i].y};
  return x;
}

}  // namespace

std::vector<DxfPoint> flatten_spline(const DxfDetail& x, const std::vector<DxfPoint>& control,
                                     double tolerance) {
  const std::size_t n = control.size();
  if (n < 2) return control;
  const std::size_t p = std::min<std::size_t>(static_cast<std::size_t>(x.degree), n - 1);
  std::vector<double> u = x.knots;
  bool good = u.size() == n + p + 1;
  for (std::size_t i = 0; good && i < u.size(); ++i)
    good = std::isfinite(u[i]) && (i == 0 || u[i] >= u[i - 1]);
  if (good) good = u[n] > u[p];
  if (!good) {  // clamped uniform
    u.assign(n + p + 1, 0.0);
    for (std::size_t i = p + 1; i < n; ++i)
      u[i] = static_cast<double>(i - p) / static_cast<double>(n - p);
    for (std::size_t i = n; i < u.size(); ++i) u[i] = 1.0;
  }
  bool weighted = x.weights.size() == n;
  for (std::size_t i = 0; weighted && i < n; ++i)
    weighted = x.weights[i] > 0 && std::isfinite(x.weights[i]);
  std::vector<double> hx(p + 1), hy(p + 1), hw(p + 1);
  // de Boor's algorithm in homogeneous coordinates.
  auto f = [&](double t) {
    std::size_t k =
        static_cast<std::size_t>(std::upper_bound(u.begin() + static_cast<std::ptrdiff_t>(p),
                                                  u.begin() + static_cast<std::ptrdiff_t>(n), t) -
                                 u.begin());
    k = std::clamp(k, p + 1, n) - 1;
    for (std::size_t j = 0; j <= p; ++j) {
      const std::size_t i = j + k - p;
      const double w = weighted ? x.weights[i] : 1.0;
      hx[j] = control[i].x * w;
      hy[j] = control[i].y * w;
      hw[j] = w;
    }
    for (std::size_t r = 1; r <= p; ++r)
      for (std::size_t j = p; j >= r; --j) {
        const std::size_t i = j + k - p;
        const double span = u[i + p - r + 1] - u[i];
        const double a = span > 0 ? (t - u[i]) / span : 0.0;
        hx[j] = (1 - a) * hx[j - 1] + a * hx[j];
        hy[j] = (1 - a) * hy[j - 1] + a * hy[j];
        hw[j] = (1 - a) * hw[j - 1] + a * hw[j];
      }
    return DxfPoint{hx[p] / hw[p], hy[p] / hw[p]};
  };
  std::vector<double> breaks;
  for (std::size_t i = p; i <= n; ++i)
    if (breaks.empty() || u[i] > breaks.back()) breaks.push_back(u[i]);
  return flatten(f, breaks, tolerance);
}

// The derivative at every fit point comes from one tridiagonal system (the
// curve C2 where spans meet), and each span is then the Bezier piece with
// those end derivatives: the same curve as the cubic B-spline with a knot at
// every fit point, but with no second system to solve for its control points.
// The parameter is the chord length, so a derivative of unit length (the end
// tangents' directions) leaves at about the curve's own speed, as CAD's
// tangents of the chord's total length over a parameter of 0 to 1 do.
bool interpolate_fit_points(const std::vector<DxfPoint>& fit, DxfPoint start_tangent,
                            DxfPoint end_tangent, bool closed, std::vector<DxfPoint>& control,
                            std::vector<double>& knots) {
  std::vector<DxfPoint> p;
  for (const DxfPoint& q : fit)
    if (p.empty() || q.x != p.back().x || q.y != p.back().y) p.push_back(q);
  if (closed && p.size() > 1 && p.front().x == p.back().x && p.front().y == p.back().y)
    p.pop_back();
  const std::size_t n = p.size();
  if (n < 2) return false;
  closed = closed && n >= 3;
  const std::size_t spans = closed ? n : n - 1;
  auto next = [&](std::size_t i) { return i + 1 < n ? i + 1 : 0; };
  std::vector<double> h(spans);  // the chord of every span, its parameter length
  for (std::size_t i = 0; i < spans; ++i)
    h[i] = std::hypot(p[next(i)].x - p[i].x, p[next(i)].y - p[i].y);
  auto slope = [&](std::size_t i) {  // of span i's chord, per unit of parameter
    return DxfPoint{(p[next(i)].x - p[i].x) / h[i], (p[next(i)].y - p[i].y) / h[i]};
  };

  // Row i: a[i] D[i-1] + b[i] D[i] + c[i] D[i+1] = r[i], the neighbours taken
  // round for a closed curve.
  std::vector<double> a(n), b(n), c(n);
  std::vector<DxfPoint> r(n);
  for (std::size_t i = 0; i < n; ++i) {
    if (!closed && (i == 0 || i == n - 1)) continue;
    const std::size_t before = i == 0 ? n - 1 : i - 1;  // the span that ends at i
    const double h0 = h[before], h1 = h[i];
    const DxfPoint s0 = slope(before), s1 = slope(i);
    a[i] = h1;
    b[i] = 2 * (h0 + h1);
    c[i] = h0;
    r[i] = {3 * (h1 * s0.x + h0 * s1.x), 3 * (h1 * s0.y + h0 * s1.y)};
  }
  if (!closed) {
    auto unit = [](DxfPoint v, DxfPoint& out) {
      const double len = std::hypot(v.x, v.y);
      if (!(len > 0) || !std::isfinite(len)) return false;
      out = {v.x / len, v.y / len};
      return true;
    };
    DxfPoint t;
    if (unit(start_tangent, t)) {
      b[0] = 1;
      r[0] = t;
    } else {  // natural: no curvature, 2 D0 + D1 = 3 s0
      const DxfPoint s = slope(0);
      b[0] = 2;
      c[0] = 1;
      r[0] = {3 * s.x, 3 * s.y};
    }
    if (unit(end_tangent, t)) {
      b[n - 1] = 1;
      r[n - 1] = t;
    } else {
      const DxfPoint s = slope(n - 2);
      a[n - 1] = 1;
      b[n - 1] = 2;
      r[n - 1] = {3 * s.x, 3 * s.y};
    }
  }
  const std::vector<DxfPoint> d =
      closed ? solve_cyclic(a, b, c, r) : solve_tridiagonal(a, std::move(b), c, std::move(r));

  // Span i: P[i], P[i] + h D[i] / 3, P[i+1] - h D[i+1] / 3, P[i+1], over a
  // knot of multiplicity 3 at each inner fit point.
  control.assign(1, p[0]);
  knots.assign(4, 0.0);
  double at = 0;
  for (std::size_t i = 0; i < spans; ++i) {
    const std::size_t j = next(i);
    const double third = h[i] / 3;
    control.push_back({p[i].x + third * d[i].x, p[i].y + third * d[i].y});
    control.push_back({p[j].x - third * d[j].x, p[j].y - third * d[j].y});
    control.push_back(p[j]);
    at += h[i];
    knots.insert(knots.end(), i + 1 < spans ? 3 : 4, at);
  }
  return true;
}

}  // namespace DL::dxf
