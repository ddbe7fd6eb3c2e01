// dlview: shows drawings through the display list.
//
//   dlview [--blocks N] [--size WxH] [--clip circle|polygon] [--pick X,Y]
//          [--repeat N] [--layer-off NAME]... [--complex-clip] [--out PATH.png]
//   dlview FILE.dxf... [--view X0,Y0,X1,Y1] [--size WxH] [--clip circle|polygon]
//          [--layer-off NAME]... [--pick X,Y] [--repeat N] [--out PATH.{png,pdf,svg}]
//          [--layout NAME] [--strict] [--paper A0..A4|letter[ landscape]]
//          [--scale 1:N|fit]
//
// Without files it builds the demo city (demo_drawing.h; --blocks N city
// blocks a side, 330 by default: about two million drawables) and renders four
// pictures through `draw_view`: the overview, a zoom on 1% of the sheet's
// width at its centre, and the overview under a circular and under a polygonal
// complex clip (--clip renders only that one). The pictures go next to --out
// (default dlview.png): dlview-overview.png, dlview-zoom.png, dlview-circle.png,
// dlview-polygon.png. It picks the drawable under a pixel of the overview
// (--pick X,Y, columns and rows from the top left; the centre by default)
// through the selection traversal, and prints timings and the tree's counts.
//
// With DXF files it loads them, lays them out side by side on one sheet, prints
// per file what was shown, what could not be and what was skipped, and renders
// the sheet, framed by what was drawn with a margin of 2% as in the window (or
// --view X0,Y0,X1,Y1 in the first drawing's units), to --out (default dlview.png),
// under --clip if given.
//
// A PDF or SVG page takes the drawing's shape (its larger side 1024 points)
// unless --size is given; --paper gives it a paper size instead (A0 to A4 or
// letter, portrait unless "landscape" follows), the drawing fitted on it or,
// with --scale 1:N, centred at that scale: N drawing millimetres (by
// $INSUNITS; a unitless drawing counts as millimetres) to one on paper.
// --scale without --paper sizes the page to the drawing at that scale. Text
// in a PDF or SVG is stored as text (searchable, selectable), not outlines.
//
// Model space is shown; --layout NAME shows a paper-space layout instead. A
// file cut short (no EOF, or ending inside a section) is drawn as far as it
// goes with one warning line, or refused with --strict. --out is checked for
// a writable place before anything is loaded.
//
// --dots N builds a plain grid of N dots instead of the city, tile by tile,
// and renders it to --out: the simplest large drawing, for measuring.
//
// With --gui the drawing is shown in a window instead (tools/gui/gui.h says
// what it does); --script and --bench drive that window.
//
// --repeat N shows the whole sheet N by N times through nested lists.
// --layer-off hides a layer by name. Complex clips are left to the library's
// classification unless --complex-clip says the renderer clips to them.
//
// Bad arguments or input give a one-line message and exit status 2.
#include <cairo.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <clocale>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "backends/cairo/cairo_picker.h"
#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/cairo_text.h"
#include "backends/cairo/cairo_text_writer.h"
#include "backends/freetype/freetype_engine.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "dxf/dxf_loader.h"
#include "dxf/dxf_mapping.h"
#include "nested/drawable_display_list.h"
#include "tools/demo_drawing.h"
#ifdef DLVIEW_HAVE_GUI
#include "tools/gui/gui.h"
#endif

