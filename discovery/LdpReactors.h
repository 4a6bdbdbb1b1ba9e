#pragma once
// A reactor on one member of a watched collection that forwards the chosen
// attributes of that member to a handler with the member's key. A subclass
// overrides the onX that matter and calls fire().
#include "runtime/vek/Reactor.h"

namespace Ldp {

template <class N, class S, class K>
class KeyedReactor : public N {
 public:
   using Notifier = typename N::Notifier;
   using Handler = void (S::*)(K const&);
   KeyedReactor(S* sm, Vek::Ptr<Notifier const> const& n, K const& key, Handler h)
      : sm_(sm), key_(key), handler_(h) {
      this->ownerIs(sm);
      this->notifierBaseIs(n);
   }
   K const& key() const { return key_; }

 protected:
   void fire() {
      // The handler may delete this reactor: work on copies.
      S* sm = sm_;
      Handler h = handler_;
      K key = key_;
      Vek::Sm::run(sm, [sm, h, &key] { (sm->*h)(key); });
   }

 private:
   S* sm_;
   K key_;
   Handler handler_;
};

}  // namespace Ldp
