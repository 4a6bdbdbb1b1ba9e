#include "wire/LdpParser.h"

#include <cstdio>
#include <sstream>

namespace Ldp {

namespace {

Vek::String hex(U32 v, int width) {
   char buf[16];
   std::snprintf(buf, sizeof(buf), "0x%0*x", width, v);
   return buf;
}

Vek::String tlvName(U16 type) {
   char const* name = ldpTlvTypeStr(LdpTlvType(type));
   return name ? Vek::String(name) : "TLV " + hex(type, 4);
}

Vek::String msgTypeName(U16 type) {
   char const* name = ldpMsgTypeStr(LdpMsgType(type));
   return name ? Vek::String(name) : hex(type, 4);
}

}  // namespace

// ---- TLV helpers

Nolu::IpGenAddr LdpAddressListTlv::address(U32 index) const {
   VEK_ASSERT(index < numAddress());
   U8 const* p = reinterpret_cast<U8 const*>(this) + sizeof(LdpAddressListTlv);
   if (family() == 1) return Nolu::IpGenAddr(Nolu::IpAddr::fromBytes(p + 4 * index));
   return Nolu::IpGenAddr(Nolu::Ip6Addr::fromBytes(p + 16 * index));
}

Nolu::IpAddr LdpPathVectorTlv::lsrId(U32 index) const {
   VEK_ASSERT(index < lsrIdNum());
   return Nolu::IpAddr::fromBytes(value() + 4 * index);
}

U32 LdpPathVectorTlv::lsrIdPosition(Nolu::IpAddr id) const {
   U32 n = lsrIdNum();
   for (U32 i = 0; i < n; ++i) {
      if (Nolu::readU32(value() + 4 * i) == id.value()) return i + 1;
   }
   return 0;
}

// ---- PDU

LdpPduParser::LdpPduParser(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset)
   : pkt_(Vek::validPtr(pkt)), offset_(offset) {
   U32 bytes = pkt_->frontBytes();
   if (offset_ > bytes || bytes - offset_ < sizeof(LdpPduHdr)) {
      fail(statusBadPduLength_, "PDU header needs 10 bytes, the packet has " +
                                   std::to_string(offset_ > bytes ? 0 : bytes - offset_));
      return;
   }
   pduHdr_ = reinterpret_cast<LdpPduHdr const*>(pkt_->readPtr(offset_));
   if (pduHdr_->version() != LdpProtoParam::ldpVersion()) {
      fail(statusBadProtocolVersion_, "PDU version " + std::to_string(pduHdr_->version()));
      return;
   }
   U32 total = 4u + pduHdr_->length();
   if (total != bytes - offset_) {
      fail(statusBadPduLength_, "PDU length " + std::to_string(pduHdr_->length()) +
                                   " does not match the " + std::to_string(bytes - offset_ - 4) +
                                   " bytes received");
      return;
   }
   if (pduHdr_->ldpIdentifier().lsrId() == 0) {
      fail(statusBadLdpIdentifier_, "PDU LDP identifier " + pduHdr_->ldpIdentifier().stringValue());
      return;
   }
   U32 pos = offset_ + sizeof(LdpPduHdr);
   U32 end = offset_ + total;
   if (pos == end) {
      fail(statusBadPduLength_, "PDU holds no message");
      return;
   }
   msgOffset_.reserve(pduHdr_->length() / 32);
   U8 const* base = pkt_->readPtr(0);
   while (pos < end) {
      if (end - pos < 4) {
         fail(statusBadPduLength_, std::to_string(end - pos) + " bytes after the last message");
         return;
      }
      U32 msgLen = Nolu::readU16(base + pos + 2);
      if (msgLen < 4) {
         fail(statusBadMsgLength_, "Message length " + std::to_string(msgLen) + " below 4");
         return;
      }
      if (msgLen + 4 > end - pos) {
         fail(statusBadMsgLength_, "Message length " + std::to_string(msgLen) +
                                      " beyond the PDU by " +
                                      std::to_string(msgLen + 4 - (end - pos)) + " bytes");
         return;
      }
      msgOffset_.push_back(pos);
      pos += 4 + msgLen;
   }
}

void LdpPduParser::fail(LdpStatusCode code, Vek::String reason) {
   statusCode_ = code;
   reason_ = std::string(ldpStatusCodeStr(code)) + ": " + reason;
}

Vek::String LdpPduParser::stringValue() const {
   std::ostringstream os;
   os << "LdpPdu";
   if (pduHdr_) {
      os << " version " << pduHdr_->version() << " length " << pduHdr_->length() << " ldpId "
         << pduHdr_->ldpIdentifier();
   }
   os << " msgs " << msgNum();
   if (!validLdpPdu()) os << " invalid: " << reason_;
   return os.str();
}

Vek::Ptr<LdpPduParser> ldpPduParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return Vek::Ptr<LdpPduParser>(new LdpPduParser(pkt, offset));
}

