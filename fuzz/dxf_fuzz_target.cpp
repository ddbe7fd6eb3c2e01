// The libFuzzer entry of the DXF fuzzer: each input is written to one scratch
// file beside the fuzzer (the loader reads files, as dlview does) and checked
// by check_dxf_file; a failed check is a crash, with the problem on standard
// error.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "fuzz/dxf_check.h"

namespace {
std::string scratch_path;
}

extern "C" int LLVMFuzzerInitialize(int* argc, char*** argv) {
  const std::string self = *argc > 0 ? (*argv)[0] : "";
  const std::size_t slash = self.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : self.substr(0, slash);
  scratch_path = folder + "/dxf_fuzz_input." + std::to_string(getpid()) + ".dxf";
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  {
    std::ofstream out(scratch_path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(data), static_cast<std::streamsize>(size));
    if (!out) {
      std::fprintf(stderr, "cannot write %s\n", scratch_path.c_str());
      std::abort();
    }
  }
  const std::string problem = DL::fuzz::check_dxf_file(scratch_path);
  std::remove(scratch_path.c_str());
  if (!problem.empty()) {
    std::fprintf(stderr, "DXF check failed: %s\n", problem.c_str());
    std::abort();
  }
  return 0;
}
