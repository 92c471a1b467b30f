// SPDX-License-Identifier: Apache-2.0

#include "CResults.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace qv::client {

namespace {

qv_client_result resultOf(Error::Kind kind) {
    switch (kind) {
        case Error::Kind::CannotConnect:
            return QV_CLIENT_CANNOT_CONNECT;
        case Error::Kind::Refused:
            return QV_CLIENT_REFUSED;
        case Error::Kind::Result:
            return QV_CLIENT_PLUGIN_FAILED;
        case Error::Kind::ConnectionLost:
            return QV_CLIENT_CONNECTION_LOST;
        case Error::Kind::TimedOut:
            return QV_CLIENT_TIMED_OUT;
        case Error::Kind::BrokenAnswer:
            return QV_CLIENT_BROKEN_ANSWER;
        case Error::Kind::TooLong:
            return QV_CLIENT_TOO_LONG;
        case Error::Kind::Argument:
            return QV_CLIENT_ARGUMENT;
        case Error::Kind::WrongHost:
            return QV_CLIENT_WRONG_HOST;
    }
    return QV_CLIENT_BROKEN_ANSWER;
}

// Copies the text, or as many of its whole characters as fit.
template <std::size_t Size>
void copyText(char (&to)[Size], const char* text) {
    std::size_t length = std::min(std::strlen(text), Size - 1);
    while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
        --length;
    }
    std::copy_n(text, length, to);
    to[length] = '\0';
}

}  // namespace

int report(qv_client_error* error, qv_client_result result, int32_t code,
           const char* text) noexcept {
    if (error != nullptr) {
        error->result = result;
        error->code = code;
        copyText(error->text, text);
    }
    return result;
}

int report(qv_client_error* error, const Error& thrown) noexcept {
    return report(error, resultOf(thrown.kind()), thrown.code(), thrown.what());
}

std::chrono::milliseconds timeoutOf(int timeout) {
    switch (timeout) {
        case QV_CLIENT_NO_TIMEOUT:
            return kNoTimeout;
        case QV_CLIENT_OWN_TIMEOUT:
            return kClientTimeout;
        default:
            return std::chrono::milliseconds(timeout);
    }
}

ServicesForC::ServicesForC(std::vector<Service> services) : services_(std::move(services)) {
    views_.reserve(services_.size());
    for (const Service& service : services_) {
        views_.push_back({service.id, service.address.c_str()});
    }
}

}  // namespace qv::client
