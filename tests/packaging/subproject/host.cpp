// SPDX-License-Identifier: Apache-2.0

// Uses the interface of the plug-in and the protocol's constants.
#include <QvFrame.h>
#include <QvPlugin.h>

static_assert(QV_COMMAND_REGISTER_SERVICES == 0x0200 && QV_FRAME_HEADER_SIZE == 12);
