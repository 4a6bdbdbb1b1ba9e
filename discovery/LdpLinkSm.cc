#include "discovery/LdpLinkSm.h"

#include "discovery/LdpHelloPdu.h"
#include "discovery/LdpPktDump.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLink");
}  // namespace

LdpLinkSm::LdpLinkSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpLinkConfig);
   Vek::validPtr(in_.ldpLinkCommonConfig);
   Vek::validPtr(in_.ldpProtoParam);
   Vek::validPtr(in_.ldpLinkStatus);
   Vek::validPtr(in_.ldpAdjConfigColl);
   Vek::validPtr(in_.ldpAdjStatusColl);
   Vek::validPtr(in_.ldpAdjMsgPipe);
   Vek::validPtr(in_.status);
   Vek::validPtr(in_.txMsgPipe);
   Vek::validPtr(in_.scheduler);
   ldpLinkConfigReactor_.init(this, in_.ldpLinkConfig);
   ldpLinkCommonConfigReactor_.init(this, in_.ldpLinkCommonConfig);
   ldpProtoParamReactor_.init(this, in_.ldpProtoParam);
   ldpLinkStatusReactor_.init(this, in_.ldpLinkStatus);
   ldpAdjStatusCollReactor_.init(this, in_.ldpAdjStatusColl);
   rxMsgPipeReactor_.init(this, in_.rxMsgPipe);
   handleInitialized();
}

void LdpLinkSm::handleInitialized() {
   LDP_HANDLER(th, "LdpLinkSm::handleInitialized " << in_.intfId);
   txTimer_ = Hesk::timerTaskIs(this, &LdpLinkSm::handleTxTimer, in_.scheduler, 0,
                                "LinkSm-" + in_.intfId.name() + "-TxTimerTask");
   initialized_ = true;
   // Jumbo-sized PDUs must fit in a packet.
   auto* pm = Nolu::globalPktManager();
   if (pm->defaultBufferSize() <= 9600) pm->defaultBufferSizeIs(9600);
   in_.ldpLinkStatus->runningIs(false);
   handleConfig();
   computeRunning();
}

// The first failed test names why the link doesn't run.
void LdpLinkSm::computeRunning() {
   if (!initialized_) return;
   auto const& st = *in_.ldpLinkStatus;
   auto const& lc = *in_.ldpLinkConfig;
   auto const& cc = *in_.ldpLinkCommonConfig;
   char const* r = "Is Running";
   bool running = false;
   if (st.interval() == 0) r = "Not Running: 0 interval";
   else if (st.holdTime() == 0) r = "Not Running: 0 holdTime";
   else if (lc.ipAddr().isZero()) r = "Not Running: Interface has Invalid IP Address";
   else if (cc.ipTransportAddr() == Nolu::IpGenAddr()) r = "Not Running: Invalid Router ID";
   else if (cc.ttl() == 0) r = "Not Running: 0 TTL";
   else if (cc.ldpId().lsrId() == 0) r = "Not Running: Invalid LdpId";
   else if (lc.operStatus() != Interface::intfOperUp_ &&
            lc.operStatus() != Interface::intfOperNotPresent_)
      r = "Not Running: Interface is down";
   else running = true;
   if (reason_ != r) {
      reason_ = r;
      LDP_TRACE(th, 5, in_.intfId << " " << reason_);
   }
   in_.ldpLinkStatus->runningIs(running);
}

void LdpLinkSm::handleConfig() {
   if (!initialized_) return;
   auto const& lc = *in_.ldpLinkConfig;
   auto const& cc = *in_.ldpLinkCommonConfig;
   in_.ldpLinkStatus->intervalIs(lc.interval() ? lc.interval() : cc.interval());
   in_.ldpLinkStatus->holdTimeIs(lc.holdTime() ? lc.holdTime() : cc.holdTime());
}

// A running link that stops builds no packet for the state it has left; a
// stopped link that starts gets its packet through handleRunning.
void LdpLinkSm::handleHdrConfig() {
   if (!initialized_) return;
   if (in_.ldpLinkStatus->running()) {
      computeRunning();
      in_.ldpLinkStatus->pktVersionIs(in_.ldpLinkStatus->pktVersion() + 1);
   } else {
      in_.ldpLinkStatus->pktVersionIs(in_.ldpLinkStatus->pktVersion() + 1);
      computeRunning();
   }
}

