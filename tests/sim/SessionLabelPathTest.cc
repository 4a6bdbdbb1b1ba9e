// The session as the label layer's carrier: received label messages handed
// on in place, per FEC, under backpressure; label messages sent in batches,
// by priority and at the pace of the peer; the records that route a peer's
// Notification back to its FEC or pseudowire.
#include "tests/sim/SessionFixtures.h"

using namespace LdpTest::Sessions;

namespace {

struct LabelPath : AgentAndFake {
   std::unique_ptr<FecPipes> pipes;
   // The FEC machinery of the agent, played by the test.
   void fecPipes(double delay = 0.0, bool keep = true) {
      b.ldp();
      ASSERT_TRUE(s.runUntil([&] { return b.root() != nullptr; }, 5.0));
      pipes = std::make_unique<FecPipes>(b.status()->ldpFecConfigColl(),
                                         Ptr<LdpFecMsgPipeColl>(b.root()->ldpFecMsgPipeColl()),
                                         b.agent()->scheduler(), delay, keep);
   }
   void TearDown() override {
      pipes.reset();
      AgentAndFake::TearDown();
   }
   Nolu::TcpPduPam* channel() {
      return b.root()->ldpPduPamSessionColl()->ldpPduPam(LdpSessionId(r1Id)).ptr();
   }
   LdpSessionRxSm* rxSm() {
      return b.root()->ldpSessionSmColl()->sessionRxSm(LdpSessionId(r1Id)).ptr();
   }
   LdpSessionTxSm* txSm() {
      return b.root()->ldpSessionSmColl()->sessionTxSm(LdpSessionId(r1Id)).ptr();
   }
   // PDUs of the peer holding n Label Mappings each, for /24 FECs from
   // 20.first.0.0 on.
   std::vector<Ptr<Nolu::Pkt>> mappings(U32 pdus, U32 perPdu, U32 first = 0) {
      std::vector<Ptr<Nolu::Pkt>> out;
      U32 k = first;
      for (U32 p = 0; p < pdus; ++p) {
         std::vector<B::Buf> msgs;
         for (U32 i = 0; i < perPdu; ++i, ++k)
            msgs.push_back(
               B::labelMsg(LdpLabelMapping_, 1000 + k,
                           {B::prefixElement(IpAddr(20, U8(k >> 16), U8(k >> 8), U8(k)), 32)},
                           16 + (k % 1000)));
         out.push_back(B::pdu(r1Id, msgs));
      }
      return out;
   }
   // A label message as a label machine hands it to the session.
   Ptr<LdpMsg> toSend(std::vector<B::Buf> const& elements, U32 id, U8 priority = 0) {
      auto m = ldpMsgFactory(r2Id, B::pkt(B::labelMsg(LdpLabelMapping_, id, elements, 100)), 0);
      m->priorityIs(priority);
      return m;
   }
   std::vector<double> rxTimes(LdpMsgType type) {
      std::vector<double> t;
      for (auto const& m : fake.rxMsgs())
         if (m.type == type) t.push_back(m.time);
      return t;
   }
};

}  // namespace

TEST_F(LabelPath, MessagesAreHandedOnInPlaceParsedOncePerFec) {
   fecPipes();
   untilOperational();
   // One PDU of 50 mappings, the first with three FEC elements.
   std::vector<B::Buf> msgs;
   msgs.push_back(B::labelMsg(
      LdpLabelMapping_, 500,
      {B::prefixElement(IpAddr(21, 0, 0, 0), 24), B::prefixElement(IpAddr(21, 0, 1, 0), 24),
       B::prefixElement(IpAddr(21, 0, 2, 0), 24)},
      700));
   for (U32 i = 1; i < 50; ++i)
      msgs.push_back(B::labelMsg(LdpLabelMapping_, 500 + i,
                                 {B::prefixElement(IpAddr(22, 0, U8(i), 0), 24)}, 700 + i));
   fake.send(msgs);
   fake.runFor(0.1);
   ASSERT_EQ(52u, pipes->readers.size());
   ASSERT_EQ(52u, pipes->count);
   Ptr<Nolu::Pkt> pdu;
   Ptr<LdpMsgParser const> multi;
   for (auto const& [fec, reader] : pipes->readers) {
      ASSERT_EQ(1u, reader->msgs.size()) << fec;
      auto const& m = reader->msgs.front();
      // Every message points into the PDU it came in, with its one parse.
      if (!pdu) pdu = m->pkt();
      EXPECT_EQ(pdu.ptr(), m->pkt().ptr());
      ASSERT_TRUE(m->parser());
      EXPECT_EQ(LdpLabelMapping_, m->msgType());
      EXPECT_EQ(m->offset(), m->parser()->offset());
      EXPECT_EQ(r1Id, m->ldpIdentifier());
      // Each FEC hears of its own element.
      EXPECT_EQ(fec, m->parser()->ldpFecTlvParser()->fwdEqvCls(m->fecElementIndex()));
      if (m->parser()->ldpFecTlvParser()->fecElementNum() == 3) {
         if (!multi) multi = m->parser();
         EXPECT_EQ(multi.ptr(), m->parser().ptr());
      } else {
         EXPECT_EQ(0, m->fecElementIndex());
      }
   }
   EXPECT_EQ(50u, st()->ldpMsgRxCount(LdpLabelMapping_));
}

