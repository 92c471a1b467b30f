// SPDX-License-Identifier: Apache-2.0

#include "server/Door.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <gtest/gtest.h>

#include <climits>
#include <cstdint>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "namingService.pb.h"
#include "qvhost/server/Snapshots.h"
#include "support/LoadedPlugin.h"

namespace qv::host {
namespace {

using tests::encode;
using tests::modelOf;
using tests::Services;
using tests::snapshotOf;

Services servicesOf(const Change& change) {
    Services services;
    for (const Change::Edit& edit : change.edits) {
        services.emplace_back(edit.id, edit.address);
    }
    return services;
}

Change registration(const Services& services) {
    Change change;
    for (const auto& [id, address] : services) {
        change.edits.push_back({id, address});
    }
    return change;
}

Change withdrawal(const std::vector<int32_t>& ids) {
    Change change;
    change.isRegistration = false;
    for (const int32_t id : ids) {
        change.edits.push_back({id, ""});
    }
    return change;
}

// Returns the text with which a registration of the service is refused, or nothing if it is not.
std::string refusalOf(int32_t id, const std::string& address) {
    Change change = withdrawal({99});
    const Outcome outcome = readRegistration(encode({{1, "good"}, {id, address}}), change);
    if (outcome.code == QV_OK) {
        EXPECT_EQ(servicesOf(change), (Services{{1, "good"}, {id, address}}));
        EXPECT_TRUE(change.isRegistration);
        return outcome.bytes;
    }
    EXPECT_EQ(outcome.code, static_cast<uint32_t>(QV_HOST_ERROR_REFUSED));
    EXPECT_FALSE(outcome.bytes.empty());
    EXPECT_FALSE(change.isRegistration);
    EXPECT_EQ(servicesOf(change), (Services{{99, ""}}));
    return outcome.bytes;
}

TEST(Registration, IsReadInItsOrder) {
    const Services services = {{7, "/run/a"}, {INT_MIN, "\xC3\xA9"}, {7, "/run/b"}, {INT_MAX, "x"}};
    Change change;
    const Outcome outcome = readRegistration(encode(services), change);
    EXPECT_EQ(outcome.code, static_cast<uint32_t>(QV_OK));
    EXPECT_EQ(outcome.bytes, "");
    EXPECT_EQ(servicesOf(change), services);
}

TEST(Registration, WithoutServicesIsTaken) {
    Change change = registration({{1, "a"}});
    EXPECT_EQ(readRegistration({}, change).code, static_cast<uint32_t>(QV_OK));
    EXPECT_TRUE(change.edits.empty());
    EXPECT_TRUE(changesNothing(change, Snapshot()));
}

TEST(Registration, AbsentIdentifierIsZero) {
    qor::kevra::ServiceInfoArray message;
    message.add_services()->set_address("/run/a");
    Change change;
    EXPECT_EQ(readRegistration(message.SerializeAsString(), change).code,
              static_cast<uint32_t>(QV_OK));
    EXPECT_EQ(servicesOf(change), (Services{{0, "/run/a"}}));
}

TEST(Registration, UnknownFieldsAreIgnored) {
    Change change;
    const std::string input = "\x10\x05" + encode({{7, "a"}}) + "\x1a\x01x";
    EXPECT_EQ(readRegistration(input, change).code, static_cast<uint32_t>(QV_OK));
    EXPECT_EQ(servicesOf(change), (Services{{7, "a"}}));
}

TEST(Registration, EmptyAddressIsRefused) {
    EXPECT_EQ(refusalOf(7, ""), "the address of service 7 is empty");
    EXPECT_EQ(refusalOf(-7, ""), "the address of service -7 is empty");
    qor::kevra::ServiceInfoArray message;
    message.add_services()->set_id(3);
    Change change;
    EXPECT_EQ(readRegistration(message.SerializeAsString(), change).bytes,
              "the address of service 3 is empty");
}

TEST(Registration, LongAddressIsRefused) {
    EXPECT_EQ(refusalOf(7, std::string(4096, 'x')), "");
    EXPECT_EQ(refusalOf(7, std::string(4097, 'x')),
              "the address of service 7 is longer than 4 KiB");
}

TEST(Registration, AddressThatIsNotUtf8IsRefused) {
    EXPECT_EQ(refusalOf(7, "\xff"), "the address of service 7 is not UTF-8");
    EXPECT_EQ(refusalOf(7, "/run/\xED\xA0\x80"), "the address of service 7 is not UTF-8");
    EXPECT_EQ(refusalOf(7, "/run/\xF4\x8F\xBF\xBF"), "");
}

TEST(Registration, AddressWithZeroByteIsRefused) {
    EXPECT_EQ(refusalOf(7, std::string("a\0b", 3)), "the address of service 7 holds a zero byte");
}

TEST(Registration, ByteOrderMarkInFrontIsRefused) {
    EXPECT_EQ(refusalOf(7, "\xEF\xBB\xBFx"),
              "the address of service 7 begins with a byte order mark (U+FEFF)");
    EXPECT_EQ(refusalOf(7, "x\xEF\xBB\xBF"), "");
    EXPECT_EQ(refusalOf(7, "\xEF\xBB\xBE"), "");
}

TEST(Withdrawal, IgnoresAddresses) {
    Change change;
    EXPECT_EQ(readWithdrawal(encode({{7, "\xff"}, {8, ""}}), change).code,
              static_cast<uint32_t>(QV_OK));
    EXPECT_FALSE(change.isRegistration);
    EXPECT_EQ(servicesOf(change), (Services{{7, ""}, {8, ""}}));
}

TEST(Request, InputThatDoesNotParseToItsEndIsRefusedWhole) {
    const std::string good = encode({{7, "/run/a"}, {8, "/run/b"}});
    for (std::size_t length = 1; length < good.size(); ++length) {
        // Between the two services the input ends properly.
        const bool isWhole = length == encode({{7, "/run/a"}}).size();
        for (const auto read : {readRegistration, readWithdrawal}) {
            Change change = registration({{99, "x"}});
            const Outcome outcome = read(std::string_view(good).substr(0, length), change);
            EXPECT_EQ(outcome.code, static_cast<uint32_t>(isWhole ? QV_OK : QV_ERROR_ARGUMENT));
            EXPECT_EQ(outcome.bytes, "");
            EXPECT_EQ(change.edits.front().id, isWhole ? 7 : 99);
        }
    }
    Change change;
    for (const std::string& end : {std::string("\x0c"), std::string("\x00", 1)}) {
        EXPECT_EQ(readWithdrawal(good + end, change).code,
                  static_cast<uint32_t>(QV_ERROR_ARGUMENT));
    }
}

TEST(Request, MalformedInputIsNoRefusalOfAnAddress) {
    Change change;
    EXPECT_EQ(readRegistration(encode({{7, ""}}) + "\x0a", change).code,
              static_cast<uint32_t>(QV_ERROR_ARGUMENT));
}

TEST(Request, InputOverTheLimitOfAMessageDoesNotParse) {
    // One unknown field fills the input.
    std::string input = {'\x12', '\xFB', '\xFF', '\xFF', '\x1F'};
    input.resize(std::size_t{64} << 20);
    Change change;
    EXPECT_EQ(readWithdrawal(input, change).code, static_cast<uint32_t>(QV_OK));
    input += std::string("\x10\x00", 2);
    EXPECT_EQ(readWithdrawal(input, change).code, static_cast<uint32_t>(QV_ERROR_ARGUMENT));
}

TEST(Request, GroupsNestAsDeepAsInAMessage) {
    int deepest = 0;
    for (int depth = 1; depth < 120; ++depth) {
        const auto count = static_cast<std::size_t>(depth);
        const std::string input = std::string(count, '\x13') + std::string(count, '\x14');
        qor::kevra::ServiceInfoArray message;
        const bool isGood = message.ParseFromString(input);
        Change change;
        EXPECT_EQ(readWithdrawal(input, change).code,
                  static_cast<uint32_t>(isGood ? QV_OK : QV_ERROR_ARGUMENT));
        deepest = isGood ? depth : deepest;
    }
    EXPECT_EQ(deepest, 64);
}

TEST(Request, NamesOnlySoManyServices) {
    std::string input;
    for (std::size_t i = 0; i < kMostServices; ++i) {
        input += std::string("\x0a\x00", 2);
    }
    Change change;
    EXPECT_EQ(readWithdrawal(input, change).code, static_cast<uint32_t>(QV_OK));
    EXPECT_EQ(change.edits.size(), kMostServices);
    input += std::string("\x0a\x00", 2);
    const Outcome outcome = readWithdrawal(input, change);
    EXPECT_EQ(outcome.code, static_cast<uint32_t>(QV_HOST_ERROR_REFUSED));
    EXPECT_EQ(outcome.bytes, "the request names more than 100000 services");
}

// A request is read exactly if the message class parses it, and means what that class reads.
TEST(Request, BrokenInputsAreReadLikeTheMessage) {
    std::mt19937 random(3);
    const auto below = [&](std::size_t bound) {
        return std::uniform_int_distribution<std::size_t>(0, bound - 1)(random);
    };
    int parsed = 0;
    int registered = 0;
    constexpr int kRounds = 50'000;
    for (int round = 0; round < kRounds; ++round) {
        std::string input = encode({{-1, "ab"}, {7, "c"}, {300, "d"}});
        // An unknown group with a number in it.
        input.insert(below(2) == 0 ? 0 : input.size(), "\x13\x10\x05\x14");
        for (std::size_t edits = 1 + below(3); edits > 0; --edits) {
            const std::size_t position = below(input.size());
            switch (below(3)) {
                case 0:
                    input[position] = static_cast<char>(below(256));
                    break;
                case 1:
                    input.erase(position, 1);
                    break;
                default:
                    input.insert(position, 1, static_cast<char>(below(32)));
            }
        }
        qor::kevra::ServiceInfoArray message;
        const bool isGood = message.ParseFromString(input);
        Change change;
        ASSERT_EQ(readWithdrawal(input, change).code,
                  static_cast<uint32_t>(isGood ? QV_OK : QV_ERROR_ARGUMENT));
        if (isGood) {
            ++parsed;
            ASSERT_EQ(change.edits.size(), static_cast<std::size_t>(message.services_size()));
            for (int i = 0; i < message.services_size(); ++i) {
                ASSERT_EQ(change.edits[static_cast<std::size_t>(i)].id, message.services(i).id());
            }
            if (readRegistration(input, change).code == QV_OK) {
                ASSERT_EQ(servicesOf(change), tests::decode(input));
                ++registered;
            }
        }
    }
    EXPECT_GT(parsed, kRounds / 20);
    EXPECT_GT(registered, kRounds / 40);
    EXPECT_LT(parsed, kRounds - kRounds / 20);
}

TEST(ChangesNothing, ComparesTheLastEditOfEachService) {
    const SnapshotPointer snapshot = snapshotOf({{1, "a"}, {2, "b"}}, 1);
    EXPECT_TRUE(changesNothing(registration({{2, "b"}, {1, "a"}}), *snapshot));
    EXPECT_TRUE(changesNothing(registration({{1, "other"}, {1, "a"}}), *snapshot));
    EXPECT_TRUE(changesNothing(registration({}), *snapshot));
    EXPECT_FALSE(changesNothing(registration({{1, "a"}, {1, "other"}}), *snapshot));
    EXPECT_FALSE(changesNothing(registration({{1, "a"}, {3, "c"}}), *snapshot));
    EXPECT_TRUE(changesNothing(withdrawal({0, 3}), *snapshot));
    EXPECT_FALSE(changesNothing(withdrawal({3, 2}), *snapshot));
}

class Directory {
  public:
    explicit Directory(const tests::Model& model) : next_(snapshotOf(model, 1)) {}

