// The viewer's window: widgets, handlers, and the interruptible redraw.
#include "tools/gui/viewer_window.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>

#include "backends/cairo/cairo_text.h"
#include "backends/cairo/draft_renderer.h"
#include "displaylist/group_index.h"
#include "nested/drawable_display_list.h"

namespace dlview {

namespace {

constexpr double kZoomStep = 1.25;  // per wheel click and per key press
constexpr double kMinUnitsPerPixel = 1.0 / 16;
constexpr int kPickRadius = 3;             // pixels around the pointer
constexpr int kClickSlop = 3;              // a press and release closer than this is a click
constexpr ZR_RGB32 kHighlight = 0xff7f00;  // orange
constexpr int kMaxHandledPerPoll = 64;     // main loop turns per poll, at most
constexpr double kInputCheckMs = 0.5;      // input is looked at no more often
constexpr double kLongStretchMs = 5;       // a stretch the user would notice
constexpr double kFrameMs = 16;            // a frame
// An exact draw foreseen slower than this gets a draft first. A frame and a
// half: a draft costs some 8 ms, so below this it would show for less than a
// frame and only put the exact picture off (the city's 1% view draws exact in
// 19 ms: 20 ms from input alone, 30 ms behind a draft).
constexpr double kDraftAboveMs = 24;
// The first picture has no draw to be foreseen from: it is drafted when the
// drawing holds more primitives than this (an overview of a million scattered
// LINEs takes 1.4 to 2.2 s exact and 8 ms as a draft; the city's two million,
// most of them faded out at the overview, 57 ms).
constexpr long long kFirstDraftPrimitives = 100000;
// A view drawn by tiles (see the header): each foreseen to take this long,
// at least kMinTile pixels a side, kFirstTile while nothing foresees it.
constexpr double kTileMs = 2;
constexpr int kMinTile = 32;
constexpr int kFirstTile = 64;
constexpr int kMaxBand = 128;  // rows of a band of tiles, at most
// Only an exact draw foreseen longer than this goes by tiles: what crosses a
// tile's edge is drawn once per tile it reaches, and a zoomed view's long
// lines cross many (the 1% view of a million scattered LINEs: 55 ms whole,
// over twice that by tiles), while a stretch shorter than this is not felt
// as a hang.
constexpr double kTileAboveMs = 100;
constexpr float kDraftGreekingPx = 1e9f;  // a draft greeks text below this size: all of it

double ms_since(Clock::time_point t) {
  return std::chrono::duration<double, std::milli>(Clock::now() - t).count();
}

// The processor time this thread has used, in milliseconds.
double thread_cpu_ms() {
  timespec t{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &t);
  return t.tv_sec * 1e3 + t.tv_nsec / 1e6;
}

void set_source(cairo_t* cr, ZR_RGB32 c, double alpha = 1) {
  cairo_set_source_rgba(cr, ((c >> 16) & 255) / 255.0, ((c >> 8) & 255) / 255.0, (c & 255) / 255.0,
                        alpha);
}

}  // namespace

// ---------------------------------------------------------------------------
// View arithmetic
// ---------------------------------------------------------------------------

// The world area a view shows of the drawing's extent, in square world units;
// at least one.
static double shown_area(const DL::WorldBounds& a, const DL::WorldBounds& b) {
  const double w = std::min<double>(a.max.x, b.max.x) - std::max<double>(a.min.x, b.min.x);
  const double h = std::min<double>(a.max.y, b.max.y) - std::max<double>(a.min.y, b.min.y);
  return std::max(1.0, std::max(0.0, w) * std::max(0.0, h));
}

double ViewerWindow::view_area(const View& v) const {
  return shown_area(v.world(), drawing_.extent);
}

double ViewerWindow::whole_area() const {
  return shown_area(drawing_.extent, drawing_.extent);
}

DL::WorldBounds View::world() const {
  const double hw = upp * (width - 1) / 2, hh = upp * (height - 1) / 2;
  auto c = [](double v) { return DL::round_to_int32_saturated(v); };
  return {{c(cx - hw), c(cy - hh)}, {c(cx + hw), c(cy + hh)}};
}

void View::to_world(double column, double row, double& x, double& y) const {
  x = cx + (column - (width - 1) / 2.0) * upp;
  y = cy - (row - (height - 1) / 2.0) * upp;  // world y grows upward
}

void View::to_pixel(double x, double y, double& column, double& row) const {
  column = (x - cx) / upp + (width - 1) / 2.0;
  row = (height - 1) / 2.0 - (y - cy) / upp;
}

// ---------------------------------------------------------------------------
// Building and running
// ---------------------------------------------------------------------------

namespace {

// Builds the indexes of the wide groups under `g` now. The list builds each
// one at the first walk by rectangle that enters its group, in one piece with
// no poll: 50 to 100 ms for a million LINEs in no spatial order, which would
// otherwise be the longest stretch of the first zoomed or tiled draw. Costs a
// read of every group's record (some 10 ms for those LINEs); no drawable is
// touched.
void index_wide_groups(const DL::Group* g) {
  if (g->contains_drawables()) return;
  DL::GroupIndex::of(g);
  for (const DL::Group* c = g->first_group(); c; c = c->sibling)
    if (!c->contains_drawables()) index_wide_groups(c);
}

}  // namespace

ViewerWindow::ViewerWindow(GuiDrawing& drawing, const GuiOptions& options)
    : drawing_(drawing), list_(*drawing.list), options_(options) {
  if (list_.root) index_wide_groups(list_.root);
  view_.width = options.width;
  view_.height = options.height;
  for (const GuiLayer& layer : drawing_.layers)
    layer_wanted_.push_back(layer.info && layer.info->shown ? 1 : 0);
  list_.saturate_device_points = true;  // far points of a zoomed view must not wrap
  fit_whole();
  build_widgets();
}

ViewerWindow::~ViewerWindow() {
  if (idle_id_) g_source_remove(idle_id_);
  if (window_) gtk_widget_destroy(window_);
  list_.set_renderer(nullptr);
  list_.rendition.set_complex_clip(nullptr, false);
  list_.interrupt_callback = nullptr;
  for (CountingTap* c : {counter_, front_counter_})
    if (c) release(c);
  for (DL::CairoRenderer* r : {back_renderer_, front_renderer_})
    if (r) release(r);
  if (back_) cairo_surface_destroy(back_);
  if (front_) cairo_surface_destroy(front_);
  if (highlight_) cairo_surface_destroy(highlight_);
}

void ViewerWindow::fit_whole() {
  DL::WorldBounds e = drawing_.extent;
  if (!e.is_valid() || e.min.x > e.max.x) e = {{0, 0}, {1000, 1000}};
  view_.cx = (double(e.min.x) + e.max.x) / 2;
  view_.cy = (double(e.min.y) + e.max.y) / 2;
  const double w = std::max(1.0, double(e.max.x) - e.min.x);
  const double h = std::max(1.0, double(e.max.y) - e.min.y);
  // A margin of 2% so that the outermost primitives are not on the frame.
  view_.upp = 1.04 * std::max(w / std::max(1, view_.width - 1), h / std::max(1, view_.height - 1));
  view_.upp = std::max(view_.upp, kMinUnitsPerPixel);
}

void ViewerWindow::build_widgets() {
  window_ = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window_), drawing_.title.c_str());
  g_signal_connect(window_, "delete-event", G_CALLBACK(on_delete), this);
  g_signal_connect(window_, "key-press-event", G_CALLBACK(on_key), this);

  GtkWidget* vbox = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
  gtk_container_add(GTK_CONTAINER(window_), vbox);

  // Tool bar: the three tools, clearing the clip, the whole drawing.
  GtkWidget* bar = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 4);
  gtk_container_set_border_width(GTK_CONTAINER(bar), 2);
  const char* labels[3] = {"Navigate", "Circle clip", "Polygon clip"};
  for (int i = 0; i < 3; ++i) {
    tool_buttons_[i] = gtk_toggle_button_new_with_label(labels[i]);
    gtk_widget_set_can_focus(tool_buttons_[i], FALSE);
    gtk_box_pack_start(GTK_BOX(bar), tool_buttons_[i], FALSE, FALSE, 0);
  }
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(tool_buttons_[0]), TRUE);
  for (GtkWidget* b : tool_buttons_)
    g_signal_connect(b, "toggled", G_CALLBACK(on_tool_toggled), this);
  GtkWidget* clear = gtk_button_new_with_label("No clip");
  gtk_widget_set_can_focus(clear, FALSE);
  g_signal_connect(clear, "clicked", G_CALLBACK(on_clear_clip), this);
  gtk_box_pack_start(GTK_BOX(bar), clear, FALSE, FALSE, 0);
  GtkWidget* whole = gtk_button_new_with_label("Whole drawing");
  gtk_widget_set_can_focus(whole, FALSE);
  g_signal_connect(whole, "clicked", G_CALLBACK(on_home), this);
  gtk_box_pack_start(GTK_BOX(bar), whole, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(vbox), bar, FALSE, FALSE, 0);

  GtkWidget* hbox = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, 0);
  gtk_box_pack_start(GTK_BOX(vbox), hbox, TRUE, TRUE, 0);

  area_ = gtk_drawing_area_new();
  gtk_widget_set_size_request(area_, 64, 48);
  gtk_widget_add_events(area_, GDK_BUTTON_PRESS_MASK | GDK_BUTTON_RELEASE_MASK |
                                   GDK_POINTER_MOTION_MASK | GDK_SCROLL_MASK |
                                   GDK_SMOOTH_SCROLL_MASK);
  g_signal_connect(area_, "draw", G_CALLBACK(on_draw), this);
  g_signal_connect(area_, "size-allocate", G_CALLBACK(on_size), this);
  g_signal_connect(area_, "button-press-event", G_CALLBACK(on_press), this);
  g_signal_connect(area_, "motion-notify-event", G_CALLBACK(on_motion), this);
  g_signal_connect(area_, "button-release-event", G_CALLBACK(on_release), this);
  g_signal_connect(area_, "scroll-event", G_CALLBACK(on_scroll), this);
  gtk_box_pack_start(GTK_BOX(hbox), area_, TRUE, TRUE, 0);

  int panel_width = 0;
  if (!drawing_.layers.empty()) {
    GtkWidget* scroll = gtk_scrolled_window_new(nullptr, nullptr);
    gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroll), GTK_POLICY_NEVER,
                                   GTK_POLICY_AUTOMATIC);
    GtkWidget* list = gtk_box_new(GTK_ORIENTATION_VERTICAL, 0);
    GtkWidget* title = gtk_label_new("Layers");
    gtk_box_pack_start(GTK_BOX(list), title, FALSE, FALSE, 2);
    for (std::size_t i = 0; i < drawing_.layers.size(); ++i) {
      GtkWidget* b = gtk_check_button_new_with_label(drawing_.layers[i].name.c_str());
      gtk_widget_set_can_focus(b, FALSE);
      gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(b), layer_wanted_[i] != 0);
      g_object_set_data(G_OBJECT(b), "layer", GSIZE_TO_POINTER(i));
      g_signal_connect(b, "toggled", G_CALLBACK(on_layer_toggled), this);
      gtk_box_pack_start(GTK_BOX(list), b, FALSE, FALSE, 0);
      layer_buttons_.push_back(b);
    }
    gtk_container_add(GTK_CONTAINER(scroll), list);
    panel_width = 160;
    gtk_widget_set_size_request(scroll, panel_width, -1);
    gtk_box_pack_start(GTK_BOX(hbox), scroll, FALSE, FALSE, 0);
  }

  status_label_ = gtk_label_new("");
  gtk_label_set_xalign(GTK_LABEL(status_label_), 0);
  gtk_label_set_ellipsize(GTK_LABEL(status_label_), PANGO_ELLIPSIZE_END);
  gtk_label_set_selectable(GTK_LABEL(status_label_), FALSE);
  gtk_box_pack_start(GTK_BOX(vbox), status_label_, FALSE, FALSE, 2);

  // The area gets the size asked for, in a window without decorations to fit.
  gtk_window_set_default_size(GTK_WINDOW(window_), options_.width + panel_width,
                              options_.height + 60);
  update_status();
}

