#pragma once
// One machine per target of targeted discovery: a running condition, one
// prebuilt Hello with the targeted and request bits, a transmit timer that
// sends it to the target's address through the shared transmit channel, and
// receive through a pipe into the adjacency. The manager makes and drops the
// machines with their status and pipe.
#include "entities/LdpSm.h"
#include "discovery/LdpHelloParam.h"
#include "discovery/LdpReactors.h"
#include "discovery/LdpSmColl.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpStatus.h"
#include "runtime/nolu/Pam.h"
#include "wire/LdpMsgGen.h"

namespace Ldp {

class LdpTargetSm : public LdpSm {
 public:
   struct Inputs {
      Nolu::IpAddr targetIpAddr;
      Vek::Ptr<LdpTargetConfig const> ldpTargetConfig;
      Vek::Ptr<LdpTargetCommonConfig const> ldpTargetCommonConfig;
      Vek::Ptr<LdpProtoParamConfig const> ldpProtoParam;
      Vek::Ptr<LdpTargetStatus> ldpTargetStatus;
      Vek::Ptr<LdpAdjConfigColl> ldpAdjConfigColl;
      Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl;
      Vek::Ptr<LdpAdjMsgPipeCollection const> ldpAdjMsgPipe;
      Vek::Ptr<Nolu::UdpPam> txUdpPam;
      Vek::Ptr<LdpMsgPipe> rxMsgPipe;
      Vek::Ptr<Status> status;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpTargetSm> LdpTargetSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpTargetSm>(instId, in);
   }
   LdpTargetSm(U32 instId, Inputs const& in);

   Nolu::IpAddr targetIpAddr() const { return in_.targetIpAddr; }
   Vek::String const& reason() const { return reason_; }
   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   Vek::Ptr<LdpMsgGen> const& ldpMsgGen() const { return ldpMsgGen_; }
   Vek::Ptr<Nolu::UdpPam> const& txUdpPam() const { return in_.txUdpPam; }
   Hesk::TimerTask* txTimerTask() const { return txTimerTask_.ptr(); }
   Vek::Ptr<LdpTargetCommonConfig const> const& ldpTargetCommonConfig() const {
      return in_.ldpTargetCommonConfig;
   }

   void handleInitialized();
   void computeRunning();
   void handleConfig();
   void handleHdrConfig();
   void handleRunning();
   void handlePktVersion();
   void handleTxTimerTask();
   void resetTxTimer();
   void handleIpTransportAddr();
   void handleLocalLdpIdentifier();
   void handleLdpAdjChange(LdpAdjId const& adjId);
   void handleRxMsg();

 private:
   class TargetConfigReactor
      : public Vek::CustomReactor<LdpTargetConfig::NotifieeConst, LdpTargetSm> {
    public:
      using CustomReactor::CustomReactor;
      void onInterval() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onHoldTime() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onConfigState() override { fwd([](auto* sm) { sm->computeRunning(); }); }
   };
   class CommonConfigReactor
      : public Vek::CustomReactor<LdpTargetCommonConfig::NotifieeConst, LdpTargetSm> {
    public:
      using CustomReactor::CustomReactor;
      void onInterval() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onHoldTime() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onIpTransportAddr() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->computeRunning();
            sm->handleIpTransportAddr();
         });
      }
      void onLdpId() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->computeRunning();
            sm->handleLocalLdpIdentifier();
         });
      }
      void onTtl() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->computeRunning();
         });
      }
      void onConfigSeqNum() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
   };
   class ProtoParamReactor
      : public Vek::CustomReactor<LdpProtoParamConfig::NotifieeConst, LdpTargetSm> {
    public:
      using CustomReactor::CustomReactor;
      void onTlvIpTransportAddrIncude() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onTlvIpTransportUnknownBit() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onTlvConfigSeqNumInclude() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onTlvConfigSeqNumUnknownBit() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
   };
   class TargetStatusReactor
      : public Vek::CustomReactor<LdpTargetStatus::NotifieeConst, LdpTargetSm> {
    public:
      using CustomReactor::CustomReactor;
      void onInterval() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->computeRunning();
         });
      }
      void onHoldTime() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->computeRunning();
         });
      }
      void onPktVersion() override { fwd([](auto* sm) { sm->handlePktVersion(); }); }
      void onRunning() override { fwd([](auto* sm) { sm->handleRunning(); }); }
   };
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpTargetSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpAdjChange(k); });
      }
   };
   class RxMsgPipeReactor : public Vek::CustomReactor<LdpMsgPipe::NotifieeConst, LdpTargetSm> {
    public:
      using CustomReactor::CustomReactor;
      void onReadableCount() override { fwd([](auto* sm) { sm->handleRxMsg(); }); }
   };

   Inputs in_;
   Vek::Ptr<LdpMsgGen> ldpMsgGen_;
   Vek::Ptr<Nolu::Pkt> pkt_;
   Vek::String reason_;
   Vek::Ptr<Hesk::TimerTask> txTimerTask_;
   Vek::Seconds txTimeNewAdjDelay_ = 0.1;
   Nolu::IpGenAddr ipTransportAddr_;
   LdpIdentifier localLdpIdentifier_;

   Vek::Input<TargetConfigReactor> ldpTargetConfigReactor_;
   Vek::Input<CommonConfigReactor> ldpTargetCommonConfigReactor_;
   Vek::Input<ProtoParamReactor> ldpProtoParamReactor_;
   Vek::Input<TargetStatusReactor> ldpTargetStatusReactor_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::Input<RxMsgPipeReactor> rxMsgPipeReactor_;
};

class LdpTargetSmColl : public LdpSmColl<Nolu::IpAddr, LdpTargetSm> {
 public:
   using LdpSmColl::LdpSmColl;
   Vek::Ptr<LdpTargetSm> targetSm(Nolu::IpAddr k) const { return sm(k); }
   void targetSmIs(Nolu::IpAddr k, Vek::Ptr<LdpTargetSm> const& p) { smIs(k, p); }
   void targetSmDel(Nolu::IpAddr k) { smDel(k); }
};

class LdpTargetSmManager : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<LdpProtoParamConfig const> ldpProtoParam;
      Vek::Ptr<LdpTargetConfigColl const> ldpTargetConfigColl;
      Vek::Ptr<LdpTargetStatusColl> ldpTargetStatusColl;
      Vek::Ptr<LdpTargetSmColl> ldpTargetSmColl;
      Vek::Ptr<LdpTargetMsgPipeCollection> ldpTargetMsgPipeCollection;
      Vek::Ptr<LdpAdjConfigColl> ldpAdjConfigColl;
      Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl;
      Vek::Ptr<LdpAdjMsgPipeCollection const> ldpAdjMsgPipe;
      Vek::Ptr<Nolu::UdpPam> txUdpPam;
      Vek::Ptr<Status> status;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpTargetSmManager> LdpTargetSmManagerIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpTargetSmManager>(instId, in);
   }
   LdpTargetSmManager(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleLdpTargetConfig(Nolu::IpAddr const& address);

 private:
   class TargetConfigCollReactor
      : public Vek::CustomReactor<LdpTargetConfigColl::NotifieeConst, LdpTargetSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjTargetConfig(Nolu::IpAddr const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpTargetConfig(k); });
      }
   };
   Inputs in_;
   Vek::Input<TargetConfigCollReactor> ldpTargetConfigCollReactor_;
};

}  // namespace Ldp
