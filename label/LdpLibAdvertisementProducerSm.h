#pragma once
// Publishes, for the forwarding side, the LSRs that were sent each FEC's
// local label: copies the VRF's LabelAdvertisementColl into the rows
// localLbtAdvertisedTo of the shared table at mpls/ldp/ldpBindingTables.
//
// The copy is row by row, as the local and peer bindings are: the
// advertisement table carries no change counter of its own, so the change of
// an entry, or of one LSR in it, names the FEC whose published rows are made
// equal to the entry. The start compares everything, so that rows left by a
// former run go.
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "entities/LdpTesh.h"
#include "runtime/vek/Reactor.h"

namespace Ldp::LdpTesh {

class LdpLibAdvertisementProducerSm : public LdpSm {
 public:
   static Vek::Ptr<LdpLibAdvertisementProducerSm> LdpLibAdvertisementProducerSmIs(
      U32 instId, Vek::Ptr<Mpls::LabelAdvertisementColl const> const& labelAdvertisementColl,
      Vek::Ptr<LdpLabelBindingTable> const& labelBindingTable) {
      return Vek::makeSm<LdpLibAdvertisementProducerSm>(instId, labelAdvertisementColl,
                                                         labelBindingTable);
   }
   LdpLibAdvertisementProducerSm(
      U32 instId, Vek::Ptr<Mpls::LabelAdvertisementColl const> const& labelAdvertisementColl,
      Vek::Ptr<LdpLabelBindingTable> const& labelBindingTable);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleAdvertisedTo(Mpls::FwdEqvClass const& fec);
   void handleAdvertisedToLdpIdentifier(Mpls::FwdEqvClass const& fec, LdpIdentifier const& id);

 private:
   class Reactor
      : public Vek::CustomReactor<Mpls::LabelAdvertisementColl::NotifieeConst,
                                  LdpLibAdvertisementProducerSm> {
    public:
      using CustomReactor::CustomReactor;
      void onAdvertisedTo(Mpls::FwdEqvClass const& k) override {
         fwd([&k](auto* sm) { sm->handleAdvertisedTo(k); });
      }
      void onAdvertisedToLdpIdentifier(Mpls::FwdEqvClass const& k,
                                       LdpIdentifier const& id) override {
         fwd([&k, &id](auto* sm) { sm->handleAdvertisedToLdpIdentifier(k, id); });
      }
   };
   Vek::Ptr<Mpls::LabelAdvertisementColl const> labelAdvertisementColl_;
   Vek::Ptr<LdpLabelBindingTable> labelBindingTable_;
   Vek::Input<Reactor> reactor_;
};

}  // namespace Ldp::LdpTesh