// ---- FEC TLV

LdpStatusCode LdpFecTlvParser::parse(LdpTlvHdr const* tlv, Vek::String* reason) {
   tlv_ = tlv;
   U8 const* v = tlv->value();
   U32 len = tlv->length();
   bool const strict = LdpProtoParam::fecTlvStrictPrefixWildcardOnlyElement();
   auto malformed = [&](Vek::String const& why) {
      *reason = "Malformed TLV Value: FEC " + why;
      return statusMalformedTlvValue_;
   };
   if (len == 0) return malformed("TLV without element");
   U32 pos = 0;
   bool wildcardSeen = false;
   while (pos < len) {
      U8 type = v[pos];
      U32 size = 0;
      U32 left = len - pos;
      switch (type) {
       case wildcardElement_:
         size = 1;
         if (!elementOffset_.empty()) return malformed("wildcard element not alone");
         wildcardSeen = true;
         break;
       case prefixElement_: {
         if (left < sizeof(LdpFecTlvPrefixElementHdr)) return malformed("prefix element truncated");
         auto const* e = reinterpret_cast<LdpFecTlvPrefixElementHdr const*>(v + pos);
         U32 maxBits = e->family() == 1 ? 32 : e->family() == 2 ? 128 : 0;
         if (!maxBits) {
            *reason = "Unsupported Address Family: FEC prefix family " +
                      std::to_string(e->family());
            return statusUnsupportedAddrFamily_;
         }
         if (e->prefixLen() > maxBits) {
            return malformed("prefix length " + std::to_string(e->prefixLen()));
         }
         size = sizeof(LdpFecTlvPrefixElementHdr) +
                LdpFecTlvPrefixElementHdr::prefixByteCount(e->prefixLen());
         if (size > left) return malformed("prefix element truncated");
         break;
       }
       case hostAddrElement_: {
         if (strict) break;
         if (left < sizeof(LdpFecTlvHostAddrElementHdr)) {
            return malformed("host address element truncated");
         }
         auto const* e = reinterpret_cast<LdpFecTlvHostAddrElementHdr const*>(v + pos);
         U32 want = e->family() == 1 ? 4 : e->family() == 2 ? 16 : 0;
         if (!want) {
            *reason = "Unsupported Address Family: FEC host address family " +
                      std::to_string(e->family());
            return statusUnsupportedAddrFamily_;
         }
         if (e->addrLen() != want) {
            return malformed("host address length " + std::to_string(e->addrLen()));
         }
         size = sizeof(LdpFecTlvHostAddrElementHdr) + want;
         if (size > left) return malformed("host address element truncated");
         break;
       }
       case pwIdElement_: {
         if (strict) break;
         if (left < sizeof(LdpFecTlvPwIdElementHdr)) return malformed("PWid element truncated");
         auto const* e = reinterpret_cast<LdpFecTlvPwIdElementHdr const*>(v + pos);
         U32 info = e->pwInfoLength();
         if (info != 0 && info < 4) {
            return malformed("PWid info length " + std::to_string(info));
         }
         size = sizeof(LdpFecTlvPwIdElementHdr) + info;
         if (size > left) return malformed("PWid element truncated");
         // The interface parameter sub-TLVs behind the PW id.
         U32 sub = pos + sizeof(LdpFecTlvPwIdElementHdr) + 4;
         U32 subEnd = pos + size;
         while (info && sub < subEnd) {
            if (subEnd - sub < 2) return malformed("PW interface parameter truncated");
            auto const* p = reinterpret_cast<LdpPwIntfParamSubTlv const*>(v + sub);
            U32 plen = p->length();
            if (plen < 2 || plen > subEnd - sub) {
               return malformed("PW interface parameter length " + std::to_string(plen));
            }
            bool fixed4 = p->type() == pwIntfParamMtu_ ||
                          p->type() == pwIntfParamRequestedVlanId_ ||
                          p->type() == pwIntfParamVccv_;
            if (fixed4 && plen != 4) {
               return malformed(Vek::String(ldpPwIntfParamSubTlvTypeStr(p->type())) + " length " +
                                std::to_string(plen));
            }
            sub += plen;
         }
         break;
       }
       default:
         break;
      }
      if (size == 0) {
         *reason = "Unknown FEC: element type " + hex(type, 2);
         return statusUnknownFec_;
      }
      if (wildcardSeen && !elementOffset_.empty()) return malformed("wildcard element not alone");
      elementOffset_.push_back(U16(pos));
      pos += size;
   }
   return statusSuccess_;
}

