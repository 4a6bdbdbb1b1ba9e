#pragma once
// The per-VRF container: it makes the VRF's holders and then its machines,
// strictly in the order of the wiring, each finding finished what stands above
// it.
#include "entities/LdpMsgPipe.h"
#include "agent/LdpPamDesiredIntfSm.h"
#include "agent/LdpProtoConfigConsistencySm.h"
#include "entities/LdpSm.h"
#include "discovery/LdpAdjPeerManager.h"
#include "discovery/LdpAdjSm.h"
#include "discovery/LdpLinkConfigSm.h"
#include "discovery/LdpLinkSm.h"
#include "discovery/LdpLinkUdpPamSm.h"
#include "discovery/LdpPeerConfigSm.h"
#include "discovery/LdpPeerSessionManager.h"
#include "discovery/LdpTargetConfigSm.h"
#include "discovery/LdpTargetServerConfigSm.h"
#include "discovery/LdpTargetServerSm.h"
#include "discovery/LdpTargetSm.h"
#include "label/LdpFecConfigSm.h"
#include "label/LdpFecSessionCtrlSm.h"
#include "label/LdpFecSessionMappingSm.h"
#include "label/LdpFecSessionRequestSm.h"
#include "label/LdpFecSessionRxSm.h"
#include "label/LdpFecSessionSmManager.h"
#include "label/LdpPeerLabelBindingTableSm.h"
#include "label/LdpFecSmManager.h"
#include "label/LdpFibSm.h"
#include "label/LdpIndexSm.h"
#include "label/LdpLabelAllocSm.h"
#include "label/LdpLabelRequestManager.h"
#include "label/LdpLocalBindingTableSm.h"
#include "label/LdpStaticFecBindingSm.h"
#include "aux/LdpTunnelRibListenerSm.h"
#include "pw/PwConfigSm.h"
#include "pw/PwFecSessionSmManager.h"
#include "pw/PwLdpRequestSm.h"
#include "pw/PwLdpResponseSm.h"
#include "aux/LdpIpIntfStatusSm.h"
#include "aux/LdpLinkReadySm.h"
#include "aux/LdpP2mpSm.h"
#include "label/LdpLibAdvertisementProducerSm.h"
#include "label/LdpLibProducerSm.h"
#include "session/LdpPduPamManager.h"
#include "session/LdpSessionConfigSm.h"
#include "session/LdpTcpConnSm.h"
#include "session/LdpTcpServerSm.h"
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
   // The shared tables of the forwarding side: the default VRF's only, null
   // in other VRFs.
   Vek::Ptr<Mpls::LfibStatus> p2mpLfibStatus;
   Vek::Ptr<LdpP2mpLabelBindingTable> p2mpLabelBindingTable;
   Vek::Ptr<LdpTesh::LdpLabelBindingTable> labelBindingTable;
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
   // Discovery: the holders, the channels and the machines.
   LdpProtoParamConfig* ldpProtoParam() const { return ldpProtoParam_.ptr(); }
   LdpLinkSmColl* ldpLinkSmColl() const { return ldpLinkSmColl_.get(); }
   LdpTargetSmColl* ldpTargetSmColl() const { return ldpTargetSmColl_.get(); }
   LdpAdjSmColl* ldpAdjSmColl() const { return ldpAdjSmColl_.get(); }
   Nolu::UdpPam* ldpTargetUdpPam() const { return ldpTargetUdpPam_.ptr(); }
   Nolu::UdpPam* ldpLinkUdpPam() const { return ldpLinkUdpPam_.ptr(); }
   LdpIndexSm* ldpIndexSm() const { return ldpIndexSm_.get(); }
   LdpTargetServerSm* ldpTargetServerSm() const { return ldpTargetServerSm_.get(); }
   LdpPeerSessionManager* ldpPeerSessionManager() const { return ldpPeerSessionManager_.get(); }
   LdpPeerConfigSm* ldpPeerConfigSm() const { return ldpPeerConfigSm_.get(); }
   LdpAdjSmManager* ldpAdjSmManager() const { return ldpAdjSmManager_.get(); }
   LdpAdjPeerManager* ldpAdjPeerManager() const { return ldpAdjPeerManager_.get(); }
   LdpLinkConfigSm* ldpLinkConfigSm() const { return ldpLinkConfigSm_.get(); }
   LdpLinkUdpPamSm* ldpLinkUdpPamSm() const { return ldpLinkUdpPamSm_.get(); }
   LdpLinkSmManager* ldpLinkSmManager() const { return ldpLinkSmManager_.get(); }
   LdpTargetConfigSm* ldpTargetConfigSm() const { return ldpTargetConfigSm_.get(); }
   LdpTargetSmManager* ldpTargetSmManager() const { return ldpTargetSmManager_.get(); }
   LdpTargetServerConfigSm* ldpTargetServerConfigSm() const {
      return ldpTargetServerConfigSm_.get();
   }
   // Sessions: the channel holders, the machines of all sessions and the
   // machines that make them.
   LdpPduPamColl* ldpPduPamColl() const { return ldpPduPamColl_.ptr(); }
   LdpPduPamSessionColl* ldpPduPamSessionColl() const { return ldpPduPamSessionColl_.ptr(); }
   LdpPduPamShutdownColl* ldpPduPamShutdownColl() const { return ldpPduPamShutdownColl_.ptr(); }
   LdpSessionSmColl* ldpSessionSmColl() const { return ldpSessionSmColl_.ptr(); }
   LdpTcpServerSm* ldpTcpServerSm() const { return ldpTcpServerSm_.get(); }
   LdpTcpConnSm* ldpTcpConnSm() const { return ldpTcpConnSm_.get(); }
   LdpPduPamManager* ldpPduPamManager() const { return ldpPduPamManager_.get(); }
   LdpSessionConfigSm* ldpSessionConfigSm() const { return ldpSessionConfigSm_.get(); }
   LdpSessionSmManager* ldpSessionSmManager() const { return ldpSessionSmManager_.get(); }
   // Label distribution.
   LdpFecSessionNotifier* ldpFecSessionRxNotifier() const { return ldpFecSessionRxNotifier_.ptr(); }
   LdpMsgPipe* ldpFecSessionSingletonMsgPipe() const { return ldpFecSessionSingletonMsgPipe_.ptr(); }
   LdpLabelRequestManager* ldpLabelRequestManager() const { return ldpLabelRequestManager_.get(); }
   LdpLabelAllocSm* ldpLabelAllocSm() const { return ldpLabelAllocSm_.get(); }
   LdpLocalBindingTableSm* ldpLocalBindingTableSm() const { return ldpLocalBindingTableSm_.get(); }
   LdpStaticFecBindingSm* ldpStaticFecBindingSm() const { return ldpStaticFecBindingSm_.get(); }
   LdpTunnelRibListenerSm* ldpTunnelRibListenerSm() const { return ldpTunnelRibListenerSm_.get(); }
   LdpFibSm* ldpFibSm() const { return ldpFibSm_.get(); }
   LdpFecConfigSm* ldpFecConfigSm() const { return ldpFecConfigSm_.get(); }
   LdpFecSmManager* ldpFecSmManager() const { return ldpFecSmManager_.get(); }
   LdpFecSessionSmManager* ldpFecSessionSmManager() const { return ldpFecSessionSmManager_.get(); }
   LdpFecSessionRxSm* ldpFecSessionRxSm() const { return ldpFecSessionRxSm_.get(); }
   LdpFecSessionMappingSm* ldpFecSessionMappingSm() const { return ldpFecSessionMappingSm_.get(); }
   LdpFecSessionRequestSm* ldpFecSessionRequestSm() const { return ldpFecSessionRequestSm_.get(); }
   LdpFecSessionCtrlSm* ldpFecSessionCtrlSm() const { return ldpFecSessionCtrlSm_.get(); }
   LdpPeerLabelBindingTableSm* ldpPeerLabelBindingTableSm() const {
      return ldpPeerLabelBindingTableSm_.get();
   }
   // Pseudowires, signalled in the default VRF only.
   PwConfigSmColl* pwConfigSmColl() const { return pwConfigSmColl_.get(); }
   PwFecSessionSmColl* pwFecSessionSmColl() const { return pwFecSessionSmColl_.get(); }
   PwLdpRequestSm* pwLdpRequestSm() const { return pwLdpRequestSm_.get(); }
   PwConfigSmManager* pwConfigSmManager() const { return pwConfigSmManager_.get(); }
   PwFecSessionSmManager* pwFecSessionSmManager() const { return pwFecSessionSmManager_.get(); }
   PwLdpResponseSm* pwLdpResponseSm() const { return pwLdpResponseSm_.get(); }
   // Link readiness, the published bindings and the multicast frame.
   LdpLinkReadySmColl* ldpLinkReadySmColl() const { return ldpLinkReadySmColl_.get(); }
   LdpLinkReadySmManager* ldpLinkReadySmManager() const { return ldpLinkReadySmManager_.get(); }
   LdpTesh::LdpLibProducerSm* lbtProducerSm() const { return lbtProducerSm_.get(); }
   LdpTesh::LdpLibAdvertisementProducerSm* lbtAdvertiseProducerSm() const {
      return lbtAdvertiseProducerSm_.get();
   }
   LdpP2mpFecSessionLocalLabelMsgPipeColl* p2mpFecSessionLocalLabelMsgPipeColl() const {
      return p2mpFecSessionLocalLabelMsgPipeColl_.ptr();
   }
   LdpP2mpFecSessionRemoteLabelMsgPipeColl* p2mpFecSessionRemoteLabelMsgPipeColl() const {
      return p2mpFecSessionRemoteLabelMsgPipeColl_.ptr();
   }
   // The namespace in which the VRF's channels open: the agent's own
   // namespace, which a host knows as the one the process runs in.
   Nolu::NamespaceName channelNetNs() const;
   // The machines made, in order, for traces and tests.
   std::vector<std::string> const& madeLog() const { return madeLog_; }

   void handleInitialized();
   void handleDelete() override;

 private:
   void makePwMachines();
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

   Vek::Ptr<LdpProtoParamConfig> ldpProtoParam_;
   Vek::Ptr<LdpPduPamColl> ldpPduPamColl_;
   Vek::Ptr<LdpPduPamShutdownColl> ldpPduPamShutdownColl_;
   Vek::Ptr<LdpPduPamSessionColl> ldpPduPamSessionColl_;
   Vek::Ptr<LdpSessionSmColl> ldpSessionSmColl_;
   Vek::Ptr<LdpPduPamPipeSessionColl> ldpPduPamPipeSessionTxColl_;
   Vek::Ptr<LdpPduPamPipeSessionColl> ldpPduPamPipeSessionRxColl_;
   Vek::Ptr<LdpServiceAclFilter> discoveryAclFilter_;
   Vek::Ptr<LdpFecSessionNotifier> ldpFecSessionRxNotifier_;
   Vek::Ptr<LdpFecSessionMappingSmConfig> singletonMappingSmConfig_;
   Vek::Ptr<LdpFecSessionRequestSmConfig> singletonRequestSmConfig_;
   Vek::Ptr<LdpFecSessionCtrlSmConfig> singletonCtrlSmConfig_;
   Vek::Ptr<LdpMsgPipe> ldpFecSessionSingletonMsgPipe_;
   Vek::Ptr<Nolu::UdpPam> ldpTargetUdpPam_;
   Vek::Ptr<Nolu::UdpPam> ldpLinkUdpPam_;
   Vek::SmChild<LdpLinkSmColl> ldpLinkSmColl_{this};
   Vek::SmChild<LdpTargetSmColl> ldpTargetSmColl_{this};
   Vek::SmChild<LdpAdjSmColl> ldpAdjSmColl_{this};
   Vek::SmChild<LdpLinkReadySmColl> ldpLinkReadySmColl_{this};

   Vek::SmChild<LdpTesh::LdpLibProducerSm> lbtProducerSm_{this};
   Vek::SmChild<LdpTesh::LdpLibAdvertisementProducerSm> lbtAdvertiseProducerSm_{this};

   Vek::SmChild<LdpIndexSm> ldpIndexSm_{this};
   Vek::SmChild<LdpPamDesiredIntfSm> ldpPamDesiredIntfSm_{this};
   Vek::SmChild<LdpTcpServerSm> ldpTcpServerSm_{this};
   Vek::SmChild<LdpTcpConnSm> ldpTcpConnSm_{this};
   Vek::SmChild<LdpTcpConnConfigSm> ldpTcpConnConfigSm_{this};
   Vek::SmChild<LdpPduPamManager> ldpPduPamManager_{this};
   Vek::SmChild<LdpTargetServerSm> ldpTargetServerSm_{this};
   Vek::SmChild<LdpLabelRequestManager> ldpLabelRequestManager_{this};
   Vek::SmChild<LdpLabelAllocSm> ldpLabelAllocSm_{this};
   Vek::SmChild<LdpLocalBindingTableSm> ldpLocalBindingTableSm_{this};
   Vek::SmChild<LdpStaticFecBindingSm> ldpStaticFecBindingSm_{this};
   Vek::SmChild<LdpTunnelRibListenerSm> ldpTunnelRibListenerSm_{this};
   Vek::SmChild<LdpFibSm> ldpFibSm_{this};
   Vek::SmChild<LdpIpIntfStatusSm> ldpIpIntfStatusSm_{this};
   Vek::SmChild<LdpSessionPamShutdownSm> ldpSessionPamShutdownSm_{this};
   Vek::SmChild<LdpSessionConfigSm> ldpSessionConfigSm_{this};
   Vek::SmChild<LdpSessionStatusSm> ldpSessionStatusSm_{this};
   Vek::SmChild<LdpSessionSmManager> ldpSessionSmManager_{this};
   Vek::SmChild<LdpProtoConfigConsistencySm> ldpProtoConfigConsistencySm_{this};
   Vek::SmChild<LdpFecConfigSm> ldpFecConfigSm_{this};
   Vek::SmChild<LdpFecSmManager> ldpFecSmManager_{this};
   Vek::SmChild<LdpFecSessionSmManager> ldpFecSessionSmManager_{this};
   Vek::SmChild<LdpFecSessionCtrlSm> ldpFecSessionCtrlSm_{this};
   Vek::SmChild<LdpFecSessionMappingSm> ldpFecSessionMappingSm_{this};
   Vek::SmChild<LdpFecSessionRequestSm> ldpFecSessionRequestSm_{this};
   Vek::SmChild<LdpFecSessionRxSm> ldpFecSessionRxSm_{this};
   Vek::SmChild<LdpPeerLabelBindingTableSm> ldpPeerLabelBindingTableSm_{this};
   Vek::SmChild<LdpPeerSessionManager> ldpPeerSessionManager_{this};
   Vek::SmChild<LdpPeerConfigSm> ldpPeerConfigSm_{this};
   Vek::SmChild<LdpAdjSmManager> ldpAdjSmManager_{this};
   Vek::SmChild<LdpAdjPeerManager> ldpAdjPeerManager_{this};
   Vek::SmChild<LdpLinkConfigSm> ldpLinkConfigSm_{this};
   Vek::SmChild<LdpLinkUdpPamSm> ldpLinkUdpPamSm_{this};
   Vek::SmChild<LdpLinkSmManager> ldpLinkSmManager_{this};
   Vek::SmChild<LdpTargetConfigSm> ldpTargetConfigSm_{this};
   Vek::SmChild<LdpTargetSmManager> ldpTargetSmManager_{this};
   Vek::SmChild<LdpTargetServerConfigSm> ldpTargetServerConfigSm_{this};
   Vek::SmChild<PwConfigSmColl> pwConfigSmColl_{this};
   Vek::SmChild<PwFecSessionSmColl> pwFecSessionSmColl_{this};
   Vek::SmChild<PwLdpRequestSm> pwLdpRequestSm_{this};
   Vek::SmChild<PwConfigSmManager> pwConfigSmManager_{this};
   Vek::SmChild<PwFecSessionSmManager> pwFecSessionSmManager_{this};
   Vek::SmChild<PwLdpResponseSm> pwLdpResponseSm_{this};
   Vek::SmChild<LdpLinkReadySmManager> ldpLinkReadySmManager_{this};
   Vek::SmChild<LdpP2mpFecStateSm> ldpP2mpFecStateSm_{this};
   Vek::SmChild<LdpP2mpFecStateCollSm> p2mpFecStateCollSm_{this};
   Vek::SmChild<LdpP2mpLfibGenSm> ldpP2mpLfibGenSm_{this};
   Vek::SmChild<LdpP2mpLabelBindingTableSm> ldpP2mpLabelBindingTableSm_{this};
   Vek::SmChild<LdpP2mpFecSessionLocalStateSm> ldpP2mpFecSessionLocalStateSm_{this};
   Vek::SmChild<LdpP2mpFecSessionRemoteStateSm> ldpP2mpFecSessionRemoteStateSm_{this};
   std::vector<std::string> madeLog_;
};

}  // namespace Ldp
