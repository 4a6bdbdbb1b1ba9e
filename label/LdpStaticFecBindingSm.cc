#include "label/LdpStaticFecBindingSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpStaticFecBinding");
}

LdpStaticFecBindingSm::LdpStaticFecBindingSm(U32 instId, Inputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpFecConfigColl);
   Vek::validPtr(in_.staticBindingTable);
   configReactor_.init(this, in_.config);
   handleInitialized();
}

void LdpStaticFecBindingSm::handleInitialized() {
   initialized_ = true;
   handleFecStaticBinding();
}

// Every configured binding, then what earlier bindings left behind.
void LdpStaticFecBindingSm::handleFecStaticBinding() {
   if (!initialized_) return;
   std::vector<Mpls::FwdEqvClass> fecs;
   if (in_.config)
      for (auto it = in_.config->staticFecBindingCollIter(); it; ++it) fecs.push_back(it.key());
   for (auto it = in_.ldpFecConfigColl->fecConfigIter(); it; ++it)
      if (it.value().membershipHas(membershipStatic_)) fecs.push_back(it.key());
   for (auto it = in_.staticBindingTable->bindingIter(); it; ++it) fecs.push_back(it.key());
   for (auto const& f : fecs) handleStaticFecBindingColl(f);
}

void LdpStaticFecBindingSm::handleStaticFecBindingColl(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto entry = in_.config ? in_.config->staticFecBindingColl(fec) : nullptr;
   if (entry) binding_.is(fec, this, entry, fec, &LdpStaticFecBindingSm::handleBindingMember);
   else binding_.del(fec);
   handleFecStaticBinding(fec);
}

void LdpStaticFecBindingSm::handleFecStaticBinding(Mpls::FwdEqvClass const& fec) {
   if (!initialized_) return;
   auto entry = in_.config ? in_.config->staticFecBindingColl(fec) : nullptr;
   LDP_TRACE(th, 7, "handleFecStaticBinding " << fec << (entry ? " configured" : " gone"));
   // The configured local label, if any, is the FEC's static local binding.
   Nolu::MplsLabel local = entry ? entry->localLabel() : Nolu::MplsLabel::null();
   auto row = in_.staticBindingTable->binding(fec);
   if (!local.isNull()) {
      if (!row) row = in_.staticBindingTable->bindingIs(fec);
      std::vector<Nolu::MplsLabel> others;
      for (auto it = row->mplsLabelIter(); it; ++it)
         if (it.key() != local) others.push_back(it.key());
      for (auto const& l : others) row->mplsLabelDel(l);
      row->labelSourceIs(1);
      row->mplsLabelIs(local, true);
   } else if (row) {
      in_.staticBindingTable->bindingDel(fec);
   }
   auto cfg = in_.ldpFecConfigColl->fecConfig(fec);
   if (entry) {
      if (!cfg) cfg = in_.ldpFecConfigColl->fecConfigIs(fec);
      if (cfg) cfg->membershipIs(membershipStatic_, true);
   } else if (cfg) {
      cfg->membershipDel(membershipStatic_);
   }
}

}  // namespace Ldp
