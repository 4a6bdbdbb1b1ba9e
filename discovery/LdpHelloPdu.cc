#include "discovery/LdpHelloPdu.h"

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

}  // namespace Ldp
