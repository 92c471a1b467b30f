// SPDX-License-Identifier: Apache-2.0

// Tests the configuration file and its backup, with real files.

#include "QvConfig.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "platform/CoreFoundation/Documents.h"
#include "support/ConfigurationDocuments.h"
#include "support/FileEvents.h"
#include "support/FileModes.h"
#include "support/Files.h"
#include "support/RecordedCalls.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using qor::kevra::NullMutex;
using qor::kevra::ServiceInfoArray;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::IsSupersetOf;
using testing::Optional;

using Config = qor::kevra::QvConfig<NullMutex>;
using Services = std::vector<std::pair<int, std::string>>;

ServiceInfoArray messageOf(const Services& services) {
    ServiceInfoArray message;
    for (const auto& [id, address] : services) {
        auto* const service = message.add_services();
        service->set_id(id);
        service->set_address(address);
    }
    return message;
}

Services servicesIn(const ServiceInfoArray& message) {
    Services services;
    for (const auto& service : message.services()) {
        services.emplace_back(service.id(), service.address());
    }
    return services;
}

// Returns the services of a message that held another service before get().
Services getFrom(Config& config, const char* key = "Address") {
    ServiceInfoArray message = messageOf({{99, "the caller's"}});
    EXPECT_TRUE(config.get(message, key));
    return servicesIn(message);
}

const Services kCallers{{99, "the caller's"}};

// The document differs from the form that a save writes, so that a test can tell the two apart.
const std::string kOriginal =
    "<plist><dict><key>Address</key><dict><key>services</key><array><dict><key>id</key>"
    "<integer>1</integer><key>address</key><string>original</string></dict></array></dict></dict>"
    "</plist>";
const Services kOriginalServices{{1, "original"}};

// Documents that cannot be loaded as a configuration.
const std::string kDamaged[] = {
    "",
    "no property list at all &",
    "<plist><array><dict/></array></plist>",
    "<plist><string>Address</string></plist>",
    "<plist><dict><key>Address</key></plist>",
    kOriginal.substr(0, kOriginal.size() / 2),
    "bplist00",
    std::string(1000, '\0'),
};

// A directory with room for the file and its backup.
class ConfigTest : public testing::Test {
  protected:
    const std::string& directory() const { return directory_.path(); }

    void writeBackup(const std::string& content) const {
        std::filesystem::create_directory(backupDirectory);
        writeFile(backup, content);
    }

    FileEvents watchFiles() const {
        return FileEvents({{directory(), ""}, {backupDirectory, "backup/"}});
    }

    std::size_t openDescriptors() const { return descriptorsBelow(directory()).size(); }

    // Expects that nothing is loaded, and that each later operation fails.
    void expectUnloaded(const char* at) const {
        Config config(at);
        ServiceInfoArray message = messageOf(kCallers);
        EXPECT_FALSE(config.get(message, "Address"));
        EXPECT_EQ(servicesIn(message), kCallers);
        EXPECT_FALSE(config.set(message, "Address"));
        EXPECT_FALSE(config.save());
        EXPECT_FALSE(config.copytobackup());
        EXPECT_EQ(openDescriptors(), 0U);
    }

    void expectLoads(const Services& services) const {
        Config config(path.c_str());
        EXPECT_EQ(getFrom(config), services);
    }

    void TearDown() override {
        for (const int descriptor : descriptorsBelow(directory())) {
            ::close(descriptor);
        }
    }

  private:
    TemporaryDirectory directory_;

  protected:
    const std::string path = directory_.path(kConfigurationFile);
    const std::string backupDirectory = directory_.path("backup");
    const std::string backup = backupDirectory + "/" + kConfigurationFile;
};

void setAndSave(Config& config, const Services& services) {
    EXPECT_TRUE(config.set(messageOf(services), "Address"));
    EXPECT_TRUE(config.save());
}

TEST_F(ConfigTest, GoodFileIsReadOnceAndTheBackupNotAtAll) {
    writeFile(path, kOriginal);
    writeBackup(documentOf({{2, "backup"}}));
    FileEvents events = watchFiles();
    const Config config(path.c_str());
    EXPECT_THAT(events.take(), ElementsAre("read namingService.conf.plist"));
}

