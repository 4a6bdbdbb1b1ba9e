#pragma once
// Generators that write Ethernet, IP, UDP, LDP PDU, message and TLV headers
// straight into one packet, so that a PDU is assembled in place, with the
// length fields and checksums brought up to date after every addition.
//
// A full packet is a normal result: an add... returns false and leaves the
// packet as it was (apart from closing the message before a new header), and
// revertLdpMsg() drops a message that can't be completed. Misuse by the
// program (a TLV with no message open, a header out of order) is a fault.
#include "entities/Enums.h"
#include "entities/Identifiers.h"
#include "runtime/nolu/Hdr.h"
#include "runtime/nolu/Pkt.h"
#include "runtime/vek/Ptr.h"
#include "wire/LdpTlv.h"

namespace Ldp {

class LdpMsgGen : public Vek::PtrInterface {
 public:
   explicit LdpMsgGen(Vek::Ptr<Nolu::Pkt> const& pkt);

   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   // Bytes still free for this generator.
   U32 availTailRoom() const { return availTailRoom_; }
   void availTailRoomInc(U32 n) { availTailRoom_ += n; }
   void availTailRoomDec(U32 n) {
      VEK_ASSERT(n <= availTailRoom_);
      availTailRoom_ -= n;
   }

   U16 ethHeaderOffset() const { return ethHeaderOffset_; }
   U16 ethHeaderLength() const { return ethHeaderLength_; }
   U16 ipHeaderOffset() const { return ipHeaderOffset_; }
   U16 ipHeaderLength() const { return ipHeaderLength_; }
   U16 udpHeaderOffset() const { return udpHeaderOffset_; }
   U16 udpHeaderLength() const { return udpHeaderLength_; }
   U16 ldpPduHeaderOffset() const { return ldpPduHeaderOffset_; }
   Nolu::EthHdr* ethHeader() const { return ethHeader_; }
   Nolu::IpHdr* ipHeader() const { return ipHeader_; }
   Nolu::UdpHdr* udpHeader() const { return udpHeader_; }
   LdpPduHdr* ldpPduHeader() const { return ldpPduHeader_; }
   LdpMsgHdr* currLdpMsgHeader() const { return currLdpMsgHeader_; }
   // 10 once the PDU header is added.
   U16 ldpPduHeaderLength() const { return ldpPduHeaderLength_; }
   // Bytes of the closed messages so far.
   U16 ldpPduLength() const { return ldpPduLength_; }
   // Bytes of the open message, header included.
   U16 currLdpMsgLength() const { return currLdpMsgLength_; }

   // The first thing in the packet: 14 bytes.
   void addEtherHdr(Nolu::EthAddr const& dstMac, Nolu::EthAddr const& srcMac, U16 etherType);
   // 20 bytes: version 4, no options, TOS 192.
   void addIpHdr(Nolu::IpAddr srcIp, Nolu::IpAddr dstIp, U8 ttl, U8 proto);
   void addUdpHdr(U16 srcPort, U16 dstPort);
   bool addLdpPduHdr(U16 version, LdpIdentifier const& ldpIdentifier);
   // Closes the open message, then opens one with an 8-byte header.
   bool addLdpMsgHdr(bool uBit, U16 type, U32 messageId);

   bool addCommonHelloTlv(bool uBit, U16 holdTime, bool targeted, bool requestTargeted);
   bool addIpTransportAddrTlv(bool uBit, Nolu::IpAddr ip);
   bool addConfigSeqNumTlv(bool uBit, U32 seq);
   bool addLdpCommonSessionParamTlv(bool uBit, U16 version, U16 keepAlive, bool advDiscipline,
                                    bool loopDetection, U8 pathVectorLimit, U16 maxPduLength,
                                    LdpIdentifier const& receiverLdpId);
   // A FEC TLV with one prefix element of the FEC's family.
   bool addFecTlvPrefix(Mpls::FwdEqvClass const& fec);
   // fBit sets the TLV's F bit and bit 30 of the status word; the E bit goes
   // with the code. Internal codes never go on the wire.
   bool addStatusTlv(bool uBit, bool fBit, LdpStatusCode code, U16 msgType, U32 msgId);
   // The same with the E bit given: set when the sender closes the session
   // after it, whatever the code's usual weight.
   bool addStatusTlv(bool uBit, bool fBit, LdpStatusCode code, U16 msgType, U32 msgId, bool eBit);
   bool addGenLabelTlv(bool uBit, Nolu::MplsLabel label);
   bool addLabelReqMsgIdTlv(U32 msgId);
   bool addLdpHopCountTlv(U8 hopCount);
   // A Notification message with one Status TLV; on a full packet nothing of
   // it stays.
   bool addNotificationMsg(bool fBit, U32 messageId, LdpStatusCode code, U16 msgType, U32 msgId);

