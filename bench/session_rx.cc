// The receive path of a session at the scale of label distribution: 100,000
// Label Mappings from one peer, through the simulated TCP connection, the
// channel, the receive queue and the message machine, into the pipes of
// 100,000 FECs whose readers take them. The FECs and their pipes exist before
// (the FEC machinery of routed prefixes); the peer writes its PDUs as the TCP
// window lets it.
//
// Figures: CPU time of the whole run (the simulated network included), and
// memory: peak_MB is the most that the heap grew during the run, kept_MB what
// of it is still there after the run. "again" is a round in which every FEC
// has heard of the session before: its peak is the receive path's own (socket
// buffers, channel and session queues, packets, messages). "new" is the first
// round, in which every FEC also learns that this session spoke of it; that
// state stays, and is most of its peak.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstdlib>
#include <new>

#include "bench/Measure.h"
#include "runtime/vek/EventLog.h"
#include "tests/harness/FakePeer.h"
#include "tests/harness/LabelStandIns.h"

namespace {

// Live and peak heap bytes, from every allocation of the process. Each block
// carries its size in front of it, so that counting costs little.
std::size_t liveBytes = 0;
std::size_t peakBytes = 0;
constexpr std::size_t header = 16;

void* counted(std::size_t n) {
   auto* p = static_cast<unsigned char*>(std::malloc(n + header));
   if (!p) throw std::bad_alloc();
   *reinterpret_cast<std::size_t*>(p) = n;
   liveBytes += n;
   if (liveBytes > peakBytes) peakBytes = liveBytes;
   return p + header;
}
void uncounted(void* q) {
   if (!q) return;
   auto* p = static_cast<unsigned char*>(q) - header;
   liveBytes -= *reinterpret_cast<std::size_t*>(p);
   std::free(p);
}

}  // namespace

void* operator new(std::size_t n) { return counted(n); }
void* operator new[](std::size_t n) { return counted(n); }
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
   try {
      return counted(n);
   } catch (...) {
      return nullptr;
   }
}
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept {
   try {
      return counted(n);
   } catch (...) {
      return nullptr;
   }
}
void operator delete(void* p) noexcept { uncounted(p); }
void operator delete[](void* p) noexcept { uncounted(p); }
void operator delete(void* p, std::size_t) noexcept { uncounted(p); }
void operator delete[](void* p, std::size_t) noexcept { uncounted(p); }

namespace {

using namespace Ldp;
namespace B = LdpTest::Bytes;
using Nolu::IpAddr;

constexpr U32 fecCount = 100000;
constexpr U32 perPdu = 125;  // some 4 KB

IpAddr fecAddr(U32 k) { return IpAddr(20 + (k >> 16), U8(k >> 8), U8(k), 0); }

// One agent with its session to a peer up, and the FECs with their pipes.
struct Rig {
   LdpTest::Scenario s;
   LdpTest::AgentNode& agent = s.agent("r2");
   Nolu::Sim::Link* eth = s.net().linkIs("peer-r2");
   LdpTest::FakePeer peer{s, eth, "peer"};
   std::unique_ptr<LdpTest::FecPipes> pipes;
   U32 nextId = 1000;

