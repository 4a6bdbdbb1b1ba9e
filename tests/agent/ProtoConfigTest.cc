// The effective protocol configuration of a VRF, on virtual time.
#include <gtest/gtest.h>

#include "agent/LdpProtoConfigConsistencySm.h"
#include "agent/LdpProtoConfigSm.h"
#include "runtime/vek/Reactor.h"

using namespace Ldp;
using Vek::Ptr;
using Nolu::IntfId;
using Nolu::IpAddr;

namespace {

// Records what every reactor of the record sees when runningState changes.
class RunningStateWatch : public LdpSm {
 public:
   explicit RunningStateWatch(Ptr<ProtoConfig const> const& pc) : LdpSm(0), pc_(pc) {
      r_.init(this, pc);
      initialized_ = true;
   }
   void handleRunningState() {
      std::ostringstream os;
      os << int(pc_->runningState()) << "/" << pc_->routerId().stringValue();
      seen.push_back(os.str());
   }
   std::vector<std::string> seen;

 private:
   Ptr<ProtoConfig const> pc_;
   Vek::Input<ProtoConfig::Reactor<RunningStateWatch>> r_;
};

struct ProtoConfigTest : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Ptr<Hesk::TaskScheduler> sched;
   Ptr<LdpConfigColl> configColl{new LdpConfigColl};
   Ptr<LdpProtoConfigColl> protoColl{new LdpProtoConfigColl};
   Ptr<LdpEnabledVrfColl> enabled{new LdpEnabledVrfColl};
   Ptr<LdpAgentStatus> agentStatus{new LdpAgentStatus};
   Ptr<Ip::Status> ipStatus{new Ip::Status};
   Ptr<Ip::AllVrfStatusLocal> vrfs{new Ip::AllVrfStatusLocal};
   Ptr<Interface::AllIntfStatusDir> intfDir{new Interface::AllIntfStatusDir};
   Ptr<Mpls::Config> mpls{new Mpls::Config};
   Ptr<Routing::Config> routing{new Routing::Config};
   Ptr<Acl::AclListConfig> acl{new Acl::AclListConfig};
   Ptr<LdpProtoConfigSmManager> mgr;

   ProtoConfigTest() {
      Vek::activityManagerIs(&am);
      sched = new Hesk::TaskScheduler("LdpAgent", &am);
   }
   void intfIs(std::string const& name, IpAddr addr, bool up = true) {
      auto vrf = ipStatus->vrfIpIntfStatusIs("default");
      auto st = intfDir->intfStatusIs(IntfId(name));
      st->operStatusIs(up ? Interface::intfOperUp_ : Interface::intfOperDown_);
      vrf->ipIntfStatusIs(IntfId(name))->activeAddrWithMaskIs(Nolu::IpAddrWithMask(addr, 32));
   }
   void start(U32 numStartups = 0) {
      agentStatus->numStartupsIs(numStartups);
      auto cfg = configColl->configIs("default");
      cfg->enabledIs(true);
      enabled->enabledVrfIs("default", true);
      mgr = LdpProtoConfigSmManager::LdpProtoConfigSmManagerIs(
         0, configColl, protoColl, enabled, agentStatus, ipStatus, vrfs, intfDir, mpls, routing,
         acl, sched);
   }
   Ptr<ProtoConfig> pc() { return protoColl->protoConfig("default"); }
   Ptr<Config> cfg() { return configColl->config("default"); }
};

}  // namespace

