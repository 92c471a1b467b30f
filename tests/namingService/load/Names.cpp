// SPDX-License-Identifier: Apache-2.0

#include "Names.h"

#include <charconv>
#include <stdexcept>

namespace qv::tests {
namespace {

constexpr std::size_t kDigits = 9;

}  // namespace

Names::Names(std::size_t count) {
    addresses_.resize(count);
    for (std::size_t service = 0; service < count; ++service) {
        addresses_[service] = "xpc:com.vornak.lorx.load." + std::to_string(idOf(service)) + '/';
    }
}

std::int32_t Names::idOf(std::size_t service) const {
    return static_cast<std::int32_t>(service) - static_cast<std::int32_t>(count() / 4);
}

std::string Names::addressOf(std::size_t service, Value value) const {
    const std::string digits = std::to_string(value);
    return addresses_[service] + std::string(kDigits - digits.size(), '0') + digits;
}

Service Names::service(std::size_t service, Value value) const {
    return {idOf(service), addressOf(service, value)};
}

Services Names::services(const Values& values) const {
    Services services;
    for (std::size_t service = 0; service < values.size(); ++service) {
        if (values[service] != kAbsent) {
            services.push_back(this->service(service, values[service]));
        }
    }
    return services;
}

Values Names::valuesOf(const std::string& answer) const {
    qor::kevra::ServiceInfoArray listed;
    if (!listed.ParseFromString(answer) ||
        static_cast<std::size_t>(listed.ByteSize()) != answer.size()) {
        throw std::runtime_error("a listing is damaged");
    }
    Values values(count(), kAbsent);
    std::size_t next = 0;
    for (const qor::kevra::ServiceInfo& service : listed.services()) {
        read(service, next, values);
    }
    return values;
}

// Reads one service of a listing. A service below `next` breaks the ascending order.
void Names::read(const qor::kevra::ServiceInfo& listed, std::size_t& next, Values& values) const {
    const std::int64_t service = std::int64_t{listed.id()} - idOf(0);
    if (service < static_cast<std::int64_t>(next) ||
        service >= static_cast<std::int64_t>(count())) {
        throw std::runtime_error("a listing has an unknown or misplaced service " +
                                 std::to_string(listed.id()));
    }
    next = static_cast<std::size_t>(service);
    const std::string& address = listed.address();
    const std::string& start = addresses_[next];
    const char* const end = address.data() + address.size();
    Value value = kAbsent;
    if (address.size() != start.size() + kDigits || address.compare(0, start.size(), start) != 0 ||
        std::from_chars(end - kDigits, end, value).ptr != end || value == kAbsent) {
        throw std::runtime_error("a listing gives " + std::to_string(listed.id()) +
                                 " the address " + address);
    }
    values[next] = value;
    ++next;
}

}  // namespace qv::tests
