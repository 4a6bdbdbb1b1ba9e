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
   }
   void handleReadableCount() {
      if (!initialized_) return;
      auto m = pipe_->rxMsg();
      if (m) offsets.push_back(m->offset());
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
   // Nobody reads yet: nothing is kept.
   pipe->txMsgIs(Ldp::ldpMsgFactory(id, pkt, 0));
   EXPECT_EQ(0u, pipe->pendingMsgs());

   auto r = Vek::makeSm<Reader>(pipe);
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
