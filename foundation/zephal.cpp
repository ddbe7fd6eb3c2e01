// Reference counting under the global lock.
#include "foundation/zephal.h"

void add_ref(ZR_Counted* object) {
  ZR_Global_Lock guard;
  object->count_.fetch_add(1, std::memory_order_relaxed);
}

void release(ZR_Counted* object) {
  ZR_Global_Lock guard;
  if (object->count_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    // The deleting destructor runs with the lock taken a second time, so that a
    // body may release what it holds while it goes: the lock is recursive.
    ZR_Global_Lock again;
    delete object;
  }
}