   // Copies the TLV at offset of another packet into the open message.
   void appendLdpTlv(Vek::Ptr<Nolu::Pkt> const& tlvPkt, U32 offset);
   // Closes the open message and copies a whole message from another packet.
   // The caller has checked the room.
   void appendLdpMsg(Vek::Ptr<Nolu::Pkt> const& ldpMsgPkt, U32 offset);
   // Drops the open message and gives its bytes back.
   void revertLdpMsg();

   // The id of the open message.
   U32 messageId() const;
   void messageIdIs(U32 id);

   // Brings the length fields and checksums of all headers up to date.
   void computeHdrLenChecksum();

   // The common step of all TLVs: takes size zeroed bytes for the open
   // message, or returns null when they don't fit.
   U8* addTlvToPkt(U32 size);

 protected:
   void handleInitialized();
   U32 totalTailRoom() const { return pkt_->totalTailRoom(); }
   LdpTlvHdr* addTlv(U16 type, bool uBit, bool fBit, U32 size);

 private:
   U16 currentOffset() const { return U16(pkt_->frontBytes()); }

   Vek::Ptr<Nolu::Pkt> pkt_;
   U32 availTailRoom_ = 0;
   U16 ethHeaderOffset_ = 0;
   U16 ethHeaderLength_ = 0;
   U16 ipHeaderOffset_ = 0;
   U16 ipHeaderLength_ = 0;
   U16 udpHeaderOffset_ = 0;
   U16 udpHeaderLength_ = 0;
   U16 ldpPduHeaderOffset_ = 0;
   Nolu::EthHdr* ethHeader_ = nullptr;
   Nolu::IpHdr* ipHeader_ = nullptr;
   Nolu::UdpHdr* udpHeader_ = nullptr;
   LdpPduHdr* ldpPduHeader_ = nullptr;
   LdpMsgHdr* currLdpMsgHeader_ = nullptr;
   U16 ldpPduHeaderLength_ = 0;
   U16 ldpPduLength_ = 0;
   U16 currLdpMsgLength_ = 0;
};

Vek::Ptr<LdpMsgGen> ldpMsgGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt);

// The common step of all TLVs; null when size bytes don't fit.
U8* addTlvToPkt(LdpMsgGen* msgGen, Nolu::Pkt* pkt, U32 size);

// Adds the pseudowire TLVs.
class LdpPwMsgGen : public LdpMsgGen {
 public:
   using LdpMsgGen::LdpMsgGen;
   // A FEC TLV with one PWid element: 12 bytes, 4 more for a non-zero PW id,
   // and 4 more for the MTU sub-TLV when withInterfaceParams (behind a
   // non-zero id only).
   bool addFecTlvPwId(PwFwdEqvClassInfo const& fwdEqvCls, bool withInterfaceParams);
   // The PW Status TLV, with the U bit set.
   bool addPwStatusTlv(U32 flags);
   // A Notification with status PW Status, a PW Status TLV and the PW FEC.
   bool addPwNotificationMsg(U32 messageId, U32 flags, PwFwdEqvClassInfo const& info);
};

Vek::Ptr<LdpPwMsgGen> ldpPwMsgGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt);

// Builds an Address List TLV in a packet of its own, for appendLdpTlv.
class LdpAddressListTlvGen : public Vek::PtrInterface {
 public:
   explicit LdpAddressListTlvGen(Vek::Ptr<Nolu::Pkt> const& pkt);
   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   U16 family() const { return tlv()->family(); }
   void familyIs(U16 family) { tlv()->familyIs(family); }
   // The TLV's length field.
   U16 msgLen() const { return tlv()->length(); }
   U32 numAddress() const { return tlv()->numAddress(); }
   // Adds an address of the TLV's family; false when it doesn't fit.
   bool appendAddress(Nolu::IpGenAddr const& ipGenAddr);

 private:
   void handleInitialized();
   LdpAddressListTlv* tlv() const {
      return reinterpret_cast<LdpAddressListTlv*>(pkt_->writePtr(tlvOffset_));
   }
   Vek::Ptr<Nolu::Pkt> pkt_;
   U32 tlvOffset_ = 0;
};

Vek::Ptr<LdpAddressListTlvGen> ldpAddressListTlvGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt);

// Builds a Path Vector TLV in a packet of its own, for appendLdpTlv.
class LdpPathVectorTlvGen : public Vek::PtrInterface {
 public:
   explicit LdpPathVectorTlvGen(Vek::Ptr<Nolu::Pkt> const& pkt);
   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   U32 lsrIdNum() const { return tlv()->lsrIdNum(); }
   // Adds an LSR id; false when it doesn't fit.
   bool appendLsrId(Nolu::IpAddr ip);

 private:
   void handleInitialized();
   LdpPathVectorTlv* tlv() const {
      return reinterpret_cast<LdpPathVectorTlv*>(pkt_->writePtr(tlvOffset_));
   }
   Vek::Ptr<Nolu::Pkt> pkt_;
   U32 tlvOffset_ = 0;
};

Vek::Ptr<LdpPathVectorTlvGen> ldpPathVectorTlvGenFactory(Vek::Ptr<Nolu::Pkt> const& pkt);

}  // namespace Ldp
