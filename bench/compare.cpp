// compare: the display list against the spatial indexes a host would use
// instead, on the same workloads, measured in one run.
//
//   compare [--quick] [--sizes 1e5,1e6,1e7] [--reps N] [--kinds points,segments]
//           [--orders coherent,random,layered] [--peers rstar,...|none] [--no-index]
//
// Peers: this library (Dots for points, two-point Polylines for segments, drawn
// into a renderer that only counts), Boost.Geometry's rtree with rstar<16>,
// quadratic<16> and linear<16> inserts and its packing constructor, a flat
// vector scanned linearly, and the floor: the same records from a bump
// allocator appended to a singly linked list.
//
// Workloads: build; build and the first 1% window (the display list makes the
// index of a wide group when a walk by rectangle first needs it, so this is
// its time to the first answer; bytes per item are counted after it); a 1% and
// a 0.0001% window (200 each, fixed seed) returning
// every hit in painting order (peers query, then sort by insertion id; their
// plain unordered query is reported too); a full walk in painting order (for
// the display list its forward iterator; its full redraw is reported beside);
// removal of everything in a 1% window; bytes per item. Every figure is the
// median of --reps repetitions (default 5), and each table gives the display
// list's ratio to every peer measured in the same run. --quick (1e5 only, 3
// repetitions) also checks that every peer returns the same hits as the display
// list, and exits non-zero if one does not. --peers picks the peers run beside
// the display list (none: it alone, to profile it); --no-index makes it go without indexes (the
// walks then test every child, as before there were any).
//
// Orders: coherent (256 x 256 tiles taken row by row, items random inside a
// tile), random (anywhere, in no order), and layered (the plane covered four
// times over, each pass coherent, as CAD layers written one after another).
#include <algorithm>
#include <boost/geometry.hpp>
#include <boost/geometry/index/rtree.hpp>
#include <boost/iterator/function_output_iterator.hpp>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <unordered_map>
#include <vector>

#include "displaylist/display_list.h"
#include "displaylist/group_index.h"
#include "drawables/dot.h"
#include "drawables/polything.h"
#include "iterators/display_list_iterator.h"

