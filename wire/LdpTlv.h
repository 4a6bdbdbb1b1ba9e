#pragma once
// Views of the LDP PDU header, message header, TLVs and FEC elements laid
// over packet bytes. They are only ever reached through a pointer into a
// buffer whose bytes a parser has checked, or that a generator has reserved;
// accessors that take an index assert that it is in range.
#include "entities/Enums.h"
#include "entities/Identifiers.h"
#include "runtime/nolu/Types.h"

namespace Ldp {

using Nolu::NetU16;
using Nolu::NetU32;

struct LdpPduHdr {
   NetU16 version_;
   NetU16 length_;
   NetU32 lsrId_;
   NetU16 lblSpace_;

   U16 version() const { return version_.value(); }
   void versionIs(U16 v) { version_.valueIs(v); }
   // Bytes after the length field: the total minus 4.
   U16 length() const { return length_.value(); }
   void lengthIs(U16 v) { length_.valueIs(v); }
   LdpIdentifier ldpIdentifier() const { return LdpIdentifier(lsrId_.value(), lblSpace_.value()); }
   void ldpIdentifierIs(LdpIdentifier const& id) {
      lsrId_.valueIs(id.lsrId());
      lblSpace_.valueIs(id.lblSpace());
   }
};
static_assert(sizeof(LdpPduHdr) == 10);

struct LdpMsgHdr {
   NetU16 type_;
   NetU16 length_;
   NetU32 msgId_;

   bool uBit() const { return type_.value() & 0x8000; }
   void uBitIs(bool u) { type_.valueIs(U16((type_.value() & 0x7FFF) | (u ? 0x8000 : 0))); }
   // The 15-bit type, without the U bit.
   LdpMsgType type() const { return LdpMsgType(type_.value() & 0x7FFF); }
   void typeIs(U16 t) { type_.valueIs(U16((type_.value() & 0x8000) | (t & 0x7FFF))); }
   // Bytes after the length field: the total minus 4.
   U16 length() const { return length_.value(); }
   void lengthIs(U16 v) { length_.valueIs(v); }
   U32 msgId() const { return msgId_.value(); }
   void msgIdIs(U32 v) { msgId_.valueIs(v); }
};
static_assert(sizeof(LdpMsgHdr) == 8);

struct LdpTlvHdr {
   NetU16 type_;
   NetU16 length_;

   bool uBit() const { return type_.value() & 0x8000; }
   void uBitIs(bool u) { type_.valueIs(U16((type_.value() & 0x7FFF) | (u ? 0x8000 : 0))); }
   bool fBit() const { return type_.value() & 0x4000; }
   void fBitIs(bool f) { type_.valueIs(U16((type_.value() & 0xBFFF) | (f ? 0x4000 : 0))); }
   // The 14-bit type, without U and F.
   LdpTlvType type() const { return LdpTlvType(type_.value() & 0x3FFF); }
   void typeIs(U16 t) { type_.valueIs(U16((type_.value() & 0xC000) | (t & 0x3FFF))); }
   // Bytes of the value.
   U16 length() const { return length_.value(); }
   void lengthIs(U16 v) { length_.valueIs(v); }
   U8 const* value() const { return reinterpret_cast<U8 const*>(this) + sizeof(LdpTlvHdr); }
   U8* value() { return reinterpret_cast<U8*>(this) + sizeof(LdpTlvHdr); }
   U32 totalSize() const { return sizeof(LdpTlvHdr) + length(); }
};
static_assert(sizeof(LdpTlvHdr) == 4);

struct LdpCommonHelloTlv : LdpTlvHdr {
   NetU16 holdTime_;
   NetU16 flags_;
   static constexpr U16 targetedBit = 0x8000;
   static constexpr U16 requestTargetedBit = 0x4000;

   U16 holdTime() const { return holdTime_.value(); }
   void holdTimeIs(U16 v) { holdTime_.valueIs(v); }
   bool targeted() const { return flags_.value() & targetedBit; }
   bool requestTargeted() const { return flags_.value() & requestTargetedBit; }
   void flagsIs(bool targeted, bool requestTargeted) {
      flags_.valueIs(
         U16((targeted ? targetedBit : 0) | (requestTargeted ? requestTargetedBit : 0)));
   }
};
static_assert(sizeof(LdpCommonHelloTlv) == 8);

struct LdpIpv4TransportAddrTlv : LdpTlvHdr {
   NetU32 addr_;
   Nolu::IpAddr ipAddr() const { return Nolu::IpAddr(addr_.value()); }
   void ipAddrIs(Nolu::IpAddr a) { addr_.valueIs(a.value()); }
};
static_assert(sizeof(LdpIpv4TransportAddrTlv) == 8);

struct LdpIpv6TransportAddrTlv : LdpTlvHdr {
   U8 addr_[16];
   Nolu::Ip6Addr ip6Addr() const { return Nolu::Ip6Addr::fromBytes(addr_); }
};
static_assert(sizeof(LdpIpv6TransportAddrTlv) == 20);

struct LdpConfigSeqNumTlv : LdpTlvHdr {
   NetU32 seqNum_;
   U32 seqNum() const { return seqNum_.value(); }
   void seqNumIs(U32 v) { seqNum_.valueIs(v); }
};
static_assert(sizeof(LdpConfigSeqNumTlv) == 8);

struct LdpCommonSessionParamTlv : LdpTlvHdr {
   NetU16 protocolVersion_;
   NetU16 keepAliveTime_;
   U8 flags_;
   U8 pathVectorLimit_;
   NetU16 maxPduLength_;
   NetU32 receiverLsrId_;
   NetU16 receiverLblSpace_;
   static constexpr U8 aBit = 0x80;
   static constexpr U8 dBit = 0x40;

