// The viewer's window: a GTK 3 drawing area showing a display list through the
// cairo backend, with a tool bar, a layer panel and a status line.
//
// Redraw. Event handlers never touch the list: they change the wanted view (or
// the layers, the clip, a pick to do) and bump `generation_`, and an idle job
// does the work when the main loop has no input to handle: at a priority
// above GTK's repaints, so a new view's draw starts at once instead of
// behind a repaint of the old picture moved and scaled (a draw that runs long
// repaints from its polls). A redraw paints the
// whole view into an off-screen surface through the `_interrupt` traversals.
// The callback the list polls handles whatever input has arrived meanwhile
// (without blocking: it runs the main loop only while something is pending)
// and tells the traversal to stop as soon as that input changed what is to be
// drawn (it handles nothing more then); the idle job then starts over from
// the new view. A draw that runs to its end becomes the picture on screen;
// until then the last finished picture is shown, moved and scaled to the
// wanted view, so a pan or a zoom shows at once: repainted from the polls
// after the draw's first frame, or its first four when it is an exact draw
// foreseen too quick to be drafted (before that the polls handle input
// only; such a repaint costs some milliseconds, which would only delay the
// new picture). Input that changes nothing (a pointer passing over the
// window) is handled without stopping the draw.
//
// Drafts. When the view changed (a zoom, a pan, a new size) and the exact draw
// would take longer than a frame and a half (kDraftAboveMs, 24 ms; a shorter
// one comes sooner alone than behind a draft): the time of the last
// whole exact draw at the new view's scale and size if there was one since
// the content last changed (what a view costs depends mostly on its scale:
// the layers shown, how much each pixel holds), or else the last exact draw's
// time (an interrupted draw counts with the time it ran) times the ratio of
// the drawing's areas the two views show, so a zoom out from a close-up is
// drafted too, the new view is first drawn by the `DraftRenderer`. The times
// are processor times of the drawing thread, input handled inside the draw
// left out: what the draw costs, not how long other processes held the
// machine meanwhile (a draw the scheduler cut into would otherwise get every
// later view at its scale a draft, which under load delays the exact
// picture by the draft's own time). The draft:
// one-pixel lines, flat fills, no antialiasing, written straight into the
// off-screen picture, through the same interruptible traversal. That picture
// is shown as soon as it is finished, and the exact draw (cairo) follows,
// interruptible too, and replaces it. The status line ends in "| draft" while
// the picture on screen is a draft. A change that keeps the view (a layer, a
// clip, a forced redraw) is drawn exact at once. The first picture has no
// draw to be foreseen from: it is a draft when the drawing holds more than
// kFirstDraftPrimitives (100,000) primitives. Picks always use the exact
// path.
//
// Pans. When the wanted view is the exact picture on screen moved by whole
// pixels (at most half the picture each way) and the last exact draw took
// more than half a frame, the picture is moved and only the strips that come
// into view are drawn, by bounded draws, each on an image surface over the
// new picture's pixels in the picture's own device units (a device offset of
// whole pixels), so every point rounds as in a whole draw and the renderer's
// direct writes still apply. Views at one scale that differ by whole pixels share one
// transform (`anchor_`), so a pan and a whole draw of the same view agree but
// for a few levels of pixman's gradients. A pan's strips come exact at once,
// without a draft. The status line says "(pan: strips only)" after one.
//
// Tiles. A bottom group is drawn without a poll, so a list whose drawables
// arrived in no spatial order (a million scattered LINEs: the root's index
// holds hundreds of thousands of bottom groups, and a view meets them all
// under one interior group) runs a whole overview of a second between two
// polls. When the last whole draw of the drawing ran a quarter of its time
// or more without a poll (over a millisecond) and polled less than once a
// millisecond, the exact draw of a view
// foreseen over kTileAboveMs (100 ms) goes by tiles: bands of the picture cut into tiles, each a
// bounded draw on a surface of its own over its pixels (as a pan's strips are), with a poll between
// tiles. A tile is sized to take kTileMs (2 ms) from the time per pixel foreseen, then measured
// tile by tile; what crosses a tile's edge is drawn in each tile it reaches, cut to it. Tiles stay
// wanted while the tiles' longest stretches between polls add up to half their time or more; a
// drawing whose groups poll often (a preempted stretch looked long) goes back to whole draws after
// one tiled draw. Drafts are never tiled (they are quick).
//
// Choices:
// - The list's `complex_clip_supported` is left false even though the cairo
//   renderer clips to the complex clip itself: the library then prunes groups
//   by the clip (circled or complex traversal) and cairo cuts exactly.
// - The clip is kept in world coordinates, so it follows the drawing under pan
//   and zoom; it is turned into screen contours for each draw, and set again
//   on the rendition before each draw, since a stopped traversal may leave the
//   rendition without it.
// - "Groups" in the status line are the interior groups the last draw entered
//   (its polls of the interrupt counter); "drawn" counts the calls it made to the
//   device, one per primitive for the primitives that draw in one call. The time
//   is that of the traversal alone, without the input handled inside it.
// - A pick runs the selection traversal over the pointer's neighbourhood (3
//   pixels around it); the picked primitive is outlined by painting it again
//   with a halo in the highlight colour, and its bounds are framed.
#pragma once

