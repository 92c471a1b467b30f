// What must hold of a start for every pair of a configuration file and its backup. The fuzz target
// looks for a pair for which it does not; the tests hold those that are known to it.
#ifndef QV_FUZZ_CONFIGURATION_PROPERTIES_H
#define QV_FUZZ_CONFIGURATION_PROPERTIES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace qv::fuzz {

// Starts the plug-in on the two files, registers a service, and starts it again. Checks that
// a start has the services that the file says, or else its backup; that a registration makes a
// backup of the file as it was and keeps the keys that are not the plug-in's; that the second start
// has what was there before it, unless a service cannot be stored or there is nothing to save to;
// and that `qvhost list --offline` shows before each start what the start has, and changes no file.
// Aborts, saying what did not hold, otherwise.
//
// The bytes: F for a file, else none; B for a backup, else none; the service's identifier, one
// signed byte; its address, a byte for its length and as much; where there is a file, two bytes for
// its length, the high one first, and as much; the rest is the backup.
void checkConfigurationProperties(const std::uint8_t* data, std::size_t size);

// The bytes for two files and a service.
std::string configurationInput(const std::optional<std::string>& file,
                               const std::optional<std::string>& backup);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_CONFIGURATION_PROPERTIES_H
