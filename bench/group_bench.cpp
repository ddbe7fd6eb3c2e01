// Insertion and the plain walk of the group tree, against floors measured in
// the same run.
//
// Guards against regressions in: the insertion path (a fitting insertion is one
// rectangle test, a tail link and a merge), the split and close work, the
// allocator's cost per record, the bytes a drawable costs with its share of the
// tree, and the per-group overhead of the plain walk.
//
//   group/insert/{coherent,random}/{1e6,1e7}  new Dot + DisplayList::add
//   floor/insert/{1e6,1e7}                    new Dot + append to one linked list
//   group/draw/{coherent,random}/{1e6,1e7}    draw_unclipped of the root
//   floor/draw/{1e6,1e7}                      the same draws along one linked list
//
// Coherent order cuts the plane into 256 x 256 tiles taken row by row, with the
// items of a tile in random order inside it, as drawings arrive; random order
// spreads them over the whole 32-bit plane. Dots go to a renderer whose entries
// do nothing. After the runs a table gives each case against its floor and the
// bytes per dot, tree included.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <random>
#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"

namespace {

using DL::WorldCoord;
using DL::WorldPoint;

std::vector<WorldPoint> make_points(std::size_t n, bool coherent) {
  std::mt19937_64 rng(42);
  std::vector<WorldPoint> points(n);
  if (!coherent) {
    for (auto& p : points) p = {static_cast<WorldCoord>(rng()), static_cast<WorldCoord>(rng())};
    return points;
  }
  // 65536 tiles of 2^24 units; n / 65536 items in each, random inside it.
  const std::size_t per_tile = (n + 65535) / 65536;
  std::size_t i = 0;
  for (std::uint32_t tile = 0; tile < 65536 && i < n; ++tile) {
    const std::uint32_t tx = (tile % 256) << 24, ty = (tile / 256) << 24;
    for (std::size_t k = 0; k < per_tile && i < n; ++k, ++i)
      points[i] = {static_cast<WorldCoord>(tx | (rng() & 0xFFFFFF)),
                   static_cast<WorldCoord>(ty | (rng() & 0xFFFFFF))};
  }
  return points;
}

const std::vector<WorldPoint>& points(std::size_t n, bool coherent) {
  static std::map<std::pair<std::size_t, bool>, std::vector<WorldPoint>> cache;
  auto& v = cache[{n, coherent}];
  if (v.empty()) v = make_points(n, coherent);
  return v;
}

// A list over the whole plane with a renderer whose entries do nothing.
struct BenchList {
  ZephalHeap* heap = ZP_CreateHeap(kZephalNoSerialize);  // one thread
  DL::DisplayList* list = new DL::DisplayList(heap);
  BenchList() {
    list->set_renderer(new ZR_Renderer);
    list->set_world_bounds({{-1000000000, -1000000000}, {1000000000, 1000000000}});
    list->set_screen_bounds({{0, 0}, {1919, 1079}});
  }
  ~BenchList() {
    delete list;
    ZP_DestroyHeap(heap);
  }
  void fill(const std::vector<WorldPoint>& pts) {
    for (const WorldPoint& p : pts) list->add(new (heap) DL::Dot(0x808080, p), {p, p});
  }
};

// The floor: the same records from the same allocator, appended to one list.
struct FloorList {
  ZephalHeap* heap = ZP_CreateHeap(kZephalNoSerialize);  // one thread
  DL::Drawable* head = nullptr;
  DL::Drawable* tail = nullptr;
  ~FloorList() { ZP_DestroyHeap(heap); }
  void fill(const std::vector<WorldPoint>& pts) {
    for (const WorldPoint& p : pts) {
      DL::Drawable* d = new (heap) DL::Dot(0x808080, p);
      if (tail)
        tail->sibling = d;
      else
        head = d;
      tail = d;
    }
  }
};

void set_counters(benchmark::State& state, std::size_t n, ZephalHeap* heap) {
  state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations() * n));
  if (heap)
    state.counters["bytes_per_dot"] =
        static_cast<double>(ZP_HeapStatistics(heap).live_bytes) / static_cast<double>(n);
}

void BM_GroupInsert(benchmark::State& state, bool coherent) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  const auto& pts = points(n, coherent);
  double bytes = 0;
  for (auto _ : state) {
    BenchList b;
    b.fill(pts);
    benchmark::DoNotOptimize(b.list->open_count);
    state.PauseTiming();
    bytes = static_cast<double>(ZP_HeapStatistics(b.heap).live_bytes) / static_cast<double>(n);
    state.ResumeTiming();
  }
  set_counters(state, n, nullptr);
  state.counters["bytes_per_dot"] = bytes;
}

void BM_FloorInsert(benchmark::State& state) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  const auto& pts = points(n, true);
  for (auto _ : state) {
    FloorList f;
    f.fill(pts);
    benchmark::DoNotOptimize(f.tail);
  }
  set_counters(state, n, nullptr);
}

void BM_GroupDraw(benchmark::State& state, bool coherent) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  BenchList b;
  b.fill(points(n, coherent));
  for (auto _ : state) b.list->root->draw_unclipped(*b.list);
  set_counters(state, n, b.heap);
}

void BM_FloorDraw(benchmark::State& state) {
  const std::size_t n = static_cast<std::size_t>(state.range(0));
  BenchList b;  // for the view and renderer only
  FloorList f;
  f.fill(points(n, true));
  for (auto _ : state)
    for (DL::Drawable* d = f.head; d; d = d->sibling)
      if (d->shown()) d->draw_unclipped(*b.list);
  set_counters(state, n, f.heap);
}

BENCHMARK_CAPTURE(BM_GroupInsert, coherent, true)
    ->Name("group/insert/coherent")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(BM_GroupInsert, random, false)
    ->Name("group/insert/random")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK(BM_FloorInsert)
    ->Name("floor/insert")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(3);
BENCHMARK_CAPTURE(BM_GroupDraw, coherent, true)
    ->Name("group/draw/coherent")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK_CAPTURE(BM_GroupDraw, random, false)
    ->Name("group/draw/random")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);
BENCHMARK(BM_FloorDraw)
    ->Name("floor/draw")
    ->Arg(1000000)
    ->Arg(10000000)
    ->Unit(benchmark::kMillisecond)
    ->Iterations(5);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  DL::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-34s %10s %10s %8s %12s\n", "case", "ns/dot", "floor", "ratio", "bytes/dot");
  for (const char* size : {"1000000", "10000000"}) {
    for (const char* c : {"group/insert/coherent/", "group/insert/random/", "group/draw/coherent/",
                          "group/draw/random/"}) {
      std::string name = std::string(c) + size;
      std::string floor =
          std::string(std::string(c).find("insert") != std::string::npos ? "floor/insert/"
                                                                         : "floor/draw/") +
          size;
      double t = reporter.median(name), f = reporter.median(floor);
      if (t == 0 || f == 0) continue;
      std::printf("%-34s %10.1f %10.1f %8.2f %12.1f\n", name.c_str(), t, f, t / f,
                  reporter.counter(name, "bytes_per_dot"));
    }
  }
  benchmark::Shutdown();
  return 0;
}
