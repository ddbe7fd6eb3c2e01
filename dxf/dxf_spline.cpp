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

}  // namespace

std::vector<DxfPoint> flatten_spline(const DxfDetail& x, const std::vector<DxfPoint>& control,
                                     bool closed, double tolerance) {
  const std::size_t n = control.size();
  if (n < 2) return control;
  if (x.degree == 0) {
    // Catmull-Rom through the fit points: piece i runs from point i to i + 1,
    // its neighbours clamped at the ends of an open curve.
    const std::size_t pieces = closed ? n : n - 1;
    auto at = [&](long long i) {
      const long long m = static_cast<long long>(n);
      if (closed) return control[static_cast<std::size_t>(((i % m) + m) % m)];
      return control[static_cast<std::size_t>(std::clamp<long long>(i, 0, m - 1))];
    };
    auto f = [&](double t) {
      const double piece = std::min(std::floor(t), static_cast<double>(pieces - 1));
      const auto i = static_cast<long long>(piece);
      const double u = t - piece, u2 = u * u, u3 = u2 * u;
      const DxfPoint p0 = at(i - 1), p1 = at(i), p2 = at(i + 1), p3 = at(i + 2);
      auto mix = [&](double a, double b, double c, double d) {
        return 0.5 * (2 * b + (c - a) * u + (2 * a - 5 * b + 4 * c - d) * u2 +
                      (3 * b - a - 3 * c + d) * u3);
      };
      return DxfPoint{mix(p0.x, p1.x, p2.x, p3.x), mix(p0.y, p1.y, p2.y, p3.y)};
    };
    std::vector<double> breaks;
    for (std::size_t i = 0; i <= pieces; ++i) breaks.push_back(static_cast<double>(i));
    return flatten(f, breaks, tolerance);
  }

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

}  // namespace DL::dxf
