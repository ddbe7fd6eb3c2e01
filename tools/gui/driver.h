// Driving the viewer's window without a person: events put into GTK's own
// queue, a script of commands, and the benchmark mode.
#pragma once

#include <string>

#include "tools/gui/viewer_window.h"

namespace dlview {

// Events as the window system would deliver them, put at the end of GTK's
// queue; (column, row) are pixels of the drawing area.
void inject_button(ViewerWindow& w, GdkEventType type, double column, double row);
void inject_motion(ViewerWindow& w, double column, double row);
// `steps` wheel clicks up (positive: zoom in) as one smooth scroll.
void inject_scroll(ViewerWindow& w, double column, double row, double steps);
void inject_key(ViewerWindow& w, guint keyval);

// Runs the commands of the script file against the window, one at a time,
// each once the window has finished what the one before asked for. Reads the
// file first: false with a one-line reason when it cannot be read or holds a
// command it does not know (nothing is run then). `status` receives the exit
// status when the script ends (it closes the window).
bool start_script(ViewerWindow& w, const std::string& path, int& status, std::string& error);

// Starts the benchmark on the window; it closes the window when done. `ready`
// is when the list was ready (the default: now).
void start_bench(ViewerWindow& w, long long primitives, Clock::time_point ready = {});

}  // namespace dlview
