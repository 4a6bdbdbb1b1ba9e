// Route churn on an agent with a session: 10,000 routes flapping for a minute
// of virtual time leave the session's KeepAlives on time, and the FEC
// database ends where the routes end.
#include "tests/sim/SessionFixtures.h"

using namespace LdpTest::Sessions;

namespace {

struct RouteChurn : TwoAgents {
   Ptr<Tesh::Fib::RouteStatus> routes;
   Ptr<Tesh::Fib::ForwardingStatus> fwd;
   static Nolu::Prefix prefix(U32 i) {
      return Nolu::Prefix(IpAddr(30, U8(i >> 16), U8(i >> 8), U8(i)), 32);
   }
   void routeIs(U32 i) {
      auto r = routes->routeIs(prefix(i));
      r->routeTypeIs(2);
      r->fecIdIs(1);
   }
};

}  // namespace

TEST_F(RouteChurn, FlappingRoutesDoNotStarveKeepAlives) {
   constexpr U32 n = 10000;
   // KeepAlives every 2 s, a session lost after 6 s without one.
   for (auto* node : {&a, &b}) node->config()->keepAliveTimeIs(6);
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   routes = a.store()->get<Tesh::Fib::RouteStatus>("routing/status");
   fwd = a.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
   ASSERT_TRUE(routes && fwd);
   auto block = a.store()->get<Mpls::Api::Status>("mpls/status")->labelBlockAllocationIs("ldp");
   block->baseIs(100000);
   block->sizeIs(2 * n);
   fwd->fecIs(1)->viaIs(Via(Nolu::IpGenAddr(IpAddr(10, 0, 0, 2)), Nolu::IntfId("eth1")), true);
   for (U32 i = 0; i < n; ++i) routeIs(i);
   s.runFor(2.0);
   ASSERT_EQ(n, a.status()->statistics()->fecCountUnfiltered());
   ASSERT_EQ(n, a.status()->localLabelAllocTable()->bindingSize());

   auto pdus = [&] { return stats(b, r1Id)->ldpPduRxCount(); };
   U64 before = pdus();
   double start = s.now();
   // Every half second a different half of the routes goes, and comes back
   // a quarter of a second later: each route flaps every second.
   for (U32 round = 0; round < 120; ++round) {
      U32 half = round % 2;
      for (U32 i = half; i < n; i += 2) routes->routeDel(prefix(i));
      s.runFor(0.25);
      for (U32 i = half; i < n; i += 2) routeIs(i);
      s.runFor(0.25);
      ASSERT_TRUE(bothOperational()) << "at " << s.now() - start << " s";
   }
   EXPECT_EQ(1u, entered(session(a, r2Id), stateOperational_).size());
   EXPECT_EQ(1u, entered(session(b, r1Id), stateOperational_).size());
   // A PDU at least every 2 s of the minute reached the peer: a KeepAlive
   // where no label message went.
   EXPECT_GE(pdus() - before, 28u);

   // Every FEC is back with a label once the labels released during the
   // churn are out of quarantine; the FECs removed for good go once their
   // withdraws are released and their deletion delay has passed.
   s.runFor(12.0);
   EXPECT_EQ(n, a.status()->ldpFecConfigColl()->fecConfigSize());
   EXPECT_EQ(n, a.status()->localLabelAllocTable()->bindingSize());
   for (U32 i = 0; i < n; i += 2) routes->routeDel(prefix(i));
   s.runFor(5.0);
   EXPECT_EQ(n / 2, a.status()->ldpFecConfigColl()->fecConfigSize());
   EXPECT_EQ(n / 2, a.status()->localLabelAllocTable()->bindingSize());
}
