#include "runtime/vek/Activity.h"

#include <sys/epoll.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>
#include <memory>

#include "runtime/vek/Exception.h"

namespace Vek {

namespace {
ActivityManager* current = nullptr;
// Virtual time starts well away from zero, which the logic reads as "never".
constexpr Seconds kVirtualStart = 1000.0;
constexpr Seconds kVirtualEpoch = 1.7e9;
}  // namespace

ActivityManager* activityManager() {
   if (!current) {
      static std::unique_ptr<ActivityManager> fallback;
      fallback = std::make_unique<ActivityManager>(ActivityManager::realTime);
      current = fallback.get();
   }
   return current;
}

void activityManagerIs(ActivityManager* am) { current = am; }

Timed::~Timed() {
   if (am_ && heapIndex_ != kNotArmed) am_->timerStop(this);
}

ActivityManager::ActivityManager(Mode mode) : mode_(mode) {
   now_ = mode_ == virtualTime ? kVirtualStart : monotonic();
   if (mode_ == realTime) epfd_ = epoll_create1(EPOLL_CLOEXEC);
}

ActivityManager::~ActivityManager() {
   for (Timed* t : heap_) {
      t->heapIndex_ = Timed::kNotArmed;
      t->am_ = nullptr;
   }
   if (epfd_ >= 0) close(epfd_);
   if (current == this) current = nullptr;
}

Seconds ActivityManager::monotonic() const {
   timespec ts;
   clock_gettime(CLOCK_MONOTONIC, &ts);
   return ts.tv_sec + ts.tv_nsec * 1e-9;
}

Seconds ActivityManager::nowUtc() const {
   if (mode_ == virtualTime) return kVirtualEpoch + now_;
   timespec ts;
   clock_gettime(CLOCK_REALTIME, &ts);
   return ts.tv_sec + ts.tv_nsec * 1e-9;
}

bool ActivityManager::before(Timed const* a, Timed const* b) const {
   if (a->expiry_ != b->expiry_) return a->expiry_ < b->expiry_;
   if (a->timedPriority_ != b->timedPriority_) return a->timedPriority_ < b->timedPriority_;
   return a->seq_ < b->seq_;
}

void ActivityManager::heapSet(U32 i, Timed* t) {
   heap_[i] = t;
   t->heapIndex_ = i;
}

void ActivityManager::heapUp(U32 i) {
   Timed* t = heap_[i];
   while (i > 0) {
      U32 p = (i - 1) / 2;
      if (!before(t, heap_[p])) break;
      heapSet(i, heap_[p]);
      i = p;
   }
   heapSet(i, t);
}

void ActivityManager::heapDown(U32 i) {
   Timed* t = heap_[i];
   U32 n = static_cast<U32>(heap_.size());
   for (;;) {
      U32 c = 2 * i + 1;
      if (c >= n) break;
      if (c + 1 < n && before(heap_[c + 1], heap_[c])) ++c;
      if (!before(heap_[c], t)) break;
      heapSet(i, heap_[c]);
      i = c;
   }
   heapSet(i, t);
}

void ActivityManager::heapRemove(U32 i) {
   Timed* t = heap_[i];
   t->heapIndex_ = Timed::kNotArmed;
   Timed* last = heap_.back();
   heap_.pop_back();
   if (last != t) {
      heapSet(i, last);
      heapUp(i);
      heapDown(last->heapIndex_);
   }
}

void ActivityManager::timerArm(Timed* t, Seconds expiry) {
   t->am_ = this;
   t->expiry_ = expiry;
   t->seq_ = nextSeq_++;
   if (t->heapIndex_ == Timed::kNotArmed) {
      heap_.push_back(t);
      t->heapIndex_ = static_cast<U32>(heap_.size() - 1);
      heapUp(t->heapIndex_);
   } else {
      heapUp(t->heapIndex_);
      heapDown(t->heapIndex_);
   }
}

void ActivityManager::timerStop(Timed* t) {
   if (t->heapIndex_ == Timed::kNotArmed) return;
   heapRemove(t->heapIndex_);
}

Seconds ActivityManager::nextExpiry() const {
   return heap_.empty() ? infinity : heap_.front()->expiry_;
}

void ActivityManager::runTurn() {
   if (mode_ == realTime) now_ = monotonic();
   // What is armed during this turn waits for the next one, so that a task
   // that re-arms itself at once cannot keep the sockets waiting.
   U64 seqLimit = nextSeq_;
   while (!heap_.empty()) {
      Timed* t = heap_.front();
      if (t->expiry_ > now_ || t->seq_ >= seqLimit) break;
      heapRemove(0);
      t->timedRun();
   }
}

void ActivityManager::runFor(Seconds d) {
   VEK_ASSERT(mode_ == virtualTime && "runFor needs virtual time");
   Seconds end = now_ + d;
   for (;;) {
      runTurn();
      Seconds next = nextExpiry();
      if (next <= now_) continue;
      if (next > end) break;
      now_ = next;
   }
   now_ = end;
}

bool ActivityManager::runUntil(std::function<bool()> const& cond, Seconds limit) {
   VEK_ASSERT(mode_ == virtualTime && "runUntil needs virtual time");
   Seconds end = now_ + limit;
   for (;;) {
      if (cond()) return true;
      runTurn();
      if (cond()) return true;
      Seconds next = nextExpiry();
      if (next <= now_) continue;
      if (next > end) break;
      now_ = next;
   }
   now_ = end;
   return cond();
}

void ActivityManager::taskRunBegin() {
   yieldCalls_ = 0;
   if (mode_ == realTime) runStart_ = monotonic();
}

bool ActivityManager::taskShouldYield() {
   if (mode_ == virtualTime) return ++yieldCalls_ >= yieldBudget_;
   return monotonic() - runStart_ >= timeSlice_;
}

void ActivityManager::fdIs(int fd, FdHandler* h, bool read, bool write) {
   VEK_ASSERT(epfd_ >= 0 && "sockets need the real-time loop");
   epoll_event ev{};
   ev.events = (read ? U32(EPOLLIN) : 0u) | (write ? U32(EPOLLOUT) : 0u);
   ev.data.fd = fd;
   bool known = fds_.count(fd) != 0;
   fds_[fd] = h;
   if (epoll_ctl(epfd_, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, fd, &ev) != 0 && !known)
      epoll_ctl(epfd_, EPOLL_CTL_MOD, fd, &ev);
}

void ActivityManager::fdDel(int fd) {
   if (fds_.erase(fd) && epfd_ >= 0) epoll_ctl(epfd_, EPOLL_CTL_DEL, fd, nullptr);
}

void ActivityManager::pollFds(Seconds timeout) {
   if (epfd_ < 0) return;
   epoll_event evs[64];
   int ms = timeout >= 1e9 ? -1 : static_cast<int>(timeout * 1000.0 + 0.999);
   int n = epoll_wait(epfd_, evs, 64, ms);
   if (n <= 0) return;
   now_ = monotonic();
   for (int i = 0; i < n; ++i) {
      // A handler may close another descriptor of this batch: look it up again.
      auto it = fds_.find(evs[i].data.fd);
      if (it != fds_.end()) it->second->onFdEvent(evs[i].events);
   }
}

void ActivityManager::run() {
   VEK_ASSERT(mode_ == realTime && "run needs real time");
   stopped_ = false;
   while (!stopped_) {
      runTurn();
      if (stopped_) break;
      Seconds next = nextExpiry();
      Seconds wait = next <= now_ ? 0.0 : next - monotonic();
      if (wait < 0) wait = 0;
      if (fds_.empty() && next >= infinity) break;
      pollFds(wait);
   }
}

}  // namespace Vek
