// The point primitives in a tree: traversals pick their draws, a search finds
// the like object only, and the list frees everything it held.
#include <gtest/gtest.h>

#include "displaylist/group.h"
#include "drawables/image.h"
#include "drawables/polytriangle.h"
#include "drawables/row_of_dots.h"
#include "tests/support/point_views.h"
#include "tests/support/tree_check.h"

namespace DL {
namespace {

using Trace = std::vector<std::string>;

TEST(PointTree, TraversalsDrawSearchesFindAndTheListFreesAll) {
  const ZephalHeapStatistics before = ZP_HeapStatistics();
  {
    test::RecordedView v;
    const WorldPoint p[4] = {{0, 0}, {100, 0}, {100, 100}, {200, 100}};
    const WorldPoint q[4] = {{500, 500}, {600, 500}, {600, 600}, {700, 600}};
    const ZR_RGB32 colors[4] = {1, 2, 3, 4};
    std::vector<Drawable*> order{
        new Polyline(1, 4, p),
        new GouraudPolyline(2, 4, p, colors),
        new Polydot(3, 2, p),
        new Polydot(3, 2, q),
        new Polysegment(4, 4, q),
        new Polytriangle(5, 3, q),
        new RowOfDots(6, {0, 0}, {100, 100}, 2),
        new Image(7, {{0, 0}, {10, 10}}, ZR_Image()),
    };
    std::vector<const Drawable*> expected;
    for (Drawable* d : order) v.list.add(d, d->bounds_of());
    order[4]->make_hidden();  // in the tree, out of the picture
    ASSERT_TRUE(test::tree_is_valid(v.list, &(expected = {order.begin(), order.end()})));

    v.renderer->clear();
    v.list.root->draw_bounded(v.list, WorldBounds::everything(), WorldBounds::everything());
    EXPECT_EQ(v.renderer->entries(),
              (Trace{"polyline_unclipped", "gouraud_polyline_unclipped", "dot_unclipped",
                     "dot_unclipped", "dot_unclipped", "dot_unclipped", "triangles_unclipped",
                     "dot_unclipped", "dot_unclipped", "image_unclipped"}));

    // A view on part of the world: the open group crosses its edge, so every
    // drawable draws clipped, the shaded line as a clipped plain line.
    v.renderer->clear();
    v.list.draw_view_bounded({{0, 0}, {300, 300}});
    EXPECT_EQ(
        v.renderer->entries(),
        (Trace{"polyline_clipped", "polyline_clipped", "dot_clipped", "dot_clipped", "dot_clipped",
               "dot_clipped", "triangles_clipped", "dot_clipped", "dot_clipped", "image_clipped"}));

    // The search finds the like Polydot, not the first Polydot it meets.
    Polydot pattern(0, 2, q);
    const Search search{&pattern, pattern.type(), pattern.bounds_of(), 0};
    EXPECT_NE(v.list.root->remove_searched(search), nullptr);
    order.erase(order.begin() + 3);
    EXPECT_TRUE(test::tree_is_valid(v.list, &(expected = {order.begin(), order.end()})));
    // A hidden drawable is still found.
    Polysegment hidden_pattern(0, 4, q);
    EXPECT_NE(v.list.root->remove_searched(
                  Search{&hidden_pattern, hidden_pattern.type(), hidden_pattern.bounds_of(), 0}),
              nullptr);
    order.erase(order.begin() + 3);
    EXPECT_TRUE(test::tree_is_valid(v.list, &(expected = {order.begin(), order.end()})));
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before.live_blocks);
  EXPECT_EQ(ZP_HeapStatistics().live_bytes, before.live_bytes);
}

}  // namespace
}  // namespace DL