   Rig() {
      Vek::eventLogSinkIs(nullptr);
      agent.intfIs("eth1", eth, Nolu::IpAddrWithMask(IpAddr(10, 0, 0, 2), 24));
      agent.loopback("2.2.2.2");
      // The links keep no copy of what crosses them.
      eth->recordingIs(false);
      s.net().link("r2:lo")->recordingIs(false);
      agent.ldp();
      s.runUntil([&] { return agent.root() != nullptr; }, 5.0);
      pipes = std::make_unique<LdpTest::FecPipes>(
         agent.status()->ldpFecConfigColl(),
         Vek::Ptr<LdpFecMsgPipeColl>(agent.root()->ldpFecMsgPipeColl()), agent.agent()->scheduler(),
         0.0, false);
      for (U32 k = 0; k < fecCount; ++k)
         agent.status()->ldpFecConfigColl()->fecConfigIs(
            Mpls::FwdEqvClass(Nolu::Prefix(fecAddr(k), 24)));
      peer.drive([&] { return peer.rxCount(LdpInitialization_) > 0; }, 30.0);
      LdpIdentifier agentId(IpAddr(2, 2, 2, 2), 0);
      peer.send({B::initMsg(100, agentId, 180, 4096), B::keepAliveMsg(101)});
      peer.drive([&] { return state() == stateOperational_; }, 5.0);
      if (state() != stateOperational_) std::abort();
      peer.drive([] { return false; }, 1.0);
      makePdus();
   }
   ~Rig() { pipes.reset(); }
   SessionState state() {
      auto ss = agent.status()->ldpSessionStatusColl()->sessionStatus(LdpSessionId(peer.ldpId()));
      return ss ? ss->sessionState() : stateUnknown_;
   }
   // The peer's PDUs, written before the rounds: what the run measures is
   // the agent and the network, not the making of PDUs.
   std::vector<B::Buf> pdus;
   void makePdus() {
      for (U32 first = 0; first < fecCount; first += perPdu) {
         std::vector<B::Buf> msgs;
         for (U32 k = first; k < first + perPdu && k < fecCount; ++k)
            msgs.push_back(B::labelMsg(LdpLabelMapping_, nextId++,
                                       {B::prefixElement(fecAddr(k), 24)}, 16 + k % 100000));
         pdus.push_back(B::pduBytes(peer.ldpId(), msgs));
      }
   }
   struct Figures {
      double cpu;
      std::size_t peak;
      std::size_t kept;
   };
   // One round of all mappings: the peer writes PDU after PDU as the
   // window takes them, and the run ends when every FEC's reader has read.
   Figures round() {
      U64 start = pipes->count;
      U32 next = 0;
      std::size_t base = liveBytes;
      peakBytes = liveBytes;
      double cpu0 = cpuSeconds();
      bool done = peer.drive(
         [&] {
            while (next < pdus.size() && peer.conn()->writeLength() == 0)
               peer.send(B::pkt(pdus[next++]));
            return pipes->count - start == fecCount;
         },
         600.0);
      double cpu = cpuSeconds() - cpu0;
      if (!done || state() != stateOperational_) std::abort();
      std::size_t end = liveBytes;
      return Figures{cpu, peakBytes - base, end > base ? end - base : 0};
   }
};

void report(benchmark::State& state, Rig::Figures const& f) {
   state.SetIterationTime(f.cpu);
   state.counters["msgs"] = fecCount;
   state.counters["cpu_ms"] = f.cpu * 1e3;
   state.counters["peak_MB"] = double(f.peak) / (1 << 20);
   state.counters["kept_MB"] = double(f.kept) / (1 << 20);
}

void BM_Receive100kMappingsNew(benchmark::State& state) {
   for (auto _ : state) {
      state.PauseTiming();
      auto rig = std::make_unique<Rig>();
      state.ResumeTiming();
      report(state, rig->round());
      state.PauseTiming();
      rig.reset();
      state.ResumeTiming();
   }
}
// The machine is shared with builds: the least of a few runs is the figure.
double least(std::vector<double> const& v) { return *std::min_element(v.begin(), v.end()); }

BENCHMARK(BM_Receive100kMappingsNew)
   ->UseManualTime()
   ->Iterations(1)
   ->Repetitions(5)
   ->ComputeStatistics("min", least)
   ->Unit(benchmark::kMillisecond);

void BM_Receive100kMappingsAgain(benchmark::State& state) {
   for (auto _ : state) {
      auto rig = std::make_unique<Rig>();
      rig->round();
      report(state, rig->round());
   }
}
BENCHMARK(BM_Receive100kMappingsAgain)
   ->UseManualTime()
   ->Iterations(1)
   ->Repetitions(5)
   ->ComputeStatistics("min", least)
   ->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
