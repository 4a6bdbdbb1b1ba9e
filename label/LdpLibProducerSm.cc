#include "label/LdpLibProducerSm.h"

#include <vector>

namespace Ldp::LdpTesh {

namespace {
Vek::TraceHandle th("LdpLibProducer");

// The first row key of a FEC in the local rows.
LbtLabelKey firstOf(Mpls::FwdEqvClass const& fec) { return LbtLabelKey(fec, Nolu::MplsLabel(0)); }
}  // namespace

LdpLibProducerSm::LdpLibProducerSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.localLabelBindingTable);
   Vek::validPtr(in_.peerLabelBindingTableColl);
   Vek::validPtr(in_.labelBindingTable);
   localReactor_.init(this, in_.localLabelBindingTable);
   peerCollReactor_.init(this, in_.peerLabelBindingTableColl);
   handleInitialized();
}

void LdpLibProducerSm::handleInitialized() {
   LDP_HANDLER(th, "LdpLibProducerSm::handleInitialized");
   initialized_ = true;
   syncLocal();
   for (auto it = in_.peerLabelBindingTableColl->peerLabelBindingTableIter(); it; ++it)
      handlePeerLabelBindingTable(it.key());
   // Peers whose tables are gone since a former run.
   std::vector<Mpls::RouterId> gone;
   for (auto it = in_.labelBindingTable->peerLbtLastUpdateIter(); it; ++it) {
      Mpls::RouterId const& p = it.key().peer();
      if (!in_.peerLabelBindingTableColl->peerLabelBindingTableHas(p) &&
          (gone.empty() || gone.back() != p))
         gone.push_back(p);
   }
   for (auto it = in_.labelBindingTable->peerLbtFilteredFecIter(); it; ++it) {
      Mpls::RouterId const& p = it.key().peer();
      if (!in_.peerLabelBindingTableColl->peerLabelBindingTableHas(p)) gone.push_back(p);
   }
   for (auto const& p : gone) syncPeer(p);
}

void LdpLibProducerSm::labelRowIs(LbtLabelKey const& k, bool on) {
   auto* t = in_.labelBindingTable.ptr();
   if (on == t->localLbtLabelHas(k)) return;
   if (on) t->localLbtLabelIs(k, true);
   else t->localLbtLabelDel(k);
   ++rowsCopied_;
   t->versionInc(1);
}

void LdpLibProducerSm::peerLabelRowIs(PeerLbtLabelKey const& k, bool on) {
   auto* t = in_.labelBindingTable.ptr();
   if (on == t->peerLbtLabelHas(k)) return;
   if (on) t->peerLbtLabelIs(k, true);
   else t->peerLbtLabelDel(k);
   ++rowsCopied_;
   t->versionInc(1);
}

void LdpLibProducerSm::handleLocalChangeCnt() {
   if (!initialized_) return;
   auto const* src = in_.localLabelBindingTable.ptr();
   U64 cnt = src->changeCnt();
   bool missed = cnt != localSeen_ + 1;
   localSeen_ = cnt;
   if (missed) {
      LDP_TRACE(th, 5, "local table: counter " << cnt << ", resynchronising");
      syncLocal();
      return;
   }
   LDP_TRACE(th, 7, "local row " << src->lastFwdEqvClass() << " " << src->lastLabel());
   syncLocalFec(src->lastFwdEqvClass());
}

void LdpLibProducerSm::syncLocal() {
   auto const* src = in_.localLabelBindingTable.ptr();
   auto* t = in_.labelBindingTable.ptr();
   localSeen_ = src->changeCnt();
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = src->bindingIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = src->filteredFecIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = t->localLbtLastUpdateIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = t->localLbtFilteredFecIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = t->localLbtLabelIter(); it; ++it)
      if (fecs.empty() || fecs.back() != it.key().fec()) fecs.push_back(it.key().fec());
   for (auto const& fec : fecs) syncLocalFec(fec);
}

// The published rows of one FEC become those of the internal table.
void LdpLibProducerSm::syncLocalFec(Mpls::FwdEqvClass const& fec) {
   auto const* src = in_.localLabelBindingTable.ptr();
   auto* t = in_.labelBindingTable.ptr();
   Mpls::MplsLabelSet const* b = src->binding(fec);
   std::vector<Nolu::MplsLabel> stale;
   for (auto it = t->localLbtLabelIterFrom(firstOf(fec)); it && it.key().fec() == fec; ++it)
      if (!b || !b->mplsLabelHas(it.key().label())) stale.push_back(it.key().label());
   for (auto l : stale) labelRowIs(LbtLabelKey(fec, l), false);
   if (b) {
      for (auto it = b->mplsLabelIter(); it; ++it) labelRowIs(LbtLabelKey(fec, it.key()), true);
      t->localLbtLastUpdateIs(fec, LbtUpdate{b->lastUpdate(), b->labelSource()});
   } else {
      t->localLbtLastUpdateDel(fec);
   }
   if (src->filteredFecHas(fec)) t->localLbtFilteredFecIs(fec, true);
   else t->localLbtFilteredFecDel(fec);
}