void ViewerWindow::run() {
  gtk_widget_show_all(window_);
  changed();
  gtk_main();
}

void ViewerWindow::close() {
  GdkEvent* e = gdk_event_new(GDK_DELETE);
  e->any.window = GDK_WINDOW(g_object_ref(gtk_widget_get_window(window_)));
  e->any.send_event = TRUE;
  gdk_event_put(e);
  gdk_event_free(e);
}

// ---------------------------------------------------------------------------
// Requests
// ---------------------------------------------------------------------------

void ViewerWindow::content_changed() {
  ++content_;
  scale_times_.clear();
  changed();
}

void ViewerWindow::changed() {
  ++generation_;
  schedule();
  gtk_widget_queue_draw(area_);
}

void ViewerWindow::schedule() {
  // Between input (G_PRIORITY_DEFAULT) and GDK's repaints (GDK_PRIORITY_REDRAW,
  // G_PRIORITY_HIGH_IDLE + 20); see the header.
  if (!idle_id_ && !closing_)
    idle_id_ = g_idle_add_full(G_PRIORITY_HIGH_IDLE + 10, &ViewerWindow::on_idle, this, nullptr);
}

gboolean ViewerWindow::on_idle(gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  if (w->work()) return G_SOURCE_CONTINUE;
  w->idle_id_ = 0;
  return G_SOURCE_REMOVE;
}

// One turn of the idle job; true when more is to be done.
bool ViewerWindow::work() {
  if (closing_) return false;
  apply_layers();
  if (pick_wanted_) {
    pick_wanted_ = false;
    do_pick(pick_column_, pick_row_);
  }
  if (drawn_generation_ == generation_ && !front_is_draft_) return false;
  draw_once(wants_draft());
  return !closing_ && (drawn_generation_ != generation_ || front_is_draft_ || pick_wanted_);
}

// Whether the next draw should be a draft: a new view whose exact draw is
// likely to take longer than a frame, and no draft of it on screen yet.
bool ViewerWindow::wants_draft() const {
  if (draft_policy_ == DraftPolicy::never) return false;
  if (!front_) return drawing_.primitives > kFirstDraftPrimitives;
  if (drawn_generation_ == generation_) return false;  // the draft of this state is shown
  if (view_ == front_view_) return false;
  if (draft_policy_ == DraftPolicy::always) return true;
  int sx, sy;
  if (pan_shift(sx, sy)) return false;  // the strips of a pan come exact at once
  return foreseen_exact_ms() > kDraftAboveMs;
}

