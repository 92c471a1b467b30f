// Executes commands on a plug-in and writes what they list.
#ifndef QVHOST_SESSION_H
#define QVHOST_SESSION_H

#include <cstdio>
#include <string>
#include <vector>

#include "Command.h"
#include "LineReader.h"
#include "Output.h"
#include "Plugin.h"

namespace qv::host {

class Session {
  public:
    // A command and where it stands, for the error messages.
    struct PlacedCommand {
        Command command;
        std::string place;
    };

    // Reads a script to its end. Describes wrong lines in `problems`, the first few of them, and
    // then gives no commands worth executing. Throws std::system_error when reading fails.
    static std::vector<PlacedCommand> readScript(LineReader reader,
                                                 std::vector<std::string>& problems);

    // The plug-in must be initialised. It and `out` must outlive the session.
    Session(Plugin& plugin, Format format, std::FILE* out)
        : plugin_(plugin), format_(format), out_(out) {}

    // Throws PluginError, or std::system_error when the listing cannot be written.
    void execute(const Command& command);

    // Executes a script that was read before. Stops at the first error; throws what execute()
    // throws, a PluginError with the line's place.
    void runScript(const std::vector<PlacedCommand>& script);

    // Executes each line as soon as it is read. Stops at the first error; throws what runScript()
    // throws, ScriptError for a wrong line, and std::system_error when reading fails.
    void runLines(LineReader reader);

  private:
    void execute(const Command& command, const std::string& place);

    Plugin& plugin_;
    Format format_;
    std::FILE* out_;
};

}  // namespace qv::host

#endif  // QVHOST_SESSION_H
