#pragma once
// Fills the agent's two local interface directories from the kernel's view of
// the network namespace, and tells the interface predicates which interfaces
// are loopbacks.
#include "entities/EntityTypes.h"
#include "runtime/vek/Reactor.h"

namespace Interface {

class NetNsIntfStatusManagerRoot : public Vek::Sm {
 public:
   static Vek::Ptr<NetNsIntfStatusManagerRoot> NetNsIntfStatusManagerRootIs(
      Vek::Ptr<KernelNetInfo::Status const> const& kniStatus,
      Vek::Ptr<AllIntfStatusDir> const& allIntfStatusDir,
      Vek::Ptr<AllIntfStatusLocalDir> const& allIntfStatusLocalDir);
   NetNsIntfStatusManagerRoot(Vek::Ptr<KernelNetInfo::Status const> const& kniStatus,
                              Vek::Ptr<AllIntfStatusDir> const& allIntfStatusDir,
                              Vek::Ptr<AllIntfStatusLocalDir> const& allIntfStatusLocalDir);
   void handleInitialized();
   // Also keeps the device directory: kernel names and indexes of interfaces.
   void intfStatusManagerIs(Vek::Ptr<DeviceIntfStatusDir> const& deviceIntfStatusDir);
   void handleIntf(U32 const& ifIndex);
   void handleIntfMember(U32 const& ifIndex);

 private:
   void syncIntf(U32 ifIndex);
   Vek::Ptr<AllIntfStatusDir> allIntfStatusDir_;
   Vek::Ptr<AllIntfStatusLocalDir> allIntfStatusLocalDir_;
   Vek::Ptr<DeviceIntfStatusDir> deviceIntfStatusDir_;
   Vek::Input<KernelNetInfo::Status::Reactor<NetNsIntfStatusManagerRoot>> kniStatus_;
   Vek::ReactorColl<U32, KernelNetInfo::Intf::MemberReactor<NetNsIntfStatusManagerRoot, U32>>
      intf_;
   // The interface that each kernel index stood for, to remove it when the
   // kernel entry goes.
   Vek::HashMap<U32, Nolu::IntfId> intfIdByIndex_;
};

}  // namespace Interface
