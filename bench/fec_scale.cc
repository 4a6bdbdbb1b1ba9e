// The FEC database at 1,000 and at 1,000,000 FECs, on one agent of the
// simulated network: the CPU time to label every route, the heap per FEC (the
// route and its forwarding entry included), the CPU cost of one route added
// or removed once the database is full, and what a virtual second of an idle
// full database costs. A walk over every FEC per change would show as a cost
// per route that grows with the database.
#include <benchmark/benchmark.h>

#include "bench/Measure.h"
#include "runtime/vek/EventLog.h"
#include "tests/harness/Scenario.h"

namespace {

Nolu::Prefix hostPrefix(U32 i) { return Nolu::Prefix(Nolu::IpAddr(0x0b000000u + i), 32); }

void FecDatabase(benchmark::State& state) {
   U32 const n = U32(state.range(0));
   constexpr U32 kOps = 2000;
   Vek::eventLogSinkIs(nullptr);
   for (auto _ : state) {
      LdpTest::Scenario s;
      auto& a = s.agent("r1");
      a.intfIs("eth1", s.net().linkIs("l1"), Nolu::IpAddrWithMask(Nolu::IpAddr(10, 0, 0, 1), 24));
      a.loopback("1.1.1.1");
      auto routes = a.store()->get<Tesh::Fib::RouteStatus>("routing/status");
      auto fwd = a.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
      auto block = a.store()->get<Mpls::Api::Status>("mpls/status")->labelBlockAllocationIs("ldp");
      block->baseIs(16);
      block->sizeIs(n + 2 * kOps);
      a.ldp();
      s.runUntil([&] { return a.root() != nullptr; }, 5.0);
      fwd->fecIs(1)->viaIs(
         Ldp::Via(Nolu::IpGenAddr(Nolu::IpAddr(10, 0, 0, 2)), Nolu::IntfId("eth1")), true);
      auto add = [&](U32 i) {
         auto r = routes->routeIs(Nolu::IpGenPrefix(hostPrefix(i)));
         r->routeTypeIs(2);
         r->fecIdIs(1);
      };
      auto* labels = a.status()->localLabelAllocTable().ptr();

      std::size_t heap0 = heapBytes();
      double cpu0 = cpuSeconds();
      for (U32 i = 0; i < n; ++i) add(i);
      while (labels->bindingSize() < n) s.runFor(0.01);
      double fill = cpuSeconds() - cpu0;
      state.counters["fill_s"] = fill;
      state.counters["bytes_per_fec"] = double(heapBytes() - heap0) / n;

      // One route at a time, each handled to the end before the next.
      cpu0 = cpuSeconds();
      for (U32 i = 0; i < kOps; ++i) {
         add(n + i);
         s.runFor(0.0);
      }
      double addCost = (cpuSeconds() - cpu0) / kOps;
      cpu0 = cpuSeconds();
      for (U32 i = 0; i < kOps; ++i) {
         routes->routeDel(Nolu::IpGenPrefix(hostPrefix(n + i)));
         s.runFor(0.0);
      }
      double delCost = (cpuSeconds() - cpu0) / kOps;
      state.counters["add_us"] = addCost * 1e6;
      state.counters["del_us"] = delCost * 1e6;

      // Let the removals finish, then an idle stretch.
      s.runFor(15.0);
      cpu0 = cpuSeconds();
      s.runFor(10.0);
      state.counters["idle_ms_per_s"] = (cpuSeconds() - cpu0) * 100.0;
      if (labels->bindingSize() != n) state.SkipWithError("labels lost");
   }
}

}  // namespace

BENCHMARK(FecDatabase)->Arg(1000)->Arg(1000000)->Iterations(1)->Unit(benchmark::kSecond);
BENCHMARK_MAIN();
