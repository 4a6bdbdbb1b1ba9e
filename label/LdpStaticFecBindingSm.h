#pragma once
// Configured static bindings make FECs (their static membership), and the
// local labels they configure go to the static binding table, where the
// local binding table takes them over the dynamic ones.
#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpStaticFecBindingSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<Config const> config;
      Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
      Vek::Ptr<Mpls::LabelBindingTable> staticBindingTable;
   };
   static Vek::Ptr<LdpStaticFecBindingSm> LdpStaticFecBindingSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpStaticFecBindingSm>(instId, in);
   }
   LdpStaticFecBindingSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleFecStaticBinding();
   void handleFecStaticBinding(Mpls::FwdEqvClass const& fec);
   // The collection of bindings, and a change of one binding.
   void handleStaticFecBindingColl(Mpls::FwdEqvClass const& fec);
   void handleBindingMember(Mpls::FwdEqvClass const& fec) { handleFecStaticBinding(fec); }

 private:
   Inputs in_;
   Vek::Input<Config::Reactor<LdpStaticFecBindingSm>> configReactor_;
   Vek::ReactorColl<Mpls::FwdEqvClass,
                    LdpStaticFecBindingEntry::MemberReactor<LdpStaticFecBindingSm, Mpls::FwdEqvClass>>
      binding_;
};

}  // namespace Ldp
