// The interruptible traversals: the callback runs at every twentieth interior
// group across draws, a false stops the draw at once, and a stopped lifted walk
// leaves the host's clip as it was.
#include <gtest/gtest.h>

#include "tests/displaylist/hand_tree.h"
#include "tests/support/tree_check.h"

namespace DL::test {
namespace {

struct Asker {
  int calls = 0;
  int stop_at = -1;  // the call that answers false; -1: never
  static bool ask(void* self) {
    auto* a = static_cast<Asker*>(self);
    return ++a->calls != a->stop_at;
  }
};

// A root with `n` interior children, each over one bottom group with one dot.
struct Comb {
  DisplayList list;
  HandTree tree{list};
  Asker asker;
  // With `middle`, the interior children hang from one interior group below
  // the root.
  explicit Comb(int n, bool middle = false) {
    Group* top = middle ? tree.interior(list.root) : list.root;
    for (int i = 0; i < n; ++i) tree.bottom(tree.interior(top), {tree.dot(i, i)});
    tree.finish();
    list.interrupt_callback = &Asker::ask;
    list.interrupt_user_data = &asker;
  }
  std::size_t drawn() const { return const_cast<HandTree&>(tree).renderer().calls.size(); }
};

TEST(InterruptTraversal, TheCallbackRunsAtEveryTwentiethInteriorGroupAcrossDraws) {
  Comb c(12);  // 13 interior groups with the root
  ASSERT_TRUE(tree_is_valid(c.list, &c.tree.order()));
  EXPECT_TRUE(c.list.root->draw_unclipped_interrupt(c.list));
  EXPECT_EQ(c.asker.calls, 0);
  EXPECT_EQ(c.list.interrupt_counter, 13);
  // The counter carries on: the 20th poll is the 7th group of this draw.
  EXPECT_TRUE(
      c.list.root->draw_bounded_interrupt(c.list, c.list.world_bounds, c.list.visible_bounds));
  EXPECT_EQ(c.asker.calls, 1);
  EXPECT_EQ(c.list.interrupt_counter, 6);
  EXPECT_EQ(c.drawn(), 24u);

  // A false at the 20th poll stops at once: the groups polled before it drew.
  c.tree.renderer().clear();
  c.asker.stop_at = 2;
  c.list.interrupt_counter = 10;
  EXPECT_FALSE(c.list.root->draw_unclipped_interrupt(c.list));
  EXPECT_EQ(c.list.interrupt_counter, 0);
  EXPECT_EQ(c.drawn(), 8u);  // the root was poll 11, children 12..19 drew, 20 stopped
  EXPECT_EQ(c.tree.renderer().calls.back().points[0].x, 7);

  // A group outside the outer rectangle still costs its poll, and gives true.
  c.list.interrupt_counter = 0;
  const WorldBounds far{{5000, 5000}, {6000, 6000}};
  EXPECT_TRUE(c.list.root->first_group()->draw_bounded_interrupt(c.list, far, far));
  EXPECT_EQ(c.list.interrupt_counter, 1);

  // A false on the first group of a draw: nothing is drawn.
  c.tree.renderer().clear();
  c.list.interrupt_counter = 19;
  c.asker.stop_at = c.asker.calls + 1;
  EXPECT_FALSE(c.list.root->draw_complex_bounded_interrupt(c.list, c.list.world_bounds,
                                                           c.list.visible_bounds));
  EXPECT_EQ(c.drawn(), 0u);

  // A counter above 20 never meets 20 in a draw.
  c.list.interrupt_counter = 21;
  c.asker.stop_at = c.asker.calls + 1;
  for (int i = 0; i < 5; ++i) EXPECT_TRUE(c.list.root->draw_unclipped_interrupt(c.list));
  EXPECT_EQ(c.list.interrupt_counter, 21 + 5 * 13);
}

TEST(InterruptTraversal, ABottomGroupRootCannotBeStopped) {
  DisplayList list;
  list.root->destroy();
  list.root = nullptr;
  list.open_group = nullptr;
  // Opened at level 1 (the cell of level 0 is not the plane), filled, closed.
  list.root = Group::open(&list, WorldBounds::everything(), {{0, 0}, {9, 9}}, nullptr, 1);
  auto* r = new RecordingRenderer;
  list.set_renderer(r);
  for (int i = 0; i < 5; ++i) list.add(new Dot(ZR_RGB32{0}, {i, i}), {{i, i}, {i, i}});
  list.root->close();
  list.open_group = nullptr;
  ASSERT_TRUE(tree_is_valid(list));
  ASSERT_TRUE(list.root->contains_drawables());
  list.interrupt_callback = [](void*) { return false; };
  list.interrupt_counter = 19;
  EXPECT_TRUE(list.root->draw_unclipped_interrupt(list));
  EXPECT_TRUE(list.root->draw_bounded_interrupt(list, WorldBounds::everything(),
                                                WorldBounds::everything()));
  EXPECT_EQ(r->calls.size(), 10u);
  EXPECT_EQ(list.interrupt_counter, 19);
}

TEST(InterruptTraversal, AStoppedLiftedWalkPutsTheHostsClipBack) {
  Comb c(30, true);
  ZR_Contour_Set clip = ZR_Contour_Set::make({{{-100, -100, 0}, {500, -100, 0}, {-100, 500, 0}}});
  c.list.rendition.set_complex_clip(&clip, true);
  // The middle group lies inside the triangle: its walk is lifted, and the
  // 20th group (the 18th below it) stops it inside.
  for (auto draw : {+[](DisplayList& l) { return l.root->draw_complex_interrupt(l); },
                    +[](DisplayList& l) {
                      return l.root->draw_complex_bounded_interrupt(l, l.world_bounds,
                                                                    l.visible_bounds);
                    }}) {
    c.tree.renderer().clear();
    c.list.interrupt_counter = 0;
    c.asker.stop_at = c.asker.calls + 1;
    EXPECT_FALSE(draw(c.list));
    EXPECT_EQ(c.drawn(), 17u);
    EXPECT_EQ(c.tree.renderer().calls[0].complex_clip, nullptr);
    EXPECT_EQ(c.list.rendition.complex_clip(), clip.get());
  }
}

}  // namespace
}  // namespace DL::test
