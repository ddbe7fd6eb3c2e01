// Point lists: construction, bounds, search, copies, vectors, dumps and the
// point-list vector iterator. The draws are in polything_draw.cpp.
#include "drawables/polything.h"

#include <cstring>
#include <ostream>

#include "drawables/device_points_p.h"
#include "foundation/assert.h"

namespace DL {

DL_DRAWABLE_DEFINE(Polydot);
DL_DRAWABLE_DEFINE(Polygon);
DL_DRAWABLE_DEFINE(Polyline);
DL_DRAWABLE_DEFINE(GouraudPolyline);
DL_DRAWABLE_DEFINE(Polymarker);
DL_DRAWABLE_DEFINE(Polysegment);

// ---------------------------------------------------------------------------
// Polything
// ---------------------------------------------------------------------------

Polything::Polything(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : Drawable(nullptr, c), count(n > 0 ? n : 0), points(nullptr) {
  DL_ASSERT(n >= 0 && "a negative count is taken as 0");
  const std::size_t size = n > 0 ? static_cast<std::size_t>(n) : 0;
  points = static_cast<WorldPoint*>(ZP_AllocateMemory(size * sizeof(WorldPoint), heap));
  if (!points) {
    count = 0;
    return;
  }
  if (source && n >= 1) std::memcpy(points, source, size * sizeof(WorldPoint));
}

Polything::~Polything() {
  ZP_ReleaseMemory(points);
}

void Polything::drop_points() {
  ZP_ReleaseMemory(points);
  points = nullptr;
  count = 0;
}

void Polything::do_add_bounds(WorldBounds& b) const {
  for (int i = 0; i < count; ++i) b.merge(points[i]);
}

bool Polything::do_get_vector(int index, WorldVector& v) const {
  DL_ASSERT(index >= 0 && index < count - 1);
  v.start = points[index];
  v.end = points[index + 1];
  return true;
}

DrawableVectorIterator* Polything::do_create_vector_iterator(bool) {
  return new DrawableVectorIteratorPolything(this);
}

bool Polything::same_points(const Search& search, const void* token) const {
  if (search.pattern_type != token) return false;
  const auto* other = static_cast<const Polything*>(search.pattern);
  if (other->count != count) return false;
  for (int i = 0; i < count; ++i)
    if (!(other->points[i] == points[i])) return false;
  return true;
}

void Polything::dump_points(std::ostream& out, int indent, DisplayListDebug& debug,
                            const char* label, bool with_color, int record, long long extra) const {
  for (int i = 0; i < indent; ++i) out << "    ";
  out << label << indent << ", points = " << count;
  if (with_color) out << ", color = " << static_cast<int>(static_cast<ZR_RGB32>(color.word()));
  out << ", this = " << reinterpret_cast<std::uintptr_t>(this) << std::endl;
  // The counts are ints; a list too large for them wraps, as a dump may.
  const long long bytes =
      record + static_cast<long long>(count) * static_cast<long long>(sizeof(WorldPoint)) + extra;
  count_dump(debug, static_cast<int>(static_cast<std::uint32_t>(bytes)));
}

void Polything::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "Polything: level  ", false, sizeof(Polything), 0);
}

// ---------------------------------------------------------------------------
// Polydot
// ---------------------------------------------------------------------------

Polydot::Polydot(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : Polything(c, n, source, heap) {
  table = &visible_table_;
}

bool Polydot::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* Polydot::do_clone() const {
  return new Polydot(color, count, points);
}

Drawable* Polydot::do_partial_clone(int first, int n) const {
  DL_ASSERT(first >= 0 && n >= 0 && n <= count - first);
  return new Polydot(color, n, points + first);
}

bool Polydot::do_get_vector(int index, WorldVector& v) const {
  DL_ASSERT(index >= 0 && index < count);
  v.start = points[index];
  v.end = points[index];
  return true;
}

void Polydot::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "Polydot: level  ", true, sizeof(Polydot), 0);
}

// ---------------------------------------------------------------------------
// Polygon
// ---------------------------------------------------------------------------

Polygon::Polygon(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : Polything(c, n, source, heap) {
  table = &visible_table_;
}

bool Polygon::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy) && search.pattern->color == color;
}

Drawable* Polygon::do_clone() const {
  return new Polygon(color, count, points);
}

bool Polygon::do_get_vector(int index, WorldVector& v) const {
  DL_ASSERT(index >= 0 && index < count);
  v.start = points[index];
  v.end = points[index + 1 < count ? index + 1 : 0];
  return true;
}

void Polygon::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "Polygon: level  ", false, sizeof(Polygon), 0);
}

// ---------------------------------------------------------------------------
// Polyline and GouraudPolyline
// ---------------------------------------------------------------------------

