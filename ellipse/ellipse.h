// Ellipses: a whole outline (`Ellipse`), part of an outline (`EllipticalArc`), a
// filled sector (`EllipticalPie`) and either of these with a colour of its own
// (`ColorizedEllipse`). Four classes over one record layout; the world extent,
// the draws and the polygonal form are shared and reach the sweep through two
// extra table entries, `start_angle` and `end_angle`.
//
// Angles
// ------
// Radians, as floats. They are parametric: the angle t stands for the point
// (radii.x * cos t, radii.y * sin t) in the ellipse's own frame, which is turned
// by `rotation` (from world +x toward world +y) and moved to `center`. The float
// constants below keep their float values, so a full turn is 6.2831854820251465.
//
// Non-square pixels
// -----------------
// When the list's x and y scales differ, the extent and the vectors are worked
// out in the frame in which pixels are square: the ellipse's x radius is
// multiplied by scale.x / scale.y there, and x values are divided by it on the
// way back. The angles are never corrected for the view.
//
// How far the extent goes
// -----------------------
// The extent is built from the two ends of the sweep and the four axis
// extremes that the sweep holds; a rotated one is grown by ten per cent. A
// sweep runs in the positive sense, so an end below the start is reached
// through angle 0. Whether an axis extreme is in the sweep is decided by its
// polar direction set against the parametric sweep plus `rotation`: exact on a
// circle and when unrotated, and covered by the growth up to an axis ratio of
// about 2.5 in square pixels. On a more eccentric, rotated arc an extreme that
// the arc passes may be left out, and the extent can fall short of the outline
// by a good part of the radius. Whole ellipses are always covered. Values are
// truncated toward zero, so the extent can fall short by less than one unit.
//
// Choices made here
// -----------------
// - Constructors take `color` first, then the class's fields in record order,
//   `center` and `radii` as points, and the owning list last.
// - `device_aspect` is the one field a const operation (add_bounds) writes. It
//   is stored and read as a relaxed atomic, so two threads that compute bounds
//   of one ellipse at once write the same value without a data race.
// - Radii are expected to be non-negative. The integer path of an unrotated
//   whole ellipse builds (cx - rx, cy - ry, cx + rx, cy + ry), which for a
//   negative radius is inverted and does not cover the ellipse.
// - Every conversion of a computed double to a coordinate is checked: device
//   radii and the extent saturate at the 32-bit limits, NaN gives 0, so a NaN
//   angle or a huge radius gives a defined (if meaningless) answer. A rotation
//   that is NaN or infinite is bounded as every rotation at once: centre plus
//   and minus the larger radius on both axes (x scaled by the pixel shape).
//   The unrotated whole ellipse's integer path is taken for rotation 0 only.
// - Searches compare angles as values, except that two NaN angles match: an
//   ellipse with a NaN angle is then still found by a copy of itself.
// - The number of vectors is capped at `kMaxEllipseVectors`; only an ellipse
//   whose device radius is far beyond any 32-bit device (about 7e10) reaches it.
// - If the point array of generateVectors cannot be allocated, `points` is null
//   and `count` is 0; an iterator over such an ellipse stands at its end.
#pragma once

#include <atomic>
#include <iosfwd>

#include "drawables/drawable.h"
#include "drawables/vector_iterator.h"

namespace DL {

class DisplayList;

// The table of the ellipse classes: the drawable table and the two angle
// entries, which the extent, the draws of Ellipse and EllipticalPie and the
// vectors read. Both are set in every table, hidden twins included.
struct EllipseTable : DrawableTable {
  // Start of the sweep: 0 for a whole ellipse, `arc_start` for the others.
  float (*start_angle)(const Drawable*);
  // End of the sweep: TWO_PI for a whole ellipse, `arc_end` for the others.
  float (*end_angle)(const Drawable*);
};

// Most vectors an ellipse is cut into; see the file comment.
inline constexpr int kMaxEllipseVectors = 1 << 20;

// A whole elliptical outline. 64 bytes on a 64-bit host: the drawable part (32),
// center (8), radii (8), rotation (4), device_aspect (4), display_list (8).
// Owns nothing beyond its record.
class Ellipse : public Drawable {
 public:
  using Table = EllipseTable;  // the class's table of operations
  DL_DRAWABLE(Ellipse);

