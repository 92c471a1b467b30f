// SPDX-License-Identifier: Apache-2.0

// Models the directory of services and the two files in which the plug-in stores it. A test repeats
// each call of the plug-in on the model, and tells the model what others do to the files.
#ifndef QV_FUZZ_DIRECTORY_MODEL_H
#define QV_FUZZ_DIRECTORY_MODEL_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qv::fuzz {

// A service as it was registered or loaded. An absent field stays absent.
struct StoredService {
    std::optional<std::int32_t> id;
    std::optional<std::string> address;
};
inline bool operator==(const StoredService& one, const StoredService& other) {
    return one.id == other.id && one.address == other.address;
}

using Directory = std::map<std::int32_t, StoredService>;

// The bytes of a file, and the services that the plug-in loads from them.
struct Document {
    std::string bytes;
    bool isGood = false;
    Directory services;
};

class DirectoryModel {
  public:
    // `path` is the path of the file, which need not exist.
    explicit DirectoryModel(std::string path);

    void initialize();
    void finalize();
    void registerServices(const std::vector<StoredService>& request);

    Directory memory;
    // The file or the directory at the path. There may be neither.
    std::optional<Document> mainFile;
    bool isDirectory = false;
    std::optional<Document> backup;
    // How many descriptors the plug-in has open, including those of replaced files.
    std::size_t descriptors = 0;

  private:
    ino_t inode() const;
    void open();
    void save(Document saved);

    std::string path_;
    std::optional<Document> loaded_;
    bool isOpen_ = false;
    ino_t inode_ = 0;
};

}  // namespace qv::fuzz

#endif  // QV_FUZZ_DIRECTORY_MODEL_H
