// Point lists: `Polything`, the abstract owner of a list of world points, and
// the ways of sending such a list to the rendering component: `Polydot`,
// `Polygon`, `Polyline`, `GouraudPolyline`, `Polymarker`, `Polysegment`. The
// triangle strips, which are Polythings too, are in polytriangle.h.
//
// The record
// ----------
// A Polything is the drawable part (32 bytes on a 64-bit host), `count` and
// `points`: 48 bytes, plus 8 bytes a point in its array. Only GouraudPolyline
// adds a field (its vertex colours, 4 bytes a point). The point order is the
// host's and never changes; nothing edits a list after construction.
//
// Memory
// ------
// The point array comes from the heap given to the constructor (null: the
// default heap); every other owned array, every clone and every device buffer
// from the default heap. A draw converts its points into a device buffer on the
// stack up to 256 points, and into one from the heap above that (`count` > 256,
// so 256 points allocate nothing and 257 do), given back at the end of the
// draw. A Polyline's buffer has room for `count` + 1 points. A Polysegment
// converts pair by pair into two points on the stack and never allocates.
//
// Repeated device points
// ----------------------
// Polydot, Polyline and Polysegment convert with world_to_screen_unique, which
// drops a point that lands on the device point kept just before it in the same
// pass. Polygon, Polymarker and GouraudPolyline send all their points.
//
// Choices made here
// -----------------
// - Constructors take `color`, `count`, the source points (null: the host fills
//   `points` itself) and, for all but GouraudPolyline, the heap of the point
//   array, null by default.
// - Polydot and Polysegment compare in `remove` like their sister classes:
//   token, `count` and every point in order, not the colour. A search is meant
//   to find the object that looks like its pattern, and answering true to any
//   pattern would make a removal by likeness take whatever it meets first.
// - GouraudPolyline::draw_clipped draws. The rendering component has no clipped
//   entry for a shaded line, and its unclipped entry may assume that the line
//   lies inside the clip rectangle, so the clipped draw sends the same `count`
//   device points to `polyline_clipped`, in the drawable's `color`. A user who
//   pans a shaded line half out of the view sees it cut at the edge, in one
//   colour, rather than see it vanish; wholly inside it is shaded again.
// - A heap device buffer that cannot be had makes the draw do nothing at all
//   (not even the rendition call); the allocator is otherwise relied on.
// - A point array that cannot be had leaves `points` null and `count` 0, and
//   so does any other owned array of the list (a GouraudPolyline's colours):
//   the list is then empty, never a count with a null array behind it.
// - A list without points draws nothing, in every class and build (a host's
//   count of 0, or a failed allocation): no rendition call, no action call.
// - Preconditions, asserted in debug builds: a Polyline or Polysegment has
//   not exactly one point (a release build draws a one-point Polyline as its
//   dot and a one-point Polysegment not at all); a vector index and a
//   partial_clone range lie inside the list; a vector iterator needs at least
//   two points (with fewer, it stands at its end from the start and reads
//   nothing). Counts up to INT_MAX are handled without overflow.
#pragma once

#include "drawables/drawable.h"
#include "drawables/vector_iterator.h"

namespace DL {

// Abstract: the point array and what every point list shares. Has no table and
// no token of its own; draws, search, type and clone are its subclasses'.
class Polything : public Drawable {
 public:
  int count;           // number of points
  WorldPoint* points;  // `count` world points, owned

 protected:
  // Takes `count` (at least 0) points from `heap` (null: the default heap) and
  // copies `source` into them when it is not null. The subclass sets the table.
  Polything(const ColorData& color, int count, const WorldPoint* source, ZephalHeap* heap);
  ~Polything();

  // The point array, which every draw reads first (for a walk to prefetch).
  const void* do_draw_data() const { return points; }

  // Leaves the list empty: the point array released, `points` null, `count` 0.
  // What a subclass does when one of its own arrays cannot be had.
  void drop_points();

  // Widens `bounds` by every point; nothing for an empty list.
  void do_add_bounds(WorldBounds& bounds) const;
  int do_get_vector_count() const { return count - 1; }
  // points[index] to points[index + 1]; `index` is not tested.
  bool do_get_vector(int index, WorldVector& vector) const;
  // A DrawableVectorIteratorPolything; the flag is ignored.
  DrawableVectorIterator* do_create_vector_iterator(bool);
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;

  // Whether `search` holds a pattern of class `token` with the same count and
  // points, the comparison of the classes that ignore colour.
  bool same_points(const Search& search, const void* token) const;
  // "<label><indent>, points = <count>[, color = <word>], this = <address>" and
  // the counts: `record` bytes, the points and `extra` bytes.
  void dump_points(std::ostream& out, int indent, DisplayListDebug& debug, const char* label,
                   bool with_color, int record, long long extra) const;
};

// Each point drawn as one device dot, repeated device points dropped, from the
// last point to the first.
class Polydot : public Polything {
  DL_DRAWABLE(Polydot);

