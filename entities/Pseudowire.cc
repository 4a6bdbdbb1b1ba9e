#include "entities/Pseudowire.h"

namespace Pseudowire {

char const* pseudowireTypeStr(PseudowireType t) {
   switch (t) {
    case pwTypeOther_: return "pwTypeOther";
    case pwTypeEthernetTagged_: return "pwTypeEthernetTagged";
    case pwTypeEthernet_: return "pwTypeEthernet";
    case pwTypeNone_: return "pwTypeNone";
   }
   return "pwTypeOther";
}

std::ostream& operator<<(std::ostream& os, PseudowireType t) { return os << pseudowireTypeStr(t); }

U16 wirePwTypeForPseudowireType(PseudowireType t) {
   switch (t) {
    case pwTypeEthernetTagged_: return 0x0004;
    case pwTypeEthernet_: return 0x0005;
    default: return 0;
   }
}

PseudowireType pseudowireTypeForWirePwType(U16 wire) {
   switch (wire) {
    case 0x0004: return pwTypeEthernetTagged_;
    case 0x0005: return pwTypeEthernet_;
    default: return pwTypeOther_;
   }
}

}  // namespace Pseudowire
