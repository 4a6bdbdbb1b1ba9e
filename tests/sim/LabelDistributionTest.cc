// Label distribution between agents on the simulated network: three LSRs in a
// line, a -- b -- c, each with routes to the others' loopbacks, exchange
// labels; routes that go are withdrawn and released; ordered control with
// loop detection, and downstream on demand with its requests, aborts and
// No Route answers.
#include <gtest/gtest.h>

#include "tests/harness/Scenario.h"
#include "wire/LdpParser.h"

using namespace Ldp;
using LdpTest::AgentNode;
using LdpTest::Scenario;
using Nolu::IntfId;
using Nolu::IpAddr;

namespace {

Mpls::FwdEqvClass fec(std::string const& p) {
   return Mpls::FwdEqvClass(*Nolu::Prefix::fromString(p));
}
LdpIdentifier lsr(U8 n) { return LdpIdentifier(IpAddr(n, n, n, n), 0); }

// What crossed a link: the label messages of a type, from one sender.
struct WireMsg {
   Vek::Ptr<LdpMsgParser> parser;
   Nolu::IpAddr from;
};

struct Line : ::testing::Test {
   Scenario s;
   AgentNode& a = s.agent("a");
   AgentNode& b = s.agent("b");
   AgentNode& c = s.agent("c");
   Nolu::Sim::Link* ab = nullptr;
   Nolu::Sim::Link* bc = nullptr;
   U32 nextFecId = 1;

