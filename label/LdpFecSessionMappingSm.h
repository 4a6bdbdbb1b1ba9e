#pragma once
// The sender side of local labels for every FEC session: label by label it
// decides whether a Label Mapping or a Label Withdraw is due, sends it, and
// keeps localLabelState and localLabelSessionState. The decisions are pure
// functions of the FEC's, the session's and the FEC session's state.
#include "label/LdpFecSessionWorker.h"

namespace Ldp {

// The inputs of the mapping decision, gathered from the three statuses.
struct MappingReadyInputs {
   bool isOrdered = false;
   bool isUnsolicit = false;
   bool isLabelRequested = false;
   bool isLabelSent = false;
   bool isOtherLabelsSent = false;
   bool isDsMappingAvail = false;
   bool isNexthopLsr = false;
   bool isPeerReleased = false;
   bool isCrossSessionNotification = false;
   bool isEgress = false;
   bool loopDetection = false;
   bool isPeerReleaseOutstanding = false;
   bool isAttrChanged = false;
};
// Whether a Label Mapping is due; reason gets the label of the outcome.
bool computeMappingMsgSendReadyHelper(MappingReadyInputs const& in, std::string* reason);
// Whether a sent label is to be withdrawn.
bool computeWithdrawMsgSendReadyHelper(MappingReadyInputs const& in, std::string* reason);

class LdpFecSessionMappingSm : public LdpSm {
 public:
   using Inputs = LdpFecSessionWorkerInputs;
   static Vek::Ptr<LdpFecSessionMappingSm> LdpFecSessionMappingSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFecSessionMappingSm>(instId, in);
   }
   LdpFecSessionMappingSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   // Changes that review all FEC sessions of a FEC.
   void handleFecConfig(Mpls::FwdEqvClass const& fec);
   void handleFecConfigVia(Mpls::FwdEqvClass const& fec, Via const&) { handleFecConfig(fec); }
   void handleFecConfigDownstreamLsr(Mpls::FwdEqvClass const& fec, LdpIdentifier const&) {
      handleFecConfig(fec);
   }
   void handleFecConfigDownstreamLsrMappingAvail(Mpls::FwdEqvClass const& fec) {
      handleFecConfig(fec);
   }
   void handleFecConfigLdpLabelDistCtrl(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigLdpLabelRetention(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigLdpLoopDetection(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigLdpFecLspRole(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigMplsLabel(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel const& label) {
      handleMplsLabel(fec, label);
   }
   void handleFecStatusLabelXsessionMappingSmNotiTime(Mpls::FwdEqvClass const& fec) {
      handleFecConfig(fec);
   }
   void handleFecStatusAttributeVersion(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleMplsLabel(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel const& label);
   void handleSessionStatus(LdpSessionId const& id);
   void handleFecSessionStatus(LdpFecSessionId const& id) { handleFecSesionStatus(id); }
   void handleFecSessionStatusIsNexthopLsr(LdpFecSessionId const& id) { queue(id); }
   void handleFecSesionStatus(LdpFecSessionId const& id);
   void handleCount() { handleSingletonRxSmNotify(in_.singletonMappingSmConfig->fecSessionId()); }
   void handleSingletonRxSmNotify(LdpFecSessionId const& id);
   void handleLocalLabelStateTimerTask();
   void handleDeferredWithdrawTimerTask();

   void processFecSessionMapping(LdpFecSessionId const& id);
   void processMplsLabel(LdpFecSessionId const& id, Nolu::MplsLabel label);
   void processFecSessionWithdraw(LdpFecSessionId const& id);
   bool computeMappingMsgSendReady(LdpFecSessionId const& id, Nolu::MplsLabel label);
   bool computeWithdrawMsgSendReady(LdpFecSessionId const& id, Nolu::MplsLabel label);
   void computeLocalLabelSessionState(LdpFecSessionId const& id);
   void sendMappingMessage(LdpFecSessionId const& id, Nolu::MplsLabel label);
   void sendWithdrawMessage(LdpFecSessionId const& id, Nolu::MplsLabel label);

   std::string const& reason() const { return reason_; }
   Vek::Seconds withdrawDelayTime() const { return withdrawDelayTime_; }
   void withdrawDelayTimeIs(Vek::Seconds d) { withdrawDelayTime_ = d; }

 private:
   void queue(LdpFecSessionId const& id);
   bool gather(LdpFecSessionId const& id, Nolu::MplsLabel label, MappingReadyInputs* out);
   // The FEC's cross-session notification, if one of the given kind is in
   // force for this session.
   LdpXsessionNotification const* mappingNotification(LdpFecSessionId const& id) const;

   Inputs in_;
   std::string reason_;
   Vek::HashMap<LdpFecSessionId, bool> fecSessionWorkQueue_;
   Vek::Ptr<Hesk::TimerTask> localLabelStateTimerTask_;
   Vek::HashMap<LdpFecSessionId, double> fecSessionWithdrawQueue_;
   Vek::Seconds withdrawDelayTime_ = 1.0;
   Vek::Seconds nextScheduleTime_ = 0.0;
   Vek::Bookmark<LdpFecSessionId> withdrawQueueBookmark_;
   Vek::Ptr<Hesk::TimerTask> deferredWithdrawTimerTask_;
   bool reentrantFlag_ = false;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFecSessionMappingSm>> fecConfigReactor_;
   Vek::Input<LdpFecStatusColl::Reactor<LdpFecSessionMappingSm>> fecStatusReactor_;
   Vek::Input<LdpFecSessionStatusColl::Reactor<LdpFecSessionMappingSm>> fecSessionReactor_;
   Vek::Input<SessionStatusCollWatch<LdpFecSessionMappingSm>> sessionReactor_;
   Vek::Input<LdpFecSessionMappingSmConfig::Reactor<LdpFecSessionMappingSm>> singletonReactor_;
};

}  // namespace Ldp
