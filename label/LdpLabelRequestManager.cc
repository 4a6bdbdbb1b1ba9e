#include "label/LdpLabelRequestManager.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLabelRequest");
}

LdpLabelRequestManager::LdpLabelRequestManager(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.labelAllocRequestTable);
   Vek::validPtr(in_.scheduler);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   handleInitialized();
}

void LdpLabelRequestManager::handleInitialized() {
   labelReqTimerTask_ = Hesk::timerTaskIs(this, &LdpLabelRequestManager::handleLabelReqTimerTask,
                                          in_.scheduler, 2, "LabelRequestTimer");
   initialized_ = true;
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) processFecConfig(f);
   // Requests left from an earlier run whose FEC has gone.
   fecs.clear();
   for (auto it = in_.labelAllocRequestTable->labelBindingRequestIter(); it; ++it)
      fecs.push_back(it.key());
   for (auto const& f : fecs) processFecConfig(f);
}

void LdpLabelRequestManager::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   workQueue_.emplace(fec, true);
   labelReqTimerTask_->scheduleTaskDelay(0.0);
   labelReqTimerTask_->taskWorkPendingIs(workQueue_.size());
}

void LdpLabelRequestManager::handleLabelReqTimerTask() {
   if (!initialized_) return;
   U64 count = 0;
   while (!workQueue_.empty()) {
      Mpls::FwdEqvClass fec = workQueue_.begin().key();
      workQueue_.erase(fec);
      processFecConfig(fec);
      ++count;
      if (labelReqTimerTask_->taskShouldYield()) {
         LDP_TRACE(th, 8, "labelReqTimerTask yieldTask");
         break;
      }
   }
   if (!workQueue_.empty()) {
      LDP_TRACE(th, 8, "labelReqTimerTask pending: " << workQueue_.size());
      labelReqTimerTask_->scheduleTaskDelay(0.0);
   }
   labelReqTimerTask_->taskWorkCountInc(count);
   labelReqTimerTask_->taskWorkPendingIs(workQueue_.size());
}

// A FEC asks for one label while it is delivered somewhere, has a via, is
// held by a route, a static binding, a tunnel end point or (for a host
// prefix) a session, and is not filtered.
void LdpLabelRequestManager::processFecConfig(Mpls::FwdEqvClass const& fec) {
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   bool want = cfg && cfg->ldpFecDeliveryType() != deliveryNone_ && cfg->viaSize() > 0 &&
               cfg->fecFilteredState() == Mpls::fecUnfiltered_ &&
               (cfg->membershipHas(membershipRoute_) ||
                (cfg->membershipHas(membershipSession_) && fec.prefix().len() == 32) ||
                cfg->membershipHas(membershipStatic_) || cfg->membershipHas(membershipTunnel_));
   auto* table = in_.labelAllocRequestTable.ptr();
   if (want) {
      LDP_TRACE(th, 8, "Adding label request of type: " << int(cfg->ldpFecDeliveryType()) << " "
                                                         << fec);
      auto req = table->labelBindingRequestIs(fec);
      req->numLabelsRequestedIs(1);
      if (req) req->ldpFecDeliveryTypeIs(cfg->ldpFecDeliveryType());
   } else if (table->labelBindingRequestHas(fec)) {
      LDP_TRACE(th, 8, "Removing label request " << fec);
      table->labelBindingRequestDel(fec);
   }
}

}  // namespace Ldp
