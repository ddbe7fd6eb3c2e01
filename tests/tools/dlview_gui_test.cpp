// dlview's window, driven under Xvfb by scripts of injected events: the view
// follows pans, zooms and Home; a click names the primitive under the pointer
// and outlines it; a layer turned off is gone from the picture; a circular clip
// cuts the picture; bad input gives an error on stderr and in a dialog; closing
// the window in the middle of a draw ends cleanly; a new view shows a draft
// first, then the exact picture. Pictures are read back from
// the PNG files the script dumps. Skipped when xvfb-run is missing.
#include <cairo.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "tests/support/test_files.h"

namespace {

// A file of the running test, under the build folder: ctest runs the tests
// side by side, so the name carries the test's.
std::string temp(const std::string& name) {
  return DL::test::test_file("dlview_gui_" + name);
}

bool have_xvfb() {
  return std::system("command -v xvfb-run >/dev/null 2>&1") == 0;
}

struct Result {
  int status = -1;
  std::string out, err;
};

// Runs dlview --gui under a fresh Xvfb with the script lines and arguments.
Result run(const std::vector<std::string>& script, const std::string& args) {
  const std::string script_path = temp("script.txt");
  {
    std::ofstream s(script_path);
    for (const std::string& line : script) s << line << "\n";
  }
  const std::string out = temp("out.txt"), err = temp("err.txt");
  // Under the leak checker, system libraries' lifetime caches are not leaks.
  const std::string command =
      "LSAN_OPTIONS=suppressions=" DLVIEW_SUPPRESSIONS
      ":print_suppressions=0 xvfb-run -a -s '-screen 0 1280x1024x24' " DLVIEW_PATH
      " --gui --size 600x400 --script " +
      script_path + " " + args + " >" + out + " 2>" + err;
  Result r;
  const int raw = std::system(command.c_str());
  r.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  std::stringstream o, e;
  o << std::ifstream(out).rdbuf();
  e << std::ifstream(err).rdbuf();
  r.out = o.str();
  r.err = e.str();
  return r;
}

// A picture read back from PNG, as 0x00RRGGBB per pixel.
struct Picture {
  int width = 0, height = 0;
  std::vector<std::uint32_t> pixels;
  std::uint32_t at(int x, int y) const {
    if (x < 0 || y < 0 || x >= width || y >= height) return 0xffffff;
    return pixels[static_cast<std::size_t>(y) * width + x] & 0xffffff;
  }
  int count(std::uint32_t color) const {
    int n = 0;
    for (std::uint32_t p : pixels) n += (p & 0xffffff) == color;
    return n;
  }
  // The first pixel of that colour, row by row from the middle row down.
  bool find(std::uint32_t color, int& x, int& y) const {
    for (int r = 0; r < height; ++r)
      for (int c = 0; c < width; ++c) {
        const int row = (height / 2 + r) % height;
        if (at(c, row) == color) {
          x = c;
          y = row;
          return true;
        }
      }
    return false;
  }
};

Picture load(const std::string& path) {
  Picture p;
  cairo_surface_t* s = cairo_image_surface_create_from_png(path.c_str());
  if (cairo_surface_status(s) == CAIRO_STATUS_SUCCESS) {
    p.width = cairo_image_surface_get_width(s);
    p.height = cairo_image_surface_get_height(s);
    const int stride = cairo_image_surface_get_stride(s);
    const unsigned char* data = cairo_image_surface_get_data(s);
    for (int y = 0; y < p.height; ++y)
      for (int x = 0; x < p.width; ++x)
        p.pixels.push_back(reinterpret_cast<const std::uint32_t*>(data + y * stride)[x]);
  }
  cairo_surface_destroy(s);
  return p;
}

// A drawing of two layers of points: RED (ACI 1) a grid of 12 x 12 on the
// left, BLUE (ACI 5) the same on the right, 10 units apart.
std::string write_drawing() {
  std::ostringstream d;
  auto pair = [&](int code, const std::string& value) { d << code << "\n" << value << "\n"; };
  pair(0, "SECTION");
  pair(2, "ENTITIES");
  for (int layer = 0; layer < 2; ++layer)
    for (int i = 0; i < 12; ++i)
      for (int j = 0; j < 12; ++j) {
        pair(0, "POINT");
        pair(8, layer == 0 ? "RED" : "BLUE");
        pair(62, layer == 0 ? "1" : "5");
        pair(10, std::to_string(layer * 150 + i * 10));
        pair(20, std::to_string(j * 10));
        pair(30, "0");
      }
  pair(0, "ENDSEC");
  pair(0, "EOF");
  const std::string path = temp("points.dxf");
  std::ofstream(path) << d.str();
  return path;
}

constexpr std::uint32_t kRed = 0xff0000, kBlue = 0x0000ff, kOrange = 0xff7f00;

// The "status: " lines in order.
std::vector<std::string> statuses(const std::string& out) {
  std::vector<std::string> lines;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("status: ", 0) == 0) lines.push_back(line);
  return lines;
}

