// What must hold of the host for every script, however damaged. The fuzz target looks for bytes for
// which it does not; the tests hold the scripts that are known to it.
#ifndef QV_FUZZ_SCRIPT_PROPERTIES_H
#define QV_FUZZ_SCRIPT_PROPERTIES_H

#include <cstddef>
#include <cstdint>

namespace qv::fuzz {

// Reads the bytes as a script, and executes it on the plug-in up to where something is wrong.
// Checks that a line means what another reader of the language takes it for, and means it again
// when it is written anew; that each wrong line is told of in one short line that begins with its
// place and, shown, holds no control character; that what is executed leaves the directory and its
// files as a model has them, and lists it. Aborts, saying what did not hold, otherwise.
void checkScriptProperties(const std::uint8_t* data, std::size_t size);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_SCRIPT_PROPERTIES_H
