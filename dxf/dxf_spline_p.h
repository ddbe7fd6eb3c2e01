// Flattening SPLINE entities into polylines, inside dl_dxf. Not installed.
#pragma once

#include <vector>

#include "dxf/dxf_loader.h"

namespace DL::dxf {

// The points of the curve `x` describes over `control` (its control
// points), no farther than `tolerance` from it between two points (by a
// midpoint test, halving each knot span at most 12 times), at most 65536
// points. Knots that do not fit the count of control points and degree, or
// that decrease, are replaced by clamped uniform ones; weights that are not
// all positive and finite are ignored.
std::vector<DxfPoint> flatten_spline(const DxfDetail& x, const std::vector<DxfPoint>& control,
                                     double tolerance);

// The cubic CAD draws through fit points, as a degree-3 B-spline into
// `control` and `knots`: C2, over chord-length parameters, leaving and
// reaching its ends in the directions of `start_tangent` and `end_tangent`,
// or, where one is (0, 0) or not finite, with no curvature there (the natural
// end); periodic when `closed` (and three points or more). Each span is one
// Bezier piece (inner knots of multiplicity 3), so the control points bound
// the curve, as the extent needs. A fit point equal to the one before it is
// dropped, and so is a closed curve's last point equal to its first. False,
// with nothing written, when fewer than two points differ.
bool interpolate_fit_points(const std::vector<DxfPoint>& fit, DxfPoint start_tangent,
                            DxfPoint end_tangent, bool closed, std::vector<DxfPoint>& control,
                            std::vector<double>& knots);

}  // namespace DL::dxf
