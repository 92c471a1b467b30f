// SPDX-License-Identifier: Apache-2.0

// qvhost runs the naming service as a resident host and is a client of it. Each subcommand has a
// file in cli/; the resident host is in server/.
#include <csignal>
#include <exception>
#include <new>

#include "StandardStreams.h"
#include "cli/CommandLine.h"
#include "cli/ExitStatus.h"
#include "cli/InputError.h"
#include "cli/Signals.h"
#include "cli/Subcommands.h"
#include "cli/UsageError.h"

int main(int argc, char** argv) {
    using namespace qv::host;
    try {
        guardStandardStreams();
        CommandLine line;
        addServe(line);
        addRegister(line);
        addUnregister(line);
        addRun(line);
        addGet(line);
        addWait(line);
        addWatch(line);
        addList(line);
        addLevel(line);
        addImport(line);
        addExport(line);
        addPing(line);
        addStatus(line);
        addSync(line);
        addInit(line);
        addInfo(line);
        return line.run(argc, argv);
    } catch (const UsageError& error) {
        reportError(error.what());
        return kWrongUse;
    } catch (const InputError& error) {
        reportError(error.what());
        return kWrongUse;
    } catch (const OutputClosed&) {
        // A reader that has seen enough, such as head, is no failure that a person must know of.
        endBySignal(SIGPIPE);
    } catch (const std::bad_alloc&) {
        reportError("out of memory");
        return kFailure;
    } catch (const std::exception& error) {
        reportError(error.what());
        return kFailure;
    }
}
