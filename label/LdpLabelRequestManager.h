#pragma once
// Decides which FECs need a local label and keeps the table of label requests
// in step, through a work queue that gives the loop up when asked.
#include "entities/LdpLabel.h"
#include "entities/LdpSm.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpLabelRequestManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<LdpFecConfigColl const> ldpFecConfigColl;
      Vek::Ptr<LabelAllocRequestTable> labelAllocRequestTable;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpLabelRequestManager> LdpLabelRequestManagerIs(U32 instId,
                                                                    Inputs const& in) {
      return Vek::makeSm<LdpLabelRequestManager>(instId, in);
   }
   LdpLabelRequestManager(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleFecConfig(Mpls::FwdEqvClass const& fec);
   void handleFecConfigMembership(Mpls::FwdEqvClass const& f, LdpFecConfigMembership const&) {
      handleFecConfig(f);
   }
   void handleFecConfigVia(Mpls::FwdEqvClass const& f, Via const&) { handleFecConfig(f); }
   void handleFecConfigFecFilteredState(Mpls::FwdEqvClass const& f) { handleFecConfig(f); }
   void handleFecConfigLdpFecDeliveryType(Mpls::FwdEqvClass const& f) { handleFecConfig(f); }
   void handleLabelReqTimerTask();
   void processFecConfig(Mpls::FwdEqvClass const& fec);

   std::size_t workQueueSize() const { return workQueue_.size(); }

 private:
   Inputs in_;
   // FECs to look at, in the order they came.
   Vek::HashMap<Mpls::FwdEqvClass, bool> workQueue_;
   Vek::Ptr<Hesk::TimerTask> labelReqTimerTask_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpLabelRequestManager>> fecConfigReactor_;
};

}  // namespace Ldp
