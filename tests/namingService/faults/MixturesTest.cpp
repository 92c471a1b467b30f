// SPDX-License-Identifier: Apache-2.0

// A save that is cut off can leave a mixture: a file that begins as the new one and ends as the old
// one. The backup holds the old file. A start restores the old file unless the mixture is itself a
// good document. Such a mixture may list other services than either file. The test counts these.

#include <gtest/gtest.h>

#include <algorithm>
#include <ostream>
#include <string>
#include <vector>

#include "ConfigurationFiles.h"

namespace qv::tests {
namespace {

struct Counts {
    // The number of different mixtures.
    int mixtures;
    // How many mixtures are good documents.
    int good;
    // How many good mixtures list other services than the old and the new file.
    int third;
};

bool operator==(const Counts& one, const Counts& other) {
    return one.mixtures == other.mixtures && one.good == other.good && one.third == other.third;
}

std::ostream& operator<<(std::ostream& out, const Counts& counts) {
    return out << counts.mixtures << " mixtures, " << counts.good << " good, " << counts.third
               << " third";
}

struct Change {
    const char* name;
    Counts expected;
    Services saved;
    std::vector<std::int32_t> removed;
    Services registered;
    // The keys of the root beside the services.
    const char* otherKeys = "";
};

std::ostream& operator<<(std::ostream& out, const Change& change) {
    return out << change.name;
}

Services many(int count) {
    Services services;
    for (int id = 1; id <= count; ++id) {
        services.emplace_back(id, "unix:/run/lorx/service-" + std::to_string(id) + ".sock");
    }
    return services;
}

class Mixtures : public testing::TestWithParam<Change> {
  protected:
    // Lets the plug-in save the old and the new file.
    Mixtures() {
        const Change& change = GetParam();
        files_.put("<plist><dict>" + std::string(change.otherKeys) + "</dict></plist>",
                   std::nullopt);
        plugin_.initialize();
        plugin_.registerServices(change.saved);
        old_ = *files_.main();
        plugin_.unregisterServices(change.removed);
        plugin_.registerServices(change.registered);
        new_ = *files_.main();
        newServices_ = plugin_.getServices();
        plugin_.finalize();
    }

    Counts tryAll() const {
        Counts counts{};
        std::string previous = old_;
        for (std::size_t length = 0; length <= new_.size(); ++length) {
            const std::string mixture =
                new_.substr(0, length) + old_.substr(std::min(length, old_.size()));
            if (mixture != previous && mixture != new_) {
                tryOne(mixture, counts);
            }
            previous = mixture;
        }
        return counts;
    }

    const LoadedPlugin plugin_;
    const ConfigurationFiles files_;
    std::string old_;
    std::string new_;
    Services newServices_;

  private:
    void tryOne(const std::string& mixture, Counts& counts) const {
        ++counts.mixtures;
        files_.put(mixture, old_);
        const Services services = files_.start(plugin_);
        if (files_.main() != mixture) {
            // The mixture is damaged, so the start restored the old file.
            EXPECT_EQ(files_.main(), old_);
            EXPECT_EQ(services, GetParam().saved);
            return;
        }
        ++counts.good;
        if (services != GetParam().saved && services != newServices_) {
            ++counts.third;
        }
    }
};

TEST_P(Mixtures, AreRestoredUnlessTheyAreGoodDocuments) {
    EXPECT_EQ(tryAll(), GetParam().expected);
}

const Services kThree{{1, "unix:/run/lorx/supervisor.sock"},
                      {2, "unix:/run/lorx/scanner.sock"},
                      {3, "unix:/run/lorx/updater.sock"}};

INSTANTIATE_TEST_SUITE_P(
    Each, Mixtures,
    testing::Values(
        Change{"FirstService", {405, 1, 0}, {}, {}, {{1, "unix:/run/lorx/supervisor.sock"}}},
        Change{
            "ServiceAddedBehind", {169, 1, 0}, kThree, {}, {{4, "unix:/run/lorx/reporter.sock"}}},
        Change{"ServiceAddedInFront",
               {484, 117, 116},
               kThree,
               {},
               {{-1, "unix:/run/lorx/reporter.sock"}}},
        Change{"AddressOfEqualLength", {4, 4, 4}, kThree, {}, {{2, "unix:/run/lorx/checker.sock"}}},
        Change{"AddressOfEqualLengthAllOther",
               {26, 26, 26},
               kThree,
               {},
               {{2, "xpc_com.vornak.lorx.scanner"}}},
        Change{"AddressLonger",
               {236, 23, 22},
               kThree,
               {},
               {{2, "unix:/run/lorx/scanner-of-files.sock"}}},
        Change{
            "AddressLongerByOne", {214, 66, 41}, kThree, {}, {{2, "unix:/run/lorx/scanners.sock"}}},
        Change{"AddressShorter", {235, 68, 47}, kThree, {}, {{2, "unix:/run/lorx/scan.sock"}}},
        Change{
            "AddressShorterByOne", {214, 73, 47}, kThree, {}, {{2, "unix:/run/lorx/scanne.sock"}}},
        Change{"AllAddressesLonger",
               {368, 88, 87},
               kThree,
               {},
               {{1, "unix:/run/lorx/supervisor-2.sock"},
                {2, "unix:/run/lorx/scanner-2.sock"},
                {3, "unix:/run/lorx/updater-2.sock"}}},
        Change{"ServiceRemovedAndAddressChanged",
               {242, 74, 72},
               kThree,
               {1},
               {{3, "unix:/run/lorx/checker.sock"}}},
        Change{"ServiceReplacedByAnother",
               {109, 33, 24},
               kThree,
               {2},
               {{4, "unix:/run/lorx/reporter.sock"}}},
        Change{"IdsOfMoreDigits",
               {371, 4, 3},
               {{8, "a"}, {9, "b"}, {99, "c"}},
               {},
               {{10, "b"}, {100, "c"}, {1000, "d"}}},
        Change{"IdsReplacedByOnesOfMoreDigits",
               {152, 29, 23},
               {{8, "a"}, {9, "b"}, {99, "c"}},
               {9, 99},
               {{10, "b"}, {100, "c"}}},
        Change{"BesideOtherKeys",
               {313, 25, 22},
               kThree,
               {},
               {{2, "unix:/run/lorx/scanner-of-files.sock"}},
               "<key>DebugLevel</key><integer>7</integer><key>Zone</key><string>inner</string>"},
        Change{
            "ManyOneAdded", {174, 1, 0}, many(200), {}, {{100000, "unix:/run/lorx/reporter.sock"}}},
        Change{"ManyLastAddressLonger",
               {113, 26, 17},
               many(200),
               {},
               {{200, "unix:/run/lorx/the-last.sock"}}},
        Change{"ManyAddressLongerInTheMiddle",
               {1502, 318, 275},
               many(200),
               {},
               {{190, "unix:/run/lorx/service-190-anew.sock"}}},
        Change{"ManyAddressOfEqualLength",
               {6, 6, 6},
               many(200),
               {},
               {{7, "unix:/run/lorx/watcher-7.sock"}}}),
    [](const auto& info) { return std::string(info.param.name); });

}  // namespace
}  // namespace qv::tests