namespace {

namespace bg = boost::geometry;
namespace bgi = boost::geometry::index;
using DL::WorldBounds;
using DL::WorldCoord;
using DL::WorldPoint;

// ---------------------------------------------------------------------------
// Datasets
// ---------------------------------------------------------------------------

struct Item {
  WorldPoint a;  // a point, or the start of a segment
  WorldPoint b;  // equal to `a` for a point
  WorldBounds box() const {
    WorldBounds r = WorldBounds::empty();
    r.merge(a);
    r.merge(b);
    return r;
  }
};

enum class Order { coherent, random, layered };

const char* order_name(Order o) {
  switch (o) {
    case Order::coherent:
      return "coherent";
    case Order::random:
      return "random";
    case Order::layered:
      return "layered";
  }
  return "?";
}

struct Dataset {
  bool segments;
  Order order;
  std::size_t n;
  std::vector<Item> items;
  std::string name() const {
    char buf[64];
    std::snprintf(buf, sizeof buf, "%s, %s order, %.0e items", segments ? "segments" : "points",
                  order_name(order), static_cast<double>(n));
    return buf;
  }
};

WorldCoord clamp_add(WorldCoord v, int d) {
  long long r = static_cast<long long>(v) + d;
  return static_cast<WorldCoord>(std::clamp<long long>(r, INT32_MIN, INT32_MAX));
}

Dataset make_dataset(bool segments, Order order, std::size_t n) {
  Dataset d{segments, order, n, {}};
  d.items.resize(n);
  std::mt19937_64 rng(1234 + n + (segments ? 7 : 0) + (order == Order::coherent ? 13 : 0) +
                      (order == Order::layered ? 29 : 0));
  // Layered: four passes, each a coherent drawing of a quarter of the items.
  const std::size_t passes = order == Order::layered ? 4 : 1;
  const std::size_t per_pass = (n + passes - 1) / passes;
  const std::size_t per_tile = (per_pass + 65535) / 65536;
  for (std::size_t i = 0; i < n; ++i) {
    WorldPoint a;
    if (order != Order::random) {
      // 256 x 256 tiles taken row by row, items random inside a tile.
      const std::uint32_t tile = static_cast<std::uint32_t>((i % per_pass) / per_tile);
      const std::uint32_t tx = (tile % 256) << 24, ty = (tile / 256) << 24;
      a = {static_cast<WorldCoord>(tx | (rng() & 0xFFFFFF)),
           static_cast<WorldCoord>(ty | (rng() & 0xFFFFFF))};
    } else {
      a = {static_cast<WorldCoord>(rng()), static_cast<WorldCoord>(rng())};
    }
    WorldPoint b = a;
    if (segments) {
      b = {clamp_add(a.x, static_cast<int>(rng() % 4001) - 2000),
           clamp_add(a.y, static_cast<int>(rng() % 4001) - 2000)};
    }
    d.items[i] = {a, b};
  }
  return d;
}

// Windows of `fraction` of the plane's area, fixed seed, anywhere on the plane.
std::vector<WorldBounds> make_windows(double fraction, int count, unsigned seed) {
  std::mt19937_64 rng(seed);
  const double side = 4294967296.0 * std::sqrt(fraction);
  std::vector<WorldBounds> out;
  for (int i = 0; i < count; ++i) {
    double x0 =
        -2147483648.0 + static_cast<double>(rng() % 4294967296ULL) * (1.0 - std::sqrt(fraction));
    double y0 =
        -2147483648.0 + static_cast<double>(rng() % 4294967296ULL) * (1.0 - std::sqrt(fraction));
    out.push_back({{static_cast<WorldCoord>(x0), static_cast<WorldCoord>(y0)},
                   {static_cast<WorldCoord>(x0 + side), static_cast<WorldCoord>(y0 + side)}});
  }
  return out;
}

// ---------------------------------------------------------------------------
// Timing
// ---------------------------------------------------------------------------

double seconds_of(const std::function<void()>& f) {
  auto t0 = std::chrono::steady_clock::now();
  f();
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
}

double median(std::vector<double> v) {
  std::sort(v.begin(), v.end());
  return v.empty() ? 0 : v[v.size() / 2];
}

long rss_kib() {
  FILE* f = std::fopen("/proc/self/status", "r");
  if (!f) return 0;
  char line[256];
  long kib = 0;
  while (std::fgets(line, sizeof line, f))
    if (std::strncmp(line, "VmRSS:", 6) == 0) kib = std::atol(line + 6);
  std::fclose(f);
  return kib;
}

// ---------------------------------------------------------------------------
// Peers
// ---------------------------------------------------------------------------

// What a peer answers for a window: its hits (for the display list, what it
// handed on; its true hits are counted apart, see `visit_stats`).
struct WindowResult {
  std::size_t hits = 0;
};

class Peer {
 public:
  virtual ~Peer() = default;
  virtual const char* name() const = 0;
  virtual void build(const Dataset& d) = 0;
  // Every item overlapping `w`, in painting order, into `ids` when not null.
  virtual WindowResult window(const WorldBounds& w, std::vector<std::uint32_t>* ids) = 0;
  // The same without ordering, where the peer has a cheaper unordered form.
  virtual std::size_t window_unordered(const WorldBounds& w) { return window(w, nullptr).hits; }
  virtual std::size_t walk() = 0;
  // A full redraw, for the display list only: 0 for the others.
  virtual std::size_t draw_all() { return 0; }
  // What a window costs the display list, counted outside the timing: groups
  // whose rectangle is tested, drawables handed on, and the true hits among
  // them. Zero for the others.
  struct VisitStats {
    double groups = 0, handed = 0, hits = 0;
  };
  virtual VisitStats visit_stats(const WorldBounds&) const { return {}; }
  virtual std::size_t remove_window(const WorldBounds& w) = 0;
  virtual double bytes_per_item(std::size_t n) const = 0;
  virtual void clear() = 0;
};

// Counts allocations so a peer's retained memory can be read exactly.
struct ByteCount {
  static inline std::size_t bytes = 0;
};
template <class T>
struct CountingAllocator {
  using value_type = T;
  CountingAllocator() = default;
  template <class U>
  CountingAllocator(const CountingAllocator<U>&) {}
  T* allocate(std::size_t n) {
    ByteCount::bytes += n * sizeof(T);
    return std::allocator<T>().allocate(n);
  }
  void deallocate(T* p, std::size_t n) {
    ByteCount::bytes -= n * sizeof(T);
    std::allocator<T>().deallocate(p, n);
  }
  template <class U>
  bool operator==(const CountingAllocator<U>&) const {
    return true;
  }
};

// ---- The display list ------------------------------------------------------

// A renderer that counts what reaches it; in checking mode it also keeps the
// drawable being drawn, told by the selector.
struct CountingRenderer : ZR_Renderer {
  std::size_t count = 0;
  std::vector<const void*>* drawn = nullptr;
  CountingRenderer() {
    auto dot = +[](void* self, ZR_Rendition*, const ZR_DCI_Point*, const ZR_RGB32*) {
      auto* r = static_cast<CountingRenderer*>(self);
      ++r->count;
      if (r->drawn) r->drawn->push_back(r->option_source->selector_drawable);
    };
    auto line = +[](void* self, ZR_Rendition*, int, const ZR_DCI_Point*) {
      auto* r = static_cast<CountingRenderer*>(self);
      ++r->count;
      if (r->drawn) r->drawn->push_back(r->option_source->selector_drawable);
    };
    dot_clipped = {this, dot};
    dot_unclipped = {this, dot};
    polyline_clipped = {this, line};
    polyline_unclipped = {this, line};
  }
};

class DisplayListPeer : public Peer {
 public:
  const char* name() const override { return "display list"; }
  void build(const Dataset& d) override {
    clear();
    heap_ = ZP_CreateHeap(kZephalNoSerialize);  // one thread uses the list
    list_ = new DL::DisplayList(heap_);
    renderer_ = new CountingRenderer;
    list_->set_renderer(renderer_);
    list_->selector = renderer_->option_source;  // told the drawable in checking mode
    add_ref(list_->selector);
    list_->set_world_bounds(WorldBounds::everything());
    list_->set_screen_bounds({{0, 0}, {65535, 65535}});
    ids_.clear();
    for (std::size_t i = 0; i < d.items.size(); ++i) {
      const Item& it = d.items[i];
      DL::Drawable* x;
      if (d.segments) {
        const WorldPoint pts[2] = {it.a, it.b};
        x = new (heap_) DL::Polyline(0x808080, 2, pts, heap_);
      } else {
        x = new (heap_) DL::Dot(0x808080, it.a);
      }
      list_->add(x, it.box());
    }
  }
  void index_ids() {
    ids_.clear();
    std::uint32_t id = 0;
    for (const DL::Drawable* d : order()) ids_[d] = id++;
  }
  WindowResult window(const WorldBounds& w, std::vector<std::uint32_t>* ids) override {
    WorldBounds inner = w;
    inner.intersect(list_->world_bounds);
    renderer_->count = 0;
    std::vector<const void*> drawn;
    if (ids) {
      if (ids_.empty()) index_ids();
      renderer_->drawn = &drawn;
      list_->root->draw_bounded_selection(*list_, inner, w);
      renderer_->drawn = nullptr;
      // A group partly in the window hands on all it holds: keep the true hits.
      for (const void* p : drawn) {
        auto* d = static_cast<const DL::Drawable*>(p);
        if (d->bounds_of().overlaps(w)) ids->push_back(ids_[d]);
      }
      return {ids->size()};
    }
    list_->root->draw_bounded(*list_, inner, w);
    return {renderer_->count};
  }
  // The walk in painting order is the library's forward iterator; reading each
  // drawable's layer word stands for the use a host makes of it.
  std::size_t walk() override {
    std::size_t n = 0;
    for (DisplayListIterator it(list_); it.drawable(); it.advance()) n += it.drawable()->shown();
    return n;
  }
  VisitStats visit_stats(const WorldBounds& w) const override {
    WorldBounds inner = w;
    inner.intersect(list_->world_bounds);
    VisitStats v;
    count_walk(list_->root, inner, w, false, v);
    return v;
  }
  std::size_t draw_all() override {
    renderer_->count = 0;
    list_->root->draw_unclipped(*list_);
    return renderer_->count;
  }
  std::size_t remove_window(const WorldBounds& w) override {
    std::size_t before = ZP_HeapStatistics(heap_).live_blocks;
    list_->root->remove_bounded(w);
    ids_.clear();
    return before - ZP_HeapStatistics(heap_).live_blocks;
  }
  double bytes_per_item(std::size_t n) const override {
    return static_cast<double>(ZP_HeapStatistics(heap_).live_bytes) / static_cast<double>(n);
  }
  void clear() override {
    delete list_;
    list_ = nullptr;
    if (heap_) ZP_DestroyHeap(heap_);
    heap_ = nullptr;
  }
  ~DisplayListPeer() override { clear(); }

