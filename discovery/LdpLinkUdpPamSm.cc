#include "discovery/LdpLinkUdpPamSm.h"

#include <cerrno>

#include "discovery/LdpHelloPdu.h"
#include "discovery/LdpPktDump.h"
#include "wire/LdpParser.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLinkUdpPam");
}  // namespace

LdpLinkUdpPamSm::LdpLinkUdpPamSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpLinkUdpPamStatus);
   Vek::validPtr(in_.rxMsgPipeColl);
   Vek::validPtr(in_.ldpLinkTxMsgPipeColl);
   Vek::validPtr(in_.ldpLinkConfigColl);
   Vek::validPtr(in_.ldpLinkStatusColl);
   Vek::validPtr(in_.ldpLinkCommonConfig);
   Vek::validPtr(in_.deviceIntfStatusDir);
   Vek::validPtr(in_.scheduler);
   udpPamReactor_.init(this, in_.udpPam);
   ldpLinkConfigCollReactor_.init(this, in_.ldpLinkConfigColl);
   ldpLinkTxMsgPipeCollReactor_.init(this, in_.ldpLinkTxMsgPipeColl);
   deviceIntfStatusDirReactor_.init(this, in_.deviceIntfStatusDir);
   handleInitialized();
}

void LdpLinkUdpPamSm::handleInitialized() {
   LDP_HANDLER(th, "LdpLinkUdpPamSm::handleInitialized");
   intfMcastTimerTask_ = Hesk::timerTaskIs(this, &LdpLinkUdpPamSm::handleIntfMcastTimerTask,
                                           in_.scheduler, 2, "McastTimer");
   in_.ldpLinkUdpPamStatus->enabledIs(false);
   in_.ldpLinkUdpPamStatus->reasonIs("Initialized");
   initialized_ = true;
   for (auto it = in_.deviceIntfStatusDir->intfIdByIfIndexIter(); it; ++it)
      handleIntfIdByIfIndex(it.key());
   for (auto it = in_.ldpLinkTxMsgPipeColl->msgPipeIter(); it; ++it) handleTxMsgPipe(it.key());
   handleDisableRxUdpPam();
   handleEnableRxUdpPam();
   for (auto it = in_.ldpLinkConfigColl->adjLinkConfigIter(); it; ++it)
      handleLinkConfigColl(it.key());
}

void LdpLinkUdpPamSm::handleEnableRxUdpPam() {
   auto& st = *in_.ldpLinkUdpPamStatus;
   if (!in_.udpPam) {
      st.enabledIs(false);
      st.reasonIs("Not listening: udpPam is NULL");
      LDP_TRACE(th, 1, "Server to receive link Udp Pdus NOT started: " << st.reason());
      return;
   }
   auto& pam = *in_.udpPam;
   pam.rxIpAddrIs(allRoutersGroup());
   pam.enableIpMulticastLoopIs(false);
   pam.rxPortIs(LdpProtoParam::ldpPort());
   pam.txTosIs(LdpProtoParam::ldpTos());
   pam.txTtlIs(in_.ldpLinkCommonConfig->ttl());
   pam.txSrcIpAddrIs(in_.ldpLinkCommonConfig->ipTransportAddr().v4Addr());
   pam.txDstIpAddrIs(allRoutersGroup());
   pam.txPortIs(LdpProtoParam::ldpPort());
   pam.modeIs(3);
   if (pam.mode() == 0) {
      // The socket could not be opened: nothing will be heard on the links.
      st.enabledIs(false);
      st.reasonIs("Not listening: " + pam.openErrorReason());
      LDP_TRACE(th, 1, "Server to receive link Udp Pdus NOT started: " << st.reason());
      return;
   }
   st.enabledIs(true);
   st.reasonIs("Enabled");
   LDP_TRACE(th, 1, "Server to receive link Udp Pdus started.");
}

