// Keys, defaults and helpers of the shared entities.
#include <gtest/gtest.h>

#include "entities/EntityTypes.h"
#include "entities/Functions.h"

using namespace Ldp;

namespace {
Nolu::IpAddr ip(char const* s) { return *Nolu::IpAddr::fromString(s); }
Mpls::FwdEqvClass fec(char const* s) { return Mpls::FwdEqvClass(*Nolu::IpGenPrefix::fromString(s)); }
}  // namespace

TEST(Ids, AdjIdOrderHashAndRange) {
   LdpIdentifier p1(ip("1.1.1.1"), 0), p1ls1(ip("1.1.1.1"), 1);
   LdpAdjId link(Nolu::IntfId("Ethernet1"), p1);
   LdpAdjId linkLs1(Nolu::IntfId("Ethernet1"), p1ls1);
   LdpAdjId target(ip("10.0.0.1"), p1);
   EXPECT_TRUE(link.isLink());
   EXPECT_TRUE(target.isTarget());
   // Two peers that differ in label space only are two adjacencies.
   EXPECT_NE(link, linkLs1);
   EXPECT_TRUE(link < linkLs1);
   EXPECT_NE(link.hash(), linkLs1.hash());
   // Link adjacencies sort before targeted ones; the order is strict.
   EXPECT_TRUE(link < target);
   EXPECT_FALSE(target < link);
   EXPECT_FALSE(link < link);
   EXPECT_EQ(link, LdpAdjId(Nolu::IntfId("Ethernet1"), p1));
   EXPECT_EQ(link.hash(), LdpAdjId(Nolu::IntfId("Ethernet1"), p1).hash());
   // Reading the field of the other kind, or a link without interface, is a fault.
   EXPECT_THROW(target.intfId(), Vek::RangeException);
   EXPECT_THROW(link.targetIpAddr(), Vek::RangeException);
   EXPECT_THROW(LdpAdjId(Nolu::IntfId(""), p1), Vek::RangeException);
   EXPECT_EQ(ip("10.0.0.1"), target.targetIpAddr());
   EXPECT_EQ("Ethernet1-1.1.1.1:0", link.stringValue());

   // As keys of a collection: distinct entries, found again by equal keys.
   LdpLinkStatus status{Nolu::IntfId("Ethernet1")};
   status.adjIdSetIs(link, true);
   status.adjIdSetIs(linkLs1, true);
   status.adjIdSetIs(target, true);
   status.adjIdSetIs(LdpAdjId(Nolu::IntfId("Ethernet1"), p1), true);
   EXPECT_EQ(3u, status.adjIdSetSize());
}

TEST(Ids, FecSessionKeysOrderByFecThenSession) {
   LdpSessionId s1(ip("1.1.1.1").value(), 0), s2(ip("2.2.2.2").value(), 0);
   LdpSessionId s1ls1(ip("1.1.1.1").value(), 1);
   LdpFecSessionId a(fec("10.0.0.0/8"), s2), b(fec("11.0.0.0/8"), s1);
   EXPECT_TRUE(a < b);  // the FEC decides first
   EXPECT_TRUE(LdpFecSessionId(fec("10.0.0.0/8"), s1) < a);
   EXPECT_NE(LdpFecSessionId(fec("10.0.0.0/8"), s1), LdpFecSessionId(fec("10.0.0.0/8"), s1ls1));
   EXPECT_EQ(a.hash(), LdpFecSessionId(fec("10.0.0.0/8"), s2).hash());


   PwFwdEqvClass pw1(Pseudowire::PseudowireId(1), Pseudowire::pwTypeEthernet_,
                     Pseudowire::GroupId(0), false);
   PwFwdEqvClass pw2(Pseudowire::PseudowireId(2), Pseudowire::pwTypeEthernet_,
                     Pseudowire::GroupId(0), false);
   EXPECT_TRUE(PwFecSessionId(pw1, s2) < PwFecSessionId(pw2, s1));
   EXPECT_EQ(PwFecSessionId(pw1, s1).hash(), PwFecSessionId(pw1, s1).hash());
   EXPECT_NE(PwFecSessionId(pw1, s1), PwFecSessionId(pw1, s2));

   Mpls::RouterId r1(LdpIdentifier(ip("1.1.1.1"), 0)), r1ls1(ip("1.1.1.1").value(), 1);
   EXPECT_TRUE(r1 < r1ls1);
   EXPECT_NE(r1.hash(), r1ls1.hash());
   EXPECT_EQ("1.1.1.1:1", r1ls1.stringValue());
}

