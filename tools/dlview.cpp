// dlview: shows drawings through the display list.
//
//   dlview [--dots N] [--show K] [--out PATH] [--size WxH]
//   dlview FILE.dxf... [--view X0,Y0,X1,Y1] [--size WxH] [--layer-off NAME]... [--out PATH]
//
// Without files it builds a drawing of N dots (default 100000), laid out tile
// by tile on a square grid, draws it through the recording renderer, prints the
// first K calls (default 10) and a summary; with --out it also renders it to a
// PNG, PDF or SVG file (by the extension).
//
// With DXF files it loads them, lays them out side by side on one sheet (each
// scaled uniformly to the same size), prints per file what was shown, what is
// not shown yet and what was skipped, and renders the sheet to --out (default
// dlview.png). --view takes a rectangle in sheet coordinates (the report prints
// the sheet's); the view is widened to the picture's proportions, centred.
// --layer-off hides a layer by name, in every file.
//
// With --gui the drawing is shown in a window instead (tools/gui/gui.h says
// what it does); --script and --bench drive that window.
//
// Bad arguments or input give a one-line message and exit status 2.
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "foundation/rendering.h"
#include "tools/dxf_loader.h"
#ifdef DLVIEW_HAVE_GUI
#include "tools/gui/gui.h"
#endif

