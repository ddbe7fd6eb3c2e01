// Tree diagnostics: the dump lines of groups and drawables (labels, indents,
// the switching between hex and decimal), the counts and byte sums, and the
// validity walk.
#include <gtest/gtest.h>

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

#include "ellipse/ellipse.h"
#include "nested/drawable_display_list.h"
#include "tests/displaylist/hand_tree.h"
#include "tests/support/tree_check.h"
#include "text/text.h"

namespace DL::test {
namespace {

std::string hex(const void* p) {
  std::ostringstream s;
  s << std::hex << reinterpret_cast<std::uintptr_t>(p);
  return s.str();
}

std::string dec(const void* p) {
  return std::to_string(reinterpret_cast<std::uintptr_t>(p));
}

std::vector<std::string> lines_of(const std::string& text) {
  std::vector<std::string> lines;
  std::istringstream in(text);
  for (std::string line; std::getline(in, line);) lines.push_back(line);
  return lines;
}

std::string indent(int n) {
  return std::string(4 * static_cast<std::size_t>(n > 0 ? n : 0), ' ');
}

std::string group_line(int depth, const char* label, const std::string& level, const Group* g) {
  return indent(depth) + label + level + ", this = " + hex(g) + ", sibling = " + hex(g->sibling);
}

TEST(TreeDump, RootWithAnOpenGroupOfTwoDots) {
  DisplayList list;
  auto* a = new Dot(ZR_RGB32{1}, {10, 20});
  auto* b = new Dot(ZR_RGB32{1}, {30, 40});
  list.add(a, a->bounds_of());
  list.add(b, b->bounds_of());
  ASSERT_TRUE(tree_is_valid(list, nullptr));
  const Group* open = list.root->first_group();
  ASSERT_EQ(open, list.open_group);
  ASSERT_EQ(open->first_drawable(), a);

  std::ostringstream out;
  DisplayListDebug debug{};
  list.root->dump_subtree(out, 0, debug);
  EXPECT_EQ(lines_of(out.str()),
            (std::vector<std::string>{
                "Group: level  0, this = " + hex(list.root) + ", sibling = 0",
                "    *OpenBottomGroup*: level  " + std::to_string(list.open_level) +
                    ", this = " + hex(open) + ", sibling = 0",
                "        Dot: level  2, this = " + dec(a),
                "        Dot: level  2, this = " + dec(b),
            }));
  EXPECT_EQ(out.str().back(), '\n');
  EXPECT_EQ(debug.group_count, 1);
  EXPECT_EQ(debug.drawable_count, 2);
  EXPECT_EQ(debug.group_bytes, static_cast<int>(sizeof(Group)));
  EXPECT_EQ(debug.drawable_bytes, 2 * static_cast<int>(sizeof(Dot)));
  EXPECT_EQ(debug.drawable_common_bytes, 2 * static_cast<int>(sizeof(Drawable)));

  // The debug record is only added to.
  std::ostringstream again;
  list.root->dump_subtree(again, 0, debug);
  EXPECT_EQ(again.str(), out.str());
  EXPECT_EQ(debug.drawable_count, 4);
  list.root->assert_valid();
}

// A chain of interior groups down to level 12, under it a closed group with a
// dot and an empty open group at level 13.
struct DeepTree {
  DisplayList list;
  HandTree tree{list};
  std::vector<Group*> chain;  // chain[i] is at level i + 1
  Group* bottom = nullptr;
  Group* open = nullptr;
  Dot* dot = nullptr;

