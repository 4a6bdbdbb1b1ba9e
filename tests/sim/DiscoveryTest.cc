// Discovery between agents on a simulated network: link and targeted Hellos,
// adjacencies with their hold timers, peers and the sessions they want, and
// Hellos that are refused.
#include <gtest/gtest.h>

#include "tests/harness/Scenario.h"
#include "wire/LdpMsgGen.h"

using namespace Ldp;
using LdpTest::HelloRecord;
using LdpTest::Scenario;
using Nolu::IntfId;
using Nolu::IpAddr;

namespace {

LdpIdentifier const r1Id(IpAddr(1, 1, 1, 1), 0);
LdpIdentifier const r2Id(IpAddr(2, 2, 2, 2), 0);

// The gaps between consecutive Hellos of a list, from its index first on.
std::vector<double> gaps(std::vector<HelloRecord> const& h, std::size_t first = 0) {
   std::vector<double> g;
   for (std::size_t i = first + 1; i < h.size(); ++i) g.push_back(h[i].time - h[i - 1].time);
   return g;
}

// A Hello PDU as another router would send it.
Vek::Ptr<Nolu::Pkt> helloPdu(LdpIdentifier id, U16 hold, bool t, bool r, IpAddr transport,
                             bool secondMsg = false, U16 version = 1) {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = ldpMsgGenFactory(pkt);
   gen->addLdpPduHdr(version, id);
   gen->addLdpMsgHdr(false, LdpHello_, 77);
   gen->addCommonHelloTlv(false, hold, t, r);
   if (!transport.isZero()) gen->addIpTransportAddrTlv(false, transport);
   if (secondMsg) {
      gen->addLdpMsgHdr(false, LdpHello_, 78);
      gen->addCommonHelloTlv(false, hold, t, r);
   }
   gen->computeHdrLenChecksum();
   return pkt;
}

struct DiscoveryTest : ::testing::Test {
   Scenario s;
   LdpTest::AgentNode& a = s.agent("r1");
   LdpTest::AgentNode& b = s.agent("r2");
   Nolu::Sim::Link* eth = nullptr;

   void SetUp() override {
      eth = s.link("r1", "eth1", "10.0.0.1/24", "r2", "eth1", "10.0.0.2/24");
      a.loopback("1.1.1.1");
      b.loopback("2.2.2.2");
      // The second router proposes a longer hold time and a slower interval.
      b.config()->helloHoldTimeIs(30);
      b.config()->helloIntervalIs(10);
      s.traceLevelIs("LdpLinkUdpPam", 6);
      s.traceLevelIs("LdpTargetServer", 6);
      s.traceLevelIs("LdpAdj", 3);
   }
   void TearDown() override { Vek::traceLevelIs("*", 0); }
   LdpAdjId linkAdj(LdpIdentifier const& peer) const { return LdpAdjId(IntfId("eth1"), peer); }
};

}  // namespace

