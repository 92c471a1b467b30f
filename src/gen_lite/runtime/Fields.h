// SPDX-License-Identifier: Apache-2.0

// Defines the kinds of fields that a message consists of.
//
// A field holds its value, and knows whether it is present. Each operation of a message calls the
// same operation of its fields (Message.h). Every kind has these members, and the accessors that
// the generated class offers:
//   clear, swap, mergeFrom  do what the message's operations of these names do.
//   isInitialized           returns false if the field is required and absent.
//   byteSize, write         return the size of the encoded field with its tags, and write it. An
//                           absent field has the size 0.
//   accepts                 returns whether a tag belongs to the field.
//   read                    reads the value after the tag. Returns false if the input is malformed
//                           or cut.
// A field on an arena keeps its elements there. It may only be swapped with a field on that arena.
//
// A parse keeps only what the input holds. A number becomes present when all of it was read. A
// string becomes present with its tag, and holds the bytes before a cut. A list keeps the elements
// before a cut.
#ifndef QV_GEN_LITE_RUNTIME_FIELDS_H
#define QV_GEN_LITE_RUNTIME_FIELDS_H

#include <google/protobuf/arena.h>
#include <google/protobuf/io/coded_stream.h>
#include <google/protobuf/repeated_field.h>
#include <google/protobuf/repeated_ptr_field.h>

#include <string>
#include <utility>

#include "runtime/Codecs.h"

namespace qor::kevra::wire {

using google::protobuf::Arena;
using google::protobuf::RepeatedField;
using google::protobuf::RepeatedPtrField;
using google::protobuf::io::CodedOutputStream;
using google::protobuf::io::EpsCopyOutputStream;

enum class Label { kOptional, kRequired };

constexpr std::uint32_t tagOf(int number, WireFormat::WireType wireType) {
    return (static_cast<std::uint32_t>(number) << 3) | static_cast<std::uint32_t>(wireType);
}

constexpr std::size_t tagSizeOf(int number) {
    std::size_t size = 1;
    for (std::uint32_t rest = tagOf(number, WireFormat::WIRETYPE_VARINT) >> 7; rest != 0;
         rest >>= 7) {
        ++size;
    }
    return size;
}

inline std::size_t lengthDelimitedSize(std::size_t size) {
    return CodedOutputStream::VarintSize32(static_cast<std::uint32_t>(size)) + size;
}

// Reads a length, and then as many bytes with `readContents`. Returns false if `readContents` fails
// or leaves bytes unread. If the length overruns the input, reads to the end of the input and
// returns false.
template <class ReadContents>
bool readDelimited(CodedInputStream* input, ReadContents readContents) {
    std::uint32_t length = 0;
    if (!input->ReadVarint32(&length)) {
        return false;
    }
    const std::int64_t end = std::int64_t{input->CurrentPosition()} + length;
    const auto enclosing = input->PushLimit(static_cast<int>(length));
    if (!readContents() || input->CurrentPosition() != end) {
        return false;
    }
    input->PopLimit(enclosing);
    return true;
}

template <class T>
bool readMessage(CodedInputStream* input, T* message) {
    return readDelimited(input, [&] {
        if (!input->IncrementRecursionDepth() || !message->readFields(input) ||
            !input->ConsumedEntireMessage()) {
            return false;
        }
        input->DecrementRecursionDepth();
        return true;
    });
}

// Writes an embedded message with its tag and its size. ByteSizeLong() has to cache the size
// before.
template <class T>
std::uint8_t* writeMessage(int number, const T& message, std::uint8_t* target,
                           EpsCopyOutputStream* stream) {
    target = stream->EnsureSpace(target);
    target = WireFormat::WriteTagToArray(number, WireFormat::WIRETYPE_LENGTH_DELIMITED, target);
    target = CodedOutputStream::WriteVarint32ToArray(
        static_cast<std::uint32_t>(message.GetCachedSize()), target);
    return message._InternalSerialize(target, stream);
}

// Holds one number, bool or enum.
template <int number, class Codec, Label label, auto defaultValue>
class ScalarField {
  public:
    using Value = typename Codec::Value;

    explicit ScalarField(Arena* /*arena*/) {}

    bool has() const { return present_; }
    Value get() const { return value_; }
    void set(Value value) {
        Codec::check(value);
        value_ = value;
        present_ = true;
    }

    void clear() {
        value_ = kDefault;
        present_ = false;
    }
    void swap(ScalarField* other) {
        std::swap(value_, other->value_);
        std::swap(present_, other->present_);
    }
    void mergeFrom(const ScalarField& from) {
        if (from.present_) {
            set(from.value_);
        }
    }

    bool isInitialized() const { return label == Label::kOptional || present_; }
    std::size_t byteSize() const { return present_ ? tagSizeOf(number) + Codec::size(value_) : 0; }
    std::uint8_t* write(std::uint8_t* target, EpsCopyOutputStream* stream) const {
        if (!present_) {
            return target;
        }
        target = WireFormat::WriteTagToArray(number, WireFormat::WIRETYPE_VARINT,
                                             stream->EnsureSpace(target));
        return Codec::write(value_, target);
    }