TEST_F(ConfigTest, NullOrDirectoryAsPathLoadsNothing) {
    writeFile(path, kOriginal);
    expectUnloaded(nullptr);
    expectUnloaded((directory() + "/").c_str());
    EXPECT_FALSE(Config(nullptr).copyfrombackup());
}

TEST_F(ConfigTest, PathWithoutADirectoryIsRefused) {
    EXPECT_THROW(Config("namingService.conf.plist"), std::length_error);
    EXPECT_THROW(Config(""), std::length_error);
}

TEST_F(ConfigTest, BadBackupEndsUpInTheFile) {
    for (const std::string& damaged : kDamaged) {
        writeFile(path, "another damaged file &");
        writeBackup(damaged);
        expectUnloaded(path.c_str());
        EXPECT_THAT(contentOf(path), Optional(damaged));
        EXPECT_THAT(contentOf(backup), Optional(damaged));
    }
}

TEST_F(ConfigTest, IsReadAndRestoredThreeTimesAtTheMost) {
    writeFile(path, "damaged &");
    writeBackup("as bad &");
    FileEvents events = watchFiles();
    const Config config(path.c_str());
    auto seen = events.take();
    seen.erase(std::remove(seen.begin(), seen.end(), "change namingService.conf.plist"),
               seen.end());
    const std::string read = "read namingService.conf.plist";
    const std::string readBackup = "read backup/namingService.conf.plist";
    const std::string written = "written namingService.conf.plist";
    EXPECT_THAT(seen, ElementsAre(read, readBackup, written, read, readBackup, written, read,
                                  readBackup, written));
}

TEST_F(ConfigTest, SuccessfulRestoreIsNotRepeated) {
    writeFile(path, "damaged &");
    writeBackup(kOriginal);
    FileEvents events = watchFiles();
    const Config config(path.c_str());
    EXPECT_THAT(events.take(),
                ElementsAre("read namingService.conf.plist", "read backup/namingService.conf.plist",
                            "change namingService.conf.plist", "written namingService.conf.plist",
                            "read namingService.conf.plist"));
}

TEST_F(ConfigTest, OtherFormsOfDocumentsLoad) {
    BinaryDocument binary;
    binary.addDictionary({1}, {2});
    binary.addString("Address");
    binary.addDictionary({3}, {4});
    binary.addString("services");
    binary.addArray({5});
    binary.addDictionary({6, 7}, {8, 9});
    binary.addString("id");
    binary.addString("address");
    binary.add("\x10\x01");
    binary.addString("original");
    std::string wide = "\xff\xfe";
    for (const char character : kOriginal) {
        wide += std::string{character, '\0'};
    }
    for (const std::string& content :
         {binary.bytes(), wide, "\xef\xbb\xbf" + kOriginal, documentOf(kOriginalServices),
          kOriginal + "what follows is not read"}) {
        writeFile(path, content);
        expectLoads(kOriginalServices);
        EXPECT_THAT(contentOf(path), Optional(content));
    }
    // Old-style documents have no numbers.
    writeFile(path, "{ Address = { services = ( { id = 1; address = \"original\"; } ); }; }");
    expectLoads({{0, "original"}});
}

TEST_F(ConfigTest, GetNeedsADictionaryUnderTheKey) {
    writeFile(path,
              "<plist><dict><key>string</key><string>a</string><key>array</key><array/>"
              "<key>number</key><integer>1</integer><key>truth</key><true/></dict></plist>");
    Config config(path.c_str());
    for (const char* const key : {"missing", "string", "array", "number", "truth", "", "\xff"}) {
        ServiceInfoArray message = messageOf(kCallers);
        EXPECT_FALSE(config.get(message, key)) << key;
        EXPECT_EQ(servicesIn(message), kCallers) << key;
    }
    ServiceInfoArray message;
    EXPECT_FALSE(config.get(message, nullptr));
}

