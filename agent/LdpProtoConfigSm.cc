#include "agent/LdpProtoConfigSm.h"

#include "agent/SecretCliLib.h"
#include "entities/Functions.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpProtoConfig");
}

LdpProtoConfigSm::LdpProtoConfigSm(
   U32 instId, L3::VrfName const& vrfName, Vek::Ptr<Config const> const& config,
   Vek::Ptr<LdpAgentStatus const> const& ldpAgentStatus, Vek::Ptr<ProtoConfig> const& protoConfig,
   Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
   Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
   Vek::Ptr<Routing::Config const> const& routingConfig,
   Vek::Ptr<Acl::AclListConfig const> const& routingAclConfig,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), vrfName_(vrfName), config_(Vek::validPtr(config)),
     ldpAgentStatus_(Vek::validPtr(ldpAgentStatus)), protoConfig_(Vek::validPtr(protoConfig)),
     allIntfStatusDir_(Vek::validPtr(allIntfStatusDir)), mplsRoutingConfig_(mplsRoutingConfig),
     routingConfig_(routingConfig), routingAclConfig_(routingAclConfig),
     scheduler_(Vek::validPtr(scheduler)) {
   configReactor_.init(this, config_);
   mplsRoutingConfigReactor_.init(this, mplsRoutingConfig_);
   routingConfigReactor_.init(this, routingConfig_);
   routingAclConfigReactor_.init(this, routingAclConfig_);
   allIntfStatusDirReactor_.init(this, allIntfStatusDir_);
   handleInitialized();
}

void LdpProtoConfigSm::handleInitialized() {
   LDP_HANDLER(th, "LdpProtoConfigSm::handleInitialized " << vrfName_);
   inputTimerTask_ = Hesk::timerTaskIs(this, &LdpProtoConfigSm::handleTimerTaskExpire, scheduler_, 2,
                                       "ProtoConfigInputTaskTimer");
   fecFilter_ = protoConfig_->fecFilterIs("fecFilter");
   fecFilterSm_.is(LdpFecFilterSm::LdpFecFilterSmIs(instId(), fecFilter_, scheduler_));
   forceRouterIdTime_ = config_->forceRouterId();
   initialized_ = true;
   protoConfig_->reasonIs("Initialized");
   if (ldpAgentStatus_->numStartups() == 0) {
      LDP_TRACE(th, 5, "delay " << delay_ << " on startup");
      startupDelay_ = true;
      inputTimerTask_->scheduleTaskDelay(delay_);
   } else {
      // Evaluate once the manager has handed over the VRF's IP and VRF
      // status: evaluating now would find them missing and stop LDP in a VRF
      // whose root the record's first appearance has just made.
      immediateProcess_ = true;
      inputTimerTask_->scheduleTaskDelay(0.0);
   }
}

void LdpProtoConfigSm::handleDelete() {
   clearProtoConfig();
   initialized_ = false;
}

void LdpProtoConfigSm::vrfIpIntfStatusIs(Vek::Ptr<Ip::VrfIpIntfStatus const> const& s) {
   if (s == vrfIpIntfStatus_.notifier()) return;
   if (!s) {
      vrfIpIntfStatus_.reset();
      ipIntfStatus_.delAll();
      handleIpIntfStatus();
      return;
   }
   vrfIpIntfStatus_.assign(this, s, &LdpProtoConfigSm::handleIpIntfStatus);
   // The record could not rest on a VRF without IP status: evaluate at once,
   // unless the first start's delay is still running.
   if (initialized_ && !startupDelay_) {
      immediateProcess_ = true;
      inputTimerTask_->scheduleTaskDelay(0.0);
   }
}

void LdpProtoConfigSm::vrfStatusLocalIs(Vek::Ptr<Ip::VrfStatusLocal const> const& v) {
   if (v == vrfStatusLocal_.notifier()) return;
   if (v) vrfStatusLocal_.assign(this, v, &LdpProtoConfigSm::handleState);
   else {
      vrfStatusLocal_.reset();
      handleState();
   }
}

// The VRF came, went or changed state: evaluate at once, unless the first
// start's delay is still running.
void LdpProtoConfigSm::handleState() {
   if (!initialized_ || startupDelay_) return;
   immediateProcess_ = true;
   inputTimerTask_->scheduleTaskDelay(0.0);
}

void LdpProtoConfigSm::handleTimerTaskExpire() {
   LDP_HANDLER(th, "LdpProtoConfigSm::handleTimerTaskExpire");
   immediateProcess_ = false;
   startupDelay_ = false;
   handleConfig();
}

