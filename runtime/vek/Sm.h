#pragma once
// The base of every state machine. Its life: a factory constructs it, the
// constructor ends in handleInitialized(), then the factory switches
// notification on. When the last reference goes, handleDelete() runs while the
// machine is whole, then the machine and its parts are marked depth first so
// that no handler of it runs again, and it is freed - at once, or when the
// outermost of its own handlers that is still on the stack returns. A child
// marked by its dying parent still runs its handleDelete() when it goes.
#include <vector>

#include "runtime/vek/Entity.h"
#include "runtime/vek/HashMap.h"

namespace Vek {

class Sm : public PtrInterface {
 public:
   Sm() = default;
   ~Sm() override;

   bool initialized() const { return initialized_; }
   void hasNotificationActiveIs(bool b) override;

   // Wraps every call from the runtime into a handler of this machine, so that
   // a machine dropped inside its own handler lives until the handler returns.
   class HandlerScope {
    public:
      explicit HandlerScope(Sm* sm) : sm_(sm) { ++sm_->handlerDepth_; }
      ~HandlerScope() {
         if (--sm_->handlerDepth_ == 0 && sm_->deletePending_) delete sm_;
      }
      HandlerScope(HandlerScope const&) = delete;
      HandlerScope& operator=(HandlerScope const&) = delete;

    private:
      Sm* sm_;
   };

   // Runs f, a call into a handler of sm, unless sm is marked for deletion.
   template <class F>
   static void run(Sm* sm, F&& f) {
      if (sm->markedForDeletion()) return;
      HandlerScope scope(sm);
      f();
   }

   // Marks this machine and all its parts depth first. Harmless twice.
   void markForDeletion();

 protected:
   virtual void handleDelete() {}
   void handleZeroRef() override;
   void initializedIs(bool b) { initialized_ = b; }

   bool initialized_ = false;

 private:
   friend class SmPart;
   void partAdd(SmPart* p);
   void partDel(SmPart* p);

   std::vector<SmPart*> parts_;
   U32 handlerDepth_ = 0;
   bool deletePending_ = false;
   bool dying_ = false;
   bool deleteHandled_ = false;
};

// Makes a machine the standard way: construct (the constructor ends in
// handleInitialized()), then switch notification on.
template <class T, class... A>
Ptr<T> makeSm(A&&... args) {
   Ptr<T> p(new T(std::forward<A>(args)...));
   p->hasNotificationActiveIs(true);
   return p;
}

// Child machines of a machine, by key. They are marked with their owner, depth
// first, and follow its notification switch.
template <class K, class T>
class SmColl : public SmPart {
 public:
   explicit SmColl(Sm* owner) { ownerIs(owner); }
   Ptr<T> find(K const& k) const {
      auto const* p = m_.find(k);
      return p ? *p : Ptr<T>();
   }
   void is(K const& k, Ptr<T> const& sm) {
      auto [p, inserted] = m_.emplace(k, sm);
      if (!inserted && *p != sm) {
         Ptr<T> old = std::move(*p);
         *p = sm;
      }
   }
   // The child is released after the collection is consistent again.
   void del(K const& k) {
      Ptr<T> dead;
      m_.erase(k, &dead);
   }
   void delAll() {
      while (!m_.empty())
         for (auto it = m_.begin(); it; ++it) del(K(it.key()));
   }
   std::size_t size() const { return m_.size(); }
   auto begin() const { return m_.begin(); }
   auto end() const { return m_.end(); }
   void partMarkForDeletion() override {
      for (auto it = m_.begin(); it; ++it) it.value()->markForDeletion();
   }
   void partNotificationActiveIs(bool b) override {
      for (auto it = m_.begin(); it; ++it) it.value()->hasNotificationActiveIs(b);
   }

 private:
   HashMap<K, Ptr<T>> m_;
};

// One child machine of a machine.
template <class T>
class SmChild : public SmPart {
 public:
   explicit SmChild(Sm* owner) { ownerIs(owner); }
   T* get() const { return p_.ptr(); }
   T* operator->() const { return p_.ptr(); }
   explicit operator bool() const { return bool(p_); }
   void is(Ptr<T> const& sm) {
      Ptr<T> old = std::move(p_);
      p_ = sm;
   }
   void reset() { is(nullptr); }
   void partMarkForDeletion() override {
      if (p_) p_->markForDeletion();
   }
   void partNotificationActiveIs(bool b) override {
      if (p_) p_->hasNotificationActiveIs(b);
   }

 private:
   Ptr<T> p_;
};

}  // namespace Vek
