#include "aux/LdpP2mpSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpP2mp");
}

LdpP2mpFecStateSm::LdpP2mpFecStateSm(U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& c)
   : LdpSm(instId), p2mpFecStateColl_(Vek::validPtr(c)) {
   reactor_.init(this, p2mpFecStateColl_);
   handleInitialized();
}
void LdpP2mpFecStateSm::handleInitialized() {
   LDP_HANDLER(th, "LdpP2mpFecStateSm::handleInitialized");
   initialized_ = true;
}
void LdpP2mpFecStateSm::handleNotifyCounter() {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpP2mpFecStateSm::handleNotifyCounter");
}

LdpP2mpFecStateCollSm::LdpP2mpFecStateCollSm(U32 instId,
                                             Vek::Ptr<LdpP2mpFecStateColl const> const& c)
   : LdpSm(instId), p2mpFecStateColl_(Vek::validPtr(c)) {
   reactor_.init(this, p2mpFecStateColl_);
   handleInitialized();
}
void LdpP2mpFecStateCollSm::handleInitialized() {
   LDP_HANDLER(th, "LdpP2mpFecStateCollSm::handleInitialized");
   initialized_ = true;
}
void LdpP2mpFecStateCollSm::handleP2mpFecState(LdpP2mpFecId const& id) {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpP2mpFecStateCollSm::handleP2mpFecState " << id);
}

LdpP2mpLfibGenSm::LdpP2mpLfibGenSm(U32 instId, Vek::Ptr<Mpls::LfibStatus> const& lfib,
                                   Vek::Ptr<LdpP2mpFecSessionLocalStateColl const> const& local)
   : LdpSm(instId), lfibStatus_(lfib), localStateColl_(Vek::validPtr(local)) {
   reactor_.init(this, localStateColl_);
   handleInitialized();
}
void LdpP2mpLfibGenSm::handleInitialized() {
   LDP_HANDLER(th, "LdpP2mpLfibGenSm::handleInitialized");
   initialized_ = true;
}
void LdpP2mpLfibGenSm::handleChangeCounter() {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpP2mpLfibGenSm::handleChangeCounter");
}

LdpP2mpLabelBindingTableSm::LdpP2mpLabelBindingTableSm(
   U32 instId, Vek::Ptr<LdpP2mpInternalLabelBindingTableColl const> const& internal,
   Vek::Ptr<LdpP2mpLabelBindingTable> const& shared)
   : LdpSm(instId), internal_(Vek::validPtr(internal)), shared_(shared) {
   reactor_.init(this, internal_);
   handleInitialized();
}
void LdpP2mpLabelBindingTableSm::handleInitialized() {
   LDP_HANDLER(th, "LdpP2mpLabelBindingTableSm::handleInitialized");
   initialized_ = true;
}
void LdpP2mpLabelBindingTableSm::handleP2mpBindingTable(Mpls::RouterId const& id) {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpP2mpLabelBindingTableSm::handleP2mpBindingTable " << id);
}

LdpP2mpFecSessionLocalStateSm::LdpP2mpFecSessionLocalStateSm(
   U32 instId, Vek::Ptr<LdpP2mpFecStateColl const> const& fecs,
   Vek::Ptr<LdpP2mpFecSessionLocalStateColl> const& local)
   : LdpSm(instId), fecs_(Vek::validPtr(fecs)), local_(Vek::validPtr(local)) {
   reactor_.init(this, fecs_);
   handleInitialized();
}
void LdpP2mpFecSessionLocalStateSm::handleInitialized() {
   LDP_HANDLER(th, "LdpP2mpFecSessionLocalStateSm::handleInitialized");
   initialized_ = true;
}
void LdpP2mpFecSessionLocalStateSm::handleP2mpFecStateNotifier() {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpP2mpFecSessionLocalStateSm::handleP2mpFecStateNotifier");
}

LdpP2mpFecSessionRemoteStateSm::LdpP2mpFecSessionRemoteStateSm(
   U32 instId, Vek::Ptr<LdpP2mpFecSessionRemoteStateColl> const& remote)
   : LdpSm(instId), remote_(Vek::validPtr(remote)) {
   reactor_.init(this, remote_);
   handleInitialized();
}
void LdpP2mpFecSessionRemoteStateSm::handleInitialized() {
   LDP_HANDLER(th, "LdpP2mpFecSessionRemoteStateSm::handleInitialized");
   initialized_ = true;
}
void LdpP2mpFecSessionRemoteStateSm::handleRxNotifier() {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpP2mpFecSessionRemoteStateSm::handleRxNotifier");
}

}  // namespace Ldp
