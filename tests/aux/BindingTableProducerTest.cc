// The producers of the published binding table over hand-written internal
// tables: every row that the label machines would write is copied as it is
// told, peer tables come and go, a missed change is caught up, and rows left
// by a former run go at the start.
#include <gtest/gtest.h>

#include <set>
#include <tuple>

#include "label/LdpLibAdvertisementProducerSm.h"
#include "label/LdpLibProducerSm.h"

using namespace Ldp;
using namespace Ldp::LdpTesh;
using Mpls::FwdEqvClass;
using Nolu::IpAddr;
using Nolu::MplsLabel;
using Vek::Ptr;

namespace {

FwdEqvClass fec(U8 last) { return FwdEqvClass(Nolu::Prefix(IpAddr(10, 9, 0, last), 32)); }

struct ProducerTest : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Ptr<Mpls::LdpInternalLabelBindingTable> local{
      new Mpls::LdpInternalLabelBindingTable("llbt", Mpls::RouterId(0, 0))};
   Ptr<Mpls::LdpInternalLabelBindingTableColl> peers{
      new Mpls::LdpInternalLabelBindingTableColl("plbtc")};
   Ptr<Mpls::LabelAdvertisementColl> adv{new Mpls::LabelAdvertisementColl("ladv")};
   Ptr<LdpLabelBindingTable> shared{new LdpLabelBindingTable("ldpBindingTables")};
   Ptr<LdpLibProducerSm> producer;
   Ptr<LdpLibAdvertisementProducerSm> advProducer;
   Mpls::RouterId r2{IpAddr(2, 2, 2, 2).value(), 0};

   ProducerTest() { Vek::activityManagerIs(&am); }
   ~ProducerTest() override {
      producer = nullptr;
      advProducer = nullptr;
      Vek::activityManagerIs(nullptr);
   }
   void start() {
      LdpLibProducerSm::Inputs in{local, peers, shared};
      producer = LdpLibProducerSm::LdpLibProducerSmIs(1, in);
      advProducer = LdpLibAdvertisementProducerSm::LdpLibAdvertisementProducerSmIs(1, adv, shared);
   }
   // Writes a label as the label machines do, telling the producer.
   static void labelIs(Mpls::LdpInternalLabelBindingTable* t, FwdEqvClass const& f, U32 label,
                       bool on, U32 time = 100) {
      auto b = t->bindingIs(f);
      b->labelSourceIs(2);
      b->lastUpdateIs(time);
      if (on) b->mplsLabelIs(MplsLabel(label), true);
      else b->mplsLabelDel(MplsLabel(label));
      if (!on && b->mplsLabelSize() == 0) t->bindingDel(f);
      t->updateProducer(f, MplsLabel(label));
   }
   std::set<std::pair<FwdEqvClass, U32>> localRows() const {
      std::set<std::pair<FwdEqvClass, U32>> out;
      for (auto it = shared->localLbtLabelIter(); it; ++it)
         out.emplace(it.key().fec(), it.key().label().value());
      return out;
   }
   std::set<std::tuple<Mpls::RouterId, FwdEqvClass, U32>> peerRows() const {
      std::set<std::tuple<Mpls::RouterId, FwdEqvClass, U32>> out;
      for (auto it = shared->peerLbtLabelIter(); it; ++it)
         out.emplace(it.key().peer(), it.key().fec(), it.key().label().value());
      return out;
   }
};

}  // namespace

TEST_F(ProducerTest, LocalRowsFollowTheInternalTableRowByRow) {
   start();
   labelIs(local.ptr(), fec(1), 100001, true, 50);
   labelIs(local.ptr(), fec(2), 100002, true);
   EXPECT_EQ((std::set<std::pair<FwdEqvClass, U32>>{{fec(1), 100001}, {fec(2), 100002}}),
             localRows());
   EXPECT_EQ(50u, shared->localLbtLastUpdate(fec(1)).lastUpdate);
   EXPECT_EQ(2, shared->localLbtLastUpdate(fec(1)).labelSource);

   // A label replaced by another, then a FEC withdrawn whole.
   labelIs(local.ptr(), fec(1), 100003, true);
   labelIs(local.ptr(), fec(1), 100001, false);
   local->bindingDel(fec(2));
   local->updateProducer(fec(2), MplsLabel());
   EXPECT_EQ((std::set<std::pair<FwdEqvClass, U32>>{{fec(1), 100003}}), localRows());
   EXPECT_FALSE(shared->localLbtLastUpdateHas(fec(2)));

   // A filtered FEC is published as such.
   local->filteredFecIs(fec(3), true);
   local->updateProducer(fec(3), MplsLabel());
   EXPECT_TRUE(shared->localLbtFilteredFecHas(fec(3)));
   local->filteredFecDel(fec(3));
   local->updateProducer(fec(3), MplsLabel());
   EXPECT_FALSE(shared->localLbtFilteredFecHas(fec(3)));

   // Two changes told at once (the counter jumps): everything is compared.
   local->bindingIs(fec(4))->mplsLabelIs(MplsLabel(100004), true);
   local->bindingDel(fec(1));
   local->changeCntInc(2);
   labelIs(local.ptr(), fec(5), 100005, true);
   EXPECT_EQ((std::set<std::pair<FwdEqvClass, U32>>{{fec(4), 100004}, {fec(5), 100005}}),
             localRows());
}

