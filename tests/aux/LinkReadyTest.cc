// Link readiness on its own, over hand-made adjacency and session statuses on
// virtual time: the delay, the unset delay that hides short flaps, the
// timeout, several adjacencies, and targeted adjacencies that don't count.
#include <gtest/gtest.h>

#include "aux/LdpLinkReadySm.h"

using namespace Ldp;
using Nolu::IntfId;
using Nolu::IpAddr;
using Vek::Ptr;

namespace {

struct LinkReadyTest : ::testing::Test {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Ptr<Hesk::TaskScheduler> sched;
   Ptr<ProtoConfig> pc{new ProtoConfig("default")};
   Ptr<LdpLinkConfigColl> llcc{new LdpLinkConfigColl("llcc")};
   Ptr<LdpSessionStatusColl> lssc{new LdpSessionStatusColl("lssc")};
   Ptr<LdpAdjStatusColl> las{new LdpAdjStatusColl("las")};
   Ptr<LdpIndex> index{new LdpIndex("i")};
   Ptr<LdpLinkReadyStatusColl> ready{new LdpLinkReadyStatusColl("default")};
   Ptr<LdpLinkReadySmColl> sms{ldpSmCollIs<LdpLinkReadySmColl>("llrsc")};
   Ptr<LdpLinkReadySmManager> mgr;
   IntfId eth{"eth1"};
   LdpIdentifier r2{IpAddr(2, 2, 2, 2), 0};
   LdpIdentifier r3{IpAddr(3, 3, 3, 3), 0};

   LinkReadyTest() {
      Vek::activityManagerIs(&am);
      sched = new Hesk::TaskScheduler("t", &am);
   }
   ~LinkReadyTest() override {
      mgr = nullptr;
      sms = nullptr;
      Vek::activityManagerIs(nullptr);
   }
   void start() {
      LdpLinkReadySmManager::Inputs in;
      in.protoConfig = pc;
      in.ldpLinkConfigColl = llcc;
      in.ldpSessionStatusColl = lssc;
      in.ldpAdjStatusColl = las;
      in.ldpIndex = index;
      in.ldpLinkReadyStatusColl = ready;
      in.ldpLinkReadySmColl = sms;
      in.scheduler = sched;
      mgr = LdpLinkReadySmManager::LdpLinkReadySmManagerIs(1, in);
   }
   bool isReady() {
      auto s = ready->readyStatus(eth);
      return s && s->ready();
   }
   void sessionIs(LdpIdentifier const& peer, SessionState st) {
      lssc->sessionStatusIs(LdpSessionId(peer))->sessionStateIs(st);
   }
   // Runs until readiness changes; the time it took, or -1.
   double untilReadyIs(bool want, double limit) {
      double t0 = am.now();
      if (!am.runUntil([&] { return isReady() == want; }, limit)) return -1;
      return am.now() - t0;
   }
};

}  // namespace

