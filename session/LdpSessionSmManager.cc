#include "session/LdpSessionSmManager.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpSessionSmManager");
}

LdpSessionSmManager::LdpSessionSmManager(U32 instId, LdpSessionSmManagerInputs const& in)
   : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.protoConfig);
   Vek::validPtr(in_.status);
   Vek::validPtr(in_.ldpSessionConfigColl);
   Vek::validPtr(in_.ldpSessionStatusColl);
   Vek::validPtr(in_.sessionStatisticsColl);
   Vek::validPtr(in_.ldpSessionMsgPipeColl);
   Vek::validPtr(in_.ldpPduPamPipeSessionTxColl);
   Vek::validPtr(in_.ldpPduPamPipeSessionRxColl);
   Vek::validPtr(in_.ldpSessionSmColl);
   Vek::validPtr(in_.scheduler);
   sessionConfigCollReactor_.init(this, in_.ldpSessionConfigColl);
   protoConfigReactor_.init(this, in_.protoConfig);
   handleInitialized();
}

void LdpSessionSmManager::handleInitialized() {
   // Leftovers of an earlier life of the root don't survive.
   in_.ldpSessionStatusColl->sessionStatusDelAll();
   in_.sessionStatisticsColl->sessionStatisticsDelAll();
   LdpSessionSmCommon::setPacketBufferSize();
   initialized_ = true;
   handleLdpSessionConfig();
}

void LdpSessionSmManager::handleLdpSessionConfig() {
   if (!initialized_) return;
   for (auto it = in_.ldpSessionConfigColl->sessionConfigIter(); it; ++it)
      handleLdpSessionConfig(LdpSessionId(it.key()));
   for (auto it = in_.ldpSessionStatusColl->sessionStatusIter(); it; ++it) {
      LdpSessionId id(it.key());
      if (!in_.ldpSessionConfigColl->sessionConfigHas(id)) handleLdpSessionDelete(id);
   }
}

void LdpSessionSmManager::handleLdpSessionConfig(LdpSessionId const& id) {
   if (!initialized_) return;
   if (in_.ldpSessionConfigColl->sessionConfigHas(id)) handleLdpSessionCreate(id);
   else handleLdpSessionDelete(id);
}

void LdpSessionSmManager::handleRunningState() {
   if (!initialized_) return;
   if (in_.protoConfig->runningState() == running_) {
      handleLdpSessionConfig();
      return;
   }
   LDP_TRACE(th, 5, "Removing all sessions, runningState " << in_.protoConfig->runningState());
   handleLdpSessionDeleteAll();
}

void LdpSessionSmManager::handleLdpSessionDeleteAll() {
   while (in_.ldpSessionSmColl->sessionCtrlSms()) {
      LdpSessionId id(in_.ldpSessionSmColl->sessionCtrlSm.begin().key());
      handleLdpSessionDelete(id);
   }
}