   void SetUp() override {
      ab = s.link("a", "eth1", "10.0.1.1/24", "b", "eth1", "10.0.1.2/24");
      bc = s.link("b", "eth2", "10.0.2.2/24", "c", "eth1", "10.0.2.3/24");
      a.loopback("1.1.1.1");
      b.loopback("2.2.2.2");
      c.loopback("3.3.3.3");
      block(a, 1000);
      block(b, 2000);
      block(c, 3000);
      // Each LSR's own loopback and the routes to the others'.
      route(a, "1.1.1.1/32", "lo", IpAddr(), 1);
      route(a, "2.2.2.2/32", "eth1", IpAddr(10, 0, 1, 2));
      route(a, "3.3.3.3/32", "eth1", IpAddr(10, 0, 1, 2));
      route(b, "2.2.2.2/32", "lo", IpAddr(), 1);
      route(b, "1.1.1.1/32", "eth1", IpAddr(10, 0, 1, 1));
      route(b, "3.3.3.3/32", "eth2", IpAddr(10, 0, 2, 3));
      route(c, "3.3.3.3/32", "lo", IpAddr(), 1);
      route(c, "1.1.1.1/32", "eth1", IpAddr(10, 0, 2, 2));
      route(c, "2.2.2.2/32", "eth1", IpAddr(10, 0, 2, 2));
   }
   void block(AgentNode& n, U32 base) {
      auto m = n.store()->get<Mpls::Api::Status>("mpls/status");
      auto bl = m->labelBlockAllocationIs("ldp");
      bl->baseIs(base);
      bl->sizeIs(100);
   }
   void route(AgentNode& n, std::string const& p, std::string const& intf, IpAddr hop,
              U8 type = 2) {
      auto fwd = n.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
      auto routes = n.store()->get<Tesh::Fib::RouteStatus>("routing/status");
      U32 id = nextFecId++;
      fwd->fecIs(id)->viaIs(Via(Nolu::IpGenAddr(hop), IntfId(intf)), true);
      auto r = routes->routeIs(*Nolu::Prefix::fromString(p));
      r->routeTypeIs(type);
      r->fecIdIs(id);
   }
   void noRoute(AgentNode& n, std::string const& p) {
      n.store()->get<Tesh::Fib::RouteStatus>("routing/status")->routeDel(
         *Nolu::Prefix::fromString(p));
   }
   void start() {
      a.ldp();
      b.ldp();
      c.ldp();
   }
   LdpSessionStatus const* session(AgentNode& n, U8 peer) {
      return n.status()->ldpSessionStatusColl()->sessionStatus(LdpSessionId(lsr(peer))).ptr();
   }
   bool labelReady(AgentNode& n, U8 peer) {
      auto const* ss = n.status() ? session(n, peer) : nullptr;
      return ss && ss->sessionOpState() == sessionOpAddrExchanged_;
   }
   bool allUp() {
      return labelReady(a, 2) && labelReady(b, 1) && labelReady(b, 3) && labelReady(c, 2);
   }
   // The local label of a FEC at an agent, or the null label.
   Nolu::MplsLabel local(AgentNode& n, std::string const& p) {
      auto const* cfg = n.status()->ldpFecConfigColl()->fecConfigFind(fec(p));
      if (!cfg || cfg->mplsLabelSize() != 1) return Nolu::MplsLabel::null();
      return cfg->mplsLabelIter().key();
   }
   // The label that an agent holds from a peer for a FEC in its peer table.
   Nolu::MplsLabel peerLabel(AgentNode& n, U8 peer, std::string const& p) {
      auto t = n.status()->peerLabelBindingTableColl()->peerLabelBindingTable(
         Mpls::RouterId(lsr(peer)));
      if (!t) return Nolu::MplsLabel::null();
      auto const* bnd = t->bindingFind(fec(p));
      if (!bnd || bnd->mplsLabelSize() != 1) return Nolu::MplsLabel::null();
      return bnd->mplsLabelIter().key();
   }
   LdpFecSessionStatus const* fs(AgentNode& n, std::string const& p, U8 peer) {
      return n.status()->ldpFecSessionStatusColl()->fecSessionStatusFind(
         LdpFecSessionId(fec(p), LdpSessionId(lsr(peer))));
   }
   // The messages of a type that an agent sent to a peer (sessions run
   // between loopbacks, whose links record them).
   std::vector<WireMsg> wire(AgentNode& from, U8 peer, LdpMsgType type) {
      std::vector<WireMsg> out;
      U8 self = U8(from.name()[0] - 'a' + 1);
      std::vector<Nolu::Sim::Record> recs;
      for (char const* n : {"a:lo", "b:lo", "c:lo"})
         for (auto const& r : s.net().linkIs(n)->records()) recs.push_back(r);
      std::stable_sort(recs.begin(), recs.end(),
                       [](auto const& x, auto const& y) { return x.time < y.time; });
      for (auto const& r : recs) {
         if (r.protocol != 6 || r.dstIpAddr != IpAddr(peer, peer, peer, peer) ||
             r.srcIpAddr != IpAddr(self, self, self, self))
            continue;
         auto pkt = Scenario::pktOf(r);
         auto pdu = ldpPduParserFactory(pkt, 0);
         if (!pdu->validLdpPdu()) continue;
         for (U32 i = 0; i < pdu->msgNum(); ++i) {
            if (pdu->msgHdr(i)->type() != type) continue;
            out.push_back({ldpMsgParserFactory(pkt, pdu->msgOffset(i)), r.srcIpAddr});
         }
      }
      return out;
   }
   std::size_t notifications(AgentNode& from, U8 peer, LdpStatusCode code) {
      std::size_t n = 0;
      for (auto const& m : wire(from, peer, LdpNotification_))
         if (m.parser->statusTlv() && m.parser->statusTlv()->statusData() == code) ++n;
      return n;
   }
   void featureIs(AgentNode& n, U64 bit, bool on) {
      LdpProtoParamSetting f = n.config()->ldpProtoParamSetting();
      f.flagIs(bit, on);
      n.config()->ldpProtoParamSettingIs(f);
   }
};

}  // namespace

