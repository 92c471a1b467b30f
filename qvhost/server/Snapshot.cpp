// SPDX-License-Identifier: Apache-2.0

#include "server/Snapshot.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "namingService.pb.h"

namespace qv::host {

namespace {

namespace wire_format = qor::kevra::wire;
using qor::kevra::ServiceInfo;
using qor::kevra::ServiceInfoArray;

// A change joins the block that it touches with a neighbour if both together have at most this many
// services. The joined block takes many more services before it is split.
constexpr std::size_t kServicesOfJoinedBlock = kServicesOfBlock / 2;

// Returns the size of the fields of a ServiceInfo. The plug-in's listing always sets both fields.
std::size_t sizeOfFields(const ServiceView& service) {
    return wire_format::tagSizeOf(ServiceInfo::kIdFieldNumber) +
           wire_format::Int32::size(service.id) +
           wire_format::tagSizeOf(ServiceInfo::kAddressFieldNumber) +
           wire_format::lengthDelimitedSize(service.address.size());
}

std::size_t sizeOfEntry(const ServiceView& service) {
    return wire_format::tagSizeOf(ServiceInfoArray::kServicesFieldNumber) +
           wire_format::lengthDelimitedSize(sizeOfFields(service));
}

uint8_t* writeDelimiter(int number, std::size_t length, uint8_t* target) {
    target = wire_format::WireFormat::WriteTagToArray(
        number, wire_format::WireFormat::WIRETYPE_LENGTH_DELIMITED, target);
    return wire_format::CodedOutputStream::WriteVarint32ToArray(static_cast<uint32_t>(length),
                                                                target);
}

// Two tags with lengths and a tag with a number take fewer bytes.
constexpr std::size_t kMostBytesBeforeAddress = 32;

// Calls function(begin, end) for each block of nearly the same size that so many services take.
template <typename Function>
void forEachBlock(std::size_t services, Function function) {
    const std::size_t count = (services + kServicesOfBlock - 1) / kServicesOfBlock;
    std::size_t begin = 0;
    for (std::size_t i = 1; i <= count; ++i) {
        const std::size_t end = services * i / count;
        function(begin, end);
        begin = end;
    }
}

Snapshot::Blocks blocksOf(const std::vector<Service>& services) {
    std::vector<ServiceView> views;
    views.reserve(services.size());
    for (const Service& service : services) {
        views.push_back({service.id, service.address});
    }
    Snapshot::Blocks blocks;
    forEachBlock(views.size(), [&](std::size_t begin, std::size_t end) {
        blocks.push_back(std::make_shared<const ServiceBlock>(views.data() + begin, end - begin));
    });
    return blocks;
}

// Returns the position of the first block whose services all have greater identifiers.
std::size_t blocksUpTo(const Snapshot::Blocks& blocks, int32_t id) {
    const auto after =
        std::upper_bound(blocks.begin(), blocks.end(), id,
                         [](int32_t value, const auto& block) { return value < (*block)[0].id; });
    return static_cast<std::size_t>(after - blocks.begin());
}

// Walks over the services of a block with the edits, which are in the block's range. Calls
// old(first, last) for services of the block, and edited(ServiceView) for one that an edit gives.
template <typename Old, typename Edited>
void walkEdited(const ServiceBlock& block, Edits::const_iterator edit, Edits::const_iterator end,
                Old old, Edited edited) {
    std::size_t next = 0;
    for (; edit != end; ++edit) {
        const auto& [id, address] = *edit;
        const std::size_t position = block.lowerBound(id);
        old(next, position);
        next = position < block.size() && block[position].id == id ? position + 1 : position;
        if (address) {
            edited(ServiceView{id, *address});
        }
    }
    old(next, block.size());
}

ServiceBlock editedBlock(const ServiceBlock& block, Edits::const_iterator edit,
                         Edits::const_iterator end) {
    std::size_t count = 0;
    std::size_t bytes = 0;
    walkEdited(
        block, edit, end,
        [&](std::size_t first, std::size_t last) {
            count += last - first;
            bytes += block.entries(first, last).size();
        },
        [&](const ServiceView& service) {
            ++count;
            bytes += sizeOfEntry(service);
        });
    ServiceBlock result;
    result.reserve(count, bytes);
    walkEdited(
        block, edit, end,
        [&](std::size_t first, std::size_t last) { result.append(block, first, last); },
        [&](const ServiceView& service) { result.append(service); });
    return result;
}

// Appends the services of a block, as blocks of nearly the same size.
void appendBlock(Snapshot::Blocks& blocks, ServiceBlock block) {
    if (block.size() <= kServicesOfBlock) {
        if (block.size() != 0) {
            blocks.push_back(std::make_shared<const ServiceBlock>(std::move(block)));
        }
        return;
    }
    forEachBlock(block.size(), [&](std::size_t begin, std::size_t end) {
        ServiceBlock part;
        part.reserve(end - begin, block.entries(begin, end).size());
        part.append(block, begin, end);
        blocks.push_back(std::make_shared<const ServiceBlock>(std::move(part)));
    });
}

// Joins the last blocks as long as they have few services.
void joinLast(Snapshot::Blocks& blocks) {
    while (blocks.size() >= 2) {
        const ServiceBlock& last = *blocks[blocks.size() - 1];
        const ServiceBlock& other = *blocks[blocks.size() - 2];
        if (other.size() + last.size() > kServicesOfJoinedBlock) {
            return;
        }
        ServiceBlock joined;
        joined.reserve(other.size() + last.size(), other.bytes().size() + last.bytes().size());
        joined.append(other, 0, other.size());
        joined.append(last, 0, last.size());
        blocks.pop_back();
        blocks.back() = std::make_shared<const ServiceBlock>(std::move(joined));
    }
}

// Appends the old blocks of [first, last), which no edit touches. A change may have made the block
// before them small, or may have removed it.
void appendShared(Snapshot::Blocks& blocks, const Snapshot::Blocks& old, std::size_t first,
                  std::size_t last) {
    if (first < last) {
        blocks.push_back(old[first]);
        joinLast(blocks);
        blocks.insert(blocks.end(), old.begin() + static_cast<std::ptrdiff_t>(first) + 1,
                      old.begin() + static_cast<std::ptrdiff_t>(last));
    }
}

// Walks over the services of a snapshot.
class Cursor {
  public:
    explicit Cursor(const Snapshot& snapshot)
        : block_(snapshot.blocks().begin()), end_(snapshot.blocks().end()) {}

