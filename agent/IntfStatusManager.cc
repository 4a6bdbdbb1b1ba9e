#include "agent/IntfStatusManager.h"

#include "entities/Functions.h"

namespace Interface {

Vek::Ptr<NetNsIntfStatusManagerRoot> NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRootIs(
   Vek::Ptr<KernelNetInfo::Status const> const& kniStatus,
   Vek::Ptr<AllIntfStatusDir> const& allIntfStatusDir,
   Vek::Ptr<AllIntfStatusLocalDir> const& allIntfStatusLocalDir) {
   return Vek::makeSm<NetNsIntfStatusManagerRoot>(kniStatus, allIntfStatusDir,
                                                  allIntfStatusLocalDir);
}

NetNsIntfStatusManagerRoot::NetNsIntfStatusManagerRoot(
   Vek::Ptr<KernelNetInfo::Status const> const& kniStatus,
   Vek::Ptr<AllIntfStatusDir> const& allIntfStatusDir,
   Vek::Ptr<AllIntfStatusLocalDir> const& allIntfStatusLocalDir)
   : allIntfStatusDir_(Vek::validPtr(allIntfStatusDir)),
     allIntfStatusLocalDir_(Vek::validPtr(allIntfStatusLocalDir)) {
   kniStatus_.init(this, kniStatus);
   handleInitialized();
}

void NetNsIntfStatusManagerRoot::handleInitialized() {
   if (auto const* kni = kniStatus_.get()) {
      for (auto it = kni->intf().begin(); it; ++it) syncIntf(it.key());
   }
   initialized_ = true;
}

void NetNsIntfStatusManagerRoot::intfStatusManagerIs(
   Vek::Ptr<DeviceIntfStatusDir> const& deviceIntfStatusDir) {
   deviceIntfStatusDir_ = deviceIntfStatusDir;
   if (auto const* kni = kniStatus_.get()) {
      for (auto it = kni->intf().begin(); it; ++it) syncIntf(it.key());
   }
}

void NetNsIntfStatusManagerRoot::handleIntf(U32 const& ifIndex) {
   if (!initialized_) return;
   syncIntf(ifIndex);
}

void NetNsIntfStatusManagerRoot::handleIntfMember(U32 const& ifIndex) {
   if (!initialized_) return;
   syncIntf(ifIndex);
}

void NetNsIntfStatusManagerRoot::syncIntf(U32 ifIndex) {
   auto const* kni = kniStatus_.get();
   auto k = kni ? kni->intf(ifIndex) : nullptr;
   Nolu::IntfId old;
   if (auto const* p = intfIdByIndex_.find(ifIndex)) old = *p;
   Nolu::IntfId now = k ? (k->intfId().isEmpty() ? Nolu::IntfId(k->name()) : k->intfId())
                        : Nolu::IntfId();
   if (!old.isEmpty() && old != now) {
      allIntfStatusDir_->intfStatusDel(old);
      allIntfStatusLocalDir_->intfStatusDel(old);
      Ldp::IntfKindRegistry::instance().loopbackIs(old, false);
      intfIdByIndex_.erase(ifIndex);
      if (deviceIntfStatusDir_) {
         deviceIntfStatusDir_->intfStatusAndDeviceNameDel(old);
         deviceIntfStatusDir_->intfIdByIfIndexDel(ifIndex);
      }
   }
   if (!k) {
      intf_.del(ifIndex);
      return;
   }
   // Watch the kernel entry even before it has a name, to see the name come.
   intf_.is(ifIndex, this, k, ifIndex, &NetNsIntfStatusManagerRoot::handleIntfMember);
   if (now.isEmpty()) return;
   if (auto* p = intfIdByIndex_.find(ifIndex)) *p = now;
   else intfIdByIndex_.emplace(ifIndex, now);
   Ldp::IntfKindRegistry::instance().loopbackIs(now, k->loopback());
   auto fill = [&](Vek::Ptr<IntfStatus> const& s) {
      s->operStatusIs(k->operStatus());
      s->mtuIs(k->mtu());
      s->deviceNameIs(k->name());
      s->ifIndexIs(ifIndex);
      s->loopbackIs(k->loopback());
      s->activeIs(k->operStatus() == intfOperUp_);
   };
   fill(allIntfStatusDir_->intfStatusIs(now));
   fill(allIntfStatusLocalDir_->intfStatusIs(now));
   if (deviceIntfStatusDir_) {
      deviceIntfStatusDir_->intfIdByIfIndexIs(ifIndex, now);
      deviceIntfStatusDir_->intfStatusAndDeviceNameIs(now, k->name());
   }
}

}  // namespace Interface
