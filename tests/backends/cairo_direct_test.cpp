// The cairo renderer's direct writes and flat short ramps against the plain
// path (cairo drawing everything): the same calls drawn both ways into image
// surfaces of both 32-bit formats and both orientations, then compared pixel
// by pixel. Exact where the header says exact; within the stated tolerance
// where it says so.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <functional>
#include <random>
#include <vector>

#include "backends/cairo/cairo_renderer.h"

namespace DL {
namespace {

constexpr int kW = 61, kH = 47;  // odd sizes, so rows and columns are not mistaken

struct Surface {
  std::vector<std::uint32_t> pixels;
  long long direct = 0;
  std::uint32_t at(int x, int y) const { return pixels[static_cast<std::size_t>(y) * kW + x]; }
};

// Draws `calls` into a fresh surface through a renderer with the fast paths on
// or off; the surface starts white (RGB24) or transparent (ARGB32, so the
// alpha of a blend shows as well).
Surface draw(cairo_format_t format, DeviceOrientation orientation, bool fast,
             const std::function<void(CairoRenderer&)>& calls) {
  cairo_surface_t* s = cairo_image_surface_create(format, kW, kH);
  cairo_t* cr = cairo_create(s);
  if (format == CAIRO_FORMAT_RGB24) {
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
  }
  auto* r = new CairoRenderer(cr, kH, orientation);
  add_ref(r);
  r->set_direct_dots(fast);
  r->set_flat_short_ramps(fast);
  calls(*r);
  r->flush_direct();
  Surface out;
  out.direct = r->direct_dots();
  release(r);
  cairo_destroy(cr);
  cairo_surface_flush(s);
  const unsigned char* data = cairo_image_surface_get_data(s);
  const int stride = cairo_image_surface_get_stride(s);
  for (int y = 0; y < kH; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + y * stride);
    for (int x = 0; x < kW; ++x)
      out.pixels.push_back(format == CAIRO_FORMAT_RGB24 ? row[x] & 0xffffff : row[x]);
  }
  cairo_surface_destroy(s);
  return out;
}

int channel_difference(std::uint32_t a, std::uint32_t b) {
  int most = 0;
  for (int shift = 0; shift < 32; shift += 8)
    most = std::max(most, std::abs(int((a >> shift) & 0xff) - int((b >> shift) & 0xff)));
  return most;
}

// How two pictures differ where either is painted (not the background, read
// at the corner of the plain one): the pixels painted, the largest channel
// difference on one, and the sum of those differences.
struct Differences {
  int painted = 0, worst = 0, sum = 0;
};
Differences differences(const Surface& plain, const Surface& fast) {
  const std::uint32_t background = plain.at(0, 0);
  Differences out;
  for (std::size_t k = 0; k < plain.pixels.size(); ++k) {
    if (plain.pixels[k] == background && fast.pixels[k] == background) continue;
    ++out.painted;
    const int d = channel_difference(plain.pixels[k], fast.pixels[k]);
    out.worst = std::max(out.worst, d);
    out.sum += d;
  }
  return out;
}

// Runs `check(plain, fast)` for every format and orientation.
void both_ways(const std::function<void(CairoRenderer&)>& calls,
               const std::function<void(const Surface&, const Surface&)>& check) {
  for (cairo_format_t format : {CAIRO_FORMAT_ARGB32, CAIRO_FORMAT_RGB24})
    for (DeviceOrientation orientation : {DeviceOrientation::y_up, DeviceOrientation::y_down}) {
      SCOPED_TRACE(testing::Message()
                   << "format " << format << " y_up " << (orientation == DeviceOrientation::y_up));
      const Surface plain = draw(format, orientation, false, calls);
      const Surface fast = draw(format, orientation, true, calls);
      EXPECT_EQ(plain.direct, 0);
      check(plain, fast);
    }
}

// The hard clips each case is drawn under, clipped and unclipped: none,
// across two edges of the surface, one pixel, empty, far beyond.
const ZR_Int_Rectangle kClips[] = {
    {INT32_MIN, INT32_MAX, INT32_MIN, INT32_MAX},
    {-5, 30, 7, kH + 4},
    {kW - 1, kW - 1, 0, 0},
    {20, 10, 0, kH},
    {INT32_MIN, 70000, -70000, INT32_MAX},
};

// Grid polylines, one-point polylines, points of ellipses, grid polygons and
// markers: cairo's pixels (within a level where blends pile up), under every clip, with a complex
// clip (cairo draws then), far off the surface and through its edges.
TEST(CairoDirect, GridLinesPolygonsMarkersAndPointsWithinALevelOfCairo) {
  std::mt19937 random(20);
  auto coordinate = [&](int limit) {
    return static_cast<int>(random() % static_cast<unsigned>(limit + 16)) - 8;
  };
  // Polylines along the grid: steps alternating between the axes (so
  // right-angle turns), with a straight run now and then; no turn back.
  std::vector<std::vector<ZR_DCI_Point>> lines;
  for (int i = 0; i < 24; ++i) {
    std::vector<ZR_DCI_Point> line{{coordinate(kW), coordinate(kH), 0}};
    const int n = 2 + static_cast<int>(random() % 5);
    for (int k = 1; k < n; ++k) {
      ZR_DCI_Point p = line.back();
      const int step = static_cast<int>(random() % 13) + 1;
      const int sign = random() % 2 ? 1 : -1;
      if ((k + i) % 2)
        p.x += sign * step;
      else
        p.y += sign * step;
      line.push_back(p);
    }
    lines.push_back(line);
  }
  lines.push_back({{-70000, 5, 0}, {70000, 5, 0}, {70000, 9, 0}});  // far beyond the guard
  lines.push_back({{3, 3, 0}, {3, 3, 0}});                          // no length: cairo
  lines.push_back({{3, 20, 0}, {9, 20, 0}, {5, 20, 0}});            // turns back: cairo
  lines.push_back({{2, 30, 0}, {9, 30, 0}, {15, 30, 0}});           // straight on
  // Rectilinear polygons: rectangles, Ls, a frame (even-odd: its hole stays
  // empty), one of no area, one crossing the surface's edge.
  std::vector<std::vector<ZR_DCI_Point>> polygons;
  for (int i = 0; i < 12; ++i) {
    const int x0 = coordinate(kW), y0 = coordinate(kH);
    const int w = 1 + static_cast<int>(random() % 15), h = 1 + static_cast<int>(random() % 11);
    if (i % 2)
      polygons.push_back({{x0, y0, 0}, {x0 + w, y0, 0}, {x0 + w, y0 + h, 0}, {x0, y0 + h, 0}});
    else
      polygons.push_back({{x0, y0, 0},
                          {x0 + w, y0, 0},
                          {x0 + w, y0 + h / 2, 0},
                          {x0 + w / 2, y0 + h / 2, 0},
                          {x0 + w / 2, y0 + h, 0},
                          {x0, y0 + h, 0}});
  }
  polygons.push_back({{2, 2, 0}, {30, 2, 0}, {30, 2, 0}, {2, 2, 0}});
  polygons.push_back({{40, 10, 0},
                      {56, 10, 0},
                      {56, 26, 0},
                      {40, 26, 0},
                      {40, 10, 0},
                      {44, 14, 0},
                      {44, 22, 0},
                      {52, 22, 0},
                      {52, 14, 0},
                      {44, 14, 0}});
  polygons.push_back({{-100000, -3, 0}, {kW + 3, -3, 0}, {kW + 3, 4, 0}, {-100000, 4, 0}});
  // Markers 8 apart (their crosses do not meet), some over the edges.
  std::vector<ZR_DCI_Point> markers;
  for (int y = -1; y < kH + 2; y += 8)
    for (int x = -2; x < kW + 2; x += 8) markers.push_back({x, y, 0});
  markers.push_back({INT32_MIN, INT32_MAX, 0});
  std::vector<ZR_DCI_Point> centers;  // of ellipses of radii 0
  for (int i = 0; i < 10; ++i) centers.push_back({coordinate(kW), coordinate(kH), 0});

  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    int i = 0;
    const ZR_RGB32 colors[] = {0x123456, 0xff8000, 0x0a0b0c, 0x80ff40};
    const ZR_RGB32 own = 0x40c0a0;
    for (const ZR_Int_Rectangle& clip : kClips) {
      rendition.set_hard_clip(clip, false);
      for (int pass = 0; pass < 2; ++pass) {
        for (const auto& line : lines) {
          rendition.set_color(colors[i++ % 4], false);
          const int n = static_cast<int>(line.size());
          pass ? r.polyline_clipped(&rendition, n, line.data())
               : r.polyline_unclipped(&rendition, n, line.data());
          pass ? r.polyline_clipped(&rendition, 1, line.data())
               : r.polyline_unclipped(&rendition, 1, line.data());
        }
        for (const auto& polygon : polygons) {
          rendition.set_color(colors[i++ % 4], false);
          const int n = static_cast<int>(polygon.size());
          const ZR_RGB32* color = i % 3 ? nullptr : &own;
          pass ? r.polygon_clipped(&rendition, n, polygon.data(), color)
               : r.polygon_unclipped(&rendition, n, polygon.data(), color);
        }
        rendition.set_color(colors[i++ % 4], false);
        const int n = static_cast<int>(markers.size());
        pass ? r.polymarker_clipped(&rendition, n, markers.data())
             : r.polymarker_unclipped(&rendition, n, markers.data());
        const ZR_DCI_Point& center = centers[i % centers.size()];
        const ZR_DCI_Point none{0, 0, 0};
        pass ? r.elliptical_arc_clipped(&rendition, &center, &none, 0, 1, 0, nullptr)
             : r.elliptical_pie_unclipped(&rendition, &center, &none, 0, 1, 0, &own);
      }
    }
    // Under a complex clip cairo draws all of it, whichever way was asked.
    ZR_Contour_Set square =
        ZR_Contour_Set::make({{{4, 4, 0}, {40, 4, 0}, {40, 30, 0}, {4, 30, 0}}});
    rendition.set_hard_clip(kClips[0], false);
    rendition.set_complex_clip(&square, false);
    for (const auto& polygon : polygons)
      r.polygon_unclipped(&rendition, static_cast<int>(polygon.size()), polygon.data(), nullptr);
    r.polymarker_unclipped(&rendition, static_cast<int>(markers.size()), markers.data());
  };
  both_ways(calls, [](const Surface& plain, const Surface& fast) {
    EXPECT_GT(fast.direct, 500);  // the direct way was really taken
    // A pixel covered in part over and over (edges of shapes drawn on each
    // other) may end a level apart: pixman rounds some blends its own way.
    int far = 0, near = 0;
    for (std::size_t k = 0; k < plain.pixels.size(); ++k) {
      far += channel_difference(plain.pixels[k], fast.pixels[k]) > 1;
      near += plain.pixels[k] != fast.pixels[k];
    }
    EXPECT_EQ(far, 0);
    EXPECT_LE(near, kW * kH / 50);
  });
}

