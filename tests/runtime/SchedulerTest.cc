// Timer tasks, the work-queue pattern, the number allocator and tracing, all
// on virtual time.
#include <gtest/gtest.h>

#include "entities/LdpSm.h"
#include "runtime/hesk/NumAllocator.h"
#include "runtime/hesk/Task.h"
#include "runtime/vek/Trace.h"

using Vek::Ptr;

namespace {

struct VirtualLoop {
   Vek::ActivityManager am{Vek::ActivityManager::virtualTime};
   Ptr<Hesk::TaskScheduler> sched;
   VirtualLoop() {
      Vek::activityManagerIs(&am);
      sched = new Hesk::TaskScheduler("LdpAgent", &am);
   }
};

// A machine with a work queue: keys go into a set, a timer task drains it and
// yields when its slice is spent.
class Drainer : public Ldp::LdpSm {
 public:
   Drainer(Ptr<Hesk::TaskScheduler> const& s) : LdpSm(1), sched_(s) { handleInitialized(); }
   void handleInitialized() {
      timer_ = Hesk::timerTaskIs(this, &Drainer::handleTimer, sched_, 2, "DrainTimer");
      initialized_ = true;
   }
   void add(U32 k) {
      queue_.emplace(k, true);
      timer_->scheduleTaskDelay(0.0);
   }
   void handleTimer() {
      ++runs;
      U64 done = 0;
      for (auto it = queue_.begin(); it; ++it) {
         order.push_back(it.key());
         queue_.erase(it.key());
         ++done;
         if (timer_->taskShouldYield()) break;
      }
      timer_->taskWorkCountInc(done);
      timer_->taskWorkPendingIs(queue_.size());
      if (!queue_.empty()) timer_->scheduleTaskDelay(0.0);
   }
   Hesk::TimerTask* timer() { return timer_.ptr(); }
   int runs = 0;
   std::vector<U32> order;

 private:
   Ptr<Hesk::TaskScheduler> sched_;
   Ptr<Hesk::TimerTask> timer_;
   Vek::HashMap<U32, bool> queue_;
};

class Recorder : public Hesk::TimerTask, public Hesk::Task::Notifiee {
 public:
   Recorder(Ptr<Hesk::TaskScheduler> const& s, U8 prio, std::string name,
            std::vector<std::string>* log)
      : TimerTask(s, prio, name), log_(log) {
      notifieeIs(this);
   }
   void onTaskRun() override { log_->push_back(name()); }

 private:
   std::vector<std::string>* log_;
};

}  // namespace

TEST(Scheduler, DelaysAndOrder) {
   VirtualLoop loop;
   std::vector<std::string> log;
   Ptr<Recorder> a(new Recorder(loop.sched, 2, "a", &log));
   Ptr<Recorder> b(new Recorder(loop.sched, 0, "b", &log));
   Ptr<Recorder> c(new Recorder(loop.sched, 2, "c", &log));
   Vek::Seconds t0 = loop.am.now();

   // Lowest delay keeps an earlier expiry; a plain delay replaces it.
   a->scheduleTaskDelay(1.0);
   a->scheduleTaskLowestDelay(10.0);
   EXPECT_DOUBLE_EQ(t0 + 1.0, a->currentExpirationTime());
   a->scheduleTaskDelay(10.0);
   EXPECT_DOUBLE_EQ(t0 + 10.0, a->currentExpirationTime());
   a->scheduleTaskLowestDelay(2.0);
   EXPECT_DOUBLE_EQ(t0 + 2.0, a->currentExpirationTime());
   // Due at the same instant: priority first, then the order of arming.
   c->scheduleTaskDelay(2.0);
   b->scheduleTaskDelay(2.0);
   loop.am.runFor(1.999);
   EXPECT_TRUE(log.empty());
   loop.am.runFor(0.001);
   EXPECT_EQ((std::vector<std::string>{"b", "a", "c"}), log);

   // An infinite delay disarms; stopping twice is harmless.
   log.clear();
   a->scheduleTaskDelay(5.0);
   a->scheduleTaskDelay(Vek::infinity);
   a->stopTimerTask();
   loop.am.runFor(100.0);
   EXPECT_TRUE(log.empty());
   EXPECT_EQ(Vek::infinity, a->currentExpirationTime());

   // A task that is dropped while armed never runs.
   b->scheduleTaskDelay(1.0);
   b = nullptr;
   loop.am.runFor(2.0);
   EXPECT_TRUE(log.empty());
   EXPECT_EQ(1u, loop.sched->allStats().at("b").runs);
}

