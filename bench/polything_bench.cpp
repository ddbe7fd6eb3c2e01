// Drawing point lists into a renderer whose entries do nothing.
//
// Guards against regressions in the draw path of a polyline: the conversion of
// its points with the dropping of repeated device points in the same pass
// (world_to_screen_unique), the device buffer (stack up to 256 points, one heap
// block above), and the dispatch through the drawable's table and the action
// entry. 1e6 lines of 10 points stress the per-draw costs, 1e5 lines of 300
// points the per-point loop and the heap buffer.
//
// Each shape is drawn twice: with every device point distinct, and with every
// device point repeated once (the second point of each pair lies 0.3 pixel
// from the first), so that half of the points are dropped. Items are world
// points; every case reports ns per point, and the table at the end sets each
// against its floor measured in the same run: converting the same points with
// world_to_screen_points into a buffer made once, with no drop, no table and no
// action call, which any draw must at least do.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "displaylist/display_list.h"
#include "drawables/polything.h"

namespace {

constexpr int kTenWorldUnitsAPixel = 10;

struct Lines {
  int points_per_line = 0;
  std::int64_t line_count = 0;
  bool repeated = false;
  std::vector<DL::Drawable*> lines;
  ~Lines() {
    for (DL::Drawable* d : lines) d->destroy();
  }
};

// One set at a time, so that the largest sets are not all alive at once.
Lines& lines(int points_per_line, std::int64_t line_count, bool repeated) {
  static std::unique_ptr<Lines> current;
  if (current && current->points_per_line == points_per_line && current->line_count == line_count &&
      current->repeated == repeated)
    return *current;
  current.reset();
  current = std::make_unique<Lines>();
  current->points_per_line = points_per_line;
  current->line_count = line_count;
  current->repeated = repeated;
  current->lines.reserve(static_cast<std::size_t>(line_count));
  std::vector<DL::WorldPoint> p(static_cast<std::size_t>(points_per_line));
  std::uint32_t seed = 12345;
  for (std::int64_t i = 0; i < line_count; ++i) {
    seed = seed * 1664525u + 1013904223u;  // a fixed sequence of line origins
    DL::WorldCoord x = static_cast<DL::WorldCoord>(seed % 1000000u) * kTenWorldUnitsAPixel;
    DL::WorldCoord y = static_cast<DL::WorldCoord>((seed >> 12) % 1000000u) * kTenWorldUnitsAPixel;
    for (int k = 0; k < points_per_line; ++k) {
      if (repeated && (k & 1)) {
        p[static_cast<std::size_t>(k)] = {x + 3, y};  // 0.3 pixel on: the same device point
        continue;
      }
      x += 3 * kTenWorldUnitsAPixel;
      y += (k % 3 - 1) * kTenWorldUnitsAPixel;
      p[static_cast<std::size_t>(k)] = {x, y};
    }
    current->lines.push_back(new DL::Polyline(0x00ff00u, points_per_line, p.data()));
  }
  return *current;
}

struct View {
  DL::DisplayList list;
  View() {
    list.set_renderer(new ZR_Renderer);  // every entry does nothing
    list.set_world_bounds({{0, 0}, {100000000, 100000000}});
    list.set_screen_bounds({{0, 0}, {10000000, 10000000}});
  }
};

void BM_draw(benchmark::State& state, int points_per_line, std::int64_t line_count, bool repeated) {
  Lines& set = lines(points_per_line, line_count, repeated);
  View view;
  for (auto _ : state)
    for (DL::Drawable* d : set.lines) d->draw_unclipped(view.list);
  state.SetItemsProcessed(state.iterations() * line_count * points_per_line);
}

void BM_floor(benchmark::State& state, int points_per_line, std::int64_t line_count,
              bool repeated) {
  Lines& set = lines(points_per_line, line_count, repeated);
  View view;
  std::vector<ZR_DCI_Point> buffer(static_cast<std::size_t>(points_per_line));
  ZR_DCI_Point* device = buffer.data();
  for (auto _ : state)
    for (DL::Drawable* d : set.lines) {
      auto* line = static_cast<DL::Polyline*>(d);
      view.list.world_to_screen_points(line->count, line->points, device);
      benchmark::DoNotOptimize(device);
    }
  state.SetItemsProcessed(state.iterations() * line_count * points_per_line);
}

struct Case {
  const char* name;
  const char* floor;
  int points;
  std::int64_t lines;
  bool repeated;
};
constexpr Case kCases[] = {
    {"polyline/draw/distinct/10x1e6", "floor/convert/distinct/10x1e6", 10, 1000000, false},
    {"polyline/draw/repeated/10x1e6", "floor/convert/repeated/10x1e6", 10, 1000000, true},
    {"polyline/draw/distinct/300x1e5", "floor/convert/distinct/300x1e5", 300, 100000, false},
    {"polyline/draw/repeated/300x1e5", "floor/convert/repeated/300x1e5", 300, 100000, true},
};

}  // namespace

int main(int argc, char** argv) {
  for (const Case& c : kCases) {
    benchmark::RegisterBenchmark(c.floor, BM_floor, c.points, c.lines, c.repeated)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3)
        ->Repetitions(3);
    benchmark::RegisterBenchmark(c.name, BM_draw, c.points, c.lines, c.repeated)
        ->Unit(benchmark::kMillisecond)
        ->Iterations(3)
        ->Repetitions(3);
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  DL::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-34s %14s %14s %8s\n", "case", "median ns/pt", "floor ns/pt", "ratio");
  for (const Case& c : kCases) {
    const double t = reporter.median(c.name), f = reporter.median(c.floor);
    if (t == 0 || f == 0) continue;
    std::printf("%-34s %14.2f %14.2f %8.2f\n", c.name, t, f, t / f);
  }
  benchmark::Shutdown();
  return 0;
}
