// qvhost: the naming service's plug-in as a resident host, a client of that, and the plug-in by
// hand. What its commands do is in commands/.
#include <exception>
#include <new>

#include "InputError.h"
#include "StandardStreams.h"
#include "commands/CommandLine.h"
#include "commands/Commands.h"
#include "commands/ExitStatus.h"
#include "commands/UsageError.h"

int main(int argc, char** argv) {
    using namespace qv::host;
    try {
        guardStandardStreams();
        CommandLine line;
        addServeCommand(line);
        addRegisterCommand(line);
        addUnregisterCommand(line);
        addListCommand(line);
        addLevelCommand(line);
        addImportCommand(line);
        addExportCommand(line);
        addPingCommand(line);
        addInitCommand(line);
        addInfoCommand(line);
        return line.run(argc, argv);
    } catch (const UsageError& error) {
        reportError(error.what());
        return kWrongUse;
    } catch (const InputError& error) {
        reportError(error.what());
        return kWrongUse;
    } catch (const std::bad_alloc&) {
        reportError("out of memory");
        return kFailure;
    } catch (const std::exception& error) {
        reportError(error.what());
        return kFailure;
    }
}
