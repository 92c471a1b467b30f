// The directory of services and the two files that it is kept in, as they should be. What the
// plug-in does, the model does after it; what somebody else does to the files is told to it.
#ifndef QV_TESTS_DIRECTORY_MODEL_H
#define QV_TESTS_DIRECTORY_MODEL_H

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace qv::tests {

// As it was registered or loaded: a field that was not there stays so.
struct StoredService {
    std::optional<std::int32_t> id;
    std::optional<std::string> address;
};
inline bool operator==(const StoredService& one, const StoredService& other) {
    return one.id == other.id && one.address == other.address;
}

using Directory = std::map<std::int32_t, StoredService>;

// A file's bytes and what loading them gives.
struct Document {
    std::string bytes;
    bool isGood = false;
    Directory services;
};

class DirectoryModel {
  public:
    // What a save makes of the document that was loaded; nothing where a service cannot be stored.
    using Save =
        std::function<std::optional<Document>(const Document& loaded, const Directory& services)>;

    // `path` is the file's, which may be there or not.
    DirectoryModel(std::string path, Save save);

    void initialize();
    void finalize();
    void registerServices(const std::vector<StoredService>& request);

    Directory memory;
    // What stands at the path: a file, a directory, or neither.
    std::optional<Document> mainFile;
    bool isDirectory = false;
    std::optional<Document> backup;
    // How many files the plug-in has open, those that it lost included.
    std::size_t descriptors = 0;

  private:
    ino_t inode() const;
    void open();
    void save(Document saved);

    std::string path_;
    Save save_;
    std::optional<Document> loaded_;
    bool isOpen_ = false;
    ino_t inode_ = 0;
};

}  // namespace qv::tests

#endif  // QV_TESTS_DIRECTORY_MODEL_H
