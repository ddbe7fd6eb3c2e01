// Checks every invariant of a group tree. Used by every test that builds or
// changes a tree, and by the fuzzer.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "displaylist/display_list.h"
#include "drawables/drawable.h"

namespace DL::test {

struct TreeCheckOptions {
  // Closed bottom groups may be empty. Only for trees built by hand: the
  // library never leaves one (closing an empty open group destroys it).
  bool allow_empty_bottom = false;
  // Drawables must lie inside the bounds of every group above them. Off only
  // where insertion before a drawable may leave an open group's tight bounds
  // short of what it holds.
  bool check_containment = true;
};

// The problems found, one line each; empty when the tree is sound. When
// `expected` is given, the depth-first order of the drawables must equal it.
std::vector<std::string> tree_problems(const DisplayList& list,
                                       const std::vector<const Drawable*>* expected = nullptr,
                                       TreeCheckOptions options = {});

// The drawables in depth-first order.
std::vector<const Drawable*> drawables_in_order(const Group* root);

// Counts groups by class: interior, closed bottom, open.
struct GroupCounts {
  int interior = 0;
  int bottom = 0;
  int open = 0;
  int max_level = 0;
};
GroupCounts count_groups(const Group* root);

inline ::testing::AssertionResult tree_is_valid(
    const DisplayList& list, const std::vector<const Drawable*>* expected = nullptr,
    TreeCheckOptions options = {}) {
  std::vector<std::string> problems = tree_problems(list, expected, options);
  if (problems.empty()) return ::testing::AssertionSuccess();
  auto failure = ::testing::AssertionFailure();
  for (std::size_t i = 0; i < problems.size() && i < 20; ++i) failure << problems[i] << "\n";
  if (problems.size() > 20) failure << "... and " << problems.size() - 20 << " more\n";
  return failure;
}

}  // namespace DL::test
