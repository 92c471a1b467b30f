// SPDX-License-Identifier: Apache-2.0

#include "ServiceAddress.h"

#include <QvSystem/Utf8.h>

namespace qv::host {

const char* problemOfAddress(std::string_view address) noexcept {
    constexpr std::string_view kByteOrderMark = "\xef\xbb\xbf";
    static_assert(kLongestAddress == std::size_t{4} * 1024, "the text below names the length");
    if (address.empty()) {
        return "is empty";
    }
    if (address.size() > kLongestAddress) {
        return "is longer than 4 KiB";
    }
    if (address.find('\0') != std::string_view::npos) {
        return "holds a zero byte";
    }
    if (address.substr(0, kByteOrderMark.size()) == kByteOrderMark) {
        return "begins with a byte order mark (U+FEFF)";
    }
    if (!system::isUtf8(address)) {
        return "is not UTF-8";
    }
    return nullptr;
}

}  // namespace qv::host
