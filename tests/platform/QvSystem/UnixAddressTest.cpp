// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/UnixAddress.h"

#include <gtest/gtest.h>

#include <cstddef>
#include <string>
#include <system_error>

namespace qv::system {
namespace {

std::error_code refusal(const std::string& path) {
    try {
        unixAddress(path);
    } catch (const std::system_error& error) {
        return error.code();
    }
    return {};
}

TEST(UnixAddress, HoldsThePath) {
    const sockaddr_un address = unixAddress("/run/a.sock");
    EXPECT_EQ(address.sun_family, AF_UNIX);
    EXPECT_STREQ(address.sun_path, "/run/a.sock");
    EXPECT_EQ(generic(address)->sa_family, AF_UNIX);
}

TEST(UnixAddress, TakesTheLongestPathAndNoLongerOne) {
    const std::size_t longest = sizeof sockaddr_un().sun_path - 1;
    EXPECT_EQ(unixAddress(std::string(longest, 'x')).sun_path, std::string(longest, 'x'));
    EXPECT_EQ(refusal(std::string(longest + 1, 'x')), std::errc::filename_too_long);
}

TEST(UnixAddress, RefusesAPathThatNamesNoFile) {
    EXPECT_EQ(refusal(""), std::errc::no_such_file_or_directory);
    EXPECT_EQ(refusal(std::string("\0abstract", 9)), std::errc::no_such_file_or_directory);
    EXPECT_EQ(refusal(std::string("/a\0b", 4)), std::errc::no_such_file_or_directory);
}

}  // namespace
}  // namespace qv::system
