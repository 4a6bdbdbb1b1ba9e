#pragma once
// The TCP connector: connects from a given local address to a peer, with a
// time-out per attempt and exponential back-off between attempts. A finished
// connection is left on TcpClientStatus (connectionStatus connConnected_,
// resetConnSocket() takes it).
#include <memory>
#include <string>

#include "runtime/hesk/Task.h"
#include "runtime/nolu/Pam.h"
#include "runtime/vek/Sm.h"

namespace Nolu {

class TcpClientSm : public Vek::Sm {
 public:
   static Vek::Ptr<TcpClientSm> TcpClientSmIs(U32 clientId, Vek::Ptr<TcpClientConfig> const& c,
                                              Vek::Ptr<TcpClientStatus> const& s,
                                              Vek::Ptr<Hesk::TaskScheduler> const& scheduler);
   TcpClientSm(U32 clientId, Vek::Ptr<TcpClientConfig> const& c,
               Vek::Ptr<TcpClientStatus> const& s, Vek::Ptr<Hesk::TaskScheduler> const& sched);
   ~TcpClientSm() override;

   U32 clientId() const { return clientId_; }
   void startConnection();
   void stopConnection();

   void handleTimer();
   void connectDone(int err, std::unique_ptr<StreamBackend> s, IpAddr local, U16 localPort,
                    std::string const& optError);

 private:
   class RealConnect;
   void handleInitialized();
   void attempt();
   void failed(std::string const& reason);

   U32 clientId_;
   Vek::Ptr<TcpClientConfig> config_;
   Vek::Ptr<TcpClientStatus> status_;
   Vek::Ptr<Hesk::TaskScheduler> scheduler_;
   Vek::Ptr<Hesk::TimerTask> timer_;
   std::unique_ptr<RealConnect> real_;
   std::shared_ptr<void> sim_;
   U32 retries_ = 0;
   bool waitingRetry_ = false;
};

inline Vek::Ptr<TcpClientConfig> tcpClientConfigFactory(IpAddr local, U16 port, IpAddr peer) {
   return Vek::Ptr<TcpClientConfig>(new TcpClientConfig(local, port, peer));
}
inline Vek::Ptr<TcpClientStatus> tcpClientStatusFactory() {
   return Vek::Ptr<TcpClientStatus>(new TcpClientStatus());
}

}  // namespace Nolu
