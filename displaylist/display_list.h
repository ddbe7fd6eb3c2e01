// The display list record: the group tree, the view and its two transforms, the
// rendering objects, and the state that insertion and the traversals share.
//
// Fields marked "host" are filled in by the program that embeds the library; no
// operation of the library writes them. The default constructor gives a ready
// list: a root covering the whole plane with an open group below it, a fresh
// rendition, an identity view, and the default capacity and level limit.
#pragma once

#include "displaylist/group.h"
#include "foundation/geometry.h"
#include "foundation/rendering.h"

namespace DL {

class Drawable;

// How many drawables an open group takes before it is closed or split, and the
// level at which splitting stops (cells of 2^(32-24) = 256 world units).
//
// The capacity is chosen by measurement. A split re-adds the group's drawables
// into the cells one level down, and drawables that arrive in no spatial order
// inside a region then land in many tiny groups (a 64-byte record each). With
// 1e7 points arriving tile by tile, 153 to a tile in random order inside it, a
// capacity of 64 costs 69 bytes a dot and 128 costs 57, while 256 never splits a
// tile and costs 40.6 (the Dot itself is 40); windows of 1% draw 1.6 times
// faster at 256 than at 64 there, and at 1e6 points 256 is within 20% of 64.
inline constexpr int kDefaultGroupCapacity = 256;
inline constexpr int kDefaultLevelLimit = 24;  // see kDefaultGroupCapacity

// A display list: the record above, with its operations. Hosts may derive
// from it (`add` is virtual).
class DisplayList {
 public:
  // A ready list; see the file comment. `heap` is where groups come from (null:
  // the default heap); `group_capacity` is at least 1, `level_limit` at most 31
  // (see the fields).
  explicit DisplayList(ZephalHeap* heap = nullptr, int group_capacity = kDefaultGroupCapacity,
                       int level_limit = kDefaultLevelLimit);
  // Destroys the tree with every drawable in it and drops the references held.
  virtual ~DisplayList();
  DisplayList(const DisplayList&) = delete;
  DisplayList& operator=(const DisplayList&) = delete;

  // Puts `d`, whose bounds are `b`, into the tree and returns the group that now
  // holds it. The list owns `d` from here on; `d` must have a null sibling and
  // `open_group` must not be null.
  virtual Group* add(Drawable* d, const WorldBounds& b);

  // Inserts `first_new`, and the drawables chained behind it through `sibling`,
  // in front of `existing`, keeping their chain order; `b` must cover all of
  // them. `g` is the bottom group that holds `existing`, or a group above it
  // (then the leaf is found by a forward walk from `g`). Returns that leaf.
  // Every group from the leaf up whose bounds do not hold `b` is grown to it.
  // In the open group, `open_count` is counted anew and `open_bounds` grows by
  // `b` too, so the group still covers what it holds once it is closed. If the
  // growth reaches a group that still holds a cell of the open path, that path
  // is closed and a new, empty open group starts beside it (a host that closes
  // it destroys it: see Group::close); see add_before.cpp.
  // Uses nothing of this list but through the groups.
  Group* add_before(Group* g, Drawable* existing, Drawable* first_new, const WorldBounds& b);

  // -- The view ----------------------------------------------------------------
  // Stores `b` and brings the device bounds and transforms up to date; nothing
  // happens when `b` is the rectangle already held.
  void set_screen_bounds(const ScreenBounds& b);
  // Stores `b` and brings the transforms up to date; nothing happens when `b` is
  // the rectangle already held.
  void set_world_bounds(const WorldBounds& b);
  // Holds a reference of its own on `r` (may be null), releases the old one.
  void set_renderer(ZR_Renderer* r);
  // `screen_bounds` in device units: each value times `device_factor`, truncated.
  void compute_device_bounds(const ScreenBounds& b);
  // The world rectangle that `source`, grown by one pixel, shows.
  void compute_visible_bounds(const ScreenBounds& source, WorldBounds& target) const;

