#pragma once
// The local labels of the FECs: a configured static label wins over the one
// the allocator gave, and the result goes to the local binding table that
// the FEC database and the forwarding side read. The FECs' filtered state and
// the LSRs that were sent each label are published beside it.
#include "entities/LdpLabel.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpLocalBindingTableSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Mpls::LabelBindingTable const> dynamicAllocationTable;
      Vek::Ptr<Mpls::LabelBindingTable const> staticBindingTable;
      Vek::Ptr<LdpFecConfigColl const> ldpFecConfigColl;
      Vek::Ptr<Mpls::LdpInternalLabelBindingTable> localLabelBindingTable;
      Vek::Ptr<Mpls::LabelAdvertisementColl> labelAdvertisementColl;
   };
   static Vek::Ptr<LdpLocalBindingTableSm> LdpLocalBindingTableSmIs(U32 instId,
                                                                    Inputs const& in) {
      return Vek::makeSm<LdpLocalBindingTableSm>(instId, in);
   }
   LdpLocalBindingTableSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleFec(Mpls::FwdEqvClass const& fec);
   std::size_t updateLocalLabelBindings(Mpls::FwdEqvClass const& fec,
                                        Mpls::MplsLabelSet const* chosen);
   void handleFecConfig(Mpls::FwdEqvClass const& fec) { handleFecFilteredState(fec); }
   void handleFecConfigFecFilteredState(Mpls::FwdEqvClass const& fec) {
      handleFecFilteredState(fec);
   }
   void handleFecFilteredState(Mpls::FwdEqvClass const& fec);
   void handleFecConfigAdvertisedTo(Mpls::FwdEqvClass const& fec, LdpSessionId const& id) {
      handleAdvertisedToForPeer(fec, id.ldpIdentifier());
   }
   void handleAdvertisedTo(Mpls::FwdEqvClass const& fec);
   void handleAdvertisedToForPeer(Mpls::FwdEqvClass const& fec, LdpIdentifier const& id);

 private:
   // Both source tables feed handleFec.
   class SourceReactor
      : public Vek::CustomReactor<Mpls::LabelBindingTable::NotifieeConst, LdpLocalBindingTableSm> {
    public:
      using CustomReactor::CustomReactor;
      void onBinding(Mpls::FwdEqvClass const& fec) override { fire(fec); }
      void onBindingMplsLabel(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel const&) override {
         fire(fec);
      }

    private:
      void fire(Mpls::FwdEqvClass const& fec) {
         fwd([&fec](LdpLocalBindingTableSm* sm) { sm->handleFec(fec); });
      }
   };

   Inputs in_;
   Vek::Input<SourceReactor> dynamicReactor_;
   Vek::Input<SourceReactor> staticReactor_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpLocalBindingTableSm>> fecConfigReactor_;
};

}  // namespace Ldp
