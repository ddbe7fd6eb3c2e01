// Hidden twins: a hidden drawable keeps its place, bounds, type and search
// behaviour and draws nothing; a hidden group draws its children as before and
// goes back to a plain class when it is closed or split.
#include <gtest/gtest.h>

#include "tests/displaylist/hand_tree.h"
#include "tests/support/tree_check.h"

namespace DL::test {
namespace {

TEST(HiddenTwin, HiddenDotsDrawNothingAndKeepEverythingElse) {
  DisplayList list;
  HandTree tree(list);
  Dot* dot = tree.dot(10, 20);
  auto* colorized = new ColorizedDot(ZR_RGB32{2}, {30, 40}, 0x123456);
  Dot* after = tree.dot(50, 60);
  tree.bottom(list.root, {dot, colorized, after});
  tree.finish();
  ASSERT_TRUE(tree_is_valid(list));
  const WorldBounds group_bounds = list.root->first_group()->bounds;

  for (Drawable* d : {static_cast<Drawable*>(dot), static_cast<Drawable*>(colorized)}) {
    void* type = d->type();
    const WorldBounds bounds = d->bounds_of();
    d->make_hidden();
    d->make_hidden();  // twice: still hidden, not back to visible
    EXPECT_TRUE(d->is_hidden());
    EXPECT_EQ(d->type(), type);
    EXPECT_EQ(d->bounds_of(), bounds);
    // A copy of a hidden object is hidden, of the same class.
    Drawable* copy = d->clone();
    ASSERT_NE(copy, nullptr);
    EXPECT_TRUE(copy->is_hidden());
    EXPECT_EQ(copy->type(), type);
    // The search still finds it.
    Search search{copy, copy->type(), bounds, 0};
    EXPECT_TRUE(d->remove(search));
    copy->destroy();
  }
  // Closing and the rectangles do not change.
  list.root->close();
  list.open_group = nullptr;
  EXPECT_EQ(list.root->first_group()->bounds, group_bounds);
  ASSERT_TRUE(tree_is_valid(list, &tree.order()));

  // Hidden twins draw nothing, in every traversal; the selector still sees them.
  list.draw_view();
  list.draw_view_bounded({{0, 0}, {45, 45}});
  list.root->draw_unclipped(list);
  EXPECT_EQ(tree.renderer().trace(),
            (std::vector<std::string>{"dot_unclipped (50,60)", "dot_clipped (50,60)",
                                      "dot_unclipped (50,60)"}));
  tree.renderer().set_selector(true);
  tree.renderer().clear();
  list.draw_view_bounded_selection({{0, 0}, {45, 45}});
  ASSERT_EQ(tree.renderer().calls.size(), 1u);
  EXPECT_EQ(tree.renderer().calls[0].selector_drawable, after);
  // With the last one on a hidden layer, the last mark is the hidden twin's.
  Extra_Layer_Info off{0};
  after->set_layer(&off);
  tree.renderer().clear();
  list.draw_view_selection();
  EXPECT_TRUE(tree.renderer().calls.empty());
  EXPECT_EQ(tree.renderer().option_source->selector_drawable, colorized);
  after->set_layer(nullptr);

  // One make_visible after two make_hidden: visible again, and drawn.
  dot->make_visible();
  colorized->make_visible();
  EXPECT_FALSE(dot->is_hidden());
  tree.renderer().clear();
  list.draw_view();
  EXPECT_EQ(
      tree.renderer().trace(),
      (std::vector<std::string>{"dot_unclipped (10,20)", "dot_unclipped (30,40) color=0x123456",
                                "dot_unclipped (50,60)"}));
}

TEST(HiddenTwin, HiddenGroupsDrawTheirChildrenAndCloseToPlainClasses) {
  DisplayList list(nullptr, 2);
  HandTree tree(list);
  Group* interior = tree.interior(list.root);
  Group* bottom = tree.bottom(interior, {tree.dot(1, 1)});
  tree.finish();
  list.root->create_open_bottom_group(&list);
  Group* open = list.open_group;
  for (Group* g : {interior, bottom, open}) {
    const int level = g->level();
    const GroupTable* table = g->table;
    g->make_hidden();
    g->make_hidden();
    EXPECT_TRUE(g->is_hidden());
    EXPECT_EQ(g->level(), level);
    EXPECT_EQ(g->contains_drawables(), table->contains_drawables);
    EXPECT_EQ(g->is_open(), table->is_open);
  }
  ASSERT_TRUE(tree_is_valid(list));
  list.draw_view();
  list.root->draw_unclipped(list);
  EXPECT_EQ(tree.renderer().trace(),
            (std::vector<std::string>{"dot_unclipped (1,1)", "dot_unclipped (1,1)"}));

  // The hidden open group takes drawables; a close gives a plain BottomGroup.
  std::vector<const Drawable*> order = tree.order();
  for (int i = 0; i < 2; ++i) {
    auto* d = new Dot(ZR_RGB32{0}, {100 + i, 100});
    EXPECT_EQ(list.add(d, d->bounds_of()), open);
    order.push_back(d);
  }
  EXPECT_TRUE(open->is_hidden());
  open->close();
  EXPECT_EQ(open->table, &BottomGroup::table_);
  EXPECT_FALSE(open->is_hidden());

  // A hidden open group that is split becomes a plain interior group.
  list.root->create_open_bottom_group(&list);
  Group* next = list.open_group;
  next->make_hidden();
  for (int i = 0; i < 3; ++i) {
    auto* d = new Dot(ZR_RGB32{0}, {200 + i * 1000, 200});
    list.add(d, d->bounds_of());
    order.push_back(d);
  }
  EXPECT_EQ(next->table, &Group::table_);
  interior->make_visible();
  EXPECT_FALSE(interior->is_hidden());
  EXPECT_TRUE(tree_is_valid(list, &order));
}

}  // namespace
}  // namespace DL::test
