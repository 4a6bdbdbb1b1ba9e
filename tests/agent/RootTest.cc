// The per-VRF roots, the interfaces that LDP wants, and the agent command, on
// a whole agent over the embedded state database, on virtual time.
#include <gtest/gtest.h>

#include <algorithm>

#include "agent/LdpAgent.h"
#include "runtime/nolu/Sim.h"
#include "runtime/vek/Reactor.h"

using namespace Ldp;
using Vek::Ptr;
using Nolu::IntfId;
using Nolu::IpAddr;

namespace {

template <class T>
Ptr<T> writable(Ptr<T const> const& p) {
   return Vek::ptr_const_cast<T>(p);
}

// What a reactor on a record sees: the running state and whether the VRF's
// root still exists at that moment.
class StateLog : public LdpSm {
 public:
   StateLog(Ptr<ProtoConfig const> const& pc, LdpRootSm* root, std::string vrf)
      : LdpSm(0), pc_(pc), root_(root), vrf_(std::move(vrf)) {
      r_.init(this, pc);
      initialized_ = true;
   }
   void handleRunningState() {
      seen.push_back(std::to_string(int(pc_->runningState())) +
                     (root_->ldpRoot(vrf_) ? "+root" : "-root"));
   }
   std::vector<std::string> seen;

 private:
   Ptr<ProtoConfig const> pc_;
   LdpRootSm* root_;
   std::string vrf_;
   Vek::Input<ProtoConfig::Reactor<StateLog>> r_;
};

// Records the configuration states a link goes through.
class LinkLog : public LdpSm {
 public:
   explicit LinkLog(Ptr<LdpLinkConfig const> const& lc) : LdpSm(0), lc_(lc) {
      r_.init(this, lc);
      initialized_ = true;
   }
   void handleConfigState() { seen.push_back(int(lc_->configState())); }
   std::vector<int> seen;

 private:
   Ptr<LdpLinkConfig const> lc_;
   Vek::Input<LdpLinkConfig::Reactor<LinkLog>> r_;
};

struct RootTest : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   // The channels of the default VRF open in the process's own namespace;
   // on virtual time a simulated host stands in for it.
   Nolu::Sim::Network net;
   AgentBase::AgentRunner runner;
   Ptr<Ldp::Agent> agent;

   RootTest() {
      Vek::activityManagerIs(&am);
      net.hostIs(Nolu::NamespaceName());
      EXPECT_TRUE(runner.start(agentFactory, "LdpAgent"));
      agent = Vek::ptr_cast<Ldp::Agent>(runner.agent());
   }
   ~RootTest() override {
      agent = nullptr;
      runner.stop();
   }
   // A kernel interface with an address in a VRF.
   void intfIs(U32 ifIndex, std::string const& name, IpAddr addr, U8 len,
               std::string const& vrf = "default", bool loopback = false) {
      auto kni = writable(agent->kniStatus());
      auto k = kni->intfIs(ifIndex);
      k->loopbackIs(loopback);
      k->operStatusIs(Interface::intfOperUp_);
      k->nameIs(name);
      auto ip = writable(agent->ipStatus())->vrfIpIntfStatusIs(vrf);
      ip->ipIntfStatusIs(IntfId(name))->activeAddrWithMaskIs(Nolu::IpAddrWithMask(addr, len));
   }
   void ldpIs(std::string const& vrf) {
      writable(agent->ldpConfigColl())->configIs(vrf)->enabledIs(true);
      writable(agent->ldpEnabledVrfColl())->enabledVrfIs(vrf, true);
   }
   LdpRootSm* rootSm() { return agent->ldpRootSm().ptr(); }
};

}  // namespace

