// A drawable that shows a whole display list (the nested list) inside the list
// it was added to (the outer list).
//
// The two worlds are related per axis by outer = nested * scale + offset. The
// drawable shows the region `bounds` of the nested world, and reports it to the
// outer list carried over into the outer world (`mapped_bounds`).
//
// The nested list has no output of its own between draws. Each draw lends it the
// outer list's renderer and text engine, gives it the screen rectangle and hard
// clip that the region has in the outer view (`push_view`), walks its tree with
// the plain redraw of `DisplayList` (`draw_view` and its forms), and takes the
// loan back (`pop_view`): afterwards its renderer and text engine are null and
// its rendition's hard clip is what it was. Its world and screen rectangles and
// its transform keep the last view. The outer list's complex clip, point
// saturation, aspect ratio and interrupt callback are not passed on, so an
// interrupt does not reach into a nested list. Nested lists can nest again: a
// nested list may itself hold drawables of this class, each level drawn under
// the composed transform and the intersection of the hard clips.
//
// One nested list can be under one view at a time, so a list must not (directly
// or further down) hold a drawable that shows the list itself.
//
// A region that is mirrored, by a negative scale here or in the outer view, has
// an inverted screen rectangle and is never drawn.
//
// Ownership and sharing
// ---------------------
// In the default mode, `Ownership::owned`, the drawable owns its nested list and
// its destruction destroys the list. `clone` gives a drawable that shows the same
// list in the same mode, so of an owning drawable and its clone only one may
// still hold the list when it is destroyed: give the other another list, or
// null, through `set_display_list` first (that hands the list back without
// destroying it).
//
// A host that shows one list at many places (a block inserted many times) gives
// each drawable the list in `Ownership::borrowed` mode: such a drawable never
// destroys its list, and its clones borrow it too. The host keeps the list, and
// destroys it after the last drawable that shows it has gone, which for drawables
// in a tree is after the outer list is destroyed or they have been removed. This
// is the safe way to share: no count to keep, no double destruction, whatever
// order the tree destroys the drawables in.
//
// The rendition flag
// ------------------
// `hard_clip_flag` is passed unchanged as the second argument of every
// `ZR_Rendition::set_hard_clip` made here; with this rendering component that is
// `in_place`: false (the default) lets a nested list whose rendition body is
// shared get a copy of its own before its hard clip changes, true changes the
// shared body for everyone. The setter is offered for hosts that share one
// rendition between lists on purpose.
#pragma once

#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL {

class DrawableDisplayList;

// The table of the class: the drawable protocol and two further entries, in
// this order. Both are set in the hidden twin too.
struct DrawableDisplayListTable : DrawableTable {
  // Sets the nested list up for one draw in the view of `outer`: lends it the
  // outer renderer and text engine, gives it the region's view and hard clip,
  // reads whether the renderer selects. False when the region has no image in
  // the outer view; then nothing has changed and `pop_view` must not follow.
  bool (*push_view)(Drawable*, DisplayList& outer);
  // Takes the loan back and restores the nested hard clip. `outer` is not used.
  void (*pop_view)(Drawable*, DisplayList& outer);
};

// 128 bytes on a 64-bit host: the drawable part (32), display_list (8), bounds
// and mapped_bounds (16 each), scale and offset (16 each), saved_hard_clip (16),
// the three flags (8 with padding).
class DrawableDisplayList : public Drawable {
 public:
  using Table = DrawableDisplayListTable;  // the class's table of operations
  DL_DRAWABLE(DrawableDisplayList);

 public:
  // Whether the drawable destroys its nested list; see the file comment.
  enum class Ownership : unsigned char { owned, borrowed };

  // Stores `rendition` as the colour word (rendition form) and `list` as the
  // nested list, owned; scale (1, 1), offset (0, 0); then `set_bounds(bounds)`.
  // Any pointer may be null.
  DrawableDisplayList(ZR_Rendition* rendition, DisplayList* list, const WorldBounds* bounds);
  // The same with the ownership mode of `list` given.
  DrawableDisplayList(ZR_Rendition* rendition, DisplayList* list, const WorldBounds* bounds,
                      Ownership ownership);
  // The same with any colour word, e.g. an RGB value that colour iterators find.
  DrawableDisplayList(const ColorData& color, DisplayList* list, const WorldBounds* bounds,
                      Ownership ownership = Ownership::owned);
  // Destroys the nested list if it is owned and not null.
  ~DrawableDisplayList();

