#include "agent/LdpPamDesiredIntfSm.h"

#include "entities/Functions.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpPamDesiredIntf");
}

LdpPamDesiredIntfSm::LdpPamDesiredIntfSm(
   U32 instId, L3::VrfName const& vrfName, Vek::Ptr<ProtoConfig const> const& protoConfig,
   Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
   Vek::Ptr<Ip::VrfIpIntfStatus const> const& vrfIpIntfStatus,
   Vek::Ptr<Interface::PamDesiredIntfDir> const& pamDesiredIntfDir,
   Vek::Ptr<LdpLinkConfigColl> const& ldpLinkConfigColl,
   Vek::Ptr<Interface::DeviceIntfStatusDir const> const& deviceIntfStatusDir)
   : LdpSm(instId), vrfName_(vrfName), protoConfig_(Vek::validPtr(protoConfig)),
     mplsRoutingConfig_(mplsRoutingConfig), vrfIpIntfStatus_(Vek::validPtr(vrfIpIntfStatus)),
     pamDesiredIntfDir_(Vek::validPtr(pamDesiredIntfDir)),
     ldpLinkConfigColl_(Vek::validPtr(ldpLinkConfigColl)),
     deviceIntfStatusDir_(Vek::validPtr(deviceIntfStatusDir)) {
   protoConfigReactor_.init(this, protoConfig_);
   mplsRoutingConfigReactor_.init(this, mplsRoutingConfig_);
   vrfIpIntfStatusReactor_.init(this, vrfIpIntfStatus_);
   deviceIntfStatusDirReactor_.init(this, deviceIntfStatusDir_);
   handleInitialized();
}

void LdpPamDesiredIntfSm::handleInitialized() {
   initialized_ = true;
   handleVrfIpIntf();
}

void LdpPamDesiredIntfSm::handleVrfIpIntf() {
   if (!initialized_) return;
   for (auto it = vrfIpIntfStatus_->ipIntfStatusIter(); it; ++it) handleVrfIpIntf(it.key());
   for (auto it = pamDesiredIntfDir_->intfDesiredIter(); it; ++it) handleVrfIpIntf(it.key());
}

void LdpPamDesiredIntfSm::handleVrfIpIntf(Nolu::IntfId const& intf) {
   if (!initialized_) return;
   bool wanted = !isManagementOrInternalInterface(intf) && !isLoopbackInterface(intf) &&
                 vrfIpIntfStatus_->ipIntfStatusHas(intf) &&
                 !(mplsRoutingConfig_ && mplsRoutingConfig_->mplsRoutingDisabledIntfHas(intf)) &&
                 deviceIntfStatusDir_->intfStatusAndDeviceNameHas(intf) &&
                 protoConfig_->runningState() == running_;
   if (wanted) {
      if (pamDesiredIntfDir_->intfDesiredHas(intf) && ldpLinkConfigColl_->adjLinkConfigHas(intf))
         return;
      pamDesiredIntfDir_->intfDesiredIs(intf, true);
      ldpLinkConfigColl_->adjLinkConfigIs(intf);
      LDP_TRACE(th, 5, "pamDesiredIntfDir Added " << intf.stringValue());
      return;
   }
   if (!pamDesiredIntfDir_->intfDesiredHas(intf) && !ldpLinkConfigColl_->adjLinkConfigHas(intf))
      return;
   pamDesiredIntfDir_->intfDesiredDel(intf);
   if (auto lc = ldpLinkConfigColl_->adjLinkConfig(intf)) {
      // The link machine sees the link being disabled before it goes.
      lc->configStateIs(configDisabling_);
      ldpLinkConfigColl_->adjLinkConfigDel(intf);
   }
   LDP_TRACE(th, 5, "pamDesiredIntfDir Deleted " << intf.stringValue());
}

}  // namespace Ldp
