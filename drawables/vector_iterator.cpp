#include "drawables/vector_iterator.h"

namespace DL {

bool DrawableVectorIterator::initialize(Drawable* d) {
  vector_count = d->get_vector_count();
  fast = d->supports_fast_vector_iterator();
  if (!fast) {
    at_end = true;
    return false;
  }
  drawable = d;
  vector_index = 0;
  at_end = false;
  d->get_vector(0, vector);
  return true;
}

WorldVector* DrawableVectorIterator::next() {
  ++vector_index;
  if (vector_index < vector_count) {
    at_end = false;
    drawable->get_vector(vector_index, vector);
    return &vector;
  }
  at_end = true;
  vector_index = vector_count;
  return nullptr;
}

WorldVector* DrawableVectorIterator::prev() {
  --vector_index;
  if (vector_index >= 0) {
    at_end = false;
    drawable->get_vector(vector_index, vector);
    return &vector;
  }
  vector_index = -1;
  at_end = true;
  return nullptr;
}

}  // namespace DL
