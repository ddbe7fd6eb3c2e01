// An index beside a wide interior group: which of its children may lie in a
// rectangle, yielded in list order.
//
// The tree keeps painting order by construction, and it prunes whole groups by
// rectangle. When drawables arrive in no spatial order, nearly every one leaves
// its predecessor's cell and opens a group of its own under the nearest common
// ancestor, so one group ends up with hundreds of thousands of children, and a
// walk that prunes by rectangle tests them one by one. The index finds the
// children a rectangle may reach without testing the others, and hands them
// over in list order, so every walk stays what it was: the same groups entered
// in the same order, the same calls to drawables and renderer.
//
//   Group (wide)  children:  c0 -> c1 -> c2 -> ... -> c(n-2) -> c(n-1)
//                            \________ indexed, ordinals 0.. _______/   `rest`
//   kids:        [c0][c1][ x ][c3] ...        a removed child leaves a tombstone
//   grid:        level 0 buckets (finest)  ... level top (one bucket)
//                packed part: ordinals by level and bucket, rebuilt as it grows
//                recent part: per-bucket lists of ordinals added since
//   outside:     ordinals whose rectangle is not a proper box, or lies beyond
//                the grid, or grew after it was placed: always candidates
//
// Every child but the last is indexed: the last child may still be on the way
// down to the open group, where rectangles are cells that insertion relies on
// and closing replaces; every other child only ever shrinks (a close) or grows
// through `DisplayList::add_before`, which tells the index. The grid places a
// child by its bounds when it is placed, a loose grid (a child sits in the
// bucket of its lower corner, at the finest level whose buckets are at least as
// large as the child); a child that grows is noted outside until the next
// rebuild, which reads the bounds anew. A query returns a superset of the
// children that can pass the walk's own tests; the walk then tests each one as
// it always did.
//
// Linking a child costs the index nothing: the children linked since it last
// looked are indexed when it is next found for a walk or an edit (`of`), so a
// list that is loaded and then drawn builds its index once, at the first walk
// by rectangle (a first window of a million scattered points costs some 50 ns
// an item here, of ten million some 100: mostly the scattered writes of the
// counting sort, asked for some children ahead). Children indexed one by one go to
// the recent part; the packed part is rebuilt when half as many children again
// have come, so indexing is amortised constant time whatever the order of
// adds and walks.
//
// Cost, per indexed child: 8 bytes in `kids` (its slot), 8 in the packed part
// (its ordinal and an 8-bit-per-side copy of its rectangle in its bucket's
// units, so a query filters without touching the children), under half a byte
// for the buckets' offsets and the blocks of crowded buckets, and while the child is recent 16 for
// its entry and chain link; two bits for the interrupt walks and the ordering bitmap. The arrays
// keep a sixty-fourth more room. A query costs the buckets it covers and the entries in them, plus
// a sort of the candidates (a bitmap over the ordinals when they are many).
//
// A group gets an index when it reaches `GroupIndexSettings::threshold`
// children; the slot of its index is kept in the second half of the word that
// holds an interior group's level. Indexes are found through a process-wide
// table of slots, taken and given back under the global lock (`ZEPHAL`); every
// other operation is the list's thread's alone, as for the tree itself.
//
// The index follows the tree's own operations. A program that relinks groups
// by hand must not do so under an indexed group (more children than the
// threshold); a tail linked by hand is noticed and indexed anew.
#pragma once

#include <cstdint>
#include <string>

#include "displaylist/group.h"
#include "drawables/drawable.h"

namespace DL {

// Process-wide tuning, read on every use; the tests change it to compare the
// indexed walks with the plain ones on the same tree.
struct GroupIndexSettings {
  // Children at which a group gets an index (at least 2; 0: no new index).
  // Linking a child to a group without an index counts its children up to
  // this number. Measured: below about 32 children a walk over the chain is as
  // fast as a query.
  static void set_threshold(int children);
  static int threshold();  // see set_threshold
  // Whether walks use the indexes (they are still kept up to date when off).
  static void set_enabled(bool enabled);
  static bool enabled();  // see set_enabled
};

// The index of one wide group; see the file comment.
class GroupIndex {
 public:
  // -- Found from the group ---------------------------------------------------------
  // The index of interior group `g`, or null. Brings the index up to date
  // with the children linked since it last looked (or by hand).
  static GroupIndex* of(const Group* g);
  // The same, null also when the walks are not to use it.
  static GroupIndex* for_walk(const Group* g) {
    if (slot_of(g) == 0) return nullptr;
    return GroupIndexSettings::enabled() ? of(g) : nullptr;
  }

