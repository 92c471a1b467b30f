// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/FileIdentity.h"

#include <fcntl.h>
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "QvSystem/Descriptor.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::system {
namespace {

class IdentityOf : public testing::Test {
  protected:
    void SetUp() override { tests::writeFile(path_, "content"); }

    FileIdentity identity() const { return identityOf(path_.c_str()); }

    tests::TemporaryDirectory directory_;
    const std::string path_ = directory_.path("file");
};

TEST_F(IdentityOf, StaysWhenTheFileGetsAnotherContentAndAnotherName) {
    const FileIdentity before = identity();
    ASSERT_TRUE(before);
    tests::writeFile(path_, "other content");
    EXPECT_EQ(identity(), before);
    const std::string name = directory_.path("name");
    std::filesystem::rename(path_, name);
    EXPECT_EQ(identityOf(name.c_str()), before);
}

TEST_F(IdentityOf, TellsAReplacedFile) {
    const FileIdentity before = identity();
    const std::string other = directory_.path("other");
    tests::writeFile(other, "content");
    std::filesystem::rename(other, path_);
    EXPECT_TRUE(identity());
    EXPECT_NE(identity(), before);
}

TEST_F(IdentityOf, IsTheSameForAnOpenFile) {
    const Descriptor open(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    ASSERT_TRUE(open);
    EXPECT_EQ(identityOf(open.get()), identity());
}

TEST_F(IdentityOf, DoesNotFollowALink) {
    const std::string link = directory_.path("link");
    std::filesystem::create_symlink(path_, link);
    EXPECT_TRUE(identityOf(link.c_str()));
    EXPECT_NE(identityOf(link.c_str()), identity());
}

TEST_F(IdentityOf, TellsThatThereIsNoFile) {
    std::filesystem::remove(path_);
    errno = 0;
    EXPECT_FALSE(identity());
    EXPECT_EQ(errno, ENOENT);
    EXPECT_FALSE(identityOf(-1));
    EXPECT_EQ(errno, EBADF);
    EXPECT_EQ(identity(), FileIdentity());
}

}  // namespace
}  // namespace qv::system