   U16 protocolVersion() const { return protocolVersion_.value(); }
   void protocolVersionIs(U16 v) { protocolVersion_.valueIs(v); }
   U16 keepAliveTime() const { return keepAliveTime_.value(); }
   void keepAliveTimeIs(U16 v) { keepAliveTime_.valueIs(v); }
   // A: downstream on demand; clear, downstream unsolicited.
   bool advDiscipline() const { return flags_ & aBit; }
   LdpLabelAdvDspl labelAdvDspl() const {
      return advDiscipline() ? downstreamOnDemandAdvDspl_ : unsolicitedAdvDspl_;
   }
   bool loopDetection() const { return flags_ & dBit; }
   void flagsIs(bool advDiscipline, bool loopDetection) {
      flags_ = U8((advDiscipline ? aBit : 0) | (loopDetection ? dBit : 0));
   }
   U8 pathVectorLimit() const { return pathVectorLimit_; }
   void pathVectorLimitIs(U8 v) { pathVectorLimit_ = v; }
   U16 maxPduLength() const { return maxPduLength_.value(); }
   void maxPduLengthIs(U16 v) { maxPduLength_.valueIs(v); }
   LdpIdentifier receiverLdpId() const {
      return LdpIdentifier(receiverLsrId_.value(), receiverLblSpace_.value());
   }
   void receiverLdpIdIs(LdpIdentifier const& id) {
      receiverLsrId_.valueIs(id.lsrId());
      receiverLblSpace_.valueIs(id.lblSpace());
   }
};
static_assert(sizeof(LdpCommonSessionParamTlv) == 18);

// The Status TLV. The status word holds E (bit 31), F (bit 30) and the
// status data in the low 30 bits.
struct LdpStatusTlv : LdpTlvHdr {
   NetU32 statusWord_;
   NetU32 msgId_;
   NetU16 msgType_;
   static constexpr U32 eBitMask = 0x80000000u;
   static constexpr U32 fBitMask = 0x40000000u;
   static constexpr U32 dataMask = 0x3FFFFFFFu;

   U32 statusWord() const { return statusWord_.value(); }
   LdpStatusCode statusData() const { return LdpStatusCode(statusWord() & dataMask); }
   void statusDataIs(U32 code) {
      statusWord_.valueIs((statusWord() & ~dataMask) | (code & dataMask));
   }
   bool statusEBit() const { return statusWord() & eBitMask; }
   bool statusFBit() const { return statusWord() & fBitMask; }
   void statusBitsAre(bool e, bool f) {
      statusWord_.valueIs((statusWord() & dataMask) | (e ? eBitMask : 0) | (f ? fBitMask : 0));
   }
   U32 msgId() const { return msgId_.value(); }
   void msgIdIs(U32 v) { msgId_.valueIs(v); }
   LdpMsgType msgType() const { return LdpMsgType(msgType_.value()); }
   void msgTypeIs(U16 v) { msgType_.valueIs(v); }
};
static_assert(sizeof(LdpStatusTlv) == 14);

struct LdpGenLabelTlv : LdpTlvHdr {
   NetU32 label_;
   // The 20-bit label; the parser refuses a TLV with higher bits set.
   Nolu::MplsLabel label() const { return Nolu::MplsLabel(label_.value() & 0xFFFFF); }
   void labelIs(Nolu::MplsLabel l) { label_.valueIs(l.value() & 0xFFFFF); }
};
static_assert(sizeof(LdpGenLabelTlv) == 8);

struct LdpHopCountTlv : LdpTlvHdr {
   U8 hopCount_;
   U8 hopCount() const { return hopCount_; }
   void hopCountIs(U8 v) { hopCount_ = v; }
};
static_assert(sizeof(LdpHopCountTlv) == 5);

struct LdpLabelReqMsgIdTlv : LdpTlvHdr {
   NetU32 msgId_;
   U32 msgId() const { return msgId_.value(); }
   void msgIdIs(U32 v) { msgId_.valueIs(v); }
};
static_assert(sizeof(LdpLabelReqMsgIdTlv) == 8);

// The value of the PW Status TLV: the status bits of the pseudowire.
struct LdpPwStatusField {
   NetU32 flags_;
   U32 flags() const { return flags_.value(); }
   void flagsIs(U32 v) { flags_.valueIs(v); }
};

struct LdpPwStatusTlv : LdpTlvHdr {
   LdpPwStatusField status_;
   LdpPwStatusField const& statusField() const { return status_; }
   U32 flags() const { return status_.flags(); }
   void flagsIs(U32 v) { status_.flagsIs(v); }
};
static_assert(sizeof(LdpPwStatusTlv) == 8);

// Address List TLV: the family (1 IPv4, 2 IPv6) and the addresses.
struct LdpAddressListTlv : LdpTlvHdr {
   NetU16 family_;