void LdpProtoConfigSm::handleConfigStaticTarget() {
   if (!initialized_) return;
   for (auto it = config_->staticTargetIter(); it; ++it) handleConfigStaticTarget(it.key());
   for (auto it = protoConfig_->staticTargetIter(); it; ++it) handleConfigStaticTarget(it.key());
}

void LdpProtoConfigSm::handleConfigStaticTarget(Nolu::IpGenAddr const& ip) {
   if (!initialized_) return;
   if (config_->staticTargetHas(ip) && config_->enabled()) protoConfig_->staticTargetIs(ip, true);
   else protoConfig_->staticTargetDel(ip);
}

void LdpProtoConfigSm::handleAclConfig(Vek::String const& name) {
   if (!initialized_) return;
   if (name == config_->fecFilterPrefixListName()) handleConfig();
}

// Sets up or drops the reactors of one interface of the VRF, then evaluates.
void LdpProtoConfigSm::handleVrfIpIntf(Nolu::IntfId const& intf) {
   if (!initialized_) return;
   auto vs = vrfIpIntfStatus_.notifier();
   auto ip = vs ? vs->ipIntfStatus(intf) : nullptr;
   if (ip) {
      ipIntfStatus_.is(intf, this, ip, &LdpProtoConfigSm::handleIpIntfStatus);
      auto st = allIntfStatusDir_->intfStatus(intf);
      if (st) intfStatus_.is(intf, this, st, &LdpProtoConfigSm::handleIpIntfStatus);
   } else {
      ipIntfStatus_.del(intf);
      intfStatus_.del(intf);
   }
   handleIpIntfStatus(intf);
}

void LdpProtoConfigSm::handleIntfStatus(Nolu::IntfId const& intf) {
   if (!initialized_) return;
   auto st = allIntfStatusDir_->intfStatus(intf);
   if (st && ipIntfStatus_.find(intf))
      intfStatus_.is(intf, this, st, &LdpProtoConfigSm::handleIpIntfStatus);
   else intfStatus_.del(intf);
   handleIpIntfStatus(intf);
}

void LdpProtoConfigSm::handleIpIntfStatus() {
   if (!initialized_) return;
   auto vs = vrfIpIntfStatus_.notifier();
   if (vs) {
      for (auto it = vs->ipIntfStatusIter(); it; ++it) handleVrfIpIntf(it.key());
   }
   // Reactors of interfaces that left the VRF.
   std::vector<Nolu::IntfId> gone;
   for (auto it = ipIntfStatus_.begin(); it; ++it)
      if (!vs || !vs->ipIntfStatusHas(it.key())) gone.push_back(it.key());
   for (auto const& intf : gone) handleVrfIpIntf(intf);
   handleIpIntfStatus(Nolu::IntfId());
}

// Any change of an interface: keep the present record unless the interface it
// rests on has gone bad, in which case evaluate at once.
void LdpProtoConfigSm::handleIpIntfStatus(Nolu::IntfId const& intf) {
   if (!initialized_) return;
   LDP_TRACE(th, 8, "LdpProtoConfigSm::handleIpIntfStatus " << intf.stringValue());
   if (!vrfIpIntfStatus_.notifier()) {
      immediateProcess_ = true;
      inputTimerTask_->scheduleTaskDelay(0.0);
      return;
   }
   if (immediateProcess_) return;
   Nolu::IntfId const& cur = protoConfig_->intfId();
   if (cur.isEmpty()) {
      inputTimerTask_->scheduleTaskDelay(delay_);
      return;
   }
   Nolu::IpAddr addr;
   bool found = false;
   if (intfUsable(cur, &addr, &found) && addr == protoConfig_->routerId()) {
      inputTimerTask_->scheduleTaskDelay(delay_);
      return;
   }
   immediateProcess_ = true;
   inputTimerTask_->scheduleTaskDelay(0.0);
}

// Whether an interface is up with its IP status present; its address in addr.
bool LdpProtoConfigSm::intfUsable(Nolu::IntfId const& intf, Nolu::IpAddr* addr,
                                  bool* statusFound) const {
   auto vs = vrfIpIntfStatus_.notifier();
   auto st = allIntfStatusDir_->intfStatus(intf);
   auto ip = vs ? vs->ipIntfStatus(intf) : nullptr;
   *statusFound = st && ip;
   if (!*statusFound) return false;
   *addr = ip->activeAddrWithMask().addr();
   return st->operStatus() == Interface::intfOperUp_;
}

