#pragma once
// Library predicates about interfaces and the hop count rule. Which
// interfaces are loopbacks and which are management or internal is host
// state: the host code (or a test) fills the registry that the predicates
// consult.
#include <set>

#include "entities/Enums.h"
#include "runtime/nolu/Types.h"

namespace Ldp {

// True for a loopback interface: one the host registered as such, or one
// whose name marks it as a loopback ("Loopback...", "lo...").
bool isLoopbackInterface(Nolu::IntfId const& intf);
// True for an interface that doesn't forward: registered as management or
// internal, or named as a management interface ("Management...").
bool isManagementOrInternalInterface(Nolu::IntfId const& intf);
// The hop count of a message that this LSR passes on: one more than learnt,
// 0 (unknown) staying 0 and the count never going past 255.
U8 hopCountInc(U8 count);

// The host's knowledge of its interfaces.
class IntfKindRegistry {
 public:
   static IntfKindRegistry& instance();
   void loopbackIs(Nolu::IntfId const& intf, bool on);
   void managementIs(Nolu::IntfId const& intf, bool on);
   bool loopback(Nolu::IntfId const& intf) const { return loopback_.count(intf) != 0; }
   bool management(Nolu::IntfId const& intf) const { return management_.count(intf) != 0; }
   void clear();

 private:
   std::set<Nolu::IntfId> loopback_;
   std::set<Nolu::IntfId> management_;
};

}  // namespace Ldp
