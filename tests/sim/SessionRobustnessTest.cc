// What a peer can do to a session through its PDUs, and what the session owes
// it: bundled openings, PDUs beyond the agreed length, messages out of place
// and the E bit of the answer, the configured parameters, nothing but the
// opening before the operational state, counters, flaps, Address messages.
#include <malloc.h>

#include <set>

#include "tests/sim/SessionFixtures.h"

using namespace LdpTest::Sessions;

namespace {

Ptr<LdpInitMsgParser> firstInit(FakePeer const& fake) {
   for (auto const& m : fake.rxMsgs())
      if (m.type == LdpInitialization_) return ldpInitMsgParserFactory(m.pkt, m.offset);
   return nullptr;
}

// A message as a label machine hands it to a session: no PDU header.
Ptr<LdpMsg> labelMsgToSend(U16 type, U32 id, IpAddr prefix, U32 label) {
   auto pkt = B::pkt(B::labelMsg(type, id, {B::prefixElement(prefix, 24)}, label));
   return ldpMsgFactory(r2Id, pkt, 0);
}

}  // namespace

TEST_F(AgentAndFake, BundledOpeningGoesOnInTheOperationalState) {
   untilInitSent();
   // Initialization, KeepAlive and more in one PDU: what follows the
   // KeepAlive is operational traffic.
   fake.send({B::initMsg(100, r2Id), B::keepAliveMsg(101), B::keepAliveMsg(102),
              B::addressMsg(103, {IpAddr(10, 0, 0, 1), IpAddr(1, 1, 1, 1)})});
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateOperational_; }, 5.0));
   fake.runFor(0.5);
   EXPECT_EQ(stateOperational_, state());
   EXPECT_TRUE(ss()->addressMsgRcvd());
   EXPECT_TRUE(ss()->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(10, 0, 0, 1))));
   EXPECT_EQ(0u, fake.rxCount(LdpNotification_));
   EXPECT_EQ(2u, st()->ldpMsgRxCount(LdpKeepAlive_));
}

TEST_F(FakeActive, BundledOpeningOnThePassiveSide) {
   untilConnected();
   fake.send({B::initMsg(100, r2Id), B::keepAliveMsg(101), B::keepAliveMsg(102),
              B::addressMsg(103, {IpAddr(10, 0, 0, 3)})});
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateOperational_; }, 5.0));
   fake.runFor(0.5);
   EXPECT_EQ(stateOperational_, state());
   EXPECT_TRUE(session(b, r3Id)->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(10, 0, 0, 3))));
   EXPECT_EQ(0u, fake.rxCount(LdpNotification_));
}

TEST_F(AgentAndFake, PduBeyondTheNegotiatedMaximumIsAnsweredBeforeTheClose) {
   untilOperational(30, 1000);
   EXPECT_EQ(1000, ss()->operMaxPduLength());
   // A Label Mapping whose PDU is some 1,070 bytes long.
   std::vector<B::Buf> elements;
   for (U32 i = 0; i < 150; ++i) elements.push_back(B::prefixElement(IpAddr(20, 0, U8(i), 0), 24));
   fake.send({B::labelMsg(LdpLabelMapping_, 200, elements, 1000)});
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateClosed_; }, 5.0));
   EXPECT_EQ(statusBadPduLength_, ss()->code());
   fake.runFor(0.05);
   auto n = fake.notification(statusBadPduLength_);
   ASSERT_TRUE(n);
   EXPECT_TRUE(n->statusEBit());
   // Then the connection goes.
   EXPECT_TRUE(fake.runUntil([&] { return fake.conn()->rxErrors() > 0; }, 1.0));
}

