#include "agent/LdpRoot.h"

#include "agent/AclServices.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpRoot");

// The discovery channels ask the service ACL of the agent's configuration.
class DiscoveryAclFilter : public LdpServiceAclFilter {
 public:
   explicit DiscoveryAclFilter(Vek::Ptr<Acl::Config const> const& config)
      : filter_(config ? Acl::ServiceAclFilterSm::ServiceAclFilterSmIs(config) : nullptr) {}
   bool matchesConnection(L3::VrfName const& vrf, Nolu::IpGenAddr const& srcIp,
                          Nolu::IpGenAddr const& dstIp, U16 srcPort, U16 dstPort, U8 protocol,
                          bool flag) const override {
      return !filter_ ||
             filter_->matchesConnection(vrf, srcIp, dstIp, srcPort, dstPort, protocol, flag);
   }

 private:
   Vek::Ptr<Acl::ServiceAclFilterSm> filter_;
};
}  // namespace

Nolu::NamespaceName LdpRoot::channelNetNs() const {
   return in_.netNs.name() == "default" ? Nolu::NamespaceName() : in_.netNs;
}

LdpRoot::LdpRoot(U32 instId, LdpRootInputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.status);
   Vek::validPtr(in_.vrfIpIntfStatus);
   Vek::validPtr(in_.scheduler);
   // The local holders, each by name, before any machine.
   pamDesiredIntfDir_ = new Interface::PamDesiredIntfDir;
   pamDesiredIntfDir_->parentIs(nullptr, "pdid");
   ldpLinkRxMsgPipeColl_ = new LdpLinkMsgPipeCollection("llrmpc");
   ldpLinkTxMsgPipeColl_ = new LdpLinkMsgPipeCollection("lltmpc");
   ldpAdjMsgPipeColl_ = new LdpAdjMsgPipeCollection("lampc");
   ldpTargetMsgPipeColl_ = new LdpTargetMsgPipeCollection("ltmpc");
   ldpSessionMsgPipeColl_ = new LdpSessionMsgPipeColl("lsmpc");
   ldpFecMsgPipeColl_ = new LdpFecMsgPipeColl("lfmpc");
   pwFecSessionMsgPipeColl_ = new PwFecSessionMsgPipeColl("pwfsmpc");
   p2mpFecSessionLocalLabelMsgPipeColl_ = new LdpP2mpFecSessionLocalLabelMsgPipeColl("lpfsllmpc");
   p2mpFecSessionRemoteLabelMsgPipeColl_ =
      new LdpP2mpFecSessionRemoteLabelMsgPipeColl("lpfsrlmpc");
   ldpLinkSmColl_.is(ldpSmCollIs<LdpLinkSmColl>("llsc"));
   ldpTargetSmColl_.is(ldpSmCollIs<LdpTargetSmColl>("ltsc"));
   ldpAdjSmColl_.is(ldpSmCollIs<LdpAdjSmColl>("lasc"));
   pwConfigSmColl_.is(ldpSmCollIs<PwConfigSmColl>("pwcsc"));
   pwFecSessionSmColl_.is(ldpSmCollIs<PwFecSessionSmColl>("pwfssc"));
   ldpLinkReadySmColl_.is(ldpSmCollIs<LdpLinkReadySmColl>("llrsc"));
   ldpProtoParam_ = new LdpProtoParamConfig("lpp");
   discoveryAclFilter_ = new DiscoveryAclFilter(in_.aclConfig);
   ldpPduPamColl_ = new LdpPduPamColl("lpppq");
   ldpPduPamShutdownColl_ = new LdpPduPamShutdownColl("lppsdc");
   ldpPduPamSessionColl_ = new LdpPduPamSessionColl("lppsc");
   ldpSessionSmColl_ = new LdpSessionSmColl;
   ldpPduPamPipeSessionTxColl_ = new LdpPduPamPipeSessionColl("lpppstc");
   ldpPduPamPipeSessionRxColl_ = new LdpPduPamPipeSessionColl("lpppsrc");
   ldpFecSessionRxNotifier_ = new LdpFecSessionNotifier("lfsrxn");
   singletonMappingSmConfig_ = new LdpFecSessionMappingSmConfig("lfsmsc");
   singletonRequestSmConfig_ = new LdpFecSessionRequestSmConfig("lfsrsc");
   singletonCtrlSmConfig_ = new LdpFecSessionCtrlSmConfig("lfscsc");
   handleInitialized();
}

