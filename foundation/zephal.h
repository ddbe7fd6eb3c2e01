// The rendering component's memory and sharing layer: heaps, the global object
// with its recursive lock and stamp counter, counted objects and their handles.
//
// Everything the display list keeps on the heap comes from `ZP_AllocateMemory`,
// and every object it shares with the rendering side is a `ZR_Counted` whose
// count changes only under the global lock.
#pragma once

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <utility>

// ---------------------------------------------------------------------------
// Heaps
// ---------------------------------------------------------------------------

// A pool of memory blocks. Blocks up to `kZephalSmallLimit` bytes are carved from
// 64 KiB chunks by size class (8-byte steps) and carry no header, so a 40-byte
// record costs 40 bytes; larger blocks come from the C library with a 32-byte
// header. `ZP_ReleaseMemory` finds the heap of a block by itself: a small block by
// the header of its chunk, a large one by its own header.
//
// A heap is thread-safe (a short spin lock per call) unless it was made with
// `kZephalNoSerialize`. Blocks are aligned to 8 bytes, and to 16 bytes when
// their size is a multiple of 16.
struct ZephalHeap;

// Flags of `ZP_CreateHeap`.
enum ZephalHeapFlags : unsigned {
  // The heap takes no lock: the caller makes sure that one thread at a time
  // allocates from it and releases to it, as the owner of a display list does,
  // which uses its list from one thread at a time anyway. Saves the atomic
  // exchange that is a fifth of the cost of adding a dot to a list.
  kZephalNoSerialize = 1,
};

// What a heap holds right now; tests use it to prove that nothing leaks.
struct ZephalHeapStatistics {
  std::size_t live_blocks;  // blocks allocated and not yet released
  std::size_t live_bytes;   // bytes they hold; a small block counts its size class
};

inline constexpr std::size_t kZephalSmallLimit = 512;

// Makes a new, empty heap; `flags` is 0 or `kZephalNoSerialize`.
ZephalHeap* ZP_CreateHeap(unsigned flags = 0);
// Destroys a heap and every block still allocated from it; null is ignored.
// Passing the default heap is refused silently.
void ZP_DestroyHeap(ZephalHeap* heap);
// Allocates `size` bytes from `heap`; null means the default heap. A size of 0
// gives a valid, distinct block. Gives null when the system is out of memory or
// the size cannot be given at all (a size near SIZE_MAX, whose header would wrap).
void* ZP_AllocateMemory(std::size_t size, ZephalHeap* heap = nullptr);
// Returns a block to the heap it came from; null is harmless.
void ZP_ReleaseMemory(void* block);
// Live blocks and bytes of `heap` (null: the default heap).
ZephalHeapStatistics ZP_HeapStatistics(const ZephalHeap* heap = nullptr);
// Gives the memory of destroyed heaps back to the system. Destroyed heaps leave
// their memory to the next heap, already committed, so a process keeps the
// largest footprint it ever had until it calls this, after closing a large
// drawing, say. The next heaps fault the pages in again.
void ZP_ReleaseUnusedMemory();

// ---------------------------------------------------------------------------
// The global object
// ---------------------------------------------------------------------------

// `ZEPHAL`, the one global object of the rendering component. Its recursive lock
// guards reference counts and the deletion a count of zero sets off; the stamp
// counter hands out change stamps for copy-on-write bodies. The stamp counter is
// an atomic rather than a second critical section: it gives the same guarantee
// (every stamp distinct and increasing, across threads) without a lock per stamp.
// Constant-initialised: nothing runs when the library is loaded.
class Zephal_Global {
 public:
  constexpr Zephal_Global() = default;
  Zephal_Global(const Zephal_Global&) = delete;
  Zephal_Global& operator=(const Zephal_Global&) = delete;

  // The recursive lock; the thread that holds it may take it again.
  void lock() { pthread_mutex_lock(&lock_); }
  // Releases the lock once; the last release lets other threads take it.
  void unlock() { pthread_mutex_unlock(&lock_); }

  // A new change stamp, never 0.
  std::uint32_t next_stamp() { return stamp_.fetch_add(1, std::memory_order_relaxed) + 1; }

 private:
  pthread_mutex_t lock_ = PTHREAD_RECURSIVE_MUTEX_INITIALIZER_NP;
  std::atomic<std::uint32_t> stamp_{0};
};

extern constinit Zephal_Global ZEPHAL;

