// Sessions between agents on a simulated network, through real discovery:
// initialisation to the operational state, Address messages, KeepAlives, and
// the failure paths with their retries. A scripted peer (Hellos and TCP by
// hand) plays the misbehaving router where a real agent would not.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "tests/sim/SessionFixtures.h"

using namespace LdpTest::Sessions;

TEST_F(TwoAgents, LinkAdjacencyUpAddressesAndKeepAlives) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   // The higher transport address connected; both logged the session up.
   EXPECT_EQ(roleActive_, b.status()->ldpSessionConfigColl()->sessionConfig(LdpSessionId(r1Id))
                             ->ldpSessionRole());
   EXPECT_EQ(1u, Vek::eventLogRing().count(
                    "LDP_SESSION_UP",
                    "Peer LDP ID: 2.2.2.2:0, Peer IP: 2.2.2.2, Local LDP ID: 1.1.1.1:0, VRF: default"));
   EXPECT_EQ(1u, Vek::eventLogRing().count(
                    "LDP_SESSION_UP",
                    "Peer LDP ID: 1.1.1.1:0, Peer IP: 1.1.1.1, Local LDP ID: 2.2.2.2:0, VRF: default"));
   auto const* sa = session(a, r2Id);
   EXPECT_EQ(180, sa->operKeepAliveTime());
   EXPECT_EQ(60, sa->operKeepAliveTxInterval());

   // Address messages carry each side's interface addresses; the tables
   // learn the other side's.
   s.runFor(1.0);
   EXPECT_TRUE(sa->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(10, 0, 0, 2))));
   EXPECT_TRUE(sa->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2))));
   EXPECT_TRUE(session(b, r1Id)->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(10, 0, 0, 1))));
   EXPECT_EQ(sessionOpAddrExchanged_, sa->sessionOpState());
   EXPECT_EQ(r2Id, a.status()->ldpIdIntfIpMappingTable()->intfIpToLdpId(
                      Nolu::IpGenAddr(IpAddr(10, 0, 0, 2))));
   std::set<Nolu::IpGenAddr> learnt;
   for (auto it = session(b, r1Id)->peerIntfIpIter(); it; ++it) learnt.insert(it.key());
   EXPECT_EQ((std::set<Nolu::IpGenAddr>{IpAddr(1, 1, 1, 1), IpAddr(10, 0, 0, 1)}), learnt);

   // With nothing else to say, a KeepAlive every 60 s from each side.
   auto const* stats = a.status()->statistics()->sessionStatisticsColl()->sessionStatistics(
      LdpSessionId(r2Id)).ptr();
   std::vector<double> ka;
   U64 seen = stats->ldpMsgTxCount(LdpKeepAlive_);
   for (int i = 0; i < 2000; ++i) {
      s.runFor(0.1);
      if (stats->ldpMsgTxCount(LdpKeepAlive_) != seen) {
         seen = stats->ldpMsgTxCount(LdpKeepAlive_);
         ka.push_back(s.now());
      }
   }
   ASSERT_EQ(3u, ka.size());
   EXPECT_NEAR(60.0, ka[1] - ka[0], 0.11);
   EXPECT_NEAR(60.0, ka[2] - ka[1], 0.11);
   EXPECT_TRUE(bothOperational());
}

TEST_F(TwoAgents, TargetedAdjacencyAlone) {
   // No Hellos on the link; the loopbacks target each other.
   a.mplsDisabledIs("eth1", true);
   b.mplsDisabledIs("eth1", true);
   a.staticTargetIs("2.2.2.2");
   b.staticTargetIs("1.1.1.1");
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 60.0));
   EXPECT_EQ(2u, Vek::eventLogRing().count("LDP_SESSION_UP"));
   EXPECT_TRUE(a.firstAdj(adjTypeTarget_));
   EXPECT_FALSE(a.firstAdj(adjTypeLink_));
}

TEST_F(TwoAgents, MismatchedMd5KeysNeverComeUp) {
   a.config()->md5PasswordIs("one");
   b.config()->md5PasswordIs("two");
   a.ldp();
   b.ldp();
   EXPECT_FALSE(s.runUntil([&] { return state(a, r2Id) == stateOperational_ ||
                                        state(b, r1Id) == stateOperational_; }, 300.0));
   EXPECT_EQ(0u, Vek::eventLogRing().count("LDP_SESSION_UP"));
   // The same key on both sides brings it up.
   b.config()->md5PasswordIs("one");
   EXPECT_TRUE(s.runUntil([&] { return bothOperational(); }, 200.0));
}

