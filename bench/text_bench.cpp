// Text benchmarks: vectorizing short strings (outline walks) and measuring them
// with the FreeType engine.
//
// Guards: text/vectors/1e4 catches a lost outline cache (every character would
// be flattened anew) or a walk that does more than a matrix transform per edge;
// text/measure/1e4 catches measures that stop being a lookup per character.
// Both print `x_floor`: their time over that of the bounds figure walk of the
// same texts (no engine at all), measured in the same run.
// Each prints the ratio to text/bounds_figure/1e4, the same walk without the
// engine, measured in the same run.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <random>
#include <string>
#include <vector>

#include "displaylist/display_list.h"
#include "text/text.h"

#ifdef DL_HAVE_FREETYPE
#include <chrono>

#include "backends/freetype/freetype_engine.h"

namespace {

using namespace DL;

struct Scene {
  DisplayList list;
  FreeTypeTextEngine* engine = new FreeTypeTextEngine;
  ZR_Font font = FreeTypeTextEngine::make_font("DejaVu Sans");
  std::vector<Text*> texts;

  explicit Scene(int count) {
    add_ref(engine);
    list.text_engine = engine;
    std::mt19937 random(12345);
    const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789 ";
    for (int i = 0; i < count; ++i) {
      std::string s;
      const int length = 4 + static_cast<int>(random() % 9);
      for (int k = 0; k < length; ++k) s += alphabet[random() % (sizeof alphabet - 1)];
      const double x = random() % 100000, y = random() % 100000;
      texts.push_back(
          new Text(ZR_RGB32{0}, font, {x, y}, s.c_str(), length, 20.0, 0.0,
                   {{static_cast<WorldCoord>(x), static_cast<WorldCoord>(y)},
                    {static_cast<WorldCoord>(x) + 200, static_cast<WorldCoord>(y) + 20}},
                   &list, true));
    }
  }
  ~Scene() {
    for (Text* t : texts) t->destroy();
  }
};

long walk(Scene& scene, bool figure) {
  long vectors = 0;
  for (Text* t : scene.texts) {
    DrawableVectorIterator* it = t->create_vector_iterator(figure);
    if (!it->at_end) ++vectors;
    while (it->next()) ++vectors;
    delete it;
  }
  return vectors;
}

// Seconds per pass of the bounds figure walk over `scene`: the floor.
double floor_seconds(Scene& scene) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 20; ++i) benchmark::DoNotOptimize(walk(scene, true));
  return std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() / 20;
}

void report_floor(benchmark::State& state, Scene& scene, double seconds) {
  state.counters["x_floor"] = seconds / floor_seconds(scene);
}

void BM_BoundsFigure(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  long vectors = 0;
  for (auto _ : state) benchmark::DoNotOptimize(vectors = walk(scene, true));
  state.counters["vectors"] = static_cast<double>(vectors);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Vectors(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  if (!scene.engine->ok()) {
    state.SkipWithError("no default face");
    return;
  }
  walk(scene, false);  // fills the caches, as a redraw loop would
  long vectors = 0;
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) benchmark::DoNotOptimize(vectors = walk(scene, false));
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  report_floor(state, scene, seconds / static_cast<double>(state.iterations()));
  state.counters["vectors"] = static_cast<double>(vectors);
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

void BM_Measure(benchmark::State& state) {
  Scene scene(static_cast<int>(state.range(0)));
  if (!scene.engine->ok()) {
    state.SkipWithError("no default face");
    return;
  }
  std::vector<float> widths(16);
  DoublePoint box[4];
  const auto start = std::chrono::steady_clock::now();
  for (auto _ : state) {
    for (Text* t : scene.texts) {
      t->set_text_attributes(scene.list);
      t->accumulated_normalized_widths(widths.data());
      t->get_text_bbox(box);
    }
    benchmark::DoNotOptimize(box);
  }
  const double seconds =
      std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  report_floor(state, scene, seconds / static_cast<double>(state.iterations()));
  state.SetItemsProcessed(state.iterations() * state.range(0));
}

}  // namespace

BENCHMARK(BM_BoundsFigure)
    ->Name("text/bounds_figure/1e4")
    ->Arg(10000)
    ->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Vectors)->Name("text/vectors/1e4")->Arg(10000)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Measure)->Name("text/measure/1e4")->Arg(10000)->Unit(benchmark::kMillisecond);

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}

#else
int main() {
  std::fprintf(stderr, "text_bench: built without FreeType\n");
  return 1;
}
#endif
