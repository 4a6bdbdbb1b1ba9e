#pragma once
// The LDP agent: the plug-in that the agent runner loads. doInit() mounts the
// state database paths and makes the scheduler, the timer wheel and the two
// local interface directories; doMountsComplete() mounts the shared-memory
// tables and makes the agent-wide machines.
#include <string>
#include <vector>

#include "agent/AclServices.h"
#include "agent/LdpProtoConfigSm.h"
#include "agent/LdpRootSm.h"
#include "agent/RuvoFecMode.h"
#include "aux/LdpEventMonSm.h"
#include "entities/EntityTypes.h"
#include "runtime/agent/AgentBase.h"
#include "runtime/agent/Scheduling.h"
#include "runtime/ombra/Ombra.h"

namespace Ldp {

class Agent : public AgentBase::CAgent {
 public:
   explicit Agent(std::string const& name);
   ~Agent() override;

   void doInit() override;
   void doMountsComplete(Ombra::MountStatus mountStatus,
                         Vek::Ptr<Ombra::EntityManager> const& entityManager) override;

   // What the agent owns.
   Vek::Ptr<Hesk::TimerWheel> const& timerWheel() const { return timerWheel_; }
   Vek::Ptr<Hesk::TaskSchedulerVekActivity> const& scheduler() const { return scheduler_; }
   Vek::Ptr<Interface::AllIntfStatusDir> const& allIntfStatusDir() const {
      return allIntfStatusDir_;
   }
   Vek::Ptr<Interface::AllIntfStatusLocalDir> const& allIntfStatusLocalDir() const {
      return allIntfStatusLocalDir_;
   }
   Vek::Ptr<Ruvo::FecModeSm> const& fecModeSm() const { return fecModeSm_; }
   // The event monitor and its lines, which exist from the agent's making.
   Vek::Ptr<LdpEventMonSmManager> const& ldpEventMonSmManager() const {
      return ldpEventMonSmManager_;
   }
   LdpEventMonLog* ldpEventMonLog() const { return ldpEventMonLog_.ptr(); }
   Vek::Ptr<Ruvo::FecModeRestartSm> const& fecModeRestartSm() const { return fecModeRestartSm_; }
   Vek::Ptr<Acl::AclConfigAggregatorSm> const& aclConfigAggregatorSm() const {
      return aclConfigAggregatorSm_;
   }
   Vek::Ptr<LdpRootSm> const& ldpRootSm() const { return ldpRootSm_; }
   // For agents started from now on: whether the reserve phase of label
   // allocation waits for the host (LdpRootSm::reservePhaseEnd).
   static void holdReservePhaseIs(bool hold) { holdReservePhase_ = hold; }
   Vek::Ptr<LdpProtoConfigSmManager> const& ldpProtoConfigSmManager() const {
      return ldpProtoConfigSmManager_;
   }
   Vek::Ptr<Tesh::Fib::FecModeStatus> const& fecModeStatus() const { return fecModeStatus_; }
   Vek::Ptr<Acl::Config> const& aclConfig() const { return aclConfig_; }
   Vek::Ptr<VekTesh::Mount> const& teshEntityManager() const { return teshMount_; }

   // The mounted entities, as doMountsComplete() fetched them.
   Vek::Ptr<L3::Config const> const& l3Config() const { return l3Config_; }
   Vek::Ptr<LdpConfigColl const> const& ldpConfigColl() const { return ldpConfigColl_; }
   Vek::Ptr<LdpProtoConfigColl> const& ldpProtoConfigColl() const { return ldpProtoConfigColl_; }
   Vek::Ptr<LdpEnabledVrfColl const> const& ldpEnabledVrfColl() const {
      return ldpEnabledVrfColl_;
   }
   Vek::Ptr<LdpStatusColl> const& ldpStatusColl() const { return ldpStatusColl_; }
   Vek::Ptr<LdpAgentStatus> const& ldpAgentStatus() const { return ldpAgentStatus_; }
   Vek::Ptr<Mpls::ClientLabelRequest> const& mplsLabelRequest() const { return mplsLabelRequest_; }
   Vek::Ptr<Mpls::Api::Status const> const& mplsAgentStatus() const { return mplsAgentStatus_; }
   Vek::Ptr<Mpls::Hardware::Status const> const& mplsHwStatus() const { return mplsHwStatus_; }
   Vek::Ptr<LdpLinkReadyStatusVrfColl> const& ldpLinkReadyStatusVrfColl() const {
      return ldpLinkReadyStatusVrfColl_;
   }
   Vek::Ptr<Mpls::Config const> const& mplsConfig() const { return mplsConfig_; }
   Vek::Ptr<Routing::Config const> const& routingConfig() const { return routingConfig_; }
   Vek::Ptr<Acl::AclListConfig const> const& routingAclConfig() const { return routingAclConfig_; }
   Vek::Ptr<Ip::AllVrfStatusLocal const> const& allVrfStatusLocal() const {
      return allVrfStatusLocal_;
   }
   Vek::Ptr<Ip::Status const> const& ipStatus() const { return ipStatus_; }
   Vek::Ptr<Bridging::Config const> const& bridgingConfig() const { return bridgingConfig_; }
   Vek::Ptr<Vek::Dir const> const& aclInputDir() const { return aclInputDir_; }
   Vek::Ptr<Acl::Input::Config const> const& aclCliInput() const { return aclCliInput_; }
   Vek::Ptr<Pseudowire::PseudowireLdpConfig const> const& pwLdpConfig() const {
      return pwLdpConfig_;
   }
   Vek::Ptr<Pseudowire::PseudowireLdpStatus> const& pwLdpStatus() const { return pwLdpStatus_; }
   Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> const& srTunnelRib() const {
      return srTunnelRib_;
   }
   Vek::Ptr<Vek::Dir const> const& cliRequestDir() const { return cliRequestDir_; }
   Vek::Ptr<Tesh::Fib::RouteStatus const> const& routeStatus() const { return routeStatus_; }
   Vek::Ptr<Tesh::Fib::ForwardingStatus const> const& forwardingStatus() const {
      return forwardingStatus_;
   }
   Vek::Ptr<KernelNetInfo::Status const> const& kniStatus() const { return kniStatus_; }