void LdpProtoConfigSm::handleConfig() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpProtoConfigSm::handleConfig " << vrfName_);
   ProtoConfig* pc = protoConfig_.ptr();
   pc->ldpLabelAdvDsplIs(config_->ldpLabelAdvDspl());
   pc->ldpLabelDistCtrlIs(config_->ldpLabelDistCtrl());
   pc->ldpLabelRetentionIs(config_->ldpLabelRetention());
   if (config_->md5PasswordEncoded()) {
      auto plain = SecretCliLib::doDecodeKey(config_->md5Password());
      pc->md5PasswordIs(plain ? *plain : Vek::String());
   } else {
      pc->md5PasswordIs(config_->md5Password());
   }
   pc->linkReadyTimeoutIs(config_->linkReadyTimeout());
   pc->linkReadyDelayIs(config_->linkReadyDelay());
   pc->ldpLoopDetectionIs(config_->ldpLoopDetection());
   pc->ldpProtoParamSettingIs(config_->ldpProtoParamSetting());
   pc->keepAliveTimeIs(config_->keepAliveTime());
   pc->maxPduLengthIs(config_->maxPduLength());
   pc->ldpHopCountMaxIs(config_->ldpHopCountMax());
   pc->ldpMultiLabelSupportIs(config_->ldpMultiLabelSupport());
   handleConfigStaticTarget();

   Vek::Ptr<Acl::PrefixList const> list;
   if (routingAclConfig_ && !config_->fecFilterPrefixListName().empty())
      list = routingAclConfig_->prefixList(config_->fecFilterPrefixListName());
   fecFilter_->prefixListIs(list);

   char const* fail = nullptr;
   auto vrf = vrfStatusLocal_.notifier();
   if (vrfName_ != L3::defaultVrfName() && (!vrf || vrf->state() != Ip::vrfActive_))
      fail = "VRF is not active";
   else if (!vrfIpIntfStatus_.notifier()) fail = "vrfIpIntfStatus is NULL";
   else if (!config_->enabled()) fail = "LDP is disabled in LDP config";
   else if (mplsRoutingConfig_ && !mplsRoutingConfig_->mplsRouting())
      fail = "MPLS is disabled in MPLS config";
   else if (routingConfig_ && !routingConfig_->routing()) fail = "IP routing is disabled";
   if (fail) {
      LDP_TRACE(th, 5, fail);
      pc->reasonIs(fail);
      clearProtoConfig();
      return;
   }
   doMaybeCalculateRouterId();
   if (pc->routerId().isZero()) return;
   calculateTransportAddr();
   if (!pc->ipTransportAddr().isV4() || pc->ipTransportAddr().v4Addr().isZero()) return;
   VEK_ASSERT(protoConfig()->routerId() != Nolu::IpAddr::ipAddrZero() && "Internal Error.");
   pc->ldpIdentifierIs(LdpIdentifier(pc->routerId(), 0));
   pc->runningStateIs(running_);
   pc->reasonIs("Enabled");
}

void LdpProtoConfigSm::doMaybeCalculateRouterId() {
   VEK_ASSERT(vrfIpIntfStatus() && "Internal Error");
   VEK_ASSERT(config_->enabled() && "Internal Error");
   ProtoConfig* pc = protoConfig_.ptr();
   bool recalc = false;
   bool forced = false;
   if (pc->routerId().isZero()) {
      LDP_TRACE(th, 5, "No existing configuration");
      recalc = true;
   } else if (config_->forceRouterId() > forceRouterIdTime_) {
      LDP_TRACE(th, 5, "Forced router-id change");
      recalc = forced = true;
   } else if (!pc->intfId().isEmpty()) {
      Nolu::IpAddr addr;
      bool found = false;
      if (!intfUsable(pc->intfId(), &addr, &found) || addr != pc->routerId()) {
         LDP_TRACE(th, 5, "Invalid interface");
         recalc = true;
      }
   }
   if (!recalc) return;
   calculateRouterId();
   if (forced) forceRouterIdTime_ = config_->forceRouterId();
}

