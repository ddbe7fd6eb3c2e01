#include "backends/recording/recording.h"

#include <cstdio>

namespace DL {

namespace {

RecordedCall& begin(void* context, const char* entry, ZR_Rendition* r) {
  auto* self = static_cast<RecordingRenderer*>(context);
  RecordedCall& c = self->calls.emplace_back();
  c.entry = entry;
  if (r && r->get()) {
    c.rendition_color = r->color();
    c.line_weight = r->line_weight();
    c.face_mode = r->face_mode();
    c.hard_clip = r->hard_clip();
    c.complex_clip = r->complex_clip();
  }
  c.selector_drawable = self->option_source->selector_drawable;
  return c;
}

void take_color(RecordedCall& c, const ZR_RGB32* color) {
  c.extra.push_back(color);
  if (color) {
    c.has_color = true;
    c.color = *color;
  }
}

void take_points(RecordedCall& c, int count, const ZR_DCI_Point* points) {
  c.count = count;
  c.points.assign(points, points + (count > 0 ? count : 0));
}

template <const char* Name>
void dot(void* ctx, ZR_Rendition* r, const ZR_DCI_Point* p, const ZR_RGB32* color) {
  RecordedCall& c = begin(ctx, Name, r);
  c.points.push_back(*p);
  take_color(c, color);
}

template <const char* Name>
void points(void* ctx, ZR_Rendition* r, int count, const ZR_DCI_Point* p) {
  take_points(begin(ctx, Name, r), count, p);
}

template <const char* Name>
void colored_points(void* ctx, ZR_Rendition* r, int count, const ZR_DCI_Point* p,
                    const ZR_RGB32* colors) {
  RecordedCall& c = begin(ctx, Name, r);
  take_points(c, count, p);
  take_color(c, colors);
}

template <const char* Name>
void textured(void* ctx, ZR_Rendition* r, int count, const ZR_DCI_Point* p, const ZR_RGB32* colors,
              const ZR_Vertex_Parameters* params, const float* scalars,
              const ZR_Vertex_Parameters* vectors) {
  RecordedCall& c = begin(ctx, Name, r);
  take_points(c, count, p);
  take_color(c, colors);
  c.extra.push_back(params);
  c.extra.push_back(scalars);
  c.extra.push_back(vectors);
}

template <const char* Name>
void ellipse(void* ctx, ZR_Rendition* r, const ZR_DCI_Point* center, const ZR_DCI_Point* radii,
             double start, double end, double rotation, const ZR_RGB32* color) {
  RecordedCall& c = begin(ctx, Name, r);
  c.points = {*center, *radii};
  c.angles[0] = start;
  c.angles[1] = end;
  c.angles[2] = rotation;
  take_color(c, color);
}

template <const char* Name>
void image(void* ctx, ZR_Rendition* r, const ZR_DCI_Point* p, const ZR_Image* img) {
  RecordedCall& c = begin(ctx, Name, r);
  c.points.push_back(*p);
  c.extra.push_back(img);
}

// The entry names, as objects with linkage so they can be template arguments.
#define DL_NAME(n) constexpr char k_##n[] = #n
DL_NAME(dot_clipped);
DL_NAME(dot_unclipped);
DL_NAME(polyline_clipped);
DL_NAME(polyline_unclipped);
DL_NAME(polymarker_clipped);
DL_NAME(polymarker_unclipped);
DL_NAME(polygon_clipped);
DL_NAME(polygon_unclipped);
DL_NAME(triangles_clipped);
DL_NAME(triangles_unclipped);
DL_NAME(gouraud_triangles_clipped);
DL_NAME(gouraud_triangles_unclipped);
DL_NAME(textured_triangles_clipped);
DL_NAME(textured_triangles_unclipped);
DL_NAME(elliptical_arc_clipped);
DL_NAME(elliptical_arc_unclipped);
DL_NAME(elliptical_pie_clipped);
DL_NAME(elliptical_pie_unclipped);
DL_NAME(image_clipped);
DL_NAME(image_unclipped);
DL_NAME(gouraud_polyline_unclipped);
#undef DL_NAME

}  // namespace

RecordingRenderer::RecordingRenderer() {
  auto set = [this](auto& entry, auto* function) {
    entry.context = this;
    entry.function = function;
  };
  set(dot_clipped, &dot<k_dot_clipped>);
  set(dot_unclipped, &dot<k_dot_unclipped>);
  set(polyline_clipped, &points<k_polyline_clipped>);
  set(polyline_unclipped, &points<k_polyline_unclipped>);
  set(polymarker_clipped, &points<k_polymarker_clipped>);
  set(polymarker_unclipped, &points<k_polymarker_unclipped>);
  set(polygon_clipped, &colored_points<k_polygon_clipped>);
  set(polygon_unclipped, &colored_points<k_polygon_unclipped>);
  set(triangles_clipped, &points<k_triangles_clipped>);
  set(triangles_unclipped, &points<k_triangles_unclipped>);
  set(gouraud_triangles_clipped, &colored_points<k_gouraud_triangles_clipped>);
  set(gouraud_triangles_unclipped, &colored_points<k_gouraud_triangles_unclipped>);
  set(textured_triangles_clipped, &textured<k_textured_triangles_clipped>);
  set(textured_triangles_unclipped, &textured<k_textured_triangles_unclipped>);
  set(elliptical_arc_clipped, &ellipse<k_elliptical_arc_clipped>);
  set(elliptical_arc_unclipped, &ellipse<k_elliptical_arc_unclipped>);
  set(elliptical_pie_clipped, &ellipse<k_elliptical_pie_clipped>);
  set(elliptical_pie_unclipped, &ellipse<k_elliptical_pie_unclipped>);
  set(image_clipped, &image<k_image_clipped>);
  set(image_unclipped, &image<k_image_unclipped>);
  set(gouraud_polyline_unclipped, &colored_points<k_gouraud_polyline_unclipped>);
}

void RecordingRenderer::set_selector(bool on) {
  option_source->table.set(ZR_String("Is Selector"), on);
}

std::vector<std::string> RecordingRenderer::trace() const {
  std::vector<std::string> out;
  out.reserve(calls.size());
  for (const RecordedCall& c : calls) out.push_back(c.to_string());
  return out;
}

std::vector<std::string> RecordingRenderer::entries() const {
  std::vector<std::string> out;
  out.reserve(calls.size());
  for (const RecordedCall& c : calls) out.push_back(c.entry);
  return out;
}

std::string RecordedCall::to_string() const {
  std::string s = entry;
  char buf[96];
  if (count) {
    std::snprintf(buf, sizeof buf, " %d", count);
    s += buf;
  }
  for (const ZR_DCI_Point& p : points) {
    std::snprintf(buf, sizeof buf, " (%d,%d)", p.x, p.y);
    s += buf;
  }
  if (entry.rfind("elliptical_", 0) == 0) {
    std::snprintf(buf, sizeof buf, " [%.9g %.9g %.9g]", angles[0], angles[1], angles[2]);
    s += buf;
  }
  if (has_color) {
    std::snprintf(buf, sizeof buf, " color=0x%06x", static_cast<unsigned>(color));
    s += buf;
  }
  return s;
}

}  // namespace DL
