#include "label/LdpPeerLabelBindingTableSm.h"

#include <ctime>

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPeerLabelBindingTable");

U32 nowUtc() { return U32(std::time(nullptr)); }
constexpr U8 labelSourceStatic = 1;
constexpr U8 labelSourceDynamic = 2;
// The largest label that a static binding can name; above it is "none".
constexpr U32 maxOutLabel = 0xfffff;

bool isUnfiltered(LdpFecConfig const* cfg) {
   return cfg && cfg->fecFilteredState() == Mpls::fecUnfiltered_;
}
}  // namespace

LdpPeerLabelBindingTableSm::LdpPeerLabelBindingTableSm(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.peerLabelBindingTableColl);
   fecSessionReactor_.init(this, in_.ldpFecSessionStatusColl);
   fecConfigReactor_.init(this, in_.ldpFecConfigColl);
   configReactor_.init(this, in_.config);
   intfIpReactor_.init(this, in_.ldpIdIntfIpMappingTable);
   handleInitialized();
}

void LdpPeerLabelBindingTableSm::handleInitialized() {
   initialized_ = true;
   std::vector<LdpFecSessionId> ids;
   for (auto it = in_.ldpFecSessionStatusColl->fecSessionStatusIter(); it; ++it)
      ids.push_back(it.key());
   for (auto const& id : ids) handleFecSessionStatus(id);
   std::vector<Mpls::FwdEqvClass> statics;
   if (in_.config)
      for (auto it = in_.config->staticFecBindingCollIter(); it; ++it) statics.push_back(it.key());
   for (auto const& f : statics) handleStaticFecBindingColl(f);
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
   bool unfiltered = isUnfiltered(cfg);
   if (unfiltered && add) {
      auto t = getOrCreateBindingTable(peer);
      auto b = t->binding(fec);
      if (!b) b = t->bindingIs(fec);
      bool added = !b->mplsLabelHas(label);
      if (added) {
         b->lastUpdateIs(nowUtc());
         b->mplsLabelIs(label, true);
      }
      // A learned label beats a configured one: the static label leaves.
      std::vector<Nolu::MplsLabel> others;
      bool wasStatic = b->labelSource() == labelSourceStatic;
      if (wasStatic) {
         LDP_TRACE(th, 7, "   Clearing static label binding.");
         for (auto it = b->mplsLabelIter(); it; ++it)
            if (it.key() != label) others.push_back(it.key());
         for (auto const& l : others) b->mplsLabelDel(l);
         b->lastUpdateIs(nowUtc());
      }
      b->labelSourceIs(labelSourceDynamic);
      b = {};
      if (added) t->filteredFecDel(fec);
      // Readers see the row's source too: the same label learned changes it.
      if (added || wasStatic) t->updateProducer(fec, label);
      for (auto const& l : others) t->updateProducer(fec, l);
      LDP_TRACE(th, 7, " add " << label << " " << id);
      return;
   }
   if (auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer)) {
      if (!cfg || unfiltered) t->filteredFecDel(fec);
      else if (t->bindingHas(fec) || (s && s->peerLabelState(label) == mappingRcvd_))
         t->filteredFecIs(fec, true);
      // The static binding's own row is not the session's to remove.
      bool mine = !isStaticRow(fec, peer, label);
      if (auto b = t->binding(fec); mine && b && b->mplsLabelHas(label)) {
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
   // A configured label may now take the learned one's place.
   handleFecStaticBinding(fec);
}

bool LdpPeerLabelBindingTableSm::isStaticRow(Mpls::FwdEqvClass const& fec,
                                             Mpls::RouterId const& peer,
                                             Nolu::MplsLabel const& label) const {
   auto it = fwdEqvClassLdpIdMapping_.find(fec);
   if (it == fwdEqvClassLdpIdMapping_.end() || Mpls::RouterId(it->second) != peer) return false;
   auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   auto const* b = t ? t->bindingFind(fec) : nullptr;
   auto entry = staticEntry(fec);
   return b && b->labelSource() == labelSourceStatic && entry && entry->outLabel() == label;
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
   handleFecStaticBinding(fec);
   for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it) {
      LdpFecSessionId id(fec, it.key());
      if (in_.ldpFecSessionStatusColl->fecSessionStatusHas(id)) handleFecSessionStatus(id);
   }
   // A FEC that is gone or admitted again stands filtered in no table, also
   // where a static binding that left meanwhile had put it.
   if (isUnfiltered(in_.ldpFecConfigColl->fecConfigFind(fec)) ||
       !in_.ldpFecConfigColl->fecConfigHas(fec)) {
      std::vector<Mpls::RouterId> peers;
      for (auto t = in_.peerLabelBindingTableColl->peerLabelBindingTableIter(); t; ++t)
         if (t.value()->filteredFecHas(fec)) peers.push_back(t.key());
      for (auto const& p : peers) {
         auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(p);
         t->filteredFecDel(fec);
         t->updateProducer(fec, Nolu::MplsLabel::null());
         t = nullptr;
         deleteUnusedPeerTable(p);
      }
   }
}

