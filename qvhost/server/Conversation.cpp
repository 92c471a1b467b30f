#include "server/Conversation.h"

#include <QvFrame.h>
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

#include "server/AnswerQueue.h"
#include "server/Farewell.h"
#include "server/FrameReader.h"

namespace qv::host {

namespace {

using Clock = ConnectedClient::Clock;

// The pieces that go to the system at once, a sequence of buffers for Asio.
class Pieces {
  public:
    explicit Pieces(const AnswerQueue& answers) {
        std::array<std::string_view, kMost> views;
        count_ = answers.pieces(views.data(), kMost);
        std::transform(views.begin(), views.begin() + count_, buffers_.begin(),
                       [](std::string_view view) { return asio::buffer(view); });
    }

    const asio::const_buffer* begin() const { return buffers_.data(); }
    const asio::const_buffer* end() const { return buffers_.data() + count_; }

  private:
    static constexpr std::size_t kMost = 64;  // Asio takes no more

    std::array<asio::const_buffer, kMost> buffers_;
    std::size_t count_ = 0;
};

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
                     public std::enable_shared_from_this<Conversation> {
  public:
    Conversation(ClientSocket socket, uid_t user, ClientThread& thread, const ServingParts& parts)
        : socket_(std::move(socket)),
          client_(parts.clients, socket_.native_handle(), user),
          place_(thread),
          account_(parts.budget, user),
          thread_(thread),
          parts_(parts),
          asker_{user, longestRequest(parts.limits, parts.budget, user)},
          reader_(asker_.longestRequest) {
        socket_.non_blocking(true);
    }

    void start() { post(&Conversation::await); }

  private:
    // What another thread does for the client.
    enum class Wait { None, Commit, Later, Room };

    // The changes that wait for the recorder, or that it makes. They keep the conversation alive.
    class Batch : public ChangeBatch {
      public:
        explicit Batch(Conversation& conversation) : conversation_(conversation) {}

        void answered() noexcept override { conversation_.wake(); }

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
    void post(Step step);
    void wake() noexcept { thread_.wake(shared_from_this()); }
    void wokenUp() noexcept override { go(&Conversation::resume); }
    void granted(std::shared_ptr<Waiter> /*self*/) noexcept override { wake(); }

    void await();
    void receive();
    void resume();
    void run();
    void execute();
    void takeOutcomes();
    bool answer(const Frame& request);
    bool begin();
    void pop();
    void proceed();
    bool send();
    std::size_t bytesToHold() const;
    void end();
    void appendRefusal(uint32_t code, std::string_view text);

    // The order matters: the client must leave its list before the socket closes.
    ClientSocket socket_;
    ConnectedClient client_;
    ClientThread::Place place_;
    Budget::Account account_;
    ClientThread& thread_;
    const ServingParts parts_;
    const Asker asker_;
    FrameReader reader_;
    AnswerQueue answers_;
    Batch batch_{*this};
    Wait wait_ = Wait::None;
    // The request whose answer comes later, and that answer.
    uint32_t laterNumber_ = 0;
    Outcome later_;
    std::optional<Unanswered> unanswered_;
    // The epoch stands for none of these times.
    Clock::time_point partSince_;  // when an incomplete request began to arrive
    Clock::time_point sendUntil_;  // when the client must have read the answers
    bool refused_ = false;
};

// Takes a step. If memory runs out for this client, ends the connection, but not the thread. There
// may be no memory to tell the client.
void Conversation::go(Step step) noexcept {
    try {
        (this->*step)();
        // Another client uses the thread's memory next.
        reader_.keep();
    } catch (const std::exception&) {
        // Whatever the conversation still waits for, it can neither read nor send afterwards.
        sayGoodbye(socket_.native_handle());
    }
}

// Takes the step when other clients have had their turn.
void Conversation::post(Step step) {
    asio::post(socket_.get_executor(), [self = shared_from_this(), step] { self->go(step); });
}

// Waits for the client to send something.
void Conversation::await() {
    if (reader_.empty()) {
        const std::chrono::milliseconds idle = parts_.limits.idleTimeout;
        client_.reads(idle.count() == 0 ? Clock::time_point() : Clock::now() + idle);
    } else {
        if (partSince_ == Clock::time_point()) {
            partSince_ = Clock::now();
        }
        client_.reads(after(partSince_, parts_.limits.frameTimeout));
    }
    socket_.async_wait(asio::socket_base::wait_read,
                       [self = shared_from_this()](const asio::error_code& /*error*/) {
                           // Reading tells of an error again.
                           self->client_.works();
                           self->go(&Conversation::receive);
                       });
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
    const std::size_t count = socket_.read_some(asio::buffer(space.bytes, space.size), error);
    if (error == asio::error::would_block) {
        await();
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
            answers_.append(later_.code, laterNumber_, later_.bytes);
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
        answers_.append(item.outcome.code, item.number, item.outcome.bytes);
    }
    batch_.items.clear();
    if (batch_.items.capacity() > kIdleChanges) {
        batch_.items = {};
    }
}

// Carries out the requests that have arrived, up to one that has to wait.
void Conversation::execute() {
    if (unanswered_) {
        const Unanswered request = *std::exchange(unanswered_, std::nullopt);
        if (!answer({request.header, request.input})) {
            return;
        }
    }
    while (answers_.size() < kBytesOfAnswers && batch_.items.size() < kChangesOfBatch) {
        const std::optional<Frame> request = reader_.next();
        if (!request) {
            break;
        }
        bool isDone = true;
        if (Commands::isChange(*request)) {
            parts_.commands.addChange(*request, batch_, answers_);
        } else if (batch_.items.empty() && !Commands::mayTakeLong(*request)) {
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
    const std::size_t before = answers_.size();
    parts_.commands.answer(request, asker_, answers_, nullptr);
    const std::size_t bytes = answers_.size() - before;
    if (bytes > kBytesOfAnswers && !account_.hold(bytes)) {
        // The answer that is made when there is room may be another one.
        answers_.removeLast();
        // The input of a listing does not matter, and a find is short.
        const bool hasInput = request.header.code == QV_HOST_COMMAND_FIND;
        unanswered_ = {request.header, std::string(hasInput ? request.bytes : ""), bytes};
        return false;
    }
    return true;
}

// Begins a request whose answer may come later, if that is the next one. Nothing else may wait.
bool Conversation::begin() {
    const std::optional<Frame> request = reader_.next();
    if (!request || !Commands::mayTakeLong(*request)) {
        return false;
    }
    const bool isKnown = parts_.commands.answer(*request, asker_, answers_,
                                                [self = shared_from_this()](Outcome outcome) {
                                                    self->later_ = std::move(outcome);
                                                    self->wake();
                                                });
    laterNumber_ = request->header.number;
    pop();
    account_.hold(0);
    if (isKnown) {
        post(&Conversation::run);
    } else {
        wait_ = Wait::Later;
    }
    return true;
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
        sayGoodbye(socket_.native_handle());
        return;
    }
    if (!batch_.items.empty()) {
        parts_.commands.submit({shared_from_this(), &batch_});
        wait_ = Wait::Commit;
        return;
    }
    const std::size_t bytes = bytesToHold();
    if (bytes != account_.held() && !account_.hold(bytes, shared_from_this())) {
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
    while (answers_.size() != 0) {
        asio::error_code error;
        std::string_view first;
        static_cast<void>(answers_.pieces(&first, 1));
        // Most answers are one piece, which costs less than a list of one piece.
        const std::size_t sent = first.size() == answers_.size()
                                     ? socket_.write_some(asio::buffer(first), error)
                                     : socket_.write_some(Pieces(answers_), error);
        if (error && error != asio::error::would_block) {
            sayGoodbye(socket_.native_handle());
            return false;
        }
        answers_.sent(sent);
        if (error) {
            if (sendUntil_ == Clock::time_point()) {
                sendUntil_ = after(Clock::now(), parts_.limits.frameTimeout);
            }
            client_.writes(sendUntil_);
            socket_.async_wait(asio::socket_base::wait_write,
                               [self = shared_from_this()](const asio::error_code& /*error*/) {
                                   self->client_.works();
                                   self->go(&Conversation::proceed);
                               });
            return false;
        }
    }
    sendUntil_ = {};
    return true;
}

// Ends the conversation because nothing more comes. All answers are sent.
void Conversation::end() {
    switch (client_.ending()) {
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
    parts_.counts.refusal(code);
    answers_.append(code, header ? header->number : 0, text);
}

}  // namespace

void serveClient(ClientSocket socket, uid_t user, ClientThread& thread, const ServingParts& parts) {
    std::make_shared<Conversation>(std::move(socket), user, thread, parts)->start();
}

}  // namespace qv::host
