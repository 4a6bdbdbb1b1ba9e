#pragma once
// Decides the interfaces of a VRF on which LDP wants Hello channels: not a
// loopback or management interface, present in the VRF's IP status and the
// device directory, MPLS not disabled on it, and LDP running in the VRF.
#include "entities/LdpSm.h"
#include "entities/LdpConfig.h"
#include "entities/LdpDiscovery.h"
#include "entities/Platform.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpPamDesiredIntfSm : public LdpSm {
 public:
   static Vek::Ptr<LdpPamDesiredIntfSm> LdpPamDesiredIntfSmIs(
      U32 instId, L3::VrfName const& vrfName, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
      Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
      Vek::Ptr<Interface::PamDesiredIntfDir> const& pamDesiredIntfDir,
      Vek::Ptr<LdpLinkConfigColl> const& ldpLinkConfigColl,
      Vek::Ptr<Interface::DeviceIntfStatusDir const> const& deviceIntfStatusDir) {
      return Vek::makeSm<LdpPamDesiredIntfSm>(instId, vrfName, protoConfig, mplsRoutingConfig,
                                              vrfIpIntfStatus, pamDesiredIntfDir,
                                              ldpLinkConfigColl, deviceIntfStatusDir);
   }
   LdpPamDesiredIntfSm(U32 instId, L3::VrfName const& vrfName,
                       Vek::Ptr<ProtoConfig const> const& protoConfig,
                       Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
                       Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
                       Vek::Ptr<Interface::PamDesiredIntfDir> const& pamDesiredIntfDir,
                       Vek::Ptr<LdpLinkConfigColl> const& ldpLinkConfigColl,
                       Vek::Ptr<Interface::DeviceIntfStatusDir const> const& deviceIntfStatusDir);

   void handleInitialized();
   void handleVrfIpIntf();
   void handleVrfIpIntf(Nolu::IntfId const& intf);
   // Reactor handlers of the inputs.
   void handleRunningState() { handleVrfIpIntf(); }
   void handleMplsRoutingDisabledIntf(Nolu::IntfId const& intf) { handleVrfIpIntf(intf); }
   void handleIpIntfStatus(Nolu::IntfId const& intf) { handleVrfIpIntf(intf); }
   void handleIntfStatusAndDeviceName(Nolu::IntfId const& intf) { handleVrfIpIntf(intf); }

 private:
   L3::VrfName vrfName_;
   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<Mpls::Config const> mplsRoutingConfig_;
   Vek::Ptr<Ip::VrfIpIntfStatus const> vrfIpIntfStatus_;
   Vek::Ptr<Interface::PamDesiredIntfDir> pamDesiredIntfDir_;
   Vek::Ptr<LdpLinkConfigColl> ldpLinkConfigColl_;
   Vek::Ptr<Interface::DeviceIntfStatusDir const> deviceIntfStatusDir_;
   Vek::Input<ProtoConfig::Reactor<LdpPamDesiredIntfSm>> protoConfigReactor_;
   Vek::Input<Mpls::Config::Reactor<LdpPamDesiredIntfSm>> mplsRoutingConfigReactor_;
   Vek::Input<Ip::VrfIpIntfStatus::Reactor<LdpPamDesiredIntfSm>> vrfIpIntfStatusReactor_;
   Vek::Input<Interface::DeviceIntfStatusDir::Reactor<LdpPamDesiredIntfSm>>
      deviceIntfStatusDirReactor_;
};

}  // namespace Ldp
