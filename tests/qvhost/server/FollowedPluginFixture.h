// SPDX-License-Identifier: Apache-2.0

// Runs a FollowedPlugin in a directory of its own, for tests.
#ifndef QV_TESTS_QVHOST_SERVER_FOLLOWED_PLUGIN_FIXTURE_H
#define QV_TESTS_QVHOST_SERVER_FOLLOWED_PLUGIN_FIXTURE_H

#include <gtest/gtest.h>

#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "qvhost/server/FollowedHost.h"
#include "server/FollowedPlugin.h"

namespace qv::host {

// One other key of the file.
inline constexpr char kZone[] = "\t<key>Zone</key>\n\t<string>x</string>\n";

// Returns the file of these services and the other key.
inline std::string zonedFileOf(const tests::Model& services) {
    return tests::document(tests::entryOf({services.begin(), services.end()}) + kZone);
}

class FollowedPluginFixture : public testing::Test {
  protected:
    explicit FollowedPluginFixture(std::string library = QV_PLUGIN_FILE)
        : library_(std::move(library)) {}

    // Makes a host, instead of the one that ran, without starting the plug-in.
    void make(std::function<void()> initialize = {}) {
        end();
        host_.openRecord();
        plugin_ = std::make_unique<Plugin>(library_);
        if (!initialize) {
            initialize = [this] { plugin_->initialize(); };
        }
        followed_ =
            std::make_unique<FollowedPlugin>(*plugin_, StoredFile(host_.path()), host_.recorder(),
                                             std::move(initialize), host_.report());
    }
    std::string start() {
        make();
        return followed_->start();
    }
    void end() {
        followed_.reset();
        plugin_.reset();
        host_.closeRecord();
        host_.lines();
    }

    std::string update(const tests::Changes& changes = {}) {
        host_.change(changes);
        return followed_->update();
    }

    // Leaves a record and a file that hold these services, and a backup that holds others.
    void keep(const tests::Model& services) {
        tests::writeFile(host_.path(), zonedFileOf({{90, "old"}}));
        start();
        tests::Changes changes = {{90, nullptr}};
        for (const auto& [id, address] : services) {
            changes.emplace_back(id, address.c_str());
        }
        ASSERT_EQ(update(changes), "");
        ASSERT_EQ(host_.content(), zonedFileOf(services));
        end();
    }

    // Expects that record, file and plug-in hold these services, and that the record knows.
    void expectEverywhere(const tests::Model& services) const {
        EXPECT_EQ(host_.directory(), services);
        EXPECT_EQ(tests::servicesIn(*plugin_), services);
        const FileView view = host_.view();
        EXPECT_EQ(tests::modelOf(Snapshot(1, view.services)), services);
        const FileNote note = host_.recorder().fileNote();
        EXPECT_EQ(note.fingerprint, view.fingerprint);
        EXPECT_EQ(note.revision, host_.recorder().state()->snapshot->revision());
        EXPECT_FALSE(note.isBeingWritten);
    }

    const std::string library_;
    tests::FollowedHost host_;
    std::unique_ptr<Plugin> plugin_;
    std::unique_ptr<FollowedPlugin> followed_;
};

}  // namespace qv::host

#endif  // QV_TESTS_QVHOST_SERVER_FOLLOWED_PLUGIN_FIXTURE_H