 public:
  static constexpr float TWO_PI = 6.2831854820251465f;  // 2 pi as a float
  // 2 pi less 0.01: a sweep longer than this is a whole ellipse.
  static constexpr float FULL_SWEEP = 6.2731852531433105f;
  static constexpr float HALF_PI = 1.5707963705062866f;          // pi / 2 as a float
  static constexpr float INVERSE_TWO_PI = 0.15915493667125702f;  // 1 / (2 pi) as a float
  // The float nearest 1.1, widened: how much a rotated extent is grown.
  static constexpr double EXTENT_GROWTH = static_cast<double>(1.1f);

  // Centre in world coordinates.
  WorldPoint center;
  // Radius along the ellipse's own x axis, then its own y axis; either may be
  // the larger.
  WorldPoint radii;
  // Tilt of the own x axis, from world +x toward world +y.
  float rotation;
  // Cache of scale.x / scale.y of `display_list`; 0 until add_bounds needs it,
  // then kept even if the scale changes. A clone starts again at 0.
  mutable float device_aspect;
  // The list the ellipse is shown in; not owned. Its scale decides the pixel
  // shape of the extent and the fineness of the vectors.
  DisplayList* display_list;

  // A whole ellipse shown in `display_list` (not owned).
  Ellipse(const ColorData& color, const WorldPoint& center, const WorldPoint& radii, float rotation,
          DisplayList* display_list);

  // Start of the sweep, relative to the own x axis (0 for a whole ellipse).
  float start_angle() const { return static_cast<const EllipseTable*>(table)->start_angle(this); }
  // End of the sweep (2 pi for a whole ellipse).
  float end_angle() const { return static_cast<const EllipseTable*>(table)->end_angle(this); }

  // True when the direction of `v` (x and y read) lies in the sweep turned by
  // `rotation`, both limits included; always true for a sweep longer than
  // FULL_SWEEP. The polar direction is set against parametric angles with no
  // correction: exact on a circle and on the ellipse's own axes.
  bool isWithinBounds(const ZR_Vector& v) const;

  // `x` brought into [0, TWO_PI) the way the sweep tests need it: an infinity,
  // a NaN or a value too large to change when 1 is subtracted counts as 0. Any
  // other float gives a result in the range, also beyond 1e9 where the float of
  // x / TWO_PI is several turns off (the angle is then reduced directly). The
  // result is a double; callers round it to float, which may give TWO_PI itself.
  static double normalize_angle(float x);

  // The polygonal form at the current scale of `display_list`: `count` world
  // points (get_vector_count() + 1) in a new array from the default Zephal heap,
  // which the caller owns and releases with ZP_ReleaseMemory (the operator
  // delete of DrawableVectorIterator). `display_list` must be valid and its
  // scale.y not 0. On allocation failure `points` is null and `count` 0.
  void generateVectors(ZR_DCI_Point*& points, int& count) const;

  // Fills the two angle entries of the table of class U.
  template <class U>
  static constexpr void fill_extra_entries(Table& t, bool) {
    t.start_angle = [](const Drawable* d) { return static_cast<const U*>(d)->do_start_angle(); };
    t.end_angle = [](const Drawable* d) { return static_cast<const U*>(d)->do_end_angle(); };
  }

 protected:
  float do_start_angle() const { return 0.0f; }
  float do_end_angle() const { return TWO_PI; }

  // Outline through elliptical_arc_unclipped: device radii truncated toward zero.
  void do_draw_unclipped(DisplayList& list);
  // Outline through elliptical_arc_clipped: device radii rounded to nearest,
  // ties to even; nothing at all when a coordinate of `center` is at a limit of
  // the world range.
  void do_draw_clipped(DisplayList& list);
  // Merges the world extent, for any rotation, sweep and pixel shape. Reads
  // `display_list` (and fills `device_aspect`) unless the ellipse is whole and
  // unrotated; then `center` +- `radii` must fit in 32 bits.
  void do_add_bounds(WorldBounds& total) const;
  // Equal to a pattern of this very class with the same center, radii and rotation.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  bool do_has_fixed_representation() const { return false; }
  bool do_supports_fast_vector_iterator() const { return false; }
  // 1 + floor(4 sqrt(r) sweep / 2pi), at least 2, where r is the larger device
  // radius at the current scale; at most kMaxEllipseVectors.
  int do_get_vector_count() const;
  // A DrawableVectorIteratorEllipse; null when allocation fails.
  DrawableVectorIterator* do_create_vector_iterator(bool);
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;

