// The Qt backend: its pictures match the cairo backend's on the same calls and
// the same display lists, its picker picks what the cairo picker picks, and
// the widget zooms, pans and picks. Runs offscreen (QT_QPA_PLATFORM=offscreen).
//
// Tolerance. Both renderers antialias, but Qt's coverage of an edge differs
// from cairo's by a few levels and Qt clips to paths without antialiasing, so
// pictures differ along edges only. For each pixel the difference is the
// largest of its three channel differences (0 to 255). A picture matches when
// the mean difference is at most kMeanTolerance and at most kFarShare of the
// pixels differ by more than kFar (a pixel on an edge that one renderer
// covered and the other not); a missing or misplaced shape fails both.
#include "backends/qt/qt_renderer.h"

#include <gtest/gtest.h>

#include <QApplication>
#include <QImage>
#include <QMouseEvent>
#include <QPainter>
#include <QTimer>
#include <QWheelEvent>
#include <cmath>
#include <functional>
#include <memory>
#include <string>

#include "backends/cairo/cairo_picker.h"
#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/cairo_text.h"
#include "backends/qt/display_list_widget.h"
#include "backends/qt/qt_picker.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "drawables/image.h"
#include "drawables/polything.h"
#include "drawables/polytriangle.h"
#include "ellipse/ellipse.h"
#include "nested/drawable_display_list.h"
#include "tests/support/test_files.h"
#include "tests/support/tree_check.h"
#ifdef DL_HAVE_FREETYPE
#include "backends/freetype/freetype_engine.h"
#endif

// Qt and fontconfig keep state for the life of the process (the platform
// plugin, the font configuration); under the leak checker that shows as
// leaks of theirs, not of ours.
extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so\nleak:libQt6Core.so\nleak:libQt6Gui.so\nleak:libQt6Widgets.so\n"
         "leak:libqoffscreen.so\n";
}

namespace DL {
namespace {

constexpr int kW = 160, kH = 120;
constexpr double kMeanTolerance = 4.0;
constexpr double kFarShare = 0.01;
constexpr int kFar = 128;

using Scene = std::function<void(ZR_Renderer&, ZR_Rendition&)>;

struct Difference {
  double mean = 0;       // mean of the per-pixel difference
  double far_share = 0;  // share of pixels differing by more than kFar
};

// Draws `scene` through both renderers on white pictures of kW x kH and
// measures how far apart they are; writes both pictures under the build
// folder when they do not match.
Difference compare_scenes(const std::string& name, const Scene& cairo_scene, const Scene& qt_scene,
                          QtOrientation qo = QtOrientation::y_up) {
  const DeviceOrientation co =
      qo == QtOrientation::y_up ? DeviceOrientation::y_up : DeviceOrientation::y_down;
  std::string error;
  auto canvas = CairoCanvas::create(CairoCanvas::Format::png, "", kW, kH, &error, co);
  EXPECT_TRUE(canvas) << error;
  if (!canvas) return {255, 1};
  ZR_Rendition cairo_rendition = ZR_Rendition::create();
  cairo_scene(*canvas->renderer(), cairo_rendition);
  canvas->renderer()->flush_direct();

  QImage image(kW, kH, QImage::Format_RGB32);
  image.fill(Qt::white);
  {
    QPainter painter(&image);
    auto* qt = new QtRenderer(&painter, kH, qo);
    add_ref(qt);
    ZR_Rendition qt_rendition = ZR_Rendition::create();
    qt_scene(*qt, qt_rendition);
    release(qt);
  }
  Difference d;
  long far = 0;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const ZR_RGB32 a = canvas->pixel(x, y), b = image.pixel(x, y) & 0xffffff;
      int most = 0;
      for (int shift = 0; shift <= 16; shift += 8)
        most = std::max(most, std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)));
      d.mean += most;
      far += most > kFar;
    }
  d.mean /= double(kW) * kH;
  d.far_share = double(far) / (double(kW) * kH);
  if (d.mean > kMeanTolerance || d.far_share > kFarShare) {
    canvas->write_png(test::test_file(name + "-cairo.png"), &error);
    image.save(QString::fromStdString(test::test_file(name + "-qt.png")));
  }
  return d;
}

