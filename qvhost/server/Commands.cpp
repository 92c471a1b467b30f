// SPDX-License-Identifier: Apache-2.0

#include "server/Commands.h"

#include <QvFrame.h>
#include <QvHost.pb.h>
#include <QvPlugin.h>
#include <fmt/format.h>
#include <unistd.h>

#include <utility>

#include "StandardStreams.h"
#include "server/Access.h"
#include "server/Questions.h"

namespace qv::host {

namespace {

// Returns an answer that also tells the journal who set the level.
Follower::Answer withLine(uid_t user, Follower::Answer answer) {
    std::string line = fmt::format("user {} set the debug level", user);
    return [line = std::move(line), answer = std::move(answer)](Outcome outcome) {
        if (outcome.code == QV_OK) {
            writeJournal(line);
        }
        answer(std::move(outcome));
    };
}

}  // namespace

Commands::Commands(Recorder& recorder, Follower& follower, Counts& counts,
                   std::function<std::string()> status, std::string version)
    : recorder_(recorder),
      follower_(follower),
      counts_(counts),
      status_(std::move(status)),
      version_(std::move(version)) {}

bool Commands::isChange(const Frame& request) {
    return request.header.code == QV_COMMAND_REGISTER_SERVICES ||
           request.header.code == QV_COMMAND_UNREGISTER_SERVICES;
}

bool Commands::isSubscription(const Frame& request) {
    return request.header.code == QV_HOST_COMMAND_SUBSCRIBE;
}

bool Commands::mayTakeLong(const Frame& request) {
    return request.header.code == QV_HOST_COMMAND_SYNC ||
           request.header.code == QV_COMMAND_SET_DEBUG_LEVEL;
}

void Commands::addChange(const Frame& request, const Recorder::State& newest, ChangeBatch& batch,
                         AnswerQueue& answers) {
    counts_.request(request.header.code);
    ChangeBatch::Item item;
    item.number = request.header.number;
    item.outcome = request.header.code == QV_COMMAND_REGISTER_SERVICES
                       ? readRegistration(request.bytes, item.change)
                       : readWithdrawal(request.bytes, item.change);
    item.isDecided = item.outcome.code != QV_OK;
    if (item.isDecided) {
        counts_.refusal(item.outcome.code);
    }
    if (batch.items.empty()) {
        // Behind earlier changes of the client, the newest snapshot does not tell yet.
        bool isKnown = item.isDecided;
        if (!isKnown) {
            isKnown = newest.isKept && changesNothing(item.change, *newest.snapshot);
        }
        if (isKnown) {
            answers.append(item.outcome.code, item.number, item.outcome.bytes);
            return;
        }
    }
    batch.items.push_back(std::move(item));
}

void Commands::submit(std::shared_ptr<ChangeBatch> batch) {
    recorder_.submit(std::move(batch));
}

std::string Commands::hello(const Asker& asker) const {
    wire::HostHello message;
    message.set_edition(QV_PROTOCOL_EDITION);
    message.set_version(version_);
    for (const uint32_t command : Counts::kCommands) {
        message.add_commands(command);
    }
    message.set_longest_request(asker.longestRequest);
    message.set_most_services(kMostServices);
    message.set_most_address_bytes(kMostAddressBytes);
    message.set_longest_address(kLongestAddress);
    message.set_most_ids(kMostIdsOfQuestion);
    return message.SerializeAsString();
}

void Commands::find(const Frame& request, const Asker& asker, AnswerQueue& answers) {
    Identifiers ids;
    Outcome outcome = readFind(request.bytes, ids);
    if (outcome.code == QV_OK) {
        outcome.bytes = entriesOf(ids, *asker.directory.newest(recorder_).snapshot);
    }
    counts_.refusal(outcome.code);
    answers.append(outcome.code, request.header.number, outcome.bytes);
}

bool Commands::answer(const Frame& request, const Asker& asker, AnswerQueue& answers,
                      Follower::Answer later) {
    const uint32_t number = request.header.number;
    counts_.request(request.header.code);
    switch (request.header.code) {
        case QV_HOST_COMMAND_PING:
            answers.append(QV_OK, number);
            return true;
        case QV_HOST_COMMAND_STATUS:
            answers.append(QV_OK, number, status_());
            return true;
        case QV_HOST_COMMAND_HELLO:
            answers.append(QV_OK, number, hello(asker));
            return true;
        case QV_HOST_COMMAND_FIND:
            find(request, asker, answers);
            return true;
        case QV_COMMAND_GET_SERVICES:
            answers.append(number, asker.directory.newest(recorder_).snapshot);
            return true;
        case QV_HOST_COMMAND_SYNC:
            follower_.sync(std::move(later));
            return false;
        case QV_COMMAND_SET_DEBUG_LEVEL:
            if (!isPrivileged(asker.user, geteuid())) {
                counts_.refusal(QV_HOST_ERROR_PRIVILEGE);
                answers.append(QV_HOST_ERROR_PRIVILEGE, number,
                               "only root and the host's own user may set the debug level");
                return true;
            }
            follower_.setLevel(std::string(request.bytes), withLine(asker.user, std::move(later)));
            return false;
        default:
            counts_.refusal(QV_HOST_ERROR_COMMAND);
            answers.append(QV_HOST_ERROR_COMMAND, number, "the host has no such command");
            return true;
    }
}

}  // namespace qv::host
