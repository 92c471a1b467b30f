// SPDX-License-Identifier: Apache-2.0

#include "QvSystem/Files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <cerrno>

#include "QvSystem/Descriptor.h"

namespace qv::system {
namespace {

std::error_code lastError() {
    return {errno, std::generic_category()};
}

// `expected` is the number of bytes that are probably there.
std::error_code readUpTo(int descriptor, std::size_t expected, std::size_t longest,
                         std::string& content) {
    content.clear();
    std::size_t length = 0;
    while (true) {
        if (length == content.size()) {
            // One byte more than expected shows the end without another step.
            content.resize(std::max(expected + 1, 2 * length));
        }
        const ssize_t count = ::read(descriptor, &content[length], content.size() - length);
        if (count == -1 && errno == EINTR) {
            continue;
        }
        if (count == -1) {
            return lastError();
        }
        length += static_cast<std::size_t>(count);
        if (length > longest) {
            return std::make_error_code(std::errc::file_too_large);
        }
        if (count == 0) {
            content.resize(length);
            return {};
        }
    }
}

}  // namespace

std::error_code readAll(int descriptor, std::size_t longest, std::string& content) {
    constexpr std::size_t kFirstStep = 65'535;
    return readUpTo(descriptor, kFirstStep, longest, content);
}

std::error_code readRegularFile(const std::string& path, std::size_t longest,
                                std::string& content) {
    constexpr int kFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY;
    Descriptor file;
    do {
        file.reset(::open(path.c_str(), kFlags));
    } while (!file && errno == EINTR);
    struct stat status = {};
    if (!file || ::fstat(file.get(), &status) != 0) {
        return lastError();
    }
    if (!S_ISREG(status.st_mode)) {
        return std::make_error_code(std::errc::invalid_argument);
    }
    const auto size = static_cast<std::size_t>(status.st_size);
    if (size > longest) {
        return std::make_error_code(std::errc::file_too_large);
    }
    return readUpTo(file.get(), size, longest, content);
}

}  // namespace qv::system
