#include "label/LdpFecFilterSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpFecFilter");
}

LdpFecFilterSm::LdpFecFilterSm(U32 instId, Vek::Ptr<LdpFecFilter> const& fecFilter,
                               Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), fecFilter_(Vek::validPtr(fecFilter)), scheduler_(Vek::validPtr(scheduler)) {
   fecFilterReactor_.init(this, fecFilter_);
   prefixListPtr_.init(this, fecFilter_->prefixList());
   handleInitialized();
}

void LdpFecFilterSm::handleInitialized() {
   codefTimerTask_ = Hesk::timerTaskIs(this, &LdpFecFilterSm::deferredUpdateFilterVersion,
                                       scheduler_, 2, "FecFilterCodefTimerTask");
   initialized_ = true;
}

void LdpFecFilterSm::handlePrefixList() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpFecFilterSm::handlePrefixList");
   auto list = fecFilter_->prefixList();
   if (list != prefixListPtr_.notifier()) prefixListPtr_.assign(this, list);
   updateFilterVersion();
}

// Further edits within the delay do not extend it.
void LdpFecFilterSm::updateFilterVersion() {
   if (!initialized_) return;
   codefTimerTask_->scheduleTaskLowestDelay(codefDelay_);
}

void LdpFecFilterSm::deferredUpdateFilterVersion() {
   if (!initialized_) return;
   codefTimerTask_->stopTimerTask();
   LDP_TRACE(th, 5, "Filter version " << fecFilter_->filterVersion() + 1);
   fecFilter_->filterVersionInc(1);
}

}  // namespace Ldp