void LdpProtoConfigSm::calculateRouterId() {
   ProtoConfig* pc = protoConfig_.ptr();
   if (!config_->routerId().isZero()) {
      pc->routerIdIs(config_->routerId());
      pc->intfIdIs(Nolu::IntfId());
      return;
   }
   Nolu::IntfId const& cfgIntf = config_->routerIdIntfId();
   if (!cfgIntf.isEmpty()) {
      LDP_TRACE(th, 5, "Configured router-id interface: " << cfgIntf.stringValue());
      Nolu::IpAddr addr;
      bool found = false;
      bool up = intfUsable(cfgIntf, &addr, &found);
      char const* fail = nullptr;
      if (!found) fail = "Router-id configured interface is not ready";
      else if (!up) fail = "Router-id configured interface is down";
      else if (addr.isZero()) fail = "Router-id configured interface ip is 0";
      if (fail) {
         pc->reasonIs(fail);
         clearProtoConfig();
         return;
      }
      pc->routerIdIs(addr);
      pc->intfIdIs(cfgIntf);
      return;
   }
   // A loopback beats any other interface; within a kind the highest address
   // wins, and equal addresses keep the first seen.
   Nolu::IpAddr best;
   Nolu::IntfId bestIntf;
   bool bestLoopback = false;
   auto vs = vrfIpIntfStatus_.notifier();
   for (auto it = vs->ipIntfStatusIter(); it; ++it) {
      Nolu::IntfId const& intf = it.key();
      LDP_TRACE(th, 7, "Considering router-id interface: " << intf.stringValue());
      if (isManagementOrInternalInterface(intf)) continue;
      auto st = allIntfStatusDir_->intfStatus(intf);
      if (!st || st->operStatus() != Interface::intfOperUp_) continue;
      Nolu::IpAddr addr = it.value()->activeAddrWithMask().addr();
      if (addr.isZero()) continue;
      bool loopback = isLoopbackInterface(intf);
      bool take = loopback ? (best < addr || !bestLoopback) : (best < addr && !bestLoopback);
      if (bestIntf.isEmpty()) take = true;
      if (take) {
         best = addr;
         bestIntf = intf;
         bestLoopback = loopback;
      }
   }
   if (bestIntf.isEmpty()) {
      clearProtoConfig();
      pc->reasonIs("No interface available in this VRF");
      LDP_TRACE(th, 5, "No router-id interface available in this VRF");
      return;
   }
   LDP_TRACE(th, 5, "Router-id interface chosen: " << bestIntf.stringValue());
   pc->routerIdIs(best);
   pc->intfIdIs(bestIntf);
}

void LdpProtoConfigSm::calculateTransportAddr() {
   ProtoConfig* pc = protoConfig_.ptr();
   Nolu::IntfId const& intf = config_->ipTransportAddrIntfId();
   if (intf.isEmpty()) {
      if (pc->intfId().isEmpty()) {
         pc->reasonIs("TransportAddr interface not configured and router-id not derived from an "
                      "interface");
         clearProtoConfig();
         return;
      }
      pc->ipTransportAddrIs(Nolu::IpGenAddr(pc->routerId()));
      return;
   }
   Nolu::IpAddr addr;
   bool found = false;
   bool up = intfUsable(intf, &addr, &found);
   char const* fail = nullptr;
   if (!found) fail = "TransportAddr Interface is not ready";
   else if (!up) fail = "TransportAddr Interface is down";
   else if (addr.isZero()) fail = "TransportAddr is 0.0.0.0 on configured intf";
   if (fail) {
      pc->reasonIs(fail);
      clearProtoConfig();
      return;
   }
   pc->ipTransportAddrIs(Nolu::IpGenAddr(addr));
}

// Reactors see the stopping value while the old addresses still hold.
void LdpProtoConfigSm::clearProtoConfig() {
   ProtoConfig* pc = protoConfig_.ptr();
   pc->runningStateIs(stopping_);
   pc->runningStateIs(disabled_);
   pc->routerIdIs(Nolu::IpAddr::ipAddrZero());
   pc->ipTransportAddrIs(Nolu::IpGenAddr(Nolu::IpAddr::ipAddrZero()));
   pc->intfIdIs(Nolu::IntfId());
   pc->ldpIdentifierIs(LdpIdentifier(0u, 0));
}

