#pragma once
// The VRF's one UDP channel of link discovery, on the all-routers group and
// the LDP port. It keeps multicast membership in step with the links,
// validates every datagram before anything else sees it, hands accepted
// Hellos to the receive pipe of their interface, and sends the Hellos of the
// transmit pipes with the interface's own source address.
#include "entities/LdpSm.h"
#include "discovery/LdpHelloParam.h"
#include "discovery/LdpReactors.h"
#include "discovery/LdpServiceAcl.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpStatus.h"
#include "runtime/nolu/Pam.h"

namespace Ldp {

class LdpLinkUdpPamSm : public LdpSm {
 public:
   struct Inputs {
      L3::VrfName vrfName;
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpLinkUdpPamStatus> ldpLinkUdpPamStatus;
      Vek::Ptr<LdpLinkMsgPipeCollection const> rxMsgPipeColl;
      Vek::Ptr<LdpLinkMsgPipeCollection const> ldpLinkTxMsgPipeColl;
      Vek::Ptr<LdpLinkConfigColl const> ldpLinkConfigColl;
      Vek::Ptr<LdpLinkStatusColl const> ldpLinkStatusColl;
      Vek::Ptr<LdpLinkCommonConfig const> ldpLinkCommonConfig;
      Vek::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir;
      Vek::Ptr<LdpProtoParamConfig const> ldpProtoParam;
      Vek::Ptr<Nolu::UdpPam> udpPam;
      Vek::Ptr<LdpServiceAclFilter const> serviceAclFilterSm;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
   };
   static Vek::Ptr<LdpLinkUdpPamSm> LdpLinkUdpPamSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpLinkUdpPamSm>(instId, in);
   }
   LdpLinkUdpPamSm(U32 instId, Inputs const& in);

   static Nolu::IpAddr allRoutersGroup() { return Nolu::IpAddr(LdpProtoParam::allRoutersGroup()); }
   std::size_t intfMcastCollSize() const { return intfMcastColl_.size(); }
   bool intfMcastCollHas(Nolu::IntfId const& k) const { return intfMcastColl_.contains(k); }
   Hesk::TimerTask* intfMcastTimerTask() const { return intfMcastTimerTask_.ptr(); }

   void handleInitialized();
   void handleEnableRxUdpPam();
   void handleDisableRxUdpPam();
   void handleRxPamReadable();
   void handleLinkConfigColl(Nolu::IntfId const& intfId);
   void handleIntfMcastTimerTask();
   void handleTxMsgPipe(Nolu::IntfId const& intfId);
   void handleTxPamReadable(Nolu::IntfId const& intfId);
   void handleIntfIdByIfIndex(U32 const& ifIndex);

 private:
   class UdpPamReactor : public Vek::CustomReactor<Nolu::UdpPam::NotifieeConst, LdpLinkUdpPamSm> {
    public:
      using CustomReactor::CustomReactor;
      void onReadableCount() override { fwd([](auto* sm) { sm->handleRxPamReadable(); }); }
   };
   class LinkConfigCollReactor
      : public Vek::CustomReactor<LdpLinkConfigColl::NotifieeConst, LdpLinkUdpPamSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdjLinkConfig(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleLinkConfigColl(k); });
      }
   };
   class TxPipeCollReactor
      : public Vek::CustomReactor<LdpLinkMsgPipeCollection::NotifieeConst, LdpLinkUdpPamSm> {
    public:
      using CustomReactor::CustomReactor;
      void onMsgPipe(Nolu::IntfId const& k) override {
         fwd([&k](auto* sm) { sm->handleTxMsgPipe(k); });
      }
   };
   class DeviceDirReactor
      : public Vek::CustomReactor<Interface::DeviceIntfStatusDir::NotifieeConst, LdpLinkUdpPamSm> {
    public:
      using CustomReactor::CustomReactor;
      void onIntfIdByIfIndex(U32 const& k) override {
         fwd([&k](auto* sm) { sm->handleIntfIdByIfIndex(k); });
      }
   };
   class TxPipeReactor
      : public KeyedReactor<LdpMsgPipe::NotifieeConst, LdpLinkUdpPamSm, Nolu::IntfId> {
    public:
      using KeyedReactor::KeyedReactor;
      void onReadableCount() override { fire(); }
   };

   Inputs in_;
   Vek::HashMap<Nolu::IntfId, bool> intfMcastColl_;
   // Kernel index by interface, the reverse of the device directory's map.
   Vek::HashMap<Nolu::IntfId, U32> ifIndexByIntf_;
   Vek::HashMap<U32, Nolu::IntfId> intfByIfIndex_;
   Vek::Ptr<Hesk::TimerTask> intfMcastTimerTask_;

   Vek::Input<UdpPamReactor> udpPamReactor_;
   Vek::Input<LinkConfigCollReactor> ldpLinkConfigCollReactor_;
   Vek::Input<TxPipeCollReactor> ldpLinkTxMsgPipeCollReactor_;
   Vek::Input<DeviceDirReactor> deviceIntfStatusDirReactor_;
   Vek::ReactorColl<Nolu::IntfId, TxPipeReactor> txMsgPipe_;
};

}  // namespace Ldp
