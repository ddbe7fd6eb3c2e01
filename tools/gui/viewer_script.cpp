// The window's entry point, injected events, and scripts.
//
// A script is a text file of commands, one a line; blank lines and lines
// starting with '#' are skipped. Coordinates are pixels of the drawing area,
// from its top left corner. Each command runs once the window has finished
// the work the one before asked for (no draw or pick pending).
//
//   scroll X Y up|down [N]   N wheel clicks (default 1) at (X, Y)
//   drag X0 Y0 X1 Y1         press the first button, move in 8 steps, release
//   click X Y                press and release without moving: a pick
//   dblclick X Y             a double click (closes a polygon clip)
//   key NAME                 a key press, by GDK name: plus, minus, Left, Home, ...
//   layer NAME on|off        the layer's check button
//   tool navigate|circle|polygon
//   dump PATH                the picture on screen (with the pick outline) as PNG
//   status                   prints "status: <the status line>"
//   view                     prints "view: <centre x> <centre y> <units per pixel> <width>
//   <height>"
//   close-while-drawing      starts a redraw and closes the window from inside it
//   draft auto|always|never  when a draft picture comes before the exact one
//   pan auto|strips          when a pan moves the picture and draws strips:
//                            after a slow exact draw, or always
//   tiles auto|always|never  when an exact draw goes by tiles: when the tree
//                            polls too rarely, always (tiles of 64 pixels),
//                            or never
//   trace PREFIX             from now on, each finished picture prints "frame N
//                            draft|exact: <the status line>" and is dumped to
//                            PREFIX<N>.png (N counts from 1)
//
// The window closes after the last command, and dlview exits 0.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <memory>
#include <sstream>
#include <vector>

#include "tools/gui/driver.h"

namespace dlview {

namespace {

GdkDevice* pointer_device() {
  return gdk_seat_get_pointer(gdk_display_get_default_seat(gdk_display_get_default()));
}

GdkEvent* new_event(GdkEventType type, GtkWidget* widget) {
  GdkEvent* e = gdk_event_new(type);
  e->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(widget)));
  e->any.send_event = TRUE;
  return e;
}

void put(GdkEvent* e) {
  gdk_event_put(e);
  gdk_event_free(e);
}

}  // namespace

void inject_button(ViewerWindow& w, GdkEventType type, double column, double row) {
  GdkEvent* e = new_event(type, w.area());
  e->button.x = column;
  e->button.y = row;
  e->button.button = 1;
  e->button.time = GDK_CURRENT_TIME;
  gdk_event_set_device(e, pointer_device());
  put(e);
}

void inject_motion(ViewerWindow& w, double column, double row) {
  GdkEvent* e = new_event(GDK_MOTION_NOTIFY, w.area());
  e->motion.x = column;
  e->motion.y = row;
  e->motion.state = GDK_BUTTON1_MASK;
  e->motion.time = GDK_CURRENT_TIME;
  gdk_event_set_device(e, pointer_device());
  put(e);
}

void inject_scroll(ViewerWindow& w, double column, double row, double steps) {
  GdkEvent* e = new_event(GDK_SCROLL, w.area());
  e->scroll.x = column;
  e->scroll.y = row;
  e->scroll.direction = GDK_SCROLL_SMOOTH;
  e->scroll.delta_y = -steps;
  e->scroll.time = GDK_CURRENT_TIME;
  gdk_event_set_device(e, pointer_device());
  put(e);
}

void inject_key(ViewerWindow& w, guint keyval) {
  GdkEvent* e = new_event(GDK_KEY_PRESS, w.window());
  e->key.keyval = keyval;
  e->key.time = GDK_CURRENT_TIME;
  gdk_event_set_device(
      e, gdk_seat_get_keyboard(gdk_display_get_default_seat(gdk_display_get_default())));
  put(e);
}

