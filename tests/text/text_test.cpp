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
