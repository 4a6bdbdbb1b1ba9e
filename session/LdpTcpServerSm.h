#pragma once
// Listens on the LDP TCP port of the VRF, admits or refuses each incoming
// connection, and turns an admitted one into an LdpPduPam. It also keeps the
// MD5 keys of the listening socket: one per known peer transport address.
#include <functional>

#include "entities/LdpStatus.h"
#include "runtime/nolu/TcpServerSm.h"
#include "session/LdpSessionColls.h"
#include "entities/LdpSm.h"

namespace Ldp {

// Asks the service ACL about a connection: remote address, local address,
// remote port, local port; true admits it.
using LdpConnectionFilter = std::function<bool(Nolu::IpGenAddr const& remote,
                                               Nolu::IpGenAddr const& local, U16 remotePort,
                                               U16 localPort)>;

// Whether TCP sockets can open in a namespace: on virtual time only a
// simulated network carries them.
bool tcpChannelsAvailable(Nolu::NamespaceName const& netNs);

class LdpTcpServerSm : public LdpSm {
 public:
   struct Inputs {
      Vek::Ptr<ProtoConfig const> protoConfig;
      Vek::Ptr<LdpIndex const> ldpIndex;
      Vek::Ptr<LdpTcpServerConfig const> ldpTcpServerConfig;
      Vek::Ptr<LdpTcpServerStatus> ldpTcpServerStatus;
      Vek::Ptr<LdpPduPamColl> ldpPduPamColl;
      LdpConnectionFilter serviceAclFilter;
      Vek::Ptr<Hesk::TaskScheduler> scheduler;
      Nolu::NamespaceName netNs;
   };
   static Vek::Ptr<LdpTcpServerSm> LdpTcpServerSmIs(U32 instId, Inputs const& in) {
      return Vek::makeSm<LdpTcpServerSm>(instId, in);
   }
   LdpTcpServerSm(U32 instId, Inputs const& in);

   Vek::Ptr<Nolu::TcpServerConfig> const& tcpServerConfig() const { return tcpServerConfig_; }
   Vek::Ptr<Nolu::TcpServerStatus> const& tcpServerStatus() const { return tcpServerStatus_; }

   void handleInitialized();
   void handleDelete() override { initialized_ = false; }
   void handleConfig();
   void handleMd5PasswordChange(Vek::String const& password);
   void handleTransportIpToPeer(Nolu::IpGenAddr const& address);
   void handleConnectedSocket();
   void handleTcpServerStatus();
   // Reactor handlers of the attributes, mapped onto the handlers above.
   void handleListenIpAddr() { handleConfig(); }
   void handleListenPort() { handleConfig(); }
   void handleMd5Password() { handleMd5PasswordChange(in_.protoConfig->md5Password()); }
   void handleConnSocketCount() { handleConnectedSocket(); }
   void handleListening() { handleTcpServerStatus(); }
   void handleReason() { handleTcpServerStatus(); }

 private:
   void handleCreateTcpServer();
   void handleDeleteTcpServer();
   Vek::String password() const {
      return in_.protoConfig ? in_.protoConfig->md5Password() : Vek::String();
   }

   Inputs in_;
   Vek::Ptr<Nolu::TcpServerConfig> tcpServerConfig_;
   Vek::Ptr<Nolu::TcpServerStatus> tcpServerStatus_;
   Vek::Ptr<Nolu::TcpServerSm> tcpServerSm_;
   Vek::Input<LdpTcpServerConfig::Reactor<LdpTcpServerSm>> serverConfigReactor_;
   Vek::Input<ProtoConfig::Reactor<LdpTcpServerSm>> protoConfigReactor_;
   Vek::Input<LdpIndex::Reactor<LdpTcpServerSm>> ldpIndexReactor_;
   Vek::Input<Nolu::TcpServerStatus::Reactor<LdpTcpServerSm>> tcpServerStatusReactor_;
};

}  // namespace Ldp
