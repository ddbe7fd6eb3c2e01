// Walks and removals over large lists.
//
// Guards against regressions in: the pruning of the bounded walk (a small
// window must cost a small fraction of a full walk), the stacks of the reverse
// walk (it must stay within a small factor of the forward walk per item), the
// forward step (pointer chasing only), removal by rectangle (whole subtrees
// inside the window go without a visit) and removal by likeness (only cells
// that hold the pattern are entered).
//
// The drawing: seeded random strokes of dots, each a short random walk, as a
// vector drawing is made of coherent pieces, over a square of 2^26 units.
// Every case reports ns per item (items = drawables returned or removed; for
// the full walk, all) and `ratio`: its time per run over that of the full
// forward walk of the same list, measured in the same run.
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "iterators/filtered_iterators.h"
#include "iterators/reverse_iterator.h"

namespace {

using Clock = std::chrono::steady_clock;
constexpr std::int64_t kSide = std::int64_t{1} << 26;

struct Drawing {
  std::unique_ptr<DL::DisplayList> list;
  std::vector<DL::WorldPoint> points;
};

std::unique_ptr<Drawing> build(std::int64_t n) {
  auto d = std::make_unique<Drawing>();
  d->list = std::make_unique<DL::DisplayList>(ZP_CreateHeap());
  std::mt19937_64 rng(12345);
  std::int64_t x = 0, y = 0, left = 0;
  for (std::int64_t i = 0; i < n; ++i) {
    if (left-- == 0) {
      left = 64 + static_cast<std::int64_t>(rng() % 1000);
      x = static_cast<std::int64_t>(rng() % kSide);
      y = static_cast<std::int64_t>(rng() % kSide);
    }
    x = std::clamp<std::int64_t>(x + static_cast<std::int64_t>(rng() % 2001) - 1000, 0, kSide - 1);
    y = std::clamp<std::int64_t>(y + static_cast<std::int64_t>(rng() % 2001) - 1000, 0, kSide - 1);
    const DL::WorldPoint p{static_cast<DL::WorldCoord>(x), static_cast<DL::WorldCoord>(y)};
    d->points.push_back(p);
    auto* dot = new (d->list->heap) DL::Dot(0u, p);
    d->list->add(dot, dot->bounds_of());
  }
  return d;
}

// One drawing per size, kept for the whole run (removals eat into it last).
Drawing& drawing(std::int64_t n) {
  static std::map<std::int64_t, std::unique_ptr<Drawing>> cache;
  auto& slot = cache[n];
  if (!slot) slot = build(n);
  return *slot;
}

// Seconds of one full forward walk, per size, measured first.
std::map<std::int64_t, double> full_walk_seconds;

// A centred square window with `fraction` of the drawing's area.
DL::WorldBounds window(double fraction, int shift = 0) {
  const auto side = static_cast<std::int64_t>(static_cast<double>(kSide) * std::sqrt(fraction));
  const std::int64_t lo = (kSide - side) / 2 + shift * side;
  return {{static_cast<DL::WorldCoord>(lo), static_cast<DL::WorldCoord>(lo)},
          {static_cast<DL::WorldCoord>(lo + side), static_cast<DL::WorldCoord>(lo + side)}};
}

void report(benchmark::State& state, std::int64_t n, double seconds, std::int64_t items) {
  const double runs = static_cast<double>(state.iterations());
  state.counters["ns_per_item"] = items ? seconds * 1e9 / static_cast<double>(items) : 0.0;
  state.counters["items"] = static_cast<double>(items) / runs;
  if (full_walk_seconds.count(n)) state.counters["ratio"] = seconds / runs / full_walk_seconds[n];
}

template <class Walk, class... Args>
void run_walk(benchmark::State& state, Args... args) {
  const std::int64_t n = state.range(0);
  DL::DisplayList* list = drawing(n).list.get();
  double seconds = 0;
  std::int64_t items = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    Walk walk(list, args...);
    for (DL::Drawable* d = walk.drawable(); d; d = walk.advance()) {
      benchmark::DoNotOptimize(d);
      ++items;
    }
    seconds += std::chrono::duration<double>(Clock::now() - t0).count();
  }
  report(state, n, seconds, items);
}

