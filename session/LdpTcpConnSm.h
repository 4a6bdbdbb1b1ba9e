#pragma once
// The active side's connections. LdpTcpConnConfigSm works out from session
// configuration and status which connections are wanted and writes them to
// LdpTcpConnConfigColl (and the listener's address); LdpTcpConnSm carries the
// table out with TCP clients and turns each finished connection into an
// LdpPduPam.
#include "entities/LdpStatus.h"
#include "runtime/nolu/TcpClientSm.h"
#include "session/LdpSessionColls.h"
#include "session/LdpTcpServerSm.h"
#include "entities/LdpSm.h"

namespace Ldp {

class LdpTcpConnConfigSm : public LdpSm {
 public:
   static Vek::Ptr<LdpTcpConnConfigSm> LdpTcpConnConfigSmIs(
      U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
      Vek::Ptr<LdpSessionConfigColl const> const& ldpSessionConfigColl,
      Vek::Ptr<LdpSessionStatusColl const> const& ldpSessionStatusColl,
      Vek::Ptr<LdpTcpConnConfigColl> const& ldpTcpConnConfigColl,
      Vek::Ptr<LdpTcpServerConfig> const& ldpTcpServerConfig) {
      return Vek::makeSm<LdpTcpConnConfigSm>(instId, protoConfig, ldpSessionConfigColl,
                                             ldpSessionStatusColl, ldpTcpConnConfigColl,
                                             ldpTcpServerConfig);
   }
   LdpTcpConnConfigSm(U32 instId, Vek::Ptr<ProtoConfig const> const& protoConfig,
                      Vek::Ptr<LdpSessionConfigColl const> const& ldpSessionConfigColl,
                      Vek::Ptr<LdpSessionStatusColl const> const& ldpSessionStatusColl,
                      Vek::Ptr<LdpTcpConnConfigColl> const& ldpTcpConnConfigColl,
                      Vek::Ptr<LdpTcpServerConfig> const& ldpTcpServerConfig);

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLdpSession();
   void handleLdpSession(LdpSessionId const& id);
   void handleMd5PasswordChange();
   // Collection reactors: make or drop the member's reactor, then decide.
   void handleSessionConfig(LdpSessionId const& id);
   void handleSessionStatus(LdpSessionId const& id);
   void handleMd5Password() { handleMd5PasswordChange(); }

 private:
   class CommonConfigReactor;
   class ConfigReactor;
   class StatusReactor;
   void handleLdpTcpConnConfigAdd(LdpSessionId const& id);
   void handleLdpTcpConnConfigDel(LdpSessionId const& id);

   Vek::Ptr<ProtoConfig const> protoConfig_;
   Vek::Ptr<LdpSessionConfigColl const> ldpSessionConfigColl_;
   Vek::Ptr<LdpSessionStatusColl const> ldpSessionStatusColl_;
   Vek::Ptr<LdpTcpConnConfigColl> ldpTcpConnConfigColl_;
   Vek::Ptr<LdpTcpServerConfig> ldpTcpServerConfig_;
   Vek::Input<ProtoConfig::Reactor<LdpTcpConnConfigSm>> protoConfigReactor_;
   Vek::Input<LdpSessionConfigColl::Reactor<LdpTcpConnConfigSm>> sessionConfigCollReactor_;
   Vek::Input<LdpSessionStatusColl::Reactor<LdpTcpConnConfigSm>> sessionStatusCollReactor_;
   std::unique_ptr<CommonConfigReactor> commonConfigReactor_;
   Vek::ReactorColl<LdpSessionId, ConfigReactor> sessionConfig_;
   Vek::ReactorColl<LdpSessionId, StatusReactor> sessionStatus_;
};

class LdpTcpConnSm : public LdpSm {
 public:
   static Vek::Ptr<LdpTcpConnSm> LdpTcpConnSmIs(
      U32 instId, Vek::Ptr<LdpTcpConnConfigColl const> const& ldpTcpConnConfigColl,
      Vek::Ptr<LdpTcpConnStatusColl> const& ldpTcpConnStatusColl,
      Vek::Ptr<LdpPduPamColl> const& ldpPduPamColl, Vek::Ptr<Hesk::TaskScheduler> const& scheduler,
      Nolu::NamespaceName const& netNs) {
      return Vek::makeSm<LdpTcpConnSm>(instId, ldpTcpConnConfigColl, ldpTcpConnStatusColl,
                                       ldpPduPamColl, scheduler, netNs);
   }
   LdpTcpConnSm(U32 instId, Vek::Ptr<LdpTcpConnConfigColl const> const& ldpTcpConnConfigColl,
                Vek::Ptr<LdpTcpConnStatusColl> const& ldpTcpConnStatusColl,
                Vek::Ptr<LdpPduPamColl> const& ldpPduPamColl,
                Vek::Ptr<Hesk::TaskScheduler> const& scheduler, Nolu::NamespaceName const& netNs);

   U32 clientId() const { return clientId_; }
   std::size_t tcpClientSmCount() const { return client_.size(); }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleLdpConnConfig();
   void handleLdpConnConfig(LdpIdentifier const& ldpId);
   void handleLdpConnStatus(LdpIdentifier const& ldpId);
   void handleMd5Auth(LdpIdentifier const& ldpId);
   void handleConnConfig(LdpIdentifier const& ldpId);

 private:
   class ConfigReactor;
   class ClientStatusReactor;
   struct Client {
      U32 id = 0;
      Vek::Ptr<Nolu::TcpClientConfig> config;
      Vek::Ptr<Nolu::TcpClientStatus> status;
      Vek::Ptr<Nolu::TcpClientSm> sm;
      std::unique_ptr<ClientStatusReactor> reactor;
   };
   void handleCreateTcpClientSm(LdpIdentifier const& ldpId);
   void handleRestartTcpClientSm(LdpIdentifier const& ldpId);
   void handleDeleteTcpClientSm(LdpIdentifier const& ldpId);
   Client* client(LdpIdentifier const& ldpId);

   Vek::Ptr<LdpTcpConnConfigColl const> ldpTcpConnConfigColl_;
   Vek::Ptr<LdpTcpConnStatusColl> ldpTcpConnStatusColl_;
   Vek::Ptr<LdpPduPamColl> ldpPduPamColl_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Nolu::NamespaceName netNs_;
   U32 clientId_ = 0;
   // The TCP clients by their id, as their statuses name them.
   Vek::HashMap<U32, std::unique_ptr<Client>> client_;
   Vek::Input<LdpTcpConnConfigColl::Reactor<LdpTcpConnSm>> connConfigCollReactor_;
   Vek::ReactorColl<LdpIdentifier, ConfigReactor> connConfig_;
};

}  // namespace Ldp
