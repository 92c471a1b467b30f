// Checks the values of options. Each validator says in the program's own words which value the
// option needs.
#ifndef QVHOST_CLI_OPTION_VALUES_H
#define QVHOST_CLI_OPTION_VALUES_H

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

namespace qv::host {

// Refuses an empty name, which is probably a shell variable that is not set. The default would be a
// surprise.
CLI::Validator notEmpty();

// Refuses a text that is not a decimal number from `least` to `most`.
CLI::Validator isWholeNumber(uint64_t least, uint64_t most);

// Refuses a text that is none of these words.
CLI::Validator isOneOf(std::vector<std::string> words);

}  // namespace qv::host

#endif  // QVHOST_CLI_OPTION_VALUES_H