    static bool accepts(std::uint32_t tag) {
        return tag == tagOf(number, WireFormat::WIRETYPE_VARINT);
    }
    bool read(std::uint32_t /*tag*/, CodedInputStream* input) {
        Value value{};
        if (!Codec::read(input, &value)) {
            return false;
        }
        if (Codec::isKnown(value)) {
            value_ = value;
            present_ = true;
        }
        return true;
    }

  private:
    static constexpr Value kDefault = static_cast<Value>(defaultValue);

    Value value_ = kDefault;
    bool present_ = false;
};

// Holds one string of arbitrary bytes. An absent string reads as the empty string.
template <int number, Label label>
class StringField {
  public:
    explicit StringField(Arena* /*arena*/) {}

    bool has() const { return present_; }
    const std::string& get() const { return value_; }
    std::string* mutableValue() {
        present_ = true;
        return &value_;
    }

    // Keeps a small buffer for reuse and frees a large one. Otherwise a message that is reused
    // would hold the memory of the largest text that it ever had.
    void clear() {
        if (value_.capacity() > kKeptCapacity) {
            std::string().swap(value_);
        }
        value_.clear();
        present_ = false;
    }
    void swap(StringField* other) {
        value_.swap(other->value_);
        std::swap(present_, other->present_);
    }
    void mergeFrom(const StringField& from) {
        if (from.present_) {
            *mutableValue() = from.value_;
        }
    }

    bool isInitialized() const { return label == Label::kOptional || present_; }
    std::size_t byteSize() const {
        return present_ ? tagSizeOf(number) + lengthDelimitedSize(value_.size()) : 0;
    }
    std::uint8_t* write(std::uint8_t* target, EpsCopyOutputStream* stream) const {
        return present_ ? stream->WriteString(number, value_, target) : target;
    }

    static bool accepts(std::uint32_t tag) {
        return tag == tagOf(number, WireFormat::WIRETYPE_LENGTH_DELIMITED);
    }
    bool read(std::uint32_t /*tag*/, CodedInputStream* input) {
        return WireFormat::ReadString(input, mutableValue());
    }

  private:
    static constexpr std::size_t kKeptCapacity = 128;

    std::string value_;
    bool present_ = false;
};

// Holds one embedded message. The first mutable access creates it. An absent message reads as the
// default instance.
template <int number, class T, Label label>
class MessageField {
  public:
    explicit MessageField(Arena* arena) : arena_(arena) {}
    ~MessageField() {
        if (arena_ == nullptr) {
            delete value_;
        }
    }
    MessageField(const MessageField&) = delete;
    MessageField& operator=(const MessageField&) = delete;

    bool has() const { return present_; }
    const T& get() const { return value_ != nullptr ? *value_ : T::default_instance(); }
    T* mutableValue() {
        if (value_ == nullptr) {
            value_ = Arena::CreateMessage<T>(arena_);
        }
        present_ = true;
        return value_;
    }

    // Keeps the message for reuse.
    void clear() {
        if (value_ != nullptr) {
            value_->Clear();
        }
        present_ = false;
    }
    void swap(MessageField* other) {
        std::swap(value_, other->value_);
        std::swap(present_, other->present_);
    }
    void mergeFrom(const MessageField& from) {
        if (from.present_) {
            mutableValue()->MergeFrom(from.get());
        }
    }

    bool isInitialized() const {
        return present_ ? value_->IsInitialized() : label == Label::kOptional;
    }
    std::size_t byteSize() const {
        return present_ ? tagSizeOf(number) + lengthDelimitedSize(value_->ByteSizeLong()) : 0;
    }
    std::uint8_t* write(std::uint8_t* target, EpsCopyOutputStream* stream) const {
        return present_ ? writeMessage(number, *value_, target, stream) : target;
    }

    static bool accepts(std::uint32_t tag) {
        return tag == tagOf(number, WireFormat::WIRETYPE_LENGTH_DELIMITED);
    }
    bool read(std::uint32_t /*tag*/, CodedInputStream* input) {
        return readMessage(input, mutableValue());
    }

  private:
    Arena* arena_;
    T* value_ = nullptr;
    bool present_ = false;
};

// Holds a list of numbers or bools. A parse accepts the packed and the unpacked form, also mixed.
// The field writes the unpacked form.
template <int number, class Codec>
class RepeatedScalarField {
  public:
    using Value = typename Codec::Value;
    using List = RepeatedField<Value>;

    explicit RepeatedScalarField(Arena* arena) : list_(arena) {}

    int size() const { return list_.size(); }
    Value get(int index) const {
        checkIndex(index, size());
        return list_.Get(index);
    }
    void set(int index, Value value) {
        checkIndex(index, size());
        list_.Set(index, value);
    }
    void add(Value value) { list_.Add(value); }
    const List& list() const { return list_; }
    List* mutableList() { return &list_; }

