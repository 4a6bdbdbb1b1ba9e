#pragma once
// The event monitor: one line per change of configuration, protocol state,
// links, adjacencies, peers, sessions and FECs, so that the course of events
// can be read afterwards without the handler traces. It writes no entity. Its
// lines go to its trace handle at level 0 and to a log that keeps the latest
// of them and hands each to a sink (the host's event log file).
#include <deque>
#include <functional>
#include <memory>

#include "discovery/LdpReactors.h"
#include "entities/LdpSm.h"
#include "entities/LdpStatus.h"
#include "runtime/vek/Reactor.h"

namespace Ldp {

class LdpEventMonLog : public Vek::PtrInterface {
 public:
   struct Line {
      U64 seq = 0;
      Vek::Seconds time = 0.0;  // UTC
      std::string text;
   };
   using Sink = std::function<void(Line const&)>;
   explicit LdpEventMonLog(std::size_t capacity = 2000) : capacity_(capacity) {}
   void lineIs(U32 instId, std::string text);
   std::deque<Line> const& lines() const { return lines_; }
   // The number of the next line: a reader that follows asks for lines
   // from the number it saw last.
   U64 nextSeq() const { return nextSeq_; }
   void sinkIs(Sink s) { sink_ = std::move(s); }
   bool contains(std::string const& text) const;
   void clear() { lines_.clear(); }

 private:
   std::size_t capacity_;
   U64 nextSeq_ = 1;
   std::deque<Line> lines_;
   Sink sink_;
};

// The operator's configuration of one VRF.
class LdpEventMonConfigSm : public LdpSm {
 public:
   LdpEventMonConfigSm(U32 instId, L3::VrfName vrf, Vek::Ptr<Config const> const& config,
                       Vek::Ptr<LdpEventMonLog> const& log);
   Config const* config() const { return config_.ptr(); }
   void handleInitialized();
   void handleConfig();

 private:
   class ConfigReactor : public Vek::CustomReactor<Config::NotifieeConst, LdpEventMonConfigSm> {
    public:
      using CustomReactor::CustomReactor;
      void onEnabled() override { fire(); }
      void onRouterId() override { fire(); }
      void onRouterIdIntfId() override { fire(); }
      void onIpTransportAddrIntfId() override { fire(); }
      void onLdpLabelDistCtrl() override { fire(); }
      void onLdpLabelAdvDspl() override { fire(); }
      void onLdpLabelRetention() override { fire(); }

    private:
      void fire() { fwd([](auto* sm) { sm->handleConfig(); }); }
   };
   L3::VrfName vrf_;
   Vek::Ptr<Config const> config_;
   Vek::Ptr<LdpEventMonLog> log_;
   Vek::Input<ConfigReactor> reactor_;
};

// The effective protocol configuration of one VRF.
class LdpEventMonProtoConfigSm : public LdpSm {
 public:
   LdpEventMonProtoConfigSm(U32 instId, L3::VrfName vrf,
                            Vek::Ptr<ProtoConfig const> const& protoConfig,
                            Vek::Ptr<LdpEventMonLog> const& log);
   ProtoConfig const* protoConfig() const { return protoConfig_.ptr(); }
   void handleInitialized();
   void handleRunningState();
   void handleRouterId();
   void handleLdpIdentifier();
   void handleIpTransportAddr();
   void handleIntfId();

 private:
   L3::VrfName vrf_;
   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<LdpEventMonLog> log_;
   Vek::Input<ProtoConfig::Reactor<LdpEventMonProtoConfigSm>> reactor_;
};

// The state of one VRF: links, adjacencies, peers, sessions and FECs.
class LdpEventMonStatusSm : public LdpSm {
 public:
   LdpEventMonStatusSm(U32 instId, L3::VrfName vrf, Vek::Ptr<Status const> const& status,
                       Vek::Ptr<LdpEventMonLog> const& log);
   ~LdpEventMonStatusSm() override;
   Status const* status() const { return status_.ptr(); }
   void handleInitialized();
   void handleLinkConfig(Nolu::IntfId const& intf);
   void handleAdjConfig(LdpAdjId const& id);
   void handlePeerConfig(LdpIdentifier const& id);
   void handleSessionConfig(LdpSessionId const& id);
   void handleSessionRole(LdpSessionId const& id);
   void handleSessionPeerIpAddr(LdpSessionId const& id);
   void handleSessionStatus(LdpSessionId const& id);
   void handleSessionState(LdpSessionId const& id);
   void handleSessionCode(LdpSessionId const& id);
   void handleSessionOperAdv(LdpSessionId const& id);
   void handleFecConfig(Mpls::FwdEqvClass const& fec);
   void handleFecMembership(Mpls::FwdEqvClass const& fec, LdpFecConfigMembership m);
   void handleFecNotification(Mpls::FwdEqvClass const& fec);
   // The root made one of the collections.
   void watch();
   void handleLdpLinkConfigColl() { watch(); }
   void handleLdpAdjConfigColl() { watch(); }
   void handleLdpPeerConfigColl() { watch(); }
   void handleLdpSessionConfigColl() { watch(); }
   void handleLdpSessionStatusColl() { watch(); }
   void handleLdpFecConfigColl() { watch(); }
   void handleLdpFecStatusColl() { watch(); }