TEST_F(LinkReadyTest, DelayUnsetDelayAndShortFlaps) {
   pc->linkReadyDelayIs(5.0);
   llcc->adjLinkConfigIs(eth);
   start();
   ASSERT_TRUE(sms->linkReadySm(eth));
   EXPECT_FALSE(isReady());
   // An adjacency without a session, then with one that is not yet up.
   las->adjStatusIs(LdpAdjId(eth, r2));
   EXPECT_TRUE(index->ldpAdjPerLinkColl(eth)->adjIdHas(LdpAdjId(eth, r2)));
   sessionIs(r2, stateOpenSent_);
   am.runFor(10.0);
   EXPECT_FALSE(isReady());

   // Operational: ready after the delay.
   sessionIs(r2, stateOperational_);
   EXPECT_NEAR(5.0, untilReadyIs(true, 10.0), 0.15);

   // A flap shorter than the unset delay of a second is not seen.
   sessionIs(r2, stateClosed_);
   am.runFor(0.5);
   sessionIs(r2, stateOperational_);
   am.runFor(5.0);
   EXPECT_TRUE(isReady());

   // A real loss: not ready a second later.
   sessionIs(r2, stateClosed_);
   EXPECT_NEAR(1.0, untilReadyIs(false, 5.0), 0.15);

   // Up and down again within the delay: never ready.
   sessionIs(r2, stateOperational_);
   am.runFor(3.0);
   sessionIs(r2, stateNonExistent_);
   am.runFor(10.0);
   EXPECT_FALSE(isReady());

   // The session's status going away counts as a loss too.
   sessionIs(r2, stateOperational_);
   EXPECT_NEAR(5.0, untilReadyIs(true, 10.0), 0.15);
   lssc->sessionStatusDel(LdpSessionId(r2));
   EXPECT_NEAR(1.0, untilReadyIs(false, 5.0), 0.15);

   // The link's configuration goes: its machine and status go with it.
   llcc->adjLinkConfigDel(eth);
   EXPECT_FALSE(sms->linkReadySm(eth));
   EXPECT_FALSE(ready->readyStatusHas(eth));
}

TEST_F(LinkReadyTest, ZeroDelayIsDeferredAndTimeoutGivesUp) {
   // With a zero delay, readiness comes on the next turn of the loop, never
   // inside the notification of the session's state.
   llcc->adjLinkConfigIs(eth);
   pc->linkReadyTimeoutIs(30.0);
   start();
   las->adjStatusIs(LdpAdjId(eth, r2));
   sessionIs(r2, stateOperational_);
   EXPECT_FALSE(isReady());
   EXPECT_EQ(0.0, untilReadyIs(true, 1.0));
   sessionIs(r2, stateClosed_);
   EXPECT_NEAR(1.0, untilReadyIs(false, 5.0), 0.15);

   // No session for the timeout: ready anyway, and it stays while the
   // session is down. When it then comes and goes, the unset delay runs and
   // the timeout is armed anew.
   EXPECT_NEAR(30.0, untilReadyIs(true, 60.0), 0.15);
   EXPECT_EQ("link-ready timeout expired", sms->linkReadySm(eth)->reason());
   am.runFor(100.0);
   EXPECT_TRUE(isReady());
   sessionIs(r2, stateOperational_);
   am.runFor(1.0);
   EXPECT_TRUE(isReady());
   sessionIs(r2, stateClosed_);
   EXPECT_NEAR(1.0, untilReadyIs(false, 5.0), 0.15);
   EXPECT_NEAR(30.0, untilReadyIs(true, 60.0), 0.15);
}

TEST_F(LinkReadyTest, TwoPeersOnALinkAndTargetedAdjacencies) {
   llcc->adjLinkConfigIs(eth);
   sessionIs(r2, stateOperational_);
   sessionIs(r3, stateOperational_);
   // The machine finds what exists when it starts.
   las->adjStatusIs(LdpAdjId(eth, r2));
   start();
   EXPECT_EQ(0.0, untilReadyIs(true, 1.0));
   las->adjStatusIs(LdpAdjId(eth, r3));

   // One operational session is enough; readiness falls when both are gone.
   sessionIs(r2, stateClosed_);
   am.runFor(5.0);
   EXPECT_TRUE(isReady());
   las->adjStatusDel(LdpAdjId(eth, r3));
   EXPECT_NEAR(1.0, untilReadyIs(false, 5.0), 0.15);
   EXPECT_EQ(1u, index->ldpAdjPerLinkColl(eth)->adjIdSize());
   las->adjStatusDel(LdpAdjId(eth, r2));
   EXPECT_FALSE(index->ldpAdjPerLinkColl(eth));

   // A targeted adjacency to an operational peer never makes the link ready.
   las->adjStatusIs(LdpAdjId(IpAddr(3, 3, 3, 3), r3));
   sessionIs(r3, stateOperational_);
   am.runFor(5.0);
   EXPECT_FALSE(isReady());
}