// "view: cx cy upp width height" lines in order.
std::vector<std::vector<double>> views(const std::string& out) {
  std::vector<std::vector<double>> v;
  std::istringstream in(out);
  for (std::string line; std::getline(in, line);)
    if (line.rfind("view: ", 0) == 0) {
      std::istringstream w(line.substr(6));
      double cx, cy, upp, width, height;
      w >> cx >> cy >> upp >> width >> height;
      v.push_back({cx, cy, upp, width, height});
    }
  return v;
}

TEST(DlviewGui, PanZoomAndHomeMoveThePicture) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  const std::string drawing = write_drawing();
  const Result r =
      run({"dump " + temp("a.png"), "view", "drag 200 150 260 180", "dump " + temp("b.png"), "view",
           "scroll 300 200 up 2", "view", "dump " + temp("c.png"), "key Home", "view",
           "dump " + temp("d.png"), "key Right", "view", "key minus", "view"},
          drawing);
  ASSERT_EQ(r.status, 0) << r.err;
  const Picture a = load(temp("a.png")), b = load(temp("b.png")), c = load(temp("c.png")),
                d = load(temp("d.png"));
  ASSERT_GT(a.width, 0);
  ASSERT_EQ(a.count(kRed), 144) << "each point is one red pixel";
  EXPECT_EQ(a.count(kBlue), 144);

  // The pan moved every point by the pointer's move: (60, 30) pixels.
  int moved = 0, total = 0;
  for (int y = 0; y < a.height; ++y)
    for (int x = 0; x < a.width; ++x)
      if (a.at(x, y) == kRed) {
        ++total;
        moved += b.at(x + 60, y + 30) == kRed;
      }
  EXPECT_EQ(moved, total);

  const auto v = views(r.out);
  ASSERT_EQ(v.size(), 6u);
  EXPECT_NEAR(v[1][0], v[0][0] - 60 * v[0][2], 1e-6 * std::fabs(v[0][0]) + 1e-3);
  EXPECT_NEAR(v[1][1], v[0][1] + 30 * v[0][2], 1e-6 * std::fabs(v[0][1]) + 1e-3);
  // Two wheel clicks zoom in by 1.25 each; the picture spreads out.
  EXPECT_NEAR(v[2][2], v[1][2] / (1.25 * 1.25), v[1][2] * 1e-9);
  // The world point under the pointer stays under it.
  const double mid_c = (v[1][3] - 1) / 2, mid_r = (v[1][4] - 1) / 2;
  EXPECT_NEAR(v[1][0] + (300 - mid_c) * v[1][2], v[2][0] + (300 - mid_c) * v[2][2], 1e-3);
  EXPECT_NEAR(v[1][1] - (200 - mid_r) * v[1][2], v[2][1] - (200 - mid_r) * v[2][2], 1e-3);
  // Points spread apart by the zoom: the gap between neighbours in a row.
  auto gap = [](const Picture& p) {
    int x0 = 0, y0 = 0;
    if (!p.find(kRed, x0, y0) && !p.find(kBlue, x0, y0)) return 0;
    int next = x0 + 1;
    while (next < p.width && p.at(next, y0) != p.at(x0, y0)) ++next;
    return next < p.width ? next - x0 : 0;
  };
  ASSERT_GT(gap(a), 0);
  EXPECT_NEAR(gap(c), gap(a) * 1.5625, 1.5);
  // Home gives back the first picture, pixel for pixel.
  EXPECT_EQ(v[3], v[0]);
  EXPECT_EQ(d.pixels, a.pixels);
  // An arrow pans a tenth of the view; minus zooms out about the centre.
  EXPECT_GT(v[4][0], v[3][0]);
  EXPECT_EQ(v[4][1], v[3][1]);
  EXPECT_NEAR(v[5][2], v[4][2] * 1.25, v[4][2] * 1e-9);
  EXPECT_EQ(v[5][0], v[4][0]);
}

