// SPDX-License-Identifier: Apache-2.0

// clang-format off
// Reads binary property lists. The grammar of the accepted documents follows. All numbers have their
// most significant byte first.
//
//   document = "bplist0" and any byte; objects; offset table; trailer
//   trailer  = 6 bytes without meaning; offset size: 1 byte; reference size: 1 byte;
//              number of objects, number of the root, position of the offset table: 8 bytes each
//   offset table = the position of each object: offset size bytes each
//   object   = a marker byte, whose upper half is the kind; and the contents of that kind:
//     00       null            08  false           09  true
//     1n       whole number of 2^n bytes: unsigned up to 4, signed in 8, the low 8 of 16 unsigned
//     22, 23   real number of 4 or 8 bytes
//     33       date: a real number of 8 bytes, seconds since 2001-01-01T00:00:00Z
//     4n       data of n bytes
//     5n       string of n ISO Latin 1 bytes
//     6n       string of n UTF-16 units, at least one
//     8n       archive's reference: number of n+1 bytes, which must be below 2^32
//     An, Cn   array, set: n references to objects
//     Dn       dictionary: n references to its keys, then n to their values; no key is a container
//   reference = the number of an object: reference size bytes
//   n = F    the length is a whole number that follows, as an object with its marker
//
// The numbers in the trailer must fit the document exactly, and both sizes must be large enough for
// the numbers that they hold. Sizes may be odd or over 8 bytes; the low 8 bytes of such a number count.
// Of equal keys the first counts.
//
// A document may refer to an object more than once. The tree then contains the object as often, so a
// small document could stand for a huge tree, or for an endless one if a container holds itself. So the
// depth, the number of references and the size of the written tree are limited. A document that does
// not repeat its objects has fewer references than bytes.
// clang-format on
#include "BinaryReader.h"

#include <algorithm>
#include <cstring>

#include "Buffer.h"
#include "Data.h"
#include "Date.h"
#include "Limits.h"
#include "Number.h"
#include "Set.h"
#include "String.h"
#include "Tree.h"
#include "Uid.h"

