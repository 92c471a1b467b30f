// The plug-in's configuration file, as its host sees it. The plug-in never makes one; without it,
// what is registered is gone with the host, and the plug-in says nothing of it.
#ifndef QVHOST_CONFIGURATION_FILE_H
#define QVHOST_CONFIGURATION_FILE_H

#include <string>
#include <utility>

namespace qv::host {

// Returns the path of the backup that the plug-in keeps of this file.
std::string backupOf(const std::string& configurationFile);

class ConfigurationFile {
  public:
    // What Plugin::configurationPath() gives.
    explicit ConfigurationFile(std::string path) : path_(std::move(path)) {}

    // Why the plug-in keeps nothing in it, as a sentence that a warning ends in; empty when it
    // does. To be asked when the plug-in is initialised, which puts a backup in the place of a file
    // that it cannot load.
    std::string problem() const;

    // Makes it, as empty as one that was saved can be, and the directories it lacks. Throws
    // std::runtime_error, with nothing made, when anything stands there, when there is a backup
    // that the plug-in would load, and when it cannot be made.
    void make() const;

  private:
    std::string path_;
};

}  // namespace qv::host

#endif  // QVHOST_CONFIGURATION_FILE_H
