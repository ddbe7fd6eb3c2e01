// Forwarding renderers: counting, and picking through the selection traversal.
#include "tools/gui/renderer_tap.h"

#include <cmath>
#include <sstream>

#include "iterators/filtered_iterators.h"
#include "nested/drawable_display_list.h"

namespace dlview {

// The forwarding function of one entry: calls the inner renderer's entry, then
// `after_call`. `Signature` is the entry's function type, whose arguments
// behind (context, rendition) are passed through unchanged.
template <auto Entry, class... A>
struct RendererTap::Forward<Entry, void(void*, ZR_Rendition*, A...)> {
  static void call(void* context, ZR_Rendition* rendition, A... args) {
    auto* tap = static_cast<RendererTap*>(context);
    (tap->inner_->*Entry)(rendition, args...);
    tap->after_call(points_of(args...));
  }
  // Point lists pass their count first; the other entries carry one point.
  template <class First, class... Rest>
  static int points_of(First first, Rest...) {
    if constexpr (std::is_same_v<First, int>)
      return first;
    else
      return 1;
  }
};

template <auto Entry>
void RendererTap::hook() {
  auto& action = this->*Entry;
  using Function = typename std::remove_reference_t<decltype(action)>::Function;
  action.context = this;
  action.function = &Forward<Entry, Function>::call;
}

RendererTap::RendererTap(ZR_Renderer* inner) : inner_(inner) {
  add_ref(inner_);
  options = inner_->options;
  hook<&ZR_Renderer::dot_clipped>();
  hook<&ZR_Renderer::dot_unclipped>();
  hook<&ZR_Renderer::polyline_clipped>();
  hook<&ZR_Renderer::polyline_unclipped>();
  hook<&ZR_Renderer::polymarker_clipped>();
  hook<&ZR_Renderer::polymarker_unclipped>();
  hook<&ZR_Renderer::polygon_clipped>();
  hook<&ZR_Renderer::polygon_unclipped>();
  hook<&ZR_Renderer::triangles_clipped>();
  hook<&ZR_Renderer::triangles_unclipped>();
  hook<&ZR_Renderer::gouraud_triangles_clipped>();
  hook<&ZR_Renderer::gouraud_triangles_unclipped>();
  hook<&ZR_Renderer::textured_triangles_clipped>();
  hook<&ZR_Renderer::textured_triangles_unclipped>();
  hook<&ZR_Renderer::elliptical_arc_clipped>();
  hook<&ZR_Renderer::elliptical_arc_unclipped>();
  hook<&ZR_Renderer::elliptical_pie_clipped>();
  hook<&ZR_Renderer::elliptical_pie_unclipped>();
  hook<&ZR_Renderer::image_clipped>();
  hook<&ZR_Renderer::image_unclipped>();
  hook<&ZR_Renderer::gouraud_polyline_unclipped>();
}

RendererTap::~RendererTap() {
  release(inner_);
}

// ---------------------------------------------------------------------------
// Picking
// ---------------------------------------------------------------------------

ZR_Renderer* PickTap::make_inner(cairo_surface_t* surface, int height) {
  cairo_t* cr = cairo_create(surface);
  auto* inner = new DL::CairoRenderer(cr, height);
  cairo_destroy(cr);  // the renderer keeps its own reference
  inner->set_complex_clip_supported(true);
  return inner;
}

cairo_surface_t* PickTap::make_surface(int column, int row, int radius) {
  cairo_surface_t* s =
      cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 2 * radius + 1, 2 * radius + 1);
  // The device offset places the small surface over the neighbourhood; it lies
  // below the user matrix that the renderer sets for itself.
  cairo_surface_set_device_offset(s, -(column - radius), -(row - radius));
  return s;
}

PickTap::PickTap(int column, int row, int height, int radius)
    : RendererTap(make_inner(make_surface(column, row, radius), height)),
      side_(2 * radius + 1),
      column_(column),
      row_(row) {
  // The inner renderer's context holds the surface; drop the creation reference.
  surface_ = cairo_get_target(static_cast<DL::CairoRenderer*>(inner())->context());
  cairo_surface_destroy(surface_);
  option_source->table.set(ZR_String("Is Selector"), true);
  options.complex_clip = true;
}

PickTap::~PickTap() = default;

void PickTap::after_call(int points) {
  const void* drawable = option_source->selector_drawable;
  if (drawable != current_) {
    current_ = drawable;
    current_points_ = 0;
  }
  current_points_ += points;
  if (hit_.drawable == current_) hit_.vertices = current_points_;
  static_cast<DL::CairoRenderer*>(inner())->flush_direct();
  cairo_surface_flush(surface_);
  const unsigned char* data = cairo_image_surface_get_data(surface_);
  const int stride = cairo_image_surface_get_stride(surface_);
  bool touched = false;
  for (int y = 0; y < side_ && !touched; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
    for (int x = 0; x < side_; ++x)
      if (row[x] >> 24) {
        touched = true;
        break;
      }
  }
  if (!touched) return;
  hit_.drawable = static_cast<DL::Drawable*>(const_cast<void*>(current_));
  hit_.vertices = current_points_;
  cairo_t* cr = static_cast<DL::CairoRenderer*>(inner())->context();
  cairo_save(cr);
  cairo_reset_clip(cr);
  cairo_set_operator(cr, CAIRO_OPERATOR_CLEAR);
  cairo_paint(cr);
  cairo_restore(cr);
  static_cast<DL::CairoRenderer*>(inner())->forget_clip();
}

