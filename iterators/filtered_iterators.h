// Filtered forward walks: by colour, by rectangle, and by both.
//
// A colour filter tests each drawable's colour word in `next`; a rectangle
// filter selects whole leaves in `next_group`, pruning the tree as it walks:
// the `parent` and `sibling` links of the groups carry the walk. Results stay
// in drawing order. Reading and stepping are those of `DisplayListIterator`.
//
// A group with many children has an index (displaylist/group_index.h); the
// rectangle walk takes the children that overlap from it, in list order, and
// keeps them in a cursor while it is below that group: a few cursors on the
// path from the root, each an array of the overlapping children, from the
// default heap and released by the destructor. The leaves visited are exactly
// those of the walk along the sibling chain.
//
// Two things a user must know:
//   - The filters sit in `next` and `next_group` only. The item that `init`
//     leaves current is not tested: the first item read may have any colour,
//     and `advance_until` (`next_until`) does not filter either.
//   - The rectangle selects leaves, not drawables. A leaf is taken when its
//     bounds and those of all its ancestors below the root overlap the
//     rectangle (a root that is itself a leaf is taken untested), and then all
//     its drawables come out, also those that lie outside the rectangle. No
//     drawable that overlaps the rectangle is missed, since every drawable lies
//     inside the bounds of its leaf and of the groups above it.
#pragma once

#include <cstdint>

#include "foundation/geometry.h"
#include "iterators/display_list_iterator.h"

// Every drawable whose colour word equals `color`, after the first item.
class DisplayListColorIterator : public DisplayListIterator {
 public:
  // Positioned on the first drawable of `list` (see `init`).
  DisplayListColorIterator(DL::DisplayList* list, DL::Drawable::ColorData const& color);

  // Stores `color` and positions the walk on the first drawable of `list`,
  // which is not tested; an empty first leaf leaves the sentinel current.
  DL::Group* init(DL::DisplayList* list, DL::Drawable::ColorData const& color);

 protected:
  // The next drawable whose colour word equals `color`: one comparison of the
  // words, so RGB values and rendition pointers are compared as bare numbers.
  DL::Drawable* next() override;

  DL::Drawable::ColorData color;
};

// The drawables of the leaves whose bounds overlap `bounds` (both tests
// inclusive), in drawing order.
class DisplayListBoundedIterator : public DisplayListIterator {
 public:
  // Positioned on the first drawable of the first leaf taken (see `init`).
  DisplayListBoundedIterator(DL::DisplayList* list, DL::WorldBounds const& bounds);

  // Copies `bounds` and positions the walk on the first drawable of the first
  // selected leaf. Returns that leaf, or null when none overlaps; an empty
  // first leaf leaves the current drawable null (there is no sentinel step).
  DL::Group* init(DL::DisplayList* list, DL::WorldBounds const& bounds);

 protected:
  DisplayListBoundedIterator() = default;

  // The next leaf in walk order whose bounds, and those of its ancestors below
  // the root, overlap `bounds`. A group that misses is never entered.
  DL::Group* next_group() override;
  // The first group after `g` in walk order, along the sibling chain and up
  // through the parents, whose bounds overlap `bounds`; null at the end.
  DL::Group* next_overlapping_sibling(DL::Group* g) const;

  // The rectangle, in world coordinates; a copy of the argument.
  DL::WorldBounds bounds = DL::WorldBounds::empty();

 public:
  ~DisplayListBoundedIterator() override;

 private:
  // The overlapping children of an indexed group on the walk's path: those
  // the index yields, tested, then the ones it does not hold, walked.
  struct Cursor {
    DL::Group* group = nullptr;  // whose children these are; null: slot free
    DL::Group** kids = nullptr;  // indexed children that overlap, in order
    std::uint32_t count = 0;     // of kids
    std::uint32_t capacity = 0;  // of kids
    std::uint32_t position = 0;  // next of kids to hand out
    DL::Group* rest = nullptr;   // last child handed out from the rest, or null
    bool rest_started = false;   // the rest is being walked
    bool done = false;           // nothing more to hand out
  };
  static constexpr int kCursors = 8;
  // A cursor for `g`, whose children are about to be walked; null when `g`
  // has no index or no cursor can be had (the sibling chain serves then).
  Cursor* open_cursor(DL::Group* g) const;
  // The cursor of `g` if it has one, after dropping the cursors above it.
  Cursor* cursor_of(const DL::Group* g) const;
  // The next overlapping child a cursor hands out, or null.
  DL::Group* step(Cursor& c) const;
  mutable Cursor cursors_[kCursors];
  mutable int cursor_count_ = 0;
};

// The bounded walk, restricted to one colour word after the first item.
class DisplayListBoundedColorIterator : public DisplayListBoundedIterator {
 public:
  // Positioned as the bounded walk is (see `init`).
  DisplayListBoundedColorIterator(DL::DisplayList* list, DL::WorldBounds const& bounds,
                                  DL::Drawable::ColorData const& color);

  // Stores `color`, then does the bounded `init`.
  DL::Group* init(DL::DisplayList* list, DL::WorldBounds const& bounds,
                  DL::Drawable::ColorData const& color);

 protected:
  // As the colour walk's, over the selected leaves.
  DL::Drawable* next() override;

  DL::Drawable::ColorData color;
};
