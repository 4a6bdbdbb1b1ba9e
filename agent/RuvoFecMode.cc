#include "agent/RuvoFecMode.h"

#include "runtime/vek/Trace.h"

namespace Ruvo {

namespace {
Vek::TraceHandle th("Ruvo");
}

Vek::Ptr<FecModeSm> FecModeSm::FecModeSmIs(Vek::Ptr<L3::Config const> const& l3Config,
                                           Vek::Ptr<Tesh::Fib::FecModeStatus> const& status) {
   return Vek::makeSm<FecModeSm>(l3Config, status);
}

FecModeSm::FecModeSm(Vek::Ptr<L3::Config const> const& l3Config,
                     Vek::Ptr<Tesh::Fib::FecModeStatus> const& status)
   : fecModeStatus_(Vek::validPtr(status)) {
   l3Config_.init(this, l3Config);
   handleInitialized();
}

void FecModeSm::handleInitialized() {
   computeFecMode();
   initialized_ = true;
}

void FecModeSm::handleUnifiedForwarding() {
   if (!initialized_) return;
   computeFecMode();
}

void FecModeSm::computeFecMode() {
   auto const* cfg = l3Config_.get();
   auto mode = cfg && cfg->unifiedForwarding() ? Tesh::Fib::fecModeUnified_
                                                : Tesh::Fib::fecModeSplit_;
   VEK_TRACE(th, 5, "fec mode " << mode);
   fecModeStatus_->fecModeIs(mode);
}

Vek::Ptr<FecModeRestartSm> FecModeRestartSm::FecModeRestartSmIs(
   Vek::Ptr<Tesh::Fib::FecModeStatus> const& status) {
   return Vek::makeSm<FecModeRestartSm>(status);
}

FecModeRestartSm::FecModeRestartSm(Vek::Ptr<Tesh::Fib::FecModeStatus> const& status)
   : fecModeStatus_(Vek::validPtr(status)) {
   input_.init(this, status);
   handleInitialized();
}

void FecModeRestartSm::handleInitialized() {
   startMode_ = fecModeStatus_->fecMode();
   initialized_ = true;
}

void FecModeRestartSm::handleFecMode() {
   if (!initialized_) return;
   auto mode = fecModeStatus_->fecMode();
   if (startMode_ == Tesh::Fib::fecModeUnknown_) {
      startMode_ = mode;
      return;
   }
   if (mode == startMode_ || restartRequired_) return;
   VEK_TRACE(th, 1, "forwarding mode changed from " << startMode_ << " to " << mode
                                                    << ": restart required");
   restartRequired_ = true;
   fecModeStatus_->modeChangeCountInc(1);
}

}  // namespace Ruvo
