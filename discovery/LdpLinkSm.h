#pragma once
// One machine per interface on which link discovery runs: it decides whether
// the link may run, keeps one prebuilt Hello, sends it on a timer through the
// link channel's pipe, and hands received Hellos to their adjacency, making
// the adjacency's configuration the first time a neighbour is heard. The
// manager makes and drops the machine and everything of its interface.
#include "entities/LdpSm.h"
#include "discovery/LdpHelloParam.h"
#include "discovery/LdpReactors.h"
#include "discovery/LdpSmColl.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpStatus.h"
#include "wire/LdpMsgGen.h"

namespace Ldp {

class LdpLinkSm : public LdpSm {
 public:
   struct Inputs {
      Nolu::IntfId intfId;
      Vek::Ptr<LdpLinkConfig const> ldpLinkConfig;
      Vek::Ptr<LdpLinkCommonConfig const> ldpLinkCommonConfig;
      Vek::Ptr<LdpProtoParamConfig const> ldpProtoParam;
      Vek::Ptr<LdpLinkStatus> ldpLinkStatus;
      Vek::Ptr<LdpLinkCommonStatus> ldpLinkCommonStatus;
      Vek::Ptr<LdpAdjConfigColl> ldpAdjConfigColl;
      Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl;
      Vek::Ptr<LdpAdjMsgPipeCollection const> ldpAdjMsgPipe;
      Vek::Ptr<Status> status;
      Vek::Ptr<LdpMsgPipe> rxMsgPipe;
      Vek::Ptr<LdpMsgPipe> txMsgPipe;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpLinkSm> LdpLinkSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpLinkSm>(instId, in);
   }
   LdpLinkSm(U32 instId, Inputs const& in);

   Nolu::IntfId const& intfId() const { return in_.intfId; }
   Vek::String const& reason() const { return reason_; }
   Vek::Ptr<Nolu::Pkt> const& pkt() const { return pkt_; }
   Vek::Ptr<LdpMsgGen> const& ldpMsgGen() const { return ldpMsgGen_; }
   Hesk::TimerTask* txTimer() const { return txTimer_.ptr(); }
   Vek::Ptr<LdpLinkStatus> const& ldpLinkStatus() const { return in_.ldpLinkStatus; }
   Vek::Ptr<LdpLinkCommonConfig const> const& ldpLinkCommonConfig() const {
      return in_.ldpLinkCommonConfig;
   }
   Vek::Seconds txTimeNewAdjDelay() const { return txTimeNewAdjDelay_; }

   void handleInitialized();
   void computeRunning();
   void handleConfig();
   void handleHdrConfig();
   void handleRunning();
   void handlePktVersion();
   void handleTxTimer();
   void resetTxTimer();
   void handleIpTransportAddr();
   void handleLocalLdpIdentifier();
   void handleLdpAdjChange(LdpAdjId const& adjId);
   void handleRxMsg();

 private:
   class LinkConfigReactor : public Vek::CustomReactor<LdpLinkConfig::NotifieeConst, LdpLinkSm> {
    public:
      using CustomReactor::CustomReactor;
      void onInterval() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onHoldTime() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onIpAddr() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onOperStatus() override { fwd([](auto* sm) { sm->computeRunning(); }); }
   };
   class CommonConfigReactor
      : public Vek::CustomReactor<LdpLinkCommonConfig::NotifieeConst, LdpLinkSm> {
    public:
      using CustomReactor::CustomReactor;
      void onInterval() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onHoldTime() override { fwd([](auto* sm) { sm->handleConfig(); }); }
      void onIpTransportAddr() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->handleIpTransportAddr();
         });
      }
      void onLdpId() override {
         fwd([](auto* sm) {
            sm->handleHdrConfig();
            sm->handleLocalLdpIdentifier();
         });
      }
      void onTtl() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onConfigSeqNum() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
   };
   class ProtoParamReactor
      : public Vek::CustomReactor<LdpProtoParamConfig::NotifieeConst, LdpLinkSm> {
    public:
      using CustomReactor::CustomReactor;
      void onTlvIpTransportAddrIncude() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onTlvIpTransportUnknownBit() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onTlvConfigSeqNumInclude() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onTlvConfigSeqNumUnknownBit() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
   };
   class LinkStatusReactor : public Vek::CustomReactor<LdpLinkStatus::NotifieeConst, LdpLinkSm> {
    public:
      using CustomReactor::CustomReactor;
      void onInterval() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onHoldTime() override { fwd([](auto* sm) { sm->handleHdrConfig(); }); }
      void onPktVersion() override { fwd([](auto* sm) { sm->handlePktVersion(); }); }
      void onRunning() override { fwd([](auto* sm) { sm->handleRunning(); }); }
   };
   class AdjStatusCollReactor
      : public Vek::CustomReactor<LdpAdjStatusColl::NotifieeConst, LdpLinkSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjStatus(LdpAdjId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpAdjChange(k); });
      }
   };
   class RxMsgPipeReactor : public Vek::CustomReactor<LdpMsgPipe::NotifieeConst, LdpLinkSm> {
    public:
      using CustomReactor::CustomReactor;
      void onReadableCount() override { fwd([](auto* sm) { sm->handleRxMsg(); }); }
   };

   Inputs in_;
   Vek::Ptr<LdpMsgGen> ldpMsgGen_;
   Vek::Ptr<Nolu::Pkt> pkt_;
   Vek::String reason_;
   Vek::Ptr<Hesk::TimerTask> txTimer_;
   Vek::Seconds txTimeNewAdjDelay_ = 0.1;
   Nolu::IpGenAddr ipTransportAddr_;
   LdpIdentifier localLdpIdentifier_;

   Vek::Input<LinkConfigReactor> ldpLinkConfigReactor_;
   Vek::Input<CommonConfigReactor> ldpLinkCommonConfigReactor_;
   Vek::Input<ProtoParamReactor> ldpProtoParamReactor_;
   Vek::Input<LinkStatusReactor> ldpLinkStatusReactor_;
   Vek::Input<AdjStatusCollReactor> ldpAdjStatusCollReactor_;
   Vek::Input<RxMsgPipeReactor> rxMsgPipeReactor_;
};