// Thin polylines off the grid (one and two units wide, with joins of every
// angle, through the surface's edges and under hard clips) as the exact area
// of their strokes against cairo's scan converter, which samples the area:
// within 20 levels on every pixel (an edge pixel where cairo's 15 rows of
// samples round most) and 1 on average over the pixels painted. Sharp turns
// and turns on short segments go to cairo, whichever way was asked.
TEST(CairoDirect, ThinLinesWithinAFewLevelsOfCairo) {
  std::mt19937 random(11);
  std::vector<std::vector<ZR_DCI_Point>> lines;
  for (int i = 0; i < 40; ++i) {
    // Onward in x, so a line does not cross itself (cairo's one stroke
    // covers a crossing once; pieces that overlap add up here).
    std::vector<ZR_DCI_Point> line;
    const int n = 2 + static_cast<int>(random() % 6);
    int x = static_cast<int>(random() % 20) - 8;
    for (int k = 0; k < n; ++k) {
      line.push_back({x, static_cast<int>(random() % (kH + 10)) - 5, 0});
      x += 1 + static_cast<int>(random() % 12);
    }
    if (i % 2)
      for (ZR_DCI_Point& p : line) std::swap(p.x, p.y);  // and onward in y
    lines.push_back(line);
  }
  lines.push_back({{5, 5, 0}, {30, 6, 0}, {5, 7, 0}});  // a sharp turn: bevelled
  lines.push_back({{-90000, 3, 0}, {90000, 40, 0}});    // far beyond the guard
  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    int i = 0;
    for (const ZR_Int_Rectangle& clip : {kClips[0], kClips[1]}) {
      rendition.set_hard_clip(clip, false);
      for (const auto& line : lines) {
        rendition.set_color(0x102030u * static_cast<unsigned>(1 + i % 7), false);
        rendition.set_line_weight(1 + i % 2, false);
        const int n = static_cast<int>(line.size());
        (i++ % 3) ? r.polyline_clipped(&rendition, n, line.data())
                  : r.polyline_unclipped(&rendition, n, line.data());
      }
    }
  };
  both_ways(calls, [](const Surface& plain, const Surface& fast) {
    EXPECT_GT(fast.direct, 100);
    const auto [painted, worst, sum] = differences(plain, fast);
    EXPECT_GT(painted, 1000);
    EXPECT_LE(worst, 20);
    EXPECT_LE(sum, painted);
  });
}