// Holds the global lock for a scope.
class ZR_Global_Lock {
 public:
  ZR_Global_Lock() { ZEPHAL.lock(); }
  ~ZR_Global_Lock() { ZEPHAL.unlock(); }
  ZR_Global_Lock(const ZR_Global_Lock&) = delete;
  ZR_Global_Lock& operator=(const ZR_Global_Lock&) = delete;
};

// ---------------------------------------------------------------------------
// Counted objects and handles
// ---------------------------------------------------------------------------

// Base of every object shared by reference count. The first virtual operation is
// the deleting destructor. A new object has a count of 0: the first handle or
// `add_ref` makes it 1. Memory comes from the default heap.
class ZR_Counted {
 public:
  virtual ~ZR_Counted() = default;

  // References held; changed only under the global lock.
  std::int32_t reference_count() const { return count_.load(std::memory_order_relaxed); }

  // `noexcept`: out of memory gives null (the library throws nothing), and only a
  // non-throwing allocation function makes a `new` expression test for null
  // instead of running the constructor on it; the expression then gives null.
  static void* operator new(std::size_t size) noexcept { return ZP_AllocateMemory(size, nullptr); }
  // Gives the block back to the heap it came from.
  static void operator delete(void* block) { ZP_ReleaseMemory(block); }

 protected:
  ZR_Counted() = default;
  // A copy starts unshared.
  ZR_Counted(const ZR_Counted&) {}
  ZR_Counted& operator=(const ZR_Counted&) { return *this; }

 private:
  friend void add_ref(ZR_Counted* object);
  friend void release(ZR_Counted* object);
  std::atomic<std::int32_t> count_{0};
};

// Adds one reference, under the global lock. `object` must not be null.
void add_ref(ZR_Counted* object);
// Drops one reference, under the global lock; at zero the object is deleted with
// the lock held. `object` must not be null.
void release(ZR_Counted* object);

// A body that is copied on write: it carries a change stamp and can clone itself.
class ZR_Body : public ZR_Counted {
 public:
  // Stamp of the last change made in place, from ZEPHAL's counter; 0 if never.
  std::uint32_t stamp = 0;
  // An unshared copy of this body, count 0.
  virtual ZR_Body* clone() const = 0;
};

// One pointer to a counted body, possibly null. Copying adds a reference,
// destroying or clearing drops it, assigning references the new body before it
// releases the old one.
template <class T>
class ZR_Handle {
 public:
  // A null handle.
  ZR_Handle() = default;
  // Takes a reference of its own on `body` (which may be null).
  explicit ZR_Handle(T* body) : body_(body) {
    if (body_) add_ref(body_);
  }
  // Shares the body of `o`, with a reference of its own.
  ZR_Handle(const ZR_Handle& o) : ZR_Handle(o.body_) {}
  // Takes over the reference of `o`, which becomes null.
  ZR_Handle(ZR_Handle&& o) noexcept : body_(std::exchange(o.body_, nullptr)) {}
  // Drops the reference held.
  ~ZR_Handle() { clear(); }
  // Shares the body of `o`; the old body is released after the new one is referenced.
  ZR_Handle& operator=(const ZR_Handle& o) {
    reset(o.body_);
    return *this;
  }
  // Takes over the reference of `o`, which becomes null; the old body is released.
  ZR_Handle& operator=(ZR_Handle&& o) noexcept {
    if (this != &o) {
      clear();
      body_ = std::exchange(o.body_, nullptr);
    }
    return *this;
  }

  // Points at `body`, referencing it before the old body is released.
  void reset(T* body) {
    if (body) add_ref(body);
    T* old = std::exchange(body_, body);
    if (old) release(old);
  }
  // Drops the reference held; the handle becomes null.
  void clear() {
    if (T* old = std::exchange(body_, nullptr)) release(old);
  }

  // The body, or null.
  T* get() const { return body_; }
  // The body's members; the handle must not be null.
  T* operator->() const { return body_; }
  // The body; the handle must not be null.
  T& operator*() const { return *body_; }
  // Whether the handle holds a body.
  explicit operator bool() const { return body_ != nullptr; }

 protected:
  T* body_ = nullptr;
};

// The copy-on-write choke point. Before a body is changed: if the change may not
// be made in place and the body is shared, the handle takes a clone of it;
// otherwise the body is stamped. Returns the body to write to.
template <class T>
T* make_mutable(ZR_Handle<T>& handle, bool in_place) {
  T* body = handle.get();
  if (!in_place && body->reference_count() > 1) {
    body = static_cast<T*>(body->clone());
    handle.reset(body);
  }
  body->stamp = ZEPHAL.next_stamp();
  return body;
}
