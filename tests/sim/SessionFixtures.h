#pragma once
// Fixtures of the session scenarios: two agents on a link, or an agent and a
// peer played by the test, with the look-ups that the tests share.
#include <gtest/gtest.h>

#include <map>
#include <vector>

#include "runtime/vek/EventLog.h"
#include "tests/harness/FakePeer.h"
#include "tests/harness/LabelStandIns.h"

namespace LdpTest::Sessions {

using namespace Ldp;
using LdpTest::FakePeer;
using LdpTest::FecPipes;
using LdpTest::PipeReader;
using LdpTest::Scenario;
namespace B = LdpTest::Bytes;
using Nolu::IpAddr;
using Nolu::IpAddrWithMask;
using Vek::Ptr;

inline LdpIdentifier const r1Id(IpAddr(1, 1, 1, 1), 0);
inline LdpIdentifier const r2Id(IpAddr(2, 2, 2, 2), 0);
inline LdpIdentifier const r3Id(IpAddr(3, 3, 3, 3), 0);

struct SessionTest : ::testing::Test {
   Scenario s;

   void SetUp() override {
      Vek::eventLogSinkIs(nullptr);
      Vek::eventLogRing().clear();
   }
   void TearDown() override {
      Vek::traceLevelIs("*", 0);
      Vek::eventLogSinkIs(Vek::eventLogToStderr);
   }
   static LdpSessionStatus const* session(LdpTest::AgentNode& n, LdpIdentifier const& peer) {
      auto* st = n.status();
      return st ? st->ldpSessionStatusColl()->sessionStatus(LdpSessionId(peer)).ptr() : nullptr;
   }
   static SessionState state(LdpTest::AgentNode& n, LdpIdentifier const& peer) {
      auto const* ss = session(n, peer);
      return ss ? ss->sessionState() : stateUnknown_;
   }
   static LdpSessionStatistics const* stats(LdpTest::AgentNode& n, LdpIdentifier const& peer) {
      auto* st = n.status();
      return st ? st->statistics()
                     ->sessionStatisticsColl()
                     ->sessionStatistics(LdpSessionId(peer))
                     .ptr()
                : nullptr;
   }
   // Breaks every TCP connection of the scenario: both ends see a reset.
   // Sessions run between loopbacks, so their connections cross those links.
   void resetConnections() {
      for (auto const* name : {"r1:lo", "r2:lo", "r3:lo"})
         if (auto* l = s.net().link(name)) l->connectionsReset();
   }
   // The times at which a session entered a state, from its history.
   static std::vector<double> entered(LdpSessionStatus const* ss, SessionState st) {
      std::vector<double> t;
      for (auto it = ss->sessionStateLogEntryColl()->entryIter(); it; ++it)
         if (it.value().sessionState == st) t.push_back(it.value().time);
      return t;
   }
};

// Two agents on one link and their loopbacks.
struct TwoAgents : SessionTest {
   LdpTest::AgentNode& a = s.agent("r1");
   LdpTest::AgentNode& b = s.agent("r2");
   Nolu::Sim::Link* eth = nullptr;
   void SetUp() override {
      SessionTest::SetUp();
      eth = s.link("r1", "eth1", "10.0.0.1/24", "r2", "eth1", "10.0.0.2/24");
      a.loopback("1.1.1.1");
      b.loopback("2.2.2.2");
   }
   bool bothOperational() {
      return state(a, r2Id) == stateOperational_ && state(b, r1Id) == stateOperational_;
   }
};

// An agent (2.2.2.2) and the scripted peer (1.1.1.1) on one link. The agent
// has the higher transport address and connects.
struct AgentAndFake : SessionTest {
   LdpTest::AgentNode& b = s.agent("r2");
   Nolu::Sim::Link* eth = s.net().linkIs("fake-r2");
   FakePeer fake{s, eth};
   void SetUp() override {
      SessionTest::SetUp();
      b.intfIs("eth1", eth, IpAddrWithMask(IpAddr(10, 0, 0, 2), 24));
      b.loopback("2.2.2.2");
   }
   using SessionTest::state;
   LdpSessionStatus const* ss() { return session(b, r1Id); }
   LdpSessionStatistics const* st() { return stats(b, r1Id); }
   SessionState state() { return SessionTest::state(b, r1Id); }
   // Brings the agent's session to the peer up to the agent's Initialization.
   void untilInitSent() {
      b.ldp();
      ASSERT_TRUE(fake.runUntil([&] { return fake.rxCount(LdpInitialization_) >= 1; }, 30.0));
   }
   // The whole opening, the peer proposing the given parameters.
   void untilOperational(U16 keepAlive = 30, U16 maxPdu = 4096) {
      untilInitSent();
      fake.send({B::initMsg(100, r2Id, keepAlive, maxPdu), B::keepAliveMsg(101)});
      ASSERT_TRUE(fake.runUntil([&] { return state() == stateOperational_; }, 5.0));
   }
   // The session's pipe towards its transmit machine.
   LdpMsgPipe* txMsgPipe() {
      return b.root()->ldpSessionMsgPipeColl()->msgPipe(LdpSessionId(r1Id)).ptr();
   }
};

// The same with the peer (3.3.3.3) above the agent: the peer connects.
struct FakeActive : SessionTest {
   LdpTest::AgentNode& b = s.agent("r2");
   Nolu::Sim::Link* eth = s.net().linkIs("fake-r2");
   FakePeer fake{s, eth, "fake", IpAddr(3, 3, 3, 3)};
   void SetUp() override {
      SessionTest::SetUp();
      b.intfIs("eth1", eth, IpAddrWithMask(IpAddr(10, 0, 0, 2), 24));
      b.loopback("2.2.2.2");
   }
   using SessionTest::state;
   SessionState state() { return SessionTest::state(b, r3Id); }
   // The agent listens and waits; the peer connects once the agent has its
   // session configured.
   void untilConnected() {
      b.ldp();
      ASSERT_TRUE(fake.runUntil([&] { return state() == stateNonExistent_; }, 30.0));
      fake.connect(IpAddr(2, 2, 2, 2));
      ASSERT_TRUE(fake.runUntil([&] { return fake.conn() != nullptr; }, 5.0));
   }
};

inline Mpls::FwdEqvClass fec24(U8 a, U8 b, U8 c) {
   return Mpls::FwdEqvClass(Nolu::Prefix(IpAddr(a, b, c, 0), 24));
}

}  // namespace LdpTest::Sessions
