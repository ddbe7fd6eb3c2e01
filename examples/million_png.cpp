// A million primitives into a display list, drawn whole to a PNG file.
//
//   million_png OUT.png
//
// Builds 900,000 dots and 100,000 short lines scattered over a world of
// 1,000,000 units square (a fixed seed, so the picture is the same each run),
// draws the whole world on a 1024 x 1024 canvas through the cairo backend and
// writes it. Prints the build and draw times; exits 1 on any failure.
#include <chrono>
#include <cstdio>
#include <random>
#include <string>

#include "backends/cairo/cairo_renderer.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "drawables/polything.h"

namespace {

double ms_since(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start)
      .count();
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: million_png OUT.png\n");
    return 2;
  }
  const std::string out = argv[1];
  constexpr int kWorld = 1000000, kSide = 1024;

  auto start = std::chrono::steady_clock::now();
  DL::DisplayList list;
  std::mt19937 random(2024);
  std::uniform_int_distribution<int> coordinate(0, kWorld - 1);
  std::uniform_int_distribution<int> step(-2000, 2000);
  long count = 0;
  for (int i = 0; i < 900000; ++i, ++count) {
    const DL::WorldPoint p{coordinate(random), coordinate(random)};
    // Colour from the position: red grows to the right, blue upward.
    const ZR_RGB32 color = (ZR_RGB32(p.x / 4000) << 16) | ZR_RGB32(p.y / 4000);
    list.add(new DL::Dot(color, p), {p, p});
  }
  for (int i = 0; i < 100000; ++i, ++count) {
    const DL::WorldPoint a{coordinate(random), coordinate(random)};
    const DL::WorldPoint line[2] = {a, {a.x + step(random), a.y + step(random)}};
    auto* polyline = new DL::Polyline(0x008000, 2, line);
    list.add(polyline, polyline->bounds_of());
  }
  const double build_ms = ms_since(start);

  std::string error;
  auto canvas = DL::CairoCanvas::create(DL::CairoCanvas::Format::png, out, kSide, kSide, &error);
  if (!canvas) {
    std::fprintf(stderr, "million_png: %s\n", error.c_str());
    return 1;
  }
  canvas->clear(0xffffff);
  list.set_renderer(canvas->renderer());
  list.set_world_bounds({{0, 0}, {kWorld - 1, kWorld - 1}});
  list.set_screen_bounds({{0, 0}, {kSide - 1, kSide - 1}});
  start = std::chrono::steady_clock::now();
  list.draw_view();
  const double draw_ms = ms_since(start);
  list.set_renderer(nullptr);
  if (!canvas->finish(&error)) {
    std::fprintf(stderr, "million_png: %s\n", error.c_str());
    return 1;
  }
  std::printf("%ld primitives: built in %.0f ms, drawn in %.0f ms, written to %s\n", count,
              build_ms, draw_ms, out.c_str());
  return 0;
}
