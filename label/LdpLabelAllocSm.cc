#include "label/LdpLabelAllocSm.h"

#include "runtime/vek/EventLog.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpLabelAlloc");

Vek::EventLogMsg const MPLS_LABEL_EXHAUSTION{
   "MPLS_LABEL_EXHAUSTION", Vek::EventLogSeverity::error,
   "%s ran out of MPLS labels in the '%s' range",
   "This is caused by a request for more labels and the range is fully allocated. "
   "Recommendation: Please increase the configured size of the label range and contact your "
   "support representative if the problem persists.",
   1, 30.0};

constexpr U32 implicitNull = Nolu::MplsLabel::implicitNullValue;
}  // namespace

LdpLabelAllocSm::LdpLabelAllocSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.numAllocatorConfig);
   Vek::validPtr(in_.labelAllocRequestTable);
   Vek::validPtr(in_.labelAllocGlobalStatus);
   Vek::validPtr(in_.localLabelAllocTable);
   requestReactor_.init(this, in_.labelAllocRequestTable);
   globalStatusReactor_.init(this, in_.labelAllocGlobalStatus);
   allocatorStatusReactor_.init(this, in_.numAllocatorStatus);
   blockReactor_.init(this, in_.mplsAgentStatus);
   handleInitialized();
}

void LdpLabelAllocSm::handleInitialized() {
   LDP_HANDLER(th, "LdpLabelAllocSm::handleInitialized");
   initialized_ = true;
   if (dynamicPhase()) {
      // Nothing can be claimed once the reserve phase is over.
      LDP_TRACE(th, 5, " dynamic phase, cleaning localLabelAllocTable");
      while (in_.localLabelAllocTable->bindingSize() > 0)
         in_.localLabelAllocTable->bindingDel(in_.localLabelAllocTable->bindingIter().key());
   }
   VEK_ASSERT(in_.numAllocator && "numAllocator()");
   in_.numAllocator->userAdd();
   user_ = true;
   handleBlockAllocation();
   if (in_.labelRequestClient) {
      auto req = in_.labelRequestClient->labelRequestIs(labelRequestId);
      if (req->size() == 0) req->sizeIs(labelBlockSize);
   }
}

// The VRF's labels go back; the range is emptied by the last VRF to go.
void LdpLabelAllocSm::handleDelete() {
   initialized_ = false;
   if (!user_) return;
   user_ = false;
   for (auto it = in_.localLabelAllocTable->bindingIter(); it; ++it)
      for (auto l = it.value().mplsLabelIter(); l; ++l)
         if (!l.key().isSpecialLabel()) in_.numAllocator->releaseNumber(l.key().value());
   if (in_.numAllocator->userDel() == 0) in_.numAllocatorConfig->rangeIs(Hesk::Range::empty());
}

std::vector<Nolu::MplsLabel> LdpLabelAllocSm::labelsOf(Mpls::MplsLabelSet const& b) {
   std::vector<Nolu::MplsLabel> v;
   for (auto it = b.mplsLabelIter(); it; ++it) v.push_back(it.key());
   return v;
}

void LdpLabelAllocSm::handleBlockAllocation() {
   if (!initialized_) return;
   Vek::Ptr<Mpls::Api::LabelBlock const> block =
      in_.mplsAgentStatus ? in_.mplsAgentStatus->labelBlockAllocation(clientName) : nullptr;
   if (block != blockSizeReactor_.notifier()) {
      if (block) blockSizeReactor_.assign(this, block);
      else blockSizeReactor_.reset();
   }
   if (block && block->size() > 0) updateLabelBlockSize(block->base(), block->size());
   else updateLabelBlockSize(0, 0);
}