// Arcs (one and two units wide, whole turns among them) and pies, tilted,
// with radii of either sign, through the surface's edges: the exact area of
// their chords' stroke or fill against cairo's flattened Bézier arcs, both
// close to the curve: within 32 levels on every pixel (an edge moved by a
// tenth of a pixel) and 1.5 on average over the pixels painted.
TEST(CairoDirect, ArcsAndPiesWithinAFewLevelsOfCairo) {
  std::mt19937 random(5);
  struct Ellipse {
    ZR_DCI_Point center, radii;
    double start, end, rotation;
    bool pie;
  };
  std::vector<Ellipse> ellipses;
  for (int i = 0; i < 30; ++i) {
    auto unit = [&] { return (random() % 1000) / 1000.0; };
    const int rx = 2 + static_cast<int>(random() % 18), ry = 2 + static_cast<int>(random() % 18);
    ellipses.push_back({{static_cast<int>(random() % kW), static_cast<int>(random() % kH), 0},
                        {i % 5 ? rx : -rx, i % 7 ? ry : -ry, 0},
                        i % 3 ? 6.3 * unit() : 0.0,
                        // Whole turns, some as a float gives them.
                        i % 3   ? 6.3 * unit()
                        : i % 2 ? 2 * 3.14159265358979323846
                                : static_cast<float>(2 * 3.14159265358979323846),
                        i % 4 ? 3.0 * unit() : 0.0,
                        i % 2 == 0});
  }
  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    int i = 0;
    for (const ZR_Int_Rectangle& clip : {kClips[0], kClips[1]}) {
      rendition.set_hard_clip(clip, false);
      for (const Ellipse& e : ellipses) {
        rendition.set_color(0x102030u * static_cast<unsigned>(1 + i % 7), false);
        rendition.set_line_weight(1 + i % 2, false);
        const ZR_RGB32 own = 0x80a0c0;
        const ZR_RGB32* color = i % 3 ? nullptr : &own;
        if (e.pie)
          (i % 2) ? r.elliptical_pie_clipped(&rendition, &e.center, &e.radii, e.start, e.end,
                                             e.rotation, color)
                  : r.elliptical_pie_unclipped(&rendition, &e.center, &e.radii, e.start, e.end,
                                               e.rotation, color);
        else
          (i % 2) ? r.elliptical_arc_clipped(&rendition, &e.center, &e.radii, e.start, e.end,
                                             e.rotation, color)
                  : r.elliptical_arc_unclipped(&rendition, &e.center, &e.radii, e.start, e.end,
                                               e.rotation, color);
        ++i;
      }
    }
  };
  both_ways(calls, [](const Surface& plain, const Surface& fast) {
    EXPECT_GT(fast.direct, 30);  // small arcs two units wide go to cairo
    const auto [painted, worst, sum] = differences(plain, fast);
    EXPECT_GT(painted, 1000);
    EXPECT_LE(worst, 32);
    EXPECT_LE(2 * sum, 3 * painted);
  });
}

