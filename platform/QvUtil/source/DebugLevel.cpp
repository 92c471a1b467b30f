// SPDX-License-Identifier: Apache-2.0

#include <atomic>

#include "QvUtil.h"

namespace {

std::atomic<int> debugLevel{6};

}  // namespace

void QvSetUtilDebugLevel(int level) {
    if (level >= 0 && level <= 7) {
        debugLevel.store(level, std::memory_order_relaxed);
    }
}

int QvGetUtilDebugLevel(void) {
    return debugLevel.load(std::memory_order_relaxed);
}
