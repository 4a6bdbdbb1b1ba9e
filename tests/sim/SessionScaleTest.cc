// One agent with 200 peers on one LAN: every session reaches the operational
// state. The test reports the virtual time it took and the CPU time the
// simulation spent, as test properties.
#include <gtest/gtest.h>

#include <ctime>

#include "runtime/vek/EventLog.h"
#include "tests/harness/Scenario.h"

using namespace Ldp;
using LdpTest::Scenario;
using Nolu::IpAddr;
using Nolu::IpAddrWithMask;

TEST(SessionScale, TwoHundredPeersOnOneAgent) {
   constexpr int peers = 200;
   Vek::eventLogSinkIs(nullptr);
   Scenario s;
   Nolu::Sim::Link* lan = s.net().linkIs("lan");
   auto& hub = s.agent("hub");
   hub.intfIs("eth1", lan, IpAddrWithMask(IpAddr(10, 0, 0, 1), 16));
   hub.loopback("100.0.0.1");
   std::vector<LdpTest::AgentNode*> nodes;
   for (int i = 0; i < peers; ++i) {
      auto& n = s.agent("p" + std::to_string(i));
      U8 hi = U8((i + 2) / 256), lo = U8((i + 2) % 256);
      n.intfIs("eth1", lan, IpAddrWithMask(IpAddr(10, 0, hi, lo), 16));
      // Half the peers above the hub's transport address, half below: both
      // roles are exercised.
      n.loopback((i % 2 ? "200.0." : "50.0.") + std::to_string(hi) + "." + std::to_string(lo));
      nodes.push_back(&n);
   }
   std::clock_t cpu0 = std::clock();
   double t0 = s.now();
   hub.ldp();
   for (auto* n : nodes) n->ldp();
   auto operational = [&] {
      auto* st = hub.status();
      if (!st || st->ldpSessionStatusColl()->sessionStatusSize() != std::size_t(peers)) return false;
      for (auto it = st->ldpSessionStatusColl()->sessionStatusIter(); it; ++it)
         if (it.value()->sessionState() != stateOperational_) return false;
      return true;
   };
   bool ok = s.runUntil(operational, 300.0);
   double virt = s.now() - t0;
   double cpu = double(std::clock() - cpu0) / CLOCKS_PER_SEC;
   ASSERT_TRUE(ok);
   for (auto* n : nodes) {
      auto ss = n->status()->ldpSessionStatusColl()->sessionStatus(
         LdpSessionId(LdpIdentifier(IpAddr(100, 0, 0, 1), 0)));
      ASSERT_TRUE(ss && ss->sessionState() == stateOperational_) << n->name();
   }
   ::testing::Test::RecordProperty("virtualSeconds", std::to_string(virt));
   ::testing::Test::RecordProperty("cpuSeconds", std::to_string(cpu));
   std::printf("200 sessions operational after %.3f s of virtual time, %.2f s of CPU time\n", virt,
               cpu);
   Vek::eventLogSinkIs(Vek::eventLogToStderr);
}