Difference compare(const std::string& name, const Scene& scene,
                   QtOrientation qo = QtOrientation::y_up) {
  return compare_scenes(name, scene, scene, qo);
}

void expect_match(const std::string& name, const Scene& scene,
                  QtOrientation qo = QtOrientation::y_up) {
  const Difference d = compare(name, scene, qo);
  EXPECT_LE(d.mean, kMeanTolerance) << name;
  EXPECT_LE(d.far_share, kFarShare) << name;
}

// Every entry once, in several colours, weights and shapes.
void every_entry(ZR_Renderer& r, ZR_Rendition& rd) {
  rd.set_color(0xc00000, false);
  const ZR_DCI_Point dots[] = {{2, 2, 0}, {157, 117, 0}, {40, 60, 0}};
  for (const ZR_DCI_Point& p : dots) r.dot_unclipped(&rd, &p, nullptr);
  const ZR_RGB32 green = 0x00a000;
  r.dot_clipped(&rd, &dots[2], &green);
  const ZR_DCI_Point line[] = {{5, 10, 0}, {70, 30, 0}, {20, 50, 0}};
  r.polyline_unclipped(&rd, 3, line);
  rd.set_line_weight(5, false);
  const ZR_DCI_Point thick[] = {{80, 10, 0}, {150, 40, 0}};
  r.polyline_clipped(&rd, 2, thick);
  rd.set_line_weight(1, false);
  const ZR_DCI_Point marks[] = {{100, 100, 0}, {120, 100, 0}};
  r.polymarker_unclipped(&rd, 2, marks);
  const ZR_RGB32 blue = 0x2040ff;
  const ZR_DCI_Point star[] = {{30, 70, 0}, {45, 110, 0}, {60, 70, 0}, {25, 95, 0}, {65, 95, 0}};
  r.polygon_clipped(&rd, 5, star, &blue);  // even-odd: the middle stays white
  rd.set_color(0x808000, false);
  const ZR_DCI_Point strip[] = {{70, 50, 0}, {90, 50, 0}, {75, 70, 0}, {95, 72, 0}};
  r.triangles_unclipped(&rd, 4, strip);
  const ZR_DCI_Point shaded[] = {{100, 50, 0}, {150, 50, 0}, {100, 90, 0}, {150, 90, 0}};
  const ZR_RGB32 colors[] = {0xff0000, 0x00ff00, 0x0000ff, 0xffff00};
  r.gouraud_triangles_clipped(&rd, 4, shaded, colors);
  const ZR_Vertex_Parameters words[4] = {};
  const ZR_DCI_Point textured[] = {{5, 100, 0}, {25, 100, 0}, {5, 118, 0}};
  r.textured_triangles_unclipped(&rd, 3, textured, colors, words, nullptr, nullptr);
  const ZR_DCI_Point centre{130, 20, 0}, radii{20, 10, 0};
  r.elliptical_arc_unclipped(&rd, &centre, &radii, 0.0, 4.0, 0.3, nullptr);
  const ZR_DCI_Point pie_centre{60, 20, 0}, pie_radii{12, 12, 0};
  const ZR_RGB32 purple = 0x800080;
  r.elliptical_pie_clipped(&rd, &pie_centre, &pie_radii, 5.5, 1.0, 0.0, &purple);  // through 0
  ZR_Image picture(new ZR_Image_Data);
  picture->width = 6;
  picture->height = 4;
  for (int i = 0; i < 24; ++i) picture->pixels.push_back(i % 2 ? 0x000000 : 0x00ffff);
  const ZR_DCI_Point corner{140, 110, 0};
  r.image_clipped(&rd, &corner, &picture);
  const ZR_DCI_Point ramp[] = {{10, 115, 0}, {90, 115, 0}};
  const ZR_RGB32 ramp_colors[] = {0xff0000, 0x0000ff};
  rd.set_line_weight(3, false);
  r.gouraud_polyline_unclipped(&rd, 2, ramp, ramp_colors);
}

