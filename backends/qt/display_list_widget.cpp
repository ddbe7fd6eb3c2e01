// The display list widget: view arithmetic, handlers, the interruptible redraw
// and the pick's outline.
#include "backends/qt/display_list_widget.h"

#include <QCoreApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
#include <QWheelEvent>
#include <algorithm>
#include <chrono>
#include <cmath>

#include "backends/qt/qt_picker.h"
#include "backends/qt/qt_renderer.h"

namespace DL {

namespace {

using Clock = std::chrono::steady_clock;

long long now_ns() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now().time_since_epoch())
      .count();
}

double ms_since(long long start_ns) {
  return double(now_ns() - start_ns) / 1e6;
}

}  // namespace

// ---------------------------------------------------------------------------
// View arithmetic
// ---------------------------------------------------------------------------

WorldBounds WidgetView::world() const {
  const double hw = upp * (width - 1) / 2, hh = upp * (height - 1) / 2;
  auto c = [](double v) { return round_to_int32_saturated(v); };
  return {{c(cx - hw), c(cy - hh)}, {c(cx + hw), c(cy + hh)}};
}

void WidgetView::to_world(double column, double row, double& x, double& y) const {
  x = cx + (column - (width - 1) / 2.0) * upp;
  y = cy - (row - (height - 1) / 2.0) * upp;  // world y grows upward
}

void WidgetView::to_pixel(double x, double y, double& column, double& row) const {
  column = (x - cx) / upp + (width - 1) / 2.0;
  row = (height - 1) / 2.0 - (y - cy) / upp;
}

// ---------------------------------------------------------------------------
// The widget
// ---------------------------------------------------------------------------

DisplayListWidget::DisplayListWidget(QWidget* parent) : QWidget(parent) {
  setAttribute(Qt::WA_OpaquePaintEvent);
  setMouseTracking(false);
  view_.width = std::max(1, width());
  view_.height = std::max(1, height());
}

DisplayListWidget::~DisplayListWidget() {
  if (list_ && renderer_ && list_->renderer == renderer_) list_->set_renderer(nullptr);
  if (list_) list_->interrupt_callback = nullptr;
  if (renderer_) release(renderer_);
}

void DisplayListWidget::set_list(DisplayList* list) {
  if (list_ && renderer_ && list_->renderer == renderer_) list_->set_renderer(nullptr);
  if (renderer_) renderer_->set_outer_list(nullptr);
  list_ = list;
  picked_ = nullptr;
  highlight_ = QImage();
  // The bounds of what the list holds: the root's own rectangle is the whole
  // plane while it is open.
  WorldBounds content = WorldBounds::empty();
  if (list_ && list_->root) list_->root->add_bounds(content);
  fit(content);
  changed();
}

void DisplayListWidget::fit(const WorldBounds& b) {
  if (b.max.x < b.min.x || b.max.y < b.min.y) return;
  const double w = double(b.max.x) - b.min.x + 1, h = double(b.max.y) - b.min.y + 1;
  view_.cx = (double(b.min.x) + b.max.x) / 2;
  view_.cy = (double(b.min.y) + b.max.y) / 2;
  view_.upp = std::max({w / std::max(1, view_.width - 1), h / std::max(1, view_.height - 1), 1e-6});
  changed();
}

void DisplayListWidget::set_view(double cx, double cy, double units_per_pixel) {
  if (!std::isfinite(cx) || !std::isfinite(cy) || !(units_per_pixel > 0) ||
      !std::isfinite(units_per_pixel))
    return;  // refused, as the library refuses bad input
  view_.cx = cx;
  view_.cy = cy;
  view_.upp = units_per_pixel;
  changed();
}

void DisplayListWidget::redraw() {
  drawn_generation_ = 0;
  changed();
}

void DisplayListWidget::changed() {
  ++generation_;
  update();
  schedule();
}

void DisplayListWidget::schedule() {
  if (scheduled_) return;
  scheduled_ = true;
  QTimer::singleShot(0, this, [this] {
    scheduled_ = false;
    work();
  });
}

// One step of the redraw, run when the event loop is idle: a pick, then a
// draft or the exact picture of the wanted view.
void DisplayListWidget::work() {
  if (in_draw_ || !list_ || !list_->root) return;  // the running draw reschedules
  if (pick_wanted_) {
    pick_wanted_ = false;
    do_pick(pick_column_, pick_row_);
  }
  if (drawn_generation_ == generation_ && !front_is_draft_) return;
  const bool view_changed = !(front_view_ == view_) || front_.isNull();
  const bool draft =
      drawn_generation_ != generation_ && view_changed && exact_ms_ > kFrameMs && !front_.isNull();
  draw_once(draft, true);
  if (drawn_generation_ != generation_ || front_is_draft_ || pick_wanted_) schedule();
}

void DisplayListWidget::prepare_list() {
  if (!renderer_) {
    renderer_ = new QtRenderer(nullptr, view_.height);
    add_ref(renderer_);
  }
  list_->saturate_device_points = true;   // far points of a zoomed view must not wrap
  list_->complex_clip_supported = false;  // prune by the clip too; the renderer cuts exactly
  renderer_->set_outer_list(list_);       // the clip holds for nested lists; images to scale
  list_->set_renderer(renderer_);
  list_->set_screen_bounds({{0, 0}, {view_.width - 1, view_.height - 1}});
  list_->set_world_bounds(view_.world());
}