TEST(DlviewGui, ClickNamesThePrimitiveAndLayersTurnOff) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  const std::string drawing = write_drawing();
  Result first = run({"dump " + temp("p0.png")}, drawing);
  ASSERT_EQ(first.status, 0) << first.err;
  int x = 0, y = 0;
  ASSERT_TRUE(load(temp("p0.png")).find(kRed, x, y));
  const std::string at = std::to_string(x) + " " + std::to_string(y);
  // A click one pixel off still picks it (the pick looks 3 pixels around).
  const std::string near = std::to_string(x + 1) + " " + std::to_string(y - 1);

  const Result r = run(
      {"status", "click " + near, "status", "dump " + temp("p1.png"), "layer RED off",
       "dump " + temp("p2.png"), "click " + at, "status", "layer RED on", "dump " + temp("p3.png")},
      drawing);
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<std::string> status = statuses(r.out);
  ASSERT_EQ(status.size(), 3u) << r.out;
  EXPECT_NE(status[0].find("primitives 288"), std::string::npos) << status[0];
  EXPECT_NE(status[0].find("complete"), std::string::npos) << status[0];
  EXPECT_EQ(status[0].find("picked"), std::string::npos) << status[0];
  EXPECT_NE(status[1].find("picked Dot bounds"), std::string::npos) << status[1];
  EXPECT_NE(status[1].find("layer RED vertices 1"), std::string::npos) << status[1];
  // With RED off nothing is left under that pixel.
  EXPECT_NE(status[2].find("nothing picked"), std::string::npos) << status[2];

  const Picture p1 = load(temp("p1.png")), p2 = load(temp("p2.png")), p3 = load(temp("p3.png"));
  // The pick is outlined in orange around the point.
  int halo = 0;
  for (int dy = -3; dy <= 3; ++dy)
    for (int dx = -3; dx <= 3; ++dx) halo += p1.at(x + dx, y + dy) == kOrange;
  EXPECT_GE(halo, 8);
  // The layer turned off is gone; the other is untouched; back on, it returns.
  EXPECT_EQ(p2.count(kRed), 0);
  EXPECT_EQ(p2.count(kBlue), 144);
  EXPECT_EQ(p3.count(kRed), 144);
}

// A block MARK (a red line from (0,0) to (10,0)) placed by INSERTs at (0,0)
// and (200,0), and a blue point at (100,50): the marks are nested lists.
std::string write_block_drawing() {
  std::ostringstream d;
  auto pair = [&](int code, const std::string& value) { d << code << "\n" << value << "\n"; };
  pair(0, "SECTION");
  pair(2, "BLOCKS");
  pair(0, "BLOCK");
  pair(8, "0");
  pair(2, "MARK");
  pair(70, "0");
  for (int c : {10, 20, 30}) pair(c, "0");
  pair(0, "LINE");
  pair(8, "0");
  pair(62, "1");
  for (int c : {10, 20, 30}) pair(c, "0");
  pair(11, "10");
  pair(21, "0");
  pair(31, "0");
  pair(0, "ENDBLK");
  pair(8, "0");
  pair(0, "ENDSEC");
  pair(0, "SECTION");
  pair(2, "ENTITIES");
  for (int x : {0, 200}) {
    pair(0, "INSERT");
    pair(8, "MARKS");
    pair(2, "MARK");
    pair(10, std::to_string(x));
    pair(20, "0");
    pair(30, "0");
  }
  pair(0, "POINT");
  pair(8, "BLUE");
  pair(62, "5");
  pair(10, "100");
  pair(20, "50");
  pair(30, "0");
  pair(0, "ENDSEC");
  pair(0, "EOF");
  const std::string path = temp("block.dxf");
  std::ofstream(path) << d.str();
  return path;
}