U16 LdpFecTlvParser::fecElementFamily(U32 index) const {
   LdpFecTlvElementHdr const* e = fecElement(index);
   if (e->type() == prefixElement_)
      return static_cast<LdpFecTlvPrefixElementHdr const*>(e)->family();
   if (e->type() == hostAddrElement_)
      return static_cast<LdpFecTlvHostAddrElementHdr const*>(e)->family();
   return 0;
}

Mpls::FwdEqvClass LdpFecTlvParser::fwdEqvCls(U32 index) const {
   LdpFecTlvElementHdr const* e = fecElement(index);
   U8 bytes[16] = {};
   U16 family;
   U8 lenBits;
   if (e->type() == prefixElement_) {
      auto const* p = static_cast<LdpFecTlvPrefixElementHdr const*>(e);
      family = p->family();
      if (family == 1) {
         // The usual case, read straight into an IPv4 prefix.
         U32 v = 0;
         U32 n = LdpFecTlvPrefixElementHdr::prefixByteCount(p->prefixLen());
         for (U32 i = 0; i < n; ++i) v |= U32(p->prefixBytes()[i]) << (24 - 8 * i);
         return Mpls::FwdEqvClass(Nolu::Prefix(Nolu::IpAddr(v), p->prefixLen()));
      }
      lenBits = p->prefixLen();
      std::memcpy(bytes, p->prefixBytes(), LdpFecTlvPrefixElementHdr::prefixByteCount(lenBits));
   } else if (e->type() == hostAddrElement_) {
      auto const* h = static_cast<LdpFecTlvHostAddrElementHdr const*>(e);
      family = h->family();
      lenBits = U8(h->addrLen() * 8);
      std::memcpy(bytes, h->addrBytes(), h->addrLen());
   } else {
      return Mpls::FwdEqvClass();
   }
   if (family == 1) {
      return Mpls::FwdEqvClass(Nolu::IpGenPrefix(Nolu::IpAddr::fromBytes(bytes), lenBits));
   }
   return Mpls::FwdEqvClass(Nolu::IpGenPrefix(Nolu::Ip6Addr::fromBytes(bytes), lenBits));
}

LdpFecTlvPwIdElementHdr const* LdpFecTlvParser::pwIdElement(U32 index) const {
   LdpFecTlvElementHdr const* e = fecElement(index);
   if (e->type() != pwIdElement_) return nullptr;
   return static_cast<LdpFecTlvPwIdElementHdr const*>(e);
}

PwFwdEqvClassInfo LdpFecTlvParser::pwFwdEqvCls(U32 index) const {
   LdpFecTlvPwIdElementHdr const* e = pwIdElement(index);
   if (!e) return PwFwdEqvClassInfo();
   PwFwdEqvClass fec(Pseudowire::PseudowireId(e->pwId()),
                     Pseudowire::pseudowireTypeForWirePwType(e->wirePwType()),
                     Pseudowire::GroupId(e->groupId()), e->controlWord());
   PwFwdEqvClassParams params;
   U8 const* base = reinterpret_cast<U8 const*>(e);
   U32 info = e->pwInfoLength();
   U32 sub = sizeof(LdpFecTlvPwIdElementHdr) + 4;
   U32 end = sizeof(LdpFecTlvPwIdElementHdr) + info;
   // The sub-TLVs were checked by parse(); their lengths are all in range.
   while (info && sub + 2 <= end) {
      auto const* p = reinterpret_cast<LdpPwIntfParamSubTlv const*>(base + sub);
      U32 plen = p->length();
      switch (p->type()) {
       case pwIntfParamMtu_: params.mtuIs(Nolu::readU16(p->value())); break;
       case pwIntfParamDescription_:
         params.intfDescriptionIs(
            Vek::String(reinterpret_cast<char const*>(p->value()), plen - 2));
         break;
       case pwIntfParamRequestedVlanId_:
         params.requestedVlanIdIs(Nolu::readU16(p->value()) & 0x0FFF);
         break;
       case pwIntfParamVccv_:
         params.vccvCcTypesIs(p->value()[0]);
         params.vccvCvTypesIs(Pseudowire::VccvCvTypes(p->value()[1]));
         break;
       case pwIntfParamFragmentation_: params.reassemblySupportedIs(true); break;
       default: break;
      }
      sub += plen < 2 ? 2 : plen;
   }
   return PwFwdEqvClassInfo(fec, params);
}

