// The extent and the vectors of ellipses, against floors measured in the same run.
//
// Guards against regressions in: the integer path of an unrotated whole ellipse
// (no trigonometry, no access to the list), the cost of the general extent
// (two to four points and the axis extremes, each with float angle functions),
// and the vector walk (one allocation and one generation at construction, then
// four integers copied per step, with no call into the drawable).
//
//   ellipse/add_bounds/unrotated   whole, rotation 0: the integer path
//   ellipse/add_bounds/rotated     whole, rotated: the general path
//   ellipse/add_bounds/arc         rotated arcs: the general path with sweep tests
//   floor/add_bounds/dot           Dot::add_bounds through the same table call
//   ellipse/vectors/1e3            create_vector_iterator + the whole walk of an
//                                  ellipse of device radius 1000 (127 vectors)
//   floor/vectors/1e3              ZP_Generate_Elliptical_Points of the same
//                                  128 points into a ready buffer
//
// Each case runs over 1024 seeded ellipses; times are per item. After the runs a
// table gives the medians and the ratios against the floors.
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
#include "ellipse/ellipse.h"

namespace {

using DL::WorldPoint;

constexpr int kItems = 1024;

struct Shapes {
  DL::DisplayList list;
  std::vector<DL::Drawable*> items;
  Shapes() { list.scale = {1.0, 1.0}; }
  ~Shapes() {
    for (DL::Drawable* d : items) d->destroy();
  }
  Shapes(const Shapes&) = delete;
  Shapes& operator=(const Shapes&) = delete;
};

// kind 0: unrotated whole ellipses, 1: rotated whole, 2: rotated arcs, 3: dots.
void fill(Shapes& s, int kind) {
  std::mt19937 rng(1234);
  std::uniform_int_distribution<int> coordinate(-100000000, 100000000);
  std::uniform_int_distribution<int> radius(1, 1000000);
  std::uniform_real_distribution<float> angle(-3.0f, 3.0f);
  for (int i = 0; i < kItems; ++i) {
    const WorldPoint c{coordinate(rng), coordinate(rng)};
    const WorldPoint r{radius(rng), radius(rng)};
    const float rho = angle(rng);
    const float start = angle(rng);
    switch (kind) {
      case 0:
        s.items.push_back(new DL::Ellipse(0, c, r, 0.0f, &s.list));
        break;
      case 1:
        s.items.push_back(new DL::Ellipse(0, c, r, rho, &s.list));
        break;
      case 2:
        s.items.push_back(new DL::EllipticalArc(0, c, r, rho, start, start + 2.0f, &s.list));
        break;
      default:
        s.items.push_back(new DL::Dot(0, c));
        break;
    }
  }
}

void BM_AddBounds(benchmark::State& state, int kind) {
  Shapes s;
  fill(s, kind);
  for (auto _ : state) {
    for (DL::Drawable* d : s.items) {
      DL::WorldBounds b = DL::WorldBounds::empty();
      d->add_bounds(b);
      benchmark::DoNotOptimize(b);
    }
  }
  state.SetItemsProcessed(state.iterations() * kItems);
}

// Whole ellipses of device radius 1000 at a scale of 1/100.
void fill_large(Shapes& s) {
  s.list.scale = {0.01, 0.01};
  std::mt19937 rng(99);
  std::uniform_int_distribution<int> coordinate(-1000000, 1000000);
  std::uniform_real_distribution<float> angle(-3.0f, 3.0f);
  for (int i = 0; i < kItems; ++i)
    s.items.push_back(new DL::Ellipse(0, {coordinate(rng), coordinate(rng)}, {100000, 60000},
                                      angle(rng), &s.list));
}

void BM_VectorWalk(benchmark::State& state) {
  Shapes s;
  fill_large(s);
  std::int64_t vectors = 0;
  for (auto _ : state) {
    for (DL::Drawable* d : s.items) {
      DL::DrawableVectorIterator* it = d->create_vector_iterator(false);
      std::int64_t sum = it->vector.start.x;
      int n = 1;
      while (DL::WorldVector* v = it->next()) {
        sum += v->end.x;
        ++n;
      }
      benchmark::DoNotOptimize(sum);
      vectors += n;
      delete it;
    }
  }
  state.SetItemsProcessed(state.iterations() * kItems);
  state.counters["vectors"] =
      static_cast<double>(vectors) / static_cast<double>(state.iterations() * kItems);
}

void BM_GeneratorFloor(benchmark::State& state) {
  Shapes s;
  fill_large(s);
  const int count = s.items.front()->get_vector_count() + 1;
  std::vector<ZR_DCI_Point> buffer(static_cast<std::size_t>(count));
  for (auto _ : state) {
    for (DL::Drawable* d : s.items) {
      const auto* e = static_cast<const DL::Ellipse*>(d);
      ZP_Generate_Elliptical_Points({0, 0, 0}, {e->radii.x, e->radii.y, 0}, 0.0f,
                                    DL::Ellipse::TWO_PI, e->rotation, count, buffer.data());
      benchmark::DoNotOptimize(buffer.data());
    }
  }
  state.SetItemsProcessed(state.iterations() * kItems);
}

BENCHMARK_CAPTURE(BM_AddBounds, unrotated, 0)->Name("ellipse/add_bounds/unrotated")->Repetitions(5);
BENCHMARK_CAPTURE(BM_AddBounds, rotated, 1)->Name("ellipse/add_bounds/rotated")->Repetitions(5);
BENCHMARK_CAPTURE(BM_AddBounds, arc, 2)->Name("ellipse/add_bounds/arc")->Repetitions(5);
BENCHMARK_CAPTURE(BM_AddBounds, dot, 3)->Name("floor/add_bounds/dot")->Repetitions(5);
BENCHMARK(BM_VectorWalk)->Name("ellipse/vectors/1e3")->Repetitions(5);
BENCHMARK(BM_GeneratorFloor)->Name("floor/vectors/1e3")->Repetitions(5);

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  DL::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  std::printf("\n%-32s %12s %12s %8s\n", "case", "median ns", "floor ns", "ratio");
  const std::pair<const char*, const char*> rows[] = {
      {"ellipse/add_bounds/unrotated", "floor/add_bounds/dot"},
      {"ellipse/add_bounds/rotated", "floor/add_bounds/dot"},
      {"ellipse/add_bounds/arc", "floor/add_bounds/dot"},
      {"ellipse/vectors/1e3", "floor/vectors/1e3"},
  };
  for (const auto& [name, floor] : rows) {
    const double t = reporter.median(name), f = reporter.median(floor);
    if (t == 0 || f == 0) continue;
    std::printf("%-32s %12.1f %12.1f %8.2f\n", name, t, f, t / f);
  }
  benchmark::Shutdown();
  return 0;
}