// Strips of one colour (triangles that share their edges, turning either
// way) as the exact area of their triangles against cairo's sampled fill:
// within 20 levels on every pixel and 2 on average; no seam inside.
TEST(CairoDirect, FlatStripsWithinAFewLevelsOfCairo) {
  std::mt19937 random(3);
  std::vector<std::vector<ZR_DCI_Point>> strips;
  for (int i = 0; i < 12; ++i) {
    std::vector<ZR_DCI_Point> p;
    const int x0 = static_cast<int>(random() % kW) - 6, y0 = static_cast<int>(random() % kH) - 6;
    const int n = 3 + static_cast<int>(random() % 6);
    for (int k = 0; k < n; ++k)
      p.push_back({x0 + 3 * k + static_cast<int>(random() % 3),
                   y0 + (k % 2) * (4 + static_cast<int>(random() % 9)), 0});
    strips.push_back(p);
  }
  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    int i = 0;
    for (const ZR_Int_Rectangle& clip : {kClips[0], kClips[1]}) {
      rendition.set_hard_clip(clip, false);
      for (const auto& strip : strips) {
        rendition.set_color(0x203040u * static_cast<unsigned>(1 + i % 5), false);
        const int n = static_cast<int>(strip.size());
        (i++ % 2) ? r.triangles_clipped(&rendition, n, strip.data())
                  : r.gouraud_triangles_unclipped(&rendition, n, strip.data(), nullptr);
      }
    }
  };
  both_ways(calls, [](const Surface& plain, const Surface& fast) {
    EXPECT_GT(fast.direct, 30);
    const auto [painted, worst, sum] = differences(plain, fast);
    EXPECT_GT(painted, 500);
    EXPECT_LE(worst, 20);
    EXPECT_LE(sum, 2 * painted);
  });
}