Vek::String LdpFecTlvParser::stringValue() const {
   Vek::String s;
   for (U32 i = 0; i < fecElementNum(); ++i) {
      if (i) s += ", ";
      switch (fecElementType(i)) {
       case wildcardElement_: s += "wildcard"; break;
       case prefixElement_:
       case hostAddrElement_: s += fwdEqvCls(i).stringValue(); break;
       case pwIdElement_: s += pwFwdEqvCls(i).stringValue(); break;
       default: s += "element " + hex(fecElementType(i), 2); break;
      }
   }
   return s;
}

// ---- messages

namespace {

// The kinds of TLV a message can hold, as bits of a mask.
enum TlvKind : U32 {
   kFec = 1u << 0,
   kAddrList = 1u << 1,
   kHopCount = 1u << 2,
   kPathVector = 1u << 3,
   kGenLabel = 1u << 4,
   kStatus = 1u << 5,
   kCommonHello = 1u << 6,
   kIpv4Transport = 1u << 7,
   kIpv6Transport = 1u << 8,
   kConfigSeqNum = 1u << 9,
   kSessionParam = 1u << 10,
   kLabelReqMsgId = 1u << 11,
   kPwStatus = 1u << 12,
   // Known TLVs that are taken and not decoded.
   kNotificationExtra = 1u << 13,
   kSessionParamExtra = 1u << 14,
   kCapability = 1u << 15,
};

TlvKind kindForTlvType(U16 type) {
   switch (type) {
    case tlvFec_: return kFec;
    case tlvAddressList_: return kAddrList;
    case tlvHopCount_: return kHopCount;
    case tlvPathVector_: return kPathVector;
    case tlvGenericLabel_: return kGenLabel;
    case tlvStatus_: return kStatus;
    case tlvExtendedStatus_:
    case tlvReturnedPdu_:
    case tlvReturnedMsg_: return kNotificationExtra;
    case tlvCommonHelloParam_: return kCommonHello;
    case tlvIpv4TransportAddr_: return kIpv4Transport;
    case tlvIpv6TransportAddr_: return kIpv6Transport;
    case tlvConfigSeqNum_: return kConfigSeqNum;
    case tlvCommonSessionParam_: return kSessionParam;
    case tlvAtmSessionParam_:
    case tlvFrameRelaySessionParam_: return kSessionParamExtra;
    case tlvLabelRequestMsgId_: return kLabelReqMsgId;
    case tlvPwStatus_: return kPwStatus;
    default: return kCapability;
   }
}

// Value length that a TLV kind must have; 0 where it varies.
U32 fixedLengthForKind(TlvKind kind) {
   switch (kind) {
    case kHopCount: return 1;
    case kGenLabel: return 4;
    case kStatus: return 10;
    case kCommonHello: return 4;
    case kIpv4Transport: return 4;
    case kIpv6Transport: return 16;
    case kConfigSeqNum: return 4;
    case kSessionParam: return 14;
    case kLabelReqMsgId: return 4;
    case kPwStatus: return 4;
    default: return 0;
   }
}

}  // namespace

struct LdpMsgParser::Rules {
   U32 allowed;
   U32 mandatory;
   // Every TLV that is not otherwise allowed is a capability TLV.
   bool capabilities;
   // Known TLVs that this message may carry but that this LSR does not use:
   // taken without being decoded.
   U32 skipped = 0;
};

LdpMsgParser::Rules const& LdpMsgParser::rulesForType(LdpMsgType type, bool* known) {
   static Rules const notification{kStatus | kNotificationExtra | kFec | kLabelReqMsgId | kPwStatus,
                                   kStatus, false};
   static Rules const hello{kCommonHello | kIpv4Transport | kIpv6Transport | kConfigSeqNum,
                            kCommonHello, false};
   static Rules const init{kSessionParam | kSessionParamExtra, kSessionParam, true};
   static Rules const keepAlive{0, 0, false};
   static Rules const capability{0, kCapability, true};
   // An Address Withdraw may also be a MAC Address Withdraw of a VPLS peer
   // (RFC 4762): an empty address list, the PWid FEC of the VPLS instance and
   // a MAC List TLV. Without VPLS here there is nothing to withdraw, and the
   // message must not harm the session.
   static Rules const address{kAddrList, kAddrList, false, kFec};
   static Rules const mapping{
      kFec | kGenLabel | kLabelReqMsgId | kHopCount | kPathVector | kPwStatus, kFec | kGenLabel,
      false};
   static Rules const request{kFec | kHopCount | kPathVector, kFec, false};
   static Rules const withdraw{kFec | kGenLabel | kStatus | kPwStatus, kFec, false};
   static Rules const abortReq{kFec | kLabelReqMsgId, kFec | kLabelReqMsgId, false};
   *known = true;
   switch (type) {
    case LdpNotification_: return notification;
    case LdpHello_: return hello;
    case LdpInitialization_: return init;
    case LdpKeepAlive_: return keepAlive;
    case LdpCapability_: return capability;
    case LdpAddress_:
    case LdpAddressWithdraw_: return address;
    case LdpLabelMapping_: return mapping;
    case LdpLabelRequest_: return request;
    case LdpLabelWithdraw_:
    case LdpLabelRelease_: return withdraw;
    case LdpLabelAbortReq_: return abortReq;
    default: break;
   }
   *known = false;
   return keepAlive;
}

