#include "entities/Functions.h"

#include <string_view>

namespace Ldp {

namespace {
bool startsWith(std::string_view s, std::string_view p) { return s.substr(0, p.size()) == p; }
}  // namespace

IntfKindRegistry& IntfKindRegistry::instance() {
   static IntfKindRegistry r;
   return r;
}

void IntfKindRegistry::loopbackIs(Nolu::IntfId const& intf, bool on) {
   if (on) loopback_.insert(intf);
   else loopback_.erase(intf);
}

void IntfKindRegistry::managementIs(Nolu::IntfId const& intf, bool on) {
   if (on) management_.insert(intf);
   else management_.erase(intf);
}

void IntfKindRegistry::clear() {
   loopback_.clear();
   management_.clear();
}

bool isLoopbackInterface(Nolu::IntfId const& intf) {
   if (IntfKindRegistry::instance().loopback(intf)) return true;
   std::string_view n = intf.name();
   return startsWith(n, "Loopback") || n == "lo" || startsWith(n, "lo:");
}

bool isManagementOrInternalInterface(Nolu::IntfId const& intf) {
   if (IntfKindRegistry::instance().management(intf)) return true;
   return startsWith(intf.name(), "Management");
}

U8 hopCountInc(U8 count) {
   if (count == 0 || count == 255) return count;
   return U8(count + 1);
}

}  // namespace Ldp
