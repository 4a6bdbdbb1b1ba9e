// Pieces of the session layer on their own: the framing of the TCP channel,
// the one writer of the session state, the retry back-off, and the order in
// which the transmit machine lets PDUs out.
#include <gtest/gtest.h>

#include "runtime/vek/EventLog.h"
#include "session/LdpSessionSmManager.h"
#include "tests/harness/PduBytes.h"

using namespace Ldp;
using Nolu::IpAddr;
using Vek::Ptr;

namespace {

Ptr<Nolu::Pkt> bytes(std::vector<U8> const& b) {
   auto p = Nolu::globalPktManager()->newPkt();
   p->appendData(b.data(), U32(b.size()));
   return p;
}

// The inputs of one session's machines, on virtual time.
struct SessionRig : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Vek::ActivityManager* prev = Vek::activityManager();
   Ptr<Hesk::TaskScheduler> sched;
   Ptr<ProtoConfig> pc = new ProtoConfig("default");
   Ptr<Status> status = new Status("default");
   Ptr<LdpSessionConfigColl> configs;
   Ptr<LdpSessionStatusColl> statuses;
   LdpSessionId id{LdpIdentifier(IpAddr(2, 2, 2, 2), 0)};
   Ptr<LdpSessionCtrlSm> ctrl;

   SessionRig() {
      Vek::activityManagerIs(&am);
      sched = new Hesk::TaskScheduler("test");
      pc->ldpIdentifierIs(LdpIdentifier(IpAddr(1, 1, 1, 1), 0));
      status->statisticsIs("s")->sessionStatisticsCollIs();
      configs = status->ldpSessionConfigCollIs("lscc");
      configs->ldpSessionCommonConfigIs();
      statuses = status->ldpSessionStatusCollIs("lssc");
      auto sc = configs->sessionConfigIs(id);
      sc->ldpSessionRoleIs(roleActive_);
      ctrl = LdpSessionCtrlSm::LdpSessionCtrlSmIs(
         1, id, pc, sc, configs->ldpSessionCommonConfig(), statuses->sessionStatusIs(id), status,
         status->statistics()->sessionStatisticsColl()->sessionStatisticsIs(id), sched);
      Vek::eventLogSinkIs(nullptr);
      Vek::eventLogRing().clear();
   }
   ~SessionRig() override {
      ctrl = nullptr;
      Vek::eventLogSinkIs(Vek::eventLogToStderr);
      Vek::activityManagerIs(prev);
   }
   LdpSessionStatus* st() { return statuses->sessionStatus(id).ptr(); }
};

}  // namespace

TEST(LdpPduPamFraming, SizeAndIdentification) {
   Ptr<Nolu::TcpConnSocket> conn(new Nolu::TcpConnSocket(nullptr, IpAddr(), 0, IpAddr(), 0));
   auto pam = ldpPduPamFactory(conn, false);
   // Fewer than 10 bytes: the header is the least to read.
   EXPECT_EQ(10u, pam->getPduSize(bytes({0, 1, 0}).ptr()));
   // A PDU Length of 6 still means the header, which here is the whole PDU
   // and names the peer; 10 means 14 bytes.
   EXPECT_EQ(10u, pam->getPduSize(bytes({0, 1, 0, 6, 1, 1, 1, 1, 0, 0}).ptr()));
   EXPECT_EQ(LdpIdentifier(IpAddr(1, 1, 1, 1), 0), pam->ldpIdentifier());
   pam = ldpPduPamFactory(conn, false);
   std::vector<U8> pdu{0, 1, 0, 10, 2, 2, 2, 2, 0, 0, 2, 1, 0, 4};
   EXPECT_EQ(14u, pam->getPduSize(bytes(std::vector<U8>(pdu.begin(), pdu.begin() + 10)).ptr()));
   // The peer is named only once the whole first PDU is in.
   EXPECT_TRUE(pam->ldpIdentifier().isEmpty());
   pdu.resize(18);
   EXPECT_EQ(14u, pam->getPduSize(bytes(std::vector<U8>(pdu.begin(), pdu.begin() + 14)).ptr()));
   EXPECT_EQ(LdpIdentifier(IpAddr(2, 2, 2, 2), 0), pam->ldpIdentifier());
   EXPECT_EQ(pamReady, pam->state());
}

