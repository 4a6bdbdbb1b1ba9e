#include "runtime/hesk/NumAllocator.h"

namespace Hesk {

NumAllocator::NumAllocator(Vek::Ptr<NumAllocatorConfig> const& config,
                           Vek::Ptr<NumAllocatorStatus> const& status,
                           Vek::ActivityManager* clock)
   : config_(Vek::validPtr(config)),
     status_(status ? status : Vek::Ptr<NumAllocatorStatus>(new NumAllocatorStatus)),
     clock_(clock ? clock : Vek::activityManager()) {
   rangeIs(config_->range());
}

void NumAllocator::rangeIs(Range r) {
   std::vector<U64> old = std::move(bits_);
   Range oldRange = range_;
   range_ = r;
   bits_.assign((r.size() + 63) / 64, 0);
   status_->allocated = 0;
   for (U32 i = 0; i < oldRange.size(); ++i) {
      if (!(old[i >> 6] >> (i & 63) & 1)) continue;
      U32 n = oldRange.min + i;
      if (n >= r.min && n <= r.max) {
         setUsed(n - r.min, true);
         ++status_->allocated;
      }
   }
   searchFrom_ = 0;
}

void NumAllocator::reclaim() {
   Vek::Seconds now = clock_->now();
   while (!held_.empty() && held_.front().until <= now) {
      U32 n = held_.front().n;
      held_.pop_front();
      --status_->heldBack;
      if (n < range_.min || n > range_.max) continue;
      U32 i = n - range_.min;
      if (used(i)) {
         setUsed(i, false);
         --status_->allocated;
         if (i < searchFrom_) searchFrom_ = i;
      }
   }
}

U32 NumAllocator::getNumber() {
   reclaim();
   U32 size = range_.size();
   for (U32 w = searchFrom_ >> 6; w < bits_.size(); ++w) {
      if (bits_[w] == ~0ull) continue;
      U32 bit = static_cast<U32>(__builtin_ctzll(~bits_[w]));
      U32 i = (w << 6) + bit;
      if (i >= size) break;
      setUsed(i, true);
      ++status_->allocated;
      searchFrom_ = i + 1;
      return range_.min + i;
   }
   searchFrom_ = size;
   return kNone;
}

void NumAllocator::releaseNumber(U32 n) {
   if (n < range_.min || n > range_.max || !used(n - range_.min)) return;
   Vek::Seconds wait = config_->expiryTime();
   if (wait <= 0) {
      setUsed(n - range_.min, false);
      --status_->allocated;
      if (n - range_.min < searchFrom_) searchFrom_ = n - range_.min;
      return;
   }
   held_.push_back({clock_->now() + wait, n});
   ++status_->heldBack;
}

bool NumAllocator::reserveNumber(U32 n) {
   reclaim();
   if (n < range_.min || n > range_.max || used(n - range_.min)) return false;
   setUsed(n - range_.min, true);
   ++status_->allocated;
   return true;
}

bool NumAllocator::isReserved(U32 n) const {
   return n >= range_.min && n <= range_.max && used(n - range_.min);
}

}  // namespace Hesk