TEST_F(ConfigTest, GetWithoutAListLeavesTheMessage) {
    writeFile(path,
              "<plist><dict><key>Address</key><dict/>"
              "<key>other</key><dict><key>Services</key><array/></dict>"
              "<key>string</key><dict><key>services</key><string>a</string></dict>"
              "<key>dictionary</key><dict><key>services</key><dict/></dict></dict></plist>");
    Config config(path.c_str());
    for (const char* const key : {"Address", "other", "string", "dictionary"}) {
        EXPECT_EQ(getFrom(config, key), kCallers) << key;
    }
}

// A message that always lacks a required field.
class UnreadyMessage {
  public:
    static bool IsInitialized() { return false; }
    static int services_size() { return 0; }
    static const google::protobuf::RepeatedPtrField<qor::kevra::ServiceInfo>& services() {
        return *mutable_services();
    }
    static google::protobuf::RepeatedPtrField<qor::kevra::ServiceInfo>* mutable_services() {
        static google::protobuf::RepeatedPtrField<qor::kevra::ServiceInfo> field;
        return &field;
    }
};

TEST_F(ConfigTest, MessageThatLacksARequiredFieldIsNeitherGotNorSet) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    UnreadyMessage message;
    EXPECT_FALSE(config.get(message, "Address"));
    EXPECT_FALSE(config.set(message, "Address"));
    EXPECT_EQ(getFrom(config), kOriginalServices);
}

TEST_F(ConfigTest, SetReplacesWhatGetGives) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    EXPECT_TRUE(config.set(messageOf({{3, "c"}, {-1, "caf\u00e9"}, {3, "again"}}), "Address"));
    EXPECT_EQ(getFrom(config), (Services{{3, "c"}, {-1, "caf\u00e9"}, {3, "again"}}));
    EXPECT_TRUE(config.set(messageOf({{4, "d"}}), "Another"));
    EXPECT_EQ(getFrom(config, "Another"), (Services{{4, "d"}}));
    EXPECT_EQ(getFrom(config).size(), 3U);
}

TEST_F(ConfigTest, SetReachesTheFileWithSaveOnly) {
    writeFile(path, kOriginal);
    {
        Config config(path.c_str());
        EXPECT_TRUE(config.set(messageOf({{2, "b"}}), "Address"));
        EXPECT_EQ(openDescriptors(), 0U);
    }
    EXPECT_THAT(contentOf(path), Optional(kOriginal));
    EXPECT_FALSE(std::filesystem::exists(backupDirectory));
}

TEST_F(ConfigTest, SetOfNoServicesIsAnEmptyDictionary) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    EXPECT_TRUE(config.set(ServiceInfoArray(), "Address"));
    EXPECT_EQ(getFrom(config), kCallers);
    EXPECT_TRUE(config.save());
    EXPECT_THAT(contentOf(path), Optional(document("\t<key>Address</key>\n\t<dict/>\n")));
}

TEST_F(ConfigTest, SetThatCannotBeConvertedReplacesNothing) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    EXPECT_FALSE(config.set(messageOf({{2, "b"}, {3, "\xff"}}), "Address"));
    EXPECT_FALSE(config.set(messageOf({{3, "\xff"}}), "Another"));
    EXPECT_EQ(getFrom(config), kOriginalServices);
    ServiceInfoArray message;
    EXPECT_FALSE(config.get(message, "Another"));
    EXPECT_TRUE(config.save());
    EXPECT_THAT(contentOf(path), Optional(documentOf(kOriginalServices)));
}

TEST_F(ConfigTest, SetNeedsAKey) {
    writeFile(path, kOriginal);
    Config config(path.c_str());
    EXPECT_FALSE(config.set(messageOf({{2, "b"}}), nullptr));
    EXPECT_FALSE(config.set(messageOf({{2, "b"}}), "\xff"));
    EXPECT_TRUE(config.set(messageOf({{2, "b"}}), ""));
    EXPECT_EQ(getFrom(config, ""), (Services{{2, "b"}}));
}