namespace {

// Released message parsers, for reuse. Under the address sanitizer every
// parser goes back to the heap, so that a use after release is still caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr U32 maxFreeParsers = 0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr U32 maxFreeParsers = 0;
#else
constexpr U32 maxFreeParsers = 256;
#endif
#else
constexpr U32 maxFreeParsers = 256;
#endif

struct FreeParser {
   FreeParser* next;
};
thread_local FreeParser* freeParsers = nullptr;
thread_local U32 freeParserCount = 0;

}  // namespace

void* LdpMsgParser::operator new(std::size_t size) {
   if (size == sizeof(LdpMsgParser) && freeParsers) {
      FreeParser* p = freeParsers;
      freeParsers = p->next;
      --freeParserCount;
      return p;
   }
   return ::operator new(size);
}

void LdpMsgParser::operator delete(void* p, std::size_t size) {
   if (size == sizeof(LdpMsgParser) && freeParserCount < maxFreeParsers) {
      auto* f = static_cast<FreeParser*>(p);
      f->next = freeParsers;
      freeParsers = f;
      ++freeParserCount;
      return;
   }
   ::operator delete(p);
}

LdpMsgParser::LdpMsgParser(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset)
   : pkt_(Vek::validPtr(pkt)), offset_(offset) {}

void LdpMsgParser::fail(LdpStatusCode code, Vek::String reason) {
   statusCode_ = code;
   reason_ = std::string(ldpStatusCodeStr(code)) + ": " + reason;
}

void LdpMsgParser::parse() { parseAs(LdpMsgTypeNone_); }

void LdpMsgParser::parseAs(LdpMsgType expected) {
   U32 bytes = pkt_->frontBytes();
   if (offset_ > bytes || bytes - offset_ < sizeof(LdpMsgHdr)) {
      fail(statusBadMsgLength_, "message header needs 8 bytes, the packet has " +
                                   std::to_string(offset_ > bytes ? 0 : bytes - offset_));
      return;
   }
   msgHdr_ = reinterpret_cast<LdpMsgHdr const*>(pkt_->readPtr(offset_));
   U32 len = msgHdr_->length();
   if (len < 4) {
      fail(statusBadMsgLength_, "message length " + std::to_string(len) + " below 4");
      return;
   }
   if (len + 4 > bytes - offset_) {
      fail(statusBadMsgLength_, "message length " + std::to_string(len) + " beyond the " +
                                   std::to_string(bytes - offset_ - 4) + " bytes received");
      return;
   }
   LdpMsgType type = msgHdr_->type();
   if (expected != LdpMsgTypeNone_ && type != expected) {
      fail(statusUnknownMsgType_,
           msgTypeName(type) + " where " + msgTypeName(expected) + " was expected");
      return;
   }
   bool known;
   Rules const& rules = rulesForType(type, &known);
   if (!known) {
      fail(msgHdr_->uBit() ? localRxDropSilent : statusUnknownMsgType_,
           "message type " + hex(type, 4) + (msgHdr_->uBit() ? " with U bit" : ""));
      return;
   }
   parseTlvs(rules);
}

