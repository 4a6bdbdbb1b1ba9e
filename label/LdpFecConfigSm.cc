#include "label/LdpFecConfigSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecConfig");
}

LdpFecConfigSm::LdpFecConfigSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.localLabelBindingTable);
   Vek::validPtr(in_.peerLabelBindingTableColl);
   Vek::validPtr(in_.ldpIdIntfIpMappingTable);
   Vek::validPtr(in_.ldpFecSessionStatusColl);
   Vek::validPtr(in_.statistics);
   Vek::validPtr(in_.scheduler);
   protoConfigReactor_.init(this, in_.protoConfig);
   fecFilterReactor_.init(this, in_.protoConfig->fecFilter());
   fecConfigCollReactor_.init(this, in_.ldpFecConfigColl);
   localTableReactor_.init(this, in_.localLabelBindingTable);
   peerCollReactor_.init(this, in_.peerLabelBindingTableColl);
   ldpIdTableReactor_.init(this, in_.ldpIdIntfIpMappingTable);
   fecSessionReactor_.init(this, in_.ldpFecSessionStatusColl);
   mplsAgentStatusReactor_.init(this, in_.mplsAgentStatus);
   if (in_.mplsAgentStatus)
      dsMappingSourceCollReactor_.init(this, in_.mplsAgentStatus->dsMappingSourceColl());
   handleInitialized();
}

void LdpFecConfigSm::handleInitialized() {
   LDP_HANDLER(th, "LdpFecConfigSm::handleInitialized");
   filterTimerTask_ = Hesk::timerTaskIs(this, &LdpFecConfigSm::deferredUpdateFilterVersion,
                                        in_.scheduler, 2, "FecFilter");
   lsrIntfIpTimerTask_ = Hesk::timerTaskIs(this, &LdpFecConfigSm::handleLsrIntfIpTimerTask,
                                           in_.scheduler, 2, "FecConfig-LsrIntfIp");
   fecCountTimerTask_ = Hesk::timerTaskIs(this, &LdpFecConfigSm::handleFecCountTimerTask,
                                          in_.scheduler, 3, "FecConfig-Count");
   initialized_ = true;
   for (auto it = in_.peerLabelBindingTableColl->peerLabelBindingTableIter(); it; ++it)
      handlePeerLabelBindingTable(it.key());
   std::vector<Mpls::FwdEqvClass> fecs;
   fecs.reserve(in_.ldpFecConfigColl->fecConfigSize());
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleFecConfig(f);
   handleLspRole();
   // The counters start from what the table holds.
   handleFecCountTimerTask();
}

LdpIdentifier LdpFecConfigSm::ldpIdOf(Nolu::IpGenAddr const& addr) const {
   auto const* id = in_.ldpIdIntfIpMappingTable->intfIpToLdpIdFind(addr);
   return id ? *id : LdpIdentifier();
}

void LdpFecConfigSm::handleFecConfig(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   if (!in_.ldpFecConfigColl->fecConfigHas(fec)) {
      // The removed entry's filtered state is no longer known: count again.
      fecCountTimerTask_->scheduleTaskLowestDelay(1.0);
      return;
   }
   handleLocalLabel(fec, Nolu::MplsLabel::any());
   handleVia(fec);
   handlePeerTable(fec);
   calcDownstreamLsrMappingAvail(fec);
   handleLspRole(fec);
   handleFecFilter(fec);
}

void LdpFecConfigSm::handleFecConfigVia(Mpls::FwdEqvClass const& fec, Via const& via) {
   if (!initialized_) return;
   auto const* e = in_.ldpFecConfigColl->fecConfigFind(fec);
   if (e && e->viaHas(via)) handleViaAdd(fec, via);
   else handleViaDel(fec, via);
}

void LdpFecConfigSm::handleFecConfigDownstreamLsr(Mpls::FwdEqvClass const& fec,
                                                  LdpIdentifier const&) {
   if (!initialized_) return;
   calcDownstreamLsrMappingAvail(fec);
   handleLspRole(fec);
}

