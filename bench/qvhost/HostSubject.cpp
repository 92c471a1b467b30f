// SPDX-License-Identifier: Apache-2.0

#include "HostSubject.h"

#include <QvPlugin.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "Changes.h"
#include "QvHost.pb.h"
#include "namingService.pb.h"
#include "support/Services.h"

namespace qv::bench {

namespace {

// More than any benchmark connects.
constexpr char kMaxClients[] = "4096";

using Services = qor::kevra::ServiceInfoArray;

// Makes the configuration file and the directory of its backup.
const Place& withFile(const Place& place) {
    std::ofstream(place.path("namingService.conf.plist"))
        << "<plist version=\"1.0\"><dict/></plist>";
    std::filesystem::create_directory(place.path("backup"));
    return place;
}

}  // namespace

HostSubject::HostSubject(int threads, Place::Kind kind)
    : place_(kind),
      process_({QVHOST_PROGRAM, "--config-dir", withFile(place_).path(), "--log-dir", place_.path(),
                "serve", "--threads", std::to_string(threads), "--max-clients", kMaxClients},
               listenOn(path_)),
      connection_(path_) {}

void HostSubject::hold(int count) {
    ask(frame(QV_COMMAND_UNREGISTER_SERVICES, listing()));
    ask(frame(QV_COMMAND_REGISTER_SERVICES, servicesUpTo<Services>(count).SerializeAsString()));
    Services held;
    if (!held.ParseFromString(listing()) || held.services_size() != count) {
        throw std::runtime_error("the host does not have the services that it was given");
    }
    held_ = count;
}

std::vector<std::string> HostSubject::requests(Work work, int client) {
    switch (work) {
        case Work::Ping:
            return {frame(QV_HOST_COMMAND_PING, "")};
        case Work::Find: {
            std::vector<std::string> requests;
            for (const int id : ownServices(client, held_)) {
                host::wire::HostFind wanted;
                wanted.add_ids(id);
                requests.push_back(frame(QV_HOST_COMMAND_FIND, wanted.SerializeAsString()));
            }
            return requests;
        }
        case Work::Listing:
            return {frame(QV_COMMAND_GET_SERVICES, "")};
        case Work::UnchangedRegistration:
            return {frame(QV_COMMAND_REGISTER_SERVICES, registration(client, addressOf(client)))};
        case Work::Change: {
            std::vector<std::string> requests;
            for (const Change& change : changesOf(client, held_)) {
                requests.push_back(
                    frame(QV_COMMAND_REGISTER_SERVICES, registration(change.id, change.address)));
            }
            return requests;
        }
        case Work::Publication:
            break;
    }
    throw std::logic_error("no such work");
}

std::string HostSubject::ask(const std::string& request) {
    std::string answer = connection_.ask(request);
    if (headerOf(answer).code != QV_OK) {
        throw std::runtime_error("the host refused a request: " +
                                 answer.substr(QV_FRAME_HEADER_SIZE));
    }
    return answer;
}

std::string HostSubject::listing() {
    return ask(frame(QV_COMMAND_GET_SERVICES, "")).substr(QV_FRAME_HEADER_SIZE);
}

}  // namespace qv::bench
