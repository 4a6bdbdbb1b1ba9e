#pragma once
// Link readiness for the routing protocols (LDP-IGP synchronisation): one
// machine per LDP link tells, in LdpLinkReadyStatus::ready, whether some
// adjacency on the link has an operational session. Readiness comes after
// linkReadyDelay and goes after a second without a session, so a short flap
// is not seen; a link that waits longer than linkReadyTimeout for its session
// is declared ready anyway, so that it doesn't hold the IGP back for ever.
#include "discovery/LdpReactors.h"
#include "discovery/LdpSmColl.h"
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"

namespace Ldp {

class LdpLinkReadySm : public LdpSm {
 public:
   struct Inputs {
      Nolu::IntfId intfId;
      Vek::Ptr<ProtoConfig const> ldpProtoConfig;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpIndex const> ldpIndex;
      Vek::Ptr<LdpLinkReadyStatus> ldpLinkReadyStatus;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpLinkReadySm> LdpLinkReadySmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpLinkReadySm>(instId, in);
   }
   LdpLinkReadySm(U32 instId, Inputs const& in);

   Nolu::IntfId const& intfId() const { return in_.intfId; }
   bool ready() const { return in_.ldpLinkReadyStatus->ready(); }
   // Why the link is or isn't ready, for the operator.
   Vek::String const& reason() const { return reason_; }
   Vek::Seconds unsetLinkReadyDelay() const { return unsetLinkReadyDelay_; }
   U64 sessOrAdjChanged() const { return sessOrAdjChanged_; }
   Hesk::TimerTask* linkReadyTimeoutTimerTask() const { return linkReadyTimeoutTimerTask_.ptr(); }
   Hesk::TimerTask* linkReadyDelayTimerTask() const { return linkReadyDelayTimerTask_.ptr(); }
   Hesk::TimerTask* unsetLinkReadyDelayTimerTask() const {
      return unsetLinkReadyDelayTimerTask_.ptr();
   }

   // The manager tells of a change of the link's adjacencies or sessions.
   void sessOrAdjChangedInc(U64 n);

   void handleInitialized();
   void handleDelete() override;
   void handleSessOrAdjChanged();
   bool checkLinkReady() const;
   void setLinkReadyTimeoutTimer();
   void handleLinkReadyDelayTimerTask();
   void handleUnsetLinkReadyDelayTimerTask();
   void handleLinkReadyTimeoutTimerTask();

 private:
   void readyIs(bool ready, char const* reason);
   Inputs in_;
   Vek::Seconds unsetLinkReadyDelay_ = 1.0;
   U64 sessOrAdjChanged_ = 0;
   Vek::String reason_;
   Vek::Ptr<Hesk::TimerTask> linkReadyTimeoutTimerTask_;
   Vek::Ptr<Hesk::TimerTask> linkReadyDelayTimerTask_;
   Vek::Ptr<Hesk::TimerTask> unsetLinkReadyDelayTimerTask_;
};

class LdpLinkReadySmColl : public LdpSmColl<Nolu::IntfId, LdpLinkReadySm> {
 public:
   using LdpSmColl::LdpSmColl;
   Vek::Ptr<LdpLinkReadySm> linkReadySm(Nolu::IntfId const& k) const { return sm(k); }
   void linkReadySmIs(Nolu::IntfId const& k, Vek::Ptr<LdpLinkReadySm> const& p) { smIs(k, p); }
   void linkReadySmDel(Nolu::IntfId const& k) { smDel(k); }
};

// Makes one machine and one status per LDP link, keeps the index of link
// adjacencies per link, and tells a link's machine when its adjacencies or
// their sessions change.
class LdpLinkReadySmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpLinkConfigColl const> ldpLinkConfigColl;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl;
      Vek::Ptr<LdpIndex> ldpIndex;
      Vek::Ptr<LdpLinkReadyStatusColl> ldpLinkReadyStatusColl;
      Vek::Ptr<LdpLinkReadySmColl> ldpLinkReadySmColl;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpLinkReadySmManager> LdpLinkReadySmManagerIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpLinkReadySmManager>(instId, in);
   }
   LdpLinkReadySmManager(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLinkConfig(Nolu::IntfId const& intf);
   void handleLdpAdjStatus(LdpAdjId const& adjId);
   void handleLdpSessionState(LdpSessionId const& sessionId);
   void handleSessionStatusEntry(LdpSessionId const& sessionId);

 private:
   void changed(Nolu::IntfId const& intf);

   class LinkConfigCollReactor
      : public Vek::CustomReactor<LdpLinkConfigColl::NotifieeConst, LdpLinkReadySmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjLinkConfig(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleLinkConfig(k); });
      }
   };
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpLinkReadySmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpAdjStatus(k); });
      }
   };
   class SessionStatusCollReactor
      : public Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, LdpLinkReadySmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionStatus(LdpSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleSessionStatusEntry(k); });
      }
   };
   class SessionStatusReactor
      : public KeyedReactor<LdpSessionStatus::NotifieeConst, LdpLinkReadySmManager, LdpSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onSessionState() override { fire(); }
   };

   Inputs in_;
   Vek::Input<LinkConfigCollReactor> ldpLinkConfigCollReactor_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::Input<SessionStatusCollReactor> ldpSessionStatusCollReactor_;
   Vek::ReactorColl<LdpSessionId, SessionStatusReactor> sessionStatus_;
};

}  // namespace Ldp