  // -- Told by the tree ---------------------------------------------------------------
  // `g`, an interior group, has just had a child linked at its tail. Gives `g`
  // an index when it has reached the threshold (memory from `heap`); an index
  // it has already indexes the new children when it is next found (`of`).
  static void child_linked(Group* g, ZephalHeap* heap);
  // Unlinks child `c` from `g` (which has this index) and keeps the index
  // right; false, changing nothing, when `c` is not a child of `g`. Does not
  // destroy `c`.
  bool unlink(Group* g, Group* c);
  // Child `c` of `g` has grown beyond `old_bounds`, which the index held.
  static void child_grown(Group* g, Group* c, const WorldBounds& old_bounds);
  // Frees the index of `g`, if any; `g` then has none.
  static void drop(Group* g);

  // -- Queries -------------------------------------------------------------------------
  // The rectangle a query must cover so that every child that is inside
  // `inner` or overlaps `outer` is a candidate; false when no such rectangle
  // helps (an `outer` that is not a proper box): then walk every child.
  static bool window(const WorldBounds& inner, const WorldBounds& outer, WorldBounds& q);
  // The ordinals of the indexed children whose rectangle may overlap the
  // proper box `q`, in increasing (list) order, each once, into `out` (which
  // grows as needed, from the index's heap; `out_capacity` is its size), and
  // their number into `found`. Removed children may be among them (`kid` is
  // null): telling them apart here would cost a cache miss each that the
  // caller pays anyway. False when memory ran out: then walk them all.
  bool query(const WorldBounds& q, std::uint32_t*& out, std::uint32_t& out_capacity,
             std::uint32_t& found);
  // `query` into the index's own array, valid until the next query: for a
  // caller that copies the ordinals out. Null when memory ran out or a visit
  // of this index is running.
  const std::uint32_t* candidates(const WorldBounds& q, std::uint32_t& found);
  // The child of an ordinal; null once it was removed.
  Group* kid(std::uint32_t ordinal) const {
    const std::uintptr_t k = kids_[ordinal];
    return (k & 1u) ? nullptr : reinterpret_cast<Group*>(k);
  }
  // Ordinals handed out: children indexed, removed ones included.
  std::uint32_t count() const { return count_; }
  // The first child that is not indexed (the chain goes on from it), or null.
  Group* rest() const { return rest_; }
  // Live interior children among ordinals [from, to): the polls an
  // interruptible walk makes on children it skips.
  std::uint32_t interior_between(std::uint32_t from, std::uint32_t to) const;

  // Calls `f` on each child of `g` (this index's group) that may pass `q`, in
  // list order: the candidates, then the children not indexed; `skip(n)` is
  // told, before each candidate and before the rest, how many interior
  // children were passed over since the last call (when `kCountSkips`). Stops
  // at the first false of either, which is then the result. Falls back to the
  // whole chain when the index is already in a query of its own.
  template <bool kCountSkips, class F, class S>
  bool visit(const Group* g, const WorldBounds& q, F f, S skip);

  // For the walks that change the tree: calls `f(ordinal, child)` on each live
  // candidate of `q` in list order while it answers true (`f` may unlink the
  // child it is given, and nothing else). 1: all were visited; 0: `f` stopped
  // the walk (the index is not touched after that, as the group may be gone);
  // -1: no candidates could be had (memory, or a visit running): walk the chain.
  // The children not indexed are the caller's: `rest()`.
  template <class F>
  int each_candidate(const WorldBounds& q, F f) {
    std::uint32_t n = 0;
    if (busy_ || !query(q, scratch_, scratch_capacity_, n)) return -1;
    for (std::uint32_t i = 0; i < n; ++i) {
      const std::uint32_t o = scratch_[i];
      if (Group* c = kid(o))
        if (!f(o, c)) return 0;
    }
    return 1;
  }
  // Unlinks the indexed child of ordinal `o` from `g`.
  void unlink_at(Group* g, std::uint32_t o);

  // The heap blocks that the indexes of `g` and of the groups below it hold:
  // for a check that accounts for every block of a list's heap.
  static std::size_t blocks_below(const Group* g);

  // A line for each way in which the index disagrees with its group; empty
  // when sound. For the tree checker.
  static std::string problems(const Group* g);

