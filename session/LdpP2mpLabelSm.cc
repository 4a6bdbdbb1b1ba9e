#include "session/LdpP2mpLabelSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpP2mp");
}

LdpP2mpLabelRxSm::LdpP2mpLabelRxSm(U32 instId, LdpSessionId const& id,
                                   Vek::Ptr<LdpMsgPipe> const& msgPipe, char const* kind)
   : LdpSm(instId), id_(id), msgPipe_(Vek::validPtr(msgPipe)), kind_(kind) {
   msgPipeReactor_.init(this, msgPipe_);
   handleInitialized();
}

void LdpP2mpLabelRxSm::handleInitialized() {
   LDP_HANDLER(th, kind_ << "::handleInitialized " << id_);
   initialized_ = true;
   handleMsgPipeReadable();
}

// Multicast label messages have no receiver yet: each is taken and dropped.
void LdpP2mpLabelRxSm::handleMsgPipeReadable() {
   if (!initialized_) return;
   while (msgPipe_->pendingMsgs()) {
      msgPipe_->rxMsg();
      ++dropped_;
      LDP_TRACE(th, 6, kind_ << " " << id_ << " dropped a message");
   }
}

LdpP2mpLabelTxSm::LdpP2mpLabelTxSm(U32 instId, LdpSessionId const& id,
                                   Vek::Ptr<LdpMsgPipe> const& msgPipe, char const* kind)
   : LdpSm(instId), id_(id), msgPipe_(Vek::validPtr(msgPipe)), kind_(kind) {
   handleInitialized();
}

void LdpP2mpLabelTxSm::handleInitialized() {
   LDP_HANDLER(th, kind_ << "::handleInitialized " << id_);
   initialized_ = true;
}

}  // namespace Ldp
