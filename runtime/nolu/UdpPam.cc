#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <string.h>
#include <sys/socket.h>
#include <unistd.h>

#include "runtime/nolu/Netns.h"
#include "runtime/nolu/Pam.h"
#include "runtime/nolu/Sim.h"
#include "runtime/vek/Activity.h"

namespace Nolu {

namespace {

// A UDP socket on the runtime's epoll loop.
class RealUdp : public UdpBackend, public Vek::FdHandler {
 public:
   RealUdp(int fd, Sink* sink, U8 tos) : fd_(fd), sink_(sink), tos_(tos) {
      Vek::activityManager()->fdIs(fd_, this, true, false);
   }
   ~RealUdp() override {
      Vek::activityManager()->fdDel(fd_);
      ::close(fd_);
   }

   int mcastGroup(std::string const& dev, IpAddr group, bool join) override {
      unsigned idx = ifIndexByName(fd_, dev);
      if (!idx) return ENODEV;
      ip_mreqn m{};
      m.imr_multiaddr.s_addr = htonl(group.value());
      m.imr_ifindex = int(idx);
      int opt = join ? IP_ADD_MEMBERSHIP : IP_DROP_MEMBERSHIP;
      if (::setsockopt(fd_, IPPROTO_IP, opt, &m, sizeof m) != 0) return errno;
      return 0;
   }

   int send(U8 const* data, std::size_t n, UdpTxInfo const& tx) override {
      sockaddr_in dst{};
      dst.sin_family = AF_INET;
      dst.sin_addr.s_addr = htonl(tx.dstIpAddr.value());
      dst.sin_port = htons(tx.dstPort);
      iovec iov{const_cast<U8*>(data), n};
      alignas(cmsghdr) char ctl[CMSG_SPACE(sizeof(in_pktinfo))] = {};
      msghdr msg{};
      msg.msg_name = &dst;
      msg.msg_namelen = sizeof dst;
      msg.msg_iov = &iov;
      msg.msg_iovlen = 1;
      if (tx.ifIndex || !tx.srcIpAddr.isZero()) {
         msg.msg_control = ctl;
         msg.msg_controllen = sizeof ctl;
         cmsghdr* c = CMSG_FIRSTHDR(&msg);
         c->cmsg_level = IPPROTO_IP;
         c->cmsg_type = IP_PKTINFO;
         c->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
         in_pktinfo pi{};
         pi.ipi_ifindex = int(tx.ifIndex);
         pi.ipi_spec_dst.s_addr = htonl(tx.srcIpAddr.value());
         memcpy(CMSG_DATA(c), &pi, sizeof pi);
      }
      // The TOS byte may change while the socket is open; the socket follows.
      if (tx.tos != tos_) {
         int t = tx.tos;
         if (::setsockopt(fd_, IPPROTO_IP, IP_TOS, &t, sizeof t) != 0) return errno;
         tos_ = tx.tos;
      }
      if (tx.ttl && tx.ttl != ttl_) {
         int t = tx.ttl;
         if (::setsockopt(fd_, IPPROTO_IP, IP_TTL, &t, sizeof t) != 0 ||
             ::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_TTL, &t, sizeof t) != 0)
            return errno;
         ttl_ = tx.ttl;
      }
      if (tx.ifIndex && tx.dstIpAddr.isMulticast()) {
         ip_mreqn m{};
         m.imr_ifindex = int(tx.ifIndex);
         ::setsockopt(fd_, IPPROTO_IP, IP_MULTICAST_IF, &m, sizeof m);
      }
      if (::sendmsg(fd_, &msg, MSG_DONTWAIT) < 0) return errno;
      return 0;
   }

   void onFdEvent(U32) override {
      // Drain what is there; each datagram is handed on at once.
      for (int i = 0; i < 64; ++i) {
         U8 buf[65536];
         sockaddr_in src{};
         iovec iov{buf, sizeof buf};
         alignas(cmsghdr) char ctl[256];
         msghdr msg{};
         msg.msg_name = &src;
         msg.msg_namelen = sizeof src;
         msg.msg_iov = &iov;
         msg.msg_iovlen = 1;
         msg.msg_control = ctl;
         msg.msg_controllen = sizeof ctl;
         ssize_t n = ::recvmsg(fd_, &msg, MSG_DONTWAIT);
         if (n < 0) return;
         UdpRxInfo info;
         info.srcIpAddr = IpAddr(ntohl(src.sin_addr.s_addr));
         info.srcPort = ntohs(src.sin_port);
         for (cmsghdr* c = CMSG_FIRSTHDR(&msg); c; c = CMSG_NXTHDR(&msg, c)) {
            if (c->cmsg_level == IPPROTO_IP && c->cmsg_type == IP_PKTINFO) {
               in_pktinfo pi;
               memcpy(&pi, CMSG_DATA(c), sizeof pi);
               info.ifIndex = U32(pi.ipi_ifindex);
               info.dstIpAddr = IpAddr(ntohl(pi.ipi_addr.s_addr));
            }
         }
         sink_->onDatagram(buf, std::size_t(n), info);
      }
   }