TEST(QtRenderer, MatchesCairoOnEveryEntryInBothOrientations) {
  expect_match("every-entry-up", every_entry);
  expect_match("every-entry-down", every_entry, QtOrientation::y_down);
  // Collapsed ellipses still show, as a segment and a point.
  expect_match("collapsed", [](ZR_Renderer& r, ZR_Rendition& rd) {
    const ZR_DCI_Point c{80, 60, 0}, flat{30, 0, 0}, none{0, 0, 0};
    r.elliptical_arc_unclipped(&rd, &c, &flat, 0.0, 6.3, 0.5, nullptr);
    r.elliptical_pie_unclipped(&rd, &c, &none, 0.0, 6.3, 0.0, nullptr);
  });
}

TEST(QtRenderer, MatchesCairoUnderHardAndComplexClips) {
  auto clipped = [](ZR_Renderer& r, ZR_Rendition& rd) {
    // A ring (a square with a square hole, even-odd) and a hard clip across it.
    ZR_Contour_Set ring =
        ZR_Contour_Set::make({{{20, 10, 0}, {140, 10, 0}, {140, 110, 0}, {20, 110, 0}},
                              {{50, 40, 0}, {110, 40, 0}, {110, 80, 0}, {50, 80, 0}}});
    rd.set_complex_clip(&ring, false);
    rd.set_hard_clip({0, 119, 0, 99}, false);
    rd.set_color(0x0060c0, false);
    const ZR_DCI_Point big[] = {{0, 0, 0}, {159, 0, 0}, {159, 119, 0}, {0, 119, 0}};
    r.polygon_clipped(&rd, 4, big, nullptr);  // the ring left of x 120, below y 100
    rd.set_color(0xe00000, false);
    rd.set_line_weight(3, false);
    const ZR_DCI_Point diagonal[] = {{0, 119, 0}, {159, 0, 0}};
    r.polyline_unclipped(&rd, 2, diagonal);  // the ring only: unclipped ignores the hard clip
    rd.set_complex_clip(nullptr, false);
    const ZR_DCI_Point far_dot{130, 110, 0};
    r.dot_clipped(&rd, &far_dot, nullptr);  // outside the hard clip: nothing
  };
  expect_match("clips", clipped);
}

TEST(QtRenderer, CoordinatesAtTheIntLimitsDrawWhatShows) {
  // Device values reach the int limits when a view is zoomed far in; the
  // visible part must still show, and nothing may go wrong on the way.
  expect_match("far", [](ZR_Renderer& r, ZR_Rendition& rd) {
    rd.set_color(0x000000, false);
    rd.set_line_weight(2, false);
    const ZR_DCI_Point through[] = {{INT32_MIN, 60, 0}, {INT32_MAX, 61, 0}};
    r.polyline_clipped(&rd, 2, through);
    const ZR_DCI_Point huge[] = {{INT32_MIN, INT32_MIN, 0}, {INT32_MAX, INT32_MIN, 0}, {80, 40, 0}};
    r.triangles_clipped(&rd, 3, huge);
    // A circle of radius 2^20 whose lowest point is the bottom row.
    const ZR_DCI_Point centre{80, 1 << 20, 0}, radii{1 << 20, 1 << 20, 0};
    r.elliptical_arc_clipped(&rd, &centre, &radii, 0.0, 6.3, 0.0, nullptr);
    const ZR_DCI_Point off{INT32_MAX, INT32_MIN, 0};
    r.dot_clipped(&rd, &off, nullptr);
    ZR_Image picture(new ZR_Image_Data);
    picture->width = picture->height = 1;
    picture->pixels = {0xff0000};
    r.image_unclipped(&rd, &off, &picture);
  });
}

// Regression: entries called while the renderer had no painter (the widget's
// renderer between draws) dereferenced null. They must draw nothing.
TEST(QtRenderer, DrawsNothingWithoutAnActivePainter) {
  auto* r = new QtRenderer(nullptr, kH);
  add_ref(r);
  ZR_Rendition rendition = ZR_Rendition::create();
  every_entry(*r, rendition);
  QPainter idle;  // not begun on a device
  r->set_painter(&idle, kH);
  every_entry(*r, rendition);
  ZR_Contour_Set glyph = ZR_Contour_Set::make({{{0, 0, 0}, {10, 0, 0}, {10, 10, 0}}});
  r->paint_contours(&rendition, {5, 5, 0}, *glyph, nullptr, true);
  release(r);
}