// Picking a primitive inside a block outlines it where it is drawn and gives
// its bounds in the drawing's world (each insert's own), naming the block;
// Home clears the pick.
TEST(DlviewGui, PickInsideABlockOutlinesItWhereItIsDrawn) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  const std::string drawing = write_block_drawing();
  Result first = run({"dump " + temp("k0.png")}, drawing);
  ASSERT_EQ(first.status, 0) << first.err;
  const Picture k0 = load(temp("k0.png"));
  ASSERT_GT(k0.count(kRed), 4);
  int x0 = 0, y0 = 0;
  ASSERT_TRUE(k0.find(kRed, x0, y0));  // the left end of the left mark
  int x1 = x0 + 1, y1 = y0;
  while (x1 < k0.width && k0.at(x1, y1) == kRed) ++x1;
  while (x1 < k0.width && k0.at(x1, y1) != kRed) ++x1;  // the left end of the right one
  ASSERT_LT(x1, k0.width);
  auto at = [](int x, int y) { return std::to_string(x) + " " + std::to_string(y); };
  const Result r = run({"click " + at(x0, y0), "status", "dump " + temp("k1.png"),
                        "click " + at(x1, y1), "status", "key Home", "status"},
                       drawing);
  ASSERT_EQ(r.status, 0) << r.err;
  const std::vector<std::string> status = statuses(r.out);
  ASSERT_EQ(status.size(), 3u) << r.out;
  EXPECT_NE(status[0].find("picked Polyline bounds"), std::string::npos) << status[0];
  EXPECT_NE(status[0].find("in block MARK"), std::string::npos) << status[0];
  EXPECT_NE(status[1].find("in block"), std::string::npos) << status[1];
  // The two marks are one block's one point, but their bounds differ: each is
  // given where its insert puts it.
  auto bounds = [](const std::string& line) { return line.substr(line.find("bounds")); };
  EXPECT_NE(bounds(status[0]).substr(0, 30), bounds(status[1]).substr(0, 30));
  EXPECT_EQ(status[2].find("picked"), std::string::npos) << status[2];
  // The outline is drawn around the mark picked.
  const Picture k1 = load(temp("k1.png"));
  int halo = 0;
  for (int dy = -3; dy <= 3; ++dy)
    for (int dx = -3; dx <= 3; ++dx) halo += k1.at(x0 + dx, y0 + dy) == kOrange;
  EXPECT_GE(halo, 8);
}

// A pan by whole pixels moves the picture on screen and draws only the strips
// that come into view: the result is the picture a whole draw of the same view
// gives (see below for gradients), on the built-in city (every class, antialiased edges across the
// strips' borders), with and without a clip.
TEST(DlviewGui, APanDrawsOnlyTheStripsAndGivesTheWholePicture) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  // Never by tiles: a slow build foresees the whole draw long enough to
  // tile it when a draw's stretch looked long, and tiles have edges of
  // their own (see ATiledDrawGivesTheWholePicture).
  for (bool clipped : {false, true}) {
    SCOPED_TRACE(clipped);
    std::vector<std::string> script = {"draft never", "pan strips", "tiles never",
                                       "scroll 300 200 up 8"};
    if (clipped)
      script.insert(script.end(), {"tool circle", "drag 300 200 500 200", "tool navigate"});
    script.insert(script.end(),
                  {"drag 300 200 380 240", "status", "dump " + temp("pan.png"), "layer streets off",
                   "layer streets on", "status", "dump " + temp("whole.png")});
    const Result r = run(script, "--blocks 24");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> status = statuses(r.out);
    ASSERT_EQ(status.size(), 2u) << r.out;
    EXPECT_NE(status[0].find("(pan: strips only)"), std::string::npos) << status[0];
    EXPECT_EQ(status[1].find("(pan: strips only)"), std::string::npos) << status[1];
    const Picture pan = load(temp("pan.png")), whole = load(temp("whole.png"));
    ASSERT_GT(pan.width, 0);
    ASSERT_EQ(pan.pixels.size(), whole.pixels.size());
    // Pixel for pixel but for pixman's gradients and meshes (Gouraud lines
    // and strips), whose colours round by where on the surface they are
    // drawn: a picture moved by whole pixels may differ from one drawn there
    // by a few levels on some pixels, never by a shape.
    int differ = 0, worst = 0;
    for (std::size_t i = 0; i < pan.pixels.size(); ++i) {
      const std::uint32_t a = pan.pixels[i], b = whole.pixels[i];
      if (a == b) continue;
      ++differ;
      for (int shift : {0, 8, 16})
        worst = std::max(worst, std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)));
    }
    EXPECT_LE(worst, 16);
    EXPECT_LT(differ, static_cast<int>(pan.pixels.size() / 500));
  }
}

