#pragma once
// The point-to-multipoint machines of a session: receive and send sides of the
// session's local and remote multicast labels. They are the frame of
// multicast LDP: made, wired and watched with each session, but without
// behaviour yet; a received message is taken from its pipe and dropped.
#include "entities/LdpMsgPipe.h"
#include "entities/LdpSm.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

// A receive side: reads and drops what arrives on its pipe.
class LdpP2mpLabelRxSm : public LdpSm {
 public:
   LdpP2mpLabelRxSm(U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& msgPipe,
                    char const* kind);
   LdpSessionId const& sessionId() const { return id_; }
   U64 droppedMsgs() const { return dropped_; }
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleMsgPipeReadable();

 private:
   class PipeReactor : public Vek::CustomReactor<LdpMsgPipe::NotifieeConst, LdpP2mpLabelRxSm> {
    public:
      using CustomReactor::CustomReactor;
      void onReadableCount() override { fwd([](auto* sm) { sm->handleMsgPipeReadable(); }); }
   };
   LdpSessionId id_;
   Vek::Ptr<LdpMsgPipe> msgPipe_;
   char const* kind_;
   U64 dropped_ = 0;
   Vek::Input<PipeReactor> msgPipeReactor_;
};

// A send side: holds the session's pipe towards its transmit machine.
class LdpP2mpLabelTxSm : public LdpSm {
 public:
   LdpP2mpLabelTxSm(U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& msgPipe,
                    char const* kind);
   LdpSessionId const& sessionId() const { return id_; }
   LdpMsgPipe* msgPipe() const { return msgPipe_.ptr(); }
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

 private:
   LdpSessionId id_;
   Vek::Ptr<LdpMsgPipe> msgPipe_;
   char const* kind_;
};

class LdpP2mpRemoteLabelRxSm : public LdpP2mpLabelRxSm {
 public:
   static Vek::Ptr<LdpP2mpRemoteLabelRxSm> LdpP2mpRemoteLabelRxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& msgPipe) {
      return Vek::makeSm<LdpP2mpRemoteLabelRxSm>(instId, id, msgPipe);
   }
   LdpP2mpRemoteLabelRxSm(U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& p)
      : LdpP2mpLabelRxSm(instId, id, p, "LdpP2mpRemoteLabelRxSm") {}
};

class LdpP2mpLocalLabelRxSm : public LdpP2mpLabelRxSm {
 public:
   static Vek::Ptr<LdpP2mpLocalLabelRxSm> LdpP2mpLocalLabelRxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& msgPipe) {
      return Vek::makeSm<LdpP2mpLocalLabelRxSm>(instId, id, msgPipe);
   }
   LdpP2mpLocalLabelRxSm(U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& p)
      : LdpP2mpLabelRxSm(instId, id, p, "LdpP2mpLocalLabelRxSm") {}
};

class LdpP2mpRemoteLabelTxSm : public LdpP2mpLabelTxSm {
 public:
   static Vek::Ptr<LdpP2mpRemoteLabelTxSm> LdpP2mpRemoteLabelTxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& msgPipe) {
      return Vek::makeSm<LdpP2mpRemoteLabelTxSm>(instId, id, msgPipe);
   }
   LdpP2mpRemoteLabelTxSm(U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& p)
      : LdpP2mpLabelTxSm(instId, id, p, "LdpP2mpRemoteLabelTxSm") {}
};

class LdpP2mpLocalLabelTxSm : public LdpP2mpLabelTxSm {
 public:
   static Vek::Ptr<LdpP2mpLocalLabelTxSm> LdpP2mpLocalLabelTxSmIs(
      U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& msgPipe) {
      return Vek::makeSm<LdpP2mpLocalLabelTxSm>(instId, id, msgPipe);
   }
   LdpP2mpLocalLabelTxSm(U32 instId, LdpSessionId const& id, Vek::Ptr<LdpMsgPipe> const& p)
      : LdpP2mpLabelTxSm(instId, id, p, "LdpP2mpLocalLabelTxSm") {}
};

}  // namespace Ldp