// Downstream unsolicited, independent control, liberal retention: every
// FEC's label goes to every peer, each peer's labels are kept per session and
// published, and a route that goes is withdrawn, released and forgotten.
TEST_F(Line, UnsolicitedIndependentLabelsGoEverywhereAndWithdrawsAreReleased) {
   start();
   ASSERT_TRUE(s.runUntil([&] { return allUp(); }, 60.0));
   ASSERT_TRUE(s.runUntil([&] { return !peerLabel(a, 2, "3.3.3.3/32").isNull(); }, 10.0));
   s.runFor(2.0);
   // Each LSR's loopback is advertised with Implicit Null, the others with
   // a label of the LSR's block, to both sides (independent control sends to
   // the next hop too).
   EXPECT_EQ(3u, peerLabel(b, 1, "1.1.1.1/32").value());
   EXPECT_EQ(3u, peerLabel(b, 3, "3.3.3.3/32").value());
   Nolu::MplsLabel b3 = local(b, "3.3.3.3/32");
   ASSERT_GE(b3.value(), 2000u);
   EXPECT_EQ(b3, peerLabel(a, 2, "3.3.3.3/32"));
   EXPECT_EQ(b3, peerLabel(c, 2, "3.3.3.3/32"));
   EXPECT_EQ(local(a, "3.3.3.3/32"), peerLabel(b, 1, "3.3.3.3/32"));
   EXPECT_EQ(local(c, "1.1.1.1/32"), peerLabel(b, 3, "1.1.1.1/32"));
   // The FEC database sees the next hop's mapping; the FEC sessions know
   // which peer is the next hop.
   EXPECT_TRUE(a.status()->ldpFecConfigColl()->fecConfigFind(fec("3.3.3.3/32"))
                  ->downstreamLsrMappingAvail());
   ASSERT_TRUE(fs(b, "3.3.3.3/32", 3));
   EXPECT_TRUE(fs(b, "3.3.3.3/32", 3)->isNexthopLsr());
   EXPECT_FALSE(fs(b, "3.3.3.3/32", 1)->isNexthopLsr());
   EXPECT_EQ(mappingSent_, fs(b, "3.3.3.3/32", 1)->localLabelState(b3));
   EXPECT_TRUE(b.status()->ldpFecConfigColl()->fecConfigFind(fec("3.3.3.3/32"))->advertisedToHas(
      LdpSessionId(lsr(1))));
   // One mapping per FEC and peer, whatever passed meanwhile.
   s.runFor(5.0);
   EXPECT_EQ(1u, fs(b, "3.3.3.3/32", 1)->ldpMsgTx(LdpLabelMapping_));
   std::size_t mappingsBefore = wire(b, 1, LdpLabelMapping_).size();

   // 3.3.3.3 goes away everywhere: each LSR withdraws its label a second
   // later, each peer releases it, and the rows and FECs go.
   noRoute(c, "3.3.3.3/32");
   noRoute(b, "3.3.3.3/32");
   noRoute(a, "3.3.3.3/32");
   s.runFor(0.5);
   // Not yet: a route that comes straight back would cancel the withdraw.
   EXPECT_EQ(0u, wire(c, 2, LdpLabelWithdraw_).size());
   ASSERT_TRUE(s.runUntil([&] { return peerLabel(a, 2, "3.3.3.3/32").isNull(); }, 5.0));
   s.runFor(3.0);
   EXPECT_TRUE(peerLabel(b, 3, "3.3.3.3/32").isNull());
   EXPECT_TRUE(peerLabel(c, 2, "3.3.3.3/32").isNull());
   EXPECT_TRUE(peerLabel(b, 1, "3.3.3.3/32").isNull());
   auto withdraws = wire(b, 1, LdpLabelWithdraw_);
   ASSERT_EQ(1u, withdraws.size());
   EXPECT_EQ(b3, withdraws[0].parser->genLabelTlv()->label());
   auto releases = wire(a, 2, LdpLabelRelease_);
   ASSERT_EQ(1u, releases.size());
   EXPECT_EQ(b3, releases[0].parser->genLabelTlv()->label());
   EXPECT_EQ(fec("3.3.3.3/32"), releases[0].parser->ldpFecTlvParser()->fwdEqvCls(0));
   for (AgentNode* n : {&a, &b, &c}) {
      EXPECT_FALSE(n->status()->ldpFecConfigColl()->fecConfigHas(fec("3.3.3.3/32"))) << n->name();
      EXPECT_FALSE(n->status()->ldpFecSessionStatusColl()->fecSessionStatusHas(
         LdpFecSessionId(fec("3.3.3.3/32"), LdpSessionId(lsr(2)))))
         << n->name();
   }
   // No mapping went out again meanwhile, and the sessions stayed up.
   EXPECT_EQ(mappingsBefore, wire(b, 1, LdpLabelMapping_).size());
   EXPECT_TRUE(allUp());

   // The route comes back: a fresh mapping, with the released label or
   // another.
   route(b, "3.3.3.3/32", "eth2", IpAddr(10, 0, 2, 3));
   ASSERT_TRUE(s.runUntil([&] { return !peerLabel(a, 2, "3.3.3.3/32").isNull(); }, 5.0));
   EXPECT_EQ(local(b, "3.3.3.3/32"), peerLabel(a, 2, "3.3.3.3/32"));
}

