#include "drawables/vector_iterator.h"

#include <gtest/gtest.h>

#include <memory>

#include "drawables/dot.h"
#include "drawables/image.h"
#include "drawables/polytriangle.h"
#include "drawables/row_of_dots.h"

namespace DL {
namespace {

using Vectors = std::vector<WorldVector>;

struct IteratorDeleter {
  void operator()(DrawableVectorIterator* it) const { delete it; }
};
using IteratorPtr = std::unique_ptr<DrawableVectorIterator, IteratorDeleter>;

IteratorPtr iterator_of(Drawable& d) {
  return IteratorPtr(d.create_vector_iterator(false));
}

// The vector the iterator stands on, then every `next` until null.
Vectors walk_forward(DrawableVectorIterator& it) {
  Vectors out;
  if (it.at_end) return out;
  out.push_back(it.vector);
  while (WorldVector* v = it.next()) out.push_back(*v);
  return out;
}

Vectors by_index(const Drawable& d) {
  Vectors out;
  for (int i = 0; i < d.get_vector_count(); ++i) {
    WorldVector v;
    EXPECT_TRUE(d.get_vector(i, v));
    out.push_back(v);
  }
  return out;
}

const WorldPoint kPoints[6] = {{0, 0}, {10, 0}, {10, 10}, {0, 10}, {5, 15}, {-5, 5}};

TEST(PlainIterator, WalksByIndexAndTurnsBackOffEitherEnd) {
  Polygon polygon(0, 3, kPoints);
  IteratorPtr it = iterator_of(polygon);
  ASSERT_FALSE(it->at_end);
  const Vectors expected{{{0, 0}, {10, 0}}, {{10, 0}, {10, 10}}, {{10, 10}, {0, 0}}};
  EXPECT_EQ(walk_forward(*it), expected);  // the closing edge included
  EXPECT_EQ(by_index(polygon), expected);
  EXPECT_TRUE(it->at_end);
  EXPECT_EQ(it->vector_index, 3);
  EXPECT_EQ(it->next(), nullptr);  // stays past the end
  // prev after the end gives the last vector again, and clears at_end.
  WorldVector* last = it->prev();
  ASSERT_NE(last, nullptr);
  EXPECT_EQ(*last, expected[2]);
  EXPECT_FALSE(it->at_end);
  EXPECT_EQ(*it->prev(), expected[1]);
  EXPECT_EQ(*it->prev(), expected[0]);
  EXPECT_EQ(it->prev(), nullptr);
  EXPECT_TRUE(it->at_end);
  EXPECT_EQ(it->vector_index, -1);
  // next before the start gives the first.
  EXPECT_EQ(*it->next(), expected[0]);
  EXPECT_FALSE(it->at_end);

  // A fresh walk: prev at once runs off the start.
  IteratorPtr fresh = iterator_of(polygon);
  EXPECT_EQ(fresh->prev(), nullptr);
  EXPECT_TRUE(fresh->at_end);

  // An iterator can be stood on another drawable.
  Image image(0, {{0, 0}, {2, 3}}, ZR_Image());
  ASSERT_TRUE(it->initialize(&image));
  EXPECT_EQ(it->vector_count, 4);
  EXPECT_EQ(walk_forward(*it).size(), 4u);
}

TEST(PlainIterator, DotsImagesRowsAndStrips) {
  ColorizedDot dot(0, {3, 4}, 9);
  IteratorPtr dot_it = iterator_of(dot);
  EXPECT_EQ(walk_forward(*dot_it), (Vectors{{{3, 4}, {3, 4}}}));

  Image image(0, {{0, 0}, {2, 3}}, ZR_Image());
  EXPECT_EQ(walk_forward(*iterator_of(image)), by_index(image));

  // A row of dots has no vectors: the walk cannot start.
  RowOfDots row(0, {0, 0}, {1, 1}, 3);
  IteratorPtr row_it = iterator_of(row);
  EXPECT_TRUE(row_it->at_end);
  EXPECT_FALSE(row_it->fast);
  EXPECT_EQ(row_it->vector_count, 0);
  EXPECT_EQ(row_it->drawable, nullptr);

  // Every strip class walks its outline in the order of get_vector.
  const ZR_RGB32 colors[5] = {};
  const ZR_Vertex_Parameters parameters[5] = {};
  PolytriangleWithNoBorder plain(0, 5, kPoints);
  Polytriangle bordered(0, 5, kPoints);
  GouraudPolytriangle shaded(0, 5, kPoints, colors);
  TexturedPolytriangle textured(0, 5, kPoints, colors, parameters, nullptr, nullptr);
  const Vectors outline{{kPoints[0], kPoints[2]},
                        {kPoints[2], kPoints[4]},
                        {kPoints[4], kPoints[3]},
                        {kPoints[3], kPoints[1]},
                        {kPoints[1], kPoints[0]}};
  for (Drawable* d : std::initializer_list<Drawable*>{&plain, &bordered, &shaded, &textured}) {
    EXPECT_TRUE(d->supports_fast_vector_iterator());
    EXPECT_EQ(by_index(*d), outline);
    EXPECT_EQ(walk_forward(*iterator_of(*d)), outline);
  }
}

TEST(PolythingIterator, WalksEveryNeighbouringPairAndStopsOnTheEnds) {
  // A 3-point line: stands on 0-1, next 1-2, then null with at_end; prev then
  // gives 0-1, not the last vector again, and at_end stays set.
  const ZR_RGB32 colors[3] = {};
  Polyline line(0, 3, kPoints);
  GouraudPolyline shaded(0, 3, kPoints, colors);
  Polymarker markers(0, 3, kPoints);
  for (Drawable* d : std::initializer_list<Drawable*>{&line, &shaded, &markers}) {
    IteratorPtr it = iterator_of(*d);
    auto* walk = static_cast<DrawableVectorIteratorPolything*>(it.get());
    EXPECT_FALSE(it->at_end);
    EXPECT_EQ(walk->segment_count, 2);
    EXPECT_EQ(walk_forward(*it), by_index(*d));
    EXPECT_TRUE(it->at_end);
    EXPECT_EQ(walk->segment_index, 1);
    WorldVector* back = it->prev();
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(*back, (WorldVector{kPoints[0], kPoints[1]}));
    EXPECT_TRUE(it->at_end);
  }

  // prev on a new walk: null, index 0, at_end; next then gives the second.
  Polyline longer(0, 4, kPoints);
  IteratorPtr it = iterator_of(longer);
  auto* walk = static_cast<DrawableVectorIteratorPolything*>(it.get());
  EXPECT_EQ(it->prev(), nullptr);
  EXPECT_EQ(walk->segment_index, 0);
  EXPECT_TRUE(it->at_end);
  EXPECT_EQ(*it->next(), (WorldVector{kPoints[1], kPoints[2]}));
  EXPECT_TRUE(it->at_end);
  walk->get_vector(2);
  EXPECT_EQ(it->vector, (WorldVector{kPoints[2], kPoints[3]}));

  // The walk ignores what the class says by index: a Polysegment walks the
  // gaps between its segments, a Polydot the connections between its dots.
  Polysegment segments(0, 4, kPoints);
  EXPECT_EQ(segments.get_vector_count(), 2);
  const Vectors pairs{{kPoints[0], kPoints[1]}, {kPoints[1], kPoints[2]}, {kPoints[2], kPoints[3]}};
  EXPECT_EQ(walk_forward(*iterator_of(segments)), pairs);
  Polydot dots(0, 4, kPoints);
  EXPECT_EQ(dots.get_vector_count(), 4);
  EXPECT_EQ(walk_forward(*iterator_of(dots)), pairs);

  // Two points: one vector, and the walk stops on it at both ends.
  Polyline two(0, 2, kPoints);
  IteratorPtr two_it = iterator_of(two);
  EXPECT_EQ(walk_forward(*two_it), (Vectors{{kPoints[0], kPoints[1]}}));
  EXPECT_EQ(two_it->prev(), nullptr);

  // Fewer than two points: nothing to stand on, nothing read.
  Polydot single(0, 1, kPoints);
  IteratorPtr single_it = iterator_of(single);
  EXPECT_TRUE(single_it->at_end);
  EXPECT_EQ(single_it->next(), nullptr);
  EXPECT_EQ(single_it->prev(), nullptr);
}

}  // namespace
}  // namespace DL
