// SPDX-License-Identifier: Apache-2.0

#include "server/History.h"

#include <QvHost.pb.h>

#include <algorithm>
#include <new>
#include <random>
#include <utility>

namespace qv::host {

std::shared_ptr<const Event> Event::of(const Edits& edits, const Snapshot& before, uint64_t epoch,
                                       int64_t revision) noexcept {
    try {
        const auto event = std::make_shared<Event>();
        event->revision_ = revision;
        event->parts_.reserve(edits.size());
        // Serialised messages, one after the other, are one message with the fields of all.
        for (const auto& [id, address] : edits) {
            if (address) {
                const int field = before.find(id) ? wire::HostEvent::kChangedFieldNumber
                                                  : wire::HostEvent::kRegisteredFieldNumber;
                appendEntry(event->bytes_, field, {id, *address});
            } else {
                wire::HostEvent part;
                part.add_withdrawn(id);
                part.AppendToString(&event->bytes_);
            }
            if (event->bytes_.size() > kLongestEvent) {
                return nullptr;
            }
            event->parts_.push_back({id, static_cast<uint32_t>(event->bytes_.size())});
        }
        event->bytes_ += end(epoch, revision);
        return event;
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}

std::string Event::end(uint64_t epoch, int64_t revision, bool isSnapshot) {
    wire::HostEvent end;
    if (isSnapshot) {
        end.set_is_snapshot(true);
    }
    end.set_epoch(epoch);
    end.set_revision(revision);
    return end.SerializeAsString();
}

std::string Event::bytesOf(const Identifiers& ids) const {
    std::string some;
    std::size_t begin = 0;
    for (const Part& part : parts_) {
        if (std::binary_search(ids.begin(), ids.end(), part.id)) {
            some.append(bytes_, begin, part.end - begin);
        }
        begin = part.end;
    }
    if (!some.empty()) {
        some.append(bytes_, begin);
    }
    return some;
}

std::size_t Event::memory() const {
    return sizeof *this + bytes_.capacity() + parts_.capacity() * sizeof(Part);
}

History::History(uint64_t epoch, const Bounds& bounds)
    : epoch_(epoch), bounds_(bounds), events_(bounds.events) {}

uint64_t History::newEpoch() {
    std::random_device random;
    uint64_t epoch = 0;
    while (epoch == 0) {
        epoch = uint64_t{random()} << 32 | random();
    }
    return epoch;
}

void History::begin(uint64_t lastEpoch, int64_t revision) {
    lastEpoch_ = lastEpoch;
    firstRevision_ = revision;
    const system::MutexLock lock(mutex_);
    oldest_ = revision;
    newest_ = revision;
}

EventPointer& History::placeOf(int64_t revision) {
    return events_[static_cast<std::size_t>(revision) % events_.size()];
}

void History::append(int64_t revision, EventPointer event) noexcept {
    const system::MutexLock lock(mutex_);
    if (newest_ - oldest_ == static_cast<int64_t>(events_.size())) {
        dropOldest();
    }
    newest_ = revision;
    if (event == nullptr) {
        while (oldest_ != newest_) {
            dropOldest();
        }
        return;
    }
    memory_ += event->memory();
    placeOf(revision) = std::move(event);
    while (memory_ > bounds_.memory) {
        dropOldest();
    }
}

void History::dropOldest() {
    if (const EventPointer oldest = std::move(placeOf(++oldest_))) {
        memory_ -= oldest->memory();
    }
}

std::optional<int64_t> History::positionOf(const SubscriptionWish::Event& last) const {
    const bool isOfLastRun = last.epoch == lastEpoch_ && last.revision == firstRevision_;
    if (lastEpoch_ != 0 && isOfLastRun) {
        return last.revision;
    }
    return last.epoch == epoch_ ? std::optional(last.revision) : std::nullopt;
}

std::optional<std::size_t> History::after(int64_t revision, EventPointer* events,
                                          std::size_t most) const {
    const system::MutexLock lock(mutex_);
    if (revision < oldest_ || revision > newest_) {
        return std::nullopt;
    }
    const std::size_t count = std::min(static_cast<std::size_t>(newest_ - revision), most);
    for (std::size_t i = 0; i < count; ++i) {
        events[i] = events_[(static_cast<std::size_t>(revision) + i + 1) % events_.size()];
    }
    return count;
}

}  // namespace qv::host
