// SPDX-License-Identifier: Apache-2.0

// Creates documents: nested ones of any depth, and binary ones from their objects.
#ifndef QV_TESTS_DOCUMENTS_H
#define QV_TESTS_DOCUMENTS_H

#include <cstdint>
#include <string>
#include <vector>

namespace qv::tests {

inline std::string repeated(const std::string& text, std::size_t count) {
    std::string all;
    all.reserve(text.size() * count);
    for (std::size_t round = 0; round < count; ++round) {
        all += text;
    }
    return all;
}

inline std::string bigEndian(std::uint64_t number, std::size_t size) {
    std::string bytes(size, '\0');
    for (std::size_t index = size; index-- > 0; number >>= 8) {
        bytes[index] = static_cast<char>(number & 0xFF);
    }
    return bytes;
}

// The end of a binary document. BinaryDocument::trailer() returns the correct one.
struct BinaryTrailer {
    std::uint8_t offsetSize = 0;
    std::uint8_t referenceSize = 0;
    std::uint64_t objectCount = 0;
    std::uint64_t root = 0;
    std::uint64_t offsetTable = 0;

    std::string bytes() const {
        return std::string(6, '\0') + static_cast<char>(offsetSize) +
               static_cast<char>(referenceSize) + bigEndian(objectCount, 8) + bigEndian(root, 8) +
               bigEndian(offsetTable, 8);
    }
};

// Creates a binary document from its objects. Object 0 is the root.
class BinaryDocument {
  public:
    explicit BinaryDocument(std::uint8_t referenceSize = 1, std::uint8_t offsetSize = 4)
        : referenceSize_(referenceSize), offsetSize_(offsetSize) {}

    // Adds an object from its bytes and returns its number.
    std::uint64_t add(const std::string& object) {
        offsets_.push_back(body_.size());
        body_ += object;
        return offsets_.size() - 1;
    }
    std::uint64_t addArray(const std::vector<std::uint64_t>& elements) {
        return add(head(0xa0, elements.size()) + references(elements));
    }
    std::uint64_t addDictionary(const std::vector<std::uint64_t>& keys,
                                const std::vector<std::uint64_t>& values) {
        return add(head(0xd0, keys.size()) + references(keys) + references(values));
    }
    std::uint64_t addString(const std::string& ascii) {
        return add(head(0x50, ascii.size()) + ascii);
    }

    // Returns the marker of an object, with the count in it or behind it.
    static std::string head(unsigned marker, std::uint64_t count) {
        if (count < 15) {
            return {static_cast<char>(marker | count)};
        }
        return std::string(1, static_cast<char>(marker | 15)) + '\x13' + bigEndian(count, 8);
    }

    BinaryTrailer trailer() const {
        return {offsetSize_, referenceSize_, offsets_.size(), 0, body_.size()};
    }
    std::string bytes(const BinaryTrailer& trailer) const {
        std::string document = body_;
        for (const std::uint64_t offset : offsets_) {
            document += bigEndian(offset, offsetSize_);
        }
        return document + trailer.bytes();
    }
    std::string bytes() const { return bytes(trailer()); }

  private:
    std::string references(const std::vector<std::uint64_t>& objects) const {
        std::string bytes;
        for (const std::uint64_t object : objects) {
            bytes += bigEndian(object, referenceSize_);
        }
        return bytes;
    }