TEST(Entities, DefaultsThatTheProtocolMachinesRelyOn) {
   ProtoConfig pc("default");
   EXPECT_EQ(Nolu::IpAddr(), pc.routerId());
   EXPECT_TRUE(pc.ipTransportAddr().isV4());
   EXPECT_EQ(Nolu::IpAddr(), pc.ipTransportAddr().v4Addr());
   EXPECT_TRUE(pc.ldpIdentifier().isEmpty());
   EXPECT_EQ(runningStateNone_, pc.runningState());
   EXPECT_EQ(0.0, pc.configCodefDelay());
   EXPECT_EQ(255, pc.ldpHopCountMax());
   EXPECT_FALSE(pc.ldpMultiLabelSupport());
   EXPECT_FALSE(pc.ldpLoopDetection());
   EXPECT_EQ(independentDistCtrl_, pc.ldpLabelDistCtrl());
   EXPECT_EQ(unsolicitedAdvDspl_, pc.ldpLabelAdvDspl());
   EXPECT_EQ(liberalRetention_, pc.ldpLabelRetention());
   EXPECT_EQ(Vek::infinity, pc.linkReadyTimeout());
   EXPECT_EQ(0.0, pc.linkReadyDelay());
   EXPECT_EQ(180, pc.keepAliveTime());

   Config c("default");
   EXPECT_EQ(15, c.helloHoldTime());
   EXPECT_EQ(5, c.helloInterval());
   EXPECT_EQ(45, c.targetedHelloHoldTime());
   EXPECT_EQ(15, c.targetedHelloInterval());
   EXPECT_EQ(180, c.keepAliveTime());
   EXPECT_EQ(Vek::infinity, c.linkReadyTimeout());

   LdpLinkConfigColl links("links");
   auto common = links.ldpLinkCommonConfigIs();
   EXPECT_EQ(1, common->ttl());
   EXPECT_EQ(15, common->holdTime());
   EXPECT_EQ(5, common->interval());
   EXPECT_EQ(5.0, common->retryInterval());
   LdpTargetConfigColl targets("targets");
   auto tcommon = targets.ldpTargetCommonConfigIs();
   EXPECT_EQ(255, tcommon->ttl());
   EXPECT_EQ(45, tcommon->holdTime());
   EXPECT_EQ(15, tcommon->interval());

   LdpSessionConfig sc(LdpSessionId(1, 0));
   EXPECT_EQ(180, sc.keepAliveTime());
   EXPECT_EQ(4096, sc.maxPduLength());
   EXPECT_EQ(646, LdpTcpServerConfig("s").listenPort());
   EXPECT_EQ(5.0, LdpTcpServerConfig("s").retryInterval());
   EXPECT_EQ(646, LdpTargetServerConfig("t").listenPort());
}

TEST(Entities, ProtoParamBitsAndSessionLog) {
   LdpProtoParamSetting s;
   s.flagIs(LdpProtoParamSetting::keepDownstreamOnDemand, true);
   s.flagIs(LdpProtoParamSetting::lspRoles, true);
   EXPECT_EQ(0x104u, s.value());
   EXPECT_TRUE(s.hasFlag(0x4));
   EXPECT_FALSE(s.hasFlag(0x8));
   s.flagIs(0x4, false);
   EXPECT_EQ(0x100u, s & 0x100);
   EXPECT_EQ(0u, s & 0x4);

   LdpSessionStatus st(LdpSessionId(1, 0));
   st.addSessionStateLogEntry({1.0, stateNonExistent_, statusSuccess_, "a"});
   st.addSessionStateLogEntry({2.0, stateClosed_, statusShutdown_, "b"});
   auto log = st.sessionStateLogEntryColl();
   ASSERT_TRUE(log);
   ASSERT_EQ(2u, log->entrySize());
   EXPECT_EQ("a", log->entry().begin().value().reason);
   EXPECT_EQ(statusShutdown_, log->entry(2).code);
}

TEST(Entities, FecFilterByPrefixList) {
   LdpFecFilter f("filter");
   EXPECT_TRUE(f.isPermittedFec(fec("10.1.0.0/16")));  // no list: all pass
   Vek::Ptr<Acl::PrefixList> list(new Acl::PrefixList("pl"));
   list->permitIs(20, *Nolu::IpGenPrefix::fromString("10.0.0.0/8"));
   list->denyIs(10, *Nolu::IpGenPrefix::fromString("10.2.0.0/16"));
   f.prefixListIs(list);
   EXPECT_TRUE(f.isPermittedFec(fec("10.1.0.0/16")));
   EXPECT_FALSE(f.isPermittedFec(fec("10.2.3.0/24")));  // the lower sequence denies
   EXPECT_FALSE(f.isPermittedFec(fec("11.0.0.0/8")));  // covered by no entry
   EXPECT_FALSE(f.isPermittedFec(fec("10.0.0.0/7")));  // shorter than the permit
}

TEST(Functions, HopCountAndInterfaceKinds) {
   EXPECT_EQ(0, hopCountInc(0));  // unknown stays unknown
   EXPECT_EQ(2, hopCountInc(1));
   EXPECT_EQ(255, hopCountInc(254));
   EXPECT_EQ(255, hopCountInc(255));

   auto& reg = IntfKindRegistry::instance();
   reg.clear();
   EXPECT_TRUE(isLoopbackInterface(Nolu::IntfId("Loopback0")));
   EXPECT_FALSE(isLoopbackInterface(Nolu::IntfId("dummy0")));
   reg.loopbackIs(Nolu::IntfId("dummy0"), true);
   EXPECT_TRUE(isLoopbackInterface(Nolu::IntfId("dummy0")));
   reg.loopbackIs(Nolu::IntfId("dummy0"), false);
   EXPECT_FALSE(isLoopbackInterface(Nolu::IntfId("dummy0")));

   EXPECT_TRUE(isManagementOrInternalInterface(Nolu::IntfId("Management1")));
   EXPECT_FALSE(isManagementOrInternalInterface(Nolu::IntfId("eth0")));
   reg.managementIs(Nolu::IntfId("eth0"), true);
   EXPECT_TRUE(isManagementOrInternalInterface(Nolu::IntfId("eth0")));
   reg.clear();
}
