// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Files.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <string>
#include <thread>

#include "QvSystem/Descriptor.h"
#include "support/Files.h"
#include "support/TemporaryDirectory.h"

namespace qv::system {
namespace {

constexpr std::size_t kLongest = std::size_t{1} << 30;

class ReadRegularFile : public testing::Test {
  protected:
    std::string path() const { return directory_.path("file"); }

    tests::TemporaryDirectory directory_;
    std::string content_ = "old";
};

TEST_F(ReadRegularFile, ReadsEveryByte) {
    for (const std::size_t size : {0, 1, 4096, 300'000}) {
        std::string bytes;
        for (std::size_t i = 0; i < size; ++i) {
            bytes += static_cast<char>(i * 7);
        }
        tests::writeFile(path(), bytes);
        EXPECT_FALSE(readRegularFile(path(), kLongest, content_));
        EXPECT_TRUE(content_ == bytes);
    }
}

TEST_F(ReadRegularFile, FollowsALink) {
    tests::writeFile(path(), "content");
    std::filesystem::create_symlink("file", directory_.path("link"));
    EXPECT_FALSE(readRegularFile(directory_.path("link"), kLongest, content_));
    EXPECT_EQ(content_, "content");
}

TEST_F(ReadRegularFile, TakesTheLongestAndNoLongerOne) {
    tests::writeFile(path(), "12345");
    EXPECT_FALSE(readRegularFile(path(), 5, content_));
    EXPECT_EQ(readRegularFile(path(), 4, content_), std::errc::file_too_large);
}

TEST_F(ReadRegularFile, SaysThatNothingIsThere) {
    EXPECT_EQ(readRegularFile(path(), kLongest, content_), std::errc::no_such_file_or_directory);
}

TEST_F(ReadRegularFile, RefusesWhatIsNoRegularFileAndDoesNotWait) {
    ASSERT_EQ(::mkfifo(path().c_str(), 0600), 0);
    EXPECT_EQ(readRegularFile(path(), kLongest, content_), std::errc::invalid_argument);
    EXPECT_EQ(readRegularFile(directory_.path(""), kLongest, content_),
              std::errc::invalid_argument);
    EXPECT_EQ(readRegularFile("/dev/null", kLongest, content_), std::errc::invalid_argument);
}

TEST(ReadAll, ReadsAPipeToItsEnd) {
    int ends[2];
    ASSERT_EQ(::pipe(ends), 0);
    const Descriptor reader(ends[0]);
    const std::string bytes(300'000, 'x');
    std::thread writing([&] {
        const Descriptor writer(ends[1]);
        std::size_t written = 0;
        while (written < bytes.size()) {
            const ssize_t count =
                ::write(writer.get(), bytes.data() + written, bytes.size() - written);
            ASSERT_GT(count, 0);
            written += static_cast<std::size_t>(count);
        }
    });
    std::string content;
    const std::error_code error = readAll(reader.get(), kLongest, content);
    writing.join();
    EXPECT_FALSE(error);
    EXPECT_TRUE(content == bytes);
}

TEST(ReadAll, EndsWhereTooMuchComes) {
    const tests::TemporaryDirectory directory;
    std::string content;
    const Descriptor endless(::open("/dev/zero", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(readAll(endless.get(), 100'000, content), std::errc::file_too_large);
}

TEST(ReadAll, ReturnsTheSystemsError) {
    std::string content;
    EXPECT_EQ(readAll(-1, kLongest, content), std::errc::bad_file_descriptor);
    const Descriptor directory(::open("/", O_RDONLY | O_CLOEXEC));
    EXPECT_EQ(readAll(directory.get(), kLongest, content), std::errc::is_a_directory);
}

}  // namespace
}  // namespace qv::system