 private:
   void line(std::string text);
   class LinkReactor;
   class AdjReactor;
   class PeerReactor;
   class SessionConfigCollReactor;
   class SessionStatusCollReactor;
   class SessionConfigReactor;
   class SessionStatusReactor;
   class FecConfigReactor;
   class FecStatusReactor;

   L3::VrfName vrf_;
   Vek::Ptr<Status const> status_;
   Vek::Ptr<LdpEventMonLog> log_;
   Vek::Input<Status::Reactor<LdpEventMonStatusSm>> statusReactor_;
   std::unique_ptr<LinkReactor> link_;
   std::unique_ptr<AdjReactor> adj_;
   std::unique_ptr<PeerReactor> peer_;
   std::unique_ptr<SessionConfigCollReactor> sessionConfigColl_;
   std::unique_ptr<SessionStatusCollReactor> sessionStatusColl_;
   std::unique_ptr<FecConfigReactor> fecConfig_;
   std::unique_ptr<FecStatusReactor> fecStatus_;
   Vek::ReactorColl<LdpSessionId, SessionConfigReactor> sessionConfig_;
   Vek::ReactorColl<LdpSessionId, SessionStatusReactor> sessionStatus_;
};

// Makes, per VRF, the monitor of each of the three entities while the entity
// exists.
class LdpEventMonSmManager : public LdpSm {
 public:
   static Vek::Ptr<LdpEventMonSmManager> LdpEventMonSmManagerIs(
      U32 instId, Vek::Ptr<LdpConfigColl const> const& ldpConfigColl,
      Vek::Ptr<LdpProtoConfigColl const> const& ldpProtoConfigColl,
      Vek::Ptr<LdpStatusColl const> const& ldpStatusColl, Vek::Ptr<LdpEventMonLog> const& log) {
      return Vek::makeSm<LdpEventMonSmManager>(instId, ldpConfigColl, ldpProtoConfigColl,
                                               ldpStatusColl, log);
   }
   LdpEventMonSmManager(U32 instId, Vek::Ptr<LdpConfigColl const> const& ldpConfigColl,
                        Vek::Ptr<LdpProtoConfigColl const> const& ldpProtoConfigColl,
                        Vek::Ptr<LdpStatusColl const> const& ldpStatusColl,
                        Vek::Ptr<LdpEventMonLog> const& log);

   LdpEventMonLog* log() const { return log_.ptr(); }
   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleVrf(L3::VrfName const& vrf);
   void handleConfig(L3::VrfName const& vrf) { handleVrf(vrf); }
   void handleProtoConfig(L3::VrfName const& vrf) { handleVrf(vrf); }
   void handleStatus(L3::VrfName const& vrf) { handleVrf(vrf); }

 private:
   Vek::Ptr<LdpConfigColl const> ldpConfigColl_;
   Vek::Ptr<LdpProtoConfigColl const> ldpProtoConfigColl_;
   Vek::Ptr<LdpStatusColl const> ldpStatusColl_;
   Vek::Ptr<LdpEventMonLog> log_;
   Vek::Input<LdpConfigColl::Reactor<LdpEventMonSmManager>> configReactor_;
   Vek::Input<LdpProtoConfigColl::Reactor<LdpEventMonSmManager>> protoConfigReactor_;
   Vek::Input<LdpStatusColl::Reactor<LdpEventMonSmManager>> statusReactor_;
   Vek::SmColl<L3::VrfName, LdpEventMonConfigSm> ldpEventMonConfigSm_{this};
   Vek::SmColl<L3::VrfName, LdpEventMonProtoConfigSm> ldpEventMonProtoConfigSm_{this};
   Vek::SmColl<L3::VrfName, LdpEventMonStatusSm> ldpEventMonStatusSm_{this};
};

}  // namespace Ldp
