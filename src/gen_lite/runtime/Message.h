// The base of every generated message: a message is the sum of its fields.
//
// The definition files are compiled by the project's own protoc plug-in, because the wire behaviour
// that the product's components rely on is an older one than that of the runtime's generated code:
//   - unknown fields, known numbers with another wire type, and enum numbers that the enum does not
//     name are dropped, never kept and written again;
//   - input that is cut leaves what was really there, and nothing that was made up: the handlers
//     act on a partly decoded message, so a made-up value would become a registered service;
//   - misuse stops the process (Checks.h).
//
// The plug-in generates what differs from message to message: a class with its accessors, and
// fields(), its fields in ascending number order. All that messages do alike stands here, once, as
// a walk over fields(). Every road into a message leads through MergePartialFromCodedStream(), also
// the ones that start at a MessageLite pointer.
//
// A message is not safe to use from several threads at once unless all of them only read.
#ifndef QV_GEN_LITE_RUNTIME_MESSAGE_H
#define QV_GEN_LITE_RUNTIME_MESSAGE_H

#include <google/protobuf/message_lite.h>
#include <google/protobuf/parse_context.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <tuple>

#include "runtime/Fields.h"

// A message stands in for the classes of one generation of the runtime and calls what these call.
static_assert(GOOGLE_PROTOBUF_VERSION / 1000 == 3021, "made for Protocol Buffers 3.21");

namespace qor::kevra::wire {

using google::protobuf::MessageLite;
using google::protobuf::internal::ParseContext;

// The bytes of an input that a parse reads. At this limit the parse fails, and the message keeps
// what came before, as at the end of an input that is cut.
constexpr int kInputLimit = 64 << 20;

// How deep groups and messages may nest within the outermost message.
constexpr int kRecursionLimit = 64;

// Gives a stream these two limits in place of the runtime's own defaults. A limit that the caller
// has set stays, unless it is the runtime's default.
void setLimits(CodedInputStream* input);

// Reads past a field of any number, zero too, with all that it holds. False when it is malformed,
// cut, or nested too deep.
bool skipField(CodedInputStream* input, std::uint32_t tag);

// Reads what is left of a parse that the runtime began, up to one byte more than kInputLimit.
std::string readRemaining(const char** position, ParseContext* context);

template <class T>
class Message : public MessageLite {
  public:
    // Lets an arena make the message with its elements, see Arena::CreateMessage().
    using InternalArenaConstructable_ = void;

    static const T& default_instance() {
        static const T instance;
        return instance;
    }

    void Clear() final {
        forEachField([](auto& field) { field.clear(); });
    }

    // Fields present in `from` replace this message's, lists are appended, embedded messages
    // merged.
    void MergeFrom(const T& from) {
        if (&from == this) {
            failCheck("(&from) != (this)");
        }
        forEachFieldPair(from, [](auto& field, const auto& other) { field.mergeFrom(other); });
    }
    void CheckTypeAndMergeFrom(const MessageLite& from) final {
        MergeFrom(static_cast<const T&>(from));
    }
    void CopyFrom(const T& from) {
        if (&from != this) {
            Clear();
            MergeFrom(from);
        }
    }

    void Swap(T* other) {
        if (other == this) {
            return;
        }
        if (GetArena() == other->GetArena()) {
            forEachFieldPair(*other,
                             [](auto& field, auto& otherField) { field.swap(&otherField); });
            return;
        }
        T copy(self());
        CopyFrom(*other);
        other->CopyFrom(copy);
    }
    friend void swap(T& a, T& b) { a.Swap(&b); }

    // Whether every required field is present.
    bool IsInitialized() const final {
        return std::apply([](const auto&... field) { return (field.isInitialized() && ...); },
                          self().fields());
    }

    // The parse functions replace the message's contents. They are false for malformed bytes and,
    // unless partial, when a required field is missing; what was read stays in the message. A
    // negative size decodes nothing and reads nothing.
    bool ParseFromArray(const void* data, int size) {
        return ParsePartialFromArray(data, size) && IsInitializedWithErrors();
    }
    bool ParsePartialFromArray(const void* data, int size) {
        Clear();
        return size >= 0 && mergePartialFromBytes(data, static_cast<std::size_t>(size));
    }
    bool ParseFromString(const std::string& data) {
        return ParsePartialFromString(data) && IsInitializedWithErrors();
    }
    bool ParsePartialFromString(const std::string& data) {
        Clear();
        return mergePartialFromBytes(data.data(), data.size());
    }
    bool ParseFromCodedStream(CodedInputStream* input) {
        return ParsePartialFromCodedStream(input) && IsInitializedWithErrors();
    }
    bool ParsePartialFromCodedStream(CodedInputStream* input) {
        Clear();
        return MergePartialFromCodedStream(input);
    }
    bool MergeFromCodedStream(CodedInputStream* input) {
        return MergePartialFromCodedStream(input) && IsInitializedWithErrors();
    }