  DisplayList* display_list() const { return display_list_; }  // the nested list, or null
  bool owns_display_list() const {
    return ownership_ == Ownership::owned;
  }                                                   // whether it is destroyed with the drawable
  Ownership ownership() const { return ownership_; }  // the mode the nested list is held in
  // Replaces the nested list, then `set_bounds(bounds)`. The previous list is
  // neither destroyed nor touched: it goes back to the caller. The new list is
  // held in the drawable's present mode, or in the mode given.
  void set_display_list(DisplayList* list, const WorldBounds* bounds);
  void set_display_list(DisplayList* list, const WorldBounds* bounds,
                        Ownership ownership);  // see above

  const WorldBounds& bounds() const {
    return bounds_;
  }  // the nested list's rectangle, in its own world
  const WorldBounds& mapped_bounds() const {
    return mapped_bounds_;
  }  // `bounds` mapped into the outer world
  const DoublePoint& scale() const {
    return scale_;
  }  // nested world to outer world: a factor per axis
  const DoublePoint& offset() const { return offset_; }  // and an offset, after the factor
  bool hard_clip_flag() const {
    return hard_clip_flag_;
  }  // `in_place` of the hard clip changes made here (file comment)

  // `bounds` becomes `*b`; with null, the union of the bounds of every drawable
  // of the nested list (empty when there is none, or no list). If `bounds` is
  // then empty on x, `mapped_bounds` keeps its previous value; otherwise each of
  // its values is the bounds value * scale + offset of its axis, in double,
  // truncated toward zero (saturated at the 32-bit limits).
  void set_bounds(const WorldBounds* b);
  // Store the pair, then carry `bounds` over anew (`set_bounds(&bounds())`).
  void set_scale(const DoublePoint& s);
  void set_offset(const DoublePoint& o);                          // see set_scale
  void set_hard_clip_flag(bool flag) { hard_clip_flag_ = flag; }  // see hard_clip_flag

 protected:
  bool push_view(DisplayList& outer) {
    return static_cast<const Table*>(table)->push_view(this, outer);
  }
  void pop_view(DisplayList& outer) { static_cast<const Table*>(table)->pop_view(this, outer); }

  // Copies colour, nested list (with its mode), bounds, mapped bounds, scale,
  // offset and hard_clip_flag; not sibling, layer, saved_hard_clip, is_selector.
  void copy(const DrawableDisplayList& other);

  // Nothing without a nested list, or when push_view refuses; otherwise the
  // whole view of the nested list (its selection form when the renderer selects).
  void do_draw_unclipped(DisplayList& outer);
  // The same, cut to the world rectangle that the nested hard clip shows.
  void do_draw_clipped(DisplayList& outer);
  // Merges `mapped_bounds`; an empty one changes nothing.
  void do_add_bounds(WorldBounds& total) const;
  // Equal when the pattern is of this class, shows the same list (by pointer)
  // and has exactly the same scale and offset; bounds and colour play no part.
  bool do_remove(const Search& search) const;
  // A drawable that shows the same list, in the same mode; see the file comment.
  Drawable* do_clone() const;
  bool do_push_view(DisplayList& outer);
  void do_pop_view(DisplayList& outer);

 public:
  // Fills push_view and pop_view of the table of class U.
  template <class U>
  static constexpr void fill_extra_entries(Table& t, bool) {
    t.push_view = [](Drawable* d, DisplayList& outer) {
      return static_cast<U*>(d)->do_push_view(outer);
    };
    t.pop_view = [](Drawable* d, DisplayList& outer) { static_cast<U*>(d)->do_pop_view(outer); };
  }

 private:
  // -- The record ------------------------------------------------------------
  // The nested list, or null; destroyed with the drawable when owned.
  DisplayList* display_list_ = nullptr;
  // The region shown, in nested world coordinates; may be empty.
  WorldBounds bounds_ = WorldBounds::empty();
  // `bounds_` in the outer world: the drawable's extent.
  WorldBounds mapped_bounds_ = WorldBounds::empty();
  // Nested world to outer world, per axis.
  DoublePoint scale_{1.0, 1.0};
  DoublePoint offset_{0.0, 0.0};
  // The nested hard clip as push_view found it; meaningful until pop_view.
  ZR_Int_Rectangle saved_hard_clip_{0, 0, 0, 0};
  // Passed to every set_hard_clip made here; see the file comment.
  bool hard_clip_flag_ = false;
  // Whether this draw is a selection; set by push_view, read until pop_view.
  bool is_selector_ = false;
  Ownership ownership_ = Ownership::owned;
};

}  // namespace DL
