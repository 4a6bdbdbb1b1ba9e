#pragma once
// The agent's scheduler tied to the event loop, and the timer wheel that the
// TCP client machinery is handed.
#include <string>

#include "runtime/hesk/Task.h"
#include "runtime/vek/Activity.h"

namespace Hesk {

// A task scheduler that runs its tasks on the runtime's activity manager.
class TaskSchedulerVekActivity : public TaskScheduler {
 public:
   explicit TaskSchedulerVekActivity(std::string name, Vek::ActivityManager* am = nullptr)
      : TaskScheduler(std::move(name), am) {}
};

// A wheel of timer slots: tickMsecs per slot, and a span of initialMaxTicks
// slots at the start. The clock is the activity manager's.
class TimerWheel : public Vek::PtrInterface {
 public:
   TimerWheel(Vek::ActivityManager* clock, U32 tickMsecs, U32 initialMaxTicks, bool preserveOrder,
              U32 defaultBucketSize)
      : clock_(clock), tickMsecs_(tickMsecs), initialMaxTicks_(initialMaxTicks),
        preserveOrder_(preserveOrder), defaultBucketSize_(defaultBucketSize) {}
   Vek::ActivityManager* systemClock() const { return clock_; }
   U32 tickMsecs() const { return tickMsecs_; }
   U32 initialMaxTicks() const { return initialMaxTicks_; }
   bool preserveOrder() const { return preserveOrder_; }
   U32 defaultBucketSize() const { return defaultBucketSize_; }
   // The time the wheel covers at the start.
   Vek::Seconds span() const { return tickMsecs_ * Vek::Seconds(initialMaxTicks_) / 1000.0; }
   // The tick that a time falls in.
   U64 tickOf(Vek::Seconds t) const { return U64(t * 1000.0 / tickMsecs_); }
   Vek::Seconds now() const { return clock_->now(); }

 private:
   Vek::ActivityManager* clock_;
   U32 tickMsecs_;
   U32 initialMaxTicks_;
   bool preserveOrder_;
   U32 defaultBucketSize_;
};

}  // namespace Hesk