namespace {

bool parse_count(const char* text, long long limit, long long& out) {
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(text, &end, 10);
  if (errno || end == text || *end != '\0' || v < 0 || v > limit) return false;
  out = v;
  return true;
}

// "WxH", each 1 to 32767.
bool parse_size(const std::string& text, int& w, int& h) {
  unsigned x = 0, y = 0;
  char tail = 0;
  if (std::sscanf(text.c_str(), "%ux%u%c", &x, &y, &tail) != 2) return false;
  if (x < 1 || y < 1 || x > 32767 || y > 32767) return false;
  w = static_cast<int>(x);
  h = static_cast<int>(y);
  return true;
}

// "X0,Y0,X1,Y1": four whole numbers in 32 bits, X0 < X1, Y0 < Y1.
bool parse_view(const std::string& text, DL::WorldBounds& view) {
  long long v[4];
  const char* p = text.c_str();
  for (int i = 0; i < 4; ++i) {
    char* end = nullptr;
    errno = 0;
    v[i] = std::strtoll(p, &end, 10);
    if (errno || end == p || v[i] < INT32_MIN || v[i] > INT32_MAX) return false;
    if (i < 3 && *end != ',') return false;
    if (i == 3 && *end != '\0') return false;
    p = end + 1;
  }
  if (v[0] >= v[2] || v[1] >= v[3]) return false;
  view = {{static_cast<DL::WorldCoord>(v[0]), static_cast<DL::WorldCoord>(v[1])},
          {static_cast<DL::WorldCoord>(v[2]), static_cast<DL::WorldCoord>(v[3])}};
  return true;
}

// The window, when --gui is given: errors also go to a dialog there.
struct Gui {
  bool on = false;
  bool bench = false;
  std::string script;
} gui;

int fail(const std::string& message) {
  std::fprintf(stderr, "dlview: %s\n", message.c_str());
#ifdef DLVIEW_HAVE_GUI
  if (gui.on) dlview::show_error_dialog(message, gui.bench || !gui.script.empty());
#endif
  return 2;
}

// Hands a built list to the window.
int show_in_window(DL::DisplayList& list, const DL::WorldBounds& extent,
                   std::vector<std::pair<std::string, DL::Extra_Layer_Info*>> layers,
                   long long primitives, int w, int h) {
#ifdef DLVIEW_HAVE_GUI
  dlview::GuiDrawing drawing;
  drawing.list = &list;
  drawing.extent = extent;
  for (auto& [name, info] : layers) drawing.layers.push_back({name, info});
  drawing.primitives = primitives;
  dlview::GuiOptions options;
  options.width = w;
  options.height = h;
  options.script = gui.script;
  options.bench = gui.bench;
  return dlview::run_gui(drawing, options);
#else
  (void)list, (void)extent, (void)layers, (void)primitives, (void)w, (void)h;
  return fail("--gui: this dlview was built without GTK 3");
#endif
}

double ms_between(std::chrono::steady_clock::time_point a,
                  std::chrono::steady_clock::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

// Widens `view` about its centre to the proportions of a w x h picture, kept
// inside 32 bits.
DL::WorldBounds fit_view(const DL::WorldBounds& view, int w, int h) {
  double x0 = view.min.x, y0 = view.min.y, x1 = view.max.x, y1 = view.max.y;
  double vw = std::max(1.0, x1 - x0), vh = std::max(1.0, y1 - y0);
  double want = static_cast<double>(w) / h;
  if (vw / vh < want) {
    double grow = (vh * want - vw) / 2;
    x0 -= grow;
    x1 += grow;
  } else {
    double grow = (vw / want - vh) / 2;
    y0 -= grow;
    y1 += grow;
  }
  auto clamp = [](double v) { return DL::round_to_int32_saturated(v); };
  return {{clamp(x0), clamp(y0)}, {clamp(x1), clamp(y1)}};
}

// Draws `list` as it is viewed into a new canvas at `path` and completes the file.
bool render(DL::DisplayList& list, const std::string& path, int w, int h, std::string& error,
            double& milliseconds) {
  DL::CairoCanvas::Format format;
  if (!DL::CairoCanvas::format_for_path(path, format)) {
    error = "--out must end in .png, .pdf or .svg: '" + path + "'";
    return false;
  }
  auto canvas = DL::CairoCanvas::create(format, path, w, h, &error);
  if (!canvas) return false;
  ZR_Renderer* previous = list.renderer;
  if (previous) add_ref(previous);
  list.set_renderer(canvas->renderer());
  list.set_screen_bounds({{0, 0}, {w - 1, h - 1}});
  auto start = std::chrono::steady_clock::now();
  list.root->draw_unclipped(list);
  milliseconds = ms_between(start, std::chrono::steady_clock::now());
  list.set_renderer(previous);
  if (previous) release(previous);
  return canvas->finish(&error);
}

int run_dots(long long dots, long long show, const std::string& out, int w, int h) {
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
  if (gui.on) return show_in_window(list, list.world_bounds, {}, added, w, h);
  list.root->draw_unclipped(list);
  auto drawn = std::chrono::steady_clock::now();

  const auto& calls = renderer->calls;
  for (long long i = 0; i < show && i < static_cast<long long>(calls.size()); ++i)
    std::printf("%s  rgb=0x%06x\n", calls[i].to_string().c_str(), calls[i].rendition_color);
  std::printf("added %lld dots in %.1f ms; drew %zu calls in %.1f ms\n", added,
              ms_between(start, built), calls.size(), ms_between(built, drawn));
  const bool complete = calls.size() == static_cast<std::size_t>(added);
  if (!out.empty()) {
    list.set_world_bounds(fit_view(list.world_bounds, w, h));
    std::string error;
    double ms = 0;
    if (!render(list, out, w, h, error, ms)) return fail(error);
    std::printf("rendered %dx%d to %s in %.1f ms\n", w, h, out.c_str(), ms);
  }
  return complete ? 0 : 1;
}

int run_dxf(const std::vector<std::string>& files, const std::vector<std::string>& layers_off,
            bool has_view, DL::WorldBounds view, std::string out, int w, int h) {
  auto start = std::chrono::steady_clock::now();
  std::vector<dlview::DxfDrawing> drawings(files.size());
  for (std::size_t i = 0; i < files.size(); ++i) {
    std::string error;
    if (!dlview::load_dxf(files[i], drawings[i], error)) return fail(error);
  }
  auto loaded = std::chrono::steady_clock::now();
  DL::WorldBounds sheet;
  std::vector<dlview::Placement> placements = dlview::lay_out(drawings, sheet);

  DL::DisplayList list;
  list.saturate_device_points = true;  // far points of a zoomed view must not wrap
  dlview::LayerTable layers;
  std::vector<dlview::MappingReport> reports;
  for (std::size_t i = 0; i < drawings.size(); ++i)
    reports.push_back(dlview::add_to_display_list(drawings[i], placements[i], layers, list));
  auto built = std::chrono::steady_clock::now();
  for (const std::string& name : layers_off)
    if (!layers.turn_off(name)) return fail("no layer named '" + name + "' in the drawings");
  if (gui.on) {
    long long shown = 0;
    for (const dlview::MappingReport& r : reports)
      for (long n : r.shown) shown += n;
    return show_in_window(list, has_view ? view : sheet, layers.entries(), shown, w, h);
  }

  long long shown_total = 0;
  for (std::size_t i = 0; i < drawings.size(); ++i) {
    const dlview::DxfDrawing& d = drawings[i];
    const dlview::MappingReport& r = reports[i];
    std::string shown, later, skipped;
    for (int k = 0; k < dlview::kDxfKindCount; ++k) {
      const char* name = dlview::dxf_kind_name(static_cast<dlview::DxfKind>(k));
      if (r.shown[k]) shown += " " + std::string(name) + " " + std::to_string(r.shown[k]);
      if (r.not_shown_yet[k])
        later += " " + std::string(name) + " " + std::to_string(r.not_shown_yet[k]);
      shown_total += r.shown[k];
    }
    for (const auto& [name, n] : d.skipped) skipped += " " + name + " " + std::to_string(n);
    if (d.invalid) skipped += " invalid " + std::to_string(d.invalid);
    std::printf("%s: %zu entities, %zu blocks, %zu layers\n", d.path.c_str(), d.entities.size(),
                d.blocks.size(), d.layers.size());
    std::printf("  shown:%s\n", shown.empty() ? " none" : shown.c_str());
    std::printf("  not shown yet:%s\n", later.empty() ? " none" : later.c_str());
    std::printf("  skipped:%s\n", skipped.empty() ? " none" : skipped.c_str());
  }
  std::printf("sheet: %d,%d,%d,%d\n", sheet.min.x, sheet.min.y, sheet.max.x, sheet.max.y);

  list.set_world_bounds(fit_view(has_view ? view : sheet, w, h));
  if (out.empty()) out = "dlview.png";
  std::string error;
  double ms = 0;
  if (!render(list, out, w, h, error, ms)) return fail(error);
  std::printf(
      "loaded in %.1f ms, inserted %lld drawables in %.1f ms, drew %dx%d to %s in %.1f ms\n",
      ms_between(start, loaded), shown_total, ms_between(loaded, built), w, h, out.c_str(), ms);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  long long dots = 100000;
  long long show = 10;
  std::string out;
  int width = 1024, height = 768;
  bool has_view = false;
  DL::WorldBounds view;
  std::vector<std::string> files, layers_off;
  for (int i = 1; i < argc; ++i) gui.on = gui.on || std::string(argv[i]) == "--gui";
  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    const bool has_value = i + 1 < argc;
    if ((arg == "--dots" || arg == "--show") && has_value) {
      long long& target = arg == "--dots" ? dots : show;
      long long limit = arg == "--dots" ? 100000000LL : 1000000LL;
      if (!parse_count(argv[++i], limit, target))
        return fail("bad value for " + arg + ": '" + argv[i] + "' (a whole number up to " +
                    std::to_string(limit) + ")");
    } else if (arg == "--out" && has_value) {
      out = argv[++i];
      DL::CairoCanvas::Format format;
      if (!DL::CairoCanvas::format_for_path(out, format))
        return fail("--out must end in .png, .pdf or .svg: '" + out + "'");
    } else if (arg == "--size" && has_value) {
      if (!parse_size(argv[++i], width, height))
        return fail(std::string("bad value for --size: '") + argv[i] + "' (WxH, 1 to 32767 each)");
    } else if (arg == "--view" && has_value) {
      if (!parse_view(argv[++i], view))
        return fail(std::string("bad value for --view: '") + argv[i] +
                    "' (X0,Y0,X1,Y1: whole numbers, X0 < X1 and Y0 < Y1)");
      has_view = true;
    } else if (arg == "--layer-off" && has_value) {
      layers_off.push_back(argv[++i]);
    } else if (arg == "--gui" || arg == "--bench") {
      (arg == "--gui" ? gui.on : gui.bench) = true;
    } else if (arg == "--script" && has_value) {
      gui.script = argv[++i];
    } else if (arg == "--help" || arg == "-h") {
      std::printf(
          "usage: dlview [--dots N] [--show K] [--out PATH] [--size WxH]\n"
          "       dlview FILE.dxf... [--view X0,Y0,X1,Y1] [--size WxH] [--layer-off NAME]... "
          "[--out PATH.{png,pdf,svg}]\n"
          "       dlview --gui [FILE.dxf...] [--size WxH] [--script PATH] [--bench]\n");
      return 0;
    } else if (!arg.empty() && arg[0] != '-') {
      files.push_back(arg);
    } else if (arg.rfind("--", 0) == 0 && !has_value &&
               (arg == "--dots" || arg == "--show" || arg == "--out" || arg == "--size" ||
                arg == "--view" || arg == "--layer-off" || arg == "--script")) {
      return fail(arg + " needs a value");
    } else {
      return fail("unknown argument '" + arg + "' (try --help)");
    }
  }
  if ((gui.bench || !gui.script.empty()) && !gui.on) return fail("--bench and --script need --gui");
  if (files.empty()) {
    if (has_view || !layers_off.empty()) return fail("--view and --layer-off need DXF files");
    return run_dots(dots, show, out, width, height);
  }
  return run_dxf(files, layers_off, has_view, view, out, width, height);
}
