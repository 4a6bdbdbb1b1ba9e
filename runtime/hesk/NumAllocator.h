#pragma once
// Hands out numbers from a range (labels, for instance). A released number is
// held back for expiryTime seconds before it can be handed out again, so that
// a peer that still uses it is not confused by its reuse.
#include <deque>
#include <vector>

#include "runtime/vek/Activity.h"
#include "runtime/vek/Ptr.h"

namespace Hesk {

struct Range {
   U32 min = 0;
   U32 max = 0;
   bool operator==(Range const&) const = default;
   U32 size() const { return max >= min ? max - min + 1 : 0; }
};

class NumAllocatorConfig : public Vek::PtrInterface {
 public:
   NumAllocatorConfig(Range r, U32 reserved = 0) : range_(r), reserved_(reserved) {}
   Range range() const { return range_; }
   void rangeIs(Range r) { range_ = r; }
   Vek::Seconds expiryTime() const { return expiryTime_; }
   void expiryTimeIs(Vek::Seconds s) { expiryTime_ = s; }
   U32 reserved() const { return reserved_; }

 private:
   Range range_;
   U32 reserved_;
   Vek::Seconds expiryTime_ = 0.0;
};

class NumAllocatorStatus : public Vek::PtrInterface {
 public:
   U32 allocated = 0;
   U32 heldBack = 0;
};

class NumAllocator : public Vek::PtrInterface {
 public:
   static constexpr U32 kNone = 0xffffffffu;
   NumAllocator(Vek::Ptr<NumAllocatorConfig> const& config,
                Vek::Ptr<NumAllocatorStatus> const& status = nullptr,
                Vek::ActivityManager* clock = nullptr);

   // The lowest free number, or kNone when the range is exhausted.
   U32 getNumber();
   // Gives n back; it becomes free after the expiry time.
   void releaseNumber(U32 n);
   // Takes n out of the free numbers; false if it is outside the range or taken.
   bool reserveNumber(U32 n);
   bool isReserved(U32 n) const;
   // Adopts a new range; numbers outside it are forgotten.
   void rangeIs(Range r);
   U32 allocatedCount() const { return status_->allocated; }

 private:
   void reclaim();
   bool used(U32 i) const { return bits_[i >> 6] >> (i & 63) & 1; }
   void setUsed(U32 i, bool b) {
      if (b) bits_[i >> 6] |= 1ull << (i & 63);
      else bits_[i >> 6] &= ~(1ull << (i & 63));
   }

   Vek::Ptr<NumAllocatorConfig> config_;
   Vek::Ptr<NumAllocatorStatus> status_;
   Vek::ActivityManager* clock_;
   Range range_{1, 0};
   std::vector<U64> bits_;
   U32 searchFrom_ = 0;
   struct Held {
      Vek::Seconds until;
      U32 n;
   };
   std::deque<Held> held_;
};

}  // namespace Hesk
