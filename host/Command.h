// One command of a script: what parseCommand() reads and Session executes.
#ifndef QVHOST_COMMAND_H
#define QVHOST_COMMAND_H

#include <cstdint>
#include <string>

namespace qv::host {

struct Command {
    enum class Verb { Register, Unregister, List, Level, Restart };

    Verb verb = Verb::List;
    int32_t number = 0;   // the identifier of Register and Unregister, the level of Level
    std::string address;  // Register's
};

}  // namespace qv::host

#endif  // QVHOST_COMMAND_H