TEST_F(LabelPath, ReceiveIsBoundedAndTheChannelStopsReading) {
   fecPipes(0.0, false);
   untilOperational();
   U64 pkts0 = Nolu::globalPktManager()->allocatedPktCount();
   // 20,000 mappings in PDUs of 4 KB, written as fast as the window lets.
   for (auto const& p : mappings(160, 125)) fake.send(p);
   ASSERT_TRUE(fake.runUntil([&] { return pipes->count == 20000; }, 30.0));
   EXPECT_EQ(stateOperational_, state());
   // The session's queue filled up, and the channel stopped reading, again
   // and again, rather than either growing.
   EXPECT_EQ(rxSm()->rxPktQueueMax(), rxSm()->rxPktQueueHighWater());
   EXPECT_LE(channel()->rxQueueHighWater(), channel()->rxQueueMax());
   EXPECT_GT(channel()->rxPauses(), 2u);
   // No packet per message: what the agent allocated is bounded by the
   // queues, not by the messages.
   EXPECT_LT(Nolu::globalPktManager()->allocatedPktCount() - pkts0, 400u);
   // The queue was served in slices: each message one unit, with yields.
   auto const& task = b.agent()->scheduler()->allStats().at("SessionMsg-1.1.1.1:0-rxPktQ");
   EXPECT_GE(task.workCount, 20000u);
   EXPECT_GT(task.yields, 0u);
   EXPECT_EQ(20000u, st()->ldpMsgRxCount(LdpLabelMapping_));
}

TEST_F(LabelPath, ShutdownOvertakesQueuedPdus) {
   fecPipes(0.0, false);
   untilOperational();
   // Twenty PDUs of label messages, then a Shutdown, all in one go.
   for (auto const& p : mappings(20, 100)) fake.send(p);
   fake.send({B::notificationMsg(900, statusShutdown_, true)});
   fake.runFor(0.5);
   EXPECT_EQ(1u, Vek::eventLogRing().count("LDP_SESSION_DOWN"));
   // The label messages queued before it went with the session.
   EXPECT_LT(pipes->count, 2000u);
}