// The children in the order of the wiring. Machines of subsystems that are
// not built yet have no place here until they exist.
void LdpRoot::handleInitialized() {
   LDP_HANDLER(th, "LdpRoot::handleInitialized " << in_.vrfName);
   initialized_ = true;
   Status* st = in_.status.ptr();

   // The published bindings, in the default VRF only.
   if (in_.labelBindingTable) {
      LdpTesh::LdpLibProducerSm::Inputs pi;
      pi.localLabelBindingTable = st->localLabelBindingTable();
      pi.peerLabelBindingTableColl = st->peerLabelBindingTableColl();
      pi.labelBindingTable = in_.labelBindingTable;
      lbtProducerSm_.is(LdpTesh::LdpLibProducerSm::LdpLibProducerSmIs(instId(), pi));
      madeLog_.push_back("lbtProducerSm");
      lbtAdvertiseProducerSm_.is(
         LdpTesh::LdpLibAdvertisementProducerSm::LdpLibAdvertisementProducerSmIs(
            instId(), st->localAdvertisement(), in_.labelBindingTable));
      madeLog_.push_back("lbtAdvertiseProducerSm");
   }

   LdpIndexSm::Inputs ix;
   ix.ldpIndex = st->index();
   ix.ldpSessionStatusColl = st->ldpSessionStatusColl();
   ix.ldpPeerConfigColl = st->ldpPeerConfigColl();
   ix.pwLdpConfig = in_.pwLdpConfig;
   ix.localPwFecSessionConfigColl = st->localPwFecSessionConfigColl();
   ix.remotePwFecSessionConfigColl = st->remotePwFecSessionConfigColl();
   ix.localPwFecSessionStatusColl = st->localPwFecSessionStatusColl();
   ix.remotePwFecSessionStatusColl = st->remotePwFecSessionStatusColl();
   ldpIndexSm_.is(LdpIndexSm::LdpIndexSmIs(instId(), ix));
   madeLog_.push_back("ldpIndexSm");

   ldpPamDesiredIntfSm_.is(LdpPamDesiredIntfSm::LdpPamDesiredIntfSmIs(
      instId(), in_.vrfName, in_.protoConfig, in_.mplsConfig, in_.vrfIpIntfStatus,
      pamDesiredIntfDir_, st->ldpLinkConfigColl(), in_.deviceIntfStatusDir));
   madeLog_.push_back("ldpPamDesiredIntfSm");

   // TCP connections of the sessions, asking the same service ACL.
   Vek::Ptr<LdpServiceAclFilter> acl = discoveryAclFilter_;
   L3::VrfName vrf = in_.vrfName;
   LdpConnectionFilter tcpAcl = [acl, vrf](Nolu::IpGenAddr const& remote,
                                           Nolu::IpGenAddr const& local, U16 remotePort,
                                           U16 localPort) {
      return acl->matchesConnection(vrf, remote, local, remotePort, localPort, 6, false);
   };
   LdpTcpServerSm::Inputs tsi;
   tsi.protoConfig = in_.protoConfig;
   tsi.ldpIndex = st->index();
   tsi.ldpTcpServerConfig = st->ldpTcpServerConfig();
   tsi.ldpTcpServerStatus = st->ldpTcpServerStatus();
   tsi.ldpPduPamColl = ldpPduPamColl_;
   tsi.serviceAclFilter = tcpAcl;
   tsi.scheduler = in_.scheduler;
   tsi.netNs = channelNetNs();
   ldpTcpServerSm_.is(LdpTcpServerSm::LdpTcpServerSmIs(instId(), tsi));
   madeLog_.push_back("ldpTcpServerSm");
   ldpTcpConnSm_.is(LdpTcpConnSm::LdpTcpConnSmIs(instId(), st->ldpTcpConnConfigColl(),
                                                 st->ldpTcpConnStatusColl(), ldpPduPamColl_,
                                                 in_.scheduler, channelNetNs()));
   madeLog_.push_back("ldpTcpConnSm");
   ldpTcpConnConfigSm_.is(LdpTcpConnConfigSm::LdpTcpConnConfigSmIs(
      instId(), in_.protoConfig, st->ldpSessionConfigColl(), st->ldpSessionStatusColl(),
      st->ldpTcpConnConfigColl(), st->ldpTcpServerConfig()));
   madeLog_.push_back("ldpTcpConnConfigSm");
   ldpPduPamManager_.is(LdpPduPamManager::LdpPduPamManagerIs(
      instId(), ldpPduPamColl_, tcpAcl, in_.aclConfig, in_.vrfName, in_.scheduler));
   madeLog_.push_back("ldpPduPamManager");

   // One channel serves targeted Hellos both ways: the server opens it to
   // receive, and the targets send on it as it stands.
   ldpTargetUdpPam_ = new Nolu::UdpPam(channelNetNs());
   ldpTargetUdpPam_->nameIs("ldpTargetUdpPam");
   LdpTargetServerSm::Inputs tsv;
   tsv.vrfName = in_.vrfName;
   tsv.protoConfig = in_.protoConfig;
   tsv.ldpProtoParam = ldpProtoParam_;
   tsv.ldpTargetServerConfig = st->ldpTargetServerConfig();
   tsv.ldpTargetServerStatus = st->ldpTargetServerStatus();
   tsv.ldpTargetConfigColl = st->ldpTargetConfigColl();
   tsv.ldpTargetStatusColl = st->ldpTargetStatusColl();
   tsv.ldpTargetMsgPipeCollection = ldpTargetMsgPipeColl_;
   tsv.rxUdpPam = ldpTargetUdpPam_;
   tsv.serviceAclFilterSm = discoveryAclFilter_;
   ldpTargetServerSm_.is(LdpTargetServerSm::LdpTargetServerSmIs(instId(), tsv));
   madeLog_.push_back("ldpTargetServerSm");

   // Which FECs exist and their local labels.
   LdpLabelRequestManager::Inputs lrm;
   lrm.ldpFecConfigColl = st->ldpFecConfigColl();
   lrm.labelAllocRequestTable = st->labelAllocRequestTable();
   lrm.scheduler = in_.scheduler;
   ldpLabelRequestManager_.is(LdpLabelRequestManager::LdpLabelRequestManagerIs(instId(), lrm));
   madeLog_.push_back("ldpLabelRequestManager");
   LdpLabelAllocSm::Inputs la;
   la.numAllocator = in_.numAllocator;
   la.numAllocatorConfig = in_.numAllocatorConfig;
   la.numAllocatorStatus = in_.numAllocatorStatus;
   la.labelAllocRequestTable = st->labelAllocRequestTable();
   la.labelAllocGlobalStatus = in_.labelAllocGlobalStatus;
   la.labelRequestClient = in_.mplsLabelRequest;
   la.mplsAgentStatus = in_.mplsAgentStatus;
   la.localLabelAllocTable = st->localLabelAllocTable();
   ldpLabelAllocSm_.is(LdpLabelAllocSm::LdpLabelAllocSmIs(instId(), la));
   madeLog_.push_back("ldpLabelAllocSm");
   LdpLocalBindingTableSm::Inputs lb;
   lb.dynamicAllocationTable = st->localLabelAllocTable();
   lb.staticBindingTable = st->staticBindingTable();
   lb.ldpFecConfigColl = st->ldpFecConfigColl();
   lb.localLabelBindingTable = st->localLabelBindingTable();
   lb.labelAdvertisementColl = st->localAdvertisement();
   ldpLocalBindingTableSm_.is(LdpLocalBindingTableSm::LdpLocalBindingTableSmIs(instId(), lb));
   madeLog_.push_back("ldpLocalBindingTableSm");
   LdpStaticFecBindingSm::Inputs sb;
   sb.config = in_.config;
   sb.ldpFecConfigColl = st->ldpFecConfigColl();
   sb.staticBindingTable = st->staticBindingTable();
   ldpStaticFecBindingSm_.is(LdpStaticFecBindingSm::LdpStaticFecBindingSmIs(instId(), sb));
   madeLog_.push_back("ldpStaticFecBindingSm");
   ldpTunnelRibListenerSm_.is(LdpTunnelRibListenerSm::LdpTunnelRibListenerSmIs(
      instId(), in_.srTunnelRib, st->ldpFecConfigColl()));
   madeLog_.push_back("ldpTunnelRibListenerSm");
   if (in_.routeStatus && in_.forwardingStatus) {
      LdpFibSm::Inputs fib;
      fib.protoConfig = in_.protoConfig;
      fib.routeStatus = in_.routeStatus;
      fib.forwardingStatus = in_.forwardingStatus;
      fib.ldpFecConfigColl = st->ldpFecConfigColl();
      fib.scheduler = in_.scheduler;
      ldpFibSm_.is(LdpFibSm::LdpFibSmIs(instId(), fib));
      madeLog_.push_back("ldpFibSm");
   }

   ldpIpIntfStatusSm_.is(LdpIpIntfStatusSm::LdpIpIntfStatusSmIs(
      instId(), in_.vrfIpIntfStatus, st->localIntfIpColl(), in_.mplsConfig));
   madeLog_.push_back("ldpIpIntfStatusSm");
   ldpSessionPamShutdownSm_.is(LdpSessionPamShutdownSm::LdpSessionPamShutdownSmIs(
      instId(), in_.protoConfig, ldpPduPamShutdownColl_, in_.status));
   madeLog_.push_back("ldpSessionPamShutdownSm");
   LdpSessionConfigSm::Inputs sci;
   sci.protoConfig = in_.protoConfig;
   sci.localIntfIpColl = st->localIntfIpColl();
   sci.ldpLinkConfigColl = st->ldpLinkConfigColl();
   sci.ldpPduPamColl = ldpPduPamColl_;
   sci.ldpPeerConfigColl = st->ldpPeerConfigColl();
   sci.ldpSessionConfigColl = st->ldpSessionConfigColl();
   sci.ldpSessionSmColl = ldpSessionSmColl_;
   sci.ldpSessionStatusColl = st->ldpSessionStatusColl();
   sci.ldpPduPamSessionColl = ldpPduPamSessionColl_;
   sci.ldpPduPamShutdownColl = ldpPduPamShutdownColl_;
   sci.ldpIdIntfIpMappingTable = st->ldpIdIntfIpMappingTable();
   ldpSessionConfigSm_.is(LdpSessionConfigSm::LdpSessionConfigSmIs(instId(), sci));
   madeLog_.push_back("ldpSessionConfigSm");
   ldpSessionStatusSm_.is(LdpSessionStatusSm::LdpSessionStatusSmIs(
      instId(), st->ldpSessionStatusColl(), st->ldpIdIntfIpMappingTable(), ldpPduPamSessionColl_));
   madeLog_.push_back("ldpSessionStatusSm");
   LdpSessionSmManagerInputs smi;
   smi.protoConfig = in_.protoConfig;
   smi.status = in_.status;
   smi.ldpSessionConfigColl = st->ldpSessionConfigColl();
   smi.ldpSessionStatusColl = st->ldpSessionStatusColl();
   smi.sessionStatisticsColl = st->statistics()->sessionStatisticsColl();
   smi.ldpSessionMsgPipeColl = ldpSessionMsgPipeColl_;
   smi.ldpPduPamPipeSessionTxColl = ldpPduPamPipeSessionTxColl_;
   smi.ldpPduPamPipeSessionRxColl = ldpPduPamPipeSessionRxColl_;
   smi.ldpSessionSmColl = ldpSessionSmColl_;
   smi.localPwFecSessionConfigColl = st->localPwFecSessionConfigColl();
   smi.remotePwFecSessionConfigColl = st->remotePwFecSessionConfigColl();
   smi.ldpFecConfigColl = st->ldpFecConfigColl();
   smi.ldpFecMsgPipeColl = ldpFecMsgPipeColl_;
   // The FEC sessions' one pipe: the sessions hand their peers' wildcards to it.
   ldpFecSessionSingletonMsgPipe_ = ldpMsgPipeFactory("lfssmg");
   smi.ldpFecSessionMsgPipe = ldpFecSessionSingletonMsgPipe_;
   smi.pwFecSessionMsgPipeColl = pwFecSessionMsgPipeColl_;
   smi.p2mpFecSessionLocalLabelMsgPipeColl = p2mpFecSessionLocalLabelMsgPipeColl_;
   smi.p2mpFecSessionRemoteLabelMsgPipeColl = p2mpFecSessionRemoteLabelMsgPipeColl_;
   smi.scheduler = in_.scheduler;
   ldpSessionSmManager_.is(LdpSessionSmManager::LdpSessionSmManagerIs(instId(), smi));
   madeLog_.push_back("ldpSessionSmManager");

   ldpProtoConfigConsistencySm_.is(LdpProtoConfigConsistencySm::LdpProtoConfigConsistencySmIs(
      instId(), in_.protoConfig, st->ldpFecConfigColl()));
   madeLog_.push_back("ldpProtoConfigConsistencySm");

   // The FEC database and its managers.
   LdpFecConfigSm::Inputs fc;
   fc.protoConfig = in_.protoConfig;
   fc.ldpFecConfigColl = st->ldpFecConfigColl();
   fc.ldpFecStatusColl = st->ldpFecStatusColl();
   fc.localLabelBindingTable = st->localLabelBindingTable();
   fc.peerLabelBindingTableColl = st->peerLabelBindingTableColl();
   fc.ldpIdIntfIpMappingTable = st->ldpIdIntfIpMappingTable();
   fc.ldpSessionStatusColl = st->ldpSessionStatusColl();
   fc.ldpFecSessionStatusColl = st->ldpFecSessionStatusColl();
   fc.statistics = st->statistics();
   fc.scheduler = in_.scheduler;
   fc.mplsAgentStatus = in_.mplsAgentStatus;
   ldpFecConfigSm_.is(LdpFecConfigSm::LdpFecConfigSmIs(instId(), fc));
   madeLog_.push_back("ldpFecConfigSm");
   LdpFecSmManager::Inputs fm;
   fm.protoConfig = in_.protoConfig;
   fm.ldpFecConfigColl = st->ldpFecConfigColl();
   fm.ldpFecStatusColl = st->ldpFecStatusColl();
   fm.ldpFecMsgPipeColl = ldpFecMsgPipeColl_;
   fm.ldpFecSessionRxNotifier = ldpFecSessionRxNotifier_;
   fm.ldpFecSessionMsgPipe = ldpFecSessionSingletonMsgPipe_;
   fm.scheduler = in_.scheduler;
   ldpFecSmManager_.is(LdpFecSmManager::LdpFecSmManagerIs(instId(), fm));
   madeLog_.push_back("ldpFecSmManager");
   LdpFecSessionSmManager::Inputs fsm;
   fsm.protoConfig = in_.protoConfig;
   fsm.ldpFecConfigColl = st->ldpFecConfigColl();
   fsm.ldpFecStatusColl = st->ldpFecStatusColl();
   fsm.ldpFecSessionStatusColl = st->ldpFecSessionStatusColl();
   fsm.ldpSessionMsgPipeColl = ldpSessionMsgPipeColl_;
   fsm.ldpFecSessionRxNotifier = ldpFecSessionRxNotifier_;
   fsm.ldpSessionStatusColl = st->ldpSessionStatusColl();
   fsm.statistics = st->statistics();
   fsm.scheduler = in_.scheduler;
   ldpFecSessionSmManager_.is(LdpFecSessionSmManager::LdpFecSessionSmManagerIs(instId(), fsm));
   madeLog_.push_back("ldpFecSessionSmManager");
   // The four workers of all FEC sessions, which call each other through
   // their singleton configs, and the table of the peers' labels.
   LdpFecSessionWorkerInputs w;
   w.protoConfig = in_.protoConfig;
   w.ldpFecConfigColl = st->ldpFecConfigColl();
   w.ldpFecStatusColl = st->ldpFecStatusColl();
   w.ldpSessionStatusColl = st->ldpSessionStatusColl();
   w.ldpFecSessionStatusColl = st->ldpFecSessionStatusColl();
   w.rxMsgPipe = ldpFecSessionSingletonMsgPipe_;
   w.ldpFecSessionRxNotifier = ldpFecSessionRxNotifier_;
   w.txSessionMsgPipe = ldpSessionMsgPipeColl_;
   w.singletonMappingSmConfig = singletonMappingSmConfig_;
   w.singletonRequestSmConfig = singletonRequestSmConfig_;
   w.singletonCtrlSmConfig = singletonCtrlSmConfig_;
   w.statistics = st->statistics();
   w.scheduler = in_.scheduler;
   w.numAllocatorStatus = in_.numAllocatorStatus;
   w.wildcardWork = new LdpFecWildcardWork;
   ldpFecSessionCtrlSm_.is(LdpFecSessionCtrlSm::LdpFecSessionCtrlSmIs(instId(), w));
   madeLog_.push_back("ldpFecSessionCtrlSm");
   ldpFecSessionMappingSm_.is(LdpFecSessionMappingSm::LdpFecSessionMappingSmIs(instId(), w));
   madeLog_.push_back("ldpFecSessionMappingSm");
   ldpFecSessionRequestSm_.is(LdpFecSessionRequestSm::LdpFecSessionRequestSmIs(instId(), w));
   madeLog_.push_back("ldpFecSessionRequestSm");
   ldpFecSessionRxSm_.is(LdpFecSessionRxSm::LdpFecSessionRxSmIs(instId(), w));
   madeLog_.push_back("ldpFecSessionRxSm");
   LdpPeerLabelBindingTableSm::Inputs pb;
   pb.config = in_.config;
   pb.ldpFecConfigColl = st->ldpFecConfigColl();
   pb.ldpSessionStatusColl = st->ldpSessionStatusColl();
   pb.ldpFecSessionStatusColl = st->ldpFecSessionStatusColl();
   pb.peerLabelBindingTableColl = st->peerLabelBindingTableColl();
   pb.ldpIdIntfIpMappingTable = st->ldpIdIntfIpMappingTable();
   ldpPeerLabelBindingTableSm_.is(
      LdpPeerLabelBindingTableSm::LdpPeerLabelBindingTableSmIs(instId(), pb));
   madeLog_.push_back("ldpPeerLabelBindingTableSm");

   ldpPeerSessionManager_.is(LdpPeerSessionManager::LdpPeerSessionManagerIs(
      instId(), st->ldpPeerConfigColl(), st->ldpSessionConfigColl()));
   madeLog_.push_back("ldpPeerSessionManager");
   ldpPeerConfigSm_.is(LdpPeerConfigSm::LdpPeerConfigSmIs(
      instId(), st->ldpAdjConfigColl(), st->ldpAdjStatusColl(), st->ldpPeerConfigColl()));
   madeLog_.push_back("ldpPeerConfigSm");
   LdpAdjSmManager::Inputs am;
   am.config = in_.config;
   am.ldpLinkConfigColl = st->ldpLinkConfigColl();
   am.ldpLinkStatusColl = st->ldpLinkStatusColl();
   am.ldpTargetConfigColl = st->ldpTargetConfigColl();
   am.ldpTargetStatusColl = st->ldpTargetStatusColl();
   am.ldpAdjConfigColl = st->ldpAdjConfigColl();
   am.ldpAdjStatusColl = st->ldpAdjStatusColl();
   am.ldpAdjSmColl = Vek::Ptr<LdpAdjSmColl>(ldpAdjSmColl_.get());
   am.ldpAdjMsgPipe = ldpAdjMsgPipeColl_;
   am.ldpSessionStatusColl = st->ldpSessionStatusColl();
   am.ldpIndex = st->index();
   am.protoConfig = in_.protoConfig;
   am.ldpPeerConfigColl = st->ldpPeerConfigColl();
   am.scheduler = in_.scheduler;
   ldpAdjSmManager_.is(LdpAdjSmManager::LdpAdjSmManagerIs(instId(), am));
   madeLog_.push_back("ldpAdjSmManager");
   ldpAdjPeerManager_.is(LdpAdjPeerManager::LdpAdjPeerManagerIs(
      instId(), st->ldpAdjConfigColl(), st->ldpAdjStatusColl(), st->ldpPeerConfigColl()));
   madeLog_.push_back("ldpAdjPeerManager");
   ldpLinkConfigSm_.is(LdpLinkConfigSm::LdpLinkConfigSmIs(
      instId(), in_.protoConfig, in_.config, in_.bridgingConfig, in_.allIntfStatusDir,
      in_.vrfIpIntfStatus, st->ldpLinkConfigColl(), st->ldpLinkStatusColl(),
      st->ldpAdjStatusColl(), in_.scheduler));
   madeLog_.push_back("ldpLinkConfigSm");

   ldpLinkUdpPam_ = new Nolu::UdpPam(channelNetNs());
   ldpLinkUdpPam_->nameIs("ldpLinkUdpPam");
   LdpLinkUdpPamSm::Inputs lu;
   lu.vrfName = in_.vrfName;
   lu.protoConfig = in_.protoConfig;
   lu.ldpLinkUdpPamStatus = st->ldpLinkUdpPamStatus();
   lu.rxMsgPipeColl = ldpLinkRxMsgPipeColl_;
   lu.ldpLinkTxMsgPipeColl = ldpLinkTxMsgPipeColl_;
   lu.ldpLinkConfigColl = st->ldpLinkConfigColl();
   lu.ldpLinkStatusColl = st->ldpLinkStatusColl();
   lu.ldpLinkCommonConfig = st->ldpLinkConfigColl()->ldpLinkCommonConfig();
   lu.deviceIntfStatusDir = in_.deviceIntfStatusDir;
   lu.ldpProtoParam = ldpProtoParam_;
   lu.udpPam = ldpLinkUdpPam_;
   lu.serviceAclFilterSm = discoveryAclFilter_;
   lu.scheduler = in_.scheduler;
   ldpLinkUdpPamSm_.is(LdpLinkUdpPamSm::LdpLinkUdpPamSmIs(instId(), lu));
   madeLog_.push_back("ldpLinkUdpPamSm");
   ldpLinkSmManager_.is(LdpLinkSmManager::LdpLinkSmManagerIs(
      instId(), ldpProtoParam_, st->ldpLinkConfigColl(), st->ldpLinkStatusColl(),
      Vek::Ptr<LdpLinkSmColl>(ldpLinkSmColl_.get()), st->ldpAdjConfigColl(),
      st->ldpAdjStatusColl(), ldpAdjMsgPipeColl_, ldpLinkRxMsgPipeColl_, ldpLinkTxMsgPipeColl_,
      in_.status, in_.scheduler));
   madeLog_.push_back("ldpLinkSmManager");
   ldpTargetConfigSm_.is(LdpTargetConfigSm::LdpTargetConfigSmIs(
      instId(), in_.protoConfig, in_.config, st->ldpTargetConfigColl(), st->ldpTargetStatusColl(),
      st->pwTargetConfigColl(), st->ldpAdjStatusColl(), st->index()));
   madeLog_.push_back("ldpTargetConfigSm");
   LdpTargetSmManager::Inputs tm;
   tm.ldpProtoParam = ldpProtoParam_;
   tm.ldpTargetConfigColl = st->ldpTargetConfigColl();
   tm.ldpTargetStatusColl = st->ldpTargetStatusColl();
   tm.ldpTargetSmColl = Vek::Ptr<LdpTargetSmColl>(ldpTargetSmColl_.get());
   tm.ldpTargetMsgPipeCollection = ldpTargetMsgPipeColl_;
   tm.ldpAdjConfigColl = st->ldpAdjConfigColl();
   tm.ldpAdjStatusColl = st->ldpAdjStatusColl();
   tm.ldpAdjMsgPipe = ldpAdjMsgPipeColl_;
   tm.txUdpPam = ldpTargetUdpPam_;
   tm.status = in_.status;
   tm.scheduler = in_.scheduler;
   ldpTargetSmManager_.is(LdpTargetSmManager::LdpTargetSmManagerIs(instId(), tm));
   madeLog_.push_back("ldpTargetSmManager");
   ldpTargetServerConfigSm_.is(LdpTargetServerConfigSm::LdpTargetServerConfigSmIs(
      instId(), in_.protoConfig, st->ldpTargetConfigColl(), st->ldpTargetServerConfig()));
   madeLog_.push_back("ldpTargetServerConfigSm");

   if (in_.ldpLinkReadyStatusColl) {
      LdpLinkReadySmManager::Inputs lr;
      lr.protoConfig = in_.protoConfig;
      lr.ldpLinkConfigColl = st->ldpLinkConfigColl();
      lr.ldpSessionStatusColl = st->ldpSessionStatusColl();
      lr.ldpAdjStatusColl = st->ldpAdjStatusColl();
      lr.ldpIndex = st->index();
      lr.ldpLinkReadyStatusColl = in_.ldpLinkReadyStatusColl;
      lr.ldpLinkReadySmColl = Vek::Ptr<LdpLinkReadySmColl>(ldpLinkReadySmColl_.get());
      lr.scheduler = in_.scheduler;
      ldpLinkReadySmManager_.is(LdpLinkReadySmManager::LdpLinkReadySmManagerIs(instId(), lr));
      madeLog_.push_back("ldpLinkReadySmManager");
   }

   // The multicast frame.
   ldpP2mpFecStateSm_.is(LdpP2mpFecStateSm::LdpP2mpFecStateSmIs(instId(), st->p2mpFecStateColl()));
   madeLog_.push_back("ldpP2mpFecStateSm");
   p2mpFecStateCollSm_.is(
      LdpP2mpFecStateCollSm::LdpP2mpFecStateCollSmIs(instId(), st->p2mpFecStateColl()));
   madeLog_.push_back("p2mpFecStateCollSm");
   ldpP2mpLfibGenSm_.is(LdpP2mpLfibGenSm::LdpP2mpLfibGenSmIs(instId(), in_.p2mpLfibStatus,
                                                             st->p2mpFecSessionLocalStateColl()));
   madeLog_.push_back("ldpP2mpLfibGenSm");
   ldpP2mpLabelBindingTableSm_.is(LdpP2mpLabelBindingTableSm::LdpP2mpLabelBindingTableSmIs(
      instId(), st->p2mpPeerLabelBindingTableColl(), in_.p2mpLabelBindingTable));
   madeLog_.push_back("ldpP2mpLabelBindingTableSm");
   ldpP2mpFecSessionLocalStateSm_.is(
      LdpP2mpFecSessionLocalStateSm::LdpP2mpFecSessionLocalStateSmIs(
         instId(), st->p2mpFecStateColl(), st->p2mpFecSessionLocalStateColl()));
   madeLog_.push_back("ldpP2mpFecSessionLocalStateSm");
   ldpP2mpFecSessionRemoteStateSm_.is(
      LdpP2mpFecSessionRemoteStateSm::LdpP2mpFecSessionRemoteStateSmIs(
         instId(), st->p2mpFecSessionRemoteStateColl()));
   madeLog_.push_back("ldpP2mpFecSessionRemoteStateSm");

   // Pseudowire requests name no VRF: they are signalled in the default one.
   if (in_.pwLdpConfig && in_.pwLdpStatus && in_.vrfName == L3::VrfName(L3::defaultVrfName()))
      makePwMachines();
}

