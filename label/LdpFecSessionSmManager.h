#pragma once
// Which FEC sessions exist: an unfiltered FEC has one on every session, a
// filtered FEC only on the sessions that keep label state for it. A FEC
// session is an entry of the status table, served by the VRF's four workers;
// adds and deletes go through a work queue that yields, except that a
// received message makes its FEC session at once and a session that goes
// takes its FEC sessions with it at once.
#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSession.h"
#include "entities/LdpSm.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

enum LdpFecSessionEvent : U8 {
   LdpFecSessionEventNone = 0,
   LdpFecSessionEventMsgPipeCreated = 1,
   LdpFecSessionEventWorkQueue = 2,
};

class LdpFecSessionSmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
      Vek::Ptr<LdpFecStatusColl const> ldpFecStatusColl;
      Vek::Ptr<LdpFecSessionStatusColl> ldpFecSessionStatusColl;
      Vek::Ptr<LdpSessionMsgPipeColl const> ldpSessionMsgPipeColl;
      Vek::Ptr<LdpFecSessionNotifier const> ldpFecSessionRxNotifier;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<Statistics> statistics;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpFecSessionSmManager> LdpFecSessionSmManagerIs(U32 instId,
                                                                    Inputs const& in) {
      return Vek::makeSm<LdpFecSessionSmManager>(instId, in);
   }
   LdpFecSessionSmManager(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   void handleFecConfig();
   void handleFecConfig(Mpls::FwdEqvClass const& fec);
   void handleFecConfigFecFilteredState(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigSessionMember(Mpls::FwdEqvClass const& fec, LdpSessionId const& id) {
      handleFecSessionMember(fec, id);
   }
   void handleFecSessionMember(Mpls::FwdEqvClass const& fec, LdpSessionId const& id);
   void handleSessionStatus(LdpSessionId const& id);
   void handleChangeCnt();
   void handleFecSessionRxNotifier(LdpFecSessionId const& id);
   void handleFecSessionWorkQueueTimerTask();
   void processFecSessionSm(Mpls::FwdEqvClass const& fec, LdpSessionId const& id,
                            LdpFecSessionEvent event);
   void addFecSessionSm(Mpls::FwdEqvClass const& fec, LdpSessionId const& id);
   void delFecSessionSm(Mpls::FwdEqvClass const& fec, LdpSessionId const& id);

   std::string const& reason() const { return reason_; }
   std::size_t fecSessionWorkQueueSize() const { return fecSessionWorkQueue_.size(); }

 private:
   Inputs in_;
   std::string reason_;
   Vek::HashMap<LdpFecSessionId, bool> fecSessionWorkQueue_;
   Vek::Ptr<Hesk::TimerTask> fecSessionWorkQueueTimerTask_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFecSessionSmManager>> fecConfigReactor_;
   Vek::Input<LdpSessionStatusColl::Reactor<LdpFecSessionSmManager>> sessionStatusReactor_;
   Vek::Input<LdpFecSessionNotifier::Reactor<LdpFecSessionSmManager>> notifierReactor_;
};

}  // namespace Ldp
