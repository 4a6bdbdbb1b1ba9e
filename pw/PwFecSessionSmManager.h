#pragma once
// Makes and unmakes the four machines of each pseudowire FEC session (one
// pseudowire on one session; a local side for the label that we advertise, a
// remote side for the peer's), in slices of work, and retires a FEC-session
// configuration once nobody wants it and its machines have finished.
#include "discovery/LdpReactors.h"
#include "pw/PwFecSessionLocalRxSm.h"
#include "pw/PwFecSessionLocalTxSm.h"
#include "pw/PwFecSessionRemoteRxSm.h"
#include "pw/PwFecSessionRemoteTxSm.h"

namespace Ldp {

// The machines of the pseudowire FEC sessions of a VRF, by FEC session.
class PwFecSessionSmColl : public Vek::Sm {
 public:
   explicit PwFecSessionSmColl(std::string name) : name_(std::move(name)) { initialized_ = true; }
   std::string const& name() const { return name_; }
   Vek::SmColl<PwFecSessionId, PwFecSessionLocalTxSm> pwFecSessionLocalTxSm{this};
   Vek::SmColl<PwFecSessionId, PwFecSessionLocalRxSm> pwFecSessionLocalRxSm{this};
   Vek::SmColl<PwFecSessionId, PwFecSessionRemoteTxSm> pwFecSessionRemoteTxSm{this};
   Vek::SmColl<PwFecSessionId, PwFecSessionRemoteRxSm> pwFecSessionRemoteRxSm{this};

