#include "label/LdpFecSmManager.h"

#include "entities/Functions.h"
#include "wire/LdpMsgGen.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecSm");
}

LdpFecSm::LdpFecSm(LdpFecSmManager* owner, Mpls::FwdEqvClass const& fec,
                   Vek::Ptr<LdpMsgPipe> const& pipe)
   : LdpSm(owner->instId()), owner_(owner), fec_(fec), pipe_(pipe) {
   pipeReactor_.init(this, pipe_);
   initialized_ = true;
   // What was sent before the relay existed.
   handleMsgReadableCount();
}

void LdpFecSm::handleMsgReadableCount() {
   if (!initialized_) return;
   while (auto msg = pipe_->rxMsg()) owner_->relayMsg(fec_, msg);
}

LdpFecSmManager::LdpFecSmManager(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpFecStatusColl);
   Vek::validPtr(in_.ldpFecMsgPipeColl);
   Vek::validPtr(in_.ldpFecSessionRxNotifier);
   Vek::validPtr(in_.ldpFecSessionMsgPipe);
   Vek::validPtr(in_.scheduler);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   fecStatusReactor_.init(this, in_.ldpFecStatusColl);
   handleInitialized();
}

LdpFecSmManager::~LdpFecSmManager() { fecSm_.clear(); }

void LdpFecSmManager::handleInitialized() {
   LDP_HANDLER(th, "LdpFecSmManager::handleInitialized");
   membershipTimerTask_ = Hesk::timerTaskIs(this, &LdpFecSmManager::handleMembershipTimerTask,
                                            in_.scheduler, 2, "FecSm-Membership");
   initialized_ = true;
   std::vector<Mpls::FwdEqvClass> fecs;
   fecs.reserve(in_.ldpFecConfigColl->fecConfigSize());
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleFecConfig(f);
}

void LdpFecSmManager::handleDelete() {
   initialized_ = false;
   fecSm_.clear();
}

void LdpFecSmManager::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   if (cfg && (cfg->membershipHas(membershipSession_) ||
               cfg->fecFilteredState() == Mpls::fecUnfiltered_)) {
      addFecSm(fec);
   } else {
      delFecSm(fec);
   }
   // An entry made with no reason to exist (a peer's message about a FEC we
   // do not route) is swept like one that lost its last reason.
   if (cfg && cfg->membershipSize() == 0) handleMembership(fec);
}

void LdpFecSmManager::handleFecConfigMembership(Mpls::FwdEqvClass const& fec,
                                                LdpFecConfigMembership const&) {
   if (!initialized_) return;
   handleFecConfig(fec);
   handleMembership(fec);
}

void LdpFecSmManager::handleFecConfigSessionRxReqTime(Mpls::FwdEqvClass const& fec,
                                                      LdpSessionId const&) {
   if (!initialized_) return;
   if (!in_.ldpFecConfigColl->fecConfigHas(fec)) return;
   addFecSm(fec);
   addFecPipe(fec);
}

void LdpFecSmManager::addFecSm(Mpls::FwdEqvClass const& fec) {
   if (in_.ldpFecStatusColl->fecStatusHas(fec)) return;
   LDP_TRACE(th, 8, "addFecSm " << fec);
   in_.ldpFecStatusColl->fecStatusIs(fec);
   handleLoopDetection(fec);
   // A FEC that peers spoke of before it lost its status gets its pipe back.
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   if (cfg && cfg->sessionRxReqTimeSize() > 0) addFecPipe(fec);
}

void LdpFecSmManager::addFecPipe(Mpls::FwdEqvClass const& fec) {
   if (fecSm_.contains(fec) || !in_.ldpFecStatusColl->fecStatusHas(fec)) return;
   auto pipe = in_.ldpFecMsgPipeColl->msgPipe(fec);
   if (!pipe) {
      pipe = ldpMsgPipeFactory("fec");
      in_.ldpFecMsgPipeColl->msgPipeIs(fec, pipe);
   }
   fecSm_.emplace(fec, Vek::Ptr<LdpFecSm>(new LdpFecSm(this, fec, pipe)));
}

void LdpFecSmManager::delFecSm(Mpls::FwdEqvClass const& fec) {
   Vek::Ptr<LdpFecSm> sm;
   if (auto* p = fecSm_.find(fec)) {
      sm = *p;
      fecSm_.erase(fec);
   }
   sm = nullptr;
   if (in_.ldpFecMsgPipeColl->msgPipe(fec)) in_.ldpFecMsgPipeColl->msgPipeDel(fec);
   if (in_.ldpFecStatusColl->fecStatusHas(fec)) {
      LDP_TRACE(th, 8, "delFecSm " << fec);
      in_.ldpFecStatusColl->fecStatusDel(fec);
   }
}

