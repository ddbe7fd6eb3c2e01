// The cairo renderer: each action entry paints where its arguments say, in the
// right colour, cut to the hard clip on the clipped entries and to the complex
// clip when the device claims it. Pictures are 64 x 64 with device y up, and
// only a few pixels are sampled, with tolerance for antialiased edges.
#include "backends/cairo/cairo_renderer.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "tests/support/test_files.h"

namespace DL {
namespace {

constexpr ZR_RGB32 kWhite = 0xffffff;
constexpr ZR_RGB32 kRed = 0xff0000;
constexpr ZR_RGB32 kBlue = 0x0000ff;
constexpr int kSize = 64;

struct Picture {
  std::unique_ptr<CairoCanvas> canvas;
  CairoRenderer* r = nullptr;
  ZR_Rendition rendition = ZR_Rendition::create();

  Picture() {
    std::string error;
    canvas = CairoCanvas::create(CairoCanvas::Format::png, "", kSize, kSize, &error);
    EXPECT_TRUE(canvas) << error;
    r = canvas->renderer();
    rendition.set_color(kRed, false);
  }
  // The pixel of device point (x, y): y grows upward.
  ZR_RGB32 at(int x, int y) const { return canvas->pixel(x, kSize - 1 - y); }
  int painted_where(const std::function<bool(int x, int y)>& where) const {
    int n = 0;
    for (int y = 0; y < kSize; ++y)
      for (int x = 0; x < kSize; ++x)
        if (where(x, y) && at(x, y) != kWhite) ++n;
    return n;
  }
};

int red(ZR_RGB32 c) {
  return (c >> 16) & 0xff;
}
int green(ZR_RGB32 c) {
  return (c >> 8) & 0xff;
}
int blue(ZR_RGB32 c) {
  return c & 0xff;
}
// Red within a few levels: a pixel a thin curve crosses at its extreme, all
// but a sliver of it covered (see the direct writes in cairo_renderer.h).
bool nearly_red(ZR_RGB32 c) {
  return red(c) == 255 && green(c) <= 8 && blue(c) <= 8;
}
// Mostly red: where an antialiased edge crosses the pixel.
bool reddish(ZR_RGB32 c) {
  return red(c) > 200 && green(c) < 150 && blue(c) < 150;
}

TEST(CairoRenderer, PointEntriesPaintTheirPixels) {
  Picture p;
  ZR_DCI_Point dot{10, 10, 0};
  p.r->dot_unclipped(&p.rendition, &dot, nullptr);
  EXPECT_EQ(p.at(10, 10), kRed);
  EXPECT_EQ(p.at(11, 10), kWhite);
  EXPECT_EQ(p.at(10, 11), kWhite);
  // The colour argument wins over the rendition's colour.
  ZR_RGB32 own = kBlue;
  ZR_DCI_Point other{12, 10, 0};
  p.r->dot_clipped(&p.rendition, &other, &own);
  EXPECT_EQ(p.at(12, 10), kBlue);

  // Markers: a cross centred on each point.
  ZR_DCI_Point marks[] = {{40, 40, 0}, {50, 10, 0}};
  p.r->polymarker_unclipped(&p.rendition, 2, marks);
  EXPECT_EQ(p.at(40, 40), kRed);
  EXPECT_TRUE(reddish(p.at(42, 42)));
  EXPECT_TRUE(reddish(p.at(38, 42)));
  EXPECT_EQ(p.at(50, 10), kRed);
  EXPECT_EQ(p.at(45, 40), kWhite);
  EXPECT_EQ(p.at(40, 43), kWhite);
}

TEST(CairoRenderer, PolylinesTakeTheLineWeight) {
  Picture p;
  ZR_DCI_Point thin[] = {{5, 10, 0}, {50, 10, 0}};
  p.r->polyline_unclipped(&p.rendition, 2, thin);
  EXPECT_EQ(p.at(5, 10), kRed);
  EXPECT_EQ(p.at(30, 10), kRed);
  EXPECT_EQ(p.at(50, 10), kRed);
  EXPECT_EQ(p.at(30, 11), kWhite);
  EXPECT_EQ(p.at(52, 10), kWhite);

  p.rendition.set_line_weight(5, false);
  ZR_DCI_Point thick[] = {{5, 40, 0}, {30, 40, 0}, {30, 60, 0}};
  p.r->polyline_clipped(&p.rendition, 3, thick);
  EXPECT_EQ(p.at(15, 42), kRed);
  EXPECT_EQ(p.at(15, 38), kRed);
  EXPECT_EQ(p.at(15, 44), kWhite);
  EXPECT_EQ(p.at(32, 50), kRed);  // the second leg, two units off its axis
  EXPECT_EQ(p.at(35, 50), kWhite);

  // One point is a dot; a vertex colour ramp runs from one end to the other.
  ZR_DCI_Point one{60, 60, 0};
  p.r->polyline_unclipped(&p.rendition, 1, &one);
  EXPECT_EQ(p.at(60, 60), kRed);
  p.rendition.set_line_weight(3, false);
  ZR_DCI_Point ramp[] = {{5, 25, 0}, {55, 25, 0}};
  ZR_RGB32 ends[] = {kRed, kBlue};
  p.r->gouraud_polyline_unclipped(&p.rendition, 2, ramp, ends);
  EXPECT_GT(red(p.at(8, 25)), 200);
  EXPECT_LT(blue(p.at(8, 25)), 60);
  EXPECT_GT(blue(p.at(52, 25)), 200);
  EXPECT_LT(red(p.at(52, 25)), 60);
}

TEST(CairoRenderer, FilledEntriesCoverTheirArea) {
  Picture p;
  ZR_DCI_Point square[] = {{4, 4, 0}, {20, 4, 0}, {20, 20, 0}, {4, 20, 0}};
  ZR_RGB32 own = kBlue;
  p.r->polygon_unclipped(&p.rendition, 4, square, &own);
  EXPECT_EQ(p.at(12, 12), kBlue);
  EXPECT_EQ(p.at(24, 12), kWhite);

  // A strip whose triangles turn alternately: their union is the rectangle.
  ZR_DCI_Point strip[] = {{30, 4, 0}, {30, 20, 0}, {45, 4, 0}, {45, 20, 0}, {60, 4, 0}};
  p.r->triangles_clipped(&p.rendition, 5, strip);
  EXPECT_EQ(p.at(33, 12), kRed);
  EXPECT_EQ(p.at(42, 12), kRed);
  EXPECT_EQ(p.at(48, 8), kRed);
  EXPECT_EQ(p.at(58, 18), kWhite);  // above the last triangle's slope

  // Gouraud and textured strips blend their vertex colours.
  ZR_DCI_Point band[] = {{4, 30, 0}, {4, 40, 0}, {60, 30, 0}, {60, 40, 0}};
  ZR_RGB32 colors[] = {kRed, kRed, kBlue, kBlue};
  p.r->gouraud_triangles_unclipped(&p.rendition, 4, band, colors);
  EXPECT_GT(red(p.at(7, 35)), 200);
  EXPECT_GT(blue(p.at(57, 35)), 200);
  ZR_RGB32 middle = p.at(32, 35);
  EXPECT_GT(red(middle), 80);
  EXPECT_GT(blue(middle), 80);

  ZR_DCI_Point band2[] = {{4, 45, 0}, {4, 55, 0}, {60, 45, 0}, {60, 55, 0}};
  ZR_RGB32 colors2[] = {kBlue, kBlue, kRed, kRed};
  ZR_Vertex_Parameters words[4] = {};
  p.r->textured_triangles_clipped(&p.rendition, 4, band2, colors2, words, nullptr, nullptr);
  EXPECT_GT(blue(p.at(7, 50)), 200);
  EXPECT_GT(red(p.at(57, 50)), 200);
}

TEST(CairoRenderer, EllipsesFollowAnglesAndTilt) {
  const double half_pi = 1.5707963267948966;
  const double two_pi = 6.2831854820251465;
  {
    Picture p;
    ZR_DCI_Point c{32, 32, 0}, radii{20, 10, 0};
    p.r->elliptical_arc_unclipped(&p.rendition, &c, &radii, 0.0, two_pi, 0.0, nullptr);
    EXPECT_TRUE(nearly_red(p.at(52, 32)));
    EXPECT_TRUE(reddish(p.at(12, 32)));
    EXPECT_TRUE(nearly_red(p.at(32, 42)));
    EXPECT_EQ(p.at(32, 32), kWhite);
    EXPECT_EQ(p.at(32, 52), kWhite);
  }
  {
    // Tilted a quarter turn: the long axis is vertical.
    Picture p;
    ZR_DCI_Point c{32, 32, 0}, radii{20, 10, 0};
    p.r->elliptical_arc_clipped(&p.rendition, &c, &radii, 0.0, two_pi, half_pi, nullptr);
    EXPECT_TRUE(nearly_red(p.at(32, 52)));
    EXPECT_TRUE(reddish(p.at(42, 32)));
    EXPECT_EQ(p.at(52, 32), kWhite);
  }
  {
    // A quarter pie counter-clockwise from +x, with y up: the upper right.
    Picture p;
    ZR_DCI_Point c{32, 32, 0}, radii{20, 20, 0};
    ZR_RGB32 own = kBlue;
    p.r->elliptical_pie_unclipped(&p.rendition, &c, &radii, 0.0, half_pi, 0.0, &own);
    EXPECT_EQ(p.at(40, 40), kBlue);
    EXPECT_EQ(p.at(24, 40), kWhite);
    EXPECT_EQ(p.at(40, 24), kWhite);
    EXPECT_EQ(p.at(24, 24), kWhite);
    // An end below the start sweeps through angle 0: the lower right to the upper right.
    p.r->elliptical_pie_clipped(&p.rendition, &c, &radii, -half_pi, 0.0, 0.0, nullptr);
    EXPECT_EQ(p.at(40, 24), kRed);
    p.r->elliptical_pie_clipped(&p.rendition, &c, &radii, 3.0 * half_pi, 0.5, 0.0, nullptr);
    EXPECT_EQ(p.at(24, 24), kWhite);
  }
  {
    // Collapsed radii still leave a mark; they must not break the context.
    Picture p;
    ZR_DCI_Point c{32, 32, 0}, flat{10, 0, 0}, none{0, 0, 0};
    p.r->elliptical_pie_unclipped(&p.rendition, &c, &flat, 0.0, two_pi, 0.0, nullptr);
    p.r->elliptical_arc_unclipped(&p.rendition, &c, &none, 0.0, two_pi, 0.0, nullptr);
    EXPECT_EQ(p.at(40, 32), kRed);
    ZR_DCI_Point dot{5, 5, 0};
    p.r->dot_unclipped(&p.rendition, &dot, nullptr);
    EXPECT_EQ(p.at(5, 5), kRed);
  }
}

TEST(CairoRenderer, ImagesHangFromTheirPoint) {
  Picture p;
  auto* data = new ZR_Image_Data;
  data->width = 4;
  data->height = 3;
  data->pixels.assign(12, 0x00ff00);
  data->pixels[0] = kBlue;      // top left
  data->pixels[11] = 0xff00ff;  // bottom right
  ZR_Image image(data);
  ZR_DCI_Point corner{10, 50, 0};
  p.r->image_unclipped(&p.rendition, &corner, &image);
  EXPECT_EQ(p.at(10, 50), kBlue);
  EXPECT_EQ(p.at(13, 48), 0xff00ffu);
  EXPECT_EQ(p.at(11, 49), 0x00ff00u);
  EXPECT_EQ(p.at(14, 50), kWhite);
  EXPECT_EQ(p.at(10, 51), kWhite);
  EXPECT_EQ(p.at(10, 47), kWhite);
  // Pixels that disagree with the size are refused, not read.
  data->pixels.resize(5);
  ZR_DCI_Point elsewhere{30, 30, 0};
  p.r->image_clipped(&p.rendition, &elsewhere, &image);
  EXPECT_EQ(p.at(30, 30), kWhite);
}

// Every clipped entry, drawing across the whole picture.
std::vector<std::function<void(CairoRenderer&, ZR_Rendition*)>> clipped_draws() {
  static ZR_DCI_Point row[] = {{0, 10, 0}, {63, 10, 0}};
  static ZR_DCI_Point all[] = {{0, 0, 0}, {0, 63, 0}, {63, 0, 0}, {63, 63, 0}};
  static ZR_DCI_Point box[] = {{0, 0, 0}, {63, 0, 0}, {63, 63, 0}, {0, 63, 0}};
  static ZR_DCI_Point marks[] = {{18, 10, 0}, {20, 10, 0}, {22, 10, 0}, {30, 10, 0}, {50, 10, 0}};
  static ZR_DCI_Point center{32, 32, 0}, radii{30, 30, 0};
  static ZR_RGB32 colors[] = {kRed, kRed, kBlue, kBlue};
  static ZR_Vertex_Parameters words[4] = {};
  using R = CairoRenderer&;
  using N = ZR_Rendition*;
  return {
      [](R r, N n) {
        for (int x = 0; x < 64; ++x) {
          ZR_DCI_Point d{x, 10, 0};
          r.dot_clipped(n, &d, nullptr);
        }
      },
      [](R r, N n) { r.polyline_clipped(n, 2, row); },
      [](R r, N n) { r.polymarker_clipped(n, 5, marks); },
      [](R r, N n) { r.polygon_clipped(n, 4, box, nullptr); },
      [](R r, N n) { r.triangles_clipped(n, 4, all); },
      [](R r, N n) { r.gouraud_triangles_clipped(n, 4, all, colors); },
      [](R r, N n) { r.textured_triangles_clipped(n, 4, all, colors, words, nullptr, nullptr); },
      [](R r, N n) { r.elliptical_arc_clipped(n, &center, &radii, 0.0, 6.2831855, 0.0, nullptr); },
      [](R r, N n) { r.elliptical_pie_clipped(n, &center, &radii, 0.0, 6.2831855, 0.0, nullptr); },
      [](R r, N n) {
        static ZR_Image image = [] {
          auto* d = new ZR_Image_Data;
          d->width = d->height = 64;
          d->pixels.assign(64 * 64, kBlue);
          return ZR_Image(d);
        }();
        ZR_DCI_Point corner{0, 63, 0};
        r.image_clipped(n, &corner, &image);
      },
  };
}

TEST(CairoRenderer, ClippedEntriesKeepToTheHardClip) {
  int index = 0;
  for (auto& draw : clipped_draws()) {
    SCOPED_TRACE(index++);
    Picture p;
    p.rendition.set_hard_clip({0, 20, 0, 63}, false);
    draw(*p.r, &p.rendition);
    EXPECT_GT(p.painted_where([](int x, int) { return x <= 20; }), 0);
    EXPECT_EQ(p.painted_where([](int x, int) { return x > 20; }), 0);
    // A new clip is taken up at the next call.
    p.rendition.set_hard_clip({40, 63, 0, 63}, false);
    draw(*p.r, &p.rendition);
    EXPECT_GT(p.painted_where([](int x, int) { return x >= 40; }), 0);
    EXPECT_EQ(p.painted_where([](int x, int) { return x > 20 && x < 40; }), 0);
  }
  // The unclipped entries ignore it.
  Picture p;
  p.rendition.set_hard_clip({0, 20, 0, 63}, false);
  static ZR_DCI_Point row[] = {{0, 10, 0}, {63, 10, 0}};
  p.r->polyline_unclipped(&p.rendition, 2, row);
  EXPECT_EQ(p.at(40, 10), kRed);
}

TEST(CairoRenderer, ComplexClipWhateverTheDeviceClaims) {
  // A square with a square hole: even-odd.
  ZR_Contour_Set ring =
      ZR_Contour_Set::make({{{8, 8, 0}, {56, 8, 0}, {56, 56, 0}, {8, 56, 0}},
                            {{24, 24, 0}, {40, 24, 0}, {40, 40, 0}, {24, 40, 0}}});
  ZR_DCI_Point box[] = {{0, 0, 0}, {63, 0, 0}, {63, 63, 0}, {0, 63, 0}};
  for (bool supported : {false, true}) {
    SCOPED_TRACE(supported);
    Picture p;
    p.r->set_complex_clip_supported(supported);
    p.rendition.set_complex_clip(&ring, false);
    p.r->polygon_unclipped(&p.rendition, 4, box, nullptr);
    EXPECT_EQ(p.at(16, 16), kRed);
    // The claim only tells the library who classifies groups: the device cuts
    // to any complex clip it is handed, so the picture is the same.
    EXPECT_EQ(p.at(2, 2), kWhite);
    EXPECT_EQ(p.at(32, 32), kWhite);
    // Dropping the clip lifts it at the next call.
    p.rendition.set_complex_clip(nullptr, false);
    ZR_DCI_Point corner{1, 1, 0};
    p.r->dot_unclipped(&p.rendition, &corner, nullptr);
    EXPECT_EQ(p.at(1, 1), kRed);
  }
  // Hard and complex clips together on a clipped entry.
  Picture p;
  p.r->set_complex_clip_supported(true);
  p.rendition.set_complex_clip(&ring, false);
  p.rendition.set_hard_clip({0, 31, 0, 63}, false);
  p.r->polygon_clipped(&p.rendition, 4, box, nullptr);
  EXPECT_EQ(p.at(16, 16), kRed);
  EXPECT_EQ(p.at(48, 16), kWhite);
  EXPECT_EQ(p.at(2, 2), kWhite);

  // Glyph contours go through the same clips.
  Picture q;
  q.r->set_complex_clip_supported(true);
  q.rendition.set_complex_clip(&ring, false);
  ZR_Contour_Set glyph = ZR_Contour_Set::make({{{0, 0, 0}, {30, 0, 0}, {30, 30, 0}, {0, 30, 0}}});
  q.r->paint_contours(&q.rendition, {2, 2, 0}, *glyph, nullptr, false);
  EXPECT_EQ(q.at(16, 16), kRed);
  EXPECT_EQ(q.at(4, 4), kWhite);
  EXPECT_EQ(q.at(28, 28), kWhite);
}

TEST(CairoRenderer, FarDevicePointsAreCutNotWrapped) {
  Picture p;
  ZR_DCI_Point line[] = {{INT32_MIN, 10, 0}, {INT32_MAX, 10, 0}};
  p.r->polyline_clipped(&p.rendition, 2, line);
  EXPECT_EQ(p.at(1, 10), kRed);
  EXPECT_EQ(p.at(62, 10), kRed);
  EXPECT_EQ(p.at(32, 12), kWhite);
  // A slanted line from far away still passes where it should.
  ZR_DCI_Point slant[] = {{-2000000000, -2000000000, 0}, {2000000000, 2000000000, 0}};
  p.r->polyline_clipped(&p.rendition, 2, slant);
  EXPECT_TRUE(reddish(p.at(40, 40)));
  EXPECT_EQ(p.at(40, 44), kWhite);
  // A huge circle around the picture leaves it empty inside; its pie fills it.
  Picture q;
  ZR_DCI_Point c{32, -1000000000, 0}, radii{1000000050, 1000000050, 0};
  q.r->elliptical_arc_clipped(&q.rendition, &c, &radii, 0.0, 6.2831855, 0.0, nullptr);
  EXPECT_EQ(q.at(32, 20), kWhite);
  q.r->elliptical_pie_clipped(&q.rendition, &c, &radii, 0.0, 6.2831855, 0.0, nullptr);
  EXPECT_EQ(q.at(32, 20), kRed);
  EXPECT_EQ(q.at(32, 60), kWhite);
}

TEST(CairoRenderer, DrawsADisplayListAndWritesEveryFormat) {
  for (auto format :
       {CairoCanvas::Format::png, CairoCanvas::Format::pdf, CairoCanvas::Format::svg}) {
    const char* ext[] = {".png", ".pdf", ".svg"};
    std::string path =
        DL::test::test_file(std::string("cairo_canvas") + ext[static_cast<int>(format)]);
    CairoCanvas::Format named;
    ASSERT_TRUE(CairoCanvas::format_for_path(path, named));
    EXPECT_EQ(named, format);
    std::string error;
    auto canvas = CairoCanvas::create(format, path, kSize, kSize, &error);
    ASSERT_TRUE(canvas) << error;
    {
      DisplayList list;
      list.set_world_bounds({{0, 0}, {630, 630}});
      list.set_screen_bounds({{0, 0}, {63, 63}});
      list.set_renderer(canvas->renderer());
      list.add(new Dot(kRed, {100, 500}), {{100, 500}, {100, 500}});
      list.add(new ColorizedDot(kRed, {500, 100}, kBlue), {{500, 100}, {500, 100}});
      list.root->draw_unclipped(list);
      if (format == CairoCanvas::Format::png) {
        // World y up: the dot high in the world is high in the picture.
        EXPECT_EQ(canvas->pixel(10, 63 - 50), kRed);
        EXPECT_EQ(canvas->pixel(50, 63 - 10), kBlue);
      }
    }
    ASSERT_TRUE(canvas->finish(&error)) << error;
    canvas.reset();
    std::ifstream in(path, std::ios::binary);
    std::string head(8, '\0');
    in.read(head.data(), 8);
    const char* magic[] = {"\x89PNG", "%PDF", "<?xml"};
    EXPECT_EQ(head.rfind(magic[static_cast<int>(format)], 0), 0u) << path;
    std::remove(path.c_str());
  }
  CairoCanvas::Format f;
  EXPECT_FALSE(CairoCanvas::format_for_path("picture.jpg", f));
  EXPECT_TRUE(CairoCanvas::format_for_path("PICTURE.PNG", f));
  std::string error;
  EXPECT_FALSE(CairoCanvas::create(CairoCanvas::Format::png, "x.png", 0, 10, &error));
  EXPECT_FALSE(error.empty());
  auto canvas =
      CairoCanvas::create(CairoCanvas::Format::png, "/nonexistent/dir/x.png", 8, 8, &error);
  ASSERT_TRUE(canvas);
  EXPECT_FALSE(canvas->finish(&error));
  EXPECT_NE(error.find("/nonexistent/dir/x.png"), std::string::npos);
  EXPECT_FALSE(
      CairoCanvas::create(CairoCanvas::Format::pdf, "/nonexistent/dir/x.pdf", 8, 8, &error));
}

// Dots written straight into an image surface give the very bytes cairo's own
// fill gives: on both image formats and orientations, at the edges, off the
// surface and at the int limits, on clipped and unclipped entries, under hard
// clips that cross the edge or are empty, and interleaved with entries that
// cairo draws (a run of direct writes must end before cairo paints again).
TEST(CairoRenderer, DirectDotsMatchCairoByteForByte) {
  constexpr int kW = 37, kH = 29;  // odd sizes, so rows and columns are not mistaken
  struct Result {
    std::vector<unsigned char> bytes;
    long long direct = 0;
  };
  auto draw = [&](cairo_format_t format, DeviceOrientation orientation, bool direct) {
    cairo_surface_t* s = cairo_image_surface_create(format, kW, kH);
    cairo_t* cr = cairo_create(s);
    if (format == CAIRO_FORMAT_RGB24) {
      cairo_set_source_rgb(cr, 1, 1, 1);
      cairo_paint(cr);
    }  // ARGB32 starts transparent, so a dot's alpha shows as well
    auto* r = new CairoRenderer(cr, kH, orientation);
    add_ref(r);
    r->set_direct_dots(direct);
    ZR_Rendition rendition = ZR_Rendition::create();
    rendition.set_color(0x123456, false);
    ZR_RGB32 own = 0xa0b0c0;
    std::vector<ZR_DCI_Point> points;
    for (int y = -3; y <= kH + 2; y += 2)
      for (int x = -3; x <= kW + 2; x += 3) points.push_back({x, y, 0});
    for (int v : {INT32_MIN, INT32_MIN + 1, -65537, -65536, 65536, 70000, INT32_MAX})
      for (int w : {0, 5, kH - 1}) {
        points.push_back({v, w, 0});
        points.push_back({w, v, 0});
      }
    const ZR_Int_Rectangle clips[] = {
        {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX},  // no clip
        {-5, 10, 3, kH + 4},                           // across the left and top edges
        {kW - 1, kW - 1, 0, 0},                        // one corner pixel
        {20, 10, 0, kH},                               // empty
        {INT32_MIN, 70000, -70000, INT32_MAX},
    };
    int i = 0;
    for (const ZR_Int_Rectangle& clip : clips) {
      rendition.set_hard_clip(clip, false);
      for (const ZR_DCI_Point& p : points) {
        const ZR_RGB32* color = (i % 3 == 0) ? &own : nullptr;
        if (i++ % 2)
          r->dot_clipped(&rendition, &p, color);
        else
          r->dot_unclipped(&rendition, &p, color);
      }
      // Cairo draws over some of those dots, and dots go on top of that.
      ZR_DCI_Point bar[] = {{2, 2 + i % 7, 0}, {kW - 3, 2 + i % 7, 0}};
      r->polyline_unclipped(&rendition, 2, bar);
      for (int x = 0; x < kW; x += 2) {
        ZR_DCI_Point d{x, 2 + i % 7, 0};
        r->dot_clipped(&rendition, &d, &own);
      }
    }
    // Under a complex clip cairo draws every dot, whichever way was asked.
    ZR_Contour_Set square =
        ZR_Contour_Set::make({{{4, 4, 0}, {20, 4, 0}, {20, 20, 0}, {4, 20, 0}}});
    rendition.set_complex_clip(&square, false);
    for (const ZR_DCI_Point& p : points) r->dot_unclipped(&rendition, &p, nullptr);
    r->flush_direct();
    Result out;
    out.direct = r->direct_dots();
    release(r);
    cairo_destroy(cr);
    cairo_surface_flush(s);
    const unsigned char* data = cairo_image_surface_get_data(s);
    const int stride = cairo_image_surface_get_stride(s);
    for (int y = 0; y < kH; ++y)
      out.bytes.insert(out.bytes.end(), data + y * stride, data + y * stride + 4 * kW);
    cairo_surface_destroy(s);
    return out;
  };
  for (cairo_format_t format : {CAIRO_FORMAT_ARGB32, CAIRO_FORMAT_RGB24})
    for (DeviceOrientation orientation : {DeviceOrientation::y_up, DeviceOrientation::y_down}) {
      SCOPED_TRACE(testing::Message()
                   << "format " << format << " y_up " << (orientation == DeviceOrientation::y_up));
      const Result by_cairo = draw(format, orientation, false);
      const Result direct = draw(format, orientation, true);
      EXPECT_EQ(by_cairo.direct, 0);
      EXPECT_GT(direct.direct, 100);  // the direct way was really taken
      ASSERT_EQ(by_cairo.bytes.size(), direct.bytes.size());
      int differing = 0;
      for (std::size_t k = 0; k < direct.bytes.size(); ++k)
        differing += by_cairo.bytes[k] != direct.bytes[k];
      EXPECT_EQ(differing, 0);
    }
}

// Surfaces that cannot take direct writes get cairo's dots: one placed by a
// device offset of part of a pixel, and a PDF. One placed by whole pixels
// takes them, in the same place.
TEST(CairoRenderer, DirectDotsOnlyWhereTheyAreExact) {
  ZR_Rendition rendition = ZR_Rendition::create();
  rendition.set_color(kRed, false);
  ZR_DCI_Point d{12, 31 - 13, 0};  // pixel (12, 13) of the picture: (2, 3) of the surface
  for (double offset : {-10.0, -10.25}) {
    cairo_surface_t* s = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, 8, 8);
    cairo_surface_set_device_offset(s, offset, offset);
    cairo_t* cr = cairo_create(s);
    auto* r = new CairoRenderer(cr, 32);
    add_ref(r);
    r->dot_unclipped(&rendition, &d, nullptr);
    EXPECT_EQ(r->direct_dots(), offset == -10.0 ? 1 : 0);
    release(r);
    cairo_destroy(cr);
    cairo_surface_flush(s);
    const auto* row = reinterpret_cast<const std::uint32_t*>(cairo_image_surface_get_data(s) +
                                                             3 * cairo_image_surface_get_stride(s));
    if (offset == -10.0)
      EXPECT_EQ(row[2], 0xffff0000u);
    else
      EXPECT_NE(row[2], 0u);  // cairo covers parts of four pixels
    cairo_surface_destroy(s);
  }

  const std::string path = DL::test::test_file("direct_dots.pdf");
  std::string error;
  auto pdf = CairoCanvas::create(CairoCanvas::Format::pdf, path, 16, 16, &error);
  ASSERT_TRUE(pdf) << error;
  pdf->renderer()->dot_unclipped(&rendition, &d, nullptr);
  EXPECT_EQ(pdf->renderer()->direct_dots(), 0);
  EXPECT_TRUE(pdf->finish(&error)) << error;
  std::remove(path.c_str());
}

}  // namespace
}  // namespace DL
