// Replays every input the interval-parser fuzzer has kept, crashes included, through
// the properties the fuzzer checks.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <vector>

#include "fuzz/zintstr_check.h"
#include "tests/hosted.h"

TEST(FuzzCorpus, IntervalTextsKeepTheirProperties) {
  hosted();
  int replayed = 0;
  for (const auto& entry : std::filesystem::directory_iterator(FMSD_FUZZ_CORPUS "/zintstr")) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::vector<unsigned char> data((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const char* failure = check_interval_text(data.data(), data.size());
    EXPECT_EQ(failure, nullptr) << entry.path() << ": " << failure;
    ++replayed;
  }
  EXPECT_GE(replayed, 10);
}