TEST_F(AgentAndFake, NotificationEBitTellsWhatFollows) {
   untilOperational();
   // An unknown message type: an advisory answer, and the session stays.
   fake.send({B::msg(0x3F00, 300)});
   fake.runFor(0.1);
   auto advisory = fake.notification(statusUnknownMsgType_);
   ASSERT_TRUE(advisory);
   EXPECT_FALSE(advisory->statusEBit());
   EXPECT_EQ(300u, advisory->refMsgId());
   EXPECT_EQ(stateOperational_, state());
   // An Initialization on the open session ends it, and its answer is fatal.
   fake.rxClear();
   fake.send({B::initMsg(301, r2Id)});
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateClosed_; }, 5.0));
   fake.runFor(0.05);
   EXPECT_EQ(1u, fake.rxCount(LdpNotification_));
   auto fatal = fake.notification(statusUnknownMsgType_);
   ASSERT_TRUE(fatal);
   EXPECT_TRUE(fatal->statusEBit());
   EXPECT_EQ(301u, fatal->refMsgId());
}

TEST_F(AgentAndFake, AdvisoryNotificationDuringInitialisationIsNoError) {
   untilInitSent();
   fake.send({B::notificationMsg(100, statusLabelResourcesAvailable_, false)});
   fake.runFor(0.1);
   EXPECT_EQ(stateOpenSent_, state());
   EXPECT_EQ(0u, fake.rxCount(LdpNotification_));
   fake.send({B::initMsg(101, r2Id), B::keepAliveMsg(102)});
   EXPECT_TRUE(fake.runUntil([&] { return state() == stateOperational_; }, 5.0));
   EXPECT_EQ(1u, st()->ldpMsgNotificationRxCount(statusLabelResourcesAvailable_));
}

TEST_F(FakeActive, MessageOutOfPlaceDuringInitialisationGetsAFatalAnswer) {
   untilConnected();
   // A KeepAlive before any Initialization.
   fake.send({B::keepAliveMsg(100)});
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateClosed_; }, 5.0));
   fake.runFor(0.05);
   auto n = fake.notification(statusUnknownMsgType_);
   ASSERT_TRUE(n);
   EXPECT_TRUE(n->statusEBit());
   EXPECT_EQ(100u, n->refMsgId());
}

TEST_F(AgentAndFake, ConfiguredKeepAliveAndMaxPduLengthReachTheSessions) {
   b.config()->keepAliveTimeIs(40);
   b.config()->maxPduLengthIs(8000);
   untilInitSent();
   auto init = firstInit(fake);
   ASSERT_TRUE(init);
   EXPECT_EQ(40, init->keepAliveTime());
   EXPECT_EQ(8000, init->maxPduLength());
   fake.send({B::initMsg(100, r2Id, 60, 8000), B::keepAliveMsg(101)});
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateOperational_; }, 5.0));
   EXPECT_EQ(40, ss()->operKeepAliveTime());
   EXPECT_EQ(8000, ss()->operMaxPduLength());
   // The channel takes what was agreed: a PDU of 6,000 bytes is one like any other.
   std::vector<IpAddr> many;
   for (U32 i = 0; i < 1480; ++i) many.push_back(IpAddr(30, 0, U8(i / 256), U8(i % 256)));
   fake.send({B::addressMsg(102, many)});
   fake.runFor(0.2);
   EXPECT_EQ(stateOperational_, state());
   EXPECT_TRUE(ss()->peerIntfIpHas(Nolu::IpGenAddr(IpAddr(30, 0, 5, 199))));

   // A change applies to the session as it is next established.
   b.config()->keepAliveTimeIs(90);
   fake.runFor(0.1);
   EXPECT_EQ(40, ss()->operKeepAliveTime());
   EXPECT_EQ(stateOperational_, state());
   fake.rxClear();
   resetConnections();
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpInitialization_) == 1; }, 60.0));
   EXPECT_EQ(90, firstInit(fake)->keepAliveTime());
}