#include <cairo.h>
#include <gtk/gtk.h>

#include <chrono>
#include <functional>
#include <string>
#include <vector>

#include "tools/gui/gui.h"
#include "tools/gui/renderer_tap.h"

namespace dlview {

using Clock = std::chrono::steady_clock;

// A view: the world point at the centre of the area, world units per pixel,
// and the area's size.
struct View {
  double cx = 0, cy = 0;
  double upp = 1;
  int width = 1, height = 1;

  // The world rectangle shown, in 32 bits (saturated).
  DL::WorldBounds world() const;
  // Pixel (column, row from the top) to world, and back.
  void to_world(double column, double row, double& x, double& y) const;
  void to_pixel(double x, double y, double& column, double& row) const;
  friend bool operator==(const View&, const View&) = default;
};

// What one draw did.
struct DrawStats {
  long long groups = 0;  // interior groups entered (polls)
  long long drawn = 0;   // device calls
  double ms = 0;         // time of the traversal, without the input handled in it
  double cpu_ms = 0;     // the processor time it used, likewise
  bool interrupted = false;
  double longest_stretch_ms = 0;  // longest time the draw ran without handling input
  int long_stretches = 0;         // stretches longer than 5 ms
  int callbacks = 0;
  bool pan = false;  // a pan: the picture moved, only the strips drawn
  int tiles = 0;     // the tiles it was drawn by (0: a whole draw)
};

enum class Tool { navigate, circle, polygon };

// When a draft comes before the exact picture: as described above, before
// every draw of a new view, or never.
enum class DraftPolicy { automatic, always, never };

// When an exact draw goes by tiles: as described above, always, or never.
enum class TilePolicy { automatic, always, never };

class ViewerWindow {
 public:
  ViewerWindow(GuiDrawing& drawing, const GuiOptions& options);
  ~ViewerWindow();
  ViewerWindow(const ViewerWindow&) = delete;
  ViewerWindow& operator=(const ViewerWindow&) = delete;

  // Shows the window and runs the main loop until the window is closed.
  void run();