    std::uint8_t referenceSize_;
    std::uint8_t offsetSize_;
    std::string body_ = "bplist00";
    std::vector<std::uint64_t> offsets_;
};

// Returns arrays with references of two bytes. Each of the objects 0 to `depth` - 1 holds the next
// object. The caller adds object `depth`.
inline BinaryDocument nestedArrays(std::uint64_t depth) {
    BinaryDocument document(2);
    for (std::uint64_t level = 1; level <= depth; ++level) {
        document.addArray({level});
    }
    return document;
}

// Returns a binary document of the services 1 to `count`, which all refer to the same address.
inline std::string servicesWithOneAddress(std::uint64_t count, const std::string& address) {
    enum : std::uint64_t { kEntryKey = 1, kEntry, kListKey, kList, kIdKey, kAddressKey, kAddress };
    const std::uint64_t firstService = kAddress + 1;
    const std::uint64_t firstId = firstService + count;
    std::vector<std::uint64_t> services(count);
    for (std::uint64_t index = 0; index < count; ++index) {
        services[index] = firstService + index;
    }
    BinaryDocument document(2);
    document.addDictionary({kEntryKey}, {kEntry});
    document.addString("Address");
    document.addDictionary({kListKey}, {kList});
    document.addString("services");
    document.addArray(services);
    document.addString("id");
    document.addString("address");
    document.addString(address);
    for (std::uint64_t index = 0; index < count; ++index) {
        document.addDictionary({kIdKey, kAddressKey}, {firstId + index, kAddress});
    }
    for (std::uint64_t id = 1; id <= count; ++id) {
        document.add('\x11' + bigEndian(id, 2));
    }
    return document.bytes();
}

// Creates documents whose containers are nested `depth` deep. The document of unclosed() ends where
// the deepest container begins.
struct Nested {
    const char* name;
    std::string (*whole)(std::size_t depth);
    std::string (*unclosed)(std::size_t depth);
};

inline constexpr Nested kNestedXml[] = {
    {"arrays",
     [](std::size_t depth) { return repeated("<array>", depth) + repeated("</array>", depth); },
     [](std::size_t depth) { return repeated("<array>", depth); }},
    {"dictionaries",
     [](std::size_t depth) {
         return repeated("<dict><key>k</key>", depth - 1) + "<dict/>" +
                repeated("</dict>", depth - 1);
     },
     [](std::size_t depth) { return repeated("<dict><key>k</key>", depth); }},
    {"both",
     [](std::size_t depth) {
         return repeated("<array><dict><key>k</key>", depth / 2) + "<string>s</string>" +
                repeated("</dict></array>", depth / 2);
     },
     [](std::size_t depth) { return repeated("<array><dict><key>k</key>", depth / 2); }},
};

inline constexpr Nested kNestedOldStyle[] = {
    {"arrays", [](std::size_t depth) { return repeated("(", depth) + repeated(")", depth); },
     [](std::size_t depth) { return repeated("(", depth); }},
    {"dictionaries",
     [](std::size_t depth) {
         return repeated("{k=", depth - 1) + "{}" + repeated(";}", depth - 1);
     },
     [](std::size_t depth) { return repeated("{k=", depth); }},
    {"both",
     [](std::size_t depth) {
         return repeated("({k=", depth / 2) + "s" + repeated(";})", depth / 2);
     },
     [](std::size_t depth) { return repeated("({k=", depth / 2); }},
};

// The document of unclosed() lacks its last object.
inline constexpr Nested kNestedBinary[] = {
    {"arrays",
     [](std::size_t depth) {
         BinaryDocument document(4);
         for (std::size_t level = 1; level < depth; ++level) {
             document.addArray({level});
         }
         document.addArray({});
         return document.bytes();
     },
     [](std::size_t depth) {
         BinaryDocument document(4);
         for (std::size_t level = 1; level <= depth; ++level) {
             document.addArray({level});
         }
         return document.bytes();
     }},
    {"dictionaries",
     [](std::size_t depth) {
         BinaryDocument document(4);
         for (std::size_t level = 1; level < depth; ++level) {
             document.addDictionary({depth}, {level});
         }
         document.addDictionary({}, {});
         document.addString("k");
         return document.bytes();
     },
     [](std::size_t depth) {
         BinaryDocument document(4);
         for (std::size_t level = 1; level <= depth; ++level) {
             document.addDictionary({depth + 1}, {level});
         }
         return document.bytes();
     }},
};

}  // namespace qv::tests

#endif  // QV_TESTS_DOCUMENTS_H
