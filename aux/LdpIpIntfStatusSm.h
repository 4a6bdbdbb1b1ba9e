#pragma once
// Keeps the VRF's table of this LSR's interface addresses: every address of
// every interface that counts, with the set of interfaces that hold it. Its
// changes become Address and Address Withdraw messages on the sessions.
#include "entities/LdpSm.h"
#include "entities/LdpLabel.h"
#include "entities/Platform.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpIpIntfStatusSm : public LdpSm {
 public:
   static Vek::Ptr<LdpIpIntfStatusSm> LdpIpIntfStatusSmIs(
      U32 instId, Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
      Vek::Ptr<LocalIntfIpColl> const& localIntfIpColl,
      Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig) {
      return Vek::makeSm<LdpIpIntfStatusSm>(instId, vrfIpIntfStatus, localIntfIpColl,
                                            mplsRoutingConfig);
   }
   LdpIpIntfStatusSm(U32 instId, Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
                     Vek::Ptr<LocalIntfIpColl> const& localIntfIpColl,
                     Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleIpIntfStatus();
   void handleIpIntfStatus(Nolu::IntfId const& intfId);
   void handleMplsRoutingDisabledIntf(Nolu::IntfId const& intfId) { handleIpIntfStatus(intfId); }
   void handleIntfIp(Nolu::IntfId const& intfId, Nolu::IpAddrWithMask const& addr);

 private:
   class IntfReactor;
   Vek::Ptr<Ip::VrfIpIntfStatus const> vrfIpIntfStatus_;
   Vek::Ptr<LocalIntfIpColl> localIntfIpColl_;
   Vek::Ptr<Mpls::Config const> mplsRoutingConfig_;
   Vek::Input<Ip::VrfIpIntfStatus::Reactor<LdpIpIntfStatusSm>> vrfIpIntfStatusReactor_;
   Vek::Input<Mpls::Config::Reactor<LdpIpIntfStatusSm>> mplsRoutingConfigReactor_;
   Vek::ReactorColl<Nolu::IntfId, IntfReactor> ipIntfStatus_;
};

}  // namespace Ldp
