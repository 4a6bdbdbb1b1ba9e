// Replays the session fuzzer's corpus: whatever the peer does in it, the
// agent survives and its invariants hold.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/SessionDrive.h"

TEST(SessionFuzzCorpus, EveryInputLeavesTheAgentWhole) {
   namespace fs = std::filesystem;
   fs::path dir = fs::path(LDP_SOURCE_DIR) / "fuzz" / "session_corpus";
   ASSERT_TRUE(fs::is_directory(dir)) << dir;
   std::size_t files = 0;
   for (auto const& entry : fs::directory_iterator(dir)) {
      if (!entry.is_regular_file()) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      std::vector<std::uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                                      std::istreambuf_iterator<char>());
      SCOPED_TRACE(entry.path().filename().string());
      SessionDrive::run(bytes.data(), bytes.size());
      ++files;
   }
   EXPECT_GT(files, 0u);
}