void LdpFecConfigSm::handleVia(Mpls::FwdEqvClass const& fec) {
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   std::vector<Via> vias;
   for (auto it = cfg->viaIter(); it; ++it) vias.push_back(it.key());
   for (auto const& v : vias) handleViaAdd(fec, v);
   if (!cfg) return;
   // Mappings of vias the entry no longer has, and LSRs no via leads to.
   std::vector<Via> stale;
   for (auto it = cfg->viaLdpIdMappingIter(); it; ++it)
      if (!cfg->viaHas(it.key())) stale.push_back(it.key());
   for (auto const& v : stale) {
      if (!cfg) return;
      doFecConfigDownstreamLsrDel(cfg, v);
   }
   if (!cfg) return;
   std::vector<LdpIdentifier> orphans;
   for (auto it = cfg->downstreamLsrIter(); it; ++it) {
      bool used = false;
      for (auto m = cfg->viaLdpIdMappingIter(); m && !used; ++m) used = m.value() == it.key();
      if (!used) orphans.push_back(it.key());
   }
   for (auto const& id : orphans) {
      if (!cfg) return;
      cfg->downstreamLsrDel(id);
   }
}

void LdpFecConfigSm::handleViaAdd(Mpls::FwdEqvClass const& fec, Via const& via) {
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   LdpIdentifier id = ldpIdOf(via.addr());
   if (id.isEmpty()) doFecConfigDownstreamLsrDel(cfg, via);
   else doFecConfigDownstreamLsrAdd(cfg, via, id);
}

void LdpFecConfigSm::handleViaDel(Mpls::FwdEqvClass const& fec, Via const& via) {
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (cfg) doFecConfigDownstreamLsrDel(cfg, via);
}

void LdpFecConfigSm::doFecConfigDownstreamLsrAdd(Ref& cfg, Via const& via,
                                                 LdpIdentifier const& ldpId) {
   LdpIdentifier const* old = cfg->viaLdpIdMappingFind(via);
   if (old && !(*old == ldpId)) doFecConfigDownstreamLsrDel(cfg, via);
   if (!cfg) return;
   cfg->viaLdpIdMappingIs(via, ldpId);
   if (cfg) cfg->downstreamLsrIs(ldpId, true);
}

// The LSR behind a via goes from the downstream LSRs only when no other via
// of the FEC leads to it.
void LdpFecConfigSm::doFecConfigDownstreamLsrDel(Ref& cfg, Via const& via) {
   LdpIdentifier const* p = cfg->viaLdpIdMappingFind(via);
   if (!p || p->isEmpty()) return;
   LdpIdentifier ldpId = *p;
   cfg->viaLdpIdMappingDel(via);
   if (!cfg) return;
   for (auto it = cfg->viaLdpIdMappingIter(); it; ++it)
      if (it.value() == ldpId) return;
   cfg->downstreamLsrDel(ldpId);
}

// Peer addresses that change in a burst (a session's Address message) are
// seen to in one walk of the FECs.
void LdpFecConfigSm::handleLsrIntfIp(Nolu::IpGenAddr const& addr) {
   if (!initialized_) return;
   lsrIntfIpQueue_.emplace(addr, true);
   lsrIntfIpTimerTask_->scheduleTaskDelay(0.0);
}

void LdpFecConfigSm::handleLsrIntfIpTimerTask() {
   if (!initialized_ || lsrIntfIpQueue_.empty()) return;
   LDP_HANDLER(th, "LdpFecConfigSm::handleLsrIntfIpTimerTask " << lsrIntfIpQueue_.size());
   std::vector<std::pair<Mpls::FwdEqvClass, Via>> todo;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it)
      for (auto v = it.value().viaIter(); v; ++v)
         if (lsrIntfIpQueue_.contains(v.key().addr())) todo.emplace_back(it.key(), v.key());
   lsrIntfIpQueue_.clear();
   for (auto const& [fec, via] : todo) handleViaAdd(fec, via);
   lsrIntfIpTimerTask_->taskWorkCountInc(todo.size());
   lsrIntfIpTimerTask_->taskWorkPendingIs(0);
}

void LdpFecConfigSm::handlePeerLabelBindingTable(Mpls::RouterId const& peer) {
   if (!initialized_) return;
   auto table = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   if (table) {
      if (peerTableReactor_.find(peer)) return;
      peerTableReactor_.is(peer, this, table, peer);
      for (auto it = table->bindingIter(); it; ++it) handlePeerMplsLabel(peer, it.key());
   } else {
      peerTableReactor_.del(peer);
      // The FECs this peer had mapped.
      LdpIdentifier id(peer.rtrIdValue(), peer.lblSpaceValue());
      std::vector<Mpls::FwdEqvClass> fecs;
      for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it)
         if (it.value().mappedLsrHas(id)) fecs.push_back(it.key());
      for (auto const& f : fecs) handlePeerMplsLabel(peer, f);
   }
}