void LdpLabelAllocSm::updateLabelBlockSize(U32 start, U32 size) {
   Hesk::Range range = Hesk::Range::empty();
   // A block that reaches past the last label is cut there: labels above it
   // cannot exist.
   if (start > Nolu::MplsLabel::max) size = 0;
   if (size != 0) {
      U32 end = Nolu::MplsLabel::max - start < size - 1 ? Nolu::MplsLabel::max : start + size - 1;
      range = Hesk::Range::of(start, end);
      LDP_TRACE(th, 5, " set range [" << range.min << ", " << range.max << "]");
   }
   bool same = in_.numAllocatorConfig->range() == range && allocReady_ == (size != 0);
   in_.numAllocatorConfig->rangeIs(range);
   allocReady_ = size != 0;
   LDP_TRACE(th, 5, "Setting alloc ready to " << allocReady_);
   if (same && allocReady_) return;
   labelAllocReconcile();
   handleFec();
}

void LdpLabelAllocSm::labelAllocReconcile() {
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = in_.localLabelAllocTable->bindingIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) labelAllocReconcile(f);
}

void LdpLabelAllocSm::labelAllocReconcile(Mpls::FwdEqvClass const& fec) {
   LDP_TRACE(th, 8, "Synchronizing labelAllocTable and numAllocator for fec: " << fec);
   auto* table = in_.localLabelAllocTable.ptr();
   auto b = table->binding(fec);
   if (!b) return;
   if (!allocReady_) {
      // Labels of an earlier run wait through the reserve phase for the
      // block they are claimed from, which may come after this machine.
      if (!dynamicPhase()) return;
      LDP_TRACE(th, 8, "Clearing localLabelAllocTable");
      table->bindingDel(fec);
      return;
   }
   auto* alloc = in_.numAllocator.ptr();
   if (dynamicPhase()) {
      LDP_TRACE(th, 8, "Dynamic phase, deleting labels that are out of range");
      for (auto const& l : labelsOf(b->get())) {
         if (!validLabel(l, fec)) {
            LDP_TRACE(th, 8, "Deleting label " << l.value() << " as now out of range");
            b->mplsLabelDel(l);
         } else if (!l.isSpecialLabel() && !alloc->isReserved(l.value()) &&
                    !alloc->reserveNumber(l.value())) {
            // A kept label stays held, so that no other FEC draws it; one the
            // allocator refuses goes.
            b->mplsLabelDel(l);
         }
      }
   } else {
      LDP_TRACE(th, 8, "Reserve phase for fec: " << fec);
      for (auto const& l : labelsOf(b->get())) {
         bool keep = validLabel(l, fec) &&
                     (l.isSpecialLabel() ||
                      (!alloc->isReserved(l.value()) && alloc->reserveNumber(l.value())));
         if (keep) {
            LDP_TRACE(th, 8, "Assigning old label: " << l.value());
         } else {
            LDP_TRACE(th, 8, "Removing old label: " << l.value());
            b->mplsLabelDel(l);
         }
      }
   }
   if (b && b->mplsLabelSize() == 0) table->bindingDel(fec);
}

bool LdpLabelAllocSm::validLabel(Nolu::MplsLabel const& label,
                                 Mpls::FwdEqvClass const& fec) const {
   VEK_ASSERT(allocReady_ && "valid label should never be called when alloc ready "
                             "is false");
   auto const* req = in_.labelAllocRequestTable->labelBindingRequestFind(fec);
   if (!req) return false;
   switch (req->ldpFecDeliveryType()) {
   case deliveryRemote_:
      return !label.isSpecialLabel() && in_.numAllocatorConfig->range().contains(label.value());
   case deliveryLocal_:
   case deliveryConnected_: return label.value() == implicitNull;
   default: return false;
   }
}

void LdpLabelAllocSm::handleFec() {
   if (!initialized_) return;
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = in_.labelAllocRequestTable->labelBindingRequestIter(); it; ++it)
      fecs.push_back(it.key());
   for (auto it = in_.localLabelAllocTable->bindingIter(); it; ++it)
      if (!in_.labelAllocRequestTable->labelBindingRequestHas(it.key())) fecs.push_back(it.key());
   for (auto const& f : fecs) handleFec(f);
}