// Downstream on demand: a Label Request goes to the next hop alone, the
// mapping that answers it names the request, and a request for a FEC without
// a route is answered with No Route and tried again later.
TEST_F(Line, OnDemandRequestsMappingsAndNoRoute) {
   for (AgentNode* n : {&a, &b, &c}) n->config()->ldpLabelAdvDsplIs(downstreamOnDemandAdvDspl_);
   // a routes 5.5.5.5 through b, which has no route for it.
   route(a, "5.5.5.5/32", "eth1", IpAddr(10, 0, 1, 2));
   start();
   ASSERT_TRUE(s.runUntil([&] { return allUp(); }, 60.0));
   EXPECT_EQ(downstreamOnDemandAdvDspl_, session(a, 2)->operLabelAdvDspl());
   ASSERT_TRUE(s.runUntil([&] { return !peerLabel(a, 2, "3.3.3.3/32").isNull(); }, 10.0));
   EXPECT_EQ(local(b, "3.3.3.3/32"), peerLabel(a, 2, "3.3.3.3/32"));
   // a asked its next hop b; b answered naming the request, and asked no
   // one upstream for it.
   auto requests = wire(a, 2, LdpLabelRequest_);
   Vek::Ptr<LdpMsgParser> req33;
   for (auto const& m : requests)
      if (m.parser->ldpFecTlvParser()->fwdEqvCls(0) == fec("3.3.3.3/32")) req33 = m.parser;
   ASSERT_TRUE(req33);
   bool answered = false;
   for (auto const& m : wire(b, 1, LdpLabelMapping_)) {
      if (m.parser->ldpFecTlvParser()->fwdEqvCls(0) != fec("3.3.3.3/32")) continue;
      ASSERT_TRUE(m.parser->labelReqMsgIdTlv());
      EXPECT_EQ(req33->msgId(), m.parser->labelReqMsgIdTlv()->msgId());
      answered = true;
   }
   EXPECT_TRUE(answered);
   for (auto const& m : wire(b, 1, LdpLabelRequest_))
      EXPECT_NE(fec("3.3.3.3/32"), m.parser->ldpFecTlvParser()->fwdEqvCls(0));
   EXPECT_FALSE(peerLabel(a, 2, "2.2.2.2/32").isNull());
   // c's labels reach a only through b's own: a never heard from c.
   EXPECT_TRUE(peerLabel(a, 3, "3.3.3.3/32").isNull());
   // No Route for 5.5.5.5 at b, after its short delay; a tries again later.
   ASSERT_TRUE(s.runUntil([&] { return notifications(b, 1, statusNoRoute_) >= 1; }, 5.0));
   ASSERT_TRUE(fs(a, "5.5.5.5/32", 2));
   EXPECT_TRUE(fs(a, "5.5.5.5/32", 2)->flagNoRouteNotification());
   std::size_t tries = 0;
   for (auto const& m : wire(a, 2, LdpLabelRequest_))
      tries += m.parser->ldpFecTlvParser()->fwdEqvCls(0) == fec("5.5.5.5/32");
   EXPECT_EQ(1u, tries);
   s.runFor(11.0);
   tries = 0;
   for (auto const& m : wire(a, 2, LdpLabelRequest_))
      tries += m.parser->ldpFecTlvParser()->fwdEqvCls(0) == fec("5.5.5.5/32");
   EXPECT_EQ(2u, tries);
   // b gets the route: the next try is answered with a mapping.
   route(b, "5.5.5.5/32", "eth2", IpAddr(10, 0, 2, 3));
   ASSERT_TRUE(s.runUntil([&] { return !peerLabel(a, 2, "5.5.5.5/32").isNull(); }, 15.0));
   EXPECT_TRUE(allUp());
}