#ifdef DL_HAVE_FREETYPE
TEST(QtRenderer, FillsTheFreeTypeEnginesGlyphsAsCairoDoes) {
  auto* engine = new FreeTypeTextEngine;
  add_ref(engine);
  ASSERT_TRUE(engine->ok());
  // The same string at the same place: through the text painter on cairo, and
  // straight into the Qt renderer, which is the engine's glyph sink.
  auto style = [](ZR_Rendition& rd) {
    rd.set_color(0x101010, false);
    rd.set_text_size(28.0f, false);
    rd.set_text_rotation(0.2f, false);
  };
  static const unsigned short hello[] = {'H', 'e', 'l', 'l', 'o', ' ', 'Q', 't'};
  static const ZR_Point at{12.0f, 40.0f, 0.0f};
  auto on_cairo = [&](ZR_Renderer& r, ZR_Rendition& rd) {
    style(rd);
    auto* painter = new CairoTextPainter(engine);
    add_ref(painter);
    painter->set_greeking_size(0.0f);
    painter->set_renderer(static_cast<CairoRenderer*>(&r));
    engine->set_sink(painter);
    painter->draw_unicode_text(&rd, &at, hello, 8);
    engine->set_sink(nullptr);
    release(painter);
  };
  auto on_qt = [&](ZR_Renderer& r, ZR_Rendition& rd) {
    style(rd);
    engine->set_sink(static_cast<QtRenderer*>(&r));
    engine->draw_unicode_text(&rd, &at, hello, 8);
    engine->set_sink(nullptr);
  };
  const Difference d = compare_scenes("text", on_cairo, on_qt);
  EXPECT_LE(d.mean, kMeanTolerance);
  EXPECT_LE(d.far_share, kFarShare);
  release(engine);
}
#endif

// ---------------------------------------------------------------------------
// Through a display list: the picture, the picker and the widget
// ---------------------------------------------------------------------------

// A small drawing: a polyline, a filled polygon over it, a pie, a Gouraud
// strip and a row of dots, in a world of 1000 x 750.
void fill(DisplayList& list) {
  const WorldPoint line[] = {{50, 50}, {950, 700}, {950, 50}};
  const WorldPoint square[] = {{300, 300}, {600, 300}, {600, 500}, {300, 500}};
  const WorldPoint strip[] = {{700, 500}, {900, 500}, {700, 700}, {900, 700}};
  const ZR_RGB32 colors[] = {0xff0000, 0x00ff00, 0x0000ff, 0xffffff};
  auto add = [&list](Drawable* d) { list.add(d, d->bounds_of()); };
  add(new Polyline(0x000000, 3, line));
  add(new Polygon(0x3060c0, 4, square));
  add(new EllipticalPie(0xc06000, {200, 600}, {100, 80}, 0.0f, 0.0f, 4.0f, &list));
  add(new GouraudPolytriangle(0x000000, 4, strip, colors));
  for (int i = 0; i < 40; ++i) add(new Dot(0x008000, {25 * i, 20}));
}

// Draws `list` whole on a kW x kH view through `renderer`.
void draw_view(DisplayList& list, ZR_Renderer* renderer) {
  list.set_renderer(renderer);
  list.set_screen_bounds({{0, 0}, {kW - 1, kH - 1}});
  list.set_world_bounds({{0, 0}, {999, 749}});
  list.draw_view();
  list.set_renderer(nullptr);
}

