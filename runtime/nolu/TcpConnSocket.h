#pragma once
// An accepted or connected TCP socket on its way from the listener or the
// connector to the channel that will frame it. Whoever holds the last
// reference to an untaken socket closes it.
#include <memory>
#include <ostream>
#include <string>

#include "runtime/nolu/PamBackend.h"
#include "runtime/nolu/Types.h"
#include "runtime/vek/Ptr.h"

namespace Nolu {

class TcpConnSocket : public Vek::PtrInterface {
 public:
   TcpConnSocket(std::unique_ptr<StreamBackend> backend, IpAddr localIpAddr, U16 localPort,
                 IpAddr remoteIpAddr, U16 remotePort)
      : backend_(std::move(backend)), fd_(backend_ ? backend_->fd() : -1),
        localIpAddr_(localIpAddr), localPort_(localPort), remoteIpAddr_(remoteIpAddr),
        remotePort_(remotePort) {}

   int fd() const { return fd_; }
   IpAddr localIpAddr() const { return localIpAddr_; }
   U16 localPort() const { return localPort_; }
   IpAddr remoteIpAddr() const { return remoteIpAddr_; }
   U16 remotePort() const { return remotePort_; }
   // Errors met while setting socket options on this connection.
   std::string const& tcpOptErrorReason() const { return optErrorReason_; }
   void tcpOptErrorReasonIs(std::string r) { optErrorReason_ = std::move(r); }

   bool taken() const { return !backend_; }
   // Hands the socket to its channel; the connection socket keeps its
   // addresses for the record.
   std::unique_ptr<StreamBackend> takeBackend() { return std::move(backend_); }

   bool operator==(TcpConnSocket const& o) const { return this == &o; }

 private:
   std::unique_ptr<StreamBackend> backend_;
   int fd_;
   IpAddr localIpAddr_;
   U16 localPort_;
   IpAddr remoteIpAddr_;
   U16 remotePort_;
   std::string optErrorReason_;
};

// A stream back end over a connected, non-blocking descriptor on the
// runtime's epoll loop; it closes the descriptor when it goes.
std::unique_ptr<StreamBackend> realStreamBackend(int fd);

inline std::ostream& operator<<(std::ostream& os, Vek::Ptr<TcpConnSocket> const& s) {
   return os << "sd " << (s ? s->fd() : -1);
}

}  // namespace Nolu