void LdpMsgParser::parseTlvs(Rules const& rules) {
   U32 pos = offset_ + sizeof(LdpMsgHdr);
   U32 end = offset_ + 4 + msgHdr_->length();
   U8 const* base = pkt_->readPtr(0);
   U32 found = 0;
   while (pos < end) {
      if (end - pos < sizeof(LdpTlvHdr)) {
         fail(statusBadTlvLength_, std::to_string(end - pos) + " bytes after the last TLV");
         return;
      }
      auto const* tlv = reinterpret_cast<LdpTlvHdr const*>(base + pos);
      if (tlv->length() > end - pos - sizeof(LdpTlvHdr)) {
         fail(statusBadTlvLength_, tlvName(tlv->type()) + " length " +
                                      std::to_string(tlv->length()) + " beyond the message");
         return;
      }
      TlvKind kind = kindForTlvType(tlv->type());
      if (rules.skipped & kind) {
         ++skippedTlvNum_;
         pos += tlv->totalSize();
         continue;
      }
      if (!(rules.allowed & kind)) {
         if (rules.capabilities) {
            kind = kCapability;
         } else if (tlv->uBit()) {
            ++unknownTlvNum_;
            pos += tlv->totalSize();
            continue;
         } else {
            fail(statusUnknownTlv_, tlvName(tlv->type()) + " in " + msgTypeName(msgType()));
            return;
         }
      }
      if (!parseTlv(rules, tlv, pos)) return;
      found |= kind;
      pos += tlv->totalSize();
   }
   U32 missing = rules.mandatory & ~found;
   if (missing) {
      char const* what = missing & kFec           ? "FEC"
                         : missing & kGenLabel      ? "Generic Label"
                         : missing & kStatus        ? "Status"
                         : missing & kCommonHello   ? "Common Hello Parameters"
                         : missing & kSessionParam  ? "Common Session Parameters"
                         : missing & kAddrList      ? "Address List"
                         : missing & kLabelReqMsgId ? "Label Request Message ID"
                                                    : "Capability";
      fail(statusMissingMsgParams_,
           Vek::String(what) + " TLV missing in " + msgTypeName(msgType()));
      return;
   }
   // A PW Status Notification names the pseudowire and carries its status.
   if (msgType() == LdpNotification_ && statusTlv_->statusData() == statusPwStatus_ &&
       (!fecTlv_ || !pwStatusTlv_)) {
      fail(statusMissingMsgParams_, Vek::String(fecTlv_ ? "PW Status" : "FEC") +
                                       " TLV missing in PW Status Notification");
   }
}

bool LdpMsgParser::parseTlv(Rules const& rules, LdpTlvHdr const* tlv, U32 tlvOffset) {
   TlvKind kind = kindForTlvType(tlv->type());
   if (!(rules.allowed & kind)) kind = kCapability;
   U32 len = tlv->length();
   U32 fixed = fixedLengthForKind(kind);
   if (fixed && len != fixed) {
      fail(statusBadTlvLength_, tlvName(tlv->type()) + " length " + std::to_string(len) +
                                   ", expected " + std::to_string(fixed));
      return false;
   }
   // A second TLV of a kind already seen is skipped: the first one counts.
   switch (kind) {
    case kFec: {
      if (fecTlv_) return true;
      Vek::String why;
      LdpStatusCode code = fecTlvParser_.parse(tlv, &why);
      if (code != statusSuccess_) {
         statusCode_ = code;
         reason_ = why;
         return false;
      }
      fecTlv_ = tlv;
      return true;
    }
    case kAddrList: {
      if (addrListTlv_) return true;
      if (len < 2) {
         fail(statusBadTlvLength_, "Address List length " + std::to_string(len));
         return false;
      }
      auto const* a = static_cast<LdpAddressListTlv const*>(tlv);
      U32 each = LdpAddressListTlv::addressBytes(a->family());
      if (!each) {
         fail(statusUnsupportedAddrFamily_, "Address List family " + std::to_string(a->family()));
         return false;
      }
      if ((len - 2) % each) {
         fail(statusBadTlvLength_, "Address List length " + std::to_string(len) + " for family " +
                                      std::to_string(a->family()));
         return false;
      }
      // An empty list is legal: a MAC Address Withdraw carries one.
      addrListTlv_ = a;
      return true;
    }
    case kPathVector:
      if (pathVectorTlv_) return true;
      if (len % 4) {
         fail(statusBadTlvLength_, "Path Vector length " + std::to_string(len));
         return false;
      }
      if (len == 0) {
         fail(statusMalformedTlvValue_, "Path Vector without LSR id");
         return false;
      }
      pathVectorTlv_ = static_cast<LdpPathVectorTlv const*>(tlv);
      return true;
    case kGenLabel: {
      if (genLabelTlv_) return true;
      U32 raw = Nolu::readU32(tlv->value());
      if (raw > Nolu::MplsLabel::max) {
         fail(statusMalformedTlvValue_, "Generic Label " + hex(raw, 8));
         return false;
      }
      genLabelTlv_ = static_cast<LdpGenLabelTlv const*>(tlv);
      return true;
    }
    case kStatus:
      if (!statusTlv_) statusTlv_ = static_cast<LdpStatusTlv const*>(tlv);
      return true;
    case kHopCount:
      if (!hopCountTlv_) hopCountTlv_ = static_cast<LdpHopCountTlv const*>(tlv);
      return true;
    case kCommonHello:
      if (!commonHelloTlv_) commonHelloTlv_ = static_cast<LdpCommonHelloTlv const*>(tlv);
      return true;
    case kIpv4Transport:
      if (!ipv4TransportAddrTlv_) {
         ipv4TransportAddrTlv_ = static_cast<LdpIpv4TransportAddrTlv const*>(tlv);
      }
      return true;
    case kIpv6Transport:
      if (!ipv6TransportAddrTlv_) {
         ipv6TransportAddrTlv_ = static_cast<LdpIpv6TransportAddrTlv const*>(tlv);
      }
      return true;
    case kConfigSeqNum:
      if (!configSeqNumTlv_) configSeqNumTlv_ = static_cast<LdpConfigSeqNumTlv const*>(tlv);
      return true;
    case kSessionParam: {
      if (commonSessionParamTlv_) return true;
      auto const* p = static_cast<LdpCommonSessionParamTlv const*>(tlv);
      if (p->protocolVersion() != LdpProtoParam::ldpVersion()) {
         fail(statusBadProtocolVersion_,
              "Common Session Parameters version " + std::to_string(p->protocolVersion()));
         return false;
      }
      commonSessionParamTlv_ = p;
      return true;
    }
    case kLabelReqMsgId:
      if (!labelReqMsgIdTlv_) labelReqMsgIdTlv_ = static_cast<LdpLabelReqMsgIdTlv const*>(tlv);
      return true;
    case kPwStatus:
      if (!pwStatusTlv_) pwStatusTlv_ = static_cast<LdpPwStatusTlv const*>(tlv);
      return true;
    case kCapability:
      if (len < 1) {
         fail(statusBadTlvLength_, "capability " + tlvName(tlv->type()) + " without value");
         return false;
      }
      capabilityOffset_.push_back(tlvOffset);
      return true;
    default:
      return true;
   }
}

