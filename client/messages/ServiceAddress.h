// SPDX-License-Identifier: Apache-2.0

// Says which addresses a directory of services can hold. The resident host refuses all others, and
// its clients do not send them.
#ifndef QV_SERVICE_ADDRESS_H
#define QV_SERVICE_ADDRESS_H

#include <cstddef>
#include <string_view>

namespace qv::host {

constexpr std::size_t kLongestAddress = std::size_t{4} * 1024;  // bytes

// Returns what is wrong with the address, in words that follow "the address of 7". Returns null if
// the directory can hold the address. The plug-in's file is a list of texts: it holds UTF-8 only,
// ends a text at a zero byte, and loses a byte order mark in front of a text.
const char* problemOfAddress(std::string_view address) noexcept;

}  // namespace qv::host

#endif  // QV_SERVICE_ADDRESS_H