  // -- For the script and the bench ------------------------------------------
  GtkWidget* window() const { return window_; }
  GtkWidget* area() const { return area_; }
  // Whether work is wanted or running: a redraw, a pick, a clip to apply.
  bool busy() const { return idle_id_ != 0 || in_draw_; }
  const std::string& status_text() const { return status_; }
  const View& view() const { return view_; }
  const DrawStats& last_draw() const { return last_; }
  long long completed_draws() const { return completed_; }
  // Draft pictures that were finished and shown.
  long long draft_frames() const { return drafts_; }
  // Whether the picture on screen is a draft, and whether the draw running is one.
  bool showing_draft() const { return front_is_draft_; }
  bool drawing_draft() const { return in_draw_ && draw_is_draft_; }
  void set_draft_policy(DraftPolicy policy) { draft_policy_ = policy; }
  // Whether every pan by whole pixels draws strips, even after a quick draw.
  void set_pan_strips_always(bool on) { pan_strips_always_ = on; }
  // Whether exact draws go by tiles as described above, always (tiles of
  // kFirstTile pixels a side; for tests), or never.
  void set_tile_policy(TilePolicy policy) { tile_policy_ = policy; }
  long long generation() const { return generation_; }
  long long drawn_generation() const { return drawn_generation_; }
  // The finished picture to a PNG file.
  bool dump_picture(const std::string& path, std::string& error) const;
  // Turns the layer of that name on or off through its check button; false
  // when there is no such layer.
  bool set_layer(const std::string& name, bool on);
  void set_tool(Tool tool);
  // Shows the whole drawing.
  void home();
  // Forces a new draw of the same view.
  void redraw();
  // Asks the window to close, as the window manager would.
  void close();
  // Called in every interrupt callback, before input is looked at; returning
  // false skips the look this time (the bench injects events there, a script
  // closes the window from inside a draw).
  std::function<bool()> poll_hook;
  // Called when a draw (a draft or the exact one; see `showing_draft`) has run
  // to its end and its picture is on screen.
  std::function<void()> on_finished;

 private:
  // Building
  void build_widgets();
  void fit_whole();

  // Requests from the handlers
  void changed();  // something that changes the picture
  void schedule();
  static gboolean on_idle(gpointer self);
  bool work();

  // Drawing
  void ensure_back();
  bool draw_once(bool draft);
  bool wants_draft() const;
  // The exact draw of the wanted view foreseen (see Drafts above), in
  // milliseconds of processor time; 0 when nothing foresees it.
  double foreseen_exact_ms() const;
  // Whether the exact draw of the wanted view goes by tiles (see Tiles).
  bool wants_tiles() const;
  static bool poll(void* self);
  // Whether nothing since the draw began asks it to stop (a change of what
  // is drawn, a pick, closing).
  bool draw_goes_on() const {
    return !closing_ && !pick_wanted_ && generation_ == draw_generation_;
  }
  // Turns each layer on as the user wants it and the view's scale allows.
  void apply_layers();
  void apply_clip();
  void do_pick(int column, int row);
  void render_highlight();
  // The area of the drawing's extent that `v` shows, and the whole extent's.
  double view_area(const View& v) const;
  double whole_area() const;
  // A change of what is drawn, not of the view: no pan may reuse the picture.
  void content_changed();
  // Whether the wanted view is the picture on screen moved by whole pixels
  // (right by `sx`, down by `sy`), at most half the picture each way.
  bool pan_shift(int& sx, int& sy) const;
  // Draws a pan: the picture on screen moved, and bounded draws of the strips
  // that come into view, each on a surface of its own over them. Exact: the
  // strips are drawn with the moved transform. True when it ran to its end.
  bool draw_pan(int sx, int sy);
  // Pixels of the picture, columns c0 to c1 and rows r0 to r1 from the top
  // left, inclusive.
  struct Region {
    int c0, c1, r0, r1;
  };
  // Draws `region` of the back picture by a bounded draw on a surface of its
  // own over its pixels, with the list's transform placed at `origin` (see
  // `place_list`); adds its device calls to `calls`. True when it ran to its
  // end.
  bool draw_region(const Region& region, DL::ScreenPoint origin, long long& calls);
  // Draws the whole back picture tile by tile (see Tiles above), polling
  // between tiles; true when it ran to its end.
  bool draw_tiles(DL::ScreenPoint origin, long long& calls);
  // Sets the list's transform for the wanted view (see `anchor_`) and gives
  // the world under the picture (`inner`) and a pixel beyond it (`outer`);
  // returns the screen rectangle's corner.
  DL::ScreenPoint place_list(DL::WorldBounds& inner, DL::WorldBounds& outer);
  // Ends a draw: when it ran to its end (`done`), its picture, drawn in
  // `drawn_view` with the transform (`world`, `origin`), becomes the one on
  // screen; then the status, the hook and a repaint. Returns `done`.
  bool end_draw(bool done, bool draft, const View& drawn_view, const DL::WorldBounds& world,
                DL::ScreenPoint origin);
  // Starts the statistics and the clocks of a draw (`running_`).
  void begin_timing();
  // The list's interruptible walk of (`inner`, `outer`), chosen by its clip;
  // true when it ran to its end.
  bool walk(const DL::WorldBounds& inner, const DL::WorldBounds& outer);
  // Ends them: time, `calls` device calls, groups entered, whether `done`;
  // the draw's figures become `last_`.
  void end_timing(bool done, long long calls);
  // Forgets the pick, its status text and its outline.
  void clear_pick();
  // The picked drawable's bounds in the drawing's world (through the blocks).
  DL::WorldBounds picked_bounds() const;
  void update_status();