TEST(QtRenderer, ListsLookTheSameThroughQtAndCairoAndPickTheSame) {
  DisplayList list;
  fill(list);
  EXPECT_TRUE(test::tree_is_valid(list));
  expect_match("list", [&list](ZR_Renderer& r, ZR_Rendition&) { draw_view(list, &r); });

  // The pickers agree on a grid of points over the whole view.
  std::string error;
  auto canvas = CairoCanvas::create(CairoCanvas::Format::png, "", kW, kH, &error);
  ASSERT_TRUE(canvas);
  list.set_renderer(canvas->renderer());
  list.set_screen_bounds({{0, 0}, {kW - 1, kH - 1}});
  list.set_world_bounds({{0, 0}, {999, 749}});
  auto* cairo_picker = new CairoPicker;
  auto* qt_picker = new QtPicker;
  add_ref(cairo_picker);
  add_ref(qt_picker);
  int hits = 0, agree = 0, points = 0;
  for (int y = 2; y < kH; y += 6)
    for (int x = 2; x < kW; x += 6) {
      const Drawable* a = cairo_picker->pick(list, x, y, 1);
      const Drawable* b = qt_picker->pick(list, x, y, 1);
      ++points;
      agree += a == b;
      hits += b != nullptr;
    }
  // Points on an edge may fall either way; elsewhere the two must agree.
  EXPECT_GE(agree, points * 95 / 100) << agree << " of " << points;
  EXPECT_GT(hits, points / 5);
  EXPECT_EQ(list.selector, nullptr);
  EXPECT_EQ(list.renderer, canvas->renderer());
  release(cairo_picker);
  release(qt_picker);
  list.set_renderer(nullptr);
  EXPECT_TRUE(test::tree_is_valid(list));
}