 private:
  GroupIndex() = default;
  static std::uint32_t slot_of(const Group* g) { return g->index_slot(); }
  static GroupIndex* lookup(const Group* g);
  static GroupIndex* create(Group* g, ZephalHeap* heap);
  void destroy();
  bool add_kid(Group* c);
  void place(std::uint32_t ordinal, const WorldBounds& b);
  int level_for(std::uint64_t extent) const;
  struct BucketRange {
    std::uint64_t dims, bx0, by0, bx1, by1;
  };
  BucketRange buckets_meeting(int level, std::uint64_t x0, std::uint64_t y0, std::uint64_t x1,
                              std::uint64_t y1) const;
  std::uint64_t box_of(std::uint64_t x0, std::uint64_t y0, std::uint64_t x1,
                       std::uint64_t y1) const;
  static std::uint32_t bucket_box(std::uint64_t x0, std::uint64_t y0, std::uint64_t x1,
                                  std::uint64_t y1, std::uint64_t ox, std::uint64_t oy, int shift);
  void rebuild();
  void fit_kids();
  void make_blocks();
  void resync(const Group* g);
  void catch_up(const Group* g);
  bool find(const Group* c, const WorldBounds& b, std::uint32_t& ordinal) const;
  Group* live_before(std::uint32_t ordinal);
  void unlink_after(Group* g, Group* c, Group* previous);
  void* allocate(std::size_t bytes) const;
  template <class T>
  bool ensure(T*& array, std::size_t& capacity, std::size_t n);
  bool bucket_of(const WorldBounds& b, std::uint32_t& level, std::uint32_t& bucket, bool prepare);
  // Grows `array` (from the index's heap) to hold `wanted` elements, at least
  // doubling, keeping the first `used`; on a failed allocation it stays.
  template <class T>
  void grow(T*& array, std::uint32_t used, std::uint32_t& capacity, std::uint32_t wanted);

  static constexpr std::uint32_t kNone = 0xFFFFFFFFu;
  static constexpr int kMaxLevels = 33;

  // -- The children ---------------------------------------------------------------------
  Group* owner_ = nullptr;      // the group indexed
  ZephalHeap* heap_ = nullptr;  // where the arrays come from
  std::uint32_t slot_ = 0;      // in the table of slots
  std::uint32_t count_ = 0;     // ordinals handed out
  std::uint32_t capacity_ = 0;  // of kids_ and interior_ (bits)
  std::uint32_t dead_ = 0;      // removed children among the ordinals
  std::uint32_t interior_live_ = 0;
  bool busy_ = false;    // a visit is using scratch_
  bool failed_ = false;  // memory ran out: the group is to go without an index
  // By ordinal: the child, or once removed (s << 1) | 1 where s - 1 is an
  // ordinal at or before which the live child before it lies (0: none).
  std::uintptr_t* kids_ = nullptr;
  std::uint64_t* interior_ = nullptr;  // a bit per ordinal: a live interior child
  Group* rest_ = nullptr;              // first child not indexed
  Group* seen_last_ = nullptr;         // the group's last child as the index knows it

