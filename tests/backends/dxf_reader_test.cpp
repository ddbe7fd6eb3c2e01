// The DXF reader on files written by another program (tests/data/dxf, from
// make_dxf.py): what each rule of the file makes of the records, and what the
// mapping draws from them, seen through the recording backend. And the
// honest-input faults: files cut short, bad numbers, directories.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <fstream>
#include <functional>
#include <iterator>
#include <map>
#include <memory>
#include <sstream>
#include <string>

#include "backends/recording/recording.h"
#include "backends/recording/recording_text.h"
#include "displaylist/display_list.h"
#include "drawables/image.h"
#include "drawables/polything.h"
#include "dxf/dxf_loader.h"
#include "dxf/dxf_mapping.h"
#include "tests/support/test_files.h"
#include "tests/support/tree_check.h"
#include "text/text.h"
#include "tools/demo_drawing.h"

namespace DL::dxf {
namespace {

std::string data(const char* name) {
  return std::string(DL_DXF_DATA_DIR) + "/" + name;
}

std::string slurp(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

std::string write(const std::string& name, const std::string& text) {
  const std::string path = test::test_file(name);
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

DxfDrawing load(const std::string& path, const DxfLoadOptions& options = {}) {
  DxfDrawing d;
  std::string error;
  EXPECT_TRUE(load_dxf(path, d, error, options)) << error;
  return d;
}

// A drawing mapped with one drawing unit to 1000 world units and drawn into a
// 400 x 400 recording in which one pixel is one drawing unit, the drawing's
// origin at pixel (200, 200).
struct Drawn {
  explicit Drawn(const DxfDrawing& d, DxfDrawing* consume = nullptr,
                 std::function<ZR_Image(const std::string&)> read_image = {})
      : engine(new RecordingTextEngine), context(engine), renderer(new RecordingRenderer) {
    add_ref(engine);
    add_ref(renderer);
    context.read_image = std::move(read_image);
    Placement p;
    p.scale = 1000;
    p.offset_x = p.offset_y = 200000;
    report = consume ? consume_into_display_list(*consume, p, context, list)
                     : add_to_display_list(d, p, context, list);
    EXPECT_TRUE(test::tree_is_valid(list, nullptr));
    list.set_renderer(renderer);
    list.text_engine = engine;
    add_ref(engine);
    list.set_screen_bounds({{0, 0}, {399, 399}});
    list.set_world_bounds({{0, 0}, {399000, 399000}});
    list.draw_view();
    list.set_renderer(nullptr);
    for (const Drawable* x : test::drawables_in_order(list.root)) drawables.push_back(x);
  }
  ~Drawn() {
    release(renderer);
    release(engine);
  }
  // The polylines' points, back in drawing units.
  std::vector<std::vector<DxfPoint>> polylines() const {
    std::vector<std::vector<DxfPoint>> out;
    auto unit = [](WorldPoint p) {
      return DxfPoint{(p.x - 200000) / 1000.0, (p.y - 200000) / 1000.0};
    };
    for (const Drawable* x : drawables) {
      if (std::string(dlview::class_name(x)) != "Polyline") continue;
      std::vector<DxfPoint>& pts = out.emplace_back();
      WorldVector v;
      for (int i = 0; i + 1 < static_cast<const Polyline*>(x)->count && x->get_vector(i, v); ++i) {
        if (i == 0) pts.push_back(unit(v.start));
        pts.push_back(unit(v.end));
      }
    }
    return out;
  }

  RecordingTextEngine* engine;
  SheetContext context;
  DisplayList list;
  RecordingRenderer* renderer;  // ref-counted, as renderers are
  MappingReport report;
  std::vector<const Drawable*> drawables;
};

TEST(DxfReader, MtextChunksComeBeforeTheLastPart) {
  // Fault: MTEXT over 250 characters lost its first chunks (code 3).
  const DxfDrawing d = load(data("mtext_chunks.dxf"));
  ASSERT_EQ(d.entities.size(), 1u);
  const DxfEntity& e = d.entities[0];
  EXPECT_EQ(e.kind, DxfKind::mtext);
  EXPECT_EQ(e.detail().text.size(), 649u);
  EXPECT_EQ(e.detail().text.rfind("BEGIN word000 word001", 0), 0u);
  EXPECT_NE(e.detail().text.find("word040 word041"), std::string::npos);
  EXPECT_EQ(e.detail().text.substr(e.detail().text.size() - 11), "word079 END");
  Drawn drawn(d);
  EXPECT_EQ(drawn.report.shown[static_cast<int>(DxfKind::mtext)], 1);
  ASSERT_EQ(drawn.engine->calls.empty(), false);
}

TEST(DxfReader, ExtrusionMirrorsArcsPolylinesAndInserts) {
  // Fault: the extrusion direction was dropped, so an arc drawn from below
  // (extrusion 0,0,-1) landed on the other side of the origin.
  const DxfDrawing d = load(data("ocs_mirrored.dxf"));
  ASSERT_EQ(d.entities.size(), 4u);
  auto end_points = [](const DxfEntity& e, DxfPoint& a, DxfPoint& b) {
    const double c = std::cos(e.detail().rotation), s = std::sin(e.detail().rotation);
    auto at = [&](double t) {
      const double x = e.detail().radius_x * std::cos(t), y = e.detail().radius_y * std::sin(t);
      return DxfPoint{e.detail().center.x + c * x - s * y, e.detail().center.y + s * x + c * y};
    };
    a = at(e.detail().start);
    b = at(e.detail().end);
  };
  // Counter-clockwise from (-10, 5) to (-15, 0) about (-10, 0).
  const DxfEntity& arc = d.entities[0];
  ASSERT_EQ(arc.kind, DxfKind::arc);
  DxfPoint a, b;
  end_points(arc, a, b);
  EXPECT_NEAR(arc.detail().center.x, -10, 1e-9);
  EXPECT_NEAR(arc.detail().center.y, 0, 1e-9);
  EXPECT_NEAR(a.x, -10, 1e-9);
  EXPECT_NEAR(a.y, 5, 1e-9);
  EXPECT_NEAR(b.x, -15, 1e-9);
  EXPECT_NEAR(b.y, 0, 1e-9);
  // The plain arc stays as it is.
  const DxfEntity& plain = d.entities[3];
  end_points(plain, a, b);
  EXPECT_NEAR(a.x, 5, 1e-9);
  EXPECT_NEAR(a.y, -20, 1e-9);
  EXPECT_NEAR(b.x, 0, 1e-9);
  EXPECT_NEAR(b.y, -15, 1e-9);

  // Framed by the arcs' sweeps, not their whole circles (a fault: drawings
  // sat in a quarter of the picture), both as read and as drawn.
  EXPECT_NEAR(d.extent.min_x, -23, 1e-9);
  EXPECT_NEAR(d.extent.max_x, 5, 1e-9);
  EXPECT_NEAR(d.extent.min_y, -20, 1e-9);
  EXPECT_NEAR(d.extent.max_y, 5, 1e-9);
  Drawn drawn(d);
  EXPECT_EQ(drawn.report.drawables, 4);
  // (The arcs' own bounds may be a tenth of a radius generous; whole circles
  // would reach 175000 below.)
  EXPECT_NEAR(drawn.report.bounds.min.x, 177000, 600);
  EXPECT_NEAR(drawn.report.bounds.max.x, 205000, 600);
  EXPECT_NEAR(drawn.report.bounds.min.y, 180000, 600);
  EXPECT_NEAR(drawn.report.bounds.max.y, 205000, 600);
  // The arcs reach the renderer centred where CAD draws them.
  std::vector<ZR_DCI_Point> centres;
  for (const RecordedCall& call : drawn.renderer->calls)
    if (call.entry.find("ellip") != std::string::npos) centres.push_back(call.points.at(0));
  ASSERT_EQ(centres.size(), 2u);
  EXPECT_NEAR(centres[0].x, 190, 1);  // -10 + 200
  EXPECT_NEAR(centres[0].y, 200, 1);
  EXPECT_NEAR(centres[1].x, 200, 1);
  EXPECT_NEAR(centres[1].y, 180, 1);
  // The polyline and the INSERT's line, mirrored in x.
  const auto lines = drawn.polylines();
  ASSERT_EQ(lines.size(), 2u);
  ASSERT_EQ(lines[0].size(), 2u);
  EXPECT_NEAR(lines[0][0].x, -1, 1e-3);
  EXPECT_NEAR(lines[0][1].x, -4, 1e-3);
  EXPECT_NEAR(lines[0][1].y, 1, 1e-3);
  ASSERT_EQ(lines[1].size(), 2u);
  EXPECT_NEAR(lines[1][0].x, -20, 1e-3);
  EXPECT_NEAR(lines[1][1].x, -23, 1e-3);
  EXPECT_NEAR(lines[1][1].y, 1, 1e-3);
}

TEST(DxfReader, PolylineWidthsAreFilledOutlines) {
  // Fault: a wide polyline showed as a hairline.
  const DxfDrawing d = load(data("polyline_widths.dxf"));
  ASSERT_EQ(d.entities.size(), 3u);
  // Two segments of width 2; one of 4 to 0; four of 1, the closing one too.
  EXPECT_EQ(d.entities[0].detail().widths, (std::vector<double>{2, 2, 2, 2}));
  EXPECT_EQ(d.entities[1].detail().widths, (std::vector<double>{4, 0}));
  EXPECT_EQ(d.entities[2].detail().widths, (std::vector<double>(8, 1.0)));
  Drawn drawn(d);
  std::vector<std::string> strips;
  for (const RecordedCall& call : drawn.renderer->calls) strips.push_back(call.to_string());
  ASSERT_EQ(strips.size(), 3u);
  for (const std::string& s : strips) EXPECT_NE(s.find("triangle"), std::string::npos) << s;
  // A quad a segment, its corners half the width off the centre line.
  const auto& first = drawn.renderer->calls[0].points;
  ASSERT_EQ(first.size(), 8u);
  EXPECT_NEAR(first[0].x, 200, 1);  // (0, 1)
  EXPECT_NEAR(first[0].y, 201, 1);
  EXPECT_NEAR(first[1].y, 199, 1);  // (0, -1)
  EXPECT_NEAR(first[6].x, 209, 1);  // (9, 10): the second segment's far end, left
  EXPECT_NEAR(first[6].y, 210, 1);
  EXPECT_NEAR(first[7].x, 211, 1);
  const auto& arrow = drawn.renderer->calls[1].points;
  ASSERT_EQ(arrow.size(), 4u);
  EXPECT_NEAR(arrow[0].y, 202, 1);  // 4 wide at the start
  EXPECT_NEAR(arrow[1].y, 198, 1);
  EXPECT_NEAR(arrow[2].x, 230, 1);  // a point at the end
  EXPECT_NEAR(arrow[2].y, arrow[3].y, 1);
  EXPECT_EQ(drawn.renderer->calls[2].points.size(), 16u);  // closed: four quads
}

TEST(DxfReader, SplinesLeadersAndDimensionsAreDrawn) {
  // Fault: SPLINE, LEADER and DIMENSION were skipped (a wavy outline showed
  // as its frame only).
  const DxfDrawing d = load(data("spline_leader_dimension.dxf"));
  ASSERT_EQ(d.entities.size(), 5u);
  EXPECT_TRUE(d.skipped.empty());
  const double tolerance = 90.0 / 16384;  // the extent's larger side over 16384
  // The cubic: ends on its end control points, (15, 15) at its middle.
  const DxfEntity& cubic = d.entities[0];
  ASSERT_EQ(cubic.kind, DxfKind::spline);
  EXPECT_GT(cubic.points.size(), 8u);
  EXPECT_NEAR(cubic.points.front().x, 0, 1e-9);
  EXPECT_NEAR(cubic.points.back().x, 30, 1e-9);
  double top = 0;
  for (const DxfPoint& p : cubic.points) top = std::max(top, p.y);
  EXPECT_NEAR(top, 15, tolerance);
  EXPECT_EQ(cubic.detail().control.size(), 4u);
  // The rational quadratic is an exact quarter circle.
  const DxfEntity& quarter = d.entities[1];
  EXPECT_GT(quarter.points.size(), 8u);
  for (const DxfPoint& p : quarter.points) EXPECT_NEAR(std::hypot(p.x - 50, p.y), 10, 1e-9);
  // The fit-point curve passes through its points.
  const DxfEntity& fit = d.entities[2];
  bool through = false;
  for (const DxfPoint& p : fit.points) through = through || std::hypot(p.x - 10, p.y + 10) < 1e-9;
  EXPECT_TRUE(through);
  EXPECT_EQ(d.entities[3].kind, DxfKind::leader);
  EXPECT_EQ(d.entities[3].points.size(), 3u);
  EXPECT_EQ(d.entities[3].detail().height, 2.5);  // its arrow: $DIMASZ 2.5 x $DIMSCALE 1
  const DxfEntity& dimension = d.entities[4];
  ASSERT_EQ(dimension.kind, DxfKind::dimension);
  EXPECT_EQ(dimension.detail().block.rfind("*D", 0), 0u);

  Drawn drawn(d);
  for (DxfKind k : {DxfKind::spline, DxfKind::leader, DxfKind::dimension})
    EXPECT_EQ(drawn.report.not_shown[static_cast<int>(k)], 0) << dxf_kind_name(k);
  EXPECT_EQ(drawn.report.shown[static_cast<int>(DxfKind::spline)], 3);
  EXPECT_GE(drawn.report.block_lists, 1);  // the dimension's block
  // The leader's arrow head: a triangle with its tip on the first vertex
  // (40, -20), 2.5 long back towards (45, -15).
  bool arrow = false;
  for (const RecordedCall& call : drawn.renderer->calls) {
    // (The dimension's arrows are triangles too.)
    if (call.points.size() != 3 || call.entry.find("triangle") == std::string::npos ||
        std::abs(call.points[0].x - 240) > 1 || std::abs(call.points[0].y - 180) > 1)
      continue;
    arrow = true;
    const double back_x = (call.points[1].x + call.points[2].x) / 2.0;
    EXPECT_NEAR(back_x, 240 + 2.5 / std::sqrt(2.0), 1);
  }
  EXPECT_TRUE(arrow);
  // The dimension line at y 30 and its text reach the list's bounds.
  EXPECT_GE(drawn.report.bounds.max.y, 230000 - 1000);
}

// How far p lies from the polyline `line`.
double distance_to(const std::vector<DxfPoint>& line, DxfPoint p) {
  double best = INFINITY;
  for (std::size_t i = 0; i + 1 < line.size(); ++i) {
    const DxfPoint a = line[i], b = line[i + 1];
    const double vx = b.x - a.x, vy = b.y - a.y, len2 = vx * vx + vy * vy;
    const double u =
        len2 > 0 ? std::clamp(((p.x - a.x) * vx + (p.y - a.y) * vy) / len2, 0.0, 1.0) : 0.0;
    best = std::min(best, std::hypot(p.x - a.x - u * vx, p.y - a.y - u * vy));
  }
  return best;
}

TEST(DxfReader, FitPointSplinesAreTheCubicCadInterpolates) {
  // Fault: a fit-point spline was drawn as a Catmull-Rom curve, 14% of its
  // pixels away from CAD's (and ezdxf's) interpolating cubic.
  // The expected points are the curves' points halfway along each span's
  // chord-length parameter, computed apart from this code: scipy's
  // CubicSpline over chord lengths, natural and periodic; ezdxf's
  // fit_points_to_cad_cv (and scipy, clamped, agreeing) with the tangents.
  struct Case {
    std::vector<DxfPoint> fit;
    std::vector<DxfPoint> halfway;
  };
  const Case natural{
      {{0, 0}, {10, 8}, {25, 2}, {35, 12}, {50, 5}},
      {{4.743149, 5.582467}, {17.662568, 4.523492}, {30.093741, 6.614209}, {42.02863, 11.115586}}};
  const Case tangents{{{0, -20}, {15, -12}, {30, -22}, {45, -15}},
                      {{7.123914, -13.931564}, {22.441306, -18.00669}, {37.920088, -16.663532}}};
  const Case periodic{{{0, 0}, {20, 0}, {20, 10}, {0, 10}},
                      {{10, -4.285714}, {21.5, 5}, {10, 14.285714}, {-1.5, 5}}};

  const DxfDrawing open = load(data("spline_fit_points.dxf"));
  ASSERT_EQ(open.entities.size(), 2u);
  // Read as cubic B-splines of one Bezier piece a span.
  EXPECT_EQ(open.entities[0].detail().degree, 3);
  EXPECT_EQ(open.entities[0].detail().control.size(), 13u);
  EXPECT_EQ(open.entities[0].detail().knots.size(), 17u);
  const DxfDrawing closed = load(data("spline_fit_closed.dxf"));
  ASSERT_EQ(closed.entities.size(), 1u);
  EXPECT_TRUE(closed.entities[0].closed);

  // The points as read and flattened, and as the recording backend drew them
  // (in thousandths of a unit).
  const Drawn drawn_open(open), drawn_closed(closed);
  const std::vector<std::vector<DxfPoint>> lines = drawn_open.polylines();
  const std::vector<std::vector<DxfPoint>> loops = drawn_closed.polylines();
  ASSERT_EQ(lines.size(), 2u);
  ASSERT_EQ(loops.size(), 1u);
  const struct {
    const Case& expected;
    const DxfEntity& entity;
    const std::vector<DxfPoint>& drawn;
    double side;  // the drawing's larger side
  } checks[] = {{natural, open.entities[0], lines[0], 50},
                {tangents, open.entities[1], lines[1], 50},
                {periodic, closed.entities[0], loops[0], 23}};
  for (const auto& c : checks) {
    // The flattening's midpoint test, with room for the rounding of the
    // expected values.
    const double tolerance = 2 * c.side / 16384 + 1e-6;
    for (const DxfPoint& f : c.expected.fit) {
      EXPECT_LT(distance_to(c.entity.points, f), 1e-9) << f.x << "," << f.y;
      EXPECT_LT(distance_to(c.drawn, f), 0.002) << f.x << "," << f.y;
    }
    for (const DxfPoint& h : c.expected.halfway) {
      EXPECT_LT(distance_to(c.entity.points, h), tolerance) << h.x << "," << h.y;
      EXPECT_LT(distance_to(c.drawn, h), tolerance + 0.002) << h.x << "," << h.y;
    }
  }
  // The tangents: the curve leaves (0, -20) along (1, 1) and reaches
  // (45, -15) along (1, -1), within the turn of one chord.
  const std::vector<DxfPoint>& t = open.entities[1].points;
  ASSERT_GE(t.size(), 4u);
  EXPECT_NEAR(std::atan2(t[1].y - t[0].y, t[1].x - t[0].x), M_PI / 4, 0.05);
  const std::size_t e = t.size() - 1;
  EXPECT_NEAR(std::atan2(t[e].y - t[e - 1].y, t[e].x - t[e - 1].x), -M_PI / 4, 0.05);
  // The closed curve ends where it starts and leaves (0, 0) in the direction
  // it arrives: no corner where it closes.
  const std::vector<DxfPoint>& l = closed.entities[0].points;
  ASSERT_GE(l.size(), 4u);
  EXPECT_NEAR(l.back().x, l.front().x, 1e-12);
  EXPECT_NEAR(l.back().y, l.front().y, 1e-12);
  const double leave = std::atan2(l[1].y - l[0].y, l[1].x - l[0].x);
  const std::size_t last = l.size() - 1;
  const double arrive = std::atan2(l[last].y - l[last - 1].y, l[last].x - l[last - 1].x);
  EXPECT_NEAR(leave, arrive, 0.05);
}

TEST(DxfReader, MtextWrapsAtItsWidthAndAlignedTextFitsItsPoints) {
  // Fault: a paragraph in a 40-unit box ran on one line.
  const DxfDrawing d = load(data("text_layout.dxf"));
  ASSERT_EQ(d.entities.size(), 2u);
  EXPECT_EQ(d.entities[0].detail().box_width, 40);
  Drawn drawn(d);
  // The recording engine sets 0.5 em a character: 2.5 / 0.73 high, 40 wide
  // holds 23 characters a line; the paragraph's 112 take 5 lines or more.
  std::vector<WorldBounds> lines;
  WorldBounds aligned = WorldBounds::empty();
  for (const Drawable* x : drawn.drawables) {
    WorldBounds b = WorldBounds::empty();
    x->add_bounds(b);
    if (b.max.y < 200000 - 30000)
      aligned = b;
    else
      lines.push_back(b);
  }
  EXPECT_GE(lines.size(), 5u);
  for (const WorldBounds& b : lines) {
    EXPECT_GE(b.min.x, 200000 - 10);
    EXPECT_LE(b.max.x, 240000 + 10);
  }
  // "ALIGNED" spans (0, -40) to (30, -40), whatever its height said.
  ASSERT_TRUE(aligned.is_valid());
  EXPECT_NEAR(aligned.min.x, 200000, 10);
  EXPECT_NEAR(aligned.max.x, 230000, 10);
}

TEST(DxfReader, MtextInlineCodesStyleTheirRuns) {
  // Fault: MTEXT's colours, fonts, heights, widths, slants, tracking,
  // underlines and stacks were dropped, leaving plain text.
  const DxfDrawing d = load(data("mtext_inline_codes.dxf"));
  ASSERT_EQ(d.entities.size(), 1u);
  Drawn drawn(d);
  // The recording engine: a character advances 0.6 em, its glyph a box 0.5
  // em wide and 0.7 em high. The em of 2.5 high capitals is 2.5 / 0.73.
  const double em = 2.5 / 0.73;
  std::map<std::string, const Text*> texts;  // by their strings, all distinct here
  std::vector<const Polygon*> glyphs;
  std::vector<std::vector<DxfPoint>> strokes = drawn.polylines();
  for (const Drawable* x : drawn.drawables) {
    const std::string name = dlview::class_name(x);
    if (name == "Text") {
      const auto* t = static_cast<const Text*>(x);
      std::string s;
      for (int i = 0; i < t->text->length(); ++i)
        s += static_cast<char>(t->text->unicodeCharacter(i));
      texts[s] = t;
    } else if (name == "Polygon") {
      glyphs.push_back(static_cast<const Polygon*>(x));
    }
  }
  auto x_of = [&](const char* s) { return (texts.at(s)->position.x - 200000) / 1000; };
  auto y_of = [&](const char* s) { return (texts.at(s)->position.y - 200000) / 1000; };
  auto em_of = [&](const char* s) { return texts.at(s)->text_height / 1000; };
  for (const char* s :
       {"A", "B", "C", "D", "E", "F", "Under", "Over", "1", "2", "3", "4", "5", "/", "6"})
    ASSERT_EQ(texts.count(s), 1u) << s;

  // Line 1 stands on one baseline, the tallest capitals (D, 5) below the
  // top: A plain; B red by index; C blue by true colour; D 5 high; E half
  // the height, black again once C's braces closed.
  for (const char* s : {"A", "B", "C", "D", "E"}) EXPECT_NEAR(y_of(s), -5, 1e-3) << s;
  EXPECT_EQ(texts["A"]->color.rgb(), 0x000000u);
  EXPECT_EQ(texts["B"]->color.rgb(), 0xff0000u);
  EXPECT_EQ(texts["C"]->color.rgb(), 0x0000ffu);
  EXPECT_EQ(texts["E"]->color.rgb(), 0x000000u);
  EXPECT_NEAR(em_of("A"), em, 1e-3);
  EXPECT_NEAR(em_of("D"), 2 * em, 1e-3);
  EXPECT_NEAR(em_of("E"), em / 2, 1e-3);
  EXPECT_NEAR(x_of("B"), 0.6 * em, 1e-3);
  EXPECT_NEAR(x_of("D"), 1.8 * em, 1e-3);
  EXPECT_NEAR(x_of("E"), 1.8 * em + 0.6 * 2 * em, 1e-3);

  // Line 2, 2/3 of 5 below line 1 and 2.5 more: F in bold italic Arial, then
  // glyph outlines, G G twice as wide, H slanted 20 degrees, I I tracked.
  const double line2 = -5 - (5 * 2.0 / 3 + 2.5);
  EXPECT_NEAR(y_of("F"), line2, 1e-3);
  EXPECT_EQ(texts["F"]->font->get()->name.text(), "Arial:bold:italic");
  EXPECT_EQ(texts["A"]->font->get(), drawn.context.font().get());
  ASSERT_EQ(glyphs.size(), 5u);
  std::vector<WorldBounds> box;
  for (const Polygon* g : glyphs) {
    WorldBounds b = WorldBounds::empty();
    g->add_bounds(b);
    box.push_back(b);
    EXPECT_NEAR((b.min.y - 200000) / 1000.0, line2, 2e-3);
  }
  auto left = [&](int i) { return (box[i].min.x - 200000) / 1000.0; };
  EXPECT_NEAR(left(0), 0.6 * em, 2e-3);                           // G
  EXPECT_NEAR((box[0].max.x - box[0].min.x) / 1000.0, em, 2e-3);  // 0.5 em times 2
  EXPECT_NEAR(left(1), 0.6 * em + 1.2 * em, 2e-3);                // G, 1.2 em on
  // H: its top edge starts 0.7 em tan 20 degrees right of its foot.
  const Polygon* h = glyphs[2];
  ASSERT_EQ(h->count, 5);
  EXPECT_NEAR((h->points[0].x - 200000) / 1000.0, 3.0 * em, 2e-3);
  EXPECT_NEAR((h->points[3].x - h->points[0].x) / 1000.0, 0.7 * em * std::tan(M_PI / 9), 2e-3);
  EXPECT_NEAR(left(3), 3.6 * em, 2e-3);                // I
  EXPECT_NEAR(left(4) - left(3), 2 * 0.6 * em, 2e-3);  // I, twice the advance on

  // Line 3, 2/3 of 2.5 below line 2 and the stacks' reach (1.25 times 2.5)
  // more: "Under" underlined, "Over" overlined, the stacks at 0.7 of the
  // height.
  const double line3 = line2 - (2.5 * 2.0 / 3 + 1.25 * 2.5);
  EXPECT_NEAR(y_of("Under"), line3, 1e-3);
  EXPECT_NEAR(x_of("Over"), 3.6 * em, 1e-3);
  auto has_stroke = [&](double x0, double x1, double y) {
    for (const std::vector<DxfPoint>& s : strokes)
      if (s.size() == 2 && std::abs(s[0].x - x0) < 2e-3 && std::abs(s[1].x - x1) < 2e-3 &&
          std::abs(s[0].y - y) < 2e-3 && std::abs(s[1].y - y) < 2e-3)
        return true;
    return false;
  };
  EXPECT_TRUE(has_stroke(0, 3 * em, line3 - 0.5));               // under "Under"
  EXPECT_TRUE(has_stroke(3.6 * em, 6 * em, line3 + 1.2 * 2.5));  // over "Over"
  const double stack = 6.6 * em, part = 0.7 * 0.6 * em;          // after "Over "
  // 1/2: "1" over a bar over "2"; 3^4 left-aligned, no bar; 5#6 side by side.
  EXPECT_NEAR(em_of("1"), 0.7 * em, 1e-3);
  EXPECT_NEAR(x_of("1"), stack, 1e-3);
  EXPECT_NEAR(y_of("1"), line3 + 0.55 * 2.5, 1e-3);
  EXPECT_NEAR(y_of("2"), line3 - 0.45 * 2.5, 1e-3);
  EXPECT_TRUE(has_stroke(stack, stack + part, line3 + 0.4 * 2.5));
  EXPECT_NEAR(x_of("3"), stack + part, 1e-3);
  EXPECT_NEAR(x_of("4"), stack + part, 1e-3);
  EXPECT_NEAR(x_of("5"), stack + 2 * part, 1e-3);
  EXPECT_NEAR(y_of("5"), line3 + 0.45 * 2.5, 1e-3);
  EXPECT_NEAR(x_of("/"), stack + 3 * part, 1e-3);
  EXPECT_NEAR(em_of("/"), em, 1e-3);
  EXPECT_NEAR(x_of("6"), stack + 3 * part + 0.6 * em, 1e-3);
  EXPECT_NEAR(y_of("6"), line3, 1e-3);

  // Hostile codes draw within bounds: heights past 1000 times the entity's,
  // widths past 1000, slants past 85 degrees, colours out of range and
  // empty stacks leave the style as it was (a run of 1e300 units high would
  // not fit a float, a fault the sanitizer build would report).
  const std::string hostile =
      "0\nSECTION\n2\nENTITIES\n0\nMTEXT\n10\n0\n20\n0\n40\n2.5\n1\n"
      "{\\H1000x;{\\H1000x;{\\H1e300;X}}}\\W1e308;\\T0;\\Q89;Y\\C-1;\\c99999999;Z"
      "\\S;\\S^;\\U+;{{{{\n0\nENDSEC\n0\nEOF\n";
  const DxfDrawing bad = load(write("mtext-hostile.dxf", hostile));
  ASSERT_EQ(bad.entities.size(), 1u);
  Drawn hostile_drawn(bad);
  double tallest = 0;
  for (const Drawable* x : hostile_drawn.drawables)
    if (std::string(dlview::class_name(x)) == "Text")
      tallest = std::max(tallest, static_cast<const Text*>(x)->text_height / 1000);
  EXPECT_NEAR(tallest, 1000 * em, 1e-6 * em);  // X, at the first \H alone

  // The codes' text alone, and codes the reader passes over: a height that
  // is not positive, an unknown colour, a brace that closes nothing, an
  // unterminated code.
  EXPECT_EQ(mtext_lines("{\\H-2;x}{\\C999;y}}z\\S1^ 2;\\Pa\\~b\\H3"),
            (std::vector<std::string>{"xyz1/2", "a b"}));
}

TEST(DxfReader, TextWidthFactorObliqueAndFitShapeTheGlyphs) {
  // Fault: width factor, oblique angle and "fit" were read past: a squeezed,
  // slanted or fitted TEXT showed as plain text.
  const DxfDrawing d = load(data("text_width_oblique.dxf"));
  ASSERT_EQ(d.entities.size(), 4u);
  EXPECT_EQ(d.entities[1].detail().width_factor, 2);
  EXPECT_NEAR(d.entities[2].detail().oblique, 30 * M_PI / 180, 1e-12);
  EXPECT_EQ(d.entities[3].detail().halign, 5);
  Drawn drawn(d);
  // The recording engine's glyph is a box 0.5 em wide and 0.7 em high, its
  // advance 0.6 em; the em is 2 / 0.73 here.
  const double em = 2 / 0.73;
  int texts = 0;
  std::map<int, std::vector<WorldBounds>> glyphs;  // by the baseline's y
  std::map<int, std::vector<std::vector<DxfPoint>>> shapes;
  for (const Drawable* x : drawn.drawables) {
    const std::string name = dlview::class_name(x);
    if (name == "Text") {
      ++texts;
      continue;
    }
    ASSERT_EQ(name, "Polygon");
    WorldBounds b = WorldBounds::empty();
    x->add_bounds(b);
    const int row = static_cast<int>(std::lround((b.min.y - 200000) / 1000.0));
    glyphs[row].push_back(b);
    std::vector<DxfPoint>& pts = shapes[row].emplace_back();
    const auto* p = static_cast<const Polygon*>(x);
    for (int i = 0; i < p->count; ++i)
      pts.push_back({(p->points[i].x - 200000) / 1000.0, (p->points[i].y - 200000) / 1000.0});
  }
  EXPECT_EQ(texts, 1);  // "PLAIN" stays a Text
  // "WIDE": four glyphs twice as wide, the last ending at 2.3 em times 2.
  ASSERT_EQ(glyphs[0].size(), 4u);
  EXPECT_NEAR(glyphs[0].back().max.x, 200000 + 2.3 * em * 2 * 1000, 2);
  EXPECT_NEAR(glyphs[0].front().max.x - glyphs[0].front().min.x, 0.5 * em * 2 * 1000, 2);
  EXPECT_NEAR(glyphs[0].front().max.y, 200000 + 0.7 * em * 1000, 2);
  // "SLANT": the first glyph's top edge starts 0.7 em tan 30 degrees forward
  // of its foot; its bottom edge stays at 0.
  ASSERT_EQ(shapes[-10].size(), 5u);
  const std::vector<DxfPoint>& s = shapes[-10].front();
  ASSERT_EQ(s.size(), 5u);  // a closed box
  EXPECT_NEAR(s[0].x, 0, 0.002);
  EXPECT_NEAR(s[3].x, 0.7 * em * std::tan(M_PI / 6), 0.002);
  EXPECT_NEAR(s[3].y, -10 + 0.7 * em, 0.002);
  // "FIT": its advances span 40 units, so its last glyph ends 1.7 / 1.8 of
  // the way, at its own height.
  ASSERT_EQ(glyphs[-20].size(), 3u);
  EXPECT_NEAR(glyphs[-20].front().min.x, 200000, 2);
  EXPECT_NEAR(glyphs[-20].back().max.x, 200000 + 40000 * 1.7 / 1.8, 2);
  EXPECT_NEAR(glyphs[-20].back().max.y, 200000 - 20000 + 0.7 * em * 1000, 2);
}

TEST(DxfReader, TextTakesItsStylesWidthFactorAndObliqueUnlessItGivesItsOwn) {
  // Fault: the STYLE table was read past, so a TEXT in a narrow or slanted
  // style showed plain.
  const DxfDrawing d = load(data("text_style_defaults.dxf"));
  ASSERT_EQ(d.entities.size(), 3u);
  EXPECT_EQ(d.entities[0].detail().width_factor, 1);  // PLAIN, in STANDARD
  EXPECT_EQ(d.entities[0].detail().oblique, 0);
  EXPECT_EQ(d.entities[1].detail().width_factor, 0.5);  // DEFAULTS: the style's
  EXPECT_NEAR(d.entities[1].detail().oblique, 15 * M_PI / 180, 1e-12);
  EXPECT_EQ(d.entities[2].detail().width_factor, 2);  // OWN: its own width
  EXPECT_NEAR(d.entities[2].detail().oblique, 15 * M_PI / 180, 1e-12);
  Drawn drawn(d);
  int texts = 0, glyphs = 0;
  for (const Drawable* x : drawn.drawables) {
    const std::string name = dlview::class_name(x);
    texts += name == "Text";
    glyphs += name == "Polygon";
  }
  EXPECT_EQ(texts, 1);                                         // "PLAIN"
  EXPECT_EQ(glyphs, static_cast<int>(strlen("DEFAULTSOWN")));  // a Polygon a glyph
}

TEST(DxfReader, LineweightsDrawAtTheirDeviceWidths) {
  // Fault: every line was one pixel wide whatever its lineweight.
  DxfDrawing d = load(data("lineweights.dxf"));
  ASSERT_EQ(d.entities.size(), 5u);
  EXPECT_TRUE(d.header.lwdisplay);
  EXPECT_EQ(d.entities[0].line_weight, kDefaultLineWeight);
  EXPECT_EQ(d.entities[1].line_weight, 100);
  EXPECT_EQ(d.entities[2].line_weight, 50);  // BYLAYER on "HEAVY"
  EXPECT_EQ(d.entities[4].line_weight, 211);
  EXPECT_EQ(d.blocks.at("W").entities[0].line_weight, kByBlockLineWeight);
  // The widths each line reaches the renderer with, by its screen y (the
  // drawing's y plus 200); the circle's by its centre.
  auto widths = [](const Drawn& drawn) {
    std::map<int, int> out;
    for (const RecordedCall& call : drawn.renderer->calls) {
      if (call.points.size() == 2 && call.points[0].y == call.points[1].y)
        out[call.points[0].y - 200] = call.line_weight;
      if (call.entry.find("ellipse") != std::string::npos ||
          call.entry.find("arc") != std::string::npos)
        out[-1] = call.line_weight;
    }
    return out;
  };
  {
    Drawn drawn(d);
    // At 96 units an inch: default 0.25 mm 1, 1 mm 4, 0.5 mm 2, the INSERT's
    // 2.11 mm 8 on its BYBLOCK line, the circle's own 0.3 mm 1.
    const std::map<int, int> w = widths(drawn);
    EXPECT_EQ(w, (std::map<int, int>{{-1, 1}, {0, 1}, {10, 4}, {20, 2}, {30, 1}, {40, 8}}));
    // A run's region is grown so its clip keeps wide lines whole; the view is
    // still framed by what is drawn (fault: framed by the grown regions).
    EXPECT_EQ(drawn.report.bounds.min.x, 200000);
    EXPECT_EQ(drawn.report.bounds.max.x, 300000);
    EXPECT_EQ(drawn.report.bounds.min.y, 200000);
    // Runs of one width are nested lists in file order: line, run, run, line,
    // the INSERT's run (holding the INSERT's block list).
    std::vector<std::string> classes;
    for (const Drawable* x : drawn.drawables) classes.push_back(dlview::class_name(x));
    EXPECT_EQ(classes,
              (std::vector<std::string>{"Polyline", "DrawableDisplayList", "DrawableDisplayList",
                                        "Polyline", "DrawableDisplayList"}));
  }
  // $LWDISPLAY 0: CAD shows every line thin on screen, and so does the mapping.
  d.header.lwdisplay = false;
  Drawn thin(d);
  for (const auto& [y, weight] : widths(thin)) EXPECT_EQ(weight, 1) << y;
  // No runs: the four lines and the INSERT's block list.
  ASSERT_EQ(thin.drawables.size(), 5u);
  for (int i = 0; i < 4; ++i)
    EXPECT_EQ(std::string(dlview::class_name(thin.drawables[i])), "Polyline");
}

TEST(DxfReader, LineweightsFinerThanAUnitDrawLighter) {
  // Fault: a 0.13 mm line drew as heavy as a 0.25 mm one (one unit, full
  // ink), twice its weight at 96 units an inch.
  DxfDrawing d = load(data("lineweights_fine.dxf"));
  ASSERT_EQ(d.entities.size(), 7u);
  // Each drawable's colour by its kind and place: lines by their y.
  auto colours = [](const Drawn& drawn) {
    std::map<std::string, ZR_RGB32> out;
    for (const Drawable* x : drawn.drawables) {
      const std::string name = dlview::class_name(x);
      WorldBounds b = WorldBounds::empty();
      x->add_bounds(b);
      const std::string key =
          name == "Polyline" ? "line " + std::to_string((b.min.y - 200000) / 1000) : name;
      out[key] = x->color.rgb();
    }
    return out;
  };
  {
    Drawn drawn(d);
    // 0.13 mm is 0.49 units: 49% of the red; 0.20 mm 76%; 0.05 mm 19%,
    // held at a quarter; 0.25 mm and the hairline full; the circle as its
    // line; the text untouched.
    EXPECT_EQ(colours(drawn), (std::map<std::string, ZR_RGB32>{{"line 0", 0xff8282},
                                                               {"line 10", 0xff3e3e},
                                                               {"line 20", 0xbfbfbf},
                                                               {"line 30", 0x000000},
                                                               {"line 40", 0x000000},
                                                               {"Ellipse", 0xff8282},
                                                               {"Text", 0xff0000}}));
    // All one unit wide: no run of another width.
    for (const RecordedCall& call : drawn.renderer->calls) EXPECT_EQ(call.line_weight, 1);
  }
  // $LWDISPLAY 0: thin lines at full ink, as CAD's screen shows them.
  d.header.lwdisplay = false;
  Drawn thin(d);
  const std::map<std::string, ZR_RGB32> full = colours(thin);
  EXPECT_EQ(full.at("line 0"), 0xff0000u);
  EXPECT_EQ(full.at("line 20"), 0x000000u);
  EXPECT_EQ(full.at("Ellipse"), 0xff0000u);
}

TEST(DxfReader, PatternedHatchesDrawTheirLinesInsideTheBoundary) {
  // Fault: a section hatch showed as an empty boundary (it was skipped).
  const DxfDrawing d = load(data("hatch_pattern.dxf"));
  ASSERT_EQ(d.entities.size(), 2u);
  EXPECT_TRUE(d.skipped.empty());
  ASSERT_EQ(d.entities[0].detail().pattern.size(), 1u);
  EXPECT_NEAR(d.entities[0].detail().pattern[0].angle, M_PI / 4, 1e-9);
  Drawn drawn(d);
  EXPECT_EQ(drawn.report.shown[static_cast<int>(DxfKind::hatch)], 2);
  int left = 0, right = 0;
  std::vector<double> right_lengths;
  for (const auto& line : drawn.polylines()) {
    ASSERT_EQ(line.size(), 2u);
    const DxfPoint a = line[0], b = line[1];
    const DxfPoint mid{(a.x + b.x) / 2, (a.y + b.y) / 2};
    EXPECT_NEAR(std::atan2(b.y - a.y, b.x - a.x), M_PI / 4, 1e-3);  // ANSI31 and 33: 45 degrees
    if (mid.x < 45) {
      ++left;
      // Inside the square, outside the island.
      EXPECT_GE(std::min(a.x, a.y), -1e-3);
      EXPECT_LE(std::max(b.x, b.y), 40 + 1e-3);
      EXPECT_FALSE(mid.x > 10.01 && mid.x < 29.99 && mid.y > 10.01 && mid.y < 29.99);
    } else {
      ++right;
      right_lengths.push_back(std::hypot(b.x - a.x, b.y - a.y));
    }
  }
  EXPECT_GT(left, 10);
  EXPECT_GT(right, 10);
  // ANSI33 dashes its second family: short pieces among the long lines.
  const auto [shortest, longest] = std::minmax_element(right_lengths.begin(), right_lengths.end());
  EXPECT_LT(*shortest * 4, *longest);
}

TEST(DxfReader, LineTypesDashTheirEntities) {
  // Fault: dashed and centre lines showed continuous.
  const DxfDrawing d = load(data("line_types.dxf"));
  ASSERT_EQ(d.entities.size(), 5u);
  EXPECT_EQ(d.header.ltscale, 2);
  EXPECT_NE(d.entities[0].line_type, 0);                            // DASHED
  EXPECT_NE(d.entities[1].line_type, 0);                            // BYLAYER: DASHDOT
  EXPECT_EQ(d.entities[2].detail().line_type_scale, 4);             // its own scale
  EXPECT_EQ(d.line_type_names[d.entities[3].line_type], "CENTER");  // the circle
  EXPECT_EQ(d.entities[4].line_type, 0);
  Drawn drawn(d);
  std::map<int, std::vector<double>> dashes;  // y -> lengths of the pieces
  for (const auto& line : drawn.polylines()) {
    const DxfPoint a = line.front(), b = line.back();
    if (a.y == b.y) dashes[static_cast<int>(std::lround(a.y))].push_back(b.x - a.x);
  }
  // DASHED: 1.27 dash, 0.254 gap in the table, times $LTSCALE 2: 39 whole
  // periods of 3.048 in 100 and a piece of the 40th.
  ASSERT_EQ(dashes[0].size(), 33u);
  EXPECT_NEAR(dashes[0][0], 2.54, 1e-3);
  EXPECT_NEAR(dashes[0][1], 2.54, 1e-3);
  EXPECT_GT(dashes[10].size(), 10u);  // DASHDOT's dashes, and its dots:
  int dots = 0;
  for (const Drawable* x : drawn.drawables) dots += std::string(dlview::class_name(x)) == "Dot";
  EXPECT_GE(static_cast<std::size_t>(dots), dashes[10].size() - 1);
  ASSERT_FALSE(dashes[20].empty());
  EXPECT_NEAR(dashes[20][0], 2.54 * 4, 1e-3);
  ASSERT_EQ(dashes[60].size(), 1u);  // continuous
  EXPECT_NEAR(dashes[60][0], 100, 1e-3);
  EXPECT_GT(drawn.report.drawables, 40);
}

TEST(DxfReader, LineTypesDashWidePolylines) {
  // Fault: a dashed polyline with widths was drawn as one continuous strip.
  const DxfDrawing d = load(data("wide_line_types.dxf"));
  ASSERT_EQ(d.entities.size(), 2u);
  Drawn drawn(d);
  // Each dash a filled strip of one quad, by the y of its middle.
  std::map<int, std::vector<WorldBounds>> pieces;
  for (const Drawable* x : drawn.drawables) {
    ASSERT_EQ(std::string(dlview::class_name(x)), "PolytriangleWithNoBorder");
    WorldBounds b = WorldBounds::empty();
    x->add_bounds(b);
    pieces[static_cast<int>(std::lround(((b.min.y + b.max.y) / 2.0 - 200000) / 1000))].push_back(b);
  }
  // "LONG": dashes of 5 every 7.5, 2 wide; 14 of them, the last cut at 100.
  const std::vector<WorldBounds>& dashes = pieces[0];
  ASSERT_EQ(dashes.size(), 14u);
  EXPECT_EQ(dashes[0].min.x, 200000);
  EXPECT_EQ(dashes[0].max.x, 205000);
  EXPECT_EQ(dashes[1].min.x, 207500);
  EXPECT_EQ(dashes[0].max.y - dashes[0].min.y, 2000);
  EXPECT_EQ(dashes.back().max.x, 300000);
  // "DOTS": a square a dot every 10, as wide as the line narrowing from 4
  // to 0 where it falls: 4 at 0, 2 at 50; none where the width is 0.
  const std::vector<WorldBounds>& dots = pieces[10];
  ASSERT_EQ(dots.size(), 10u);
  EXPECT_EQ(dots[0].max.x - dots[0].min.x, 4000);
  EXPECT_EQ(dots[0].max.y - dots[0].min.y, 4000);
  EXPECT_EQ(dots[5].max.x - dots[5].min.x, 2000);
  EXPECT_EQ((dots[5].min.x + dots[5].max.x) / 2, 250000);
}

TEST(DxfReader, ImagesShowTheirFrameAndMissingFilesAreListed) {
  // Fault: IMAGE was skipped without a trace, and a missing file went unsaid.
  const DxfDrawing d = load(data("images.dxf"));
  ASSERT_EQ(d.entities.size(), 2u);
  EXPECT_EQ(d.entities[0].detail().image, "pixel.png");
  EXPECT_EQ(d.missing_images, std::vector<std::string>{"C:\\drawings\\missing.png"});
  const std::vector<DxfPoint>& frame = d.entities[0].points;
  ASSERT_EQ(frame.size(), 4u);
  EXPECT_NEAR(frame[2].x, 20, 1e-9);
  EXPECT_NEAR(frame[2].y, 10, 1e-9);
  Drawn drawn(d);
  const auto lines = drawn.polylines();
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].size(), 5u);  // closed
  EXPECT_NEAR(lines[1][1].x, 40, 1e-3);
}

TEST(DxfReader, ImagesShowTheirPixelsOverTheirRectangleWhenTheHostReadsThem) {
  // The host's reader gets the path found beside the DXF, once; the IMAGE
  // becomes an Image over its frame's rectangle, sized to it; the missing one
  // keeps its frame.
  const DxfDrawing d = load(data("images.dxf"));
  ASSERT_EQ(d.image_paths.count("pixel.png"), 1u);
  int reads = 0;
  std::string read_path;
  Drawn drawn(d, nullptr, [&](const std::string& path) {
    ++reads;
    read_path = path;
    auto* body = new ZR_Image_Data;
    body->width = 2;
    body->height = 3;
    body->pixels.assign(6, 0x336699);
    return ZR_Image(body);
  });
  EXPECT_EQ(reads, 1);
  EXPECT_NE(read_path.find("pixel.png"), std::string::npos);
  const Image* image = nullptr;
  for (const Drawable* x : drawn.drawables)
    if (std::string(dlview::class_name(x)) == "Image") image = static_cast<const Image*>(x);
  ASSERT_TRUE(image);
  const WorldBounds b = image->bounds_of();
  EXPECT_EQ(b.min.x, 200000);  // the frame's corners, in world units
  EXPECT_EQ(b.max.x, 220000);
  EXPECT_EQ(b.max.y, 210000);
  ASSERT_TRUE(image->image && *image->image);
  EXPECT_EQ((*image->image)->world_width, 20000);
  EXPECT_EQ((*image->image)->world_height, double(b.max.y) - b.min.y);
  EXPECT_EQ(drawn.polylines().size(), 1u);  // the missing image's frame
  // The image is handed to the renderer once, at the rectangle's top left.
  int images = 0;
  for (const RecordedCall& call : drawn.renderer->calls)
    if (call.entry.rfind("image_", 0) == 0) {
      ++images;
      ASSERT_EQ(call.points.size(), 1u);
      EXPECT_EQ(call.points[0].x, 200);
      EXPECT_EQ(call.points[0].y, 210);
    }
  EXPECT_EQ(images, 1);
}

TEST(DxfReader, DimensionsWithoutABlockAreBuiltFromTheirPoints) {
  // A linear dimension of (0, 0)-(30, 0), its line at y 10, text "<> mm";
  // an aligned one of (0, 20)-(30, 60) (length 50), its line through (0, 30);
  // a radial one whose circle point is its centre, which measures nothing.
  std::ostringstream s;
  s << "0\nSECTION\n2\nHEADER\n9\n$DIMASZ\n40\n2\n9\n$DIMTXT\n40\n3\n0\nENDSEC\n";
  s << "0\nSECTION\n2\nENTITIES\n";
  s << "0\nDIMENSION\n8\n0\n62\n1\n70\n0\n1\n<> mm\n10\n0\n20\n10\n11\n15\n21\n11\n"
       "13\n0\n23\n0\n14\n30\n24\n0\n50\n0\n";
  s << "0\nDIMENSION\n8\n0\n70\n1\n10\n-8\n20\n26\n11\n11\n21\n40\n13\n0\n23\n20\n14\n30\n"
       "24\n60\n";
  s << "0\nDIMENSION\n8\n0\n70\n4\n10\n0\n20\n0\n15\n0\n25\n0\n";
  s << "0\nENDSEC\n0\nEOF\n";
  const DxfDrawing d = load(write("dimensions.dxf", s.str()));
  ASSERT_EQ(d.entities.size(), 2u);
  EXPECT_EQ(d.skipped.at("DIMENSION (no block)"), 1);  // a radius of no length
  const DxfBlock& linear = d.blocks.at(d.entities[0].detail().block);
  ASSERT_EQ(linear.entities.size(), 6u);  // 3 lines, 2 arrows, the text
  const DxfEntity& line = linear.entities[2];
  EXPECT_EQ(line.points[0].y, 10);
  EXPECT_EQ(line.points[1].x, 30);
  EXPECT_EQ(linear.entities[3].kind, DxfKind::solid);
  EXPECT_EQ(linear.entities[5].detail().text, "30 mm");
  EXPECT_EQ(linear.entities[5].detail().height, 3);
  const DxfBlock& aligned = d.blocks.at(d.entities[1].detail().block);
  EXPECT_EQ(aligned.entities.back().detail().text, "50");

  Drawn drawn(d);
  EXPECT_EQ(drawn.report.shown[static_cast<int>(DxfKind::dimension)], 2);
  // The dimension line reaches the renderer in the DIMENSION's red.
  bool seen = false;
  for (const RecordedCall& call : drawn.renderer->calls)
    if (call.points.size() == 2 && std::abs(call.points[0].y - 210) <= 1 &&
        std::abs(call.points[1].y - 210) <= 1 && std::abs(call.points[1].x - 230) <= 1)
      seen = call.rendition_color == 0xff0000u || (call.has_color && call.color == 0xff0000u);
  EXPECT_TRUE(seen);
}

TEST(DxfReader, AngularRadialDiameterAndOrdinateDimensionsAreBuiltFromTheirPoints) {
  // Fault: dimensions other than linear and aligned were skipped without
  // their block.
  const DxfDrawing d = load(data("dimensions_from_points.dxf"));
  ASSERT_EQ(d.entities.size(), 6u);
  EXPECT_TRUE(d.skipped.empty());
  auto block = [&](std::size_t i) -> const std::vector<DxfEntity>& {
    return d.blocks.at(d.entities[i].detail().block).entities;
  };
  auto text_of = [](const std::vector<DxfEntity>& v) {
    for (const DxfEntity& e : v)
      if (e.kind == DxfKind::mtext) return e.detail().text;
    return std::string();
  };
  auto count = [](const std::vector<DxfEntity>& v, DxfKind kind) {
    return std::count_if(v.begin(), v.end(), [&](const DxfEntity& e) { return e.kind == kind; });
  };
  // Radius: the line from the centre to the circle, one arrow, "R10".
  EXPECT_EQ(text_of(block(0)), "R10");
  EXPECT_EQ(count(block(0), DxfKind::solid), 1);
  EXPECT_NEAR(block(0)[0].points[1].x, 10 * std::sqrt(0.5), 1e-9);
  // Diameter: across the circle, two arrows, the diameter sign.
  EXPECT_EQ(text_of(block(1)),
            "\xc3\x98"
            "20");
  EXPECT_EQ(count(block(1), DxfKind::solid), 2);
  // Angles: an arc about the vertex through the location point, two arrows,
  // the degrees.
  for (std::size_t i : {std::size_t{2}, std::size_t{3}}) {
    const auto arc = std::find_if(block(i).begin(), block(i).end(),
                                  [](const DxfEntity& e) { return e.kind == DxfKind::arc; });
    ASSERT_NE(arc, block(i).end());
    const DxfPoint vertex = i == 2 ? DxfPoint{50, 0} : DxfPoint{90, 0};
    EXPECT_NEAR(arc->detail().center.x, vertex.x, 1e-9);
    EXPECT_NEAR(arc->detail().radius_x, i == 2 ? std::hypot(15, 5) : std::hypot(10, 15), 1e-9);
    EXPECT_NEAR(arc->detail().start, 0, 1e-9);
    EXPECT_NEAR(arc->detail().end, (i == 2 ? 45 : 90) * M_PI / 180, 1e-9);
    EXPECT_EQ(count(block(i), DxfKind::solid), 2);
  }
  // The arc ends inside both lines: no extension line (fault: drawn from
  // the vertex).
  EXPECT_EQ(count(block(2), DxfKind::line), 0);
  EXPECT_EQ(text_of(block(2)), "45\xc2\xb0");
  EXPECT_EQ(text_of(block(3)), "90\xc2\xb0");
  // Ordinates: the leader from the feature, the distance from the origin.
  EXPECT_EQ(text_of(block(4)), "10");
  EXPECT_EQ(block(4)[0].points[1].y, 20);
  EXPECT_EQ(text_of(block(5)), "10");
  EXPECT_EQ(block(5)[0].points[1].x, 140);

  Drawn drawn(d);
  EXPECT_EQ(drawn.report.shown[static_cast<int>(DxfKind::dimension)], 6);
  int arcs = 0;
  for (const RecordedCall& call : drawn.renderer->calls)
    arcs += call.entry.find("arc") != std::string::npos;
  EXPECT_EQ(arcs, 2);
}

TEST(DxfReader, PaperSpaceIsReadOnlyWhenALayoutIsAsked) {
  // Fault: a layout's title frame was drawn over model space.
  const DxfDrawing model = load(data("paper_space.dxf"));
  ASSERT_EQ(model.entities.size(), 1u);
  EXPECT_EQ(model.entities[0].kind, DxfKind::line);
  EXPECT_EQ(model.paper_space, 3);
  EXPECT_TRUE(model.skipped.empty());  // fault: "EOF" was listed as skipped
  EXPECT_TRUE(model.truncated.empty());

  DxfLoadOptions title;
  title.layout = "Title";
  const DxfDrawing frame = load(data("paper_space.dxf"), title);
  ASSERT_EQ(frame.entities.size(), 1u);
  EXPECT_EQ(frame.entities[0].kind, DxfKind::polyline);
  EXPECT_TRUE(frame.entities[0].closed);
  EXPECT_NEAR(frame.extent.max_x, 420, 1e-9);

  DxfLoadOptions second;
  second.layout = "SECOND";  // names compare without regard to case
  const DxfDrawing circles = load(data("paper_space.dxf"), second);
  ASSERT_EQ(circles.entities.size(), 2u);
  EXPECT_EQ(circles.entities[1].kind, DxfKind::circle);

  DxfLoadOptions missing;
  missing.layout = "Nowhere";
  DxfDrawing d;
  std::string error;
  EXPECT_FALSE(load_dxf(data("paper_space.dxf"), d, error, missing));
  EXPECT_NE(error.find("no layout named 'Nowhere' (layouts: Layout1, Title, Second)"),
            std::string::npos)
      << error;
}

TEST(DxfReader, FilesCutShortAreReadAsFarAsTheyGo) {
  // Fault: a file cut inside ENTITIES was drawn in part without a word.
  const std::string text = slurp(data("ocs_mirrored.dxf"));
  const std::size_t entities = text.find("ENTITIES");
  const std::size_t plain_arc = text.rfind("\nARC\n");
  ASSERT_NE(plain_arc, std::string::npos);
  ASSERT_LT(entities, plain_arc);
  const DxfDrawing cut = load(write("cut-entities.dxf", text.substr(0, plain_arc + 1)));
  EXPECT_EQ(cut.truncated, "inside ENTITIES");
  EXPECT_EQ(cut.entities.size(), 3u);  // all but the last arc

  const std::size_t eof = text.rfind("EOF");
  const DxfDrawing no_eof = load(write("cut-eof.dxf", text.substr(0, eof - 4)));
  EXPECT_EQ(no_eof.truncated, "before its EOF");
  EXPECT_EQ(no_eof.entities.size(), 4u);

  // A code line without its value, and a line that is no group code.
  const DxfDrawing half_pair = load(write("cut-pair.dxf", text.substr(0, plain_arc - 3)));
  EXPECT_EQ(half_pair.truncated, "inside ENTITIES");
  std::string garbled = text;
  garbled.replace(plain_arc - 3, 3, "xx\n");
  const DxfDrawing bad_code = load(write("cut-code.dxf", garbled));
  EXPECT_NE(bad_code.truncated.find("which is not a group code"), std::string::npos)
      << bad_code.truncated;
}

TEST(DxfReader, BadNumbersDropTheEntityAndAreCounted) {
  // Fault: nan, inf and unparsable numbers became 0 and were drawn there.
  auto file = [](const std::string& x) {
    std::ostringstream s;
    s << "0\nSECTION\n2\nENTITIES\n";
    s << "0\nLINE\n8\n0\n10\n" << x << "\n20\n0\n11\n5\n21\n5\n";
    s << "0\nCIRCLE\n8\n0\n10\n0\n20\n0\n40\n" << x << "\n";
    s << "0\nLINE\n8\n0\n10\n1\n20\n1\n11\n2\n21\n2\n";
    s << "0\nENDSEC\n0\nEOF\n";
    return s.str();
  };
  for (const char* bad : {"nan", "inf", "-inf", "1e999", "12abc", "", "0x10"}) {
    SCOPED_TRACE(bad);
    const DxfDrawing d = load(write("bad-number.dxf", file(bad)));
    ASSERT_EQ(d.entities.size(), 1u);
    EXPECT_EQ(d.entities[0].points[0].x, 1);
    EXPECT_EQ(d.invalid.at("LINE"), 1);
    EXPECT_EQ(d.invalid.at("CIRCLE"), 1);
  }
  // Numbers as writers put them: signs, spaces, exponents.
  const DxfDrawing good = load(write("good-number.dxf", file("  +1.5e1 ")));
  ASSERT_EQ(good.entities.size(), 3u);
  EXPECT_EQ(good.entities[0].points[0].x, 15);
  EXPECT_EQ(good.entities[1].detail().radius_x, 15);
  EXPECT_TRUE(good.invalid.empty());
}

TEST(DxfReader, EntitiesTooFarForTheSheetAreLeftOutOfTheExtent) {
  // Fault: one line at 1e300 shrank the real drawing to nothing.
  auto file = [](const char* far_x) {
    std::ostringstream s;
    s << "0\nSECTION\n2\nENTITIES\n";
    s << "0\nLINE\n8\n0\n10\n0\n20\n0\n11\n100\n21\n50\n";
    s << "0\nCIRCLE\n8\n0\n10\n50\n20\n20\n40\n10\n";
    s << "0\nLINE\n8\n0\n10\n" << far_x << "\n20\n0\n11\n" << far_x << "\n21\n1\n";
    s << "0\nENDSEC\n0\nEOF\n";
    return s.str();
  };
  const DxfDrawing stray = load(write("far.dxf", file("1e300")));
  EXPECT_EQ(stray.entities.size(), 2u);
  EXPECT_EQ(stray.too_far.at("LINE"), 1);
  EXPECT_NEAR(stray.extent.max_x, 100, 1e-9);
  EXPECT_NEAR(stray.extent.max_y, 50, 1e-9);
  // A part a thousand drawings away is still part of the drawing.
  const DxfDrawing apart = load(write("apart.dxf", file("1e5")));
  EXPECT_EQ(apart.entities.size(), 3u);
  EXPECT_TRUE(apart.too_far.empty());
  EXPECT_NEAR(apart.extent.max_x, 1e5, 1e-9);
}

TEST(DxfReader, ConsumingTheDrawingMapsTheSameAsKeepingIt) {
  // The viewer lets each entity go once mapped: the same calls must reach
  // the renderer as from the kept drawing.
  for (const char* file : {"spline_leader_dimension.dxf", "polyline_widths.dxf", "ocs_mirrored.dxf",
                           "text_layout.dxf"}) {
    SCOPED_TRACE(file);
    const DxfDrawing kept = load(data(file));
    DxfDrawing consumed = kept;
    const Drawn a(kept);
    const Drawn b(kept, &consumed);
    EXPECT_TRUE(consumed.entities.empty());
    EXPECT_EQ(a.report.drawables, b.report.drawables);
    EXPECT_EQ(a.renderer->trace(), b.renderer->trace());
    EXPECT_EQ(kept.entities.size() > 0, true);
  }
}

TEST(DxfReader, RefusalsSayWhy) {
  DxfDrawing d;
  std::string error;
  // Fault: a directory was "not a DXF file".
  EXPECT_FALSE(load_dxf(DL_DXF_DATA_DIR, d, error));
  EXPECT_NE(error.find("is a directory"), std::string::npos) << error;
  EXPECT_FALSE(load_dxf(write("empty-file.dxf", ""), d, error));
  EXPECT_NE(error.find("not a DXF file"), std::string::npos) << error;
  // A byte order mark and comments before the first section are fine.
  const DxfDrawing bom = load(write("bom.dxf",
                                    "\xEF\xBB\xBF"
                                    "999\nwritten by hand\n0\nSECTION\n2\nENTITIES\n0\nPOINT\n"
                                    "10\n1\n20\n2\n0\nENDSEC\n0\nEOF\n"));
  EXPECT_EQ(bom.entities.size(), 1u);
}

}  // namespace
}  // namespace DL::dxf