void LdpLabelAllocSm::handleFec(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   LDP_TRACE(th, 9, "Handling fec: " << fec);
   if (!dynamicPhase()) {
      LDP_TRACE(th, 9, "Handle fec but not dynamic state");
      return;
   }
   auto const* req = in_.labelAllocRequestTable->labelBindingRequestFind(fec);
   LdpFecDeliveryType type = req ? req->ldpFecDeliveryType() : deliveryNone_;
   U32 wanted = req && type != deliveryNone_ ? req->numLabelsRequested() : 0;
   auto* table = in_.localLabelAllocTable.ptr();
   auto b = table->binding(fec);
   std::size_t old = b ? b->mplsLabelSize() : 0;
   bool local = type == deliveryLocal_ || type == deliveryConnected_;
   if (req && local) wanted = 1;
   if (wanted == 0 || !req || !allocReady_) {
      if (!b) return;
      LDP_TRACE(th, 8, "No request " << fec);
      releaseLabels(fec, old);
      table->bindingDel(fec);
      return;
   }
   if (!b) b = table->bindingIs(fec);
   auto* alloc = in_.numAllocator.ptr();
   LDP_TRACE(th, 8, "Dynamic phase, deleting labels that are out of range");
   for (auto const& l : labelsOf(b->get())) {
      if (validLabel(l, fec)) continue;
      LDP_TRACE(th, 8, "Deleting label " << l.value() << " as now out of range");
      if (!l.isSpecialLabel()) alloc->releaseNumber(l.value());
      b->mplsLabelDel(l);
   }
   if (local) {
      if (!(old == 1 && b->mplsLabelHas(Nolu::MplsLabel(implicitNull)))) {
         releaseLabels(fec, b->mplsLabelSize());
         LDP_TRACE(th, 8, "Adding Implicit Null label to fec: " << fec);
         b->mplsLabelIs(Nolu::MplsLabel(implicitNull), true);
         b->labelSourceIs(2);
      }
   } else {
      LDP_TRACE(th, 8, "Fec requests number of labels: " << wanted);
      LDP_TRACE(th, 8, "Old number of labels: " << old);
      if (b->mplsLabelSize() > wanted) releaseLabels(fec, b->mplsLabelSize() - wanted);
      while (b && b->mplsLabelSize() < wanted) {
         U32 n = alloc->getNumber();
         if (n == Hesk::NumAllocator::kNone) {
            Vek::eventLog(MPLS_LABEL_EXHAUSTION, {"LDP", rangeType});
            LDP_TRACE(th, 5, "Dynamic range exhausted");
            break;
         }
         LDP_TRACE(th, 8, "Assigning label " << n << " " << fec);
         b->mplsLabelIs(Nolu::MplsLabel(n), true);
         b->labelSourceIs(2);
      }
   }
   if (b && b->mplsLabelSize() == 0) table->bindingDel(fec);
}

void LdpLabelAllocSm::releaseLabels(Mpls::FwdEqvClass const& fec, std::size_t n) {
   auto b = in_.localLabelAllocTable->binding(fec);
   while (b && n > 0 && b->mplsLabelSize() > 0) {
      Nolu::MplsLabel l = b->mplsLabelIter().key();
      LDP_TRACE(th, 8, "Releasing label: " << l.value() << ", with fec: " << fec);
      if (!l.isSpecialLabel()) in_.numAllocator->releaseNumber(l.value());
      b->mplsLabelDel(l);
      --n;
   }
}

void LdpLabelAllocSm::handleRangeExhausted() {
   if (!initialized_ || !in_.numAllocatorStatus) return;
   LDP_TRACE(th, 5, "Range Exhausted: " << in_.numAllocatorStatus->rangeExhausted());
   if (!in_.numAllocatorStatus->rangeExhausted()) handleFec();
}

}  // namespace Ldp
