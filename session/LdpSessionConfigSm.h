#pragma once
// Turns the peer table into session configuration (peer address, role,
// sequence number, and what all sessions share), and matches TCP channels to
// sessions: every event on a channel is decided here by the channel's state,
// the session's role and the channel's origin.
#include <map>
#include <set>

#include "entities/LdpDiscovery.h"
#include "entities/LdpLabel.h"
#include "session/LdpSessionSmManager.h"

namespace Ldp {

class LdpSessionConfigSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LocalIntfIpColl const> localIntfIpColl;
      Vek::Ptr<LdpLinkConfigColl const> ldpLinkConfigColl;
      Vek::Ptr<LdpPduPamColl> ldpPduPamColl;
      Vek::Ptr<LdpPeerConfigColl const> ldpPeerConfigColl;
      Vek::Ptr<LdpSessionConfigColl> ldpSessionConfigColl;
      Vek::Ptr<LdpSessionSmColl> ldpSessionSmColl;
      Vek::Ptr<LdpSessionStatusColl> ldpSessionStatusColl;
      Vek::Ptr<LdpPduPamSessionColl> ldpPduPamSessionColl;
      Vek::Ptr<LdpPduPamShutdownColl> ldpPduPamShutdownColl;
      Vek::Ptr<LdpIdIntfIpMappingTable> ldpIdIntfIpMappingTable;
   };
   static Vek::Ptr<LdpSessionConfigSm> LdpSessionConfigSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpSessionConfigSm>(instId, in);
   }
   LdpSessionConfigSm(U32 instId, Inputs const& in);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLdpSessionCommonConfig();
   void handleLdpSessionConfig();
   void handleLdpSessionConfig(LdpSessionId const& id);
   void handleLdpPeerConfig();
   void handleLdpPeerConfig(LdpIdentifier const& ldpId);
   void calculateSessionRole();
   void calculateSessionRole(LdpSessionId const& id);
   void handleLdpPduPam();
   void handleLdpPduPam(int const& sd);
   void handleIntfIp();
   void handleIntfIp(Nolu::IpAddrWithMask const& addr);
   // Collection reactors: make or drop the member's reactor, then decide.
   void handleSessionConfig(LdpSessionId const& id) { handleLdpSessionConfig(id); }
   void handlePeerConfig(LdpIdentifier const& ldpId);
   void handlePduPam(int const& sd);
   void handleIntfIpWithMask(Nolu::IpAddrWithMask const& addr) { handleIntfIp(addr); }

 private:
   class ProtoConfigReactor;
   class CommonConfigReactor;
   using PamReactor = LdpPduPam::ChannelReactor<LdpSessionConfigSm>;
   using PeerReactor = LdpPeerConfig::MemberReactor<LdpSessionConfigSm, LdpIdentifier>;

   bool isSdThisSession(int sd, LdpSessionId const& id) const;
   void assignPamToSession(int sd, LdpSessionId const& id, Vek::Ptr<LdpPduPam> const& pam);
   void removePamFromSession(LdpSessionId const& id);
   void shutdownPam(int sd, Vek::Ptr<LdpPduPam> const& pam);

   Inputs in_;
   std::map<Nolu::IpAddr, std::set<Nolu::IpAddrWithMask>> intfIpAddr_;
   std::set<Nolu::IpAddr> intfIpAddrDelQueue_;
   std::unique_ptr<ProtoConfigReactor> protoConfigReactor_;
   std::unique_ptr<CommonConfigReactor> commonConfigReactor_;
   Vek::Input<LdpSessionConfigColl::Reactor<LdpSessionConfigSm>> sessionConfigCollReactor_;
   Vek::Input<LdpPeerConfigColl::Reactor<LdpSessionConfigSm>> peerConfigCollReactor_;
   Vek::Input<LdpPduPamColl::Reactor<LdpSessionConfigSm>> pduPamCollReactor_;
   Vek::Input<LocalIntfIpColl::Reactor<LdpSessionConfigSm>> localIntfIpCollReactor_;
   Vek::ReactorColl<LdpIdentifier, PeerReactor> peerConfig_;
   Vek::ReactorColl<int, PamReactor> pduPam_;
};

// Works from session status back to the channels, and keeps the table of the
// peers' interface addresses.
class LdpSessionStatusSm : public LdpSm {
 public:
   static Vek::Ptr<LdpSessionStatusSm> LdpSessionStatusSmIs(
      U32 instId, Vek::Ptr<LdpSessionStatusColl const> const& ldpSessionStatusColl,
      Vek::Ptr<LdpIdIntfIpMappingTable> const& ldpIdIntfIpMappingTable,
      Vek::Ptr<LdpPduPamSessionColl const> const& ldpPduPamSessionColl) {
      return Vek::makeSm<LdpSessionStatusSm>(instId, ldpSessionStatusColl, ldpIdIntfIpMappingTable,
                                             ldpPduPamSessionColl);
   }
   LdpSessionStatusSm(U32 instId, Vek::Ptr<LdpSessionStatusColl const> const& ldpSessionStatusColl,
                      Vek::Ptr<LdpIdIntfIpMappingTable> const& ldpIdIntfIpMappingTable,
                      Vek::Ptr<LdpPduPamSessionColl const> const& ldpPduPamSessionColl);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleSessionState(LdpSessionId const& id);
   void handlePeerIntfIp();
   void handlePeerIntfIp(LdpSessionId const& id, Nolu::IpGenAddr const& addr);
   void handleSessionStatus(LdpSessionId const& id);

 private:
   class StatusReactor;
   Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl_;
   Vek::Ptr<LdpIdIntfIpMappingTable> ldpIdIntfIpMappingTable_;
   Vek::Ptr<LdpPduPamSessionColl const> ldpPduPamSessionColl_;
   std::map<Nolu::IpGenAddr, std::set<LdpSessionId>> intfIpSessionTable_;
   std::set<Nolu::IpGenAddr> intfIpDelQueue_;
   Vek::Input<LdpSessionStatusColl::Reactor<LdpSessionStatusSm>> statusCollReactor_;
   Vek::ReactorColl<LdpSessionId, StatusReactor> sessionStatus_;
};

}  // namespace Ldp
