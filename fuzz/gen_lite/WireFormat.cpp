// SPDX-License-Identifier: Apache-2.0

#include "gen_lite/WireFormat.h"

#include <cstddef>
#include <utility>

namespace qv::fuzz {
namespace {

constexpr int kDeepest = 64;
constexpr std::size_t kReadBytes = 64 << 20;

enum Wire : std::uint32_t {
    kVarint = 0,
    kFixed64 = 1,
    kText = 2,
    kGroup = 3,
    kEnd = 4,
    kFixed32 = 5
};

// Reads the fields of one message. A function that meets a fault returns false, and the caller then
// stops reading.
class Fields {
  public:
    explicit Fields(std::string_view bytes, int depth = 0)
        : rest_(bytes.substr(0, kReadBytes)), depth_(depth) {}

    // Reads the next tag. Returns false at the end of the bytes and at a tag that ends the message.
    bool next() {
        if (rest_.empty()) {
            return false;
        }
        std::uint64_t tag = 0;
        isGood_ = varint(tag) && static_cast<std::uint32_t>(tag) != 0;
        tag_ = static_cast<std::uint32_t>(tag);
        isGood_ = isGood_ && wire() != kEnd;
        return isGood_;
    }

    bool is(std::uint32_t number, Wire kind) const { return tag_ == (number << 3 | kind); }

    bool take(std::int32_t& number) {
        std::uint64_t value = 0;
        if (!varint(value)) {
            return fail();
        }
        number = static_cast<std::int32_t>(value);
        return true;
    }

    // Takes as much of the text as there is. Returns false if the text is cut.
    bool take(std::string_view& text) {
        hasText_ = false;
        std::int32_t length = 0;
        if (!take(length)) {
            return false;
        }
        // A negative length is a fault before the text begins.
        hasText_ = length >= 0;
        const auto size = static_cast<std::uint32_t>(length);
        text = rest_.substr(0, size);
        rest_.remove_prefix(text.size());
        return text.size() == size || fail();
    }
    // Returns whether the last text began before a fault.
    bool hasText() const { return hasText_; }

    bool skip() { return skipValue(tag_, depth_); }

    // Returns whether there was no fault until now.
    bool isGood() const { return isGood_; }

    bool fail() {
        isGood_ = false;
        return false;
    }

  private:
    std::uint32_t wire() const { return tag_ & 7; }

    bool varint(std::uint64_t& value) {
        value = 0;
        for (int index = 0; index < 10; ++index) {
            if (rest_.empty()) {
                return false;
            }
            const auto byte = static_cast<std::uint8_t>(rest_.front());
            rest_.remove_prefix(1);
            value |= static_cast<std::uint64_t>(byte & 0x7F) << (7 * index);
            if (byte < 0x80) {
                return true;
            }
        }
        return false;
    }

    bool drop(std::size_t size) {
        if (rest_.size() < size) {
            return false;
        }
        rest_.remove_prefix(size);
        return true;
    }

    bool skipValue(std::uint32_t tag, int depth) {
        std::uint64_t value = 0;
        switch (tag & 7) {
            case kVarint:
                return varint(value) || fail();
            case kFixed64:
                return drop(8) || fail();
            case kFixed32:
                return drop(4) || fail();
            case kText:
                return (varint(value) && static_cast<std::int32_t>(value) >= 0 &&
                        drop(static_cast<std::uint32_t>(value))) ||
                       fail();
            case kGroup:
                return skipGroup(tag >> 3, depth + 1) || fail();
            default:
                return fail();
        }
    }

    bool skipGroup(std::uint32_t number, int depth) {
        std::uint64_t value = 0;
        while (depth <= kDeepest && varint(value)) {
            const auto tag = static_cast<std::uint32_t>(value);
            if ((tag & 7) == kEnd) {
                return tag >> 3 == number;
            }
            if (tag == 0 || !skipValue(tag, depth)) {
                return false;
            }
        }
        return false;
    }

    std::string_view rest_;
    int depth_;
    std::uint32_t tag_ = 0;
    bool isGood_ = true;
    bool hasText_ = false;
};

bool readService(Fields fields, StoredService& service) {
    while (fields.next()) {
        if (fields.is(1, kVarint)) {
            std::int32_t id = 0;
            if (!fields.take(id)) {
                break;
            }
            service.id = id;
        } else if (fields.is(2, kText)) {
            // The address is present when its tag was read.
            if (!service.address) {
                service.address = "";
            }
            std::string_view address;
            const bool isWhole = fields.take(address);
            if (isWhole || fields.hasText()) {
                service.address = address;
            }
            if (!isWhole) {
                break;
            }
        } else if (!fields.skip()) {
            break;
        }
    }
    return fields.isGood();
}

void putVarint(std::string& out, std::uint64_t value) {
    for (; value >= 0x80; value >>= 7) {
        out += static_cast<char>(value | 0x80);
    }
    out += static_cast<char>(value);
}

}  // namespace

std::vector<StoredService> servicesIn(std::string_view request) {
    std::vector<StoredService> services;
    for (Fields fields(request); fields.next();) {
        if (!fields.is(1, kText)) {
            if (!fields.skip()) {
                break;
            }
            continue;
        }
        services.emplace_back();
        std::string_view element;
        const bool isWhole = fields.take(element);
        if (!readService(Fields(element, 1), services.back()) || !isWhole) {
            break;
        }
    }
    return services;
}

std::int32_t debugLevelIn(std::string_view request) {
    std::int32_t level = 0;
    std::int32_t plugins = 0;
    for (Fields fields(request); fields.next();) {
        if (!(fields.is(2, kVarint)   ? fields.take(level)
              : fields.is(1, kVarint) ? fields.take(plugins)
                                      : fields.skip())) {
            break;
        }
    }
    return level;
}

std::string encodedService(std::int32_t id, std::string_view address) {
    std::string service = "\x08";
    putVarint(service, static_cast<std::uint64_t>(std::int64_t{id}));
    service += '\x12';
    putVarint(service, address.size());
    service += address;
    std::string element = "\x0a";
    putVarint(element, service.size());
    return element + service;
}

}  // namespace qv::fuzz
