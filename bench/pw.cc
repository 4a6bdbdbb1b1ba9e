// 1,000 pseudowires between two agents on the simulated network, over one
// session: from the requests written on both sides until every response on
// both is up. Figures: the CPU time of that run (the simulated network
// included), the virtual time it takes, and the heap growth per pseudowire
// and agent (requests, local copies, FEC-session configurations, statuses,
// pipes, machines and responses of both label sides), read from the
// allocator, its overhead included.
#include <benchmark/benchmark.h>

#include "bench/Measure.h"
#include "runtime/vek/EventLog.h"
#include "tests/harness/Scenario.h"

namespace {

constexpr U32 kPws = 1000;

Vek::Ptr<Pseudowire::PseudowireLdpConfig> pwConfig(LdpTest::AgentNode& n) {
   return Vek::ptr_const_cast<Pseudowire::PseudowireLdpConfig>(n.agent()->pwLdpConfig());
}

void requests(LdpTest::AgentNode& n, Nolu::IpAddr peer, U32 firstLabel) {
   auto cfg = pwConfig(n);
   for (U32 i = 0; i < kPws; ++i) {
      auto r = cfg->ldpRequestIs(Pseudowire::PseudowireLdpRequestKey(
         Nolu::IpGenAddr(peer), Pseudowire::PseudowireId(1 + i)));
      r->pwTypeIs(Pseudowire::pwTypeEthernet_);
      r->mtuIs(1500);
      r->localLabelIs(Nolu::MplsLabel(firstLabel + i));
   }
}

std::size_t upCount(LdpTest::AgentNode& n) {
   std::size_t up = 0;
   for (auto it = n.agent()->pwLdpStatus()->responseIter(); it; ++it)
      if (it.value()->status() == Pseudowire::connectorUp) ++up;
   return up;
}

void PseudowiresToOneNeighbour(benchmark::State& state) {
   Vek::eventLogSinkIs(nullptr);
   for (auto _ : state) {
      LdpTest::Scenario s;
      auto& a = s.agent("r1");
      auto& b = s.agent("r2");
      s.link("r1", "eth1", "10.0.0.1/24", "r2", "eth1", "10.0.0.2/24");
      a.loopback("1.1.1.1");
      b.loopback("2.2.2.2");
      a.ldp();
      b.ldp();
      Ldp::LdpSessionId toB(Ldp::LdpIdentifier(Nolu::IpAddr(2, 2, 2, 2), 0));
      bool open = s.runUntil(
         [&] {
            auto* st = a.status();
            auto ss = st ? st->ldpSessionStatusColl()->sessionStatus(toB) : nullptr;
            return ss && ss->sessionOpState() == Ldp::sessionOpAddrExchanged_;
         },
         60.0);
      if (!open) {
         state.SkipWithError("no session");
         return;
      }
      s.runFor(1.0);
      std::size_t heap0 = heapBytes();
      double cpu0 = cpuSeconds();
      Vek::Seconds t0 = s.now();
      requests(a, Nolu::IpAddr(2, 2, 2, 2), 200000);
      requests(b, Nolu::IpAddr(1, 1, 1, 1), 300000);
      bool up = s.runUntil([&] { return upCount(a) == kPws && upCount(b) == kPws; }, 120.0);
      double cpu = cpuSeconds() - cpu0;
      Vek::Seconds virt = s.now() - t0;
      std::size_t heap = heapBytes() - heap0;
      if (!up) {
         state.SkipWithError("not all pseudowires came up");
         return;
      }
      state.SetIterationTime(cpu);
      state.counters["cpu_ms_to_all_up"] = cpu * 1e3;
      state.counters["virtual_s_to_all_up"] = virt;
      state.counters["bytes_per_pw_per_agent"] = double(heap) / (2.0 * kPws);
   }
}
BENCHMARK(PseudowiresToOneNeighbour)->UseManualTime()->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
