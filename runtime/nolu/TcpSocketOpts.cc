#include "runtime/nolu/TcpSocketOpts.h"

#include <arpa/inet.h>
#include <errno.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <string.h>
#include <sys/socket.h>

namespace Nolu {

std::string tcpOptionsApply(int fd, U32 options, U8 tos) {
   int t = tos, one = 1;
   if (::setsockopt(fd, IPPROTO_IP, IP_TOS, &t, sizeof t) != 0)
      return std::string("IP_TOS: ") + strerror(errno);
   if ((options & tcpOptNoDelay) && ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one))
      return std::string("TCP_NODELAY: ") + strerror(errno);
   if ((options & tcpOptKeepAlive) &&
       ::setsockopt(fd, SOL_SOCKET, SO_KEEPALIVE, &one, sizeof one))
      return std::string("SO_KEEPALIVE: ") + strerror(errno);
   return "";
}

int tcpMd5KeyIs(int fd, IpAddrWithMask const& peer, std::string const& key) {
   if (key.size() > TCP_MD5SIG_MAXKEYLEN) return EINVAL;
   tcp_md5sig sig{};
   auto* sin = reinterpret_cast<sockaddr_in*>(&sig.tcpm_addr);
   sin->sin_family = AF_INET;
   sin->sin_addr.s_addr = htonl(peer.addr().value());
   sig.tcpm_keylen = U16(key.size());
   memcpy(sig.tcpm_key, key.data(), key.size());
   int opt = TCP_MD5SIG;
   if (peer.len() < 32) {
      sig.tcpm_flags = TCP_MD5SIG_FLAG_PREFIX;
      sig.tcpm_prefixlen = peer.len();
      sin->sin_addr.s_addr = htonl(peer.subnet().value());
      opt = TCP_MD5SIG_EXT;
   }
   if (::setsockopt(fd, IPPROTO_TCP, opt, &sig, sizeof sig) != 0) return errno;
   return 0;
}

}  // namespace Nolu
