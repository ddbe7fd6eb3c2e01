// Loading DXF files: the reader and the extents (dl_dxf's load_dxf), and the
// mapping of what it read into a display list.
//
// Guards against regressions in: the pair walk (one pass, numbers through
// std::from_chars, views into the mapped file), the records (56 bytes an
// entity, a line's points on the heap), and the mapping's cost per entity.
//
//   dxf/load/lines/random     200,000 LINEs scattered over a square
//   dxf/load/lines/rows       200,000 LINEs in rows, as drawn region by region
//   dxf/load/mixed            50,000 each of LWPOLYLINE (bulged), ARC, TEXT
//                             and INSERT of a small block
//   dxf/map/lines/random      the random lines into a display list
//
// The files are written once into the build folder (bench-data/). Rates are
// per second: bytes of file (MB/s) and entities.
#include <benchmark/benchmark.h>
#include <sys/stat.h>

#include <cstdio>
#include <random>
#include <string>

#include "displaylist/display_list.h"
#include "dxf/dxf_loader.h"
#include "dxf/dxf_mapping.h"

namespace {

constexpr int kLines = 200000;
constexpr int kMixed = 50000;

std::string folder() {
  const std::string dir = DL_BENCH_FILES_DIR;
  ::mkdir(dir.c_str(), 0755);
  return dir;
}

// Writes the file once per run; returns its path.
std::string lines_file(bool rows) {
  const std::string path = folder() + (rows ? "/rows.dxf" : "/random.dxf");
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return path;
  std::mt19937 rng(19);
  std::uniform_real_distribution<double> square(0, 10000), step(-50, 50);
  std::fputs("0\nSECTION\n2\nENTITIES\n", f);
  const int side = 448;  // about the square root of kLines
  for (int i = 0; i < kLines; ++i) {
    const double x = rows ? (i % side) * 10000.0 / side : square(rng);
    const double y = rows ? (i / side) * 10000.0 / side : square(rng);
    std::fprintf(
        f,
        "0\nLINE\n5\n%X\n100\nAcDbEntity\n8\n0\n62\n%d\n100\nAcDbLine\n10\n%.4f\n20\n%.4f\n"
        "30\n0.0\n11\n%.4f\n21\n%.4f\n31\n0.0\n",
        0x100 + i, 1 + i % 7, x, y, x + step(rng), y + step(rng));
  }
  std::fputs("0\nENDSEC\n0\nEOF\n", f);
  std::fclose(f);
  return path;
}

std::string mixed_file() {
  const std::string path = folder() + "/mixed.dxf";
  std::FILE* f = std::fopen(path.c_str(), "w");
  if (!f) return path;
  std::fputs(
      "0\nSECTION\n2\nBLOCKS\n0\nBLOCK\n8\n0\n2\nMARK\n70\n0\n10\n0\n20\n0\n"
      "0\nCIRCLE\n8\n0\n10\n0\n20\n0\n40\n1\n0\nLINE\n8\n0\n10\n-1\n20\n0\n11\n1\n21\n0\n"
      "0\nENDBLK\n8\n0\n0\nENDSEC\n0\nSECTION\n2\nENTITIES\n",
      f);
  std::mt19937 rng(21);
  std::uniform_real_distribution<double> square(0, 10000);
  for (int i = 0; i < kMixed; ++i) {
    const double x = square(rng), y = square(rng);
    std::fprintf(
        f,
        "0\nLWPOLYLINE\n8\nWALLS\n90\n3\n70\n0\n10\n%.3f\n20\n%.3f\n42\n0.5\n10\n%.3f\n20\n"
        "%.3f\n10\n%.3f\n20\n%.3f\n",
        x, y, x + 10, y, x + 10, y + 10);
    std::fprintf(f, "0\nARC\n8\n0\n10\n%.3f\n20\n%.3f\n40\n5\n50\n15\n51\n200\n", x, y);
    std::fprintf(f, "0\nTEXT\n8\nTEXT\n10\n%.3f\n20\n%.3f\n40\n2.5\n1\nRoom %d\n", x, y, i);
    std::fprintf(f, "0\nINSERT\n8\n0\n2\nMARK\n10\n%.3f\n20\n%.3f\n41\n2\n42\n2\n50\n30\n", x, y);
  }
  std::fputs("0\nENDSEC\n0\nEOF\n", f);
  std::fclose(f);
  return path;
}

long long file_size(const std::string& path) {
  struct stat st;
  return ::stat(path.c_str(), &st) == 0 ? static_cast<long long>(st.st_size) : 0;
}

void load(benchmark::State& state, const std::string& path, long long entities) {
  const long long bytes = file_size(path);
  for (auto _ : state) {
    DL::dxf::DxfDrawing d;
    std::string error;
    if (!DL::dxf::load_dxf(path, d, error)) {
      state.SkipWithError(error.c_str());
      return;
    }
    benchmark::DoNotOptimize(d.entities.data());
  }
  state.SetBytesProcessed(state.iterations() * bytes);
  state.SetItemsProcessed(state.iterations() * entities);
}

void BM_LoadRandomLines(benchmark::State& state) {
  static const std::string path = lines_file(false);
  load(state, path, kLines);
}
void BM_LoadRowsOfLines(benchmark::State& state) {
  static const std::string path = lines_file(true);
  load(state, path, kLines);
}
void BM_LoadMixed(benchmark::State& state) {
  static const std::string path = mixed_file();
  load(state, path, 4LL * kMixed);
}

void BM_MapRandomLines(benchmark::State& state) {
  static const std::string path = lines_file(false);
  std::vector<DL::dxf::DxfDrawing> drawings(1);
  std::string error;
  if (!DL::dxf::load_dxf(path, drawings[0], error)) {
    state.SkipWithError(error.c_str());
    return;
  }
  DL::WorldBounds sheet;
  const std::vector<DL::dxf::Placement> placements = DL::dxf::lay_out(drawings, sheet);
  for (auto _ : state) {
    DL::dxf::SheetContext context(nullptr);
    DL::DisplayList list;
    DL::dxf::add_to_display_list(drawings[0], placements[0], context, list);
    benchmark::DoNotOptimize(list.root);
  }
  state.SetItemsProcessed(state.iterations() * kLines);
}

BENCHMARK(BM_LoadRandomLines)->Name("dxf/load/lines/random")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadRowsOfLines)->Name("dxf/load/lines/rows")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_LoadMixed)->Name("dxf/load/mixed")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_MapRandomLines)->Name("dxf/map/lines/random")->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
