// Triangle strips: construction, search, copies, outline vectors, dumps and
// the draws with the border.
#include "drawables/polytriangle.h"

#include <climits>

#include "displaylist/display_list.h"
#include "drawables/device_points_p.h"
#include "foundation/assert.h"

namespace DL {

DL_DRAWABLE_DEFINE(PolytriangleWithNoBorder);
DL_DRAWABLE_DEFINE(Polytriangle);
DL_DRAWABLE_DEFINE(GouraudPolytriangle);
DL_DRAWABLE_DEFINE(TexturedPolytriangle);

namespace {

using PointsEntry = ZR_Action<ZR_Points_Action> ZR_Renderer::*;
using ShadedEntry = ZR_Action<ZR_Shaded_Action> ZR_Renderer::*;
using TexturedEntry = ZR_Action<ZR_Textured_Action> ZR_Renderer::*;

long long array_bytes(int count, std::size_t item) {
  return static_cast<long long>(count) * static_cast<long long>(item);
}

// The strip, and with `Border` its outline under face mode 64, through the
// polyline entry of the same draw at line weight 1.
template <PointsEntry Triangles, PointsEntry Line, bool Border>
void draw_strip(Polything& d, DisplayList& list) {
  detail::draw_converted(d, list, d.count, d.points,
                         [&](ZR_Rendition* r, const ZR_DCI_Point* device) {
                           (list.renderer->*Triangles)(r, d.count, device);
                           if constexpr (Border) {
                             if (r->face_mode() != 64 || d.count == INT_MAX) return;
                             detail::DevicePointBuffer<1> outline_buffer(d.count);
                             ZR_DCI_Point* outline = outline_buffer.data();
                             if (!outline) return;
                             Polytriangle::strip_outline(d.count, device, outline);
                             const int weight = r->line_weight();
                             r->set_line_weight(1, true);
                             (list.renderer->*Line)(r, d.count + 1, outline);
                             r->set_line_weight(weight, true);
                           }
                         });
}

template <ShadedEntry Entry>
void draw_gouraud_strip(GouraudPolytriangle& d, DisplayList& list) {
  detail::draw_converted(d, list, d.count, d.points,
                         [&](ZR_Rendition* r, const ZR_DCI_Point* device) {
                           (list.renderer->*Entry)(r, d.count, device, d.vertex_colors);
                         });
}

template <TexturedEntry Entry>
void draw_textured_strip(TexturedPolytriangle& d, DisplayList& list) {
  detail::draw_converted(
      d, list, d.count, d.points, [&](ZR_Rendition* r, const ZR_DCI_Point* device) {
        (list.renderer->*Entry)(r, d.count, device, d.vertex_colors, d.vertex_parameters,
                                d.vertex_scalars, d.vertex_vectors);
      });
}

}  // namespace

// ---------------------------------------------------------------------------
// PolytriangleWithNoBorder
// ---------------------------------------------------------------------------

PolytriangleWithNoBorder::PolytriangleWithNoBorder(const ColorData& c, int n,
                                                   const WorldPoint* source, ZephalHeap* heap)
    : Polything(c, n, source, heap) {
  table = &visible_table_;
}

void PolytriangleWithNoBorder::do_draw_unclipped(DisplayList& list) {
  draw_strip<&ZR_Renderer::triangles_unclipped, &ZR_Renderer::polyline_unclipped, false>(*this,
                                                                                         list);
}
void PolytriangleWithNoBorder::do_draw_clipped(DisplayList& list) {
  draw_strip<&ZR_Renderer::triangles_clipped, &ZR_Renderer::polyline_clipped, false>(*this, list);
}

bool PolytriangleWithNoBorder::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* PolytriangleWithNoBorder::do_clone() const {
  return new PolytriangleWithNoBorder(color, count, points);
}

bool PolytriangleWithNoBorder::do_get_vector(int index, WorldVector& v) const {
  DL_ASSERT(index >= 0 && index < count);
  const int next = index + 1 == count ? 0 : index + 1;
  v.start = points[outline_index(index, count)];
  v.end = points[outline_index(next, count)];
  return true;
}

void PolytriangleWithNoBorder::do_dump(std::ostream& out, int indent,
                                       DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "PolytriangleWithNoBorder: level  ", false,
              sizeof(PolytriangleWithNoBorder), 0);
}

// ---------------------------------------------------------------------------
// Polytriangle
// ---------------------------------------------------------------------------

