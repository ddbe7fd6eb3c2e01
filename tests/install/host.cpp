// Builds a list of dots against the installed library and checks what reaches
// the renderer.
#include <cstdio>

#include "backends/recording/recording.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"

int main() {
  DL::DisplayList list;
  auto* renderer = new DL::RecordingRenderer;
  list.set_renderer(renderer);
  list.set_world_bounds({{0, 0}, {100, 100}});
  list.set_screen_bounds({{0, 0}, {100, 100}});
  for (int i = 0; i < 1000; ++i) list.add(new DL::Dot(0, {i % 100, i / 10}), {{i % 100, i / 10}, {i % 100, i / 10}});
  list.root->draw_unclipped(list);
  std::printf("%zu dots drawn\n", renderer->calls.size());
  return renderer->calls.size() == 1000 ? 0 : 1;
}
