#include "host/ConfigApplier.h"

#include "agent/SecretCliLib.h"
#include "entities/Functions.h"

#include <set>

namespace Host {

namespace {

template <class T>
Vek::Ptr<T> entityAt(Vek::Ptr<Ombra::Store> const& store, std::string const& path,
                     std::string const& type) {
   return Vek::Ptr<T>(dynamic_cast<T*>(store->entityFindOrNew(path, type).ptr()));
}

}  // namespace

ConfigTargets ConfigTargets::fromStore(Vek::Ptr<Ombra::Store> const& store) {
   Ldp::entityTypesRegister();
   ConfigTargets t;
   t.ldpConfigColl =
      entityAt<Ldp::LdpConfigColl>(store, "mpls/ldp/ldpConfigColl", "Ldp::LdpConfigColl");
   t.ldpEnabledVrfColl = entityAt<Ldp::LdpEnabledVrfColl>(store, "mpls/ldp/ldpEnabledVrfColl",
                                                          "Ldp::LdpEnabledVrfColl");
   t.mplsConfig = entityAt<Mpls::Config>(store, "routing/mpls/config", "Mpls::Config");
   t.routingConfig = entityAt<Routing::Config>(store, "routing/config", "Routing::Config");
   t.aclListConfig =
      entityAt<Acl::AclListConfig>(store, "routing/acl/config", "Acl::AclListConfig");
   t.l3Config = entityAt<L3::Config>(store, "l3/config", "L3::Config");
   t.pwLdpConfig = entityAt<Pseudowire::PseudowireLdpConfig>(store, "pseudowire/ldp/config",
                                                             "Pseudowire::PseudowireLdpConfig");
   return t;
}

void ConfigApplier::applyLdp(std::string const& vrf, LdpVrfConfig const& l) {
   auto c = t_.ldpConfigColl->configIs(vrf);
   c->routerIdIs(l.routerId);
   c->routerIdIntfIdIs(Nolu::IntfId(l.routerIdIntf));
   c->ipTransportAddrIntfIdIs(Nolu::IntfId(l.transportIntf));
   for (auto it = c->staticTargetIter(); it; ++it) {
      Nolu::IpGenAddr a = it.key();
      if (!a.isV4() || !l.targetedNeighbors.count(a.v4Addr())) c->staticTargetDel(a);
   }
   for (auto const& n : l.targetedNeighbors) c->staticTargetIs(Nolu::IpGenAddr(n), true);
   // The password is kept encoded; the flag goes first so that the protocol
   // configuration decodes the new text.
   if (l.password.empty()) {
      c->md5PasswordIs("");
      c->md5PasswordEncodedIs(false);
   } else {
      c->md5PasswordEncodedIs(true);
      c->md5PasswordIs(SecretCliLib::doEncodeKey(l.password));
   }
   c->helloHoldTimeIs(l.helloHoldTime);
   c->helloIntervalIs(l.helloInterval);
   c->targetedHelloHoldTimeIs(l.targetedHelloHoldTime);
   c->targetedHelloIntervalIs(l.targetedHelloInterval);
   c->keepAliveTimeIs(l.keepAliveTime);
   c->ldpLabelDistCtrlIs(l.labelDistCtrl);
   c->ldpLabelAdvDsplIs(l.labelAdvDspl);
   c->ldpLabelRetentionIs(l.labelRetention);
   c->ldpLoopDetectionIs(l.loopDetection);
   c->ldpHopCountMaxIs(l.hopCountMax);
   c->fecFilterPrefixListNameIs(l.fecFilterPrefixList);
   Ldp::LdpProtoParamSetting feature = c->ldpProtoParamSetting();
   feature.flagIs(Ldp::LdpProtoParamSetting::shortPrefixFecs, l.allPrefixes);
   c->ldpProtoParamSettingIs(feature);
   // One entry per prefix with a local or a remote binding, or both; the
   // half that is not configured holds the null label.
   std::vector<Mpls::FwdEqvClass> gone;
   for (auto it = c->staticFecBindingCollIter(); it; ++it) {
      bool v4 = it.key().af() == Nolu::ipv4_;
      if (!v4 || (!l.staticBindings.count(it.key().prefix().v4Prefix()) &&
                  !l.staticRemoteBindings.count(it.key().prefix().v4Prefix())))
         gone.push_back(it.key());
   }
   for (auto const& f : gone) c->staticFecBindingCollDel(f);
   std::set<Nolu::Prefix> prefixes;
   for (auto const& b : l.staticBindings) prefixes.insert(b.first);
   for (auto const& b : l.staticRemoteBindings) prefixes.insert(b.first);
   for (auto const& p : prefixes) {
      auto e = c->staticFecBindingCollIs(Mpls::FwdEqvClass(p));
      auto local = l.staticBindings.find(p);
      auto remote = l.staticRemoteBindings.find(p);
      e->localLabelIs(local == l.staticBindings.end() ? Nolu::MplsLabel::null()
                                                      : Nolu::MplsLabel(local->second));
      bool hasRemote = remote != l.staticRemoteBindings.end();
      e->nexthopIs(hasRemote ? Nolu::IpGenAddr(remote->second.nexthop) : Nolu::IpGenAddr());
      e->outLabelIs(hasRemote ? Nolu::MplsLabel(remote->second.label) : Nolu::MplsLabel::null());
   }
   c->linkReadyDelayIs(l.linkReadyDelay);
   c->linkReadyTimeoutIs(l.linkReadyTimeout);
   c->enabledIs(!l.shutdown);
   // Wanted last, so that the protocol configuration starts from a whole record.
   t_.ldpEnabledVrfColl->enabledVrfIs(vrf, true);
}

// Each pseudowire keeps its label while it stays within the slice of the
// range kept for pseudowires; a new one takes the lowest free label there.
void ConfigApplier::applyPseudowires(HostConfig const& cfg) {
   U32 count = pseudowireLabelCount(cfg.labelRangeSize);
   U32 first = cfg.labelRangeBase + cfg.labelRangeSize - count;
   std::map<std::string, U32> labels;
   std::set<U32> used;
   for (auto const& [name, pw] : cfg.pseudowires) {
      auto it = pwLabels_.find(name);
      if (it != pwLabels_.end() && it->second >= first && it->second < first + count &&
          used.insert(it->second).second)
         labels[name] = it->second;
   }
   U32 next = first;
   for (auto const& [name, pw] : cfg.pseudowires) {
      if (labels.count(name)) continue;
      while (used.count(next)) ++next;
      // The configuration's check keeps the pseudowires within the slice.
      VEK_ASSERT(next < first + count);
      labels[name] = next;
      used.insert(next);
   }
   pwLabels_ = std::move(labels);
   if (!t_.pwLdpConfig) return;
   std::set<Pseudowire::PseudowireLdpRequestKey> keys;
   for (auto const& [name, pw] : cfg.pseudowires)
      keys.insert(Pseudowire::PseudowireLdpRequestKey(Nolu::IpGenAddr(pw.neighbor),
                                                      Pseudowire::PseudowireId(pw.pwId)));
   for (auto it = t_.pwLdpConfig->ldpRequestIter(); it; ++it) {
      Pseudowire::PseudowireLdpRequestKey k = it.key();
      if (!keys.count(k)) t_.pwLdpConfig->ldpRequestDel(k);
   }
   for (auto const& [name, pw] : cfg.pseudowires) {
      auto r = t_.pwLdpConfig->ldpRequestIs(Pseudowire::PseudowireLdpRequestKey(
         Nolu::IpGenAddr(pw.neighbor), Pseudowire::PseudowireId(pw.pwId)));
      r->pwTypeIs(pw.type);
      r->mtuIs(pw.mtu);
      r->preferControlWordIs(pw.controlWord);
      r->pwStatusTlvIs(pw.pwStatusTlv);
      r->intfDescriptionIs(name);
      r->statusIs(pw.shutdown ? Pseudowire::connectorAdminDown : Pseudowire::connectorUp);
      r->localLabelIs(Nolu::MplsLabel(pwLabels_[name]));
   }
}

void ConfigApplier::apply(HostConfig const& cfg) {
   // Prefix lists first: a FEC filter finds its list.
   auto acl = t_.aclListConfig;
   for (auto const& [name, entries] : cfg.prefixLists) {
      auto pl = acl->prefixListIs(name);
      for (auto it = pl->permitIter(); it; ++it) {
         U32 seq = it.key();
         auto e = entries.find(seq);
         if (e == entries.end() || !e->second.permit) pl->permitDel(seq);
      }
      for (auto it = pl->denyIter(); it; ++it) {
         U32 seq = it.key();
         auto e = entries.find(seq);
         if (e == entries.end() || e->second.permit) pl->denyDel(seq);
      }
      for (auto const& [seq, e] : entries) {
         if (e.permit)
            pl->permitIs(seq, e.prefix);
         else
            pl->denyIs(seq, e.prefix);
      }
   }

   // VRFs and their namespaces, before LDP is wanted in them.
   for (auto it = t_.l3Config->vrfNsIter(); it; ++it) {
      L3::VrfName v = it.key();
      if (!cfg.vrfNetns.count(v)) t_.l3Config->vrfNsDel(v);
   }
   for (auto const& [vrf, ns] : cfg.vrfNetns) t_.l3Config->vrfNsIs(vrf, ns);
   if (t_.vrfNetnsIs) t_.vrfNetnsIs(cfg.vrfNetns);

   // Management interfaces are host knowledge that the interface predicates read.
   auto& reg = Ldp::IntfKindRegistry::instance();
   for (auto const& m : running_.managementIntf) {
      if (!cfg.managementIntf.count(m)) reg.managementIs(Nolu::IntfId(m), false);
   }
   for (auto const& m : cfg.managementIntf) reg.managementIs(Nolu::IntfId(m), true);

   t_.mplsConfig->mplsRoutingIs(cfg.mplsIp);
   for (auto it = t_.mplsConfig->mplsRoutingDisabledIntfIter(); it; ++it) {
      Nolu::IntfId i = it.key();
      if (!cfg.mplsDisabledIntf.count(i.name())) t_.mplsConfig->mplsRoutingDisabledIntfDel(i);
   }
   for (auto const& i : cfg.mplsDisabledIntf)
      t_.mplsConfig->mplsRoutingDisabledIntfIs(Nolu::IntfId(i), true);
   t_.routingConfig->routingIs(cfg.ipRouting);
   if (t_.labelBlockResponder)
      t_.labelBlockResponder->rangeIs(cfg.labelRangeBase, cfg.labelRangeSize);

   // LDP per VRF: the VRFs that go first, then the others in order.
   for (auto it = t_.ldpEnabledVrfColl->enabledVrfIter(); it; ++it) {
      L3::VrfName v = it.key();
      if (!cfg.ldp.count(v)) t_.ldpEnabledVrfColl->enabledVrfDel(v);
   }
   for (auto it = t_.ldpConfigColl->configIter(); it; ++it) {
      L3::VrfName v = it.key();
      if (!cfg.ldp.count(v)) t_.ldpConfigColl->configDel(v);
   }
   for (auto const& [vrf, l] : cfg.ldp) applyLdp(vrf, l);
   applyPseudowires(cfg);

   // Lists that are no longer configured go after the filters that named them.
   for (auto it = acl->prefixListIter(); it; ++it) {
      Vek::String name = it.key();
      if (!cfg.prefixLists.count(name)) acl->prefixListDel(name);
   }
   t_.ldpConfigColl->initializedIs(true);
   running_ = cfg;
   applied_ = true;
}

bool ConfigApplier::applyText(std::string const& text, bool replace,
                              std::vector<ConfigError>& errors) {
   HostConfig cfg = replace ? HostConfig() : running_;
   if (!parseConfig(text, cfg, errors)) return false;
   apply(cfg);
   return true;
}

}  // namespace Host
