// Every input of the fuzzer's corpus, run again through the operation
// interpreter in the normal builds: the corpus is a regression suite, and each
// input that once made the fuzzer fail stays in it.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "foundation/zephal.h"
#include "fuzz/operations.h"

namespace {

std::vector<std::filesystem::path> corpus_files() {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(DL_FUZZ_CORPUS_DIR))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  return files;
}

TEST(FuzzCorpus, EveryInputPassesEveryCheck) {
  const std::vector<std::filesystem::path> files = corpus_files();
  ASSERT_GE(files.size(), 10u) << "the seed corpus is in " << DL_FUZZ_CORPUS_DIR;
  const std::size_t before = ZP_HeapStatistics().live_blocks;
  for (const auto& file : files) {
    std::ifstream in(file, std::ios::binary);
    const std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                          std::istreambuf_iterator<char>());
    EXPECT_EQ(DL::fuzz::run_operations(bytes.data(), bytes.size()), "") << file.filename();
  }
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before);
}

// Inputs that are not in the corpus files: nothing, one byte, and a long run of
// each operation kind alone.
TEST(FuzzCorpus, DegenerateInputs) {
  EXPECT_EQ(DL::fuzz::run_operations(nullptr, 0), "");
  const std::uint8_t one = 7;
  EXPECT_EQ(DL::fuzz::run_operations(&one, 1), "");
  for (int kind = 0; kind < 20; ++kind) {
    std::vector<std::uint8_t> bytes(2000);
    for (std::size_t i = 0; i < bytes.size(); ++i)
      bytes[i] = static_cast<std::uint8_t>(i % 16 == 6 ? kind : (i * 37 + kind) & 0xFF);
    EXPECT_EQ(DL::fuzz::run_operations(bytes.data(), bytes.size()), "") << "kind " << kind;
  }
}

}  // namespace
