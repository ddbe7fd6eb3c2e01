// Patterned hatches to dashes; see dxf_hatch_p.h.
#include <algorithm>
#include <cmath>

#include "dxf/dxf_hatch_p.h"

namespace DL::dxf {

namespace {
// Line-edge tests of one hatch at most: a few bytes must not ask for hours.
constexpr double kMaxCrossings = 2e7;
}  // namespace

bool hatch_segments(const DxfDetail& hatch, std::size_t max_segments,
                    std::vector<DxfSegment>& out) {
  out.clear();
  DxfBounds box;
  for (const auto& loop : hatch.loops)
    for (const DxfPoint& p : loop) box.add(p.x, p.y);
  if (box.empty()) return false;
  const double size = std::max(box.max_x - box.min_x, box.max_y - box.min_y);
  std::size_t edges = 0;
  for (const auto& loop : hatch.loops) edges += loop.size();
  std::vector<double> cuts;
  for (const DxfPatternLine& family : hatch.pattern) {
    const double dx = std::cos(family.angle), dy = std::sin(family.angle);
    const double nx = -dy, ny = dx;  // across the lines
    const double step = family.offset.x * nx + family.offset.y * ny;
    if (!(std::fabs(step) > size * 1e-5)) {
      out.clear();
      return false;
    }
    // The lines k for which base + k offset crosses the box.
    double lo = INFINITY, hi = -INFINITY;
    for (DxfPoint c : {DxfPoint{box.min_x, box.min_y}, DxfPoint{box.max_x, box.min_y},
                       DxfPoint{box.min_x, box.max_y}, DxfPoint{box.max_x, box.max_y}}) {
      const double s = ((c.x - family.base.x) * nx + (c.y - family.base.y) * ny) / step;
      lo = std::min(lo, s);
      hi = std::max(hi, s);
    }
    // Each line meets every edge: past a budget of work the outline it is.
    // (Line numbers beyond 2^52 would not count up one by one.)
    if (!(std::fabs(lo) < 0x1p52 && std::fabs(hi) < 0x1p52) ||
        !(hi - lo < static_cast<double>(max_segments)) ||
        !((hi - lo + 1) * static_cast<double>(edges) < kMaxCrossings)) {
      out.clear();
      return false;
    }
    double period = 0;
    for (double dash : family.dashes) period += std::fabs(dash);
    for (double k = std::ceil(lo); k <= hi; ++k) {
      // The line's origin (where its dashes start) and where it crosses
      // every edge of every loop, as distances along it.
      const DxfPoint o{family.base.x + k * family.offset.x, family.base.y + k * family.offset.y};
      cuts.clear();
      for (const auto& loop : hatch.loops) {
        const std::size_t n = loop.size();
        for (std::size_t i = 0; i < n; ++i) {
          const DxfPoint a = loop[i], b = loop[(i + 1) % n];
          const double sa = (a.x - o.x) * nx + (a.y - o.y) * ny;
          const double sb = (b.x - o.x) * nx + (b.y - o.y) * ny;
          // Half-open on one side, so a vertex on the line counts once.
          if ((sa > 0) == (sb > 0)) continue;
          const double f = sa / (sa - sb);
          const DxfPoint x{a.x + (b.x - a.x) * f, a.y + (b.y - a.y) * f};
          cuts.push_back((x.x - o.x) * dx + (x.y - o.y) * dy);
        }
      }
      std::sort(cuts.begin(), cuts.end());
      auto at = [&](double t) { return DxfPoint{o.x + dx * t, o.y + dy * t}; };
      for (std::size_t i = 0; i + 1 < cuts.size(); i += 2) {
        const double t0 = cuts[i], t1 = cuts[i + 1];
        if (!(period > 0)) {
          out.push_back({at(t0), at(t1)});
          if (out.size() > max_segments) {
            out.clear();
            return false;
          }
          continue;
        }
        // The dashes from the period in which t0 falls, up to t1; periods
        // too short to count are refused before they are walked.
        double t = std::floor(t0 / period) * period;
        if (!((t1 - t) / period < static_cast<double>(max_segments)) || t + period == t) {
          out.clear();
          return false;
        }
        while (t < t1) {
          const double cycle_start = t;
          for (double dash : family.dashes) {
            const double end = t + std::fabs(dash);
            if (dash >= 0 && end >= t0 && t <= t1)
              out.push_back({at(std::max(t, t0)), at(std::min(end, t1))});
            t = end;
            if (out.size() > max_segments) {
              out.clear();
              return false;
            }
          }
          if (!(t > cycle_start)) {  // dashes too short to move t: rounding
            out.clear();
            return false;
          }
        }
      }
    }
  }
  return true;
}

}  // namespace DL::dxf
