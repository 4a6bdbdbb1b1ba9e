#pragma once
// The point-to-multipoint machines of a VRF: the frame of multicast LDP. Each
// is made by the root, takes its inputs and watches them, traces and does
// nothing else yet; they stand so that the root and the session layer have
// their final shape.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "entities/LdpTesh.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

// The multicast FECs of the VRF.
class LdpP2mpFecStateSm : public LdpSm {
 public:
   static Vek::Ptr<LdpP2mpFecStateSm> LdpP2mpFecStateSmIs(
      U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& c) {
      return Vek::makeSm<LdpP2mpFecStateSm>(instId, c);
   }
   LdpP2mpFecStateSm(U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& c);
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleNotifyCounter();

 private:
   Vek::Ptr<LdpP2mpFecStateColl const> p2mpFecStateColl_;
   Vek::Input<LdpP2mpFecStateColl::Reactor<LdpP2mpFecStateSm>> reactor_;
};

// The members of the multicast FEC collection.
class LdpP2mpFecStateCollSm : public LdpSm {
 public:
   static Vek::Ptr<LdpP2mpFecStateCollSm> LdpP2mpFecStateCollSmIs(
      U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& c) {
      return Vek::makeSm<LdpP2mpFecStateCollSm>(instId, c);
   }
   LdpP2mpFecStateCollSm(U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& c);
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleP2mpFecState(LdpP2mpFecId const& id);

 private:
   Vek::Ptr<LdpP2mpFecStateColl const> p2mpFecStateColl_;
   Vek::Input<LdpP2mpFecStateColl::Reactor<LdpP2mpFecStateCollSm>> reactor_;
};

// Would generate the multicast label forwarding input from the sessions'
// local multicast labels.
class LdpP2mpLfibGenSm : public LdpSm {
 public:
   static Vek::Ptr<LdpP2mpLfibGenSm> LdpP2mpLfibGenSmIs(
      U32 instId, Vek::Ptr<Mpls::LfibStatus> const& lfib,
      Vek::Ptr<LdpP2mpFecSessionLocalStateColl const> const& local) {
      return Vek::makeSm<LdpP2mpLfibGenSm>(instId, lfib, local);
   }
   LdpP2mpLfibGenSm(U32 instId, Vek::Ptr<Mpls::LfibStatus> const& lfib,
                    Vek::Ptr<LdpP2mpFecSessionLocalStateColl const> const& local);
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleChangeCounter();

 private:
   Vek::Ptr<Mpls::LfibStatus> lfibStatus_;
   Vek::Ptr<LdpP2mpFecSessionLocalStateColl const> localStateColl_;
   Vek::Input<LdpP2mpFecSessionLocalStateColl::Reactor<LdpP2mpLfibGenSm>> reactor_;
};

// Would publish the multicast bindings in the shared table.
class LdpP2mpLabelBindingTableSm : public LdpSm {
 public:
   static Vek::Ptr<LdpP2mpLabelBindingTableSm> LdpP2mpLabelBindingTableSmIs(
      U32 instId, Vek::Ptr<LdpP2mpInternalLabelBindingTableColl const> const& internal,
      Vek::Ptr<LdpP2mpLabelBindingTable> const& shared) {
      return Vek::makeSm<LdpP2mpLabelBindingTableSm>(instId, internal, shared);
   }
   LdpP2mpLabelBindingTableSm(U32 instId,
                              Vek::Ptr<LdpP2mpInternalLabelBindingTableColl const> const& internal,
                              Vek::Ptr<LdpP2mpLabelBindingTable> const& shared);
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleP2mpBindingTable(Mpls::RouterId const& id);

 private:
   Vek::Ptr<LdpP2mpInternalLabelBindingTableColl const> internal_;
   Vek::Ptr<LdpP2mpLabelBindingTable> shared_;
   Vek::Input<LdpP2mpInternalLabelBindingTableColl::Reactor<LdpP2mpLabelBindingTableSm>> reactor_;
};

// The sessions' local side of multicast FECs, told of changes of the FECs.
class LdpP2mpFecSessionLocalStateSm : public LdpSm {
 public:
   static Vek::Ptr<LdpP2mpFecSessionLocalStateSm> LdpP2mpFecSessionLocalStateSmIs(
      U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& fecs,
      Vek::Ptr<LdpP2mpFecSessionLocalStateColl> const& local) {
      return Vek::makeSm<LdpP2mpFecSessionLocalStateSm>(instId, fecs, local);
   }
   LdpP2mpFecSessionLocalStateSm(U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& fecs,
                                 Vek::Ptr<LdpP2mpFecSessionLocalStateColl> const& local);
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleP2mpFecStateNotifier();
   // The notifier of the FEC collection.
   void handleNotifyCounter() { handleP2mpFecStateNotifier(); }

 private:
   Vek::Ptr<LdpP2mpFecStateColl const> fecs_;
   Vek::Ptr<LdpP2mpFecSessionLocalStateColl> local_;
   Vek::Input<LdpP2mpFecStateColl::Reactor<LdpP2mpFecSessionLocalStateSm>> reactor_;
};

// The sessions' remote side of multicast FECs, told of what they receive.
class LdpP2mpFecSessionRemoteStateSm : public LdpSm {
 public:
   static Vek::Ptr<LdpP2mpFecSessionRemoteStateSm> LdpP2mpFecSessionRemoteStateSmIs(
      U32 instId, Vek::Ptr<LdpP2mpFecSessionRemoteStateColl> const& remote) {
      return Vek::makeSm<LdpP2mpFecSessionRemoteStateSm>(instId, remote);
   }
   LdpP2mpFecSessionRemoteStateSm(U32 instId,
                                  Vek::Ptr<LdpP2mpFecSessionRemoteStateColl> const& remote);
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleRxNotifier();
   void handleChangeCounter() { handleRxNotifier(); }

 private:
   Vek::Ptr<LdpP2mpFecSessionRemoteStateColl> remote_;
   Vek::Input<LdpP2mpFecSessionRemoteStateColl::Reactor<LdpP2mpFecSessionRemoteStateSm>> reactor_;
};

}  // namespace Ldp