TEST_F(ConfigTest, SaveRefreshesTheBackupFirst) {
    writeFile(path, kOriginal);
    std::filesystem::create_directory(backupDirectory);
    Config config(path.c_str());
    EXPECT_TRUE(config.set(messageOf({{2, "b"}}), "Address"));
    FileEvents events = watchFiles();
    EXPECT_TRUE(config.save());
    EXPECT_THAT(
        events.take(),
        ElementsAre("read namingService.conf.plist", "change backup/namingService.conf.plist",
                    "written backup/namingService.conf.plist", "change namingService.conf.plist"));
    // The file is open already.
    EXPECT_TRUE(config.save());
    EXPECT_THAT(
        events.take(),
        ElementsAre("read namingService.conf.plist", "change backup/namingService.conf.plist",
                    "written backup/namingService.conf.plist", "change namingService.conf.plist"));
}

TEST_F(ConfigTest, BackupHoldsThePreviousContent) {
    writeFile(path, kOriginal);
    std::filesystem::create_directory(backupDirectory);
    Config config(path.c_str());
    setAndSave(config, {{2, "first"}});
    EXPECT_THAT(contentOf(backup), Optional(kOriginal));
    const ino_t inode = inodeOf(backup);
    setAndSave(config, {{2, "second, and longer"}});
    EXPECT_THAT(contentOf(backup), Optional(documentOf({{2, "first"}})));
    EXPECT_THAT(contentOf(path), Optional(documentOf({{2, "second, and longer"}})));
    setAndSave(config, {{2, "3"}});
    EXPECT_THAT(contentOf(backup), Optional(documentOf({{2, "second, and longer"}})));
    EXPECT_EQ(inodeOf(backup), inode);
}

TEST_F(ConfigTest, BackupOfAnEmptyFileIsEmpty) {
    writeFile(path, kOriginal);
    writeBackup("former");
    Config config(path.c_str());
    writeFile(path, "");
    EXPECT_TRUE(config.save());
    EXPECT_THAT(contentOf(backup), Optional(std::string()));
    EXPECT_THAT(contentOf(path), Optional(documentOf(kOriginalServices)));
}

TEST_F(ConfigTest, SaveWritesInPlaceThroughOneDescriptor) {
    writeFile(path, kOriginal);
    const ino_t inode = inodeOf(path);
    {
        Config config(path.c_str());
        EXPECT_EQ(openDescriptors(), 0U);
        for (int round = 0; round < 5; ++round) {
            setAndSave(config, {{round, "a"}});
            EXPECT_EQ(inodeOf(path), inode);
            EXPECT_EQ(openDescriptors(), 1U);
        }
    }
    EXPECT_EQ(openDescriptors(), 0U);
}

using CallList = std::vector<std::string>;

// Each call that a configuration makes of the platform, in order, and what follows one that fails.
class ConfigCallsTest : public ConfigTest {
  protected:
    void SetUp() override {
        writeFile(path, content);
        writeBackup("former");
        config = std::make_unique<Config>(path.c_str());
    }

    CallList callsOfSave(bool result, const GivenResult& given = {}) {
        return callsDuring([&] { EXPECT_EQ(config->save(), result); }, given);
    }

    const std::string content = documentOf(kOriginalServices);
    const std::string size = std::to_string(content.size());
    const CallList read{"fopen(namingService.conf.plist, r)",
                        "lseek(namingService.conf.plist, 0, SEEK_END)",
                        "ftell(namingService.conf.plist)", "rewind(namingService.conf.plist)",
                        "fread(namingService.conf.plist, " + size + ")"};
    const CallList writeBack{"fopen(backup/namingService.conf.plist, w+)",
                             "fwrite(backup/namingService.conf.plist, " + size + ")",
                             "fflush(backup/namingService.conf.plist)"};
    const CallList open{"open(namingService.conf.plist, O_WRONLY)"};
    const CallList serialize{"CFPropertyListCreateXMLData()"};
    const CallList write{"lseek(namingService.conf.plist, 0, SEEK_SET)",
                         "write(namingService.conf.plist, " + size + ")",
                         "ftruncate(namingService.conf.plist, " + size + ")",
                         "fsync(namingService.conf.plist)"};
    std::unique_ptr<Config> config;
};

// The first calls of a list.
CallList first(std::size_t count, const CallList& calls) {
    return {calls.begin(), calls.begin() + static_cast<std::ptrdiff_t>(count)};
}

CallList operator+(CallList calls, const CallList& more) {
    calls.insert(calls.end(), more.begin(), more.end());
    return calls;
}

