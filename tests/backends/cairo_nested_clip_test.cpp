// A complex clip holds for what nested lists draw: the library hands a nested
// list only the hard clip, so the renderer cuts the entries of every other
// rendition to the outer list's complex clip (OuterView). A drawing made only
// of nested lists, under a circle and under a star, with the device claiming
// the clip and not, must leave no pixel outside the clip, exact with cairo and
// inside the clip's box with the draft; and what lies inside must still show.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "backends/cairo/cairo_renderer.h"
#include "backends/cairo/draft_renderer.h"
#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "drawables/image.h"
#include "drawables/polything.h"
#include "ellipse/ellipse.h"
#include "nested/drawable_display_list.h"

namespace DL {
namespace {

constexpr int kSize = 200;
constexpr ZR_RGB32 kWhite = 0xffffff;

// The block: a filled square, a frame, a cross of lines, a ring and dots,
// 0..1000 in its own world.
void fill_block(DisplayList& block) {
  const WorldPoint square[] = {{100, 100}, {900, 100}, {900, 900}, {100, 900}};
  block.add(new Polygon(ZR_RGB32{0x3060c0}, 4, square), {{100, 100}, {900, 900}});
  const WorldPoint frame[] = {{0, 0}, {1000, 0}, {1000, 1000}, {0, 1000}, {0, 0}};
  block.add(new Polyline(ZR_RGB32{0x000000}, 5, frame), {{0, 0}, {1000, 1000}});
  const WorldPoint diagonal[] = {{0, 0}, {1000, 1000}};
  block.add(new Polyline(ZR_RGB32{0xc00000}, 2, diagonal), {{0, 0}, {1000, 1000}});
  block.add(new Ellipse(ZR_RGB32{0x008000}, {500, 500}, {400, 400}, 0, &block),
            {{100, 100}, {900, 900}});
  for (int i = 0; i <= 1000; i += 125)
    block.add(new Dot(ZR_RGB32{0x800080}, {i, 1000 - i}), {{i, 1000 - i}, {i, 1000 - i}});
}

std::vector<ZR_Point> star(bool round) {
  std::vector<ZR_Point> c;
  const int n = round ? 64 : 10;
  for (int i = 0; i < n; ++i) {
    const double a = 2 * M_PI * i / n;
    const double r = round || i % 2 == 0 ? 80 : 35;
    c.push_back(
        {static_cast<float>(100 + r * std::cos(a)), static_cast<float>(100 + r * std::sin(a)), 0});
  }
  return c;
}

// Whether device point (x, y) is at least `margin` inside or outside `poly`.
double distance_to_edge(const std::vector<ZR_Point>& poly, double x, double y) {
  double best = 1e9;
  for (std::size_t i = 0; i < poly.size(); ++i) {
    const ZR_Point& a = poly[i];
    const ZR_Point& b = poly[(i + 1) % poly.size()];
    const double dx = b.x - a.x, dy = b.y - a.y;
    double t = ((x - a.x) * dx + (y - a.y) * dy) / (dx * dx + dy * dy);
    t = std::clamp(t, 0.0, 1.0);
    best = std::min(best, std::hypot(x - (a.x + t * dx), y - (a.y + t * dy)));
  }
  return best;
}

struct Scene {
  DisplayList block;
  DisplayList outer;
  Scene() {
    fill_block(block);
    // A 6 x 6 array of the block, each 40 units of the outer world apart, over
    // the 200 x 200 picture, and one more straddling the right edge.
    const WorldBounds extent{{0, 0}, {1000, 1000}};
    for (int j = 0; j < 6; ++j)
      for (int i = 0; i < 6; ++i) {
        auto* d = new DrawableDisplayList(ZR_RGB32{0}, &block, &extent,
                                          DrawableDisplayList::Ownership::borrowed);
        d->set_scale({0.035, 0.035});
        d->set_offset({i * 36.0 - 10, j * 36.0 - 10});
        outer.add(d, d->mapped_bounds());
      }
    outer.set_world_bounds({{0, 0}, {kSize - 1, kSize - 1}});
    outer.set_screen_bounds({{0, 0}, {kSize - 1, kSize - 1}});
    outer.rendition.set_hard_clip({0, kSize - 1, 0, kSize - 1}, false);
  }
};

TEST(NestedClip, NothingOfANestedListShowsOutsideTheClip) {
  for (bool round : {true, false})
    for (bool supported : {false, true})
      for (bool draft : {false, true}) {
        SCOPED_TRACE(testing::Message()
                     << "round " << round << " supported " << supported << " draft " << draft);
        Scene s;
        const std::vector<ZR_Point> poly = star(round);
        ZR_Contour_Set clip = ZR_Contour_Set::make({poly});
        std::string error;
        auto canvas = CairoCanvas::create(CairoCanvas::Format::png, "", kSize, kSize, &error);
        ASSERT_TRUE(canvas) << error;
        DraftRenderer* d = nullptr;
        ZR_Renderer* renderer = canvas->renderer();
        if (draft) {
          canvas->renderer()->flush_direct();
          cairo_surface_flush(canvas->surface());
          d = new DraftRenderer(canvas->surface());
          add_ref(d);
          ASSERT_TRUE(d->ok());
          d->clear(kWhite);
          d->set_outer_list(&s.outer);
          renderer = d;
        } else {
          canvas->renderer()->set_outer_list(&s.outer);
          canvas->renderer()->set_complex_clip_supported(supported);
        }
        s.outer.set_renderer(renderer);
        s.outer.complex_clip_supported = supported;
        s.outer.rendition.set_complex_clip(&clip, false);
        s.outer.rendition.validate_hard_complex_clip();
        s.outer.draw_view();
        s.outer.set_renderer(nullptr);
        if (d) {
          d->mark_dirty();
          release(d);
        }
        canvas->renderer()->flush_direct();
        float x0 = 1e9, x1 = -1e9, y0 = 1e9, y1 = -1e9;
        for (const ZR_Point& p : poly) {
          x0 = std::min(x0, p.x), x1 = std::max(x1, p.x);
          y0 = std::min(y0, p.y), y1 = std::max(y1, p.y);
        }
        int outside = 0, inside = 0;
        for (int row = 0; row < kSize; ++row)
          for (int x = 0; x < kSize; ++x) {
            const int y = kSize - 1 - row;  // device y up
            const bool painted = canvas->pixel(x, row) != kWhite;
            bool beyond;
            if (draft)
              beyond = x < x0 - 1 || x > x1 + 1 || y < y0 - 1 || y > y1 + 1;
            else
              beyond = !clip->point_inside(x, y) && distance_to_edge(poly, x, y) > 1.0;
            if (painted && beyond) ++outside;
            if (painted && !beyond) ++inside;
          }
        EXPECT_EQ(outside, 0);
        EXPECT_GT(inside, 2000);
      }
}

// The classification behind the cut: a nested list wholly inside the clip is
// drawn without a cut (dots go straight to the pixels), one wholly outside is
// dropped, and the outer list's own entries follow its rendition only.
TEST(NestedClip, OuterViewReachFollowsTheSourceAndTheEntrysRectangle) {
  ZR_Rendition outer = ZR_Rendition::create();
  ZR_Rendition nested = ZR_Rendition::create();
  ZR_Contour_Set clip = ZR_Contour_Set::make({star(true)});  // circle r 80 about (100, 100)
  OuterView reach;
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::none);  // no source
  reach.set_source(&outer);
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::none);  // no clip on the source
  outer.set_complex_clip(&clip, false);
  EXPECT_EQ(reach.reach(&outer, 0), OuterView::Reach::none);  // the source's own entries
  nested.set_hard_clip({90, 110, 90, 110}, false);
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::none);
  EXPECT_EQ(reach.reach(&nested, 100), OuterView::Reach::cut);  // wide lines reach the edge
  nested.set_hard_clip({0, 10, 0, 10}, false);
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::skip);
  nested.set_hard_clip({0, 199, 0, 199}, false);
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::cut);
  ASSERT_TRUE(reach.contours());
  nested.set_hard_clip({5, 4, 0, 10}, false);  // empty
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::skip);
  // Lifted off the source (a group wholly inside): no cut.
  outer.set_complex_clip(nullptr, false);
  nested.set_hard_clip({0, 199, 0, 199}, false);
  EXPECT_EQ(reach.reach(&nested, 0), OuterView::Reach::none);
}

}  // namespace
}  // namespace DL