void LdpLinkUdpPamSm::handleDisableRxUdpPam() {
   auto& st = *in_.ldpLinkUdpPamStatus;
   if (!in_.udpPam) {
      st.enabledIs(false);
      st.reasonIs("Not listening: udpPam is NULL");
      LDP_TRACE(th, 1, "Server to receive link Udp Pdus NOT started: " << st.reason());
      return;
   }
   in_.udpPam->modeIs(0);
   st.enabledIs(false);
   st.reasonIs("Disabled");
   LDP_TRACE(th, 1, "Disabled server to receive link Udp Pdus");
}

// Every datagram is checked here before anything else sees it; the first
// failed test ends its journey.
void LdpLinkUdpPamSm::handleRxPamReadable() {
   if (!initialized_ || !in_.udpPam) return;
   auto pkt = in_.udpPam->rxPkt();
   if (!pkt) return;
   auto& st = *in_.ldpLinkUdpPamStatus;
   Nolu::UdpRxInfo const& info = in_.udpPam->rxInfo();
   if (in_.serviceAclFilterSm &&
       !in_.serviceAclFilterSm->matchesConnection(in_.vrfName, info.srcIpAddr, info.dstIpAddr,
                                                  info.srcPort, LdpProtoParam::ldpPort(), 17,
                                                  false)) {
      LDP_TRACE(th, 3, "Incoming UDP packet dropped by Service ACL "
                          << "(srcIp=" << info.srcIpAddr << " srcPort=" << info.srcPort
                          << " dstIp=" << info.dstIpAddr << ")");
      return;
   }
   st.rxPktCountInc(1);
   LDP_TRACE(th, 9, "Rx Pkt Dump: " << pktHexDump(*pkt));
   U32 offset = 0;
   LdpIdentifier ldpId;
   if (!ldpHelloPduCheck(pkt, th, instId(), &offset, &ldpId)) {
      st.errPktCountInc(1);
      return;
   }
   Nolu::IntfId intfId;
   if (auto const* p = intfByIfIndex_.find(info.ifIndex)) intfId = *p;
   if (intfId.isEmpty()) {
      LDP_TRACE(th, 3, "IntfId or IntfStatus does not exist for the pkt on ifIndex: "
                          << info.ifIndex);
      st.errPktCountInc(1);
      return;
   }
   LDP_TRACE(th, 6, "   Received " << LdpHello_ << " from ldpId: " << ldpId
                                   << " on IntfId: " << intfId);
   auto lc = in_.ldpLinkConfigColl->adjLinkConfig(intfId);
   auto ls = in_.ldpLinkStatusColl->adjLinkStatus(intfId);
   if (!lc || !ls) return;
   if (!ls->running()) {
      st.errPktCountInc(1);
      LDP_TRACE(th, 3, "LinkStatus is not running.");
      return;
   }
   auto msg = ldpMsgFactory(ldpId, pkt, offset);
   msg->srcIpAddrIs(Nolu::IpGenAddr(info.srcIpAddr));
   Vek::Ptr<LdpMsgPipe> pipe = in_.rxMsgPipeColl->msgPipe(intfId);
   LdpMsgPipe* msgPipe = pipe.ptr();
   VEK_ASSERT(msgPipe != __null);
   msgPipe->txMsgIs(msg);
}

