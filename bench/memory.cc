// Bytes per entry of the tables that grow with routes, FECs and sessions,
// read from the allocator (what malloc holds, its own overhead included):
// the host's copy of the routes, a FEC's configuration and status with one
// via, a FEC on one session with a label each way (written by hand, and as
// two agents' label workers leave it after a real exchange), and a FEC's
// message pipe. Each figure is the growth of the heap over N entries,
// divided by N.
#include <benchmark/benchmark.h>

#include <linux/rtnetlink.h>

#include "bench/Measure.h"
#include "entities/LdpLabel.h"
#include "entities/LdpMsgPipe.h"
#include "entities/LdpTesh.h"
#include "host/KernelState.h"
#include "runtime/vek/EventLog.h"
#include "tests/harness/Scenario.h"

using Vek::Ptr;

namespace {

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

// LdpFecSessionStatus as the label workers leave it: two agents on the
// simulated network exchange labels (downstream unsolicited, independent
// control, liberal retention), and the entry of b's loopback FEC at a, with
// a's label sent to b and b's label from b, message counts, ids and
// acknowledged times, is written N times into a table of its own.
void FecSessionStatusAfterExchange(benchmark::State& state) {
   Vek::eventLogSinkIs(nullptr);
   for (auto _ : state) {
      LdpTest::Scenario sc;
      auto& a = sc.agent("r1");
      auto& b = sc.agent("r2");
      sc.link("r1", "eth1", "10.0.0.1/24", "r2", "eth1", "10.0.0.2/24");
      a.loopback("1.1.1.1");
      b.loopback("2.2.2.2");
      U32 fecId = 1;
      auto route = [&](LdpTest::AgentNode& n, char const* p, char const* intf, Nolu::IpAddr hop,
                       U8 type) {
         auto fwd = n.store()->get<Tesh::Fib::ForwardingStatus>("forwarding/status");
         auto routes = n.store()->get<Tesh::Fib::RouteStatus>("routing/status");
         fwd->fecIs(fecId)->viaIs(Ldp::Via(Nolu::IpGenAddr(hop), Nolu::IntfId(intf)), true);
         auto r = routes->routeIs(*Nolu::Prefix::fromString(p));
         r->routeTypeIs(type);
         r->fecIdIs(fecId++);
      };
      for (auto* n : {&a, &b}) {
         auto bl = n->store()->get<Mpls::Api::Status>("mpls/status")->labelBlockAllocationIs("ldp");
         bl->baseIs(n == &a ? 1000 : 2000);
         bl->sizeIs(100);
      }
      route(a, "1.1.1.1/32", "lo", Nolu::IpAddr(), 1);
      route(a, "2.2.2.2/32", "eth1", Nolu::IpAddr(10, 0, 0, 2), 2);
      route(b, "2.2.2.2/32", "lo", Nolu::IpAddr(), 1);
      route(b, "1.1.1.1/32", "eth1", Nolu::IpAddr(10, 0, 0, 1), 2);
      a.ldp();
      b.ldp();
      Ldp::LdpFecSessionId id(Mpls::FwdEqvClass(*Nolu::Prefix::fromString("2.2.2.2/32")),
                              Ldp::LdpSessionId(Ldp::LdpIdentifier(Nolu::IpAddr(2, 2, 2, 2), 0)));
      auto entry = [&]() -> Ldp::LdpFecSessionStatus const* {
         auto* st = a.status();
         return st ? st->ldpFecSessionStatusColl()->fecSessionStatusFind(id) : nullptr;
      };
      bool labelled = sc.runUntil(
         [&] {
            auto const* e = entry();
            return e && e->localLabelStateSize() == 1 && e->peerLabelStateSize() == 1;
         },
         60.0);
      if (!labelled) {
         state.SkipWithError("no label each way");
         return;
      }
      sc.runFor(3.0);
      Ldp::LdpFecSessionStatus const& e = *entry();
      Ptr<Ldp::LdpFecSessionStatusColl> coll(new Ldp::LdpFecSessionStatusColl("lfssc"));
      std::size_t before = heapBytes();
      for (U32 i = 0; i < kEntries; ++i) {
         auto s = coll->fecSessionStatusIs(Ldp::LdpFecSessionId(fecOf(i), id.sessionId()));
         s->localLabelSessionStateIs(e.localLabelSessionState());
         s->peerLabelSessionStateIs(e.peerLabelSessionState());
         s->attributeVersionAckedIs(e.attributeVersionAcked());
         s->isNexthopLsrIs(e.isNexthopLsr());
         s->localLabelActivelyReleasedIs(e.localLabelActivelyReleased());
         s->flagNoRouteNotificationIs(e.flagNoRouteNotification());
         // Labels of their own per entry, as a table of many FECs holds.
         for (auto it = e.localLabelStateIter(); it; ++it)
            s->localLabelStateIs(Nolu::MplsLabel(100000 + i), it.value());
         for (auto it = e.peerLabelStateIter(); it; ++it)
            s->peerLabelStateIs(Nolu::MplsLabel(200000 + i), it.value());
         for (auto it = e.ldpMsgRxIter(); it; ++it) s->ldpMsgRxIs(it.key(), it.value());
         for (auto it = e.ldpMsgTxIter(); it; ++it) s->ldpMsgTxIs(it.key(), it.value());
         s->peerLabelRequestMsgIdIs(e.peerLabelRequestMsgId());
         s->peerLabelRequestMsgIdAckedIs(e.peerLabelRequestMsgIdAcked());
         s->peerNoLabelResourceCountIs(e.peerNoLabelResourceCount());
         s->localLabelRequestMsgIdIs(e.localLabelRequestMsgId());
         s->localLabelRequestMsgIdAckedIs(e.localLabelRequestMsgIdAcked());
         s->localLabelReleaseMsgIdIs(e.localLabelReleaseMsgId());
         s->labelXsessionMappingSmNotiTimeAckedIs(e.labelXsessionMappingSmNotiTimeAcked());
         s->labelXsessionRequestSmNotiTimeAckedIs(e.labelXsessionRequestSmNotiTimeAcked());
         for (auto it = e.msgIdReqMsgIter(); it; ++it) s->msgIdReqMsgIs(it.key(), it.value());
         for (auto it = e.withdrawLabelIter(); it; ++it) s->withdrawLabelIs(it.key(), it.value());
      }
      report(state, before, heapBytes(), 64);
      state.counters["extra_part"] =
         e.peerLabelRequestMsgId() || e.localLabelRequestMsgId() ||
         e.labelXsessionMappingSmNotiTimeAcked() != 0.0 ||
         e.labelXsessionRequestSmNotiTimeAcked() != 0.0;
      state.counters["msg_types"] = double(e.ldpMsgRxSize() + e.ldpMsgTxSize());
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

// The cross-session notification that a FEC's status gains once a peer has
// sent a mapping or a request for it, on top of the status's own bytes.
void XsessionNotification(benchmark::State& state) {
   for (auto _ : state) {
      Ptr<Ldp::LdpFecStatusColl> statuses(new Ldp::LdpFecStatusColl("lfsc"));
      for (U32 i = 0; i < kEntries; ++i) statuses->fecStatusIs(fecOf(i));
      std::size_t before = heapBytes();
      for (U32 i = 0; i < kEntries; ++i) {
         Ptr<Ldp::LdpXsessionNotification> n(new Ldp::LdpXsessionNotification);
         n->ldpXsessionNotificationTypeIs(Ldp::xsessionMapping_);
         statuses->fecStatusIs(fecOf(i))->ldpXsessionNotificationIs(n);
      }
      report(state, before, heapBytes(), 0);
   }
}

BENCHMARK(HostRoutes)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecConfigAndStatus)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecSessionStatus)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecSessionStatusAfterExchange)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(FecMsgPipe)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(LabelTablesPerFec)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK(XsessionNotification)->Iterations(1)->Unit(benchmark::kMillisecond);
BENCHMARK_MAIN();