// Gouraud strips filled directly against cairo's mesh patterns, with shades
// as drawings have them: colours within 8 levels where both paint and 4 on
// average (the mesh rasterizer quantizes its colours and samples off the
// pixel centres, so its error grows with the ramp's steepness), and at most
// one pixel in twenty of the strips painted by one and not the other (along
// their edges).
TEST(CairoDirect, GouraudStripsWithinAFewLevelsOfCairosMesh) {
  std::mt19937 random(7);
  std::vector<std::vector<ZR_DCI_Point>> strips;
  std::vector<std::vector<ZR_RGB32>> shades;
  for (int i = 0; i < 4; ++i) {
    std::vector<ZR_DCI_Point> p;
    std::vector<ZR_RGB32> c;
    const int x0 = 3 + 14 * i, y0 = 4 + static_cast<int>(random() % 8);
    for (int k = 0; k < 8; ++k) {
      p.push_back({x0 + 4 * (k / 2), y0 + (k % 2) * (10 + i * 6), 0});
      // Shades as a drawing has them: up to 48 levels apart over 4 pixels.
      const ZR_RGB32 base = 0x406080u + 0x102010u * static_cast<unsigned>(i);
      c.push_back(base + (random() % 49) * 0x10000 + (random() % 49) * 0x100 + random() % 49);
    }
    strips.push_back(p);
    shades.push_back(c);
  }
  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    rendition.set_hard_clip({-5, 48, 5, kH + 4}, false);
    for (std::size_t i = 0; i < strips.size(); ++i) {
      const int n = static_cast<int>(strips[i].size());
      if (i % 2)
        r.gouraud_triangles_clipped(&rendition, n, strips[i].data(), shades[i].data());
      else
        r.textured_triangles_unclipped(&rendition, n, strips[i].data(), shades[i].data(), nullptr,
                                       nullptr, nullptr);
    }
  };
  both_ways(calls, [](const Surface& plain, const Surface& fast) {
    EXPECT_GT(fast.direct, 10);
    const std::uint32_t background = plain.at(0, 0);
    int both = 0, one = 0, worst = 0, sum = 0;
    for (std::size_t k = 0; k < plain.pixels.size(); ++k) {
      const bool a = plain.pixels[k] != background, b = fast.pixels[k] != background;
      if (a && b) {
        ++both;
        const int d = channel_difference(plain.pixels[k], fast.pixels[k]);
        worst = std::max(worst, d);
        sum += d;
      } else if (a != b) {
        ++one;
      }
    }
    EXPECT_GT(both, 300);
    EXPECT_LE(worst, 8);
    EXPECT_LE(sum, 4 * both);
    EXPECT_LE(one * 20, both);
  });
}