Vek::String LdpMsgParser::stringValue() const {
   std::ostringstream os;
   if (!msgHdr_) {
      os << "LdpMsg invalid: " << reason_;
      return os.str();
   }
   os << msgTypeName(msgHdr_->type()) << " id " << msgHdr_->msgId() << " length "
      << msgHdr_->length();
   if (!validMsg()) {
      os << " invalid: " << reason_;
      return os.str();
   }
   if (commonHelloTlv_) {
      os << " holdTime " << commonHelloTlv_->holdTime() << (commonHelloTlv_->targeted() ? " T" : "")
         << (commonHelloTlv_->requestTargeted() ? " R" : "");
   }
   if (ipv4TransportAddrTlv_) os << " transport " << ipv4TransportAddrTlv_->ipAddr();
   if (ipv6TransportAddrTlv_) os << " transport " << ipv6TransportAddrTlv_->ip6Addr();
   if (configSeqNumTlv_) os << " configSeqNum " << configSeqNumTlv_->seqNum();
   if (auto const* p = commonSessionParamTlv_) {
      os << " keepAlive " << p->keepAliveTime() << (p->advDiscipline() ? " A" : "")
         << (p->loopDetection() ? " D" : "") << " pvLimit " << unsigned(p->pathVectorLimit())
         << " maxPdu " << p->maxPduLength() << " receiver " << p->receiverLdpId();
   }
   if (capabilityTlvNum()) os << " capabilities " << capabilityTlvNum();
   if (statusTlv_) {
      os << " status " << statusTlv_->statusData() << (statusTlv_->statusEBit() ? " E" : "")
         << (statusTlv_->statusFBit() ? " F" : "") << " ref " << msgTypeName(statusTlv_->msgType())
         << " id " << statusTlv_->msgId();
   }
   if (addrListTlv_) {
      os << " addresses";
      for (U32 i = 0; i < addrListTlv_->numAddress(); ++i) os << " " << addrListTlv_->address(i);
   }
   if (fecTlv_) os << " fec " << fecTlvParser_.stringValue();
   if (genLabelTlv_) os << " label " << genLabelTlv_->label();
   if (labelReqMsgIdTlv_) os << " reqMsgId " << labelReqMsgIdTlv_->msgId();
   if (hopCountTlv_) os << " hopCount " << unsigned(hopCountTlv_->hopCount());
   if (pathVectorTlv_) {
      os << " pathVector";
      for (U32 i = 0; i < pathVectorTlv_->lsrIdNum(); ++i) os << " " << pathVectorTlv_->lsrId(i);
   }
   if (pwStatusTlv_) os << " pwStatus " << hex(pwStatusTlv_->flags(), 8);
   return os.str();
}

