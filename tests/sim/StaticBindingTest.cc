// Configured static outgoing labels in the peers' binding tables: the row
// waits for the LSR that owns the next hop's address and follows the address
// from LSR to LSR, yields to a label learned from that LSR and comes back when
// the learned label goes, stands in filteredFec while the FEC is filtered, and
// leaves no empty peer table behind; and the same between two agents whose
// session tells the next hop's address.
#include <gtest/gtest.h>

#include <map>

#include "label/LdpPeerLabelBindingTableSm.h"
#include "tests/harness/Scenario.h"

using namespace Ldp;
using Mpls::FwdEqvClass;
using Nolu::IpAddr;
using Nolu::MplsLabel;
using Vek::Ptr;

namespace {

FwdEqvClass fec(U8 last) { return FwdEqvClass(Nolu::Prefix(IpAddr(10, 9, 0, last), 32)); }
LdpIdentifier lsr(U8 n) { return LdpIdentifier(IpAddr(n, n, n, n), 0); }
Mpls::RouterId rid(U8 n) { return Mpls::RouterId(lsr(n)); }

struct StaticBinding : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Ptr<Config> config{new Config("default")};
   Ptr<LdpFecConfigColl> fecs{new LdpFecConfigColl("lfcc")};
   Ptr<LdpSessionStatusColl> sessions{new LdpSessionStatusColl("lssc")};
   Ptr<LdpFecSessionStatusColl> fss{new LdpFecSessionStatusColl("lfssc")};
   Ptr<Mpls::LdpInternalLabelBindingTableColl> peers{
      new Mpls::LdpInternalLabelBindingTableColl("plbtc")};
   Ptr<LdpIdIntfIpMappingTable> addrs{new LdpIdIntfIpMappingTable("map")};
   Ptr<LdpPeerLabelBindingTableSm> sm;
   IpAddr hop{10, 0, 1, 2};

   StaticBinding() { Vek::activityManagerIs(&am); }
   ~StaticBinding() override {
      sm = nullptr;
      Vek::activityManagerIs(nullptr);
   }
   void start() {
      LdpPeerLabelBindingTableSm::Inputs in;
      in.config = config;
      in.ldpFecConfigColl = fecs;
      in.ldpSessionStatusColl = sessions;
      in.ldpFecSessionStatusColl = fss;
      in.peerLabelBindingTableColl = peers;
      in.ldpIdIntfIpMappingTable = addrs;
      sm = LdpPeerLabelBindingTableSm::LdpPeerLabelBindingTableSmIs(1, in);
   }
   void fecIs(FwdEqvClass const& f, Mpls::FecFilteredState st = Mpls::fecUnfiltered_) {
      fecs->fecConfigIs(f)->fecFilteredStateIs(st);
   }
   void staticIs(FwdEqvClass const& f, IpAddr nexthop, U32 label) {
      auto e = config->staticFecBindingCollIs(f);
      e->nexthopIs(Nolu::IpGenAddr(nexthop));
      e->outLabelIs(MplsLabel(label));
   }
   void learned(U8 peer, FwdEqvClass const& f, U32 label, bool on) {
      sessions->sessionStatusIs(LdpSessionId(lsr(peer)));
      auto s = fss->fecSessionStatusIs(LdpFecSessionId(f, LdpSessionId(lsr(peer))));
      if (on) s->peerLabelStateIs(MplsLabel(label), mappingRcvd_);
      else s->peerLabelStateDel(MplsLabel(label));
   }
   // Every peer's rows: (peer, FEC) -> labels and source.
   using Rows = std::map<std::pair<Mpls::RouterId, FwdEqvClass>, std::pair<std::set<U32>, U8>>;
   Rows rows() const {
      Rows out;
      for (auto t = peers->peerLabelBindingTableIter(); t; ++t)
         for (auto b = t.value()->bindingIter(); b; ++b) {
            auto& r = out[{t.key(), b.key()}];
            r.second = b.value().labelSource();
            for (auto l = b.value().mplsLabelIter(); l; ++l) r.first.insert(l.key().value());
         }
      return out;
   }
   static constexpr U8 staticSrc = 1, learnedSrc = 2;
};

}  // namespace

