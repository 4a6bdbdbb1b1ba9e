#pragma once
// Holders of reactors inside a state machine: one for an input that may be
// null or replaced, and a keyed collection of reactors, one per member of a
// watched collection.
#include <memory>

#include "runtime/vek/HashMap.h"
#include "runtime/vek/Ptr.h"
#include "runtime/vek/Sm.h"

namespace Vek {

// The reactor of one input. A null input has no reactor; assigning an input
// after construction makes or replaces the reactor's notifier and runs the
// keyless handler once.
template <class R>
class Input {
 public:
   using Notifier = typename R::Notifier;

   // At construction of the machine: a reactor for a non-null input, no handler run.
   template <class S, class... A>
   void init(S* sm, Ptr<Notifier const> const& p, A&&... args) {
      if (p) r_ = std::make_unique<R>(sm, p, std::forward<A>(args)...);
   }
   // The same with a keyless handler to run on assignment; typed so that an
   // overloaded handler name resolves.
   template <class S, class RR = R>
   void init(S* sm, Ptr<Notifier const> const& p, typename RR::OnAssign onAssign) {
      if (p) r_ = std::make_unique<R>(sm, p, onAssign);
   }
   template <class S, class RR = R>
   void assign(S* sm, Ptr<Notifier const> const& p, typename RR::OnAssign onAssign) {
      if (!p) {
         r_.reset();
         return;
      }
      if (!r_) r_ = std::make_unique<R>(sm, nullptr, onAssign);
      r_->notifierIs(p);
   }
   // After construction: an assignment is a change of the input.
   template <class S, class... A>
   void assign(S* sm, Ptr<Notifier const> const& p, A&&... args) {
      if (!p) {
         r_.reset();
         return;
      }
      if (!r_) r_ = std::make_unique<R>(sm, nullptr, std::forward<A>(args)...);
      r_->notifierIs(p);
   }
   Ptr<Notifier const> notifier() const { return r_ ? r_->notifier() : nullptr; }
   Notifier const* get() const { return r_ ? static_cast<Notifier const*>(r_->notifier().ptr()) : nullptr; }
   R* reactor() const { return r_.get(); }
   explicit operator bool() const { return r_ != nullptr; }
   void reset() { r_.reset(); }

 private:
   std::unique_ptr<R> r_;
};

// Reactors by key, one per member of a watched collection.
template <class K, class R>
class ReactorColl {
 public:
   template <class... A>
   R* is(K const& k, A&&... args) {
      auto [p, inserted] = m_.emplace(k);
      if (inserted) *p = std::make_unique<R>(std::forward<A>(args)...);
      return p->get();
   }
   // A member reactor for key k, whose changes go to handler h with the key.
   template <class S, class RR = R>
   R* is(K const& k, S* sm, Ptr<typename RR::Notifier const> const& n, typename RR::Handler h) {
      return is(k, sm, n, k, h);
   }
   R* find(K const& k) const {
      auto const* p = m_.find(k);
      return p ? p->get() : nullptr;
   }
   // The reactor goes after the map is consistent again, since its
   // destruction may be observed.
   void del(K const& k) {
      std::unique_ptr<R> dead;
      m_.erase(k, &dead);
   }
   void delAll() {
      while (!m_.empty())
         for (auto it = m_.begin(); it; ++it) del(K(it.key()));
   }
   std::size_t size() const { return m_.size(); }
   auto begin() const { return m_.begin(); }
   auto end() const { return m_.end(); }

 private:
   HashMap<K, std::unique_ptr<R>> m_;
};

// The base of a hand-written reactor, for a machine that maps several
// attributes of its input onto one handler: override the onX that matter and
// forward with fwd().
template <class N, class S>
class CustomReactor : public N {
 public:
   using OnAssign = void (S::*)();
   CustomReactor(S* sm, Ptr<typename N::Notifier const> const& n, OnAssign onAssign = nullptr)
      : sm_(sm), onAssign_(onAssign) {
      this->ownerIs(sm);
      this->notifierBaseIs(n);
   }
   void onNotifier() override {
      if (onAssign_) fwd([h = onAssign_](S* sm) { (sm->*h)(); });
   }

 protected:
   // Runs f(sm) as a handler call of the machine.
   template <class F>
   void fwd(F const& f) {
      S* sm = sm_;
      Sm::run(sm, [sm, &f] { f(sm); });
   }

 private:
   S* sm_;
   OnAssign onAssign_;
};

// A hand-written reactor of one member of a collection: its changes go to
// handlers that take the member's key. The key is copied for the call, since
// the handler may delete the reactor.
template <class N, class S, class K>
class KeyedCustomReactor : public CustomReactor<N, S> {
 public:
   KeyedCustomReactor(S* sm, Ptr<typename N::Notifier const> const& n, K const& key)
      : CustomReactor<N, S>(sm, n), key_(key) {}

 protected:
   void fwdKey(void (S::*h)(K const&)) {
      K k = key_;
      this->fwd([h, &k](S* sm) { (sm->*h)(k); });
   }

 private:
   K key_;
};

}  // namespace Vek
