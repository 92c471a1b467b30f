// SPDX-License-Identifier: Apache-2.0

#include "cli/HostPaths.h"

#include <QvSystem/Environment.h>
#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <string>
#include <system_error>
#include <utility>

#include "server/Plugin.h"
#include "server/PluginError.h"

#ifdef __APPLE__
#include <mach-o/dyld.h>
#endif

namespace qv::host {

namespace fs = std::filesystem;

fs::path programDirectory() {
#ifdef __APPLE__
    uint32_t size = 0;
    _NSGetExecutablePath(nullptr, &size);
    std::string program(size, '\0');
    if (_NSGetExecutablePath(program.data(), &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "cannot find the program's path");
    }
    return fs::canonical(program.c_str()).parent_path();
#else
    return fs::read_symlink("/proc/self/exe").parent_path();
#endif
}

std::vector<fs::path> pluginPlaces(const fs::path& directory) {
    std::vector<fs::path> places;
    for (const fs::path& place :
         {directory, directory / ".." / "lib", directory / ".." / QVHOST_INSTALL_LIBDIR,
          fs::path(QVHOST_INSTALL_FULL_LIBDIR)}) {
        fs::path file = (place / QVHOST_PLUGIN_FILE).lexically_normal();
        if (std::find(places.begin(), places.end(), file) == places.end()) {
            places.push_back(std::move(file));
        }
    }
    return places;
}

fs::path findPlugin(const fs::path& directory) {
    std::vector<std::string> missed;
    for (const fs::path& place : pluginPlaces(directory)) {
        std::error_code ignored;
        if (fs::exists(place, ignored)) {
            return place;
        }
        missed.push_back(place.string());
    }
    throw PluginError(fmt::format("cannot find the plug-in; looked for {} (name it with --plugin)",
                                  fmt::join(missed, ", ")));
}

std::string configurationFile(std::string directory) {
    if (directory.empty()) {
        const char* const named = system::environmentValue("QV_CONFIG_DIR");
        directory = named == nullptr ? QV_DEFAULT_CONFIG_DIR : named;
    }
    return directory + '/' + kConfigurationName;
}

}  // namespace qv::host