double ViewerWindow::foreseen_exact_ms() const {
  for (const ScaleTime& t : scale_times_)
    if (t.upp == view_.upp && t.width == view_.width && t.height == view_.height) return t.ms;
  // The exact draw's cost grows with the world it shows: a zoom out from a
  // quick close-up may take seconds. Its time is foreseen from the last exact
  // draw by the ratio of the areas shown (the drawing taken as even; the
  // ratio at most the whole drawing over the last view).
  const double ratio = std::min(exact_area_ > 0 ? view_area(view_) / exact_area_ : 1.0,
                                exact_area_ > 0 ? whole_area() / exact_area_ : 1.0);
  return exact_ms_ * std::max(1.0, ratio);
}

bool ViewerWindow::wants_tiles() const {
  if (tile_policy_ != TilePolicy::automatic) return tile_policy_ == TilePolicy::always;
  if (!tiles_wanted_) return false;
  const double foreseen = foreseen_exact_ms();
  return !(foreseen > 0) || foreseen > kTileAboveMs;
}

// ---------------------------------------------------------------------------
// Drawing
// ---------------------------------------------------------------------------

void ViewerWindow::ensure_back() {
  if (back_ && cairo_image_surface_get_width(back_) == view_.width &&
      cairo_image_surface_get_height(back_) == view_.height)
    return;
  if (counter_) release(counter_);
  if (back_renderer_) release(back_renderer_);
  if (back_) cairo_surface_destroy(back_);
  back_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, view_.width, view_.height);
  cairo_t* cr = cairo_create(back_);
  back_renderer_ = new DL::CairoRenderer(cr, view_.height);
  cairo_destroy(cr);
  add_ref(back_renderer_);
  back_renderer_->set_complex_clip_supported(true);
  back_renderer_->set_outer_list(&list_);  // the clip holds for blocks
  counter_ = new CountingTap(back_renderer_);
  add_ref(counter_);
}

void ViewerWindow::apply_layers() {
  const double scale = std::fabs(list_.scale.x);
  for (std::size_t i = 0; i < layer_wanted_.size(); ++i) {
    const GuiLayer& layer = drawing_.layers[i];
    if (layer.info) layer.info->shown = layer_wanted_[i] && scale >= layer.min_scale ? 1 : 0;
  }
}

void ViewerWindow::apply_clip() {
  if (clip_world_.empty()) {
    list_.rendition.set_complex_clip(nullptr, false);
    return;
  }
  // Screen units, y up, as the list's screen transform gives them.
  std::vector<ZR_Point> contour;
  contour.reserve(clip_world_.size());
  // Through the list's own transform, which a pan moves by whole pixels.
  for (const DL::DoublePoint& p : clip_world_)
    contour.push_back({static_cast<float>(list_.scale.x * p.x + list_.offset.x),
                       static_cast<float>(list_.scale.y * p.y + list_.offset.y), 0});
  ZR_Contour_Set set = ZR_Contour_Set::make({contour});
  list_.rendition.set_complex_clip(&set, false);
}

// Draws the wanted view into the back surface, as a draft or exact; true when
// the draw ran to its end, and then the back surface becomes the picture on
// screen.
bool ViewerWindow::draw_once(bool draft) {
  ensure_back();
  draw_generation_ = generation_;
  draw_is_draft_ = draft;
  const View drawn_view = view_;
  back_renderer_->flush_direct();
  DL::DraftRenderer* draft_renderer = nullptr;
  CountingTap* counter = counter_;
  if (draft) {
    draft_renderer = new DL::DraftRenderer(back_);
    add_ref(draft_renderer);
    draft_renderer->clear(0xffffff);
    draft_renderer->set_outer_list(&list_);
    counter = new CountingTap(draft_renderer);
    add_ref(counter);
  } else {
    int sx = 0, sy = 0;
    if (pan_shift(sx, sy)) return draw_pan(sx, sy);
    cairo_t* cr = back_renderer_->context();
    cairo_save(cr);
    cairo_identity_matrix(cr);
    cairo_reset_clip(cr);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_restore(cr);
    back_renderer_->forget_clip();
  }

  list_.set_renderer(counter);
  // A draft greeks all text below kDraftGreekingPx: shaping and filling glyphs
  // would cost it more than the rest of the view.
  const float greeking = drawing_.text ? drawing_.text->greeking_size() : 0.0f;
  if (drawing_.text) {
    drawing_.text->set_renderer(draft ? static_cast<DL::ContourPainter*>(draft_renderer)
                                      : static_cast<DL::ContourPainter*>(back_renderer_));
    if (draft) drawing_.text->set_greeking_size(std::max(greeking, kDraftGreekingPx));
  }
  list_.complex_clip_supported = false;  // prune by the clip too; see the header
  DL::WorldBounds inner, outer;
  const DL::ScreenPoint origin = place_list(inner, outer);
  apply_layers();
  apply_clip();
  list_.interrupt_callback = &ViewerWindow::poll;
  list_.interrupt_user_data = this;

  counter->calls = 0;
  const bool tiled = !draft && wants_tiles();
  begin_timing();
  // An exact draw foreseen too quick for a draft repaints nothing until its
  // picture is done, unless it runs four frames.
  if (!draft && foreseen_exact_ms() <= kDraftAboveMs) input_only_ms_ = 4 * kFrameMs;
  long long calls = 0;
  const bool done = tiled ? draw_tiles(origin, calls) : walk(inner, outer);
  end_timing(done, tiled ? calls : counter->calls);
  if (tiled) list_.set_renderer(counter_);
  // Whether the next exact draws go by tiles: a stretch without a poll that
  // takes a quarter of a draw of some length, in a draw that polled less
  // than once a millisecond, is the tree's shape (a wide group of bottom
  // groups: they are drawn without a poll), not the scheduler's (a tick cut
  // into a draw whose groups poll often).
  if (done && !tiled && running_.ms >= 2)
    tiles_wanted_ = running_.longest_stretch_ms > 1 &&
                    running_.longest_stretch_ms > running_.ms / 4 &&
                    running_.callbacks < running_.ms;
  if (drawing_.text) {
    drawing_.text->set_renderer(nullptr);  // both renderers may go below
    drawing_.text->set_greeking_size(greeking);
  }
  back_renderer_->flush_direct();
  if (draft) {
    list_.set_renderer(counter_);  // the list lets go of the draft
    draft_renderer->mark_dirty();
    release(counter);
    release(draft_renderer);
  } else {
    exact_ms_ = done ? running_.cpu_ms : std::max(exact_ms_, running_.cpu_ms);
    exact_area_ = view_area(drawn_view);
    if (done) {
      // Remembered by scale, the latest first, a few of them.
      constexpr std::size_t kScales = 8;
      std::erase_if(scale_times_, [&](const ScaleTime& t) { return t.upp == drawn_view.upp; });
      scale_times_.insert(scale_times_.begin(),
                          {drawn_view.upp, drawn_view.width, drawn_view.height, running_.cpu_ms});
      if (scale_times_.size() > kScales) scale_times_.pop_back();
    }
  }
  cairo_surface_flush(back_);
  return end_draw(done, draft, drawn_view, list_.world_bounds, origin);
}