TEST_F(DiscoveryTest, LinkHellosAdjacencyPeerAndHoldTimeExpiry) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil(
      [&] { return a.sessionConfigCount() == 1 && b.sessionConfigCount() == 1; }, 30.0));
   s.runFor(40.0);

   // The link channel: the all-routers group, port 646 both ways, TOS 192,
   // and TTL 1 for the link's Hellos.
   auto* pam = a.root()->ldpLinkUdpPam();
   EXPECT_EQ(3, pam->mode());
   EXPECT_EQ(192, pam->txTos());
   EXPECT_EQ(1, a.status()->ldpLinkConfigColl()->ldpLinkCommonConfig()->ttl());
   EXPECT_EQ("Enabled", a.status()->ldpLinkUdpPamStatus()->reason());

   auto h1 = s.hellos(eth, IpAddr(10, 0, 0, 1));
   auto h2 = s.hellos(eth, IpAddr(10, 0, 0, 2));
   ASSERT_GE(h1.size(), 8u);
   for (auto const& h : h1) {
      EXPECT_EQ(IpAddr(224, 0, 0, 2), h.dstIpAddr);
      EXPECT_EQ(646, h.srcPort);
      EXPECT_EQ(646, h.dstPort);
      EXPECT_EQ(0xC0, h.tos);
      EXPECT_EQ(1, h.ttl);
      EXPECT_EQ(r1Id, h.ldpIdentifier);
      EXPECT_EQ(15, h.holdTime);
      EXPECT_FALSE(h.targeted || h.requestTargeted);
      EXPECT_EQ(Nolu::IpGenAddr(IpAddr(1, 1, 1, 1)), h.transportAddr);
   }
   // Every Hello has its own message id.
   EXPECT_NE(h1[0].msgId, h1[1].msgId);

   // Both send at once; each hears the other 1 ms later and answers the new
   // neighbour within 0.1 s, then keeps its interval.
   ASSERT_GE(h2.size(), 3u);
   Vek::Seconds t0 = h1[0].time;
   EXPECT_NEAR(t0, h2[0].time, 1e-9);
   EXPECT_NEAR(t0 + 0.101, h1[1].time, 1e-6);
   EXPECT_NEAR(t0 + 0.101, h2[1].time, 1e-6);
   EXPECT_EQ(30, h2[0].holdTime);
   for (double g : gaps(h1, 1)) EXPECT_NEAR(5.0, g, 1e-6);
   // The second router's configured interval is 10 s, but its neighbour's
   // 15 s hold time brings it down to a third of that.
   EXPECT_EQ(5, b.status()->ldpLinkStatusColl()->adjLinkStatus(IntfId("eth1"))->interval());
   for (double g : gaps(h2, 1)) EXPECT_NEAR(5.0, g, 1e-6);

   // The adjacency on each side with the hold time agreed: the lesser of the
   // two proposals.
   auto const* adjA = a.adjStatus(linkAdj(r2Id));
   auto const* adjB = b.adjStatus(linkAdj(r1Id));
   ASSERT_TRUE(adjA && adjB);
   EXPECT_EQ(30, adjA->peerHoldTime());
   EXPECT_EQ(15, adjA->operHoldTime());
   EXPECT_EQ(15, adjB->peerHoldTime());
   EXPECT_EQ(15, adjB->operHoldTime());
   EXPECT_EQ(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2)), adjA->peerIpAddr());
   EXPECT_EQ(Nolu::IpGenAddr(IpAddr(10, 0, 0, 2)), adjA->peerSrcIpAddr());
   EXPECT_EQ(1u, a.adjacencyCount());

   // One peer and one wanted session on each side, keyed by the peer.
   ASSERT_EQ(1u, a.peerCount());
   auto const* peerA = a.peer(r2Id);
   ASSERT_TRUE(peerA);
   EXPECT_EQ(linkAdj(r2Id), peerA->activeAdj());
   EXPECT_EQ(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2)), peerA->peerIpAddr());
   EXPECT_TRUE(a.status()->ldpSessionConfigColl()->sessionConfigHas(LdpSessionId(r2Id)));
   EXPECT_TRUE(b.status()->ldpSessionConfigColl()->sessionConfigHas(LdpSessionId(r1Id)));
   EXPECT_EQ(1u, a.status()->index()->transportIpToPeerSize());

   // Cut the link: the adjacency goes when its hold time has run out since
   // the last Hello heard, with Hold Timer Expired, and takes the peer and
   // its session with it.
   Vek::Ptr<LdpAdjStatus const> keepAdj(adjA);
   Vek::Ptr<LdpPeerConfig const> keepPeer(peerA);
   Vek::Seconds expire = adjA->adjExpireTime();
   eth->upIs(false);
   ASSERT_TRUE(s.runUntil([&] { return a.adjacencyCount() == 0 && b.adjacencyCount() == 0; },
                          20.0));
   EXPECT_NEAR(expire, s.now(), 1e-6);
   EXPECT_EQ(statusHoldTimerExpired_, keepAdj->adjStatusCode());
   EXPECT_EQ(statusHoldTimerExpired_, keepPeer->statusCode());
   EXPECT_EQ(0u, a.peerCount());
   EXPECT_EQ(0u, a.sessionConfigCount());
   EXPECT_EQ(0u, b.sessionConfigCount());
   EXPECT_EQ(0u, a.status()->index()->transportIpToPeerSize());
}

