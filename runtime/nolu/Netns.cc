#include "runtime/nolu/Netns.h"

#include <errno.h>
#include <fcntl.h>
#include <net/if.h>
#include <sched.h>
#include <string.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace Nolu {

int netnsSocket(NamespaceName const& ns, int domain, int type, int* err, std::string* reason) {
   if (ns.isEmpty()) {
      int fd = ::socket(domain, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      if (fd < 0) {
         *err = errno;
         *reason = std::string("socket: ") + strerror(errno);
      }
      return fd;
   }
   if (ns.name().find('/') != std::string::npos || ns.name() == "." || ns.name() == "..") {
      *err = EINVAL;
      *reason = "bad namespace name " + ns.name();
      return -1;
   }
   int self = ::open("/proc/self/ns/net", O_RDONLY | O_CLOEXEC);
   if (self < 0) {
      *err = errno;
      *reason = std::string("open /proc/self/ns/net: ") + strerror(errno);
      return -1;
   }
   std::string path = "/var/run/netns/" + ns.name();
   int target = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
   if (target < 0) {
      *err = errno;
      *reason = "open " + path + ": " + strerror(errno);
      ::close(self);
      return -1;
   }
   int fd = -1;
   if (::setns(target, CLONE_NEWNET) != 0) {
      *err = errno;
      *reason = std::string("setns: ") + strerror(errno);
   } else {
      fd = ::socket(domain, type | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
      if (fd < 0) {
         *err = errno;
         *reason = std::string("socket: ") + strerror(errno);
      }
      // Back to our own namespace; failing that the process is lost.
      if (::setns(self, CLONE_NEWNET) != 0) ::abort();
   }
   ::close(target);
   ::close(self);
   return fd;
}

unsigned ifIndexByName(int fd, std::string const& deviceName) {
   if (deviceName.empty() || deviceName.size() >= IFNAMSIZ) return 0;
   ifreq req{};
   memcpy(req.ifr_name, deviceName.data(), deviceName.size());
   if (::ioctl(fd, SIOCGIFINDEX, &req) != 0) return 0;
   return unsigned(req.ifr_ifindex);
}

}  // namespace Nolu
