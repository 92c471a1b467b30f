// SPDX-License-Identifier: Apache-2.0

// Makes a directory with a configuration file and its backup, points the plug-in to the directory,
// and starts the plug-in there.
#ifndef QV_TESTS_CONFIGURATION_FILES_H
#define QV_TESTS_CONFIGURATION_FILES_H

#include <optional>
#include <string>

#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {

// Returns a configuration that lists the services in another form than the plug-in writes.
std::string document(const Services& services);

class ConfigurationFiles {
  public:
    ConfigurationFiles();

    std::string directory() const { return directory_.path("configuration"); }
    std::string mainFile() const { return directory() + '/' + kConfigurationFile; }
    std::string backupFile() const { return directory() + "/backup/" + kConfigurationFile; }

    std::string logDirectory() const { return directory_.path("log"); }
    std::string logFile() const { return logDirectory() + "/namingService.log"; }

    std::optional<std::string> main() const { return contentOf(mainFile()); }
    std::optional<std::string> backup() const { return contentOf(backupFile()); }

    // The state of the log: an empty directory, no directory, a file that is full before the first
    // record, a file that is full after the record of a start, or a directory that the scenario
    // removes.
    enum class Log { kEmpty, kNoDirectory, kFull, kFullAfterStart, kRemoved };

    // Writes the two files. Removes a file for which no bytes are given, and with the backup its
    // directory.
    void put(const std::optional<std::string>& main, const std::optional<std::string>& backup,
             Log log = Log::kEmpty) const;

    // Returns the records in the newest file of the log, without the filling of put().
    std::string records() const;

    // Copies both files, for a later start.
    void keep() const;
    // Puts the copies in place of the files.
    void putKept() const { put(keptMain(), keptBackup()); }

    // Starts the plug-in with the files or with the copies, and returns its services. The start may
    // restore a file.
    Services start(const LoadedPlugin& plugin) const;
    Services startFromKept(const LoadedPlugin& plugin) const;
    std::optional<std::string> keptMain() const {
        return contentOf(kept() + '/' + kConfigurationFile);
    }
    std::optional<std::string> keptBackup() const {
        return contentOf(kept() + "/backup/" + kConfigurationFile);
    }

  private:
    // Makes the directory in memory if possible, because the tests write and flush some ten
    // thousand files.
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