TEST(Scheduler, WorkQueueYieldsAndResumes) {
   VirtualLoop loop;
   loop.am.yieldBudgetIs(10);
   auto d = Vek::makeSm<Drainer>(loop.sched);
   for (U32 i = 0; i < 35; ++i) d->add(i);
   loop.am.runFor(0.0);
   // 35 keys at 10 a run: four runs, with no new input after the first.
   EXPECT_EQ(4, d->runs);
   EXPECT_EQ(35u, d->order.size());
   auto const& st = loop.sched->allStats().at("DrainTimer");
   EXPECT_EQ(35u, st.workCount);
   EXPECT_EQ(0u, st.workPending);
   EXPECT_EQ(3u, st.yields);
   std::ostringstream os;
   loop.sched->printStats(os, true);
   EXPECT_NE(std::string::npos, os.str().find("DrainTimer"));

   // A machine that goes away takes its armed timer with it.
   d->add(99);
   Hesk::TimerTask* t = d->timer();
   EXPECT_TRUE(t->timedArmed());
   d = nullptr;
   EXPECT_EQ(0u, loop.am.timersArmed());
}

namespace {

// Counts the exhaustion announcements a reactor on the status would make.
class ExhaustionWatcher : public Hesk::NumAllocatorStatus::NotifieeConst {
 public:
   explicit ExhaustionWatcher(Ptr<Hesk::NumAllocatorStatus> const& s) { notifierBaseIs(s); }
   void onRangeExhausted() override { changes.push_back(notifier()->rangeExhausted()); }
   std::vector<bool> changes;
};

}  // namespace

TEST(Scheduler, NumAllocatorQuarantinesAndFollowsItsConfiguration) {
   VirtualLoop loop;
   Ptr<Hesk::NumAllocatorConfig> cfg(new Hesk::NumAllocatorConfig(100));
   cfg->rangeIs(Hesk::Range::of(100, 103));
   cfg->expiryTimeIs(5.0);
   Ptr<Hesk::NumAllocatorStatus> st(new Hesk::NumAllocatorStatus);
   ExhaustionWatcher watcher(st);
   Hesk::NumAllocator alloc(cfg, st, &loop.am);
   EXPECT_TRUE(alloc.reserveNumber(101));
   EXPECT_FALSE(alloc.reserveNumber(101));
   EXPECT_FALSE(alloc.reserveNumber(99));
   EXPECT_EQ(100u, alloc.getNumber());
   EXPECT_EQ(102u, alloc.getNumber());
   EXPECT_EQ(103u, alloc.getNumber());
   EXPECT_EQ(Hesk::NumAllocator::kNone, alloc.getNumber());
   EXPECT_EQ(std::vector<bool>{true}, watcher.changes);

   // A released number is quarantined, not handed out, and a second release
   // of it, or of a number nobody holds, changes nothing.
   alloc.releaseNumber(100);
   alloc.releaseNumber(100);
   alloc.releaseNumber(99);
   EXPECT_FALSE(alloc.isReserved(100));
   EXPECT_TRUE(alloc.isQuarantined(100));
   EXPECT_FALSE(alloc.reserveNumber(100));
   EXPECT_EQ(1u, st->quarantined());
   EXPECT_EQ(Hesk::NumAllocator::kNone, alloc.getNumber());
   // The timer returns it when the quarantine ends, and that ends the exhaustion.
   loop.am.runFor(4.9);
   EXPECT_EQ(std::vector<bool>{true}, watcher.changes);
   loop.am.runFor(0.2);
   EXPECT_EQ((std::vector<bool>{true, false}), watcher.changes);
   EXPECT_EQ(0u, st->quarantined());
   EXPECT_EQ(100u, alloc.getNumber());
   EXPECT_EQ(Hesk::NumAllocator::kNone, alloc.getNumber());

   // A new range takes effect at once: held numbers inside it stay held,
   // those outside are forgotten, and quarantine outside it ends.
   alloc.releaseNumber(103);
   cfg->rangeIs(Hesk::Range::of(101, 110));
   EXPECT_TRUE(alloc.isReserved(101));
   EXPECT_TRUE(alloc.isReserved(102));
   EXPECT_FALSE(alloc.isReserved(100));
   EXPECT_TRUE(alloc.isQuarantined(103));
   EXPECT_EQ(2u, alloc.allocatedCount());
   // A range with room ends the exhaustion too.
   EXPECT_EQ(std::vector<bool>({true, false, true, false}), watcher.changes);
   EXPECT_EQ(104u, alloc.getNumber());
   cfg->rangeIs(Hesk::Range::of(200, 201));
   EXPECT_EQ(0u, alloc.allocatedCount());
   EXPECT_EQ(0u, alloc.quarantinedCount());
   EXPECT_FALSE(alloc.isReserved(101));
   EXPECT_TRUE(alloc.reserveNumber(201));
   EXPECT_TRUE(alloc.isReserved(201));
   EXPECT_EQ(200u, alloc.getNumber());
   // Moving back does not bring the old holders back.
   cfg->rangeIs(Hesk::Range::of(101, 110));
   EXPECT_FALSE(alloc.isReserved(101));
   EXPECT_EQ(101u, alloc.getNumber());
   cfg->rangeIs(Hesk::Range::empty());
   EXPECT_EQ(Hesk::NumAllocator::kNone, alloc.getNumber());
   EXPECT_THROW(Hesk::Range::of(5, 4), Vek::RangeException);
}

