// SPDX-License-Identifier: Apache-2.0

// Tests what the library file shows to the programs that are linked with it.
#include <QvClientVersion.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <set>
#include <string>

#include "support/SharedLibrary.h"

namespace {

// Programs of the same major version need every name in the list. A name may be added, but a name
// that goes away, or a function whose parameters change, needs a new major version.
#ifndef __APPLE__
TEST(ClientLibrary, ExportsTheNamesInTheListAndNoOthers) {
    std::ifstream file(QV_CLIENT_SYMBOLS);
    std::set<std::string> listed;
    for (std::string line; std::getline(file, line);) {
        listed.insert(line);
    }
    EXPECT_EQ(qv::tests::exportedSymbols(QV_CLIENT_LIBRARY), listed);
}
#endif

TEST(ClientLibrary, HasTheVersionOfItsHeader) {
    const std::string major = std::to_string(QV_CLIENT_VERSION_MAJOR);
    EXPECT_EQ(QV_CLIENT_VERSION_TEXT, major + '.' + std::to_string(QV_CLIENT_VERSION_MINOR) + '.' +
                                          std::to_string(QV_CLIENT_VERSION_PATCH));
    EXPECT_EQ(QV_CLIENT_VERSION, QV_CLIENT_VERSION_MAJOR * 10000 + QV_CLIENT_VERSION_MINOR * 100 +
                                     QV_CLIENT_VERSION_PATCH);
    EXPECT_THAT(QV_CLIENT_SONAME, testing::HasSubstr("." + major));
    EXPECT_THAT(QV_CLIENT_LIBRARY, testing::HasSubstr("." QV_CLIENT_VERSION_TEXT));
}

}  // namespace