void LdpFecConfigSm::handlePeerTable(Mpls::FwdEqvClass const& fec) {
   for (auto it = in_.peerLabelBindingTableColl->peerLabelBindingTableIter(); it; ++it)
      handlePeerMplsLabel(it.key(), fec);
}

void LdpFecConfigSm::handlePeerMplsLabel(Mpls::RouterId const& peer,
                                         Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   LdpIdentifier id(peer.rtrIdValue(), peer.lblSpaceValue());
   auto table = in_.peerLabelBindingTableColl->peerLabelBindingTable(peer);
   auto const* binding = table ? table->bindingFind(fec) : nullptr;
   if (binding && binding->mplsLabelSize() > 0) cfg->mappedLsrIs(id, true);
   else cfg->mappedLsrDel(id);
   calcDownstreamLsrMappingAvail(fec);
}

void LdpFecConfigSm::calcDownstreamLsrMappingAvail(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   bool avail = false;
   LdpFecDeliveryType type = cfg->ldpFecDeliveryType();
   if (type == deliveryLocal_ || type == deliveryConnected_) {
      avail = true;
   } else {
      for (auto it = cfg->downstreamLsrIter(); it && !avail; ++it)
         avail = cfg->mappedLsrHas(it.key());
   }
   // A downstream mapping that another label source holds counts as well.
   if (auto const* ds = dsMappingSourceCollReactor_.get()) {
      auto const* e = ds->dsMappingSourceFind(fec);
      if (e && e->sourceSize()) avail = true;
   }
   cfg->downstreamLsrMappingAvailIs(avail);
}

// The FECs of the table that goes and of the one that comes are judged again.
void LdpFecConfigSm::handleDsMappingSourceColl() {
   if (!initialized_) return;
   std::vector<Mpls::FwdEqvClass> fecs;
   if (auto const* old = dsMappingSourceCollReactor_.get())
      for (auto it = old->dsMappingSourceIter(); it; ++it) fecs.push_back(it.key());
   auto now = in_.mplsAgentStatus->dsMappingSourceColl();
   dsMappingSourceCollReactor_.assign(this, now);
   if (now)
      for (auto it = now->dsMappingSourceIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) calcDownstreamLsrMappingAvail(f);
}

void LdpFecConfigSm::handleLspRole() {
   if (!initialized_) return;
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleLspRole(f);
}

void LdpFecConfigSm::handleLspRole(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   LdpFecLspRole role = lspRoleTransit_;
   if (in_.protoConfig->ldpProtoParamSetting().hasFlag(LdpProtoParamSetting::lspRoles))
      role = cfg->downstreamLsrSize() > 0 ? lspRoleIngress_ : lspRoleEgress_;
   cfg->ldpFecLspRoleIs(role);
}