TEST_F(StaticBinding, WaitsForTheNextHopsLsrAndFollowsTheAddress) {
   // A row of a former run for a binding that is no longer configured.
   auto old = peers->peerLabelBindingTableIs(rid(9), "plbt", rid(9));
   auto ob = old->bindingIs(fec(7));
   ob->labelSourceIs(staticSrc);
   ob->mplsLabelIs(MplsLabel(77), true);
   ob = {};
   old = nullptr;
   fecIs(fec(1));
   staticIs(fec(1), hop, 300);
   // A binding with a local label only has no row anywhere.
   config->staticFecBindingCollIs(fec(2))->localLabelIs(MplsLabel(20));
   fecIs(fec(2));
   start();
   EXPECT_TRUE(rows().empty());
   EXPECT_EQ(0u, peers->peerLabelBindingTableSize());

   // The next hop's address arrives with 2.2.2.2's session.
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(2));
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{300}, staticSrc}}}), rows());
   EXPECT_EQ(lsr(2), sm->fwdEqvClassLdpIdMapping(fec(1)));

   // The address moves to another LSR: so does the row, and the first
   // LSR's table, empty now, goes.
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(3));
   EXPECT_EQ((Rows{{{rid(3), fec(1)}, {{300}, staticSrc}}}), rows());
   EXPECT_FALSE(peers->peerLabelBindingTableHas(rid(2)));

   // A new label replaces the old one in place; a next hop that no LSR owns
   // takes the row away until it is configured back.
   config->staticFecBindingColl(fec(1))->outLabelIs(MplsLabel(3));
   EXPECT_EQ((Rows{{{rid(3), fec(1)}, {{3}, staticSrc}}}), rows());
   config->staticFecBindingColl(fec(1))->nexthopIs(Nolu::IpGenAddr(IpAddr(10, 0, 9, 9)));
   EXPECT_TRUE(rows().empty());
   EXPECT_EQ("No mapping to ldpId", sm->reason());
   EXPECT_EQ(nullptr, sm->intfIpFwdEqvClassMapping(Nolu::IpGenAddr(hop)));
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(2));
   EXPECT_TRUE(rows().empty());
   config->staticFecBindingColl(fec(1))->nexthopIs(Nolu::IpGenAddr(hop));
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{3}, staticSrc}}}), rows());

   // The address goes with its session, then comes back; the binding goes.
   addrs->intfIpToLdpIdDel(Nolu::IpGenAddr(hop));
   EXPECT_EQ(0u, peers->peerLabelBindingTableSize());
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(2));
   EXPECT_EQ(1u, rows().size());
   config->staticFecBindingCollDel(fec(1));
   EXPECT_EQ(0u, peers->peerLabelBindingTableSize());
   EXPECT_EQ(nullptr, sm->intfIpFwdEqvClassMapping(Nolu::IpGenAddr(hop)));
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(3));
   EXPECT_EQ(0u, peers->peerLabelBindingTableSize());
}

TEST_F(StaticBinding, ALearnedLabelWinsAndItsLossBringsTheStaticOneBack) {
   fecIs(fec(1));
   staticIs(fec(1), hop, 300);
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(2));
   start();
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{300}, staticSrc}}}), rows());
   // The session's record of the FEC, with no label yet, leaves the static
   // row as it is.
   learned(2, fec(1), 500, false);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{300}, staticSrc}}}), rows());

   learned(2, fec(1), 500, true);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{500}, learnedSrc}}}), rows());
   // A change of the binding does not take the learned label's place.
   config->staticFecBindingColl(fec(1))->outLabelIs(MplsLabel(301));
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{500}, learnedSrc}}}), rows());
   EXPECT_EQ("Choose dynamic label binding", sm->reason());
   learned(2, fec(1), 500, false);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{301}, staticSrc}}}), rows());

   // The same label learned: it is the learned one now, and stays through
   // its loss as the static one again.
   U64 told = peers->peerLabelBindingTable(rid(2))->changeCnt();
   learned(2, fec(1), 301, true);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{301}, learnedSrc}}}), rows());
   EXPECT_GT(peers->peerLabelBindingTable(rid(2))->changeCnt(), told);
   learned(2, fec(1), 301, false);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{301}, staticSrc}}}), rows());

   // A label from another LSR has its own table beside the static row.
   learned(3, fec(1), 600, true);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{301}, staticSrc}}, {{rid(3), fec(1)}, {{600}, learnedSrc}}}),
             rows());
   // The next hop moves to the LSR with the learned label: that label keeps
   // its row, and the static one leaves the former LSR.
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(3));
   EXPECT_EQ((Rows{{{rid(3), fec(1)}, {{600}, learnedSrc}}}), rows());
   EXPECT_FALSE(peers->peerLabelBindingTableHas(rid(2)));
   learned(3, fec(1), 600, false);
   EXPECT_EQ((Rows{{{rid(3), fec(1)}, {{301}, staticSrc}}}), rows());
}

TEST_F(StaticBinding, AFilteredFecStandsInFilteredFecAndEmptyTablesGo) {
   fecIs(fec(1));
   staticIs(fec(1), hop, 300);
   addrs->intfIpToLdpIdIs(Nolu::IpGenAddr(hop), lsr(2));
   start();
   auto t2 = [&] { return peers->peerLabelBindingTable(rid(2)); };
   fecIs(fec(1), Mpls::fecFiltered_);
   EXPECT_TRUE(rows().empty());
   ASSERT_TRUE(t2());
   EXPECT_TRUE(t2()->filteredFecHas(fec(1)));
   fecIs(fec(1), Mpls::fecUnfiltered_);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{300}, staticSrc}}}), rows());
   EXPECT_FALSE(t2()->filteredFecHas(fec(1)));

   // A learned label of a filtered FEC publishes no row either.
   learned(2, fec(1), 500, true);
   fecIs(fec(1), Mpls::fecFiltered_);
   EXPECT_TRUE(rows().empty());
   EXPECT_TRUE(t2()->filteredFecHas(fec(1)));
   learned(2, fec(1), 500, false);
   EXPECT_TRUE(t2()->filteredFecHas(fec(1)));

   // The binding and then the FEC go while filtered: nothing is left.
   config->staticFecBindingCollDel(fec(1));
   fss->fecSessionStatusDel(LdpFecSessionId(fec(1), LdpSessionId(lsr(2))));
   fecs->fecConfigDel(fec(1));
   EXPECT_EQ(0u, peers->peerLabelBindingTableSize());
}