  DeepTree() {
    Group* g = list.root;
    for (int level = 1; level <= 12; ++level) {
      g = tree.interior(g);
      chain.push_back(g);
    }
    dot = tree.dot(5, 6);
    bottom = tree.bottom(g, {dot});
    open = tree.open(g, {});
    tree.finish();
  }
};

TEST(TreeDump, LevelsInTheCallersBaseAddressesInHexAndDecimalAfterward) {
  DeepTree t;
  ASSERT_TRUE(tree_is_valid(t.list, &t.tree.order(), {.allow_empty_bottom = true}));
  Group* g12 = t.chain.back();
  ASSERT_EQ(g12->level(), 12);
  ASSERT_EQ(t.open->level(), 13);
  ASSERT_EQ(t.bottom->sibling, t.open);

  // From a stream left in hex: the first group's level in hex, everything after
  // that line in decimal, the open group's level always in decimal; the
  // children of a negative indent start at indent 0. A hidden group writes the
  // line of its class.
  g12->make_hidden();
  std::ostringstream out;
  out << std::hex;
  DisplayListDebug debug{};
  g12->dump_subtree(out, -1, debug);
  EXPECT_EQ(lines_of(out.str()), (std::vector<std::string>{
                                     group_line(0, "Group: level  ", "c", g12),
                                     group_line(0, "BottomGroup: level  ", "13", t.bottom),
                                     indent(1) + "Dot: level  1, this = " + dec(t.dot),
                                     group_line(0, "*OpenBottomGroup*: level  ", "13", t.open),
                                 }));
  EXPECT_EQ(out.flags() & std::ios::basefield, std::ios::dec);
  EXPECT_EQ(debug.group_count, 2);
  EXPECT_EQ(debug.group_bytes, 2 * static_cast<int>(sizeof(Group)));
  EXPECT_EQ(debug.drawable_count, 1);
  EXPECT_EQ(debug.drawable_bytes, static_cast<int>(sizeof(Dot)));
  g12->make_visible();

  // The open group alone, on a hex stream: decimal level, nothing below it.
  std::ostringstream alone;
  alone << std::hex;
  DisplayListDebug none{};
  t.open->dump_subtree(alone, 2, none);
  EXPECT_EQ(alone.str(), group_line(2, "*OpenBottomGroup*: level  ", "13", t.open) + "\n");
  EXPECT_EQ(none.group_count + none.drawable_count + none.group_bytes, 0);

  // From the root: only the root's own level follows the caller's base.
  std::ostringstream whole;
  whole << std::hex;
  DisplayListDebug all{};
  t.list.root->dump_subtree(whole, 0, all);
  const std::vector<std::string> lines = lines_of(whole.str());
  ASSERT_EQ(lines.size(), 16u);
  EXPECT_EQ(lines[0], group_line(0, "Group: level  ", "0", t.list.root));
  for (int level = 1; level <= 12; ++level)
    EXPECT_EQ(lines[level],
              group_line(level, "Group: level  ", std::to_string(level), t.chain[level - 1]));
  EXPECT_EQ(lines[14], indent(14) + "Dot: level  14, this = " + dec(t.dot));
  EXPECT_EQ(all.group_count, 14);
  t.list.root->assert_valid();
}

TEST(TreeDump, ValidityWalkFindsBrokenLinksInDebugBuilds) {
  DeepTree t;
  ASSERT_TRUE(tree_is_valid(t.list, &t.tree.order(), {.allow_empty_bottom = true}));
  t.list.root->assert_valid();

  // A child that names another parent.
  Group* g5 = t.chain[4];
  g5->parent = t.list.root;
  EXPECT_DEBUG_DEATH(t.list.root->assert_valid(), "");
  g5->parent = t.chain[3];

  // An open group whose tail is not on its chain: the next drawable it took
  // would be lost.
  Dot stray(ZR_RGB32{1}, {5, 6});
  Dot first(ZR_RGB32{1}, {5, 6});
  t.open->first_child = &first;
  t.open->last_child = &stray;
  EXPECT_DEBUG_DEATH(t.list.root->assert_valid(), "");
  t.open->last_child = &first;
  t.list.root->assert_valid();
  t.open->first_child = nullptr;
  t.open->last_child = nullptr;
  ASSERT_TRUE(tree_is_valid(t.list, &t.tree.order(), {.allow_empty_bottom = true}));
}

// The line and the byte sums of every class, alone and in a tree.
TEST(TreeDump, EveryDrawableClassWritesItsLabelAndCountsItsRecord) {
  DisplayList list;
  ZR_Rendition rendition = ZR_Rendition::create();
  const WorldPoint c{100, 100};
  const WorldPoint r{10, 5};
  const WorldBounds text_box{{0, 0}, {40, 10}};
  struct Case {
    Drawable* drawable;
    std::string label;
    int bytes;  // added to drawable_bytes; -1: the plain line, which counts nothing
  };
  auto* hidden_dot = new Dot(ZR_RGB32{1}, {1, 2});
  hidden_dot->make_hidden();
  auto* nested = new DrawableDisplayList(ZR_RGB32{1}, new DisplayList, &text_box);
  const std::vector<Case> cases = {
      {new Dot(ZR_RGB32{1}, {1, 1}), "Dot: level  ", sizeof(Dot)},
      {hidden_dot, "Dot: level  ", sizeof(Dot)},
      {new ColorizedDot(ZR_RGB32{1}, {3, 4}, 0xff), "ColorizedDot: level  ", sizeof(ColorizedDot)},
      {new Ellipse(ZR_RGB32{1}, c, r, 0.0f, &list), "Ellipse: level  ", sizeof(Ellipse)},
      {new EllipticalArc(ZR_RGB32{1}, c, r, 0.0f, 0.5f, 1.0f, &list), "EllipsticalArc: level  ",
       sizeof(EllipticalArc)},
      {new EllipticalPie(ZR_RGB32{1}, c, r, 0.0f, 0.5f, 1.0f, &list), "EllipticalPie: level  ",
       sizeof(EllipticalPie)},
      {new ColorizedEllipse(ZR_RGB32{1}, c, r, 0.0f, 0.5f, 1.0f, 0xff, true, &list),
       "ColorizedEllipse: level  ", sizeof(ColorizedEllipse)},
      {new Text(ZR_RGB32{1}, ZR_Font(), {0, 0}, "ab", 2, 10.0, 0.0, text_box, &list, false),
       "Text: level  ", sizeof(Text)},
      {new Text(&rendition, ZR_Font(), {0, 0}, "ab", 2, 10.0, 0.0, text_box, &list, true),
       "Text: level  ", sizeof(Text)},
      {nested, "Drawable: level  ", -1},
  };
  int bytes = 0;
  int counted = 0;
  for (const Case& k : cases) {
    // Alone, on a hex stream: the address in the stream's base.
    std::ostringstream out;
    out << std::hex;
    DisplayListDebug debug{};
    k.drawable->dump(out, 3, debug);
    EXPECT_EQ(out.str(), indent(3) + k.label + "3, this = " + hex(k.drawable) + "\n") << k.label;
    const bool counts = k.bytes >= 0;
    EXPECT_EQ(debug.drawable_bytes, counts ? k.bytes : 0) << k.label;
    EXPECT_EQ(debug.drawable_common_bytes, counts ? static_cast<int>(sizeof(Drawable)) : 0)
        << k.label;
    EXPECT_EQ(debug.drawable_count + debug.group_count + debug.group_bytes, 0) << k.label;
    if (counts) {
      bytes += k.bytes;
      ++counted;
    }
    list.add(k.drawable, k.drawable->bounds_of());
  }
  DummyDrawable dummy;
  std::ostringstream dummy_out;
  DisplayListDebug dummy_debug{};
  dummy.dump(dummy_out, 0, dummy_debug);
  EXPECT_EQ(dummy_out.str(), "Drawable: level  0, this = " + dec(&dummy) + "\n");
  EXPECT_EQ(dummy_debug.drawable_common_bytes, 0);

  // In the tree: one line per drawable, in decimal, and the sums of all.
  ASSERT_TRUE(tree_is_valid(list));
  std::ostringstream out;
  out << std::hex;
  DisplayListDebug debug{};
  list.root->dump_subtree(out, 0, debug);
  const std::vector<std::string> lines = lines_of(out.str());
  for (const Case& k : cases) {
    // The line that ends in the drawable's address, with its label and level.
    const std::string tail = ", this = " + dec(k.drawable);
    int found = 0;
    for (const std::string& line : lines) {
      if (line.size() < tail.size() || line.compare(line.size() - tail.size(), tail.size(), tail))
        continue;
      ++found;
      const std::size_t blanks = line.find_first_not_of(' ');
      const int depth = static_cast<int>(blanks / 4);
      EXPECT_EQ(line, indent(depth) + k.label + std::to_string(depth) + tail);
    }
    EXPECT_EQ(found, 1) << k.label;
  }
  EXPECT_EQ(debug.drawable_count, static_cast<int>(cases.size()));
  EXPECT_EQ(debug.drawable_bytes, bytes);
  EXPECT_EQ(debug.drawable_common_bytes, counted * static_cast<int>(sizeof(Drawable)));
  EXPECT_EQ(debug.group_bytes, debug.group_count * static_cast<int>(sizeof(Group)));
  list.root->assert_valid();
}

// Regression: the counts were added with a signed `+=`, which overflowed
// (undefined; UBSan reported it) once a host summed several dumps into one
// record or a tree passed some 33.5 million groups. They wrap modulo 2^32 now.
TEST(TreeDump, CountsNearTheIntLimitWrapInsteadOfOverflowing) {
  DisplayList list(nullptr, 1, 31);
  for (int i = 0; i < 3; ++i) {
    auto* d = new Dot(ZR_RGB32{1}, {i * 1000, 0});
    list.add(d, d->bounds_of());
  }
  ASSERT_TRUE(tree_is_valid(list, nullptr));
  DisplayListDebug once{};
  std::ostringstream first;
  list.root->dump_subtree(first, 0, once);
  ASSERT_GT(once.group_count, 0);

  constexpr int kTop = 2147483647;
  DisplayListDebug debug{kTop, kTop, kTop, kTop, kTop};
  std::ostringstream second;
  list.root->dump_subtree(second, 0, debug);
  EXPECT_EQ(second.str(), first.str());  // the text does not change
  auto wrapped = [](int total, int added) {
    return static_cast<int>(static_cast<unsigned>(total) + static_cast<unsigned>(added));
  };
  EXPECT_EQ(debug.group_count, wrapped(kTop, once.group_count));
  EXPECT_EQ(debug.drawable_count, wrapped(kTop, once.drawable_count));
  EXPECT_EQ(debug.group_bytes, wrapped(kTop, once.group_bytes));
  EXPECT_EQ(debug.drawable_bytes, wrapped(kTop, once.drawable_bytes));
  EXPECT_EQ(debug.drawable_common_bytes, wrapped(kTop, once.drawable_common_bytes));
  EXPECT_LT(debug.group_count, 0);
}

}  // namespace
}  // namespace DL::test