TEST_F(ProducerTest, PeerTablesAdvertisementsAndRowsOfAFormerRun) {
   // Rows of a former run: a peer that is gone and a local label that is gone.
   Mpls::RouterId r9(IpAddr(9, 9, 9, 9).value(), 0);
   shared->peerLbtLabelIs(PeerLbtLabelKey(r9, fec(1), MplsLabel(16)), true);
   shared->peerLbtLastUpdateIs(PeerFecKey(r9, fec(1)), LbtUpdate{1, 2});
   shared->localLbtLabelIs(LbtLabelKey(fec(7), MplsLabel(100007)), true);
   shared->localLbtAdvertisedToIs(LbtAdvertisedToKey(fec(7), LdpIdentifier(IpAddr(9, 9, 9, 9), 0)),
                                  true);
   // What the present run has already.
   auto t2 = peers->peerLabelBindingTableIs(r2, "plbt", r2);
   labelIs(t2.ptr(), fec(1), 3, true);
   start();
   EXPECT_EQ((std::set<std::tuple<Mpls::RouterId, FwdEqvClass, U32>>{{r2, fec(1), 3}}),
             peerRows());
   EXPECT_TRUE(localRows().empty());
   EXPECT_EQ(0u, shared->localLbtAdvertisedToSize());
   EXPECT_FALSE(shared->peerLbtLastUpdateHas(PeerFecKey(r9, fec(1))));

   // A second peer's table; rows of the two are kept apart.
   Mpls::RouterId r3(IpAddr(3, 3, 3, 3).value(), 0);
   auto t3 = peers->peerLabelBindingTableIs(r3, "plbt", r3);
   labelIs(t3.ptr(), fec(1), 200, true);
   labelIs(t3.ptr(), fec(2), 201, true);
   labelIs(t2.ptr(), fec(1), 3, false);
   t3->filteredFecIs(fec(9), true);
   t3->updateProducer(fec(9), MplsLabel());
   EXPECT_EQ((std::set<std::tuple<Mpls::RouterId, FwdEqvClass, U32>>{{r3, fec(1), 200},
                                                                       {r3, fec(2), 201}}),
             peerRows());
   EXPECT_TRUE(shared->peerLbtFilteredFecHas(PeerFecKey(r3, fec(9))));

   // A peer's table goes: all its rows go.
   peers->peerLabelBindingTableDel(r3);
   EXPECT_TRUE(peerRows().empty());
   EXPECT_EQ(0u, shared->peerLbtFilteredFecSize());
   EXPECT_EQ(0u, shared->peerLbtLastUpdateSize());

   // Advertisements: whole entries and single LSRs.
   LdpIdentifier l2(IpAddr(2, 2, 2, 2), 0), l3(IpAddr(3, 3, 3, 3), 0);
   auto e = adv->advertisedToIs(fec(1));
   e->ldpIdentifierIs(l2, true);
   e->ldpIdentifierIs(l3, true);
   EXPECT_TRUE(shared->localLbtAdvertisedToHas(LbtAdvertisedToKey(fec(1), l2)));
   EXPECT_TRUE(shared->localLbtAdvertisedToHas(LbtAdvertisedToKey(fec(1), l3)));
   e->ldpIdentifierDel(l2);
   EXPECT_FALSE(shared->localLbtAdvertisedToHas(LbtAdvertisedToKey(fec(1), l2)));
   adv->advertisedToDel(fec(1));
   EXPECT_EQ(0u, shared->localLbtAdvertisedToSize());
   EXPECT_GT(shared->version(), 0u);
}