namespace {

struct StaticBindingTwoAgents : ::testing::Test {
   LdpTest::Scenario s;
   LdpTest::AgentNode& a = s.agent("a");
   LdpTest::AgentNode& b = s.agent("b");
   U32 nextFecId = 1;

   void SetUp() override {
      s.link("a", "eth1", "10.0.1.1/24", "b", "eth1", "10.0.1.2/24");
      a.loopback("1.1.1.1");
      b.loopback("2.2.2.2");
      block(a, 1000);
      block(b, 2000);
      route(a, "2.2.2.2/32", "eth1", IpAddr(10, 0, 1, 2));
      route(b, "2.2.2.2/32", "lo", IpAddr(), 1);
   }
   void block(LdpTest::AgentNode& n, U32 base) {
      auto bl = n.store()->get<Mpls::Api::Status>("mpls/status")->labelBlockAllocationIs("ldp");
      bl->baseIs(base);
      bl->sizeIs(100);
   }
   void route(LdpTest::AgentNode& n, std::string const& p, std::string const& intf, IpAddr hop,
              U8 type = 2) {
      auto fwd = n.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
      U32 id = nextFecId++;
      fwd->fecIs(id)->viaIs(Via(Nolu::IpGenAddr(hop), Nolu::IntfId(intf)), true);
      auto r = n.store()->get<Tesh::Fib::RouteStatus>("routing/status")->routeIs(
         *Nolu::Prefix::fromString(p));
      r->routeTypeIs(type);
      r->fecIdIs(id);
   }
   // The labels and source of a prefix's row in a's table of b.
   std::pair<std::set<U32>, U8> row(std::string const& p) {
      auto t = a.status()->peerLabelBindingTableColl()->peerLabelBindingTable(rid(2));
      auto const* bnd = t ? t->bindingFind(FwdEqvClass(*Nolu::Prefix::fromString(p))) : nullptr;
      std::pair<std::set<U32>, U8> out{{}, 0};
      if (!bnd) return out;
      out.second = bnd->labelSource();
      for (auto l = bnd->mplsLabelIter(); l; ++l) out.first.insert(l.key().value());
      return out;
   }
};

}  // namespace

TEST_F(StaticBindingTwoAgents, AStaticLabelWaitsForTheSessionAndYieldsToTheLearnedOne) {
   a.ldp();
   b.ldp();
   auto c = a.config();
   for (auto [p, label] : {std::pair<char const*, U32>{"2.2.2.2/32", 777}, {"10.9.9.9/32", 555}}) {
      auto e = c->staticFecBindingCollIs(FwdEqvClass(*Nolu::Prefix::fromString(p)));
      e->nexthopIs(Nolu::IpGenAddr(IpAddr(10, 0, 1, 2)));
      e->outLabelIs(MplsLabel(label));
   }
   s.runFor(0.5);
   ASSERT_TRUE(a.status());
   EXPECT_EQ(0u, a.status()->peerLabelBindingTableColl()->peerLabelBindingTableSize());

   // The session tells b's addresses: the FEC that b labels has b's label
   // (Implicit Null for its own loopback), the other one the static label.
   ASSERT_TRUE(s.runUntil([&] { return row("10.9.9.9/32").first == std::set<U32>{555}; }, 30.0));
   EXPECT_EQ(1, row("10.9.9.9/32").second);
   ASSERT_TRUE(s.runUntil([&] { return row("2.2.2.2/32").first == std::set<U32>{3}; }, 10.0));
   EXPECT_EQ(2, row("2.2.2.2/32").second);

   // b stops labelling its loopback: the static label takes the place.
   b.store()->get<Tesh::Fib::RouteStatus>("routing/status")->routeDel(
      *Nolu::Prefix::fromString("2.2.2.2/32"));
   ASSERT_TRUE(s.runUntil([&] { return row("2.2.2.2/32").first == std::set<U32>{777}; }, 10.0));
   EXPECT_EQ(1, row("2.2.2.2/32").second);

   // The session goes with the link: its addresses, and so the rows, go.
   a.intfOperStatusIs("eth1", Interface::intfOperDown_);
   EXPECT_TRUE(s.runUntil(
      [&] { return a.status()->peerLabelBindingTableColl()->peerLabelBindingTableSize() == 0; },
      60.0));
}
