// SPDX-License-Identifier: Apache-2.0

#include "ConfigurationFiles.h"

#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

namespace qv::tests {
namespace {

constexpr char kMemory[] = "/dev/shm";

// The log library rotates a file at this size.
constexpr std::streamoff kLargestLog = std::streamoff{10} * 1024 * 1024;

std::optional<std::string> fastestPlace() {
    if (access(kMemory, W_OK | X_OK) == 0) {
        return kMemory;
    }
    const char* const usual = std::getenv("TMPDIR");
    return usual == nullptr ? std::nullopt : std::optional<std::string>(usual);
}

}  // namespace

std::string document(const Services& services) {
    std::string text =
        "<plist version=\"1.0\"><dict><key>Address</key><dict><key>services</key><array>";
    for (const auto& [id, address] : services) {
        text += "<dict><key>id</key><integer>" + std::to_string(id) +
                "</integer><key>address</key><string>" + address + "</string></dict>";
    }
    return text + "</array></dict></dict></plist>\n";
}

ConfigurationFiles::FastDirectory::FastDirectory() : place("TMPDIR", fastestPlace()) {}

ConfigurationFiles::ConfigurationFiles()
    : configDirectory_("QV_CONFIG_DIR", directory()), logDirectory_("QV_LOG_DIR", logDirectory()) {
    std::filesystem::create_directory(directory());
}

void ConfigurationFiles::put(const std::optional<std::string>& main,
                             const std::optional<std::string>& backup, Log log) const {
    std::filesystem::remove_all(logDirectory());
    std::filesystem::remove(mainFile());
    std::filesystem::remove_all(directory() + "/backup");
    if (main) {
        writeFile(mainFile(), *main);
    }
    if (backup) {
        std::filesystem::create_directory(directory() + "/backup");
        writeFile(backupFile(), *backup);
    }
    if (log != Log::kNoDirectory) {
        std::filesystem::create_directory(logDirectory());
    }
    if (log == Log::kFull || log == Log::kFullAfterStart) {
        // The record of a start is shorter than 90 bytes. No record is shorter than 60 bytes.
        const std::streamoff room = log == Log::kFull ? 30 : 90;
        std::ofstream file(logFile(), std::ios::binary);
        file.seekp(kLargestLog - room - 1);
        file << '\n' << std::flush;
        if (!file) {
            throw std::runtime_error("cannot write " + logFile());
        }
    }
}

std::string ConfigurationFiles::records() const {
    constexpr std::streamoff kMost = 65536;
    std::ifstream file(logFile(), std::ios::binary);
    file.seekg(0, std::ios::end);
    file.seekg(std::max<std::streamoff>(0, file.tellg() - kMost));
    std::ostringstream content;
    content << file.rdbuf();
    const std::string text = content.str();
    const std::string::size_type filling = text.rfind('\0');
    // The filling ends with a zero byte and a line feed.
    return filling == std::string::npos ? text : text.substr(filling + 2);
}

void ConfigurationFiles::keep() const {
    std::filesystem::remove_all(kept());
    std::filesystem::copy(directory(), kept(), std::filesystem::copy_options::recursive);
}

Services ConfigurationFiles::start(const LoadedPlugin& plugin) const {
    return startIn(plugin, directory());
}

Services ConfigurationFiles::startFromKept(const LoadedPlugin& plugin) const {
    return startIn(plugin, kept());
}

Services ConfigurationFiles::startIn(const LoadedPlugin& plugin, const std::string& directory) {
    const EnvironmentVariable place("QV_CONFIG_DIR", directory);
    plugin.initialize();
    Services services = plugin.getServices();
    plugin.finalize();
    return services;
}

}  // namespace qv::tests