   U16 family() const { return family_.value(); }
   void familyIs(U16 f) { family_.valueIs(f); }
   static U32 addressBytes(U16 family) { return family == 1 ? 4 : family == 2 ? 16 : 0; }
   U32 numAddress() const {
      U32 bytes = addressBytes(family());
      return bytes && length() >= 2 ? (length() - 2u) / bytes : 0;
   }
   Nolu::IpGenAddr address(U32 index) const;
};
static_assert(sizeof(LdpAddressListTlv) == 6);

// Path Vector TLV: LSR ids of 4 bytes.
struct LdpPathVectorTlv : LdpTlvHdr {
   U32 lsrIdNum() const { return length() / 4u; }
   Nolu::IpAddr lsrId(U32 index) const;
   // The 1-based position of lsrId on the path, 0 when absent.
   U32 lsrIdPosition(Nolu::IpAddr lsrId) const;
};
static_assert(sizeof(LdpPathVectorTlv) == 4);

// A capability TLV of the Initialization or Capability message: the first
// value byte holds the S bit (capability announced or withdrawn).
struct LdpCapabilityTlv : LdpTlvHdr {
   bool sBit() const { return length() >= 1 && (value()[0] & 0x80); }
};

// The first byte of every FEC element.
struct LdpFecTlvElementHdr {
   U8 type_;
   LdpFecElementType type() const { return LdpFecElementType(type_); }
};

// Prefix element: type, family, length in bits, and the top bytes of the
// prefix.
struct LdpFecTlvPrefixElementHdr : LdpFecTlvElementHdr {
   NetU16 family_;
   U8 prefixLen_;
   U16 family() const { return family_.value(); }
   U8 prefixLen() const { return prefixLen_; }
   U8 const* prefixBytes() const { return &prefixLen_ + 1; }
   static U32 prefixByteCount(U8 lenBits) { return (lenBits + 7u) / 8u; }
};
static_assert(sizeof(LdpFecTlvPrefixElementHdr) == 4);

// Host address element: type, family, address length in bytes, address.
struct LdpFecTlvHostAddrElementHdr : LdpFecTlvElementHdr {
   NetU16 family_;
   U8 addrLen_;
   U16 family() const { return family_.value(); }
   U8 addrLen() const { return addrLen_; }
   U8 const* addrBytes() const { return &addrLen_ + 1; }
};
static_assert(sizeof(LdpFecTlvHostAddrElementHdr) == 4);

// PWid element (RFC 4447): type 0x80, C bit and PW type, PW info length,
// group id; then, when the info length is not 0, the PW id and the interface
// parameter sub-TLVs.
struct LdpFecTlvPwIdElementHdr : LdpFecTlvElementHdr {
   NetU16 cBitPwType_;
   U8 pwInfoLength_;
   NetU32 groupId_;

   bool controlWord() const { return cBitPwType_.value() & 0x8000; }
   U16 wirePwType() const { return cBitPwType_.value() & 0x7FFF; }
   void cBitPwTypeIs(bool cBit, U16 wirePwType) {
      cBitPwType_.valueIs(U16((cBit ? 0x8000 : 0) | (wirePwType & 0x7FFF)));
   }
   U8 pwInfoLength() const { return pwInfoLength_; }
   void pwInfoLengthIs(U8 v) { pwInfoLength_ = v; }
   U32 groupId() const { return groupId_.value(); }
   void groupIdIs(U32 v) { groupId_.valueIs(v); }
   // The PW id; 0 when the info length is 0.
   U32 pwId() const {
      return pwInfoLength_ >= 4 ? Nolu::readU32(reinterpret_cast<U8 const*>(this) + 8) : 0;
   }
};
static_assert(sizeof(LdpFecTlvPwIdElementHdr) == 8);

// Interface parameter sub-TLV of the PWid element; length counts the two
// header bytes.
struct LdpPwIntfParamSubTlv {
   U8 type_;
   U8 length_;
   LdpPwIntfParamSubTlvType type() const { return LdpPwIntfParamSubTlvType(type_); }
   U8 length() const { return length_; }
   U8 const* value() const { return &length_ + 1; }
};
static_assert(sizeof(LdpPwIntfParamSubTlv) == 2);

}  // namespace Ldp
