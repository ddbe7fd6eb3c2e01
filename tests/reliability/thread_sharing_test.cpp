// Counted objects shared between threads: lists drawn at once from several
// threads share one renderer, one text engine, one font, one image and one
// complex clip; references are added and dropped from many threads, some of
// them holding the global lock already. Run under ThreadSanitizer by the test
// script; every count must come out exact.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "ellipse/ellipse.h"
#include "foundation/zephal.h"
#include "text/text.h"
#ifdef DL_HAVE_FREETYPE
#include "backends/freetype/freetype_engine.h"
#include "tests/support/fontconfig_leaks.h"
#endif

namespace DL {
namespace {

constexpr int kThreads = 4;

// A renderer whose entries may be called from any thread: it only counts.
struct CountingRenderer : ZR_Renderer {
  std::atomic<long> dots{0}, ellipses{0}, strips{0};
  CountingRenderer() {
    auto dot = [](void* self, ZR_Rendition*, const ZR_DCI_Point*, const ZR_RGB32*) {
      static_cast<CountingRenderer*>(self)->dots.fetch_add(1, std::memory_order_relaxed);
    };
    auto ellipse = [](void* self, ZR_Rendition*, const ZR_DCI_Point*, const ZR_DCI_Point*, double,
                      double, double, const ZR_RGB32*) {
      static_cast<CountingRenderer*>(self)->ellipses.fetch_add(1, std::memory_order_relaxed);
    };
    auto strip = [](void* self, ZR_Rendition*, int, const ZR_DCI_Point*) {
      static_cast<CountingRenderer*>(self)->strips.fetch_add(1, std::memory_order_relaxed);
    };
    dot_clipped = dot_unclipped = {this, dot};
    elliptical_arc_clipped = elliptical_arc_unclipped = {this, ellipse};
    elliptical_pie_clipped = elliptical_pie_unclipped = {this, ellipse};
    triangles_clipped = triangles_unclipped = {this, strip};
  }
  long total() const { return dots + ellipses + strips; }
};

// A fixed-pitch engine that any thread may call: every character is one shared
// contour set, so outlines are counted from all threads at once.
struct SharedFixedEngine : ZR_Text_Engine {
  ZR_Contour_Set outline = ZR_Contour_Set::make({{{0, 0, 0}, {5, 0, 0}, {5, 7, 0}, {0, 7, 0}}});
  std::atomic<long> draws{0};

