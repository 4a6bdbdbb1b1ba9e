#pragma once
// Makes and unmakes the five machines of each wanted session, with the
// session's status, statistics, message pipe and PDU pipes. The machines are
// kept in LdpSessionSmColl, one table per kind of machine.
#include "entities/LdpMsgPipe.h"
#include "session/LdpP2mpLabelSm.h"
#include "session/LdpSessionColls.h"
#include "session/LdpSessionCtrlSm.h"
#include "session/LdpSessionInitSm.h"
#include "session/LdpSessionMsgSm.h"
#include "session/LdpSessionRxSm.h"
#include "session/LdpSessionTxSm.h"

namespace Ldp {

// The machines of the sessions of a VRF, by session.
class LdpSessionSmColl : public Vek::PtrInterface {
 public:
   template <class T>
   class Table {
    public:
      Vek::Ptr<T> operator()(LdpSessionId const& id) const {
         auto const* p = m_.find(id);
         return p ? *p : Vek::Ptr<T>();
      }
      void is(LdpSessionId const& id, Vek::Ptr<T> const& sm) { *m_.emplace(id).first = sm; }
      // The machine is released after the table is consistent again.
      void del(LdpSessionId const& id) {
         Vek::Ptr<T> dead;
         m_.erase(id, &dead);
      }
      std::size_t size() const { return m_.size(); }
      auto begin() const { return m_.begin(); }

    private:
      Vek::HashMap<LdpSessionId, Vek::Ptr<T>> m_;
   };

   Table<LdpSessionRxSm> sessionRxSm;
   Table<LdpSessionInitSm> sessionInitSm;
   Table<LdpSessionMsgSm> sessionMsgSm;
   Table<LdpSessionTxSm> sessionTxSm;
   Table<LdpSessionCtrlSm> sessionCtrlSm;
   // The multicast label machines of each session.
   Table<LdpP2mpRemoteLabelRxSm> p2mpRemoteLabelRxSm;
   Table<LdpP2mpRemoteLabelTxSm> p2mpRemoteLabelTxSm;
   Table<LdpP2mpLocalLabelRxSm> p2mpLocalLabelRxSm;
   Table<LdpP2mpLocalLabelTxSm> p2mpLocalLabelTxSm;

   std::size_t sessionCtrlSms() const { return sessionCtrlSm.size(); }
};

// What the session machines are made with.
struct LdpSessionSmManagerInputs {
   Vek::Ptr<ProtoConfig const> protoConfig;
   Vek::Ptr<Status> status;
   Vek::Ptr<LdpSessionConfigColl const> ldpSessionConfigColl;
   Vek::Ptr<LdpSessionStatusColl> ldpSessionStatusColl;
   Vek::Ptr<LdpSessionStatisticsColl> sessionStatisticsColl;
   Vek::Ptr<LdpSessionMsgPipeColl> ldpSessionMsgPipeColl;
   Vek::Ptr<LdpPduPamPipeSessionColl> ldpPduPamPipeSessionTxColl;
   Vek::Ptr<LdpPduPamPipeSessionColl> ldpPduPamPipeSessionRxColl;
   Vek::Ptr<LdpSessionSmColl> ldpSessionSmColl;
   Vek::Ptr<PwFecSessionConfigColl> localPwFecSessionConfigColl;
   Vek::Ptr<PwFecSessionConfigColl> remotePwFecSessionConfigColl;
   Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
   Vek::Ptr<LdpFecMsgPipeColl const> ldpFecMsgPipeColl;
   // The one pipe of the FEC sessions, for the peers' wildcard Withdraws and
   // Releases, which speak of every FEC at once.
   Vek::Ptr<LdpMsgPipe> ldpFecSessionMsgPipe;
   Vek::Ptr<PwFecSessionMsgPipeColl const> pwFecSessionMsgPipeColl;
   // The pipes of the multicast label machines, made per session when given.
   Vek::Ptr<LdpP2mpFecSessionLocalLabelMsgPipeColl> p2mpFecSessionLocalLabelMsgPipeColl;
   Vek::Ptr<LdpP2mpFecSessionRemoteLabelMsgPipeColl> p2mpFecSessionRemoteLabelMsgPipeColl;
   Vek::Ptr<Hesk::TaskScheduler> scheduler;
};

class LdpSessionSmManager : public LdpSm {
 public:
   static Vek::Ptr<LdpSessionSmManager> LdpSessionSmManagerIs(U32 instId,
                                                             LdpSessionSmManagerInputs const& in) {
      return Vek::makeSm<LdpSessionSmManager>(instId, in);
   }
   LdpSessionSmManager(U32 instId, LdpSessionSmManagerInputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLdpSessionConfig();
   void handleLdpSessionConfig(LdpSessionId const& id);
   void handleLdpSessionCreate(LdpSessionId const& id);
   void handleLdpSessionDelete(LdpSessionId const& id);
   // Takes every session's machines down.
   void handleLdpSessionDeleteAll();
   // Sessions come down while LDP stops in the VRF, and back when it runs.
   void handleRunningState();
   void handleSessionConfig(LdpSessionId const& id) { handleLdpSessionConfig(id); }

 private:
   LdpSessionSmManagerInputs in_;
   Vek::Input<LdpSessionConfigColl::Reactor<LdpSessionSmManager>> sessionConfigCollReactor_;
   Vek::Input<ProtoConfig::Reactor<LdpSessionSmManager>> protoConfigReactor_;
};

}  // namespace Ldp
