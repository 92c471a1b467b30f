// SPDX-License-Identifier: Apache-2.0

// Reads the times that people write on the command line, in seconds.
#ifndef QVHOST_CLI_TIMES_H
#define QVHOST_CLI_TIMES_H

#include <chrono>
#include <string>

#include "cli/OptionValues.h"

namespace qv::host {

// Refuses a text that is not a number of seconds from `shortest` to more than a week.
ValueCheck isTime(double shortest);

// Returns the time that isTime() has accepted, rounded up, because 0 stands for no bound.
std::chrono::milliseconds milliseconds(const std::string& seconds);

}  // namespace qv::host

#endif  // QVHOST_CLI_TIMES_H
