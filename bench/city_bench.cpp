// Exact and draft pictures of the viewer's built-in city, drawn the way the
// window draws them: the whole list through the bounded walk into a 1024 x 769
// image with the cairo renderer (exact) or the draft renderer, text through
// the FreeType engine. Views: the overview, and 1% of the drawing's area
// about its centre (the window's bench zooms by ten each way).
//
// What the exact picture costs per primitive class shows in a profile:
//     perf record -g build/gcc/city_bench --benchmark_filter=exact/1pct
// (cairo's time falls under the entry functions of CairoRenderer::Access).
#include <benchmark/benchmark.h>
#include <cairo.h>

#include <algorithm>
#include <memory>

#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/cairo_text.h"
#include "backends/cairo/draft_renderer.h"
#include "backends/freetype/freetype_engine.h"
#include "displaylist/display_list.h"
#include "tools/demo_drawing.h"

namespace {

constexpr int kWidth = 1024, kHeight = 769;

// The city, built once for every case. Members go in reverse order: the list
// before the demo drawing that made it.
struct City {
  DL::FreeTypeTextEngine* freetype = nullptr;
  DL::CairoTextPainter* painter = nullptr;
  std::unique_ptr<dlview::DemoDrawing> demo;
  DL::DisplayList list;

  City() {
    freetype = new DL::FreeTypeTextEngine;
    add_ref(freetype);
    painter = new DL::CairoTextPainter(freetype);
    add_ref(painter);
    freetype->set_sink(painter);
    demo = std::make_unique<dlview::DemoDrawing>(painter);
    list.saturate_device_points = true;
    demo->build(list, dlview::DemoOptions{});
    demo->insert(list);
    add_ref(painter);
    list.text_engine = painter;
    list.set_screen_bounds({{0, 0}, {kWidth - 1, kHeight - 1}});
    list.rendition.set_hard_clip({0, kWidth - 1, 0, kHeight - 1}, false);
  }
  ~City() {
    release(painter);
    release(freetype);
  }

  // The view showing `fraction` of the sheet's width about its centre, at
  // the picture's proportions; the layers as the viewer fades them.
  void view(double fraction) {
    const DL::WorldBounds e = demo->extent();
    const double cx = (double(e.min.x) + e.max.x) / 2, cy = (double(e.min.y) + e.max.y) / 2;
    const double half_w = (double(e.max.x) - e.min.x) * fraction / 2;
    const double half_h = half_w * (kHeight - 1) / (kWidth - 1);
    list.set_world_bounds(
        {{DL::round_to_int32_saturated(cx - half_w), DL::round_to_int32_saturated(cy - half_h)},
         {DL::round_to_int32_saturated(cx + half_w), DL::round_to_int32_saturated(cy + half_h)}});
    for (const std::string& name : demo->layer_names())
      demo->layer(name)->shown = std::fabs(list.scale.x) >= demo->min_scale(name) ? 1 : 0;
  }

  static City& get() {
    static City city;
    return city;
  }
};

void draw(benchmark::State& state, double fraction, bool draft) {
  City& city = City::get();
  city.view(fraction);
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
  cairo_t* cr = cairo_create(surface);
  auto* exact = new DL::CairoRenderer(cr, kHeight);
  add_ref(exact);
  exact->set_complex_clip_supported(true);
  exact->set_outer_list(&city.list);
  for (auto _ : state) {
    DL::DraftRenderer* d = nullptr;
    if (draft) {
      exact->flush_direct();
      d = new DL::DraftRenderer(surface);
      add_ref(d);
      d->clear(0xffffff);
      d->set_outer_list(&city.list);
      city.list.set_renderer(d);
      city.painter->set_renderer(d);
    } else {
      cairo_save(cr);
      cairo_identity_matrix(cr);
      cairo_set_source_rgb(cr, 1, 1, 1);
      cairo_paint(cr);
      cairo_restore(cr);
      exact->forget_clip();
      city.list.set_renderer(exact);
      city.painter->set_renderer(exact);
    }
    city.list.root->draw_bounded(city.list, city.list.world_bounds, city.list.visible_bounds);
    city.painter->set_renderer(nullptr);
    city.list.set_renderer(nullptr);
    if (d) {
      d->mark_dirty();
      release(d);
    }
    exact->flush_direct();
  }
  release(exact);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}

void BM_Exact1pct(benchmark::State& s) {
  draw(s, 0.1, false);
}
void BM_ExactOverview(benchmark::State& s) {
  draw(s, 1.0, false);
}
void BM_Draft1pct(benchmark::State& s) {
  draw(s, 0.1, true);
}
void BM_DraftOverview(benchmark::State& s) {
  draw(s, 1.0, true);
}

}  // namespace

BENCHMARK(BM_Exact1pct)->Name("exact/1pct")->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ExactOverview)->Name("exact/overview")->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Draft1pct)->Name("draft/1pct")->Unit(benchmark::kMillisecond)->MinTime(0.5);
BENCHMARK(BM_DraftOverview)->Name("draft/overview")->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK_MAIN();
