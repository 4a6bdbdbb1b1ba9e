#include "discovery/LdpTargetSm.h"

#include "discovery/LdpHelloPdu.h"
#include "discovery/LdpPktDump.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTarget");
}

LdpTargetSm::LdpTargetSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpTargetConfig);
   Vek::validPtr(in_.ldpTargetCommonConfig);
   Vek::validPtr(in_.ldpProtoParam);
   Vek::validPtr(in_.ldpTargetStatus);
   Vek::validPtr(in_.ldpAdjConfigColl);
   Vek::validPtr(in_.ldpAdjStatusColl);
   Vek::validPtr(in_.ldpAdjMsgPipe);
   Vek::validPtr(in_.status);
   Vek::validPtr(in_.scheduler);
   ldpTargetConfigReactor_.init(this, in_.ldpTargetConfig);
   ldpTargetCommonConfigReactor_.init(this, in_.ldpTargetCommonConfig);
   ldpProtoParamReactor_.init(this, in_.ldpProtoParam);
   ldpTargetStatusReactor_.init(this, in_.ldpTargetStatus);
   ldpAdjStatusCollReactor_.init(this, in_.ldpAdjStatusColl);
   rxMsgPipeReactor_.init(this, in_.rxMsgPipe);
   handleInitialized();
}

void LdpTargetSm::handleInitialized() {
   LDP_HANDLER(th, "LdpTargetSm::handleInitialized " << in_.targetIpAddr);
   txTimerTask_ = Hesk::timerTaskIs(this, &LdpTargetSm::handleTxTimerTask, in_.scheduler, 0,
                                    "TargetSm-" + in_.targetIpAddr.stringValue());
   initialized_ = true;
   auto* pm = Nolu::globalPktManager();
   if (pm->defaultBufferSize() <= 9600) pm->defaultBufferSizeIs(9600);
   in_.ldpTargetStatus->runningIs(false);
   handleConfig();
   computeRunning();
}

void LdpTargetSm::computeRunning() {
   if (!initialized_) return;
   auto const& st = *in_.ldpTargetStatus;
   auto const& cc = *in_.ldpTargetCommonConfig;
   char const* r = "Is Running";
   bool running = false;
   if (in_.ldpTargetConfig->configState() != configEnabled_) r = "Not Running: config not enabled";
   else if (st.interval() == 0) r = "Not Running: 0 interval";
   else if (st.holdTime() == 0) r = "Not Running: 0 holdTime";
   else if (cc.ipTransportAddr() == Nolu::IpGenAddr()) r = "Not Running: Transport IP not set";
   else if (cc.ttl() == 0) r = "Not Running: 0 TTL";
   else if (cc.ldpId().lsrId() == 0) r = "Not Running: Invalid LdpId";
   else running = true;
   if (reason_ != r) {
      reason_ = r;
      LDP_TRACE(th, 5, in_.targetIpAddr << " " << reason_);
   }
   in_.ldpTargetStatus->runningIs(running);
}

void LdpTargetSm::handleConfig() {
   if (!initialized_) return;
   auto const& tc = *in_.ldpTargetConfig;
   auto const& cc = *in_.ldpTargetCommonConfig;
   in_.ldpTargetStatus->intervalIs(tc.interval() ? tc.interval() : cc.interval());
   in_.ldpTargetStatus->holdTimeIs(tc.holdTime() ? tc.holdTime() : cc.holdTime());
}

void LdpTargetSm::handleHdrConfig() {
   if (!initialized_) return;
   in_.ldpTargetStatus->pktVersionIs(in_.ldpTargetStatus->pktVersion() + 1);
}

void LdpTargetSm::handleRunning() {
   if (!initialized_) return;
   LDP_TRACE(th, 5, in_.targetIpAddr << " running: " << in_.ldpTargetStatus->running());
   in_.ldpTargetStatus->pktVersionIs(in_.ldpTargetStatus->pktVersion() + 1);
   if (in_.ldpTargetStatus->running()) handleTxTimerTask();
}

