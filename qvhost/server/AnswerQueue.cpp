// SPDX-License-Identifier: Apache-2.0

#include "server/AnswerQueue.h"

#include <QvFrame.h>

#include <algorithm>
#include <memory>
#include <utility>

#include "server/ClientLimits.h"

namespace qv::host {

namespace {

// A shorter listing is copied, which costs less than another piece.
constexpr std::size_t kShortestPiece = 2048;

// A client that is sent nothing keeps memory for this many listings.
constexpr std::size_t kIdleListings = 4;

}  // namespace

void AnswerQueue::appendHeader(uint32_t code, std::size_t length, uint32_t number) {
    lastBytes_ = bytes_.size();
    lastListings_ = listings_.size();
    lastSize_ = size_;
    unsigned char header[QV_FRAME_HEADER_SIZE];
    QvFramePutHeader(header, {code, static_cast<uint32_t>(length), number});
    bytes_.append(reinterpret_cast<const char*>(header), sizeof header);
    size_ += sizeof header + length;
}

void AnswerQueue::append(uint32_t code, uint32_t number, std::string_view bytes) {
    appendHeader(code, bytes.size(), number);
    bytes_.append(bytes);
}

void AnswerQueue::append(uint32_t number, SnapshotPointer snapshot, std::string_view end) {
    constexpr uint32_t kOk = 0;
    const std::size_t length = snapshot->listingBytes();
    appendHeader(kOk, length + end.size(), number);
    if (length >= kShortestPiece) {
        listings_.push_back({bytes_.size(), std::move(snapshot)});
    } else {
        for (const std::shared_ptr<const ServiceBlock>& block : snapshot->blocks()) {
            bytes_.append(block->bytes());
        }
    }
    bytes_.append(end);
}

void AnswerQueue::removeLast() {
    bytes_.resize(lastBytes_);
    listings_.resize(lastListings_);
    size_ = lastSize_;
}

// Returns the end of the bytes that are sent before the next listing.
std::size_t AnswerQueue::endOfBytes(const Place& place) const {
    return place.listing == listings_.size() ? bytes_.size() : listings_[place.listing].begin;
}

std::string_view AnswerQueue::pieceAt(const Place& place) const {
    const std::size_t end = endOfBytes(place);
    if (place.byte != end) {
        return std::string_view(bytes_).substr(place.byte, end - place.byte);
    }
    if (place.listing == listings_.size()) {
        return {};
    }
    const Snapshot& snapshot = *listings_[place.listing].snapshot;
    return snapshot.blocks()[place.block]->bytes().substr(place.offset);
}

// Moves the place by up to the length of the piece there.
void AnswerQueue::advance(Place& place, std::size_t count) const {
    if (place.byte != endOfBytes(place)) {
        place.byte += count;
        return;
    }
    const Snapshot::Blocks& blocks = listings_[place.listing].snapshot->blocks();
    place.offset += count;
    if (place.offset == blocks[place.block]->bytes().size()) {
        place.offset = 0;
        if (++place.block == blocks.size()) {
            place.block = 0;
            ++place.listing;
        }
    }
}

std::size_t AnswerQueue::pieces(std::string_view* pieces, std::size_t most) const {
    Place place = unsent_;
    std::size_t count = 0;
    while (count < most) {
        const std::string_view piece = pieceAt(place);
        if (piece.empty()) {
            break;
        }
        pieces[count++] = piece;
        advance(place, piece.size());
    }
    return count;
}

void AnswerQueue::sent(std::size_t count) {
    size_ -= count;
    if (size_ == 0) {
        clear();
        return;
    }
    while (count != 0) {
        const std::size_t step = std::min(count, pieceAt(unsent_).size());
        const std::size_t listing = unsent_.listing;
        advance(unsent_, step);
        if (unsent_.listing != listing) {
            listings_[listing].snapshot.reset();
        }
        count -= step;
    }
}

// Forgets the answers, and frees what an idle client needs not.
void AnswerQueue::clear() {
    unsent_ = {};
    bytes_.clear();
    listings_.clear();
    if (bytes_.capacity() > kIdleAnswerBuffer) {
        bytes_ = std::string();
    }
    if (listings_.capacity() > kIdleListings) {
        listings_ = std::vector<Listing>();
    }
}

}  // namespace qv::host
