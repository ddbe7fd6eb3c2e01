// Redraw cost against what is shown.
//
// Guards against regressions that make a zoomed-in redraw cost more than what
// it shows: a bounded draw of a view that shows 1% or 0.0001% of a drawing of
// 1e6 or 1e7 dots must visit a number of groups and drawables proportional to
// the drawables visible, and take time in proportion, against the full draw of
// the same list measured in the same run (the peer). The renderer is the
// default one, whose entries do nothing, so the walk itself is measured.
//
// The drawing: dots added tile by tile (100 random dots in each 4096-unit
// square tile, tiles row by row), as a program that draws a map or a plan adds
// them: spatially coherent, which is what the group tree is made for. Seeded
// and deterministic.
//
// Printed counters: `groups/visible` and `drawables/visible`, the groups whose
// rectangle the walk looks at and the drawables it hands on, per drawable
// inside the view; `x_full`, the time of the full draw over this one, both
// the best of five in thread CPU time.
#include <benchmark/benchmark.h>
#include <time.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <random>

#include "displaylist/display_list.h"
#include "drawables/dot.h"

namespace {

using namespace DL;

constexpr WorldCoord kTile = 4096;
constexpr int kPerTile = 100;

struct Drawing {
  std::unique_ptr<DisplayList> list;
  std::vector<WorldPoint> points;
  WorldCoord extent = 0;  // the dots lie in [0, extent) on both axes
};

Drawing& drawing(int count) {
  static std::map<int, Drawing> made;
  Drawing& d = made[count];
  if (d.list) return d;
  d.list = std::make_unique<DisplayList>();
  ZR_Renderer* renderer = new ZR_Renderer;
  d.list->set_renderer(renderer);
  const int tiles = count / kPerTile;
  const int side = static_cast<int>(std::ceil(std::sqrt(tiles)));
  d.extent = side * kTile;
  std::mt19937 rng(1234);
  std::uniform_int_distribution<WorldCoord> in_tile(0, kTile - 1);
  d.points.reserve(count);
  for (int t = 0; t < tiles; ++t) {
    const WorldCoord x0 = (t % side) * kTile, y0 = (t / side) * kTile;
    for (int i = 0; i < kPerTile; ++i) {
      const WorldPoint p{x0 + in_tile(rng), y0 + in_tile(rng)};
      d.list->add(new Dot(ZR_RGB32{0}, p), {p, p});
      d.points.push_back(p);
    }
  }
  d.list->set_screen_bounds({{0, 0}, {1920, 1080}});
  return d;
}

// The best of five runs of `f`, in CPU seconds of this thread: the machine
// may be shared, and the ratio should not depend on what else runs.
template <class F>
double best_cpu_seconds(F f) {
  double best = 1e9;
  for (int i = 0; i < 5; ++i) {
    timespec a, b;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &a);
    f();
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &b);
    best = std::min(best, static_cast<double>(b.tv_sec - a.tv_sec) +
                              1e-9 * static_cast<double>(b.tv_nsec - a.tv_nsec));
  }
  return best;
}

// The view of a square that covers `fraction` of the drawing's area, in its middle.
WorldBounds view_of(const Drawing& d, double fraction) {
  const double side = d.extent * std::sqrt(fraction);
  const double lo = (d.extent - side) / 2;
  const auto c = [](double v) { return static_cast<WorldCoord>(v); };
  return {{c(lo), c(lo)}, {c(lo + side), c(lo + side)}};
}

// What a bounded walk looks at: the groups whose rectangle it tests or enters,
// and the drawables it hands on.
void count_walk(const Group* g, const WorldBounds& inner, const WorldBounds& outer, bool inside,
                long& groups, long& drawables) {
  ++groups;
  if (!inside) {
    if (g->bounds.is_inside(inner))
      inside = true;
    else if (!g->bounds.overlaps(outer))
      return;
  }
  if (g->contains_drawables()) {
    for (const Drawable* x = g->first_drawable(); x; x = x->sibling) ++drawables;
    return;
  }
  for (const Group* c = g->first_group(); c; c = c->sibling)
    count_walk(c, inner, outer, inside, groups, drawables);
}

void full(benchmark::State& state) {
  Drawing& d = drawing(static_cast<int>(state.range(0)));
  d.list->set_world_bounds({{0, 0}, {d.extent, d.extent}});
  for (auto _ : state) d.list->root->draw_unclipped(*d.list);
  state.counters["drawables"] = static_cast<double>(d.points.size());
}

void view(benchmark::State& state, double fraction) {
  Drawing& d = drawing(static_cast<int>(state.range(0)));
  const WorldBounds v = view_of(d, fraction);
  // The peer: the full draw, timed here so the ratio comes from one run.
  d.list->set_world_bounds({{0, 0}, {d.extent, d.extent}});
  const double full_time = best_cpu_seconds([&] { d.list->root->draw_unclipped(*d.list); });

  d.list->set_world_bounds(v);
  for (auto _ : state) d.list->draw_view();
  const double view_time = best_cpu_seconds([&] { d.list->draw_view(); });

  long visible = 0;
  for (const WorldPoint& p : d.points) visible += WorldBounds{p, p}.is_inside(v);
  long groups = 0, drawables = 0;
  count_walk(d.list->root, d.list->world_bounds, d.list->visible_bounds, false, groups, drawables);
  const double per = visible ? static_cast<double>(visible) : 1.0;
  state.counters["visible"] = static_cast<double>(visible);
  state.counters["groups/visible"] = groups / per;
  state.counters["drawables/visible"] = drawables / per;
  state.counters["x_full"] = full_time / view_time;
}

void view_1pct(benchmark::State& state) {
  view(state, 1e-2);
}
void view_1e6th(benchmark::State& state) {
  view(state, 1e-6);
}

}  // namespace

BENCHMARK(full)->Name("traversal/full")->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);
BENCHMARK(view_1pct)
    ->Name("traversal/view/1pct")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMicrosecond);
BENCHMARK(view_1e6th)
    ->Name("traversal/view/0.0001pct")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMicrosecond);

BENCHMARK_MAIN();
