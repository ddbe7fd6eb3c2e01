// Every input of the DXF fuzzer's corpus, run again through its checks in the
// normal builds: real-looking drawings, hand-broken ones, and each input that
// once made the fuzzer fail.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <vector>

#include "foundation/zephal.h"
#include "fuzz/dxf_check.h"

namespace {

TEST(DxfFuzzCorpus, EveryInputPassesEveryCheck) {
  std::vector<std::filesystem::path> files;
  for (const auto& entry : std::filesystem::directory_iterator(DL_DXF_FUZZ_CORPUS_DIR))
    if (entry.is_regular_file()) files.push_back(entry.path());
  std::sort(files.begin(), files.end());
  ASSERT_GE(files.size(), 10u) << "the seed corpus is in " << DL_DXF_FUZZ_CORPUS_DIR;
  const std::size_t before = ZP_HeapStatistics().live_blocks;
  for (const auto& file : files)
    EXPECT_EQ(DL::fuzz::check_dxf_file(file.string()), "") << file.filename();
  EXPECT_EQ(ZP_HeapStatistics().live_blocks, before);
}

}  // namespace
