// The lines of a patterned hatch, inside dl_dxf. Not installed.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "dxf/dxf_loader.h"

namespace DL::dxf {

using DxfSegment = std::pair<DxfPoint, DxfPoint>;

// The dashes of the pattern lines of `hatch` (its `pattern` and `loops`)
// inside its boundary: each family's lines cross the loops' box, are cut
// where they cross any loop and kept where they are inside an odd number of
// loops (so islands stay open), then dashed from their own origin point. A
// dot is a segment of zero length. False, with nothing in `out`, when more
// than `max_segments` would come out, a family's lines lie closer than
// 1/100000 of the boundary's size, or the lines times the boundary's edges
// pass 2e7 (the hatch is then drawn as its outline).
bool hatch_segments(const DxfDetail& hatch, std::size_t max_segments, std::vector<DxfSegment>& out);

}  // namespace DL::dxf