bool ViewerWindow::end_draw(bool done, bool draft, const View& drawn_view,
                            const DL::WorldBounds& world, DL::ScreenPoint origin) {
  if (done) {
    front_world_ = world;
    front_origin_ = origin;
    front_content_ = content_drawn_;
    // The old picture on screen, with its renderer, is drawn into next
    // (ensure_back makes new ones when the size changed).
    std::swap(back_, front_);
    std::swap(back_renderer_, front_renderer_);
    std::swap(counter_, front_counter_);
    front_view_ = drawn_view;
    drawn_generation_ = draw_generation_;
    front_is_draft_ = draft;
    ++(draft ? drafts_ : completed_);
    if (picked_) render_highlight();
  }
  update_status();
  if (done && on_finished) on_finished();
  if (!closing_) gtk_widget_queue_draw(area_);
  return done;
}

void ViewerWindow::begin_timing() {
  running_ = DrawStats{};
  input_only_ms_ = kFrameMs;
  counter_before_ = list_.interrupt_counter;
  content_drawn_ = content_;
  in_draw_ = true;
  handling_ms_ = 0;
  handling_cpu_ms_ = 0;
  started_cpu_ms_ = thread_cpu_ms();
  started_ = Clock::now();
  resumed_ = started_;
  checked_ = started_;
}

bool ViewerWindow::walk(const DL::WorldBounds& inner, const DL::WorldBounds& outer) {
  if (!list_.rendition.complex_clip())
    return list_.root->draw_bounded_interrupt(list_, inner, outer);
  if (list_.circular_complex_clip())
    return list_.root->draw_circled_bounded_interrupt(list_, inner, outer);
  return list_.root->draw_complex_bounded_interrupt(list_, inner, outer);
}

void ViewerWindow::end_timing(bool done, long long calls) {
  const double last_stretch = ms_since(resumed_);
  running_.longest_stretch_ms = std::max(running_.longest_stretch_ms, last_stretch);
  running_.long_stretches += last_stretch > kLongStretchMs;
  in_draw_ = false;
  running_.ms = ms_since(started_) - handling_ms_;
  running_.cpu_ms = thread_cpu_ms() - started_cpu_ms_ - handling_cpu_ms_;
  running_.drawn = calls;
  // The interior groups entered, from the interrupt counter.
  const int k = running_.callbacks;
  const int c0 = counter_before_, c1 = list_.interrupt_counter;
  running_.groups = k == 0 ? c1 - c0
                           : (DL::DisplayList::kInterruptPollPeriod - c0) +
                                 (k - 1LL) * DL::DisplayList::kInterruptPollPeriod + c1;
  running_.interrupted = !done;
  last_ = running_;
}

// Whether `to` is `from` moved by whole pixels: right by `sx`, down by `sy`.
static bool whole_pixels(const View& from, const View& to, int& sx, int& sy) {
  if (from.upp != to.upp || from.width != to.width || from.height != to.height) return false;
  const double fx = (from.cx - to.cx) / to.upp, fy = (to.cy - from.cy) / to.upp;
  const double rx = std::round(fx), ry = std::round(fy);
  if (std::fabs(fx - rx) > 1e-6 || std::fabs(fy - ry) > 1e-6) return false;
  if (std::fabs(rx) > 1e6 || std::fabs(ry) > 1e6) return false;
  sx = static_cast<int>(rx);
  sy = static_cast<int>(ry);
  return true;
}

DL::ScreenPoint ViewerWindow::place_list(DL::WorldBounds& inner, DL::WorldBounds& outer) {
  const int w = view_.width, h = view_.height;
  int sx = 0, sy = 0;
  DL::ScreenPoint origin{0, 0};
  if (!whole_pixels(anchor_.view, view_, sx, sy) ||
      std::fabs(double(anchor_.origin.x) + sx) > 1e6 ||
      std::fabs(double(anchor_.origin.y) - sy) > 1e6) {
    anchor_ = {view_, view_.world(), {0, 0}};
    sx = sy = 0;
  }
  origin = {anchor_.origin.x + sx, anchor_.origin.y - sy};
  list_.set_screen_bounds({{origin.x, origin.y}, {origin.x + w - 1, origin.y + h - 1}});
  list_.set_world_bounds(anchor_.world);
  // The world under the picture, and a pixel more for what reaches into it.
  const int lo[2] = {0, 0}, hi[2] = {w - 1, h - 1};
  const int lo1[2] = {-1, -1}, hi1[2] = {w, h};
  list_.screen_to_world(lo, inner.min);
  list_.screen_to_world(hi, inner.max);
  list_.screen_to_world(lo1, outer.min);
  list_.screen_to_world(hi1, outer.max);
  return origin;
}

bool ViewerWindow::pan_shift(int& sx, int& sy) const {
  if (!front_ || front_is_draft_ || front_content_ != content_) return false;
  // A quick whole draw costs about what moving the picture and the strips'
  // walks (one per strip, each down the tree) do.
  if (exact_ms_ < kFrameMs / 2 && !pan_strips_always_) return false;
  if (front_view_.upp != view_.upp || front_view_.width != view_.width ||
      front_view_.height != view_.height)
    return false;
  const double fx = (front_view_.cx - view_.cx) / view_.upp;  // the picture moves right
  const double fy = (view_.cy - front_view_.cy) / view_.upp;  // and down
  const double rx = std::round(fx), ry = std::round(fy);
  if (std::fabs(fx - rx) > 1e-6 || std::fabs(fy - ry) > 1e-6) return false;
  // Beyond half the picture a whole draw costs about what the strips would.
  if ((rx == 0 && ry == 0) || std::fabs(rx) > view_.width / 2 || std::fabs(ry) > view_.height / 2)
    return false;
  sx = static_cast<int>(rx);
  sy = static_cast<int>(ry);
  return true;
}

bool ViewerWindow::draw_pan(int sx, int sy) {
  const View drawn_view = view_;
  const int w = view_.width, h = view_.height;
  // The picture on screen, moved.
  cairo_t* cr = back_renderer_->context();
  cairo_save(cr);
  cairo_identity_matrix(cr);
  cairo_reset_clip(cr);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  cairo_set_source_surface(cr, front_, sx, sy);
  cairo_paint(cr);
  cairo_restore(cr);
  back_renderer_->forget_clip();
  cairo_surface_flush(back_);

  // The strips that come into view, columns and rows from the top left,
  // inclusive: the band of columns at full height, then the band of rows
  // beside it, so that no pixel is drawn twice.
  std::vector<Region> strips;
  const int band_c0 = sx > 0 ? 0 : w + sx, band_c1 = sx > 0 ? sx - 1 : w - 1;
  if (sx != 0) strips.push_back({band_c0, band_c1, 0, h - 1});
  if (sy != 0) {
    const int c0 = sx > 0 ? sx : 0, c1 = sx < 0 ? w + sx - 1 : w - 1;
    if (c0 <= c1) strips.push_back({c0, c1, sy > 0 ? 0 : h + sy, sy > 0 ? sy - 1 : h - 1});
  }

  // The picture's transform: the one it was drawn with, moved by whole pixels.
  const DL::ScreenPoint origin{front_origin_.x + sx, front_origin_.y - sy};
  anchor_ = {view_, front_world_, origin};
  list_.complex_clip_supported = false;
  list_.set_world_bounds(front_world_);
  apply_layers();
  list_.interrupt_callback = &ViewerWindow::poll;
  list_.interrupt_user_data = this;
  const float greeking = drawing_.text ? drawing_.text->greeking_size() : 0.0f;
  begin_timing();
  running_.pan = true;
  bool done = true;
  long long calls = 0;
  for (const Region& strip : strips) {
    if (!done) break;
    done = draw_region(strip, origin, calls);
  }
  if (drawing_.text) drawing_.text->set_greeking_size(greeking);
  list_.rendition.set_hard_clip({0, w - 1, 0, h - 1}, false);
  end_timing(done, calls);
  ++pans_;
  cairo_surface_mark_dirty(back_);
  return end_draw(done, false, drawn_view, front_world_, origin);
}

