#pragma once
// The base of every state machine of the agent, and the small helpers that all
// of them share: the re-entrancy guard and the handler trace.
#include "runtime/hesk/Task.h"
#include "runtime/vek/Sm.h"
#include "runtime/vek/Trace.h"

namespace Ldp {

class LdpSm : public Vek::Sm {
 public:
   explicit LdpSm(U32 instId) : instId_(instId) {}
   U32 instId() const { return instId_; }

 private:
   U32 instId_;
};

// Indentation of the text trace by handler depth.
inline int& callDepth = Vek::traceDepth;

// Takes a member flag for the length of a scope and asserts that it was clear:
// the handler that holds it must not be re-entered.
class ReentrantAssert {
 public:
   explicit ReentrantAssert(bool* flag) : flag_(flag) {
      VEK_ASSERT(!*flag_ && "Internal Error: reentrant call");
      *flag_ = true;
   }
   ~ReentrantAssert() { *flag_ = false; }
   ReentrantAssert(ReentrantAssert const&) = delete;
   ReentrantAssert& operator=(ReentrantAssert const&) = delete;

 private:
   bool* flag_;
};

}  // namespace Ldp

// Traces a handler's entry at level 8 and indents what it traces after.
#define LDP_HANDLER(handle, name)                                          \
   VEK_TRACE_INST(handle, 8, instId(), name);                              \
   Vek::TraceDepthScope ldp_handler_depth_

#define LDP_TRACE(handle, level, expr) VEK_TRACE_INST(handle, level, instId(), expr)
