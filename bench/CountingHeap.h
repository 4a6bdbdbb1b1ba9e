#pragma once
// Live and peak heap bytes, from every allocation of the process: the
// benchmark program that includes this (once) replaces operator new and
// delete. Each block carries its size in front of it, so that counting costs
// little.
#include <cstdlib>
#include <new>

namespace Bench {

inline std::size_t liveBytes = 0;
inline std::size_t peakBytes = 0;
constexpr std::size_t heapHeader = 16;

inline void* counted(std::size_t n) {
   auto* p = static_cast<unsigned char*>(std::malloc(n + heapHeader));
   if (!p) throw std::bad_alloc();
   *reinterpret_cast<std::size_t*>(p) = n;
   liveBytes += n;
   if (liveBytes > peakBytes) peakBytes = liveBytes;
   return p + heapHeader;
}
inline void uncounted(void* q) {
   if (!q) return;
   auto* p = static_cast<unsigned char*>(q) - heapHeader;
   liveBytes -= *reinterpret_cast<std::size_t*>(p);
   std::free(p);
}

}  // namespace Bench

void* operator new(std::size_t n) { return Bench::counted(n); }
void* operator new[](std::size_t n) { return Bench::counted(n); }
void* operator new(std::size_t n, std::nothrow_t const&) noexcept {
   try {
      return Bench::counted(n);
   } catch (...) {
      return nullptr;
   }
}
void* operator new[](std::size_t n, std::nothrow_t const&) noexcept {
   try {
      return Bench::counted(n);
   } catch (...) {
      return nullptr;
   }
}
void operator delete(void* p) noexcept { Bench::uncounted(p); }
void operator delete[](void* p) noexcept { Bench::uncounted(p); }
void operator delete(void* p, std::size_t) noexcept { Bench::uncounted(p); }
void operator delete[](void* p, std::size_t) noexcept { Bench::uncounted(p); }
