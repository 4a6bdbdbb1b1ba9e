#pragma once
// The packet dump of the traces: each byte as \xNN.
#include <cstdio>
#include <string>

#include "runtime/nolu/Pkt.h"

namespace Ldp {

inline std::string pktHexDump(Nolu::Pkt const& pkt) {
   std::string s;
   s.reserve(pkt.dataBytes() * 4);
   char b[8];
   U8 const* p = pkt.readPtr(0);
   for (U32 i = 0; i < pkt.dataBytes(); ++i) {
      std::snprintf(b, sizeof b, "\\x%02x", p[i]);
      s += b;
   }
   return s;
}

}  // namespace Ldp
