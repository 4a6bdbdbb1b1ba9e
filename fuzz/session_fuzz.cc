// libFuzzer target: an agent's session driven by a peer played from the input,
// on virtual time through the simulated network.
#include <cstddef>
#include <cstdint>

#include "fuzz/SessionDrive.h"

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
   if (size > 2048) return 0;
   SessionDrive::run(data, size);
   return 0;
}
