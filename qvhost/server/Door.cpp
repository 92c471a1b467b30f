// SPDX-License-Identifier: Apache-2.0

#include "server/Door.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <fmt/format.h>

#include <map>
#include <optional>
#include <utility>

#include "namingService.pb.h"

namespace qv::host {

namespace {

namespace wire_format = qor::kevra::wire;
using qor::kevra::ServiceInfo;
using qor::kevra::ServiceInfoArray;

Outcome refused(std::string text) {
    return {QV_HOST_ERROR_REFUSED, std::move(text)};
}

// Reads a serialised ServiceInfoArray by the rules of Message::readFields(). Takes each service out
// of the message at once, because a list of messages takes much more memory.
Outcome readServices(std::string_view input, Change& change) {
    Outcome malformed = {QV_ERROR_ARGUMENT, {}};
    if (input.size() > wire_format::kInputLimit) {
        return malformed;
    }
    wire_format::CodedInputStream stream(reinterpret_cast<const uint8_t*>(input.data()),
                                         static_cast<int>(input.size()));
    stream.SetRecursionLimit(wire_format::kRecursionLimit);
    while (const uint32_t tag = stream.ReadTag()) {
        if (tag != wire_format::tagOf(ServiceInfoArray::kServicesFieldNumber,
                                      wire_format::WireFormat::WIRETYPE_LENGTH_DELIMITED)) {
            if (!wire_format::skipField(&stream, tag)) {
                return malformed;
            }
            continue;
        }
        ServiceInfo service;
        if (!wire_format::readMessage(&stream, &service)) {
            return malformed;
        }
        if (change.edits.size() == kMostServices) {
            return refused(fmt::format("the request names more than {} services", kMostServices));
        }
        change.edits.push_back({service.id(), std::move(*service.mutable_address())});
    }
    return stream.ConsumedEntireMessage() ? Outcome{QV_OK, {}} : malformed;
}

// Returns the address that each service of the change gets in the end.
std::map<int32_t, std::string_view> lastEdits(const Change& change) {
    std::map<int32_t, std::string_view> last;
    for (const Change::Edit& edit : change.edits) {
        last[edit.id] = edit.address;
    }
    return last;
}

}  // namespace

Outcome readRegistration(std::string_view input, Change& change) {
    Change read;
    read.isRegistration = true;
    Outcome outcome = readServices(input, read);
    if (outcome.code != QV_OK) {
        return outcome;
    }
    for (const Change::Edit& edit : read.edits) {
        if (const char* const problem = problemOfAddress(edit.address)) {
            return refused(fmt::format("the address of service {} {}", edit.id, problem));
        }
    }
    change = std::move(read);
    return outcome;
}

Outcome readWithdrawal(std::string_view input, Change& change) {
    Change read;
    read.isRegistration = false;
    Outcome outcome = readServices(input, read);
    if (outcome.code == QV_OK) {
        for (Change::Edit& edit : read.edits) {
            edit.address.clear();
        }
        change = std::move(read);
    }
    return outcome;
}

bool changesNothing(const Change& change, const Snapshot& snapshot) {
    for (const auto& [id, address] : lastEdits(change)) {
        const std::optional<std::string_view> old = snapshot.find(id);
        if (change.isRegistration ? old != address : old.has_value()) {
            return false;
        }
    }
    return true;
}

Outcome apply(const Change& change, NextSnapshot& next) {
    const std::map<int32_t, std::string_view> edits = lastEdits(change);
    if (!change.isRegistration) {
        for (const auto& [id, address] : edits) {
            next.remove(id);
        }
        return {QV_OK, {}};
    }
    std::size_t services = next.size();
    std::size_t addressBytes = next.addressBytes();
    for (const auto& [id, address] : edits) {
        const std::optional<std::string_view> old = next.find(id);
        services += old ? 0 : 1;
        addressBytes += address.size();
        addressBytes -= old ? old->size() : 0;
    }
    if (services > kMostServices && services > next.size()) {
        return refused(fmt::format("the directory would have {} services, and it has room for {}",
                                   services, kMostServices));
    }
    if (addressBytes > kMostAddressBytes && addressBytes > next.addressBytes()) {
        return refused(
            fmt::format("the directory's addresses would have {} bytes, and it has room for {}",
                        addressBytes, kMostAddressBytes));
    }
    for (const auto& [id, address] : edits) {
        next.put(id, address);
    }
    return {QV_OK, {}};
}

}  // namespace qv::host
