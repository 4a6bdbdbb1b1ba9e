#pragma once
// The derived half of every FEC: its downstream LSRs, whether a downstream
// mapping is there, its LSP role, its local labels, its filtered state and
// the sessions that keep label state for it. The vias' LSRs are derived from
// the FEC's own vias and the address table, not kept in a second index.
#include "entities/LdpConfig.h"
#include "entities/LdpLabel.h"
#include "entities/LdpSession.h"
#include "entities/LdpSm.h"
#include "entities/Platform.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpFecConfigSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpFecConfigColl> ldpFecConfigColl;
      Vek::Ptr<LdpFecStatusColl const> ldpFecStatusColl;
      Vek::Ptr<Mpls::LdpInternalLabelBindingTable const> localLabelBindingTable;
      Vek::Ptr<Mpls::LdpInternalLabelBindingTableColl const> peerLabelBindingTableColl;
      Vek::Ptr<LdpIdIntfIpMappingTable const> ldpIdIntfIpMappingTable;
      Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl;
      Vek::Ptr<LdpFecSessionStatusColl const> ldpFecSessionStatusColl;
      Vek::Ptr<Statistics> statistics;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
      // Downstream mappings of other label sources; none on a plain host.
      Vek::Ptr<Mpls::Api::Status const> mplsAgentStatus;
   };
   static Vek::Ptr<LdpFecConfigSm> LdpFecConfigSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpFecConfigSm>(instId, in);
   }
   LdpFecConfigSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }

   // The FEC database.
   void handleFecConfig(Mpls::FwdEqvClass const& fec);
   void handleFecConfigLdpFecDeliveryType(Mpls::FwdEqvClass const& fec) { handleFecConfig(fec); }
   void handleFecConfigVia(Mpls::FwdEqvClass const& fec, Via const& via);
   void handleFecConfigDownstreamLsr(Mpls::FwdEqvClass const& fec, LdpIdentifier const&);
   void handleFecConfigMappedLsr(Mpls::FwdEqvClass const& fec, LdpIdentifier const&) {
      calcDownstreamLsrMappingAvail(fec);
   }
   // Local labels: a whole binding, or one label of it.
   void handleBinding(Mpls::FwdEqvClass const& fec) { handleLocalLabel(fec, Nolu::MplsLabel::any()); }
   void handleBindingMplsLabel(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel const& label) {
      handleLocalLabel(fec, label);
   }
   // Peer tables come and go; their bindings say which LSRs mapped a FEC.
   void handlePeerLabelBindingTable(Mpls::RouterId const& peer);
   void handlePeerMplsLabel(Mpls::RouterId const& peer, Mpls::FwdEqvClass const& fec);
   // A peer's address came or went.
   void handleIntfIpToLdpId(Nolu::IpGenAddr const& addr) { handleLsrIntfIp(addr); }
   void handleLsrIntfIp(Nolu::IpGenAddr const& addr);
   void handleLsrIntfIpTimerTask();
   // FEC sessions.
   void handleFecSessionStatus(LdpFecSessionId const& id) { computeSessionMembership(id); }
   void handleFecSessionStatusLocalLabelSessionState(LdpFecSessionId const& id) {
      computeSessionMembership(id);
   }
   void handleFecSessionStatusPeerLabelSessionState(LdpFecSessionId const& id) {
      computeSessionMembership(id);
   }
   // Another label source's downstream mappings: the table replaced, or a
   // FEC's entry or sources changed.
   void handleDsMappingSourceColl();
   void handleDsMappingSource(Mpls::FwdEqvClass const& fec) { calcDownstreamLsrMappingAvail(fec); }
   void handleDsMappingSourceSource(Mpls::FwdEqvClass const& fec, Vek::String const&) {
      calcDownstreamLsrMappingAvail(fec);
   }
   // The filter and the feature word.
   void handleFecFilter();
   void handleFilterVersion() { handleFecFilterVersion(); }
   void handleFecFilterVersion();
   void deferredUpdateFilterVersion();
   void handleLdpProtoParamSetting() { handleLspRole(); }
   void handleLspRole();
   void handleFecCountTimerTask();

   void handleVia(Mpls::FwdEqvClass const& fec);
   void handleViaAdd(Mpls::FwdEqvClass const& fec, Via const& via);
   void handleViaDel(Mpls::FwdEqvClass const& fec, Via const& via);
   void handlePeerTable(Mpls::FwdEqvClass const& fec);
   void calcDownstreamLsrMappingAvail(Mpls::FwdEqvClass const& fec);
   void handleLspRole(Mpls::FwdEqvClass const& fec);
   void handleLocalLabel(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel const& label);
   void computeSessionMembership(LdpFecSessionId const& id);
   void handleFecFilter(Mpls::FwdEqvClass const& fec);

   Mpls::FwdEqvClass const& filterWorkQueueBookmark() const { return filterBookmark_.key; }
   bool filterWalkPending() const { return filterWalk_; }

 private:
   using Ref = LdpFecConfigColl::FecConfigRef;
   void doFecConfigDownstreamLsrAdd(Ref& cfg, Via const& via, LdpIdentifier const& ldpId);
   void doFecConfigDownstreamLsrDel(Ref& cfg, Via const& via);
   void updateFecCounters(Mpls::FecFilteredState old, Mpls::FecFilteredState now);
   LdpIdentifier ldpIdOf(Nolu::IpGenAddr const& addr) const;

   class PeerTableReactor
      : public Vek::CustomReactor<Mpls::LdpInternalLabelBindingTable::NotifieeConst, LdpFecConfigSm> {
    public:
      PeerTableReactor(LdpFecConfigSm* sm, Vek::Ptr<Mpls::LdpInternalLabelBindingTable const> const& t,
                       Mpls::RouterId const& peer)
         : CustomReactor(sm, t), peer_(peer) {}
      void onBinding(Mpls::FwdEqvClass const& fec) override { fire(fec); }
      void onBindingMplsLabel(Mpls::FwdEqvClass const& fec, Nolu::MplsLabel const&) override {
         fire(fec);
      }

    private:
      void fire(Mpls::FwdEqvClass const& fec) {
         fwd([this, &fec](LdpFecConfigSm* sm) { sm->handlePeerMplsLabel(peer_, fec); });
      }
      Mpls::RouterId peer_;
   };
   class FilterReactor : public Vek::CustomReactor<LdpFecFilter::NotifieeConst, LdpFecConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onFilterVersion() override {
         fwd([](LdpFecConfigSm* sm) { sm->handleFecFilterVersion(); });
      }
   };
   class ProtoConfigReactor : public Vek::CustomReactor<ProtoConfig::NotifieeConst, LdpFecConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onFecFilter() override {
         fwd([](LdpFecConfigSm* sm) { sm->handleFecFilter(); });
      }
      void onLdpProtoParamSetting() override {
         fwd([](LdpFecConfigSm* sm) { sm->handleLspRole(); });
      }
   };

   Inputs in_;
   Vek::Ptr<Hesk::TimerTask> filterTimerTask_;
   Vek::Ptr<Hesk::TimerTask> lsrIntfIpTimerTask_;
   Vek::Ptr<Hesk::TimerTask> fecCountTimerTask_;
   Vek::Bookmark<Mpls::FwdEqvClass> filterBookmark_;
   bool filterWalk_ = false;
   // Peer addresses that came or went since the last walk of the FECs.
   Vek::HashMap<Nolu::IpGenAddr, bool> lsrIntfIpQueue_;
   Vek::Input<ProtoConfigReactor> protoConfigReactor_;
   Vek::Input<FilterReactor> fecFilterReactor_;
   Vek::Input<LdpFecConfigColl::Reactor<LdpFecConfigSm>> fecConfigCollReactor_;
   Vek::Input<Mpls::LdpInternalLabelBindingTable::Reactor<LdpFecConfigSm>> localTableReactor_;
   Vek::Input<Mpls::LdpInternalLabelBindingTableColl::Reactor<LdpFecConfigSm>> peerCollReactor_;
   Vek::ReactorColl<Mpls::RouterId, PeerTableReactor> peerTableReactor_;
   Vek::Input<LdpIdIntfIpMappingTable::Reactor<LdpFecConfigSm>> ldpIdTableReactor_;
   Vek::Input<LdpFecSessionStatusColl::Reactor<LdpFecConfigSm>> fecSessionReactor_;
   Vek::Input<Mpls::Api::Status::Reactor<LdpFecConfigSm>> mplsAgentStatusReactor_;
   Vek::Input<Mpls::Api::DsMappingSourceTable::Reactor<LdpFecConfigSm>> dsMappingSourceCollReactor_;
};

}  // namespace Ldp
