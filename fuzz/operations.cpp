// The operation interpreter; see operations.h for the byte format and the checks.
#include "fuzz/operations.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <unordered_set>
#include <vector>

#include "backends/recording/recording.h"
#include "backends/recording/recording_text.h"
#include "displaylist/display_list.h"
#include "displaylist/group_index.h"
#include "drawables/dot.h"
#include "drawables/image.h"
#include "drawables/polything.h"
#include "drawables/polytriangle.h"
#include "drawables/row_of_dots.h"
#include "drawables/vector_iterator.h"
#include "ellipse/ellipse.h"
#include "iterators/display_list_iterator.h"
#include "iterators/filtered_iterators.h"
#include "iterators/reverse_iterator.h"
#include "nested/drawable_display_list.h"
#include "tests/support/test_drawables.h"
#include "tests/support/tree_check.h"
#include "text/text.h"

namespace DL::fuzz {
namespace {

constexpr WorldCoord kMin = std::numeric_limits<WorldCoord>::min();
constexpr WorldCoord kMax = std::numeric_limits<WorldCoord>::max();
constexpr ZR_RGB32 kPalette[] = {0x000000FF, 0x0000FF00, 0x00FF0000, 0};
// The whole model is checked after every kCheckEvery operations and after the
// last: a fault shows a few operations late, at a fraction of the cost.
constexpr int kCheckEvery = 8;
// Vectors an input may have iterated in all.
constexpr int kVectorBudget = 100000;
// Shared nested lists an input may make.
constexpr std::size_t kMaxSharedLists = 4;

// Reads values from the front of the input; zeros once it is used up.
class Reader {
 public:
  Reader(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool done() const { return at_ >= size_; }
  std::uint8_t byte() { return at_ < size_ ? data_[at_++] : 0; }
  std::uint32_t word() {
    std::uint32_t w = 0;
    for (int i = 0; i < 4; ++i) w = (w << 8) | byte();
    return w;
  }
  int pick(int n) { return byte() % n; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

// A float that favours the values that break arithmetic.
float special_float(Reader& in) {
  static constexpr float kValues[] = {
      0.0f,
      -0.0f,
      1.5707963705062866f,
      -1.0f,
      6.2831854820251465f,
      7.0f,
      1e30f,
      -1e30f,
      std::numeric_limits<float>::quiet_NaN(),
      std::numeric_limits<float>::infinity(),
      -std::numeric_limits<float>::infinity(),
      std::numeric_limits<float>::denorm_min(),
  };
  const int k = in.pick(16);
  if (k < 12) return kValues[k];
  return std::bit_cast<float>(in.word());
}

double special_double(Reader& in) {
  static constexpr double kValues[] = {0.0,
                                       -0.0,
                                       1.0,
                                       10.0,
                                       100.0,
                                       1e-300,
                                       1e15,
                                       -1e15,
                                       1e300,
                                       -5.0,
                                       std::numeric_limits<double>::quiet_NaN(),
                                       std::numeric_limits<double>::infinity(),
                                       -std::numeric_limits<double>::infinity()};
  const int k = in.pick(16);
  if (k < 13) return kValues[k];
  return static_cast<double>(special_float(in));
}

class Run {
 public:
  Run(const std::uint8_t* data, std::size_t size)
      : in_(data, size),
        heap_(ZP_CreateHeap()),
        list_(heap_, capacity_from(in_.byte()), level_limit_from(in_.byte())) {
    renderer_ = new RecordingRenderer;
    list_.set_renderer(renderer_);
    engine_ = new RecordingTextEngine;
    add_ref(engine_);
    list_.text_engine = engine_;
    list_.set_screen_bounds({{0, 0}, {1023, 767}});
    list_.set_world_bounds({{-100000, -100000}, {100000, 100000}});
    list_.interrupt_callback = [](void* self) { return static_cast<Run*>(self)->go_on(); };
    list_.interrupt_user_data = this;
    center_ = static_cast<WorldCoord>(in_.word());
    // Wide groups get their index early, so that small trees have indexes to
    // be checked against the plain walks.
    GroupIndexSettings::set_threshold(2 + static_cast<int>(in_.pick(8)));
    GroupIndexSettings::set_enabled(true);
  }

  ~Run() {
    if (list_.root) {
      list_.root->destroy();
      list_.root = nullptr;
    }
    destroy_shared_lists();
    ZP_DestroyHeap(heap_);
    ZP_DestroyHeap(nested_heap_);
  }

  std::string execute() {
    int n = 0;
    for (; n < kMaxOperations && !in_.done() && problem_.empty(); ++n) {
      operation_ = n;
      step();
      if (problem_.empty() && (n + 1) % kCheckEvery == 0) check();
    }
    if (problem_.empty() && n % kCheckEvery != 0) check();
    // Everything goes with the tree, then the shared nested lists.
    list_.root->destroy();
    list_.root = nullptr;
    list_.open_group = list_.first_open_group = nullptr;
    if (problem_.empty() && ZP_HeapStatistics(heap_).live_blocks != 0)
      problem_ = "the list's heap keeps blocks after the tree is gone";
    destroy_shared_lists();
    if (problem_.empty() && ZP_HeapStatistics(nested_heap_).live_blocks != 0)
      problem_ = "the nested lists' heap keeps blocks after every list is gone";
    return problem_;
  }

 private:
  static int capacity_from(std::uint8_t b) {
    static constexpr int kCapacities[] = {1, 2, 3, 4, 8, 64, 256, 5};
    return kCapacities[b % 8];
  }
  static int level_limit_from(std::uint8_t b) {
    static constexpr int kLimits[] = {24, 3, 1, 8, 31, 16, 2, 24};
    return kLimits[b % 8];
  }

  void fail(const std::string& what) {
    if (!problem_.empty()) return;
    std::ostringstream s;
    s << "operation " << operation_ << ": " << what;
    problem_ = s.str();
  }

  bool go_on() {
    const bool answer = ((interrupt_pattern_ >> (interrupt_bit_ & 31u)) & 1u) == 0;
    ++interrupt_bit_;
    return answer;
  }

  // -- Values ---------------------------------------------------------------------
  WorldCoord coordinate() {
    switch (in_.pick(10)) {
      case 0:
        return kMin;
      case 1:
        return kMax;
      case 2:
        return 0;
      case 3:
        return in_.pick(2) ? kMin + 1 : kMax - 1;
      case 4:
        return static_cast<WorldCoord>(in_.word());
      default: {
        // Near the centre, at several spreads.
        const int shift = in_.pick(4) * 8;
        const std::int64_t v =
            std::int64_t{center_} +
            (static_cast<std::int64_t>(static_cast<std::int8_t>(in_.byte())) << shift);
        return static_cast<WorldCoord>(std::clamp<std::int64_t>(v, kMin, kMax));
      }
    }
  }
  WorldPoint point() {
    if (!model_.empty() && in_.pick(6) == 0) {
      // The corner of an existing drawable, so that searches find twins.
      const WorldBounds b = model_[index(model_.size())]->bounds_of();
      if (!(b == WorldBounds::empty())) return b.min;
    }
    return {coordinate(), coordinate()};
  }
  WorldBounds rectangle() {
    switch (in_.pick(12)) {
      case 0:
        return WorldBounds::empty();
      case 1:
        return WorldBounds::everything();
      case 2: {
        const WorldPoint p = point();
        return {p, p};
      }
      default: {
        const WorldPoint a = point(), b = point();
        return {{std::min(a.x, b.x), std::min(a.y, b.y)}, {std::max(a.x, b.x), std::max(a.y, b.y)}};
      }
    }
  }
  std::size_t index(std::size_t n) { return (static_cast<std::size_t>(in_.word()) >> 8) % n; }
  Drawable::ColorData color() { return kPalette[in_.pick(4)]; }

  // -- Drawables ------------------------------------------------------------------
  // A drawable of any class but the nested list, from `heap_` (the outer list's)
  // or, while a nested list is filled, from `nested_heap_`. Ellipses and texts
  // measure in the outer list's view, so nested lists get the other classes.
  Drawable* make_drawable() {
    const int kind = in_.pick(6);
    const bool nested = target_heap_ != heap_;
    switch (kind) {
      case 0:
        return new (target_heap_) Dot(color(), point());
      case 1:
        return new (target_heap_) ColorizedDot(color(), point(), kPalette[in_.pick(4)]);
      case 2:
        if (nested) return new (target_heap_) Dot(color(), point());
        return make_ellipse();
      case 3:
        if (nested) return new (target_heap_) test::Box(rectangle(), kPalette[in_.pick(4)]);
        return make_text();
      case 4:
        return make_point_primitive();
      default:
        return new (target_heap_) test::Box(rectangle(), kPalette[in_.pick(4)]);
    }
  }

  // The point lists, triangle strips, rows of dots and images, with counts on
  // both sides of the 256 points a draw keeps on the stack. Their arrays come
  // from the default heap, so the list's heap still holds one block a drawable.
  Drawable* make_point_primitive() {
    static constexpr int kCounts[] = {2, 3, 5, 17, 256, 257, 1, 1};
    const int kind = in_.pick(12);
    // Lines need two points to be drawn; the others one.
    int n = kCounts[in_.pick(8)];
    if (n < 2 && (kind == 2 || kind == 5)) n = 2;
    std::vector<WorldPoint> pts(static_cast<std::size_t>(n));
    WorldPoint p = point();
    const int spread = 1 << in_.pick(24);
    for (WorldPoint& q : pts) {
      q = p;
      const std::int64_t dx =
          static_cast<std::int8_t>(in_.byte()) * static_cast<std::int64_t>(spread) / 128;
      const std::int64_t dy =
          static_cast<std::int8_t>(in_.byte()) * static_cast<std::int64_t>(spread) / 128;
      p = {static_cast<WorldCoord>(std::clamp<std::int64_t>(p.x + dx, kMin, kMax)),
           static_cast<WorldCoord>(std::clamp<std::int64_t>(p.y + dy, kMin, kMax))};
    }
    const Drawable::ColorData c = color();
    std::vector<ZR_RGB32> colors(pts.size(), kPalette[in_.pick(4)]);
    std::vector<ZR_Vertex_Parameters> parameters(pts.size(), ZR_Vertex_Parameters{{1, 2, 3}});
    std::vector<float> scalars(pts.size(), 0.5f);
    switch (kind) {
      case 0:
        return new (target_heap_) Polydot(c, n, pts.data());
      case 1:
        return new (target_heap_) Polygon(c, n, pts.data());
      case 2:
        return new (target_heap_) Polyline(c, n, pts.data());
      case 3:
        return new (target_heap_) GouraudPolyline(c, n, pts.data(), colors.data());
      case 4:
        return new (target_heap_) Polymarker(c, n, pts.data());
      case 5:
        return new (target_heap_) Polysegment(c, n, pts.data());
      case 6:
        return new (target_heap_) PolytriangleWithNoBorder(c, n, pts.data());
      case 7:
        return new (target_heap_) Polytriangle(c, n, pts.data());
      case 8:
        return new (target_heap_) GouraudPolytriangle(c, n, pts.data(), colors.data());
      case 9:
        return new (target_heap_) TexturedPolytriangle(
            c, n, pts.data(), colors.data(), parameters.data(),
            in_.pick(2) ? scalars.data() : nullptr, in_.pick(2) ? parameters.data() : nullptr);
      case 10:
        return new (target_heap_)
            RowOfDots(c, pts[0], {coordinate() / 65536, coordinate() / 65536}, n);
      default: {
        ZR_Image body;
        if (in_.pick(2)) {
          auto* data = new ZR_Image_Data;
          data->width = 2;
          data->height = 2;
          data->pixels.assign(4, kPalette[in_.pick(4)]);
          body.reset(data);
        }
        return new (target_heap_) Image(c, rectangle(), body);
      }
    }
  }

  WorldCoord radius() {
    switch (in_.pick(6)) {
      case 0:
        return 0;
      case 1:
        return 1;
      case 2:
        return kMax;
      case 3:
        return static_cast<WorldCoord>(in_.word() & 0x7FFFFFFFu);
      default:
        return in_.byte() * 16;
    }
  }

  Drawable* make_ellipse() {
    const Drawable::ColorData c = color();
    const WorldPoint center = point();
    WorldPoint radii{radius(), radius()};
    const float rotation = in_.pick(2) ? 0.0f : special_float(in_);
    const float start = special_float(in_), end = special_float(in_);
    Ellipse* e = nullptr;
    switch (in_.pick(4)) {
      case 0:
        e = new (heap_) Ellipse(c, center, radii, rotation, &list_);
        break;
      case 1:
        e = new (heap_) EllipticalArc(c, center, radii, rotation, start, end, &list_);
        break;
      case 2:
        e = new (heap_) EllipticalPie(c, center, radii, rotation, start, end, &list_);
        break;
      default:
        e = new (heap_) ColorizedEllipse(c, center, radii, rotation, start, end,
                                         kPalette[in_.pick(4)], in_.pick(2) != 0, &list_);
        break;
    }
    // The integer extent of an unrotated whole ellipse needs center +- radii in
    // the world range: the radii are cut to fit.
    if (e->rotation == 0.0f && e->end_angle() - e->start_angle() > Ellipse::FULL_SWEEP) {
      auto room = [](WorldCoord c0) {
        return static_cast<WorldCoord>(
            std::min<std::int64_t>(std::int64_t{kMax} - c0, std::int64_t{c0} - kMin));
      };
      e->radii.x = std::min(e->radii.x, room(center.x));
      e->radii.y = std::min(e->radii.y, room(center.y));
    }
    return e;
  }

  Drawable* make_text() {
    const int kind = in_.pick(4);
    int length = in_.pick(4) == 0 ? 0 : in_.pick(12);
    char bytes[16] = {};
    unsigned short units[16] = {};
    for (int i = 0; i < length; ++i) {
      bytes[i] = static_cast<char>(in_.pick(4) ? 'a' + in_.pick(26) : in_.byte());
      units[i] = static_cast<unsigned short>(in_.pick(4) ? bytes[i] : in_.word());
    }
    const DoublePoint at{static_cast<double>(coordinate()), static_cast<double>(coordinate())};
    const double height = special_double(in_), rotation = special_double(in_);
    const WorldBounds b = rectangle();
    const bool unicode = in_.pick(2) != 0;
    switch (kind) {
      case 0:
        return new (heap_)
            Text(color().rgb(), font_, at, bytes, length, height, rotation, b, &list_, unicode);
      case 1:
        return new (heap_)
            Text(color().rgb(), font_, at, units, length, height, rotation, b, &list_, unicode);
      case 2:
        return new (heap_)
            Text(&own_rendition_, font_, at, bytes, length, height, rotation, b, &list_, unicode);
      default:
        return new (heap_)
            Text(&own_rendition_, font_, at, units, length, height, rotation, b, &list_, unicode);
    }
  }

  // -- Tree helpers ---------------------------------------------------------------
  Group* leaf_of(Drawable* d) { return SubEntityIterator(d, d, list_.root).group(); }
  Group* leaf_or_ancestor(Drawable* d) {
    if (in_.pick(3) == 0) return list_.root;
    Group* g = leaf_of(d);
    for (int up = in_.pick(4); up > 0 && g->parent; --up) g = g->parent;
    return g;
  }
  std::ptrdiff_t position(const Drawable* d) const {
    auto it = std::find(model_.begin(), model_.end(), d);
    return it == model_.end() ? -1 : it - model_.begin();
  }
  static bool is_point_like(const Drawable* d) {
    return d->type() == &Dot::_drawable_type_dummy ||
           d->type() == &ColorizedDot::_drawable_type_dummy ||
           d->type() == &test::Box::_drawable_type_dummy;
  }

  // -- Operations -----------------------------------------------------------------
  void step() {
    switch (in_.pick(20)) {
      case 0:
      case 1:
      case 2:
      case 3:
        return add();
      case 4:
        return add_before();
      case 5:
        return remove_at();
      case 6:
        return remove_like();
      case 7:
        return remove_in_rectangle();
      case 8:
        return hide_or_show();
      case 9:
        return set_layer();
      case 10:
        return set_view();
      case 11:
      case 12:
        return draw();
      case 13:
        return walk_iterators();
      case 14:
        return walk_vectors();
      case 15:
        return clone_and_dump();
      case 16:
        return set_clip();
      case 17:
        return close_or_reopen();
      case 18:
        return nested_operation();
      default:
        return add();
    }
  }

  void ensure_open_group() {
    if (!list_.open_group) list_.root->create_open_bottom_group(&list_);
  }

  void add() {
    ensure_open_group();
    Drawable* d = make_drawable();
    if (!d) return fail("allocation failed");
    Group* g = list_.add(d, d->bounds_of());
    if (!g || g->last_drawable() != d)
      return fail("add did not leave the drawable last in its group");
    model_.push_back(d);
  }

  void add_before() {
    if (model_.empty()) return add();
    const std::size_t i = index(model_.size());
    Drawable* existing = model_[i];
    Group* g = leaf_or_ancestor(existing);
    const Group* leaf = leaf_of(existing);
    const int n = 1 + in_.pick(3);
    std::vector<Drawable*> chain;
    WorldBounds b = WorldBounds::empty();
    for (int k = 0; k < n; ++k) {
      chain.push_back(make_drawable());
      if (k) chain[k - 1]->sibling = chain[k];
      chain[k]->add_bounds(b);
    }
    if (list_.add_before(g, existing, chain[0], b) != leaf)
      return fail("add_before did not return the leaf of the drawable");
    model_.insert(model_.begin() + static_cast<std::ptrdiff_t>(i), chain.begin(), chain.end());
    // The host may close the tree at once, while add_before may just have
    // started an empty open group.
    if (in_.pick(4) == 0) host_close();
  }

  void remove_at() {
    if (model_.empty()) return;
    const std::size_t i = index(model_.size());
    Drawable* d = model_[i];
    Group* leaf = leaf_of(d);
    Drawable* previous = nullptr;
    for (Drawable* x = leaf->first_drawable(); x != d; x = x->sibling) previous = x;
    model_.erase(model_.begin() + static_cast<std::ptrdiff_t>(i));
    if (!leaf->remove(d, previous)) fail("removal by position gave no group");
  }

  // Whether a search for `bounds` enters every group above `d`.
  bool searchable(Drawable* d, const WorldBounds& bounds) {
    for (const Group* g = leaf_of(d); g; g = g->parent)
      if (!bounds.is_inside(g->bounds)) return false;
    return true;
  }

  void remove_like() {
    if (model_.empty()) return;
    // The pattern: a copy of a drawable of the list, or a dot somewhere.
    Drawable* pattern =
        in_.pick(3) ? model_[index(model_.size())]->clone() : new Dot(color(), point());
    if (!pattern) return fail("clone failed");
    const Search search{pattern, pattern->type(), pattern->bounds_of(),
                        static_cast<unsigned char>(in_.pick(3) == 0)};
    std::ptrdiff_t expected = -1;
    for (std::size_t k = 0; k < model_.size() && expected < 0; ++k)
      if (model_[k]->remove(search) && searchable(model_[k], search.search_bounds))
        expected = static_cast<std::ptrdiff_t>(k);
    Group* result = list_.root->remove_searched(search);
    discard_copy(pattern);
    if ((result != nullptr) != (expected >= 0))
      return fail(expected >= 0 ? "a search missed its match" : "a search matched nothing known");
    if (expected >= 0 && !search.keep_drawable) model_.erase(model_.begin() + expected);
  }

  // What removal by rectangle takes below `g`: a child group inside the
  // rectangle goes whole; one that only overlaps it is entered; in a leaf each
  // drawable inside it goes (the empty rectangle counts as inside).
  static void removed_by_rectangle(const Group* g, const WorldBounds& r,
                                   std::vector<const Drawable*>& gone) {
    if (g->contains_drawables()) {
      for (const Drawable* d = g->first_drawable(); d; d = d->sibling)
        if (d->bounds_of().is_inside(r)) gone.push_back(d);
      return;
    }
    for (const Group* c = g->first_group(); c; c = c->sibling) {
      if (c->bounds.is_inside(r)) {
        const std::vector<const Drawable*> all = test::drawables_in_order(c);
        gone.insert(gone.end(), all.begin(), all.end());
      } else if (c->bounds.overlaps(r)) {
        removed_by_rectangle(c, r, gone);
      }
    }
  }

  void remove_in_rectangle() {
    const WorldBounds r = rectangle();
    Group* g = model_.empty() ? list_.root : leaf_or_ancestor(model_[index(model_.size())]);
    std::vector<const Drawable*> gone;
    removed_by_rectangle(g, r, gone);
    g->remove_bounded(r);
    std::erase_if(model_, [&](const Drawable* d) {
      return std::find(gone.begin(), gone.end(), d) != gone.end();
    });
  }

  void hide_or_show() {
    if (model_.empty()) return;
    Drawable* d = model_[index(model_.size())];
    const bool was = d->is_hidden();
    const void* type = d->type();
    const WorldBounds b = d->bounds_of();
    if (in_.pick(2)) {
      d->make_hidden();
      if (!d->is_hidden()) fail("make_hidden left the drawable visible");
    } else {
      d->make_visible();
      if (d->is_hidden()) fail("make_visible left the drawable hidden");
    }
    if (d->type() != type || !(d->bounds_of() == b)) fail("hiding changed type or bounds");
    (void)was;
  }

  void set_layer() {
    const int k = in_.pick(4);
    if (k == 3) {
      layers_[in_.pick(3)].shown = in_.byte() & 1;
      return;
    }
    if (model_.empty()) return;
    model_[index(model_.size())]->set_layer(in_.pick(4) == 0 ? nullptr : &layers_[k]);
  }

  void set_view() {
    switch (in_.pick(8)) {
      case 0: {
        // Any world rectangle: inverted, empty and single points included.
        const WorldPoint a = point(), b = point();
        list_.set_world_bounds({a, b});
        break;
      }
      case 1:
        list_.set_world_bounds(rectangle());
        break;
      case 2: {
        // Any screen rectangle: inverted on y is a mirrored view.
        const ScreenBounds s{{static_cast<int>(in_.word()), static_cast<int>(in_.word())},
                             {static_cast<int>(in_.word()), static_cast<int>(in_.word())}};
        list_.set_screen_bounds(s);
        break;
      }
      case 3: {
        const int w = in_.pick(3) == 0 ? 0 : 1 + in_.byte() * 8;
        const int h = in_.pick(3) == 0 ? 0 : 1 + in_.byte() * 8;
        list_.set_screen_bounds(in_.pick(2) ? ScreenBounds{{0, h}, {w, 0}}
                                            : ScreenBounds{{0, 0}, {w, h}});
        break;
      }
      case 4:
        list_.saturate_device_points = !list_.saturate_device_points;
        break;
      case 5:
        list_.use_device_transform = !list_.use_device_transform;
        break;
      case 6:
        list_.device_factor = {special_double(in_), special_double(in_)};
        list_.aspect_ratio = in_.pick(2) ? 1.0 : special_double(in_);
        break;
      default:
        // A tiny world on a big screen: device points far beyond 32 bits.
        list_.set_screen_bounds({{0, 0}, {kMax - 1, kMax - 1}});
        list_.set_world_bounds(
            {{center_, center_},
             {static_cast<WorldCoord>(center_ / 2 + 1), static_cast<WorldCoord>(center_ / 2 + 1)}});
        break;
    }
  }

  void set_clip() {
    switch (in_.pick(4)) {
      case 0:
        list_.rendition.set_complex_clip(nullptr, true);
        break;
      case 1:
        list_.rendition.set_hard_clip({static_cast<int>(in_.word()), static_cast<int>(in_.word()),
                                       static_cast<int>(in_.word()), static_cast<int>(in_.word())},
                                      true);
        break;
      default: {
        // A polygon of 0 to 9 points, or a circle-like one of 24.
        std::vector<ZR_Point> contour;
        if (in_.pick(2)) {
          const float cx = special_float(in_), r = static_cast<float>(in_.byte()) * 4.0f;
          for (int i = 0; i < 24; ++i)
            contour.push_back(
                {cx + r * std::cos(i * 0.2617994f), r * std::sin(i * 0.2617994f), 0.0f});
        } else {
          for (int n = in_.pick(10); n > 0; --n)
            contour.push_back({in_.pick(2) ? special_float(in_) : in_.byte() * 4.0f,
                               in_.pick(2) ? special_float(in_) : in_.byte() * 4.0f, 0.0f});
        }
        ZR_Contour_Set clip = ZR_Contour_Set::make({contour});
        list_.rendition.set_complex_clip(&clip, in_.pick(2) != 0);
        break;
      }
    }
    renderer_->set_complex_clip_supported(in_.pick(4) == 0);
    list_.set_renderer(renderer_);
  }

  void close_or_reopen() {
    if (in_.pick(2)) host_close();
    ensure_open_group();
  }

  // The host closes the tree, whatever its open group holds, and later goes on
  // adding: the root gets the whole plane back, and the next add opens a group.
  // An empty open group goes rather than closing, so no closed leaf is empty.
  void host_close() {
    list_.root->close();
    list_.root->bounds = WorldBounds::everything();
    list_.open_group = list_.first_open_group = nullptr;
  }

  // -- Nested lists ---------------------------------------------------------------
  // Shared lists are borrowed by every drawable that shows them, as a host
  // shows one block at many places; a shared list may show the shared lists
  // made before it (so lists nest twice and more, never in a cycle). Owned
  // lists are filled when their drawable is made and go with it. All of them
  // take their groups and drawables from `nested_heap_`.
  struct SharedList {
    DisplayList* list;
    std::vector<Drawable*> model;  // its drawing order
  };

  void nested_operation() {
    switch (in_.pick(5)) {
      case 0:
      case 1: {
        // A drawable that shows a list, added to the outer list.
        ensure_open_group();
        Drawable* d = make_nested(heap_, shared_.size(), true);
        list_.add(d, d->bounds_of());
        model_.push_back(d);
        return;
      }
      case 2:
        if (shared_.size() < kMaxSharedLists) {
          shared_.push_back({new DisplayList(nested_heap_, capacity_from(in_.byte()), 24), {}});
          fill(shared_.back().list, &shared_.back().model, shared_.size() - 1);
        }
        return;
      case 3: {
        // A shared list grows: what shows it keeps the extent it was given.
        if (shared_.empty()) return;
        const std::size_t k = index(shared_.size());
        add_to_nested(shared_[k].list, &shared_[k].model, k);
        return;
      }
      default: {
        if (shared_.empty()) return;
        SharedList& l = shared_[index(shared_.size())];
        const WorldBounds r = rectangle();
        std::vector<const Drawable*> gone;
        removed_by_rectangle(l.list->root, r, gone);
        l.list->root->remove_bounded(r);
        std::erase_if(l.model, [&](const Drawable* d) {
          return std::find(gone.begin(), gone.end(), d) != gone.end();
        });
        return;
      }
    }
  }

  // A drawable showing an owned list (filled now, when `may_own`) or one of the
  // first `shareable` shared lists (at least one when not `may_own`), from
  // `heap`, under a scale and offset that may
  // mirror, shrink or go past the 32-bit range.
  Drawable* make_nested(ZephalHeap* heap, std::size_t shareable, bool may_own) {
    const bool owned = may_own && (shareable == 0 || in_.pick(3) == 0);
    DisplayList* list;
    if (owned) {
      list = new DisplayList(nested_heap_, capacity_from(in_.byte()), 24);
      fill(list, nullptr, shareable);
    } else {
      list = shared_[index(shareable)].list;
    }
    const bool explicit_bounds = in_.pick(3) == 0;
    const WorldBounds b = explicit_bounds ? rectangle() : WorldBounds::empty();
    auto* d = new (heap) DrawableDisplayList(
        color(), list, explicit_bounds ? &b : nullptr,
        owned ? DrawableDisplayList::Ownership::owned : DrawableDisplayList::Ownership::borrowed);
    static constexpr double kScales[] = {1.0, 2.0, 0.5, -1.0, 1e-3, 1e6};
    switch (in_.pick(4)) {
      case 0:
        break;
      case 1:
        d->set_offset({static_cast<double>(coordinate()), static_cast<double>(coordinate())});
        break;
      case 2:
        d->set_scale({kScales[in_.pick(6)], kScales[in_.pick(6)]});
        d->set_offset({static_cast<double>(in_.byte()) * 64, -static_cast<double>(in_.byte())});
        break;
      default:
        d->set_scale({special_double(in_), special_double(in_)});
        d->set_offset({special_double(in_), special_double(in_)});
        break;
    }
    return d;
  }

  // Adds one to five drawables to `list`; `model` (if any) follows.
  void fill(DisplayList* list, std::vector<Drawable*>* model, std::size_t shareable) {
    for (int n = 1 + in_.pick(5); n > 0; --n) add_to_nested(list, model, shareable);
  }

  void add_to_nested(DisplayList* list, std::vector<Drawable*>* model, std::size_t shareable) {
    if (!list->open_group) list->root->create_open_bottom_group(list);
    Drawable* d;
    if (shareable > 0 && in_.pick(4) == 0) {
      d = make_nested(nested_heap_, shareable, false);
    } else {
      target_heap_ = nested_heap_;
      d = make_drawable();
      target_heap_ = heap_;
    }
    list->add(d, d->bounds_of());
    if (model) model->push_back(d);
  }

  void destroy_shared_lists() {
    for (SharedList& l : shared_) delete l.list;
    shared_.clear();
  }

  static bool is_nested(const Drawable* d) {
    return d->type() == &DrawableDisplayList::_drawable_type_dummy;
  }

  // A nested list drawable compares its scale and offset with ==, so one with a
  // NaN in them matches nothing, not even its clone.
  static bool has_nan_map(const Drawable* d) {
    if (!is_nested(d)) return false;
    const auto* n = static_cast<const DrawableDisplayList*>(d);
    return std::isnan(n->scale().x) || std::isnan(n->scale().y) || std::isnan(n->offset().x) ||
           std::isnan(n->offset().y);
  }

  // Destroys a copy made for a comparison, which must not take an owned
  // nested list with it: the list stays with its drawable.
  static void discard_copy(Drawable* copy) {
    if (is_nested(copy)) {
      auto* n = static_cast<DrawableDisplayList*>(copy);
      if (n->owns_display_list()) {
        const WorldBounds b = n->bounds();
        n->set_display_list(nullptr, &b);
      }
    }
    copy->destroy();
  }

  // Every drawable of every nested list: a selection draw names them while it
  // draws inside a nested list.
  std::unordered_set<const Drawable*> nested_members() const {
    std::unordered_set<const Drawable*> members;
    for (const DisplayList* l : nested_lists())
      for (const Drawable* x : test::drawables_in_order(l->root)) members.insert(x);
    return members;
  }

  // Every nested list reached from the outer list or the shared lists, once.
  std::vector<const DisplayList*> nested_lists() const {
    std::vector<const DisplayList*> lists;
    for (const SharedList& l : shared_) lists.push_back(l.list);
    auto take = [&](const Drawable* d) {
      if (!is_nested(d)) return;
      const DisplayList* l = static_cast<const DrawableDisplayList*>(d)->display_list();
      if (l && std::find(lists.begin(), lists.end(), l) == lists.end()) lists.push_back(l);
    };
    for (const Drawable* d : model_) take(d);
    for (std::size_t k = 0; k < lists.size(); ++k)
      for (const Drawable* d : test::drawables_in_order(lists[k]->root)) take(d);
    return lists;
  }

  void take_selector() {
    if (list_.selector) return;
    list_.selector = renderer_->option_source;
    add_ref(list_.selector);
  }

  // -- Draws ----------------------------------------------------------------------
  void draw() {
    renderer_->clear();
    const WorldBounds outer = rectangle();
    WorldBounds inner = in_.pick(2) ? rectangle() : outer;
    inner.intersect(outer);
    interrupt_pattern_ = in_.pick(2) ? 0u : in_.word();
    interrupt_bit_ = 0;
    const bool has_clip = list_.rendition.complex_clip() != nullptr;
    const bool circled = has_clip && list_.circular_complex_clip();
    Group* root = list_.root;
    switch (in_.pick(12)) {
      case 0:
        root->draw_unclipped(list_);
        break;
      case 1:
        return check_bounded_selection(inner, outer);
      case 2:
        take_selector();
        root->draw_unclipped_selection(list_);
        return check_selection_order(WorldBounds::everything(), false);
      case 3:
        return compare_with_interrupt(
            [&] { root->draw_bounded(list_, inner, outer); },
            [&] { return root->draw_bounded_interrupt(list_, inner, outer); });
      case 4:
        return compare_with_interrupt([&] { root->draw_unclipped(list_); },
                                      [&] { return root->draw_unclipped_interrupt(list_); });
      case 5:
        if (!circled) break;
        return compare_with_interrupt([&] { root->draw_circled(list_); },
                                      [&] { return root->draw_circled_interrupt(list_); });
      case 6:
        if (!has_clip) break;
        return compare_with_interrupt([&] { root->draw_complex(list_); },
                                      [&] { return root->draw_complex_interrupt(list_); });
      case 7:
        if (!circled) break;
        return compare_with_interrupt(
            [&] { root->draw_circled_bounded(list_, inner, outer); },
            [&] { return root->draw_circled_bounded_interrupt(list_, inner, outer); });
      case 8:
        if (!has_clip) break;
        return compare_with_interrupt(
            [&] { root->draw_complex_bounded(list_, inner, outer); },
            [&] { return root->draw_complex_bounded_interrupt(list_, inner, outer); });
      case 9:
        list_.draw_view();
        list_.draw_view_bounded(outer);
        break;
      case 10:
        renderer_->set_selector(in_.pick(2) != 0);
        list_.draw_view_bounded_selection(outer);
        if (DisplayList::is_selector(renderer_->option_source)) {
          renderer_->clear();
          list_.draw_view_selection();
          check_selection_order(list_.visible_bounds, true);
        }
        break;
      default:
        take_selector();
        root->draw_bounded_selection(list_, inner, outer);
        return check_selection_order(outer, true);
    }
  }

  // The plain form, then the interruptible one with a callback that always says
  // go on: the same calls. Then once more, stopped by the byte pattern.
  template <class Plain, class Interruptible>
  void compare_with_interrupt(Plain plain, Interruptible interruptible) {
    const std::uint32_t pattern = interrupt_pattern_;
    // Twice: a nested list keeps its last view when the view of its region is
    // refused, so a draw can depend on the draw before it; the second plain
    // draw and the interruptible one start from the same views.
    plain();
    renderer_->clear();
    plain();
    const std::vector<std::string> expected = renderer_->trace();
    renderer_->clear();
    interrupt_pattern_ = 0;
    if (!interruptible()) return fail("an interruptible draw stopped with no stop asked");
    if (renderer_->trace() != expected)
      return fail("an interruptible draw that ran through differs from its plain form");
    interrupt_pattern_ = pattern;
    renderer_->clear();
    const bool finished = interruptible();
    if (finished && renderer_->calls.size() != expected.size())
      return fail("an interrupted draw that finished drew a different number of calls");
    if (!finished && renderer_->calls.size() > expected.size())
      fail("an interrupted draw drew more than the whole draw");
  }

  void check_bounded_selection(const WorldBounds& inner, const WorldBounds& outer) {
    take_selector();
    renderer_->clear();
    list_.root->draw_bounded_selection(list_, inner, outer);
    check_selection_order(outer, true);
  }

  // The drawables named by the selector in the recorded calls come in model
  // order, and every shown visible dot or box that overlaps `outer` is among them.
  void check_selection_order(const WorldBounds& outer, bool bounded) {
    std::vector<std::ptrdiff_t> seen;
    const std::unordered_set<const Drawable*> nested = nested_members();
    for (const RecordedCall& c : renderer_->calls) {
      const auto* named = static_cast<const Drawable*>(c.selector_drawable);
      const std::ptrdiff_t p = position(named);
      if (p < 0 && nested.count(named)) continue;  // drawn inside a nested list
      if (p < 0) return fail("a draw named a drawable the list does not hold");
      if (seen.empty() || seen.back() != p) seen.push_back(p);
    }
    if (std::adjacent_find(seen.begin(), seen.end(), std::greater_equal<>()) != seen.end()) {
      std::ostringstream s;
      for (auto p : seen) s << p << " ";
      return fail("a selection draw left the drawing order: " + s.str());
    }
    for (std::size_t k = 0; k < model_.size(); ++k) {
      const Drawable* d = model_[k];
      if (d->is_hidden() || !d->shown() || !is_point_like(d)) continue;
      const WorldBounds b = d->bounds_of();
      if (b == WorldBounds::empty() || (bounded && !b.overlaps(outer))) continue;
      if (!std::binary_search(seen.begin(), seen.end(), static_cast<std::ptrdiff_t>(k))) {
        std::ostringstream s;
        s << "a selection draw missed drawable " << k << " at (" << b.min.x << "," << b.min.y
          << ")-(" << b.max.x << "," << b.max.y << "), rectangle (" << outer.min.x << ","
          << outer.min.y << ")-(" << outer.max.x << "," << outer.max.y << ")";
        return fail(s.str());
      }
    }
  }

  // -- Iterators and vectors ------------------------------------------------------
  void walk_iterators() {
    if (model_.empty()) return;
    const std::size_t i = index(model_.size());
    const std::size_t j = i + index(model_.size() - i);
    std::vector<const Drawable*> range;
    for (Drawable* d : SubEntityIterator(model_[i], model_[j], list_.root)) range.push_back(d);
    if (!std::equal(range.begin(), range.end(), model_.begin() + static_cast<std::ptrdiff_t>(i),
                    model_.begin() + static_cast<std::ptrdiff_t>(j) + 1))
      return fail("the sub-entity walk is not the range of the model");

    const Drawable::ColorData c = color();
    DisplayListColorIterator by_color(&list_, c);
    std::vector<const Drawable*> colored, expected;
    while (Drawable* d = by_color.advance()) colored.push_back(d);
    // The item the walk starts on is not tested: the first drawable, or the
    // stand-in of an empty first leaf.
    for (std::size_t k = by_color.at_sentinel() ? 0 : 1; k < model_.size(); ++k)
      if (model_[k]->color == c) expected.push_back(model_[k]);
    if (colored != expected) return fail("the colour walk differs from the model");

    const WorldBounds r = rectangle();
    DisplayListBoundedColorIterator bounded_color(&list_, r, c);
    while (Drawable* d = bounded_color.advance())
      if (d->color != c || position(d) < 0) return fail("the bounded colour walk gave a stranger");
  }

  void walk_vectors() {
    if (model_.empty()) return;
    Drawable* d = model_[index(model_.size())];
    const int count = d->get_vector_count();
    if (count < 0) return fail("a negative vector count");
    WorldVector v{};
    for (int k = 0; k < std::min(count, 64); ++k) d->get_vector(k, v);
    const bool fast = in_.pick(2) != 0;
    // An ellipse's iterator makes all its vectors at once, millions for a
    // large one: a budget per input keeps such walks from taking over the run.
    if (count > vector_budget_) return;
    vector_budget_ -= count;
    DrawableVectorIterator* it = d->create_vector_iterator(fast);
    if (!it) return;
    int steps = 0;
    while (steps < 300 && it->next()) ++steps;
    for (int back = in_.pick(8); back > 0 && it->prev(); --back) {
    }
    delete it;
    // The plain iterator too, where the class offers fast vectors.
    DrawableVectorIterator plain;
    if (plain.initialize(d))
      for (int k = 0; k < 300 && plain.next(); ++k) {
      }
  }

  void clone_and_dump() {
    if (model_.empty()) return;
    Drawable* d = model_[index(model_.size())];
    Drawable* copy = d->clone();
    if (!copy) return fail("clone failed");
    const Search search{copy, copy->type(), copy->bounds_of(), 0};
    // A drawable without a fixed representation (an ellipse) works its extent
    // out in the view's pixel shape of its first measure, so a copy made under
    // another view may have other bounds.
    if (copy->type() != d->type() || copy->is_hidden() != d->is_hidden() || copy->sibling ||
        copy->layer() || (d->has_fixed_representation() && !(copy->bounds_of() == d->bounds_of())))
      fail("a clone differs from its source");
    if (!d->remove(search) && !has_nan_map(d)) fail("a drawable does not match its clone");
    discard_copy(copy);
    const int count = d->get_vector_count();
    if (count > 0) {
      const int first = static_cast<int>(index(static_cast<std::size_t>(count)));
      const int n = 1 + static_cast<int>(index(static_cast<std::size_t>(count - first)));
      if (Drawable* part = d->partial_clone(first, n)) {
        if (part->is_hidden()) fail("a partial clone is hidden");
        discard_copy(part);
      }
    }
    std::ostringstream out;
    DisplayListDebug debug{};
    for (const Drawable* x : model_) x->dump(out, 1, debug);
    const std::string text = out.str();
    if (std::count(text.begin(), text.end(), '\n') != static_cast<std::ptrdiff_t>(model_.size()))
      fail("the dumps did not write one line per drawable");
  }

  // -- The checks, every kCheckEvery operations and after the last ------------------
  void check() {
    check_tree();
    if (problem_.empty()) compare_walks();
    if (problem_.empty()) check_nested();
  }

  // The tree against the model, and the heap against the tree.
  void check_tree() {
    const std::vector<const Drawable*> expected(model_.begin(), model_.end());
    const std::vector<std::string> problems = test::tree_problems(list_, &expected);
    if (!problems.empty()) return fail("tree: " + problems.front());
    const test::GroupCounts groups = test::count_groups(list_.root);
    const std::size_t blocks =
        model_.size() + static_cast<std::size_t>(groups.interior + groups.bottom + groups.open) +
        GroupIndex::blocks_below(list_.root);
    if (ZP_HeapStatistics(heap_).live_blocks != blocks)
      fail("the list's heap holds blocks that are neither drawables nor groups");
  }

  // The walks against the model: the forward walk is the model, the reverse
  // walk over the whole plane the model reversed, and the bounded walks give
  // every drawable that overlaps their rectangle, in order. This is the one
  // place where a walk is held against the plain list; a faster path beside the
  // tree adds its comparison here.
  void compare_walks() {
    const std::vector<const Drawable*> expected(model_.begin(), model_.end());
    std::vector<const Drawable*> forward;
    for (Drawable* d : DisplayListIterator(&list_))
      if (d->type()) forward.push_back(d);
    if (forward != expected) return fail("the forward walk differs from the model");

    std::vector<const Drawable*> backward;
    for (Drawable* d : DisplayListReverseIterator(&list_, WorldBounds::everything()))
      backward.push_back(d);
    if (!std::equal(backward.begin(), backward.end(), expected.rbegin(), expected.rend()))
      return fail("the reverse walk is not the model reversed");

    const WorldBounds r = rectangle();
    std::vector<std::ptrdiff_t> bounded, reverse_bounded;
    for (Drawable* d : DisplayListBoundedIterator(&list_, r)) bounded.push_back(position(d));
    for (Drawable* d : DisplayListReverseIterator(&list_, r))
      reverse_bounded.push_back(position(d));
    if (std::count(bounded.begin(), bounded.end(), -1) ||
        std::count(reverse_bounded.begin(), reverse_bounded.end(), -1))
      return fail("a bounded walk gave a drawable the list does not hold");
    if (std::adjacent_find(bounded.begin(), bounded.end(), std::greater_equal<>()) !=
            bounded.end() ||
        std::adjacent_find(reverse_bounded.begin(), reverse_bounded.end(), std::less_equal<>()) !=
            reverse_bounded.end())
      return fail("a bounded walk left the drawing order");
    std::sort(reverse_bounded.begin(), reverse_bounded.end());
    for (std::size_t k = 0; k < model_.size(); ++k) {
      if (!model_[k]->bounds_of().overlaps(r)) continue;
      const auto p = static_cast<std::ptrdiff_t>(k);
      if (!std::binary_search(bounded.begin(), bounded.end(), p) ||
          !std::binary_search(reverse_bounded.begin(), reverse_bounded.end(), p))
        return fail("a bounded walk missed a drawable that overlaps its rectangle");
    }
    compare_indexed_walks(r);
  }

  // The walks by rectangle with the indexes of wide groups used and not: the
  // same calls, the same interruptions, the same drawables. Each is run after
  // one plain walk of the same kind, since a nested list keeps the view of the
  // draw before when its region's view is refused.
  void compare_indexed_walks(const WorldBounds& r) {
    WorldBounds inner = r;
    inner.intersect(list_.world_bounds);
    const std::uint32_t pattern = interrupt_pattern_;
    auto walks = [&] {
      std::vector<std::string> out;
      renderer_->clear();
      list_.root->draw_bounded(list_, inner, r);
      out = renderer_->trace();
      renderer_->clear();
      interrupt_pattern_ = pattern;
      interrupt_bit_ = 0;
      const int counter = list_.interrupt_counter;
      out.push_back(list_.root->draw_bounded_interrupt(list_, inner, r) ? "ran" : "stopped");
      out.push_back(std::to_string(list_.interrupt_counter));
      list_.interrupt_counter = counter;
      for (const std::string& line : renderer_->trace()) out.push_back(line);
      renderer_->clear();
      std::ostringstream drawables;
      for (Drawable* d : DisplayListBoundedIterator(&list_, r)) drawables << d << ' ';
      drawables << "| ";
      for (Drawable* d : DisplayListReverseIterator(&list_, r)) drawables << d << ' ';
      out.push_back(drawables.str());
      return out;
    };
    GroupIndexSettings::set_enabled(false);
    walks();
    const std::vector<std::string> plain = walks();
    GroupIndexSettings::set_enabled(true);
    const std::vector<std::string> indexed = walks();
    interrupt_pattern_ = pattern;
    if (plain != indexed)
      fail("a walk through the indexes of wide groups differs from the plain walk");
  }

  // Every nested list is a sound tree, the shared ones in their model's order,
  // and a drawable that shows a list under the plain map reports the region it
  // shows as its extent.
  void check_nested() {
    for (const SharedList& l : shared_) {
      const std::vector<const Drawable*> expected(l.model.begin(), l.model.end());
      const std::vector<std::string> problems = test::tree_problems(*l.list, &expected);
      if (!problems.empty()) return fail("shared nested list: " + problems.front());
    }
    for (const DisplayList* l : nested_lists()) {
      const std::vector<std::string> problems = test::tree_problems(*l);
      if (!problems.empty()) return fail("nested list: " + problems.front());
    }
    for (const Drawable* d : model_) {
      if (!is_nested(d)) continue;
      const auto* n = static_cast<const DrawableDisplayList*>(d);
      const bool plain = n->scale().x == 1.0 && n->scale().y == 1.0 && n->offset().x == 0.0 &&
                         n->offset().y == 0.0;
      if (plain && !(n->bounds() == WorldBounds::empty()) && n->bounds().is_valid() &&
          !(n->mapped_bounds() == n->bounds()))
        return fail("a nested list under the plain map reports another extent");
    }
  }

  Reader in_;
  ZephalHeap* heap_;
  // Declared before the list, so that they outlive it: texts point at them.
  ZR_Font font_ = ZR_Font(new ZR_Font_Data);
  ZR_Rendition own_rendition_ = ZR_Rendition::create();
  DisplayList list_;
  RecordingRenderer* renderer_ = nullptr;
  RecordingTextEngine* engine_ = nullptr;
  std::vector<Drawable*> model_;
  ZephalHeap* nested_heap_ = ZP_CreateHeap();
  // Where make_drawable takes its blocks: heap_, or nested_heap_ while a nested
  // list is filled.
  ZephalHeap* target_heap_ = heap_;
  std::vector<SharedList> shared_;
  int vector_budget_ = kVectorBudget;
  Extra_Layer_Info layers_[3] = {{1}, {0}, {1}};
  WorldCoord center_ = 0;
  std::uint32_t interrupt_pattern_ = 0;
  std::uint32_t interrupt_bit_ = 0;
  int operation_ = 0;
  std::string problem_;
};

}  // namespace

std::string run_operations(const std::uint8_t* data, std::size_t size) {
  const std::size_t before = ZP_HeapStatistics().live_blocks;
  std::string problem;
  {
    Run run(data, size);
    problem = run.execute();
  }
  if (problem.empty() && ZP_HeapStatistics().live_blocks != before)
    problem = "the default heap keeps blocks after the run";
  return problem;
}

}  // namespace DL::fuzz
