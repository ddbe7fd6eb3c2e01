// The index beside a wide group: the table of slots, indexing and unlinking
// children, the loose grid and its queries.
#include "displaylist/group_index.h"

#include <algorithm>
#include <atomic>
#include <bit>
#include <cstdlib>
#include <cstring>
#include <new>
#include <string>

#include "displaylist/group_p.h"
#include "foundation/assert.h"
#include "foundation/zephal.h"

namespace DL {

static_assert(sizeof(Group*) >= sizeof(int) + sizeof(std::uint32_t),
              "the index slot lives beside the level in the group's one-word field");

// ---------------------------------------------------------------------------
// Settings
// ---------------------------------------------------------------------------

namespace {
constinit std::atomic<int> g_threshold{32};
constinit std::atomic<bool> g_enabled{true};
}  // namespace

void GroupIndexSettings::set_threshold(int children) {
  g_threshold.store(children <= 0 ? 0 : children < 2 ? 2 : children, std::memory_order_relaxed);
}
int GroupIndexSettings::threshold() {
  return g_threshold.load(std::memory_order_relaxed);
}
void GroupIndexSettings::set_enabled(bool enabled) {
  g_enabled.store(enabled, std::memory_order_relaxed);
}
bool GroupIndexSettings::enabled() {
  return g_enabled.load(std::memory_order_relaxed);
}

// ---------------------------------------------------------------------------
// The table of slots
// ---------------------------------------------------------------------------
//
// Slot s lives in segment s >> 12. Segments are allocated once and never move
// or go, so a slot is read without the lock; a slot is taken and given back
// under the global lock. A free slot holds (next free << 1) | 1.

namespace {

constexpr std::uint32_t kSegmentBits = 12;
constexpr std::uint32_t kSegmentSize = 1u << kSegmentBits;
constexpr std::uint32_t kSegments = 4096;

using SlotWord = std::atomic<std::uintptr_t>;
constinit std::atomic<SlotWord*> g_segments[kSegments] = {};
constinit std::uint32_t g_free_slot = 0;    // under the lock; 0: none
constinit std::uint32_t g_unused_slot = 1;  // slots below this have been handed out once

SlotWord* slot_word(std::uint32_t slot) {
  const std::uint32_t segment = slot >> kSegmentBits;
  if (segment >= kSegments) return nullptr;
  SlotWord* words = g_segments[segment].load(std::memory_order_acquire);
  return words ? &words[slot & (kSegmentSize - 1)] : nullptr;
}

// A free slot for `index`, or 0 when the table is full (the group then goes
// without an index).
std::uint32_t take_slot(GroupIndex* index) {
  ZR_Global_Lock lock;
  std::uint32_t slot = g_free_slot;
  if (slot) {
    g_free_slot = static_cast<std::uint32_t>(slot_word(slot)->load(std::memory_order_relaxed) >> 1);
  } else {
    slot = g_unused_slot;
    const std::uint32_t segment = slot >> kSegmentBits;
    if (segment >= kSegments) return 0;
    if (!g_segments[segment].load(std::memory_order_relaxed)) {
      // Never released: reachable from this table until the process ends.
      void* words = std::calloc(kSegmentSize, sizeof(SlotWord));
      if (!words) return 0;
      g_segments[segment].store(static_cast<SlotWord*>(words), std::memory_order_release);
    }
    g_unused_slot = slot + 1;
  }
  slot_word(slot)->store(reinterpret_cast<std::uintptr_t>(index), std::memory_order_release);
  return slot;
}

void give_back_slot(std::uint32_t slot) {
  ZR_Global_Lock lock;
  slot_word(slot)->store((static_cast<std::uintptr_t>(g_free_slot) << 1) | 1u,
                         std::memory_order_release);
  g_free_slot = slot;
}

bool proper(const WorldBounds& b) {
  return b.min.x <= b.max.x && b.min.y <= b.max.y;
}

int width(std::uint64_t v) {
  return static_cast<int>(std::bit_width(v));
}

// Offsets from the grid's origin, as unsigned 64-bit values (a grid may span
// the whole 32-bit plane).
std::uint64_t offset(WorldCoord v, WorldCoord origin) {
  return static_cast<std::uint64_t>(static_cast<std::int64_t>(v) - origin);
}

}  // namespace

// ---------------------------------------------------------------------------
// Found from the group
// ---------------------------------------------------------------------------

GroupIndex* GroupIndex::of(const Group* g) {
  GroupIndex* index = lookup(g);
  // A visit of this index may be running (a walk that re-enters the list):
  // its arrays stay as they are, and the children it has not indexed are
  // walked along the chain, as they always are.
  if (index && index->seen_last_ != g->last_child && !index->busy_) {
    index->catch_up(g);
    if (index->failed_) {
      // Out of memory: the group goes without an index. The slot is the
      // index's bookkeeping beside the group, not part of what it holds.
      drop(const_cast<Group*>(g));
      return nullptr;
    }
  }
  return index;
}

GroupIndex* GroupIndex::lookup(const Group* g) {
  const std::uint32_t slot = slot_of(g);
  if (slot == 0) return nullptr;
  SlotWord* word = slot_word(slot);
  if (!word) return nullptr;
  const std::uintptr_t value = word->load(std::memory_order_acquire);
  if (value == 0 || (value & 1u)) return nullptr;
  GroupIndex* index = reinterpret_cast<GroupIndex*>(value);
  // A slot read from a record that never had one (a word set by hand) names
  // some other group's index, or none.
  return index->owner_ == g ? index : nullptr;
}

void* GroupIndex::allocate(std::size_t bytes) const {
  return ZP_AllocateMemory(bytes, heap_);
}

// Grows `array` to hold `wanted` elements (at least doubling), keeping the
// first `used`. On a failed allocation the array stays as it was.
template <class T>
void GroupIndex::grow(T*& array, std::uint32_t used, std::uint32_t& capacity,
                      std::uint32_t wanted) {
  if (wanted <= capacity) return;
  std::uint64_t fresh_capacity = std::max<std::uint64_t>(16, std::uint64_t{capacity} * 2);
  while (fresh_capacity < wanted) fresh_capacity *= 2;
  if (fresh_capacity > 0xFFFFFFFFu) fresh_capacity = 0xFFFFFFFFu;
  T* fresh = static_cast<T*>(allocate(sizeof(T) * fresh_capacity));
  if (!fresh) return;
  used = std::min(used, capacity);  // entries beyond the old capacity were never written
  if (used) std::memcpy(static_cast<void*>(fresh), array, sizeof(T) * used);
  if (array) ZP_ReleaseMemory(array);
  array = fresh;
  capacity = static_cast<std::uint32_t>(fresh_capacity);
}

GroupIndex* GroupIndex::create(Group* g, ZephalHeap* heap) {
  void* block = ZP_AllocateMemory(sizeof(GroupIndex), heap);
  if (!block) return nullptr;
  GroupIndex* index = ::new (block) GroupIndex;
  index->owner_ = g;
  index->heap_ = heap;
  index->slot_ = take_slot(index);
  if (index->slot_ == 0) {
    index->~GroupIndex();
    ZP_ReleaseMemory(block);
    return nullptr;
  }
  g->set_index_slot(index->slot_);
  index->resync(g);
  if (index->failed_) {
    drop(g);
    return nullptr;
  }
  return index;
}

void GroupIndex::destroy() {
  auto release = [](void* p) {
    if (p) ZP_ReleaseMemory(p);
  };
  release(kids_);
  release(interior_);
  release(packed_);
  release(blocks_);

  for (int l = 0; l < kMaxLevels; ++l) {
    release(offsets_[l]);
    release(block_first_[l]);
    release(heads_[l]);
    release(recent_[l]);
  }

  release(outside_);
  release(scratch_);
  release(bits_);
  give_back_slot(slot_);
  this->~GroupIndex();
  ZP_ReleaseMemory(this);
}

void GroupIndex::drop(Group* g) {
  if (GroupIndex* index = lookup(g)) index->destroy();
  g->set_index_slot(0);
}

// Indexes every child of `g` but the last, from scratch: for a new index, and
// when the tail was changed by hand.
void GroupIndex::resync(const Group* g) {
  count_ = 0;
  dead_ = 0;
  interior_live_ = 0;
  built_ = 0;
  top_ = -1;
  outside_count_ = 0;
  for (int l = 0; l < kMaxLevels; ++l) {
    offsets_used_[l] = heads_used_[l] = false;
    recent_count_[l] = 0;
    reach_[l] = 0;
  }
  rest_ = nullptr;
  seen_last_ = g->last_group();
  for (Group* c = g->first_group(); c && c != g->last_child; c = c->sibling)
    if (!add_kid(c)) return;
  rest_ = g->last_group();
  rebuild();
}

// Indexes the children linked at the tail since the index last looked, all
// but the new last child: into the recent part, or by a rebuild when half as
// many children again have come (the recent part's chains cost a query more
// than the packed part; this keeps them to a third of the entries, where a
// rebuild at each doubling made a window cost twice as much). A chain that
// does not lead from the known tail to the last child was changed by hand:
// it is indexed anew.
void GroupIndex::catch_up(const Group* g) {
  Group* const last = g->last_group();
  Group* c = rest_ ? rest_ : seen_last_ ? seen_last_->sibling : g->first_group();
  const std::uint32_t first_new = count_;
  for (; c && c != last; c = c->sibling)
    if (!add_kid(c)) return;
  if (c != last) return resync(g);
  rest_ = last;
  seen_last_ = last;
  if (count_ == first_new) return;
  if (count_ >= built_ + built_ / 2 || dead_ > count_ / 2) return rebuild();
  for (std::uint32_t o = first_new; o < count_ && !failed_; ++o) place(o, kid(o)->bounds);
  if (outside_count_ > 32 + count_ / 8) rebuild();
}

// ---------------------------------------------------------------------------
// Told by the tree
// ---------------------------------------------------------------------------

void GroupIndex::child_linked(Group* g, ZephalHeap* heap) {
  // An index catches up with the children linked since it last looked when
  // it is next used (`of`): adding stays a link at the tail, and a list that
  // is loaded and then drawn builds its index once.
  if (slot_of(g)) return;
  // Not yet indexed: count the children, up to the threshold.
  const int threshold = GroupIndexSettings::threshold();
  if (threshold == 0) return;
  int n = 0;
  for (const Group* c = g->first_group(); c && n < threshold; c = c->sibling) ++n;
  if (n >= threshold) create(g, heap);
}

// Gives `c` the next ordinal; false (and `failed_`) when memory ran out.
bool GroupIndex::add_kid(Group* c) {
  if (count_ == capacity_) {
    std::uint32_t kid_capacity = capacity_;
    grow(kids_, count_, kid_capacity, count_ + 1);
    std::uint32_t words = (capacity_ + 63) / 64;
    grow(interior_, words, words, (kid_capacity + 63) / 64);
    if (kid_capacity == capacity_ || words < (kid_capacity + 63) / 64) {
      failed_ = true;
      return false;
    }
    capacity_ = kid_capacity;
  }
  const std::uint32_t o = count_++;
  if (o % 64 == 0) interior_[o / 64] = 0;
  kids_[o] = reinterpret_cast<std::uintptr_t>(c);
  if (!c->contains_drawables()) {
    interior_[o / 64] |= std::uint64_t{1} << (o % 64);
    ++interior_live_;
  }
  return true;
}

// A rectangle in grid offsets as four 16-bit values (x0, y0, x1, y1 from the
// low end), each rounded down to `box_shift_` bits: comparisons of rounded
// values never separate rectangles that meet.
std::uint64_t GroupIndex::box_of(std::uint64_t x0, std::uint64_t y0, std::uint64_t x1,
                                 std::uint64_t y1) const {
  const int s = box_shift_;
  return (x0 >> s) | ((y0 >> s) << 16) | ((x1 >> s) << 32) | ((y1 >> s) << 48);
}

// A packed rectangle (grid offsets) as four 8-bit values (x0, y0, x1, y1 from
// the low end): its offsets from the lower corner (ox, oy) of its bucket, of
// side 2^shift, rounded down to 2^(shift - 7). A packed rectangle's lower
// corner lies in its bucket and it is at most a bucket wide, so every offset
// is below twice the side: 256 steps. Comparisons of values rounded down the
// same way never separate rectangles that meet.
std::uint32_t GroupIndex::bucket_box(std::uint64_t x0, std::uint64_t y0, std::uint64_t x1,
                                     std::uint64_t y1, std::uint64_t ox, std::uint64_t oy,
                                     int shift) {
  const int unit = shift > 7 ? shift - 7 : 0;
  auto step = [&](std::uint64_t v, std::uint64_t o) {
    DL_ASSERT(v >= o && ((v - o) >> unit) < 256);
    return static_cast<std::uint32_t>((v - o) >> unit);
  };
  return step(x0, ox) | step(y0, oy) << 8 | step(x1, ox) << 16 | step(y1, oy) << 24;
}

// Makes `array` hold at least `n` elements, keeping nothing of what it held;
// the block stays from one rebuild to the next (fresh large blocks cost their
// page faults again each time), with a little room to spare when it must grow
// (rebuilds come as the children grow by half, so more room would mostly be
// memory held for nothing). False,
// and the array left as it was, when memory ran out.
template <class T>
bool GroupIndex::ensure(T*& array, std::size_t& capacity, std::size_t n) {
  if (n <= capacity) return true;
  const std::size_t wanted = n + n / 64;
  T* fresh = static_cast<T*>(allocate(sizeof(T) * wanted));
  if (!fresh) return false;
  if (array) ZP_ReleaseMemory(array);
  array = fresh;
  capacity = wanted;
  return true;
}

// The level and bucket of a rectangle being packed, with its level's offsets
// made ready when `prepare` (and its reach grown); false for a rectangle that
// stays outside.
bool GroupIndex::bucket_of(const WorldBounds& b, std::uint32_t& level, std::uint32_t& bucket,
                           bool prepare) {
  if (!proper(b)) return false;
  const std::uint64_t x0 = offset(b.min.x, origin_x_), y0 = offset(b.min.y, origin_y_);
  const std::uint64_t e = std::max(offset(b.max.x, b.min.x), offset(b.max.y, b.min.y));
  const int l = level_for(e);
  const int shift = shift0_ + l;
  const std::uint32_t dims = 1u << (top_ - l);
  if (!offsets_used_[l]) {
    if (!prepare) return false;
    const std::size_t n = std::size_t{dims} * dims + 1;
    if (!ensure(offsets_[l], offsets_capacity_[l], n)) return false;
    std::fill(offsets_[l], offsets_[l] + n, 0u);
    offsets_used_[l] = true;
  }
  reach_[l] = std::max(reach_[l], e);
  level = static_cast<std::uint32_t>(l);
  bucket = static_cast<std::uint32_t>((y0 >> shift) * dims + (x0 >> shift));
  return true;
}

// The buckets of level `l` that may hold a rectangle meeting [x0, x1] x
// [y0, y1] (grid offsets): a rectangle sits in the bucket of its lower corner
// and reaches at most `reach_` beyond it. Empty when bx0 > bx1 or by0 > by1.
GroupIndex::BucketRange GroupIndex::buckets_meeting(int l, std::uint64_t x0, std::uint64_t y0,
                                                    std::uint64_t x1, std::uint64_t y1) const {
  const int shift = shift0_ + l;
  const std::uint64_t dims = std::uint64_t{1} << (top_ - l);
  const std::uint64_t reach = reach_[l];
  return {dims, (x0 > reach ? x0 - reach : 0) >> shift, (y0 > reach ? y0 - reach : 0) >> shift,
          std::min(x1 >> shift, dims - 1), std::min(y1 >> shift, dims - 1)};
}

// The finest level whose buckets are at least `extent` wide.
int GroupIndex::level_for(std::uint64_t extent) const {
  if (extent <= (std::uint64_t{1} << shift0_)) return 0;
  return std::min(top_, width(extent - 1) - shift0_);
}

// Puts ordinal `o`, of rectangle `b`, into the recent part of the grid, or
// outside it.
void GroupIndex::place(std::uint32_t o, const WorldBounds& b) {
  auto to_outside = [&] {
    grow(outside_, outside_count_, outside_capacity_, outside_count_ + 1);
    if (outside_count_ < outside_capacity_)
      outside_[outside_count_++] = o;
    else
      failed_ = true;
  };
  if (top_ < 0 || !proper(b) || b.min.x < origin_x_ || b.min.y < origin_y_) return to_outside();
  const std::uint64_t x0 = offset(b.min.x, origin_x_), y0 = offset(b.min.y, origin_y_);
  const std::uint64_t x1 = offset(b.max.x, origin_x_), y1 = offset(b.max.y, origin_y_);
  const int grid_shift = shift0_ + top_;
  if ((x1 >> grid_shift) != 0 || (y1 >> grid_shift) != 0) return to_outside();
  const std::uint64_t extent = std::max(x1 - x0, y1 - y0);
  const int level = level_for(extent);
  const int shift = shift0_ + level;
  const std::uint32_t dims = 1u << (top_ - level);
  if (!heads_used_[level]) {
    if (!ensure(heads_[level], heads_capacity_[level], std::size_t{dims} * dims))
      return to_outside();
    heads_used_[level] = true;
    std::fill(heads_[level], heads_[level] + std::size_t{dims} * dims, kNone);
  }
  std::uint32_t* heads = heads_[level];
  std::uint32_t& n = recent_count_[level];
  grow(recent_[level], n, recent_capacity_[level], n + 1);
  if (n >= recent_capacity_[level]) return to_outside();
  const std::size_t bucket = (y0 >> shift) * dims + (x0 >> shift);
  DL_ASSERT(heads[bucket] == kNone || heads[bucket] < n);
  recent_[level][n] = {box_of(x0, y0, x1, y1), o, heads[bucket]};
  heads[bucket] = n++;
  reach_[level] = std::max(reach_[level], extent);
}

// Gives back the room of `kids_` and `interior_` beyond a sixty-fourth more
// than the children indexed: a catch-up from a few children to many grew them by
// doubling. Keeps them as they are when memory runs out.
void GroupIndex::fit_kids() {
  const std::uint32_t wanted = count_ + count_ / 64 + 64;
  if (capacity_ <= wanted + wanted / 16) return;
  const std::uint32_t words = (wanted + 63) / 64;
  auto* kids = static_cast<std::uintptr_t*>(allocate(sizeof(std::uintptr_t) * wanted));
  auto* interior = static_cast<std::uint64_t*>(allocate(sizeof(std::uint64_t) * words));
  if (!kids || !interior) {
    if (kids) ZP_ReleaseMemory(kids);
    if (interior) ZP_ReleaseMemory(interior);
    return;
  }
  if (count_) {
    std::memcpy(kids, kids_, sizeof(std::uintptr_t) * count_);
    std::memcpy(interior, interior_, sizeof(std::uint64_t) * ((count_ + 63) / 64));
  }
  ZP_ReleaseMemory(kids_);
  ZP_ReleaseMemory(interior_);
  kids_ = kids;
  interior_ = interior;
  capacity_ = wanted;
}

// Packs every live ordinal into the grid anew, over the extent of the live
// children, with the finest level sized for some eight to sixteen children a
// bucket (finer grids cost more in offsets and in cache misses while indexing
// than they save in queries: measured, four times the buckets saved nothing).
// Ordinals are renumbered when children were removed. Reads each child's
// rectangle three times, in ordinal order, which is mostly allocation order.
void GroupIndex::rebuild() {
  if (dead_) {
    std::uint32_t n = 0;
    for (std::uint32_t o = 0; o < count_; ++o)
      if (!(kids_[o] & 1u)) kids_[n++] = kids_[o];
    count_ = n;
    dead_ = 0;
    interior_live_ = 0;
    for (std::uint32_t w = 0; w < (count_ + 63) / 64; ++w) interior_[w] = 0;
    for (std::uint32_t o = 0; o < count_; ++o)
      if (!kid(o)->contains_drawables()) {
        interior_[o / 64] |= std::uint64_t{1} << (o % 64);
        ++interior_live_;
      }
  }
  fit_kids();
  for (int l = 0; l < kMaxLevels; ++l) {
    offsets_used_[l] = heads_used_[l] = blocks_used_[l] = false;
    recent_count_[l] = 0;
    reach_[l] = 0;
  }
  outside_count_ = 0;
  built_ = count_;
  top_ = -1;
  // The children's rectangles, read in ordinal order, which is mostly the
  // order they were allocated in; the record some children ahead is asked for.
  auto bounds_ahead = [&](std::uint32_t o) -> const WorldBounds& {
    if (o + 32 < count_) __builtin_prefetch(reinterpret_cast<const Group*>(kids_[o + 32]));
    return kid(o)->bounds;
  };
  // The counting sort below writes to counters and entries all over arrays
  // far larger than the caches (at ten million children, 4 MB of counters and
  // 75 MB of entries). Each pass finds a child's bucket 16 ordinals ahead, keeps
  // it in a ring and asks for its counter then; the placing pass asks for its
  // entry 8 ordinals ahead. Halves the first window at ten million children.
  struct Slot {
    std::uint32_t level, bucket;
    bool placed;  // false: the child stays outside
  };
  constexpr std::uint32_t kAhead = 16, kRing = 32;
  Slot ring[kRing];
  auto find_ahead = [&](std::uint32_t o, bool prepare) {
    if (o >= count_) return;
    Slot& s = ring[o % kRing];
    s.placed = bucket_of(bounds_ahead(o), s.level, s.bucket, prepare);
    if (s.placed) __builtin_prefetch(&offsets_[s.level][s.bucket], 1);
  };
  auto all_outside = [&] {
    top_ = -1;
    for (std::uint32_t o = 0; o < count_; ++o) place(o, kid(o)->bounds);
  };

  // The extent of the proper rectangles.
  WorldBounds extent = WorldBounds::empty();
  std::uint32_t boxes = 0;
  for (std::uint32_t o = 0; o < count_; ++o) {
    const WorldBounds& b = bounds_ahead(o);
    if (!proper(b)) continue;
    extent.merge(b);
    ++boxes;
  }
  if (boxes == 0) return all_outside();
  const std::uint64_t span =
      std::max(offset(extent.max.x, extent.min.x), offset(extent.max.y, extent.min.y)) + 1;
  const int grid_shift = width(span - 1);  // 2^grid_shift >= span, at most 32
  const int levels = std::min({std::max(0, width(boxes) / 2 - 2), grid_shift, 12});
  origin_x_ = extent.min.x;
  origin_y_ = extent.min.y;
  top_ = levels;
  shift0_ = grid_shift - levels;
  box_shift_ = std::max(0, grid_shift - 16);

  // First pass: the entries of each level and bucket are counted.
  std::uint32_t placed = 0;
  for (std::uint32_t o = 0; o < kAhead; ++o) find_ahead(o, true);
  for (std::uint32_t o = 0; o < count_; ++o) {
    find_ahead(o + kAhead, true);
    const Slot& s = ring[o % kRing];
    if (!s.placed) continue;
    offsets_[s.level][s.bucket + 1] += 1;
    ++placed;
  }
  if (!ensure(packed_, packed_capacity_, placed)) {
    for (int l = 0; l < kMaxLevels; ++l) {
      offsets_used_[l] = false;
      reach_[l] = 0;
    }
    return all_outside();
  }
  // Levels one after another in `packed_`: offsets become each bucket's start.
  std::uint32_t base = 0;
  for (int l = 0; l <= top_; ++l) {
    if (!offsets_used_[l]) continue;
    std::uint32_t* off = offsets_[l];
    const std::size_t buckets = std::size_t{1} << (2 * (top_ - l));
    off[0] = base;
    for (std::size_t i = 1; i <= buckets; ++i) off[i] += off[i - 1];
    base = off[buckets];
  }
  // Second pass, in ordinal order so that each bucket's ordinals increase: a
  // bucket's start serves as its write position, which ends at the next
  // bucket's start; the offsets then move back by one bucket.
  for (std::uint32_t o = 0; o < kAhead; ++o) find_ahead(o, false);
  for (std::uint32_t o = 0; o < count_; ++o) {
    find_ahead(o + kAhead, false);
    if (o + kAhead / 2 < count_) {
      const Slot& s = ring[(o + kAhead / 2) % kRing];
      if (s.placed) __builtin_prefetch(&packed_[offsets_[s.level][s.bucket]], 1);
    }
    const Slot& s = ring[o % kRing];
    if (!s.placed) {
      place(o, WorldBounds::empty());  // outside
      continue;
    }
    const std::uint32_t level = s.level, bucket = s.bucket;
    const WorldBounds& b = kid(o)->bounds;
    const std::uint32_t at = offsets_[level][bucket]++;
    const int shift = shift0_ + static_cast<int>(level);
    const std::uint32_t dims = 1u << (top_ - static_cast<int>(level));
    packed_[at] = {o, bucket_box(offset(b.min.x, origin_x_), offset(b.min.y, origin_y_),
                                 offset(b.max.x, origin_x_), offset(b.max.y, origin_y_),
                                 std::uint64_t{bucket % dims} << shift,
                                 std::uint64_t{bucket / dims} << shift, shift)};
  }
  base = 0;
  for (int l = 0; l <= top_; ++l) {
    if (!offsets_used_[l]) continue;
    std::uint32_t* off = offsets_[l];
    const std::size_t buckets = std::size_t{1} << (2 * (top_ - l));
    for (std::size_t i = buckets; i > 0; --i) off[i] = off[i - 1];
    off[0] = base;
    base = off[buckets];
  }
  make_blocks();
}

namespace {
// Bits 0-7 of `v` spread to the even bits 0-14.
std::uint32_t spread(std::uint32_t v) {
  v = (v | (v << 4)) & 0x0F0Fu;
  v = (v | (v << 2)) & 0x3333u;
  return (v | (v << 1)) & 0x5555u;
}
// The Morton code of a packed rectangle's centre (bucket units).
std::uint32_t centre_code(std::uint32_t box) {
  const std::uint32_t cx = ((box & 0xFFu) + ((box >> 16) & 0xFFu)) / 2;
  const std::uint32_t cy = (((box >> 8) & 0xFFu) + (box >> 24)) / 2;
  return spread(cx) | spread(cy) << 1;
}
// Whether a packed rectangle meets the query (x0, y0, x1, y1), all in the
// same bucket's units.
bool meets(std::uint32_t box, std::uint32_t x0, std::uint32_t y0, std::uint32_t x1,
           std::uint32_t y1) {
  return ((box & 0xFFu) <= x1) & (((box >> 16) & 0xFFu) >= x0) & (((box >> 8) & 0xFFu) <= y1) &
         ((box >> 24) >= y0);
}
}  // namespace

// Sorts the entries of crowded buckets along a Morton curve of their centres
// and gives them blocks (see `blocks_`). A level is crowded from 64 entries a
// bucket on average, a bucket from two blocks' worth. Measured at a million
// children in random order, where the coarse levels hold some 60,000 large
// children: a small window scans a tenth of the entries it did.
void GroupIndex::make_blocks() {
  std::uint32_t total = 0;
  for (int l = 0; l <= top_; ++l) {
    if (!offsets_used_[l]) continue;
    const std::uint32_t* off = offsets_[l];
    const std::size_t buckets = std::size_t{1} << (2 * (top_ - l));
    if (off[buckets] - off[0] < 64 * buckets) continue;
    if (!ensure(block_first_[l], block_first_capacity_[l], buckets + 1)) continue;
    std::uint32_t* first = block_first_[l];
    first[0] = total;
    for (std::size_t b = 0; b < buckets; ++b) {
      const std::uint32_t n = off[b + 1] - off[b];
      total += n >= 2 * kBlock ? (n + kBlock - 1) / kBlock : 0;
      first[b + 1] = total;
    }
    blocks_used_[l] = true;
  }
  if (total == 0) return;
  if (!ensure(blocks_, blocks_capacity_, total)) {
    for (int l = 0; l <= top_; ++l) blocks_used_[l] = false;
    return;
  }
  for (int l = 0; l <= top_; ++l) {
    if (!blocks_used_[l]) continue;
    const std::uint32_t* off = offsets_[l];
    const std::uint32_t* first = block_first_[l];
    const std::size_t buckets = std::size_t{1} << (2 * (top_ - l));
    for (std::size_t b = 0; b < buckets; ++b) {
      if (first[b + 1] == first[b]) continue;
      Packed* run = packed_ + off[b];
      Packed* const end = packed_ + off[b + 1];
      std::sort(run, end, [](const Packed& p, const Packed& q) {
        return centre_code(p.box) < centre_code(q.box);
      });
      for (std::uint32_t k = first[b]; k < first[b + 1]; ++k, run += kBlock) {
        std::uint32_t x0 = 255, y0 = 255, x1 = 0, y1 = 0;
        for (const Packed* e = run; e < end && e < run + kBlock; ++e) {
          x0 = std::min(x0, e->box & 0xFFu);
          y0 = std::min(y0, (e->box >> 8) & 0xFFu);
          x1 = std::max(x1, (e->box >> 16) & 0xFFu);
          y1 = std::max(y1, e->box >> 24);
        }
        blocks_[k] = x0 | y0 << 8 | x1 << 16 | y1 << 24;
      }
    }
  }
}

// Whether `c` is indexed, with `b` a rectangle inside the one the index holds
// for it (its bounds now, or what they were before they grew).
bool GroupIndex::find(const Group* c, const WorldBounds& b, std::uint32_t& ordinal) const {
  const std::uintptr_t want = reinterpret_cast<std::uintptr_t>(c);
  auto hit = [&](std::uint32_t o) {
    if (kids_[o] != want) return false;
    ordinal = o;
    return true;
  };
  for (std::uint32_t i = 0; i < outside_count_; ++i)
    if (hit(outside_[i])) return true;
  if (top_ >= 0 && proper(b) && b.max.x >= origin_x_ && b.max.y >= origin_y_) {
    const std::uint64_t x1 = offset(b.max.x, origin_x_), y1 = offset(b.max.y, origin_y_);
    const std::uint64_t x0 = b.min.x >= origin_x_ ? offset(b.min.x, origin_x_) : 0;
    const std::uint64_t y0 = b.min.y >= origin_y_ ? offset(b.min.y, origin_y_) : 0;
    for (int l = 0; l <= top_; ++l) {
      if (!offsets_used_[l] && !heads_used_[l]) continue;
      const BucketRange r = buckets_meeting(l, x0, y0, x1, y1);
      for (std::uint64_t by = r.by0; by <= r.by1; ++by)
        for (std::uint64_t bx = r.bx0; bx <= r.bx1; ++bx) {
          const std::size_t bucket = by * r.dims + bx;
          if (offsets_used_[l])
            for (std::uint32_t i = offsets_[l][bucket]; i < offsets_[l][bucket + 1]; ++i)
              if (hit(packed_[i].ordinal)) return true;
          if (heads_used_[l])
            if (const std::uint32_t* heads = heads_[l])
              for (std::uint32_t e = heads[bucket]; e != kNone; e = recent_[l][e].next)
                if (hit(recent_[l][e].ordinal)) return true;
        }
    }
  }
  // Not where its rectangle says (bounds changed by hand): search them all.
  for (std::uint32_t o = 0; o < count_; ++o)
    if (hit(o)) return true;
  return false;
}

// The live indexed child before ordinal `o`, or null; tombstones passed on
// the way are pointed further back (path compression), so a run of removals
// costs little more than its length.
Group* GroupIndex::live_before(std::uint32_t o) {
  std::uint32_t x = o;  // look at x - 1
  while (x > 0 && (kids_[x - 1] & 1u)) x = static_cast<std::uint32_t>(kids_[x - 1] >> 1);
  for (std::uint32_t y = o; y > 0 && (kids_[y - 1] & 1u);) {
    const std::uint32_t further = static_cast<std::uint32_t>(kids_[y - 1] >> 1);
    kids_[y - 1] = (std::uintptr_t{x} << 1) | 1u;
    y = further;
  }
  return x > 0 ? kid(x - 1) : nullptr;
}

bool GroupIndex::unlink(Group* g, Group* c) {
  for (Group* r = rest_; r; r = r->sibling)
    if (r == c) {
      Group* previous = live_before(count_);
      for (Group* p = rest_; p != c; p = p->sibling) previous = p;
      if (c == rest_) rest_ = c->sibling;
      unlink_after(g, c, previous);
      return true;
    }
  std::uint32_t o;
  if (!find(c, c->bounds, o)) return false;
  unlink_at(g, o);
  return true;
}

void GroupIndex::unlink_at(Group* g, std::uint32_t o) {
  Group* c = kid(o);
  Group* previous = live_before(o);
  kids_[o] = (std::uintptr_t{o} << 1) | 1u;
  ++dead_;
  if (interior_[o / 64] & (std::uint64_t{1} << (o % 64))) {
    interior_[o / 64] &= ~(std::uint64_t{1} << (o % 64));
    --interior_live_;
  }
  unlink_after(g, c, previous);
}

// Takes `c`, whose predecessor is `previous` (null: the first), out of the
// chain of `g`.
void GroupIndex::unlink_after(Group* g, Group* c, Group* previous) {
  group_detail::unlink_child(g, c, previous);
  seen_last_ = g->last_group();
}

void GroupIndex::child_grown(Group* g, Group* c, const WorldBounds& old_bounds) {
  GroupIndex* index = of(g);
  if (!index || c == index->rest_) return;  // not indexed
  std::uint32_t o;
  if (!index->find(c, old_bounds, o)) return;
  // The old place stays (a query drops the repeat); outside, it is found
  // whatever its rectangle.
  index->grow(index->outside_, index->outside_count_, index->outside_capacity_,
              index->outside_count_ + 1);
  if (index->outside_count_ < index->outside_capacity_)
    index->outside_[index->outside_count_++] = o;
  else
    drop(g);  // no memory for the note: the group goes without an index
}

// ---------------------------------------------------------------------------
// Queries
// ---------------------------------------------------------------------------

bool GroupIndex::window(const WorldBounds& inner, const WorldBounds& outer, WorldBounds& q) {
  if (!proper(outer)) return false;
  q = outer;
  // A proper child inside `inner` overlaps `inner`; an `inner` that is not a
  // proper box holds no proper child.
  if (proper(inner) && !inner.is_inside(outer)) q.merge(inner);
  return true;
}

bool GroupIndex::query(const WorldBounds& q, std::uint32_t*& out, std::uint32_t& out_capacity,
                       std::uint32_t& found) {
  std::uint32_t n = 0;
  bool complete = true;
  auto take = [&](std::uint32_t o) {
    if (n == out_capacity) {
      grow(out, n, out_capacity, n + 1);
      if (n == out_capacity) {
        complete = false;
        return;
      }
    }
    out[n++] = o;
  };
  // A query offset in the units of a bucket whose lower corner is at offset
  // `o`: below it 0, beyond the reach of its entries 255.
  auto in_bucket = [](std::uint64_t v, std::uint64_t o, int unit) {
    return v <= o ? 0u : static_cast<std::uint32_t>(std::min<std::uint64_t>((v - o) >> unit, 255));
  };
  // Room in `out` for `more` candidates beyond the `n` taken.
  auto room = [&](std::uint32_t more) {
    if (std::uint64_t{n} + more > out_capacity) {
      if (std::uint64_t{n} + more > 0xFFFFFFFFu) return complete = false;
      grow(out, n, out_capacity, n + more);
      if (n + more > out_capacity) return complete = false;
    }
    return true;
  };
  for (std::uint32_t i = 0; i < outside_count_; ++i) take(outside_[i]);
  if (top_ >= 0 && q.max.x >= origin_x_ && q.max.y >= origin_y_) {
    const std::uint64_t x1 = offset(q.max.x, origin_x_), y1 = offset(q.max.y, origin_y_);
    const std::uint64_t x0 = q.min.x >= origin_x_ ? offset(q.min.x, origin_x_) : 0;
    const std::uint64_t y0 = q.min.y >= origin_y_ ? offset(q.min.y, origin_y_) : 0;
    // The query in the boxes' units, cut to the grid: a box passes when it
    // overlaps it there, which it does whenever the rectangles overlap.
    const std::uint64_t grid_last = (std::uint64_t{1} << (shift0_ + top_)) - 1;
    const std::uint64_t qx0 = std::min(x0, grid_last) >> box_shift_;
    const std::uint64_t qy0 = std::min(y0, grid_last) >> box_shift_;
    const std::uint64_t qx1 = std::min(x1, grid_last) >> box_shift_;
    const std::uint64_t qy1 = std::min(y1, grid_last) >> box_shift_;
    auto passes = [&](std::uint64_t box) {
      return (box & 0xFFFFu) <= qx1 && ((box >> 32) & 0xFFFFu) >= qx0 &&
             ((box >> 16) & 0xFFFFu) <= qy1 && (box >> 48) >= qy0;
    };
    for (int l = 0; l <= top_; ++l) {
      if (!offsets_used_[l] && !heads_used_[l]) continue;
      const BucketRange r = buckets_meeting(l, x0, y0, x1, y1);
      if (r.bx0 > r.bx1 || r.by0 > r.by1) continue;
      const std::uint64_t dims = r.dims, bx0 = r.bx0, by0 = r.by0, bx1 = r.bx1, by1 = r.by1;
      if (const std::uint32_t* off = offsets_used_[l] ? offsets_[l] : nullptr) {
        // Each bucket's entries are one run, filtered in the bucket's own
        // units: each entry is written, and kept when it passes, without a
        // branch to mispredict.
        const int shift = shift0_ + l;
        const int unit = shift > 7 ? shift - 7 : 0;
        for (std::uint64_t by = by0; by <= by1 && complete; ++by) {
          const std::uint64_t oy = by << shift;
          const std::uint32_t uy0 = in_bucket(y0, oy, unit), uy1 = in_bucket(y1, oy, unit);
          for (std::uint64_t bx = bx0; bx <= bx1; ++bx) {
            const std::uint32_t begin = off[by * dims + bx], end = off[by * dims + bx + 1];
            if (begin == end) continue;
            if (!room(end - begin)) break;
            const std::uint64_t ox = bx << shift;
            const std::uint32_t ux0 = in_bucket(x0, ox, unit), ux1 = in_bucket(x1, ox, unit);
            std::uint32_t* const to = out;
            const Packed* const entries = packed_;
            std::uint32_t kept = n;
            auto scan = [&](std::uint32_t from, std::uint32_t to_end) {
              for (std::uint32_t i = from; i < to_end; ++i) {
                to[kept] = entries[i].ordinal;
                kept += meets(entries[i].box, ux0, uy0, ux1, uy1);
              }
            };
            const std::uint32_t bucket = static_cast<std::uint32_t>(by * dims + bx);
            if (blocks_used_[l] && block_first_[l][bucket + 1] > block_first_[l][bucket]) {
              const std::uint32_t k0 = block_first_[l][bucket], k1 = block_first_[l][bucket + 1];
              for (std::uint32_t k = k0; k < k1; ++k)
                if (meets(blocks_[k], ux0, uy0, ux1, uy1)) {
                  const std::uint32_t from = begin + (k - k0) * kBlock;
                  scan(from, std::min(from + kBlock, end));
                }
            } else {
              scan(begin, end);
            }
            n = kept;
          }
        }
      }
      if (const std::uint32_t* heads = heads_used_[l] ? heads_[l] : nullptr) {
        const Recent* recent = recent_[l];
        if ((by1 - by0 + 1) * (bx1 - bx0 + 1) * 8 > dims * dims) {
          // Much of the level: one pass over its entries beats the chains.
          for (std::uint32_t e = 0; e < recent_count_[l]; ++e)
            if (passes(recent[e].box)) take(recent[e].ordinal);
        } else {
          for (std::uint64_t by = by0; by <= by1; ++by)
            for (std::uint64_t bx = bx0; bx <= bx1; ++bx)
              for (std::uint32_t e = heads[by * dims + bx]; e != kNone; e = recent[e].next)
                if (passes(recent[e].box)) take(recent[e].ordinal);
        }
      }
    }
  }
  if (!complete) return false;
  // List order, each once: a bit a child, and a bit for each word of those
  // that has any set, so that only the words touched are read and cleared
  // again (the bitmap is all clear between queries). Falls back to a sort
  // when there is no memory for the bitmap.
  std::uint32_t kept = 0;
  const std::uint32_t words = (count_ + 63) / 64, summary = (words + 63) / 64;
  if (bits_capacity_ < std::size_t{words} + summary) {
    std::size_t capacity = bits_capacity_;
    if (ensure(bits_, capacity, std::size_t{words} + summary)) {
      std::fill(bits_, bits_ + capacity, std::uint64_t{0});
      bits_capacity_ = capacity;
    }
  }
  if (bits_capacity_ >= std::size_t{words} + summary) {
    std::uint64_t* const bits = bits_;
    std::uint64_t* const touched = bits_ + words;
    for (std::uint32_t i = 0; i < n; ++i) {
      const std::uint32_t o = out[i], w = o / 64;
      DL_ASSERT(o < count_);
      touched[w / 64] |= std::uint64_t{1} << (w % 64);
      bits[w] |= std::uint64_t{1} << (o % 64);
    }
    for (std::uint32_t t = 0; t < summary; ++t) {
      for (std::uint64_t s = touched[t]; s; s &= s - 1) {
        const std::uint32_t w = t * 64 + static_cast<std::uint32_t>(std::countr_zero(s));
        for (std::uint64_t b = bits[w]; b; b &= b - 1)
          out[kept++] = w * 64 + static_cast<std::uint32_t>(std::countr_zero(b));
        bits[w] = 0;
      }
      touched[t] = 0;
    }
    found = kept;
    return true;
  }
  std::sort(out, out + n);
  std::uint32_t last = kNone;
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::uint32_t o = out[i];
    if (o == last) continue;
    out[kept++] = last = o;
  }
  found = kept;
  return true;
}