Polytriangle::Polytriangle(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : PolytriangleWithNoBorder(c, n, source, heap) {
  table = &visible_table_;
}

void Polytriangle::strip_outline(int count, const ZR_DCI_Point* source, ZR_DCI_Point* target) {
  DL_ASSERT(count >= 1);
  for (int i = count - 1; i >= 2; --i) {
    if (i & 1)
      target[(i + 1) / 2] = source[i];
    else
      target[count - i / 2] = source[i];
  }
  if (count >= 2) target[1] = source[1];
  target[0] = source[0];
  target[count] = source[0];
}

void Polytriangle::do_draw_unclipped(DisplayList& list) {
  draw_strip<&ZR_Renderer::triangles_unclipped, &ZR_Renderer::polyline_unclipped, true>(*this,
                                                                                        list);
}
void Polytriangle::do_draw_clipped(DisplayList& list) {
  draw_strip<&ZR_Renderer::triangles_clipped, &ZR_Renderer::polyline_clipped, true>(*this, list);
}

bool Polytriangle::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* Polytriangle::do_clone() const {
  return new Polytriangle(color, count, points);
}

void Polytriangle::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "Polytriangle: level  ", false, sizeof(Polytriangle), 0);
}

// ---------------------------------------------------------------------------
// GouraudPolytriangle
// ---------------------------------------------------------------------------

GouraudPolytriangle::GouraudPolytriangle(const ColorData& c, int n, const WorldPoint* source,
                                         const ZR_RGB32* source_colors)
    : Polytriangle(c, n, source, nullptr), vertex_colors(nullptr) {
  DL_ASSERT(source_colors || n < 1);
  table = &visible_table_;
  vertex_colors = detail::copy_array(count, source_colors);
  if (!vertex_colors) drop_points();
}

GouraudPolytriangle::~GouraudPolytriangle() {
  ZP_ReleaseMemory(vertex_colors);
}

void GouraudPolytriangle::do_draw_unclipped(DisplayList& list) {
  draw_gouraud_strip<&ZR_Renderer::gouraud_triangles_unclipped>(*this, list);
}
void GouraudPolytriangle::do_draw_clipped(DisplayList& list) {
  draw_gouraud_strip<&ZR_Renderer::gouraud_triangles_clipped>(*this, list);
}

bool GouraudPolytriangle::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* GouraudPolytriangle::do_clone() const {
  return new GouraudPolytriangle(color, count, points, vertex_colors);
}

void GouraudPolytriangle::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "GouraudPolytriange: level  ", false, sizeof(GouraudPolytriangle),
              array_bytes(count, sizeof(ZR_RGB32)));
}

// ---------------------------------------------------------------------------
// TexturedPolytriangle
// ---------------------------------------------------------------------------

TexturedPolytriangle::TexturedPolytriangle(const ColorData& c, int n, const WorldPoint* source,
                                           const ZR_RGB32* source_colors,
                                           const ZR_Vertex_Parameters* source_parameters,
                                           const float* source_scalars,
                                           const ZR_Vertex_Parameters* source_vectors)
    : Polytriangle(c, n, source, nullptr),
      vertex_colors(nullptr),
      vertex_parameters(nullptr),
      vertex_scalars(nullptr),
      vertex_vectors(nullptr) {
  DL_ASSERT((source_colors && source_parameters) || n < 1);
  table = &visible_table_;
  vertex_colors = detail::copy_array(count, source_colors);
  vertex_parameters = detail::copy_array(count, source_parameters);
  if (source_scalars) vertex_scalars = detail::copy_array(count, source_scalars);
  if (source_vectors) vertex_vectors = detail::copy_array(count, source_vectors);
  if (!vertex_colors || !vertex_parameters || (source_scalars && !vertex_scalars) ||
      (source_vectors && !vertex_vectors)) {
    ZP_ReleaseMemory(vertex_vectors);
    ZP_ReleaseMemory(vertex_scalars);
    ZP_ReleaseMemory(vertex_parameters);
    ZP_ReleaseMemory(vertex_colors);
    vertex_colors = nullptr;
    vertex_parameters = nullptr;
    vertex_scalars = nullptr;
    vertex_vectors = nullptr;
    drop_points();
  }
}

TexturedPolytriangle::~TexturedPolytriangle() {
  ZP_ReleaseMemory(vertex_vectors);
  ZP_ReleaseMemory(vertex_scalars);
  ZP_ReleaseMemory(vertex_parameters);
  ZP_ReleaseMemory(vertex_colors);
}

void TexturedPolytriangle::do_draw_unclipped(DisplayList& list) {
  draw_textured_strip<&ZR_Renderer::textured_triangles_unclipped>(*this, list);
}
void TexturedPolytriangle::do_draw_clipped(DisplayList& list) {
  draw_textured_strip<&ZR_Renderer::textured_triangles_clipped>(*this, list);
}

bool TexturedPolytriangle::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* TexturedPolytriangle::do_clone() const {
  return new TexturedPolytriangle(color, count, points, vertex_colors, vertex_parameters,
                                  vertex_scalars, vertex_vectors);
}

void TexturedPolytriangle::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  long long extra =
      array_bytes(count, sizeof(ZR_RGB32)) + array_bytes(count, sizeof(ZR_Vertex_Parameters));
  if (vertex_scalars) extra += array_bytes(count, sizeof(float));
  if (vertex_vectors) extra += array_bytes(count, sizeof(ZR_Vertex_Parameters));
  dump_points(out, indent, debug, "TexturedPolytriange: level  ", false,
              sizeof(TexturedPolytriangle), extra);
}

}  // namespace DL
