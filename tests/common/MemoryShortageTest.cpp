// SPDX-License-Identifier: Apache-2.0

// Makes memory run out in the converters and in QvConfig::set(), where the faults of the plug-in's
// scenarios (tests/namingService/faults) do not reach: texts that are not ASCII, and a dictionary
// that must grow.

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "ObjectMemory.h"
#include "QvConfig.h"
#include "platform/CoreFoundation/Objects.h"
#include "support/ConfigurationDocuments.h"
#include "support/Files.h"
#include "support/MemoryShortage.h"
#include "support/TemporaryDirectory.h"

namespace qv::tests {
namespace {

using qor::kevra::convert;
using qor::kevra::ServiceInfo;
using qor::kevra::ServiceInfoArray;

using Config = qor::kevra::QvConfig<qor::kevra::NullMutex>;

// Makes the layer keep no memory for new objects. Kept memory neither fails nor counts as freed.
class NoMemoryIsKept : public testing::Environment {
  public:
    void SetUp() override { cf::keepFreedObjects(false); }
};

const testing::Environment* const noMemoryIsKept =
    testing::AddGlobalTestEnvironment(new NoMemoryIsKept);

// Each address is too long to be stored inside a string object.
const std::string kAddresses[] = {std::string(100, 'a'), "caf\u00e9 \u4e2d" + std::string(90, 'b'),
                                  std::string(80, 'c')};

ServiceInfoArray makeServices() {
    ServiceInfoArray message;
    int id = INT_MIN;
    for (const std::string& address : kAddresses) {
        ServiceInfo* const service = message.add_services();
        service->set_id(id++);
        service->set_address(address);
    }
    return message;
}

bool isSame(const ServiceInfo& one, const ServiceInfo& other) {
    return one.SerializeAsString() == other.SerializeAsString();
}

TEST(PlistConvertMemoryShortage, TextIsWholeOrLeftAlone) {
    for (const std::string& expected : kAddresses) {
        const auto string = makeString(expected);
        const int count = sweepShortages([&](Shortage& shortage) {
            std::string text;
            bool converted = false;
            const bool ended = shortage.during([&] { converted = convert(string.get(), text); });
            EXPECT_TRUE(converted || shortage.happened());
            EXPECT_EQ(text, ended && converted ? expected : "");
        });
        EXPECT_GE(count, 1);
    }
}

// A field may be missing afterwards, but it has no other value.
TEST(PlistConvertMemoryShortage, MessageHasTheStoredFieldsOrLacksThem) {
    const ServiceInfoArray services = makeServices();
    for (const ServiceInfo& service : services.services()) {
        const auto dictionary = makeDictionary();
        ASSERT_TRUE(convert(service, dictionary.get()));
        const int count = sweepShortages([&](Shortage& shortage) {
            ServiceInfo read;
            shortage.during([&] { EXPECT_TRUE(convert(dictionary.get(), read)); });
            EXPECT_TRUE(!read.has_id() || read.id() == service.id());
            EXPECT_TRUE(!read.has_address() || read.address() == service.address() ||
                        (shortage.happened() && read.address().empty()));
            EXPECT_TRUE(shortage.happened() || isSame(read, service));
        });
        EXPECT_GE(count, 3);
    }
}

// Returns a document with `count` keys that the directory does not use.
std::string otherKeys(int count) {
    std::string content = "<plist><dict>";
    for (int key = 0; key < count; ++key) {
        content += "<key>" + std::to_string(key) + "</key><true/>";
    }
    return content + "</dict></plist>";
}

std::string storedIn(Config& config) {
    ServiceInfoArray message;
    return config.get(message, "Address") ? message.SerializeAsString() : "nothing";
}

TEST(ConfigMemoryShortage, SetReplacesEverythingOrNothing) {
    const TemporaryDirectory directory;
    const std::string path = directory.path(kConfigurationFile);
    const ServiceInfoArray services = makeServices();
    // With some numbers of keys, the dictionary must grow for one more.
    for (int others = -1; others <= 40; ++others) {
        SCOPED_TRACE(std::to_string(others) + " other keys");
        writeFile(path, others < 0 ? documentOf({{1, "original"}}) : otherKeys(others));
        const int count = sweepShortages([&](Shortage& shortage) {
            Config config(path.c_str());
            const std::string former = storedIn(config);
            bool isSet = false;
            const bool ended = shortage.during([&] { isSet = config.set(services, "Address"); });
            EXPECT_TRUE(!ended || isSet || shortage.happened());
            EXPECT_EQ(storedIn(config), ended && isSet ? services.SerializeAsString() : former);
        });
        EXPECT_GE(count, 15);
    }
}

}  // namespace
}  // namespace qv::tests
