// Walks at random through requests, restarts and changes of the two files by others. Compares the
// plug-in with a model of the directory and of the files after each step.
//
// QV_TEST_SEED in the environment sets the seed, to repeat a walk.

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <vector>

#include "support/ConfigurationDocuments.h"
#include "support/DirectoryModel.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

constexpr int kSteps = 10000;

Directory directoryOf(const Services& services) {
    Directory directory;
    for (const auto& [id, address] : services) {
        directory[id] = {id, address};
    }
    return directory;
}

// Needs services that have both fields.
Services listOf(const Directory& directory) {
    Services services;
    for (const auto& [id, service] : directory) {
        services.emplace_back(id, service.address.value());
    }
    return services;
}

std::string noteOf(int note) {
    return "\t<key>Note</key>\n\t<integer>" + std::to_string(note) + "</integer>\n";
}

// Returns the value of the key "Note", which each document of this test has and the plug-in does
// not know.
int noteIn(const std::string& bytes) {
    return std::atoi(bytes.c_str() + bytes.find("<integer>", bytes.find("Note")) + 9);
}

// Returns the document of a save. It holds addresses up to their first NUL.
Document savedDocument(const Directory& memory, int note) {
    Directory stored = memory;
    for (auto& [id, service] : stored) {
        service.address->resize(std::strlen(service.address->c_str()));
    }
    return {document(entryOf(listOf(stored)) + noteOf(note)), true, stored};
}

std::optional<Document> savedAfter(const Document& loaded, const Directory& memory) {
    for (const auto& [id, service] : memory) {
        if (service.address == "\xff") {
            return std::nullopt;
        }
    }
    return savedDocument(memory, noteIn(loaded.bytes));
}

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

    // Makes one random step and returns its description.
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
        // The last address is not UTF-8. It is rare, because it stops the saves.
        static const std::string addresses[] = {
            "", "a", "<&>", "caf\u00e9", std::string("a\0b", 3), "\u4e2d\U0001F600", "\xff"};
        return addresses[below(25) == 0 ? 6 : below(6)];
    }

    Directory anyServices() {
        Services services;
        for (int count = 1 + below(4); count > 0; --count) {
            const std::int32_t id = anyId();
            services.emplace_back(id, std::string(static_cast<std::size_t>(below(30)), 'x'));
        }
        return directoryOf(services);
    }

    Document goodDocument() {
        const int note = below(1000);
        switch (below(5)) {
            case 0:
                return {"<plist><dict><key>Note</key><integer>" + std::to_string(note) +
                            "</integer></dict></plist>",
                        true,
                        {}};
            case 1: {
                const std::string entry = entryOf({{2, "a"}, {1, "b"}, {2, "c"}});
                return {document(entry + noteOf(note)), true, directoryOf({{1, "b"}, {2, "c"}})};
            }
            case 2:
                return {document("<key>Address</key><dict><key>services</key><array><dict/>"
                                 "<string/></array></dict>" +
                                 noteOf(note)),
                        true,
                        {}};
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
        std::vector<StoredService> services;
        for (int count = below(4); count > 0; --count) {
            const auto& [id, address] = request.emplace_back(anyId(), anyAddress());
            services.push_back({id, address});
        }
        EXPECT_EQ(plugin_.registerServices(request), QV_OK);
        model_.registerServices(services);
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
        // The new file is written before the old one is removed, so that it has another inode.
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

    // Overwrites the file if there is one.
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

    // Closes the descriptors that the plug-in has left open.
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
    DirectoryModel model_{path_, savedAfter};
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