TEST(DisplayListWidget, ShowsTheListAndZoomsPansAndPicks) {
  qputenv("QT_QPA_PLATFORM", "offscreen");
  static int argc = 1;
  static char name[] = "qt_renderer_test";
  static char* argv[] = {name, nullptr};
  QApplication app(argc, argv);
  DisplayList list;
  fill(list);
  DisplayListWidget widget;
  widget.resize(kW, kH);
  widget.show();
  widget.set_list(&list);
  widget.fit({{0, 0}, {999, 749}});
  ASSERT_TRUE(widget.draw_now());
  EXPECT_FALSE(widget.picture_is_draft());
  EXPECT_EQ(list.renderer, nullptr);  // handed back after the draw
  EXPECT_EQ(widget.picture().width(), kW);

  // The widget's picture is the renderer's picture of the same view.
  QImage direct(kW, kH, QImage::Format_RGB32);
  direct.fill(Qt::white);
  {
    QPainter painter(&direct);
    auto* r = new QtRenderer(&painter, kH);
    add_ref(r);
    list.set_renderer(r);
    list.set_screen_bounds({{0, 0}, {kW - 1, kH - 1}});
    list.set_world_bounds(widget.view().world());
    list.draw_view();
    list.set_renderer(nullptr);
    release(r);
  }
  EXPECT_EQ(widget.picture(), direct);

  // A wheel notch up zooms in by 1.25 about the pointer: the world point under it stays.
  const QPointF at(40, 30);
  double x0, y0, x1, y1;
  widget.view().to_world(at.x(), at.y(), x0, y0);
  const double upp = widget.view().upp;
  QWheelEvent wheel(at, widget.mapToGlobal(at), QPoint(), QPoint(0, 120), Qt::NoButton,
                    Qt::NoModifier, Qt::NoScrollPhase, false);
  QApplication::sendEvent(&widget, &wheel);
  EXPECT_NEAR(widget.view().upp, upp / DisplayListWidget::kZoomStep, 1e-9);
  widget.view().to_world(at.x(), at.y(), x1, y1);
  EXPECT_NEAR(x1, x0, 1e-6);
  EXPECT_NEAR(y1, y0, 1e-6);

  // A drag of 20 pixels right moves the world 20 pixels' worth left.
  const double cx = widget.view().cx;
  auto mouse = [&widget](QEvent::Type type, QPointF p, Qt::MouseButtons buttons) {
    QMouseEvent e(type, p, widget.mapToGlobal(p), Qt::LeftButton, buttons, Qt::NoModifier);
    QApplication::sendEvent(&widget, &e);
  };
  mouse(QEvent::MouseButtonPress, {50, 50}, Qt::LeftButton);
  mouse(QEvent::MouseMove, {60, 50}, Qt::LeftButton);
  mouse(QEvent::MouseMove, {70, 50}, Qt::LeftButton);
  mouse(QEvent::MouseButtonRelease, {70, 50}, Qt::NoButton);
  EXPECT_NEAR(widget.view().cx, cx - 20 * widget.view().upp, 1e-6);
  EXPECT_EQ(widget.picked(), nullptr);  // a drag does not pick

  // The event loop draws the new view (through a draft when the last draw was
  // slow) and ends with an exact picture.
  bool drawn = false;
  widget.on_drawn = [&drawn] { drawn = true; };
  for (int i = 0; i < 200 && !drawn; ++i) QApplication::processEvents();
  EXPECT_TRUE(drawn);
  EXPECT_FALSE(widget.picture_is_draft());

  // A click on the blue square picks it.
  widget.fit({{0, 0}, {999, 749}});
  double column, row;
  widget.view().to_pixel(450, 400, column, row);
  const Drawable* told = nullptr;
  widget.on_picked = [&told](const Drawable* d) { told = d; };
  mouse(QEvent::MouseButtonPress, {column, row}, Qt::LeftButton);
  mouse(QEvent::MouseButtonRelease, {column, row}, Qt::NoButton);
  ASSERT_NE(widget.picked(), nullptr);
  EXPECT_EQ(told, widget.picked());
  EXPECT_EQ(widget.picked()->bounds_of(), (WorldBounds{{300, 300}, {600, 500}}));
  widget.set_list(nullptr);
  EXPECT_TRUE(test::tree_is_valid(list));

  // Input during a slow draw stops it, and the new view is drawn: first as a
  // draft when the last exact draw was slower than a frame, then exact.
  DisplayList big;
  fill(big);
  // Tile by tile, as drawings arrive, so that the tree is deep: the draw
  // polls once per interior group it enters.
  for (int tile = 0; tile < 100; ++tile)
    for (int i = 0; i < 4000; ++i) {
      const WorldPoint p{(tile % 10) * 100 + i % 100, (tile / 10) * 100 + (i / 100) * 5 / 2};
      big.add(new Dot(0x404040, p), {p, p});
    }
  widget.resize(400, 300);
  widget.set_list(&big);
  EXPECT_NEAR(widget.view().upp, 1000.0 / 299, 0.01);  // fitted to what the list holds
  ASSERT_TRUE(widget.draw_now());
  const bool slow = widget.stats().ms > 2 * DisplayListWidget::kInputCheckMs;
  const long long drafts = widget.stats().drafts;
  drawn = false;
  widget.on_drawn = [&drawn] { drawn = true; };
  // A redraw of the same view (exact, as slow as the one above), and a wheel
  // notch 5 ms into it, handled by the draw's own poll at 10 ms.
  QTimer::singleShot(5, &widget, [&widget] {
    const QPointF p(200, 150);
    QWheelEvent notch(p, widget.mapToGlobal(p), QPoint(), QPoint(0, 120), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(&widget, &notch);
  });
  const double wanted_upp = widget.view().upp / DisplayListWidget::kZoomStep;
  widget.redraw();
  for (int i = 0; i < 2000 && !drawn; ++i)
    QApplication::processEvents(QEventLoop::WaitForMoreEvents, 5);
  EXPECT_TRUE(drawn);
  EXPECT_DOUBLE_EQ(widget.view().upp, wanted_upp);
  EXPECT_FALSE(widget.picture_is_draft());
  if (slow) {  // the machine drew slowly enough for the notch to come during the draw
    EXPECT_GE(widget.stats().stopped, 1);
    EXPECT_GT(widget.stats().drafts, drafts);
  }
  widget.set_list(nullptr);
  EXPECT_TRUE(test::tree_is_valid(big));
}

// A complex clip holds for what nested lists draw through Qt too, and an image
// covers its world rectangle: a star clip over a grid of nested squares
// leaves nothing outside the star, and the outer list's scale sizes images.
TEST(QtRenderer, TheOuterListsClipCutsNestedListsAndScalesImages) {
  DisplayList block;
  const WorldPoint square[] = {{0, 0}, {1000, 0}, {1000, 1000}, {0, 1000}};
  block.add(new Polygon(ZR_RGB32{0x2040c0}, 4, square), {{0, 0}, {1000, 1000}});
  DisplayList outer;
  const WorldBounds extent{{0, 0}, {1000, 1000}};
  for (int j = 0; j < 6; ++j)
    for (int i = 0; i < 8; ++i) {
      auto* d = new DrawableDisplayList(ZR_RGB32{0}, &block, &extent,
                                        DrawableDisplayList::Ownership::borrowed);
      d->set_scale({0.018, 0.018});
      d->set_offset({i * 20.0, j * 20.0});
      outer.add(d, d->mapped_bounds());
    }
  outer.set_world_bounds({{0, 0}, {kW - 1, kH - 1}});
  outer.set_screen_bounds({{0, 0}, {kW - 1, kH - 1}});
  outer.rendition.set_hard_clip({0, kW - 1, 0, kH - 1}, false);
  std::vector<ZR_Point> star;
  for (int k = 0; k < 10; ++k) {
    const double a = 2 * M_PI * k / 10, r = k % 2 ? 25 : 55;
    star.push_back(
        {static_cast<float>(80 + r * std::cos(a)), static_cast<float>(60 + r * std::sin(a)), 0});
  }
  ZR_Contour_Set clip = ZR_Contour_Set::make({star});
  outer.rendition.set_complex_clip(&clip, false);
  QImage image(kW, kH, QImage::Format_RGB32);
  image.fill(Qt::white);
  {
    QPainter painter(&image);
    auto* qt = new QtRenderer(&painter, kH);
    add_ref(qt);
    qt->set_outer_list(&outer);
    outer.set_renderer(qt);
    outer.draw_view();
    outer.set_renderer(nullptr);
    release(qt);
  }
  int outside = 0, inside = 0;
  for (int row = 0; row < kH; ++row)
    for (int x = 0; x < kW; ++x) {
      const bool painted = (image.pixel(x, row) & 0xffffff) != 0xffffff;
      const float y = static_cast<float>(kH - 1 - row);
      // Farther than a pixel from the star's edges, on one side.
      double near = 1e9;
      for (std::size_t k = 0; k < star.size(); ++k) {
        const ZR_Point& p = star[k];
        const ZR_Point& q = star[(k + 1) % star.size()];
        const double dx = q.x - p.x, dy = q.y - p.y;
        const double t =
            std::clamp(((x - p.x) * dx + (y - p.y) * dy) / (dx * dx + dy * dy), 0.0, 1.0);
        near = std::min(near, std::hypot(x - (p.x + t * dx), y - (p.y + t * dy)));
      }
      const bool in = clip->point_inside(x, y);
      const bool all_out = !in && near > 1.0, all_in = in && near > 1.0;
      outside += painted && all_out;
      inside += painted && all_in;
    }
  EXPECT_EQ(outside, 0);
  EXPECT_GT(inside, 1000);

  // An image of 10 x 10 pixels covering 50 x 40 world units, at scale 1.
  auto* body = new ZR_Image_Data;
  body->width = body->height = 10;
  body->pixels.assign(100, 0x20a040);
  body->world_width = 50;
  body->world_height = 40;
  DisplayList pictures;
  const WorldBounds rect{{20, 30}, {70, 70}};
  pictures.add(new Image(ZR_RGB32{0}, rect, ZR_Image(body)), rect);
  pictures.set_world_bounds({{0, 0}, {kW - 1, kH - 1}});
  pictures.set_screen_bounds({{0, 0}, {kW - 1, kH - 1}});
  image.fill(Qt::white);
  {
    QPainter painter(&image);
    auto* qt = new QtRenderer(&painter, kH);
    add_ref(qt);
    qt->set_outer_list(&pictures);
    pictures.set_renderer(qt);
    pictures.draw_view();
    pictures.set_renderer(nullptr);
    release(qt);
  }
  int x0 = kW, x1 = -1, y0 = kH, y1 = -1;
  for (int row = 0; row < kH; ++row)
    for (int x = 0; x < kW; ++x)
      if ((image.pixel(x, row) & 0xffffff) != 0xffffff) {
        const int y = kH - 1 - row;
        x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
      }
  EXPECT_NEAR(x0, 20, 1);
  EXPECT_NEAR(x1 + 1, 70, 1.5);
  EXPECT_NEAR(y1, 70, 1);
  EXPECT_NEAR(y0 - 1, 30, 1.5);
}

}  // namespace
}  // namespace DL
