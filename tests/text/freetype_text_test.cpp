// Text with the FreeType engine: real widths, boxes, outlines and draws, seen
// through the recording text engine and glyph sink.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>

#include "backends/recording/recording_text.h"
#include "displaylist/display_list.h"
#include "text/text.h"

#ifdef DL_HAVE_FREETYPE
#include "backends/freetype/freetype_engine.h"
#include "tests/support/fontconfig_leaks.h"

namespace DL {
namespace {

struct FreeTypeFixture {
  DisplayList list;
  FreeTypeTextEngine* freetype = new FreeTypeTextEngine;
  RecordingTextEngine* engine = new RecordingTextEngine(freetype);
  RecordingGlyphSink sink;
  ZR_Font font = FreeTypeTextEngine::make_font("DejaVu Sans");
  FreeTypeFixture() {
    add_ref(engine);
    list.text_engine = engine;
    freetype->set_sink(&sink);
  }
  Text* make(const char* s, double height = 100.0, double rotation = 0.0,
             DoublePoint at = {1000.0, 1000.0}) {
    return new Text(ZR_RGB32{0}, font, at, s, static_cast<int>(std::strlen(s)), height, rotation,
                    {{1000, 980}, {1000 + 60 * static_cast<int>(std::strlen(s)), 1100}}, &list,
                    true);
  }
};

#define NEED_FACE(f) \
  if (!(f).freetype->ok()) GTEST_SKIP() << "no DejaVu Sans face on this machine"

TEST(FreeTypeText, FaceAndWidths) {
  FreeTypeFixture f;
  NEED_FACE(f);
  EXPECT_NE(f.freetype->face_file(f.font).find("DejaVuSans"), std::string::npos);
  Text* t = f.make("iii");
  float w[3];
  t->accumulated_normalized_widths(w);
  EXPECT_NEAR(w[0], 1.0f / 3, 1e-6);
  EXPECT_NEAR(w[1], 2.0f / 3, 1e-6);
  EXPECT_EQ(w[2], 1.0f);
  Text* mixed = f.make("iWi");
  mixed->accumulated_normalized_widths(w);
  EXPECT_LT(w[0], 1.0f / 3);  // an i is narrower than a W
  EXPECT_NEAR(w[1] - w[0], 1.0f - 2 * w[0], 1e-6);
  t->destroy();
  mixed->destroy();
}

TEST(FreeTypeText, CharacterBoxesWalkAlongTheBoxUnderRotation) {
  FreeTypeFixture f;
  NEED_FACE(f);
  for (double rotation : {0.0, 0.7}) {
    Text* t = f.make("Hello", 100.0, rotation);
    ASSERT_TRUE(t->set_text_attributes(f.list));
    DoublePoint box[4];
    t->get_text_bbox(box);
    const double lx = box[1].x - box[0].x, ly = box[1].y - box[0].y;
    EXPECT_NEAR(std::atan2(ly, lx), rotation, 1e-5);
    float w[5];
    t->accumulated_normalized_widths(w);
    DoublePoint origin = t->position, cb[4], next;
    for (int i = 0; i < 5; ++i) {
      t->get_character_bbox(i, w, origin, box, cb, next);
      // Each character box starts on the lower edge where the last one ended.
      const double along =
          ((cb[0].x - box[0].x) * lx + (cb[0].y - box[0].y) * ly) / (lx * lx + ly * ly);
      EXPECT_NEAR(along, i == 0 ? 0.0 : w[i - 1], 1e-6);
      origin = next;
    }
    EXPECT_NEAR(cb[1].x, box[1].x, 1e-6);
    EXPECT_NEAR(cb[1].y, box[1].y, 1e-6);
    EXPECT_NEAR(origin.x - t->position.x, lx, 1e-6);
    EXPECT_NEAR(origin.y - t->position.y, ly, 1e-6);
    t->destroy();
  }
}

TEST(FreeTypeText, OutlineOfOIsTwoClosedContoursInsideTheBox) {
  FreeTypeFixture f;
  NEED_FACE(f);
  Text* t = f.make("O", 100.0);
  auto* it = static_cast<DrawableVectorIteratorText*>(t->create_vector_iterator(false));
  ASSERT_FALSE(it->at_end);
  EXPECT_EQ(it->contour_count, 2);
  std::vector<WorldVector> v{it->vector};
  while (WorldVector* n = it->next()) v.push_back(*n);
  EXPECT_GT(v.size(), 16u);
  // Chained: each vector starts where the last ended, except where a contour
  // starts anew; exactly two chains, each closed.
  int chains = 0;
  std::size_t chain_start = 0;
  for (std::size_t i = 1; i <= v.size(); ++i)
    if (i == v.size() || !(v[i].start == v[i - 1].end)) {
      ++chains;
      EXPECT_EQ(v[i - 1].end, v[chain_start].start);
      chain_start = i;
    }
  EXPECT_EQ(chains, 2);
  const DoublePoint* box = it->text_box;
  for (const WorldVector& x : v)
    for (WorldPoint p : {x.start, x.end}) {
      EXPECT_GE(p.x, std::floor(box[0].x));
      EXPECT_LE(p.x, std::ceil(box[1].x));
      EXPECT_GE(p.y, std::floor(box[0].y));
      EXPECT_LE(p.y, std::ceil(box[3].y));
    }
  delete it;
  t->destroy();
}

TEST(FreeTypeText, SpacesMoveTheOriginAndGreekedTextGivesItsBox) {
  FreeTypeFixture f;
  NEED_FACE(f);
  auto walk = [](Text* t, WorldPoint* first_of_last = nullptr) {
    DrawableVectorIterator* it = t->create_vector_iterator(false);
    int count = it->at_end ? 0 : 1;
    while (it->next()) ++count;
    if (first_of_last) *first_of_last = static_cast<DrawableVectorIteratorText*>(it)->vector.start;
    delete it;
    return count;
  };
  Text* ll = f.make("ll");
  Text* spaced = f.make("l  l");
  Text* space = f.make(" ");
  EXPECT_EQ(walk(ll), walk(spaced));  // the spaces add no vector
  EXPECT_EQ(walk(space), 0);
  // ...but they move the origin: the second l stands further right.
  auto first_x_of_second = [&](Text* t) {
    ZR_Matrix m;
    DoublePoint box[4], origin = t->position, next;
    t->set_text_attributes(f.list);
    t->get_text_bbox(box);
    for (int i = 0; i < t->text->length(); ++i) {
      t->get_character_contour(i, nullptr, origin, box, next, m);
      origin = next;
    }
    return origin.x;
  };
  EXPECT_GT(first_x_of_second(spaced), first_x_of_second(ll) + 40.0);

  Text* small = f.make("Greek", 4.0);
  DrawableVectorIterator* it = small->create_vector_iterator(false);
  std::vector<WorldVector> edges{it->vector};
  while (WorldVector* n = it->next()) edges.push_back(*n);
  ASSERT_EQ(edges.size(), 4u);
  EXPECT_EQ(edges[3].end, edges[0].start);
  EXPECT_GT(edges[0].end.x, edges[0].start.x);
  delete it;

  f.engine->clear();
  it = small->create_vector_iterator(true);
  int figure = 1;
  while (it->next()) ++figure;
  EXPECT_EQ(figure, 8);
  EXPECT_TRUE(f.engine->calls.empty());
  delete it;
  for (Text* t : {ll, spaced, space, small}) t->destroy();
}

TEST(FreeTypeText, DrawsReachTheSinkAndClippedTextCostsNoEngineCall) {
  FreeTypeFixture f;
  NEED_FACE(f);
  Text* t = f.make("A b", 20.0);
  t->bounds = {{1000, 995}, {1040, 1020}};
  t->draw_unclipped(f.list);
  ASSERT_EQ(f.sink.draws.size(), 1u);
  const RecordedGlyphs& d = f.sink.draws[0];
  EXPECT_EQ(d.characters, (std::vector<unsigned short>{'A', ' ', 'b'}));
  EXPECT_EQ(d.start, (ZR_Point{1000.0f, 1000.0f, 0.0f}));
  EXPECT_EQ(d.size, 20.0f);
  EXPECT_EQ(d.contours[1], 0);  // the space
  EXPECT_EQ(d.contours[2], 2);  // b: outside and counter
  EXPECT_LT(d.origins[1].x, d.origins[2].x);

  // One unit off the clip rectangle: no engine call at all, no glyph.
  f.engine->clear();
  f.list.rendition.set_hard_clip({1042, 2000, 0, 2000}, true);  // world from 1041 on
  t->draw_clipped(f.list);
  EXPECT_TRUE(f.engine->calls.empty());
  EXPECT_EQ(f.sink.draws.size(), 1u);
  f.list.rendition.set_hard_clip({1041, 2000, 0, 2000}, true);  // touches at 1040
  t->draw_clipped(f.list);
  EXPECT_EQ(f.sink.draws.size(), 2u);
  t->destroy();
}

TEST(FreeTypeText, OutlinesAreCachedPerSize) {
  FreeTypeFixture f;
  NEED_FACE(f);
  Text* t = f.make("aaaa", 30.0);
  auto count = [](Text* x) {
    DrawableVectorIterator* it = x->create_vector_iterator(false);
    int n = it->at_end ? 0 : 1;
    while (it->next()) ++n;
    delete it;
    return n;
  };
  const int n = count(t);
  EXPECT_EQ(n % 4, 0);
  const auto stats = f.freetype->cache_statistics();
  EXPECT_EQ(stats.misses, 1);  // one outline built, three lookups
  EXPECT_EQ(stats.hits, 3);
  t->text_height = 31.0;
  EXPECT_EQ(count(t), n);  // same points at another size
  EXPECT_EQ(f.freetype->cache_statistics().misses, 2);
  t->destroy();
}

TEST(FreeTypeText, UnknownFontsFallBackAndMultibyteStringsMeasure) {
  FreeTypeFixture f;
  NEED_FACE(f);
  ZR_Font missing = FreeTypeTextEngine::make_font("", "/nonexistent/font.ttf");
  EXPECT_EQ(f.freetype->face_file(missing), f.freetype->face_file(ZR_Font()));
  Text* u = f.make("Wave");
  Text* m = new Text(ZR_RGB32{0}, f.font, {1000.0, 1000.0}, "Wave", 4, 100.0, 0.0, u->bounds,
                     &f.list, false);
  ASSERT_TRUE(u->set_text_attributes(f.list));
  DoublePoint bu[4], bm[4];
  u->get_text_bbox(bu);
  m->get_text_bbox(bm);
  for (int i = 0; i < 4; ++i) {
    EXPECT_NEAR(bu[i].x, bm[i].x, 1e-4);
    EXPECT_NEAR(bu[i].y, bm[i].y, 1e-4);
  }
  u->destroy();
  m->destroy();
}

}  // namespace
}  // namespace DL

#else
TEST(FreeTypeText, NotBuilt) {
  GTEST_SKIP() << "built without FreeType and fontconfig";
}
#endif