// Gouraud polylines: segments no longer than 8 pixels stroked flat, within
// half their ends' difference of the gradient (plus what the edges' exact
// coverage and cairo's sampled one differ by); longer ones, and every one
// when short ramps are not made flat, through their ramp: within 20 levels
// on a pixel and 8 on average over the pixels painted. A diagonal line one
// unit wide is all edge pixels, where the exact area and cairo's samples
// differ most: the same lines in one colour differ by 6 on average. (The
// ramp's colours themselves are tested in cairo_direct_pixels_test.cpp.)
TEST(CairoDirect, GouraudSegmentsDirectWithinAFewLevelsOfCairosGradients) {
  const ZR_DCI_Point shorts[] = {{5, 5, 0}, {10, 8, 0}, {14, 5, 0}, {18, 9, 0}, {22, 5, 0}};
  const ZR_RGB32 short_colors[] = {0x102030, 0x203040, 0x304050, 0x405060, 0x506070};
  const ZR_DCI_Point longs[] = {{5, 30, 0}, {50, 40, 0}, {10, 44, 0}};
  const ZR_RGB32 long_colors[] = {0xff0000, 0x00ff00, 0x0000ff};
  auto shorts_only = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    r.gouraud_polyline_unclipped(&rendition, 5, shorts, short_colors);
  };
  auto longs_only = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    r.gouraud_polyline_unclipped(&rendition, 3, longs, long_colors);
  };
  both_ways(shorts_only, [](const Surface& plain, const Surface& fast) {
    int worst = 0;
    for (std::size_t k = 0; k < plain.pixels.size(); ++k)
      worst = std::max(worst, channel_difference(plain.pixels[k], fast.pixels[k]));
    EXPECT_GT(worst, 0);  // flat: not the gradient
    // Ramps of 16 levels: half of it, and the edges' coverage, exact here,
    // sampled by cairo.
    EXPECT_LE(worst, 16);
  });
  auto within_a_few_levels = [](const Surface& plain, const Surface& fast) {
    int worst = 0, sum = 0, painted = 0;
    for (std::size_t k = 0; k < plain.pixels.size(); ++k) {
      const int d = channel_difference(plain.pixels[k], fast.pixels[k]);
      worst = std::max(worst, d);
      sum += d;
      painted += plain.pixels[k] != 0 && plain.pixels[k] != 0xffffff;
    }
    EXPECT_GT(fast.direct, 0);
    EXPECT_GT(painted, 100);
    EXPECT_LE(worst, 20);
    EXPECT_LE(sum, 8 * painted);
  };
  both_ways(longs_only, within_a_few_levels);
  // Short ramps kept: every segment through its ramp.
  for (cairo_format_t format : {CAIRO_FORMAT_ARGB32, CAIRO_FORMAT_RGB24}) {
    auto ramps_kept = [&](bool fast) {
      return draw(format, DeviceOrientation::y_up, fast, [&](CairoRenderer& r) {
        r.set_flat_short_ramps(false);
        shorts_only(r);
        longs_only(r);
      });
    };
    within_a_few_levels(ramps_kept(false), ramps_kept(true));
  }
}