  // The shared bodies of the draws: the device centre and radii, the angles and
  // the call of `entry`, with `color` as the last argument.
  void draw_through(DisplayList& list, ZR_Action<ZR_Ellipse_Action> ZR_Renderer::*entry,
                    bool clipped, double start, double end, const ZR_RGB32* color);
};

// Part of an elliptical outline, from `arc_start` to `arc_end`. 72 bytes on a
// 64-bit host. Draws like Ellipse.
class EllipticalArc : public Ellipse {
  DL_DRAWABLE(EllipticalArc);
  friend class Ellipse;

 public:
  // Start and end of the sweep, relative to the ellipse's own x axis. Neither
  // sorted nor normalised: an end below the start is passed on as it stands.
  float arc_start;
  float arc_end;  // see arc_start

  // The arc from `arc_start` to `arc_end` of the ellipse.
  EllipticalArc(const ColorData& color, const WorldPoint& center, const WorldPoint& radii,
                float rotation, float arc_start, float arc_end, DisplayList* display_list);

 protected:
  float do_start_angle() const { return arc_start; }
  float do_end_angle() const { return arc_end; }
  // Equal to an EllipticalArc pattern with the same center and radii; neither
  // rotation nor the sweep is compared.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// A filled sector, through the elliptical_pie entries. 72 bytes on a 64-bit host.
class EllipticalPie : public EllipticalArc {
  DL_DRAWABLE(EllipticalPie);
  friend class Ellipse;

 public:
  // The sector from `arc_start` to `arc_end` of the ellipse.
  EllipticalPie(const ColorData& color, const WorldPoint& center, const WorldPoint& radii,
                float rotation, float arc_start, float arc_end, DisplayList* display_list);

 protected:
  // No centre test on either path; radii truncated (unclipped) or rounded (clipped).
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Equal to an EllipticalPie pattern with the same center, radii and rotation;
  // the sweep is not compared.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// An arc (`outline` true) or a sector (`outline` false) with a colour of its own,
// handed to the entry beside the rendition, which still gets `color`. 80 bytes
// on a 64-bit host (72, the colour word, the flag, padding).
class ColorizedEllipse : public EllipticalArc {
  DL_DRAWABLE(ColorizedEllipse);
  friend class Ellipse;

 public:
  ZR_RGB32 ellipse_color;  // the colour handed to the entry
  bool outline;            // true: an arc; false: a sector

  // An arc or sector (by `outline`) painted in `ellipse_color`.
  ColorizedEllipse(const ColorData& color, const WorldPoint& center, const WorldPoint& radii,
                   float rotation, float arc_start, float arc_end, ZR_RGB32 ellipse_color,
                   bool outline, DisplayList* display_list);

 protected:
  void do_draw_unclipped(DisplayList& list);
  void do_draw_clipped(DisplayList& list);
  // Equal to a ColorizedEllipse pattern with every field of the record the same
  // (center, radii, rotation, sweep, outline, ellipse_color); `color` aside.
  bool do_remove(const Search& search) const;
  Drawable* do_clone() const;
  void do_dump(std::ostream& out, int indent, DisplayListDebug& debug) const;
};

// The walk over the vectors of any ellipse class. At construction it takes the
// number of vectors from the current scale and generates all the points at
// once, in one allocation; each step then copies four integers. A later zoom or
// change of the ellipse does not reach it, and it needs the ellipse no longer.
//
// The walk stops on the ends instead of going one beyond, and `at_end` stays set
// once a step has run off either end: `prev` after the end gives the last
// vector, `prev` at the start gives null and leaves the index at 0.
class DrawableVectorIteratorEllipse : public DrawableVectorIterator {
 public:
  // A walk over the vectors of `ellipse` in its list's present view.
  explicit DrawableVectorIteratorEllipse(Ellipse* ellipse);
  ~DrawableVectorIteratorEllipse() override;
  DrawableVectorIteratorEllipse(const DrawableVectorIteratorEllipse&) = delete;
  DrawableVectorIteratorEllipse& operator=(const DrawableVectorIteratorEllipse&) = delete;

  WorldVector* next() override;
  WorldVector* prev() override;
  // Loads `vector` with vector `index`, from point `index` to point `index` + 1.
  // Index 0 generates the points if they are not there yet. `index` must lie in
  // [0, segment_count).
  virtual void get_vector(int index);

  int segment_index = 0;                 // index of the current vector
  int segment_count = 0;                 // get_vector_count() at construction
  ZR_DCI_Point* point_buffer = nullptr;  // segment_count + 1 points, owned
  Ellipse* ellipse = nullptr;            // the ellipse walked, not owned
};

}  // namespace DL
