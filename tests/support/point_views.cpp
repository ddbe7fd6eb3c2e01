#include "tests/support/point_views.h"

namespace DL::test {

namespace {

template <const char* Name, class... A>
void probe(void* context, ZR_Rendition*, A...) {
  static_cast<HeapProbe*>(context)->calls.push_back({Name, ZP_HeapStatistics(nullptr)});
}

template <const char* Name, class... A>
void set(HeapProbe* self, ZR_Action<void(void*, ZR_Rendition*, A...)>& entry) {
  entry.context = self;
  entry.function = &probe<Name, A...>;
}

constexpr char k_dot[] = "dot";
constexpr char k_polyline[] = "polyline";
constexpr char k_polymarker[] = "polymarker";
constexpr char k_polygon[] = "polygon";
constexpr char k_triangles[] = "triangles";
constexpr char k_gouraud_triangles[] = "gouraud_triangles";
constexpr char k_textured_triangles[] = "textured_triangles";
constexpr char k_ellipse[] = "ellipse";
constexpr char k_image[] = "image";
constexpr char k_gouraud_polyline[] = "gouraud_polyline";

}  // namespace

HeapProbe::HeapProbe() {
  set<k_dot>(this, dot_clipped);
  set<k_dot>(this, dot_unclipped);
  set<k_polyline>(this, polyline_clipped);
  set<k_polyline>(this, polyline_unclipped);
  set<k_polymarker>(this, polymarker_clipped);
  set<k_polymarker>(this, polymarker_unclipped);
  set<k_polygon>(this, polygon_clipped);
  set<k_polygon>(this, polygon_unclipped);
  set<k_triangles>(this, triangles_clipped);
  set<k_triangles>(this, triangles_unclipped);
  set<k_gouraud_triangles>(this, gouraud_triangles_clipped);
  set<k_gouraud_triangles>(this, gouraud_triangles_unclipped);
  set<k_textured_triangles>(this, textured_triangles_clipped);
  set<k_textured_triangles>(this, textured_triangles_unclipped);
  set<k_ellipse>(this, elliptical_arc_clipped);
  set<k_ellipse>(this, elliptical_arc_unclipped);
  set<k_ellipse>(this, elliptical_pie_clipped);
  set<k_ellipse>(this, elliptical_pie_unclipped);
  set<k_image>(this, image_clipped);
  set<k_image>(this, image_unclipped);
  set<k_gouraud_polyline>(this, gouraud_polyline_unclipped);
}

std::vector<WorldPoint> distinct_points(int n) {
  std::vector<WorldPoint> points;
  points.reserve(static_cast<std::size_t>(n));
  for (int i = 0; i < n; ++i) points.push_back({10 * i, 20 * (i % 7)});
  return points;
}

}  // namespace DL::test