Polyline::Polyline(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : Polything(c, n, source, heap) {
  table = &visible_table_;
}

bool Polyline::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* Polyline::do_clone() const {
  return new Polyline(color, count, points);
}

Drawable* Polyline::do_partial_clone(int first, int n) const {
  DL_ASSERT(first >= 0 && n >= 0 && n < count - first);
  return new Polyline(color, n + 1, points + first);
}

void Polyline::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  // An empty list (only after a failed allocation) shows the origin twice.
  const WorldPoint first = count > 0 ? points[0] : WorldPoint{0, 0};
  const WorldPoint last = count > 0 ? points[count - 1] : WorldPoint{0, 0};
  for (int i = 0; i < indent; ++i) out << "    ";
  out << "Polyline: color = " << static_cast<int>(static_cast<ZR_RGB32>(color.word()))
      << ", points = " << count << ", (" << first.x << "," << first.y << ")x(" << last.x << ","
      << last.y << "), this = " << reinterpret_cast<std::uintptr_t>(this) << std::endl;
  const long long bytes =
      sizeof(Polyline) + static_cast<long long>(count) * static_cast<long long>(sizeof(WorldPoint));
  count_dump(debug, static_cast<int>(static_cast<std::uint32_t>(bytes)));
}

GouraudPolyline::GouraudPolyline(const ColorData& c, int n, const WorldPoint* source,
                                 const ZR_RGB32* source_colors)
    : Polyline(c, n, source, nullptr), vertex_colors(nullptr) {
  DL_ASSERT(source_colors || n < 1);
  table = &visible_table_;
  vertex_colors = detail::copy_array(count, source_colors);
  if (!vertex_colors) drop_points();
}

GouraudPolyline::~GouraudPolyline() {
  ZP_ReleaseMemory(vertex_colors);
}

bool GouraudPolyline::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* GouraudPolyline::do_clone() const {
  return new GouraudPolyline(color, count, points, vertex_colors);
}

void GouraudPolyline::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "GoraudPolyline: level  ", false, sizeof(GouraudPolyline),
              static_cast<long long>(count) * static_cast<long long>(sizeof(ZR_RGB32)));
}

// ---------------------------------------------------------------------------
// Polymarker
// ---------------------------------------------------------------------------

Polymarker::Polymarker(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : Polything(c, n, source, heap) {
  table = &visible_table_;
}

bool Polymarker::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy) && search.pattern->color == color;
}

Drawable* Polymarker::do_clone() const {
  return new Polymarker(color, count, points);
}

void Polymarker::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "Polymarker: level  ", false, sizeof(Polymarker), 0);
}

// ---------------------------------------------------------------------------
// Polysegment
// ---------------------------------------------------------------------------

Polysegment::Polysegment(const ColorData& c, int n, const WorldPoint* source, ZephalHeap* heap)
    : Polything(c, n, source, heap) {
  table = &visible_table_;
}

bool Polysegment::do_remove(const Search& search) const {
  return same_points(search, &_drawable_type_dummy);
}

Drawable* Polysegment::do_clone() const {
  return new Polysegment(color, count, points);
}

Drawable* Polysegment::do_partial_clone(int first, int n) const {
  DL_ASSERT(first >= 0 && n >= 0 && n <= count / 2 - first);
  return new Polysegment(color, 2 * n, points + 2 * first);
}

bool Polysegment::do_get_vector(int index, WorldVector& v) const {
  DL_ASSERT(index >= 0 && index < count / 2);
  v.start = points[2 * index];
  v.end = points[2 * index + 1];
  return true;
}

void Polysegment::do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const {
  dump_points(out, indent, debug, "Polysegment: level  ", true, sizeof(Polysegment), 0);
}

// ---------------------------------------------------------------------------
// DrawableVectorIteratorPolything
// ---------------------------------------------------------------------------

DrawableVectorIteratorPolything::DrawableVectorIteratorPolything(Polything* p) {
  initialize(p);
  at_end = false;
  segment_count = p->count - 1;
  segment_index = 0;
  // Fewer than two points: no vector to stand on; see the file comment.
  if (segment_count < 1) {
    at_end = true;
    return;
  }
  get_vector(0);
}

void DrawableVectorIteratorPolything::get_vector(int index) {
  // Every class with two points or more supports the fast walk, so `drawable`
  // is set whenever there is a vector to read.
  const WorldPoint* points = static_cast<const Polything*>(drawable)->points;
  vector.start = points[index];
  vector.end = points[index + 1];
}

WorldVector* DrawableVectorIteratorPolything::next() {
  ++segment_index;
  if (segment_index < segment_count) {
    get_vector(segment_index);
    return &vector;
  }
  at_end = true;
  segment_index = segment_count - 1;
  return nullptr;
}

WorldVector* DrawableVectorIteratorPolything::prev() {
  --segment_index;
  if (segment_index >= 0) {
    get_vector(segment_index);
    return &vector;
  }
  segment_index = 0;
  at_end = true;
  return nullptr;
}

}  // namespace DL