void LdpFecConfigSm::handleLocalLabel(Mpls::FwdEqvClass const& fec,
                                      Nolu::MplsLabel const& label) {
   if (!initialized_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   auto const* binding = in_.localLabelBindingTable->bindingFind(fec);
   if (!binding) {
      while (cfg && cfg->mplsLabelSize() > 0) cfg->mplsLabelDel(cfg->mplsLabelIter().key());
      return;
   }
   if (label.value() <= 0xfffff) {
      if (binding->mplsLabelHas(label)) cfg->mplsLabelIs(label, true);
      else cfg->mplsLabelDel(label);
      return;
   }
   VEK_ASSERT(label == Nolu::MplsLabel::any() && "Internal Error, label is not valid");
   std::vector<Nolu::MplsLabel> gone;
   for (auto it = cfg->mplsLabelIter(); it; ++it)
      if (!binding->mplsLabelHas(it.key())) gone.push_back(it.key());
   for (auto const& l : gone) {
      if (!cfg) return;
      cfg->mplsLabelDel(l);
   }
   std::vector<Nolu::MplsLabel> add;
   binding = in_.localLabelBindingTable->bindingFind(fec);
   if (!binding) return;
   for (auto it = binding->mplsLabelIter(); it; ++it) add.push_back(it.key());
   for (auto const& l : add) {
      if (!cfg) return;
      cfg->mplsLabelIs(l, true);
   }
}

void LdpFecConfigSm::computeSessionMembership(LdpFecSessionId const& id) {
   if (!initialized_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(id.fec());
   if (!cfg) return;
   auto const* st = in_.ldpFecSessionStatusColl->fecSessionStatusFind(id);
   constexpr U32 keep = 0x80000000u;
   bool member = st && ((U32(st->localLabelSessionState()) & keep) ||
                        (U32(st->peerLabelSessionState()) & keep));
   if (member) cfg->sessionMemberIs(id.sessionId(), true);
   else cfg->sessionMemberDel(id.sessionId());
   if (!cfg) return;
   if (cfg->sessionMemberSize() > 0) {
      if (!cfg->membershipHas(membershipSession_))
         LDP_TRACE(th, 7, "Adding fecMemberSessionSm to membership for " << id.fec());
      cfg->membershipIs(membershipSession_, true);
   } else {
      if (cfg->membershipHas(membershipSession_))
         LDP_TRACE(th, 7, "Removing fecMemberSessionSm from membership for " << id.fec());
      cfg->membershipDel(membershipSession_);
   }
}

void LdpFecConfigSm::handleFecFilter() {
   if (!initialized_) return;
   fecFilterReactor_.assign(this, in_.protoConfig->fecFilter());
   handleFecFilterVersion();
}

// The filtered state is written here alone, so the counters follow each
// write; removed entries are counted again later.
void LdpFecConfigSm::handleFecFilter(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (!cfg) return;
   auto const filter = in_.protoConfig->fecFilter();
   bool permitted = !filter || filter->isPermittedFec(fec);
   Mpls::FecFilteredState now = permitted ? Mpls::fecUnfiltered_ : Mpls::fecFiltered_;
   Mpls::FecFilteredState old = cfg->fecFilteredState();
   if (old == now) return;
   updateFecCounters(old, now);
   cfg->fecFilteredStateIs(now);
}

void LdpFecConfigSm::updateFecCounters(Mpls::FecFilteredState old, Mpls::FecFilteredState now) {
   Statistics* s = in_.statistics.ptr();
   if (old == Mpls::fecFiltered_ && s->fecCountFiltered() > 0) s->fecCountFilteredDec(1);
   if (old == Mpls::fecUnfiltered_ && s->fecCountUnfiltered() > 0) s->fecCountUnfilteredDec(1);
   if (now == Mpls::fecFiltered_) s->fecCountFilteredInc(1);
   if (now == Mpls::fecUnfiltered_) s->fecCountUnfilteredInc(1);
}

void LdpFecConfigSm::handleFecCountTimerTask() {
   if (!initialized_) return;
   U32 filtered = 0, unfiltered = 0;
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it) {
      filtered += it.value().fecFilteredState() == Mpls::fecFiltered_;
      unfiltered += it.value().fecFilteredState() == Mpls::fecUnfiltered_;
   }
   in_.statistics->fecCountFilteredIs(filtered);
   in_.statistics->fecCountUnfilteredIs(unfiltered);
}

void LdpFecConfigSm::handleFecFilterVersion() {
   if (!initialized_) return;
   filterBookmark_.clear();
   filterWalk_ = true;
   filterTimerTask_->scheduleTaskDelay(0.0);
}

// A new filter version reaches every FEC in slices that give the loop up when
// the scheduler asks; the walk goes on from its bookmark even when the FEC it
// names has gone meanwhile.
void LdpFecConfigSm::deferredUpdateFilterVersion() {
   if (!initialized_ || !filterWalk_) return;
   auto* coll = in_.ldpFecConfigColl.ptr();
   if (filterBookmark_.set) LDP_TRACE(th, 7, "FEC bookmark: " << filterBookmark_.key);
   U64 count = 0;
   auto it = coll->fecConfigIterFrom(filterBookmark_);
   bool more = false;
   while (it) {
      Mpls::FwdEqvClass fec = it.key();
      ++it;
      // The iterator's place survives the writes below as a bookmark.
      Vek::Bookmark<Mpls::FwdEqvClass> next;
      if (it) next = it.bookmark();
      handleFecFilter(fec);
      ++count;
      if (!next.set) break;
      it = coll->fecConfigIterFrom(next);
      if (filterTimerTask_->taskShouldYield()) {
         filterBookmark_ = next;
         more = true;
         break;
      }
   }
   filterTimerTask_->taskWorkCountInc(count);
   filterTimerTask_->taskWorkPendingIs(coll->fecConfigSize());
   if (more) {
      LDP_TRACE(th, 7, "Setting bookmark to " << filterBookmark_.key);
      filterTimerTask_->scheduleTaskDelay(0.0);
      return;
   }
   LDP_TRACE(th, 7, "Done processing all " << coll->fecConfigSize());
   filterBookmark_.clear();
   filterWalk_ = false;
}

}  // namespace Ldp
