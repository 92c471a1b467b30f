// SPDX-License-Identifier: Apache-2.0

// Runs the record, the plug-in and its file in a directory of their own, as the resident host does,
// but without clients.
#ifndef QV_TESTS_QVHOST_SERVER_FOLLOWED_HOST_H
#define QV_TESTS_QVHOST_SERVER_FOLLOWED_HOST_H

#include <QvPlugin.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "namingService.pb.h"
#include "qvhost/TestFiles.h"
#include "qvhost/server/Snapshots.h"
#include "server/Plugin.h"
#include "server/Recorder.h"
#include "server/StoredFile.h"
#include "support/ConfigurationDocuments.h"
#include "support/EnvironmentVariable.h"
#include "support/Files.h"

namespace qv::tests {

// Changes that a test makes. A service without an address is withdrawn.
using Changes = std::vector<std::pair<std::int32_t, const char*>>;

class Batch : public host::ChangeBatch {
  public:
    explicit Batch(const Changes& changes) {
        for (const auto& [id, address] : changes) {
            items.emplace_back();
            items.back().change.isRegistration = address != nullptr;
            items.back().change.edits = {{id, address == nullptr ? "" : address}};
        }
    }
    void answered(host::AnsweredClients& /*clients*/) noexcept override { promise_.set_value(); }
    void wait() { promise_.get_future().wait(); }

  private:
    std::promise<void> promise_;
};

// Returns the file that holds these services and nothing else.
inline std::string fileOf(const Model& model) {
    return model.empty() ? document("\t<key>Address</key>\n\t<dict/>\n")
                         : documentOf(std::vector<std::pair<std::int32_t, std::string>>(
                               model.begin(), model.end()));
}

class FollowedHost {
  public:
    FollowedHost() {
        std::filesystem::create_directories(files_.path("config/backup"));
        std::filesystem::create_directory(files_.path("log"));
    }

    std::string path() const { return files_.path("config/namingService.conf.plist"); }
    std::string backup() const { return files_.path("config/backup/namingService.conf.plist"); }
    std::string aside(int number) const { return path() + ".aside-" + std::to_string(number); }
    const host::TestFiles& files() const { return files_; }

    std::string content() const { return contentOf(path()).value_or("no file"); }
    host::FileView view() const { return host::StoredFile(path()).look(); }

    // Returns how many copies are kept aside.
    int copiesAside() const {
        int copies = 0;
        for (const auto& entry : std::filesystem::directory_iterator(files_.path("config"))) {
            copies += entry.path().string().find(".aside-") != std::string::npos ? 1 : 0;
        }
        return copies;
    }

    host::Recorder& openRecord(std::function<void()> published = [] {}) {
        closeRecord();
        recorder_ = std::make_unique<host::Recorder>(host::recordPathOf(path()), report());
        recorder_->onPublished(std::move(published));
        recorder_->start();
        return *recorder_;
    }
    void closeRecord() { recorder_.reset(); }
    host::Recorder& recorder() const { return *recorder_; }

    void change(const Changes& changes) const {
        const auto batch = std::make_shared<Batch>(changes);
        recorder_->submit(batch);
        batch->wait();
    }
    Model directory() const { return modelOf(*recorder_->state()->snapshot); }

    host::Recorder::Report report() {
        return [this](const std::string& line) {
            const std::lock_guard<std::mutex> lock(mutex_);
            lines_.push_back(line);
        };
    }
    // Returns the lines since the last call.
    std::vector<std::string> lines() {
        const std::lock_guard<std::mutex> lock(mutex_);
        return std::exchange(lines_, {});
    }

  private:
    host::TestFiles files_;
    EnvironmentVariable configDirectory_{"QV_CONFIG_DIR", files_.path("config")};
    EnvironmentVariable logDirectory_{"QV_LOG_DIR", files_.path("log")};
    std::mutex mutex_;
    std::vector<std::string> lines_;
    std::unique_ptr<host::Recorder> recorder_;
};

// Returns the services that a plug-in holds.
inline Model servicesIn(const host::Plugin& plugin) {
    const host::Plugin::Answer answer = plugin.call(QV_COMMAND_GET_SERVICES, {});
    qor::kevra::ServiceInfoArray list;
    static_cast<void>(
        list.ParseFromArray(answer.bytes().data(), static_cast<int>(answer.bytes().size())));
    Model model;
    for (const auto& service : list.services()) {
        model[service.id()] = service.address();
    }
    return model;
}

}  // namespace qv::tests

#endif  // QV_TESTS_QVHOST_SERVER_FOLLOWED_HOST_H
