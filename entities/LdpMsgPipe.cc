#include "entities/LdpMsgPipe.h"

namespace Ldp {

void LdpMsgPipe::txMsgIs(Vek::Ptr<LdpMsg> const& msg) {
   // Without a reader, a few messages wait for it; a reader that never comes
   // costs no more than that.
   if (notifieeCount() == 0 && pendingMsgs() >= heldMsgMax) {
      droppedMsgCountInc(1);
      return;
   }
   if (!first_) {
      first_ = Vek::validPtr(msg);
   } else {
      if (!rest_) rest_ = std::make_unique<std::deque<Vek::Ptr<LdpMsg>>>();
      rest_->push_back(Vek::validPtr(msg));
   }
   txMsgCountInc(1);
   readableCountInc(1);
}

Vek::Ptr<LdpMsg> LdpMsgPipe::rxMsg() {
   Vek::Ptr<LdpMsg> m = std::move(first_);
   first_ = nullptr;
   if (rest_) {
      if (!rest_->empty()) {
         first_ = std::move(rest_->front());
         rest_->pop_front();
      }
      // A drained backlog gives its memory back.
      if (rest_->empty()) rest_.reset();
   }
   return m;
}

Vek::Ptr<LdpMsgPipe> ldpMsgPipeFactory(std::string const& name) {
   return Vek::Ptr<LdpMsgPipe>(new LdpMsgPipe(name));
}

}  // namespace Ldp