 private:
  // The decisions of the bounded walk, counted: a group is tested unless an
  // ancestor was wholly inside; a bottom group that is tested and not skipped
  // hands on all its drawables; a wide group's children are those its index
  // finds.
  static void count_walk(const DL::Group* g, const WorldBounds& inner, const WorldBounds& outer,
                         bool inside, VisitStats& v) {
    if (!inside) {
      v.groups += 1;
      if (g->bounds.is_inside(inner))
        inside = true;
      else if (!g->bounds.overlaps(outer))
        return;
    }
    if (g->contains_drawables()) {
      for (const DL::Drawable* x = g->first_drawable(); x; x = x->sibling) {
        v.handed += 1;
        v.hits += x->bounds_of().overlaps(outer);
      }
      return;
    }
    // A wide group hands on only what its index finds, as the walk does.
    WorldBounds q;
    if (DL::GroupIndex* index = inside ? nullptr : DL::GroupIndex::for_walk(g))
      if (DL::GroupIndex::window(inner, outer, q)) {
        std::uint32_t n = 0;
        if (const std::uint32_t* found = index->candidates(q, n)) {
          const std::vector<std::uint32_t> ordinals(found, found + n);
          for (std::uint32_t o : ordinals)
            if (const DL::Group* c = index->kid(o)) count_walk(c, inner, outer, inside, v);
          for (const DL::Group* c = index->rest(); c; c = c->sibling)
            count_walk(c, inner, outer, inside, v);
          return;
        }
      }
    for (const DL::Group* c = g->first_group(); c; c = c->sibling)
      count_walk(c, inner, outer, inside, v);
  }
  std::vector<const DL::Drawable*> order() const {
    std::vector<const DL::Drawable*> out;
    std::function<void(const DL::Group*)> visit = [&](const DL::Group* g) {
      if (g->contains_drawables()) {
        for (const DL::Drawable* d = g->first_drawable(); d; d = d->sibling) out.push_back(d);
      } else {
        for (const DL::Group* c = g->first_group(); c; c = c->sibling) visit(c);
      }
    };
    visit(list_->root);
    return out;
  }
  ZephalHeap* heap_ = nullptr;
  DL::DisplayList* list_ = nullptr;
  CountingRenderer* renderer_ = nullptr;
  std::unordered_map<const DL::Drawable*, std::uint32_t> ids_;
};

// ---- Boost.Geometry rtree ----------------------------------------------------

// Boost's rtrees compute areas and margins in the coordinate type, which
// overflows for 32-bit integers spread over the whole plane and leaves the tree
// badly split (queries a hundred times slower); in double every 32-bit value is
// exact and nothing overflows, so the peers get double coordinates.
using BPoint = bg::model::point<double, 2, bg::cs::cartesian>;
using BBox = bg::model::box<BPoint>;
using BValue = std::pair<BBox, std::uint32_t>;

BBox to_box(const WorldBounds& b) {
  return BBox(BPoint(b.min.x, b.min.y), BPoint(b.max.x, b.max.y));
}

template <class Params>
class RtreePeer : public Peer {
  using Tree = bgi::rtree<BValue, Params, bgi::indexable<BValue>, bgi::equal_to<BValue>,
                          CountingAllocator<BValue>>;

