// Include in exactly one source file of a test program that loads fonts.
// fontconfig keeps its configuration for the life of the process; under the
// leak checker that shows as a leak of the library's, not of ours.
#pragma once

extern "C" const char* __lsan_default_suppressions() {
  return "leak:libfontconfig.so";
}
