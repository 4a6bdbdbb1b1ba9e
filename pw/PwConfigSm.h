#pragma once
// Pairs each pseudowire request with the LDP session to its neighbour. The
// manager keeps a local copy of the request (PwConfig) and one PwConfigSm per
// pair while a session with a message pipe exists; the machine turns the copy
// into the local FEC-session configuration that the label machines advertise,
// and settles how pseudowire status is told to the peer.
#include "discovery/LdpReactors.h"
#include "discovery/LdpSmColl.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class PwConfigSm : public LdpSm {
 public:
   struct Inputs {
      Pseudowire::PseudowireLdpRequestKey key;
      Vek::Ptr<PwConfig const> pwConfig;
      Vek::Ptr<PwStatus> pwStatus;
      Vek::Ptr<PwFecSessionConfigColl> localPwFecSessionConfigColl;
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<PwFecSessionInfoMap const> pwFecSessionInfoMap;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   // How long the label of a pseudowire whose FEC changed waits for the
   // peer's Release of the same label under the old FEC before it is
   // advertised under the new one all the same.
   static constexpr Vek::Seconds labelReleaseWaitMax = 2.0;
   static Vek::Ptr<PwConfigSm> PwConfigSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<PwConfigSm>(instId, in);
   }
   PwConfigSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override;
   // The index's entry of the pseudowire comes and goes with its records.
   void pwFecSessionInfoMapIs(Vek::Ptr<PwFecSessionInfoMap const> const& m);

   void handleGroupId() { updateLocalPwFecSessionConfig(); }
   void handleLocalLabel() { updateLocalPwFecSessionConfig(); }
   void handleMtu() { updateLocalPwFecSessionConfig(); }
   void handleAdminPwStatus() { updateLocalPwFecSessionConfig(); }
   void handleIntfDescription() { updateLocalPwFecSessionConfig(); }
   // The control word is part of the FEC: a change moves the pseudowire to
   // another FEC session, and the old one is withdrawn.
   void handlePreferControlWord() { updateLocalPwFecSessionConfig(); }
   void handlePwStatusTlv() { computePwStatusMethod(); }
   void handleProtoParamSetting() { computePwStatusMethod(); }
   void handleRemoteStatus(PwFecSessionId const& id);
   void handleLocalStatus(PwFecSessionId const& id);
   void handleLocalLabelHeld(PwFecSessionId const&) { updateLocalPwFecSessionConfig(); }
   void handleLabelReleaseWaitTimerTask();
   void handlePeerPwStatusMethod(PwFecSessionId const& id) { computePwStatusMethod(id); }

   void computePwStatusMethod();
   void computePwStatusMethod(PwFecSessionId const& id);
   void updateLocalPwFecSessionConfig();
   // The FEC session that this pseudowire's local label goes out on.
   PwFecSessionId const& localId() const { return localId_; }

 private:
   void removeLocalConfig();
   void retireLocalConfig(PwFecSessionId const& id);
   Nolu::MplsLabel localLabelToAdvertise(PwFecSessionId const& id);
   // Another FEC session of this pseudowire on the same session that still
   // holds the label at the peer: mapped, or withdrawn and not yet released.
   bool labelHeldElsewhere(PwFecSessionId const& id, Nolu::MplsLabel label,
                           PwFecSessionId* holder) const;

   class ProtoConfigReactor : public Vek::CustomReactor<ProtoConfig::NotifieeConst, PwConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onLdpProtoParamSetting() override {
         fwd([](auto* sm) { sm->handleProtoParamSetting(); });
      }
   };
   class InfoMapReactor
      : public Vek::CustomReactor<PwFecSessionInfoMap::NotifieeConst, PwConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onRemoteStatus(PwFecSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleRemoteStatus(k); });
      }
      void onLocalStatus(PwFecSessionId const& k) override {
         fwd([&k](auto* sm) { sm->handleLocalStatus(k); });
      }
   };
   class LocalStatusReactor
      : public KeyedReactor<LocalPwFecSessionStatus::NotifieeConst, PwConfigSm, PwFecSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onLabelMappingSent() override { fire(); }
      void onLabelWithdrawOutstanding() override { fire(); }
   };
   class RemoteStatusReactor
      : public KeyedReactor<RemotePwFecSessionStatus::NotifieeConst, PwConfigSm, PwFecSessionId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onPeerPwStatusMethod() override { fire(); }
   };

   Inputs in_;
   PwFecSessionId localId_;
   // What the peer last showed of the PW Status TLV on this session: kept
   // when its FEC sessions go (a withdrawn label), so that a peer that never
   // sends the TLV keeps getting withdraws for faults.
   PwStatusMethod peerMethod_ = pwStatusMethodUnknown_;
   bool hasLocalId_ = false;
   Vek::Input<PwConfig::Reactor<PwConfigSm>> pwConfigReactor_;
   Vek::Input<ProtoConfigReactor> protoConfigReactor_;
   Vek::Input<InfoMapReactor> infoMapReactor_;
   Vek::ReactorColl<PwFecSessionId, RemoteStatusReactor> remoteStatus_;
   // The other FEC sessions of the pseudowire are watched only while the
   // label waits for one of them to give it up.
   Vek::ReactorColl<PwFecSessionId, LocalStatusReactor> localStatus_;
   Vek::Ptr<Hesk::TimerTask> labelReleaseWaitTimerTask_;
   bool labelReleaseWaitOver_ = false;
};