// Hands the list back to the host: the widget's renderer and callback off it.
void DisplayListWidget::release_list() {
  if (!list_) return;
  if (list_->renderer == renderer_) list_->set_renderer(nullptr);
  list_->interrupt_callback = nullptr;
}

bool DisplayListWidget::draw_now() {
  if (in_draw_ || !list_ || !list_->root) return false;
  return draw_once(false, false);
}

// Draws the wanted view into a new picture; true when the draw ran to its
// end, and then the picture is the one on screen.
bool DisplayListWidget::draw_once(bool draft, bool yield) {
  draw_generation_ = generation_;
  const WidgetView drawn_view = view_;
  QImage back(view_.width, view_.height, QImage::Format_RGB32);
  back.fill(Qt::white);
  QPainter painter(&back);
  prepare_list();
  renderer_->set_painter(&painter, view_.height);
  renderer_->set_draft(draft);
  if (sink_hook_) sink_hook_(renderer_);
  list_->interrupt_callback = yield ? &DisplayListWidget::poll : &DisplayListWidget::keep_going;
  list_->interrupt_user_data = this;

  in_draw_ = true;
  handling_ms_ = 0;
  const long long start = now_ns();
  checked_ns_ = start;
  const WorldBounds inner = list_->world_bounds, outer = list_->visible_bounds;
  bool done;
  if (!list_->rendition.complex_clip())
    done = list_->root->draw_bounded_interrupt(*list_, inner, outer);
  else if (list_->circular_complex_clip())
    done = list_->root->draw_circled_bounded_interrupt(*list_, inner, outer);
  else
    done = list_->root->draw_complex_bounded_interrupt(*list_, inner, outer);
  in_draw_ = false;
  if (sink_hook_) sink_hook_(nullptr);
  release_list();
  renderer_->set_painter(nullptr, view_.height);
  painter.end();

  stats_.ms = ms_since(start) - handling_ms_;
  stats_.interrupted = !done;
  stats_.stopped += !done;
  stats_.draft = draft;
  if (!draft) exact_ms_ = done ? stats_.ms : std::max(exact_ms_, stats_.ms);
  if (done) {
    front_ = std::move(back);
    front_view_ = drawn_view;
    front_is_draft_ = draft;
    drawn_generation_ = draw_generation_;
    ++(draft ? stats_.drafts : stats_.exact);
    if (picked_) render_highlight();
  }
  update();
  // Called through a copy: the callback may reset or replace itself.
  if (done && !draft && drawn_generation_ == generation_ && on_drawn) {
    const std::function<void()> callback = on_drawn;
    callback();
  }
  return done;
}

// The interrupt callback: handles pending input now and then, and says
// whether the draw may go on.
bool DisplayListWidget::poll(void* self) {
  auto* w = static_cast<DisplayListWidget*>(self);
  // Called again at the very next interior group: a group may hold many
  // primitives, and input is looked at by time, not by count.
  w->list_->interrupt_counter = DisplayList::kInterruptPollPeriod - 1;
  const long long now = now_ns();
  if (double(now - w->checked_ns_) / 1e6 >= kInputCheckMs) {
    QCoreApplication::processEvents(QEventLoop::AllEvents);
    w->checked_ns_ = now_ns();
    w->handling_ms_ += double(w->checked_ns_ - now) / 1e6;
  }
  return !w->pick_wanted_ && w->generation_ == w->draw_generation_;
}

// ---------------------------------------------------------------------------
// Picking and its outline
// ---------------------------------------------------------------------------

void DisplayListWidget::pick_at(int column, int row) {
  if (in_draw_) {
    pick_wanted_ = true;
    pick_column_ = column;
    pick_row_ = row;
    return;
  }
  do_pick(column, row);
}

void DisplayListWidget::do_pick(int column, int row) {
  if (!list_ || !list_->root || column < 0 || row < 0 || column >= view_.width ||
      row >= view_.height)
    return;
  prepare_list();
  auto* picker = new QtPicker;
  add_ref(picker);
  // Screen y of the list grows upward: row 0 is the top.
  // The picker reports what it saw as const; the widget draws it again for the
  // outline, which takes the drawable as the list's own (non-const) entry does.
  picked_ =
      const_cast<Drawable*>(picker->pick(*list_, column, view_.height - 1 - row, kPickRadius));
  release(picker);
  render_highlight();
  update();
  if (on_picked) {
    const std::function<void(const Drawable*)> callback = on_picked;  // may reset itself
    callback(picked_);
  }
}

