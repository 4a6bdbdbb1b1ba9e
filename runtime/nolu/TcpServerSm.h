#pragma once
// The TCP listener: listens with retry, delivers each accepted connection
// through TcpServerStatus (connSocketCount, getConnSocket()), and keeps the
// listener's MD5 keys in step with TcpServerConfig::md5Auth.
#include <memory>
#include <string>

#include "runtime/hesk/Task.h"
#include "runtime/nolu/Pam.h"
#include "runtime/nolu/Sim.h"
#include "runtime/vek/Reactor.h"
#include "runtime/vek/Sm.h"

namespace Nolu {

class TcpServerSm : public Vek::Sm {
 public:
   static Vek::Ptr<TcpServerSm> TcpServerSmIs(std::string const& name,
                                              Vek::Ptr<TcpServerConfig> const& config,
                                              Vek::Ptr<TcpServerStatus> const& status,
                                              Vek::Ptr<Hesk::TaskScheduler> const& scheduler);
   TcpServerSm(std::string name, Vek::Ptr<TcpServerConfig> const& config,
               Vek::Ptr<TcpServerStatus> const& status,
               Vek::Ptr<Hesk::TaskScheduler> const& scheduler);
   ~TcpServerSm() override;

   std::string const& name() const { return name_; }
   void startListener();
   void stopListener();

   void handleMd5Auth(IpAddrWithMask const& peer);
   void handleRetryTimer();
   // A connection came in: queued on the status.
   void connAccepted(std::unique_ptr<StreamBackend> s, IpAddr local, U16 localPort,
                     IpAddr remote, U16 remotePort, std::string const& optError);

 private:
   class RealListener;
   class SimAcceptor;
   void handleInitialized();
   bool open(std::string* reason);

   std::string name_;
   Vek::Ptr<TcpServerConfig> config_;
   Vek::Ptr<TcpServerStatus> status_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Input<TcpServerConfig::Reactor<TcpServerSm>> configReactor_;
   Vek::Ptr<Hesk::TimerTask> retryTimer_;
   std::unique_ptr<RealListener> real_;
   std::unique_ptr<SimAcceptor> simAcceptor_;
   std::unique_ptr<Sim::Host::Listener> sim_;
   bool wanted_ = false;
};

inline Vek::Ptr<TcpServerConfig> tcpServerConfigFactory(IpAddr addr, U16 port) {
   return Vek::Ptr<TcpServerConfig>(new TcpServerConfig(addr, port));
}
inline Vek::Ptr<TcpServerStatus> tcpServerStatusFactory() {
   return Vek::Ptr<TcpServerStatus>(new TcpServerStatus());
}

}  // namespace Nolu
