// SPDX-License-Identifier: Apache-2.0

#include "qvhost/RunningHost.h"

#include <QvPlugin.h>

#include <chrono>
#include <exception>
#include <future>
#include <utility>

#include "server/Door.h"
#include "server/Plugin.h"
#include "server/StoredFile.h"

namespace qv::fuzz {
namespace {

using host::ChangeBatch;
using host::Outcome;

host::Plugin& plugin() {
    static host::Plugin plugin(QV_PLUGIN_FILE);
    return plugin;
}

class Batch : public ChangeBatch {
  public:
    explicit Batch(const std::vector<Request>& requests) {
        for (const Request& request : requests) {
            Item& item = items.emplace_back();
            item.outcome = request.isRegistration
                               ? host::readRegistration(request.bytes, item.change)
                               : host::readWithdrawal(request.bytes, item.change);
            item.isDecided = item.outcome.code != QV_OK;
        }
    }
    void answered(host::AnsweredClients& /*clients*/) noexcept override { promise_.set_value(); }
    void wait() { promise_.get_future().wait(); }

  private:
    std::promise<void> promise_;
};

}  // namespace

RunningHost::RunningHost(const std::string& file, bool hasThread,
                         const host::Recorder::Report& report, std::function<void()> published)
    : recorder_(host::recordPathOf(file), report) {
    const auto initialize = [] { plugin().initialize(); };
    if (hasThread) {
        // A turn follows a change at once. A failed one is only repeated if somebody waits for it.
        constexpr std::chrono::hours kNever(1);
        follower_ = std::make_unique<host::Follower>(
            plugin(), host::StoredFile(file), recorder_, initialize, report,
            host::Pace::Settings{std::chrono::milliseconds(0), 0, kNever, kNever});
    } else {
        followed_ = std::make_unique<host::FollowedPlugin>(plugin(), host::StoredFile(file),
                                                           recorder_, initialize, report);
    }
    recorder_.onPublished([this, published = std::move(published)] {
        published();
        if (follower_ != nullptr) {
            follower_->published();
        }
    });
    recorder_.start();
}

std::string RunningHost::start() {
    if (follower_ == nullptr) {
        return followed_->start();
    }
    follower_->start();
    return follower_->statistics().problem;
}

std::string RunningHost::reload() {
    if (follower_ == nullptr) {
        try {
            return followed_->start();
        } catch (const std::exception& error) {
            return error.what();
        }
    }
    std::promise<std::string> problem;
    follower_->reload([&](std::string answer) { problem.set_value(std::move(answer)); });
    return problem.get_future().get();
}

std::string RunningHost::update() {
    if (follower_ == nullptr) {
        return followed_->update();
    }
    std::promise<Outcome> answer;
    follower_->sync([&](Outcome outcome) { answer.set_value(std::move(outcome)); });
    const Outcome outcome = answer.get_future().get();
    return outcome.code == QV_OK ? "" : outcome.bytes;
}

std::int64_t RunningHost::fileRevision() const {
    return follower_ == nullptr ? followed_->fileRevision() : follower_->statistics().fileRevision;
}

std::vector<Outcome> RunningHost::answersTo(const std::vector<Request>& requests) {
    const auto batch = std::make_shared<Batch>(requests);
    recorder_.submit(batch);
    batch->wait();
    std::vector<Outcome> answers;
    for (ChangeBatch::Item& item : batch->items) {
        answers.push_back(std::move(item.outcome));
    }
    return answers;
}

std::string RunningHost::listing() {
    return std::string(plugin().call(QV_COMMAND_GET_SERVICES, {}).bytes());
}

void RunningHost::stop() {
    if (follower_ != nullptr) {
        follower_->stop();
    } else if (followed_ != nullptr) {
        followed_->finalize();
    }
    recorder_.stop();
    // The recorder's thread calls the follower until it ends.
    follower_.reset();
    followed_.reset();
}

}  // namespace qv::fuzz