  // -- The grid ----------------------------------------------------------------------------
  WorldCoord origin_x_ = 0, origin_y_ = 0;  // lower corner of the grid
  int shift0_ = 0;                          // log2 of a finest bucket's side
  int top_ = -1;                            // levels 0..top_; -1: no grid yet
  std::uint32_t built_ = 0;                 // ordinals below this are packed or outside
  int box_shift_ = 0;                       // grid offsets >> this fit 16 bits
  // An entry of the packed part: a child and its rectangle in its bucket's
  // units (see `bucket_box`), side by side for the scan of a query.
  struct Packed {
    std::uint32_t ordinal;
    std::uint32_t box;
  };
  Packed* packed_ = nullptr;  // by level, bucket, ordinal
  // The crowded buckets of a level (the coarse levels, where children are
  // large and many share a bucket) have their entries sorted along a Morton
  // curve of their centres and cut into blocks of `kBlock`, each with the
  // union of its entries' rectangles (bucket units, as `Packed::box`): a query
  // tests a block before its entries. Per level: the first block of each
  // bucket, dims^2 + 1 offsets into `blocks_` (a bucket with none is scanned
  // whole); not in use for a level without crowded buckets.
  static constexpr std::uint32_t kBlock = 16;
  std::uint32_t* block_first_[kMaxLevels] = {};
  std::size_t block_first_capacity_[kMaxLevels] = {};
  bool blocks_used_[kMaxLevels] = {};
  std::uint32_t* blocks_ = nullptr;  // the blocks' rectangles
  std::size_t blocks_capacity_ = 0;
  std::uint32_t* offsets_[kMaxLevels] = {};  // per level: dims^2 + 1 offsets into packed_
  // The recent part, per level: the entries placed since the last rebuild in
  // the order placed, and for each bucket the last of its entries (kNone:
  // none), each entry naming the one before it in its bucket. A query scans a
  // level whole when it covers much of it, else follows the buckets' chains.
  struct Recent {
    std::uint64_t box;  // see box_of
    std::uint32_t ordinal;
    std::uint32_t next;  // the bucket's entry before this one, kNone at the end
  };
  Recent* recent_[kMaxLevels] = {};
  std::uint32_t recent_count_[kMaxLevels] = {};
  std::uint32_t recent_capacity_[kMaxLevels] = {};
  std::uint32_t* heads_[kMaxLevels] = {};
  std::uint64_t reach_[kMaxLevels] = {};  // per level: largest extent placed there
  std::uint32_t* outside_ = nullptr;
  std::uint32_t outside_count_ = 0, outside_capacity_ = 0;
  std::uint32_t* scratch_ = nullptr;  // candidates of the running visit
  std::uint32_t scratch_capacity_ = 0;
  // A bit per ordinal, then a bit per word of those, to put candidates in
  // order; all clear between queries.
  std::uint64_t* bits_ = nullptr;
  std::size_t bits_capacity_ = 0;
  // The arrays above stay allocated from one rebuild to the next (see
  // `ensure`): their capacities, and whether a level's are in use now.
  std::size_t packed_capacity_ = 0;
  std::size_t offsets_capacity_[kMaxLevels] = {};
  std::size_t heads_capacity_[kMaxLevels] = {};
  bool offsets_used_[kMaxLevels] = {};
  bool heads_used_[kMaxLevels] = {};
};

template <bool kCountSkips, class F, class S>
bool GroupIndex::visit(const Group* g, const WorldBounds& q, F f, S skip) {
  if (busy_) {
    for (const Group* c = g->first_group(); c; c = c->sibling)
      if (!f(c)) return false;
    return true;
  }
  std::uint32_t n = 0;
  if (!query(q, scratch_, scratch_capacity_, n)) {
    for (const Group* c = g->first_group(); c; c = c->sibling)
      if (!f(c)) return false;
    return true;
  }
  busy_ = true;
  // The scratch array stays with the index; the children visited may be
  // indexed themselves, but never by this index again during this visit.
  const std::uint32_t* ords = scratch_;
  std::uint32_t from = 0;
  bool go_on = true;
  for (std::uint32_t i = 0; i < n && go_on; ++i) {
    // The children lie anywhere in memory: ask for the slot of a child some
    // candidates ahead, then for its record, then for its first child.
    if (i + 24 < n) __builtin_prefetch(&kids_[ords[i + 24]]);
    if (i + 16 < n) __builtin_prefetch(reinterpret_cast<const void*>(kids_[ords[i + 16]]));
    if (i + 8 < n) {
      const std::uintptr_t k = kids_[ords[i + 8]];
      if (!(k & 1u)) {
        // Records made one after another lie side by side, so a small
        // group's next child is often on the following line: ask for it now
        // rather than when the first child has come (7 to 9% a drawable).
        const char* first =
            reinterpret_cast<const char*>(reinterpret_cast<const Group*>(k)->first_child);
        if (first) {
          __builtin_prefetch(first);
          __builtin_prefetch(first + 64);
        }
      }
    }
    if (i + 4 < n) {
      // A small group's second child (or drawable): its first has come by now.
      const std::uintptr_t k = kids_[ords[i + 4]];
      const Group* c = reinterpret_cast<const Group*>(k);
      if (!(k & 1u) && c->first_child)
        __builtin_prefetch(c->contains_drawables()
                               ? static_cast<const void*>(c->first_drawable()->sibling)
                               : static_cast<const void*>(c->first_group()->sibling));
    }
    if (i + 2 < n) {
      // What a bottom group's first drawable reads outside its record (a
      // point list's array): the third miss of a line, else met unprepared.
      const std::uintptr_t k = kids_[ords[i + 2]];
      const Group* c = reinterpret_cast<const Group*>(k);
      if (!(k & 1u) && c->contains_drawables() && c->first_child) {
        const Drawable* d = c->first_drawable();
        if (d->table->draw_data) __builtin_prefetch(d->table->draw_data(d));
      }
    }
    const std::uint32_t o = ords[i];
    const Group* c = kid(o);
    if (!c) continue;  // removed
    if constexpr (kCountSkips) {
      if (interior_live_) {
        const std::uint32_t polls = interior_between(from, o);
        if (polls && !skip(polls)) go_on = false;
      }
      from = o + 1;
    }
    if (go_on && !f(c)) go_on = false;
  }
  busy_ = false;
  if (!go_on) return false;
  if constexpr (kCountSkips) {
    if (interior_live_) {
      const std::uint32_t polls = interior_between(from, count_);
      if (polls && !skip(polls)) return false;
    }
  }
  for (const Group* c = rest_; c; c = c->sibling)
    if (!f(c)) return false;
  return true;
}

}  // namespace DL