TEST_F(AgentAndFake, LabelMessagesWaitForTheOperationalState) {
   untilInitSent();
   ASSERT_EQ(stateOpenSent_, state());
   // A label machine hands the session a mapping while it opens; the peer
   // answers late.
   txMsgPipe()->txMsgIs(labelMsgToSend(LdpLabelMapping_, 900, IpAddr(20, 1, 0, 0), 1001));
   fake.runFor(1.0);
   EXPECT_EQ(0u, fake.rxCount(LdpLabelMapping_));
   fake.send({B::initMsg(100, r2Id), B::keepAliveMsg(101)});
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == 1; }, 2.0));
   // It came behind the KeepAlive that opened the session.
   auto const& rx = fake.rxMsgs();
   auto ka =
      std::find_if(rx.begin(), rx.end(), [](auto const& m) { return m.type == LdpKeepAlive_; });
   auto map =
      std::find_if(rx.begin(), rx.end(), [](auto const& m) { return m.type == LdpLabelMapping_; });
   EXPECT_LT(ka - rx.begin(), map - rx.begin());

   // A closed session takes none.
   resetConnections();
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateClosed_; }, 2.0));
   txMsgPipe()->txMsgIs(labelMsgToSend(LdpLabelMapping_, 901, IpAddr(20, 2, 0, 0), 1002));
   EXPECT_EQ(1u, st()->ldpMsgTxRefusedCount());
}

TEST_F(TwoAgents, EveryMessageIsCountedOnce) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   s.runFor(1.0);
   auto const* sa = stats(a, r2Id);
   auto const* sb = stats(b, r1Id);
   for (auto const* st : {sa, sb}) {
      // The opening's KeepAlive counts like any other.
      EXPECT_EQ(1u, st->ldpMsgRxCount(LdpKeepAlive_));
      EXPECT_EQ(1u, st->ldpMsgTxCount(LdpKeepAlive_));
      EXPECT_EQ(1u, st->ldpMsgRxCount(LdpInitialization_));
      EXPECT_EQ(1u, st->ldpMsgTxCount(LdpInitialization_));
      EXPECT_EQ(1u, st->ldpMsgRxCount(LdpAddress_));
      EXPECT_EQ(1u, st->ldpMsgTxCount(LdpAddress_));
   }
   s.runFor(61.0);
   EXPECT_EQ(2u, sa->ldpMsgTxCount(LdpKeepAlive_));
   EXPECT_EQ(2u, sb->ldpMsgRxCount(LdpKeepAlive_));
   // What one side sent, the other received, message for message.
   auto total = [](LdpSessionStatistics const* st, bool rx) {
      U64 n = 0;
      for (auto it = rx ? st->ldpMsgRxCountIter() : st->ldpMsgTxCountIter(); it; ++it)
         n += it.value();
      return n;
   };
   EXPECT_EQ(total(sa, false), total(sb, true));
   EXPECT_EQ(total(sb, false), total(sa, true));
   EXPECT_EQ(sa->ldpPduTxCount(), sb->ldpPduRxCount());
}

TEST_F(TwoAgents, FlapsLeaveNothingBehind) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   // What the test itself keeps (the link records, the rings) is not the
   // agents': it is dropped after every flap.
   auto settle = [&] {
      for (auto const* name : {"r1:eth1-r2:eth1", "r1:lo", "r2:lo"})
         s.net().link(name)->recordsDelAll();
      Vek::eventLogRing().clear();
      Vek::traceRing().clear();
      a.agent()->ldpEventMonLog()->clear();
      b.agent()->ldpEventMonLog()->clear();
   };
   auto flap = [&] {
      a.intfOperStatusIs("eth1", Interface::intfOperDown_);
      b.intfOperStatusIs("eth1", Interface::intfOperDown_);
      ASSERT_TRUE(s.runUntil([&] { return !session(a, r2Id) && !session(b, r1Id); }, 60.0));
      s.runFor(2.0);
      a.intfOperStatusIs("eth1", Interface::intfOperUp_);
      b.intfOperStatusIs("eth1", Interface::intfOperUp_);
      ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 60.0));
      s.runFor(5.0);
      settle();
   };
   auto tasks = [&] {
      return a.agent()->scheduler()->allStats().size() + b.agent()->scheduler()->allStats().size();
   };
   for (int i = 0; i < 20; ++i) flap();
   std::size_t tasks20 = tasks();
   std::size_t heap20 = mallinfo2().uordblks;
   for (int i = 0; i < 60; ++i) flap();
   EXPECT_EQ(tasks20, tasks());