const std::uint32_t* GroupIndex::candidates(const WorldBounds& q, std::uint32_t& found) {
  if (busy_) return nullptr;
  return query(q, scratch_, scratch_capacity_, found) ? scratch_ : nullptr;
}

std::uint32_t GroupIndex::interior_between(std::uint32_t from, std::uint32_t to) const {
  std::uint32_t n = 0;
  while (from < to) {
    const std::uint32_t word = from / 64, bit = from % 64;
    const std::uint32_t take = std::min<std::uint32_t>(64 - bit, to - from);
    std::uint64_t w = interior_[word] >> bit;
    if (take < 64) w &= (std::uint64_t{1} << take) - 1;
    n += static_cast<std::uint32_t>(std::popcount(w));
    from += take;
  }
  return n;
}

// ---------------------------------------------------------------------------
// Checks
// ---------------------------------------------------------------------------

std::size_t GroupIndex::blocks_below(const Group* g) {
  if (g->contains_drawables()) return 0;
  std::size_t n = 0;
  if (const GroupIndex* index = g->index_slot() ? lookup(g) : nullptr) {
    auto held = [&](const void* p) { n += p != nullptr; };
    held(index);
    held(index->kids_);
    held(index->interior_);
    held(index->packed_);
    held(index->blocks_);
    held(index->outside_);
    held(index->scratch_);
    held(index->bits_);
    for (int l = 0; l < kMaxLevels; ++l) {
      held(index->offsets_[l]);
      held(index->block_first_[l]);
      held(index->heads_[l]);
      held(index->recent_[l]);
    }
  }
  for (const Group* c = g->first_group(); c; c = c->sibling) n += blocks_below(c);
  return n;
}

