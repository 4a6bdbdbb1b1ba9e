#pragma once
// A named holder of state machines by key, made by the VRF's root and handed
// to the manager that fills it. The machines die with the holder, and follow
// its notification switch.
#include <string>

#include "runtime/vek/Sm.h"

namespace Ldp {

template <class K, class T>
class LdpSmColl : public Vek::Sm {
 public:
   explicit LdpSmColl(std::string name) : name_(std::move(name)) { initialized_ = true; }
   std::string const& name() const { return name_; }
   Vek::Ptr<T> sm(K const& k) const { return sms_.find(k); }
   bool smHas(K const& k) const { return bool(sms_.find(k)); }
   void smIs(K const& k, Vek::Ptr<T> const& p) { sms_.is(k, p); }
   void smDel(K const& k) { sms_.del(k); }
   void smDelAll() { sms_.delAll(); }
   std::size_t size() const { return sms_.size(); }
   auto begin() const { return sms_.begin(); }

 private:
   std::string name_;
   Vek::SmColl<K, T> sms_{this};
};

template <class H>
Vek::Ptr<H> ldpSmCollIs(std::string const& name) {
   return Vek::makeSm<H>(name);
}

}  // namespace Ldp
