// The auxiliary services in whole agents: link readiness following real
// sessions, the published binding table in the shared store, and the
// multicast frame made with the root and each session.
#include <gtest/gtest.h>

#include "tests/sim/SessionFixtures.h"

using namespace LdpTest::Sessions;

namespace {
bool linkReady(LdpTest::AgentNode& n, char const* intf) {
   auto coll = n.agent()->ldpLinkReadyStatusVrfColl()->readyStatusVrf("default");
   auto s = coll ? coll->readyStatus(Nolu::IntfId(intf)) : nullptr;
   return s && s->ready();
}
}  // namespace

TEST_F(TwoAgents, LinkReadinessFollowsTheSession) {
   a.config()->linkReadyDelayIs(4.0);
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   Vek::Seconds up = s.now();
   EXPECT_FALSE(linkReady(a, "eth1"));
   ASSERT_TRUE(s.runUntil([&] { return linkReady(a, "eth1"); }, 10.0));
   EXPECT_NEAR(4.0, s.now() - up, 0.2);
   // b has no delay: ready right after its session came up.
   EXPECT_TRUE(linkReady(b, "eth1"));
   auto* sm = a.root()->ldpLinkReadySmColl()->linkReadySm(Nolu::IntfId("eth1")).ptr();
   ASSERT_TRUE(sm);
   EXPECT_EQ("session operational", sm->reason());

   // The peer stops LDP: a second later the link isn't ready any more.
   b.config()->enabledIs(false);
   ASSERT_TRUE(s.runUntil([&] { return state(a, r2Id) != stateOperational_; }, 10.0));
   Vek::Seconds down = s.now();
   ASSERT_TRUE(s.runUntil([&] { return !linkReady(a, "eth1"); }, 5.0));
   EXPECT_NEAR(1.0, s.now() - down, 0.2);
}

TEST_F(TwoAgents, BindingsReachTheSharedTableAndTheMulticastFrameStands) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   auto shared = a.store()->get<Ldp::LdpTesh::LdpLabelBindingTable>("mpls/ldp/ldpBindingTables");
   ASSERT_TRUE(shared);
   ASSERT_TRUE(a.store()->get<Ldp::LdpP2mpLabelBindingTable>("mpls/ldp/ldpP2mpBindingTables"));

   // What the label machines would write: a local label and the peer's.
   Mpls::FwdEqvClass fec(Nolu::Prefix(IpAddr(2, 2, 2, 2), 32));
   auto* st = a.status();
   auto local = st->localLabelBindingTable();
   local->bindingIs(fec)->mplsLabelIs(Nolu::MplsLabel(100020), true);
   local->updateProducer(fec, Nolu::MplsLabel(100020));
   Mpls::RouterId peer(r2Id);
   auto t = st->peerLabelBindingTableColl()->peerLabelBindingTableIs(peer, "plbt", peer);
   t->bindingIs(fec)->mplsLabelIs(Nolu::MplsLabel::implicitNull(), true);
   t->updateProducer(fec, Nolu::MplsLabel::implicitNull());
   EXPECT_TRUE(shared->localLbtLabelHas(Ldp::LdpTesh::LbtLabelKey(fec, Nolu::MplsLabel(100020))));
   EXPECT_TRUE(shared->peerLbtLabelHas(
      Ldp::LdpTesh::PeerLbtLabelKey(peer, fec, Nolu::MplsLabel::implicitNull())));

   // The multicast machines of the session, with their pipes.
   auto* sms = a.root()->ldpSessionSmColl();
   LdpSessionId id(r2Id);
   EXPECT_TRUE(sms->p2mpLocalLabelRxSm(id));
   EXPECT_TRUE(sms->p2mpRemoteLabelTxSm(id));
   auto pipe = a.root()->p2mpFecSessionRemoteLabelMsgPipeColl()->msgPipe(id);
   ASSERT_TRUE(pipe);
   pipe->txMsgIs(Vek::Ptr<LdpMsg>(new LdpMsg(r2Id, Nolu::globalPktManager()->newPkt(), 0)));
   EXPECT_EQ(1u, sms->p2mpRemoteLabelRxSm(id)->droppedMsgs());

   // LDP off: the shared tables leave the store, and the session's machines go.
   a.config()->enabledIs(false);
   ASSERT_TRUE(s.runUntil([&] { return !a.root(); }, 10.0));
   EXPECT_FALSE(a.store()->get<Ldp::LdpTesh::LdpLabelBindingTable>("mpls/ldp/ldpBindingTables"));
}

TEST_F(TwoAgents, EventMonitorWritesOneLinePerChange) {
   auto* log = a.agent()->ldpEventMonLog();
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   for (char const* text :
        {"LdpEventMonConfigSm[default]: created", "LdpEventMonProtoConfigSm[default]: created",
         "LdpEventMonStatusSm[default]: created", "Config: default enabled", "   routerId: ",
         "   ldpLabelRetention: ", "ProtoConfig[default]: runningState: ",
         "ProtoConfig[default]: routerId: 1.1.1.1", "Link: eth1 enabled", "Adjacency: eth1",
         "LdpPeer: 2.2.2.2:0 created", "Session: 2.2.2.2:0 created",
         "Session: 2.2.2.2:0, role: ", "Session: 2.2.2.2:0, State: stateOperational_"})
      EXPECT_TRUE(log->contains(text)) << text;
   // FECs and their memberships.
   Mpls::FwdEqvClass fec(Nolu::Prefix(IpAddr(10, 9, 9, 9), 32));
   auto fc = a.status()->ldpFecConfigColl();
   fc->fecConfigIs(fec)->membershipIs(membershipStatic_, true);
   fc->fecConfig(fec)->membershipDel(membershipStatic_);
   fc->fecConfigDel(fec);
   EXPECT_TRUE(log->contains("FEC: 10.9.9.9/32 created"));
   EXPECT_TRUE(log->contains("FEC: 10.9.9.9/32: added membershipStatic_"));
   EXPECT_TRUE(log->contains("FEC: 10.9.9.9/32: deleted membershipStatic_"));
   EXPECT_TRUE(log->contains("FEC: 10.9.9.9/32 removed"));
   // The lines are numbered in order, and each is in the trace at level 0.
   auto const& lines = log->lines();
   for (std::size_t i = 1; i < lines.size(); ++i) EXPECT_EQ(lines[i - 1].seq + 1, lines[i].seq);
   EXPECT_TRUE(s.traced("Link: eth1 enabled"));

   // The peer's session goes: its state and its removal are written.
   b.config()->enabledIs(false);
   ASSERT_TRUE(s.runUntil([&] { return log->contains("Session: 2.2.2.2:0 removed"); }, 30.0));
   EXPECT_TRUE(log->contains("LdpPeer: 2.2.2.2:0 removed"));
}
