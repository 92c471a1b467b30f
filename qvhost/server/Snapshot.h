// SPDX-License-Identifier: Apache-2.0

// The directory of services as it is after one commit. A snapshot never changes, so any number of
// threads read it without a lock, whatever is being committed or saved.
//
//     NextSnapshot next(snapshot);            // a shared pointer to a Snapshot
//     next.put(7, "/run/a.sock");
//     next.remove(8);
//     snapshot = next.finish(snapshot->revision() + 1);
//
// A snapshot consists of blocks of up to kServicesOfBlock services, ascending by identifier. The
// next snapshot shares the blocks that no change touches. So a change costs a block and a list of
// pointers, however many services there are. A block that a change makes small is joined with its
// neighbour, so a directory that shrinks does not keep thousands of small blocks.
//
// A block keeps its services in the form in which a listing sends them. So the blocks' bytes, one
// after the other, are the answer to a listing, and nothing is serialised for it.
#ifndef QVHOST_SERVER_SNAPSHOT_H
#define QVHOST_SERVER_SNAPSHOT_H

#include <cstddef>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/Service.h"

namespace qv::host {

// One service of a snapshot. The address is valid as long as the snapshot.
struct ServiceView {
    int32_t id = 0;
    std::string_view address;
};

// Appends the service to a serialised message, as an element of a repeated field of this number.
// The element has the fields of a ServiceInfo, which are also those of a HostService. Throws
// std::bad_alloc.
void appendEntry(std::string& bytes, int field, const ServiceView& service);

constexpr std::size_t kServicesOfBlock = 128;

class ServiceBlock {
  public:
    ServiceBlock() = default;

    // Copies `count` services, ascending by identifier. Throws std::bad_alloc.
    ServiceBlock(const ServiceView* services, std::size_t count);

    // Makes room for so many services, whose entries have so many bytes. Throws std::bad_alloc.
    void reserve(std::size_t count, std::size_t bytes);

    // Append a service, and the services of [first, last) of another block. Their identifiers are
    // greater than those before. To copy services from a block costs much less than to serialise
    // them. Throw std::bad_alloc.
    void append(const ServiceView& service);
    void append(const ServiceBlock& other, std::size_t first, std::size_t last);

    std::size_t size() const { return entries_.size(); }
    ServiceView operator[](std::size_t index) const {
        const Entry& entry = entries_[index];
        return {entry.id, std::string_view(bytes_).substr(entry.offset, entry.length)};
    }

    // Returns the position of the first service whose identifier is not less.
    std::size_t lowerBound(int32_t id) const;

    // Returns the services as entries of a serialised ServiceInfoArray.
    std::string_view bytes() const { return bytes_; }

    // Returns the entries of the services of [first, last).
    std::string_view entries(std::size_t first, std::size_t last) const {
        return std::string_view(bytes_).substr(endOf(first), endOf(last) - endOf(first));
    }

    // Returns the entry of one service.
    std::string_view entry(std::size_t index) const { return entries(index, index + 1); }

    // Returns the bytes of all addresses.
    std::size_t addressBytes() const { return addressBytes_; }

  private:
    struct Entry {
        int32_t id;
        uint32_t offset;  // of the address in bytes_
        uint32_t length;
    };

    // Returns where the entries of the first `count` services end.
    std::size_t endOf(std::size_t count) const {
        return count == 0 ? 0
                          : std::size_t{entries_[count - 1].offset} + entries_[count - 1].length;
    }

    std::vector<Entry> entries_;
    std::string bytes_;
    std::size_t addressBytes_ = 0;
};

class Snapshot {
  public:
    using Blocks = std::vector<std::shared_ptr<const ServiceBlock>>;

    // Makes an empty directory with revision 0.
    Snapshot() = default;

    // Takes the services, ascending by identifier and each only once. Throws std::bad_alloc.
    Snapshot(int64_t revision, const std::vector<Service>& services);

    // Counts the commits that led to this directory.
    int64_t revision() const { return revision_; }

    std::size_t size() const { return size_; }
    bool empty() const { return size_ == 0; }

    // Returns the bytes of all addresses.
    std::size_t addressBytes() const { return addressBytes_; }

    // Returns the length of the answer to a listing.
    std::size_t listingBytes() const { return listingBytes_; }

    const Blocks& blocks() const { return blocks_; }

    // Returns the address of a service, which is valid as long as the snapshot.
    std::optional<std::string_view> find(int32_t id) const;

    // Returns the service as an entry of a serialised ServiceInfoArray, or nothing if there is no
    // such service. The entry is valid as long as the snapshot.
    std::string_view entry(int32_t id) const;

    // Calls function(ServiceView) for each service, ascending by identifier.
    template <typename Function>
    void forEach(Function function) const {
        for (const std::shared_ptr<const ServiceBlock>& block : blocks_) {
            for (std::size_t i = 0; i < block->size(); ++i) {
                function((*block)[i]);
            }
        }
    }

  private:
    friend class NextSnapshot;

    // The place of a service. Without a block there is no such service.
    struct Place {
        const ServiceBlock* block = nullptr;
        std::size_t index = 0;
    };

    Snapshot(Blocks blocks, int64_t revision);

    Place placeOf(int32_t id) const;

    int64_t revision_ = 0;
    Blocks blocks_;
    std::size_t size_ = 0;
    std::size_t addressBytes_ = 0;
    std::size_t listingBytes_ = 0;
};

using SnapshotPointer = std::shared_ptr<const Snapshot>;

// The services that a commit changes: the new address under each identifier, or nothing where the
// service is withdrawn.
using Edits = std::map<int32_t, std::optional<std::string>>;

// Makes the snapshot that follows another one. Only one thread may use an object.
class NextSnapshot {
  public:
    explicit NextSnapshot(SnapshotPointer base);

    // Register and withdraw a service. Return false if that changes nothing. Throw std::bad_alloc,
    // and change nothing then.
    bool put(int32_t id, std::string_view address);
    bool remove(int32_t id);

    // Returns the address of a service with the edits so far. The address is valid until the next
    // edit of the service.
    std::optional<std::string_view> find(int32_t id) const;

    std::size_t size() const { return size_; }
    std::size_t addressBytes() const { return addressBytes_; }

    // Returns the difference to the base. An edit that was undone is not in it.
    const Edits& edits() const { return edits_; }

    // Returns the base with the edits. Throws std::bad_alloc.
    SnapshotPointer finish(int64_t revision) const;

  private:
    SnapshotPointer base_;
    Edits edits_;
    std::size_t size_ = 0;
    std::size_t addressBytes_ = 0;
};

// Returns what turns one snapshot into the other. Skips the blocks that both share, so snapshots
// that follow each other closely are compared quickly. Throws std::bad_alloc.
Edits difference(const Snapshot& from, const Snapshot& to);

}  // namespace qv::host

#endif  // QVHOST_SERVER_SNAPSHOT_H
