// libFuzzer target: arbitrary bytes through every LDP parser.
#include <cstddef>
#include <cstdint>

#include "fuzz/WireWalk.h"

namespace {
volatile U64 sink;
}

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   if (size > 70000) return 0;
   sink = WireWalk::walkPkt(WireWalk::pktOf(data, size));
   return 0;
}
