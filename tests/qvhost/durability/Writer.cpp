// SPDX-License-Identifier: Apache-2.0

#include "qvhost/durability/Writer.h"

#include <QvPlugin.h>

#include <cstddef>
#include <optional>

#include "qvhost/durability/CrashClient.h"
#include "support/LoadedPlugin.h"

namespace qv::host {

namespace {

// So many requests are on their way at once.
constexpr std::size_t kWindow = 4;

}  // namespace

Writer::Writer(int32_t first, int32_t count, unsigned seed)
    : first_(first), count_(count), random_(seed), seed_(seed) {}

int32_t Writer::pickId() {
    // The first service moves all others in the file.
    return random_() % 4 == 0 ? first_
                              : first_ + static_cast<int32_t>(random_() % unsigned(count_));
}

Writer::Request Writer::makeRequest() {
    Request request;
    if (share_.empty() && unanswered_.empty()) {
        for (int32_t id = first_; id < first_ + count_; ++id) {
            request.services.emplace_back(id, "unix:/run/first/" + std::to_string(id) + ".sock");
        }
        return request;
    }
    request.isRegistration = random_() % 4 != 0;
    const unsigned count = random_() % 3 == 0 ? 3 : 1;
    for (unsigned i = 0; i < count; ++i) {
        std::string address;
        if (request.isRegistration) {
            address = "unix:/run/" + std::to_string(seed_) + "/" + std::to_string(++serial_) +
                      std::string(random_() % 20, 'x');
        }
        request.services.emplace_back(pickId(), std::move(address));
    }
    return request;
}

void Writer::run(const std::string& socket, std::atomic<int>& answers) {
    const CrashClient client(socket);
    while (true) {
        while (unanswered_.size() < kWindow) {
            unanswered_.push_back(makeRequest());
            const Request& request = unanswered_.back();
            if (!client.send(request.isRegistration ? QV_COMMAND_REGISTER_SERVICES
                                                    : QV_COMMAND_UNREGISTER_SERVICES,
                             tests::encode(request.services))) {
                return;
            }
        }
        const std::optional<RawAnswer> answer = client.receive();
        if (!answer) {
            return;
        }
        if (answer->code != QV_OK) {
            complaint_ = std::to_string(answer->code) + ": " + answer->bytes;
            return;
        }
        carryOut(unanswered_.front(), share_);
        unanswered_.pop_front();
        ++answers;
    }
}

void Writer::carryOut(const Request& request, Share& share) {
    for (const auto& [id, address] : request.services) {
        if (request.isRegistration) {
            share[id] = address;
        } else {
            share.erase(id);
        }
    }
}

bool Writer::explains(const Share& listed) {
    Share possible = share_;
    bool isExplained = listed == possible;
    while (!isExplained && !unanswered_.empty()) {
        carryOut(unanswered_.front(), possible);
        unanswered_.pop_front();
        isExplained = listed == possible;
    }
    unanswered_.clear();
    share_ = listed;
    return isExplained;
}

}  // namespace qv::host