  // -- Point conversions -------------------------------------------------------
  // World to device: the plain form rounds to nearest (ties to even) straight
  // into 32 bits, so a point far off the view comes out as -2147483648; with
  // `saturate_device_points` the saturating form runs instead, tested per point.
  void world_to_screen(const WorldPoint& p, ZR_DCI_Point& out) const {
    if (saturate_device_points) {
      world_to_screen_saturated(p, out);
      return;
    }
    out.x = round_to_int32_wrapping(p.x * scale.x + offset.x);
    out.y = round_to_int32_wrapping(p.y * scale.y + offset.y);
    out.z = 0;
  }
  // The same sums, clamped to the 32-bit range: a far point stays on its side.
  void world_to_screen_saturated(const WorldPoint& p, ZR_DCI_Point& out) const {
    out.x = round_to_int32_saturated(p.x * scale.x + offset.x);
    out.y = round_to_int32_saturated(p.y * scale.y + offset.y);
    out.z = 0;
  }
  // Every point in order; `n` is at least 1.
  void world_to_screen_points(int n, const WorldPoint* in, ZR_DCI_Point* out) const;
  // Converts the points and drops each one that lands on the device point kept
  // just before it; returns how many were kept (1 to n). `n` is at least 2.
  int world_to_screen_unique(int n, const WorldPoint* in, ZR_DCI_Point* out) const;
  // Screen to world, saturating; uses the screen transform only.
  void screen_to_world(const int* p, WorldPoint& out) const;

  // -- Redraw (draw_view.cpp) ---------------------------------------------------
  // Each redraws through one traversal of `root`, picked by the clip: with no
  // complex clip on the rendition, or a device that clips to it
  // (`complex_clip_supported`), `draw_bounded`; otherwise `draw_circled_bounded`
  // when `circular_complex_clip` finds the clip round, `draw_complex_bounded`
  // when not. `renderer` must be set.
  // The whole view: inner `world_bounds`, outer `visible_bounds`.
  void draw_view();
  // The part of the view in `rect` (world): inner `rect` cut to `world_bounds`,
  // outer `rect`.
  void draw_view_bounded(const WorldBounds& rect);
  // The whole view in selection form, whatever the complex clip: the renderer's
  // `option_source` becomes `selector` (a counted reference kept after the draw)
  // and is told each drawable before it draws. The caller has found that the
  // renderer is a selector.
  void draw_view_selection();
  // The part in `rect` in selection form, if the renderer says "Is Selector";
  // otherwise nothing is drawn and `selector` is left alone.
  void draw_view_bounded_selection(const WorldBounds& rect);
  // Whether `source` holds the option "Is Selector" set to true. Takes a counted
  // reference on `source` for the look-up; `source` must not be null.
  static bool is_selector(ZR_Option_Source* source);

  // Whether the rendition's complex clip, which must not be null, is close to a
  // circle: one contour whose vertices lie in a ring 2.0 screen units wide, and
  // whose sides cut into that ring by no more than 5.0 in all. Stores the centre
  // of the contour's bounding box in `clip_center` whatever the answer, and on
  // true the squared radius of a circle inside the contour in
  // `clip_radius_squared`. Runs once per draw (group_clip.cpp).
  bool circular_complex_clip();

  // Asked by the interruptible traversals once per interior group: counts the
  // poll, and at every twentieth (`interrupt_counter` reaching exactly 20, then
  // 0) asks `interrupt_callback`, which must be set, and gives its answer;
  // true otherwise. The counter carries on across draws; one that starts above
  // 20 climbs on and wraps round the 32-bit range (defined, unsigned) before
  // it meets 20 again.
  bool poll_interrupt() {
    interrupt_counter = static_cast<int>(static_cast<unsigned>(interrupt_counter) + 1u);
    if (interrupt_counter != kInterruptPollPeriod) return true;
    interrupt_counter = 0;
    return interrupt_callback(interrupt_user_data);
  }
  static constexpr int kInterruptPollPeriod = 20;  // polls between two calls of the callback
  // World to text point with the transform in force (`device_scale` and
  // `device_offset` when `use_device_transform`, else `scale` and `offset`), in
  // double; a coordinate beyond +-1e15 becomes +-999999986991104.0, the float
  // nearest to 1e15, by its sign. z is 0. Defined with the text drawable.
  void world_to_text_point(const DoublePoint& point, ZR_Point& out) const;
  // The inverse, in double, without a clamp; z is not read.
  void text_point_to_world(const ZR_Point& point, DoublePoint& out) const;

