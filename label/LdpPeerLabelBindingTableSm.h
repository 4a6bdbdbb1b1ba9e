#pragma once
// The labels that peers advertise, one binding table per peer, for the
// forwarding side and for the FEC database (which reads which LSRs mapped a
// FEC). A label in force for an unfiltered FEC has its row; a withdrawn or
// released one loses it, and a peer table left empty goes. A configured
// static outgoing label (a next hop and the label it expects) has its row in
// the table of the LSR that owns the next hop's address, follows the address
// from peer to peer, and yields to a label learned from that peer.
#include <map>
#include <set>

#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpSession.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpPeerLabelBindingTableSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Config const> config;
      Vek::Ptr<LdpFecConfigColl const> ldpFecConfigColl;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpFecSessionStatusColl const> ldpFecSessionStatusColl;
      Vek::Ptr<Mpls::LdpInternalLabelBindingTableColl> peerLabelBindingTableColl;
      Vek::Ptr<LdpIdIntfIpMappingTable const> ldpIdIntfIpMappingTable;
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

   // Static bindings: an entry added or removed, or its next hop or label
   // changed; and an address whose LSR changed.
   void handleStaticFecBindingColl(Mpls::FwdEqvClass const& fec);
   void handleStaticFecBindingMember(Mpls::FwdEqvClass const& fec);
   void handleFecStaticBinding(Mpls::FwdEqvClass const& fec);
   void handleIntfIpToLdpId(Nolu::IpGenAddr const& addr) { handleIntfIp(addr); }
   void handleIntfIp(Nolu::IpGenAddr const& addr);

   std::string const& reason() const { return reason_; }
   // The LSR whose table holds a FEC's static row, or the empty identifier.
   LdpIdentifier fwdEqvClassLdpIdMapping(Mpls::FwdEqvClass const& fec) const {
      auto it = fwdEqvClassLdpIdMapping_.find(fec);
      return it == fwdEqvClassLdpIdMapping_.end() ? LdpIdentifier() : it->second;
   }
   // The FECs whose static binding goes through an address.
   std::set<Mpls::FwdEqvClass> const* intfIpFwdEqvClassMapping(Nolu::IpGenAddr const& a) const {
      auto it = intfIpFwdEqvClassMapping_.find(a);
      return it == intfIpFwdEqvClassMapping_.end() ? nullptr : &it->second;
   }

 private:
   Vek::Ptr<Mpls::LdpInternalLabelBindingTable> getOrCreateBindingTable(Mpls::RouterId const& peer);
   void deleteUnusedPeerTable(Mpls::RouterId const& peer);
   LdpIdentifier doAddFecStaticBinding(LdpStaticFecBindingEntry const& entry);
   void doRemoveFecStaticBinding(Mpls::FwdEqvClass const& fec, LdpIdentifier const& ldpId);
   void doUpdateIntfIpFecMapping(Mpls::FwdEqvClass const& fec, Nolu::IpGenAddr const& addr,
                                 bool add);
   void doMaintainIntfIpFecMapping(Mpls::FwdEqvClass const& fec, Nolu::IpGenAddr const& oldAddr);
   // Whether a label of a peer's row is the static label that the FEC's
   // binding has placed there.
   bool isStaticRow(Mpls::FwdEqvClass const& fec, Mpls::RouterId const& peer,
                    Nolu::MplsLabel const& label) const;
   Vek::Ptr<LdpStaticFecBindingEntry const> staticEntry(Mpls::FwdEqvClass const& fec) const {
      return in_.config ? in_.config->staticFecBindingColl(fec) : nullptr;
   }

   Inputs in_;
   std::string reason_;
   std::map<Nolu::IpGenAddr, std::set<Mpls::FwdEqvClass>> intfIpFwdEqvClassMapping_;
   std::map<Mpls::FwdEqvClass, LdpIdentifier> fwdEqvClassLdpIdMapping_;
   // The next hop under which each static binding stands in the address map,
   // so that a changed next hop leaves the old address.
   std::map<Mpls::FwdEqvClass, Nolu::IpGenAddr> mappedNexthop_;
   Vek::Input<LdpFecSessionStatusColl::Reactor<LdpPeerLabelBindingTableSm>> fecSessionReactor_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpPeerLabelBindingTableSm>> fecConfigReactor_;
   Vek::Input<Config::Reactor<LdpPeerLabelBindingTableSm>> configReactor_;
   Vek::Input<LdpIdIntfIpMappingTable::Reactor<LdpPeerLabelBindingTableSm>> intfIpReactor_;
   Vek::ReactorColl<Mpls::FwdEqvClass,
                    LdpStaticFecBindingEntry::MemberReactor<LdpPeerLabelBindingTableSm,
                                                            Mpls::FwdEqvClass>>
      staticBinding_;
};

}  // namespace Ldp
