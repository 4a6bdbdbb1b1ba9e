#include "runtime/hesk/NumAllocator.h"

namespace Hesk {

// Follows the configuration: a new range at once, a new expiry for the next release.
class NumAllocator::ConfigReactor : public NumAllocatorConfig::NotifieeConst {
 public:
   ConfigReactor(NumAllocator* a, Vek::Ptr<NumAllocatorConfig const> const& c) : a_(a) {
      notifierBaseIs(c);
   }
   void onRange() override { a_->rangeIs(a_->config_->range()); }

 private:
   NumAllocator* a_;
};

NumAllocator::NumAllocator(Vek::Ptr<NumAllocatorConfig> const& config,
                           Vek::Ptr<NumAllocatorStatus> const& status,
                           Vek::ActivityManager* clock)
   : config_(Vek::validPtr(config)),
     status_(status ? status : Vek::Ptr<NumAllocatorStatus>(new NumAllocatorStatus)),
     clock_(clock ? clock : Vek::activityManager()),
     reactor_(new ConfigReactor(this, config_)) {
   timedPriority_ = 2;
   rangeIs(config_->range());
}

NumAllocator::~NumAllocator() { delete reactor_; }

void NumAllocator::rangeIs(Range r) {
   if (r == range_) return;
   std::vector<U64> oldHeld = std::move(held_);
   Range old = range_;
   range_ = r;
   held_.assign((r.size() + 63) / 64, 0);
   quarantined_.assign(held_.size(), 0);
   allocated_ = 0;
   // Held numbers inside the new range stay held; the others are forgotten.
   for (U32 i = 0; i < old.size(); ++i) {
      if (!test(oldHeld, i)) continue;
      U32 n = old.min + i;
      if (r.contains(n)) {
         set(held_, n - r.min, true);
         ++allocated_;
      }
   }
   // So do quarantined ones.
   std::deque<Quarantined> q;
   for (Quarantined const& e : quarantine_) {
      if (!r.contains(e.n)) continue;
      set(quarantined_, e.n - r.min, true);
      q.push_back(e);
   }
   quarantine_.swap(q);
   searchFrom_ = 0;
   armTimer();
   statusUpdate();
   // A range with free numbers ends an exhaustion.
   if (status_->rangeExhausted() && allocated_ + quarantine_.size() < r.size())
      status_->rangeExhaustedIs(false);
}

U32 NumAllocator::getNumber() {
   U32 size = range_.size();
   for (U32 w = searchFrom_ >> 6; w < held_.size(); ++w) {
      U64 busy = held_[w] | quarantined_[w];
      if (busy == ~0ull) continue;
      U32 i = (w << 6) + static_cast<U32>(__builtin_ctzll(~busy));
      if (i >= size) break;
      set(held_, i, true);
      ++allocated_;
      searchFrom_ = i + 1;
      statusUpdate();
      return range_.min + i;
   }
   searchFrom_ = size;
   status_->rangeExhaustedIs(true);
   return kNone;
}

void NumAllocator::releaseNumber(U32 n) {
   if (!isReserved(n)) return;
   U32 i = n - range_.min;
   set(held_, i, false);
   --allocated_;
   Vek::Seconds wait = config_->expiryTime();
   if (wait > 0) {
      set(quarantined_, i, true);
      quarantine_.push_back({clock_->now() + wait, n});
      armTimer();
      statusUpdate();
      return;
   }
   if (i < searchFrom_) searchFrom_ = i;
   statusUpdate();
   status_->rangeExhaustedIs(false);
}

bool NumAllocator::reserveNumber(U32 n) {
   if (!range_.contains(n)) return false;
   U32 i = n - range_.min;
   if (test(held_, i) || test(quarantined_, i)) return false;
   set(held_, i, true);
   ++allocated_;
   statusUpdate();
   return true;
}

// Quarantine is over for every number whose time has come.
void NumAllocator::timedRun() {
   Vek::Seconds now = clock_->now();
   bool freed = false;
   while (!quarantine_.empty() && quarantine_.front().until <= now) {
      U32 i = quarantine_.front().n - range_.min;
      quarantine_.pop_front();
      set(quarantined_, i, false);
      if (i < searchFrom_) searchFrom_ = i;
      freed = true;
   }
   armTimer();
   statusUpdate();
   if (freed) status_->rangeExhaustedIs(false);
}

void NumAllocator::armTimer() {
   if (quarantine_.empty()) clock_->timerStop(this);
   else if (!timedArmed() || timedExpiry() != quarantine_.front().until)
      clock_->timerArm(this, quarantine_.front().until);
}

void NumAllocator::statusUpdate() {
   status_->allocatedIs(allocated_);
   status_->quarantinedIs(static_cast<U32>(quarantine_.size()));
}

}  // namespace Hesk
