#include "tests/support/test_drawables.h"

#include "displaylist/display_list.h"

namespace DL::test {

DL_DRAWABLE_DEFINE(Box);

void Box::do_draw_unclipped(DisplayList& list) {
  ZR_DCI_Point p;
  list.world_to_screen(box.min, p);
  list.renderer->dot_unclipped(rendition(list), &p, nullptr);
}

void Box::do_draw_clipped(DisplayList& list) {
  ZR_DCI_Point p;
  list.world_to_screen(box.min, p);
  list.renderer->dot_clipped(rendition(list), &p, nullptr);
}

DotSink::DotSink() {
  dot_unclipped = {this, [](void* self, ZR_Rendition*, const ZR_DCI_Point* p, const ZR_RGB32*) {
                     static_cast<DotSink*>(self)->points.push_back(*p);
                   }};
  dot_clipped = {this, [](void* self, ZR_Rendition*, const ZR_DCI_Point* p, const ZR_RGB32*) {
                   auto* sink = static_cast<DotSink*>(self);
                   sink->points.push_back(*p);
                   ++sink->clipped;
                 }};
}

}  // namespace DL::test