TEST_F(ConfigCallsTest, SaveBacksUpThenWritesAtOnceThenCutsThenWaitsForTheDisk) {
    EXPECT_EQ(callsOfSave(true), read + writeBack + open + serialize + write);
    // Now the file is open already.
    EXPECT_EQ(callsOfSave(true), read + writeBack + serialize + write);
}

TEST_F(ConfigCallsTest, BackupDirectoryIsMadeOnlyIfItIsMissing) {
    std::filesystem::remove_all(backupDirectory);
    const CallList make{"mkdir(backup, 0600)"};
    const CallList calls = callsOfSave(true);
    EXPECT_EQ(calls,
              (::geteuid() == 0 ? make + read + writeBack : make + read + first(1, writeBack)) +
                  open + serialize + write);
}

TEST_F(ConfigCallsTest, DeletedFileIsOpenedToBeMadeAndCut) {
    callsOfSave(true);
    std::filesystem::remove(path);
    const CallList make{"open(namingService.conf.plist, O_WRONLY | O_CREAT | O_TRUNC, 0600)"};
    EXPECT_EQ(callsOfSave(true), first(1, read) + make + serialize + write);
}

TEST_F(ConfigCallsTest, ReplacedFileIsOpenedForWritingOnly) {
    callsOfSave(true);
    replaceFile(path, content);
    EXPECT_EQ(callsOfSave(true), read + writeBack + open + serialize + write);
}

TEST_F(ConfigCallsTest, BackupThatFailsAtAnyCallIsReportedAndDoesNotStopTheSave) {
    const long lessThanAll = static_cast<long>(content.size()) - 1;
    const CallList backUp = read + writeBack;
    for (const auto& [index, result] : {std::pair(0U, 0L), std::pair(4U, lessThanAll),
                                        std::pair(5U, 0L), std::pair(6U, lessThanAll)}) {
        const GivenResult given{backUp[index], result, EIO};
        callsDuring([&] { EXPECT_FALSE(config->copytobackup()) << given.call; }, given);
        config = std::make_unique<Config>(path.c_str());
        EXPECT_EQ(callsOfSave(true, given), first(index + 1, backUp) + open + serialize + write);
        EXPECT_TRUE(index >= read.size() || contentOf(backup) == "former");
    }
    EXPECT_TRUE(config->copytobackup());
}

TEST_F(ConfigCallsTest, FileWithoutASizeIsNotCopied) {
    callsDuring([&] { EXPECT_FALSE(config->copytobackup()); }, {read[2], -1, EIO});
    EXPECT_THAT(contentOf(backup), Optional(std::string("former")));
}

// The size is taken for a negative one.
TEST_F(ConfigCallsTest, FileOfThreeGibibytesIsNotCopied) {
    std::filesystem::resize_file(path, std::uintmax_t(3) << 30);
    EXPECT_EQ(callsDuring([&] { EXPECT_FALSE(config->copytobackup()); }), first(4, read));
}

TEST_F(ConfigCallsTest, DirectoryOrPipeIsNotCopied) {
    const std::function<void(const std::string&)> makers[] = {
        [](const std::string& place) { std::filesystem::create_directory(place); },
        [](const std::string& place) { EXPECT_EQ(::mkfifo(place.c_str(), 0600), 0); }};
    for (const auto& make : makers) {
        std::filesystem::remove(backup);
        make(backup);
        EXPECT_THAT(callsDuring([&] { EXPECT_FALSE(config->copyfrombackup()); }), IsEmpty());
        EXPECT_EQ(callsDuring([&] { EXPECT_FALSE(config->copytobackup()); }), read);
    }
}

TEST_F(ConfigCallsTest, SaveEndsAtTheFirstOtherCallThatFails) {
    const CallList own = open + serialize + first(2, write);
    for (std::size_t index = 0; index < own.size(); ++index) {
        const long result = own[index] == serialize[0] ? 0 : -1;
        EXPECT_EQ(callsOfSave(false, {own[index], result, EIO}),
                  read + writeBack + first(index + 1, own));
        config = std::make_unique<Config>(path.c_str());
    }
}

