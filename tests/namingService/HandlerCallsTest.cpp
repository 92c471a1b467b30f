// SPDX-License-Identifier: Apache-2.0

// Checks the calls that the plug-in makes to the log and utility libraries: their order, levels and
// texts. Stand-ins in place of the libraries record the calls.

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <new>
#include <stdexcept>
#include <thread>

#include "support/ConfigurationDocuments.h"
#include "support/FailingCalls.h"
#include "support/Files.h"
#include "support/LoadedPlugin.h"
#include "support/RecordingLibraries.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

constexpr char kInitializeEnter[] = R"(LorxWriteDbgLog(6, "%s enter", "QvPluginInitialize enter"))";
constexpr char kFinalizeEnter[] = R"(LorxWriteDbgLog(6, "%s enter", "QvPluginFinalize enter"))";
constexpr char kOpenLog[] = R"(QvInitDebugByConfig("namingService.conf.plist", "namingService", )"
                            R"("/var/log/Vornak/LorxCore/namingService.log"))";
constexpr char kAskPath[] = R"(QvGetFilePath(2048, "namingService.conf.plist"))";
constexpr char kRegisterIn[] = R"(LorxWriteDbgLog(7, "%s in", "registerServices in"))";
constexpr char kUnregisterIn[] = R"(LorxWriteDbgLog(7, "%s in", "unregisterServices in"))";
constexpr char kGetIn[] = R"(LorxWriteDbgLog(7, "%s in", "getServices in"))";
constexpr char kSave[] =
    R"(LorxWriteDbgLog(7, "%s Save address", "NamingService::registerServices Save address"))";

std::string registered(int id, const std::string& address) {
    return R"(LorxWriteDbgLog(7, "%s id: %d, address: %s", "NamingService::registerServices id: )" +
           std::to_string(id) + ", address: " + address + "\")";
}

// Initialises a plug-in and forgets the calls that it has made so far.
class Calls : public testing::Test {
  protected:
    void SetUp() override { startRecording(); }

    InitializedPlugin plugin_;
};

TEST(Lifecycle, LogIsOpenedFirstAndReleasedLast) {
    const LoadedPlugin plugin;
    for (int life = 0; life < 2; ++life) {
        startRecording();
        plugin.initialize();
        EXPECT_THAT(recordedCalls(), ElementsAre(kOpenLog, kInitializeEnter, kAskPath));
        startRecording();
        plugin.finalize();
        EXPECT_THAT(recordedCalls(), ElementsAre(kFinalizeEnter, "LorxReleaseDbgLog()"));
    }
}

TEST(Lifecycle, SecondInitializeOnlyLogsItsEntry) {
    const InitializedPlugin plugin;
    startRecording();
    plugin.initialize();
    EXPECT_THAT(recordedCalls(), ElementsAre(kInitializeEnter));
}

TEST(Lifecycle, FinalizeWithoutInitializeReleasesTheNullHandle) {
    const LoadedPlugin plugin;
    startRecording(-1);
    plugin.finalize();
    EXPECT_THAT(allRecordedCalls(),
                ElementsAre("LorxIsEnableLog(null, 6)", "LorxReleaseDbgLog(null)"));
}

TEST(Lifecycle, LogThatCannotBeOpenedIsTriedAgainAndEverythingWorks) {
    setLogCanBeOpened(false);
    const LoadedPlugin plugin;
    startRecording();
    plugin.initialize();
    plugin.initialize();
    setLogCanBeOpened(true);
    EXPECT_THAT(
        recordedCalls(),
        ElementsAre(kOpenLog, R"(LorxWriteDbgLog(null, 6, "%s enter", "QvPluginInitialize enter"))",
                    kAskPath, kOpenLog,
                    R"(LorxWriteDbgLog(null, 6, "%s enter", "QvPluginInitialize enter"))"));
    EXPECT_EQ(plugin.registerServices({{1, "a"}}), 0);
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a")));
    plugin.finalize();
}

TEST(Lifecycle, PathWithoutADirectoryReachesTheHostAndInitializeMayBeCalledAgain) {
    const LoadedPlugin plugin;
    setFilePath("no-directory");
    EXPECT_THROW(plugin.initialize(), std::length_error);
    EXPECT_THROW(plugin.initialize(), std::length_error);
    setFilePath("");
    startRecording();
    EXPECT_EQ(plugin.initialize(), 0);
    EXPECT_THAT(recordedCalls(), ElementsAre(kInitializeEnter, kAskPath));
    EXPECT_EQ(plugin.registerServices({{1, "a"}}), 0);
    plugin.finalize();
    setFilePath("no-directory");
    EXPECT_THROW(plugin.initialize(), std::length_error);
    plugin.finalize();
    setFilePath("");
}

