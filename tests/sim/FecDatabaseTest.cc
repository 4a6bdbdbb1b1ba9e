// Routes, static bindings and tunnel end points become FECs with local
// labels, on one agent with a hand-written route table and label block.
#include <gtest/gtest.h>

#include "runtime/vek/EventLog.h"
#include "tests/harness/Scenario.h"

using namespace Ldp;
using LdpTest::Scenario;
using Nolu::IntfId;
using Nolu::IpAddr;

namespace {

Mpls::FwdEqvClass fec(std::string const& p) {
   return Mpls::FwdEqvClass(*Nolu::Prefix::fromString(p));
}

struct FecDb : ::testing::Test {
   Scenario s;
   LdpTest::AgentNode& a = s.agent("a");
   Vek::Ptr<Tesh::Fib::RouteStatus> routes;
   Vek::Ptr<Tesh::Fib::ForwardingStatus> fwd;
   Vek::Ptr<Mpls::Api::Status> mpls;
   U32 nextFecId = 1;

   void SetUp() override {
      Vek::eventLogRing().clear();
      auto* link = s.net().linkIs("l1");
      a.intfIs("eth1", link, Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 1), 24));
      a.loopback("1.1.1.1");
      routes = a.store()->get<Tesh::Fib::RouteStatus>("routing/status");
      fwd = a.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
      mpls = a.store()->get<Mpls::Api::Status>("mpls/status");
      ASSERT_TRUE(routes && fwd && mpls);
      a.ldp();
      ASSERT_TRUE(s.runUntil([&] { return a.root() != nullptr; }, 5.0));
   }
   void block(U32 base, U32 size) {
      auto b = mpls->labelBlockAllocationIs("ldp");
      b->baseIs(base);
      b->sizeIs(size);
   }
   // A route through one next hop (or none), of the given route type.
   void route(std::string const& p, std::string const& intf, IpAddr hop, U8 type = 2,
              bool labelled = false) {
      U32 id = nextFecId++;
      auto f = fwd->fecIs(id);
      f->viaIs(Via(Nolu::IpGenAddr(hop), IntfId(intf)), true);
      if (labelled) f->labelledViaIs(true);
      auto r = routes->routeIs(*Nolu::Prefix::fromString(p));
      r->routeTypeIs(type);
      r->fecIdIs(id);
   }
   void noRoute(std::string const& p) { routes->routeDel(*Nolu::Prefix::fromString(p)); }
   LdpFecConfig const* cfg(std::string const& p) {
      return a.status()->ldpFecConfigColl()->fecConfigFind(fec(p));
   }
   // The FEC's one local label, or the null label.
   Nolu::MplsLabel label(std::string const& p) {
      auto const* c = cfg(p);
      if (!c || c->mplsLabelSize() != 1) return Nolu::MplsLabel::null();
      return c->mplsLabelIter().key();
   }
   void featureIs(U64 bit, bool on) {
      LdpProtoParamSetting f = a.config()->ldpProtoParamSetting();
      f.flagIs(bit, on);
      a.config()->ldpProtoParamSettingIs(f);
   }
};

