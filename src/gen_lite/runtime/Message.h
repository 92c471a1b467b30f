// SPDX-License-Identifier: Apache-2.0

// Defines Message, the base class of every generated message.
//
// The project's own protoc plug-in compiles the definition files, because the product's components
// rely on an older wire behaviour than that of the runtime's generated code:
//   - A parse drops unknown fields, known numbers with another wire type, and enum numbers that the
//     enum does not name. The runtime's code would keep them and write them again
//     (compatibility C29).
//   - After a parse of input that is cut, a message holds only values that the input held. The
//     handlers act on a partly decoded message, so an invented value would become a registered
//     service.
//   - An input of more than 64 MiB is read as one that is cut there.
//   - Misuse ends the process (Checks.h).
//
// The plug-in generates a class with its accessors, and fields(), which returns the fields in
// ascending order of their numbers. Every operation that all messages share is defined here as a
// walk over fields(). Every function that parses, also one of MessageLite, calls readFields().
//
// Several threads may use a message at once only if all of them only read it.
#ifndef QV_GEN_LITE_RUNTIME_MESSAGE_H
#define QV_GEN_LITE_RUNTIME_MESSAGE_H

#include <google/protobuf/message_lite.h>
#include <google/protobuf/parse_context.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <tuple>

#include "runtime/Fields.h"

// A message overrides internal functions of the runtime, which differ between its versions.
static_assert(GOOGLE_PROTOBUF_VERSION / 1000 == 3021, "made for Protocol Buffers 3.21");

namespace qor::kevra::wire {

using google::protobuf::MessageLite;
using google::protobuf::internal::ParseContext;

// A parse reads at most this many bytes of an input. The parse of a longer input fails there, and
// the message keeps what came before.
constexpr int kInputLimit = 64 << 20;

// Groups and messages may nest to this depth within the outermost message.
constexpr int kRecursionLimit = 64;

// Gives a stream these two limits in place of the runtime's own defaults. A limit that the caller
// has set stays, unless it is the runtime's default.
void setLimits(CodedInputStream* input);

// Reads past the value of a field whose tag was read, whatever its number. Returns false if the
// value is malformed, is cut, or nests too deep.
bool skipField(CodedInputStream* input, std::uint32_t tag);

// Returns the rest of the input of a parse that the runtime has begun. Reads at most one byte more
// than kInputLimit.
std::string readRemaining(const char** position, ParseContext* context);

template <class T>
class Message : public MessageLite {
  public:
    // Lets Arena::CreateMessage() construct the message and its elements on the arena.
    using InternalArenaConstructable_ = void;

    static const T& default_instance() {
        static const T instance;
        return instance;
    }

    void Clear() final {
        forEachField([](auto& field) { field.clear(); });
    }

    // Replaces this message's fields by those that are present in `from`. Appends lists, and merges
    // embedded messages.
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

    // Returns whether every required field is present.
    bool IsInitialized() const final {
        return std::apply([](const auto&... field) { return (field.isInitialized() && ...); },
                          self().fields());
    }

    // The parse functions replace the message's contents. They return false if the bytes are
    // malformed. All but the partial ones also return false if a required field is missing. The
    // message keeps what was read. With a negative size they clear the message and read nothing.
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

    // Reads fields until the input ends, a limit is reached, or an end-group tag comes. The input's
    // ConsumedEntireMessage() tells the caller whether the message ended properly.
    bool MergePartialFromCodedStream(CodedInputStream* input) {
        setLimits(input);
        return readFields(input);
    }

    // Does the same with an input that has its limits. Embedded messages are read with it.
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

    // Returns the encoded size in bytes. Caches it in this message and in the embedded ones,
    // because serialisation uses the cached sizes.
    std::size_t ByteSizeLong() const final {
        std::size_t size = 0;
        forEachField([&size](const auto& field) { size += field.byteSize(); });
        // A store of the same value would slow down other threads that serialise this message.
        if (GetCachedSize() != static_cast<int>(size)) {
            cachedSize_.store(static_cast<int>(size), std::memory_order_relaxed);
        }
        return size;
    }
    int ByteSize() const { return static_cast<int>(ByteSizeLong()); }
    int GetCachedSize() const final { return cachedSize_.load(std::memory_order_relaxed); }

    // The runtime calls these two functions when it serialises or parses a MessageLite.
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
    // Calls the action with each field of this message and the same field of the other one.
    template <class Other, class Action>
    void forEachFieldPair(Other& other, Action action) {
        std::apply(
            [&](auto&... field) {
                std::apply([&](auto&... otherField) { (action(field, otherField), ...); },
                           other.fields());
            },
            self().fields());
    }

    // Hands at most one byte more than kInputLimit to the parse, which fails at that limit.
    bool mergePartialFromBytes(const void* data, std::size_t size) {
        const std::size_t handedOn = std::min<std::size_t>(size, kInputLimit + 1);
        CodedInputStream input(static_cast<const std::uint8_t*>(data), static_cast<int>(handedOn));
        input.SetRecursionLimit(kRecursionLimit);
        if (size > kInputLimit) {
            input.SetTotalBytesLimit(kInputLimit);
        }
        return readFields(&input) && input.ConsumedEntireMessage();
    }

    // Is atomic because threads that only read a message may serialise it at the same time.
    mutable std::atomic<int> cachedSize_{0};
};

}  // namespace qor::kevra::wire

#endif  // QV_GEN_LITE_RUNTIME_MESSAGE_H
