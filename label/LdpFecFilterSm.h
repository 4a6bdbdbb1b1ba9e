#pragma once
// Turns edits of the FEC filter's prefix list into version bumps of the
// filter, coalesced so that a burst of edits re-evaluates the FECs once.
#include "entities/LdpConfig.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpFecFilterSm : public LdpSm {
 public:
   static Vek::Ptr<LdpFecFilterSm> LdpFecFilterSmIs(U32 instId, Vek::Ptr<LdpFecFilter> const& f,
                                                    Vek::Ptr<Hesk::TaskScheduler> const& s) {
      return Vek::makeSm<LdpFecFilterSm>(instId, f, s);
   }
   LdpFecFilterSm(U32 instId, Vek::Ptr<LdpFecFilter> const& fecFilter,
                  Vek::Ptr<Hesk::TaskScheduler> const& scheduler);

   void handleInitialized();
   // The filter's list was replaced.
   void handlePrefixList();
   // An entry of the list changed.
   void handlePermit(U32 const&) { updateFilterVersion(); }
   void handleDeny(U32 const&) { updateFilterVersion(); }
   void updateFilterVersion();
   void deferredUpdateFilterVersion();
   Vek::Seconds codefDelay() const { return codefDelay_; }

 private:
   Vek::Ptr<LdpFecFilter> fecFilter_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Seconds codefDelay_ = 1.0;
   Vek::Ptr<Hesk::TimerTask> codefTimerTask_;
   Vek::Input<LdpFecFilter::Reactor<LdpFecFilterSm>> fecFilterReactor_;
   Vek::Input<Acl::PrefixList::Reactor<LdpFecFilterSm>> prefixListPtr_;
};

}  // namespace Ldp
