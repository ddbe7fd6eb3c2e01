// Renderers, their no-op default entries, and option tables.
#include "foundation/rendering.h"

namespace {

// A function of any entry's signature that does nothing.
template <class F>
struct Nothing;
template <class... A>
struct Nothing<void(void*, ZR_Rendition*, A...)> {
  static void call(void*, ZR_Rendition*, A...) {}
};

template <class F>
void idle(ZR_Action<F>& entry) {
  entry.context = nullptr;
  entry.function = &Nothing<F>::call;
}

}  // namespace

ZR_Renderer::ZR_Renderer() : option_source(new ZR_Option_Source) {
  add_ref(option_source);
  for (auto* e : {&dot_clipped, &dot_unclipped}) idle(*e);
  for (auto* e : {&polyline_clipped, &polyline_unclipped, &polymarker_clipped,
                  &polymarker_unclipped, &triangles_clipped, &triangles_unclipped})
    idle(*e);
  for (auto* e : {&polygon_clipped, &polygon_unclipped}) idle(*e);
  for (auto* e :
       {&gouraud_triangles_clipped, &gouraud_triangles_unclipped, &gouraud_polyline_unclipped})
    idle(*e);
  for (auto* e : {&textured_triangles_clipped, &textured_triangles_unclipped}) idle(*e);
  for (auto* e : {&elliptical_arc_clipped, &elliptical_arc_unclipped, &elliptical_pie_clipped,
                  &elliptical_pie_unclipped})
    idle(*e);
  for (auto* e : {&image_clipped, &image_unclipped}) idle(*e);
}

ZR_Renderer::~ZR_Renderer() {
  release(option_source);
}

const ZR_Option* ZR_Option_Table::find(const ZR_String& name) const {
  for (const ZR_Option& o : options_)
    if (o.name == name) return &o;
  return nullptr;
}

void ZR_Option_Table::set(const ZR_String& name, bool value, int number) {
  for (ZR_Option& o : options_)
    if (o.name == name) {
      o.value = value;
      o.number = number;
      return;
    }
  options_.push_back({name, value, number});
}
