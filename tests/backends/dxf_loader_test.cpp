// The DXF loader of dlview: small files written here are read back with the
// right entity counts, flattened geometry, colours and extents; bad files are
// refused with a reason; the sheet layout keeps every drawing inside 32 bits.
#include "dxf/dxf_loader.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <fstream>
#include <initializer_list>
#include <map>
#include <sstream>
#include <utility>

#include "backends/freetype/freetype_engine.h"
#include "displaylist/display_list.h"
#include "drawables/polything.h"
#include "dxf/dxf_mapping.h"
#include "tests/support/fontconfig_leaks.h"
#include "tests/support/test_files.h"
#include "tests/support/tree_check.h"
#include "tools/demo_drawing.h"

namespace DL::dxf {
namespace {

using dlview::class_name;

using Pair = std::pair<int, std::string>;

std::string dxf(std::initializer_list<Pair> pairs) {
  std::ostringstream s;
  for (const Pair& p : pairs) s << p.first << "\n" << p.second << "\n";
  return s.str();
}

std::string write(const std::string& name, const std::string& text) {
  std::string path = DL::test::test_file(name);
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

// Two layers (one frozen), a block, and one entity of most kinds.
std::string sample() {
  return dxf({{0, "SECTION"},
              {2, "TABLES"},
              {0, "TABLE"},
              {2, "LAYER"},
              {70, "2"},
              {0, "LAYER"},
              {2, "WALLS"},
              {70, "0"},
              {62, "5"},
              {6, "CONTINUOUS"},
              {0, "LAYER"},
              {2, "FROZEN"},
              {70, "1"},
              {62, "3"},
              {6, "CONTINUOUS"},
              {0, "ENDTAB"},
              {0, "ENDSEC"},
              {0, "SECTION"},
              {2, "BLOCKS"},
              {0, "BLOCK"},
              {8, "0"},
              {2, "SYM"},
              {70, "0"},
              {10, "0"},
              {20, "0"},
              {30, "0"},
              {0, "CIRCLE"},
              {8, "0"},
              {10, "0"},
              {20, "0"},
              {30, "0"},
              {40, "5"},
              {0, "ENDBLK"},
              {0, "ENDSEC"},
              {0, "SECTION"},
              {2, "ENTITIES"},
              {0, "POINT"},
              {8, "WALLS"},
              {10, "10"},
              {20, "10"},
              {30, "0"},
              {0, "POINT"},
              {8, "FROZEN"},
              {62, "1"},
              {10, "90"},
              {20, "50"},
              {30, "0"},
              {0, "LINE"},
              {8, "WALLS"},
              {10, "0"},
              {20, "0"},
              {30, "0"},
              {11, "100"},
              {21, "50"},
              {31, "0"},
              // A closed square whose first side bulges outward as a half circle.
              {0, "LWPOLYLINE"},
              {8, "0"},
              {90, "4"},
              {70, "1"},
              {10, "0"},
              {20, "0"},
              {42, "1"},
              {10, "10"},
              {20, "0"},
              {10, "10"},
              {20, "10"},
              {10, "0"},
              {20, "10"},
              {0, "ARC"},
              {8, "0"},
              {62, "3"},
              {10, "50"},
              {20, "25"},
              {30, "0"},
              {40, "10"},
              {50, "0"},
              {51, "90"},
              {0, "ELLIPSE"},
              {8, "0"},
              {10, "30"},
              {20, "30"},
              {30, "0"},
              {11, "0"},
              {21, "8"},
              {31, "0"},
              {40, "0.5"},
              {41, "0"},
              {42, "6.283185307"},
              {0, "TEXT"},
              {8, "0"},
              {10, "5"},
              {20, "40"},
              {30, "0"},
              {40, "3"},
              {1, "Hello"},
              {50, "90"},
              {0, "SOLID"},
              {8, "0"},
              {10, "60"},
              {20, "0"},
              {30, "0"},
              {11, "70"},
              {21, "0"},
              {31, "0"},
              {12, "60"},
              {22, "10"},
              {32, "0"},
              {13, "70"},
              {23, "10"},
              {33, "0"},
              {0, "SPLINE"},
              {8, "0"},
              {70, "8"},
              {71, "3"},
              {0, "INSERT"},
              {8, "0"},
              {2, "SYM"},
              {10, "200"},
              {20, "10"},
              {30, "0"},
              {41, "2"},
              {42, "2"},
              {0, "ENDSEC"},
              {0, "EOF"}});
}

TEST(DxfLoader, ReadsEveryKindWithItsGeometry) {
  DxfDrawing d;
  std::string error;
  ASSERT_TRUE(load_dxf(write("sample.dxf", sample()), d, error)) << error;
  std::vector<long> n = d.counts();
  auto count = [&](DxfKind k) { return n[static_cast<int>(k)]; };
  EXPECT_EQ(count(DxfKind::point), 2);
  EXPECT_EQ(count(DxfKind::line), 1);
  EXPECT_EQ(count(DxfKind::polyline), 1);
  EXPECT_EQ(count(DxfKind::arc), 1);
  EXPECT_EQ(count(DxfKind::ellipse), 1);
  EXPECT_EQ(count(DxfKind::text), 1);
  EXPECT_EQ(count(DxfKind::solid), 1);
  EXPECT_EQ(count(DxfKind::insert), 1);
  EXPECT_EQ(d.skipped["SPLINE (no points)"], 1);  // its degree alone
  ASSERT_EQ(d.blocks.count("SYM"), 1u);
  EXPECT_EQ(d.blocks["SYM"].entities.size(), 1u);

  for (const DxfEntity& e : d.entities) {
    switch (e.kind) {
      case DxfKind::polyline: {
        // The bulge of 1 is a counter-clockwise half circle below the first side.
        EXPECT_TRUE(e.closed);
        EXPECT_GT(e.points.size(), 20u);
        double lowest = 0;
        for (const DxfPoint& p : e.points) {
          lowest = std::min(lowest, p.y);
          EXPECT_LE(std::hypot(p.x - 5, std::min(p.y, 0.0)), 5.0 + 1e-9);
        }
        EXPECT_NEAR(lowest, -5.0, 0.05);
        EXPECT_EQ(e.points.back().x, 0);
        EXPECT_EQ(e.points.back().y, 10);
        break;
      }
      case DxfKind::arc:
        EXPECT_NEAR(e.detail().end - e.detail().start, M_PI / 2, 1e-12);
        EXPECT_EQ(e.color, 0x00ff00u);  // ACI 3
        break;
      case DxfKind::ellipse:
        EXPECT_NEAR(e.detail().radius_x, 8, 1e-12);
        EXPECT_NEAR(e.detail().radius_y, 4, 1e-12);
        EXPECT_NEAR(e.detail().rotation, M_PI / 2, 1e-12);
        break;
      case DxfKind::text:
        EXPECT_EQ(e.detail().text, "Hello");
        EXPECT_NEAR(e.detail().rotation, M_PI / 2, 1e-12);
        break;
      case DxfKind::solid:
        // Corners in outline order: the file's third and fourth swapped.
        ASSERT_EQ(e.points.size(), 4u);
        EXPECT_EQ(e.points[2].x, 70);
        EXPECT_EQ(e.points[2].y, 10);
        break;
      case DxfKind::line:
        EXPECT_EQ(e.color, 0x0000ffu);  // BYLAYER on WALLS, ACI 5
        break;
      default:
        break;
    }
  }
  // The extent reaches the scaled circle of the insert (200 + 2 * 5).
  EXPECT_NEAR(d.extent.max_x, 210, 1e-9);
  EXPECT_NEAR(d.extent.min_y, -5, 0.05);
}

TEST(DxfLoader, SolidHatchesBecomeContours) {
  std::string text =
      dxf({{0, "SECTION"}, {2, "ENTITIES"}, {0, "HATCH"}, {8, "0"},   {10, "0"},     {20, "0"},
           {30, "0"},      {210, "0"},      {220, "0"},   {230, "1"}, {2, "SOLID"},  {70, "1"},
           {71, "0"},      {91, "1"},       {92, "1"},    {93, "2"},  {72, "1"},     {10, "0"},
           {20, "0"},      {11, "20"},      {21, "0"},    {72, "2"},  {10, "10"},    {20, "0"},
           {40, "10"},     {50, "0"},       {51, "180"},  {73, "1"},  {97, "0"},     {75, "0"},
           {76, "1"},      {98, "0"},       {0, "HATCH"}, {8, "0"},   {10, "0"},     {20, "0"},
           {30, "0"},      {210, "0"},      {220, "0"},   {230, "1"}, {2, "ANSI31"}, {70, "0"},
           {71, "0"},      {91, "0"},       {75, "0"},    {76, "1"},  {98, "0"},     {0, "ENDSEC"},
           {0, "EOF"}});
  DxfDrawing d;
  std::string error;
  ASSERT_TRUE(load_dxf(write("hatch.dxf", text), d, error)) << error;
  ASSERT_EQ(d.entities.size(), 1u);
  EXPECT_EQ(d.skipped["HATCH (pattern)"], 1);
  const DxfEntity& h = d.entities[0];
  ASSERT_EQ(h.detail().loops.size(), 1u);
  // A half disc over the side from 0 to 20.
  EXPECT_NEAR(d.extent.max_y, 10, 0.01);
  EXPECT_NEAR(d.extent.max_x, 20, 1e-9);
  EXPECT_GT(h.detail().loops[0].size(), 10u);

  // Fault the DXF fuzzer found: an edge's angles far apart asked for some
  // 1e300 chords (a float-to-int conversion out of range, then a hang). An
  // arc sweeps one turn at most.
  std::string wide = text;
  wide.replace(wide.find("51\n180\n"), 8, "51\n1e300\n");
  DxfDrawing w;
  ASSERT_TRUE(load_dxf(write("wide-hatch.dxf", wide), w, error)) << error;
  ASSERT_EQ(w.entities.size(), 1u);
  ASSERT_EQ(w.entities[0].detail().loops.size(), 1u);
  EXPECT_LE(w.entities[0].detail().loops[0].size(), 80u);
}

TEST(DxfLoader, BadFilesAreRefusedWithAReason) {
  DxfDrawing d;
  std::string error;
  EXPECT_FALSE(load_dxf(DL::test::test_file("missing.dxf"), d, error));
  EXPECT_NE(error.find("cannot open"), std::string::npos) << error;
  EXPECT_FALSE(load_dxf(write("prose.dxf", "Dear reader,\nthis is a letter.\n"), d, error));
  EXPECT_NE(error.find("not a DXF"), std::string::npos) << error;
  EXPECT_FALSE(
      load_dxf(write("binary.dxf", std::string("AutoCAD Binary DXF\r\n\x1a\0", 22)), d, error));
  EXPECT_NE(error.find("binary"), std::string::npos) << error;
  EXPECT_FALSE(load_dxf(
      write("empty.dxf", dxf({{0, "SECTION"}, {2, "ENTITIES"}, {0, "ENDSEC"}, {0, "EOF"}})), d,
      error));
  EXPECT_NE(error.find("empty"), std::string::npos) << error;
  // A truncated file is read as far as it goes, without harm.
  std::string cut = sample().substr(0, sample().size() / 2);
  if (load_dxf(write("cut.dxf", cut), d, error)) {
    EXPECT_FALSE(d.entities.empty());
  }
}

// Faults the DXF fuzzer found: a few bytes that asked for billions of array
// cells hung the loader; an arc whose angles were too large for adding 2 pi to
// change them looped for ever in the flattening; a turned INSERT of its own
// block expanded 2^16 times before the depth limit stopped it; arrays of blocks
// holding arrays asked one draw for billions of points. Each now ends at
// once, and what is not shown is counted.
TEST(DxfLoader, HostileFilesEndQuickly) {
  auto block = [](const char* name, std::initializer_list<Pair> body) {
    std::vector<Pair> pairs{{0, "BLOCK"}, {8, "0"}, {2, name}, {70, "0"}, {10, "0"}, {20, "0"}};
    pairs.insert(pairs.end(), body);
    pairs.push_back({0, "ENDBLK"});
    return pairs;
  };
  auto file = [](const std::vector<Pair>& blocks, std::initializer_list<Pair> entities) {
    std::ostringstream s;
    auto put = [&](const Pair& p) { s << p.first << "\n" << p.second << "\n"; };
    put({0, "SECTION"});
    put({2, "BLOCKS"});
    for (const Pair& p : blocks) put(p);
    put({0, "ENDSEC"});
    put({0, "SECTION"});
    put({2, "ENTITIES"});
    for (const Pair& p : entities) put(p);
    put({0, "ENDSEC"});
    put({0, "EOF"});
    return s.str();
  };
  const std::vector<Pair> point = block("P", {{0, "POINT"}, {8, "0"}, {10, "0"}, {20, "0"}});
  DxfDrawing d;
  std::string error;
  ASSERT_TRUE(load_dxf(write("array.dxf", file(point, {{0, "INSERT"},
                                                       {8, "0"},
                                                       {2, "P"},
                                                       {10, "0"},
                                                       {20, "0"},
                                                       {70, "2000000000"},
                                                       {71, "2000000000"},
                                                       {0, "POINT"},
                                                       {8, "0"},
                                                       {10, "1"},
                                                       {20, "1"}})),
                       d, error))
      << error;
  EXPECT_EQ(d.skipped["INSERT (array over 65536 cells)"], 1);
  EXPECT_EQ(d.entities.size(), 1u);

  DxfDrawing arc;
  ASSERT_TRUE(load_dxf(write("arc.dxf", file({}, {{0, "ARC"},
                                                  {8, "0"},
                                                  {10, "0"},
                                                  {20, "0"},
                                                  {40, "10"},
                                                  {50, "1e20"},
                                                  {51, "-1e20"},
                                                  // so wide that the sheet's scale squared
                                                  // underflows: curves are flattened
                                                  {0, "LINE"},
                                                  {8, "0"},
                                                  {10, "-1e300"},
                                                  {20, "0"},
                                                  {11, "1e300"},
                                                  {21, "0"}})),
                       arc, error))
      << error;
  const std::vector<Pair> self = block("SELF", {{0, "INSERT"},
                                                {8, "0"},
                                                {2, "SELF"},
                                                {10, "1"},
                                                {20, "1"},
                                                {50, "10"},
                                                {0, "INSERT"},
                                                {8, "0"},
                                                {2, "SELF"},
                                                {10, "1"},
                                                {20, "1"},
                                                {50, "20"},
                                                {0, "LINE"},
                                                {8, "0"},
                                                {10, "0"},
                                                {20, "0"},
                                                {11, "1"},
                                                {21, "0"}});
  DxfDrawing cyclic;
  ASSERT_TRUE(load_dxf(
      write("cyclic.dxf",
            file(self, {{0, "INSERT"}, {8, "0"}, {2, "SELF"}, {10, "0"}, {20, "0"}, {50, "30"}})),
      cyclic, error))
      << error;

  SheetContext context(nullptr);
  std::vector<DxfDrawing> drawings{arc, cyclic};
  DL::WorldBounds sheet;
  std::vector<Placement> placements = lay_out(drawings, sheet);
  DL::DisplayList list;
  // The arc is flattened into chords over its sweep folded into one turn.
  MappingReport r = add_to_display_list(drawings[0], placements[0], context, list);
  EXPECT_EQ(r.shown[static_cast<int>(DxfKind::arc)], 1);
  // The turned INSERT shows its block's line once; the INSERTs of the block
  // inside its own expansion are cyclic and not shown.
  r = add_to_display_list(drawings[1], placements[1], context, list);
  EXPECT_EQ(r.shown[static_cast<int>(DxfKind::insert)], 1);
  EXPECT_EQ(r.drawables, 1);
  EXPECT_EQ(r.not_shown_in_blocks[static_cast<int>(DxfKind::insert)], 2);

  // Past the sheet's limit, entities are counted as not shown.
  DxfDrawing many;
  ASSERT_TRUE(load_dxf(write("many.dxf", file(point, {{0, "INSERT"},
                                                      {8, "0"},
                                                      {2, "P"},
                                                      {10, "0"},
                                                      {20, "0"},
                                                      {50, "45"},
                                                      {70, "100"},
                                                      {71, "100"},
                                                      {44, "1"},
                                                      {45, "1"}})),
                       many, error))
      << error;
  SheetContext limited(nullptr);
  limited.max_points = 250;
  std::vector<DxfDrawing> one{many};
  placements = lay_out(one, sheet);
  DL::DisplayList bounded;
  r = add_to_display_list(one[0], placements[0], limited, bounded);
  EXPECT_EQ(r.drawables, 250);
  EXPECT_EQ(DL::test::drawables_in_order(bounded.root).size(), 250u);
  EXPECT_TRUE(DL::test::tree_is_valid(bounded, nullptr));

  // Arrays of a block list that shows arrays: each cell draws the whole list
  // it shows and one for its view: B's list is 201 points (P's point once as
  // P's list is built, and B's 100 cells of P at 2 each), a cell of B 202, so
  // 1000 take B's list and 3 of the 100 cells.
  std::vector<Pair> blocks = point;
  const std::vector<Pair> b = block("B", {{0, "INSERT"},
                                          {8, "0"},
                                          {2, "P"},
                                          {10, "0"},
                                          {20, "0"},
                                          {70, "10"},
                                          {71, "10"},
                                          {44, "1"},
                                          {45, "1"}});
  blocks.insert(blocks.end(), b.begin(), b.end());
  DxfDrawing arrays;
  ASSERT_TRUE(load_dxf(write("arrays.dxf", file(blocks, {{0, "INSERT"},
                                                         {8, "0"},
                                                         {2, "B"},
                                                         {10, "0"},
                                                         {20, "0"},
                                                         {70, "10"},
                                                         {71, "10"},
                                                         {44, "50"},
                                                         {45, "50"}})),
                       arrays, error))
      << error;
  SheetContext nested(nullptr);
  nested.max_points = 1000;
  std::vector<DxfDrawing> two{arrays};
  placements = lay_out(two, sheet);
  DL::DisplayList cells;
  r = add_to_display_list(two[0], placements[0], nested, cells);
  EXPECT_EQ(DL::test::drawables_in_order(cells.root).size(), 3u);
  EXPECT_EQ(r.drawables, 1 + 100 + 3);
  EXPECT_TRUE(DL::test::tree_is_valid(cells, nullptr));
}

TEST(DxfLoader, SheetAndMappingPlaceDrawingsSideBySide) {
  std::vector<DxfDrawing> drawings(3);
  std::string error;
  for (auto& d : drawings) ASSERT_TRUE(load_dxf(write("sample.dxf", sample()), d, error)) << error;
  DL::WorldBounds sheet;
  std::vector<Placement> placements = lay_out(drawings, sheet);
  ASSERT_EQ(placements.size(), 3u);
  for (std::size_t i = 0; i < 3; ++i) {
    const DxfBounds& e = drawings[i].extent;
    DL::WorldPoint lo = placements[i].map({e.min_x, e.min_y});
    DL::WorldPoint hi = placements[i].map({e.max_x, e.max_y});
    EXPECT_EQ(lo.y, 0);
    EXPECT_TRUE((DL::WorldBounds{lo, hi}).is_inside(sheet));
    if (i > 0) {
      EXPECT_GT(lo.x, placements[i - 1].map({e.max_x, 0}).x);  // no overlap
    }
  }
  EXPECT_GT(sheet.max.x, 1 << 27);  // the range is used well

  auto* engine = new DL::FreeTypeTextEngine;
  ZR_Handle<ZR_Text_Engine> hold(engine);
  SheetContext context(engine, DL::FreeTypeTextEngine::make_font("DejaVu Sans"));
  DL::DisplayList list;
  long shown = 0, not_shown = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    MappingReport r = add_to_display_list(drawings[i], placements[i], context, list);
    for (int k = 0; k < kDxfKindCount; ++k) {
      shown += r.shown[k];
      not_shown += r.not_shown[k] + r.not_shown_in_blocks[k];
    }
    EXPECT_EQ(r.shown, drawings[i].counts());  // every model-space entity shows
  }
  EXPECT_EQ(shown, 3 * 9);
  EXPECT_EQ(not_shown, 0);
  EXPECT_EQ(context.blocks.size(), 3u);  // one block list per file, shared by its inserts
  EXPECT_TRUE(DL::test::tree_is_valid(list, nullptr));
  std::vector<const DL::Drawable*> all = DL::test::drawables_in_order(list.root);
  std::map<std::string, int> classes;
  for (const DL::Drawable* d : all) ++classes[class_name(d)];
  EXPECT_EQ(classes["Dot"], 6);
  EXPECT_EQ(classes["Polyline"], 6);  // the line and the closed polyline
  EXPECT_EQ(classes["Text"], 3);
  EXPECT_EQ(classes["PolytriangleWithNoBorder"], 3);
  EXPECT_EQ(classes["DrawableDisplayList"], 3);
  EXPECT_EQ(classes["EllipticalArc"] + classes["Ellipse"], 6);
  // The frozen layer starts hidden; --layer-off hides another, in any case.
  int hidden = 0;
  const DL::Drawable* line = nullptr;
  for (const DL::Drawable* d : all) {
    if (!d->shown()) ++hidden;
    if (d->color.rgb() == 0x0000ff && !line) line = d;
  }
  EXPECT_GT(hidden, 0);
  ASSERT_NE(line, nullptr);
  EXPECT_TRUE(line->shown());
  EXPECT_TRUE(context.layers.turn_off("walls"));
  EXPECT_FALSE(line->shown());  // the layers are live: reading them sees each change
  EXPECT_FALSE(context.layers.turn_off("no such layer"));
}

// Turned inserts are expanded, missing blocks and unknown entities counted,
// MTEXT split into lines, a hatch with an island one polygon.
TEST(DxfLoader, MappingExpandsCountsAndSplits) {
  std::string text = dxf({{0, "SECTION"},
                          {2, "BLOCKS"},
                          {0, "BLOCK"},
                          {8, "0"},
                          {2, "BOX"},
                          {70, "0"},
                          {10, "0"},
                          {20, "0"},
                          {0, "LINE"},
                          {8, "0"},
                          {62, "0"},
                          {10, "0"},
                          {20, "0"},
                          {11, "10"},
                          {21, "0"},
                          {0, "CIRCLE"},
                          {8, "0"},
                          {10, "5"},
                          {20, "5"},
                          {40, "2"},
                          {0, "ATTDEF"},
                          {8, "0"},
                          {10, "0"},
                          {20, "0"},
                          {0, "ENDBLK"},
                          {0, "ENDSEC"},
                          {0, "SECTION"},
                          {2, "ENTITIES"},
                          {0, "INSERT"},
                          {8, "0"},
                          {62, "1"},
                          {2, "BOX"},
                          {10, "100"},
                          {20, "0"},
                          {50, "30"},
                          {0, "INSERT"},
                          {8, "0"},
                          {2, "NOWHERE"},
                          {10, "0"},
                          {20, "0"},
                          {0, "MTEXT"},
                          {8, "0"},
                          {10, "0"},
                          {20, "50"},
                          {40, "5"},
                          {71, "1"},
                          {1, "{\\fArial;Two}\\Plines"},
                          {0, "HATCH"},
                          {8, "0"},
                          {10, "0"},
                          {20, "0"},
                          {2, "SOLID"},
                          {70, "1"},
                          {91, "2"},
                          {92, "2"},
                          {72, "0"},
                          {73, "1"},
                          {93, "4"},
                          {10, "0"},
                          {20, "0"},
                          {10, "40"},
                          {20, "0"},
                          {10, "40"},
                          {20, "40"},
                          {10, "0"},
                          {20, "40"},
                          {92, "2"},
                          {72, "0"},
                          {73, "1"},
                          {93, "3"},
                          {10, "10"},
                          {20, "10"},
                          {10, "20"},
                          {20, "10"},
                          {10, "15"},
                          {20, "20"},
                          {0, "MLINE"},
                          {8, "0"},
                          {0, "ENDSEC"},
                          {0, "EOF"}});
  DxfDrawing d;
  std::string error;
  ASSERT_TRUE(load_dxf(write("mapping.dxf", text), d, error)) << error;
  EXPECT_EQ(d.skipped["MLINE"], 1);
  EXPECT_EQ(d.skipped["ATTDEF"], 1);
  auto* engine = new DL::FreeTypeTextEngine;
  ZR_Handle<ZR_Text_Engine> hold(engine);
  SheetContext context(engine, DL::FreeTypeTextEngine::make_font("DejaVu Sans"));
  DL::DisplayList list;
  DL::WorldBounds sheet;
  std::vector<DxfDrawing> drawings{d};
  std::vector<Placement> placements = lay_out(drawings, sheet);
  MappingReport r = add_to_display_list(drawings[0], placements[0], context, list);
  EXPECT_EQ(r.shown[static_cast<int>(DxfKind::insert)], 1);      // turned: expanded
  EXPECT_EQ(r.not_shown[static_cast<int>(DxfKind::insert)], 1);  // no such block
  EXPECT_EQ(r.shown[static_cast<int>(DxfKind::mtext)], 1);
  EXPECT_EQ(r.shown[static_cast<int>(DxfKind::hatch)], 1);
  EXPECT_TRUE(context.blocks.empty());  // nothing nested
  std::map<std::string, int> classes;
  const DL::Drawable* line = nullptr;
  const DL::Drawable* hatch = nullptr;
  for (const DL::Drawable* x : DL::test::drawables_in_order(list.root)) {
    ++classes[class_name(x)];
    if (std::string(class_name(x)) == "Polyline") line = x;
    if (std::string(class_name(x)) == "Polygon") hatch = x;
  }
  EXPECT_EQ(classes["Text"], 2);  // two lines
  EXPECT_EQ(classes["Ellipse"], 1);
  ASSERT_TRUE(line && hatch);
  EXPECT_EQ(line->color.rgb(), 0xff0000u);  // BYBLOCK takes the insert's red
  // The line of the block turns by 30 degrees about the insertion point.
  DL::WorldVector v;
  ASSERT_TRUE(line->get_vector(0, v));
  const double dx = v.end.x - v.start.x, dy = v.end.y - v.start.y;
  EXPECT_NEAR(std::atan2(dy, dx), M_PI / 6, 1e-3);
  // Outer loop closed (5), island closed (4), bridge back (1).
  EXPECT_EQ(static_cast<const DL::Polygon*>(hatch)->count, 10);
  EXPECT_TRUE(DL::test::tree_is_valid(list, nullptr));

  EXPECT_EQ(mtext_lines("{\\fArial|b1;Bold}\\Pnext\\~word \\S1^2; x"),
            (std::vector<std::string>{"Bold", "next word 1/2 x"}));
  EXPECT_EQ(text_codes("90%%d %%p1"), "90\u00b0 \u00b11");
}

TEST(DxfLoader, StandardColourIndex) {
  EXPECT_EQ(aci_color(1), 0xff0000u);
  EXPECT_EQ(aci_color(7), 0x000000u);  // white on a dark screen, black on paper
  EXPECT_EQ(aci_color(10), 0xff0000u);
  EXPECT_EQ(aci_color(11), 0xff7f7fu);
  EXPECT_EQ(aci_color(12), 0xa50000u);
  EXPECT_EQ(aci_color(13), 0xa55252u);
  EXPECT_EQ(aci_color(30), 0xff7f00u);
  EXPECT_EQ(aci_color(50), 0xffff00u);
  EXPECT_EQ(aci_color(90), 0x00ff00u);
  EXPECT_EQ(aci_color(170), 0x0000ffu);
  EXPECT_EQ(aci_color(250), 0x333333u);
  EXPECT_EQ(aci_color(255), 0xffffffu);
  EXPECT_EQ(aci_color(300), 0u);
}

}  // namespace
}  // namespace DL::dxf