    void clear() { list_.Clear(); }
    void swap(RepeatedScalarField* other) { list_.Swap(&other->list_); }
    void mergeFrom(const RepeatedScalarField& from) { list_.MergeFrom(from.list_); }

    static bool isInitialized() { return true; }
    std::size_t byteSize() const {
        std::size_t size = tagSizeOf(number) * static_cast<std::size_t>(list_.size());
        for (const Value value : list_) {
            size += Codec::size(value);
        }
        return size;
    }
    std::uint8_t* write(std::uint8_t* target, EpsCopyOutputStream* stream) const {
        for (const Value value : list_) {
            target = WireFormat::WriteTagToArray(number, WireFormat::WIRETYPE_VARINT,
                                                 stream->EnsureSpace(target));
            target = Codec::write(value, target);
        }
        return target;
    }

    static bool accepts(std::uint32_t tag) { return tag == kTag || tag == kPackedTag; }
    bool read(std::uint32_t tag, CodedInputStream* input) {
        if (tag == kTag) {
            return readOne(input);
        }
        return readDelimited(input, [&] {
            while (input->BytesUntilLimit() > 0) {
                if (!readOne(input)) {
                    return false;
                }
            }
            return true;
        });
    }

  private:
    static constexpr std::uint32_t kTag = tagOf(number, WireFormat::WIRETYPE_VARINT);
    static constexpr std::uint32_t kPackedTag =
        tagOf(number, WireFormat::WIRETYPE_LENGTH_DELIMITED);

    bool readOne(CodedInputStream* input) {
        Value value{};
        if (!Codec::read(input, &value)) {
            return false;
        }
        list_.Add(value);
        return true;
    }

    List list_;
};

// Holds a list of strings or of messages. Its elements keep their addresses while the list grows.
template <class T>
class RepeatedElements {
  public:
    using List = RepeatedPtrField<T>;

    explicit RepeatedElements(Arena* arena) : list_(arena) {}

    int size() const { return list_.size(); }
    const T& get(int index) const {
        checkIndex(index, size());
        return list_.Get(index);
    }
    T* mutableElement(int index) {
        checkIndex(index, size());
        return list_.Mutable(index);
    }
    T* add() {
        // Add() creates the element before it grows the list. It would leak the element if memory
        // for the growth ran out, so the list grows here.
        if (list_.size() == list_.Capacity()) {
            list_.Reserve(list_.size() + 1);
        }
        return list_.Add();
    }
    const List& list() const { return list_; }
    List* mutableList() { return &list_; }

    // Keeps the elements for reuse.
    void clear() { list_.Clear(); }
    void swap(RepeatedElements* other) { list_.Swap(&other->list_); }
    void mergeFrom(const RepeatedElements& from) { list_.MergeFrom(from.list_); }

  protected:
    List list_;
};

template <int number>
class RepeatedStringField : public RepeatedElements<std::string> {
  public:
    using RepeatedElements::RepeatedElements;

    static bool isInitialized() { return true; }
    std::size_t byteSize() const {
        std::size_t size = tagSizeOf(number) * static_cast<std::size_t>(list_.size());
        for (const std::string& element : list_) {
            size += lengthDelimitedSize(element.size());
        }
        return size;
    }
    std::uint8_t* write(std::uint8_t* target, EpsCopyOutputStream* stream) const {
        for (const std::string& element : list_) {
            target = stream->WriteString(number, element, target);
        }
        return target;
    }

    static bool accepts(std::uint32_t tag) {
        return tag == tagOf(number, WireFormat::WIRETYPE_LENGTH_DELIMITED);
    }
    bool read(std::uint32_t /*tag*/, CodedInputStream* input) {
        return WireFormat::ReadString(input, add());
    }
};

template <int number, class T>
class RepeatedMessageField : public RepeatedElements<T> {
  public:
    using RepeatedElements<T>::RepeatedElements;

    bool isInitialized() const {
        for (const T& element : this->list_) {
            if (!element.IsInitialized()) {
                return false;
            }
        }
        return true;
    }
    std::size_t byteSize() const {
        std::size_t size = tagSizeOf(number) * static_cast<std::size_t>(this->list_.size());
        for (const T& element : this->list_) {
            size += lengthDelimitedSize(element.ByteSizeLong());
        }
        return size;
    }
    std::uint8_t* write(std::uint8_t* target, EpsCopyOutputStream* stream) const {
        for (const T& element : this->list_) {
            target = writeMessage(number, element, target, stream);
        }
        return target;
    }

    static bool accepts(std::uint32_t tag) {
        return tag == tagOf(number, WireFormat::WIRETYPE_LENGTH_DELIMITED);
    }
    bool read(std::uint32_t /*tag*/, CodedInputStream* input) {
        return readMessage(input, this->add());
    }
};

}  // namespace qor::kevra::wire

#endif  // QV_GEN_LITE_RUNTIME_FIELDS_H
