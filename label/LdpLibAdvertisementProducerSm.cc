#include "label/LdpLibAdvertisementProducerSm.h"

#include <vector>

namespace Ldp::LdpTesh {

namespace {
Vek::TraceHandle th("LdpLibProducer");
}

LdpLibAdvertisementProducerSm::LdpLibAdvertisementProducerSm(
   U32 instId, Vek::Ptr<Mpls::LabelAdvertisementColl const> const& labelAdvertisementColl,
   Vek::Ptr<LdpLabelBindingTable> const& labelBindingTable)
   : LdpSm(instId), labelAdvertisementColl_(Vek::validPtr(labelAdvertisementColl)),
     labelBindingTable_(Vek::validPtr(labelBindingTable)) {
   reactor_.init(this, labelAdvertisementColl_);
   handleInitialized();
}

void LdpLibAdvertisementProducerSm::handleInitialized() {
   LDP_HANDLER(th, "LdpLibAdvertisementProducerSm::handleInitialized");
   initialized_ = true;
   std::vector<Mpls::FwdEqvClass> fecs;
   for (auto it = labelAdvertisementColl_->advertisedToIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = labelBindingTable_->localLbtAdvertisedToIter(); it; ++it)
      if (fecs.empty() || fecs.back() != it.key().fec()) fecs.push_back(it.key().fec());
   for (auto const& fec : fecs) handleAdvertisedTo(fec);
}

void LdpLibAdvertisementProducerSm::handleAdvertisedTo(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto const* src = labelAdvertisementColl_.ptr();
   auto* t = labelBindingTable_.ptr();
   Mpls::LdpIdentifierSet const* set = src->advertisedTo(fec);
   std::vector<LdpIdentifier> stale;
   for (auto it = t->localLbtAdvertisedToIterFrom(LbtAdvertisedToKey(fec, LdpIdentifier()));
        it && it.key().fec() == fec; ++it)
      if (!set || !set->ldpIdentifierHas(it.key().ldpId())) stale.push_back(it.key().ldpId());
   for (auto const& id : stale) {
      t->localLbtAdvertisedToDel(LbtAdvertisedToKey(fec, id));
      t->versionInc(1);
   }
   if (!set) return;
   for (auto it = set->ldpIdentifierIter(); it; ++it) {
      LbtAdvertisedToKey k(fec, it.key());
      if (t->localLbtAdvertisedToHas(k)) continue;
      t->localLbtAdvertisedToIs(k, true);
      t->versionInc(1);
   }
}

void LdpLibAdvertisementProducerSm::handleAdvertisedToLdpIdentifier(Mpls::FwdEqvClass const& fec,
                                                                    LdpIdentifier const& id) {
   if (!initialized_) return;
   Mpls::LdpIdentifierSet const* set = labelAdvertisementColl_->advertisedTo(fec);
   bool on = set && set->ldpIdentifierHas(id);
   LbtAdvertisedToKey k(fec, id);
   auto* t = labelBindingTable_.ptr();
   if (on == t->localLbtAdvertisedToHas(k)) return;
   if (on) t->localLbtAdvertisedToIs(k, true);
   else t->localLbtAdvertisedToDel(k);
   t->versionInc(1);
}

}  // namespace Ldp::LdpTesh
