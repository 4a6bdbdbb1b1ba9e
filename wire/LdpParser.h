#pragma once
// Parsers of LDP PDUs and messages. Each is a reference-counted object over a
// packet and an offset; it checks the framing once, keeps pointers to what it
// found, and never copies the packet. Whatever the bytes, a parser neither
// asserts nor reads outside the packet nor throws: a refused PDU or message
// has validLdpPdu() / validMsg() false, the status code to answer with, and
// a reason text.
#include <vector>

#include "runtime/nolu/Pkt.h"
#include "runtime/vek/Ptr.h"
#include "wire/LdpTlv.h"

namespace Ldp {

// A vector that keeps its first N elements inline, so that the usual small
// counts cost no allocation.
template <class T, unsigned N>
class SmallVec {
 public:
   void push_back(T v) {
      if (size_ < N) inline_[size_] = v;
      else overflow_.push_back(v);
      ++size_;
   }
   T operator[](U32 i) const { return i < N ? inline_[i] : overflow_[i - N]; }
   U32 size() const { return size_; }
   bool empty() const { return size_ == 0; }
   void reserve(U32 n) {
      if (n > N) overflow_.reserve(n - N);
   }

 private:
   T inline_[N];
   std::vector<T> overflow_;
   U32 size_ = 0;
};

// ---- PDU

class LdpPduParser : public Vek::PtrInterface {
 public:
   LdpPduParser(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);

   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   U32 offset() const { return offset_; }
   // True if the PDU header and every message's header and length hold.
   bool validLdpPdu() const { return statusCode_ == statusSuccess_; }
   // The status to answer a refused PDU with; statusSuccess_ when valid.
   LdpStatusCode statusCode() const { return statusCode_; }
   Vek::String const& reason() const { return reason_; }
   // A one-line description, with the reason of a refusal.
   Vek::String stringValue() const;

   // The header; null when the packet is too short to hold it.
   LdpPduHdr const* pduHdr() const { return pduHdr_; }
   U16 version() const { return pduHdr_ ? pduHdr_->version() : 0; }
   U16 pduLength() const { return pduHdr_ ? pduHdr_->length() : 0; }
   LdpIdentifier ldpIdentifier() const {
      return pduHdr_ ? pduHdr_->ldpIdentifier() : LdpIdentifier();
   }
   // The messages found, in order; all of them when the PDU is valid.
   U32 msgNum() const { return msgOffset_.size(); }
   // Offset of a message in the packet.
   U32 msgOffset(U32 index) const {
      VEK_ASSERT(index < msgOffset_.size());
      return msgOffset_[index];
   }
   LdpMsgHdr const* msgHdr(U32 index) const {
      return reinterpret_cast<LdpMsgHdr const*>(pkt_->readPtr(msgOffset(index)));
   }

 private:
   void fail(LdpStatusCode code, Vek::String reason);

   Vek::Ptr<Nolu::Pkt> pkt_;
   U32 offset_;
   LdpPduHdr const* pduHdr_ = nullptr;
   LdpStatusCode statusCode_ = statusSuccess_;
   Vek::String reason_;
   SmallVec<U32, 8> msgOffset_;
};

Vek::Ptr<LdpPduParser> ldpPduParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);

// ---- FEC TLV

// The elements of a FEC TLV, by index, with their decoded values.
class LdpFecTlvParser {
 public:
   LdpTlvHdr const* fecTlv() const { return tlv_; }
   U32 fecElementNum() const { return elementOffset_.size(); }
   LdpFecTlvElementHdr const* fecElement(U32 index) const {
      VEK_ASSERT(index < elementOffset_.size());
      return reinterpret_cast<LdpFecTlvElementHdr const*>(tlv_->value() + elementOffset_[index]);
   }
   LdpFecElementType fecElementType(U32 index) const { return fecElement(index)->type(); }
   // The prefix FEC of a prefix or host address element; the empty FEC for
   // other elements.
   Mpls::FwdEqvClass fwdEqvCls(U32 index) const;
   // The pseudowire FEC with its interface parameters of a PWid element; the
   // default value for other elements.
   PwFwdEqvClassInfo pwFwdEqvCls(U32 index) const;
   LdpFecTlvPwIdElementHdr const* pwIdElement(U32 index) const;
   bool hasWildcard() const {
      return fecElementNum() == 1 && fecElementType(0) == wildcardElement_;
   }
   // The address family of a prefix or host address element; 0 for others.
   U16 fecElementFamily(U32 index) const;
   Vek::String stringValue() const;

