// Canvases: a cairo surface of one of three kinds, its context and a renderer.
#include <cairo-pdf.h>
#include <cairo-svg.h>

#include <algorithm>
#include <cctype>

#include "backends/cairo/cairo_renderer.h"

namespace DL {

namespace {

std::string lower(std::string s) {
  std::transform(s.begin(), s.end(), s.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return s;
}

bool ends_with(const std::string& s, const char* tail) {
  std::string t = tail;
  return s.size() >= t.size() && s.compare(s.size() - t.size(), t.size(), t) == 0;
}

}  // namespace

bool CairoCanvas::format_for_path(const std::string& path, Format& format) {
  const std::string p = lower(path);
  if (ends_with(p, ".png")) {
    format = Format::png;
  } else if (ends_with(p, ".pdf")) {
    format = Format::pdf;
  } else if (ends_with(p, ".svg")) {
    format = Format::svg;
  } else {
    return false;
  }
  return true;
}

std::unique_ptr<CairoCanvas> CairoCanvas::create(Format format, const std::string& path, int width,
                                                 int height, std::string* error,
                                                 DeviceOrientation orientation) {
  auto fail = [&](const std::string& why) {
    if (error) *error = why;
    return std::unique_ptr<CairoCanvas>();
  };
  if (width < 1 || height < 1 || width > 32767 || height > 32767)
    return fail("canvas size must be 1 to 32767 pixels each way");
  std::unique_ptr<CairoCanvas> canvas(new CairoCanvas);
  canvas->format_ = format;
  canvas->path_ = path;
  canvas->width_ = width;
  canvas->height_ = height;
  switch (format) {
    case Format::png:
      canvas->surface_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width, height);
      break;
    case Format::pdf:
      canvas->surface_ = cairo_pdf_surface_create(path.c_str(), width, height);
      break;
    case Format::svg:
      canvas->surface_ = cairo_svg_surface_create(path.c_str(), width, height);
      break;
  }
  cairo_status_t status = cairo_surface_status(canvas->surface_);
  if (status != CAIRO_STATUS_SUCCESS) {
    std::string why = cairo_status_to_string(status);
    return fail(
        (format == Format::png ? "cannot make the picture: " : "cannot write " + path + ": ") +
        why);
  }
  canvas->cr_ = cairo_create(canvas->surface_);
  if (cairo_status(canvas->cr_) != CAIRO_STATUS_SUCCESS)
    return fail(std::string("cannot draw: ") + cairo_status_to_string(cairo_status(canvas->cr_)));
  canvas->renderer_ = new CairoRenderer(canvas->cr_, height, orientation);
  add_ref(canvas->renderer_);
  canvas->clear(0xffffff);
  return canvas;
}

CairoCanvas::~CairoCanvas() {
  if (renderer_) release(renderer_);
  if (cr_) cairo_destroy(cr_);
  if (surface_) cairo_surface_destroy(surface_);  // finishes a PDF or SVG file
}

void CairoCanvas::clear(ZR_RGB32 color) {
  renderer_->flush_direct();
  cairo_save(cr_);
  cairo_reset_clip(cr_);
  cairo_set_source_rgb(cr_, ((color >> 16) & 0xff) / 255.0, ((color >> 8) & 0xff) / 255.0,
                       (color & 0xff) / 255.0);
  cairo_paint(cr_);
  cairo_restore(cr_);
  renderer_->forget_clip();
}

ZR_RGB32 CairoCanvas::pixel(int x, int y) {
  if (format_ != Format::png || x < 0 || y < 0 || x >= width_ || y >= height_) return 0;
  renderer_->flush_direct();
  cairo_surface_flush(surface_);
  const unsigned char* data = cairo_image_surface_get_data(surface_);
  const int stride = cairo_image_surface_get_stride(surface_);
  const auto* row =
      reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
  return row[x] & 0xffffff;
}

bool CairoCanvas::write_png(const std::string& path, std::string* error) {
  if (format_ != Format::png) {
    if (error) *error = "only a PNG canvas can be written as PNG";
    return false;
  }
  renderer_->flush_direct();
  cairo_surface_flush(surface_);
  cairo_status_t status = cairo_surface_write_to_png(surface_, path.c_str());
  if (status != CAIRO_STATUS_SUCCESS) {
    if (error) *error = "cannot write " + path + ": " + cairo_status_to_string(status);
    return false;
  }
  return true;
}

bool CairoCanvas::finish(std::string* error) {
  if (finished_) return true;
  finished_ = true;
  renderer_->flush_direct();
  if (format_ == Format::png) return write_png(path_, error);
  cairo_surface_finish(surface_);
  cairo_status_t status = cairo_surface_status(surface_);
  if (status != CAIRO_STATUS_SUCCESS) {
    if (error) *error = "cannot write " + path_ + ": " + cairo_status_to_string(status);
    return false;
  }
  return true;
}

}  // namespace DL
