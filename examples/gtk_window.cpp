// A GTK 3 window showing a display list through the cairo backend.
//
//   gtk_window [--once OUT.png]
//
// The drawing area's draw handler hands GTK's cairo context to a
// CairoRenderer and draws the list's view of the whole drawing, fitted to the
// window; the wheel zooms about the pointer. With --once the first picture
// drawn is also written to OUT.png (drawn again on an image of the same size)
// and the program quits (run it under Xvfb where there is no display).
#include <gtk/gtk.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "backends/cairo/cairo_renderer.h"
#include "drawing.h"

namespace {

struct App {
  DL::DisplayList list;
  double cx = example::kWorld / 2.0, cy = example::kWorld / 2.0;  // world at the centre
  double upp = 0;                                                 // world units a pixel; 0: fit
  std::string once;
  int status = 0;
};

// Draws the list on `cr`, a surface `w` x `h` pixels.
void draw_list(App& app, cairo_t* cr, int w, int h) {
  if (app.upp == 0) app.upp = double(example::kWorld) / std::max(1, std::min(w, h) - 1);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  auto* renderer = new DL::CairoRenderer(cr, h);
  add_ref(renderer);
  const double hw = app.upp * (w - 1) / 2, hh = app.upp * (h - 1) / 2;
  auto world = [](double v) { return DL::round_to_int32_saturated(v); };
  app.list.saturate_device_points = true;
  app.list.set_renderer(renderer);
  app.list.set_screen_bounds({{0, 0}, {w - 1, h - 1}});
  app.list.set_world_bounds(
      {{world(app.cx - hw), world(app.cy - hh)}, {world(app.cx + hw), world(app.cy + hh)}});
  app.list.draw_view();
  app.list.set_renderer(nullptr);
  release(renderer);
}

gboolean on_draw(GtkWidget* area, cairo_t* cr, gpointer data) {
  App& app = *static_cast<App*>(data);
  const int w = gtk_widget_get_allocated_width(area), h = gtk_widget_get_allocated_height(area);
  draw_list(app, cr, w, h);
  if (!app.once.empty()) {
    cairo_surface_t* image = cairo_image_surface_create(CAIRO_FORMAT_RGB24, w, h);
    cairo_t* image_cr = cairo_create(image);
    draw_list(app, image_cr, w, h);
    cairo_destroy(image_cr);
    // Check that the drawing shows: some pixels are not white.
    cairo_surface_flush(image);
    const unsigned char* data = cairo_image_surface_get_data(image);
    long inked = 0;
    for (int y = 0; y < h; ++y)
      for (int x = 0; x < w; ++x) {
        const auto* pixel = data + y * cairo_image_surface_get_stride(image) + 4 * x;
        inked += (pixel[0] & pixel[1] & pixel[2]) != 0xff;
      }
    std::printf("gtk_window: %dx%d picture, %ld pixels drawn\n", w, h, inked);
    if (inked == 0) app.status = 1;
    if (cairo_surface_write_to_png(image, app.once.c_str()) != CAIRO_STATUS_SUCCESS) {
      std::fprintf(stderr, "gtk_window: cannot write %s\n", app.once.c_str());
      app.status = 1;
    }
    cairo_surface_destroy(image);
    app.once.clear();
    g_idle_add(
        [](gpointer) -> gboolean {
          gtk_main_quit();
          return G_SOURCE_REMOVE;
        },
        nullptr);
  }
  return TRUE;
}

// Zooms by 1.25 a notch about the pointer: the world point under it stays.
gboolean on_scroll(GtkWidget* area, GdkEventScroll* e, gpointer data) {
  App& app = *static_cast<App*>(data);
  const double w = gtk_widget_get_allocated_width(area), h = gtk_widget_get_allocated_height(area);
  const double factor = e->direction == GDK_SCROLL_UP     ? 1 / 1.25
                        : e->direction == GDK_SCROLL_DOWN ? 1.25
                                                          : 1;
  const double x = app.cx + (e->x - (w - 1) / 2) * app.upp,
               y = app.cy - (e->y - (h - 1) / 2) * app.upp;
  app.upp *= factor;
  app.cx = x - (e->x - (w - 1) / 2) * app.upp;
  app.cy = y + (e->y - (h - 1) / 2) * app.upp;
  gtk_widget_queue_draw(area);
  return TRUE;
}

}  // namespace

int main(int argc, char** argv) {
  App app;
  if (argc == 3 && std::strcmp(argv[1], "--once") == 0) {
    app.once = argv[2];
  } else if (argc != 1) {
    std::fprintf(stderr, "usage: gtk_window [--once OUT.png]\n");
    return 2;
  }
  if (!gtk_init_check(&argc, &argv)) {
    std::fprintf(stderr, "gtk_window: cannot open a display\n");
    return 1;
  }
  example::build_drawing(app.list);
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "DL in a GTK window");
  gtk_window_set_default_size(GTK_WINDOW(window), 800, 600);
  GtkWidget* area = gtk_drawing_area_new();
  gtk_widget_add_events(area, GDK_SCROLL_MASK);
  gtk_container_add(GTK_CONTAINER(window), area);
  g_signal_connect(area, "draw", G_CALLBACK(on_draw), &app);
  g_signal_connect(area, "scroll-event", G_CALLBACK(on_scroll), &app);
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  gtk_widget_show_all(window);
  gtk_main();
  return app.status;
}