void LdpRoot::makePwMachines() {
   Status* st = in_.status.ptr();
   pwLdpRequestSm_.is(
      PwLdpRequestSm::PwLdpRequestSmIs(instId(), in_.pwLdpConfig, st->pwTargetConfigColl()));
   madeLog_.push_back("pwLdpRequestSm");
   PwConfigSmManager::Inputs pc;
   pc.pwLdpConfig = in_.pwLdpConfig;
   pc.ldpIndex = st->index();
   pc.ldpSessionMsgPipeColl = ldpSessionMsgPipeColl_;
   pc.ldpSessionStatusColl = st->ldpSessionStatusColl();
   pc.pwConfigColl = st->pwConfigColl();
   pc.pwStatusColl = st->pwStatusColl();
   pc.pwConfigSmColl = Vek::Ptr<PwConfigSmColl>(pwConfigSmColl_.get());
   pc.localPwFecSessionConfigColl = st->localPwFecSessionConfigColl();
   pc.protoConfig = in_.protoConfig;
   pc.scheduler = in_.scheduler;
   pwConfigSmManager_.is(PwConfigSmManager::PwConfigSmManagerIs(instId(), pc));
   madeLog_.push_back("pwConfigSmManager");
   PwFecSessionSmManager::Inputs fs;
   fs.ldpSessionStatusColl = st->ldpSessionStatusColl();
   fs.localPwFecSessionConfigColl = st->localPwFecSessionConfigColl();
   fs.remotePwFecSessionConfigColl = st->remotePwFecSessionConfigColl();
   fs.localPwFecSessionStatusColl = st->localPwFecSessionStatusColl();
   fs.remotePwFecSessionStatusColl = st->remotePwFecSessionStatusColl();
   fs.pwFecSessionMsgPipeColl = pwFecSessionMsgPipeColl_;
   fs.ldpSessionMsgPipeColl = ldpSessionMsgPipeColl_;
   fs.pwFecSessionSmColl = Vek::Ptr<PwFecSessionSmColl>(pwFecSessionSmColl_.get());
   fs.status = in_.status;
   fs.protoConfig = in_.protoConfig;
   fs.scheduler = in_.scheduler;
   pwFecSessionSmManager_.is(PwFecSessionSmManager::PwFecSessionSmManagerIs(instId(), fs));
   madeLog_.push_back("pwFecSessionSmManager");
   PwLdpResponseSm::Inputs rs;
   rs.ldpIndex = st->index();
   rs.pwLdpStatus = in_.pwLdpStatus;
   rs.scheduler = in_.scheduler;
   pwLdpResponseSm_.is(PwLdpResponseSm::PwLdpResponseSmIs(instId(), rs));
   madeLog_.push_back("pwLdpResponseSm");
}

void LdpRoot::handleDelete() {
   LDP_TRACE(th, 8, "LdpRoot::handleDelete " << in_.vrfName);
   VEK_ASSERT(ldpSessionSmColl()->sessionCtrlSms() == 0 &&
              "All the sessionSms should be gone before deleting ldpRoot");
   initialized_ = false;
}

}  // namespace Ldp