namespace cf {

namespace {

constexpr std::string_view kMagic = "bplist0";
constexpr std::size_t kHeaderSize = 8;
constexpr std::size_t kTrailerSize = 32;

enum Kind : unsigned char {
    kSimple = 0x0,
    kWhole = 0x1,
    kReal = 0x2,
    kDate = 0x3,
    kData = 0x4,
    kLatin1 = 0x5,
    kUtf16 = 0x6,
    kUid = 0x8,
    kArray = 0xA,
    kSet = 0xC,
    kDictionary = 0xD,
};

const unsigned char* bytesOf(std::string_view text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

// Returns the low 8 of `size` bytes. Nearly all references and offsets have 1 or 2 bytes.
std::uint64_t readSized(const unsigned char* bytes, std::size_t size) {
    if (size == 1) {
        return bytes[0];
    }
    std::uint64_t number = static_cast<std::uint64_t>(bytes[0]) << 8 | bytes[1];
    for (std::size_t at = 2; at < size; ++at) {
        number = number << 8 | bytes[at];
    }
    return number;
}

double readDouble(const unsigned char* bytes) {
    const std::uint64_t bits = readSized(bytes, 8);
    double real = 0;
    std::memcpy(&real, &bits, sizeof real);
    return real;
}

float readFloat(const unsigned char* bytes) {
    const auto bits = static_cast<std::uint32_t>(readSized(bytes, 4));
    float real = 0;
    std::memcpy(&real, &bits, sizeof real);
    return real;
}

// Returns whether a number of `size` bytes can be as large as `limit`.
bool reaches(std::size_t size, std::uint64_t limit) {
    return size >= 8 || limit >> (8 * size) == 0;
}

class BinaryReader {
  public:
    BinaryReader(std::string_view document, bool containersAreMutable)
        : document_(document),
          referencesLeft_(std::max(document.size(), kReferencesAlwaysAllowed)),
          tree_(containersAreMutable, Present::Keep) {}
    BinaryReader(const BinaryReader&) = delete;
    BinaryReader& operator=(const BinaryReader&) = delete;
    ~BinaryReader() {
        for (std::size_t at = 0; leaves_ != nullptr && at < objectCount_; ++at) {
            if (leaves_[at] != nullptr) {
                release(leaves_[at]);
            }
        }
        std::free(leaves_);
    }

    const Object* read(Refusal& refusal) {
        const Object* const root = tree_.finish(readTrailer() ? readTree() : nullptr, &reason_);
        if (root == nullptr) {
            refusal = {reason_, 0};
        }
        return root;
    }

  private:
    // The kind and the length of an object, and the bytes behind its marker.
    struct Header {
        Kind kind;
        unsigned char low;
        std::size_t length;
        const unsigned char* contents;
    };

    // The references of a container that is being read, and the next one to read.
    struct Level {
        Kind kind;
        const unsigned char* references;
        std::size_t count;
        std::size_t next;
    };

    std::nullptr_t refuse(const char* reason) {
        reason_ = reason;
        return nullptr;
    }

    bool fail(const char* reason) {
        refuse(reason);
        return false;
    }

    const Object* made(const Object* object) {
        return object == nullptr ? refuse(kOutOfMemory) : object;
    }

    bool readTrailer() {
        if (document_.size() < kHeaderSize + 1 + kTrailerSize) {
            return fail("too short");
        }
        const unsigned char* const trailer = bytesOf(document_) + (document_.size() - kTrailerSize);
        offsetSize_ = trailer[6];
        referenceSize_ = trailer[7];
        const std::uint64_t count = readSized(trailer + 8, 8);
        const std::uint64_t root = readSized(trailer + 16, 8);
        const std::uint64_t table = readSized(trailer + 24, 8);
        const std::size_t end = document_.size() - kTrailerSize;
        if (offsetSize_ == 0 || referenceSize_ == 0 || count == 0 || root >= count ||
            table < kHeaderSize + 1 || table >= end) {
            return fail("a trailer with impossible numbers");
        }
        if ((end - table) % offsetSize_ != 0 || (end - table) / offsetSize_ != count) {
            return fail("a trailer that does not fit the document");
        }
        if (!reaches(referenceSize_, count) || !reaches(offsetSize_, table)) {
            return fail("references or offsets of too few bytes");
        }
        objectCount_ = static_cast<std::size_t>(count);
        root_ = static_cast<std::size_t>(root);
        table_ = static_cast<std::size_t>(table);
        for (std::size_t at = 0; at < objectCount_; ++at) {
            if (offsetOf(at) >= table_) {
                return fail("an offset outside of the objects");
            }
        }
        leaves_ = static_cast<const Object**>(std::calloc(objectCount_, sizeof(void*)));
        return leaves_ != nullptr || fail(kOutOfMemory);
    }

    std::uint64_t offsetOf(std::size_t object) const {
        return readSized(bytesOf(document_) + table_ + object * offsetSize_, offsetSize_);
    }

    bool readHeader(std::size_t object, Header& header) {
        const std::uint64_t offset = offsetOf(object);
        if (offset < kHeaderSize) {
            return fail("an offset outside of the objects");
        }
        const unsigned char* const marker = bytesOf(document_) + offset;
        header.kind = static_cast<Kind>(*marker >> 4);
        header.low = *marker & 0xF;
        header.length = header.low;
        header.contents = marker + 1;
        const bool hasLength = header.kind == kData || header.kind == kLatin1 ||
                               header.kind == kUtf16 || header.kind >= kArray;
        if (!hasLength || header.low != 0xF) {
            return true;
        }
        if (bytesFrom(header.contents) == 0 || *header.contents >> 4 != kWhole) {
            return fail("a length that is no number");
        }
        const std::size_t size = std::size_t{1} << (*header.contents & 0xF);
        ++header.contents;
        if (!fits(header.contents, size, 1)) {
            return false;
        }
        const std::uint64_t length = readSized(header.contents, size);
        if (length > document_.size()) {
            return fail("an object that ends outside of the objects");
        }
        header.length = static_cast<std::size_t>(length);
        header.contents += size;
        return true;
    }

    // Returns the number of bytes up to the end of the objects.
    std::size_t bytesFrom(const unsigned char* bytes) const {
        return static_cast<std::size_t>(bytesOf(document_) + table_ - bytes);
    }

    bool fits(const unsigned char* bytes, std::size_t count, std::size_t size) {
        return count <= bytesFrom(bytes) / size ||
               fail("an object that ends outside of the objects");
    }

    // Counts a reference. Returns false if the document has used up its references.
    bool takeReference() {
        if (referencesLeft_ == 0) {
            return fail("more references than the document has room for");
        }
        --referencesLeft_;
        return true;
    }

    const Object* readTree() {
        std::size_t next = root_;
        for (;;) {
            const Object* value = nullptr;
            if (!readObject(next, value)) {
                return nullptr;
            }
            // Adds the value, and closes each container without further references.
            for (;;) {
                if (value != nullptr) {
                    if (tree_.depth() == 0) {
                        return value;
                    }
                    if (!tree_.add(value, &reason_)) {
                        return nullptr;
                    }
                }
                Level& level = levels_[tree_.depth() - 1];
                if (level.next < level.count) {
                    break;
                }
                value = closeContainer(level.kind);
                if (value == nullptr) {
                    return nullptr;
                }
            }
            Level& level = levels_[tree_.depth() - 1];
            const std::size_t index = level.next++;
            if (level.kind != kDictionary) {
                if (!readReference(level, index, next)) {
                    return nullptr;
                }
            } else if (!readKey(level, index) || !readReference(level, level.count + index, next)) {
                return nullptr;
            }
        }
    }

    bool readReference(const Level& level, std::size_t index, std::size_t& object) {
        const std::uint64_t number =
            readSized(level.references + index * referenceSize_, referenceSize_);
        if (number >= objectCount_) {
            return fail("a reference to no object");
        }
        object = static_cast<std::size_t>(number);
        return true;
    }

    bool readKey(const Level& level, std::size_t index) {
        std::size_t object = 0;
        Header header = {};
        if (!readReference(level, index, object) || !readHeader(object, header)) {
            return false;
        }
        if (header.kind >= kArray) {
            return fail("a container as a key");
        }
        const Object* const key = readLeaf(object, header);
        return key != nullptr && tree_.setKey(key, &reason_);
    }

    // Reads an object. Opens it if it is a container; otherwise sets `value`.
    bool readObject(std::size_t object, const Object*& value) {
        Header header = {};
        if (!readHeader(object, header)) {
            return false;
        }
        if (header.kind < kArray) {
            value = readLeaf(object, header);
            return value != nullptr;
        }
        const bool isDictionary = header.kind == kDictionary;
        if (!isDictionary && header.kind != kArray && header.kind != kSet) {
            return fail("an object of an unknown kind");
        }
        if (!fits(header.contents, header.length, referenceSize_ * (isDictionary ? 2 : 1)) ||
            !takeReference()) {
            return false;
        }
        if (!(isDictionary ? tree_.openDictionary(&reason_) : tree_.openArray(&reason_))) {
            return false;
        }
        levels_[tree_.depth() - 1] = {header.kind, header.contents, header.length, 0};
        return true;
    }

    const Object* closeContainer(Kind kind) {
        Ref<const Object> container(tree_.close());
        return kind == kSet ? made(makeSet(*asArray(container.get()))) : container.pass();
    }

    // Returns a reference to the leaf, which is created only once.
    const Object* readLeaf(std::size_t object, const Header& header) {
        if (!takeReference()) {
            return nullptr;
        }
        if (leaves_[object] == nullptr) {
            leaves_[object] = makeLeaf(header);
            if (leaves_[object] == nullptr) {
                return nullptr;
            }
        }
        retain(leaves_[object]);
        return leaves_[object];
    }

    const Object* makeLeaf(const Header& header) {
        switch (header.kind) {
            case kSimple:
                return makeSimple(header);
            case kWhole:
                return makeWhole(header);
            case kReal:
                return makeReal(header);
            case kDate:
                if (header.low != 3) {
                    return refuse("a date of another length than 8");
                }
                return fits(header.contents, 8, 1)
                           ? made(create<Date>(kCFAllocatorDefault, 0, readDouble(header.contents)))
                           : nullptr;
            case kData:
                return fits(header.contents, header.length, 1) ? made(makeData(textOf(header)))
                                                               : nullptr;
            case kLatin1:
                return fits(header.contents, header.length, 1)
                           ? made(makeStringFromLatin1(textOf(header)))
                           : nullptr;
            case kUtf16:
                return makeUtf16(header);
            case kUid:
                return makeUid(header);
            default:
                return refuse("an object of an unknown kind");
        }
    }

    static std::string_view textOf(const Header& header) {
        return {reinterpret_cast<const char*>(header.contents), header.length};
    }

    const Object* makeSimple(const Header& header) {
        switch (header.low) {
            case 0x0:
                return asObject(kCFNull);
            case 0x8:
                return asObject(kCFBooleanFalse);
            case 0x9:
                return asObject(kCFBooleanTrue);
            default:
                return refuse("an object of an unknown kind");
        }
    }

    const Object* makeWhole(const Header& header) {
        if (header.low > 4) {
            return refuse("a whole number of more than 16 bytes");
        }
        const std::size_t size = std::size_t{1} << header.low;
        if (!fits(header.contents, size, 1)) {
            return nullptr;
        }
        const std::uint64_t number = readSized(header.contents, size);
        return made(size == 8 ? makeNumber(static_cast<std::int64_t>(number)) : makeNumber(number));
    }

    const Object* makeReal(const Header& header) {
        if (header.low != 2 && header.low != 3) {
            return refuse("a real number of another length than 4 or 8");
        }
        if (!fits(header.contents, std::size_t{1} << header.low, 1)) {
            return nullptr;
        }
        Number number = {Number::Kind::Real, kCFNumberFloat64Type, {}};
        if (header.low == 2) {
            number.givenAs = kCFNumberFloat32Type;
            number.real = double{readFloat(header.contents)};
        } else {
            number.real = readDouble(header.contents);
        }
        return made(makeNumber(number));
    }

    const Object* makeUtf16(const Header& header) {
        if (header.length == 0) {
            return refuse("a UTF-16 string of no units");
        }
        if (!fits(header.contents, header.length, sizeof(UniChar))) {
            return nullptr;
        }
        Buffer<UniChar> units;
        if (!units.reserve(header.length)) {
            return refuse(kOutOfMemory);
        }
        for (std::size_t at = 0; at < header.length; ++at) {
            units.append(
                static_cast<UniChar>(header.contents[2 * at] << 8 | header.contents[2 * at + 1]));
        }
        return made(makeStringFromUnits(units.data(), units.size()));
    }

    const Object* makeUid(const Header& header) {
        const std::size_t size = header.low + std::size_t{1};
        if (!fits(header.contents, size, 1)) {
            return nullptr;
        }
        const std::uint64_t number = readSized(header.contents, size);
        if (number > UINT32_MAX) {
            return refuse("an archive's reference of more than 32 bits");
        }
        return made(create<Uid>(kCFAllocatorDefault, 0, static_cast<std::uint32_t>(number)));
    }

    const std::string_view document_;
    const char* reason_ = nullptr;

    // The numbers in the trailer.
    std::size_t offsetSize_ = 0;
    std::size_t referenceSize_ = 0;
    std::size_t objectCount_ = 0;
    std::size_t root_ = 0;
    std::size_t table_ = 0;

    std::size_t referencesLeft_;

    // The leaves that have been read, by their numbers.
    const Object** leaves_ = nullptr;
    Tree tree_;
    Level levels_[kMaximumNesting];  // The open containers of the tree.
};

}  // namespace

bool looksBinary(std::string_view document) {
    return document.substr(0, kMagic.size()) == kMagic;
}

const Object* readBinary(std::string_view document, bool containersAreMutable, Refusal& refusal) {
    return BinaryReader(document, containersAreMutable).read(refusal);
}

}  // namespace cf
