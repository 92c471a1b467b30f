#include "Messages.h"

#include <QvPlugin.h>
#include <google/protobuf/io/coded_stream.h>

#include <cstddef>
#include <cstdint>

#include "KevraCommonMsg.pb.h"
#include "namingService.pb.h"

namespace qv::client {

namespace {

std::string serialised(const google::protobuf::MessageLite& message) {
    // The plug-in would read the first 64 MiB only, and report success.
    if (message.ByteSizeLong() > qor::kevra::wire::kInputLimit) {
        throw Error(Error::Kind::TooLong, 0, "the request is too long for a message");
    }
    return message.SerializeAsString();
}

}  // namespace

std::string messageOfServices(const std::vector<Service>& services) {
    qor::kevra::ServiceInfoArray message;
    for (const Service& service : services) {
        qor::kevra::ServiceInfo* const info = message.add_services();
        info->set_id(service.id);
        info->set_address(service.address);
    }
    return serialised(message);
}

std::string messageOfIds(const std::vector<int32_t>& ids) {
    qor::kevra::ServiceInfoArray message;
    for (const int32_t id : ids) {
        message.add_services()->set_id(id);
    }
    return serialised(message);
}

std::string messageOfLevel(int32_t level) {
    qor::kevra::DebugOption message;
    message.set_plugins(QV_PLUGIN_ID_NAMING_SERVICE);
    message.set_debug_level(level);
    return serialised(message);
}

std::optional<std::vector<Service>> servicesOf(const std::string& message) {
    qor::kevra::ServiceInfoArray array;
    const int size = static_cast<int>(message.size());
    google::protobuf::io::CodedInputStream input(
        reinterpret_cast<const std::uint8_t*>(message.data()), size);
    // A listing may be longer than what a parse reads by default.
    input.SetTotalBytesLimit(size);
    if (!array.ParseFromCodedStream(&input) || !input.ConsumedEntireMessage()) {
        return std::nullopt;
    }
    std::vector<Service> services;
    services.reserve(static_cast<std::size_t>(array.services_size()));
    for (int i = 0; i < array.services_size(); ++i) {
        services.push_back({array.services(i).id(), array.services(i).address()});
    }
    return services;
}

}  // namespace qv::client