    // Returns the text with which the change is refused, or nothing if it is made. Checks that a
    // refused change is not made in part.
    std::string refusalOf(const Change& change) {
        const Edits before = next_.edits();
        const Outcome outcome = apply(change, next_);
        if (outcome.code == QV_OK) {
            return outcome.bytes;
        }
        EXPECT_EQ(outcome.code, static_cast<uint32_t>(QV_HOST_ERROR_REFUSED));
        EXPECT_EQ(next_.edits(), before);
        EXPECT_FALSE(outcome.bytes.empty());
        return outcome.bytes;
    }

    tests::Model services() const { return modelOf(*next_.finish(2)); }

  private:
    NextSnapshot next_;
};

TEST(Apply, LaterDuplicateWins) {
    Directory directory({{1, "a"}, {2, "b"}});
    EXPECT_EQ(directory.refusalOf(registration({{3, "first"}, {1, "x"}, {3, "last"}})), "");
    EXPECT_EQ(directory.services(), (tests::Model{{1, "x"}, {2, "b"}, {3, "last"}}));
    EXPECT_EQ(directory.refusalOf(withdrawal({1, 3, 1, 9})), "");
    EXPECT_EQ(directory.services(), (tests::Model{{2, "b"}}));
}

tests::Model manyServices(int count, const std::string& address) {
    tests::Model model;
    for (int id = 0; id < count; ++id) {
        model.emplace_hint(model.end(), id, address);
    }
    return model;
}

TEST(Apply, DirectoryHoldsOnlySoManyServices) {
    Directory directory(manyServices(99'999, "a"));
    EXPECT_EQ(directory.refusalOf(registration({{5, "new"}, {-1, "b"}, {-2, "c"}})),
              "the directory would have 100001 services, and it has room for 100000");
    // A service that the request names twice counts once.
    EXPECT_EQ(directory.refusalOf(registration({{-1, "b"}, {-1, "c"}})), "");
    EXPECT_NE(directory.refusalOf(registration({{-2, "b"}})), "");
    EXPECT_EQ(directory.refusalOf(registration({{5, "longer"}})), "");
    EXPECT_EQ(directory.refusalOf(withdrawal({5})), "");
    EXPECT_EQ(directory.refusalOf(registration({{-2, "b"}})), "");
}

TEST(Apply, DirectoryOverItsServicesMayOnlyShrink) {
    Directory directory(manyServices(100'010, "a"));
    EXPECT_EQ(directory.refusalOf(registration({{-1, "b"}})),
              "the directory would have 100011 services, and it has room for 100000");
    EXPECT_EQ(directory.refusalOf(registration({{1, "longer"}})), "");
    EXPECT_EQ(directory.refusalOf(withdrawal({1})), "");
    EXPECT_NE(directory.refusalOf(registration({{1, "a"}})), "");
    EXPECT_EQ(directory.services().size(), 100'009U);
}

TEST(Apply, DirectoryHoldsOnlySoManyBytes) {
    const std::string longest(kLongestAddress, 'x');
    Directory directory(manyServices(4096, longest));
    EXPECT_EQ(directory.refusalOf(registration({{-1, "b"}})),
              "the directory's addresses would have 16777217 bytes, and it has room for 16777216");
    // What one service gives up, another one may take.
    EXPECT_EQ(directory.refusalOf(registration({{-1, "bb"}, {7, longest.substr(2)}})), "");
    EXPECT_NE(directory.refusalOf(registration({{-1, "bbb"}})), "");
    EXPECT_EQ(directory.refusalOf(registration({{-1, "b"}})), "");
    EXPECT_EQ(directory.refusalOf(registration({{-1, "bb"}})), "");
    EXPECT_EQ(directory.refusalOf(withdrawal({8})), "");
    EXPECT_EQ(directory.refusalOf(registration({{9000, longest}})), "");
}

TEST(Apply, DirectoryOverItsBytesMayOnlyShrink) {
    tests::Model model = manyServices(4096, std::string(kLongestAddress, 'x'));
    model[-1] = std::string(100, 'y');
    Directory directory(model);
    EXPECT_NE(directory.refusalOf(registration({{-1, std::string(101, 'y')}})), "");
    EXPECT_EQ(directory.refusalOf(registration({{-1, std::string(100, 'z')}})), "");
    EXPECT_EQ(directory.refusalOf(registration({{-1, std::string(99, 'y')}})), "");
    EXPECT_NE(directory.refusalOf(registration({{-2, "a"}})), "");
    EXPECT_EQ(directory.refusalOf(registration({{-2, "a"}, {5, "short"}})), "");
}

}  // namespace
}  // namespace qv::host