using PwConfigSmColl = LdpSmColl<Pseudowire::PseudowireLdpRequestKey, PwConfigSm>;

class PwConfigSmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Pseudowire::PseudowireLdpConfig const> pwLdpConfig;
      Vek::Ptr<LdpIndex> ldpIndex;
      Vek::Ptr<LdpSessionMsgPipeColl const> ldpSessionMsgPipeColl;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<PwConfigColl> pwConfigColl;
      Vek::Ptr<PwStatusColl> pwStatusColl;
      Vek::Ptr<PwConfigSmColl> pwConfigSmColl;
      Vek::Ptr<PwFecSessionConfigColl> localPwFecSessionConfigColl;
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<PwConfigSmManager> PwConfigSmManagerIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<PwConfigSmManager>(instId, in);
   }
   PwConfigSmManager(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLdpRequest(Pseudowire::PseudowireLdpRequestKey const& key) { handlePwRequest(key); }
   void handlePwRequest(Pseudowire::PseudowireLdpRequestKey const& key);
   void handleRequestField(Pseudowire::PseudowireLdpRequestKey const& key) {
      checkCreatePwConfigSm(key);
   }
   void handlePeerToSession(Nolu::IpGenAddr const& addr);
   void handlePeer(Nolu::IpGenAddr const& addr);
   void handlePwKeyToPwFecSessionInfo(Pseudowire::PseudowireLdpRequestKey const& key);
   void handleMsgPipe(LdpSessionId const& sessionId);
   void checkCreatePwConfigSm(Pseudowire::PseudowireLdpRequestKey const& key);

 private:
   bool validSession(Nolu::IpGenAddr const& addr, LdpSessionId* id) const;
   void addPwConfigSm(Pseudowire::PseudowireLdpRequestKey const& key, LdpSessionId const& id);
   void delPwConfigSm(Pseudowire::PseudowireLdpRequestKey const& key);
   void updatePwConfig(Pseudowire::PseudowireLdpRequestKey const& key);

   using RequestReactor = Pseudowire::PseudowireLdpRequest::MemberReactor<
      PwConfigSmManager, Pseudowire::PseudowireLdpRequestKey>;
   using SessionSetReactor = LdpSessionIdSet::MemberReactor<PwConfigSmManager, Nolu::IpGenAddr>;

   Inputs in_;
   Vek::Input<Pseudowire::PseudowireLdpConfig::Reactor<PwConfigSmManager>> pwLdpConfigReactor_;
   Vek::Input<LdpIndex::Reactor<PwConfigSmManager>> ldpIndexReactor_;
   Vek::Input<LdpSessionMsgPipeColl::Reactor<PwConfigSmManager>> msgPipeReactor_;
   Vek::ReactorColl<Pseudowire::PseudowireLdpRequestKey, RequestReactor> request_;
   Vek::ReactorColl<Nolu::IpGenAddr, SessionSetReactor> peerToSession_;
   // The peer address of each session that had a message pipe, so that a
   // pipe that goes finds its pseudowires.
   Vek::HashMap<LdpSessionId, Nolu::IpGenAddr> sessionAddr_;
};

}  // namespace Ldp
