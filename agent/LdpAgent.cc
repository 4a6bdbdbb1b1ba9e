#include "agent/LdpAgent.h"

#include "runtime/vek/Trace.h"

namespace Ldp {

bool Agent::holdReservePhase_ = false;

namespace {
Vek::TraceHandle th("LdpAgent");
}

Nolu::NamespaceName const& Agent::defaultNamespace() {
   static Nolu::NamespaceName const ns("default");
   return ns;
}

Agent::Agent(std::string const& name) : AgentBase::CAgent(name) { entityTypesRegister(); }

// The machines go first, while the entities that they watch are still whole.
Agent::~Agent() {
   ldpRootSm_ = nullptr;
   ldpProtoConfigSmManager_ = nullptr;
   ldpEventMonSmManager_ = nullptr;
   aclConfigAggregatorSm_ = nullptr;
   fecModeRestartSm_ = nullptr;
   fecModeSm_ = nullptr;
}

void Agent::doMount(Vek::Ptr<Ombra::MountGroup> const& group, std::string const& path,
                    std::string const& type, std::string const& mode) {
   Ombra::Mount m(path, type, mode);
   group->doMount(m);
   mountLog_.push_back(m);
}

void Agent::doTeshMount(std::string const& path, std::string const& type) {
   bool ok = teshMount_->doMount(path, type, VekTesh::MountInfo());
   VEK_ASSERT(ok && "Internal Error: shared-memory mount failed");
   teshMountLog_.emplace_back(path, type, "tesh");
}

template <class T>
Vek::Ptr<T> Agent::mounted(Vek::Ptr<Ombra::EntityManager> const& em, std::string const& path) {
   auto p = em->getEntity<std::remove_const_t<T>>(path);
   VEK_ASSERT(p && "Internal Error: mounted entity missing or of another type");
   return p;
}

void Agent::doInit() {
   // The runtime's event loop waits with epoll already; there is nothing to
   // configure for it here.
   VEK_TRACE(th, 1, "Mounting Ombra");
   auto em = Vek::validPtr(entityManager());
   auto group = em->getMountGroup(this);
   doMount(group, "l3/config", "L3::Config", "r");
   doMount(group, "mpls/ldp/ldpConfigColl", "Ldp::LdpConfigColl", "r");
   // Read only as far as the database is concerned, although the protocol
   // configuration manager adds and deletes members in it.
   doMount(group, "mpls/ldp/ldpProtoConfigColl", "Ldp::LdpProtoConfigColl", "r");
   doMount(group, "mpls/ldp/ldpEnabledVrfColl", "Ldp::LdpEnabledVrfColl", "r");
   doMount(group, "mpls/ldp/ldpStatusColl", "Ldp::LdpStatusColl", "rw");
   doMount(group, "mpls/ldp/ldpAgentStatus", "Ldp::LdpAgentStatus", "rw");
   doMount(group, "mpls/config/labelRequest/ldp", "Mpls::ClientLabelRequest", "wc");
   doMount(group, "mpls/status", "Mpls::Api::Status", "r");
   doMount(group, "routing/hardware/mpls/status", "Mpls::Hardware::Status", "r");
   doMount(group, "mpls/ldp/linkReadyStatus", "Ldp::LdpLinkReadyStatusVrfColl", "rw");
   doMount(group, "routing/mpls/config", "Mpls::Config", "r");
   doMount(group, "routing/config", "Routing::Config", "r");
   doMount(group, "routing/acl/config", "Acl::AclListConfig", "r");
   doMount(group, Cell::path("ip/vrf/status/local"), "Ip::AllVrfStatusLocal", "r");
   Ruvo::RuvoIpStatusMounter::doMountEntities(group, true, false);
   doMount(group, "ip/status", "Ip::Status", "r");
   doMount(group, "bridging/config", "Bridging::Config", "r");
   doMount(group, "acl/config/input", "Vek::Dir", "ri");
   doMount(group, "acl/config/cli", "Acl::Input::Config", "r");
   doMount(group, "pseudowire/ldp/config", "Pseudowire::PseudowireLdpConfig", "r");
   doMount(group, "pseudowire/ldp/status", "Pseudowire::PseudowireLdpStatus", "wc");
   doMount(group, "tunnel/protoTunnelRib/sr", "Tunnel::TunnelTable::TunnelRib", "r");
   doMount(group, Cell::path("agent/commandRequest/config/LdpAgent"), "Vek::Dir", "ri");

   // A 100 ms tick and a first span of 300 seconds.
   timerWheel_ = Vek::Ptr<Hesk::TimerWheel>(
      new Hesk::TimerWheel(Vek::activityManager(), 100, 3000, true, 1024));
   scheduler_ = Vek::Ptr<Hesk::TaskSchedulerVekActivity>(
      new Hesk::TaskSchedulerVekActivity("LdpAgent", Vek::activityManager()));
   scheduler_->hasNotificationActiveIs(true);

   // Local to the agent; the interface status manager fills them.
   allIntfStatusDir_ = Vek::ptr_cast<Interface::AllIntfStatusDir>(Vek::validPtr(createLocalEntity(
      "AllIntfStatusDir", "Interface::AllIntfStatusDir", "interface/status/all")));
   allIntfStatusLocalDir_ = Vek::ptr_cast<Interface::AllIntfStatusLocalDir>(
      Vek::validPtr(createLocalEntity("AllIntfStatusLocalDir", "Interface::AllIntfStatusLocalDir",
                                      Cell::path("interface/status/local"))));
   localEntitiesCreatedIs(true);

   group->doClose(false, "", 0.0);
}

void Agent::doMountsComplete(Ombra::MountStatus mountStatus,
                             Vek::Ptr<Ombra::EntityManager> const& em) {
   VEK_ASSERT(mountStatus == Ombra::mountSuccess_);
   VEK_TRACE(th, 1, "Finished mounting Ombra");

   // The forwarding mode, which decides the forwarding table to mount.
   l3Config_ = mounted<L3::Config const>(em, "l3/config");
   fecModeStatus_ = Vek::Ptr<Tesh::Fib::FecModeStatus>(new Tesh::Fib::FecModeStatus("fms"));
   fecModeSm_ = Ruvo::FecModeSm::FecModeSmIs(l3Config_, fecModeStatus_);
   madeLog_.push_back("fecModeSm");
   fecModeRestartSm_ = Ruvo::FecModeRestartSm::FecModeRestartSmIs(fecModeStatus_);
   madeLog_.push_back("fecModeRestartSm");

   ldpConfigColl_ = mounted<LdpConfigColl const>(em, "mpls/ldp/ldpConfigColl");
   ldpProtoConfigColl_ = mounted<LdpProtoConfigColl>(em, "mpls/ldp/ldpProtoConfigColl");
   ldpEnabledVrfColl_ = mounted<LdpEnabledVrfColl const>(em, "mpls/ldp/ldpEnabledVrfColl");
   ldpStatusColl_ = mounted<LdpStatusColl>(em, "mpls/ldp/ldpStatusColl");
   ldpAgentStatus_ = mounted<LdpAgentStatus>(em, "mpls/ldp/ldpAgentStatus");
   mplsLabelRequest_ = mounted<Mpls::ClientLabelRequest>(em, "mpls/config/labelRequest/ldp");
   mplsAgentStatus_ = mounted<Mpls::Api::Status const>(em, "mpls/status");
   mplsHwStatus_ = mounted<Mpls::Hardware::Status const>(em, "routing/hardware/mpls/status");
   ldpLinkReadyStatusVrfColl_ = mounted<LdpLinkReadyStatusVrfColl>(em, "mpls/ldp/linkReadyStatus");
   mplsConfig_ = mounted<Mpls::Config const>(em, "routing/mpls/config");
   routingConfig_ = mounted<Routing::Config const>(em, "routing/config");
   routingAclConfig_ = mounted<Acl::AclListConfig const>(em, "routing/acl/config");
   allVrfStatusLocal_ = mounted<Ip::AllVrfStatusLocal const>(em, Cell::path("ip/vrf/status/local"));
   ipStatus_ = mounted<Ip::Status const>(em, "ip/status");
   bridgingConfig_ = mounted<Bridging::Config const>(em, "bridging/config");
   aclInputDir_ = mounted<Vek::Dir const>(em, "acl/config/input");
   aclCliInput_ = mounted<Acl::Input::Config const>(em, "acl/config/cli");
   pwLdpConfig_ = mounted<Pseudowire::PseudowireLdpConfig const>(em, "pseudowire/ldp/config");
   pwLdpStatus_ = mounted<Pseudowire::PseudowireLdpStatus>(em, "pseudowire/ldp/status");
   srTunnelRib_ = mounted<Tunnel::TunnelTable::TunnelRib const>(em, "tunnel/protoTunnelRib/sr");
   cliRequestDir_ =
      mounted<Vek::Dir const>(em, Cell::path("agent/commandRequest/config/LdpAgent"));

   // The shared-memory tables.
   VEK_TRACE(th, 1, "Mounting Tesh");
   teshMount_ = Vek::Ptr<VekTesh::Mount>(new VekTesh::Mount(em->store()));
   Nolu::NamespaceName const& ns = netNs_;
   doTeshMount("routing/status", "Tesh::Fib::RouteStatus");
   routeStatus_ = teshMount_->getEntity<Tesh::Fib::RouteStatus>("routing/status");
   std::string fwdPath = fecModeStatus_->fecMode() == Tesh::Fib::fecModeUnified_
                            ? "forwarding/unifiedStatus"
                            : "forwarding/status";
   doTeshMount(fwdPath, "Tesh::Fib::ForwardingStatus");
   forwardingStatus_ = teshMount_->getEntity<Tesh::Fib::ForwardingStatus>(fwdPath);
   std::string kniPath = "kni/ns/" + ns.name() + "/status";
   doTeshMount(kniPath, "KernelNetInfo::Status");
   kniStatus_ = teshMount_->getEntity<KernelNetInfo::Status>(kniPath);

   // The merged service ACL configuration.
   aclConfig_ = Vek::Ptr<Acl::Config>(new Acl::Config);
   aclConfigAggregatorSm_ =
      Acl::AclConfigAggregatorSm::AclConfigAggregatorSmIs(aclInputDir_, aclCliInput_, aclConfig_);
   madeLog_.push_back("aclConfigAggregatorSm");

   // The event monitor first of the three, so that it sees the others' first
   // changes.
   ldpEventMonSmManager_ = LdpEventMonSmManager::LdpEventMonSmManagerIs(
      0, ldpConfigColl_, ldpProtoConfigColl_, ldpStatusColl_, ldpEventMonLog_);
   madeLog_.push_back("ldpEventMonSmManager");

   // The protocol configuration manager comes before the root, so that the
   // protocol configuration records exist when the root first looks.
   ldpProtoConfigSmManager_ = LdpProtoConfigSmManager::LdpProtoConfigSmManagerIs(
      0, ldpConfigColl_, ldpProtoConfigColl_, ldpEnabledVrfColl_, ldpAgentStatus_, ipStatus_,
      allVrfStatusLocal_, allIntfStatusDir_, mplsConfig_, routingConfig_, routingAclConfig_, scheduler_);
   madeLog_.push_back("ldpProtoConfigSmManager");

   // The root machine last, with all inputs in the order of its constructor.
   LdpRootSmInputs in;
   in.fecModeStatus = fecModeStatus_;
   in.ldpConfigColl = ldpConfigColl_;
   in.ldpProtoConfigColl = ldpProtoConfigColl_;
   in.ldpStatusColl = ldpStatusColl_;
   in.ldpLinkReadyStatusVrfColl = ldpLinkReadyStatusVrfColl_;
   in.ldpAgentStatus = ldpAgentStatus_;
   in.mplsLabelRequest = mplsLabelRequest_;
   in.mplsAgentStatus = mplsAgentStatus_;
   in.mplsHwStatus = mplsHwStatus_;
   in.allVrfStatusLocal = allVrfStatusLocal_;
   in.allIntfStatusDir = allIntfStatusDir_;
   in.allIntfStatusLocalDir = allIntfStatusLocalDir_;
   in.kniStatus = kniStatus_;
   in.mplsConfig = mplsConfig_;
   in.bridgingConfig = bridgingConfig_;
   in.ipStatus = ipStatus_;
   in.routeStatus = routeStatus_;
   in.forwardingStatus = forwardingStatus_;
   in.pwLdpConfig = pwLdpConfig_;
   in.pwLdpStatus = pwLdpStatus_;
   in.aclConfig = aclConfig_;
   in.srTunnelRib = srTunnelRib_;
   in.entityManager = em;
   in.teshEntityManager = teshMount_;
   in.cliRequestDir = cliRequestDir_;
   in.scheduler = scheduler_;
   in.timerWheel = timerWheel_;
   in.netNs = netNs_;
   in.holdReservePhase = holdReservePhase_;
   ldpRootSm_ = LdpRootSm::LdpRootSmIs(0, in);
   madeLog_.push_back("ldpRootSm");
}

Vek::Ptr<Agent> agentFactory(std::string const& name) {
   return Vek::validPtr(Vek::Ptr<Agent>(new Agent(name)));
}

}  // namespace Ldp