TEST_F(DiscoveryTest, TargetedAdjacencyKeepsThePeerWhenTheLinkGoes) {
   a.staticTargetIs("2.2.2.2");
   b.staticTargetIs("1.1.1.1");
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return a.adjacencyCount() == 2 && b.adjacencyCount() == 2; },
                          30.0));
   s.runFor(40.0);
   EXPECT_TRUE(a.status()->ldpTargetServerStatus()->listening());

   // Targeted Hellos go from transport address to transport address, port
   // 646 both ways, asking for an answer, with a hold time of 45 s.
   auto t1 = s.hellos(s.net().link("r1:lo"), IpAddr(1, 1, 1, 1));
   ASSERT_GE(t1.size(), 3u);
   for (auto const& h : t1) {
      EXPECT_EQ(IpAddr(2, 2, 2, 2), h.dstIpAddr);
      EXPECT_EQ(646, h.srcPort);
      EXPECT_EQ(646, h.dstPort);
      EXPECT_TRUE(h.targeted);
      EXPECT_TRUE(h.requestTargeted);
      EXPECT_EQ(45, h.holdTime);
      EXPECT_EQ(0xC0, h.tos);
      EXPECT_EQ(255, h.ttl);
   }
   // Both sides' hold times are 45 s: a Hello every 15 s.
   EXPECT_NEAR(15.0, t1.back().time - t1[t1.size() - 2].time, 1e-6);

   // One peer with both adjacencies.
   LdpAdjId targetAdj(IpAddr(2, 2, 2, 2), r2Id);
   auto const* tadj = a.adjStatus(targetAdj);
   ASSERT_TRUE(tadj);
   EXPECT_EQ(45, tadj->operHoldTime());
   ASSERT_EQ(1u, a.peerCount());
   auto const* peerA = a.peer(r2Id);
   EXPECT_EQ(2u, peerA->ldpAdjSize());
   EXPECT_TRUE(peerA->ldpAdjHas(targetAdj));
   EXPECT_TRUE(peerA->ldpAdjHas(linkAdj(r2Id)));
   EXPECT_EQ(targetAdj, a.status()->index()->targetIpToLdpAdjId(IpAddr(2, 2, 2, 2)));

   // The link goes: its adjacency expires, the targeted one carries the peer
   // and the session stays wanted.
   eth->upIs(false);
   ASSERT_TRUE(s.runUntil([&] { return a.adjacencyCount() == 1 && b.adjacencyCount() == 1; },
                          20.0));
   s.runFor(60.0);
   EXPECT_TRUE(a.adjStatus(targetAdj));
   ASSERT_EQ(1u, a.peerCount());
   EXPECT_EQ(1u, a.peer(r2Id)->ldpAdjSize());
   EXPECT_EQ(targetAdj, a.peer(r2Id)->activeAdj());
   EXPECT_EQ(1u, a.sessionConfigCount());
   EXPECT_EQ(1u, b.sessionConfigCount());

   // The last target goes: the server closes.
   a.staticTargetIs("2.2.2.2", false);
   EXPECT_EQ("Server not enabled", a.status()->ldpTargetServerStatus()->reason());
   EXPECT_FALSE(a.status()->ldpTargetServerStatus()->listening());
}