// A view drawn by tiles (each a bounded draw on a surface of its own, as a
// drawing whose tree polls rarely is drawn) gives the picture of a whole
// draw, with and without a clip: what crosses a tile's edge is drawn in each
// tile it reaches, cut to it, and no seam shows.
TEST(DlviewGui, ATiledDrawGivesTheWholePicture) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  for (bool clipped : {false, true}) {
    SCOPED_TRACE(clipped);
    std::vector<std::string> script = {"draft never", "scroll 300 200 up 8"};
    if (clipped)
      script.insert(script.end(), {"tool circle", "drag 300 200 500 200", "tool navigate"});
    script.insert(script.end(), {"tiles always", "layer streets off", "layer streets on", "status",
                                 "dump " + temp("tiles.png"), "tiles never", "layer streets off",
                                 "layer streets on", "status", "dump " + temp("whole.png")});
    const Result r = run(script, "--blocks 24");
    ASSERT_EQ(r.status, 0) << r.err;
    const std::vector<std::string> status = statuses(r.out);
    ASSERT_EQ(status.size(), 2u) << r.out;
    EXPECT_NE(status[0].find("(by tiles)"), std::string::npos) << status[0];
    EXPECT_EQ(status[1].find("(by tiles)"), std::string::npos) << status[1];
    const Picture tiles = load(temp("tiles.png")), whole = load(temp("whole.png"));
    ASSERT_GT(tiles.width, 0);
    ASSERT_EQ(tiles.pixels.size(), whole.pixels.size());
    // Pixel for pixel but for a few levels where colours round by where on
    // the surface they are drawn (pixman's gradients, a Gouraud span
    // stepped from the tile's edge, cairo's coverage of a stroke under a
    // complex clip, which it takes through a mask where the clip crosses
    // the surface and not where it holds the whole tile: 0.1% of the
    // pixels, by 3 to 5 levels, in the circled case),
    // and a few pixels along the tiles' edges, where the library cuts a line
    // to a tile and its cut end is capped there.
    int off = 0, far = 0;
    for (std::size_t i = 0; i < tiles.pixels.size(); ++i) {
      const std::uint32_t a = tiles.pixels[i], b = whole.pixels[i];
      int worst = 0;
      for (int shift : {0, 8, 16})
        worst = std::max(worst, std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)));
      off += worst > 2;
      far += worst > 16;
    }
    EXPECT_LT(off, static_cast<int>(tiles.pixels.size() / 200));
    EXPECT_LT(far, static_cast<int>(tiles.pixels.size() / 10000));
  }
}

TEST(DlviewGui, CircularClipCutsThePicture) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  const std::string drawing = write_drawing();
  Result first = run({"dump " + temp("c0.png")}, drawing);
  ASSERT_EQ(first.status, 0) << first.err;
  int x = 0, y = 0;
  ASSERT_TRUE(load(temp("c0.png")).find(kBlue, x, y));
  // A circle of 40 pixels about a blue point.
  const Result r = run({"tool circle",
                        "drag " + std::to_string(x) + " " + std::to_string(y) + " " +
                            std::to_string(x + 40) + " " + std::to_string(y),
                        "dump " + temp("c1.png"), "status"},
                       drawing);
  ASSERT_EQ(r.status, 0) << r.err;
  const Picture c1 = load(temp("c1.png"));
  EXPECT_EQ(c1.count(kRed), 0);
  int inside = 0, outside = 0;
  for (int row = 0; row < c1.height; ++row)
    for (int col = 0; col < c1.width; ++col)
      if (c1.at(col, row) == kBlue) {
        const double dist = std::hypot(col - x, row - y);
        if (dist < 38) ++inside;
        if (dist > 42) ++outside;
      }
  EXPECT_GT(inside, 4);
  EXPECT_EQ(outside, 0);
}

TEST(DlviewGui, ANewViewShowsADraftThenTheExactPicture) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  const std::string drawing = write_drawing();
  // Drafts forced, so that a small drawing has them: a zoom gives a draft and
  // then the exact picture; a layer turned off keeps the view, so it is drawn
  // exact at once; with drafts off a zoom is drawn exact at once.
  const Result r = run({"draft always", "trace " + temp("f"), "scroll 300 200 up 2",
                        "layer RED off", "draft never", "key minus", "status"},
                       drawing);
  ASSERT_EQ(r.status, 0) << r.err;
  std::vector<std::string> frames;
  std::string status;
  std::istringstream in(r.out);
  for (std::string line; std::getline(in, line);) {
    if (line.rfind("frame ", 0) == 0) frames.push_back(line);
    if (line.rfind("status: ", 0) == 0) status = line;
  }
  ASSERT_EQ(frames.size(), 4u) << r.out;
  EXPECT_EQ(frames[0].rfind("frame 1 draft: ", 0), 0u) << frames[0];
  EXPECT_NE(frames[0].find("| draft"), std::string::npos) << frames[0];
  EXPECT_EQ(frames[1].rfind("frame 2 exact: ", 0), 0u) << frames[1];
  EXPECT_EQ(frames[1].find("| draft"), std::string::npos) << frames[1];
  EXPECT_EQ(frames[2].rfind("frame 3 exact: ", 0), 0u) << frames[2];
  EXPECT_EQ(frames[3].rfind("frame 4 exact: ", 0), 0u) << frames[3];
  EXPECT_EQ(status.find("| draft"), std::string::npos) << status;
  EXPECT_NE(status.find("complete"), std::string::npos) << status;
  // Dots are one pixel in both: the draft of the zoomed view is the exact
  // picture already, and it shows the zoomed view (points further apart).
  const Picture draft = load(temp("f1.png")), exact = load(temp("f2.png"));
  ASSERT_GT(draft.width, 0);
  EXPECT_EQ(draft.pixels, exact.pixels);
  EXPECT_GT(draft.count(kRed), 0);
  EXPECT_LT(draft.count(kRed) + draft.count(kBlue), 288);
  const Picture off = load(temp("f3.png"));
  EXPECT_EQ(off.count(kRed), 0);
  EXPECT_EQ(off.count(kBlue), exact.count(kBlue));
}