TEST(Lifecycle, WithoutAPathServicesLiveInMemory) {
    const LoadedPlugin plugin;
    setFilePath(nullptr);
    EXPECT_EQ(plugin.initialize(), 0);
    setFilePath("");
    EXPECT_EQ(plugin.registerServices({{1, "a"}}), 0);
    EXPECT_THAT(plugin.getServices(), ElementsAre(Service(1, "a")));
    plugin.finalize();
}

TEST_F(Calls, TableIdentifierAndFreeLogNothing) {
    plugin_.getId();
    plugin_.handlers();
    plugin_.free(nullptr);
    plugin_.setNotificationCallback(nullptr);
    EXPECT_EQ(plugin_.getHandlers(nullptr, nullptr, nullptr), 20002);
    EXPECT_THAT(allRecordedCalls(), IsEmpty());
}

TEST_F(Calls, RegistrationLogsEveryEntryAndSavesOnce) {
    plugin_.registerServices({{5, "a"}, {-6, "b"}, {5, "c"}});
    plugin_.execute(0x0200, std::string("\x0a\x00", 2));
    plugin_.execute(0x0200, "");
    EXPECT_THAT(recordedCalls(), ElementsAre(kRegisterIn, registered(5, "a"), registered(-6, "b"),
                                             registered(5, "c"), kSave, kRegisterIn,
                                             registered(0, ""), kSave, kRegisterIn));
}

TEST_F(Calls, UnchangedRegistrationLogsTheEntryAndDoesNotSave) {
    plugin_.registerServices({{5, "a"}});
    startRecording();
    plugin_.registerServices({{5, "a"}});
    EXPECT_THAT(recordedCalls(), ElementsAre(kRegisterIn, registered(5, "a")));
}

TEST_F(Calls, OtherServiceCommandsLogTheirEntryOnly) {
    plugin_.unregisterServices({5, 6});
    plugin_.getServices();
    plugin_.handler(0x0200)(0, nullptr, 0, nullptr, nullptr);
    plugin_.handler(0x0201)(0, "", -1, nullptr, nullptr);
    plugin_.handler(0x0202)(0, nullptr, 0, nullptr, nullptr);
    EXPECT_THAT(recordedCalls(),
                ElementsAre(kUnregisterIn, kGetIn, kRegisterIn, kUnregisterIn, kGetIn));
}

TEST_F(Calls, NothingIsFormattedBelowTheThreshold) {
    startRecording(6);
    plugin_.registerServices({{5, "a"}});
    plugin_.getServices();
    EXPECT_THAT(allRecordedCalls(), ElementsAre("LorxIsEnableLog(7)", "LorxIsEnableLog(7)",
                                                "LorxIsEnableLog(7)", "LorxIsEnableLog(7)"));
}

TEST_F(Calls, ValidLevelSetsTheLogThenTheUtilityLibrary) {
    EXPECT_EQ(plugin_.execute(0x0102, "\x08\x01\x10\x07").result, 0);
    EXPECT_THAT(allRecordedCalls(), ElementsAre("LorxSetDbgLogLevel(7)", "QvSetUtilDebugLevel(7)"));
}

TEST_F(Calls, AbsentLevelIsZero) {
    EXPECT_EQ(plugin_.execute(0x0102, "\x08\x01").result, 0);
    EXPECT_THAT(allRecordedCalls(), ElementsAre("LorxSetDbgLogLevel(0)", "QvSetUtilDebugLevel(0)"));
}

TEST_F(Calls, LevelCountsWithoutTheRequiredField) {
    EXPECT_EQ(plugin_.execute(0x0102, "\x10\x05").result, 0);
    EXPECT_THAT(allRecordedCalls(), ElementsAre("LorxSetDbgLogLevel(5)", "QvSetUtilDebugLevel(5)"));
}

TEST_F(Calls, NegativeLengthDecodesNothingAndSetsLevelZero) {
    // The input pointer is invalid, so a read through it would crash.
    EXPECT_EQ(plugin_.handler(0x0102)(0x0102, reinterpret_cast<void*>(1), -1, nullptr, nullptr), 0);
    EXPECT_EQ(
        plugin_.handler(0x0102)(0x0102, reinterpret_cast<void*>(1), INT32_MIN, nullptr, nullptr),
        0);
    EXPECT_THAT(allRecordedCalls(), ElementsAre("LorxSetDbgLogLevel(0)", "QvSetUtilDebugLevel(0)",
                                                "LorxSetDbgLogLevel(0)", "QvSetUtilDebugLevel(0)"));
}

