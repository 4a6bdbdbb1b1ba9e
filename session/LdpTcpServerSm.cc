#include "session/LdpTcpServerSm.h"

namespace Ldp {

namespace {
Vek::TraceHandle th("LdpTcpServer");
}

bool tcpChannelsAvailable(Nolu::NamespaceName const& netNs) {
   return Vek::activityManager()->mode() == Vek::ActivityManager::realTime ||
          Nolu::Sim::Network::hostOf(netNs) != nullptr;
}

LdpTcpServerSm::LdpTcpServerSm(U32 instId, Inputs const& in) : LdpSm(instId), in_(in) {
   Vek::validPtr(in_.ldpTcpServerConfig);
   Vek::validPtr(in_.ldpTcpServerStatus);
   Vek::validPtr(in_.ldpPduPamColl);
   serverConfigReactor_.init(this, in_.ldpTcpServerConfig);
   protoConfigReactor_.init(this, in_.protoConfig);
   ldpIndexReactor_.init(this, in_.ldpIndex);
   handleInitialized();
}

void LdpTcpServerSm::handleInitialized() {
   in_.ldpTcpServerStatus->listeningIs(false);
   in_.ldpTcpServerStatus->reasonIs("Initialized");
   initialized_ = true;
   handleConfig();
}

void LdpTcpServerSm::handleConfig() {
   if (!initialized_) return;
   LDP_HANDLER(th, "LdpTcpServerSm::handleConfig");
   Nolu::IpAddr addr = in_.ldpTcpServerConfig->listenIpAddr().v4Addr();
   U16 port = in_.ldpTcpServerConfig->listenPort();
   if (tcpServerConfig_ && tcpServerConfig_->listenIpAddr() == addr &&
       tcpServerConfig_->listenPort() == port)
      return;
   handleDeleteTcpServer();
   if (addr.isZero()) {
      in_.ldpTcpServerStatus->reasonIs("Server IP Address is 0");
      in_.ldpTcpServerStatus->listeningIs(false);
      return;
   }
   if (port == 0) {
      in_.ldpTcpServerStatus->reasonIs("Server listenPort is 0");
      in_.ldpTcpServerStatus->listeningIs(false);
      return;
   }
   if (!tcpChannelsAvailable(in_.netNs)) {
      in_.ldpTcpServerStatus->reasonIs("No network in namespace " + in_.netNs.name());
      in_.ldpTcpServerStatus->listeningIs(false);
      return;
   }
   handleCreateTcpServer();
}

void LdpTcpServerSm::handleCreateTcpServer() {
   Nolu::IpAddr addr = in_.ldpTcpServerConfig->listenIpAddr().v4Addr();
   U16 port = in_.ldpTcpServerConfig->listenPort();
   tcpServerConfig_ = Nolu::tcpServerConfigFactory(addr, port);
   tcpServerConfig_->optionsIs(tcpServerConfig_->options() | 10);
   tcpServerConfig_->txDsIs(LdpProtoParam::ldpTos());
   tcpServerConfig_->netnsIs(in_.netNs);
   tcpServerStatus_ = Nolu::tcpServerStatusFactory();
   tcpServerStatusReactor_.init(this, Vek::Ptr<Nolu::TcpServerStatus const>(tcpServerStatus_));
   tcpServerSm_ = Nolu::TcpServerSm::TcpServerSmIs("TcpServerSm", tcpServerConfig_,
                                                   tcpServerStatus_, in_.scheduler);
   tcpServerConfig_->retryIntervalIs(in_.ldpTcpServerConfig->retryInterval());
   handleMd5PasswordChange(password());
   tcpServerSm_->startListener();
   LDP_TRACE(th, 5, "Started TcpServer " << addr << ":" << port);
   handleTcpServerStatus();
}

void LdpTcpServerSm::handleDeleteTcpServer() {
   in_.ldpTcpServerStatus->listeningIs(false);
   if (tcpServerSm_) tcpServerSm_->stopListener();
   tcpServerStatusReactor_.reset();
   tcpServerSm_ = nullptr;
   tcpServerStatus_ = nullptr;
   tcpServerConfig_ = nullptr;
}

void LdpTcpServerSm::handleTcpServerStatus() {
   if (!initialized_) return;
   if (tcpServerStatus_) {
      in_.ldpTcpServerStatus->listeningIs(tcpServerStatus_->listening());
      in_.ldpTcpServerStatus->reasonIs(tcpServerStatus_->reason());
   } else {
      in_.ldpTcpServerStatus->listeningIs(false);
   }
}

void LdpTcpServerSm::handleConnectedSocket() {
   if (!initialized_ || !tcpServerStatus_) return;
   Vek::Sm::HandlerScope scope(this);  // lives to the end of the handler
   while (auto conn = tcpServerStatus_->getConnSocket()) {
      int sd = conn->fd();
      if (sd <= 0) continue;
      Nolu::IpAddr remote = conn->remoteIpAddr();
      Nolu::IpAddr local = conn->localIpAddr();
      if (in_.serviceAclFilter &&
          !in_.serviceAclFilter(remote, local, conn->remotePort(), conn->localPort())) {
         LDP_TRACE(th, 3, "Connection refused by Service ACL "
                             << "(srcIp=" << remote << " srcPort=" << conn->remotePort()
                             << " dstIp=" << local << " dstPort=" << conn->localPort() << ")");
         continue;
      }
      if (!password().empty() &&
          !(in_.ldpIndex && in_.ldpIndex->transportIpToPeerHas(Nolu::IpGenAddr(remote)))) {
         LDP_TRACE(th, 3, "Connection refused from " << remote
                                                     << " password is applied and this transport Ip doesn't"
                                                     << " belong to any known neighbor");
         continue;
      }
      LDP_TRACE(th, 5, "Connection from " << remote << " established at sd: " << sd);
      in_.ldpTcpServerStatus->clientCountIs(remote, in_.ldpTcpServerStatus->clientCount(remote) + 1);
      auto pam = ldpPduPamFactory(conn, false);
      in_.ldpPduPamColl->pduPamIs(sd, pam);
      pam->peerIpAddrIs(remote);
      pam->enabledIs(true);
   }
}

void LdpTcpServerSm::handleTransportIpToPeer(Nolu::IpGenAddr const& address) {
   if (!initialized_ || !tcpServerConfig_) return;
   Nolu::IpAddrWithMask key(address.v4Addr(), 32);
   Vek::String pw = password();
   bool known = in_.ldpIndex && in_.ldpIndex->transportIpToPeerHas(address);
   if (known && !pw.empty() && !address.v4Addr().isZero()) tcpServerConfig_->md5AuthIs(key, pw);
   else tcpServerConfig_->md5AuthDel(key);
}

void LdpTcpServerSm::handleMd5PasswordChange(Vek::String const& pw) {
   if (!initialized_ || !tcpServerConfig_) return;
   if (pw.empty()) {
      tcpServerConfig_->md5AuthDelAll();
      return;
   }
   if (!in_.ldpIndex) return;
   for (auto it = in_.ldpIndex->transportIpToPeerIter(); it; ++it)
      handleTransportIpToPeer(it.key());
}

}  // namespace Ldp