void LdpPeerLabelBindingTableSm::handleStaticFecBindingColl(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto entry = staticEntry(fec);
   if (entry)
      staticBinding_.is(fec, this, entry, fec,
                        &LdpPeerLabelBindingTableSm::handleStaticFecBindingMember);
   else
      staticBinding_.del(fec);
   handleStaticFecBindingMember(fec);
}

void LdpPeerLabelBindingTableSm::handleStaticFecBindingMember(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto it = mappedNexthop_.find(fec);
   Nolu::IpGenAddr old = it == mappedNexthop_.end() ? Nolu::IpGenAddr() : it->second;
   doMaintainIntfIpFecMapping(fec, old);
   handleFecStaticBinding(fec);
}

void LdpPeerLabelBindingTableSm::handleFecStaticBinding(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto entry = staticEntry(fec);
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   LdpIdentifier result;
   if (entry && isUnfiltered(cfg)) result = doAddFecStaticBinding(*entry);
   LdpIdentifier previous = fwdEqvClassLdpIdMapping(fec);
   if (result.isEmpty()) fwdEqvClassLdpIdMapping_.erase(fec);
   else fwdEqvClassLdpIdMapping_[fec] = result;
   if (!previous.isEmpty() && previous != result) doRemoveFecStaticBinding(fec, previous);
}

LdpIdentifier LdpPeerLabelBindingTableSm::doAddFecStaticBinding(
   LdpStaticFecBindingEntry const& entry) {
   Mpls::FwdEqvClass const& fec = entry.fec();
   Nolu::MplsLabel label = entry.outLabel();
   if (label.value() > maxOutLabel) {
      reason_ = "No outputLabel";
      return {};
   }
   auto const* ldpId = in_.ldpIdIntfIpMappingTable
                          ? in_.ldpIdIntfIpMappingTable->intfIpToLdpIdFind(entry.nexthop())
                          : nullptr;
   if (!ldpId) {
      reason_ = "No mapping to ldpId";
      return {};
   }
   LdpIdentifier lsr = *ldpId;
   Mpls::RouterId peer(lsr);
   auto t = getOrCreateBindingTable(peer);
   auto b = t->binding(fec);
   if (b && b->labelSource() == labelSourceDynamic) {
      reason_ = "Choose dynamic label binding";
      return {};
   }
   reason_.clear();
   if (!b) {
      b = t->bindingIs(fec);
      b->labelSourceIs(labelSourceStatic);
   }
   bool added = !b->mplsLabelHas(label);
   std::vector<Nolu::MplsLabel> others;
   for (auto it = b->mplsLabelIter(); it; ++it)
      if (it.key() != label) others.push_back(it.key());
   if (added || !others.empty()) b->lastUpdateIs(nowUtc());
   if (added) b->mplsLabelIs(label, true);
   for (auto const& l : others) b->mplsLabelDel(l);
   b = {};
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   if (!cfg || isUnfiltered(cfg)) t->filteredFecDel(fec);
   else t->filteredFecIs(fec, true);
   if (added) t->updateProducer(fec, label);
   for (auto const& l : others) t->updateProducer(fec, l);
   LDP_TRACE(th, 7, "static " << fec << " via " << entry.nexthop() << ": " << lsr << " " << label);
   return lsr;
}

