// Replays the fuzzer's corpus through every parser: whatever the bytes, the
// parsers neither crash nor read out of bounds, and valid messages survive a
// round trip through the generator.
#include <filesystem>
#include <fstream>
#include <iterator>

#include "fuzz/WireWalk.h"
#include "tests/wire/WireTestUtil.h"

TEST(CorpusReplay, EveryFileThroughEveryParser) {
   namespace fs = std::filesystem;
   fs::path dir = fs::path(LDP_SOURCE_DIR) / "fuzz" / "corpus";
   ASSERT_TRUE(fs::is_directory(dir)) << dir;
   std::size_t files = 0, validPdus = 0;
   for (auto const& entry : fs::directory_iterator(dir)) {
      if (!entry.is_regular_file()) continue;
      std::ifstream in(entry.path(), std::ios::binary);
      WireTest::Bytes bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
      auto pkt = WireWalk::pktOf(bytes.data(), bytes.size());
      WireWalk::walkPkt(pkt);
      validPdus += Ldp::ldpPduParserFactory(pkt, 0)->validLdpPdu();
      ++files;
   }
   EXPECT_GT(files, 0u);
   EXPECT_GT(validPdus, 0u);
}
