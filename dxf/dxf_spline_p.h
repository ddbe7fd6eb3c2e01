// Flattening SPLINE entities into polylines, inside dl_dxf. Not installed.
#pragma once

#include <vector>

#include "dxf/dxf_loader.h"

namespace DL::dxf {

// The points of the curve `x` describes over `control` (its control points,
// or its fit points when x.degree is 0), no farther than `tolerance` from it
// between two points (by a midpoint test, halving each knot span at most 12
// times), at most 65536 points. Knots that do not fit the count of control
// points and degree, or that decrease, are replaced by clamped uniform ones;
// weights that are not all positive and finite are ignored.
std::vector<DxfPoint> flatten_spline(const DxfDetail& x, const std::vector<DxfPoint>& control,
                                     bool closed, double tolerance);

}  // namespace DL::dxf