void LdpPeerLabelBindingTableSm::doRemoveFecStaticBinding(Mpls::FwdEqvClass const& fec,
                                                          LdpIdentifier const& ldpId) {
   if (ldpId.isEmpty()) return;
   Mpls::RouterId peer(ldpId);
   auto t = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   if (!t) return;
   auto const* cfg = in_.ldpFecConfigColl->fecConfigFind(fec);
   bool wasFiltered = t->filteredFecHas(fec);
   if (!cfg || isUnfiltered(cfg)) t->filteredFecDel(fec);
   else t->filteredFecIs(fec, true);
   bool changed = wasFiltered != t->filteredFecHas(fec);
   std::vector<Nolu::MplsLabel> labels;
   if (auto const* b = t->bindingFind(fec); b && b->labelSource() == labelSourceStatic) {
      LDP_TRACE(th, 7, "deleteBinding" << ": peer: " << peer << ", fec: " << fec);
      for (auto it = b->mplsLabelIter(); it; ++it) labels.push_back(it.key());
      if (auto bh = t->binding(fec)) {
         for (auto const& l : labels) bh->mplsLabelDel(l);
         bh->lastUpdateIs(nowUtc());
      }
      for (auto const& l : labels) t->updateProducer(fec, l);
      t->bindingDel(fec);
      changed = true;
   }
   if (changed) t->updateProducer(fec, Nolu::MplsLabel::null());
   t = nullptr;
   deleteUnusedPeerTable(peer);
}

void LdpPeerLabelBindingTableSm::doUpdateIntfIpFecMapping(Mpls::FwdEqvClass const& fec,
                                                          Nolu::IpGenAddr const& addr, bool add) {
   if (addr.isUnspecified() || (addr.isV4() && addr.v4Addr().isZero())) return;
   if (add) {
      intfIpFwdEqvClassMapping_[addr].insert(fec);
      return;
   }
   auto it = intfIpFwdEqvClassMapping_.find(addr);
   if (it == intfIpFwdEqvClassMapping_.end()) return;
   it->second.erase(fec);
   if (it->second.empty()) intfIpFwdEqvClassMapping_.erase(it);
}

void LdpPeerLabelBindingTableSm::doMaintainIntfIpFecMapping(Mpls::FwdEqvClass const& fec,
                                                            Nolu::IpGenAddr const& oldAddr) {
   if (auto entry = staticEntry(fec)) {
      Nolu::IpGenAddr nexthop = entry->nexthop();
      doUpdateIntfIpFecMapping(fec, nexthop, true);
      if (oldAddr != nexthop) doUpdateIntfIpFecMapping(fec, oldAddr, false);
      mappedNexthop_[fec] = nexthop;
   } else {
      doUpdateIntfIpFecMapping(fec, oldAddr, false);
      mappedNexthop_.erase(fec);
   }
}

// A static binding follows its next hop's address from LSR to LSR.
void LdpPeerLabelBindingTableSm::handleIntfIp(Nolu::IpGenAddr const& addr) {
   if (!initialized_) return;
   auto it = intfIpFwdEqvClassMapping_.find(addr);
   if (it == intfIpFwdEqvClassMapping_.end()) return;
   std::vector<Mpls::FwdEqvClass> fecs(it->second.begin(), it->second.end());
   for (auto const& f : fecs) handleFecStaticBinding(f);
}

}  // namespace Ldp
