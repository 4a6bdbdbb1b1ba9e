// Message pipes deliver each message to the reader before txMsgIs returns.
#include <gtest/gtest.h>

#include "entities/LdpMsgPipe.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

using Vek::Ptr;

namespace {

class Reader : public Ldp::LdpSm {
 public:
   explicit Reader(Ptr<Ldp::LdpMsgPipe> const& p) : LdpSm(0), pipe_(p) {
      reactor_.init(this, p);
      initialized_ = true;
      // What was sent before this reader came is waiting for it.
      handleReadableCount();
   }
   void handleReadableCount() {
      if (!initialized_) return;
      while (auto m = pipe_->rxMsg()) offsets.push_back(m->offset());
   }
   std::vector<U32> offsets;

 private:
   Ptr<Ldp::LdpMsgPipe> pipe_;
   Vek::Input<Ldp::LdpMsgPipe::Reactor<Reader>> reactor_;
};

}  // namespace

TEST(MsgPipe, ReaderTakesEachMessageAtOnce) {
   Vek::ActivityManager am(Vek::ActivityManager::virtualTime);
   Vek::activityManagerIs(&am);
   auto pipe = Ldp::ldpMsgPipeFactory("p");
   auto pkt = Nolu::globalPktManager()->newPkt();
   Ldp::LdpIdentifier id;
   // Nobody reads yet: the first messages wait for the reader, a flood beyond
   // that is dropped and counted.
   for (U32 i = 0; i < Ldp::LdpMsgPipe::heldMsgMax + 6; ++i)
      pipe->txMsgIs(Ldp::ldpMsgFactory(id, pkt, i));
   EXPECT_EQ(Ldp::LdpMsgPipe::heldMsgMax, pipe->pendingMsgs());
   EXPECT_EQ(6u, pipe->droppedMsgCount());

   auto r = Vek::makeSm<Reader>(pipe);
   EXPECT_EQ(Ldp::LdpMsgPipe::heldMsgMax, r->offsets.size());
   r->offsets.clear();
   pipe->txMsgIs(Ldp::ldpMsgFactory(id, pkt, 1));
   pipe->txMsgIs(Ldp::ldpMsgFactory(id, pkt, 2));
   EXPECT_EQ((std::vector<U32>{1, 2}), r->offsets);
   EXPECT_EQ(0u, pipe->pendingMsgs());

   Ptr<Ldp::LdpSessionMsgPipeColl> coll(new Ldp::LdpSessionMsgPipeColl("lsmpc"));
   Ldp::LdpSessionId sid;
   coll->msgPipeIs(sid, pipe);
   EXPECT_EQ(pipe, coll->msgPipe(sid));
   coll->msgPipeDel(sid);
   EXPECT_EQ(nullptr, coll->msgPipe(sid));
}
