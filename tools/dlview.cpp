// dlview: builds a drawing of dots, draws it through the recording renderer, and
// prints what reached the renderer.
//
//   dlview [--dots N] [--show K]
//
// N dots (default 100000) are laid out tile by tile on a square grid; the first
// K calls (default 10) are printed, then a summary. Exits non-zero with a
// one-line message on bad arguments.
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "foundation/rendering.h"

namespace {

bool parse_count(const char* text, long long limit, long long& out) {
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(text, &end, 10);
  if (errno || end == text || *end != '\0' || v < 0 || v > limit) return false;
  out = v;
  return true;
}

int fail(const std::string& message) {
  std::fprintf(stderr, "dlview: %s\n", message.c_str());
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  long long dots = 100000;
  long long show = 10;
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if ((arg == "--dots" || arg == "--show") && i + 1 < argc) {
      long long& target = arg == "--dots" ? dots : show;
      long long limit = arg == "--dots" ? 100000000LL : 1000000LL;
      if (!parse_count(argv[++i], limit, target))
        return fail("bad value for " + arg + ": '" + argv[i] + "' (a whole number up to " +
                    std::to_string(limit) + ")");
    } else if (arg == "--help" || arg == "-h") {
      std::printf("usage: dlview [--dots N] [--show K]\n");
      return 0;
    } else {
      return fail("unknown argument '" + arg + "' (try --help)");
    }
  }

  // A square grid of `side` x `side` dots, 16 world units apart, added in tiles
  // of 64 x 64 dots, the way a drawing program emits a sheet region by region.
  long long side = 1;
  while (side * side < dots) ++side;
  const int tile = 64;
  const int spacing = 16;

  DL::DisplayList list;
  list.set_world_bounds(
      {{0, 0},
       {static_cast<DL::WorldCoord>(side * spacing), static_cast<DL::WorldCoord>(side * spacing)}});
  list.set_screen_bounds({{0, 0}, {1023, 767}});
  auto* renderer = new DL::RecordingRenderer;
  list.set_renderer(renderer);

  auto start = std::chrono::steady_clock::now();
  long long added = 0;
  for (long long ty = 0; ty < side && added < dots; ty += tile)
    for (long long tx = 0; tx < side && added < dots; tx += tile)
      for (long long y = ty; y < ty + tile && y < side && added < dots; ++y)
        for (long long x = tx; x < tx + tile && x < side && added < dots; ++x) {
          DL::WorldPoint p{static_cast<DL::WorldCoord>(x * spacing),
                           static_cast<DL::WorldCoord>(y * spacing)};
          auto color =
              static_cast<ZR_RGB32>(((x * 255 / side) << 16) | ((y * 255 / side) << 8) | 0x40);
          list.add(new DL::Dot(color, p), {p, p});
          ++added;
        }
  auto built = std::chrono::steady_clock::now();
  list.root->draw_unclipped(list);
  auto drawn = std::chrono::steady_clock::now();

  const auto& calls = renderer->calls;
  for (long long i = 0; i < show && i < static_cast<long long>(calls.size()); ++i)
    std::printf("%s  rgb=0x%06x\n", calls[i].to_string().c_str(), calls[i].rendition_color);
  auto ms = [](auto a, auto b) { return std::chrono::duration<double, std::milli>(b - a).count(); };
  std::printf("added %lld dots in %.1f ms; drew %zu calls in %.1f ms\n", added, ms(start, built),
              calls.size(), ms(built, drawn));
  return calls.size() == static_cast<std::size_t>(added) ? 0 : 1;
}
