// SPDX-License-Identifier: Apache-2.0

/* Uses all of the host's interface, compiled as C11, to show that the interface is plain C. */

#include "QvPlugin.h"

static int handle(int command, const void* in, int inLen, void** out, int* outLen) {
    (void)in;
    (void)out;
    (void)outLen;
    return command == QV_COMMAND_GET_SERVICES && inLen == 0 ? QV_OK : QV_ERROR_ARGUMENT;
}

const HandlerEntry hostInterfaceRow = {QV_COMMAND_GET_SERVICES, "get services", handle};
const int hostInterfaceResults[] = {QV_OK, QV_ERROR_SERIALIZE, QV_ERROR_ARGUMENT,
                                    QV_ERROR_NO_MEMORY};
const int hostInterfaceCommands[] = {QV_COMMAND_SET_DEBUG_LEVEL, QV_COMMAND_REGISTER_SERVICES,
                                     QV_COMMAND_UNREGISTER_SERVICES, QV_COMMAND_GET_SERVICES};

size_t hostInterfaceRowSize(void) {
    return sizeof hostInterfaceRow;
}