// Every targeted Hello asks the neighbour to answer with Hellos of its own.
void LdpTargetSm::handlePktVersion() {
   if (!initialized_) return;
   if (!in_.ldpTargetStatus->running()) {
      pkt_ = nullptr;
      ldpMsgGen_ = nullptr;
      return;
   }
   auto const& cc = *in_.ldpTargetCommonConfig;
   VEK_ASSERT(ldpTargetCommonConfig()->ipTransportAddr().af() == Nolu::ipv4_);
   ldpMsgGen_ = ldpHelloPduBuild(pkt_, cc.ldpId(), in_.status->statistics()->messageIdInc(1),
                                 in_.ldpTargetStatus->holdTime(), true, cc.ipTransportAddr(),
                                 cc.configSeqNum(), *in_.ldpProtoParam);
}

// The shared channel takes this packet's destination right before the send.
void LdpTargetSm::handleTxTimerTask() {
   if (!initialized_) return;
   if (!in_.ldpTargetStatus->running()) {
      txTimerTask_->stopTimerTask();
      return;
   }
   txTimerTask_->scheduleTaskDelay(Vek::Seconds(in_.ldpTargetStatus->interval()));
   VEK_ASSERT(pkt() && "Internal Error. pkt is NULL");
   VEK_ASSERT(ldpMsgGen() && "Internal Error. ldpMsgGen is NULL");
   VEK_ASSERT(txUdpPam() && "Internal Error. txUdpPam is NULL");
   ldpMsgGen_->messageIdIs(in_.status->statistics()->messageIdInc(1));
   auto& pam = *in_.txUdpPam;
   pam.txTosIs(LdpProtoParam::ldpTos());
   pam.txTtlIs(in_.ldpTargetCommonConfig->ttl());
   pam.txSrcIpAddrIs(in_.ldpTargetCommonConfig->ipTransportAddr().v4Addr());
   pam.txDstIpAddrIs(in_.targetIpAddr);
   pam.txPortIs(LdpProtoParam::ldpPort());
   pam.txIfIndexIs(0);
   // The channel is shared with the targeted Hello server: an open channel
   // can send as it is, and reopening it would drop what it receives. A
   // closed one opens on the address and port that the server would take.
   if (pam.mode() == 0) {
      pam.rxIpAddrIs(in_.ldpTargetCommonConfig->ipTransportAddr().v4Addr());
      pam.rxPortIs(LdpProtoParam::ldpPort());
      pam.modeIs(1);
   }
   pam.sendPkt(pkt_);
   in_.ldpTargetStatus->txPktCountInc(1);
   LDP_TRACE(th, 9, "Tx Pkt Dump: " << pktHexDump(*pkt_));
}

void LdpTargetSm::resetTxTimer() {
   if (initialized_ && in_.ldpTargetStatus->running()) txTimerTask_->scheduleTaskDelay(0.1);
}

void LdpTargetSm::handleIpTransportAddr() {
   if (!initialized_) return;
   if (in_.ldpTargetCommonConfig->ipTransportAddr() == ipTransportAddr_) return;
   ipTransportAddr_ = in_.ldpTargetCommonConfig->ipTransportAddr();
   resetTxTimer();
}

void LdpTargetSm::handleLocalLdpIdentifier() {
   if (!initialized_) return;
   if (in_.ldpTargetCommonConfig->ldpId() == localLdpIdentifier_) return;
   localLdpIdentifier_ = in_.ldpTargetCommonConfig->ldpId();
   resetTxTimer();
}

void LdpTargetSm::handleLdpAdjChange(LdpAdjId const& adjId) {
   if (!initialized_) return;
   if (in_.ldpAdjStatusColl->adjStatusHas(adjId)) return;
   if (adjId.isTarget() && adjId.targetIpAddr() == in_.targetIpAddr) resetTxTimer();
}

