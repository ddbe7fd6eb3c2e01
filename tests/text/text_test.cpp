// The Text drawable against the recording text engine (its fixed-pitch model):
// forms and twins, the attribute step and its limits, draws and their clip
// test, text points, metrics, outlines and the vector walk.
#include "text/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "backends/recording/recording.h"
#include "backends/recording/recording_text.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "tests/support/tree_check.h"

namespace DL {
namespace {

struct Fixture {
  DisplayList list;
  RecordingTextEngine* engine = new RecordingTextEngine;
  RecordingRenderer* renderer = new RecordingRenderer;
  ZR_Font font = ZR_Font(new ZR_Font_Data);
  Fixture() {
    add_ref(engine);
    list.text_engine = engine;
    list.set_renderer(renderer);
  }
  Text* make(const char* s, double height = 10.0, double rotation = 0.0,
             DoublePoint at = {100.0, 200.0}, WorldBounds b = {{100, 198}, {130, 208}}) {
    return new Text(ZR_RGB32{0x112233}, font, at, s, static_cast<int>(std::strlen(s)), height,
                    rotation, b, &list, true);
  }
};

TEST(Text, FormsTwinsClonesAndSearch) {
  Fixture f;
  ZR_Rendition own = ZR_Rendition::create();
  Text* rgb = f.make("abc");
  Text* ren = new Text(&own, f.font, {0, 0}, "abc", 3, 10.0, 0.0, {{0, 0}, {5, 5}}, &f.list, false);
  EXPECT_FALSE(rgb->has_rendition());
  EXPECT_TRUE(ren->has_rendition());
  EXPECT_EQ(ren->rendition(f.list), &own);
  EXPECT_EQ(rgb->rendition(f.list), &f.list.rendition);
  EXPECT_EQ(f.font->reference_count(), 3);  // ours and two holders

  for (Text* t : {rgb, ren}) {
    const bool form = t->has_rendition();
    t->make_hidden();
    t->make_hidden();
    EXPECT_TRUE(t->is_hidden());
    EXPECT_EQ(t->has_rendition(), form);
    EXPECT_EQ(t->type(), &Text::_drawable_type_dummy);
    EXPECT_EQ(t->greeking_height(true), 75);
    EXPECT_EQ(t->greeking_height(false), 5);
    EXPECT_EQ(t->partial_clone(0, 1), nullptr);
    Drawable* c = t->clone();
    EXPECT_TRUE(c->is_hidden());
    EXPECT_EQ(c->has_rendition(), form);
    if (form) {
      EXPECT_EQ(c->rendition(f.list), &own);  // the pointer is shared
    }
    c->make_visible();
    EXPECT_FALSE(c->is_hidden());
    EXPECT_EQ(c->has_rendition(), form);
    c->destroy();
    t->make_visible();
    EXPECT_FALSE(t->is_hidden());
    EXPECT_FALSE(t->supports_fast_vector_iterator());
    EXPECT_EQ(t->get_vector_count(), 1);
    WorldVector v{};
    EXPECT_FALSE(t->get_vector(0, v));
  }
  EXPECT_FALSE(rgb->is_text_greeked(5, false));
  EXPECT_TRUE(rgb->is_text_greeked(4, false));
  EXPECT_TRUE(rgb->is_text_greeked(74, true));
  EXPECT_TRUE(rgb->is_text_greeked(0, false));

  // Search: like characters and equal bounds match, in either visible state.
  Text* pattern = f.make("abc");
  Search s{pattern, pattern->type(), pattern->bounds, 0};
  EXPECT_TRUE(rgb->remove(s));
  rgb->make_hidden();
  EXPECT_TRUE(rgb->remove(s));
  rgb->make_visible();
  Text* other = f.make("abd");
  EXPECT_FALSE(rgb->remove(Search{other, other->type(), other->bounds, 0}));
  Text* moved = f.make("abc", 10.0, 0.0, {100.0, 200.0}, {{100, 198}, {131, 208}});
  EXPECT_FALSE(rgb->remove(Search{moved, moved->type(), moved->bounds, 0}));
  Text* multibyte =
      new Text(ZR_RGB32{0}, f.font, {0, 0}, "abc", 3, 1.0, 0.0, rgb->bounds, &f.list, false);
  EXPECT_FALSE(rgb->remove(Search{multibyte, multibyte->type(), multibyte->bounds, 0}));
  Dot dot(0, {0, 0});
  EXPECT_FALSE(rgb->remove(Search{&dot, dot.type(), rgb->bounds, 0}));

  // A shorter string leaves the bounds.
  const WorldBounds before = rgb->bounds;
  rgb->set_text_string("x", 1, true);
  EXPECT_EQ(rgb->bounds, before);
  EXPECT_EQ(rgb->text->length(), 1);

  std::ostringstream out;
  DisplayListDebug debug{};
  rgb->dump(out, 2, debug);
  EXPECT_EQ(out.str().substr(0, 22), "        Text: level  2");
  EXPECT_EQ(debug.drawable_bytes, static_cast<int>(sizeof(Text)));

  for (Drawable* d : {static_cast<Drawable*>(rgb), static_cast<Drawable*>(ren),
                      static_cast<Drawable*>(pattern), static_cast<Drawable*>(other),
                      static_cast<Drawable*>(moved), static_cast<Drawable*>(multibyte)})
    d->destroy();
  EXPECT_EQ(f.font->reference_count(), 1);
}

TEST(Text, EmptyTextTouchesNoFontAndLeaksNothing) {
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  {
    Text* t = new Text(ZR_RGB32{7});
    EXPECT_EQ(t->font, nullptr);
    EXPECT_EQ(t->text, nullptr);
    EXPECT_EQ(t->bounds, WorldBounds::empty());
    t->destroy();
    Fixture f;
    Text* full = f.make("hello");
    Drawable* c = full->clone();
    full->destroy();
    c->destroy();
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
}

// Regression: a Text made by the empty constructors has no list; its vector
// walk dereferenced the null list, and in release builds so did its measures,
// though the header says it "draws and measures as an empty string".
TEST(Text, EmptyConstructedTextMeasuresAndWalksAsAnEmptyString) {
  Fixture f;
  ZR_Rendition own = ZR_Rendition::create();
  for (Text* t : {new Text(ZR_RGB32{7}), new Text(&own)}) {
    t->position = {12.0, 34.0};
    DrawableVectorIterator* it = t->create_vector_iterator(false);
    ASSERT_TRUE(it);
    EXPECT_TRUE(it->at_end);
    EXPECT_EQ(it->next(), nullptr);
    delete it;
    DoublePoint box[4];
    t->get_text_bbox(box);
    for (const DoublePoint& p : box) EXPECT_EQ(p, t->position);
    t->accumulated_normalized_widths(nullptr);  // no element to fill
    ZR_Matrix m;
    DoublePoint next;
    EXPECT_FALSE(t->get_character_contour(0, nullptr, t->position, box, next, m));
    EXPECT_EQ(next, t->position);
    // Drawn through a list, it prepares like any text and draws nothing.
    f.engine->clear();
    t->draw_unclipped(f.list);
    for (const std::string& e : f.engine->entries()) EXPECT_EQ(e.find("draw_"), std::string::npos);
    EXPECT_TRUE(f.renderer->calls.empty());
    t->destroy();
  }
}

// What an engine sees of an empty string (the choice the header states): the
// draw prepares the font but never calls a draw entry; the widths call no
// measure; the box is measured with length 0; the vector walk ends at once.
TEST(Text, EmptyStringReachesTheEngineOnlyWhereTheHeaderSays) {
  Fixture f;
  Text* t = f.make("");
  f.engine->clear();
  t->draw_unclipped(f.list);
  EXPECT_EQ(f.engine->entries(), std::vector<std::string>{"prepare_font"});
  f.engine->clear();
  t->accumulated_normalized_widths(nullptr);
  EXPECT_EQ(f.engine->entries(), std::vector<std::string>{"font_metrics"});
  f.engine->clear();
  DoublePoint box[4];
  t->get_text_bbox(box);
  ASSERT_EQ(f.engine->calls.size(), 1u);
  EXPECT_EQ(f.engine->calls[0].entry, "measure_unicode_text");
  EXPECT_EQ(f.engine->calls[0].length, 0);
  DrawableVectorIterator* it = t->create_vector_iterator(false);
  EXPECT_TRUE(it->at_end);
  delete it;
  t->destroy();
}

TEST(Text, AttributeStepLimitsAndCopyOnWrite) {
  Fixture f;
  Text* t = f.make("abc", 32767.0);
  ZR_Rendition shared = f.list.rendition;  // a second holder of the body
  EXPECT_TRUE(t->set_text_attributes(f.list));
  EXPECT_NE(f.list.rendition.get(), shared.get());  // copied, not changed for the other
  EXPECT_EQ(f.list.rendition.text_attributes().size, 32767.0f);
  EXPECT_EQ(shared.text_attributes().size, 0.0f);
  t->text_height = 1e15;
  EXPECT_TRUE(t->set_text_attributes(f.list));
  EXPECT_EQ(f.list.rendition.text_attributes().size, 32767.0f);
  t->text_height = 1.5e15;
  const std::uint32_t stamp = f.list.rendition->text_attributes->stamp;
  EXPECT_FALSE(t->set_text_attributes(f.list));
  EXPECT_EQ(f.list.rendition->text_attributes->stamp, stamp);  // untouched
  // No lower limit: a negative factor goes on as a negative size.
  f.list.scale.y = -2.0;
  t->text_height = 3.5;
  EXPECT_EQ(t->height(f.list), -7);
  EXPECT_TRUE(t->set_text_attributes(f.list));
  EXPECT_EQ(f.list.rendition.text_attributes().size, -7.0f);
  // The device transform chooses the factor.
  f.list.use_device_transform = true;
  f.list.device_scale.y = 30.0;
  EXPECT_EQ(t->height(f.list), 105);
  t->rotation = -1.0;
  EXPECT_TRUE(t->set_text_attributes(f.list));
  EXPECT_FLOAT_EQ(f.list.rendition.text_attributes().rotation, 6.2831854820251465f - 1.0f);
  t->destroy();
}

TEST(Text, DrawsCallTheEngineAndTheClipTestComesFirst) {
  Fixture f;
  Text* t = f.make("hi", 10.0, 0.0, {100.0, 200.0}, {{100, 198}, {130, 208}});
  t->draw_unclipped(f.list);
  EXPECT_EQ(f.engine->entries(), (std::vector<std::string>{"prepare_font", "draw_unicode_text"}));
  const RecordedTextCall& draw = f.engine->calls[1];
  EXPECT_EQ(draw.point, (ZR_Point{100.0f, 200.0f, 0.0f}));
  EXPECT_EQ(draw.length, 2);
  EXPECT_EQ(draw.size, 10.0f);
  EXPECT_EQ(draw.rendition_color, 0x112233u);
  EXPECT_EQ(draw.font, f.font.get());

  // Hard clip on screen [0,98]x[0,500] gives the world [-1,99]: one unit off.
  f.engine->clear();
  f.list.rendition.set_hard_clip({0, 98, 0, 500}, true);
  t->draw_clipped(f.list);
  EXPECT_TRUE(f.engine->calls.empty());
  // [0,99] gives [-1,100]: the edges touch, the text is drawn.
  f.list.rendition.set_hard_clip({0, 99, 0, 500}, true);
  t->draw_clipped(f.list);
  EXPECT_EQ(f.engine->entries(), (std::vector<std::string>{"prepare_font", "draw_unicode_text"}));

  // Too high: prepare_font is called, the draw is not.
  f.engine->clear();
  t->text_height = 2e15;
  t->draw_unclipped(f.list);
  EXPECT_EQ(f.engine->entries(), std::vector<std::string>{"prepare_font"});
  t->text_height = 10.0;

  // Hidden: nothing in the plain draws, the bounds in the selection draws.
  f.engine->clear();
  t->make_hidden();
  t->draw_unclipped(f.list);
  t->draw_clipped(f.list);
  EXPECT_TRUE(f.engine->calls.empty());
  t->draw_unclipped_selection(f.list);
  t->draw_clipped_selection(f.list);
  EXPECT_TRUE(f.engine->calls.empty());
  EXPECT_EQ(f.renderer->entries(),
            (std::vector<std::string>{"triangles_unclipped", "triangles_clipped"}));
  EXPECT_EQ(f.renderer->calls[0].points[0], (ZR_DCI_Point{100, 198, 0}));
  EXPECT_EQ(f.renderer->calls[0].points[3], (ZR_DCI_Point{130, 208, 0}));

  // Multibyte form goes to the multibyte entry.
  t->make_visible();
  f.engine->clear();
  t->set_text_string("xyz", 3, false);
  t->draw_unclipped(f.list);
  EXPECT_EQ(f.engine->calls.back().entry, "draw_multibyte_text");
  EXPECT_EQ(f.engine->calls.back().length, 3);
  t->destroy();
}

TEST(Text, TextPointsClampAndComeBack) {
  Fixture f;
  f.list.scale = {1e6, 1e6};
  ZR_Point p;
  f.list.world_to_text_point({2e9, -2e9}, p);
  EXPECT_EQ(p, (ZR_Point{999999986991104.0f, -999999986991104.0f, 0.0f}));
  f.list.world_to_text_point({-2e9, 2e9}, p);
  EXPECT_EQ(p, (ZR_Point{-999999986991104.0f, 999999986991104.0f, 0.0f}));
  f.list.world_to_text_point({1e9, 0}, p);  // exactly 1e15: not clamped, same float
  EXPECT_EQ(p.x, 999999986991104.0f);

  f.list.scale = {0.25, -3.0};
  f.list.offset = {10.0, 500.0};
  f.list.device_scale = {2.0, 2.0};
  f.list.device_offset = {-7.0, 3.0};
  for (bool device : {false, true}) {
    f.list.use_device_transform = device;
    for (DoublePoint w : {DoublePoint{12.5, -40.0}, DoublePoint{-1000.0, 77.0}}) {
      f.list.world_to_text_point(w, p);
      DoublePoint back;
      f.list.text_point_to_world(p, back);
      EXPECT_NEAR(back.x, w.x, 1e-3);
      EXPECT_NEAR(back.y, w.y, 1e-3);
    }
  }
  f.list.world_to_text_point({1.0, 1.0}, p);
  EXPECT_EQ(p, (ZR_Point{-5.0f, 5.0f, 0.0f}));  // device transform in force
}

// Text on the device transform: the engine gets the point and the size from
// device_scale and device_offset when the host sets use_device_transform, from
// scale and offset otherwise, under an aspect ratio other than 1.
TEST(Text, DrawsAndHeightsFollowTheDeviceTransform) {
  Fixture f;
  f.list.device_factor = {2.0, 3.0};
  f.list.aspect_ratio = 1.5;
  f.list.set_world_bounds({{-500, 1000}, {500, 3000}});
  f.list.set_screen_bounds({{10, 20}, {110, 120}});
  Text* t = f.make("ab", 100.0, 0.0, {0.0, 2000.0}, {{-10, 1990}, {50, 2110}});
  struct Case {
    bool device;
    ZR_Point point;
    float size;
    WorldCoord height;
  };
  // scale.y 0.075 and device_scale.y 0.225: sizes 7.5 and 22.5.
  for (const Case& c : {Case{false, {60.0f, 95.0f, 0.0f}, 7.5f, 7},
                        Case{true, {120.0f, 285.0f, 0.0f}, 22.5f, 22}}) {
    SCOPED_TRACE(c.device);
    f.list.use_device_transform = c.device;
    EXPECT_EQ(t->height(f.list), c.height);
    f.engine->clear();
    t->draw_unclipped(f.list);
    ASSERT_EQ(f.engine->entries().back(), "draw_unicode_text");
    EXPECT_EQ(f.engine->calls.back().point, c.point);
    EXPECT_FLOAT_EQ(f.engine->calls.back().size, c.size);
    // The box comes back to the world through the same transform: its lower
    // left corner lies 0.2 em (of 100 world units) below the anchor.
    DoublePoint box[4];
    ASSERT_TRUE(t->set_text_attributes(f.list));
    t->get_text_bbox(box);
    EXPECT_NEAR(box[0].x, 0.0, 1e-3);
    EXPECT_NEAR(box[0].y, 2000.0 - 20.0, 1e-3);
    EXPECT_NEAR(box[1].x - box[0].x, 120.0 * (c.device ? 0.225 / 0.2 : 0.075 / 0.1), 1e-3);
  }
  t->destroy();
}

TEST(Text, MetricsWidthsBoxesAndCharacterBoxes) {
  Fixture f;
  Text* t = f.make("abcd", 10.0);
  float w[4];
  f.list.rendition.set_text_size(42.0f, true);
  t->accumulated_normalized_widths(w);
  EXPECT_FLOAT_EQ(w[0], 0.25f);
  EXPECT_FLOAT_EQ(w[1], 0.5f);
  EXPECT_FLOAT_EQ(w[3], 1.0f);
  EXPECT_EQ(f.list.rendition.text_attributes().size, 42.0f);  // put back
  EXPECT_EQ(f.engine->calls.back().size, 1.0f);               // measured at nominal size
  EXPECT_TRUE(f.engine->calls.back().has_detail);

  ASSERT_TRUE(t->set_text_attributes(f.list));
  DoublePoint box[4];
  t->get_text_bbox(box);
  EXPECT_NEAR(box[0].x, 100.0, 1e-4);
  EXPECT_NEAR(box[0].y, 198.0, 1e-4);
  EXPECT_NEAR(box[1].x, 124.0, 1e-4);
  EXPECT_NEAR(box[2].y, 208.0, 1e-4);

  DoublePoint origin = t->position, cb[4], next;
  for (int i = 0; i < 4; ++i) {
    t->get_character_bbox(i, w, origin, box, cb, next);
    if (i == 0) {
      EXPECT_EQ(cb[0], box[0]);
      EXPECT_EQ(cb[3], box[3]);
    }
    origin = next;
  }
  EXPECT_NEAR(cb[1].x, box[1].x, 1e-9);
  EXPECT_NEAR(cb[2].y, box[2].y, 1e-9);
  EXPECT_NEAR(origin.x, t->position.x + (box[1].x - box[0].x), 1e-9);

  // Two texts that differ only in rotation make the same measure call.
  Text* turned = f.make("abcd", 10.0, 1.0);
  f.engine->clear();
  t->get_text_bbox(box);
  turned->get_text_bbox(box);
  ASSERT_EQ(f.engine->calls.size(), 2u);
  EXPECT_EQ(f.engine->calls[0].rotation, f.engine->calls[1].rotation);
  EXPECT_EQ(f.engine->calls[0].point, f.engine->calls[1].point);

  // Widths without a total stay zeros; an empty string reads no element.
  Text* spaces = f.make("");
  spaces->accumulated_normalized_widths(nullptr);
  t->destroy();
  turned->destroy();
  spaces->destroy();
}

TEST(Text, ContourKeepsTheRenditionRotationAndMatrixIsIdentityPlusMove) {
  Fixture f;
  Text* t = f.make("ab", 10.0, 0.0);
  ASSERT_TRUE(t->set_text_attributes(f.list));
  f.list.rendition.set_text_rotation(0.5f, true);
  DoublePoint box[4];
  t->get_text_bbox(box);
  ZR_Matrix m;
  DoublePoint next;
  ZR_Contour_Set c = t->get_character_contour(1, nullptr, t->position, box, next, m);
  ASSERT_TRUE(c);
  EXPECT_EQ(f.engine->calls.back().entry, "character_contour");
  EXPECT_EQ(f.engine->calls.back().rotation, 0.0f);  // the outline comes unrotated
  const auto* body = static_cast<const ZR_Matrix_Single_Data*>(m.get());
  EXPECT_EQ(body->m[0], 1.0f);
  EXPECT_EQ(body->m[1], 0.0f);
  EXPECT_EQ(body->m[12], 100.0f);
  EXPECT_EQ(body->m[13], 200.0f);
  EXPECT_EQ(f.list.rendition.text_attributes().rotation, 0.5f);
  t->destroy();
}

TEST(Text, VectorWalksOutlinesGreekingAndTheBoundsFigure) {
  Fixture f;
  // "a b": two rectangles of 4 edges; the space yields nothing but moves on.
  Text* t = f.make("a b", 10.0);
  DrawableVectorIterator* it = t->create_vector_iterator(false);
  std::vector<WorldVector> v;
  ASSERT_FALSE(it->at_end);
  v.push_back(it->vector);
  while (WorldVector* n = it->next()) v.push_back(*n);
  EXPECT_EQ(v.size(), 8u);
  EXPECT_EQ(v[0].start, (WorldPoint{100, 200}));
  EXPECT_EQ(v[3].end, v[0].start);                // each contour closes
  EXPECT_EQ(v[4].start, (WorldPoint{112, 200}));  // two advances of 6 on
  EXPECT_EQ(it->next(), nullptr);
  EXPECT_EQ(it->prev(), nullptr);
  delete it;

  // Greeked (height 4 in drawing units): the four box edges, nothing else.
  t->text_height = 4.9;
  it = t->create_vector_iterator(false);
  auto* ti = static_cast<DrawableVectorIteratorText*>(it);
  EXPECT_TRUE(ti->greeked);
  int count = 1;
  while (it->next()) ++count;
  EXPECT_EQ(count, 4);
  EXPECT_FALSE(ti->contour);
  delete it;
  t->text_height = 5.0;
  it = t->create_vector_iterator(false);
  EXPECT_FALSE(static_cast<DrawableVectorIteratorText*>(it)->greeked);
  delete it;
  // Device transform: 75 is the threshold.
  f.list.use_device_transform = true;
  f.list.device_scale = {10.0, 10.0};
  t->text_height = 7.4;
  it = t->create_vector_iterator(false);
  EXPECT_TRUE(static_cast<DrawableVectorIteratorText*>(it)->greeked);
  delete it;
  f.list.use_device_transform = false;

  // Too high: at the end at once.
  t->text_height = 2e15;
  it = t->create_vector_iterator(false);
  EXPECT_TRUE(it->at_end);
  EXPECT_EQ(it->next(), nullptr);
  delete it;

  // Negative world coordinates come out as 0.
  Text* neg = f.make("a", 10.0, 0.0, {-50.0, -50.0});
  it = neg->create_vector_iterator(false);
  EXPECT_EQ(it->vector.start, (WorldPoint{0, 0}));
  delete it;

  // The bounds figure: 8 vectors without the engine; centre cut toward zero.
  f.engine->clear();
  t->bounds = {{-3, 10}, {0, 20}};
  it = t->create_vector_iterator(true);
  std::vector<WorldVector> fig{it->vector};
  while (WorldVector* n = it->next()) fig.push_back(*n);
  EXPECT_EQ(fig.size(), 8u);
  EXPECT_EQ(it->next(), nullptr);
  EXPECT_EQ(fig[4].start, (WorldPoint{-1, 10}));
  EXPECT_EQ(fig[7].end, (WorldPoint{0, 10}));
  EXPECT_TRUE(f.engine->calls.empty());
  delete it;

  // An empty string ends at once; a first character without outline is passed.
  Text* empty = f.make("");
  it = empty->create_vector_iterator(false);
  EXPECT_TRUE(it->at_end);
  delete it;
  Text* lead = f.make(" a", 10.0);
  it = lead->create_vector_iterator(false);
  EXPECT_FALSE(it->at_end);
  EXPECT_EQ(it->vector.start, (WorldPoint{106, 200}));
  delete it;
  for (Text* x : {t, neg, empty, lead}) x->destroy();
}

// An engine whose every character (a space aside) is a square with a square
// hole, two contours, whatever font is asked for: the walk's handling of
// several contours per character does not depend on a font being found.
class HoledSquareEngine : public RecordingTextEngine {
 public:
  ZR_Contour_Set character_contour(ZR_Rendition* r, unsigned short character,
                                   ZR_Character_Metrics* metrics) override {
    ZR_Contour_Set plain = RecordingTextEngine::character_contour(r, character, metrics);
    if (!plain) return plain;
    return ZR_Contour_Set::make({{{0, 0, 0}, {6, 0, 0}, {6, 8, 0}, {0, 8, 0}},
                                 {{2, 2, 0}, {4, 2, 0}, {4, 6, 0}, {2, 6, 0}}});
  }
};

std::vector<WorldVector> all_vectors(Text* t) {
  std::vector<WorldVector> v;
  DrawableVectorIterator* it = t->create_vector_iterator(false);
  if (!it->at_end) v.push_back(it->vector);
  while (WorldVector* n = it->next()) v.push_back(*n);
  delete it;
  return v;
}

TEST(Text, RotatedTextWalksEveryContourOfEveryCharacterInPlace) {
  Fixture f;
  auto* engine = new HoledSquareEngine;
  add_ref(engine);
  release(f.list.text_engine);
  f.list.text_engine = engine;

  // Turned a quarter: text x runs along world +y, text y along world -x. The
  // advance (0.6 em of 10) moves each character 6 up; .5 keeps truncation off
  // the float rounding of the turn.
  Text* t = f.make("a b", 10.0, M_PI / 2, {100.5, 200.5});
  ASSERT_TRUE(t->set_text_attributes(f.list));
  DoublePoint box[4];
  t->get_text_bbox(box);
  // The character contour: in text units, unrotated; the matrix turns and moves.
  ZR_Matrix m;
  DoublePoint next;
  ZR_Contour_Set c = t->get_character_contour(0, nullptr, t->position, box, next, m);
  ASSERT_TRUE(c);
  EXPECT_EQ(c->contour_count, 2);
  EXPECT_EQ(engine->calls.back().rotation, 0.0f);
  EXPECT_NEAR(next.x, 100.5, 1e-4);
  EXPECT_NEAR(next.y, 206.5, 1e-4);
  const ZR_Point corner{6.0f, 0.0f, 0.0f};
  ZR_Point turned;
  m.transform(1, &corner, &turned);
  EXPECT_NEAR(turned.x, 100.5f, 1e-4f);
  EXPECT_NEAR(turned.y, 206.5f, 1e-4f);

  // The walk: four edges of each contour, outer then inner, for "a" and for
  // "b"; the space yields nothing but moves the origin by its advance.
  auto square = [](int x0, int y0, int x1, int y1) {
    return std::vector<WorldVector>{
        {{x0, y0}, {x0, y1}}, {{x0, y1}, {x1, y1}}, {{x1, y1}, {x1, y0}}, {{x1, y0}, {x0, y0}}};
  };
  std::vector<WorldVector> expected;
  for (int dy : {0, 12}) {
    for (const auto& part :
         {square(100, 200 + dy, 92, 206 + dy), square(98, 202 + dy, 94, 204 + dy)})
      expected.insert(expected.end(), part.begin(), part.end());
  }
  EXPECT_EQ(all_vectors(t), expected);

  // Unturned, the same text walks the same squares lying along +x.
  Text* flat = f.make("a b", 10.0, 0.0, {100.5, 200.5});
  const std::vector<WorldVector> v = all_vectors(flat);
  ASSERT_EQ(v.size(), 16u);
  EXPECT_EQ(v[0], (WorldVector{{100, 200}, {106, 200}}));
  EXPECT_EQ(v[4], (WorldVector{{102, 202}, {104, 202}}));
  EXPECT_EQ(v[8], (WorldVector{{112, 200}, {118, 200}}));
  t->destroy();
  flat->destroy();
}

TEST(Text, LivesInTheTree) {
  Fixture f;
  std::vector<const Drawable*> order;
  for (int i = 0; i < 100; ++i) {
    Text* t = f.make("tree", 10.0, 0.0, {i * 50.0, 0.0}, {{i * 50, -2}, {i * 50 + 24, 8}});
    f.list.add(t, t->bounds_of());
    order.push_back(t);
  }
  EXPECT_TRUE(test::tree_is_valid(f.list, &order));
}

}  // namespace
}  // namespace DL
