// Bytes per entry of the tables that grow with routes, FECs and sessions,
// read from the allocator (what malloc holds, its own overhead included):
// the host's copy of the routes, a FEC's configuration and status with one
// via, a FEC on one session with a label each way, and a FEC's message pipe.
// Each figure is the growth of the heap over N entries, divided by N.
#include <benchmark/benchmark.h>
#include <malloc.h>

#include <linux/rtnetlink.h>

#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpTesh.h"
#include "host/KernelState.h"

using Vek::Ptr;

namespace {

std::size_t heapBytes() {
   auto m = mallinfo2();
   return m.uordblks + m.hblkhd;  // small chunks and mmapped ones
}

constexpr U32 kEntries = 100000;

Nolu::IpAddr hostAddr(U32 i) { return Nolu::IpAddr(0x0b000000u + i); }
Mpls::FwdEqvClass fecOf(U32 i) { return Mpls::FwdEqvClass(Nolu::Prefix(hostAddr(i), 32)); }

void report(benchmark::State& state, std::size_t before, std::size_t after, double target) {
   state.counters["bytes_per_entry"] = double(after - before) / kEntries;
   state.counters["target"] = target;
}

// The host's route and forwarding tables for host routes over 8 next hops.
void HostRoutes(benchmark::State& state) {
   for (auto _ : state) {
      Host::KernelTargets t;
      t.routeStatus = new Tesh::Fib::RouteStatus;
      t.forwardingStatus = new Tesh::Fib::ForwardingStatus;
      Host::KernelStateWriter w("default", t);
      Host::LinkInfo link;
      link.ifIndex = 2;
      link.name = "eth1";
      link.flags = 1;  // up
      w.apply(link);
      std::size_t before = heapBytes();
      for (U32 i = 0; i < kEntries; ++i) {
         Host::RouteInfo r;
         r.prefix = Nolu::Prefix(hostAddr(i), 32);
         r.table = RT_TABLE_MAIN;
         r.type = RTN_UNICAST;
         r.scope = RT_SCOPE_UNIVERSE;
         r.nextHops.push_back({Nolu::IpAddr(10, 0, 0, U8(1 + i % 8)), 2});
         w.apply(r);
      }
      report(state, before, heapBytes(), 32);
   }
}

// LdpFecConfig and LdpFecStatus of a FEC with one via, a route membership and
// a local label, and no session state.
void FecConfigAndStatus(benchmark::State& state) {
   for (auto _ : state) {
      Ptr<Ldp::LdpFecConfigColl> configs(new Ldp::LdpFecConfigColl("lfcc"));
      Ptr<Ldp::LdpFecStatusColl> statuses(new Ldp::LdpFecStatusColl("lfsc"));
      Nolu::IntfId eth("eth1");
      std::size_t before = heapBytes();
      for (U32 i = 0; i < kEntries; ++i) {
         auto c = configs->fecConfigIs(fecOf(i));
         c->membershipIs(Ldp::membershipRoute_, true);
         c->ldpFecDeliveryTypeIs(Ldp::deliveryRemote_);
         c->viaIs(Ldp::Via(Nolu::IpGenAddr(Nolu::IpAddr(10, 0, 0, 2)), eth), true);
         c->fecFilteredStateIs(Mpls::fecUnfiltered_);
         c->routerIdIs(Nolu::IpAddr(1, 1, 1, 1));
         c->mplsLabelIs(Nolu::MplsLabel(100000 + i), true);
         auto s = statuses->fecStatusIs(fecOf(i));
         s->attributeVersionIs(1);
      }
      report(state, before, heapBytes(), 128);
   }
}

// LdpFecSessionStatus of a FEC on one session: a local label sent, a peer
// label received, the message counts of both.
void FecSessionStatus(benchmark::State& state) {
   for (auto _ : state) {
      Ptr<Ldp::LdpFecSessionStatusColl> coll(new Ldp::LdpFecSessionStatusColl("lfssc"));
      Ldp::LdpSessionId peer(Nolu::IpAddr(2, 2, 2, 2).value(), 0);
      std::size_t before = heapBytes();
      for (U32 i = 0; i < kEntries; ++i) {
         auto s = coll->fecSessionStatusIs(Ldp::LdpFecSessionId(fecOf(i), peer));
         s->localLabelStateIs(Nolu::MplsLabel(100000 + i), Ldp::mappingSent_);
         s->peerLabelStateIs(Nolu::MplsLabel(200000 + i), Ldp::mappingRcvd_);
         s->ldpMsgTxIs(Ldp::LdpLabelMapping_, 1);
         s->ldpMsgRxIs(Ldp::LdpLabelMapping_, 1);
         s->localLabelSessionStateIs(Ldp::LdpLocalLabelSessionState(0x80000004u));
         s->peerLabelSessionStateIs(Ldp::LdpPeerLabelSessionState(0x80000001u));
      }
      report(state, before, heapBytes(), 64);
   }
}

// A FEC's message pipe before any message for the FEC has arrived.
void FecMsgPipe(benchmark::State& state) {
   for (auto _ : state) {
      Ptr<Ldp::LdpFecMsgPipeColl> coll(new Ldp::LdpFecMsgPipeColl("lfmpc"));
      std::size_t before = heapBytes();
      for (U32 i = 0; i < kEntries; ++i)
         coll->msgPipeIs(fecOf(i), Ldp::ldpMsgPipeFactory("fec"));
      report(state, before, heapBytes(), 0);
   }
}

}  // namespace