void LdpTargetSm::handleRxMsg() {
   if (!initialized_ || !in_.rxMsgPipe) return;
   auto msg = in_.rxMsgPipe->rxMsg();
   if (!msg) return;
   LDP_TRACE(th, 9, "Rx Pkt Dump: " << pktHexDump(*msg->pkt()));
   in_.ldpTargetStatus->rxPktCountInc(1);
   LdpAdjId adjId(in_.targetIpAddr, msg->ldpIdentifier());
   if (!in_.ldpAdjConfigColl->adjConfigHas(adjId)) {
      auto ac = in_.ldpAdjConfigColl->adjConfigIs(adjId);
      ac->holdTimeIs(in_.ldpTargetStatus->holdTime());
      txTimerTask_->scheduleTaskLowestDelay(txTimeNewAdjDelay_);
   }
   Vek::Ptr<LdpMsgPipe> pipe = in_.ldpAdjMsgPipe->msgPipe(adjId);
   LdpMsgPipe* msgPipe = pipe.ptr();
   VEK_ASSERT(msgPipe != __null);
   msgPipe->txMsgIs(msg);
}

LdpTargetSmManager::LdpTargetSmManager(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpProtoParam);
   Vek::validPtr(in_.ldpTargetConfigColl);
   Vek::validPtr(in_.ldpTargetStatusColl);
   Vek::validPtr(in_.ldpTargetSmColl);
   Vek::validPtr(in_.ldpTargetMsgPipeCollection);
   Vek::validPtr(in_.status);
   ldpTargetConfigCollReactor_.init(this, in_.ldpTargetConfigColl);
   handleInitialized();
}

void LdpTargetSmManager::handleInitialized() {
   initialized_ = true;
   for (auto it = in_.ldpTargetConfigColl->adjTargetConfigIter(); it; ++it)
      handleLdpTargetConfig(it.key());
}

void LdpTargetSmManager::handleLdpTargetConfig(Nolu::IpAddr const& address) {
   if (!initialized_) return;
   auto tc = in_.ldpTargetConfigColl->adjTargetConfig(address);
   if (!tc) {
      LDP_TRACE(th, 5, "Deleting LdpTargetSm " << address);
      in_.ldpTargetSmColl->targetSmDel(address);
      in_.ldpTargetStatusColl->adjTargetStatusDel(address);
      in_.ldpTargetMsgPipeCollection->msgPipeDel(address);
      return;
   }
   if (in_.ldpTargetSmColl->targetSm(address)) return;
   LDP_TRACE(th, 5, "Creating LdpTargetSm " << address);
   auto ts = in_.ldpTargetStatusColl->adjTargetStatusIs(address);
   if (!in_.ldpTargetMsgPipeCollection->msgPipe(address))
      in_.ldpTargetMsgPipeCollection->msgPipeIs(address, ldpMsgPipeFactory(""));
   LdpTargetSm::Inputs ti;
   ti.targetIpAddr = address;
   ti.ldpTargetConfig = tc;
   ti.ldpTargetCommonConfig = in_.ldpTargetConfigColl->ldpTargetCommonConfig();
   ti.ldpProtoParam = in_.ldpProtoParam;
   ti.ldpTargetStatus = ts;
   ti.ldpAdjConfigColl = in_.ldpAdjConfigColl;
   ti.ldpAdjStatusColl = in_.ldpAdjStatusColl;
   ti.ldpAdjMsgPipe = in_.ldpAdjMsgPipe;
   ti.txUdpPam = in_.txUdpPam;
   ti.rxMsgPipe = in_.ldpTargetMsgPipeCollection->msgPipe(address);
   ti.status = in_.status;
   ti.scheduler = in_.scheduler;
   in_.ldpTargetSmColl->targetSmIs(address, LdpTargetSm::LdpTargetSmIs(instId(), ti));
}

}  // namespace Ldp