TEST_F(TwoAgents, PeerThatDropsEveryConnectionBacksOff) {
   // The passive router's service ACL refuses TCP from the active one.
   auto acl = Vek::ptr_const_cast<Acl::Config>(Ptr<Acl::Config const>(a.agent()->aclConfig()));
   auto rule = acl->serviceAclRuleIs(1);
   rule->srcPrefixIs(Nolu::IpGenPrefix(Nolu::IpGenAddr(IpAddr(2, 2, 2, 2)), 32));
   rule->protocolIs(6);
   rule->dstPortIs(646);
   a.ldp();
   b.ldp();
   s.runFor(400.0);
   auto const* ss = session(b, r1Id);
   ASSERT_TRUE(ss);
   auto closed = entered(ss, stateClosed_);
   auto retried = entered(ss, stateNonExistent_);
   ASSERT_GE(closed.size(), 5u);
   std::vector<double> delays;
   for (double c : closed)
      for (double r : retried)
         if (r > c) {
            delays.push_back(std::round(r - c));
            break;
         }
   delays.resize(5);
   EXPECT_EQ((std::vector<double>{15, 30, 60, 120, 120}), delays);
   EXPECT_EQ(localTcpConnLost, ss->code());
   EXPECT_EQ(0u, Vek::eventLogRing().count("LDP_SESSION_UP"));
}

TEST_F(AgentAndFake, SilentPeerTimesOutWithNotification20AndRetries) {
   untilInitSent();
   // The peer answers with Initialization and KeepAlive, proposing 15 s,
   // and then says nothing more.
   fake.send({B::initMsg(100, r2Id, 15), B::keepAliveMsg(101)});
   ASSERT_TRUE(fake.runUntil([&] { return state(b, r1Id) == stateOperational_; }, 5.0));
   auto const* ss = session(b, r1Id);
   EXPECT_EQ(15, ss->operKeepAliveTime());
   EXPECT_EQ(5, ss->operKeepAliveTxInterval());
   double up = s.now();
   ASSERT_TRUE(fake.runUntil([&] { return state(b, r1Id) == stateClosed_; }, 30.0));
   EXPECT_NEAR(15.0, s.now() - up, 0.1);
   EXPECT_EQ(statusKeepAliveTimerExpired_, ss->code());
   fake.runFor(0.05);
   EXPECT_EQ(1u, fake.rxCount(LdpNotification_, statusKeepAliveTimerExpired_));
   // KeepAlives went out every 5 s meanwhile.
   EXPECT_GE(fake.rxCount(LdpKeepAlive_), 3u);
   EXPECT_EQ(1u, Vek::eventLogRing().count(
                    "LDP_SESSION_DOWN", "Peer LDP ID: 1.1.1.1:0, Local LDP ID: 2.2.2.2:0, VRF: "
                                        "default, Uptime: 15.0 seconds, Reason: "));
   // The ordinary retry: 10 s later a new attempt, a new connection.
   std::size_t conns = fake.connCount();
   ASSERT_TRUE(fake.runUntil([&] { return fake.connCount() > conns; }, 15.0));
   auto retried = entered(ss, stateNonExistent_);
   auto closed = entered(ss, stateClosed_);
   EXPECT_NEAR(10.0, retried.back() - closed.back(), 0.01);
}

TEST_F(AgentAndFake, WrongReceiverIdentifierIsRejected) {
   untilInitSent();
   fake.send({B::initMsg(100, LdpIdentifier(IpAddr(7, 7, 7, 7), 0))});
   ASSERT_TRUE(fake.runUntil([&] { return state(b, r1Id) == stateClosed_; }, 5.0));
   auto const* ss = session(b, r1Id);
   EXPECT_EQ(statusSessionRejectedNoHello_, ss->code());
   EXPECT_EQ(0, ss->peerKeepAliveTime());
   EXPECT_TRUE(fake.runUntil(
      [&] { return fake.rxCount(LdpNotification_, statusSessionRejectedNoHello_) == 1; }, 1.0));
   EXPECT_EQ(1u, Vek::eventLogRing().count("LDP_SESSION_DOWN", "Uptime: N/A"));
}