void LdpFecSmManager::relayMsg(Mpls::FwdEqvClass const& fec, Vek::Ptr<LdpMsg> const& msg) {
   LdpFecSessionId id(fec, LdpSessionId(msg->ldpIdentifier()));
   in_.ldpFecSessionRxNotifier->ldpFecSessionIdIs(id);
   in_.ldpFecSessionRxNotifier->changeCntInc(1);
   in_.ldpFecSessionMsgPipe->txMsgIs(msg);
}

void LdpFecSmManager::handleMembership(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   Vek::Seconds now = Vek::System::currentTime();
   double* due = membershipWorkQueue_.find(fec);
   if (due) *due = now + delayMembership_;
   else membershipWorkQueue_.emplace(fec, now + delayMembership_);
   membershipTimerTask_->scheduleTaskLowestDelay(delayMembership_);
}

// FECs whose membership changed a moment ago: those that still have no
// reason to exist go. The walk gives the loop up when the scheduler asks and
// resumes from its bookmark.
void LdpFecSmManager::handleMembershipTimerTask() {
   if (!initialized_) return;
   Vek::Seconds now = Vek::System::currentTime();
   if (!membershipWorkQueueBookmark_.set) nextScheduleTime_ = now + delayMembership_;
   U64 count = 0;
   bool stopped = false;
   auto it = membershipWorkQueue_.iterFrom(membershipWorkQueueBookmark_);
   membershipWorkQueueBookmark_.clear();
   while (it) {
      Mpls::FwdEqvClass fec = it.key();
      double due = it.value();
      ++it;
      if (due > now) {
         nextScheduleTime_ = std::min<double>(nextScheduleTime_, due);
         continue;
      }
      Vek::Bookmark<Mpls::FwdEqvClass> next;
      if (it) next = it.bookmark();
      membershipWorkQueue_.erase(fec);
      auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
      if (cfg && cfg->membershipSize() == 0) {
         LDP_TRACE(th, 7, "delFecConfig " << fec);
         delFecSm(fec);
         in_.ldpFecConfigColl->fecConfigDel(fec);
      }
      ++count;
      if (!next.set) break;
      it = membershipWorkQueue_.iterFrom(next);
      if (membershipTimerTask_->taskShouldYield()) {
         membershipWorkQueueBookmark_ = next;
         stopped = true;
         break;
      }
   }
   membershipTimerTask_->taskWorkCountInc(count);
   membershipTimerTask_->taskWorkPendingIs(membershipWorkQueue_.size());
   if (stopped) {
      LDP_TRACE(th, 7, "Setting bookmark to " << membershipWorkQueueBookmark_.key);
      membershipTimerTask_->scheduleTaskDelay(0.0);
   } else if (!membershipWorkQueue_.empty()) {
      Vek::Seconds delay = std::max(0.0, nextScheduleTime_ - now);
      LDP_TRACE(th, 7, "Delaying " << delay);
      membershipTimerTask_->scheduleTaskDelay(delay);
   }
}

// The hop count and path vector that the FEC's messages carry; the attribute
// version moves when they change, so that the label machines send them again.
void LdpFecSmManager::handleLoopDetection(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto st = in_.ldpFecStatusColl->fecStatus(fec);
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   if (!st || !cfg) return;
   bool include = cfg->ldpLoopDetection();
   U8 mapping = 0, request = 0;
   Vek::Ptr<Nolu::Pkt> pv;
   if (include) {
      LdpFecDeliveryType type = cfg->ldpFecDeliveryType();
      bool end = type == deliveryLocal_ || type == deliveryConnected_ ||
                 cfg->ldpFecLspRole() == lspRoleEgress_;
      mapping = end ? 1 : hopCountInc(st->hopCountMappingLearnt());
      request = type == deliveryLocal_ ? 1 : hopCountInc(st->hopCountRequestLearnt());
      if (!pathVectorPkt_ || !(pathVectorRouterId_ == cfg->routerId())) {
         pathVectorRouterId_ = cfg->routerId();
         pathVectorPkt_ = Nolu::globalPktManager()->newPkt();
         ldpPathVectorTlvGenFactory(pathVectorPkt_)->appendLsrId(pathVectorRouterId_);
      }
      pv = pathVectorPkt_;
   } else if (st->hopCountInclude()) {
      LDP_TRACE(th, 8, fec << " loopDetection is disabled");
   }
   bool changed = st->attributeVersion() == 0 || st->hopCountInclude() != include ||
                  st->hopCountMappingMsg() != mapping || st->hopCountRequestMsg() != request ||
                  st->pathVectorTlvPkt() != pv;
   if (!changed) return;
   st->hopCountIncludeIs(include);
   st->pathVectorIncludeIs(include);
   st->hopCountMappingMsgIs(mapping);
   st->hopCountRequestMsgIs(request);
   st->pathVectorTlvPktIs(pv);
   st->attributeVersionIs(st->attributeVersion() + 1);
}

}  // namespace Ldp
