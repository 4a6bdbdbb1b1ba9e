// The label paths at 100,000 FECs on one agent of the simulated network, with
// a peer played by the harness: CPU time (the peer and the simulated network
// included) of
//   RouteBurst: 100k host routes written at once, a session up, until the
//     peer has read every Label Mapping;
//   SessionRestart: the session to a peer cleared with 100k labelled FECs,
//     from the new session's Operational until the peer has them all again;
//   ReceiveUnknown: the peer advertises 100k mappings of prefixes that are no
//     routes of ours (first), then clears the session and advertises them
//     again with new labels, until the agent holds every new one (again).
// Time is virtual, so the hold times of the transmit path cost nothing here:
// what is left is the agent's work per FEC.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <memory>

#include "bench/Measure.h"
#include "runtime/vek/EventLog.h"
#include "tests/harness/FakePeer.h"

namespace {

using namespace Ldp;
namespace B = LdpTest::Bytes;
using Nolu::IpAddr;

constexpr U32 fecCount = 100000;
constexpr U32 perPdu = 125;  // some 4 KB

IpAddr hostAddr(U32 k) { return IpAddr(0x14000000u + k); }  // 20.0.0.0 on

// The agent r2 (2.2.2.2) and the peer (1.1.1.1) on one link; the agent has
// the higher address and connects.
struct Rig {
   LdpTest::Scenario s;
   LdpTest::AgentNode& agent = s.agent("r2");
   Nolu::Sim::Link* eth = s.net().linkIs("peer-r2");
   LdpTest::FakePeer peer{s, eth, "peer"};
   LdpIdentifier const agentId{IpAddr(2, 2, 2, 2), 0};
   std::size_t seen = 0;
   U32 mappingsRx = 0;
   U32 msgId = 100;

   Rig() {
      Vek::eventLogSinkIs(nullptr);
      agent.intfIs("eth1", eth, Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 2), 24));
      agent.loopback("2.2.2.2");
      eth->recordingIs(false);
      s.net().link("r2:lo")->recordingIs(false);
      auto block = agent.store()->get<Mpls::Api::Status>("mpls/status")->labelBlockAllocationIs("ldp");
      block->baseIs(16);
      block->sizeIs(2 * fecCount);
      agent.ldp();
      s.runUntil([&] { return agent.root() != nullptr; }, 5.0);
      agent.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status")->fecIs(1)->viaIs(
         Via(Nolu::IpGenAddr(IpAddr(10, 0, 0, 1)), Nolu::IntfId("eth1")), true);
      up();
   }
   LdpSessionStatus const* session() {
      return agent.status()->ldpSessionStatusColl()->sessionStatus(LdpSessionId(peer.ldpId())).ptr();
   }
   bool ready() {
      auto const* ss = session();
      return ss && ss->sessionState() == stateOperational_ &&
             ss->sessionOpState() == sessionOpAddrExchanged_;
   }
   // The Label Mappings that the peer has read since the last clear.
   U32 mappings() {
      auto const& rx = peer.rxMsgs();
      for (; seen < rx.size(); ++seen)
         if (rx[seen].type == LdpLabelMapping_) ++mappingsRx;
      return mappingsRx;
   }
   void rxClear() {
      peer.rxClear();
      seen = 0;
      mappingsRx = 0;
   }
   // The opening on the agent's latest connection, the peer's addresses
   // included; cpuUp is the CPU time at which the session was ready.
   double up() {
      if (!peer.drive([&] { return peer.rxCount(LdpInitialization_) > 0; }, 60.0)) std::abort();
      peer.send({B::initMsg(msgId, agentId, 180, 4096), B::keepAliveMsg(msgId + 1),
                 B::addressMsg(msgId + 2, {IpAddr(1, 1, 1, 1), IpAddr(10, 0, 0, 1)})});
      msgId += 3;
      if (!peer.drive([&] { return ready(); }, 5.0)) std::abort();
      return cpuSeconds();
   }
   void routes() {
      auto r = agent.store()->get<Tesh::Fib::RouteStatus>("routing/status");
      for (U32 k = 0; k < fecCount; ++k) {
         auto e = r->routeIs(Nolu::IpGenPrefix(Nolu::Prefix(hostAddr(k), 32)));
         e->routeTypeIs(2);
         e->fecIdIs(1);
      }
   }
   // The peer's mappings of the host prefixes, in PDUs of some 4 KB.
   std::vector<B::Buf> advertisement(U32 labelBase) {
      std::vector<B::Buf> pdus;
      for (U32 first = 0; first < fecCount; first += perPdu) {
         std::vector<B::Buf> msgs;
         for (U32 k = first; k < first + perPdu && k < fecCount; ++k)
            msgs.push_back(B::labelMsg(LdpLabelMapping_, msgId++,
                                       {B::prefixElement(hostAddr(k), 32)}, labelBase + k));
         pdus.push_back(B::pduBytes(peer.ldpId(), msgs));
      }
      return pdus;
   }
   Mpls::LdpInternalLabelBindingTable const* peerTable() {
      return agent.status()
         ->peerLabelBindingTableColl()
         ->peerLabelBindingTable(Mpls::RouterId(peer.ldpId()))
         .ptr();
   }
   // Whether the agent holds the peer's labels from labelBase on for every
   // prefix; the full check runs only once the last prefix has its label.
   bool holds(U32 labelBase) {
      auto const* t = peerTable();
      if (!t || t->bindingSize() < fecCount) return false;
      auto label = [&](U32 k) {
         auto const* b = t->bindingFind(Mpls::FwdEqvClass(Nolu::Prefix(hostAddr(k), 32)));
         return b && b->mplsLabelSize() == 1 && b->mplsLabelIter().key().value() == labelBase + k;
      };
      if (!label(fecCount - 1)) return false;
      for (U32 k = 0; k < fecCount; ++k)
         if (!label(k)) return false;
      return true;
   }
   // Writes the PDUs as the peer's window takes them, until done().
   template <class F>
   bool deliver(std::vector<B::Buf> const& pdus, F done) {
      std::size_t next = 0;
      return peer.drive(
         [&] {
            while (next < pdus.size() && peer.conn()->writeLength() == 0)
               peer.send(B::pkt(pdus[next++]));
            return next == pdus.size() && done();
         },
         600.0);
   }
};