TEST_F(Calls, InvalidLevelIsLoggedAsASignedNumber) {
    plugin_.execute(0x0102, "\x08\x01\x10\x08");
    plugin_.execute(0x0102, "\x10\xff\xff\xff\xff\xff\xff\xff\xff\xff\x01");
    EXPECT_THAT(
        recordedCalls(),
        ElementsAre(
            R"(LorxWriteDbgLog(3, "%s invalid level %d", "SetDebugLevel invalid level 8"))",
            R"(LorxWriteDbgLog(3, "%s invalid level %d", "SetDebugLevel invalid level -1"))"));
}

TEST_F(Calls, LevelRequestWithoutInputLogsItsArguments) {
    EXPECT_EQ(plugin_.handler(0x0102)(258, nullptr, 7, nullptr, nullptr), 20002);
    EXPECT_EQ(plugin_.handler(0x0102)(-3, reinterpret_cast<void*>(0x1234), 0, nullptr, nullptr),
              20002);
    EXPECT_THAT(recordedCalls(),
                ElementsAre(R"(LorxWriteDbgLog(3, "%s cmd is %d, in is %p, inLen is %d", )"
                            R"("SetDebugLevel cmd is 258, in is (nil), inLen is 7"))",
                            R"(LorxWriteDbgLog(3, "%s cmd is %d, in is %p, inLen is %d", )"
                            R"("SetDebugLevel cmd is -3, in is 0x1234, inLen is 0"))"));
}

TEST_F(Calls, LockThatCannotBeTakenReachesTheHostAndChangesNothing) {
    plugin_.registerServices({{1, "a"}});
    const std::string request = encode({{1, "b"}, {2, "c"}});
    for (const std::uint32_t command : {0x0200, 0x0201, 0x0202}) {
        failMutexLock(1, EDEADLK);
        void* out = &plugin_;
        int outLength = 55;
        try {
            plugin_.handler(command)(0, request.data(), static_cast<int>(request.size()), &out,
                                     &outLength);
            ADD_FAILURE() << "nothing was thrown";
        } catch (const std::string& text) {
            EXPECT_EQ(text, "fail to get the lock");
        }
        EXPECT_EQ(out, &plugin_);
        EXPECT_EQ(outLength, 55);
    }
    EXPECT_THAT(plugin_.getServices(), ElementsAre(Service(1, "a")));
}

TEST(RegistryLock, CreationIsRetriedDuringAShortage) {
    const LoadedPlugin plugin;
    failMutexInit(3, EAGAIN);
    EXPECT_EQ(plugin.initialize(), 0);
    EXPECT_EQ(shortSleeps(), 3);
    EXPECT_EQ(plugin.registerServices({{1, "a"}}), 0);
    plugin.finalize();
}

TEST(RegistryLock, OtherFailureAtCreationReachesTheHostAndInitializeMayBeCalledAgain) {
    const LoadedPlugin plugin;
    failMutexInit(1, ENOMEM);
    try {
        plugin.initialize();
        ADD_FAILURE() << "nothing was thrown";
    } catch (const std::string& text) {
        EXPECT_EQ(text, "fail to pthread_mutex_init");
    }
    EXPECT_EQ(shortSleeps(), 0);
    startRecording();
    EXPECT_EQ(plugin.initialize(), 0);
    // The log was opened by the first call and stayed open.
    EXPECT_THAT(recordedCalls(), ElementsAre(kInitializeEnter));
    EXPECT_EQ(plugin.registerServices({{1, "a"}}), 0);
    plugin.finalize();
}

TEST_F(Calls, AnswerThatCannotBeSerialisedStaysWithTheHost) {
    plugin_.registerServices({{1, "a"}});
    startRecording();
    int length = 0;
    void* answer = nullptr;
    failNextSerialization();
    EXPECT_EQ(plugin_.handler(0x0202)(0, nullptr, 0, &answer, &length), 20001);
    EXPECT_NE(answer, nullptr);
    EXPECT_EQ(length, 7);
    plugin_.free(answer);
    EXPECT_THAT(recordedCalls(), ElementsAre(kGetIn, R"(LorxWriteDbgLog(4, "%s serialize error", )"
                                                     R"("getServices serialize error"))"));
}

