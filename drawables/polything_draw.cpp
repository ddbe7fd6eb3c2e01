// The draws of the point lists. Each class's two draws are one function
// template over the action entries, so that the clipped and unclipped forms
// cannot drift apart; the entry is a template argument, not a test per draw.
#include <cstdint>

#include "displaylist/display_list.h"
#include "drawables/device_points_p.h"
#include "drawables/polything.h"
#include "foundation/assert.h"

namespace DL {

namespace {

using DotEntry = ZR_Action<ZR_Dot_Action> ZR_Renderer::*;
using PointsEntry = ZR_Action<ZR_Points_Action> ZR_Renderer::*;
using PolygonEntry = ZR_Action<ZR_Polygon_Action> ZR_Renderer::*;
using EllipseEntry = ZR_Action<ZR_Ellipse_Action> ZR_Renderer::*;

// A full turn, as the float the rendering component is given it as.
constexpr double kFullTurn = 6.2831854820251465;

// Kept device points, each sent as a dot, from the last to the first.
template <DotEntry Dot>
void draw_polydot(Polything& d, DisplayList& list) {
  if (d.count < 1) return;
  detail::DevicePointBuffer<0> buffer(d.count);
  ZR_DCI_Point* device = buffer.data();
  if (!device) return;
  int kept = 1;
  if (d.count == 1)
    list.world_to_screen_points(1, d.points, device);
  else
    kept = list.world_to_screen_unique(d.count, d.points, device);
  ZR_Rendition* r = d.rendition(list);
  for (int i = kept - 1; i >= 0; --i) (list.renderer->*Dot)(r, &device[i], nullptr);
}

// All points, then one call of a points entry.
template <PointsEntry Entry>
void draw_all_points(Polything& d, DisplayList& list) {
  detail::draw_converted(d, list, d.count, d.points,
                         [&](ZR_Rendition* r, const ZR_DCI_Point* device) {
                           (list.renderer->*Entry)(r, d.count, device);
                         });
}

template <PolygonEntry Entry>
void draw_polygon(Polything& d, DisplayList& list) {
  detail::draw_converted(d, list, d.count, d.points,
                         [&](ZR_Rendition* r, const ZR_DCI_Point* device) {
                           (list.renderer->*Entry)(r, d.count, device, nullptr);
                         });
}

// The kept points as a line, or the one dot they collapsed to.
template <PointsEntry Line, DotEntry Dot>
void draw_polyline(Polything& d, DisplayList& list) {
  DL_ASSERT(d.count != 1 && "a line needs two points");
  // One point (release builds) converts to one kept point and is drawn as a dot.
  if (d.count < 1) return;
  detail::DevicePointBuffer<1> buffer(d.count);
  ZR_DCI_Point* device = buffer.data();
  if (!device) return;
  const int kept = list.world_to_screen_unique(d.count, d.points, device);
  ZR_Rendition* r = d.rendition(list);
  if (kept == 1)
    (list.renderer->*Dot)(r, device, nullptr);
  else
    (list.renderer->*Line)(r, kept, device);
}

// Pair by pair into two stack points; a collapsed pair becomes a dot, or a
// disc of the line's half width once that is at least one unit.
template <PointsEntry Line, DotEntry Dot, EllipseEntry Pie>
void draw_polysegment(Polything& d, DisplayList& list) {
  DL_ASSERT(d.count != 1 && "a segment needs two points");
  if (d.count < 2) return;
  ZR_Rendition* r = d.rendition(list);
  // Truncated toward zero; widened so that no weight overflows the subtraction.
  const int half_width = static_cast<int>((static_cast<std::int64_t>(r->line_weight()) - 1) / 2);
  const ZR_DCI_Point radii{half_width, half_width, 0};
  ZR_DCI_Point pair[2];
  for (int i = 0; i + 1 < d.count; i += 2) {
    const int kept = list.world_to_screen_unique(2, d.points + i, pair);
    if (kept == 2)
      (list.renderer->*Line)(r, 2, pair);
    else if (half_width < 1)
      (list.renderer->*Dot)(r, pair, nullptr);
    else
      (list.renderer->*Pie)(r, pair, &radii, 0.0, kFullTurn, 0.0, nullptr);
  }
}

}  // namespace

void Polydot::do_draw_unclipped(DisplayList& list) {
  draw_polydot<&ZR_Renderer::dot_unclipped>(*this, list);
}
void Polydot::do_draw_clipped(DisplayList& list) {
  draw_polydot<&ZR_Renderer::dot_clipped>(*this, list);
}

void Polygon::do_draw_unclipped(DisplayList& list) {
  draw_polygon<&ZR_Renderer::polygon_unclipped>(*this, list);
}
void Polygon::do_draw_clipped(DisplayList& list) {
  draw_polygon<&ZR_Renderer::polygon_clipped>(*this, list);
}

void Polyline::do_draw_unclipped(DisplayList& list) {
  draw_polyline<&ZR_Renderer::polyline_unclipped, &ZR_Renderer::dot_unclipped>(*this, list);
}
void Polyline::do_draw_clipped(DisplayList& list) {
  draw_polyline<&ZR_Renderer::polyline_clipped, &ZR_Renderer::dot_clipped>(*this, list);
}

void GouraudPolyline::do_draw_unclipped(DisplayList& list) {
  if (count < 1) return;
  detail::DevicePointBuffer<0> buffer(count);
  ZR_DCI_Point* device = buffer.data();
  if (!device) return;
  list.world_to_screen_points(count, points, device);
  ZR_Rendition* r = rendition(list);
  list.renderer->gouraud_polyline_unclipped(r, count, device, vertex_colors);
}
void GouraudPolyline::do_draw_clipped(DisplayList& list) {
  draw_all_points<&ZR_Renderer::polyline_clipped>(*this, list);
}

void Polymarker::do_draw_unclipped(DisplayList& list) {
  draw_all_points<&ZR_Renderer::polymarker_unclipped>(*this, list);
}
void Polymarker::do_draw_clipped(DisplayList& list) {
  draw_all_points<&ZR_Renderer::polymarker_clipped>(*this, list);
}

void Polysegment::do_draw_unclipped(DisplayList& list) {
  draw_polysegment<&ZR_Renderer::polyline_unclipped, &ZR_Renderer::dot_unclipped,
                   &ZR_Renderer::elliptical_pie_unclipped>(*this, list);
}
void Polysegment::do_draw_clipped(DisplayList& list) {
  draw_polysegment<&ZR_Renderer::polyline_clipped, &ZR_Renderer::dot_clipped,
                   &ZR_Renderer::elliptical_pie_clipped>(*this, list);
}

}  // namespace DL