 private:
   std::string name_;
};

class PwFecSessionSmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<PwFecSessionConfigColl> localPwFecSessionConfigColl;
      Vek::Ptr<PwFecSessionConfigColl> remotePwFecSessionConfigColl;
      Vek::Ptr<LocalPwFecSessionStatusColl> localPwFecSessionStatusColl;
      Vek::Ptr<RemotePwFecSessionStatusColl> remotePwFecSessionStatusColl;
      Vek::Ptr<PwFecSessionMsgPipeColl> pwFecSessionMsgPipeColl;
      Vek::Ptr<LdpSessionMsgPipeColl const> ldpSessionMsgPipeColl;
      Vek::Ptr<PwFecSessionSmColl> pwFecSessionSmColl;
      Vek::Ptr<Status> status;
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<PwFecSessionSmManager> PwFecSessionSmManagerIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<PwFecSessionSmManager>(instId, in);
   }
   PwFecSessionSmManager(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   // Side: false local, true remote.
   void handleFecSessionConfigEntry(bool remote, PwFecSessionId const& id);
   void handleFecSessionStatusEntry(bool remote, PwFecSessionId const& id);
   void handleLocalFecSessionConfig(PwFecSessionId const& id) { processFecSessionConfig(false, id, false); }
   void handleRemoteFecSessionConfig(PwFecSessionId const& id) { processFecSessionConfig(true, id, false); }
   void processFecSessionConfig(bool remote, PwFecSessionId const& id, bool fromQueue);
   void handleLocalFecSessionTimerTask() { handleFecSessionTimerTask(false); }
   void handleRemoteFecSessionTimerTask() { handleFecSessionTimerTask(true); }
   void handleFecSessionTimerTask(bool remote);
   void scheduleLocalStateReview(PwFecSessionId const& id) { scheduleStateReview(false, id); }
   void scheduleRemoteStateReview(PwFecSessionId const& id) { scheduleStateReview(true, id); }
   void scheduleStateReview(bool remote, PwFecSessionId const& id);
   void handleLocalStateReviewTask() { handleStateReviewTask(false); }
   void handleRemoteStateReviewTask() { handleStateReviewTask(true); }
   void handleStateReviewTask(bool remote);
   void handleFecSessionState(bool remote, PwFecSessionId const& id);
   void handleSessionStatus(LdpSessionId const& sessionId);

   std::size_t workPending(bool remote) const { return side(remote).workQueue.size(); }

 private:
   struct Side;
   Side& side(bool remote) { return remote ? remote_ : local_; }
   Side const& side(bool remote) const { return remote ? remote_ : local_; }
   PwFecSessionConfigColl* configColl(bool remote) const {
      return remote ? in_.remotePwFecSessionConfigColl.ptr() : in_.localPwFecSessionConfigColl.ptr();
   }
   PwFecSessionStatusState statusState(bool remote, PwFecSessionId const& id) const;
   bool statusHas(bool remote, PwFecSessionId const& id) const;
   void ensureStatusAndPipe(bool remote, PwFecSessionId const& id);
   void addFecSessionSm(bool remote, PwFecSessionId const& id);
   void deleteFecSessionSm(bool remote, PwFecSessionId const& id);

   class ConfigCollReactor
      : public Vek::CustomReactor<PwFecSessionConfigColl::NotifieeConst, PwFecSessionSmManager> {
    public:
      ConfigCollReactor(PwFecSessionSmManager* sm, Vek::Ptr<PwFecSessionConfigColl const> const& n,
                        bool remote)
         : CustomReactor(sm, n), remote_(remote) {}
      void onFecSessionConfig(PwFecSessionId const& k) override {
         bool r = remote_;
         fwd([&k, r](auto* sm) { sm->handleFecSessionConfigEntry(r, k); });
      }

    private:
      bool remote_;
   };
   class LocalStatusCollReactor
      : public Vek::CustomReactor<LocalPwFecSessionStatusColl::NotifieeConst, PwFecSessionSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onFecSessionStatus(PwFecSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleFecSessionStatusEntry(false, k); });
      }
   };
   class RemoteStatusCollReactor
      : public Vek::CustomReactor<RemotePwFecSessionStatusColl::NotifieeConst, PwFecSessionSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onFecSessionStatus(PwFecSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleFecSessionStatusEntry(true, k); });
      }
   };
   class SessionCollReactor
      : public Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, PwFecSessionSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionStatus(LdpSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleSessionStatus(k); });
      }
   };
   class MemberReactor
      : public KeyedReactor<PwFecSessionConfig::NotifieeConst, PwFecSessionSmManager, PwFecSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onMember(PwFecSessionMember const&) override { fire(); }
   };
   class LocalStateReactor
      : public KeyedReactor<LocalPwFecSessionStatus::NotifieeConst, PwFecSessionSmManager, PwFecSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onFecSessionState() override { fire(); }
   };
   class RemoteStateReactor
      : public KeyedReactor<RemotePwFecSessionStatus::NotifieeConst, PwFecSessionSmManager, PwFecSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onFecSessionState() override { fire(); }
   };

   struct Side {
      Vek::HashMap<PwFecSessionId, bool> workQueue;
      Vek::HashMap<PwFecSessionId, bool> stateReview;
      // Configurations that lost their last member; they go on the next pass.
      Vek::HashMap<PwFecSessionId, bool> retire;
      Vek::Ptr<Hesk::TimerTask> fecSessionTimerTask;
      Vek::Ptr<Hesk::TimerTask> stateTimerTask;
      Vek::ReactorColl<PwFecSessionId, MemberReactor> member;
   };

   Inputs in_;
   Side local_;
   Side remote_;
   Vek::Input<ConfigCollReactor> localConfigCollReactor_;
   Vek::Input<ConfigCollReactor> remoteConfigCollReactor_;
   Vek::Input<LocalStatusCollReactor> localStatusCollReactor_;
   Vek::Input<RemoteStatusCollReactor> remoteStatusCollReactor_;
   Vek::Input<SessionCollReactor> sessionCollReactor_;
   Vek::ReactorColl<PwFecSessionId, LocalStateReactor> localState_;
   Vek::ReactorColl<PwFecSessionId, RemoteStateReactor> remoteState_;
};

}  // namespace Ldp
