// The DXF fuzzer's checks; see dxf_check.h.
#include "fuzz/dxf_check.h"

#include <vector>

#include "backends/recording/recording.h"
#include "backends/recording/recording_text.h"
#include "displaylist/display_list.h"
#include "dxf/dxf_loader.h"
#include "dxf/dxf_mapping.h"
#include "nested/drawable_display_list.h"
#include "tests/support/tree_check.h"

namespace DL::fuzz {

namespace {

std::string refusal_problem(const std::string& error) {
  if (error.empty()) return "a refusal without a message";
  if (error.size() > 512) return "a refusal message over 512 bytes: " + error.substr(0, 80);
  for (char c : error)
    if (static_cast<unsigned char>(c) < 0x20 || c == 0x7F)
      return "a refusal message with a control character: " + error;
  return {};
}

std::string tree_problem(const char* what, const DisplayList& list) {
  const std::vector<std::string> problems = test::tree_problems(list);
  return problems.empty() ? std::string() : what + (": " + problems.front());
}

// The lists that drawables of `list` own (the lineweight runs), and the ones
// they own in turn; block lists are borrowed and checked apart.
std::string owned_lists_problem(const DisplayList& list) {
  for (const Drawable* d : test::drawables_in_order(list.root)) {
    if (d->type() != &DrawableDisplayList::_drawable_type_dummy) continue;
    const auto* nested = static_cast<const DrawableDisplayList*>(d);
    if (!nested->owns_display_list() || !nested->display_list()) continue;
    std::string problem = tree_problem("a lineweight run's list", *nested->display_list());
    if (problem.empty()) problem = owned_lists_problem(*nested->display_list());
    if (!problem.empty()) return problem;
  }
  return {};
}

}  // namespace

std::string check_dxf_file(const std::string& path) {
  std::vector<dxf::DxfDrawing> drawings(1);
  std::string error;
  if (!dxf::load_dxf(path, drawings[0], error)) return refusal_problem(error);

  WorldBounds sheet;
  const std::vector<dxf::Placement> placements = dxf::lay_out(drawings, sheet);
  std::string problem;
  ZephalHeap* heap = ZP_CreateHeap();
  {
    auto* engine = new RecordingTextEngine;
    ZR_Handle<ZR_Text_Engine> hold_engine(engine);
    // The context outlives the list: its block lists are shown by the list.
    dxf::SheetContext context(engine);
    // Small enough that the slowest input stays well under a second under
    // the sanitizers; the limit's own path is then fuzzed too.
    context.max_points = 4000;
    DisplayList list(heap);
    dxf::add_to_display_list(drawings[0], placements[0], context, list);
    problem = tree_problem("the sheet's list", list);
    if (problem.empty()) problem = owned_lists_problem(list);
    for (const auto& [key, block] : context.blocks) {
      if (problem.empty() && block.list) problem = tree_problem("a block list", *block.list);
      if (problem.empty() && block.list) problem = owned_lists_problem(*block.list);
    }
    if (problem.empty()) {
      auto* renderer = new RecordingRenderer;
      list.set_renderer(renderer);
      list.text_engine = engine;
      add_ref(engine);
      list.set_screen_bounds({{0, 0}, {1023, 767}});
      list.set_world_bounds(sheet);
      list.draw_view();
      WorldBounds quarter = sheet;
      quarter.max.x = static_cast<WorldCoord>(quarter.min.x / 2 + quarter.max.x / 2);
      quarter.max.y = static_cast<WorldCoord>(quarter.min.y / 2 + quarter.max.y / 2);
      list.draw_view_bounded(quarter);
    }
  }
  if (problem.empty() && ZP_HeapStatistics(heap).live_blocks != 0)
    problem = "the list's heap keeps blocks after the list is gone";
  ZP_DestroyHeap(heap);
  return problem;
}

}  // namespace DL::fuzz
