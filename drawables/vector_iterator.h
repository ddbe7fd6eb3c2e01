// Walking a primitive as straight world-coordinate vectors.
//
// The plain iterator asks the drawable for each vector by index. Subclasses for
// point lists, ellipses and text walk their own way.
#pragma once

#include "drawables/drawable.h"
#include "foundation/storage.h"

namespace DL {

// Owned by the host and destroyed through its virtual destructor; memory from the
// default heap. Holds a plain pointer to its drawable, which must outlive it and
// not change during the walk. `next` and `prev` are public here: a host walks
// with them, testing `at_end` (or the drawable's supports_fast_vector_iterator)
// before the first step.
class DrawableVectorIterator : public HeapObject {
 public:
  DrawableVectorIterator() = default;
  virtual ~DrawableVectorIterator() = default;

  // The next vector, or null past the end; the vector belongs to the iterator
  // and is overwritten by the next step.
  virtual WorldVector* next();
  // The previous vector, or null before the start.
  virtual WorldVector* prev();

  // Stands the iterator on the first vector of `drawable`: true if the drawable
  // supports fast iteration, else false with `at_end` set.
  bool initialize(Drawable* drawable);

  Drawable* drawable = nullptr;  // the drawable walked; set only when `fast`
  bool at_end = true;            // ran off either end, or cannot start
  WorldVector vector{};          // the current vector
  int vector_count = 0;          // get_vector_count() of the drawable
  int vector_index = 0;          // index of the current vector
  bool fast = false;             // supports_fast_vector_iterator() of the drawable
};

}  // namespace DL
