#include "runtime/nolu/TcpClientSm.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "runtime/nolu/Netns.h"
#include "runtime/nolu/Sim.h"
#include "runtime/nolu/TcpSocketOpts.h"
#include "runtime/vek/Activity.h"

namespace Nolu {

class TcpClientSm::RealConnect : public Vek::FdHandler {
 public:
   RealConnect(TcpClientSm* sm, int fd, std::string optError)
      : sm_(sm), fd_(fd), optError_(std::move(optError)) {
      Vek::activityManager()->fdIs(fd_, this, false, true);
   }
   ~RealConnect() override {
      if (fd_ >= 0) {
         Vek::activityManager()->fdDel(fd_);
         ::close(fd_);
      }
   }
   void onFdEvent(U32) override {
      int err = 0;
      socklen_t l = sizeof err;
      ::getsockopt(fd_, SOL_SOCKET, SO_ERROR, &err, &l);
      if (err == EINPROGRESS || err == EALREADY) return;
      Vek::activityManager()->fdDel(fd_);
      int fd = fd_;
      fd_ = -1;
      Vek::Ptr<TcpClientSm> keep(sm_);
      if (err) {
         ::close(fd);
         sm_->connectDone(err, nullptr, IpAddr(), 0, "");
         return;
      }
      sockaddr_in local{};
      socklen_t ll = sizeof local;
      ::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &ll);
      // The call may delete this object: nothing of it is used after.
      std::string optError = std::move(optError_);
      sm_->connectDone(0, realStreamBackend(fd), IpAddr(ntohl(local.sin_addr.s_addr)),
                       ntohs(local.sin_port), optError);
   }

 private:
   TcpClientSm* sm_;
   int fd_;
   std::string optError_;
};

Vek::Ptr<TcpClientSm> TcpClientSm::TcpClientSmIs(U32 id, Vek::Ptr<TcpClientConfig> const& c,
                                                 Vek::Ptr<TcpClientStatus> const& s,
                                                 Vek::Ptr<Hesk::TaskScheduler> const& sched) {
   Vek::validPtr(c);
   Vek::validPtr(s);
   return Vek::makeSm<TcpClientSm>(id, c, s, sched);
}

TcpClientSm::TcpClientSm(U32 id, Vek::Ptr<TcpClientConfig> const& c,
                         Vek::Ptr<TcpClientStatus> const& s,
                         Vek::Ptr<Hesk::TaskScheduler> const& sched)
   : clientId_(id), config_(c), status_(s), scheduler_(sched) {
   if (!scheduler_) scheduler_ = new Hesk::TaskScheduler("nolu");
   handleInitialized();
}

TcpClientSm::~TcpClientSm() {
   real_.reset();
   sim_.reset();
}

void TcpClientSm::handleInitialized() {
   timer_ = Hesk::timerTaskIs(this, &TcpClientSm::handleTimer, scheduler_, 2, "TcpClientTimer");
   initialized_ = true;
}

void TcpClientSm::startConnection() {
   if (real_ || sim_ || status_->connectionStatus() == connConnected_) return;
   retries_ = 0;
   attempt();
}

void TcpClientSm::stopConnection() {
   timer_->stopTimerTask();
   real_.reset();
   sim_.reset();
   waitingRetry_ = false;
   if (status_->connectionStatus() != connConnected_) status_->connectionStatusIs(connIdle_);
}

void TcpClientSm::attempt() {
   waitingRetry_ = false;
   status_->attemptsInc(1);
   status_->connectionStatusIs(connConnecting_);
   IpAddr peer = config_->peerIpAddr();
   U16 port = config_->peerPort();
   std::string key;
   int bestLen = -1;
   for (auto it = config_->md5AuthIter(); it; ++it) {
      if (it.key().contains(peer) && int(it.key().len()) > bestLen) {
         bestLen = it.key().len();
         key = it.value();
      }
   }
   timer_->scheduleTaskDelay(config_->timeout());
   if (Sim::Host* h = Sim::Network::hostOf(config_->netns())) {
      TcpClientSm* self = this;
      sim_ = h->tcpConnect(config_->localIpAddr(), peer, port, key,
                           [self](int err, std::unique_ptr<StreamBackend> s, IpAddr l, U16 lp) {
                              Vek::Ptr<TcpClientSm> keep(self);
                              self->connectDone(err, std::move(s), l, lp, "");
                           });
      return;
   }
   int err = 0;
   std::string reason;
   int fd = netnsSocket(config_->netns(), AF_INET, SOCK_STREAM, &err, &reason);
   if (fd < 0) return failed(reason);
   std::string optErr = tcpOptionsApply(fd, config_->options(), config_->txDs());
   for (auto it = config_->md5AuthIter(); it; ++it) {
      int e = tcpMd5KeyIs(fd, it.key(), it.value());
      if (e) optErr = std::string("TCP_MD5SIG: ") + strerror(e);
   }
   if (!config_->localIpAddr().isZero()) {
      sockaddr_in a{};
      a.sin_family = AF_INET;
      a.sin_addr.s_addr = htonl(config_->localIpAddr().value());
      if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
         std::string r = std::string("bind: ") + strerror(errno);
         ::close(fd);
         return failed(r);
      }
   }
   sockaddr_in d{};
   d.sin_family = AF_INET;
   d.sin_addr.s_addr = htonl(peer.value());
   d.sin_port = htons(port);
   if (::connect(fd, reinterpret_cast<sockaddr*>(&d), sizeof d) != 0 && errno != EINPROGRESS) {
      std::string r = std::string("connect: ") + strerror(errno);
      ::close(fd);
      return failed(r);
   }
   real_ = std::make_unique<RealConnect>(this, fd, optErr);
}

void TcpClientSm::failed(std::string const& reason) {
   real_.reset();
   sim_.reset();
   status_->reasonIs(reason);
   if (retries_ < config_->exponentialBackoffRetries()) {
      // Back-off doubles with each retry, from the retry interval.
      Vek::Seconds d = config_->retryInterval() * double(1u << std::min<U32>(retries_, 16));
      ++retries_;
      waitingRetry_ = true;
      status_->connectionStatusIs(connRetryWait_);
      timer_->scheduleTaskDelay(d);
      return;
   }
   timer_->stopTimerTask();
   status_->connectionStatusIs(connFailed_);
}

void TcpClientSm::handleTimer() {
   if (!initialized_) return;
   if (waitingRetry_) return attempt();
   failed("Connection timed out");
}

void TcpClientSm::connectDone(int err, std::unique_ptr<StreamBackend> s, IpAddr local,
                              U16 localPort, std::string const& optError) {
   if (!initialized_) return;
   if (err) return failed(std::string("connect: ") + strerror(err));
   real_.reset();
   sim_.reset();
   timer_->stopTimerTask();
   Vek::Ptr<TcpConnSocket> c(new TcpConnSocket(std::move(s), local, localPort,
                                               config_->peerIpAddr(), config_->peerPort()));
   if (!optError.empty()) c->tcpOptErrorReasonIs(optError);
   status_->connSocketIs(c);
   status_->reasonIs("Connected");
   status_->connectionStatusIs(connConnected_);
}

}  // namespace Nolu