void LdpLinkSm::handleRunning() {
   if (!initialized_) return;
   LDP_TRACE(th, 5, in_.intfId << " running: " << in_.ldpLinkStatus->running());
   in_.ldpLinkStatus->pktVersionIs(in_.ldpLinkStatus->pktVersion() + 1);
   if (in_.ldpLinkStatus->running()) handleTxTimer();
}

void LdpLinkSm::handlePktVersion() {
   if (!initialized_) return;
   if (!in_.ldpLinkStatus->running()) {
      pkt_ = nullptr;
      ldpMsgGen_ = nullptr;
      return;
   }
   auto const& cc = *in_.ldpLinkCommonConfig;
   VEK_ASSERT(ldpLinkCommonConfig()->ipTransportAddr().af() == Nolu::ipv4_);
   ldpMsgGen_ = ldpHelloPduBuild(pkt_, cc.ldpId(), in_.status->statistics()->messageIdInc(1),
                                 in_.ldpLinkStatus->holdTime(), false, cc.ipTransportAddr(),
                                 cc.configSeqNum(), *in_.ldpProtoParam);
}

// The timer is re-armed before sending, with no jitter.
void LdpLinkSm::handleTxTimer() {
   if (!initialized_) return;
   if (!in_.ldpLinkStatus->running()) {
      txTimer_->stopTimerTask();
      return;
   }
   txTimer_->scheduleTaskDelay(Vek::Seconds(in_.ldpLinkStatus->interval()));
   VEK_ASSERT(pkt() && "Internal Error. pkt is NULL");
   VEK_ASSERT(ldpMsgGen() && "Internal Error. ldpMsgGen is NULL");
   auto msg = ldpMsgFactory(in_.ldpLinkCommonConfig->ldpId(), pkt_, 0);
   ldpMsgGen_->messageIdIs(in_.status->statistics()->messageIdInc(1));
   in_.txMsgPipe->txMsgIs(msg);
   in_.ldpLinkStatus->txPktCountInc(1);
}

void LdpLinkSm::resetTxTimer() {
   if (initialized_ && in_.ldpLinkStatus->running()) txTimer_->scheduleTaskDelay(0.1);
}

void LdpLinkSm::handleIpTransportAddr() {
   if (!initialized_) return;
   if (in_.ldpLinkCommonConfig->ipTransportAddr() == ipTransportAddr_) return;
   ipTransportAddr_ = in_.ldpLinkCommonConfig->ipTransportAddr();
   resetTxTimer();
}

void LdpLinkSm::handleLocalLdpIdentifier() {
   if (!initialized_) return;
   if (in_.ldpLinkCommonConfig->ldpId() == localLdpIdentifier_) return;
   localLdpIdentifier_ = in_.ldpLinkCommonConfig->ldpId();
   resetTxTimer();
}

// A lost neighbour is answered with a prompt Hello.
void LdpLinkSm::handleLdpAdjChange(LdpAdjId const& adjId) {
   if (!initialized_) return;
   if (in_.ldpAdjStatusColl->adjStatusHas(adjId)) return;
   if (adjId.isLink() && adjId.intfId() == in_.intfId) resetTxTimer();
}

void LdpLinkSm::handleRxMsg() {
   if (!initialized_ || !in_.rxMsgPipe) return;
   auto msg = in_.rxMsgPipe->rxMsg();
   if (!msg) return;
   LDP_TRACE(th, 9, "Rx Pkt Dump: " << pktHexDump(*msg->pkt()));
   in_.ldpLinkStatus->rxPktCountInc(1);
   LdpAdjId adjId(in_.intfId, msg->ldpIdentifier());
   if (!in_.ldpAdjConfigColl->adjConfigHas(adjId)) {
      VEK_ASSERT(ldpLinkStatus()->running() && "Internal Error");
      in_.ldpAdjConfigColl->adjConfigIs(adjId);
      // A new neighbour gets a Hello soon; an earlier scheduled one stays.
      txTimer_->scheduleTaskLowestDelay(txTimeNewAdjDelay_);
   }
   Vek::Ptr<LdpMsgPipe> pipe = in_.ldpAdjMsgPipe->msgPipe(adjId);
   LdpMsgPipe* msgPipe = pipe.ptr();
   VEK_ASSERT(msgPipe != __null);
   msgPipe->txMsgIs(msg);
}