bool ViewerWindow::draw_region(const Region& strip, DL::ScreenPoint origin, long long& calls) {
  const int w = view_.width, h = view_.height;
  // Each region is an image surface of its own over the back picture's
  // pixels, so that nothing drawn for it reaches the pixels around (moved in,
  // or drawn by a neighbour), placed by a device offset of whole pixels so
  // that device units are those of the whole picture: every point rounds as
  // in a whole draw of this view, and the renderer still writes dots and
  // other small marks straight into the pixels.
  const int sw = strip.c1 - strip.c0 + 1, sh = strip.r1 - strip.r0 + 1;
  const int stride = cairo_image_surface_get_stride(back_);
  cairo_surface_t* part = cairo_image_surface_create_for_data(
      cairo_image_surface_get_data(back_) + static_cast<std::ptrdiff_t>(strip.r0) * stride +
          4 * strip.c0,
      cairo_image_surface_get_format(back_), sw, sh, stride);
  cairo_surface_set_device_offset(part, -strip.c0, -strip.r0);
  cairo_t* pcr = cairo_create(part);
  auto* renderer = new DL::CairoRenderer(pcr, h);
  add_ref(renderer);
  cairo_destroy(pcr);
  renderer->set_complex_clip_supported(true);
  renderer->set_outer_list(&list_);
  auto* counter = new CountingTap(renderer);
  add_ref(counter);
  list_.set_renderer(counter);
  if (drawing_.text) drawing_.text->set_renderer(renderer);
  list_.set_screen_bounds({{origin.x, origin.y}, {origin.x + w - 1, origin.y + h - 1}});
  const int y0 = h - 1 - strip.r1, y1 = h - 1 - strip.r0;  // device rows, y up
  list_.rendition.set_hard_clip({strip.c0, strip.c1, y0, y1}, false);
  apply_clip();
  // The strip's world, and a pixel more for what reaches into it.
  const int lo[2] = {strip.c0, y0}, hi[2] = {strip.c1, y1};
  const int lo1[2] = {strip.c0 - 1, y0 - 1}, hi1[2] = {strip.c1 + 1, y1 + 1};
  DL::WorldBounds inner, outer;
  list_.screen_to_world(lo, inner.min);
  list_.screen_to_world(hi, inner.max);
  list_.screen_to_world(lo1, outer.min);
  list_.screen_to_world(hi1, outer.max);
  const bool done = walk(inner, outer);
  calls += counter->calls;
  if (drawing_.text) drawing_.text->set_renderer(nullptr);
  list_.set_renderer(counter_);
  release(counter);
  renderer->flush_direct();
  release(renderer);
  cairo_surface_finish(part);
  cairo_surface_destroy(part);
  list_.rendition.set_hard_clip({0, w - 1, 0, h - 1}, false);
  return done;
}

bool ViewerWindow::draw_tiles(DL::ScreenPoint origin, long long& calls) {
  const int w = view_.width, h = view_.height;
  // Milliseconds a pixel, foreseen, then measured tile by tile; 0 while
  // unknown. A tile that took next to nothing (an empty margin) tells
  // nothing, and the estimate stays above an eighth of the view's average.
  const double foreseen = foreseen_exact_ms();
  const bool fixed = tile_policy_ == TilePolicy::always;  // tiles of kFirstTile
  double px_ms = foreseen > 0 && !fixed ? foreseen / (double(w) * h) : 0;
  const double least_px_ms = px_ms / 8;
  // Pixels across for a tile of kTileMs `rows` high (a band's height: rows
  // 0 asks for a square tile's side); kFirstTile while nothing is known.
  auto across = [&](int rows) {
    if (!(px_ms > 0)) return kFirstTile;
    const double area = kTileMs / px_ms;
    const double v = rows > 0 ? area / rows : std::sqrt(area);
    return static_cast<int>(std::clamp(v, double(kMinTile), double(rows > 0 ? w : kMaxBand)));
  };
  bool done = true;
  double tile_ms = 0, longest_ms = 0;  // the tiles' time, and their longest stretches, summed
  for (int r0 = 0; r0 < h && done;) {
    int r1 = std::min(h, r0 + across(0)) - 1;
    if (h - 1 - r1 < kMinTile) r1 = h - 1;  // no sliver of a band at the bottom
    for (int c0 = 0; c0 < w && done;) {
      int c1 = std::min(w, c0 + across(r1 - r0 + 1)) - 1;
      if (w - 1 - c1 < kMinTile) c1 = w - 1;
      const double cpu = thread_cpu_ms(), handled_cpu = handling_cpu_ms_;
      const Clock::time_point start = Clock::now();
      const double handled = handling_ms_;
      tile_longest_ms_ = 0;
      done = draw_region({c0, c1, r0, r1}, origin, calls);
      // Input between tiles too: a tile's walk may enter no interior group
      // after its first few. The stretch this poll ends is the tile's last.
      if (done) done = poll(this);
      tile_ms += ms_since(start) - (handling_ms_ - handled);
      longest_ms += tile_longest_ms_;
      const double spent = thread_cpu_ms() - cpu - (handling_cpu_ms_ - handled_cpu);
      ++running_.tiles;
      if (spent >= kTileMs / 8 && !fixed) {
        const double measured = spent / ((c1 - c0 + 1.0) * (r1 - r0 + 1.0));
        px_ms = std::max(least_px_ms, px_ms > 0 ? (px_ms + measured) / 2 : measured);
      }
      c0 = c1 + 1;
    }
    r0 = r1 + 1;
  }
  // Tiles stay wanted while a quarter of their time or more ran without a
  // poll: the tree holds its drawables in few interior groups there.
  if (done && !fixed) tiles_wanted_ = longest_ms > tile_ms / 4;
  return done;
}

