#pragma once
// Answers the peer's Label Withdraw for one pseudowire on one session with
// Label Releases, and releases the labels that a newer mapping replaced.
// Pseudowire labels are never requested from the peer: the readiness of a
// Request or an Abort always says no.
#include "pw/PwFecSessionLocalTxSm.h"

namespace Ldp {

class PwFecSessionRemoteTxSm : public LdpSm {
 public:
   static Vek::Ptr<PwFecSessionRemoteTxSm> PwFecSessionRemoteTxSmIs(
      U32 instId, PwFecSessionSmInputs const& in, Vek::Ptr<RemotePwFecSessionStatus> const& rs) {
      return Vek::makeSm<PwFecSessionRemoteTxSm>(instId, in, rs);
   }
   PwFecSessionRemoteTxSm(U32 instId, PwFecSessionSmInputs const& in,
                          Vek::Ptr<RemotePwFecSessionStatus> const& rs);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void computePeerLabelState();
   void handlePeerLabelState();
   void handlePeerLabelStateTimerTask();
   bool computeReleaseMsgSendReady(char const** reason);
   bool computeRequestMsgSendReady() const { return false; }
   bool computeAbortReqMsgSendReady() const { return false; }

 private:
   void sendReleaseMessage();
   void sendSingleReleaseMessage(Nolu::MplsLabel label);
   void updateFecSessionState();

   class StatusReactor
      : public Vek::CustomReactor<RemotePwFecSessionStatus::NotifieeConst, PwFecSessionRemoteTxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onLabelWithdrawMsgId() override { fwd([](auto* sm) { sm->computePeerLabelState(); }); }
      void onLabelReleaseMsgId() override { fwd([](auto* sm) { sm->computePeerLabelState(); }); }
   };
   class LabelSetReactor
      : public Vek::CustomReactor<MplsLabelSet::NotifieeConst, PwFecSessionRemoteTxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onMplsLabel(Nolu::MplsLabel const&) override {
         fwd([](auto* sm) { sm->computePeerLabelState(); });
      }
   };
   class SessionReactor
      : public Vek::CustomReactor<LdpSessionStatus::NotifieeConst, PwFecSessionRemoteTxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionState() override { fwd([](auto* sm) { sm->computePeerLabelState(); }); }
      void onSessionOpState() override { fwd([](auto* sm) { sm->computePeerLabelState(); }); }
   };

   PwFecSessionSmInputs in_;
   Vek::Ptr<RemotePwFecSessionStatus> rs_;
   bool computing_ = false;
   bool recompute_ = false;
   Vek::Ptr<Hesk::TimerTask> peerLabelStateTimerTask_;
   Vek::Input<StatusReactor> statusReactor_;
   Vek::Input<LabelSetReactor> labelSetReactor_;
   Vek::Input<LabelSetReactor> releaseSetReactor_;
   Vek::Input<SessionReactor> sessionReactor_;
};

}  // namespace Ldp