std::string GroupIndex::problems(const Group* g) {
  const std::uint32_t slot = slot_of(g);
  if (slot == 0 || g->contains_drawables()) return {};
  if (!lookup(g)) return "a group names an index slot that does not hold its index";
  GroupIndex* index = of(g);  // as a walk finds it: caught up
  if (!index) return {};      // dropped for want of memory
  std::string out;
  // The chain is the live ordinals in order, then the rest.
  const Group* c = g->first_group();
  for (std::uint32_t o = 0; o < index->count_; ++o) {
    const Group* k = index->kid(o);
    if (!k) continue;
    if (k != c)
      return out + "the index's children differ from the chain at ordinal " + std::to_string(o) +
             "\n";
    std::uint32_t found;
    if (!index->find(k, k->bounds, found) || found != o)
      out += "child " + std::to_string(o) + " is not found by its rectangle\n";
    const bool interior = index->interior_[o / 64] & (std::uint64_t{1} << (o % 64));
    if (interior != !k->contains_drawables())
      out += "child " + std::to_string(o) + " has the wrong interior bit\n";
    c = c->sibling;
  }
  if (c != index->rest_) out += "the children not indexed do not start where the index says\n";
  if (index->rest_ && index->rest_ != g->last_child)
    out += "more than the last child is left out of the index\n";
  if (index->seen_last_ != g->last_child) out += "the index does not know the last child\n";
  return out;
}

}  // namespace DL
