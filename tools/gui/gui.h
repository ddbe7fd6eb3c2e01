// dlview's window: the entry point that the command line hands a built
// display list to.
//
//   dlview --gui [FILE.dxf...] [--size WxH] [--script PATH] [--bench]
//
// The window shows the list through the cairo backend, with wheel zoom about the
// pointer, drag to pan, keys (+ and - zoom about the centre, arrows pan by a
// tenth of the view, Home shows the whole drawing), picking by a click, a panel
// of layers to turn on and off, and a clip tool (circle or polygon). Redraws run
// the interruptible traversals and show only finished pictures; see
// viewer_window.h.
//
// --script PATH runs a list of commands against the window by injected events
// and prints what it is asked to, for tests (see viewer_script.cpp for the
// commands). --bench measures the response to input on the list given and
// prints the figures (see viewer_bench.cpp). Both need a display (or Xvfb).
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL {
class CairoTextPainter;
}

namespace dlview {

// A layer as the panel shows it; `info` belongs to the caller.
struct GuiLayer {
  std::string name;
  DL::Extra_Layer_Info* info = nullptr;
  // The scale (device units per world unit) below which the layer is not
  // drawn even when turned on: detail that would be smaller than a few pixels
  // fades out instead of burying the rest. 0: drawn at every scale.
  double min_scale = 0;
};

// What the command line built: the list (owned by the caller, not drawn or
// changed by it while the window is open), the extent of the drawing in world
// units, its layers, and how many primitives it holds.
struct GuiDrawing {
  DL::DisplayList* list = nullptr;
  DL::WorldBounds extent = DL::WorldBounds::empty();
  std::vector<GuiLayer> layers;
  long long primitives = 0;
  std::string title = "dlview";
  // The list's text engine, if it draws text: the window points it at the
  // renderer of each draw (exact or draft) and back at nothing after it.
  DL::CairoTextPainter* text = nullptr;
  // The name of a nested list (a block), for the status line of a pick inside
  // it; may be empty, and may give "" for a list it does not know.
  std::function<std::string(const DL::DisplayList*)> list_name;
  // When the list was ready (the file loaded and mapped): --bench reports
  // the first picture from it. Unset: from when the window opened.
  std::chrono::steady_clock::time_point ready{};
};

struct GuiOptions {
  int width = 1024;  // the drawing area, pixels
  int height = 768;
  std::string script;  // a script to run, or empty
  bool bench = false;
};

// Opens the window and runs until it is closed (or the script or bench ends).
// Returns the exit status: 0, or 2 after a one-line error on stderr (and in a
// dialog when a window can be shown).
int run_gui(GuiDrawing& drawing, const GuiOptions& options);

// Shows `message` in a modal error dialog when a display can be opened, and
// waits until it is dismissed; does nothing without a display. Under a script
// the dialog closes by itself after a moment and its text goes to stdout as
// "dialog: <message>", so tests can see it.
void show_error_dialog(const std::string& message, bool scripted);

}  // namespace dlview
