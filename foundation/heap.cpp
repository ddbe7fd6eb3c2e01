// Heaps: a size-class pool for the many small records of a large drawing, and a
// header path for everything larger.
//
// Small blocks live in 64 KiB chunks carved from one reserved range of address
// space. A chunk serves one heap and one size class; its header sits at the
// chunk's aligned start, so a block finds its heap by masking its address. A
// block is in the reserved range exactly when it is small, which is how release
// tells the two paths apart with one comparison. Freed small blocks go on a
// per-heap, per-class list threaded through their first word; chunks go back to
// a global pool only when their heap is destroyed.
//
// Address space is committed in 2 MiB steps and marked for transparent huge
// pages, so a drawing of ten million records takes a few hundred page faults
// instead of a hundred thousand. A destroyed heap's chunks stay committed in the
// pool for the next heap: on a virtual machine a page fault costs about a
// microsecond, more than building the record that touched it. The pool's free
// chunks go back to the system only on `ZP_ReleaseUnusedMemory`.
#include <sys/mman.h>

#include <atomic>
#include <cstdlib>
#include <cstring>
#include <mutex>
#include <new>

#include "foundation/zephal.h"

#if defined(__SANITIZE_ADDRESS__)
#define DL_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define DL_ASAN 1
#endif
#endif
#ifdef DL_ASAN
#include <sanitizer/asan_interface.h>
#define DL_POISON(p, n) ASAN_POISON_MEMORY_REGION((p), (n))
#define DL_UNPOISON(p, n) ASAN_UNPOISON_MEMORY_REGION((p), (n))
#else
#define DL_POISON(p, n) ((void)(p), (void)(n))
#define DL_UNPOISON(p, n) ((void)(p), (void)(n))
#endif

namespace {

constexpr std::size_t kChunkSize = std::size_t{64} << 10;
constexpr std::size_t kCommitStep = std::size_t{2} << 20;  // one huge page
constexpr std::size_t kPage = 4096;
constexpr std::size_t kClassStep = 8;
constexpr std::size_t kClassCount = kZephalSmallLimit / kClassStep + 1;  // class i: 8 * i bytes

struct Chunk;

// A short spin lock: heaps are mostly used by one thread at a time, and a call
// holds it for a few dozen instructions.
class SpinLock {
 public:
  void lock() {
    while (flag_.exchange(true, std::memory_order_acquire)) {
      while (flag_.load(std::memory_order_relaxed)) {
#if defined(__x86_64__) || defined(__i386__)
        __builtin_ia32_pause();
#endif
      }
    }
  }
  void unlock() {
    flag_.store(false, std::memory_order_release);
  }

 private:
  std::atomic<bool> flag_{false};
};

// Header of a block larger than kZephalSmallLimit, just before the block.
// Blocks from 1 MiB up are mapped on their own, in whole huge pages marked for
// transparent huge pages (a growing index or image would otherwise fault its
// memory in 4 KiB at a time, a few microseconds each on a virtual machine);
// smaller ones come from malloc.
struct LargeHeader {
  ZephalHeap* heap;
  std::size_t size;
  LargeHeader* prev;  // the heap's list of large blocks, for destruction
  LargeHeader* next;
};
static_assert(sizeof(LargeHeader) % 16 == 0);

constexpr std::size_t kMappedFrom = std::size_t{1} << 20;
constexpr std::size_t kHugePage = std::size_t{2} << 20;

// The bytes mapped for a block of `size` from kMappedFrom up, header included.
std::size_t mapped_bytes(std::size_t size) {
  return (sizeof(LargeHeader) + size + kHugePage - 1) & ~(kHugePage - 1);
}

LargeHeader* allocate_large(std::size_t size) {
  if (size < kMappedFrom) return static_cast<LargeHeader*>(std::malloc(sizeof(LargeHeader) + size));
  if (size > SIZE_MAX - sizeof(LargeHeader) - kHugePage) return nullptr;
  void* p = mmap(nullptr, mapped_bytes(size), PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS,
                 -1, 0);
  if (p == MAP_FAILED) return nullptr;
#ifdef MADV_HUGEPAGE
  madvise(p, mapped_bytes(size), MADV_HUGEPAGE);  // a hint: refused or ignored is fine
#endif
  return static_cast<LargeHeader*>(p);
}

void release_large(LargeHeader* header) {
  if (header->size < kMappedFrom)
    std::free(header);
  else
    munmap(header, mapped_bytes(header->size));
}

// Header at the start of every chunk.
struct Chunk {
  ZephalHeap* heap;   // owner
  Chunk* next;        // the owner's chunks, or the global pool's free chunks
  std::size_t block;  // block size of the class this chunk serves
};
constexpr std::size_t kChunkHeader = 64;
static_assert(sizeof(Chunk) <= kChunkHeader);

}  // namespace

