#pragma once
// The per-VRF container: it makes the VRF's holders and then its machines,
// strictly in the order of the wiring, each finding finished what stands above
// it.
#include "entities/LdpMsgPipe.h"
#include "agent/LdpPamDesiredIntfSm.h"
#include "agent/LdpProtoConfigConsistencySm.h"
#include "agent/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/agent/Scheduling.h"
#include "runtime/hesk/NumAllocator.h"

namespace Ldp {

// What a VRF's root is made with.
struct LdpRootInputs {
   L3::VrfName vrfName;
   Nolu::NamespaceName netNs;
   Vek::Ptr<Config const> config;
   Vek::Ptr<ProtoConfig> protoConfig;
   Vek::Ptr<Status> status;
   Vek::Ptr<LdpLinkReadyStatusColl> ldpLinkReadyStatusColl;
   Vek::Ptr<Hesk::NumAllocator> numAllocator;
   Vek::Ptr<Hesk::NumAllocatorConfig> numAllocatorConfig;
   Vek::Ptr<Hesk::NumAllocatorStatus> numAllocatorStatus;
   Vek::Ptr<LabelAllocGlobalStatus> labelAllocGlobalStatus;
   Vek::Ptr<Mpls::ClientLabelRequest> mplsLabelRequest;
   Vek::Ptr<Mpls::Api::Status const> mplsAgentStatus;
   Vek::Ptr<Mpls::Hardware::Status const> mplsHwStatus;
   Vek::Ptr<Mpls::Config const> mplsConfig;
   Vek::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir;
   Vek::Ptr<Ip::VrfIpIntfStatus const> vrfIpIntfStatus;
   Vek::Ptr<Bridging::Config const> bridgingConfig;
   Vek::Ptr<Interface::AllIntfStatusDir const> allIntfStatusDir;
   Vek::Ptr<Tesh::Fib::RouteStatus const> routeStatus;
   Vek::Ptr<Tesh::Fib::ForwardingStatus const> forwardingStatus;
   Vek::Ptr<Pseudowire::PseudowireLdpConfig const> pwLdpConfig;
   Vek::Ptr<Pseudowire::PseudowireLdpStatus> pwLdpStatus;
   Vek::Ptr<Acl::Config const> aclConfig;
   Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> srTunnelRib;
   Vek::Ptr<Hesk::TaskScheduler> scheduler;
   Vek::Ptr<Hesk::TimerWheel> timerWheel;
};

class LdpRoot : public LdpSm {
 public:
   static Vek::Ptr<LdpRoot> LdpRootIs(U32 instId, LdpRootInputs const& in) {
      return Vek::makeSm<LdpRoot>(instId, in);
   }
   LdpRoot(U32 instId, LdpRootInputs const& in);

   LdpRootInputs const& inputs() const { return in_; }
   L3::VrfName const& vrfName() const { return in_.vrfName; }
   Interface::PamDesiredIntfDir* pamDesiredIntfDir() const { return pamDesiredIntfDir_.ptr(); }
   LdpLinkMsgPipeCollection* ldpLinkRxMsgPipeColl() const { return ldpLinkRxMsgPipeColl_.ptr(); }
   LdpLinkMsgPipeCollection* ldpLinkTxMsgPipeColl() const { return ldpLinkTxMsgPipeColl_.ptr(); }
   LdpAdjMsgPipeCollection* ldpAdjMsgPipeColl() const { return ldpAdjMsgPipeColl_.ptr(); }
   LdpTargetMsgPipeCollection* ldpTargetMsgPipeColl() const { return ldpTargetMsgPipeColl_.ptr(); }
   LdpSessionMsgPipeColl* ldpSessionMsgPipeColl() const { return ldpSessionMsgPipeColl_.ptr(); }
   LdpFecMsgPipeColl* ldpFecMsgPipeColl() const { return ldpFecMsgPipeColl_.ptr(); }
   PwFecSessionMsgPipeColl* pwFecSessionMsgPipeColl() const { return pwFecSessionMsgPipeColl_.ptr(); }
   LdpPamDesiredIntfSm* ldpPamDesiredIntfSm() const { return ldpPamDesiredIntfSm_.get(); }
   LdpProtoConfigConsistencySm* ldpProtoConfigConsistencySm() const {
      return ldpProtoConfigConsistencySm_.get();
   }
   // The machines made, in order, for traces and tests.
   std::vector<std::string> const& madeLog() const { return madeLog_; }

   void handleInitialized();
   void handleDelete() override;

 private:
   LdpRootInputs in_;
   Vek::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir_;
   Vek::Ptr<LdpLinkMsgPipeCollection> ldpLinkRxMsgPipeColl_;
   Vek::Ptr<LdpLinkMsgPipeCollection> ldpLinkTxMsgPipeColl_;
   Vek::Ptr<LdpAdjMsgPipeCollection> ldpAdjMsgPipeColl_;
   Vek::Ptr<LdpTargetMsgPipeCollection> ldpTargetMsgPipeColl_;
   Vek::Ptr<LdpSessionMsgPipeColl> ldpSessionMsgPipeColl_;
   Vek::Ptr<LdpFecMsgPipeColl> ldpFecMsgPipeColl_;
   Vek::Ptr<PwFecSessionMsgPipeColl> pwFecSessionMsgPipeColl_;
   Vek::Ptr<LdpP2mpFecSessionLocalLabelMsgPipeColl> p2mpFecSessionLocalLabelMsgPipeColl_;
   Vek::Ptr<LdpP2mpFecSessionRemoteLabelMsgPipeColl> p2mpFecSessionRemoteLabelMsgPipeColl_;

   Vek::SmChild<LdpPamDesiredIntfSm> ldpPamDesiredIntfSm_{this};
   Vek::SmChild<LdpProtoConfigConsistencySm> ldpProtoConfigConsistencySm_{this};
   std::vector<std::string> madeLog_;
};

}  // namespace Ldp
