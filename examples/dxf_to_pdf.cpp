// A DXF drawing to a PDF page (or PNG, SVG: by the extension), framed by what
// it draws: the DXF library reads and maps the file, the cairo backend paints.
//
//   dxf_to_pdf DRAWING.dxf OUT.pdf
//
// Exits 1 with a one-line reason when the file cannot be read or written.
#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "dxf/dxf_loader.h"
#include "dxf/dxf_mapping.h"

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: dxf_to_pdf DRAWING.dxf OUT.{pdf,svg,png}\n");
    return 1;
  }
  DL::CairoCanvas::Format format;
  if (!DL::CairoCanvas::format_for_path(argv[2], format)) {
    std::fprintf(stderr, "dxf_to_pdf: the output must end in .pdf, .svg or .png\n");
    return 1;
  }
  // Read the drawing: its entities in its own units, with what was refused.
  std::vector<DL::dxf::DxfDrawing> drawings(1);
  std::string error;
  if (!DL::dxf::load_dxf(argv[1], drawings[0], error)) {
    std::fprintf(stderr, "dxf_to_pdf: %s\n", error.c_str());
    return 1;
  }
  if (!drawings[0].truncated.empty())
    std::fprintf(stderr, "dxf_to_pdf: warning: %s ends %s\n", argv[1],
                 drawings[0].truncated.c_str());

  // Place it on the 32-bit sheet and map it into a display list. Without a
  // text engine texts are not shown (a host passes one to see them).
  DL::WorldBounds sheet_extent;
  std::vector<DL::dxf::Placement> placements = DL::dxf::lay_out(drawings, sheet_extent);
  DL::dxf::SheetContext context(nullptr);
  DL::DisplayList list;
  list.saturate_device_points = true;
  const DL::dxf::MappingReport report =
      DL::dxf::add_to_display_list(drawings[0], placements[0], context, list);
  DL::WorldBounds extent = report.bounds.is_valid() ? report.bounds : sheet_extent;
  if (!extent.is_valid()) {
    std::fprintf(stderr, "dxf_to_pdf: %s draws nothing\n", argv[1]);
    return 1;
  }

  // A page of the drawing's shape, its longer side 842 points (A4's), with a
  // margin of 2% on each side.
  const double w = double(extent.max.x) - extent.min.x + 1,
               h = double(extent.max.y) - extent.min.y + 1;
  const int page_w = w >= h ? 842 : std::max(1, int(842 * w / h));
  const int page_h = w >= h ? std::max(1, int(842 * h / w)) : 842;
  auto canvas = DL::CairoCanvas::create(format, argv[2], page_w, page_h, &error);
  if (!canvas) {
    std::fprintf(stderr, "dxf_to_pdf: %s\n", error.c_str());
    return 1;
  }
  const double mx = w * 0.02, my = h * 0.02;
  auto round = [](double v) { return DL::round_to_int32_saturated(v); };
  list.set_world_bounds({{round(extent.min.x - mx), round(extent.min.y - my)},
                         {round(extent.max.x + mx), round(extent.max.y + my)}});
  list.set_screen_bounds({{0, 0}, {page_w - 1, page_h - 1}});
  list.rendition.set_hard_clip({0, page_w - 1, 0, page_h - 1}, false);
  canvas->renderer()->set_outer_list(&list);  // blocks keep to clips, images to scale
  list.set_renderer(canvas->renderer());
  list.draw_view();
  list.set_renderer(nullptr);
  if (!canvas->finish(&error)) {
    std::fprintf(stderr, "dxf_to_pdf: %s\n", error.c_str());
    return 1;
  }
  std::printf("%s: %ld drawables -> %s (%dx%d)\n", argv[1], report.drawables, argv[2], page_w,
              page_h);
  return 0;
}
