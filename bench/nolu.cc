// PDUs per second through a pair of TCP PDU channels: over real loopback
// sockets on the epoll loop, and over the simulated network on virtual time.
// Each iteration sends a batch of PDUs one way and runs the loop until the
// other end has taken all of them.
#include <benchmark/benchmark.h>

#include <functional>

#include "runtime/nolu/Sim.h"
#include "runtime/nolu/TcpClientSm.h"
#include "runtime/nolu/TcpServerSm.h"
#include "runtime/nolu/TcpSocketOpts.h"

using namespace Nolu;
using Vek::Ptr;

namespace {

constexpr int kBatch = 64;

Ptr<Pkt> ldpPdu(U32 bytes) {
   Ptr<Pkt> p = globalPktManager()->newPkt(bytes);
   U8* b = p->newSharedTailData(bytes);
   writeU16(b, 1);
   writeU16(b + 2, U16(bytes - 4));
   for (U32 i = 4; i < bytes; ++i) b[i] = U8(i);
   return p;
}

struct Pair {
   Ptr<TcpServerStatus> sst = tcpServerStatusFactory();
   Ptr<TcpClientStatus> cst = tcpClientStatusFactory();
   Ptr<TcpServerSm> server;
   Ptr<TcpClientSm> client;
   Ptr<TcpPduPam> a, b;
};

// Listens in namespace nsB and connects from nsA; run() turns the loop until
// its condition holds or gives up.
using Run = std::function<bool(std::function<bool()> const&)>;

bool connect(Pair& p, char const* nsA, IpAddr addrA, char const* nsB, IpAddr addrB, U16 port,
             Run const& run) {
   auto sc = tcpServerConfigFactory(addrB, port);
   sc->netnsIs(NamespaceName(nsB));
   sc->optionsIs(tcpOptNoDelay);
   p.server = TcpServerSm::TcpServerSmIs("TcpServerSm", sc, p.sst, nullptr);
   p.server->startListener();
   auto cc = tcpClientConfigFactory(addrA, port, addrB);
   cc->netnsIs(NamespaceName(nsA));
   cc->optionsIs(tcpOptNoDelay);
   p.client = TcpClientSm::TcpClientSmIs(1, cc, p.cst, nullptr);
   p.client->startConnection();
   if (!run([&] {
          return p.cst->connectionStatus() == connConnected_ && p.sst->connSocketsQueued() > 0;
       }))
      return false;
   p.a = new TcpPduPam(p.cst->resetConnSocket());
   p.b = new TcpPduPam(p.sst->getConnSocket());
   p.a->enabledIs(true);
   p.b->enabledIs(true);
   return true;
}

// One batch: kBatch PDUs from a to b, all taken by b.
bool batch(Pair& p, Ptr<Pkt> const& pdu, Run const& run) {
   int got = 0;
   for (int i = 0; i < kBatch; ++i) p.a->sendPkt(pdu);
   return run([&] {
      while (Ptr<Pkt> q = p.b->rxPkt()) {
         benchmark::DoNotOptimize(q->readPtr(0));
         ++got;
      }
      return got == kBatch;
   });
}

void BM_LoopbackPdus(benchmark::State& state) {
   Vek::ActivityManager am(Vek::ActivityManager::realTime);
   Vek::activityManagerIs(&am);
   auto run = [&am](std::function<bool()> const& cond) {
      for (int i = 0; i < 100000; ++i) {
         if (cond()) return true;
         am.runTurn();
         am.pollFds(0.05);
      }
      return cond();
   };
   {
      Pair p;
      if (!connect(p, "", IpAddr(127, 0, 0, 1), "", IpAddr(127, 0, 0, 1), 29646, run)) {
         state.SkipWithError("no loopback connection");
         return;
      }
      Ptr<Pkt> pdu = ldpPdu(U32(state.range(0)));
      for (auto _ : state) {
         if (!batch(p, pdu, run)) {
            state.SkipWithError("batch not delivered");
            break;
         }
      }
   }
   state.SetItemsProcessed(state.iterations() * kBatch);
   state.SetBytesProcessed(state.iterations() * kBatch * state.range(0));
   Vek::activityManagerIs(nullptr);
}
BENCHMARK(BM_LoopbackPdus)->Arg(100)->Arg(4096);

void BM_SimulatedPdus(benchmark::State& state) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   {
      Sim::Network net;
      Sim::Link* link = net.linkIs("ab");
      net.hostIs("a")->intfIs("eth1", link, IpAddr(10, 0, 0, 1), 24);
      net.hostIs("b")->intfIs("eth1", link, IpAddr(10, 0, 0, 2), 24);
      auto run = [&am](std::function<bool()> const& cond) { return am.runUntil(cond, 10.0); };
      Pair p;
      if (!connect(p, "a", IpAddr(10, 0, 0, 1), "b", IpAddr(10, 0, 0, 2), 646, run)) {
         state.SkipWithError("no simulated connection");
         return;
      }
      Ptr<Pkt> pdu = ldpPdu(U32(state.range(0)));
      for (auto _ : state) {
         if (!batch(p, pdu, run)) {
            state.SkipWithError("batch not delivered");
            break;
         }
         // Nothing may pile up in the link's record between batches.
         link->recordsDelAll();
      }
   }
   state.SetItemsProcessed(state.iterations() * kBatch);
   state.SetBytesProcessed(state.iterations() * kBatch * state.range(0));
   Vek::activityManagerIs(nullptr);
}
BENCHMARK(BM_SimulatedPdus)->Arg(100)->Arg(4096);

}  // namespace

BENCHMARK_MAIN();