  // -- The record --------------------------------------------------------------
  ZR_Renderer* renderer = nullptr;                  // counted; written by set_renderer
  ZR_Text_Engine* text_engine = nullptr;            // counted; lent by the view of a nesting list
  WorldBounds world_bounds = WorldBounds::empty();  // world rectangle shown
  ScreenBounds screen_bounds = ScreenBounds::empty();  // screen rectangle it is shown in, pixels
  ScreenBounds device_bounds = ScreenBounds::empty();  // the same in device units
  bool use_device_transform = false;                   // host: text uses the device transform
  double aspect_ratio = 1.0;  // host: factor in the y terms of both transforms
  ZR_Rendition rendition;     // host: current drawing state and clips
  WorldBounds visible_bounds = WorldBounds::empty();  // world shown by screen_bounds + 1 pixel
  ZephalHeap* heap = nullptr;           // host: heap of the groups; null is the default heap
  DoublePoint scale{1.0, 1.0};          // world to screen
  DoublePoint offset{0.0, 0.0};         // world to screen: screen = world * scale + offset
  DoublePoint device_scale{1.0, 1.0};   // world to device
  DoublePoint device_offset{0.0, 0.0};  // world to device, as `offset`
  DoublePoint device_factor{1.0, 1.0};  // host: screen units to device units
  bool saturate_device_points = false;  // host: world_to_screen saturates
  bool (*interrupt_callback)(void*) = nullptr;  // host: asked whether to go on
  void* interrupt_user_data = nullptr;          // host: passed to the callback
  int interrupt_counter = 0;                    // polls since the callback last ran
  Group* root = nullptr;                        // host: root of the tree, never null while used
  Group* first_open_group = nullptr;            // follows open_group until insertion leaves upward
  Group* open_group = nullptr;                  // the one group that takes drawables, or null
  // host: drawables an open group takes; at least 1 (asserted by `add`; a
  // release build takes one drawable a group below that).
  int group_capacity;
  // host: open groups at this level or deeper close, not split; at most 31
  // (asserted by `add`). 0 or less never splits: every group hangs from the root.
  int level_limit;
  ZR_Point clip_center{0.0f, 0.0f, 0.0f};          // circle fitted to the complex clip
  float clip_radius_squared = 0.0f;                // see circular_complex_clip
  bool complex_clip_supported = false;             // the device clips to complex clips itself
  int open_level = 0;                              // level of open_group
  int open_count = 0;                              // drawables in open_group
  WorldBounds open_bounds = WorldBounds::empty();  // union of what went into open_group
  ZR_Option_Source* selector = nullptr;            // counted; told the drawable being drawn

 protected:
  // Brings scale, offset, device_scale, device_offset and visible_bounds up to
  // date, unless screen x or the world rectangle is inverted (or the world
  // rectangle is the empty one): then nothing changes.
  // A view of zero extent is refused the same way: when either screen scale
  // would come out 0, infinite or NaN (a world or screen rectangle of zero
  // width or height, an aspect ratio of 0 or not finite), nothing changes. Such
  // a scale has no inverse, so screen_to_world and everything measured in the
  // square-pixel frame (ellipse extents and vectors) would divide by zero; the
  // old view stays in force until a usable one is set.
  void recompute_transform();
};

}  // namespace DL
