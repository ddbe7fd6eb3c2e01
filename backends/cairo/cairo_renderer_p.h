// What the cairo renderer's entries share with the direct writes, and the
// direct writes themselves (see "Direct writes" in cairo_renderer.h): each
// takes an entry's arguments and either writes the mark straight into the
// target's pixels and returns true, or returns false and leaves it to cairo.
// Not installed.
#pragma once

#include <cmath>

#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/coverage_p.h"
#include "backends/cairo/direct_pixels_p.h"

namespace DL {

namespace cairo_detail {

constexpr double kGuard = 65536.0;  // 2^16: twice the largest canvas; cairo loses longer lines
constexpr double kPi = 3.14159265358979323846;
constexpr double kTwoPi = 2.0 * kPi;
// A Gouraud polyline's segment at most this many pixels long is stroked flat.
constexpr double kFlatRamp = 8.0;

// The colour halfway between two, each channel rounded.
inline ZR_RGB32 mix(ZR_RGB32 a, ZR_RGB32 b) {
  ZR_RGB32 out = 0;
  for (int shift = 0; shift < 24; shift += 8)
    out |= ((((a >> shift) & 0xff) + ((b >> shift) & 0xff) + 1) / 2) << shift;
  return out;
}

// The rendition's line weight, 1 without line attributes.
inline int weight_of(const ZR_Rendition* r) {
  return (r && *r && r->get()->line_attributes) ? r->line_weight() : 1;
}

}  // namespace cairo_detail

struct CairoRenderer::Direct {
  // A thin polyline whose segments all run along the pixel grid, written as
  // the whole pixels cairo's stroke of it covers, when it may be; false when
  // cairo must draw it. A one-unit line through pixel centres covers whole
  // pixels, the square caps carry it half a pixel beyond its ends and the
  // mitred right-angle joins fill their corners: each segment's pixels from
  // end to end, opaque. A turn back on itself (a bevel, half a pixel) or a
  // segment of no length is left to cairo.
  static bool grid_polyline(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                            const ZR_DCI_Point* points);

  // A thin polyline off the grid (one or two units wide), written as the
  // exact area of its stroke (see coverage_p.h), when its joins allow it
  // (`mitred_apart`) and it may be written directly; false when cairo must
  // draw it.
  static bool thin_polyline(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                            const ZR_DCI_Point* points);

  // Markers blended through the cross's coverage, when they may be written
  // directly; false when cairo must draw them.
  static bool markers(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                      const ZR_DCI_Point* points);

  // A polygon whose edges all run along the pixel grid, written as the
  // coverage cairo's fill gives it (see fill_grid_polygon), when it may be;
  // false when cairo must draw it. Up to kMaxGridCorners corners: the cost is
  // rows times edges.
  static bool grid_polygon(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                           const ZR_DCI_Point* points, const ZR_RGB32* color);

  // A strip of one colour written as the exact area of its triangles (see
  // coverage_p.h), each turned the same way so that neighbours, which share
  // an edge, join without a seam, when it may be; false when cairo must draw
  // it. Triangles that overlap (a strip folding over itself) add up on the
  // pixels both cover in part, where cairo covers their union.
  static bool flat_strip(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                         const ZR_DCI_Point* points);

  // A strip with a colour per vertex filled straight into the pixels, when it
  // may be; false when cairo must draw it.
  static bool shaded_strip(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, int count,
                           const ZR_DCI_Point* points, const ZR_RGB32* colors);

  // An arc one or two units wide, or a pie, of radii not 0, written as the
  // exact area of its stroke or fill (see coverage_p.h), the curve taken as
  // chords within a twentieth of a unit of it, when it
  // may be; false when cairo must draw it. An arc of a whole turn is a ring
  // (cairo's open path caps over itself there), and needs the curve nowhere
  // tighter than the half width; an open arc needs its joins
  // `mitred_apart`; an arc of more than a turn goes to cairo.
  static bool ellipse(CairoRenderer& r, ZR_Rendition* rendition, bool clipped, bool pie,
                      const ZR_DCI_Point& center, const ZR_DCI_Point& radii, double start,
                      double sweep, double rotation, const ZR_RGB32* color);

  // A thin Gouraud polyline, each segment written as the exact area of its
  // own stroke (square caps at both ends, as cairo strokes each segment
  // alone): a short one flat (see the header), a longer one through its
  // ramp, each pixel in the ramp's colour at its centre, when it may be;
  // false when cairo must draw it.
  static bool ramps(CairoRenderer& r, ZR_Rendition* rendition, int count,
                    const ZR_DCI_Point* points, const ZR_RGB32* colors);
};

}  // namespace DL
