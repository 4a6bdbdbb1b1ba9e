#pragma once
// All entity declarations in one include, and the registration of the types
// that the agent mounts or creates by name.
#include "entities/LdpStatus.h"
#include "entities/LdpTesh.h"

namespace Ldp {

// Registers every type that is mounted or made by name with the state
// database. Harmless to repeat.
void entityTypesRegister();

}  // namespace Ldp