// One size class of a heap: a free list and the unused tail of its newest chunk.
struct ZephalClass {
  void* free = nullptr;
  char* bump = nullptr;
  char* bump_end = nullptr;
};

struct ZephalHeap {
  SpinLock lock;
  ZephalClass classes[kClassCount];
  Chunk* chunks = nullptr;
  LargeHeader* large = nullptr;
  std::size_t live_blocks = 0;
  std::size_t live_bytes = 0;
  bool is_default = false;
  bool serialize = true;  // false for kZephalNoSerialize: `lock` is never taken
};

namespace {

// Holds a heap's lock for a scope, if the heap has one.
class HeapGuard {
 public:
  explicit HeapGuard(ZephalHeap& h) : heap_(h) {
    if (heap_.serialize) heap_.lock.lock();
  }
  ~HeapGuard() {
    if (heap_.serialize) heap_.lock.unlock();
  }
  HeapGuard(const HeapGuard&) = delete;
  HeapGuard& operator=(const HeapGuard&) = delete;

 private:
  ZephalHeap& heap_;
};

// The reserved range that all chunks come from. Reserved on first use, never
// released; pages are committed as chunks are handed out.
struct ChunkPool {
  std::once_flag once;
  char* base = nullptr;
  std::size_t reserved = 0;
  std::mutex lock;            // guards everything below
  std::size_t used = 0;       // bytes of the range handed out so far
  std::size_t committed = 0;  // bytes of the range readable and writable
  Chunk* free = nullptr;      // chunks of destroyed heaps, committed