// The interrupt callback: handles what input is waiting, then says whether the
// draw may go on.
bool ViewerWindow::poll(void* self) {
  auto* w = static_cast<ViewerWindow*>(self);
  const Clock::time_point now = Clock::now();
  const double stretch = std::chrono::duration<double, std::milli>(now - w->resumed_).count();
  w->running_.longest_stretch_ms = std::max(w->running_.longest_stretch_ms, stretch);
  w->tile_longest_ms_ = std::max(w->tile_longest_ms_, stretch);
  w->running_.long_stretches += stretch > kLongStretchMs;
  ++w->running_.callbacks;
  // The list asks at every twentieth interior group; a group can hold many
  // primitives, so the callback asks to be called again at the very next one
  // (the counter is one short of the period). Input is looked at when
  // kInputCheckMs have passed since it last was, so the cost of the look stays
  // small next to the draw. The hook runs at every callback, so that a script
  // acts at the first poll of a draw however fast the draw is.
  w->list_.interrupt_counter = DL::DisplayList::kInterruptPollPeriod - 1;
  const bool handle = !w->poll_hook || w->poll_hook();
  if (handle &&
      std::chrono::duration<double, std::milli>(now - w->checked_).count() >= kInputCheckMs) {
    w->checked_ = now;
    // In a draw's first frame only input is handled: a repaint of the old
    // picture, moved and scaled, costs a few milliseconds (more than a
    // quick draw leaves to win) and would delay the new one; a longer draw
    // repaints from its later polls. Handling stops at the first input that
    // changes what is drawn, so the draw stops at once and the new one
    // starts before any repaint (see `schedule`).
    const bool input_only =
        std::chrono::duration<double, std::milli>(now - w->started_).count() < kFrameMs;
    if (input_only ? gdk_events_pending() : gtk_events_pending()) {
      const double cpu = thread_cpu_ms();
      for (int i = 0; i < kMaxHandledPerPoll && w->draw_goes_on(); ++i) {
        if (!input_only) {
          if (!gtk_events_pending()) break;
          gtk_main_iteration_do(FALSE);
          continue;
        }
        GdkEvent* e = gdk_event_get();
        if (!e) break;
        gtk_main_do_event(e);
        gdk_event_free(e);
      }
      w->handling_cpu_ms_ += thread_cpu_ms() - cpu;
    }
  }
  w->resumed_ = Clock::now();
  w->handling_ms_ += std::chrono::duration<double, std::milli>(w->resumed_ - now).count();
  return w->draw_goes_on();
}

void ViewerWindow::do_pick(int column, int row) {
  if (column < 0 || row < 0 || column >= view_.width || row >= view_.height) return;
  // The pick works in the view on screen now.
  list_.set_screen_bounds({{0, 0}, {view_.width - 1, view_.height - 1}});
  list_.set_world_bounds(view_.world());
  apply_layers();
  apply_clip();
  auto* tap = new PickTap(column, row, view_.height, kPickRadius);
  add_ref(tap);
  const Pick pick = tap->run(list_);
  release(tap);
  picked_ = pick.drawable;
  picked_path_ = pick.path;
  if (!picked_) {
    picked_text_ = "nothing picked";
  } else {
    // A drawable in a block takes the layer of the block's reference when it
    // has none of its own, and is named with the block.
    const DL::Drawable* owner = picked_path_.empty() ? picked_ : picked_path_.front();
    std::string layer;
    for (const GuiLayer& l : drawing_.layers)
      if (l.info == picked_->layer() || (!picked_->layer() && l.info == owner->layer()))
        layer = l.name;
    const DL::WorldBounds bounds = picked_bounds();
    picked_text_ = "picked " + describe_drawable(*picked_, layer, pick.vertices, &bounds);
    if (!picked_path_.empty()) {
      std::string block;
      for (DL::DrawableDisplayList* d : picked_path_) {
        const std::string name =
            drawing_.list_name ? drawing_.list_name(d->display_list()) : std::string();
        block += (block.empty() ? "" : " > ") + (name.empty() ? std::string("(unnamed)") : name);
      }
      picked_text_ += " in block " + block;
    }
  }
  render_highlight();
  update_status();
  gtk_widget_queue_draw(area_);
}

// Paints the picked primitive, with a halo in the highlight colour, into a
// transparent picture of the view on screen.
void ViewerWindow::render_highlight() {
  if (highlight_) cairo_surface_destroy(highlight_);
  highlight_ = nullptr;
  // A primitive on a layer turned off is not outlined; it is again once shown.
  if (!picked_ || !picked_->shown()) return;
  highlight_view_ = view_;
  const int w = view_.width, h = view_.height;
  cairo_surface_t* shape = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  cairo_t* cr = cairo_create(shape);
  auto* renderer = new DL::CairoRenderer(cr, h);
  add_ref(renderer);
  renderer->set_complex_clip_supported(true);
  renderer->set_outer_list(&list_);
  ZR_Renderer* previous = list_.renderer;
  if (previous) add_ref(previous);
  list_.set_renderer(renderer);
  list_.set_screen_bounds({{0, 0}, {w - 1, h - 1}});
  list_.set_world_bounds(view_.world());
  apply_clip();
  if (picked_path_.empty()) {
    picked_->draw_clipped(list_);
  } else {
    // Drawn in the innermost nested list under the views that the nested
    // lists on the path give each other, as they do when they draw: the
    // region `bounds` of each shown on the screen rectangle of its
    // `mapped_bounds` in the list around it.
    DL::DisplayList* around = &list_;
    std::vector<std::pair<DL::DisplayList*, ZR_Int_Rectangle>> saved;
    bool shown = true;
    for (DL::DrawableDisplayList* d : picked_path_) {
      DL::DisplayList* inner = d->display_list();
      ZR_DCI_Point lo, hi;
      around->world_to_screen_saturated(d->mapped_bounds().min, lo);
      around->world_to_screen_saturated(d->mapped_bounds().max, hi);
      if (lo.x > hi.x || lo.y > hi.y) {
        shown = false;  // mirrored: such a region is not drawn either
        break;
      }
      saved.emplace_back(inner, inner->rendition.hard_clip());
      inner->set_renderer(renderer);
      inner->set_screen_bounds(
          {{lo.x, lo.y}, {std::max(hi.x, lo.x + 1), std::max(hi.y, lo.y + 1)}});
      inner->set_world_bounds(d->bounds());
      inner->rendition.set_hard_clip({0, w - 1, 0, h - 1}, false);
      around = inner;
    }
    if (shown) picked_->draw_clipped(*around);
    for (auto& [inner, clip] : saved) {
      inner->rendition.set_hard_clip(clip, false);
      inner->set_renderer(nullptr);
    }
  }
  list_.set_renderer(previous);
  if (previous) release(previous);
  release(renderer);
  cairo_destroy(cr);
  cairo_surface_flush(shape);

  highlight_ = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, w, h);
  cr = cairo_create(highlight_);
  set_source(cr, kHighlight);
  for (int dy = -2; dy <= 2; ++dy)
    for (int dx = -2; dx <= 2; ++dx)
      if (dx * dx + dy * dy <= 5 && (dx || dy)) cairo_mask_surface(cr, shape, dx, dy);
  cairo_set_source_surface(cr, shape, 0, 0);
  cairo_paint(cr);
  // The bounds, framed three pixels out.
  const DL::WorldBounds b = picked_bounds();
  double c0, r0, c1, r1;
  view_.to_pixel(b.min.x, b.min.y, c0, r0);
  view_.to_pixel(b.max.x, b.max.y, c1, r1);
  const double dash[2] = {4, 3};
  cairo_set_dash(cr, dash, 2, 0);
  cairo_set_line_width(cr, 1);
  set_source(cr, kHighlight);
  cairo_rectangle(cr, std::floor(std::min(c0, c1)) - 3 + 0.5,
                  std::floor(std::min(r0, r1)) - 3 + 0.5, std::fabs(c1 - c0) + 6,
                  std::fabs(r1 - r0) + 6);
  cairo_stroke(cr);
  cairo_destroy(cr);
  cairo_surface_destroy(shape);
  cairo_surface_flush(highlight_);
}

