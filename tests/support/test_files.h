// Where tests write their files: a folder under the build folder, never the
// system's temporary folder, so a run leaves nothing behind outside the build
// and a failed test's pictures can be looked at afterwards.
#pragma once

#include <string>

namespace DL::test {

// `<build folder>/test-files/<name>`; the folder is made on the first call.
// Tests run side by side under ctest, so a name should carry the test's name
// where two tests could pick the same one (see `test_file`).
std::string test_file_path(const std::string& name);

// `test_file_path("<suite>.<test>_<name>")` for the running GoogleTest test.
std::string test_file(const std::string& name);

}  // namespace DL::test
