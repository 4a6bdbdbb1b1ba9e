#pragma once
// Hands out numbers from a range (labels, for instance). A released number is
// quarantined for the configured expiry time and then returned by a timer, so
// that a peer that still uses it is not confused by its reuse. The allocator
// follows its configuration: a new range takes effect at once, and numbers
// outside it are neither handed out nor held back any longer.
#include <deque>
#include <vector>

#include "runtime/hesk/NumAllocatorState.h"
#include "runtime/vek/Activity.h"
#include "runtime/vek/Ptr.h"

namespace Hesk {

class NumAllocator : public Vek::PtrInterface, private Vek::Timed {
 public:
   static constexpr U32 kNone = 0xffffffffu;
   NumAllocator(Vek::Ptr<NumAllocatorConfig> const& config,
                Vek::Ptr<NumAllocatorStatus> const& status = nullptr,
                Vek::ActivityManager* clock = nullptr);
   ~NumAllocator() override;

   // The lowest free number, or kNone when the range is exhausted (which the
   // status then tells).
   U32 getNumber();
   // Quarantines a held number; a number that is not held, or is already in
   // quarantine, is ignored.
   void releaseNumber(U32 n);
   // Takes a free n; false if it is outside the range, held or quarantined.
   bool reserveNumber(U32 n);
   // Whether n is held by a client (quarantined numbers are not).
   bool isReserved(U32 n) const { return range_.contains(n) && test(held_, n - range_.min); }
   bool isQuarantined(U32 n) const {
      return range_.contains(n) && test(quarantined_, n - range_.min);
   }
   Range range() const { return range_; }
   U32 allocatedCount() const { return allocated_; }
   U32 quarantinedCount() const { return quarantine_.size(); }
   NumAllocatorConfig const* config() const { return config_.ptr(); }
   NumAllocatorStatus const* status() const { return status_.ptr(); }
   // The clients that share the allocator, so that the last one to go, and
   // only it, empties the range.
   U32 userAdd() { return ++users_; }
   U32 userDel() { return users_ ? --users_ : 0; }

 private:
   class ConfigReactor;
   void rangeIs(Range r);
   void timedRun() override;
   void armTimer();
   void statusUpdate();
   static bool test(std::vector<U64> const& b, U32 i) { return b[i >> 6] >> (i & 63) & 1; }
   static void set(std::vector<U64>& b, U32 i, bool v) {
      if (v) b[i >> 6] |= 1ull << (i & 63);
      else b[i >> 6] &= ~(1ull << (i & 63));
   }

   Vek::Ptr<NumAllocatorConfig> config_;
   Vek::Ptr<NumAllocatorStatus> status_;
   Vek::ActivityManager* clock_;
   ConfigReactor* reactor_;
   Range range_ = Range::empty();
   // One bit per number of the range: held by a client, and in quarantine.
   std::vector<U64> held_;
   std::vector<U64> quarantined_;
   U32 allocated_ = 0;
   U32 users_ = 0;
   // Where the search for a free number starts; nothing free lies below it.
   U32 searchFrom_ = 0;
   struct Quarantined {
      Vek::Seconds until;
      U32 n;
   };
   // In order of expiry: the expiry time is the same for all.
   std::deque<Quarantined> quarantine_;
};

}  // namespace Hesk
