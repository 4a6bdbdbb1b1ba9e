#pragma once
// Socket options shared by the listener and the connector on real sockets.
#include <string>

#include "runtime/nolu/Types.h"

namespace Nolu {

// Option bits of TcpConfigBase::options.
constexpr U32 tcpOptNoDelay = 2;
constexpr U32 tcpOptKeepAlive = 8;

// Sets TOS and the option bits; returns "" or the text of the first failure.
std::string tcpOptionsApply(int fd, U32 options, U8 tos);
// Installs (or, with an empty key, removes) the MD5 key for a peer prefix;
// 0 or an errno.
int tcpMd5KeyIs(int fd, IpAddrWithMask const& peer, std::string const& key);

}  // namespace Nolu
