// Points along an ellipse, evenly in the parameter.
#include <cmath>

#include "foundation/geometry.h"
#include "foundation/rendering.h"

void ZP_Generate_Elliptical_Points(const ZR_DCI_Point& center, const ZR_DCI_Point& radii,
                                   float start, float end, float rotation, int count,
                                   ZR_DCI_Point* points) {
  if (count <= 0) return;
  const double cr = std::cos(static_cast<double>(rotation));
  const double sr = std::sin(static_cast<double>(rotation));
  const double step = count > 1 ? (static_cast<double>(end) - start) / (count - 1) : 0.0;
  for (int i = 0; i < count; ++i) {
    // The last point is computed from `end` itself, so the sweep closes exactly.
    double t = i == count - 1 && count > 1 ? static_cast<double>(end) : start + step * i;
    double x = radii.x * std::cos(t);
    double y = radii.y * std::sin(t);
    points[i].x = DL::round_to_int32_saturated(center.x + x * cr - y * sr);
    points[i].y = DL::round_to_int32_saturated(center.y + x * sr + y * cr);
    points[i].z = 0;
  }
}
