#include "label/LdpPeerLabelBindingTableSm.h"

#include <ctime>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPeerLabelBindingTable");

U32 nowUtc() { return U32(std::time(nullptr)); }
constexpr U8 labelSourceDynamic = 2;
}  // namespace

LdpPeerLabelBindingTableSm::LdpPeerLabelBindingTableSm(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.peerLabelBindingTableColl);
   fecSessionReactor_.init(this, in_.ldpFecSessionStatusColl);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   handleInitialized();
}

void LdpPeerLabelBindingTableSm::handleInitialized() {
   initialized_ = true;
   std::vector<LdpFecSessionId> ids;
   for (auto it = in_.ldpFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
      ids.push_back(it.key());
   for (auto const& id : ids) handleFecSessionStatus(id);
   // Rows left by an earlier run are compared with the present state, so
   // that those of peers without a session go.
   std::vector<std::pair<LdpFecSessionId, Nolu::MplsLabel>> rows;
   for (auto t = in_.peerLabelBindingTableColl->peerLabelBindingTableIter(); t; ++t) {
      Mpls::RouterId const& r = t.key();
      LdpSessionId sid(LdpIdentifier(r.rtrIdValue(), r.lblSpaceValue()));
      for (auto b = t.value()->bindingIter(); b; ++b)
         for (auto l = b.value().mplsLabelIter(); l; ++l)
            rows.emplace_back(LdpFecSessionId(b.key(), sid), l.key());
   }
   for (auto const& [id, label] : rows) handleMplsLabel(id, label);
}

Vek::Ptr<Mpls::LdpInternalLabelBindingTable> LdpPeerLabelBindingTableSm::getOrCreateBindingTable(
   Mpls::RouterId const& peer) {
   if (auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer)) return t;
   LDP_TRACE(th, 7, "  creating LBT for peer: " << peer);
   return in_.peerLabelBindingTableColl->peerLabelBindingTableIs(peer, "plbt", peer);
}

void LdpPeerLabelBindingTableSm::deleteUnusedPeerTable(Mpls::RouterId const& peer) {
   auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   if (t && t->bindingSize() == 0 && t->filteredFecSize() == 0)
      in_.peerLabelBindingTableColl->peerLabelBindingTableDel(peer);
}

void LdpPeerLabelBindingTableSm::handleMplsLabel(LdpFecSessionId const& id,
                                                 Nolu::MplsLabel const& label) {
   if (!initialized_) return;
   auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   bool add = s && s->peerLabelState(label) == mappingRcvd_ && label.isValid();
   Mpls::FwdEqvClass const& fec = id.fec();
   Mpls::RouterId peer(id.sessionId().ldpIdentifier());
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   bool unfiltered = cfg && cfg->fecFilteredState() == Mpls::fecUnfiltered_;
   if (unfiltered && add) {
      auto t = getOrCreateBindingTable(peer);
      auto b = t->binding(fec);
      if (!b) b = t->bindingIs(fec);
      if (!b->mplsLabelHas(label)) {
         b->lastUpdateIs(nowUtc());
         b->mplsLabelIs(label, true);
         b->labelSourceIs(labelSourceDynamic);
         b = {};
         t->filteredFecDel(fec);
         t->updateProducer(fec, label);
      }
      LDP_TRACE(th, 7, " add " << label << " " << id);
      return;
   }
   auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   if (!t) return;
   if (!cfg || unfiltered) t->filteredFecDel(fec);
   else if (t->bindingHas(fec) || (s && s->peerLabelState(label) == mappingRcvd_))
      t->filteredFecIs(fec, true);
   if (auto b = t->binding(fec); b && b->mplsLabelHas(label)) {
      b->mplsLabelDel(label);
      b->lastUpdateIs(nowUtc());
      bool empty = b->mplsLabelSize() == 0;
      b = {};
      if (empty) t->bindingDel(fec);
      t->updateProducer(fec, label);
      LDP_TRACE(th, 7, " del " << label << " " << id);
   }
   t = nullptr;
   deleteUnusedPeerTable(peer);
}

void LdpPeerLabelBindingTableSm::handleFecSessionStatus(LdpFecSessionId const& id) {
   if (!initialized_) return;
   std::vector<Nolu::MplsLabel> labels;
   if (auto const* s = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id))
      for (auto it = s->peerLabelStateIter(); it; ++it) labels.push_back(it.key());
   Mpls::RouterId peer(id.sessionId().ldpIdentifier());
   auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   if (t) {
      if (auto const* b = t->bindingFind(id.fec()))
         for (auto it = b->mplsLabelIter(); it; ++it) labels.push_back(it.key());
   }
   for (auto const& l : labels) handleMplsLabel(id, l);
   if (t && in_.peerLabelBindingTableColl->peerLabelBindingTable(peer)) {
      LDP_TRACE(th, 8, "forcing " << peer << "/" << id.fec() << " update");
      t->updateProducer(id.fec(), Nolu::MplsLabel::null());
   }
}

void LdpPeerLabelBindingTableSm::handleFecFilteredState(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it) {
      LdpFecSessionId id(fec, it.key());
      if (in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) handleFecSessionStatus(id);
   }
}

}  // namespace Ldp
