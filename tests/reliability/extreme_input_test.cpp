// Every class on extreme input: coordinates at both ends of the 32-bit range,
// views that map far beyond 32 bits (plain and saturating), views of zero
// extent and mirrored ones, NaN and infinite angles and heights, zero radii,
// empty and long strings, and counts 0, 1, 256, 257 and large. Run under the
// address and undefined-behaviour sanitizers by the test script: the answers
// must be defined, and every list ends with an empty heap.
#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include "backends/recording/recording.h"
#include "backends/recording/recording_text.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "drawables/polything.h"
#include "drawables/polytriangle.h"
#include "ellipse/ellipse.h"
#include "iterators/display_list_iterator.h"
#include "iterators/filtered_iterators.h"
#include "iterators/reverse_iterator.h"
#include "tests/support/test_drawables.h"
#include "tests/support/tree_check.h"
#include "text/text.h"

namespace DL {
namespace {

constexpr WorldCoord kMin = std::numeric_limits<WorldCoord>::min();
constexpr WorldCoord kMax = std::numeric_limits<WorldCoord>::max();
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInf = std::numeric_limits<float>::infinity();

// A list on a heap of its own, with a recording renderer and text engine; the
// heap must be empty once the list is gone.
struct Scene {
  ZephalHeap* heap = ZP_CreateHeap();
  DisplayList* list;
  RecordingRenderer* renderer = new RecordingRenderer;
  RecordingTextEngine* engine = new RecordingTextEngine;
  ZR_Font font = ZR_Font(new ZR_Font_Data);
  std::vector<const Drawable*> order;

