// The discovery machines on their own, over hand-made entities: link timing,
// target membership, and the running condition of a link.
#include <gtest/gtest.h>

#include "discovery/LdpLinkConfigSm.h"
#include "discovery/LdpLinkSm.h"
#include "discovery/LdpTargetConfigSm.h"

using namespace Ldp;
using Nolu::IntfId;
using Nolu::IpAddr;
using Vek::Ptr;

namespace {

struct MachinesTest : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Ptr<Hesk::TaskScheduler> sched;
   Ptr<ProtoConfig> pc{new ProtoConfig("default")};
   Ptr<Config> config{new Config("default")};
   Ptr<LdpAdjStatusColl> las{new LdpAdjStatusColl("las")};
   MachinesTest() {
      Vek::activityManagerIs(&am);
      sched = new Hesk::TaskScheduler("t", &am);
      pc->ipTransportAddrIs(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1)));
      pc->ldpIdentifierIs(LdpIdentifier(IpAddr(1, 1, 1, 1), 0));
   }
};

}  // namespace

TEST_F(MachinesTest, LinkIntervalFollowsTheShortestPeerHoldTime) {
   Ptr<Ip::VrfIpIntfStatus> ip(new Ip::VrfIpIntfStatus("default"));
   Ptr<LdpLinkConfigColl> llcc(new LdpLinkConfigColl("llcc"));
   auto common = llcc->ldpLinkCommonConfigIs();
   Ptr<LdpLinkStatusColl> llsc(new LdpLinkStatusColl("llsc"));
   IntfId eth("eth1");
   ip->ipIntfStatusIs(eth)->activeAddrWithMaskIs(Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 1), 24));
   pc->configCodefDelayIs(1.0);
   auto sm = LdpLinkConfigSm::LdpLinkConfigSmIs(0, pc, config, nullptr, nullptr, ip, llcc, llsc,
                                                las, sched);
   EXPECT_EQ(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1)), common->ipTransportAddr());
   U32 seq = common->configSeqNum();
   pc->ldpIdentifierIs(LdpIdentifier(IpAddr(1, 1, 1, 2), 0));
   EXPECT_EQ(seq + 1, common->configSeqNum());

   // A new link is filled in after the coalescing delay; a burst of address
   // changes makes one update.
   auto lc = llcc->adjLinkConfigIs(eth);
   am.runFor(1.0);
   EXPECT_EQ(IpAddr(10, 0, 0, 1), lc->ipAddr());
   EXPECT_EQ(15, lc->holdTime());
   EXPECT_EQ(5, lc->interval());
   // No interface status: not down.
   EXPECT_EQ(Interface::intfOperNotPresent_, lc->operStatus());
   U32 runs = sm->timerExpireCount();
   for (U8 i = 2; i < 5; ++i)
      ip->ipIntfStatusIs(eth)->activeAddrWithMaskIs(Nolu::IpAddrWithMask(IpAddr(10, 0, 0, i), 24));
   am.runFor(1.0);
   EXPECT_EQ(runs + 1, sm->timerExpireCount());
   EXPECT_EQ(IpAddr(10, 0, 0, 4), lc->ipAddr());

   // A neighbour that advertises 6 s speeds the link up to a third of it;
   // an infinite one never shortens it.
   auto ls = llsc->adjLinkStatusIs(eth);
   ls->holdTimeIs(15);
   LdpAdjId adj(eth, LdpIdentifier(IpAddr(2, 2, 2, 2), 0));
   ls->adjIdSetIs(adj, true);
   auto as = las->adjStatusIs(adj);
   as->peerHoldTimeIs(6);
   am.runFor(1.0);
   EXPECT_EQ(2, lc->interval());
   as->peerHoldTimeIs(65535);
   am.runFor(1.0);
   EXPECT_EQ(5, lc->interval());

   // A hold time of 1 gives an interval of 1, not 0; configuration changes
   // bypass the queue.
   ls->holdTimeIs(1);
   config->helloHoldTimeIs(1);
   EXPECT_EQ(1, lc->holdTime());
   EXPECT_EQ(1, lc->interval());

   // The address goes: the link has none.
   ip->ipIntfStatusDel(eth);
   am.runFor(1.0);
   EXPECT_TRUE(lc->ipAddr().isZero());
}

