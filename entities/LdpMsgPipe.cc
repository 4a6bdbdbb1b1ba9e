#include "entities/LdpMsgPipe.h"

namespace Ldp {

void LdpMsgPipe::txMsgIs(Vek::Ptr<LdpMsg> const& msg) {
   queue_.push_back(Vek::validPtr(msg));
   txMsgCountInc(1);
   readableCountInc(1);
   // A pipe without a reader keeps nothing: what nobody took is dropped.
   if (notifieeCount() == 0) queue_.clear();
}

Vek::Ptr<LdpMsg> LdpMsgPipe::rxMsg() {
   if (queue_.empty()) return nullptr;
   Vek::Ptr<LdpMsg> m = std::move(queue_.front());
   queue_.pop_front();
   return m;
}

Vek::Ptr<LdpMsgPipe> ldpMsgPipeFactory(std::string const& name) {
   return Vek::Ptr<LdpMsgPipe>(new LdpMsgPipe(name));
}

}  // namespace Ldp