namespace DL {
namespace {

// An image is scaled to its world rectangle under the outer list's scale: at
// three zooms, shrunk, at its size and enlarged, cairo and the draft cover the
// rectangle's pixels to within one pixel, and nothing beyond.
TEST(ImageScale, AnImageCoversItsWorldRectangleAtEveryZoom) {
  auto* body = new ZR_Image_Data;
  body->width = 40;
  body->height = 30;
  body->pixels.assign(40 * 30, 0x20a040);
  body->world_width = 4000;
  body->world_height = 3000;
  ZR_Image image(body);
  const WorldBounds rect{{1000, 2000}, {5000, 5000}};
  for (double zoom : {0.004, 0.01, 0.037})
    for (bool draft : {false, true}) {
      SCOPED_TRACE(testing::Message() << "zoom " << zoom << " draft " << draft);
      DisplayList list;
      list.add(new Image(ZR_RGB32{0}, rect, image), rect);
      const int side = 200;
      list.set_screen_bounds({{0, 0}, {side - 1, side - 1}});
      list.set_world_bounds({{0, 0},
                             {static_cast<WorldCoord>((side - 1) / zoom),
                              static_cast<WorldCoord>((side - 1) / zoom)}});
      std::string error;
      auto canvas = CairoCanvas::create(CairoCanvas::Format::png, "", side, side, &error);
      ASSERT_TRUE(canvas) << error;
      DraftRenderer* d = nullptr;
      if (draft) {
        d = new DraftRenderer(canvas->surface());
        add_ref(d);
        d->clear(kWhite);
        d->set_outer_list(&list);
        list.set_renderer(d);
      } else {
        canvas->renderer()->set_outer_list(&list);
        list.set_renderer(canvas->renderer());
      }
      list.draw_view();
      list.set_renderer(nullptr);
      if (d) {
        d->mark_dirty();
        release(d);
      }
      // The painted box against the rectangle's pixels.
      int x0 = side, x1 = -1, y0 = side, y1 = -1;
      for (int row = 0; row < side; ++row)
        for (int x = 0; x < side; ++x)
          if (canvas->pixel(x, row) != kWhite) {
            const int y = side - 1 - row;
            x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
          }
      const double scale = list.scale.x;
      const double want_x0 = rect.min.x * scale, want_x1 = rect.max.x * scale;
      const double want_y0 = rect.min.y * scale, want_y1 = rect.max.y * scale;
      EXPECT_NEAR(x0, want_x0, 1.0);
      EXPECT_NEAR(x1 + 1, want_x1, 1.5);
      EXPECT_NEAR(y1, want_y1, 1.0);
      EXPECT_NEAR(y0 - 1, want_y0, 1.5);
    }
}

}  // namespace
}  // namespace DL
