// SPDX-License-Identifier: Apache-2.0

#include "qvhost/TestFiles.h"

#include <cerrno>
#include <fstream>
#include <system_error>

#include "support/Files.h"

namespace qv::host {

std::string TestFiles::write(const std::string& name, const std::string& content) const {
    std::ofstream file(path(name), std::ios::binary);
    file << content;
    file.close();
    if (!file) {
        throw std::system_error(errno, std::generic_category(), "cannot write " + path(name));
    }
    return path(name);
}

std::string readFile(const std::string& path) {
    return tests::contentOf(path).value_or("");
}

}  // namespace qv::host
