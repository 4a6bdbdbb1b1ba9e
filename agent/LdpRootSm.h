#pragma once
// Decides in which VRFs LDP runs, and makes and deletes one LdpRoot for each:
// the VRF must be active (the default VRF always is), have its IP status, and
// have a protocol configuration that isn't disabled. A stopping configuration
// makes the decision wait for its final value.
#include "agent/AgentCommand.h"
#include "agent/IntfStatusManager.h"
#include "agent/LdpRoot.h"
#include "runtime/ombra/Ombra.h"

namespace Ldp {

// What the root machine is made with, in the order of its constructor.
struct LdpRootSmInputs {
   Vek::Ptr<Tesh::Fib::FecModeStatus const> fecModeStatus;
   Vek::Ptr<LdpConfigColl const> ldpConfigColl;
   Vek::Ptr<LdpProtoConfigColl> ldpProtoConfigColl;
   Vek::Ptr<LdpStatusColl> ldpStatusColl;
   Vek::Ptr<LdpLinkReadyStatusVrfColl> ldpLinkReadyStatusVrfColl;
   Vek::Ptr<LdpAgentStatus> ldpAgentStatus;
   Vek::Ptr<Mpls::ClientLabelRequest> mplsLabelRequest;
   Vek::Ptr<Mpls::Api::Status const> mplsAgentStatus;
   Vek::Ptr<Mpls::Hardware::Status const> mplsHwStatus;
   Vek::Ptr<Ip::AllVrfStatusLocal const> allVrfStatusLocal;
   Vek::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir;
   Vek::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir;
   Vek::Ptr<KernelNetInfo::Status const> kniStatus;
   Vek::Ptr<Mpls::Config const> mplsConfig;
   Vek::Ptr<Bridging::Config const> bridgingConfig;
   Vek::Ptr<Ip::Status const> ipStatus;
   Vek::Ptr<Tesh::Fib::RouteStatus const> routeStatus;
   Vek::Ptr<Tesh::Fib::ForwardingStatus const> forwardingStatus;
   Vek::Ptr<Pseudowire::PseudowireLdpConfig const> pwLdpConfig;
   Vek::Ptr<Pseudowire::PseudowireLdpStatus> pwLdpStatus;
   Vek::Ptr<Acl::Config const> aclConfig;
   Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> srTunnelRib;
   Vek::Ptr<Ombra::EntityManager> entityManager;
   Vek::Ptr<VekTesh::Mount> teshEntityManager;
   Vek::Ptr<Vek::Dir const> cliRequestDir;
   Vek::Ptr<Hesk::TaskScheduler> scheduler;
   // The reserve phase of label allocation lasts until reservePhaseEnd(),
   // for a host whose start goes on after the agent's (configuration and
   // routes come later).
   bool holdReservePhase = false;
   Vek::Ptr<Hesk::TimerWheel> timerWheel;
   // The namespace of the default VRF.
   Nolu::NamespaceName netNs = Nolu::NamespaceName("default");
};

// The agent's one command: scheduler statistics.
class LdpAgentSchedStatsCommandCallback : public ::Agent::AgentCommandCallback {
 public:
   explicit LdpAgentSchedStatsCommandCallback(Vek::Ptr<Hesk::TaskScheduler> const& s)
      : AgentCommandCallback("LdpAgentSchedStats"), scheduler_(s) {}
   void handleCommand(std::ostream& socket, std::string const& command) override;

 private:
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
};

class LdpRootSm : public LdpSm {
 public:
   static Vek::Ptr<LdpRootSm> LdpRootSmIs(U32 instId, LdpRootSmInputs const& in) {
      return Vek::makeSm<LdpRootSm>(instId, in);
   }
   LdpRootSm(U32 instId, LdpRootSmInputs const& in);

