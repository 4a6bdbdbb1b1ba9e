#include "runtime/nolu/Hdr.h"

namespace Nolu {

U32 onesComplementAdd(U32 sum, U8 const* p, std::size_t n) {
   std::size_t i = 0;
   for (; i + 1 < n; i += 2) sum += (U32(p[i]) << 8) | p[i + 1];
   if (i < n) sum += U32(p[i]) << 8;
   // Fold now and then so that long inputs cannot overflow the 32 bits.
   while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
   return sum;
}

U16 onesComplementFold(U32 sum) {
   while (sum >> 16) sum = (sum & 0xFFFF) + (sum >> 16);
   return U16(~sum);
}

U16 IpHdr::computedChecksum() const {
   auto const* p = reinterpret_cast<U8 const*>(this);
   U32 sum = onesComplementAdd(0, p, 10);
   std::size_t len = headerBytes();
   if (len > 12) sum = onesComplementAdd(sum, p + 12, len - 12);
   return onesComplementFold(sum);
}

U16 UdpHdr::computedChecksum(IpAddr src, IpAddr dst) const {
   U8 pseudo[12];
   writeU32(pseudo, src.value());
   writeU32(pseudo + 4, dst.value());
   pseudo[8] = 0;
   pseudo[9] = ipProtoUdp;
   writeU16(pseudo + 10, length());
   U32 sum = onesComplementAdd(0, pseudo, sizeof(pseudo));
   auto const* p = reinterpret_cast<U8 const*>(this);
   sum = onesComplementAdd(sum, p, 6);
   if (length() > 8) sum = onesComplementAdd(sum, p + 8, length() - 8u);
   U16 c = onesComplementFold(sum);
   return c == 0 ? 0xFFFF : c;
}

}  // namespace Nolu
