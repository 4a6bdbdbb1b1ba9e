#include "runtime/hesk/Task.h"

#include <iomanip>

namespace Hesk {

void TaskScheduler::printStats(std::ostream& os, bool detail) const {
   os << "Scheduler " << name_ << ": " << stats_.size() << " tasks\n";
   os << std::left << std::setw(40) << "task" << std::right << std::setw(10) << "runs"
      << std::setw(12) << "work" << std::setw(10) << "pending" << std::setw(10) << "yields";
   if (detail) os << std::setw(14) << "total ms" << std::setw(12) << "max ms";
   os << "\n";
   for (auto const& [name, s] : stats_) {
      os << std::left << std::setw(40) << name << std::right << std::setw(10) << s.runs
         << std::setw(12) << s.workCount << std::setw(10) << s.workPending << std::setw(10)
         << s.yields;
      if (detail)
         os << std::setw(14) << std::fixed << std::setprecision(3) << s.totalTime * 1e3
            << std::setw(12) << s.maxTime * 1e3;
      os << "\n";
   }
}

void TaskScheduler::resetStats() {
   for (auto& [name, s] : stats_) s = TaskStats{};
}

void TaskScheduler::taskDel(std::string const& task) {
   auto it = live_.find(task);
   if (it == live_.end() || --it->second) return;
   live_.erase(it);
   dead_.push_back(task);
   while (dead_.size() > deadTaskStatsMax) {
      if (!live_.count(dead_.front())) stats_.erase(dead_.front());
      dead_.pop_front();
   }
}

Task::Task(Vek::Ptr<TaskScheduler> const& s, TaskPriority priority, std::string name)
   : scheduler_(Vek::validPtr(s)), name_(std::move(name)) {
   timedPriority_ = priority;
   stats_ = &scheduler_->stats(name_);
   scheduler_->taskAdd(name_);
}

Task::~Task() { scheduler_->taskDel(name_); }

void Task::scheduleTask() {
   // Already due at once: nothing to change.
   if (timedArmed() && timedExpiry() <= am()->now()) return;
   am()->timerArm(this, am()->now());
}

bool Task::taskShouldYield() const {
   bool y = am()->taskShouldYield();
   if (y) ++stats_->yields;
   return y;
}

void Task::timedRun() {
   // The body may drop the last reference to this task.
   Vek::Ptr<Task> keep(this);
   Vek::ActivityManager* a = am();
   a->taskRunBegin();
   bool real = a->mode() == Vek::ActivityManager::realTime;
   timespec t0{};
   if (real) clock_gettime(CLOCK_MONOTONIC, &t0);
   ++stats_->runs;
   onTaskRun();
   if (real) {
      timespec t1;
      clock_gettime(CLOCK_MONOTONIC, &t1);
      Seconds d = (t1.tv_sec - t0.tv_sec) + (t1.tv_nsec - t0.tv_nsec) * 1e-9;
      stats_->totalTime += d;
      if (d > stats_->maxTime) stats_->maxTime = d;
   }
}

void TimerTask::scheduleTaskDelay(Seconds d) {
   if (d >= Vek::infinity) {
      stopTimerTask();
      return;
   }
   am()->timerArm(this, am()->now() + (d < 0 ? 0 : d));
}

void TimerTask::scheduleTaskLowestDelay(Seconds d) {
   if (d >= Vek::infinity) return;
   Seconds when = am()->now() + (d < 0 ? 0 : d);
   if (timedArmed() && timedExpiry() <= when) return;
   am()->timerArm(this, when);
}

void TimerTask::stopTimerTask() { am()->timerStop(this); }

Seconds TimerTask::currentExpirationTime() const {
   return timedArmed() ? timedExpiry() : Vek::infinity;
}

}  // namespace Hesk