// Text reaches the window as glyphs: the list's text painter is pointed at the
// window's renderer for each draw (it drew nothing there once). A blue "HXH"
// much larger than the greeking size: its letters leave white inside their box,
// where a greeked box would be solid.
TEST(DlviewGui, TextIsDrawnAsGlyphs) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  std::ostringstream d;
  auto pair = [&](int code, const std::string& value) { d << code << "\n" << value << "\n"; };
  pair(0, "SECTION");
  pair(2, "ENTITIES");
  for (int corner = 0; corner < 2; ++corner) {
    pair(0, "POINT");
    pair(8, "0");
    pair(10, corner ? "300" : "0");
    pair(20, corner ? "200" : "0");
    pair(30, "0");
  }
  pair(0, "TEXT");
  pair(8, "0");
  pair(62, "5");
  pair(10, "40");
  pair(20, "70");
  pair(30, "0");
  pair(40, "60");
  pair(1, "HXH");
  pair(0, "ENDSEC");
  pair(0, "EOF");
  const std::string path = temp("text.dxf");
  std::ofstream(path) << d.str();
  const std::string png = temp("text.png");
  Result r = run({"dump " + png, "status"}, path);
  ASSERT_EQ(r.status, 0) << r.err;
  EXPECT_EQ(r.out.find("draft"), std::string::npos) << r.out;
  const Picture p = load(png);
  int x0 = p.width, y0 = p.height, x1 = -1, y1 = -1, blue = 0;
  for (int y = 0; y < p.height; ++y)
    for (int x = 0; x < p.width; ++x)
      if (p.at(x, y) == kBlue) {
        ++blue;
        x0 = std::min(x0, x), x1 = std::max(x1, x);
        y0 = std::min(y0, y), y1 = std::max(y1, y);
      }
  ASSERT_GT(blue, 500) << "no text in the window";
  const double box = static_cast<double>(x1 - x0 + 1) * (y1 - y0 + 1);
  EXPECT_LT(blue / box, 0.8) << "a solid box: the text was greeked, not drawn";
}

TEST(DlviewGui, BadInputIsReportedAndClosingMidDrawEndsCleanly) {
  if (!have_xvfb()) GTEST_SKIP() << "xvfb-run is missing: the window is not tested";
  Result missing = run({"status"}, temp("no_such_file.dxf"));
  EXPECT_EQ(missing.status, 2);
  EXPECT_NE(missing.err.find("dlview: "), std::string::npos);
  EXPECT_NE(missing.out.find("dialog: "), std::string::npos) << missing.out;

  Result bad_script = run({"wiggle 1 2"}, "--dots 100");
  EXPECT_EQ(bad_script.status, 2);
  EXPECT_NE(bad_script.err.find("unknown command 'wiggle'"), std::string::npos) << bad_script.err;
  EXPECT_NE(bad_script.out.find("dialog: "), std::string::npos);

  Result bad_layer = run({"layer NOPE off"}, "--dots 100");
  EXPECT_EQ(bad_layer.status, 2);

  // Enough dots that the draw polls; the close is handled inside the draw.
  Result closing = run({"close-while-drawing", "status"}, "--dots 200000");
  EXPECT_EQ(closing.status, 0) << closing.err;
  EXPECT_NE(closing.out.find("closing while drawing"), std::string::npos);
  EXPECT_EQ(closing.out.find("status: "), std::string::npos) << "the script ends with the window";
  EXPECT_EQ(closing.err, "");
}

}  // namespace