double least(std::vector<double> const& v) { return *std::min_element(v.begin(), v.end()); }

void RouteBurst(benchmark::State& state) {
   for (auto _ : state) {
      auto rig = std::make_unique<Rig>();
      rig->peer.drive([] { return false; }, 2.0);
      rig->rxClear();
      std::size_t heap0 = heapBytes();
      double cpu0 = cpuSeconds();
      rig->routes();
      if (!rig->peer.drive([&] { return rig->mappings() >= fecCount; }, 60.0))
         state.SkipWithError("mappings missing");
      double cpu = cpuSeconds() - cpu0;
      state.SetIterationTime(cpu);
      state.counters["cpu_ms"] = cpu * 1e3;
      // The FECs with their routes, labels and state on the one session;
      // what the peer recorded of the messages is left out.
      rig->rxClear();
      state.counters["heap_per_fec"] = double(heapBytes() - heap0) / fecCount;
   }
}

void SessionRestart(benchmark::State& state) {
   for (auto _ : state) {
      auto rig = std::make_unique<Rig>();
      rig->routes();
      rig->peer.drive([&] { return rig->mappings() >= fecCount; }, 60.0);
      U32 total = rig->mappings();
      rig->rxClear();
      double cpu0 = cpuSeconds();
      rig->agent.config()->ldpNeighborClearRequestIs(rig->peer.ldpId(), rig->s.now());
      double cpuUp = rig->up();
      if (!rig->peer.drive([&] { return rig->mappings() >= total; }, 60.0))
         state.SkipWithError("mappings missing");
      double cpu = cpuSeconds() - cpuUp;
      state.SetIterationTime(cpu);
      state.counters["cpu_ms"] = cpu * 1e3;
      state.counters["with_teardown_ms"] = (cpuSeconds() - cpu0) * 1e3;
   }
}

void ReceiveUnknown(benchmark::State& state) {
   for (auto _ : state) {
      auto rig = std::make_unique<Rig>();
      auto first = rig->advertisement(16);
      auto again = rig->advertisement(16 + fecCount);
      double cpu0 = cpuSeconds();
      if (!rig->deliver(first, [&] { return rig->holds(16); }))
         state.SkipWithError("first delivery not held");
      double cpuFirst = cpuSeconds() - cpu0;
      // The peer ends the session; the agent connects again.
      rig->peer.send({B::notificationMsg(rig->msgId++, statusShutdown_, true)});
      rig->peer.conn()->cleanup();
      rig->rxClear();
      cpu0 = cpuSeconds();
      double cpuUp = rig->up();
      if (!rig->deliver(again, [&] { return rig->holds(16 + fecCount); }))
         state.SkipWithError("second delivery not held");
      double cpu = cpuSeconds() - cpuUp;
      state.SetIterationTime(cpu);
      state.counters["first_ms"] = cpuFirst * 1e3;
      state.counters["again_ms"] = cpu * 1e3;
      state.counters["with_teardown_ms"] = (cpuSeconds() - cpu0) * 1e3;
   }
}

}  // namespace

BENCHMARK(RouteBurst)->UseManualTime()->Iterations(1)->Repetitions(3)->ComputeStatistics(
   "min", least)->Unit(benchmark::kMillisecond);
BENCHMARK(SessionRestart)->UseManualTime()->Iterations(1)->Repetitions(3)->ComputeStatistics(
   "min", least)->Unit(benchmark::kMillisecond);
BENCHMARK(ReceiveUnknown)->UseManualTime()->Iterations(1)->Repetitions(3)->ComputeStatistics(
   "min", least)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