namespace {

using Clock = std::chrono::steady_clock;

double ms_between(Clock::time_point a, Clock::time_point b) {
  return std::chrono::duration<double, std::milli>(b - a).count();
}

bool parse_count(const char* text, long long lo, long long hi, long long& out) {
  char* end = nullptr;
  errno = 0;
  long long v = std::strtoll(text, &end, 10);
  if (errno || end == text || *end != '\0' || v < lo || v > hi) return false;
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

// `n` whole numbers in 32 bits separated by commas.
bool parse_numbers(const std::string& text, int n, long long* v) {
  const char* p = text.c_str();
  for (int i = 0; i < n; ++i) {
    char* end = nullptr;
    errno = 0;
    v[i] = std::strtoll(p, &end, 10);
    if (errno || end == p || v[i] < INT32_MIN || v[i] > INT32_MAX) return false;
    if (i < n - 1 && *end != ',') return false;
    if (i == n - 1 && *end != '\0') return false;
    p = end + 1;
  }
  return true;
}

// "X0,Y0,X1,Y1" in drawing units: finite, X0 < X1, Y0 < Y1.
bool parse_view(const std::string& text, double v[4]) {
  const char* p = text.c_str();
  for (int i = 0; i < 4; ++i) {
    char* end = nullptr;
    errno = 0;
    v[i] = std::strtod(p, &end);
    if (errno || end == p || !std::isfinite(v[i])) return false;
    if (*end != (i < 3 ? ',' : '\0')) return false;
    p = end + 1;
  }
  return v[0] < v[2] && v[1] < v[3];
}

// Whether a file can be written at `path` (it or its folder is writable),
// without creating it.
bool writable(const std::string& path, std::string& error) {
  struct stat st;
  if (::stat(path.c_str(), &st) == 0) {
    if (S_ISDIR(st.st_mode)) {
      error = "--out " + path + " is a directory";
      return false;
    }
    if (::access(path.c_str(), W_OK) != 0) {
      error = "cannot write --out " + path + ": " + std::strerror(errno);
      return false;
    }
    return true;
  }
  const std::size_t slash = path.find_last_of('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  if (::access(folder.c_str(), W_OK) != 0) {
    error = "cannot write --out " + path + ": " + std::strerror(errno);
    return false;
  }
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
// `min_scale` gives the scale below which a layer is not drawn (none: always).
int show_in_window(DL::DisplayList& list, const DL::WorldBounds& extent,
                   std::vector<std::pair<std::string, DL::Extra_Layer_Info*>> layers,
                   long long primitives, int w, int h, DL::CairoTextPainter* text,
                   const std::map<DL::Extra_Layer_Info*, double>& min_scale = {},
                   std::function<std::string(const DL::DisplayList*)> list_name = {}) {
#ifdef DLVIEW_HAVE_GUI
  dlview::GuiDrawing drawing;
  drawing.ready = Clock::now();  // --bench times the first picture from here
  drawing.list = &list;
  drawing.extent = extent;
  for (auto& [name, info] : layers) {
    auto it = min_scale.find(info);
    drawing.layers.push_back({name, info, it == min_scale.end() ? 0.0 : it->second});
  }
  drawing.primitives = primitives;
  drawing.text = text;
  drawing.list_name = std::move(list_name);
  dlview::GuiOptions options;
  options.width = w;
  options.height = h;
  options.script = gui.script;
  options.bench = gui.bench;
  return dlview::run_gui(drawing, options);
#else
  (void)list, (void)extent, (void)layers, (void)primitives, (void)w, (void)h, (void)text,
      (void)min_scale, (void)list_name;
  return fail("--gui: this dlview was built without GTK 3");
#endif
}

// The view of a w x h picture that shows `view` whole, centred, with
// `margin` of its size free on every side (the window frames a drawing with
// the same 2%), kept inside 32 bits.
DL::WorldBounds fit_view(const DL::WorldBounds& view, int w, int h, double margin = 0.0) {
  const double cx = (static_cast<double>(view.min.x) + view.max.x) / 2;
  const double cy = (static_cast<double>(view.min.y) + view.max.y) / 2;
  const double vw = std::max(1.0, static_cast<double>(view.max.x) - view.min.x);
  const double vh = std::max(1.0, static_cast<double>(view.max.y) - view.min.y);
  const double pw = std::max(1, w - 1), ph = std::max(1, h - 1);
  const double upp = (1 + 2 * margin) * std::max(vw / pw, vh / ph);  // world units a pixel
  const double hw = upp * pw / 2, hh = upp * ph / 2;
  auto clamp = [](double v) { return DL::round_to_int32_saturated(v); };
  return {{clamp(cx - hw), clamp(cy - hh)}, {clamp(cx + hw), clamp(cy + hh)}};
}

// The margin of a whole drawing in every picture and in the window.
constexpr double kFrameMargin = 0.02;

enum class Clip { none, circle, polygon };

// The complex clip of a w x h picture, in screen units (y up): a circle of 128
// sides, or a concave star of 7 points, both centred.
ZR_Contour_Set clip_contours(Clip clip, int w, int h) {
  const double cx = (w - 1) / 2.0, cy = (h - 1) / 2.0, r = 0.42 * std::min(w, h);
  std::vector<ZR_Point> contour;
  const double pi = 3.14159265358979323846;
  const int n = clip == Clip::circle ? 128 : 14;
  for (int i = 0; i < n; ++i) {
    const double a = 2 * pi * i / n + pi / 2;
    const double radius = clip == Clip::circle ? r : (i % 2 == 0 ? r : r * 0.45);
    contour.push_back({static_cast<float>(cx + radius * std::cos(a)),
                       static_cast<float>(cy + radius * std::sin(a)), 0.0f});
  }
  return ZR_Contour_Set::make({contour});
}

// What every picture is drawn with.
struct Output {
  DL::CairoTextPainter* painter;  // the list's text engine
  bool complex_clip_supported = false;
  // The engine that shapes for the painter: a PDF or SVG takes its glyphs
  // as text (CairoTextWriter) instead of the painter's outlines.
  DL::FreeTypeTextEngine* shaper = nullptr;
};

// Draws the view of `list` into a new picture at `path` through draw_view,
// under `clip`, and completes the file.
bool render(DL::DisplayList& list, const std::string& path, int w, int h, Clip clip,
            const Output& out, std::string& error, double& milliseconds) {
  DL::CairoCanvas::Format format;
  if (!DL::CairoCanvas::format_for_path(path, format)) {
    error = "--out must end in .png, .pdf or .svg: '" + path + "'";
    return false;
  }
  auto canvas = DL::CairoCanvas::create(format, path, w, h, &error);
  if (!canvas) return false;
  canvas->renderer()->set_complex_clip_supported(out.complex_clip_supported);
  // The clip holds for the nested lists (blocks) too.
  canvas->renderer()->set_outer_list(&list);
  list.set_renderer(canvas->renderer());
  list.complex_clip_supported = out.complex_clip_supported;
  list.set_screen_bounds({{0, 0}, {w - 1, h - 1}});
  list.rendition.set_hard_clip({0, w - 1, 0, h - 1}, false);
  if (clip != Clip::none) {
    ZR_Contour_Set contours = clip_contours(clip, w, h);
    list.rendition.set_complex_clip(&contours, false);
  } else {
    list.rendition.set_complex_clip(nullptr, false);
  }
  list.rendition.validate_hard_complex_clip();
  out.painter->set_renderer(canvas->renderer());
  DL::CairoTextWriter writer(canvas->renderer());
  const bool as_text = format != DL::CairoCanvas::Format::png && out.shaper;
  if (as_text) out.shaper->set_sink(&writer);
  auto start = Clock::now();
  list.draw_view();
  milliseconds = ms_between(start, Clock::now());
  if (as_text) out.shaper->set_sink(out.painter);
  out.painter->set_renderer(nullptr);
  list.rendition.set_complex_clip(nullptr, false);
  list.set_renderer(nullptr);
  canvas->renderer()->set_outer_list(nullptr);
  if (!canvas->finish(&error)) return false;
  return format != DL::CairoCanvas::Format::svg ||
         DL::add_svg_text(path, writer.svg_text(), &error);
}

// `base` with `-name` before its extension.
std::string sibling(const std::string& base, const std::string& name) {
  std::size_t dot = base.find_last_of('.');
  std::size_t slash = base.find_last_of('/');
  if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
    return base + "-" + name + ".png";
  return base.substr(0, dot) + "-" + name + base.substr(dot);
}

// The tree's counts, from a dump into a stream that writes nothing.
void print_tree_counts(const DL::DisplayList& list) {
  DL::DisplayListDebug debug{};
  std::ostream nowhere(nullptr);
  list.root->dump_subtree(nowhere, 0, debug);
  std::printf("tree: %d groups (%d bytes), %d drawables (%d bytes, %d of them common parts)\n",
              debug.group_count, debug.group_bytes, debug.drawable_count, debug.drawable_bytes,
              debug.drawable_common_bytes);
}

// Shows `sheet` `n` by `n` times in `outer` through nested lists, scaled down
// if needed so that the whole stays inside 2^30; returns the extent.
DL::WorldBounds repeat_sheet(DL::DisplayList& sheet, const DL::WorldBounds& extent, int n,
                             DL::DisplayList& outer) {
  const double w = static_cast<double>(extent.max.x) - extent.min.x;
  const double h = static_cast<double>(extent.max.y) - extent.min.y;
  const double pitch = std::max(w, h) * 1.0625;
  const double scale = std::min(1.0, 1073741824.0 / (pitch * n));
  DL::WorldBounds all = DL::WorldBounds::empty();
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i) {
      auto* d = new DL::DrawableDisplayList(ZR_RGB32{0}, &sheet, &extent,
                                            DL::DrawableDisplayList::Ownership::borrowed);
      d->set_scale({scale, scale});
      d->set_offset({(i * pitch - extent.min.x) * scale, (j * pitch - extent.min.y) * scale});
      all.merge(d->mapped_bounds());
      outer.add(d, d->mapped_bounds());
    }
  return all;
}

// Picks at picture pixel (x, y) of the view `list` shows in a w x h picture.
void pick_and_print(DL::DisplayList& list, int w, int h, long long x, long long y,
                    const Output& out) {
  std::string error;
  auto canvas = DL::CairoCanvas::create(DL::CairoCanvas::Format::png, "", 1, 1, &error);
  if (!canvas) return;
  canvas->renderer()->set_complex_clip_supported(out.complex_clip_supported);
  list.set_renderer(canvas->renderer());
  list.set_screen_bounds({{0, 0}, {w - 1, h - 1}});
  DL::CairoPicker* picker = new DL::CairoPicker;
  add_ref(picker);
  auto start = Clock::now();
  const DL::Drawable* hit = picker->pick(list, static_cast<int>(x), static_cast<int>(h - 1 - y), 2);
  const double ms = ms_between(start, Clock::now());
  release(picker);
  list.set_renderer(nullptr);
  if (!hit) {
    std::printf("pick %lld,%lld: nothing there (%.2f ms)\n", x, y, ms);
    return;
  }
  DL::WorldBounds b = DL::WorldBounds::empty();
  hit->add_bounds(b);
  std::printf("pick %lld,%lld: %s, colour #%06x, bounds %d,%d,%d,%d (%.2f ms)\n", x, y,
              dlview::class_name(hit), hit->color.rgb() & 0xffffff, b.min.x, b.min.y, b.max.x,
              b.max.y, ms);
}

struct Arguments {
  std::vector<std::string> files, layers_off;
  std::string out;
  int width = 1024, height = 768;
  bool size_given = false;  // --size: else a PDF or SVG page takes the drawing's shape
  bool has_view = false;
  double view[4] = {0, 0, 0, 0};  // --view, in the first drawing's units
  Clip clip = Clip::none;
  bool has_pick = false;
  long long pick_x = 0, pick_y = 0;
  long long repeat = 1;
  long long blocks = 330;
  long long dots = 0;  // a plain grid of dots instead of the city, when not 0
  bool complex_clip = false;
  std::string layout;   // --layout: a paper-space layout instead of model space
  bool strict = false;  // --strict: a file cut short is an error
  // --paper: the page in millimetres, width and height; 0 for none.
  double paper_w = 0, paper_h = 0;
  double scale = 0;  // --scale 1:N: N; 0 fits the drawing on the page
};

// A paper size by name ("A4", "a3 landscape", "letter,landscape"); false for
// none known.
bool parse_paper(std::string v, double& w, double& h) {
  for (char& c : v) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  bool landscape = false;
  for (const char* suffix : {" landscape", ",landscape", "-landscape"}) {
    const std::string x(suffix);
    if (v.size() > x.size() && v.compare(v.size() - x.size(), x.size(), x) == 0) {
      landscape = true;
      v.resize(v.size() - x.size());
    }
  }
  static const struct {
    const char* name;
    double w, h;  // portrait, millimetres
  } sizes[] = {{"a0", 841, 1189}, {"a1", 594, 841}, {"a2", 420, 594},
               {"a3", 297, 420},  {"a4", 210, 297}, {"letter", 215.9, 279.4}};
  for (const auto& size : sizes)
    if (v == size.name) {
      w = landscape ? size.h : size.w;
      h = landscape ? size.w : size.h;
      return true;
    }
  return false;
}

// N of a scale 1:N as the user would write it.
std::string format_scale(double n) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", n);
  return text;
}

// Millimetres a drawing unit by $INSUNITS; a unitless drawing counts as
// millimetres, as do units this table lacks.
double millimetres_per_unit(int insunits) {
  switch (insunits) {
    case 1:
      return 25.4;  // inches
    case 2:
      return 304.8;  // feet
    case 3:
      return 1609344;  // miles
    case 5:
      return 10;  // centimetres
    case 6:
      return 1000;  // metres
    case 7:
      return 1000000;  // kilometres
    case 8:
      return 2.54e-5;  // microinches
    case 9:
      return 0.0254;  // mils
    case 10:
      return 914.4;  // yards
    case 13:
      return 0.001;  // microns
    case 14:
      return 100;  // decimetres
    default:
      return 1;  // millimetres, unitless and the rest
  }
}

// A square grid of `a.dots` dots, 16 world units apart, added in tiles of 64 x 64
// dots, the way a drawing program emits a sheet region by region.
int run_dots(const Arguments& a, Output& out) {
  long long side = 1;
  while (side * side < a.dots) ++side;
  const int tile = 64;
  const int spacing = 16;
  DL::DisplayList list;
  list.saturate_device_points = true;
  auto start = Clock::now();
  long long added = 0;
  for (long long ty = 0; ty < side && added < a.dots; ty += tile)
    for (long long tx = 0; tx < side && added < a.dots; tx += tile)
      for (long long y = ty; y < ty + tile && y < side && added < a.dots; ++y)
        for (long long x = tx; x < tx + tile && x < side && added < a.dots; ++x) {
          DL::WorldPoint p{static_cast<DL::WorldCoord>(x * spacing),
                           static_cast<DL::WorldCoord>(y * spacing)};
          auto color =
              static_cast<ZR_RGB32>(((x * 255 / side) << 16) | ((y * 255 / side) << 8) | 0x40);
          list.add(new DL::Dot(color, p), {p, p});
          ++added;
        }
  const double ms_built = ms_between(start, Clock::now());
  const DL::WorldBounds extent{
      {0, 0},
      {static_cast<DL::WorldCoord>(side * spacing), static_cast<DL::WorldCoord>(side * spacing)}};
  if (gui.on) return show_in_window(list, extent, {}, added, a.width, a.height, nullptr);
  std::printf("added %lld dots in %.1f ms\n", added, ms_built);
  print_tree_counts(list);
  list.set_world_bounds(fit_view(extent, a.width, a.height, kFrameMargin));
  const std::string path = a.out.empty() ? "dlview.png" : a.out;
  std::string error;
  double ms = 0;
  if (!render(list, path, a.width, a.height, a.clip, out, error, ms)) return fail(error);
  std::printf("drew %dx%d in %.1f ms -> %s\n", a.width, a.height, ms, path.c_str());
  return 0;
}

int run_demo(const Arguments& a, Output& out) {
  dlview::DemoDrawing demo(out.painter);
  DL::DisplayList sheet;
  sheet.saturate_device_points = true;
  auto start = Clock::now();
  dlview::DemoOptions options;
  options.blocks_per_side = static_cast<int>(a.blocks);
  demo.build(sheet, options);
  const std::size_t built = demo.built();
  auto t_built = Clock::now();
  demo.insert(sheet);
  auto t_inserted = Clock::now();
  for (const std::string& name : a.layers_off) {
    DL::Extra_Layer_Info* layer = demo.layer(name);
    if (!layer) return fail("no layer named '" + name + "' in the demo drawing");
    layer->shown = 0;
  }
  std::printf(
      "built %zu drawables in %.1f ms; inserted them in %.1f ms (%.2f million a second)\n", built,
      ms_between(start, t_built), ms_between(t_built, t_inserted),
      static_cast<double>(built) / 1000.0 / std::max(1e-3, ms_between(t_built, t_inserted)));
  print_tree_counts(sheet);

  DL::DisplayList outer;
  DL::DisplayList* shown = &sheet;
  DL::WorldBounds extent = demo.extent();
  double repeat_scale = 1;  // sheet units per outer world unit
  if (a.repeat > 1) {
    const DL::WorldBounds sheet_extent = extent;
    extent = repeat_sheet(sheet, extent, static_cast<int>(a.repeat), outer);
    // As repeat_sheet scales each copy.
    const double pitch = std::max(static_cast<double>(sheet_extent.max.x) - sheet_extent.min.x,
                                  static_cast<double>(sheet_extent.max.y) - sheet_extent.min.y) *
                         1.0625;
    repeat_scale = 1.0 / std::min(1.0, 1073741824.0 / (pitch * static_cast<double>(a.repeat)));
    outer.saturate_device_points = true;
    shown = &outer;
    std::printf("sheet repeated %lld by %lld times through nested lists\n", a.repeat, a.repeat);
  }
  add_ref(out.painter);
  shown->text_engine = out.painter;
  if (gui.on) {
    std::vector<std::pair<std::string, DL::Extra_Layer_Info*>> layers;
    std::map<DL::Extra_Layer_Info*, double> min_scale;
    for (const std::string& name : demo.layer_names()) {
      layers.emplace_back(name, demo.layer(name));
      min_scale[demo.layer(name)] = demo.min_scale(name) * repeat_scale;
    }
    return show_in_window(*shown, extent, layers, static_cast<long long>(built), a.width, a.height,
                          out.painter, min_scale,
                          [&demo](const DL::DisplayList* list) { return demo.symbol_name(list); });
  }

  const std::string base = a.out.empty() ? "dlview.png" : a.out;
  const int w = a.width, h = a.height;
  const DL::WorldBounds overview = fit_view(extent, w, h, kFrameMargin);
  const double cx = (static_cast<double>(extent.min.x) + extent.max.x) / 2;
  const double cy = (static_cast<double>(extent.min.y) + extent.max.y) / 2;
  const double half = (static_cast<double>(extent.max.x) - extent.min.x) / 200;
  const DL::WorldBounds zoom =
      fit_view({{DL::round_to_int32_saturated(cx - half), DL::round_to_int32_saturated(cy - half)},
                {DL::round_to_int32_saturated(cx + half), DL::round_to_int32_saturated(cy + half)}},
               w, h);
  struct Picture {
    const char* name;
    DL::WorldBounds view;
    Clip clip;
  };
  std::vector<Picture> pictures = {{"overview", overview, Clip::none}, {"zoom", zoom, Clip::none}};
  if (a.clip != Clip::polygon) pictures.push_back({"circle", overview, Clip::circle});
  if (a.clip != Clip::circle) pictures.push_back({"polygon", overview, Clip::polygon});
  std::vector<unsigned char> wanted;  // the layers as --layer-off left them
  for (const std::string& name : demo.layer_names()) wanted.push_back(demo.layer(name)->shown);
  for (const Picture& p : pictures) {
    shown->set_world_bounds(p.view);
    // Detail smaller than a few pixels is faded out (see demo_drawing.h).
    const double scale = (w - 1) / std::max(1.0, static_cast<double>(p.view.max.x) - p.view.min.x);
    std::size_t i = 0;
    for (const std::string& name : demo.layer_names())
      demo.layer(name)->shown = wanted[i++] && scale >= demo.min_scale(name) * repeat_scale;
    std::string error;
    double ms = 0;
    const std::string path = sibling(base, p.name);
    const long greeked = out.painter->greeked_strings(), drawn = out.painter->drawn_strings();
    if (!render(*shown, path, w, h, p.clip, out, error, ms)) return fail(error);
    std::printf("drew %-8s %dx%d in %8.1f ms (labels: %ld drawn, %ld greeked) -> %s\n", p.name, w,
                h, ms, out.painter->drawn_strings() - drawn,
                out.painter->greeked_strings() - greeked, path.c_str());
  }
  shown->set_world_bounds(overview);
  pick_and_print(*shown, w, h, a.has_pick ? a.pick_x : w / 2, a.has_pick ? a.pick_y : h / 2, out);
  // The outer list goes first: it borrows the sheet.
  return 0;
}

// An image file as pixels, for IMAGE entities: PNG through cairo, composed
// over white; null for a file cairo cannot read (its frame is drawn then).
ZR_Image read_png(const std::string& path) {
  cairo_surface_t* s = cairo_image_surface_create_from_png(path.c_str());
  const cairo_format_t format = cairo_image_surface_get_format(s);
  if (cairo_surface_status(s) != CAIRO_STATUS_SUCCESS ||
      (format != CAIRO_FORMAT_ARGB32 && format != CAIRO_FORMAT_RGB24)) {
    cairo_surface_destroy(s);
    return ZR_Image();
  }
  cairo_surface_flush(s);
  auto* body = new ZR_Image_Data;
  body->width = cairo_image_surface_get_width(s);
  body->height = cairo_image_surface_get_height(s);
  body->pixels.resize(static_cast<std::size_t>(body->width) * body->height);
  const unsigned char* data = cairo_image_surface_get_data(s);
  const int stride = cairo_image_surface_get_stride(s);
  for (int y = 0; y < body->height; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + std::ptrdiff_t(y) * stride);
    for (int x = 0; x < body->width; ++x) {
      // Premultiplied: over white, each channel gains what the alpha leaves.
      const std::uint32_t p = row[x];
      const std::uint32_t rest = format == CAIRO_FORMAT_ARGB32 ? 255 - (p >> 24) : 0;
      std::uint32_t c = 0;
      for (int shift : {0, 8, 16})
        c |= std::min<std::uint32_t>(255, ((p >> shift) & 0xff) + rest) << shift;
      body->pixels[static_cast<std::size_t>(y) * body->width + x] = c;
    }
  }
  cairo_surface_destroy(s);
  return ZR_Image(body);
}

