#pragma once
// Drives one agent on virtual time through the simulated network, with a peer
// played from an input of bytes: the opening of the session (by the driver or
// by the input), then PDUs of messages the input picks and fills, raw PDUs,
// time passing, broken connections, label messages handed to the session from
// above, configuration changes. After every step the agent's invariants are
// checked; a broken one aborts with its text on standard error, as a failed
// assertion of the agent does. The fuzzer and the replay test share it.
#include <cstddef>
#include <cstdint>

namespace SessionDrive {

void run(std::uint8_t const* data, std::size_t size);

}  // namespace SessionDrive
