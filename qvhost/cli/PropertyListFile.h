// Loads property-list files by the rules of the plug-in, without the plug-in.
#ifndef QVHOST_CLI_PROPERTY_LIST_FILE_H
#define QVHOST_CLI_PROPERTY_LIST_FILE_H

#include <CoreFoundation/CoreFoundation.h>
#include <QvCFHolder.h>

#include <string>

namespace qv::host {

struct PropertyListFile {
    enum class State {
        Good,
        Missing,
        Damaged,   // a regular file whose root is no dictionary; the plug-in turns to its backup
        Unusable,  // may not be read, or is no regular file; the plug-in does without it
    };

    State state = State::Unusable;
    qor::kevra::CFHolder<CFDictionaryRef> root;  // null unless the state is Good
    std::string problem;                         // completes "FILE ..."; empty if the state is Good
};

// Reads the file and changes nothing. Does not wait, even if a pipe stands at the path.
PropertyListFile loadPropertyList(const std::string& path);

}  // namespace qv::host

#endif  // QVHOST_CLI_PROPERTY_LIST_FILE_H
