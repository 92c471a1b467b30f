// SPDX-License-Identifier: Apache-2.0

// Checks the properties of a start for any pair of a configuration file and its backup. The fuzz
// target searches for pairs that break a property. The tests check the pairs of the corpus.
#ifndef QV_FUZZ_CONFIGURATION_PROPERTIES_H
#define QV_FUZZ_CONFIGURATION_PROPERTIES_H

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace qv::fuzz {

// Starts the plug-in with the two files, registers a service, and starts the plug-in again. Aborts
// with a message unless all of this holds:
//   * The first start has the services of the file, or of the backup if the file cannot be loaded.
//   * The registration copies the file to the backup and keeps the keys that the plug-in does not
//     know.
//   * The second start has the services of before, unless a service cannot be stored or no file was
//     loaded.
//   * `qvhost list --offline` shows the services of the next start, and changes no file.
//
// The input consists of
//   * F if there is a file;
//   * B if there is a backup;
//   * the service's identifier, one signed byte;
//   * its address: one byte for the length, and the text;
//   * if there is a file: two bytes for its length, the high one first, and its content;
//   * the content of the backup, up to the end.
void checkConfigurationProperties(const std::uint8_t* data, std::size_t size);

// Returns the input for a file, a backup and a service.
std::string configurationInput(const std::optional<std::string>& file,
                               const std::optional<std::string>& backup);

}  // namespace qv::fuzz

#endif  // QV_FUZZ_CONFIGURATION_PROPERTIES_H