   // Checks the elements of the TLV, whose value bytes the caller has found
   // in the packet; on refusal writes the reason and returns the status.
   LdpStatusCode parse(LdpTlvHdr const* tlv, Vek::String* reason);

 private:
   LdpTlvHdr const* tlv_ = nullptr;
   SmallVec<U16, 4> elementOffset_;
};

// ---- messages

// The base of all message parsers, and the parser of messages that have
// none of their own (KeepAlive, unknown types). It checks the header and the
// framing of every TLV, the TLVs that the type allows with their lengths and
// values, and the mandatory ones. An unknown TLV with the U bit clear refuses
// the message (Unknown TLV); with U set it is skipped. An unknown message
// type is refused with Unknown Message Type when its U bit is clear, and with
// localRxDropSilent when it is set.
class LdpMsgParser : public Vek::PtrInterface {
 public:
   LdpMsgParser(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);

   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   U32 offset() const { return offset_; }
   bool validMsg() const { return statusCode_ == statusSuccess_; }
   LdpStatusCode statusCode() const { return statusCode_; }
   Vek::String const& reason() const { return reason_; }
   virtual Vek::String stringValue() const;

   // The header; null when the packet is too short to hold its 8 bytes.
   LdpMsgHdr const* msgHdr() const { return msgHdr_; }
   LdpMsgType msgType() const { return msgHdr_ ? msgHdr_->type() : LdpMsgTypeNone_; }
   U32 msgId() const { return msgHdr_ ? msgHdr_->msgId() : 0; }
   bool uBit() const { return msgHdr_ && msgHdr_->uBit(); }
   // Bytes of the whole message, header included.
   U32 msgSize() const { return msgHdr_ ? 4u + msgHdr_->length() : 0; }
   // TLVs skipped because their U bit was set.
   U32 unknownTlvNum() const { return unknownTlvNum_; }
   // Known TLVs that the message may carry and that were skipped unread.
   U32 skippedTlvNum() const { return skippedTlvNum_; }

   // The TLVs found; null when absent. Only the TLVs that the message type
   // allows are ever set.
   LdpFecTlvParser const* ldpFecTlvParser() const { return fecTlv_ ? &fecTlvParser_ : nullptr; }
   LdpGenLabelTlv const* genLabelTlv() const { return genLabelTlv_; }
   LdpStatusTlv const* statusTlv() const { return statusTlv_; }
   LdpHopCountTlv const* hopCountTlv() const { return hopCountTlv_; }
   LdpPathVectorTlv const* pathVectorTlv() const { return pathVectorTlv_; }
   LdpLabelReqMsgIdTlv const* labelReqMsgIdTlv() const { return labelReqMsgIdTlv_; }
   LdpPwStatusTlv const* pwStatusTlv() const { return pwStatusTlv_; }
   LdpAddressListTlv const* addrListTlv() const { return addrListTlv_; }
   LdpCommonHelloTlv const* commonHelloTlv() const { return commonHelloTlv_; }
   LdpIpv4TransportAddrTlv const* ipv4TransportAddrTlv() const { return ipv4TransportAddrTlv_; }
   LdpIpv6TransportAddrTlv const* ipv6TransportAddrTlv() const { return ipv6TransportAddrTlv_; }
   LdpConfigSeqNumTlv const* configSeqNumTlv() const { return configSeqNumTlv_; }
   LdpCommonSessionParamTlv const* commonSessionParamTlv() const {
      return commonSessionParamTlv_;
   }
   U32 capabilityTlvNum() const { return capabilityOffset_.size(); }
   LdpCapabilityTlv const* capabilityTlv(U32 index) const {
      VEK_ASSERT(index < capabilityOffset_.size());
      return reinterpret_cast<LdpCapabilityTlv const*>(pkt_->readPtr(capabilityOffset_[index]));
   }

   // Parsers are made for every message received, so released ones are kept
   // for reuse rather than given back to the heap.
   static void* operator new(std::size_t size);
   static void operator delete(void* p, std::size_t size);

   // Parses as the message's own type says; the factories call it once.
   void parse();
   // Parses and requires the given type; another type is refused.
   void parseAs(LdpMsgType expected);

 private:
   struct Rules;
   static Rules const& rulesForType(LdpMsgType type, bool* known);
   void parseTlvs(Rules const& rules);
   bool parseTlv(Rules const& rules, LdpTlvHdr const* tlv, U32 tlvOffset);
   void fail(LdpStatusCode code, Vek::String reason);