TEST_F(FecDb, RoutesBecomeFecsWithLabelsByTheAdmissionRules) {
   block(1000, 100);
   route("1.1.1.1/32", "lo", IpAddr(), 1);
   route("2.2.2.2/32", "eth1", IpAddr(10, 0, 0, 2));
   route("3.3.3.3/32", "eth1", IpAddr(10, 0, 0, 3), 2, true);     // labelled via
   route("4.4.4.4/32", "Management1", IpAddr(10, 0, 0, 4));       // management
   route("20.0.0.0/24", "eth1", IpAddr(10, 0, 0, 2));
   route("10.0.0.0/24", "eth1", IpAddr(), 11);
   s.runFor(0.5);
   // Our loopback: delivered here, Implicit Null.
   ASSERT_TRUE(cfg("1.1.1.1/32"));
   EXPECT_EQ(deliveryLocal_, cfg("1.1.1.1/32")->ldpFecDeliveryType());
   EXPECT_EQ(3u, label("1.1.1.1/32").value());
   // A remote host route: a label of the block.
   ASSERT_TRUE(cfg("2.2.2.2/32"));
   EXPECT_EQ(deliveryRemote_, cfg("2.2.2.2/32")->ldpFecDeliveryType());
   EXPECT_TRUE(cfg("2.2.2.2/32")->membershipHas(membershipRoute_));
   EXPECT_EQ(Mpls::fecUnfiltered_, cfg("2.2.2.2/32")->fecFilteredState());
   EXPECT_GE(label("2.2.2.2/32").value(), 1000u);
   EXPECT_LT(label("2.2.2.2/32").value(), 1100u);
   EXPECT_TRUE(a.status()->localLabelBindingTable()->bindingHas(fec("2.2.2.2/32")));
   EXPECT_TRUE(a.status()->ldpFecStatusColl()->fecStatusHas(fec("2.2.2.2/32")));
   // Not FECs: a labelled via, a management interface, shorter prefixes.
   EXPECT_FALSE(cfg("3.3.3.3/32"));
   EXPECT_FALSE(cfg("4.4.4.4/32"));
   EXPECT_FALSE(cfg("20.0.0.0/24"));
   EXPECT_FALSE(cfg("10.0.0.0/24"));
   EXPECT_EQ(2u, a.status()->statistics()->fecCountUnfiltered());

   // The feature bit admits shorter prefixes: a connected one is delivered
   // here, one through a next hop gets a label.
   featureIs(LdpProtoParamSetting::shortPrefixFecs, true);
   s.runFor(2.0);
   ASSERT_TRUE(cfg("10.0.0.0/24"));
   EXPECT_EQ(deliveryConnected_, cfg("10.0.0.0/24")->ldpFecDeliveryType());
   EXPECT_EQ(3u, label("10.0.0.0/24").value());
   ASSERT_TRUE(cfg("20.0.0.0/24"));
   EXPECT_GE(label("20.0.0.0/24").value(), 1000u);

   // A route that flaps within a second keeps its FEC (its label went back
   // with the route, and a fresh one is drawn); one that stays away loses
   // the FEC a second later.
   Nolu::MplsLabel l2 = label("2.2.2.2/32");
   noRoute("2.2.2.2/32");
   s.runFor(0.5);
   ASSERT_TRUE(cfg("2.2.2.2/32"));
   route("2.2.2.2/32", "eth1", IpAddr(10, 0, 0, 2));
   s.runFor(2.0);
   EXPECT_TRUE(cfg("2.2.2.2/32")->membershipHas(membershipRoute_));
   EXPECT_FALSE(label("2.2.2.2/32").isNull());
   EXPECT_NE(l2, label("2.2.2.2/32"));  // the old one is still held back
   featureIs(LdpProtoParamSetting::shortPrefixFecs, false);
   s.runFor(0.1);
   EXPECT_TRUE(cfg("20.0.0.0/24"));
   s.runFor(3.0);
   EXPECT_FALSE(cfg("20.0.0.0/24"));
   EXPECT_FALSE(a.status()->localLabelAllocTable()->bindingHas(fec("20.0.0.0/24")));
   EXPECT_FALSE(a.status()->ldpFecStatusColl()->fecStatusHas(fec("20.0.0.0/24")));
   EXPECT_EQ(2u, a.status()->statistics()->fecCountUnfiltered());
}

TEST_F(FecDb, ExhaustionIsLoggedAndEndsWhenALabelComesBack) {
   block(2000, 2);
   route("5.0.0.1/32", "eth1", IpAddr(10, 0, 0, 2));
   route("5.0.0.2/32", "eth1", IpAddr(10, 0, 0, 2));
   s.runFor(0.5);
   route("5.0.0.3/32", "eth1", IpAddr(10, 0, 0, 2));
   s.runFor(0.5);
   EXPECT_TRUE(label("5.0.0.1/32").value() >= 2000 && label("5.0.0.2/32").value() >= 2000);
   EXPECT_TRUE(label("5.0.0.3/32").isNull());
   EXPECT_GE(Vek::eventLogRing().count("MPLS_LABEL_EXHAUSTION", "LDP ran out of MPLS labels in "
                                                                "the 'dynamic' range"),
             1u);
   // The first FEC goes; its label is held back for a while, then the short
   // FEC gets it.
   Nolu::MplsLabel freed = label("5.0.0.1/32");
   noRoute("5.0.0.1/32");
   s.runFor(2.0);
   EXPECT_FALSE(cfg("5.0.0.1/32"));
   EXPECT_TRUE(label("5.0.0.3/32").isNull());
   s.runFor(12.0);
   EXPECT_EQ(freed, label("5.0.0.3/32"));

   // A smaller block keeps the labels inside it and replaces those outside.
   Nolu::MplsLabel l2 = label("5.0.0.2/32"), l3 = label("5.0.0.3/32");
   Nolu::MplsLabel inside = l2.value() == 2000 ? l2 : l3;
   block(2000, 1);
   s.runFor(0.1);
   EXPECT_EQ(1u, (label("5.0.0.2/32") == inside) + (label("5.0.0.3/32") == inside));
   EXPECT_TRUE(label("5.0.0.2/32").isNull() || label("5.0.0.3/32").isNull());
   // The block goes: no labels at all.
   mpls->labelBlockAllocationDel("ldp");
   s.runFor(0.1);
   EXPECT_EQ(0u, a.status()->localLabelAllocTable()->bindingSize());
   EXPECT_EQ(0u, a.status()->localLabelBindingTable()->bindingSize());
}