LdpLinkSmManager::LdpLinkSmManager(U32 instId,
                                   Vek::Ptr<LdpProtoParamConfig const> const& ldpProtoParam,
                                   Vek::Ptr<LdpLinkConfigColl const> const& ldpLinkConfigColl,
                                   Vek::Ptr<LdpLinkStatusColl> const& ldpLinkStatusColl,
                                   Vek::Ptr<LdpLinkSmColl> const& ldpLinkSmColl,
                                   Vek::Ptr<LdpAdjConfigColl> const& ldpAdjConfigColl,
                                   Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                                   Vek::Ptr<LdpAdjMsgPipeCollection const> const& ldpAdjMsgPipe,
                                   Vek::Ptr<LdpLinkMsgPipeCollection> const& rxMsgPipeColl,
                                   Vek::Ptr<LdpLinkMsgPipeCollection> const& txMsgPipeColl,
                                   Vek::Ptr<Status> const& status,
                                   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), ldpProtoParam_(Vek::validPtr(ldpProtoParam)),
     ldpLinkConfigColl_(Vek::validPtr(ldpLinkConfigColl)),
     ldpLinkStatusColl_(Vek::validPtr(ldpLinkStatusColl)),
     ldpLinkSmColl_(Vek::validPtr(ldpLinkSmColl)),
     ldpAdjConfigColl_(Vek::validPtr(ldpAdjConfigColl)),
     ldpAdjStatusColl_(Vek::validPtr(ldpAdjStatusColl)),
     ldpAdjMsgPipe_(Vek::validPtr(ldpAdjMsgPipe)), rxMsgPipeColl_(Vek::validPtr(rxMsgPipeColl)),
     txMsgPipeColl_(Vek::validPtr(txMsgPipeColl)), status_(Vek::validPtr(status)),
     scheduler_(Vek::validPtr(scheduler)) {
   ldpLinkConfigCollReactor_.init(this, ldpLinkConfigColl_);
   handleInitialized();
}

void LdpLinkSmManager::handleInitialized() {
   initialized_ = true;
   for (auto it = ldpLinkConfigColl_->adjLinkConfigIter(); it; ++it) handleLdpLinkConfig(it.key());
}

void LdpLinkSmManager::handleLdpLinkConfig(Nolu::IntfId const& intfId) {
   if (!initialized_) return;
   auto lc = ldpLinkConfigColl_->adjLinkConfig(intfId);
   if (!lc) {
      LDP_TRACE(th, 5, "Deleting LdpLinkSm " << intfId);
      ldpLinkSmColl_->adjLinkSmDel(intfId);
      ldpLinkStatusColl_->adjLinkStatusDel(intfId);
      rxMsgPipeColl_->msgPipeDel(intfId);
      txMsgPipeColl_->msgPipeDel(intfId);
      return;
   }
   if (ldpLinkSmColl_->adjLinkSm(intfId)) return;
   LDP_TRACE(th, 5, "Creating LdpLinkSm " << intfId);
   auto ls = ldpLinkStatusColl_->adjLinkStatusIs(intfId);
   if (!rxMsgPipeColl_->msgPipe(intfId)) rxMsgPipeColl_->msgPipeIs(intfId, ldpMsgPipeFactory(""));
   if (!txMsgPipeColl_->msgPipe(intfId)) txMsgPipeColl_->msgPipeIs(intfId, ldpMsgPipeFactory(""));
   LdpLinkSm::Inputs in;
   in.intfId = intfId;
   in.ldpLinkConfig = lc;
   in.ldpLinkCommonConfig = ldpLinkConfigColl_->ldpLinkCommonConfig();
   in.ldpProtoParam = ldpProtoParam_;
   in.ldpLinkStatus = ls;
   in.ldpLinkCommonStatus = ldpLinkStatusColl_->ldpLinkCommonStatusIs();
   in.ldpAdjConfigColl = ldpAdjConfigColl_;
   in.ldpAdjStatusColl = ldpAdjStatusColl_;
   in.ldpAdjMsgPipe = ldpAdjMsgPipe_;
   in.status = status_;
   in.rxMsgPipe = rxMsgPipeColl_->msgPipe(intfId);
   in.txMsgPipe = txMsgPipeColl_->msgPipe(intfId);
   in.scheduler = scheduler_;
   ldpLinkSmColl_->adjLinkSmIs(intfId, LdpLinkSm::LdpLinkSmIs(instId(), in));
}

}  // namespace Ldp