  // Handlers
  static gboolean on_draw(GtkWidget*, cairo_t* cr, gpointer self);
  static void on_size(GtkWidget*, GdkRectangle* a, gpointer self);
  static gboolean on_press(GtkWidget*, GdkEventButton* e, gpointer self);
  static gboolean on_motion(GtkWidget*, GdkEventMotion* e, gpointer self);
  static gboolean on_release(GtkWidget*, GdkEventButton* e, gpointer self);
  static gboolean on_scroll(GtkWidget*, GdkEventScroll* e, gpointer self);
  static gboolean on_key(GtkWidget*, GdkEventKey* e, gpointer self);
  static gboolean on_delete(GtkWidget*, GdkEvent*, gpointer self);
  static void on_layer_toggled(GtkToggleButton* b, gpointer self);
  static void on_tool_toggled(GtkToggleButton* b, gpointer self);
  static void on_clear_clip(GtkButton*, gpointer self);
  static void on_home(GtkButton*, gpointer self);
  void zoom_about(double column, double row, double factor);
  void paint_picture(cairo_t* cr, cairo_surface_t* picture, const View& from);
  void paint_clip(cairo_t* cr);

  GuiDrawing& drawing_;
  DL::DisplayList& list_;
  GuiOptions options_;

  GtkWidget* window_ = nullptr;
  GtkWidget* area_ = nullptr;
  GtkWidget* status_label_ = nullptr;
  GtkWidget* tool_buttons_[3] = {};
  std::vector<GtkWidget*> layer_buttons_;

  // The wanted state, written by the handlers.
  View view_;
  long long generation_ = 1;  // bumped by every change of the picture
  bool closing_ = false;
  bool pick_wanted_ = false;
  int pick_column_ = 0, pick_row_ = 0;
  std::vector<unsigned char> layer_wanted_;  // per layer: 1 shown
  Tool tool_ = Tool::navigate;
  std::vector<DL::DoublePoint> clip_world_;  // closed contour in world units; empty: none
  std::vector<DL::DoublePoint> clip_draft_;  // the clip being drawn, world units
  DL::DoublePoint circle_center_{0, 0};
  double circle_radius_ = 0;  // world units

  // Dragging
  bool dragging_ = false;
  bool moved_ = false;
  double press_column_ = 0, press_row_ = 0;
  View press_view_;