TEST_F(FecDb, StaticBindingsAndTunnelEndPointsHoldFecs) {
   block(3000, 100);
   // A configured local label wins over the allocated one, and its removal
   // brings the allocated one back.
   route("6.6.6.6/32", "eth1", IpAddr(10, 0, 0, 2));
   s.runFor(0.5);
   Nolu::MplsLabel dynamic = label("6.6.6.6/32");
   ASSERT_FALSE(dynamic.isNull());
   auto e = a.config()->staticFecBindingCollIs(fec("6.6.6.6/32"));
   e->localLabelIs(Nolu::MplsLabel(777));
   s.runFor(0.5);
   EXPECT_EQ(777u, label("6.6.6.6/32").value());
   EXPECT_TRUE(cfg("6.6.6.6/32")->membershipHas(membershipStatic_));
   a.config()->staticFecBindingCollDel(fec("6.6.6.6/32"));
   s.runFor(0.5);
   EXPECT_EQ(dynamic, label("6.6.6.6/32"));
   EXPECT_FALSE(cfg("6.6.6.6/32")->membershipHas(membershipStatic_));

   // A tunnel end point is a FEC of its own; only IPv4 host prefixes count,
   // and its loss removes only that membership.
   auto rib = a.store()->get<Tunnel::TunnelTable::TunnelRib>("tunnel/protoTunnelRib/sr");
   ASSERT_TRUE(rib);
   rib->entryIs(Nolu::IpGenPrefix(*Nolu::Prefix::fromString("7.7.7.7/32")));
   rib->entryIs(Nolu::IpGenPrefix(*Nolu::Prefix::fromString("7.7.0.0/16")));
   rib->entryIs(Nolu::IpGenPrefix(*Nolu::Prefix::fromString("6.6.6.6/32")));
   s.runFor(0.5);
   ASSERT_TRUE(cfg("7.7.7.7/32"));
   EXPECT_TRUE(cfg("7.7.7.7/32")->membershipHas(membershipTunnel_));
   EXPECT_FALSE(cfg("7.7.0.0/16"));
   rib->entryDel(Nolu::IpGenPrefix(*Nolu::Prefix::fromString("6.6.6.6/32")));
   rib->entryDel(Nolu::IpGenPrefix(*Nolu::Prefix::fromString("7.7.7.7/32")));
   s.runFor(2.0);
   EXPECT_FALSE(cfg("7.7.7.7/32"));
   ASSERT_TRUE(cfg("6.6.6.6/32"));
   EXPECT_EQ(dynamic, label("6.6.6.6/32"));
}

}  // namespace

// Edits of the FEC filter's prefix list made in a burst bump the filter's
// version once, and the FECs are judged again by the list as it ends up.
TEST_F(FecDb, FilterEditsAreCoalescedIntoOneReevaluation) {
   block(1000, 100);
   route("2.2.2.2/32", "eth1", IpAddr(10, 0, 0, 2));
   route("3.3.3.3/32", "eth1", IpAddr(10, 0, 0, 3));
   auto acl = a.store()->get<Acl::AclListConfig>("routing/acl/config");
   ASSERT_TRUE(acl);
   auto list = acl->prefixListIs("lsps");
   auto p = [](char const* s) { return *Nolu::IpGenPrefix::fromString(s); };
   list->permitIs(10, p("2.2.2.2/32"));
   a.config()->fecFilterPrefixListNameIs("lsps");
   s.runFor(2.0);
   auto const* filter = a.protoConfig()->fecFilter().ptr();
   ASSERT_TRUE(filter);
   EXPECT_EQ(Mpls::fecUnfiltered_, cfg("2.2.2.2/32")->fecFilteredState());
   EXPECT_EQ(Mpls::fecFiltered_, cfg("3.3.3.3/32")->fecFilteredState());

   // A burst of edits within the coalescing delay: one version bump.
   auto version = filter->filterVersion();
   list->permitIs(20, p("3.3.3.3/32"));
   s.runFor(0.3);
   list->permitDel(10);
   list->denyIs(5, p("2.2.2.2/32"));
   s.runFor(0.3);
   list->permitIs(30, p("9.9.9.9/32"));
   EXPECT_EQ(version, filter->filterVersion());
   EXPECT_EQ(Mpls::fecUnfiltered_, cfg("2.2.2.2/32")->fecFilteredState());
   s.runFor(2.0);
   EXPECT_EQ(version + 1, filter->filterVersion());
   EXPECT_EQ(Mpls::fecFiltered_, cfg("2.2.2.2/32")->fecFilteredState());
   EXPECT_EQ(Mpls::fecUnfiltered_, cfg("3.3.3.3/32")->fecFilteredState());

   // The statement removed: every FEC passes again.
   a.config()->fecFilterPrefixListNameIs("");
   s.runFor(2.0);
   EXPECT_EQ(Mpls::fecUnfiltered_, cfg("2.2.2.2/32")->fecFilteredState());
}