TEST_F(LabelPath, FecMessagesFindTheirFecOrLeaveNoTrace) {
   untilOperational();
   // A mapping for a FEC this LSR does not route: the FEC machinery makes
   // its pipe at once, and the message goes on to the FEC sessions, which
   // learn first which FEC session it is for.
   fake.send(
      {B::labelMsg(LdpLabelMapping_, 600, {B::prefixElement(IpAddr(23, 0, 0, 0), 24)}, 800)});
   fake.runFor(0.1);
   auto* msgSm = b.root()->ldpSessionSmColl()->sessionMsgSm(LdpSessionId(r1Id)).ptr();
   EXPECT_EQ(0u, msgSm->heldFecMsgCount());
   auto* relay = b.root()->ldpFecSessionSingletonMsgPipe();
   ASSERT_EQ(1u, relay->txMsgCount());
   auto* notifier = b.root()->ldpFecSessionRxNotifier();
   EXPECT_EQ(LdpFecSessionId(fec24(23, 0, 0), LdpSessionId(r1Id)), notifier->ldpFecSessionId());
   EXPECT_TRUE(b.status()->ldpFecSessionStatusColl()->fecSessionStatusHas(notifier->ldpFecSessionId()));
   EXPECT_TRUE(b.status()->ldpFecStatusColl()->fecStatusHas(fec24(23, 0, 0)));
   // Liberal retention keeps the peer's label, and the label keeps the FEC.
   fake.runFor(1.5);
   ASSERT_TRUE(b.status()->ldpFecConfigColl()->fecConfigHas(fec24(23, 0, 0)));
   EXPECT_TRUE(b.status()->ldpFecConfigColl()->fecConfigFind(fec24(23, 0, 0))->membershipHas(
      membershipSession_));
   // The peer withdraws it: the label is released, and with nothing left to
   // keep it the FEC goes a moment later with its status, its pipe and its
   // FEC session.
   fake.send(
      {B::labelMsg(LdpLabelWithdraw_, 603, {B::prefixElement(IpAddr(23, 0, 0, 0), 24)}, 800)});
   fake.runFor(1.5);
   ASSERT_EQ(1u, fake.rxCount(LdpLabelRelease_));
   fake.runFor(1.5);
   EXPECT_FALSE(b.status()->ldpFecConfigColl()->fecConfigHas(fec24(23, 0, 0)));
   EXPECT_FALSE(b.status()->ldpFecStatusColl()->fecStatusHas(fec24(23, 0, 0)));
   EXPECT_FALSE(b.root()->ldpFecMsgPipeColl()->msgPipe(fec24(23, 0, 0)));
   EXPECT_EQ(0u, b.status()->ldpFecSessionStatusColl()->fecSessionStatusSize());

   // A Withdraw or Release for a FEC never known makes no FEC; the Withdraw
   // is answered with a Release of its label.
   auto fecs = b.status()->ldpFecConfigColl();
   std::size_t known = fecs->fecConfigSize();
   fake.send(
      {B::labelMsg(LdpLabelWithdraw_, 601, {B::prefixElement(IpAddr(24, 0, 0, 0), 24)}, 801),
       B::labelMsg(LdpLabelRelease_, 602, {B::prefixElement(IpAddr(24, 0, 1, 0), 24)}, 802)});
   fake.runFor(0.5);
   EXPECT_EQ(known, fecs->fecConfigSize());
   EXPECT_FALSE(fecs->fecConfigHas(fec24(24, 0, 0)));
   ASSERT_EQ(2u, fake.rxCount(LdpLabelRelease_));
   for (auto const& m : fake.rxMsgs()) {
      if (m.type != LdpLabelRelease_) continue;
      auto rel = ldpLabelReleaseMsgParserFactory(m.pkt, m.offset);
      ASSERT_TRUE(rel->validMsg());
      if (rel->ldpFecTlvParser()->fwdEqvCls(0) == fec24(23, 0, 0)) {
         EXPECT_EQ(800u, rel->label().value());
         continue;
      }
      EXPECT_EQ(fec24(24, 0, 0), rel->ldpFecTlvParser()->fwdEqvCls(0));
      EXPECT_EQ(801u, rel->label().value());
   }
   EXPECT_EQ(stateOperational_, state());
}


TEST_F(LabelPath, TransmitBatchesToTheMaximumAndByPriority) {
   untilOperational(30, 1024);
   fake.runFor(1.0);
   fake.rxClear();
   // 300 mappings within the hold time: batched into PDUs that fit.
   for (U32 i = 0; i < 300; ++i)
      txMsgPipe()->txMsgIs(
         toSend({B::prefixElement(IpAddr(25, 0, U8(i >> 8), U8(i)), 32)}, 2000 + i));
   double t0 = s.now();
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == 300; }, 2.0));
   EXPECT_GT(s.now() - t0, 0.45);
   for (auto const& p : fake.rxPdus()) EXPECT_LE(p->dataBytes(), 1024u + 4);
   EXPECT_LE(fake.rxPdus().size(), 300u * 31 / 1000 + 2);
   U32 expect = 2000;
   for (auto const& m : fake.rxMsgs()) {
      if (m.type != LdpLabelMapping_) continue;
      EXPECT_EQ(expect++, ldpMsgParserGet(m.pkt, m.offset)->msgId());
   }

   // A message of priority closes its batch within 10 ms; one without waits
   // for the hold time.
   fake.rxClear();
   t0 = s.now();
   txMsgPipe()->txMsgIs(toSend({B::prefixElement(IpAddr(26, 0, 0, 0), 24)}, 3000, 1));
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == 1; }, 1.0));
   EXPECT_LT(rxTimes(LdpLabelMapping_)[0] - t0, 0.015);
   t0 = s.now();
   txMsgPipe()->txMsgIs(toSend({B::prefixElement(IpAddr(26, 0, 1, 0), 24)}, 3001, 0));
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == 2; }, 1.0));
   EXPECT_GT(rxTimes(LdpLabelMapping_)[1] - t0, 0.45);
}

