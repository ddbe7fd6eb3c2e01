// A Qt widget that shows a display list, with the viewer window's behaviour.
//
// `DisplayListWidget` shows a `DisplayList` the host owns (not taken over)
// through a `QtRenderer`:
//
// - Wheel: zooms by 1.25 a notch about the pointer (the world point under it
//   stays under it). Left drag: pans. Left click (moved under 4 pixels): picks
//   the topmost drawable within 3 pixels (`QtPicker`), outlines it with a halo
//   in the highlight colour and frames its bounds; `on_picked` is told.
//   Clicking empty space clears the pick.
// - Redraw. Handlers never touch the list: they change the wanted view and
//   bump a generation, and a zero-time timer does the work when the event loop
//   is idle. A redraw paints the whole view into an off-screen image through
//   the `_interrupt` traversals; the callback the list polls handles pending
//   input every 10 ms and stops the draw as soon as that input changed what
//   is to be drawn (the timer then starts over). A draw that runs to its end
//   becomes the picture on screen; until then the last finished picture is
//   shown moved and scaled to the wanted view, so a pan or a zoom shows at once.
// - Drafts. When the view changed and the last exact draw took longer than a
//   frame (16 ms; an interrupted draw counts with the time it ran), the new
//   view is first drawn in the renderer's draft mode (no antialiasing,
//   one-pixel lines, flat shading), shown, and the exact draw follows.
// - The list's complex clip, if the host set one on `list->rendition`, is kept
//   and honoured; the list prunes groups by it (`complex_clip_supported` is
//   left false) and the renderer cuts exactly.
// - Text: a text engine that draws through a glyph sink (the FreeType engine)
//   is connected by `set_glyph_sink_hook`, called with the widget's renderer
//   before each draw and with null after it.
//
// World y grows upward on screen. The widget sets the list's renderer, view,
// interrupt callback and `saturate_device_points` for a draw or a pick and
// takes its renderer and callback off again after it; between draws the list
// is the host's to change (call `redraw` afterwards).
#pragma once

#include <QImage>
#include <QWidget>
#include <functional>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL {

class QtRenderer;

// What the widget shows: the world point at the centre, world units per pixel,
// and the size in pixels. Pixel (column, row) counts from the top left, its
// centre on whole numbers.
struct WidgetView {
  double cx = 0;   // world x at the centre
  double cy = 0;   // world y at the centre
  double upp = 1;  // world units a pixel
  int width = 1;   // pixels across
  int height = 1;  // pixels down

  // The world rectangle shown, in 32 bits (saturated).
  WorldBounds world() const;
  // The world point at pixel (column, row).
  void to_world(double column, double row, double& x, double& y) const;
  // The pixel at the world point (x, y).
  void to_pixel(double x, double y, double& column, double& row) const;
  // Equal when every field is.
  friend bool operator==(const WidgetView&, const WidgetView&) = default;
};

// The widget described above.
class DisplayListWidget : public QWidget {
 public:
  // An empty widget; `set_list` gives it something to show.
  explicit DisplayListWidget(QWidget* parent = nullptr);
  ~DisplayListWidget() override;
  DisplayListWidget(const DisplayListWidget&) = delete;
  DisplayListWidget& operator=(const DisplayListWidget&) = delete;

  // Shows `list` (not owned; null shows nothing) whole.
  void set_list(DisplayList* list);
  DisplayList* list() const { return list_; }  // the list shown, or null
  // Shows `bounds` whole, centred.
  void fit(const WorldBounds& bounds);
  // Centres the world point (cx, cy) at `units_per_pixel`; refuses values that
  // are not finite or a scale that is not above 0.
  void set_view(double cx, double cy, double units_per_pixel);
  const WidgetView& view() const { return view_; }  // the wanted view
  // Draws again (after the host changed the list).
  void redraw();
  // Draws the present view exact now, without yielding; true when drawn.
  bool draw_now();
  // Picks at the pixel as a click does.
  void pick_at(int column, int row);
  const Drawable* picked() const { return picked_; }  // the last pick's drawable, or null
  // The last finished picture and whether it is a draft.
  const QImage& picture() const { return front_; }
  bool picture_is_draft() const { return front_is_draft_; }  // see picture

  // See the file comment.
  void set_glyph_sink_hook(std::function<void(ZR_Glyph_Sink*)> hook) {
    sink_hook_ = std::move(hook);
  }
  // Called after each pick, with the drawable or null. Both callbacks may
  // reset or replace themselves.
  std::function<void(const Drawable*)> on_picked;
  // Called when an exact picture of the wanted view is on screen.
  std::function<void()> on_drawn;

  // What the last draw did.
  struct Stats {
    double ms = 0;             // the traversal's time, without the input handled in it
    bool interrupted = false;  // stopped by input before its end
    bool draft = false;        // drawn in draft mode
    long long exact = 0;       // exact pictures finished so far
    long long drafts = 0;      // drafts finished so far
    long long stopped = 0;     // draws stopped by input so far
  };
  const Stats& stats() const { return stats_; }  // see Stats

  static constexpr double kZoomStep = 1.25;        // zoom factor of a wheel notch
  static constexpr double kFrameMs = 16.0;         // an exact draw slower than this brings drafts
  static constexpr double kInputCheckMs = 10.0;    // input is handled this often during a draw
  static constexpr int kPickRadius = 3;            // pixels around a click that pick
  static constexpr QRgb kHighlight = 0xffff8000u;  // colour of the pick's outline

 protected:
  void paintEvent(QPaintEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  void wheelEvent(QWheelEvent* event) override;
  void mousePressEvent(QMouseEvent* event) override;
  void mouseMoveEvent(QMouseEvent* event) override;
  void mouseReleaseEvent(QMouseEvent* event) override;

 private:
  void changed();  // the wanted picture changed: bump and schedule
  void schedule();
  void work();
  bool draw_once(bool draft, bool yield);
  static bool poll(void* self);
  static bool keep_going(void*) { return true; }
  void do_pick(int column, int row);
  void render_highlight();
  void prepare_list();
  void release_list();

  DisplayList* list_ = nullptr;
  QtRenderer* renderer_ = nullptr;  // counted
  WidgetView view_;
  QImage front_;  // the last finished picture, of front_view_
  WidgetView front_view_;
  bool front_is_draft_ = false;
  QImage highlight_;  // the pick's outline, of highlight_view_
  WidgetView highlight_view_;
  Drawable* picked_ = nullptr;  // in list_
  std::function<void(ZR_Glyph_Sink*)> sink_hook_;
  Stats stats_;
  double exact_ms_ = 0;  // the last exact draw's time
  unsigned long generation_ = 1, drawn_generation_ = 0, draw_generation_ = 0;
  bool scheduled_ = false;
  bool in_draw_ = false;
  bool pick_wanted_ = false;
  int pick_column_ = 0, pick_row_ = 0;
  bool pressed_ = false, dragging_ = false;
  QPointF press_pos_, last_pos_;
  double handling_ms_ = 0;
  long long checked_ns_ = 0;  // when input was last looked at
};

}  // namespace DL
