// A directory with a configuration file and its backup in it, for the plug-in to find, and what a
// start of the plug-in makes of it.
#ifndef QV_TESTS_CONFIGURATION_FILES_H
#define QV_TESTS_CONFIGURATION_FILES_H

#include <optional>
#include <string>

#include "support/EnvironmentVariable.h"
#include "support/LoadedPlugin.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {

constexpr char kConfigurationName[] = "namingService.conf.plist";

// A configuration that lists the services, as one might be written by hand.
std::string document(const Services& services);

// A file's bytes, or nothing where there is no file.
std::optional<std::string> readFile(const std::string& path);
void writeFile(const std::string& path, const std::string& bytes);

class ConfigurationFiles {
  public:
    ConfigurationFiles();

    std::string directory() const { return directory_.path("configuration"); }
    std::string mainFile() const { return directory() + '/' + kConfigurationName; }
    std::string backupFile() const { return directory() + "/backup/" + kConfigurationName; }

    std::string logDirectory() const { return directory_.path("log"); }
    std::string logFile() const { return logDirectory() + "/namingService.log"; }

    std::optional<std::string> main() const { return readFile(mainFile()); }
    std::optional<std::string> backup() const { return readFile(backupFile()); }

    // What there is of the log: a directory for it, not even that, or a file that the first record
    // does not fit into any more, or the one after that of a start; or a directory that the
    // scenario removes.
    enum class Log { kEmpty, kNoDirectory, kFull, kFullAfterStart, kRemoved };

    // Makes the files what they are to be; nothing makes it none, and of the backup also no
    // directory for it.
    void put(const std::optional<std::string>& main, const std::optional<std::string>& backup,
             Log log = Log::kEmpty) const;

    // The records in the log's newest file, without what put() filled it with.
    std::string records() const;

    // Copies both files as they are now, to be started from later.
    void keep() const;
    // Puts the copies in the files' place.
    void putKept() const { put(keptMain(), keptBackup()); }

    // The directory of services that the plug-in starts with, from the files or from the copies. It
    // may restore a file.
    Services start(const LoadedPlugin& plugin) const;
    Services startFromKept(const LoadedPlugin& plugin) const;
    std::optional<std::string> keptMain() const {
        return readFile(kept() + '/' + kConfigurationName);
    }
    std::optional<std::string> keptBackup() const {
        return readFile(kept() + "/backup/" + kConfigurationName);
    }

  private:
    // Memory's own file system, where there is one: the tests write and flush some ten thousand
    // files.
    struct FastDirectory {
        FastDirectory();
        EnvironmentVariable place;
        TemporaryDirectory directory;
    };
    static Services startIn(const LoadedPlugin& plugin, const std::string& directory);
    std::string kept() const { return directory_.path("kept"); }

    FastDirectory fast_;
    const TemporaryDirectory& directory_ = fast_.directory;
    EnvironmentVariable configDirectory_;
    EnvironmentVariable logDirectory_;
};

}  // namespace qv::tests

#endif  // QV_TESTS_CONFIGURATION_FILES_H
