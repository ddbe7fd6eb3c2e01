#include "foundation/rendering.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace {

// A counted object that tells when it is deleted.
struct Probe : ZR_Counted {
  explicit Probe(int* deaths) : deaths(deaths) {}
  ~Probe() override { ++*deaths; }
  int* deaths;
};

TEST(Counting, ReleaseDeletesAtZeroOnly) {
  int deaths = 0;
  auto* p = new Probe(&deaths);
  add_ref(p);
  add_ref(p);
  release(p);
  EXPECT_EQ(p->reference_count(), 1);
  EXPECT_EQ(deaths, 0);
  release(p);
  EXPECT_EQ(deaths, 1);
}

TEST(Counting, HandlesCopyAssignAndClear) {
  int deaths = 0;
  auto* a = new Probe(&deaths);
  auto* b = new Probe(&deaths);
  {
    ZR_Handle<Probe> h1(a);
    ZR_Handle<Probe> h2 = h1;
    EXPECT_EQ(a->reference_count(), 2);
    ZR_Handle<Probe> h3(b);
    h2 = h3;  // b referenced before a is released
    EXPECT_EQ(a->reference_count(), 1);
    EXPECT_EQ(b->reference_count(), 2);
    ZR_Handle<Probe>& alias = h3;
    h3 = alias;  // self-assignment keeps the object
    EXPECT_EQ(b->reference_count(), 2);
    ZR_Handle<Probe> moved = std::move(h1);
    EXPECT_FALSE(h1);
    EXPECT_EQ(a->reference_count(), 1);
    moved.clear();
    EXPECT_EQ(deaths, 1);
    ZR_Handle<Probe> null;
    null = ZR_Handle<Probe>();  // null handles count nothing
  }
  EXPECT_EQ(deaths, 2);
}

TEST(Counting, ManyThreadsKeepExactCounts) {
  int deaths = 0;
  auto* p = new Probe(&deaths);
  add_ref(p);
  auto work = [p] {
    for (int i = 0; i < 20000; ++i) {
      ZR_Handle<Probe> h(p);
      ZR_Handle<Probe> copy = h;
    }
  };
  std::thread t1(work), t2(work), t3(work);
  t1.join();
  t2.join();
  t3.join();
  EXPECT_EQ(p->reference_count(), 1);
  // The lock is recursive: a thread that holds it may count.
  {
    ZR_Global_Lock held;
    add_ref(p);
    release(p);
  }
  release(p);
  EXPECT_EQ(deaths, 1);
}

TEST(Rendition, SettersCopyOnWriteOrStampInPlace) {
  ZR_Rendition a = ZR_Rendition::create();
  ZR_Rendition b = a;  // shares the body
  ZR_Rendition_Data* shared = a.get();
  std::uint32_t stamp = shared->stamp;

  a.set_color(0x123456, false);  // shared and not in place: a gets a clone
  EXPECT_NE(a.get(), shared);
  EXPECT_EQ(a.color(), 0x123456u);
  EXPECT_EQ(b.color(), 0u);
  EXPECT_EQ(shared->reference_count(), 1);

  b.set_color(0x00FF00, true);  // in place: same body, new stamp
  EXPECT_EQ(b.get(), shared);
  EXPECT_NE(shared->stamp, stamp);
  stamp = shared->stamp;
  b.set_color(0x00FF00, false);  // equal value: nothing at all
  EXPECT_EQ(shared->stamp, stamp);

  // Attribute bodies: in place writes through both levels for everyone.
  ZR_Rendition c = b;
  b.set_line_weight(5, true);
  EXPECT_EQ(c.line_weight(), 5);
  c.set_line_weight(1, false);
  EXPECT_EQ(c.line_weight(), 1);
  EXPECT_EQ(b.line_weight(), 5);
  b.set_face_mode(64, false);
  EXPECT_EQ(b.face_mode(), 64);

  // Rotation compares the raw argument and stores it reduced to [0, 2pi).
  b.set_text_rotation(-1.0f, false);
  EXPECT_NEAR(b.text_attributes().rotation, 6.2831854820251465f - 1.0f, 1e-6);
  b.set_text_rotation(7.0f, false);
  EXPECT_NEAR(b.text_attributes().rotation, 7.0f - 6.2831854820251465f, 1e-6);
}