   // The state database mounts in the order made, then the shared-memory
   // tables, and the names of the machines made by doMountsComplete(), in
   // order: so that start-up can be checked.
   std::vector<Ombra::Mount> const& mountLog() const { return mountLog_; }
   std::vector<Ombra::Mount> const& teshMountLog() const { return teshMountLog_; }
   std::vector<std::string> const& madeLog() const { return madeLog_; }

   // The namespace of the agent's tables.
   static Nolu::NamespaceName const& defaultNamespace();
   // The network namespace that this agent serves: the one of its kernel
   // interface table and of its default VRF. Set before doInit(); several
   // agents in one process each serve their own.
   Nolu::NamespaceName const& netNs() const { return netNs_; }
   void netNsIs(Nolu::NamespaceName const& ns) { netNs_ = ns; }

 private:
   void doMount(Vek::Ptr<Ombra::MountGroup> const& group, std::string const& path,
                std::string const& type, std::string const& mode);
   void doTeshMount(std::string const& path, std::string const& type);
   template <class T>
   Vek::Ptr<T> mounted(Vek::Ptr<Ombra::EntityManager> const& em, std::string const& path);

   Vek::Ptr<Hesk::TimerWheel> timerWheel_;
   Vek::Ptr<Hesk::TaskSchedulerVekActivity> scheduler_;
   Vek::Ptr<Interface::AllIntfStatusDir> allIntfStatusDir_;
   Vek::Ptr<Interface::AllIntfStatusLocalDir> allIntfStatusLocalDir_;
   Vek::Ptr<Tesh::Fib::FecModeStatus> fecModeStatus_;
   Vek::Ptr<Acl::Config> aclConfig_;
   Vek::Ptr<VekTesh::Mount> teshMount_;

   Vek::Ptr<L3::Config const> l3Config_;
   Vek::Ptr<LdpConfigColl const> ldpConfigColl_;
   Vek::Ptr<LdpProtoConfigColl> ldpProtoConfigColl_;
   Vek::Ptr<LdpEnabledVrfColl const> ldpEnabledVrfColl_;
   Vek::Ptr<LdpStatusColl> ldpStatusColl_;
   Vek::Ptr<LdpAgentStatus> ldpAgentStatus_;
   Vek::Ptr<Mpls::ClientLabelRequest> mplsLabelRequest_;
   Vek::Ptr<Mpls::Api::Status const> mplsAgentStatus_;
   Vek::Ptr<Mpls::Hardware::Status const> mplsHwStatus_;
   Vek::Ptr<LdpLinkReadyStatusVrfColl> ldpLinkReadyStatusVrfColl_;
   Vek::Ptr<Mpls::Config const> mplsConfig_;
   Vek::Ptr<Routing::Config const> routingConfig_;
   Vek::Ptr<Acl::AclListConfig const> routingAclConfig_;
   Vek::Ptr<Ip::AllVrfStatusLocal const> allVrfStatusLocal_;
   Vek::Ptr<Ip::Status const> ipStatus_;
   Vek::Ptr<Bridging::Config const> bridgingConfig_;
   Vek::Ptr<Vek::Dir const> aclInputDir_;
   Vek::Ptr<Acl::Input::Config const> aclCliInput_;
   Vek::Ptr<Pseudowire::PseudowireLdpConfig const> pwLdpConfig_;
   Vek::Ptr<Pseudowire::PseudowireLdpStatus> pwLdpStatus_;
   Vek::Ptr<Tunnel::TunnelTable::TunnelRib const> srTunnelRib_;
   Vek::Ptr<Vek::Dir const> cliRequestDir_;
   Vek::Ptr<Tesh::Fib::RouteStatus const> routeStatus_;
   Vek::Ptr<Tesh::Fib::ForwardingStatus const> forwardingStatus_;
   Vek::Ptr<KernelNetInfo::Status const> kniStatus_;

   // Made last declared first when the agent goes: the machines before the
   // entities that they watch.
   Vek::Ptr<Ruvo::FecModeSm> fecModeSm_;
   Vek::Ptr<Ruvo::FecModeRestartSm> fecModeRestartSm_;
   Vek::Ptr<Acl::AclConfigAggregatorSm> aclConfigAggregatorSm_;
   Vek::Ptr<LdpEventMonLog> ldpEventMonLog_{new LdpEventMonLog};
   Vek::Ptr<LdpEventMonSmManager> ldpEventMonSmManager_;
   Vek::Ptr<LdpProtoConfigSmManager> ldpProtoConfigSmManager_;
   Vek::Ptr<LdpRootSm> ldpRootSm_;
   static bool holdReservePhase_;

   Nolu::NamespaceName netNs_ = defaultNamespace();
   std::vector<Ombra::Mount> mountLog_;
   std::vector<Ombra::Mount> teshMountLog_;
   std::vector<std::string> madeLog_;
};

// The plug-in entry.
Vek::Ptr<Agent> agentFactory(std::string const& name);

}  // namespace Ldp
