#pragma once
// A closed range of numbers [min, max]; min > max is the empty range.
#include <ostream>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Types.h"

namespace Hesk {

struct Range {
   U32 min = 1;
   U32 max = 0;
   static Range empty() { return Range{1, 0}; }
   // The range [lo, hi]; lo > hi is refused.
   static Range of(U32 lo, U32 hi) {
      if (lo > hi) throw Vek::RangeException("Range::min > Range::max not allowed");
      return Range{lo, hi};
   }
   bool operator==(Range const&) const = default;
   bool isEmpty() const { return min > max; }
   bool contains(U32 n) const { return n >= min && n <= max; }
   U32 size() const { return max >= min ? max - min + 1 : 0; }
};

inline std::ostream& operator<<(std::ostream& os, Range const& r) {
   if (r.isEmpty()) return os << "[]";
   return os << "[" << r.min << ", " << r.max << "]";
}

}  // namespace Hesk