TEST(Rendition, ClipsAndTheirHardForm) {
  ZR_Rendition r = ZR_Rendition::create();
  ZR_Contour_Set square =
      ZR_Contour_Set::make({{{0, 0, 0}, {100, 0, 0}, {100, 100, 0}, {0, 100, 0}}});
  r.set_complex_clip(&square, true);
  EXPECT_EQ(r.complex_clip(), square.get());
  EXPECT_EQ(square->reference_count(), 2);
  r.validate_hard_complex_clip();
  EXPECT_EQ(r->hard_complex_clip.get(), square.get());  // whole-plane hard clip: shared

  r.set_hard_clip({10, 50, -5, 60}, true);
  EXPECT_EQ(r->hard_complex_clip_valid, 0);
  r.validate_hard_complex_clip();
  const ZR_Contour_Set_Data* cut = r->hard_complex_clip.get();
  ASSERT_NE(cut, nullptr);
  ASSERT_EQ(cut->contour_count, 1);
  for (int i = 0; i < cut->contour_sizes[0]; ++i) {
    EXPECT_GE(cut->contour_points[i].x, 10);
    EXPECT_LE(cut->contour_points[i].x, 50);
    EXPECT_GE(cut->contour_points[i].y, 0);
    EXPECT_LE(cut->contour_points[i].y, 60);
  }
  EXPECT_TRUE(cut->point_inside(30, 30));
  EXPECT_FALSE(cut->point_inside(5, 30));

  r.set_complex_clip(nullptr, true);
  EXPECT_EQ(r.complex_clip(), nullptr);
  EXPECT_EQ(square->reference_count(), 1);
}

TEST(ContourSet, EvenOddInsideTest) {
  // A square with a square hole.
  ZR_Contour_Set s = ZR_Contour_Set::make({{{0, 0, 0}, {10, 0, 0}, {10, 10, 0}, {0, 10, 0}},
                                           {{3, 3, 0}, {7, 3, 0}, {7, 7, 0}, {3, 7, 0}}});
  EXPECT_TRUE(s->point_inside(1, 1));
  EXPECT_FALSE(s->point_inside(5, 5));
  EXPECT_FALSE(s->point_inside(11, 5));
  ZR_Contour_Set none = ZR_Contour_Set::make({});
  EXPECT_FALSE(none->point_inside(0, 0));
  EXPECT_EQ(none->contour_points, nullptr);
}

TEST(Renderer, OptionsAndIdleEntries) {
  auto* r = new ZR_Renderer;
  add_ref(r);
  EXPECT_EQ(r->option_source->table.find(ZR_String("Is Selector")), nullptr);
  r->option_source->table.set(ZR_String("Is Selector"), true);
  const ZR_Option* o = r->option_source->table.find(ZR_String("Is Selector"));
  ASSERT_NE(o, nullptr);
  EXPECT_TRUE(o->value);
  // Every entry of a new renderer can be called and does nothing.
  ZR_DCI_Point p{1, 2, 0};
  r->dot_clipped(nullptr, &p, nullptr);
  r->elliptical_pie_unclipped(nullptr, &p, &p, 0.0, 1.0, 0.0, nullptr);
  release(r);
}

TEST(EllipticalPoints, EvenlyFromStartToEnd) {
  ZR_DCI_Point pts[5];
  ZP_Generate_Elliptical_Points({100, 50, 0}, {10, 20, 0}, 0.0f, 3.14159265f, 0.0f, 5, pts);
  EXPECT_EQ(pts[0], (ZR_DCI_Point{110, 50, 0}));
  EXPECT_EQ(pts[2], (ZR_DCI_Point{100, 70, 0}));
  EXPECT_EQ(pts[4], (ZR_DCI_Point{90, 50, 0}));
  // A quarter turn of tilt carries the x radius onto y.
  ZP_Generate_Elliptical_Points({0, 0, 0}, {10, 20, 0}, 0.0f, 0.0f, 1.5707964f, 1, pts);
  EXPECT_EQ(pts[0], (ZR_DCI_Point{0, 10, 0}));
}

TEST(Matrix, RotateThenTranslate) {
  ZR_Matrix m;
  m.set_identity();
  m.rotate(0.0f, 0.0f, 1.5707964f);
  m.translate(10.0f, 20.0f, 0.0f);
  ZR_Point in{1, 0, 0}, out{};
  m.transform(1, &in, &out);
  EXPECT_NEAR(out.x, 10.0f, 1e-5);
  EXPECT_NEAR(out.y, 21.0f, 1e-5);
  // Copy on write: a shared matrix is not changed behind its other holder.
  ZR_Matrix copy = m;
  copy.translate(1.0f, 0.0f, 0.0f);
  m.transform(1, &in, &out);
  EXPECT_NEAR(out.x, 10.0f, 1e-5);
}

}  // namespace