TEST_F(ProtoConfigTest, FirstStartWaitsASecondAndLoopbackWins) {
   intfIs("Ethernet1", IpAddr(9, 9, 9, 9));
   intfIs("Loopback0", IpAddr(1, 1, 1, 1));
   start(0);
   ASSERT_TRUE(pc());
   EXPECT_EQ("Initialized", pc()->reason());
   am.runFor(0.999);
   EXPECT_EQ(runningStateNone_, pc()->runningState());
   am.runFor(0.001);
   EXPECT_EQ("Enabled", pc()->reason());
   EXPECT_EQ(running_, pc()->runningState());
   EXPECT_EQ(IpAddr(1, 1, 1, 1), pc()->routerId());
   EXPECT_EQ(IntfId("Loopback0"), pc()->intfId());
   EXPECT_EQ(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1)), pc()->ipTransportAddr());
   EXPECT_EQ(LdpIdentifier(IpAddr(1, 1, 1, 1), 0), pc()->ldpIdentifier());

   // A higher loopback does not move a chosen router id...
   intfIs("Loopback1", IpAddr(2, 2, 2, 2));
   am.runFor(2.0);
   EXPECT_EQ(IpAddr(1, 1, 1, 1), pc()->routerId());
   // ...a force request does, once; an older or repeated one does nothing.
   Vek::Seconds force = am.now();
   cfg()->forceRouterIdIs(force);
   EXPECT_EQ(IpAddr(2, 2, 2, 2), pc()->routerId());
   intfIs("Loopback2", IpAddr(3, 3, 3, 3));
   am.runFor(2.0);
   cfg()->forceRouterIdIs(force - 10);
   cfg()->forceRouterIdIs(force);
   EXPECT_EQ(IpAddr(2, 2, 2, 2), pc()->routerId());
   cfg()->forceRouterIdIs(force + 1);
   EXPECT_EQ(IpAddr(3, 3, 3, 3), pc()->routerId());
}

TEST_F(ProtoConfigTest, RestartEvaluatesAtOnceAndHighestAddressWins) {
   intfIs("Ethernet1", IpAddr(9, 9, 9, 9));
   intfIs("Ethernet2", IpAddr(10, 0, 0, 1));
   intfIs("Management1", IpAddr(192, 168, 0, 1));
   start(1);
   am.runFor(0.0);
   EXPECT_EQ("Enabled", pc()->reason());
   EXPECT_EQ(IpAddr(10, 0, 0, 1), pc()->routerId());
}

TEST_F(ProtoConfigTest, RouterIdInterfaceGoingDown) {
   intfIs("Loopback0", IpAddr(1, 1, 1, 1));
   start(1);
   am.runFor(0.0);
   auto watch = Vek::makeSm<RunningStateWatch>(pc());
   // The interface goes down: evaluation at once; reactors see stopping while
   // the old router id still holds, then disabled.
   intfDir->intfStatus(IntfId("Loopback0"))->operStatusIs(Interface::intfOperDown_);
   am.runFor(0.0);
   EXPECT_EQ((std::vector<std::string>{"2/1.1.1.1", "3/1.1.1.1"}), watch->seen);
   EXPECT_EQ("No interface available in this VRF", pc()->reason());
   EXPECT_TRUE(pc()->routerId().isZero());

   // Another interface qualifies: the record moves to it and runs again.
   intfIs("Ethernet1", IpAddr(9, 9, 9, 9));
   am.runFor(1.0);
   EXPECT_EQ(running_, pc()->runningState());
   EXPECT_EQ(IpAddr(9, 9, 9, 9), pc()->routerId());
   // A burst of harmless changes is one evaluation a second after the burst.
   intfIs("Ethernet2", IpAddr(5, 5, 5, 5));
   am.runFor(0.5);
   intfIs("Ethernet3", IpAddr(6, 6, 6, 6));
   EXPECT_DOUBLE_EQ(am.now() + 1.0, mgr->ldpProtoConfigSm("default")->inputTimerTask()->currentExpirationTime());
}

