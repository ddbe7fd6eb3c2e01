// Triangle strips: a point list sent as one strip, each point beyond the second
// making a triangle with the two before it. `PolytriangleWithNoBorder` is the
// plain strip; `Polytriangle` also draws the strip's outline, one device unit
// wide, when the rendition's face mode is 64; `GouraudPolytriangle` adds a
// colour per vertex and `TexturedPolytriangle` more per-vertex data, which the
// library copies and hands on without reading.
//
// All four send every point (none dropped), through a device buffer on the
// stack up to 256 points and from the default heap above. The border takes a
// second buffer of count + 1 points, on the stack up to 256 points too, so a
// bordered strip of 256 points allocates nothing and one of 257 two buffers.
//
// The border sets the rendition's line weight to 1 in place for its polyline
// call and puts the old weight back, so the weight after a draw is the weight
// before it (and nothing shared is copied).
//
// Choices made here
// -----------------
// - Constructors take `color`, `count`, the source points, then the per-vertex
//   sources; the plain strips also take the heap of their point array (null:
//   the default heap). The per-vertex arrays come from the default heap.
// - The outline of a one-point strip is that point twice; strip_outline reads
//   no second point that is not there.
// - A heap buffer that cannot be had: no strip buffer, the draw does nothing;
//   no border buffer, the triangles are drawn without the border.
// - A strip without points draws nothing (a failed allocation leaves one so);
//   what a device makes of a strip below three points is its own affair.
// - A strip of INT_MAX points has an outline of INT_MAX + 1 points, which no
//   int counts: it is drawn without its border.
// - A per-vertex array that cannot be had leaves the strip empty (`points`
//   null, `count` 0, no per-vertex array), so a renderer is never handed a
//   null array with a count above 0. A null source the constructor asks for
//   (asserted) gives an array of zeros in release builds.
#pragma once

#include "drawables/polything.h"

namespace DL {

// The plain strip. Vectors are the edges of its outline, `count` of them, in
// the order opposite to strip_outline, walked by a plain iterator.
class PolytriangleWithNoBorder : public Polything {
  DL_DRAWABLE(PolytriangleWithNoBorder);

 public:
  // A strip of `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  PolytriangleWithNoBorder(const ColorData& color, int count, const WorldPoint* source,
                           ZephalHeap* heap = nullptr);

  // The position in the strip of the `position`-th outline point, 0 to
  // count - 1: the even points going up, then the odd points coming down.
  // Exact up to count = INT_MAX: the half is taken as count - count / 2,
  // never as (count + 1) / 2.
  static int outline_index(int position, int count) {
    return position < count - count / 2 ? 2 * position : 2 * (count - position) - 1;
  }

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Count and points, not the colour nor any per-vertex array.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  int do_get_vector_count() const { return count; }
  // From outline point `index` to the next, the last one closing to the first.
  bool do_get_vector(int index, WorldVector& vector) const;
  DrawableVectorIterator* do_create_vector_iterator(bool flag) {
    return Drawable::do_create_vector_iterator(flag);
  }
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// The strip with its outline under face mode 64.
class Polytriangle : public PolytriangleWithNoBorder {
  DL_DRAWABLE(Polytriangle);

 public:
  // A strip of `count` points copied from `source` (null: left for the caller to fill),
  // from `heap` (null: the default heap).
  Polytriangle(const ColorData& color, int count, const WorldPoint* source,
               ZephalHeap* heap = nullptr);

  // Writes the closed outline of a strip of `count` (at least 1) points into
  // `target`, count + 1 points: source[0], the odd points rising, the even
  // points from the highest down to source[2], and source[0] again. For 5
  // points 0, 1, 3, 4, 2, 0; for 6 points 0, 1, 3, 5, 4, 2, 0.
  static void strip_outline(int count, const ZR_DCI_Point* source, ZR_DCI_Point* target);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A strip shaded from a colour per vertex; no border. 56 bytes on a 64-bit
// host, plus 12 bytes a point.
class GouraudPolytriangle : public Polytriangle {
  DL_DRAWABLE(GouraudPolytriangle);

 public:
  ZR_RGB32* vertex_colors;  // `count` colours, owned

  // `source_colors` must not be null when `count` is at least 1.
  GouraudPolytriangle(const ColorData& color, int count, const WorldPoint* source,
                      const ZR_RGB32* source_colors);
  ~GouraudPolytriangle();

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A strip with colours and texture data per vertex; no border. 80 bytes on a
// 64-bit host, plus 28 bytes a point, 4 more with scalars and 12 with vectors.
class TexturedPolytriangle : public Polytriangle {
  DL_DRAWABLE(TexturedPolytriangle);

 public:
  ZR_RGB32* vertex_colors;                  // `count` colours, owned
  ZR_Vertex_Parameters* vertex_parameters;  // `count` records, owned
  float* vertex_scalars;                    // `count` floats, owned; null when absent
  ZR_Vertex_Parameters* vertex_vectors;     // `count` records, owned; null when absent

  // `source_colors` and `source_parameters` must not be null when `count` is
  // at least 1; a null `source_scalars` or `source_vectors` leaves that array
  // absent.
  TexturedPolytriangle(const ColorData& color, int count, const WorldPoint* source,
                       const ZR_RGB32* source_colors, const ZR_Vertex_Parameters* source_parameters,
                       const float* source_scalars, const ZR_Vertex_Parameters* source_vectors);
  ~TexturedPolytriangle();

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

}  // namespace DL