  void reserve() {
    // Ask for a large range and settle for less where the system refuses. The
    // base is aligned to a huge page so that commit steps line up with them.
    for (std::size_t size = std::size_t{64} << 30; size >= (std::size_t{256} << 20); size /= 2) {
      void* p = mmap(nullptr, size + kCommitStep, PROT_NONE,
                     MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
      if (p == MAP_FAILED) continue;
      auto start = reinterpret_cast<std::uintptr_t>(p);
      std::uintptr_t aligned = (start + kCommitStep - 1) & ~(std::uintptr_t{kCommitStep} - 1);
      base = reinterpret_cast<char*>(aligned);
      reserved = size;
#ifdef MADV_HUGEPAGE
      madvise(base, reserved, MADV_HUGEPAGE);  // a hint: refused or ignored is fine
#endif
      return;
    }
  }

  bool contains(const void* p) const {
    auto a = reinterpret_cast<std::uintptr_t>(p);
    auto b = reinterpret_cast<std::uintptr_t>(base);
    return a - b < reserved;  // unsigned: below base wraps to a huge value
  }

  Chunk* take() {
    std::call_once(once, [this] { reserve(); });
    std::lock_guard<std::mutex> guard(lock);
    if (free) {
      Chunk* c = free;
      free = c->next;
      DL_UNPOISON(c, kChunkSize);  // the caller rewrites the header
      return c;
    }
    if (base == nullptr || used + kChunkSize > reserved) return nullptr;
    if (used + kChunkSize > committed) {
      if (mprotect(base + committed, kCommitStep, PROT_READ | PROT_WRITE) != 0) return nullptr;
      committed += kCommitStep;
    }
    char* p = base + used;
    used += kChunkSize;
    return reinterpret_cast<Chunk*>(p);
  }

  void give_back(Chunk* c) {
    std::lock_guard<std::mutex> guard(lock);
    c->next = free;
    free = c;
    DL_POISON(reinterpret_cast<char*>(c) + kChunkHeader, kChunkSize - kChunkHeader);
  }

  // Hands the pages of the free chunks back to the system. The first page of
  // each stays, since it holds the link of the free list.
  void release_unused() {
    std::lock_guard<std::mutex> guard(lock);
    for (Chunk* c = free; c; c = c->next)
      madvise(reinterpret_cast<char*>(c) + kPage, kChunkSize - kPage, MADV_DONTNEED);
  }
};

ChunkPool& pool() {
  static ChunkPool instance;
  return instance;
}

ZephalHeap& default_heap() {
  // Never destroyed: blocks may be released while the process exits.
  alignas(ZephalHeap) static unsigned char storage[sizeof(ZephalHeap)];
  static ZephalHeap* heap = [] {
    auto* h = new (storage) ZephalHeap;
    h->is_default = true;
    return h;
  }();
  return *heap;
}

void* allocate_small(ZephalHeap& heap, std::size_t size) {
  std::size_t index = size == 0 ? 1 : (size + kClassStep - 1) / kClassStep;
  std::size_t block = index * kClassStep;
  ZephalClass& c = heap.classes[index];
  void* p = c.free;
  if (p) {
    DL_UNPOISON(p, block);
    c.free = *static_cast<void**>(p);
  } else {
    if (static_cast<std::size_t>(c.bump_end - c.bump) < block) {  // null - null is 0
      Chunk* chunk = pool().take();
      if (!chunk) return nullptr;
      chunk->heap = &heap;
      chunk->block = block;
      chunk->next = heap.chunks;
      heap.chunks = chunk;
      c.bump = reinterpret_cast<char*>(chunk) + kChunkHeader;
      c.bump_end = reinterpret_cast<char*>(chunk) + kChunkSize;
    }
    p = c.bump;
    c.bump += block;
  }
  heap.live_blocks += 1;
  heap.live_bytes += block;
  return p;
}

}  // namespace

constinit Zephal_Global ZEPHAL;

ZephalHeap* ZP_CreateHeap(unsigned flags) {
  void* p = std::malloc(sizeof(ZephalHeap));
  if (!p) return nullptr;
  auto* h = new (p) ZephalHeap;
  h->serialize = (flags & kZephalNoSerialize) == 0;
  return h;
}

void ZP_DestroyHeap(ZephalHeap* heap) {
  if (!heap || heap->is_default) return;
  for (LargeHeader* h = heap->large; h;) {
    LargeHeader* next = h->next;
    release_large(h);
    h = next;
  }
  for (Chunk* c = heap->chunks; c;) {
    Chunk* next = c->next;
    pool().give_back(c);
    c = next;
  }
  heap->~ZephalHeap();
  std::free(heap);
}

void* ZP_AllocateMemory(std::size_t size, ZephalHeap* heap) {
  ZephalHeap& h = heap ? *heap : default_heap();
  if (size <= kZephalSmallLimit) {
    HeapGuard guard(h);
    if (void* p = allocate_small(h, size)) return p;
    // The reserved range is exhausted: fall through to the large path.
  }
  // A size within a header of SIZE_MAX would wrap to a tiny block: refuse it as
  // the C library refuses any size it cannot give.
  if (size > SIZE_MAX - sizeof(LargeHeader)) return nullptr;
  LargeHeader* header = allocate_large(size);
  if (!header) return nullptr;
  header->heap = &h;
  header->size = size;
  header->prev = nullptr;
  HeapGuard guard(h);
  header->next = h.large;
  if (h.large) h.large->prev = header;
  h.large = header;
  h.live_blocks += 1;
  h.live_bytes += size;
  return header + 1;
}

void ZP_ReleaseMemory(void* block) {
  if (!block) return;
  if (pool().contains(block)) {
    auto* chunk = reinterpret_cast<Chunk*>(reinterpret_cast<std::uintptr_t>(block) &
                                           ~(std::uintptr_t{kChunkSize} - 1));
    ZephalHeap& h = *chunk->heap;
    std::size_t size = chunk->block;
    ZephalClass& c = h.classes[size / kClassStep];
    HeapGuard guard(h);
    *static_cast<void**>(block) = c.free;
    c.free = block;
    DL_POISON(block, size);
    h.live_blocks -= 1;
    h.live_bytes -= size;
    return;
  }
  LargeHeader* header = static_cast<LargeHeader*>(block) - 1;
  ZephalHeap& h = *header->heap;
  {
    HeapGuard guard(h);
    if (header->prev)
      header->prev->next = header->next;
    else
      h.large = header->next;
    if (header->next) header->next->prev = header->prev;
    h.live_blocks -= 1;
    h.live_bytes -= header->size;
  }
  release_large(header);
}

ZephalHeapStatistics ZP_HeapStatistics(const ZephalHeap* heap) {
  ZephalHeap& h = heap ? const_cast<ZephalHeap&>(*heap) : default_heap();
  HeapGuard guard(h);
  return {h.live_blocks, h.live_bytes};
}

void ZP_ReleaseUnusedMemory() {
  pool().release_unused();
}
