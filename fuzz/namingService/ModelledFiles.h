// The plug-in's directory and files with the model beside them: a scratch directory of the process,
// in which each input begins anew. What is done to a file is done to both.
#ifndef QV_FUZZ_MODELLED_FILES_H
#define QV_FUZZ_MODELLED_FILES_H

#include <optional>
#include <string>

#include "support/DirectoryModel.h"

namespace qv::fuzz {

class ModelledFiles {
  public:
    // Neither a file nor a backup is there. The environment names the directory, for the
    // configuration and the log, from the first object on.
    ModelledFiles();
    // The plug-in is finalised. What it left open is closed; aborts where that is not what the
    // model has.
    ~ModelledFiles();
    ModelledFiles(const ModelledFiles&) = delete;
    ModelledFiles& operator=(const ModelledFiles&) = delete;

    // Into the file that is there, if one is.
    void write(std::string bytes);
    // By another file, put in its place.
    void replace(std::string bytes);
    void replaceByDirectory();
    void remove();
    void writeBackup(std::string bytes);
    void removeBackup();

    // Aborts where a file is not as the model has it.
    void check() const;

    tests::DirectoryModel model;

  private:
    // Of the process, when no file of the plug-in was open.
    int lowestFreeDescriptor_;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_MODELLED_FILES_H
