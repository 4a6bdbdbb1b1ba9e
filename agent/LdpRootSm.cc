#include "agent/LdpRootSm.h"

#include <sstream>

#include "agent/LdpAgent.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpRoot");
}

void LdpAgentSchedStatsCommandCallback::handleCommand(std::ostream& socket,
                                                      std::string const& command) {
   std::istringstream words(command);
   std::string word;
   if (!(words >> word) || word != "DUMP_SCHEDSTATS") {
      socket << "Unknown command ";
      return;
   }
   bool detail = false, debug = false, history = false, clear = false;
   while (words >> word) {
      if (word == "detail") detail = true;
      else if (word == "debug") debug = true;
      else if (word == "history") history = true;
      else if (word == "clear") clear = true;
   }
   if (clear) {
      scheduler_->resetStats();
      return;
   }
   socket << "\n";
   scheduler_->printStats(socket, detail || debug || history);
}

LdpRootSm::LdpRootSm(U32 instId, LdpRootSmInputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpProtoConfigColl);
   Vek::validPtr(in_.ldpStatusColl);
   Vek::validPtr(in_.ldpAgentStatus);
   Vek::validPtr(in_.allVrfStatusLocal);
   Vek::validPtr(in_.ipStatus);
   Vek::validPtr(in_.scheduler);
   ldpProtoConfigCollReactor_.init(this, in_.ldpProtoConfigColl);
   allVrfStatusLocalReactor_.init(this, in_.allVrfStatusLocal);
   ipStatusReactor_.init(this, in_.ipStatus);
   handleInitialized();
}

void LdpRootSm::handleInitialized() {
   LDP_HANDLER(th, "LdpRootSm::handleInitialized");
   initialized_ = true;
   cliRequestDirSm_.is(::Agent::AgentCommandRequestDirSm::AgentCommandRequestDirSmIs(in_.cliRequestDir));
   cliRequestDirSm_->agentCommandCallbackIs(
      Vek::Ptr<::Agent::AgentCommandCallback>(new LdpAgentSchedStatsCommandCallback(in_.scheduler)));
   auto* pm = Nolu::globalPktManager();
   if (pm->defaultBufferSize() < 9601) pm->defaultBufferSizeIs(9600);
   deviceIntfStatusDir_ = new Interface::DeviceIntfStatusDir;
   if (in_.kniStatus && in_.allIntfStatusDir && in_.allIntfStatusLocalDir) {
      intfStatusManagerRoot_.is(Interface::NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs(
         in_.kniStatus, in_.allIntfStatusDir, in_.allIntfStatusLocalDir));
      intfStatusManagerRoot_->intfStatusManagerIs(deviceIntfStatusDir_);
   }
   numAllocatorConfig_ = new Hesk::NumAllocatorConfig(100);
   numAllocatorConfig_->expiryTimeIs(10.0);
   numAllocatorStatus_ = new Hesk::NumAllocatorStatus;
   numAllocator_ = new Hesk::NumAllocator(numAllocatorConfig_, numAllocatorStatus_,
                                          in_.scheduler->activityManager());
   labelAllocGlobalStatus_ = new LabelAllocGlobalStatus;
   // The per-VRF reactors, then the first decision for every known VRF.
   for (auto it = in_.ldpProtoConfigColl->protoConfigIter(); it; ++it) handleProtoConfig(it.key());
   for (auto it = in_.allVrfStatusLocal->vrfIter(); it; ++it) handleVrf(it.key());
   handleConfig();
   if (!in_.holdReservePhase) reservePhaseEnd();
   in_.ldpAgentStatus->numStartupsInc(1);
}

// A VRF's state that a restart preloaded and no root took on goes now.
void LdpRootSm::reservePhaseEnd() {
   labelAllocGlobalStatus_->stateIs(labelAllocReady_);
   std::vector<L3::VrfName> orphans;
   for (auto it = in_.ldpStatusColl->statusIter(); it; ++it)
      if (!ldpRoot_.find(it.key())) orphans.push_back(it.key());
   for (auto const& vrf : orphans) handleConfig(vrf);
}

