#pragma once
// The label that this side advertises for one pseudowire on one session:
// decides when a Label Mapping, a Label Withdraw or a PW Status Notification
// goes out. Every change of configuration, session or peer state ends in one
// evaluation with a fixed order: withdraw first, then mapping, then status.
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

// What each machine of a pseudowire FEC session is made with.
struct PwFecSessionSmInputs {
   PwFecSessionId id;
   Vek::Ptr<PwFecSessionConfig const> config;
   Vek::Ptr<LdpSessionStatus const> sessionStatus;
   // The session's pipe towards its transmit machine is looked up when a
   // message goes, since the session may make a new one.
   Vek::Ptr<LdpSessionMsgPipeColl const> ldpSessionMsgPipeColl;
   Vek::Ptr<LdpMsgPipe> rxMsgPipe;
   Vek::Ptr<Status> status;
   Vek::Ptr<ProtoConfig const> protoConfig;
   Vek::Ptr<Hesk::TaskScheduler> scheduler;
};

// Puts a built label message on the session's way out; false when the
// session has no pipe.
bool pwFecSessionSend(PwFecSessionSmInputs const& in, Vek::Ptr<Nolu::Pkt> const& pkt);
// The session is operational with both address exchanges done.
bool pwFecSessionReady(LdpSessionStatus const* ss);
void pwMsgCountInc(LocalPwFecSessionStatus* s, bool tx, LdpMsgType type);
void pwMsgCountInc(RemotePwFecSessionStatus* s, bool tx, LdpMsgType type);

class PwFecSessionLocalTxSm : public LdpSm {
 public:
   static constexpr Vek::Seconds defaultDelayLocalLabelStateTimer = 0.1;
   static Vek::Ptr<PwFecSessionLocalTxSm> PwFecSessionLocalTxSmIs(
      U32 instId, PwFecSessionSmInputs const& in, Vek::Ptr<LocalPwFecSessionStatus> const& ls) {
      return Vek::makeSm<PwFecSessionLocalTxSm>(instId, in, ls);
   }
   PwFecSessionLocalTxSm(U32 instId, PwFecSessionSmInputs const& in,
                         Vek::Ptr<LocalPwFecSessionStatus> const& ls);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleConfig() { computeLocalLabelState(); }
   void handleSessionState();
   void handleSessionOpState() { computeLocalLabelState(); }
   void handleLocalLabelState();
   void handleLocalLabelStateTimerTask();
   void computeLocalLabelState();

   bool computeWithdrawMsgSendReady(Nolu::MplsLabel label, char const** reason) const;
   static bool computeWithdrawMsgSendReadyHelper(bool isMtuChanged, bool isPwStatusWithdrawing,
                                                 bool isSameLabel, bool isConfigLabel,
                                                 char const** reason);
   bool computeMappingMsgSendReady(char const** reason) const;
   static bool computeMappingMsgSendReadyHelper(bool isLabelReleased, bool requestOutstanding,
                                                bool mappedBit, char const** reason);
   bool computePwStatusNotificationSendReady(char const** reason) const;
   bool computePwWithdrawProcedureActive() const;
   void delayLocalLabelStateTimerIs(Vek::Seconds d) { delayLocalLabelStateTimer_ = d; }

 private:
   bool requestOutstanding() const;
   PwFwdEqvClassInfo fecInfo() const;
   void sendMappingMessage(Nolu::MplsLabel label);
   void sendWithdrawMessage(Nolu::MplsLabel label);
   void sendPwStatusNotification();
   void updateFecSessionState();

   class ConfigReactor
      : public Vek::CustomReactor<PwFecSessionConfig::NotifieeConst, PwFecSessionLocalTxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onFecParams() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onLabel() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onPwStatusMethod() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onPwStatusFlags() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onMember(PwFecSessionMember const&) override {
         fwd([](auto* sm) { sm->handleConfig(); });
      }
   };
   class StatusReactor
      : public Vek::CustomReactor<LocalPwFecSessionStatus::NotifieeConst, PwFecSessionLocalTxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onLabelRequestMsgId() override {
         fwd([](auto* sm) { sm->computeLocalLabelState(); });
      }
      void onLabelReleaseLabel() override {
         fwd([](auto* sm) { sm->computeLocalLabelState(); });
      }
   };
   class SessionReactor
      : public Vek::CustomReactor<LdpSessionStatus::NotifieeConst, PwFecSessionLocalTxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onSessionState() override { fwd([](auto* sm) { sm->handleSessionState(); }); }
      void onSessionOpState() override { fwd([](auto* sm) { sm->handleSessionOpState(); }); }
   };

   PwFecSessionSmInputs in_;
   Vek::Ptr<LocalPwFecSessionStatus> ls_;
   Vek::Seconds delayLocalLabelStateTimer_ = defaultDelayLocalLabelStateTimer;
   // What the last mapping carried, and the flags last told to the peer.
   PwFwdEqvClassParams pwFecParamsSent_;
   Pseudowire::PseudowireLdpStatusFlags pwStatusFlagsSent_ = Pseudowire::pwStatusForwarding_;
   // The peer released the mapping without being asked: no new mapping goes
   // until it asks, or the label or its parameters change.
   bool released_ = false;
   Nolu::MplsLabel releasedLabel_;
   bool computing_ = false;
   bool recompute_ = false;
   Vek::Ptr<Hesk::TimerTask> localLabelStateTimerTask_;
   Vek::Input<ConfigReactor> configReactor_;
   Vek::Input<StatusReactor> statusReactor_;
   Vek::Input<SessionReactor> sessionReactor_;
};

}  // namespace Ldp