 public:
  // `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  Polydot(const ColorData& color, int count, const WorldPoint* source, ZephalHeap* heap = nullptr);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  // `n` points from points[first].
  Drawable* do_partial_clone(int first, int n) const;
  int do_get_vector_count() const { return count; }
  // The zero-length vector at points[index].
  bool do_get_vector(int index, WorldVector& vector) const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A polygon that the device closes and fills: all points sent, none added.
class Polygon : public Polything {
  DL_DRAWABLE(Polygon);

 public:
  // `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  Polygon(const ColorData& color, int count, const WorldPoint* source, ZephalHeap* heap = nullptr);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Count, points and colour.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  int do_get_vector_count() const { return count; }
  // The edges, the last one, index count - 1, closing back to points[0].
  bool do_get_vector(int index, WorldVector& vector) const;
  // A plain iterator, which walks the closing edge too.
  DrawableVectorIterator* do_create_vector_iterator(bool flag) {
    return Drawable::do_create_vector_iterator(flag);
  }
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// An open line through the points, repeated device points dropped; a line that
// collapses onto one device point is drawn as that dot.
class Polyline : public Polything {
  DL_DRAWABLE(Polyline);

 public:
  // `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  Polyline(const ColorData& color, int count, const WorldPoint* source, ZephalHeap* heap = nullptr);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  // `n` + 1 points from points[first]: the vectors first .. first + n - 1, as
  // a visible Polyline (also for a GouraudPolyline).
  Drawable* do_partial_clone(int first, int n) const;
  // "Polyline: color = <word>, points = <count>, (x,y)x(x,y), this = <address>",
  // the first and last point, with no level.
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A line with a colour per point, for a device that shades along it. 56 bytes
// on a 64-bit host, plus 12 bytes a point.
class GouraudPolyline : public Polyline {
  DL_DRAWABLE(GouraudPolyline);

 public:
  ZR_RGB32* vertex_colors;  // `count` colours, owned, from the default heap

  // `source_colors` must not be null when `count` is at least 1 (asserted; a
  // release build takes black for every point). The points come from the
  // default heap. If either array cannot be had the line is left empty.
  GouraudPolyline(const ColorData& color, int count, const WorldPoint* source,
                  const ZR_RGB32* source_colors);
  ~GouraudPolyline();

 protected:
  // All points and the colours to gouraud_polyline_unclipped.
  void do_draw_unclipped(DisplayList& list);
  // All points to polyline_clipped in `color`; see the file comment.
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A marker at every point; the device picks the marker. All points are sent.
class Polymarker : public Polything {
  DL_DRAWABLE(Polymarker);

 public:
  // `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  Polymarker(const ColorData& color, int count, const WorldPoint* source,
             ZephalHeap* heap = nullptr);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Count, points and colour.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// Independent segments: points 0 and 1, 2 and 3, ...; an odd last point is not
// drawn (but is in the bounds). A segment that collapses onto one device point
// is a dot, or, from line weight 3 up, a disc of radius (weight - 1) / 2.
class Polysegment : public Polything {
  DL_DRAWABLE(Polysegment);

 public:
  // `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  Polysegment(const ColorData& color, int count, const WorldPoint* source,
              ZephalHeap* heap = nullptr);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  // 2 * `n` points from points[2 * first]: the segments first .. first + n - 1.
  Drawable* do_partial_clone(int first, int n) const;
  int do_get_vector_count() const { return count / 2; }
  // points[2 * index] to points[2 * index + 1].
  bool do_get_vector(int index, WorldVector& vector) const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// Walks a point list over all neighbouring pairs of points, count - 1 vectors,
// whatever the class says by index: the gaps between the segments of a
// Polysegment are walked too, and the connections between the dots of a
// Polydot. Reads the point array directly, with no call into the drawable per
// step. Unlike the plain walk, the index stops on the first or last vector
// instead of going one beyond, and `at_end`, once set, stays set.
class DrawableVectorIteratorPolything : public DrawableVectorIterator {
 public:
  // Stands on the first vector; `polything` must have at least two points.
  explicit DrawableVectorIteratorPolything(Polything* polything);

  WorldVector* next() override;
  WorldVector* prev() override;
  // Loads `vector` with points[index] to points[index + 1].
  virtual void get_vector(int index);

  int segment_index = 0;  // index of the current vector
  int segment_count = 0;  // count of the Polything, minus 1
};

}  // namespace DL