  ZR_Font prepare_font(ZR_Font* font) override { return font ? *font : ZR_Font(); }
  void draw_unicode_text(ZR_Rendition*, const ZR_Point*, const unsigned short*, int) override {
    draws.fetch_add(1, std::memory_order_relaxed);
  }
  void draw_multibyte_text(ZR_Rendition*, const ZR_Point*, const unsigned char*, int) override {
    draws.fetch_add(1, std::memory_order_relaxed);
  }
  ZR_Contour_Set character_contour(ZR_Rendition* r, unsigned short,
                                   ZR_Character_Metrics* m) override {
    const float size = r->text_attributes().size;
    *m = {0, 0, 0.5f * size, 0.7f * size, 0, 0.6f * size, 0};
    return outline;
  }
  void font_metrics(ZR_Rendition*, ZR_Font_Metrics* m) override { *m = {1, 0.8f, -0.2f, {}}; }
  void measure(ZR_Rendition* r, const ZR_Point* start, int length, ZR_Point* corners,
               ZR_Text_Detail* detail) {
    const float size = r->text_attributes().size, w = 0.6f * size * static_cast<float>(length);
    corners[0] = {start->x, start->y - 0.2f * size, 0};
    corners[1] = {start->x + w, start->y - 0.2f * size, 0};
    corners[2] = {start->x + w, start->y + 0.8f * size, 0};
    corners[3] = {start->x, start->y + 0.8f * size, 0};
    if (detail && detail->widths)
      for (int i = 0; i < length; ++i) detail->widths[i] = 0.6f * size;
  }
  void measure_unicode_text(ZR_Rendition* r, const ZR_Point* start, const unsigned short*,
                            int length, ZR_Point* corners, int, ZR_Text_Detail* detail) override {
    measure(r, start, length, corners, detail);
  }
  void measure_multibyte_text(ZR_Rendition* r, const ZR_Point* start, const unsigned char*,
                              int length, ZR_Point* corners, int, ZR_Text_Detail* detail) override {
    measure(r, start, length, corners, detail);
  }
};

#ifdef DL_HAVE_FREETYPE
// Where the FreeType engine hands its glyphs; called from every drawing thread.
struct CountingSink : ZR_Glyph_Sink {
  std::atomic<long> glyph_count{0};
  void glyphs(ZR_Rendition*, const ZR_Point*, int count, const ZR_Placed_Glyph*) override {
    glyph_count.fetch_add(count, std::memory_order_relaxed);
  }
};
#endif

struct Shared {
  CountingRenderer* renderer;
  ZR_Text_Engine* engine;
  ZR_Font font;
  ZR_Image image;
  ZR_Contour_Set clip;
};

// One thread's work: a list of its own on a heap of its own, drawn over and
// over through the shared objects, with copies of their handles taken and
// dropped on the way. Returns the blocks left on its heap (0 when all is well).
std::size_t draw_a_list(const Shared& s, int rounds) {
  ZephalHeap* heap = ZP_CreateHeap();
  {
    DisplayList list(heap, 4);
    list.set_renderer(s.renderer);
    add_ref(s.engine);
    list.text_engine = s.engine;
    list.set_screen_bounds({{0, 0}, {511, 511}});
    list.set_world_bounds({{0, 0}, {10000, 10000}});
    for (int i = 0; i < 40; ++i) {
      const WorldCoord x = i * 250, y = (i * 7919) % 10000;
      list.add(new (heap) Dot(0x10, {x, y}), {{x, y}, {x, y}});
      auto* e = new (heap) Ellipse(0x20, {x, y}, {50, 30}, 0.5f, &list);
      list.add(e, e->bounds_of());
      auto* t = new (heap) Text(ZR_RGB32{0x30}, s.font, {double(x), double(y)}, "Abc", 3, 120.0,
                                0.25, {{x, y}, {x + 300, y + 120}}, &list, false);
      list.add(t, t->bounds);
    }
    for (int r = 0; r < rounds; ++r) {
      // The clip on and off: the contour set is referenced from every thread.
      if (r % 2) {
        list.rendition.set_complex_clip(&s.clip, false);
      } else {
        list.rendition.set_complex_clip(nullptr, false);
      }
      list.draw_view();
      list.root->draw_unclipped(list);
      ZR_Image image = s.image;
      ZR_Font font = s.font;
      // Outlines through the engine, and a copy that shares the font.
      for (Drawable* d = list.root->first_group()->first_drawable(); d; d = d->sibling) {
        if (d->type() != &Text::_drawable_type_dummy) continue;
        Drawable* copy = d->clone();
        DrawableVectorIterator* it = copy->create_vector_iterator(false);
        for (int k = 0; it && k < 200 && it->next(); ++k) {
        }
        delete it;
        copy->destroy();
      }
    }
  }
  const std::size_t left = ZP_HeapStatistics(heap).live_blocks;
  ZP_DestroyHeap(heap);
  return left;
}

// `engine` is new, with no reference yet; it is gone when this returns.
void run_shared(ZR_Text_Engine* engine, const char* name, std::size_t before) {
  SCOPED_TRACE(name);
  {
    Shared s{new CountingRenderer, engine, ZR_Font(new ZR_Font_Data), ZR_Image(new ZR_Image_Data),
             ZR_Contour_Set::make({{{0, 0, 0}, {400, 0, 0}, {400, 400, 0}, {0, 400, 0}}})};
    add_ref(s.renderer);
    add_ref(engine);
    s.image->width = s.image->height = 2;
    s.image->pixels.assign(4, 0xFFFFFF);

    // Alone first: what one list sends.
    EXPECT_EQ(draw_a_list(s, 4), 0u);
    const long alone = s.renderer->total();
    ASSERT_GT(alone, 0);

    std::vector<std::thread> threads;
    std::atomic<std::size_t> left{0};
    for (int i = 0; i < kThreads; ++i) threads.emplace_back([&] { left += draw_a_list(s, 4); });
    for (std::thread& t : threads) t.join();

    EXPECT_EQ(left.load(), 0u);
    EXPECT_EQ(s.renderer->total(), alone * (kThreads + 1));
    EXPECT_EQ(s.renderer->reference_count(), 1);
    EXPECT_EQ(engine->reference_count(), 1);
    EXPECT_EQ(s.image->reference_count(), 1);
    EXPECT_EQ(s.clip->reference_count(), 1);
    release(s.renderer);
    release(engine);  // an engine may keep references on the fonts it has seen
    EXPECT_EQ(s.font->reference_count(), 1);
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before);
}

TEST(ThreadSharing, ListsDrawnAtOnceShareTheirCountedObjects) {
  const std::size_t before = ZP_HeapStatistics().live_blocks;
  run_shared(new SharedFixedEngine, "fixed-pitch engine", before);
#ifdef DL_HAVE_FREETYPE
  auto* freetype = new FreeTypeTextEngine;
  CountingSink sink;
  freetype->set_sink(&sink);
  run_shared(freetype, "FreeType engine", before);
  EXPECT_GT(sink.glyph_count.load(), 0);
#endif
}

// Counts a deletion.
struct Probe : ZR_Counted {
  std::atomic<int>* deaths;
  explicit Probe(std::atomic<int>* d) : deaths(d) {}
  ~Probe() override { deaths->fetch_add(1); }
};

TEST(ThreadSharing, AddRefAndReleaseFromManyThreadsUnderTheRecursiveLock) {
  constexpr int kObjects = 1000;
  std::atomic<int> deaths{0};
  std::vector<Probe*> probes;
  for (int i = 0; i < kObjects; ++i) {
    probes.push_back(new Probe(&deaths));
    for (int k = 0; k < kThreads; ++k) add_ref(probes.back());
  }
  // Each thread takes and drops references, now and then with the global lock
  // held (twice over: it is recursive), then drops the one it owns; the last of
  // the four to let go deletes, exactly once per object.
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int n = 0; n < kObjects; ++n) {
        Probe* p = probes[static_cast<std::size_t>((n * 7 + t * 251) % kObjects)];
        if (n % 3 == 0) {
          ZR_Global_Lock outer;
          ZR_Global_Lock inner;
          add_ref(p);
          ZR_Handle<Probe> handle(p);
          release(p);
        } else {
          ZR_Handle<Probe> a(p);
          ZR_Handle<Probe> b = a;
        }
      }
      for (int n = 0; n < kObjects; ++n)
        release(probes[static_cast<std::size_t>((n + t * 13) % kObjects)]);
    });
  }
  for (std::thread& t : threads) t.join();
  EXPECT_EQ(deaths.load(), kObjects);
}

}  // namespace
}  // namespace DL