TEST(Trace, LevelTestGuardsTheText) {
   VirtualLoop loop;
   static Vek::TraceHandle th("TestModule");
   int built = 0;
   auto expensive = [&] {
      ++built;
      return std::string("text");
   };
   Vek::traceLevelIs("TestModule", 3);
   VEK_TRACE(th, 5, expensive());
   EXPECT_EQ(0, built);
   VEK_TRACE_INST(th, 3, 4, "hello " << expensive());
   EXPECT_EQ(1, built);
   EXPECT_TRUE(Vek::traceRing().contains("[4] hello text"));
   {
      Vek::TraceDepthScope depth;
      VEK_TRACE(th, 1, "nested");
   }
   EXPECT_TRUE(Vek::traceRing().contains("  nested"));

   Vek::assertHandlerIs(Vek::throwingAssertHandler);
   bool flag = false;
   {
      Ldp::ReentrantAssert outer(&flag);
      EXPECT_THROW(Ldp::ReentrantAssert inner(&flag), Vek::AssertionFailure);
   }
   EXPECT_FALSE(flag);
   Vek::assertHandlerIs(nullptr);
}

TEST(Trace, RingKeepsTheLatestLinesInOrder) {
   VirtualLoop loop;
   static Vek::TraceHandle th("RingModule");
   Vek::traceLevelIs("RingModule", 1);
   auto& ring = Vek::traceRing();
   ring.clear();
   ring.capacityIs(3);
   for (int i = 0; i < 7; ++i) VEK_TRACE_INST(th, 1, 9, "line " << i);
   // Three slots went round twice: the last three lines, oldest first, each
   // with its time, module, level and instance.
   auto lines = ring.lines();
   ASSERT_EQ(3u, lines.size());
   for (int i = 0; i < 3; ++i) {
      std::string want = "line " + std::to_string(4 + i);
      EXPECT_EQ(want, lines[i].substr(lines[i].size() - want.size())) << lines[i];
      EXPECT_NE(std::string::npos, lines[i].find("0.000000 RingModule 1 [9] line ")) << lines[i];
   }
   EXPECT_EQ(0u, ring.count("line 3"));
   EXPECT_EQ(1u, ring.count("line 6"));
   // Shrinking keeps the newest; a ring of none keeps nothing.
   ring.capacityIs(2);
   EXPECT_FALSE(ring.contains("line 4"));
   EXPECT_TRUE(ring.contains("line 5"));
   ring.capacityIs(0);
   VEK_TRACE(th, 1, "dropped");
   EXPECT_EQ(0u, ring.size());
   ring.capacityIs(4096);
}