 public:
  RtreePeer(const char* name, bool packed) : name_(name), packed_(packed) {}
  const char* name() const override { return name_; }
  void build(const Dataset& d) override {
    clear();
    std::size_t before = ByteCount::bytes;
    if (packed_) {
      std::vector<BValue> values;
      values.reserve(d.items.size());
      for (std::size_t i = 0; i < d.items.size(); ++i)
        values.emplace_back(to_box(d.items[i].box()), i);
      tree_ = std::make_unique<Tree>(values);
    } else {
      tree_ = std::make_unique<Tree>();
      for (std::size_t i = 0; i < d.items.size(); ++i)
        tree_->insert(BValue(to_box(d.items[i].box()), i));
    }
    bytes_ = ByteCount::bytes - before;
  }
  WindowResult window(const WorldBounds& w, std::vector<std::uint32_t>* ids) override {
    scratch_.clear();
    tree_->query(bgi::intersects(to_box(w)), std::back_inserter(scratch_));
    std::sort(scratch_.begin(), scratch_.end(),
              [](const BValue& a, const BValue& b) { return a.second < b.second; });
    if (ids)
      for (const BValue& v : scratch_) ids->push_back(v.second);
    return {scratch_.size()};
  }
  std::size_t window_unordered(const WorldBounds& w) override {
    std::size_t n = 0;
    auto counter = boost::make_function_output_iterator([&n](const BValue&) { ++n; });
    tree_->query(bgi::intersects(to_box(w)), counter);
    return n;
  }
  std::size_t walk() override {
    scratch_.assign(tree_->begin(), tree_->end());
    std::sort(scratch_.begin(), scratch_.end(),
              [](const BValue& a, const BValue& b) { return a.second < b.second; });
    return scratch_.size();
  }
  std::size_t remove_window(const WorldBounds& w) override {
    scratch_.clear();
    tree_->query(bgi::covered_by(to_box(w)), std::back_inserter(scratch_));
    return tree_->remove(scratch_.begin(), scratch_.end());
  }
  double bytes_per_item(std::size_t n) const override {
    return static_cast<double>(bytes_) / static_cast<double>(n);
  }
  void clear() override {
    tree_.reset();
    std::vector<BValue>().swap(scratch_);
  }

