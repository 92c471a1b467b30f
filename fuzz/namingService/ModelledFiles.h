// SPDX-License-Identifier: Apache-2.0

// Makes the plug-in's files in a temporary directory of the process, together with their model.
// Each change of a file is also a change of the model.
#ifndef QV_FUZZ_MODELLED_FILES_H
#define QV_FUZZ_MODELLED_FILES_H

#include <optional>
#include <string>

#include "namingService/DirectoryModel.h"

namespace qv::fuzz {

class ModelledFiles {
  public:
    // Removes the file and the backup. The first object names the directory in the environment, for
    // the configuration and the log.
    ModelledFiles();
    // Closes the descriptors that the finalised plug-in left open. Aborts if their number differs
    // from the model's.
    ~ModelledFiles();
    ModelledFiles(const ModelledFiles&) = delete;
    ModelledFiles& operator=(const ModelledFiles&) = delete;

    // Overwrites the file in place, or makes a new one.
    void write(std::string bytes);
    // Puts a new file in place of the file.
    void replace(std::string bytes);
    void replaceByDirectory();
    void remove();
    void writeBackup(std::string bytes);
    void removeBackup();

    // Aborts if a file differs from the model.
    void check() const;

    DirectoryModel model;

  private:
    // The lowest free descriptor of the process while the plug-in has no file open.
    int lowestFreeDescriptor_;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MODELLED_FILES_H
