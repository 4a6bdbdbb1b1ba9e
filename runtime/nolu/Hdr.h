#pragma once
// Views of Ethernet, IPv4 and UDP headers laid over packet bytes. They hold no
// data of their own: a pointer into a buffer is cast to them once the bytes
// are known to be there.
#include "runtime/nolu/Types.h"

namespace Nolu {

inline constexpr U16 etherTypeIp = 0x0800;
inline constexpr U16 etherTypeDot1q = 0x8100;
inline constexpr U8 ipProtoUdp = 17;
inline constexpr U8 ipProtoTcp = 6;

// One's complement sum of bytes, folded to 16 bits, with an initial sum.
U32 onesComplementAdd(U32 sum, U8 const* p, std::size_t n);
U16 onesComplementFold(U32 sum);

struct EthHdr {
   U8 dst_[6];
   U8 src_[6];
   NetU16 etherType_;

   EthAddr dst() const { return EthAddr::fromBytes(dst_); }
   void dstIs(EthAddr const& a) { a.bytesAre(dst_); }
   EthAddr src() const { return EthAddr::fromBytes(src_); }
   void srcIs(EthAddr const& a) { a.bytesAre(src_); }
   U16 etherType() const { return etherType_.value(); }
   void etherTypeIs(U16 t) { etherType_.valueIs(t); }
};
static_assert(sizeof(EthHdr) == 14);

// 802.1Q tag that follows the source address in a tagged frame.
struct Dot1qTag {
   NetU16 tci_;
   NetU16 innerEtherType_;
   U16 vlanId() const { return tci_.value() & 0x0FFF; }
   U16 innerEtherType() const { return innerEtherType_.value(); }
};
static_assert(sizeof(Dot1qTag) == 4);

struct IpHdr {
   U8 versionIhl_;
   U8 tos_;
   NetU16 totalLength_;
   NetU16 identification_;
   NetU16 fragment_;
   U8 ttl_;
   U8 protocol_;
   NetU16 checksum_;
   NetU32 src_;
   NetU32 dst_;

   U8 version() const { return versionIhl_ >> 4; }
   // Header length in bytes, from the IHL field.
   U16 headerBytes() const { return U16((versionIhl_ & 0x0F) * 4); }
   void versionAndHeaderBytesIs(U8 version, U16 bytes) {
      versionIhl_ = U8((version << 4) | ((bytes / 4) & 0x0F));
   }
   U8 tos() const { return tos_; }
   void tosIs(U8 t) { tos_ = t; }
   U16 totalLength() const { return totalLength_.value(); }
   void totalLengthIs(U16 l) { totalLength_.valueIs(l); }
   U16 identification() const { return identification_.value(); }
   void identificationIs(U16 v) { identification_.valueIs(v); }
   U8 ttl() const { return ttl_; }
   void ttlIs(U8 t) { ttl_ = t; }
   U8 protocol() const { return protocol_; }
   void protocolIs(U8 p) { protocol_ = p; }
   U16 checksum() const { return checksum_.value(); }
   void checksumIs(U16 c) { checksum_.valueIs(c); }
   IpAddr src() const { return IpAddr(src_.value()); }
   void srcIs(IpAddr a) { src_.valueIs(a.value()); }
   IpAddr dst() const { return IpAddr(dst_.value()); }
   void dstIs(IpAddr a) { dst_.valueIs(a.value()); }

   // The header checksum over headerBytes() bytes, with the checksum field
   // counted as zero. The caller makes sure those bytes are in the buffer.
   U16 computedChecksum() const;
};
static_assert(sizeof(IpHdr) == 20);

struct UdpHdr {
   NetU16 srcPort_;
   NetU16 dstPort_;
   NetU16 length_;
   NetU16 checksum_;

   U16 srcPort() const { return srcPort_.value(); }
   void srcPortIs(U16 p) { srcPort_.valueIs(p); }
   U16 dstPort() const { return dstPort_.value(); }
   void dstPortIs(U16 p) { dstPort_.valueIs(p); }
   U16 length() const { return length_.value(); }
   void lengthIs(U16 l) { length_.valueIs(l); }
   U16 checksum() const { return checksum_.value(); }
   void checksumIs(U16 c) { checksum_.valueIs(c); }

   // The UDP checksum with the IPv4 pseudo header, over length() bytes from
   // this header on, with the checksum field counted as zero. A result of 0 is
   // sent as 0xFFFF. The caller makes sure those bytes are in the buffer.
   U16 computedChecksum(IpAddr src, IpAddr dst) const;
};
static_assert(sizeof(UdpHdr) == 8);

}  // namespace Nolu
