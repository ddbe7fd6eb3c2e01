// Exact and draft pictures of the viewer's built-in city, drawn the way the
// window draws them: the whole list through the bounded walk into a 1024 x 769
// image with the cairo renderer (exact) or the draft renderer, text through
// the FreeType engine. Views: the overview, 1% of the drawing's area about
// its centre, and the nine 1% views the window's bench zooms to (drawn one
// after the other: the time is that of the nine).
//
// After the cases, one exact picture of each view is drawn through a renderer
// that times every action entry of the cairo renderer, and a table gives the
// calls, the time, the time a call and the longest call per entry (on a
// loaded machine a call the scheduler preempts takes a tick, 4 ms): where the exact picture's
// time goes, by kind of primitive (text is the rest: glyphs are filled
// through the text painter, not through the entries).
#include <benchmark/benchmark.h>
#include <cairo.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/cairo_text.h"
#include "backends/cairo/draft_renderer.h"
#include "backends/freetype/freetype_engine.h"
#include "displaylist/display_list.h"
#include "tools/demo_drawing.h"

namespace {

constexpr int kWidth = 1024, kHeight = 769;

// A renderer in front of another that times each call of each entry kind
// (clipped and unclipped together).
class TimingRenderer : public ZR_Renderer {
 public:
  struct Slot {
    const char* name = "";
    long long calls = 0;
    double ns = 0;
    double longest_ns = 0;  // the longest call
  };
  static constexpr int kSlots = 11;
  std::array<Slot, kSlots> slots;

  explicit TimingRenderer(ZR_Renderer* inner) : inner_(inner) {
    add_ref(inner_);
    options = inner_->options;
    hook<&ZR_Renderer::dot_clipped, 0>("dot");
    hook<&ZR_Renderer::dot_unclipped, 0>("dot");
    hook<&ZR_Renderer::polyline_clipped, 1>("polyline");
    hook<&ZR_Renderer::polyline_unclipped, 1>("polyline");
    hook<&ZR_Renderer::polymarker_clipped, 2>("polymarker");
    hook<&ZR_Renderer::polymarker_unclipped, 2>("polymarker");
    hook<&ZR_Renderer::polygon_clipped, 3>("polygon");
    hook<&ZR_Renderer::polygon_unclipped, 3>("polygon");
    hook<&ZR_Renderer::triangles_clipped, 4>("triangles");
    hook<&ZR_Renderer::triangles_unclipped, 4>("triangles");
    hook<&ZR_Renderer::gouraud_triangles_clipped, 5>("gouraud triangles");
    hook<&ZR_Renderer::gouraud_triangles_unclipped, 5>("gouraud triangles");
    hook<&ZR_Renderer::textured_triangles_clipped, 6>("textured triangles");
    hook<&ZR_Renderer::textured_triangles_unclipped, 6>("textured triangles");
    hook<&ZR_Renderer::elliptical_arc_clipped, 7>("elliptical arc");
    hook<&ZR_Renderer::elliptical_arc_unclipped, 7>("elliptical arc");
    hook<&ZR_Renderer::elliptical_pie_clipped, 8>("elliptical pie");
    hook<&ZR_Renderer::elliptical_pie_unclipped, 8>("elliptical pie");
    hook<&ZR_Renderer::image_clipped, 9>("image");
    hook<&ZR_Renderer::image_unclipped, 9>("image");
    hook<&ZR_Renderer::gouraud_polyline_unclipped, 10>("gouraud polyline");
  }
  ~TimingRenderer() override { release(inner_); }

 private:
  template <auto Entry, int S, class Signature>
  struct Forward;
  template <auto Entry, int S, class... A>
  struct Forward<Entry, S, void(void*, ZR_Rendition*, A...)> {
    static void call(void* context, ZR_Rendition* rendition, A... args) {
      auto* self = static_cast<TimingRenderer*>(context);
      const auto start = std::chrono::steady_clock::now();
      (self->inner_->*Entry)(rendition, args...);
      const auto end = std::chrono::steady_clock::now();
      const double ns = std::chrono::duration<double, std::nano>(end - start).count();
      self->slots[S].calls += 1;
      self->slots[S].ns += ns;
      self->slots[S].longest_ns = std::max(self->slots[S].longest_ns, ns);
    }
  };
  template <auto Entry, int S>
  void hook(const char* name) {
    auto& action = this->*Entry;
    using Function = typename std::remove_reference_t<decltype(action)>::Function;
    action.context = this;
    action.function = &Forward<Entry, S, Function>::call;
    slots[S].name = name;
  }

  ZR_Renderer* inner_;
};

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

