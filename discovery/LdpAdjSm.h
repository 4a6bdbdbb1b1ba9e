#pragma once
// One machine per adjacency, a neighbour heard on one link or at one targeted
// address: it reads each Hello and owns the hold timer. The manager makes and
// drops adjacencies, alone or a peer's all together; an adjacency ends by
// writing a non-zero status code, which the manager turns into deletion.
#include "entities/LdpSm.h"
#include "discovery/LdpReactors.h"
#include "discovery/LdpSmColl.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpStatus.h"

namespace Ldp {

class LdpAdjSm : public LdpSm {
 public:
   struct Inputs {
      LdpAdjId adjId;
      Vek::Ptr<LdpLinkConfig const> ldpLinkConfig;
      Vek::Ptr<LdpLinkStatus> ldpLinkStatus;
      Vek::Ptr<LdpTargetConfig const> ldpTargetConfig;
      Vek::Ptr<LdpAdjConfig const> ldpAdjConfig;
      Vek::Ptr<LdpAdjStatus> ldpAdjStatus;
      Vek::Ptr<LdpMsgPipe> adjMsgPipe;
      Vek::Ptr<LdpIndex> ldpIndex;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpAdjSm> LdpAdjSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpAdjSm>(instId, in);
   }
   LdpAdjSm(U32 instId, Inputs const& in);

   LdpAdjId const& adjId() const { return in_.adjId; }
   Vek::String const& reason() const { return reason_; }
   Hesk::TimerTask* adjTimerTask() const { return adjTimerTask_.ptr(); }
   Vek::Ptr<LdpMsg> const& lastRxMsg() const { return lastRxMsg_; }

   void handleInitialized();
   void handleDelete() override;
   void handleRxMsg();
   void updateOperHoldTime();
   void handleAdjTimerTask();
   void handleLinkConfigState();
   void handleTargetConfigState();

 private:
   void reject(Vek::String const& r, bool count);

   class PipeReactor : public Vek::CustomReactor<LdpMsgPipe::NotifieeConst, LdpAdjSm> {
    public:
      using CustomReactor::CustomReactor;
      void onReadableCount() override { fwd([](auto* sm) { sm->handleRxMsg(); }); }
   };
   class AdjConfigReactor : public Vek::CustomReactor<LdpAdjConfig::NotifieeConst, LdpAdjSm> {
    public:
      using CustomReactor::CustomReactor;
      void onHoldTime() override { fwd([](auto* sm) { sm->updateOperHoldTime(); }); }
   };
   class LinkConfigReactor : public Vek::CustomReactor<LdpLinkConfig::NotifieeConst, LdpAdjSm> {
    public:
      using CustomReactor::CustomReactor;
      void onConfigState() override { fwd([](auto* sm) { sm->handleLinkConfigState(); }); }
   };
   class TargetConfigReactor
      : public Vek::CustomReactor<LdpTargetConfig::NotifieeConst, LdpAdjSm> {
    public:
      using CustomReactor::CustomReactor;
      void onConfigState() override { fwd([](auto* sm) { sm->handleTargetConfigState(); }); }
   };