 private:
  const char* name_;
  bool packed_;
  std::unique_ptr<Tree> tree_;
  std::vector<BValue> scratch_;
  std::size_t bytes_ = 0;
};

// ---- A flat vector, scanned ----------------------------------------------------

class VectorPeer : public Peer {
 public:
  const char* name() const override { return "flat vector"; }
  void build(const Dataset& d) override {
    clear();
    for (const Item& it : d.items) boxes_.push_back(it.box());
  }
  WindowResult window(const WorldBounds& w, std::vector<std::uint32_t>* ids) override {
    std::size_t hits = 0;
    for (std::size_t i = 0; i < boxes_.size(); ++i)
      if (boxes_[i].overlaps(w)) {
        ++hits;
        if (ids) ids->push_back(static_cast<std::uint32_t>(i));
      }
    return {hits};
  }
  std::size_t walk() override {
    std::size_t n = 0;
    for (const WorldBounds& b : boxes_)
      n += b.min.x != INT32_MIN || b.min.y != 7;  // touch every record
    return n;
  }
  std::size_t remove_window(const WorldBounds& w) override {
    std::size_t before = boxes_.size();
    boxes_.erase(std::remove_if(boxes_.begin(), boxes_.end(),
                                [&](const WorldBounds& b) { return b.is_inside(w); }),
                 boxes_.end());
    return before - boxes_.size();
  }
  double bytes_per_item(std::size_t n) const override {
    return static_cast<double>(boxes_.capacity() * sizeof(WorldBounds)) / static_cast<double>(n);
  }
  // Keeps the memory for the next build, as the display list's heaps and the
  // floor's arena do: a build then costs no page faults in any of them.
  void clear() override { boxes_.clear(); }

 private:
  std::vector<WorldBounds> boxes_;
};

// ---- The floor: bump allocation and one linked list ---------------------------------

class FloorPeer : public Peer {
  struct Record {
    Record* next;
    WorldBounds box;
  };

 public:
  const char* name() const override { return "floor (bump + list)"; }
  void build(const Dataset& d) override {
    clear();
    const std::size_t need = d.items.size() * sizeof(Record);
    if (need > arena_size_) {  // kept across builds, like the other peers' memory
      arena_.reset(new char[need]);
      arena_size_ = need;
    }
    char* bump = arena_.get();
    Record** tail = &head_;
    for (const Item& it : d.items) {
      auto* r = new (bump) Record{nullptr, it.box()};
      bump += sizeof(Record);
      *tail = r;
      tail = &r->next;
    }
  }
  WindowResult window(const WorldBounds& w, std::vector<std::uint32_t>* ids) override {
    std::size_t hits = 0, i = 0;
    for (Record* r = head_; r; r = r->next, ++i)
      if (r->box.overlaps(w)) {
        ++hits;
        if (ids) ids->push_back(static_cast<std::uint32_t>(i));
      }
    return {hits};
  }
  std::size_t walk() override {
    std::size_t n = 0;
    for (Record* r = head_; r; r = r->next) n += r->box.min.x != INT32_MIN || r->box.min.y != 7;
    return n;
  }
  std::size_t remove_window(const WorldBounds& w) override {
    std::size_t removed = 0;
    for (Record** p = &head_; *p;)
      if ((*p)->box.is_inside(w)) {
        *p = (*p)->next;
        ++removed;
      } else {
        p = &(*p)->next;
      }
    return removed;
  }
  double bytes_per_item(std::size_t) const override { return sizeof(Record); }
  void clear() override { head_ = nullptr; }  // the arena stays for the next build

