// A random walk: requests, restarts, and whatever may happen to the two files meanwhile, each step
// compared with a model of the directory and of the disk.
//
// QV_TEST_SEED in the environment repeats the walk of one seed.

#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <optional>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

constexpr int kSteps = 10000;

using Directory = std::map<std::int32_t, std::string>;

// A file's bytes and what loading them gives. `note` is a key that is not the plug-in's own.
struct Document {
    std::string bytes;
    bool isGood = false;
    Directory services;
    int note = 0;
};

Services listOf(const Directory& services) {
    return {services.begin(), services.end()};
}

std::string noteOf(int note) {
    return "\t<key>Note</key>\n\t<integer>" + std::to_string(note) + "</integer>\n";
}

// Addresses are stored up to their first NUL.
Document savedDocument(const Directory& memory, int note) {
    Directory stored;
    for (const auto& [id, address] : memory) {
        stored[id] = address.substr(0, address.find('\0'));
    }
    return {document(entryOf(listOf(stored)) + noteOf(note)), true, stored, note};
}

bool canBeSaved(const Directory& memory) {
    for (const auto& [id, address] : memory) {
        if (address == "\xff") {
            return false;
        }
    }
    return true;
}

// How a directory comes out when it is copied like a file, which the file system decides: as an
// empty file, where the directory's end is its start; otherwise not at all.
bool directoriesAreEmptyFiles(const std::string& path) {
    const int descriptor = ::open(path.c_str(), O_RDONLY | O_DIRECTORY);
    const off_t end = ::lseek(descriptor, 0, SEEK_END);
    ::close(descriptor);
    return end == -1 || static_cast<std::int32_t>(end) == 0;
}

// The plug-in and the disk as they should be. What the plug-in does, the model does after it; what
// somebody else does to the files is told to it.
class Model {
  public:
    Model(std::string path, bool copiesDirectories)
        : path_(std::move(path)), copiesDirectories_(copiesDirectories) {}

    void initialize() {
        memory.clear();
        isLoaded_ = false;
        for (int restores = 0; !mainFile || !mainFile->isGood; ++restores) {
            if (isDirectory || !backup || restores == 3) {
                return;
            }
            mainFile = backup;
        }
        isLoaded_ = true;
        memory = mainFile->services;
        note_ = mainFile->note;
        inode_ = inode();
    }

    void finalize() {
        descriptors -= isOpen_ ? 1 : 0;
        isOpen_ = false;
    }

    void registerServices(const Services& request) {
        bool isChanged = false;
        for (const auto& [id, address] : request) {
            const auto [entry, isNew] = memory.emplace(id, address);
            isChanged = isChanged || isNew || entry->second != address;
            entry->second = address;
        }
        if (isChanged && isLoaded_ && canBeSaved(memory)) {
            save();
        }
    }

    Directory memory;
    // What stands at the path: a file, a directory, or neither.
    std::optional<Document> mainFile;
    bool isDirectory = false;
    std::optional<Document> backup;
    std::size_t descriptors = 0;

  private:
    ino_t inode() const {
        struct stat status = {};
        return ::stat(path_.c_str(), &status) == 0 ? status.st_ino : 0;
    }

    // What was open before stays so.
    void open() {
        isOpen_ = !isDirectory;
        descriptors += isOpen_ ? 1 : 0;
    }

    void save() {
        if (mainFile) {
            backup = mainFile;
        } else if (isDirectory && copiesDirectories_) {
            backup = Document();
        }
        if (!isOpen_) {
            if (!mainFile) {
                return;
            }
            open();
        }
        if ((!mainFile && !isDirectory) || inode_ != inode()) {
            open();
            inode_ = inode();
        }
        if (isOpen_) {
            mainFile = savedDocument(memory, note_);
        }
    }

    std::string path_;
    bool copiesDirectories_;
    bool isLoaded_ = false;
    bool isOpen_ = false;
    ino_t inode_ = 0;
    int note_ = 0;
};

class Walk {
  public:
    explicit Walk(std::uint32_t seed) : random_(seed) {
        std::filesystem::create_directory(directory_.path("backup"));
        write(goodDocument());
        initialize();
    }
    ~Walk() {
        plugin_.finalize();
        closeDescriptors();
    }
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    // Returns what it did.
    const char* step() {
        const int choice = below(100);
        if (choice < 40) {
            return registerSome();
        }
        if (choice < 52) {
            return unregisterSome();
        }
        if (choice < 66) {
            return restart();
        }
        if (choice < 70) {
            clearPath();
            return "delete the file";
        }
        if (choice < 73) {
            std::filesystem::remove(backup_);
            model_.backup.reset();
            return "delete the backup";
        }
        if (choice < 77) {
            write(damagedDocument());
            return "damage the file";
        }
        if (choice < 80) {
            writeBackup(damagedDocument());
            return "damage the backup";
        }
        if (choice < 85) {
            writeBackup(goodDocument());
            return "write a good backup";
        }
        if (choice < 90) {
            write(goodDocument());
            return "write a good file";
        }
        if (choice < 98) {
            return replaceByCopy();
        }
        clearPath();
        std::filesystem::create_directory(path_);
        model_.isDirectory = true;
        return "put a directory in the file's place";
    }

    void check() const {
        EXPECT_EQ(plugin_.getServices(), listOf(model_.memory));
        EXPECT_EQ(std::filesystem::is_directory(path_), model_.isDirectory);
        EXPECT_EQ(contentOf(path_), bytesOf(model_.mainFile)) << "file";
        EXPECT_EQ(contentOf(backup_), bytesOf(model_.backup)) << "backup";
        EXPECT_EQ(descriptorsBelow(directory_.path()).size(), model_.descriptors);
    }

