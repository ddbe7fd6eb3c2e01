// The picking renderer: each entry paints through a Qt renderer on a small
// picture, then tests the centre pixel.
#include "backends/qt/qt_picker.h"

#include <QPainter>
#include <algorithm>

#include "backends/qt/qt_renderer.h"

namespace DL {

namespace {
constexpr QRgb kBackground = 0xffffffffu;
}  // namespace

struct QtPicker::Access {
  template <auto Entry>
  struct Forward;
  template <class... A, ZR_Action<void(void*, ZR_Rendition*, A...)> ZR_Renderer::*Entry>
  struct Forward<Entry> {
    static void call(void* context, ZR_Rendition* rendition, A... args) {
      auto* self = static_cast<QtPicker*>(context);
      if (!self->inner_) return;
      // Lines a little wider, so that the tolerance holds for them too.
      ZR_Rendition r = rendition ? *rendition : ZR_Rendition::create();
      if (self->widen_ && r) r.set_line_weight(std::max(1, r.line_weight()) + self->widen_, false);
      (self->inner_->*Entry)(&r, args...);
      self->check();
    }
  };
  template <auto Entry>
  static void hook(QtPicker* self) {
    (self->*Entry).context = self;
    (self->*Entry).function = &Forward<Entry>::call;
  }
};

QtPicker::QtPicker() {
  option_source->table.set(ZR_String("Is Selector"), true);
  using A = Access;
  A::hook<&ZR_Renderer::dot_clipped>(this);
  A::hook<&ZR_Renderer::dot_unclipped>(this);
  A::hook<&ZR_Renderer::polyline_clipped>(this);
  A::hook<&ZR_Renderer::polyline_unclipped>(this);
  A::hook<&ZR_Renderer::polymarker_clipped>(this);
  A::hook<&ZR_Renderer::polymarker_unclipped>(this);
  A::hook<&ZR_Renderer::polygon_clipped>(this);
  A::hook<&ZR_Renderer::polygon_unclipped>(this);
  A::hook<&ZR_Renderer::triangles_clipped>(this);
  A::hook<&ZR_Renderer::triangles_unclipped>(this);
  A::hook<&ZR_Renderer::gouraud_triangles_clipped>(this);
  A::hook<&ZR_Renderer::gouraud_triangles_unclipped>(this);
  A::hook<&ZR_Renderer::textured_triangles_clipped>(this);
  A::hook<&ZR_Renderer::textured_triangles_unclipped>(this);
  A::hook<&ZR_Renderer::elliptical_arc_clipped>(this);
  A::hook<&ZR_Renderer::elliptical_arc_unclipped>(this);
  A::hook<&ZR_Renderer::elliptical_pie_clipped>(this);
  A::hook<&ZR_Renderer::elliptical_pie_unclipped>(this);
  A::hook<&ZR_Renderer::image_clipped>(this);
  A::hook<&ZR_Renderer::image_unclipped>(this);
  A::hook<&ZR_Renderer::gouraud_polyline_unclipped>(this);
}

QtPicker::~QtPicker() = default;

void QtPicker::check() {
  // The picture is square, so the centre row is the same whichever way device y runs.
  if (picture_.pixel(centre_, centre_) == kBackground) return;
  hit_ = static_cast<const Drawable*>(option_source->selector_drawable);
  painter_->setClipping(false);
  painter_->fillRect(picture_.rect(), QColor(Qt::white));
  inner_->forget_clip();
}

const Drawable* QtPicker::pick(DisplayList& list, int x, int y, int tolerance) {
  if (!list.renderer) return nullptr;
  tolerance = std::clamp(tolerance, 0, 64);
  const int side = 2 * tolerance + 1;
  picture_ = QImage(side, side, QImage::Format_RGB32);
  picture_.fill(kBackground);
  QPainter painter(&picture_);
  painter_ = &painter;
  inner_ = new QtRenderer(&painter, side);
  add_ref(inner_);
  options = list.renderer->options;
  inner_->options = options;
  centre_ = tolerance;
  widen_ = 2 * tolerance;
  hit_ = nullptr;

  // The world under the pixels around (x, y), at the present scale. In 64
  // bits: the point may lie anywhere on the screen's int range.
  const WorldBounds saved_world = list.world_bounds;
  const ScreenBounds saved_screen = list.screen_bounds;
  ZR_Renderer* saved_renderer = list.renderer;
  add_ref(saved_renderer);
  auto clamp_int = [](long long v) {
    return static_cast<int>(std::clamp<long long>(v, INT32_MIN, INT32_MAX));
  };
  int lo[2] = {clamp_int(static_cast<long long>(x) - tolerance),
               clamp_int(static_cast<long long>(y) - tolerance)};
  int hi[2] = {clamp_int(static_cast<long long>(x) + tolerance),
               clamp_int(static_cast<long long>(y) + tolerance)};
  WorldPoint a, b;
  list.screen_to_world(lo, a);
  list.screen_to_world(hi, b);
  WorldBounds window{{std::min(a.x, b.x), std::min(a.y, b.y)},
                     {std::max(a.x, b.x), std::max(a.y, b.y)}};
  if (window.max.x == window.min.x && window.max.x < INT32_MAX) ++window.max.x;
  if (window.max.y == window.min.y && window.max.y < INT32_MAX) ++window.max.y;
  const ZR_Int_Rectangle saved_clip = list.rendition.hard_clip();
  list.set_renderer(this);
  list.set_screen_bounds({{0, 0}, {side - 1, side - 1}});
  list.set_world_bounds(window);
  list.rendition.set_hard_clip({0, side - 1, 0, side - 1}, false);
  list.draw_view_bounded_selection(window);
  list.rendition.set_hard_clip(saved_clip, false);
  list.set_renderer(saved_renderer);
  release(saved_renderer);
  list.set_screen_bounds(saved_screen);
  list.set_world_bounds(saved_world);
  // The selector keeps a reference on our option source: hand it back.
  if (list.selector == option_source) {
    release(list.selector);
    list.selector = nullptr;
  }
  release(inner_);
  inner_ = nullptr;
  painter.end();
  painter_ = nullptr;
  return hit_;
}

}  // namespace DL