// Membership of the all-routers group follows the links; a failed join or
// leave is tried again later.
void LdpLinkUdpPamSm::handleLinkConfigColl(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   Nolu::IpAddr group = allRoutersGroup();
   bool wanted = in_.ldpLinkConfigColl->adjLinkConfigHas(intfId);
   auto retry = [&] {
      if (!intfMcastColl_.contains(intfId)) intfMcastColl_.emplace(intfId, true);
      intfMcastTimerTask_->scheduleTaskDelay(in_.ldpLinkCommonConfig->retryInterval());
   };
   if (!in_.deviceIntfStatusDir->intfStatusAndDeviceNameHas(intfId)) {
      LDP_TRACE(th, 3, " Could not find the deviceName for intf " << intfId);
      if (wanted) retry();
      else intfMcastColl_.erase(intfId);
      return;
   }
   std::string device = in_.deviceIntfStatusDir->intfStatusAndDeviceName(intfId);
   intfMcastColl_.erase(intfId);
   int err = 0;
   if (!in_.udpPam) return;
   if (wanted) {
      LDP_TRACE(th, 5, "Join multicast group: " << group << " on interface: " << device);
      err = in_.udpPam->handleV4McastGroup(device, group, true);
      if (err) {
         LDP_TRACE(th, 3, "Failed in setsockopt(IP_ADD_MEMBERSHIP), errno: " << err);
         if (err != EADDRINUSE) retry();
      }
   } else {
      LDP_TRACE(th, 5, "Leave multicast group: " << group << " on interface: " << device);
      err = in_.udpPam->handleV4McastGroup(device, group, false);
      if (err) {
         LDP_TRACE(th, 3, "Failed in setsockopt(IP_DROP_MEMBERSHIP), errno: " << err);
         if (err != EADDRNOTAVAIL) retry();
      }
   }
}

void LdpLinkUdpPamSm::handleIntfMcastTimerTask() {
   if (!initialized_) return;
   std::vector<Nolu::IntfId> pending;
   for (auto it = intfMcastColl_.begin(); it; ++it) pending.push_back(it.key());
   for (auto const& intfId : pending) {
      LDP_TRACE(th, 5, " IntfId is: " << intfId);
      handleLinkConfigColl(intfId);
   }
}

void LdpLinkUdpPamSm::handleTxMsgPipe(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto pipe = in_.ldpLinkTxMsgPipeColl->msgPipe(intfId);
   if (pipe) txMsgPipe_.is(intfId, this, pipe, intfId, &LdpLinkUdpPamSm::handleTxPamReadable);
   else txMsgPipe_.del(intfId);
}

void LdpLinkUdpPamSm::handleTxPamReadable(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto pipe = in_.ldpLinkTxMsgPipeColl->msgPipe(intfId);
   if (!pipe) return;
   auto msg = pipe->rxMsg();
   if (!msg) return;
   auto& st = *in_.ldpLinkUdpPamStatus;
   U32 const* ifIndex = ifIndexByIntf_.find(intfId);
   if (!ifIndex || !in_.deviceIntfStatusDir->intfStatusAndDeviceNameHas(intfId)) {
      LDP_TRACE(th, 3, " Could not find the deviceName for intf " << intfId);
      st.errPktCountInc(1);
      return;
   }
   auto lc = in_.ldpLinkConfigColl->adjLinkConfig(intfId);
   if (!lc || !in_.udpPam) {
      st.errPktCountInc(1);
      return;
   }
   in_.udpPam->txSrcIpAddrIs(lc->ipAddr());
   in_.udpPam->txDstIpAddrIs(allRoutersGroup());
   in_.udpPam->txPortIs(LdpProtoParam::ldpPort());
   in_.udpPam->txTosIs(LdpProtoParam::ldpTos());
   in_.udpPam->txIfIndexIs(*ifIndex);
   in_.udpPam->sendPkt(msg->pkt());
   LDP_TRACE(th, 9, "Tx Pkt Dump: " << pktHexDump(*msg->pkt()));
   st.txPktCountInc(1);
}

void LdpLinkUdpPamSm::handleIntfIdByIfIndex(U32 const& ifIndex) {
   if (!initialized_) return;
   if (auto const* old = intfByIfIndex_.find(ifIndex)) {
      ifIndexByIntf_.erase(*old);
      intfByIfIndex_.erase(ifIndex);
   }
   if (!in_.deviceIntfStatusDir->intfIdByIfIndexHas(ifIndex)) return;
   Nolu::IntfId intfId = in_.deviceIntfStatusDir->intfIdByIfIndex(ifIndex);
   if (intfId.isEmpty()) return;
   intfByIfIndex_.emplace(ifIndex, intfId);
   if (auto* p = ifIndexByIntf_.find(intfId)) *p = ifIndex;
   else ifIndexByIntf_.emplace(intfId, ifIndex);
}

}  // namespace Ldp
