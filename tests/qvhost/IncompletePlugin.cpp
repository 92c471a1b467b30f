// SPDX-License-Identifier: Apache-2.0

// A library that has one function of the interface and lacks the others.
#include <QvPlugin.h>

int32_t QvPluginGetId(void) {
    return QV_PLUGIN_ID_NAMING_SERVICE;
}
