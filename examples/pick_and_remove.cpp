// Picking and removing by rectangle from a host.
//
//   pick_and_remove
//
// Lays out a 100 x 100 grid of squares (one polygon each, 10 units wide on a
// 20-unit pitch), then: picks the square under a screen point with the cairo
// picker; lists the drawables that lie inside a world rectangle with the
// bounded walk; removes them with one `remove_bounded`; and walks again to
// show they are gone. Prints each step; exits 1 when a count is not the
// expected one.
#include <cstdio>
#include <string>

#include "backends/cairo/cairo_picker.h"
#include "backends/cairo/cairo_renderer.h"
#include "displaylist/display_list.h"
#include "drawables/polything.h"
#include "iterators/filtered_iterators.h"

namespace {

bool inside(const DL::WorldBounds& b, const DL::WorldBounds& rect) {
  return b.min.x >= rect.min.x && b.max.x <= rect.max.x && b.min.y >= rect.min.y &&
         b.max.y <= rect.max.y;
}

// The drawables wholly inside `rect`. The bounded walk hands out every
// drawable of each leaf that overlaps the rectangle, so each is tested.
long count_inside(DL::DisplayList& list, const DL::WorldBounds& rect) {
  long n = 0;
  DisplayListBoundedIterator walk(&list, rect);
  for (DL::Drawable* d : walk)
    if (!walk.at_sentinel() && inside(d->bounds_of(), rect)) ++n;
  return n;
}

long count_all(DL::DisplayList& list) {
  long n = 0;
  DisplayListIterator walk(&list);
  for (DL::Drawable* d : walk) n += d && !walk.at_sentinel();
  return n;
}

}  // namespace

int main() {
  DL::DisplayList list;
  for (int row = 0; row < 100; ++row)
    for (int column = 0; column < 100; ++column) {
      const int x = column * 20, y = row * 20;
      const DL::WorldPoint square[] = {{x, y}, {x + 10, y}, {x + 10, y + 10}, {x, y + 10}};
      auto* polygon = new DL::Polygon(0x2060c0, 4, square);
      list.add(polygon, polygon->bounds_of());
    }
  std::printf("%ld squares\n", count_all(list));

  // Pick: a 400 x 400 view of the whole grid (5 units a pixel); the square at
  // column 10, row 20 has its centre at world (205, 405), pixel (41, 81).
  std::string error;
  auto canvas = DL::CairoCanvas::create(DL::CairoCanvas::Format::png, "", 400, 400, &error);
  if (!canvas) {
    std::fprintf(stderr, "pick_and_remove: %s\n", error.c_str());
    return 1;
  }
  list.set_renderer(canvas->renderer());
  list.set_world_bounds({{0, 0}, {1999, 1999}});
  list.set_screen_bounds({{0, 0}, {399, 399}});
  auto* picker = new DL::CairoPicker;
  add_ref(picker);
  const DL::Drawable* picked = picker->pick(list, 41, 81, 1);
  const DL::Drawable* missed = picker->pick(list, 43, 83, 0);  // the gap between squares
  release(picker);
  list.set_renderer(nullptr);
  if (!picked) {
    std::fprintf(stderr, "pick_and_remove: nothing picked at (41, 81)\n");
    return 1;
  }
  const DL::WorldBounds b = picked->bounds_of();
  std::printf("picked the square (%d, %d)-(%d, %d); between squares: %s\n", b.min.x, b.min.y,
              b.max.x, b.max.y, missed ? "something" : "nothing");

  // Remove by rectangle: columns 10 to 19 and rows 10 to 19 lie inside it.
  const DL::WorldBounds rect{{200, 200}, {390, 390}};
  const long before = count_inside(list, rect);
  list.root->remove_bounded(rect);
  const long after = count_inside(list, rect), left = count_all(list);
  std::printf("inside (200, 200)-(390, 390): %ld before, %ld after removal; %ld squares left\n",
              before, after, left);
  const bool ok =
      b.min.x == 200 && b.min.y == 400 && !missed && before == 100 && after == 0 && left == 9900;
  if (!ok) std::fprintf(stderr, "pick_and_remove: unexpected counts\n");
  return ok ? 0 : 1;
}