// A strip of a picture drawn on a surface of its own over the picture's
// pixels, placed by a device offset of whole pixels (as the viewer draws the
// strips a pan brings into view): direct writes still, and the strip's
// pixels those of the whole picture; nothing outside the strip is touched.
TEST(CairoDirect, AStripPlacedByADeviceOffsetMatchesTheWholePicture) {
  const ZR_DCI_Point line[] = {{3, 5, 0}, {40, 5, 0}, {40, 30, 0}, {12, 30, 0}};
  const ZR_DCI_Point building[] = {{8, 8, 0},   {30, 8, 0},  {30, 20, 0},
                                   {19, 20, 0}, {19, 26, 0}, {8, 26, 0}};
  const ZR_DCI_Point marks[] = {{20, 12, 0}, {33, 24, 0}, {50, 40, 0}};
  const ZR_DCI_Point park[] = {{35, 10, 0}, {35, 22, 0}, {45, 10, 0}, {45, 22, 0}};
  const ZR_RGB32 shade[] = {0x50a050, 0x60b060, 0x40a040, 0x70c070};
  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    rendition.set_color(0x2040c0, false);
    r.polygon_unclipped(&rendition, 6, building, nullptr);
    r.polyline_unclipped(&rendition, 4, line);
    r.polymarker_unclipped(&rendition, 3, marks);
    r.gouraud_triangles_unclipped(&rendition, 4, park, shade);
    for (int x = 0; x < kW; x += 3) {
      const ZR_DCI_Point dot{x, x % kH, 0};
      r.dot_unclipped(&rendition, &dot, nullptr);
    }
  };
  auto picture = [&](int c0, int r0, int w, int h, long long& direct) {
    cairo_surface_t* whole = cairo_image_surface_create(CAIRO_FORMAT_RGB24, kW, kH);
    cairo_t* cr = cairo_create(whole);
    cairo_set_source_rgb(cr, 1, 1, 1);
    cairo_paint(cr);
    cairo_destroy(cr);
    cairo_surface_flush(whole);
    unsigned char* data = cairo_image_surface_get_data(whole);
    const int stride = cairo_image_surface_get_stride(whole);
    cairo_surface_t* strip = cairo_image_surface_create_for_data(data + r0 * stride + 4 * c0,
                                                                 CAIRO_FORMAT_RGB24, w, h, stride);
    cairo_surface_set_device_offset(strip, -c0, -r0);
    cr = cairo_create(strip);
    auto* r = new CairoRenderer(cr, kH);
    add_ref(r);
    calls(*r);
    r->flush_direct();
    direct = r->direct_dots();
    release(r);
    cairo_destroy(cr);
    cairo_surface_finish(strip);
    cairo_surface_destroy(strip);
    cairo_surface_mark_dirty(whole);
    std::vector<std::uint32_t> out;
    for (int y = 0; y < kH; ++y)
      for (int x = 0; x < kW; ++x)
        out.push_back(reinterpret_cast<const std::uint32_t*>(data + y * stride)[x] & 0xffffff);
    cairo_surface_destroy(whole);
    return out;
  };
  long long direct_whole = 0, direct_strip = 0;
  const std::vector<std::uint32_t> whole = picture(0, 0, kW, kH, direct_whole);
  const int c0 = 17, r0 = 9, w = 21, h = 15;
  const std::vector<std::uint32_t> strip = picture(c0, r0, w, h, direct_strip);
  EXPECT_GT(direct_strip, 5);
  int inside_differing = 0, outside_touched = 0, inside_painted = 0;
  for (int y = 0; y < kH; ++y)
    for (int x = 0; x < kW; ++x) {
      const std::size_t k = static_cast<std::size_t>(y) * kW + x;
      if (x >= c0 && x < c0 + w && y >= r0 && y < r0 + h) {
        inside_differing += whole[k] != strip[k];
        inside_painted += strip[k] != 0xffffff;
      } else {
        outside_touched += strip[k] != 0xffffff;
      }
    }
  EXPECT_GT(inside_painted, 40);
  EXPECT_EQ(inside_differing, 0);
  EXPECT_EQ(outside_touched, 0);
}

