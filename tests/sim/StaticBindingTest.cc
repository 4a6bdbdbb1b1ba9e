// Configured static outgoing labels in the peers' binding tables: the row
// waits for the LSR that owns the next hop's address and follows the address
// from LSR to LSR, yields to a label learned from that LSR and comes back when
// the learned label goes, stands in filteredFec while the FEC is filtered, and
// leaves no empty peer table behind.
#include <gtest/gtest.h>

#include <map>

#include "label/LdpPeerLabelBindingTableSm.h"

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
   learned(2, fec(1), 301, true);
   EXPECT_EQ((Rows{{{rid(2), fec(1)}, {{301}, learnedSrc}}}), rows());
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