  explicit Scene(int capacity = kDefaultGroupCapacity, int limit = kDefaultLevelLimit)
      : list(new DisplayList(heap, capacity, limit)) {
    list->set_renderer(renderer);
    add_ref(engine);
    list->text_engine = engine;
    list->set_screen_bounds({{0, 0}, {1023, 767}});
    list->set_world_bounds({{-1000, -1000}, {1000, 1000}});
  }
  ~Scene() {
    delete list;
    EXPECT_EQ(ZP_HeapStatistics(heap).live_blocks, 0u);
    ZP_DestroyHeap(heap);
  }
  Drawable* add(Drawable* d) {
    list->add(d, d->bounds_of());
    order.push_back(d);
    return d;
  }
  // Every draw family and walk over the list; none may misbehave. The vector
  // walks are left out where infinite sweeps would each give the largest count.
  void draw_everything(bool walk_vectors = true) {
    list->draw_view();
    list->draw_view_bounded(WorldBounds::everything());
    list->root->draw_unclipped(*list);
    list->root->draw_bounded(*list, WorldBounds::everything(), WorldBounds::everything());
    list->interrupt_callback = [](void*) { return true; };
    EXPECT_TRUE(list->root->draw_unclipped_interrupt(*list));
    renderer->set_selector(true);
    list->draw_view_selection();
    for (const Drawable* d : order) {
      Drawable* x = const_cast<Drawable*>(d);
      DrawableVectorIterator* it = walk_vectors ? x->create_vector_iterator(false) : nullptr;
      for (int k = 0; it && k < 1000 && it->next(); ++k) {
      }
      delete it;
      Drawable* copy = x->clone();
      ASSERT_TRUE(copy);
      copy->destroy();
    }
    std::vector<const Drawable*> walked;
    for (Drawable* d : DisplayListIterator(list))
      if (d->type()) walked.push_back(d);
    EXPECT_EQ(walked, order);
    std::size_t reversed = 0;
    for (Drawable* d : DisplayListReverseIterator(list, WorldBounds::everything())) {
      (void)d;
      ++reversed;
    }
    EXPECT_EQ(reversed, order.size());
    EXPECT_TRUE(test::tree_is_valid(*list, &order));
  }
};

TEST(ExtremeInput, DotsAtTheEndsOfTheRangeUnderViewsBeyond32Bits) {
  Scene s(1, 31);
  const WorldPoint corners[] = {{kMin, kMin}, {kMax, kMax}, {kMin, kMax}, {kMax, kMin}, {0, 0}};
  for (const WorldPoint& p : corners) s.add(new (s.heap) Dot(1, p));
  s.add(new (s.heap) ColorizedDot(2, {kMax, kMax}, 3));
  s.add(new (s.heap) test::Box(WorldBounds::everything()));
  s.add(new (s.heap) test::Box(WorldBounds::empty()));
  s.draw_everything();

  // A tiny world on a big screen: the corners land far beyond 32 bits.
  s.list->set_screen_bounds({{0, 0}, {kMax - 1, kMax - 1}});
  s.list->set_world_bounds({{0, 0}, {1, 1}});
  ZR_DCI_Point plain{}, saturated{};
  s.list->world_to_screen({kMax, kMin}, plain);
  s.list->world_to_screen_saturated({kMax, kMin}, saturated);
  EXPECT_EQ(plain.x, kMin);  // the plain form: out of range gives the lowest value
  EXPECT_EQ(plain.y, kMin);
  EXPECT_EQ(saturated.x, kMax);  // the saturating form keeps the side
  EXPECT_EQ(saturated.y, kMin);
  s.renderer->clear();
  s.list->root->draw_unclipped(*s.list);
  EXPECT_EQ(s.renderer->calls.front().points.front().x, kMin);
  s.list->saturate_device_points = true;
  s.renderer->clear();
  s.list->root->draw_unclipped(*s.list);
  EXPECT_EQ(s.renderer->calls.front().points.front().x, kMin);  // (kMin, kMin) stays low
  EXPECT_EQ(s.renderer->calls[1].points.front().x, kMax);
  s.draw_everything();

  // Searching and removal at the corners.
  Dot pattern(0, {kMax, kMax});
  const Search search{&pattern, pattern.type(), pattern.bounds_of(), 0};
  EXPECT_TRUE(s.list->root->remove_searched(search));
  s.order.erase(s.order.begin() + 1);
  s.list->root->remove_bounded({{kMin, kMin}, {kMin, kMin}});
  s.order.erase(s.order.begin());
  EXPECT_TRUE(test::tree_is_valid(*s.list, &s.order));
  s.list->root->remove_bounded(WorldBounds::everything());
  s.order.clear();
  EXPECT_TRUE(test::tree_is_valid(*s.list, &s.order));
}

TEST(ExtremeInput, ViewsOfZeroExtentInvertedAndMirrored) {
  Scene s;
  const DoublePoint scale = s.list->scale, offset = s.list->offset;
  const WorldBounds visible = s.list->visible_bounds;
  auto unchanged = [&] {
    return s.list->scale.x == scale.x && s.list->scale.y == scale.y &&
           s.list->offset.x == offset.x && s.list->offset.y == offset.y &&
           s.list->visible_bounds == visible;
  };
  // Refused, leaving the old view in force: zero-extent worlds (infinite
  // scale), zero-extent screens (scale 0), inverted x, the empty world, and an
  // aspect ratio that is 0 or not finite.
  s.list->set_world_bounds({{5, -1000}, {5, 1000}});
  EXPECT_TRUE(unchanged());
  s.list->set_world_bounds({{-1000, 7}, {1000, 7}});
  EXPECT_TRUE(unchanged());
  s.list->set_world_bounds({{9, 9}, {9, 9}});
  EXPECT_TRUE(unchanged());
  s.list->set_world_bounds(WorldBounds::empty());
  EXPECT_TRUE(unchanged());
  s.list->set_world_bounds({{1000, -1000}, {-1000, 1000}});
  EXPECT_TRUE(unchanged());
  s.list->set_world_bounds({{-1000, -1000}, {1000, 1000}});
  s.list->set_screen_bounds({{0, 0}, {0, 767}});
  EXPECT_TRUE(unchanged());
  s.list->set_screen_bounds({{0, 5}, {1023, 5}});
  EXPECT_TRUE(unchanged());
  s.list->set_screen_bounds({{1023, 0}, {0, 767}});
  EXPECT_TRUE(unchanged());
  for (double aspect : {0.0, std::nan(""), static_cast<double>(kInf)}) {
    s.list->aspect_ratio = aspect;
    s.list->set_screen_bounds({{0, 0}, {1023, 768}});
    EXPECT_TRUE(unchanged()) << aspect;
    s.list->set_screen_bounds({{0, 0}, {1023, 767}});
  }
  s.list->aspect_ratio = 1.0;
  s.list->set_screen_bounds({{0, 0}, {1023, 768}});
  EXPECT_FALSE(unchanged());

  // A mirrored view (screen y inverted) is a view like any other.
  s.list->set_screen_bounds({{0, 767}, {1023, 0}});
  EXPECT_LT(s.list->scale.y, 0.0);
  s.add(new (s.heap) Ellipse(1, {0, 0}, {100, 50}, 0.3f, s.list));
  s.add(new (s.heap) Dot(1, {kMin, kMax}));
  s.draw_everything();
  // The whole plane on one pixel row and on a huge screen.
  s.list->set_world_bounds(WorldBounds::everything());
  s.list->set_screen_bounds({{kMin, kMin}, {kMax, kMax}});
  EXPECT_TRUE(std::isfinite(s.list->scale.x));
  s.draw_everything();
  int p[2] = {kMax, kMin};
  WorldPoint w{};
  s.list->screen_to_world(p, w);
  EXPECT_EQ(w.x, kMax);
  EXPECT_EQ(w.y, kMin);
}

TEST(ExtremeInput, EllipsesWithZeroHugeAndNaNMeasures) {
  Scene s(2, 31);
  // A wide view keeps the counts of vectors small until the huge view below.
  s.list->set_world_bounds({{-1000000000, -1000000000}, {1000000000, 1000000000}});
  const float angles[] = {0.0f, kNaN, kInf, -kInf, 1e30f, -7.0f};
  // Unrotated ellipses whose sweep counts as whole are bounded in integers and
  // must keep center +- radii in range (a precondition): those far out turn.
  for (float a : angles) {
    const float turned = a == 0.0f ? 1.0f : a;
    for (float b : angles) {
      s.add(new (s.heap) EllipticalArc(1, {kMin, kMax}, {kMax, kMax}, turned, b, a, s.list));
      s.add(new (s.heap) EllipticalPie(1, {0, 0}, {0, 0}, b, a, b, s.list));
      s.add(new (s.heap)
                ColorizedEllipse(1, {kMax, 0}, {kMax, 0}, turned, a, b, 2, a == b, s.list));
    }
    s.add(new (s.heap) Ellipse(1, {0, 0}, {kMax, kMax}, turned, s.list));
  }
  // An unrotated whole ellipse that just fits, and one of zero size.
  s.add(new (s.heap) Ellipse(1, {0, 0}, {kMax, kMax}, 0.0f, s.list));
  s.add(new (s.heap) Ellipse(1, {kMin, kMin}, {0, 0}, 0.0f, s.list));
  for (const Drawable* d : s.order) {
    const WorldBounds b = d->bounds_of();
    EXPECT_TRUE(b.is_valid());
    const int n = d->get_vector_count();
    EXPECT_GE(n, 2);
    EXPECT_LE(n, kMaxEllipseVectors);
    // A copy, NaN angles and all, is found by a search.
    Drawable* copy = d->clone();
    EXPECT_TRUE(d->remove(Search{copy, copy->type(), copy->bounds_of(), 0}));
    copy->destroy();
  }
  s.draw_everything(false);
  // A huge world view: the largest counts of vectors, walked to the end once.
  s.list->set_world_bounds({{0, 0}, {1, 1}});
  s.list->set_screen_bounds({{0, 0}, {kMax - 1, kMax - 1}});
  Ellipse big(1, {0, 0}, {kMax, kMax}, 0.0f, s.list);
  EXPECT_EQ(big.get_vector_count(), kMaxEllipseVectors);
  DrawableVectorIterator* it = big.create_vector_iterator(false);
  int vectors = 1;  // the first is current from the start
  while (it->next()) ++vectors;
  EXPECT_EQ(vectors, kMaxEllipseVectors);
  delete it;
}

TEST(ExtremeInput, TextWithEmptyLongAndNaNStrings) {
  Scene s;
  const double heights[] = {0.0, -10.0, 1e-300, 1e300, std::nan(""), HUGE_VAL, -HUGE_VAL, 10.0};
  const std::string long_text(100000, 'x');
  const int lengths[] = {0, 1, 256, 257, 100000};
  for (double h : heights) {
    for (int n : lengths) {
      s.add(new (s.heap) Text(ZR_RGB32{1}, s.font, {double(kMax), double(kMin)}, long_text.c_str(),
                              n, h, h, {{kMin, kMin}, {kMax, kMax}}, s.list, n % 2 == 0));
    }
    const unsigned short units[] = {0xD800, 0, 0xFFFF};
    s.add(new (s.heap)
              Text(ZR_RGB32{1}, s.font, {0, 0}, units, 3, 10.0, h, {{0, 0}, {1, 1}}, s.list, true));
  }
  // The bare forms: no string at all, no font; the host names the list.
  ZR_Rendition own = ZR_Rendition::create();
  for (Text* bare : {new (s.heap) Text(ZR_RGB32{2}), new (s.heap) Text(&own)}) {
    bare->display_list = s.list;
    s.add(bare);
  }
  for (const Drawable* d : s.order) {
    Text* t = static_cast<Text*>(const_cast<Drawable*>(d));
    DoublePoint box[4];
    t->get_text_bbox(box);
    (void)t->height(*s.list);
  }
  s.draw_everything();
  s.list->use_device_transform = true;
  s.list->device_factor = {1e10, -1e10};
  s.list->compute_device_bounds(s.list->screen_bounds);
  s.draw_everything();
}

TEST(ExtremeInput, CountsOfDrawablesInOneCellAndOneGroup) {
  // 0, 1, 256, 257 and many drawables on one point: the level limit holds the
  // tree; capacity 1 splits at every step.
  for (int n : {0, 1, 256, 257, 5000}) {
    for (int capacity : {1, 256}) {
      Scene s(capacity, 31);
      for (int i = 0; i < n; ++i) s.add(new (s.heap) Dot(1, {kMax, kMax}));
      EXPECT_TRUE(test::tree_is_valid(*s.list, &s.order)) << n << " " << capacity;
      EXPECT_LE(test::count_groups(s.list->root).max_level, 31);
      s.list->root->remove_bounded({{kMax, kMax}, {kMax, kMax}});
      s.order.clear();
      EXPECT_TRUE(test::tree_is_valid(*s.list, &s.order));
    }
  }
}

// Regressions: a point list left without points (count 0, or a point array the
// heap could not give: `points` null and `count` 0) read points[0] in every
// draw but Polysegment's; and a strip of INT_MAX points overflowed
// `(count + 1) / 2` in its outline and read points[-3].
TEST(ExtremeInput, PointListsAndStripsAtZeroPointsAndThe32BitLimits) {
  const WorldPoint three[3] = {{kMin, kMin}, {kMax, kMax}, {kMin, kMax}};
  static const ZR_RGB32 colors[3] = {1, 2, 3};
  static const ZR_Vertex_Parameters parameters[3] = {};
  using Make = Polything* (*)(int n, const WorldPoint* p, ZephalHeap* h);
  const Make classes[] = {
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) Polydot(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) Polygon(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) Polyline(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) GouraudPolyline(1, n, p, colors);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) Polymarker(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) Polysegment(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) PolytriangleWithNoBorder(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) Polytriangle(1, n, p, h);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) GouraudPolytriangle(1, n, p, colors);
      },
      [](int n, const WorldPoint* p, ZephalHeap* h) -> Polything* {
        return new (h) TexturedPolytriangle(1, n, p, colors, parameters, nullptr, nullptr);
      },
  };
  {
    Scene s;
    s.list->rendition.set_face_mode(64, true);  // strips draw their border too
    for (Make make : classes) {
      s.add(make(0, nullptr, s.heap));  // no points at all
      // What a failed point array leaves behind.
      Polything* failed = make(3, three, s.heap);
      ZP_ReleaseMemory(failed->points);
      failed->points = nullptr;
      failed->count = 0;
      s.add(failed);
    }
    s.renderer->clear();
    s.draw_everything();
    // An empty list draws nothing in any family (its bounds are empty too, so
    // not even a selection draw of them).
    for (const auto& call : s.renderer->calls) ADD_FAILURE() << call.entry << " " << call.count;
  }

  // The outline of a strip of INT_MAX points: the even points up to
  // 2^31 - 2, then the odd points down to 1.
  using Strip = PolytriangleWithNoBorder;
  EXPECT_EQ(Strip::outline_index(0, INT_MAX), 0);
  EXPECT_EQ(Strip::outline_index(1073741823, INT_MAX), 2147483646);
  EXPECT_EQ(Strip::outline_index(1073741824, INT_MAX), 2147483645);
  EXPECT_EQ(Strip::outline_index(INT_MAX - 1, INT_MAX), 1);
  EXPECT_EQ(Strip::outline_index(1073741822, INT_MAX - 1), 2147483644);
  EXPECT_EQ(Strip::outline_index(1073741823, INT_MAX - 1), 2147483645);
  EXPECT_EQ(Strip::outline_index(INT_MAX - 2, INT_MAX - 1), 1);
  for (int n = 1; n <= 6; ++n) {  // small strips: every point once
    std::vector<int> seen(static_cast<std::size_t>(n), 0);
    for (int i = 0; i < n; ++i) ++seen[static_cast<std::size_t>(Strip::outline_index(i, n))];
    EXPECT_EQ(seen, std::vector<int>(static_cast<std::size_t>(n), 1)) << n;
  }
  // The last outline vector of such a strip closes from point 1 to point 0;
  // only those two points are read.
  Strip strip(1, 3, three);
  strip.count = INT_MAX;
  WorldVector v{};
  EXPECT_TRUE(strip.get_vector(INT_MAX - 1, v));
  EXPECT_EQ(v.start, three[1]);
  EXPECT_EQ(v.end, three[0]);
  strip.count = 3;
}

}  // namespace
}  // namespace DL
