// The eight draws of the ellipse family. The library tessellates nothing here:
// each draw hands the device centre, the device radii, the two sweep angles and
// the tilt to one of the elliptical entries of the renderer.
//
// The two paths size the radii differently: the unclipped path truncates the
// device radius toward zero, the clipped path rounds it to nearest with ties to
// even, so one ellipse may be drawn one device unit apart on the two paths.
// Both saturate at the int limits. The angles go out as the record's floats,
// widened; the tilt is not corrected for a view whose x and y scales differ.
#include "displaylist/display_list.h"
#include "ellipse/ellipse.h"

namespace DL {

namespace {

bool at_world_limit(WorldCoord v) {
  return v == PointTemplate<WorldCoord>::scalarMinimum ||
         v == PointTemplate<WorldCoord>::scalarMaximum;
}

}  // namespace

void Ellipse::draw_through(DisplayList& list, ZR_Action<ZR_Ellipse_Action> ZR_Renderer::*entry,
                           bool clipped, double start, double end, const ZR_RGB32* own_color) {
  ZR_DCI_Point device_center;
  list.world_to_screen(center, device_center);
  const double sx = radii.x * list.scale.x;
  const double sy = radii.y * list.scale.y;
  const ZR_DCI_Point device_radii =
      clipped ? ZR_DCI_Point{round_to_int32_saturated(sx), round_to_int32_saturated(sy), 0}
              : ZR_DCI_Point{truncate_to_int32_saturated(sx), truncate_to_int32_saturated(sy), 0};
  const double tilt = rotation;
  ZR_Rendition* r = rendition(list);
  (list.renderer->*entry)(r, &device_center, &device_radii, start, end, tilt, own_color);
}

// ---------------------------------------------------------------------------
// Ellipse and EllipticalArc: the outline
// ---------------------------------------------------------------------------

void Ellipse::do_draw_unclipped(DisplayList& list) {
  const double end = end_angle();
  const double start = start_angle();
  draw_through(list, &ZR_Renderer::elliptical_arc_unclipped, false, start, end, nullptr);
}

void Ellipse::do_draw_clipped(DisplayList& list) {
  // A centre at a limit of the world range marks an ellipse the clipped path
  // does not draw; the unclipped path has no such test.
  if (at_world_limit(center.x) || at_world_limit(center.y)) return;
  const double end = end_angle();
  const double start = start_angle();
  draw_through(list, &ZR_Renderer::elliptical_arc_clipped, true, start, end, nullptr);
}

// ---------------------------------------------------------------------------
// EllipticalPie: the filled sector
// ---------------------------------------------------------------------------

void EllipticalPie::do_draw_unclipped(DisplayList& list) {
  const double end = end_angle();
  const double start = start_angle();
  draw_through(list, &ZR_Renderer::elliptical_pie_unclipped, false, start, end, nullptr);
}

void EllipticalPie::do_draw_clipped(DisplayList& list) {
  const double end = end_angle();
  const double start = start_angle();
  draw_through(list, &ZR_Renderer::elliptical_pie_clipped, true, start, end, nullptr);
}

// ---------------------------------------------------------------------------
// ColorizedEllipse: either shape, with its own colour as the last argument
// ---------------------------------------------------------------------------

void ColorizedEllipse::do_draw_unclipped(DisplayList& list) {
  auto entry =
      outline ? &ZR_Renderer::elliptical_arc_unclipped : &ZR_Renderer::elliptical_pie_unclipped;
  draw_through(list, entry, false, arc_start, arc_end, &ellipse_color);
}

void ColorizedEllipse::do_draw_clipped(DisplayList& list) {
  auto entry =
      outline ? &ZR_Renderer::elliptical_arc_clipped : &ZR_Renderer::elliptical_pie_clipped;
  draw_through(list, entry, true, arc_start, arc_end, &ellipse_color);
}

}  // namespace DL