TEST_F(MachinesTest, TargetLivesWhileItHasAMembership) {
   Ptr<LdpTargetConfigColl> ltcc(new LdpTargetConfigColl("ltcc"));
   ltcc->ldpTargetCommonConfigIs();
   Ptr<LdpTargetStatusColl> ltsc(new LdpTargetStatusColl("ltsc"));
   Ptr<PwTargetConfigColl> pw(new PwTargetConfigColl("pwtcc"));
   Ptr<LdpIndex> index(new LdpIndex("i"));
   Nolu::IpGenAddr peer(IpAddr(2, 2, 2, 2));
   pc->staticTargetIs(peer, true);
   auto sm = LdpTargetConfigSm::LdpTargetConfigSmIs(0, pc, config, ltcc, ltsc, pw, las, index);
   auto tc = ltcc->adjTargetConfig(IpAddr(2, 2, 2, 2));
   ASSERT_TRUE(tc);
   EXPECT_EQ(configEnabled_, tc->configState());
   EXPECT_EQ(45, tc->holdTime());

   // Static and pseudowire at once: it survives losing one of them.
   pw->pwTargetIs(peer, true);
   EXPECT_EQ(2u, tc->targetMembershipSize());
   pc->staticTargetDel(peer);
   EXPECT_TRUE(ltcc->adjTargetConfigHas(IpAddr(2, 2, 2, 2)));

   // With no adjacency it Hellos at the configured interval; the adjacency's
   // operating hold time shortens it.
   ltsc->adjTargetStatusIs(IpAddr(2, 2, 2, 2));
   LdpAdjId adj(IpAddr(2, 2, 2, 2), LdpIdentifier(IpAddr(2, 2, 2, 2), 0));
   index->targetIpToLdpAdjIdIs(IpAddr(2, 2, 2, 2), adj);
   las->adjStatusIs(adj)->operHoldTimeIs(6);
   EXPECT_EQ(2, tc->interval());
   las->adjStatusDel(adj);
   sm->handleTargetConfig();
   EXPECT_EQ(15, tc->interval());

   // The last membership goes: the target falls through 2 and 3 and is gone.
   pw->pwTargetDel(peer);
   EXPECT_EQ(configDisabled_, tc->configState());
   EXPECT_FALSE(ltcc->adjTargetConfigHas(IpAddr(2, 2, 2, 2)));
}

TEST_F(MachinesTest, LinkRunningConditionNamesTheFirstFailure) {
   Ptr<LdpLinkConfigColl> llcc(new LdpLinkConfigColl("llcc"));
   auto common = llcc->ldpLinkCommonConfigIs();
   IntfId eth("eth1");
   auto lc = llcc->adjLinkConfigIs(eth);
   Ptr<LdpLinkStatusColl> llsc(new LdpLinkStatusColl("llsc"));
   Ptr<LdpStatusColl> stColl(new LdpStatusColl);
   auto status = stColl->statusIs("default");
   status->statisticsIs("s");
   Ptr<LdpAdjConfigColl> lac(new LdpAdjConfigColl("lac"));
   Ptr<LdpAdjMsgPipeCollection> pipes(new LdpAdjMsgPipeCollection("lampc"));
   Ptr<LdpProtoParamConfig> param(new LdpProtoParamConfig("lpp"));
   LdpLinkSm::Inputs in;
   in.intfId = eth;
   in.ldpLinkConfig = lc;
   in.ldpLinkCommonConfig = common;
   in.ldpProtoParam = param;
   in.ldpLinkStatus = llsc->adjLinkStatusIs(eth);
   in.ldpAdjConfigColl = lac;
   in.ldpAdjStatusColl = las;
   in.ldpAdjMsgPipe = pipes;
   in.status = status;
   in.rxMsgPipe = ldpMsgPipeFactory("");
   in.txMsgPipe = ldpMsgPipeFactory("");
   in.scheduler = sched;
   lc->intervalIs(0);
   common->intervalIs(0);
   // What the link configuration writes when the interface has no status.
   lc->operStatusIs(Interface::intfOperNotPresent_);
   auto sm = LdpLinkSm::LdpLinkSmIs(0, in);
   // Both the interval and the address are missing: the interval is named.
   EXPECT_EQ("Not Running: 0 interval", sm->reason());
   lc->intervalIs(5);
   EXPECT_EQ("Not Running: Interface has Invalid IP Address", sm->reason());
   lc->ipAddrIs(IpAddr(10, 0, 0, 1));
   EXPECT_EQ("Not Running: Invalid Router ID", sm->reason());
   common->ipTransportAddrIs(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1)));
   EXPECT_EQ("Not Running: Invalid LdpId", sm->reason());
   EXPECT_FALSE(sm->pkt());

   // Running: the Hello is built and leaves at once.
   common->ldpIdIs(LdpIdentifier(IpAddr(1, 1, 1, 1), 0));
   EXPECT_EQ("Is Running", sm->reason());
   EXPECT_TRUE(in.ldpLinkStatus->running());
   EXPECT_TRUE(sm->pkt());
   EXPECT_EQ(1u, in.ldpLinkStatus->txPktCount());
   // The new identifier also brings the next Hello forward to 0.1 s; the
   // cycle goes on from there.
   am.runFor(0.1);
   EXPECT_EQ(2u, in.ldpLinkStatus->txPktCount());
   am.runFor(10.0);
   EXPECT_EQ(4u, in.ldpLinkStatus->txPktCount());

   // The interface goes down: the packet is dropped and the timer stops at
   // its next firing.
   lc->operStatusIs(Interface::intfOperDown_);
   EXPECT_EQ("Not Running: Interface is down", sm->reason());
   EXPECT_FALSE(sm->pkt());
   am.runFor(20.0);
   EXPECT_EQ(4u, in.ldpLinkStatus->txPktCount());
}