#if !defined(__SANITIZE_ADDRESS__)
   // A gone session leaves nothing that grows: a few bytes of allocator
   // noise over 60 flaps at most.
   EXPECT_LT(long(mallinfo2().uordblks) - long(heap20), 2048L);
#else
   (void)heap20;
#endif
}

TEST_F(TwoAgents, HistoryOfAFlappingSessionIsBounded) {
   a.ldp();
   b.ldp();
   ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 30.0));
   // The connection breaks again and again; the sessions stay and come back.
   for (int i = 0; i < 20; ++i) {
      resetConnections();
      ASSERT_TRUE(s.runUntil([&] { return !bothOperational(); }, 5.0));
      ASSERT_TRUE(s.runUntil([&] { return bothOperational(); }, 200.0));
   }
   auto log = session(a, r2Id)->sessionStateLogEntryColl();
   EXPECT_EQ(LdpSessionStatus::stateLogEntryMax, log->entrySize());
   // The latest entry is the latest change.
   U32 last = 0;
   for (auto it = log->entryIter(); it; ++it) last = it.key();
   EXPECT_EQ(U8(stateOperational_), log->entry(last).sessionState);
}

TEST_F(AgentAndFake, AddressMessagesFitAndEndWithTheSession) {
   for (U32 i = 0; i < 2500; ++i)
      b.intfIs("dummy0", nullptr, IpAddrWithMask(IpAddr(172, 16, U8(i / 256), U8(i % 256)), 32));
   untilOperational(30, 1024);
   auto advertised = [&] {
      std::multiset<U32> seen;
      for (auto const& m : fake.rxMsgs()) {
         if (m.type != LdpAddress_) continue;
         auto p = ldpAddressMsgParserFactory(m.pkt, m.offset);
         for (U32 i = 0; i < p->numAddress(); ++i) seen.insert(p->address(i).v4Addr().value());
      }
      return seen;
   };
   ASSERT_TRUE(fake.runUntil([&] { return advertised().size() >= 2502; }, 5.0));
   fake.runFor(0.5);
   auto seen = advertised();
   EXPECT_EQ(2502u, seen.size());
   EXPECT_EQ(2502u, std::set<U32>(seen.begin(), seen.end()).size());
   for (auto const& p : fake.rxPdus()) EXPECT_LE(p->dataBytes(), 1024u + 4);
   EXPECT_GE(fake.rxCount(LdpAddress_), 10u);

   // An address that goes while the session is down is not withdrawn by the
   // next session, which never advertised it.
   resetConnections();
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateClosed_; }, 5.0));
   b.ipStatus()
      ->vrfIpIntfStatusIs("default")
      ->ipIntfStatusIs(Nolu::IntfId("dummy0"))
      ->secondaryAddrWithMaskDel(IpAddrWithMask(IpAddr(172, 16, 0, 5), 32));
   fake.rxClear();
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpInitialization_) == 1; }, 60.0));
   fake.send({B::initMsg(200, r2Id, 30, 1024), B::keepAliveMsg(201)});
   ASSERT_TRUE(fake.runUntil([&] { return advertised().size() >= 2501; }, 5.0));
   fake.runFor(0.5);
   EXPECT_EQ(0u, fake.rxCount(LdpAddressWithdraw_));
   EXPECT_EQ(0u, advertised().count(IpAddr(172, 16, 0, 5).value()));
}