   Vek::Ptr<Nolu::Pkt> pkt_;
   U32 offset_;
   LdpMsgHdr const* msgHdr_ = nullptr;
   LdpStatusCode statusCode_ = statusSuccess_;
   Vek::String reason_;
   U32 unknownTlvNum_ = 0;
   U32 skippedTlvNum_ = 0;

   LdpTlvHdr const* fecTlv_ = nullptr;
   LdpFecTlvParser fecTlvParser_;
   LdpGenLabelTlv const* genLabelTlv_ = nullptr;
   LdpStatusTlv const* statusTlv_ = nullptr;
   LdpHopCountTlv const* hopCountTlv_ = nullptr;
   LdpPathVectorTlv const* pathVectorTlv_ = nullptr;
   LdpLabelReqMsgIdTlv const* labelReqMsgIdTlv_ = nullptr;
   LdpPwStatusTlv const* pwStatusTlv_ = nullptr;
   LdpAddressListTlv const* addrListTlv_ = nullptr;
   LdpCommonHelloTlv const* commonHelloTlv_ = nullptr;
   LdpIpv4TransportAddrTlv const* ipv4TransportAddrTlv_ = nullptr;
   LdpIpv6TransportAddrTlv const* ipv6TransportAddrTlv_ = nullptr;
   LdpConfigSeqNumTlv const* configSeqNumTlv_ = nullptr;
   LdpCommonSessionParamTlv const* commonSessionParamTlv_ = nullptr;
   SmallVec<U32, 4> capabilityOffset_;
};

class LdpNotificationMsgParser : public LdpMsgParser {
 public:
   using LdpMsgParser::LdpMsgParser;
   // Of the Status TLV, which a valid Notification always has.
   LdpStatusCode statusData() const {
      return statusTlv() ? statusTlv()->statusData() : statusSuccess_;
   }
   bool statusEBit() const { return statusTlv() && statusTlv()->statusEBit(); }
   bool statusFBit() const { return statusTlv() && statusTlv()->statusFBit(); }
   // The message that the Notification refers to.
   U32 refMsgId() const { return statusTlv() ? statusTlv()->msgId() : 0; }
   LdpMsgType refMsgType() const { return statusTlv() ? statusTlv()->msgType() : LdpMsgTypeNone_; }
};

class LdpHelloMsgParser : public LdpMsgParser {
 public:
   using LdpMsgParser::LdpMsgParser;
   U16 holdTime() const { return commonHelloTlv() ? commonHelloTlv()->holdTime() : 0; }
   bool targeted() const { return commonHelloTlv() && commonHelloTlv()->targeted(); }
   bool requestTargeted() const { return commonHelloTlv() && commonHelloTlv()->requestTargeted(); }
   // The IPv4 transport address, else the IPv6 one, else unspecified.
   Nolu::IpGenAddr transportAddr() const;
   bool hasConfigSeqNum() const { return configSeqNumTlv() != nullptr; }
   U32 configSeqNum() const { return configSeqNumTlv() ? configSeqNumTlv()->seqNum() : 0; }
};

// Capability TLVs, of the Capability message or of an Initialization.
class LdpCapabilityParser : public LdpMsgParser {
 public:
   using LdpMsgParser::LdpMsgParser;
   // The 14-bit type and S bit of a capability TLV.
   U16 capabilityType(U32 index) const { return capabilityTlv(index)->type(); }
   bool capabilityAnnounced(U32 index) const { return capabilityTlv(index)->sBit(); }
};

class LdpCapabilityMsgParser : public LdpCapabilityParser {
 public:
   using LdpCapabilityParser::LdpCapabilityParser;
};

class LdpInitMsgParser : public LdpCapabilityParser {
 public:
   using LdpCapabilityParser::LdpCapabilityParser;
   // Of the Common Session Parameters TLV, which a valid message has.
   U16 protocolVersion() const { return p() ? p()->protocolVersion() : 0; }
   U16 keepAliveTime() const { return p() ? p()->keepAliveTime() : 0; }
   bool advDiscipline() const { return p() && p()->advDiscipline(); }
   LdpLabelAdvDspl labelAdvDspl() const { return p() ? p()->labelAdvDspl() : unknownAdvDspl_; }
   bool loopDetection() const { return p() && p()->loopDetection(); }
   U8 pathVectorLimit() const { return p() ? p()->pathVectorLimit() : 0; }
   U16 maxPduLength() const { return p() ? p()->maxPduLength() : 0; }
   LdpIdentifier receiverLdpId() const { return p() ? p()->receiverLdpId() : LdpIdentifier(); }

