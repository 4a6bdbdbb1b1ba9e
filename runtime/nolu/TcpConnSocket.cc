#include "runtime/nolu/TcpConnSocket.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include "runtime/vek/Activity.h"

namespace Nolu {

namespace {

class RealStream : public StreamBackend, public Vek::FdHandler {
 public:
   explicit RealStream(int fd) : fd_(fd) {}
   ~RealStream() override {
      if (gone_) *gone_ = true;
      if (sink_) Vek::activityManager()->fdDel(fd_);
      ::close(fd_);
   }
   void sinkIs(Sink* s) override {
      sink_ = s;
      if (s) Vek::activityManager()->fdIs(fd_, this, wantRead_, wantWrite_);
      else Vek::activityManager()->fdDel(fd_);
   }
   void readInterestIs(bool b) override {
      if (b == wantRead_) return;
      wantRead_ = b;
      if (sink_) Vek::activityManager()->fdIs(fd_, this, b, wantWrite_);
   }
   long read(U8* p, std::size_t n) override {
      ssize_t r = ::recv(fd_, p, n, MSG_DONTWAIT);
      return r < 0 ? -errno : long(r);
   }
   long write(U8 const* p, std::size_t n) override {
      ssize_t r = ::send(fd_, p, n, MSG_DONTWAIT | MSG_NOSIGNAL);
      return r < 0 ? -errno : long(r);
   }
   void writeInterestIs(bool b) override {
      if (b == wantWrite_) return;
      wantWrite_ = b;
      if (sink_) Vek::activityManager()->fdIs(fd_, this, wantRead_, b);
   }
   int fd() const override { return fd_; }
   void onFdEvent(U32 events) override {
      // The sink may drop this back end while it is served: a flag on the
      // stack tells whether it is still there.
      Sink* s = sink_;
      if (!s) return;
      bool gone = false;
      gone_ = &gone;
      bool out = events & 0x004;  // EPOLLOUT
      if (events & ~U32(0x004)) s->onStreamReadable();
      if (gone) return;
      if (out && sink_ == s) s->onStreamWritable();
      if (gone) return;
      gone_ = nullptr;
   }

 private:
   int fd_;
   Sink* sink_ = nullptr;
   bool wantRead_ = true;
   bool wantWrite_ = false;
   bool* gone_ = nullptr;
};

}  // namespace

std::unique_ptr<StreamBackend> realStreamBackend(int fd) {
   return std::make_unique<RealStream>(fd);
}

}  // namespace Nolu