Pick PickTap::run(DL::DisplayList& list) {
  hit_ = Pick{};
  current_ = nullptr;
  current_points_ = 0;
  ZR_Renderer* previous = list.renderer;
  if (previous) add_ref(previous);
  const bool clip_supported = list.complex_clip_supported;
  list.set_renderer(this);
  // The world under the surface, with a pixel to spare on each side.
  const int r = (side_ - 1) / 2 + 1;
  const int y = list.screen_bounds.max.y - row_;  // screen y grows upward
  const int lo[2] = {column_ - r, y - r};
  const int hi[2] = {column_ + r, y + r};
  DL::WorldBounds rect;
  list.screen_to_world(lo, rect.min);
  list.screen_to_world(hi, rect.max);
  list.draw_view_bounded_selection(rect);
  list.set_renderer(previous);
  list.complex_clip_supported = clip_supported;
  if (previous) release(previous);
  if (hit_.drawable) find_nesting(list, hit_.drawable, rect, hit_.path);
  return hit_;
}

// ---------------------------------------------------------------------------
// Nested lists
// ---------------------------------------------------------------------------

NestedPlacement::NestedPlacement(const std::vector<DL::DrawableDisplayList*>& path) {
  // Innermost first: each step maps the composed inner world one list out.
  for (auto it = path.rbegin(); it != path.rend(); ++it) {
    const DL::DoublePoint& s = (*it)->scale();
    const DL::DoublePoint& o = (*it)->offset();
    sx *= s.x, ox = ox * s.x + o.x;
    sy *= s.y, oy = oy * s.y + o.y;
  }
}

namespace {

DL::WorldBounds bounds_from(double x0, double y0, double x1, double y1) {
  if (!(x0 <= x1)) std::swap(x0, x1);
  if (!(y0 <= y1)) std::swap(y0, y1);
  return {
      {DL::round_to_int32_saturated(std::floor(x0)), DL::round_to_int32_saturated(std::floor(y0))},
      {DL::round_to_int32_saturated(std::ceil(x1)), DL::round_to_int32_saturated(std::ceil(y1))}};
}

bool find_in(DL::DisplayList& list, const DL::Drawable* target, const DL::WorldBounds& rect,
             std::vector<DL::DrawableDisplayList*>& path, int depth) {
  bool found = false;
  std::vector<DL::DrawableDisplayList*> best;
  for (DisplayListBoundedIterator it(&list, rect); it.drawable(); it.advance()) {
    DL::Drawable* d = it.drawable();
    if (d == target) {
      found = true;
      best.clear();
      continue;
    }
    if (depth >= 16 || d->type() != &DL::DrawableDisplayList::_drawable_type_dummy) continue;
    auto* nested = static_cast<DL::DrawableDisplayList*>(d);
    // The walk hands over whole groups near `rect`: keep the lists that reach it.
    if (!nested->display_list() || !nested->mapped_bounds().overlaps(rect)) continue;
    std::vector<DL::DrawableDisplayList*> one{nested};
    const DL::WorldBounds inner = NestedPlacement(one).to_inner(rect);
    if (inner.min.x > inner.max.x) continue;
    std::vector<DL::DrawableDisplayList*> below;
    if (find_in(*nested->display_list(), target, inner, below, depth + 1)) {
      found = true;
      best = std::move(one);
      best.insert(best.end(), below.begin(), below.end());
    }
  }
  if (found) path = std::move(best);
  return found;
}

}  // namespace

DL::WorldBounds NestedPlacement::to_outer(const DL::WorldBounds& b) const {
  return bounds_from(b.min.x * sx + ox, b.min.y * sy + oy, b.max.x * sx + ox, b.max.y * sy + oy);
}

DL::WorldBounds NestedPlacement::to_inner(const DL::WorldBounds& b) const {
  if (sx == 0 || sy == 0 || !std::isfinite(sx) || !std::isfinite(sy))
    return DL::WorldBounds::empty();
  return bounds_from((b.min.x - ox) / sx, (b.min.y - oy) / sy, (b.max.x - ox) / sx,
                     (b.max.y - oy) / sy);
}

bool find_nesting(DL::DisplayList& list, const DL::Drawable* target, const DL::WorldBounds& rect,
                  std::vector<DL::DrawableDisplayList*>& path) {
  path.clear();
  return find_in(list, target, rect, path, 0);
}

// ---------------------------------------------------------------------------
// Description
// ---------------------------------------------------------------------------

std::string describe_drawable(const DL::Drawable& drawable, const std::string& layer_name,
                              int vertices, const DL::WorldBounds* bounds) {
  std::ostringstream dump;
  DL::DisplayListDebug debug{};
  drawable.dump(dump, 0, debug);
  std::string name = dump.str();
  name = name.substr(0, name.find_first_of(": ,\n"));
  if (name.empty()) name = "Drawable";
  const DL::WorldBounds b = bounds ? *bounds : drawable.bounds_of();
  std::ostringstream out;
  out << name << " bounds (" << b.min.x << "," << b.min.y << ")-(" << b.max.x << "," << b.max.y
      << ") layer " << (layer_name.empty() ? "none" : layer_name) << " vertices " << vertices;
  if (int vectors = drawable.get_vector_count(); vectors > 0) out << " vectors " << vectors;
  return out.str();
}

}  // namespace dlview