  // The redraw
  guint idle_id_ = 0;
  bool in_draw_ = false;            // a traversal is running
  long long draw_generation_ = 0;   // generation of the draw running
  long long drawn_generation_ = 0;  // generation of the picture on screen
  bool draw_is_draft_ = false;      // the draw running is a draft
  bool front_is_draft_ = false;     // the picture on screen is a draft
  DraftPolicy draft_policy_ = DraftPolicy::automatic;
  double exact_ms_ = 0;    // the last exact draw's time (at least, when interrupted)
  double exact_area_ = 0;  // the drawing's area it showed (`view_area`)
  // The time of the last whole exact draw at each of the last few scales
  // (units per pixel) at the area's size, most recent first; cleared when
  // the content or the size changes.
  struct ScaleTime {
    double upp = 0;
    int width = 0, height = 0;
    double ms = 0;
  };
  std::vector<ScaleTime> scale_times_;
  bool tiles_wanted_ = false;  // exact draws go by tiles (see Tiles above)
  TilePolicy tile_policy_ = TilePolicy::automatic;
  double tile_longest_ms_ = 0;  // the longest stretch of the tile being drawn
  long long drafts_ = 0;
  cairo_surface_t* back_ = nullptr;   // drawn into
  cairo_surface_t* front_ = nullptr;  // the last finished picture
  View front_view_;
  // The transform the picture on screen was drawn with: the list's world
  // bounds and where its screen rectangle's corner lay ((0, 0) but after
  // pans), so that pans move it by whole pixels exactly.
  DL::WorldBounds front_world_ = DL::WorldBounds::empty();
  DL::ScreenPoint front_origin_{0, 0};
  // Changes of what is drawn other than the view (layers, clips, a forced
  // redraw): a pan reuses the picture on screen only when none came since.
  long long content_ = 0;
  long long content_drawn_ = 0;  // `content_` when the current draw started
  int counter_before_ = 0;       // the interrupt counter when it started
  Clock::time_point started_;    // when it started
  long long front_content_ = -1;
  long long pans_ = 0;  // draws made by moving the picture and drawing strips
  bool pan_strips_always_ = false;
  // The transform of draws at this scale: views that differ from `view` by
  // whole pixels are drawn with `world` on a screen rectangle moved by as
  // many pixels from `origin`, so a pan and a whole draw of one view give the
  // same picture (a transform of its own for each view would round its
  // world rectangle differently, a pixel off here and there).
  struct Anchor {
    View view;
    DL::WorldBounds world = DL::WorldBounds::empty();
    DL::ScreenPoint origin{0, 0};
  } anchor_;
  DL::CairoRenderer* back_renderer_ = nullptr;  // one reference held
  CountingTap* counter_ = nullptr;              // one reference held
  // The renderer and tap on `front_`: they are `back_renderer_` and `counter_`
  // again when the back and front pictures swap, so a draw makes no surface.
  DL::CairoRenderer* front_renderer_ = nullptr;  // one reference held, or null
  CountingTap* front_counter_ = nullptr;         // one reference held, or null
  DrawStats last_;
  DrawStats running_;
  long long completed_ = 0;
  Clock::time_point resumed_;   // when the draw last got control back
  Clock::time_point checked_;   // when input was last looked at
  double handling_ms_ = 0;      // time spent handling input inside the draw
  double handling_cpu_ms_ = 0;  // and the processor time that took
  double started_cpu_ms_ = 0;   // the thread's processor time when the draw started
  // For how long since its start the draw's polls handle input only, no
  // repaint: a frame, or four for an exact draw foreseen quicker than a
  // draft would be worth.
  double input_only_ms_ = 0;

  // The pick
  DL::Drawable* picked_ = nullptr;
  // The nested lists `picked_` lies in, outermost first (empty: in the list).
  std::vector<DL::DrawableDisplayList*> picked_path_;
  std::string picked_text_;
  cairo_surface_t* highlight_ = nullptr;  // transparent, drawn in `highlight_view_`
  View highlight_view_;

  std::string status_;
};

}  // namespace dlview
