#include "runtime/nolu/TcpServerSm.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "runtime/nolu/Netns.h"
#include "runtime/nolu/TcpSocketOpts.h"
#include "runtime/vek/Activity.h"

namespace Nolu {

class TcpServerSm::RealListener : public Vek::FdHandler {
 public:
   RealListener(TcpServerSm* sm, int fd) : sm_(sm), fd_(fd) {
      Vek::activityManager()->fdIs(fd_, this, true, false);
   }
   ~RealListener() override {
      Vek::activityManager()->fdDel(fd_);
      ::close(fd_);
   }
   int fd() const { return fd_; }
   void onFdEvent(U32) override {
      Vek::Ptr<TcpServerSm> keep(sm_);
      for (int i = 0; i < 64 && sm_->real_.get() == this; ++i) {
         sockaddr_in peer{}, local{};
         socklen_t pl = sizeof peer, ll = sizeof local;
         int fd = ::accept4(fd_, reinterpret_cast<sockaddr*>(&peer), &pl,
                            SOCK_NONBLOCK | SOCK_CLOEXEC);
         if (fd < 0) return;
         ::getsockname(fd, reinterpret_cast<sockaddr*>(&local), &ll);
         std::string optErr =
            tcpOptionsApply(fd, sm_->config_->options(), sm_->config_->txDs());
         sm_->connAccepted(realStreamBackend(fd), IpAddr(ntohl(local.sin_addr.s_addr)),
                           ntohs(local.sin_port), IpAddr(ntohl(peer.sin_addr.s_addr)),
                           ntohs(peer.sin_port), optErr);
      }
   }

 private:
   TcpServerSm* sm_;
   int fd_;
};

class TcpServerSm::SimAcceptor : public Sim::Host::Acceptor {
 public:
   explicit SimAcceptor(TcpServerSm* sm) : sm_(sm) {}
   void onAccept(std::unique_ptr<StreamBackend> s, IpAddr local, U16 localPort, IpAddr remote,
                 U16 remotePort) override {
      Vek::Ptr<TcpServerSm> keep(sm_);
      sm_->connAccepted(std::move(s), local, localPort, remote, remotePort, "");
   }

 private:
   TcpServerSm* sm_;
};

Vek::Ptr<TcpServerSm> TcpServerSm::TcpServerSmIs(std::string const& name,
                                                 Vek::Ptr<TcpServerConfig> const& config,
                                                 Vek::Ptr<TcpServerStatus> const& status,
                                                 Vek::Ptr<Hesk::TaskScheduler> const& s) {
   Vek::validPtr(config);
   Vek::validPtr(status);
   return Vek::makeSm<TcpServerSm>(name, config, status, s);
}

TcpServerSm::TcpServerSm(std::string name, Vek::Ptr<TcpServerConfig> const& config,
                         Vek::Ptr<TcpServerStatus> const& status,
                         Vek::Ptr<Hesk::TaskScheduler> const& scheduler)
   : name_(std::move(name)), config_(config), status_(status), scheduler_(scheduler) {
   if (!scheduler_) scheduler_ = new Hesk::TaskScheduler("nolu");
   configReactor_.init(this, config_);
   handleInitialized();
}

TcpServerSm::~TcpServerSm() {
   real_.reset();
   sim_.reset();
}

void TcpServerSm::handleInitialized() {
   retryTimer_ = Hesk::timerTaskIs(this, &TcpServerSm::handleRetryTimer, scheduler_, 2,
                                   "TcpServerRetryTimer");
   initialized_ = true;
}

bool TcpServerSm::open(std::string* reason) {
   IpAddr addr = config_->listenIpAddr();
   U16 port = config_->listenPort();
   if (Sim::Host* h = Sim::Network::hostOf(config_->netns())) {
      if (!simAcceptor_) simAcceptor_ = std::make_unique<SimAcceptor>(this);
      int err = 0;
      sim_ = h->tcpListen(addr, port, simAcceptor_.get(), &err);
      if (!sim_) {
         *reason = std::string("bind: ") + strerror(err);
         return false;
      }
      for (auto it = config_->md5AuthIter(); it; ++it) sim_->md5AuthIs(it.key(), it.value());
      return true;
   }
   int err = 0;
   int fd = netnsSocket(config_->netns(), AF_INET, SOCK_STREAM, &err, reason);
   if (fd < 0) return false;
   int one = 1;
   ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
   tcpOptionsApply(fd, config_->options(), config_->txDs());
   // Keys before listen, so that no handshake slips through unsigned.
   for (auto it = config_->md5AuthIter(); it; ++it) {
      int e = tcpMd5KeyIs(fd, it.key(), it.value());
      if (e) {
         status_->md5ErrorReasonIs(std::string("TCP_MD5SIG: ") + strerror(e));
         status_->md5ErrorsInc(1);
      }
   }
   sockaddr_in a{};
   a.sin_family = AF_INET;
   a.sin_addr.s_addr = htonl(addr.value());
   a.sin_port = htons(port);
   if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0 || ::listen(fd, 64) != 0) {
      *reason = std::string("bind: ") + strerror(errno);
      ::close(fd);
      return false;
   }
   real_ = std::make_unique<RealListener>(this, fd);
   return true;
}

void TcpServerSm::startListener() {
   wanted_ = true;
   if (real_ || sim_) return;
   std::string reason;
   if (open(&reason)) {
      retryTimer_->stopTimerTask();
      status_->reasonIs("Listening");
      status_->listeningIs(true);
      return;
   }
   status_->listeningIs(false);
   status_->reasonIs("Not listening: " + reason);
   retryTimer_->scheduleTaskDelay(config_->retryInterval());
}

void TcpServerSm::stopListener() {
   wanted_ = false;
   retryTimer_->stopTimerTask();
   real_.reset();
   sim_.reset();
   status_->listeningIs(false);
   status_->reasonIs("Stopped");
}

void TcpServerSm::handleRetryTimer() {
   if (!initialized_ || !wanted_) return;
   startListener();
}

void TcpServerSm::handleMd5Auth(IpAddrWithMask const& peer) {
   if (!initialized_) return;
   std::string k = config_->md5Auth(peer);
   if (sim_) {
      if (k.empty()) sim_->md5AuthDel(peer);
      else sim_->md5AuthIs(peer, k);
   }
   if (real_) {
      int e = tcpMd5KeyIs(real_->fd(), peer, k);
      // Removing a key that is not there is no failure.
      if (e && !(k.empty() && e == ENOENT)) {
         status_->md5ErrorReasonIs(std::string("TCP_MD5SIG: ") + strerror(e));
         status_->md5ErrorsInc(1);
      }
   }
}

void TcpServerSm::connAccepted(std::unique_ptr<StreamBackend> s, IpAddr local, U16 localPort,
                               IpAddr remote, U16 remotePort, std::string const& optError) {
   Vek::Ptr<TcpConnSocket> c(new TcpConnSocket(std::move(s), local, localPort, remote,
                                               remotePort));
   if (!optError.empty()) c->tcpOptErrorReasonIs(optError);
   status_->connSocketEnq(c);
}

}  // namespace Nolu