void LdpRootSm::handleDelete() {
   initialized_ = false;
   // The agent goes: every VRF's session machines go before its root, as
   // they do when LDP stops in a VRF.
   for (auto it = ldpRoot_.begin(); it; ++it)
      if (auto* m = it.value()->ldpSessionSmManager()) m->handleLdpSessionDeleteAll();
}

void LdpRootSm::handleProtoConfig(L3::VrfName const& vrf) {
   if (!initialized_) return;
   auto pc = in_.ldpProtoConfigColl->protoConfig(vrf);
   if (pc) protoConfig_.is(vrf, this, pc, vrf);
   else protoConfig_.del(vrf);
   handleConfig(vrf);
}

void LdpRootSm::handleVrf(L3::VrfName const& vrf) {
   if (!initialized_) return;
   auto v = in_.allVrfStatusLocal->vrf(vrf);
   if (v) vrfStatusLocal_.is(vrf, this, v, vrf);
   else vrfStatusLocal_.del(vrf);
   handleConfig(vrf);
}

void LdpRootSm::handleConfig() {
   if (!initialized_) return;
   for (auto it = in_.allVrfStatusLocal->vrfIter(); it; ++it) handleConfig(it.key());
   for (auto it = in_.ldpProtoConfigColl->protoConfigIter(); it; ++it) handleConfig(it.key());
}

void LdpRootSm::handleConfig(L3::VrfName const& vrf) {
   if (!initialized_) return;
   auto pc = in_.ldpProtoConfigColl->protoConfig(vrf);
   if (pc && pc->runningState() == stopping_) return;
   char const* reason = nullptr;
   if (vrf != L3::defaultVrfName()) {
      auto v = in_.allVrfStatusLocal->vrf(vrf);
      if (!v || v->state() != Ip::vrfActive_) reason = "   VRF is not active, deleting.";
   }
   if (!reason && !in_.ipStatus->vrfIpIntfStatus(vrf))
      reason = "   vrfIpIntfStatus is NULL, deleting.";
   if (!reason && (!pc || pc->runningState() == disabled_))
      reason = "   LDP is not enabled, deleting.";
   bool create = !reason;
   if (create) reason = "   Creating VRF ldpRoot";
   else if (pc && pc->runningState() == running_ && ldpRoot_.find(vrf)) {
      // The protocol configuration stops LDP in this VRF on the same grounds;
      // its stopping value takes the session layer down while the root still
      // stands, and its disabled value brings us back here.
      reason_ = "   Waiting for LDP to stop.";
      LDP_TRACE(th, 5, "Vrf " << vrf << reason_);
      return;
   }
   reason_ = reason;
   LDP_TRACE(th, 5, "Vrf " << vrf << reason);
   if (create) handleVrfCreate(vrf);
   else handleVrfDelete(vrf);
}

