#pragma once
// The labels that peers advertise, one binding table per peer, for the
// forwarding side and for the FEC database (which reads which LSRs mapped a
// FEC). A label in force for an unfiltered FEC has its row; a withdrawn or
// released one loses it, and a peer table left empty goes.
#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpSession.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpPeerLabelBindingTableSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<LdpFecConfigColl const> ldpFecConfigColl;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpFecSessionStatusColl const> ldpFecSessionStatusColl;
      Vek::Ptr<Mpls::LdpInternalLabelBindingTableColl> peerLabelBindingTableColl;
   };
   static Vek::Ptr<LdpPeerLabelBindingTableSm> LdpPeerLabelBindingTableSmIs(U32 instId,
                                                                            Inputs const& in) {
      return Vek::makeSm<LdpPeerLabelBindingTableSm>(instId, in);
   }
   LdpPeerLabelBindingTableSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   void handleFecSessionStatusPeerLabelState(LdpFecSessionId const& id,
                                             Nolu::MplsLabel const& label) {
      handleMplsLabel(id, label);
   }
   void handleMplsLabel(LdpFecSessionId const& id, Nolu::MplsLabel const& label);
   void handleFecSessionStatus(LdpFecSessionId const& id);
   void handleFecConfig(Mpls::FwdEqvClass const& fec) { handleFecFilteredState(fec); }
   void handleFecConfigFecFilteredState(Mpls::FwdEqvClass const& fec) {
      handleFecFilteredState(fec);
   }
   void handleFecFilteredState(Mpls::FwdEqvClass const& fec);

   std::string const& reason() const { return reason_; }

 private:
   Vek::Ptr<Mpls::LdpInternalLabelBindingTable> getOrCreateBindingTable(Mpls::RouterId const& peer);
   void deleteUnusedPeerTable(Mpls::RouterId const& peer);

   Inputs in_;
   std::string reason_;
   Vek::Input<LdpFecSessionStatusColl::Reactor<LdpPeerLabelBindingTableSm>> fecSessionReactor_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpPeerLabelBindingTableSm>> fecConfigReactor_;
};

}  // namespace Ldp