TEST_F(SessionRig, OneWriterOfTheState) {
   // Never operational: the session's end has no uptime.
   ctrl->changeSessionState(stateClosed_, statusUnknownMsgType_);
   ctrl->changeSessionState(stateClosed_, statusBadLdpIdentifier_);
   EXPECT_EQ(statusUnknownMsgType_, st()->code());
   EXPECT_EQ(2u, st()->sessionStateLogEntryColl()->entrySize());
   EXPECT_EQ(1u, Vek::eventLogRing().count("LDP_SESSION_DOWN", "Uptime: N/A"));
   EXPECT_EQ(sessionStateStrForStatusCode(statusUnknownMsgType_), st()->sessionStateReason());
   // A local code outranks it; entering the operational state twice keeps
   // the first uptime.
   ctrl->changeSessionState(stateClosed_, localTcpConnLost);
   EXPECT_EQ(localTcpConnLost, st()->code());
   ctrl->changeSessionState(stateOperational_, statusSuccess_);
   double up = st()->sessionUptime();
   am.runFor(5.0);
   ctrl->changeSessionState(stateOperational_, statusSuccess_);
   EXPECT_EQ(up, st()->sessionUptime());
   EXPECT_EQ(1u, Vek::eventLogRing().count("LDP_SESSION_UP"));
   ctrl->changeSessionState(stateClosed_, statusShutdown_);
   EXPECT_EQ(1u, Vek::eventLogRing().count("LDP_SESSION_DOWN", "Uptime: 5.0 seconds"));
}

TEST_F(SessionRig, RetryBackOffAndItsCeiling) {
   std::vector<double> seen;
   for (U64 n = 0; n < 6; ++n) {
      st()->fatalRetryCountIs(n);
      seen.push_back(ctrl->fatalRetryBackoffTime());
   }
   EXPECT_EQ((std::vector<double>{15, 30, 60, 120, 120, 120}), seen);
   ctrl->maxRetryBackoffTimeIs(100.0);
   seen.clear();
   for (U64 n = 0; n < 5; ++n) {
      st()->fatalRetryCountIs(n);
      seen.push_back(ctrl->fatalRetryBackoffTime());
   }
   EXPECT_EQ((std::vector<double>{15, 30, 60, 100, 100}), seen);

   // A code of no retry class leaves the session closed with no timer; a
   // configuration change arms the short retry.
   ctrl->changeSessionState(stateClosed_, LdpStatusCode(41));
   EXPECT_EQ(Vek::infinity, ctrl->sessionRetryTimerTask()->currentExpirationTime());
   EXPECT_EQ(Vek::infinity, ctrl->sessionInitTimerTask()->currentExpirationTime());
   ctrl->changeSessionState(stateClosed_, localAddrChange);
   EXPECT_DOUBLE_EQ(am.now() + 2.0, ctrl->sessionRetryTimerTask()->currentExpirationTime());
   am.runFor(2.0);
   EXPECT_EQ(stateNonExistent_, st()->sessionState());
   EXPECT_TRUE(st()->tcpClientConnEnabled());
}

namespace {

// A channel that counts the writes it permits and keeps what is written.
class CaptureChannel : public Nolu::Pam {
 public:
   void txPktIs(Ptr<Nolu::Pkt> const& pkt) override { sent.push_back(pkt); }
   std::vector<Ldp::LdpMsgType> firstTypes() const {
      std::vector<Ldp::LdpMsgType> t;
      for (auto const& p : sent)
         t.push_back(reinterpret_cast<Ldp::LdpMsgHdr const*>(p->readPtr(10))->type());
      return t;
   }
   std::vector<Ptr<Nolu::Pkt>> sent;
};

}  // namespace

TEST_F(SessionRig, KeepAliveOvertakesWaitingLabelPdus) {
   auto statistics = status->statistics()->sessionStatisticsColl()->sessionStatistics(id);
   auto pipe = ldpMsgPipeFactory("tx");
   auto tx = LdpSessionTxSm::LdpSessionTxSmIs(
      1, id, pc, configs->sessionConfig(id), configs->ldpSessionCommonConfig(),
      statuses->sessionStatus(id), status, statistics, pipe, sched);
   Ptr<CaptureChannel> channel(new CaptureChannel);
   tx->ldpPduTxPamIs(channel);
   st()->operMaxPduLengthIs(4096);
   st()->operKeepAliveTxIntervalIs(10);
   st()->sessionStateIs(stateOperational_);
   // The channel takes nothing: a label PDU closes and waits in the queue.
   auto msg = ldpMsgFactory(
      LdpIdentifier(IpAddr(1, 1, 1, 1), 0),
      LdpTest::Bytes::pkt(LdpTest::Bytes::labelMsg(
         LdpLabelMapping_, 7, {LdpTest::Bytes::prefixElement(IpAddr(20, 0, 0, 0), 24)}, 99)),
      0);
   msg->priorityIs(1);
   pipe->txMsgIs(msg);
   am.runFor(0.02);
   EXPECT_EQ(1u, tx->txPktQueueSize());
   EXPECT_TRUE(channel->sent.empty());
   // The channel opens; before the queue is served, a KeepAlive is due. It
   // goes first, the label PDU after it, nothing lost.
   channel->writableCountInc(5);
   tx->handleKeepAliveTxTimerTask();
   am.runFor(0.0);
   EXPECT_EQ((std::vector<Ldp::LdpMsgType>{LdpKeepAlive_, LdpLabelMapping_}),
             channel->firstTypes());
   EXPECT_EQ(0u, tx->txPktQueueSize());
   tx = nullptr;
}