    // Reads fields until the input's end, its limit, or an end-group tag. The caller asks the
    // input's ConsumedEntireMessage() which of them it was.
    bool MergePartialFromCodedStream(CodedInputStream* input) {
        setLimits(input);
        return readFields(input);
    }

    // Does the same for a message within another, whose input has its limit.
    bool readFields(CodedInputStream* input) {
        return std::apply(
            [input](auto&... field) {
                while (const std::uint32_t tag = input->ReadTag()) {
                    bool good = false;
                    const bool known =
                        ((field.accepts(tag) && (good = field.read(tag, input), true)) || ...);
                    if (!known) {
                        if (WireFormat::GetTagWireType(tag) == WireFormat::WIRETYPE_END_GROUP) {
                            return true;
                        }
                        good = skipField(input, tag);
                    }
                    if (!good) {
                        return false;
                    }
                }
                return true;
            },
            self().fields());
    }

    // The encoded size in bytes, cached in this message and in the embedded ones for the
    // serialisation that follows.
    std::size_t ByteSizeLong() const final {
        std::size_t size = 0;
        forEachField([&size](const auto& field) { size += field.byteSize(); });
        // Threads that serialise one message at the same time would pass its memory back and forth
        // if they wrote what is there.
        if (GetCachedSize() != static_cast<int>(size)) {
            cachedSize_.store(static_cast<int>(size), std::memory_order_relaxed);
        }
        return size;
    }
    int ByteSize() const { return static_cast<int>(ByteSizeLong()); }
    int GetCachedSize() const final { return cachedSize_.load(std::memory_order_relaxed); }

    // The runtime's own two roads: what it serialises with, and what it parses with when it is
    // given a MessageLite.
    std::uint8_t* _InternalSerialize(std::uint8_t* target,
                                     EpsCopyOutputStream* stream) const final {
        forEachField([&](const auto& field) { target = field.write(target, stream); });
        return target;
    }
    const char* _InternalParse(const char* position, ParseContext* context) final {
        const std::string bytes = readRemaining(&position, context);
        return mergePartialFromBytes(bytes.data(), bytes.size()) ? position : nullptr;
    }

    std::string GetTypeName() const final { return T::kTypeName; }

  protected:
    explicit Message(Arena* arena) : MessageLite(arena) {}

    T& self() { return static_cast<T&>(*this); }
    const T& self() const { return static_cast<const T&>(*this); }

  private:
    template <class Action>
    void forEachField(Action action) {
        std::apply([&action](auto&... field) { (action(field), ...); }, self().fields());
    }
    template <class Action>
    void forEachField(Action action) const {
        std::apply([&action](const auto&... field) { (action(field), ...); }, self().fields());
    }
    // The same field of this message and of another one of the type.
    template <class Other, class Action>
    void forEachFieldPair(Other& other, Action action) {
        std::apply(
            [&](auto&... field) {
                std::apply([&](auto&... otherField) { (action(field, otherField), ...); },
                           other.fields());
            },
            self().fields());
    }

    // Hands on one byte more than a parse reads, so that the parse fails at its limit.
    bool mergePartialFromBytes(const void* data, std::size_t size) {
        const std::size_t handedOn = std::min<std::size_t>(size, kInputLimit + 1);
        CodedInputStream input(static_cast<const std::uint8_t*>(data), static_cast<int>(handedOn));
        input.SetRecursionLimit(kRecursionLimit);
        if (size > kInputLimit) {
            input.SetTotalBytesLimit(kInputLimit);
        }
        return readFields(&input) && input.ConsumedEntireMessage();
    }

    // Atomic because threads that only read a message may serialise it at the same time.
    mutable std::atomic<int> cachedSize_{0};
};

}  // namespace qor::kevra::wire

#endif  // QV_GEN_LITE_RUNTIME_MESSAGE_H
