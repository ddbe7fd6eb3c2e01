// The libFuzzer entry: one input is one run of the operation interpreter, and a
// failed check is a crash, with the problem on standard error.
#include <cstdio>
#include <cstdlib>

#include "fuzz/operations.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string problem = DL::fuzz::run_operations(data, size);
  if (!problem.empty()) {
    std::fprintf(stderr, "display list check failed: %s\n", problem.c_str());
    std::abort();
  }
  return 0;
}