 private:
   LdpCommonSessionParamTlv const* p() const { return commonSessionParamTlv(); }
};

// Address and Address Withdraw: one Address List TLV.
class LdpAddrListMsgParser : public LdpMsgParser {
 public:
   using LdpMsgParser::LdpMsgParser;
   U16 family() const { return addrListTlv() ? addrListTlv()->family() : 0; }
   U32 numAddress() const { return addrListTlv() ? addrListTlv()->numAddress() : 0; }
   Nolu::IpGenAddr address(U32 index) const {
      VEK_ASSERT(addrListTlv());
      return addrListTlv()->address(index);
   }
};
class LdpAddressMsgParser : public LdpAddrListMsgParser {
 public:
   using LdpAddrListMsgParser::LdpAddrListMsgParser;
};
class LdpAddressWithdrawMsgParser : public LdpAddrListMsgParser {
 public:
   using LdpAddrListMsgParser::LdpAddrListMsgParser;
};

// Label messages: a FEC TLV and the optional TLVs of each kind.
class LdpLabelMsgParser : public LdpMsgParser {
 public:
   using LdpMsgParser::LdpMsgParser;
   U32 fecElementNum() const { return ldpFecTlvParser() ? ldpFecTlvParser()->fecElementNum() : 0; }
   // The label of the Generic Label TLV; null without one.
   Nolu::MplsLabel label() const {
      return genLabelTlv() ? genLabelTlv()->label() : Nolu::MplsLabel::null();
   }
   bool hasHopCount() const { return hopCountTlv() != nullptr; }
   U8 hopCount() const { return hopCountTlv() ? hopCountTlv()->hopCount() : 0; }
   bool hasLabelReqMsgId() const { return labelReqMsgIdTlv() != nullptr; }
   U32 labelReqMsgId() const { return labelReqMsgIdTlv() ? labelReqMsgIdTlv()->msgId() : 0; }
   bool hasPwStatus() const { return pwStatusTlv() != nullptr; }
   U32 pwStatusFlags() const { return pwStatusTlv() ? pwStatusTlv()->flags() : 0; }
};
class LdpLabelMappingMsgParser : public LdpLabelMsgParser {
 public:
   using LdpLabelMsgParser::LdpLabelMsgParser;
};
class LdpLabelRequestMsgParser : public LdpLabelMsgParser {
 public:
   using LdpLabelMsgParser::LdpLabelMsgParser;
};
class LdpLabelWithdrawMsgParser : public LdpLabelMsgParser {
 public:
   using LdpLabelMsgParser::LdpLabelMsgParser;
};
class LdpLabelReleaseMsgParser : public LdpLabelMsgParser {
 public:
   using LdpLabelMsgParser::LdpLabelMsgParser;
};
class LdpLabelAbortReqMsgParser : public LdpLabelMsgParser {
 public:
   using LdpLabelMsgParser::LdpLabelMsgParser;
};

// The parser of the message at offset, of the class of its type.
Vek::Ptr<LdpMsgParser> ldpMsgParserGet(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
// The generic parser: the same checks as ldpMsgParserGet, seen through the
// base class.
Vek::Ptr<LdpMsgParser> ldpMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);

// Parsers of one type: a message of another type is refused with Unknown
// Message Type.
Vek::Ptr<LdpNotificationMsgParser> ldpNotificationMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt,
                                                                   U32 offset);
Vek::Ptr<LdpHelloMsgParser> ldpHelloMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpInitMsgParser> ldpInitMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpCapabilityMsgParser> ldpCapabilityMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt,
                                                               U32 offset);
Vek::Ptr<LdpAddressMsgParser> ldpAddressMsgParserFactory(Vek::Ptr<Nolu::Pkt> const& pkt,
                                                         U32 offset);
Vek::Ptr<LdpAddressWithdrawMsgParser> ldpAddressWithdrawMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpLabelMappingMsgParser> ldpLabelMappingMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpLabelRequestMsgParser> ldpLabelRequestMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpLabelWithdrawMsgParser> ldpLabelWithdrawMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpLabelReleaseMsgParser> ldpLabelReleaseMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);
Vek::Ptr<LdpLabelAbortReqMsgParser> ldpLabelAbortReqMsgParserFactory(
   Vek::Ptr<Nolu::Pkt> const& pkt, U32 offset);

}  // namespace Ldp