TEST_F(RootTest, DefaultVrfRootAndDesiredInterfaces) {
   EXPECT_EQ(1u, agent->ldpAgentStatus()->numStartups());
   intfIs(1, "lo", IpAddr(1, 1, 1, 1), 32, "default", true);
   intfIs(2, "eth1", IpAddr(10, 0, 0, 1), 24);
   intfIs(3, "eth2", IpAddr(10, 0, 1, 1), 24);
   ldpIs("default");
   am.runFor(0.0);
   auto pc = agent->ldpProtoConfigColl()->protoConfig("default");
   ASSERT_TRUE(pc);
   EXPECT_EQ(running_, pc->runningState());
   EXPECT_EQ(IpAddr(1, 1, 1, 1), pc->routerId());
   auto root = rootSm()->ldpRoot("default");
   ASSERT_TRUE(root);
   EXPECT_EQ("   Creating VRF ldpRoot", rootSm()->reason());
   // The machines come in the order of the wiring (others stand between).
   std::vector<std::string> wiring{
      "lbtProducerSm", "lbtAdvertiseProducerSm", "ldpIndexSm", "ldpPamDesiredIntfSm", "ldpTargetServerSm", "ldpProtoConfigConsistencySm",
      "ldpPeerSessionManager", "ldpPeerConfigSm", "ldpAdjSmManager", "ldpAdjPeerManager",
      "ldpLinkConfigSm", "ldpLinkUdpPamSm", "ldpLinkSmManager", "ldpTargetConfigSm",
      "ldpTargetSmManager", "ldpTargetServerConfigSm", "ldpLinkReadySmManager",
      "ldpP2mpFecStateSm", "p2mpFecStateCollSm", "ldpP2mpLfibGenSm", "ldpP2mpLabelBindingTableSm",
      "ldpP2mpFecSessionLocalStateSm", "ldpP2mpFecSessionRemoteStateSm"};
   auto made = root->madeLog().begin();
   for (auto const& name : wiring) {
      made = std::find(made, root->madeLog().end(), name);
      EXPECT_NE(root->madeLog().end(), made) << name << " missing or out of order";
   }
   auto status = agent->ldpStatusColl()->status("default");
   ASSERT_TRUE(status && status->ldpLinkConfigColl() && status->ldpFecConfigColl());
   EXPECT_EQ(" lpwfscc", status->localPwFecSessionConfigColl()->name());

   // Hellos are wanted on the two Ethernet interfaces, not on the loopback.
   auto links = status->ldpLinkConfigColl();
   EXPECT_TRUE(root->pamDesiredIntfDir()->intfDesiredHas(IntfId("eth1")));
   EXPECT_TRUE(links->adjLinkConfigHas(IntfId("eth2")));
   EXPECT_FALSE(links->adjLinkConfigHas(IntfId("lo")));
   EXPECT_EQ(2u, links->adjLinkConfigSize());

   // MPLS turned off on one: its link is disabled, then removed.
   auto log = Vek::makeSm<LinkLog>(links->adjLinkConfig(IntfId("eth2")));
   writable(agent->mplsConfig())->mplsRoutingDisabledIntfIs(IntfId("eth2"), true);
   EXPECT_EQ((std::vector<int>{configDisabling_}), log->seen);
   EXPECT_FALSE(links->adjLinkConfigHas(IntfId("eth2")));
   EXPECT_FALSE(root->pamDesiredIntfDir()->intfDesiredHas(IntfId("eth2")));
   writable(agent->mplsConfig())->mplsRoutingDisabledIntfDel(IntfId("eth2"));
   EXPECT_TRUE(links->adjLinkConfigHas(IntfId("eth2")));

   // An interface that leaves the kernel leaves the device directory, and LDP
   // drops it.
   writable(agent->kniStatus())->intfDel(3);
   EXPECT_FALSE(links->adjLinkConfigHas(IntfId("eth2")));

   // A root made again for the same VRF is the same root.
   rootSm()->handleVrfCreate("default");
   EXPECT_EQ(root, rootSm()->ldpRoot("default"));
   EXPECT_EQ(1u, rootSm()->ldpRootCount());
}

TEST_F(RootTest, OtherVrfFollowsItsStateAndIpStatus) {
   auto vrfs = writable(agent->allVrfStatusLocal());
   auto red = vrfs->vrfIs("red");
   red->stateIs(Ip::vrfInactive_);
   intfIs(1, "lo", IpAddr(1, 1, 1, 1), 32, "default", true);
   intfIs(4, "loRed", IpAddr(2, 2, 2, 2), 32, "red", true);
   ldpIs("default");
   ldpIs("red");
   am.runFor(0.0);
   // The default VRF is never looked up in the VRF table.
   EXPECT_TRUE(rootSm()->ldpRoot("default"));
   EXPECT_FALSE(rootSm()->ldpRoot("red"));
   EXPECT_EQ("   VRF is not active, deleting.", rootSm()->reason());
   red->stateIs(Ip::vrfActive_);
   am.runFor(0.0);
   EXPECT_TRUE(rootSm()->ldpRoot("red"));

   // The VRF loses its IP status: the session layer sees LDP stop while the
   // root still stands, then the root goes.
   auto pc = agent->ldpProtoConfigColl()->protoConfig("red");
   auto log = Vek::makeSm<StateLog>(pc, rootSm(), "red");
   writable(agent->ipStatus())->vrfIpIntfStatusDel("red");
   EXPECT_EQ("   Waiting for LDP to stop.", rootSm()->reason());
   am.runFor(0.0);
   EXPECT_FALSE(rootSm()->ldpRoot("red"));
   EXPECT_EQ("   vrfIpIntfStatus is NULL, deleting.", rootSm()->reason());
   ASSERT_GE(log->seen.size(), 2u);
   EXPECT_EQ("2+root", log->seen[0]);
   EXPECT_EQ("3-root", log->seen[1]);
   EXPECT_FALSE(agent->ldpStatusColl()->status("red"));
   EXPECT_TRUE(rootSm()->ldpRoot("default"));

   // While a record is stopping, nothing changes for its VRF.
   intfIs(4, "loRed", IpAddr(2, 2, 2, 2), 32, "red", true);
   am.runFor(2.0);
   ASSERT_TRUE(rootSm()->ldpRoot("red"));

   // The VRF goes inactive while LDP runs: the record alone says so, the
   // session layer sees it stop with the root standing, and the root goes.
   // Back to active, the root comes back with the record running.
   log = Vek::makeSm<StateLog>(pc, rootSm(), "red");
   red->stateIs(Ip::vrfInactive_);
   am.runFor(0.0);
   EXPECT_FALSE(rootSm()->ldpRoot("red"));
   EXPECT_EQ((std::vector<std::string>{"2+root", "3-root"}), log->seen);
   EXPECT_EQ("VRF is not active", pc->reason());
   red->stateIs(Ip::vrfActive_);
   am.runFor(0.0);
   ASSERT_TRUE(rootSm()->ldpRoot("red"));
   EXPECT_EQ(running_, pc->runningState());
   EXPECT_EQ("Enabled", pc->reason());
   pc->runningStateIs(stopping_);
   red->stateIs(Ip::vrfInactive_);
   EXPECT_TRUE(rootSm()->ldpRoot("red"));
   pc->runningStateIs(disabled_);
   EXPECT_FALSE(rootSm()->ldpRoot("red"));
}