namespace {

struct Script {
  ViewerWindow* window;
  std::vector<std::vector<std::string>> commands;
  std::vector<int> line_numbers;
  std::size_t next = 0;
  int quiet_ticks = 0;
  int* status;
};

// Whether a command is known and has the right number of words.
bool check(const std::vector<std::string>& c, std::string& why) {
  const std::string& n = c[0];
  const std::size_t k = c.size() - 1;
  bool ok = false;
  if (n == "scroll")
    ok = (k == 3 || k == 4) && (c[3] == "up" || c[3] == "down");
  else if (n == "drag")
    ok = k == 4;
  else if (n == "click" || n == "dblclick")
    ok = k == 2;
  else if (n == "key")
    ok = k == 1 && gdk_keyval_from_name(c[1].c_str()) != GDK_KEY_VoidSymbol;
  else if (n == "layer")
    ok = k == 2 && (c[2] == "on" || c[2] == "off");
  else if (n == "tool")
    ok = k == 1 && (c[1] == "navigate" || c[1] == "circle" || c[1] == "polygon");
  else if (n == "dump" || n == "trace")
    ok = k == 1;
  else if (n == "draft")
    ok = k == 1 && (c[1] == "auto" || c[1] == "always" || c[1] == "never");
  else if (n == "pan")
    ok = k == 1 && (c[1] == "auto" || c[1] == "strips");
  else if (n == "tiles")
    ok = k == 1 && (c[1] == "auto" || c[1] == "always" || c[1] == "never");
  else if (n == "status" || n == "view" || n == "close-while-drawing")
    ok = k == 0;
  else {
    why = "unknown command '" + n + "'";
    return false;
  }
  if (!ok) why = "bad arguments to '" + n + "'";
  // Numbers where numbers go.
  std::vector<std::size_t> numbers;
  if (ok && n == "scroll")
    numbers = k == 4 ? std::vector<std::size_t>{1, 2, 4} : std::vector<std::size_t>{1, 2};
  if (ok && (n == "drag" || n == "click" || n == "dblclick"))
    for (std::size_t i = 1; i <= k; ++i) numbers.push_back(i);
  for (std::size_t i : numbers) {
    char* end = nullptr;
    const double v = std::strtod(c[i].c_str(), &end);
    if (end == c[i].c_str() || *end || !std::isfinite(v)) {
      why = "'" + c[i] + "' is not a number in '" + n + "'";
      return false;
    }
  }
  return ok;
}

double num(const std::string& s) {
  return std::strtod(s.c_str(), nullptr);
}

// Runs one command; false ends the script with status 2.
bool run_command(Script& s, const std::vector<std::string>& c) {
  ViewerWindow& w = *s.window;
  const std::string& n = c[0];
  if (n == "scroll") {
    const double clicks = c.size() > 4 ? num(c[4]) : 1;
    inject_scroll(w, num(c[1]), num(c[2]), c[3] == "up" ? clicks : -clicks);
  } else if (n == "drag") {
    const double x0 = num(c[1]), y0 = num(c[2]), x1 = num(c[3]), y1 = num(c[4]);
    inject_button(w, GDK_BUTTON_PRESS, x0, y0);
    for (int i = 1; i <= 8; ++i) inject_motion(w, x0 + (x1 - x0) * i / 8, y0 + (y1 - y0) * i / 8);
    inject_button(w, GDK_BUTTON_RELEASE, x1, y1);
  } else if (n == "click") {
    inject_button(w, GDK_BUTTON_PRESS, num(c[1]), num(c[2]));
    inject_button(w, GDK_BUTTON_RELEASE, num(c[1]), num(c[2]));
  } else if (n == "dblclick") {
    inject_button(w, GDK_BUTTON_PRESS, num(c[1]), num(c[2]));
    inject_button(w, GDK_BUTTON_RELEASE, num(c[1]), num(c[2]));
    inject_button(w, GDK_BUTTON_PRESS, num(c[1]), num(c[2]));
    inject_button(w, GDK_2BUTTON_PRESS, num(c[1]), num(c[2]));
    inject_button(w, GDK_BUTTON_RELEASE, num(c[1]), num(c[2]));
  } else if (n == "key") {
    inject_key(w, gdk_keyval_from_name(c[1].c_str()));
  } else if (n == "layer") {
    if (!w.set_layer(c[1], c[2] == "on")) {
      std::fprintf(stderr, "dlview: script: no layer named '%s'\n", c[1].c_str());
      return false;
    }
  } else if (n == "tool") {
    w.set_tool(c[1] == "navigate" ? Tool::navigate
               : c[1] == "circle" ? Tool::circle
                                  : Tool::polygon);
  } else if (n == "dump") {
    std::string error;
    if (!w.dump_picture(c[1], error)) {
      std::fprintf(stderr, "dlview: script: %s\n", error.c_str());
      return false;
    }
  } else if (n == "status") {
    std::printf("status: %s\n", w.status_text().c_str());
    std::fflush(stdout);
  } else if (n == "view") {
    std::printf("view: %.6f %.6f %.12g %d %d\n", w.view().cx, w.view().cy, w.view().upp,
                w.view().width, w.view().height);
    std::fflush(stdout);
  } else if (n == "draft") {
    w.set_draft_policy(c[1] == "auto"     ? DraftPolicy::automatic
                       : c[1] == "always" ? DraftPolicy::always
                                          : DraftPolicy::never);
  } else if (n == "pan") {
    w.set_pan_strips_always(c[1] == "strips");
  } else if (n == "tiles") {
    w.set_tile_policy(c[1] == "auto"     ? TilePolicy::automatic
                      : c[1] == "always" ? TilePolicy::always
                                         : TilePolicy::never);
  } else if (n == "trace") {
    auto frames = std::make_shared<int>(0);
    const std::string prefix = c[1];
    w.on_finished = [&w, frames, prefix] {
      const int n = ++*frames;
      std::printf("frame %d %s: %s\n", n, w.showing_draft() ? "draft" : "exact",
                  w.status_text().c_str());
      std::fflush(stdout);
      std::string error;
      if (!w.dump_picture(prefix + std::to_string(n) + ".png", error))
        std::fprintf(stderr, "dlview: script: %s\n", error.c_str());
    };
  } else if (n == "close-while-drawing") {
    // The close arrives at the first poll of a draw, and is handled there.
    auto sent = std::make_shared<bool>(false);
    w.poll_hook = [&w, sent] {
      if (!*sent) {
        *sent = true;
        std::printf("closing while drawing\n");
        std::fflush(stdout);
        w.close();
      }
      return true;
    };
    w.redraw();
  }
  return true;
}

gboolean tick(gpointer data) {
  auto* s = static_cast<Script*>(data);
  ViewerWindow& w = *s->window;
  if (w.busy() || gtk_events_pending()) {
    s->quiet_ticks = 0;
    return G_SOURCE_CONTINUE;
  }
  if (++s->quiet_ticks < 3) return G_SOURCE_CONTINUE;
  s->quiet_ticks = 0;
  if (s->next == s->commands.size()) {
    w.close();
    delete s;
    return G_SOURCE_REMOVE;
  }
  const std::size_t i = s->next++;
  if (!run_command(*s, s->commands[i])) {
    *s->status = 2;
    w.close();
    delete s;
    return G_SOURCE_REMOVE;
  }
  return G_SOURCE_CONTINUE;
}

}  // namespace