 private:
   int fd_;
   Sink* sink_;
   U8 tos_;
   U8 ttl_ = 0;
};

std::unique_ptr<UdpBackend> realUdpOpen(UdpPam const& p, UdpBackend::Sink* sink, int* err,
                                        std::string* reason) {
   int fd = netnsSocket(p.netns(), AF_INET, SOCK_DGRAM, err, reason);
   if (fd < 0) return nullptr;
   int one = 1, loop = p.enableIpMulticastLoop() ? 1 : 0, tos = p.txTos();
   ::setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
   ::setsockopt(fd, IPPROTO_IP, IP_PKTINFO, &one, sizeof one);
   ::setsockopt(fd, IPPROTO_IP, IP_MULTICAST_LOOP, &loop, sizeof loop);
   ::setsockopt(fd, IPPROTO_IP, IP_TOS, &tos, sizeof tos);
   sockaddr_in a{};
   a.sin_family = AF_INET;
   a.sin_addr.s_addr = htonl(p.rxIpAddr().value());
   a.sin_port = htons(p.rxPort());
   if (::bind(fd, reinterpret_cast<sockaddr*>(&a), sizeof a) != 0) {
      *err = errno;
      *reason = std::string("bind: ") + strerror(errno);
      ::close(fd);
      return nullptr;
   }
   return std::make_unique<RealUdp>(fd, sink, U8(tos));
}

}  // namespace

class UdpPam::SinkImpl : public UdpBackend::Sink {
 public:
   explicit SinkImpl(UdpPam* p) : p_(p) {}
   void onDatagram(U8 const* data, std::size_t n, UdpRxInfo const& info) override {
      Vek::Ptr<UdpPam> keep(p_);
      Vek::Ptr<Pkt> pkt = globalPktManager()->newPkt(U32(n));
      if (!pkt->appendData(data, U32(n))) return;
      if (p_->rxQueue_.size() >= maxRxQueue) p_->rxQueue_.pop_front();
      p_->rxQueue_.push_back(Rx{pkt, info});
      p_->rxPktCountInc(1);
      p_->readableCountInc(1);
   }

 private:
   UdpPam* p_;
};

UdpPam::~UdpPam() {
   backend_.reset();
}

void UdpPam::modeIs(U8 mode) {
   if (mode == mode_) return;
   backend_.reset();
   rxQueue_.clear();
   mode_ = 0;
   if (mode == 0) return;
   if (!sink_) sink_ = std::make_unique<SinkImpl>(this);
   int err = 0;
   std::string reason;
   if (Sim::Host* h = Sim::Network::hostOf(netns())) {
      backend_ = h->udpOpen(rxIpAddr(), rxPort(), enableIpMulticastLoop(), sink_.get(), &err);
      if (!backend_) reason = std::string("bind: ") + strerror(err);
   } else {
      backend_ = realUdpOpen(*this, sink_.get(), &err, &reason);
   }
   if (!backend_) {
      openErrorReasonIs(reason);
      return;
   }
   openErrorReasonIs("");
   mode_ = mode;
   writableCountInc(1);
}

int UdpPam::handleV4McastGroup(std::string const& deviceName, IpAddr group, bool join) {
   if (!backend_) return EBADF;
   return backend_->mcastGroup(deviceName, group, join);
}

Vek::Ptr<Pkt> UdpPam::doGetRxPkt() {
   if (rxQueue_.empty()) return nullptr;
   Rx r = std::move(rxQueue_.front());
   rxQueue_.pop_front();
   rxInfo_ = r.info;
   return r.pkt;
}

void UdpPam::txPktIs(Vek::Ptr<Pkt> const& pkt) { sendPkt(pkt); }

bool UdpPam::sendPkt(Vek::Ptr<Pkt> const& pkt) {
   if (!pkt) return false;
   if (!backend_) {
      txErrorsInc(1);
      txErrorReasonIs("Channel is closed");
      return false;
   }
   UdpTxInfo tx{txDstIpAddr(), txPort(), txSrcIpAddr(), txIfIndex(), txTos(), txTtl()};
   int err = backend_->send(pkt->readPtr(0), pkt->dataBytes(), tx);
   if (err) {
      txErrorsInc(1);
      txErrorReasonIs(std::string("sendmsg: ") + strerror(err));
      return false;
   }
   txPktCountInc(1);
   return true;
}

}  // namespace Nolu