TEST_F(ConfigCallsTest, ShortWriteAndResultsOfCuttingAndFlushingDoNotCount) {
    callsOfSave(true);
    for (const GivenResult& given :
         {GivenResult{write[1], 0, 0}, GivenResult{write[1], 1, 0}, GivenResult{write[2], -1, EIO},
          GivenResult{write[3], -1, EIO}}) {
        EXPECT_EQ(callsOfSave(true, given), read + writeBack + serialize + write);
    }
}

TEST_F(ConfigCallsTest, DestructionClosesTheFileOnceAndOnlyIfItIsOpen) {
    EXPECT_THAT(callsDuring([&] { config.reset(); }), IsEmpty());
    config = std::make_unique<Config>(path.c_str());
    callsOfSave(true);
    EXPECT_THAT(callsDuring([&] { config.reset(); }),
                ElementsAre("close(namingService.conf.plist)"));
}

TEST_F(ConfigCallsTest, GoodFileIsReadToBeChangedAndCheckedForTheBinaryFormat) {
    EXPECT_THAT(callsDuring([&] { config = std::make_unique<Config>(path.c_str()); }),
                IsSupersetOf({"CFPropertyListCreateFromXMLData(1)",
                              "CFPropertyListIsValid(dictionary, 200)"}));
}

TEST_F(ConfigCallsTest, FileWithoutMemoryForItsDataCountsAsDamaged) {
    writeBackup(content);
    const CallList parse{"CFDataCreateWithBytesNoCopy(" + size + ")",
                         "CFPropertyListCreateFromXMLData(1)",
                         "CFPropertyListIsValid(dictionary, 200)"};
    const CallList restore{"fopen(backup/namingService.conf.plist, r)",
                           "lseek(backup/namingService.conf.plist, 0, SEEK_END)",
                           "ftell(backup/namingService.conf.plist)",
                           "rewind(backup/namingService.conf.plist)",
                           "fread(backup/namingService.conf.plist, " + size + ")",
                           "fopen(namingService.conf.plist, w+)",
                           "fwrite(namingService.conf.plist, " + size + ")",
                           "fflush(namingService.conf.plist)"};
    CallList calls =
        callsDuring([&] { config = std::make_unique<Config>(path.c_str()); }, {parse[0], 0, 0});
    // The stream that reads the file goes to the end and back.
    const auto isOfStream = [](const std::string& call) {
        return call.rfind("lseek(namingService.conf.plist", 0) == 0;
    };
    calls.erase(std::remove_if(calls.begin(), calls.end(), isOfStream), calls.end());
    EXPECT_EQ(calls, first(1, parse) + restore + parse);
}

#ifdef __GLIBCXX__
// The stream asks where it is, after it went to the end of the file.
TEST_F(ConfigCallsTest, FileThatIsShorterThanItsSizeIsDamaged) {
    writeBackup(kOriginal);
    const GivenResult longer{"lseek(namingService.conf.plist, 0, SEEK_CUR)",
                             static_cast<long>(content.size()) + 1, 0};
    callsDuring([&] { config = std::make_unique<Config>(path.c_str()); }, longer);
    EXPECT_THAT(contentOf(path), Optional(kOriginal));
}
#endif

TEST_F(ConfigCallsTest, GetWithoutMemoryForTheKeyIsRefused) {
    ServiceInfoArray message = messageOf(kCallers);
    const GivenResult given{"CFStringCreateWithCString(Address, UTF-8)", 0, 0};
    EXPECT_THAT(callsDuring([&] { EXPECT_FALSE(config->get(message, "Address")); }, given),
                ElementsAre(given.call));
    EXPECT_EQ(servicesIn(message), kCallers);
}

TEST_F(ConfigCallsTest, SetThatFailsAtAnyCallReplacesNothing) {
    const ServiceInfoArray message = messageOf({{2, "b"}});
    Config another(path.c_str());
    const CallList calls = callsDuring([&] { EXPECT_TRUE(another.set(message, "Address")); });
    EXPECT_THAT(calls, testing::SizeIs(9));
    for (const std::string& call : calls) {
        const auto set = [&] { EXPECT_FALSE(config->set(message, "Address")) << call; };
        const CallList expected(calls.begin(), std::find(calls.begin(), calls.end(), call) + 1);
        EXPECT_EQ(callsDuring(set, {call, 0, 0}), expected);
        EXPECT_EQ(getFrom(*config), kOriginalServices);
    }
}

