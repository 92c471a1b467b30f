// SPDX-License-Identifier: Apache-2.0

#include <QvSystem/Environment.h>

#include <cstdio>

#include "QvUtil.h"

char* QvGetFilePath(char* buffer, int size, const char* fileName) {
    if (buffer == nullptr || size <= 0 || fileName == nullptr) {
        return nullptr;
    }
    const char* directory = qv::system::environmentValue("QV_CONFIG_DIR");
    if (directory == nullptr) {
        directory = QV_DEFAULT_CONFIG_DIR;
    }
    const int length =
        std::snprintf(buffer, static_cast<std::size_t>(size), "%s/%s", directory, fileName);
    if (length < 0 || length >= size) {
        // The beginning of a path is another path: better none for who does not look at the result.
        *buffer = '\0';
        return nullptr;
    }
    return buffer;
}