// Device values anywhere in the 32-bit range, as a view far out or a
// saturated transform gives them, through every direct path and the plain
// one: nothing undefined (the sanitizer builds run this). Guards against the
// overflows of pixel arithmetic on far points.
TEST(CairoDirect, FarDeviceValuesStayDefined) {
  std::mt19937 random(17);
  const int values[] = {INT32_MIN, INT32_MIN + 1, -65537, -4097,         -3,       0, 5,
                        kW,        4097,          65537,  INT32_MAX - 1, INT32_MAX};
  auto any = [&] { return values[random() % std::size(values)]; };
  std::vector<std::vector<ZR_DCI_Point>> shapes;
  for (int i = 0; i < 200; ++i) {
    std::vector<ZR_DCI_Point> p;
    const int n = 1 + static_cast<int>(random() % 6);
    for (int k = 0; k < n; ++k) {
      // Along the grid now and then, so the grid paths see far values too.
      if (k > 0 && i % 3 == 0)
        p.push_back(k % 2 ? ZR_DCI_Point{p.back().x, any(), 0}
                          : ZR_DCI_Point{any(), p.back().y, 0});
      else
        p.push_back({any(), any(), 0});
    }
    shapes.push_back(p);
  }
  auto calls = [&](CairoRenderer& r) {
    ZR_Rendition rendition = ZR_Rendition::create();
    std::vector<ZR_RGB32> colors(8, 0x336699);
    int i = 0;
    for (const auto& p : shapes) {
      const int n = static_cast<int>(p.size());
      rendition.set_line_weight(1 + i % 2, false);
      rendition.set_hard_clip(i % 2 ? kClips[1] : kClips[4], false);
      r.polyline_clipped(&rendition, n, p.data());
      r.polyline_unclipped(&rendition, n, p.data());
      r.polygon_unclipped(&rendition, n, p.data(), nullptr);
      r.polymarker_clipped(&rendition, n, p.data());
      r.triangles_unclipped(&rendition, n, p.data());
      r.gouraud_triangles_clipped(&rendition, n, p.data(), colors.data());
      r.gouraud_polyline_unclipped(&rendition, n, p.data(), colors.data());
      const ZR_DCI_Point radii{any(), any(), 0};
      r.elliptical_arc_unclipped(&rendition, &p[0], &radii, 0.5, 2.0, 0.25, nullptr);
      r.elliptical_pie_clipped(&rendition, &p[0], &radii, 0, 7, 0, nullptr);
      ++i;
    }
  };
  both_ways(calls, [](const Surface& plain, const Surface& fast) {
    EXPECT_GT(fast.direct, 0);
    EXPECT_EQ(plain.pixels.size(), fast.pixels.size());
  });
}

}  // namespace
}  // namespace DL