    bool isAtEnd() const { return block_ == end_; }
    ServiceView service() const { return (**block_)[index_]; }

    bool isInSameBlock(const Cursor& other) const { return *block_ == *other.block_; }

    void skipService() {
        if (++index_ == (*block_)->size()) {
            skipBlock();
        }
    }
    void skipBlock() {
        ++block_;
        index_ = 0;
    }

  private:
    Snapshot::Blocks::const_iterator block_;
    Snapshot::Blocks::const_iterator end_;
    std::size_t index_ = 0;
};

}  // namespace

void appendEntry(std::string& bytes, int field, const ServiceView& service) {
    uint8_t start[kMostBytesBeforeAddress];
    uint8_t* end = writeDelimiter(field, sizeOfFields(service), start);
    end = wire_format::WireFormat::WriteTagToArray(ServiceInfo::kIdFieldNumber,
                                                   wire_format::WireFormat::WIRETYPE_VARINT, end);
    end = wire_format::Int32::write(service.id, end);
    end = writeDelimiter(ServiceInfo::kAddressFieldNumber, service.address.size(), end);
    bytes.append(reinterpret_cast<const char*>(start), static_cast<std::size_t>(end - start));
    bytes.append(service.address);
}

ServiceBlock::ServiceBlock(const ServiceView* services, std::size_t count) {
    std::size_t bytes = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bytes += sizeOfEntry(services[i]);
    }
    reserve(count, bytes);
    for (std::size_t i = 0; i < count; ++i) {
        append(services[i]);
    }
}

void ServiceBlock::reserve(std::size_t count, std::size_t bytes) {
    // An entry's offset has 32 bits.
    if (bytes > std::numeric_limits<uint32_t>::max()) {
        throw std::bad_alloc();
    }
    entries_.reserve(count);
    bytes_.reserve(bytes);
}

void ServiceBlock::append(const ServiceView& service) {
    appendEntry(bytes_, ServiceInfoArray::kServicesFieldNumber, service);
    const std::size_t length = service.address.size();
    entries_.push_back(
        {service.id, static_cast<uint32_t>(bytes_.size() - length), static_cast<uint32_t>(length)});
    addressBytes_ += length;
}

void ServiceBlock::append(const ServiceBlock& other, std::size_t first, std::size_t last) {
    // Unsigned numbers wrap, so the difference may be negative.
    const auto shift = static_cast<uint32_t>(bytes_.size() - other.endOf(first));
    bytes_.append(other.entries(first, last));
    const std::size_t added = entries_.size();
    entries_.insert(entries_.end(), other.entries_.begin() + static_cast<std::ptrdiff_t>(first),
                    other.entries_.begin() + static_cast<std::ptrdiff_t>(last));
    for (std::size_t i = added; i < entries_.size(); ++i) {
        entries_[i].offset += shift;
        addressBytes_ += entries_[i].length;
    }
}

std::size_t ServiceBlock::lowerBound(int32_t id) const {
    const auto position =
        std::lower_bound(entries_.begin(), entries_.end(), id,
                         [](const Entry& entry, int32_t value) { return entry.id < value; });
    return static_cast<std::size_t>(position - entries_.begin());
}

