#include "discovery/LdpHelloPdu.h"

#include "wire/LdpParser.h"

namespace Ldp {

Vek::Ptr<LdpMsgGen> ldpHelloPduBuild(Vek::Ptr<Nolu::Pkt>& pkt, LdpIdentifier const& ldpId,
                                     U32 msgId, U16 holdTime, bool targeted,
                                     Nolu::IpGenAddr const& transportAddr, U32 configSeqNum,
                                     LdpProtoParamConfig const& pp) {
   if (!pkt) pkt = Nolu::globalPktManager()->newPkt();
   else pkt->dataDelAll();
   auto gen = ldpMsgGenFactory(pkt);
   gen->addLdpPduHdr(LdpProtoParam::ldpVersion(), ldpId);
   gen->addLdpMsgHdr(false, LdpHello_, msgId);
   gen->addCommonHelloTlv(false, holdTime, targeted, targeted);
   if (pp.tlvIpTransportAddrIncude())
      gen->addIpTransportAddrTlv(pp.tlvIpTransportUnknownBit(), transportAddr.v4Addr());
   if (pp.tlvConfigSeqNumInclude())
      gen->addConfigSeqNumTlv(pp.tlvConfigSeqNumUnknownBit(), configSeqNum);
   gen->computeHdrLenChecksum();
   return gen;
}

bool ldpHelloPduCheck(Vek::Ptr<Nolu::Pkt> const& pkt, Vek::TraceHandle const& th, U32 instId,
                      U32* offset, LdpIdentifier* ldpId) {
   auto pdu = ldpPduParserFactory(pkt, 0);
   VEK_TRACE_INST(th, 7, instId, "LDP PDU Rx: " << pdu->stringValue());
   if (!pdu->validLdpPdu()) {
      VEK_TRACE_INST(th, 3, instId, pdu->reason());
      return false;
   }
   if (pdu->msgNum() != 1) {
      VEK_TRACE_INST(th, 3, instId, "Unexpected " << pdu->msgNum() << " messages");
      return false;
   }
   *offset = pdu->msgOffset(0);
   auto msgParser = ldpMsgParserGet(pkt, *offset);
   if (!msgParser->validMsg()) {
      VEK_TRACE_INST(th, 3, instId, msgParser->reason());
      return false;
   }
   if (msgParser->msgType() != LdpHello_) {
      VEK_TRACE_INST(th, 3, instId, "Unexpected message type: " << msgParser->msgType());
      return false;
   }
   *ldpId = pdu->ldpIdentifier();
   if (ldpId->lblSpace() != 0) {
      VEK_TRACE_INST(th, 3, instId,
                     "LdpId with non-zero label space not supported. " << *ldpId);
      return false;
   }
   return true;
}

}  // namespace Ldp
