#pragma once
// Reference-counted objects. Every object with identity derives from
// PtrInterface and is held by Ptr<T>; nothing is freed by hand.
#include <cstddef>
#include <functional>
#include <utility>

#include "runtime/vek/Exception.h"
#include "runtime/vek/Types.h"

namespace Vek {

class PtrInterface {
 public:
   PtrInterface() = default;
   PtrInterface(PtrInterface const&) = delete;
   PtrInterface& operator=(PtrInterface const&) = delete;
   virtual ~PtrInterface() = default;

   void newRef() const { ++word_; }
   void delRef() const {
      if ((--word_ & kCountMask) == 0) const_cast<PtrInterface*>(this)->handleZeroRef();
   }
   U32 references() const { return word_ & kCountMask; }

   bool markedForDeletion() const { return word_ & kMarked; }
   bool hasNotificationActive() const { return word_ & kActive; }
   virtual void hasNotificationActiveIs(bool b) {
      if (b) word_ |= kActive; else word_ &= ~kActive;
   }

 protected:
   // Runs when the count reaches zero; the default deletes the object unless a
   // reference was taken again meanwhile.
   virtual void handleZeroRef() { maybeDelete(); }
   void maybeDelete() {
      if (references() == 0) delete this;
   }
   void markedForDeletionIs() { word_ |= kMarked; word_ &= ~kActive; }
   // Gives back a reference taken by the object itself, without deleting.
   void delRefNoDelete() const { --word_; }

 private:
   static constexpr U32 kActive = 1u << 31;
   static constexpr U32 kMarked = 1u << 30;
   static constexpr U32 kCountMask = kMarked - 1;
   mutable U32 word_ = 0;
};

template <class T>
class Ptr {
 public:
   Ptr() = default;
   Ptr(std::nullptr_t) {}
   Ptr(T* p) : p_(p) { if (p_) p_->newRef(); }
   Ptr(Ptr const& o) : p_(o.p_) { if (p_) p_->newRef(); }
   Ptr(Ptr&& o) noexcept : p_(o.p_) { o.p_ = nullptr; }
   template <class U>
   Ptr(Ptr<U> const& o) : p_(o.ptr()) { if (p_) p_->newRef(); }
   ~Ptr() { if (p_) p_->delRef(); }

   Ptr& operator=(Ptr const& o) { reset(o.p_); return *this; }
   Ptr& operator=(Ptr&& o) noexcept {
      if (this != &o) { T* old = p_; p_ = o.p_; o.p_ = nullptr; if (old) old->delRef(); }
      return *this;
   }
   Ptr& operator=(T* p) { reset(p); return *this; }
   Ptr& operator=(std::nullptr_t) { reset(nullptr); return *this; }

   void reset() { reset(nullptr); }
   T* ptr() const { return p_; }
   T* operator->() const { return p_; }
   T& operator*() const { return *p_; }
   explicit operator bool() const { return p_ != nullptr; }

   template <class U> bool operator==(Ptr<U> const& o) const { return p_ == o.ptr(); }
   bool operator==(std::nullptr_t) const { return p_ == nullptr; }
   bool operator==(T const* p) const { return p_ == p; }

 private:
   void reset(T* p) {
      if (p) p->newRef();
      T* old = p_;
      p_ = p;
      if (old) old->delRef();
   }
   T* p_ = nullptr;
};

template <class T, class U>
Ptr<T> ptr_cast(Ptr<U> const& p) { return Ptr<T>(static_cast<T*>(p.ptr())); }
template <class T, class U>
Ptr<T> ptr_const_cast(Ptr<U> const& p) { return Ptr<T>(const_cast<T*>(p.ptr())); }

// Checks a pointer that must not be null.
template <class T>
T* validPtr(T* p) {
   if (!p) throw RangeException("null ValidPtr");
   return p;
}
template <class T>
Ptr<T> const& validPtr(Ptr<T> const& p) {
   if (!p) throw RangeException("null ValidPtr");
   return p;
}

}  // namespace Vek

template <class T>
struct std::hash<Vek::Ptr<T>> {
   std::size_t operator()(Vek::Ptr<T> const& p) const { return std::hash<T*>()(p.ptr()); }
};