void LdpRootSm::handleVrfCreate(L3::VrfName const& vrf) {
   if (ldpRoot_.find(vrf)) return;
   LDP_HANDLER(th, "LdpRootSm::handleVrfCreate " << vrf);
   bool isDefault = vrf == L3::defaultVrfName();
   Nolu::NamespaceName netNs = in_.netNs;
   if (!isDefault) {
      if (auto v = in_.allVrfStatusLocal->vrf(vrf)) netNs = v->netNs();
   }

   // The VRF's state, child by child.
   auto st = in_.ldpStatusColl->statusIs(vrf);
   st->netNsIs(netNs);
   st->ldpLinkConfigCollIs("llcc")->ldpLinkCommonConfigIs();
   st->ldpLinkStatusCollIs("llsc");
   st->ldpLinkUdpPamStatusIs("llruds");
   st->ldpTargetConfigCollIs("ltcc")->ldpTargetCommonConfigIs();
   st->ldpTargetStatusCollIs("ltsc");
   st->ldpAdjConfigCollIs("lac");
   st->ldpAdjStatusCollIs("las");
   st->ldpPeerConfigCollIs("lpc");
   st->ldpPeerStatusCollIs("lps");
   st->ldpSessionConfigCollIs("lscc")->ldpSessionCommonConfigIs();
   st->ldpSessionStatusCollIs("lssc");
   st->ldpFecConfigCollIs("lfcc");
   st->ldpFecStatusCollIs("lfsc");
   st->ldpFecSessionStatusCollIs("lfssc");
   Mpls::RouterId ldpRouter(0, 0);
   st->localLabelBindingTableIs("llbt", ldpRouter);
   st->peerLabelBindingTableCollIs("plbtc");
   st->localAdvertisementIs("ladv");
   st->localIntfIpCollIs("liic");
   st->ldpIdIntfIpMappingTableIs("liiimt");
   st->labelAllocRequestTableIs("lart");
   st->localLabelAllocTableIs("llat", ldpRouter);
   st->staticBindingTableIs("sbt", ldpRouter);
   st->indexIs("i");
   st->statisticsIs("s")->sessionStatisticsCollIs();
   st->ldpTcpConnConfigCollIs("ltccc");
   st->ldpTcpConnStatusCollIs("ltcsc");
   st->ldpTcpServerConfigIs("ltsvc");
   st->ldpTcpServerStatusIs("ltsvs");
   st->ldpTargetServerConfigIs("lthsc");
   st->ldpTargetServerStatusIs("lthss");
   st->pwTargetConfigCollIs("pwtcc");
   st->pwConfigCollIs("pwcc");
   st->pwStatusCollIs("pwsc");
   st->localPwFecSessionConfigCollIs(" lpwfscc");
   st->remotePwFecSessionConfigCollIs(" rpwfscc");
   st->localPwFecSessionStatusCollIs(" lpwfssc");
   st->remotePwFecSessionStatusCollIs(" rpwfssc");
   st->p2mpFecStateCollIs("fPFSC");
   st->p2mpFecSessionLocalStateCollIs("lPFSLSC");
   st->p2mpFecSessionRemoteStateCollIs("lPFSRSC");
   st->p2mpLocalLabelBindingTableIs("p2mpllbt", ldpRouter);
   st->p2mpPeerLabelBindingTableCollIs("p2mpplbtc");
   st->aclStatusServiceIs();

   auto ready = in_.ldpLinkReadyStatusVrfColl
                   ? in_.ldpLinkReadyStatusVrfColl->readyStatusVrfIs(vrf)
                   : Vek::Ptr<LdpLinkReadyStatusColl>();

   // Route tables: the agent's for the default VRF, mounted per VRF otherwise.
   LdpRootInputs ri;
   ri.routeStatus = in_.routeStatus;
   ri.forwardingStatus = in_.forwardingStatus;
   if (!isDefault && in_.teshEntityManager) {
      std::string routePath = "routing/vrf/status/" + vrf;
      std::string fwdPath = in_.fecModeStatus && in_.fecModeStatus->fecMode() == 2
                               ? std::string("forwarding/unifiedStatus")
                               : "forwarding/vrf/status/" + vrf;
      in_.teshEntityManager->doMount(routePath, "Tesh::Fib::RouteStatus");
      in_.teshEntityManager->doMount(fwdPath, "Tesh::Fib::ForwardingStatus");
      ri.routeStatus = in_.teshEntityManager->getEntity<Tesh::Fib::RouteStatus>(routePath);
      ri.forwardingStatus = in_.teshEntityManager->getEntity<Tesh::Fib::ForwardingStatus>(fwdPath);
   }

   // The shared tables of the forwarding side, for the default VRF only.
   if (isDefault && in_.teshEntityManager) {
      auto& tm = *in_.teshEntityManager;
      tm.doMount("mpls/ldp/ldpBindingTables", "Ldp::LdpTesh::LdpLabelBindingTable");
      tm.doMount("mpls/ldp/ldpP2mpBindingTables", "Ldp::LdpP2mpLabelBindingTable");
      tm.doMount("mpls/protoLfibInputDir/mldp", "Mpls::LfibStatus");
      ri.labelBindingTable =
         Vek::validPtr(tm.getEntity<LdpTesh::LdpLabelBindingTable>("mpls/ldp/ldpBindingTables"));
      ri.p2mpLabelBindingTable =
         Vek::validPtr(tm.getEntity<LdpP2mpLabelBindingTable>("mpls/ldp/ldpP2mpBindingTables"));
      ri.p2mpLfibStatus = Vek::validPtr(tm.getEntity<Mpls::LfibStatus>("mpls/protoLfibInputDir/mldp"));
   }

   ri.vrfName = vrf;
   ri.netNs = netNs;
   ri.config = in_.ldpConfigColl ? in_.ldpConfigColl->config(vrf) : nullptr;
   ri.protoConfig = in_.ldpProtoConfigColl->protoConfig(vrf);
   ri.status = st;
   ri.ldpLinkReadyStatusColl = ready;
   ri.numAllocator = numAllocator_;
   ri.numAllocatorConfig = numAllocatorConfig_;
   ri.numAllocatorStatus = numAllocatorStatus_;
   ri.labelAllocGlobalStatus = labelAllocGlobalStatus_;
   ri.mplsLabelRequest = in_.mplsLabelRequest;
   ri.mplsAgentStatus = in_.mplsAgentStatus;
   ri.mplsHwStatus = in_.mplsHwStatus;
   ri.mplsConfig = in_.mplsConfig;
   ri.deviceIntfStatusDir = deviceIntfStatusDir_;
   ri.vrfIpIntfStatus = in_.ipStatus->vrfIpIntfStatus(vrf);
   ri.bridgingConfig = in_.bridgingConfig;
   ri.allIntfStatusDir = in_.allIntfStatusDir;
   ri.pwLdpConfig = in_.pwLdpConfig;
   ri.pwLdpStatus = in_.pwLdpStatus;
   ri.aclConfig = in_.aclConfig;
   ri.srTunnelRib = in_.srTunnelRib;
   ri.scheduler = in_.scheduler;
   ri.timerWheel = in_.timerWheel;
   ldpRoot_.is(vrf, LdpRoot::LdpRootIs(nextInstId_++, ri));
}