class LdpLinkSmColl : public LdpSmColl<Nolu::IntfId, LdpLinkSm> {
 public:
   using LdpSmColl::LdpSmColl;
   Vek::Ptr<LdpLinkSm> adjLinkSm(Nolu::IntfId const& k) const { return sm(k); }
   void adjLinkSmIs(Nolu::IntfId const& k, Vek::Ptr<LdpLinkSm> const& p) { smIs(k, p); }
   void adjLinkSmDel(Nolu::IntfId const& k) { smDel(k); }
};

class LdpLinkSmManager : public LdpSm {
 public:
   static Vek::Ptr<LdpLinkSmManager> LdpLinkSmManagerIs(
      U32 instId, Vek::Ptr<LdpProtoParamConfig const> const& ldpProtoParam,
      Vek::Ptr<LdpLinkConfigColl const> const& ldpLinkConfigColl,
      Vek::Ptr<LdpLinkStatusColl> const& ldpLinkStatusColl,
      Vek::Ptr<LdpLinkSmColl> const& ldpLinkSmColl,
      Vek::Ptr<LdpAdjConfigColl> const& ldpAdjConfigColl,
      Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
      Vek::Ptr<LdpAdjMsgPipeCollection const> const& ldpAdjMsgPipe,
      Vek::Ptr<LdpLinkMsgPipeCollection> const& rxMsgPipeColl,
      Vek::Ptr<LdpLinkMsgPipeCollection> const& txMsgPipeColl, Vek::Ptr<Status> const& status,
      Vek::Ptr<Hesk::TaskScheduler> const& scheduler) {
      return Vek::makeSm<LdpLinkSmManager>(instId, ldpProtoParam, ldpLinkConfigColl,
                                           ldpLinkStatusColl, ldpLinkSmColl, ldpAdjConfigColl,
                                           ldpAdjStatusColl, ldpAdjMsgPipe, rxMsgPipeColl,
                                           txMsgPipeColl, status, scheduler);
   }
   LdpLinkSmManager(U32 instId, Vek::Ptr<LdpProtoParamConfig const> const& ldpProtoParam,
                    Vek::Ptr<LdpLinkConfigColl const> const& ldpLinkConfigColl,
                    Vek::Ptr<LdpLinkStatusColl> const& ldpLinkStatusColl,
                    Vek::Ptr<LdpLinkSmColl> const& ldpLinkSmColl,
                    Vek::Ptr<LdpAdjConfigColl> const& ldpAdjConfigColl,
                    Vek::Ptr<LdpAdjStatusColl const> const& ldpAdjStatusColl,
                    Vek::Ptr<LdpAdjMsgPipeCollection const> const& ldpAdjMsgPipe,
                    Vek::Ptr<LdpLinkMsgPipeCollection> const& rxMsgPipeColl,
                    Vek::Ptr<LdpLinkMsgPipeCollection> const& txMsgPipeColl,
                    Vek::Ptr<Status> const& status, Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   void handleInitialized();
   void handleLdpLinkConfig(Nolu::IntfId const& intfId);

 private:
   class LinkConfigCollReactor
      : public Vek::CustomReactor<LdpLinkConfigColl::NotifieeConst, LdpLinkSmManager> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjLinkConfig(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleLdpLinkConfig(k); });
      }
   };

   Vek::Ptr<LdpProtoParamConfig const> ldpProtoParam_;
   Vek::Ptr<LdpLinkConfigColl const> ldpLinkConfigColl_;
   Vek::Ptr<LdpLinkStatusColl> ldpLinkStatusColl_;
   Vek::Ptr<LdpLinkSmColl> ldpLinkSmColl_;
   Vek::Ptr<LdpAdjConfigColl> ldpAdjConfigColl_;
   Vek::Ptr<LdpAdjStatusColl const> ldpAdjStatusColl_;
   Vek::Ptr<LdpAdjMsgPipeCollection const> ldpAdjMsgPipe_;
   Vek::Ptr<LdpLinkMsgPipeCollection> rxMsgPipeColl_;
   Vek::Ptr<LdpLinkMsgPipeCollection> txMsgPipeColl_;
   Vek::Ptr<Status> status_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Input<LinkConfigCollReactor> ldpLinkConfigCollReactor_;
};

}  // namespace Ldp