#ifndef QV_SANITIZED
TEST_F(Calls, NoMemoryForTheAnswerLeavesItsLength) {
    const std::string address(54321, 'x');
    plugin_.registerServices({{1, address}});
    const std::size_t size = encode({{1, address}}).size();
    startRecording();
    int length = 0;
    void* answer = &length;
    failMallocOf(size);
    EXPECT_EQ(plugin_.handler(0x0202)(0, nullptr, 0, &answer, &length), 20006);
    EXPECT_EQ(answer, nullptr);
    EXPECT_EQ(length, static_cast<int>(size));
    EXPECT_THAT(recordedCalls(),
                ElementsAre(kGetIn, R"(LorxWriteDbgLog(4, "%s malloc error, no resource.", )"
                                    R"("getServices malloc error, no resource."))"));
    EXPECT_THAT(plugin_.getServices(), ElementsAre(Service(1, address)));
}

// The host's allocator may make a thread wait, for example while it gives memory back.
TEST_F(Calls, ListingStalledInTheAnswersAllocationDelaysNoOtherCommand) {
    // The recording libraries are not thread-safe, so the log is off.
    startRecording(-1);
    const std::string address(54321, 'x');
    plugin_.registerServices({{1, address}});
    const std::string listing = encode({{1, address}});
    Answer answer;
    std::thread lister([&] {
        stallMallocOf(listing.size());
        answer = plugin_.execute(0x0202, "");
    });
    awaitStalledMalloc();
    EXPECT_EQ(plugin_.unregisterServices({1}), 0);
    EXPECT_THAT(plugin_.getServices(), IsEmpty());
    EXPECT_EQ(plugin_.registerServices({{2, "b"}}), 0);
    EXPECT_THAT(plugin_.getServices(), ElementsAre(Service(2, "b")));
    resumeMalloc();
    lister.join();
    EXPECT_EQ(answer.result, 0);
    EXPECT_EQ(answer.bytes, listing);
}

TEST_F(Calls, ListingLeavesNothingBehind) {
    startRecording(-1);
    Services services;
    for (int id = 0; id < 1000; ++id) {
        services.emplace_back(id, "unix:/run/vornak/services/" + std::to_string(id));
    }
    plugin_.registerServices(services);
    const auto list = [this] {
        void* answer = nullptr;
        int length = 0;
        plugin_.handler(0x0202)(0, nullptr, 0, &answer, &length);
        plugin_.free(answer);
        startRecording(-1);
    };
    list();
    plugin_.unregisterServices({7});
    startRecording(-1);
    const long before = liveAllocations();
    list();
    EXPECT_EQ(liveAllocations(), before);
}

// Makes a registration store its service in memory and run out of memory before its save.
class UnsavedChange : public Calls {
  protected:
    void SetUp() override {
        Calls::SetUp();
        startRecording(-1);
        const std::string request = encode({{5, "a"}});
        const CommandHandler handler = plugin_.handler(0x0200);
        for (int allocations = 0; plugin_.getServices().empty(); ++allocations) {
            bool hasThrown = false;
            failMallocAfter(allocations);
            try {
                handler(0, request.data(), static_cast<int>(request.size()), nullptr, nullptr);
            } catch (const std::bad_alloc&) {
                hasThrown = true;
            }
            mallocFailed();
            ASSERT_TRUE(hasThrown);
        }
        startRecording();
    }
};

TEST_F(UnsavedChange, IsNotSavedByAnEmptyRegistration) {
    plugin_.execute(0x0200, "");
    EXPECT_THAT(recordedCalls(), ElementsAre(kRegisterIn));
}

TEST_F(UnsavedChange, IsSavedByTheRepeatedRegistration) {
    plugin_.execute(0x0200, "");
    plugin_.registerServices({{5, "a"}});
    EXPECT_THAT(recordedCalls(), ElementsAre(kRegisterIn, kRegisterIn, registered(5, "a"), kSave));
    startRecording();
    plugin_.registerServices({{5, "a"}});
    EXPECT_THAT(recordedCalls(), ElementsAre(kRegisterIn, registered(5, "a")));
}

TEST_F(UnsavedChange, IsForgottenByFinalize) {
    const TemporaryDirectory directory;
    const std::string file = directory.path("namingService.conf.plist");
    writeFile(file, documentOf({{6, "stored"}}));
    plugin_.finalize();
    setFilePath(file.c_str());
    plugin_.initialize();
    setFilePath("");
    startRecording();
    plugin_.registerServices({{6, "stored"}});
    EXPECT_THAT(recordedCalls(), ElementsAre(kRegisterIn, registered(6, "stored")));
}
#endif

}  // namespace
}  // namespace qv::tests