void LdpSessionSmManager::handleLdpSessionCreate(LdpSessionId const& id) {
   if (!initialized_ || in_.ldpSessionSmColl->sessionCtrlSm(id)) return;
   if (in_.protoConfig->runningState() != running_) return;
   LDP_HANDLER(th, "Create LdpSession " << id);
   auto sessionConfig = in_.ldpSessionConfigColl->sessionConfig(id);
   auto commonConfig = in_.ldpSessionConfigColl->ldpSessionCommonConfig();
   auto sessionStatus = in_.ldpSessionStatusColl->sessionStatusIs(id);
   std::string name = id.ldpIdentifier().stringValue();
   auto msgPipe = ldpMsgPipeFactory(name);
   auto txPipe = ldpPduPamPipeFactory(name + "-tx");
   in_.ldpPduPamPipeSessionTxColl->ldpPduPamPipeIs(id, txPipe);
   auto rxPipe = ldpPduPamPipeFactory(name + "-rx");
   in_.ldpPduPamPipeSessionRxColl->ldpPduPamPipeIs(id, rxPipe);
   auto statistics = in_.sessionStatisticsColl->sessionStatisticsIs(id);
   VEK_ASSERT(sessionStatus && "sessionStatus");
   VEK_ASSERT(sessionConfig && "sessionConfig");
   VEK_ASSERT(msgPipe && "msgPipe");
   VEK_ASSERT(txPipe && "ldpPduPamTxPipe");
   VEK_ASSERT(rxPipe && "ldpPduPamRxPipe");
   VEK_ASSERT(commonConfig && "Internal Error: the common session configuration exists");

   U32 inst = instId();
   LdpSessionSmColl* sms = in_.ldpSessionSmColl.ptr();
   auto rxSm = LdpSessionRxSm::LdpSessionRxSmIs(inst, id, sessionStatus, statistics, rxPipe,
                                                in_.scheduler);
   sms->sessionRxSm.is(id, rxSm);
   auto initSm = LdpSessionInitSm::LdpSessionInitSmIs(inst, id, in_.protoConfig, sessionConfig,
                                                      commonConfig, sessionStatus, in_.status,
                                                      statistics, in_.scheduler);
   sms->sessionInitSm.is(id, initSm);
   auto msgSm = LdpSessionMsgSm::LdpSessionMsgSmIs(
      inst, id, in_.protoConfig, sessionConfig, commonConfig, sessionStatus, in_.status,
      statistics, in_.localPwFecSessionConfigColl, in_.remotePwFecSessionConfigColl,
      in_.ldpFecConfigColl, in_.ldpFecMsgPipeColl, in_.ldpFecSessionMsgPipe,
      in_.pwFecSessionMsgPipeColl, in_.scheduler);
   sms->sessionMsgSm.is(id, msgSm);
   auto txSm = LdpSessionTxSm::LdpSessionTxSmIs(inst, id, in_.protoConfig, sessionConfig,
                                                commonConfig, sessionStatus, in_.status,
                                                statistics, msgPipe, in_.scheduler);
   sms->sessionTxSm.is(id, txSm);
   // The pipes are wired before the control machine starts the session's
   // life, so that every machine has its channels from the first state on.
   txSm->ldpPduRxPamIs(txPipe);
   initSm->ldpPduTxPamIs(txPipe);
   msgSm->ldpPduTxPamIs(txPipe);
   initSm->ldpPduRxPamIs(rxPipe);
   msgSm->ldpPduRxPamIs(rxPipe);
   auto ctrlSm = LdpSessionCtrlSm::LdpSessionCtrlSmIs(inst, id, in_.protoConfig, sessionConfig,
                                                      commonConfig, sessionStatus, in_.status,
                                                      statistics, in_.scheduler);
   sms->sessionCtrlSm.is(id, ctrlSm);
   if (in_.p2mpFecSessionLocalLabelMsgPipeColl && in_.p2mpFecSessionRemoteLabelMsgPipeColl) {
      auto localPipe = ldpMsgPipeFactory(name + "-p2mpLocal");
      auto remotePipe = ldpMsgPipeFactory(name + "-p2mpRemote");
      in_.p2mpFecSessionLocalLabelMsgPipeColl->msgPipeIs(id, localPipe);
      in_.p2mpFecSessionRemoteLabelMsgPipeColl->msgPipeIs(id, remotePipe);
      sms->p2mpRemoteLabelRxSm.is(
         id, LdpP2mpRemoteLabelRxSm::LdpP2mpRemoteLabelRxSmIs(inst, id, remotePipe));
      sms->p2mpRemoteLabelTxSm.is(
         id, LdpP2mpRemoteLabelTxSm::LdpP2mpRemoteLabelTxSmIs(inst, id, msgPipe));
      sms->p2mpLocalLabelRxSm.is(
         id, LdpP2mpLocalLabelRxSm::LdpP2mpLocalLabelRxSmIs(inst, id, localPipe));
      sms->p2mpLocalLabelTxSm.is(id,
                                 LdpP2mpLocalLabelTxSm::LdpP2mpLocalLabelTxSmIs(inst, id, msgPipe));
   }
   // Announces the session to the label machines.
   in_.ldpSessionMsgPipeColl->msgPipeIs(id, msgPipe);
}

void LdpSessionSmManager::handleLdpSessionDelete(LdpSessionId const& id) {
   LdpSessionSmColl* sms = in_.ldpSessionSmColl.ptr();
   if (!sms->sessionCtrlSm(id) && !sms->sessionRxSm(id)) {
      LDP_TRACE(th, 8, "No LdpSession to delete " << id);
      if (in_.ldpSessionStatusColl->sessionStatusHas(id)) {
         in_.ldpSessionStatusColl->sessionStatusDel(id);
         in_.sessionStatisticsColl->sessionStatisticsDel(id);
      }
      return;
   }
   LDP_HANDLER(th, "Delete LdpSession " << id);
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   in_.ldpSessionMsgPipeColl->msgPipeDel(id);
   in_.ldpPduPamPipeSessionTxColl->ldpPduPamPipeDel(id);
   in_.ldpPduPamPipeSessionRxColl->ldpPduPamPipeDel(id);
   sms->sessionRxSm.del(id);
   sms->sessionMsgSm.del(id);
   sms->sessionTxSm.del(id);
   sms->sessionInitSm.del(id);
   sms->sessionCtrlSm.del(id);
   sms->p2mpRemoteLabelRxSm.del(id);
   sms->p2mpRemoteLabelTxSm.del(id);
   sms->p2mpLocalLabelRxSm.del(id);
   sms->p2mpLocalLabelTxSm.del(id);
   if (in_.p2mpFecSessionLocalLabelMsgPipeColl) in_.p2mpFecSessionLocalLabelMsgPipeColl->msgPipeDel(id);
   if (in_.p2mpFecSessionRemoteLabelMsgPipeColl)
      in_.p2mpFecSessionRemoteLabelMsgPipeColl->msgPipeDel(id);
   LDP_TRACE(th, 8, "Delete LdpSession Status");
   in_.ldpSessionStatusColl->sessionStatusDel(id);
   in_.sessionStatisticsColl->sessionStatisticsDel(id);
}

}  // namespace Ldp
