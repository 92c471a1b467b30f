// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/FileIdentity.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <string>

#include "QvSystem/Descriptor.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

#ifdef __linux__

#include <sys/syscall.h>

namespace {

bool isStatxForbidden = false;

}  // namespace

// Stands in front of the C library's function, and fails as in a sandbox that does not know it.
extern "C" int statx(int directory, const char* path, int flags, unsigned mask,
                     struct statx* status) noexcept {
    if (isStatxForbidden) {
        errno = EPERM;
        return -1;
    }
    return static_cast<int>(::syscall(SYS_statx, directory, path, flags, mask, status));
}

#endif

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

#ifdef __linux__

TEST_F(IdentityOf, IsTheSameInASandboxThatForbidsTheCall) {
    const Descriptor open(::open(path_.c_str(), O_RDONLY | O_CLOEXEC));
    const FileIdentity before = identity();
    isStatxForbidden = true;
    EXPECT_TRUE(before);
    EXPECT_EQ(identity(), before);
    EXPECT_EQ(identityOf(open.get()), before);
    EXPECT_FALSE(identityOf("/nowhere"));
    EXPECT_EQ(errno, ENOENT);
    isStatxForbidden = false;
}

#endif

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