   Vek::Ptr<LdpRoot> ldpRoot(L3::VrfName const& vrf) const { return ldpRoot_.find(vrf); }
   std::size_t ldpRootCount() const { return ldpRoot_.size(); }
   Vek::String const& reason() const { return reason_; }
   ::Agent::AgentCommandRequestDirSm* cliRequestDirSm() const { return cliRequestDirSm_.get(); }
   Interface::DeviceIntfStatusDir* deviceIntfStatusDir() const { return deviceIntfStatusDir_.ptr(); }
   Hesk::NumAllocator* numAllocator() const { return numAllocator_.ptr(); }
   LabelAllocGlobalStatus* labelAllocGlobalStatus() const { return labelAllocGlobalStatus_.ptr(); }

   void handleInitialized();
   void handleDelete() override;
   // The end of agent start: labels left from the last run can no longer be
   // claimed, and new ones are handed out.
   void reservePhaseEnd();
   void handleConfig();
   void handleConfig(L3::VrfName const& vrf);
   void handleVrfCreate(L3::VrfName const& vrf);
   void handleVrfDelete(L3::VrfName const& vrf);
   // Reactor handlers: the collections make or drop the per-VRF reactors.
   void handleProtoConfig(L3::VrfName const& vrf);
   void handleVrf(L3::VrfName const& vrf);
   void handleVrfIpIntfStatus(L3::VrfName const& vrf) { handleConfig(vrf); }
   void handleVrfConfig(L3::VrfName const& vrf) { handleConfig(vrf); }
   void handleVrfState(L3::VrfName const& vrf) { handleConfig(vrf); }

 private:
   // The running state of one VRF's protocol configuration.
   class ProtoConfigReactor : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpRootSm> {
    public:
      ProtoConfigReactor(LdpRootSm* sm, Vek::Ptr<ProtoConfig const> const& pc, L3::VrfName vrf)
         : CustomReactor(sm, pc), vrf_(std::move(vrf)) {}
      void onRunningState() override {
         fwd([this](LdpRootSm* sm) { sm->handleVrfConfig(L3::VrfName(vrf_)); });
      }

    private:
      L3::VrfName vrf_;
   };
   // The state of one VRF.
   class VrfStateReactor : public Vek::CustomReactor<Ip::VrfStatusLocal::NotifieeConst, LdpRootSm> {
    public:
      VrfStateReactor(LdpRootSm* sm, Vek::Ptr<Ip::VrfStatusLocal const> const& v, L3::VrfName vrf)
         : CustomReactor(sm, v), vrf_(std::move(vrf)) {}
      void onState() override {
         fwd([this](LdpRootSm* sm) { sm->handleVrfState(L3::VrfName(vrf_)); });
      }

    private:
      L3::VrfName vrf_;
   };

   LdpRootSmInputs in_;
   Vek::String reason_;
   Vek::SmChild<::Agent::AgentCommandRequestDirSm> cliRequestDirSm_{this};
   Vek::SmChild<Interface::NetNsIntfStatusManagerRoot> intfStatusManagerRoot_{this};
   Vek::Ptr<Interface::DeviceIntfStatusDir> deviceIntfStatusDir_;
   Vek::Ptr<Hesk::NumAllocatorConfig> numAllocatorConfig_;
   Vek::Ptr<Hesk::NumAllocatorStatus> numAllocatorStatus_;
   Vek::Ptr<Hesk::NumAllocator> numAllocator_;
   Vek::Ptr<LabelAllocGlobalStatus> labelAllocGlobalStatus_;
   Vek::SmColl<L3::VrfName, LdpRoot> ldpRoot_{this};
   U32 nextInstId_ = 1;

   Vek::Input<LdpProtoConfigColl::Reactor<LdpRootSm>> ldpProtoConfigCollReactor_;
   Vek::Input<Ip::AllVrfStatusLocal::Reactor<LdpRootSm>> allVrfStatusLocalReactor_;
   Vek::Input<Ip::Status::Reactor<LdpRootSm>> ipStatusReactor_;
   Vek::ReactorColl<L3::VrfName, ProtoConfigReactor> protoConfig_;
   Vek::ReactorColl<L3::VrfName, VrfStateReactor> vrfStatusLocal_;
};

}  // namespace Ldp
