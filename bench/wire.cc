// Building and parsing a PDU full of Label Mappings for IPv4 /32 FECs: 146 of
// them fit in a PDU of 4096 bytes. Costs are reported per mapping.
#include <benchmark/benchmark.h>

#include <vector>

#include "wire/LdpMsgGen.h"
#include "wire/LdpParser.h"

namespace {

constexpr U32 mappingsPerPdu = 146;
Ldp::LdpIdentifier const self(Nolu::IpAddr(10, 0, 0, 1), 0);

std::vector<Mpls::FwdEqvClass> const& hostFecs() {
   static std::vector<Mpls::FwdEqvClass> fecs = [] {
      std::vector<Mpls::FwdEqvClass> v;
      for (U32 i = 0; i < mappingsPerPdu; ++i) {
         v.emplace_back(Nolu::Prefix(Nolu::IpAddr(0x0a000000 + i * 7 + 1), 32));
      }
      return v;
   }();
   return fecs;
}

Vek::Ptr<Nolu::Pkt> buildPdu() {
   auto pkt = Nolu::globalPktManager()->newPkt();
   auto gen = Ldp::ldpMsgGenFactory(pkt);
   gen->addLdpPduHdr(1, self);
   auto const& fecs = hostFecs();
   for (U32 i = 0; i < mappingsPerPdu; ++i) {
      gen->addLdpMsgHdr(false, Ldp::LdpLabelMapping_, i + 1);
      gen->addFecTlvPrefix(fecs[i]);
      gen->addGenLabelTlv(false, Nolu::MplsLabel(16 + i));
   }
   gen->computeHdrLenChecksum();
   return pkt;
}

void perMapping(benchmark::State& state) {
   state.SetItemsProcessed(state.iterations() * mappingsPerPdu);
   state.counters["per_mapping"] = benchmark::Counter(
      double(mappingsPerPdu), benchmark::Counter::kIsIterationInvariantRate |
                                 benchmark::Counter::kInvert);
}

void BM_BuildMappingPdu(benchmark::State& state) {
   {
      auto pkt = buildPdu();
      auto pdu = Ldp::ldpPduParserFactory(pkt, 0);
      if (!pdu->validLdpPdu() || pdu->msgNum() != mappingsPerPdu || pdu->pduLength() > 4096) {
         state.SkipWithError("PDU does not hold 146 mappings within 4096 bytes");
         return;
      }
   }
   for (auto _ : state) {
      auto pkt = buildPdu();
      benchmark::DoNotOptimize(pkt->readPtr(0));
   }
   perMapping(state);
}
BENCHMARK(BM_BuildMappingPdu);

void BM_ParseMappingPdu(benchmark::State& state) {
   auto pkt = buildPdu();
   for (auto _ : state) {
      auto pdu = Ldp::ldpPduParserFactory(pkt, 0);
      U32 n = pdu->msgNum();
      for (U32 i = 0; i < n; ++i) {
         auto m = Ldp::ldpLabelMappingMsgParserFactory(pkt, pdu->msgOffset(i));
         Mpls::FwdEqvClass fec = m->ldpFecTlvParser()->fwdEqvCls(0);
         benchmark::DoNotOptimize(fec);
         benchmark::DoNotOptimize(m->label());
      }
   }
   perMapping(state);
}
BENCHMARK(BM_ParseMappingPdu);

}  // namespace

BENCHMARK_MAIN();
