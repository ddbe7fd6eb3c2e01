#include "tests/support/test_files.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <system_error>

namespace DL::test {

std::string test_file_path(const std::string& name) {
  const std::filesystem::path dir = DL_TEST_FILES_DIR;
  std::error_code ignored;  // a folder that cannot be made fails the test's own write
  std::filesystem::create_directories(dir, ignored);
  return (dir / name).string();
}

std::string test_file(const std::string& name) {
  const ::testing::TestInfo* info = ::testing::UnitTest::GetInstance()->current_test_info();
  if (!info) return test_file_path(name);
  return test_file_path(std::string(info->test_suite_name()) + "." + info->name() + "_" + name);
}

}  // namespace DL::test
