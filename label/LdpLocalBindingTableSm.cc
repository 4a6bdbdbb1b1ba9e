#include "label/LdpLocalBindingTableSm.h"

#include <ctime>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLocalBindingTable");

U32 nowUtc() { return U32(std::time(nullptr)); }
}  // namespace

LdpLocalBindingTableSm::LdpLocalBindingTableSm(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.dynamicAllocationTable);
   Vek::validPtr(in_.staticBindingTable);
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.localLabelBindingTable);
   Vek::validPtr(in_.labelAdvertisementColl);
   dynamicReactor_.init(this, in_.dynamicAllocationTable);
   staticReactor_.init(this, in_.staticBindingTable);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   handleInitialized();
}

void LdpLocalBindingTableSm::handleInitialized() {
   initialized_ = true;
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleFecFilteredState(f);
   fecs.clear();
   for (auto it = in_.staticBindingTable->bindingIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = in_.dynamicAllocationTable->bindingIter(); it; ++it) fecs.push_back(it.key());
   // Rows an earlier run left whose sources have gone.
   for (auto it = in_.localLabelBindingTable->bindingIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleFec(f);
}

void LdpLocalBindingTableSm::handleFec(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto const* dyn = in_.dynamicAllocationTable->bindingFind(fec);
   auto const* stat = in_.staticBindingTable->bindingFind(fec);
   auto const* out = in_.localLabelBindingTable->bindingFind(fec);
   Mpls::MplsLabelSet const* chosen = nullptr;
   if (stat && stat->mplsLabelSize() > 0) {
      LDP_TRACE(th, 8, "Setting labels using static config for fec: " << fec);
      chosen = stat;
   } else if (dyn && dyn->mplsLabelSize() > 0) {
      LDP_TRACE(th, 8, "Setting labels using dynamic for fec: " << fec);
      chosen = dyn;
   }
   if (!chosen && !out) return;
   std::size_t n = updateLocalLabelBindings(fec, chosen);
   LDP_TRACE(th, 8, " Label insertions / deletions: " << n);
}

std::size_t LdpLocalBindingTableSm::updateLocalLabelBindings(Mpls::FwdEqvClass const& fec,
                                                             Mpls::MplsLabelSet const* chosen) {
   auto* table = in_.localLabelBindingTable.ptr();
   std::size_t n = 0;
   auto out = table->binding(fec);
   if (chosen && chosen->mplsLabelSize() > 0) {
      if (!out) out = table->bindingIs(fec);
      std::vector<Nolu::MplsLabel> gone, added;
      for (auto it = out->mplsLabelIter(); it; ++it)
         if (!chosen->mplsLabelHas(it.key())) gone.push_back(it.key());
      for (auto it = chosen->mplsLabelIter(); it; ++it)
         if (!out->mplsLabelHas(it.key())) added.push_back(it.key());
      U8 source = chosen->labelSource();
      for (auto const& l : gone) {
         out->mplsLabelDel(l);
         out->lastUpdateIs(nowUtc());
         table->updateProducer(fec, l);
         ++n;
      }
      for (auto const& l : added) {
         out->mplsLabelIs(l, true);
         out->lastUpdateIs(nowUtc());
         out->labelSourceIs(source);
         table->updateProducer(fec, l);
         ++n;
      }
      return n;
   }
   if (!out) return 0;
   std::vector<Nolu::MplsLabel> gone;
   for (auto it = out->mplsLabelIter(); it; ++it) gone.push_back(it.key());
   for (auto const& l : gone) {
      out->mplsLabelDel(l);
      table->updateProducer(fec, l);
      ++n;
   }
   table->bindingDel(fec);
   table->updateProducer(fec, Nolu::MplsLabel::null());
   return n;
}

void LdpLocalBindingTableSm::handleFecFilteredState(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   auto* table = in_.localLabelBindingTable.ptr();
   // A new FEC whose filter has not been asked yet keeps its place: it is
   // published once the answer comes, not as filtered and then unfiltered.
   bool filtered = cfg && cfg->fecFilteredState() != Mpls::fecUnfiltered_;
   if (cfg && cfg->fecFilteredState() == Mpls::fecFilterUnknown_)
      filtered = table->filteredFecHas(fec);
   if (filtered == table->filteredFecHas(fec)) {
      // Nothing changed for the published table; the label may have.
      handleFec(fec);
      if (!cfg) handleAdvertisedTo(fec);
      return;
   }
   if (filtered) table->filteredFecIs(fec, true);
   else table->filteredFecDel(fec);
   table->updateProducer(fec, Nolu::MplsLabel::null());
   handleFec(fec);
   handleAdvertisedTo(fec);
}

void LdpLocalBindingTableSm::handleAdvertisedTo(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   auto* coll = in_.labelAdvertisementColl.ptr();
   if (!cfg || cfg->advertisedToSize() == 0) {
      if (coll->advertisedToHas(fec)) coll->advertisedToDel(fec);
      return;
   }
   auto set = coll->advertisedTo(fec);
   if (!set) set = coll->advertisedToIs(fec);
   for (auto it = cfg->advertisedToIter(); it; ++it) set->ldpIdentifierIs(it.key().ldpIdentifier(), true);
   std::vector<LdpIdentifier> gone;
   for (auto it = set->ldpIdentifierIter(); it; ++it)
      if (!cfg->advertisedToHas(LdpSessionId(it.key()))) gone.push_back(it.key());
   for (auto const& id : gone) set->ldpIdentifierDel(id);
}

void LdpLocalBindingTableSm::handleAdvertisedToForPeer(Mpls::FwdEqvClass const& fec,
                                                       LdpIdentifier const& id) {
   if (!initialized_) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   auto* coll = in_.labelAdvertisementColl.ptr();
   bool has = cfg && cfg->advertisedToHas(LdpSessionId(id));
   auto set = coll->advertisedTo(fec);
   if (has) {
      if (!set) set = coll->advertisedToIs(fec);
      set->ldpIdentifierIs(id, true);
   } else if (set) {
      set->ldpIdentifierDel(id);
      if (set->ldpIdentifierSize() == 0) coll->advertisedToDel(fec);
   }
}

}  // namespace Ldp