TEST_F(RootTest, SchedulerStatisticsCommand) {
   auto* dir = rootSm()->cliRequestDirSm();
   ASSERT_TRUE(dir);
   EXPECT_EQ("LdpAgentSchedStats", dir->agentCommandCallback()->name());
   ldpIs("default");
   am.runFor(2.0);
   std::string out = dir->doCommand("1", "DUMP_SCHEDSTATS detail");
   EXPECT_EQ('\n', out[0]);
   EXPECT_NE(std::string::npos, out.find("ProtoConfigInputTaskTimer"));
   EXPECT_NE(std::string::npos, out.find("max ms"));
   EXPECT_EQ(out, dir->response("1"));
   EXPECT_EQ("Unknown command ", dir->doCommand("2", "SHOW_EVERYTHING"));
   EXPECT_EQ("", dir->doCommand("3", "DUMP_SCHEDSTATS clear"));
   EXPECT_GE(Nolu::globalPktManager()->defaultBufferSize(), 9600u);
}

namespace {
// The host holds the reserve phase when it has preloaded the last run's labels.
struct HoldReservePhase {
   HoldReservePhase() { Ldp::Agent::holdReservePhaseIs(true); }
   ~HoldReservePhase() { Ldp::Agent::holdReservePhaseIs(false); }
};
struct HeldRootTest : HoldReservePhase, RootTest {};
}  // namespace

// A VRF's state preloaded for a restart survives a VRF that can't run LDP yet,
// is taken on by the root once it can, with its labels kept until the label
// block comes, and goes when the reserve phase ends without a root.
TEST_F(HeldRootTest, PreloadedStateWaitsForTheRoot) {
   auto statuses = agent->ldpStatusColl();
   Mpls::FwdEqvClass fec(*Nolu::Prefix::fromString("2.2.2.2/32"));
   auto preload = [&](std::string const& vrf) {
      auto st = statuses->statusIs(vrf);
      st->localLabelAllocTableIs("llat", Mpls::RouterId(0, 0))
         ->bindingIs(fec)
         ->mplsLabelIs(Nolu::MplsLabel(200007), true);
      return st;
   };
   auto st = preload("default");
   auto table = st->localLabelAllocTable();
   ldpIs("default");  // no IP status yet: LDP can't run in the VRF
   am.runFor(1.0);
   EXPECT_FALSE(rootSm()->ldpRoot("default"));
   EXPECT_EQ(st, statuses->status("default"));

   intfIs(1, "lo", IpAddr(1, 1, 1, 1), 32, "default", true);
   am.runFor(1.0);
   ASSERT_TRUE(rootSm()->ldpRoot("default"));
   EXPECT_EQ(st, statuses->status("default"));
   EXPECT_EQ(table, st->localLabelAllocTable());
   // The label waits for the block it is to be claimed from.
   ASSERT_TRUE(table->binding(fec));
   EXPECT_TRUE(table->binding(fec)->mplsLabelHas(Nolu::MplsLabel(200007)));

   // A VRF without LDP loses its preloaded state when the phase ends.
   preload("blue");
   rootSm()->reservePhaseEnd();
   EXPECT_FALSE(statuses->statusHas("blue"));
   EXPECT_TRUE(statuses->statusHas("default"));
}
