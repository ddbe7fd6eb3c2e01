// The walk over a rectangle in the exact reverse of drawing order.
//
// Neither the sibling chain of groups nor that of drawables links backward, so
// this walk keeps two stacks of its own: the parts of the tree still to come,
// and the drawables of the current leaf before the current one. Each drawable
// is pushed and popped once, and a step costs one pop in the common case.
//
// A group with an index (displaylist/group_index.h) hands over the children
// before the visited one that overlap the rectangle, in list order; the walk
// visits the same leaves as it does along the chain.
//
// Selection: every leaf that `DisplayListBoundedIterator` would visit and, in
// addition, the last child of every group that is entered when that child is a
// leaf, since the descent takes it without a test. So the selection may be
// wider than the bounded walk's; drawables are never tested themselves.
//
// Stack storage comes from the default Zephal heap and is allocated, grown and
// released under the global lock (`ZEPHAL`), which is held for the call to the
// allocator only, never across a step. Reading and stepping are those of
// `DisplayListIterator`; the constructor and `init` leave the last drawable of
// the walk current.
#pragma once

#include <cstring>
#include <new>
#include <type_traits>

#include "foundation/assert.h"
#include "foundation/geometry.h"
#include "foundation/zephal.h"
#include "iterators/display_list_iterator.h"

// The storage of an iterator stack: `capacity` elements from the default heap,
// allocated and released under the global lock. An element type that is not
// trivially default-constructible (the group entry) is value-initialised in new
// storage; a trivial one (a drawable pointer) is left as it comes.
template <class T>
class IteratorArray {
 public:
  // Storage for `initial_capacity` (at least 1) elements.
  explicit IteratorArray(int initial_capacity) : capacity(initial_capacity) {
    DL_ASSERT(initial_capacity >= 1);
    items = allocate(initial_capacity);
  }
  ~IteratorArray() {
    ZR_Global_Lock lock;
    ZP_ReleaseMemory(items);
  }
  IteratorArray(const IteratorArray&) = delete;
  IteratorArray& operator=(const IteratorArray&) = delete;

  // Replaces the storage by `new_capacity` elements (below 1: twice the
  // current capacity), copying the first min(capacity, new_capacity) elements
  // when `keep` is set.
  void grow(int new_capacity, bool keep) {
    if (new_capacity < 1) new_capacity = capacity * 2;
    T* fresh;
    {
      ZR_Global_Lock lock;
      fresh = allocate_locked(new_capacity);
      if (keep)
        std::memcpy(static_cast<void*>(fresh), items,
                    sizeof(T) * static_cast<std::size_t>(new_capacity < capacity ? new_capacity
                                                                                 : capacity));
      ZP_ReleaseMemory(items);
    }
    items = fresh;
    capacity = new_capacity;
  }

  // The storage, from ZP_AllocateMemory on the default heap.
  T* items = nullptr;
  // Elements allocated.
  int capacity = 0;

 private:
  static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>,
                "elements are moved by memcpy and released without destruction");

  static T* allocate(int n) {
    ZR_Global_Lock lock;
    return allocate_locked(n);
  }
  static T* allocate_locked(int n) {
    void* block = ZP_AllocateMemory(sizeof(T) * static_cast<std::size_t>(n));
    DL_ASSERT(block && "the iterator stacks rely on the allocator to deliver");
    T* out = static_cast<T*>(block);
    if constexpr (!std::is_trivially_default_constructible_v<T>)
      for (int i = 0; i < n; ++i) ::new (static_cast<void*>(out + i)) T();
    return out;
  }
};

// A stack over an IteratorArray that starts at a given capacity and doubles
// when full. Only a growth takes the global lock.
template <class T>
class IteratorStack : public IteratorArray<T> {
 public:
  // An empty stack with room for `initial_capacity` elements.
  explicit IteratorStack(int initial_capacity = 32) : IteratorArray<T>(initial_capacity) {}
  virtual ~IteratorStack() = default;

  // Puts `value` on top, growing the storage when full.
  void push(T const& value) {
    ++top;
    if (top == this->capacity) this->grow(0, true);
    this->items[top] = value;
  }
  // The top element, taken off; a zero value when the stack is empty.
  T pop() {
    if (top == -1) return T();
    return this->items[top--];
  }
  bool empty() const { return top == -1; }  // whether the stack holds nothing

  // Index of the top element; -1 when empty.
  int top = -1;
};

// The reverse walk over a rectangle; see the file comment.
class DisplayListReverseIterator : public DisplayListIterator {
 public:
  // One entry of the group stack: a group and two flags. The word of a 32-bit
  // host (address with the flags in bits 0 and 31) does not hold a 64-bit
  // address, so this is the record form with the same meaning: 16 bytes on a
  // 64-bit host. A default entry is all zero.
  struct GroupEntry {
    // The group still to come (pending), or whose children are (expand).
    DL::Group* group = nullptr;
    // Set: an expand entry, for an interior group whose last child has been
    // visited; all its other children are still to come. Clear: a pending
    // entry, for a group that passed the overlap test and is still to come.
    bool expand = false;
    // The group lies wholly inside the rectangle: nothing below needs a test.
    bool wholly_inside = false;
  };

  // Creates both stacks (32 elements each), then `init(list, bounds)`.
  DisplayListReverseIterator(DL::DisplayList* list, DL::WorldBounds const& bounds);
  // Releases the drawable stack, then the group stack.
  ~DisplayListReverseIterator() override = default;

  // Copies `bounds` and positions the walk on the last drawable of the walk.
  // Returns its leaf, or null when the walk is empty (then both positions are
  // null). The stacks are not emptied: after a repeated `init` in mid-walk the
  // old entries come behind the new walk.
  DL::Group* init(DL::DisplayList* list, DL::WorldBounds const& bounds);

 protected:
  // The drawable before the current one in drawing order, among the selected
  // leaves; null at the end, and again on every later call.
  DL::Drawable* next() override;

  // Goes down from `g` through last children to a leaf, pushing an expand
  // entry for each interior group, and loads the leaf. False when the walk
  // found nothing there and must go on with the stacks.
  bool descend(DL::Group* g, bool wholly_inside);
  // Makes `g` current with its last drawable, pushing the others.
  void load_drawables(DL::Group* g);
  // Pushes the children of `p` before `visited` that overlap, taken from the
  // group's index; false when it has none.
  bool push_indexed(DL::Group* p, DL::Group* visited);

  // The rectangle, copied by `init`.
  DL::WorldBounds bounds = DL::WorldBounds::empty();
  // What is still to be visited of the tree, nearest first.
  IteratorStack<GroupEntry> group_stack;
  // The drawables of the current leaf before the current one, nearest on top.
  IteratorStack<DL::Drawable*> drawable_stack;
};