void LdpRootSm::handleVrfDelete(L3::VrfName const& vrf) {
   auto root = ldpRoot_.find(vrf);
   if (!root && !in_.ldpStatusColl->statusHas(vrf)) return;
   // The labels a restart preloaded wait for the root that claims them until
   // the reserve phase ends.
   if (!root && labelAllocGlobalStatus_->state() != labelAllocReady_) return;
   LDP_HANDLER(th, "LdpRootSm::handleVrfDelete " << vrf);
   if (vrf == L3::defaultVrfName() && in_.teshEntityManager) {
      // The shared tables go before the root: its machines then end with the
      // tables gone from shared memory.
      auto& tm = *in_.teshEntityManager;
      tm.cleanup("mpls/ldp/ldpP2mpBindingTables");
      tm.doUnmount("mpls/ldp/ldpP2mpBindingTables");
      // The multicast forwarding input stays, unmounted, for its reader.
      tm.doUnmount("mpls/protoLfibInputDir/mldp");
      tm.cleanup("mpls/ldp/ldpBindingTables");
      tm.doUnmount("mpls/ldp/ldpBindingTables");
   }
   if (vrf != L3::defaultVrfName() && in_.teshEntityManager) {
      std::string routePath = "routing/vrf/status/" + vrf;
      in_.teshEntityManager->doUnmount(routePath);
      if (!(in_.fecModeStatus && in_.fecModeStatus->fecMode() == 2))
         in_.teshEntityManager->doUnmount("forwarding/vrf/status/" + vrf);
   }
   if (in_.ldpStatusColl->statusHas(vrf)) in_.ldpStatusColl->statusDel(vrf);
   if (root) ldpRoot_.del(vrf);
}

}  // namespace Ldp