TEST_F(DiscoveryTest, RefusedHellosAreCountedAndLeaveAdjacenciesAlone) {
   a.staticTargetIs("2.2.2.2");
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return a.adjacencyCount() == 1 && a.peerCount() == 1; }, 30.0));
   s.runFor(1.0);
   auto link = a.status()->ldpLinkUdpPamStatus();
   auto server = a.status()->ldpTargetServerStatus();
   ASSERT_TRUE(server->listening());
   auto const* adj = a.adjStatus(linkAdj(r2Id));
   ASSERT_TRUE(adj);
   U32 errBase = link->errPktCount();
   U32 adjRx = adj->rxPktCount();
   Vek::Seconds expire = adj->adjExpireTime();

   // Another sender on the second router's side of the link.
   Nolu::UdpPam rogue(Nolu::NamespaceName("r2"));
   rogue.modeIs(1);
   rogue.txPortIs(646);
   rogue.txTosIs(192);
   auto sendLink = [&](Vek::Ptr<Nolu::Pkt> const& pkt) {
      rogue.txSrcIpAddrIs(IpAddr(10, 0, 0, 2));
      rogue.txDstIpAddrIs(IpAddr(224, 0, 0, 2));
      rogue.txIfIndexIs(b.ifIndex("eth1"));
      rogue.sendPkt(pkt);
      s.runFor(0.01);
   };
   s.traceClear();
   sendLink(helloPdu(LdpIdentifier(IpAddr(3, 3, 3, 3), 1), 15, false, false, IpAddr()));
   EXPECT_TRUE(s.traced("LdpId with non-zero label space not supported. 3.3.3.3:1"));
   sendLink(helloPdu(LdpIdentifier(IpAddr(3, 3, 3, 3), 0), 15, false, false, IpAddr(), true));
   EXPECT_TRUE(s.traced("Unexpected 2 messages"));
   sendLink(helloPdu(LdpIdentifier(IpAddr(3, 3, 3, 3), 0), 15, false, false, IpAddr(), false, 7));
   auto truncated = helloPdu(LdpIdentifier(IpAddr(3, 3, 3, 3), 0), 15, false, false, IpAddr());
   truncated->delSharedTailData(3);
   sendLink(truncated);
   EXPECT_EQ(errBase + 4, link->errPktCount());
   EXPECT_EQ(1u, a.adjacencyCount());

   // A link Hello from the known neighbour with the targeted bit: the
   // adjacency counts it as an error and its timer isn't refreshed.
   s.runFor(0.5);
   sendLink(helloPdu(r2Id, 15, true, false, IpAddr(2, 2, 2, 2)));
   EXPECT_EQ(adjRx + 1, adj->rxPktCount());
   EXPECT_EQ(1u, adj->errPktCount());
   EXPECT_TRUE(s.traced("   Rejected. Unexpected targeted hello TLV"));
   EXPECT_EQ(expire, adj->adjExpireTime());

   // A targeted Hello from an address that nobody targets: seen, traced,
   // not an error, and nothing learnt from it.
   U32 srvRx = server->rxPktCount();
   U32 srvErr = server->errPktCount();
   rogue.txSrcIpAddrIs(IpAddr(10, 0, 0, 2));
   rogue.txDstIpAddrIs(IpAddr(1, 1, 1, 1));
   rogue.txIfIndexIs(0);
   rogue.sendPkt(helloPdu(LdpIdentifier(IpAddr(9, 9, 9, 9), 0), 45, true, true,
                          IpAddr(9, 9, 9, 9)));
   s.runFor(0.01);
   EXPECT_EQ(srvRx + 1, server->rxPktCount());
   EXPECT_EQ(srvErr, server->errPktCount());
   EXPECT_TRUE(s.traced("   Ignoring targeted Hello: unknown source IP 9.9.9.9"));
   EXPECT_FALSE(a.peer(LdpIdentifier(IpAddr(9, 9, 9, 9), 0)));

   // None of it disturbed the adjacency, which lives on with the neighbour's
   // next Hellos.
   s.runFor(20.0);
   EXPECT_EQ(1u, a.adjacencyCount());
   EXPECT_TRUE(a.adjStatus(linkAdj(r2Id)));
   EXPECT_EQ(1u, a.peerCount());
}