TEST_F(LabelPath, TransmitKeepsPaceWithASlowPeer) {
   s.net().tcpWindowIs(16 * 1024);
   untilOperational(30, 4096);
   fake.runFor(1.0);
   fake.rxClear();
   fake.readingIs(false);
   for (U32 i = 0; i < 5000; ++i)
      txMsgPipe()->txMsgIs(
         toSend({B::prefixElement(IpAddr(27, 0, U8(i >> 8), U8(i)), 32)}, 4000 + i));
   fake.runFor(3.0);
   // The channel holds at most what is left of one PDU; the rest waits in
   // the session, whole PDUs that nothing has cut.
   EXPECT_LE(channel()->writeLength(), 4100u);
   EXPECT_GT(txSm()->txPktQueueSize(), 10u);
   EXPECT_EQ(stateOperational_, state());
   fake.readingIs(true);
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == 5000; }, 10.0));
   U32 expect = 4000;
   for (auto const& m : fake.rxMsgs()) {
      if (m.type != LdpLabelMapping_) continue;
      EXPECT_EQ(expect++, ldpMsgParserGet(m.pkt, m.offset)->msgId());
   }
   EXPECT_EQ(0u, txSm()->txPktQueueSize());
}

TEST_F(LabelPath, SentMessageRecordsAreBoundedAndRouteNotifications) {
   untilOperational();
   // A pseudowire's remote side, played by the test.
   auto pwMsg = B::labelMsg(LdpLabelMapping_, 1, {B::pwElement(5, 7, 42)}, 100);
   PwFwdEqvClass pw =
      ldpMsgParserGet(B::pkt(pwMsg), 0)->ldpFecTlvParser()->pwFwdEqvCls(0).fwdEqvClass();
   PwFecSessionId pwId(pw, LdpSessionId(r1Id));
   auto pwPipe = ldpMsgPipeFactory("pw");
   b.root()->pwFecSessionMsgPipeColl()->remoteMsgPipeIs(pwId, pwPipe);
   auto reader = Vek::makeSm<PipeReader>(pwPipe);

   // More mappings of the pseudowire than the session keeps records of.
   U32 const n = LdpSessionStatistics::sentMsgRecordMax + 500;
   for (U32 i = 0; i < n; ++i)
      txMsgPipe()->txMsgIs(ldpMsgFactory(
         r2Id, B::pkt(B::labelMsg(LdpLabelMapping_, 10000 + i, {B::pwElement(5, 7, 42)}, 100)), 0));
   ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpLabelMapping_) == n; }, 5.0));
   EXPECT_EQ(LdpSessionStatistics::sentMsgRecordMax, st()->pwRemoteMsgIdInfoSize());
   EXPECT_FALSE(st()->pwRemoteMsgIdInfoHas(10000));
   EXPECT_TRUE(st()->pwRemoteMsgIdInfoHas(10000 + n - 1));

   // A peer's Notification about a recorded message reaches the pseudowire;
   // about a pruned one, nobody.
   fake.send({B::notificationMsg(50, statusNoRoute_, false, 10000 + n - 1, LdpLabelMapping_),
              B::notificationMsg(51, statusNoRoute_, false, 10000, LdpLabelMapping_)});
   fake.runFor(0.1);
   ASSERT_EQ(1u, reader->msgs.size());
   EXPECT_EQ(LdpNotification_, reader->msgs[0]->msgType());
   EXPECT_EQ(50u, reader->msgs[0]->parser()->msgId());

   // A record whose validity flag is clear counts as none. Records that the
   // label machines write are bounded as well.
   auto stats = Vek::ptr_const_cast<LdpSessionStatistics>(Ptr<LdpSessionStatistics const>(st()));
   auto info = *st()->pwRemoteMsgIdInfoFind(10000 + n - 1);
   info.valid = false;
   stats->pwRemoteMsgIdInfoIs(10000 + n - 1, info);
   for (U32 i = 0; i < n; ++i) {
      LdpMsgIdFecMappingInfo f;
      f.fec = fec24(28, 0, 0);
      f.msgType = LdpLabelRequest_;
      stats->ldpMsgIdFecMappingInfoIs(20000 + i, f);
   }
   fake.send({B::notificationMsg(52, statusNoRoute_, false, 10000 + n - 1, LdpLabelMapping_)});
   txMsgPipe()->txMsgIs(toSend({B::prefixElement(IpAddr(28, 0, 0, 0), 24)}, 30000, 1));
   fake.runFor(0.1);
   EXPECT_EQ(1u, reader->msgs.size());
   EXPECT_EQ(LdpSessionStatistics::sentMsgRecordMax, st()->ldpMsgIdFecMappingInfoSize());

   // The records go with the session.
   resetConnections();
   ASSERT_TRUE(fake.runUntil([&] { return state() == stateClosed_; }, 2.0));
   EXPECT_EQ(0u, st()->pwRemoteMsgIdInfoSize());
   EXPECT_EQ(0u, st()->ldpMsgIdFecMappingInfoSize());
}