LdpProtoConfigSmManager::LdpProtoConfigSmManager(
   U32 instId, Vek::Ptr<LdpConfigColl const> const& ldpConfigColl,
   Vek::Ptr<LdpProtoConfigColl> const& ldpProtoConfigColl,
   Vek::Ptr<LdpEnabledVrfColl const> const& ldpEnabledVrfColl,
   Vek::Ptr<LdpAgentStatus const> const& ldpAgentStatus, Vek::Ptr<Ip::Status const> const& ipStatus,
   Vek::Ptr<Ip::AllVrfStatusLocal const> const& allVrfStatusLocal,
   Vek::Ptr<Interface::AllIntfStatusDir const> const& allIntfStatusDir,
   Vek::Ptr<Mpls::Config const> const& mplsRoutingConfig,
   Vek::Ptr<Routing::Config const> const& routingConfig,
   Vek::Ptr<Acl::AclListConfig const> const& routingAclConfig,
   Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : LdpSm(instId), ldpConfigColl_(Vek::validPtr(ldpConfigColl)),
     ldpProtoConfigColl_(Vek::validPtr(ldpProtoConfigColl)),
     ldpEnabledVrfColl_(Vek::validPtr(ldpEnabledVrfColl)),
     ldpAgentStatus_(Vek::validPtr(ldpAgentStatus)), ipStatus_(Vek::validPtr(ipStatus)),
     allVrfStatusLocal_(Vek::validPtr(allVrfStatusLocal)),
     allIntfStatusDir_(Vek::validPtr(allIntfStatusDir)), mplsRoutingConfig_(mplsRoutingConfig),
     routingConfig_(routingConfig), routingAclConfig_(routingAclConfig),
     scheduler_(Vek::validPtr(scheduler)) {
   ldpConfigCollReactor_.init(this, ldpConfigColl_);
   ldpEnabledVrfCollReactor_.init(this, ldpEnabledVrfColl_);
   ipStatusReactor_.init(this, ipStatus_);
   allVrfStatusLocalReactor_.init(this, allVrfStatusLocal_);
   handleInitialized();
}

void LdpProtoConfigSmManager::handleInitialized() {
   initialized_ = true;
   handleLdpCliInput();
}

void LdpProtoConfigSmManager::handleLdpCliInput() {
   if (!initialized_) return;
   for (auto it = ldpConfigColl_->configIter(); it; ++it) handleLdpCliInput(it.key());
   for (auto it = ldpEnabledVrfColl_->enabledVrfIter(); it; ++it) handleLdpCliInput(it.key());
}

void LdpProtoConfigSmManager::handleLdpCliInput(L3::VrfName const& vrf) {
   if (!initialized_) return;
   auto config = ldpConfigColl_->config(vrf);
   if (config && ldpEnabledVrfColl_->enabledVrf(vrf)) {
      if (ldpProtoConfigSm_.find(vrf)) return;
      LDP_TRACE(th, 5, "Creating Ldp Config for Vrf: " << vrf);
      auto pc = ldpProtoConfigColl_->protoConfigIs(vrf);
      ldpProtoConfigSm_.is(vrf, LdpProtoConfigSm::LdpProtoConfigSmIs(
                                   instId(), vrf, config, ldpAgentStatus_, pc, allIntfStatusDir_,
                                   mplsRoutingConfig_, routingConfig_, routingAclConfig_, scheduler_));
      handleVrf(vrf);
      handleVrfIpIntfStatus(vrf);
      return;
   }
   if (!ldpProtoConfigSm_.find(vrf) && !ldpProtoConfigColl_->protoConfigHas(vrf)) return;
   LDP_TRACE(th, 5, "Removing Ldp Config for Vrf: " << vrf);
   // The machine writes the record's last values as it goes.
   ldpProtoConfigSm_.del(vrf);
   ldpProtoConfigColl_->protoConfigDel(vrf);
}

void LdpProtoConfigSmManager::handleVrf(L3::VrfName const& vrf) {
   if (!initialized_ || vrf == L3::defaultVrfName()) return;
   if (auto sm = ldpProtoConfigSm_.find(vrf)) sm->vrfStatusLocalIs(allVrfStatusLocal_->vrf(vrf));
}

void LdpProtoConfigSmManager::handleVrfIpIntfStatus(L3::VrfName const& vrf) {
   if (!initialized_) return;
   auto sm = ldpProtoConfigSm_.find(vrf);
   if (!sm || !ldpProtoConfigColl_->protoConfigHas(vrf)) return;
   auto s = ipStatus_->vrfIpIntfStatus(vrf);
   if (s) LDP_TRACE(th, 5, "Setting vrfIpIntfStatus for Vrf: " << vrf);
   else LDP_TRACE(th, 5, "Clearing vrfIpIntfStatus for Vrf: " << vrf);
   sm->vrfIpIntfStatusIs(s);
}

}  // namespace Ldp