 private:
  std::unique_ptr<char[]> arena_;
  std::size_t arena_size_ = 0;
  Record* head_ = nullptr;
};

// ---------------------------------------------------------------------------
// The run
// ---------------------------------------------------------------------------

struct Figures {
  std::map<std::string, double> value;  // workload -> median
};

// The windows' aims for the display list against the R*-tree and the flat
// scan, with what this run measured: in random and layered order a 1% window
// at most half the R*-tree's query and sort and a tenth of the flat scan, a
// 0.0001% window at most the R*-tree's query and a tenth of the flat scan; in
// coherent order the 0.0001% window at most the R*-tree's query. Printed only
// when both peers ran. (Insertion and memory are aimed at the display list
// without its index: compare with a run of `--no-index`.)
void print_aims(Order order, const std::vector<std::unique_ptr<Peer>>& peers,
                const std::vector<Figures>& figures) {
  std::size_t rstar = 0, flat = 0;
  for (std::size_t p = 1; p < peers.size(); ++p) {
    if (std::strncmp(peers[p]->name(), "R*-tree", 7) == 0) rstar = p;
    if (std::strcmp(peers[p]->name(), "flat vector") == 0) flat = p;
  }
  if (!rstar || !flat) return;
  auto value = [&](std::size_t p, const char* key) {
    const auto it = figures[p].value.find(key);
    return it == figures[p].value.end() ? 0.0 : it->second;
  };
  auto ratio = [&](const char* key, std::size_t p) {
    const double t = value(p, key);
    return t > 0 ? value(0, key) / t : 0.0;
  };
  auto line = [](const char* what, double r, double aim) {
    std::printf("| %s | %.3f | %.1f | %s |\n", what, r, aim, r <= aim ? "met" : "missed");
  };
  std::printf("\nAims of the windows (display list / peer, one run):\n\n");
  std::printf("| window | ratio | aim | |\n|---|---|---|---|\n");
  if (order != Order::coherent) {
    line("1% in painting order / R*-tree query and sort", ratio("wide", rstar), 0.5);
    line("1% in painting order / flat scan", ratio("wide", flat), 0.1);
  }
  line("0.0001% / R*-tree query", ratio("narrow", rstar), 1.0);
  if (order != Order::coherent) line("0.0001% / flat scan", ratio("narrow", flat), 0.1);
}

struct Options {
  bool quick = false;
  std::vector<std::size_t> sizes{100000, 1000000, 10000000};
  int reps = 5;
  std::vector<bool> kinds{false, true};  // segments?
  std::vector<Order> orders{Order::coherent, Order::random, Order::layered};
  std::vector<std::string> peers;  // the peers beside the display list; empty: all
  bool no_index = false;           // the display list without its index over wide groups
};

bool parse_list(const char* text, const std::function<bool(const std::string&)>& take) {
  std::string s(text);
  std::size_t start = 0;
  while (start <= s.size()) {
    std::size_t comma = s.find(',', start);
    std::string part =
        s.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (part.empty() || !take(part)) return false;
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return true;
}

int fail(const std::string& message) {
  std::fprintf(stderr, "compare: %s\n", message.c_str());
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  Options opt;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    auto value = [&]() -> const char* { return i + 1 < argc ? argv[++i] : nullptr; };
    if (arg == "--quick") {
      opt.quick = true;
      opt.sizes = {100000};
      opt.reps = 3;
    } else if (arg == "--sizes") {
      const char* v = value();
      opt.sizes.clear();
      if (!v || !parse_list(v, [&](const std::string& p) {
            char* end = nullptr;
            double x = std::strtod(p.c_str(), &end);
            if (*end || x < 1 || x > 1e8) return false;
            opt.sizes.push_back(static_cast<std::size_t>(x));
            return true;
          }))
        return fail("--sizes takes a list like 1e5,1e6 (each from 1 to 1e8)");
    } else if (arg == "--reps") {
      const char* v = value();
      char* end = nullptr;
      long r = v ? std::strtol(v, &end, 10) : 0;
      if (!v || *end || r < 1 || r > 100) return fail("--reps takes a whole number from 1 to 100");
      opt.reps = static_cast<int>(r);
    } else if (arg == "--kinds") {
      const char* v = value();
      opt.kinds.clear();
      if (!v || !parse_list(v, [&](const std::string& p) {
            if (p != "points" && p != "segments") return false;
            opt.kinds.push_back(p == "segments");
            return true;
          }))
        return fail("--kinds takes points, segments or both");
    } else if (arg == "--orders") {
      const char* v = value();
      opt.orders.clear();
      if (!v || !parse_list(v, [&](const std::string& p) {
            if (p == "coherent")
              opt.orders.push_back(Order::coherent);
            else if (p == "random")
              opt.orders.push_back(Order::random);
            else if (p == "layered")
              opt.orders.push_back(Order::layered);
            else
              return false;
            return true;
          }))
        return fail("--orders takes coherent, random, layered or a list of them");
    } else if (arg == "--peers") {
      const char* v = value();
      opt.peers.clear();
      if (!v || !parse_list(v, [&](const std::string& p) {
            static const char* const names[] = {"none",   "rstar", "quadratic", "linear",
                                                "packed", "flat",  "floor"};
            if (std::find(std::begin(names), std::end(names), p) == std::end(names)) return false;
            opt.peers.push_back(p);
            return true;
          }))
        return fail(
            "--peers takes none or a list of rstar, quadratic, linear, packed, flat, floor");
    } else if (arg == "--no-index") {
      opt.no_index = true;
    } else if (arg == "--help" || arg == "-h") {
      std::printf(
          "usage: compare [--quick] [--sizes 1e5,1e6,1e7] [--reps N] [--kinds points,segments] "
          "[--orders coherent,random,layered] [--peers rstar,...|none] [--no-index]\n");
      return 0;
    } else {
      return fail("unknown argument '" + arg + "' (try --help)");
    }
  }

  if (opt.no_index) DL::GroupIndexSettings::set_threshold(0);
  const std::vector<WorldBounds> wide = make_windows(0.01, 200, 99);
  const std::vector<WorldBounds> narrow = make_windows(0.000001, 200, 100);
  bool all_agree = true;

  for (bool segments : opt.kinds)
    for (Order order : opt.orders)
      for (std::size_t n : opt.sizes) {
        Dataset d = make_dataset(segments, order, n);
        std::vector<std::unique_ptr<Peer>> peers;
        peers.push_back(std::make_unique<DisplayListPeer>());
        auto wanted = [&](const char* name) {
          return opt.peers.empty() ||
                 std::find(opt.peers.begin(), opt.peers.end(), name) != opt.peers.end();
        };
        if (wanted("rstar"))
          peers.push_back(std::make_unique<RtreePeer<bgi::rstar<16>>>("R*-tree rstar<16>", false));
        if (wanted("quadratic"))
          peers.push_back(
              std::make_unique<RtreePeer<bgi::quadratic<16>>>("R-tree quadratic<16>", false));
        if (wanted("linear"))
          peers.push_back(std::make_unique<RtreePeer<bgi::linear<16>>>("R-tree linear<16>", false));
        if (wanted("packed"))
          peers.push_back(std::make_unique<RtreePeer<bgi::rstar<16>>>("R-tree packed", true));
        if (wanted("flat")) peers.push_back(std::make_unique<VectorPeer>());
        if (wanted("floor")) peers.push_back(std::make_unique<FloorPeer>());

        std::vector<Figures> figures(peers.size());
        std::vector<std::vector<std::uint32_t>> expected;  // the display list's hits, quick mode
        for (std::size_t p = 0; p < peers.size(); ++p) {
          Peer& peer = *peers[p];
          std::map<std::string, std::vector<double>> runs;
          std::size_t wide_hits = 0;
          for (int rep = 0; rep < opt.reps; ++rep) {
            peer.clear();  // tearing down the last build is not part of this one
            long rss0 = rss_kib();
            runs["build"].push_back(seconds_of([&] { peer.build(d); }) * 1e9 /
                                    static_cast<double>(n));
            // The first window finds the display list's indexes to be built
            // (they are made when a walk by rectangle first needs them): the
            // time to the first answer, and the memory then, count it.
            const double first = seconds_of([&] { peer.window(wide[0], nullptr); });
            runs["ready"].push_back(runs["build"].back() + first * 1e9 / static_cast<double>(n));
            runs["bytes"].push_back(peer.bytes_per_item(n));
            runs["rss"].push_back(static_cast<double>(rss_kib() - rss0) * 1024.0 /
                                  static_cast<double>(n));
            wide_hits = 0;
            double t = seconds_of([&] {
              for (const WorldBounds& w : wide) {
                WindowResult r = peer.window(w, nullptr);
                wide_hits += r.hits;
              }
            });
            runs["wide"].push_back(t * 1e9 /
                                   static_cast<double>(std::max<std::size_t>(wide_hits, 1)));
            std::size_t plain = 0;
            t = seconds_of([&] {
              for (const WorldBounds& w : wide) plain += peer.window_unordered(w);
            });
            runs["wide_plain"].push_back(t * 1e9 /
                                         static_cast<double>(std::max<std::size_t>(plain, 1)));
            t = seconds_of([&] {
              for (const WorldBounds& w : narrow) peer.window(w, nullptr);
            });
            runs["narrow"].push_back(t * 1e9 / static_cast<double>(narrow.size()));
            std::size_t walked = 0;
            t = seconds_of([&] { walked = peer.walk(); });
            runs["walk"].push_back(t * 1e9 / static_cast<double>(std::max<std::size_t>(walked, 1)));
            t = seconds_of([&] { walked = peer.draw_all(); });
            if (walked) runs["draw"].push_back(t * 1e9 / static_cast<double>(walked));
            std::size_t removed = 0;
            t = seconds_of([&] { removed = peer.remove_window(wide[0]); });
            runs["remove"].push_back(t * 1e9 /
                                     static_cast<double>(std::max<std::size_t>(removed, 1)));
          }
          for (auto& [k, v] : runs) figures[p].value[k] = median(v);
          // Memory a build left resident: the largest growth seen, since later
          // repetitions reuse what earlier ones freed.
          figures[p].value["rss"] = *std::max_element(runs["rss"].begin(), runs["rss"].end());
          if (p == 0) {
            // The display list's windows count what they hand on; per true hit
            // is the handed figure scaled by the share of true hits.
            Peer::VisitStats wide_v, narrow_v;
            for (const WorldBounds& w : wide) {
              const Peer::VisitStats v = peer.visit_stats(w);
              wide_v.groups += v.groups;
              wide_v.handed += v.handed;
              wide_v.hits += v.hits;
            }
            for (const WorldBounds& w : narrow) {
              const Peer::VisitStats v = peer.visit_stats(w);
              narrow_v.groups += v.groups;
              narrow_v.handed += v.handed;
              narrow_v.hits += v.hits;
            }
            if (wide_v.hits > 0) {
              const double handed_per_hit = wide_v.handed / wide_v.hits;
              figures[p].value["wide"] *= handed_per_hit;
              figures[p].value["wide_plain"] *= handed_per_hit;
              figures[p].value["handled_per_hit"] = handed_per_hit;
              figures[p].value["groups_per_hit"] = wide_v.groups / wide_v.hits;
            }
            const double queries = static_cast<double>(narrow.size());
            figures[p].value["narrow_groups"] = narrow_v.groups / queries;
            figures[p].value["narrow_handed"] = narrow_v.handed / queries;
            figures[p].value["narrow_hits"] = narrow_v.hits / queries;
          }

          if (opt.quick) {
            // The same hits, in painting order, on a fresh build.
            peer.build(d);
            if (p == 0) {
              expected.assign(20, {});
              for (std::size_t w = 0; w < expected.size(); ++w) peer.window(wide[w], &expected[w]);
            } else {
              for (std::size_t w = 0; w < expected.size(); ++w) {
                std::vector<std::uint32_t> got;
                peer.window(wide[w], &got);
                if (got != expected[w]) {
                  all_agree = false;
                  std::printf(
                      "MISMATCH: %s differs from the display list on window %zu (%zu hits, %zu "
                      "expected)\n",
                      peer.name(), w, got.size(), expected[w].size());
                }
              }
            }
          }
          peer.clear();
        }

        std::printf("\n### %s\n\n", d.name().c_str());
        std::printf(
            "| peer | build ns/item | build and first 1%% window ns/item | 1%% window ns/hit "
            "(ordered) | 1%% plain ns/hit | 0.0001%% window ns/query "
            "| full walk ns/item | remove 1%% ns/item | bytes/item | RSS bytes/item |\n");
        std::printf("|---|---|---|---|---|---|---|---|---|---|\n");
        const char* keys[] = {"build", "ready",  "wide",  "wide_plain", "narrow",
                              "walk",  "remove", "bytes", "rss"};
        for (std::size_t p = 0; p < peers.size(); ++p) {
          std::printf("| %s |", peers[p]->name());
          for (const char* k : keys) std::printf(" %.1f |", figures[p].value[k]);
          std::printf("\n");
        }
        std::printf(
            "\nDisplay list / peer (below 1 means the display list is faster or smaller):\n\n");
        std::printf(
            "| peer | build | build and first window | 1%% ordered | 1%% vs plain | 0.0001%% | "
            "full walk | remove | bytes |\n");
        std::printf("|---|---|---|---|---|---|---|---|---|\n");
        for (std::size_t p = 1; p < peers.size(); ++p) {
          auto ratio = [&](const char* ours, const char* theirs) {
            double t = figures[p].value[theirs];
            return t > 0 ? figures[0].value[ours] / t : 0.0;
          };
          std::printf("| %s | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f | %.2f |\n",
                      peers[p]->name(), ratio("build", "build"), ratio("ready", "ready"),
                      ratio("wide", "wide"), ratio("wide", "wide_plain"), ratio("narrow", "narrow"),
                      ratio("walk", "walk"), ratio("remove", "remove"), ratio("bytes", "bytes"));
        }
        print_aims(d.order, peers, figures);
        std::printf(
            "\nDisplay list, 1%% windows: per true hit, %.3f groups tested and %.2f drawables "
            "handed on.\n",
            figures[0].value["groups_per_hit"], figures[0].value["handled_per_hit"]);
        std::printf(
            "Display list, 0.0001%% windows: per query, %.0f groups tested and %.0f drawables "
            "handed on for %.1f true hits.\n",
            figures[0].value["narrow_groups"], figures[0].value["narrow_handed"],
            figures[0].value["narrow_hits"]);
        std::printf(
            "Display list: a full redraw (every drawable converted to the device and handed to "
            "a renderer that counts) costs %.1f ns/item, %.1fx its walk.\n",
            figures[0].value["draw"], figures[0].value["draw"] / figures[0].value["walk"]);
        std::fflush(stdout);
      }
  if (opt.quick)
    std::printf("\n%s\n",
                all_agree ? "every peer returned the display list's hits" : "PEERS DISAGREE");
  return all_agree ? 0 : 1;
}
