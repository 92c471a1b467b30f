// SPDX-License-Identifier: Apache-2.0

#include "server/Conversation.h"

#include <QvFrame.h>
#include <QvPlugin.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <asio/buffer.hpp>
#include <asio/error.hpp>
#include <asio/post.hpp>
#include <asio/socket_base.hpp>
#include <chrono>
#include <cstddef>
#include <exception>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "server/FrameReader.h"
#include "server/Questions.h"
#include "server/Subscription.h"

namespace qv::host {

namespace {

using Clock = ConnectedClient::Clock;

// So many bytes are received while the host waits for a request. Most requests are shorter.
constexpr std::size_t kFirstBytes = 512;

// A client that changes nothing keeps memory for this many changes.
constexpr std::size_t kIdleChanges = 16;

// Returns the longest request that one user's share of the budget allows. A change takes its length
// twice: as it arrived, and as what was read from it.
std::size_t longestRequest(const ClientLimits& limits, const Budget& budget, uid_t user) {
    const std::size_t room = std::max(budget.mostOf(user) / 2, kSharedReadBuffer);
    return std::min<std::size_t>(limits.maxMessage, room - QV_FRAME_HEADER_SIZE);
}

// Returns the end of a time, or the epoch for no bound.
Clock::time_point after(Clock::time_point begin, std::chrono::milliseconds time) {
    return time.count() == 0 ? Clock::time_point() : begin + time;
}

class Conversation : public Sleeper,
                     public Budget::Waiter,
                     public AnsweredClients::Client,
                     public std::enable_shared_from_this<Conversation> {
  public:
    Conversation(ClientSocket socket, uid_t user, ClientThread& thread, const ServingParts& parts)
        : connection_(std::make_unique<Connection>(std::move(socket), user, thread, parts)),
          thread_(thread),
          parts_(parts),
          asker_{user, longestRequest(parts.limits, parts.budget, user), thread.directory()},
          reader_(asker_.longestRequest) {}

    void start() { post(&Conversation::await); }

  private:
    // What another thread does for the client.
    enum class Wait { None, Commit, Later, Room };

    // The changes that wait for the recorder, or that it makes. They keep the conversation alive.
    class Batch : public ChangeBatch {
      public:
        explicit Batch(Conversation& conversation) : conversation_(conversation) {}

        void answered(AnsweredClients& clients) noexcept override {
            if (!conversation_.isReadyForOutcomes()) {
                conversation_.wake();
            } else if (conversation_.sendOutcomes()) {
                clients.add(conversation_.shared_from_this());
            }
        }

      private:
        Conversation& conversation_;
    };

    // A request whose answer needs room.
    struct Unanswered {
        QvFrameHeader header;
        std::string input;
        std::size_t bytesOfAnswer;
    };

    using Step = void (Conversation::*)();

    void go(Step step) noexcept;
    template <typename Function>
    void attempt(Function function) noexcept;
    void post(Step step);
    void wake() noexcept { thread_.wake(shared_from_this()); }
    void wokenUp() noexcept override { go(&Conversation::resume); }
    void granted(std::shared_ptr<Waiter> /*self*/) noexcept override { wake(); }

    void await();
    void receiveFirst();
    void receive();
    void resume();
    void run();
    void execute();
    void takeOutcomes();
    bool isReadyForOutcomes() const;
    bool sendOutcomes() noexcept;
    bool takeNextChange() noexcept override;
    void takeChange(std::size_t count);
    void giveBack() noexcept override;
    bool answer(const Frame& request);
    bool begin();
    void subscribe(const Frame& request);
    void pop();
    void proceed();
    bool send();
    std::size_t bytesToHold() const;
    void end();
    void appendRefusal(uint32_t code, std::string_view text);

    // Null when a subscription has taken it over, which ends the conversation.
    std::unique_ptr<Connection> connection_;
    ClientThread& thread_;
    const ServingParts parts_;
    const Asker asker_;
    FrameReader reader_;
    std::array<char, kFirstBytes> first_ = {};
    std::size_t firstBytes_ = 0;
    Batch batch_{*this};
    Wait wait_ = Wait::None;
    // The request whose answer comes later, and that answer.
    uint32_t laterNumber_ = 0;
    Outcome later_;
    std::optional<Unanswered> unanswered_;
    // When an incomplete request began to arrive. The epoch stands for no time.
    Clock::time_point partSince_;
    bool refused_ = false;
};

// Takes a step on the client's thread. Submits the changes last, if there are any.
void Conversation::go(Step step) noexcept {
    attempt([this, step] {
        (this->*step)();
        // Another client uses the thread's memory next.
        reader_.keep();
        if (wait_ == Wait::Commit) {
            // The recorder may answer at once, on its own thread.
            parts_.commands.submit({shared_from_this(), &batch_});
        }
    });
}

// Calls the function. If memory runs out for this client, ends the connection, but not the thread.
// There may be no memory to tell the client.
template <typename Function>
void Conversation::attempt(Function function) noexcept {
    try {
        function();
    } catch (const std::exception&) {
        // Whatever the conversation still waits for, it can neither read nor send afterwards.
        if (connection_ != nullptr) {
            connection_->close();
        }
    }
}

// Takes the step when other clients have had their turn.
void Conversation::post(Step step) {
    asio::post(thread_.context(), [self = shared_from_this(), step] { self->go(step); });
}

// Waits for the client to send something. Comes last, because the client's thread may go on at
// once.
void Conversation::await() {
    if (reader_.empty()) {
        const std::chrono::milliseconds idle = parts_.limits.idleTimeout;
        connection_->client.reads(idle.count() == 0 ? Clock::time_point() : Clock::now() + idle);
    } else {
        if (partSince_ == Clock::time_point()) {
            partSince_ = Clock::now();
        }
        connection_->client.reads(after(partSince_, parts_.limits.frameTimeout));
    }
    if (reader_.empty()) {
        // Waiting without reading would take one more system call for each request.
        connection_->socket.attached().async_receive(
            asio::buffer(first_),
            [self = shared_from_this()](const asio::error_code& error, std::size_t count) {
                self->connection_->client.works();
                self->firstBytes_ = count;
                self->go(error ? &Conversation::end : &Conversation::receiveFirst);
            });
        return;
    }
    connection_->socket.attached().async_wait(
        asio::socket_base::wait_read,
        [self = shared_from_this()](const asio::error_code& /*error*/) {
            // Reading tells of an error again.
            self->connection_->client.works();
            self->go(&Conversation::receive);
        });
}

// Takes the first bytes that the client has sent since the last request.
void Conversation::receiveFirst() {
    reader_.take({first_.data(), firstBytes_});
    if (firstBytes_ == first_.size()) {
        // More may have arrived, and changes that arrive together are one commit.
        reader_.keep();
        receive();
    } else {
        run();
    }
}

void Conversation::receive() {
    FrameReader::Space space;
    try {
        space = reader_.space(thread_.readBuffer());
    } catch (const std::bad_alloc&) {
        appendRefusal(QV_HOST_ERROR_LENGTH, "the host has no memory for a request of this length");
        proceed();
        return;
    }
    asio::error_code error;
    const std::size_t count =
        connection_->socket.attached().read_some(asio::buffer(space.bytes, space.size), error);
    if (error == asio::error::would_block) {
        run();
    } else if (error) {
        end();
    } else {
        reader_.received(count);
        run();
    }
}

// Goes on when another thread has done what the conversation waited for.
void Conversation::resume() {
    switch (std::exchange(wait_, Wait::None)) {
        case Wait::Commit:
            takeOutcomes();
            break;
        case Wait::Later:
            parts_.counts.refusal(later_.code);
            connection_->answers.append(later_.code, laterNumber_, later_.bytes);
            break;
        case Wait::Room:
            // This time does not count against the client, who begins anew.
            partSince_ = {};
            break;
        case Wait::None:
            break;
    }
    run();
}

void Conversation::run() {
    execute();
    proceed();
}

void Conversation::takeOutcomes() {
    for (const ChangeBatch::Item& item : batch_.items) {
        if (!item.isDecided) {
            parts_.counts.refusal(item.outcome.code);
        }
        connection_->answers.append(item.outcome.code, item.number, item.outcome.bytes);
    }
    batch_.items.clear();
    if (batch_.items.capacity() > kIdleChanges) {
        batch_.items = {};
    }
}

// Tells whether the conversation only has to send the outcomes and to wait for the next request.
bool Conversation::isReadyForOutcomes() const {
    return reader_.empty() && !unanswered_ && connection_->account.held() == 0;
}

// Sends the outcomes on the recorder's thread. Returns true if the conversation belongs to that
// thread afterwards. Otherwise the client has to read first, or has gone.
bool Conversation::sendOutcomes() noexcept {
    bool isSent = false;
    attempt([&] {
        wait_ = Wait::None;
        takeOutcomes();
        isSent = send();
    });
    return isSent;
}

bool Conversation::takeNextChange() noexcept {
    const std::optional<std::size_t> count =
        connection_->socket.receive(first_.data(), first_.size());
    if (!count) {
        return false;
    }
    if (*count == 0) {
        giveBack();  // the client's thread learns of the end
    } else {
        attempt([&] { takeChange(*count); });
    }
    return true;
}

// Submits the client's next change if the first bytes are one change and nothing else. Leaves
// everything else to the client's thread. The last call hands the conversation over.
void Conversation::takeChange(std::size_t count) {
    reader_.take({first_.data(), count});
    const std::optional<Frame> request = reader_.next();
    if (request && Commands::isChange(*request) &&
        request->bytes.size() + QV_FRAME_HEADER_SIZE == count) {
        parts_.commands.addChange(*request, *parts_.recorder.state(), batch_, connection_->answers);
        pop();
    }
    reader_.keep();
    if (batch_.items.empty()) {
        post(count == first_.size() ? &Conversation::receive : &Conversation::run);
        return;
    }
    // A client that sends one change after the other does not need its thread meanwhile.
    connection_->socket.detach();
    wait_ = Wait::Commit;
    parts_.commands.submit({shared_from_this(), &batch_});
}

void Conversation::giveBack() noexcept {
    attempt([this] { await(); });
}

// Carries out the requests that have arrived, up to one that has to wait.
void Conversation::execute() {
    if (unanswered_) {
        const Unanswered request = *std::exchange(unanswered_, std::nullopt);
        if (!answer({request.header, request.input})) {
            return;
        }
    }
    while (connection_->answers.size() < kBytesOfAnswers && batch_.items.size() < kChangesOfBatch) {
        const std::optional<Frame> request = reader_.next();
        if (!request) {
            break;
        }
        bool isDone = true;
        if (Commands::isChange(*request)) {
            parts_.commands.addChange(*request, asker_.directory.newest(parts_.recorder), batch_,
                                      connection_->answers);
        } else if (batch_.items.empty() && !Commands::mayTakeLong(*request) &&
                   !Commands::isSubscription(*request)) {
            isDone = answer(*request);
        } else {
            return;
        }
        pop();
        if (!isDone) {
            return;
        }
    }
    if (batch_.items.empty() && reader_.tooLong()) {
        appendRefusal(QV_HOST_ERROR_LENGTH,
                      fmt::format("the request has {} bytes, and the host takes {}",
                                  reader_.header()->length, asker_.longestRequest));
    }
}

// Appends the answer. Returns false if a long answer has to wait for room.
bool Conversation::answer(const Frame& request) {
    const std::size_t before = connection_->answers.size();
    parts_.commands.answer(request, asker_, connection_->answers, nullptr);
    const std::size_t bytes = connection_->answers.size() - before;
    if (bytes > kBytesOfAnswers && !connection_->account.hold(bytes)) {
        // The answer that is made when there is room may be another one.
        connection_->answers.removeLast();
        // The input of a listing does not matter, and a find is short.
        const bool hasInput = request.header.code == QV_HOST_COMMAND_FIND;
        unanswered_ = {request.header, std::string(hasInput ? request.bytes : ""), bytes};
        return false;
    }
    return true;
}

// Begins a request whose answer may come later, or a subscription, if that is the next request.
// Nothing else may wait.
bool Conversation::begin() {
    const std::optional<Frame> request = reader_.next();
    if (request && Commands::isSubscription(*request)) {
        subscribe(*request);
        return true;
    }
    if (!request || !Commands::mayTakeLong(*request)) {
        return false;
    }
    const bool isKnown = parts_.commands.answer(*request, asker_, connection_->answers,
                                                [self = shared_from_this()](Outcome outcome) {
                                                    self->later_ = std::move(outcome);
                                                    self->wake();
                                                });
    laterNumber_ = request->header.number;
    pop();
    connection_->account.hold(0);
    if (isKnown) {
        post(&Conversation::run);
    } else {
        wait_ = Wait::Later;
    }
    return true;
}

// Hands the connection over to a subscription, or refuses the request.
void Conversation::subscribe(const Frame& request) {
    parts_.counts.request(request.header.code);
    const uint32_t number = request.header.number;
    SubscriptionWish wish;
    const Outcome outcome = readSubscription(request.bytes, wish);
    pop();
    connection_->account.hold(0);
    if (outcome.code != QV_OK) {
        connection_->refuse(outcome.code, number, outcome.bytes);
        post(&Conversation::run);
        return;
    }
    serveSubscriber(std::move(connection_), number, std::move(wish), !reader_.empty());
}

void Conversation::pop() {
    reader_.pop();
    partSince_ = {};
}

// Sends the answers. Then does what comes next, or waits for it.
void Conversation::proceed() {
    if (!send()) {
        return;
    }
    if (refused_) {
        connection_->close();
        return;
    }
    if (!batch_.items.empty()) {
        wait_ = Wait::Commit;
        return;
    }
    const std::size_t bytes = bytesToHold();
    if (bytes != connection_->account.held() &&
        !connection_->account.hold(bytes, shared_from_this())) {
        wait_ = Wait::Room;
        return;
    }
    if (!unanswered_ && begin()) {
        return;
    }
    if (unanswered_ || reader_.next()) {
        post(&Conversation::run);
    } else {
        await();
    }
}

// Returns the bytes that the next answer, or the request that arrives, takes of the budget.
std::size_t Conversation::bytesToHold() const {
    if (unanswered_) {
        return unanswered_->bytesOfAnswer;
    }
    const std::size_t own = reader_.ownBytesNeeded();
    return own != 0 && Commands::isChange({*reader_.header(), {}}) ? 2 * own : own;
}

// Sends the answers. If the client has to read some first, waits for that and returns false.
bool Conversation::send() {
    const Connection::Sent sent = connection_->send();
    if (sent == Connection::Sent::Some) {
        connection_->awaitRoom([self = shared_from_this()] { self->go(&Conversation::proceed); });
    }
    return sent == Connection::Sent::All;
}

// Ends the conversation because nothing more comes. All answers are sent.
void Conversation::end() {
    switch (connection_->client.ending()) {
        case ConnectedClient::Ending::ByItself:
            return;
        case ConnectedClient::Ending::TimedOut:
            appendRefusal(QV_HOST_ERROR_TIMEOUT, reader_.empty()
                                                     ? "no request for too long"
                                                     : "the request did not arrive in time");
            break;
        case ConnectedClient::Ending::Stopped:
            appendRefusal(QV_HOST_ERROR_STOPPING, "the host is about to end");
            break;
    }
    proceed();
}

// Appends the last answer of the conversation.
void Conversation::appendRefusal(uint32_t code, std::string_view text) {
    const std::optional<QvFrameHeader> header = reader_.header();
    refused_ = true;
    connection_->refuse(code, header ? header->number : 0, text);
}

}  // namespace

void serveClient(ClientSocket socket, uid_t user, ClientThread& thread, const ServingParts& parts) {
    std::make_shared<Conversation>(std::move(socket), user, thread, parts)->start();
}

}  // namespace qv::host
