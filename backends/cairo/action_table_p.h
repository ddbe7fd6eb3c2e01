// The action table of this backend's renderers, filled in one place.
//
// Each renderer gathers its entry functions as static members of a struct
// (`Access`), named after the entries and templated on whether the entry is
// the clipped one. This fills every entry of `ZR_Renderer` that the backend
// implements from such a struct, with the renderer as the context. Not
// installed.
#pragma once

#include "foundation/rendering.h"

namespace DL::cairo_detail {

template <class A>
void set_actions(ZR_Renderer& r, void* self) {
  auto set = [self](auto& entry, auto* function) {
    entry.context = self;
    entry.function = function;
  };
  set(r.dot_clipped, &A::template dot<true>);
  set(r.dot_unclipped, &A::template dot<false>);
  set(r.polyline_clipped, &A::template polyline<true>);
  set(r.polyline_unclipped, &A::template polyline<false>);
  set(r.polymarker_clipped, &A::template polymarker<true>);
  set(r.polymarker_unclipped, &A::template polymarker<false>);
  set(r.polygon_clipped, &A::template polygon<true>);
  set(r.polygon_unclipped, &A::template polygon<false>);
  set(r.triangles_clipped, &A::template triangles<true>);
  set(r.triangles_unclipped, &A::template triangles<false>);
  set(r.gouraud_triangles_clipped, &A::template gouraud_triangles<true>);
  set(r.gouraud_triangles_unclipped, &A::template gouraud_triangles<false>);
  set(r.textured_triangles_clipped, &A::template textured_triangles<true>);
  set(r.textured_triangles_unclipped, &A::template textured_triangles<false>);
  set(r.elliptical_arc_clipped, &A::template ellipse_entry<true, false>);
  set(r.elliptical_arc_unclipped, &A::template ellipse_entry<false, false>);
  set(r.elliptical_pie_clipped, &A::template ellipse_entry<true, true>);
  set(r.elliptical_pie_unclipped, &A::template ellipse_entry<false, true>);
  set(r.image_clipped, &A::template image<true>);
  set(r.image_unclipped, &A::template image<false>);
  set(r.gouraud_polyline_unclipped, &A::gouraud_polyline);
}

}  // namespace DL::cairo_detail
