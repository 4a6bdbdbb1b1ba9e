#include "wire/LdpMsgGen.h"

#include <cstring>

#include "runtime/vek/Trace.h"

namespace Ldp {

namespace {

Vek::TraceHandle& genTrace() {
   static Vek::TraceHandle handle("LdpMsgGen");
   return handle;
}

}  // namespace

LdpMsgGen::LdpMsgGen(Vek::Ptr<Nolu::Pkt> const& pkt) : pkt_(Vek::validPtr(pkt)) {
   handleInitialized();
}

void LdpMsgGen::handleInitialized() {
   availTailRoom_ = totalTailRoom();
   VEK_ASSERT(totalTailRoom() >= LdpProtoParam::defaultMaxPduLength());
}

Vek::Ptr<LdpMsgGen> ldpMsgGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt) {
   return Vek::Ptr<LdpMsgGen>(new LdpMsgGen(pkt));
}

U8* addTlvToPkt(LdpMsgGen* msgGen, Nolu::Pkt* pkt, U32 size) {
   if (size > msgGen->availTailRoom()) {
      VEK_TRACE(genTrace(), 5, "   No room for " << size << " bytes, " << msgGen->availTailRoom()
                                                 << " left");
      return nullptr;
   }
   U8* p = pkt->newSharedTailData(size);
   msgGen->availTailRoomDec(size);
   std::memset(p, 0, size);
   return p;
}

U8* LdpMsgGen::addTlvToPkt(U32 size) {
   U8* p = Ldp::addTlvToPkt(this, pkt_.ptr(), size);
   if (p) currLdpMsgLength_ = U16(currLdpMsgLength_ + size);
   return p;
}

LdpTlvHdr* LdpMsgGen::addTlv(U16 type, bool uBit, bool fBit, U32 size) {
   VEK_ASSERT(currLdpMsgHeader_);
   U8* p = addTlvToPkt(size);
   if (!p) return nullptr;
   auto* tlv = reinterpret_cast<LdpTlvHdr*>(p);
   tlv->typeIs(type);
   tlv->uBitIs(uBit);
   tlv->fBitIs(fBit);
   tlv->lengthIs(U16(size - sizeof(LdpTlvHdr)));
   return tlv;
}

void LdpMsgGen::addEtherHdr(Nolu::EthAddr const& dstMac, Nolu::EthAddr const& srcMac,
                            U16 etherType) {
   VEK_ASSERT(totalTailRoom() == availTailRoom());
   ethHeaderOffset_ = currentOffset();
   auto* h = reinterpret_cast<Nolu::EthHdr*>(pkt_->newSharedTailData(sizeof(Nolu::EthHdr)));
   availTailRoomDec(sizeof(Nolu::EthHdr));
   h->dstIs(dstMac);
   h->srcIs(srcMac);
   h->etherTypeIs(etherType);
   ethHeader_ = h;
   ethHeaderLength_ = sizeof(Nolu::EthHdr);
}

void LdpMsgGen::addIpHdr(Nolu::IpAddr srcIp, Nolu::IpAddr dstIp, U8 ttl, U8 proto) {
   VEK_ASSERT(availTailRoom() > sizeof( Nolu::IpHdr ));
   VEK_ASSERT(udpHeader_ == __null);
   ipHeaderOffset_ = currentOffset();
   auto* h = reinterpret_cast<Nolu::IpHdr*>(pkt_->newSharedTailData(sizeof(Nolu::IpHdr)));
   availTailRoomDec(sizeof(Nolu::IpHdr));
   std::memset(h, 0, sizeof(Nolu::IpHdr));
   h->versionAndHeaderBytesIs(4, sizeof(Nolu::IpHdr));
   h->tosIs(LdpProtoParam::ldpTos());
   h->totalLengthIs(sizeof(Nolu::IpHdr));
   h->identificationIs(0);
   h->ttlIs(ttl);
   h->protocolIs(proto);
   h->srcIs(srcIp);
   h->dstIs(dstIp);
   h->checksumIs(h->computedChecksum());
   ipHeader_ = h;
   ipHeaderLength_ = sizeof(Nolu::IpHdr);
}