Snapshot::Snapshot(int64_t revision, const std::vector<Service>& services)
    : Snapshot(blocksOf(services), revision) {}

Snapshot::Snapshot(Blocks blocks, int64_t revision)
    : revision_(revision), blocks_(std::move(blocks)) {
    for (const std::shared_ptr<const ServiceBlock>& block : blocks_) {
        size_ += block->size();
        addressBytes_ += block->addressBytes();
        listingBytes_ += block->bytes().size();
    }
}

Snapshot::Place Snapshot::placeOf(int32_t id) const {
    const std::size_t after = blocksUpTo(blocks_, id);
    if (after == 0) {
        return {};
    }
    const ServiceBlock& block = *blocks_[after - 1];
    const std::size_t index = block.lowerBound(id);
    if (index == block.size() || block[index].id != id) {
        return {};
    }
    return {&block, index};
}

std::optional<std::string_view> Snapshot::find(int32_t id) const {
    const Place place = placeOf(id);
    if (place.block == nullptr) {
        return std::nullopt;
    }
    return (*place.block)[place.index].address;
}

std::string_view Snapshot::entry(int32_t id) const {
    const Place place = placeOf(id);
    return place.block == nullptr ? std::string_view() : place.block->entry(place.index);
}

NextSnapshot::NextSnapshot(SnapshotPointer base)
    : base_(std::move(base)), size_(base_->size()), addressBytes_(base_->addressBytes()) {}

std::optional<std::string_view> NextSnapshot::find(int32_t id) const {
    const auto edit = edits_.find(id);
    if (edit == edits_.end()) {
        return base_->find(id);
    }
    return edit->second;
}

bool NextSnapshot::put(int32_t id, std::string_view address) {
    const std::optional<std::string_view> old = find(id);
    if (old == address) {
        return false;
    }
    const std::size_t oldServices = old ? 1 : 0;
    const std::size_t oldBytes = old ? old->size() : 0;
    const std::size_t newBytes = address.size();
    if (base_->find(id) == address) {
        edits_.erase(id);
    } else {
        edits_.insert_or_assign(id, std::string(address));
    }
    size_ += 1 - oldServices;
    addressBytes_ += newBytes - oldBytes;
    return true;
}

bool NextSnapshot::remove(int32_t id) {
    const std::optional<std::string_view> old = find(id);
    if (!old) {
        return false;
    }
    const std::size_t oldBytes = old->size();
    if (base_->find(id)) {
        edits_.insert_or_assign(id, std::nullopt);
    } else {
        edits_.erase(id);
    }
    --size_;
    addressBytes_ -= oldBytes;
    return true;
}

SnapshotPointer NextSnapshot::finish(int64_t revision) const {
    const Snapshot::Blocks& old = base_->blocks();
    const ServiceBlock none;
    Snapshot::Blocks blocks;
    blocks.reserve(old.size() + 1);
    std::size_t next = 0;  // of the old blocks, the first that the new ones do not have yet
    for (auto edit = edits_.begin(); edit != edits_.end();) {
        // The last block that begins at the edit or before, if there is one, takes all edits up to
        // the block after it.
        const std::size_t after = blocksUpTo(old, edit->first);
        const std::size_t touched = after == 0 ? 0 : after - 1;
        const auto end =
            after < old.size() ? edits_.lower_bound((*old[after])[0].id) : edits_.end();
        appendShared(blocks, old, next, touched);
        appendBlock(blocks, editedBlock(after == 0 ? none : *old[touched], edit, end));
        joinLast(blocks);
        next = after;
        edit = end;
    }
    appendShared(blocks, old, next, old.size());
    return SnapshotPointer(new Snapshot(std::move(blocks), revision));
}

Edits difference(const Snapshot& from, const Snapshot& to) {
    Edits edits;
    Cursor old(from);
    Cursor current(to);
    while (!old.isAtEnd() || !current.isAtEnd()) {
        if (current.isAtEnd() || (!old.isAtEnd() && old.service().id < current.service().id)) {
            edits.emplace_hint(edits.end(), old.service().id, std::nullopt);
            old.skipService();
        } else if (old.isAtEnd() || current.service().id < old.service().id) {
            const auto [id, address] = current.service();
            edits.emplace_hint(edits.end(), id, address);
            current.skipService();
        } else if (old.isInSameBlock(current)) {
            old.skipBlock();
            current.skipBlock();
        } else {
            const auto [id, address] = current.service();
            if (old.service().address != address) {
                edits.emplace_hint(edits.end(), id, address);
            }
            old.skipService();
            current.skipService();
        }
    }
    return edits;
}

}  // namespace qv::host
