// The checks of the DXF fuzzer: one file through the loader, the mapping to
// drawables and a draw, as dlview would take it.
//
// The same function runs under libFuzzer (fuzz/dxf_fuzz_target.cpp, which
// writes each input to a scratch file) and in the corpus replay test, so every
// file of fuzz/dxf_corpus/ is a regression case.
//
// What is checked
// ---------------
// - A refused file gets one clear line: not empty, no line break or other
//   control character, at most 512 bytes.
// - A loaded file is laid out on a sheet and mapped into a display list with a
//   text engine that records; that list, every block list built for it and
//   every list its drawables own (the lineweight runs) are sound trees
//   (tests/support/tree_check.h), and the list draws its whole
//   view and a quarter of it into a recording renderer.
// - When everything is gone, the list's heap holds no block.
// Crashes, undefined behaviour and leaks are the sanitizers' to report; a run
// that takes over a second is libFuzzer's (-timeout=1).
#pragma once

#include <string>

namespace DL::fuzz {

// Runs the file at `path`. Returns the first problem found, or an empty string
// when every check held.
std::string check_dxf_file(const std::string& path);

}  // namespace DL::fuzz
