// The operation interpreter of the fuzzer: a byte string read as a sequence of
// operations on one display list, checked against a reference model.
//
// The same interpreter runs under libFuzzer (fuzz/fuzz_target.cpp) and in the
// corpus replay test, so every file of fuzz/corpus/ is a regression case.
//
// How the bytes are read
// ----------------------
// The first two bytes choose the group capacity and the level limit; then each
// operation is one byte (its kind) followed by the bytes its arguments need.
// Values are taken from the front of what is left; a string that runs out
// reads zeros, so every byte string is a valid program. Coordinates favour
// the ends of the 32-bit range, zero and a small neighbourhood of a centre, so
// that trees get deep and cells meet at the grid lines; rectangles may be the
// empty one or the whole plane; angles and heights may be NaN or infinite.
// At most `kMaxOperations` operations run, which keeps one input fast.
//
// Nested lists take part: drawables that show a list of their own (owned) or
// one of a few shared lists (borrowed, shown at many places), and shared lists
// that show the shared lists made before them, so lists nest twice and more.
// Shared lists grow and lose drawables while the outer list shows them. The
// host also closes the tree at any time, right after an insertion before a
// drawable among others.
//
// What is checked
// ---------------
// Every eighth operation and after the last one (checked after each
// operation, the whole model took about half of the run):
// - every invariant of the tree (tests/support/tree_check.h), with the model
//   as the expected drawing order, and of every nested list, the shared ones
//   against their own model;
// - the forward walk is the model, the reverse walk over the whole plane is
//   the model reversed, and bounded walks (forward and reverse) give every
//   drawable that overlaps their rectangle, in order (`compare_walks`, the one
//   place where walks are held against the plain list);
// - the list's own heap holds exactly the model's drawables and the tree's
//   groups.
// After each operation, what it alone can show: the group `add` and
// `add_before` return, the result of every removal against the model's
// expectation, clones that match their source. Draws are checked where their
// result is known: a bounded selection draw hands on, in model order, every
// shown visible dot and box that overlaps its outer rectangle (drawables of
// nested lists may come in between), and an interruptible draw that is never
// stopped records exactly what its plain form records. At the end the default
// heap, the list's heap and the nested lists' heap hold no more blocks than
// before the run.
//
// Preconditions of the library are honoured, not fuzzed: an unrotated whole
// ellipse keeps center +- radii in the 32-bit range, radii are not negative,
// and a list that draws text has a text engine.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace DL::fuzz {

inline constexpr int kMaxOperations = 300;

// Runs `data` as operations. Returns the first problem found, with the number
// of the operation that showed it, or an empty string when every check held.
// Everything made during the run is gone when it returns.
std::string run_operations(const std::uint8_t* data, std::size_t size);

}  // namespace DL::fuzz