TEST_F(ProtoConfigTest, ReasonsOfTheGate) {
   intfIs("Loopback0", IpAddr(1, 1, 1, 1));
   start(1);
   am.runFor(0.0);
   cfg()->enabledIs(false);
   EXPECT_EQ("LDP is disabled in LDP config", pc()->reason());
   EXPECT_EQ(disabled_, pc()->runningState());
   cfg()->enabledIs(true);
   mpls->mplsRoutingIs(false);
   EXPECT_EQ("MPLS is disabled in MPLS config", pc()->reason());
   mpls->mplsRoutingIs(true);
   routing->routingIs(false);
   EXPECT_EQ("IP routing is disabled", pc()->reason());
   routing->routingIs(true);
   EXPECT_EQ("Enabled", pc()->reason());

   // A static router id without a transport interface keeps LDP down.
   cfg()->routerIdIs(IpAddr(7, 7, 7, 7));
   cfg()->forceRouterIdIs(am.now());
   EXPECT_EQ("TransportAddr interface not configured and router-id not derived from an interface",
             pc()->reason());
   cfg()->ipTransportAddrIntfIdIs(IntfId("Loopback0"));
   EXPECT_EQ("Enabled", pc()->reason());
   EXPECT_EQ(IpAddr(7, 7, 7, 7), pc()->routerId());

   cfg()->routerIdIs(IpAddr());
   cfg()->routerIdIntfIdIs(IntfId("Ethernet9"));
   cfg()->forceRouterIdIs(am.now() + 1);
   EXPECT_EQ("Router-id configured interface is not ready", pc()->reason());

   // The VRF loses its IP status; static targets follow the configuration.
   ipStatus->vrfIpIntfStatusDel("default");
   am.runFor(0.0);
   EXPECT_EQ("vrfIpIntfStatus is NULL", pc()->reason());
   cfg()->staticTargetIs(Nolu::IpGenAddr(IpAddr(3, 3, 3, 3)), true);
   EXPECT_TRUE(pc()->staticTargetHas(Nolu::IpGenAddr(IpAddr(3, 3, 3, 3))));

   // Disabling the VRF removes the machine and its record.
   enabled->enabledVrfDel("default");
   EXPECT_EQ(nullptr, pc());
   EXPECT_EQ(0u, mgr->ldpProtoConfigSmCount());
}

TEST_F(ProtoConfigTest, FecsFollowTheRecord) {
   intfIs("Loopback0", IpAddr(1, 1, 1, 1));
   start(1);
   am.runFor(0.0);
   Ptr<LdpFecConfigColl> fecs(new LdpFecConfigColl("lfcc"));
   Mpls::FwdEqvClass a(Nolu::IpGenPrefix(Nolu::IpGenAddr(IpAddr(10, 0, 0, 0)), 8));
   fecs->fecConfigIs(a);
   auto sm = LdpProtoConfigConsistencySm::LdpProtoConfigConsistencySmIs(0, pc(), fecs);
   EXPECT_EQ(IpAddr(1, 1, 1, 1), fecs->fecConfig(a)->routerId());
   cfg()->ldpLoopDetectionIs(true);
   cfg()->ldpLabelRetentionIs(conservativeRetention_);
   EXPECT_TRUE(fecs->fecConfig(a)->ldpLoopDetection());
   EXPECT_EQ(conservativeRetention_, fecs->fecConfig(a)->ldpLabelRetention());
   // A new FEC takes the present values at once.
   Mpls::FwdEqvClass b(Nolu::IpGenPrefix(Nolu::IpGenAddr(IpAddr(10, 1, 0, 0)), 16));
   auto fb = fecs->fecConfigIs(b);
   EXPECT_TRUE(fb->ldpLoopDetection());
   EXPECT_EQ(IpAddr(1, 1, 1, 1), fb->routerId());
   EXPECT_EQ(conservativeRetention_, fb->ldpLabelRetention());
}