int run_dxf(const Arguments& a, Output& out) {
  auto start = Clock::now();
  std::vector<DL::dxf::DxfDrawing> drawings(a.files.size());
  for (std::size_t i = 0; i < a.files.size(); ++i) {
    std::string error;
    DL::dxf::DxfLoadOptions options;
    options.layout = a.layout;
    if (!DL::dxf::load_dxf(a.files[i], drawings[i], error, options)) return fail(error);
    if (!drawings[i].truncated.empty()) {
      const std::string cut = a.files[i] + " ends " + drawings[i].truncated;
      if (a.strict) return fail(cut + " (--strict)");
      std::fprintf(stderr, "dlview: warning: %s: drawn as far as it goes\n", cut.c_str());
    }
    for (const std::string& image : drawings[i].missing_images)
      std::fprintf(stderr, "dlview: warning: %s: image '%s' not found: its frame is drawn\n",
                   a.files[i].c_str(), image.c_str());
  }
  auto loaded = Clock::now();
  DL::WorldBounds sheet_extent;
  std::vector<DL::dxf::Placement> placements = DL::dxf::lay_out(drawings, sheet_extent);

  DL::dxf::SheetContext context(out.painter, DL::FreeTypeTextEngine::make_font("DejaVu Sans"));
  context.read_image = read_png;
  // A PDF's or SVG's device unit is a point.
  DL::CairoCanvas::Format out_format;
  if (!gui.on && DL::CairoCanvas::format_for_path(a.out, out_format) &&
      out_format != DL::CairoCanvas::Format::png)
    context.lineweight_dpi = 72;
  DL::DisplayList sheet;
  sheet.saturate_device_points = true;  // far points of a zoomed view must not wrap
  std::vector<DL::dxf::MappingReport> reports;
  std::vector<std::size_t> entity_counts;  // before the mapping lets them go
  for (const DL::dxf::DxfDrawing& d : drawings) entity_counts.push_back(d.entities.size());
  for (std::size_t i = 0; i < drawings.size(); ++i)
    reports.push_back(
        DL::dxf::consume_into_display_list(drawings[i], placements[i], context, sheet));
  auto built = Clock::now();
  for (const std::string& name : a.layers_off)
    if (!context.layers.turn_off(name))
      return fail("no layer named '" + name + "' in the drawings");

  long long drawables = 0;
  for (std::size_t i = 0; i < drawings.size(); ++i) {
    const DL::dxf::DxfDrawing& d = drawings[i];
    const DL::dxf::MappingReport& r = reports[i];
    std::string shown, not_shown, in_blocks, skipped;
    for (int k = 0; k < DL::dxf::kDxfKindCount; ++k) {
      const std::string name = DL::dxf::dxf_kind_name(static_cast<DL::dxf::DxfKind>(k));
      if (r.shown[k]) shown += " " + name + " " + std::to_string(r.shown[k]);
      if (r.not_shown[k]) not_shown += " " + name + " " + std::to_string(r.not_shown[k]);
      if (r.not_shown_in_blocks[k])
        in_blocks += " " + name + " " + std::to_string(r.not_shown_in_blocks[k]);
    }
    drawables += r.drawables;
    for (const auto& [name, n] : d.skipped) skipped += " " + name + " " + std::to_string(n);
    std::string invalid;
    for (const auto& [name, n] : d.invalid) invalid += " " + name + " " + std::to_string(n);
    std::printf("%s: %zu entities, %zu blocks, %zu layers; %ld drawables, %ld block lists\n",
                d.path.c_str(), entity_counts[i], d.blocks.size(), d.layers.size(), r.drawables,
                r.block_lists);
    std::printf("  shown:%s\n", shown.empty() ? " none" : shown.c_str());
    std::printf("  not shown:%s\n", not_shown.empty() ? " none" : not_shown.c_str());
    if (!in_blocks.empty()) std::printf("  not shown in blocks:%s\n", in_blocks.c_str());
    std::printf("  skipped:%s\n", skipped.empty() ? " none" : skipped.c_str());
    if (!invalid.empty()) std::printf("  dropped for bad numbers:%s\n", invalid.c_str());
    std::string far;
    for (const auto& [name, n] : d.too_far) far += " " + name + " " + std::to_string(n);
    if (!far.empty())
      std::printf("  left out, too far from the rest for the sheet:%s\n", far.c_str());
    if (d.paper_space) std::printf("  paper space (not shown): %ld entities\n", d.paper_space);
  }
  std::printf("sheet: %d,%d,%d,%d\n", sheet_extent.min.x, sheet_extent.min.y, sheet_extent.max.x,
              sheet_extent.max.y);
  print_tree_counts(sheet);

  // Framed by what was drawn: arcs by their sweeps, texts as measured.
  DL::WorldBounds drawn = DL::WorldBounds::empty();
  for (const DL::dxf::MappingReport& r : reports) drawn.merge(r.bounds);
  DL::DisplayList outer;
  DL::DisplayList* shown = &sheet;
  DL::WorldBounds extent = drawn.is_valid() ? drawn : sheet_extent;
  if (a.repeat > 1) {
    extent = repeat_sheet(sheet, extent, static_cast<int>(a.repeat), outer);
    outer.saturate_device_points = true;
    shown = &outer;
  }
  // --view, from the first drawing's units to the sheet's.
  DL::WorldBounds view = extent;
  if (a.has_view) {
    view = {placements[0].map({a.view[0], a.view[1]}), placements[0].map({a.view[2], a.view[3]})};
    if (a.repeat > 1) return fail("--view cannot be combined with --repeat");
  }
  add_ref(out.painter);
  shown->text_engine = out.painter;
  if (gui.on) {
    std::printf("loaded in %.1f ms, inserted %lld drawables in %.1f ms\n",
                ms_between(start, loaded), drawables, ms_between(loaded, built));
    std::fflush(stdout);
  }
  if (gui.on)
    return show_in_window(*shown, view, context.layers.entries(), drawables, a.width, a.height,
                          out.painter, {}, [&context](const DL::DisplayList* list) {
                            // A block's name, for a pick inside one.
                            for (const auto& [key, block] : context.blocks)
                              if (block.list.get() == list) return std::get<1>(key);
                            return std::string();
                          });
  // A PDF or SVG page of the drawing's shape, its larger side --size's
  // default width (in points), unless --size says otherwise.
  int w = a.width, h = a.height;
  DL::CairoCanvas::Format format;
  const bool vector =
      DL::CairoCanvas::format_for_path(a.out, format) && format != DL::CairoCanvas::Format::png;
  const double vw = std::max(1.0, static_cast<double>(view.max.x) - view.min.x);
  const double vh = std::max(1.0, static_cast<double>(view.max.y) - view.min.y);
  // World units a point at --scale 1:N (a point is 25.4 / 72 mm of paper).
  const double world_per_point =
      a.scale > 0 ? 25.4 / 72 * a.scale / millimetres_per_unit(drawings[0].header.insunits) *
                        placements[0].scale
                  : 0;
  if (a.paper_w > 0) {
    w = static_cast<int>(std::lround(a.paper_w / 25.4 * 72));
    h = static_cast<int>(std::lround(a.paper_h / 25.4 * 72));
  } else if (vector && world_per_point > 0) {
    const double pw = vw / world_per_point + 1, ph = vh / world_per_point + 1;
    if (!(pw <= 32767 && ph <= 32767))
      return fail("--scale 1:" + format_scale(a.scale) +
                  " gives a page over 32767 points: use --paper");
    w = std::max(16, static_cast<int>(std::ceil(pw)));
    h = std::max(16, static_cast<int>(std::ceil(ph)));
  } else if (!a.size_given && vector) {
    const double side = std::max(w, h);
    w = std::clamp(static_cast<int>(std::lround(vw >= vh ? side : side * vw / vh)), 16, 32767);
    h = std::clamp(static_cast<int>(std::lround(vh >= vw ? side : side * vh / vw)), 16, 32767);
  }
  if (world_per_point > 0) {
    // Centred on what is shown, at the scale asked.
    const double cx = (static_cast<double>(view.min.x) + view.max.x) / 2;
    const double cy = (static_cast<double>(view.min.y) + view.max.y) / 2;
    const double hw = world_per_point * (w - 1) / 2, hh = world_per_point * (h - 1) / 2;
    if (!(std::fabs(cx) + hw < 2147483647.0 && std::fabs(cy) + hh < 2147483647.0))
      return fail("--scale 1:" + format_scale(a.scale) +
                  ": the page reaches past the sheet's 32-bit coordinates; use a larger scale");
    shown->set_world_bounds(
        {{DL::round_to_int32_saturated(cx - hw), DL::round_to_int32_saturated(cy - hh)},
         {DL::round_to_int32_saturated(cx + hw), DL::round_to_int32_saturated(cy + hh)}});
  } else {
    shown->set_world_bounds(fit_view(view, w, h, a.has_view ? 0.0 : kFrameMargin));
  }
  const std::string path = a.out.empty() ? "dlview.png" : a.out;
  std::string error;
  double ms = 0;
  if (!render(*shown, path, w, h, a.clip, out, error, ms)) return fail(error);
  std::printf(
      "loaded in %.1f ms, inserted %lld drawables in %.1f ms, drew %dx%d in %.1f ms -> %s\n",
      ms_between(start, loaded), drawables, ms_between(loaded, built), w, h, ms, path.c_str());
  if (a.has_pick) pick_and_print(*shown, w, h, a.pick_x, a.pick_y, out);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Arguments a;
  // Known first, so that an error in any argument shows its dialog too.
  for (int i = 1; i < argc; ++i) gui.on = gui.on || std::string(argv[i]) == "--gui";
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool has_value = i + 1 < argc;
    const bool takes_value = arg == "--out" || arg == "--size" || arg == "--view" ||
                             arg == "--layer-off" || arg == "--clip" || arg == "--pick" ||
                             arg == "--repeat" || arg == "--blocks" || arg == "--dots" ||
                             arg == "--script" || arg == "--layout" || arg == "--paper" ||
                             arg == "--scale";
    if (takes_value && !has_value) return fail(arg + " needs a value");
    if (arg == "--out") {
      a.out = argv[++i];
      DL::CairoCanvas::Format format;
      if (!DL::CairoCanvas::format_for_path(a.out, format))
        return fail("--out must end in .png, .pdf or .svg: '" + a.out + "'");
    } else if (arg == "--size") {
      a.size_given = true;
      if (!parse_size(argv[++i], a.width, a.height))
        return fail(std::string("bad value for --size: '") + argv[i] + "' (WxH, 1 to 32767 each)");
    } else if (arg == "--view") {
      if (!parse_view(argv[++i], a.view))
        return fail(std::string("bad value for --view: '") + argv[i] +
                    "' (X0,Y0,X1,Y1 in drawing units, X0 < X1 and Y0 < Y1)");
      a.has_view = true;
    } else if (arg == "--layer-off") {
      a.layers_off.push_back(argv[++i]);
    } else if (arg == "--clip") {
      const std::string v = argv[++i];
      if (v == "circle")
        a.clip = Clip::circle;
      else if (v == "polygon")
        a.clip = Clip::polygon;
      else
        return fail("bad value for --clip: '" + v + "' (circle or polygon)");
    } else if (arg == "--pick") {
      long long v[2];
      if (!parse_numbers(argv[++i], 2, v) || v[0] < 0 || v[1] < 0)
        return fail(std::string("bad value for --pick: '") + argv[i] +
                    "' (X,Y: a pixel of the picture, from its top left)");
      a.has_pick = true;
      a.pick_x = v[0];
      a.pick_y = v[1];
    } else if (arg == "--repeat") {
      if (!parse_count(argv[++i], 1, 64, a.repeat))
        return fail(std::string("bad value for --repeat: '") + argv[i] + "' (1 to 64)");
    } else if (arg == "--blocks") {
      if (!parse_count(argv[++i], 1, 4096, a.blocks))
        return fail(std::string("bad value for --blocks: '") + argv[i] + "' (1 to 4096)");
    } else if (arg == "--dots") {
      if (!parse_count(argv[++i], 1, 100000000, a.dots))
        return fail(std::string("bad value for --dots: '") + argv[i] + "' (1 to 100000000)");
    } else if (arg == "--gui" || arg == "--bench") {
      (arg == "--gui" ? gui.on : gui.bench) = true;
    } else if (arg == "--script") {
      gui.script = argv[++i];
    } else if (arg == "--layout") {
      a.layout = argv[++i];
    } else if (arg == "--strict") {
      a.strict = true;
    } else if (arg == "--paper") {
      std::string v = argv[++i];
      if (i + 1 < argc && std::string(argv[i + 1]) == "landscape")
        v += " " + std::string(argv[++i]);
      if (!parse_paper(v, a.paper_w, a.paper_h))
        return fail("bad value for --paper: '" + v + "' (A0, A1, A2, A3, A4 or letter, then " +
                    "landscape if wanted)");
    } else if (arg == "--scale") {
      const std::string v = argv[++i];
      char* end = nullptr;
      if (v == "fit") {
        a.scale = 0;
      } else if (v.size() > 2 && v.compare(0, 2, "1:") == 0) {
        a.scale = std::strtod(v.c_str() + 2, &end);
        if (*end != '\0' || !(a.scale >= 1e-6 && a.scale <= 1e9))
          return fail("bad value for --scale: '" + v + "' (1:N with N from 1e-6 to 1e9, or fit)");
      } else {
        return fail("bad value for --scale: '" + v + "' (1:N, e.g. 1:100, or fit)");
      }
    } else if (arg == "--complex-clip") {
      a.complex_clip = true;
    } else if (arg == "--help" || arg == "-h") {
      std::printf(
          "usage: dlview [--blocks N] [--size WxH] [--clip circle|polygon] [--pick X,Y] "
          "[--repeat N] [--layer-off NAME]... [--complex-clip] [--out PATH.png]\n"
          "       dlview FILE.dxf... [--view X0,Y0,X1,Y1] [--size WxH] [--clip circle|polygon] "
          "[--layer-off NAME]... [--pick X,Y] [--repeat N] [--out PATH.{png,pdf,svg}] "
          "[--layout NAME] [--strict] [--paper A0..A4|letter[ landscape]] [--scale 1:N|fit]\n"
          "       dlview --dots N [--size WxH] [--out PATH]\n"
          "       dlview --gui [FILE.dxf...] [--dots N] [--size WxH] [--script PATH] [--bench]\n");
      return 0;
    } else if (!arg.empty() && arg[0] != '-') {
      a.files.push_back(arg);
    } else {
      return fail("unknown argument '" + arg + "' (try --help)");
    }
  }
  if ((gui.bench || !gui.script.empty()) && !gui.on) return fail("--bench and --script need --gui");
  if (a.paper_w > 0 || a.scale > 0) {
    DL::CairoCanvas::Format format;
    if (a.files.empty() || gui.on) return fail("--paper and --scale need DXF files and no --gui");
    if (!DL::CairoCanvas::format_for_path(a.out, format) || format == DL::CairoCanvas::Format::png)
      return fail("--paper and --scale need --out PATH.pdf or PATH.svg");
    if (a.paper_w > 0 && a.size_given) return fail("--paper and --size cannot both be given");
    if (a.scale > 0 && a.repeat > 1) return fail("--scale cannot be combined with --repeat");
  }
  if (a.has_pick && (a.pick_x >= a.width || a.pick_y >= a.height))
    return fail("--pick must lie inside the picture (" + std::to_string(a.width) + "x" +
                std::to_string(a.height) + ")");

  auto* freetype = new DL::FreeTypeTextEngine;
  add_ref(freetype);
  if (!freetype->ok()) {
    release(freetype);
    return fail("cannot load the default font (DejaVu Sans): install fonts-dejavu-core");
  }
  auto* painter = new DL::CairoTextPainter(freetype);
  add_ref(painter);
  freetype->set_sink(painter);
  Output out{painter, a.complex_clip, freetype};
  int status;
  if (a.files.empty()) {
    if (a.has_view)
      status = fail("--view needs DXF files");
    else if (a.dots)
      status = run_dots(a, out);
    else
      status = run_demo(a, out);
  } else {
    if (a.out.empty()) a.out = "dlview.png";
    // Before a long load: the picture must have somewhere to go.
    std::string error;
    if (!gui.on && !writable(a.out, error))
      status = fail(error);
    else
      status = run_dxf(a, out);
  }
  freetype->set_sink(nullptr);
  release(painter);
  release(freetype);
  return status;
}