void ViewerWindow::update_status() {
  char line[256];
  std::snprintf(line, sizeof line,
                "primitives %lld | last draw: groups %lld, drawn %lld, %.1f ms, %s",
                drawing_.primitives, last_.groups, last_.drawn, last_.ms,
                completed_ == 0 && !last_.interrupted ? "not yet"
                : last_.interrupted                   ? "interrupted"
                                                      : "complete");
  status_ = line;
  if (last_.pan && !last_.interrupted) status_ += " (pan: strips only)";
  if (last_.tiles > 0 && !last_.interrupted) status_ += " (by tiles)";
  if (front_is_draft_) status_ += " | draft";
  if (!picked_text_.empty()) status_ += " | " + picked_text_;
  if (status_label_) gtk_label_set_text(GTK_LABEL(status_label_), status_.c_str());
}

bool ViewerWindow::dump_picture(const std::string& path, std::string& error) const {
  if (!front_) {
    error = "no finished picture yet";
    return false;
  }
  cairo_surface_t* out = cairo_image_surface_create(CAIRO_FORMAT_RGB24, view_.width, view_.height);
  cairo_t* cr = cairo_create(out);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  const_cast<ViewerWindow*>(this)->paint_picture(cr, front_, front_view_);
  if (highlight_) const_cast<ViewerWindow*>(this)->paint_picture(cr, highlight_, highlight_view_);
  cairo_destroy(cr);
  const cairo_status_t status = cairo_surface_write_to_png(out, path.c_str());
  cairo_surface_destroy(out);
  if (status != CAIRO_STATUS_SUCCESS) {
    error = "cannot write '" + path + "': " + cairo_status_to_string(status);
    return false;
  }
  return true;
}

// ---------------------------------------------------------------------------
// Painting the area
// ---------------------------------------------------------------------------

// Paints `picture`, drawn in view `from`, as it lies in the wanted view.
void ViewerWindow::paint_picture(cairo_t* cr, cairo_surface_t* picture, const View& from) {
  cairo_save(cr);
  double c, r;
  view_.to_pixel(from.cx, from.cy, c, r);  // where the picture's centre is now
  const double s = from.upp / view_.upp;
  cairo_translate(cr, c, r);
  cairo_scale(cr, s, s);
  cairo_translate(cr, -(from.width - 1) / 2.0, -(from.height - 1) / 2.0);
  cairo_set_source_surface(cr, picture, 0, 0);
  if (s != 1) cairo_pattern_set_filter(cairo_get_source(cr), CAIRO_FILTER_FAST);
  cairo_paint(cr);
  cairo_restore(cr);
}

void ViewerWindow::paint_clip(cairo_t* cr) {
  auto path = [&](const std::vector<DL::DoublePoint>& pts, bool close) {
    for (std::size_t i = 0; i < pts.size(); ++i) {
      double c, r;
      view_.to_pixel(pts[i].x, pts[i].y, c, r);
      if (i == 0)
        cairo_move_to(cr, c + 0.5, r + 0.5);
      else
        cairo_line_to(cr, c + 0.5, r + 0.5);
    }
    if (close) cairo_close_path(cr);
  };
  cairo_save(cr);
  cairo_set_line_width(cr, 1);
  if (!clip_world_.empty()) {
    cairo_set_source_rgba(cr, 0, 0.4, 1, 0.8);
    path(clip_world_, true);
    cairo_stroke(cr);
  }
  if (!clip_draft_.empty()) {
    const double dash[2] = {3, 3};
    cairo_set_dash(cr, dash, 2, 0);
    cairo_set_source_rgba(cr, 0, 0.4, 1, 1);
    path(clip_draft_, false);
    cairo_stroke(cr);
  }
  cairo_restore(cr);
}

gboolean ViewerWindow::on_draw(GtkWidget*, cairo_t* cr, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  cairo_set_source_rgb(cr, 1, 1, 1);
  cairo_paint(cr);
  if (w->front_) w->paint_picture(cr, w->front_, w->front_view_);
  if (w->highlight_) w->paint_picture(cr, w->highlight_, w->highlight_view_);
  w->paint_clip(cr);
  return TRUE;
}

// ---------------------------------------------------------------------------
// Input
// ---------------------------------------------------------------------------

void ViewerWindow::on_size(GtkWidget*, GdkRectangle* a, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  if (a->width == w->view_.width && a->height == w->view_.height) return;
  w->view_.width = std::max(1, a->width);
  w->view_.height = std::max(1, a->height);
  w->changed();
}

void ViewerWindow::zoom_about(double column, double row, double factor) {
  double x, y;
  view_.to_world(column, row, x, y);
  const double most = 4294967296.0 / std::max(view_.width, view_.height);
  view_.upp = std::clamp(view_.upp / factor, kMinUnitsPerPixel, most);
  // Keep the world point under (column, row) where it is.
  view_.cx = x - (column - (view_.width - 1) / 2.0) * view_.upp;
  view_.cy = y + (row - (view_.height - 1) / 2.0) * view_.upp;
  changed();
}

gboolean ViewerWindow::on_scroll(GtkWidget*, GdkEventScroll* e, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  double steps = 0;
  switch (e->direction) {
    case GDK_SCROLL_UP:
      steps = 1;
      break;
    case GDK_SCROLL_DOWN:
      steps = -1;
      break;
    case GDK_SCROLL_SMOOTH:
      steps = -e->delta_y;
      break;
    default:
      return FALSE;
  }
  if (steps != 0) w->zoom_about(e->x, e->y, std::pow(kZoomStep, steps));
  return TRUE;
}

gboolean ViewerWindow::on_press(GtkWidget*, GdkEventButton* e, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  if (e->button != 1) {
    if (e->button == 3 && !w->clip_draft_.empty()) {  // right button: drop the clip being drawn
      w->clip_draft_.clear();
      gtk_widget_queue_draw(w->area_);
    }
    return TRUE;
  }
  double x, y;
  w->view_.to_world(e->x, e->y, x, y);
  switch (w->tool_) {
    case Tool::navigate:
      if (e->type != GDK_BUTTON_PRESS) break;
      w->dragging_ = true;
      w->moved_ = false;
      w->press_column_ = e->x;
      w->press_row_ = e->y;
      w->press_view_ = w->view_;
      break;
    case Tool::circle:
      w->circle_center_ = {x, y};
      w->circle_radius_ = 0;
      w->clip_draft_.clear();
      w->dragging_ = true;
      break;
    case Tool::polygon:
      if (e->type == GDK_2BUTTON_PRESS) {
        // A double click closes the polygon (its second press added the point already).
        if (w->clip_draft_.size() >= 3) {
          w->clip_world_ = w->clip_draft_;
          w->clip_draft_.clear();
          w->content_changed();
        }
      } else if (e->type == GDK_BUTTON_PRESS) {
        w->clip_draft_.push_back({x, y});
        gtk_widget_queue_draw(w->area_);
      }
      break;
  }
  return TRUE;
}

