// Writes one file per kind of PDU that the agent sends or accepts, as seeds
// for the fuzzer: make_seeds DIR.
#include <cstring>
#include <cstdio>
#include <string>

#include "wire/LdpMsgGen.h"

using namespace Ldp;

namespace {

LdpIdentifier const self(Nolu::IpAddr(10, 0, 0, 1), 0);
LdpIdentifier const peer(Nolu::IpAddr(10, 0, 0, 2), 0);

void write(std::string const& dir, char const* name, Vek::Ptr<Nolu::Pkt> const& pkt) {
   std::string path = dir + "/" + name;
   std::FILE* f = std::fopen(path.c_str(), "wb");
   if (!f) return;
   std::fwrite(pkt->readPtr(0), 1, pkt->frontBytes(), f);
   std::fclose(f);
}

Vek::Ptr<LdpPwMsgGen> pdu(Vek::Ptr<Nolu::Pkt>& pkt) {
   pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpPwMsgGenFactory(pkt);
   gen->addLdpPduHdr(1, self);
   return gen;
}

PwFwdEqvClassInfo pwInfo(U32 id) {
   PwFwdEqvClassParams params;
   params.mtuIs(1500);
   return PwFwdEqvClassInfo(PwFwdEqvClass(Pseudowire::PseudowireId(id), Pseudowire::pwTypeEthernet_,
                                          Pseudowire::GroupId(7), true),
                            params);
}

}  // namespace

int main(int argc, char** argv) {
   if (argc < 2) return 1;
   std::string dir = argv[1];
   Vek::Ptr<Nolu::Pkt> pkt;
   Mpls::FwdEqvClass fec(*Nolu::Prefix::fromString("10.1.2.0/24"));

   auto g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpHello_, 1);
   g->addCommonHelloTlv(false, 15, false, false);
   g->addIpTransportAddrTlv(false, Nolu::IpAddr(10, 0, 0, 1));
   g->addConfigSeqNumTlv(false, 3);
   write(dir, "hello-link", pkt);

   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpHello_, 2);
   g->addCommonHelloTlv(false, 45, true, true);
   write(dir, "hello-targeted", pkt);

   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpInitialization_, 3);
   g->addLdpCommonSessionParamTlv(false, 1, 180, true, true, 0, 4096, peer);
   g->addLdpMsgHdr(false, LdpKeepAlive_, 4);
   write(dir, "init-keepalive", pkt);

   g = pdu(pkt);
   g->addNotificationMsg(false, 5, statusShutdown_, LdpInitialization_, 3);
   write(dir, "notification", pkt);

   pkt = Nolu::globalPktManager()->newPkt();
   auto tlvPkt = Nolu::globalPktManager()->newPkt();
   auto list = ldpAddressListTlvGenFactory(tlvPkt);
   list->familyIs(1);
   list->appendAddress(Nolu::IpAddr(10, 0, 0, 1));
   list->appendAddress(Nolu::IpAddr(192, 168, 1, 1));
   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpAddress_, 6);
   g->appendLdpTlv(tlvPkt, 0);
   g->addLdpMsgHdr(false, LdpAddressWithdraw_, 7);
   g->appendLdpTlv(tlvPkt, 0);
   write(dir, "address", pkt);

   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpLabelMapping_, 8);
   g->addFecTlvPrefix(fec);
   g->addGenLabelTlv(false, Nolu::MplsLabel(100));
   g->addLabelReqMsgIdTlv(9);
   g->addLdpHopCountTlv(2);
   auto pvPkt = Nolu::globalPktManager()->newPkt();
   auto pv = ldpPathVectorTlvGenFactory(pvPkt);
   pv->appendLsrId(Nolu::IpAddr(1, 1, 1, 1));
   pv->appendLsrId(Nolu::IpAddr(2, 2, 2, 2));
   g->appendLdpTlv(pvPkt, 0);
   g->addLdpMsgHdr(false, LdpLabelRequest_, 10);
   g->addFecTlvPrefix(fec);
   g->addLdpHopCountTlv(1);
   g->addLdpMsgHdr(false, LdpLabelWithdraw_, 11);
   g->addFecTlvPrefix(fec);
   g->addGenLabelTlv(false, Nolu::MplsLabel(100));
   g->addLdpMsgHdr(false, LdpLabelRelease_, 12);
   g->addFecTlvPrefix(fec);
   g->addLdpMsgHdr(false, LdpLabelAbortReq_, 13);
   g->addFecTlvPrefix(fec);
   g->addLabelReqMsgIdTlv(10);
   write(dir, "label", pkt);

   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpLabelMapping_, 14);
   g->addFecTlvPwId(pwInfo(42), true);
   g->addGenLabelTlv(false, Nolu::MplsLabel(200));
   g->addPwStatusTlv(1);
   g->addPwNotificationMsg(15, 2, pwInfo(42));
   g->addLdpMsgHdr(false, LdpLabelWithdraw_, 16);
   g->addFecTlvPwId(pwInfo(0), false);
   write(dir, "pw", pkt);

   // A VPLS peer's MAC Address Withdraw: an empty address list, the PWid
   // FEC of the instance and a MAC List TLV with the U bit.
   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpAddressWithdraw_, 18);
   U8 const emptyList[] = {0x01, 0x01, 0x00, 0x02, 0x00, 0x01};
   std::memcpy(g->addTlvToPkt(sizeof emptyList), emptyList, sizeof emptyList);
   g->addFecTlvPwId(pwInfo(42), false);
   U8 const macList[] = {0x84, 0x04, 0x00, 0x06, 0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
   std::memcpy(g->addTlvToPkt(sizeof macList), macList, sizeof macList);
   g->computeHdrLenChecksum();
   write(dir, "mac-withdraw", pkt);

   g = pdu(pkt);
   g->addLdpMsgHdr(false, LdpCapability_, 17);
   U8* cap = g->addTlvToPkt(5);
   cap[0] = 0x85;
   cap[1] = 0x06;
   cap[3] = 1;
   cap[4] = 0x80;
   g->computeHdrLenChecksum();
   write(dir, "capability", pkt);

   pkt = Nolu::globalPktManager()->newPkt();
   g = ldpPwMsgGenFactory(pkt);
   g->addEtherHdr(Nolu::ipMcastMacAddr(Nolu::IpAddr(224, 0, 0, 2)),
                  Nolu::EthAddr(0, 1, 2, 3, 4, 5), Nolu::etherTypeIp);
   g->addIpHdr(Nolu::IpAddr(10, 0, 0, 1), Nolu::IpAddr(224, 0, 0, 2), 1, Nolu::ipProtoUdp);
   g->addUdpHdr(646, 646);
   g->addLdpPduHdr(1, self);
   g->addLdpMsgHdr(false, LdpHello_, 18);
   g->addCommonHelloTlv(false, 15, false, false);
   write(dir, "frame", pkt);
   return 0;
}