void LdpLibProducerSm::handlePeerLabelBindingTable(Mpls::RouterId const& peer) {
   if (!initialized_) return;
   auto table = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   PeerReactor* r = peer_.find(peer);
   if (r && (!table || r->notifier().ptr() != table.ptr())) {
      peer_.del(peer);
      r = nullptr;
   }
   if (table && !r) {
      LDP_TRACE(th, 5, "peer table " << peer << " added");
      peer_.is(peer, this, Vek::Ptr<Mpls::LdpInternalLabelBindingTable const>(table), peer);
   } else if (!table) {
      LDP_TRACE(th, 5, "peer table " << peer << " removed");
   }
   syncPeer(peer);
}

void LdpLibProducerSm::handlePeerChangeCnt(Mpls::RouterId const& peer) {
   if (!initialized_) return;
   PeerReactor* r = peer_.find(peer);
   if (!r) return;
   auto const* src = r->notifier().ptr();
   U64 cnt = src->changeCnt();
   bool missed = cnt != r->seen + 1;
   r->seen = cnt;
   if (missed) {
      syncPeer(peer);
      return;
   }
   LDP_TRACE(th, 7, "peer " << peer << " row " << src->lastFwdEqvClass() << " "
                            << src->lastLabel());
   syncPeerFec(peer, src->lastFwdEqvClass());
}

// Every FEC of the peer, in the internal table or in the published one.
void LdpLibProducerSm::syncPeer(Mpls::RouterId const& peer) {
   auto* t = in_.labelBindingTable.ptr();
   auto table = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   if (PeerReactor* r = peer_.find(peer)) r->seen = table ? table->changeCnt() : 0;
   std::vector<Mpls::FwdEqvClass> fecs;
   if (table) {
      for (auto it = table->bindingIter(); it; ++it) fecs.push_back(it.key());
      for (auto it = table->filteredFecIter(); it; ++it) fecs.push_back(it.key());
   }
   PeerFecKey first(peer, Mpls::FwdEqvClass());
   for (auto it = t->peerLbtLastUpdateIterFrom(first); it && it.key().peer() == peer; ++it)
      fecs.push_back(it.key().fec());
   for (auto it = t->peerLbtFilteredFecIterFrom(first); it && it.key().peer() == peer; ++it)
      fecs.push_back(it.key().fec());
   for (auto it = t->peerLbtLabelIterFrom(PeerLbtLabelKey::first(peer, Mpls::FwdEqvClass()));
        it && it.key().peer() == peer; ++it)
      if (fecs.empty() || fecs.back() != it.key().fec()) fecs.push_back(it.key().fec());
   for (auto const& fec : fecs) syncPeerFec(peer, fec);
}

void LdpLibProducerSm::syncPeerFec(Mpls::RouterId const& peer, Mpls::FwdEqvClass const& fec) {
   auto* t = in_.labelBindingTable.ptr();
   auto table = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   Mpls::LdpInternalLabelBindingTable const* tp = table.ptr();
   Mpls::MplsLabelSet const* b = tp ? tp->binding(fec) : nullptr;
   std::vector<Nolu::MplsLabel> stale;
   for (auto it = t->peerLbtLabelIterFrom(PeerLbtLabelKey::first(peer, fec));
        it && it.key().peer() == peer && it.key().fec() == fec; ++it)
      if (!b || !b->mplsLabelHas(it.key().label())) stale.push_back(it.key().label());
   for (auto l : stale) peerLabelRowIs(PeerLbtLabelKey(peer, fec, l), false);
   PeerFecKey pf(peer, fec);
   if (b) {
      for (auto it = b->mplsLabelIter(); it; ++it)
         peerLabelRowIs(PeerLbtLabelKey(peer, fec, it.key()), true);
      t->peerLbtLastUpdateIs(pf, LbtUpdate{b->lastUpdate(), b->labelSource()});
   } else {
      t->peerLbtLastUpdateDel(pf);
   }
   if (tp && tp->filteredFecHas(fec)) t->peerLbtFilteredFecIs(pf, true);
   else t->peerLbtFilteredFecDel(pf);
}

}  // namespace Ldp::LdpTesh