Nolu::IpGenAddr LdpHelloMsgParser::transportAddr() const {
   if (ipv4TransportAddrTlv()) return Nolu::IpGenAddr(ipv4TransportAddrTlv()->ipAddr());
   if (ipv6TransportAddrTlv()) return Nolu::IpGenAddr(ipv6TransportAddrTlv()->ip6Addr());
   return Nolu::IpGenAddr();
}

// ---- factories

namespace {

template <class P>
Vek::Ptr<P> makeParser(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset, LdpMsgType expected) {
   Vek::Ptr<P> p(new P(pkt, offset));
   p->parseAs(expected);
   return p;
}

}  // namespace

Vek::Ptr<LdpMsgParser> ldpMsgParserGet(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   Vek::validPtr(pkt);
   U16 type = 0;
   if (offset <= pkt->frontBytes() && pkt->frontBytes() - offset >= 2) {
      type = Nolu::readU16(pkt->readPtr(offset)) & 0x7FFF;
   }
   switch (type) {
    case LdpNotification_: return ldpNotificationMsgParserFactory(pkt, offset);
    case LdpHello_: return ldpHelloMsgParserFactory(pkt, offset);
    case LdpInitialization_: return ldpInitMsgParserFactory(pkt, offset);
    case LdpCapability_: return ldpCapabilityMsgParserFactory(pkt, offset);
    case LdpAddress_: return ldpAddressMsgParserFactory(pkt, offset);
    case LdpAddressWithdraw_: return ldpAddressWithdrawMsgParserFactory(pkt, offset);
    case LdpLabelMapping_: return ldpLabelMappingMsgParserFactory(pkt, offset);
    case LdpLabelRequest_: return ldpLabelRequestMsgParserFactory(pkt, offset);
    case LdpLabelWithdraw_: return ldpLabelWithdrawMsgParserFactory(pkt, offset);
    case LdpLabelRelease_: return ldpLabelReleaseMsgParserFactory(pkt, offset);
    case LdpLabelAbortReq_: return ldpLabelAbortReqMsgParserFactory(pkt, offset);
    default: return makeParser<LdpMsgParser>(pkt, offset, LdpMsgTypeNone_);
   }
}

Vek::Ptr<LdpMsgParser> ldpMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return ldpMsgParserGet(pkt, offset);
}

Vek::Ptr<LdpNotificationMsgParser> ldpNotificationMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt,
                                                                   U32 offset) {
   return makeParser<LdpNotificationMsgParser>(pkt, offset, LdpNotification_);
}
Vek::Ptr<LdpHelloMsgParser> ldpHelloMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpHelloMsgParser>(pkt, offset, LdpHello_);
}
Vek::Ptr<LdpInitMsgParser> ldpInitMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpInitMsgParser>(pkt, offset, LdpInitialization_);
}
Vek::Ptr<LdpCapabilityMsgParser> ldpCapabilityMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt,
                                                               U32 offset) {
   return makeParser<LdpCapabilityMsgParser>(pkt, offset, LdpCapability_);
}
Vek::Ptr<LdpAddressMsgParser> ldpAddressMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt,
                                                         U32 offset) {
   return makeParser<LdpAddressMsgParser>(pkt, offset, LdpAddress_);
}
Vek::Ptr<LdpAddressWithdrawMsgParser> ldpAddressWithdrawMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpAddressWithdrawMsgParser>(pkt, offset, LdpAddressWithdraw_);
}
Vek::Ptr<LdpLabelMappingMsgParser> ldpLabelMappingMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpLabelMappingMsgParser>(pkt, offset, LdpLabelMapping_);
}
Vek::Ptr<LdpLabelRequestMsgParser> ldpLabelRequestMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpLabelRequestMsgParser>(pkt, offset, LdpLabelRequest_);
}
Vek::Ptr<LdpLabelWithdrawMsgParser> ldpLabelWithdrawMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpLabelWithdrawMsgParser>(pkt, offset, LdpLabelWithdraw_);
}
Vek::Ptr<LdpLabelReleaseMsgParser> ldpLabelReleaseMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpLabelReleaseMsgParser>(pkt, offset, LdpLabelRelease_);
}
Vek::Ptr<LdpLabelAbortReqMsgParser> ldpLabelAbortReqMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset) {
   return makeParser<LdpLabelAbortReqMsgParser>(pkt, offset, LdpLabelAbortReq_);
}

}  // namespace Ldp