TEST_F(AgentAndFake, SessionEndingMessageDropsTheRestOfItsPdu) {
   s.traceLevelIs("LdpSessionRx", 5);
   untilInitSent();
   // A Shutdown, then two KeepAlives, in one PDU.
   fake.send({B::notificationMsg(5, statusShutdown_, true), B::keepAliveMsg(6), B::keepAliveMsg(7)});
   ASSERT_TRUE(fake.runUntil([&] { return state(b, r1Id) == stateClosed_; }, 5.0));
   EXPECT_EQ(statusShutdown_, session(b, r1Id)->code());
   EXPECT_TRUE(s.traced("   LDP PDU dropped because of sessionState stateClosed_"));
   fake.runFor(0.1);
   // The Shutdown is echoed; no other Notification answers the KeepAlives.
   EXPECT_EQ(1u, fake.rxCount(LdpNotification_));
   EXPECT_EQ(1u, fake.rxCount(LdpNotification_, statusShutdown_));
}

TEST_F(AgentAndFake, UnwantedAndUnidentifiedConnections) {
   s.traceLevelIs("LdpPduPamManager", 5);
   b.ldp();
   ASSERT_TRUE(fake.runUntil([&] { return b.root() && b.root()->ldpTcpServerSm() &&
                                          b.status()->ldpTcpServerStatus()->listening(); }, 10.0));
   // A connection whose first PDU names no session: status 16 naming the
   // PDU's first message, then the channel goes.
   fake.hellos = false;
   fake.connect(IpAddr(2, 2, 2, 2));
   ASSERT_TRUE(fake.runUntil([&] { return fake.conn() != nullptr; }, 5.0));
   LdpIdentifier stranger(IpAddr(9, 9, 9, 9), 0);
   fake.send(B::pdu(stranger, {B::initMsg(100, r2Id)}));
   ASSERT_TRUE(fake.runUntil(
      [&] { return fake.rxCount(LdpNotification_, statusSessionRejectedNoHello_) == 1; }, 2.0));
   auto reply = ldpMsgParserGet(fake.rxPdus().back(), 10);
   EXPECT_EQ(LdpInitialization_, reply->statusTlv()->msgType());
   EXPECT_EQ(100u, reply->statusTlv()->msgId());
   // The agent's incoming channels: the rejected one is gone.
   auto incoming = [&] {
      std::size_t n = 0;
      for (auto it = b.root()->ldpPduPamColl()->pduPamIter(); it; ++it)
         if (!it.value()->isClient()) ++n;
      return n;
   };
   EXPECT_TRUE(fake.runUntil([&] { return fake.conn()->rxErrors() > 0; }, 2.0));
   EXPECT_EQ(0u, incoming());

   // A connection that never completes a PDU is gone 10 s after it came.
   fake.connect(IpAddr(2, 2, 2, 2));
   ASSERT_TRUE(fake.runUntil([&] { return fake.connCount() == 2; }, 5.0));
   U8 partial[5] = {0, 1, 0, 40, 1};
   iovec v{partial, sizeof partial};
   fake.conn()->sendIov(&v, 1);
   double start = s.now();
   fake.runFor(9.5);
   EXPECT_EQ(1u, incoming());
   ASSERT_TRUE(fake.runUntil([&] { return incoming() == 0; }, 2.0));
   EXPECT_NEAR(10.0, s.now() - start, 0.1);
   EXPECT_TRUE(s.traced("Timer expired for sd"));
}

TEST_F(TwoAgents, SessionGoesWithItsPeerAndComesBack) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   // The only adjacency expires: the peer and its session go, with the
   // session's channel.
   eth->upIs(false);
   ASSERT_TRUE(s.runUntil([&] { return !session(a, r2Id) && !session(b, r1Id); }, 30.0));
   EXPECT_EQ(0u, a.root()->ldpPduPamSessionColl()->ldpPduPamSize());
   EXPECT_EQ(0u, a.root()->ldpSessionSmColl()->sessionCtrlSms());
   eth->upIs(true);
   EXPECT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
}