// Paints the picked drawable into a transparent picture of the view, then a
// halo of its silhouette in the highlight colour under it, and its bounds
// framed three pixels out.
void DisplayListWidget::render_highlight() {
  highlight_ = QImage();
  if (!picked_ || !picked_->shown() || !list_) return;
  highlight_view_ = view_;
  const int w = view_.width, h = view_.height;
  QImage shape(w, h, QImage::Format_ARGB32_Premultiplied);
  shape.fill(Qt::transparent);
  {
    QPainter painter(&shape);
    prepare_list();
    renderer_->set_painter(&painter, h);
    renderer_->set_draft(false);
    if (sink_hook_) sink_hook_(renderer_);
    picked_->draw_clipped(*list_);
    if (sink_hook_) sink_hook_(nullptr);
    release_list();
    renderer_->set_painter(nullptr, h);
  }
  QImage halo = shape;
  {
    QPainter painter(&halo);
    painter.setCompositionMode(QPainter::CompositionMode_SourceIn);
    painter.fillRect(halo.rect(), QColor::fromRgba(kHighlight));
  }
  highlight_ = QImage(w, h, QImage::Format_ARGB32_Premultiplied);
  highlight_.fill(Qt::transparent);
  QPainter painter(&highlight_);
  for (int dy = -2; dy <= 2; ++dy)
    for (int dx = -2; dx <= 2; ++dx)
      if (dx * dx + dy * dy <= 5 && (dx || dy)) painter.drawImage(dx, dy, halo);
  painter.drawImage(0, 0, shape);
  const WorldBounds b = picked_->bounds_of();
  double c0, r0, c1, r1;
  view_.to_pixel(b.min.x, b.min.y, c0, r0);
  view_.to_pixel(b.max.x, b.max.y, c1, r1);
  auto fit = [](double v) { return std::clamp(v, -1e6, 1e6); };
  QPen pen(QColor::fromRgba(kHighlight), 1, Qt::DashLine);
  painter.setPen(pen);
  painter.drawRect(QRectF(QPointF(fit(std::floor(std::min(c0, c1)) - 3 + 0.5),
                                  fit(std::floor(std::min(r0, r1)) - 3 + 0.5)),
                          QPointF(fit(std::ceil(std::max(c0, c1)) + 3 + 0.5),
                                  fit(std::ceil(std::max(r0, r1)) + 3 + 0.5))));
}

// ---------------------------------------------------------------------------
// Events
// ---------------------------------------------------------------------------

namespace {

// Draws `image`, a picture of `from`, where it shows in `to`: moved and scaled
// so that every world point lands on its pixel in `to`.
void draw_moved(QPainter& painter, const QImage& image, const WidgetView& from,
                const WidgetView& to) {
  const double s = from.upp / to.upp;
  const double bx =
      s * (-0.5 - (from.width - 1) / 2.0) + (from.cx - to.cx) / to.upp + (to.width - 1) / 2.0 + 0.5;
  const double by = s * (-0.5 - (from.height - 1) / 2.0) - (from.cy - to.cy) / to.upp +
                    (to.height - 1) / 2.0 + 0.5;
  if (!std::isfinite(s) || !std::isfinite(bx) || !std::isfinite(by)) return;
  painter.save();
  painter.setTransform(QTransform(s, 0, 0, s, bx, by));
  painter.drawImage(0, 0, image);
  painter.restore();
}

}  // namespace

void DisplayListWidget::paintEvent(QPaintEvent*) {
  QPainter painter(this);
  painter.fillRect(rect(), Qt::white);
  if (!front_.isNull()) draw_moved(painter, front_, front_view_, view_);
  if (!highlight_.isNull()) draw_moved(painter, highlight_, highlight_view_, view_);
}

void DisplayListWidget::resizeEvent(QResizeEvent*) {
  view_.width = std::max(1, width());
  view_.height = std::max(1, height());
  changed();
}

void DisplayListWidget::wheelEvent(QWheelEvent* event) {
  const double notches = event->angleDelta().y() / 120.0;
  if (notches == 0) return;
  const QPointF at = event->position();
  double x, y;
  view_.to_world(at.x(), at.y(), x, y);
  const double upp = std::clamp(view_.upp * std::pow(kZoomStep, -notches), 1e-6, 1e12);
  view_.upp = upp;
  view_.cx = x - (at.x() - (view_.width - 1) / 2.0) * upp;
  view_.cy = y + (at.y() - (view_.height - 1) / 2.0) * upp;
  changed();
  event->accept();
}

void DisplayListWidget::mousePressEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton) return;
  pressed_ = true;
  dragging_ = false;
  press_pos_ = last_pos_ = event->position();
}

void DisplayListWidget::mouseMoveEvent(QMouseEvent* event) {
  if (!pressed_) return;
  const QPointF at = event->position();
  if (!dragging_ && (at - press_pos_).manhattanLength() < 4) return;
  dragging_ = true;
  view_.cx -= (at.x() - last_pos_.x()) * view_.upp;
  view_.cy += (at.y() - last_pos_.y()) * view_.upp;
  last_pos_ = at;
  changed();
}

void DisplayListWidget::mouseReleaseEvent(QMouseEvent* event) {
  if (event->button() != Qt::LeftButton || !pressed_) return;
  pressed_ = false;
  if (dragging_) return;
  const QPointF at = event->position();
  pick_at(static_cast<int>(std::lround(at.x())), static_cast<int>(std::lround(at.y())));
}

}  // namespace DL