  // The view showing `fraction` of the sheet's width about the point at
  // (`fx`, `fy`) of its width and height (the centre by default), at the
  // picture's proportions; the layers as the viewer fades them.
  void view(double fraction, double fx = 0.5, double fy = 0.5) {
    const DL::WorldBounds e = demo->extent();
    const double cx = e.min.x + (double(e.max.x) - e.min.x) * fx;
    const double cy = e.min.y + (double(e.max.y) - e.min.y) * fy;
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

// Exact pictures of the views through a timing renderer, one after the
// other; prints where the time went, in all.
struct ViewAt {
  double fraction, fx, fy;
};
void profile(const char* name, const std::vector<ViewAt>& views) {
  City& city = City::get();
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
  cairo_t* cr = cairo_create(surface);
  auto* exact = new DL::CairoRenderer(cr, kHeight);
  add_ref(exact);
  exact->set_complex_clip_supported(true);
  exact->set_outer_list(&city.list);
  auto* timing = new TimingRenderer(exact);
  add_ref(timing);
  double total = 0;
  for (const ViewAt& v : views) {
    city.view(v.fraction, v.fx, v.fy);
    city.list.set_renderer(timing);
    city.painter->set_renderer(exact);
    const auto start = std::chrono::steady_clock::now();
    city.list.root->draw_bounded(city.list, city.list.world_bounds, city.list.visible_bounds);
    exact->flush_direct();
    total +=
        std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    city.painter->set_renderer(nullptr);
    city.list.set_renderer(nullptr);
  }
  std::printf("\nexact %s: %.1f ms in all (with the timing), by entry:\n", name, total);
  std::printf("  %-20s %9s %10s %9s %9s\n", "entry", "calls", "ms", "us/call", "longest");
  double in_entries = 0;
  std::array<TimingRenderer::Slot, TimingRenderer::kSlots> slots = timing->slots;
  std::sort(slots.begin(), slots.end(), [](auto& a, auto& b) { return a.ns > b.ns; });
  for (const auto& slot : slots) {
    if (!slot.calls) continue;
    in_entries += slot.ns / 1e6;
    std::printf("  %-20s %9lld %10.2f %9.2f %9.2f\n", slot.name, slot.calls, slot.ns / 1e6,
                slot.ns / 1e3 / slot.calls, slot.longest_ns / 1e3);
  }
  std::printf("  %-20s %9s %10.2f\n", "rest (walk, text)", "", total - in_entries);
  release(timing);
  release(exact);
  cairo_destroy(cr);
  cairo_surface_destroy(surface);
}

// The nine views the window's bench zooms to: from the overview framed as the
// window frames it (the extent and a margin of 2%), a zoom by ten each way
// about the points at 0.3, 0.5 and 0.7 of the picture's width and height.
std::vector<ViewAt> window_views() {
  const DL::WorldBounds e = City::get().demo->extent();
  const double w = double(e.max.x) - e.min.x, h = double(e.max.y) - e.min.y;
  const double upp = 1.04 * std::max(w / (kWidth - 1), h / (kHeight - 1));
  std::vector<ViewAt> views;
  for (int i = 0; i < 9; ++i) {
    const double column = kWidth * (0.3 + 0.2 * (i % 3)), row = kHeight * (0.3 + 0.2 * (i / 3));
    // The point under the pointer stays where it is: the centre moves 0.9
    // of the way to it.
    const double dx = (column - (kWidth - 1) / 2.0) * upp * 0.9;
    const double dy = -(row - (kHeight - 1) / 2.0) * upp * 0.9;
    views.push_back({upp / 10 * (kWidth - 1) / w, 0.5 + dx / w, 0.5 + dy / h});
  }
  return views;
}

// Draws `views` one after the other per iteration (the time is that of all
// of them), exact or as drafts.
void draw(benchmark::State& state, const std::vector<ViewAt>& views, bool draft) {
  City& city = City::get();
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight);
  cairo_t* cr = cairo_create(surface);
  auto* exact = new DL::CairoRenderer(cr, kHeight);
  add_ref(exact);
  exact->set_complex_clip_supported(true);
  exact->set_outer_list(&city.list);
  for (auto _ : state)
    for (const ViewAt& v : views) {
      city.view(v.fraction, v.fx, v.fy);
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
  draw(s, {{0.1, 0.5, 0.5}}, false);
}
void BM_ExactWindowViews(benchmark::State& s) {
  draw(s, window_views(), false);
}
void BM_ExactOverview(benchmark::State& s) {
  draw(s, {{1.0, 0.5, 0.5}}, false);
}
void BM_Draft1pct(benchmark::State& s) {
  draw(s, {{0.1, 0.5, 0.5}}, true);
}
void BM_DraftWindowViews(benchmark::State& s) {
  draw(s, window_views(), true);
}
void BM_DraftOverview(benchmark::State& s) {
  draw(s, {{1.0, 0.5, 0.5}}, true);
}

}  // namespace

BENCHMARK(BM_Exact1pct)->Name("exact/1pct")->Unit(benchmark::kMillisecond)->MinTime(1.0);
BENCHMARK(BM_ExactWindowViews)
    ->Name("exact/1pct-window-views-9")
    ->Unit(benchmark::kMillisecond)
    ->MinTime(2.0);
BENCHMARK(BM_ExactOverview)->Name("exact/overview")->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_Draft1pct)->Name("draft/1pct")->Unit(benchmark::kMillisecond)->MinTime(0.5);
BENCHMARK(BM_DraftWindowViews)
    ->Name("draft/1pct-window-views-9")
    ->Unit(benchmark::kMillisecond)
    ->MinTime(1.0);
BENCHMARK(BM_DraftOverview)->Name("draft/overview")->Unit(benchmark::kMillisecond)->MinTime(1.0);
int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  profile("1% view", {{0.1, 0.5, 0.5}});
  profile("1% views of the window's bench (nine, in all)", window_views());
  profile("overview", {{1.0, 0.5, 0.5}});
  return 0;
}
