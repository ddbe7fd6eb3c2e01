#include "tests/support/tree_check.h"

#include <sstream>

#include "displaylist/group_index.h"

namespace DL::test {

namespace {

struct Checker {
  const DisplayList& list;
  TreeCheckOptions options;
  std::vector<std::string> problems;
  std::vector<const Drawable*> order;
  int open_groups = 0;
  long long groups_seen = 0;

  template <class... A>
  void problem(const Group* g, A... parts) {
    std::ostringstream s;
    s << "group " << g << ": ";
    (s << ... << parts);
    problems.push_back(s.str());
  }

  void check(const Group* g, int level, const std::vector<const Group*>& ancestors) {
    if (++groups_seen > 100000000) return;  // a cycle; reported by the caller
    if (g->level() != level) problem(g, "level ", g->level(), ", expected ", level);
    if (g->is_open()) {
      ++open_groups;
      if (g != list.open_group) problem(g, "open but not the list's open group");
      if (g->display_list != &list) problem(g, "open group of another list");
      if (!(g->bounds == cell_bounds(g->bounds, level)))
        problem(g, "open group's bounds are not a cell");
    }
    if (!g->first_child && g->last_child) problem(g, "last_child without first_child");
    if (g->first_child && !g->last_child) problem(g, "first_child without last_child");
    std::vector<const Group*> chain = ancestors;
    chain.push_back(g);
    if (!g->contains_drawables()) {
      if (!g->first_child && g->parent) problem(g, "interior group without children");
      const Group* last = nullptr;
      for (const Group* c = g->first_group(); c; c = c->sibling) {
        if (c->parent != g) problem(c, "parent link ", c->parent, ", expected ", g);
        // An inverted cell is legitimate: it is the cell of an empty rectangle.
        if (options.check_containment && !c->bounds.is_inside(g->bounds))
          problem(c, "sticks out of its parent");
        check(c, level + 1, chain);
        last = c;
      }
      if (last != g->last_child) problem(g, "last_child is not the end of the chain");
      // The index of a wide group agrees with its chain and finds every child
      // by its rectangle.
      if (std::string index = GroupIndex::problems(g); !index.empty()) problem(g, index);
      return;
    }
    int count = 0;
    const Drawable* last = nullptr;
    for (const Drawable* d = g->first_drawable(); d; d = d->sibling) {
      ++count;
      order.push_back(d);
      if (options.check_containment) {
        WorldBounds b = d->bounds_of();
        for (const Group* a : chain)
          if (!b.is_inside(a->bounds)) {
            problem(a, "does not contain drawable ", d, " of group ", g);
            break;
          }
        if (g->is_open() && !b.is_inside(list.open_bounds))
          problem(g, "open_bounds miss drawable ", d);
      }
      last = d;
    }
    if (last != g->last_child) problem(g, "last_child is not the end of the chain");
    if (g->is_open() && count != list.open_count)
      problem(g, "open_count ", list.open_count, ", the group holds ", count);
    if (!g->is_open() && count == 0 && !options.allow_empty_bottom)
      problem(g, "closed bottom group is empty");
  }
};

void collect(const Group* g, std::vector<const Drawable*>& out) {
  if (g->contains_drawables()) {
    for (const Drawable* d = g->first_drawable(); d; d = d->sibling) out.push_back(d);
    return;
  }
  for (const Group* c = g->first_group(); c; c = c->sibling) collect(c, out);
}

void count(const Group* g, int level, GroupCounts& counts) {
  if (level > counts.max_level) counts.max_level = level;
  if (g->is_open())
    ++counts.open;
  else if (g->contains_drawables())
    ++counts.bottom;
  else
    ++counts.interior;
  if (!g->contains_drawables())
    for (const Group* c = g->first_group(); c; c = c->sibling) count(c, level + 1, counts);
}

}  // namespace

std::vector<std::string> tree_problems(const DisplayList& list,
                                       const std::vector<const Drawable*>* expected,
                                       TreeCheckOptions options) {
  Checker c{list, options, {}, {}};
  const Group* root = list.root;
  if (!root) return {"no root"};
  if (root->parent) c.problem(root, "root has a parent");
  c.check(root, root->level(), {});
  if (c.open_groups > 1) c.problems.push_back("more than one open group");
  if ((c.open_groups == 1) != (list.open_group != nullptr))
    c.problems.push_back("open_group does not name the tree's open group");
  if (list.group_capacity < 1) c.problems.push_back("group_capacity below 1");
  if (list.level_limit > 31) c.problems.push_back("level_limit above 31");
  if (expected && *expected != c.order) {
    std::ostringstream s;
    s << "depth-first order differs from insertion order: " << c.order.size()
      << " drawables, expected " << expected->size();
    for (std::size_t i = 0; i < c.order.size() && i < expected->size(); ++i)
      if (c.order[i] != (*expected)[i]) {
        s << "; first difference at " << i;
        break;
      }
    c.problems.push_back(s.str());
  }
  return c.problems;
}

std::vector<const Drawable*> drawables_in_order(const Group* root) {
  std::vector<const Drawable*> out;
  collect(root, out);
  return out;
}

GroupCounts count_groups(const Group* root) {
  GroupCounts counts;
  count(root, 0, counts);
  return counts;
}

}  // namespace DL::test