  private:
    static std::optional<std::string> bytesOf(const std::optional<Document>& file) {
        return file ? std::optional(file->bytes) : std::nullopt;
    }

    int below(int limit) { return static_cast<int>(random_() % static_cast<std::uint32_t>(limit)); }

    std::int32_t anyId() { return below(8) - 3; }

    std::string anyAddress() {
        // The last is not UTF-8, and rare.
        static const std::string addresses[] = {
            "", "a", "<&>", "caf\u00e9", std::string("a\0b", 3), "\u4e2d\U0001F600", "\xff"};
        return addresses[below(25) == 0 ? 6 : below(6)];
    }

    Directory anyServices() {
        Directory services;
        for (int count = 1 + below(4); count > 0; --count) {
            services[anyId()] = std::string(static_cast<std::size_t>(below(30)), 'x');
        }
        return services;
    }

    Document goodDocument() {
        const int note = below(1000);
        switch (below(5)) {
            case 0:
                return {"<plist><dict><key>Note</key><integer>" + std::to_string(note) +
                            "</integer></dict></plist>",
                        true,
                        {},
                        note};
            case 1: {
                const std::string entry = entryOf({{2, "a"}, {1, "b"}, {2, "c"}});
                return {document(entry + noteOf(note)), true, {{1, "b"}, {2, "c"}}, note};
            }
            case 2:
                return {document("<key>Address</key><dict><key>services</key><array><dict/>"
                                 "<string/></array></dict>" +
                                 noteOf(note)),
                        true,
                        {},
                        note};
            default:
                return savedDocument(anyServices(), note);
        }
    }

    Document damagedDocument() {
        Document damaged;
        switch (below(4)) {
            case 0:
                break;
            case 1:
                damaged.bytes = "damaged &";
                break;
            case 2:
                damaged.bytes = "<plist><array/></plist>";
                break;
            default: {
                const std::string whole = savedDocument(anyServices(), 0).bytes;
                damaged.bytes = whole.substr(0, whole.size() / 2);
            }
        }
        return damaged;
    }

    const char* registerSome() {
        Services request;
        for (int count = below(4); count > 0; --count) {
            request.emplace_back(anyId(), anyAddress());
        }
        EXPECT_EQ(plugin_.registerServices(request), QV_OK);
        model_.registerServices(request);
        return "register";
    }

    const char* unregisterSome() {
        std::vector<std::int32_t> ids;
        for (int count = below(4); count > 0; --count) {
            ids.push_back(anyId());
            model_.memory.erase(ids.back());
        }
        EXPECT_EQ(plugin_.unregisterServices(ids), QV_OK);
        return "unregister";
    }

    const char* restart() {
        plugin_.finalize();
        model_.finalize();
        EXPECT_EQ(descriptorsBelow(directory_.path()).size(), model_.descriptors);
        closeDescriptors();
        model_.descriptors = 0;
        initialize();
        return "restart";
    }

    const char* replaceByCopy() {
        const Document copy = model_.mainFile && below(2) == 0 ? *model_.mainFile
                              : model_.backup                  ? *model_.backup
                                                               : goodDocument();
        // Written first, while the inode of the file that it replaces is still taken.
        writeFile(path_ + ".new", copy.bytes);
        clearPath();
        std::filesystem::rename(path_ + ".new", path_);
        model_.mainFile = copy;
        return "replace the file by a copy";
    }

    void initialize() {
        EXPECT_EQ(plugin_.initialize(), QV_OK);
        model_.initialize();
    }

    void clearPath() {
        std::filesystem::remove(path_);
        model_.mainFile.reset();
        model_.isDirectory = false;
    }

    // Into the file that is there, if one is.
    void write(const Document& file) {
        if (model_.isDirectory) {
            clearPath();
        }
        writeFile(path_, file.bytes);
        model_.mainFile = file;
    }

    void writeBackup(const Document& file) {
        writeFile(backup_, file.bytes);
        model_.backup = file;
    }

    // What the plug-in has left open is never used again.
    void closeDescriptors() const {
        for (const int descriptor : descriptorsBelow(directory_.path())) {
            ::close(descriptor);
        }
    }

    std::mt19937 random_;
    const LoadedPlugin plugin_;
    const TemporaryDirectory directory_;
    const EnvironmentVariable variable_{"QV_CONFIG_DIR", directory_.path()};
    const std::string path_ = directory_.path(kConfigurationFile);
    const std::string backup_ = directory_.path("backup/") + kConfigurationFile;
    Model model_{path_, directoriesAreEmptyFiles(directory_.path())};
};

void walk(std::uint32_t seed) {
    std::printf("seed %u\n", seed);
    testing::Test::RecordProperty("seed", std::to_string(seed));
    Walk walk(seed);
    for (int step = 0; step < kSteps; ++step) {
        const char* const done = walk.step();
        walk.check();
        if (testing::Test::HasFailure()) {
            FAIL() << "step " << step << " of seed " << seed << ": " << done;
        }
    }
}

TEST(PersistenceWalk, AlwaysTheSame) {
    walk(20240229);
}

TEST(PersistenceWalk, AnotherEachTime) {
    const char* const seed = std::getenv("QV_TEST_SEED");
    walk(seed != nullptr ? static_cast<std::uint32_t>(std::strtoul(seed, nullptr, 10))
                         : std::random_device()());
}

}  // namespace
}  // namespace qv::tests
