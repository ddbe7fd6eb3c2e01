// What the tests of the point primitives share: a list viewed at ten world
// units a pixel that records every action call, a renderer that notes the
// default heap at each call, and helpers to build point arrays.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL::test {

// World (0,0)-(1000,1000) on screen (0,0)-(100,100): device = world / 10,
// rounded to nearest, ties to even.
struct RecordedView {
  DisplayList list;
  RecordingRenderer* renderer = new RecordingRenderer;
  RecordedView() {
    list.set_renderer(renderer);
    list.set_world_bounds({{0, 0}, {1000, 1000}});
    list.set_screen_bounds({{0, 0}, {100, 100}});
  }
  std::vector<std::string> draw_unclipped(Drawable& d) {
    renderer->clear();
    d.draw_unclipped(list);
    return renderer->trace();
  }
  std::vector<std::string> draw_clipped(Drawable& d) {
    renderer->clear();
    d.draw_clipped(list);
    return renderer->trace();
  }
};

// A renderer whose every entry notes the entry and the live blocks and bytes
// of the default heap at the moment of the call.
struct HeapProbe : ZR_Renderer {
  struct Call {
    const char* entry;
    ZephalHeapStatistics heap;
  };
  std::vector<Call> calls;
  HeapProbe();
};

// `n` points along a diagonal, each on a device point of its own.
std::vector<WorldPoint> distinct_points(int n);

}  // namespace DL::test