bool start_script(ViewerWindow& w, const std::string& path, int& status, std::string& error) {
  std::ifstream in(path);
  if (!in) {
    error = "cannot read the script '" + path + "'";
    return false;
  }
  auto s = std::make_unique<Script>();
  s->window = &w;
  s->status = &status;
  std::string line;
  int number = 0;
  while (std::getline(in, line)) {
    ++number;
    std::istringstream words(line);
    std::vector<std::string> c;
    for (std::string word; words >> word;) c.push_back(word);
    if (c.empty() || c[0][0] == '#') continue;
    std::string why;
    if (!check(c, why)) {
      error = path + ":" + std::to_string(number) + ": " + why;
      return false;
    }
    s->commands.push_back(c);
  }
  // Ticks at 10 ms; a command runs after three quiet ticks in a row.
  g_timeout_add(10, &tick, s.release());
  return true;
}

// ---------------------------------------------------------------------------
// The entry point
// ---------------------------------------------------------------------------

namespace {

gboolean close_dialog(gpointer dialog) {
  gtk_dialog_response(GTK_DIALOG(dialog), GTK_RESPONSE_CLOSE);
  return G_SOURCE_REMOVE;
}

}  // namespace

void show_error_dialog(const std::string& message, bool scripted) {
  if (!gtk_init_check(nullptr, nullptr)) return;
  GtkWidget* dialog = gtk_message_dialog_new(nullptr, GTK_DIALOG_MODAL, GTK_MESSAGE_ERROR,
                                             GTK_BUTTONS_CLOSE, "%s", message.c_str());
  gtk_window_set_title(GTK_WINDOW(dialog), "dlview");
  guint timer = 0;
  if (scripted) {
    std::printf("dialog: %s\n", message.c_str());
    std::fflush(stdout);
    timer = g_timeout_add(300, &close_dialog, dialog);
  }
  gtk_dialog_run(GTK_DIALOG(dialog));
  if (timer) g_source_remove(timer);
  gtk_widget_destroy(dialog);
  while (gtk_events_pending()) gtk_main_iteration_do(FALSE);
}

int run_gui(GuiDrawing& drawing, const GuiOptions& options) {
  auto fail = [&](const std::string& message) {
    std::fprintf(stderr, "dlview: %s\n", message.c_str());
    show_error_dialog(message, !options.script.empty() || options.bench);
    return 2;
  };
  if (!gtk_init_check(nullptr, nullptr))
    return fail("--gui needs a display: cannot open one (is DISPLAY set? try xvfb-run)");
  if (!drawing.list) return fail("no drawing to show");
  int status = 0;
  ViewerWindow window(drawing, options);
  if (!options.script.empty()) {
    std::string error;
    if (!start_script(window, options.script, status, error)) return fail(error);
  }
  if (options.bench) start_bench(window, drawing.primitives, drawing.ready);
  window.run();
  return status;
}

}  // namespace dlview
