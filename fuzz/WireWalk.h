#pragma once
// Reads every accessor of the PDU, message and frame parsers over a packet,
// so that a fuzzer or a replay test touches all the code that reads packet
// bytes. Returns a value built from what it read, so nothing is optimised
// away. Checks the round trip of every valid message through the generator
// and aborts on a mismatch.
#include <cstdlib>

#include "wire/LdpMsgGen.h"
#include "wire/LdpParser.h"
#include "wire/LdpPduEtherFrameParser.h"

namespace WireWalk {

inline void check(bool cond) {
   if (!cond) std::abort();
}

inline U64 walkFec(Ldp::LdpFecTlvParser const& f) {
   U64 acc = f.fecElementNum() + f.hasWildcard() + f.stringValue().size() + f.fecTlv()->length();
   for (U32 i = 0; i < f.fecElementNum(); ++i) {
      acc += f.fecElementType(i);
      Mpls::FwdEqvClass fec = f.fwdEqvCls(i);
      acc += fec.hash() + fec.stringValue().size();
      Ldp::PwFwdEqvClassInfo pw = f.pwFwdEqvCls(i);
      acc += pw.hash() + pw.stringValue().size();
      if (auto const* e = f.pwIdElement(i)) acc += e->pwId() + e->groupId() + e->wirePwType();
      if (f.fecElementType(i) == Ldp::prefixElement_) {
         // A prefix FEC goes back on the wire as it came.
         auto pkt = Nolu::globalPktManager()->newPkt();
         auto gen = Ldp::ldpMsgGenFactory(pkt);
         check(gen->addLdpMsgHdr(false, Ldp::LdpLabelRequest_, 1));
         check(gen->addFecTlvPrefix(fec));
         auto back = Ldp::ldpLabelRequestMsgParserFactory(pkt, 0);
         check(back->validMsg());
         check(back->ldpFecTlvParser()->fwdEqvCls(0) == fec);
      }
   }
   return acc;
}

inline U64 walkMsg(Ldp::LdpMsgParser const& p) {
   U64 acc = p.validMsg() + p.statusCode() + p.reason().size() + p.stringValue().size() +
             p.msgType() + p.msgId() + p.uBit() + p.msgSize() + p.unknownTlvNum();
   if (p.msgHdr()) acc += p.msgHdr()->length();
   if (auto const* f = p.ldpFecTlvParser()) acc += walkFec(*f);
   if (auto const* t = p.genLabelTlv()) acc += t->label().value();
   if (auto const* t = p.statusTlv()) {
      acc += t->statusData() + t->statusEBit() + t->statusFBit() + t->msgId() + t->msgType();
   }
   if (auto const* t = p.hopCountTlv()) acc += t->hopCount();
   if (auto const* t = p.pathVectorTlv()) {
      for (U32 i = 0; i < t->lsrIdNum(); ++i) acc += t->lsrId(i).value();
      acc += t->lsrIdPosition(Nolu::IpAddr(1, 1, 1, 1));
   }
   if (auto const* t = p.labelReqMsgIdTlv()) acc += t->msgId();
   if (auto const* t = p.pwStatusTlv()) acc += t->flags();
   if (auto const* t = p.addrListTlv()) {
      acc += t->family();
      for (U32 i = 0; i < t->numAddress(); ++i) acc += t->address(i).hash();
   }
   if (auto const* t = p.commonHelloTlv()) {
      acc += t->holdTime() + t->targeted() + t->requestTargeted();
   }
   if (auto const* t = p.ipv4TransportAddrTlv()) acc += t->ipAddr().value();
   if (auto const* t = p.ipv6TransportAddrTlv()) acc += t->ip6Addr().hash();
   if (auto const* t = p.configSeqNumTlv()) acc += t->seqNum();
   if (auto const* t = p.commonSessionParamTlv()) {
      acc += t->protocolVersion() + t->keepAliveTime() + t->advDiscipline() + t->loopDetection() +
             t->pathVectorLimit() + t->maxPduLength() + t->receiverLdpId().hash();
   }
   for (U32 i = 0; i < p.capabilityTlvNum(); ++i) {
      acc += p.capabilityTlv(i)->type() + p.capabilityTlv(i)->sBit();
   }
   if (p.validMsg() && p.msgSize() < 60000) {
      // A valid message copied into a PDU of its own parses the same.
      auto pkt = Nolu::globalPktManager()->newPkt(p.msgSize() + 64);
      auto gen = Ldp::ldpMsgGenFactory(pkt);
      check(gen->addLdpPduHdr(1, Ldp::LdpIdentifier(0x01010101, 0)));
      gen->appendLdpMsg(p.pkt(), p.offset());
      auto pdu = Ldp::ldpPduParserFactory(pkt, 0);
      check(pdu->validLdpPdu() && pdu->msgNum() == 1);
      auto again = Ldp::ldpMsgParserGet(pkt, pdu->msgOffset(0));
      check(again->validMsg() && again->stringValue() == p.stringValue());
   }
   return acc;
}

// Runs every parser over the packet: the PDU parser and the parser of each
// message it finds, every message parser at the start of the packet and
// right behind a PDU header, and the Ethernet frame parser.
inline U64 walkPkt(Vek::Ptr<Nolu::Pkt> const& pkt) {
   U64 acc = 0;
   auto pdu = Ldp::ldpPduParserFactory(pkt, 0);
   acc += pdu->validLdpPdu() + pdu->statusCode() + pdu->stringValue().size() + pdu->version() +
          pdu->pduLength() + pdu->ldpIdentifier().hash();
   for (U32 i = 0; i < pdu->msgNum(); ++i) {
      acc += pdu->msgHdr(i)->type();
      acc += walkMsg(*Ldp::ldpMsgParserGet(pkt, pdu->msgOffset(i)));
   }
   for (U32 offset : {0u, 10u, pkt->frontBytes(), pkt->frontBytes() + 3}) {
      using namespace Ldp;
      acc += walkMsg(*ldpMsgParserGet(pkt, offset));
      acc += walkMsg(*ldpMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpNotificationMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpHelloMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpInitMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpCapabilityMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpAddressMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpAddressWithdrawMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpLabelMappingMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpLabelRequestMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpLabelWithdrawMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpLabelReleaseMsgParserFactory(pkt, offset));
      acc += walkMsg(*ldpLabelAbortReqMsgParserFactory(pkt, offset));
      acc += Ldp::ldpPduParserFactory(pkt, offset)->stringValue().size();
   }
   auto frame = Ldp::ldpPduEtherFrameParserFactory(pkt);
   acc += frame->validLdpFrame() + frame->reason().size() + frame->offset() +
          frame->ipHeaderOffset() + frame->udpHeaderOffset() + frame->ldpPduHeaderOffset();
   if (frame->validLdpFrame()) acc += frame->ldpPduHeader()->ldpIdentifier().hash();
   return acc;
}

inline Vek::Ptr<Nolu::Pkt> pktOf(U8 const* data, std::size_t size) {
   auto pkt = Nolu::globalPktManager()->newPkt(U32(size));
   check(pkt->appendData(data, U32(size)));
   return pkt;
}

}  // namespace WireWalk
