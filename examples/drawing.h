// The drawing the window examples show: a few thousand primitives of several
// kinds in a world of 100,000 units square, built the same way every run.
#pragma once

#include <cmath>

#include "displaylist/display_list.h"
#include "drawables/dot.h"
#include "drawables/polything.h"
#include "ellipse/ellipse.h"

namespace example {

constexpr int kWorld = 100000;

// Fills `list`: a spiral polyline, rings of pies, and a grid of squares and dots.
inline void build_drawing(DL::DisplayList& list) {
  auto add = [&list](DL::Drawable* d) { list.add(d, d->bounds_of()); };
  for (int row = 0; row < 40; ++row)
    for (int column = 0; column < 40; ++column) {
      const int x = 1000 + column * 2450, y = 1000 + row * 2450;
      const DL::WorldPoint square[] = {{x, y}, {x + 1200, y}, {x + 1200, y + 1200}, {x, y + 1200}};
      add(new DL::Polygon(row % 2 ? 0xd0e0f0 : 0xf0e0d0, 4, square));
      add(new DL::Dot(0x000000, {x + 1800, y + 1800}));
    }
  DL::WorldPoint spiral[720];
  for (int i = 0; i < 720; ++i) {
    const double t = i * 0.05, r = 1000.0 + 60.0 * i;
    spiral[i] = {50000 + int(std::lround(r * std::cos(t))),
                 50000 + int(std::lround(r * std::sin(t)))};
  }
  add(new DL::Polyline(0xc00000, 720, spiral));
  for (int i = 0; i < 12; ++i) {
    const double a = i * 0.5236;
    const DL::WorldPoint c{50000 + int(std::lround(30000 * std::cos(a))),
                           50000 + int(std::lround(30000 * std::sin(a)))};
    add(new DL::EllipticalPie(0x3070c0, c, {3000, 2000}, float(a), 0.0f, 4.5f, &list));
  }
}

}  // namespace example
