#include "server/Snapshot.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <new>
#include <utility>

#include "namingService.pb.h"

namespace qv::host {

namespace {

namespace wire = qor::kevra::wire;
using qor::kevra::ServiceInfo;
using qor::kevra::ServiceInfoArray;

// A change joins the block that it touches with a neighbour if both together have at most this many
// services. The joined block takes many more services before it is split.
constexpr std::size_t kServicesOfJoinedBlock = kServicesOfBlock / 2;

// Returns the size of the fields of a ServiceInfo. The plug-in's listing always sets both fields.
std::size_t sizeOfFields(const ServiceView& service) {
    return wire::tagSizeOf(ServiceInfo::kIdFieldNumber) + wire::Int32::size(service.id) +
           wire::tagSizeOf(ServiceInfo::kAddressFieldNumber) +
           wire::lengthDelimitedSize(service.address.size());
}

std::size_t sizeOfEntry(const ServiceView& service) {
    return wire::tagSizeOf(ServiceInfoArray::kServicesFieldNumber) +
           wire::lengthDelimitedSize(sizeOfFields(service));
}

uint8_t* writeDelimiter(int number, std::size_t length, uint8_t* target) {
    target = wire::WireFormat::WriteTagToArray(number, wire::WireFormat::WIRETYPE_LENGTH_DELIMITED,
                                               target);
    return wire::CodedOutputStream::WriteVarint32ToArray(static_cast<uint32_t>(length), target);
}

// Writes the entry up to the address, and returns where the address goes.
uint8_t* writeUpToAddress(const ServiceView& service, uint8_t* target) {
    target = writeDelimiter(ServiceInfoArray::kServicesFieldNumber, sizeOfFields(service), target);
    target = wire::WireFormat::WriteTagToArray(ServiceInfo::kIdFieldNumber,
                                               wire::WireFormat::WIRETYPE_VARINT, target);
    target = wire::Int32::write(service.id, target);
    return writeDelimiter(ServiceInfo::kAddressFieldNumber, service.address.size(), target);
}

// Appends the services as blocks of nearly the same size.
void appendBlocks(Snapshot::Blocks& blocks, const std::vector<ServiceView>& services) {
    const std::size_t count = (services.size() + kServicesOfBlock - 1) / kServicesOfBlock;
    std::size_t begin = 0;
    for (std::size_t i = 1; i <= count; ++i) {
        const std::size_t end = services.size() * i / count;
        blocks.push_back(
            std::make_shared<const ServiceBlock>(services.data() + begin, end - begin));
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
    appendBlocks(blocks, views);
    return blocks;
}

// Returns the position of the first block whose services all have greater identifiers.
std::size_t blocksUpTo(const Snapshot::Blocks& blocks, int32_t id) {
    const auto after =
        std::upper_bound(blocks.begin(), blocks.end(), id,
                         [](int32_t value, const auto& block) { return value < (*block)[0].id; });
    return static_cast<std::size_t>(after - blocks.begin());
}

// Appends the services of [first, last) of a block.
void appendServices(std::vector<ServiceView>& services, const ServiceBlock& block,
                    std::size_t first, std::size_t last) {
    for (; first < last; ++first) {
        services.push_back(block[first]);
    }
}

// Appends the services of a block with the edits, which are in the block's range.
void appendEdited(std::vector<ServiceView>& services, const ServiceBlock& block,
                  Edits::const_iterator edit, Edits::const_iterator end) {
    std::size_t next = 0;
    for (; edit != end; ++edit) {
        const auto& [id, address] = *edit;
        const std::size_t position = block.lowerBound(id);
        appendServices(services, block, next, position);
        next = position < block.size() && block[position].id == id ? position + 1 : position;
        if (address) {
            services.push_back({id, *address});
        }
    }
    appendServices(services, block, next, block.size());
}

// Joins the last blocks as long as they have few services.
void joinLast(Snapshot::Blocks& blocks) {
    while (blocks.size() >= 2) {
        const ServiceBlock& last = *blocks[blocks.size() - 1];
        const ServiceBlock& other = *blocks[blocks.size() - 2];
        if (other.size() + last.size() > kServicesOfJoinedBlock) {
            return;
        }
        std::vector<ServiceView> services;
        appendServices(services, other, 0, other.size());
        appendServices(services, last, 0, last.size());
        auto joined = std::make_shared<const ServiceBlock>(services.data(), services.size());
        blocks.pop_back();
        blocks.back() = std::move(joined);
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

ServiceBlock::ServiceBlock(const ServiceView* services, std::size_t count) {
    std::size_t size = 0;
    for (std::size_t i = 0; i < count; ++i) {
        size += sizeOfEntry(services[i]);
    }
    // An entry's offset has 32 bits.
    if (size > std::numeric_limits<uint32_t>::max()) {
        throw std::bad_alloc();
    }
    bytes_.resize(size);
    entries_.reserve(count);
    auto* const begin = reinterpret_cast<uint8_t*>(bytes_.data());
    uint8_t* target = begin;
    for (std::size_t i = 0; i < count; ++i) {
        const auto& [id, address] = services[i];
        target = writeUpToAddress(services[i], target);
        entries_.push_back(
            {id, static_cast<uint32_t>(target - begin), static_cast<uint32_t>(address.size())});
        target = std::copy(address.begin(), address.end(), target);
        addressBytes_ += address.size();
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
    const ServiceBlock none(nullptr, 0);
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
        std::vector<ServiceView> services;
        appendEdited(services, after == 0 ? none : *old[touched], edit, end);
        appendBlocks(blocks, services);
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