// The label tables that a labelled FEC has a row in besides its configuration
// and status: the allocator's request and binding, the internal binding table
// and the published one (a label row and a last-update row). Each counter is
// one table's bytes per FEC.
void LabelTablesPerFec(benchmark::State& state) {
   for (auto _ : state) {
      Ptr<Ldp::LabelAllocRequestTable> requests(new Ldp::LabelAllocRequestTable("lart"));
      Ptr<Mpls::LabelBindingTable> alloc(new Mpls::LabelBindingTable("llat", Mpls::RouterId(0, 0)));
      Ptr<Mpls::LdpInternalLabelBindingTable> internal(
         new Mpls::LdpInternalLabelBindingTable("llbt", Mpls::RouterId(0, 0)));
      Ptr<Ldp::LdpTesh::LdpLabelBindingTable> published(
         new Ldp::LdpTesh::LdpLabelBindingTable("lbt"));
      std::size_t h = heapBytes();
      auto step = [&](char const* name) {
         std::size_t now = heapBytes();
         state.counters[name] = double(now - h) / kEntries;
         h = now;
      };
      for (U32 i = 0; i < kEntries; ++i) {
         auto r = requests->labelBindingRequestIs(fecOf(i));
         r->numLabelsRequestedIs(1);
         r->ldpFecDeliveryTypeIs(Ldp::deliveryRemote_);
      }
      step("request");
      for (U32 i = 0; i < kEntries; ++i)
         alloc->bindingIs(fecOf(i))->mplsLabelIs(Nolu::MplsLabel(100000 + i), true);
      step("alloc_binding");
      for (U32 i = 0; i < kEntries; ++i)
         internal->bindingIs(fecOf(i))->mplsLabelIs(Nolu::MplsLabel(100000 + i), true);
      step("internal_binding");
      for (U32 i = 0; i < kEntries; ++i) {
         published->localLbtLabelIs(Ldp::LdpTesh::LbtLabelKey(fecOf(i), Nolu::MplsLabel(100000 + i)),
                                    true);
         published->localLbtLastUpdateIs(fecOf(i), Ldp::LdpTesh::LbtUpdate{1, 1});
      }
      step("published");
   }
}

BENCHMARK(HostRoutes)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecConfigAndStatus)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecSessionStatus)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecMsgPipe)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(LabelTablesPerFec)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