TEST_F(ProtoConfigTest, EveryCarriedSettingReachesTheRecordAtOnce) {
   intfIs("Loopback0", IpAddr(1, 1, 1, 1));
   start(1);
   am.runFor(0.0);
   ASSERT_EQ(running_, pc()->runningState());
   // Each change shows in the record before anything else happens.
   cfg()->maxPduLengthIs(8000);
   EXPECT_EQ(8000, pc()->maxPduLength());
   cfg()->keepAliveTimeIs(40);
   EXPECT_EQ(40, pc()->keepAliveTime());
   cfg()->ldpHopCountMaxIs(32);
   EXPECT_EQ(32, pc()->ldpHopCountMax());
   cfg()->ldpMultiLabelSupportIs(true);
   EXPECT_TRUE(pc()->ldpMultiLabelSupport());
   cfg()->ldpLoopDetectionIs(true);
   EXPECT_TRUE(pc()->ldpLoopDetection());
   cfg()->ldpLabelDistCtrlIs(orderedDistCtrl_);
   EXPECT_EQ(orderedDistCtrl_, pc()->ldpLabelDistCtrl());
   cfg()->ldpLabelAdvDsplIs(downstreamOnDemandAdvDspl_);
   EXPECT_EQ(downstreamOnDemandAdvDspl_, pc()->ldpLabelAdvDspl());
   cfg()->ldpLabelRetentionIs(conservativeRetention_);
   EXPECT_EQ(conservativeRetention_, pc()->ldpLabelRetention());
   cfg()->linkReadyDelayIs(3.0);
   EXPECT_EQ(3.0, pc()->linkReadyDelay());
   cfg()->linkReadyTimeoutIs(9.0);
   EXPECT_EQ(9.0, pc()->linkReadyTimeout());
   cfg()->ldpProtoParamSettingIs(LdpProtoParamSetting(1u << 3));
   EXPECT_EQ(LdpProtoParamSetting(1u << 3), pc()->ldpProtoParamSetting());
   cfg()->md5PasswordIs("secret");
   EXPECT_EQ("secret", pc()->md5Password());
   cfg()->staticTargetIs(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2)), true);
   EXPECT_TRUE(pc()->staticTargetHas(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2))));
}

TEST_F(ProtoConfigTest, AnotherVrfRunsOnlyWhileActive) {
   auto red = vrfs->vrfIs("red");
   red->stateIs(Ip::vrfActive_);
   auto ip = ipStatus->vrfIpIntfStatusIs("red");
   intfDir->intfStatusIs(IntfId("loRed"))->operStatusIs(Interface::intfOperUp_);
   ip->ipIntfStatusIs(IntfId("loRed"))->activeAddrWithMaskIs(
      Nolu::IpAddrWithMask(IpAddr(2, 2, 2, 2), 32));
   agentStatus->numStartupsIs(1);
   configColl->configIs("red")->enabledIs(true);
   enabled->enabledVrfIs("red", true);
   mgr = LdpProtoConfigSmManager::LdpProtoConfigSmManagerIs(
      0, configColl, protoColl, enabled, agentStatus, ipStatus, vrfs, intfDir, mpls, routing, acl,
      sched);
   am.runFor(0.0);
   auto rec = protoColl->protoConfig("red");
   ASSERT_TRUE(rec);
   EXPECT_EQ(running_, rec->runningState());
   auto watch = Vek::makeSm<RunningStateWatch>(rec);
   red->stateIs(Ip::vrfInactive_);
   am.runFor(0.0);
   EXPECT_EQ("VRF is not active", rec->reason());
   // Reactors see both values with the old router id.
   EXPECT_EQ((std::vector<std::string>{"2/2.2.2.2", "3/2.2.2.2"}), watch->seen);
   red->stateIs(Ip::vrfActive_);
   am.runFor(0.0);
   EXPECT_EQ("Enabled", rec->reason());
   EXPECT_EQ(running_, rec->runningState());
   // A VRF that disappears from the table is not active either.
   vrfs->vrfDel("red");
   am.runFor(0.0);
   EXPECT_EQ("VRF is not active", rec->reason());
   EXPECT_EQ(disabled_, rec->runningState());
}
