#pragma once
// The label that the peer advertises for one pseudowire on one session: takes
// Label Mapping, Label Withdraw and PW Status Notification into the remote
// status, which PwLdpResponseSm reads and PwFecSessionRemoteTxSm answers.
#include "pw/PwFecSessionLocalTxSm.h"

namespace Ldp {

class PwFecSessionRemoteRxSm : public LdpSm {
 public:
   static Vek::Ptr<PwFecSessionRemoteRxSm> PwFecSessionRemoteRxSmIs(
      U32 instId, PwFecSessionSmInputs const& in, Vek::Ptr<RemotePwFecSessionStatus> const& rs) {
      return Vek::makeSm<PwFecSessionRemoteRxSm>(instId, in, rs);
   }
   PwFecSessionRemoteRxSm(U32 instId, PwFecSessionSmInputs const& in,
                          Vek::Ptr<RemotePwFecSessionStatus> const& rs);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleReadableCount() { handleMsgPipeReadable(); }
   void handleMsgPipeReadable();
   void handleSessionState();
   void handleRxLabelMsg(Vek::Ptr<LdpMsg> const& msg);

 private:
   void handleRxMappingMsg(LdpMsgParser const& parser);
   void handleRxWithdrawMsg(LdpMsgParser const& parser);
   void handleRxNotificationMsg(LdpMsgParser const& parser);

   class SessionReactor
      : public Vek::CustomReactor<LdpSessionStatus::NotifieeConst, PwFecSessionRemoteRxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionState() override { fwd([](auto* sm) { sm->handleSessionState(); }); }
   };

   PwFecSessionSmInputs in_;
   Vek::Ptr<RemotePwFecSessionStatus> rs_;
   Vek::Input<LdpMsgPipe::Reactor<PwFecSessionRemoteRxSm>> rxMsgPipeReactor_;
   Vek::Input<SessionReactor> sessionReactor_;
};

}  // namespace Ldp
