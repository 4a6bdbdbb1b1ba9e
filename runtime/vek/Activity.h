#pragma once
// The event loop. One thread runs everything: due timer tasks, ready sockets,
// and whatever they trigger. Two clocks are interchangeable: the real one
// (epoll, the monotonic clock) and a virtual one that tests drive, so that a
// whole agent - or several in one process - runs deterministically.
#include <functional>
#include <unordered_map>
#include <vector>

#include "runtime/vek/Types.h"

namespace Vek {

// Something with a time of expiry in the loop's timer heap. Entries due at the
// same instant run by priority (lower first), then in the order they were armed.
class Timed {
 public:
   Timed() = default;
   Timed(Timed const&) = delete;
   Timed& operator=(Timed const&) = delete;
   virtual ~Timed();

   bool timedArmed() const { return heapIndex_ != kNotArmed; }
   Seconds timedExpiry() const { return expiry_; }

 protected:
   virtual void timedRun() = 0;
   U8 timedPriority_ = 2;

 private:
   friend class ActivityManager;
   static constexpr U32 kNotArmed = 0xffffffffu;
   Seconds expiry_ = 0.0;
   U64 seq_ = 0;
   U32 heapIndex_ = kNotArmed;
   class ActivityManager* am_ = nullptr;
};

class FdHandler {
 public:
   virtual ~FdHandler() = default;
   // events: EPOLLIN / EPOLLOUT / EPOLLERR / EPOLLHUP bits.
   virtual void onFdEvent(U32 events) = 0;
};

class ActivityManager {
 public:
   enum Mode { realTime, virtualTime };
   explicit ActivityManager(Mode mode);
   ~ActivityManager();
   ActivityManager(ActivityManager const&) = delete;
   ActivityManager& operator=(ActivityManager const&) = delete;

   Mode mode() const { return mode_; }
   // The loop's clock: monotonic seconds, read once per turn of the loop.
   Seconds now() const { return now_; }
   // Wall-clock time; on virtual time a fixed epoch plus the virtual clock.
   Seconds nowUtc() const;

   void timerArm(Timed* t, Seconds expiry);
   void timerStop(Timed* t);
   Seconds nextExpiry() const;
   std::size_t timersArmed() const { return heap_.size(); }

   // One turn: run every entry that was due when the turn began.
   void runTurn();
   // Real time: turns and socket waits until stop().
   void run();
   void stop() { stopped_ = true; }

   // Virtual time: run everything due up to now + d, moving the clock from
   // expiry to expiry; the clock ends at now + d.
   void runFor(Seconds d);
   // Virtual time: run until cond() holds or the clock has moved by limit;
   // returns whether cond() holds.
   bool runUntil(std::function<bool()> const& cond, Seconds limit);

   // The time slice of a task run: on real time a few milliseconds, on
   // virtual time a budget of calls so that yields are deterministic.
   bool taskShouldYield();
   void taskRunBegin();
   void yieldBudgetIs(U32 calls) { yieldBudget_ = calls; }
   void timeSliceIs(Seconds s) { timeSlice_ = s; }

   // Sockets, real time only.
   void fdIs(int fd, FdHandler* h, bool read, bool write);
   void fdDel(int fd);
   // Waits for sockets for at most timeout seconds and dispatches them.
   void pollFds(Seconds timeout);

 private:
   bool before(Timed const* a, Timed const* b) const;
   void heapUp(U32 i);
   void heapDown(U32 i);
   void heapRemove(U32 i);
   void heapSet(U32 i, Timed* t);
   Seconds monotonic() const;

   Mode mode_;
   Seconds now_ = 0.0;
   std::vector<Timed*> heap_;
   U64 nextSeq_ = 1;
   bool stopped_ = false;
   U32 yieldBudget_ = 64;
   U32 yieldCalls_ = 0;
   Seconds timeSlice_ = 0.005;
   Seconds runStart_ = 0.0;
   int epfd_ = -1;
   std::unordered_map<int, FdHandler*> fds_;
};

// The loop in use. Tests install a virtual one; the agent runner a real one.
ActivityManager* activityManager();
void activityManagerIs(ActivityManager* am);

namespace System {
inline Seconds currentTime() { return activityManager()->now(); }
inline Seconds currentTimeUtc() { return activityManager()->nowUtc(); }
}  // namespace System

}  // namespace Vek