   Inputs in_;
   Vek::Ptr<Hesk::TimerTask> adjTimerTask_;
   Vek::Ptr<LdpMsg> lastRxMsg_;
   Vek::String reason_;
   Vek::Input<PipeReactor> adjMsgPipeReactor_;
   Vek::Input<AdjConfigReactor> ldpAdjConfigReactor_;
   Vek::Input<LinkConfigReactor> ldpLinkConfigReactor_;
   Vek::Input<TargetConfigReactor> ldpTargetConfigReactor_;
};

class LdpAdjSmColl : public LdpSmColl<LdpAdjId, LdpAdjSm> {
 public:
   using LdpSmColl::LdpSmColl;
   Vek::Ptr<LdpAdjSm> adjSm(LdpAdjId const& k) const { return sm(k); }
   void adjSmIs(LdpAdjId const& k, Vek::Ptr<LdpAdjSm> const& p) { smIs(k, p); }
   void adjSmDel(LdpAdjId const& k) { smDel(k); }
};

class LdpAdjSmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Config const> config;
      Vek::Ptr<LdpLinkConfigColl const> ldpLinkConfigColl;
      Vek::Ptr<LdpLinkStatusColl> ldpLinkStatusColl;
      Vek::Ptr<LdpTargetConfigColl const> ldpTargetConfigColl;
      Vek::Ptr<LdpTargetStatusColl const> ldpTargetStatusColl;
      Vek::Ptr<LdpAdjConfigColl> ldpAdjConfigColl;
      Vek::Ptr<LdpAdjStatusColl> ldpAdjStatusColl;
      Vek::Ptr<LdpAdjSmColl> ldpAdjSmColl;
      Vek::Ptr<LdpAdjMsgPipeCollection> ldpAdjMsgPipe;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpIndex> ldpIndex;
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpPeerConfigColl const> ldpPeerConfigColl;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpAdjSmManager> LdpAdjSmManagerIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpAdjSmManager>(instId, in);
   }
   LdpAdjSmManager(U32 instId, Inputs const& in);

   std::size_t peerDelCollSize() const { return peerDelColl_.size(); }
   Hesk::TimerTask* peerDelTimerTask() const { return peerDelTimerTask_.ptr(); }

   void handleInitialized();
   void handleLdpAdjConfig();
   void handleLdpAdjConfig(LdpAdjId const& adjId);
   void handleLdpAdjCreate(LdpAdjId const& adjId);
   void handleLdpAdjDelete(LdpAdjId const& adjId);
   void updateLdpAdjConfigHoldTime(LdpAdjId const& adjId);
   void handleLinkStatus(Nolu::IntfId const& intfId);
   void handleTargetStatus(Nolu::IpAddr const& address);
   void handleSessionState(LdpSessionId const& sessionId);
   void handleLdpClearNeighbor(LdpIdentifier const& ldpId);
   void deletePeer(LdpIdentifier const& ldpId);
   void handlePeerDelTimerTask();
   void handleAdjStatusCode(LdpAdjId const& adjId);
   void handleAdjStatusCodeTimerTask();
   // Collection reactors: they keep the per-member reactors.
   void handleAdjStatusEntry(LdpAdjId const& adjId);
   void handleLinkStatusEntry(Nolu::IntfId const& intfId);
   void handleTargetStatusEntry(Nolu::IpAddr const& address);
   void handleSessionStatusEntry(LdpSessionId const& sessionId);

 private:
   class AdjConfigCollReactor
      : public Vek::CustomReactor<LdpAdjConfigColl::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjConfig(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpAdjConfig(k); });
      }
   };
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleAdjStatusEntry(k); });
      }
   };
   class LinkStatusCollReactor
      : public Vek::CustomReactor<LdpLinkStatusColl::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjLinkStatus(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleLinkStatusEntry(k); });
      }
   };
   class TargetStatusCollReactor
      : public Vek::CustomReactor<LdpTargetStatusColl::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjTargetStatus(Nolu::IpAddr const& k) override {
         fwd([&k](auto* sm) { sm->handleTargetStatusEntry(k); });
      }
   };
   class SessionStatusCollReactor
      : public Vek::CustomReactor<LdpSessionStatusColl::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionStatus(LdpSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleSessionStatusEntry(k); });
      }
   };
   class ProtoConfigReactor
      : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onRunningState() override {
         fwd([](auto* sm) { sm->handleLdpAdjConfig(); });
      }
   };
   class ConfigReactor : public Vek::CustomReactor<Config::NotifieeConst, LdpAdjSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onLdpNeighborClearRequest(LdpIdentifier const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpClearNeighbor(k); });
      }
   };
   class AdjStatusReactor
      : public KeyedReactor<LdpAdjStatus::NotifieeConst, LdpAdjSmManager, LdpAdjId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onAdjStatusCode() override { fire(); }
   };
   class LinkStatusReactor
      : public KeyedReactor<LdpLinkStatus::NotifieeConst, LdpAdjSmManager, Nolu::IntfId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onRunning() override { fire(); }
      void onHoldTime() override { fire(); }
   };
   class TargetStatusReactor
      : public KeyedReactor<LdpTargetStatus::NotifieeConst, LdpAdjSmManager, Nolu::IpAddr> {
    public:
      using KeyedReactor::KeyedReactor;
      void onHoldTime() override { fire(); }
   };
   // Remembers the session's previous state, to see the step that closes it.
   class SessionStatusReactor
      : public KeyedReactor<LdpSessionStatus::NotifieeConst, LdpAdjSmManager, LdpSessionId> {
    public:
      SessionStatusReactor(LdpAdjSmManager* sm, Vek::Ptr<LdpSessionStatus const> const& n,
                           LdpSessionId const& key, Handler h)
         : KeyedReactor(sm, n, key, h), prevState(n->sessionState()) {}
      void onSessionState() override { fire(); }
      SessionState prevState;
   };

   Inputs in_;
   Vek::HashMap<LdpIdentifier, bool> peerDelColl_;
   Vek::Ptr<Hesk::TimerTask> peerDelTimerTask_;
   Vek::HashMap<LdpIdentifier, Vek::Seconds> ldpNeighborClearTimeColl_;
   // Adjacencies whose status code changed, decided once the change has
   // reached every watcher.
   Vek::HashMap<LdpAdjId, bool> adjStatusCodeColl_;
   Vek::Ptr<Hesk::TimerTask> adjStatusCodeTimerTask_;

   Vek::Input<AdjConfigCollReactor> ldpAdjConfigCollReactor_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::Input<LinkStatusCollReactor> ldpLinkStatusCollReactor_;
   Vek::Input<TargetStatusCollReactor> ldpTargetStatusCollReactor_;
   Vek::Input<SessionStatusCollReactor> ldpSessionStatusCollReactor_;
   Vek::Input<ProtoConfigReactor> protoConfigReactor_;
   Vek::Input<ConfigReactor> configReactor_;
   Vek::ReactorColl<LdpAdjId, AdjStatusReactor> adjStatus_;
   Vek::ReactorColl<Nolu::IntfId, LinkStatusReactor> linkStatus_;
   Vek::ReactorColl<Nolu::IpAddr, TargetStatusReactor> targetStatus_;
   Vek::ReactorColl<LdpSessionId, SessionStatusReactor> sessionStatus_;
};

}  // namespace Ldp
