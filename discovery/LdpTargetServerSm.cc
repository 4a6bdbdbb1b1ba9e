#include "discovery/LdpTargetServerSm.h"

#include "discovery/LdpHelloPdu.h"
#include "discovery/LdpPktDump.h"
#include "wire/LdpParser.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTargetServer");
}

LdpTargetServerSm::LdpTargetServerSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpTargetServerConfig);
   Vek::validPtr(in_.ldpTargetServerStatus);
   Vek::validPtr(in_.ldpTargetConfigColl);
   Vek::validPtr(in_.ldpTargetStatusColl);
   Vek::validPtr(in_.ldpTargetMsgPipeCollection);
   ldpTargetServerConfigReactor_.init(this, in_.ldpTargetServerConfig);
   rxUdpPamReactor_.init(this, in_.rxUdpPam);
   handleInitialized();
}

void LdpTargetServerSm::handleInitialized() {
   in_.ldpTargetServerStatus->listeningIs(false);
   in_.ldpTargetServerStatus->reasonIs("Initialized");
   initialized_ = true;
   handleConfig();
}

// Every change of a setting closes the channel and opens it again.
void LdpTargetServerSm::handleConfig() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpTargetServerSm::handleConfig");
   auto const& cfg = *in_.ldpTargetServerConfig;
   auto& st = *in_.ldpTargetServerStatus;
   char const* failure = nullptr;
   if (!cfg.enabled()) failure = "Server not enabled";
   else if (cfg.listenIpAddr().isZero()) failure = "Server IP Address is 0";
   else if (cfg.listenPort() == 0) failure = "Server listenPort is 0";
   if (failure) {
      handleDisableTargetServer();
      st.reasonIs(failure);
      st.listeningIs(false);
      LDP_TRACE(th, 5, failure);
      return;
   }
   handleDisableTargetServer();
   handleEnableTargetServer();
}

void LdpTargetServerSm::handleEnableTargetServer() {
   auto& st = *in_.ldpTargetServerStatus;
   if (!in_.rxUdpPam) {
      st.listeningIs(false);
      st.reasonIs("Not listening: rxUdpPam is NULL");
      return;
   }
   auto const& cfg = *in_.ldpTargetServerConfig;
   in_.rxUdpPam->rxIpAddrIs(cfg.listenIpAddr());
   in_.rxUdpPam->rxPortIs(cfg.listenPort());
   in_.rxUdpPam->modeIs(3);
   if (in_.rxUdpPam->mode() == 0) {
      st.listeningIs(false);
      st.reasonIs("Not listening: " + in_.rxUdpPam->openErrorReason());
      LDP_TRACE(th, 1, st.reason());
      return;
   }
   st.listeningIs(true);
   st.reasonIs("Enabled");
   LDP_TRACE(th, 5, "Targeted Hello server listening on " << cfg.listenIpAddr() << ":"
                                                          << cfg.listenPort());
}

void LdpTargetServerSm::handleDisableTargetServer() {
   auto& st = *in_.ldpTargetServerStatus;
   if (!in_.rxUdpPam) {
      st.listeningIs(false);
      st.reasonIs("Not listening: rxUdpPam is NULL");
      return;
   }
   in_.rxUdpPam->modeIs(0);
   st.listeningIs(false);
   st.reasonIs("Disabled");
}

// The first failed test ends the datagram's journey.
void LdpTargetServerSm::handlePamReadable() {
   if (!initialized_ || !in_.rxUdpPam) return;
   auto pkt = in_.rxUdpPam->rxPkt();
   if (!pkt) return;
   auto& st = *in_.ldpTargetServerStatus;
   Nolu::UdpRxInfo const& info = in_.rxUdpPam->rxInfo();
   if (in_.serviceAclFilterSm &&
       !in_.serviceAclFilterSm->matchesConnection(in_.vrfName, info.srcIpAddr, info.dstIpAddr,
                                                  info.srcPort, LdpProtoParam::ldpPort(), 17,
                                                  false)) {
      LDP_TRACE(th, 3, "Incoming UDP packet dropped by Service ACL "
                          << "(srcIp=" << info.srcIpAddr << " srcPort=" << info.srcPort
                          << " dstIp=" << info.dstIpAddr << ")");
      return;
   }
   LDP_TRACE(th, 9, "Rx Pkt Dump: " << pktHexDump(*pkt));
   st.rxPktCountInc(1);
   U32 offset = 0;
   LdpIdentifier ldpId;
   if (!ldpHelloPduCheck(pkt, th, instId(), &offset, &ldpId)) {
      st.errPktCountInc(1);
      return;
   }
   auto hello = ldpHelloMsgParserFactory(pkt, offset);
   if (!hello->validMsg()) {
      LDP_TRACE(th, 3, "   Rejected. " << hello->reason());
      return;
   }
   // A peer is known by its transport address, whatever it sends from.
   Nolu::IpAddr key = info.srcIpAddr;
   if (auto const* t = hello->ipv4TransportAddrTlv()) key = t->ipAddr();
   LDP_TRACE(th, 6, "   Received " << LdpHello_ << " from ldpId: " << ldpId
                                   << " IP: " << key);
   auto ts = in_.ldpTargetStatusColl->adjTargetStatus(key);
   if (!in_.ldpTargetConfigColl->adjTargetConfigHas(key) || !ts) {
      LDP_TRACE(th, 3, "   Ignoring targeted Hello: unknown source IP " << key);
      return;
   }
   if (!ts->running()) {
      LDP_TRACE(th, 3, "   Target not ready: " << key);
      return;
   }
   auto msg = ldpMsgFactory(ldpId, pkt, offset);
   msg->srcIpAddrIs(Nolu::IpGenAddr(info.srcIpAddr));
   Vek::Ptr<LdpMsgPipe> pipe = in_.ldpTargetMsgPipeCollection->msgPipe(key);
   LdpMsgPipe* msgPipe = pipe.ptr();
   VEK_ASSERT(msgPipe != __null);
   msgPipe->txMsgIs(msg);
}

}  // namespace Ldp
