// SPDX-License-Identifier: Apache-2.0

#include "cli/PluginUse.h"

#include <fmt/format.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

#include "cli/HostPaths.h"
#include "cli/UsageError.h"

namespace qv::host {

namespace {

void setDirectory(const char* variable, const std::string& directory) {
    if (!directory.empty() && setenv(variable, directory.c_str(), 1) != 0) {
        throw std::system_error(errno, std::generic_category(),
                                std::string("cannot set the environment variable ") + variable);
    }
}

}  // namespace

bool isDirectory(const std::string& path) {
    std::error_code ignored;
    return std::filesystem::is_directory(path, ignored);
}

void setDirectories(const CommonOptions& options) {
    setDirectory("QV_CONFIG_DIR", options.configDirectory);
    setDirectory("QV_LOG_DIR", options.logDirectory);
}

void setExistingDirectories(const CommonOptions& options) {
    setDirectories(options);
    if (!options.configDirectory.empty() && !isDirectory(options.configDirectory)) {
        throw UsageError(
            fmt::format("--config-dir {}: no such directory", options.configDirectory));
    }
}

std::unique_ptr<Plugin> loadPlugin(const CommonOptions& options) {
    return std::make_unique<Plugin>(options.plugin.empty() ? findPlugin(programDirectory()).string()
                                                           : options.plugin);
}

}  // namespace qv::host