void LdpMsgGen::addUdpHdr(U16 srcPort, U16 dstPort) {
   VEK_ASSERT(availTailRoom() > sizeof( Nolu::UdpHdr ));
   VEK_ASSERT(ldpPduHeader_ == __null);
   udpHeaderOffset_ = currentOffset();
   auto* h = reinterpret_cast<Nolu::UdpHdr*>(pkt_->newSharedTailData(sizeof(Nolu::UdpHdr)));
   availTailRoomDec(sizeof(Nolu::UdpHdr));
   h->srcPortIs(srcPort);
   h->dstPortIs(dstPort);
   h->lengthIs(sizeof(Nolu::UdpHdr));
   h->checksumIs(0);
   udpHeader_ = h;
   udpHeaderLength_ = sizeof(Nolu::UdpHdr);
   computeHdrLenChecksum();
}

bool LdpMsgGen::addLdpPduHdr(U16 version, LdpIdentifier const& ldpIdentifier) {
   VEK_ASSERT(ldpPduHeader_ == __null);
   VEK_ASSERT(currLdpMsgHeader_ == __null);
   if (availTailRoom() < sizeof(LdpPduHdr)) {
      VEK_TRACE(genTrace(), 5, "   No room for the PDU header");
      return false;
   }
   ldpPduHeaderOffset_ = currentOffset();
   auto* h = reinterpret_cast<LdpPduHdr*>(pkt_->newSharedTailData(sizeof(LdpPduHdr)));
   availTailRoomDec(sizeof(LdpPduHdr));
   h->versionIs(version);
   h->lengthIs(0);
   h->ldpIdentifierIs(ldpIdentifier);
   ldpPduHeader_ = h;
   ldpPduHeaderLength_ = sizeof(LdpPduHdr);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addLdpMsgHdr(bool uBit, U16 type, U32 messageId) {
   VEK_ASSERT(currLdpMsgLength() == 0 || currLdpMsgLength() > sizeof( LdpMsgHdr ));
   // Close the open message.
   ldpPduLength_ = U16(ldpPduLength_ + currLdpMsgLength_);
   currLdpMsgLength_ = 0;
   currLdpMsgHeader_ = nullptr;
   if (availTailRoom() < sizeof(LdpMsgHdr)) {
      VEK_TRACE(genTrace(), 5, "   No room for message " << LdpMsgType(type));
      computeHdrLenChecksum();
      return false;
   }
   auto* h = reinterpret_cast<LdpMsgHdr*>(pkt_->newSharedTailData(sizeof(LdpMsgHdr)));
   availTailRoomDec(sizeof(LdpMsgHdr));
   h->type_.valueIs(0);
   h->typeIs(type);
   h->uBitIs(uBit);
   h->msgIdIs(messageId);
   currLdpMsgHeader_ = h;
   currLdpMsgLength_ = sizeof(LdpMsgHdr);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addCommonHelloTlv(bool uBit, U16 holdTime, bool targeted, bool requestTargeted) {
   auto* t = static_cast<LdpCommonHelloTlv*>(
      addTlv(tlvCommonHelloParam_, uBit, false, sizeof(LdpCommonHelloTlv)));
   if (!t) return false;
   t->holdTimeIs(holdTime);
   t->flagsIs(targeted, requestTargeted);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addIpTransportAddrTlv(bool uBit, Nolu::IpAddr ip) {
   auto* t = static_cast<LdpIpv4TransportAddrTlv*>(
      addTlv(tlvIpv4TransportAddr_, uBit, false, sizeof(LdpIpv4TransportAddrTlv)));
   if (!t) return false;
   t->ipAddrIs(ip);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addConfigSeqNumTlv(bool uBit, U32 seq) {
   auto* t = static_cast<LdpConfigSeqNumTlv*>(
      addTlv(tlvConfigSeqNum_, uBit, false, sizeof(LdpConfigSeqNumTlv)));
   if (!t) return false;
   t->seqNumIs(seq);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addLdpCommonSessionParamTlv(bool uBit, U16 version, U16 keepAlive,
                                            bool advDiscipline, bool loopDetection,
                                            U8 pathVectorLimit, U16 maxPduLength,
                                            LdpIdentifier const& receiverLdpId) {
   auto* t = static_cast<LdpCommonSessionParamTlv*>(
      addTlv(tlvCommonSessionParam_, uBit, false, sizeof(LdpCommonSessionParamTlv)));
   if (!t) return false;
   t->protocolVersionIs(version);
   t->keepAliveTimeIs(keepAlive);
   t->flagsIs(advDiscipline, loopDetection);
   t->pathVectorLimitIs(pathVectorLimit);
   t->maxPduLengthIs(maxPduLength);
   t->receiverLdpIdIs(receiverLdpId);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addFecTlvPrefix(Mpls::FwdEqvClass const& fec) {
   VEK_ASSERT(!fec.isEmpty() && "Internal Error. Empty FEC");
   Nolu::IpGenPrefix const& prefix = fec.prefix();
   U32 prefixBytes = LdpFecTlvPrefixElementHdr::prefixByteCount(prefix.len());
   U32 size = sizeof(LdpTlvHdr) + sizeof(LdpFecTlvPrefixElementHdr) + prefixBytes;
   LdpTlvHdr* t = addTlv(tlvFec_, false, false, size);
   if (!t) return false;
   U8* e = t->value();
   e[0] = prefixElement_;
   Nolu::writeU16(e + 1, U16(prefix.af()));
   e[3] = prefix.len();
   U8 addr[16];
   prefix.addr().bytesAre(addr);
   std::memcpy(e + 4, addr, prefixBytes);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addStatusTlv(bool uBit, bool fBit, LdpStatusCode code, U16 msgType, U32 msgId) {
   return addStatusTlv(uBit, fBit, code, msgType, msgId, statusCodeEBitForStatusCode(code));
}

bool LdpMsgGen::addStatusTlv(bool uBit, bool fBit, LdpStatusCode code, U16 msgType, U32 msgId,
                             bool eBit) {
   VEK_ASSERT(!isLocalStatusCode(code) && "Internal Error. Local status code on the wire");
   auto* t = static_cast<LdpStatusTlv*>(addTlv(tlvStatus_, uBit, fBit, sizeof(LdpStatusTlv)));
   if (!t) return false;
   t->statusDataIs(code);
   t->statusBitsAre(eBit, fBit);
   t->msgIdIs(msgId);
   t->msgTypeIs(msgType);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addGenLabelTlv(bool uBit, Nolu::MplsLabel label) {
   VEK_ASSERT(label.isValid() && "Internal Error. Label not valid on the wire");
   auto* t =
      static_cast<LdpGenLabelTlv*>(addTlv(tlvGenericLabel_, uBit, false, sizeof(LdpGenLabelTlv)));
   if (!t) return false;
   t->labelIs(label);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addLabelReqMsgIdTlv(U32 msgId) {
   auto* t = static_cast<LdpLabelReqMsgIdTlv*>(
      addTlv(tlvLabelRequestMsgId_, false, false, sizeof(LdpLabelReqMsgIdTlv)));
   if (!t) return false;
   t->msgIdIs(msgId);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addLdpHopCountTlv(U8 hopCount) {
   auto* t =
      static_cast<LdpHopCountTlv*>(addTlv(tlvHopCount_, false, false, sizeof(LdpHopCountTlv)));
   if (!t) return false;
   t->hopCountIs(hopCount);
   computeHdrLenChecksum();
   return true;
}

bool LdpMsgGen::addNotificationMsg(bool fBit, U32 messageId, LdpStatusCode code, U16 msgType,
                                   U32 msgId) {
   if (!addLdpMsgHdr(false, LdpNotification_, messageId)) {
      VEK_TRACE(genTrace(), 5, "   Notification " << code << " does not fit");
      return false;
   }
   if (!addStatusTlv(false, fBit, code, msgType, msgId)) {
      VEK_TRACE(genTrace(), 5, "   Notification " << code << " does not fit");
      revertLdpMsg();
      return false;
   }
   computeHdrLenChecksum();
   return true;
}

void LdpMsgGen::appendLdpTlv(Vek::Ptr<Nolu::Pkt> const& tlvPkt, U32 offset) {
   VEK_ASSERT(currLdpMsgHeader_);
   VEK_ASSERT(tlvPkt && tlvPkt->frontBytes() >= offset + sizeof(LdpTlvHdr));
   auto const* src = reinterpret_cast<LdpTlvHdr const*>(tlvPkt->readPtr(offset));
   U32 size = src->totalSize();
   VEK_ASSERT(tlvPkt->frontBytes() - offset >= size);
   U8* p = addTlvToPkt(size);
   if (p) std::memcpy(p, src, size);
   computeHdrLenChecksum();
}

void LdpMsgGen::appendLdpMsg(Vek::Ptr<Nolu::Pkt> const& ldpMsgPkt, U32 offset) {
   ldpPduLength_ = U16(ldpPduLength_ + currLdpMsgLength_);
   currLdpMsgLength_ = 0;
   currLdpMsgHeader_ = nullptr;
   VEK_ASSERT(ldpMsgPkt->frontBytes() > offset);
   VEK_ASSERT(ldpMsgPkt->frontBytes() - offset >= sizeof(LdpMsgHdr));
   auto const* src = reinterpret_cast<LdpMsgHdr const*>(ldpMsgPkt->readPtr(offset));
   U32 ldpMsgSize = 4u + src->length();
   VEK_ASSERT(ldpMsgPkt->frontBytes() - offset >= ldpMsgSize);
   VEK_ASSERT(availTailRoom() >= ldpMsgSize);
   std::memcpy(pkt_->newSharedTailData(ldpMsgSize), src, ldpMsgSize);
   availTailRoomDec(ldpMsgSize);
   ldpPduLength_ = U16(ldpPduLength_ + ldpMsgSize);
   computeHdrLenChecksum();
}

void LdpMsgGen::revertLdpMsg() {
   VEK_ASSERT(currLdpMsgHeader_ != __null);
   pkt_->delSharedTailData(currLdpMsgLength_);
   availTailRoomInc(currLdpMsgLength_);
   currLdpMsgLength_ = 0;
   currLdpMsgHeader_ = nullptr;
   computeHdrLenChecksum();
}

U32 LdpMsgGen::messageId() const {
   VEK_ASSERT(currLdpMsgHeader_ != __null);
   return currLdpMsgHeader_->msgId();
}

void LdpMsgGen::messageIdIs(U32 id) {
   VEK_ASSERT(currLdpMsgHeader_ != __null);
   currLdpMsgHeader_->msgIdIs(id);
   computeHdrLenChecksum();
}

void LdpMsgGen::computeHdrLenChecksum() {
   if (currLdpMsgHeader_) currLdpMsgHeader_->lengthIs(U16(currLdpMsgLength_ - 4));
   U32 ldpBytes = U32(ldpPduHeaderLength_) + ldpPduLength_ + currLdpMsgLength_;
   if (ldpPduHeader_) ldpPduHeader_->lengthIs(U16(ldpBytes - 4));
   if (udpHeader_) {
      udpHeader_->lengthIs(U16(udpHeaderLength_ + ldpBytes));
      if (ipHeader_) {
         udpHeader_->checksumIs(udpHeader_->computedChecksum(ipHeader_->src(), ipHeader_->dst()));
      }
   }
   if (ipHeader_) {
      ipHeader_->totalLengthIs(U16(ipHeaderLength_ + udpHeaderLength_ + ldpBytes));
      ipHeader_->checksumIs(ipHeader_->computedChecksum());
   }
}

// ---- pseudowires

bool LdpPwMsgGen::addFecTlvPwId(PwFwdEqvClassInfo const& fwdEqvCls, bool withInterfaceParams) {
   VEK_ASSERT(fwdEqvCls.fwdEqvClass().pwType() != Pseudowire::PseudowireType::pwTypeNone_);
   PwFwdEqvClass const& fec = fwdEqvCls.fwdEqvClass();
   bool hasId = fec.pwId().value() != 0;
   bool params = hasId && withInterfaceParams;
   U32 info = (hasId ? 4 : 0) + (params ? 4 : 0);
   U32 size = sizeof(LdpTlvHdr) + sizeof(LdpFecTlvPwIdElementHdr) + info;
   LdpTlvHdr* t = addTlv(tlvFec_, false, false, size);
   if (!t) return false;
   auto* e = reinterpret_cast<LdpFecTlvPwIdElementHdr*>(t->value());
   e->type_ = pwIdElement_;
   e->cBitPwTypeIs(fec.controlWord(), Pseudowire::wirePwTypeForPseudowireType(fec.pwType()));
   e->pwInfoLengthIs(U8(info));
   e->groupIdIs(fec.groupId().value());
   U8* p = t->value() + sizeof(LdpFecTlvPwIdElementHdr);
   if (hasId) Nolu::writeU32(p, fec.pwId().value());
   if (params) {
      p[4] = pwIntfParamMtu_;
      p[5] = 4;
      Nolu::writeU16(p + 6, U16(fwdEqvCls.fwdEqvClassParams().mtu()));
   }
   computeHdrLenChecksum();
   return true;
}

bool LdpPwMsgGen::addPwStatusTlv(U32 flags) {
   auto* t =
      static_cast<LdpPwStatusTlv*>(addTlv(tlvPwStatus_, true, false, sizeof(LdpPwStatusTlv)));
   if (!t) return false;
   t->flagsIs(flags);
   computeHdrLenChecksum();
   return true;
}

bool LdpPwMsgGen::addPwNotificationMsg(U32 messageId, U32 flags, PwFwdEqvClassInfo const& info) {
   if (!addNotificationMsg(false, messageId, statusPwStatus_, 0, 0)) return false;
   if (!addPwStatusTlv(flags) || !addFecTlvPwId(info, false)) {
      VEK_TRACE(genTrace(), 5, "   PW Notification does not fit");
      revertLdpMsg();
      return false;
   }
   computeHdrLenChecksum();
   return true;
}

Vek::Ptr<LdpPwMsgGen> ldpPwMsgGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt) {
   return Vek::Ptr<LdpPwMsgGen>(new LdpPwMsgGen(pkt));
}

// ---- Address List and Path Vector TLVs

LdpAddressListTlvGen::LdpAddressListTlvGen(Vek::Ptr<Nolu::Pkt> const& pkt)
   : pkt_(Vek::validPtr(pkt)) {
   handleInitialized();
}

void LdpAddressListTlvGen::handleInitialized() {
   VEK_ASSERT(pkt_->totalTailRoom() >= sizeof(LdpAddressListTlv));
   tlvOffset_ = pkt_->frontBytes();
   auto* t =
      reinterpret_cast<LdpAddressListTlv*>(pkt_->newSharedTailData(sizeof(LdpAddressListTlv)));
   std::memset(t, 0, sizeof(LdpAddressListTlv));
   t->typeIs(tlvAddressList_);
   t->lengthIs(2);
}

bool LdpAddressListTlvGen::appendAddress(Nolu::IpGenAddr const& ipGenAddr) {
   VEK_ASSERT(ipGenAddr.af() == family());
   U32 bytes = ipGenAddr.isV4() ? 4 : 16;
   if (pkt_->totalTailRoom() < bytes || tlv()->length() + bytes > 0xFFFF) return false;
   ipGenAddr.bytesAre(pkt_->newSharedTailData(bytes));
   tlv()->lengthIs(U16(tlv()->length() + bytes));
   return true;
}

Vek::Ptr<LdpAddressListTlvGen> ldpAddressListTlvGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt) {
   return Vek::Ptr<LdpAddressListTlvGen>(new LdpAddressListTlvGen(pkt));
}

LdpPathVectorTlvGen::LdpPathVectorTlvGen(Vek::Ptr<Nolu::Pkt> const& pkt)
   : pkt_(Vek::validPtr(pkt)) {
   handleInitialized();
}

void LdpPathVectorTlvGen::handleInitialized() {
   VEK_ASSERT(pkt_->totalTailRoom() >= sizeof(LdpPathVectorTlv));
   tlvOffset_ = pkt_->frontBytes();
   auto* t = reinterpret_cast<LdpPathVectorTlv*>(pkt_->newSharedTailData(sizeof(LdpPathVectorTlv)));
   std::memset(t, 0, sizeof(LdpPathVectorTlv));
   t->typeIs(tlvPathVector_);
   t->lengthIs(0);
}

bool LdpPathVectorTlvGen::appendLsrId(Nolu::IpAddr ip) {
   if (pkt_->totalTailRoom() < 4 || tlv()->length() + 4u > 0xFFFF) return false;
   ip.bytesAre(pkt_->newSharedTailData(4));
   tlv()->lengthIs(U16(tlv()->length() + 4));
   return true;
}

Vek::Ptr<LdpPathVectorTlvGen> ldpPathVectorTlvGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt) {
   return Vek::Ptr<LdpPathVectorTlvGen>(new LdpPathVectorTlvGen(pkt));
}

}  // namespace Ldp
