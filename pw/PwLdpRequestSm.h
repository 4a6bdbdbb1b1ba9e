#pragma once
// Turns the pseudowire agent's requests into targeted Hello targets: one
// target per neighbour address, kept while any request to that address
// stands, so that a session to each pseudowire neighbour comes up.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class PwLdpRequestSm : public LdpSm {
 public:
   static Vek::Ptr<PwLdpRequestSm> PwLdpRequestSmIs(
      U32 instId, Vek::Ptr<Pseudowire::PseudowireLdpConfig const> const& pwLdpConfig,
      Vek::Ptr<PwTargetConfigColl> const& pwTargetConfigColl) {
      return Vek::makeSm<PwLdpRequestSm>(instId, pwLdpConfig, pwTargetConfigColl);
   }
   PwLdpRequestSm(U32 instId, Vek::Ptr<Pseudowire::PseudowireLdpConfig const> const& pwLdpConfig,
                  Vek::Ptr<PwTargetConfigColl> const& pwTargetConfigColl);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLdpRequest(Pseudowire::PseudowireLdpRequestKey const& key) { handleRequest(key); }
   void handleRequest(Pseudowire::PseudowireLdpRequestKey const& key);
   void handleNeighbor(Nolu::IpGenAddr const& addr);

   PwNeighbor const* neighbor(Nolu::IpGenAddr const& addr) const {
      auto const* p = neighborAddr_.find(addr);
      return p ? p->ptr() : nullptr;
   }
   std::size_t neighbors() const { return neighborAddr_.size(); }

 private:
   Vek::Ptr<Pseudowire::PseudowireLdpConfig const> pwLdpConfig_;
   Vek::Ptr<PwTargetConfigColl> pwTargetConfigColl_;
   Vek::Input<Pseudowire::PseudowireLdpConfig::Reactor<PwLdpRequestSm>> pwLdpConfigReactor_;
   // The neighbours by address, each with the requests that it serves.
   Vek::HashMap<Nolu::IpGenAddr, Vek::Ptr<PwNeighbor>> neighborAddr_;
};

}  // namespace Ldp
