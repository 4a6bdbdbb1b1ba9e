#pragma once
// Basic scalar types shared by the whole agent.
#include <cstdint>
#include <string>

using U8 = std::uint8_t;
using U16 = std::uint16_t;
using U32 = std::uint32_t;
using U64 = std::uint64_t;
using S32 = std::int32_t;
using S64 = std::int64_t;

namespace Vek {

// All times and delays are doubles holding seconds.
using Seconds = double;
using String = std::string;
using Name = std::string;

inline constexpr Seconds infinity = 1e300;

// A fixed, platform-independent hash mix so that iteration order of hash
// collections is the same from run to run.
inline constexpr U64 hashMix(U64 x) {
   x ^= x >> 33;
   x *= 0xff51afd7ed558ccdULL;
   x ^= x >> 33;
   x *= 0xc4ceb9fe1a85ec53ULL;
   x ^= x >> 33;
   return x;
}

inline U64 hashBytes(void const* p, std::size_t n) {
   // FNV-1a, then mixed: stable across runs and builds.
   U64 h = 0xcbf29ce484222325ULL;
   auto const* b = static_cast<unsigned char const*>(p);
   for (std::size_t i = 0; i < n; ++i) {
      h ^= b[i];
      h *= 0x100000001b3ULL;
   }
   return hashMix(h);
}

}  // namespace Vek
