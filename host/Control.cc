#include "host/Control.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <string.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

namespace Host {

namespace {

bool socketAddr(std::string const& path, sockaddr_un* sa, std::string* reason) {
   *sa = sockaddr_un{};
   sa->sun_family = AF_UNIX;
   if (path.empty() || path.size() >= sizeof(sa->sun_path)) {
      *reason = "socket path '" + path + "' is empty or too long";
      return false;
   }
   memcpy(sa->sun_path, path.data(), path.size());
   return true;
}

// Writes all of s to a blocking descriptor.
bool writeAll(int fd, std::string const& s) {
   std::size_t done = 0;
   while (done < s.size()) {
      ssize_t n = ::send(fd, s.data() + done, s.size() - done, MSG_NOSIGNAL);
      if (n < 0) {
         if (errno == EINTR) continue;
         return false;
      }
      done += std::size_t(n);
   }
   return true;
}

}  // namespace

ControlServer::~ControlServer() {
   for (auto& [fd, c] : conns_) {
      Vek::activityManager()->fdDel(fd);
      ::close(fd);
   }
   if (fd_ >= 0) {
      Vek::activityManager()->fdDel(fd_);
      ::close(fd_);
      ::unlink(path_.c_str());
   }
}

bool ControlServer::start(std::string const& path, std::string* reason) {
   sockaddr_un sa;
   if (!socketAddr(path, &sa, reason)) return false;
   fd_ = ::socket(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
   if (fd_ < 0) {
      *reason = std::string("socket: ") + strerror(errno);
      return false;
   }
   // A socket file that nobody answers on is a leftover: take its place. One
   // that answers belongs to a running agent.
   struct stat st;
   if (::lstat(path.c_str(), &st) == 0) {
      if (!S_ISSOCK(st.st_mode)) {
         *reason = path + " exists and is not a socket";
         return false;
      }
      int probe = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
      bool alive =
         probe >= 0 && ::connect(probe, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) == 0;
      if (probe >= 0) ::close(probe);
      if (alive) {
         *reason = "another agent is listening on " + path;
         return false;
      }
      ::unlink(path.c_str());
   }
   if (::bind(fd_, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0 || ::listen(fd_, 16) != 0) {
      *reason = "listen on " + path + ": " + strerror(errno);
      ::close(fd_);
      fd_ = -1;
      return false;
   }
   ::chmod(path.c_str(), 0600);
   path_ = path;
   Vek::activityManager()->fdIs(fd_, this, true, false);
   return true;
}

void ControlServer::onFdEvent(U32) {
   for (;;) {
      int c = ::accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
      if (c < 0) return;
      auto conn = std::make_unique<Conn>();
      conn->server = this;
      conn->fd = c;
      Vek::activityManager()->fdIs(c, conn.get(), true, false);
      conns_[c] = std::move(conn);
   }
}

void ControlServer::Conn::onFdEvent(U32 events) {
   char buf[4096];
   for (;;) {
      ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
      if (n > 0) {
         in.append(buf, std::size_t(n));
         if (in.size() > maxControlRequest) {
            server->finish(fd, false);
            return;
         }
         continue;
      }
      if (n == 0) {
         server->finish(fd, true);
         return;
      }
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) {
         if (events & (EPOLLHUP | EPOLLERR)) server->finish(fd, false);
         return;
      }
      server->finish(fd, false);
      return;
   }
}

void ControlServer::finish(int fd, bool answer) {
   auto it = conns_.find(fd);
   if (it == conns_.end()) return;
   std::unique_ptr<Conn> conn = std::move(it->second);
   conns_.erase(it);
   Vek::activityManager()->fdDel(fd);
   if (answer) {
      std::string const& in = conn->in;
      auto nl = in.find('\n');
      std::string command = in.substr(0, nl);
      std::string text = nl == std::string::npos ? std::string() : in.substr(nl + 1);
      ControlReply r = handler_(command, text);
      // The answer is small: written blocking, with a bounded wait for a
      // client that doesn't read.
      int fl = ::fcntl(fd, F_GETFL);
      if (fl >= 0) ::fcntl(fd, F_SETFL, fl & ~O_NONBLOCK);
      timeval tv{2, 0};
      ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof(tv));
      writeAll(fd, std::string(r.ok ? "ok\n" : "error\n") + r.body);
   }
   ::close(fd);
}

bool controlRequest(std::string const& path, std::string const& command, std::string const& text,
                    ControlReply* reply, std::string* reason) {
   sockaddr_un sa;
   if (!socketAddr(path, &sa, reason)) return false;
   int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
   if (fd < 0) {
      *reason = std::string("socket: ") + strerror(errno);
      return false;
   }
   if (::connect(fd, reinterpret_cast<sockaddr*>(&sa), sizeof(sa)) != 0) {
      *reason = "can't reach the agent at " + path + ": " + strerror(errno);
      ::close(fd);
      return false;
   }
   if (!writeAll(fd, command + "\n" + text)) {
      *reason = std::string("write: ") + strerror(errno);
      ::close(fd);
      return false;
   }
   ::shutdown(fd, SHUT_WR);
   std::string in;
   char buf[4096];
   for (;;) {
      ssize_t n = ::recv(fd, buf, sizeof(buf), 0);
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) break;
      in.append(buf, std::size_t(n));
   }
   ::close(fd);
   auto nl = in.find('\n');
   std::string status = in.substr(0, nl);
   if (status != "ok" && status != "error") {
      *reason = "the agent closed the connection without an answer";
      return false;
   }
   reply->ok = status == "ok";
   reply->body = nl == std::string::npos ? std::string() : in.substr(nl + 1);
   return true;
}

}  // namespace Host
