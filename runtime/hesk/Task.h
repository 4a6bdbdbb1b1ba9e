#pragma once
// The cooperative scheduler: tasks and timer tasks on the runtime's loop, with
// per-task statistics.
#include <deque>
#include <map>
#include <ostream>
#include <string>

#include "runtime/vek/Activity.h"
#include "runtime/vek/Entity.h"
#include "runtime/vek/Ptr.h"
#include "runtime/vek/Sm.h"

namespace Hesk {

using TaskPriority = U8;
using Vek::Seconds;

struct TaskStats {
   U64 runs = 0;
   U64 workCount = 0;
   U64 workPending = 0;
   U64 yields = 0;
   Seconds totalTime = 0.0;
   Seconds maxTime = 0.0;
};

class TaskScheduler : public Vek::PtrInterface {
 public:
   explicit TaskScheduler(std::string name, Vek::ActivityManager* am = nullptr)
      : name_(std::move(name)), am_(am ? am : Vek::activityManager()) {}
   std::string const& name() const { return name_; }
   Vek::ActivityManager* activityManager() const { return am_; }

   TaskStats& stats(std::string const& task) { return stats_[task]; }
   std::map<std::string, TaskStats> const& allStats() const { return stats_; }
   // Tasks come and go with the machines that own them, and many names carry
   // a key (a session, a descriptor): the statistics of a name that no task
   // has any more are kept only for the latest deadTaskStatsMax such names.
   void taskAdd(std::string const& task) { ++live_[task]; }
   void taskDel(std::string const& task);
   static constexpr std::size_t deadTaskStatsMax = 64;
   // Prints the statistics of every task; detail adds time figures.
   void printStats(std::ostream& os, bool detail = false) const;
   void resetStats();

 private:
   std::string name_;
   Vek::ActivityManager* am_;
   std::map<std::string, TaskStats> stats_;
   std::map<std::string, U32> live_;
   std::deque<std::string> dead_;
};

class Task : public Vek::PtrInterface, public Vek::Timed {
 public:
   Task(Vek::Ptr<TaskScheduler> const& s, TaskPriority priority, std::string name);
   ~Task() override;

   std::string const& name() const { return name_; }
   TaskPriority priority() const { return timedPriority_; }
   TaskScheduler* scheduler() const { return scheduler_.ptr(); }

   // Runs the task at the next turn of the loop; repeating it is harmless.
   void scheduleTask();
   // True when the slice of this run is spent; loops test it after each item.
   bool taskShouldYield() const;
   void taskWorkCountInc(U64 n) { stats_->workCount += n; }
   void taskWorkPendingIs(U64 n) { stats_->workPending = n; }

   // The body; a task of a state machine forwards it to a handler.
   class Notifiee {
    public:
      virtual ~Notifiee() = default;
      virtual void onTaskRun() = 0;
   };
   void notifieeIs(Notifiee* n) { notifiee_ = n; }

 protected:
   void timedRun() override;
   virtual void onTaskRun() {
      if (notifiee_) notifiee_->onTaskRun();
   }
   Vek::ActivityManager* am() const { return scheduler_->activityManager(); }

 private:
   Vek::Ptr<TaskScheduler> scheduler_;
   std::string name_;
   TaskStats* stats_;
   Notifiee* notifiee_ = nullptr;
};

class TimerTask : public Task {
 public:
   using Task::Task;
   // Expiry at now + d, replacing any pending expiry; an infinite delay disarms.
   void scheduleTaskDelay(Seconds d);
   // Like scheduleTaskDelay, but an earlier pending expiry stays.
   void scheduleTaskLowestDelay(Seconds d);
   void stopTimerTask();
   // The pending expiry, or infinity when none is pending.
   Seconds currentExpirationTime() const;
};

// A timer task owned by a state machine: its body is a handler of the machine,
// and it dies with the machine (a marked task never runs its body).
template <class S>
class SmTimerTask : public TimerTask, public Vek::SmPart {
 public:
   using Handler = void (S::*)();
   SmTimerTask(S* sm, Handler h, Vek::Ptr<TaskScheduler> const& s, TaskPriority p,
               std::string name)
      : TimerTask(s, p, std::move(name)), sm_(sm), handler_(h) {
      ownerIs(sm);
   }
   void partMarkForDeletion() override {
      marked_ = true;
      stopTimerTask();
   }
   void partNotificationActiveIs(bool) override {}

 protected:
   void onTaskRun() override {
      if (marked_ || !owner()) return;
      S* sm = sm_;
      Handler h = handler_;
      Vek::Sm::run(sm, [sm, h] { (sm->*h)(); });
   }

 private:
   S* sm_;
   Handler handler_;
   bool marked_ = false;
};

template <class S>
Vek::Ptr<TimerTask> timerTaskIs(S* sm, void (S::*h)(), Vek::Ptr<TaskScheduler> const& s,
                                TaskPriority p, std::string name) {
   return Vek::Ptr<TimerTask>(new SmTimerTask<S>(sm, h, s, p, std::move(name)));
}

// Hands the keys of a work queue (a map whose keys are the work) to process,
// one at a time and each taken out first, until the queue is empty or the
// task's slice is spent; the task runs again while work remains.
template <class Q, class F>
void drainWorkQueue(TimerTask* task, Q& queue, F const& process) {
   U64 count = 0;
   while (!queue.empty()) {
      auto key = queue.begin().key();
      queue.erase(key);
      process(key);
      ++count;
      if (task->taskShouldYield()) break;
   }
   task->taskWorkCountInc(count);
   task->taskWorkPendingIs(queue.size());
   if (!queue.empty()) task->scheduleTaskDelay(0.0);
}

}  // namespace Hesk
