// Forward walks over the drawables of a display list, in drawing order.
//
// The drawables live in the leaves of the group tree (BottomGroup and
// OpenBottomGroup); a walk goes depth first through the sibling lists of the
// groups and, in a leaf, along the drawable chain. Every link it follows runs
// its way, so a forward walk needs no memory and no allocation: it is pointer
// chasing plus the class test `contains_drawables` and the virtual `next_group`.
//
// The iterators own nothing. They hold plain pointers into the tree, which must
// not change while they are used: nothing detects a removed group or drawable.
//
// Reading and stepping
// --------------------
// The walk stands on a current item from the moment it is positioned: the item
// that the constructor or `init` leaves current is the first of the walk, and a
// step is asked for only to go on. So the loop of a user is
//
//     for (DisplayListIterator it(&list); it.drawable(); it.advance()) use(it.drawable());
//
// or, the same loop as a range (which consumes the iterator, an input range):
//
//     for (DL::Drawable* d : DisplayListIterator(&list)) use(d);
//
// `drawable()` and `group()` read the position, `advance()` and `advance_until()`
// step through the class's own (virtual) `next` and `next_until`. A walk whose
// first leaf is empty stands on `sentinel`, a drawable that draws nothing, has
// no bounds and matches nothing, so the loop may work on it like on any other;
// `at_sentinel()` tells it apart where that matters.
//
// These classes stand at global scope; the types they walk are in namespace DL.
#pragma once

#include <iterator>

#include "displaylist/group.h"
#include "drawables/drawable.h"
#include "foundation/storage.h"

namespace DL {
class DisplayList;
}

// The walk over every drawable in drawing order, and the root of the family.
// Derived walks change `next` (filters) or `next_group` (pruning). Can live on
// the stack or come from the library's operator new (from a Zephal heap).
class DisplayListIterator : public DL::HeapObject {
 public:
  // Positioned on the first drawable of the list (see `init`).
  explicit DisplayListIterator(DL::DisplayList* list);
  // Positioned on the first drawable at or after `start`, which must not be
  // null. The walk then goes on to the end of the whole tree, not only to the
  // end of the subtree of `start`.
  explicit DisplayListIterator(DL::Group* start);
  virtual ~DisplayListIterator() = default;
  DisplayListIterator(const DisplayListIterator&) = delete;
  DisplayListIterator& operator=(const DisplayListIterator&) = delete;

  // Positions the walk on the first drawable at or after `start`; an empty
  // first leaf leaves the sentinel current. Returns the leaf the walk stands
  // in, null when there is none: then the current drawable keeps its old value
  // (the sentinel after a constructor).
  DL::Group* init(DL::Group* start);

  // -- Reading and stepping ------------------------------------------------------
  // The current drawable; null when the walk has ended.
  DL::Drawable* drawable() const { return current_drawable; }
  // The leaf the walk stands in; null when the walk has ended.
  DL::Group* group() const { return current_group; }
  // Whether the current item is the stand-in of an empty first leaf.
  bool at_sentinel() const { return current_drawable == &sentinel; }
  // Steps to the next item of this walk and returns it; null at the end. Once
  // the walk has ended it returns null and changes nothing.
  DL::Drawable* advance() { return next(); }
  // Steps until `target` is current, with no filter; see `next_until`.
  DL::Drawable* advance_until(DL::Drawable* target) { return next_until(target); }

  // The range-for form: `*` reads `drawable()`, `++` is `advance()`, and the
  // range ends when the current drawable is null.
  class Cursor {
   public:
    using value_type = DL::Drawable*;        // what `*` gives
    using difference_type = std::ptrdiff_t;  // for the iterator concepts; not used
    Cursor() = default;
    // A cursor on `walk`, which it steps.
    explicit Cursor(DisplayListIterator* walk) : walk_(walk) {}
    // The current drawable.
    DL::Drawable* operator*() const { return walk_->current_drawable; }
    // Steps the walk (`advance`).
    Cursor& operator++() {
      walk_->next();
      return *this;
    }
    // Steps the walk.
    void operator++(int) { walk_->next(); }
    // Whether the walk has ended.
    friend bool operator==(const Cursor& c, std::default_sentinel_t) {
      return c.walk_->drawable() == nullptr;
    }

   private:
    DisplayListIterator* walk_ = nullptr;
  };
  Cursor begin() { return Cursor(this); }       // the walk from its current item
  std::default_sentinel_t end() { return {}; }  // reached when the current drawable is null

 protected:
  // Both positions null; the derived class positions the walk itself.
  DisplayListIterator() = default;

  // Steps to the next drawable and returns it; null at the end. An empty leaf
  // reached by a step ends the walk (with `current_group` on it). Inline, so
  // that a walk whose class is known (a plain walk on the stack) steps along a
  // leaf without a call: the step within a leaf is most of every walk.
  virtual DL::Drawable* next() {
    if (!current_drawable) return nullptr;  // ended: stays ended
    if (DL::Drawable* s = current_drawable->sibling) return current_drawable = s;
    return next_leaf();
  }
  // Backward steps are not offered by these walks: null, and nothing moves.
  virtual DL::Drawable* prev() { return nullptr; }
  // Steps, with no filter, until `target` is current; returns `target`, or null
  // when the walk ended first (then both positions are null). A null `target`
  // stops at the end of the current leaf, with `current_group` left on it.
  virtual DL::Drawable* next_until(DL::Drawable* target);
  // The leaf after `current_group` in walk order, or null; changes nothing.
  virtual DL::Group* next_group();
  // The step of `next` out of a leaf: to the first drawable of the next one.
  DL::Drawable* next_leaf();
  // Null, and nothing moves.
  virtual DL::Group* prev_group() { return nullptr; }

  // The leaf the walk stands in; null when the walk has ended.
  DL::Group* current_group = nullptr;
  // The drawable the walk stands on, possibly `&sentinel`; null at the end.
  DL::Drawable* current_drawable = nullptr;
  // The current item when the first leaf is empty: its sibling, colour and
  // layer are zero and stay so, so a step from it goes on to the next leaf.
  DL::DummyDrawable sentinel;
};

// The closed range of drawables from `first` to `last`, in drawing order.
// `DisplayList::add_before` uses the range of one drawable to find its leaf.
class SubEntityIterator : public DisplayListIterator {
 public:
  // Not positioned: `init` must come before any other use.
  SubEntityIterator() = default;
  // Positioned on `first`, in the leaf `group`; ends after `last`.
  SubEntityIterator(DL::Drawable* first, DL::Drawable* last, DL::Group* group);

  // Positions the walk on `first`. `group` is the leaf that holds `first`, or a
  // group above it: then the walk searches forward from that group's first
  // leaf. Returns the leaf of `first`; null (and a null current drawable) when
  // `group` is null. A `last` that the walk never meets lets it run on to the
  // end of the tree.
  DL::Group* init(DL::Drawable* first, DL::Drawable* last, DL::Group* group);

 protected:
  // As the base, but the walk ends after `last`, with `current_group` left on
  // the leaf of `last`.
  DL::Drawable* next() override;

  // The last drawable of the range, inclusive.
  DL::Drawable* last = nullptr;
};
