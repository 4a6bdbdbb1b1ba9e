#include "agent/LdpRoot.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpRoot");
}

LdpRoot::LdpRoot(U32 instId, LdpRootInputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.status);
   Vek::validPtr(in_.vrfIpIntfStatus);
   Vek::validPtr(in_.scheduler);
   // The local holders, each by name, before any machine.
   pamDesiredIntfDir_ = new Interface::PamDesiredIntfDir;
   pamDesiredIntfDir_->parentIs(nullptr, "pdid");
   ldpLinkRxMsgPipeColl_ = new LdpLinkMsgPipeCollection("llrmpc");
   ldpLinkTxMsgPipeColl_ = new LdpLinkMsgPipeCollection("lltmpc");
   ldpAdjMsgPipeColl_ = new LdpAdjMsgPipeCollection("lampc");
   ldpTargetMsgPipeColl_ = new LdpTargetMsgPipeCollection("ltmpc");
   ldpSessionMsgPipeColl_ = new LdpSessionMsgPipeColl("lsmpc");
   ldpFecMsgPipeColl_ = new LdpFecMsgPipeColl("lfmpc");
   pwFecSessionMsgPipeColl_ = new PwFecSessionMsgPipeColl("pwfsmpc");
   p2mpFecSessionLocalLabelMsgPipeColl_ = new LdpP2mpFecSessionLocalLabelMsgPipeColl("lpfsllmpc");
   p2mpFecSessionRemoteLabelMsgPipeColl_ =
      new LdpP2mpFecSessionRemoteLabelMsgPipeColl("lpfsrlmpc");
   handleInitialized();
}

// The children in the order of the wiring. Machines of subsystems that are
// not built yet have no place here until they exist.
void LdpRoot::handleInitialized() {
   LDP_HANDLER(th, "LdpRoot::handleInitialized " << in_.vrfName);
   initialized_ = true;
   Status* st = in_.status.ptr();

   ldpPamDesiredIntfSm_.is(LdpPamDesiredIntfSm::LdpPamDesiredIntfSmIs(
      instId(), in_.vrfName, in_.protoConfig, in_.mplsConfig, in_.vrfIpIntfStatus,
      pamDesiredIntfDir_, st->ldpLinkConfigColl(), in_.deviceIntfStatusDir));
   madeLog_.push_back("ldpPamDesiredIntfSm");

   ldpProtoConfigConsistencySm_.is(LdpProtoConfigConsistencySm::LdpProtoConfigConsistencySmIs(
      instId(), in_.protoConfig, st->ldpFecConfigColl()));
   madeLog_.push_back("ldpProtoConfigConsistencySm");
}

void LdpRoot::handleDelete() {
   LDP_TRACE(th, 8, "LdpRoot::handleDelete " << in_.vrfName);
   initialized_ = false;
}

}  // namespace Ldp