// A process without a standard input gets the number 0.
TEST_F(ConfigCallsTest, FileMayBeOpenedAsDescriptorZero) {
    const int input = ::dup(STDIN_FILENO);
    ::close(STDIN_FILENO);
    callsOfSave(true);
    EXPECT_THAT(descriptorsBelow(directory()), ElementsAre(0));
    EXPECT_THAT(contentOf(path), Optional(content));
    config.reset();
    EXPECT_EQ(openDescriptors(), 0U);
    ::dup2(input, STDIN_FILENO);
    ::close(input);
}

TEST_F(ConfigTest, FileDeletedAfterASaveIsMadeAgain) {
    writeFile(path, kOriginal);
    std::filesystem::create_directory(backupDirectory);
    Config config(path.c_str());
    setAndSave(config, {{1, "a"}});
    std::filesystem::remove(path);
    {
        const UmaskGuard noMask(0);
        setAndSave(config, {{2, "b"}});
    }
    EXPECT_THAT(contentOf(path), Optional(documentOf({{2, "b"}})));
    EXPECT_EQ(modeOf(path), 0600U);
    // The save found no file to back up.
    EXPECT_THAT(contentOf(backup), Optional(kOriginal));
    // The descriptor of the deleted file stays open. The next save uses the new descriptor.
    EXPECT_EQ(openDescriptors(), 2U);
    const ino_t inode = inodeOf(path);
    setAndSave(config, {{3, "c"}});
    EXPECT_EQ(openDescriptors(), 2U);
    EXPECT_EQ(inodeOf(path), inode);
    EXPECT_THAT(contentOf(path), Optional(documentOf({{3, "c"}})));
    EXPECT_THAT(contentOf(backup), Optional(documentOf({{2, "b"}})));
}

TEST_F(ConfigTest, FileDeletedBeforeTheFirstSaveIsNotMadeAgain) {
    writeFile(path, kOriginal);
    writeBackup("former");
    Config config(path.c_str());
    std::filesystem::remove(path);
    EXPECT_TRUE(config.set(messageOf({{2, "b"}}), "Address"));
    EXPECT_FALSE(config.save());
    EXPECT_FALSE(config.save());
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_THAT(contentOf(backup), Optional(std::string("former")));
    EXPECT_EQ(openDescriptors(), 0U);
    // A save writes the file once it exists again.
    writeFile(path, "");
    EXPECT_TRUE(config.save());
    EXPECT_THAT(contentOf(path), Optional(documentOf({{2, "b"}})));
}

TEST_F(ConfigTest, FileThatCouldNotBeMadeAgainIsSavedOnceItExists) {
    const std::string inner = directory() + "/inner";
    const std::string innerPath = inner + "/" + kConfigurationFile;
    std::filesystem::create_directory(inner);
    writeFile(innerPath, kOriginal);
    Config config(innerPath.c_str());
    setAndSave(config, {{1, "a"}});
    std::filesystem::rename(inner, directory() + "/moved");
    EXPECT_TRUE(config.set(messageOf({{2, "b"}}), "Address"));
    EXPECT_FALSE(config.save());
    std::filesystem::create_directory(inner);
    // No descriptor is open, so a save needs an existing file.
    EXPECT_FALSE(config.save());
    writeFile(innerPath, "");
    EXPECT_TRUE(config.save());
    EXPECT_THAT(contentOf(innerPath), Optional(documentOf({{2, "b"}})));
}

