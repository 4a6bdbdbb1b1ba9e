#include "entities/LdpMsgPipe.h"

namespace Ldp {

namespace {
// Released messages, for reuse. Under the address sanitizer every message
// goes back to the heap, so that a use after release is still caught.
#if defined(__SANITIZE_ADDRESS__)
constexpr std::size_t maxFreeMsgs = 0;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr std::size_t maxFreeMsgs = 0;
#else
constexpr std::size_t maxFreeMsgs = 1024;
#endif
#else
constexpr std::size_t maxFreeMsgs = 1024;
#endif
struct FreeMsg {
   FreeMsg* next;
};
FreeMsg* freeMsgs = nullptr;
std::size_t freeMsgCount = 0;
}  // namespace

void* LdpMsg::operator new(std::size_t size) {
   if (size == sizeof(LdpMsg) && freeMsgs) {
      FreeMsg* p = freeMsgs;
      freeMsgs = p->next;
      --freeMsgCount;
      return p;
   }
   return ::operator new(size);
}

void LdpMsg::operator delete(void* p, std::size_t size) {
   if (size == sizeof(LdpMsg) && freeMsgCount < maxFreeMsgs) {
      auto* f = static_cast<FreeMsg*>(p);
      f->next = freeMsgs;
      freeMsgs = f;
      ++freeMsgCount;
      return;
   }
   ::operator delete(p);
}

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