// Ordered control with loop detection around a ring of three LSRs: c's
// loopback is mapped from c to b, from b to a (its upstream), and from a
// round to c, each time with the path so far; c finds itself on the path,
// answers Loop Detected, and takes no label from a for its own FEC.
TEST_F(Line, OrderedLoopDetectionFindsARing) {
   s.link("c", "eth2", "10.0.3.3/24", "a", "eth2", "10.0.3.1/24");
   for (AgentNode* n : {&a, &b, &c}) {
      n->config()->ldpLabelDistCtrlIs(orderedDistCtrl_);
      n->config()->ldpLoopDetectionIs(true);
   }
   start();
   ASSERT_TRUE(s.runUntil([&] { return allUp() && labelReady(a, 3); }, 60.0));
   ASSERT_TRUE(s.runUntil([&] { return notifications(c, 1, statusLoopDetected_) > 0; }, 10.0))
      << "mappings a->c: " << wire(a, 3, LdpLabelMapping_).size();
   // The mapping that came round carried the whole path and a hop count.
   bool round = false;
   for (auto const& m : wire(a, 3, LdpLabelMapping_)) {
      if (m.parser->ldpFecTlvParser()->fwdEqvCls(0) != fec("3.3.3.3/32")) continue;
      ASSERT_TRUE(m.parser->pathVectorTlv() && m.parser->hopCountTlv());
      EXPECT_EQ(3u, m.parser->pathVectorTlv()->lsrIdNum());
      EXPECT_EQ(3u, m.parser->hopCountTlv()->hopCount());
      round = true;
   }
   EXPECT_TRUE(round);
   s.runFor(5.0);
   // Nothing loops: c keeps no label from a for its own FEC, b sent none
   // back to its next hop c, and a got b's.
   EXPECT_TRUE(peerLabel(c, 1, "3.3.3.3/32").isNull());
   for (auto const& m : wire(b, 3, LdpLabelMapping_))
      EXPECT_NE(fec("3.3.3.3/32"), m.parser->ldpFecTlvParser()->fwdEqvCls(0));
   EXPECT_EQ(local(b, "3.3.3.3/32"), peerLabel(a, 2, "3.3.3.3/32"));
   EXPECT_TRUE(allUp());
}

// Loop detection switched on along a line where routes do not loop: the
// labels are advertised again with hop counts and path vectors, nobody
// reports a loop, and the sessions stay up.
TEST_F(Line, LoopDetectionOnALineFindsNoLoop) {
   start();
   ASSERT_TRUE(s.runUntil([&] { return allUp(); }, 60.0));
   s.runFor(3.0);
   for (AgentNode* n : {&a, &b, &c}) n->config()->ldpLoopDetectionIs(true);
   s.runFor(3.0);
   ASSERT_TRUE(s.runUntil([&] { return allUp(); }, 60.0));
   s.runFor(3.0);
   EXPECT_EQ(local(b, "3.3.3.3/32"), peerLabel(a, 2, "3.3.3.3/32"));
   std::size_t before =
      notifications(b, 1, statusLoopDetected_) + notifications(b, 3, statusLoopDetected_);
   EXPECT_EQ(0u, before);
   bool withHopCount = false;
   for (auto const& m : wire(b, 1, LdpLabelMapping_))
      withHopCount = withHopCount || (m.parser->hopCountTlv() && m.parser->pathVectorTlv());
   EXPECT_TRUE(withHopCount);
   EXPECT_TRUE(allUp());
}
