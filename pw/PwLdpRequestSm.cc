#include "pw/PwLdpRequestSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("PwLdpRequest");
}

PwLdpRequestSm::PwLdpRequestSm(U32 instId,
                               Vek::Ptr<Pseudowire::PseudowireLdpConfig const> const& pwLdpConfig,
                               Vek::Ptr<PwTargetConfigColl> const& pwTargetConfigColl)
   : LdpSm(instId), pwLdpConfig_(Vek::validPtr(pwLdpConfig)),
     pwTargetConfigColl_(Vek::validPtr(pwTargetConfigColl)) {
   pwLdpConfigReactor_.init(this, pwLdpConfig_);
   handleInitialized();
}

void PwLdpRequestSm::handleInitialized() {
   LDP_HANDLER(th, "PwLdpRequestSm::handleInitialized");
   pwTargetConfigColl_->pwTargetDelAll();
   initialized_ = true;
   for (auto it = pwLdpConfig_->ldpRequestIter(); it; ++it) handleRequest(it.key());
}

void PwLdpRequestSm::handleRequest(Pseudowire::PseudowireLdpRequestKey const& key) {
   if (!initialized_) return;
   LDP_HANDLER(th, "PwLdpRequestSm::handleRequest " << key);
   Nolu::IpGenAddr addr = key.addr();
   if (pwLdpConfig_->ldpRequest(key)) {
      LDP_TRACE(th, 5, " add tLDP request for addr: " << addr);
      auto [p, fresh] = neighborAddr_.emplace(addr);
      if (fresh) *p = Vek::Ptr<PwNeighbor>(new PwNeighbor(addr));
      (*p)->requestIs(key, true);
      if (fresh) handleNeighbor(addr);
      return;
   }
   auto const* p = neighborAddr_.find(addr);
   if (!p) return;
   (*p)->requestDel(key);
   if ((*p)->requestSize() != 0) return;
   LDP_TRACE(th, 5, " remove tLDP request for addr: " << addr);
   neighborAddr_.erase(addr);
   handleNeighbor(addr);
}

// One target serves every pseudowire to its address.
void PwLdpRequestSm::handleNeighbor(Nolu::IpGenAddr const& addr) {
   if (!initialized_) return;
   if (neighborAddr_.find(addr))
      pwTargetConfigColl_->pwTargetIs(addr, true);
   else
      pwTargetConfigColl_->pwTargetDel(addr);
}

}  // namespace Ldp