TEST_F(ConfigTest, ReplacedFileIsFollowed) {
    writeFile(path, kOriginal);
    std::filesystem::create_directory(backupDirectory);
    const std::string former = directory() + "/former";
    {
        Config config(path.c_str());
        setAndSave(config, {{1, "a"}});
        std::filesystem::create_hard_link(path, former);
        replaceFile(path, "someone else's");
        const ino_t inode = inodeOf(path);
        setAndSave(config, {{2, "b"}});
        EXPECT_EQ(inodeOf(path), inode);
        EXPECT_THAT(contentOf(path), Optional(documentOf({{2, "b"}})));
        EXPECT_THAT(contentOf(former), Optional(documentOf({{1, "a"}})));
        EXPECT_THAT(contentOf(backup), Optional(std::string("someone else's")));
        EXPECT_EQ(openDescriptors(), 2U);
        setAndSave(config, {{3, "c"}});
        EXPECT_EQ(openDescriptors(), 2U);
        EXPECT_THAT(contentOf(path), Optional(documentOf({{3, "c"}})));
    }
    // The descriptor of the former file stays open.
    ASSERT_EQ(openDescriptors(), 1U);
    struct stat status = {};
    EXPECT_EQ(::fstat(descriptorsBelow(directory())[0], &status), 0);
    EXPECT_EQ(status.st_ino, inodeOf(former));
}

TEST_F(ConfigTest, DirectoryOfBackupsIsMadeForItsOwnerOnly) {
    for (const mode_t mask : {0, 022, 077}) {
        const UmaskGuard guard(mask);
        std::filesystem::remove_all(backupDirectory);
        writeFile(path, kOriginal);
        Config config(path.c_str());
        EXPECT_TRUE(config.save());
        EXPECT_EQ(modeOf(backupDirectory), 0600U);
    }
}

TEST_F(ConfigTest, CopiesAreMadeOnRequest) {
    writeFile(path, kOriginal);
    std::filesystem::create_directory(backupDirectory);
    Config config(path.c_str());
    EXPECT_FALSE(config.copyfrombackup());
    EXPECT_TRUE(config.copytobackup());
    EXPECT_THAT(contentOf(backup), Optional(kOriginal));
    EXPECT_EQ(openDescriptors(), 0U);
    writeFile(path, "changed");
    EXPECT_TRUE(config.copyfrombackup());
    EXPECT_THAT(contentOf(path), Optional(kOriginal));
    std::filesystem::remove(path);
    EXPECT_FALSE(config.copytobackup());
    EXPECT_THAT(contentOf(backup), Optional(kOriginal));
    // The loaded document stays.
    EXPECT_EQ(getFrom(config), kOriginalServices);
}

// Counts how often the locks of all objects together are taken.
class CountingMutex {
  public:
    void lock() {
        EXPECT_FALSE(held);
        held = true;
        ++locked;
    }
    void unlock() {
        EXPECT_TRUE(held);
        held = false;
    }

    static inline bool held = false;
    static inline int locked = 0;
};

TEST_F(ConfigTest, EveryOperationTakesTheLockOnce) {
    writeFile(path, "damaged &");
    writeBackup(kOriginal);
    CountingMutex::locked = 0;
    const auto expectOnce = [](const char* operation) {
        EXPECT_EQ(CountingMutex::locked, 1) << operation;
        EXPECT_FALSE(CountingMutex::held) << operation;
        CountingMutex::locked = 0;
    };
    qor::kevra::QvConfig<CountingMutex> config(path.c_str());
    expectOnce("the constructor, which restores");
    ServiceInfoArray message;
    EXPECT_TRUE(config.get(message, "Address"));
    expectOnce("get()");
    EXPECT_FALSE(config.get(message, nullptr));
    expectOnce("get() without a key");
    EXPECT_TRUE(config.set(message, "Address"));
    expectOnce("set()");
    EXPECT_FALSE(config.set(messageOf({{1, "\xff"}}), "Address"));
    expectOnce("set() that fails");
    EXPECT_TRUE(config.save());
    expectOnce("save(), which backs up");
    std::filesystem::remove(path);
    EXPECT_TRUE(config.save());
    expectOnce("save() of a deleted file");
    EXPECT_TRUE(config.copytobackup());
    expectOnce("copytobackup()");
    EXPECT_TRUE(config.copyfrombackup());
    expectOnce("copyfrombackup()");
    EXPECT_THROW(qor::kevra::QvConfig<CountingMutex>("none"), std::length_error);
    expectOnce("the constructor that throws");
}

}  // namespace
}  // namespace qv::tests
