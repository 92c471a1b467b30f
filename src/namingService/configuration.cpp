#include "configuration.h"

#include "QvUtil.h"

qor::kevra::QvConfig<qor::kevra::NullMutex>* g_cfg = nullptr;

namespace qor::kevra {

void openConfiguration() {
    constexpr unsigned long kLongestPath = 2048;
    char path[kLongestPath] = {};
    // Null where the path is too long, which makes a configuration that holds nothing.
    g_cfg = new QvConfig<NullMutex>(QvGetFilePath(path, sizeof path, kConfigurationName));
}

void closeConfiguration() {
    delete g_cfg;
    g_cfg = nullptr;
}

}  // namespace qor::kevra
