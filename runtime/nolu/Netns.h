#pragma once
// Sockets in a named network namespace. The empty name is the namespace the
// process runs in.
#include <string>

#include "runtime/nolu/Types.h"

namespace Nolu {

// A socket made inside the namespace (setns() around socket()), or -1 with
// *err set to the errno and *reason to a text.
int netnsSocket(NamespaceName const& ns, int domain, int type, int* err, std::string* reason);

// The kernel index of a device, looked up through a socket of its namespace;
// 0 when there is no such device.
unsigned ifIndexByName(int fd, std::string const& deviceName);

}  // namespace Nolu
