// Points along an ellipse, evenly in the parameter.
#include <cmath>

#include "foundation/geometry.h"
#include "foundation/rendering.h"

namespace {
constexpr double kTwoPi = 6.283185307179586;
}  // namespace

void ZP_Generate_Elliptical_Points(const ZR_DCI_Point& center, const ZR_DCI_Point& radii,
                                   float start, float end, float rotation, int count,
                                   ZR_DCI_Point* points) {
  if (count <= 0) return;
  const double cr = std::cos(static_cast<double>(rotation));
  const double sr = std::sin(static_cast<double>(rotation));
  // An arc runs in the positive sense. An end below the start lies that much
  // short of a turn beyond it, as in the sweep tests of the ellipse extent.
  double sweep = static_cast<double>(end) - start;
  if (sweep < 0.0) sweep = kTwoPi - std::fmod(-sweep, kTwoPi);
  const double last = start + sweep;
  const double step = count > 1 ? sweep / (count - 1) : 0.0;
  for (int i = 0; i < count; ++i) {
    // The last point is computed from the end itself, so the sweep closes exactly.
    double t = i == count - 1 && count > 1 ? last : start + step * i;
    double x = radii.x * std::cos(t);
    double y = radii.y * std::sin(t);
    points[i].x = DL::round_to_int32_saturated(center.x + x * cr - y * sr);
    points[i].y = DL::round_to_int32_saturated(center.y + x * sr + y * cr);
    points[i].z = 0;
  }
}
