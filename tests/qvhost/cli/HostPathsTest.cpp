// SPDX-License-Identifier: Apache-2.0

#include "cli/HostPaths.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "qvhost/TestFiles.h"
#include "server/PluginError.h"

namespace qv::host {
namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

TEST(HostPaths, ProgramDirectoryHoldsTheProgram) {
    EXPECT_TRUE(fs::exists(programDirectory() / "qvhost_core_test"));
}

TEST(HostPaths, FirstPlaceIsBesideTheProgramAndThenTheLibraryDirectory) {
    const std::vector<fs::path> places = pluginPlaces("/opt/x/bin");
    ASSERT_GE(places.size(), 2U);
    EXPECT_EQ(places[0].parent_path(), "/opt/x/bin");
    EXPECT_EQ(places[1].parent_path(), "/opt/x/lib");
    EXPECT_THAT(places[0].filename().string(), HasSubstr("namingService"));
}

TEST(HostPaths, NoPlaceIsTriedTwice) {
    const std::vector<fs::path> places = pluginPlaces("/opt/x/lib");
    EXPECT_EQ(places[0].parent_path(), "/opt/x/lib");
    for (std::size_t i = 1; i < places.size(); ++i) {
        EXPECT_NE(places[i], places[0]);
    }
}

TEST(HostPaths, PluginInTheLibraryDirectoryIsFound) {
    const TestFiles files;
    fs::create_directory(files.path("bin"));
    fs::create_directory(files.path("lib"));
    const fs::path wanted = pluginPlaces(files.path("bin")).at(1);
    files.write("lib/" + wanted.filename().string(), "");
    EXPECT_EQ(findPlugin(files.path("bin")), wanted);
}

TEST(HostPaths, PluginBesideTheProgramIsPreferred) {
    const TestFiles files;
    fs::create_directory(files.path("bin"));
    fs::create_directory(files.path("lib"));
    for (const std::size_t place : {0U, 1U}) {
        const fs::path file = pluginPlaces(files.path("bin")).at(place);
        files.write(file.lexically_relative(files.path("")).string(), "");
    }
    EXPECT_EQ(findPlugin(files.path("bin")), pluginPlaces(files.path("bin")).at(0));
}

TEST(HostPaths, ErrorNamesEveryPlaceLookedAt) {
    const TestFiles files;
    fs::create_directory(files.path("bin"));
    const std::vector<fs::path> places = pluginPlaces(files.path("bin"));
    if (fs::exists(places.back())) {
        GTEST_SKIP() << "the plug-in is installed: " << places.back();
    }
    try {
        findPlugin(files.path("bin"));
        FAIL() << "found one";
    } catch (const PluginError& error) {
        for (const fs::path& place : places) {
            EXPECT_THAT(error.what(), HasSubstr(place.string()));
        }
        EXPECT_THAT(error.what(), HasSubstr("--plugin"));
    }
}

}  // namespace
}  // namespace qv::host