void BM_full_forward(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  DL::DisplayList* list = drawing(n).list.get();
  double seconds = 0;
  std::int64_t items = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    for (DL::Drawable* d : DisplayListIterator(list)) {
      benchmark::DoNotOptimize(d);
      ++items;
    }
    seconds += std::chrono::duration<double>(Clock::now() - t0).count();
  }
  full_walk_seconds[n] = seconds / static_cast<double>(state.iterations());
  report(state, n, seconds, items);
}

void BM_bounded_1pct(benchmark::State& s) {
  run_walk<DisplayListBoundedIterator>(s, window(1e-2));
}
// A 0.0001% window around a drawable in the middle of the drawing order, so
// that it holds something.
DL::WorldBounds tiny_window(std::int64_t n) {
  const DL::WorldPoint p = drawing(n).points[static_cast<std::size_t>(n / 2)];
  const auto half = static_cast<DL::WorldCoord>(static_cast<double>(kSide) * 1e-3 / 2);
  return {{p.x - half, p.y - half}, {p.x + half, p.y + half}};
}
void BM_bounded_tiny(benchmark::State& s) {
  run_walk<DisplayListBoundedIterator>(s, tiny_window(s.range(0)));
}
void BM_reverse_1pct(benchmark::State& s) {
  run_walk<DisplayListReverseIterator>(s, window(1e-2));
}
void BM_reverse_tiny(benchmark::State& s) {
  run_walk<DisplayListReverseIterator>(s, tiny_window(s.range(0)));
}
void BM_reverse_all(benchmark::State& s) {
  run_walk<DisplayListReverseIterator>(s, DL::WorldBounds::everything());
}

// A different 1% window on each run, so that each removes live drawables.
void BM_remove_bounded_1pct(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  DL::DisplayList* list = drawing(n).list.get();
  double seconds = 0;
  std::int64_t items = 0;
  int shift = -3;
  for (auto _ : state) {
    const auto before = ZP_HeapStatistics(list->heap).live_blocks;
    const auto t0 = Clock::now();
    list->root->remove_bounded(window(1e-2, shift++));
    seconds += std::chrono::duration<double>(Clock::now() - t0).count();
    items += static_cast<std::int64_t>(before - ZP_HeapStatistics(list->heap).live_blocks);
  }
  report(state, n, seconds, items);
}

// 1e4 removals by likeness of drawables spread over the list.
void BM_remove_searched_1e4(benchmark::State& state) {
  const std::int64_t n = state.range(0);
  Drawing& d = drawing(n);
  double seconds = 0;
  std::int64_t items = 0;
  std::size_t next = 0;
  for (auto _ : state) {
    const auto t0 = Clock::now();
    for (int i = 0; i < 10000; ++i) {
      const DL::WorldPoint p = d.points[(next++ * 7919) % d.points.size()];
      DL::Dot pattern(0u, p);
      DL::Search search{&pattern, pattern.type(), pattern.bounds_of(), 0};
      if (d.list->root->remove_searched(search)) ++items;
      if (!d.list->open_group) d.list->root->create_open_bottom_group(d.list.get());
    }
    seconds += std::chrono::duration<double>(Clock::now() - t0).count();
  }
  report(state, n, seconds, items);
}

void sizes(benchmark::internal::Benchmark* b) {
  b->Arg(1000000)->Arg(10000000)->Unit(benchmark::kMillisecond);
}

BENCHMARK(BM_full_forward)->Name("iterator/forward/all")->Apply(sizes)->Iterations(5);
BENCHMARK(BM_bounded_1pct)->Name("iterator/bounded/1pct")->Apply(sizes)->Iterations(20);
BENCHMARK(BM_bounded_tiny)->Name("iterator/bounded/0.0001pct")->Apply(sizes)->Iterations(1000);
BENCHMARK(BM_reverse_1pct)->Name("iterator/reverse/1pct")->Apply(sizes)->Iterations(20);
BENCHMARK(BM_reverse_tiny)->Name("iterator/reverse/0.0001pct")->Apply(sizes)->Iterations(1000);
BENCHMARK(BM_reverse_all)->Name("iterator/reverse/all")->Apply(sizes)->Iterations(3);
BENCHMARK(BM_remove_bounded_1pct)->Name("group/remove_bounded/1pct")->Apply(sizes)->Iterations(5);
BENCHMARK(BM_remove_searched_1e4)->Name("group/remove_searched/1e4")->Apply(sizes)->Iterations(1);

}  // namespace

BENCHMARK_MAIN();