gboolean ViewerWindow::on_motion(GtkWidget*, GdkEventMotion* e, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  if (!w->dragging_) return FALSE;
  if (w->tool_ == Tool::navigate) {
    const double dc = e->x - w->press_column_, dr = e->y - w->press_row_;
    if (std::fabs(dc) >= kClickSlop || std::fabs(dr) >= kClickSlop) w->moved_ = true;
    if (!w->moved_) return TRUE;
    w->view_.cx = w->press_view_.cx - dc * w->view_.upp;
    w->view_.cy = w->press_view_.cy + dr * w->view_.upp;
    w->changed();
  } else if (w->tool_ == Tool::circle) {
    double x, y;
    w->view_.to_world(e->x, e->y, x, y);
    w->circle_radius_ = std::hypot(x - w->circle_center_.x, y - w->circle_center_.y);
    // 64 sides: round enough for the circle test of the traversal.
    w->clip_draft_.clear();
    for (int i = 0; i <= 64; ++i) {
      const double a = 2 * M_PI * i / 64;
      w->clip_draft_.push_back({w->circle_center_.x + w->circle_radius_ * std::cos(a),
                                w->circle_center_.y + w->circle_radius_ * std::sin(a)});
    }
    gtk_widget_queue_draw(w->area_);
  }
  return TRUE;
}

gboolean ViewerWindow::on_release(GtkWidget*, GdkEventButton* e, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  if (e->button != 1 || !w->dragging_) return TRUE;
  w->dragging_ = false;
  if (w->tool_ == Tool::navigate && !w->moved_) {
    w->pick_wanted_ = true;
    w->pick_column_ = static_cast<int>(std::lround(e->x));
    w->pick_row_ = static_cast<int>(std::lround(e->y));
    w->schedule();
  } else if (w->tool_ == Tool::circle) {
    if (w->clip_draft_.size() > 3 && w->circle_radius_ > 0) {
      w->clip_draft_.pop_back();  // the closing point repeats the first
      w->clip_world_ = w->clip_draft_;
      w->content_changed();
    }
    w->clip_draft_.clear();
    gtk_widget_queue_draw(w->area_);
  }
  return TRUE;
}

gboolean ViewerWindow::on_key(GtkWidget*, GdkEventKey* e, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  const double mid_c = (w->view_.width - 1) / 2.0, mid_r = (w->view_.height - 1) / 2.0;
  const double pan_x = w->view_.upp * w->view_.width / 10;
  const double pan_y = w->view_.upp * w->view_.height / 10;
  switch (e->keyval) {
    case GDK_KEY_plus:
    case GDK_KEY_equal:
    case GDK_KEY_KP_Add:
      w->zoom_about(mid_c, mid_r, kZoomStep);
      return TRUE;
    case GDK_KEY_minus:
    case GDK_KEY_KP_Subtract:
      w->zoom_about(mid_c, mid_r, 1 / kZoomStep);
      return TRUE;
    case GDK_KEY_Left:
      w->view_.cx -= pan_x;
      break;
    case GDK_KEY_Right:
      w->view_.cx += pan_x;
      break;
    case GDK_KEY_Up:
      w->view_.cy += pan_y;
      break;
    case GDK_KEY_Down:
      w->view_.cy -= pan_y;
      break;
    case GDK_KEY_Home:
      w->home();
      return TRUE;
    case GDK_KEY_Return:
    case GDK_KEY_KP_Enter:
      if (w->tool_ == Tool::polygon && w->clip_draft_.size() >= 3) {
        w->clip_world_ = w->clip_draft_;
        w->clip_draft_.clear();
        w->content_changed();
      }
      return TRUE;
    case GDK_KEY_Escape:
      w->clip_draft_.clear();
      gtk_widget_queue_draw(w->area_);
      return TRUE;
    default:
      return FALSE;
  }
  w->changed();
  return TRUE;
}

gboolean ViewerWindow::on_delete(GtkWidget*, GdkEvent*, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  // A draw may be running below this handler: it stops at its next poll, and
  // the window is destroyed once the main loop has returned.
  w->closing_ = true;
  gtk_main_quit();
  return TRUE;
}

void ViewerWindow::on_layer_toggled(GtkToggleButton* b, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  const std::size_t i = GPOINTER_TO_SIZE(g_object_get_data(G_OBJECT(b), "layer"));
  w->layer_wanted_[i] = gtk_toggle_button_get_active(b) ? 1 : 0;
  w->content_changed();
}

void ViewerWindow::on_tool_toggled(GtkToggleButton* b, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  if (!gtk_toggle_button_get_active(b)) {
    // At least one tool stays chosen.
    bool any = false;
    for (GtkWidget* t : w->tool_buttons_)
      any = any || gtk_toggle_button_get_active(GTK_TOGGLE_BUTTON(t));
    if (!any) gtk_toggle_button_set_active(b, TRUE);
    return;
  }
  for (int i = 0; i < 3; ++i) {
    if (GTK_TOGGLE_BUTTON(w->tool_buttons_[i]) == b) {
      w->tool_ = static_cast<Tool>(i);
    } else {
      g_signal_handlers_block_by_func(w->tool_buttons_[i],
                                      reinterpret_cast<gpointer>(on_tool_toggled), self);
      gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(w->tool_buttons_[i]), FALSE);
      g_signal_handlers_unblock_by_func(w->tool_buttons_[i],
                                        reinterpret_cast<gpointer>(on_tool_toggled), self);
    }
  }
  w->clip_draft_.clear();
  w->dragging_ = false;
  gtk_widget_queue_draw(w->area_);
}

void ViewerWindow::on_clear_clip(GtkButton*, gpointer self) {
  auto* w = static_cast<ViewerWindow*>(self);
  w->clip_draft_.clear();
  if (w->clip_world_.empty()) return;
  w->clip_world_.clear();
  w->content_changed();
}

void ViewerWindow::on_home(GtkButton*, gpointer self) {
  static_cast<ViewerWindow*>(self)->home();
}

void ViewerWindow::home() {
  fit_whole();
  clear_pick();
  changed();
}

void ViewerWindow::clear_pick() {
  picked_ = nullptr;
  picked_path_.clear();
  picked_text_.clear();
  if (highlight_) cairo_surface_destroy(highlight_);
  highlight_ = nullptr;
}

DL::WorldBounds ViewerWindow::picked_bounds() const {
  if (!picked_) return DL::WorldBounds::empty();
  const DL::WorldBounds b = picked_->bounds_of();
  return picked_path_.empty() ? b : NestedPlacement(picked_path_).to_outer(b);
}

void ViewerWindow::redraw() {
  content_changed();
}

bool ViewerWindow::set_layer(const std::string& name, bool on) {
  for (std::size_t i = 0; i < drawing_.layers.size(); ++i)
    if (drawing_.layers[i].name == name) {
      gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(layer_buttons_[i]), on);
      return true;
    }
  return false;
}

void ViewerWindow::set_tool(Tool tool) {
  gtk_toggle_button_set_active(GTK_TOGGLE_BUTTON(tool_buttons_[static_cast<int>(tool)]), TRUE);
}

}  // namespace dlview
